// Copies inside the kernel where it can: shared blocks or its own pages first, then a memory of our own.
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#define _FILE_OFFSET_BITS 64

#include "runtime/copy.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <utility>

#include <kelstdmt/vumrt.h>
#include <kelstdmt/vumrt_stream.h>

#include "runtime/posix/tree_outcome.h"
#include "runtime/posix/uncancelled.h"

namespace kel::system {

namespace {

constexpr std::size_t memory_size = 128 * 1024;
constexpr long long largest_step = 8 << 20;  // between two calls of a watcher
constexpr mode_t maker_alone = 0600;

bool is_closed_way(int error) noexcept {
    return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP || error == EPERM ||
           error == EBADF || error == ETXTBSY;
}

}  // namespace

outcome open_source(int folder, const char *name, links way, owned_descriptor &opened, status &found) {
    const int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | (way == links::seen ? O_NOFOLLOW : 0);
    opened.reset(through_signals([&] { return ::openat(folder, name, flags); }));
    if (!opened) {
        if (errno == ENXIO) errno = ENOTSUP;  // a socket
        return told(false);
    }
    if (const outcome result = look(opened.get(), found); result != outcome::done) return result;
    if (found.kind() == file_kind) return outcome::done;
    errno = found.kind() == folder_kind ? EISDIR : ENOTSUP;
    return told(false);
}

outcome make_file(int folder, const char *name, owned_descriptor &made) {
    constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    made.reset(through_signals([&] { return ::openat(folder, name, flags, maker_alone); }));
    return told(static_cast<bool>(made));
}

outcome make_unnamed(int folder, owned_descriptor &made) {
    constexpr int flags = O_WRONLY | O_TMPFILE | O_CLOEXEC;
    made.reset(through_signals([&] { return ::openat(folder, ".", flags, maker_alone); }));
    return told(static_cast<bool>(made));
}

outcome give_name(int file, int folder, const char *name) noexcept {
    if (::linkat(file, "", folder, name, AT_EMPTY_PATH) == 0) return outcome::done;
    if (errno != ENOENT && errno != EINVAL) return told(false);
    // Older hosts ask for a privilege here, but none for the same through the descriptor's own path.
    char path[40];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", file);
    if (::linkat(AT_FDCWD, path, folder, name, AT_SYMLINK_FOLLOW) == 0) return outcome::done;
    if (errno == ENOENT) errno = ENOTSUP;
    return told(false);
}

outcome close_written(owned_descriptor file) noexcept {
    const uncancelled scope;
    return told(::close(file.release()) == 0 || errno == EINTR);
}

outcome settle(int node, bool with_all) {
    return told(through_signals([&] { return with_all ? ::syncfs(node) : ::fsync(node); }) == 0);
}

content_copier::content_copier() {
    struct rlimit limit {};
    if (::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY)
        m_limit = static_cast<long long>(
            std::min<unsigned long long>(limit.rlim_cur, std::numeric_limits<long long>::max()));
}

content_copier::side content_copier::copy(int source, const status &found, int target,
                                          const observer *watcher) {
    if (found.size > m_limit) {
        Error_SetLastFromSystem(EFBIG);
        return side::target;
    }
    job work{source, target, watcher, 0, found.size};
    side failed = side::none;
    if (found.stored < found.size)
        failed = copy_sparse(work, found.size);
    else if (found.size > 0)
        failed = copy_stretch(work);
    if (failed != side::none || work.at > 0) return failed;
    // Files of the kernel's own tell no size, or a wrong one, and know no way but this.
    work.goal = std::numeric_limits<long long>::max();
    const step_way before = std::exchange(m_way, step_way::by_memory);
    failed = copy_stretch(work);
    m_way = before;
    return failed;
}

content_copier::side content_copier::copy_sparse(job &work, long long size) {
    stretch data{};
    while (work.at < size) {
        if (!next_data(work.source, work.at, data)) data = {work.at, size};  // holes are not known here
        if (data.from >= size) break;
        if (data.to <= data.from) size = data.from;  // cut off in the meantime
        work.at = data.from;
        work.goal = std::min(data.to, size);
        work.is_sought = false;
        if (const side failed = copy_stretch(work); failed != side::none) return failed;
        if (work.at < work.goal) return side::none;
    }
    work.at = size;
    if (through_signals([&] { return ::ftruncate(work.target, size); }) == 0) return side::none;
    Error_SetLastFromSystem(errno);
    return side::target;
}

content_copier::side content_copier::copy_stretch(job &work) {
    while (work.at < work.goal) {
        side failed = side::none;
        const long long moved = step(work, failed);
        if (moved == 0) break;
        if (moved < 0) {
            Error_SetLastFromSystem(errno);
            return failed;
        }
        work.at += moved;
        if (work.watcher) (*work.watcher)(moved);
    }
    return side::none;
}

long long content_copier::step(job &work, side &failed) {
    const auto count = static_cast<std::size_t>(std::min(work.goal - work.at, largest_step));
    for (;;) {
        if (m_way == step_way::by_memory) return step_by_memory(work, count, failed);
        ssize_t moved;
        if (m_way == step_way::in_kernel) {
            off64_t from = work.at, to = work.at;
            moved = ::copy_file_range(work.source, &from, work.target, &to, count, 0);
        } else {
            if (!work.is_sought && ::lseek(work.target, work.at, SEEK_SET) < 0) {
                failed = side::target;
                return -1;
            }
            work.is_sought = true;
            off_t from = work.at;
            moved = ::sendfile(work.target, work.source, &from, count);
        }
        if (moved >= 0) return moved;
        if (errno == EINTR) continue;
        if (!is_closed_way(errno)) return step_by_memory(work, count, failed);  // which tells the side
        m_way = m_way == step_way::in_kernel ? step_way::by_pages : step_way::by_memory;
    }
}

long long content_copier::step_by_memory(job &work, std::size_t count, side &failed) {
    if (!m_memory) m_memory = std::make_unique_for_overwrite<char[]>(memory_size);
    count = std::min(count, memory_size);
    const ssize_t got = through_signals([&] { return ::pread(work.source, m_memory.get(), count, work.at); });
    failed = side::source;
    if (got <= 0) return got;
    failed = side::target;
    if (work.at + got > m_limit) {
        errno = EFBIG;
        return -1;
    }
    if (File_WriteAt(work.target, m_memory.get(), static_cast<std::size_t>(got), work.at) != got) return -1;
    work.is_sought = false;
    return got;
}

}  // namespace kel::system
