// Files as a whole: their size, new temporary ones, and the room that is left for them.
//
// Only what is stored on a disk has a size (or a checksum, checksum.cpp): a FIFO or a terminal could keep the
// caller waiting for ever, and is refused.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>

#include <kelstdmt/filelib_nodes.h>
#include <kelstdmt/vumrt_stream.h>

#include "filelibsrc/path_checks.h"
#include "filelibsrc/whole_bytes.h"
#include "runtime/nodes.h"

using kel::detail::checked_path;
using kel::detail::throw_last;
using kel::system::file_demand;
using kel::system::open_file;

namespace {

constexpr int file_exists = 80, wrong_argument = 87, not_supported = 50;

// Size -------------------------------------------------------------------------------------------

bool set_size(const std::string &host_path, long long size) {
    if (size < 0) {
        Error_SetLast(wrong_argument);
        return false;
    }
    open_file opened = kel::system::open_to_write(host_path.c_str(), file_demand::stored);
    if (!opened.file) return false;
    if (!opened.is_plain()) {  // a disk would be written over
        Error_SetLast(not_supported);
        return false;
    }
    const int file = opened.file.get();
    if (!kel::system::take_share(file, true)) return false;
    const bool is_set = opened.told.size < size ? kel::system::grow_file(file, opened.told.size, size)
                                                : File_Truncate(file, size);
    kel::system::give_back_share(file);
    return is_set && kel::system::close_file(std::move(opened.file));
}

// Temporary names --------------------------------------------------------------------------------

constexpr std::size_t prefix_bytes = 3;
// Beyond the first few attempts the folder seems to be full of names with this prefix.
constexpr int short_attempts = 20, attempts = 100;

// The prefix, four hexadecimal digits or eight, and ".TMP".
std::string temporary_name(std::string_view prefix, int attempt) {
    const std::uint64_t chance = btkRandomSeed();
    const int digits = attempt < short_attempts ? 4 : 8;
    char number[32];
    std::snprintf(number, sizeof number, "%0*llX.TMP", digits,
                  static_cast<unsigned long long>(chance >> (64 - 4 * digits)));
    return std::string(prefix) += number;
}

// Room -------------------------------------------------------------------------------------------

// The path itself or the nearest folder above that is there, but not beyond the drive.
std::string nearest_node(std::string path) {
    const std::size_t root = kel::detail::root_length(path);
    kel::system::node told;
    while (path.size() > root && !kel::system::query(btkHostPath(path.c_str()).c_str(), told)) {
        const std::size_t separator = path.find_last_of('\\');
        path.resize(separator == path.npos ? root : std::max(separator, root));
    }
    return path.empty() ? "." : path;
}

}  // namespace

void fsSetFileSize(const char *path, double size) {
    constexpr const char *function = "fsSetFileSize";
    const std::string checked = checked_path(path, function);
    const std::string host_path = btkHostPath(checked.c_str());
    kel::system::node told;
    const bool is_there = kel::system::query(host_path.c_str(), told);
    const bool is_folder = (told.mode & kel::system::kind_bits) == kel::system::folder_kind;
    if (is_there && !is_folder && static_cast<double>(told.size) == size) return;
    long long bytes;
    if (!kel::detail::whole_bytes(size, bytes) || !set_size(host_path, bytes)) throw_last(function, checked);
}

xstring fsMkTmpName(const char *directory, const char *prefix) {
    constexpr const char *function = "fsMkTmpName";
    const std::string_view start = kel::detail::any_view(prefix).substr(0, prefix_bytes);
    const std::string checked = kel::detail::normalised_path(directory, function);
    if (checked.empty()) fsThrow(fsErrInvalidPath, function, directory);
    if (start.find_first_of("/\\") != start.npos) fsThrow(fsErrInvalidName, function, checked.c_str());
    for (int attempt = 0; attempt < attempts; ++attempt) {
        const std::string path = kel::detail::joined(checked, temporary_name(start, attempt));
        if (path.size() > fsMaxPath) kel::detail::throw_invalid_path(function, checked);
        kel::system::owned_descriptor file = kel::system::make_file(btkHostPath(path.c_str()).c_str());
        if (file) return path.c_str();
        if (Error_GetLast() != file_exists) break;
    }
    throw_last(function, checked);
}

double fsGetAvailableDiskSpace(const char *path) {
    constexpr const char *function = "fsGetAvailableDiskSpace";
    const std::string checked = checked_path(path, function);
    const double bytes = kel::system::available_bytes(btkHostPath(nearest_node(checked).c_str()).c_str());
    if (bytes < 0) throw_last(function, checked);
    return bytes;
}
