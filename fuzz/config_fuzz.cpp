// Configuration files: any bytes as a file, then operations as the input tells, against a map that is filled
// line by line. What was written back must be read as the same map.
//
// The input is a number of operations, each a byte, a name up to a NUL and a value up to a NUL; then the
// file.
#include <kelstdmt/configfile.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using model_map = std::map<std::string, std::string>;

void require(bool holds) {
    if (!holds) std::abort();
}

// One file for the process, in memory where the system offers that.
struct scratch_file {
    scratch_file() {
        const char *folder = std::filesystem::exists("/dev/shm") ? "/dev/shm" : "/tmp";
        path = std::string(folder) + "/kelstdmt_config_fuzz_" + std::to_string(::getpid());
    }
    ~scratch_file() { std::filesystem::remove(path); }
    void put(std::string_view text) const { std::ofstream(path, std::ios::binary) << text; }
    std::string get() const {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    std::string path;
};

std::string pressed(std::string name) {
    std::erase(name, ' ');
    std::erase(name, '\t');
    return name;
}

model_map parse(const std::string &text) {
    model_map entries;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        const std::string line = text.substr(at, end - at);
        const std::size_t colon = line.find(':');
        const std::string name = pressed(line.substr(0, colon));
        if (colon != line.npos && !name.empty()) entries[name] = line.substr(colon + 1);
        at = end + 1;
    }
    return entries;
}

std::string lines(const model_map &entries) {
    std::string text;
    for (const auto &[name, value] : entries)
        text += name + ":" + value + "\n";
    return text;
}

void compare(const ovkConfigFile &file, const model_map &entries) {
    require(file.GetSize() == entries.size());
    auto expected = entries.begin();
    for (const auto &entry : file) {
        require(entry.key == expected->first && kel::view(entry.value->name) == expected->first);
        require(kel::view(entry.value->value) == expected->second);
        ++expected;
    }
}

std::string take_text(std::string_view &rest) {
    const std::size_t end = std::min(rest.find('\0'), rest.size());
    std::string text(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    static const scratch_file disk;
    std::string_view rest(reinterpret_cast<const char *>(bytes), size);
    std::vector<std::pair<unsigned, std::pair<std::string, std::string>>> operations;
    for (unsigned left = rest.empty() ? 0 : static_cast<unsigned char>(rest[0]) % 16; left > 0; --left) {
        rest.remove_prefix(std::min<std::size_t>(1, rest.size()));
        if (rest.empty()) break;
        const unsigned kind = static_cast<unsigned char>(rest[0]) % 5;
        rest.remove_prefix(1);
        std::string name = take_text(rest);
        operations.push_back({kind, {std::move(name), take_text(rest)}});
    }
    const std::string text(rest);
    disk.put(text);
    ovkConfigFile file;
    const bool opened = file.Open(disk.path.c_str(), ovkConfigFile::ReadWrite);
    require(opened == (text.find('\0') == text.npos));
    if (!opened) {
        require(Error_GetLast() == 13 && file.IsEmpty() && disk.get() == text);
        return 0;
    }
    model_map model = parse(text);
    bool writes = true, modified = false;
    compare(file, model);
    for (const auto &[kind, arguments] : operations) {
        const auto &[name, value] = arguments;
        const std::string key = pressed(name);
        const bool valid = !key.empty() && key.find_first_of(":\n") == key.npos;
        if (kind == 0) {
            const bool set = file.SetValue(name.c_str(), value.c_str());
            require(set == (writes && valid && value.find('\n') == value.npos));
            if (set) model[key] = value, modified = true;
        } else if (kind == 1) {
            const bool had = writes && model.erase(key) == 1;
            require(file.DeleteValue(name.c_str()) == had);
            modified |= had;
        } else if (kind == 2) {
            const auto found = model.find(key);
            require(kel::view(file.GetValue(name.c_str())) == (found == model.end() ? "" : found->second));
        } else {
            writes = kind == 3;
            const std::string before = disk.get();
            require(
                file.Open(disk.path.c_str(), writes ? ovkConfigFile::ReadWrite : ovkConfigFile::ReadOnly));
            require(disk.get() == (modified ? lines(model) : before));
            modified = false;
            compare(file, model);
        }
    }
    require(file.Close());
    require(file.IsEmpty() && parse(disk.get()) == model);
    return 0;
}
