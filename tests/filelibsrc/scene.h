// A folder of its own for each test, and what stands in a tree as a map that can be compared.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>

#include <kelstdmt/filelib.h>

#include "filelibsrc/failure.h"

class scene {
public:
    // Below the temporary directory, or another one.
    explicit scene(std::string above = std::filesystem::temp_directory_path())
        : root(std::move(above) + "/kel-trees-XXXXXX") {
        if (!::mkdtemp(root.data())) throw std::runtime_error("no folder for the test");
    }
    ~scene() {
        std::error_code ignored;
        std::filesystem::remove_all(root, ignored);
    }
    scene(const scene &) = delete;
    scene &operator=(const scene &) = delete;

    std::string at(const std::string &name) const { return root + "/" + name; }
    void folder(const std::string &name) const { std::filesystem::create_directories(at(name)); }
    void file(const std::string &name, const std::string &content) const {
        std::filesystem::create_directories(std::filesystem::path(at(name)).parent_path());
        std::ofstream(at(name), std::ios::binary) << content;
    }
    void link(const std::string &text, const std::string &name) const {
        std::filesystem::create_symlink(text, at(name));
    }

    // What an operation throws, as failure() tells it.
    template <class Action>
    std::string told(Action action) const {
        return failure(action, root);
    }
    std::string copy(const std::string &from, const std::string &to, fsRecursiveCopyMode mode,
                     fsSoftLinkCopyMode links = fsExpand, fsOpMode op = fsSimple) const {
        return told([&] { fsCopy(at(from).c_str(), at(to).c_str(), mode, links, op); });
    }
    std::string move(const std::string &from, const std::string &to, fsOpMode op = fsSimple) const {
        return told([&] { fsMove(at(from).c_str(), at(to).c_str(), op); });
    }
    std::string remove(const std::string &name, fsOpMode op = fsRecursive) const {
        return told([&] { fsRemove(at(name).c_str(), op); });
    }
    auto entries(const std::string &name = "") const {
        return std::distance(std::filesystem::directory_iterator(at(name)), {});
    }

    std::string root;
};

inline const char *text(const std::string &path) {
    return path.c_str();
}

inline std::string content_of(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Each entry below a folder by its path there: "folder MODE", "link TEXT", "file MODE TIME CONTENT", "other".
inline std::map<std::string, std::string> snapshot(const std::string &folder) {
    namespace fs = std::filesystem;
    std::map<std::string, std::string> found;
    if (!fs::exists(fs::symlink_status(folder))) return found;
    auto tell = [&](const fs::path &path) {
        struct stat node {};
        ::lstat(path.c_str(), &node);
        const std::string mode = std::to_string(node.st_mode & 07777);
        const std::string name = fs::path(path).lexically_relative(folder);
        if (S_ISLNK(node.st_mode))
            found[name] = "link " + fs::read_symlink(path).string();
        else if (S_ISDIR(node.st_mode))
            found[name] = "folder " + mode;
        else if (S_ISREG(node.st_mode))
            found[name] = "file " + mode + " " + std::to_string(node.st_mtim.tv_sec) + "." +
                          std::to_string(node.st_mtim.tv_nsec) + " " + content_of(path);
        else
            found[name] = "other";
    };
    tell(folder);
    if (!fs::is_directory(fs::symlink_status(folder))) return found;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(folder))
        tell(entry.path());
    return found;
}
