// Why a process cannot be started.
#pragma once

#include <cerrno>

namespace kel::system {

// Of a fork, EAGAIN tells of too many processes and not, as elsewhere, of a lock.
constexpr int fork_reason(int system_error) {
    return system_error == EAGAIN ? EDQUOT : system_error;
}

}  // namespace kel::system
