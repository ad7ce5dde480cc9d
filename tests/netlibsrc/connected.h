// Two ends of one connection on this machine, as streams.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>

#include <kelstdmt/kel.h>
#include <kelstdmt/netlib_stream.h>

struct Connected {
    // Options of the listener, which the far end inherits.
    explicit Connected(std::initializer_list<std::array<int, 3>> options = {}) {
        constexpr btkTimeval patience(30, 0);
        btkAcceptSocket listener;
        EXPECT_TRUE(listener.Listen(0, "127.0.0.1")) << Error_GetLast();
        for (const auto &[level, name, value] : options)
            EXPECT_EQ(::setsockopt(listener.GetHandle(), level, name, &value, sizeof value), 0);
        auto client = std::make_unique<btkStreamSocket>(), server = std::make_unique<btkStreamSocket>();
        EXPECT_TRUE(client->Connect("127.0.0.1", listener.GetPort(), patience)) << Error_GetLast();
        EXPECT_EQ(listener.Wait(patience, btkSocket::ForInput), 1);
        EXPECT_TRUE(listener.Accept(*server));
        near.reset(kel::construct<netSocketStream>(std::move(client)));
        far.reset(kel::construct<netSocketStream>(std::move(server)));
    }
    std::unique_ptr<netSocketStream> near, far;
};
