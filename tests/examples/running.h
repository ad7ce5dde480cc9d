// What the tests of the examples share: the built program in a process of its own, between files of its own.
#pragma once

#include "scratch_folder.h"
#include "shell.h"

class ExampleTest : public Folder {
protected:
    explicit ExampleTest(const std::string &name) : m_program(KELSTDMT_BINARY_DIR "/examples/" + name) {
        std::filesystem::create_directory(at("tmp"));
    }
    ~ExampleTest() override {
        EXPECT_TRUE(std::filesystem::is_empty(at("tmp"))) << "files are left in the temporary folder";
    }

    // The program with the rest of a shell's command line ends with the code, and says the words somewhere.
    Outcome Expect(const std::string &arguments, int code, std::initializer_list<std::string> words) const {
        std::string command = "export TMPDIR=" + at("tmp") + " KELSTDMT_REGISTRY=" + at("registry");
        // What a sanitizer finds has a code of its own.
        for (const char *tool : {"ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"})
            command += std::string(" ") + tool + "=\"$" + tool + ":exitcode=99\"";
        Outcome outcome = shell(command + "; { timeout 120 " + m_program + ' ' + arguments + "; } 2>" +
                                at("stderr") + " </dev/null");
        outcome.err = get("stderr");
        EXPECT_EQ(outcome.status, code) << arguments << ": " << outcome;
        for (const std::string &word : words)
            EXPECT_NE((outcome.out + outcome.err).find(word), std::string::npos) << word << ": " << outcome;
        return outcome;
    }

private:
    std::string m_program;
};
