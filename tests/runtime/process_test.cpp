// The processes and the console of the runtime: how command lines are read, what a child finds, whom signals
// reach, and what is known of processes that others started.
#include <fcntl.h>
#include <linux/sched.h>
#include <signal.h>
#include <sys/syscall.h>

#include <atomic>
#include <chrono>
#include <random>
#include <sstream>
#include <thread>
#include <vector>

#include <kelstdmt/kelstdmt.h>

#include "scratch_folder.h"

namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

struct Pipe {
    Pipe() { EXPECT_TRUE(btkAnonymousPipe::Create(out, in)); }
    // To the end, which comes when the last writer is gone, or of one line.
    std::string read(bool line = false) {
        if (!line) out.Close();
        std::string text;
        for (char c; ::read(in.GetHandle(), &c, 1) == 1 && !(line && c == '\n');)
            text += c;
        return text;
    }
    btkOutputPipe out;
    btkInputPipe in;
};

struct Child {
    explicit Child(const std::string &line, int in = -1, int out = -1, int err = -1, unsigned options = 0,
                   const char *folder = nullptr)
        : error(Process_Launch(&handle, &id, line.c_str(), folder, in, out, err, options) ? 0
                                                                                          : Error_GetLast()) {
    }
    ~Child() {
        Process_Kill(handle);
        Process_Wait(handle, nullptr, true, true);
    }
    long wait(bool block = true, long code = -1) {
        return Process_Wait(handle, &code, block, false) ? code : -2;
    }

    btkProcessHandle handle = -1;
    unsigned long id = 0;
    int error;
};

std::string output_of(const std::string &line, unsigned options = 0, const char *folder = nullptr) {
    Pipe pipe;
    Child child(line, -1, pipe.out.GetHandle(), -1, options, folder);
    return pipe.read();
}
Texts arguments_of(const std::string &line) {
    std::istringstream told(output_of(line));
    Texts arguments;
    for (std::string argument; std::getline(told, argument, '\0');)
        arguments.push_back(argument);
    return arguments;
}
// How the platform of the callers quotes an argument, whatever it holds.
std::string in_quotes(const std::string &argument) {
    std::string line = "\"";
    std::size_t slashes = 0;
    for (char c : argument) {
        line.append(c == '"' ? slashes + 1 : 0, '\\') += c;
        slashes = c == '\\' ? slashes + 1 : 0;
    }
    return line.append(slashes, '\\') + '"';
}

struct Processes : ScratchFolder {};

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
        {" \t\"C:\\usr\\bin\\printf\" %s\\0 y\\", {"y\\"}},
        {"sh -c \"printf \"%s\\\\0\" \"a b\" \"\\\"\"\"", {"a b", "\""}},
        {"sh -c \"printf '%s\\0' \"$0\" \"$1\"\" x  yz", {"x", "yz"}},
        {"bash --norc -eo pipefail -c printf '%s\\0' \"a  b\" | cat", {"a  b"}},
        {"sh -c \"printf '%s\\0' \"\"\"", {""}},
        {folder + "/CMD.EXE /s /C \"say \"a b\" \\\"", {folder + "/CMD.EXE", "/s", "/C", "say \"a b\" \\"}},
        {"env printf %s\\0 -c \"a\" \"b\"", {"-c", "a", "b"}},
    };
    for (const auto &[line, expected] : cases)
        EXPECT_EQ(arguments_of(line), expected) << line;
    fs::rename(folder + "/CMD.EXE", path);
    Putenv("SHELL", nullptr);
    Putenv("COMSPEC", path.c_str());
    EXPECT_EQ(arguments_of(path + " /c \"say \"a  b\"\""), (Texts{path, "/c", "say \"a  b\""}));
}

TEST_F(Processes, FailuresHaveTheirNumbersAndLeaveNothing) {
    const auto before = open_descriptors();
    put("echo no program");
    EXPECT_EQ(Child(path).error, 5) << "not to be executed";
    fs::permissions(path, fs::perms::owner_all);
    EXPECT_EQ(Child(path).error, 193) << "a text without #!";
    put("#!/no/such/interpreter\n");
    const std::string missing = folder + "/missing", nobody = "no_such_program_of_this_name", none;
    const std::tuple<std::string, std::string, int, int> failures[] = {
        {path, none, -1, 2},
        {nobody, none, -1, 2},
        {path + "/below", none, -1, 2},
        {folder, none, -1, 5},
        {"true", missing, -1, 267},
        {"true", path, -1, 267},
        {"true", none, 999, 87},
        {" \t", none, -1, 87},
        {"\"\" true", none, -1, 87},
        {"true " + std::string(200000, 'x'), none, -1, 206}};
    for (const auto &[line, place, out, number] : failures)
        EXPECT_EQ(Child(line, -1, out, -1, 0, place.empty() ? nullptr : place.c_str()).error, number)
            << line.substr(0, 80);
    EXPECT_FALSE(Process_Launch(nullptr, nullptr, nullptr, nullptr, -1, -1, -1, 0));
    EXPECT_TRUE(::waitpid(-1, nullptr, WNOHANG | __WALL) == -1 && errno == ECHILD);
    EXPECT_EQ(open_descriptors(), before);
    // What is relative is so to the caller's folder; a folder may be named in either form.
    put("#!/bin/sh\npwd\n");
    const fs::path here = fs::current_path();
    fs::current_path(folder);
    EXPECT_EQ(output_of(".\\f", 0, "C:\\usr\\bin"), "/usr/bin\n");
    fs::current_path(here);
}

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
                if (closed >= 0 && std::count(use, use + 3, closed)) continue;
                std::string expected, told, before;
                std::error_code none;
                for (int fd = 0; fd < 3; ++fd)
                    if (const fs::path file = fs::read_symlink(
                            "/proc/self/fd/" + std::to_string(use[fd] < 0 ? fd : use[fd]), none);
                        !file.empty())
                        expected += std::to_string(fd) + file.string();
                Child("sh -c \"(ls -l /proc/$$/fd >" + path + "); :\"", use[0], use[1], use[2]).wait();
                std::istringstream listed(get());
                for (std::string word; listed >> word; before = word)
                    if (word == "->") told += before + (listed >> word, word);
                wrong += told != expected;
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
        threads.emplace_back([&] {
            for (int i = 0; i < 15; ++i) {
                Pipe in, out;
                // It lives until its input ends, which another child would delay if it held a copy.
                Child child("sh -c \"cat; ls /proc/$$/fd\"", in.in.GetHandle(), out.out.GetHandle());
                EXPECT_EQ(::write(in.out.GetHandle(), "word\n", 5), 5);
                in.out.Close();
                right += out.read() == "word\n0\n1\n2\n" && child.wait() == 0;
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    stop = true;
    opener.join();
    EXPECT_EQ(right, 8 * 15);
}

TEST_F(Processes, SignalsAreThoseOfAFreshProgram) {
    EXPECT_EQ(in_child([] {
                  sigset_t all, now;
                  ::sigfillset(&all);
                  ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
                  ::signal(SIGRTMIN + 3, [](int) {});
                  ::signal(SIGHUP, SIG_IGN);
                  const std::string zeros(15, '0'), expected = "SigBlk:\t0" + zeros + "\nSigIgn:\t" + zeros +
                                                               "1\nSigCgt:\t0" + zeros + "\n";
                  EXPECT_EQ(output_of("sed -n /Sig[BIC]/p /proc/self/status"), expected);
                  ::pthread_sigmask(SIG_BLOCK, nullptr, &now);
                  EXPECT_TRUE(::sigismember(&now, SIGUSR2)) << "our own mask";
              }),
              0);
}

TEST_F(Processes, GroupsAreInterruptedAndKilledAsAWhole) {
    Pipe pipe, second, hears;
    Child group(
        "sh -c \"sh -c 'trap \"\" INT; echo; exec sleep 1000 2>&-' & "
        "env --default-signal=INT sh -c 'echo; exec sleep 1000' & exit 7\"",
        -1, pipe.out.GetHandle(), hears.out.GetHandle(), btkLaunchGroup | btkLaunchSession);
    pipe.out.Close();
    EXPECT_EQ(pipe.read(true) + pipe.read(true), "");
    EXPECT_TRUE(evtEvent(new btkPROCESSEvent(group.handle)).Wait(INFINITE));
    ASSERT_TRUE(Process_Interrupt(group.id)) << "what it has started lives";
    EXPECT_EQ(hears.read(), "");
    EXPECT_TRUE(!Process_CheckRunning(group.handle) && Process_Kill(group.handle)) << "the others live";
    EXPECT_EQ(pipe.read(), "") << "ends when all of them are gone";
    EXPECT_EQ(group.wait(false), 7);
    EXPECT_TRUE(!Process_Kill(group.handle) && !Process_Interrupt(group.id) && Error_GetLast() == 87);
    EXPECT_EQ(group.wait(), 7) << "told as often as asked";

    Child deaf("sh -c \"trap '' INT; echo; exec sleep 1000\"", -1, second.out.GetHandle());
    second.read(true);
    EXPECT_TRUE(Process_Interrupt(deaf.id) && deaf.wait(false) == -2);
    ::signal(SIGINT, SIG_IGN);  // as a shell starts programs in the background
    Child hearing("sleep 1000", -1, -1, -1, btkLaunchGroup | btkLaunchSession);
    ::signal(SIGINT, SIG_DFL);
    const auto leader = static_cast<pid_t>(hearing.id), alone = static_cast<pid_t>(deaf.id);
    EXPECT_TRUE(::getsid(leader) == leader && ::getpgid(leader) == leader && ::getpgid(alone) == ::getpgrp());
    EXPECT_TRUE(Process_Interrupt(hearing.id));
    EXPECT_TRUE(hearing.wait() == 128 + SIGINT && Process_Kill(deaf.handle) && deaf.wait() == 128 + SIGKILL);
}

TEST_F(Processes, ThoseOfOthersAreOpenedAndNotCollected) {
    btkProcessHandle handle = -1;
    const auto is_none = [&handle](unsigned long id) {
        Error_SetLast(0);
        return !Process_Open(&handle, id) && Error_GetLast() == 87 && Process_GetBirth(id) == 0;
    };
    for (unsigned long none : {0UL, 1UL << 31, ~0UL, 0x7FFFFFFFUL})
        EXPECT_TRUE(is_none(none) && !Process_Interrupt(none)) << none;
    std::thread([&] { EXPECT_TRUE(is_none(static_cast<unsigned long>(::gettid()))); }).join();
    long code = -5;
    const pid_t own = start([] { return 9; });
    ASSERT_TRUE(Process_Open(&handle, static_cast<unsigned long>(own)) && Process_CanWait(handle));
    EXPECT_TRUE(Process_Wait(handle, &code, true, false) && code == 9 && !Process_CheckRunning(handle));
    EXPECT_EQ(wait_for(own), 9) << "left to its parent";
    Process_Free(handle);
    EXPECT_FALSE(Process_Wait(handle, &code, false, false) || Process_CheckRunning(handle));

    Pipe pipe;
    Child shell("sh -c \"sleep 1000 & echo $!; exec sleep 1000\"", -1, pipe.out.GetHandle());
    ASSERT_TRUE(Process_Open(&handle, std::stoul(pipe.read(true))) && Process_CheckRunning(handle));
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
    first.wait();
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
    EXPECT_TRUE(Process_GetBirth(first.id) != 0 && Process_GetBirth(first.id) != first_birth);
    EXPECT_TRUE(!Process_Interrupt(first.id) && Error_GetLast() == 87 && !Process_Kill(first.handle));
    EXPECT_EQ(::waitpid(id, nullptr, WNOHANG), 0) << "it lives";
    btkProcessHandle handle = -1;
    ASSERT_TRUE(Process_Open(&handle, first.id) && Process_CheckRunning(handle));
    EXPECT_TRUE(Process_Interrupt(first.id)) << "of two handles, the one on the living process";
    EXPECT_EQ(wait_for(id), -SIGINT);
    Process_Free(handle);
}

TEST_F(Processes, WhatWasLetGoOfIsCollectedByLaterLaunches) {
    btkProcessHandle handle = -1;
    std::vector<unsigned long> ids(20);
    for (unsigned long &id : ids) {
        ASSERT_TRUE(Process_Launch(&handle, &id, "sleep 1000", nullptr, -1, -1, -1, 0));
        Process_Free(handle);
    }
    for (unsigned long id : ids)
        ::kill(static_cast<pid_t>(id), SIGKILL);
    const auto is_gone = [](unsigned long id) { return ::kill(static_cast<pid_t>(id), 0) == -1; };
    for (int launches = 0; launches < 1000 && !std::all_of(ids.begin(), ids.end(), is_gone); ++launches)
        Child("true").wait();
    EXPECT_EQ(std::count_if(ids.begin(), ids.end(), is_gone), 20);
}

TEST_F(Processes, ExitCodesOfAProgramThatIgnoresItsChildren) {
    const int code = wait_for(start([] {
        ::signal(SIGCHLD, SIG_IGN);
        Child child("sh -c \"exit 3\"");
        const long told = child.wait(true, 7);
        return Process_CheckRunning(child.handle) || Process_Kill(child.handle) ? -1 : told;
    }));
    EXPECT_TRUE(code == 3 || code == 7)
        << code << "; 7 where the system is older than 6.15 and tells nothing";
}

// The console ----------------------------------------------------------------------------------

std::atomic<int> called = 0;
template <int Digit, bool Answer>
bool handler(unsigned long type) {
    called = called * 10 + Digit + static_cast<int>(type);
    return Answer;
}
int presses(int key) {
    called = 0;
    ::raise(key);
    return called;
}

TEST(Console, HandlersAreAskedTheYoungestFirstAndThenTheOneBefore) {
    const auto two = handler<2, false>, four = handler<4, true>, six = handler<6, false>;
    const auto set = [](bool (*each)(unsigned long)) { return SetConsoleCtrlHandler(each, true); };
    const auto take = [](bool (*each)(unsigned long)) { return SetConsoleCtrlHandler(each, false); };
    EXPECT_EQ(in_child([=] {
                  ::signal(SIGINT, [](int) { called = called * 10 + 1; });
                  ::signal(SIGQUIT, SIG_IGN);
                  EXPECT_TRUE(set(two) && set(four) && set(six));
                  EXPECT_EQ(presses(SIGINT) * 100 + presses(SIGQUIT), 6475);
                  EXPECT_TRUE(take(four) && !take(four));
                  EXPECT_EQ(presses(SIGINT) * 100 + presses(SIGQUIT), 62173);
                  int places = 0, taken = 0;
                  while (set(four))
                      ++places;
                  while (take(four))
                      ++taken;
                  EXPECT_EQ(places * 10 + taken, 66) << "eight in all";
                  // One that was installed over ours stays, and ours, put back by it, still leads on.
                  struct sigaction ours {
                  }, now{};
                  ::sigaction(SIGINT, nullptr, &ours);
                  ::signal(SIGINT, [](int) { called = 8; });
                  EXPECT_TRUE(take(six) && take(two));
                  EXPECT_EQ(presses(SIGINT), 8);
                  ::sigaction(SIGQUIT, nullptr, &now);
                  EXPECT_EQ(now.sa_handler, SIG_IGN);
                  ::sigaction(SIGINT, &ours, nullptr);
                  EXPECT_EQ(presses(SIGINT), 1);
                  EXPECT_TRUE(set(two));
                  EXPECT_EQ(presses(SIGINT), 21);
              }),
              0);
    EXPECT_EQ(wait_for(start([=] { return set(two) + ::raise(SIGINT); })), -SIGINT);
}

}  // namespace
