// Waitable events: one type for every condition that a program waits for, such as input on a stream, the
// end of a process or a connection that wants to be accepted.
//
// An event owns the condition that it wraps and belongs to whoever asked for it. It takes no lock; any
// thread may wait on it, but an event over a stream looks into the stream's buffer and belongs to the
// thread that reads from it.
#pragma once

#include <kelstdmt/declare.h>
#include <kelstdmt/export.h>
#include <kelstdmt/vumrt_event.h>

class evtEventArray;

KEL_DECLARE_STRUCT(evtEvent)
class KELSTDMT_API evtEvent : public btkEvent, public virtual xobject {
    KEL_CLASS(evtEvent, xobject)
public:
    explicit evtEvent(btkBaseEvent *owned) noexcept : btkEvent(owned) {}  // null: never signalled
    ~evtEvent() override;

    bool getIsSignaled() { return btkEvent::IsSignaled(); }  // now, without waiting

    // Waits at most the given seconds; INFINITE is no limit (2^30 seconds), zero, a negative number and
    // not-a-number ask once. True if the event is signalled.
    bool Wait(double seconds);
    // The 1-based position of a signalled event, of several the first; 0 if none was in time, or the wait
    // failed (Error_GetLast). Null elements are never signalled. A null or empty array waits out the time.
    static int Wait(evtEventArray *events, double seconds);
};

// Pointers only: the events stay with their owners.
KEL_SEQUENCE(evtEventArray, evtEvent *)

// Removes every element that is this event; the others keep their order.
KELSTDMT_API void evtRemoveEvent(evtEventArray *events, evtEvent *event);
