// The processes that records belong to.
//
// One process descriptor stands for all records of a process: it wakes the loop when the process ends, and it
// still means that process when its id has been given to another one. While there are no descriptors to be
// had, the process is known by its birth, and asked for when one of its records is.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

#include <kelstdmt/vumrt_process.h>

#include "event_loop.h"
#include "log_lines.h"

namespace kel::detail {

class process_table {
public:
    // `ended` is called out of the loop when a process may have ended.
    process_table(event_loop &loop, log_lines log, std::function<void()> ended);
    ~process_table();

    // One record more or less of a process. False when no process of that id (and with that birth, unless 0)
    // runs.
    bool hold(unsigned id, unsigned long long birth = 0);
    void release(unsigned id);
    void drop(unsigned id);  // all that it has

    bool is_held(unsigned id) const noexcept { return m_processes.contains(id); }
    // Of one that is held.
    bool is_running(unsigned id);
    bool is_watched(unsigned id) const noexcept;  // the end will be told
    unsigned long long birth_of(unsigned id) const noexcept;

    // Those that are held, watched and have ended by now: none the next time only if they are released.
    std::vector<unsigned> ended();
    bool are_all_watched() const noexcept { return m_watched == m_processes.size(); }
    // Lets go of some descriptors, for good. False when there are none.
    bool give_descriptors();

private:
    // Descriptors that nobody else gets, for questions about processes that are not watched.
    class reserve {
    public:
        reserve() { refill(); }
        ~reserve() { lend(); }
        reserve(const reserve &) = delete;
        reserve &operator=(const reserve &) = delete;

        void lend() noexcept;
        bool refill() noexcept;

    private:
        static constexpr std::size_t size = 3;
        btkEventHandle m_events[size] = {-1, -1, -1};
    };
    struct held_process;

    bool asks(held_process &process);
    void watch(held_process &process);
    void unwatch(held_process &process) noexcept;
    void complain();

    event_loop &m_loop;
    log_lines m_log;
    std::function<void()> m_tell;
    reserve m_reserve;
    btkEventSet m_ends;  // asked without waiting, so that no answer is older than the end of a process
    std::unordered_map<unsigned, std::unique_ptr<held_process>> m_processes;
    std::size_t m_watched = 0;
    std::size_t m_most_watched = static_cast<std::size_t>(-1);
    bool m_has_complained = false;
};

}  // namespace kel::detail
