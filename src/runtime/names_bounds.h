// How long an exchange with a name server lasts and how much it brings, at most. The time is counted anew
// when a piece has gone one way or the other, not with every byte: a peer that sends them one by one does not
// last for ever.
#pragma once

#include <chrono>
#include <cstddef>

#include <kelstdmt/vumrt_names.h>

namespace kel::detail {

class name_bounds {
public:
    static constexpr std::size_t piece = 4096;  // bytes; a socket that has room for some has room for these

    double seconds_left() const {
        const std::chrono::duration<double> gone = clock::now() - m_since;
        return name_service_patience() - gone.count();
    }
    void moved(std::size_t bytes) {
        m_moved += bytes;
        if (m_moved < piece) return;
        m_moved = 0;
        m_since = clock::now();
    }
    void begin_answer() {
        m_moved = 0;
        m_since = clock::now();
    }
    // After each record of an answer. False when the records came to more than any host has.
    bool allow_record(std::size_t bytes_of_the_last) {
        constexpr std::size_t most = std::size_t{512} << 20, record = 256;
        m_kept += record + bytes_of_the_last;
        return m_kept < most;
    }

private:
    using clock = std::chrono::steady_clock;

    clock::time_point m_since = clock::now();
    std::size_t m_moved = 0, m_kept = 0;
};

}  // namespace kel::detail
