#include "runtime/trace_sink.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>

#include <kelstdmt/vumrt.h>

#include "runtime/owned_descriptor.h"
#include "runtime/posix/pipe_signal.h"
#include "runtime/posix/through_signals.h"
#include "runtime/posix/uncancelled.h"

const char *kel::system::trusted_environment(const char *name) noexcept {
    return ::secure_getenv(name);
}

long kel::system::thread_number() noexcept {
    return ::gettid();
}

bool kel::system::append_line(const char *path, std::string_view line) noexcept {
    const uncancelled scope;
    // A fifo that nobody reads is an error then, not a wait.
    constexpr int how = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    const owned_descriptor file(*path ? through_signals([&] { return ::open(path, how, 0600); }) : -1);
    if (*path && !file) {
        Error_SetLastFromSystem(errno);
        return false;
    }
    no_pipe_signal guard;
    const ssize_t written = through_signals(
        [&] { return ::write(*path ? file.get() : STDERR_FILENO, line.data(), line.size()); });
    if (written >= 0 || errno == EAGAIN) return true;
    if (errno == EPIPE) guard.caused();
    Error_SetLastFromSystem(errno);
    return false;
}
