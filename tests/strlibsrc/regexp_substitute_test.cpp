// Templates, expanded from groups that the test sets itself; regsub and kel::expand must agree.
#include <kelstdmt/regexp.h>

#include <gtest/gtest.h>

#include <string>

#include <kelstdmt/xstring.h>

namespace {

struct RegexpSubstitute : testing::Test {
    RegexpSubstitute() {
        setErrReport(true);
        program.program[0] = static_cast<char>(regexpMagic);
    }
    void set(int group, const char *begin, const char *end) {
        program.groupStart[group] = begin;
        program.groupEnd[group] = end;
    }
    // With the error, if there is one, behind it.
    std::string substituted(const char *format) {
        char out[100] = "as it was";
        setErrSeen("");
        regsub(&program, format, out);
        const xstring safe = kel::expand(program, format);
        EXPECT_STREQ(safe.IsNull() ? "" : safe.Str(), *getErrSeen() ? "" : out) << format;
        return out + std::string(getErrSeen());
    }

    regexp program{};
};

TEST_F(RegexpSubstitute, Templates) {
    const char text[] = "xbcé";
    set(0, text + 1, text + 5);
    set(1, text + 1, text + 2);
    set(2, text + 3, text + 3);
    set(9, text + 3, text + 5);
    EXPECT_EQ(substituted("<&>\\1\\0\\9\\12"), "<bcé>bbcééb2");
    EXPECT_EQ(substituted("[\\2\\3\\8]"), "[]") << "empty, and not matched";
    EXPECT_EQ(substituted("\\\\&\\&\\\\\\\\1\\\\\\1"), "\\bcé&\\\\1\\b");
    EXPECT_EQ(substituted("\\a\\é\\n&\\"), "\\a\\é\\nbcé\\");
    EXPECT_EQ(substituted("\xff&\xc3\\1"),
              "\xff"
              "bcé\xc3"
              "b")
        << "invalid bytes go through";
}

TEST_F(RegexpSubstitute, DamagedGroups) {
    const char text[] = "ab\0cd";
    set(0, text, text + 2);
    set(1, text + 2, text + 4);  // begins with NUL
    set(2, text + 1, text);      // ends before it begins
    set(3, text, nullptr);       // has no end
    set(4, nullptr, text);       // has no beginning
    set(5, text + 2, text + 2);  // NUL is not in it
    EXPECT_EQ(substituted("[&\\5]"), "[ab]");
    for (const char *format : {"<&\\1>", "<&\\2>", "<&\\3>", "<&\\4>"})
        EXPECT_EQ(substituted(format), "<abDamaged match string") << format;
}

TEST_F(RegexpSubstitute, Arguments) {
    EXPECT_EQ(substituted(nullptr), "as it wasNULL argument");
    program.program[0] = 'x';
    EXPECT_EQ(substituted("&"), "as it wasCorrupted regular expression");
    setErrSeen("");
    regsub(&program, "&", nullptr);
    EXPECT_STREQ(getErrSeen(), "NULL argument");
}

}  // namespace
