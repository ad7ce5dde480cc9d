#include "delayed_sync.h"

#include <chrono>
#include <system_error>
#include <utility>

#include <kelstdmt/vumrt_stream.h>

namespace kel::detail {

delayed_sync::delayed_sync(int descriptor, std::function<void(const std::string &)> log)
    : m_descriptor(descriptor), m_log(std::move(log)) {
    try {
        m_thread = std::thread(&delayed_sync::run, this);
    } catch (const std::system_error &) {
        // Without a thread each write waits for the disk.
    }
}

delayed_sync::~delayed_sync() {
    {
        std::lock_guard held(m_guard);
        m_is_ending = true;
    }
    m_changed.notify_one();
    if (m_thread.joinable()) m_thread.join();
}

void delayed_sync::written() noexcept {
    if (!m_thread.joinable()) return sync();
    {
        std::lock_guard held(m_guard);
        if (std::exchange(m_is_dirty, true)) return;
    }
    m_changed.notify_one();
}

void delayed_sync::run() {
    constexpr auto gathering = std::chrono::milliseconds(500);
    std::unique_lock held(m_guard);
    for (;;) {
        m_changed.wait(held, [this] { return m_is_dirty || m_is_ending; });
        if (!m_is_ending) m_changed.wait_for(held, gathering, [this] { return m_is_ending; });
        if (std::exchange(m_is_dirty, false)) {
            held.unlock();
            sync();
            held.lock();
        } else if (m_is_ending) {
            return;
        }
    }
}

void delayed_sync::sync() {
    if (File_Sync(m_descriptor)) {
        m_has_failed = false;
    } else if (!std::exchange(m_has_failed, true)) {
        m_log(std::string("the journal cannot be brought to the disk: ") + Error_GetText(Error_GetLast()));
    }
}

}  // namespace kel::detail
