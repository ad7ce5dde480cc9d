// Socket servers: peers that hold nobody up, the loop's waits, asynchronous requests, and who is let in.
// Clients of servers that misbehave are tests/tools/network_test.py.
#include <arpa/inet.h>
#include <sched.h>
#include <sys/socket.h>

#include <ctime>
#include <thread>

#include <kelstdmt/kel.h>
#include <kelstdmt/netlib_server.h>
#include <kelstdmt/reglib.h>

#include "scarce_descriptors.h"
#include "scratch_folder.h"
#include "timing.h"

namespace {

using Action = netServerLoopAction;
using Stream = std::unique_ptr<netSocketStream>;
using Socket = std::unique_ptr<btkStreamSocket>;

struct Callbacks : netBaseServer_OnRequest_cb, netBaseServer_OnAsyncRequest_cb {
    std::function<Action(Stream)> request;  // the default: on a thread, as follows
    // The default: every int goes back, plus one.
    std::function<Action(Stream, evtEvent *)> async = [](Stream stream, evtEvent *stop) {
        std::unique_ptr<ioEvent> input(stream->InputEvent());
        evtEventArray events;
        events.append(stop);
        events.append(input.get());
        while (evtEvent::Wait(&events, INFINITE) == 2 && stream->TryReadInt() == ioSuccess) {
            stream->WriteInt(stream->ReadInt() + 1);
            stream->Flush();
        }
        return netServerContinue;
    };

    Action OnRequest(netBaseServer *, netSocketStream *stream) override {
        return request ? request(Stream(stream)) : netSpawnAsyncServer;
    }
    Action OnAsyncRequest(netBaseServer *, netSocketStream *stream, evtEvent *stop) override {
        return async(Stream(stream), stop);
    }
};

bool soon(const std::function<bool()> &holds) {
    for (int tries = 0; !holds() && tries < 20'000; ++tries)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return holds();
}

struct Server : ScratchFolder {
    Server() { ::setenv("KELSTDMT_REGISTRY", folder.c_str(), 1); }
    ~Server() override { Stop(); }

    void Make(netServer *made) {
        server.reset(made);
        address->setPortN(server->getPortN());
    }
    void Start() {
        server->setOnRequest(&callbacks);
        server->setOnAsyncRequest(&callbacks);
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
    // All that comes until the server cuts the connection.
    static std::string Rest(btkStreamSocket &peer) {
        std::string bytes;
        for (char byte; peer.Recv(&byte, 1) == 1;)
            bytes += byte;
        return bytes;
    }
    Stream Ask(int value) {
        Stream stream(netServer::Connect(address.get(), 20));
        EXPECT_TRUE(stream) << Error_GetLast();
        stream->WriteInt(value);
        stream->Flush();
        return stream;
    }
    void ExpectServes() { EXPECT_EQ(Ask(7)->ReadInt(), 8); }

    Callbacks callbacks;
    std::unique_ptr<netServer> server{netServer::Create(nullptr, 0)};
    std::unique_ptr<netAddress> address{netAddress::Create(server->getPortN(), "127.0.0.1")};
    std::thread loop;
};

TEST_F(Server, PeersThatSayNothingHoldNobodyUp) {
    const auto before = open_descriptors();
    server->setPatience(INFINITE);
    Start();
    std::vector<Socket> silent;
    for (int at = 0; at < 1100; ++at)
        silent.push_back(Peer());
    ExpectServes();
    const auto dropped = [&] {
        return std::count_if(silent.begin(), silent.end(), [](const Socket &peer) {
            return peer->Wait(btkTimeval(0, 0), btkSocket::ForInput) > 0;
        });
    };
    EXPECT_TRUE(soon([&] { return dropped() >= 76; }) && dropped() == 76) << "no more than 1,024 are awaited";
    silent.clear();
    Stop();
    server.reset();
    EXPECT_EQ(open_descriptors(), before - 1) << "the listening socket is gone";
    Make(netServer::Create(nullptr, 0));
    server->setPatience(0.5);
    Start();
    EXPECT_NEAR(seconds([&] { EXPECT_EQ(Rest(*Peer()), "") << "patience ends"; }), 5.4, 5);
}

// Without a handshake a server may be the first to speak, and is handed those who say nothing.
TEST_F(Server, WhoeverAcceptsByItselfWaitsForNoWord) {
    std::unique_ptr<netBaseServer> plain(netBaseServer::Create(nullptr, 0));
    callbacks.request = [&](Stream stream) {
        stream->WriteInt(5);
        return netServerTerminate;
    };
    plain->setOnRequest(&callbacks);
    std::thread serving([&] { plain->Run(); });
    std::unique_ptr<netAddress> where(netAddress::Create(plain->getPortN(), nullptr));
    EXPECT_EQ(Stream(netBaseServer::Connect(where.get(), 20))->ReadInt(), 5);
    serving.join();
    callbacks.request = nullptr;
    Start();
    const Socket silent = Peer();
    EXPECT_EQ(Rest(*Peer("\1")), "\1");
    Stop();
    const std::unique_ptr<netEvent> event(server->AcceptEvent());
    EXPECT_TRUE(event->Wait(20.0) && Stream(server->Accept(0)) && !event->getIsSignaled());
    EXPECT_EQ(server->Accept(0.01), nullptr);
}

// After each slice without anybody, and never without somebody to call.
TEST_F(Server, CallsOutWhileNothingArrives) {
    struct : netBaseServer_OnIdle_cb {
        int calls = 0;
        Action OnIdle(netBaseServer *) override {
            return ++calls < 3 ? netServerContinue : netServerTerminate;
        }
    } idle;
    server->setOnIdle(&idle);
    for (const double slice : {0.1, -1.0, 0.0}) {
        idle.calls = 0;
        server->setTimeSlice(slice);
        EXPECT_GT(seconds([&] { server->Run(); }), 3 * slice - 0.01);
        EXPECT_EQ(idle.calls, 3) << server->getTimeSlice();
    }
    Scarcity none(1);
    const Socket peer = Peer();
    EXPECT_TRUE(server->Accept(0.2) == nullptr && Error_GetLast() == 4)
        << "nothing is left for the connection";
    none.GiveOne();
    EXPECT_TRUE(Stream(server->Accept(20)));
}

// One that fails ends nothing but itself, one that says so ends the loop, and the others end with the server,
// each told once.
TEST_F(Server, RequestsRunBesideTheLoopAndEndWithTheServer) {
    std::atomic<int> stopped = 0;
    static std::atomic<int> reports;
    btkAbortHandler before = btkSetAbortHandler([](const char *, const char *, int) { ++reports; });
    callbacks.async = [&](Stream stream, evtEvent *stop) {
        const int asked = stream->ReadInt();
        if (asked == 1) xthrow(netXException::Create(netSocketError, "no"));
        if (asked == 2) throw std::runtime_error("no");
        if (asked == 3) return netServerTerminate;
        stopped += stop->Wait(INFINITE) ? 1 : 100;
        return netServerContinue;
    };
    Start();
    std::vector<Stream> streams;
    for (int asked : {4, 4, 1, 2, 4, 4, 3})
        streams.push_back(Ask(asked));
    loop.join();
    server.reset();
    EXPECT_EQ(stopped, 4);
    EXPECT_EQ(reports, 2);
    btkSetAbortHandler(before);
}

TEST_F(Server, RequestsMayBeginWhileItGoes) {
    for (int round = 0; round < 20; ++round) {
        Make(netServer::Create(nullptr, 0));
        Start();
        std::atomic<int> begun = 0;
        std::thread clients[4];
        for (std::thread &client : clients)
            client = std::thread([&] {
                while (const Stream stream{netServer::Connect(address.get(), 20)})
                    ++begun;
            });
        soon([&] { return begun > 4 * round; });
        Stop();
        server.reset();
        for (std::thread &client : clients)
            client.join();
    }
}

TEST_F(Server, WithoutDescriptorsItWaitsAndGoesOn) {
    Start();
    EXPECT_EQ(Rest(*Peer("\1")), "\1");
    const auto before = open_descriptors();
    ExpectServes();
    EXPECT_TRUE(soon([&] { return open_descriptors() <= before; })) << "the request gives back what it had";
    // The undefined-behaviour sanitizer needs a descriptor to look at an object's class for the first time.
    std::cout << std::endl;
    // One descriptor for the peer, none for the connection.
    auto scarcity = std::make_unique<Scarcity>(1);
    const Socket peer = Peer(std::string_view("\0", 1));
    const std::clock_t cpu = std::clock();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_LT(std::clock() - cpu, CLOCKS_PER_SEC / 5) << "it spins";
    // Now there is one for the connection, and none for a thread: the stream goes, and the loop goes on.
    scarcity->GiveOne();
    EXPECT_EQ(Rest(*peer), "\1");
    scarcity.reset();
    ExpectServes();
    // Those who say nothing use up the rest, from another process, and do not keep the others from a thread.
    scarcity = std::make_unique<Scarcity>(20);
    const std::string theirs = "/proc/" + std::to_string(::getpid()) + "/fd";
    const auto flood = [&] {
        scarcity.reset();
        std::vector<Socket> silent;
        for (int at = 0; at < 200; ++at)
            silent.push_back(Peer());
        // The system keeps them back for a second or so.
        const auto open = [&] { return std::distance(std::filesystem::directory_iterator(theirs), {}); };
        EXPECT_TRUE(soon([&] { return open() >= 195; })) << open();
        for (int at = 0; at < 20; ++at)
            ExpectServes();
    };
    EXPECT_EQ(in_child(flood), 0);
}

// Who is let in by which lists is tested by tests/hosts.
TEST_F(Server, AListIsNotGotPastByAFlood) {
    // Addresses that this machine routes to itself without having them are those of others.
    const auto work = [&] {
        if (::unshare(CLONE_NEWNET) != 0 ||
            ::system("ip link set lo up && ip route add local 10.0.0.0/8 dev lo") != 0)
            return 77;
        Make(netServer::Create(nullptr, 0));  // on the new network
        Start();
        const auto answer = [port = htons(static_cast<std::uint16_t>(address->getPortN()))] {
            const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
            const sockaddr_in from{AF_INET, 0, {::inet_addr("10.0.1.7")}, {}},
                to{AF_INET, port, {::inet_addr("10.1.1.1")}, {}};
            char byte = static_cast<char>(::bind(fd, reinterpret_cast<const sockaddr *>(&from), sizeof from));
            ::connect(fd, reinterpret_cast<const sockaddr *>(&to), sizeof to);
            if (::send(fd, &byte, 1, MSG_NOSIGNAL) != 1 || ::recv(fd, &byte, 1, 0) != 1) byte = '?';
            ::close(fd);
            return byte;
        };
        ovkRegistryKey key;
        EXPECT_TRUE(key.Create(ovkRegistry::System()->Root(), "Software\\ORV\\"));
        key.SetValue("ConnectionAllowed", "10.0.0.*");
        EXPECT_EQ(answer(), 0);
        auto scarcity = std::make_unique<Scarcity>(2);  // for peer and connection, none to read the lists
        EXPECT_NE(answer(), 1);
        scarcity.reset();
        Stop();
        return int{HasFailure()};
    };
    const int code = wait_for(start(work));
    if (code == 77) GTEST_SKIP() << "no right to a network of its own";
    EXPECT_EQ(code, 0);
}

}  // namespace
