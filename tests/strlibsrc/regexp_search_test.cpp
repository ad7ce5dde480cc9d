// The search: its machines side by side, over random patterns and texts and over programs that were damaged;
// work that is bounded where going back is not. What a search must find is asked of another engine, by
// tests/interop/kgrep_interop.py.
#include <cstdint>

#include "strlibsrc/text_model.h"

namespace {

using text_model::chance, text_model::characters, text_model::exact;

kel::owned_regexp compiled(const std::string &pattern) {
    setErrReport(true);
    return kel::owned_regexp(regcomp(pattern.c_str()));
}

struct random_pattern {
    chance &random;
    const characters &letters;

    std::string alternatives(int depth) {
        std::string result = branch(depth);
        while (random.below(4) == 0)
            result += "|" + branch(depth);
        return result;
    }
    std::string branch(int depth) {
        std::string result;
        for (std::size_t n = random.below(5); n > 0; --n)
            result += atom(depth) + (random.below(3) == 0 ? std::string(1, "*+?"[random.below(3)]) : "");
        return result;
    }
    std::string atom(int depth) {
        const std::string one = letter(), other = letter();
        const std::string atoms[] = {".", "[" + one + other + "]", "[^" + one + "]", "^", "$"};
        const std::size_t which = random.below(12);
        if (which < std::size(atoms)) return atoms[which];
        return which < 9 && depth > 0 ? "(" + alternatives(depth - 1) + ")" : which < 11 ? one : one + other;
    }
    const std::string &letter() { return letters[random.below(letters.size())]; }
};

void damage(regexp &program, chance &random) {
    for (std::size_t n = 1 + random.below(3); n > 0; --n)
        program.program[1 + random.below(program.programSize - 1)] =
            static_cast<char>(random.below(random.below(2) ? 256 : 12));
    if (random.below(9) == 0) program.mustLength = static_cast<int>(random.below(1000)) - 300;
    if (random.below(9) == 0) program.firstChar[random.below(5)] = 'a';
}

// An alternative with more symbols than the look ahead of backtracking has room for, so that the automata do
// all of the search; it matches in none of the texts.
const std::string many_symbols = "|0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZdefghijklmnopqrstuvwxyz!#%&,/:;<=>@_~";

class in_locale : public testing::TestWithParam<const char *> {
    text_model::locale_scope m_locale{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(regexp_search, in_locale, testing::Values("C", "C.UTF-8"));

TEST_P(in_locale, AllMachinesFindTheSame) {
    using namespace regexp_machines;
    const characters few = {"a", "b"},
                     many = {"a", "a", "b", "b", "c", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"};
    characters parts = many;
    parts.insert(parts.end(), {"a", "a", "b", "b", "c", "\xC3", "\xE2\x82", "\x80", "\xFF", "\xED\xA0\x80"});
    chance random{std::mt19937(20240611)};
    int answers = 0, errors = 0;
    for (int round = 0; round < 8000; ++round) {
        const std::string pattern = random_pattern{random, round % 2 ? few : many}.alternatives(3);
        const kel::owned_regexp whole = compiled(pattern), wide = compiled(pattern + many_symbols);
        if (!whole) continue;
        const auto program = exact_copy(*whole);
        for (int each = 0; each < 8; ++each) {
            // Long texts are searched in other ways, and a beginning is sought there among its neighbours.
            std::string filling = "x", text = random.of(parts, each < 3 ? 6 : 30);
            while (filling.size() < (round % 41 ? 300 : 9000))
                filling += random.of({"x", "d", "`", "B", "\x01", "\x7F"}, 50);
            if (each == 2) text = filling + text;
            if (each == 4) text += filling;
            const std::size_t from = each == 2 ? random.below(filling.size()) : 0;
            const auto copy = exact(text);
            const std::string_view view(copy.get(), text.size());
            SCOPED_TRACE(pattern + " in " + text + " from " + std::to_string(from));
            if (each >= 6) damage(*program, random);
            const std::string given = answer(*program, view, from);
            (*getErrSeen() ? errors : answers)++;
            ASSERT_EQ(given, each < 6 ? answer(*wide, view, from) : given);
            ASSERT_EQ(disagreement(*program, view, from) + disagreement(*wide, view, from), "");
        }
    }
    EXPECT_TRUE(answers > 10000 && errors > 1000) << answers << ' ' << errors;
}

TEST(regexp_search, TheWorkIsBoundedByProgramTimesText) {
    const std::string many(200000, 'a'), most(8000000, 'a');
    std::string mixed(600000, 'a'), tossed(200000, 'a'), optional;
    for (std::size_t i = 0; i < mixed.size(); i += 3)
        mixed[i] = 'b';
    std::mt19937 random(1);
    for (char &each : tossed)
        each = "ab"[random() % 2];
    for (int i = 0; i < 30; ++i)
        optional += "a?";
    const struct {
        std::string pattern, text;
        int start = -1, end = -1;
    } cases[] = {
        {"(a|a)*b", many},
        {"(a|b)*", most, 0, 8000000},
        {".*.*.*x", many},
        {"(.*)(.*)(.*)(.*)$", many, 0, 200000},
        {optional + std::string(30, 'a'), std::string(30, 'a'), 0, 30},
        // Its automaton has a state for every set of places within the last twelve.
        {"(a|b)*a(a|b)(a|b)..........$", mixed, 0, 600000},
        // Attempts try in vain.
        {"[ab]*a[ab].............(c|d)", tossed},
    };
    for (const auto &each : cases)
        for (const std::string &pattern : {each.pattern, each.pattern + many_symbols}) {
            int start = -1, end = -1;
            EXPECT_EQ(regexec(compiled(pattern).get(), each.text.c_str(), start, end), each.start >= 0);
            EXPECT_TRUE(start == each.start && end == each.end) << pattern << ' ' << start << ' ' << end;
        }
}

TEST(regexp_search, ChecksComeInTheirOrder) {
    const kel::owned_regexp one = compiled("a*bc");
    int start = 0, end = 0;
    const auto error_of = [&](regexp *each, const char *text) {
        setErrSeen("");
        return regexec(each, text, start, end) ? "found" : getErrSeen();
    };
    ASSERT_STREQ(error_of(one.get(), "xbc"), "found");
    for (const std::uintptr_t marker : {0, 1, 2})
        EXPECT_STREQ(error_of(one.get(), reinterpret_cast<const char *>(marker)), "NULL argument") << marker;
    EXPECT_EQ(one->groupStart[0], nullptr);
    EXPECT_STREQ(error_of(nullptr, "a"), "NULL argument");
    one->program[1] = 99;
    EXPECT_STREQ(error_of(one.get(), "xyz"), "") << "the text that must occur is looked for first";
    one->program[0] = 0;
    EXPECT_STREQ(error_of(one.get(), "xyz"), "Corrupted regular expression");
}

}  // namespace
