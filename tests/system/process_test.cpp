// Processes as objects, with real programs: their channels, their ends, their exceptions, and interrupts.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <sstream>
#include <thread>

#include <kelstdmt/kel.h>
#include <kelstdmt/proclib.h>
#include <kelstdmt/syslib.h>

#include "iolibsrc/stream_support.h"
#include "scratch_folder.h"

namespace {

using Process = std::unique_ptr<pcProcess>;

struct Processes : ScratchFolder {
    // What a command prints on standard output, and all of the channels through pipes.
    std::unique_ptr<ioPipe> in{ioPipe::Create()}, out{ioPipe::Create()}, err{ioPipe::Create()};
    static ioPipeStream *reading(const std::unique_ptr<ioPipe> &pipe) {
        return kel_pipe_access::ReadStream(*pipe);
    }
    static ioPipeStream *writing(const std::unique_ptr<ioPipe> &pipe) {
        return kel_pipe_access::WriteStream(*pipe);
    }
    static Process create(const char *line, ioStream *input = nullptr, ioStream *output = nullptr,
                          ioStream *error = nullptr, bool group = false, const char *in_folder = nullptr) {
        return Process(pcProcess::Create(line, in_folder, input, output, error, group, false));
    }
    static bool ends(const Process &process) {
        return std::unique_ptr<pcEvent>(process->ExitEvent())->Wait(60.0);
    }
};

std::string line_of(xobject *object) {
    std::ostringstream line;
    line << kel::printed(object, true);
    return line.str();
}

// What is thrown, and that it tells itself as declared.
struct Told {
    std::string name, message;
    int error = -1;
    bool operator==(const Told &) const = default;
};
std::ostream &operator<<(std::ostream &to, const Told &told) {
    return to << told.name << ' ' << told.error << ": " << told.message;
}
template <class Work>
Told told(Work work) {
    try {
        work();
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        if (auto *create = error.as<pcXCreate>())
            return {std::string(kel::view(error.type_name())), std::string(kel::view(create->getMsg())),
                    static_cast<int>(create->getError())};
        auto *general = error.as<pcXException>();
        return {std::string(kel::view(error.type_name())), general ? text_of(general->getMsg()) : "", 0};
    }
    return {};
}

TEST_F(Processes, ChannelsAreStreamsThatTheChildTakesOver) {
    Process process =
        create("sh -c \"cat; echo \"to err\" >&2; exit 42\"", reading(in), writing(out), writing(err));
    EXPECT_TRUE(!reading(in)->getIsOpen() && !writing(out)->getIsOpen() && !writing(err)->getIsOpen());
    EXPECT_EQ(process->GetStatus(), pcRunning);
    EXPECT_TRUE(process->IsRunning() && process->GetExitCode() == pcProcess::NoExitCode);
    writing(in)->WriteBytes("hello\n", 6);
    writing(in)->Close();
    EXPECT_EQ(drain(*reading(out)), "hello\n");
    EXPECT_EQ(drain(*reading(err)), "to err\n");
    EXPECT_TRUE(ends(process) && process->GetStatus() == pcExited && !process->IsRunning());
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(process->GetExitCode(), 42);
    EXPECT_EQ(process->GetStatus(), pcUninit);
    EXPECT_EQ(process->ExitEvent(), nullptr);
    process->Interrupt();
    process->Terminate();
    process->Close();
    EXPECT_EQ(process->GetExitCode(), 42);
}

TEST_F(Processes, WhatCannotBeStartedIsToldAndLeavesTheStreams) {
    const std::string stream = "Stream can not be passed to a process created as an ";
    std::unique_ptr<ioStringStream> text(ioStringStream::Create("x"));
    const auto refused = [&](const char *line, ioStream *i, ioStream *o, ioStream *e) {
        return told([&] { create(line, i, o, e); });
    };
    const std::string touch = "touch " + path;
    EXPECT_EQ(refused(touch.c_str(), text.get(), text.get(), nullptr),
              (Told{"proclib::XCreate", stream + "input stream", 11}));
    EXPECT_EQ(refused(touch.c_str(), reading(in), text.get(), text.get()),
              (Told{"proclib::XCreate", stream + "output stream", 12}));
    EXPECT_EQ(refused(touch.c_str(), reading(in), writing(out), text.get()),
              (Told{"proclib::XCreate", stream + "error stream", 13}));
    EXPECT_EQ(refused("/no/such/program", reading(in), writing(out), writing(err)),
              (Told{"proclib::XCreate", Error_GetText(2), 3}));
    EXPECT_TRUE(reading(in)->getIsOpen() && writing(out)->getIsOpen() && writing(err)->getIsOpen());
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(told([] { pcProcess::Open(-5); }), (Told{"proclib::XCreate", Error_GetText(87), 3}));
}

TEST_F(Processes, ClosingLetsThemGoOnAndTerminatingEndsThemOnce) {
    Process first = create("sleep 1000", nullptr, nullptr, nullptr, true);
    const int id = first->getId();
    first->Close();
    first->Close();
    EXPECT_TRUE(!first->IsRunning() && first->GetExitCode() == pcProcess::NoExitCode);
    EXPECT_EQ(pcGetProcessStatus(id), pcRunning);
    Process again(pcProcess::Open(id));
    EXPECT_EQ(line_of(again.get()), "proclib::Process { Id: " + std::to_string(id) + "; }");
    again->Terminate();
    again->Terminate();
    EXPECT_TRUE(ends(again));
    EXPECT_EQ(again->GetExitCode(), 128 + SIGKILL) << "a child, though opened";
    EXPECT_EQ(wait_for(id), -SIGKILL);
    EXPECT_EQ(pcGetProcessStatus(id), pcUninit);
}

TEST_F(Processes, TheirEndIsAwaitedBesideSocketsAndStreams) {
    int sockets[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets), 0);
    Process process = create("sh -c \"read line; exec >&-; read line; exit 5\"", reading(in), writing(out),
                             nullptr, false, "C:\\");
    std::unique_ptr<evtEvent> events[] = {std::make_unique<evtEvent>(new btkSelectEvent(sockets[0], 0)),
                                          std::unique_ptr<evtEvent>(reading(out)->InputEvent()),
                                          std::unique_ptr<evtEvent>(process->ExitEvent())};
    xauto<evtEventArray> all;
    for (auto &event : events)
        all.append(event.get());
    EXPECT_EQ(evtEvent::Wait(&all, 0.0), 0);
    EXPECT_EQ(::write(sockets[1], "x", 1), 1);
    EXPECT_EQ(evtEvent::Wait(&all, INFINITE), 1);
    evtRemoveEvent(&all, events[0].get());
    writing(in)->WriteBytes("\n", 1);
    writing(in)->Flush();
    EXPECT_EQ(evtEvent::Wait(&all, INFINITE), 1) << "its output is closed, and it lives on";
    EXPECT_TRUE(process->IsRunning() && process->GetExitCode() == pcProcess::NoExitCode);
    evtRemoveEvent(&all, events[1].get());
    writing(in)->Close();
    EXPECT_EQ(evtEvent::Wait(&all, INFINITE), 1);
    EXPECT_EQ(process->GetExitCode(), 5);
    ::close(sockets[0]);
    ::close(sockets[1]);
}

TEST_F(Processes, ShellPrefix) {
    const auto prefix = [](const char *shell, const char *comspec) {
        Putenv("SHELL", shell);
        Putenv("COMSPEC", comspec);
        return text_of(pcGetShellCommand());
    };
    const std::string before = sysGetEnv("SHELL").IsNull() ? "/bin/sh" : text_of(sysGetEnv("SHELL"));
    EXPECT_EQ(prefix(nullptr, "/dos/cmd"), "/dos/cmd /c");
    EXPECT_TRUE(prefix(nullptr, nullptr).empty() && pcGetShellCommand().IsNull());
    EXPECT_EQ(prefix((folder + "/mine").c_str(), "/dos/cmd"), folder + "/mine -c");
    // A shell that only the environment tells of, and a line that has quotes of its own.
    std::filesystem::create_symlink("/bin/sh", folder + "/mine");
    const std::string line = text_of(pcGetShellCommand()) + " \"echo \"a  b\" | tr a-z A-Z\"";
    Process process = create(line.c_str(), nullptr, writing(out));
    EXPECT_EQ(drain(*reading(out)), "A  B\n");
    prefix(before.c_str(), nullptr);
}

TEST_F(Processes, InterruptsAreOneEventForAllWhoWait) {
    struct sigaction before {
    }, now{};
    ::sigaction(SIGINT, nullptr, &before);
    for (int round = 0; round < 2; ++round) {
        std::unique_ptr<pcInterruptEvent> first(pcInterruptEvent::Create()),
            second(pcInterruptEvent::Create());
        EXPECT_TRUE(!first->Wait(0.0) && !second->getIsSignaled());
        ::raise(round ? SIGQUIT : SIGINT);
        EXPECT_TRUE(second->Wait(60.0) && !first->Wait(0.0)) << "taken by the wait";
        first.reset();
        ::raise(SIGINT);
        while (!second->getIsSignaled())
            std::this_thread::yield();
        pcInterruptEvent::Reset();
        EXPECT_FALSE(second->Wait(0.0));
        // From a terminal's signal in another thread.
        std::thread([] { ::kill(::getpid(), SIGINT); }).join();
        EXPECT_TRUE(second->Wait(INFINITE));
    }
    ::sigaction(SIGINT, nullptr, &now);
    EXPECT_EQ(now.sa_handler, before.sa_handler);
    // Keys that are pressed while the last one goes and others come.
    const std::unique_ptr<pcInterruptEvent> safe(pcInterruptEvent::Create());
    std::atomic<bool> stop = false;
    std::thread presses([&] {
        while (!stop)
            ::kill(::getpid(), SIGINT);
    });
    for (int i = 0; i < 2000; ++i)
        std::unique_ptr<pcInterruptEvent>(pcInterruptEvent::Create())->Wait(0.0);
    stop = true;
    presses.join();
}

TEST_F(Processes, ExceptionsPrintWhatTheyHold) {
    const auto printed = [](int error) {
        return line_of(std::unique_ptr<pcXCreate>(pcXCreate::Create(error, 5)).get());
    };
    EXPECT_EQ(printed(3), "proclib::XCreate { Msg: \"Access is denied.\"; Error: pcTooLongArgs; }");
    EXPECT_EQ(printed(11),
              "proclib::XCreate { Msg: \"Stream can not be passed to a process created as an input "
              "stream\"; Error: nil; }");
    Process process = create("true");
    EXPECT_EQ(told([&] { pcXProcess::Throw(process.get()); }),
              (Told{"proclib::XProcess", "Process manipulation error", 0}));
    EXPECT_EQ(told([] { pcXException::Throw(); }),
              (Told{"proclib::XException", "Process manipulation error", 0}));
}

}  // namespace
