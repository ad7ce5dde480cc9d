// Processes as objects, with real programs: their channels, their ends, their exceptions, and interrupts.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include <kelstdmt/kel.h>
#include <kelstdmt/proclib.h>

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
        return {std::string(kel::view(error.type_name())), "", 0};
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

}  // namespace
