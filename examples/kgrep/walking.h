// The files that are meant by what the command line names: files as they are, folders with all below them.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "options.h"

class Walk {
public:
    // Told the path of a file, or that of something that cannot be read and why. Each answers whether to go
    // on.
    std::function<bool(const std::string &path)> file;
    std::function<void(const std::string &path, const std::string &reason)> failure;

    explicit Walk(const Options &options) : m_options(options) {}

    // In the order of the names. What is named itself may be a link, a pipe or a device; in folders only
    // files are looked at, links are not followed.
    void Run();

private:
    bool Folder(const std::string &path);
    bool Wanted(const std::string &name) const;

    const Options &m_options;
};
