#include "process_table.h"

#include <algorithm>
#include <utility>

#include <kelstdmt/vumrt.h>

namespace kel::detail {

namespace {

constexpr int no_such_process = 87;
constexpr btkProcessHandle none = -1;

class owned_handle {
public:
    owned_handle() = default;
    ~owned_handle() { reset(); }
    owned_handle(const owned_handle &) = delete;
    owned_handle &operator=(const owned_handle &) = delete;

    bool open(unsigned id) { return Process_Open(&m_handle, id) || (m_handle = none, false); }
    void reset() noexcept {
        if (m_handle != none) Process_Free(std::exchange(m_handle, none));
    }
    btkProcessHandle get() const noexcept { return m_handle; }
    explicit operator bool() const noexcept { return m_handle != none; }

private:
    btkProcessHandle m_handle = none;
};

class end_event : public awaited {
public:
    end_event(btkProcessHandle handle, unsigned id, const std::function<void()> &tell)
        : awaited(new btkPROCESSEvent(handle)), m_id(id), m_tell(tell) {}
    void happened() override { m_tell(); }
    unsigned id() const noexcept { return m_id; }

private:
    unsigned m_id;
    const std::function<void()> &m_tell;
};

}  // namespace

struct process_table::held_process {
    unsigned id;
    unsigned long long birth = 0;
    std::size_t records = 0;
    owned_handle handle;
    std::unique_ptr<end_event> wakes, asked;  // in the loop, and among the ends
};

process_table::process_table(event_loop &loop, log_lines log, std::function<void()> ended)
    : m_loop(loop), m_log(std::move(log)), m_tell(std::move(ended)) {
    Process_GetBirth(Process_GetCurrentId());  // which learns what it needs while there are descriptors
}

process_table::~process_table() {
    for (auto &[id, process] : m_processes)
        unwatch(*process);
}

// Descriptors ----------------------------------------------------------------------------------

void process_table::reserve::lend() noexcept {
    for (btkEventHandle &event : m_events)
        Event_Free(std::exchange(event, none));
}

bool process_table::reserve::refill() noexcept {
    for (btkEventHandle &event : m_events)
        if (event == none) event = Event_Create();
    return std::ranges::find(m_events, none) == std::end(m_events);
}

// Whether the process runs, under its birth if that is known; else that is learned. If it runs, a handle of
// it is left, for which the reserve stays lent. What cannot be asked is taken to be as it was.
bool process_table::asks(held_process &process) {
    m_reserve.lend();
    if (!process.handle.open(process.id)) {
        const bool may_run = Error_GetLast() != no_such_process;
        if (!may_run) m_reserve.refill();
        return may_run;
    }
    const unsigned long long birth = Process_GetBirth(process.id);
    if (process.birth == 0) process.birth = birth;
    // The birth is that of the process of the handle if that one still runs.
    if (Process_CheckRunning(process.handle.get()) && (birth == 0 || birth == process.birth)) return true;
    process.handle.reset();
    m_reserve.refill();
    return false;
}

// Keeps the handle, if there are descriptors for it beside the reserve.
void process_table::watch(held_process &process) {
    const bool has_room = m_reserve.refill();
    if (process.handle && has_room && m_watched < m_most_watched) {
        auto wakes = std::make_unique<end_event>(process.handle.get(), process.id, m_tell);
        auto asked = std::make_unique<end_event>(process.handle.get(), process.id, m_tell);
        if (m_ends.Add(asked.get())) {
            if (m_loop.add(*wakes)) {
                process.wakes = std::move(wakes);
                process.asked = std::move(asked);
                ++m_watched;
                return;
            }
            m_ends.Remove(asked.get());
        }
    }
    complain();
    process.handle.reset();
    m_reserve.refill();
}

void process_table::unwatch(held_process &process) noexcept {
    if (!process.wakes) return;
    m_loop.remove(*process.wakes);
    m_ends.Remove(process.asked.get());
    process.wakes.reset();
    process.asked.reset();
    process.handle.reset();
    --m_watched;
}

void process_table::complain() {
    if (!std::exchange(m_has_complained, true))
        m_log(
            "no descriptors for some processes, whose records go when somebody asks for them; a higher limit "
            "on open "
            "files mends it");
}

bool process_table::give_descriptors() {
    constexpr std::size_t some = 64;
    if (m_watched == 0) return false;
    complain();
    m_most_watched = m_watched - std::min(some, m_watched);
    for (auto &[id, process] : m_processes) {
        if (m_watched <= m_most_watched) break;
        unwatch(*process);
    }
    return true;
}

// Records --------------------------------------------------------------------------------------

bool process_table::hold(unsigned id, unsigned long long birth) {
    if (const auto held = m_processes.find(id); held != m_processes.end()) {
        if (birth && held->second->birth != birth) return false;
        ++held->second->records;
        return true;
    }
    auto made = std::make_unique<held_process>();
    made->id = id;
    made->birth = birth;
    made->records = 1;
    if (!asks(*made)) return false;
    if (made->birth == 0) {
        made->handle.reset();
        m_reserve.refill();
        return false;
    }
    held_process &held = *m_processes.emplace(id, std::move(made)).first->second;
    watch(held);
    return true;
}

void process_table::release(unsigned id) {
    const auto held = m_processes.find(id);
    if (held != m_processes.end() && --held->second->records == 0) drop(id);
}

void process_table::drop(unsigned id) {
    const auto held = m_processes.find(id);
    if (held == m_processes.end()) return;
    unwatch(*held->second);
    m_processes.erase(held);
}

bool process_table::is_watched(unsigned id) const noexcept {
    const auto held = m_processes.find(id);
    return held != m_processes.end() && held->second->wakes;
}

bool process_table::is_running(unsigned id) {
    held_process &held = *m_processes.at(id);
    if (held.wakes) return Process_CheckRunning(held.handle.get());
    if (!asks(held)) return false;
    watch(held);
    return true;
}

unsigned long long process_table::birth_of(unsigned id) const noexcept {
    const auto held = m_processes.find(id);
    return held == m_processes.end() ? 0 : held->second->birth;
}

std::vector<unsigned> process_table::ended() {
    constexpr int most = 64;
    std::vector<unsigned> ids;
    if (m_watched == 0) return ids;
    btkEvent *signalled[most];
    const int count = m_ends.Wait(btkTimeval(), signalled, most);
    for (int at = 0; at < count; ++at)
        ids.push_back(static_cast<end_event *>(signalled[at])->id());
    return ids;
}

}  // namespace kel::detail
