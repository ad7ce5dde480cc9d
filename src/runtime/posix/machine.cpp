#include "runtime/machine.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <utility>

#include "runtime/posix/user_entry.h"

bool kel::system::host_name(std::string &name) {
    utsname told{};
    if (::uname(&told) != 0 || !told.nodename[0]) return false;
    name = told.nodename;
    return true;
}

bool kel::system::is_superuser() noexcept {
    return ::geteuid() == 0 || ::getuid() == 0;
}

bool kel::system::user_name(std::string &name) {
    std::string told = user_entry(::geteuid(), &passwd::pw_name);
    if (told.empty()) return false;
    name = std::move(told);
    return true;
}
