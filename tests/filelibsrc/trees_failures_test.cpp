// Trees under attack and on bad days: folders that are swapped for links in the middle, killed copies, full
// disks, folders that must not be read, other file systems, and hosts that lack the newer calls.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sys/xattr.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <kelstdmt/filelib.h>
#include <kelstdmt/vumrt.h>

#include "filelibsrc/failure.h"
#include "filelibsrc/scene.h"

namespace {

namespace fs = std::filesystem;

const char *text(const std::string &path) {
    return path.c_str();
}

// In a process of its own, because the action changes what that may do. Answers the number of the status.
template <class Action>
int in_child(Action action) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(action());
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 256 + status;
}

// Swaps two entries again and again.
class swapper {
public:
    swapper(std::string one, std::string other)
        : m_thread([this, one = std::move(one), other = std::move(other)] {
              while (!m_ends)
                  if (::renameat2(AT_FDCWD, text(one), AT_FDCWD, text(other), RENAME_EXCHANGE) == 0) ++swaps;
          }) {}
    ~swapper() {
        m_ends = true;
        m_thread.join();
    }
    std::atomic<long> swaps{0};

private:
    std::atomic<bool> m_ends{false};
    std::thread m_thread;
};

// The call answers `error`; openat only when it asks for one of the flags.
void forbid(long call, int error, unsigned flags = ~0U) {
    const std::size_t argument = offsetof(seccomp_data, args) + 2 * sizeof(std::uint64_t);
    sock_filter rules[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<unsigned>(argument)),
        BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, flags, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(error)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    if (flags == ~0U) rules[3].jf = 0;
    const sock_fprog program{std::size(rules), rules};
    ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
}

void fill(const scene &in, const std::string &folder, int files) {
    for (int i = 0; i < files; ++i)
        in.file(folder + "/" + std::to_string(i), folder);
}

TEST(TreeFailures, FoldersSwappedForLinksAreNotEntered) {
    scene in;
    fill(in, "far/sub", 20);
    in.file("far/secret", "secret");
    const auto far = snapshot(in.at("far"));
    const std::string to = in.at("to"), work = in.at("work");
    long swaps = 0;
    int removed = 0, copied = 0;
    for (int round = 0; round < 60; ++round) {
        for (int i = 0; i < 10; ++i)
            fill(in, "work/" + std::to_string(i) + "/sub", 3);
        fill(in, "from/5/sub", 3);
        in.link("../far", "work/link");
        {
            // As source, as target and as victim. Each may fail, but none may touch or tell what is far.
            swapper attack(in.at("work/5"), in.at("work/link"));
            auto copy = [&](const std::string &from, const std::string &where, fsRecursiveCopyMode mode) {
                return failure([&] { fsCopy(text(from), text(where), mode, fsNewLink, fsSimple); }).empty();
            };
            copied += copy(work, to, fsReplace) + copy(in.at("from"), work, fsMerge);
            removed += failure([&] { fsRemove(text(work), fsRecursive); }).empty();
            swaps += attack.swaps;
        }
        for (const auto &[name, node] : snapshot(to))
            EXPECT_EQ(node.find("secret"), node.npos) << name;
        ASSERT_EQ(snapshot(in.at("far")), far);
        fs::remove_all(work);
    }
    EXPECT_GT(swaps, 60);
    EXPECT_GT(removed, 30);
    EXPECT_GT(copied, 0);
}

// Runs the work in a child and kills that before its call of the system with this number; false when it made
// fewer.
template <class Work>
bool killed_before(int call, Work work) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        ::raise(SIGSTOP);
        work();
        ::_exit(0);
    }
    int status = 0;
    for (int stop = 0; ::waitpid(child, &status, 0) == child && WIFSTOPPED(status); ++stop) {
        if (stop == 2 * call + 1) {
            ::kill(child, SIGKILL);
            ::waitpid(child, &status, 0);
            return true;
        }
        ::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);  // to the beginning of a call, then to its end
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
    return false;
}

TEST(TreeFailures, AKilledCopyLeavesAllOrNothing) {
    scene in;
    fill(in, "from/sub", 2);
    in.file("from/file", "new");
    const auto wanted = snapshot(in.at("from"));
    const auto copy = [&] { fsCopy(text(in.at("from")), text(in.at("to")), fsReplace, fsExpand, fsSimple); };
    for (const bool is_there : {false, true}) {
        int call = 0, found_old = 0, found_new = 0;
        for (bool is_killed = true; is_killed; ++call) {
            fs::remove_all(in.at("to"));
            if (is_there) in.file("to/file", "old");
            const auto before = snapshot(in.at("to"));
            is_killed = killed_before(call, copy);
            const auto found = snapshot(in.at("to"));
            ++(found == before ? found_old : found_new);
            ASSERT_TRUE(found == before || found == wanted) << "a torn tree, before call " << call;
            copy();
            ASSERT_EQ(snapshot(in.at("to")), wanted) << "before call " << call;
            std::set<std::string> names;
            for (const auto &entry : fs::directory_iterator(in.root))
                names.insert(entry.path().filename());
            ASSERT_EQ(names, (std::set<std::string>{"from", "to"})) << "before call " << call;
        }
        EXPECT_GT(found_old, 20);
        EXPECT_GT(found_new, 1);
    }
}

TEST(TreeFailures, CopiesToOnePlaceDoNotMix) {
    scene in;
    fill(in, "one", 100);
    fill(in, "two", 100);
    const auto one = snapshot(in.at("one")), two = snapshot(in.at("two"));
    for (int round = 0; round < 13; ++round) {
        const fsRecursiveCopyMode mode = round < 10 ? fsForceNew : fsReplace;
        const int copies = mode == fsForceNew ? 1 : 20;
        if (mode == fsForceNew) fs::remove_all(in.at("to"));
        std::string told[2];
        const auto copy = [&](const char *from) {
            std::string all;
            for (int i = 0; i < copies; ++i)
                all +=
                    failure([&] { fsCopy(text(in.at(from)), text(in.at("to")), mode, fsExpand, fsSimple); });
            return all;
        };
        std::thread other([&] { told[1] = copy("two"); });
        told[0] = copy("one");
        other.join();
        auto found = snapshot(in.at("to")), wanted = found == one ? one : two;
        EXPECT_EQ(found, wanted);
        if (mode == fsForceNew) {
            EXPECT_EQ(told[0].empty(), found == one) << told[0];
            EXPECT_EQ(told[1].empty(), found == two) << told[1];
        } else {
            EXPECT_EQ(told[0] + told[1], "");
        }
        EXPECT_EQ(std::distance(fs::directory_iterator(in.root), {}), 3);
    }
}

TEST(TreeFailures, AFullDiskLosesNothing) {
    scene in;
    in.file("from/a", "small");
    in.file("from/big", std::string(3 << 20, 'x'));
    in.file("to/old", "old");
    const auto before = snapshot(in.at("to"));
    const std::string native = fsPathToNative(text(in.at(""))).Str();
    // A limit on the size of files, which would end the process with a signal if it was met.
    EXPECT_EQ(in_child([&] {
                  const rlimit limit{1 << 20, 1 << 20};
                  ::setrlimit(RLIMIT_FSIZE, &limit);
                  const std::string told = failure(
                      [&] { fsCopy(text(in.at("from")), text(in.at("to")), fsReplace, fsExpand, fsSimple); });
                  return told == "filelib::XOther fsCopy " + native + R"(to\big)" ? 0 : 1;
              }),
              0);
    EXPECT_EQ(snapshot(in.at("to")), before);
    in.folder("disk");
    if (::mount("none", text(in.at("disk")), "tmpfs", 0, "size=2m") != 0) GTEST_SKIP() << "cannot mount";
    in.file("disk/to/old", "old");
    const auto disk = snapshot(in.at("disk"));
    for (const char *to : {"disk/to", "disk/new"})
        EXPECT_EQ(
            failure([&] { fsCopy(text(in.at("from")), text(in.at(to)), fsReplace, fsExpand, fsSimple); }),
            "filelib::XDiskFull fsCopy " + native + (to[5] == 't' ? R"(disk\to\big)" : R"(disk\new\big)"));
    const auto from = snapshot(in.at("from"));
    EXPECT_EQ(failure([&] { fsMove(text(in.at("from")), text(in.at("disk/new")), fsSimple); }),
              "filelib::XDiskFull fsMove " + native + R"(disk\new\big)");
    EXPECT_EQ(snapshot(in.at("from")), from);
    auto after = snapshot(in.at("disk"));
    EXPECT_EQ(after, disk);
    // What another file system is mounted on is not emptied.
    EXPECT_EQ(failure([&] { fsRemove(text(in.root), fsRecursive); }),
              "filelib::XInvalidPath fsRemove " + native + "disk");
    EXPECT_EQ(snapshot(in.at("disk")), disk);
    EXPECT_EQ(::umount(text(in.at("disk"))), 0);
}

TEST(TreeFailures, MovesToAnotherFileSystemKeepAll) {
    scene in;
    const std::string shm = "/dev/shm";
    struct stat here {
    }, there{};
    if (::stat(text(in.root), &here) != 0 || ::stat(text(shm), &there) != 0 || here.st_dev == there.st_dev ||
        ::access(text(shm), W_OK) != 0)
        GTEST_SKIP() << "no second file system";
    scene far(shm);
    const unsigned char capability[20] = {1, 0, 0, 2, 0, 4};  // a program's to open raw sockets
    in.file("tree/sub/file", "content");
    in.link("nowhere", "tree/link");
    if (::geteuid() == 0) {
        EXPECT_EQ(::lchown(text(in.at("tree/link")), 3, 4), 0);
        EXPECT_EQ(::chown(text(in.at("tree/sub/file")), 1, 2), 0);
        ::setxattr(text(in.at("tree/sub/file")), "security.capability", capability, sizeof capability, 0);
    }
    ::chmod(text(in.at("tree/sub/file")), 04755);
    ::chmod(text(in.at("tree/sub")), 0750);
    const timespec times[2] = {{1, 2}, {1'000'000'000, 123'456'789}};
    ::utimensat(AT_FDCWD, text(in.at("tree/sub")), times, 0);
    const auto before = snapshot(in.at("tree"));
    in.file("taken", "");
    fsMove(text(in.at("tree")), text(far.at("new/tree")), fsRecursive);
    EXPECT_EQ(snapshot(far.at("new/tree")), before);
    struct stat node {};
    EXPECT_EQ(::stat(text(far.at("new/tree/sub/file")), &node), 0);
    EXPECT_EQ(node.st_uid, ::geteuid() == 0 ? 1U : ::geteuid());
    unsigned char kept[20];
    const ssize_t kept_size =
        ::getxattr(text(far.at("new/tree/sub/file")), "security.capability", kept, sizeof kept);
    EXPECT_EQ(kept_size, ::geteuid() == 0 ? 20 : -1);
    ::stat(text(far.at("new/tree/sub")), &node);
    EXPECT_EQ(node.st_mtim.tv_nsec, 123'456'789);
    EXPECT_FALSE(fs::exists(in.at("tree")));
    fsMove(text(far.at("new/tree/sub/file")), text(in.at("file")), fsSimple);
    fsMove(text(far.at("new/tree/link")), text(in.at("link")), fsSimple);
    EXPECT_EQ(content_of(in.at("file")), "content");
    EXPECT_EQ(fs::read_symlink(in.at("link")), "nowhere");
    EXPECT_EQ(failure([&] { fsMove(text(far.at("new")), text(in.at("taken")), fsSimple); }),
              std::string("filelib::XFileExists fsMove ") + fsPathToNative(text(in.at("taken"))).Str());
    EXPECT_TRUE(fs::exists(far.at("new/tree/sub")));

    in.folder("holder/disk");
    if (::mount("none", text(in.at("holder/disk")), "tmpfs", 0, "size=2m") == 0) {
        in.file("holder/disk/file", "content");
        EXPECT_EQ(
            failure([&] { fsMove(text(in.at("holder")), text(far.at("holder")), fsSimple); }),
            std::string("filelib::XInvalidPath fsMove ") + fsPathToNative(text(in.at("holder\\disk"))).Str());
        EXPECT_EQ(content_of(in.at("holder/disk/file")), "content");
        ::umount(text(in.at("holder/disk")));
    }

    // What others add meanwhile is in one of the two places.
    for (int round = 0; round < 10; ++round) {
        fill(in, "busy/sub", 100);
        std::atomic<bool> ends = false;
        int added = 100;
        std::thread writer([&] {
            std::error_code gone;
            while (!ends && !gone) {
                in.file("whole", "more");
                fs::rename(in.at("whole"), in.at("busy/sub/" + std::to_string(added)), gone);
                if (!gone) ++added;
            }
        });
        ::usleep(2000);
        failure([&] { fsMove(text(in.at("busy")), text(far.at("busy")), fsSimple); });
        ends = true;
        writer.join();
        for (int i = 100; i < added; ++i) {
            const std::string name = "busy/sub/" + std::to_string(i);
            EXPECT_EQ(content_of(fs::exists(in.at(name)) ? in.at(name) : far.at(name)), "more") << name;
        }
        fs::remove_all(in.at("busy"));
        fs::remove_all(far.at("busy"));
    }
}

TEST(TreeFailures, WhatMustNotBeReadOrRemovedStays) {
    scene in;
    ::chmod(text(in.root), 0777);
    in.file("from/a", "1");
    in.file("from/closed/b", "2");
    in.file("kept/c/d", "3");
    in.file("own/file", "4");
    in.file("shut/sub/file", "5");
    in.folder("free");
    for (const char *name : {"from/closed", "from/closed/b"})
        ::chmod(text(in.at(name)), 0);
    ::chmod(text(in.at("free")), 0777);
    if (::geteuid() == 0) {
        EXPECT_EQ(::chown(text(in.at("own/file")), 65534, 65534), 0);
    }
    for (const char *name : {"kept", "own", "shut/sub"})
        ::chmod(text(in.at(name)), 0555);
    const std::string native = fsPathToNative(text(in.at(""))).Str();
    EXPECT_EQ(in_child([&] {
                  if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) return 10;
                  const std::string shut = in.at("shut"), copy = in.at("free/shut");
                  fsCopy(text(shut), text(copy), fsForceNew, fsExpand, fsSimple);
                  const std::string kept_old =
                      failure([&] { fsCopy(text(shut), text(copy), fsReplace, fsExpand, fsSimple); });
                  if (std::distance(fs::directory_iterator(in.at("free")), {}) != 1) return 11;
                  ::chmod(text(in.at("free/shut/sub")), 0755);
                  fsRemove(text(copy), fsRecursive);
                  forbid(__NR_renameat2, EINVAL);
                  const std::string told[] = {
                      kept_old,
                      failure([&] { fsMove(text(in.at("own/file")), text(in.at("free/file")), fsSimple); }),
                      failure([&] {
                          fsCopy(text(in.at("from")), text(in.at("free/to")), fsMerge, fsExpand, fsSimple);
                      }),
                      failure([&] { fsRemove(text(in.at("kept/c")), fsRecursive); }),
                      failure([&] {
                          fsCopy(text(in.at("from/a")), text(in.at("kept/a")), fsMerge, fsExpand, fsSimple);
                      }),
                  };
                  const std::string wanted[] = {
                      R"(fsCopy )" + native + R"(free\shut\sub\file)", R"(fsMove )" + native + R"(own\file)",
                      R"(fsCopy )" + native + R"(from\closed)", R"(fsRemove )" + native + R"(kept\c)",
                      R"(fsCopy )" + native + R"(kept\a)"};
                  for (int i = 0; i < 5; ++i)
                      if (told[i] != "filelib::XNoPermission " + wanted[i]) return i + 1;
                  return 0;
              }),
              0);
    EXPECT_EQ(content_of(in.at("kept/c/d")), "3");
    EXPECT_TRUE(fs::is_empty(in.at("free")));
    for (const char *name : {"kept", "own", "shut/sub", "from/closed"})
        ::chmod(text(in.at(name)), 0755);
}

TEST(TreeFailures, OlderHostsDoTheSameByOtherWays) {
    struct lack {
        std::vector<long> calls;
        bool has_unnamed;
    };
#ifdef __NR_sendfile64
    constexpr long send = __NR_sendfile64;
#else
    constexpr long send = __NR_sendfile;
#endif
    const lack lacks[] = {{{__NR_renameat2}, true},
                          {{__NR_renameat2, __NR_copy_file_range}, false},
                          {{__NR_copy_file_range, send}, false},
                          {{__NR_linkat, __NR_copy_file_range}, true}};
    for (const lack &row : lacks) {
        scene in;
        in.file("from/sub/file", std::string(1 << 20, 'x'));
        in.file("from/other", "y");
        fs::resize_file(in.at("from/other"), 1 << 20);
        std::ofstream(in.at("from/other"), std::ios::in | std::ios::binary).seekp(600'000) << "z";
        in.file("to/sub/file/old", "folder here");
        in.file("to/other", "old");
        EXPECT_EQ(in_child([&] {
                      for (long call : row.calls)
                          forbid(call, call == __NR_copy_file_range ? EXDEV : EINVAL);
                      if (!row.has_unnamed) forbid(__NR_openat, EOPNOTSUPP, O_TMPFILE & ~O_DIRECTORY);
                      auto copy = [&](const char *from, const char *to, fsRecursiveCopyMode mode) {
                          return failure(
                              [&] { fsCopy(text(in.at(from)), text(in.at(to)), mode, fsExpand, fsSimple); });
                      };
                      if (copy("from/sub/file", "to/sub/file", fsMerge).empty()) return 1;
                      if (!copy("from/sub/file", "to/sub/file", fsReplace).empty()) return 2;
                      if (!copy("from", "to", fsMerge).empty()) return 3;
                      if (!copy("from", "new", fsForceNew).empty()) return 4;
                      if (!copy("from/sub", "new", fsReplace).empty()) return 5;
                      if (copy("from", "new", fsForceNew).find("FileExists") == std::string::npos) return 6;
                      auto move = [&](const char *from, const char *to) {
                          return failure([&] { fsMove(text(in.at(from)), text(in.at(to)), fsSimple); });
                      };
                      if (!move("new", "moved").empty() || move("moved", "to").empty()) return 7;
                      return move("to/other", "moved").empty() ? 8 : 0;
                  }),
                  0);
        EXPECT_EQ(snapshot(in.at("moved")), snapshot(in.at("from/sub")));
        fs::last_write_time(in.at("to"), fs::last_write_time(in.at("from")));
        EXPECT_EQ(content_of(in.at("to/other")), content_of(in.at("from/other")));
        EXPECT_EQ(snapshot(in.at("to/sub")), snapshot(in.at("from/sub")));
        EXPECT_EQ(std::distance(fs::directory_iterator(in.root), {}), 3) << "something hidden is left";
    }
}

}  // namespace
