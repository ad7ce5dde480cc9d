// The current folder, and the user's own.
#include "runtime/folders.h"

#include <climits>

#include <unistd.h>
#include <cerrno>

#include <kelstdmt/vumrt.h>

#include "runtime/posix/user_entry.h"

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
    return user_entry(::geteuid(), &passwd::pw_dir);
}

}  // namespace kel::system
