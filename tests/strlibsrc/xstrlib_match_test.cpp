// Matching by the six modes, in all forms, against the plain definitions: cut the range out, try every place.
// Texts and patterns are random, of whole characters, parts of them and bytes that no character has.
#include <climits>
#include <optional>

#include "strlibsrc/text_model.h"

using namespace text_model;

namespace {

using span = std::pair<int, int>;  // from, to

// The definitions ---------------------------------------------------------------------------------------

bool shell(const characters &text, std::size_t at, std::size_t end, const characters &pattern,
           std::size_t from) {
    if (from == pattern.size()) return at == end;
    if (pattern[from] != "*")
        return at < end && (pattern[from] == "?" || pattern[from] == text[at]) &&
               shell(text, at + 1, end, pattern, from + 1);
    for (; at <= end; ++at)
        if (shell(text, at, end, pattern, from + 1)) return true;
    return false;
}

// The modes with case.
std::optional<span> search(const characters &text, const std::string &pattern, int mode) {
    const characters wanted = decode(pattern);
    if (mode == strLit) {
        const std::string bytes = join(text);
        const std::size_t at = bytes.find(pattern);
        if (at == bytes.npos) return {};
        const int start = static_cast<int>(decode(bytes.substr(0, at)).size());
        return span{start, start + static_cast<int>(wanted.size())};
    }
    if (mode == strRegExp) {
        const kel::owned_regexp program(regcomp(pattern.c_str()));
        span at;
        if (!regexec(program.get(), join(text).c_str(), at.first, at.second)) return {};
        return at;
    }
    for (std::size_t start = 0; start <= text.size(); ++start)
        for (std::size_t end = start; end <= text.size(); ++end)
            if (shell(text, start, end, wanted, 0))
                return span{static_cast<int>(start), static_cast<int>(end)};
    return {};
}

// Each sought from one character behind the end of the match before.
std::vector<span> all_matches(const characters &text, const std::string &pattern, int mode) {
    std::vector<span> result;
    for (int begin = 0, last = static_cast<int>(text.size()); begin <= last;) {
        auto found = search({text.begin() + begin, text.end()}, pattern, mode);
        if (!found) break;
        result.push_back({found->first + begin, found->second + begin});
        begin = result.back().second + 1;
    }
    return result;
}

bool matches_whole(const characters &text, const std::string &pattern, int mode) {
    if (mode == strLit) return join(text) == pattern;
    if (mode == strShell) return shell(text, 0, text.size(), decode(pattern), 0);
    return search(text, pattern, mode) == span{0, static_cast<int>(text.size())};
}

// What the library says ---------------------------------------------------------------------------------

std::vector<span> take(strSegments *segments) {
    const std::unique_ptr<strSegments> owner(segments);
    std::vector<span> result;
    for (int i = 0; i < segments->getarraysize(); ++i)
        result.push_back({segments->get(i)->getFrom(), segments->get(i)->getTo()});
    segments->delallsegs();
    return result;
}

void expect_as_defined(const std::string &text, const std::string &pattern, int mode, int from, int to) {
    SCOPED_TRACE(testing::Message() << shown(text) << " by " << shown(pattern) << ", mode " << mode
                                    << ", from " << from << " to " << to);
    const characters all = decode(text);
    std::string part = join(all, clip(from, 0, all.size()), clip(to, all.size(), all.size()));
    const characters range = decode(mode % 2 ? upper(part) : part);
    const std::string wanted = mode % 2 ? upper(pattern) : pattern;
    std::vector<span> expected = all_matches(range, wanted, mode / 2 * 2);
    for (span &each : expected)
        each.first += std::max(from, 0), each.second += std::max(from, 0);
    const span unset{-7, -7}, first = expected.empty() ? unset : expected[0];

    const auto in = exact(text), by = exact(pattern);
    const auto how = static_cast<strMatchMode>(mode);
    strSegment given(from, to);
    span at = unset;
    EXPECT_EQ(strMatch(in.get(), by.get(), at.first, at.second, how, &given), !expected.empty());
    EXPECT_EQ(at, first);
    const std::unique_ptr<strSegment> segment(strMatch(in.get(), by.get(), how, &given));
    EXPECT_EQ(segment ? (span{segment->getFrom(), segment->getTo()}) : unset, first);
    EXPECT_EQ(take(strMatchAll(in.get(), by.get(), how, &given)), expected);
    EXPECT_EQ(strExactMatch(in.get(), by.get(), how, &given), matches_whole(range, wanted, mode / 2 * 2));
}

TEST(Matching, IsAsDefined) {
    setErrReport(true);
    in_all_encodings(6000, [](chance &random) {
        const characters few = {"a", "b", "A"},
                         euc = {"a", "b", "\xA4\xA2", "\xA2\xA4", "\xA4", "\x8F\xB0\xA1", "\x8F", "\xFF"};
        const characters many = {"a",        "B",    "\xC3\xA9", "\xC3", "\xA9", "\xE2\x82\xAC",
                                 "\xE2\x82", "\xAC", "\xFF",     "*",    "?"};
        static const characters expressions = {"a",    "",   "^",    "$",    "^a",
                                               "b$",   "a*", "b+",   "^b*$", "(a|ab)(b|\xC3\xA9)*",
                                               "[^b]", ".",  "a.b?", "a|ab", "\xE9?"};
        characters from = MB_CUR_MAX == 3 ? euc : random.below(2) ? few : many;
        const std::string text = random.of(from, 12);
        const auto mode = static_cast<int>(random.below(6));
        if (mode / 2 == 1) from.insert(from.end(), {"*", "?", "*"});
        const std::string pattern = mode < strRegExp ? random.of(from, random.below(3) ? 3 : 7)
                                                     : expressions[random.below(expressions.size())];
        expect_as_defined(text, pattern, mode, random.position(12), random.position(12));
    });
}

// Pieces around the words that the search takes at once, and of more characters than a word has bits.
TEST(Matching, FindsPiecesInLongTexts) {
    in_all_encodings(800, [](chance &random) {
        const bool large = random.below(4) == 0;
        const std::string wide = MB_CUR_MAX == 3 ? "\xA4\xA2" : "\xC3\xA9";
        const std::string text = random.of({"a", "aaaaaa", "b", wide, "xyz"}, large ? 100 : 24);
        const characters parts = decode(text);
        std::string pattern;
        for (std::size_t at = random.below(9); at < parts.size(); at += 1 + random.below(20)) {
            std::string piece = join(parts, at, at + random.below(large ? 150 : 16));
            if (!piece.empty() && random.below(2)) piece[random.below(piece.size())] = '?';
            pattern += piece;
            if (large) break;
            if (random.below(2)) pattern += '*';
        }
        const auto mode = static_cast<int>(random.below(6));
        expect_as_defined(text, pattern, mode < 4 ? mode : strShell, strUnsetPos, random.position(12));
    });
}

// Texts and patterns that take the time of the universe, or of a coffee, when places are tried one by one.
TEST(Matching, CannotBeMadeToHang) {
    const std::string many(100000, 'a'), half(50000, 'a');
    std::string stars, cut, bytes;
    for (int i = 0; i < 1000; ++i)
        stars += "a*";
    for (int i = 0; i < 30000; ++i)
        cut += "\xA9\xC3", bytes += "\xC3\xA9\xC3\xA9";
    for (const char *name : {"C", "C.UTF-8"}) {
        const locale_scope locale(name);
        int start = 0, end = 0;
        EXPECT_FALSE(strExactMatch(many.c_str(), (stars + "b").c_str(), strShell));
        EXPECT_FALSE(strMatch(many.c_str(), (stars + "b").c_str(), start, end, strShell));
        EXPECT_FALSE(strMatch(many.c_str(), (half + "?b").c_str(), start, end, strShell));
        EXPECT_FALSE(strExactMatch(many.c_str(), ("*" + half + "b" + half + "*").c_str(), strShell));
        EXPECT_FALSE(strMatch(many.c_str(), (half + "b" + half).c_str(), start, end, strLit));
        EXPECT_EQ(strExactMatch(bytes.c_str(), ("*" + cut + "*").c_str(), strShell), MB_CUR_MAX == 1);
        for (const auto mode : {strLit, strShell})
            EXPECT_EQ(take(strMatchAll(many.c_str(), "", mode, strUnsetPos, INT_MAX)).size(),
                      many.size() + 1);
    }
}

TEST(Matching, TakesAnyPointerAndAnyMode) {
    setErrReport(true);
    for (const char *none :
         {static_cast<const char *>(nullptr), xstrNullStr, reinterpret_cast<const char *>(2)})
        for (auto [text, pattern] : {std::pair{none, "a"}, {"a", none}})
            for (int mode = strLit; mode <= strRegExpIC; ++mode) {
                const auto how = static_cast<strMatchMode>(mode);
                EXPECT_FALSE(strMatch(text, pattern, how) || strExactMatch(text, pattern, how));
                EXPECT_TRUE(take(strMatchAll(text, pattern, how)).empty());
                EXPECT_FALSE(strExactMatchRegExp(text, pattern) || strExactMatchLitShell(text, pattern, how));
            }
    EXPECT_TRUE(strExactMatch("a*", "a*", static_cast<strMatchMode>(6), static_cast<strSegment *>(nullptr)));
}

TEST(Matching, WorkersServeOneMode) {
    span at;
    EXPECT_TRUE(strMatchLit("xa*", "a*", at.first, at.second) && at == span(1, 3));
    EXPECT_TRUE(strMatchShell("xaa", "a*", at.first, at.second) && at == span(1, 2));
    EXPECT_TRUE(strMatchRegExp("xaa", "a+", at.first, at.second) && at == span(1, 3));
    EXPECT_TRUE(strExactMatchLitShell("ab", "a*", strShell) && !strExactMatchLitShell("ab", "a*", strLit));
    EXPECT_TRUE(strExactMatchRegExp("aa", "a*") && !strExactMatchRegExp("ba", "a"));
}

TEST(Matching, ReportsAPatternThatDoesNotCompile) {
    setErrReport(true);
    EXPECT_FALSE(strExactMatch("a", "(a", strRegExp));
    EXPECT_STREQ(getErrSeen(), "NULL argument") << "of the search without a program";
}

}  // namespace
