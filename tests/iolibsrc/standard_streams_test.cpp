// The console's streams. This program plays every part in a child of its own: run with the name of a part,
// it does that and nothing else, and the shell connects it.
#include "iolibsrc/stream_support.h"
#include "shell.h"

#include <unistd.h>

#include <climits>
#include <map>

namespace {

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
    if (part == std::string("late")) ioStream::getStdout()->WriteString("last ");
}

void late() {
    last.kept = ioStream::getStdout();
    ioStream::getStdout()->WriteString("main ");
}

void aborted() {
    ioStream::getStdout()->WriteString("lost");
    ioStream::getStderr()->WriteString("kept");
    ::_exit(4);
}

// What happens on channels that cannot be used; told on standard error.
void report() {
    ioStream *out = ioStream::getStdout();
    std::string message = failure([&] { ioStream::getStdin()->ReadInt(); });
    message += "; " + failure([&] { out->WriteString("text\n"); });
    out->Flush();
    message += out->getIsBad() ? "; bad\n" : "; good\n";
    std::fputs(message.c_str(), stderr);
}

// Into a pipe that nobody reads any more: an error, not a signal.
void flood() {
    std::string message;
    for (int i = 0; i < 1000000 && message.empty(); ++i)
        message = failure([&] { ioStream::getStdout()->WriteString("0123456789\n"); });
    std::fputs(message.c_str(), stderr);
}

void answer() {
    ioStream *in = ioStream::getStdin();
    std::unique_ptr<ioEvent> event(in->InputEvent());
    std::string seen = event->Wait(0.0) ? "early " : "quiet ";
    seen += ::write(3, "\n", 1) == 1 ? "" : "alone ";
    seen += event->Wait(INFINITE) ? "signalled " : "";
    while (in->TryReadInt() != ioSuccess && event->Wait(5.0)) {
    }
    seen += std::to_string(in->ReadInt());
    ioStream::getStdout()->WriteString(seen.c_str());
}

const std::map<std::string, void (*)()> parts = {
    {"echo", [] { CopyStream(ioStream::getStdout(), ioStream::getStdin()); }},
    {"late", late},
    {"aborted", aborted},
    {"report", report},
    {"flood", flood},
    {"answer", answer},
};

TEST(StandardStreams, InChildren) {
    // $ME is this program. The one that answers says on channel 3 that it has looked.
    const struct {
        const char *command;
        Outcome outcome;
    } cases[] = {
        {"seq 1 5000 >$$.in; $ME echo <$$.in | $ME echo | cmp - $$.in; echo $?; rm $$.in", {"0\n", 0}},
        {"mkfifo $$.go; (read x <$$.go; printf 1; sleep 0.1; echo 23) | $ME answer 3>$$.go; rm $$.go",
         {"quiet signalled 123", 0}},
        // Flushed at the end, and errors at once.
        {"$ME late 2>/dev/null", {"main static kept last ", 0}},
        {"$ME late 2>&1 >/dev/null", {"error ", 0}},
        {"$ME aborted 2>&1 >/dev/null", {"kept", 4}},
        // Channels that cannot be used.
        {"$ME report 3>&1 2>&3 <&- >&-", {"EOF reached; ; bad\n", 0}},
        {"$ME report 2>&1 >/dev/full </dev/null", {"EOF reached; ; bad\n", 0}},
        {"$ME late >/dev/full 2>/dev/null", {"", 0}},
        {"exec 3>&1; ($ME flood 2>&3; echo \" $?\" >&3) | head -n 1 >/dev/null", {"I/O error 0\n", 0}},
    };
    char self[PATH_MAX] = "";
    ASSERT_GT(::readlink("/proc/self/exe", self, sizeof self - 1), 0);
    ::setenv("ME", self, 1);
    ASSERT_EQ(::chdir(testing::TempDir().c_str()), 0);
    for (const auto &one : cases)
        EXPECT_EQ(shell(one.command), one.outcome) << one.command;
}

}  // namespace

int main(int argc, char **argv) {
    if (const auto found = parts.find(argc == 2 ? argv[1] : ""); found != parts.end()) {
        part = argv[1];
        found->second();
        return 0;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
