#include "runtime/machine.h"

#include <pwd.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

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
    constexpr std::size_t most = 1 << 20;
    passwd entry{}, *found = nullptr;
    for (std::vector<char> texts(1024); texts.size() <= most; texts.resize(texts.size() * 2)) {
        const int error = ::getpwuid_r(::geteuid(), &entry, texts.data(), texts.size(), &found);
        if (error == ERANGE || error == EINTR) continue;
        if (!found || !*found->pw_name) return false;
        name = found->pw_name;
        return true;
    }
    return false;
}
