// The remote shell as a library: process and server objects, and both relays in one process. What travels is
// tested from outside, by tests/tools/kelrshd_test.py and rsh_test.py.
#include <thread>

#include <kelstdmt/rshlib.h>

#include "netlibsrc/connected.h"
#include "scratch_folder.h"

namespace {

using Process = std::unique_ptr<rshProcess>;

std::string rest_of(ioStream *stream) {
    std::string all(4096, '\0');
    all.resize(stream->ReadBytes(all.data(), 4096));
    return all;
}

int wait_for(rshProcess &process) {
    EXPECT_TRUE(std::unique_ptr<rshEvent>(process.ExitEvent())->Wait(30)) << "the relay does not end";
    return process.GetExitCode();
}

// A server of ours on a thread of its own.
struct Session : Connected {
    Process Start(const char *command, const char *where = nullptr, ioStream *in = nullptr) const {
        return Process(rshProcess::Create(near.get(), command, where, in, nullptr, nullptr, true, false));
    }
    std::unique_ptr<rshServer> server{rshServer::Create(far.get(), "", false)};
};

// Another reader of the same input takes some of what its event told.
TEST(RemoteShell, AWakeUpForNothingIsNoEnd) {
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

// It stays the caller's where the server has gone.
TEST(RemoteShell, InputIsLeftWhereNobodyTakesIt) {
    const std::unique_ptr<ioPipe> pipe(ioPipe::Create());
    ioStream *in = kel_pipe_access::ReadStream(*pipe), *writer = kel_pipe_access::WriteStream(*pipe);
    writer->WriteBytes("rest", 4);
    writer->Close();
    const Connected ends;
    ends.far->WriteBytes("\0\0\0\0", 4);  // launched
    ends.far->Flush();
    ASSERT_EQ(::shutdown(ends.far->GetInheritHandle(), SHUT_WR), 0);
    const Process process(rshProcess::Create(ends.near.get(), "", "", in, nullptr, nullptr, true, false));
    EXPECT_EQ(wait_for(*process), rshProcess::NoExitCode);
    char rest[4];
    EXPECT_EQ(::read(in->GetInheritHandle(), rest, 4), 4) << "bytes are left";
}

// A client takes no more than 64 KiB of one.
TEST(RemoteShell, AReasonOfAnyLengthIsOne) {
    const Connected ends;
    kel::remote_shell_options options;
    options.permit = [](const auto &) { return xstring(std::string(70'000, 'n').c_str()); };
    std::size_t logged = 0;
    options.refused = [&](const auto &, const xstring &reason) { logged = kel::view(reason).size(); };
    std::thread serving([&] { kel::serve_remote_command(ends.far.get(), options, nullptr); });
    try {
        Process(rshProcess::Create(ends.near.get(), "true", "", nullptr, nullptr, nullptr, true, false));
        ADD_FAILURE() << "not refused";
    } catch (xthrowable *thrown) {
        const kel::caught error(thrown);
        EXPECT_EQ(error.as<rshXProcess>()->getError(), rshDaemonError);
        EXPECT_EQ(error.as<rshXProcess>()->getMsg(), xstring(std::string(65'536, 'n').c_str()));
    }
    serving.join();
    EXPECT_EQ(logged, 65'536u);
}

// Into memory as it comes, and into a pipe no faster than somebody reads.
TEST(RemoteShell, OutputGoesIntoTheCallersStreams) {
    const std::unique_ptr<ioStringStream> memory(ioStringStream::Create());
    const std::unique_ptr<ioPipe> pipe(ioPipe::Create());
    ioStream *slow = kel_pipe_access::WriteStream(*pipe), *reader = kel_pipe_access::ReadStream(*pipe);
    const Session session;
    const Process process(rshProcess::Create(session.near.get(), "seq 40000 >&2; seq 3; exit 5", nullptr,
                                             nullptr, memory.get(), slow, true, false));
    EXPECT_FALSE(process->getStdout() || process->getStderr());
    std::string expected;
    for (int line = 1; line <= 40000; ++line)
        expected += std::to_string(line) + "\n";
    std::string errors(expected.size(), '\0');
    reader->ReadBytes(errors.data(), static_cast<unsigned>(errors.size()));
    EXPECT_TRUE(errors == expected);
    EXPECT_EQ(wait_for(*process), 5);
    EXPECT_EQ(kel::view(memory->getStr()), "1\n2\n3\n");
    EXPECT_TRUE(slow->getIsGood()) << "it stays the caller's";
    // Where nobody reads any more, the command still comes to its end.
    const Session again;
    reader->Close();
    const Process unread(rshProcess::Create(again.near.get(), "seq 40000; exit 6", nullptr, nullptr, slow,
                                            memory.get(), true, false));
    EXPECT_EQ(wait_for(*unread), 6);
}

TEST(RemoteShell, WhoeverEndsItLeavesNothingOpen) {
    const auto round = [] {
        const Session session, refused, closed, ended;
        const Process process = session.Start("cat");
        process->getStdin()->WriteBytes("x", 1);
        process->getStdin()->Close();
        EXPECT_EQ(rest_of(process->getStdout()), "x");
        EXPECT_EQ(wait_for(*process), 0);
        try {
            ADD_FAILURE() << refused.Start("true", "/no/such/folder").get();
        } catch (xthrowable *thrown) {
            EXPECT_TRUE(kel::caught(thrown).as<rshXProcess>());
        }
        const Process given_up = closed.Start("sleep 1000");
        given_up->Close();
        const Process stopped = ended.Start("sleep 1000 & echo; wait");
        EXPECT_EQ(stopped->getStdout()->ReadByte(), '\n');
        ended.server->Close();
        EXPECT_EQ(wait_for(*stopped), 137);
        for (const Session *one : {&closed, &ended})
            EXPECT_TRUE(std::unique_ptr<rshServerEvent>(one->server->ExitEvent())->Wait(30)) << "it stays";
    };
    round();
    const auto before = open_descriptors();
    for (int i = 0; i < 50; ++i)
        round();
    EXPECT_EQ(open_descriptors(), before);
}

}  // namespace
