// The proxy of a name server beside a real one, and what it throws when there is none or it refuses.
#include <gtest/gtest.h>

#include <sstream>

#include <kelstdmt/kelstdmt.h>
#include <kelstdmt/nameserver.h>

namespace {

// "XCantQuery: DESCRIPTION in nmsServerProxy::Query", which it throws, or "nothing".
template <class Action>
std::string thrown(Action action) {
    try {
        action();
    } catch (xthrowable *flight) {
        const kel::caught held(flight);
        auto *external = kelXExternFunc::cast(flight);
        return std::string(kel::view(flight->gettypename())).substr(9) + ": " +
               std::string(kel::view(external->getDescription())) + " in " +
               std::string(kel::view(external->getFunc()->getName()));
    }
    return "nothing";
}

struct Proxy : testing::Test {
    Proxy() {
        std::string error;
        server = kel::name_server::create({}, error);
        EXPECT_TRUE(server && server->start()) << error;
        ::setenv("ORVNMSPORT", std::to_string(server->port()).c_str(), 1);
        proxy.reset(nmsServerProxy::ConnectLocal());
    }
    static std::unique_ptr<nmsRecord> record(const char *name, const char *value, int process = 0) {
        std::unique_ptr<nmsRecord> made(nmsRecord::Create(process));
        made->Add(name, value);
        return made;
    }
    // The values of a field of all that match.
    std::string found(nmsRecord *wanted, const char *field) {
        const std::unique_ptr<nmsRecordArray> records(proxy->Query(wanted));
        std::string values;
        for (nmsRecord *each : *records) {
            values += std::string(kel::view(each->GetFieldValueByName(field))) + " ";
            delete each;
        }
        return values;
    }
    std::unique_ptr<kel::name_server> server;
    std::unique_ptr<nmsServerProxy> proxy;
};

TEST_F(Proxy, RegistersFindsAndDeletes) {
    const auto one = record("kind", "x"), two = record("kind", "x", 1), all = record("kind", "x"),
               none = record("k", "y");
    one->Add("name", "one");
    two->Add("name", "two");
    proxy->Register(one.get());
    proxy->Register(two.get());
    EXPECT_EQ(found(all.get(), "name"), "one two ");
    EXPECT_EQ(found(none.get(), "name"), "");
    EXPECT_EQ(proxy->Delete(one.get()), 1);
    EXPECT_EQ(found(all.get(), "name"), "two ");
    EXPECT_EQ(proxy->Delete(all.get()), 1);
    EXPECT_EQ(kel::view(proxy->GetVersion()), "kelstdmt name server");
    std::ostringstream host;
    host << *proxy;
    EXPECT_EQ(host.str(), kel::view(sysGetCurHostName()));
    const std::unique_ptr<nmsServerProxy> again(nmsServerProxy::ConnectByName("127.0.0.1"));
    EXPECT_TRUE(again->IsAlive() && again->GetHost() == xstring("127.0.0.1"));
    proxy->Shutdown();
    server->stop();
    EXPECT_FALSE(proxy->IsAlive());
}

TEST_F(Proxy, ThrowsWhatWentWrong) {
    const auto one = record("_ServerName", "one"), none = record("k", "y"), own = record("k", "y", 1);
    const std::unique_ptr<nmsServerProxy> far(nmsServerProxy::InitProxy("127.0.0.1"));
    const std::string client = ": ERROR  : NMS client: ",
                      by_server = ": ERROR  : NameServer on client request: ",
                      place = ", port " + std::to_string(server->port()) + ")";
    proxy->Register(one.get());
    EXPECT_EQ(
        thrown([&] { proxy->Register(one.get()); }),
        "XCantRegisterRecord" + by_server + "this record(s) already exists. in nmsServerProxy::Register");
    EXPECT_EQ(thrown([&] { proxy->Delete(none.get()); }),
              "XCantDelete" + by_server + "could not find matching record. in nmsServerProxy::Delete");
    EXPECT_EQ(thrown([&] { proxy->Query(nullptr); }),
              "XCantQuery" + client + "internal error occured. in nmsServerProxy::Query");
    EXPECT_EQ(thrown([&] { far->Register(own.get()); }),
              "XCantRegisterRecord" + client +
                  "not authorized to perform this request. in nmsServerProxy::Register");
    testing::internal::CaptureStderr();
    EXPECT_EQ(
        thrown([&] { far->Shutdown(); }),
        "XCantShutdown" + client + "not authorized to perform this request. in nmsServerProxy::Shutdown");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ERROR  : NMS client: cannot shutdown nonlocal NameService.\n");

    server.reset();
    EXPECT_EQ(thrown([&] { nmsServerProxy::ConnectLocal(); }),
              "XCantConnectLocal: Can't connect locally in nmsServerProxy::ConnectLocal");
    EXPECT_EQ(thrown([&] { nmsServerProxy::ConnectByName("127.0.0.1"); }),
              "XCantConnectByName: ERROR  : can't connect by name in nmsServerProxy::ConnectByName");
    EXPECT_EQ(thrown([&] { proxy->GetVersion(); }), "XCantGetVersion" + client +
                                                        "could not connect to NameServer. (LOCALHOST" +
                                                        place + " in nmsServerProxy::GetVersion");
    std::ostringstream told;
    told << *std::unique_ptr<nmsClientStatus>(far->Ping());
    EXPECT_EQ(told.str(), "ERROR  : NMS client: could not connect to NameServer. (127.0.0.1" + place + "\n");
}

}  // namespace
