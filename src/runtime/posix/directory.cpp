// Folders through the kernel's own records of entries.
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#define _FILE_OFFSET_BITS 64

#include "runtime/directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <kelstdmt/vumrt.h>

#include "runtime/posix/through_signals.h"

namespace kel::system {

namespace {

constexpr std::size_t block_size = 65536;
constexpr int folder_flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

int open_folder(int folder, const char *name, int flags) {
    return through_signals([&] { return ::openat(folder, name, folder_flags | flags); });
}

entry_kind kind_of(unsigned char told) noexcept {
    switch (told) {
        case DT_UNKNOWN:
            return entry_kind::untold;
        case DT_REG:
            return entry_kind::file;
        case DT_DIR:
            return entry_kind::folder;
        case DT_LNK:
            return entry_kind::link;
        default:
            return entry_kind::other;
    }
}

bool is_dots(const char *name) noexcept {
    return name[0] == '.' && (!name[1] || (name[1] == '.' && !name[2]));
}

}  // namespace

bool directory::opened(int fd, const char *host_path) noexcept {
    if (fd < 0) Error_SetLastFromSystem(errno, host_path);
    m_folder.reset(fd);
    m_at = m_filled = 0;
    return fd >= 0;
}

bool directory::open(const char *host_path) {
    return opened(open_folder(AT_FDCWD, host_path, 0), host_path);
}

bool directory::open_below(int folder, const char *name) {
    return opened(open_folder(folder, name, O_NOFOLLOW), nullptr);
}

void directory::take(owned_descriptor folder) noexcept {
    m_folder = std::move(folder);
    m_at = m_filled = 0;
}

void directory::close() noexcept {
    m_folder.reset();
    m_at = m_filled = 0;
}

listing_step directory::fill() {
    if (!m_block) m_block = std::make_unique_for_overwrite<char[]>(block_size);
    const ssize_t got =
        through_signals([&] { return ::getdents64(m_folder.get(), m_block.get(), block_size); });
    m_at = 0;
    m_filled = got > 0 ? static_cast<std::size_t>(got) : 0;
    if (got > 0) return listing_step::entry;
    if (got == 0 || errno == ENOENT) return listing_step::end;  // a folder that was removed has no entries
    Error_SetLastFromSystem(errno);
    return listing_step::failed;
}

listing_step directory::next(directory_entry &entry) {
    for (;;) {
        if (m_at == m_filled)
            if (listing_step step = fill(); step != listing_step::entry) return step;
        const auto *told = reinterpret_cast<const dirent64 *>(m_block.get() + m_at);
        m_at += told->d_reclen;
        if (is_dots(told->d_name)) continue;
        entry = {told->d_name, std::strlen(told->d_name), kind_of(told->d_type)};
        return listing_step::entry;
    }
}

}  // namespace kel::system
