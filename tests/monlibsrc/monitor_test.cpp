// Monitor files against the bytes that the format prescribes and beside writers in other processes, which are
// killed at random moments or write without pause. tests/tools/mon_test.py is a peer in another language.
#include <fcntl.h>
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
    Owned file = create(path);
    monStringParam *text = file->String("msg", 3);
    const std::string before = get();
    EXPECT_FALSE(kel::is_text(text->setValue("four").Str()));
    EXPECT_TRUE(!file->Int(std::string(1024, 'n').c_str()) && !file->String("negative", -1));
    EXPECT_EQ(Reported(),
              "monStringParam::setValue: Value too long; "
              "monFile::WriteParamHead: Name too long; monFile::String: Weird size");
    EXPECT_EQ(file->Int(xstrNullStr), nullptr);
    EXPECT_EQ(get(), before);
    EXPECT_NE(file->Int(std::string(1023, 'n').c_str()), nullptr);

    Owned reader = open_read_only(path);
    EXPECT_TRUE(!reader->Int("missing") && !reader->Bool("msg"));
    EXPECT_EQ(kel::printed(*reader->String("msg", 0)).str(),
              "monlib::StringParam\n {\n  Name: \"msg\";\n  Value: \"\";\n  Size: 3;\n }");
    EXPECT_EQ(failure([&] { reader->String("msg", 0)->setValue("a"); }), "output denied");
    reader->Close();
    EXPECT_EQ(failure([&] { reader->Int("count"); }), "stream not open");
    EXPECT_TRUE(!open(folder + "/none") && !create(folder));
}

// A record that does not fit on the disk leaves nothing behind, and its place is used when there is room.
TEST_F(Monitor, KeepsNoPartOfARecordOnAFullDisk) {
    Owned file = create(path);
    const std::string before = get();
    struct rlimit old {
    }, tight{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
    tight = {before.size() + 50, old.rlim_max};
    signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tight), 0);
    std::string refused = failure([&] { file->String("text", 100); });
    refused += failure([&] { file->String("sparse", 100000); });
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &old), 0);
    EXPECT_EQ(refused, "I/O errorI/O error");
    EXPECT_EQ(get(), before);
    file->Int("count")->setValue(5);
    EXPECT_EQ(open(path)->Int("count")->getValue(), 5);
}

TEST_F(Monitor, ReportsDamageOnceAndKeepsWhatIsWhole) {
    const std::string good = head(1, "good") + bytes_of(5), after = head(1, "after") + bytes_of(6);
    const std::string zeros(40, '\0'), type = "Weird parameter type",
                                       length = "monFile::UpdateCache: Weird length";
    for (const auto &[record, report] : {std::pair(bytes_of(4) + zeros, type),
                                         {head(3, "s") + bytes_of(INT_MAX - 3), length},
                                         {zeros, length}}) {
        put(header() + good + record + after);
        Owned file = open_read_only(path);
        EXPECT_FALSE(file->Refresh() || file->Refresh());
        EXPECT_EQ(file->Parameters().size(), record == zeros ? 2U : 1U);
        EXPECT_EQ(file->Int("good")->getValue(), 5);
        EXPECT_EQ(Reported(), report);
    }
    put("");
    EXPECT_TRUE(!open(path) && Error_GetLast() == 13);
    ASSERT_EQ(::mkfifo((folder + "/fifo").c_str(), 0600), 0);
    for (const std::string &special : {folder + "/fifo", "/dev/zero"s})
        EXPECT_TRUE(!open_read_only(special) && !create(special) && Error_GetLast() == 50) << special;

    put(header() + head(3, "s") + bytes_of(4) + bytes_of(5) + "texty" + good + good);
    Owned file = open(path);
    EXPECT_FALSE(file->Refresh());  // a writer without manners ran over the next record
    monStringParam *text = file->String("s", 4);
    EXPECT_TRUE(text->getValue() == xstrNullStr && file->Values()[0].isnil());
    text->setValue("text");
    EXPECT_TRUE(text->getValue() == "text" && file->Values()[0] == "text");
    EXPECT_EQ(::truncate(path.c_str(), 30), 0);
    EXPECT_FALSE(file->Refresh() || file->Refresh());
    EXPECT_TRUE(kel::is_nil(text->getValue().Str()) && file->Values()[0].isnil());
    EXPECT_EQ(Reported(), type +
                              "; monStringParam::getValue: Weird length; monFile has shrunk!; "
                              "monParam::getValue: Value is cut off");
}

// Wherever a writer was killed, readers see the records before, and the next writer goes on there. The same
// for what Create finds in an old file, be it of any kind.
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
    Owned again = create(path);
    EXPECT_EQ(get(), whole + next);
    EXPECT_EQ(again->Int("first")->getValue(), 5);
    put(std::string(100, 'x'));
    again = create(path, "Other!");
    EXPECT_EQ(get().substr(14), std::string(86, 'x'));
    again->Int("mine")->setValue(3);
    EXPECT_EQ(open_read_only(path)->Int("mine")->getValue(), 3);
}

// A slot of 2 GiB takes no memory and no disk, and what follows it lies beyond what an int counts.
TEST_F(Monitor, GoesBeyondTwoGigabytes) {
    Owned writer = create(path), reader = open(path);
    monStringParam *text = writer->String("vast", INT_MAX - 4);
    monIntParam *count = writer->Int("count");
    text->setValue(std::string(100000, 't').c_str());
    count->setValue(9);
    struct stat node {};
    ASSERT_EQ(::stat(path.c_str(), &node), 0);
    EXPECT_TRUE(node.st_size > INT_MAX && node.st_blocks < 4096) << node.st_size << ", " << node.st_blocks;
    EXPECT_EQ(reader->Int("count")->getValue(), 9);
    EXPECT_EQ(text_of(reader->String("vast", 0)->getValue()), std::string(100000, 't'));
    EXPECT_TRUE(reader->Values()[0] == text->getValue() && reader->Values()[1] == 9);
}

// Another process ----------------------------------------------------------------------------------

Clock::time_point after(long microseconds) {
    return Clock::now() + std::chrono::microseconds(microseconds);
}

struct Child {
    explicit Child(const std::function<void()> &work) : id(fork()) {
        if (id == 0) {
            work();
            _exit(0);
        }
    }
    ~Child() {
        kill(id, SIGKILL);
        waitpid(id, nullptr, 0);
    }
    pid_t id;
};

// Values that lie across the pages of the file, where a read easily meets half a write.
TEST_F(Monitor, NoValueIsSeenHalfWritten) {
    Owned file = create(path);
    // The next slot, behind a head of so many bytes, begins just before a page does.
    auto before_page = [&](std::size_t page, std::size_t ahead, std::size_t bytes) {
        const std::string pad = "pad" + std::to_string(page);
        bytes += get().size() + head(3, pad).size() + 8;
        file->String(pad.c_str(), static_cast<int>(page * 4096 - ahead - bytes));
    };
    before_page(1, 2, head(1, "number").size());
    monIntParam *number = file->Int("number");
    before_page(2, 250, head(3, "brief").size() + 4);
    monStringParam *brief = file->String("brief", 500), *text = file->String("text", 6000);
    Child writer([&] {
        for (unsigned i = 0;; ++i) {
            number->setValue(static_cast<int>((i & 0xFFFF) * 0x10001));
            brief->setValue(std::string(500, static_cast<char>('a' + i % 26)).c_str());
            text->setValue(std::string(3000 + i % 3000, static_cast<char>('a' + i % 26)).c_str());
            for (auto until = after(10); Clock::now() < until;) {
            }
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

// The parameter of a number, in records from 17 bytes to 60 KB.
struct Numbered {
    explicit Numbered(std::size_t number)
        : name(std::to_string(number) + std::string(number * 37 % 200, 'n')),
          size(static_cast<int>(number * 7919 % 60000)) {}
    std::string Bytes() const {
        return head(3, name) + bytes_of(size) + std::string(4 + static_cast<std::size_t>(size), '\0');
    }
    std::string name;
    int size;
};

// KELSTDMT_KILLS asks for more of them.
TEST_F(Monitor, AKilledWriterLeavesNoTornRecord) {
    const char *asked = std::getenv("KELSTDMT_KILLS");
    std::mt19937 random(11);
    Owned reader;
    std::size_t seen = 301;
    auto check = [&] {
        ASSERT_TRUE(reader->Refresh());
        for (const std::size_t now = reader->Parameters().size(); seen < now; ++seen) {
            const Numbered expected(seen);
            monStringParam *parameter = reader->String(expected.name.c_str(), 0);
            ASSERT_EQ(parameter, reader->Parameters()[seen]);
            ASSERT_EQ(parameter->getSize(), expected.size);
        }
    };
    for (int kills = asked ? std::atoi(asked) : 30; kills > 0; --kills) {
        if (seen > 300) {  // begin anew, so that the file stays small
            ::unlink(path.c_str());
            create(path);
            reader = open_read_only(path);
            seen = 0;
        }
        const std::size_t before = seen;
        {
            Child writer([&] {
                Owned file = open(path);
                file->Refresh();
                for (std::size_t number = file->Parameters().size();; ++number)
                    file->String(Numbered(number).name.c_str(), Numbered(number).size);
            });
            // Once it has begun, and then at some moment.
            for (auto until = after(30'000'000); seen == before && Clock::now() < until;)
                ASSERT_NO_FATAL_FAILURE(check());
            for (auto until = after(random() % 1500); Clock::now() < until;)
                ASSERT_NO_FATAL_FAILURE(check());
        }
        ASSERT_NO_FATAL_FAILURE(check());
        ASSERT_GT(seen, before) << "the writer has not gone on";
        std::string whole = header();
        for (std::size_t number = 0; number < seen; ++number)
            whole += Numbered(number).Bytes();
        const std::string bytes = get(), tail = bytes.substr(std::min(bytes.size(), whole.size()));
        ASSERT_TRUE(bytes.starts_with(whole)) << "the records are not what was written";
        ASSERT_TRUE(Numbered(seen).Bytes().starts_with(tail));
    }
}

}  // namespace
