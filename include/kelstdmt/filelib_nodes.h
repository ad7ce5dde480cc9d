// Single nodes: what they are, what is in them, and the names in a folder.
#pragma once

#include <cstddef>
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

// A node as it was when it was asked. Links are followed, so none is ever met.
KEL_DECLARE_STRUCT(fsNodeInfo)
class KELSTDMT_API fsNodeInfo : public xobject {
    KEL_CLASS(fsNodeInfo, xobject)
public:
    fsNodeInfo() = default;
    fsNodeInfo(const fsNodeInfo &from);

    bool Initialize(const char *path);  // false, with the last error set, when it cannot be asked
    fsNodeType getType() const;
    tmTime *getModTime() const;  // a new one that the caller owns
    double getSize() const;      // bytes
    // The time of modification as a part of this object, which stays its owner: what the descriptor reads.
    xauto<tmTime> &ModTime() { return m_modified; }

private:
    bool m_initialized = false;
    unsigned m_mode = 0;
    xauto<tmTime> m_modified{0L};
    double m_size = 0;
};

enum fsFileMode : int { fsForReading, fsForWriting };
enum fsFilePosition : int { fsFromStart, fsFromCurrent, fsFromEnd };
enum fsIOStatus : int { fsIODone, fsIOEnd, fsIOFailed };

// An open file, read and written without a buffer. Failures set the last error.
class KELSTDMT_API fsiFile {
public:
    fsiFile() = default;
    ~fsiFile();  // closes; leaves the last error alone
    fsiFile(const fsiFile &) = delete;
    fsiFile &operator=(const fsiFile &) = delete;

    // For reading an existing file, for writing also a new one.
    bool Open(const char *path, fsFileMode mode);
    fsIOStatus Read(void *buffer, unsigned count, unsigned *got = nullptr);
    fsIOStatus Write(const void *buffer, unsigned count, unsigned *done = nullptr);
    bool Truncate(double size);
    bool Seek(fsFilePosition from, double offset);
    bool Close();
    bool IsOpened() const noexcept { return m_opened; }

private:
    bool m_opened = false;
    bool m_plain = false;  // neither a device nor a FIFO
    int m_handle = -1;
};

// The names in a folder, without "." and "..", in the order of the file system. Holds one descriptor and one
// block of names at a time.
class KELSTDMT_API fsiDir {
public:
    fsiDir();
    ~fsiDir();  // closes; leaves the last error alone
    fsiDir(const fsiDir &) = delete;
    fsiDir &operator=(const fsiDir &) = delete;

    bool Open(const char *directory);
    // fsIOEnd behind the last name (last error 18). A name that cannot be told is fsIOFailed with the last
    // error 123 and the name's bytes; the next call goes on.
    fsIOStatus Read(xstring &name);
    // `*` is any run of bytes, `?` one byte; the mode makes no difference.
    fsIOStatus ReadNextMatching(const char *pattern, strMatchMode mode, xstring &name);
    bool Close();

private:
    struct listing;
    std::unique_ptr<listing> m_listing;
};

KELSTDMT_API xrchandle<fsNodeInfo> fsGetNodeInfo(const char *path);

// For a node that cannot be asked: null, the real nil value, fsNoNode, false. Only an I/O error throws.
KELSTDMT_API tmTime *fshGetModTime(const char *path);  // the caller owns it
KELSTDMT_API double fshGetSize(const char *path);      // bytes
KELSTDMT_API fsNodeType fshGetNodeType(const char *path);
KELSTDMT_API bool fshIsDirectory(const char *path);
KELSTDMT_API bool fshIsFile(const char *path);
KELSTDMT_API bool fshIsSoftLink(const char *path);
KELSTDMT_API bool fshExists(const char *path);

KELSTDMT_API xrchandle<xstringsequence> fsListDirectory(const char *directory, const char *pattern,
                                                        strMatchMode mode);

KELSTDMT_API void fsSetFileSize(const char *path, double size);  // bytes; what is new is zeros on the disk
KELSTDMT_API int fsCalculateCheckSum(const char *path);
KELSTDMT_API xstring fsMkTmpName(const char *directory, const char *prefix);  // makes the file, too
KELSTDMT_API double fsGetAvailableDiskSpace(const char *path);                // bytes

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

// As fsCalculateCheckSum.
KELSTDMT_API int calculate_check_sum(const char *path, const file_observer &observer);

}  // namespace kel
