// A system call that a signal may interrupt, made again until it was not.
#pragma once

#include <cerrno>

namespace kel::system {

// `call` answers a negative number and sets errno on failure.
template <class Call>
auto through_signals(Call call) {
    decltype(call()) result;
    do {
        result = call();
    } while (result < 0 && errno == EINTR);
    return result;
}

}  // namespace kel::system
