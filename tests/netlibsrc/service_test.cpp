// Services in processes of their own, since who has asked for the manager stays with the answer: what a
// manager on a real socket is told, what signals do and leave, and daemons whose callers are told how they
// began.
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
            netService::ReportStarting(2.5);
            const bool ran = run(serve);
            netService::ReportPaused();
            return ran && !netService::IsStopped() ? 0 : 1;
        });
        for (const auto &[signal, expected] : {std::pair{0, "STATUS=Starting\nEXTEND_TIMEOUT_USEC=2500000"},
                                               {0, "READY=1\nSTATUS=Running"},
                                               {SIGUSR1, "STATUS=Paused"},
                                               {SIGUSR2, "READY=1\nSTATUS=Running"},
                                               {SIGTERM, "STOPPING=1\nSTATUS=Stopping"},
                                               {0, "STATUS=Paused"}}) {
            char text[512];
            // Twice: what is so already is not told again.
            for (int times = signal == SIGTERM ? 1 : 2; signal && times > 0; --times)
                ::kill(child, signal);
            const ssize_t count = ::recv(manager, text, sizeof text, 0);
            EXPECT_EQ(std::string(text, count < 0 ? 0 : static_cast<std::size_t>(count)), expected);
        }
        EXPECT_EQ(wait_for(child), 0);
        ::close(manager);
    }
}

// Managers that are gone, and addresses that are none, are no managers that anybody waits for.
TEST_F(Service, AnswersSignalsWhileItRunsAndPutsThemBack) {
    for (const std::string &manager : {std::string("@"), path}) {
        const auto work = [&] {
            ::setenv("NOTIFY_SOCKET", manager.c_str(), 1);
            const bool foreground = manager == "@";
            ::signal(SIGTERM, previous_handler);
            sigset_t blocked;
            ::sigemptyset(&blocked), ::sigaddset(&blocked, SIGTERM);
            ::sigprocmask(SIG_BLOCK, &blocked, nullptr);
            netService::RequestStop();  // of none that runs
            for (int number : {SIGTERM, foreground ? SIGINT : SIGTERM})
                EXPECT_TRUE(run([&] {
                    EXPECT_FALSE(netService::IsStopped() || run([] {}));
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
        };
        EXPECT_EQ(in_child(work), 0);
    }
}

// Requests from all sides: nothing waits for ever, and in the end the event says what is so.
TEST_F(Service, KeepsUpWithAStormOfRequests) {
    const auto storm = [] {
        ::alarm(120);
        std::unique_ptr<evtEvent> asked(netService::StateEvent());
        std::thread pausing([] {
            for (int n = 0; n < 1'000; ++n)
                netService::DoPause();
        });
        for (int n = 0; n < 40'000; ++n) {
            ::raise(n % 3 ? SIGUSR1 : SIGUSR2);
            asked->Wait(0);
        }
        ::raise(SIGUSR2);
        pausing.join();
        EXPECT_TRUE(netService::IsReleased() && !netService::IsPaused() && !asked->getIsSignaled());
        netService::RequestStop();
        netService::DoPause();
        EXPECT_TRUE(asked->getIsSignaled());
    };
    EXPECT_EQ(in_child([&] { EXPECT_TRUE(run(storm)); }), 0);
}

// The exit code of who calls for a daemon that does the work, and what it prints.
std::string call(const Body &work, const char *file) {
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
    std::string said;
    for (char byte; ::read(ends[0], &byte, 1) == 1;)  // up to the end: nobody keeps it
        said += byte;
    ::close(ends[0]);
    return std::to_string(wait_for(caller)) + ' ' + said;
}

TEST_F(Service, ADaemonTellsItsCallerHowItBegan) {
    put("99999999\nwhat a killed one left");
    const Body work = [] {
        std::fputs("before", stderr);
        kel::daemon_ready();
        std::fputs("after", stderr);
        serve();
    };
    EXPECT_EQ(call([&] { run(work); }, path.c_str()), "0 before");
    const pid_t daemon = std::atoi(get().c_str());
    EXPECT_EQ(get(), std::to_string(daemon) + "\n");
    EXPECT_TRUE(::getsid(daemon) != ::getsid(0) && ::getsid(daemon) != daemon) << "it could get a terminal";
    put("another", "mine");
    std::filesystem::rename(at("another"), path);
    const int handle = static_cast<int>(::syscall(SYS_pidfd_open, daemon, 0));
    ::kill(daemon, SIGTERM);
    EXPECT_TRUE(evtEvent(new btkPROCESSEvent(handle)).Wait(60));
    ::close(handle);
    EXPECT_EQ(get(), "mine");
    EXPECT_EQ(call([] { std::exit(7); }, path.c_str()), "7 ");
    EXPECT_EQ(call([] {}, nullptr), "1 ") << "it was never ready";
    EXPECT_EQ(call([] { ::raise(SIGKILL); }, nullptr),
              "137 The daemon was ended by signal 9 before it was ready.\n");
    EXPECT_EQ(call([] {}, at("none/f").c_str()),
              "99 " + at("none/f") + " cannot be written: There is no such folder (3)");
}

}  // namespace
