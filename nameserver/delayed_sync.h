// Brings a file to the disk a moment after it was written, on a thread of its own: writers go on meanwhile,
// and many writes cost one wait for the disk.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace kel::detail {

class delayed_sync {
public:
    // The descriptor must outlive this. `log` is called on the thread.
    delayed_sync(int descriptor, std::function<void(const std::string &)> log);
    ~delayed_sync();  // what was written is on the disk then

    void written() noexcept;

private:
    void run();
    void sync();

    int m_descriptor;
    std::function<void(const std::string &)> m_log;
    std::mutex m_guard;
    std::condition_variable m_changed;
    bool m_is_dirty = false;
    bool m_is_ending = false;
    bool m_has_failed = false;
    std::thread m_thread;
};

}  // namespace kel::detail
