// examples/inventory as its users meet it: the built program, with generated files, in a process of its own.
#include <algorithm>
#include <random>

#include "examples/running.h"

namespace {

struct inventory_test : ExampleTest {
    inventory_test() : ExampleTest("inventory") {}
    Outcome RunOn(const std::string &passwd, const std::string &group) const {
        return Run(put("passwd", passwd) + ' ' + put("group", group));
    }
};

constexpr const char *some_passwd =
    "root:x:0:0:root:/root:/bin/bash\n"
    "daemon:x:1:1:daemon:/usr/sbin:/usr/sbin/nologin\n"
    "ada:x:1000:1000:Ada Lovelace,Room 1,,:/home/ada:\n";
constexpr const char *some_group = "root:x:0:\nadm:x:4:ada,root\nada:x:1000:\n";

TEST_F(inventory_test, PrintsAndCarriesWhatTheFilesSay) {
    Outcome outcome = RunOn(some_passwd, some_group);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.err, "");
    expect_says(outcome.out, "3 accounts from ");
    expect_says(outcome.out,
                "inventory::Account { Name: \"ada\"; Uid: 1000; Gid: 1000; FullName: \"Ada Lovelace\"; "
                "Home: \"/home/ada\"; Shell: inventory::LoginShell { Path: \"\"; Kind: shellDefault; }; "
                "Groups: inventory::Names [ \"ada\", \"adm\" ]; }");
    expect_says(outcome.out, "FieldId: \"Pth\";\n");
    expect_says(outcome.out, "iolib::XStream\n {\n  Stream: nil;\n  Error: ioStreamState;\n  Msg: \"");
    expect_says(outcome.out, "9 of 9 came back equal");
}

TEST_F(inventory_test, MalformedLinesAreNamedAndSkipped) {
    Outcome outcome = RunOn(
        "# a comment, then an empty line\n\ngood:x:1:1::/:\r\nfew:x:1\n:x:1:1:::\nbig:x:4294967294:1:::\n"
        "bell:x:1:1:\a::\ngood:x:2:2:::\nlast:x:1:1:::",
        "wheel:x:nobody\n");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    std::string file = at("passwd"), expected;
    for (const char *line : {
             ":4: skipped: expected 7 fields between colons, found 3",
             ":5: skipped: the name is empty",
             ":6: skipped: the user id \"4294967294\" is no number from 0 to 2147483647",
             ":7: skipped: byte 12 is the control character 7",
             ":8: skipped: there is an account \"good\" already",
         })
        expected += file + line + '\n';
    expected += at("group") + ":1: skipped: expected 4 fields between colons, found 3\n";
    EXPECT_EQ(outcome.err, expected);
    expect_says(outcome.out, "2 accounts from " + file + " (5 malformed lines skipped)");
}

TEST_F(inventory_test, RandomBytesDoNoHarm) {
    std::mt19937 chance(1);
    std::string noise(200000, '\0'), passwd, group;
    for (char &byte : noise)
        byte = static_cast<char>(chance());
    Outcome outcome = RunOn(noise, noise.substr(1));
    EXPECT_EQ(outcome.status, 1) << outcome.err;
    expect_says(outcome.err, "there is no account and no group to go on with");
    for (char byte : outcome.err)
        ASSERT_TRUE(byte == '\n' || static_cast<unsigned char>(byte) >= 0x20) << int(byte);
    // Lines that are nearly right.
    for (int i = 0; i < 100; ++i) {
        passwd += some_passwd;
        group += some_group;
    }
    for (std::string *text : {&passwd, &group})
        for (std::size_t i = 0; i < text->size() / 20; ++i)
            (*text)[chance() % text->size()] = ":\n,0ab\0\"\\ "[chance() % 10];
    outcome = RunOn(passwd, group);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    expect_says(outcome.out, "9 of 9 came back equal");
}

TEST_F(inventory_test, WhatCannotBeReadIsNamed) {
    std::string passwd = put("passwd", some_passwd), group = put("group", some_group),
                empty = put("empty", ""), missing = at("missing");
    struct Case {
        std::string arguments, says;
        int code;
    };
    for (const Case &wrong : std::vector<Case>{
             {empty + ' ' + empty, "there is no account and no group", 1},
             {missing + ' ' + group, "cannot read accounts from \"" + missing + "\": ", 1},
             {passwd + ' ' + folder, "cannot read groups from \"" + folder + "\": ", 1},
             {"/proc/self/mem " + group, "cannot read accounts from \"/proc/self/mem\": ", 1},
             {"/dev/zero " + group, "/dev/zero: line 1 is longer than 16777216 bytes", 0},
             {passwd, "expected two files", 2},
             {"--nonsense", "there is no option --nonsense", 2},
             {"--keep", "--keep needs a folder", 2},
             {"--keep /dev/full", "/dev/full: ", 1},
         }) {
        Outcome outcome = Run(wrong.arguments);
        EXPECT_EQ(outcome.status, wrong.code) << wrong.arguments << '\n' << outcome.err;
        expect_says(outcome.err, wrong.says);
    }
    Outcome help = Run("--help");
    EXPECT_EQ(help.status, 0);
    expect_says(help.out, "Usage: inventory");
}

TEST_F(inventory_test, SaysSoWhenNothingCanBeWritten) {
    std::string files = put("passwd", some_passwd) + ' ' + put("group", some_group);
    std::filesystem::create_directory(at("full"));
    std::filesystem::create_symlink("/dev/full", at("full/inventory.binary"));
    Outcome outcome = Run("--keep " + at("full") + ' ' + files);
    EXPECT_EQ(outcome.status, 1);
    expect_says(outcome.err, at("full/inventory.binary") + ": ");
    expect_says(outcome.out, "8 of 9 came back equal");

    outcome = Run(files, "TMPDIR=" + at("none"));
    EXPECT_EQ(outcome.status, 1);
    expect_says(outcome.err, "TMPDIR");
    expect_says(outcome.out, "6 of 9 came back equal");

    for (const char *closed : {" >/dev/full", " >&-"}) {
        outcome = Run(files + closed);
        EXPECT_EQ(outcome.status, 1) << closed;
        expect_says(outcome.err, "standard output: ");
    }
    // A reader that goes away ends the program, quietly, or finds it at its end.
    outcome = Run(files + " | head -n 1");
    EXPECT_EQ(std::count(outcome.out.begin(), outcome.out.end(), '\n'), 1) << outcome.out;
    EXPECT_EQ(outcome.err, "");
}

}  // namespace
