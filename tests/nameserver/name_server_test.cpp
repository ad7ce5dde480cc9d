// A name server inside a program: how it begins and ends, and what it needs of the system. What it answers is
// tested from outside, by tests/tools/kelnmsd_test.py.

#include <thread>

#include <kelstdmt/kel.h>
#include <kelstdmt/nameserver.h>
#include <kelstdmt/nmsclib.h>

#include "scratch_folder.h"

namespace {

std::unique_ptr<nmsServerProxy> client() {
    return std::unique_ptr<nmsServerProxy>(nmsServerProxy::InitLocalProxy());
}
bool connects(btkStreamSocket &socket, int port, const char *host = "127.0.0.1") {
    return socket.Connect(host, port, btkTimeval(30, 0));
}

struct NameServer : ScratchFolder {
    // One that is the client's.
    std::unique_ptr<kel::name_server> Create(const kel::name_server_options &options) {
        auto server = kel::name_server::create(options, error);
        EXPECT_EQ(server == nullptr, !error.empty()) << error;
        if (server) ::setenv("ORVNMSPORT", std::to_string(server->port()).c_str(), 1);
        return server;
    }
    std::string error;
    btkStreamSocket socket;
};

TEST_F(NameServer, RunsOnAThreadOfItsOwnAndGivesItsJournalBack) {
    kel::name_server_options options;
    options.journal = path;
    xauto<nmsRecord> one(0u), all(0u);
    one.Add("_ServerName", "one");
    {
        auto server = Create(options);
        ASSERT_TRUE(server && server->start());
        EXPECT_FALSE(server->start()) << "it runs already";
        client()->Register(&one);
        EXPECT_TRUE(connects(socket, server->port()) && socket.Send("\0\0", 2) == 2) << "half a request";
    }
    auto server = Create(options);
    ASSERT_TRUE(server && server->start());
    EXPECT_EQ(client()->Delete(&all), 1);
}

TEST_F(NameServer, RunsOnItsCallersThreadUntilItIsStoppedOrShutDown) {
    for (const bool by_client : {false, true}) {
        auto server = Create({});
        ASSERT_TRUE(server);
        const btkEventHandle handle = Event_Create();
        std::thread asking([&] {
            EXPECT_TRUE(client()->IsAlive());
            by_client ? client()->Shutdown() : Event_Set(handle);
        });
        {
            evtEvent stop(new btkEVENTEvent(handle));
            server->run(by_client ? nullptr : &stop);
        }
        asking.join();
        EXPECT_FALSE(connects(socket, server->port())) << "the port is closed when it has ended";
        Event_Free(handle);
    }
}

TEST_F(NameServer, TellsWhyItCannotBeMade) {
    std::string log;
    kel::name_server_options options, other;
    options.addresses = {"127.0.0.1", "127.0.0.2"};
    options.version = std::string(1000, 'v');
    auto server = Create(options);
    ASSERT_TRUE(server && server->start());
    EXPECT_TRUE(connects(socket, server->port()) && connects(socket, server->port(), "127.0.0.2"));
    EXPECT_EQ(client()->GetVersion(), xstring(std::string(255, 'v').c_str()));
    options.port = server->port();
    EXPECT_EQ(Create(options), nullptr);
    EXPECT_TRUE(error.starts_with("cannot listen on 127.0.0.1 port " + std::to_string(options.port) + ": "))
        << error;
    other.journal = folder + "/none/journal";
    EXPECT_EQ(Create(other), nullptr);
    EXPECT_NE(error.find(other.journal), error.npos) << error;
    error.clear();
    put("kelstdmt names 1\nnothing that was ever written here");
    other.journal = path;
    other.log = [&](const std::string &line) { log += line; };
    EXPECT_NE(Create(other), nullptr);
    EXPECT_NE(log.find("damaged at byte 17"), log.npos) << log;
}

}  // namespace
