// Starting programs. The child borrows this process's memory until it has become the program (the thread that
// started it stands still meanwhile), so that starting costs the same however much memory there is. It
// borrows the table of descriptors too, and copies no more of it than it needs.
//
// In borrowed memory the child must be careful: it makes plain system calls, runs no handler of this process,
// changes nothing but its own small stack, and is hidden from the sanitizers.
#include <fcntl.h>
#include <limits.h>
#include <linux/close_range.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include <kelstdmt/vumrt_process.h>
#include <kelstdmt/xtypes.h>

#include "runtime/command_line.h"
#include "runtime/posix/fork_reason.h"
#include "runtime/posix/process_handles.h"
#include "runtime/posix/through_signals.h"

#ifdef __clang__
#define KEL_BARE __attribute__((disable_sanitizer_instrumentation))
#else
#define KEL_BARE [[gnu::no_sanitize_address, gnu::no_sanitize_thread, gnu::no_sanitize_undefined]]
#endif

// The C library's clone by its other name: the thread sanitizer takes the usual one for a fork, and then
// tells the child's copy of itself, which here is the parent's own, that it may start no more threads.
extern "C" int __clone(int (*body)(void *), void *stack, int flags, void *argument, ...) noexcept;

namespace {

constexpr int no_such_folder = 267, wrong_argument = 87, no_memory = 8;
constexpr int channels = 3;

struct launch_plan {
    char *const *arguments;
    const char *const *programs;  // in the order in which they are tried, null at the end
    const char *folder;           // null: the caller's
    int handles[channels];        // -1: the caller's channel
    unsigned options;
    int system_error = 0;  // told by the child
    int number = 0;        // told by the child in the numbers of callers, where that is more exact
};

// The child ------------------------------------------------------------------------------------

// As the kernel takes it; nothing but the handler is looked at.
struct kernel_signal_action {
    void *handler;
    unsigned long rest[7];
};
constexpr std::size_t kernel_set_size = _NSIG / 8;

// The program would do so itself, but a signal must not find a handler of this process before that. With
// hears_interrupts, an interrupt is not ignored either.
KEL_BARE void forget_signal_handlers(bool hears_interrupts) {
    for (int signal = 1; signal < _NSIG; ++signal) {
        kernel_signal_action action;
        if (::syscall(SYS_rt_sigaction, signal, nullptr, &action, kernel_set_size) != 0) continue;
        const bool ignored = action.handler == reinterpret_cast<void *>(SIG_IGN);
        if (action.handler == reinterpret_cast<void *>(SIG_DFL) ||
            (ignored && !(hears_interrupts && signal == SIGINT)))
            continue;
        action.handler = reinterpret_cast<void *>(SIG_DFL);
        for (unsigned long &each : action.rest)
            each = 0;
        ::syscall(SYS_rt_sigaction, signal, &action, nullptr, kernel_set_size);
    }
    const unsigned long none[_NSIG / 8 / sizeof(long)] = {};
    ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, none, nullptr, kernel_set_size);
}

// Descriptors 0 to 2 become the handles, and the others are closed; false with errno set.
KEL_BARE bool take_channels(const int *handles) {
    int top = channels - 1;
    for (int i = 0; i < channels; ++i)
        if (handles[i] > top) top = handles[i];
    // From here on the table is the child's own. It is copied up to what is needed of it.
    if (::syscall(SYS_close_range, top + 1, ~0U, CLOSE_RANGE_UNSHARE) != 0) return false;
    int from[channels];
    bool more = top >= channels;
    for (int i = 0; i < channels; ++i) {
        from[i] = handles[i];
        // One that another channel's place would overwrite moves out of the way.
        if (from[i] < 0 || from[i] >= channels || from[i] == i) continue;
        from[i] = static_cast<int>(::syscall(SYS_fcntl, handles[i], F_DUPFD, channels));
        if (from[i] < 0) return false;
        more = true;
    }
    for (int i = 0; i < channels; ++i) {
        if (from[i] < 0) continue;
        const long result =
            from[i] == i ? ::syscall(SYS_fcntl, i, F_SETFD, 0) : ::syscall(SYS_dup3, from[i], i, 0);
        if (result < 0) return false;
    }
    return !more || ::syscall(SYS_close_range, channels, ~0U, 0) == 0;
}

// Returns with errno set when none of them can be the program.
KEL_BARE void become_program(const launch_plan &plan) {
    bool refused = false;
    for (const char *const *program = plan.programs; *program; ++program) {
        ::syscall(SYS_execve, *program, plan.arguments, environ);
        if (errno == EACCES)
            refused = true;
        else if (errno != ENOENT && errno != ENOTDIR && errno != ENODEV && errno != ESTALE)
            return;
    }
    errno = refused ? EACCES : ENOENT;
}

KEL_BARE int run_child(void *argument) {
    launch_plan &plan = *static_cast<launch_plan *>(argument);
    if (!take_channels(plan.handles)) {
        plan.number = errno == EBADF ? wrong_argument : 0;
    } else if (plan.folder && ::syscall(SYS_chdir, plan.folder) != 0) {
        plan.number = errno == ENOENT ? no_such_folder : 0;
    } else {
        if (plan.options & btkLaunchSession)
            ::syscall(SYS_setsid);
        else if (plan.options & btkLaunchGroup)
            ::syscall(SYS_setpgid, 0, 0);
        // A shell has programs in the background ignore the interrupts of its terminal, which do not reach
        // another group; here they are meant for it.
        forget_signal_handlers(plan.options & btkLaunchGroup);
        become_program(plan);
    }
    plan.system_error = errno;
    for (;;)
        ::syscall(SYS_exit_group, 127);
}

// The parent -----------------------------------------------------------------------------------

// Keeps every signal from this thread, also those that the C library keeps for itself.
class deaf {
public:
    deaf() {
        unsigned long all[_NSIG / 8 / sizeof(long)];
        std::fill(std::begin(all), std::end(all), ~0UL);
        ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, all, m_before, kernel_set_size);
    }
    ~deaf() { ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, m_before, nullptr, kernel_set_size); }
    deaf(const deaf &) = delete;
    deaf &operator=(const deaf &) = delete;

private:
    unsigned long m_before[_NSIG / 8 / sizeof(long)];
};

// The id of the program's process, and its descriptor; 0 when there is none, as the plan tells.
int start_child(launch_plan &plan, kel::system::owned_descriptor &descriptor) {
    constexpr std::size_t stack_size = 8192;
    alignas(64) std::byte stack[stack_size];
    // Until it is a program, the child tells nobody of its end: a failure is not seen by those who wait for
    // children, nor do they take it away from here.
    constexpr int flags = CLONE_VM | CLONE_VFORK | CLONE_FILES | CLONE_PIDFD, no_signal = 0;
    int fd = -1, id;
    {
        const deaf while_it_borrows;
        id = ::__clone(run_child, stack + stack_size, flags | no_signal, &plan, &fd);
    }
    if (id < 0) {
        plan.system_error = errno;
        return 0;
    }
    descriptor.reset(fd);
    if (plan.system_error == 0) return id;
    kel::system::through_signals([&] {
        siginfo_t ignored;
        return ::waitid(static_cast<idtype_t>(P_PIDFD), static_cast<id_t>(fd), &ignored, WEXITED | __WALL);
    });
    return 0;
}

// A program without a separator in its name is looked for in PATH. What is relative is so to the caller's
// folder, wherever the child begins.
class candidates {
public:
    candidates(const char *program, bool other_folder) {
        const std::string path = btkHostPath(program);
        if (std::string_view(program).find_first_of("/\\:") != std::string_view::npos) {
            add(path, other_folder);
        } else {
            const char *variable = ::getenv("PATH");
            std::string_view left = variable ? variable : "/bin:/usr/bin";
            for (bool more = !path.empty(); more;) {
                const std::size_t end = left.find(':');
                const std::string_view folder = left.substr(0, end);
                more = end != left.npos;
                if (more) left.remove_prefix(end + 1);
                add(folder.empty() ? path : std::string(folder) + '/' + path, other_folder);
            }
        }
        for (const std::string &each : m_paths)
            m_pointers.push_back(each.c_str());
        m_pointers.push_back(nullptr);
    }
    const char *const *list() const { return m_pointers.data(); }

private:
    void add(std::string path, bool other_folder) {
        if (other_folder && !path.starts_with('/')) {
            char here[PATH_MAX];
            if (!::getcwd(here, sizeof here)) return;
            path = std::string(here) + '/' + path;
        }
        m_paths.push_back(std::move(path));
    }

    std::vector<std::string> m_paths;
    std::vector<const char *> m_pointers;
};

bool launch(btkProcessHandle *handle, unsigned long *id, const char *command_line,
            const char *working_directory, const int (&handles)[channels], unsigned options) {
    const char *shell = ::getenv("SHELL");
    const kel::detail::command_line words(command_line, shell ? shell : ::getenv("COMSPEC"));
    if (words.size() == 0 || *words.arguments()[0] == 0) {
        Error_SetLast(wrong_argument);
        return false;
    }
    const bool other_folder = kel::is_text(working_directory);
    const std::string folder = btkHostPath(working_directory);
    const candidates programs(words.arguments()[0], other_folder);
    kel::system::prepared_entry entry = kel::system::prepare_process();
    launch_plan plan{words.arguments(),
                     programs.list(),
                     other_folder ? folder.c_str() : nullptr,
                     {handles[0], handles[1], handles[2]},
                     options};
    kel::system::owned_descriptor descriptor;
    const int started = start_child(plan, descriptor);
    if (started == 0) {
        if (plan.number)
            Error_SetLast(plan.number);
        else
            Error_SetLastFromSystem(kel::system::fork_reason(plan.system_error));
        return false;
    }
    entry.front().id = started;
    entry.front().own_child = true;
    entry.front().own_group = options & btkLaunchGroup;
    *id = static_cast<unsigned long>(started);
    *handle = kel::system::remember_process(entry, std::move(descriptor));
    return true;
}

}  // namespace

bool Process_Launch(btkProcessHandle *handle, unsigned long *id, const char *command_line,
                    const char *working_directory, int in, int out, int err, unsigned options) {
    if (!handle || !id || !kel::is_text(command_line)) {
        Error_SetLast(wrong_argument);
        return false;
    }
    try {
        return launch(handle, id, command_line, working_directory, {in, out, err}, options);
    } catch (const std::bad_alloc &) {
        Error_SetLast(no_memory);
        return false;
    }
}
