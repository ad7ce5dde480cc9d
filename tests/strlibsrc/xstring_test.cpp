// Strings: what they hold, which buffer holds it, and what several threads may do with one buffer.
#include <algorithm>
#include <climits>
#include <cstring>
#include <optional>
#include <random>
#include <sstream>
#include <thread>

#include <kelstdmt/xstring.h>

#include "services/observing.h"

namespace {

const char *const no_text = nullptr;
const char *const uninit = kel::uninit_text();

// A text pointer as a plain one: a failing comparison of text pointers would print what they point to.
const void *at(const char *text) {
    return text;
}

// The holder count that C callers find in front of a text.
unsigned count(const char *text) {
    std::uint32_t holders;
    std::memcpy(&holders, text - sizeof holders, sizeof holders);
    return holders;
}

TEST(Strings, TellNullFromEmpty) {
    const xstring null;
    for (const char *marker : {xstrNullStr, uninit}) {
        xstring text("text");
        text = marker;
        text += marker;
        EXPECT_TRUE(text.IsNull() && xstring(marker).IsNull());
        EXPECT_STREQ(marker + xstring(marker, 5) + xstring("a", marker) + marker, "a");
    }
    EXPECT_STREQ(xstring(no_text, 5) + xstring("abc", UINT_MAX) + null + xstring("y", no_text) + no_text,
                 "abcy");
    EXPECT_TRUE(null.ToLong() == 0 && null.ToDouble() == 0 && null.GetSize() == 1);
    EXPECT_TRUE(null.ToInt() == 0 && null.ToLower().IsNull() && null.ToUpper().IsNull());
}

TEST(Strings, AreNumbersAndJoinAnyTexts) {
    const xstring number(" -12.5e1x");
    EXPECT_TRUE(number.ToLong() == -12 && number.ToInt() == -12 && number.ToDouble() == -125);
    EXPECT_EQ(number.GetSize(), 10U);
    const xstrbase &left = number, &right = number;
    EXPECT_STREQ("a" + left, "a -12.5e1x");
    EXPECT_STREQ(left + "b", " -12.5e1xb");
    EXPECT_STREQ(left + right, " -12.5e1x -12.5e1x");
}

TEST(Strings, ReportANullPointerAndBecomeEmpty) {
    internal_errors errors;
    xstring text(no_text), other("abc"), third("abc");
    third = no_text;
    other = static_cast<const unsigned short *>(nullptr);
    EXPECT_TRUE(text == "" && other == "" && third == "");
    const std::string report = "xstring: assignment of 0 is not supported any more. (strlibsrc/xstrlib)";
    EXPECT_EQ(errors.take(), report + "; " + report + "; " + report);
}

TEST(Strings, AreOrderedNullFirstThenNoTextThenBytes) {
    const char *ordered[] = {xstrNullStr, nullptr, "", "a", "ab", "a\x7F", "a\x80", "b", "\xFF"};
    for (int i = 0; i < 9; ++i)
        for (int k = 0; k < 9; ++k) {
            if (i == 1) continue;  // a string is never "no text"
            const xstring left(ordered[i]);
            const int expected = (i > k) - (i < k);
            EXPECT_EQ(left - ordered[k], expected) << i << " " << k;
            EXPECT_EQ(ordered[k] - left, -expected) << i << " " << k;
            EXPECT_TRUE((left == ordered[k]) == (expected == 0) && (left <=> ordered[k]) == expected <=> 0);
            if (k == 1) continue;
            const xstring right(ordered[k]);
            EXPECT_TRUE((left == right) == (expected == 0) && (left <=> right) == expected <=> 0);
            EXPECT_EQ(left - static_cast<const xstrbase &>(right), expected);
            EXPECT_EQ(std::hash<xstring>()(left) == std::hash<xstring>()(right), i == k);
        }
}

// Buffers --------------------------------------------------------------------------------------

TEST(Buffers, AreHeldByCCallers) {
    for (const char *marker : {no_text, xstrNullStr, uninit}) {
        EXPECT_TRUE(at(xstrcreate_c(marker)) == at(marker) && at(xstrlock_c(marker)) == at(marker));
        xstrunlock_c(marker);
        EXPECT_TRUE(xstring::Adopt(const_cast<char *>(marker)).IsNull());
    }
    char *text = xstrcreate_c("some text");
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(text) % 4, 0U);
    // The creator may still write; whoever reads afterwards sees the text as it is then.
    text[4] = 0;
    {
        xstring string = xstring::Adopt(xstrlock_c(text));
        EXPECT_TRUE(at(string) == at(text) && count(text) == 2);
        EXPECT_TRUE(string.GetSize() == 5 && string + "!" == "some!" && string == xstring("some"));
        string += "thing";
        EXPECT_STREQ(string, "something");
        EXPECT_STREQ(text, "some");
    }
    EXPECT_EQ(count(text), 1U);
    std::memcpy(text - 4, "\0\0\0\0", 4);
    xstrunlock_c(text);  // zero already: freed, says the leak check
    EXPECT_TRUE(xstring::FromBytes("ab\0cd", 5) == "ab" && xstring::FromBytes("abcd", 3) == "abc");
}

// Strings beside std::string, or none for the null string. An assignment keeps its buffer exactly when nobody
// else holds it and the text fits well, or when the text is the same.
TEST(Buffers, HoldWhatTheyMustAndStayByTheRule) {
    std::mt19937 random(7);
    struct {
        xstring string{"start"};
        std::optional<std::string> model{"start"};
    } all[6];
    auto sharers = [&](const char *text) {
        return std::ranges::count_if(all, [text](auto &one) { return one.string.Str() == text; });
    };
    for (int round = 0; round < 30000; ++round) {
        auto &target = all[random() % 6], &other = all[random() % 6];
        std::string fresh(random() % 40, ' ');
        for (char &c : fresh)
            c = static_cast<char>('a' + random() % 3);
        const std::string mine = target.model.value_or(""), theirs = other.model.value_or("");
        const char *before = target.string;
        const bool alone = target.model && sharers(before) == 1;
        auto fits = [&](std::size_t length) {
            return alone && length <= mine.size() && length + 10 >= mine.size();
        };
        std::optional<bool> stays;
        const std::size_t from = random() % 50;
        switch (mine.size() > 300 ? 4 : random() % 8) {
            case 0:
                stays = fits(fresh.size());
                target.string = fresh.c_str();
                target.model = fresh;
                break;
            case 1:
                stays = target.model == other.model || (other.model && fits(theirs.size()));
                target.string = other.string;
                target.model = other.model;
                break;
            case 2:  // a tail of the own text
                if (!target.model || from > mine.size()) break;
                stays = fits(mine.size() - from);
                target.string = target.string.Str() + from;
                target.model = mine.substr(from);
                break;
            case 3:
                target.string = xstring(other.string);  // shares
                target.model = other.model;
                break;
            case 4:
                target.string = xstrNullStr;
                target.model.reset();
                break;
            case 5:
                target.string += other.string;
                target.string += fresh.c_str();
                target.model = mine + theirs + fresh;
                break;
            case 6: {
                stays = true;
                xstring moved(std::move(target.string)), &same = moved;
                same = std::move(moved);
                target.string = std::move(moved);
                break;
            }
            default:
                target.string = other.string + target.string + fresh.c_str();
                target.model = theirs + mine + fresh;
        }
        if (stays && target.model) {
            ASSERT_EQ(target.string.Str() == before, *stays) << *target.model << " in round " << round;
        }
        for (auto &one : all) {
            ASSERT_EQ(one.string.IsNull(), !one.model) << "round " << round;
            if (!one.model) continue;
            ASSERT_EQ(std::string(one.string.Str(), one.string.GetSize() - 1), *one.model)
                << "round " << round;
            ASSERT_EQ(count(one.string), sharers(one.string)) << "round " << round;
        }
    }
}

TEST(Buffers, GrowInPortionsUnderAppending) {
    xstring text("");
    unsigned moves = 0;
    for (int i = 0; i < 100000; ++i) {
        const char *before = text;
        text += "ab";
        moves += text.Str() != before;
    }
    EXPECT_LT(moves, 40U);
    const std::string model(text);
    text += text;
    text += text.Str() + 1;
    EXPECT_EQ(std::string_view(text), model + model + (model + model).substr(1));
}

TEST(Buffers, MayBeSharedByThreads) {
    const std::string original = "a text that several threads copy and drop";
    xstring shared(original.c_str());
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([copy = shared, &original, t] {
            for (int i = 0; i < 5000; ++i) {
                xstring mine(copy), last(mine);
                mine = std::to_string(i).c_str();
                mine += copy;
                EXPECT_EQ(mine.ToInt(), i);
                xstrunlock_c(xstrlock_c(copy));
                last = t % 2 ? original.c_str() : "short";
            }
            EXPECT_STREQ(copy, original.c_str());
        });
    shared = "gone";
    for (auto &thread : threads)
        thread.join();
    // The last holder writes in place what the others have just read.
    for (int round = 0; round < 500; ++round) {
        xstring mine("0123456789");
        std::thread reader([copy = mine]() mutable {
            EXPECT_STREQ(copy, "0123456789");
            copy = xstrNullStr;
        });
        mine = "9876543210";
        reader.join();
        EXPECT_STREQ(mine, "9876543210");
    }
}

// Formatting and streams -----------------------------------------------------------------------

TEST(Formatting, IsThatOfPrintfUpToTheLimit) {
    internal_errors errors;
    xstring text("old");
    text.Sprintf("%s-%05.1f-%c", text.Str(), 2.25, 'x');
    EXPECT_STREQ(text, "old-002.2-x");
    for (std::size_t length : {999U, 1000U, 65535U, 65536U, 65537U, 1000000U}) {
        const std::string whole(length, 'y');
        text.Sprintf("%s", whole.c_str());
        EXPECT_EQ(std::string_view(text), whole.substr(0, 65536)) << length;
        EXPECT_EQ(errors.take().empty(), length <= 65536);
    }
    text.Sprintf("%ls", L"\x20ac");  // which the locale C does not have
    EXPECT_TRUE(!errors.take().empty() && text == "");
    xstring &result = xstring::MkSprintf("%d", 5);
    EXPECT_STREQ(xstring::MkSprintf("%s%s", result.Str(), result.Str()), "55");
}

TEST(Streams, GiveTextUpToTheirEndOrADelimiter) {
    std::istringstream lines("one\n\nthree"), zero(std::string("before\0behind", 13));
    xstring text, null;
    for (const char *expected : {"one", "one", "onethree", "onethree"}) {  // the end leaves a text alone
        text.Get(lines);
        EXPECT_STREQ(text, expected);
    }
    null.Get(lines);
    text.Set(zero);
    EXPECT_TRUE(!null.IsNull() && text == "before");
    const std::string large(200000, 'x');
    std::istringstream much(large + ",");
    text.Get(much, ',');
    EXPECT_EQ(std::string_view(text), "before" + large);
}

}  // namespace
