// What the tests of the examples share: the built program in a process of its own, between files of its own.
#pragma once

#include <cstdio>

#include "scratch_folder.h"

struct Outcome {
    int code;  // 128 and the signal's number when one ended the program, 124 when it took too long
    std::string out, err;
};

inline void expect_says(const std::string &text, const std::string &part) {
    EXPECT_NE(text.find(part), std::string::npos) << '"' << part << "\" is not in what it says:\n" << text;
}

class ExampleTest : public ScratchFolder {
protected:
    explicit ExampleTest(const std::string &name) : m_program(KELSTDMT_BINARY_DIR "/examples/" + name) {
        std::filesystem::create_directory(In("tmp"));
    }
    ~ExampleTest() override {
        EXPECT_TRUE(std::filesystem::is_empty(In("tmp"))) << "files are left in the temporary folder";
    }

    std::string In(const std::string &name) const { return folder + "/" + name; }
    std::string Write(const std::string &name, const std::string &text) const {
        std::filesystem::create_directories(std::filesystem::path(In(name)).parent_path());
        std::ofstream(In(name), std::ios::binary) << text;
        return In(name);
    }

    // The rest of a shell's command line, behind the program's name; `before` stands ahead of it.
    Outcome Run(const std::string &arguments, const std::string &before = "") const {
        std::string command = "export TMPDIR=" + In("tmp") + " KELSTDMT_REGISTRY=" + In("registry");
        // What a sanitizer finds has a code of its own.
        for (const char *tool : {"ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"})
            command += std::string(" ") + tool + "=\"$" + tool + ":exitcode=99\"";
        command += "; { " + before + " timeout 120 " + m_program + ' ' + arguments + "; } 2>" + In("stderr") +
                   " </dev/null";
        Outcome outcome{-1, "", "no popen"};
        std::FILE *pipe = popen(command.c_str(), "r");
        if (!pipe) return outcome;
        char block[4096];
        while (std::size_t count = std::fread(block, 1, sizeof block, pipe))
            outcome.out.append(block, count);
        const int status = pclose(pipe);
        outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        outcome.err = get("stderr");
        for (const char *trouble : {"Sanitizer", "internal error"})
            EXPECT_EQ(outcome.err.find(trouble), std::string::npos) << outcome.err;
        return outcome;
    }

private:
    std::string m_program;
};
