// Becoming a daemon. The calling process stays until the daemon is ready or has ended, so that who started it
// learns what became of it: by the exit code, and by what the daemon writes to the standard channels, which
// it keeps until then.
//
//     caller -> go-between, leader of a new session -> daemon, which can get no terminal any more
//
// The go-between is the daemon's parent until then, and so learns its exit code. The lock on the process id
// file is taken by the caller, who can still tell of a failure; it belongs to the open file, which the daemon
// inherits.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <optional>

#include <kelstdmt/vumtext.h>

#include "runtime/owned_descriptor.h"
#include "runtime/posix/descriptor.h"
#include "runtime/posix/fork_reason.h"
#include "runtime/posix/through_signals.h"
#include "runtime/posix/uncancelled.h"
#include "runtime/service.h"
#include "runtime/system.h"

namespace kel::system {

namespace {

void complain(const std::string &text) {
    const std::string line = text + "\n";
    write_error(line.data(), line.size());
}

// The file that holds the daemon's process id. Whose destructor runs at the daemon's end removes it.
class pid_file {
public:
    pid_file() = default;
    ~pid_file() {
        if (m_owner == ::getpid() && LeadsHere()) ::unlink(m_path.c_str());
    }
    pid_file(const pid_file &) = delete;
    pid_file &operator=(const pid_file &) = delete;

    // False with the last error set.
    bool Take(const char *name, std::string &reason) {
        constexpr int readable = 0644, locked = 33, exists = 183;
        if (!m_file.Open(name, btkFileBuf::In | btkFileBuf::Out, readable, 0)) {
            char *path = ::realpath(btkHostPath(name).c_str(), nullptr);
            if (path) m_path = path;
            ::free(path);
            return true;
        }
        if (Error_GetLast() == locked) {
            reason = std::string(name) + " is held by " + Holder(name) + ", which runs";
            Error_SetLast(exists);
        } else {
            reason = std::string(kel::is_text(name) ? name : "no name") +
                     " cannot be written: " + Error_GetText(Error_GetLast());
            reason.pop_back();
        }
        return false;
    }
    bool Write() {
        const std::string line = std::to_string(::getpid()) + "\n";
        m_owner = ::getpid();
        return File_Truncate(m_file.GetHandle(), 0) &&
               write_all(m_file.GetHandle(), line.data(), line.size()) == line.size();
    }

private:
    static std::string Holder(const char *name) {
        btkFileBuf file;
        char text[16];
        std::streamsize count = 0;
        if (file.Open(name, btkFileBuf::In | btkFileBuf::NoCreate)) count = file.sgetn(text, sizeof text);
        pid_t id = 0;
        std::from_chars(text, text + count, id);
        return id > 0 ? "process " + std::to_string(id) : "a process";
    }
    bool LeadsHere() const {
        struct stat named {
        }, open{};
        return ::lstat(m_path.c_str(), &named) == 0 && ::fstat(m_file.GetHandle(), &open) == 0 &&
               named.st_ino == open.st_ino && named.st_dev == open.st_dev;
    }

    lockFileBuf m_file;
    std::string m_path;
    pid_t m_owner = -1;
};

// In the daemon: what it still has to do when it is ready.
struct beginning {
    owned_descriptor ready;    // a byte to the go-between
    owned_descriptor nowhere;  // for the standard channels
};
std::optional<beginning> begun;

// Leads nowhere. Standard channels that are closed are opened on the way, so that nothing else becomes one.
owned_descriptor open_nowhere() {
    for (;;) {
        const int fd = ::open("/dev/null", O_RDWR);
        if (fd > STDERR_FILENO) ::fcntl(fd, F_SETFD, FD_CLOEXEC);
        if (fd < 0 || fd > STDERR_FILENO) return owned_descriptor(fd);
    }
}

// Children can be waited for in this scope, also where the program was started with their ends ignored.
class awaited_children {
public:
    awaited_children() noexcept {
        struct sigaction usual {};
        usual.sa_handler = SIG_DFL;
        ::sigaction(SIGCHLD, &usual, &m_before);
    }
    ~awaited_children() { ::sigaction(SIGCHLD, &m_before, nullptr); }
    awaited_children(const awaited_children &) = delete;
    awaited_children &operator=(const awaited_children &) = delete;

private:
    struct sigaction m_before {};
};

int status_of(pid_t child) {
    int status = EXIT_FAILURE << 8;  // where nobody tells
    through_signals([&] { return ::waitpid(child, &status, 0); });
    return status;
}

// The exit code that the caller ends with, once there is one to tell.
int outcome_of(pid_t daemon, int ready) {
    const owned_descriptor process(static_cast<int>(::syscall(SYS_pidfd_open, daemon, 0)));
    pollfd awaited[] = {{ready, POLLIN, 0}, {process.get(), POLLIN, 0}};
    for (;;) {
        through_signals([&] { return ::poll(awaited, 2, -1); });
        char byte;
        if (awaited[0].revents && through_signals([&] { return ::read(ready, &byte, 1); }) == 1) return 0;
        if (awaited[1].revents || !process) break;
        if (awaited[0].revents) awaited[0].fd = -1;  // closed, yet it lives: it became another program
    }
    const int status = status_of(daemon);
    if (WIFEXITED(status)) return WEXITSTATUS(status) ? WEXITSTATUS(status) : EXIT_FAILURE;
    complain("The daemon was ended by signal " + std::to_string(WTERMSIG(status)) + " before it was ready.");
    constexpr int signalled = 128;
    return signalled + WTERMSIG(status);
}

bool failed(std::string &reason) {
    Error_SetLastFromSystem(fork_reason(errno));
    reason = std::string("The daemon cannot be started: ") + Error_GetText(Error_GetLast());
    reason.pop_back();
    return false;
}

// In the caller's child. Comes back in the daemon only.
void leave_session(owned_descriptor ready_in, beginning &with) {
    ::setsid();
    const pid_t daemon = ::fork();
    if (daemon == 0) return;
    if (daemon < 0) {
        std::string reason;
        failed(reason);
        complain(reason + ".");
        ::_exit(EXIT_FAILURE);
    }
    with.ready.reset();
    ::_exit(outcome_of(daemon, ready_in.get()));
}

}  // namespace

bool become_daemon(const char *name, std::string &reason) {
    static std::optional<pid_file> file;  // for the process's life
    beginning with;
    with.nowhere = open_nowhere();
    int ends[2];
    if (!with.nowhere || ::pipe2(ends, O_CLOEXEC) != 0) return failed(reason);
    owned_descriptor ready_in(ends[0]);
    with.ready.reset(ends[1]);
    if (name && !file.emplace().Take(name, reason)) {
        file.reset();
        return false;
    }
    std::fflush(nullptr);  // or it would be written twice
    {
        awaited_children scope;
        const pid_t go_between = ::fork();
        if (go_between < 0) {
            failed(reason);
            file.reset();
            return false;
        }
        if (go_between > 0) {
            ready_in.reset();
            with.ready.reset();
            const int status = status_of(go_between);
            ::_exit(WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_FAILURE);
        }
        leave_session(std::move(ready_in), with);
    }
    ::dup2(with.nowhere.get(), STDIN_FILENO);
    if (file && !file->Write()) {
        complain(std::string(name) + " cannot be written: " + Error_GetText(Error_GetLast()));
        ::exit(EXIT_FAILURE);
    }
    begun = std::move(with);
    return true;
}

void daemon_ready() noexcept {
    if (!begun) return;
    const uncancelled scope;
    std::fflush(stdout);
    ::dup2(begun->nowhere.get(), STDOUT_FILENO);
    ::dup2(begun->nowhere.get(), STDERR_FILENO);
    constexpr char byte = 1;
    write_all(begun->ready.get(), &byte, 1);
    begun.reset();
}

}  // namespace kel::system
