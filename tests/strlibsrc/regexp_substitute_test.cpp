// Templates, expanded from groups that the test sets itself; regsub and kel::expand must agree.
#include <kelstdmt/regexp.h>

#include <gtest/gtest.h>

#include <string>

#include <kelstdmt/xstring.h>

namespace {

class RegexpSubstitute : public testing::Test {
protected:
    void SetUp() override {
        setErrReport(true);
        setErrSeen(nullptr);
        program.program[0] = static_cast<char>(regexpMagic);
    }
    void set(int group, const char *begin, const char *end) {
        program.groupStart[group] = begin;
        program.groupEnd[group] = end;
    }
    std::string substituted(const char *format) {
        char out[100];
        regsub(&program, format, out);
        const xstring safe = kel::expand(program, format);
        EXPECT_EQ(safe.IsNull(), getErrSeen() != nullptr) << format;
        EXPECT_STREQ(safe.IsNull() ? out : safe.Str(), out) << format;
        return out;
    }

    regexp program{};
};

TEST_F(RegexpSubstitute, Templates) {
    const char text[] = "xbcé";
    set(0, text + 1, text + 5);
    set(1, text + 1, text + 2);
    set(2, text + 3, text + 3);
    set(9, text + 3, text + 5);
    const std::pair<const char *, std::string> cases[] = {
        {"<&>\\1\\0\\9\\12", "<bcé>bbcééb2"},
        {"[\\2\\3\\8]", "[]"},  // empty, and not matched
        {"\\\\&\\&\\\\\\\\1\\\\\\1", "\\bcé&\\\\1\\b"},
        {"\\a\\é\\n&\\", "\\a\\é\\nbcé\\"},
        {"\xff&\xc3\\1", std::string("\xff") + "bcé\xc3" + "b"}};  // invalid bytes go through
    for (const auto &[format, expected] : cases)
        EXPECT_EQ(substituted(format), expected) << format;
    EXPECT_EQ(getErrSeen(), nullptr);
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
    EXPECT_EQ(getErrSeen(), nullptr);
    for (const char *format : {"<&\\1>", "<&\\2>", "<&\\3>", "<&\\4>"}) {
        setErrSeen(nullptr);
        EXPECT_EQ(substituted(format), "<ab") << format;
        EXPECT_STREQ(getErrSeen(), "Damaged match string") << format;
    }
}

TEST_F(RegexpSubstitute, Arguments) {
    char out[] = "as it was";
    const auto error = [](auto call) {
        setErrSeen("");
        call();
        return std::string(getErrSeen());
    };
    for (const char *none : {static_cast<const char *>(nullptr), reinterpret_cast<const char *>(1)}) {
        EXPECT_EQ(error([&] { regsub(&program, none, out); }), "NULL argument");
        EXPECT_EQ(error([&] { EXPECT_TRUE(kel::expand(program, none).IsNull()); }), "NULL argument");
    }
    EXPECT_EQ(error([&] { regsub(&program, "&", nullptr); }), "NULL argument");
    program.program[0] = 'x';
    EXPECT_EQ(error([&] { regsub(&program, "&", out); }), "Corrupted regular expression");
    EXPECT_STREQ(out, "as it was");
}

}  // namespace
