// Locks of whole files, which belong to the open file: they end with its last descriptor.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include "runtime/posix/through_signals.h"

namespace kel::system {

inline struct flock whole_file(short kind) noexcept {
    struct flock lock {};
    lock.l_type = kind;
    lock.l_whence = SEEK_SET;
    return lock;
}

// F_RDLCK, F_WRLCK or F_UNLCK, without waiting. False with errno set; EAGAIN or EACCES when others hold it.
inline bool set_lock(int file, short kind) {
    struct flock lock = whole_file(kind);
    return through_signals([&] { return ::fcntl(file, F_OFD_SETLK, &lock); }) == 0;
}

}  // namespace kel::system
