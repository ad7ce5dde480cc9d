#include "runtime/posix/waiting.h"

#include <time.h>

#include <algorithm>
#include <cerrno>

namespace kel::system {

pollfd to_system(btkPollRequest request) noexcept {
    int events = 0;
    if (request.interest & btkPollIn) events |= POLLIN;
    if (request.interest & btkPollOut) events |= POLLOUT;
    if (request.interest & btkPollUrgent) events |= POLLPRI;
    if (request.interest & btkPollHangup) events |= POLLRDHUP;
    return {request.fd, static_cast<short>(events), 0};
}

unsigned from_system(short events) noexcept {
    unsigned got = 0;
    if (events & POLLIN) got |= btkPollIn;
    if (events & POLLOUT) got |= btkPollOut;
    if (events & POLLPRI) got |= btkPollUrgent;
    if (events & (POLLERR | POLLNVAL)) got |= btkPollError;
    if (events & (POLLHUP | POLLRDHUP)) got |= btkPollHangup;
    return got;
}

namespace {

std::int64_t monotonic_nanos() noexcept {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * nanos_per_second + now.tv_nsec;
}

}  // namespace

std::int64_t to_nanos(const btkTimeval &time) noexcept {
    if (time.GetSec() < 0) return 0;
    if (time.GetSec() >= longest_wait) return unlimited;
    return time.GetSec() * nanos_per_second + time.GetUsec() * std::int64_t{1000};
}

std::int64_t deadline_in(std::int64_t nanos) noexcept {
    return nanos <= 0 ? 0 : nanos == unlimited ? never : monotonic_nanos() + nanos;
}
std::int64_t left_until(std::int64_t deadline) noexcept {
    return deadline == never ? unlimited : std::max<std::int64_t>(0, deadline - monotonic_nanos());
}

int poll_until(pollfd *requests, std::size_t count, std::int64_t left, std::int64_t deadline) {
    for (;;) {
        timespec timeout{static_cast<time_t>(left / nanos_per_second),
                         static_cast<long>(left % nanos_per_second)};
        int result =
            ::ppoll(requests, static_cast<nfds_t>(count), left == unlimited ? nullptr : &timeout, nullptr);
        if (result >= 0 || errno != EINTR) return result;
        if (left > 0) left = left_until(deadline);
    }
}

}  // namespace kel::system
