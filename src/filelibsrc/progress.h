// Tells an observer how far a long operation is, often enough to watch and too seldom to cost anything.
#pragma once

#include <chrono>

#include <kelstdmt/filelib_nodes.h>

namespace kel::detail {

class progress {
public:
    // Null, or an empty function, for nobody. The observer must live as long as this.
    explicit progress(const file_observer *observer) noexcept
        : m_observer(observer && *observer ? observer : nullptr) {}

    // To be called in between, at any rate.
    void tell(const char *path, double files, double bytes) {
        if (!m_observer) return;
        const clock::time_point now = clock::now();
        if (now - m_last < interval) return;
        m_last = now;
        finish(path, files, bytes);
    }
    // The call at the end.
    void finish(const char *path, double files, double bytes) const {
        if (m_observer) (*m_observer)({path, files, bytes});
    }

private:
    using clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds interval{100};

    const file_observer *m_observer;
    clock::time_point m_last = clock::now();
};

}  // namespace kel::detail
