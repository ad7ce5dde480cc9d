// The remote shell over real connections and processes: what a command sees and gives, what travels, and what
// happens when one side stops reading, lies or is gone.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include <filesystem>
#include <functional>
#include <thread>
#include <vector>

#include <kelstdmt/kel.h>
#include <kelstdmt/rshlib.h>

#include "scratch_folder.h"

namespace {

using Stream = std::unique_ptr<netSocketStream>;
using Process = std::unique_ptr<rshProcess>;

constexpr btkTimeval patience(30, 0);
constexpr double seconds = 30;

// Two ends of one connection.
struct Pair {
    Stream near, far;

    Pair() {
        btkAcceptSocket listener;
        EXPECT_TRUE(listener.Listen(0, "127.0.0.1")) << Error_GetLast();
        auto client = std::make_unique<btkStreamSocket>(), server = std::make_unique<btkStreamSocket>();
        EXPECT_TRUE(client->Connect("127.0.0.1", listener.GetPort(), patience)) << Error_GetLast();
        EXPECT_EQ(listener.Wait(patience, btkSocket::ForInput), 1);
        EXPECT_TRUE(listener.Accept(*server));
        near.reset(kel::construct<netSocketStream>(std::move(client)));
        far.reset(kel::construct<netSocketStream>(std::move(server)));
    }
};

std::size_t open_descriptors() {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

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

void feed(ioStream *to, std::string_view bytes) {
    if (!bytes.empty()) to->WriteBytes(bytes.data(), static_cast<unsigned>(bytes.size()));
    to->Close();
}

struct Ended {
    std::string out, err;
    int code;
    bool operator==(const Ended &) const = default;
};
std::ostream &operator<<(std::ostream &to, const Ended &ended) {
    return to << '"' << ended.out << "\", \"" << ended.err << "\", " << ended.code;
}

int wait_for(rshProcess &process) {
    const std::unique_ptr<rshEvent> exit(process.ExitEvent());
    EXPECT_TRUE(exit->Wait(seconds)) << "the relay does not end";
    return process.GetExitCode();
}

// A server of ours on a thread of its own.
struct Session : Pair {
    explicit Session(const char *base = "") : server(rshServer::Create(far.get(), base, false)) {}

    Process Start(const char *command, const char *folder = nullptr, bool use_shell = true) const {
        return Process(
            rshProcess::Create(near.get(), command, folder, nullptr, nullptr, nullptr, use_shell, false));
    }
    Ended Run(const char *command, const char *folder = nullptr, std::string_view input = {},
              bool use_shell = true) const {
        const Process process = Start(command, folder, use_shell);
        std::thread feeder([&] { feed(process->getStdin(), input); });
        std::string err;
        std::thread errors([&] { err = rest_of(process->getStderr()); });
        Ended ended{rest_of(process->getStdout()), "", 0};
        feeder.join();
        errors.join();
        ended.err = err;
        ended.code = wait_for(*process);
        return ended;
    }

    std::unique_ptr<rshServer> server;
};

TEST(RemoteShell, ACommandHasItsChannelsAndItsExitCode) {
    EXPECT_EQ(Session().Run("cat; echo oops >&2; exit 7", nullptr, "hello\n"),
              (Ended{"hello\n", "oops\n", 7}));
    EXPECT_EQ(Session().Run("true", nullptr, "", false), (Ended{"", "", 0}));
    EXPECT_EQ(Session().Run("kill -TERM $$"), (Ended{"", "", 128 + SIGTERM}));
}

TEST(RemoteShell, BulkGoesBothWaysAtOnce) {
    std::string input(std::size_t{48} << 20, 0);
    for (std::size_t at = 0; at < input.size(); ++at)
        input[at] = static_cast<char>(at * 2654435761U >> 13);
    const Ended ended = Session().Run("cat", nullptr, input);
    EXPECT_TRUE(ended.out == input) << ended.out.size();
    EXPECT_EQ(ended.code, 0);
}

TEST(RemoteShell, NothingIsLeftOpen) {
    Session().Run("true");
    const std::size_t before = open_descriptors();
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(Session().Run("cat", nullptr, "x", true), (Ended{"x", "", 0}));
        EXPECT_THROW(Session().Start("/no/such/program", nullptr, false), xthrowable *);
    }
    EXPECT_EQ(open_descriptors(), before);
}

}  // namespace
