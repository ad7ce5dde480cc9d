// Paths against a model that knows their pieces because it made them, the process's folders on real ones,
// and the way of a failure from errno to the exception.
#include <cerrno>
#include <random>
#include <vector>

#include <kelstdmt/filelib.h>
#include <kelstdmt/vumrt.h>

#include "filelibsrc/failure.h"
#include "scratch_folder.h"

namespace {

namespace fs = std::filesystem;

// "(null)" keeps the null string apart from the empty one; a refusal shows as what was thrown.
template <class Function, class... Paths>
std::string shown(Function function, Paths... paths) {
    xstring text;
    const std::string failed = failure([&] { text = function(paths...); });
    return !failed.empty() ? failed : text.IsNull() ? "(null)" : text.Str();
}

const std::string invalid = "XInvalidPath ";

TEST(Paths, AreJoinedCutAndNamedByHost) {
    const char *path = "C:/a/b";
    const std::string most(259, '/'), more(260, 'a'), half(130, 'a'), joined = half + '\\' + half;
    const std::pair<std::string, std::string> cases[] = {
        {shown(fsCatPaths, "C:/a", "b/c"), R"(C:\a\b\c)"},
        {shown(fsCatPaths, "a", "/b"), invalid + "fsCatPaths /b"},
        {shown(fsCatPaths, half.c_str(), half.c_str()), invalid + "fsCatPaths " + joined},
        {shown(fsPathToNative, most.c_str()), std::string(259, '\\')},
        {shown(fsPathToNative, more.c_str()), invalid + "fsPathToNative " + more},
        {shown(fsGetTailPath, "h::a\\b"), invalid + "fsGetTailPath h::a\\b"},
        {shown(fsIntersectPaths, "a", "a::b"), invalid + "fsIntersectPaths a::b"},
        {shown(fsMkRemPath, "host", "C:/d"), R"(host::C:\d)"},
        {shown(fsMkRemPath, "h:", "d"), invalid + "fsMkRemPath h:"},
        {shown(fsGetAddress, "::d") + shown(fsGetAddress, "h::d"), "h"},
        {shown(fsGetLocalPath, "h::a/b") + shown(fsGetLocalPath, "a/b"), R"(a\ba/b)"},
        {shown(fsSeparatePathHead, path, path + 2) + shown(fsSeparatePathHead, path, path + 4), R"(C:\C:\a)"},
        {shown(fsSeparatePathTail, path, path + 2) + shown(fsSeparatePathTail, path, path + 6),
         R"(a\b(null))"}};
    for (const auto &[seen, expected] : cases)
        EXPECT_EQ(seen, expected);
    std::string absolute;
    for (const char *each : {"/", "C:/", "z:\\a", "\\a", "C:", "C:a", "1:/", "", "a/"})
        absolute += fsIsPathAbsolute(each) ? each + std::string(" ") : "";
    EXPECT_EQ(absolute, "/ C:/ z:\\a ");
    for (const char *none : {static_cast<const char *>(nullptr), kel::uninit_text()}) {
        for (auto cut : {fsGetHeadPath, fsGetTailEntry, fsPathToNative, fsGetAddress, fsGetLocalPath})
            EXPECT_EQ(shown(cut, none), "(null)");
        EXPECT_EQ(shown(fsCatPaths, none, "a"), invalid + "fsCatPaths (null)");
    }
}

// A path and what it was made of.
struct Made {
    explicit Made(std::mt19937 &random) : ends(random() % 4 == 0) {
        static const char *const roots[] = {"", "\\", "C:\\", "C:"}, *const pieces[] = {"a", "b", "bc", "x y",
                                                                                        "D:"};
        root = roots[random() % 4];
        for (unsigned i = 0, n = 1 + random() % 4; i < n; ++i)
            names.push_back(pieces[random() % (i == 0 && root.empty() ? 4 : 5)]);
        path = root + joined(0, names.size()) + (ends ? "\\" : "");
        for (char c : path)
            spelled += c == '\\' && random() % 2 ? '/' : c;
    }
    bool has_root() const { return root.ends_with('\\'); }
    std::string joined(std::size_t from, std::size_t to) const {
        std::string text;
        for (std::size_t i = from; i < to; ++i)
            text += (i > from ? "\\" : "") + names[i];
        return text;
    }

    bool ends;  // in a separator
    std::string root, path, spelled;
    std::vector<std::string> names;
};

TEST(Paths, AgreeWithTheirPieces) {
    std::mt19937 random(4);
    for (int round = 0; round < 5000; ++round) {
        const Made made(random), other(random);
        const char *path = made.spelled.c_str();
        SCOPED_TRACE(made.spelled + " & " + other.path);
        const std::size_t n = made.names.size();
        const bool is_single = n == 1 && !made.ends && !made.has_root();
        ASSERT_EQ(shown(fsGetHeadPath, path),
                  is_single ? "(null)" : made.root + made.joined(0, made.ends ? n : n - 1));
        ASSERT_EQ(shown(fsGetHeadEntry, path), made.has_root() ? made.root : made.root + made.names[0]);
        std::string tail = made.joined(made.has_root() ? 0 : 1, n);
        if (made.ends && !tail.empty()) tail += '\\';
        ASSERT_EQ(shown(fsGetTailPath, path), tail.empty() ? "(null)" : tail);
        ASSERT_EQ(shown(fsGetTailEntry, path), made.ends   ? "(null)"
                                               : is_single ? made.path
                                                           : made.names.back());
        std::size_t shared = 0;
        while (shared < std::min(n, other.names.size()) && made.names[shared] == other.names[shared])
            ++shared;
        const bool meets = made.root == other.root && (shared > 0 || made.has_root());
        ASSERT_EQ(shown(fsIntersectPaths, path, other.spelled.c_str()),
                  meets ? made.root + made.joined(0, shared) : "(null)");
    }
}

using Folders = WorkFolder;

TEST_F(Folders, CurrentOneIsChangedAndTold) {
    const std::string caller = btkCallerPath(folder.c_str());
    fs::create_directories("sub/back\\slash");
    std::ofstream("file") << "x";
    fsChangeDir("sub/");
    EXPECT_EQ(shown(fsGetCurDir), caller + "\\sub");
    fsChangeDir(caller.c_str());
    EXPECT_EQ(fs::current_path(), folder);
    for (auto &[path, number] : {std::pair("file", 267), {"file\\x", 3}, {"none\\", 2}, {"h::sub", 3}}) {
        EXPECT_EQ(failure([to = path] { fsChangeDir(to); }),
                  std::string("XDoesNotExist fsChangeDir ") + path);
        EXPECT_EQ(Error_GetLast(), number) << path;
    }
    // Folders that callers cannot be told of: a name with a backslash, and one that is gone.
    fs::current_path("sub/back\\slash");
    EXPECT_EQ(shown(fsGetCurDir), "XInvalidName fsGetCurDir (null)");
    fs::current_path(folder);
    fs::create_directory("gone");
    fs::current_path("gone");
    fs::remove(fs::current_path());
    EXPECT_EQ(shown(fsGetCurDir), "XDoesNotExist fsGetCurDir (null)");
}

TEST_F(Folders, HomeIsTheCallersOrTheHosts) {
    const auto home = [](const char *drive, const char *path) {
        Putenv("HOMEDRIVE", drive);
        Putenv("HOMEPATH", path);
        return shown(fsGetHomeDir);
    };
    Putenv("HOME", "/home/x");
    EXPECT_EQ(home("C:", "\\Users\\x") + home(nullptr, nullptr), R"(C:\Users\xC:\home\x)");
    const std::pair<const char *, const char *> refused[] = {
        {"C:", nullptr}, {nullptr, "\\x"}, {"C:\\\\", "\\x"}};
    for (const auto &[drive, path] : refused)
        EXPECT_EQ(home(drive, path), "XOther fsGetHomeDir (null)");
}

TEST(Failures, AreDescribed) {
    EXPECT_STREQ(fsErrorDescription(fsErrDiskFull), "Disk Full");
    EXPECT_STREQ(fsErrorDescription(-1), "No description");
    EXPECT_STREQ(fsErrorDescription(fsErrOther + 1), "No description");
    std::ostringstream out;
    try {
        fsThrow(fsErrDiskFull, "f", "a\\b");
    } catch (xthrowable *thrown) {
        const kel::caught held(thrown);
        fsXException::cast(thrown)->Print(out);
    }
    EXPECT_EQ(out.str(), "Exception: \"Disk Full\"\n\tin function \"f\"\n\t( Path: \"a\\b\" )\n");
}

TEST(Failures, OfTheHostGetTheirClass) {
    for (auto &[error, code] : {std::pair(EIO, 1),
                                {EDQUOT, 2},
                                {ENOSPC, 3},
                                {EBUSY, 5},
                                {ENOTDIR, 6},
                                {ENOTEMPTY, 7},
                                {EROFS, 9},
                                {EINTR, 10},
                                {EMFILE, 11}}) {
        Error_SetLastFromSystem(error);
        EXPECT_EQ(fsErrorFromLast(Error_GetLast()), code) << error;
    }
}

}  // namespace
