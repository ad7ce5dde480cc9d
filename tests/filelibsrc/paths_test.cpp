// Paths against a model that knows their pieces because it made them, the process's folders on real ones,
// and the way of a failure from errno to the exception.
#include <pwd.h>

#include <cerrno>
#include <random>
#include <sstream>
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

TEST(Paths, AreJoinedAndNamedByHost) {
    EXPECT_EQ(shown(fsCatPaths, "C:/a", "b/c"), R"(C:\a\b\c)");
    EXPECT_EQ(shown(fsCatPaths, "", "\\b/"), R"(\\b\)");
    for (const char *tail : {"C:/b", "/b", "h::b"})
        EXPECT_EQ(shown(fsCatPaths, "a", tail), invalid + "fsCatPaths " + tail);
    EXPECT_EQ(shown(fsMkRemPath, "host", "C:/d"), R"(host::C:\d)");
    EXPECT_EQ(shown(fsMkRemPath, xstrNullStr, "C:/d"), "C:/d");
    EXPECT_EQ(shown(fsMkRemPath, "h", "i::d"), invalid + "fsMkRemPath i::d");
    for (const char *unclear : {"h:", "fe80::1", "::"})
        EXPECT_EQ(shown(fsMkRemPath, unclear, "d"), invalid + "fsMkRemPath " + unclear);
    EXPECT_EQ(shown(fsGetAddress, R"(C:\d)") + shown(fsGetAddress, "::d") + shown(fsGetAddress, "h::d"),
              "(null)h");
    EXPECT_EQ(shown(fsGetLocalPath, "h::a/b") + shown(fsGetLocalPath, "a/b") + shown(fsGetLocalPath, "h::"),
              R"(a\ba/b)");
    std::string absolute;
    for (const char *path : {"/", "/a", "C:/", "z:\\a", "\\a", "C:", "C:a", "1:/", "", "a/"})
        absolute += fsIsPathAbsolute(path) ? path + std::string(" ") : "";
    EXPECT_EQ(absolute, "/ /a C:/ z:\\a ");
    const char *path = "C:/a/b";
    EXPECT_EQ(shown(fsSeparatePathHead, path, path + 2) + shown(fsSeparatePathHead, path, path + 4),
              R"(C:\C:\a)");
    EXPECT_EQ(shown(fsSeparatePathTail, path, path + 2) + shown(fsSeparatePathTail, path, path + 5),
              R"(a\b(null))");
    EXPECT_EQ(shown(fsSeparatePathTail, path, path + 6) + shown(fsSeparatePathHead, path, nullptr),
              "(null)(null)");
}

TEST(Paths, WithoutATextOrTooLongAreTold) {
    for (const char *path :
         {static_cast<const char *>(nullptr), xstrNullStr, reinterpret_cast<const char *>(2)}) {
        for (auto cut : {fsGetHeadPath, fsGetHeadEntry, fsGetTailPath, fsGetTailEntry, fsPathToNative,
                         fsGetAddress, fsGetLocalPath})
            EXPECT_EQ(shown(cut, path), "(null)");
        EXPECT_FALSE(fsIsPathAbsolute(path));
        EXPECT_EQ(shown(fsMkRemPath, path, path), "(null)");
        EXPECT_EQ(shown(fsCatPaths, path, "a"), invalid + "fsCatPaths (null)");
        EXPECT_EQ(shown(fsIntersectPaths, "a", path), invalid + "fsIntersectPaths (null)");
        EXPECT_EQ(failure([&] { fsChangeDir(path); }), invalid + "fsChangeDir (null)");
        EXPECT_EQ(failure([&] { fsExpandPattern(path); }), invalid + "fsExpandPattern (null)");
    }
    for (const char *path : {"", "c:", "a::b"})
        EXPECT_EQ(shown(fsIntersectPaths, "a", path), invalid + "fsIntersectPaths " + path);
    EXPECT_EQ(shown(fsGetTailPath, "h::a\\b"), invalid + "fsGetTailPath h::a\\b");
    const std::string most(259, '/'), more(260, 'a'), half(129, 'a'), whole = half + '\\' + half;
    EXPECT_EQ(shown(fsPathToNative, most.c_str()), std::string(259, '\\'));
    EXPECT_EQ(shown(fsPathToNative, more.c_str()), invalid + "fsPathToNative " + more);
    EXPECT_EQ(shown(fsCatPaths, half.c_str(), half.c_str()), whole);
    EXPECT_EQ(shown(fsCatPaths, half.c_str(), (half + 'b').c_str()), invalid + "fsCatPaths " + whole + 'b');
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
    const std::pair<const char *, int> refused[] = {{"file", 267},  {"file\\x", 3}, {"none\\", 2},
                                                    {"none\\x", 3}, {"h::sub", 3},  {"C:", 0}};
    for (auto &[path, number] : refused) {
        Error_SetLast(0);
        EXPECT_EQ(failure([&] { fsChangeDir(path); }),
                  (number ? "XDoesNotExist" : "XInvalidPath") + std::string(" fsChangeDir ") + path);
        EXPECT_EQ(Error_GetLast(), number) << path;
    }
    // Folders that callers cannot be told of: a name with a backslash, a path too long, and one that is gone.
    fs::current_path("sub/back\\slash");
    EXPECT_EQ(shown(fsGetCurDir), "XInvalidName fsGetCurDir (null)");
    fs::current_path(folder);
    const std::string deep = std::string(150, 'd') + '/' + std::string(150, 'e');
    fs::create_directories(deep);
    fs::current_path(deep);
    EXPECT_EQ(shown(fsGetCurDir), invalid + "fsGetCurDir (null)");
    fs::remove(fs::current_path());
    EXPECT_EQ(shown(fsGetCurDir), "XDoesNotExist fsGetCurDir (null)");
}

TEST_F(Folders, HomeIsTheCallersOrTheHosts) {
    const std::string most(255, 'x'), more = most + 'x', refused = "XOther fsGetHomeDir (null)";
    const char *const no = nullptr, *const given = "\\x";
    const passwd *user = ::getpwuid(::geteuid());
    const std::string known = user && *user->pw_dir ? btkCallerPath(user->pw_dir) : refused;
    const struct {
        const char *drive, *path, *host;
        std::string home;
    } cases[] = {{"C:", "\\Users\\x", "/h", "C:\\Users\\x"},
                 {"C:\\", most.c_str(), "/h", "C:\\" + most},
                 {no, no, "/home/x", "C:\\home\\x"},
                 {no, no, no, known},
                 {no, no, "not/absolute", known},
                 {"C:", no, "/h", refused},
                 {no, given, "/h", refused},
                 {"", given, "/h", refused},
                 {"C:\\\\", given, "/h", refused},
                 {"C:", more.c_str(), "/h", refused}};
    auto set = [](const char *name, const char *value) {
        value ? ::setenv(name, value, 1) : ::unsetenv(name);
    };
    for (auto &[drive, path, host, home] : cases) {
        set("HOMEDRIVE", drive);
        set("HOMEPATH", path);
        set("HOME", host);
        EXPECT_EQ(shown(fsGetHomeDir), home);
    }
}

TEST(Failures, OfTheHostGetTheirClassAndPrint) {
    const int errors[][2] = {{EIO, 1},          {ECANCELED, 1}, {EDQUOT, 2},  {ENOSPC, 3},
                             {ENAMETOOLONG, 5}, {EBUSY, 5},     {ENOENT, 6},  {ENOTDIR, 6},
                             {EEXIST, 7},       {ENOTEMPTY, 7}, {EACCES, 9},  {EPERM, 9},
                             {EROFS, 9},        {EINTR, 10},    {EMFILE, 11}, {12345, 11}};
    for (auto &[error, code] : errors) {
        Error_SetLastFromSystem(error);
        EXPECT_EQ(fsErrorFromLast(Error_GetLast()), code) << error;
        EXPECT_STRNE(Error_GetText(Error_GetLast()), Error_GetText(-1)) << error;
    }
    const char *const names[] = {"IOError",      "QuotaExhausted", "DiskFull",   "InvalidName",
                                 "InvalidPath",  "DoesNotExist",   "FileExists", "LinksNotSupported",
                                 "NoPermission", "Signal",         "Other"};
    for (int code = 1; code <= fsErrOther; ++code) {
        const char *path = code == 1 ? xstrNullStr : "C:\\p";
        const auto fail = [&] { fsThrow(static_cast<fsErrorCode>(code), "fsCopy", path); };
        EXPECT_EQ(failure(fail),
                  std::string("X") + names[code - 1] + " fsCopy " + (code == 1 ? "(null)" : path));
        std::ostringstream out;
        try {
            fail();
        } catch (xthrowable *thrown) {
            kel::caught error(thrown);
            EXPECT_TRUE(thrown->isrefcountable());
            fsXException::cast(thrown)->Print(out);
        }
        EXPECT_EQ(out.str(), std::string("Exception: \"") + fsErrorDescription(code) +
                                 "\"\n\tin function \"fsCopy\"\n" +
                                 (code == 1 ? "" : "\t( Path: \"C:\\p\" )\n"));
    }
    EXPECT_EQ(fsErrorFromLast(static_cast<int>(0x80030070)), fsErrDiskFull);
    EXPECT_STREQ(fsErrorDescription(12), fsErrorDescription(-1));
    EXPECT_EQ(failure([] { fsThrow(static_cast<fsErrorCode>(12), "f", nullptr); }), "XOther f (null)");
    Error_SetLastFromSystem(EEXIST, "/tmp");
    EXPECT_EQ(Error_GetLast(), 183) << "a folder";
}

}  // namespace
