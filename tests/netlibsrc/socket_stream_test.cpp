// Connections as streams: typed values, out-of-band ints among ordinary data, peers that vanish.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <kelstdmt/netlib_stream.h>

namespace {

struct Connection : testing::Test {
    Connection() { connect({}); }
    // Options of the listener that its connections inherit.
    void connect(std::initializer_list<std::array<int, 3>> options) {
        btkAcceptSocket listener;
        EXPECT_TRUE(listener.Listen(0));
        for (const auto &[level, name, value] : options)
            EXPECT_EQ(::setsockopt(listener.GetHandle(), level, name, &value, sizeof value), 0);
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

int out_of_band(int round) {
    return static_cast<int>(0x9E3779B9u * static_cast<unsigned>(round));
}

// A receiver with so little room that the segments are cut anywhere, also inside a message, and who reads
// whatever his events tell him of. Each message is answered before the next is sent.
TEST_F(Connection, OutOfBandIntsAreWholeWhereverTheyAreCut) {
    connect({{SOL_SOCKET, SO_RCVBUF, 2048}, {IPPROTO_TCP, TCP_MAXSEG, 200}});
    constexpr int rounds = 3000;
    std::thread sender([&] {
        std::mt19937 random(1);
        unsigned char next = 0;
        for (int round = 0; round < rounds; ++round) {
            for (unsigned part = 0; part < 2; ++part) {
                // Often the message lies across the end of a segment.
                constexpr std::size_t segment = 188;
                const std::size_t whole = segment * (random() % 20 + 1) - random() % 4, any = random() % 4000;
                std::string bytes(part == 1 ? random() % 3 / 2 * 30 : random() % 4 ? whole : any, 0);
                for (char &byte : bytes)
                    byte = static_cast<char>(next++);
                client->WriteBytes(bytes.data(), static_cast<unsigned>(bytes.size()));
                client->Flush();
                EXPECT_TRUE(part == 1 || client->WriteOutOfBand(out_of_band(round)));
            }
            EXPECT_EQ(client->ReadInt(), round);
        }
        client->Close();
    });
    std::unique_ptr<evtEvent> urgent(server->OutOfBandEvent()), input(server->InputEvent());
    std::mt19937 random(2);
    unsigned char next = 0;
    btkEventSet set;
    set.Add(urgent.get());
    set.Add(input.get());
    for (int round = 0;;) {
        btkEvent *told[2];
        const int count = set.Wait(btkTimeval(20, 0), told, 2);
        ASSERT_GT(count, 0) << "round " << round;
        if (std::find(told, told + count, urgent.get()) != told + count && random() % 2) {
            const int got = server->ReadOutOfBand();
            if (round == rounds) break;
            ASSERT_EQ(got, out_of_band(round));
            server->WriteInt(round++);
            server->Flush();
            set.Touch(input.get());
        } else if (input->getIsSignaled()) {
            char bytes[64];
            unsigned wanted =
                std::min<unsigned>(server->PeekNBytes(), static_cast<unsigned>(random() % 64) + 1);
            if (wanted == 0 && round == rounds) break;
            ASSERT_GT(wanted, 0u) << "round " << round << ": told of input where there is none";
            ASSERT_EQ(server->ReadBytes(bytes, wanted), wanted);
            for (unsigned at = 0; at < wanted; ++at)
                ASSERT_EQ(static_cast<unsigned char>(bytes[at]), next++) << "round " << round;
            set.Touch(urgent.get());
        }
    }
    sender.join();
}

}  // namespace
