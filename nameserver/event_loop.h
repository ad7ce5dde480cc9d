// The one wait of a name server: what is awaited, and what is done when it happens.
#pragma once

#include <vector>

#include <kelstdmt/vumrt_event.h>

namespace kel::detail {

class awaited : public btkEvent {
public:
    using btkEvent::btkEvent;
    // May remove and delete any event of the loop, also this one.
    virtual void happened() = 0;
};

class event_loop {
public:
    bool add(awaited &event) { return m_set.Add(&event); }
    void remove(awaited &event) noexcept;

    // Waits at most the given seconds and does what has come up by then. False when `stop`, which is null or
    // was added with add_stop, is signalled.
    bool wait(double seconds);
    bool add_stop(btkEvent *stop);
    void remove_stop();

private:
    btkEventSet m_set;
    btkEvent *m_stop = nullptr;
    std::vector<btkEvent *> m_batch;  // what was signalled; null for what is done or removed since
};

}  // namespace kel::detail
