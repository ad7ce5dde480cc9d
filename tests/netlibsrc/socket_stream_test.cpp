// Connections as streams: typed values, out-of-band ints among ordinary data, peers that vanish.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <kelstdmt/netlib_stream.h>

namespace {

struct Connection : testing::Test {
    Connection() {
        btkAcceptSocket listener;
        EXPECT_TRUE(listener.Listen(0));
        auto ours = std::make_unique<btkStreamSocket>(), theirs = std::make_unique<btkStreamSocket>();
        EXPECT_TRUE(ours->Connect("127.0.0.1", listener.GetPort(), btkTimeval(5, 0))) << Error_GetLast();
        EXPECT_EQ(listener.Wait(btkTimeval(5, 0), btkSocket::ForInput), 1);
        EXPECT_TRUE(listener.Accept(*theirs));
        client.reset(kel::construct<netSocketStream>(std::move(ours)));
        server.reset(kel::construct<netSocketStream>(std::move(theirs)));
    }
    std::unique_ptr<netSocketStream> client, server;
};

// What waits for both kinds of input is told of each by its own event, whatever is read when.
TEST_F(Connection, OutOfBandIntsLeaveTheOrdinaryDataWhole) {
    std::unique_ptr<ioEvent> urgent(server->OutOfBandEvent()), input(server->InputEvent());
    EXPECT_EQ(urgent->getType(), 2);
    std::mt19937 random(7);
    unsigned char written = 0, expected = 0;
    for (int round = 0; round < 400; ++round) {
        std::size_t before = random() % 3 ? random() % 20 : random() % 40000, after = random() % 20;
        auto write = [&](std::size_t count) {
            std::string bytes(count, 0);
            for (char &byte : bytes)
                byte = static_cast<char>(written++);
            client->WriteBytes(bytes.data(), static_cast<unsigned>(count));
            client->Flush();
        };
        std::size_t left = before + after;
        auto read = [&](std::size_t count) {
            std::string bytes(count, 0);
            ASSERT_EQ(count == 0 ? 0 : server->ReadBytes(bytes.data(), static_cast<unsigned>(count)), count);
            for (char byte : bytes)
                ASSERT_EQ(static_cast<unsigned char>(byte), expected++) << "round " << round;
            left -= count;
        };
        EXPECT_FALSE(urgent->getIsSignaled());
        write(before);
        const int sent = static_cast<int>(random());
        ASSERT_TRUE(client->WriteOutOfBand(sent));
        if (round % 2) write(after);
        if (round % 5 == 0 && before > 0) read(random() % before + 1);
        if (round % 7 == 0) server->PeekNBytes();
        ASSERT_TRUE(urgent->Wait(5.0));
        EXPECT_EQ(input->getIsSignaled(), left > (round % 2 ? 0 : after)) << "round " << round;
        if (round % 3 == 0) read(round % 2 ? left : left - after);
        ASSERT_EQ(server->ReadOutOfBand(), sent) << "round " << round;
        EXPECT_EQ(server->ReadOutOfBand(), kel::nil_int);
        if (round % 2 == 0) write(after);
        read(left);
        ASSERT_EQ(server->PeekNBytes(), 0u);
    }
}

}  // namespace
