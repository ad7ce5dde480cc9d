// The processes and the console of the runtime: how command lines are read, what a child finds, whom signals
// reach, and what is known of processes that others started.
#include <fcntl.h>
#include <signal.h>

#include <random>
#include <thread>

#include <kelstdmt/kelstdmt.h>

#include "scratch_folder.h"

namespace {

namespace fs = std::filesystem;

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
        : is_there(Process_Launch(&handle, &id, line.c_str(), folder, in, out, err, options)) {}
    ~Child() {
        Process_Kill(handle);
        Process_Wait(handle, nullptr, true, true);
    }
    long wait(bool block = true, long code = -1) {
        return Process_Wait(handle, &code, block, false) ? code : -2;
    }

    btkProcessHandle handle = -1;
    unsigned long id = 0;
    bool is_there;
};

std::string output_of(const std::string &line, const char *folder = nullptr) {
    Pipe pipe;
    Child child(line, -1, pipe.out.GetHandle(), -1, 0, folder);
    return pipe.read();
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
    const std::string show = "/usr/bin/printf %s| ", cmd = at("CMD.EXE");
    std::mt19937 random(5);
    for (int round = 0; round < 150; ++round) {
        std::string line = show, expected;
        for (auto count = 1 + random() % 6; count > 0; --count) {
            std::string argument;
            for (auto size = random() % 9; size > 0; --size)
                argument += "\"\"\\\\\\ \tab'$"[random() % 11];
            line += in_quotes(argument) + (random() % 2 ? " " : " \t ");
            expected += argument + '|';
        }
        EXPECT_EQ(output_of(line), expected) << line;
    }
    put("CMD.EXE", "#!/usr/bin/printf %s|\n");
    const std::string script = put("script", "printf '%s|' \"$@\"\n");
    fs::permissions(cmd, fs::perms::owner_all);
    const std::pair<std::string, std::string> cases[] = {
        {show + "a\\\\b c\\\"d \"e f\"g \"\" h\\\\\\\"i", "a\\\\b|c\"d|e fg||h\\\"i|"},
        {show + "\"a\"\"b\" \"\"\"x y\"\"\" \"open end", "a\"b|\"x y\"|open end|"},
        {" \t\"C:\\usr\\bin\\printf\" %s| y\\", "y\\|"},
        {"sh -c \"printf \"%s|\" \"a b\" \"\\\"\"\"", "a b|\"|"},
        {"sh -c \"printf '%s|' \"$0\" \"$1\"\" x  yz", "x|yz|"},
        {"bash --norc -eo pipefail -c printf '%s|' \"a  b\" | cat", "a  b|"},
        {"bash --rcfile none -c printf '%s|' \"a  b\"", "a  b|"},
        {"sh " + script + " -c \"a b\" \"c d\"", "-c|a b|c d|"},
        {cmd + " /t:0a /s /C \"say \"a b\" \\\"", cmd + "|/t:0a|/s|/C|say \"a b\" \\|"},
        {"env printf %s| -c \"a\" \"b\"", "-c|a|b|"}};
    for (const auto &[line, expected] : cases)
        EXPECT_EQ(output_of(line), expected) << line;
}

TEST_F(Processes, FailuresHaveTheirNumbersAndLeaveNothing) {
    const auto before = open_descriptors();
    put("no_program", "echo no program");
    put("script", "#!/no/such/interpreter\n");
    put("text", "echo no program");
    for (const char *name : {"script", "text"})
        fs::permissions(at(name), fs::perms::owner_all);
    const std::string long_line = "true " + std::string(200000, 'x');
    const std::tuple<std::string, std::string, int, int> failures[] = {
        {at("no_program"), "", -1, 5}, {at("text"), "", -1, 193}, {at("script"), "", -1, 2},
        {"no_such_one", "", -1, 2},    {folder, "", -1, 5},       {"true", at("missing"), -1, 267},
        {"true", at("text"), -1, 267}, {"true", "", 999, 87},     {" \t", "", -1, 87},
        {"\"\" true", "", -1, 87},     {long_line, "", -1, 206}};
    for (const auto &[line, place, out, number] : failures)
        EXPECT_TRUE(!Child(line, -1, out, -1, 0, place.empty() ? nullptr : place.c_str()).is_there &&
                    Error_GetLast() == number)
            << line.substr(0, 80);
    EXPECT_TRUE(::waitpid(-1, nullptr, WNOHANG | __WALL) == -1 && errno == ECHILD);
    EXPECT_EQ(open_descriptors(), before);
    // What is relative is so to the caller's folder; a folder may be named in either form.
    put("script", "#!/bin/sh\npwd\n");
    fs::current_path(folder);
    EXPECT_EQ(output_of(".\\script", "C:\\usr\\bin"), "/usr/bin\n");
    fs::current_path("/");
}

TEST_F(Processes, EveryMixtureOfHandlesArrivesAndNothingElse) {
    const int high = ::fcntl(::open("/dev/full", O_RDWR), F_DUPFD, 77), choices[] = {-1, 0, 1, 2, high};
    const std::string list = "sh -c \"(cd /proc/$$/fd && stat -c %N * >" + path + "); :\"";
    // Apart, since its own standard channels change.
    const auto count_wrong = [&] {
        for (int fd = 0; fd < 3; ++fd)
            ::dup2(::open((path + std::to_string(fd)).c_str(), O_CREAT | O_RDWR, 0600), fd);
        int wrong = 0;
        for (int mixture = 0; mixture < 125; ++mixture) {
            const int use[] = {choices[mixture % 5], choices[mixture / 5 % 5], choices[mixture / 25]};
            std::ostringstream expected;
            for (int fd = 0; fd < 3; ++fd) {
                const std::string used = std::to_string(use[fd] < 0 ? fd : use[fd]);
                expected << "'" << fd << "' -> '" << fs::read_symlink("/proc/self/fd/" + used).string()
                         << "'\n";
            }
            Child(list, use[0], use[1], use[2]).wait();
            wrong += get() != expected.str();
        }
        return wrong;
    };
    EXPECT_EQ(wait_for(start(count_wrong)), 0);
    ::close(high);
}

TEST_F(Processes, ManyThreadsLaunchAndNoChildHoldsWhatIsAnothers) {
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
    EXPECT_EQ(right, 8 * 15);
}

TEST_F(Processes, SignalsAreThoseOfAFreshProgram) {
    const auto work = [] {
        sigset_t all;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
        ::signal(SIGRTMIN + 3, [](int) {});
        ::signal(SIGHUP, SIG_IGN);
        const std::string zeros(15, '0');
        EXPECT_EQ(output_of("sed -n /Sig[BIC]/p /proc/self/status"),
                  "SigBlk:\t0" + zeros + "\nSigIgn:\t" + zeros + "1\nSigCgt:\t0" + zeros + "\n");
    };
    EXPECT_EQ(in_child(work), 0);
}

TEST_F(Processes, GroupsAreInterruptedAndKilledAsAWhole) {
    Pipe pipe, hears;
    Child group(
        "sh -c \"sh -c 'trap \"\" INT; echo; exec sleep 1000 2>&-' & "
        "env --default-signal=INT sh -c 'echo; exec sleep 1000' & exit 7\"",
        -1, pipe.out.GetHandle(), hears.out.GetHandle(), btkLaunchGroup);
    pipe.out.Close();
    EXPECT_EQ(pipe.read(true) + pipe.read(true), "");
    EXPECT_TRUE(evtEvent(new btkPROCESSEvent(group.handle)).Wait(INFINITE));
    ASSERT_TRUE(Process_Interrupt(group.id)) << "what it has started lives";
    EXPECT_EQ(hears.read(), "");
    EXPECT_TRUE(Process_Kill(group.handle)) << "the others live";
    EXPECT_EQ(pipe.read(), "") << "ends when all of them are gone";
    EXPECT_TRUE(group.wait(false) == 7 && group.wait() == 7) << "told as often as asked";
    EXPECT_TRUE(!Process_Kill(group.handle) && !Process_Interrupt(group.id) && Error_GetLast() == 87);
    ::signal(SIGINT, SIG_IGN);  // as a shell starts programs in the background
    Child hearing("sleep 1000", -1, -1, -1, btkLaunchGroup | btkLaunchSession);
    ::signal(SIGINT, SIG_DFL);
    EXPECT_EQ(::getsid(static_cast<pid_t>(hearing.id)), static_cast<pid_t>(hearing.id));
    EXPECT_TRUE(Process_Interrupt(hearing.id) && hearing.wait() == 128 + SIGINT);
}

TEST_F(Processes, ThoseOfOthersAreOpenedAndNotCollected) {
    btkProcessHandle handle = -1;
    for (unsigned long none : {0UL, 1UL << 31, ~0UL, 0x7FFFFFFFUL})
        EXPECT_FALSE(Process_Open(&handle, none) || Process_GetBirth(none) || Process_Interrupt(none))
            << none;
    long code = -5;
    const pid_t own = start([] { return 9; });
    ASSERT_TRUE(Process_Open(&handle, static_cast<unsigned long>(own)) && Process_CanWait(handle));
    EXPECT_TRUE(Process_Wait(handle, &code, true, false) && code == 9 && !Process_CheckRunning(handle));
    EXPECT_EQ(wait_for(own), 9) << "left to its parent";
    // A grandchild, by a name that could be taken for what stands behind it.
    const std::string odd = at("a) R 1 (b");
    fs::copy_file("/bin/sleep", odd);
    Pipe pipe;
    Child shell("sh -c \"'" + odd + "' 1000 & echo $!; exec sleep 1000\"", -1, pipe.out.GetHandle());
    const unsigned long id = std::stoul(pipe.read(true));
    const auto birth = Process_GetBirth(id);
    EXPECT_TRUE(birth != 0 && birth != Process_GetBirth(Process_GetCurrentId()));
    ASSERT_TRUE(Process_Open(&handle, id) && Process_CheckRunning(handle));
    EXPECT_TRUE(Process_Kill(handle) && Process_Wait(handle, &code, true, true) && code == 9) << "no code";
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
    const auto two = handler<2, false>, four = handler<4, true>;
    const auto work = [=] {
        ::signal(SIGINT, [](int) { called = called * 10 + 1; });
        ::signal(SIGQUIT, SIG_IGN);
        EXPECT_TRUE(SetConsoleCtrlHandler(four, true) && SetConsoleCtrlHandler(two, true));
        EXPECT_EQ(presses(SIGINT) * 100 + presses(SIGQUIT), 2435);
        EXPECT_TRUE(SetConsoleCtrlHandler(four, false) && !SetConsoleCtrlHandler(four, false));
        EXPECT_EQ(presses(SIGINT) * 10 + presses(SIGQUIT), 213);
        EXPECT_TRUE(SetConsoleCtrlHandler(two, false));
        EXPECT_EQ(presses(SIGINT) * 10 + presses(SIGQUIT), 10);
    };
    EXPECT_EQ(in_child(work), 0);
    EXPECT_EQ(wait_for(start([=] { return SetConsoleCtrlHandler(two, true) + ::raise(SIGINT); })), -SIGINT);
}

}  // namespace
