// The text encoding against an istream and an ostream, value by value: codes, values, positions.
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <clocale>
#include <locale>
#include <vector>

#include "../../fuzz/text_fuzz.cpp"

namespace {

using std::string;

// Texts ----------------------------------------------------------------------------------------------

// Where numbers begin, end, overflow and round, and what only resembles one.
const std::vector<string> words = [] {
    std::istringstream list(
        "0x1p3 inf -inf nan INFINITY 1e 1e+ 1e- . -.5e-3 + - +. 5. .5 1.e5 .e5 1e5.5 0e99999999999 "
        "1e99999999999 1e-99999999999 2147483647 2147483648 -2147483648 -2147483649 9223372036854775808 "
        "-9223372036854775809 99999999999999999999 00000000000000000001 0x1F 017 1,234.5 1'000 T F t True "
        "hello 1.7976931348623157e308 1.7976931348623159e308 4.9e-324 2.4e-324 2.5e-324 -1e400 "
        "2.2250738585072011e-308 9007199254740993 9007199254740993e22");
    return std::vector<string>{std::istream_iterator<string>(list), {}};
}();

struct Texts : Random {
    using Random::Random;

    string digits() {
        static constexpr std::size_t lengths[] = {15, 16,  17,  18,  19,  20,  21,  25,
                                                  40, 310, 330, 767, 768, 800, 1100};
        std::size_t length = one_in(3) ? lengths[below(one_in(4) ? 15 : 9)] : below(13);
        string text = bytes(one_in(4) ? length : 0, "0");
        while (text.size() < length)
            text += one_in(20) ? string(below(30), '9') : bytes(8, "0123456789");
        return text.substr(0, length);
    }
    string number_like() {
        static constexpr const char *signs[] = {"", "", "", "-", "+", "-+", "--"};
        static constexpr const char *tails[] = {"", " ", "\n", "x", ".", "-", "e5", "f", "p3"};
        string text = of(signs) + digits();
        if (one_in(2)) text += '.' + digits();
        if (one_in(2)) {
            text += one_in(2) ? 'e' : 'E';
            text += of(signs);
            if (!one_in(6)) text += one_in(6) ? digits() : std::to_string(below(one_in(2) ? 30 : 400));
        }
        return text + of(tails);
    }
    // The exact middle between two neighbouring doubles, and its nearest neighbours in text.
    string middle() {
        std::uint64_t bits = (*this)() & 0x7FEFFFFFFFFFFFFF;
        if (one_in(3)) bits >>= 12;  // without an exponent, or with a small one
        long double low = std::bit_cast<double>(bits), high = std::bit_cast<double>(bits + 1);
        std::array<char, 1500> text;
        std::snprintf(text.data(), text.size(), "%.*Le", 1100, low + (high - low) / 2);
        string number = text.data();
        const std::size_t e = number.find('e'), last = number.find_last_not_of('0', e - 1);
        const string exponent = number.substr(e);
        number.resize(last + 1);
        switch (below(4)) {
            case 0:
                return number + exponent;
            case 1:
                return number + string(below(40), '0') + '1' + exponent;
            case 2:
                return number + string(below(40), '0') + exponent;
            default:
                --number.back();
                return number + string(below(900), '9') + exponent;
        }
    }
    string text() {
        static constexpr const char *spaces[] = {"",       " ",    " ",    "\n", "\t\v\f\r ",
                                                 "  \n\n", "\xA0", "\x85", "\b"};
        string text;
        for (std::size_t n = 1 + below(4); n > 0; --n) {
            text += of(spaces);
            switch (below(5)) {
                case 0:
                    text += words[below(words.size())];
                    break;
                case 1:
                    text += bytes(10, string("0123456789+-.eEx \t\n\0\x80\xFF", 23));
                    break;
                case 2:
                    text += middle();
                    break;
                default:
                    text += number_like();
            }
        }
        return text;
    }
};

// Text against an istream ----------------------------------------------------------------------------

// The fuzz target compares; it is told the size of the pieces, what to read, and the text.
TEST(Text, ReadsAsAnIstreamDoes) {
    static constexpr std::uint8_t pieces[] = {0, 0, 2, 1, 3, 7, 64};
    Texts random(1);
    for (int i = 0; i < 5000; ++i) {
        const string text = random.text();
        for (char type : {'\0', '\1', '\2', '\3', "\4,1E\xFE"[random.below(5)]}) {
            string input = {static_cast<char>(pieces[random.below(std::size(pieces))]), '\xF'};
            input += string(15, type) + text;
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(input.data()), input.size());
        }
    }
}

// To an istream, an error ahead of a value is a failure to convert.
TEST(Text, OfABrokenSourceIsAnError) {
    for (std::size_t broken_at = 0; broken_at < 6; ++broken_at)
        for (std::size_t piece : {Source::never, std::size_t{0}, std::size_t{1}, std::size_t{3}}) {
            SCOPED_TRACE("broken at " + std::to_string(broken_at) + ", pieces of " + std::to_string(piece));
            Source from(" \tabcd", piece, broken_at);
            xstring value("unchanged");
            ASSERT_EQ(ascii.RdString(value, &from, " "), broken_at <= 2 ? ioFormatError : ioIOError);
            ASSERT_STREQ(value, "unchanged");
            Source ours(" \t1.5e", piece, broken_at), theirs(" \t1.5e", piece, broken_at);
            double real = 77, expected = 77;
            ASSERT_EQ(ascii.RdReal(real, &ours), judge(expected, theirs));
            ASSERT_EQ(real, expected);
        }
}

TEST(Text, WritesAsAnOstreamDoes) {
    Texts random(2);
    for (int i = 0; i < 50000; ++i) {
        const double real = i % 3 == 0 ? std::bit_cast<double>(random()) : random.real();
        const int integer = random.integer();
        std::ostringstream expected;
        expected.imbue(std::locale::classic());
        expected << integer << ' ' << real;
        std::stringbuf out;
        ASSERT_EQ(ascii.WrInt(integer, &out), ioSuccess);
        ASSERT_EQ(ascii.WrByte(' ', &out), ioSuccess);
        ASSERT_EQ(ascii.WrReal(real, &out), ioSuccess);
        ASSERT_EQ(out.str(), expected.str());
        ASSERT_EQ(ascii.SzInt(integer) + 1 + ascii.SzReal(real), expected.str().size()) << expected.str();
    }
}

TEST(Text, DoesNotDependOnTheLocale) {
    struct Comma : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        string do_grouping() const override { return "\3"; }
        string do_truename() const override { return "wahr"; }
    };
    struct Restore {
        std::locale global = std::locale::global(std::locale(std::locale(), new Comma));
        ~Restore() {
            std::locale::global(global);
            std::setlocale(LC_ALL, "C");
        }
    } restore;
    for (const char *name : {"de_DE.UTF-8", "fr_FR.UTF-8", "C.UTF-8"})
        if (std::setlocale(LC_ALL, name)) break;
    ASSERT_EQ((std::ostringstream() << 1234.5).str(), "1.234,5");
    std::stringbuf out;
    ascii.WrReal(1234.5, &out);
    ascii.WrInt(1234567, &out);
    EXPECT_EQ(out.str(), "1234.51234567");
    std::stringbuf from("1,234.5 ");
    double real = 77;
    EXPECT_EQ(ascii.RdReal(real, &from), ioSuccess);
    EXPECT_EQ(real, 1);
}

TEST(Text, LongNumbersTakeTimeInStepWithTheirLength) {
    const std::size_t length = 1000000;
    const struct {
        string text;
        double value;
        ioTryCode code;
    } cases[] = {
        {string(length, '7') + ' ', DBL_MAX, ioFormatError},
        {"-0." + string(length, '0') + "1e" + std::to_string(length + 1) + ' ', -1, ioSuccess},
        {'1' + string(length, '0') + "e-" + std::to_string(length) + ' ', 1, ioSuccess},
        {"1e" + string(length, '9') + ' ', DBL_MAX, ioFormatError},
        {"0." + string(length, '3'), 1.0 / 3, ioEndOfFile},
        {string(length, ' ') + "5 ", 5, ioSuccess},
    };
    for (const auto &row : cases)
        for (std::size_t piece : {std::size_t{1000}, Source::never}) {
            Source from(row.text, piece);
            double value = 77;
            EXPECT_EQ(ascii.RdReal(value, &from), row.code) << row.text.substr(0, 20);
            EXPECT_EQ(value, row.value) << row.text.substr(0, 20);
        }
}

TEST(Text, FieldsEndAtTheirDelimiter) {
    const struct {
        string text;
        const char *delimiters, *value;
        string rest;
    } cases[] = {
        {"a,b\nc", "", "a,b", "\nc"},           {"a,b\nc", ",\n", "a", ",b\nc"},
        {"abc\n", nullptr, "abc", "\n"},        {"abc\n", kel::uninit_text(), "abc", "\n"},
        {string("ab\0cd,", 6), ",", "ab", ","}, {string("\0cd", 3), ",", "", ""},
    };
    for (const auto &row : cases) {
        Source from(row.text, 4);
        xstring value("unchanged");
        EXPECT_EQ(ascii.RdString(value, &from, row.delimiters), ioSuccess) << row.text;
        EXPECT_STREQ(value, row.value) << row.text;
        EXPECT_EQ(row.text.substr(from.position()), row.rest) << row.text;
    }
    // The string's own text as the delimiters of its next value.
    xstring value(";");
    std::stringbuf from("abc;");
    EXPECT_EQ(ascii.RdString(value, &from, value), ioSuccess);
    EXPECT_STREQ(value, "abc");
}

}  // namespace
