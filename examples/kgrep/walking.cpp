#include "walking.h"

#include <algorithm>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

// What a folder holds is read at once, so that no more than one folder is open, however deep they lie.
struct Entries {
    std::vector<std::string> files, folders;
    std::error_code error;
};

Entries Read(const std::string &path) {
    Entries entries;
    fs::directory_iterator entry(path, entries.error), end;
    for (; !entries.error && entry != end; entry.increment(entries.error)) {
        std::error_code gone;
        fs::file_type type = entry->symlink_status(gone).type();
        if (type == fs::file_type::directory) entries.folders.push_back(entry->path().filename());
        if (type == fs::file_type::regular) entries.files.push_back(entry->path().filename());
    }
    std::sort(entries.files.begin(), entries.files.end());
    std::sort(entries.folders.begin(), entries.folders.end(), std::greater<>());
    return entries;
}

}  // namespace

void Walk::Run() {
    for (const std::string &name : m_options.files) {
        std::error_code ignored;
        bool going_on = name != "-" && fs::is_directory(name, ignored) ? Folder(name) : file(name);
        if (!going_on) return;
    }
}

bool Walk::Folder(const std::string &path) {
    std::vector<std::string> left = {path};
    while (!left.empty()) {
        std::string folder = std::move(left.back());
        left.pop_back();
        Entries entries = Read(folder);
        if (entries.error) failure(folder, entries.error.message());
        if (!folder.ends_with('/')) folder += '/';
        for (const std::string &name : entries.files)
            if (Wanted(name) && !file(folder + name)) return false;
        for (const std::string &name : entries.folders)
            left.push_back(folder + name);
    }
    return true;
}

bool Walk::Wanted(const std::string &name) const {
    auto matches = [&](const std::string &pattern) {
        return strExactMatch(name.c_str(), pattern.c_str(), strShell);
    };
    const auto &include = m_options.include, &exclude = m_options.exclude;
    return (include.empty() || std::any_of(include.begin(), include.end(), matches)) &&
           std::none_of(exclude.begin(), exclude.end(), matches);
}
