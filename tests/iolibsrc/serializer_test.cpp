// The encoders over sinks and sources that take or deliver as little as they please, and long strings. What
// the encodings are is told by the models of the fuzz targets, and on text by text_encoding_test.cpp.
#include <gtest/gtest.h>

#include "../../fuzz/length_prefixed.h"

namespace {

using namespace encoders;
using std::string;

Ascii ascii;
Binary binary;
XDR xdr;

// So many bytes that were read ahead; behind them it takes nothing, or throws.
struct Area : std::streambuf {
    explicit Area(std::size_t room, bool breaks = false) : bytes(room, '#'), throws(breaks) {
        setp(bytes.data(), bytes.data() + room);
    }
    int_type overflow(int_type) override {
        if (throws) throw string("broken sink");
        return traits_type::eof();
    }
    string bytes;
    bool throws;
};

// Values go where they fit: behind them nothing changes, and of one that does not fit arrives what fits.
template <class Encoder>
void write_everywhere(Encoder &encoder, std::size_t prefix) {
    Random random(6);
    const auto check = [&](auto value, auto write, auto size) {
        std::stringbuf whole;
        ASSERT_EQ((encoder.*write)(value, &whole), ioSuccess);
        const string bytes = whole.str();
        ASSERT_EQ((encoder.*size)(value), bytes.size());
        Area wide(bytes.size() + random.below(30));
        ASSERT_EQ((encoder.*write)(value, &wide), ioSuccess);
        ASSERT_EQ(wide.bytes, bytes + string(wide.bytes.size() - bytes.size(), '#'));
        const std::size_t room = random.below(bytes.size() + 1);
        for (bool throws : {false, true}) {
            Area narrow(room, throws);
            ASSERT_EQ((encoder.*write)(value, &narrow), room < bytes.size() ? ioIOError : ioSuccess);
            ASSERT_EQ(narrow.bytes, bytes.substr(0, room));
        }
    };
    for (int i = 0; i < 3000 && !testing::Test::HasFailure(); ++i) {
        check(static_cast<char>(random()), &Encoder::WrByte, &Encoder::SzByte);
        check(random.integer(), &Encoder::WrInt, &Encoder::SzInt);
        check(static_cast<unsigned char>(random()), &Encoder::WrBool, &Encoder::SzBool);
        check(random.real(), &Encoder::WrReal, &Encoder::SzReal);
        check(random.bytes(20, "any text").c_str(), &Encoder::WrString, &Encoder::SzString);
    }
    for (const char *none : {xstrNullStr, kel::uninit_text(), static_cast<const char *>(nullptr), ""}) {
        check(none, &Encoder::WrString, &Encoder::SzString);
        EXPECT_EQ(encoder.SzString(none), prefix);
    }
}

TEST(Bytes, AreWrittenWhereTheyFitAndNowhereElse) {
    write_everywhere(ascii, 0);
    write_everywhere(binary, 4);
    write_everywhere(xdr, 4);
}

TEST(Bytes, OfABrokenSourceAreAnError) {
    for (std::size_t piece : {Source::never, std::size_t{0}, std::size_t{2}})
        for (std::size_t broken_at = 0; broken_at < 7; ++broken_at)
            for (int type = EncodedInput::Byte; type < EncodedInput::Types; ++type) {
                Source from(string("\0\0\0\5\0\0\0", 7) + "abcdefgh", piece, broken_at);
                std::stringbuf again;
                const std::size_t least = type == EncodedInput::Byte ? 1 : type <= EncodedInput::Bool ? 4 : 8;
                ASSERT_EQ(decode(xdr, static_cast<EncodedInput::Type>(type), from, again).code,
                          broken_at < least ? ioIOError : ioSuccess)
                    << "type " << type << ", broken at " << broken_at << ", pieces of " << piece;
            }
}

// A length comes from outside.
TEST(Bytes, LengthsAreNotBelieved) {
    for (std::size_t arrived : {0U, 10U, 100000U, 3000000U})
        for (int length : {INT_MAX, 1 << 24}) {
            std::stringbuf prefix;
            xdr.WrInt(length, &prefix);
            Source from(prefix.str() + string(arrived, 'x'), 4096);
            xstring value("unchanged");
            EXPECT_EQ(xdr.RdString(value, &from, ""), ioEndOfFile) << length;
            EXPECT_STREQ(value, "unchanged");
            EXPECT_LE(from.largest_demand(), arrived + 65540) << "of " << length << " with " << arrived;
        }
}

TEST(Bytes, LongStringsArriveWhole) {
    for (std::size_t length : {65535U, 65536U, 65537U, 200001U}) {
        string text(length, 0);
        for (std::size_t i = 0; i < length; ++i)
            text[i] = static_cast<char>(1 + i % 255);
        std::stringbuf bytes;
        ASSERT_EQ(binary.WrString(text.c_str(), &bytes), ioSuccess);
        Source from(bytes.str() + 'z', 1000);
        xstring value;
        ASSERT_EQ(binary.RdString(value, &from, ""), ioSuccess);
        ASSERT_TRUE(kel::view(value) == text && from.position() == length + 4) << length;
    }
}

}  // namespace
