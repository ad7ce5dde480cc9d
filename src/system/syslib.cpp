// The running system. A failure is printed to standard error and the call returns.
#include <kelstdmt/syslib.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <thread>

#include <kelstdmt/vumtext.h>

#include "runtime/machine.h"

namespace {

template <class Exception, class... Variable>
void print(const char *message, const char *function, Variable... variable) {
    const xrchandle<kelXFunc> func(kel::construct<kelXFunc>(function));
    const xauto<Exception> exception(variable..., message, func.get());
    exception.Print(std::cerr);
    std::cerr.flush();
}

xstring name_or_report(bool (*ask)(std::string &), sysErrorCode code, const char *function) {
    std::string name;
    if (ask(name)) return xstring(name.c_str());
    sysHandleKnownError(code, function, xstrNullStr);
    return xstring();
}

}  // namespace

xstring sysGetCurHostName() {
    return name_or_report(kel::system::host_name, sysErrHostName, "sysGetCurHostName");
}
xstring sysGetCurUserName() {
    return name_or_report(kel::system::user_name, sysErrUserName, "sysGetCurUserName");
}
bool kel::is_superuser() noexcept {
    return system::is_superuser();
}
xstring sysGetPlatform() {
    return xstring(btkMachineType());
}
xstring sysGetOSType() {
    return xstring(btkOSType());
}

xstring sysGetEnv(const char *name) {
    dsString value;
    return Getenv(name, value) ? xstring(value.Str()) : xstring();
}
void sysPutEnv(const char *name, const char *value) {
    if (!Putenv(name, value)) sysHandleKnownError(sysErrPutEnv, "sysPutEnv", name);
}

int sysOSCall(const char *command_line) {
    return System(command_line);
}
void sysSleep(int seconds) {
    std::this_thread::sleep_for(std::chrono::seconds(std::max(seconds, 0)));
}

void sysHandleKnownError(sysErrorCode code, const char *function, const char *variable) {
    switch (code) {
        case sysErrHostName:
            return print<sysXCantGetHostName>("Can't get host name", function);
        case sysErrUserName:
            return print<sysXCantGetUserName>("Can't get user name", function);
        case sysErrPutEnv:
            return print<sysXCantPutEnv>("Can't set environment variable", function, variable);
        case sysErrInternal:
            return print<sysXException>("Internal error", function);
    }
    print<sysXException>("No description", function);
}

sysXCantPutEnv::sysXCantPutEnv(const char *variable, const char *description, kelXFunc *func)
    : sysXException(description, func), m_var(kel::detail::stored(variable)) {}

void sysXCantPutEnv::Print(std::ostream &out) const {
    sysXException::Print(out);
    out << "\t( Environment variable: \"" << (kel::is_text(m_var) ? m_var.Str() : "") << "\" )\n";
}
