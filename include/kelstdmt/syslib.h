// The running system: its names, the environment, a command, a sleep. Failures are printed to standard error,
// not thrown.
#pragma once

#include <iosfwd>

#include <kelstdmt/declare.h>
#include <kelstdmt/export.h>
#include <kelstdmt/xexception.h>
#include <kelstdmt/xstring.h>

enum sysErrorCode : int { sysErrHostName, sysErrUserName, sysErrPutEnv, sysErrInternal };

// The name of this machine in its network, and of the user whose rights the process has. The null string,
// reported, when the system has none.
KELSTDMT_API xstring sysGetCurHostName();
KELSTDMT_API xstring sysGetCurUserName();
KELSTDMT_API xstring sysGetPlatform();  // such as "x86_64"
KELSTDMT_API xstring sysGetOSType();    // such as "Linux"

// The null string when the variable is not set. Neither while another thread changes the environment.
KELSTDMT_API xstring sysGetEnv(const char *name);
// A null value removes the variable. Reported when the name is null, empty or holds '='.
KELSTDMT_API void sysPutEnv(const char *name, const char *value);

// Runs the command line as System (vumrt.h) does, waits for it and answers its exit code; -1 when it cannot
// be run.
KELSTDMT_API int sysOSCall(const char *command_line);
// The whole time, whatever signals arrive; at once for a negative number.
KELSTDMT_API void sysSleep(int seconds);

namespace kel {

// Whether this process has, or can take on again, all rights on the system: that of user 0.
KELSTDMT_API bool is_superuser() noexcept;

}  // namespace kel

// Prints the exception of the code to standard error and returns. variable serves sysErrPutEnv only.
KELSTDMT_API void sysHandleKnownError(sysErrorCode code, const char *function, const char *variable);

// Create gives an object that the caller deletes; one that is thrown is deleted by who catches it, with
// xdelete.
KEL_DECLARE_STRUCT(sysXException)
class KELSTDMT_API sysXException : public kelXExternFunc {
    KEL_CLASS(sysXException, kelXExternFunc)
public:
    using kelXExternFunc::kelXExternFunc;
    static sysXException *Create(const char *description, kelXFunc *func) {
        return kel::construct<sysXException>(description, func);
    }
    [[noreturn]] static void Throw(const char *description, kelXFunc *func) {
        xthrow(Create(description, func));
    }
};

KEL_DECLARE_STRUCT(sysXCantGetHostName)
class KELSTDMT_API sysXCantGetHostName : public sysXException {
    KEL_CLASS(sysXCantGetHostName, sysXException)
public:
    using sysXException::sysXException;
    static sysXCantGetHostName *Create(const char *description, kelXFunc *func) {
        return kel::construct<sysXCantGetHostName>(description, func);
    }
    [[noreturn]] static void Throw(const char *description, kelXFunc *func) {
        xthrow(Create(description, func));
    }
};

KEL_DECLARE_STRUCT(sysXCantGetUserName)
class KELSTDMT_API sysXCantGetUserName : public sysXException {
    KEL_CLASS(sysXCantGetUserName, sysXException)
public:
    using sysXException::sysXException;
    static sysXCantGetUserName *Create(const char *description, kelXFunc *func) {
        return kel::construct<sysXCantGetUserName>(description, func);
    }
    [[noreturn]] static void Throw(const char *description, kelXFunc *func) {
        xthrow(Create(description, func));
    }
};

KEL_DECLARE_STRUCT(sysXCantPutEnv)
class KELSTDMT_API sysXCantPutEnv : public sysXException {
    KEL_CLASS(sysXCantPutEnv, sysXException)
public:
    sysXCantPutEnv(const char *variable, const char *description, kelXFunc *func);
    static sysXCantPutEnv *Create(const char *variable, const char *description, kelXFunc *func) {
        return kel::construct<sysXCantPutEnv>(variable, description, func);
    }
    [[noreturn]] static void Throw(const char *variable, const char *description, kelXFunc *func) {
        xthrow(Create(variable, description, func));
    }
    xstring getVar() const { return m_var; }
    void Print(std::ostream &out) const override;

private:
    xstring m_var;
};
