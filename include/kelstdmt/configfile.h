// A small settings file: lines NAME:VALUE, in memory a map sorted by name, written back when it is closed
// after a change.
//
// The file is locked from Open to Close, shared for reading only and exclusive otherwise, so that two
// processes never work on it at once; the lock holds although the file is replaced when it is written: a
// reader, and a crash, see the old text or the new one, never a mixture. An object belongs to one thread at a
// time.
//
// A line is split at its first colon; blanks and tabs in the name do not count, the value is every byte
// after the colon, also a carriage return. A line without a colon or without a name is left out; of lines
// with one name the last one holds.
#pragma once

#include <memory>

#include <kelstdmt/dssorted.h>
#include <kelstdmt/export.h>
#include <kelstdmt/vumtext.h>
#include <kelstdmt/xstring.h>

namespace kel::detail {

struct config_node {
    xstring name;
    xstring value;
};

}  // namespace kel::detail

// The map's values are the entries, in ascending order of their names, byte by byte. The object owns them.
class KELSTDMT_API ovkConfigFile : public dsStringMap<kel::detail::config_node *> {
public:
    using Node = kel::detail::config_node;
    enum OpenMode : int { ReadOnly, ReadWrite };

    ovkConfigFile();
    ~ovkConfigFile() override;  // closes
    ovkConfigFile(const ovkConfigFile &) = delete;
    ovkConfigFile &operator=(const ovkConfigFile &) = delete;

    // Closes what is open, then reads the file into the map. Entries that were set before the first Open
    // stay, as defaults, where the file has no line of that name; they are not written unless something
    // changes. For reading and writing a missing file is made. Another holder of the lock is waited for, at
    // most lockFileBuf::LockWait seconds.
    //
    // False, with the last error set and nothing open: the file cannot be opened, locked (33) or read, or
    // holds a NUL byte (13), which no text can keep, so that it would be lost with the next change; changes
    // to the file that was open could not be written. The map has no entries then but the defaults; without
    // memory (8) it is empty.
    bool Open(const char *file_name, OpenMode mode);
    bool IsOpened() const noexcept { return m_file != nullptr; }

    // Blanks and tabs in names do not count. These work whether or not a file is open.
    xstring GetValue(const char *name) const;  // the null string when there is none
    // A null pointer and the markers are the null value; it and the empty text are written as "NAME:", which
    // is read as the null value. False, with the last error set: after an Open for reading only (5); for what
    // the file could not give back (87): a name that is empty, or has a colon or a line feed, and a value
    // with a line feed.
    bool SetValue(const char *name, const char *value);
    bool DeleteValue(const char *name);  // false after an Open for reading only (5), and when there is none

    // Writes the changes, if there are any, and empties the map. False, with the last error set, when they
    // could not be written: the file is as it was, and the changes are gone; the destructor tells nobody. The
    // file is replaced by a new one as lockFileBuf::Replace does. When not open, nothing happens.
    bool Close();

private:
    // Entries come and go by the operations above, which know who owns them and that the file has to change.
    using dsStringMap::Add;
    using dsStringMap::Clear;
    using dsStringMap::Remove;

    void AddNode(const char *name, xstring value);
    void InsertNode(const char *name, xstring value);
    bool Load(lockFileBuf &file);
    bool Save();
    void DeleteNodes() noexcept;
    // A key is one of the holders of a counted buffer, as is the name of its entry.
    const char *CopyKey(const char *key) override;
    void FreeKey(const char *key) override;

    std::unique_ptr<lockFileBuf> m_file;
    bool m_modified = false;
    OpenMode m_mode = ReadWrite;
};
