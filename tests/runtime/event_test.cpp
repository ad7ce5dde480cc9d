// Waits over real descriptors, clocks and signals.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <deque>

#include <kelstdmt/vumrt_stream.h>

namespace {

const btkTimeval step(0, 10000);

int wait(std::initializer_list<btkEvent *> events, double seconds) {
    btkEvent::List list;
    for (btkEvent *event : events)
        list.Append(event);
    btkTimeval timeout;
    timeout.init(seconds);
    return btkEvent::Wait(list, timeout, step);
}

struct own_event {
    own_event() : handle(Event_Create(true, false)), event(new btkEVENTEvent(handle)) {}
    ~own_event() { Event_Free(handle); }
    btkEventHandle handle;
    btkEvent event;
};

int ticks = 0;

TEST(Event, SignalsNeitherShortenNorLengthenAWait) {
    struct sigaction before {
    }, mine{};
    mine.sa_handler = [](int) { ++ticks; };
    ::sigaction(SIGALRM, &mine, &before);
    itimerval often{{0, 5000}, {0, 5000}}, never{};
    ::setitimer(ITIMER_REAL, &often, nullptr);
    own_event quiet;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(wait({&quiet.event}, 0.2), 0);
    std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    ::setitimer(ITIMER_REAL, &never, nullptr);
    ::sigaction(SIGALRM, &before, nullptr);
    EXPECT_GE(seconds.count(), 0.2);
    EXPECT_LT(seconds.count(), 0.35);
    EXPECT_GT(ticks, 5);
}

TEST(Event, CoversAThousand) {
    std::deque<own_event> many;
    btkEvent::List list;
    for (int i = 0; i < 900; ++i)
        list.Append(&many.emplace_back().event);
    EXPECT_EQ(btkEvent::Wait(list, btkTimeval(), step), 0);
    Event_Set(many[899].handle);
    EXPECT_EQ(btkEvent::Wait(list, btkTimeval(1, 0), step), 900);
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
