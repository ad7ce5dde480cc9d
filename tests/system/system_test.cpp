// The running system beside the tools of the shell; commands, sleep and environment under signals.
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include <kelstdmt/kel.h>
#include <kelstdmt/syslib.h>

namespace {

std::string told_by(const char *command) {
    std::FILE *pipe = ::popen(command, "r");
    char line[300] = "";
    if (std::fgets(line, sizeof line, pipe)) line[std::string(line).find_last_not_of('\n') + 1] = 0;
    ::pclose(pipe);
    return line;
}

std::string reported(const std::function<void()> &action) {
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}

// Interrupts every call of the system that can be, every five milliseconds.
class Interruptions {
public:
    Interruptions() {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        ::sigaction(SIGALRM, &action, &m_before);
        set(5000);
    }
    ~Interruptions() {
        set(0);
        ::sigaction(SIGALRM, &m_before, nullptr);
    }

private:
    static void set(int micros) {
        const itimerval timer{{0, micros}, {0, micros}};
        ::setitimer(ITIMER_REAL, &timer, nullptr);
    }
    struct sigaction m_before {};
};

TEST(System, NamesAreThoseOfTheSystem) {
    EXPECT_EQ(sysGetCurHostName().Str(), told_by("uname -n"));
    EXPECT_EQ(sysGetPlatform().Str(), told_by("uname -m"));
    EXPECT_EQ(sysGetOSType().Str(), told_by("uname -s"));
    if (::getpwuid(::geteuid())) {
        EXPECT_EQ(sysGetCurUserName().Str(), told_by("id -un"));
    }
    constexpr uid_t nobody_has = 54'321'987;
    if (::geteuid() != 0 || ::getpwuid(nobody_has)) GTEST_SKIP() << "cannot become a user without a name";
    EXPECT_EXIT(
        {
            const bool became = ::setresuid(nobody_has, nobody_has, nobody_has) == 0;
            std::exit(became && !kel::is_text(sysGetCurUserName()) ? 3 : 4);
        },
        testing::ExitedWithCode(3),
        testing::Eq("Exception: \"Can't get user name\"\n\tin function \"sysGetCurUserName\"\n"));
}

TEST(System, Environment) {
    const char *name = "KELSTDMT_TEST_VARIABLE";
    EXPECT_EQ(sysGetEnv(name).Str(), xstrNullStr);
    for (const char *value : {"a=b c", "", "\xff\n"}) {
        sysPutEnv(name, value);
        EXPECT_STREQ(sysGetEnv(name), value);
        EXPECT_STREQ(std::getenv(name), value);
    }
    sysPutEnv(name, xstrNullStr);
    EXPECT_EQ(std::getenv(name), nullptr);
    EXPECT_EQ(sysGetEnv(nullptr).Str(), xstrNullStr);
    for (const char *wrong : {"", "A=B", "="})
        EXPECT_EQ(reported([&] { sysPutEnv(wrong, "x"); }),
                  "Exception: \"Can't set environment variable\"\n\tin function \"sysPutEnv\"\n"
                  "\t( Environment variable: \"" +
                      std::string(wrong) + "\" )\n");
    EXPECT_NE(reported([] { sysPutEnv(nullptr, nullptr); }).find("variable: \"\" )"), std::string::npos);
    EXPECT_EQ(Error_GetLast(), 87);
    const auto report = [](int code) {
        return reported([&] { sysHandleKnownError(static_cast<sysErrorCode>(code), "f", "A"); });
    };
    EXPECT_EQ(report(0), "Exception: \"Can't get host name\"\n\tin function \"f\"\n");
    EXPECT_EQ(report(3), "Exception: \"Internal error\"\n\tin function \"f\"\n");
    EXPECT_EQ(report(-1), "Exception: \"No description\"\n\tin function \"f\"\n");
}

TEST(System, CommandsAnswerTheirExitCode) {
    const std::string interrupt = "kill -INT " + std::to_string(::getpid()) + "; exit 9";
    const struct {
        const char *line;
        int code;
    } cases[] = {{"exit 7", 7},         {"sleep 0.1; exit 255", 255},
                 {"kill -9 $$", 137},   {"kelstdmt-no-such-command 2>&-", 127},
                 {"-x 2>&-", 127},      {"", 0},
                 {"false | true", 0},   {"sh -c 'exit 3'; exit $(($? + 1))", 4},
                 {interrupt.c_str(), 9}};
    const Interruptions interruptions;
    for (const auto handling : {SIG_DFL, SIG_IGN}) {
        const auto before = ::signal(SIGCHLD, handling);
        for (const auto &[line, code] : cases)
            EXPECT_EQ(sysOSCall(line), code)
                << line << (handling == SIG_IGN ? ", ends of children ignored" : "");
        EXPECT_TRUE(::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD) << "a process is left";
        ::signal(SIGCHLD, before);
    }
    for (const char *none : {static_cast<const char *>(nullptr), xstrNullStr}) {
        EXPECT_EQ(sysOSCall(none), -1);
        EXPECT_EQ(Error_GetLast(), 87);
    }
}

TEST(System, SleepsTheWholeTime) {
    const auto start = std::chrono::steady_clock::now();
    const auto seconds = [&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    const Interruptions interruptions;
    for (int at_once : {0, -1, INT_MIN})
        sysSleep(at_once);
    sysSleep(1);
    EXPECT_GE(seconds(), 1.0);
    EXPECT_LT(seconds(), 30);
}

}  // namespace
