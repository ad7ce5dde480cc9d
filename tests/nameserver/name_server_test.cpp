// A name server inside a program: how it begins and ends, and what it needs of the system. What it answers is
// tested from outside, by tests/tools/kelnmsd_test.py.
#include <gtest/gtest.h>

#include <thread>

#include <kelstdmt/nameserver.h>
#include <kelstdmt/vumrt_names.h>
#include <kelstdmt/vumrt_socket.h>

#include "scratch_folder.h"

namespace {

class Peer {
public:
    explicit Peer(int port, const char *host = "127.0.0.1") {
        m_connected = m_socket.Connect(host, port, btkTimeval(30, 0));
    }
    explicit operator bool() const { return m_connected; }

    void send(kel::name_request request, const kel::name_record *record = nullptr) {
        std::string bytes;
        kel::append_int(bytes, kel::name_service_greeting);
        bytes += static_cast<char>(request);
        if (record) kel::append_record(bytes, *record);
        m_socket.Send(bytes.data(), static_cast<unsigned>(bytes.size()));
    }
    int byte() {
        char byte;
        return m_socket.Recv(&byte, 1) == 1 ? static_cast<unsigned char>(byte) : -1;
    }
    int number() {
        std::string bytes;
        for (int i = 0; i < 4; ++i)
            bytes += static_cast<char>(byte());
        return kel::int_at(bytes.data());
    }

private:
    btkStreamSocket m_socket;
    bool m_connected;
};

int ask(int port, kel::name_request request, const kel::name_record *record = nullptr) {
    Peer peer(port);
    peer.send(request, record);
    return peer.byte();
}
kel::name_record named(const std::string &name) {
    kel::name_record record;
    record.set("_ServerName", name);
    return record;
}
std::unique_ptr<kel::name_server> create(const kel::name_server_options &options) {
    std::string error;
    auto server = kel::name_server::create(options, error);
    EXPECT_EQ(server == nullptr, !error.empty()) << error;
    return server;
}

struct NameServer : ScratchFolder {};

TEST_F(NameServer, RunsOnAThreadOfItsOwnAndGivesItsJournalBack) {
    kel::name_server_options options;
    options.journal = path;
    const kel::name_record one = named("one"), all;
    {
        auto server = create(options);
        ASSERT_TRUE(server && server->start());
        EXPECT_FALSE(server->start()) << "it runs already";
        EXPECT_EQ(ask(server->port(), kel::name_request::add, &one), 0);
        Peer half(server->port());
        half.send(kel::name_request::add);
    }
    auto server = create(options);
    ASSERT_TRUE(server && server->start());
    Peer peer(server->port());
    peer.send(kel::name_request::remove, &all);
    EXPECT_EQ(peer.byte() * 1000 + peer.number(), 1);
}

TEST_F(NameServer, RunsOnItsCallersThreadUntilItIsStoppedOrShutDown) {
    for (const bool by_client : {false, true}) {
        auto server = create({});
        ASSERT_TRUE(server);
        const btkEventHandle handle = Event_Create();
        int last = -1;
        std::thread client([&] {
            const auto record = named("a");
            EXPECT_EQ(ask(server->port(), kel::name_request::add, &record), 0);
            last = by_client ? ask(server->port(), kel::name_request::shutdown) : (Event_Set(handle), 0);
        });
        {
            evtEvent stop(new btkEVENTEvent(handle));
            server->run(by_client ? nullptr : &stop);
        }
        client.join();
        EXPECT_EQ(last, 0);
        EXPECT_FALSE(Peer(server->port())) << "the port is closed when it has ended";
        Event_Free(handle);
    }
}

TEST_F(NameServer, TellsWhyItCannotBeMade) {
    std::string error, log;
    kel::name_server_options options;
    options.addresses = {"127.0.0.1", "127.0.0.2"};
    options.version = std::string(1000, 'v');
    auto server = create(options);
    ASSERT_TRUE(server && server->start());
    EXPECT_TRUE(Peer(server->port()) && Peer(server->port(), "127.0.0.2"));
    EXPECT_EQ(ask(server->port(), kel::name_request::version), 0);
    options.port = server->port();
    EXPECT_EQ(kel::name_server::create(options, error), nullptr);
    EXPECT_EQ(error.rfind("cannot listen on 127.0.0.1 port " + std::to_string(options.port) + ": ", 0), 0u)
        << error;
    kel::name_server_options other;
    other.journal = folder + "/none/journal";
    EXPECT_EQ(kel::name_server::create(other, error), nullptr);
    EXPECT_NE(error.find(other.journal), error.npos) << error;
    put("kelstdmt names 1\nnothing that was ever written here");
    other.journal = path;
    other.log = [&](const std::string &line) { log += line; };
    EXPECT_NE(kel::name_server::create(other, error), nullptr);
    EXPECT_NE(log.find("damaged at byte 17"), log.npos) << log;
}

}  // namespace
