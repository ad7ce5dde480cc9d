// The running system beside the tools of the shell; commands, sleep and environment under signals.
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <functional>

#include <kelstdmt/kel.h>
#include <kelstdmt/syslib.h>

#include "shell.h"
#include "timing.h"

namespace {

std::string reported(const std::function<void()> &action) {
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}

TEST(System, NamesAreThoseOfTheSystem) {
    const auto line = [](const xstring &name) { return std::string(kel::view(name)) + "\n"; };
    EXPECT_EQ(line(sysGetCurHostName()) + line(sysGetPlatform()) + line(sysGetOSType()),
              shell("uname -n; uname -m; uname -s").out);
    if (::getpwuid(::geteuid())) {
        EXPECT_EQ(line(sysGetCurUserName()), shell("id -un").out);
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
    for (const auto &[wrong, shown] : {std::pair{"", ""}, {"A=B", "A=B"}, {nullptr, ""}})
        EXPECT_EQ(reported([&, wrong = wrong] { sysPutEnv(wrong, nullptr); }),
                  "Exception: \"Can't set environment variable\"\n\tin function \"sysPutEnv\"\n"
                  "\t( Environment variable: \"" +
                      std::string(shown) + "\" )\n");
    EXPECT_EQ(Error_GetLast(), 87);
    const std::pair<int, const char *> codes[] = {
        {0, "Can't get host name"}, {3, "Internal error"}, {-1, "No description"}};
    for (const auto &[code, message] : codes)
        EXPECT_EQ(reported([&] { sysHandleKnownError(static_cast<sysErrorCode>(code), "f", "A"); }),
                  std::string("Exception: \"") + message + "\"\n\tin function \"f\"\n");
}

TEST(System, CommandsAnswerTheirExitCode) {
    const std::string interrupt = "kill -INT " + std::to_string(::getpid()) + "; exit 9";
    const std::pair<const char *, int> cases[] = {{"sleep 0.1; exit 255", 255},
                                                  {"kill -9 $$", 137},
                                                  {"kelstdmt-no-such-command 2>&-", 127},
                                                  {"-x 2>&-", 127},
                                                  {"", 0},
                                                  {"false | true", 0},
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
    const Interruptions interruptions;
    const double slept = seconds([] {
        for (int duration : {0, -1, INT_MIN, 1})
            sysSleep(duration);
    });
    EXPECT_TRUE(slept >= 1.0 && slept < 30) << slept;
}

}  // namespace
