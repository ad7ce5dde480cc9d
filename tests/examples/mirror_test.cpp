// examples/mirror as its users meet it: two processes over a tree with names, links and sizes of every sort,
// and the ways in which a copy fails.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <thread>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

const char *const program = KELSTDMT_BINARY_DIR "/examples/mirror";

struct Outcome {
    int code;
    std::string out;  // and standard error
};

std::string Contents(const fs::path &path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

class mirror_test : public ::testing::Test {
protected:
    void SetUp() override {
        std::string name = fs::temp_directory_path() / "mirror_test.XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        folder = name;
    }
    void TearDown() override { fs::remove_all(folder); }

    std::string Path(const std::string &name) const { return (folder / name).string(); }

    void Write(const std::string &name, std::size_t bytes) {
        fs::create_directories(fs::path(Path(name)).parent_path());
        std::string text(bytes, ' ');
        for (char &byte : text)
            byte = static_cast<char>(m_chance());
        std::ofstream(Path(name), std::ios::binary) << text;
    }

    void MakeTree() {
        Write("from/a text.txt", 1000);
        Write("from/empty", 0);
        Write("from/.hidden", 1);
        Write("from/deep/er/and/deeper/large", 3 << 20);
        Write("from/deep/\xff odd:name", 70000);
        fs::create_directories(Path("from/nothing in it"));
        fs::create_symlink("a text.txt", Path("from/link"));
        fs::create_symlink("nowhere", Path("from/deep/dangling"));
        fs::create_symlink("..", Path("from/deep/up"));
    }

    Outcome Run(const std::string &arguments) const {
        const std::string command = "export KELSTDMT_REGISTRY=" + Path("registry") + "; timeout 120 " +
                                    program + ' ' + arguments + " 2>&1 </dev/null";
        Outcome outcome{-1, ""};
        std::FILE *pipe = popen(command.c_str(), "r");
        char block[4096];
        while (std::size_t count = std::fread(block, 1, sizeof block, pipe))
            outcome.out.append(block, count);
        const int status = pclose(pipe);
        outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        EXPECT_EQ(outcome.out.find("Sanitizer"), std::string::npos) << outcome.out;
        EXPECT_EQ(outcome.out.find("internal error"), std::string::npos) << outcome.out;
        return outcome;
    }
    Outcome Copy(const std::string &options = "") const {
        return Run("copy " + options + ' ' + Path("from") + ' ' + Path("to") + ' ' + Path("state"));
    }
    int Compare() const {
        return std::system(("diff -r --no-dereference " + Path("from") + ' ' + Path("to")).c_str());
    }

    fs::path folder;

private:
    std::mt19937 m_chance{3};
};

void ExpectWords(const Outcome &outcome, int code, std::initializer_list<const char *> words) {
    EXPECT_EQ(outcome.code, code) << outcome.out;
    for (const char *word : words)
        EXPECT_NE(outcome.out.find(word), std::string::npos) << word << " in:\n" << outcome.out;
}

TEST_F(mirror_test, CopiesWhileAnotherFollows) {
    MakeTree();
    Outcome followed;
    std::thread follower([&] { followed = Run("follow --patience 60 " + Path("state/progress.mon")); });
    ExpectWords(Copy(), 0,
                {"This is run 1\n", "5 files, 6 folders, 3 links, 3,216,729 bytes", "4. Verified"});
    follower.join();
    ExpectWords(followed, 0, {"waiting for ", "it is done"});
    EXPECT_EQ(Compare(), 0);
    const std::string record = Contents(Path("state/mirror.conf"));
    EXPECT_NE(record.find("State:complete since "), std::string::npos) << record;
    EXPECT_NE(record.find("Copied:5 files\n"), std::string::npos) << record;

    // Again, onto what is there. The settings are files of the registry, which the user may write.
    ExpectWords(Copy(), 1, {"mirror: File exists", "/to"});
    EXPECT_NE(Contents(Path("state/mirror.conf")).find("State:failed"), std::string::npos);
    ExpectWords(Run("follow " + Path("state/progress.mon")), 1, {"it failed: File exists"});
    const fs::path key = folder / "registry/user/examples/mirror";
    std::ofstream(key / "links.text") << "skip\n";
    Write("from/new", 5);
    Write("to/old", 5);
    ExpectWords(Copy("--replace"), 0,
                {"links are left out", "This is run 2, the last was on", "Copied: 6 files (was 5 files)"});
    EXPECT_FALSE(fs::is_symlink(Path("to/link")) || fs::exists(Path("to/old")));
    EXPECT_EQ(Contents(key / "runs.text"), "2\n");
    ExpectWords(Copy("--merge"), 0, {"This is run 3"});
    std::ofstream(key / "links.text") << "some\n";
    ExpectWords(Copy("--merge"), 1, {"keep or skip, not some"});
}

TEST_F(mirror_test, FailuresAreTold) {
    ExpectWords(Copy(), 1, {"mirror: ", "/from"});
    Write("from/a", 10);
    ASSERT_EQ(mkfifo(Path("from/fifo").c_str(), 0600), 0);
    ExpectWords(Copy(), 1, {"mirror: ", "/from/fifo"});
    fs::remove(Path("from/fifo"));
    fs::remove_all(Path("to"));
    ExpectWords(Run("copy " + Path("from") + ' ' + Path("from/inside") + ' ' + Path("state")), 1,
                {"Invalid path", "inside"});
    EXPECT_FALSE(fs::exists(Path("from/inside")));
    fs::remove_all(Path("state"));
    Write("state", 3);  // where the folder is wanted
    ExpectWords(Copy(), 1, {"mirror: ", "/state"});
    EXPECT_FALSE(fs::exists(Path("to")));
}

TEST_F(mirror_test, FollowerGivesUpAndUsageIsTold) {
    ExpectWords(Run("follow --patience 1 " + Path("missing")), 1, {"no news in ", "for 1 seconds"});
    Write("noise", 5000);
    ExpectWords(Run("follow --patience 1 " + Path("noise")), 1, {"no news in "});
    ExpectWords(Run("--help"), 0, {"Usage: mirror copy"});
    for (const char *wrong :
         {"", "copy a b", "follow", "paint a", "--fast", "follow --patience x f", "follow --patience"})
        ExpectWords(Run(wrong), 2, {"mirror: ", "Usage"});
}

}  // namespace
