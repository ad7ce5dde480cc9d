// The running system: its names, the environment, a command, a sleep. Failures are printed to standard error,
// not thrown.
#pragma once

#include <iosfwd>

#include <kelstdmt/declare.h>
#include <kelstdmt/export.h>
#include <kelstdmt/xexception.h>
#include <kelstdmt/xstring.h>

enum sysErrorCode : int { sysErrHostName, sysErrUserName, sysErrPutEnv, sysErrInternal };

KELSTDMT_API xstring sysGetCurHostName();  // the null string, reported, on failure
KELSTDMT_API xstring sysGetCurUserName();  // the same
KELSTDMT_API xstring sysGetPlatform();     // such as "x86_64"
KELSTDMT_API xstring sysGetOSType();       // such as "Linux"

// The null string when the variable is not set. Neither while another thread changes the environment.
KELSTDMT_API xstring sysGetEnv(const char *name);
KELSTDMT_API void sysPutEnv(const char *name, const char *value);

// Runs the command line with the system's command interpreter, waits for it and answers its exit code.
KELSTDMT_API int sysOSCall(const char *command_line);
KELSTDMT_API void sysSleep(int seconds);

// Prints the exception of the code to standard error and returns. variable serves sysErrPutEnv only.
KELSTDMT_API void sysHandleKnownError(sysErrorCode code, const char *function, const char *variable);

KEL_DECLARE_STRUCT(sysXException)
class KELSTDMT_API sysXException : public kelXExternFunc {
    KEL_CLASS(sysXException, kelXExternFunc)
public:
    using kelXExternFunc::kelXExternFunc;
};

KEL_DECLARE_STRUCT(sysXCantGetHostName)
class KELSTDMT_API sysXCantGetHostName : public sysXException {
    KEL_CLASS(sysXCantGetHostName, sysXException)
public:
    using sysXException::sysXException;
};

KEL_DECLARE_STRUCT(sysXCantGetUserName)
class KELSTDMT_API sysXCantGetUserName : public sysXException {
    KEL_CLASS(sysXCantGetUserName, sysXException)
public:
    using sysXException::sysXException;
};

KEL_DECLARE_STRUCT(sysXCantPutEnv)
class KELSTDMT_API sysXCantPutEnv : public sysXException {
    KEL_CLASS(sysXCantPutEnv, sysXException)
public:
    sysXCantPutEnv(const char *variable, const char *description, kelXFunc *func);
    xstring getVar() const { return m_var; }
    void Print(std::ostream &out) const override;

private:
    xstring m_var;
};
