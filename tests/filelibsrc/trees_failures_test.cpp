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
#include <string>
#include <thread>
#include <vector>

#include <kelstdmt/filelib.h>
#include <kelstdmt/vumrt.h>

#include "filelibsrc/failure.h"
#include "filelibsrc/scene.h"
#include "scratch_folder.h"

namespace {

namespace fs = std::filesystem;

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
            copied += in.copy("work", "to", fsReplace, fsNewLink).empty();
            copied += in.copy("from", "work", fsMerge, fsNewLink).empty();
            removed += in.remove("work").empty();
            swaps += attack.swaps;
        }
        for (const auto &[name, node] : snapshot(in.at("to")))
            EXPECT_EQ(node.find("secret"), node.npos) << name;
        ASSERT_EQ(snapshot(in.at("far")), far);
        fs::remove_all(in.at("work"));
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
        ::_exit(testing::Test::HasFailure());
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
    const auto copy = [&] { EXPECT_EQ(in.copy("from", "to", fsReplace), ""); };
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
            ASSERT_EQ(in.entries(), 2) << "something is left, before call " << call;
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
        const bool is_new = round < 10;
        if (is_new) fs::remove_all(in.at("to"));
        const auto copy = [&](const char *from) {
            std::string all;
            for (int i = 0; i < (is_new ? 1 : 20); ++i)
                all += in.copy(from, "to", is_new ? fsForceNew : fsReplace);
            return all;
        };
        std::string first, second;
        std::thread other([&] { second = copy("two"); });
        first = copy("one");
        other.join();
        const auto found = snapshot(in.at("to"));
        EXPECT_TRUE(found == one || found == two) << "round " << round;
        EXPECT_EQ(first.empty(), !is_new || found == one) << first;
        EXPECT_EQ(second.empty(), !is_new || found == two) << second;
        EXPECT_EQ(in.entries(), 3);
    }
}

TEST(TreeFailures, AFullDiskLosesNothing) {
    scene in;
    in.file("from/a", "small");
    in.file("from/big", std::string(3 << 20, 'x'));
    in.file("to/old", "old");
    const auto before = snapshot(in.at("to"));
    // A limit on the size of files, which would end the process with a signal if it was met.
    EXPECT_EQ(in_child([&] {
                  const rlimit limit{1 << 20, 1 << 20};
                  ::setrlimit(RLIMIT_FSIZE, &limit);
                  EXPECT_EQ(in.copy("from", "to", fsReplace), R"(XOther fsCopy to\big)");
              }),
              0);
    EXPECT_EQ(snapshot(in.at("to")), before);
    in.folder("disk");
    if (::mount("none", text(in.at("disk")), "tmpfs", 0, "size=2m") != 0) GTEST_SKIP() << "cannot mount";
    in.file("disk/to/old", "old");
    const auto disk = snapshot(in.at("disk")), from = snapshot(in.at("from"));
    EXPECT_EQ(in.copy("from", "disk/to", fsReplace), R"(XDiskFull fsCopy disk\to\big)");
    EXPECT_EQ(in.copy("from", "disk/new", fsReplace), R"(XDiskFull fsCopy disk\new\big)");
    EXPECT_EQ(in.move("from", "disk/new"), R"(XDiskFull fsMove disk\new\big)");
    EXPECT_EQ(snapshot(in.at("from")), from);
    // What another file system is mounted on is not emptied.
    EXPECT_EQ(in.remove(""), "XInvalidPath fsRemove disk");
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
    const bool is_root = ::geteuid() == 0;
    const unsigned char capability[20] = {1, 0, 0, 2, 0, 4};  // a program's to open raw sockets
    in.file("tree/sub/file", "content");
    in.link("nowhere", "tree/link");
    if (is_root) {
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
    struct stat file {
    }, sub{};
    EXPECT_EQ(::stat(text(far.at("new/tree/sub/file")), &file) + ::stat(text(far.at("new/tree/sub")), &sub),
              0);
    EXPECT_EQ(file.st_uid, is_root ? 1U : ::geteuid());
    EXPECT_EQ(sub.st_mtim.tv_nsec, 123'456'789);
    unsigned char kept[20];
    EXPECT_EQ(::getxattr(text(far.at("new/tree/sub/file")), "security.capability", kept, sizeof kept),
              is_root ? 20 : -1);
    EXPECT_FALSE(fs::exists(in.at("tree")));
    fsMove(text(far.at("new/tree/sub/file")), text(in.at("file")), fsSimple);
    fsMove(text(far.at("new/tree/link")), text(in.at("link")), fsSimple);
    EXPECT_EQ(content_of(in.at("file")) + fs::read_symlink(in.at("link")).string(), "contentnowhere");
    EXPECT_EQ(in.told([&] { fsMove(text(far.at("new")), text(in.at("taken")), fsSimple); }),
              "XFileExists fsMove taken");
    EXPECT_TRUE(fs::exists(far.at("new/tree/sub")));

    in.folder("holder/disk");
    if (::mount("none", text(in.at("holder/disk")), "tmpfs", 0, "size=2m") == 0) {
        in.file("holder/disk/file", "content");
        EXPECT_EQ(in.told([&] { fsMove(text(in.at("holder")), text(far.at("holder")), fsSimple); }),
                  R"(XInvalidPath fsMove holder\disk)");
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
    EXPECT_EQ(in_child([&] {
                  if (::geteuid() == 0) {
                      ASSERT_EQ(::setgid(65534) + ::setuid(65534), 0);
                  }
                  const std::string refused = "XNoPermission ";
                  EXPECT_EQ(in.copy("shut", "free/shut", fsForceNew), "");
                  EXPECT_EQ(in.copy("shut", "free/shut", fsReplace),
                            refused + R"(fsCopy free\shut\sub\file)");
                  EXPECT_EQ(in.entries("free"), 1);
                  ::chmod(text(in.at("free/shut/sub")), 0755);
                  EXPECT_EQ(in.remove("free/shut"), "");
                  forbid(__NR_renameat2, EINVAL);
                  EXPECT_EQ(in.move("own/file", "free/file"), refused + R"(fsMove own\file)");
                  EXPECT_EQ(in.copy("from", "free/to", fsMerge), refused + R"(fsCopy from\closed)");
                  EXPECT_EQ(in.remove("kept/c"), refused + R"(fsRemove kept\c)");
                  EXPECT_EQ(in.copy("from/a", "kept/a", fsMerge), refused + R"(fsCopy kept\a)");
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
                      EXPECT_EQ(in.copy("from/sub/file", "to/sub/file", fsMerge),
                                R"(XFileExists fsCopy to\sub\file)");
                      EXPECT_EQ(in.copy("from/sub/file", "to/sub/file", fsReplace), "");
                      EXPECT_EQ(in.copy("from", "to", fsMerge), "");
                      EXPECT_EQ(in.copy("from", "new", fsForceNew), "");
                      EXPECT_EQ(in.copy("from/sub", "new", fsReplace), "");
                      EXPECT_EQ(in.copy("from", "new", fsForceNew), "XFileExists fsCopy new");
                      EXPECT_EQ(in.move("new", "moved"), "");
                      EXPECT_EQ(in.move("moved", "to"), "XFileExists fsMove to");
                      EXPECT_EQ(in.move("to/other", "moved"), "XFileExists fsMove moved");
                  }),
                  0);
        EXPECT_EQ(snapshot(in.at("moved")), snapshot(in.at("from/sub")));
        fs::last_write_time(in.at("to"), fs::last_write_time(in.at("from")));
        EXPECT_EQ(content_of(in.at("to/other")), content_of(in.at("from/other")));
        EXPECT_EQ(snapshot(in.at("to/sub")), snapshot(in.at("from/sub")));
        EXPECT_EQ(in.entries(), 3) << "something hidden is left";
    }
}

}  // namespace
