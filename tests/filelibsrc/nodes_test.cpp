// What nodes are, beside stat; listings beside what was made; temporary names; room on the disk.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <regex>
#include <set>

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
        EXPECT_TRUE(fshIsDirectory(path.c_str()) == (type == fsDirectory) && fshExists(path.c_str()));
        EXPECT_TRUE(fshIsFile(path.c_str()) == (type == fsFile) && !fshIsSoftLink(path.c_str()));
        const xany held = fsGetNodeInfo(path.c_str())->lookupfield("ModTime");  // without its node
        EXPECT_EQ(tmTime::cast(held)->getAbsTime(), time);
    }
    for (const auto &[name, error] : {std::pair("none", "DoesNotExist"),
                                      {"file/x", "DoesNotExist"},
                                      {"to_nowhere", "DoesNotExist"},
                                      {"circle", "Other"}}) {
        const std::string whole = at(name);
        const char *path = whole.c_str();
        EXPECT_TRUE(fshGetModTime(path) == nullptr && kel::is_nil(fshGetSize(path)) &&
                    fshGetNodeType(path) == 3);
        EXPECT_FALSE(fshExists(path) || fshIsFile(path) || fshIsDirectory(path)) << path;
        EXPECT_EQ(failure([&] { fsGetNodeInfo(path); }),
                  std::string("X") + error + " fsGetNodeInfo " + native(whole));
    }
    for (const char *none : {static_cast<const char *>(nullptr), "", kel::uninit_text()})
        EXPECT_TRUE(!fshExists(none) && failure([&] { fsGetNodeInfo(none); }).starts_with("XInvalidPath "));
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
    // One descriptor; entries that go in the meantime disturb nothing.
    const auto before = open_descriptors();
    fsiDir dir;
    ASSERT_TRUE(dir.Open(folder.c_str()));
    xstring name;
    std::multiset<std::string> read;
    while (dir.Read(name) == fsIODone) {
        read.insert(name.Str());
        fs::remove(at(name.Str()));
    }
    EXPECT_EQ(Error_GetLast(), 18);
    EXPECT_EQ(read, made);
    fs::remove(folder);
    EXPECT_TRUE(dir.Close() && !dir.Close() && dir.Read(name) == fsIOFailed && Error_GetLast() == 6);
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Nodes, ThatCannotBeListedAreErrors) {
    for (const char *name : {"a", "b\\c", "d"})
        put(name, "");
    std::string good, bad;
    xstring name;
    fsiDir dir;
    ASSERT_TRUE(dir.Open(folder.c_str()));
    for (fsIOStatus status; (status = dir.Read(name)) != fsIOEnd;) {
        (status == fsIODone ? good : bad) += name.Str();
        EXPECT_TRUE(status == fsIODone || Error_GetLast() == 123);
    }
    EXPECT_TRUE((good == "ad" || good == "da") && bad == "b\\c") << good << " " << bad;
    EXPECT_EQ(listed(folder, "?").size(), 2U);
    auto list = [this](const std::string &path) {
        return failure([&] { fsListDirectory(path.c_str(), "*", strShell); }, folder);
    };
    EXPECT_EQ(list(folder), R"(XInvalidName fsListDirectory b\c)");
    EXPECT_EQ(list(at("a")), "XDoesNotExist fsListDirectory a");
    // A star behind it would be the 260th byte.
    const std::string deep(258 - folder.size() - 1, 'd');
    EXPECT_EQ(list(at(deep)), "XInvalidPath fsListDirectory " + deep);
}

TEST_F(Nodes, ForAWhileHaveNewNames) {
    const std::regex shape("pre[0-9A-F]{4,8}\\.TMP");
    for (int i = 0; i < 400; ++i) {
        const std::string path = fsMkTmpName(folder.c_str(), "prefix").Str(),
                          name = path.substr(folder.size() + 1);
        EXPECT_TRUE(path == native(folder) + "\\" + name && std::regex_match(name, shape)) << path;
        struct stat told {};
        ASSERT_EQ(::stat(at(name).c_str(), &told), 0);
        EXPECT_TRUE(told.st_size == 0 && told.st_mode == (S_IFREG | 0600U));
    }
    EXPECT_EQ(files(), 400);
    const std::string none = at("none");
    EXPECT_EQ(failure([&] { fsMkTmpName(none.c_str(), "a"); }, folder), "XDoesNotExist fsMkTmpName none");
    EXPECT_EQ(failure([&] { fsMkTmpName(none.c_str(), "../"); }, folder), "XInvalidName fsMkTmpName none");
}

TEST_F(Nodes, TellTheRoomAroundThem) {
    struct statvfs told {};
    ::statvfs("/tmp", &told);
    const double room = static_cast<double>(told.f_bavail) * static_cast<double>(told.f_frsize);
    const std::string deep = "C:" + at("none\\deep");
    EXPECT_NEAR(fsGetAvailableDiskSpace(deep.c_str()), room, 256e6);  // others write, too
    EXPECT_EQ(failure([] { fsGetAvailableDiskSpace("Q:\\x"); }),
              "XDoesNotExist fsGetAvailableDiskSpace Q:\\x");
}

}  // namespace
