// Records of the client module: their bytes, their limits, what they match, and the processes they belong to.
// What the requests do is in requests_test.cpp.
#include <gtest/gtest.h>
#include <signal.h>

#include <memory>
#include <string>

#include <kelstdmt/kel.h>
#include <kelstdmt/nmsclib.h>
#include <kelstdmt/reglib.h>

#include "scratch_folder.h"

namespace {

using namespace std::string_literals;

struct Names : ScratchFolder {
    Names() {
        ::setenv("KELSTDMT_REGISTRY", folder.c_str(), 1);
        connect();
    }
    // A stream whose record was malformed is of no more use.
    void connect() {
        btkAcceptSocket listener;
        EXPECT_TRUE(listener.Listen(0));
        auto ours = std::make_unique<btkStreamSocket>(), theirs = std::make_unique<btkStreamSocket>();
        EXPECT_TRUE(ours->Connect("127.0.0.1", listener.GetPort(), btkTimeval(5, 0)));
        EXPECT_EQ(listener.Wait(btkTimeval(5, 0), btkSocket::ForInput), 1);
        EXPECT_TRUE(listener.Accept(*theirs));
        m_out.reset(kel::construct<netSocketStream>(std::move(ours)));
        m_in.reset(kel::construct<netSocketStream>(std::move(theirs)));
        out = m_out.get();
        in = m_in.get();
    }
    void say(const std::string &bytes) {
        out->WriteBytes(bytes.data(), static_cast<unsigned>(bytes.size()));
        out->Flush();
    }
    std::string hear(std::size_t count) {
        std::string bytes(count, 0);
        in->ReadBytes(bytes.data(), static_cast<unsigned>(count));
        return bytes;
    }

    netSocketStream *out, *in;

private:
    std::unique_ptr<netSocketStream> m_out, m_in;
};

std::string field(const std::string &name, const std::string &value) {
    std::string bytes;
    for (const std::string &text : {name, value}) {
        kel::append_int(bytes, static_cast<int>(text.size()) + 1);
        kel::append_int(bytes, static_cast<int>(text.size()));
        bytes += text;
    }
    return bytes;
}
std::string record_of(const std::string &fields, int count) {
    std::string bytes;
    kel::append_int(bytes, 0);
    kel::append_int(bytes, count);
    return bytes + fields;
}

TEST_F(Names, ARecordLeavesWhatFollowsItOnTheStream) {
    const std::string wire = "\0\0\x12\x67\0\0\0\1\0\0\0\x0c\0\0\0\x0b_ServerName\0\0\0\4\0\0\0\3abc"s;
    xauto<nmsRecord> sent(0x1267u), received(1u);
    sent.Add("_ServerName", "abc");
    sent.Add("nothing", xstrNullStr);
    EXPECT_TRUE(sent.Send(out));
    PutIndependentInt(out, 1);
    PutIndependentInt(out, -2);
    out->Flush();
    EXPECT_EQ(hear(wire.size() + 8), wire + "\0\0\0\1\xff\xff\xff\xfe"s) << "fields without a value stay out";

    received.Add("old", "1");
    say(wire + "\0\0\0\7"s + "rest");
    EXPECT_TRUE(received.Receive(in, nullptr));
    EXPECT_EQ(GetIndependentInt(in), 7);
    EXPECT_EQ(hear(4), "rest");
    EXPECT_EQ(received.GetAssociatedId(), 0x1267u);
    EXPECT_EQ(received.GetFieldValueByName("_ServerName"), xstring("abc"));
    EXPECT_TRUE(!received.HasField("old") && received.GetFieldValueByName("old").IsNull());
    for (int at = 0; at < 256; ++at)
        sent.Add(std::to_string(at).c_str(), "");
    EXPECT_FALSE(sent.Send(out)) << "257 fields";
    out->Flush();
    EXPECT_EQ(in->PeekNBytes(), 0u) << "bytes of a record that is beyond the limits";
}

TEST_F(Names, TheMachinesRegistryNarrowsTheLimits) {
    ovkRegistryKey key;
    ASSERT_TRUE(key.Create(ovkRegistry::System()->Root(), "Software\\Names"));
    constexpr std::pair<const char *, int> cases[] = {
        {"1", 1},     {" 255x", 255}, {"256", 256},
        {"257", 256}, {"0", 256},     {"-5", 256},
        {"x", 256},   {"", 256},      {"99999999999999999999", 256}};
    for (const auto &[text, limit] : cases) {
        for (const char *name : {"MaxNumFields", "FieldNameMaxLength", "FieldValueMaxLength"})
            key.SetValue(name, text);
        EXPECT_EQ(nmsRecordLimits::GetNumberOfFields("Software\\Names"), limit) << text;
        EXPECT_EQ(nmsRecordLimits::GetFieldNameLength("Software\\Names"), limit) << text;
        EXPECT_EQ(nmsRecordLimits::GetFieldValueLength("Software\\Names"), limit) << text;
    }
    EXPECT_EQ(nmsRecordLimits::GetNumberOfFields("Software\\Nothing"), 256);
    EXPECT_EQ(nmsRecordLimits::GetNumberOfFields(nullptr), 256);

    key.SetValue("MaxNumFields", "2");
    key.SetValue("FieldNameMaxLength", "4");
    key.SetValue("FieldValueMaxLength", "3");
    const std::string good = field("abc", "de");
    const std::pair<std::string, bool> records[] = {{record_of(good, 1), true},
                                                    {record_of(good + field("", ""), 2), true},
                                                    {record_of("", 0), true},
                                                    {record_of(good + good + good, 3), false},
                                                    {record_of(field("abcd", ""), 1), false},
                                                    {record_of(field("abc", "def"), 1), false}};
    for (const auto &[bytes, fits] : records) {
        connect();
        say(bytes);
        xauto<nmsRecord> record(0u);
        EXPECT_EQ(record.Receive(in, "Software\\Names"), fits) << testing::PrintToString(bytes);
        EXPECT_TRUE(fits || record.getFields()->getcount() == 0);
    }
}

TEST_F(Names, ATemplateMatchesByNameAndValue) {
    xauto<nmsRecord> record(0u), wanted(0u);
    record.Add("a", "1");
    record.Add("b", "");
    EXPECT_TRUE(record.Match(&wanted)) << "a template without fields";
    EXPECT_FALSE(record.Match(nullptr));
    const std::tuple<const char *, const char *, bool> cases[] = {
        {"a", "1", true}, {"b", "", true}, {"a", "2", false}, {"A", "1", false}, {"c", "", false}};
    for (const auto &[name, value, matches] : cases) {
        xauto<nmsRecord> one(0u);
        one.Add(name, value);
        EXPECT_EQ(record.Match(&one), matches) << name << " = " << value;
    }
    wanted.Add("a", "1");
    wanted.Add("c", "3");
    EXPECT_FALSE(record.Match(&wanted)) << "one of two fields";
}

TEST_F(Names, ARecordLivesWithItsProcess) {
    const std::unique_ptr<nmsRecord> own(nmsRecord::Create(1)), none(nmsRecord::Create(0));
    EXPECT_EQ(own->GetAssociatedId(), static_cast<unsigned>(::getpid()));
    EXPECT_TRUE(own->IsAssociated() && own->IsAlive());
    EXPECT_FALSE(none->IsAssociated() || none->IsAlive());
    const pid_t child = start([] { return ::pause(); });
    const std::unique_ptr<nmsRecord> theirs(nmsRecord::Create(child));
    EXPECT_TRUE(theirs->IsAlive());
    ::kill(child, SIGKILL);
    siginfo_t told{};
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(child), &told, WEXITED | WNOWAIT), 0);
    EXPECT_FALSE(theirs->IsAlive()) << "it has ended, and nobody has asked for its exit code";
    EXPECT_EQ(wait_for(child), -SIGKILL);
    EXPECT_FALSE(theirs->IsAlive());
}

TEST_F(Names, ClearIsAnInternalErrorThatChangesNothing) {
    static std::string reported;
    btkAbortHandler before = btkSetAbortHandler(
        [](const char *message, const char *source, int) { reported = message + " "s + source; });
    xauto<nmsRecord> record(5u);
    record.Add("a", "1");
    record.Clear();
    btkSetAbortHandler(before);
    EXPECT_EQ(reported, "nmsRecord::Clear not implemented. srcnmscm/recnms");
    EXPECT_TRUE(record.HasField("a") && record.IsAssociated());
    EXPECT_EQ(kel::printed(record).str().find("nmsclib::Record"), 0u) << kel::printed(record).str();
}

}  // namespace
