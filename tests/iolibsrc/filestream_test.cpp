// File streams beside plain system calls on a second file, and against the system: modes, full disks,
// files that cannot seek, positions that an int cannot hold.
#include "iolibsrc/stream_support.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

namespace {

using Owned = std::unique_ptr<ioFileStream>;

Owned open_file(const std::string &path, ioOpenMode mode) {
    return Owned(ioFileStream::Open(path.c_str(), mode));
}
Owned create_file(const std::string &path, ioOpenMode mode, bool overwrite = true) {
    return Owned(ioFileStream::Create(path.c_str(), mode, overwrite));
}

// The oracle: one descriptor, its own position, no buffer.
class System {
public:
    explicit System(const std::string &path) : m_fd(::open(path.c_str(), O_RDWR | O_CREAT, 0600)) {}
    ~System() { ::close(m_fd); }
    System(const System &) = delete;
    System &operator=(const System &) = delete;

    std::string read(std::size_t count) {
        std::string bytes(count, '\0');
        bytes.resize(static_cast<std::size_t>(::read(m_fd, bytes.data(), count)));
        return bytes;
    }
    std::string peek(std::size_t count) {
        std::string bytes = read(count);
        seek(-static_cast<off_t>(bytes.size()), SEEK_CUR);
        return bytes;
    }
    void write(const void *bytes, std::size_t count) {
        ASSERT_EQ(::write(m_fd, bytes, count), static_cast<ssize_t>(count));
    }
    off_t seek(off_t offset, int whence) { return ::lseek(m_fd, offset, whence); }
    off_t at() { return seek(0, SEEK_CUR); }
    void truncate(off_t size) { ASSERT_EQ(::ftruncate(m_fd, size), 0); }
    off_t size() {
        struct stat node {};
        ::fstat(m_fd, &node);
        return node.st_size;
    }

private:
    int m_fd;
};

struct Rehearsal {
    Rehearsal(const Folder &folder, unsigned seed) : random(seed), system(folder / "system") {
        ::unlink((folder / "stream").c_str());
        stream = create_file(folder / "stream", ioReadWrite, false);
        stream->setSerializer(seed % 2 ? ioSerializer::getBinary() : ioSerializer::getXDR());
        system.truncate(0);
    }
    std::size_t below(std::size_t limit) { return random() % limit; }
    std::size_t some() { return below(40) == 0 ? below(150000) : below(50); }

    void read() {
        std::size_t count = some();
        std::string expected = system.read(count), got(count, '\0');
        bool at_end = count > 0 && expected.empty();
        unsigned read = 0;
        EXPECT_EQ(failure([&] { read = stream->ReadBytes(got.data(), static_cast<unsigned>(count)); }),
                  at_end ? "EOF reached" : "");
        got.resize(read);
        ASSERT_TRUE(got == expected) << got.size() << " of " << expected.size();
        EXPECT_EQ(stream->getIsEof(), at_end);
        if (at_end) stream->SeekOff(0, ioCur);
    }
    void read_int() {
        std::string bytes = system.peek(4);
        if (bytes.size() == 4) system.read(4);
        EXPECT_EQ(stream->TryReadInt(), bytes.size() == 4 ? ioSuccess : ioEndOfFile);
        if (bytes.size() < 4) return;
        int expected;
        std::memcpy(&expected, bytes.data(), 4);
        if (stream->getSerializer() == ioSerializer::getXDR())
            expected = static_cast<int>(__builtin_bswap32(static_cast<unsigned>(expected)));
        ASSERT_EQ(stream->ReadInt(), expected);
    }
    void write() {
        std::string bytes(some(), static_cast<char>('a' + below(26)));
        stream->WriteBytes(bytes.data(), static_cast<unsigned>(bytes.size()));
        system.write(bytes.data(), bytes.size());
    }
    void write_real() {
        auto value = static_cast<double>(random());
        auto bits = std::bit_cast<std::uint64_t>(value);
        if (stream->getSerializer() == ioSerializer::getXDR()) bits = __builtin_bswap64(bits);
        stream->WriteReal(value);
        system.write(&bits, 8);
    }
    void seek() {
        constexpr struct {
            ioDirection direction;
            int whence;
        } ways[] = {{ioBegin, SEEK_SET}, {ioCur, SEEK_CUR}, {ioEnd, SEEK_END}};
        const auto &way = ways[below(3)];
        int offset = static_cast<int>(below(300)) - (way.whence == SEEK_SET ? 20 : 150);
        off_t expected = system.seek(offset, way.whence);
        EXPECT_EQ(failure([&] { stream->SeekOff(offset, way.direction); }), expected < 0 ? "I/O error" : "");
        if (expected >= 0) return;
        EXPECT_TRUE(stream->getIsBad());
        stream->setIsBad(false);
    }
    void truncate() {
        auto size = static_cast<int>(below(2) ? system.size() / 2 : system.size() + 3000);
        bool here = below(2);
        stream->Truncate(here ? kel::nil_int : size);
        system.truncate(here ? system.at() : size);
    }
    void look() {
        ASSERT_EQ(stream->TellPos(), system.at());
        std::size_t left =
            system.size() > system.at() ? static_cast<std::size_t>(system.size() - system.at()) : 0;
        EXPECT_EQ(stream->PeekNBytes() > 0, left > 0);
        EXPECT_LE(stream->PeekNBytes(), left);
        if (below(2)) stream->Flush();
        if (below(2)) {
            ASSERT_EQ(stream->TellSize(), system.size());
        }
    }
    void step() {
        switch (below(10)) {
            case 0:
            case 1:
                return read();
            case 2:
                return read_int();
            case 3:
            case 4:
                return write();
            case 5:
                return write_real();
            case 6:
            case 7:
                return seek();
            case 8:
                if (below(4) == 0) truncate();
                return;
            default:
                return look();
        }
    }

    std::mt19937 random;
    System system;
    Owned stream;
};

TEST(FileStream, BehavesAsSystemCallsDo) {
    Folder folder;
    for (unsigned seed = 1; seed <= 6; ++seed) {
        Rehearsal rehearsal(folder, seed);
        for (int step = 0; step < 4000; ++step) {
            rehearsal.step();
            ASSERT_TRUE(rehearsal.stream->getIsGood() && !testing::Test::HasFailure())
                << "seed " << seed << ", step " << step;
        }
        ASSERT_EQ(rehearsal.stream->TellPos(), rehearsal.system.at());
        rehearsal.stream->Close();
        ASSERT_TRUE(rehearsal.stream->getIsGood());
        ASSERT_TRUE(get_file(folder / "stream") == get_file(folder / "system")) << "seed " << seed;
    }
}

// Opening --------------------------------------------------------------------------------------

TEST(FileStream, OpensByMode) {
    Folder folder;
    ASSERT_EQ(::mkdir((folder / "folder").c_str(), 0700), 0);
    std::string path = folder / "file";
    for (ioOpenMode mode : {ioReadOnly, ioWriteOnly, ioReadWrite}) {
        bool reads = mode != ioWriteOnly, writes = mode != ioReadOnly;
        EXPECT_EQ(open_file(folder / "missing", mode), nullptr);
        EXPECT_NE(::access((folder / "missing").c_str(), F_OK), 0) << "opening made a file";
        EXPECT_EQ(open_file(folder / "folder", mode), nullptr);
        EXPECT_EQ(create_file(folder / "folder", mode, true), nullptr);
        EXPECT_EQ(create_file(folder / "missing/file", mode, true), nullptr);
        put_file(path, "old bytes");
        EXPECT_EQ(create_file(path, mode, false), nullptr);
        EXPECT_EQ(get_file(path), "old bytes");
        for (bool create : {false, true}) {
            put_file(path, "old bytes");
            Owned stream = create ? create_file(path, mode, true) : open_file(path, mode);
            ASSERT_NE(stream, nullptr);
            EXPECT_EQ(stream->getCanRead(), reads);
            EXPECT_EQ(stream->getCanWrite(), writes);
            EXPECT_EQ(stream->getSerializer(), ioSerializer::getAscii());
            EXPECT_EQ(text_of(stream->getPath()), path);
            EXPECT_EQ(get_file(path), reads ? "old bytes" : "") << "only writing alone empties the file";
            EXPECT_EQ(failure([&] { stream->ReadString(); }), reads ? "" : "input denied");
            EXPECT_EQ(failure([&] { stream->WriteInt(7); }), writes ? "" : "output denied");
            xobject *object = stream.get();
            EXPECT_EQ(text_of(object->lookupfield("Path").getstring()), path);
            EXPECT_EQ(ioFileStream::cast(object), stream.get());
            EXPECT_EQ(static_cast<ioStream *>(ioStream::cast(object)), stream.get());
        }
        ::unlink(path.c_str());
        Owned made = create_file(path, mode, false);
        ASSERT_NE(made, nullptr);
        EXPECT_EQ(get_file(path), "");
        ::unlink(path.c_str());
    }
    EXPECT_EQ(ioFileStream::Open(nullptr, ioReadOnly), nullptr);
    EXPECT_EQ(ioFileStream::Open(xstrNullStr, ioReadOnly), nullptr);
    EXPECT_EQ(ioFileStream::Open("", ioReadOnly), nullptr);
    EXPECT_EQ(ioFileStream::Create(path.c_str(), static_cast<ioOpenMode>(3), true), nullptr);
    EXPECT_NE(::access(path.c_str(), F_OK), 0);
}

TEST(FileStream, OfManyCreatorsOneWins) {
    Folder folder;
    for (int round = 0; round < 50; ++round) {
        std::string path = folder / std::to_string(round);
        std::atomic<int> made{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                if (create_file(path, ioReadWrite, false)) ++made;
            });
        }
        for (auto &thread : threads)
            thread.join();
        ASSERT_EQ(made, 1);
    }
}

// Values ---------------------------------------------------------------------------------------

TEST(FileStream, ReadsAndWritesAtOnePosition) {
    Folder folder;
    std::string path = folder / "file";
    put_file(path, "10 20 30 40 ");
    Owned stream = open_file(path, ioReadWrite);
    EXPECT_EQ(stream->ReadInt(), 10);
    stream->WriteString(" 77");
    EXPECT_EQ(stream->ReadInt(), 30);
    EXPECT_EQ(stream->ReadInt(), 40);
    stream->WriteString(" end\n");
    EXPECT_EQ(stream->TellSize(), 16);
    EXPECT_EQ(get_file(path), "10 77 30 40 end\n");
    EXPECT_EQ(failure([&] { stream->ReadInt(); }), "EOF reached");
    EXPECT_EQ(failure([&] { stream->ReadInt(); }), "EOF reached");
    stream->SeekOff(-4, ioEnd);
    EXPECT_TRUE(stream->getIsGood());
    EXPECT_EQ(failure([&] { stream->ReadInt(); }), "conversion error");
    stream->SeekOff(0, ioBegin);
    EXPECT_TRUE(stream->getIsFail()) << "a seek forgives the end of the data only";
    stream->setIsFail(false);
    EXPECT_EQ(text_of(stream->ReadString(" ")), "10");
    EXPECT_EQ(stream->ReadInt(), 77);
    stream->Truncate(kel::nil_int);
    EXPECT_EQ(get_file(path), "10 77");
    stream->Truncate(1);
    EXPECT_EQ(get_file(path), "1");
    EXPECT_EQ(stream->TellPos(), 5);
    stream->Truncate(-5);
    EXPECT_TRUE(stream->getIsGood());
    EXPECT_EQ(get_file(path), "1");
    stream->WriteString("!");
    stream->Close();
    EXPECT_EQ(get_file(path), std::string("1\0\0\0\0!", 6));
    EXPECT_EQ(failure([&] { stream->SeekOff(0, ioBegin); }), "stream not open");
    EXPECT_EQ(failure([&] { stream->TellPos(); }), "stream not open");
    EXPECT_EQ(failure([&] { stream->TellSize(); }), "stream not open");
    EXPECT_EQ(failure([&] { stream->Truncate(0); }), "stream not open");
    EXPECT_EQ(failure([&] { stream->GetInheritHandle(); }), "stream not open");
    Owned reader = open_file(path, ioReadOnly);
    EXPECT_EQ(failure([&] { reader->Truncate(0); }), "output denied");
    EXPECT_EQ(get_file(path).size(), 6U);
}

TEST(FileStream, TrialsMoveNothing) {
    Folder folder;
    std::string path = folder / "file", text(70000, 'x');
    put_file(path, "12 abc T " + text);
    Owned stream = open_file(path, ioReadWrite);
    EXPECT_GE(stream->PeekNBytes(), 9U);
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(stream->TryReadString("x"), ioSuccess);
        EXPECT_EQ(stream->TryReadInt(), ioSuccess);
        EXPECT_EQ(stream->TryReadBool(), ioFormatError);
        EXPECT_EQ(stream->TellPos(), 0);
    }
    EXPECT_EQ(stream->ReadInt(), 12);
    EXPECT_EQ(stream->TryReadReal(), ioFormatError);
    EXPECT_EQ(text_of(stream->ReadString(" ")), "abc");
    EXPECT_EQ(stream->TryReadBool(), ioSuccess);
    EXPECT_EQ(stream->ReadBool(), 1);
    EXPECT_EQ(stream->TryReadString(), ioSuccess) << "the data's end ends a text";
    EXPECT_EQ(text_of(stream->ReadString()), text);
    EXPECT_EQ(stream->TryReadByte(), ioEndOfFile);
    EXPECT_TRUE(stream->getIsGood());
    EXPECT_EQ(stream->PeekNBytes(), 0U);
    std::unique_ptr<ioEvent> event(stream->InputEvent());
    EXPECT_TRUE(event->Wait(0.0)) << "a file always has input, or its end";
    EXPECT_EQ(stream->OutputEvent(), nullptr);
    EXPECT_EQ(stream->TryWriteInt(1), ioNotSupported);
    // Bytes written and not yet in the file are seen by a trial, and survive it.
    stream->WriteString(" 5 ");
    stream->SeekOff(-3, ioCur);
    EXPECT_EQ(stream->TryReadInt(), ioSuccess);
    EXPECT_EQ(stream->ReadInt(), 5);
}

// The system -----------------------------------------------------------------------------------

TEST(FileStream, AFullDiskIsTold) {
    if (::access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full here";
    Owned stream = open_file("/dev/full", ioWriteOnly);
    stream->WriteInt(1);
    EXPECT_TRUE(stream->getIsGood()) << "it waits in the buffer";
    EXPECT_EQ(stream->Flush(), nullptr);
    EXPECT_TRUE(stream->getIsBad());
    EXPECT_EQ(failure([&] { stream->WriteInt(1); }), "I/O error");
    stream->Close();
    EXPECT_TRUE(stream->getIsBad());

    Owned closed = open_file("/dev/full", ioWriteOnly);
    closed->WriteInt(1);
    closed->Close();
    EXPECT_TRUE(closed->getIsBad());

    Owned sized = open_file("/dev/full", ioReadWrite);
    sized->WriteInt(1);
    sized->TellSize();
    EXPECT_TRUE(sized->getIsBad());

    Owned sought = open_file("/dev/full", ioReadWrite);
    sought->WriteInt(1);
    EXPECT_EQ(failure([&] { sought->SeekOff(5, ioBegin); }), "I/O error");

    std::string large(200000, 'x');
    Owned written = open_file("/dev/full", ioWriteOnly);
    EXPECT_EQ(failure([&] { written->WriteBytes(large.data(), 200000); }), "I/O error");
    Owned typed = open_file("/dev/full", ioWriteOnly);
    std::string message;
    for (int i = 0; i < 100000 && message.empty(); ++i)
        message = failure([&] { typed->WriteInt(i); });
    EXPECT_EQ(message, "I/O error");

    std::unique_ptr<ioStringStream> source(ioStringStream::Create(large.c_str()));
    Owned target = open_file("/dev/full", ioWriteOnly);
    EXPECT_EQ(failure([&] { CopyStream(target.get(), source.get()); }, target.get()), "I/O error");
    EXPECT_TRUE(target->getIsBad() && source->getIsGood());
    std::unique_ptr<ioStringStream> small(ioStringStream::Create("abc"));
    Owned late = open_file("/dev/full", ioWriteOnly);
    late->ReadStream(small.get());
    late->Flush();
    EXPECT_TRUE(late->getIsBad());
}

TEST(FileStream, WhatCannotSeekIsReadInOrder) {
    Folder folder;
    std::string path = folder / "fifo";
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    std::thread writer([&] {
        Owned to = open_file(path, ioWriteOnly);
        to->WriteString("12 34 ");
        EXPECT_EQ(to->TellPos(), -1);
    });
    Owned from = open_file(path, ioReadOnly);
    EXPECT_EQ(from->TryReadInt(), ioNotSupported) << "there would be no way back";
    EXPECT_EQ(from->ReadInt(), 12);
    EXPECT_EQ(failure([&] { from->SeekOff(0, ioBegin); }), "I/O error");
    from->setIsBad(false);
    EXPECT_EQ(from->PeekNBytes(), 4U);
    EXPECT_EQ(from->ReadInt(), 34);
    writer.join();
    EXPECT_EQ(failure([&] { from->ReadInt(); }), "EOF reached");
}

TEST(FileStream, PositionsBeyondAnInt) {
    Folder folder;
    std::string path = folder / "file";
    Owned stream = create_file(path, ioReadWrite);
    stream->SeekOff(INT_MAX, ioBegin);
    EXPECT_EQ(stream->TellPos(), INT_MAX);
    stream->SeekOff(INT_MAX, ioCur);
    EXPECT_EQ(stream->TellPos(), -1);
    EXPECT_TRUE(stream->getIsGood());
    stream->Truncate(kel::nil_int);
    struct stat node {};
    ASSERT_EQ(::stat(path.c_str(), &node), 0);
    EXPECT_EQ(node.st_size, 2LL * INT_MAX);
    stream->WriteString("X");
    EXPECT_EQ(stream->TellSize(), -1);
    stream->SeekOff(-1, ioEnd);
    char byte = 0;
    EXPECT_EQ(stream->ReadBytes(&byte, 1), 1U);
    EXPECT_EQ(byte, 'X');
    stream->SeekOff(0, ioBegin);
    stream->SeekOff(-1, ioEnd);
    stream->Truncate(INT_MAX);
    EXPECT_EQ(stream->TellSize(), INT_MAX);
}

TEST(FileStream, AHandleForAChild) {
    Folder folder;
    ASSERT_EQ(::mkdir((folder / "in").c_str(), 0700), 0);
    std::string path = folder / "in/file";
    put_file(path, "abcdef");
    constexpr struct {
        ioOpenMode mode;
        int access;
    } modes[] = {{ioReadOnly, O_RDONLY}, {ioWriteOnly, O_WRONLY}, {ioReadWrite, O_RDWR}};
    for (auto [mode, access] : modes) {
        Owned stream = open_file(path, mode);
        int handle = stream->GetInheritHandle();
        ASSERT_GE(handle, 0);
        EXPECT_EQ(stream->GetInheritHandle(), handle);
        EXPECT_EQ(::fcntl(handle, F_GETFL) & O_ACCMODE, access);
        struct stat own {
        }, file{};
        ::fstat(handle, &own);
        ::stat(path.c_str(), &file);
        EXPECT_EQ(own.st_ino, file.st_ino);
        EXPECT_EQ(::lseek(handle, 3, SEEK_CUR), 3);
        EXPECT_EQ(stream->TellPos(), 0) << "it has a position of its own";
        stream->Close();
        EXPECT_EQ(::fcntl(handle, F_GETFD), -1) << "closed with the stream";
    }
    Owned stream = open_file(path, ioReadWrite);
    ASSERT_EQ(::rename((folder / "in").c_str(), (folder / "away").c_str()), 0);
    EXPECT_EQ(stream->GetInheritHandle(), -1);
    EXPECT_TRUE(stream->getIsGood());
    ASSERT_EQ(::rename((folder / "away").c_str(), (folder / "in").c_str()), 0);
    EXPECT_GE(stream->GetInheritHandle(), 0) << "the next call tries again";
}

TEST(FileStream, CopiesBetweenFiles) {
    Folder folder;
    std::string bytes(300001, '\0');
    std::mt19937 random(5);
    for (char &byte : bytes)
        byte = static_cast<char>(random());
    put_file(folder / "from", bytes);
    Owned from = open_file(folder / "from", ioReadOnly), to = create_file(folder / "to", ioWriteOnly);
    from->SeekOff(1, ioBegin);
    to->ReadStream(from.get());
    EXPECT_TRUE(from->getIsGood());
    EXPECT_EQ(from->TellPos(), 300001);
    EXPECT_EQ(to->TellPos(), 300000);
    to->Close();
    EXPECT_TRUE(get_file(folder / "to") == bytes.substr(1));
}

}  // namespace
