// The processes and the console of the runtime: how command lines are read, what a child finds, whom signals
// reach, and what is known of processes that others started. The children are this program itself, told by
// KEL_CHILD what to tell.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/sched.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <random>
#include <sstream>
#include <thread>
#include <vector>

#include <kelstdmt/proclib.h>

#include "scratch_folder.h"

namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

std::string link_of(int fd) {
    std::error_code none;
    return fs::read_symlink("/proc/self/fd/" + std::to_string(fd), none);
}

class Child {
public:
    explicit Child(const std::string &line, int in = -1, int out = -1, int err = -1, unsigned options = 0,
                   const char *folder = nullptr) {
        Error_SetLast(0);
        started = Process_Launch(&handle, &id, line.c_str(), folder, in, out, err, options);
        error = started ? 0 : Error_GetLast();
    }
    ~Child() {
        if (!started) return;
        Process_Kill(handle);
        Process_Wait(handle, nullptr, true, true);
    }
    long wait() {
        long code = -1;
        EXPECT_TRUE(started && Process_Wait(handle, &code, true, false)) << error;
        return code;
    }

    btkProcessHandle handle = -1;
    unsigned long id = 0;
    bool started;
    int error;
};

struct Pipe {
    Pipe() { EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0); }
    ~Pipe() {
        close_end(0);
        close_end(1);
    }
    void close_end(int end) {
        if (ends[end] >= 0) ::close(std::exchange(ends[end], -1));
    }
    // Up to the end, which comes when the last writer is gone; or to the end of a line.
    std::string read(bool one_line = false) {
        if (!one_line) close_end(1);
        std::string text;
        for (char c; ::read(ends[0], &c, 1) == 1 && !(one_line && c == '\n');)
            text += c;
        return text;
    }
    int ends[2];
};

std::string output_of(const std::string &line) {
    Pipe pipe;
    Child child(line, -1, pipe.ends[1]);
    return child.started ? pipe.read() : "not started: " + std::to_string(child.error);
}
Texts arguments_of(const std::string &line) {
    const std::string told = output_of(line);
    Texts arguments;
    for (std::size_t at = 0, end; (end = told.find('\0', at)) != told.npos; at = end + 1)
        arguments.push_back(told.substr(at, end - at));
    return arguments;
}
// How the platform of the callers quotes an argument, whatever it holds.
std::string in_quotes(const std::string &argument) {
    std::string line = "\"";
    std::size_t slashes = 0;
    for (char c : argument) {
        line.append(c == '"' ? slashes + 1 : 0, '\\');
        slashes = c == '\\' ? slashes + 1 : 0;
        line += c;
    }
    return line.append(slashes, '\\') + '"';
}

struct Processes : ScratchFolder {
    // What a child has open, as "0=/dev/null 1=..."; told into a file, since its channels are the matter.
    std::string open_in_child(int in, int out, int err) const {
        Child("sh -c \"(ls -l /proc/$$/fd >" + path + "); :\"", in, out, err).wait();
        std::istringstream listed(get());
        std::string all;
        for (std::string word, before; listed >> word; before = word)
            if (word == "->") all += before + "=" + (listed >> word, word) + " ";
        return all;
    }
};

// Command lines --------------------------------------------------------------------------------

TEST_F(Processes, CommandLinesAreReadByTheRulesOfTheirPlatform) {
    const std::string show = "/usr/bin/printf %s\\0 ";
    std::mt19937 random(5);
    for (int round = 0; round < 150; ++round) {
        Texts sent(1 + random() % 6);
        std::string line = show;
        for (std::string &argument : sent) {
            for (auto size = random() % 9; size > 0; --size)
                argument += "\"\"\\\\\\ \tab'$"[random() % 11];
            line += in_quotes(argument) + (random() % 2 ? " " : " \t ");
        }
        EXPECT_EQ(arguments_of(line), sent) << line;
    }
    std::ofstream(folder + "/CMD.EXE") << "#!/usr/bin/printf %s\\0\n";
    fs::permissions(folder + "/CMD.EXE", fs::perms::owner_all);
    const std::pair<std::string, Texts> cases[] = {
        {show + "a\\\\b c\\\"d \"e f\"g \"\" h\\\\\\\"i", {"a\\\\b", "c\"d", "e fg", "", "h\\\"i"}},
        {show + "\"a\"\"b\" \"\"\"x y\"\"\" \"open end", {"a\"b", "\"x y\"", "open end"}},
        {" \t\"\\usr\\bin\\printf\" %s\\0 x", {"x"}},
        {"C:\\usr\\bin\\printf %s\\0 y\\", {"y\\"}},
        {"sh -c \"printf \"%s\\\\0\" \"a b\" \"\\\"\"\"", {"a b", "\""}},
        {"sh -c \"printf '%s\\0' \"$0\" \"$1\"\" x  yz", {"x", "yz"}},
        {"bash --norc -eo pipefail -c printf '%s\\0' \"a  b\" | cat", {"a  b"}},
        {"sh -c \"printf '%s\\0' one", {"one"}},
        {"sh -c \"printf '%s\\0' \"\"\"", {""}},
        {folder + "/CMD.EXE /s /C \"say \"a b\" \\\"", {folder + "/CMD.EXE", "/s", "/C", "say \"a b\" \\"}},
        {"env printf %s\\0 -c \"a\" \"b\"", {"-c", "a", "b"}},
    };
    for (const auto &[line, expected] : cases)
        EXPECT_EQ(arguments_of(line), expected) << line;
}

TEST_F(Processes, FailuresHaveTheirNumbersAndLeaveNothing) {
    const auto before = std::distance(fs::directory_iterator("/proc/self/fd"), {});
    put("echo no program");
    ASSERT_EQ(::mkdir((folder + "/sub").c_str(), 0755), 0);
    const auto error_of = [&](const std::string &line, const char *in_folder = nullptr, int out = -1) {
        return Child(line, -1, out, -1, 0, in_folder).error;
    };
    EXPECT_EQ(error_of(path), 5) << "not to be executed";
    fs::permissions(path, fs::perms::owner_all);
    EXPECT_EQ(error_of(path), 193) << "a text without #!";
    put("#!/no/such/interpreter\n");
    EXPECT_EQ(error_of(path), 2);
    EXPECT_EQ(error_of(folder), 5);
    EXPECT_EQ(error_of("no_such_program_of_this_name"), 2);
    EXPECT_EQ(error_of(path + "/below"), 2);
    EXPECT_EQ(error_of("true", (folder + "/none").c_str()), 267);
    EXPECT_EQ(error_of("true", path.c_str()), 267);
    EXPECT_EQ(error_of("true " + std::string(200000, 'x')), 206);
    for (const char *none : {"", "  ", "\"\" x"})
        EXPECT_EQ(error_of(none), 87) << none;
    EXPECT_EQ(error_of("true", nullptr, 999), 87);
    EXPECT_FALSE(Process_Launch(nullptr, nullptr, nullptr, nullptr, -1, -1, -1, 0));
    EXPECT_TRUE(::waitpid(-1, nullptr, WNOHANG | __WALL) == -1 && errno == ECHILD);
    EXPECT_EQ(std::distance(fs::directory_iterator("/proc/self/fd"), {}), before);
    // What is relative is so to the caller's folder; a folder may be named in either form.
    put("#!/bin/sh\npwd\n");
    const fs::path here = fs::current_path();
    fs::current_path(folder);
    Pipe pipe;
    Child child(".\\f", -1, pipe.ends[1], -1, 0, "C:\\usr\\bin");
    fs::current_path(here);
    EXPECT_EQ(pipe.read(), "/usr/bin\n");
}

// What a child finds ---------------------------------------------------------------------------

TEST_F(Processes, EveryMixtureOfHandlesArrivesAndNothingElse) {
    const int high = ::fcntl(::open("/dev/full", O_RDWR), F_DUPFD, 77);
    for (int closed = -1; closed < 3; ++closed) {
        // Apart, since its own standard channels change.
        const pid_t apart = start([&] {
            for (int fd = 0; fd < 3; ++fd) {
                ::dup2(::open((path + std::to_string(fd)).c_str(), O_CREAT | O_RDWR, 0600), fd);
                if (fd == closed) ::close(fd);
            }
            const int choices[] = {-1, 0, 1, 2, high};
            int wrong = 0;
            for (int mixture = 0; mixture < 125; ++mixture) {
                const int use[] = {choices[mixture % 5], choices[mixture / 5 % 5], choices[mixture / 25]};
                if (closed >= 0 && std::find(use, use + 3, closed) != use + 3) continue;
                std::string expected;
                for (int fd = 0; fd < 3; ++fd)
                    if (const auto link = link_of(use[fd] < 0 ? fd : use[fd]); !link.empty())
                        expected += std::to_string(fd) + "=" + link + " ";
                wrong += open_in_child(use[0], use[1], use[2]) != expected;
            }
            return wrong;
        });
        EXPECT_EQ(wait_for(apart), 0) << "mixtures with " << closed << " closed";
    }
    ::close(high);
}

TEST_F(Processes, ManyThreadsLaunchAndNoChildHoldsWhatIsAnothers) {
    std::atomic<bool> stop = false;
    std::thread opener([&] {
        while (!stop)
            ::close(::open("/dev/zero", O_RDONLY));
    });
    std::vector<std::thread> threads;
    std::atomic<int> right = 0;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 15; ++i) {
                Pipe in, out;
                const int files[] = {::open("/dev/zero", O_RDONLY), ::open("/dev/zero", O_RDONLY)};
                // It lives until its input ends, which another child would delay if it held a copy.
                Child child("sh -c \"read word; echo $word " + std::to_string(t) + "; ls /proc/$$/fd\"",
                            in.ends[0], out.ends[1]);
                in.close_end(0);
                EXPECT_EQ(::write(in.ends[1], "word\n", 5), 5);
                const std::string told = out.read();
                right += told == "word " + std::to_string(t) + "\n0\n1\n2\n" && child.wait() == 0;
                ::close(files[0]);
                ::close(files[1]);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    stop = true;
    opener.join();
    EXPECT_EQ(right, 8 * 15);
}

TEST_F(Processes, SignalsGroupAndSessionAreThoseOfAFreshProgram) {
    const pid_t apart = start([&] {
        sigset_t all, now;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
        for (int signal : {SIGUSR1, SIGTERM, SIGRTMIN + 3})
            ::signal(signal, [](int) {});
        ::signal(SIGHUP, SIG_IGN);
        const std::string signals = output_of("sed -n /Sig[BIC]/p /proc/self/status");
        ::pthread_sigmask(SIG_BLOCK, nullptr, &now);
        int wrong =
            signals != "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000001\nSigCgt:\t0000000000000000\n";
        // Its group and session, as the system tells them behind its id.
        for (unsigned options = 0; options < 4; ++options) {
            Pipe pipe;
            Child child("cat /proc/self/stat", -1, pipe.ends[1], -1, options);
            std::istringstream told(pipe.read());
            std::string skipped;
            unsigned long id = 0, group = 0, session = 0;
            told >> id >> skipped >> skipped >> skipped >> group >> session;
            wrong += id != child.id || (group == id) != (options != 0) || (session == id) != (options > 1);
        }
        return wrong + !::sigismember(&now, SIGUSR2);
    });
    EXPECT_EQ(wait_for(apart), 0);
}

// Ends and signals -----------------------------------------------------------------------------

TEST_F(Processes, GroupsAreInterruptedAndKilledAsAWhole) {
    Pipe pipe;
    const char *line = "sh -c \"sh -c 'trap \"\" INT; echo; exec sleep 1000' & echo; sleep 1000 & exit 7\"";
    Child group(line, -1, pipe.ends[1], -1, btkLaunchGroup);
    pipe.close_end(1);
    EXPECT_EQ(pipe.read(true) + pipe.read(true), "");
    long code = -1;
    pollfd end{group.handle, POLLIN, 0};
    EXPECT_EQ(::poll(&end, 1, 60000), 1);
    EXPECT_TRUE(!Process_CheckRunning(group.handle) && Process_Kill(group.handle)) << "the others live";
    EXPECT_EQ(pipe.read(), "") << "ends when all of them are gone";
    EXPECT_TRUE(Process_Wait(group.handle, &code, false, false) && code == 7);
    EXPECT_TRUE(!Process_Kill(group.handle) && !Process_Interrupt(group.id) && Error_GetLast() == 87);
    code = -1;
    EXPECT_TRUE(Process_Wait(group.handle, &code, true, false) && code == 7) << "told as often as asked";

    Pipe second;
    Child deaf("sh -c \"trap '' INT; echo; exec sleep 1000\"", -1, second.ends[1]);
    second.read(true);
    EXPECT_TRUE(Process_Interrupt(deaf.id) && !Process_Wait(deaf.handle, &code, false, true));
    EXPECT_TRUE(Process_Kill(deaf.handle));
    EXPECT_EQ(deaf.wait(), 128 + SIGKILL);
    Child hearing("sleep 1000", -1, -1, -1, btkLaunchGroup | btkLaunchSession);
    EXPECT_TRUE(Process_Interrupt(hearing.id));
    EXPECT_EQ(hearing.wait(), 128 + SIGINT);
}

TEST_F(Processes, ThoseOfOthersAreOpenedAndNotCollected) {
    btkProcessHandle handle = -1;
    for (unsigned long none : {0UL, 1UL << 31, ~0UL, static_cast<unsigned long>(INT_MAX)})
        EXPECT_TRUE(!Process_Open(&handle, none) && Error_GetLast() == 87 && !Process_Interrupt(none) &&
                    Process_GetBirth(none) == 0)
            << none;
    std::thread([&] {
        const auto thread = static_cast<unsigned long>(::gettid());
        EXPECT_TRUE(!Process_Open(&handle, thread) && Process_GetBirth(thread) == 0);
        EXPECT_EQ(Error_GetLast(), 87);
    }).join();
    long code = -5;
    const pid_t own = start([] { return 9; });
    ASSERT_TRUE(Process_Open(&handle, static_cast<unsigned long>(own)) && Process_CanWait(handle));
    EXPECT_TRUE(Process_Wait(handle, &code, true, false) && code == 9 && !Process_CheckRunning(handle));
    EXPECT_EQ(pcGetProcessStatus(own), pcExited);
    EXPECT_EQ(wait_for(own), 9) << "left to its parent";
    Process_Free(handle);
    EXPECT_FALSE(Process_Wait(handle, &code, false, false) || Process_CheckRunning(handle));
    EXPECT_EQ(pcGetProcessStatus(own), pcUninit);

    Pipe pipe;
    Child shell("sh -c \"sleep 1000 & echo $!; exec sleep 1000\"", -1, pipe.ends[1]);
    const unsigned long grandchild = std::stoul(pipe.read(true));
    ASSERT_TRUE(Process_Open(&handle, grandchild) && Process_CheckRunning(handle));
    code = -5;
    EXPECT_TRUE(!Process_Wait(handle, &code, false, true) && Process_Kill(handle));
    EXPECT_TRUE(Process_Wait(handle, &code, true, true) && code == -5);
}

TEST_F(Processes, AnIdThatAnotherProcessHasByNowIsNotThatProcess) {
    const std::string odd = folder + "/a) R 1 (b";
    fs::copy_file("/bin/sleep", odd);
    Child first("\"" + odd + "\" 1000");
    const auto first_birth = Process_GetBirth(first.id), mine = Process_GetBirth(Process_GetCurrentId());
    EXPECT_TRUE(first_birth != 0 && first_birth != mine && first_birth == Process_GetBirth(first.id));
    Process_Kill(first.handle);
    EXPECT_EQ(first.wait(), 128 + SIGKILL);
    EXPECT_EQ(Process_GetBirth(first.id), 0U);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // births count in hundredths of a second
    // A second process of the same id, where the right to choose ids exists.
    pid_t id = static_cast<pid_t>(first.id);
    clone_args wanted{};
    wanted.exit_signal = SIGCHLD;
    wanted.set_tid = reinterpret_cast<std::uintptr_t>(&id);
    wanted.set_tid_size = 1;
    const long second = ::syscall(SYS_clone3, &wanted, sizeof wanted);
    if (second == 0) {
        ::execl("/bin/sleep", "sleep", "1000", nullptr);
        ::_exit(1);
    }
    if (second < 0) GTEST_SKIP() << "ids cannot be chosen here: " << std::strerror(errno);
    const unsigned long long birth = Process_GetBirth(first.id);
    EXPECT_TRUE(birth != 0 && birth != first_birth);
    EXPECT_TRUE(!Process_Interrupt(first.id) && Error_GetLast() == 87 && !Process_Kill(first.handle));
    EXPECT_EQ(::waitpid(id, nullptr, WNOHANG), 0) << "it lives";
    btkProcessHandle handle = -1;
    ASSERT_TRUE(Process_Open(&handle, first.id) && Process_CheckRunning(handle));
    EXPECT_TRUE(Process_Interrupt(first.id)) << "of two handles, the one on the living process";
    EXPECT_EQ(wait_for(id), -SIGINT);
    Process_Free(handle);
}

TEST_F(Processes, ExitCodesOfAProgramThatIgnoresItsChildren) {
    EXPECT_EQ(wait_for(start([] {
                  ::signal(SIGCHLD, SIG_IGN);
                  Child child("sh -c \"exit 3\"");
                  long code = -5;
                  pollfd end{child.handle, POLLIN, 0};
                  ::poll(&end, 1, -1);
                  const bool ended = Process_Wait(child.handle, &code, true, false);
                  return ended && !Process_CheckRunning(child.handle) && !Process_Kill(child.handle) ? code
                                                                                                     : -1;
              })),
              3);
}

// The console ----------------------------------------------------------------------------------

std::atomic<int> called = 0, before_called = 0;
template <int Digit, bool Answer>
bool handler(unsigned long type) {
    called = called * 10 + Digit + static_cast<int>(type);
    return Answer;
}

TEST(Console, HandlersAreAskedTheYoungestFirstAndThenTheOneBefore) {
    EXPECT_EQ(wait_for(start([] {
                  const auto presses = [](int key) {
                      called = before_called = 0;
                      ::raise(key);
                      return called * 10 + before_called;
                  };
                  int wrong = 0;
                  const auto expect = [&wrong](bool right, int bit) { wrong |= right ? 0 : 1 << bit; };
                  ::signal(SIGINT, [](int) { ++before_called; });
                  ::signal(SIGQUIT, SIG_IGN);
                  expect(SetConsoleCtrlHandler(handler<2, false>, true), 0);
                  expect(SetConsoleCtrlHandler(handler<4, true>, true), 0);
                  expect(SetConsoleCtrlHandler(handler<6, false>, true), 0);
                  expect(presses(SIGINT) == 640 && presses(SIGQUIT) == 750, 1);
                  expect(SetConsoleCtrlHandler(handler<4, true>, false), 2);
                  expect(!SetConsoleCtrlHandler(handler<4, true>, false), 2);
                  expect(presses(SIGINT) == 621 && presses(SIGQUIT) == 730, 3);
                  for (int i = 0; i < 6; ++i)
                      expect(SetConsoleCtrlHandler(handler<4, true>, true), 4);
                  expect(!SetConsoleCtrlHandler(handler<4, true>, true), 4);
                  for (int i = 0; i < 6; ++i)
                      SetConsoleCtrlHandler(handler<4, true>, false);
                  SetConsoleCtrlHandler(handler<2, false>, false);
                  // One that was installed over ours stays, and what it calls still leads on.
                  struct sigaction ours {
                  }, now{};
                  ::sigaction(SIGINT, nullptr, &ours);
                  ::signal(SIGINT, [](int) { called = 8; });
                  expect(SetConsoleCtrlHandler(handler<6, false>, false) && presses(SIGINT) == 80, 5);
                  ::sigaction(SIGQUIT, nullptr, &now);
                  expect(now.sa_handler == SIG_IGN, 6);
                  ::sigaction(SIGINT, &ours, nullptr);
                  expect(presses(SIGINT) == 1 && SetConsoleCtrlHandler(handler<2, false>, true), 7);
                  expect(presses(SIGINT) == 21, 7);
                  return wrong;
              })),
              0);
    EXPECT_EQ(wait_for(start([] {
                  SetConsoleCtrlHandler(handler<2, false>, true);
                  ::raise(SIGINT);
                  return 1;
              })),
              -SIGINT);
}

}  // namespace
