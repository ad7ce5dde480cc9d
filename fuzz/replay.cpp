// Feeds the files of a folder to a fuzz target, in the order of their names, so that every compiler and
// sanitizer meets the corpus and not only the fuzzer that grew it; then as many inputs made of them as the
// second argument says, always the same ones.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

static void feed(const std::string &name, const std::string &bytes) {
    std::cout << name << std::endl;
    // A buffer of exactly this size on the heap lets the address sanitizer see a read beyond its end.
    const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

// The beginning of one input and the end of another with some bytes changed, or any bytes.
static std::string made_of(const std::vector<std::string> &inputs, std::mt19937 &random) {
    std::string bytes(random() % (1U << random() % 13), ' ');
    unsigned one_in = 1;
    if (!inputs.empty() && random() % 4 > 0) {
        const std::string &first = inputs[random() % inputs.size()],
                          &second = inputs[random() % inputs.size()];
        bytes =
            first.substr(0, random() % (first.size() + 1)) + second.substr(random() % (second.size() + 1));
        one_in = 8;
    }
    for (char &byte : bytes)
        if (random() % one_in == 0) byte = static_cast<char>(random());
    return bytes;
}

int main(int argc, char **argv) {
    std::vector<std::filesystem::path> files;
    if (argc > 1 && std::filesystem::is_directory(argv[1]))
        for (const auto &entry : std::filesystem::directory_iterator(argv[1]))
            files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    feed("nothing", "");
    std::vector<std::string> inputs;
    for (const auto &file : files) {
        std::ifstream stream(file, std::ios::binary);
        inputs.emplace_back(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
        feed(file.string(), inputs.back());
    }
    std::mt19937 random(1);
    for (int left = argc > 2 ? std::atoi(argv[2]) : 0; left > 0; --left)
        feed("made, " + std::to_string(left) + " left", made_of(inputs, random));
}
