// The remote shell as a library: streams of the caller's as channels, process and server objects, and both
// relays in one process. What travels is tested from outside, by tests/tools/kelrshd_test.py and rsh_test.py.
#include <thread>

#include <kelstdmt/rshlib.h>

#include "netlibsrc/connected.h"
#include "scratch_folder.h"

namespace {

using Process = std::unique_ptr<rshProcess>;

constexpr double seconds = 30;

std::string rest_of(ioStream *stream) {
    std::string all;
    char block[65536];
    const std::unique_ptr<ioEvent> input(stream->InputEvent());
    while (input->Wait(seconds)) {
        const unsigned count = stream->PeekNBytes();
        if (count == 0) return all;
        all.append(block, stream->ReadBytes(block, std::min<unsigned>(count, sizeof block)));
    }
    ADD_FAILURE() << "no end after " << all.size() << " bytes";
    return all;
}

int wait_for(rshProcess &process) {
    const std::unique_ptr<rshEvent> exit(process.ExitEvent());
    EXPECT_TRUE(exit->Wait(seconds)) << "the relay does not end";
    return process.GetExitCode();
}

// A server of ours on a thread of its own.
struct Session : Connected {
    explicit Session(const char *base = "") : server(rshServer::Create(far.get(), base, false)) {}

    Process Start(const char *command, const char *where = nullptr, ioStream *in = nullptr,
                  ioStream *out = nullptr) const {
        return Process(rshProcess::Create(near.get(), command, where, in, out, nullptr, true, false));
    }

    std::unique_ptr<rshServer> server;
};

using RemoteShell = ScratchFolder;

TEST_F(RemoteShell, TheCallersStreamsAreTheChannels) {
    const std::string bytes(std::size_t{3} << 20, 'b');
    put("in/here", bytes);
    const std::unique_ptr<ioStream> in(ioFileStream::Open(at("in/here").c_str(), ioReadOnly)),
        file(ioFileStream::Create(at("out").c_str(), ioWriteOnly, true));
    const std::unique_ptr<ioPipe> pipe(ioPipe::Create());
    for (const bool to_pipe : {false, true}) {
        ioStream *out = to_pipe ? kel_pipe_access::WriteStream(*pipe) : file.get();
        const Session session(folder.c_str());
        const Process process = session.Start("cat - here; pwd >&2", "in", in.get(), out);
        EXPECT_TRUE(!process->getStdin() && !process->getStdout());
        if (to_pipe) {  // which takes some at a time
            std::string taken(bytes.size(), 0);
            kel_pipe_access::ReadStream(*pipe)->ReadBytes(taken.data(), static_cast<unsigned>(taken.size()));
            EXPECT_TRUE(taken == bytes);
        }
        EXPECT_EQ(rest_of(process->getStderr()), at("in") + "\n");
        EXPECT_EQ(wait_for(*process), 0);
    }
    EXPECT_TRUE(get("out") == bytes + bytes) << get("out").size();
}

// Another reader of the same input takes some of what its event told.
TEST_F(RemoteShell, AWakeUpForNothingIsNoEnd) {
    const std::unique_ptr<ioPipe> pipe(ioPipe::Create());
    ioStream *in = kel_pipe_access::ReadStream(*pipe), *writer = kel_pipe_access::WriteStream(*pipe);
    const Session session;
    const Process process = session.Start("wc -c", nullptr, in);
    constexpr int all = 3000;
    std::size_t taken = 0;
    std::thread thief([&, fd = in->GetInheritHandle()] {
        for (char byte; ::read(fd, &byte, 1) == 1;)
            ++taken;
    });
    for (int i = 0; i < all; ++i)
        writer->WriteBytes("x", 1), writer->Flush();
    writer->Close();
    thief.join();
    EXPECT_EQ(std::stoul(rest_of(process->getStdout())) + taken, std::size_t{all});
    EXPECT_EQ(wait_for(*process), 0);
}

TEST_F(RemoteShell, TheServerEndsWhatItsClientRuns) {
    for (const bool close : {false, true}) {
        const Session session;
        const Process process = session.Start("sleep 1000 & echo; wait");
        EXPECT_EQ(process->getStdout()->ReadByte(), '\n');
        EXPECT_TRUE(process->IsRunning() && process->GetExitCode() == rshProcess::NoExitCode);
        const std::unique_ptr<rshServerEvent> ended(session.server->ExitEvent());
        EXPECT_FALSE(ended->Wait(0.01));
        close ? session.server->Close() : (session.server->Terminate(), session.server->Terminate());
        EXPECT_EQ(wait_for(*process), 137);
        EXPECT_TRUE(!process->IsRunning() && ended->Wait(seconds));
    }
    const Connected silent;
    kel::remote_shell_options options;
    options.patience = 0.05;
    EXPECT_FALSE(kel::serve_remote_command(silent.far.get(), options, nullptr));
}

TEST_F(RemoteShell, NothingIsLeftOpen) {
    const auto round = [] {
        const Session session, refused, closed;
        const Process process = session.Start("cat");
        process->getStdin()->WriteBytes("x", 1);
        process->getStdin()->Close();
        EXPECT_EQ(rest_of(process->getStdout()), "x");
        EXPECT_EQ(wait_for(*process), 0);
        try {
            ADD_FAILURE() << refused.Start("true", "/no/such/folder").get();
        } catch (xthrowable *thrown) {
            const kel::caught error(thrown);
            EXPECT_TRUE(error.as<rshXProcess>());
        }
        const Process given_up = closed.Start("sleep 1000");
        given_up->Close();
        const std::unique_ptr<rshServerEvent> left(closed.server->ExitEvent());
        EXPECT_TRUE(left->Wait(seconds)) << "the connection of a process that was given up stays";
        EXPECT_TRUE(!given_up->getStdout() && given_up->GetExitCode() == rshProcess::NoExitCode);
    };
    round();
    const auto before = open_descriptors();
    for (int i = 0; i < 100; ++i)
        round();
    EXPECT_EQ(open_descriptors(), before);
}

}  // namespace
