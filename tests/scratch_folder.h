// A folder of a test's own, with or without a file that the test is about, and processes beside the test.
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

struct Folder : testing::Test {
    Folder() {
        char name[] = "/tmp/kelstdmt_test_XXXXXX";
        folder = ::mkdtemp(name);
    }
    ~Folder() override { std::filesystem::remove_all(folder); }

    std::string at(const std::string &name) const { return folder + "/" + name; }
    // Makes the folders above the file, and answers its path.
    std::string put(const std::string &name, const std::string &text) const {
        std::filesystem::create_directories(std::filesystem::path(at(name)).parent_path());
        std::ofstream(at(name), std::ios::binary) << text;
        return at(name);
    }
    std::string get(const std::string &name) const {
        std::ifstream in(at(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    auto files() const { return std::distance(std::filesystem::directory_iterator(folder), {}); }

    std::string folder;
};

struct ScratchFolder : Folder {
    using Folder::get, Folder::put;
    void put(const std::string &text) const { put("f", text); }
    std::string get() const { return get("f"); }

    const std::string path = at("f");
};

// One that is the current folder.
struct WorkFolder : Folder {
    WorkFolder() { std::filesystem::current_path(folder); }
    ~WorkFolder() override { std::filesystem::current_path("/"); }
};

inline auto open_descriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

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
// The same for work that expects: 0 when all of it held.
inline int in_child(const std::function<void()> &work) {
    return wait_for(start([&] { return work(), int{testing::Test::HasFailure()}; }));
}
