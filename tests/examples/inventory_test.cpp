// examples/inventory as its users meet it: the built program, with generated files, in a process of its own.
// What it writes is read by tests/interop/inventory_interop.py.
#include <algorithm>
#include <random>

#include "examples/running.h"

namespace {

constexpr const char *some_passwd =
    "root:x:0:0:root:/root:/bin/bash\n"
    "daemon:x:1:1:daemon:/usr/sbin:/usr/sbin/nologin\n"
    "ada:x:1000:1000:Ada Lovelace,Room 1,,:/home/ada:\n";
constexpr const char *some_group = "root:x:0:\nadm:x:4:ada,root\nada:x:1000:\n";

struct inventory_test : ExampleTest {
    inventory_test() : ExampleTest("inventory") {}
    // The program on these files; it says the words on the channel that its code tells of.
    void RunOn(const std::string &passwd, const std::string &group, int code,
               std::initializer_list<const char *> words) {
        put("passwd", passwd), put("group", group);
        outcome = Run(files);
        EXPECT_EQ(outcome.status, code) << outcome.err;
        for (const char *each : words)
            expect_says(code ? outcome.err : outcome.out, each);
    }
    const std::string files = at("passwd") + ' ' + at("group");
    Outcome outcome;
};

TEST_F(inventory_test, TellsWhatTheFilesSayAndNamesMalformedLines) {
    RunOn(some_passwd, some_group, 0,
          {"3 accounts from ",
           "inventory::Account { Name: \"ada\"; Uid: 1000; Gid: 1000; FullName: \"Ada Lovelace\"; "
           "Home: \"/home/ada\"; Shell: inventory::LoginShell { Path: \"\"; Kind: shellDefault; }; "
           "Groups: inventory::Names [ \"ada\", \"adm\" ]; }",
           "FieldId: \"Pth\";\n", "iolib::XStream\n {\n  Stream: nil;\n  Error: ioStreamState;\n  Msg: \"",
           "9 of 9 came back equal"});
    EXPECT_EQ(outcome.err, "");
    RunOn(
        "# a comment, then an empty line\n\ngood:x:1:1::/:\r\nfew:x:1\n:x:1:1:::\nbig:x:4294967294:1:::\n"
        "bell:x:1:1:\a::\ngood:x:2:2:::\nlast:x:1:1:::",
        "wheel:x:nobody\n", 0, {"2 accounts from ", " (5 malformed lines skipped)"});
    std::string expected;
    for (const char *line :
         {"passwd:4: skipped: expected 7 fields between colons, found 3",
          "passwd:5: skipped: the name is empty",
          "passwd:6: skipped: the user id \"4294967294\" is no number from 0 to 2147483647",
          "passwd:7: skipped: byte 12 is the control character 7",
          "passwd:8: skipped: there is an account \"good\" already",
          "group:1: skipped: expected 4 fields between colons, found 3"})
        expected += at(line) + '\n';
    EXPECT_EQ(outcome.err, expected);
}

TEST_F(inventory_test, RandomBytesDoNoHarm) {
    std::mt19937 chance(1);
    std::string noise(200000, '\0'), passwd, group;
    for (char &byte : noise)
        byte = static_cast<char>(chance());
    RunOn(noise, noise.substr(1), 1, {"there is no account and no group to go on with"});
    for (char byte : outcome.err)
        ASSERT_TRUE(byte == '\n' || static_cast<unsigned char>(byte) >= 0x20) << int(byte);
    // Lines that are nearly right.
    for (int i = 0; i < 100; ++i)
        passwd += some_passwd, group += some_group;
    for (std::string *text : {&passwd, &group})
        for (std::size_t i = 0; i < text->size() / 20; ++i)
            (*text)[chance() % text->size()] = ":\n,0ab\0\"\\ "[chance() % 10];
    RunOn(passwd, group, 0, {"9 of 9 came back equal"});
}

TEST_F(inventory_test, WhatCannotBeReadOrWrittenIsNamed) {
    RunOn(some_passwd, some_group, 0, {});
    std::filesystem::create_directory(at("full"));
    std::filesystem::create_symlink("/dev/full", at("full/inventory.binary"));
    const std::string passwd = at("passwd"), group = at("group"), full = at("full");
    const struct {
        std::string arguments, says;
        int code = 1;
        std::string tells = "", before = "";
    } cases[] = {
        {"missing " + group, "cannot read accounts from \"missing\": "},
        {passwd + ' ' + folder, "cannot read groups from \"" + folder + "\": "},
        {"/proc/self/mem " + group, "cannot read accounts from \"/proc/self/mem\": "},
        {"/dev/zero " + group, "/dev/zero: line 1 is longer than 16777216 bytes", 0},
        {passwd, "expected two files", 2},
        {"--nonsense", "there is no option --nonsense", 2},
        {"--keep", "--keep needs a folder", 2},
        {"--help", "", 0, "Usage: inventory"},
        {"--keep " + full + ' ' + files, full + "/inventory.binary: ", 1, "8 of 9 came back equal"},
        {files, "TMPDIR", 1, "6 of 9 came back equal", "TMPDIR=/none"},
        {files + " >/dev/full", "standard output: "},
        {files + " >&-", "standard output: "},
    };
    for (const auto &[arguments, says, code, tells, before] : cases) {
        outcome = Run(arguments, before);
        EXPECT_EQ(outcome.status, code) << arguments << '\n' << outcome.err;
        expect_says(outcome.err, says);
        expect_says(outcome.out, tells);
    }
    // A reader that goes away ends the program, quietly, or finds it at its end.
    outcome = Run(files + " | head -n 1");
    EXPECT_EQ(std::count(outcome.out.begin(), outcome.out.end(), '\n'), 1) << outcome.out;
    EXPECT_EQ(outcome.err, "");
}

}  // namespace
