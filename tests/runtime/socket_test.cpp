// Sockets: the ways to a listener and past it, peers that vanish and writes that are gathered.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include <kelstdmt/syslib.h>
#include <kelstdmt/vumrt_socket.h>

#include "timing.h"

namespace {

constexpr btkTimeval five(5, 0), no_limit(std::int64_t{1} << 30, 0), at_once;

struct pair {
    explicit pair(const char *host = "127.0.0.1", const char *address = nullptr) {
        EXPECT_TRUE(listener.Listen(0, address)) << Error_GetLast();
        EXPECT_TRUE(client.Connect(host, listener.GetPort(), no_limit)) << host << ": " << Error_GetLast();
        EXPECT_EQ(listener.Wait(no_limit, btkSocket::ForInput), 1);
        EXPECT_TRUE(listener.Accept(server));
    }
    void reset_by_client() {
        const linger hard{1, 0};
        ::setsockopt(client.GetHandle(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
        client.Close();
    }
    btkAcceptSocket listener;
    btkStreamSocket client, server;
};

bool has_ipv6() {
    btkAcceptSocket listener;
    return listener.Listen(0, "::1");
}

int option(int socket, int level, int name) {
    int value = -1;
    socklen_t size = sizeof value;
    ::getsockopt(socket, level, name, &value, &size);
    return value;
}

TEST(Socket, PeersOfBothFamiliesAreNamedPlainly) {
    const xstring own = sysGetCurHostName();
    const std::tuple<const char *, const char *, std::string> ways[] = {
        {"127.0.0.2", "0.0.0.0", "127.0.0.1"},      {"::1", nullptr, "::1"},
        {"::ffff:127.0.0.1", nullptr, "127.0.0.1"}, {"localhost", "::1", "::1"},
        {"LocalHost", "127.0.0.1", "127.0.0.1"},    {own, nullptr, "127.0.0.1"}};
    for (const auto &[host, address, peer] : ways) {
        if (peer == "::1" && !has_ipv6()) continue;
        pair made(host, address);
        EXPECT_EQ(made.server.GetPeerAddrStr(), peer) << host;
        EXPECT_TRUE(made.server.IsPeerOnTheSameMachine() && made.client.IsPeerOnTheSameMachine());
        for (const int socket : {made.client.GetHandle(), made.server.GetHandle()}) {
            EXPECT_EQ(option(socket, IPPROTO_TCP, TCP_NODELAY), 1);
            EXPECT_EQ(::fcntl(socket, F_GETFL) & O_NONBLOCK, 0);
            EXPECT_EQ(::fcntl(socket, F_GETFD), FD_CLOEXEC);
        }
        made.client.Close();
        EXPECT_STREQ(made.client.GetPeerAddrStr(), "");
        EXPECT_FALSE(made.client.IsPeerOnTheSameMachine());
    }
}

TEST(Socket, WhatFailsSaysWhy) {
    btkAcceptSocket listener, second;
    btkStreamSocket socket;
    ASSERT_TRUE(listener.Listen(0));
    const int port = listener.GetPort();
    auto fails = [](bool result, int error) { return !result && Error_GetLast() == error; };
    EXPECT_TRUE(fails(second.Listen(port), 10048)) << Error_GetLast();
    EXPECT_TRUE(fails(second.Listen(0, "192.0.2.1"), 1214)) << Error_GetLast();
    for (int wrong : {-1, 65536})
        EXPECT_TRUE(fails(second.Listen(wrong), 87) &&
                    fails(socket.Connect("127.0.0.1", wrong, at_once), 87));
    EXPECT_TRUE(fails(second.Listen(0, "localhost"), 87)) << "a name is no address";
    for (const char *wrong : {static_cast<const char *>(nullptr), xstrNullStr, ""})
        EXPECT_TRUE(fails(socket.Connect(wrong, port, at_once), 87));
    EXPECT_TRUE(fails(socket.Connect("no-such-host.invalid", port, five), 11001)) << Error_GetLast();
    EXPECT_TRUE(fails(listener.Accept(socket), 997));
    EXPECT_EQ(listener.Wait(btkTimeval(0, 10000), btkSocket::ForInput), -1);
    listener.Close();
    EXPECT_EQ(listener.GetPort(), 0);
    EXPECT_TRUE(fails(socket.Connect("127.0.0.1", port, five), 1225)) << Error_GetLast();
    EXPECT_TRUE(fails(listener.Wait(five, btkSocket::ForInput), 6) && fails(listener.Accept(socket), 6));
    EXPECT_TRUE(second.Listen(port)) << "a listener left it a moment ago";
    // Out of descriptors: the connection waits until there is one again.
    ASSERT_TRUE(socket.Connect("127.0.0.1", port, five));
    rlimit before, none;
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    none = {static_cast<rlim_t>(socket.GetHandle()) + 1, before.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
    btkStreamSocket accepted;
    EXPECT_TRUE(fails(second.Accept(accepted), 4));
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_TRUE(second.Accept(accepted));
}

TEST(Socket, TheTimeOutHoldsAndDeafAddressesArePassedBy) {
    // A listener whose queue is full swallows everything.
    btkAcceptSocket deaf;
    ASSERT_TRUE(deaf.Listen(0, "127.0.0.1") && ::listen(deaf.GetHandle(), 0) == 0);
    const int port = deaf.GetPort();
    btkStreamSocket queue[8];
    for (btkStreamSocket &one : queue)
        if (!one.Connect("127.0.0.1", port, btkTimeval(0, 50000))) break;
    btkStreamSocket socket;
    const double spent = seconds([&] {
        EXPECT_FALSE(socket.Connect("127.0.0.1", port, btkTimeval(0, 300000)) || Error_GetLast() != 1460);
    });
    EXPECT_TRUE(spent >= 0.3 && spent < 20) << spent;
    if (!has_ipv6()) GTEST_SKIP() << "one address only";
    btkAcceptSocket listener;
    ASSERT_TRUE(listener.Listen(port, "::1"));
    EXPECT_TRUE(socket.Connect("localhost", port, no_limit)) << "the second address answers";
    EXPECT_STREQ(socket.GetPeerAddrStr(), "::1");
}

// Every way to write meets a peer that is gone; SIGPIPE would end this program.
TEST(Socket, AVanishedPeerIsAFailure) {
    ::signal(SIGPIPE, SIG_DFL);
    using write = int (*)(btkStreamSocket &);
    const write ways[] = {
        [](btkStreamSocket &socket) { return socket.Send("some", 4); },
        [](btkStreamSocket &socket) { return std::max(0, socket.SendNow("some", 4)); },
        [](btkStreamSocket &socket) { return socket.SendOutOfBand("some", 4); },
        [](btkStreamSocket &socket) {
            xsocketbuf buffer(socket);
            std::streambuf &out = *buffer.GetStreamBuf();
            return int{out.sputn("some", 4) == 4 && out.pubsync() == 0};
        },
    };
    for (write way : ways) {
        pair made;
        made.reset_by_client();
        char byte;
        EXPECT_EQ(made.server.Wait(five, btkSocket::ForInput), 1);
        EXPECT_TRUE(made.server.Recv(&byte, 1) == -1 && Error_GetLast() == 64) << Error_GetLast();
        EXPECT_TRUE(way(made.server) == 0 && Error_GetLast() == 109) << Error_GetLast();
        EXPECT_EQ(made.server.RecvOutOfBand(&byte, 1), 0);
    }
    // One that goes while we wait for room.
    pair made;
    std::thread goes([&] {
        char some[1000];
        made.client.Recv(some, sizeof some);
        made.reset_by_client();
    });
    std::string much(std::size_t{64} << 20, 'x');
    EXPECT_LT(made.server.Send(much.data(), 64u << 20), 64 << 20);
    goes.join();
    // What was sent last arrives, although something that was sent to us was never read.
    pair other;
    EXPECT_EQ(other.client.Send(much.data(), 100), 100);
    EXPECT_EQ(other.server.Wait(five, btkSocket::ForInput), 1);
    EXPECT_EQ(other.server.Send("bye", 3), 3);
    other.server.Close();
    char answer[8];
    EXPECT_EQ(other.client.Recv(answer, sizeof answer), 3);
    EXPECT_EQ(other.client.Recv(answer, sizeof answer), 0);
}

TEST(Socket, SmallWritesAreGathered) {
    pair made;
    xsocketbuf buffer(made.client);
    std::streambuf &out = *buffer.GetStreamBuf();
    const auto segments = [&] {
        tcp_info info{};
        socklen_t size = sizeof info;
        EXPECT_EQ(::getsockopt(made.client.GetHandle(), IPPROTO_TCP, TCP_INFO, &info, &size), 0);
        return info.tcpi_data_segs_out;
    };
    const auto before = segments();
    for (int i = 0; i < 5000; ++i)
        EXPECT_EQ(out.sputn("four", 4), 4);
    EXPECT_EQ(segments(), before) << "nothing goes before the flush";
    EXPECT_EQ(out.pubsync(), 0);
    EXPECT_LE(segments(), before + 2);
    // What waits goes with what is too large to wait.
    std::string large(70000, 'x');
    out.sputn("head", 4);
    out.sputn(large.data(), static_cast<std::streamsize>(large.size()));
    std::string all(20000 + 4 + large.size(), 0);
    xsocketbuf in(made.server);
    EXPECT_EQ(in.GetStreamBuf()->sgetn(all.data(), static_cast<std::streamsize>(all.size())),
              static_cast<std::streamsize>(all.size()));
    EXPECT_TRUE(all.substr(20000) == "head" + large);
}

}  // namespace
