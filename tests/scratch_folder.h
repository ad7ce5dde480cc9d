// A folder of a test's own with one file in it that the test is about, and processes beside the test.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

struct ScratchFolder : testing::Test {
    ScratchFolder() {
        char name[] = "/tmp/kelstdmt_test_XXXXXX";
        folder = ::mkdtemp(name);
        path = folder + "/f";
    }
    ~ScratchFolder() override { std::filesystem::remove_all(folder); }

    void put(const std::string &text) const { std::ofstream(path, std::ios::binary) << text; }
    std::string get(const std::string &name = "f") const {
        std::ifstream in(folder + "/" + name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    auto files() const { return std::distance(std::filesystem::directory_iterator(folder), {}); }

    std::string folder, path;
};

inline pid_t start(const std::function<int()> &work) {
    pid_t child = ::fork();
    if (child == 0) ::_exit(work());
    return child;
}
// What the process answered, 0 to 255, or minus the signal that ended it.
inline int wait_for(pid_t child) {
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}
