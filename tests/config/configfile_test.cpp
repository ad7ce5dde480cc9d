// Configuration files against a plain map, refusals, and killed and competing processes. What single lines
// mean, fuzz/config_fuzz.cpp holds against a model.
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <map>
#include <random>
#include <utility>
#include <vector>

#include <kelstdmt/configfile.h>

#include "failing_memory.h"
#include "scratch_folder.h"

namespace {

std::string content(const ovkConfigFile &file) {
    std::string all;
    for (const auto &entry : file) {
        const xstring &value = entry.value->value;
        EXPECT_EQ(kel::view(entry.value->name), entry.key);
        all += std::string(entry.key) + (value.IsNull() ? "" : "=" + std::string(kel::view(value))) + ";";
    }
    return all;
}

struct ConfigFile : ScratchFolder {
    bool open(ovkConfigFile &file, ovkConfigFile::OpenMode mode = ovkConfigFile::ReadWrite) const {
        return file.Open(path.c_str(), mode);
    }
};

TEST_F(ConfigFile, RefusesWhatItCannotKeep) {
    ovkConfigFile file;
    EXPECT_FALSE(open(file, ovkConfigFile::ReadOnly));
    EXPECT_EQ(Error_GetLast(), 2);
    EXPECT_FALSE(file.IsOpened() || std::filesystem::exists(path));
    ASSERT_TRUE(open(file));
    for (const char *name : {static_cast<const char *>(nullptr), xstrNullStr}) {
        EXPECT_FALSE(file.SetValue(name, "1") || file.DeleteValue(name));
        EXPECT_TRUE(file.GetValue(name).IsNull());
    }
    EXPECT_FALSE(file.SetValue("a", "1\n2"));
    EXPECT_EQ(Error_GetLast(), 87);
    EXPECT_TRUE(file.SetValue("a", xstrNullStr) && file.SetValue("b", nullptr) && file.SetValue("b", "x"));
    ASSERT_TRUE(open(file, ovkConfigFile::ReadOnly)) << "closes first";
    EXPECT_TRUE(file.GetValue("a").IsNull() && content(file) == "a;b=x;");
    EXPECT_FALSE(file.SetValue("a", "2") || file.DeleteValue("a"));
    EXPECT_EQ(Error_GetLast(), 5);
    EXPECT_TRUE(file.Close() && file.Close());
    EXPECT_EQ(get(), "a:\nb:x\n");
    // What cannot be read is no empty map, which the next change would make of the file.
    ASSERT_EQ(::mkfifo((folder + "/fifo").c_str(), 0600), 0);
    const std::pair<std::string, int> bad[] = {{folder, 5}, {folder + "/fifo", 50}, {"/proc/self/mem", 1117}};
    for (const auto &[name, error] : bad) {
        EXPECT_FALSE(file.Open(name.c_str(), ovkConfigFile::ReadOnly)) << name;
        EXPECT_EQ(Error_GetLast(), error) << name;
        EXPECT_TRUE(file.IsEmpty() && !file.IsOpened());
    }
    ovkConfigFile fresh;  // what was set before is what the file does not say
    EXPECT_TRUE(fresh.SetValue("b", "default") && fresh.SetValue("c", "default"));
    EXPECT_FALSE(fresh.Open((folder + "/none").c_str(), ovkConfigFile::ReadOnly));
    EXPECT_EQ(content(fresh), "b=default;c=default;");
    ASSERT_TRUE(open(fresh));
    EXPECT_EQ(content(fresh), "a;b=x;c=default;");
    EXPECT_TRUE(fresh.Close() && fresh.IsEmpty());
    EXPECT_EQ(get(), "a:\nb:x\n") << "defaults alone are no change";
}

TEST_F(ConfigFile, HoldsManyEntriesLikeAMap) {
    std::mt19937 random(4);
    std::map<std::string, std::string> model{{std::string(3'000'000, 'v'), std::string(3'000'000, 'v')}};
    auto lines = [&] {
        std::string text;
        for (const auto &[name, value] : model)
            text += name + ":" + value + "\n";
        return text;
    };
    const std::string beginnings[] = {"k", "\xC3\xA4", "12345678", std::string(300, 'w'), ""};
    auto any_name = [&] { return beginnings[random() % 5] + std::to_string(random() % 30'000); };
    std::string twice;
    for (int i = 0; i < 100'000; ++i) {
        const std::string name = any_name();
        twice += name + ":earlier\n";
        model[name] = std::to_string(i);
    }
    put(twice + lines());
    ovkConfigFile file;
    ASSERT_TRUE(open(file));
    for (int i = 0; i < 3000; ++i) {
        const std::string name = any_name();
        if (i % 3 == 0) {
            EXPECT_EQ(file.DeleteValue(name.c_str()), model.erase(name) == 1);
        } else {
            EXPECT_TRUE(file.SetValue(name.c_str(), (model[name] = std::to_string(-i)).c_str()));
        }
    }
    ASSERT_TRUE(file.Close());
    EXPECT_TRUE(get() == lines());
}

TEST_F(ConfigFile, LeavesTheFileWhenTheDiskIsFull) {
    const std::string before = "a:" + std::string(5000, '1') + "\n";
    put(before);
    auto outgrow = [&] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{8000, 8000};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        ovkConfigFile file;
        bool right = open(file) && file.SetValue("b", std::string(5000, '2').c_str()) && !file.Close();
        return right && !file.IsOpened() ? Error_GetLast() : 0;
    };
    EXPECT_EQ(wait_for(start(outgrow)), 223);
    EXPECT_TRUE(get() == before);
    EXPECT_EQ(files(), 1);
}

TEST_F(ConfigFile, SurvivesALackOfMemory) {
    const std::string before = "c:3\na:1\nb :2\n";
    put(before);
    const std::string value(200, 'x');
    bool done = false;
    for (long allowed = 0; !done && allowed < 200; ++allowed) {
        ovkConfigFile file;
        failing_memory::allocations_left = allowed;
        bool right = open(file);
        try {
            right = right && file.SetValue("d", value.c_str()) && file.Close();
            EXPECT_TRUE(right || Error_GetLast() == 8) << allowed;
        } catch (const std::bad_alloc &) {  // of SetValue
        }
        done = !std::exchange(failing_memory::has_failed, false);
        failing_memory::allocations_left = -1;
        const std::string now = get();
        EXPECT_TRUE(done || now == before || now.size() > 200) << allowed << now;
        put(before);
    }
    EXPECT_TRUE(done);
}

// Processes ------------------------------------------------------------------------------------

constexpr int generation_entries = 3000;

std::string text_of(int generation) {
    std::map<std::string, std::string> entries;
    for (int i = 0; i < generation_entries; ++i)
        entries["entry" + std::to_string(i)] = std::to_string(generation);
    std::string whole;
    for (const auto &[name, value] : entries)
        whole += name + ":" + value + "\n";
    return whole;
}

bool write_generation(const std::string &path, int number) {
    ovkConfigFile file;
    bool right = file.Open(path.c_str(), ovkConfigFile::ReadWrite);
    for (int i = 0; i < generation_entries; ++i)
        right &= file.SetValue(("entry" + std::to_string(i)).c_str(), std::to_string(number).c_str());
    return file.Close() && right;
}

// KELSTDMT_KILLS=1000 kills as often.
TEST_F(ConfigFile, IsWholeWhenItsWriterIsKilled) {
    using clock = std::chrono::steady_clock;
    const char *wish = std::getenv("KELSTDMT_KILLS");
    const int kills = wish ? std::atoi(wish) : 25;
    const auto begin = clock::now();
    ASSERT_TRUE(write_generation(path, 1));
    std::uniform_int_distribution<clock::rep> life(0, 4 * (clock::now() - begin).count());
    std::mt19937 random(static_cast<unsigned>(::getpid()));
    int last = 1;
    for (int kill = 0; kill < kills; ++kill) {
        pid_t child = start([&] {
            for (int number = last + 1; write_generation(path, number);)
                ++number;
            return 1;
        });
        const auto end = clock::now() + clock::duration(life(random));
        for (bool alive = true; alive;) {
            alive = clock::now() < end;
            if (!alive) {
                ::kill(child, SIGKILL);
                EXPECT_EQ(wait_for(child), -SIGKILL) << "the writer failed";
            }
            const std::string text = get();  // takes no lock
            const int now = std::atoi(text.substr(text.find(':') + 1, 12).c_str());
            ASSERT_TRUE(now >= last && text == text_of(now))
                << "torn, " << text.size() << " bytes, writer alive: " << alive;
            last = now;
        }
    }
    EXPECT_TRUE(write_generation(path, last));
    EXPECT_EQ(files(), 1) << "rests stay";
}

TEST_F(ConfigFile, KeepsWritersApart) {
    constexpr int writers = 4, turns = 40;
    auto count = [&] {
        for (int turn = 0; turn < turns; ++turn) {
            ovkConfigFile file;
            while (!open(file))
                if (Error_GetLast() != 33) return 1;
            const std::string more = std::to_string(file.GetValue("count").ToInt() + 1);
            if (!file.SetValue("count", more.c_str()) || !file.Close()) return 2;
        }
        return 0;
    };
    std::vector<pid_t> children(writers);
    for (pid_t &child : children)
        child = start(count);
    for (pid_t child : children)
        EXPECT_EQ(wait_for(child), 0);
    EXPECT_EQ(get(), "count:" + std::to_string(writers * turns) + "\n");
}

TEST_F(ConfigFile, ReadsWhatIsLeftOfAFileThatShrinks) {
    std::string text;
    for (int i = 0; i < 20'000; ++i)
        text += "name" + std::to_string(i) + ":value\n";
    put(text);
    pid_t child = start([&] {
        while (::truncate(path.c_str(), 100) == 0)
            put(text);
        return 1;
    });
    for (int i = 0; i < 200; ++i) {
        ovkConfigFile file;
        // A file that was cut and written in the middle of a read has a hole there.
        EXPECT_TRUE(open(file, ovkConfigFile::ReadOnly) || Error_GetLast() == 13);
        EXPECT_LE(file.GetSize(), 20'001u);
    }
    ::kill(child, SIGKILL);
    EXPECT_EQ(wait_for(child), -SIGKILL);
}

}  // namespace
