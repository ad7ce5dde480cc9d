#include "event_loop.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

namespace kel::detail {

namespace {

constexpr int most_at_once = 64;
constexpr auto pause = std::chrono::milliseconds(100);

}  // namespace

void event_loop::remove(awaited &event) noexcept {
    m_set.Remove(&event);
    std::ranges::replace(m_batch, static_cast<btkEvent *>(&event), nullptr);
}

bool event_loop::add_stop(btkEvent *stop) {
    m_stop = stop;
    return !stop || m_set.Add(stop);
}

void event_loop::remove_stop() {
    if (m_stop) m_set.Remove(m_stop);
    m_stop = nullptr;
}

bool event_loop::wait(double seconds) {
    btkTimeval timeout;
    timeout.init(seconds);
    m_batch.resize(most_at_once);
    const int count = m_set.Wait(timeout, m_batch.data(), most_at_once);
    // Without descriptors for a new set of the system's; the next wait tries again.
    if (count < 0) std::this_thread::sleep_for(pause);
    m_batch.resize(static_cast<std::size_t>(std::max(count, 0)));
    if (m_stop && std::ranges::find(m_batch, m_stop) != m_batch.end()) {
        m_batch.clear();
        return false;
    }
    for (std::size_t at = 0; at < m_batch.size(); ++at)
        if (btkEvent *event = std::exchange(m_batch[at], nullptr)) static_cast<awaited *>(event)->happened();
    return true;
}

}  // namespace kel::detail
