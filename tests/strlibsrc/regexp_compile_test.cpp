// The compiler of the expressions, seen from outside: what stands in the program it makes, byte by byte
// through a disassembler, the errors with their places, and the limits of size from both sides.
#include "strlibsrc/text_model.h"

namespace {

using text_model::locale_scope;

// Each node: its place, its name, where its link leads, its operand.
std::string listing(const regexp &program) {
    static const char *const names[] = {"END",    "BOL",  "EOL",     "ANY",     "ANYOF", "ANYBUT",
                                        "BRANCH", "BACK", "EXACTLY", "NOTHING", "STAR",  "PLUS"};
    const auto *bytes = reinterpret_cast<const unsigned char *>(program.program);
    std::string result = bytes[0] == regexpMagic ? "" : "not a program: ";
    unsigned at = 1;
    while (at + 3 <= program.programSize) {
        const unsigned opcode = bytes[at], distance = bytes[at + 1] * 256u + bytes[at + 2];
        result += (at > 1 ? "; " : "") + std::to_string(at) + " ";
        if (opcode <= REOP_PLUS)
            result += names[opcode];
        else
            result += (opcode < REOP_CLOSE ? "OPEN" : "CLOSE") + std::to_string(opcode % 10);
        if (distance) result += " " + std::to_string(opcode == REOP_BACK ? at - distance : at + distance);
        at += 3;
        if (opcode != REOP_EXACTLY && opcode != REOP_ANYOF && opcode != REOP_ANYBUT) continue;
        const std::string operand = program.program + at;
        result += " '" + operand + "'";
        at += static_cast<unsigned>(operand.size()) + 1;
    }
    EXPECT_EQ(at, program.programSize);
    return result;
}

std::string times(int count, const std::string &text) {
    std::string result;
    for (int i = 0; i < count; i++)
        result += text;
    return result;
}

struct RegexpCompile : testing::Test {
    RegexpCompile() { setErrReport(true); }
    // The error; regcomp and check_pattern must agree on it.
    static stErrorCode error_of(const std::string &pattern) {
        setErrSeen("Success");
        const kel::owned_regexp program(regcomp(pattern.c_str()));
        const kel::pattern_error found = kel::check_pattern(pattern.c_str());
        EXPECT_STREQ(found.message, getErrSeen()) << pattern.substr(0, 80);
        EXPECT_EQ(found.code == stSuccess, program != nullptr);
        return found.code;
    }

    locale_scope m_locale{"C.UTF-8"};
};

// Worked out by hand.
TEST_F(RegexpCompile, Layout) {
    const std::pair<const char *, const char *> cases[] = {
        {"^.$", "1 BRANCH 13; 4 BOL 7; 7 ANY 10; 10 EOL 13; 13 END"},
        {"a\\*]", "1 BRANCH 19; 4 EXACTLY 9 'a'; 9 EXACTLY 14 '*'; 14 EXACTLY 19 ']'; 19 END"},
        {"ab*", "1 BRANCH 17; 4 EXACTLY 9 'a'; 9 STAR 17; 12 EXACTLY 'b'; 17 END"},
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
        {"[^-a-c-e\\]", "1 BRANCH 15; 4 ANYBUT 15 '-abcde\\'; 15 END"},
        {"[--0é-ë]+", "1 BRANCH 21; 4 PLUS 21; 7 ANYOF '-./0éêë'; 21 END"},
        // U+D7FE to U+E001: a set takes the characters that the locale has, not the surrogates.
        {"[\xED\x9F\xBE-\xEE\x80\x81]",
         "1 BRANCH 20; 4 ANYOF 20 '\xED\x9F\xBE\xED\x9F\xBF\xEE\x80\x80\xEE\x80\x81'; 20 END"},
    };
    for (const auto &[pattern, nodes] : cases)
        EXPECT_EQ(listing(*kel::owned_regexp(regcomp(pattern))), nodes) << pattern;
}

// What the search asks first: the first character or ^, and the text that must occur.
TEST_F(RegexpCompile, Shortcuts) {
    const std::pair<const char *, std::string> cases[] = {
        {"abc", "a, "},        {"éa*", "é, "}, {"^abc", "^, "}, {"a*bc", ", bc"}, {"a+bc.de.f", ", de"},
        {"(a*b|x)cd", ", cd"}, {"x|^a", ", "}, {"^?a", ", "},   {"a*bc|d", ", "}, {"a\\+b", "a, "},
    };
    for (const auto &[pattern, expected] : cases) {
        const kel::owned_regexp program(regcomp(pattern));
        const std::string must(program->mustText ? program->mustText : "",
                               static_cast<std::size_t>(program->mustLength));
        EXPECT_EQ(program->firstChar + std::string(program->anchored ? "^, " : ", ") + must, expected)
            << pattern;
    }
}

TEST_F(RegexpCompile, ErrorsAndTheirPlaces) {
    const std::pair<int, std::vector<std::pair<const char *, int>>> cases[] = {
        {stSuccess, {{"((((((((()))))))))", 0}, {"(a?)?", 0}, {"[a-a]", 0}}},
        {stTooManyBrackets, {{"()()()()()()()()()()", 18}}},
        {stUnterminatedBrackets, {{"é(a", 1}}},
        {stUnmatchedBrackets, {{"(a|b))", 5}, {"a)*(", 1}, {"\xF0\x9F\x98\x80)", 1}}},
        {stOperEmpty, {{"(a*)*", 4}, {"(a|)+", 4}, {"^*", 1}}},
        {stNested, {{"é+?", 2}, {"(a)?*", 4}}},
        {stInvalidRange, {{"é[b-a]", 2}}},
        {stUnmatchedSqBrackets, {{"x[ab", 1}, {"[^]", 0}, {"[a-", 0}}},
        {stFollowsNothing, {{"*a", 0}, {"a|+", 2}, {"(?", 1}}},
        {stTrailingSymbol, {{"é\\", 1}}},
        {stOther, {{"aé\xE4\xB8", 2}, {"[\xFF]", 1}, {"\\\xC3", 1}, {"[a-\xC3]", 3}, {"(a\xFF", 2}}}};
    for (const auto &[code, patterns] : cases)
        for (const auto &[pattern, position] : patterns) {
            EXPECT_EQ(error_of(pattern), code) << pattern;
            EXPECT_EQ(kel::check_pattern(pattern).position, position) << pattern;
        }
    for (std::uintptr_t marker : {0, 1, 2}) {
        EXPECT_EQ(regcomp(reinterpret_cast<const char *>(marker)), nullptr);
        EXPECT_EQ(kel::check_pattern(reinterpret_cast<const char *>(marker)).code, stNullArgRegExp);
    }
    const locale_scope single("C");
    EXPECT_EQ(error_of("é"), stOther);
}

TEST_F(RegexpCompile, Sizes) {
    // The link of a branch, over itself, a literal's head, its characters and NUL.
    EXPECT_EQ(error_of(std::string(32760, 'a')), stSuccess);
    EXPECT_EQ(error_of(std::string(32761, 'a')), stRegExpTooBig);
    // Two branches whose links fit, in a program of 65534 bytes and of one more.
    const std::string branches = times(10921, ".") + "|" + times(10900, ".");
    EXPECT_EQ(error_of(branches + std::string(57, 'x')), stSuccess);
    EXPECT_EQ(error_of(branches + std::string(58, 'x')), stRegExpTooBig);
    // An error of the syntax counts more, and what comes after the limit costs no more than reading it.
    const std::string ranges = times(300000, "[\x01-\xF4\x8F\xBF\xBF]");
    EXPECT_EQ(error_of(ranges), stRegExpTooBig);
    EXPECT_EQ(error_of(ranges + "[b-a]"), stInvalidRange);
}

TEST(RegexpErrorsDeathTest, EndTheProcessUnlessRecorded) {
    setErrReport(false);
    EXPECT_EXIT((kel::check_pattern("("), regcomp("a)(*")), testing::ExitedWithCode(1),
                testing::Eq(std::string("Exception: \"Unmatched ()\"\n\tin function \"regcomp\"\n")));
}

}  // namespace
