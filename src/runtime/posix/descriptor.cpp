#include "runtime/posix/descriptor.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <kelstdmt/vumrt.h>

namespace kel::system {

namespace {

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
        int saved = errno;
        if (m_caused && !m_was_pending) {
            timespec at_once{};
            while (::sigtimedwait(&m_pipe, nullptr, &at_once) < 0 && errno == EINTR) {
            }
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

void wait_for(int fd, short events) {
    pollfd request{fd, events, 0};
    ::poll(&request, 1, -1);
}

}  // namespace

std::size_t write_all(int fd, const char *bytes, std::size_t count) noexcept {
    no_pipe_signal guard;
    std::size_t done = 0;
    while (done < count) {
        ssize_t written = ::write(fd, bytes + done, count - done);
        if (written >= 0) {
            done += static_cast<std::size_t>(written);
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            wait_for(fd, POLLOUT);
        } else if (errno != EINTR) {
            if (errno == EPIPE) guard.caused();
            Error_SetLastFromSystem(errno);
            break;
        }
    }
    return done;
}

std::ptrdiff_t read_some(int fd, char *bytes, std::size_t count) noexcept {
    for (;;) {
        ssize_t got = ::read(fd, bytes, count);
        if (got >= 0) return got;
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            wait_for(fd, POLLIN);
        } else if (errno != EINTR) {
            Error_SetLastFromSystem(errno);
            return -1;
        }
    }
}

}  // namespace kel::system

namespace kel::detail {

namespace {

constexpr std::size_t usual_size = 65536;
constexpr std::size_t largest_size = std::size_t{1} << 26;
// A trial takes in until this many bytes wait. Without a limit a fast writer would fill the memory of a
// reader that tries before every read; a trial that still needs more is helped by the next one.
constexpr std::size_t read_ahead_limit = 4 * usual_size;
constexpr std::size_t least_room = 4096;

}  // namespace

descriptor_buffer::descriptor_buffer(int fd, bool through)
    : m_link(std::make_shared<link>(link{this})), m_size(usual_size), m_fd(fd), m_through(through) {}

descriptor_buffer::~descriptor_buffer() {
    flush_out();
    m_link->buffer = nullptr;
}

void descriptor_buffer::set_size(std::size_t bytes) noexcept {
    if (!m_in && !m_out) m_size = std::clamp(bytes, std::size_t{1}, largest_size);
}

// Input ----------------------------------------------------------------------------------------

descriptor_buffer::int_type descriptor_buffer::underflow() {
    if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
    // An end that was met ahead of a reader is told once: a terminal goes on after its end, a pipe tells it
    // again.
    if (std::exchange(m_end_met, false)) return traits_type::eof();
    if (m_in_size != m_size) {
        m_in.reset();
        setg(nullptr, nullptr, nullptr);
        m_in_size = 0;
        m_in = std::make_unique_for_overwrite<char[]>(m_size);
        m_in_size = m_size;
        setg(m_in.get(), m_in.get(), m_in.get());  // an area that is there and empty tells the end
    }
    std::ptrdiff_t got = system::read_some(m_fd, m_in.get(), m_in_size);
    if (got <= 0) return traits_type::eof();
    m_received += static_cast<std::uint64_t>(got);
    setg(m_in.get(), m_in.get(), m_in.get() + got);
    return traits_type::to_int_type(*gptr());
}

std::streamsize descriptor_buffer::xsgetn(char *to, std::streamsize count) {
    std::streamsize done = 0;
    while (done < count) {
        if (std::streamsize ready = std::min<std::streamsize>(egptr() - gptr(), count - done); ready > 0) {
            std::memcpy(to + done, gptr(), static_cast<std::size_t>(ready));
            setg(eback(), gptr() + ready, egptr());
            done += ready;
        } else if (auto wanted = static_cast<std::size_t>(count - done); wanted >= m_size && !m_end_met) {
            std::ptrdiff_t got = system::read_some(m_fd, to + done, wanted);
            if (got <= 0) break;
            m_received += static_cast<std::uint64_t>(got);
            done += got;
        } else if (traits_type::eq_int_type(underflow(), traits_type::eof())) {
            break;
        }
    }
    // Fewer bytes than asked do not tell the end, so the next who reads is told, without asking again.
    if (done > 0 && done < count) m_end_met = true;
    return done;
}

// Makes room behind the unread bytes. Moves them only when at least half as many were read since they
// were last moved, so that the moves cost a constant share of the reads.
void descriptor_buffer::make_room() {
    std::size_t begin = m_in ? static_cast<std::size_t>(gptr() - m_in.get()) : 0, unread = unread_count();
    if (m_in && m_in_size - begin - unread >= std::min(least_room, m_in_size)) return;
    if (m_in && unread <= 2 * begin) {
        std::memmove(m_in.get(), gptr(), unread);
    } else {
        std::size_t larger = std::max(2 * m_in_size, m_size);
        auto grown = std::make_unique_for_overwrite<char[]>(larger);
        if (unread > 0) std::memcpy(grown.get(), gptr(), unread);
        m_in = std::move(grown);
        m_in_size = larger;
    }
    setg(m_in.get(), m_in.get(), m_in.get() + unread);
}

void descriptor_buffer::take_in() {
    std::uint64_t consumed = m_received - unread_count();
    // Nothing was read since the last trial: it had too little, so this one may take more.
    bool again = consumed == std::exchange(m_consumed_at_trial, consumed);
    std::size_t enough = again ? unread_count() + read_ahead_limit : read_ahead_limit;
    while (!m_end_met && unread_count() < enough) {
        pollfd request{m_fd, POLLIN, 0};
        int told = ::poll(&request, 1, 0);
        if (told < 0 && errno == EINTR) continue;
        if (told <= 0) return;
        make_room();
        ssize_t got = ::read(m_fd, egptr(), static_cast<std::size_t>(m_in.get() + m_in_size - egptr()));
        if (got > 0) {
            m_received += static_cast<std::uint64_t>(got);
            setg(eback(), gptr(), egptr() + got);
        } else if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            return;
        } else if (got == 0 || errno != EINTR) {
            m_end_met = true;
        }
    }
}

// Output ---------------------------------------------------------------------------------------

std::size_t descriptor_buffer::to_system(const char *bytes, std::size_t count) {
    return count == 0 ? 0 : system::write_all(m_fd, bytes, count);
}

bool descriptor_buffer::flush_out() {
    auto waiting = static_cast<std::size_t>(pptr() - pbase());
    if (waiting == 0) return true;
    std::size_t written = to_system(pbase(), waiting);
    std::memmove(m_out.get(), pbase() + written, waiting - written);
    setp(m_out.get(), m_out.get() + m_size);
    pbump(static_cast<int>(waiting - written));
    return written == waiting;
}

std::streamsize descriptor_buffer::xsputn(const char *from, std::streamsize count) {
    if (count <= 0) return 0;
    auto bytes = static_cast<std::size_t>(count);
    if (m_through) return static_cast<std::streamsize>(to_system(from, bytes));
    if (!m_out) {
        m_out = std::make_unique_for_overwrite<char[]>(m_size);
        setp(m_out.get(), m_out.get() + m_size);
    }
    if (count > epptr() - pptr()) {
        if (!flush_out()) return 0;
        if (bytes >= m_size) return static_cast<std::streamsize>(to_system(from, bytes));
    }
    std::memcpy(pptr(), from, bytes);
    pbump(static_cast<int>(count));
    return count;
}

descriptor_buffer::int_type descriptor_buffer::overflow(int_type character) {
    if (traits_type::eq_int_type(character, traits_type::eof()))
        return flush_out() ? traits_type::not_eof(character) : traits_type::eof();
    char byte = traits_type::to_char_type(character);
    return xsputn(&byte, 1) == 1 ? character : traits_type::eof();
}

int descriptor_buffer::sync() {
    return flush_out() ? 0 : -1;
}

}  // namespace kel::detail
