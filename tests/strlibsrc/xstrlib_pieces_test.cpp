// Measuring texts and taking pieces out of them, against a model of lists of characters.
#include "strlibsrc/text_model.h"

using namespace text_model;

namespace {

using sequence = std::unique_ptr<xstringsequence>;

std::vector<std::string> shown_all(const sequence &list) {
    std::vector<std::string> result;
    for (const xstring &text : *list)
        result.push_back(shown(text));
    return result;
}

TEST(Pieces, CommonEndsAreWholeCharacters) {
    in_all_encodings(5000, [](chance &random) {
        const std::string common = random.text(3);
        std::string a = random.text(3), b = random.text(3);
        random.below(2) ? (a = common + a, b = common + b) : (a += common, b += common);
        for (unsigned char ignorecase : no_and_yes) {
            const characters x = decode(ignorecase ? upper(a) : a), y = decode(ignorecase ? upper(b) : b);
            const auto prefix = std::mismatch(x.begin(), x.end(), y.begin(), y.end()).first - x.begin();
            const auto suffix = std::mismatch(x.rbegin(), x.rend(), y.rbegin(), y.rend()).first - x.rbegin();
            EXPECT_EQ(strCmnPfxLen(exact(a).get(), exact(b).get(), ignorecase), prefix)
                << shown(a) << shown(b);
            EXPECT_EQ(strCmnSfxLen(exact(a).get(), exact(b).get(), ignorecase), suffix)
                << shown(a) << shown(b);
        }
    });
}

TEST(Pieces, SubstringsAreRangesOfCharacters) {
    in_all_encodings(5000, [](chance &random) {
        const std::string text = random.text(6);
        const characters all = decode(text);
        const std::size_t count = all.size();
        strSegments segments;
        std::vector<std::string> expected;
        for (int i = 0; i < 3; ++i) {
            const int from = random.position(count), to = random.position(count);
            segments.append(new strSegment(from, to));
            const std::string piece = join(all, clip(from, 0, count), clip(to, count, count));
            expected.push_back(text.empty() ? "null" : shown(piece));
            EXPECT_EQ(shown(strSubstring(exact(text).get(), from, to)), expected.back())
                << shown(text) << ' ' << from << ' ' << to;
        }
        segments.append(nullptr);
        expected.push_back(text.empty() ? "null" : shown(text));
        EXPECT_EQ(shown_all(sequence(strAllSubstrings(exact(text).get(), &segments))), expected);
        EXPECT_EQ(strLen(exact(text).get()), static_cast<int>(count));
        segments.delallsegs();
    });
}

TEST(Pieces, WordsEndAtRunsOfSeparators) {
    in_all_encodings(5000, [](chance &random) {
        const std::string text = random.text(12);
        const bool standard = random.below(3) == 0;
        const std::string set = standard ? " \t\v\b" : random.text(2);
        const characters separators = decode(set);
        std::vector<std::string> words(1);
        bool in_run = false;
        for (const std::string &one : decode(text)) {
            const bool separator = std::find(separators.begin(), separators.end(), one) != separators.end();
            if (separator && !in_run) words.emplace_back();
            if (!separator) words.back() += one;
            in_run = separator;
        }
        const auto owner = exact(set);
        const char *given = standard ? xstrNullStr : owner.get();
        for (std::string &word : words)
            word = shown(word);
        EXPECT_EQ(shown_all(sequence(strExplode(exact(text).get(), given))), words)
            << shown(text) << shown(set);
        words.push_back("null");
        for (std::size_t n = 0; n < words.size(); ++n)
            EXPECT_EQ(shown(strWord(exact(text).get(), static_cast<int>(n), given)), words[n]) << shown(text);
    });
}

TEST(Pieces, CharactersOfASetAreFoundFromBothEnds) {
    in_all_encodings(10000, [](chance &random) {
        const std::string text = random.text(8), set = random.text(2);
        const characters all = decode(text);
        const int from = random.position(all.size()), to = random.position(all.size());
        for (strScanDir direction : {strForward, strBackward}) {
            const std::size_t count = all.size(), start = direction == strForward ? 0 : count;
            const auto [low, high] = std::minmax({clip(from, start, count), clip(to, count - start, count)});
            for (unsigned char ignorecase : no_and_yes) {
                int expected = strUnsetPos;
                for (std::size_t i = low; i < high && (direction == strBackward || expected < 0); ++i) {
                    const std::string one = ignorecase ? upper(all[i]) : all[i];
                    if ((ignorecase ? upper(set) : set).find(one) != std::string::npos)
                        expected = static_cast<int>(i);
                }
                strSegment range(from, to);
                EXPECT_EQ(strChar(exact(text).get(), exact(set).get(), direction, &range, ignorecase),
                          expected)
                    << shown(text) << shown(set) << from << ' ' << to << ' ' << direction;
            }
        }
    });
}

TEST(Pieces, OrderKnowsNullAndCase) {
    const char *none = nullptr;
    for (const std::size_t size : {1U, 199U, 200U, 5000U}) {
        const std::string low(size, 'x'), high(size, 'X');
        EXPECT_EQ(strCmp(exact(low).get(), exact(high).get(), 1), 0) << size;
        EXPECT_EQ(strCmp(exact(low).get(), exact(high).get()), 1) << size;
        EXPECT_GT(strCmp(exact(low + "y").get(), exact(high + "X").get(), 1), 0) << size;
    }
    // In this order with case and without.
    const char *const ordered[] = {xstrNullStr, none, "", "A", "B", "\xE9"};
    for (int i = 0; i < 6; ++i)
        for (int k = 0; k < 6; ++k) {
            const int expected = (i > k) - (i < k), order = strCmp(ordered[i], ordered[k], 1);
            EXPECT_EQ(strCmp(ordered[i], ordered[k]), expected) << i << ' ' << k;
            EXPECT_EQ((order > 0) - (order < 0), expected) << i << ' ' << k;
        }
    EXPECT_TRUE(strCmp("_", "A") == 1 && strCmp("_", "A", 1) < 0 && strCmp("a", "B") == 1);
}

TEST(Pieces, NoTextGivesNothing) {
    const sequence list(xstringsequence::create());
    EXPECT_EQ(shown(strConcat(list.get())) + shown(strConcat(nullptr)), "nullnull");
    for (const char *text : {"ab", xstrNullStr, ""})
        list->append(text);
    EXPECT_EQ(shown(strConcat(list.get())), "\"ab\"");
    for (const char *text : {xstrNullStr, static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(strLen(text) + strCmnPfxLen(text, "a") + strCmnSfxLen("a", text), 0);
        EXPECT_EQ(shown(strSubstring(text, 0, 1)) + shown(strWord(text, 0)) + shown(strLower(text)) +
                      shown(strUpper(text)) + shown(strWord("a b", -1)),
                  "nullnullnullnullnull");
        EXPECT_EQ(sequence(strExplode(text))->getarraysize(), 0);
        EXPECT_EQ(strChar(text, "a", strForward, 0, 1), strUnsetPos);
        EXPECT_EQ(strChar("a", text, strForward, 0, 1), strUnsetPos);
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
        std::unique_ptr<char, void (*)(char *)> copy(StrPress(static_cast<const char *>(exact(text).get())),
                                                     [](char *block) { ::operator delete(block); });
        EXPECT_EQ(copy != nullptr, pressed != text);
        EXPECT_EQ(shown(copy.get()), shown(copy ? pressed.c_str() : xstrNullStr));
        xstring string(text.c_str());
        StrPress(string);
        EXPECT_EQ(shown(string), shown(pressed));
    }
    xstring null;
    StrPress(null);
    EXPECT_TRUE(null.IsNull());
}

TEST(Settings, TheFirstSeparatorSplits) {
    const struct {
        const char *text;
        const char *before, *after;  // 0: not split
    } rows[] = {{"a=b=c", "a", "b=c"},           {"=x", xstrNullStr, "x"},       {"x=", "x", xstrNullStr},
                {"=", xstrNullStr, xstrNullStr}, {"ab", nullptr, nullptr},       {"", nullptr, nullptr},
                {xstrNullStr, nullptr, nullptr}, {"\xC3\xA9=1", "\xC3\xA9", "1"}};
    for (const auto &row : rows) {
        xstring before(row.text ? row.text : ""), after("kept");
        const bool split = StrSplit(before, '=', before, after);
        EXPECT_EQ(split, row.before != nullptr);
        EXPECT_EQ(shown(before), shown(split ? row.before : row.text));
        EXPECT_EQ(shown(after), split ? shown(row.after) : "\"kept\"");
        EXPECT_EQ(shown(StrSplitBefore(row.text, '=')), shown(row.before)) << shown(row.text);
        EXPECT_EQ(shown(StrSplitAfter(row.text, '=')), shown(row.after)) << shown(row.text);
        EXPECT_FALSE(StrSplit(row.text, '\0', before, after));
    }
}

}  // namespace
