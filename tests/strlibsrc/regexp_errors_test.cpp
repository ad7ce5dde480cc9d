// The two ways of an error, from outside: recorded, with the failure value of the function that met it, and
// printed by a process that ends with status 1.
#include <kelstdmt/regexp.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include <kelstdmt/strlib_exceptions.h>
#include <kelstdmt/xstring.h>

namespace {

const char *const messages[] = {
    "Success",
    "The number of replacements does not match the number of segments",
    "From is greater than To",
    "Overlapping segments are found",
    "NULL argument",
    "Corrupted regular expression",
    "Corrupted pointers",
    "Regular Expression is too big",
    "Out of space",
    "Too many ()",
    "Unterminated ()",
    "Unmatched ()",
    "Internal error: junk on end",
    "*+ operand could be empty",
    "Nested *?+",
    "Invalid [] range",
    "Unmatched []",
    R"(Internal error: \0|) unexpected)",
    "?+* follows nothing",
    R"(Trailing \)",
    "Internal error: strcspn 0",
    "Damaged match string",
    "Internal Error",
    "No description",
};

std::string printed(const std::string &description, const std::string &function) {
    return "Exception: \"" + description + "\"\n\tin function \"" + function + "\"\n";
}

TEST(RegexpErrors, StateAtTheStart) {
    EXPECT_FALSE(getErrReport());
    EXPECT_EQ(getErrSeen(), nullptr);
}

TEST(RegexpErrors, Recorded) {
    setErrReport(true);
    EXPECT_TRUE(getErrReport());
    for (int code = 0; code < 24; code++) {
        stHandleKnownError(static_cast<stErrorCode>(code), "f");
        EXPECT_STREQ(getErrSeen(), messages[code]) << code;
        EXPECT_STREQ(kel::error_message(static_cast<stErrorCode>(code)), messages[code]) << code;
    }
    setErrSeen(nullptr);
    EXPECT_EQ(getErrSeen(), nullptr);
    stHandleKnownError(static_cast<stErrorCode>(-1), "f");
    EXPECT_STREQ(getErrSeen(), "No description");
    EXPECT_EQ(regcomp("(a"), nullptr);
    EXPECT_STREQ(getErrSeen(), "Unterminated ()");
    char out[] = "as it was";
    regsub(nullptr, "", out);
    EXPECT_STREQ(getErrSeen(), "NULL argument");
    EXPECT_STREQ(out, "as it was");
    setErrReport(false);
}

TEST(RegexpErrorsDeathTest, PrintedAtTheEndOfTheProcess) {
    GTEST_FLAG_SET(death_test_style, "fast");
    const testing::ExitedWithCode failed(1);
    for (int code : {0, 1, 17, 19, 22, 23, -5}) {
        const std::string expected = printed(messages[code < 0 ? 23 : code], "some::function");
        EXPECT_EXIT(stHandleKnownError(static_cast<stErrorCode>(code), "some::function"), failed,
                    testing::Eq(expected));
    }
    EXPECT_EXIT(regcomp("a)(*"), failed, testing::Eq(printed("Unmatched ()", "regcomp")));
    EXPECT_EXIT(regcomp(nullptr), failed, testing::Eq(printed("NULL argument", "regcomp")));
    EXPECT_EXIT(regsub(nullptr, "", nullptr), failed, testing::Eq(printed("NULL argument", "regsub")));
    // Not an error: the process goes on.
    EXPECT_EXIT((std::free(regcomp("a")), kel::check_pattern("("), std::exit(7)), testing::ExitedWithCode(7),
                testing::Eq(std::string()));
}

}  // namespace
