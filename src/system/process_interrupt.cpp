// Interrupts from the console as an event. All objects share one event of the runtime, which exists while one
// of them does; so does the console handler that sets it.
#include <atomic>
#include <memory>

#include <kelstdmt/proclib.h>

namespace {

MT_LIBRARY_GUARD(interrupt_guard);

// Read by the console handler, which stays out of the guard.
constinit std::atomic<btkEventHandle> shared_event = -1;
constinit int users = 0;

bool on_console(unsigned long type) {
    if (type != CTRL_C_EVENT && type != CTRL_BREAK_EVENT) return false;
    Event_Set(shared_event.load());
    return true;
}

// One user of the shared event.
class use {
public:
    use() {
        MT_LIBRARY_GUARD_USE(interrupt_guard);
        if (users == 0 && !start()) return;
        ++users;
        m_counted = true;
    }
    ~use() {
        if (m_counted) release();
    }
    use(const use &) = delete;
    use &operator=(const use &) = delete;

    explicit operator bool() const { return m_counted; }
    void keep() { m_counted = false; }

    static void release() {
        MT_LIBRARY_GUARD_USE(interrupt_guard);
        if (--users > 0) return;
        SetConsoleCtrlHandler(on_console, false);
        Event_Free(shared_event.exchange(-1));
    }

private:
    static bool start() {
        const btkEventHandle event = Event_Create(false);
        if (event == -1) return false;
        shared_event.store(event);
        if (SetConsoleCtrlHandler(on_console, true)) return true;
        Event_Free(shared_event.exchange(-1));
        return false;
    }

    bool m_counted = false;
};

}  // namespace

pcInterruptEvent *pcInterruptEvent::Create() {
    use counted;
    if (!counted) return nullptr;
    auto condition = std::make_unique<btkEVENTEvent>(shared_event.load());
    auto *event = kel::construct_with<pcInterruptEvent>(
        [&](void *at) { return ::new (at) pcInterruptEvent(condition.get()); });
    condition.release();
    counted.keep();
    return event;
}

pcInterruptEvent::~pcInterruptEvent() {
    use::release();
}

void pcInterruptEvent::Reset() {
    MT_LIBRARY_GUARD_USE(interrupt_guard);
    Event_Reset(shared_event.load());
}
