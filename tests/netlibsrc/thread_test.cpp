// Threads with a handle, and thread objects: ends of every kind, hooks, and what they leave behind.
#include <pthread.h>

#include <latch>
#include <span>
#include <thread>

#include <kelstdmt/kel.h>
#include <kelstdmt/netlib_thread.h>
#include <kelstdmt/vumrt_process.h>
#include <kelstdmt/vumrt_socket.h>
#include <kelstdmt/vumtext.h>

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

// Sanitizers are not told how a cancelled thread leaves what they put around a call of the system: they warn
// of its frames, and of locks that they have not seen it take.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool is_sanitized = true;
#else
constexpr bool is_sanitized = false;
#endif

struct StrictThread : ScratchFolder {};

TEST_F(StrictThread, TellsItsEndBehindItsThreadLocalObjectsHoweverItEnds) {
    btkAcceptSocket listener;
    btkStreamSocket here, there;
    ASSERT_TRUE(listener.Listen(0) && here.Connect("127.0.0.1", listener.GetPort(), btkTimeval(60, 0)));
    ASSERT_TRUE(listener.Wait(btkTimeval(60, 0), 1) == 1 && listener.Accept(there));
    lockFileBuf holder, other;
    ASSERT_FALSE(holder.Open(path.c_str(), lockFileBuf::Out));
    btkOutputPipe out, full;
    btkInputPipe in, silent;
    btkProcessHandle process = -1;
    unsigned long id = 0;
    ASSERT_TRUE(Process_Launch(&process, &id, "sleep 30", nullptr, -1, -1, -1, 0));
    std::string large(10'000'000, 'x');
    const auto size = static_cast<unsigned>(large.size());
    btkEvent *told;
    // A thread that was cancelled ends in the first wait of the library that it comes to.
    const std::pair<const char *, std::function<void()>> endings[] = {
        {"returned", [] {}},
        {"left", [] { ::pthread_exit(nullptr); }},
        {"cancelled", [] { ::pthread_testcancel(); }},
        {"in a wait", [] { evtEvent(nullptr).Wait(INFINITE); }},
        {"in a set", [&] { btkEventSet().Wait(btkTimeval(1 << 20, 0), &told, 1); }},
        {"reading a pipe", [&] { xipipebuf(silent).GetStreamBuf()->sgetc(); }},
        {"writing a pipe", [&] { xopipebuf(full).GetStreamBuf()->sputn(large.data(), size); }},
        {"receiving", [&] { here.Recv(large.data(), size); }},
        {"sending", [&] { here.Send(large.data(), size); }},
        {"locking", [&] { other.Open(path.c_str(), lockFileBuf::Out, 0666, 1000); }},
        {"awaiting a process", [&] { Process_Wait(process, nullptr, true, false); }}};
    for (const auto &[name, ending] : std::span(endings).first(is_sanitized ? 3 : std::size(endings))) {
        SCOPED_TRACE(name);
        const bool returns = &ending == &endings[0].second, left = &ending == &endings[1].second;
        std::atomic<bool> gone{false}, go{false};
        ASSERT_TRUE(btkAnonymousPipe::Create(out, in) && btkAnonymousPipe::Create(full, silent));
        auto unsent = std::make_unique<xopipebuf>(::dup(out.GetHandle()));
        auto unwritten = std::make_unique<btkFileBuf>();
        ASSERT_TRUE(unwritten->Open(at("kept").c_str(), btkFileBuf::Out) && unwritten->sputc('x') == 'x');
        unsent->GetStreamBuf()->sputc('x');
        Work work = [&, &end_of_it = ending] {
            telltale.gone = &gone;
            go.wait(false);
            if (!returns && !left) ::pthread_cancel(::pthread_self());
            // These outlast it: they come to their end, and none of them ends the program.
            const btkEventHandle event = Event_Create();
            Event_Set(event), Event_Reset(event), Event_Free(event);
            unsent.reset(), unwritten.reset();
            return end_of_it(), 3;
        };
        const btkThreadHandle thread = launch(work);
        btkEvent end(new btkPROCESSEvent(thread));
        EXPECT_TRUE(StrictThread_CheckRunning(thread) && !end.IsSignaled());
        go = true, go.notify_all();
        int code = 0;
        EXPECT_TRUE(StrictThread_Wait(thread, nullptr) && gone);
        EXPECT_TRUE(StrictThread_Wait(thread, &code) && end.IsSignaled());
        EXPECT_EQ(code, returns ? 3 : kel::nil_int);
        EXPECT_TRUE(xipipebuf(in).GetStreamBuf()->sgetc() == 'x' && get("kept") == "x");
        StrictThread_Free(thread);
        // The handle is nothing now, even where its number has come to something else.
        const int taken = ::dup(0);
        StrictThread_Free(thread);
        EXPECT_FALSE(StrictThread_Wait(thread, &code));
        EXPECT_EQ(::close(taken), 0) << "letting go twice closed another descriptor";
    }
    EXPECT_TRUE(Process_Kill(process) && Process_Wait(process, nullptr, true, true));
}

TEST_F(StrictThread, LeavesNothingBehind) {
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
