// Making, removing, moving and copying: a table of all kinds of sources and targets, a model at random, and
// what becomes of names, permissions, times and holes.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <random>
#include <regex>

#include "filelibsrc/scene.h"

namespace {

namespace fs = std::filesystem;

// '+' for no failure, else a character for its class.
char code_of(const std::string &failure) {
    static const std::map<std::string, char> codes = {
        {"", '+'}, {"XInvalidPath", '5'}, {"XDoesNotExist", '6'}, {"XFileExists", '7'}, {"XOther", 'B'}};
    const auto found = codes.find(failure.substr(0, failure.find(' ')));
    return found == codes.end() ? '?' : found->second;
}

// Copies of everything onto everything -------------------------------------------------------------

const char *const source_kinds[] = {"file", "folder", "to-file", "to-folder", "missing", "dangling", "fifo"};
const char *const target_kinds[] = {"nothing", "deep/nothing", "file",    "folder",
                                    "to-file", "to-folder",    "dangling"};

void make_node(const scene &in, const std::string &side, const std::string &kind) {
    if (kind == "file") in.file(side + "/file", side + " content");
    if (kind == "folder") in.file(side + "/folder/sub/" + side + ".txt", side);
    if (kind == "folder") in.file(side + "/folder/both.txt", "of " + side);
    in.folder(side);
    in.file("far/" + side + "-file", side + " far");
    in.file("far/" + side + "-folder/inner.txt", side + " inner");
    if (kind == "to-file") in.link("../far/" + side + "-file", side + "/" + kind);
    if (kind == "to-folder") in.link("../far/" + side + "-folder", side + "/" + kind);
    if (kind == "dangling") in.link("nowhere", side + "/" + kind);
    if (kind == "fifo") ::mkfifo(in.at(side + "/fifo").c_str(), 0600);
}

TEST(Trees, EveryKindIsCopiedOntoEveryKind) {
    struct row {
        fsRecursiveCopyMode mode;
        // For each source kind, the outcome for each target kind: with fsSimple, and with fsRecursive for
        // "deep/nothing", which then is '+' where it is '6' here.
        const char *outcomes[7];
    };
    constexpr row rows[] = {
        {fsForceNew, {"+677777", "++77777", "+677777", "++77777", "5577777", "5577777", "BBBBBBB"}},
        {fsMerge, {"+6+7+7+", "++7+7+7", "+6+7+7+", "++7+7+7", "5555555", "5555555", "BBBBBBB"}},
        {fsReplace, {"+6+++++", "+++++++", "+6+++++", "+++++++", "5555555", "5555555", "BBBBBBB"}},
    };
    for (const row &table : rows)
        for (int s = 0; s < 7; ++s)
            for (int t = 0; t < 7; ++t)
                for (fsOpMode op : {fsSimple, fsRecursive}) {
                    const std::string kind = source_kinds[s], onto = target_kinds[t];
                    SCOPED_TRACE(kind + " to " + onto + ", mode " + std::to_string(table.mode));
                    scene in;
                    make_node(in, "from", kind);
                    make_node(in, "to", onto);
                    const std::string to = in.at("to/" + onto);
                    const auto before = snapshot(in.root), far_before = snapshot(in.at("far")),
                               from_before = snapshot(in.at("from"));
                    char expected = table.outcomes[s][t] ? table.outcomes[s][t] : '7';
                    if (expected == '6' && op == fsRecursive) expected = '+';
                    const std::string told = in.copy("from/" + kind, "to/" + onto, table.mode, fsNewLink, op);
                    ASSERT_EQ(code_of(told), expected) << told;
                    const auto after = snapshot(in.root);
                    if (expected != '+') {
                        ASSERT_EQ(after, before) << "a failure changed something";
                        continue;
                    }
                    const bool is_merged = table.mode == fsMerge && fs::is_directory(to) &&
                                           (onto == "folder" || onto == "to-folder");
                    if (!(is_merged && onto == "to-folder")) {
                        EXPECT_EQ(snapshot(in.at("far")), far_before);
                    }
                    auto copied = snapshot(fs::canonical(to)),
                         wanted = snapshot(fs::canonical(in.at("from/" + kind)));
                    if (is_merged) {  // what only the target had is still there
                        for (const auto &[name, node] : copied)
                            if (name == "." || name.find("to") != name.npos || !wanted.count(name))
                                wanted[name] = node;
                        EXPECT_TRUE(fs::exists(to + "/sub/to.txt") || fs::exists(to + "/inner.txt"));
                    } else {
                        EXPECT_FALSE(fs::is_symlink(to));
                    }
                    EXPECT_EQ(copied, wanted);
                    EXPECT_EQ(snapshot(in.at("from")), from_before);
                }
}

TEST(Trees, LinksInATreeAreMadeFollowedOrLeft) {
    scene in;
    in.file("from/a/file", "1");
    in.file("far/deep/file", "2");
    in.link("a/file", "from/to-file");
    in.link("../far", "from/to-far");
    auto copy = [&](fsSoftLinkCopyMode mode) {
        fs::remove_all(in.at("to"));
        return in.copy("from", "to", fsForceNew, mode, fsSimple);
    };
    for (fsSoftLinkCopyMode mode : {fsNewLink, static_cast<fsSoftLinkCopyMode>(3)}) {
        EXPECT_EQ(copy(mode), "");
        EXPECT_EQ(snapshot(in.at("to")), snapshot(in.at("from")));
    }
    EXPECT_EQ(copy(fsIgnore), "");
    EXPECT_EQ(snapshot(in.at("to")).size(), 3U);
    EXPECT_EQ(copy(fsExpand), "");
    EXPECT_EQ(content_of(in.at("to/to-file")) + content_of(in.at("to/to-far/deep/file")), "12");
    EXPECT_FALSE(fs::is_symlink(in.at("to/to-far")) || fs::is_symlink(in.at("to/to-file")));
    in.link("nowhere", "from/zero");
    EXPECT_EQ(copy(fsExpand), R"(XDoesNotExist fsCopy from\zero)");
    fs::remove(in.at("from/zero"));
    in.link("../..", "from/a/up");
    EXPECT_EQ(copy(fsExpand), R"(XInvalidPath fsCopy from\a\up\from)");
    EXPECT_FALSE(fs::exists(in.at("to")));
}

TEST(Trees, NothingIsCopiedIntoItselfOrOverWhatHoldsIt) {
    scene in;
    in.file("a/b/file", "1");
    in.link("a", "alias");
    fs::create_hard_link(in.at("a/b/file"), in.at("twin"));
    const auto before = snapshot(in.root);
    const char *pairs[][2] = {{"a", "a/b/c"},
                              {"a", "alias/b/new/er"},
                              {"a", "a"},
                              {"a/b", "a"},
                              {"a/b/file", "a/b/file"},
                              {"a/b/file", "alias/b/file"},
                              {"alias/b/file", "a/b"},
                              {"a", "alias/b"},
                              {"a", "alias/../a/b"}};
    for (const auto &[from, to] : pairs)
        EXPECT_EQ(in.copy(from, to, fsReplace, fsExpand, fsRecursive),
                  std::string("XInvalidPath fsCopy ") + fsPathToNative(to).Str());
    EXPECT_EQ(code_of(in.move("a", "a/b/c")), '5');
    EXPECT_EQ(snapshot(in.root), before);
    // Another name of the same file is another entry.
    EXPECT_EQ(in.copy("a/b/file", "twin", fsMerge), "");
    EXPECT_EQ(content_of(in.at("twin")), "1");
    EXPECT_EQ(fs::hard_link_count(in.at("a/b/file")), 1U);
}

// A model at random ------------------------------------------------------------------------------

// Paths and what is there: a text for a file, nothing for a folder.
using model = std::map<std::string, std::optional<std::string>>;

std::string above(const std::string &path) {
    const std::size_t separator = path.find_last_of('/');
    return separator == path.npos ? "" : path.substr(0, separator);
}
bool is_below(const std::string &path, const std::string &top) {
    return path.size() > top.size() && path.compare(0, top.size(), top) == 0 && path[top.size()] == '/';
}
bool has(const model &at, const std::string &path) {
    return path.empty() || at.count(path);
}
bool is_folder(const model &at, const std::string &path) {
    return path.empty() || (at.count(path) && !at.find(path)->second);
}
void erase(model &at, const std::string &path) {
    std::erase_if(at, [&](const auto &node) { return node.first == path || is_below(node.first, path); });
}
// The folders on the way; false when a file is in it.
bool make_way(model &at, const std::string &path) {
    if (path.empty()) return true;
    if (!make_way(at, above(path))) return false;
    if (!has(at, path)) at[path] = std::nullopt;
    return is_folder(at, path);
}
char moved(model &at, const std::string &from, const std::string &to) {
    if (!has(at, from)) return '6';
    if (has(at, to)) return '7';
    if (!is_folder(at, above(to))) return '6';
    if (is_below(to, from)) return '5';
    model more;
    for (const auto &[path, node] : at)
        if (path == from || is_below(path, from)) more[to + path.substr(from.size())] = node;
    erase(at, from);
    at.insert(more.begin(), more.end());
    return '+';
}
char merged(model &at, const std::string &from, const std::string &to) {
    if (has(at, to) && is_folder(at, from) != is_folder(at, to)) return '7';
    at[to] = at[from];
    if (!is_folder(at, from)) return '+';
    const model before = at;
    for (const auto &[path, node] : before)
        if (above(path) == from)
            if (const char code = merged(at, path, to + path.substr(from.size())); code != '+') return code;
    return '+';
}
char copied(model &at, const std::string &from, const std::string &to, fsRecursiveCopyMode mode, bool deep) {
    if (!has(at, from)) return mode == fsForceNew && has(at, to) ? '7' : '5';
    if (mode == fsForceNew && has(at, to)) return '7';
    if (from == to || (is_folder(at, from) && is_below(to, from))) return '5';
    if (mode == fsReplace && is_below(from, to)) return '5';
    if (!(deep || is_folder(at, from)) && !is_folder(at, above(to))) return '6';
    if (!make_way(at, above(to))) return '6';
    if (mode == fsReplace) erase(at, to);
    return merged(at, from, to);
}

model model_of(const std::string &root) {
    model found;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(root)) {
        const std::string path = entry.path().lexically_relative(root);
        found[path] = entry.is_directory() ? std::nullopt : std::optional(content_of(entry.path()));
    }
    return found;
}

TEST(Trees, AgreeWithAModelOnAnyOperations) {
    scene in;
    model expected;
    std::minstd_rand generator(20);
    auto random = [&] { return static_cast<unsigned>(generator() >> 8); };
    auto some_path = [&] {
        std::string path;
        for (unsigned depth = 1 + random() % 3; depth > 0; --depth)
            path += (path.empty() ? "" : "/") + std::string(1, "abc"[random() % 3]);
        return path;
    };
    for (int step = 0; step < 4000; ++step) {
        const std::string one = some_path(), other = some_path(), host = in.at(one);
        const fsOpMode op = random() % 2 ? fsSimple : fsRecursive;
        const bool deep = op == fsRecursive;
        const auto mode = static_cast<fsRecursiveCopyMode>(random() % 3);
        const unsigned what = random() % 9;
        char wanted = '+';
        std::string got;
        model after = expected;
        if (what < 3) {
            if (is_folder(after, above(one)) && !is_folder(after, one)) {
                in.file(one, std::to_string(step));
                after[one] = std::to_string(step);
            }
        } else if (what == 3) {
            wanted = deep ? (!make_way(after, above(one)) ? '6'
                             : make_way(after, one)       ? '+'
                                                          : '7')
                          : (has(after, one)                ? '7'
                             : is_folder(after, above(one)) ? '+'
                                                            : '6');
            if (wanted == '+') after[one] = std::nullopt;
            got = in.told([&] { fsCreateDir(text(host), op); });
        } else if (what == 4) {
            model rest = after;
            erase(rest, one);
            const bool is_filled = rest.size() + 1 < after.size();
            wanted = !has(after, one) ? '6' : !deep && is_filled ? '7' : '+';
            if (wanted == '+') after = rest;
            got = in.remove(one, op);
        } else if (what == 5) {
            if (has(after, one) && deep && !make_way(after, above(other))) wanted = '6';
            if (wanted == '+') wanted = moved(after, one, other);
            got = in.move(one, other, op);
        } else if (what == 6) {
            const std::string name(1, "abc"[random() % 3]);
            wanted = moved(after, one, above(one).empty() ? name : above(one) + "/" + name);
            got = in.told([&] { fsRename(text(host), text(name)); });
        } else {
            wanted = copied(after, one, other, mode, deep);
            got = in.copy(one, other, mode, fsExpand, op);
        }
        const model found = model_of(in.root);
        SCOPED_TRACE(testing::Message() << step << ": operation " << what << " " << one << " " << other << " "
                                        << op << " " << mode);
        ASSERT_EQ(code_of(got), wanted) << got;
        // A merge that failed in the middle leaves what it did, in an order that the file system chooses; a
        // way that ends at a file is made as far as it goes.
        if (wanted == '+') {
            ASSERT_EQ(found, after);
        }
        expected = found;
    }
}

// Single properties ------------------------------------------------------------------------------

TEST(Trees, KeepPermissionsTimesAndHoles) {
    scene in;
    in.file("from/run", "#!");
    in.file("from/closed/file", "x");
    fs::resize_file(in.at("from/run"), 5 << 20);
    std::ofstream(in.at("from/run"), std::ios::in | std::ios::binary).seekp(4 << 20) << "middle";
    ::chmod(text(in.at("from/run")), 04751);
    ::chmod(text(in.at("from/closed")), 0555);
    const timespec times[2] = {{1, 2}, {1'000'000'000, 123'456'789}};
    ::utimensat(AT_FDCWD, text(in.at("from/run")), times, 0);
    ::umask(077);
    EXPECT_EQ(in.copy("from", "to", fsForceNew), "");
    ::umask(022);
    auto wanted = snapshot(in.at("from"));
    ::chmod(text(in.at("from/run")), 0751);  // rights are not lent by a copy
    EXPECT_EQ(snapshot(in.at("to")), snapshot(in.at("from")));
    struct stat node {};
    ASSERT_EQ(::stat(text(in.at("to/run")), &node), 0);
    EXPECT_LT(node.st_blocks * 512, 1 << 20);
    // Files of the kernel tell no size.
    fsCopy("/proc/self/limits", text(in.at("limits")), fsForceNew, fsExpand, fsSimple);
    EXPECT_EQ(content_of(in.at("limits")), content_of("/proc/self/limits"));
    ::chmod(text(in.at("from/closed")), 0755);
    ::chmod(text(in.at("to/closed")), 0755);
}

TEST(Trees, ReportNamesThatCannotBeTold) {
    scene in;
    in.file("odd/a\\b", "1");
    EXPECT_EQ(in.remove("odd"), R"(XInvalidName fsRemove odd\a\b)");
    EXPECT_EQ(in.copy("odd", "to", fsMerge), R"(XInvalidName fsCopy odd\a\b)");
    const std::string name(120, 'n'), too_long = "d\\" + name + '\\' + name;
    in.file("d/" + name + "/" + name + "/file", "far down");
    EXPECT_EQ(in.remove("d"), "XInvalidPath fsRemove " + too_long);
    EXPECT_EQ(in.copy("d", "e", fsMerge), "XInvalidPath fsCopy " + too_long);
    EXPECT_TRUE(fs::exists(in.at("d/" + name + "/" + name + "/file")));
    EXPECT_FALSE(fs::exists(in.at("e")) || fs::exists(in.at("to")));
    // Others are names like any other.
    for (const char *good : {" ", "...", "a::b", "C:x", "\xff\x01"}) {
        in.file(std::string("good/") + good, good);
        in.file(std::string("good/ ..x/") + good, good);
    }
    EXPECT_EQ(in.copy("good", "better", fsForceNew), "");
    EXPECT_EQ(snapshot(in.at("better")), snapshot(in.at("good")));
    EXPECT_EQ(in.remove("better\\"), "");
    EXPECT_FALSE(fs::exists(in.at("better")));
}

TEST(Trees, RefuseWhatMakesNoSense) {
    scene in;
    in.file("a/file", "1");
    const std::string host = in.at("a/file");
    for (const char *name : {"", "..", "b/c", "b\\c", "C:b", "b::c"})
        EXPECT_EQ(failure([&] { fsRename(text(host), name); }), std::string("XInvalidName fsRename ") + name);
    for (const char *path : {"/", "C:\\", "."})
        EXPECT_EQ(failure([&] { fsRemove(path, fsRecursive); }),
                  std::string("XInvalidPath fsRemove ") + (*path == '/' ? "\\" : path));
    // A drive is a folder on the host.
    in.file("drives/D/x", "1");
    ::setenv("KELSTDMT_DRIVES", text(in.at("drives")), 1);
    const std::function<void()> refused[] = {
        [] { fsRemove("D:\\", fsRecursive); }, [] { fsRemove("D:/", fsSimple); },
        [] { fsRename("D:\\", "E"); }, [&] { fsMove("D:\\", text(in.at("moved")), fsSimple); },
        [&] { fsCopy(text(in.at("a")), "D:\\", fsReplace, fsExpand, fsSimple); }};
    for (const auto &action : refused)
        EXPECT_TRUE(std::regex_match(failure(action), std::regex(R"(XInvalidPath fs\w+ D:\\)")))
            << failure(action);
    EXPECT_EQ(failure([&] { fsMove("D:\\x", "D:\\y", fsSimple); }), "");
    EXPECT_EQ(content_of(in.at("drives/D/y")), "1");
    ::unsetenv("KELSTDMT_DRIVES");
    EXPECT_EQ(failure([&] { fsRename(text(in.at("a/file/")), "other"); }), "");
    EXPECT_EQ(content_of(in.at("a/other")), "1");
    for (const char *path : {"", "C:", "a::b", static_cast<const char *>(nullptr)})
        for (const auto &told :
             {failure([&] { fsCreateDir(path, fsSimple); }), failure([&] { fsRemove(path, fsSimple); }),
              failure([&] { fsMove(text(host), path, fsSimple); }), failure([&] { fsReadLink(path); })})
            EXPECT_EQ(code_of(told), '5') << told;
    EXPECT_EQ(failure([&] { fsReadLink("a/b"); }), R"(XLinksNotSupported fsReadLink a\b)");
    EXPECT_EQ(failure([&] { fsCreateSoftLink("a", "b", fsSimple); }),
              "XLinksNotSupported fsCreateSoftLink (null)");
    in.folder("b");
    ::mkfifo(text(in.at("b/fifo")), 0600);  // as a device would be
    in.file("c/fifo", "1");
    for (const std::string below : {"", "/fifo"})
        EXPECT_EQ(in.copy("c" + below, "b" + below, fsMerge), R"(XFileExists fsCopy b\fifo)");
    in.link("a", "link");
    EXPECT_EQ(in.remove("link/"), "");
    EXPECT_TRUE(fs::exists(in.at("a/other")) && !fs::exists(in.at("link")));
    fsCreateDir(text(in.at("x//y/z/")), static_cast<fsOpMode>(2));
    EXPECT_TRUE(fs::is_directory(in.at("x/y/z")));
    EXPECT_EQ(in.told([&] { fsCreateDir(text(in.at("a/other/z")), fsRecursive); }),
              R"(XDoesNotExist fsCreateDir a\other\z)");
}

TEST(Trees, TellAnObserverAndEndWithIt) {
    scene in;
    for (int i = 0; i < 50; ++i)
        in.file("from/" + std::to_string(i), std::string(1000, 'x'));
    kel::file_progress last{};
    auto keep = [&](const kel::file_progress &now) { last = now; };
    kel::copy_tree(text(in.at("from")), text(in.at("to")), fsForceNew, fsExpand, fsSimple, keep);
    EXPECT_EQ(last.files, 50);
    EXPECT_EQ(last.bytes, 50000);
    kel::remove_tree(text(in.at("to")), fsRecursive, keep);
    EXPECT_EQ(last.files, 50);
    in.file("from/big", std::string(4 << 20, 'x'));
    for (int i = 0; i < 200; ++i)  // some hundred milliseconds of work
        fs::create_hard_link(in.at("from/big"), in.at("from/big" + std::to_string(i)));
    in.file(".to.kel-copy/mine", "");  // as a copy's own, but that somebody else keeps it
    auto stop = [](const kel::file_progress &) { throw 1; };
    EXPECT_THROW(kel::copy_tree(text(in.at("from")), text(in.at("to")), fsForceNew, fsExpand, fsSimple, stop),
                 int);
    EXPECT_EQ(in.entries(), 2) << "something of the copy is left";
    EXPECT_TRUE(fs::exists(in.at(".to.kel-copy/mine")));
}

}  // namespace
