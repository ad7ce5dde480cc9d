// Pipes: values in pieces, events and their end, lost readers, children.
#include "../../fuzz/trial_fuzz.cpp"
#include "iolibsrc/stream_support.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

struct Pipe : testing::Test {
    ioPipeStream &out() const { return *kel_pipe_access::WriteStream(*pipe); }
    ioPipeStream &in() const { return *kel_pipe_access::ReadStream(*pipe); }
    // Past the write stream's buffer.
    void send(const std::string &bytes) const {
        EXPECT_EQ(::write(out().GetInheritHandle(), bytes.data(), bytes.size()),
                  static_cast<ssize_t>(bytes.size()));
    }
    // How much a new pipe takes is up to the system; this much every pipe does.
    void make_small() const { EXPECT_EQ(::fcntl(out().GetInheritHandle(), F_SETPIPE_SZ, 4096), 4096); }
    std::unique_ptr<ioPipe> pipe{ioPipe::Create()};
};

// The fuzz target sends, tries and reads as it is told, and knows what must come of it.
TEST_F(Pipe, TrialsSeeWhatHasArrived) {
    const std::string alphabets[] = {"0123456789-. T\nab", std::string("\0\0\0\0\0\1\2\3ab", 10)};
    std::mt19937 random(1);
    for (int round = 0; round < 1500; ++round) {
        const unsigned encoding = static_cast<unsigned>(random() % 3),
                       steps = static_cast<unsigned>(random() % 60);
        std::vector<std::uint8_t> talk{static_cast<std::uint8_t>(encoding), static_cast<std::uint8_t>(steps)};
        for (unsigned i = 0; i < steps; ++i)
            talk.push_back(static_cast<std::uint8_t>(random() % 3 ? random() % 64 : random()));
        const std::string &alphabet = alphabets[encoding > 0];
        for (auto bytes = random() % 200; bytes > 0; --bytes)
            talk.push_back(static_cast<std::uint8_t>(alphabet[random() % alphabet.size()]));
        LLVMFuzzerTestOneInput(talk.data(), talk.size());
    }
    EXPECT_TRUE(out().getCanWrite() && !out().getCanRead() && in().getCanRead() && !in().getCanWrite());
}

TEST_F(Pipe, EventsTellOfInputAndOfRoom) {
    std::unique_ptr<ioEvent> input(in().InputEvent()), room(out().OutputEvent());
    EXPECT_TRUE(room->Wait(0.0) && !input->Wait(0.0));
    make_small();
    std::string block(4096, 'x');
    std::thread writer([&] {
        std::this_thread::sleep_for(30ms);
        send(block);
    });
    EXPECT_TRUE(input->Wait(INFINITE));
    writer.join();
    EXPECT_FALSE(room->Wait(0.0));
    in().ReadBytes(block.data(), 4096);
    EXPECT_TRUE(room->Wait(0.0) && !input->Wait(0.0));
}

TEST_F(Pipe, ALostReaderIsAnError) {
    for (bool close : {false, true}) {
        pipe.reset(ioPipe::Create());
        in().Close();
        out().WriteInt(1);
        EXPECT_TRUE(out().getIsGood());
        if (close)
            out().Close();
        else
            out().Flush();
        EXPECT_TRUE(out().getIsBad()) << "what could not be handed on";
    }
}

// A pipe that nobody will read dies at once, whatever waits in it and in front of it.
TEST_F(Pipe, DiesWithBytesInsideIt) {
    make_small();
    std::string block(4096, 'x');
    out().WriteBytes(block.data(), 4096);
    out().Flush();
    out().WriteBytes(block.data(), 4000);
    const int handle = out().GetInheritHandle();
    const ino_t file = file_of(handle);
    pipe.reset();
    EXPECT_NE(file_of(handle), file);
}

// A copy hands on what has arrived and does not wait for more of it.
TEST_F(Pipe, ACopyDoesNotHoldBytesBack) {
    std::unique_ptr<ioPipe> other(ioPipe::Create());
    int relay = kel_pipe_access::WriteStream(*other)->GetInheritHandle();
    class Through : public ioStream {
    public:
        explicit Through(xopipebuf *to) : ioStream(ioSerializer::getBinary(), to, true, false), m_to(to) {
            to->SetBufSize(1);
        }
        ~Through() override { Close(); }

    protected:
        void OnClose() override { delete m_to; }

    private:
        xopipebuf *m_to;
    };
    std::thread copier([&] {
        Through through(new xopipebuf(::dup(relay)));
        CopyStream(&through, &in());
    });
    ioPipeStream *received = kel_pipe_access::ReadStream(*other);
    for (int value = 0; value < 5; ++value) {
        out().WriteInt(value);
        out().Flush();
        std::unique_ptr<ioEvent> event(received->InputEvent());
        ASSERT_TRUE(event->Wait(60.0)) << "held back";
        EXPECT_EQ(received->ReadInt(), value);
    }
    out().Close();
    copier.join();
}

TEST_F(Pipe, IsNotMadeWhenTheSystemRefuses) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer needs descriptors of its own to look at an object";
#endif
    rlimit before{}, none{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    none.rlim_max = before.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &none);
    std::unique_ptr<ioPipe> refused(ioPipe::Create());
    std::unique_ptr<ioFileStream> file(ioFileStream::Open("/dev/null", ioReadOnly));
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(refused, nullptr);
    EXPECT_EQ(file, nullptr);
}

// Children -------------------------------------------------------------------------------------

// Runs the command with the descriptors as its standard input and output; -1: as they are.
int run(const char *command, int input, int output) {
    pid_t child = ::fork();
    if (child == 0) {
        if (input >= 0) ::dup2(input, 0);
        if (output >= 0) ::dup2(output, 1);
        ::execl("/bin/sh", "sh", "-c", command, static_cast<char *>(nullptr));
        ::_exit(127);
    }
    return child;
}

TEST_F(Pipe, EndsGoToChildren) {
    std::unique_ptr<ioPipe> back(ioPipe::Create());
    ioPipeStream *answers = kel_pipe_access::ReadStream(*back), *theirs = kel_pipe_access::WriteStream(*back);
    int child = run("tr a-z A-Z; echo done", in().GetInheritHandle(), theirs->GetInheritHandle());
    in().Close();
    theirs->Close();
    EXPECT_EQ(in().GetInheritHandle(), -1);
    std::string sent, expected;
    for (int i = 0; i < 30000; ++i) {
        sent += "line " + std::to_string(i) + "\n";
        expected += "LINE " + std::to_string(i) + "\n";
    }
    std::thread writer([&] {
        out().WriteBytes(sent.data(), static_cast<unsigned>(sent.size()));
        out().Close();
    });
    EXPECT_TRUE(drain(*answers) == expected + "done\n");
    writer.join();
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(Pipe, NoChildInheritsWhatItWasNotGiven) {
    int child = run("exec sleep 1000", -1, -1);
    out().Close();
    std::unique_ptr<ioEvent> event(in().InputEvent());
    EXPECT_TRUE(event->Wait(60.0)) << "the child keeps the pipe open";
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
}

}  // namespace
