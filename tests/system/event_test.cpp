// Events: time-outs of every kind against the clock, arrays, several threads.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include <kelstdmt/eventlib.h>

namespace {

using namespace std::chrono_literals;

// An event that the test sets.
struct Own {
    explicit Own(bool manual = true, bool initial = false)
        : handle(Event_Create(manual, initial)), event(new btkEVENTEvent(handle)) {}
    ~Own() { Event_Free(handle); }
    Own(const Own &) = delete;
    Own &operator=(const Own &) = delete;

    btkEventHandle handle;
    evtEvent event;
};

template <class Action>
double seconds(Action action) {
    auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// An ordinary number beside the one that means no limit.
const double nearly_infinite = std::nextafter(INFINITE, 0.0);

TEST(Event, TimeOutsThatDoNotWait) {
    Own own;
    for (double timeout :
         {0.0, -0.0, -1.0, -1e300, -std::numeric_limits<double>::infinity(), std::nan(""), 1e-9}) {
        EXPECT_LT(seconds([&] { EXPECT_FALSE(own.event.Wait(timeout)) << timeout; }), 0.5) << timeout;
    }
    Event_Set(own.handle);
    for (double timeout : {0.0, -1.0, std::nan(""), 0.01, 1e125, 1e300, nearly_infinite, INFINITE,
                           std::numeric_limits<double>::infinity()}) {
        EXPECT_TRUE(own.event.Wait(timeout)) << timeout;
    }
    EXPECT_TRUE(own.event.getIsSignaled());
    evtEvent never(nullptr);
    EXPECT_FALSE(never.getIsSignaled() || never.Wait(0.0));
    evtEvent always(new btkAlwaysEvent);
    EXPECT_TRUE(always.getIsSignaled() && always.Wait(0.0) && always.Wait(INFINITE));
}

TEST(Event, TimeOutsThatWait) {
    Own own;
    EXPECT_NEAR(seconds([&] { EXPECT_FALSE(own.event.Wait(0.15)); }), 0.2, 0.06);
    for (double timeout : {1.0e9, 1e125, 1e300, nearly_infinite, INFINITE}) {
        Own late;
        std::thread setter([&] {
            std::this_thread::sleep_for(60ms);
            Event_Set(late.handle);
        });
        EXPECT_GE(seconds([&] { EXPECT_TRUE(late.event.Wait(timeout)) << timeout; }), 0.05) << timeout;
        setter.join();
    }
}

TEST(Event, ArraysAnswerAPosition) {
    Own a, b, c(false);
    evtEvent never(nullptr);
    xauto<evtEventArray> events;
    EXPECT_EQ(evtEvent::Wait(&events, 0.0), 0);
    EXPECT_GE(seconds([&] { EXPECT_EQ(evtEvent::Wait(&events, 0.05), 0); }), 0.05);
    EXPECT_GE(seconds([&] { EXPECT_EQ(evtEvent::Wait(nullptr, 0.05), 0); }), 0.05);
    for (evtEvent *event : {static_cast<evtEvent *>(nullptr), &a.event, &never, &b.event, &c.event, &a.event})
        events.append(event);
    EXPECT_EQ(evtEvent::Wait(&events, 0.0), 0);
    Event_Set(c.handle);
    EXPECT_EQ(evtEvent::Wait(&events, INFINITE), 5);
    EXPECT_EQ(evtEvent::Wait(&events, 0.0), 0) << "the wait that reported it took the signal";
    Event_Set(b.handle);
    EXPECT_EQ(evtEvent::Wait(&events, 1.0), 4);
    Event_Set(a.handle);
    EXPECT_EQ(evtEvent::Wait(&events, 1.0), 2) << "of several the first";
    std::thread setter([&] { Event_Set(a.handle); });
    EXPECT_EQ(evtEvent::Wait(&events, INFINITE), 2);
    setter.join();
    EXPECT_EQ(events.getnseqelems(), 6);
    EXPECT_EQ(static_cast<xobject *>(events.getseqelem(1)), &a.event);
    EXPECT_TRUE(events.getseqelem(0).isnil());
}

// The system polls no more descriptors than the process may have.
TEST(Event, AWaitThatFailsHasNoEvent) {
    std::vector<std::unique_ptr<Own>> own;
    xauto<evtEventArray> events;
    for (int i = 0; i < 8; ++i) {
        own.push_back(std::make_unique<Own>(true, true));
        events.append(&own.back()->event);
    }
    rlimit before{}, few{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    few.rlim_cur = 4;
    few.rlim_max = before.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &few);
    Error_SetLast(0);
    int answer = evtEvent::Wait(&events, INFINITE), error = Error_GetLast();
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(answer, 0);
    EXPECT_NE(error, 0);
    EXPECT_EQ(evtEvent::Wait(&events, INFINITE), 1);
}

TEST(Event, RemovesEveryOccurrence) {
    std::vector<std::unique_ptr<Own>> own;
    for (int i = 0; i < 4; ++i)
        own.push_back(std::make_unique<Own>());
    std::mt19937 random(7);
    for (int round = 0; round < 200; ++round) {
        xauto<evtEventArray> events;
        std::vector<evtEvent *> model;
        for (auto count = random() % 12; count > 0; --count) {
            evtEvent *event = random() % 6 == 0 ? nullptr : &own[random() % 4]->event;
            events.append(event);
            model.push_back(event);
        }
        for (int i = -1; i < 4; ++i) {
            evtEvent *gone = i < 0 ? nullptr : &own[static_cast<std::size_t>(i)]->event;
            evtRemoveEvent(&events, gone);
            std::erase(model, gone);
            ASSERT_EQ(std::vector<evtEvent *>(events.begin(), events.end()), model);
            if (random() % 2) break;
        }
    }
    evtRemoveEvent(nullptr, nullptr);
}

TEST(Event, IsDeclared) {
    Own own;
    xobject *object = &own.event;
    EXPECT_STREQ(object->gettypename(), "eventlib::Event");
    EXPECT_STREQ(evtEventArray::getclassrtti()->gettypename(), "eventlib::EventArray");
    EXPECT_EQ(evtEventArray::getclassrtti()->getseqtype(), evtEvent::getclassrtti());
    EXPECT_FALSE(object->isrefcountable());
    EXPECT_EQ(evtEvent::cast(object), &own.event) << "through a virtual base";
    EXPECT_FALSE(object->lookupfield("IsSignaled").getbool());
    Event_Set(own.handle);
    EXPECT_TRUE(object->lookupfield("IsSignaled").getbool());
    std::unique_ptr<evtEventArray> made(evtEventArray::create());
    EXPECT_EQ(made->getarraysize(), 0);
    EXPECT_FALSE(made->isrefcountable());
}

// Each signal of an event without manual reset releases exactly one of the threads that wait for it.
TEST(Event, OneSignalReleasesOneThread) {
    Own own(false);
    std::atomic<int> released{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int k = 0; k < 50; ++k)
                if (own.event.Wait(INFINITE)) ++released;
        });
    }
    for (int set = 1; set <= 200; ++set) {
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
