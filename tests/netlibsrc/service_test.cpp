// Services in processes of their own: what a manager on a real socket is told, what signals do and leave, and
// daemons with their files.
#include <signal.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>

#include <stdexcept>
#include <thread>

#include <kelstdmt/kel.h>
#include <kelstdmt/netlib_service.h>

#include "scratch_folder.h"

namespace {

// The thread sanitizer keeps a signal that comes right before a wait until the wait is over.
#if defined(__SANITIZE_THREAD__)
constexpr double at_most = 0.1;
#else
constexpr double at_most = INFINITE;
#endif

using Body = std::function<void()>;
bool run(const Body &body) {
    struct Callback : netService_DoService_cb {
        void DoService(netService *service, xrchandle<xstringsequence> parameters) override {
            if (service->getDisplayName() == "name" && parameters->get(1) == "two words") (*work)();
        }
        const Body *work;
    } callback;
    callback.work = &body;
    char one[] = "one", two[] = "two words", *arguments[] = {one, two, nullptr};
    std::unique_ptr<netService> service(
        netService::Create("name", netService::ExtractParms(2, arguments), xstrNullStr));
    service->setDoService(&callback);
    return service->Run() == 1;
}
// A body as a server has it: it waits for what is asked of it.
void serve() {
    netService::ReportRunning();
    std::unique_ptr<evtEvent> asked(netService::StateEvent());
    while (!netService::IsStopped()) {
        asked->Wait(at_most);
        if (netService::IsPaused()) netService::DoPause();
    }
}

void previous_handler(int) {}
auto disposition(int number) {
    struct sigaction action {};
    ::sigaction(number, nullptr, &action);
    return action.sa_handler;
}
// Who has asked for the manager stays with the answer, so every service here runs in a child.

using Service = ScratchFolder;

TEST_F(Service, TellsItsManagerWhatItDoes) {
    if (at_most < 1) GTEST_SKIP() << "signals would be kept back";
    for (const std::string &name : {path, "@" + path + " abstract"}) {
        const int manager = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{AF_UNIX, {}};
        name.copy(address.sun_path, sizeof address.sun_path - 1);
        if (name[0] == '@') address.sun_path[0] = '\0';
        const auto size = sizeof address.sun_family + name.size() + (name[0] == '/');
        ASSERT_EQ(::bind(manager, reinterpret_cast<sockaddr *>(&address), static_cast<socklen_t>(size)), 0);
        const timeval patience{60, 0};
        ::setsockopt(manager, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        ::setenv("NOTIFY_SOCKET", name.c_str(), 1);
        const pid_t child = start([] {
            for (double seconds : {2.5, -1.0})
                netService::ReportStarting(seconds);
            const bool ran = run(serve);
            netService::ReportPaused();
            return ran && !netService::IsStopped() ? 0 : 1;
        });
        const auto told = [&](int signal, const std::string &expected) {
            char text[512];
            if (signal) ::kill(child, signal);
            const ssize_t count = ::recv(manager, text, sizeof text, 0);
            EXPECT_EQ(std::string(text, count < 0 ? 0 : static_cast<std::size_t>(count)), expected);
        };
        told(0, "STATUS=Starting\nEXTEND_TIMEOUT_USEC=2500000");
        told(0, "STATUS=Starting");
        told(0, "READY=1\nSTATUS=Running");
        told(SIGUSR1, "STATUS=Paused");
        ::kill(child, SIGUSR1);  // again: nothing new
        told(SIGUSR2, "READY=1\nSTATUS=Running");
        told(SIGUSR1, "STATUS=Paused");
        told(SIGTERM, "STOPPING=1\nSTATUS=Stopping");
        told(0, "STATUS=Paused");  // the end is told once
        EXPECT_EQ(wait_for(child), 0);
        ::close(manager);
    }
}

// Managers that are gone, and addresses that are none, are no managers that anybody waits for.
TEST_F(Service, AnswersSignalsWhileItRunsAndPutsThemBack) {
    for (const std::string &manager : {std::string(), std::string("@"), path})
        EXPECT_EQ(
            in_child([&] {
                ::setenv("NOTIFY_SOCKET", manager.c_str(), 1);
                const bool foreground = manager.size() < 2;
                ::signal(SIGTERM, previous_handler);
                sigset_t blocked;
                ::sigemptyset(&blocked), ::sigaddset(&blocked, SIGTERM);
                ::sigprocmask(SIG_BLOCK, &blocked, nullptr);
                netService::RequestStop();  // of none that runs
                for (int number : {SIGTERM, foreground ? SIGINT : SIGTERM})
                    EXPECT_TRUE(run([&] {
                        EXPECT_FALSE(netService::IsStopped() || run([] {}));
                        EXPECT_EQ(Error_GetLast(), 183);
                        EXPECT_EQ(disposition(SIGINT) == SIG_DFL, !foreground);
                        ::raise(number);
                        serve();
                    }));
                EXPECT_THROW(run([] { throw std::runtime_error("out"); }), std::runtime_error);
                EXPECT_TRUE(disposition(SIGTERM) == previous_handler && disposition(SIGINT) == SIG_DFL);
                // What somebody else puts there meanwhile stays, and so does an ignored interrupt.
                ::signal(SIGINT, SIG_IGN);
                run([] { ::signal(SIGUSR2, disposition(SIGINT) == SIG_IGN ? previous_handler : SIG_DFL); });
                EXPECT_EQ(disposition(SIGUSR2), previous_handler);
                ::sigprocmask(SIG_BLOCK, nullptr, &blocked);
                EXPECT_TRUE(::sigismember(&blocked, SIGTERM) && !::sigismember(&blocked, SIGUSR1));
            }),
            0);
}

// Requests from all sides: nothing waits for ever, and in the end the event says what is so.
void storm() {
    const auto send = [](pthread_t to, int every) {
        for (int n = 1; n <= 20'000; ++n)
            ::pthread_kill(to ? to : ::pthread_self(), n % every ? SIGUSR1 : SIGUSR2);
    };
    const auto pause = [] {
        for (int n = 0; n < 1'000; ++n)
            netService::DoPause();
    };
    std::thread there(send, ::pthread_self(), 2), here(send, pthread_t{}, 4), pausing(pause);
    std::unique_ptr<evtEvent> asked(netService::StateEvent());
    for (int n = 0; n < 10'000; ++n, asked->Wait(0))
        netService::IsPaused();
    there.join(), here.join();
    ::raise(SIGUSR2);
    pausing.join();
    EXPECT_TRUE(netService::IsReleased() && !netService::IsPaused() && !asked->getIsSignaled());
    ::raise(SIGUSR1), ::usleep(1);
    EXPECT_TRUE(asked->Wait(60) && netService::IsPaused());
    netService::RequestStop();
    netService::DoPause();
    EXPECT_TRUE(asked->getIsSignaled());
}

TEST_F(Service, KeepsUpWithAStormOfRequests) {
    EXPECT_EQ(in_child([] {
                  ::alarm(120);
                  ::signal(SIGUSR1, SIG_IGN), ::signal(SIGUSR2, SIG_IGN);  // those that come late
                  EXPECT_TRUE(run(storm));
              }),
              0);
}

struct Daemon : ScratchFolder {
    // Runs the work as a daemon; exit code and output of who called for it.
    int Call(const Body &work, const char *file) {
        int ends[2];
        EXPECT_EQ(::pipe(ends), 0);
        const pid_t caller = start([&] {
            ::dup2(ends[1], STDOUT_FILENO), ::dup2(ends[1], STDERR_FILENO);
            ::close(ends[0]), ::close(ends[1]);
            ::signal(SIGCHLD, SIG_IGN);
            std::string reason;
            if (!kel::become_daemon(file, &reason))
                return std::fprintf(stderr, "%s (%d)", reason.c_str(), Error_GetLast()), 99;
            if (disposition(SIGCHLD) == SIG_IGN) work();
            std::exit(0);
        });
        ::close(ends[1]);
        said.clear();
        char block[256];
        while (const ssize_t count = ::read(ends[0], block, sizeof block))  // up to the end: nobody keeps it
            said.append(block, static_cast<std::size_t>(count));
        ::close(ends[0]);
        return wait_for(caller);
    }
    pid_t Serve() {
        const Body body = [] {
            std::fputs("before", stderr);
            kel::daemon_ready();
            std::fputs("after", stderr);
            serve();
        };
        EXPECT_EQ(Call([&] { run(body); }, path.c_str()), 0);
        EXPECT_EQ(said, "before");
        const pid_t daemon = std::atoi(get().c_str());
        EXPECT_EQ(get(), std::to_string(daemon) + "\n");
        return daemon;
    }
    static void End(pid_t daemon, int signal) {
        const int handle = static_cast<int>(::syscall(SYS_pidfd_open, daemon, 0));
        ::kill(daemon, signal);
        EXPECT_TRUE(evtEvent(new btkPROCESSEvent(handle)).Wait(60));
        ::close(handle);
    }

    std::string said;
};

TEST_F(Daemon, HoldsItsFileWhileItRuns) {
    put("99999999\nwhat a killed one left");
    const pid_t first = Serve();
    EXPECT_TRUE(::getsid(first) != ::getsid(0) && ::getsid(first) != first) << "it could get a terminal";
    End(first, SIGKILL);
    EXPECT_EQ(files(), 1);
    // Not another's, though: the name may have come to somebody else.
    const pid_t last = Serve();
    std::filesystem::remove(path);
    put("mine");
    End(last, SIGTERM);
    EXPECT_EQ(get(), "mine");
}

TEST_F(Daemon, TellsItsCallerWhyItDidNotStart) {
    int held[2];
    ASSERT_EQ(::pipe(held), 0);
    const auto leaves_a_child = [&] {
        std::fputs("no port", stderr);
        if (::fork() != 0) std::exit(7);
        for (int fd : {STDOUT_FILENO, STDERR_FILENO, held[1]})
            ::close(fd);
        ::_exit(static_cast<int>(::read(held[0], held, 1)));
    };
    EXPECT_EQ(Call(leaves_a_child, path.c_str()), 7);
    EXPECT_EQ(said, "no port");
    ::close(held[0]), ::close(held[1]);
    EXPECT_EQ(Call([] {}, nullptr), 1) << "it was never ready";
    EXPECT_EQ(Call([] { ::raise(SIGKILL); }, nullptr), 128 + SIGKILL);
    EXPECT_EQ(said, "The daemon was ended by signal 9 before it was ready.\n");
    EXPECT_EQ(Call([] {}, (path + "/f").c_str()), 99);
    EXPECT_EQ(said, path + "/f cannot be written: There is no such folder (3)");
}

}  // namespace
