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
        const std::string text = random.text(10), pattern = random.text(2), by = random.text(2);
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
                  shown(join(all, 0, first) + by + join(all, clip(to, all.size(), all.size()))))
            << shown(text) << from << ' ' << to;
        const std::string every =
            join(all, 0, first) + replaced(range, pattern, by, 1'000'000) + join(all, last);
        const bool found = range.find(pattern) != std::string::npos;
        EXPECT_EQ(
            shown(strSubstituteAll(exact(text).get(), exact(pattern).get(), by.c_str(), strLit, &segment)),
            shown(found ? every : text))
            << shown(text) << shown(pattern) << from << ' ' << to;
    });
}

// Long texts of few different bytes, and patterns of all lengths that nearly occur everywhere.
TEST(Substitute, OccurrencesInLongTexts) {
    chance random{std::mt19937(9)};
    for (int round = 0; round < 400; ++round) {
        std::string text(random.below(5000), 'a');
        for (std::size_t i = random.below(1 + text.size() / (1 + random.below(60))); i > 0; --i)
            text[random.below(text.size())] = random.below(3) ? 'b' : 'c';
        const std::size_t length = random.below(4) ? 1 + random.below(9) : 1 + random.below(400);
        std::string pattern = text.substr(random.below(text.size() + 1), length);
        if (random.below(3) == 0) pattern += 'd';
        EXPECT_EQ(shown(strSubstitute(exact(text).get(), pattern.c_str(), "<>", 1'000'000)),
                  shown(replaced(text, pattern, "<>", 1'000'000)))
            << shown(pattern);
    }
}

TEST(Substitute, NoMoreThanAMillionUnlessAsked) {
    const std::string many(1'000'005, 'x');
    EXPECT_EQ(shown(strSubstituteAll(many.c_str(), "x", "", strLit)), "\"xxxxx\"");
    EXPECT_EQ(shown(strSubstitute(many.c_str(), "x", "", 1'000'004)), "\"x\"");
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
    EXPECT_EQ(shown(strSubstituteAll("abc", "a.c", "X", strRegExp)), "\"abc\"");
    EXPECT_EQ(shown(strSubstituteAll("Ab ab", "ab", "X", strLitIC)), "\"Ab X\"");
    EXPECT_EQ(shown(strSubstituteAll("abc", "*", "X", strShell, 2, 1)), "\"abbc\"");
    EXPECT_EQ(shown(strSubstitute("xaaay", "a*y", "-", strShell)), "\"x-\"");
    EXPECT_EQ(shown(strSubstitute("xAbc", "b", "-", strLitIC, 2, 3)), "\"xA-c\"");
    EXPECT_EQ(shown(strSubstitute("xAbc", "q", "-", strLitIC)), "\"xAbc\"");
    EXPECT_EQ(shown(strSubstitute("xbx", "x", xstrNullStr, static_cast<strMatchMode>(6))), "\"bx\"");
}

TEST(Substitute, ListsAreReplacedFromTheLastToTheFirst) {
    setErrReport(true);
    in_all_encodings(5000, [](chance &random) {
        const std::string text = random.text(8);
        characters all = decode(text), same = all;
        strSegments segments;
        const std::unique_ptr<xstringsequence> replacements(xstringsequence::create());
        const std::string one = random.text(2);
        const bool consistent = random.below(2);
        int last = 0;
        for (std::size_t n = random.below(5); n > 0; --n) {
            int from = random.position(all.size()), to = random.position(all.size());
            if (consistent) {
                from = last + static_cast<int>(random.below(2));
                last = to = from + static_cast<int>(random.below(3));
            }
            segments.append(random.below(9) ? new strSegment(from, to) : nullptr);
            replacements->append(random.text(2).c_str());
        }
        auto replace = [](characters &list, strSegment *segment, const std::string &with) {
            const std::size_t count = list.size(),
                              from = clip(segment ? segment->getFrom() : strUnsetPos, 0, count),
                              to = clip(segment ? segment->getTo() : strUnsetPos, count, count);
            list = decode(join(list, 0, from) + with + join(list, to));  // broken characters may meet
        };
        for (int i = segments.getarraysize(); i-- > 0;) {
            replace(all, segments.get(i), replacements->get(i).Str());
            replace(same, segments.get(i), one);
        }
        EXPECT_EQ(shown(strSubstitute(exact(text).get(), &segments, replacements.get())), shown(join(all)))
            << shown(text);
        EXPECT_EQ(shown(strSubstitute(exact(text).get(), &segments, exact(one).get())), shown(join(same)))
            << shown(text);
        segments.delallsegs();
    });
    setErrReport(false);
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
}

TEST(Split, AroundTheFirstMatch) {
    const char *const null = xstrNullStr;
    const struct {
        const char *text, *pattern;
        strMatchMode mode;
        const char *expected[6];  // before, the same with the match, after, the same, the match, all but it
    } rows[] = {{"key=val=x", "=", strLit, {"key", "key=", "val=x", "=val=x", "=", "keyval=x"}},
                {"\303\251Ab", "A", strLitIC, {"\303\251", "\303\251A", "b", "Ab", "A", "\303\251b"}},
                {"xaab", "a*b", strShell, {"x", "xaab", "", "aab", "aab", "x"}},
                {"xaab", "a+", strRegExp, {"x", "xaa", "b", "aab", "aa", "xb"}},
                {"", "", strLit, {null, null, null, null, null, ""}},
                {"a", "b", strLit, {null, null, null, null, null, null}},
                {null, "b", strLit, {null, null, null, null, null, null}}};
    locale_scope locale("C.UTF-8");
    for (const auto &row : rows)
        for (int split = 0; split < 7; ++split)
            EXPECT_EQ(shown(strSplit(row.text, row.pattern, static_cast<strSplitMode>(split), row.mode)),
                      shown(row.expected[split % 6]))
                << shown(row.text) << ' ' << split;
}

TEST(Substitute, NullTextsAndNullReplacements) {
    strSegments segments;
    EXPECT_EQ(shown(strSubstitute(xstrNullStr, 0, 1, "x")), "null");
    EXPECT_EQ(shown(strSubstitute(xstrNullStr, "a", "x", 1)), "null");
    EXPECT_EQ(shown(strSubstituteAll(xstrNullStr, "a", "x", strLit)), "null");
    EXPECT_EQ(shown(strSubstitute(xstrNullStr, &segments, "x")), "null");
    EXPECT_EQ(shown(strSubstitute("abc", 1, 2, xstrNullStr)), "\"ac\"");
    EXPECT_EQ(shown(strSubstitute("abc", xstrNullStr, "x", 1)), "\"abc\"");
    EXPECT_EQ(shown(strSubstituteAll("abc", xstrNullStr, "x", strLit)), "\"abc\"");
    EXPECT_EQ(shown(strSubstitute("abc", static_cast<strSegments *>(nullptr), "x")), "\"abc\"");
}

}  // namespace
