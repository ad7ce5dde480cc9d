// Locks on files that are replaced while others wait for them, and what a replacement keeps of the old file.
#include <sys/stat.h>
#include <sys/xattr.h>

#include <thread>

#include <kelstdmt/vumtext.h>

#include "scratch_folder.h"
#include "timing.h"

namespace {

constexpr int both = lockFileBuf::In | lockFileBuf::Out;

struct LockedFile : ScratchFolder {
    LockedFile() { put("old"); }
    struct stat node(const std::string &name = "f") const {
        struct stat result {};
        EXPECT_EQ(::lstat(at(name).c_str(), &result), 0);
        return result;
    }
};

TEST_F(LockedFile, WaitsForAPlaceInTheNewFileToo) {
    lockFileBuf holder;
    ASSERT_FALSE(holder.Open(path.c_str(), both));
    std::string seen(100, ' ');
    std::thread waits([&] {
        lockFileBuf waiter;
        EXPECT_FALSE(waiter.Open(path.c_str(), both));
        seen.resize(static_cast<std::size_t>(waiter.sgetn(seen.data(), 100)));
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_TRUE(holder.Replace("first")) << Error_GetText(Error_GetLast());
    lockFileBuf newcomer;
    EXPECT_TRUE(newcomer.Open(path.c_str(), lockFileBuf::In, 0666, 0)) << "the new file is locked as well";
    ASSERT_TRUE(holder.Replace("second"));
    char bytes[10];
    EXPECT_EQ(std::string(bytes, static_cast<std::size_t>(holder.sgetn(bytes, 10))), "second");
    EXPECT_EQ(holder.sputn("+", 1), 1);
    const double waited = seconds([&] {
        EXPECT_TRUE(newcomer.Open(path.c_str(), both, 0666, 0.1));
        EXPECT_EQ(Error_GetLast(), 33);
    });
    EXPECT_TRUE(waited >= 0.1 && waited < 30) << waited;
    EXPECT_TRUE(holder.Close());
    waits.join();
    EXPECT_EQ(seen, "second+");
    EXPECT_FALSE(newcomer.Open(path.c_str(), lockFileBuf::In));
    EXPECT_FALSE(newcomer.Replace("none")) << "not by who only reads";
    EXPECT_EQ(Error_GetLast(), 5);
    EXPECT_TRUE(holder.Open("/dev/null", both));
    EXPECT_EQ(Error_GetLast(), 50);
}

TEST_F(LockedFile, KeepsWhatTheOldFileHad) {
    const bool root = ::geteuid() == 0;
    ASSERT_TRUE(!root || ::chown(path.c_str(), 12345, 23456) == 0);
    ASSERT_EQ(::chmod(path.c_str(), root ? 06604 : 0604), 0);
    const bool has_attributes = ::setxattr(path.c_str(), "user.note", "kept", 4, 0) == 0;
    ASSERT_TRUE(::symlink("f", at("link").c_str()) == 0 && ::link(path.c_str(), at("hard").c_str()) == 0 &&
                ::symlink(at("link").c_str(), at("chain").c_str()) == 0);
    put(".f.new", "left by a killed process, and longer than what follows");
    const struct stat before = node();
    std::filesystem::current_path(folder);
    lockFileBuf file;
    ASSERT_FALSE(file.Open("chain", both));
    std::filesystem::current_path("/");
    ASSERT_TRUE(file.Replace("new")) << Error_GetText(Error_GetLast());
    const struct stat after = node();
    EXPECT_EQ(get() + get("hard"), "newold");
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_TRUE(after.st_uid == before.st_uid && after.st_gid == before.st_gid);
    EXPECT_TRUE(S_ISLNK(node("link").st_mode) && S_ISLNK(node("chain").st_mode));
    EXPECT_EQ(files(), 4);
    char value[8];
    EXPECT_EQ(::getxattr(path.c_str(), "user.note", value, sizeof value), has_attributes ? 4 : -1);
}

TEST_F(LockedFile, LeavesTheOldFileWhenItCannotBeReplaced) {
    lockFileBuf file;
    ASSERT_FALSE(file.Open(path.c_str(), both));
    ASSERT_EQ(::unlink(path.c_str()), 0);
    EXPECT_TRUE(file.Replace("made anew"));
    EXPECT_EQ(get(), "made anew");
    ASSERT_EQ(::rename(path.c_str(), (folder + "/moved").c_str()), 0);
    put("of an editor");
    EXPECT_FALSE(file.Replace("lost"));
    EXPECT_EQ(Error_GetLast(), 1006);
    EXPECT_EQ(get() + get("moved"), "of an editormade anew");
    EXPECT_EQ(files(), 2);
    file.Close();
    // A name beside which there is no room for a longer one, and something else under the name aside.
    const std::string longest(250, 'n');
    ASSERT_EQ(::mkdir((folder + "/." + longest.substr(50) + ".new").c_str(), 0700), 0);
    ASSERT_FALSE(file.Open((folder + "/" + longest).c_str(), both));
    EXPECT_TRUE(file.Replace("long")) << Error_GetText(Error_GetLast());
    EXPECT_EQ(get(longest), "long");
}

TEST_F(LockedFile, GivesNoFileToAnotherUser) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
    constexpr unsigned nobody = 65534;
    auto replace = [&] {
        lockFileBuf file;
        if (::setgid(nobody) != 0 || ::setuid(nobody) != 0 || file.Open(path.c_str(), both)) return 255;
        return file.Replace("new") ? 0 : Error_GetLast();
    };
    ASSERT_EQ(::chmod(path.c_str(), 0666), 0);
    for (mode_t mode : {0755, 0777}) {  // the folder may not be written; the owner cannot be kept
        ASSERT_EQ(::chmod(folder.c_str(), mode), 0);
        EXPECT_EQ(wait_for(start(replace)), 5);
        EXPECT_EQ(get(), "old");
        EXPECT_EQ(files(), 1);
    }
    ASSERT_EQ(::chown(path.c_str(), nobody, nobody), 0);
    EXPECT_EQ(wait_for(start(replace)), 0);
    EXPECT_EQ(get(), "new");
}

}  // namespace
