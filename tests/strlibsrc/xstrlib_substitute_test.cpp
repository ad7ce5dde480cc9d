// Splitting and replacing, against a model that does one step after the other on lists of characters.
#include "strlibsrc/text_model.h"

using namespace text_model;

namespace {

// Plain text from left to right; the empty text is before each character and at the end.
std::string replaced(const std::string &text, const std::string &pattern, const std::string &by,
                     std::size_t limit) {
    std::string result;
    if (pattern.empty()) {
        for (const std::string &one : decode(text))
            result += (limit > 0 ? (--limit, by) : "") + one;
        return limit > 0 ? result + by : result;
    }
    std::size_t at = 0;
    for (std::size_t found; limit > 0 && (found = text.find(pattern, at)) != std::string::npos; --limit) {
        result += text.substr(at, found - at) + by;
        at = found + pattern.size();
    }
    return result + text.substr(at);
}

TEST(Substitute, RangesAndOccurrencesAreReplaced) {
    in_all_encodings(10000, [](chance &random) {
        // In long texts that nearly match everywhere another search takes over.
        const bool few = random.below(8) == 0;
        const std::string text = few ? random.of({"a", "a", "a", "b"}, 1000) : random.text(10),
                          by = random.text(2);
        const std::string pattern =
            few ? text.substr(random.below(text.size() + 1), 1 + random.below(20)) : random.text(2);
        const int count = static_cast<int>(random.below(4)) - 1;
        const auto limit = count > 0 ? static_cast<std::size_t>(count) : 1'000'000;
        EXPECT_EQ(shown(strSubstitute(exact(text).get(), exact(pattern).get(), exact(by).get(), count)),
                  shown(replaced(text, pattern, by, limit)))
            << shown(text) << shown(pattern) << count;

        const characters all = decode(text);
        const int from = random.position(all.size()), to = random.position(all.size());
        const std::size_t first = clip(from, 0, all.size()), last = clip(to, all.size(), all.size());
        const std::string range = join(all, first, last);
        strSegment segment(from, to);
        EXPECT_EQ(shown(strSubstitute(exact(text).get(), &segment, exact(by).get())),
                  shown(join(all, 0, first) + by + join(all, last)))
            << shown(text) << from << ' ' << to;
        const std::string every =
            join(all, 0, first) + replaced(range, pattern, by, 1'000'000) + join(all, last);
        const std::string expected = range.find(pattern) == range.npos ? text : every;
        const xstring all_replaced =
            strSubstituteAll(text.c_str(), pattern.c_str(), by.c_str(), strLit, &segment);
        EXPECT_EQ(shown(all_replaced), shown(expected)) << shown(text) << shown(pattern) << from << ' ' << to;
    });
}

TEST(Substitute, NoMoreThanAMillionUnlessAsked) {
    const std::string many(1'000'005, 'x');
    EXPECT_EQ(shown(strSubstituteAll(many.c_str(), "x", "", strLit)), "\"xxxxx\"");
    EXPECT_TRUE(strSubstitute(many.c_str(), "", "-", 700'000) == replaced(many, "", "-", 700'000).c_str());
}

TEST(Substitute, ResultsThatNoMemoryHoldsAreRefused) {
    if (sizeof(std::size_t) > 4) GTEST_SKIP() << "there is memory for all that ints can ask for";
    const std::string many(1'000'000, 'x'), by(5000, 'y');
    EXPECT_THROW(strSubstitute(many.c_str(), "x", by.c_str(), 0), std::bad_alloc);
    strSegments all;
    for (int i = 0; i < 5000; ++i)
        all.append(new strSegment(i, i));
    EXPECT_THROW(strSubstitute(many.c_str(), &all, many.c_str()), std::bad_alloc);
    all.delallsegs();
}

// The mode decides whether anything is replaced, and then the pattern is plain text.
TEST(Substitute, ModesChooseWhatIsReplaced) {
    EXPECT_EQ(shown(strSubstituteAll("a.c abc", "a.c", "X", strRegExp)), "\"X abc\"");
    EXPECT_EQ(shown(strSubstituteAll("Ab ab", "ab", "X", strLitIC)), "\"Ab X\"");
    EXPECT_EQ(shown(strSubstituteAll("abc", "*", "X", strShell, 2, 1)), "\"abbc\"");
    EXPECT_EQ(shown(strSubstitute("xAbc", "b", "-", strLitIC, 2, 3)), "\"xA-c\"");
}

TEST(Substitute, ListsAreReplacedFromTheLastToTheFirst) {
    setErrReport(true);
    in_all_encodings(10000, [](chance &random) {
        const std::string text = random.text(8), one = random.text(2);
        characters all = decode(text);
        strSegments segments;
        const std::unique_ptr<xstringsequence> replacements(xstringsequence::create());
        const bool consistent = random.below(2), single = random.below(2);
        int last = 0;
        for (std::size_t n = random.below(5); n > 0; --n) {
            int from = random.position(all.size()), to = random.position(all.size());
            if (consistent) {
                from = last + static_cast<int>(random.below(2));
                last = to = from + static_cast<int>(random.below(3));
            }
            segments.append(random.below(9) ? new strSegment(from, to) : nullptr);
            replacements->append(single ? one.c_str() : random.text(2).c_str());
        }
        for (int i = segments.getarraysize(); i-- > 0;) {
            strSegment whole, *segment = segments.get(i) ? segments.get(i) : &whole;
            const std::size_t from = clip(segment->getFrom(), 0, all.size());
            const std::size_t to = clip(segment->getTo(), all.size(), all.size());
            // Broken characters may meet.
            all = decode(join(all, 0, from) + replacements->get(i).Str() + join(all, to));
        }
        const auto copy = exact(text);
        EXPECT_EQ(shown(single ? strSubstitute(copy.get(), &segments, one.c_str())
                               : strSubstitute(copy.get(), &segments, replacements.get())),
                  shown(join(all)))
            << shown(text);
        segments.delallsegs();
    });
}

// Lists in any order over long texts: time would tell if each segment cost the whole text.
TEST(Substitute, LongListsInAnyOrder) {
    locale_scope locale("C.UTF-8");
    constexpr int count = 200'000;
    std::string text, expected;
    strSegments forwards, backwards;
    for (int i = 0; i < count; ++i) {
        text += "\xC3\xA9=";
        expected += "\xE2\x82\xAC=";
        forwards.append(new strSegment(2 * i, 2 * i + 1));
    }
    for (int i = count; i-- > 0;)
        backwards.append(forwards.get(i));
    // As long as what they replace, so that the positions stay right in every order.
    EXPECT_TRUE(strSubstitute(text.c_str(), &forwards, "\xE2\x82\xAC") == expected.c_str());
    EXPECT_TRUE(strSubstitute(text.c_str(), &backwards, "\xE2\x82\xAC") == expected.c_str());
    forwards.delallsegs();

    // Bytes that are no characters, some of which make one when what is between them goes.
    std::string broken, joined;
    for (int i = 0; i < count; ++i) {
        broken += i % 2 ? "\x80=" : "\xC3=";
        joined += i % 2 ? "\x80" : "\xC3";
        forwards.append(new strSegment(2 * i + 1, 2 * i + 2));
    }
    EXPECT_TRUE(strSubstitute(broken.c_str(), &forwards, "") == joined.c_str());
    forwards.delallsegs();
}

TEST(Split, AroundTheFirstMatch) {
    const struct {
        const char *text, *pattern;
        strMatchMode mode;
        std::string before, match, after;
    } rows[] = {{"\303\251Ab", "A", strLitIC, "\303\251", "A", "b"},
                {"xaab", "a+", strRegExp, "x", "aa", "b"},
                {"xaab", "a*", strShell, "x", "a", "ab"}};
    locale_scope locale("C.UTF-8");
    for (const auto &[text, pattern, mode, before, match, after] : rows) {
        const characters parts = {before, before + match, after, match + after,
                                  match,  before + after, before};
        for (std::size_t i = 0; i < parts.size(); ++i)
            EXPECT_EQ(shown(strSplit(text, pattern, static_cast<strSplitMode>(i), mode)), shown(parts[i]))
                << text << i;
    }
    EXPECT_TRUE(strSplit("", "", strMatchOnly, strLit).IsNull() &&
                !strSplit("", "", strExclMatch, strLit).IsNull());
    EXPECT_TRUE(strSplit("a", "b", strExclMatch, strLit).IsNull());
}

TEST(Substitute, NullTextsAndNullReplacements) {
    const char *const null = xstrNullStr;
    strSegments none;
    EXPECT_TRUE(strSubstitute(null, 0, 1, "x").IsNull() && strSubstitute(null, "a", "x", 1).IsNull());
    EXPECT_TRUE(strSubstitute(null, &none, "x").IsNull() && strSubstituteAll(null, "", "x", strLit).IsNull());
    EXPECT_TRUE(strSubstitute("abc", 1, 2, null) == "ac" && strSubstitute("abc", null, "x", 1) == "abc");
    EXPECT_STREQ(strSubstituteAll("abc", null, "x", strLit), "abc");
}

}  // namespace
