// The three values of a checksum. Only the low eight bits of the sum count, so bytes are added lane by lane
// and may wrap around: 32 at a time, at the speed at which they come out of the cache.
#pragma once

#include <cstddef>

namespace kel::detail {

class byte_sums {
public:
    void add(const unsigned char *bytes, std::size_t count) noexcept;
    // Zeros that are not looked at.
    void skip(long long count) noexcept { m_count += static_cast<unsigned long long>(count); }

    double bytes() const noexcept { return static_cast<double>(m_count); }
    // The number of bytes in the upper half; then the sum, then the exclusive or.
    unsigned value() const noexcept {
        return static_cast<unsigned>(m_count & 0xFFFF) << 16 | (m_sum & 0xFF) << 8 | m_folded;
    }

private:
    unsigned long long m_count = 0;
    unsigned m_sum = 0, m_folded = 0;
};

}  // namespace kel::detail
