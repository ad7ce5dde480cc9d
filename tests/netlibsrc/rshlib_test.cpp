// The remote shell over real connections and processes: what a command sees and gives, what travels, and what
// happens when one side stops reading, lies or is gone.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include <atomic>
#include <filesystem>
#include <fstream>
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

// Whether all of it was taken.
bool feed_some(ioStream *to, std::string_view bytes) {
    try {
        to->WriteBytes(bytes.data(), static_cast<unsigned>(bytes.size()));
        return true;
    } catch (xthrowable *thrown) {
        const kel::caught error(thrown);
        return false;
    }
}
bool feed(ioStream *to, std::string_view bytes) {
    const bool taken = feed_some(to, bytes);
    to->Close();
    return taken;
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

std::string pattern(std::size_t size) {
    std::string bytes(size, 0);
    for (std::size_t at = 0; at < size; ++at)
        bytes[at] = static_cast<char>(at * 2654435761U >> 13);
    return bytes;
}

// The exception that the work throws, as "message (creation error)".
template <class Work>
std::string refusal(Work work) {
    try {
        work();
    } catch (xthrowable *thrown) {
        const kel::caught error(thrown);
        const auto *process = error.as<rshXProcess>();
        if (!process) return "another exception";
        return std::string(kel::view(process->getMsg())) + " (" + std::to_string(process->getCreateError()) +
               ")";
    }
    return "no exception";
}

// One that has ended may wait to be collected.
bool is_alive(int process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/stat");
    std::string id, name, state;
    return status >> id >> name >> state && state != "Z";
}
// Waits for what another process does.
template <class Condition>
bool becomes(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition() && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    return condition();
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

TEST(RemoteShell, ShellAndProgramReadTheCommandAsTheClientWroteIt) {
    // Not by echo: shells differ in what it does with a backslash.
    EXPECT_EQ(Session().Run(R"(printf "%s|" "a \"b\"  c" 'd\e' $((1+1)) "")"),
              (Ended{"a \"b\"  c|d\\e|2||", "", 0}));
    EXPECT_EQ(Session().Run(R"(printf "%s|" "a  b" \"c\")", nullptr, "", false),
              (Ended{"a  b|\"c\"|", "", 0}));
    EXPECT_EQ(Session().Run(""), (Ended{"", "", 0}));
    const std::string text(100'000, 'x');
    EXPECT_EQ(Session().Run(("printf %s " + text).c_str()), (Ended{text, "", 0}));
}

struct RemoteFolder : ScratchFolder {};

TEST_F(RemoteFolder, IsTheClientsChoiceBelowTheBase) {
    std::filesystem::create_directories(folder + "/in/deep");
    const std::string below = folder + "/in";
    EXPECT_EQ(Session(below.c_str()).Run("pwd", "deep").out, below + "/deep\n");
    EXPECT_EQ(Session(below.c_str()).Run("pwd", folder.c_str()).out, folder + "\n");
    EXPECT_EQ(Session(below.c_str()).Run("pwd").out, std::filesystem::current_path().string() + "\n");
}

TEST_F(RemoteFolder, OfARefusedLaunchTheServersTextIsTold) {
    const auto start = [](const char *command, const char *where, bool use_shell) {
        return refusal([&] { Session().Start(command, where, use_shell); });
    };
    EXPECT_EQ(start("true", (folder + "/none").c_str(), true), Error_GetText(267) + std::string(" (3)"));
    EXPECT_EQ(start("/no/such/program", "", false), Error_GetText(2) + std::string(" (3)"));
    EXPECT_EQ(start("", "", false), Error_GetText(87) + std::string(" (3)"));
    EXPECT_EQ(start(std::string(400'000, 'x').c_str(), "", true), Error_GetText(206) + std::string(" (3)"));
    EXPECT_THAT(start("true", std::string(300, 'd').c_str(), true), testing::EndsWith(" (7)"));
}

TEST_F(RemoteFolder, TheCallersStreamsAreTheChannels) {
    const std::string bytes = pattern(3 << 20);
    put(bytes);
    const std::unique_ptr<ioStream> in(ioFileStream::Open(path.c_str(), ioReadOnly)),
        out(ioFileStream::Create((folder + "/out").c_str(), ioWriteOnly, true));
    const std::unique_ptr<ioStringStream> err(ioStringStream::Create());
    const Session session;
    const Process process(rshProcess::Create(session.near.get(), "cat; echo done >&2", nullptr, in.get(),
                                             out.get(), err.get(), true, false));
    EXPECT_EQ(process->getStdin(), nullptr);
    EXPECT_EQ(process->getStdout(), nullptr);
    EXPECT_EQ(wait_for(*process), 0);
    EXPECT_TRUE(get("out") == bytes) << get("out").size();
    EXPECT_EQ(err->ReadString("\n"), xstring("done"));
}

TEST(RemoteShell, BulkGoesBothWaysAtOnce) {
    const std::string input = pattern(std::size_t{48} << 20);
    const Ended ended = Session().Run("tee /dev/stderr", nullptr, input);
    EXPECT_TRUE(ended.out == input) << ended.out.size();
    EXPECT_TRUE(ended.err == input) << ended.err.size();
    EXPECT_EQ(ended.code, 0);
}

// Nobody reads the output, and the command reads no input.
TEST(RemoteShell, SignalsPassWhileBothDirectionsAreFull) {
    for (const bool terminate : {false, true}) {
        const Session session;
        const Process process = session.Start("exec yes");
        std::atomic<std::size_t> written{0};
        std::thread writer([&] {
            while (feed_some(process->getStdin(), std::string(65536, 'i')))
                written += 65536;
        });
        EXPECT_TRUE(becomes([&] {
            const std::size_t before = written;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            return before > 0 && before == written;
        }));
        EXPECT_LT(written, 4U << 20) << "what nobody reads is taken in without end";
        terminate ? process->Terminate() : process->Interrupt();
        EXPECT_FALSE(rest_of(process->getStdout()).empty());
        EXPECT_EQ(wait_for(*process), 128 + (terminate ? SIGKILL : SIGINT));
        writer.join();
    }
}

TEST(RemoteShell, OneFullChannelHoldsNoOtherUp) {
    const Session session;
    const Process process = session.Start("yes & read line; echo $line >&2; kill $!");
    const std::unique_ptr<ioEvent> output(process->getStdout()->InputEvent());
    EXPECT_TRUE(output->Wait(seconds));
    process->getStdin()->WriteBytes("through\n", 8);
    process->getStdin()->Flush();
    char line[8];
    EXPECT_EQ(process->getStderr()->ReadBytes(line, 8), 8U);
    EXPECT_EQ(std::string(line, 8), "through\n");
    EXPECT_TRUE(rest_of(process->getStdout()).starts_with("y\ny\n"));
    EXPECT_EQ(wait_for(*process), 0);
}

TEST(RemoteShell, ACommandMayLeaveItsChannelsEarly) {
    const std::string input = pattern(8 << 20);
    EXPECT_EQ(Session().Run("exec <&-; echo out; exec >&- 2>&-; exit 3", nullptr, input),
              (Ended{"out\n", "", 3}));
    EXPECT_EQ(Session().Run("(sleep 0.2; echo late) & echo early; exit 4"), (Ended{"early\nlate\n", "", 4}));
    const Session session;
    const Process process = session.Start("sleep 1000 & exit 6");
    const std::unique_ptr<rshEvent> exit(process->ExitEvent());
    EXPECT_FALSE(exit->Wait(0.1)) << "a child that holds the output is part of the session";
    process->Terminate();
    EXPECT_EQ(wait_for(*process), 6);
}

// Another reader of the same input takes some of what its event told.
TEST(RemoteShell, AWakeUpForNothingIsNoEnd) {
    const std::unique_ptr<ioPipe> pipe(ioPipe::Create());
    ioStream *in = kel_pipe_access::ReadStream(*pipe), *writer = kel_pipe_access::WriteStream(*pipe);
    const Session session;
    const Process process(
        rshProcess::Create(session.near.get(), "wc -c", nullptr, in, nullptr, nullptr, true, false));
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

// A client that speaks for itself.
struct Peer : Session {
    ~Peer() { near.reset(); }  // before the server, which would give it time to read the rest

    void Ask(const char *command) const {
        near->WriteString(command);
        near->WriteString("");
        near->WriteInt(1);
        near->Flush();
        EXPECT_EQ(near->ReadInt(), 0);
    }
    void Send(std::initializer_list<int> ints, const std::string &bytes = "") const {
        for (int each : ints)
            near->WriteInt(each);
        if (!bytes.empty()) near->WriteBytes(bytes.data(), static_cast<unsigned>(bytes.size()));
        near->Flush();
    }
    // What comes up to tag 7: "3:text 6=code 7", with all bytes of a channel that follow one another
    // together.
    std::string Told() const {
        std::string told;
        for (int last = 0, tag = 0; tag != 7; last = tag) {
            tag = near->ReadInt();
            if (tag != last) told += (told.empty() ? "" : " ") + std::to_string(tag);
            if (tag == 6) told += "=" + std::to_string(near->ReadInt());
            if (tag != 2 && tag != 3) continue;
            std::string bytes(static_cast<std::size_t>(near->ReadInt()), 0);
            near->ReadBytes(bytes.data(), static_cast<unsigned>(bytes.size()));
            told += (tag != last ? ":" : "") + bytes;
        }
        return told;
    }
    bool Ends() const {
        const std::unique_ptr<rshServerEvent> exit(server->ExitEvent());
        return exit->Wait(seconds);
    }
};

TEST(RemoteShellServer, TellsTheExitThenAllOutputThenTheEnd) {
    Peer quiet;
    quiet.Ask("exit 9");
    EXPECT_EQ(quiet.Told(), "6=9 7");
    quiet.Send({7});
    EXPECT_TRUE(quiet.Ends());
    Peer late;
    late.Ask("head -c 3000 /dev/zero | tr '\\0' x; exec 3<&0; (read line <&3; echo $line) & exit 2");
    std::string told;
    EXPECT_EQ(late.near->ReadInt(), 3);
    late.Send({99, -1, 0, 1 << 30, 35 + 100, 4, 0, 4, 5}, "then\n");
    EXPECT_EQ(late.near->ReadInt(), 3000);
    std::string bytes(3000, 0);
    late.near->ReadBytes(bytes.data(), 3000);
    EXPECT_EQ(bytes, std::string(3000, 'x'));
    told = late.Told();
    EXPECT_TRUE(told == "3:then\n 6=2 7" || told == "6=2 3:then\n 7") << told;
}

TEST(RemoteShellServer, TakesSignalsInAndOutOfBand) {
    for (const bool in_band : {true, false})
        for (const int signal : {8, 9}) {
            Peer peer;
            peer.Ask("trap 'exit 5' INT; while read line; do echo $line; done");
            for (const char letter : {'a', 'b'}) {
                peer.Send({4, 2}, std::string(1, letter) + "\n");
                for (const int each : {3, 2})
                    EXPECT_EQ(peer.near->ReadInt(), each);
                EXPECT_EQ(peer.near->ReadByte(), letter);
                EXPECT_EQ(peer.near->ReadByte(), '\n');
                EXPECT_TRUE(in_band || letter == 'b' || peer.near->WriteOutOfBand(77));
            }
            if (in_band)
                peer.Send({signal});
            else
                EXPECT_TRUE(peer.near->WriteOutOfBand(signal));
            EXPECT_EQ(peer.Told(), signal == 8 ? "6=137 7" : "6=5 7");
        }
}

TEST(RemoteShellServer, AsksAFasterClientToHoldItsInput) {
    Peer peer;
    peer.Ask("read line; cat | wc -c");
    const int count = 2 << 20;
    std::thread sender([&] { peer.Send({4, count}, std::string(count, 'x')); });
    EXPECT_EQ(peer.near->ReadInt(), 36);
    sender.join();
    peer.Send({4, 1, 5}, "");
}

// The command dies with its session, however that ends.
struct Vanishing : RemoteFolder {
    int Started(const Peer &peer) {
        peer.Ask(("sh -c 'echo $$ >" + path + "; exec sleep 1000' & wait").c_str());
        EXPECT_TRUE(becomes([&] { return get().ends_with("\n"); }));
        return std::stoi(get());
    }
};

TEST_F(Vanishing, ALostOrHostileClientEndsItsCommand) {
    const std::function<void(Peer &)> ends[] = {
        [](Peer &peer) { peer.near.reset(); },
        [](Peer &peer) { ::shutdown(peer.near->GetInheritHandle(), SHUT_WR); },
        [](Peer &peer) {
            peer.Send({4, -1}, "x");
        },
        [](Peer &peer) {
            peer.Send({4, 0x7FFFFFFF}, "xyz");
            peer.near.reset();
        },
        [](Peer &peer) { peer.Send({7}); },
        [](Peer &peer) {
            peer.server->Terminate();
            EXPECT_EQ(peer.Told(), "6=137 7");
            peer.Send({7});
        },
        [](Peer &peer) {
            std::thread closing([&] { peer.server->Close(); });
            EXPECT_EQ(peer.Told(), "6=137 7");
            peer.Send({7});
            closing.join();
        },
    };
    for (const auto &end : ends) {
        Peer peer;
        const int process = Started(peer);
        end(peer);
        EXPECT_TRUE(becomes([&] { return !is_alive(process); })) << "way " << &end - ends;
        std::filesystem::remove(path);
        EXPECT_TRUE(peer.Ends());
    }
}

TEST(RemoteShellServer, GivesUpWhatIsNoRequest) {
    for (const int length : {-1, 0x7FFFFFFF, 3}) {
        Peer peer;
        peer.Send({length}, "ab");
        if (length == 3) peer.near.reset();
        EXPECT_TRUE(peer.Ends()) << length;
    }
    const Pair silent;
    kel::remote_shell_options options;
    options.patience = 0.05;
    EXPECT_FALSE(kel::serve_remote_command(silent.far.get(), options, nullptr));
}

TEST(RemoteShellServer, TellsItsOwnerWhatRuns) {
    std::string told;
    kel::remote_shell_options options;
    options.permit = [](const kel::remote_command &command) {
        return kel::view(command.text) == "no" ? xstring("not today") : xstring();
    };
    options.launched = [&](auto &command, int id) {
        told += command.text.Str() + std::string(id > 0 ? " runs" : "?");
    };
    options.refused = [&](auto &command, auto &reason) {
        told += command.text.Str() + std::string(": ") + reason.Str();
    };
    options.ended = [&](auto &, int code, bool stayed) {
        told += ", " + std::to_string(code) + (stayed ? "." : "!");
    };
    const auto serve = [&](const char *command) {
        const Pair pair;
        std::thread serving([&] { kel::serve_remote_command(pair.far.get(), options, nullptr); });
        const std::string answer = refusal([&] {
            const Process process(rshProcess::Create(pair.near.get(), command, nullptr, nullptr, nullptr,
                                                     nullptr, false, false));
            if (std::string_view(command) != "true")
                process->Close();
            else
                wait_for(*process);
        });
        serving.join();
        return answer + "; " + std::exchange(told, "");
    };
    EXPECT_EQ(serve("true"), "no exception; true runs, 0.");
    EXPECT_EQ(serve("no"), "not today (3); no: not today");
    EXPECT_EQ(serve("sleep 1000"), "no exception; sleep 1000 runs, 137!");
}

// A server that says what it likes.
TEST(RemoteShellClient, OutlivesServersThatVanishOrLie) {
    struct {
        const char *what;
        std::vector<int> said;
        std::string bytes, out;
        int code;
    } const cases[] = {
        {"gone at once", {0}, "", "", rshProcess::NoExitCode},
        {"gone in the middle", {0, 3, 100}, "part", "part", rshProcess::NoExitCode},
        {"gone before all output", {0, 6, 0, 3, 4}, "part", "part", rshProcess::NoExitCode},
        {"negative count", {0, 3, -5}, "part", "", rshProcess::NoExitCode},
        {"no exit code", {0, 7}, "", "", rshProcess::NoExitCode},
        {"unknown tags", {0, 77, -1, 8, 6, 12, 7}, "", "", 12},
    };
    for (const auto &each : cases) {
        Pair pair;
        for (int value : each.said)
            pair.far->WriteInt(value);
        pair.far->WriteBytes(each.bytes.data(), static_cast<unsigned>(each.bytes.size()));
        pair.far->Flush();
        if (each.code == rshProcess::NoExitCode) ::shutdown(pair.far->GetInheritHandle(), SHUT_WR);
        const Process process(
            rshProcess::Create(pair.near.get(), "x", nullptr, nullptr, nullptr, nullptr, false, false));
        EXPECT_EQ(rest_of(process->getStdout()), each.out) << each.what;
        EXPECT_EQ(rest_of(process->getStderr()), "") << each.what;
        EXPECT_EQ(wait_for(*process), each.code) << each.what;
        EXPECT_FALSE(feed(process->getStdin(), pattern(1 << 20))) << each.what;
    }
}

TEST(RemoteShellClient, SaysWhyThereIsNoProcess) {
    const auto answered = [](std::vector<int> said, const char *text) {
        Pair pair;
        for (int value : said)
            pair.far->WriteInt(value);
        if (text) pair.far->WriteString(text);
        pair.far->Flush();
        ::shutdown(pair.far->GetInheritHandle(), SHUT_WR);
        return refusal([&] {
            delete rshProcess::Create(pair.near.get(), "x", nullptr, nullptr, nullptr, nullptr, false, false);
        });
    };
    EXPECT_EQ(answered({10, 4}, "no such thing"), "no such thing (4)");
    EXPECT_EQ(answered({10, 0}, "no pipes"), "Remote process launching error (0)");
    EXPECT_EQ(answered({}, nullptr), "Remote process launching error (0)");
    EXPECT_EQ(answered({10, 3, 100}, nullptr), "Remote process launching error (0)");
    EXPECT_EQ(answered({10, 3, -100}, nullptr), "Protocol mismatch (0)");
}

TEST(RemoteShellClient, SendsWhatItsCallerDoes) {
    Pair pair;
    pair.far->WriteInt(0);
    pair.far->Flush();
    const Process process(
        rshProcess::Create(pair.near.get(), "a \"b\"", "there", nullptr, nullptr, nullptr, true, false));
    EXPECT_EQ(pair.far->ReadString(" "), xstring("a \"b\""));
    EXPECT_EQ(pair.far->ReadString(" "), xstring("there"));
    EXPECT_EQ(pair.far->ReadInt(), 1);
    const auto expect = [&](std::initializer_list<int> ints) {
        for (int each : ints)
            EXPECT_EQ(pair.far->ReadInt(), each);
    };
    process->Interrupt();
    expect({9});
    process->Terminate();
    expect({8});
    EXPECT_EQ(process->GetExitCode(), rshProcess::NoExitCode);
    feed(process->getStdin(), "abcd");
    expect({4, 4, 0x61626364, 5});
    process->Close();
    EXPECT_EQ(process->getStdout(), nullptr);
    EXPECT_EQ(process->GetExitCode(), rshProcess::NoExitCode);
    char byte;
    EXPECT_EQ(::recv(pair.far->GetInheritHandle(), &byte, 1, 0), 0) << "a process that was given up leaves";
}

TEST(RemoteShell, NothingIsLeftOpen) {
    Session().Run("true");
    const std::size_t before = open_descriptors();
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(Session().Run("cat", nullptr, "x", false), (Ended{"x", "", 0}));
        refusal([] { Session().Start("/no/such/program", nullptr, false); });
        Session().Start("sleep 1000", nullptr, false)->Close();
    }
    EXPECT_EQ(open_descriptors(), before);
}

}  // namespace
