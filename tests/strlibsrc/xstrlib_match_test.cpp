// Matching by the six modes, in all forms, against the plain definitions: cut the range out, try every place.
// Texts and patterns are random, of whole characters, parts of them and bytes that no character has.
#include <climits>
#include <optional>

#include "strlibsrc/text_model.h"

using namespace text_model;

namespace {

struct span {
    int start, end;
    bool operator==(const span &) const = default;
};
std::ostream &operator<<(std::ostream &out, span at) {
    return out << at.start << ".." << at.end;
}

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

std::optional<span> search(const std::string &text, const std::string &pattern, int mode) {
    if (mode % 2) return search(upper(text), upper(pattern), mode - 1);
    const characters parts = decode(text), wanted = decode(pattern);
    if (mode == strLit) {
        const std::size_t at = text.find(pattern);
        if (at == text.npos) return {};
        const int start = static_cast<int>(decode(text.substr(0, at)).size());
        return span{start, start + static_cast<int>(wanted.size())};
    }
    if (mode == strRegExp) {
        const owned_program program(regcomp(pattern.c_str()));
        span at{};
        if (!regexec(program.get(), text.c_str(), at.start, at.end)) return {};
        return at;
    }
    for (std::size_t start = 0; start <= parts.size(); ++start)
        for (std::size_t end = start; end <= parts.size(); ++end)
            if (shell(parts, start, end, wanted, 0))
                return span{static_cast<int>(start), static_cast<int>(end)};
    return {};
}

struct given {
    std::string text, pattern;
    int mode, from, to;

    int first() const { return from == strUnsetPos ? 0 : std::max(from, 0); }
    int last() const {
        const int length = static_cast<int>(decode(text).size());
        return to == strUnsetPos ? length : std::clamp(to, 0, length);
    }
    std::string cut(int begin) const {
        return join(decode(text), static_cast<std::size_t>(begin), static_cast<std::size_t>(last()));
    }
    std::optional<span> match(int begin) const {
        std::optional<span> found = search(cut(begin), pattern, mode);
        if (found) found->start += begin, found->end += begin;
        return found;
    }
    std::vector<span> all() const {
        std::vector<span> result;
        for (int begin = first();; begin = result.back().end + 1) {
            const auto found = match(begin);
            if (found) result.push_back(*found);
            if (!found || found->end >= last()) return result;
        }
    }
    bool exact() const {
        const std::string part = cut(first());
        if (mode % 2) return given{upper(part), upper(pattern), mode - 1, strUnsetPos, strUnsetPos}.exact();
        const characters parts = decode(part);
        if (mode == strLit) return parts == decode(pattern);
        if (mode == strShell) return shell(parts, 0, parts.size(), decode(pattern), 0);
        return search(part, pattern, mode) == span{0, static_cast<int>(parts.size())};
    }
};
std::ostream &operator<<(std::ostream &out, const given &it) {
    return out << testing::PrintToString(it.text) << " by " << testing::PrintToString(it.pattern) << ", mode "
               << it.mode << ", from " << it.from << " to " << it.to;
}

// What the library says ---------------------------------------------------------------------------------

std::optional<span> take(strSegment *segment) {
    const std::unique_ptr<strSegment> owner(segment);
    if (!segment) return {};
    return span{segment->getFrom(), segment->getTo()};
}
std::vector<span> take(strSegments *segments) {
    const std::unique_ptr<strSegments> owner(segments);
    std::vector<span> result;
    for (int i = 0; i < segments->getarraysize(); ++i)
        result.push_back({segments->get(i)->getFrom(), segments->get(i)->getTo()});
    segments->delallsegs();
    return result;
}

void expect_as_defined(const given &it) {
    const auto text = exact(it.text), pattern = exact(it.pattern);
    const char *const in = text.get(), *const by = pattern.get();
    const auto mode = static_cast<strMatchMode>(it.mode);
    strSegment range(it.from, it.to);

    const auto expected = it.match(it.first());
    span at{-7, -7};
    EXPECT_EQ(strMatch(in, by, at.start, at.end, mode, it.from, it.to), expected.has_value()) << it;
    EXPECT_EQ(at, expected.value_or(span{-7, -7})) << it;
    EXPECT_EQ(strMatch(in, by, at.start, at.end, mode, &range), expected.has_value()) << it;
    EXPECT_EQ(take(strMatch(in, by, mode, it.from, it.to)), expected) << it;
    EXPECT_EQ(take(strMatch(in, by, mode, &range)), expected) << it;
    const auto all = it.all();
    EXPECT_EQ(take(strMatchAll(in, by, mode, it.from, it.to)), all) << it;
    EXPECT_EQ(take(strMatchAll(in, by, mode, &range)), all) << it;
    EXPECT_EQ(strExactMatch(in, by, mode, it.from, it.to), it.exact()) << it;
    EXPECT_EQ(strExactMatch(in, by, mode, &range), it.exact()) << it;
    if (it.mode % 2) return;

    const given whole{it.text, it.pattern, it.mode, strUnsetPos, strUnsetPos};
    bool (*const worker[])(const char *, const char *, int &, int &) = {strMatchLit, strMatchShell,
                                                                        strMatchRegExp};
    const auto found = whole.match(0);
    EXPECT_EQ(worker[it.mode / 2](in, by, at.start, at.end), found.has_value()) << whole;
    if (found) {
        EXPECT_EQ(at, *found) << whole;
    }
    EXPECT_EQ(it.mode == strRegExp ? strExactMatchRegExp(in, by) : strExactMatchLitShell(in, by, mode),
              whole.exact())
        << whole;
}

using letters = std::vector<std::string>;

std::string pick(chance &random, const letters &from, std::size_t most) {
    std::string text;
    for (std::size_t n = random.below(most + 1); n > 0; --n)
        text += from[random.below(from.size())];
    return text;
}
int position(chance &random) {
    return random.below(2) ? strUnsetPos : static_cast<int>(random.below(12)) - 1;
}

TEST(Matching, IsAsDefined) {
    setErrReport(true);
    in_all_encodings(6000, [](chance &random) {
        const letters few = {"a", "b", "A"},
                      euc = {"a", "b", "\xA4\xA2", "\xA2\xA4", "\xA4", "\x8F\xB0\xA1", "\x8F", "\xFF"};
        const letters many = {"a",        "B",    "\xC3\xA9", "\xC3", "\xA9", "\xE2\x82\xAC",
                              "\xE2\x82", "\xAC", "\xFF",     "*",    "?"};
        static const letters expressions = {"a",    "",   "^",    "$",    "^a",
                                            "b$",   "a*", "b+",   "^b*$", "(a|ab)(b|\xC3\xA9)*",
                                            "[^b]", ".",  "a.b?", "a|ab", "\xE9?"};
        letters from = MB_CUR_MAX == 3 ? euc : random.below(2) ? few : many;
        const std::string text = pick(random, from, 12);
        const auto mode = static_cast<int>(random.below(6));
        if (mode / 2 == 1) from.insert(from.end(), {"*", "?", "*"});
        const std::string pattern = mode < strRegExp ? pick(random, from, random.below(3) ? 3 : 7)
                                                     : expressions[random.below(expressions.size())];
        expect_as_defined({text, pattern, mode, position(random), position(random)});
    });
}

// Pieces around the words that the search takes at once, and of more characters than a word has bits.
TEST(Matching, FindsPiecesInLongTexts) {
    in_all_encodings(800, [](chance &random) {
        const bool large = random.below(4) == 0;
        const std::string wide = MB_CUR_MAX == 3 ? "\xA4\xA2" : "\xC3\xA9";
        const std::string text = pick(random, {"a", "aaaaaa", "b", wide, "xyz"}, large ? 100 : 24);
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
        expect_as_defined({text, pattern, mode < 4 ? mode : strShell, strUnsetPos, position(random)});
    });
}

// Texts and patterns that take the time of the universe, or of a coffee, when places are tried one by one.
class matching : public testing::TestWithParam<const char *> {};
INSTANTIATE_TEST_SUITE_P(Locales, matching, testing::Values("C", "C.UTF-8"));

TEST_P(matching, CannotBeMadeToHang) {
    const locale_scope locale(GetParam());
    const std::string many(100000, 'a'), half(50000, 'a');
    int start = 0, end = 0;
    std::string stars;
    for (int i = 0; i < 1000; ++i)
        stars += "a*";
    EXPECT_FALSE(strExactMatch(many.c_str(), (stars + "b").c_str(), strShell));
    EXPECT_FALSE(strMatch(many.c_str(), (stars + "b").c_str(), start, end, strShell));
    EXPECT_FALSE(strMatch(many.c_str(), (half + "?b").c_str(), start, end, strShell));
    EXPECT_FALSE(strExactMatch(many.c_str(), ("*" + half + "b" + half + "*").c_str(), strShell));
    EXPECT_FALSE(strMatch(many.c_str(), (half + "b" + half).c_str(), start, end, strLit));
    EXPECT_TRUE(strMatch((many + "xb").c_str(), (half + "?b").c_str(), start, end, strShell));
    EXPECT_EQ((span{start, end}), (span{50000, 100002}));
    EXPECT_TRUE(strMatch((many + "xB\xC3\xA9").c_str(), "Xb\xC3\xA9", start, end, strLitIC));
    EXPECT_EQ((span{start, end}), (span{100000, MB_CUR_MAX == 1 ? 100004 : 100003}));
    std::string cut, bytes;
    for (int i = 0; i < 30000; ++i)
        cut += "\xA9\xC3", bytes += "\xC3\xA9\xC3\xA9";
    EXPECT_EQ(strExactMatch(bytes.c_str(), ("*" + cut + "*").c_str(), strShell), MB_CUR_MAX == 1);
    for (const auto mode : {strLit, strShell})
        EXPECT_EQ(take(strMatchAll(many.c_str(), "", mode, strUnsetPos, INT_MAX)).size(), many.size() + 1);
}

TEST(Matching, TakesAnyPointerAndAnyMode) {
    setErrReport(true);
    for (const char *none :
         {static_cast<const char *>(nullptr), xstrNullStr, reinterpret_cast<const char *>(2)})
        for (auto [text, pattern] : {std::pair{none, "a"}, {"a", none}})
            for (int mode = strLit; mode <= strRegExpIC; ++mode) {
                const auto how = static_cast<strMatchMode>(mode);
                span at{-7, -7};
                EXPECT_FALSE(strMatch(text, pattern, at.start, at.end, how) ||
                             take(strMatch(text, pattern, how)));
                EXPECT_TRUE(take(strMatchAll(text, pattern, how)).empty());
                EXPECT_FALSE(strExactMatch(text, pattern, how) || strExactMatchRegExp(text, pattern) ||
                             strExactMatchLitShell(text, pattern, how));
                EXPECT_FALSE(strMatchLit(text, pattern, at.start, at.end) ||
                             strMatchShell(text, pattern, at.start, at.end) ||
                             strMatchRegExp(text, pattern, at.start, at.end));
                EXPECT_EQ(at, (span{-7, -7})) << "no match leaves the positions alone";
            }
    for (int mode : {6, 7, -1})
        EXPECT_FALSE(strExactMatch("ab", "a*", static_cast<strMatchMode>(mode)));
    EXPECT_TRUE(strExactMatch("ab", "ab", static_cast<strMatchMode>(6), static_cast<strSegment *>(nullptr)));
}

TEST(Matching, ReportsAPatternThatDoesNotCompile) {
    setErrReport(true);
    int start = 0, end = 0;
    for (bool whole : {false, true}) {
        setErrSeen(nullptr);
        EXPECT_FALSE(whole ? strExactMatch("a", "(a", strRegExp)
                           : strMatch("a", "(a", start, end, strRegExpIC));
        EXPECT_STREQ(getErrSeen(), "NULL argument") << "of the search without a program";
    }
    setErrReport(false);
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(strMatchRegExp("a", "(a", start, end), testing::ExitedWithCode(1), "Unterminated \\(\\)");
}

}  // namespace
