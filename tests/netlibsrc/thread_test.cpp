// Threads with a handle, and thread objects: their hooks, ends of every kind, and what they leave behind.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <kelstdmt/kel.h>
#include <kelstdmt/netlib_thread.h>

#include "scratch_folder.h"

namespace {

auto open_descriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

using Work = std::function<int()>;
int run(void *work) {
    return (*static_cast<Work *>(work))();
}
btkThreadHandle launch(Work &work) {
    return StrictThread_Launch(run, &work, nullptr);
}

// A gate that threads wait at.
class Gate {
public:
    Gate() : m_event(Event_Create()) {}
    ~Gate() { Event_Free(m_event); }
    void Open() const { Event_Set(m_event); }
    void Pass() const {
        btkEvent event(new btkEVENTEvent(m_event));
        btkEvent::List list;
        list.Append(&event);
        btkEvent::Wait(list, btkTimeval(60, 0), btkTimeval());
    }

private:
    btkEventHandle m_event;
};

std::string last_report;
std::mutex report_guard;
void keep_report(const char *message, const char *source, int) {
    std::lock_guard lock(report_guard);
    last_report = std::string(message) + " @ " + source;
}

TEST(StrictThread, TellsItsEndAsOftenAsItIsAsked) {
    Gate gate;
    Work work = [&] { return gate.Pass(), -7; };
    const btkThreadHandle thread = launch(work);
    ASSERT_GE(thread, 0);
    btkEvent end(new btkPROCESSEvent(thread));
    EXPECT_TRUE(StrictThread_CheckRunning(thread));
    EXPECT_FALSE(end.IsSignaled());
    std::vector<std::thread> waiting;
    std::atomic<int> told{0};
    for (int n = 0; n < 4; ++n)
        waiting.emplace_back([&] {
            int code = 0;
            if (StrictThread_Wait(thread, &code)) told += code;
        });
    gate.Open();
    for (std::thread &one : waiting)
        one.join();
    EXPECT_EQ(told, -28);
    EXPECT_TRUE(end.IsSignaled());
    EXPECT_FALSE(StrictThread_CheckRunning(thread));
    StrictThread_Free(thread);
    // A handle that was let go of is nothing, even where its number has come to something else.
    const int taken = ::dup(0);
    int code = 5;
    EXPECT_FALSE(StrictThread_Wait(thread, &code));
    EXPECT_FALSE(StrictThread_CheckRunning(thread));
    StrictThread_Free(thread);
    StrictThread_Free(-1);
    EXPECT_EQ(code, 5);
    EXPECT_EQ(::close(taken), 0) << "letting go of a handle twice closed another descriptor";
    EXPECT_EQ(StrictThread_Launch(nullptr, nullptr, nullptr), -1);
}

// The end is told when the thread's own objects are gone too, however it ends.
struct Telltale {
    std::atomic<bool> *gone = nullptr;
    ~Telltale() {
        if (!gone) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        *gone = true;
    }
};
thread_local Telltale telltale;

TEST(StrictThread, EndsBehindItsThreadLocalObjectsHoweverItEnds) {
    enum way { returned, left, cancelled };
    for (way ending : {returned, left, cancelled}) {
        std::atomic<bool> gone{false};
        std::atomic<pthread_t> self{};
        Gate ready;
        Work work = [&] {
            telltale.gone = &gone;
            self = ::pthread_self();
            int ignored;
            ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &ignored);  // not within noexcept functions
            ready.Open();
            ::pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &ignored);
            if (ending == left) ::pthread_exit(nullptr);
            while (ending == cancelled)
                ::pthread_testcancel();
            return 3;
        };
        const btkThreadHandle thread = launch(work);
        ready.Pass();
        if (ending == cancelled) ::pthread_cancel(self);
        int code = 0;
        EXPECT_TRUE(StrictThread_Wait(thread, &code));
        EXPECT_TRUE(gone) << "ending " << ending;
        EXPECT_EQ(code, ending == returned ? 3 : kel::nil_int) << "ending " << ending;
        StrictThread_Free(thread);
    }
}

TEST(StrictThread, LeavesNothingBehind) {
    const int rounds = 10'000;
    Work nothing = [] { return 1; };
    StrictThread_Free(launch(nothing));
    const auto before = open_descriptors();
    std::atomic<int> done{0};
    Work count = [&] { return ++done, 0; };
    for (int n = 0; n < rounds; ++n) {
        const btkThreadHandle thread = launch(count);
        ASSERT_GE(thread, 0) << "at " << n << ": " << Error_GetText(Error_GetLast());
        // Every other one is let go of while it may still run.
        if (n % 2) {
            ASSERT_TRUE(StrictThread_Wait(thread, nullptr));
        }
        StrictThread_Free(thread);
    }
    EXPECT_EQ(open_descriptors(), before);
    while (done < rounds)
        std::this_thread::yield();
}

TEST(StrictThread, SaysWhyItCannotStart) {
    EXPECT_EQ(wait_for(start([] {
                  Work nothing = [] { return 0; };
                  rlimit none{0, 0}, usual{};
                  ::getrlimit(RLIMIT_NOFILE, &usual);
                  none.rlim_max = usual.rlim_max;
                  ::setrlimit(RLIMIT_NOFILE, &none);
                  if (launch(nothing) != -1) return 1;
                  if (Error_GetLast() != 4) return 2;
                  ::setrlimit(RLIMIT_NOFILE, &usual);
                  // A stack that no memory holds.
                  pthread_attr_t huge;
                  ::pthread_attr_init(&huge);
                  if (::pthread_attr_setstacksize(&huge, std::size_t{1} << (sizeof(void *) * 8 - 2)) != 0)
                      return 3;
                  ::pthread_setattr_default_np(&huge);
                  const auto before = open_descriptors();
                  if (launch(nothing) != -1) return 4;
                  if (Error_GetLast() != 1816) return 5;
                  return open_descriptors() == before ? 0 : 6;
              })),
              0);
}

// Thread objects -----------------------------------------------------------------------------------

struct Recorder : netThread {
    ~Recorder() override { Close(); }
    bool OnPreStart() override {
        order += "pre ";
        return !refuses && netThread::OnPreStart();
    }
    int OnStart() override { return body(*this); }
    void OnPostStart() override { order += "post "; }
    void OnClose() override {
        order += "close ";
        netThread::OnClose();
    }
    using netThread::SignalStream;

    std::function<int(Recorder &)> body;
    bool refuses = false;
    std::string order;
};

TEST(ThreadObject, CallsItsHooksInOrderAndCanBeStartedAgain) {
    const auto before = open_descriptors();
    Recorder thread;
    thread.body = [](Recorder &self) { return self.SignalStream()->ReadInt(); };
    EXPECT_TRUE(std::unique_ptr<btkBaseEvent>(thread.GetExitEvent())->IsReady());
    EXPECT_EQ(thread.ControlStream(), nullptr);
    thread.refuses = true;
    EXPECT_FALSE(thread.Start());
    thread.refuses = false;
    for (int round = 1; round <= 3; ++round) {
        thread.order.clear();
        ASSERT_TRUE(thread.Start());
        EXPECT_FALSE(thread.Start()) << "a second time";
        EXPECT_FALSE(thread.IsExited());
        evtEvent end(thread.GetExitEvent());
        EXPECT_FALSE(end.Wait(0));
        thread.ControlStream()->WriteInt(round);
        thread.ControlStream()->Flush();
        EXPECT_TRUE(end.Wait(60));
        EXPECT_TRUE(thread.IsExited());
        EXPECT_EQ(thread.WaitExitCode(), round);
        EXPECT_EQ(thread.GetExitCode(), round);
        EXPECT_TRUE(thread.IsExited());
        EXPECT_TRUE(std::unique_ptr<btkBaseEvent>(thread.GetExitEvent())->IsReady());
        thread.Close();
        thread.Close();
        EXPECT_EQ(thread.order, "pre post close ");
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST(ThreadObject, EndsAreAwaitedTogetherWithOtherEvents) {
    constexpr int count = 20;
    std::vector<std::unique_ptr<Recorder>> threads;
    std::vector<std::unique_ptr<evtEvent>> events;
    evtEventArray array;
    const btkEventHandle never = Event_Create();
    events.push_back(std::make_unique<evtEvent>(new btkEVENTEvent(never)));
    array.append(events.back().get());
    for (int n = 1; n <= count; ++n) {
        threads.push_back(std::make_unique<Recorder>());
        threads.back()->body = [](Recorder &self) { return self.SignalStream()->ReadInt(); };
        ASSERT_TRUE(threads.back()->Start());
        events.push_back(std::make_unique<evtEvent>(threads.back()->GetExitEvent()));
        array.append(events.back().get());
    }
    for (int n = count; n >= 1; --n) {
        Recorder &thread = *threads[static_cast<std::size_t>(n - 1)];
        thread.ControlStream()->WriteInt(n);
        thread.ControlStream()->Flush();
        ASSERT_EQ(evtEvent::Wait(&array, 60), n + 1);
        EXPECT_EQ(thread.WaitExitCode(), n);
        evtRemoveEvent(&array, events[static_cast<std::size_t>(n)].get());
    }
    EXPECT_EQ(evtEvent::Wait(&array, 0), 0);
    Event_Free(never);
}

TEST(ThreadObject, ReportsWhatLeavesItsBody) {
    const btkAbortHandler usual = btkSetAbortHandler(keep_report);
    const std::pair<std::function<int(Recorder &)>, const char *> cases[] = {
        {[](Recorder &) -> int { throw std::runtime_error("lost"); },
         "An exception left a thread: lost @ netlibsrc/thread"},
        {[](Recorder &) -> int { throw 5; },
         "An exception left a thread: of an unknown type @ netlibsrc/thread"},
        {[](Recorder &) -> int { kelhThrowNegativeIndex(-3); },
         "An exception left a thread: kellib::XNegativeIndex: "},
        {[](Recorder &) -> int { ::pthread_exit(nullptr); }, ""}};
    for (const auto &[body, report] : cases) {
        last_report.clear();
        Recorder thread;
        thread.body = body;
        ASSERT_TRUE(thread.Start());
        EXPECT_EQ(thread.WaitExitCode(), kel::nil_int);
        EXPECT_EQ(last_report.substr(0, std::string_view(report).size()), report);
        EXPECT_EQ(last_report.empty(), *report == 0) << last_report;
    }
    btkSetAbortHandler(usual);
}

}  // namespace
