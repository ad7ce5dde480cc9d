// What the tests of the examples share: the built program in a process of its own, between files of its own.
#pragma once

#include "scratch_folder.h"
#include "shell.h"

inline void expect_says(const std::string &text, const std::string &part) {
    EXPECT_NE(text.find(part), std::string::npos) << '"' << part << "\" is not in what it says:\n" << text;
}

class ExampleTest : public Folder {
protected:
    explicit ExampleTest(const std::string &name) : m_program(KELSTDMT_BINARY_DIR "/examples/" + name) {
        std::filesystem::create_directory(at("tmp"));
    }
    ~ExampleTest() override {
        EXPECT_TRUE(std::filesystem::is_empty(at("tmp"))) << "files are left in the temporary folder";
    }

    // The rest of a shell's command line, behind the program's name; `before` stands ahead of it. A program
    // that takes too long ends with 124.
    Outcome Run(const std::string &arguments, const std::string &before = "") const {
        std::string command = "export TMPDIR=" + at("tmp") + " KELSTDMT_REGISTRY=" + at("registry");
        // What a sanitizer finds has a code of its own.
        for (const char *tool : {"ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"})
            command += std::string(" ") + tool + "=\"$" + tool + ":exitcode=99\"";
        command += "; { " + before + " timeout 120 " + m_program + ' ' + arguments + "; } 2>" + at("stderr") +
                   " </dev/null";
        Outcome outcome = shell(command);
        outcome.err = get("stderr");
        for (const char *trouble : {"Sanitizer", "internal error"})
            EXPECT_EQ(outcome.err.find(trouble), std::string::npos) << outcome.err;
        return outcome;
    }

private:
    std::string m_program;
};
