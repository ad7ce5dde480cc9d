// Single nodes: what they are, what is in them, and the names in a folder.
#pragma once

#include <functional>
#include <memory>

#include <kelstdmt/declare.h>
#include <kelstdmt/export.h>
#include <kelstdmt/strlib.h>
#include <kelstdmt/timelib.h>
#include <kelstdmt/xbasic.h>
#include <kelstdmt/xstring.h>

enum fsNodeType : int { fsFile, fsDirectory, fsSoftLink, fsNoNode };
KEL_DECLARE_ENUM(fsNodeType)

// A node as it was when it was asked. Links are followed, so none is ever met; what is neither a folder nor a
// file, such as a FIFO, counts as a file.
KEL_DECLARE_STRUCT(fsNodeInfo)
class KELSTDMT_API fsNodeInfo : public xobject {
    KEL_CLASS(fsNodeInfo, xobject)
public:
    fsNodeInfo() = default;
    fsNodeInfo(const fsNodeInfo &from) = default;

    // False, with the last error set, when the node cannot be asked; what was known before stays.
    bool Initialize(const char *path);
    bool IsInitialized() const noexcept { return m_initialized; }  // whether the last call succeeded
    fsNodeType getType() const;  // fsFile, and a size and time of 0, before the first success
    tmTime *getModTime() const;  // whole seconds; a new one that the caller owns
    double getSize() const;      // bytes
    // The same for the descriptor: whoever reads the field holds the time.
    xrchandle<tmTime> ModTime() const { return getModTime(); }

private:
    bool m_initialized = false;
    unsigned m_mode = 0;
    double m_modified = 0;
    double m_size = 0;
};

enum fsFileMode : int { fsForReading, fsForWriting };
enum fsFilePosition : int { fsFromStart, fsFromCurrent, fsFromEnd };
enum fsIOStatus : int { fsIODone, fsIOEnd, fsIOFailed };

// An open file, read and written without a buffer: each call is one of the system. Failures set the last
// error: 6 for a file that is not open, 5 for one that is open for the other direction. For one thread at a
// time.
//
// As long as a file is open for writing here, it is not opened a second time, and one that is open for
// reading is not opened for writing: error 32. That holds between programs that use this class or
// lockFileBuf; others are not kept out.
class KELSTDMT_API fsiFile {
public:
    fsiFile() = default;
    ~fsiFile();  // closes; leaves the last error alone
    fsiFile(const fsiFile &) = delete;
    fsiFile &operator=(const fsiFile &) = delete;

    // For reading an existing file, for writing also a new one; what is in it stays. Closes what was open. A
    // folder is refused with error 5.
    bool Open(const char *path, fsFileMode mode);
    // Up to count bytes: fewer at the end of a file or of what has arrived in a FIFO. fsIOEnd for none.
    fsIOStatus Read(void *buffer, unsigned count, unsigned *got = nullptr);
    // fsIOFailed when not all was written; done tells how much.
    fsIOStatus Write(const void *buffer, unsigned count, unsigned *done = nullptr);
    // Positions and sizes are bytes; a fraction is dropped, what is no number or too large is error 87.
    bool Truncate(double size);                     // the position is the new end
    bool Seek(fsFilePosition from, double offset);  // a position beyond the end is one
    bool Close();
    bool IsOpened() const noexcept { return m_opened; }

private:
    bool m_opened = false;
    bool m_writes = false;  // otherwise reads
    bool m_plain = false;   // neither a device nor a FIFO
    int m_handle = -1;
};

// The names in a folder, without "." and "..", in the order of the file system. Holds one descriptor and one
// block of names at a time. For one thread at a time.
class KELSTDMT_API fsiDir {
public:
    fsiDir();
    ~fsiDir();  // closes; leaves the last error alone
    fsiDir(const fsiDir &) = delete;
    fsiDir &operator=(const fsiDir &) = delete;

    bool Open(const char *directory);  // closes what was open
    // fsIOEnd behind the last name (last error 18). A name that cannot be told is fsIOFailed with the last
    // error 123 and the name's bytes; the next call goes on.
    fsIOStatus Read(xstring &name);
    // `*` is any run of bytes, `?` one byte, all else itself, with case; the mode makes no difference. A null
    // pointer, a marker and an empty pattern give fsIOEnd.
    fsIOStatus ReadNextMatching(const char *pattern, strMatchMode mode, xstring &name);
    bool Close();

private:
    struct listing;
    std::unique_ptr<listing> m_listing;
};

KELSTDMT_API xrchandle<fsNodeInfo> fsGetNodeInfo(const char *path);  // throws an fsXException when it cannot

// For a node that cannot be asked: null, the real nil value, fsNoNode, false. Only an I/O error throws.
KELSTDMT_API tmTime *fshGetModTime(const char *path);  // the caller owns it
KELSTDMT_API double fshGetSize(const char *path);      // bytes
KELSTDMT_API fsNodeType fshGetNodeType(const char *path);
KELSTDMT_API bool fshIsDirectory(const char *path);
KELSTDMT_API bool fshIsFile(const char *path);
KELSTDMT_API bool fshIsSoftLink(const char *path);
KELSTDMT_API bool fshExists(const char *path);

// The names that fsiDir::ReadNextMatching finds; xstrNullStr is every name. Throws fsXInvalidName, with its
// path, for a name that matches and cannot be told.
KELSTDMT_API xrchandle<xstringsequence> fsListDirectory(const char *directory, const char *pattern,
                                                        strMatchMode mode);

// Bytes; the file is made when there is none. What is new is zeros that have their room on the disk; when
// there is not enough, the size stays as it was. Only plain files have a size to set.
KELSTDMT_API void fsSetFileSize(const char *path, double size);
// The number of bytes modulo 65,536, the sum of the bytes modulo 256 and their exclusive or, in 16, 8 and 8
// bits from the top. Of files and disks: FIFOs, terminals and the like are fsXOther.
KELSTDMT_API int fsCalculateCheckSum(const char *path);
// The path of a new, empty file that only its owner may use, in the directory: up to three bytes of the
// prefix, four or eight hexadecimal digits, ".TMP". Any threads and processes get files of their own.
KELSTDMT_API xstring fsMkTmpName(const char *directory, const char *prefix);
// Bytes that this user may still write to the file system of the path, or, where that does not exist yet, of
// the nearest folder above it.
KELSTDMT_API double fsGetAvailableDiskSpace(const char *path);

namespace kel {

// How far a long operation is.
struct file_progress {
    const char *path;  // the file at work, in the callers' form; valid during the call
    double files;      // done
    double bytes;      // done
};

// Called from the operation's own thread, at most some ten times a second and once at the end. What it throws
// ends the operation as a failure would.
using file_observer = std::function<void(const file_progress &)>;

// As fsCalculateCheckSum, whose name its exceptions have.
KELSTDMT_API int calculate_check_sum(const char *path, const file_observer &observer);

}  // namespace kel
