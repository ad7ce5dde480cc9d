// Entries of folders through the system's calls that take a folder's descriptor.
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#define _FILE_OFFSET_BITS 64

#include "runtime/tree.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <kelstdmt/vumrt.h>

#include "runtime/posix/tree_outcome.h"

namespace kel::system {

static_assert(here == AT_FDCWD);

namespace {

outcome opened_as(int fd, owned_descriptor &opened) noexcept {
    const outcome result = told(fd >= 0);
    opened.reset(fd);
    return result;
}

int open_entry(int folder, const char *name, int flags) {
    return through_signals([&] { return ::openat(folder, name, flags | O_CLOEXEC); });
}

outcome fill(bool good, const struct stat &from, status &to) noexcept {
    if (!good) return told(false);
    to.who = {from.st_dev, from.st_ino};
    to.mode = from.st_mode;
    to.names = from.st_nlink;
    to.owner = from.st_uid;
    to.group = from.st_gid;
    to.size = from.st_size;
    to.stored = static_cast<long long>(from.st_blocks) * 512;
    to.modified = {from.st_mtim.tv_sec, from.st_mtim.tv_nsec};
    return outcome::done;
}

void fill_times(const status &from, timespec (&times)[2]) noexcept {
    times[0] = {};
    times[0].tv_nsec = UTIME_OMIT;
    times[1].tv_sec = static_cast<time_t>(from.modified.seconds);
    times[1].tv_nsec = from.modified.nanoseconds;
}

// Beyond permissions, such as lists of access, as far as this process may and the file system knows them.
void copy_attributes(int from, int to) {
    const ssize_t bytes = ::flistxattr(from, nullptr, 0);
    if (bytes <= 0) return;
    std::vector<char> names(static_cast<std::size_t>(bytes) + 1), value;
    const ssize_t told_bytes = ::flistxattr(from, names.data(), names.size() - 1);
    const char *end = names.data() + std::max<ssize_t>(told_bytes, 0);
    for (const char *name = names.data(); name < end; name += std::char_traits<char>::length(name) + 1) {
        const ssize_t size = ::fgetxattr(from, name, nullptr, 0);
        if (size < 0) continue;
        value.resize(static_cast<std::size_t>(size) + 1);
        const ssize_t got = ::fgetxattr(from, name, value.data(), value.size());
        if (got >= 0) ::fsetxattr(to, name, value.data(), static_cast<std::size_t>(got), 0);
    }
}

bool is_refusal(int error) noexcept {
    return error == EPERM || error == EACCES || error == EINVAL || error == EOPNOTSUPP || error == ENOSYS;
}

// Without the step that forbids replacing. A second name is refused for one that is taken, too; only folders
// and file systems without second names are asked first.
outcome rename_by_asking(int from_folder, const char *from, int to_folder, const char *to) noexcept {
    if (::linkat(from_folder, from, to_folder, to, 0) == 0) {
        if (::unlinkat(from_folder, from, 0) == 0) return outcome::done;
        const int reason = errno;
        ::unlinkat(to_folder, to, 0);
        errno = reason;
        return told(false);
    }
    if (errno != EPERM && errno != EOPNOTSUPP && errno != EMLINK) return told(false);
    struct stat found {};
    if (::fstatat(to_folder, to, &found, AT_SYMLINK_NOFOLLOW) == 0) {
        errno = EEXIST;
        return told(false);
    }
    if (errno != ENOENT) return told(false);
    return told(::renameat(from_folder, from, to_folder, to) == 0);
}

outcome exchange_by_steps(int folder, const char *one, const char *other) noexcept {
    char aside[40];
    std::snprintf(aside, sizeof aside, ".%016llx.aside", static_cast<unsigned long long>(btkRandomSeed()));
    outcome result = rename_new(folder, other, folder, aside);
    if (result != outcome::done) return result;
    result = rename_new(folder, one, folder, other);
    if (result == outcome::done) {
        result = rename_new(folder, aside, folder, one);
        if (result == outcome::done) return result;
        ::renameat(folder, other, folder, one);
    }
    ::renameat(folder, aside, folder, other);
    return result;
}

}  // namespace

outcome look(int folder, const char *name, links way, status &found) noexcept {
    struct stat node {};
    const int flags = way == links::seen ? AT_SYMLINK_NOFOLLOW : 0;
    return fill(::fstatat(folder, name, &node, flags) == 0, node, found);
}

outcome look(int file, status &found) noexcept {
    struct stat node {};
    return fill(::fstat(file, &node) == 0, node, found);
}

outcome reach_folder(int folder, const char *name, links way, owned_descriptor &opened) {
    const int flags = O_PATH | O_DIRECTORY | (way == links::seen ? O_NOFOLLOW : 0);
    return opened_as(open_entry(folder, *name ? name : ".", flags), opened);
}

outcome open_folder(int folder, const char *name, links way, owned_descriptor &opened) {
    const int flags = O_RDONLY | O_DIRECTORY | (way == links::seen ? O_NOFOLLOW : 0);
    return opened_as(open_entry(folder, name, flags), opened);
}

outcome make_folder(int folder, const char *name, unsigned mode) noexcept {
    return told(::mkdirat(folder, name, mode) == 0);
}

outcome make_link(const char *text, int folder, const char *name) noexcept {
    return told(::symlinkat(text, folder, name) == 0);
}

outcome read_link(int folder, const char *name, std::string &text) {
    char buffer[PATH_MAX];
    const ssize_t got = ::readlinkat(folder, name, buffer, sizeof buffer);
    if (got > 0) text.assign(buffer, static_cast<std::size_t>(got));
    return told(got > 0);
}

outcome remove_file(int folder, const char *name) noexcept {
    return told(::unlinkat(folder, name, 0) == 0);
}

outcome remove_folder(int folder, const char *name) noexcept {
    if (::unlinkat(folder, name, AT_REMOVEDIR) == 0) return outcome::done;
    if (errno == EEXIST) errno = ENOTEMPTY;  // some file systems say it this way
    return told(false);
}

outcome rename_new(int from_folder, const char *from, int to_folder, const char *to) noexcept {
    if (::renameat2(from_folder, from, to_folder, to, RENAME_NOREPLACE) == 0) return outcome::done;
    if (errno != EINVAL && errno != ENOSYS) return told(false);
    return rename_by_asking(from_folder, from, to_folder, to);
}

outcome rename_over(int folder, const char *from, const char *to) noexcept {
    return told(::renameat(folder, from, folder, to) == 0);
}

outcome exchange(int folder, const char *one, const char *other) noexcept {
    if (::renameat2(folder, one, folder, other, RENAME_EXCHANGE) == 0) return outcome::done;
    if (errno != EINVAL && errno != ENOSYS) return told(false);
    return exchange_by_steps(folder, one, other);
}

bool stands_in(int folder, const identity &above) {
    status at, before;
    owned_descriptor step;
    if (look(folder, ".", links::seen, at) != outcome::done) return false;
    do {
        if (at.who == above) return true;
        before = at;
        owned_descriptor next;
        if (reach_folder(step ? step.get() : folder, "..", links::seen, next) != outcome::done) return false;
        step = std::move(next);
    } while (look(step.get(), at) == outcome::done && at.who != before.who);
    return false;
}

std::string real_path(const char *host_path) {
    const std::unique_ptr<char, decltype(&std::free)> path(::realpath(host_path, nullptr), &std::free);
    if (path) return path.get();
    Error_SetLastFromSystem(errno, host_path);
    return {};
}

outcome hold(int node) noexcept {
    if (::flock(node, LOCK_EX | LOCK_NB) == 0) return outcome::done;
    return errno == EWOULDBLOCK ? outcome::exists : outcome::unsupported;
}

bool is_mine(const status &found) noexcept {
    return found.owner == ::geteuid();
}

outcome set_mode(int node, unsigned mode) noexcept {
    return told(::fchmod(node, mode) == 0);
}

outcome finish(int node, const status &from, keeping kept, int source) {
    const bool is_folder = from.kind() == folder_kind;
    unsigned mode = from.mode & (is_folder ? folder_permissions : file_permissions);
    if (kept == keeping::owner) {
        const bool is_given = ::fchown(node, from.owner, from.group) == 0;
        if (!is_given && !is_refusal(errno)) return told(false);
        if (is_given) mode |= from.mode & lent_rights;
        // A new owner would take some of them away again, and permissions may forbid to set them.
        copy_attributes(source, node);
    } else if (is_folder) {
        struct stat made {};
        if (::fstat(node, &made) == 0) mode |= made.st_mode & S_ISGID;  // the folder above hands its group on
    }
    timespec times[2];
    fill_times(from, times);
    // A file system without permissions or times of its own has none to keep.
    const bool has_mode = ::fchmod(node, mode) == 0 || is_refusal(errno);
    return told(has_mode && (::futimens(node, times) == 0 || is_refusal(errno)));
}

outcome finish_link(int folder, const char *name, const status &from) noexcept {
    timespec times[2];
    fill_times(from, times);
    const bool is_given =
        ::fchownat(folder, name, from.owner, from.group, AT_SYMLINK_NOFOLLOW) == 0 || is_refusal(errno);
    return told(is_given &&
                (::utimensat(folder, name, times, AT_SYMLINK_NOFOLLOW) == 0 || is_refusal(errno)));
}

}  // namespace kel::system
