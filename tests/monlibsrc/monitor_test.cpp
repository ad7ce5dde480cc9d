// Monitor files against the bytes that the format prescribes and beside writers in other processes, which are
// killed at random moments or write without pause. tests/tools/mon_test.py is a peer in another language.
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <random>
#include <regex>

#include "iolibsrc/stream_support.h"
#include "scratch_folder.h"
#include "services/observing.h"

#include <kelstdmt/monlib.h>

namespace {

using Owned = std::unique_ptr<monFile>;
using Clock = std::chrono::steady_clock;
using namespace std::string_literals;

Owned create(const std::string &path, const char *title = "Status") {
    return Owned(monFile::Create(path.c_str(), title));
}
Owned open(const std::string &path) {
    return Owned(monFile::Open(path.c_str()));
}
Owned open_read_only(const std::string &path) {
    return Owned(monFile::OpenReadOnly(path.c_str()));
}

std::string bytes_of(int value) {
    auto bits = static_cast<unsigned>(value);
    return {static_cast<char>(bits >> 24), static_cast<char>(bits >> 16), static_cast<char>(bits >> 8),
            static_cast<char>(bits)};
}
std::string counted(const std::string &text) {
    return bytes_of(static_cast<int>(text.size())) + text;
}
std::string head(int type, const std::string &name) {
    return bytes_of(type) + bytes_of(0) + counted(name);
}
std::string header() {
    return bytes_of(0) + counted("Status");
}

class Monitor : public ScratchFolder {
protected:
    ~Monitor() override { EXPECT_EQ(m_reports.take(), ""); }
    // Of the module, without their place in it.
    std::string Reported() {
        return std::regex_replace(m_reports.take(), std::regex(" .monlibsrc/xmonlib."), "");
    }

    internal_errors m_reports;
};

TEST_F(Monitor, RefusesWhatTheFileCannotHold) {
    Owned file = create(path), reader = open_read_only(path);
    monStringParam *text = file->String("msg", 3);
    const std::string before = get();
    EXPECT_FALSE(kel::is_text(text->setValue("four").Str()));
    EXPECT_TRUE(!file->Int(std::string(1024, 'n').c_str()) && !file->String("negative", -1));
    EXPECT_EQ(Reported(),
              "monStringParam::setValue: Value too long; "
              "monFile::WriteParamHead: Name too long; monFile::String: Weird size");
    EXPECT_EQ(get(), before);
    EXPECT_TRUE(file->Int(std::string(1023, 'n').c_str()) && !reader->Int("missing") && !reader->Bool("msg"));
    EXPECT_EQ(failure([&] { reader->String("msg", 0)->setValue("a"); }), "output denied");
    reader->Close();
    EXPECT_EQ(failure([&] { reader->Int("count"); }), "stream not open");
}

TEST_F(Monitor, IsAsBeforeWhenTheDiskIsFull) {
    const Owned file = create(path);
    file->Int("first")->setValue(5);
    const std::string before = get();
    EXPECT_EQ(in_child([&] {
                  ::signal(SIGXFSZ, SIG_IGN);
                  const rlimit little{before.size() + 20, before.size() + 20};
                  ::setrlimit(RLIMIT_FSIZE, &little);
                  EXPECT_NE(failure([&] { file->String("second", 100); }), "");
              }),
              0);
    EXPECT_TRUE(get() == before);
    EXPECT_EQ(file->String("second", 100)->setValue("room again"), xstring("room again"));
}

TEST_F(Monitor, ReportsDamageOnceAndKeepsWhatIsWhole) {
    const std::string good = head(1, "good") + bytes_of(5);
    ASSERT_EQ(::mkfifo((folder + "/fifo").c_str(), 0600), 0);
    for (const std::string &special : {folder + "/fifo", "/dev/zero"s})
        EXPECT_TRUE(!open_read_only(special) && !create(special) && Error_GetLast() == 50) << special;

    put(header() + head(3, "s") + bytes_of(4) + bytes_of(5) + "texty" + good + good);
    Owned file = open(path);
    EXPECT_FALSE(file->Refresh());  // a writer without manners ran over the next record
    monStringParam *text = file->String("s", 4);
    EXPECT_TRUE(text->getValue() == xstrNullStr && file->Values()[0].isnil());
    EXPECT_TRUE(text->setValue("text") == "text" && text->getValue() == "text");
    EXPECT_EQ(::truncate(path.c_str(), 30), 0);
    EXPECT_FALSE(file->Refresh() || file->Refresh());
    EXPECT_TRUE(kel::is_nil(text->getValue().Str()) && file->Values()[0].isnil());
    EXPECT_EQ(Reported(),
              "Weird parameter type; monStringParam::getValue: Weird length; monFile has shrunk!; "
              "monParam::getValue: Value is cut off");
}

// Wherever a writer was killed, readers see the records before, and the next writer goes on there.
TEST_F(Monitor, ARecordThatIsNotAllThereIsNotYet) {
    const std::string whole = header() + head(1, "first") + bytes_of(5);
    const std::string next = head(3, "next") + bytes_of(6) + counted("abc") + std::string(3, '\0');
    for (std::size_t cut = 0; cut < next.size(); ++cut) {
        put(whole + next.substr(0, cut));
        Owned reader = open_read_only(path), writer = open(path);
        EXPECT_TRUE(reader->Refresh() && reader->Parameters().size() == 1);
        writer->String("next", 6)->setValue("abc");
        EXPECT_EQ(get(), whole + next) << "cut at " << cut;
        EXPECT_TRUE(reader->String("next", 0)->getValue() == "abc" && writer->Int("first")->getValue() == 5);
    }
}

Clock::time_point after(long microseconds) {
    return Clock::now() + std::chrono::microseconds(microseconds);
}

struct Child {
    explicit Child(const std::function<void()> &work) : id(start([&] { return work(), 0; })) {}
    ~Child() {
        kill(id, SIGKILL);
        waitpid(id, nullptr, 0);
    }
    pid_t id;
};

// Values that lie across the pages of the file, where a read easily meets half a write.
TEST_F(Monitor, NoValueIsSeenHalfWritten) {
    Owned file = create(path);
    // The slot behind it begins just before a page does, after a head of so many bytes.
    auto pad = [&](const char *name, std::size_t slot, std::size_t bytes) {
        file->String(name, static_cast<int>(slot - bytes - get().size() - head(3, name).size() - 8));
    };
    pad("first", 4094, head(1, "number").size());
    monIntParam *number = file->Int("number");
    pad("second", 2 * 4096 - 250, head(3, "brief").size() + 4);
    monStringParam *brief = file->String("brief", 500), *text = file->String("text", 6000);
    Child writer([&] {
        for (unsigned i = 0;; ++i) {
            number->setValue(static_cast<int>((i & 0xFFFF) * 0x10001));
            brief->setValue(std::string(500, static_cast<char>('a' + i % 26)).c_str());
            text->setValue(std::string(3000 + i % 3000, static_cast<char>('a' + i % 26)).c_str());
            for (auto until = after(10); Clock::now() < until;)
                continue;
        }
    });
    auto torn = [](int seen, const xstring &seen_text) {
        return (seen & 0xFFFF) != (seen >> 16 & 0xFFFF) ||
               kel::view(seen_text).find_first_not_of(seen_text.Str()[0]) != std::string::npos;
    };
    int found = 0;
    for (int i = 0; i < 10000; ++i) {
        std::vector<xany> values = file->Values();
        found += torn(number->getValue(), text->getValue()) + torn(values[1], values[3].getstring()) +
                 torn(0, values[4].getstring());
    }
    EXPECT_EQ(found, 0);
}

// KELSTDMT_KILLS asks for more of them.
TEST_F(Monitor, AKilledWriterLeavesNoTornRecord) {
    // The records grow with their number, from 20 bytes to 60 KB.
    const auto size_of = [](std::size_t number) { return static_cast<int>(number * 7919 % 60000); };
    const auto record = [&](std::size_t number) {
        return head(3, std::to_string(number)) + bytes_of(size_of(number)) +
               std::string(4 + static_cast<std::size_t>(size_of(number)), '\0');
    };
    const char *asked = std::getenv("KELSTDMT_KILLS");
    std::mt19937 random(11);
    for (int kills = asked ? std::atoi(asked) : 30; kills > 0; --kills) {
        if (kills % 5 == 0) std::filesystem::remove(path);  // so that the file stays small
        const Owned reader = create(path);
        reader->Refresh();
        const std::size_t before = reader->Parameters().size();
        std::size_t seen = before;
        {
            Child writer([&] {
                Owned file = open(path);
                for (std::size_t number = before;; ++number)
                    file->String(std::to_string(number).c_str(), size_of(number));
            });
            // Once it has begun, and then at some moment.
            for (auto until = after(30'000'000); seen == before && Clock::now() < until;)
                ASSERT_TRUE(reader->Refresh() && (seen = reader->Parameters().size()) >= before);
            for (auto until = after(random() % 1500); Clock::now() < until;)
                ASSERT_TRUE(reader->Refresh());
        }
        ASSERT_TRUE(reader->Refresh());
        seen = reader->Parameters().size();
        ASSERT_GT(seen, before) << "the writer has not gone on";
        std::string whole = header();
        for (std::size_t number = 0; number < seen; ++number)
            whole += record(number);
        const std::string bytes = get();
        ASSERT_TRUE(bytes.starts_with(whole)) << "the records are not what was written";
        ASSERT_TRUE(record(seen).starts_with(bytes.substr(whole.size())));
    }
}

}  // namespace
