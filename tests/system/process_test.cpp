// Processes as objects, with real programs: channels, ends, exceptions, the shell's prefix and interrupts.
#include <signal.h>

#include <atomic>
#include <thread>

#include <kelstdmt/proclib.h>
#include <kelstdmt/syslib.h>

#include "iolibsrc/stream_support.h"
#include "scratch_folder.h"

namespace {

using Process = std::unique_ptr<pcProcess>;

struct Processes : ScratchFolder {
    static Process create(const std::string &line, ioStream *input = nullptr, ioStream *output = nullptr,
                          ioStream *error = nullptr, bool group = false) {
        return Process(pcProcess::Create(line.c_str(), xstrNullStr, input, output, error, group, false));
    }
    std::unique_ptr<ioPipe> to{ioPipe::Create()}, from{ioPipe::Create()}, aside{ioPipe::Create()};
    // The child's ends, and ours.
    ioStream *in = kel_pipe_access::ReadStream(*to), *out = kel_pipe_access::WriteStream(*from),
             *err = kel_pipe_access::WriteStream(*aside), *input = kel_pipe_access::WriteStream(*to),
             *output = kel_pipe_access::ReadStream(*from), *errors = kel_pipe_access::ReadStream(*aside);
};

// What is thrown, with its fields.
template <class Work>
std::string thrown(Work work) {
    try {
        work();
    } catch (xthrowable *exception) {
        kel::caught error(exception);
        return (std::ostringstream() << kel::printed(exception, true)).str();
    }
    return "nothing";
}

TEST_F(Processes, ChannelsAreStreamsThatTheChildTakesOver) {
    Process process = create("sh -c \"read l; echo \"$l\" >&2; exec >&-; cat >&2; exit 42\"", in, out, err);
    EXPECT_FALSE(in->getIsOpen() || out->getIsOpen() || err->getIsOpen());
    std::unique_ptr<evtEvent> closed(output->InputEvent()), ended(process->ExitEvent());
    xauto<evtEventArray> all;
    all.append(closed.get());
    all.append(ended.get());
    EXPECT_EQ(evtEvent::Wait(&all, 0.0), 0);
    input->WriteBytes("a\nb", 3);
    input->Flush();
    EXPECT_EQ(evtEvent::Wait(&all, INFINITE), 1) << "its output is closed, and it lives on";
    EXPECT_TRUE(process->GetStatus() == pcRunning && process->GetExitCode() == pcProcess::NoExitCode);
    evtRemoveEvent(&all, closed.get());
    input->Close();
    EXPECT_EQ(evtEvent::Wait(&all, INFINITE), 1);
    EXPECT_TRUE(process->GetStatus() == pcExited && !process->IsRunning() && drain(*errors) == "a\nb");
    EXPECT_EQ(process->GetExitCode(), 42);
    process->Interrupt();
    process->Terminate();
    process->Close();
    EXPECT_TRUE(process->GetStatus() == pcUninit && !process->IsRunning() && !process->ExitEvent());
    EXPECT_EQ(process->GetExitCode(), 42);
}

TEST_F(Processes, WhatCannotBeStartedIsToldAndLeavesTheStreams) {
    std::unique_ptr<ioStringStream> text(ioStringStream::Create("x"));
    const std::tuple<std::string, ioStream *, ioStream *> mixtures[] = {
        {"input", text.get(), out}, {"output", in, text.get()}, {"error", in, out}};
    const auto create_failed = [](const std::string &message, const char *error = "pcTooLongArgs") {
        return "proclib::XCreate { Msg: \"" + message + "\"; Error: " + error + "; }";
    };
    for (const auto &[name, its_in, its_out] : mixtures)
        EXPECT_EQ(
            thrown([&, its_in = its_in, its_out = its_out] {
                create("touch " + path, its_in, its_out, text.get());
            }),
            create_failed("Stream can not be passed to a process created as an " + name + " stream", "nil"));
    EXPECT_EQ(thrown([&] { create("/no/such/program", in, out, err); }), create_failed(Error_GetText(2)));
    EXPECT_TRUE(in->getIsOpen() && out->getIsOpen() && err->getIsOpen() && !std::filesystem::exists(path));
    EXPECT_EQ(thrown([] { pcProcess::Open(-5); }), create_failed(Error_GetText(87)));
    EXPECT_EQ(thrown([] { pcXProcess::Throw(nullptr); }),
              "proclib::XProcess { Msg: \"Process manipulation error\"; Process: nil; }");
    EXPECT_EQ(thrown([] { pcXException::Throw(); }),
              "proclib::XException { Msg: \"Process manipulation error\"; }");
}

TEST_F(Processes, ClosingLetsThemGoOnAndTerminatingEndsThemOnce) {
    Process first = create("sleep 1000", nullptr, nullptr, nullptr, true);
    const int id = first->getId();
    first->Close();
    EXPECT_TRUE(first->GetExitCode() == pcProcess::NoExitCode && pcGetProcessStatus(id) == pcRunning);
    Process again(pcProcess::Open(id));
    EXPECT_EQ((std::ostringstream() << kel::printed(again.get(), true)).str(),
              "proclib::Process { Id: " + std::to_string(id) + "; }");
    again->Terminate();
    again->Terminate();
    EXPECT_TRUE(std::unique_ptr<pcEvent>(again->ExitEvent())->Wait(INFINITE));
    EXPECT_EQ(again->GetExitCode(), 128 + SIGKILL) << "a child, though opened";
    EXPECT_EQ(wait_for(id), -SIGKILL);
    EXPECT_EQ(pcGetProcessStatus(id), pcUninit);
}

TEST_F(Processes, ShellPrefix) {
    const auto prefix = [](const char *shell, const char *comspec) {
        Putenv("SHELL", shell);
        Putenv("COMSPEC", comspec);
        return text_of(pcGetShellCommand());
    };
    EXPECT_EQ(prefix(nullptr, "/dos/cmd"), "/dos/cmd /c");
    EXPECT_TRUE(prefix(nullptr, nullptr).empty() && pcGetShellCommand().IsNull());
    EXPECT_EQ(prefix((folder + "/mine").c_str(), "/dos/cmd"), folder + "/mine -c");
    // A shell that only the environment tells of, and a line that has quotes of its own.
    std::filesystem::create_symlink("/bin/sh", folder + "/mine");
    Process process = create(text_of(pcGetShellCommand()) + " \"echo \"a  b\" | tr a-z A-Z\"", nullptr, out);
    EXPECT_EQ(drain(*output), "A  B\n");
}

TEST_F(Processes, InterruptsAreOneEventForAllWhoWait) {
    struct sigaction before {
    }, now{};
    ::sigaction(SIGINT, nullptr, &before);
    for (int key : {SIGINT, SIGQUIT}) {
        std::unique_ptr<pcInterruptEvent> first(pcInterruptEvent::Create()),
            second(pcInterruptEvent::Create());
        EXPECT_FALSE(first->Wait(0.0) || second->getIsSignaled());
        std::thread([key] { ::kill(::getpid(), key); }).join();
        EXPECT_TRUE(second->Wait(INFINITE) && !first->Wait(0.0)) << "taken by the wait";
        first.reset();
        ::raise(key);
        while (!second->getIsSignaled())
            std::this_thread::yield();
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
