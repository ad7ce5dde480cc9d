// What the file library throws: one class for each error code, all with a path and the function called.
#pragma once

#include <iosfwd>

#include <kelstdmt/declare.h>
#include <kelstdmt/export.h>
#include <kelstdmt/xexception.h>

enum fsErrorCode : int {
    fsErrSuccess,
    fsErrIOError,
    fsErrQuotaExhausted,
    fsErrDiskFull,
    fsErrInvalidName,
    fsErrInvalidPath,
    fsErrDoesNotExist,
    fsErrFileExists,
    fsErrLinksNotSupported,
    fsErrNoPermission,
    fsErrSignal,
    fsErrOther
};

// The code for a last error (Error_GetLast); what has no code of its own is fsErrOther.
KELSTDMT_API fsErrorCode fsErrorFromLast(int last_error) noexcept;
// "Success" for 0, "No description" for an unknown code. Lives as long as the process.
KELSTDMT_API const char *fsErrorDescription(int code) noexcept;
// Throws the exception of the code; path may be xstrNullStr for none. fsErrSuccess and unknown codes throw
// fsXOther.
[[noreturn]] KELSTDMT_API void fsThrow(fsErrorCode code, const char *function, const char *path);

KEL_DECLARE_STRUCT(fsXException)
class KELSTDMT_API fsXException : public kelXExternFunc {
    KEL_CLASS(fsXException, kelXExternFunc)
public:
    // A counted reference is taken on func.
    fsXException(const char *path, const char *description, kelXFunc *func);
    static xrchandle<fsXException> Create(const char *path, const char *description, kelXFunc *func);

    xstring getPath() const { return m_path; }  // the null string for none
    // Three lines: description, function and path; two without a path.
    void Print(std::ostream &out) const override;

private:
    xstring m_path;
};

#define FS_EXCEPTION(T)                                                                            \
    KEL_DECLARE_STRUCT(T)                                                                          \
    class KELSTDMT_API T : public fsXException {                                                   \
        KEL_CLASS(T, fsXException)                                                                 \
    public:                                                                                        \
        using fsXException::fsXException;                                                          \
        static xrchandle<T> Create(const char *path, const char *description, kelXFunc *func);     \
        [[noreturn]] static void Throw(const char *path, const char *description, kelXFunc *func); \
    };

FS_EXCEPTION(fsXIOError)
FS_EXCEPTION(fsXQuotaExhausted)
FS_EXCEPTION(fsXDiskFull)
FS_EXCEPTION(fsXInvalidName)
FS_EXCEPTION(fsXInvalidPath)
FS_EXCEPTION(fsXDoesNotExist)
FS_EXCEPTION(fsXFileExists)
FS_EXCEPTION(fsXLinksNotSupported)
FS_EXCEPTION(fsXNoPermission)
FS_EXCEPTION(fsXSignal)
FS_EXCEPTION(fsXOther)

#undef FS_EXCEPTION
