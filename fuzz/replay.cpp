// Feeds the files of the folders and files named on the command line to a fuzz target, in the order of their
// names, so that every compiler and sanitizer meets the corpus and not only the fuzzer that grew it.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

static void feed(const std::string &bytes) {
    // A buffer of exactly this size on the heap lets the address sanitizer see a read beyond its end.
    const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

int main(int argc, char **argv) {
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path = argv[i];
        if (!std::filesystem::is_directory(path)) {
            if (std::filesystem::exists(path)) files.push_back(path);
            continue;
        }
        for (const auto &entry : std::filesystem::recursive_directory_iterator(path))
            if (entry.is_regular_file()) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    feed("");
    for (const auto &file : files) {
        std::ifstream stream(file, std::ios::binary);
        if (!stream) {
            std::cerr << file << ": cannot be read\n";
            return 1;
        }
        std::cout << file.string() << std::endl;
        feed(std::string(std::istreambuf_iterator<char>(stream), {}));
    }
    std::cout << files.size() << " inputs replayed\n";
}
