// Characters of the locale, and texts in their wide and neutral form, in the locales C and C.UTF-8.
#include <kelstdmt/xstring.h>

#include "strlibsrc/text_model.h"

namespace {

using namespace text_model;

// A text pointer as a plain one: a failing comparison of text pointers would print what they point to.
const void *at_address(const char *text) {
    return text;
}

TEST(Characters, AreWalkedAndCutOut) {
    in_all_encodings(3000, [](chance &random) {
        const std::string text = random.text(8);
        const characters all = decode(text);
        const auto copy = exact(text);
        xmbchar cursor(copy.get());
        std::size_t bytes = 0;
        for (std::size_t n = 0; n < all.size(); bytes += all[n++].size(), cursor.Next()) {
            EXPECT_EQ(cursor.count, static_cast<int>(n));
            EXPECT_TRUE(cursor.position == copy.get() + bytes &&
                        cursor.position == stringAfterCHars(copy.get(), static_cast<unsigned>(n)))
                << shown(text) << n;
        }
        cursor.Next();
        EXPECT_EQ(cursor.position - copy.get(), static_cast<long>(text.size())) << "stays at the end";
        const auto from = static_cast<unsigned>(random.below(10)),
                   to = static_cast<unsigned>(random.below(10));
        EXPECT_EQ(kel::view(xstring(copy.get())(from, to)), join(all, from, std::max(from, to)))
            << shown(text) << from << ' ' << to;
        EXPECT_EQ(kel::view(xstring(copy.get(), to)), join(all, 0, to)) << shown(text) << to;
    });
    constexpr auto unset = static_cast<unsigned>(strUnsetPos);
    xstring text("abcd");
    EXPECT_TRUE(text(unset, unset) == "abcd" && text(1, unset) == "bcd" && text(unset, 2) == "ab");
    EXPECT_STREQ(xstring()(unset, unset), "");
    EXPECT_EQ(at_address(stringAfterCHars(xstrNullStr, 1)), at_address(xstrNullStr));
}

TEST(Characters, AreCopiedWholeUpToAnInvalidOne) {
    locale_scope locale("C.UTF-8");
    ASSERT_TRUE(locale);
    char out[16];
    xmbchar cursor(out);
    EXPECT_EQ(cursor.CopyMbChar("\xE2\x82\xACx"), 3);
    EXPECT_TRUE(cursor.count == 1 && cursor.position == out + 3);
    EXPECT_EQ(cursor.CopyMbChar("\x82"), -1);
    EXPECT_EQ(cursor.CopyMbChar(""), 0);
    EXPECT_EQ(cursor.position, out + 3);
    EXPECT_EQ(cursor.CopyMbChars("\xC3\xA9zyx", 3), 4);
    EXPECT_EQ(cursor.CopyMbChars("rest", 0), 0);
    EXPECT_EQ(cursor.CopyMbString("w\xFFq"), 1);
    EXPECT_EQ(cursor.CopyMbString("") + cursor.CopyMbString(xstrNullStr), 0);
    EXPECT_STREQ(out, "\xE2\x82\xAC\xC3\xA9zyw");
    for (auto [one, with, expected] : {std::tuple("", "", 0),
                                       {"a", "ab", 0},
                                       {"\xC3\xA9x", "\xC3\xA9y", 0},
                                       {"a", "b", -1},
                                       {"a", "", -1},
                                       {"\xC3\xA9", "\xC3\xA8", -1},
                                       {"\xFF", "\xFF", -1}})
        EXPECT_EQ(xmbchar(one).Compare(xmbchar(with)), expected) << one;
}

// Wide and neutral texts -----------------------------------------------------------------------

using wide = std::basic_string<unsigned short>;

// UTF-8 from characters, as the C library writes it.
std::string encode(const std::u32string &text) {
    const std::wstring characters(text.begin(), text.end());
    std::string bytes(4 * text.size() + 1, '\0');
    bytes.resize(std::wcstombs(bytes.data(), characters.c_str(), bytes.size()));
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

void give_back(char *text) {
    if (kel::is_text(text)) ::operator delete(text);
}
using Given = std::unique_ptr<char, void (*)(char *)>;

TEST(WideTexts, ComeAndGoInTheLocalesEncoding) {
    locale_scope locale("C.UTF-8");
    ASSERT_TRUE(locale);
    std::mt19937 random(5);
    xstring target;
    for (int round = 0; round < 3000; ++round) {
        std::u32string text(random() % 20, U' ');
        for (auto &c : text) {
            constexpr char32_t limits[] = {0x7F, 0x7FF, 0xD7FF, 0x10FFFF};
            c = 1 + static_cast<char32_t>(random() % limits[random() % 4]);
            if (c >= 0xD800 && c < 0xE000) c = 0xFFFD;
        }
        wide source = to_units(text);
        std::string bytes = encode(text);
        ASSERT_STREQ(Given(StrneW(source.c_str()), give_back).get(), bytes.c_str());
        std::vector<char> out(4 * source.size() + 1);
        WStrtoStr(source.c_str(), out.data());
        ASSERT_STREQ(out.data(), bytes.c_str());
        // Written into the present buffer, or beside other holders, or where there is no buffer yet.
        xstring held(round % 4 == 0 ? target : xstring()), before(kel::view(held).data()), set;
        target = source.c_str();
        set.Set(source.c_str());
        ASSERT_TRUE(kel::view(target) == bytes && kel::view(set) == bytes);
        ASSERT_EQ(kel::view(held), kel::view(before));
        ASSERT_EQ(kel::view(strNativeToNeutral(bytes.c_str())), bytes) << "the neutral form is UTF-8";
        ASSERT_EQ(kel::view(strNeutralToNative(bytes.c_str())), bytes);
    }
}

TEST(WideTexts, AreAssignedInPlaceByTheirCharacters) {
    locale_scope locale("C.UTF-8");
    ASSERT_TRUE(locale);
    const wide ten(10, 0x20AC);
    for (auto [units, kept] : {std::pair(10U, true), {9U, true}, {0U, true}, {11U, false}, {30U, false}}) {
        xstring text;
        text = ten.c_str();
        const char *before = text;
        text = wide(units, 0xE9).c_str();
        EXPECT_EQ(text.Str() == before, kept) << units;
        EXPECT_EQ(std::string_view(text).size(), 2 * units);
    }
    const wide huge(6 * 1024 * 1024, 0x20AC);  // three bytes each
    EXPECT_EQ(std::strlen(Given(StrneW(huge.c_str()), give_back).get()), 16777215U);
    xstring tight("xyz");  // three characters again, but they need nine bytes
    tight = wide(3, 0x20AC).c_str();
    EXPECT_STREQ(tight, "\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC");
}

TEST(WideTexts, WithoutACounterpartGiveNull) {
    const wide lone = {u'a', 0xD800, u'b'}, euro = {0x20AC};
    const auto marker = reinterpret_cast<const unsigned short *>(xstrNullStr);
    for (const char *name : {"C", "C.UTF-8"}) {
        locale_scope locale(name);
        for (const unsigned short *none : {MB_CUR_MAX == 1 ? euro.c_str() : lone.c_str(), marker}) {
            EXPECT_EQ(at_address(StrneW(none)), at_address(xstrNullStr));
            xstring text("abc"), set("abc");
            text = none;
            set.Set(none);
            EXPECT_TRUE(text.IsNull() && set.IsNull());
            char out[16] = "old";
            WStrtoStr(none, out);
            EXPECT_STREQ(out, none == marker ? "old" : "");
        }
    }
    locale_scope locale("C.UTF-8");
    EXPECT_EQ(at_address(StrneW(nullptr)), at_address(xstrNullStr));
    WStrtoStr(nullptr, nullptr);
    for (const char *none : {xstrNullStr, static_cast<const char *>(nullptr), kel::uninit_text()})
        EXPECT_TRUE(strNeutralToNative(none).IsNull() && strNativeToNeutral(none).IsNull());
    EXPECT_TRUE(strNativeToNeutral("a\xFF").IsNull());
    EXPECT_STREQ(strNeutralToNative("a\xFF"), "a\xEF\xBF\xBD") << "a malformed neutral byte becomes U+FFFD";
}

}  // namespace
