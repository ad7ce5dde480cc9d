// A point in time that several waits share, so that together they take no longer than one time-out.
#pragma once

#include <algorithm>
#include <chrono>

#include <kelstdmt/vumrt.h>
#include <kelstdmt/xtypes.h>

namespace kel::detail {

constexpr btkTimeval no_limit(std::int64_t{1} << 30, 0);

// INFINITE, told by its bits, is no limit; not-a-number and negative numbers are no time at all.
inline btkTimeval timeout_of(double seconds) noexcept {
    if (kel::is_nil(seconds)) return no_limit;
    btkTimeval timeout;
    timeout.init(seconds);
    return timeout;
}

class deadline {
public:
    explicit deadline(double seconds) noexcept : m_end(end_of(timeout_of(seconds))) {}

    bool is_over() const noexcept { return m_end <= clock::now(); }
    btkTimeval left() const noexcept {
        using namespace std::chrono;
        if (m_end == clock::time_point::max()) return no_limit;
        const auto micros = std::max(ceil<microseconds>(m_end - clock::now()), microseconds(0)).count();
        return {micros / 1'000'000, static_cast<std::int32_t>(micros % 1'000'000)};
    }

private:
    using clock = std::chrono::steady_clock;

    static clock::time_point end_of(const btkTimeval &timeout) noexcept {
        using namespace std::chrono;
        if (timeout >= no_limit) return clock::time_point::max();
        return clock::now() + seconds(timeout.GetSec()) + microseconds(timeout.GetUsec());
    }

    clock::time_point m_end;
};

}  // namespace kel::detail
