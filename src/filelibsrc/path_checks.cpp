// The checks on path arguments, and the joins.
#include "filelibsrc/path_checks.h"

#include <algorithm>

#include <kelstdmt/vumrt.h>

namespace kel::detail {

namespace {

constexpr int name_too_long = 206;

std::string checked(const char *path, const char *function, bool may_be_remote) {
    std::string_view text = any_view(path);
    bool names_nothing = text.empty() || text.size() == drive_length(text);
    bool is_remote = !may_be_remote && text.find("::") != text.npos;
    if (names_nothing || is_remote) fsThrow(fsErrInvalidPath, function, path);
    return normalised_path(path, function);
}

}  // namespace

std::size_t drive_length(std::string_view path) noexcept {
    if (path.size() < 2 || path[1] != ':') return 0;
    char lower = static_cast<char>(path[0] | 0x20);
    return lower >= 'a' && lower <= 'z' ? 2 : 0;
}

std::size_t root_length(std::string_view path) noexcept {
    std::size_t drive = drive_length(path);
    return drive < path.size() && is_separator(path[drive]) ? drive + 1 : drive;
}

bool normalise(const char *path, std::string &normalised) {
    std::string_view text = any_view(path);
    if (text.size() > fsMaxPath) {
        Error_SetLast(name_too_long);
        return false;
    }
    normalised = text;
    std::replace(normalised.begin(), normalised.end(), '/', '\\');
    return true;
}

std::string checked_path(const char *path, const char *function) {
    return checked(path, function, false);
}

std::string checked_local_path(const char *path, const char *function) {
    return checked(path, function, true);
}

std::string normalised_path(const char *path, const char *function) {
    std::string result;
    if (!normalise(path, result)) fsThrow(fsErrInvalidPath, function, path);
    return result;
}

std::string joined(std::string_view directory, std::string_view name) {
    std::string result;
    result.reserve(directory.size() + 1 + name.size());
    result = directory;
    bool is_open = directory.size() == drive_length(directory) || is_separator(directory.back());
    if (!is_open) result += '\\';
    return result += name;
}

std::string joined_path(std::string_view directory, std::string_view name, const char *function) {
    std::string result = joined(directory, name);
    if (result.size() > fsMaxPath) throw_invalid_path(function, result);
    return result;
}

void throw_last(const char *function, const char *path) {
    fsThrow(fsErrorFromLast(Error_GetLast()), function, path);
}

}  // namespace kel::detail
