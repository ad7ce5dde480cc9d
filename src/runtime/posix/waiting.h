// What every wait shares: the time that is left of it, and poll with the interests of waitable conditions.
#pragma once

#include <poll.h>

#include <cstddef>
#include <cstdint>
#include <limits>

#include <kelstdmt/vumrt_event.h>

namespace kel::system {

inline constexpr std::int64_t nanos_per_second = 1'000'000'000;
inline constexpr std::int64_t longest_wait = std::int64_t{1} << 30;  // seconds
// Beyond the longest time-out the system is asked to wait without one, which spares it a timer.
inline constexpr std::int64_t unlimited = longest_wait * nanos_per_second;
inline constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();

pollfd to_system(btkPollRequest request) noexcept;
unsigned from_system(short events) noexcept;

std::int64_t to_nanos(const btkTimeval &time) noexcept;  // 0 for a negative one
std::int64_t deadline_in(std::int64_t nanos) noexcept;
std::int64_t left_until(std::int64_t deadline) noexcept;

// Polls until the deadline, which is `left` nanoseconds away; an interrupted poll goes on with what is
// left of the time by then.
int poll_until(pollfd *requests, std::size_t count, std::int64_t left, std::int64_t deadline);

}  // namespace kel::system
