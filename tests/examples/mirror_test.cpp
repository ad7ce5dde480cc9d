// examples/mirror as its users meet it: two processes over a tree with names, links and sizes of every sort,
// and the ways in which a copy fails.
#include <thread>

#include <sys/stat.h>

#include "examples/running.h"

namespace fs = std::filesystem;

namespace {

struct mirror_test : ExampleTest {
    mirror_test() : ExampleTest("mirror") {}
    void ExpectCopy(const std::string &options, int code, std::initializer_list<std::string> words) const {
        Expect("copy " + options + ' ' + at("from") + ' ' + at("to") + ' ' + at("state"), code, words);
    }
};

TEST_F(mirror_test, CopiesWhileAnotherFollows) {
    put("from/empty", "");
    put("from/deep/er/large", std::string(3 << 20, 'x'));
    put("from/deep/\xff odd:name", "odd");
    fs::create_symlink("nowhere", at("from/link"));
    fs::create_symlink("..", at("from/deep/up"));
    std::thread follower([&] {
        Expect("follow --patience 60 " + at("state/progress.mon"), 0, {"waiting for ", "it is done"});
    });
    ExpectCopy("", 0, {"This is run 1\n", "3 files, 3 folders, 2 links, 3,145,731 bytes", "4. Verified"});
    follower.join();
    EXPECT_EQ(shell("diff -r --no-dereference " + at("from") + ' ' + at("to")), (Outcome{"", 0}));

    // Again, onto what is there. The settings are files of the registry, which the user may write.
    ExpectCopy("", 1, {"mirror: File exists", "/to"});
    Expect("follow " + at("state/progress.mon"), 1, {"it failed: File exists"});
    put("registry/user/examples/mirror/links.text", "skip\n");
    put("from/new", "new"), put("to/old", "old");
    ExpectCopy("--replace", 0,
               {"links are left out", "This is run 2, the last was on", "Copied: 4 files (was 3 files)"});
    EXPECT_FALSE(fs::is_symlink(at("to/link")) || fs::exists(at("to/old")));
}

TEST_F(mirror_test, FailuresAndUsageAreTold) {
    put("from/a", "a");
    ASSERT_EQ(mkfifo(at("from/fifo").c_str(), 0600), 0);
    ExpectCopy("", 1, {"mirror: ", "/from/fifo"});
    Expect("follow --patience x f", 2, {"mirror: ", "Usage"});
}

}  // namespace
