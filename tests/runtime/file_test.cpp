// File buffers against the system: modes, full disks, other writers; locks on files that are replaced while
// others wait for them, and what a replacement keeps of the old file.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <random>
#include <thread>

#include <kelstdmt/vumtext.h>

#include "scratch_folder.h"

namespace {

constexpr int both = lockFileBuf::In | lockFileBuf::Out;

struct File : ScratchFolder {
    File() { put("old"); }
};

std::string read(std::streambuf &from, std::size_t count) {
    std::string text(count, '\0');
    text.resize(static_cast<std::size_t>(from.sgetn(text.data(), static_cast<std::streamsize>(count))));
    return text;
}

TEST_F(File, OpensByItsMode) {
    const std::tuple<int, const char *, const char *, int> cases[] = {
        {1, "abc", "abc", 0},      {2, "abc", "X", 0},        {3, "abc", "Xbc", 0},
        {1, nullptr, "", 0},       {2 | 4, "abc", "abcX", 0}, {8, "abc", "abcX", 0},
        {3 | 16, "abc", "X", 0},   {1 | 32, nullptr, "-", 2}, {2 | 64, "abc", "abc", 80},
        {3 | 64, nullptr, "X", 0}, {0, "abc", "abc", 87},     {3 | 32 | 64, "a", "a", 87}};
    btkFileBuf file;
    // Null: no file; after writing "X" where that is allowed, "-": none either.
    for (const auto &[mode, before, after, error] : cases) {
        SCOPED_TRACE(mode);
        std::filesystem::remove(path);
        if (before) put(before);
        Error_SetLast(0);
        EXPECT_EQ(file.Open(path.c_str(), mode), error == 0);
        EXPECT_EQ(Error_GetLast(), error);
        EXPECT_EQ(file.sputc('X') == 'X', error == 0 && (mode & (2 | 8)));
        EXPECT_EQ(file.Close(), error == 0);
        EXPECT_EQ(files() == 1 ? get() : "-", after);
    }
    for (const auto &[suffix, error] :
         {std::pair{std::string(), 5}, {"/none/f", 3}, {"/" + std::string(300, 'n'), 206}}) {
        EXPECT_FALSE(file.Open((folder + suffix).c_str(), 2));
        EXPECT_EQ(Error_GetLast(), error) << suffix;
    }
    ASSERT_TRUE(file.Open("/dev/full", 2));
    EXPECT_TRUE(::fcntl(file.GetHandle(), F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(file.sputn("lost", 4), 4);
    EXPECT_TRUE(file.pubsync() == -1 && Error_GetLast() == 112) << Error_GetLast();
    EXPECT_FALSE(file.Close() || file.IsOpen());
}

// Pieces of all sizes read, written and put back at one position, beside the same bytes in memory.
TEST_F(File, BehavesAsBytesInMemory) {
    std::mt19937 random(5);
    btkFileBuf file;
    ASSERT_TRUE(file.Open(path.c_str(), 3 | 16));
    std::string model;
    std::size_t at = 0;
    const auto up_to = [&](std::size_t most) { return static_cast<std::size_t>(random()) % (most + 1); };
    for (int step = 0; step < 20000; ++step) {
        SCOPED_TRACE(step);
        const std::size_t size = up_to(step % 50 ? 40 : 200'000);
        switch (random() % 5) {
            case 0:
                ASSERT_EQ(read(file, size), model.substr(at, size));
                at = std::min(at + size, model.size());
                break;
            case 1: {
                const std::string bytes(size, static_cast<char>('a' + step % 26));
                ASSERT_EQ(file.sputn(bytes.data(), static_cast<std::streamsize>(size)), bytes.size());
                model.replace(at, std::min(size, model.size() - at), bytes);
                at += size;
                break;
            }
            case 2: {
                const int got = file.sungetc();
                ASSERT_EQ(got, at > 0 ? model[--at] : -1);
                break;
            }
            case 3: {
                const char wanted = up_to(1) && at > 0 ? model[at - 1] : '?';
                const int got = file.sputbackc(wanted);
                ASSERT_EQ(got, at > 0 && model[at - 1] == wanted ? model[--at] : -1);
                break;
            }
            default:
                if (step % 4) break;
                at = up_to(model.size());
                ASSERT_EQ(file.pubseekpos(static_cast<std::streamoff>(at)), std::streamoff(at));
        }
    }
    EXPECT_TRUE(file.Close());
    EXPECT_TRUE(get() == model) << "of " << model.size() << " bytes";
}

TEST_F(File, SeesAndKeepsWhatOthersWrite) {
    put("0123456789");
    btkFileBuf file;
    ASSERT_TRUE(file.Open(path.c_str(), 3));
    EXPECT_EQ(read(file, 2), "01");
    { std::fstream(path, std::ios::in | std::ios::out).seekp(4) << "abcd"; }
    file.sputc('X');  // beside what was only read
    EXPECT_EQ(read(file, 5), "34567");
    EXPECT_TRUE(file.sungetc() == '7' && file.sbumpc() == '7' && file.sputc('Y') == 'Y');
    EXPECT_EQ(file.pubsync(), 0);
    EXPECT_EQ(get(), "01X3abcdY9") << "stale bytes were written back";
    put("01X3anew");
    file.pubseekoff(4, std::ios::beg);
    EXPECT_EQ(read(file, 99), "anew");
    // Appending: to the end as it is at the time of the write, and read back in between.
    ASSERT_TRUE(file.Close() && file.Open(path.c_str(), 1 | 8));
    std::ofstream(path, std::ios::app) << "c";
    file.sputc('D');
    file.pubseekpos(4);
    EXPECT_EQ(read(file, 9), "anewcD");
    EXPECT_EQ(file.pubseekoff(5'000'000'000, std::ios::beg), std::streamoff(5'000'000'000));
    EXPECT_EQ(file.pubseekoff(-1, std::ios::beg), std::streamoff(-1));
}

TEST_F(File, WaitsForAPlaceInTheNewFileToo) {
    lockFileBuf holder, other;
    EXPECT_FALSE(holder.Open(path.c_str(), lockFileBuf::In) || other.Open(path.c_str(), lockFileBuf::In))
        << "readers share";
    holder.Close();
    EXPECT_TRUE(holder.Open(path.c_str(), lockFileBuf::Out, 0666, 0)) << "a writer waits for readers";
    EXPECT_EQ(get(), "old") << "it is not emptied without the lock";
    other.Close();
    // A name that leads to a file, while no path does.
    const int nameless = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    const std::string by_number = "/proc/self/fd/" + std::to_string(nameless);
    EXPECT_TRUE(holder.Open(by_number.c_str(), both, 0666, 60) && Error_GetLast() == 2) << Error_GetLast();
    ::close(nameless);
    ASSERT_FALSE(holder.Open(path.c_str(), both));
    std::string seen(100, ' ');
    std::thread waits([&] {
        lockFileBuf waiter;
        EXPECT_FALSE(waiter.Open(path.c_str(), both));
        seen.resize(static_cast<std::size_t>(waiter.sgetn(seen.data(), 100)));
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_TRUE(holder.Replace("first")) << Error_GetText(Error_GetLast());
    EXPECT_TRUE(other.Open(path.c_str(), lockFileBuf::In, 0666, 0)) << "the new file is locked as well";
    ASSERT_TRUE(holder.Replace("second"));
    EXPECT_EQ(get(), "second");  // opened and closed elsewhere in this process: the lock stays
    char bytes[10];
    EXPECT_EQ(std::string(bytes, static_cast<std::size_t>(holder.sgetn(bytes, 10))), "second");
    EXPECT_EQ(holder.sputn("+", 1), 1);
    EXPECT_TRUE(other.Open(path.c_str(), both, 0666, 0.1));
    EXPECT_EQ(Error_GetLast(), 33);
    EXPECT_TRUE(holder.Close());
    waits.join();
    EXPECT_EQ(seen, "second+");
    EXPECT_FALSE(other.Open(path.c_str(), lockFileBuf::In) || other.Replace("none"))
        << "not by who only reads";
    EXPECT_TRUE(holder.Open(at("none").c_str(), lockFileBuf::In));
    EXPECT_EQ(files(), 1) << "a reader makes no file";
}

TEST_F(File, KeepsWhatTheOldFileHad) {
    const bool root = ::geteuid() == 0;
    ASSERT_TRUE(!root || ::chown(path.c_str(), 12345, 23456) == 0);
    ASSERT_EQ(::chmod(path.c_str(), root ? 06604 : 0604), 0);
    const bool has_attributes = ::setxattr(path.c_str(), "user.note", "kept", 4, 0) == 0;
    std::filesystem::create_symlink("f", at("link"));
    std::filesystem::create_hard_link(path, at("hard"));
    put(".f.new", "left by a killed process, and longer than what follows");
    struct stat before {
    }, after{};
    ASSERT_EQ(::stat(path.c_str(), &before), 0);
    std::filesystem::current_path(folder);
    lockFileBuf file;
    ASSERT_FALSE(file.Open("link", both));
    std::filesystem::current_path("/");
    ASSERT_TRUE(file.Replace("new")) << Error_GetText(Error_GetLast());
    ASSERT_EQ(::stat(path.c_str(), &after), 0);
    EXPECT_EQ(get() + get("hard"), "newold");
    EXPECT_TRUE(std::filesystem::is_symlink(at("link")) && files() == 3);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_TRUE(after.st_uid == before.st_uid && after.st_gid == before.st_gid);
    char value[8];
    EXPECT_EQ(::getxattr(path.c_str(), "user.note", value, sizeof value), has_attributes ? 4 : -1);
}

TEST_F(File, LeavesTheOldFileWhenItCannotBeReplaced) {
    lockFileBuf file;
    ASSERT_FALSE(file.Open(path.c_str(), both));
    ASSERT_EQ(::unlink(path.c_str()), 0);
    EXPECT_TRUE(file.Replace("made anew"));
    ASSERT_EQ(::rename(path.c_str(), at("moved").c_str()), 0);
    put("of an editor");
    EXPECT_FALSE(file.Replace("lost"));
    EXPECT_EQ(Error_GetLast(), 1006);
    EXPECT_EQ(get() + get("moved"), "of an editormade anew");
    EXPECT_EQ(files(), 2);
    EXPECT_TRUE(lockFileBuf().Open("/dev/null", both) && Error_GetLast() == 50);
}

TEST_F(File, GivesNoFileToAnotherUser) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
    constexpr unsigned nobody = 65534;
    auto replace = [&] {
        lockFileBuf file;
        if (::setgid(nobody) != 0 || ::setuid(nobody) != 0 || file.Open(path.c_str(), both)) return 255;
        return file.Replace("new") ? 0 : Error_GetLast();
    };
    ASSERT_EQ(::chmod(path.c_str(), 0666) + ::chmod(folder.c_str(), 0777), 0);
    EXPECT_EQ(wait_for(start(replace)), 5) << "the owner cannot be kept";
    EXPECT_EQ(get() + std::to_string(files()), "old1");
    ASSERT_EQ(::chown(path.c_str(), nobody, nobody), 0);
    EXPECT_EQ(wait_for(start(replace)), 0);
}

}  // namespace
