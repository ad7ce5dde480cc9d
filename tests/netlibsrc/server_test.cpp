// Socket servers: peers that hold nobody up, the loop's waits, asynchronous requests, and who is let in.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <atomic>
#include <cmath>
#include <filesystem>
#include <functional>
#include <thread>
#include <vector>

#include <kelstdmt/kel.h>
#include <kelstdmt/netlib_server.h>
#include <kelstdmt/reglib.h>

#include "scratch_folder.h"

namespace {

using Action = netServerLoopAction;
using Stream = std::unique_ptr<netSocketStream>;
using Socket = std::unique_ptr<btkStreamSocket>;

struct Callbacks : netBaseServer_OnRequest_cb, netBaseServer_OnAsyncRequest_cb, netBaseServer_OnIdle_cb {
    // By default each connection is served on a thread, which sends every int back, plus one.
    std::function<Action(netBaseServer *, netSocketStream *)> request = [](auto...) {
        return netSpawnAsyncServer;
    };
    std::function<Action(Stream, evtEvent *)> async = [](Stream stream, evtEvent *stop) {
        std::unique_ptr<ioEvent> input(stream->InputEvent());
        xrchandle<evtEventArray> events(evtEventArray::create());
        events->append(stop);
        events->append(input.get());
        while (evtEvent::Wait(events.get(), INFINITE) == 2) {
            if (stream->TryReadInt() != ioSuccess) break;
            const xstring text = xstring("a text of the request ") + "and another";
            stream->WriteInt(stream->ReadInt() + (text.GetSize() > 30 ? 1 : 0));
            stream->Flush();
        }
        return netServerContinue;
    };
    std::function<Action()> idle = [] { return netServerContinue; };

    Action OnRequest(netBaseServer *server, netSocketStream *stream) override {
        return request(server, stream);
    }
    Action OnAsyncRequest(netBaseServer *, netSocketStream *stream, evtEvent *stop) override {
        return async(Stream(stream), stop);
    }
    Action OnIdle(netBaseServer *) override { return idle(); }
};

double seconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}
double own_cpu_seconds() {
    rusage used{};
    ::getrusage(RUSAGE_SELF, &used);
    return static_cast<double>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) +
           1e-6 * static_cast<double>(used.ru_utime.tv_usec + used.ru_stime.tv_usec);
}
std::size_t open_descriptors() {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}
struct Server : ScratchFolder {
    Server() { ::setenv("KELSTDMT_REGISTRY", folder.c_str(), 1); }
    ~Server() override { Stop(); }

    void Start(bool with_idle = false) {
        server->setOnRequest(&callbacks);
        server->setOnAsyncRequest(&callbacks);
        server->setOnIdle(with_idle ? &callbacks : nullptr);
        loop = std::thread([this] { server->Run(); });
    }
    void Stop() {
        if (!loop.joinable()) return;
        netServer::Shutdown(address.get());
        loop.join();
    }
    Socket Peer(std::string_view bytes = {}) {
        auto socket = std::make_unique<btkStreamSocket>();
        EXPECT_TRUE(socket->Connect("localhost", address->getPortN(), btkTimeval(20, 0))) << Error_GetLast();
        EXPECT_EQ(socket->Send(bytes.data(), static_cast<unsigned>(bytes.size())), int(bytes.size()));
        return socket;
    }
    // The first byte of the answer to a peer with that address.
    std::string AskFrom(const char *peer, const std::string &byte) const {
        const auto at = [](const char *numeric, int port) {
            sockaddr_in result{AF_INET, htons(static_cast<std::uint16_t>(port)), {}, {}};
            ::inet_pton(AF_INET, numeric, &result.sin_addr);
            return result;
        };
        const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        const sockaddr_in from = at(peer, 0),
                          to = at(peer[1] == '2' ? "127.0.0.1" : "10.1.1.1", address->getPortN());
        char answer[2] = "?";
        if (::bind(fd, reinterpret_cast<const sockaddr *>(&from), sizeof from) == 0 &&
            ::connect(fd, reinterpret_cast<const sockaddr *>(&to), sizeof to) == 0 &&
            ::send(fd, byte.data(), 1, 0) == 1 && ::recv(fd, answer, 1, 0) <= 0)
            answer[0] = '!';
        ::close(fd);
        return {answer, 1};
    }
    // All that comes until the server cuts the connection.
    static std::string Rest(btkStreamSocket &peer) {
        std::string bytes;
        char block[64];
        for (int got; peer.Wait(btkTimeval(20, 0), btkSocket::ForInput) > 0;) {
            if ((got = peer.Recv(block, sizeof block)) <= 0) return bytes;
            bytes.append(block, static_cast<std::size_t>(got));
        }
        return bytes + "... and no end";
    }
    static void ExpectServes(netAddress *where) {
        const Stream stream(netServer::Connect(where, 20));
        ASSERT_TRUE(stream) << Error_GetLast();
        for (int value = 0; value < 3; ++value) {
            stream->WriteInt(value);
            stream->Flush();
            ASSERT_EQ(stream->ReadInt(), value + 1);
        }
    }

    Callbacks callbacks;
    std::unique_ptr<netServer> server{netServer::Create(nullptr, 0)};
    std::unique_ptr<netAddress> address{netAddress::Create(server->getPortN(), "127.0.0.1")};
    std::thread loop;
};

TEST_F(Server, PeersThatSayNothingOrNonsenseHoldNobodyUp) {
    Start();
    EXPECT_TRUE(netServer::IsAlive(address.get()));
    const std::size_t before = open_descriptors();
    std::vector<Socket> silent;
    const double begin = seconds();
    for (int at = 0; at < 1100; ++at)
        silent.push_back(Peer());
    Socket cut = Peer();
    const linger at_once{1, 0};
    ::setsockopt(cut->GetHandle(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    cut.reset();
    ExpectServes(address.get());
    EXPECT_TRUE(netServer::IsAlive(address.get()));
    EXPECT_EQ(kel::view(netServer::GetVersion(address.get())), "KEL netServer Version 0.99");
    EXPECT_EQ(Rest(*Peer("\2")), std::string("\1\x1bKEL netServer Version 0.99\0", 29));
    EXPECT_EQ(Rest(*Peer("\1\2\3")), "\1") << "what follows the question is not read";
    EXPECT_EQ(Rest(*Peer("\4")) + Rest(*Peer("\xff")), "");
    EXPECT_LT(seconds() - begin, 9);
    EXPECT_EQ(Rest(*silent[0]), "") << "of more than 1,024, the one that has waited longest goes";
    EXPECT_EQ(silent[1099]->Wait(btkTimeval(0, 0), btkSocket::ForInput), -1) << "the others stay";
    EXPECT_EQ(Rest(*silent[1099]), "") << "for a time";
    EXPECT_NEAR(seconds() - begin, 10, 6);
    silent.clear();
    Stop();
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Server, ABurstIsServedAndWhatIsLeftWaitsForTheNextRun) {
    int served = 0;
    std::unique_ptr<netBaseServer> plain(netBaseServer::Create(nullptr, 0));
    std::unique_ptr<netEvent> event(plain->AcceptEvent());
    EXPECT_FALSE(event->getIsSignaled());
    EXPECT_EQ(plain->Accept(0.01), nullptr);
    std::unique_ptr<netAddress> where(netAddress::Create(plain->getPortN(), nullptr));
    std::vector<Stream> clients;
    std::thread connecting([&] {
        for (int at = 0; at < 1000; ++at)
            clients.emplace_back(netBaseServer::Connect(where.get(), 20));
    });
    // It has no handshake, so it may be the first to speak.
    callbacks.request = [&](netBaseServer *, netSocketStream *stream) {
        const Stream owned(stream);
        owned->WriteInt(++served);
        return served % 500 ? netServerContinue : netServerTerminate;
    };
    plain->setOnRequest(&callbacks);
    plain->Run();
    EXPECT_EQ(served, 500);
    EXPECT_TRUE(event->Wait(20.0));
    plain->Run();
    connecting.join();
    for (int at = 0; at < 1000; ++at)
        ASSERT_EQ(clients[std::size_t(at)]->ReadInt(), at + 1);
    // An awaited peer is there for Accept, which knows no handshake, when Run has come back.
    Start();
    Socket silent = Peer(), other = Peer("\1");
    EXPECT_EQ(Rest(*other), "\1");
    Stop();
    event.reset(server->AcceptEvent());
    EXPECT_TRUE(event->getIsSignaled());
    const Stream accepted(server->Accept(0));
    ASSERT_TRUE(accepted);
    EXPECT_FALSE(event->getIsSignaled());
    EXPECT_TRUE(server->Accept(0) == nullptr && event->getServer() == server.get());
}

TEST_F(Server, IdleIsOncePerSliceWhateverTheSlice) {
    std::atomic<int> idles = 0;
    callbacks.idle = [&] { return ++idles, netServerContinue; };
    struct Case {
        double slice;
        int least, most;
    };
    // Fewer than the least would be a machine that stands still.
    for (const Case &expected : {Case{0.1, 2, 7}, Case{0, 3, 620}, Case{-1, 3, 620}, Case{NAN, 3, 620},
                                 Case{INFINITE, 0, 0}, Case{1e300, 0, 0}}) {
        server->setTimeSlice(expected.slice);
        Start(true);
        const Socket silent = Peer();
        idles = 0;
        const double begin = seconds(), cpu = own_cpu_seconds();
        std::this_thread::sleep_for(std::chrono::milliseconds(600));
        const int seen = idles;
        EXPECT_LT(own_cpu_seconds() - cpu, 0.3) << "it does not spin";
        EXPECT_GE(seen, expected.least) << expected.slice;
        EXPECT_LE(seen, expected.most * (seconds() - begin) / 0.6) << expected.slice;
        Stop();
    }
    callbacks.idle = [&] { return netServerTerminate; };
    server->setTimeSlice(0.01);
    server->setOnIdle(&callbacks);
    server->Run();
}

TEST_F(Server, RequestsRunBesideTheLoopAndEndWithTheServer) {
    std::atomic<int> stopped = 0;
    Start();
    std::vector<std::thread> clients;
    for (int at = 0; at < 8; ++at)
        clients.emplace_back([this] {
            for (int round = 0; round < 25; ++round)
                ExpectServes(address.get());
        });
    for (std::thread &client : clients)
        client.join();
    Stop();
    // One that fails ends nothing but itself, one that says so ends the loop, and the others end with the
    // server, each told once.
    static std::atomic<int> reports;
    btkAbortHandler before = btkSetAbortHandler([](const char *, const char *, int) { ++reports; });
    callbacks.async = [&](Stream stream, evtEvent *stop) {
        const int asked = stream->ReadInt();
        if (asked == 1) xthrow(xrcunihandle<xthrowable>(netXException::Create(netSocketError, "no")));
        if (asked == 2) throw std::runtime_error("no");
        if (asked == 3) return netServerTerminate;
        stopped += stop->Wait(INFINITE) ? 1 : 100;
        return netServerContinue;
    };
    Start();
    std::vector<Stream> streams;
    for (int asked : {4, 4, 1, 2, 4, 4, 3}) {
        streams.emplace_back(netServer::Connect(address.get(), 20));
        ASSERT_TRUE(streams.back());
        streams.back()->WriteInt(asked);
        streams.back()->Flush();
    }
    loop.join();
    server.reset();
    EXPECT_EQ(stopped, 4);
    EXPECT_EQ(reports, 2);
    btkSetAbortHandler(before);
}

TEST_F(Server, WithoutDescriptorsItWaitsAndGoesOn) {
    Start();
    ExpectServes(address.get());
    testing::internal::CaptureStdout();
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    // One descriptor for the peer, none for the connection.
    const rlimit low{static_cast<rlim_t>(::dup(0)) + 12, limit.rlim_max};
    ::close(static_cast<int>(low.rlim_cur) - 12);
    ::setrlimit(RLIMIT_NOFILE, &low);
    std::vector<int> all;
    for (int fd; (fd = ::dup(0)) >= 0;)
        all.push_back(fd);
    ::close(all.back());
    all.pop_back();
    Socket peer = Peer(std::string_view("\0", 1));
    const double cpu = own_cpu_seconds();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_LT(own_cpu_seconds() - cpu, 0.2);
    // Now there is one for the connection, and none for a thread: the stream goes, and the loop goes on.
    ::close(all.back());
    all.pop_back();
    EXPECT_EQ(Rest(*peer), "\1");
    for (int fd : all)
        ::close(fd);
    ::setrlimit(RLIMIT_NOFILE, &limit);
    ExpectServes(address.get());
    Stop();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "netBaseServer::SpawnAsyncRequest: create thread failed\n");
}

TEST_F(Server, PeersOfOtherMachinesNeedAPlaceOnTheLists) {
    // Addresses that this machine routes to itself without having them are those of others.
    const auto others = [&] {
        if (::unshare(CLONE_NEWNET) != 0 ||
            ::system("ip link set lo up && ip route add local 10.0.0.0/8 dev lo") != 0)
            return 77;
        // The sockets of before are of another network.
        server.reset(netServer::Create(nullptr, 0));
        address->setPortN(server->getPortN());
        Start();
        struct Case {
            const char *machine, *user, *peer;
            bool allowed;
        };
        for (const Case &expected : {Case{nullptr, nullptr, "10.0.1.7", true},
                                     {"10.0.0.*", nullptr, "10.0.0.7", true},
                                     {"10.0.0.*", nullptr, "10.0.1.7", false},
                                     {"10.9.* 10.0.1.?", nullptr, "10.0.1.7", true},
                                     {"", nullptr, "10.0.1.7", false},
                                     {nullptr, "[", "10.0.1.7", false},
                                     {nullptr, "10.0.1.*", "10.0.1.7", true},
                                     {"10.*", "10.0.1.*", "10.0.0.7", false},
                                     {"10.0.1.*", "10.*", "10.0.0.7", false},
                                     {"10.*", "* nothing", "10.0.0.7", true},
                                     {"none", "none", "127.0.0.1", true}}) {
            for (auto [registry, list] : {std::pair(ovkRegistry::System(), expected.machine),
                                          std::pair(ovkRegistry::User(), expected.user)}) {
                ovkRegistryKey key;
                EXPECT_TRUE(key.Create(registry->Root(), "Software\\ORV\\"));
                list ? key.SetValue("ConnectionAllowed", list) : key.DeleteValue("ConnectionAllowed");
            }
            EXPECT_EQ(AskFrom(expected.peer, std::string(1, 0)), expected.allowed ? "\1" : std::string(1, 0))
                << expected.peer << " with " << (expected.machine ? expected.machine : "no list");
        }
        EXPECT_EQ(AskFrom("10.0.0.7", "\1"), "\1") << "this question is everybody's";
        Stop();
        return testing::Test::HasFailure() ? 1 : 0;
    };
    const int code = wait_for(start(others));
    if (code == 77) GTEST_SKIP() << "no right to a network of its own";
    EXPECT_EQ(code, 0);
}

}  // namespace
