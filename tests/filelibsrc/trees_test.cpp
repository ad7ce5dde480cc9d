// Making, removing, moving and copying: tables of all kinds of sources and targets, and what becomes of
// names, permissions, times and holes.
#include <fcntl.h>
#include <gtest/gtest.h>

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

std::string codes_of(std::initializer_list<std::string> failures) {
    std::string codes;
    for (const std::string &each : failures)
        codes += code_of(each);
    return codes;
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
                    char expected = table.outcomes[s][t];
                    if (expected == '6' && op == fsRecursive) expected = '+';
                    const std::string told = in.copy("from/" + kind, "to/" + onto, table.mode, fsNewLink, op);
                    ASSERT_EQ(code_of(told), expected) << told;
                    if (expected != '+') {
                        ASSERT_EQ(snapshot(in.root), before) << "a failure changed something";
                        continue;
                    }
                    const bool is_merged = table.mode == fsMerge && onto.ends_with("folder");
                    EXPECT_TRUE(is_merged || (snapshot(in.at("far")) == far_before && !fs::is_symlink(to)));
                    auto copied = snapshot(fs::canonical(to)),
                         wanted = snapshot(fs::canonical(in.at("from/" + kind)));
                    if (is_merged) {  // what only the target had is still there
                        wanted.insert(copied.begin(), copied.end());
                        wanted["."] = copied["."];
                        EXPECT_TRUE(fs::exists(to + "/sub/to.txt") || fs::exists(to + "/inner.txt"));
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
        return in.copy("from", "to", fsForceNew, mode);
    };
    EXPECT_EQ(copy(fsNewLink), "");
    EXPECT_EQ(snapshot(in.at("to")), snapshot(in.at("from")));
    EXPECT_EQ(copy(fsIgnore), "");
    EXPECT_EQ(snapshot(in.at("to")).size(), 3U);
    EXPECT_EQ(copy(fsExpand), "");
    EXPECT_EQ(content_of(in.at("to/to-file")) + content_of(in.at("to/to-far/deep/file")), "12");
    EXPECT_FALSE(fs::is_symlink(in.at("to/to-far")) || fs::is_symlink(in.at("to/to-file")));
    in.link("../..", "from/a/up");
    EXPECT_EQ(copy(fsExpand), R"(XInvalidPath fsCopy from\a\up\from)");
    EXPECT_FALSE(fs::exists(in.at("to")));
    in.link("../from/a", "far/a");  // below the top it leads into another tree
    EXPECT_EQ(in.copy("from", "far", fsMerge, fsNewLink), R"(XFileExists fsCopy from\a)");
    in.folder("links");
    in.link("elsewhere", "links/one");
    in.link("nowhere", "links/two");
    in.file("onto/one", "a file");
    in.link("before", "onto/two");
    EXPECT_EQ(in.copy("links", "onto", fsMerge, fsNewLink), "");
    EXPECT_EQ(snapshot(in.at("onto")), snapshot(in.at("links"))) << "in place of what was there";
}

TEST(Trees, NothingIsCopiedIntoItselfOrOverWhatHoldsIt) {
    scene in;
    in.file("a/b/file", "1");
    in.link("a", "alias");
    fs::create_hard_link(in.at("a/b/file"), in.at("twin"));
    const auto before = snapshot(in.root);
    for (const auto &[from, to] : {std::pair("a", "a/b/c"),
                                   {"a", "alias/b/new/er"},
                                   {"a", "a"},
                                   {"a/b", "a"},
                                   {"a/b/file", "alias/b/file"},
                                   {"alias/b/file", "a/b"},
                                   {"a", "alias/../a/b"}})
        EXPECT_EQ(in.copy(from, to, fsReplace, fsExpand, fsRecursive),
                  std::string("XInvalidPath fsCopy ") + fsPathToNative(to).Str());
    EXPECT_EQ(code_of(in.move("a", "a/b/c")), '5');
    EXPECT_EQ(snapshot(in.root), before);
    // Another name of the same file is another entry.
    EXPECT_EQ(in.copy("a/b/file", "twin", fsMerge), "");
    EXPECT_TRUE(content_of(in.at("twin")) == "1" && fs::hard_link_count(in.at("a/b/file")) == 1);
}

TEST(Trees, AreMadeMovedRenamedAndRemoved) {
    scene in;
    in.file("a/file", "1");
    in.link("nowhere", "a/link");
    in.folder("far");
    auto make = [&](const char *name, fsOpMode op) {
        return in.told([&] { fsCreateDir(text(in.at(name)), op); });
    };
    auto rename = [&](const char *name, const char *other) {
        return in.told([&] { fsRename(text(in.at(name)), other); });
    };
    EXPECT_EQ(
        codes_of({make("a", fsSimple), make("a", fsRecursive), make("b/c", fsSimple),
                  make("b//c/", fsRecursive), make("a/file/z", fsRecursive), make("a/file", fsRecursive)}),
        "7+6+67");
    EXPECT_EQ(codes_of({rename("a/none", "x"), rename("a/file", "link"), rename("a/file/", "y"),
                        in.move("none", "z"), in.move("a/y", "far"), in.move("a/y", "d/e/f"),
                        in.move("a/y", "d/e/f", fsRecursive), in.move("a/link", "far/link"),
                        in.move("far", "b/far")}),
              "67+676+++");
    EXPECT_EQ(codes_of({in.remove("b", fsSimple), in.remove("none"), in.remove("b/far/link/"),
                        in.remove("b/far", fsSimple), in.remove("b"), in.remove("a", fsSimple)}),
              "76++++");
    EXPECT_EQ(content_of(in.at("d/e/f")), "1");
    EXPECT_EQ(in.entries(), 1);
}

TEST(Trees, KeepPermissionsTimesAndHoles) {
    scene in;
    in.file("from/run", "#!");
    in.folder("from/closed");
    fs::resize_file(in.at("from/run"), 5 << 20);
    std::ofstream(in.at("from/run"), std::ios::in | std::ios::binary).seekp(4 << 20) << "middle";
    ::chmod(text(in.at("from/run")), 04751);
    ::chmod(text(in.at("from/closed")), 0555);
    const timespec times[2] = {{1, 2}, {1'000'000'000, 123'456'789}};
    ::utimensat(AT_FDCWD, text(in.at("from/run")), times, 0);
    ::umask(077);
    EXPECT_EQ(in.copy("from", "to", fsForceNew), "");
    ::umask(022);
    ::chmod(text(in.at("from/run")), 0751);  // rights are not lent by a copy
    EXPECT_EQ(snapshot(in.at("to")), snapshot(in.at("from")));
    struct stat node {};
    ASSERT_EQ(::stat(text(in.at("to/run")), &node), 0);
    EXPECT_LT(node.st_blocks * 512, 1 << 20);
    // Files of the kernel tell no size.
    fsCopy("/proc/self/limits", text(in.at("limits")), fsForceNew, fsExpand, fsSimple);
    EXPECT_EQ(content_of(in.at("limits")), content_of("/proc/self/limits"));
}

TEST(Trees, ReportNamesThatCannotBeTold) {
    scene in;
    in.file("odd/a\\b", "1");
    EXPECT_EQ(in.remove("odd"), R"(XInvalidName fsRemove odd\a\b)");
    EXPECT_EQ(in.copy("odd", "to", fsMerge), R"(XInvalidName fsCopy odd\a\b)");
    const std::string name(120, 'n'), too_long = "d\\" + name + '\\' + name;
    in.file("d/" + name + "/" + name + "/file", "far down");
    EXPECT_EQ(in.remove("d"), "XInvalidPath fsRemove " + too_long);
    EXPECT_EQ(in.copy("d", "to", fsMerge), "XInvalidPath fsCopy " + too_long);
    EXPECT_TRUE(fs::exists(in.at("d/" + name + "/" + name + "/file")) && !fs::exists(in.at("to")));
    for (const char *good : {" ", "...", "a::b", "C:x", "\xff\x01"})  // like any other
        in.file(std::string("good/ ..x/") + good, good);
    EXPECT_EQ(in.copy("good", "better", fsForceNew), "");
    EXPECT_EQ(snapshot(in.at("better")), snapshot(in.at("good")));
    EXPECT_EQ(in.remove("better\\"), "");
}

TEST(Trees, RefuseWhatMakesNoSense) {
    scene in;
    in.file("a/file", "1");
    const std::string host = in.at("a/file");
    for (const char *name : {"", "..", "b/c", "C:b", "b::c"})
        EXPECT_EQ(failure([&] { fsRename(text(host), name); }), std::string("XInvalidName fsRename ") + name);
    // A drive is a folder on the host.
    in.file("drives/D/x", "1");
    ::setenv("KELSTDMT_DRIVES", text(in.at("drives")), 1);
    for (const char *path : {"C:\\", ".", "D:\\"})
        EXPECT_EQ(failure([&] { fsRemove(path, fsRecursive); }),
                  std::string("XInvalidPath fsRemove ") + path);
    EXPECT_EQ(failure([&] { fsMove("D:\\", text(in.at("moved")), fsSimple); }), R"(XInvalidPath fsMove D:\)");
    EXPECT_EQ(failure([&] { fsCopy(text(in.at("a")), "D:\\", fsReplace, fsExpand, fsSimple); }),
              R"(XInvalidPath fsCopy D:\)");
    ::unsetenv("KELSTDMT_DRIVES");
    EXPECT_EQ(failure([&] { fsCreateSoftLink("a", "b", fsSimple); }),
              "XLinksNotSupported fsCreateSoftLink (null)");
    EXPECT_EQ(failure([&] { fsReadLink("a/b"); }), R"(XLinksNotSupported fsReadLink a\b)");
    in.folder("b");
    ::mkfifo(text(in.at("b/fifo")), 0600);  // as a device would be
    in.file("c/fifo", "1");
    EXPECT_EQ(in.copy("c", "b", fsMerge), R"(XFileExists fsCopy b\fifo)");
}

TEST(Trees, TellAnObserverAndEndWithIt) {
    scene in;
    in.file("from/big", std::string(4 << 20, 'x'));
    for (int i = 1; i < 200; ++i)  // some hundred milliseconds of work
        fs::create_hard_link(in.at("from/big"), in.at("from/big" + std::to_string(i)));
    in.file(".to.kel-copy/mine", "");  // as a copy's own, but that somebody else keeps it
    auto copy = [&](const kel::file_observer &observer) {
        kel::copy_tree(text(in.at("from")), text(in.at("to")), fsForceNew, fsExpand, fsSimple, observer);
    };
    EXPECT_THROW(copy([](const kel::file_progress &) { throw 1; }), int);
    EXPECT_EQ(in.entries(), 2) << "something of the copy is left";
    EXPECT_TRUE(fs::exists(in.at(".to.kel-copy/mine")));
    kel::file_progress last{};
    copy([&](const kel::file_progress &now) { last = now; });
    EXPECT_TRUE(last.files == 200 && last.bytes == 200.0 * (4 << 20));
    kel::remove_tree(text(in.at("to")), fsRecursive, [&](const kel::file_progress &now) { last = now; });
    EXPECT_TRUE(last.files >= 200 && !fs::exists(in.at("to"))) << last.files;
}

}  // namespace
