// Threads with a handle, and thread objects: ends of every kind, hooks, and what they leave behind.
#include <pthread.h>
#include <sys/resource.h>

#include <atomic>
#include <latch>
#include <thread>
#include <vector>

#include <kelstdmt/kel.h>
#include <kelstdmt/netlib_thread.h>

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
        EXPECT_FALSE(StrictThread_CheckRunning(thread));
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
    std::vector<btkThreadHandle> wave(100);
    for (int launched = 0; launched < 10'000; launched += 100) {
        std::latch done(100);
        Work count = [&] { return done.count_down(), 0; };
        for (btkThreadHandle &thread : wave)
            thread = launch(count);
        // The second half is let go of while it runs.
        for (std::size_t n = wave.size(); n-- > 0;)
            StrictThread_Free(n >= 50 || StrictThread_Wait(wave[n], nullptr) ? wave[n] : -1);
        done.wait();
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST(StrictThread, SaysWhyItCannotStart) {
    const auto work = [] {
        Work nothing = [] { return 0; };
        rlimit usual{};
        ::getrlimit(RLIMIT_NOFILE, &usual);
        const rlimit none{0, usual.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &none);
        if (launch(nothing) != -1 || Error_GetLast() != 4) return 1;
        ::setrlimit(RLIMIT_NOFILE, &usual);
        pthread_attr_t huge;  // a stack that no memory holds
        ::pthread_attr_init(&huge);
        ::pthread_attr_setstacksize(&huge, std::size_t{3} << (sizeof(void *) * 8 - 2));
        if (::pthread_setattr_default_np(&huge) != 0) return 2;
        const auto before = open_descriptors();
        return launch(nothing) == -1 && Error_GetLast() == 1816 && open_descriptors() == before ? 0 : 3;
    };
    EXPECT_EQ(wait_for(start(work)), 0);
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

// Twenty at once, whose ends are awaited together in another order than that of the list, three times each.
TEST(ThreadObject, CallsItsHooksInOrderAndTellsItsEnd) {
    constexpr int count = 20;
    const auto before = open_descriptors();
    std::vector<Recorder> threads(count);
    for (int round = 1; round <= 3; ++round) {
        std::vector<std::unique_ptr<evtEvent>> events;
        evtEventArray array;
        for (Recorder &thread : threads) {
            thread.refuses = true;
            EXPECT_TRUE(!thread.Start() && thread.IsExited());
            events.emplace_back(new evtEvent(thread.GetExitEvent()));
            EXPECT_TRUE(events.back()->getIsSignaled());
            thread.refuses = false, thread.order.clear();
            ASSERT_TRUE(thread.Start());
            EXPECT_FALSE(thread.Start() || thread.IsExited());
            array.append(events.emplace_back(new evtEvent(thread.GetExitEvent())).get());
        }
        for (int n = count; n > 0; --n) {
            Recorder &thread = threads[static_cast<std::size_t>(n - 1)];
            thread.ControlStream()->WriteInt(round + n);
            thread.ControlStream()->Flush();
            ASSERT_EQ(evtEvent::Wait(&array, 60), n);
            array.removerange(n - 1, n);
            for (int time = 0; time < 2; ++time)
                EXPECT_EQ(thread.WaitExitCode(), round + n);
            EXPECT_TRUE(thread.IsExited());
            thread.Close(), thread.Close();
            EXPECT_EQ(thread.order, "pre post close ");
        }
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST(ThreadObject, ReportsWhatLeavesItsBody) {
    internal_errors reports;  // written on the thread, read behind its end
    Recorder thread;
    const auto report = [&](Work body) {
        thread.body = std::move(body);
        EXPECT_TRUE(thread.Start());
        EXPECT_EQ(thread.WaitExitCode(), kel::nil_int);
        thread.Close();
        const std::string told = reports.take();
        return told.substr(0, told.rfind(": "));
    };
    EXPECT_EQ(report([]() -> int { throw 5; }), "An exception left a thread");
    EXPECT_EQ(report([]() -> int { kelhThrowNegativeIndex(-3); }),
              "An exception left a thread: kellib::XNegativeIndex");
    EXPECT_EQ(report([]() -> int { ::pthread_exit(nullptr); }), "");
}

}  // namespace
