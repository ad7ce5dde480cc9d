// Single nodes through the system's calls, with 64-bit sizes everywhere.
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#define _FILE_OFFSET_BITS 64

#include "runtime/nodes.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include <kelstdmt/vumrt_stream.h>

#include "runtime/posix/descriptor.h"
#include "runtime/posix/file_lock.h"
#include "runtime/posix/through_signals.h"
#include "runtime/posix/uncancelled.h"

namespace kel::system {

static_assert(sizeof(off_t) == 8);
static_assert(S_IFMT == kind_bits && S_IFDIR == folder_kind && S_IFREG == file_kind && S_IFLNK == link_kind);

namespace {

constexpr mode_t everybody = 0666, owner_alone = 0600;
constexpr std::size_t largest_read = std::size_t{1} << 30;

bool done(bool good) noexcept {
    if (!good) Error_SetLastFromSystem(errno);
    return good;
}

void fill(const struct stat &from, node &told) noexcept {
    told.mode = from.st_mode;
    told.size = from.st_size;
    told.stored = static_cast<long long>(from.st_blocks) * 512;
    told.modified = from.st_mtime;
}

open_file open_node(const char *host_path, int flags, file_demand demand) {
    // A FIFO without a peer would keep the open waiting.
    if (demand == file_demand::stored) flags |= O_NONBLOCK;
    open_file opened;
    opened.file.reset(
        through_signals([&] { return ::open(host_path, flags | O_CLOEXEC | O_NOCTTY, everybody); }));
    struct stat found {};
    if (!opened.file || ::fstat(opened.file.get(), &found) != 0) {
        const bool has_no_peer = errno == ENXIO && demand == file_demand::stored;
        Error_SetLastFromSystem(has_no_peer ? ENOTSUP : errno, host_path);
        return {};
    }
    const bool is_stored = S_ISREG(found.st_mode) || S_ISBLK(found.st_mode);
    if (!is_stored && (demand == file_demand::stored || S_ISDIR(found.st_mode))) {
        Error_SetLastFromSystem(S_ISDIR(found.st_mode) ? EISDIR : ENOTSUP);
        return {};
    }
    fill(found, opened.told);
    return opened;
}

bool write_zeros(int file, long long from, long long to) {
    static constexpr char zeros[65536] = {};
    while (from < to) {
        const auto part = static_cast<std::size_t>(std::min<long long>(sizeof zeros, to - from));
        const ssize_t written = through_signals([&] { return ::pwrite(file, zeros, part, from); });
        if (written <= 0) {
            if (written == 0) errno = ENOSPC;
            return false;
        }
        from += written;
    }
    return true;
}

// The system would end the process with a signal.
bool is_beyond_limit(long long size) noexcept {
    struct rlimit limit {};
    return ::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
           static_cast<unsigned long long>(size) > limit.rlim_cur;
}

}  // namespace

bool query(const char *host_path, node &told) noexcept {
    struct stat found {};
    if (!done(::stat(host_path, &found) == 0)) return false;
    fill(found, told);
    return true;
}

bool query(int file, node &told) noexcept {
    struct stat found {};
    if (!done(::fstat(file, &found) == 0)) return false;
    fill(found, told);
    return true;
}

double available_bytes(const char *host_path) noexcept {
    struct statvfs told {};
    if (!done(through_signals([&] { return ::statvfs(host_path, &told); }) == 0)) return -1;
    return static_cast<double>(told.f_bavail) * static_cast<double>(told.f_frsize);
}

open_file open_to_read(const char *host_path, file_demand demand) {
    open_file opened = open_node(host_path, O_RDONLY, demand);
    if (opened.file) ::posix_fadvise(opened.file.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    return opened;
}

open_file open_to_write(const char *host_path, file_demand demand) {
    return open_node(host_path, O_WRONLY | O_CREAT, demand);
}

owned_descriptor make_file(const char *host_path) {
    constexpr int flags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    owned_descriptor file(through_signals([&] { return ::open(host_path, flags, owner_alone); }));
    if (!file) Error_SetLastFromSystem(errno, host_path);
    return file;
}

bool close_file(owned_descriptor file) noexcept {
    const uncancelled scope;
    return done(::close(file.release()) == 0 || errno == EINTR);
}

bool take_share(int file, bool to_write) noexcept {
    if (set_lock(file, to_write ? F_WRLCK : F_RDLCK) || (errno != EAGAIN && errno != EACCES)) return true;
    Error_SetLastFromSystem(EBUSY);
    return false;
}

void give_back_share(int file) noexcept {
    const int before = errno;
    set_lock(file, F_UNLCK);
    errno = before;
}

long long read_bytes(int file, void *to, std::size_t count) {
    std::size_t got = 0;
    for (;;) {
        const std::size_t part = std::min(count - got, largest_read);
        const std::ptrdiff_t some = read_some(file, static_cast<char *>(to) + got, part);
        if (some < 0 && got == 0) return -1;
        if (some > 0) got += static_cast<std::size_t>(some);
        if (some < static_cast<std::ptrdiff_t>(largest_read) || got == count)
            return static_cast<long long>(got);
    }
}

std::size_t write_bytes(int file, const void *from, std::size_t count) {
    std::size_t written = 0;
    while (written < count) {
        const char *rest = static_cast<const char *>(from) + written;
        const ssize_t some = through_signals([&] { return ::write(file, rest, count - written); });
        if (some <= 0) {
            if (some == 0) errno = ENOSPC;
            Error_SetLastFromSystem(errno);
            break;
        }
        written += static_cast<std::size_t>(some);
    }
    return written;
}

std::size_t write_stream(int file, const void *from, std::size_t count) {
    return write_all(file, static_cast<const char *>(from), count);
}

bool seek(int file, seek_from from, long long offset) noexcept {
    constexpr int origins[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    return done(::lseek(file, offset, origins[static_cast<int>(from)]) >= 0);
}

bool next_data(int file, long long position, stretch &found) noexcept {
    found.from = ::lseek(file, position, SEEK_DATA);
    if (found.from >= 0) {
        found.to = ::lseek(file, found.from, SEEK_HOLE);
        // Cut off in the meantime.
        if (found.to < 0 && errno == ENXIO) found.to = found.from;
        return done(found.to >= 0);
    }
    if (!done(errno == ENXIO)) return false;
    node now;
    if (!query(file, now)) return false;
    found.from = found.to = std::max(position, now.size);
    return true;
}

bool grow_file(int file, long long from, long long to) {
    if (is_beyond_limit(to)) {
        errno = EFBIG;
        return done(false);
    }
    bool good = through_signals([&] { return ::fallocate(file, 0, from, to - from); }) == 0;
    if (!good && (errno == EOPNOTSUPP || errno == ENOSYS)) good = write_zeros(file, from, to);
    if (good) return true;
    const int reason = errno;
    File_Truncate(file, from);
    Error_SetLastFromSystem(reason);
    return false;
}

}  // namespace kel::system
