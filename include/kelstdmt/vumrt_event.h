// Waitable conditions. A base event describes one condition of the system: a descriptor and what is
// awaited of it, or something that is known without asking. An event owns a base event, and one wait
// covers any number of events of any kind with a single poll.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include <kelstdmt/export.h>
#include <kelstdmt/vumrt.h>

enum btkPollInterest : short {
    btkPollIn = 1,      // bytes, a connection or the end
    btkPollOut = 2,     // room
    btkPollUrgent = 4,  // out-of-band data
    btkPollError = 8,   // told, never asked: the descriptor failed or is closed
    // The peer is gone: told without asking. Who asks is told of one that has only stopped sending, too.
    btkPollHangup = 16
};

struct btkPollRequest {
    int fd = -1;  // -1: nothing to ask the system
    short interest = 0;
};

// One condition. Belongs to its owner's thread unless its class says otherwise.
class KELSTDMT_API btkBaseEvent {
public:
    btkBaseEvent() = default;
    virtual ~btkBaseEvent();
    btkBaseEvent(const btkBaseEvent &) = delete;
    btkBaseEvent &operator=(const btkBaseEvent &) = delete;

    // Signalled already, without asking the system. Must be cheap. Default: false.
    virtual bool IsReady();
    // What to ask the system. Default: nothing.
    virtual btkPollRequest GetPollRequest();
    // Called by a wait, for the event that it is about to report, with the btkPollInterest bits that the
    // system told: here a condition that is to be taken is taken. False means that it is gone by now, and
    // the wait goes on. Not asked of one that was ready without asking. Default: IsMet.
    virtual bool Confirm(unsigned got);
    // Whether what the system told is what is awaited; takes nothing. Default: got != 0, so that a failed
    // descriptor and a vanished peer count as signalled.
    virtual bool IsMet(unsigned got);
};

// A plain growable array.
template <class T>
class btkXArrayImpl {
public:
    void Append(const T &value) { m_items.push_back(value); }
    void Reserve(std::size_t count) { m_items.reserve(count); }
    void Clear() noexcept { m_items.clear(); }
    std::size_t GetSize() const noexcept { return m_items.size(); }
    T &operator[](std::size_t at) { return m_items[at]; }
    const T &operator[](std::size_t at) const { return m_items[at]; }
    auto begin() noexcept { return m_items.begin(); }
    auto end() noexcept { return m_items.end(); }
    auto begin() const noexcept { return m_items.begin(); }
    auto end() const noexcept { return m_items.end(); }

private:
    std::vector<T> m_items;
};

class KELSTDMT_API btkEvent {
public:
    using List = btkXArrayImpl<btkEvent *>;

    explicit btkEvent(btkBaseEvent *owned) noexcept : m_base(owned) {}  // null: never signalled
    virtual ~btkEvent();
    btkEvent(const btkEvent &) = delete;
    btkEvent &operator=(const btkEvent &) = delete;

    // Asks without waiting and without taking the signal.
    bool IsSignaled();
    btkBaseEvent *GetBaseEvent() const noexcept { return m_base.get(); }

    // Waits until an event of the list is signalled and answers its 1-based position: of several, the
    // first in the list. 0 when the time ran out, negative on failure (Error_GetLast tells; more events
    // than the process may have descriptors is one). A zero or negative time-out asks once. A signal
    // handler that runs meanwhile neither shortens nor lengthens the wait. The list may hold an event
    // twice, and null pointers, which are never signalled. With nothing to wait for, it waits out the
    // time-out. The step is not used: nothing is polled in steps.
    static int Wait(List &list, const btkTimeval &timeout, const btkTimeval &step);

private:
    std::unique_ptr<btkBaseEvent> m_base;
};

// Always signalled.
class KELSTDMT_API btkAlwaysEvent : public btkBaseEvent {
public:
    bool IsReady() override;
};

// A descriptor has input or met its end (type 0), has room for output (1) or has out-of-band data (2).
// The descriptor stays the caller's and must outlive the event. Any thread.
class KELSTDMT_API btkSelectEvent : public btkBaseEvent {
public:
    btkSelectEvent(int fd, int type) noexcept;
    btkPollRequest GetPollRequest() override;

private:
    btkPollRequest m_request;
};

// A process has ended; takes a process descriptor, which stays the caller's. Any thread.
class KELSTDMT_API btkPROCESSEvent : public btkBaseEvent {
public:
    explicit btkPROCESSEvent(int handle) noexcept : m_handle(handle) {}
    btkPollRequest GetPollRequest() override;

private:
    int m_handle;
};

// An event that the program sets itself. The handle is opaque; -1 is none.
using btkEventHandle = int;

// With manual reset it stays signalled until Event_Reset; without, a wait that reports it takes the
// signal, and of several waiting threads one gets it. -1 on failure.
KELSTDMT_API btkEventHandle Event_Create(bool manual_reset = true, bool initial = false);
// Any thread, and signal handlers too: leaves errno and the last error alone.
KELSTDMT_API void Event_Set(btkEventHandle event) noexcept;
KELSTDMT_API void Event_Reset(btkEventHandle event) noexcept;
KELSTDMT_API void Event_Free(btkEventHandle event) noexcept;

// Signalled while the program's event is set. The handle stays the caller's. Any thread.
class KELSTDMT_API btkEVENTEvent : public btkBaseEvent {
public:
    explicit btkEVENTEvent(btkEventHandle event) noexcept : m_event(event) {}
    btkPollRequest GetPollRequest() override;
    bool Confirm(unsigned got) override;

private:
    btkEventHandle m_event;
};

// Many conditions that are awaited again and again: a wait costs what is signalled, not what is awaited.
//
// An event stays in the set until it is removed, and must outlive that. One that was reported is asked again
// by the next wait, also for what stands in its stream's buffer; the others are known from the system alone,
// so who read from a stream whose event was not reported touches it. Used by one thread at a time.
class KELSTDMT_API btkEventSet {
public:
    btkEventSet();
    ~btkEventSet();
    btkEventSet(const btkEventSet &) = delete;
    btkEventSet &operator=(const btkEventSet &) = delete;

    // False with the last error set: no descriptors are left, or the event is in the set already (183). Null
    // and an event without a condition are accepted and never signalled.
    bool Add(btkEvent *event);
    void Remove(btkEvent *event);  // one that is not in it is left alone
    void Touch(btkEvent *event);
    std::size_t GetSize() const noexcept;

    // Waits until at least one is signalled and stores those that are, up to the room for them; those that
    // find none come first the next time. 0 when the time ran out, negative on failure. Time-outs are those
    // of btkEvent::Wait.
    int Wait(const btkTimeval &timeout, btkEvent **signalled, int room);

private:
    struct state;
    std::unique_ptr<state> m_state;
};
