// The callers' paths and the host's. Drive C is the whole host; the other letters are entries of one
// folder, so that a path on them is an ordinary host path too.
#include <kelstdmt/vumrt.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string_view>

namespace {

namespace fs = std::filesystem;

// Below something that is no folder, so it can neither exist nor be made.
constexpr std::string_view no_drive = "/dev/null/";

// Letters and case without the locale.
constexpr bool is_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
constexpr char to_lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
constexpr char to_upper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

// The folder of the drives without a trailing separator, empty when there is none.
std::string drives_folder() {
    const char *folder = std::getenv("KELSTDMT_DRIVES");
    std::string result = folder ? folder : "";
    while (result.size() > 1 && result.back() == '/')
        result.pop_back();
    return result;
}

// The drive's entry, or empty.
std::string drive_entry(const std::string &folder, char letter) {
    if (folder.empty()) return {};
    for (char name : {to_upper(letter), to_lower(letter)}) {
        std::string entry = folder + "/" + name;
        std::error_code ignored;
        if (fs::exists(entry, ignored)) return entry;
    }
    return {};
}

bool lies_below(std::string_view path, std::string_view folder) {
    return !folder.empty() && path.substr(0, folder.size()) == folder &&
           (path.size() == folder.size() || path[folder.size()] == '/' || folder.back() == '/');
}

}  // namespace

std::string btkHostPath(const char *path) {
    if (!kel::is_text(path)) return {};
    std::string text = path;
    std::replace(text.begin(), text.end(), '\\', '/');
    if (text.size() < 2 || !is_letter(text[0]) || text[1] != ':') return text;
    std::string rest = text.substr(2);
    char letter = text[0];
    if (to_lower(letter) == 'c') return rest.empty() ? "." : rest;
    std::string root = drive_entry(drives_folder(), letter);
    if (root.empty()) root = std::string(no_drive) + letter;
    if (!rest.empty() && rest.front() != '/') root += '/';
    return root + rest;
}

std::string btkCallerPath(const char *host_path) {
    if (!kel::is_text(host_path)) return {};
    std::string_view path = host_path;
    std::string prefix;
    if (path.substr(0, 1) == "/") {
        prefix = "C:";
        std::string folder = drives_folder();
        std::size_t longest = 0;  // a drive may lie inside another
        for (char letter = 'A'; !folder.empty() && letter <= 'Z'; ++letter) {
            std::string entry = letter == 'C' ? std::string() : drive_entry(folder, letter);
            if (entry.empty()) continue;
            std::error_code failed;
            std::string target = fs::canonical(entry, failed).string();
            if (target == "/") target.clear();
            for (const std::string &root : {entry, target}) {
                if (root.size() <= longest || !lies_below(path, root)) continue;
                longest = root.size();
                prefix = std::string{letter, ':'};
            }
        }
        path.remove_prefix(longest);
        if (path.empty()) path = "/";
    }
    std::string result = prefix.append(path);
    std::replace(result.begin(), result.end(), '/', '\\');
    return result;
}
