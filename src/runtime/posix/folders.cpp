// The current folder, and the user's own.
#include "runtime/folders.h"

#include <climits>
#include <vector>

#include <pwd.h>
#include <unistd.h>
#include <cerrno>

#include <kelstdmt/vumrt.h>

namespace kel::system {

std::string current_folder() {
    char path[PATH_MAX];
    if (!::getcwd(path, sizeof path)) {
        Error_SetLastFromSystem(errno == ERANGE ? ENAMETOOLONG : errno);
        return {};
    }
    // A folder outside the process's root is told by a text that is no path.
    if (path[0] == '/') return path;
    Error_SetLastFromSystem(ENOENT);
    return {};
}

bool change_folder(const std::string &host_path) {
    if (::chdir(host_path.c_str()) == 0) return true;
    Error_SetLastFromSystem(errno, host_path.c_str());
    return false;
}

std::string home_folder() {
    std::vector<char> texts(1024);
    for (;;) {
        passwd entry{}, *found = nullptr;
        int error = ::getpwuid_r(::geteuid(), &entry, texts.data(), texts.size(), &found);
        if (error == ERANGE && texts.size() < 1 << 20)
            texts.resize(2 * texts.size());
        else if (error != EINTR)
            return found && entry.pw_dir ? entry.pw_dir : std::string();
    }
}

}  // namespace kel::system
