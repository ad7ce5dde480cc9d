// What the fuzz targets share: the end of a run whose claim does not hold, the input taken apart, files.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>

namespace fuzz {

// Says what did not hold, and of what, and ends the program.
template <class... About>
void require(bool holds, const About &...about) {
    if (holds) return;
    ((std::cerr << about << '\n'), ...);
    std::abort();
}

// The input from its beginning on. What is not there any more is 0 or empty.
struct Input {
    std::string_view rest;

    Input(const std::uint8_t *bytes, std::size_t size) : rest(reinterpret_cast<const char *>(bytes), size) {}
    std::string take(std::size_t most) {
        const std::string head(rest.substr(0, most));
        rest.remove_prefix(head.size());
        return head;
    }
    unsigned byte() { return rest.empty() ? 0 : static_cast<unsigned char>(take(1)[0]); }
    unsigned below(unsigned limit) { return byte() % limit; }
    bool once_in(unsigned times) { return below(times) == times - 1; }
    // Up to a NUL, which is taken too.
    std::string text() {
        const std::string text = take(rest.find('\0'));
        take(1);
        return text;
    }
};

// A folder of the process, in memory where the system offers that.
struct Folder {
    Folder() {
        std::string name = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        name += "/kelstdmt_fuzz_XXXXXX";
        path = ::mkdtemp(name.data());
    }
    ~Folder() { std::filesystem::remove_all(path); }
    std::filesystem::path path;
};
inline void put(const std::string &path, std::string_view bytes, std::ios::openmode mode = std::ios::trunc) {
    std::ofstream(path, std::ios::binary | mode) << bytes;
}
inline std::string get(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace fuzz
