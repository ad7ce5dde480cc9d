// Processes as objects, with real programs: channels, ends, exceptions and interrupts.
#include <signal.h>

#include <atomic>
#include <thread>

#include <kelstdmt/proclib.h>

#include "iolibsrc/stream_support.h"
#include "scratch_folder.h"

namespace {

using Process = std::unique_ptr<pcProcess>;

struct Processes : ScratchFolder {
    static Process create(const std::string &line, ioStream *input = nullptr, ioStream *output = nullptr,
                          ioStream *error = nullptr, bool group = false) {
        return Process(pcProcess::Create(line.c_str(), xstrNullStr, input, output, error, group, false));
    }
    // What creating one throws, with its fields.
    template <class... Streams>
    static std::string refused(const std::string &line, Streams... streams) {
        try {
            create(line, streams...);
        } catch (xthrowable *exception) {
            kel::caught error(exception);
            return (std::ostringstream() << kel::printed(exception, true)).str();
        }
        return "nothing";
    }
    std::unique_ptr<ioPipe> to{ioPipe::Create()}, from{ioPipe::Create()}, aside{ioPipe::Create()};
    // The child's ends, and ours.
    ioStream *in = kel_pipe_access::ReadStream(*to), *out = kel_pipe_access::WriteStream(*from),
             *err = kel_pipe_access::WriteStream(*aside), *input = kel_pipe_access::WriteStream(*to),
             *output = kel_pipe_access::ReadStream(*from), *errors = kel_pipe_access::ReadStream(*aside);
};

TEST_F(Processes, ChannelsAreStreamsThatTheChildTakesOver) {
    Process process = create("sh -c \"read l; echo \"$l\" >&2; exec >&-; cat >&2; exit 42\"", in, out, err);
    EXPECT_FALSE(in->getIsOpen() || out->getIsOpen() || err->getIsOpen());
    std::unique_ptr<evtEvent> closed(output->InputEvent()), ended(process->ExitEvent());
    input->WriteBytes("a\nb", 3);
    input->Flush();
    EXPECT_TRUE(closed->Wait(INFINITE) && !ended->Wait(0.0)) << "its output is closed, and it lives on";
    EXPECT_TRUE(process->GetStatus() == pcRunning && process->GetExitCode() == pcProcess::NoExitCode);
    input->Close();
    EXPECT_TRUE(ended->Wait(INFINITE) && process->GetStatus() == pcExited && drain(*errors) == "a\nb");
    process->Interrupt();
    process->Terminate();
    process->Close();
    EXPECT_TRUE(process->GetStatus() == pcUninit && !process->ExitEvent() && process->GetExitCode() == 42);
}

TEST_F(Processes, WhatCannotBeStartedIsToldAndLeavesTheStreams) {
    const std::string unfit =
        "proclib::XCreate { Msg: \"Stream can not be passed to a process created as an ";
    std::unique_ptr<ioStringStream> text(ioStringStream::Create("x"));
    EXPECT_EQ(refused("touch " + path, text.get(), out, err), unfit + "input stream\"; Error: nil; }");
    EXPECT_EQ(refused("touch " + path, in, out, text.get()), unfit + "error stream\"; Error: nil; }");
    EXPECT_EQ(refused("/no/such/program", in, out, err),
              std::string("proclib::XCreate { Msg: \"") + Error_GetText(2) + "\"; Error: pcTooLongArgs; }");
    EXPECT_TRUE(in->getIsOpen() && out->getIsOpen() && err->getIsOpen() && !std::filesystem::exists(path));
}

TEST(Shell, IsWhatTheEnvironmentNames) {
    const char *before = std::getenv("SHELL");
    const std::string shell = before ? before : "";
    ::setenv("SHELL", "/bin/x", 1);
    EXPECT_EQ(kel::view(pcGetShellCommand()), "/bin/x -c");
    ::setenv("SHELL", "", 1);
    ::setenv("COMSPEC", "cmd", 1);
    EXPECT_EQ(kel::view(pcGetShellCommand()), "cmd /c");
    ::unsetenv("COMSPEC");
    EXPECT_TRUE(pcGetShellCommand().IsNull());
    before ? ::setenv("SHELL", shell.c_str(), 1) : ::unsetenv("SHELL");
}

TEST_F(Processes, ClosingLetsThemGoOnAndTerminatingEndsThemOnce) {
    Process first = create("sleep 1000", nullptr, nullptr, nullptr, true);
    const int id = first->getId();
    first->Close();
    EXPECT_TRUE(first->GetExitCode() == pcProcess::NoExitCode && pcGetProcessStatus(id) == pcRunning);
    Process again(pcProcess::Open(id));
    again->Terminate();
    again->Terminate();
    EXPECT_TRUE(std::unique_ptr<pcEvent>(again->ExitEvent())->Wait(INFINITE));
    EXPECT_EQ(again->GetExitCode(), 128 + SIGKILL) << "a child, though opened";
    EXPECT_EQ(wait_for(id), -SIGKILL);
}

TEST_F(Processes, InterruptsAreOneEventForAllWhoWait) {
    struct sigaction before {
    }, now{};
    ::sigaction(SIGINT, nullptr, &before);
    for (int key : {SIGINT, SIGQUIT}) {
        std::unique_ptr<pcInterruptEvent> first(pcInterruptEvent::Create()),
            second(pcInterruptEvent::Create());
        std::thread([key] { ::kill(::getpid(), key); }).join();
        EXPECT_TRUE(second->Wait(INFINITE) && !first->Wait(0.0)) << "taken by the wait";
        first.reset();
        ::raise(key);
        EXPECT_TRUE(second->getIsSignaled());
        pcInterruptEvent::Reset();
        EXPECT_FALSE(second->Wait(0.0));
    }
    ::sigaction(SIGINT, nullptr, &now);
    EXPECT_EQ(now.sa_handler, before.sa_handler);
    // Keys that are pressed while objects come and go, so that handlers run beside their removal.
    ::signal(SIGINT, SIG_IGN);
    std::atomic<bool> stop = false;
    std::thread presses([&] {
        while (!stop)
            ::kill(::getpid(), SIGINT);
    });
    for (int i = 0; i < 2000; ++i)
        std::unique_ptr<pcInterruptEvent>(pcInterruptEvent::Create())->Wait(0.0);
    stop = true;
    presses.join();
    ::sigaction(SIGINT, &before, nullptr);
}

}  // namespace
