// What the command line asks for.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <kelstdmt/strlib.h>

enum class Show { lines, matches, counts, matching_files, other_files, nothing };
enum class Color { automatic, always, never };

struct Options {
    std::string pattern;
    bool has_pattern = false;
    strMatchMode mode = strRegExp;
    bool whole_line = false;
    bool invert = false;

    Show show = Show::lines;
    bool total = false;
    Color color = Color::automatic;
    std::optional<bool> names;  // not said: unless only the standard input is read
    bool numbers = true;
    bool progress = false;
    std::uint64_t max_count = std::numeric_limits<std::uint64_t>::max();

    std::optional<std::string> replacement;
    bool first_only = false;
    bool in_place = false;

    std::vector<std::string> include, exclude;  // shell patterns for names of files in folders
    std::vector<std::string> files;             // "-": standard input; none: the same

    const char *told = nullptr;  // by --help and --version, in place of a search
    std::string mistake;         // what is wrong with the command line
};

Options ParseOptions(int count, char **arguments);
