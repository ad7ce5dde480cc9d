// Services in processes of their own: what a manager on a real socket is told, what signals do and what they
// leave, and daemons with their files.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <thread>

#include <kelstdmt/kel.h>
#include <kelstdmt/netlib_service.h>

#include "scratch_folder.h"

namespace {

using Body = std::function<void(netService *, xrchandle<xstringsequence>)>;
struct Callback : netService_DoService_cb {
    explicit Callback(Body with) : body(std::move(with)) {}
    void DoService(netService *service, xrchandle<xstringsequence> parameters) override {
        body(service, parameters);
    }
    Body body;
};

bool run(const Body &body) {
    Callback callback(body);
    std::unique_ptr<netService> service(netService::Create("name", {}, xstrNullStr));
    service->setDoService(&callback);
    return service->Run() == 1;
}

// A body as a server has it: it waits for what is asked of it.
void serve(netService *, xrchandle<xstringsequence>) {
    netService::ReportRunning();
    std::unique_ptr<evtEvent> asked(netService::StateEvent());
    while (!netService::IsStopped()) {
        asked->Wait(INFINITE);
        if (netService::IsPaused()) netService::DoPause();
    }
}

void (*disposition(int number))(int) {
    struct sigaction action {};
    ::sigaction(number, nullptr, &action);
    return action.sa_handler;
}

// A process that has asked for a manager stays with it, so every service here runs in a child.
struct Service : ScratchFolder {
    Service() { ::unsetenv("NOTIFY_SOCKET"); }
};

// The thread sanitizer keeps a signal that comes right before a wait until the wait is over. There the
// signals, which say the same when they come twice, are sent again.
#if defined(__SANITIZE_THREAD__)
constexpr int attempts = 60;
#else
constexpr int attempts = 1;
#endif

// A service manager: a datagram socket and what comes in on it.
class Manager {
public:
    explicit Manager(const std::string &name) : m_socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path, sizeof address.sun_path - 1);
        if (name[0] == '@') address.sun_path[0] = '\0';
        const auto size = offsetof(sockaddr_un, sun_path) + name.size() + (name[0] == '/');
        EXPECT_EQ(::bind(m_socket, reinterpret_cast<sockaddr *>(&address), static_cast<socklen_t>(size)), 0);
        const timeval patience{60 / attempts, 0};
        ::setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        ::setenv("NOTIFY_SOCKET", name.c_str(), 1);
    }
    ~Manager() {
        ::close(m_socket);
        ::unsetenv("NOTIFY_SOCKET");
    }
    std::string Told(pid_t service = -1, int signal = 0) const {
        char text[512];
        ssize_t count = -1;
        for (int attempt = 0; count < 0 && attempt < attempts; ++attempt) {
            if (signal) ::kill(service, signal);
            count = ::recv(m_socket, text, sizeof text, 0);
        }
        return count < 0 ? std::strerror(errno) : std::string(text, static_cast<std::size_t>(count));
    }
    bool ToldNothing() const {
        char text[512];
        return ::recv(m_socket, text, sizeof text, MSG_DONTWAIT) < 0;
    }

private:
    int m_socket;
};

TEST_F(Service, TellsItsManagerWhatItDoes) {
    for (const std::string &name : {path, "@" + path + " abstract"}) {
        Manager manager(name);
        const pid_t child = start([] {
            netService::ReportStarting(2.5);
            netService::ReportStarting(kel::nil_real);
            netService::ReportStarting(-1);
            const auto before = disposition(SIGINT);
            const bool ran = run([&](auto... arguments) {
                if (disposition(SIGINT) != before) ::_exit(9);  // under a manager it is not ours
                serve(arguments...);
            });
            return ran && !netService::IsStopped() && !netService::IsReleased() ? 0 : 1;
        });
        EXPECT_EQ(manager.Told(), "STATUS=Starting\nEXTEND_TIMEOUT_USEC=2500000");
        EXPECT_EQ(manager.Told(), "STATUS=Starting\nEXTEND_TIMEOUT_USEC=1073741824000000");
        EXPECT_EQ(manager.Told(), "STATUS=Starting");
        EXPECT_EQ(manager.Told(), "READY=1\nSTATUS=Running");
        for (int round = 0; round < 3; ++round) {
            EXPECT_EQ(manager.Told(child, SIGUSR1), "STATUS=Paused");
            ::kill(child, SIGUSR1);  // again: nothing new
            EXPECT_EQ(manager.Told(child, SIGUSR2), "READY=1\nSTATUS=Running");
        }
        EXPECT_EQ(manager.Told(child, SIGUSR1), "STATUS=Paused");
        EXPECT_EQ(manager.Told(child, SIGTERM), "STOPPING=1\nSTATUS=Stopping");
        EXPECT_EQ(wait_for(child), 0);
        EXPECT_TRUE(manager.ToldNothing());
    }
}

// A manager that is gone, whose address is none, or that takes nothing, holds nobody up for long.
TEST_F(Service, RunsWithoutAManagerThatAnswers) {
    const std::string too_long(200, 'x');
    for (const std::string &name : {path, std::string("@"), std::string("relative"), "/" + too_long}) {
        ::setenv("NOTIFY_SOCKET", name.c_str(), 1);
        EXPECT_EQ(wait_for(start([] {
                      return run([](auto...) {
                          netService::ReportRunning();
                          netService::RequestStop();
                      })
                                 ? 0
                                 : 1;
                  })),
                  0);
    }
    ::unsetenv("NOTIFY_SOCKET");
}

void previous_handler(int) {}

TEST_F(Service, AnswersSignalsWhileItRunsAndPutsThemBack) {
    EXPECT_EQ(wait_for(start([] {
                  ::signal(SIGTERM, previous_handler);
                  ::signal(SIGUSR1, SIG_IGN);
                  sigset_t blocked, after;
                  ::sigemptyset(&blocked);
                  ::sigaddset(&blocked, SIGTERM);
                  ::sigprocmask(SIG_BLOCK, &blocked, nullptr);
                  netService::RequestStop();  // of none that runs
                  for (int number : {SIGTERM, SIGINT}) {
                      bool nested = true, stopped_early = true;
                      const bool ran = run([&](auto...) {
                          stopped_early = netService::IsStopped();
                          nested = run([](auto...) {});
                          std::thread([&] { ::kill(::getpid(), number); }).join();
                          serve(nullptr, {});
                      });
                      if (!ran || nested || stopped_early) return 1;
                      if (Error_GetLast() != 183) return 2;
                  }
                  try {
                      run([](auto...) { throw std::runtime_error("out"); });
                      return 3;
                  } catch (const std::runtime_error &) {
                  }
                  // Somebody else's handler, put there meanwhile, stays.
                  run([](auto...) { ::signal(SIGUSR2, previous_handler); });
                  if (disposition(SIGTERM) != previous_handler || disposition(SIGINT) != SIG_DFL) return 4;
                  if (disposition(SIGUSR1) != SIG_IGN || disposition(SIGUSR2) != previous_handler) return 5;
                  ::sigprocmask(SIG_BLOCK, nullptr, &after);
                  return ::sigismember(&after, SIGTERM) && !::sigismember(&after, SIGINT) ? 0 : 6;
              })),
              0);
    EXPECT_EQ(wait_for(start([] {
                  ::signal(SIGINT, SIG_IGN);
                  int answer = 1;
                  run([&](auto...) { answer = disposition(SIGINT) == SIG_IGN ? 0 : 2; });
                  return answer;
              })),
              0);
}

// Requests from all sides, in the end to go on or to stop: nothing waits for ever, and the event says what
// is so.
TEST_F(Service, KeepsUpWithAStormOfRequests) {
    EXPECT_EQ(wait_for(start([] {
                  ::alarm(120);
                  for (int late : {SIGUSR1, SIGUSR2})
                      ::signal(late, SIG_IGN);
                  int answer = 1;
                  run([&](auto...) {
                      std::thread sender([to = ::pthread_self()] {
                          for (int n = 0; n < 20'000; ++n)
                              ::pthread_kill(to, n % 2 ? SIGUSR2 : SIGUSR1);
                      });
                      std::thread other([] {
                          for (int n = 0; n < 20'000; ++n)
                              ::raise(n % 3 ? SIGUSR2 : SIGUSR1);
                          ::raise(SIGUSR2);
                      });
                      std::thread pausing([] {
                          for (int n = 0; n < 1'000; ++n)
                              netService::DoPause();
                      });
                      std::unique_ptr<evtEvent> asked(netService::StateEvent());
                      for (int n = 0; n < 10'000; ++n) {
                          netService::IsPaused();
                          asked->Wait(0);
                      }
                      sender.join();
                      other.join();
                      ::raise(SIGUSR2);
                      pausing.join();
                      const bool goes_on = netService::IsReleased() && !netService::IsPaused();
                      const bool quiet = !asked->getIsSignaled();
                      bool told = false;
                      for (int attempt = 0; !told && attempt < attempts; ++attempt) {
                          ::raise(SIGUSR1);
                          told = asked->Wait(60 / attempts) && netService::IsPaused();
                      }
                      netService::RequestStop();
                      netService::DoPause();
                      answer = goes_on && quiet && told && asked->getIsSignaled() ? 0 : 2;
                  });
                  return answer;
              })),
              0);
}

TEST_F(Service, KeepsNamesAndParameters) {
    char one[] = "one", two[] = "two words", *arguments[] = {one, two, nullptr};
    auto list = netService::ExtractParms(2, arguments);
    ASSERT_EQ(list->getarraysize(), 2);
    EXPECT_EQ(kel::view(list->get(1)), "two words");
    for (int count : {0, -1})
        EXPECT_EQ(netService::ExtractParms(count, arguments)->getarraysize(), 0);
    for (const char *display : {static_cast<const char *>(nullptr), xstrNullStr})
        EXPECT_EQ(std::unique_ptr<netService>(netService::Create("s", list, display))->getDisplayName(), "s");
    std::unique_ptr<netService> service(netService::Create("s", list, "The S"));
    EXPECT_EQ(service->getDisplayName(), "The S");
    EXPECT_EQ(wait_for(start([&] {
                  if (service->Run() != 1) return 1;  // without a body
                  int answer = 2;
                  Callback callback([&](netService *self, const xrchandle<xstringsequence> &given) {
                      answer = self == service.get() && given->getarraysize() == 2 ? 0 : 3;
                  });
                  service->setDoService(&callback);
                  return service->Run() == 1 ? answer : 4;
              })),
              0);
    EXPECT_EQ(netService::getclassrtti()->getname(), std::string_view("netlib::Service"));
}

// Daemons ------------------------------------------------------------------------------------------

struct Daemon : ScratchFolder {
    // Runs the work as a daemon; exit code and output of who called for it.
    int Call(const std::function<void()> &work, const char *file) {
        int ends[2];
        EXPECT_EQ(::pipe(ends), 0);
        const pid_t caller = start([&] {
            ::dup2(ends[1], STDOUT_FILENO);
            ::dup2(ends[1], STDERR_FILENO);
            ::close(ends[0]);
            ::close(ends[1]);
            if (ignores_children) ::signal(SIGCHLD, SIG_IGN);
            std::string reason;
            if (!kel::become_daemon(file, &reason)) {
                std::fprintf(stderr, "%s (%d)", reason.c_str(), Error_GetLast());
                return 99;
            }
            work();
            std::exit(0);
        });
        ::close(ends[1]);
        // Up to the end: nobody keeps the channels.
        said.clear();
        char block[256];
        while (const ssize_t count = ::read(ends[0], block, sizeof block))
            said.append(block, static_cast<std::size_t>(count));
        ::close(ends[0]);
        return wait_for(caller);
    }
    static void Serve() {
        run([](auto... arguments) {
            std::fputs("before", stderr);
            kel::daemon_ready();
            std::fputs("after", stderr);
            serve(arguments...);
        });
    }
    // Ends the daemon and waits for it.
    static void End(pid_t daemon, int signal) {
        const int handle = static_cast<int>(::syscall(SYS_pidfd_open, daemon, 0));
        ASSERT_GE(handle, 0) << "no such process: " << daemon;
        evtEvent end(new btkPROCESSEvent(handle));
        bool ended = false;
        for (int attempt = 0; !ended && attempt < attempts; ++attempt) {
            ::kill(daemon, signal);
            ended = end.Wait(60 / attempts);
        }
        EXPECT_TRUE(ended);
        ::close(handle);
    }
    pid_t Id() const { return static_cast<pid_t>(std::strtol(get("f").c_str(), nullptr, 10)); }

    std::string said;
    bool ignores_children = false;
};

TEST_F(Daemon, HoldsItsFileWhileItRuns) {
    put("99999999\nwhat a killed one left");
    ASSERT_EQ(Call(Serve, path.c_str()), 0) << said;
    EXPECT_EQ(said, "before");
    const pid_t first = Id();
    EXPECT_EQ(get("f"), std::to_string(first) + "\n");
    EXPECT_NE(::getsid(first), ::getsid(0));
    EXPECT_NE(::getsid(first), first) << "a session's leader could get a terminal";
    EXPECT_EQ(Call(Serve, path.c_str()), 99);
    EXPECT_EQ(said, path + " is held by process " + std::to_string(first) + ", which runs (183)");
    EXPECT_EQ(Id(), first);

    End(first, SIGKILL);
    EXPECT_EQ(files(), 1);
    ASSERT_EQ(Call(Serve, path.c_str()), 0) << said;
    EXPECT_NE(Id(), first);
    End(Id(), SIGTERM);
    EXPECT_EQ(files(), 0) << "its file is removed at its end";

    // Not another's, though: the name may have come to somebody else.
    ASSERT_EQ(Call(Serve, path.c_str()), 0) << said;
    const pid_t last = Id();
    std::filesystem::remove(path);
    put("mine");
    End(last, SIGTERM);
    EXPECT_EQ(get("f"), "mine");
}

TEST_F(Daemon, TellsItsCallerWhyItDidNotStart) {
    const auto fails = [](int code) {
        return [code] {
            std::fputs("no port", stderr);
            std::exit(code);
        };
    };
    EXPECT_EQ(Call(fails(7), path.c_str()), 7);
    EXPECT_EQ(said, "no port");
    EXPECT_EQ(Call(fails(0), nullptr), 1) << "it was never ready";
    EXPECT_EQ(Call([] { ::raise(SIGKILL); }, path.c_str()), 128 + SIGKILL);
    EXPECT_EQ(said, "The daemon was ended by signal 9 before it was ready.\n");
    ignores_children = true;
    EXPECT_EQ(Call([] { std::exit(disposition(SIGCHLD) == SIG_IGN ? 8 : 9); }, nullptr), 8);
    // Neither does a process that it left behind keep the caller waiting.
    int held[2];
    ASSERT_EQ(::pipe(held), 0);
    const auto leaves_a_child = [&] {
        if (::fork() == 0) {
            for (int fd : {STDOUT_FILENO, STDERR_FILENO, held[1]})
                ::close(fd);
            char byte;
            ::_exit(static_cast<int>(::read(held[0], &byte, 1)));
        }
        std::exit(6);
    };
    EXPECT_EQ(Call(leaves_a_child, nullptr), 6);
    ::close(held[0]);
    ::close(held[1]);
    const std::string nowhere = folder + "/none/f";
    EXPECT_EQ(Call(Serve, nowhere.c_str()), 99);
    EXPECT_EQ(said, nowhere + " cannot be written: There is no such folder (3)");
    EXPECT_EQ(Call(Serve, "/dev/null"), 99);
}

}  // namespace
