// The folders that the process stands in: home and current.
#include <cstdlib>

#include "filelibsrc/path_checks.h"
#include "runtime/folders.h"

#include <kelstdmt/vumrt.h>

namespace detail = kel::detail;

namespace {

constexpr std::size_t longest_drive = 3, longest_home = 255;

// Where callers' own variables are not set: what the host calls home.
std::string home_of_host() {
    const char *home = std::getenv("HOME");
    std::string path = home && home[0] == '/' ? home : kel::system::home_folder();
    return path.empty() ? path : btkCallerPath(path.c_str());
}

std::string home_of_caller(std::string_view drive, std::string_view path) {
    if (drive.empty() || drive.size() > longest_drive || path.empty() || path.size() > longest_home)
        return {};
    return std::string(drive).append(path);
}

}  // namespace

xstring fsGetHomeDir() {
    const char *drive = std::getenv("HOMEDRIVE"), *path = std::getenv("HOMEPATH");
    std::string home =
        drive || path ? home_of_caller(detail::any_view(drive), detail::any_view(path)) : home_of_host();
    std::string normalised;
    if (home.empty() || !detail::normalise(home.c_str(), normalised))
        fsThrow(fsErrOther, "fsGetHomeDir", xstrNullStr);
    return normalised.c_str();
}

xstring fsGetCurDir() {
    constexpr const char *function = "fsGetCurDir";
    std::string host = kel::system::current_folder();
    if (host.empty()) detail::throw_last(function, xstrNullStr);
    if (host.find('\\') != host.npos) fsThrow(fsErrInvalidName, function, xstrNullStr);
    std::string path;
    if (!detail::normalise(btkCallerPath(host.c_str()).c_str(), path))
        detail::throw_last(function, xstrNullStr);
    return path.c_str();
}

void fsChangeDir(const char *path) {
    constexpr const char *function = "fsChangeDir";
    std::string folder = detail::checked_local_path(path, function);
    if (!kel::system::change_folder(btkHostPath(folder.c_str()))) detail::throw_last(function, folder);
}
