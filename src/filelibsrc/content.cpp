// What is in a file as a whole: its size, its checksum, new temporary files, and the room that is left.
//
// Only what is stored on a disk has a size or a checksum: a FIFO or a terminal could keep the caller waiting
// for ever, and is refused.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <string>

#include <kelstdmt/filelib_nodes.h>
#include <kelstdmt/vumrt_stream.h>

#include "filelibsrc/byte_sums.h"
#include "filelibsrc/path_checks.h"
#include "filelibsrc/progress.h"
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

// Checksum ---------------------------------------------------------------------------------------

// Within the second cache of most processors, so that what the system has copied there is still there when it
// is looked at.
struct alignas(64) block {
    unsigned char bytes[256 * 1024];
};

class checksum {
public:
    checksum(const std::string &path, const kel::file_observer *observer)
        : m_path(path), m_progress(observer), m_block(std::make_unique_for_overwrite<block>()) {}

    int of_file() {
        open_file opened =
            kel::system::open_to_read(btkHostPath(m_path.c_str()).c_str(), file_demand::stored);
        if (!opened.file) fail();
        const int file = opened.file.get();
        if (opened.is_plain() && opened.told.stored < opened.told.size) add_stretches(file);
        add(file, std::numeric_limits<long long>::max());
        if (!kel::system::close_file(std::move(opened.file))) fail();
        m_progress.finish(m_path.c_str(), 1, m_sums.bytes());
        return static_cast<int>(m_sums.value());
    }

private:
    // Over the holes, which only count. Ends where the file does, or where the host cannot tell what follows.
    void add_stretches(int file) {
        kel::system::stretch data{};
        long long at = 0, got = 0;
        while (kel::system::next_data(file, at, data)) {
            m_sums.skip(data.from - at);
            if (!kel::system::seek(file, kel::system::seek_from::start, data.from)) fail();
            got = add(file, data.to - data.from);
            at = data.from + got;
            if (got == 0) break;
        }
        if (!kel::system::seek(file, kel::system::seek_from::start, at)) fail();
    }

    // Answers how many bytes there were before the end of the file.
    long long add(int file, long long limit) {
        long long done = 0;
        while (done < limit) {
            const auto part = static_cast<std::size_t>(std::min<long long>(sizeof(block), limit - done));
            const long long got = kel::system::read_bytes(file, m_block->bytes, part);
            if (got < 0) fail();
            if (got == 0) break;
            m_sums.add(m_block->bytes, static_cast<std::size_t>(got));
            m_progress.tell(m_path.c_str(), 0, m_sums.bytes());
            done += got;
        }
        return done;
    }

    [[noreturn]] void fail() const { throw_last("fsCalculateCheckSum", m_path); }

    const std::string &m_path;
    kel::detail::progress m_progress;
    std::unique_ptr<block> m_block;
    kel::detail::byte_sums m_sums;
};

int checksum_of(const char *path, const kel::file_observer *observer) {
    const std::string checked = checked_path(path, "fsCalculateCheckSum");
    return checksum(checked, observer).of_file();
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

int fsCalculateCheckSum(const char *path) {
    return checksum_of(path, nullptr);
}

int kel::calculate_check_sum(const char *path, const file_observer &observer) {
    return checksum_of(path, &observer);
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
