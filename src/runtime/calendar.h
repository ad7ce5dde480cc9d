// Points of time as a calendar in local time tells them, and back. The zone is that of the environment
// variable TZ, else of the system; it is looked up anew each time. Seconds have 64 bits on every platform.
#pragma once

#include <cstdint>
#include <ctime>

namespace kel::system {

// False for a second whose year does not fit into std::tm; that goes far beyond two thousand million years.
bool local_fields(std::int64_t seconds, std::tm &fields) noexcept;

// The second that the fields name, which are brought into their ranges (40 January is 9 February). A negative
// tm_isdst leaves it to the zone's rules whether daylight saving holds; an hour that the zone leaves out or
// has twice is one of the two that could be meant. False when there is no such second.
bool local_seconds(std::tm &fields, std::int64_t &seconds) noexcept;

}  // namespace kel::system
