// Records of the client module: their bytes, their limits, what they match, and the processes they belong to.
// What the requests do is in requests_test.cpp.
#include <signal.h>

#include <kelstdmt/nmsclib.h>
#include <kelstdmt/reglib.h>

#include "netlibsrc/connected.h"
#include "scratch_folder.h"
#include "services/observing.h"

namespace {

using namespace std::string_literals;

struct Names : ScratchFolder {
    Names() { ::setenv("KELSTDMT_REGISTRY", folder.c_str(), 1); }
    // A stream whose record was malformed is of no more use.
    void connect() {
        ends = std::make_unique<Connected>();
        out = ends->near.get(), in = ends->far.get();
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

    std::unique_ptr<Connected> ends;
    netSocketStream *out, *in;
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
TEST_F(Names, ARecordLeavesWhatFollowsItOnTheStream) {
    const std::string wire = "\0\0\x12\x67\0\0\0\1\0\0\0\x0c\0\0\0\x0b_ServerName\0\0\0\4\0\0\0\3abc"s;
    xauto<nmsRecord> sent(0x1267u), received(1u);
    connect();
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
    for (const auto &[text, limit] :
         {std::pair{" 255x", 255}, {"257", 256}, {"0", 256}, {"x", 256}, {"", 256}}) {
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
    const std::tuple<char, std::string, bool> records[] = {{2, good + field("", ""), true},
                                                           {3, good + good + good, false},
                                                           {1, field("abcd", ""), false},
                                                           {1, field("abc", "def"), false}};
    for (const auto &[count, fields, fits] : records) {
        connect();
        say("\0\0\0\0\0\0\0"s + count + fields);
        xauto<nmsRecord> record(0u);
        EXPECT_EQ(record.Receive(in, "Software\\Names"), fits) << testing::PrintToString(fields);
        EXPECT_TRUE(fits || record.getFields()->getcount() == 0);
    }
}

TEST_F(Names, ATemplateMatchesByNameAndValue) {
    xauto<nmsRecord> record(0u), wanted(0u);
    record.Add("a", "1");
    record.Add("b", "");
    EXPECT_FALSE(record.Match(nullptr));
    std::string matching;
    for (const auto &[name, value] : {std::pair{"A", "1"}, {"a", "2"}, {"c", ""}, {"a", "1"}, {"b", ""}}) {
        xauto<nmsRecord> one(0u);
        one.Add(name, value);
        matching += record.Match(&wanted) ? "all " : "none ";
        if (record.Match(&one)) matching += name + "="s + value + ' ';
        wanted.Add(name, value);
    }
    EXPECT_EQ(matching, "all none none none a=1 none b= ") << "only a template without fields matches all";
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
    internal_errors reports;
    xauto<nmsRecord> record(5u);
    record.Add("a", "1");
    record.Clear();
    EXPECT_EQ(reports.take(), "nmsRecord::Clear not implemented. (srcnmscm/recnms)");
    EXPECT_TRUE(record.HasField("a") && record.IsAssociated());
    EXPECT_EQ(kel::printed(record).str().find("nmsclib::Record"), 0u) << kel::printed(record).str();
}

}  // namespace
