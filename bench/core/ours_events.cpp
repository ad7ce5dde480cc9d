// Our events.
#include <kelstdmt/eventlib.h>

#include <vector>

#include "loops.h"

namespace bench {
namespace {

// An event of the program's own that a wait resets.
class OwnEvent {
public:
    OwnEvent() : m_handle(Event_Create(false)), m_event(new btkEVENTEvent(m_handle)) {}
    ~OwnEvent() { Event_Free(m_handle); }
    OwnEvent(const OwnEvent &) = delete;
    OwnEvent &operator=(const OwnEvent &) = delete;

    void set() { Event_Set(m_handle); }
    void wait() { m_event.Wait(INFINITE); }
    evtEvent *get() { return &m_event; }

private:
    btkEventHandle m_handle;
    xauto<evtEvent> m_event;
};

class EventArray {
public:
    EventArray() : m_events(wait_count), m_array(evtEventArray::create()) {
        for (OwnEvent &event : m_events)
            m_array->append(event.get());
    }
    void set(int index) { m_events[static_cast<std::size_t>(index)].set(); }
    int wait() { return evtEvent::Wait(m_array, INFINITE) - 1; }

private:
    std::vector<OwnEvent> m_events;
    xrchandle<evtEventArray> m_array;
};

}  // namespace

void add_ours_events(Suite &suite) {
    suite.add("wait/1000", Library::Ours, "evtEvent::Wait", wait_for_one<EventArray>);
    suite.add("wait/wake", Library::Ours, "evtEvent::Wait", wake<OwnEvent>);
}

}  // namespace bench
