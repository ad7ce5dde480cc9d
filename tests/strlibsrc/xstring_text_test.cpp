// Characters of the locale, and texts in their wide and neutral form, in the locales C and C.UTF-8.
#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <cwchar>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <kelstdmt/xstring.h>

namespace {

class locale_scope {
public:
    explicit locale_scope(const char *name) : m_found(std::setlocale(LC_ALL, name) != nullptr) {}
    ~locale_scope() { std::setlocale(LC_ALL, "C"); }
    explicit operator bool() const { return m_found; }

private:
    bool m_found;
};

// A text pointer as a plain one: a failing comparison of text pointers would print what they point to.
const void *at_address(const char *text) {
    return text;
}

// On the heap and exactly as long as the text, so that the sanitizers see a look beyond its terminator.
std::unique_ptr<char[]> exact(const std::string &text) {
    auto copy = std::make_unique<char[]>(text.size() + 1);
    std::memcpy(copy.get(), text.c_str(), text.size() + 1);
    return copy;
}

// The bytes at which characters begin, and the end: valid sequences after mbrlen, single bytes otherwise.
std::vector<std::size_t> starts(const std::string &text) {
    std::vector<std::size_t> result{0};
    for (std::size_t at = 0; at < text.size();) {
        std::mbstate_t state{};
        std::size_t bytes = MB_CUR_MAX == 1 ? 1 : std::mbrlen(text.c_str() + at, text.size() - at, &state);
        at += bytes == 0 || bytes > 4 ? 1 : bytes;
        result.push_back(at);
    }
    return result;
}

std::string noise(std::mt19937 &random) {
    static const std::string pieces[] = {
        "a",        "plain text",   "\xC3\xA9",        "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
        "\xC3",     "\xE2\x82",     "\xF0\x9F\x98",    "\x80",         "\xFF",
        "\xC0\x80", "\xED\xA0\x80", "\xF5\x80\x80\x80"};
    std::string text;
    for (std::size_t n = random() % 8; n > 0; --n)
        text += pieces[random() % std::size(pieces)];
    return text;
}

TEST(Characters, AreCountedByTheLocaleAndInvalidBytesOneByOne) {
    std::mt19937 random(11);
    for (const char *name : {"C", "C.UTF-8"}) {
        locale_scope locale(name);
        ASSERT_TRUE(locale) << name;
        for (int round = 0; round < 4000; ++round) {
            std::string text = noise(random);
            auto copy = exact(text);
            std::vector<std::size_t> at = starts(text);
            std::size_t last = at.size() - 1;
            for (std::size_t n = 0; n <= last + 2; ++n)
                ASSERT_EQ(static_cast<std::size_t>(stringAfterCHars(copy.get(), static_cast<unsigned>(n)) -
                                                   copy.get()),
                          at[std::min(n, last)])
                    << name << ", character " << n << " of " << testing::PrintToString(text);

            xmbchar cursor(copy.get());
            for (std::size_t n = 0; n < last; ++n) {
                ASSERT_EQ(cursor.position - copy.get(), static_cast<long>(at[n]));
                cursor.Next();
            }
            ASSERT_EQ(cursor.position - copy.get(), static_cast<long>(text.size()));
            ASSERT_EQ(cursor.count, static_cast<int>(last));
            cursor.Next();
            ASSERT_EQ(cursor.position - copy.get(), static_cast<long>(text.size()))
                << "the walk stays at the terminator";

            unsigned from = static_cast<unsigned>(random() % (last + 2)),
                     to = static_cast<unsigned>(random() % (last + 2));
            std::size_t first = at[std::min<std::size_t>(from, last)],
                        end = at[std::min<std::size_t>(to, last)];
            std::string piece = first < end ? text.substr(first, end - first) : "";
            ASSERT_EQ(kel::view(xstring(text.c_str())(from, to)), piece) << name << " " << from << " " << to;
            ASSERT_EQ(kel::view(xstring(copy.get(), to)), text.substr(0, end));
        }
        constexpr auto unset = static_cast<unsigned>(strUnsetPos);
        xstring text(
            "ab\xC3\xA9"
            "d");
        EXPECT_STREQ(text(unset, unset), text);
        EXPECT_STREQ(text(1, unset),
                     "b\xC3\xA9"
                     "d");
        EXPECT_STREQ(text(unset, 2), "ab");
        EXPECT_STREQ(xstring()(unset, unset), "");
        EXPECT_EQ(at_address(stringAfterCHars(xstrNullStr, 1)), at_address(xstrNullStr));
    }
}

TEST(Characters, AreCopiedWholeUpToAnInvalidOne) {
    locale_scope locale("C.UTF-8");
    ASSERT_TRUE(locale);
    char out[16];
    xmbchar cursor(out);
    EXPECT_EQ(cursor.CopyMbChar("\xE2\x82\xACx"), 3);
    EXPECT_EQ(cursor.CopyMbChar("y"), 1);
    EXPECT_EQ(cursor.count, 2);
    EXPECT_STREQ(out, "\xE2\x82\xACy");
    EXPECT_EQ(cursor.CopyMbChar("\x82"), -1);
    EXPECT_EQ(cursor.position - out, 4);
    EXPECT_EQ(cursor.CopyMbChar(""), 0);
    EXPECT_EQ(cursor.CopyMbChars("\xC3\xA9"
                                 "bcd",
                                 3),
              4);
    EXPECT_STREQ(out,
                 "\xE2\x82\xACy\xC3\xA9"
                 "bc");
    EXPECT_EQ(cursor.CopyMbChars("rest", 0), 0);
    EXPECT_EQ(cursor.CopyMbString("z\xFFq"), 1);
    EXPECT_EQ(cursor.CopyMbString(""), 0);
    EXPECT_EQ(cursor.CopyMbString(xstrNullStr), 0);
    EXPECT_STREQ(out,
                 "\xE2\x82\xACy\xC3\xA9"
                 "bcz");

    struct {
        const char *a, *b;
        int result;
    } cases[] = {{"", "", 0},
                 {"a", "ab", 0},
                 {"a", "b", -1},
                 {"b", "a", -1},
                 {"a", "", -1},
                 {"\xC3\xA9x", "\xC3\xA9y", 0},
                 {"\xC3\xA9", "\xC3\xA8", -1},
                 {"\xFF", "\xFF", -1}};
    for (auto &c : cases)
        EXPECT_EQ(xmbchar(c.a).Compare(xmbchar(c.b)), c.result) << c.a << " with " << c.b;
}

// Wide and neutral texts -----------------------------------------------------------------------

using wide = std::basic_string<unsigned short>;

wide units(std::u16string_view text) {
    return wide(text.begin(), text.end());
}

// UTF-8 by the book, from characters.
std::string encode(const std::u32string &text) {
    std::string bytes;
    auto put = [&bytes](char32_t value) { bytes += static_cast<char>(static_cast<unsigned char>(value)); };
    for (char32_t c : text) {
        if (c < 0x80) {
            put(c);
        } else if (c < 0x800) {
            put(0xC0 + c / 64), put(0x80 + c % 64);
        } else if (c < 0x10000) {
            put(0xE0 + c / 4096), put(0x80 + c / 64 % 64), put(0x80 + c % 64);
        } else {
            put(0xF0 + c / 262144), put(0x80 + c / 4096 % 64), put(0x80 + c / 64 % 64), put(0x80 + c % 64);
        }
    }
    return bytes;
}

wide to_units(const std::u32string &text) {
    wide result;
    for (char32_t c : text) {
        if (c >= 0x10000) result += static_cast<unsigned short>(0xD7C0 + (c >> 10));
        result += static_cast<unsigned short>(c >= 0x10000 ? 0xDC00 + (c & 0x3FF) : c);
    }
    return result;
}

std::u32string characters(std::mt19937 &random) {
    std::u32string text(random() % 20, U' ');
    for (auto &c : text) {
        constexpr char32_t limits[] = {0x7F, 0x7FF, 0xD7FF, 0x10FFFF};
        c = 1 + static_cast<char32_t>(random() % limits[random() % 4]);
        if (c >= 0xD800 && c < 0xE000) c = 0xFFFD;
    }
    return text;
}

TEST(WideTexts, ComeAndGoInTheLocalesEncoding) {
    locale_scope locale("C.UTF-8");
    ASSERT_TRUE(locale);
    std::mt19937 random(5);
    xstring target;
    for (int round = 0; round < 3000; ++round) {
        std::u32string text = characters(random);
        wide source = to_units(text);
        std::string bytes = encode(text);
        std::unique_ptr<char, void (*)(char *)> copy(StrneW(source.c_str()),
                                                     [](char *p) { ::operator delete(p); });
        ASSERT_STREQ(copy.get(), bytes.c_str());
        std::vector<char> out(4 * source.size() + 1);
        WStrtoStr(source.c_str(), out.data());
        ASSERT_STREQ(out.data(), bytes.c_str());
        if (round % 4 == 0) target = xstring(target);  // one more holder for a moment
        target = source.c_str();
        ASSERT_EQ(kel::view(target), bytes);
        xstring set;
        set.Set(source.c_str());
        ASSERT_EQ(kel::view(set), bytes);
        ASSERT_EQ(kel::view(strNativeToNeutral(bytes.c_str())), bytes) << "the neutral form is UTF-8";
        ASSERT_EQ(kel::view(strNeutralToNative(bytes.c_str())), bytes);
    }
}

TEST(WideTexts, AreAssignedInPlaceByTheirCharacters) {
    locale_scope locale("C.UTF-8");
    ASSERT_TRUE(locale);
    const wide ten = units(u"\u20ac\u20ac\u20ac\u20ac\u20ac\u20ac\u20ac\u20ac\u20ac\u20ac");
    struct {
        std::size_t units;
        bool kept;
    } cases[] = {{10, true}, {9, true}, {0, true}, {11, false}, {30, false}};
    for (auto &c : cases) {
        xstring text;
        text = ten.c_str();
        const char *before = text;
        text = wide(c.units, 0xE9).c_str();
        EXPECT_EQ(text.Str() == before, c.kept) << c.units;
        EXPECT_EQ(std::string_view(text).size(), 2 * c.units);
    }
    xstring twelve("abcdefghijkl");
    const char *before = twelve;
    twelve = units(u"x").c_str();
    EXPECT_NE(at_address(twelve), at_address(before));
    xstring tight("xyz");  // three characters again, but they need nine bytes
    tight = units(u"\u20ac\u20ac\u20ac").c_str();
    EXPECT_STREQ(tight, "\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC");
}

TEST(WideTexts, WithoutACounterpartGiveNull) {
    for (const char *name : {"C", "C.UTF-8"}) {
        locale_scope locale(name);
        wide lone = {u'a', 0xD800, u'b'}, euro = units(u"\u20ac");
        const wide &foreign = MB_CUR_MAX == 1 ? euro : lone;
        EXPECT_EQ(at_address(StrneW(foreign.c_str())), at_address(xstrNullStr));
        xstring text("abc");
        text = foreign.c_str();
        EXPECT_TRUE(text.IsNull());
        text.Set(foreign.c_str());
        EXPECT_TRUE(text.IsNull());
        char out[16] = "x";
        WStrtoStr(foreign.c_str(), out);
        EXPECT_STREQ(out, "");
    }
    locale_scope locale("C.UTF-8");
    auto marker = reinterpret_cast<const unsigned short *>(xstrNullStr);
    char out[4] = "old";
    for (const unsigned short *none : {marker, static_cast<const unsigned short *>(nullptr)}) {
        EXPECT_EQ(at_address(StrneW(none)), at_address(xstrNullStr));
        WStrtoStr(none, out);
        EXPECT_STREQ(out, "old");
    }
    xstring text("abc");
    text = marker;
    EXPECT_TRUE(text.IsNull());
    for (const char *none : {xstrNullStr, static_cast<const char *>(nullptr), kel::uninit_text()})
        EXPECT_TRUE(strNeutralToNative(none).IsNull() && strNativeToNeutral(none).IsNull());
    EXPECT_TRUE(strNativeToNeutral("a\xFF").IsNull());
    EXPECT_STREQ(strNeutralToNative("a\xFF"), "a\xEF\xBF\xBD") << "a malformed neutral byte becomes U+FFFD";
    EXPECT_STREQ(strNeutralToNative(""), "");
    EXPECT_STREQ(strNativeToNeutral(""), "");
}

TEST(WideTexts, AreCutAtSixteenMebibytes) {
    wide huge(6 * 1024 * 1024, 0x20AC);  // three bytes each
    std::unique_ptr<char, void (*)(char *)> text(StrneW(huge.c_str()), [](char *p) {
        if (kel::is_text(p)) ::operator delete(p);
    });
    EXPECT_EQ(at_address(text.get()), at_address(xstrNullStr)) << "the locale C has no euro sign";
    locale_scope locale("C.UTF-8");
    text.reset(StrneW(huge.c_str()));
    EXPECT_EQ(std::strlen(text.get()), 16777215U);
}

}  // namespace
