// Sockets: the ways to a listener and past it, and peers that vanish.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include <kelstdmt/syslib.h>
#include <kelstdmt/vumrt_socket.h>

#include "timing.h"

namespace {

constexpr btkTimeval five(5, 0), no_limit(std::int64_t{1} << 30, 0);

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

TEST(Socket, PeersOfBothFamiliesAreNamedPlainly) {
    const xstring own = sysGetCurHostName();
    for (const auto &[host, address, peer] :
         {std::tuple<const char *, const char *, std::string>{"127.0.0.2", "0.0.0.0", "127.0.0.1"},
          {"::ffff:127.0.0.1", nullptr, "127.0.0.1"},
          {"LocalHost", "::1", "::1"},
          {own, nullptr, "127.0.0.1"}}) {
        if (peer == "::1" && !has_ipv6()) continue;
        pair made(host, address);
        EXPECT_EQ(made.server.GetPeerAddrStr(), peer) << host;
        EXPECT_TRUE(made.server.IsPeerOnTheSameMachine() && made.client.IsPeerOnTheSameMachine());
        for (const int socket : {made.client.GetHandle(), made.server.GetHandle()})
            EXPECT_TRUE(::fcntl(socket, F_GETFL) == O_RDWR && ::fcntl(socket, F_GETFD) == FD_CLOEXEC);
    }
}

TEST(Socket, WhatFailsSaysWhy) {
    btkAcceptSocket listener, second;
    btkStreamSocket socket, accepted;
    ASSERT_TRUE(listener.Listen(0));
    const int port = listener.GetPort();
    auto fails = [](bool result, int error) { return !result && Error_GetLast() == error; };
    EXPECT_TRUE(fails(second.Listen(port), 10048)) << Error_GetLast();
    EXPECT_TRUE(fails(second.Listen(0, "192.0.2.1"), 1214)) << Error_GetLast();
    EXPECT_TRUE(fails(second.Listen(65536), 87) && fails(socket.Connect("", port, five), 87));
    EXPECT_TRUE(fails(socket.Connect("no-such-host.invalid", port, five), 11001)) << Error_GetLast();
    EXPECT_TRUE(fails(listener.Accept(socket), 997));
    listener.Close();
    EXPECT_TRUE(fails(socket.Connect("127.0.0.1", port, five), 1225)) << Error_GetLast();
    EXPECT_TRUE(fails(listener.Accept(socket), 6));
    EXPECT_TRUE(second.Listen(port)) << "a listener left it a moment ago";
    // Out of descriptors: the connection waits until there is one again.
    ASSERT_TRUE(socket.Connect("127.0.0.1", port, five));
    rlimit before;
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{static_cast<rlim_t>(socket.GetHandle()) + 1, before.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_TRUE(fails(second.Accept(accepted), 4));
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_TRUE(second.Accept(accepted));
}

TEST(Socket, TheTimeOutHoldsAndDeafAddressesArePassedBy) {
    // A listener whose queue is full swallows everything.
    btkAcceptSocket deaf, listener;
    ASSERT_TRUE(deaf.Listen(0, "127.0.0.1") && ::listen(deaf.GetHandle(), 0) == 0);
    btkStreamSocket queue[8], socket;
    for (btkStreamSocket &one : queue)
        if (!one.Connect("127.0.0.1", deaf.GetPort(), btkTimeval(0, 50000))) break;
    const double spent = seconds([&] {
        EXPECT_FALSE(socket.Connect("127.0.0.1", deaf.GetPort(), btkTimeval(0, 300000)));
        EXPECT_EQ(Error_GetLast(), 1460);
    });
    EXPECT_TRUE(spent >= 0.3 && spent < 20) << spent;
    if (has_ipv6()) {
        ASSERT_TRUE(listener.Listen(deaf.GetPort(), "::1"));
        EXPECT_TRUE(socket.Connect("localhost", deaf.GetPort(), no_limit)) << "the second address answers";
    }
    // Once there is room, a caller that is still trying gets through.
    std::thread late(
        [&] { EXPECT_TRUE(socket.Connect("127.0.0.1", deaf.GetPort(), no_limit)) << Error_GetLast(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    btkStreamSocket accepted;
    while (deaf.Wait(btkTimeval(0, 100000), btkSocket::ForInput) == 1)
        EXPECT_TRUE(deaf.Accept(accepted));
    late.join();
}

// A peer that sends one message after the other, and leaves no mark where it was.
TEST(Socket, AMarkThatMovesOnIsNotFollowedForEver) {
    pair made;
    constexpr std::size_t most = std::size_t{200} << 20;
    std::atomic<std::size_t> sent = 0;
    std::thread flood([&] {
        const std::string bytes(60000, 'x');
        for (ssize_t some = 0; some >= 0 && sent < most; sent += static_cast<std::size_t>(some))
            some = ::send(made.client.GetHandle(), bytes.data(), bytes.size(), MSG_OOB | MSG_NOSIGNAL);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    char message[4];
    made.server.RecvOutOfBand(message, sizeof message);
    EXPECT_LT(sent, most / 2) << "taken in by one call";
    made.server.Close();
    flood.join();
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
            return int{buffer.GetStreamBuf()->sputn("some", 4) == 4 && buffer.GetStreamBuf()->pubsync() == 0};
        }};
    for (write way : ways) {
        pair made;
        made.reset_by_client();
        char byte;
        EXPECT_EQ(made.server.Wait(five, btkSocket::ForInput), 1);
        EXPECT_TRUE(made.server.Recv(&byte, 1) == -1 && Error_GetLast() == 64) << Error_GetLast();
        EXPECT_TRUE(way(made.server) == 0 && Error_GetLast() == 109) << Error_GetLast();
    }
    // What was sent last arrives, although something that was sent to us was never read.
    pair other;
    EXPECT_EQ(other.client.Send(std::string(100, 'x').data(), 100), 100);
    EXPECT_EQ(other.server.Wait(five, btkSocket::ForInput), 1);
    EXPECT_EQ(other.server.Send("bye", 3), 3);
    other.server.Close();
    char answer[8];
    EXPECT_TRUE(other.client.Recv(answer, 8) == 3 && other.client.Recv(answer, 8) == 0);
}

}  // namespace
