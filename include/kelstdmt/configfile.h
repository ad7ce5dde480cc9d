// A small settings file: lines NAME:VALUE, in memory a map sorted by name, written back when it is closed
// after a change.
//
// The file is locked from Open to Close, shared for reading only and exclusive otherwise, so that two
// processes never work on it at once; the lock holds although the file is replaced when it is written: a
// reader, and a crash, see the old text or the new one, never a mixture. An object belongs to one thread at a
// time.
#pragma once

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

// The map's values are the entries, in ascending order of their names, byte by byte.
class KELSTDMT_API ovkConfigFile : public dsStringMap<kel::detail::config_node *> {
public:
    using Node = kel::detail::config_node;
    enum OpenMode : int { ReadOnly, ReadWrite };

    ovkConfigFile();
    ~ovkConfigFile() override;  // closes
    ovkConfigFile(const ovkConfigFile &) = delete;
    ovkConfigFile &operator=(const ovkConfigFile &) = delete;

    // Closes what is open. False when the file cannot be opened or locked, with the last error set. For
    // reading and writing a missing file is made.
    bool Open(const char *file_name, OpenMode mode);
    bool IsOpened() const noexcept { return m_file != nullptr; }

    // Blanks and tabs in names do not count.
    xstring GetValue(const char *name) const;            // the null string when there is none
    bool SetValue(const char *name, const char *value);  // false when opened for reading only
    bool DeleteValue(const char *name);                  // the same, and when there is none

    // False, with the last error set, when changes could not be written: the file is as it was.
    bool Close();

private:
    void AddNode(xstring name, xstring value);

    xstring m_file_name;
    lockFileBuf *m_file = nullptr;
    bool m_modified = false;
    OpenMode m_mode = ReadWrite;
};
