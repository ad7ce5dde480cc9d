// The text encoding against an istream and an ostream, value by value: codes, values, positions.
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <locale>

#include "../../fuzz/text_fuzz.cpp"

namespace {

using std::string;

// What is nearly a number, or one that is hard to read.
struct Texts : Random {
    using Random::Random;

    // Sometimes more than any double needs.
    string digits() {
        static constexpr std::size_t lengths[] = {15, 17, 18, 19, 20, 21, 40, 310, 330, 767, 768, 800, 1100};
        const std::size_t length = one_in(3) ? lengths[below(std::size(lengths))] : below(13);
        string text(one_in(4) ? below(length + 1) : 0, "09"[below(2)]);
        while (text.size() < length)
            text += static_cast<char>('0' + below(10));
        return text;
    }
    string number() {
        string text = bytes(1, "-+") + digits();
        if (one_in(2)) text += '.' + digits();
        if (one_in(2)) text += bytes(1, "eE") + bytes(1, "-+") + std::to_string(below(one_in(2) ? 30 : 400));
        return text + bytes(1, " \nx.-efp");
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
        const string exponent = number.substr(e), more[] = {"", string(below(40), '0') + '1'};
        number.resize(last + 1);
        if (one_in(2)) return number + more[below(2)] + exponent;
        --number.back();
        return number + string(below(900), '9') + exponent;
    }
    string text() {
        const string space = bytes(2, " \t\v\f\r\n\xA0\x85\b");
        if (one_in(5)) return space + bytes(10, string("0123456789+-.eExTF \n\0\x80\xFF", 23));
        return space + (one_in(4) ? middle() : number()) + (one_in(2) ? text() : "");
    }
};

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

TEST(Text, WritesAsAnOstreamDoesInAnyLocale) {
    struct Comma : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        string do_grouping() const override { return "\3"; }
    };
    const std::locale before = std::locale::global(std::locale(std::locale(), new Comma));
    Random random(2);
    for (int i = 0; i < 50000; ++i) {
        const double real = random.real();
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
    std::stringbuf from("1,234.5 ");
    double real = 77;
    EXPECT_EQ(ascii.RdReal(real, &from), ioSuccess);
    EXPECT_EQ(real, 1);
    std::locale::global(before);
}

TEST(Text, LongNumbersTakeTimeInStepWithTheirLength) {
    const std::size_t length = 1000000;
    const std::tuple<string, double, ioTryCode> cases[] = {
        {string(length, '7') + ' ', DBL_MAX, ioFormatError},
        {"-0." + string(length, '0') + "1e" + std::to_string(length + 1) + ' ', -1, ioSuccess},
        {"1e" + string(length, '9') + ' ', DBL_MAX, ioFormatError},
        {"0." + string(length, '3'), 1.0 / 3, ioEndOfFile},
    };
    for (const auto &[text, expected, code] : cases)
        for (std::size_t piece : {std::size_t{1000}, Source::never}) {
            Source from(text, piece);
            double value = 77;
            EXPECT_EQ(ascii.RdReal(value, &from), code) << text.substr(0, 20);
            EXPECT_EQ(value, expected) << text.substr(0, 20);
        }
}

TEST(Text, FieldsEndAtTheirFirstDelimiter) {
    const string text("ab\0x,\nc", 7);
    for (const auto &[delimiters, rest] : {std::pair(",\nx", ",\nc"), {xstrNullStr, "\nc"}, {"", "\nc"}}) {
        Source from(text, 4);
        xstring value("unchanged");
        EXPECT_EQ(ascii.RdString(value, &from, delimiters), ioSuccess);
        EXPECT_STREQ(value, "ab") << "up to the first NUL";
        EXPECT_EQ(text.substr(from.position()), rest);
    }
    // The string's own text as the delimiters of its next value.
    xstring value(";");
    std::stringbuf from("abc;");
    EXPECT_EQ(ascii.RdString(value, &from, value), ioSuccess);
    EXPECT_STREQ(value, "abc");
}

}  // namespace
