// The encoders against oracles that know nothing of them: python's struct for whole runs of values, and
// sources and sinks that deliver or take as little as they please. text_encoding_test.cpp has more on text.
#include <gtest/gtest.h>
#include <kelstdmt/vumrt_stream.h>
#include <unistd.h>

#include <array>
#include <bit>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <thread>
#include <vector>

#include "iolibsrc/encoders.h"

namespace {

using namespace encoders;
using std::string;

Ascii ascii;
Binary binary;
XDR xdr;

// Bytes ----------------------------------------------------------------------------------------------

// One value of any type, and what every test does with it.
struct Value {
    enum Type { Byte, Int, Bool, Real, String } type = Int;
    int number = 0;  // also bytes and bools, as 0 to 255
    double real = 0;
    string text = {};

    static Value random(Random &from, std::size_t longest) {
        Value value;
        value.type = static_cast<Type>(from.below(5));
        value.number = value.type == Int ? from.integer() : static_cast<int>(from.below(256));
        value.real = from.real();
        value.text.resize(from.below(longest + 1));
        for (char &byte : value.text)
            byte = static_cast<char>(1 + from.below(255));
        return value;
    }

    template <class Encoder>
    ioTryCode write(Encoder &encoder, std::streambuf &to) const {
        return type == Byte   ? encoder.WrByte(static_cast<char>(number), &to)
               : type == Int  ? encoder.WrInt(number, &to)
               : type == Bool ? encoder.WrBool(static_cast<unsigned char>(number), &to)
               : type == Real ? encoder.WrReal(real, &to)
                              : encoder.WrString(text.c_str(), &to);
    }
    template <class Encoder>
    unsigned size(Encoder &encoder) const {
        return type == Byte   ? encoder.SzByte(static_cast<char>(number))
               : type == Int  ? encoder.SzInt(number)
               : type == Bool ? encoder.SzBool(static_cast<unsigned char>(number))
               : type == Real ? encoder.SzReal(real)
                              : encoder.SzString(text.c_str());
    }
    // The value found there; one of this type that nobody writes when there is none.
    template <class Encoder>
    ioTryCode read(Encoder &encoder, std::streambuf &from, Value &value) const {
        char byte = 77;
        unsigned char truth = 77;
        xstring characters("unchanged");
        value = Value{type, 77, 77, "unchanged"};
        ioTryCode code = type == Byte   ? encoder.RdByte(byte, &from)
                         : type == Int  ? encoder.RdInt(value.number, &from)
                         : type == Bool ? encoder.RdBool(truth, &from)
                         : type == Real ? encoder.RdReal(value.real, &from)
                                        : encoder.RdString(characters, &from, "\n");
        if (type == Byte) value.number = static_cast<unsigned char>(byte);
        if (type == Bool) value.number = truth;
        if (type == String) value.text = characters.Str();
        return code;
    }

    // As a line for the oracle, and for messages.
    string line() const {
        static constexpr const char *names[] = {"byte", "int", "bool", "real", "string"};
        std::ostringstream out;
        out << names[type] << ' ' << std::hex << std::setfill('0');
        if (type == Real)
            out << std::setw(16) << std::bit_cast<std::uint64_t>(real);
        else if (type == String)
            for (const char character : text)
                out << std::setw(2) << (character & 0xFF);
        else
            out << std::dec << number;
        return out.str();
    }
};

template <class Encoder>
string encoded(Encoder &encoder, const Value &value) {
    std::stringbuf out;
    EXPECT_EQ(value.write(encoder, out), ioSuccess);
    EXPECT_EQ(value.size(encoder), out.str().size()) << value.line();
    return out.str();
}

TEST(Bytes, OfBoolsAndOfNoText) {
    // To XDR a bool is an int, of which the last byte counts.
    std::stringbuf bools(string("\0\0\1\1\0\0\1\0", 8));
    unsigned char value = 77;
    for (int expected : {1, 0}) {
        EXPECT_EQ(xdr.RdBool(value, &bools), ioSuccess);
        EXPECT_EQ(value, expected);
    }
    EXPECT_EQ(encoded(ascii, Value{Value::Bool, 0x81}), "T");
    for (const char *none : {xstrNullStr, kel::uninit_text(), static_cast<const char *>(nullptr), ""}) {
        std::stringbuf out;
        EXPECT_EQ(binary.WrString(none, &out) + xdr.WrString(none, &out) + ascii.WrString(none, &out), 0);
        EXPECT_EQ(out.str(), string(8, '\0'));
        EXPECT_EQ(binary.SzString(none) + xdr.SzString(none) + ascii.SzString(none), 8U);
    }
}

TEST(Bytes, AreThoseOfTheFormats) {
    const Value values[] = {{Value::Byte, 'k'},
                            {Value::Bool, 1},
                            {Value::Int, -2},
                            {Value::Real, 0, 0.5},
                            {Value::String, 0, 0, "abc"}};
    string in_binary, in_xdr, in_text;
    for (const Value &value : values) {
        in_binary += encoded(binary, value);
        in_xdr += encoded(xdr, value);
        in_text += encoded(ascii, value) + (value.type == Value::String ? '\n' : ' ');
    }
    EXPECT_EQ(in_binary, string("k\1\xFE\xFF\xFF\xFF\0\0\0\0\0\0\xE0\x3F\3\0\0\0abc", 21));
    EXPECT_EQ(in_xdr, string("k\0\0\0\1\xFF\xFF\xFF\xFE\x3F\xE0\0\0\0\0\0\0\0\0\0\3abc", 24));
    EXPECT_EQ(in_text, "k T -2 0.5 abc\n");
}

// What is left of a value is never taken for one, wherever it is cut and however it arrives.
template <class Encoder>
void cut_everywhere(Encoder &encoder, unsigned seed, const char *name) {
    Random random(seed);
    for (int i = 0; i < 150; ++i) {
        const Value value = Value::random(random, 20);
        const string bytes = encoded(encoder, value);
        for (std::size_t cut = 0; cut <= bytes.size(); ++cut)
            for (std::size_t piece : {Source::never, std::size_t{0}, std::size_t{1}, std::size_t{3}}) {
                Source from(bytes.substr(0, cut), piece);
                Value seen;
                const ioTryCode code = value.read(encoder, from, seen),
                                expected = cut == bytes.size() ? ioSuccess : ioEndOfFile;
                const Value unchanged{value.type, 77, 77, "unchanged"};
                ASSERT_EQ(code, expected) << name << ' ' << value.line() << " cut at " << cut;
                ASSERT_EQ(seen.line(), (expected == ioSuccess ? value : unchanged).line()) << name;
                if (expected == ioSuccess) {
                    ASSERT_EQ(from.position(), cut) << name << ' ' << value.line();
                }
            }
        // A view of foreign bytes answers at once, and a sink that fills up is noticed.
        xtrystreambuf view(bytes.data(), bytes.size() - 1);
        Value seen;
        ASSERT_EQ(value.read(encoder, view, seen), ioEndOfFile) << value.line();
        ASSERT_EQ(view.GetAvail(), 0U) << value.line();
    }
}

TEST(Bytes, CutAnywhereAreTheEndOfTheData) {
    cut_everywhere(binary, 4, "binary");
    cut_everywhere(xdr, 5, "xdr");
}

// Into sinks that fill up, and into areas that hold what was read ahead: of that, nothing behind a value
// may change.
template <class Encoder>
void write_everywhere(Encoder &encoder, unsigned seed) {
    struct Area : std::streambuf {
        explicit Area(std::size_t size) : bytes(size, '#') { setp(bytes.data(), bytes.data() + size); }
        string bytes;
    };
    Random random(seed);
    for (int i = 0; i < 3000; ++i) {
        const Value value = Value::random(random, 20);
        const string bytes = encoded(encoder, value);
        Area area(bytes.size() + random.below(30));
        ASSERT_EQ(value.write(encoder, area), ioSuccess) << value.line();
        ASSERT_EQ(area.bytes, bytes + string(area.bytes.size() - bytes.size(), '#')) << value.line();
        const std::size_t room = random.below(bytes.size() + 1);
        for (bool throws : {false, true}) {
            Sink to(room, throws);
            ASSERT_EQ(value.write(encoder, to), room < bytes.size() ? ioIOError : ioSuccess)
                << value.line() << " into " << room;
            ASSERT_EQ(to.bytes(), bytes.substr(0, room)) << value.line();
        }
    }
}

TEST(Bytes, AreWrittenWhereTheyFitAndNowhereElse) {
    write_everywhere(ascii, 6);
    write_everywhere(binary, 7);
    write_everywhere(xdr, 8);
}

TEST(Bytes, OfABrokenSourceAreAnError) {
    for (std::size_t piece : {Source::never, std::size_t{0}, std::size_t{2}})
        for (std::size_t broken_at = 0; broken_at < 7; ++broken_at)
            for (Value::Type type : {Value::Byte, Value::Int, Value::Bool, Value::Real, Value::String}) {
                Source from(string("\0\0\0\5\0\0\0", 7) + "abcdefgh", piece, broken_at);
                const Value wanted{type};
                Value seen;
                const std::size_t least = type == Value::Byte ? 1 : type <= Value::Bool ? 4 : 8;
                ASSERT_EQ(wanted.read(xdr, from, seen), broken_at < least ? ioIOError : ioSuccess)
                    << wanted.line() << " broken at " << broken_at << ", pieces of " << piece;
            }
}

// A length comes from outside.
TEST(Bytes, LengthsAreNotBelieved) {
    for (int length : {-1, INT_MIN, -5}) {
        std::stringbuf from;
        binary.WrInt(length, &from);
        from.sputn("abcdefgh", 8);
        xstring value("unchanged");
        EXPECT_EQ(binary.RdString(value, &from, ""), ioFormatError) << length;
        EXPECT_STREQ(value, "unchanged");
    }
    for (std::size_t arrived : {std::size_t{0}, std::size_t{10}, std::size_t{100000}, std::size_t{3000000}})
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
    for (std::size_t length : {65535U, 65536U, 65537U, 131072U, 200001U})
        for (std::size_t piece : {Source::never, std::size_t{1000}, std::size_t{65536}}) {
            const Value value{Value::String, 0, 0, text.substr(0, length)};
            Source from(encoded(binary, value) + 'z', piece);
            Value seen;
            ASSERT_EQ(value.read(binary, from, seen), ioSuccess);
            ASSERT_TRUE(seen.text == value.text) << length << " in pieces of " << piece;
            ASSERT_EQ(from.position(), length + 4);
        }
    // A NUL ends what is handed out, not what is consumed.
    Source from(string("\0\0\0\5ab\0cd!", 10));
    xstring seen;
    EXPECT_EQ(xdr.RdString(seen, &from, nullptr), ioSuccess);
    EXPECT_STREQ(seen, "ab");
    EXPECT_EQ(from.position(), 9U);
}

// Python ---------------------------------------------------------------------------------------------

struct Python : testing::TestWithParam<const char *> {
    void SetUp() override {
        if (std::system("python3 -c pass 2>/dev/null") != 0) GTEST_SKIP() << "no python3";
    }
    void TearDown() override { std::filesystem::remove(file); }
    // What the oracle answers to a file of these bytes.
    string ask(const char *action, const string &bytes) const {
        std::ofstream(file, std::ios::binary) << bytes;
        const string command = string("python3 " KELSTDMT_SOURCE_DIR "/tests/interop/encodings.py ") +
                               action + ' ' + GetParam() + ' ' + file;
        std::FILE *pipe = ::popen(command.c_str(), "r");
        if (!pipe) return "no pipe";
        string answer;
        for (int c; (c = std::fgetc(pipe)) != EOF;)
            answer += static_cast<char>(c);
        EXPECT_EQ(::pclose(pipe), 0) << command;
        return answer;
    }

    const string file = testing::TempDir() + "kelstdmt_python_" + GetParam() + std::to_string(::getpid());
};
INSTANTIATE_TEST_SUITE_P(Encodings, Python, testing::Values("binary", "xdr", "text"));

template <class Action>
auto with_encoder(const string &name, Action action) {
    return name == "binary" ? action(binary) : name == "xdr" ? action(xdr) : action(ascii);
}

TEST_P(Python, WritesAndReadsTheSameBytes) {
    const bool text = GetParam() == string("text");
    Random random(10);
    std::vector<Value> values;
    string lines, kinds;
    for (int i = 0; i < 3000; ++i) {
        Value value = Value::random(random, i % 100 == 0 ? 5000 : 12);
        // Text keeps neither white space ahead of a value nor more than six digits, and a bool is 0 or 1.
        if (text && value.type == Value::Bool) value.number &= 1;
        if (text && value.type == Value::Byte) value.number = '!' + value.number % 90;
        if (text && value.type == Value::Real) value.real = static_cast<double>(value.number) / 8;
        if (text && value.type == Value::String) {
            std::erase(value.text, '\n');
            value.text.insert(0, 1, '\'');
        }
        lines += value.line() + '\n';
        kinds += value.line().substr(0, value.line().find(' ') + 1);
        values.push_back(value);
    }
    const string theirs = ask("pack", lines);

    std::stringbuf ours;
    for (const Value &value : values)
        with_encoder(GetParam(), [&](auto &encoder) {
            EXPECT_EQ(value.write(encoder, ours), ioSuccess);
            if (text) encoder.WrByte('\n', &ours);
            return 0;
        });
    ASSERT_TRUE(ours.str() == theirs)
        << "the bytes differ first at "
        << std::mismatch(theirs.begin(), theirs.end(), ours.str().begin(), ours.str().end()).first -
               theirs.begin();
    EXPECT_TRUE(ask("unpack", kinds + '\n' + ours.str()) == lines)
        << "python reads other values than were written";

    Source from(theirs, 1000);
    for (const Value &value : values) {
        Value seen;
        const ioTryCode code =
            with_encoder(GetParam(), [&](auto &encoder) { return value.read(encoder, from, seen); });
        ASSERT_EQ(code, ioSuccess) << value.line();
        ASSERT_EQ(seen.line(), value.line());
    }
}

// Shared encoders ------------------------------------------------------------------------------------

// A static object that is older than the shared encoders and uses them when it dies.
struct Farewell {
    ~Farewell() {
        if (!used || (ioSerializer::getXDR() == used && used->getIsBinary())) return;
        std::fputs("the shared encoder died before its users\n", stderr);
        std::_Exit(1);
    }
    ioSerializer *used = nullptr;
} farewell;

TEST(Shared, EncodersAreOneOfEachInEveryThread) {
    std::array<std::array<ioSerializer *, 3>, 4> seen{};
    std::vector<std::thread> threads;
    for (auto &row : seen)
        threads.emplace_back([&row] {
            row = {ioSerializer::getAscii(), ioSerializer::getBinary(), ioSerializer::getXDR()};
        });
    for (std::thread &thread : threads)
        thread.join();
    for (const auto &row : seen)
        EXPECT_EQ(row, seen[0]);
    EXPECT_TRUE(!seen[0][0]->getIsBinary() && seen[0][1]->getIsBinary() && seen[0][2]->getIsBinary());
    EXPECT_NE(dynamic_cast<ioXDRSerializer *>(seen[0][2]), nullptr);
    farewell.used = seen[0][2];
}

}  // namespace
