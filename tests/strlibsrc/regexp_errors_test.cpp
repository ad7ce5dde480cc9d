// The two ways of an error, from outside: recorded, with the failure value of the function that met it, and
// printed by a process that ends with status 1.
#include <kelstdmt/regexp.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include <kelstdmt/strlib_exceptions.h>
#include <kelstdmt/xstring.h>

namespace {

// By their numbers, and of a number beyond them.
const std::string messages =
    "Success\nThe number of replacements does not match the number of segments\nFrom is greater than To\n"
    "Overlapping segments are found\nNULL argument\nCorrupted regular expression\nCorrupted pointers\n"
    "Regular Expression is too big\nOut of space\nToo many ()\nUnterminated ()\nUnmatched ()\n"
    "Internal error: junk on end\n*+ operand could be empty\nNested *?+\nInvalid [] range\nUnmatched []\n"
    "Internal error: \\0|) unexpected\n?+* follows nothing\nTrailing \\\nInternal error: strcspn 0\n"
    "Damaged match string\nInternal Error\nNo description\n";

std::string printed(const std::string &description, const std::string &function) {
    return "Exception: \"" + description + "\"\n\tin function \"" + function + "\"\n";
}

TEST(RegexpErrors, Recorded) {
    EXPECT_FALSE(getErrReport());
    EXPECT_EQ(getErrSeen(), nullptr);
    setErrReport(true);
    EXPECT_TRUE(getErrReport());
    std::string seen, told;
    for (int code = 0; code < 24; code++) {
        stHandleKnownError(static_cast<stErrorCode>(code), "f");
        seen += getErrSeen() + std::string("\n");
        told += kel::error_message(static_cast<stErrorCode>(code)) + std::string("\n");
    }
    EXPECT_EQ(seen, messages);
    EXPECT_EQ(told, messages);
    stHandleKnownError(static_cast<stErrorCode>(-1), "f");
    EXPECT_STREQ(getErrSeen(), "No description");
    setErrReport(false);
}

TEST(RegexpErrorsDeathTest, PrintedAtTheEndOfTheProcess) {
    GTEST_FLAG_SET(death_test_style, "fast");
    const testing::ExitedWithCode failed(1);
    EXPECT_EXIT(stHandleKnownError(static_cast<stErrorCode>(-5), "some::function"), failed,
                testing::Eq(printed("No description", "some::function")));
    EXPECT_EXIT(regcomp("a)(*"), failed, testing::Eq(printed("Unmatched ()", "regcomp")));
    EXPECT_EXIT(regsub(nullptr, "", nullptr), failed, testing::Eq(printed("NULL argument", "regsub")));
    // Not an error: the process goes on.
    EXPECT_EXIT((std::free(regcomp("a")), kel::check_pattern("("), std::exit(7)), testing::ExitedWithCode(7),
                testing::Eq(std::string()));
}

}  // namespace
