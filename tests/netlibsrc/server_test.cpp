// Socket servers: peers that hold nobody up, the loop's waits, asynchronous requests, and who is let in.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <ctime>
#include <iostream>
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
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}
bool soon(const std::function<bool()> &holds) {
    for (const double begin = seconds(); !holds() && seconds() - begin < 20;)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return holds();
}
// Leaves that many descriptors to the process while it lives.
struct Scarcity {
    explicit Scarcity(int left) {
        ::getrlimit(RLIMIT_NOFILE, &before);
        const rlimit low{200, before.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &low);
        for (int fd; (fd = ::dup(0)) >= 0;)
            taken.push_back(fd);
        while (left-- > 0)
            GiveOne();
    }
    Scarcity(const Scarcity &) = delete;
    ~Scarcity() {
        while (!taken.empty())
            GiveOne();
        ::setrlimit(RLIMIT_NOFILE, &before);
    }
    void GiveOne() {
        ::close(taken.back());
        taken.pop_back();
    }
    rlimit before{};
    std::vector<int> taken;
};

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
    const auto before = open_descriptors();
    EXPECT_EQ(server->getPatience(), 10);
    server->setPatience(INFINITE);
    Start();
    std::vector<Socket> silent;
    for (int at = 0; at < 1100; ++at)
        silent.push_back(Peer());
    Socket cut = Peer();
    const linger at_once{1, 0};
    ::setsockopt(cut->GetHandle(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    cut.reset();
    ExpectServes(address.get());
    EXPECT_TRUE(netServer::IsAlive(address.get()));
    const auto dropped = [&] {
        return std::count_if(silent.begin(), silent.end(), [](const Socket &peer) {
            return peer->Wait(btkTimeval(0, 0), btkSocket::ForInput) > 0;
        });
    };
    soon([&] { return dropped() >= 76; });
    EXPECT_EQ(dropped(), 76) << "no more than 1,024 are awaited";
    silent.clear();
    Stop();
    server.reset();
    EXPECT_EQ(open_descriptors(), before - 1) << "the listening socket is gone";
    Make(netServer::Create(nullptr, 0));
    server->setPatience(0.5);
    Start();
    const double begin = seconds();
    EXPECT_EQ(Rest(*Peer()), "") << "patience ends";
    EXPECT_NEAR(seconds() - begin, 5.4, 5);
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
    EXPECT_TRUE(event->Wait(20.0));
    const Stream accepted(server->Accept(0));
    ASSERT_TRUE(accepted);
    EXPECT_FALSE(event->getIsSignaled());
    EXPECT_TRUE(server->Accept(0) == nullptr && event->getServer() == server.get());
}

TEST_F(Server, IdleIsOncePerSliceWhateverTheSlice) {
    int idles = 0;
    callbacks.idle = [&] { return ++idles % 5 ? netServerContinue : netServerTerminate; };
    server->setOnIdle(&callbacks);
    const double cpu = own_cpu_seconds();
    for (const auto &[slice, least] : {std::pair{0.1, 0.35}, {-1.0, 0.0035}, {NAN, 0.0035}}) {
        server->setTimeSlice(slice);
        const Socket silent = Peer();
        const double begin = seconds();
        server->Run();
        EXPECT_GE(seconds() - begin, least) << slice;
    }
    server->setTimeSlice(1e300);
    Start();
    ExpectServes(address.get());
    Stop();
    EXPECT_EQ(idles, 15);
    EXPECT_LT(own_cpu_seconds() - cpu, 0.2) << "it spins";
}

TEST_F(Server, ASignalledEventEndsTheLoopAndLaterRunsGoOn) {
    Make(netServer::Create("not registered", 0, {.address = "127.0.0.1", .is_registered = false}));
    EXPECT_FALSE(btkStreamSocket().Connect("::1", server->getPortN(), btkTimeval(20, 0)));
    const btkEventHandle signal = Event_Create(true, false);
    evtEvent stop(new btkEVENTEvent(signal));
    server->setOnRequest(&callbacks);
    server->setOnAsyncRequest(&callbacks);
    for (int turn = 0; turn < 2; ++turn) {
        std::thread stopped([&] { server->Run(&stop); });
        ExpectServes(address.get());
        const Socket under_way = Peer(std::string(1, 0));
        Event_Set(signal);
        stopped.join();
        Event_Reset(signal);
    }
    loop = std::thread([this] { server->Run(nullptr); });
    ExpectServes(address.get());
    Stop();
    Event_Free(signal);
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

TEST_F(Server, RequestsMayBeginWhileItGoes) {
    for (int round = 0; round < 20; ++round) {
        Make(netServer::Create(nullptr, 0));
        Start();
        std::atomic<int> begun = 0;
        std::thread clients[2];
        for (std::thread &client : clients)
            client = std::thread([&] {
                while (const Stream stream{netServer::Connect(address.get(), 20)})
                    ++begun;
            });
        while (begun <= round)
            std::this_thread::yield();
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
    ExpectServes(address.get());
    EXPECT_TRUE(soon([&] { return open_descriptors() <= before; })) << "the request gives back what it had";
    testing::internal::CaptureStdout();
    // The undefined-behaviour sanitizer needs a descriptor to look at an object's class for the first time.
    std::cout << "begun" << std::endl;
    // One descriptor for the peer, none for the connection.
    auto scarcity = std::make_unique<Scarcity>(1);
    Socket peer = Peer(std::string_view("\0", 1));
    const double cpu = own_cpu_seconds();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_LT(own_cpu_seconds() - cpu, 0.2);
    // Now there is one for the connection, and none for a thread: the stream goes, and the loop goes on.
    scarcity->GiveOne();
    EXPECT_EQ(Rest(*peer), "\1");
    scarcity.reset();
    ExpectServes(address.get());
    // Those who say nothing use up the rest, from another process, and do not keep the others from a thread.
    scarcity = std::make_unique<Scarcity>(20);
    EXPECT_EQ(in_child([&] {
                  scarcity.reset();
                  std::vector<Socket> silent;
                  for (int at = 0; at < 200; ++at) {
                      silent.push_back(Peer());
                      if (at % 10 == 0) ExpectServes(address.get());
                  }
              }),
              0);
    scarcity.reset();
    Stop();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "begun\nnetBaseServer::SpawnAsyncRequest: create thread failed\n");
}

// Servers that accept and say nothing, or are not there at all.
TEST_F(Server, ItsClientsWaitNoLongerThanTheySay) {
    btkAcceptSocket silent;
    ASSERT_TRUE(silent.Listen(0, "127.0.0.1"));
    const auto refusal = [this](auto ask) -> std::string {
        try {
            return ask(address.get(), 0.1), "none";
        } catch (xthrowable *thrown) {
            return kel::caught(thrown).as<netXException>()->getMsg().Str();
        }
    };
    const std::string rights = "Connection refused due to lack of rights";
    for (const bool is_there : {true, false}) {
        address->setPortN(is_there ? silent.GetPort() : 1);
        const double begin = seconds();
        EXPECT_EQ(netServer::Connect(address.get(), 0.1), nullptr);
        EXPECT_TRUE(!is_there || Error_GetLast() == 1460) << Error_GetLast();
        EXPECT_FALSE(netServer::IsAlive(address.get(), 0.1));
        EXPECT_EQ(refusal(netServer::GetVersion), is_there ? rights : "Connection refused");
        EXPECT_EQ(refusal(netServer::Shutdown), is_there ? rights : "none");
        EXPECT_TRUE(seconds() - begin >= 0.35 * is_there && seconds() - begin < 20);
    }
}

// Who is let in by which lists is tested by tests/hosts.
TEST_F(Server, AListIsNotGotPastByAFlood) {
    // Addresses that this machine routes to itself without having them are those of others.
    const auto from_another_machine = [&] {
        if (::unshare(CLONE_NEWNET) != 0 ||
            ::system("ip link set lo up && ip route add local 10.0.0.0/8 dev lo") != 0)
            return 77;
        Make(netServer::Create(nullptr, 0));  // on the new network
        Start();
        ovkRegistryKey key;
        EXPECT_TRUE(key.Create(ovkRegistry::System()->Root(), "Software\\ORV\\"));
        key.SetValue("ConnectionAllowed", "10.0.0.*");
        const auto answer = [&] {
            const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
            const auto port = htons(static_cast<std::uint16_t>(address->getPortN()));
            const sockaddr_in from{AF_INET, 0, {::inet_addr("10.0.1.7")}, {}},
                to{AF_INET, port, {::inet_addr("10.1.1.1")}, {}};
            char byte = 0;
            if (::bind(fd, reinterpret_cast<const sockaddr *>(&from), sizeof from) != 0 ||
                ::connect(fd, reinterpret_cast<const sockaddr *>(&to), sizeof to) != 0 ||
                ::send(fd, &byte, 1, 0) != 1 || ::recv(fd, &byte, 1, 0) != 1)
                byte = '?';
            ::close(fd);
            return byte;
        };
        EXPECT_EQ(answer(), 0);
        auto scarcity = std::make_unique<Scarcity>(2);  // for peer and connection, none to read the lists
        EXPECT_NE(answer(), 1);
        scarcity.reset();
        Stop();
        server.reset();
        return int{HasFailure()};
    };
    const int code = wait_for(start(from_another_machine));
    if (code == 77) GTEST_SKIP() << "no right to a network of its own";
    EXPECT_EQ(code, 0);
}

}  // namespace
