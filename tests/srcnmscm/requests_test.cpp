// Both clients of a name server, the plain functions and the module, against one that says what it is told
// to: honest answers, and such as tell sizes that they do not send, break off, say nothing or never come to
// an end.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <thread>

#include <kelstdmt/kel.h>
#include <kelstdmt/nmsclib.h>

namespace {

using namespace std::string_literals;
using Fields = std::vector<std::pair<std::string, std::string>>;

constexpr int ping = 1, add = 3, remove = 4, query = 5, shutdown = 6, version = 7;  // as they travel
const Fields found = {{"_ServerName", "abc"}, {"_PortNumber", "40123"}};

std::string ints(std::initializer_list<int> values) {
    std::string bytes;
    for (int value : values)
        kel::append_int(bytes, value);
    return bytes;
}
std::string record_of(const Fields &fields, int process = 0) {
    std::string bytes = ints({process, static_cast<int>(fields.size())});
    for (const auto &[name, value] : fields)
        for (const std::string &text : {name, value})
            bytes += ints({static_cast<int>(text.size()) + 1, static_cast<int>(text.size())}) + text;
    return bytes;
}
Fields many(int count) {
    Fields fields;
    for (int at = 0; at < count; ++at)
        fields.emplace_back(std::string(252, 'n') + std::to_string(1000 + at).substr(1),
                            std::string(255, 'v'));
    return fields;
}

// What a request gives: records, or the error as it is printed.

std::string by_functions(int operation, const Fields &fields, int process, const char *host) {
    nmsServ *server = host ? nmsServConnectByName(host) : nmsServConnectLocal();
    nmsRec *record = nmsRecCreate(process), **records = nullptr;
    for (const auto &[name, value] : fields)
        nmsRecAdd(record, name.c_str(), value.c_str());
    int count = 0;
    nmsErr *error = operation == ping     ? nmsServPing(server)
                    : operation == add    ? nmsServRegister(server, record)
                    : operation == remove ? nmsServRemove(server, record)
                                          : nmsServQuery(server, record, &records, &count);
    std::string all = error ? std::to_string(nmsErrGetCode(error)) + ' ' : "";
    for (int i = 0; i < count; ++i)
        for (const char *name : {"_ServerName", "_PortNumber", "a", ""})
            if (nmsRecHasField(records[i], name))
                all += name + "="s + nmsRecGetFieldValueByName(records[i], name) + ' ';
    testing::internal::CaptureStderr();
    nmsErrPrint(error);
    all += testing::internal::GetCapturedStderr();
    nmsErrDelete(error);
    nmsRecArrayDelete(records, count);
    nmsRecDelete(record);
    nmsServDelete(server);
    return all;
}

std::string by_module(int operation, const Fields &fields, int process, const char *host) {
    const std::unique_ptr<nmsServerProxy> proxy(host ? nmsServerProxy::InitProxy(host)
                                                     : nmsServerProxy::InitLocalProxy());
    xauto<nmsRecord> record(static_cast<unsigned>(process));
    for (const auto &[name, value] : fields)
        record.Add(name.c_str(), value.c_str());
    try {
        if (operation == ping) return proxy->IsAlive() ? "" : "not alive";
        if (operation == add) return proxy->Register(&record), "";
        if (operation == remove) return std::to_string(proxy->Delete(&record));
        if (operation == shutdown) return proxy->Shutdown(), "";
        if (operation == version) return std::string(kel::view(proxy->GetVersion()));
        const std::unique_ptr<nmsRecordArray> records(proxy->Query(&record));
        std::string all;
        for (nmsRecord *each : *records) {
            const std::unique_ptr<nmsRecord> owned(each);
            for (const char *name : {"_ServerName", "_PortNumber", "a", ""})
                if (owned->HasField(name)) all += name + "="s + owned->GetFieldValueByName(name).Str() + ' ';
        }
        return all;
    } catch (xthrowable *thrown) {
        const kel::caught error(thrown);
        auto *external = error.as<kelXExternFunc>();
        return std::string(error.type_name()) + ' ' + external->getFunc()->getName().Str() + ": " +
               std::string(error.description()) + '\n';
    }
}

// The error as both print it; 1 is an origin at the server.
std::string failed(bool module, int operation, int code, int origin, int port) {
    const char *texts[] = {"could not connect to NameServer. (LOCALHOST, port ", "request is not recognized.",
                           "this record(s) already exists.", "could not find matching record.",
                           "not authorized to perform this request."};
    const char *exceptions[] = {"RegisterRecord nmsServerProxy::Register", "Delete nmsServerProxy::Delete",
                                "Query nmsServerProxy::Query", "Shutdown nmsServerProxy::Shutdown",
                                "GetVersion nmsServerProxy::GetVersion"};
    if (module && operation == ping) return "not alive";
    return (module ? "nmsclib::XCant"s + exceptions[operation - add] + ": " : std::to_string(code) + ' ') +
           "ERROR  : " + (origin ? "NameServer on client request: " : "NMS client: ") +
           (code > 6 ? "internal error occured." : texts[code - 2]) +
           (code == 2 ? std::to_string(port) + ")\n" : "\n");
}

struct Server {
    Server() {
        EXPECT_TRUE(listener.Listen(0, "127.0.0.1"));
        ::setenv("ORVNMSPORT", std::to_string(port()).c_str(), 1);
    }
    int port() const { return listener.GetPort(); }
    // What the client sends, up to so many bytes; it is then answered in pieces.
    std::string Serve(std::size_t count, const std::string &answer, std::size_t piece = 9999) {
        btkStreamSocket peer;
        std::string bytes(count, 0);
        std::size_t have = 0;
        EXPECT_EQ(listener.Wait(btkTimeval(60, 0), btkSocket::ForInput), 1);
        EXPECT_TRUE(listener.Accept(peer));
        for (int got = 1; have < count && got > 0; have += static_cast<std::size_t>(std::max(got, 0)))
            got = peer.Recv(bytes.data() + have, static_cast<unsigned>(count - have));
        for (std::size_t at = 0; at < answer.size(); at += piece)
            Say(peer, answer.substr(at, piece));
        return bytes.substr(0, have);
    }
    static bool Say(btkStreamSocket &peer, const std::string &bytes) {
        return peer.Send(bytes.data(), static_cast<unsigned>(bytes.size())) > 0;
    }
    btkAcceptSocket listener;
};

TEST(NameRequests, AnswersAreTakenForWhatTheyAre) {
    struct Case {
        int operation;
        std::string answer, told = "";
        int code = 0, origin = 0;  // of a failure
    };
    std::vector<Case> cases = {
        {ping, "\0"s},
        {add, "\0"s},
        {shutdown, "\0"s},
        {remove, "\0"s + ints({3}), "3"},
        {remove, "\5", "", 5, 1},
        {remove, "\0\0\0"s, "", 2},
        {remove, "\0"s + ints({-1}), "", 2},
        {query, "\0"s + ints({0})},
        {query, "\0"s + ints({2}) + record_of(found) + record_of({{"a", ""}, {"", "b"}}),
         "_ServerName=abc _PortNumber=40123 a= =b "},
        {query, "\0"s + ints({1}) + record_of({{"a", "1"}, {"a", "2"}}) + "more", "a=2 "},
        {query, "\0"s + ints({0x7FFFFFFF}) + record_of(found) + record_of(found), "", 2},
        {query, "\0"s + ints({-1}) + record_of(found), "", 2},
        {version, "\0"s + record_of({{"Version", "1.0"}, {"a", "b"}}), "1.0"},
        {version, "\0"s + record_of({{"version", "1.0"}}),
         "nmsclib::XCantGetVersion nmsServerProxy::GetVersion: ERROR  : Other\n"}};
    for (const int operation : {ping, add, remove, query, shutdown, version}) {
        cases.push_back({operation, "", "", 2});
        for (const int code : {3, 4, 5, 6, 77, 255})
            cases.push_back({operation, static_cast<char>(code) + ints({0}), "", operation == ping ? 2 : code,
                             operation != ping});
    }
    // fuzz/corpus/name_record has all kinds of bad ones.
    for (const auto &bad : {ints({0, 257}), record_of({{"a", "v\0"s}}), record_of(found).substr(0, 30)}) {
        cases.push_back({query, "\0"s + ints({1}) + bad, "", 2});
        cases.push_back({version, "\0"s + bad, "", 2});
    }
    Server server;
    for (const auto &[operation, answer, told, code, origin] : cases)
        for (const bool module : {false, true}) {
            if (!module && operation > query) continue;
            std::string question = ints({100}) + static_cast<char>(operation), asked;
            if (operation >= add && operation <= query) question += record_of({{"_ServerName", "abc"}}, 4711);
            for (const std::size_t piece : {7, 9999}) {
                std::thread serving(
                    [&, bytes = answer] { asked = server.Serve(question.size(), bytes, piece); });
                const std::string saw =
                    (module ? by_module : by_functions)(operation, {{"_ServerName", "abc"}}, 4711, nullptr);
                serving.join();
                EXPECT_EQ(asked, question);
                const std::string expected = module || operation == query ? told : "";
                EXPECT_EQ(saw, code ? failed(module, operation, code, origin, server.port()) : expected)
                    << operation << " with the answer " << testing::PrintToString(answer.substr(0, 60));
            }
        }
}

// What the client finds by itself, and what it tells of a host that nobody serves.
TEST(NameRequests, WhatIsNotSentIsTold) {
    Server server;
    for (const bool module : {false, true}) {
        const auto ask = module ? by_module : by_functions;
        EXPECT_TRUE(
            ask(add, found, 1, "127.0.0.1").ends_with("client: not authorized to perform this request.\n"));
        for (const Fields &fields : {many(257), Fields{{std::string(256, 'n'), "v"}},
                                     Fields{{"n", std::string(256, 'v')}}, many(256)}) {
            const std::size_t whole = fields.size() == 256 ? 5 + record_of(fields).size() : 0;
            std::size_t sent = 0;
            std::thread serving([&] {  // the functions do not even connect for what is no record
                if (module || whole) sent = server.Serve(whole ? whole : 100, "\0"s).size();
            });
            const std::string saw = ask(add, fields, 0, nullptr);
            serving.join();
            EXPECT_EQ(saw, whole ? "" : failed(module, add, 8, 0, 0)) << fields.size();
            EXPECT_TRUE(whole ? sent == whole : sent <= 5) << sent;
        }
        for (const char *value : {"0", "-0x"}) {
            ::setenv("ORVNMSPORT", value, 1);
            testing::internal::CaptureStderr();
            EXPECT_EQ(kel::name_service_port_of_environment(), 1239);
            EXPECT_EQ(testing::internal::GetCapturedStderr(),
                      "ERROR  : value of ORVNMSPORT is invalid, using the port 1239.\n");
        }
        ::setenv("ORVNMSPORT", (" " + std::to_string(server.port()) + "x").c_str(), 1);
        std::thread serving([&] { server.Serve(0, "\0"s + ints({0})); });
        EXPECT_EQ(ask(query, {}, 0, nullptr), "");
        serving.join();
    }
    EXPECT_EQ(by_module(shutdown, {}, 0, "127.0.0.1"), failed(true, shutdown, 6, 0, 0));
    ::setenv("ORVNMSPORT", "1", 1);
    EXPECT_EQ(by_functions(ping, {}, 0, "127.0.0.1"),
              "2 ERROR  : NMS client: could not connect to NameServer. (127.0.0.1, port 1)\n");
    for (nmsServerProxy *(*connect)() : {+[] { return nmsServerProxy::ConnectLocal(); },
                                         +[] { return nmsServerProxy::ConnectByName("::1"); }})
        try {
            ADD_FAILURE() << connect();
        } catch (xthrowable *thrown) {
            const kel::caught error(thrown);
            auto *by_name = error.as<nmsXCantConnectByName>();
            EXPECT_EQ(error.description(),
                      by_name ? "ERROR  : can't connect by name" : "Can't connect locally");
            EXPECT_TRUE(!by_name || by_name->getServerName() == "::1");
        }
}

// Each holds its client up in another way: it says nothing, takes nothing, stops within a record, says a
// little now and then, or tells records without end.
TEST(NameRequests, WhoeverIsHeldUpGivesUp) {
    constexpr double patience = 1;  // seconds
    kel::set_name_service_patience(patience);
    std::string records;
    while (records.size() < 1 << 16)
        records += record_of({});
    struct Way {
        int operation;
        std::string first, again;
        int times, pause;  // milliseconds
    };
    for (const auto &[operation, first, again, times, pause] :
         {Way{query, "", "", 0, 0},
          {add, "", "", 0, 0},
          {query, "\0"s + ints({3, 0}), "", 0, 0},
          {query, "\0"s + ints({1, 0, 250}), record_of({{"x", "v"}}).substr(8), 100, 300},
          {query, "\0"s + ints({0x7FFFFFFF}), records, 640, 0}})
        for (const bool module : {false, true}) {
            Server server;
            const int small = 4096;
            ::setsockopt(server.listener.GetHandle(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
            btkStreamSocket peer;
            std::thread serving([&] {
                EXPECT_EQ(server.listener.Wait(btkTimeval(60, 0), btkSocket::ForInput), 1);
                EXPECT_TRUE(server.listener.Accept(peer));
                Server::Say(peer, first);
                int said = 0;
                while (said < times && Server::Say(peer, again))
                    ++said, std::this_thread::sleep_for(std::chrono::milliseconds(pause));
                EXPECT_TRUE(times == 0 || said < times) << "took all of it";
            });
            const auto begin = std::chrono::steady_clock::now();
            const std::string saw = (module ? by_module : by_functions)(
                operation, operation == add ? many(256) : found, 0, nullptr);
            const std::chrono::duration<double> lasted = std::chrono::steady_clock::now() - begin;
            serving.join();
            EXPECT_TRUE(saw == failed(module, operation, 2, 0, server.port()) ||
                        (operation == add && saw == failed(module, add, 8, 0, 0)))
                << saw;
            EXPECT_TRUE(pause == 0 && times ? true : lasted.count() > patience - 0.1 && lasted.count() < 60)
                << lasted.count();
        }
    kel::set_name_service_patience(30);
}

}  // namespace
