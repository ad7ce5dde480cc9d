// Threads with a handle, and thread objects: ends of every kind, hooks, and what they leave behind.
#include <pthread.h>

#include <latch>
#include <thread>

#include <kelstdmt/kel.h>
#include <kelstdmt/netlib_thread.h>

#include "scarce_descriptors.h"
#include "scratch_folder.h"
#include "services/observing.h"

namespace {

using Work = std::function<int()>;
btkThreadHandle launch(Work &work) {
    return StrictThread_Launch([](void *of) { return (*static_cast<Work *>(of))(); }, &work, nullptr);
}

struct Telltale {
    std::atomic<bool> *gone = nullptr;
    ~Telltale() {
        if (gone) std::this_thread::sleep_for(std::chrono::milliseconds(5)), *gone = true;
    }
};
thread_local Telltale telltale;

TEST(StrictThread, TellsItsEndBehindItsThreadLocalObjectsHoweverItEnds) {
    enum way { returned, left, cancelled };
    for (way ending : {returned, left, cancelled}) {
        std::atomic<bool> gone{false}, go{false};
        Work work = [&] {
            telltale.gone = &gone;
            go.wait(false);
            if (ending == left) ::pthread_exit(nullptr);
            if (ending == cancelled) ::pthread_cancel(::pthread_self());
            // These outlast it: they come to their end, and none of them ends the program.
            const btkEventHandle event = Event_Create();
            Event_Set(event), Event_Reset(event), Event_Free(event);
            return ::pthread_testcancel(), 3;
        };
        const btkThreadHandle thread = launch(work);
        btkEvent end(new btkPROCESSEvent(thread));
        EXPECT_TRUE(StrictThread_CheckRunning(thread) && !end.IsSignaled());
        go = true, go.notify_all();
        int code = 0;
        EXPECT_TRUE(StrictThread_Wait(thread, nullptr) && gone) << "ending " << ending;
        EXPECT_TRUE(StrictThread_Wait(thread, &code) && end.IsSignaled());
        EXPECT_EQ(code, ending == returned ? 3 : kel::nil_int) << "ending " << ending;
        StrictThread_Free(thread);
        // The handle is nothing now, even where its number has come to something else.
        const int taken = ::dup(0);
        StrictThread_Free(thread);
        EXPECT_FALSE(StrictThread_Wait(thread, &code));
        EXPECT_EQ(::close(taken), 0) << "letting go twice closed another descriptor";
    }
}

TEST(StrictThread, LeavesNothingBehind) {
    const auto before = open_descriptors();
    for (int launched = 0; launched < 10'000; launched += 100) {
        std::latch done(100);
        Work count = [&] { return done.count_down(), 0; };
        for (int n = 0; n < 100; ++n) {
            const btkThreadHandle thread = launch(count);
            if (n % 2) StrictThread_Wait(thread, nullptr);
            StrictThread_Free(thread);  // others while they run
        }
        done.wait();
    }
    EXPECT_EQ(open_descriptors(), before);
}

struct Recorder : netThread {
    ~Recorder() override { Close(); }
    bool OnPreStart() override { return order += "pre ", !refuses && netThread::OnPreStart(); }
    int OnStart() override { return body ? body() : SignalStream()->ReadInt(); }
    void OnPostStart() override { order += "post "; }
    void OnClose() override { order += "close ", netThread::OnClose(); }

    Work body;
    bool refuses = false;
    std::string order;
};

// Several at once, whose ends are awaited together in another order than that of the list.
TEST(ThreadObject, CallsItsHooksInOrderAndTellsItsEnd) {
    const auto before = open_descriptors();
    Recorder threads[20];
    for (int round = 1; round <= 3; ++round) {
        std::vector<std::unique_ptr<evtEvent>> events;
        evtEventArray array;
        for (Recorder &thread : threads) {
            thread.refuses = true;
            EXPECT_TRUE(!thread.Start() && thread.IsExited());
            thread.refuses = false, thread.order.clear();
            EXPECT_TRUE(thread.Start() && !thread.Start() && !thread.IsExited());
            array.append(events.emplace_back(new evtEvent(thread.GetExitEvent())).get());
        }
        for (int n = 20; n > 0; --n) {
            Recorder &thread = threads[n - 1];
            thread.ControlStream()->WriteInt(round + n);
            thread.ControlStream()->Flush();
            ASSERT_EQ(evtEvent::Wait(&array, 60), n);
            array.removerange(n - 1, n);
            EXPECT_TRUE(thread.WaitExitCode() == round + n && thread.WaitExitCode() == round + n);
            thread.Close(), thread.Close();
            EXPECT_EQ(thread.order, "pre post close ");
        }
    }
    EXPECT_EQ(open_descriptors(), before);
    // What leaves the body of one is reported, on the thread.
    internal_errors reports;
    threads[0].body = []() -> int { kelhThrowNegativeIndex(-3); };
    EXPECT_TRUE(threads[0].Start());
    EXPECT_EQ(threads[0].WaitExitCode(), kel::nil_int);
    EXPECT_TRUE(reports.take().starts_with("An exception left a thread: kellib::XNegativeIndex: "));
}

// Two for its pipe and one for its end: what a start that failed has taken does not stand in the way of the
// next one.
TEST(ThreadObject, StartsOnceThereAreThreeDescriptors) {
    Scarcity few(0);
    Recorder thread;
    thread.body = [] { return 7; };
    for (int left = 0; left <= 3; ++left, few.GiveOne())
        EXPECT_EQ(thread.Start(), left == 3) << left;
    EXPECT_EQ(thread.WaitExitCode(), 7);
}

}  // namespace
