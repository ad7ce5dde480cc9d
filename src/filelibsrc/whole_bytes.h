// Sizes and positions come as doubles.
#pragma once

#include <kelstdmt/vumrt.h>

namespace kel::detail {

// The whole part. False, with the last error 87, for what is no number or does not fit into 64 bits.
inline bool whole_bytes(double given, long long &bytes) noexcept {
    constexpr double beyond = 9223372036854775808.0;
    constexpr int wrong_argument = 87;
    if (!(given > -beyond && given < beyond)) {
        Error_SetLast(wrong_argument);
        return false;
    }
    bytes = static_cast<long long>(given);
    return true;
}

}  // namespace kel::detail
