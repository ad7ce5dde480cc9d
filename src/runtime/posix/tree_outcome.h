// How the calls on trees end: errno as an outcome and as the last error.
#pragma once

#include <cerrno>

#include <kelstdmt/vumrt.h>

#include "runtime/posix/through_signals.h"
#include "runtime/tree.h"

namespace kel::system {

inline outcome outcome_of(int error) noexcept {
    switch (error) {
        case ENOENT:
            return outcome::absent;
        case EEXIST:
            return outcome::exists;
        case EISDIR:
            return outcome::folder;
        case ENOTDIR:
        case ELOOP:
            return outcome::no_folder;
        case ENOTEMPTY:
            return outcome::not_empty;
        case EXDEV:
            return outcome::elsewhere;
        case EINVAL:
        case ENOSYS:
        case EOPNOTSUPP:
            return outcome::unsupported;
        default:
            return outcome::failed;
    }
}

inline outcome told(bool good) noexcept {
    if (good) return outcome::done;
    Error_SetLastFromSystem(errno);
    return outcome_of(errno);
}

}  // namespace kel::system
