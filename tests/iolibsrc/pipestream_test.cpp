// Pipes: values in pieces, events and their end, lost readers, children.
#include "iolibsrc/stream_support.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <thread>

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
    std::unique_ptr<ioPipe> pipe{ioPipe::Create()};
};

TEST_F(Pipe, CarriesValuesInTheBinaryEncoding) {
    EXPECT_TRUE(out().getCanWrite() && !out().getCanRead() && in().getCanRead() && !in().getCanWrite());
    EXPECT_EQ(failure([&] { out().ReadInt(); }), "input denied");
    EXPECT_EQ(failure([&] { in().WriteInt(1); }), "output denied");
    EXPECT_EQ(out().getSerializer(), ioSerializer::getBinary());
    out().WriteInt(0x01020304);
    EXPECT_EQ(in().PeekNBytes(), 0U) << "it waits in the writer's buffer";
    EXPECT_EQ(out().Flush(), nullptr);
    EXPECT_EQ(in().PeekNBytes(), 4U);
    EXPECT_EQ(in().ReadByte(), 4);
    out().WriteString("text");
    out().Close();
    char rest[3];
    EXPECT_EQ(in().ReadBytes(rest, 3), 3U);
    EXPECT_EQ(text_of(in().ReadString()), "text");
    EXPECT_EQ(failure([&] { in().ReadInt(); }), "EOF reached");
    xobject *object = &in();
    EXPECT_STREQ(object->gettypename(), "iolib::PipeStream");
    EXPECT_EQ(ioPipeStream::cast(object), &in());
    EXPECT_EQ(ioPipe::cast(pipe.get()), pipe.get());
}

// Bytes trickle in one by one; what the trials say is compared with what has arrived.
TEST_F(Pipe, TrialsSeeAValueWhenAllOfItIsThere) {
    std::unique_ptr<ioEvent> event(in().InputEvent());
    EXPECT_FALSE(event->getIsSignaled());
    EXPECT_EQ(in().TryReadInt(), ioEndOfFile);
    std::string bytes("\x07\0\0\0\0\0\0\0\0\0\xF0\x3F\3\0\0\0abc", 19);
    for (std::size_t sent = 1; sent <= bytes.size(); ++sent) {
        send(bytes.substr(sent - 1, 1));
        for (int twice = 0; twice < 2; ++twice) {
            EXPECT_TRUE(event->getIsSignaled() && event->Wait(0.0));
            EXPECT_EQ(in().PeekNBytes(), sent);
            EXPECT_EQ(in().TryReadInt(), sent >= 4 ? ioSuccess : ioEndOfFile);
            EXPECT_EQ(in().TryReadReal(), sent >= 8 ? ioSuccess : ioEndOfFile);
            EXPECT_EQ(in().TryReadString(), sent >= 11 ? ioSuccess : ioEndOfFile);
            EXPECT_EQ(in().TryReadByte(), ioSuccess);
        }
    }
    EXPECT_EQ(in().ReadInt(), 7);
    EXPECT_EQ(in().ReadReal(), 1.0);
    EXPECT_TRUE(event->getIsSignaled()) << "bytes read ahead wait in the buffer";
    EXPECT_EQ(in().TryReadString(), ioSuccess);
    EXPECT_EQ(text_of(in().ReadString()), "abc");
    EXPECT_FALSE(event->getIsSignaled());
    EXPECT_TRUE(in().getIsGood());
    out().Close();
    EXPECT_TRUE(event->Wait(5.0)) << "the end is an event";
    EXPECT_EQ(in().PeekNBytes(), 0U) << "which callers tell by this";
    EXPECT_EQ(in().TryReadInt(), ioEndOfFile);
    EXPECT_TRUE(in().getIsGood() && event->getIsSignaled());
    EXPECT_EQ(failure([&] { in().ReadInt(); }), "EOF reached");
}

TEST_F(Pipe, ATextGoesOnUntilItsDelimiterOrTheEnd) {
    in().setSerializer(ioSerializer::getAscii());
    send("one");
    EXPECT_EQ(in().TryReadString(), ioWouldBlock);
    send(" two\nthree");
    EXPECT_EQ(in().TryReadString(), ioSuccess);
    EXPECT_EQ(in().TryReadString("e"), ioSuccess);
    EXPECT_EQ(text_of(in().ReadString()), "one two");
    EXPECT_EQ(in().TryReadString(), ioWouldBlock);
    EXPECT_EQ(in().TryReadInt(), ioFormatError);
    out().Close();
    EXPECT_EQ(in().TryReadString(), ioSuccess);
    EXPECT_EQ(text_of(in().ReadString()), "three");
    EXPECT_EQ(in().TryReadString(), ioEndOfFile);
}

TEST_F(Pipe, EventsInOneWait) {
    std::unique_ptr<ioPipe> other(ioPipe::Create());
    std::unique_ptr<ioEvent> first(in().InputEvent()),
        second(kel_pipe_access::ReadStream(*other)->InputEvent()), room(out().OutputEvent());
    xauto<evtEventArray> events;
    events.append(first.get());
    events.append(second.get());
    EXPECT_EQ(evtEvent::Wait(&events, 0.0), 0);
    std::thread writer([&] {
        std::this_thread::sleep_for(30ms);
        ioPipeStream *to = kel_pipe_access::WriteStream(*other);
        to->WriteInt(5);
        to->Flush();
    });
    EXPECT_EQ(evtEvent::Wait(&events, INFINITE), 2);
    writer.join();
    EXPECT_EQ(kel_pipe_access::ReadStream(*other)->ReadInt(), 5);
    EXPECT_EQ(evtEvent::Wait(&events, 0.0), 0);
    // Room is gone when the pipe is full, and comes back when somebody reads.
    EXPECT_TRUE(room->Wait(0.0));
    int fd = out().GetInheritHandle(), flags = ::fcntl(fd, F_GETFL);
    std::string block(4096, 'x');
    ::fcntl(fd, F_SETFL, flags | O_NONBLOCK);
    while (::write(fd, block.data(), block.size()) > 0) {
    }
    ::fcntl(fd, F_SETFL, flags);
    EXPECT_FALSE(room->Wait(0.0));
    EXPECT_EQ(evtEvent::Wait(&events, 0.0), 1);
    std::string all(65536, '\0');
    in().ReadBytes(all.data(), 65536);
    EXPECT_TRUE(room->Wait(0.0));
}

TEST_F(Pipe, ALostReaderIsAnErrorAndNoSignal) {
    struct sigaction mine {
    }, before{};
    static volatile int signals = 0;
    mine.sa_handler = [](int) { signals = signals + 1; };
    ASSERT_EQ(::sigaction(SIGPIPE, &mine, &before), 0);
    in().Close();
    out().WriteInt(1);
    EXPECT_TRUE(out().getIsGood());
    out().Flush();
    EXPECT_TRUE(out().getIsBad());
    EXPECT_EQ(failure([&] { out().WriteInt(1); }), "I/O error");
    out().Close();

    std::string large(200000, 'x');
    std::unique_ptr<ioPipe> second(ioPipe::Create()), third(ioPipe::Create());
    kel_pipe_access::ReadStream(*second)->Close();
    ioPipeStream *to = kel_pipe_access::WriteStream(*second);
    EXPECT_EQ(failure([&] { to->WriteBytes(large.data(), 200000); }), "I/O error");
    kel_pipe_access::ReadStream(*third)->Close();
    to = kel_pipe_access::WriteStream(*third);
    to->WriteString("unsent");
    to->Close();
    EXPECT_TRUE(to->getIsBad()) << "what could not be handed on";
    EXPECT_EQ(signals, 0);
    ::sigaction(SIGPIPE, &before, nullptr);
}

// A pipe that nobody will read dies at once, whatever waits in it.
TEST_F(Pipe, DiesWithBytesInsideIt) {
    std::string block(60000, 'x');
    out().WriteBytes(block.data(), 60000);
    out().Flush();
    out().WriteBytes(block.data(), 60000);
    int handle = out().GetInheritHandle();
    pipe.reset();
    EXPECT_EQ(::fcntl(handle, F_GETFD), -1);
}

TEST_F(Pipe, CarriesStreamsBetweenThreads) {
    std::string bytes(3000007, '\0');
    std::mt19937 random(2);
    for (char &byte : bytes)
        byte = static_cast<char>(random());
    std::thread writer([&] {
        std::unique_ptr<ioStringStream> source(ioStringStream::Create());
        source->setSerializer(ioSerializer::getBinary());
        source->WriteBytes(bytes.data(), static_cast<unsigned>(bytes.size()));
        out().ReadStream(source.get());
        out().Close();
        EXPECT_TRUE(out().getIsGood());
    });
    EXPECT_TRUE(drain(in()) == bytes);
    writer.join();
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
        ASSERT_TRUE(event->Wait(20.0)) << "held back";
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
    ioPipeStream *answers = kel_pipe_access::ReadStream(*back);
    ioPipeStream *theirs = kel_pipe_access::WriteStream(*back);
    int child = run("tr a-z A-Z; echo done", in().GetInheritHandle(), theirs->GetInheritHandle());
    in().Close();
    theirs->Close();
    EXPECT_EQ(in().GetInheritHandle(), -1);
    for (ioPipeStream *stream : {&out(), answers})
        stream->setSerializer(ioSerializer::getAscii());
    std::thread writer([&] {
        for (int i = 0; i < 30000; ++i)
            out().WriteString("abcdefghi\n");
        out().Close();
    });
    int lines = 0;
    xstring line;
    while (text_of(line) != "done") {
        line = answers->ReadString();
        lines += text_of(line) == "ABCDEFGHI";
    }
    EXPECT_EQ(lines, 30000);
    writer.join();
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(failure([&] { answers->ReadString(); }), "EOF reached");
}

TEST_F(Pipe, NoChildInheritsWhatItWasNotGiven) {
    run("sleep 1", -1, -1);
    out().Close();
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(failure([&] { in().ReadInt(); }), "EOF reached");
    EXPECT_LT(std::chrono::steady_clock::now() - start, 700ms);
    ::wait(nullptr);
}

}  // namespace
