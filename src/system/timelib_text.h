// What timelib.cpp needs of the reader of times.
#pragma once

#include <cstdint>

namespace kel::detail {

// tmString2Time for all seconds that there are.
bool read_time(const char *text, std::int64_t &seconds);

}  // namespace kel::detail
