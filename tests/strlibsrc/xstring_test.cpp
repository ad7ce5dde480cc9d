// Strings: what they hold, which buffer holds it, and what several threads may do with one buffer.
#include <climits>
#include <cstdarg>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

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
    xstring null;
    const xstrbase &base = null;
    EXPECT_EQ(at(null), at(xstrNullStr));
    EXPECT_EQ(at(base), at(xstrNullStr));
    for (const char *marker : {xstrNullStr, uninit}) {
        EXPECT_TRUE(xstring(marker).IsNull());
        xstring text("text");
        text = marker;
        text += marker;
        EXPECT_TRUE(text.IsNull());
        EXPECT_STREQ(xstring(marker, 5), "");
        EXPECT_STREQ(xstring("a", marker), "a");
        EXPECT_STREQ(null + marker, "");
        EXPECT_STREQ(marker + xstring("b"), "b");
    }
    EXPECT_STREQ(xstring(no_text, 5), "");
    EXPECT_STREQ(xstring("abc", 0), "");
    EXPECT_STREQ(xstring("abc", UINT_MAX), "abc");
    EXPECT_STREQ(xstring(no_text, "b") + null + "y" + xstring("z"), "byz");
    EXPECT_TRUE(base.GetSize() == 1 && static_cast<const xstrbase &>(xstring("abc")).GetSize() == 4);
    EXPECT_EQ(null.ToInt() + null.ToLong(), 0);
    EXPECT_EQ(xstring(" -12x").ToInt(), -12);
    EXPECT_EQ(xstring("2000000000").ToLong(), 2000000000L);
    EXPECT_EQ(xstring("2.5e3").ToDouble(), 2500.0);
    EXPECT_TRUE(null.ToLower().IsNull() && null.ToUpper().IsNull());
    EXPECT_STREQ(xstring("\xC3 aB").ToUpper() + xstring("Ab").ToLower(), "\xC3 ABab");
}

TEST(Strings, ReportANullPointerAndBecomeEmpty) {
    const std::string report = "xstring: assignment of 0 is not supported any more. (strlibsrc/xstrlib)";
    internal_errors errors;
    EXPECT_STREQ(xstring(no_text), "");
    EXPECT_EQ(errors.take(), report);
    xstring text("abc"), other(text);
    text = no_text;
    EXPECT_TRUE(text == "" && other == "abc");
    other = static_cast<const unsigned short *>(nullptr);
    EXPECT_STREQ(other, "");
    EXPECT_EQ(errors.take(), report + "; " + report);
    text += no_text;
    struct : xncstr {
    } bare;
    EXPECT_EQ(errors.take(), "");
    EXPECT_EQ(at(bare), nullptr);
    bare.Sprintf("x");
    EXPECT_EQ(errors.take(), "- (strlibsrc/xstring); - (strlibsrc/xstring)");
    EXPECT_TRUE(bare - no_text == 0 && bare + "x" == "x" && bare.GetSize() == 1);
}

TEST(Strings, AreOrderedNullFirstThenNoTextThenBytes) {
    const char *ordered[] = {xstrNullStr, nullptr, "", "a", "ab", "a\x7F", "a\x80", "b", "\xFF"};
    std::map<xstring, int> by_text;
    for (int i = 8; i >= 0; --i) {
        if (i == 1) continue;  // a string is never "no text"
        xstring left(ordered[i]);
        by_text[left] = i;
        for (int k = 0; k < 9; ++k) {
            int expected = (i > k) - (i < k);
            EXPECT_EQ(left - ordered[k], expected) << i << " " << k;
            EXPECT_EQ(ordered[k] - left, -expected) << i << " " << k;
            EXPECT_EQ(left == ordered[k], expected == 0);
            EXPECT_EQ(left <=> ordered[k], expected <=> 0);
            if (k == 1) continue;
            xstring right(ordered[k]);
            const xstrbase &base = right;
            EXPECT_EQ(left - base, expected);
            EXPECT_EQ(left == right, expected == 0);
            EXPECT_EQ(left <=> right, expected <=> 0);
            EXPECT_EQ(left <=> base, expected <=> 0);
            EXPECT_EQ(std::hash<xstring>()(left) == std::hash<xstring>()(right), i == k);
        }
    }
    EXPECT_EQ(xstring() - uninit, 0);
    int last = -1;
    for (auto &[key, place] : by_text)
        EXPECT_LT(std::exchange(last, place), place) << kel::view(key);
    std::ostringstream out;
    out << xstring("a") << xstring() << static_cast<const xstrbase &>(xstring("b"));
    EXPECT_EQ(out.str(), "ab");
}

// Buffers --------------------------------------------------------------------------------------

TEST(Buffers, AreMovedWithoutACount) {
    xstring first("text"), copy(first);
    const char *text = first;
    xstring moved(std::move(first)), target("old");
    EXPECT_TRUE(first.IsNull());  // NOLINT: a moved-from string is null
    target = std::move(moved);
    xstring &same = target;
    target = std::move(same);
    EXPECT_EQ(at(target), at(text));
    EXPECT_EQ(count(text), 2U);
}

TEST(Buffers, AreHeldByCCallers) {
    for (const char *marker : {no_text, xstrNullStr, uninit}) {
        EXPECT_EQ(at(xstrcreate_c(marker)), at(marker));
        EXPECT_EQ(at(xstrlock_c(marker)), at(marker));
        xstrunlock_c(marker);
        EXPECT_TRUE(xstring::Adopt(const_cast<char *>(marker)).IsNull());
    }
    char *text = xstrcreate_c("some text");
    EXPECT_EQ(count(text), 1U);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(text) % 4, 0U);
    EXPECT_EQ(at(xstrlock_c(text)), at(text));
    xstrunlock_c(text);
    // The creator may still write; whoever reads afterwards sees the text as it is then.
    text[4] = 0;
    {
        xstring string = xstring::Adopt(xstrlock_c(text));
        EXPECT_EQ(at(string), at(text));
        EXPECT_EQ(std::string_view(string), "some");
        EXPECT_TRUE(string.GetSize() == 5 && string + "!" == "some!" && string == xstring("some"));
        string += "thing";
        EXPECT_STREQ(string, "something");
        EXPECT_STREQ(text, "some");
    }
    EXPECT_EQ(count(text), 1U);
    std::memcpy(text - 4, "\0\0\0\0", 4);
    xstrunlock_c(text);  // zero already: freed, says the leak check
    EXPECT_EQ(std::string_view(xstring::FromBytes("ab\0cd", 5)), "ab");
    EXPECT_EQ(std::string_view(xstring::FromBytes("abcd", 3)), "abc");
}

// A string beside what it must hold and be.
struct pair {
    xstring string;
    std::optional<std::string> model;

    explicit pair(const char *text) : string(text), model(text) {}
    pair(const pair &) = default;
};

class RandomStrings : public testing::Test {
protected:
    static constexpr unsigned strings = 6;

    std::string text() {
        std::string result(random() % 40, ' ');
        for (char &c : result)
            c = static_cast<char>('a' + random() % 3);
        return result;
    }
    // The holders of the buffer behind a string, counted from outside.
    unsigned sharers(const xstring &string) const {
        unsigned same = 0;
        for (auto &other : all)
            same += other->string.Str() == string.Str();
        return same;
    }
    // Whether a text of that length goes into the present buffer.
    bool kept(const pair &target, std::size_t length) const {
        if (!target.model || sharers(target.string) > 1) return false;
        std::size_t present = target.model->size();
        return length <= present && length + 10 >= present;
    }
    // One assignment; the buffer must be kept or changed as told.
    void assign(pair &target, const char *from, std::optional<std::string> expected) {
        bool stays = expected && kept(target, expected->size());
        const char *before = target.string;
        target.string = from;
        target.model = std::move(expected);
        check(target, before, stays);
    }
    void assign(pair &target, const pair &from) {
        bool stays = target.model == from.model || (from.model && kept(target, from.model->size()));
        const char *before = target.string;
        target.string = from.string;
        target.model = from.model;
        check(target, before, stays);
    }
    void check(const pair &target, const char *before, bool stays) {
        if (target.model) {
            EXPECT_EQ(target.string.Str() == before, stays)
                << "after assigning " << *target.model << " in round " << round;
        }
    }
    void step() {
        std::size_t which = random() % strings;
        pair &target = *all[which], &other = *all[random() % strings];
        std::string fresh = text();
        switch (random() % 12) {
            case 0:
            case 1:
                return assign(target, fresh.c_str(), fresh);
            case 2:
            case 3:
                return assign(target, other);
            case 4:  // a tail of the own text
                if (target.model) {
                    std::size_t from = random() % (target.model->size() + 1);
                    return assign(target, target.string.Str() + from, target.model->substr(from));
                }
                return;
            case 5:
                return assign(target, xstrNullStr, std::nullopt);
            case 6:  // a copy shares
                all[which] = std::make_unique<pair>(pair(other));
                return;
            case 7:
                target.string += other.string;
                if (other.model) target.model = target.model.value_or("") + *other.model;
                return;
            case 8:
                target.string += fresh.c_str();
                target.model = target.model.value_or("") + fresh;
                return;
            case 9:
                target.string = other.string + target.string + fresh.c_str();
                target.model = other.model.value_or("") + target.model.value_or("") + fresh;
                return;
            case 10: {
                unsigned from = static_cast<unsigned>(random() % 50),
                         to = static_cast<unsigned>(random() % 50);
                std::string whole = other.model.value_or("");
                target.string = other.string(from, to);
                target.model =
                    from < to && from < whole.size() ? whole.substr(from, to - from) : std::string();
                return;
            }
            default:
                if (target.model) {
                    target.string.Sprintf("%s<%s>", target.string.Str(), fresh.c_str());
                    target.model = *target.model + "<" + fresh + ">";
                }
                if (target.model && target.model->size() > 300) assign(target, "", "");
                return;
        }
    }
    std::mt19937 random{7};
    std::vector<std::unique_ptr<pair>> all;
    int round = 0;
};

TEST_F(RandomStrings, BehaveAsTheirModelAndKeepTheirBuffersByTheRule) {
    for (unsigned i = 0; i < strings; ++i)
        all.push_back(std::make_unique<pair>("start"));
    for (round = 0; round < 30000 && !HasFailure(); ++round) {
        step();
        for (auto &one : all) {
            ASSERT_EQ(one->string.IsNull(), !one->model) << "round " << round;
            if (!one->model) continue;
            ASSERT_STREQ(one->string, one->model->c_str()) << "round " << round;
            ASSERT_EQ(std::string_view(one->string).size(), one->model->size()) << "round " << round;
            ASSERT_EQ(count(one->string), sharers(one->string)) << "round " << round;
            if (one->model->size() > 500) assign(*one, "short", "short");
        }
    }
}

TEST(Buffers, GrowInPortionsUnderAppending) {
    xstring text("");
    std::string model;
    unsigned moves = 0;
    for (int i = 0; i < 100000; ++i) {
        const char *before = text;
        text += "ab";
        model += "ab";
        moves += text.Str() != before;
    }
    EXPECT_LT(moves, 40U);
    text += text;
    text += text.Str() + 1;
    EXPECT_STREQ(text, (model + model + (model + model).substr(1)).c_str());
}

TEST(Buffers, MayBeSharedByThreads) {
    const std::string original = "a text that several threads copy and drop";
    xstring shared(original.c_str());
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([copy = shared, &original, t] {
            for (int i = 0; i < 5000; ++i) {
                xstring mine(copy), other(mine);
                other = xstring(std::to_string(i).c_str());
                mine = other;
                mine += copy;
                EXPECT_EQ(mine.ToInt(), i);
                xstrunlock_c(xstrlock_c(copy));
                xstring last(copy);
                last = t % 2 ? original.c_str() : "short";
            }
            EXPECT_STREQ(copy, original.c_str());
        });
    shared = "gone";
    for (auto &thread : threads)
        thread.join();
}

// The last holder writes in place what the others have just read.
TEST(Buffers, AreWrittenOnlyWhenTheOtherHoldersAreGone) {
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

void by_list(xncstr &target, const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    target.Sprintf(format, arguments);
    va_end(arguments);
}

TEST(Formatting, IsThatOfPrintfUpToTheLimit) {
    internal_errors errors;
    xstring text("old");
    text.Sprintf("%s-%05.1f-%c", text.Str(), 2.25, 'x');
    EXPECT_STREQ(text, "old-002.2-x");
    by_list(text, "%d+%s", 3, "four");
    EXPECT_STREQ(text, "3+four");
    char array[] = "array";
    text.Sprintf("%s", array);  // an array or a literal is no argument list, whatever that is here
    EXPECT_STREQ(text, "array");
    for (std::size_t length : {999U, 1000U, 1001U, 65535U, 65536U, 65537U, 1000000U}) {
        std::string whole(length, 'y');
        text.Sprintf("%s", whole.c_str());
        EXPECT_EQ(std::string_view(text), whole.substr(0, 65536)) << length;
        EXPECT_EQ(errors.take(), length > 65536
                                     ? "xncstr::Sprintf: the text is too long and is cut (strlibsrc/xstring)"
                                     : "");
    }
    text.Sprintf("%ls", L"\x20ac");  // which the locale C does not have
    EXPECT_EQ(errors.take(), "xncstr::Sprintf: the text cannot be formatted (strlibsrc/xstring)");
    EXPECT_STREQ(text, "");

    xstring &result = xstring::MkSprintf("%d", 5);
    EXPECT_EQ(&xstring::MkSprintf("%s%s", result.Str(), result.Str()), &result);
    EXPECT_STREQ(result, "55");
}

TEST(Streams, GiveTextUpToTheirEndOrADelimiter) {
    std::istringstream lines("one\n\nthree"), zero(std::string("before\0behind", 13));
    xstring text, null, held;
    for (const char *expected : {"one", "one", "onethree", "onethree"}) {  // the end leaves a text alone
        held = text;
        text.Get(lines);
        EXPECT_STREQ(text, expected);
    }
    EXPECT_STREQ(held, "onethree");
    null.Get(lines);
    EXPECT_STREQ(null, "") << "and turns null into the empty text";
    for (const char *expected : {"before", "behind"}) {
        text.Set(zero);
        EXPECT_STREQ(text, expected);
    }
    std::string large(200000, 'x');
    std::istringstream much(large + ",");
    text.Get(much, ',');
    EXPECT_EQ(std::string_view(text), "behind" + large);
}

}  // namespace
