// Texts in memory beside a std::string that is appended to and read from the front.
#include "iolibsrc/stream_support.h"

#include <random>

namespace {

using Owned = std::unique_ptr<ioStringStream>;

TEST(StringStream, HasAnEndThatIsNotTheEndForEver) {
    Owned stream(ioStringStream::Create());
    EXPECT_TRUE(text_of(stream->getStr()).empty() && !stream->getStr().IsNull());
    stream->WriteString("abc def");
    EXPECT_EQ(text_of(stream->ReadString(" ")), "abc");
    stream->WriteString("ghi\n");
    EXPECT_EQ(stream->TryReadString(), ioSuccess);
    EXPECT_EQ(text_of(stream->ReadString()), "defghi");
    EXPECT_TRUE(!stream->InputEvent() && !stream->OutputEvent() && !stream->Flush());
    EXPECT_EQ(stream->TryWriteInt(1), ioNotSupported);
    EXPECT_EQ(failure([&] { stream->ReadInt(); }), "EOF reached");
    EXPECT_EQ(failure([&] { stream->getStr(); }), "EOF reached");
    stream->setIsFail(false);
    stream->WriteByte('x');
    EXPECT_EQ(stream->ReadByte(), 'x');
    EXPECT_STREQ(static_cast<xobject *>(stream.get())->lookupfield("Str").getstring(), "abc defghi\nx");
    stream->Close();
    EXPECT_EQ(failure([&] { stream->getStr(); }), "stream not open");
}

TEST(StringStream, OverATextIsReadOnly) {
    std::string text = "12";
    Owned stream(ioStringStream::Create(text.c_str())), nothing(ioStringStream::Create("")),
        null(ioStringStream::Create(nullptr)), unset(ioStringStream::Create(kel::uninit_text()));
    EXPECT_TRUE(!nothing->getCanWrite() && null->getCanWrite() && unset->getCanWrite());
    text = "!!";
    EXPECT_EQ(failure([&] { stream->getStr(); }), "output denied");
    EXPECT_EQ(stream->PeekNBytes(), 2U);
    EXPECT_EQ(text_of(stream->ReadString()), "12");
    EXPECT_EQ(stream->TryReadString(), ioEndOfFile);
}

TEST(StringStream, BehavesAsBytesInMemory) {
    for (unsigned seed = 1; seed <= 5; ++seed) {
        std::mt19937 random(seed);
        std::string model;
        std::size_t at = 0;
        Owned stream(ioStringStream::Create());
        stream->setSerializer(ioSerializer::getBinary());
        for (int step = 0; step < 4000; ++step) {
            std::size_t count = random() % 100 == 0 ? random() % 60000 : random() % 20;
            std::string bytes(count, static_cast<char>(step)), expected = model.substr(at, count);
            switch (random() % 5) {
                case 0:
                    stream->WriteBytes(bytes.data(), static_cast<unsigned>(count));
                    model += bytes;
                    break;
                case 1:
                    stream->WriteByte(step);
                    model += static_cast<char>(step);
                    break;
                case 2: {
                    unsigned read = 0;
                    EXPECT_EQ(failure([&] {
                                  read = stream->ReadBytes(bytes.data(), static_cast<unsigned>(count));
                              }),
                              expected.empty() && count > 0 ? "EOF reached" : "");
                    stream->setIsBad(false);
                    ASSERT_EQ(bytes.substr(0, read), expected);
                    at += read;
                    break;
                }
                case 3:
                    if (at < model.size()) {
                        ASSERT_EQ(stream->ReadByte(), static_cast<signed char>(model[at]));
                        ++at;
                    }
                    break;
                default:
                    ASSERT_EQ(stream->PeekNBytes(), model.size() - at);
                    ASSERT_EQ(stream->TryReadReal(), model.size() - at >= 8 ? ioSuccess : ioEndOfFile);
                    if (random() % 20 == 0) {
                        ASSERT_TRUE(text_of(stream->getStr()) == model.c_str()) << "up to the first NUL";
                    }
            }
        }
        ASSERT_TRUE(drain(*stream) == model.substr(at));
    }
}

}  // namespace
