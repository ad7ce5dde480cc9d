// Servers by name: a name server in this process, registrations that fail and race.
#include <sys/socket.h>

#include <atomic>
#include <thread>
#include <vector>

#include <kelstdmt/kel.h>
#include <kelstdmt/nameserver.h>
#include <kelstdmt/netlib_server.h>

#include "scratch_folder.h"

namespace {

using Address = std::unique_ptr<netAddress>;

// The code and the text of the netXException that it throws.
std::string thrown(const std::function<void()> &action) {
    try {
        action();
    } catch (xthrowable *exception) {
        kel::caught error(exception);
        auto *net = error.as<netXException>();
        return net ? std::to_string(net->getError()) + " " + std::string(kel::view(net->getMsg()))
                   : "another";
    }
    return "nothing";
}
std::string of_creation(const char *name) {
    return thrown([=] { std::unique_ptr<netServer>(netServer::Create(name, 0)); });
}
std::string of_connection(netAddress *address) {
    return thrown([=] { std::unique_ptr<netSocketStream>(netBaseServer::Connect(address, 20)); });
}
// Listening sockets, which no other part of this process makes or closes beside the test.
long listening() {
    long count = 0;
    for (int fd = 0; fd < 1024; ++fd) {
        int listens = 0;
        socklen_t size = sizeof listens;
        count += ::getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) == 0 && listens;
    }
    return count;
}

TEST(ServerNames, AreTakenOnceAndFoundUntilTheServerGoes) {
    std::string error;
    auto names = kel::name_server::create({}, error);
    ASSERT_TRUE(names && names->start()) << error;
    ::setenv("ORVNMSPORT", std::to_string(names->port()).c_str(), 1);
    const long before = listening();
    std::unique_ptr<netServer> server(netServer::Create("One", 0));
    ASSERT_TRUE(server);
    EXPECT_EQ(of_creation("One"), "0 Already registered with Name Server");
    EXPECT_EQ(of_creation(std::string(300, 'n').c_str()), "0 Can't register with Name Server");
    EXPECT_EQ(listening(), before + 1) << "a server that fails leaves no socket";

    const Address found(netAddress::Create("One", nullptr)), other(netAddress::Create("Two", "localhost"));
    EXPECT_EQ(of_connection(found.get()), "nothing");
    EXPECT_EQ(found->getPortN(), server->getPortN());
    EXPECT_EQ(of_connection(other.get()), "0 Server is not registered");
    EXPECT_EQ(other->getPortN(), 0);
    EXPECT_EQ(of_connection(nullptr), "1 Address is nil!");
    server.reset();
    found->setPortN(0);
    EXPECT_EQ(of_connection(found.get()), "0 Server is not registered");

    // A faster one between asking and registering leaves one with the name.
    std::atomic<int> made = 0;
    std::vector<std::thread> racing;
    std::vector<std::unique_ptr<netServer>> winners(8);
    for (auto &winner : winners)
        racing.emplace_back(
            [&] { made += thrown([&] { winner.reset(netServer::Create("Raced", 0)); }) == "nothing"; });
    for (std::thread &one : racing)
        one.join();
    EXPECT_EQ(made, 1);
    winners.clear();

    server.reset(netServer::Create("Last", 0));
    found->setPortN(server->getPortN());
    names.reset();
    EXPECT_EQ(of_connection(found.get()), "nothing") << "a known port needs no name server";
    EXPECT_EQ(of_connection(other.get()), "0 Name Server is not found");
    EXPECT_EQ(of_creation("Three"), "0 Can't register: Name Server not found");
    server.reset();
    EXPECT_EQ(listening(), before - 1);
}

}  // namespace
