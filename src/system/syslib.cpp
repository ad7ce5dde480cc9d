// The running system. A failure is printed to standard error and the call returns.
#include <kelstdmt/syslib.h>

#include <algorithm>
#include <chrono>
#include <ostream>
#include <thread>

#include <kelstdmt/vumtext.h>

#include "runtime/machine.h"
#include "services/print_exception.h"

using kel::detail::print_exception;

namespace {

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
            return print_exception<sysXCantGetHostName>(function, "Can't get host name");
        case sysErrUserName:
            return print_exception<sysXCantGetUserName>(function, "Can't get user name");
        case sysErrPutEnv:
            return print_exception<sysXCantPutEnv>(function, variable, "Can't set environment variable");
        case sysErrInternal:
            return print_exception<sysXException>(function, "Internal error");
    }
    print_exception<sysXException>(function, "No description");
}

sysXCantPutEnv::sysXCantPutEnv(const char *variable, const char *description, kelXFunc *func)
    : sysXException(description, func), m_var(kel::detail::stored(variable)) {}

void sysXCantPutEnv::Print(std::ostream &out) const {
    sysXException::Print(out);
    out << "\t( Environment variable: \"" << kel::view(m_var) << "\" )\n";
}
