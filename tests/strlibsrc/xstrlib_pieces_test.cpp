// Measuring texts and taking pieces out of them, against a model of lists of characters.
#include "strlibsrc/text_model.h"

using namespace text_model;

namespace {

using sequence = std::unique_ptr<xstringsequence>;

characters shown_all(const sequence &list) {
    characters result;
    for (const xstring &text : *list)
        result.push_back(shown(text));
    return result;
}

TEST(Pieces, CommonEndsAreWholeCharacters) {
    in_all_encodings(8000, [](chance &random) {
        const std::string common = random.text(3);
        std::string a = random.text(3), b = random.text(3);
        random.below(2) ? (a = common + a, b = common + b) : (a += common, b += common);
        const auto ignorecase = static_cast<unsigned char>(random.below(2));
        const characters x = decode(ignorecase ? upper(a) : a), y = decode(ignorecase ? upper(b) : b);
        const auto prefix = std::mismatch(x.begin(), x.end(), y.begin(), y.end()).first - x.begin();
        const auto suffix = std::mismatch(x.rbegin(), x.rend(), y.rbegin(), y.rend()).first - x.rbegin();
        EXPECT_EQ(strCmnPfxLen(exact(a).get(), exact(b).get(), ignorecase), prefix) << shown(a) << shown(b);
        EXPECT_EQ(strCmnSfxLen(exact(a).get(), exact(b).get(), ignorecase), suffix) << shown(a) << shown(b);
    });
}

TEST(Pieces, SubstringsAreRangesOfCharacters) {
    in_all_encodings(8000, [](chance &random) {
        const std::string text = random.text(6);
        const characters all = decode(text);
        const std::size_t count = all.size();
        strSegment segment(random.position(count), random.position(count));
        const std::string piece =
            shown(join(all, clip(segment.getFrom(), 0, count), clip(segment.getTo(), count, count)));
        strSegments segments;
        segments.append(&segment);
        segments.append(nullptr);
        EXPECT_EQ(shown_all(sequence(strAllSubstrings(exact(text).get(), &segments))),
                  text.empty() ? characters({"null", "null"}) : characters({piece, shown(text)}))
            << segment.getFrom() << ' ' << segment.getTo();
        EXPECT_EQ(strLen(exact(text).get()), static_cast<int>(count));
    });
}

TEST(Pieces, WordsEndAtRunsOfSeparators) {
    in_all_encodings(5000, [](chance &random) {
        const std::string text = random.text(12);
        const bool standard = random.below(3) == 0;
        const std::string set = standard ? " \t\v\b" : random.text(2);
        const characters separators = decode(set);
        characters words(1);
        bool in_run = false;
        for (const std::string &one : decode(text)) {
            const bool separator = std::find(separators.begin(), separators.end(), one) != separators.end();
            if (separator && !in_run) words.emplace_back();
            if (!separator) words.back() += one;
            in_run = separator;
        }
        for (std::string &word : words)
            word = shown(word);
        const auto owner = exact(set);
        const char *given = standard ? xstrNullStr : owner.get();
        EXPECT_EQ(shown_all(sequence(strExplode(exact(text).get(), given))), words)
            << shown(text) << shown(set);
        words.push_back("null");
        const std::size_t n = random.below(words.size());
        EXPECT_EQ(shown(strWord(exact(text).get(), static_cast<int>(n), given)), words[n]) << shown(text);
    });
}

TEST(Pieces, CharactersOfASetAreFoundFromBothEnds) {
    in_all_encodings(20000, [](chance &random) {
        const std::string text = random.text(8), set = random.text(2);
        const auto ignorecase = static_cast<unsigned char>(random.below(2));
        const characters all = decode(ignorecase ? upper(text) : text);
        const bool backward = random.below(2);
        const std::size_t count = all.size(), start = backward ? count : 0;
        strSegment range(random.position(count), random.position(count));
        const auto [low, high] =
            std::minmax({clip(range.getFrom(), start, count), clip(range.getTo(), count - start, count)});
        int expected = strUnsetPos;
        for (std::size_t i = low; i < high && (backward || expected < 0); ++i)
            if ((ignorecase ? upper(set) : set).find(all[i]) != std::string::npos)
                expected = static_cast<int>(i);
        EXPECT_EQ(strChar(exact(text).get(), exact(set).get(), backward ? strBackward : strForward, &range,
                          ignorecase),
                  expected)
            << shown(text) << shown(set) << range.getFrom() << ' ' << range.getTo() << ' ' << backward;
    });
}

TEST(Pieces, OrderKnowsNullAndCase) {
    for (const std::size_t size : {1U, 199U, 200U, 5000U}) {
        const std::string low(size, 'x'), high(size, 'X');
        EXPECT_EQ(strCmp(exact(low).get(), exact(high).get(), 1), 0) << size;
        EXPECT_EQ(strCmp(exact(low).get(), exact(high).get()), 1) << size;
        EXPECT_GT(strCmp(exact(low + "y").get(), exact(high + "X").get(), 1), 0) << size;
    }
    EXPECT_TRUE(strCmp(xstrNullStr, nullptr, 1) < 0 && strCmp(nullptr, "", 1) < 0 &&
                strCmp("b", "\xE9", 1) < 0);
    EXPECT_TRUE(strCmp("_", "A") == 1 && strCmp("_", "A", 1) < 0);
}

TEST(Pieces, NoTextGivesNothing) {
    const sequence list(xstringsequence::create());
    EXPECT_TRUE(strConcat(list.get()).IsNull() && strConcat(nullptr).IsNull() && strWord("a", -1).IsNull());
    for (const char *text : {"ab", xstrNullStr, "c"})
        list->append(text);
    EXPECT_EQ(shown(strConcat(list.get())), "\"abc\"");
    for (const char *text : {xstrNullStr, static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(strLen(text) + strCmnPfxLen(text, "a") + strCmnSfxLen("a", text), 0);
        EXPECT_TRUE(strSubstring(text, 0, 1).IsNull() && strWord(text, 0).IsNull());
        EXPECT_EQ(sequence(strExplode(text))->getarraysize(), 0);
        EXPECT_TRUE(strChar(text, "a", strForward, 0, 1) < 0 && strChar("a", text, strForward, 0, 1) < 0);
    }
    EXPECT_EQ(sequence(strAllSubstrings("a", nullptr))->getarraysize(), 0);
}

// Helpers of settings --------------------------------------------------------------------------

TEST(Settings, BlanksArePressedOut) {
    chance random{std::mt19937(5)};
    for (int round = 0; round < 5000; ++round) {
        const std::string text = random.text(8);
        std::string pressed = text, without = text;
        std::erase_if(pressed, [](char byte) { return byte == ' ' || byte == '\t'; });
        std::erase(without, 'a');
        const auto place = exact(text);
        EXPECT_EQ(StrPress(place.get(), 'a'), without != text);
        EXPECT_EQ(place.get(), without);
        char *const copy = StrPress(static_cast<const char *>(exact(text).get()));
        EXPECT_EQ(shown(copy), pressed == text ? "null" : shown(pressed));
        ::operator delete(copy);
        xstring string(text.c_str());
        StrPress(string);
        EXPECT_EQ(shown(string), shown(pressed));
    }
}

TEST(Settings, TheFirstSeparatorSplits) {
    const char *const null = xstrNullStr;
    const struct {
        const char *text, *before, *after;  // 0: not split
    } rows[] = {{"a=b=c", "a", "b=c"},    {"=x", null, "x"},        {"x=", "x", null},
                {"ab", nullptr, nullptr}, {null, nullptr, nullptr}, {"\xC3\xA9=1", "\xC3\xA9", "1"}};
    for (const auto &row : rows) {
        xstring before(row.text), after("kept");
        EXPECT_EQ(StrSplit(before, '=', before, after), row.before != nullptr);
        EXPECT_EQ(shown(before), shown(row.before ? row.before : row.text));
        EXPECT_EQ(shown(after), row.before ? shown(row.after) : "\"kept\"");
        EXPECT_EQ(shown(StrSplitBefore(row.text, '=')), shown(row.before)) << shown(row.text);
        EXPECT_EQ(shown(StrSplitAfter(row.text, '=')), shown(row.after)) << shown(row.text);
    }
}

}  // namespace
