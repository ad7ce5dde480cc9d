// Events: time-outs of every kind against the clock and under signals, arrays, several threads.
#include <gtest/gtest.h>

#include <cmath>
#include <deque>
#include <thread>
#include <vector>

#include <kelstdmt/eventlib.h>

#include "timing.h"

namespace {

using namespace std::chrono_literals;

// An event that the test sets.
struct Own {
    explicit Own(bool manual = true, bool initial = false)
        : handle(Event_Create(manual, initial)), event(new btkEVENTEvent(handle)) {}
    ~Own() { Event_Free(handle); }

    btkEventHandle handle;
    evtEvent event;
};

// What another thread took, each time before it could be taken here.
struct Taken : btkEVENTEvent {
    using btkEVENTEvent::btkEVENTEvent;
    bool Confirm(unsigned) override { return false; }
};

// Asks in a wait of its own.
struct Asking : btkBaseEvent {
    explicit Asking(evtEventArray &asked) : array(asked) {}
    bool IsReady() override { return evtEvent::Wait(&array, 0.0) > 0; }
    evtEventArray &array;
};

TEST(Event, TimeOuts) {
    {
        const Interruptions interruptions;  // a wait gets neither shorter nor longer
        Own own;
        EXPECT_FALSE(own.event.Wait(0.0) || own.event.Wait(-HUGE_VAL) || own.event.Wait(std::nan("")));
        EXPECT_GE(seconds([&] { EXPECT_FALSE(own.event.Wait(0.15)); }), 0.15);
        EXPECT_GT(Interruptions::ticks, 0);
        Own set(true, true);
        EXPECT_GE(seconds([&] { EXPECT_FALSE(evtEvent(new Taken(set.handle)).Wait(0.05)); }), 0.05);
    }
    for (double timeout : {1.0e9, std::nextafter(INFINITE, 0.0), HUGE_VAL}) {
        Own late;
        std::thread setter([&] {
            std::this_thread::sleep_for(20ms);
            Event_Set(late.handle);
        });
        EXPECT_TRUE(late.event.Wait(timeout)) << timeout;
        setter.join();
    }
}

TEST(Event, ArraysAnswerAPosition) {
    Own a, b, c(false);
    evtEvent never(nullptr);
    xauto<evtEventArray> events;
    for (evtEvent *event : {static_cast<evtEvent *>(nullptr), &a.event, &never, &b.event, &c.event, &a.event})
        events.append(event);
    EXPECT_EQ(evtEvent::Wait(&events, 0.0), 0);
    Event_Set(c.handle);
    EXPECT_TRUE(c.event.getIsSignaled() && c.event.getIsSignaled()) << "asking takes nothing";
    EXPECT_EQ(evtEvent::Wait(&events, INFINITE), 5);
    EXPECT_EQ(evtEvent::Wait(&events, 0.0), 0) << "the wait that reported it took the signal";
    Event_Set(b.handle);
    Event_Set(a.handle);
    EXPECT_EQ(evtEvent::Wait(&events, 1.0), 2) << "of several the first";
    evtRemoveEvent(&events, &a.event);
    evtRemoveEvent(&events, nullptr);
    EXPECT_EQ(std::vector<evtEvent *>(events.begin(), events.end()),
              (std::vector<evtEvent *>{&never, &b.event, &c.event}));
    // More than a wait has room for on its stack.
    std::deque<Own> many(900);
    xauto<evtEventArray> all;
    for (Own &one : many)
        all.append(&one.event);
    EXPECT_EQ(evtEvent::Wait(&all, 0.0), 0);
    Event_Set(many[899].handle);
    EXPECT_EQ(evtEvent::Wait(&all, 60), 900);
    xauto<evtEventArray> some;
    for (int one = 100; one < 200; ++one)
        some.append(&many[one].event);
    evtEvent asking(new Asking(some));
    all.insert(899, &asking);
    Event_Set(many[0].handle);
    EXPECT_EQ(evtEvent::Wait(&all, 60), 1) << "a wait inside a wait";
}

// Each signal of an event without manual reset releases exactly one of the threads that wait for it.
TEST(Event, OneSignalReleasesOneThread) {
    Own own(false);
    std::atomic<int> released{0};
    const auto work = [&] {
        for (int k = 0; k < 20; ++k)
            released += own.event.Wait(INFINITE);
    };
    std::thread threads[] = {std::thread(work), std::thread(work), std::thread(work), std::thread(work)};
    for (int set = 1; set <= 80; ++set) {
        Event_Set(own.handle);
        while (released < set)
            std::this_thread::yield();
        ASSERT_EQ(released, set);
    }
    for (auto &thread : threads)
        thread.join();
    EXPECT_FALSE(own.event.Wait(0.0));
}

}  // namespace
