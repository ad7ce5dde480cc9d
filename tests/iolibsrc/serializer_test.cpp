// The encoders against the model of the fuzz targets, which knows the formats and nothing of the encoders,
// and against sources and sinks that deliver or take as little as they please. text_encoding_test.cpp has
// more on text.
#include <gtest/gtest.h>

#include "../../fuzz/length_prefixed.h"

namespace {

using namespace encoders;
using std::string;
using Type = EncodedInput::Type;

Ascii ascii;
Binary binary;
XDR xdr;

// One value of any type.
struct Value {
    Type type = EncodedInput::Int;
    int number = 0;  // also bytes and bools, as 0 to 255
    double real = 0;
    string text = {};

    static Value random(Random &from) {
        Value value;
        value.type = static_cast<Type>(from.below(EncodedInput::Types));
        value.number = value.type == EncodedInput::Int ? from.integer() : static_cast<int>(from.below(256));
        value.real = from.real();
        value.text.resize(from.below(21));
        for (char &byte : value.text)
            byte = static_cast<char>(1 + from.below(255));
        return value;
    }

    template <class Encoder>
    ioTryCode write(Encoder &encoder, std::streambuf &to) const {
        switch (type) {
            case EncodedInput::Byte:
                return encoder.WrByte(static_cast<char>(number), &to);
            case EncodedInput::Int:
                return encoder.WrInt(number, &to);
            case EncodedInput::Bool:
                return encoder.WrBool(static_cast<unsigned char>(number), &to);
            case EncodedInput::Real:
                return encoder.WrReal(real, &to);
            default:
                return encoder.WrString(text.c_str(), &to);
        }
    }
    template <class Encoder>
    unsigned size(Encoder &encoder) const {
        return type == EncodedInput::Byte   ? encoder.SzByte(static_cast<char>(number))
               : type == EncodedInput::Int  ? encoder.SzInt(number)
               : type == EncodedInput::Bool ? encoder.SzBool(static_cast<unsigned char>(number))
               : type == EncodedInput::Real ? encoder.SzReal(real)
                                            : encoder.SzString(text.c_str());
    }
};

template <class Encoder>
string encoded(Encoder &encoder, const Value &value) {
    std::stringbuf out;
    EXPECT_EQ(value.write(encoder, out), ioSuccess);
    EXPECT_EQ(value.size(encoder), out.str().size()) << "type " << value.type;
    return out.str();
}

TEST(Bytes, OfNoText) {
    for (const char *none : {xstrNullStr, kel::uninit_text(), static_cast<const char *>(nullptr), ""}) {
        std::stringbuf out;
        EXPECT_EQ(binary.WrString(none, &out) + xdr.WrString(none, &out) + ascii.WrString(none, &out), 0);
        EXPECT_EQ(out.str(), string(8, '\0'));
        EXPECT_EQ(binary.SzString(none) + xdr.SzString(none) + ascii.SzString(none), 8U);
    }
    EXPECT_EQ(encoded(ascii, Value{EncodedInput::Bool, 0x81}), "T");
}

// Values that are whole, spoilt or cut, in pieces of any size.
template <class Encoder>
void follow_the_model(Encoder &encoder, bool big_endian, std::size_t bool_size) {
    Random random(4);
    for (int i = 0; i < 10000; ++i) {
        const std::size_t count = random.below(16);
        string input{static_cast<char>(random.below(256)), static_cast<char>(count)}, data;
        for (std::size_t k = 0; k < count; ++k) {
            const Value value = Value::random(random);
            input += static_cast<char>(value.type);
            data += encoded(encoder, value);
        }
        if (random.one_in(3) && !data.empty())
            data[random.below(data.size())] = "\0\1\x7F\xFF"[random.below(4)];
        input += random.one_in(2) ? data : data.substr(0, random.below(data.size() + 1));
        const EncodedInput all(reinterpret_cast<const std::uint8_t *>(input.data()), input.size());
        fuzz_encoding(encoder, all, big_endian, bool_size);
    }
}

TEST(Bytes, AreThoseOfTheModel) {
    follow_the_model(binary, false, 1);
    follow_the_model(xdr, true, 4);
}

// Into sinks that fill up, and into areas that hold what was read ahead: of that, nothing behind a value
// may change.
template <class Encoder>
void write_everywhere(Encoder &encoder) {
    struct Area : std::streambuf {
        explicit Area(std::size_t size) : bytes(size, '#') { setp(bytes.data(), bytes.data() + size); }
        string bytes;
    };
    Random random(6);
    for (int i = 0; i < 3000; ++i) {
        const Value value = Value::random(random);
        SCOPED_TRACE(testing::Message() << "type " << value.type << ", number " << value.number << ", real "
                                        << value.real << ", text " << testing::PrintToString(value.text));
        const string bytes = encoded(encoder, value);
        Area area(bytes.size() + random.below(30));
        ASSERT_EQ(value.write(encoder, area), ioSuccess);
        ASSERT_EQ(area.bytes, bytes + string(area.bytes.size() - bytes.size(), '#'));
        const std::size_t room = random.below(bytes.size() + 1);
        for (bool throws : {false, true}) {
            Sink to(room, throws);
            ASSERT_EQ(value.write(encoder, to), room < bytes.size() ? ioIOError : ioSuccess) << room;
            ASSERT_EQ(to.bytes(), bytes.substr(0, room));
        }
    }
}

TEST(Bytes, AreWrittenWhereTheyFitAndNowhereElse) {
    write_everywhere(ascii);
    write_everywhere(binary);
    write_everywhere(xdr);
}

TEST(Bytes, OfABrokenSourceAreAnError) {
    for (std::size_t piece : {Source::never, std::size_t{0}, std::size_t{2}})
        for (std::size_t broken_at = 0; broken_at < 7; ++broken_at)
            for (int type = EncodedInput::Byte; type < EncodedInput::Types; ++type) {
                Source from(string("\0\0\0\5\0\0\0", 7) + "abcdefgh", piece, broken_at);
                std::stringbuf again;
                const std::size_t least = type == EncodedInput::Byte ? 1 : type <= EncodedInput::Bool ? 4 : 8;
                ASSERT_EQ(decode(xdr, static_cast<Type>(type), from, again).code,
                          broken_at < least ? ioIOError : ioSuccess)
                    << "type " << type << ", broken at " << broken_at << ", pieces of " << piece;
            }
}

// A length comes from outside.
TEST(Bytes, LengthsAreNotBelieved) {
    for (std::size_t arrived : {0U, 10U, 100000U, 3000000U})
        for (int length : {INT_MAX, INT_MAX - 1, 1 << 24}) {
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
    string text(200001, 0);
    for (std::size_t i = 0; i < text.size(); ++i)
        text[i] = static_cast<char>(1 + i % 255);
    for (std::size_t length : {65535U, 65536U, 65537U, 200001U}) {
        std::stringbuf again;
        Source from(encoded(binary, Value{EncodedInput::String, 0, 0, text.substr(0, length)}) + 'z', 1000);
        const Decoded seen = decode(binary, EncodedInput::String, from, again);
        ASSERT_TRUE(seen.code == ioSuccess && seen.text == text.substr(0, length)) << length;
        ASSERT_EQ(from.position(), length + 4);
    }
}

// A static object that is older than the shared encoders and uses them when it dies.
struct Farewell {
    ~Farewell() {
        if (!used || (ioSerializer::getXDR() == used && used->getIsBinary())) return;
        std::fputs("the shared encoder died before its users\n", stderr);
        std::_Exit(1);
    }
    ioSerializer *used = nullptr;
} farewell;

TEST(Shared, EncodersOutliveTheirUsers) {
    farewell.used = ioSerializer::getXDR();
    EXPECT_NE(dynamic_cast<ioXDRSerializer *>(farewell.used), nullptr);
    EXPECT_TRUE(!ioSerializer::getAscii()->getIsBinary() && ioSerializer::getBinary()->getIsBinary());
}

}  // namespace
