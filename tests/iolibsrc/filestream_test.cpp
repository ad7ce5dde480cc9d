// Streams of files and of texts in memory beside a std::string, and files against the system: modes, full
// disks, files that cannot seek, positions that an int cannot hold.
#include "iolibsrc/stream_support.h"
#include "scratch_folder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

namespace {

using FileStream = ScratchFolder;
using Owned = std::unique_ptr<ioFileStream>;

Owned open_file(const std::string &path, ioOpenMode mode) {
    return Owned(ioFileStream::Open(path.c_str(), mode));
}
Owned create_file(const std::string &path, ioOpenMode mode, bool overwrite = true) {
    return Owned(ioFileStream::Create(path.c_str(), mode, overwrite));
}

// Reads, trials and writes in any order, in both byte orders; of a file, which has one position for all, also
// seeks and cuts. Answers what the stream holds then.
std::string follow(ioStream &stream, ioFileStream *file, unsigned seed) {
    std::mt19937 random(seed);
    auto below = [&random](std::size_t limit) { return static_cast<std::size_t>(random() % limit); };
    std::string model;
    std::size_t at = 0;
    stream.setSerializer(seed % 2 ? ioSerializer::getBinary() : ioSerializer::getXDR());
    auto unread = [&](std::size_t count) { return at < model.size() ? model.substr(at, count) : ""; };
    auto written = [&](const std::string &bytes) {
        const std::size_t place = file ? at : model.size();
        if (bytes.empty()) return;
        model.resize(std::max(model.size(), place + bytes.size()));
        model.replace(place, bytes.size(), bytes);
        if (file) at += bytes.size();
    };
    for (int step = 0; step < 4000 && !testing::Test::HasFailure(); ++step) {
        SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(step));
        const std::size_t count = below(40) == 0 ? below(150000) : below(50), what = below(file ? 8 : 5);
        if (what == 0) {
            std::string expected = unread(count), got(count, '\0');
            const bool at_end = count > 0 && expected.empty();
            unsigned read = 0;
            EXPECT_EQ(failure([&] { read = stream.ReadBytes(got.data(), static_cast<unsigned>(count)); }),
                      at_end ? "EOF reached" : "");
            EXPECT_TRUE(got.substr(0, read) == expected) << read << " of " << expected.size();
            if (at_end) file ? file->SeekOff(0, ioCur) : stream.setIsFail(false);
            at += read;
        } else if (what == 1) {
            std::string bytes = unread(4);
            EXPECT_EQ(stream.TryReadInt(), bytes.size() == 4 ? ioSuccess : ioEndOfFile);
            if (bytes.size() < 4) continue;
            if (seed % 2 == 0) std::reverse(bytes.begin(), bytes.end());
            const int value = stream.ReadInt();
            EXPECT_EQ(std::memcmp(&value, bytes.data(), 4), 0);
            at += 4;
        } else if (what == 2) {
            const std::string bytes(count, static_cast<char>('a' + below(26)));
            stream.WriteBytes(bytes.data(), static_cast<unsigned>(count));
            written(bytes);
        } else if (what == 3) {
            stream.WriteByte(step);
            written(std::string(1, static_cast<char>(step)));
        } else if (what == 4) {
            const unsigned ahead = stream.PeekNBytes();
            EXPECT_TRUE(file ? (ahead > 0) == (at < model.size()) && ahead <= unread(model.size()).size()
                             : ahead == model.size() - at);
            if (below(2)) stream.Flush();
            if (!file) continue;
            EXPECT_EQ(file->TellPos(), static_cast<int>(at));
            if (below(2)) {
                EXPECT_EQ(file->TellSize(), static_cast<int>(model.size()));
            }
        } else if (what == 5 && below(4) == 0) {
            const bool here = below(2);
            const std::size_t size = here ? at : below(2) ? model.size() / 2 : model.size() + 3000;
            file->Truncate(here ? kel::nil_int : static_cast<int>(size));
            model.resize(size);
        } else if (what > 5) {
            const auto way = static_cast<ioDirection>(below(3));
            const int base = static_cast<int>(way == ioBegin ? 130 : way == ioCur ? at : model.size());
            const int offset = static_cast<int>(below(300)) - 150;
            const bool fits = base + offset >= 0;
            EXPECT_EQ(failure([&] { file->SeekOff(way == ioBegin ? base + offset : offset, way); }),
                      fits ? "" : "I/O error");
            if (fits) at = static_cast<std::size_t>(base + offset);
            if (!fits) stream.setIsBad(false);
        }
        EXPECT_TRUE(stream.getIsGood());
    }
    return file ? model : unread(model.size());
}

TEST_F(FileStream, BehavesAsBytesInMemory) {
    for (unsigned seed = 1; seed <= 6; ++seed) {
        const std::string name = std::to_string(seed);
        Owned stream = create_file(at(name), ioReadWrite, false);
        const std::string expected = follow(*stream, stream.get(), seed);
        stream->Close();
        EXPECT_TRUE(stream->getIsGood() && get(name) == expected) << "seed " << seed;
        const std::unique_ptr<ioStringStream> memory(ioStringStream::Create());
        const std::string rest = follow(*memory, nullptr, seed);
        EXPECT_TRUE(drain(*memory) == rest) << "seed " << seed;
    }
}

// Opening --------------------------------------------------------------------------------------

TEST_F(FileStream, OpensByMode) {
    for (ioOpenMode mode : {ioReadOnly, ioWriteOnly, ioReadWrite}) {
        const bool reads = mode != ioWriteOnly, writes = mode != ioReadOnly;
        for (const std::string &none : {at("missing"), folder, std::string()})
            EXPECT_EQ(open_file(none, mode), nullptr) << none;
        for (bool create : {false, true}) {
            put("old bytes");
            EXPECT_EQ(create_file(path, mode, false), nullptr);
            Owned stream = create ? create_file(path, mode) : open_file(path, mode);
            EXPECT_TRUE(stream->getCanRead() == reads && stream->getCanWrite() == writes);
            EXPECT_EQ(get(), reads ? "old bytes" : "") << "only writing alone empties the file";
        }
        ::unlink(path.c_str());
        EXPECT_NE(create_file(path, mode, false), nullptr);
    }
    EXPECT_EQ(create_file(path, static_cast<ioOpenMode>(3)), nullptr);
    EXPECT_EQ(files(), 1) << "opening made a file";
}

TEST_F(FileStream, ReadsAndWritesTextAtOnePosition) {
    put("10 20 30 40 ");
    Owned stream = open_file(path, ioReadWrite);
    EXPECT_EQ(stream->ReadInt(), 10);
    stream->WriteString(" 77");
    EXPECT_EQ(stream->ReadInt(), 30);
    stream->WriteString(" end\n");
    EXPECT_EQ(stream->TellSize(), 13);
    EXPECT_EQ(get(), "10 77 30 end\n");
    stream->SeekOff(-4, ioEnd);
    EXPECT_EQ(failure([&] { stream->ReadInt(); }), "conversion error");
    stream->SeekOff(1, ioBegin);
    EXPECT_TRUE(stream->getIsFail()) << "a seek forgives the end of the data only";
    stream->setIsFail(false);
    EXPECT_EQ(stream->TryReadString("x"), ioSuccess) << "the data's end ends a text";
    EXPECT_TRUE(std::unique_ptr<ioEvent>(stream->InputEvent())->Wait(0.0))
        << "it always has input, or its end";
    stream->Close();
    const std::function<void()> refused[] = {[&] { stream->SeekOff(0, ioBegin); }, [&] { stream->TellPos(); },
                                             [&] { stream->TellSize(); }, [&] { stream->Truncate(0); },
                                             [&] { stream->GetInheritHandle(); }};
    for (auto &action : refused)
        EXPECT_EQ(failure(action), "stream not open");
    EXPECT_EQ(failure([&] { open_file(path, ioReadOnly)->Truncate(0); }), "output denied");
}

// The system -----------------------------------------------------------------------------------

TEST_F(FileStream, AFullDiskIsTold) {
    if (::access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full here";
    const std::string large(200000, 'x');
    std::unique_ptr<ioStringStream> source(ioStringStream::Create(large.c_str()));
    const std::pair<const char *, std::function<void(ioFileStream &)>> cases[] = {
        {"", [](ioFileStream &to) { to.Close(); }},
        {"", [](ioFileStream &to) { to.TellSize(); }},
        {"I/O error", [](ioFileStream &to) { to.SeekOff(5, ioBegin); }},
        {"I/O error", [&](ioFileStream &to) { to.WriteBytes(large.data(), 200000); }},
        {"I/O error", [&](ioFileStream &to) { to.ReadStream(source.get()); }},
    };
    for (const auto &[message, action] : cases) {
        Owned stream = open_file("/dev/full", ioReadWrite);
        stream->WriteInt(1);
        EXPECT_TRUE(stream->getIsGood()) << "it waits in the buffer";
        EXPECT_EQ(failure([&, act = action] { act(*stream); }, stream.get()), message);
        EXPECT_TRUE(stream->getIsBad());
    }
    EXPECT_TRUE(source->getIsGood());
}

TEST_F(FileStream, WhatCannotSeekIsReadInOrder) {
    ASSERT_EQ(::mkfifo((folder + "/fifo").c_str(), 0600), 0);
    std::thread writer([&] {
        Owned to = open_file(folder + "/fifo", ioWriteOnly);
        to->WriteString("12 34 ");
        EXPECT_EQ(to->TellPos(), -1);
    });
    Owned from = open_file(folder + "/fifo", ioReadOnly);
    EXPECT_EQ(from->TryReadInt(), ioNotSupported) << "there would be no way back";
    EXPECT_EQ(from->ReadInt(), 12);
    EXPECT_EQ(failure([&] { from->SeekOff(0, ioBegin); }), "I/O error");
    from->setIsBad(false);
    EXPECT_EQ(from->ReadInt(), 34);
    writer.join();
}

TEST_F(FileStream, PositionsBeyondAnInt) {
    Owned stream = create_file(path, ioReadWrite);
    stream->SeekOff(INT_MAX, ioBegin);
    EXPECT_EQ(stream->TellPos(), INT_MAX);
    stream->SeekOff(INT_MAX, ioCur);
    EXPECT_EQ(stream->TellPos(), -1);
    EXPECT_TRUE(stream->getIsGood());
    stream->Truncate(kel::nil_int);
    EXPECT_EQ(std::filesystem::file_size(path), 2ULL * INT_MAX);
    stream->WriteString("X");
    EXPECT_EQ(stream->TellSize(), -1);
    stream->SeekOff(-1, ioEnd);
    EXPECT_EQ(stream->ReadByte(), 'X');
}

TEST_F(FileStream, AHandleForAChild) {
    const std::string moving = put("in/file", "abcdef");
    for (auto [mode, access] :
         {std::pair(ioReadWrite, O_RDWR), {ioReadOnly, O_RDONLY}, {ioWriteOnly, O_WRONLY}}) {
        Owned stream = open_file(moving, mode);
        std::filesystem::rename(at("in"), at("away"));
        EXPECT_EQ(stream->GetInheritHandle(), -1);
        EXPECT_TRUE(stream->getIsGood());
        std::filesystem::rename(at("away"), at("in"));
        int handle = stream->GetInheritHandle();
        ASSERT_GE(handle, 0) << "the next call tries again";
        EXPECT_EQ(stream->GetInheritHandle(), handle);
        EXPECT_EQ(::fcntl(handle, F_GETFL) & O_ACCMODE, access);
        EXPECT_EQ(::lseek(handle, 3, SEEK_CUR), 3);
        EXPECT_EQ(stream->TellPos(), 0) << "it has a position of its own";
        stream->Close();
        EXPECT_EQ(::fcntl(handle, F_GETFD), -1) << "closed with the stream";
    }
}

// Texts in memory -----------------------------------------------------------------------------

TEST(StringStream, HasAnEndThatIsNotTheEndForEver) {
    const std::unique_ptr<ioStringStream> stream(ioStringStream::Create());
    EXPECT_TRUE(text_of(stream->getStr()).empty() && !stream->getStr().IsNull());
    stream->WriteString("abc def");
    EXPECT_EQ(text_of(stream->ReadString(" ")), "abc");
    stream->WriteString("ghi\n");
    EXPECT_EQ(text_of(stream->ReadString()), "defghi");
    EXPECT_EQ(failure([&] { stream->ReadInt(); }), "EOF reached");
    EXPECT_EQ(failure([&] { stream->getStr(); }), "EOF reached");
    stream->setIsFail(false);
    stream->WriteBytes("x\0y", 3);
    EXPECT_EQ(stream->ReadByte(), 'x');
    EXPECT_EQ(text_of(stream->getStr()), "abc defghi\nx") << "up to the first NUL";
    stream->Close();
    EXPECT_EQ(failure([&] { stream->getStr(); }), "stream not open");
}

TEST(StringStream, OverATextIsReadOnly) {
    std::string text = "12";
    const std::unique_ptr<ioStringStream> stream(ioStringStream::Create(text.c_str())),
        nothing(ioStringStream::Create("")), unset(ioStringStream::Create(kel::uninit_text()));
    EXPECT_TRUE(!nothing->getCanWrite() && unset->getCanWrite());
    text = "!!";
    EXPECT_EQ(failure([&] { stream->getStr(); }), "output denied");
    EXPECT_EQ(text_of(stream->ReadString()), "12");
    EXPECT_EQ(stream->TryReadString(), ioEndOfFile);
}

}  // namespace
