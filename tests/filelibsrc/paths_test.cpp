// Paths against a model that knows their pieces because it made them, the process's folders on real ones,
// and the way of a failure from errno to the exception.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <vector>

#include <kelstdmt/filelib.h>
#include <kelstdmt/vumrt.h>

#include "filelibsrc/failure.h"

namespace {

namespace fs = std::filesystem;

const char *const no_text[] = {nullptr, xstrNullStr, reinterpret_cast<const char *>(2)};

// "(null)" keeps the null string apart from the empty one.
std::string shown(const xstring &text) {
    return text.IsNull() ? "(null)" : text.Str();
}

TEST(Paths, AreJoinedAndTakenApart) {
    EXPECT_EQ(shown(fsCatPaths("C:/a", "b/c")), R"(C:\a\b\c)");
    EXPECT_EQ(shown(fsCatPaths("", "\\b/")), R"(\\b\)");
    EXPECT_EQ(failure([] { fsCatPaths("a", "C:/b"); }), "filelib::XInvalidPath fsCatPaths C:/b");
    EXPECT_EQ(failure([] { fsCatPaths("a", "/b"); }), "filelib::XInvalidPath fsCatPaths /b");
    EXPECT_EQ(failure([] { fsCatPaths("a", "h::b"); }), "filelib::XInvalidPath fsCatPaths h::b");
    EXPECT_EQ(shown(fsMkRemPath("host", "C:/d")), R"(host::C:\d)");
    EXPECT_EQ(shown(fsMkRemPath(xstrNullStr, "C:/d")), "C:/d");
    EXPECT_EQ(failure([] { fsMkRemPath("h", "i::d"); }), "filelib::XInvalidPath fsMkRemPath i::d");
    for (const char *unclear : {"h:", "fe80::1", "::"})
        EXPECT_EQ(failure([&] { fsMkRemPath(unclear, "d"); }),
                  std::string("filelib::XInvalidPath fsMkRemPath ") + unclear);
    EXPECT_EQ(shown(fsGetAddress(R"(C:\d)")) + shown(fsGetAddress("::d")) + shown(fsGetAddress("h::")),
              "(null)h");
    EXPECT_EQ(shown(fsGetLocalPath("h::a/b")) + shown(fsGetLocalPath("a/b")) + shown(fsGetLocalPath("h::")),
              R"(a\ba/b)");
    const char *absolute[] = {"/", "/a", "C:/", "z:\\a"}, *relative[] = {"\\a", "C:", "C:a", "1:/", "", "a/"};
    for (const char *path : absolute)
        EXPECT_TRUE(fsIsPathAbsolute(path)) << path;
    for (const char *path : relative)
        EXPECT_FALSE(fsIsPathAbsolute(path)) << path;
    const char *path = "C:/a/b";
    EXPECT_EQ(shown(fsSeparatePathHead(path, path + 2)) + shown(fsSeparatePathHead(path, path + 4)),
              R"(C:\C:\a)");
    EXPECT_EQ(shown(fsSeparatePathTail(path, path + 2)) + shown(fsSeparatePathTail(path, path + 5)),
              R"(a\b(null))");
    EXPECT_EQ(shown(fsSeparatePathTail(path, path + 6)) + shown(fsSeparatePathHead(path, nullptr)),
              "(null)(null)");
}

constexpr xstring (*cuts[])(const char *) = {fsGetHeadPath, fsGetHeadEntry, fsGetTailPath, fsGetTailEntry};

TEST(Paths, WithoutATextOrTooLongAreTold) {
    for (const char *path : no_text) {
        for (auto cut : cuts)
            EXPECT_TRUE(cut(path).IsNull());
        EXPECT_TRUE(fsPathToNative(path).IsNull() && fsGetAddress(path).IsNull() &&
                    fsGetLocalPath(path).IsNull() && fsMkRemPath(path, path).IsNull());
        EXPECT_FALSE(fsIsPathAbsolute(path));
        EXPECT_EQ(failure([&] { fsCatPaths(path, "a"); }), "filelib::XInvalidPath fsCatPaths (null)");
        EXPECT_EQ(failure([&] { fsIntersectPaths("a", path); }),
                  "filelib::XInvalidPath fsIntersectPaths (null)");
        EXPECT_EQ(failure([&] { fsChangeDir(path); }), "filelib::XInvalidPath fsChangeDir (null)");
        // HOLD         EXPECT_EQ(failure([&] { fsExpandPattern(path); }), "filelib::XInvalidPath
        // fsExpandPattern (null)");
    }
    for (auto cut : cuts)
        EXPECT_EQ(failure([&] { cut("h::a\\b"); }).substr(0, 21), "filelib::XInvalidPath");
    for (const char *path : {"", "c:", "a::b"})
        EXPECT_EQ(failure([&] { fsIntersectPaths("a", path); }),
                  std::string("filelib::XInvalidPath fsIntersectPaths ") + path);
    const std::string most(259, '/'), more(260, 'a');
    EXPECT_EQ(shown(fsPathToNative(most.c_str())), std::string(259, '\\'));
    EXPECT_EQ(failure([&] { fsPathToNative(more.c_str()); }), "filelib::XInvalidPath fsPathToNative " + more);
    const std::string half = more.substr(0, 129), other = half + 'b';
    EXPECT_EQ(shown(fsCatPaths(half.c_str(), half.c_str())), half + '\\' + half);
    EXPECT_EQ(failure([&] { fsCatPaths(half.c_str(), other.c_str()); }),
              "filelib::XInvalidPath fsCatPaths " + half + '\\' + other);
}

// A path and what it was made of.
struct Made {
    std::string root, path;
    std::vector<std::string> names;

    Made(std::mt19937 &random, bool ends_in_separator) {
        static const char *const roots[] = {"", "\\", "C:\\", "C:"};
        static const char *const pieces[] = {"a", "b", "bc", ".", "x y", "D:"};
        path = root = roots[random() % 4];
        for (unsigned i = 0, n = 1 + random() % 4; i < n; ++i) {
            names.push_back(pieces[random() % (i == 0 && root.empty() ? 5 : 6)]);
            if (i > 0) path += '\\';
            path += names.back();
        }
        if (ends_in_separator) path += '\\';
    }
    bool has_root() const { return root.ends_with('\\'); }
    std::string joined(std::size_t from, std::size_t to) const {
        std::string text;
        for (std::size_t i = from; i < to; ++i)
            text += (i > from ? "\\" : "") + names[i];
        return text;
    }
    std::string with_any_slashes(std::mt19937 &random) const {
        std::string text = path;
        for (char &c : text)
            if (c == '\\' && random() % 2) c = '/';
        return text;
    }
};

TEST(Paths, AgreeWithTheirPieces) {
    std::mt19937 random(4);
    const std::string null = "(null)";
    for (int round = 0; round < 5000; ++round) {
        const bool ends = random() % 4 == 0;
        const Made made(random, ends);
        const std::string text = made.with_any_slashes(random);
        SCOPED_TRACE(text);
        const std::size_t n = made.names.size();
        const bool plain = n == 1 && !ends && !made.has_root();
        const std::string head_path = plain  ? null
                                      : ends ? made.root + made.joined(0, n)
                                             : made.root + made.joined(0, n - 1);
        ASSERT_EQ(shown(fsGetHeadPath(text.c_str())), head_path);
        ASSERT_EQ(shown(fsGetHeadEntry(text.c_str())),
                  made.has_root() ? made.root : made.root + made.names[0]);
        std::string tail =
            made.joined(made.has_root() ? 0 : 1, n) + (ends && (n > 1 || made.has_root()) ? "\\" : "");
        ASSERT_EQ(shown(fsGetTailPath(text.c_str())), tail.empty() ? null : tail);
        ASSERT_EQ(shown(fsGetTailEntry(text.c_str())), ends ? null : plain ? made.path : made.names.back());

        const Made other(random, random() % 4 == 0);
        std::size_t shared = 0;
        if (made.root == other.root)
            while (shared < std::min(n, other.names.size()) && made.names[shared] == other.names[shared])
                ++shared;
        std::string common = made.root == other.root && (shared > 0 || made.has_root())
                                 ? made.root + made.joined(0, shared)
                                 : null;
        ASSERT_EQ(shown(fsIntersectPaths(text.c_str(), other.with_any_slashes(random).c_str())), common)
            << other.path;
    }
}

// The process's folders ---------------------------------------------------------------------------

struct Folders : testing::Test {
    Folders() {
        char name[] = "/tmp/kelstdmt_paths_XXXXXX";
        folder = ::mkdtemp(name);
        fs::current_path(folder);
    }
    ~Folders() override {
        fs::current_path("/");
        fs::remove_all(folder);
    }
    std::string folder;
};

TEST_F(Folders, CurrentOneIsChangedAndTold) {
    const std::string caller = btkCallerPath(folder.c_str());
    EXPECT_EQ(shown(fsGetCurDir()), caller);
    fs::create_directory("sub");
    std::ofstream("file") << "x";
    fsChangeDir("sub/");
    EXPECT_EQ(shown(fsGetCurDir()), caller + "\\sub");
    fsChangeDir(caller.c_str());
    EXPECT_EQ(fs::current_path(), folder);
    struct {
        const char *path, *kind;
        int number;
    } refused[] = {{"file", "DoesNotExist", 267}, {"file\\x", "DoesNotExist", 3},
                   {"none", "DoesNotExist", 2},   {"none\\x", "DoesNotExist", 3},
                   {"h::sub", "DoesNotExist", 3}, {"", "InvalidPath", 0},
                   {"C:", "InvalidPath", 0}};
    for (auto &[path, kind, number] : refused) {
        Error_SetLast(0);
        EXPECT_EQ(failure([&] { fsChangeDir(path); }),
                  std::string("filelib::X").append(kind).append(" fsChangeDir ").append(path));
        EXPECT_EQ(Error_GetLast(), number) << path;
    }
    // Folders that callers cannot be told of: a name with a backslash, a path too long, and one that is gone.
    fs::create_directory("back\\slash");
    fs::current_path("back\\slash");
    EXPECT_EQ(failure(fsGetCurDir), "filelib::XInvalidName fsGetCurDir (null)");
    fs::current_path(folder);
    const std::string deep =
        std::string(100, 'd') + '/' + std::string(100, 'e') + '/' + std::string(100, 'f');
    fs::create_directories(deep);
    fs::current_path(deep);
    EXPECT_EQ(failure(fsGetCurDir), "filelib::XInvalidPath fsGetCurDir (null)");
    fs::remove(fs::current_path());
    EXPECT_EQ(failure(fsGetCurDir), "filelib::XDoesNotExist fsGetCurDir (null)");
}

TEST_F(Folders, HomeIsTheCallersOrTheHosts) {
    struct {
        const char *drive, *path, *host;
        std::string home;
    } cases[] = {{"C:", "\\Users\\x", "/h", "C:\\Users\\x"},
                 {"D:\\", "x/y", "/h", "D:\\x\\y"},
                 {nullptr, nullptr, "/home/x", "C:\\home\\x"},
                 {nullptr, nullptr, nullptr, ""},
                 {nullptr, nullptr, "not/absolute", ""},
                 {"C:", nullptr, "/h", "filelib::XOther fsGetHomeDir (null)"},
                 {nullptr, "\\x", "/h", "filelib::XOther fsGetHomeDir (null)"},
                 {"", "\\x", "/h", "filelib::XOther fsGetHomeDir (null)"},
                 {"C:\\\\", "\\x", "/h", "filelib::XOther fsGetHomeDir (null)"}};
    auto set = [](const char *name, const char *value) {
        value ? ::setenv(name, value, 1) : ::unsetenv(name);
    };
    for (auto &[drive, path, host, home] : cases) {
        set("HOMEDRIVE", drive);
        set("HOMEPATH", path);
        set("HOME", host);
        xstring told;
        std::string failed = failure([&] { told = fsGetHomeDir(); });
        if (home.empty())
            EXPECT_TRUE(fsIsPathAbsolute(told) && fs::exists(btkHostPath(told))) << told << failed;
        else
            EXPECT_EQ(failed.empty() ? shown(told) : failed, home);
    }
    for (std::size_t length : {255u, 256u}) {
        set("HOMEDRIVE", "C:");
        set("HOMEPATH", std::string(length, 'x').c_str());
        EXPECT_EQ(failure(fsGetHomeDir).empty(), length == 255);
    }
    set("HOMEDRIVE", nullptr);
    set("HOMEPATH", nullptr);
}

// Failures ------------------------------------------------------------------------------------------

TEST(Failures, OfTheHostGetTheirClass) {
    const std::pair<int, fsErrorCode> cases[] = {{EIO, fsErrIOError},
                                                 {ECANCELED, fsErrIOError},
                                                 {EDQUOT, fsErrQuotaExhausted},
                                                 {ENOSPC, fsErrDiskFull},
                                                 {ENAMETOOLONG, fsErrInvalidPath},
                                                 {EBUSY, fsErrInvalidPath},
                                                 {ENOENT, fsErrDoesNotExist},
                                                 {ENOTDIR, fsErrDoesNotExist},
                                                 {EEXIST, fsErrFileExists},
                                                 {ENOTEMPTY, fsErrFileExists},
                                                 {EACCES, fsErrNoPermission},
                                                 {EPERM, fsErrNoPermission},
                                                 {EROFS, fsErrNoPermission},
                                                 {EINTR, fsErrSignal},
                                                 {EMFILE, fsErrOther}};
    for (auto &[error, code] : cases) {
        Error_SetLastFromSystem(error);
        EXPECT_EQ(fsErrorFromLast(Error_GetLast()), code) << error;
        EXPECT_STRNE(Error_GetText(Error_GetLast()), Error_GetText(-1)) << error;
    }
    EXPECT_EQ(fsErrorFromLast(static_cast<int>(0x80030070)), fsErrDiskFull);
    EXPECT_STREQ(fsErrorDescription(12), "No description");
    EXPECT_STREQ(fsErrorDescription(-1), "No description");
    Error_SetLastFromSystem(EEXIST, "/tmp");
    EXPECT_EQ(Error_GetLast(), 183);
}

TEST(Failures, PrintAndAreOfTheirTypes) {
    const char *const names[] = {"XIOError",      "XQuotaExhausted", "XDiskFull",   "XInvalidName",
                                 "XInvalidPath",  "XDoesNotExist",   "XFileExists", "XLinksNotSupported",
                                 "XNoPermission", "XSignal",         "XOther"};
    for (int code = 1; code <= fsErrOther; ++code) {
        try {
            fsThrow(static_cast<fsErrorCode>(code), "fsCopy", code == 1 ? xstrNullStr : "C:\\p");
        } catch (xthrowable *thrown) {
            kel::caught error(thrown);
            EXPECT_EQ(shown(thrown->getrtti()->getname()), std::string("filelib::") + names[code - 1]);
            EXPECT_TRUE(thrown->isrefcountable() &&
                        thrown->getrtti()->iskindof(fsXException::getclassrtti()));
            std::ostringstream out;
            fsXException::cast(thrown)->Print(out);
            EXPECT_EQ(out.str(), std::string("Exception: \"") + fsErrorDescription(code) +
                                     "\"\n\tin function \"fsCopy\"\n" +
                                     (code == 1 ? "" : "\t( Path: \"C:\\p\" )\n"));
            EXPECT_EQ(kel::printed(*thrown, true).str().find("Path: nil") != std::string::npos, code == 1);
        }
    }
    EXPECT_EQ(failure([] { fsThrow(static_cast<fsErrorCode>(12), "f", nullptr); }),
              "filelib::XOther f (null)");
}

}  // namespace
