// The environment, and commands that the shell runs.
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include <kelstdmt/vumrt.h>
#include <kelstdmt/xtypes.h>

#include "runtime/owned_descriptor.h"
#include "runtime/posix/fork_reason.h"
#include "runtime/posix/through_signals.h"
#include "runtime/posix/uncancelled.h"

using namespace kel::system;

bool Putenv(const char *name, const char *value) {
    const char *known_name = kel::is_text(name) ? name : "";
    const int failed = kel::is_text(value) ? ::setenv(known_name, value, 1) : ::unsetenv(known_name);
    if (failed) Error_SetLastFromSystem(errno);
    return !failed;
}

namespace {

// A process that ignores the end of its children is not told their exit codes.
bool ends_of_children_are_lost() {
    struct sigaction held {};
    ::sigaction(SIGCHLD, nullptr, &held);
    return held.sa_handler == SIG_IGN || (held.sa_flags & SA_NOCLDWAIT);
}

// Keeps interrupt and quit from this thread, and forgets what came of them meanwhile.
class deaf_to_terminal {
public:
    deaf_to_terminal() {
        ::sigemptyset(&m_signals);
        ::sigaddset(&m_signals, SIGINT);
        ::sigaddset(&m_signals, SIGQUIT);
        ::pthread_sigmask(SIG_BLOCK, &m_signals, &m_before);
    }
    ~deaf_to_terminal() {
        const uncancelled scope;
        const int before = errno;
        const timespec at_once{};
        while (::sigtimedwait(&m_signals, nullptr, &at_once) > 0) {
        }
        errno = before;
        restore();
    }
    void restore() const { ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

private:
    sigset_t m_signals;
    sigset_t m_before;
};

// In a process of its own that does not ignore the end of its children: runs the command and passes its wait
// status on through the pipe. The process may have had threads, so nothing but system calls.
[[noreturn]] void run_and_tell(const char *line, const deaf_to_terminal &deaf, int pipe_end) {
    ::signal(SIGCHLD, SIG_DFL);
    const pid_t command = ::fork();
    if (command == 0) {
        deaf.restore();
        ::execl("/bin/sh", "sh", "-c", line, static_cast<char *>(nullptr));
        ::_exit(127);
    }
    int status = -1;
    if (command > 0) through_signals([&] { return ::waitpid(command, &status, 0); });
    const int result[] = {status, command < 0 ? errno : 0};
    static_cast<void>(!::write(pipe_end, result, sizeof result));
    ::_exit(0);
}

// The wait status, or -1 and errno.
int run_apart(const char *line) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return -1;
    const owned_descriptor read_end(ends[0]);
    owned_descriptor write_end(ends[1]);
    const deaf_to_terminal deaf;
    const pid_t helper = ::fork();
    if (helper == 0) run_and_tell(line, deaf, write_end.get());
    if (helper < 0) return -1;
    write_end.reset();
    int result[2] = {-1, ECHILD};
    through_signals([&] { return ::read(read_end.get(), result, sizeof result); });
    through_signals([&] { return ::waitpid(helper, nullptr, 0); });
    errno = result[1];
    return result[0];
}

int exit_code(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

int System(const char *command_line) {
    if (!kel::is_text(command_line)) {
        Error_SetLastFromSystem(EINVAL);
        return -1;
    }
    // The shell would take what begins with one of these for options of its own.
    std::string shielded;
    if (*command_line == '-' || *command_line == '+')
        command_line = (shielded = std::string(" ") + command_line).c_str();
    const int status = ends_of_children_are_lost() ? run_apart(command_line) : ::system(command_line);
    if (status >= 0) return exit_code(status);
    Error_SetLastFromSystem(fork_reason(errno));
    return -1;
}
