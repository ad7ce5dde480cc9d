// Waits over real descriptors, clocks and signals.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <deque>
#include <functional>
#include <thread>

#include <kelstdmt/vumrt_stream.h>

namespace {

const btkTimeval step(0, 10000);

double elapsed(const std::function<void()> &work) {
    auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

int wait(std::initializer_list<btkEvent *> events, double seconds) {
    btkEvent::List list;
    for (btkEvent *event : events)
        list.Append(event);
    btkTimeval timeout;
    timeout.init(seconds);
    return btkEvent::Wait(list, timeout, step);
}

struct own_event {
    explicit own_event(bool manual = true, bool initial = false)
        : handle(Event_Create(manual, initial)), event(new btkEVENTEvent(handle)) {}
    ~own_event() { Event_Free(handle); }
    btkEventHandle handle;
    btkEvent event;
};

TEST(Event, TheFirstSignalledInTheListIsReported) {
    own_event quiet, loud(true, true);
    btkEvent always(new btkAlwaysEvent), nothing(nullptr);
    EXPECT_EQ(wait({&quiet.event, &loud.event, &always}, 5), 2);
    EXPECT_EQ(wait({&quiet.event, &always, &loud.event}, 5), 2);
    EXPECT_EQ(wait({nullptr, &nothing, &quiet.event, &loud.event, &loud.event}, 5), 4);
    EXPECT_EQ(wait({&quiet.event, &quiet.event}, 0), 0);
    EXPECT_EQ(wait({&quiet.event}, -3), 0);
    EXPECT_FALSE(nothing.IsSignaled() || quiet.event.IsSignaled());
    EXPECT_TRUE(always.IsSignaled() && loud.event.IsSignaled());
    Event_Reset(loud.handle);
    EXPECT_FALSE(loud.event.IsSignaled());
    double seconds = elapsed([] { EXPECT_EQ(wait({}, 0.05), 0); });
    EXPECT_NEAR(seconds, 0.05, 0.04);
}

TEST(Event, OneThreadGetsASignalThatResetsItself) {
    own_event turn(false);
    std::atomic<int> got{0};
    std::deque<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] { got += wait({&turn.event}, 0.3); });
    Event_Set(turn.handle);
    for (auto &thread : threads)
        thread.join();
    EXPECT_EQ(got, 1);
    EXPECT_FALSE(turn.event.IsSignaled());
    Event_Set(turn.handle);
    EXPECT_TRUE(turn.event.IsSignaled() && turn.event.IsSignaled()) << "asking takes nothing";
}

int ticks = 0;

TEST(Event, SignalsNeitherShortenNorLengthenAWait) {
    struct sigaction before {
    }, mine{};
    mine.sa_handler = [](int) { ++ticks; };
    ::sigaction(SIGALRM, &mine, &before);
    itimerval often{{0, 5000}, {0, 5000}}, never{};
    ::setitimer(ITIMER_REAL, &often, nullptr);
    own_event quiet;
    double seconds = elapsed([&] { EXPECT_EQ(wait({&quiet.event}, 0.2), 0); });
    ::setitimer(ITIMER_REAL, &never, nullptr);
    ::sigaction(SIGALRM, &before, nullptr);
    EXPECT_GE(seconds, 0.2);
    EXPECT_LT(seconds, 0.35);
    EXPECT_GT(ticks, 5);
}

TEST(Event, LongWaitsEndWithTheSignal) {
    own_event late;
    for (double limit : {1073741824.0, 1e125, 1e300}) {
        std::thread sets([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
            Event_Set(late.handle);
        });
        EXPECT_EQ(wait({&late.event}, limit), 1);
        sets.join();
        Event_Reset(late.handle);
    }
    EXPECT_EQ(wait({&late.event}, std::nan("")), 0);
}

TEST(Event, CoversAThousandAndTellsFailure) {
    std::deque<own_event> many;
    btkEvent::List list;
    for (int i = 0; i < 900; ++i)
        list.Append(&many.emplace_back().event);
    EXPECT_EQ(btkEvent::Wait(list, btkTimeval(), step), 0);
    Event_Set(many[899].handle);
    EXPECT_EQ(btkEvent::Wait(list, btkTimeval(1, 0), step), 900);
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    rlimit low{100, limit.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &low);
    EXPECT_LT(btkEvent::Wait(list, btkTimeval(1, 0), step), 0);
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

TEST(Event, WatchesProcessesAndDescriptors) {
    pid_t child = ::fork();
    if (child == 0) {
        ::usleep(50000);
        ::_exit(0);
    }
    int handle = static_cast<int>(::syscall(SYS_pidfd_open, child, 0));
    ASSERT_GE(handle, 0);
    btkEvent ended(new btkPROCESSEvent(handle));
    EXPECT_FALSE(ended.IsSignaled());
    EXPECT_EQ(wait({&ended}, 5), 1);
    ::waitpid(child, nullptr, 0);
    ::close(handle);

    int pair[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    btkEvent input(new btkSelectEvent(pair[0], 0)), output(new btkSelectEvent(pair[0], 1));
    EXPECT_EQ(wait({&input, &output}, 0), 2);
    EXPECT_EQ(::write(pair[1], "x", 1), 1);
    EXPECT_EQ(wait({&input, &output}, 0), 1);
    ::close(pair[1]);
    char byte;
    EXPECT_EQ(::read(pair[0], &byte, 1), 1);
    EXPECT_TRUE(input.IsSignaled()) << "the end counts";
    ::close(pair[0]);
}

}  // namespace
