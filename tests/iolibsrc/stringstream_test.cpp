// Texts in memory beside a std::string that is appended to and read from the front.
#include "iolibsrc/stream_support.h"

#include <random>

namespace {

using Owned = std::unique_ptr<ioStringStream>;

Owned empty() {
    return Owned(ioStringStream::Create());
}

TEST(StringStream, IsWrittenReadBackAndAskedFor) {
    Owned stream = empty();
    EXPECT_TRUE(stream->getCanRead() && stream->getCanWrite());
    EXPECT_EQ(stream->getSerializer(), ioSerializer::getAscii());
    EXPECT_EQ(text_of(stream->getStr()), "");
    EXPECT_FALSE(stream->getStr().IsNull());
    EXPECT_EQ(stream->PeekNBytes(), 0U);
    EXPECT_EQ(stream->TryReadInt(), ioEndOfFile);
    stream->WriteString("abc");
    EXPECT_EQ(text_of(stream->getStr()), "abc");
    stream->WriteString(" def");
    EXPECT_EQ(text_of(stream->getStr()), "abc def");
    EXPECT_EQ(stream->PeekNBytes(), 7U);
    EXPECT_EQ(text_of(stream->ReadString(" ")), "abc");
    stream->WriteString("ghi\n");
    EXPECT_EQ(stream->TryReadString(), ioSuccess);
    EXPECT_EQ(text_of(stream->ReadString()), "defghi");
    stream->WriteInt(-42);
    EXPECT_EQ(text_of(stream->getStr()), "abc defghi\n-42") << "reading takes nothing away";
    EXPECT_EQ(stream->InputEvent(), nullptr);
    EXPECT_EQ(stream->OutputEvent(), nullptr);
    EXPECT_EQ(stream->TryWriteInt(1), ioNotSupported);
    EXPECT_EQ(stream->Flush(), nullptr);
    EXPECT_EQ(failure([&] { stream->ReadInt(); }), "EOF reached");
    EXPECT_EQ(failure([&] { stream->getStr(); }), "EOF reached");
    stream->setIsFail(false);
    stream->WriteByte('x');
    EXPECT_EQ(stream->ReadByte(), 'x') << "the end is not the end for ever";
    xobject *object = stream.get();
    EXPECT_STREQ(object->gettypename(), "iolib::StringStream");
    EXPECT_EQ(ioStringStream::cast(object), stream.get());
    EXPECT_STREQ(object->lookupfield("Str").getstring(), "abc defghi\n-42x");
    stream->Close();
    EXPECT_EQ(failure([&] { stream->getStr(); }), "stream not open");
    EXPECT_TRUE(stream->getIsGood());
}

TEST(StringStream, OverATextIsReadOnly) {
    std::string text = "12 T ab";
    Owned stream(ioStringStream::Create(text.c_str()));
    text.assign(7, '!');
    EXPECT_TRUE(stream->getCanRead() && !stream->getCanWrite());
    EXPECT_EQ(failure([&] { stream->getStr(); }), "output denied");
    EXPECT_EQ(failure([&] { stream->WriteString("x"); }), "output denied");
    EXPECT_EQ(failure([&] { stream->lookupfield("Str"); }), "output denied");
    EXPECT_EQ(stream->PeekNBytes(), 7U);
    EXPECT_EQ(stream->TryReadInt(), ioSuccess);
    EXPECT_EQ(stream->ReadInt(), 12);
    EXPECT_EQ(stream->ReadBool(), 1);
    EXPECT_EQ(text_of(stream->ReadString()), "ab");
    EXPECT_EQ(stream->TryReadString(), ioEndOfFile);
    EXPECT_EQ(failure([&] { stream->ReadString(); }), "EOF reached");
    Owned nothing(ioStringStream::Create("")), null(ioStringStream::Create(nullptr)),
        unset(ioStringStream::Create(kel::uninit_text()));
    EXPECT_FALSE(nothing->getCanWrite());
    EXPECT_EQ(failure([&] { nothing->ReadByte(); }), "EOF reached");
    EXPECT_TRUE(null->getCanWrite() && unset->getCanWrite());
}

TEST(StringStream, BehavesAsBytesInMemory) {
    for (unsigned seed = 1; seed <= 5; ++seed) {
        std::mt19937 random(seed);
        std::string model;
        std::size_t at = 0;
        Owned stream = empty();
        stream->setSerializer(ioSerializer::getBinary());
        for (int step = 0; step < 4000; ++step) {
            std::size_t count = random() % 100 == 0 ? random() % 60000 : random() % 20;
            switch (random() % 6) {
                case 0: {
                    std::string bytes(count, static_cast<char>('a' + random() % 26));
                    stream->WriteBytes(bytes.data(), static_cast<unsigned>(count));
                    model += bytes;
                    break;
                }
                case 1:
                    stream->WriteByte(static_cast<int>(step));
                    model += static_cast<char>(step);
                    break;
                case 2: {
                    std::string expected = model.substr(at, count), got(count, '\0');
                    unsigned read = 0;
                    EXPECT_EQ(
                        failure([&] { read = stream->ReadBytes(got.data(), static_cast<unsigned>(count)); }),
                        expected.empty() && count > 0 ? "EOF reached" : "");
                    stream->setIsBad(false);
                    got.resize(read);
                    ASSERT_EQ(got, expected);
                    at += read;
                    break;
                }
                case 3:
                    ASSERT_EQ(stream->PeekNBytes(), model.size() - at);
                    ASSERT_EQ(stream->TryReadReal(), model.size() - at >= 8 ? ioSuccess : ioEndOfFile);
                    break;
                case 4:
                    if (at == model.size()) break;
                    ASSERT_EQ(stream->ReadByte(), static_cast<signed char>(model[at]));
                    ++at;
                    break;
                default:
                    if (random() % 20 == 0) {
                        ASSERT_TRUE(text_of(stream->getStr()) == model.c_str()) << "up to the first NUL";
                    }
            }
        }
        ASSERT_TRUE(drain(*stream) == model.substr(at));
    }
}

TEST(StringStream, GrowsInProportion) {
    Owned stream = empty();
    for (int i = 0; i < 5000000; ++i)
        stream->WriteByte('a' + i % 26);
    std::string text = text_of(stream->getStr());
    ASSERT_EQ(text.size(), 5000000U);
    EXPECT_EQ(text.substr(26 * 1000, 4), "abcd");
    EXPECT_EQ(stream->PeekNBytes(), 5000000U);
}

// The buffer by itself, with the calls of std::streambuf that the streams do not make.
TEST(StringStream, ItsBufferIsAStreambuf) {
    xstringbuf buffer;
    EXPECT_EQ(buffer.GetData(), nullptr);
    EXPECT_EQ(buffer.sgetc(), -1);
    EXPECT_EQ(buffer.sputc('a'), 'a');
    EXPECT_EQ(buffer.sputn("bc", 2), 2);
    EXPECT_EQ(buffer.sputn("bc", 0), 0);
    EXPECT_EQ(buffer.sbumpc(), 'a');
    EXPECT_EQ(buffer.sungetc(), 'a');
    EXPECT_EQ(buffer.sputc('d'), 'd');
    char bytes[9];
    EXPECT_EQ(buffer.sgetn(bytes, 9), 4);
    EXPECT_EQ(std::string(bytes, 4), "abcd");
    EXPECT_EQ(std::string(buffer.GetData(), buffer.GetSize()), "abcd");
    xstringbuf text("xy");
    EXPECT_EQ(text.sputc('z'), -1);
    EXPECT_EQ(text.sputn("z", 1), 0);
    EXPECT_EQ(text.sgetn(bytes, 9), 2);
    EXPECT_EQ(text.GetSize(), 2U);
    EXPECT_EQ(text.GetStreamBuf(), &text);
}

}  // namespace
