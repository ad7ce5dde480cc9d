// The compiler of the expressions, seen from outside: what stands in the program it makes, byte by byte
// through a disassembler, the errors with their places, and the limits of size and distance from both sides.
#include <set>

#include "strlibsrc/text_model.h"

namespace {

using text_model::owned_program;

struct node {
    unsigned at, opcode, target;  // target 0: no link
    std::string operand;
};

// The nodes one after the other. Fails the test when they do not fill the program.
std::vector<node> nodes_of(const regexp &program) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(program.program);
    std::vector<node> nodes;
    EXPECT_EQ(bytes[0], regexpMagic);
    unsigned at = 1;
    while (at + 3 <= program.programSize) {
        node next{at, bytes[at], 0, {}};
        const unsigned distance = bytes[at + 1] * 256u + bytes[at + 2];
        EXPECT_LE(distance, 32767u);
        if (distance) next.target = next.opcode == REOP_BACK ? at - distance : at + distance;
        at += 3;
        if (next.opcode == REOP_EXACTLY || next.opcode == REOP_ANYOF || next.opcode == REOP_ANYBUT) {
            next.operand = program.program + at;
            at += static_cast<unsigned>(next.operand.size()) + 1;
        }
        nodes.push_back(next);
    }
    EXPECT_EQ(at, program.programSize);
    return nodes;
}

// "1 BRANCH 11; 4 EXACTLY 11 'abc'; 11 END"
std::string listing(const regexp &program) {
    static const char *const names[] = {"END",    "BOL",  "EOL",     "ANY",     "ANYOF", "ANYBUT",
                                        "BRANCH", "BACK", "EXACTLY", "NOTHING", "STAR",  "PLUS"};
    std::string result;
    for (const node &next : nodes_of(program)) {
        if (!result.empty()) result += "; ";
        result += std::to_string(next.at) + " ";
        if (next.opcode <= REOP_PLUS)
            result += names[next.opcode];
        else
            result += (next.opcode < REOP_CLOSE ? "OPEN" : "CLOSE") + std::to_string(next.opcode % 10);
        if (next.target) result += " " + std::to_string(next.target);
        if (!next.operand.empty()) result += " '" + next.operand + "'";
    }
    return result;
}

std::string times(int count, const std::string &text) {
    std::string result;
    for (int i = 0; i < count; i++)
        result += text;
    return result;
}

class RegexpCompile : public testing::Test {
protected:
    void SetUp() override {
        setErrReport(true);
        ASSERT_TRUE(std::setlocale(LC_ALL, "C.UTF-8"));
    }
    void TearDown() override { std::setlocale(LC_ALL, "C"); }

    static owned_program compiled(const std::string &pattern) {
        setErrSeen(nullptr);
        owned_program program(regcomp(pattern.c_str()));
        EXPECT_EQ(program == nullptr, getErrSeen() != nullptr) << pattern.substr(0, 80);
        return program;
    }
    // The error; regcomp and check_pattern must agree on it.
    static stErrorCode error_of(const std::string &pattern) {
        owned_program program = compiled(pattern);
        const kel::pattern_error found = kel::check_pattern(pattern.c_str());
        EXPECT_STREQ(found.message, program ? "Success" : getErrSeen()) << pattern.substr(0, 80);
        return found.code;
    }
};

// Worked out by hand.
TEST_F(RegexpCompile, Layout) {
    const struct {
        const char *pattern, *nodes;
    } cases[] = {
        {"", "1 BRANCH 7; 4 NOTHING 7; 7 END"},
        {"abc", "1 BRANCH 11; 4 EXACTLY 11 'abc'; 11 END"},
        {"^.$", "1 BRANCH 13; 4 BOL 7; 7 ANY 10; 10 EOL 13; 13 END"},
        {"a\\*]", "1 BRANCH 19; 4 EXACTLY 9 'a'; 9 EXACTLY 14 '*'; 14 EXACTLY 19 ']'; 19 END"},
        {"ab*", "1 BRANCH 17; 4 EXACTLY 9 'a'; 9 STAR 17; 12 EXACTLY 'b'; 17 END"},
        {"\\++", "1 BRANCH 12; 4 PLUS 12; 7 EXACTLY '+'; 12 END"},
        {"a?", "1 BRANCH 18; 4 BRANCH 12; 7 EXACTLY 15 'a'; 12 BRANCH 15; 15 NOTHING 18; 18 END"},
        {"a||.", "1 BRANCH 9; 4 EXACTLY 21 'a'; 9 BRANCH 15; 12 NOTHING 21; 15 BRANCH 21; 18 ANY 21; 21 END"},
        {"(ab)*c",
         "1 BRANCH 36; 4 BRANCH 25; 7 OPEN1 10; 10 BRANCH 19; 13 EXACTLY 19 'ab'; 19 CLOSE1 22; 22 BACK 4; "
         "25 BRANCH 28; 28 NOTHING 31; 31 EXACTLY 36 'c'; 36 END"},
        {"(a|b)+x",
         "1 BRANCH 43; 4 OPEN1 7; 7 BRANCH 15; 10 EXACTLY 23 'a'; 15 BRANCH 23; 18 EXACTLY 23 'b'; "
         "23 CLOSE1 26; 26 BRANCH 32; 29 BACK 4; 32 BRANCH 35; 35 NOTHING 38; 38 EXACTLY 43 'x'; 43 END"},
        {"((a)b)?",
         "1 BRANCH 41; 4 BRANCH 35; 7 OPEN1 10; 10 BRANCH 32; 13 OPEN2 16; 16 BRANCH 24; 19 EXACTLY 24 'a'; "
         "24 CLOSE2 27; 27 EXACTLY 32 'b'; 32 CLOSE1 38; 35 BRANCH 38; 38 NOTHING 41; 41 END"},
        {"[]a-e-]", "1 BRANCH 15; 4 ANYOF 15 ']abcde-'; 15 END"},
        {"[^-a-c-e\\]", "1 BRANCH 15; 4 ANYBUT 15 '-abcde\\'; 15 END"},
        {"[--0é-ë]+", "1 BRANCH 21; 4 PLUS 21; 7 ANYOF '-./0éêë'; 21 END"},
        {"[a-a]é?",
         "1 BRANCH 24; 4 ANYOF 9 'a'; 9 BRANCH 18; 12 EXACTLY 21 'é'; 18 BRANCH 21; 21 NOTHING 24; 24 END"},
    };
    for (const auto &each : cases) {
        owned_program program = compiled(each.pattern);
        ASSERT_TRUE(program) << each.pattern;
        EXPECT_EQ(listing(*program), each.nodes) << each.pattern;
    }
}

TEST_F(RegexpCompile, Shortcuts) {
    const struct {
        const char *pattern, *firstChar, *mustText;
        int anchored;
    } cases[] = {
        {"abc", "a", "", 0},        {"éa*", "é", "", 0},         {"^abc", "", "", 1},   {"a*bc", "", "bc", 0},
        {"a+bc.de.f", "", "de", 0}, {"(a*b|x)cd", "", "cd", 0},  {"x|^a", "", "", 0},   {"^?a", "", "", 0},
        {"a*(bcd)e", "", "e", 0},   {"a*bc|d", "", "", 0},       {"a?bc", "", "", 0},   {"(a)bc", "", "", 0},
        {".*", "", "", 0},          {"(ab)+cd?ef", "", "ef", 0}, {"a\\+b", "a", "", 0},
    };
    for (const auto &each : cases) {
        owned_program program = compiled(each.pattern);
        ASSERT_TRUE(program) << each.pattern;
        EXPECT_STREQ(program->firstChar, each.firstChar) << each.pattern;
        EXPECT_EQ(program->anchored, each.anchored) << each.pattern;
        EXPECT_STREQ(program->mustText ? program->mustText : "", each.mustText) << each.pattern;
        EXPECT_EQ(program->mustLength, static_cast<int>(std::strlen(each.mustText))) << each.pattern;
    }
}

TEST_F(RegexpCompile, ErrorsAndTheirPlaces) {
    const std::pair<int, std::vector<std::pair<const char *, int>>> cases[] = {
        {stSuccess, {{"((((((((()))))))))", 0}, {"(a?)?", 0}}},
        {stTooManyBrackets, {{"()()()()()()()()()()", 18}}},
        {stUnterminatedBrackets, {{"é(a", 1}}},
        {stUnmatchedBrackets, {{"(a|b))", 5}, {"a)*(", 1}, {"\xF0\x9F\x98\x80)", 1}}},
        {stOperEmpty, {{"(a*)*", 4}, {"(a|)+", 4}, {"^*", 1}, {"$+", 1}}},
        {stNested, {{"x**", 2}, {"é+?", 2}, {"(a)?*", 4}}},
        {stInvalidRange, {{"é[b-a]", 2}, {"[é-a]", 1}}},
        {stUnmatchedSqBrackets, {{"x[ab", 1}, {"[]", 0}, {"[^]", 0}, {"[a-", 0}}},
        {stFollowsNothing, {{"*a", 0}, {"a|+", 2}, {"(?", 1}}},
        {stTrailingSymbol, {{"é\\", 1}}},
        {stOther,
         {{"a\x80", 1}, {"aé\xE4\xB8", 2}, {"[\xFF]", 1}, {"\\\xC3", 1}, {"[a-\xC3]", 3}, {"(a\xFF", 2}}}};
    for (const auto &[code, patterns] : cases)
        for (const auto &[pattern, position] : patterns) {
            EXPECT_EQ(error_of(pattern), code) << pattern;
            EXPECT_EQ(kel::check_pattern(pattern).position, position) << pattern;
        }
    for (std::uintptr_t marker : {0, 1, 2}) {
        const char *none = reinterpret_cast<const char *>(marker);
        setErrSeen(nullptr);
        EXPECT_EQ(regcomp(none), nullptr);
        EXPECT_STREQ(getErrSeen(), "NULL argument");
        EXPECT_EQ(kel::check_pattern(none).code, stNullArgRegExp);
    }
}

// A set takes the characters that the locale has.
TEST_F(RegexpCompile, Locales) {
    owned_program gap = compiled("[\xED\x9F\xBE-\xEE\x80\x81]");  // U+D7FE to U+E001, around the surrogates
    ASSERT_TRUE(gap);
    EXPECT_EQ(nodes_of(*gap)[1].operand, "\xED\x9F\xBE\xED\x9F\xBF\xEE\x80\x80\xEE\x80\x81");
    ASSERT_TRUE(std::setlocale(LC_ALL, "C"));
    std::string ascii;
    for (char c = 1; c != '\x7f'; c++)
        ascii += c;
    owned_program plain = compiled("[\x01-\x7e]");
    ASSERT_TRUE(plain);
    EXPECT_EQ(nodes_of(*plain)[1].operand, ascii);
    EXPECT_EQ(error_of("é"), stOther);
}

TEST_F(RegexpCompile, Sizes) {
    // The link of a branch, over itself, a literal's head, its characters and NUL.
    EXPECT_EQ(error_of(std::string(32760, 'a')), stSuccess);
    EXPECT_EQ(error_of(std::string(32761, 'a')), stRegExpTooBig);
    EXPECT_EQ(kel::check_pattern(std::string(70000, 'a').c_str()).position, 70000);
    // Two branches whose links all fit: the first is 32766 or 32767 bytes and ends in a short node.
    const std::string firsts[] = {times(10921, ".") + "|", "xxx" + times(10919, ".") + "|"};
    for (unsigned first : {0u, 1u})
        for (unsigned literal : {50u, 56u, 57u, 58u}) {
            const unsigned size = 65477 + first + literal;
            owned_program program = compiled(firsts[first] + times(10900, ".") + std::string(literal, 'x'));
            ASSERT_EQ(program ? program->programSize : 0, size <= 65534 ? size : 0) << size;
        }
    // An error of the syntax counts more, and what comes after the limit costs no more than reading it.
    const std::string ranges = times(300000, "[\x01-\xF4\x8F\xBF\xBF]");
    EXPECT_EQ(error_of(ranges), stRegExpTooBig);
    EXPECT_EQ(error_of(ranges + "[b-a]"), stInvalidRange);
    EXPECT_EQ(error_of(times(300000, "a|")), stRegExpTooBig);
}

TEST_F(RegexpCompile, LinksLeadToNodes) {
    static const char *const parts[] = {"a", "bc", "é", ".", "^", "$", "[a-c]", "[^x]", "(",   "(",    "(",
                                        ")", ")",  ")", "|", "|", "*", "+",     "?",    "\\.", "[à-é]"};
    std::mt19937 random(20240517);
    int programs = 0;
    for (int round = 0; round < 20000; round++) {
        std::string pattern;
        for (auto left = random() % 24; left > 0; left--)
            pattern += parts[random() % std::size(parts)];
        owned_program program = compiled(pattern);
        if (!program) continue;
        programs++;
        const std::vector<node> nodes = nodes_of(*program);
        std::multiset<unsigned> starts, opcodes;
        for (const node &next : nodes)
            starts.insert(next.at), opcodes.insert(next.opcode);
        unsigned before = 0;
        for (const node &next : nodes) {
            // Neither the last node nor what is repeated leads on.
            const bool ends = &next == &nodes.back();
            ASSERT_EQ(next.opcode == REOP_END, ends) << pattern;
            ASSERT_EQ(next.target == 0, ends || before == REOP_STAR || before == REOP_PLUS) << pattern;
            ASSERT_TRUE(next.target == 0 || starts.count(next.target)) << pattern;
            before = next.opcode;
        }
        for (unsigned n = 1; n < 10; n++)
            ASSERT_EQ(opcodes.count(REOP_OPEN + n), opcodes.count(REOP_CLOSE + n)) << pattern;
    }
    EXPECT_GT(programs, 1000);
}

}  // namespace
