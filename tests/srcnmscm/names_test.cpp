// The name service. Its plain functions stand against a name server that says what it is told to: honest
// answers, and such as tell sizes that they do not send, break off, say nothing or never come to an end. Of
// the module there are the records; its requests are tested through kel, by tests/tools/network_test.py and
// tests/interop.
#include <signal.h>

#include <thread>

#include <kelstdmt/nmsclib.h>
#include <kelstdmt/reglib.h>

#include "netlibsrc/connected.h"
#include "scratch_folder.h"
#include "timing.h"

namespace {

using namespace std::string_literals;
using Fields = std::vector<std::pair<std::string, std::string>>;

constexpr int ping = 1, add = 3, remove = 4, query = 5;  // as they travel
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

// What a request gives: records, or the error's code and who has found it.
std::string ask(int operation, const Fields &fields, int process = 0, const char *host = nullptr) {
    nmsServ *server = host ? nmsServConnectByName(host) : nmsServConnectLocal();
    nmsRec *record = nmsRecCreate(process), **records = nullptr;
    for (const auto &[name, value] : fields)
        nmsRecAdd(record, name.c_str(), value.c_str());
    int count = 0;
    nmsErr *error = operation == ping     ? nmsServPing(server)
                    : operation == add    ? nmsServRegister(server, record)
                    : operation == remove ? nmsServRemove(server, record)
                                          : nmsServQuery(server, record, &records, &count);
    testing::internal::CaptureStderr();
    nmsErrPrint(error);
    const std::string printed = testing::internal::GetCapturedStderr();
    // ERROR  : WHO: WHAT
    std::string all =
        error ? std::to_string(nmsErrGetCode(error)) + printed.substr(8, printed.rfind(':') - 8) : "";
    for (int i = 0; i < count; ++i)
        for (const char *name : {"_ServerName", "_PortNumber", "a", ""})
            if (nmsRecHasField(records[i], name))
                all += name + "="s + nmsRecGetFieldValueByName(records[i], name) + ' ';
    nmsErrDelete(error);
    nmsRecArrayDelete(records, count);
    nmsRecDelete(record);
    nmsServDelete(server);
    return all;
}
const std::string by_client = " NMS client", by_server = " NameServer on client request";

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
    };
    const std::string broken = "2" + by_client;
    std::vector<Case> cases = {
        {ping, "\0"s},
        {add, "\0"s},
        {remove, "\0"s + ints({3})},
        {remove, "\0\0\0"s, broken},
        {remove, "\0"s + ints({-1}), broken},
        {query, "\0"s + ints({0})},
        {query, "\0"s + ints({2}) + record_of(found) + record_of({{"a", ""}, {"", "b"}}),
         "_ServerName=abc _PortNumber=40123 a= =b "},
        {query, "\0"s + ints({1}) + record_of({{"a", "1"}, {"a", "2"}}) + "more", "a=2 "},
        {query, "\0"s + ints({0x7FFFFFFF}) + record_of(found) + record_of(found), broken},
        {query, "\0"s + ints({-1}) + record_of(found), broken}};
    for (const int operation : {ping, add, remove, query}) {
        cases.push_back({operation, "", broken});
        for (const int code : {3, 4, 5, 6, 77, 255})
            cases.push_back({operation, static_cast<char>(code) + ints({0}),
                             operation == ping ? broken : std::to_string(code) + by_server});
    }
    // fuzz/corpus/name_record has all kinds of bad ones.
    for (const auto &bad : {ints({0, 257}), record_of({{"a", "v\0"s}}), record_of(found).substr(0, 30)})
        cases.push_back({query, "\0"s + ints({1}) + bad, broken});
    Server server;
    for (const auto &[operation, answer, told] : cases) {
        std::string question = ints({100}) + static_cast<char>(operation), asked;
        if (operation != ping) question += record_of({{"_ServerName", "abc"}}, 4711);
        for (const std::size_t piece : {7, 9999}) {
            std::thread serving([&, bytes = answer] { asked = server.Serve(question.size(), bytes, piece); });
            const std::string saw = ask(operation, {{"_ServerName", "abc"}}, 4711);
            serving.join();
            EXPECT_EQ(asked, question);
            EXPECT_EQ(saw, told) << operation << " with the answer "
                                 << testing::PrintToString(answer.substr(0, 60));
        }
    }
}

// What the client finds by itself: it does not even connect for what is no record.
TEST(NameRequests, RecordsArePrinted) {
    nmsRec *record = nmsRecCreate(0);
    nmsRecAdd(record, "a", "1");
    nmsRecAdd(record, "b", "");
    testing::internal::CaptureStderr();
    nmsRecPrint(nullptr);
    nmsRecPrint(record);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "a = 1\nb = \n");
    nmsRecDelete(record);
}

TEST(NameRequests, WhatIsNotSentIsTold) {
    Server server;
    EXPECT_EQ(ask(add, found, 1, "127.0.0.1"), "6" + by_client);
    for (const Fields &fields :
         {many(257), Fields{{std::string(256, 'n'), "v"}}, Fields{{"n", std::string(256, 'v')}}})
        EXPECT_EQ(ask(add, fields), "8" + by_client) << fields.size();
    std::string asked;
    const std::size_t whole = 5 + record_of(many(256)).size();
    std::thread serving([&] { asked = server.Serve(whole, "\0"s); });
    EXPECT_EQ(ask(add, many(256)), "");
    serving.join();
    EXPECT_EQ(asked.size(), whole);
    for (const auto &[value, port] : {std::pair{"0", 1239}, {"-0x", 1239}, {" 1x", 1}}) {
        ::setenv("ORVNMSPORT", value, 1);
        EXPECT_EQ(kel::name_service_port_of_environment(), port);
    }
    EXPECT_EQ(ask(ping, {}, 0, "127.0.0.1"), "2" + by_client);
}

// Each holds its client up in another way: it says nothing, takes nothing, stops within a record, says a
// little now and then, or tells records without end.
TEST(NameRequests, WhoeverIsHeldUpGivesUp) {
    constexpr double patience = 1;  // seconds
    kel::set_name_service_patience(patience);
    std::string records;
    while (records.size() < 1 << 16)
        records += record_of({});
    const Fields longest = many(256);
    for (const auto &[operation, first, again, times, pause] :
         {std::tuple{query, ""s, ""s, 0, 0},
          {add, "", "", 0, 0},
          {query, "\0"s + ints({3, 0}), "", 0, 0},
          {query, "\0"s + ints({1, 0, 250}), record_of({{"x", "v"}}).substr(8), 100, 300},
          {query, "\0"s + ints({0x7FFFFFFF}), records, 640, 0}}) {
        Server server;
        const int small = 4096;
        ::setsockopt(server.listener.GetHandle(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
        btkStreamSocket peer;
        std::thread serving([&, greeting = first, piece = again, most = times, rest = pause] {
            EXPECT_EQ(server.listener.Wait(btkTimeval(60, 0), btkSocket::ForInput), 1);
            EXPECT_TRUE(server.listener.Accept(peer));
            Server::Say(peer, greeting);
            int said = 0;
            while (said < most && Server::Say(peer, piece))
                ++said, std::this_thread::sleep_for(std::chrono::milliseconds(rest));
            EXPECT_TRUE(most == 0 || said < most) << "took all of it";
        });
        std::string saw;
        const Fields &fields = operation == add ? longest : found;
        const double lasted = seconds([&, what = operation] { saw = ask(what, fields); });
        serving.join();
        EXPECT_TRUE(saw == "2" + by_client || (operation == add && saw == "8" + by_client)) << saw;
        EXPECT_TRUE((pause == 0 && times) || (lasted > patience - 0.1 && lasted < 60)) << lasted;
    }
}

// Records of the module ---------------------------------------------------------------------------

struct Records : ScratchFolder {
    Records() { ::setenv("KELSTDMT_REGISTRY", folder.c_str(), 1); }
    void Say(const std::string &bytes) {
        out->WriteBytes(bytes.data(), static_cast<unsigned>(bytes.size()));
        out->Flush();
    }
    Connected ends;
    netSocketStream *out = ends.near.get(), *in = ends.far.get();
};

TEST_F(Records, LeaveWhatFollowsThemOnTheStream) {
    const std::string wire = record_of({{"_ServerName", "abc"}}, 0x1267) + ints({7});
    xauto<nmsRecord> sent(0x1267u), received(1u);
    sent.Add("_ServerName", "abc");
    sent.Add("nothing", xstrNullStr);
    EXPECT_TRUE(sent.Send(out));
    PutIndependentInt(out, 7);
    out->Flush();
    std::string bytes(wire.size(), 0);
    in->ReadBytes(bytes.data(), static_cast<unsigned>(bytes.size()));
    EXPECT_EQ(bytes, wire) << "fields without a value stay out";
    received.Add("old", "1");
    Say(wire);
    EXPECT_TRUE(received.Receive(in, nullptr) && GetIndependentInt(in) == 7 && !received.HasField("old"));
    EXPECT_EQ(received.GetAssociatedId(), 0x1267u);
    EXPECT_EQ(received.GetFieldValueByName("_ServerName"), xstring("abc"));
}

// More than the system takes at once.
TEST_F(Records, OfTheLargestSizeArrive) {
    xauto<nmsRecord> sent(0u), received(0u);
    for (const auto &[name, value] : many(256))
        sent.Add(name.c_str(), value.c_str());
    std::thread sender([&] { EXPECT_TRUE(sent.Send(out) && !out->Flush()); });
    EXPECT_TRUE(received.Receive(in, nullptr));
    sender.join();
    EXPECT_TRUE(received.Match(&sent) && sent.Match(&received));
}

TEST_F(Records, AreLimitedByTheMachinesRegistry) {
    ovkRegistryKey key;
    ASSERT_TRUE(key.Create(ovkRegistry::System()->Root(), "Software\\Names"));
    for (const auto &[text, limit] : {std::pair{" 255x", 255}, {"257", 256}, {"0", 256}, {"3", 3}}) {
        key.SetValue("FieldNameMaxLength", text);
        EXPECT_EQ(nmsRecordLimits::GetFieldNameLength("Software\\Names"), limit) << text;
    }
    EXPECT_EQ(nmsRecordLimits::GetNumberOfFields("Software\\Names"), 256);
    Say(record_of({{"abc", ""}}));
    xauto<nmsRecord> record(0u);
    EXPECT_FALSE(record.Receive(in, "Software\\Names"));
}

TEST_F(Records, MatchTemplatesByNameAndValue) {
    xauto<nmsRecord> record(0u), nothing(0u), some(0u);
    record.Add("a", "1");
    record.Add("b", "");
    some.Add("b", "");
    EXPECT_TRUE(record.Match(&nothing) && record.Match(&some));
    some.Add("A", "1");
    EXPECT_FALSE(record.Match(&some));
}

TEST_F(Records, LiveWithTheirProcess) {
    const std::unique_ptr<nmsRecord> own(nmsRecord::Create(1)), none(nmsRecord::Create(0));
    EXPECT_EQ(own->GetAssociatedId(), static_cast<unsigned>(::getpid()));
    EXPECT_TRUE(own->IsAssociated() && own->IsAlive() && !none->IsAssociated() && !none->IsAlive());
    const pid_t child = start([] { return ::pause(); });
    const std::unique_ptr<nmsRecord> theirs(nmsRecord::Create(child));
    EXPECT_TRUE(theirs->IsAlive());
    ::kill(child, SIGKILL);
    siginfo_t told{};
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(child), &told, WEXITED | WNOWAIT), 0);
    EXPECT_FALSE(theirs->IsAlive()) << "it has ended, and nobody has asked for its exit code";
    EXPECT_EQ(wait_for(child), -SIGKILL);
}

}  // namespace
