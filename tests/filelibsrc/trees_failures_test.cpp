// Trees under attack and on bad days: folders that are swapped for links in the middle, killed copies, full
// disks, other file systems, and hosts that lack the newer calls.
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sys/xattr.h>

#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <thread>

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
    for (int round = 0; round < 60; ++round) {
        for (int i = 0; i < 10; ++i)
            fill(in, "work/" + std::to_string(i) + "/sub", 3);
        fill(in, "from/5/sub", 3);
        in.link("../far", "work/link");
        {
            // As source, as target and as victim. Each may fail, but none may touch or tell what is far.
            swapper attack(in.at("work/5"), in.at("work/link"));
            in.copy("work", "to", fsReplace, fsNewLink);
            in.copy("from", "work", fsMerge, fsNewLink);
            in.remove("work");
            swaps += attack.swaps;
        }
        for (const auto &[name, node] : snapshot(in.at("to")))
            EXPECT_EQ(node.find("secret"), node.npos) << name;
        ASSERT_EQ(snapshot(in.at("far")), far);
        fs::remove_all(in.at("work"));
    }
    EXPECT_GT(swaps, 60);
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
        int call = 0, found_new = 0;
        for (bool is_killed = true; is_killed; ++call) {
            fs::remove_all(in.at("to"));
            if (is_there) in.file("to/file", "old");
            const auto before = snapshot(in.at("to"));
            is_killed = killed_before(call, copy);
            const auto found = snapshot(in.at("to"));
            found_new += found != before;
            ASSERT_TRUE(found == before || found == wanted) << "a torn tree, before call " << call;
            copy();
            ASSERT_EQ(snapshot(in.at("to")), wanted) << "before call " << call;
            ASSERT_EQ(in.entries(), 2) << "something is left, before call " << call;
        }
        EXPECT_TRUE(found_new > 1 && call > found_new + 20);
    }
}

TEST(TreeFailures, AFullDiskLosesNothing) {
    scene in;
    in.file("from/a", "small");
    in.file("from/big", std::string(3 << 20, 'x'));
    in.file("disk/to/old", "old");
    // A limit on the size of files, which would end the process with a signal if it was met; or a small disk.
    const rlimit limit{1 << 20, 1 << 20};
    const auto before = snapshot(in.root);
    EXPECT_EQ(in_child([&] {
                  ::setrlimit(RLIMIT_FSIZE, &limit);
                  EXPECT_EQ(in.copy("from", "disk/to", fsReplace), R"(XOther fsCopy disk\to\big)");
              }),
              0);
    EXPECT_EQ(snapshot(in.root), before);
    if (::mount("none", text(in.at("disk")), "tmpfs", 0, "size=2m") != 0) GTEST_SKIP() << "cannot mount";
    in.file("disk/to/old", "old");
    const auto full = snapshot(in.root);
    EXPECT_EQ(in.copy("from", "disk/to", fsReplace), R"(XDiskFull fsCopy disk\to\big)");
    EXPECT_EQ(in.move("from", "disk/new"), R"(XDiskFull fsMove disk\new\big)");
    EXPECT_EQ(in.remove("disk"), "XInvalidPath fsRemove disk") << "another file system is not emptied";
    EXPECT_EQ(snapshot(in.root), full);
    EXPECT_EQ(::umount(text(in.at("disk"))), 0);
}

TEST(TreeFailures, MovesToAnotherFileSystemKeepAll) {
    scene in;
    struct stat here {
    }, there{};
    if (::stat(text(in.root), &here) != 0 || ::stat("/dev/shm", &there) != 0 || here.st_dev == there.st_dev)
        GTEST_SKIP() << "no second file system";
    scene far("/dev/shm");
    auto move = [&](const std::string &from, const std::string &to) {
        return in.told([&] { fsMove(text(from), text(to), fsRecursive); });
    };
    const bool is_root = ::geteuid() == 0;
    const unsigned char capability[20] = {1, 0, 0, 2, 0, 4};  // a program's to open raw sockets
    in.file("tree/sub/file", "content");
    in.link("nowhere", "tree/link");
    const std::string file = in.at("tree/sub/file");
    EXPECT_TRUE(!is_root || ::chown(text(file), 1, 2) == 0);
    ::setxattr(text(file), "security.capability", capability, sizeof capability, 0);
    ::chmod(text(file), 04755);
    ::chmod(text(in.at("tree/sub")), 0750);
    const timespec times[2] = {{1, 2}, {1'000'000'000, 123'456'789}};
    ::utimensat(AT_FDCWD, text(in.at("tree/sub")), times, 0);
    const auto before = snapshot(in.at("tree"));
    EXPECT_EQ(move(in.at("tree"), far.at("new/tree")), "");
    EXPECT_EQ(snapshot(far.at("new/tree")), before);
    EXPECT_FALSE(fs::exists(in.at("tree")));
    EXPECT_EQ(::stat(text(far.at("new/tree/sub/file")), &here) + ::stat(text(far.at("new/tree/sub")), &there),
              0);
    EXPECT_TRUE(here.st_uid == (is_root ? 1U : ::geteuid()) && there.st_mtim.tv_nsec == 123'456'789);
    unsigned char kept[20];
    EXPECT_EQ(::getxattr(text(far.at("new/tree/sub/file")), "security.capability", kept, sizeof kept),
              is_root ? 20 : -1);

    // The source stays until the name of its copy is on the disk.
    in.file("last/file", "content");
    EXPECT_EQ(in_child([&] {
                  forbid(__NR_fsync, EIO);
                  EXPECT_NE(move(in.at("last"), far.at("last")), "");
              }),
              0);
    EXPECT_EQ(content_of(in.at("last/file")), "content");

    // What others add or turn meanwhile is in one of the two places.
    for (int round = 0; round < 10; ++round) {
        fill(in, "busy/sub", round % 2 ? 500 : 100);
        in.link("old", "busy/sub/link");
        std::atomic<bool> ends = false;
        bool is_turned = false;
        int added = 100;
        std::thread writer([&] {
            std::error_code gone;
            while (!ends && !gone && !is_turned) {
                if (round % 2 == 0) {
                    in.file("whole", "more");
                    fs::rename(in.at("whole"), in.at("busy/sub/" + std::to_string(added)), gone);
                    if (!gone) ++added;
                } else if (fs::exists(far.at("busy"))) {
                    const std::string turned = in.at("turned" + std::to_string(round));
                    fs::create_symlink("new", turned);
                    fs::rename(turned, in.at("busy/sub/link"), gone);
                    is_turned = !gone;
                }
            }
        });
        ::usleep(2000);
        move(in.at("busy"), far.at("busy"));
        ends = true;
        writer.join();
        for (int i = 100; i < added; ++i) {
            const std::string name = "busy/sub/" + std::to_string(i);
            EXPECT_EQ(content_of(fs::exists(in.at(name)) ? in.at(name) : far.at(name)), "more") << name;
        }
        const std::string link = "busy/sub/link";
        if (is_turned) {
            EXPECT_EQ(fs::read_symlink(fs::is_symlink(in.at(link)) ? in.at(link) : far.at(link)), "new");
        }
        fs::remove_all(in.at("busy"));
        fs::remove_all(far.at("busy"));
    }
}

TEST(TreeFailures, OlderHostsDoTheSameByOtherWays) {
    const struct {
        long one, other;
        bool has_unnamed;
    } lacks[] = {{__NR_renameat2, __NR_renameat2, true},
                 {__NR_renameat2, __NR_copy_file_range, false},
                 {__NR_linkat, __NR_copy_file_range, true}};
    for (const auto &row : lacks) {
        scene in;
        in.file("from/sub/file", std::string(1 << 20, 'x'));
        in.file("from/other", "y");
        fs::resize_file(in.at("from/other"), 1 << 20);
        std::ofstream(in.at("from/other"), std::ios::in | std::ios::binary).seekp(600'000) << "z";
        in.file("to/sub/file/old", "folder here");
        in.file("to/other", "old");
        EXPECT_EQ(in_child([&] {
                      for (long call : {row.one, row.other})
                          forbid(call, call == __NR_copy_file_range ? EXDEV : EINVAL);
                      if (!row.has_unnamed) forbid(__NR_openat, EOPNOTSUPP, O_TMPFILE & ~O_DIRECTORY);
                      EXPECT_EQ(in.copy("from/sub/file", "to/sub/file", fsMerge),
                                R"(XFileExists fsCopy to\sub\file)");
                      EXPECT_EQ(in.copy("from/sub/file", "to/sub/file", fsReplace), "");
                      double files = 0;
                      kel::copy_tree(text(in.at("from")), text(in.at("to")), fsMerge, fsExpand, fsSimple,
                                     [&](const kel::file_progress &told) { files = told.files; });
                      EXPECT_EQ(files, 2);
                      EXPECT_EQ(in.copy("from", "new", fsForceNew), "");
                      EXPECT_EQ(in.copy("from/sub", "new", fsReplace), "");
                      EXPECT_EQ(in.copy("from", "new", fsForceNew), "XFileExists fsCopy new");
                      EXPECT_EQ(in.move("new", "moved"), "");
                      EXPECT_EQ(in.move("to/other", "moved"), "XFileExists fsMove moved");
                  }),
                  0);
        EXPECT_EQ(snapshot(in.at("moved")), snapshot(in.at("from/sub")));
        EXPECT_EQ(content_of(in.at("to/other")), content_of(in.at("from/other")));
        EXPECT_EQ(snapshot(in.at("to/sub")), snapshot(in.at("from/sub")));
        EXPECT_EQ(in.entries(), 3) << "something hidden is left";
    }
}

}  // namespace
