// Wildcards in paths against fnmatch(3) over all the paths of a tree, and what ends an expansion.
#include <fnmatch.h>

#include <algorithm>
#include <random>
#include <vector>

#include <kelstdmt/filelib.h>
#include <kelstdmt/vumrt.h>

#include "filelibsrc/failure.h"
#include "scratch_folder.h"

namespace {

namespace fs = std::filesystem;
using texts = std::vector<std::string>;

struct Expand : WorkFolder {
    Expand() : caller(btkCallerPath(folder.c_str())) {
        for (const char *path :
             {"a/a", "a/ab/c", "a/b.c", "b/ab", "b/.h/c", ".h/a", "abc/x y/z", "aAb\xE4/B"})
            fs::create_directories(path);
        for (const char *path : {"a/a/ab", "a/ab/c/c", "b/ab/abc", "abc/c", "abc/x y/z/[c]", "c", "a c"})
            std::ofstream(path) << path;
        fs::create_directory_symlink("../abc", "b/link");
        fs::create_symlink("nowhere", "b/.h/c/dangling");
        fs::create_symlink("../c", "b/c");
    }
    std::string caller;
};

texts expanded(const std::string &pattern) {
    xrchandle<xstringsequence> found = fsExpandPattern(pattern.c_str());
    texts paths;
    for (int i = 0; i < found->getarraysize(); ++i)
        paths.push_back(found->get(i).Str());
    std::sort(paths.begin(), paths.end());
    return paths;
}

// Component by component, since a star takes no separator.
bool matches(const fs::path &path, const std::string &pattern) {
    return ::fnmatch(pattern.c_str(), path.c_str(), FNM_NOESCAPE | FNM_PATHNAME) == 0;
}

TEST_F(Expand, AgreesWithFnmatchOverTheTree) {
    texts all;
    for (auto &entry : fs::recursive_directory_iterator(".", fs::directory_options::follow_directory_symlink))
        all.push_back(entry.path().lexically_relative(".").string());
    const char *const pieces[] = {"*", "?",  "a",  "b",    "ab",  "*b*", "a*",   "?*",    "*.?",    ".h",
                                  "c", "*c", "**", "none", "* *", "*A*", "a?b*", "*\xE4", "*ab*b*", "??"};
    // How a pattern may begin, and how its results do then.
    std::string host = folder.substr(1);
    std::replace(host.begin(), host.end(), '/', '\\');
    const std::string roots[][2] = {
        {"", ""}, {"C:", "C:"}, {caller + "\\", caller + "\\"}, {folder + "/", "\\" + host + "\\"}};
    std::mt19937 random(14);
    for (int round = 0; round < 600; ++round) {
        std::string pattern = pieces[random() % std::size(pieces)];
        for (unsigned more = random() % 4; more > 0; --more)
            pattern.append("/").append(pieces[random() % std::size(pieces)]);
        const bool folders = random() % 5 == 0;
        const auto &[root, shown] = roots[random() % std::size(roots)];
        texts expected;
        for (const std::string &path : all) {
            if (!matches(path, pattern) || (folders && !fs::is_directory(path))) continue;
            std::string result = shown + path;
            std::replace(result.begin(), result.end(), '/', '\\');
            expected.push_back(result);
        }
        std::sort(expected.begin(), expected.end());
        if (random() % 2) std::replace(pattern.begin(), pattern.end(), '/', '\\');
        pattern = root + pattern + (folders ? "\\\\" : "");
        // A file that is written out and has a wildcard behind it is told instead.
        texts seen;
        if (failure([&] { seen = expanded(pattern); }).empty())
            ASSERT_EQ(seen, expected) << pattern;
        else
            ASSERT_TRUE(expected.empty()) << pattern;
    }
    EXPECT_EQ(expanded("a\\\\ab//c"), texts{"a\\\\ab\\\\c"}) << "as it is written";
    EXPECT_EQ(expanded("abc\\x y\\z\\[*]"), texts{"abc\\x y\\z\\[c]"}) << "brackets are ordinary";
    std::ofstream(std::string(250, 'a')) << "x";
    std::string slow;
    for (int i = 0; i < 120; ++i)
        slow += "*a";
    EXPECT_TRUE(expanded(slow).size() == 1 && expanded(slow + "b").empty());
}

TEST_F(Expand, TellsWhatItCannotGoOnWith) {
    for (const char *path : {"", "C:", "h::*"})
        EXPECT_EQ(failure([&] { expanded(path); }), std::string("XInvalidPath fsExpandPattern ") + path);
    EXPECT_EQ(failure([] { expanded("c\\*"); }), "XDoesNotExist fsExpandPattern c");
    // A name that cannot be told matters only when it matches.
    fs::create_directory("abc/back\\slash");
    EXPECT_EQ(expanded("abc\\c*"), texts{"abc\\c"});
    EXPECT_EQ(failure([] { expanded("abc\\b*"); }), "XInvalidName fsExpandPattern abc\\back\\slash");
    std::ofstream("c:c") << "";  // not the file c
    EXPECT_EQ(expanded("?:*"), texts{".\\c:c"});
}

}  // namespace
