// Waiting on framework events. The runtime's one poll does the work; here an array of events becomes its
// list, and seconds become its time value.
#include <algorithm>

#include <kelstdmt/eventlib.h>

namespace {

constexpr btkTimeval no_limit(std::int64_t{1} << 30, 0);
constexpr btkTimeval step(0, 10000);

// The time-out without limit is told by its bits: a number as large is an ordinary, very long time-out.
btkTimeval timeout_of(double seconds) {
    if (kel::is_nil(seconds)) return no_limit;
    btkTimeval timeout;
    timeout.init(seconds);
    return timeout;
}

}  // namespace

evtEvent::~evtEvent() = default;

bool evtEvent::Wait(double seconds) {
    List list;
    list.Append(this);
    return btkEvent::Wait(list, timeout_of(seconds), step) == 1;
}

int evtEvent::Wait(evtEventArray *events, double seconds) {
    List list;
    if (kel::is_object(events)) {
        list.Reserve(static_cast<std::size_t>(events->getarraysize()));
        for (evtEvent *event : *events)
            list.Append(kel::is_object(event) ? event : nullptr);
    }
    return std::max(0, btkEvent::Wait(list, timeout_of(seconds), step));
}

void evtRemoveEvent(evtEventArray *events, evtEvent *event) {
    if (!kel::is_object(events)) return;
    evtEvent **kept = std::remove(events->begin(), events->end(), event);
    events->removerange(static_cast<int>(kept - events->begin()), events->getarraysize());
}
