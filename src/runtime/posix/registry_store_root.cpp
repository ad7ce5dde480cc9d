// Where the trees of the registry lie, and their lock.
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#define _FILE_OFFSET_BITS 64

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

#include <kelstdmt/vumrt.h>

#include "runtime/posix/file_lock.h"
#include "runtime/posix/registry_store_lock.h"
#include "runtime/posix/through_signals.h"
#include "runtime/posix/user_entry.h"

namespace kel::system {

int open_entry(int folder, const char *name, int flags, mode_t mode) {
    return through_signals(
        [&] { return ::openat(folder, name, flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, mode); });
}

bool give_owner(int fd, int folder) noexcept {
    if (::geteuid() != 0) return true;
    struct stat node {};
    struct stat above {};
    if (::fstat(fd, &node) != 0 || ::fstat(folder, &above) != 0) return false;
    return node.st_uid != 0 || above.st_uid == 0 || ::fchown(fd, above.st_uid, above.st_gid) == 0;
}

bool give_mode(int fd, mode_t mode) noexcept {
    struct stat node {};
    if (::fstat(fd, &node) != 0) return false;
    return (node.st_mode & 0777) == mode || ::fchmod(fd, mode) == 0;
}

// The lock -------------------------------------------------------------------------------------

namespace {

// Only what was made here gets an owner and a mode: another file may have been put there meanwhile.
int open_lock(const registry_root &root) {
    constexpr int flags = O_RDWR | O_NOFOLLOW;
    const int folder = root.folder.get();
    const int fd = open_entry(folder, ".lock", flags);
    if (fd >= 0 || errno != ENOENT) return fd;
    const int made = open_entry(folder, ".lock", flags | O_CREAT | O_EXCL, file_mode(root));
    if (made < 0) return errno == EEXIST ? open_entry(folder, ".lock", flags) : made;
    give_owner(made, folder);
    give_mode(made, file_mode(root));
    return made;
}

bool has_name(int fd) noexcept {
    struct stat node {};
    return ::fstat(fd, &node) == 0 && node.st_nlink > 0;
}

}  // namespace

// It is held for some calls that rename, hardly ever longer, and a wait in the system would have no end: so
// it is asked for again, ever less often.
bool registry_lock::take(const registry_root &root) {
    using clock = std::chrono::steady_clock;
    constexpr auto longest_wait = std::chrono::seconds(5);
    constexpr std::chrono::microseconds first_pause(50), longest_pause(2000);
    const auto deadline = clock::now() + longest_wait;
    for (auto pause = first_pause;; pause = std::min(2 * pause, longest_pause)) {
        if (!m_file) m_file.reset(open_lock(root));
        if (!m_file) return false;
        if (set_lock(m_file.get(), F_WRLCK)) {
            if (has_name(m_file.get())) return true;
            m_file.reset();  // somebody removed the file while we waited: others lock another one
        } else if (errno != EAGAIN && errno != EACCES) {
            return false;
        }
        if (clock::now() >= deadline) {
            errno = EAGAIN;
            return false;
        }
        std::this_thread::sleep_for(pause);
    }
}

// Closing would do, were it not for a child process that another thread has forked meanwhile.
registry_lock::~registry_lock() {
    const int before = errno;
    if (m_file) set_lock(m_file.get(), F_UNLCK);
    errno = before;
}

// Places ---------------------------------------------------------------------------------------

namespace {

struct place {
    std::string path;
    mode_t leading;  // of the folders above that are made
};

// A program that runs with another user's rights must not be told by its caller where settings lie.
std::string variable(const char *name) {
    const char *value = ::secure_getenv(name);
    return value ? value : "";
}

place place_of(registry_kind kind) {
    const bool user = kind == registry_kind::user;
    if (std::string chosen = variable("KELSTDMT_REGISTRY"); !chosen.empty())
        return {chosen + (user ? "/user" : "/machine"), 0755};
    if (!user) return {"/var/lib/kelstdmt/registry", 0755};
    // A relative folder for data is none.
    std::string data = variable("XDG_DATA_HOME");
    if (data.empty() || data[0] != '/') {
        data = variable("HOME");
        if (data.empty()) data = user_entry(::getuid(), &passwd::pw_dir);
        if (data.empty() || data[0] != '/') return {"", 0};
        data += "/.local/share";
    }
    return {data + "/kelstdmt/registry", 0700};
}

bool make_folder(const char *path, mode_t mode) {
    if (::mkdir(path, mode) != 0) return errno == EEXIST;
    owned_descriptor made(open_entry(AT_FDCWD, path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
    if (!made || !give_mode(made.get(), mode)) return false;
    owned_descriptor above(open_entry(made.get(), "..", O_PATH | O_DIRECTORY));
    return above && give_owner(made.get(), above.get());
}

// The folder and those above it.
bool make_folders(const place &wanted, mode_t mode) {
    std::string path = wanted.path;
    int refusal = 0;
    for (std::size_t slash = path.find('/', 1); slash != path.npos; slash = path.find('/', slash + 1)) {
        path[slash] = 0;
        const bool made = make_folder(path.c_str(), wanted.leading);
        path[slash] = '/';
        // Above what we may write there can be folders that may not even be looked at.
        if (!made && errno != EACCES && errno != EROFS && errno != EPERM) {
            if (errno == ENOENT && refusal) errno = refusal;
            return false;
        }
        refusal = made ? 0 : errno;
    }
    if (make_folder(path.c_str(), mode)) return true;
    if (errno == ENOENT && refusal) errno = refusal;
    return false;
}

}  // namespace

std::shared_ptr<const registry_root> registry_tree::root(bool make) {
    const thrLock held(m_guard);
    const place found = place_of(m_kind);
    auto root = std::make_shared<registry_root>();
    root->for_all = m_kind == registry_kind::machine;
    struct stat node {};
    bool there = ::stat(found.path.c_str(), &node) == 0;
    if (!there && errno == ENOENT && make && !found.path.empty())
        there = make_folders(found, folder_mode(*root)) && ::stat(found.path.c_str(), &node) == 0;
    if (!there) return Error_SetLastFromSystem(errno, found.path.c_str()), nullptr;
    // As long as it is the same folder, its keys share one descriptor.
    if (auto last = m_last.lock(); last && last->device == node.st_dev && last->node == node.st_ino)
        return last;
    root->folder.reset(open_entry(AT_FDCWD, found.path.c_str(), O_PATH | O_DIRECTORY));
    if (!root->folder || ::fstat(root->folder.get(), &node) != 0)
        return Error_SetLastFromSystem(errno, found.path.c_str()), nullptr;
    root->device = node.st_dev;
    root->node = node.st_ino;
    m_last = root;
    return root;
}

}  // namespace kel::system
