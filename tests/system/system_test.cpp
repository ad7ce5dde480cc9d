// The environment, and commands under signals.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include <kelstdmt/kel.h>
#include <kelstdmt/syslib.h>

#include "scratch_folder.h"
#include "timing.h"

namespace {

TEST(System, Environment) {
    const char *name = "KELSTDMT_TEST_VARIABLE";
    for (const char *value : {"a=b c", "", "\xff\n"}) {
        sysPutEnv(name, value);
        EXPECT_STREQ(sysGetEnv(name), value);
    }
    sysPutEnv(name, xstrNullStr);
    EXPECT_TRUE(std::getenv(name) == nullptr && sysGetEnv(name).IsNull() && sysGetEnv(nullptr).IsNull());
    testing::internal::CaptureStderr();
    sysPutEnv("A=B", "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Exception: \"Can't set environment variable\"\n\tin function \"sysPutEnv\"\n"
              "\t( Environment variable: \"A=B\" )\n");
}

TEST(System, TellsOfItselfAndOfItsErrors) {
    utsname told{};
    ASSERT_EQ(::uname(&told), 0);
    EXPECT_STREQ(sysGetPlatform(), told.machine);
    EXPECT_STREQ(sysGetOSType(), told.sysname);
    EXPECT_STREQ(sysGetCurHostName(), told.nodename);
    const std::pair<sysErrorCode, std::string> errors[] = {{sysErrHostName, "Can't get host name"},
                                                           {sysErrUserName, "Can't get user name"},
                                                           {sysErrInternal, "Internal error"},
                                                           {static_cast<sysErrorCode>(99), "No description"}};
    for (const auto &[code, message] : errors) {
        testing::internal::CaptureStderr();
        sysHandleKnownError(code, "f", xstrNullStr);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "Exception: \"" + message + "\"\n\tin function \"f\"\n");
    }
    EXPECT_GT(seconds([] { sysSleep(1), sysSleep(-1); }), 0.99);
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
    // For want of processes, which the superuser has always.
    EXPECT_EQ(in_child([] {
                  ::signal(SIGCHLD, SIG_IGN);
                  const rlimit none{};
                  ASSERT_TRUE(::geteuid() != 0 || ::setuid(65534) == 0);
                  ASSERT_EQ(::setrlimit(RLIMIT_NPROC, &none), 0);
                  EXPECT_TRUE(sysOSCall("true") == -1 && Error_GetLast() == 1816) << Error_GetLast();
              }),
              0);
    const Interruptions interruptions;
    for (const auto handling : {SIG_DFL, SIG_IGN}) {
        const auto before = ::signal(SIGCHLD, handling);
        for (const auto &[line, code] : cases)
            EXPECT_EQ(sysOSCall(line), code)
                << line << (handling == SIG_IGN ? ", ends of children ignored" : "");
        EXPECT_TRUE(::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD) << "a process is left";
        ::signal(SIGCHLD, before);
    }
    EXPECT_TRUE(sysOSCall(nullptr) == -1 && Error_GetLast() == 87);
}

}  // namespace
