// examples/inventory as its users meet it: the built program, with generated files, in a process of its own.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

const char *const program = KELSTDMT_BINARY_DIR "/examples/inventory";

struct Outcome {
    int code;  // 128 and the signal's number when one ended the program, 124 when it took too long
    std::string out, err;
};

std::string Contents(const fs::path &path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

class inventory_test : public ::testing::Test {
protected:
    void SetUp() override {
        std::string name = fs::temp_directory_path() / "inventory_test.XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        folder = name;
        fs::create_directory(folder / "tmp");
    }
    void TearDown() override {
        EXPECT_TRUE(fs::is_empty(folder / "tmp")) << "files are left in the temporary folder";
        fs::remove_all(folder);
    }

    std::string Write(const char *name, const std::string &text) const {
        std::ofstream(folder / name, std::ios::binary) << text;
        return folder / name;
    }

    // The rest of a shell's command line, behind the program's name; `before` stands ahead of it.
    Outcome Run(const std::string &arguments, const std::string &before = "") const {
        std::string err = folder / "stderr", command = "export TMPDIR=" + std::string(folder / "tmp");
        // What a sanitizer finds has a code of its own.
        for (const char *tool : {"ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"})
            command += std::string(" ") + tool + "=\"$" + tool + ":exitcode=99\"";
        command +=
            "; { " + before + " timeout 120 " + program + ' ' + arguments + "; } 2>" + err + " </dev/null";
        Outcome outcome;
        std::FILE *pipe = popen(command.c_str(), "r");
        if (!pipe) return {-1, "", "no popen"};
        char block[4096];
        while (std::size_t count = std::fread(block, 1, sizeof block, pipe))
            outcome.out.append(block, count);
        int status = pclose(pipe);
        outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        outcome.err = Contents(err);
        EXPECT_EQ(outcome.err.find("Sanitizer"), std::string::npos) << outcome.err;
        EXPECT_EQ(outcome.err.find("internal error"), std::string::npos) << outcome.err;
        return outcome;
    }
    Outcome RunOn(const std::string &passwd, const std::string &group) const {
        return Run(Write("passwd", passwd) + ' ' + Write("group", group));
    }

    fs::path folder;
};

#define EXPECT_SAYS(text, part) EXPECT_NE((text).find(part), std::string::npos) << "it says:\n" << (text)

constexpr const char *some_passwd =
    "root:x:0:0:root:/root:/bin/bash\n"
    "daemon:x:1:1:daemon:/usr/sbin:/usr/sbin/nologin\n"
    "ada:x:1000:1000:Ada Lovelace,Room 1,,:/home/ada:\n";
constexpr const char *some_group = "root:x:0:\nadm:x:4:ada,root\nada:x:1000:\n";

TEST_F(inventory_test, PrintsAndCarriesWhatTheFilesSay) {
    Outcome outcome = RunOn(some_passwd, some_group);
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_EQ(outcome.err, "");
    EXPECT_SAYS(outcome.out, "3 accounts from ");
    EXPECT_SAYS(outcome.out,
                "inventory::Account { Name: \"ada\"; Uid: 1000; Gid: 1000; FullName: \"Ada Lovelace\"; "
                "Home: \"/home/ada\"; Shell: inventory::LoginShell { Path: \"\"; Kind: shellDefault; }; "
                "Groups: inventory::Names [ \"ada\", \"adm\" ]; }");
    EXPECT_SAYS(outcome.out, "FieldId: \"Pth\";\n");
    EXPECT_SAYS(outcome.out, "iolib::XStream\n {\n  Stream: nil;\n  Error: ioStreamState;\n  Msg: \"");
    EXPECT_SAYS(outcome.out, "9 of 9 came back equal");
}

TEST_F(inventory_test, MalformedLinesAreNamedAndSkipped) {
    Outcome outcome = RunOn(
        "# a comment, then an empty line\n\ngood:x:1:1::/:\r\nfew:x:1\n:x:1:1:::\nbig:x:4294967294:1:::\n"
        "bell:x:1:1:\a::\ngood:x:2:2:::\nlast:x:1:1:::",
        "wheel:x:nobody\n");
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    std::string file = folder / "passwd", expected;
    for (const char *line : {
             ":4: skipped: expected 7 fields between colons, found 3",
             ":5: skipped: the name is empty",
             ":6: skipped: the user id \"4294967294\" is no number from 0 to 2147483647",
             ":7: skipped: byte 12 is the control character 7",
             ":8: skipped: there is an account \"good\" already",
         })
        expected += file + line + '\n';
    expected += std::string(folder / "group") + ":1: skipped: expected 4 fields between colons, found 3\n";
    EXPECT_EQ(outcome.err, expected);
    EXPECT_SAYS(outcome.out, "2 accounts from " + file + " (5 malformed lines skipped)");
}

TEST_F(inventory_test, RandomBytesDoNoHarm) {
    std::mt19937 chance(1);
    std::string noise(200000, '\0'), passwd, group;
    for (char &byte : noise)
        byte = static_cast<char>(chance());
    Outcome outcome = RunOn(noise, noise.substr(1));
    EXPECT_EQ(outcome.code, 1) << outcome.err;
    EXPECT_SAYS(outcome.err, "there is no account and no group to go on with");
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
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_SAYS(outcome.out, "9 of 9 came back equal");
}

TEST_F(inventory_test, WhatCannotBeReadIsNamed) {
    std::string passwd = Write("passwd", some_passwd), group = Write("group", some_group),
                empty = Write("empty", ""), missing = folder / "missing";
    struct Case {
        std::string arguments, says;
        int code;
    };
    for (const Case &wrong : std::vector<Case>{
             {empty + ' ' + empty, "there is no account and no group", 1},
             {missing + ' ' + group, "cannot read accounts from \"" + missing + "\": ", 1},
             {passwd + ' ' + folder.string(), "cannot read groups from \"" + folder.string() + "\": ", 1},
             {"/proc/self/mem " + group, "cannot read accounts from \"/proc/self/mem\": ", 1},
             {"/dev/zero " + group, "/dev/zero: line 1 is longer than 16777216 bytes", 0},
             {passwd, "expected two files", 2},
             {"--nonsense", "there is no option --nonsense", 2},
             {"--keep", "--keep needs a folder", 2},
             {"--keep /dev/full", "/dev/full: ", 1},
         }) {
        Outcome outcome = Run(wrong.arguments);
        EXPECT_EQ(outcome.code, wrong.code) << wrong.arguments << '\n' << outcome.err;
        EXPECT_SAYS(outcome.err, wrong.says);
    }
    Outcome help = Run("--help");
    EXPECT_EQ(help.code, 0);
    EXPECT_SAYS(help.out, "Usage: inventory");
}

TEST_F(inventory_test, SaysSoWhenNothingCanBeWritten) {
    std::string files = Write("passwd", some_passwd) + ' ' + Write("group", some_group);
    fs::create_directory(folder / "full");
    fs::create_symlink("/dev/full", folder / "full/inventory.binary");
    Outcome outcome = Run("--keep " + std::string(folder / "full") + ' ' + files);
    EXPECT_EQ(outcome.code, 1);
    EXPECT_SAYS(outcome.err, std::string(folder / "full/inventory.binary") + ": ");
    EXPECT_SAYS(outcome.out, "8 of 9 came back equal");

    outcome = Run(files, "TMPDIR=" + std::string(folder / "none"));
    EXPECT_EQ(outcome.code, 1);
    EXPECT_SAYS(outcome.err, "TMPDIR");
    EXPECT_SAYS(outcome.out, "6 of 9 came back equal");

    for (const char *closed : {" >/dev/full", " >&-"}) {
        outcome = Run(files + closed);
        EXPECT_EQ(outcome.code, 1) << closed;
        EXPECT_SAYS(outcome.err, "standard output: ");
    }
    // A reader that goes away ends the program, quietly, or finds it at its end.
    outcome = Run(files + " | head -n 1");
    EXPECT_EQ(std::count(outcome.out.begin(), outcome.out.end(), '\n'), 1) << outcome.out;
    EXPECT_EQ(outcome.err, "");
}

}  // namespace
