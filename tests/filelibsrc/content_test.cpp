// Files as a whole: fsiFile beside a text in memory, sizes beside the disk, checksums beside a plain loop.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <fstream>
#include <random>
#include <thread>

#include <kelstdmt/filelib.h>

#include "filelibsrc/failure.h"
#include "scratch_folder.h"

namespace {

using Content = Folder;

std::string random_bytes(std::mt19937 &random, std::size_t count) {
    std::string bytes(count, 0);
    for (char &c : bytes)
        c = static_cast<char>(random());
    return bytes;
}

TEST_F(Content, IsReadAndWrittenWhereOneStands) {
    std::mt19937 random(1);
    std::string model = random_bytes(random, 5000);
    put("f", model);
    fsiFile file;
    for (int round = 0; round < 40; ++round) {
        std::size_t place = 0;
        ASSERT_TRUE(file.Open(at("f").c_str(), fsForWriting));
        for (int step = 0; step < 10; ++step) {
            const int origin = static_cast<int>(random() % 3);
            const std::size_t target = random() % (model.size() + 300);
            const double base = static_cast<double>(origin == 0 ? 0 : origin == 1 ? place : model.size());
            ASSERT_TRUE(file.Seek(static_cast<fsFilePosition>(origin), static_cast<double>(target) - base));
            place = target;
            if (random() % 4 == 0) {
                ASSERT_TRUE(file.Truncate(static_cast<double>(place = random() % 6000)));
                model.resize(place);
            }
            const std::string some = random_bytes(random, random() % 500 + 1);
            unsigned done = 77;
            ASSERT_EQ(file.Write(some.data(), static_cast<unsigned>(some.size()), &done), fsIODone);
            ASSERT_EQ(done, some.size());
            model.resize(std::max(model.size(), place + some.size()));
            model.replace(place, some.size(), some);
            place += some.size();
        }
        ASSERT_TRUE(file.Close());
        ASSERT_TRUE(get("f") == model) << "round " << round;
    }
    ASSERT_TRUE(file.Open(at("f").c_str(), fsForReading));
    std::string read(model.size() + 10, 0);
    unsigned got = 0;
    EXPECT_EQ(file.Read(read.data(), static_cast<unsigned>(read.size()), &got), fsIODone);
    EXPECT_TRUE(read.substr(0, got) == model);
    EXPECT_EQ(file.Read(read.data(), 1, &got), fsIOEnd);
    EXPECT_TRUE(file.Write("x", 0, &got) == fsIOFailed && Error_GetLast() == 5 && !file.Truncate(0));
    EXPECT_FALSE(file.Seek(fsFromStart, -1) || file.Seek(fsFromStart, std::nan("")) ||
                 file.Seek(fsFromStart, 1e126));
    ASSERT_TRUE(file.Open(at("f").c_str(), fsForWriting));  // beyond 4 GiB
    ASSERT_TRUE(file.Seek(fsFromStart, 5e9) && file.Write("end", 3) == fsIODone && file.Seek(fsFromEnd, -3));
    EXPECT_EQ(fshGetSize(at("f").c_str()), 5'000'000'003.0);
}

TEST_F(Content, GoesThroughPipesWhole) {
    ASSERT_EQ(::mkfifo(at("fifo").c_str(), 0600), 0);
    std::mt19937 random(2);
    const std::string sent = random_bytes(random, 300'000);
    std::string read;
    std::thread reader([&] {
        std::ifstream in(at("fifo"), std::ios::binary);
        read.assign(std::istreambuf_iterator<char>(in), {});
    });
    fsiFile file;
    unsigned done = 0;
    EXPECT_TRUE(file.Open(at("fifo").c_str(), fsForWriting));
    EXPECT_EQ(file.Write(sent.data(), static_cast<unsigned>(sent.size()), &done), fsIODone);
    EXPECT_TRUE(file.Close());
    reader.join();
    EXPECT_TRUE(done == sent.size() && read == sent) << done << " " << read.size();
}

TEST_F(Content, IsSharedByReadersOnly) {
    const std::string path = put("f", "x");
    fsiFile first, second;
    for (int modes = 0; modes < 4; ++modes) {
        ASSERT_TRUE(first.Open(path.c_str(), static_cast<fsFileMode>(modes / 2)));
        EXPECT_EQ(second.Open(path.c_str(), static_cast<fsFileMode>(modes % 2)), modes == 0) << modes;
        EXPECT_TRUE(modes == 0 || Error_GetLast() == 32);
        EXPECT_TRUE(first.Close());
        second.Close();
    }
    EXPECT_FALSE(first.Close() || first.Truncate(0) || first.Seek(fsFromStart, 0));
    EXPECT_EQ(Error_GetLast(), 6);
    for (const auto &[name, error] : {std::pair(at("none"), 2), {at("none/f"), 3}, {folder, 5}})
        EXPECT_TRUE(!first.Open(name.c_str(), fsForReading) && Error_GetLast() == error) << name;
}

TEST_F(Content, GetsItsSize) {
    const std::string ten = "0123456789";
    auto set = [&](const char *name, double size) {
        return failure([&] { fsSetFileSize(at(name).c_str(), size); }, folder);
    };
    for (double size : {0.0, 3.0, 10.0, 4096.0, 9000.0, 1e6}) {
        put("f", ten);
        EXPECT_EQ(set("f", size), "");
        std::string expected = ten;
        expected.resize(static_cast<std::size_t>(size));
        EXPECT_TRUE(get("f") == expected) << size;
        struct stat told {};
        EXPECT_EQ(::stat(at("f").c_str(), &told), 0);
        EXPECT_TRUE(size < 1e6 || told.st_blocks * 512 >= 1'000'000) << "zeros that are nowhere";
    }
    EXPECT_EQ(set("new", 700), "");
    EXPECT_EQ(get("new"), std::string(700, '\0'));
    ::mkfifo(at("fifo").c_str(), 0600);
    for (double wrong : {-1.0, std::nan(""), 1e126})
        EXPECT_EQ(set("none", wrong), "XOther fsSetFileSize none");
    EXPECT_FALSE(fshExists(at("none").c_str()));
    EXPECT_EQ(set("fifo", 5), "XOther fsSetFileSize fifo");
    // More than the process may write: no signal, and the file is as before.
    put("f", ten);
    EXPECT_EQ(in_child([&] {
                  const rlimit low{10000, 10000};
                  ::setrlimit(RLIMIT_FSIZE, &low);
                  EXPECT_EQ(set("f", 20000), "XOther fsSetFileSize f");
              }),
              0);
    EXPECT_EQ(get("f"), ten);
}

// As it is told, byte by byte.
int plain_sum(const std::string &bytes, unsigned long long zeros = 0) {
    std::uint32_t sum = 0, folded = 0;
    for (unsigned char c : bytes) {
        sum += c;
        folded ^= c;
    }
    return static_cast<int>(static_cast<std::uint32_t>(bytes.size() + zeros) << 16 | (sum & 0xFF) << 8 |
                            folded);
}

TEST_F(Content, HasAChecksum) {
    auto sum = [&](const std::string &bytes) { return fsCalculateCheckSum(put("f", bytes).c_str()); };
    EXPECT_TRUE(sum("") == 0 && sum("abc") == 0x32660 && sum("\x80") == 0x18080);
    std::mt19937 random(2);
    for (std::size_t size :
         {31, 32, 127, 128, 129, 4095, 40000, 65535, 65536, 262143, 262144, 262145, 1000003}) {
        const std::string bytes = random_bytes(random, size);
        EXPECT_EQ(sum(bytes), plain_sum(bytes)) << size;
    }
    // Holes before, between and behind, up to beyond 4 GiB.
    const off_t end = 4'800'000'001;
    const int file = ::open(at("large").c_str(), O_RDWR | O_CREAT, 0600);
    std::string all;
    for (const off_t place : std::initializer_list<off_t>{1'000'000, 3'000'000'000, 4'700'000'000}) {
        const std::string bytes = random_bytes(random, 70'000);
        ASSERT_EQ(::pwrite(file, bytes.data(), bytes.size(), place), static_cast<ssize_t>(bytes.size()));
        all += bytes;
    }
    ASSERT_EQ(::ftruncate(file, end), 0);
    ::close(file);
    kel::file_progress last{};
    auto keep = [&](const kel::file_progress &now) { last = now; };
    EXPECT_EQ(kel::calculate_check_sum(at("large").c_str(), keep), plain_sum(all, end - all.size()));
    EXPECT_TRUE(last.bytes == 4'800'000'001.0 && last.files == 1);
    ::mkfifo(at("fifo").c_str(), 0600);
    const std::pair<std::string, const char *> refused[] = {
        {at("fifo"), "XOther fsCalculateCheckSum fifo"},
        {"/dev/zero", "XOther fsCalculateCheckSum \\dev\\zero"},
        {at(""), "XNoPermission fsCalculateCheckSum "},
        {"C:\\none", "XDoesNotExist fsCalculateCheckSum C:\\none"}};
    for (const auto &[path, told] : refused)
        EXPECT_EQ(failure([&, at = path] { fsCalculateCheckSum(at.c_str()); }, folder), told);
}

}  // namespace
