// The search against a plain model that goes back when a way fails, over random patterns and texts; work that
// is bounded where going back is not; programs that were damaged; threads.
#include <cstdint>
#include <thread>

#include "../../fuzz/regexp_model.h"
#include "strlibsrc/text_model.h"

namespace {

using text_model::exact, text_model::owned_program;

owned_program compiled(const std::string &pattern) {
    setErrReport(true);
    return owned_program(regcomp(pattern.c_str()));
}

class random_text {
public:
    random_text(unsigned seed, std::vector<std::string> characters, std::vector<std::string> invalid)
        : m_random(seed), m_characters(std::move(characters)), m_invalid(std::move(invalid)) {}

    unsigned below(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }
    const std::string &character() { return m_characters[below(static_cast<unsigned>(m_characters.size()))]; }
    std::string text(unsigned longest) {
        std::string result;
        for (unsigned n = below(longest + 1); n > 0; --n)
            result +=
                below(12) == 0 ? m_invalid[below(static_cast<unsigned>(m_invalid.size()))] : character();
        return result;
    }
    std::string pattern(int depth) {
        std::string result = branch(depth);
        while (below(4) == 0)
            result += "|" + branch(depth);
        return result;
    }

private:
    std::string branch(int depth) {
        std::string result;
        for (unsigned n = below(5); n > 0; --n)
            result += atom(depth) + (below(3) == 0 ? std::string(1, "*+?"[below(3)]) : "");
        return result;
    }
    std::string atom(int depth) {
        const std::string one = character();
        const std::string atoms[] = {".", "[" + one + character() + "]", "[^" + one + "]",
                                     below(2) ? "$" : "^"};
        const unsigned which = below(10);
        if (which < std::size(atoms)) return atoms[which];
        if (which < 7 && depth > 0) return "(" + pattern(depth - 1) + ")";
        return below(2) ? one + character() : one;
    }

    std::mt19937 m_random;
    std::vector<std::string> m_characters, m_invalid;
};

// One search, compared with the model; empty when they agree or the model gave up.
std::string disagreement(regexp &program, const std::string &text) {
    const auto copy = exact(text);
    const char *end = copy.get() + std::strlen(copy.get());
    int from = -7, to = -7;
    setErrSeen(nullptr);
    const int found = regexec(&program, copy.get(), from, to);
    if (getErrSeen()) return found || program.groupStart[0] ? "an error that is a match" : "";
    const auto expected = regexp_model::matcher(program, copy.get(), end).search();
    if (!expected) return "";
    if (!found && (from != -7 || to != -7)) return "positions without a match";
    const std::string difference = regexp_model::difference(program, found != 0, *expected, copy.get());
    if (!difference.empty()) return difference;
    // From the middle of the text on.
    xmbchar middle(copy.get());
    while (middle.count < static_cast<int>(text.size() / 2))
        *middle.position ? middle.Next() : void(++middle.count);
    const auto later = regexp_model::matcher(program, copy.get(), end).search(middle.position);
    const auto offset = static_cast<std::size_t>(middle.position - copy.get());
    const bool found_later = kel::search(program, {copy.get(), end}, offset);
    return later ? regexp_model::difference(program, found_later, *later, copy.get()) : "";
}

// An alternative with more symbols than the look ahead of backtracking has room for, so that both automata
// and their search through sets are tried; it matches in none of the texts.
const std::string many_symbols = "|0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZdefghijklmnopqrstuvwxyz!#%&,/:;<=>@_~";
// Makes a text one that is not searched by backtracking alone.
const std::string filling(300, 'x');

// The same search by each of the machines.
void compare_with_model(random_text &random, int rounds) {
    int searches = 0;
    for (int round = 0; round < rounds; ++round) {
        std::string pattern = random.pattern(3);
        const bool wide = random.below(3) == 0;
        if (wide) pattern += many_symbols;
        const owned_program one = compiled(pattern);
        if (!one) continue;
        // A first character that the pattern does not ask for leaves the search to the simulation.
        if (!wide && !one->firstChar[0] && random.below(4) == 0)
            std::strcpy(one->firstChar, random.character().c_str());
        for (int each = 0; each < 6; ++each, ++searches) {
            std::string text = random.text(each < 3 ? 6 : 30);
            if (each == 2) text = filling + text;
            if (each == 4) text += filling;
            ASSERT_EQ(disagreement(*one, text), "")
                << "pattern <" << pattern << "> first <" << one->firstChar << "> text <" << text << ">";
        }
    }
    EXPECT_GT(searches, rounds);
}

class in_locale : public testing::TestWithParam<const char *> {
    text_model::locale_scope m_locale{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(regexp_search, in_locale, testing::Values("C", "C.UTF-8"));

TEST_P(in_locale, RandomPatternsFindWhatTheModelFinds) {
    random_text random(20240611, {"a", "a", "b", "b", "c", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"},
                       {"\xC3", "\xE2\x82", "\x80", "\xFF", "\xED\xA0\x80"});
    compare_with_model(random, 3000);
    random_text few(3, {"a", "b"}, {"\xFF"});
    compare_with_model(few, 3000);
}

TEST_P(in_locale, DamagedProgramsAreErrorsOrAnswersAndNothingElse) {
    random_text random(7, {"a", "b", "\xC3\xA9"}, {"\xFF"});
    int errors = 0, answers = 0;
    for (int round = 0; round < 6000; ++round) {
        const owned_program whole = compiled(random.pattern(2));
        if (!whole) continue;
        // The record exactly as long as its program says, so that a look beyond it is seen.
        const auto header = static_cast<std::size_t>(whole->program - reinterpret_cast<char *>(whole.get()));
        const std::size_t bytes = header + whole->programSize;
        const owned_program damaged(static_cast<regexp *>(std::malloc(bytes)));
        std::memcpy(damaged.get(), whole.get(), bytes);
        if (whole->mustText) damaged->mustText = damaged->program + (whole->mustText - whole->program);
        for (unsigned n = 1 + random.below(3); n > 0; --n)
            damaged->program[1 + random.below(damaged->programSize - 1)] =
                static_cast<char>(random.below(2) ? random.below(256) : random.below(12));
        if (random.below(20) == 0) damaged->mustLength = static_cast<int>(random.below(1000)) - 300;
        if (random.below(20) == 0) damaged->firstChar[random.below(5)] = 'a';
        if (random.below(20) == 0) damaged->anchored = static_cast<char>(random.below(2));
        const std::string text = random.text(12);
        ASSERT_EQ(disagreement(*damaged, text), "") << "round " << round;
        const char *seen = getErrSeen();
        (seen ? errors : answers)++;
        if (seen) {
            ASSERT_TRUE(std::strcmp(seen, "Corrupted regular expression") == 0 ||
                        std::strcmp(seen, "Corrupted pointers") == 0)
                << seen;
        }
    }
    EXPECT_GT(errors, 500);
    EXPECT_GT(answers, 500);
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
        {"(a|a)*b", many + "b", 0, 200001},
        {"(a|b)*", most, 0, 8000000},
        {"((a|b)(a|b)?)*c", mixed},
        {"(aa*b*|b|c)+d", mixed},
        {".*.*.*x", many},
        {"(.*)(.*)(.*)(.*)$", many, 0, 200000},
        {"^(a+)+$", many + "c"},
        {optional + std::string(30, 'a'), std::string(30, 'a'), 0, 30},
        // Its automaton has a state for every set of places within the last twelve.
        {"(a|b)*a(a|b)(a|b)..........$", mixed, 0, 600000},
        {"b(.)*a(a|b)(a|b).........c", mixed},
        // There attempts answer at once, here they try in vain.
        {"[ab]*a[ab].............(c|d)", tossed + "a" + std::string(14, 'b') + "d", 0, 200016},
        {"[ab]*a[ab].............(c|d)", tossed},
        {"(" + std::string(4000, 'q') + ")", std::string(200000, 'q'), 0, 4000},
    };
    for (const auto &each : cases)
        for (const std::string &pattern : {each.pattern, each.pattern + many_symbols}) {
            const owned_program one = compiled(pattern);
            ASSERT_TRUE(one) << pattern << ": " << getErrSeen();
            int start = -1, end = -1;
            EXPECT_EQ(regexec(one.get(), each.text.c_str(), start, end), each.start >= 0) << pattern;
            EXPECT_TRUE(start == each.start && end == each.end) << pattern << ' ' << start << ' ' << end;
        }
}

TEST(regexp_search, ChecksComeInTheirOrder) {
    setErrReport(true);
    const owned_program one = compiled("a*bc");
    int start = 0, end = 0;
    const auto error_of = [&](regexp *each, const char *text) {
        setErrSeen("");
        EXPECT_EQ(regexec(each, text, start, end), 0);
        return std::string(getErrSeen());
    };
    ASSERT_EQ(regexec(one.get(), "xbc", start, end), 1);
    EXPECT_EQ(error_of(one.get(), nullptr), "NULL argument");
    EXPECT_EQ(one->groupStart[0], nullptr);
    EXPECT_EQ(error_of(nullptr, "a"), "NULL argument");
    for (const std::uintptr_t marker : {1, 2})
        EXPECT_EQ(error_of(one.get(), reinterpret_cast<const char *>(marker)), "NULL argument") << marker;
    one->program[1] = 99;
    EXPECT_EQ(error_of(one.get(), "xyz"), "") << "the text that must occur is looked for first";
    EXPECT_EQ(error_of(one.get(), "bc"), "Corrupted regular expression");
    one->program[0] = 0;
    EXPECT_EQ(error_of(one.get(), "xyz"), "Corrupted regular expression");
}

// Its destructor searches once more.
struct late_search {
    owned_program program = compiled("(a+)b");
    bool &found;
    bool search() const {
        int start = 0, end = 0;
        return regexec(program.get(), "caab", start, end) && start == 1 && end == 4;
    }
    ~late_search() { found = search(); }
};

TEST(regexp_search, AnObjectThatOutlivesTheThreadsTablesMaySearch) {
    bool found = false;
    std::thread([&found] {
        // Older than the tables, which the first search makes.
        static thread_local const late_search late{.found = found};
        EXPECT_TRUE(late.search());
    }).join();
    EXPECT_TRUE(found);
}

// In long texts a beginning is sought by blocks: at every distance, beside both ends of the ranges of a set.
TEST(regexp_search, TheFirstByteIsFoundAtAnyDistance) {
    random_text random(99, {"a"}, {"a"});
    for (const std::string set : {"x", "xz", "0123456789", "AQz", "AQz0", "abyz", "\x01\x7F"}) {
        const owned_program program = compiled("[" + set + "]c?");
        for (std::size_t size = 0; size < 700; ++size) {
            std::string text;
            while (text.size() < size) {
                const auto byte = static_cast<char>(1 + random.below(127));
                if (set.find(byte) == set.npos || text.size() + 9 > size) text += byte;
            }
            int start = 0, end = 0;
            const std::size_t expected = text.find_first_of(set);
            ASSERT_EQ(regexec(program.get(), exact(text).get(), start, end), expected != text.npos) << set;
            ASSERT_EQ(static_cast<std::size_t>(start), expected == text.npos ? 0 : expected) << set;
        }
    }
}

TEST(regexp_search, ThreadsCompileAndSearchProgramsOfTheirOwn) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([last = std::string(1, static_cast<char>('c' + i)), i] {
            for (int n = 0; n < 300; ++n) {
                const owned_program one = compiled("(a|b)*" + last + "+");
                const std::string text = std::string(static_cast<std::size_t>(n), 'a') + "cdefg";
                int start = 0, end = 0;
                ASSERT_EQ(regexec(one.get(), text.c_str(), start, end), 1);
                ASSERT_TRUE(start == (i == 0 ? 0 : n + i) && end == n + i + 1) << start << ' ' << end;
            }
        });
    for (std::thread &each : threads)
        each.join();
}

}  // namespace
