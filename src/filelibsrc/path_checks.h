// The checks that the operations make on their path arguments, and the joins of paths on the way.
//
// Internal paths are normalised: backslashes alone, at most fsMaxPath bytes. `function` is the exported
// function that the exception names. A null pointer and the text markers count as the empty path, and the
// exception has the null string then.
#pragma once

#include <string>
#include <string_view>

#include <kelstdmt/filelib_exceptions.h>
#include <kelstdmt/filelib_paths.h>

namespace kel::detail {

constexpr bool is_separator(char c) noexcept {
    return c == '/' || c == '\\';
}
// Bytes of "X:" at the beginning, where X is an ASCII letter: 2 or 0.
std::size_t drive_length(std::string_view path) noexcept;
// Bytes of the root at the beginning: "\", "X:\", or "X:" of a path that is relative to a drive; may be 0.
std::size_t root_length(std::string_view path) noexcept;

// False, with the last error 206, for a path that is too long.
bool normalise(const char *path, std::string &normalised);

// The common path checks: neither empty nor a drive alone, not remote, not too long. Throws fsXInvalidPath
// with the path as it was given.
std::string checked_path(const char *path, const char *function);
// Without the look for "::".
std::string checked_local_path(const char *path, const char *function);
// Not too long, else fsXInvalidPath.
std::string normalised_path(const char *path, const char *function);

// Directory and name with a separator between, unless the directory is empty, a drive alone or ends in one.
std::string joined(std::string_view directory, std::string_view name);
// Throws fsXInvalidPath with the joined path when that is too long.
std::string joined_path(std::string_view directory, std::string_view name, const char *function);

// Throws what the thread's last error maps to.
[[noreturn]] void throw_last(const char *function, const char *path);
[[noreturn]] inline void throw_last(const char *function, const std::string &path) {
    throw_last(function, path.c_str());
}
[[noreturn]] inline void throw_invalid_path(const char *function, const std::string &path) {
    fsThrow(fsErrInvalidPath, function, path.c_str());
}

}  // namespace kel::detail
