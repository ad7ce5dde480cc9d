// Servers by name: a name server in this process, and registrations that fail and race. What a name server
// answers is tested from outside, by tests/tools/kelnmsd_test.py.
#include <gtest/gtest.h>

#include <thread>

#include <kelstdmt/kel.h>
#include <kelstdmt/nameserver.h>
#include <kelstdmt/netlib_server.h>

namespace {

// The text of the netXException that it throws.
std::string thrown(const std::function<void()> &action) {
    try {
        action();
    } catch (xthrowable *exception) {
        return kel::caught(exception).as<netXException>()->getMsg().Str();
    }
    return "nothing";
}
std::string of_creation(const char *name) {
    return thrown([=] { std::unique_ptr<netServer>(netServer::Create(name, 0)); });
}
std::string of_connection(netAddress *address) {
    return thrown([=] { std::unique_ptr<netSocketStream>(netBaseServer::Connect(address, 20)); });
}

TEST(ServerNames, AreTakenOnceAndFoundUntilTheServerGoes) {
    std::string error;
    auto names = kel::name_server::create({}, error);
    ASSERT_TRUE(names && names->start() && !names->start()) << error;
    ::setenv("ORVNMSPORT", std::to_string(names->port()).c_str(), 1);
    std::unique_ptr<netServer> server(netServer::Create("One", 0));
    ASSERT_TRUE(server);
    EXPECT_EQ(of_creation("One"), "Already registered with Name Server");
    EXPECT_EQ(of_creation(std::string(300, 'n').c_str()), "Can't register with Name Server");
    const std::unique_ptr<netAddress> found(netAddress::Create("One", nullptr)),
        other(netAddress::Create("Two", "localhost"));
    EXPECT_EQ(of_connection(found.get()), "nothing");
    EXPECT_EQ(found->getPortN(), server->getPortN());
    EXPECT_EQ(of_connection(other.get()), "Server is not registered");
    server.reset();
    found->setPortN(0);
    EXPECT_EQ(of_connection(found.get()), "Server is not registered");

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
    names.reset();
    EXPECT_EQ(of_connection(other.get()), "Name Server is not found");
    EXPECT_EQ(of_creation("Three"), "Can't register: Name Server not found");
}

}  // namespace
