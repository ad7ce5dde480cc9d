// The file buffer against a model in memory, and against the system: full disks, modes, other writers.
#include <fcntl.h>
#include <sys/stat.h>

#include <thread>

#include <kelstdmt/vumtext.h>

#include "scratch_folder.h"

namespace {

using std::ios_base;

using File = ScratchFolder;

std::string read(std::streambuf &from, std::size_t count) {
    std::string text(count, '\0');
    text.resize(static_cast<std::size_t>(from.sgetn(text.data(), static_cast<std::streamsize>(count))));
    return text;
}
std::streamsize write(std::streambuf &to, const std::string &text) {
    return to.sputn(text.data(), static_cast<std::streamsize>(text.size()));
}

TEST_F(File, OpensByItsMode) {
    const std::tuple<int, const char *, const char *, int> cases[] = {
        {1, "abc", "abc", 0},       {2, "abc", "X", 0},
        {3, "abc", "Xbc", 0},       {1, nullptr, "", 0},
        {2 | 4, "abc", "abcX", 0},  {8, "abc", "abcX", 0},
        {3 | 16, "abc", "X", 0},    {1 | 32, nullptr, nullptr, 2},
        {2 | 64, "abc", "abc", 80}, {3 | 64, nullptr, "X", 0},
        {0, "abc", "abc", 87},      {3 | 32 | 64, "a", "a", 87}};
    btkFileBuf file;
    // Null: no file; after writing "X" where that is allowed.
    for (const auto &[mode, before, after, error] : cases) {
        SCOPED_TRACE(mode);
        ::unlink(path.c_str());
        if (before) put(before);
        Error_SetLast(0);
        EXPECT_EQ(file.Open(path.c_str(), mode), error == 0);
        EXPECT_EQ(Error_GetLast(), error);
        EXPECT_EQ(file.sputc('X') == 'X', error == 0 && (mode & (2 | 8)));
        EXPECT_EQ(file.Close(), error == 0);
        EXPECT_EQ(::access(path.c_str(), F_OK) == 0, after != nullptr);
        EXPECT_EQ(get(), after ? after : "");
    }
    for (const auto &[suffix, error] :
         {std::pair{std::string(), 5}, {"/none/f", 3}, {"/" + std::string(300, 'n'), 206}}) {
        EXPECT_FALSE(file.Open((folder + suffix).c_str(), 2));
        EXPECT_EQ(Error_GetLast(), error) << suffix;
    }
    ASSERT_TRUE(file.Open(path.c_str(), 3));
    EXPECT_TRUE(::fcntl(file.GetHandle(), F_GETFD) & FD_CLOEXEC);
}

TEST_F(File, TellsAFullDisk) {
    btkFileBuf file;
    ASSERT_TRUE(file.Open("/dev/full", 2));
    EXPECT_EQ(write(file, "lost"), 4);
    EXPECT_TRUE(file.pubsync() == -1 && Error_GetLast() == 112) << Error_GetLast();
    EXPECT_FALSE(file.Close() || file.IsOpen() || File_Truncate(-1, 0) || File_GetSize(-1) != -1);
}

TEST_F(File, SeesAndKeepsWhatOthersWrite) {
    put("0123456789");
    btkFileBuf file;
    ASSERT_TRUE(file.Open(path.c_str(), 3));
    EXPECT_EQ(read(file, 2), "01");
    { std::fstream(path, std::ios::in | std::ios::out).seekp(4) << "abcd"; }
    write(file, "X");  // beside what was only read
    EXPECT_EQ(read(file, 5), "34567");
    EXPECT_TRUE(file.sungetc() == '7' && file.sbumpc() == '7');
    write(file, "Y");
    EXPECT_EQ(file.pubsync(), 0);
    EXPECT_EQ(get(), "01X3abcdY9") << "stale bytes were written back";
    put("01X3anew");
    file.pubseekoff(4, ios_base::beg);
    EXPECT_EQ(read(file, 99), "anew");
    EXPECT_TRUE(file.Close());
    // Appending: to the end as it is at the time of the write, and read back in between.
    put("ab");
    ASSERT_TRUE(file.Open(path.c_str(), 1 | 8));
    std::ofstream(path, std::ios::app) << "c";
    write(file, "D");
    file.pubseekpos(0);
    EXPECT_EQ(read(file, 9), "abcD");
    EXPECT_EQ(file.pubseekoff(5'000'000'000, ios_base::beg), std::streamoff(5'000'000'000));
    EXPECT_EQ(file.pubseekoff(-1, ios_base::beg), std::streamoff(-1));
}

TEST_F(File, ReadsAFifoInOrderAndSurvivesItsEnd) {
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    std::thread writer([&] {
        btkFileBuf out;
        EXPECT_TRUE(out.Open(path.c_str(), 2 | btkFileBuf::NoCreate));
        EXPECT_EQ(write(out, std::string(200000, 'f') + "late"), 200004);
        while (out.pubsync() == 0)
            write(out, "late");  // until the reader has gone: no signal
        EXPECT_EQ(Error_GetLast(), 109);
    });
    btkFileBuf in;
    EXPECT_TRUE(in.Open(path.c_str(), 1) && read(in, 10) == std::string(10, 'f'));
    EXPECT_EQ(in.pubsync(), 0) << "keeps what was read ahead";
    EXPECT_TRUE(read(in, 199994) == std::string(199990, 'f') + "late");
    in.Close();
    writer.join();
}

TEST_F(File, LocksKeepOthersOut) {
    put("a:1\n");
    lockFileBuf first, second;
    EXPECT_FALSE(first.Open(path.c_str(), 1));
    EXPECT_FALSE(second.Open(path.c_str(), 1)) << "readers share";
    second.Close();
    EXPECT_TRUE(second.Open(path.c_str(), 2, 0666, 0)) << "a writer waits for readers";
    EXPECT_EQ(Error_GetLast(), 33);
    EXPECT_EQ(get(), "a:1\n") << "not emptied without the lock";
    std::thread releases([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(80));
        first.Close();
    });
    EXPECT_FALSE(second.Open(path.c_str(), 3));
    releases.join();
    EXPECT_EQ(read(second, 9), "a:1\n");
    { std::ofstream(path) << "b:2\n"; }  // opened and closed elsewhere in this process: the lock stays
    EXPECT_TRUE(first.Open(path.c_str(), 1, 0666, 0.01));
    EXPECT_TRUE(first.Open((folder + "/none").c_str(), 1));
    EXPECT_NE(::access((folder + "/none").c_str(), F_OK), 0);
}

}  // namespace
