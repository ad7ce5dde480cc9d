// Writing to a pipe that nobody reads, without the signal that it raises.
#pragma once

#include <signal.h>

#include <cerrno>

#include "runtime/posix/through_signals.h"
#include "runtime/posix/uncancelled.h"

namespace kel::system {

// While one lives, a write by this thread to a pipe that nobody reads raises no signal. The program's own
// handling of SIGPIPE, its other threads and signals sent by others are left as they are: the signal is
// blocked here, and only one that our write caused is taken away.
class no_pipe_signal {
public:
    no_pipe_signal() noexcept {
        ::sigemptyset(&m_pipe);
        ::sigaddset(&m_pipe, SIGPIPE);
        ::pthread_sigmask(SIG_BLOCK, &m_pipe, &m_before);
        // Only a thread that had it blocked can have one waiting already.
        m_was_blocked = ::sigismember(&m_before, SIGPIPE) == 1;
        sigset_t pending;
        m_was_pending = m_was_blocked && ::sigpending(&pending) == 0 && ::sigismember(&pending, SIGPIPE) == 1;
    }
    ~no_pipe_signal() {
        const uncancelled scope;
        int saved = errno;
        if (m_caused && !m_was_pending) {
            timespec at_once{};
            through_signals([&] { return ::sigtimedwait(&m_pipe, nullptr, &at_once); });
        }
        if (!m_was_blocked) ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
        errno = saved;
    }
    no_pipe_signal(const no_pipe_signal &) = delete;
    no_pipe_signal &operator=(const no_pipe_signal &) = delete;

    void caused() noexcept { m_caused = true; }

private:
    sigset_t m_pipe, m_before;
    bool m_was_blocked = false, m_was_pending = false, m_caused = false;
};

}  // namespace kel::system
