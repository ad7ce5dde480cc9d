#include "inputs.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>

#include "work.h"

namespace bench {
namespace {

namespace fs = std::filesystem;

class Folder {
public:
    explicit Folder(const fs::path &below) {
        std::string pattern = below / "kelstdmt-bench-XXXXXX";
        if (!mkdtemp(pattern.data())) {
            std::perror(pattern.c_str());
            std::exit(2);
        }
        m_path = pattern;
    }
    ~Folder() {
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
    }
    const fs::path &path() const { return m_path; }

private:
    fs::path m_path;
};

const fs::path &scratch() {
    static Folder folder(fs::temp_directory_path());
    return folder.path();
}

void write(const fs::path &path, const std::string &bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

void put_word(std::string &to, std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8)
        to += static_cast<char>(value >> shift);
}

void put_record(std::string &to, const std::string &name, std::uint32_t value) {
    put_word(to, 1);
    put_word(to, 0);
    put_word(to, static_cast<std::uint32_t>(name.size()));
    to += name;
    put_word(to, value);
}

std::string monitor_head() {
    std::string bytes;
    put_word(bytes, 0);
    put_word(bytes, 5);
    return bytes + "bench";
}

constexpr std::size_t block_size = 1 << 20;

struct BigFile {
    BigFile()
        : folder(fs::exists("/dev/shm") ? fs::path("/dev/shm") : scratch()), path(folder.path() / "big") {
        auto block = std::make_unique<char[]>(block_size);
        std::mt19937_64 random(7);
        for (std::size_t at = 0; at < block_size; at += 8) {
            std::uint64_t bits = random();
            std::memcpy(block.get() + at, &bits, 8);
        }
        std::ofstream file(path, std::ios::binary);
        PlainSum plain;
        for (std::size_t i = 0; i < big_file_mib; ++i) {
            block[i % block_size] = static_cast<char>(block[i % block_size] + 1);
            file.write(block.get(), block_size);
            plain.add(block.get(), block_size);
        }
        sum = plain.value();
    }
    Folder folder;
    fs::path path;
    std::uint32_t sum = 0;
};
const BigFile &the_big_file() {
    static BigFile file;
    return file;
}

}  // namespace

std::string scratch_path(const std::string &name) {
    static int number = 0;
    return scratch() / (name + std::to_string(++number));
}

bool exists(const std::string &path) {
    return fs::exists(path);
}

void settle_disk() {
    ::sync();
}

std::string source_tree() {
    static const fs::path root = [] {
        fs::path path = scratch() / "tree";
        std::mt19937 random(1);
        for (std::size_t i = 0; i < tree_files; ++i) {
            fs::path folder = path / ("folder" + std::to_string(i / 100));
            if (i % 100 == 0) fs::create_directories(folder);
            write(folder / ("file" + std::to_string(i) + ".txt"), std::string(random() % 8192, 'x'));
        }
        return path;
    }();
    return root;
}

std::uint64_t content_of_tree(const std::string &folder) {
    std::uint64_t content = 0;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(folder))
        content += std::hash<std::string>()(entry.path().filename()) + 1 +
                   (entry.is_regular_file() ? entry.file_size() << 32 : 0);
    return content;
}

std::string crowded_folder() {
    static const fs::path folder = [] {
        fs::path path = scratch() / "crowd";
        fs::create_directory(path);
        for (std::size_t i = 0; i < crowd; ++i) {
            char name[20];
            std::snprintf(name, sizeof name, "name%05zu.txt", i);
            write(path / name, "");
        }
        return path;
    }();
    return folder;
}

std::string big_file() {
    return the_big_file().path;
}
std::uint32_t big_file_sum() {
    return the_big_file().sum;
}

const std::vector<std::string> &value_names() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> made;
        for (int i = 0; i < 10'000; ++i)
            made.push_back("Setting" + std::to_string(i));
        return made;
    }();
    return names;
}

const std::vector<std::pair<std::string, std::string>> &config_content() {
    static const std::vector<std::pair<std::string, std::string>> content = [] {
        std::vector<std::pair<std::string, std::string>> made;
        for (std::size_t i = 0; i < config_entries; ++i)
            made.emplace_back("window" + std::to_string(i) + "position", std::to_string(i * 17 % 4096));
        std::shuffle(made.begin(), made.end(), std::mt19937(3));
        return made;
    }();
    return content;
}

std::string monitor_file() {
    std::string bytes = monitor_head();
    put_record(bytes, "count", 0);
    const std::string path = scratch_path("monitor");
    write(path, bytes);
    return path;
}

int value_in_file(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    char word[4] = {};
    file.seekg(monitor_place).read(word, 4);
    std::uint32_t value;
    std::memcpy(&value, word, 4);
    return static_cast<int>(__builtin_bswap32(value));
}

std::string followed_file() {
    std::string bytes = monitor_head();
    for (std::size_t i = 0; i < followed; ++i)
        put_record(bytes, "parameter" + std::to_string(i), static_cast<std::uint32_t>(i));
    const std::string path = scratch_path("followed");
    write(path, bytes);
    return path;
}

}  // namespace bench
