// Connections as streams: typed values, out-of-band ints among ordinary data, peers that vanish.
#include <netinet/in.h>
#include <netinet/tcp.h>

#include <algorithm>
#include <random>
#include <thread>

#include "netlibsrc/connected.h"

namespace {

int out_of_band(int round) {
    return static_cast<int>(0x9E3779B9u * static_cast<unsigned>(round));
}

// A receiver with so little room that segments end anywhere, and who reads whatever his events tell him of.
TEST(Connection, OutOfBandIntsAreWholeWhereverTheyAreCut) {
    const Connected ends({{SOL_SOCKET, SO_RCVBUF, 2048}, {IPPROTO_TCP, TCP_MAXSEG, 200}});
    netSocketStream *const client = ends.near.get(), *const server = ends.far.get();
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
    std::unique_ptr<ioEvent> urgent(server->OutOfBandEvent()), input(server->InputEvent());
    EXPECT_EQ(urgent->getType(), 2);
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
            EXPECT_EQ(server->ReadOutOfBand(), kel::nil_int);
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
