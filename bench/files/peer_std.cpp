#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>

#include "cases.h"
#include "work.h"

namespace bench {
namespace {

namespace fs = std::filesystem;

std::uint32_t sum_of(const std::string &path) {
    constexpr std::size_t size = 1 << 16;
    auto block = std::make_unique<char[]>(size);
    std::ifstream file(path, std::ios::binary);
    file.rdbuf()->pubsetbuf(nullptr, 0);
    PlainSum sum;
    while (std::streamsize got = file.rdbuf()->sgetn(block.get(), size))
        sum.add(block.get(), static_cast<std::size_t>(got));
    return sum.value();
}

using Map = std::map<std::string, std::string>;

Map read(const std::string &path) {
    Map map;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
        if (std::size_t colon = line.find(':'); colon != std::string::npos)
            map[line.substr(0, colon)] = line.substr(colon + 1);
    return map;
}

template <class Content>
void write(const std::string &path, const Content &content) {
    std::ofstream file(path);
    for (const auto &[name, value] : content)
        file << name << ':' << value << '\n';
}

class Update {
public:
    explicit Update(const std::string &path)
        : m_file(path, std::ios::in | std::ios::out | std::ios::binary) {}
    void put(int value) {
        std::uint32_t word = __builtin_bswap32(static_cast<std::uint32_t>(value));
        m_file.seekp(monitor_place);
        m_file.write(reinterpret_cast<const char *>(&word), 4);
        m_file.flush();
    }

private:
    std::fstream m_file;
};

class Follow {
public:
    explicit Follow(std::string path) : m_path(std::move(path)) {}
    long long read_all() {
        std::ifstream file(m_path, std::ios::binary);
        std::ostringstream bytes;
        bytes << file.rdbuf();
        std::string_view seen = bytes.view();
        return sum_of_records(seen.data(), seen.size());
    }

private:
    std::string m_path;
};

}  // namespace

void add_std(Suite &suite) {
    add_tree(
        suite, Library::Std, "filesystem",
        [](const std::string &from, const std::string &to) {
            fs::copy(from, to, fs::copy_options::recursive);
        },
        [](const std::string &folder) { fs::remove_all(folder); });
    add_list(suite, Library::Std, "directory_iterator", [](const std::string &folder) {
        std::vector<std::string> names;
        for (const fs::directory_entry &entry : fs::directory_iterator(folder))
            if (std::string name = entry.path().filename(); name.ends_with("7.txt"))
                names.push_back(std::move(name));
        return names.size();
    });
    add_sum(suite, Library::Std, "filebuf", sum_of);
    add_config(suite, Library::Std, "map",
               {[](const std::string &path) { write(path, config_content()); },
                [](const std::string &path) { return read(path).size(); },
                [](const std::string &path) {
                    Map map = read(path);
                    map.insert_or_assign("window7position", std::string(1, '8'));
                    write(path, map);
                }});
    add_update<Update>(suite, Library::Std, "fstream");
    add_follow<Follow>(suite, Library::Std, "ifstream");
}

}  // namespace bench
