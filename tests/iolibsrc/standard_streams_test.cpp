// The console's streams. This program plays every part in a child of its own: run with the name of a part,
// it does that and nothing else, and the shell connects it.
#include "iolibsrc/stream_support.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <map>
#include <thread>
#include <vector>

namespace {

// The parts ------------------------------------------------------------------------------------

const char *part = "";

// Prints when it dies, with the stream that it asked for then, and with one that it had kept.
struct Last {
    ~Last() {
        if (part == std::string("late")) {
            ioStream::getStdout()->WriteString("static ");
            ioStream::getStderr()->WriteString("error ");
        }
        if (kept) kept->WriteString("kept ");
    }
    ioStream *kept = nullptr;
} last;

// Behind every static object of the process, the library's included.
__attribute__((destructor)) void very_last() {
    if (part == std::string("late")) {
        ioStream::getStdout()->WriteString("last ");
        ioStream::getStdout()->WriteInt(1);
    }
}

int echo() {
    CopyStream(ioStream::getStdout(), ioStream::getStdin());
    return 0;
}

int sum() {
    ioStream *in = ioStream::getStdin(), *out = ioStream::getStdout();
    int total = 0;
    std::string end = failure([&] {
        for (;;)
            total += in->ReadInt();
    });
    out->WriteString("sum ");
    out->WriteInt(total);
    out->WriteString(" at ");
    out->WriteString(end.c_str());
    return 0;
}

int unflushed() {
    ioStream::getStdout()->WriteString("before exit");
    std::exit(3);
}

int late() {
    last.kept = ioStream::getStdout();
    ioStream::getStdout()->WriteString("main ");
    return 0;
}

int aborted() {
    ioStream::getStdout()->WriteString("lost");
    ioStream::getStderr()->WriteString("kept");
    ::_exit(4);
}

// What happens on channels that cannot be used; told on standard error.
int report() {
    ioStream *out = ioStream::getStdout();
    std::string message = failure([&] { ioStream::getStdin()->ReadInt(); });
    message += "; " + failure([&] { out->WriteString("text\n"); });
    out->Flush();
    message += out->getIsBad() ? "; bad\n" : "; good\n";
    std::fputs(message.c_str(), stderr);
    return 0;
}

int close() {
    ioStream *out = ioStream::getStdout();
    out->WriteString("text\n");
    out->Close();
    std::fputs(out->getIsBad() ? "bad" : "good", stderr);
    return out->GetInheritHandle() == -1 ? 0 : 1;
}

int closed_error() {
    std::string message;
    for (int i = 0; i < 3; ++i) {
        message += failure([] { ioStream::getStderr()->WriteString("text\n"); }) + ";";
        ioStream::getStderr()->setIsBad(false);
    }
    std::fputs(message.c_str(), stdout);
    return 0;
}

// Into a pipe that nobody reads any more: an error, not a signal.
int flood() {
    ioStream *out = ioStream::getStdout();
    std::string message;
    for (int i = 0; i < 1000000 && message.empty(); ++i)
        message = failure([&] { out->WriteString("0123456789\n"); });
    std::fputs(message.c_str(), stderr);
    return 0;
}

int answer() {
    ioStream *in = ioStream::getStdin();
    std::unique_ptr<ioEvent> event(in->InputEvent());
    std::string seen = event->Wait(0.0) ? "early " : "quiet ";
    seen += event->Wait(INFINITE) ? "signalled " : "";
    while (in->TryReadInt() != ioSuccess && event->Wait(5.0)) {
    }
    seen += std::to_string(in->ReadInt());
    ioStream::getStdout()->WriteString(seen.c_str());
    return 0;
}

const std::map<std::string, int (*)()> parts = {
    {"echo", echo},       {"sum", sum},       {"unflushed", unflushed},       {"late", late},
    {"aborted", aborted}, {"report", report}, {"closed_error", closed_error}, {"flood", flood},
    {"answer", answer},   {"close", close},
};

// The tests ------------------------------------------------------------------------------------

struct Outcome {
    std::string output;
    int status;
};
std::ostream &operator<<(std::ostream &out, const Outcome &outcome) {
    return out << '"' << outcome.output << "\" with status " << outcome.status;
}
bool operator==(const Outcome &a, const Outcome &b) {
    return a.output == b.output && a.status == b.status;
}

// What a shell command prints on its standard output, and its exit status. $ME is this program.
Outcome shell(const std::string &command) {
    char self[PATH_MAX] = "";
    EXPECT_GT(::readlink("/proc/self/exe", self, sizeof self - 1), 0);
    ::setenv("ME", self, 1);
    Outcome outcome{"", -1};
    FILE *pipe = ::popen(command.c_str(), "r");
    char block[4096];
    while (std::size_t got = std::fread(block, 1, sizeof block, pipe))
        outcome.output.append(block, got);
    int status = ::pclose(pipe);
    if (WIFEXITED(status)) outcome.status = WEXITSTATUS(status);
    return outcome;
}

TEST(StandardStreams, AreTextStreamsInOneDirection) {
    ioStream *in = ioStream::getStdin(), *out = ioStream::getStdout(), *error = ioStream::getStderr();
    EXPECT_TRUE(in->getCanRead() && !in->getCanWrite());
    EXPECT_TRUE(out->getCanWrite() && !out->getCanRead() && error->getCanWrite() && !error->getCanRead());
    for (ioStream *stream : {in, out, error}) {
        EXPECT_EQ(stream->getSerializer(), ioSerializer::getAscii());
        EXPECT_STREQ(stream->gettypename(), "iolib::Stream");
    }
    EXPECT_EQ(in->GetInheritHandle(), 0);
    EXPECT_EQ(out->GetInheritHandle(), 1);
    EXPECT_EQ(error->GetInheritHandle(), 2);
    EXPECT_EQ(failure([&] { in->WriteInt(1); }), "output denied");
    EXPECT_EQ(failure([&] { out->ReadInt(); }), "input denied");
    EXPECT_NE(out, error);
}

TEST(StandardStreams, AreMadeOnceByWhoeverComesFirst) {
    std::vector<ioStream *> seen(24);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < 8; ++i) {
        threads.emplace_back([&, i] {
            seen[i] = ioStream::getStdin();
            seen[8 + i] = ioStream::getStdout();
            seen[16 + i] = ioStream::getStderr();
        });
    }
    for (auto &thread : threads)
        thread.join();
    for (std::size_t i = 0; i < 24; ++i)
        EXPECT_EQ(seen[i], seen[i / 8 * 8]);
}

TEST(StandardStreams, CannotBeReplaced) {
    static std::vector<std::string> reports;
    btkAbortHandler before = btkSetAbortHandler([](const char *message, const char *source, int line) {
        EXPECT_GT(line, 0);
        reports.push_back(std::string(message ? message : "null") + " " + source);
    });
    ioStream *streams[] = {ioStream::getStdin(), ioStream::getStdout(), ioStream::getStderr()};
    std::unique_ptr<ioStringStream> other(ioStringStream::Create());
    ioStream::setStdin(other.get());
    ioStream::setStdout(other.get());
    ioStream::setStderr(nullptr);
    btkSetAbortHandler(before);
    EXPECT_EQ(reports, std::vector<std::string>(3, "null iolibsrc/xiolib"));
    EXPECT_EQ(streams[0], ioStream::getStdin());
    EXPECT_EQ(streams[1], ioStream::getStdout());
    EXPECT_EQ(streams[2], ioStream::getStderr());
}

TEST(StandardStreams, CarryBytesAndNumbers) {
    EXPECT_EQ(shell("head -c 1000000 /dev/zero | \"$ME\" echo | wc -c"), (Outcome{"1000000\n", 0}));
    EXPECT_EQ(shell("seq 1 5000 | \"$ME\" echo | \"$ME\" echo | cksum"), shell("seq 1 5000 | cksum"));
    EXPECT_EQ(shell("echo 1 2 3 | \"$ME\" sum"), (Outcome{"sum 6 at EOF reached", 0}));
    EXPECT_EQ(shell("echo 1 2 x | \"$ME\" sum"), (Outcome{"sum 3 at conversion error", 0}));
    EXPECT_EQ(shell("\"$ME\" sum < /dev/null"), (Outcome{"sum 0 at EOF reached", 0}));
    EXPECT_EQ(shell("(sleep 0.1; printf 1; sleep 0.1; echo 23) | \"$ME\" answer"),
              (Outcome{"quiet signalled 123", 0}));
}

TEST(StandardStreams, AreFlushedAtTheEnd) {
    EXPECT_EQ(shell("\"$ME\" unflushed"), (Outcome{"before exit", 3}));
    EXPECT_EQ(shell("\"$ME\" late 2>/dev/null"), (Outcome{"main static kept last 1", 0}));
    EXPECT_EQ(shell("\"$ME\" late 2>&1 >/dev/null"), (Outcome{"error ", 0}));
    EXPECT_EQ(shell("\"$ME\" aborted 2>&1 >/dev/null"), (Outcome{"kept", 4})) << "errors go out at once";
}

TEST(StandardStreams, ChannelsThatCannotBeUsed) {
    EXPECT_EQ(shell("\"$ME\" report 3>&1 2>&3 <&- >&-"), (Outcome{"EOF reached; ; bad\n", 0}));
    EXPECT_EQ(shell("\"$ME\" report 2>&1 >/dev/full </dev/null"), (Outcome{"EOF reached; ; bad\n", 0}));
    EXPECT_EQ(shell("\"$ME\" close 2>&1 >/dev/full"), (Outcome{"bad", 0}));
    EXPECT_EQ(shell("\"$ME\" close 2>&1 >/dev/null"), (Outcome{"good", 0}));
    EXPECT_EQ(shell("\"$ME\" unflushed >/dev/full"), (Outcome{"", 3}));
    EXPECT_EQ(shell("\"$ME\" unflushed >&-"), (Outcome{"", 3}));
    EXPECT_EQ(shell("\"$ME\" late <&- >&- 2>/dev/null; echo $?"), (Outcome{"0\n", 0}));
    EXPECT_EQ(shell("\"$ME\" closed_error 2>&-"), (Outcome{"I/O error;I/O error;I/O error;", 0}));
    EXPECT_EQ(shell("exec 3>&1; (\"$ME\" flood 2>&3; echo \" $?\" >&3) | head -n 1"),
              (Outcome{"0123456789\nI/O error 0\n", 0}));
}

}  // namespace

int main(int argc, char **argv) {
    if (argc == 2) {
        if (auto found = parts.find(argv[1]); found != parts.end()) {
            part = argv[1];
            return found->second();
        }
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
