#include "attempt.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace bench {

const char *attempt(unsigned seconds, const std::function<bool()> &work) {
    const pid_t child = fork();
    if (child < 0) return "cannot: no child";
    if (child == 0) {
        const rlimit no_core{0, 0}, time{seconds, seconds + 1}, memory{rlim_t{8} << 30, rlim_t{8} << 30};
        setrlimit(RLIMIT_CORE, &no_core);
        setrlimit(RLIMIT_CPU, &time);
        setrlimit(RLIMIT_AS, &memory);
        std::signal(SIGXCPU, SIG_DFL);
        bool done = false;
        try {
            done = work();
        } catch (...) {
        }
        _exit(done ? 0 : 1);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child) return "cannot: no child";
    if (WIFSIGNALED(status)) return WTERMSIG(status) == SIGXCPU ? "cannot: too long" : "cannot: crashes";
    return WEXITSTATUS(status) == 0 ? nullptr : "cannot: gives up";
}

}  // namespace bench
