// Points of time as a calendar in local time tells them, and back. The zone is that of the environment
// variable TZ, else of the system; it is looked up anew each time. Seconds have 64 bits on every platform.
#pragma once

#include <cstdint>
#include <ctime>

namespace kel::system {

// False for a second whose year does not fit into std::tm; that goes far beyond two thousand million years.
bool local_fields(std::int64_t seconds, std::tm &fields) noexcept;

// The second that the fields name. What lies beyond its range carries over: 40 January is 9 February. A
// negative tm_isdst leaves it to the zone's rules whether daylight saving holds: of an hour that comes twice
// it is the first, and one that is left out counts on from before the gap. False when there is no such
// second.
bool local_seconds(std::tm fields, std::int64_t &seconds) noexcept;

}  // namespace kel::system
