// Configuration files: any bytes as a file, then operations as the input tells, against a map that is filled
// line by line. What was written back must be read as the same map.
//
// The input is a number of operations, each a byte, a name up to a NUL and a value up to a NUL; then the
// file.
#include <kelstdmt/configfile.h>

#include <map>
#include <sstream>
#include <tuple>
#include <vector>

#include "fuzzing.h"

namespace {

using fuzz::require, std::string;

using model_map = std::map<string, string>;

string pressed(string name) {
    std::erase_if(name, [](char c) { return c == ' ' || c == '\t'; });
    return name;
}

model_map parse(const string &text) {
    model_map entries;
    std::istringstream lines(text);
    for (string line; std::getline(lines, line);) {
        const std::size_t colon = line.find(':');
        const string name = pressed(line.substr(0, colon));
        if (colon != line.npos && !name.empty()) entries[name] = line.substr(colon + 1);
    }
    return entries;
}

string lines(const model_map &entries) {
    string text;
    for (const auto &[name, value] : entries)
        text += name + ":" + value + "\n";
    return text;
}

void compare(const ovkConfigFile &file, const model_map &entries) {
    model_map seen;
    for (const auto &entry : file)
        seen[entry.key] = kel::view(entry.value->value);
    require(seen == entries, "expected:", lines(entries), "seen:", lines(seen));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    static const fuzz::Folder folder;
    static const string path = folder.path / "f";
    fuzz::Input input(bytes, size);
    std::vector<std::tuple<unsigned, string, string>> operations;
    for (unsigned left = input.below(16); left > 0 && !input.rest.empty(); --left) {
        const unsigned kind = input.below(5);
        const string name = input.text();
        operations.emplace_back(kind, name, input.text());
    }
    const string text(input.rest);
    fuzz::put(path, text);
    ovkConfigFile file;
    if (!file.Open(path.c_str(), ovkConfigFile::ReadWrite)) {
        require(text.find('\0') != text.npos, "not opened");
        require(Error_GetLast() == 13 && file.IsEmpty() && fuzz::get(path) == text, "an unclean refusal");
        return 0;
    }
    model_map model = parse(text);
    bool writes = true, modified = false;
    compare(file, model);
    for (const auto &[kind, name, value] : operations) {
        const string key = pressed(name);
        const bool valid = !key.empty() && key.find_first_of(":\n") == key.npos;
        if (kind == 0) {
            const bool set = writes && valid && value.find('\n') == value.npos;
            require(file.SetValue(name.c_str(), value.c_str()) == set, "set:", name, value);
            if (set) model[key] = value;
            modified |= set;
        } else if (kind == 1) {
            const bool had = writes && model.erase(key) == 1;
            require(file.DeleteValue(name.c_str()) == had, "deleted:", name);
            modified |= had;
        } else if (kind == 2) {
            const string expected = model.count(key) ? model[key] : "";
            require(kel::view(file.GetValue(name.c_str())) == expected, "asked for:", name);
        } else {
            writes = kind == 3;
            const string expected = modified ? lines(model) : fuzz::get(path);
            file.Open(path.c_str(), writes ? ovkConfigFile::ReadWrite : ovkConfigFile::ReadOnly);
            require(fuzz::get(path) == expected, "expected on disk:", expected);
            modified = false;
            compare(file, model);
        }
    }
    require(file.Close() && file.IsEmpty() && parse(fuzz::get(path)) == model, "another map was written");
    return 0;
}
