// A test's own folder below the temporary directory, in the host's form.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

struct NodeFolder : testing::Test {
    NodeFolder() {
        char name[] = "/tmp/kelstdmt_nodes_XXXXXX";
        folder = ::mkdtemp(name);
    }
    ~NodeFolder() override { std::filesystem::remove_all(folder); }
    std::string at(const std::string &name) const { return folder + "/" + name; }
    std::string put(const std::string &name, const std::string &bytes) const {
        std::ofstream(at(name), std::ios::binary) << bytes;
        return at(name);
    }
    std::string get(const std::string &name) const {
        std::ifstream in(at(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    // Descriptors of this process.
    static long open_files() {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    }
    std::string folder;
};
