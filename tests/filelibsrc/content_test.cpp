// Files as a whole: fsiFile beside a text in memory, sizes beside the disk, checksums beside a plain loop.
#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <stdexcept>
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
    for (unsigned count : {0U, 1U})
        EXPECT_TRUE(file.Write("x", count, &got) == fsIOFailed && Error_GetLast() == 5);
    EXPECT_TRUE(!file.Truncate(0) && Error_GetLast() == 5);
    EXPECT_FALSE(file.Seek(fsFromStart, -1));
    EXPECT_FALSE(file.Seek(fsFromStart, std::nan("")) || file.Seek(fsFromStart, 1e126));
    // Beyond 4 GiB.
    ASSERT_TRUE(file.Open(at("f").c_str(), fsForWriting));
    ASSERT_TRUE(file.Seek(fsFromStart, 5e9) && file.Write("end", 3) == fsIODone && file.Close());
    ASSERT_TRUE(file.Open(at("f").c_str(), fsForReading) && file.Seek(fsFromEnd, -3));
    EXPECT_EQ(file.Read(read.data(), 9, &got), fsIODone);
    EXPECT_EQ(read.substr(0, got), "end");
    EXPECT_EQ(fshGetSize(at("f").c_str()), 5'000'000'003.0);
}

TEST_F(Content, IsSharedByReadersOnly) {
    const std::string path = put("f", "x");
    fsiFile first, second;
    unsigned got = 0;
    char byte;
    for (int modes = 0; modes < 4; ++modes) {
        ASSERT_TRUE(first.Open(path.c_str(), static_cast<fsFileMode>(modes / 2)));
        EXPECT_EQ(second.Open(path.c_str(), static_cast<fsFileMode>(modes % 2)), modes == 0) << modes;
        EXPECT_TRUE(modes == 0 || Error_GetLast() == 32);
        EXPECT_TRUE(first.Close());
        second.Close();
    }
    EXPECT_EQ(first.Read(&byte, 1, &got), fsIOFailed);
    EXPECT_EQ(Error_GetLast(), 6);
    EXPECT_FALSE(first.Close() || first.Truncate(0) || first.Seek(fsFromStart, 0));
    const std::pair<std::string, int> refused[] = {{at("none"), 2}, {at("none/f"), 3}, {folder, 5}, {"", 2}};
    for (const auto &[name, error] : refused) {
        EXPECT_FALSE(first.Open(name.c_str(), fsForReading));
        EXPECT_EQ(Error_GetLast(), error) << name;
    }
    {
        fsiFile forgotten;
        ASSERT_TRUE(forgotten.Open(path.c_str(), fsForWriting));
        Error_SetLast(77);
    }
    EXPECT_EQ(Error_GetLast(), 77);
    ASSERT_TRUE(first.Open("/dev/full", fsForWriting));
    EXPECT_EQ(first.Write("lost", 4, &got), fsIOFailed);
    EXPECT_TRUE(got == 0 && Error_GetLast() == 112);
    // A FIFO is read as it comes, and its lost reader is an error and no signal.
    ASSERT_EQ(::mkfifo(at("fifo").c_str(), 0600), 0);
    std::thread writer([&] {
        fsiFile out;
        EXPECT_TRUE(out.Open(at("fifo").c_str(), fsForWriting));
        while (out.Write("abc", 3) == fsIODone) {
        }
        EXPECT_EQ(Error_GetLast(), 109);
    });
    ASSERT_TRUE(second.Open(at("fifo").c_str(), fsForReading));
    char text[10];
    EXPECT_EQ(second.Read(text, 3, &got), fsIODone);
    EXPECT_EQ(std::string(text, got), "abc");
    EXPECT_TRUE(second.Close());
    writer.join();
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
        EXPECT_GE(static_cast<double>(told.st_blocks) * 512, size == 1e6 ? size : 0)
            << "zeros that are nowhere";
    }
    EXPECT_EQ(set("new", 700), "");
    EXPECT_TRUE(get("new") == std::string(700, '\0'));
    EXPECT_EQ(::truncate(at("new").c_str(), 6'000'000'000), 0);
    EXPECT_EQ(set("new", 5e9), "") << "down, far above 32 bits";
    EXPECT_EQ(fshGetSize(at("new").c_str()), 5e9);
    ::mkfifo(at("fifo").c_str(), 0600);
    for (double wrong : {-1.0, std::nan(""), 1e126, std::numeric_limits<double>::infinity()})
        EXPECT_EQ(set("none", wrong), "XOther fsSetFileSize none");
    EXPECT_FALSE(fshExists(at("none").c_str()));
    EXPECT_EQ(set("", fshGetSize(folder.c_str())), "XNoPermission fsSetFileSize ");
    EXPECT_EQ(set("fifo", 5), "XOther fsSetFileSize fifo");
    EXPECT_EQ(set("none/f", 5), R"(XDoesNotExist fsSetFileSize none\f)");
    // More than the process may write: no signal, and the file is as before.
    struct rlimit before {
    }, low{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    low = {10000, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &low), 0);
    put("f", ten);
    const std::string failed = set("f", 20000);
    ::setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(failed, "XOther fsSetFileSize f");
    EXPECT_EQ(get("f"), ten);
}

// A disk whose content is the file, or "" where this user cannot have one. It goes with the last descriptor.
std::string disk_of(int file, int &held) {
    const int control = ::open("/dev/loop-control", O_RDWR | O_CLOEXEC);
    const std::string path = "/dev/loop" + std::to_string(::ioctl(control, LOOP_CTL_GET_FREE));
    ::close(control);
    held = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    loop_config config{};
    config.fd = static_cast<unsigned>(file);
    config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
    return ::ioctl(held, LOOP_CONFIGURE, &config) == 0 ? path : "";
}

TEST_F(Content, OfADiskIsNotWrittenOver) {
    const std::string bytes(66048, 'd');
    const int file = ::open(put("image", bytes).c_str(), O_RDWR | O_CLOEXEC);
    int held = -1;
    const std::string disk = disk_of(file, held);
    if (!disk.empty()) {
        EXPECT_EQ(failure([&] { fsSetFileSize(disk.c_str(), 8192); }).find("XOther"), 0U);
        EXPECT_EQ(Error_GetLast(), 50);
        EXPECT_EQ(fsCalculateCheckSum(disk.c_str()), 0x2000000);
    }
    ::close(held);
    ::close(file);
    EXPECT_TRUE(get("image") == bytes);
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
    EXPECT_EQ(fsCalculateCheckSum(at("large").c_str()), plain_sum(all, end - all.size()));
    ::mkfifo(at("fifo").c_str(), 0600);
    const std::string fifo = at("fifo"), itself = at("");
    const std::pair<const char *, const char *> refused[] = {
        {fifo.c_str(), "XOther fsCalculateCheckSum fifo"},
        {"/dev/zero", "XOther fsCalculateCheckSum \\dev\\zero"},
        {itself.c_str(), "XNoPermission fsCalculateCheckSum "},
        {"C:\\none", "XDoesNotExist fsCalculateCheckSum C:\\none"},
        {nullptr, "XInvalidPath fsCalculateCheckSum (null)"}};
    for (const auto &[path, told] : refused)
        EXPECT_EQ(failure([&, at = path] { fsCalculateCheckSum(at); }, folder), told);
}

TEST_F(Content, TellsHowFarTheChecksumIs) {
    const std::string bytes(3'000'000, 'x'), path = put("f", bytes);
    std::vector<kel::file_progress> told;
    const auto before = open_descriptors();
    auto slowly = [&](const kel::file_progress &progress) {
        EXPECT_EQ(std::string(progress.path).substr(0, 5), "\\tmp\\");
        told.push_back(progress);
    };
    EXPECT_EQ(kel::calculate_check_sum(path.c_str(), slowly), plain_sum(bytes));
    ASSERT_FALSE(told.empty());
    EXPECT_TRUE(told.back().bytes == 3e6 && told.back().files == 1);
    EXPECT_LE(told.size(), 20U);
    EXPECT_EQ(kel::calculate_check_sum(path.c_str(), nullptr), plain_sum(bytes));
    EXPECT_THROW(kel::calculate_check_sum(path.c_str(), [](auto &) { throw std::runtime_error("stop"); }),
                 std::runtime_error);
    EXPECT_EQ(open_descriptors(), before);
}

}  // namespace
