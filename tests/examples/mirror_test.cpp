// examples/mirror as its users meet it: two processes over a tree with names, links and sizes of every sort,
// and the ways in which a copy fails.
#include <random>
#include <thread>

#include <sys/stat.h>

#include "examples/running.h"

namespace fs = std::filesystem;

namespace {

struct mirror_test : ExampleTest {
    mirror_test() : ExampleTest("mirror") {}

    void WriteBytes(const std::string &name, std::size_t bytes) {
        std::string text(bytes, ' ');
        for (char &byte : text)
            byte = static_cast<char>(chance());
        put(name, text);
    }
    void MakeTree() {
        WriteBytes("from/a text.txt", 1000);
        WriteBytes("from/empty", 0);
        WriteBytes("from/.hidden", 1);
        WriteBytes("from/deep/er/and/deeper/large", 3 << 20);
        WriteBytes("from/deep/\xff odd:name", 70000);
        fs::create_directories(at("from/nothing in it"));
        fs::create_symlink("a text.txt", at("from/link"));
        fs::create_symlink("nowhere", at("from/deep/dangling"));
        fs::create_symlink("..", at("from/deep/up"));
    }
    Outcome Copy(const std::string &options = "") const {
        return Run("copy " + options + ' ' + at("from") + ' ' + at("to") + ' ' + at("state"));
    }

    std::mt19937 chance{3};
};

void ExpectWords(const Outcome &outcome, int code, std::initializer_list<const char *> words) {
    EXPECT_EQ(outcome.status, code) << outcome.out << outcome.err;
    for (const char *word : words)
        expect_says(outcome.out + outcome.err, word);
}

TEST_F(mirror_test, CopiesWhileAnotherFollows) {
    MakeTree();
    Outcome followed;
    std::thread follower([&] { followed = Run("follow --patience 60 " + at("state/progress.mon")); });
    ExpectWords(Copy(), 0,
                {"This is run 1\n", "5 files, 6 folders, 3 links, 3,216,729 bytes", "4. Verified"});
    follower.join();
    ExpectWords(followed, 0, {"waiting for ", "it is done"});
    EXPECT_EQ(std::system(("diff -r --no-dereference " + at("from") + ' ' + at("to")).c_str()), 0);
    expect_says(get("state/mirror.conf"), "State:complete since ");
    expect_says(get("state/mirror.conf"), "Copied:5 files\n");

    // Again, onto what is there. The settings are files of the registry, which the user may write.
    ExpectWords(Copy(), 1, {"mirror: File exists", "/to"});
    expect_says(get("state/mirror.conf"), "State:failed");
    ExpectWords(Run("follow " + at("state/progress.mon")), 1, {"it failed: File exists"});
    const std::string key = "registry/user/examples/mirror/";
    put(key + "links.text", "skip\n");
    WriteBytes("from/new", 5);
    WriteBytes("to/old", 5);
    ExpectWords(Copy("--replace"), 0,
                {"links are left out", "This is run 2, the last was on", "Copied: 6 files (was 5 files)"});
    EXPECT_FALSE(fs::is_symlink(at("to/link")) || fs::exists(at("to/old")));
    put(key + "links.text", "some\n");
    ExpectWords(Copy("--merge"), 1, {"keep or skip, not some"});
}

TEST_F(mirror_test, FailuresAndUsageAreTold) {
    ExpectWords(Copy(), 1, {"mirror: ", "/from"});
    WriteBytes("from/a", 10);
    ASSERT_EQ(mkfifo(at("from/fifo").c_str(), 0600), 0);
    ExpectWords(Copy(), 1, {"mirror: ", "/from/fifo"});
    fs::remove_all(at("to"));
    ExpectWords(Run("copy " + at("from") + ' ' + at("from/inside") + ' ' + at("state")), 1,
                {"Invalid path", "inside"});
    EXPECT_FALSE(fs::exists(at("from/inside")));
    fs::remove_all(at("state"));
    WriteBytes("state", 3);  // where the folder is wanted
    ExpectWords(Copy(), 1, {"mirror: ", "/state"});
    EXPECT_FALSE(fs::exists(at("to")));
    WriteBytes("noise", 5000);
    for (const char *none : {"missing", "noise"})
        ExpectWords(Run("follow --patience 1 " + at(none)), 1, {"no news in ", "for 1 seconds"});
    ExpectWords(Run("--help"), 0, {"Usage: mirror copy"});
    for (const char *wrong :
         {"", "copy a b", "follow", "paint a", "--fast", "follow --patience x f", "follow --patience"})
        ExpectWords(Run(wrong), 2, {"mirror: ", "Usage"});
}

}  // namespace
