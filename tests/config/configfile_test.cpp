// Configuration files: refusals, killed and competing processes. What lines mean and what becomes of changes,
// fuzz/config_fuzz.cpp holds against a map.
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <map>
#include <random>
#include <vector>

#include <kelstdmt/configfile.h>

#include "scratch_folder.h"

namespace {

struct ConfigFile : ScratchFolder {
    bool open(ovkConfigFile &file, ovkConfigFile::OpenMode mode = ovkConfigFile::ReadWrite) const {
        return file.Open(path.c_str(), mode);
    }
};

TEST_F(ConfigFile, RefusesWhatItCannotKeep) {
    ovkConfigFile file;
    EXPECT_TRUE(!open(file, ovkConfigFile::ReadOnly) && Error_GetLast() == 2);
    EXPECT_FALSE(file.IsOpened() || std::filesystem::exists(path));
    ASSERT_TRUE(open(file));
    for (const char *name : {static_cast<const char *>(nullptr), xstrNullStr})
        EXPECT_FALSE(file.SetValue(name, "1") || file.DeleteValue(name) || !file.GetValue(name).IsNull());
    EXPECT_TRUE(!file.SetValue("a", "1\n2") && Error_GetLast() == 87);
    EXPECT_TRUE(file.SetValue("a", xstrNullStr) && file.SetValue("b", nullptr) && file.SetValue("b", "x"));
    ASSERT_TRUE(open(file, ovkConfigFile::ReadOnly)) << "closes first";
    EXPECT_TRUE(file.GetValue("a").IsNull() && !file.SetValue("a", "2") && Error_GetLast() == 5);
    EXPECT_TRUE(file.Close() && file.Close());
    EXPECT_EQ(get(), "a:\nb:x\n");
    // What cannot be read is no empty map, which the next change would make of the file.
    ASSERT_EQ(::mkfifo((folder + "/fifo").c_str(), 0600), 0);
    const std::pair<std::string, int> bad[] = {{folder, 5}, {folder + "/fifo", 50}, {"/proc/self/mem", 1117}};
    for (const auto &[name, error] : bad)
        EXPECT_TRUE(!file.Open(name.c_str(), ovkConfigFile::ReadOnly) && Error_GetLast() == error) << name;
    ovkConfigFile fresh;  // what was set before is what the file does not say
    EXPECT_TRUE(fresh.SetValue("b", "default") && fresh.SetValue("c", "default") && open(fresh));
    EXPECT_TRUE(fresh.GetValue("b") == "x" && fresh.GetValue("c") == "default");
    EXPECT_TRUE(fresh.Close() && fresh.IsEmpty());
    EXPECT_EQ(get(), "a:\nb:x\n") << "defaults alone are no change";
}

// Names that are equal for long, in any order, some of them again: in order afterwards, and the last line
// counts.
TEST_F(ConfigFile, KeepsThousandsOfLines) {
    std::mt19937 random(8);
    std::map<std::string, std::string> model;
    std::string lines;
    for (int i = 0; i < 5000; ++i) {
        const std::string name = std::string(random() % 3 * 8, 'n') + std::to_string(random() % 4000);
        model[name] = std::to_string(i);
        lines += name + ":" + model[name] + "\n";
    }
    put(lines);
    ovkConfigFile file;
    ASSERT_TRUE(open(file));
    std::vector<std::pair<std::string, std::string>> read, expected(model.begin(), model.end());
    for (const auto &entry : file)
        read.emplace_back(kel::view(entry.value->name), kel::view(entry.value->value));
    EXPECT_TRUE(read == expected) << read.size() << " of " << expected.size();
    for (const auto &[name, value] : model)
        ASSERT_EQ(kel::view(file.GetValue(name.c_str())), value) << name;
}

TEST_F(ConfigFile, LeavesTheFileWhenTheDiskIsFull) {
    put("a:1\n");
    EXPECT_EQ(in_child([&] {
                  ::signal(SIGXFSZ, SIG_IGN);
                  const rlimit limit{8000, 8000};
                  ::setrlimit(RLIMIT_FSIZE, &limit);
                  ovkConfigFile file;
                  EXPECT_TRUE(open(file) && file.SetValue("b", std::string(9000, '2').c_str()));
                  EXPECT_TRUE(!file.Close() && Error_GetLast() == 223 && !file.IsOpened());
              }),
              0);
    EXPECT_EQ(get(), "a:1\n");
    EXPECT_EQ(files(), 1);
}

// Processes ------------------------------------------------------------------------------------

constexpr int generation_entries = 3000;

std::string text_of(int generation) {
    std::string whole;
    for (int i = 0; i < generation_entries; ++i)
        whole += "entry" + std::to_string(10'000 + i) + ":" + std::to_string(generation) + "\n";
    return whole;
}

bool write_generation(const std::string &path, int number) {
    ovkConfigFile file;
    bool right = file.Open(path.c_str(), ovkConfigFile::ReadWrite);
    for (int i = 0; i < generation_entries; ++i)
        right &=
            file.SetValue(("entry" + std::to_string(10'000 + i)).c_str(), std::to_string(number).c_str());
    return file.Close() && right;
}

// KELSTDMT_KILLS=1000 kills as often.
TEST_F(ConfigFile, IsWholeWhenItsWriterIsKilled) {
    using clock = std::chrono::steady_clock;
    const char *wish = std::getenv("KELSTDMT_KILLS");
    const auto begin = clock::now();
    ASSERT_TRUE(write_generation(path, 1));
    std::uniform_int_distribution<clock::rep> life(0, 4 * (clock::now() - begin).count());
    std::mt19937 random(static_cast<unsigned>(::getpid()));
    int last = 1;
    for (int kills = wish ? std::atoi(wish) : 25; kills > 0; --kills) {
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
    auto count = [&] {
        for (int turn = 0; turn < 40; ++turn) {
            ovkConfigFile file;
            while (!open(file))
                if (Error_GetLast() != 33) return 1;
            const std::string more = std::to_string(file.GetValue("count").ToInt() + 1);
            if (!file.SetValue("count", more.c_str()) || !file.Close()) return 2;
        }
        return 0;
    };
    std::vector<pid_t> children(4);
    for (pid_t &child : children)
        child = start(count);
    for (pid_t child : children)
        EXPECT_EQ(wait_for(child), 0);
    EXPECT_EQ(get(), "count:160\n");
}

}  // namespace
