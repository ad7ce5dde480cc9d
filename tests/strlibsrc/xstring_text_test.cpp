// Characters of the locale, and texts in their wide and neutral form.
#include <kelstdmt/xstring.h>

#include "strlibsrc/text_model.h"

namespace {

using namespace text_model;

TEST(Characters, AreWalkedAndCutOut) {
    in_all_encodings(3000, [](chance &random) {
        const std::string text = random.text(8);
        const characters all = decode(text);
        const auto copy = exact(text);
        xmbchar cursor(copy.get());
        for (unsigned n = 0; n < all.size() + 2; ++n, cursor.Next()) {  // it stays at the end
            const std::size_t bytes = join(all, 0, n).size();
            EXPECT_EQ(cursor.position, copy.get() + bytes) << shown(text) << n;
            EXPECT_EQ(stringAfterCHars(copy.get(), n), copy.get() + bytes) << shown(text) << n;
        }
        const auto from = static_cast<unsigned>(random.below(10)),
                   to = static_cast<unsigned>(random.below(10));
        EXPECT_EQ(kel::view(xstring(copy.get())(from, to)), join(all, from, std::max(from, to)))
            << shown(text) << from << ' ' << to;
        EXPECT_EQ(kel::view(xstring(copy.get(), to)), join(all, 0, to)) << shown(text) << to;
    });
    constexpr auto unset = static_cast<unsigned>(strUnsetPos);
    EXPECT_TRUE(xstring("abcd")(1, unset) == "bcd" && xstring("abcd")(unset, 2) == "ab");
}

TEST(Characters, AreCopiedWholeUpToAnInvalidOne) {
    locale_scope locale("C.UTF-8");
    char out[16];
    xmbchar cursor(out);
    EXPECT_EQ(cursor.CopyMbChar("\xE2\x82\xACx"), 3);
    EXPECT_TRUE(cursor.CopyMbChar("\x82") == -1 && cursor.CopyMbChar("") == 0 && cursor.position == out + 3);
    EXPECT_EQ(cursor.CopyMbChars("\xC3\xA9zyx", 3), 4);
    EXPECT_EQ(cursor.CopyMbString("w\xFFq"), 1);
    EXPECT_EQ(cursor.CopyMbChars("rest", 0) + cursor.CopyMbString(xstrNullStr), 0);
    EXPECT_STREQ(out, "\xE2\x82\xAC\xC3\xA9zyw");
    EXPECT_EQ(xmbchar("\xC3\xA9x").Compare(xmbchar("\xC3\xA9y")), 0);
    EXPECT_EQ(xmbchar("\xC3\xA9").Compare(xmbchar("\xC3\xA8")), -1);
    EXPECT_EQ(xmbchar("\xFF").Compare(xmbchar("\xFF")), -1);
}

// Wide and neutral texts -----------------------------------------------------------------------

using wide = std::basic_string<unsigned short>;

wide to_units(const std::wstring &text) {
    wide result;
    for (const wchar_t c : text) {
        if (c >= 0x10000) result += static_cast<unsigned short>(0xD7C0 + (c >> 10));
        result += static_cast<unsigned short>(c >= 0x10000 ? 0xDC00 + (c & 0x3FF) : c);
    }
    return result;
}

// Of StrneW, which gives a block of memory.
std::string narrow(const wide &text) {
    char *block = StrneW(text.c_str());
    const std::string result(block);
    ::operator delete(block);
    return result;
}

TEST(WideTexts, ComeAndGoInTheLocalesEncoding) {
    locale_scope locale("C.UTF-8");
    std::mt19937 random(5);
    xstring target;
    for (int round = 0; round < 3000; ++round) {
        std::wstring text(random() % 20, L' ');
        for (wchar_t &c : text) {
            constexpr unsigned limits[] = {0x7F, 0x7FF, 0xD7FF, 0x10FFFF};
            c = static_cast<wchar_t>(1 + random() % limits[random() % 4]);
            if (c >= 0xD800 && c < 0xE000) c = 0xFFFD;
        }
        const wide source = to_units(text);
        std::string bytes(4 * text.size() + 1, '\0');
        bytes.resize(std::wcstombs(bytes.data(), text.c_str(), bytes.size()));
        ASSERT_EQ(narrow(source), bytes);
        std::vector<char> out(4 * source.size() + 1);
        WStrtoStr(source.c_str(), out.data());
        ASSERT_STREQ(out.data(), bytes.c_str());
        // Written into the present buffer, or beside other holders, or where there is no buffer yet.
        const xstring held(round % 4 == 0 ? target : xstring()), before(kel::view(held).data());
        xstring set;
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
    const wide ten(10, 0x20AC);
    for (auto [units, kept] : {std::pair(10U, true), {0U, true}, {11U, false}}) {
        xstring text;
        text = ten.c_str();
        const char *before = text;
        text = wide(units, 0xE9).c_str();
        EXPECT_EQ(text.Str() == before, kept) << units;
        EXPECT_EQ(std::string_view(text).size(), 2 * units);
    }
    xstring tight("xyz");  // three characters again, but they need nine bytes
    tight = wide(3, 0x20AC).c_str();
    EXPECT_STREQ(tight, "\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC");
    EXPECT_EQ(narrow(wide(6 * 1024 * 1024, 0x20AC)).size(), 16777215U) << "three bytes each, up to the limit";
}

TEST(WideTexts, WithoutACounterpartGiveNull) {
    const wide lone = {u'a', 0xD800, u'b'}, euro = {0x20AC};
    for (const char *name : {"C", "C.UTF-8"}) {
        locale_scope locale(name);
        const unsigned short *none = MB_CUR_MAX == 1 ? euro.c_str() : lone.c_str();
        EXPECT_FALSE(kel::is_text(StrneW(none)));
        xstring text("abc"), set("abc");
        text = none;
        set.Set(none);
        EXPECT_TRUE(text.IsNull() && set.IsNull());
        char out[16] = "old";
        WStrtoStr(none, out);
        EXPECT_STREQ(out, "");
    }
    locale_scope locale("C.UTF-8");
    EXPECT_TRUE(strNeutralToNative(xstrNullStr).IsNull() && strNativeToNeutral(nullptr).IsNull());
    EXPECT_TRUE(strNativeToNeutral("a\xFF").IsNull());
    const std::string longest((16 << 20) + 1, 'a');
    EXPECT_TRUE(strNeutralToNative(longest.c_str()) == longest.c_str()) << "a long text is cut";
    EXPECT_STREQ(strNeutralToNative("a\xFF"), "a\xEF\xBF\xBD") << "a malformed neutral byte becomes U+FFFD";
}

}  // namespace
