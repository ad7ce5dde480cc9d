// Pipes, trials and the pipe signal, over real descriptors.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <thread>

#include <kelstdmt/vumrt_stream.h>

namespace {

struct Pipe : testing::Test {
    Pipe() {
        btkOutputPipe output;
        btkInputPipe input;
        EXPECT_TRUE(btkAnonymousPipe::Create(output, input));
        EXPECT_TRUE(::fcntl(output.GetHandle(), F_GETFD) & ::fcntl(input.GetHandle(), F_GETFD) & FD_CLOEXEC);
        raw = output.GetHandle();
        out = std::make_unique<xopipebuf>(output.Release());
        in = std::make_unique<xipipebuf>(input.Release());
    }
    std::string look() const {
        auto *bytes = static_cast<xtrystreambuf *>(in->GetTryIBuf());
        std::string text(bytes->GetAvail(), '\0');
        bytes->sgetn(text.data(), static_cast<std::streamsize>(text.size()));
        in->FreeTryIBuf();
        return text;
    }
    std::string read(std::size_t count) const {
        std::string text(count, '\0');
        auto got = in->GetStreamBuf()->sgetn(text.data(), static_cast<std::streamsize>(count));
        text.resize(static_cast<std::size_t>(got));
        return text;
    }
    int raw = -1;
    std::unique_ptr<xopipebuf> out;
    std::unique_ptr<xipipebuf> in;
};

TEST_F(Pipe, TrialsTakeNothingAndEventsKnowTheBuffer) {
    btkEvent input(in->GetInputEvent());
    EXPECT_TRUE(look().empty() && !input.IsSignaled() && !in->IsEofReached());
    // What is tried may be far more than a pipe holds.
    ASSERT_EQ(::fcntl(raw, F_SETPIPE_SZ, 65536), 65536);
    std::string text;
    for (int i = 0; i < 25; ++i) {
        std::string part(40000, static_cast<char>('a' + i));
        EXPECT_EQ(::write(raw, part.data(), part.size()), 40000);
        text += part;
        ASSERT_TRUE(look() == text && input.IsSignaled()) << text.size();
        if (i % 5 != 4) continue;
        ASSERT_TRUE(read(7) == text.substr(0, 7));
        text.erase(0, 7);
        ASSERT_GE(look().size(), 160000U) << "the first trial behind a read may stop there";
    }
    EXPECT_TRUE(read(text.size()) == text && !input.IsSignaled());
    out.reset();
    EXPECT_TRUE(look().empty() && in->IsEofReached() && input.IsSignaled());
    in.reset();
    EXPECT_TRUE(input.IsSignaled()) << "an event that outlives its buffer";
    Error_SetLast(0);
    EXPECT_TRUE(xipipebuf(::open("/", O_RDONLY)).GetTryIBuf() && Error_GetLast() == 5) << "no input";
}

int handled = 0;

// A reader that has gone is a failed write. The program's own handling of the signal is neither called
// nor changed, and a signal that someone else sent still arrives.
// Its size may be set until it is in use.
TEST_F(Pipe, BuffersHaveASize) {
    EXPECT_TRUE(in->SetBufSize(100) == 100 && in->GetBufSize() == 100 && in->SetBufSize(0) == 100);
    EXPECT_EQ(out->SetBufSize(3), 3);
    for (const char byte : {'a', 'b', 'c', 'd', 'e'})
        EXPECT_EQ(out->GetStreamBuf()->sputc(byte), byte);
    EXPECT_EQ(look(), "abcd") << "the one that found no room went with the others";
    EXPECT_EQ(in->SetBufSize(7), 100) << "in use";
    EXPECT_EQ(out->GetStreamBuf()->pubsync(), 0);
    EXPECT_EQ(read(5), "abcde");
}

TEST_F(Pipe, ALostReaderIsAnErrorAndNoSignal) {
    struct sigaction before {
    }, mine{}, after{};
    mine.sa_handler = [](int) { ++handled; };
    ASSERT_EQ(::sigaction(SIGPIPE, &mine, &before), 0);
    in.reset();
    auto *to = out->GetStreamBuf();
    EXPECT_EQ(to->sputn("abc", 3), 3);
    EXPECT_EQ(to->pubsync(), -1);
    EXPECT_EQ(Error_GetLast(), 109);
    EXPECT_LT(to->sputn(std::string(100000, 'x').data(), 100000), 100000);
    EXPECT_EQ(handled, 0);
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    for (const bool of_others : {false, true}) {
        if (of_others) ::raise(SIGPIPE);
        EXPECT_EQ(to->pubsync(), -1);
        sigset_t pending;
        ::sigpending(&pending);
        EXPECT_EQ(sigismember(&pending, SIGPIPE), of_others) << "ours are taken away";
    }
    ::pthread_sigmask(SIG_UNBLOCK, &pipe, nullptr);
    EXPECT_EQ(handled, 1);
    ::sigaction(SIGPIPE, &before, &after);
    EXPECT_EQ(after.sa_handler, mine.sa_handler);
}

TEST_F(Pipe, BlockingReadsAndWritesOutlastDescriptorsThatDoNotBlock) {
    ::fcntl(raw, F_SETFL, O_NONBLOCK);
    ::fcntl(in->GetHandle(), F_SETFL, O_NONBLOCK);
    std::thread reader([&] { EXPECT_EQ(read(500000).size(), 500000U); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    std::string large(500000, 'n');
    EXPECT_EQ(out->GetStreamBuf()->sputn(large.data(), 500000), 500000);
    reader.join();
}

// A terminal goes on behind an end that was typed, so an end that cut a block short is told by the next read.
TEST(Terminal, AnEndIsToldOnce) {
    int keyboard = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_TRUE(keyboard >= 0 && ::grantpt(keyboard) == 0 && ::unlockpt(keyboard) == 0);
    xipipebuf in(::open(::ptsname(keyboard), O_RDONLY | O_NOCTTY));
    std::string keys = "a\n\4b\n";
    ASSERT_EQ(::write(keyboard, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    char block[10] = "";
    EXPECT_EQ(in.GetStreamBuf()->sgetn(block, 10), 2);
    EXPECT_EQ(in.GetStreamBuf()->sgetn(block, 10), 0);
    EXPECT_EQ(in.GetStreamBuf()->sgetn(block, 2), 2);
    EXPECT_EQ(std::string(block), "b\n");
    ::close(keyboard);
}

}  // namespace
