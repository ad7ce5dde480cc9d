// What nodes are, beside stat; listings beside what was made and fnmatch; temporary names; room on the disk.
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cmath>
#include <random>
#include <regex>
#include <set>
#include <thread>

#include <kelstdmt/filelib.h>

#include "filelibsrc/failure.h"
#include "scratch_folder.h"

namespace {

namespace fs = std::filesystem;

using Nodes = Folder;

std::string native(const std::string &path) {
    return fsPathToNative(path.c_str()).Str();
}

TEST_F(Nodes, AreToldAsTheirTargets) {
    put("file", "12345");
    fs::create_directory(at("sub"));
    ::mkfifo(at("fifo").c_str(), 0600);
    ::truncate(put("large", "").c_str(), 5'000'000'000);
    for (const char *name : {"sub", "file", "nowhere"})
        fs::create_symlink(name, at(std::string("to_") + name));
    fs::create_symlink("circle", at("circle"));
    time_t seconds = -300'000'000;
    for (const char *name : {"file", "sub", "fifo", "large", "to_sub", "to_file"}) {
        SCOPED_TRACE(name);
        const timespec both[2] = {{0, 0}, {seconds += 800'000'000, 900'000'000}};  // to beyond 32 bits
        ASSERT_EQ(::utimensat(AT_FDCWD, at(name).c_str(), both, 0), 0);
        struct stat told {};
        ASSERT_EQ(::stat(at(name).c_str(), &told), 0);
        const std::string path = "C:" + native(at(name));
        const fsNodeType type = S_ISDIR(told.st_mode) ? fsDirectory : fsFile;
        const double size = static_cast<double>(told.st_size), time = static_cast<double>(told.st_mtime);
        const xrchandle<fsNodeInfo> info(kel::construct<fsNodeInfo>(*fsGetNodeInfo(path.c_str())));
        const std::unique_ptr<tmTime> own(info->getModTime()), asked(fshGetModTime(path.c_str()));
        EXPECT_TRUE(own->getAbsTime() == time && asked->getAbsTime() == time);
        EXPECT_TRUE(info->getSize() == size && fshGetSize(path.c_str()) == size);
        EXPECT_TRUE(info->getType() == type && fshGetNodeType(path.c_str()) == type);
        EXPECT_TRUE(fshIsDirectory(path.c_str()) != fshIsFile(path.c_str()) && fshExists(path.c_str()));
        EXPECT_TRUE(fshIsFile(path.c_str()) == (type == fsFile) && !fshIsSoftLink(path.c_str()));
        const xany held = fsGetNodeInfo(path.c_str())->lookupfield("ModTime");  // without its node
        EXPECT_EQ(tmTime::cast(held)->getAbsTime(), time);
        EXPECT_EQ(info->lookupfield("Size").getreal(), size);
        EXPECT_EQ(kel::printed(info->lookupfield("Type")).str(), type == fsFile ? "fsFile" : "fsDirectory");
    }
    const std::string too_long(260, 'n');
    const std::pair<std::string, std::string> nothing[] = {{"none", "DoesNotExist"},
                                                           {"file/x", "DoesNotExist"},
                                                           {"to_nowhere", "DoesNotExist"},
                                                           {"circle", "Other"},
                                                           {too_long, "InvalidPath"}};
    for (const auto &[name, error] : nothing) {
        const std::string whole = at(name);
        const char *path = whole.c_str();
        SCOPED_TRACE(path);
        EXPECT_TRUE(fshGetModTime(path) == nullptr && kel::is_nil(fshGetSize(path)));
        EXPECT_EQ(fshGetNodeType(path), 3);
        EXPECT_FALSE(fshExists(path) || fshIsFile(path) || fshIsDirectory(path) || fshIsSoftLink(path));
        const std::string told = failure([&] { fsGetNodeInfo(path); });
        EXPECT_EQ(told.find("X" + error + " fsGetNodeInfo "), 0U) << told;
        EXPECT_TRUE(told.ends_with(name == too_long ? whole : native(whole))) << told;
    }
    EXPECT_EQ(failure([] { fsGetNodeInfo(""); }), "XInvalidPath fsGetNodeInfo ");
    for (const char *marker : {static_cast<const char *>(nullptr), xstrNullStr, kel::uninit_text()}) {
        EXPECT_FALSE(fshExists(marker));
        EXPECT_EQ(failure([&] { fsGetNodeInfo(marker); }), "XInvalidPath fsGetNodeInfo (null)");
    }
}

std::multiset<std::string> listed(const std::string &folder, const char *pattern) {
    const xrchandle<xstringsequence> names = fsListDirectory(folder.c_str(), pattern, strShell);
    return {names->begin(), names->end()};
}

TEST_F(Nodes, AreListedOnceEach) {
    std::multiset<std::string> made;
    // Several of the kernel's blocks, and names of all bytes.
    for (int i = 0; i < 5000; ++i)
        made.insert("entry number " + std::to_string(i) + std::string(static_cast<std::size_t>(i % 40), '.'));
    for (int byte = 1; byte < 256; ++byte)
        if (byte != '/' && byte != '\\') made.insert({'b', static_cast<char>(byte)});
    made.insert(std::string(255, 'n'));
    for (const std::string &name : made)
        put(name, "");
    EXPECT_EQ(listed(folder, xstrNullStr), made);
    EXPECT_EQ(listed(native(folder) + "\\", "*"), made);
    EXPECT_TRUE(listed(folder, "").empty() && listed(folder, nullptr).empty());
    // One descriptor; entries that go in the meantime disturb nothing.
    const auto before = open_descriptors();
    fsiDir dir;
    ASSERT_TRUE(dir.Open(folder.c_str()));
    EXPECT_EQ(open_descriptors(), before + 1);
    xstring name;
    std::multiset<std::string> read;
    while (dir.Read(name) == fsIODone) {
        read.insert(name.Str());
        fs::remove(at(name.Str()));
    }
    EXPECT_EQ(Error_GetLast(), 18);
    EXPECT_EQ(read, made);
    EXPECT_EQ(dir.Read(name), fsIOEnd) << "again";
    fs::remove(folder);
    ASSERT_TRUE(dir.Close());
    EXPECT_FALSE(dir.Close());
    EXPECT_EQ(dir.Read(name), fsIOFailed);
    EXPECT_EQ(Error_GetLast(), 6);
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Nodes, ThatCannotBeListedAreErrors) {
    for (const char *name : {"a", "b\\c", "d"})
        put(name, "");
    std::string good, bad;
    xstring name;
    {
        fsiDir dir;
        ASSERT_TRUE(dir.Open(folder.c_str()));
        for (fsIOStatus status; (status = dir.Read(name)) != fsIOEnd;) {
            (status == fsIODone ? good : bad) += name.Str();
            EXPECT_TRUE(status == fsIODone || Error_GetLast() == 123);
        }
        Error_SetLast(77);
    }
    EXPECT_EQ(Error_GetLast(), 77) << "an end that nobody asked for is silent";
    EXPECT_TRUE((good == "ad" || good == "da") && bad == "b\\c") << good << " " << bad;
    EXPECT_EQ(listed(folder, "?").size(), 2U);
    auto list = [this](const std::string &path, const char *pattern = xstrNullStr) {
        return failure([&] { fsListDirectory(path.c_str(), pattern, strShell); }, folder);
    };
    EXPECT_EQ(list(folder, "*c"), R"(XInvalidName fsListDirectory b\c)");
    EXPECT_EQ(list(at("a")), "XDoesNotExist fsListDirectory a");
    EXPECT_EQ(list("h::x"), "XInvalidPath fsListDirectory h::x");
    // A star behind it would be the 260th byte.
    const std::string name_of_deep(258 - folder.size() - 1, 'd'), deep = at(name_of_deep);
    EXPECT_EQ(list(deep), "XInvalidPath fsListDirectory " + name_of_deep);
    fsiDir dir;
    EXPECT_FALSE(dir.Open(at("a").c_str()) || dir.Open(nullptr) || dir.Open("") || dir.Open(deep.c_str()));
    EXPECT_EQ(Error_GetLast(), 206);
}

TEST_F(Nodes, MatchPatternsAsTheHostDoes) {
    std::mt19937 random(4);
    auto text = [&](const char *letters, std::size_t longest) {
        std::string made(random() % (longest + 1), 0);
        for (char &c : made)
            c = letters[random() % std::char_traits<char>::length(letters)];
        return made;
    };
    std::set<std::string> names;
    while (names.size() < 150)
        if (std::string name = "." + text("aAb\xE4", 9); name.size() > 1) names.insert(name.substr(1));
    for (const std::string &name : names)
        put(name, "");
    for (int turn = 0; turn < 2000; ++turn) {
        const std::string pattern = text("aAb\xE4**??", 8);
        std::multiset<std::string> expected;
        for (const std::string &name : names)
            if (!pattern.empty() && ::fnmatch(pattern.c_str(), name.c_str(), FNM_NOESCAPE) == 0)
                expected.insert(name);
        ASSERT_EQ(listed(folder, pattern.c_str()), expected) << pattern;
    }
    put(std::string(250, 'a'), "");
    std::string slow;
    for (int i = 0; i < 120; ++i)
        slow += "*a";
    EXPECT_EQ(listed(folder, slow.c_str()).size(), 1U);
    EXPECT_TRUE(listed(folder, (slow + "b").c_str()).empty());
}

TEST_F(Nodes, ForAWhileHaveNewNames) {
    std::set<std::string> paths;
    std::mutex lock;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int k = 0; k < 100; ++k) {
                const std::string path = fsMkTmpName(folder.c_str(), "prefix").Str();
                const std::lock_guard hold(lock);
                EXPECT_TRUE(paths.insert(path).second) << path;
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    const std::size_t start = folder.size() + 1;
    for (const std::string &path : paths) {
        ASSERT_EQ(path.substr(0, start), native(folder) + "\\");
        EXPECT_TRUE(std::regex_match(path.substr(start), std::regex("pre[0-9A-F]{4,8}\\.TMP"))) << path;
        struct stat told {};
        ASSERT_EQ(::stat(at(path.substr(start)).c_str(), &told), 0);
        EXPECT_TRUE(told.st_size == 0 && told.st_mode == (S_IFREG | 0600U));
    }
    EXPECT_EQ(std::string(fsMkTmpName((folder + "/").c_str(), xstrNullStr).Str()).size(), start + 8);
    auto make = [this](const std::string &where, const char *prefix) {
        return failure([&] { fsMkTmpName(where.c_str(), prefix); }, folder);
    };
    EXPECT_EQ(make(at("none"), "a"), "XDoesNotExist fsMkTmpName none");
    EXPECT_EQ(make(folder, "../"), "XInvalidName fsMkTmpName " + native(folder));
    EXPECT_EQ(make("", "a"), "XInvalidPath fsMkTmpName ");
    const std::string name_of_deep(249 - start, 'd'), deep = at(name_of_deep);
    fs::create_directory(deep);
    EXPECT_EQ(make(deep, "ab"), "XInvalidPath fsMkTmpName " + name_of_deep);
    EXPECT_EQ(std::string(fsMkTmpName(deep.c_str(), "a").Str()).size(), 259U);
}

TEST_F(Nodes, TellTheRoomAroundThem) {
    auto room = [](const char *host_path) {
        struct statvfs told {};
        ::statvfs(host_path, &told);
        return static_cast<double>(told.f_bavail) * static_cast<double>(told.f_frsize);
    };
    const double slack = 256e6;  // others write, too
    EXPECT_NEAR(fsGetAvailableDiskSpace(folder.c_str()), room("/tmp"), slack);
    EXPECT_NEAR(fsGetAvailableDiskSpace(("C:" + at("none\\deep")).c_str()), room("/tmp"), slack);
    EXPECT_NEAR(fsGetAvailableDiskSpace("C:\\"), room("/"), slack);
    EXPECT_EQ(failure([] { fsGetAvailableDiskSpace("Q:\\x"); }),
              "XDoesNotExist fsGetAvailableDiskSpace Q:\\x");
    ::setenv("KELSTDMT_DRIVES", folder.c_str(), 1);
    fs::create_symlink("/dev", at("q"));
    EXPECT_NEAR(fsGetAvailableDiskSpace("Q:\\x"), room("/dev"), slack);
    ::unsetenv("KELSTDMT_DRIVES");
}

}  // namespace
