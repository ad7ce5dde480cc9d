#include "runtime/posix/socket_urgent.h"

#include <sys/ioctl.h>
#include <sys/socket.h>

#include <linux/sockios.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "runtime/posix/descriptor.h"
#include "runtime/posix/through_signals.h"
#include "runtime/posix/waiting.h"

using namespace kel::system;

namespace kel::detail {

namespace {

constexpr std::size_t piece = 16384;
// Messages that nobody takes: beyond this the oldest are forgotten.
constexpr std::size_t most_messages = 65536;
constexpr btkTimeval patience(1, 0);

bool is_at_mark(int fd) noexcept {
    int at_mark = 0;
    return ::ioctl(fd, SIOCATMARK, &at_mark) == 0 && at_mark;
}

bool would_wait() noexcept {
    return errno == EAGAIN || errno == EWOULDBLOCK;
}

void wait_for(int fd, int events, std::int64_t nanos) noexcept {
    pollfd request{fd, static_cast<short>(events), 0};
    poll_until(&request, 1, nanos, deadline_in(nanos));
}

}  // namespace

std::ptrdiff_t receive_some(int fd, char *to, std::size_t room, bool wait) noexcept {
    for (;;) {
        const ssize_t got = through_signals([&] { return ::recv(fd, to, room, wait ? 0 : MSG_DONTWAIT); });
        if (got >= 0) return got;
        if (!would_wait()) {
            Error_SetLastFromSystem(errno);
            return byte_channel::failed;
        }
        if (!wait) return byte_channel::nothing_yet;
        wait_for(fd, POLLIN, unlimited);
    }
}

bool urgent_input::is_announced(int fd) noexcept {
    char byte;
    const ssize_t got = ::recv(fd, &byte, 1, MSG_OOB | MSG_PEEK | MSG_DONTWAIT);
    return got > 0 || (got < 0 && would_wait());
}

void urgent_input::hold(int fd, const char *bytes, std::size_t count) {
    m_bytes.append(bytes, count);
    settle(fd);
}

// After a read: what of the bytes may belong to a message, and the message if its mark is reached.
void urgent_input::settle(int fd) {
    m_held = 0;
    if (!is_announced(fd)) return;
    m_held = std::min(held_size, m_bytes.size() - m_begin);
    m_at_mark = is_at_mark(fd);
    if (m_at_mark) take_last_byte(fd, false);
}

// Positive when the mark is passed.
std::ptrdiff_t urgent_input::take_last_byte(int fd, bool wait) {
    for (;;) {
        char byte;
        const ssize_t got = ::recv(fd, &byte, 1, MSG_OOB | MSG_DONTWAIT);
        if (got < 0 && would_wait()) {
            if (!wait) return byte_channel::nothing_yet;
            wait_for(fd, POLLPRI | POLLRDHUP, unlimited);
            continue;
        }
        // A byte that never comes, or one that stands alone, is no message of ours.
        if (got == 1 && m_held == held_size) {
            if (m_messages.size() >= most_messages) m_messages.erase(0, message_size);
            m_messages.append(m_bytes, m_bytes.size() - held_size).push_back(byte);
            m_bytes.resize(m_bytes.size() - held_size);
        }
        m_held = 0;
        m_at_mark = false;
        forget_taken();
        return 1;
    }
}

void urgent_input::forget_taken() noexcept {
    if (m_begin < m_bytes.size()) return;
    m_bytes.clear();
    m_begin = 0;
}

// Positive when something has changed.
std::ptrdiff_t urgent_input::fill(int fd, bool wait) {
    if (m_at_mark) return take_last_byte(fd, wait);
    m_bytes.erase(0, m_begin);
    m_begin = 0;
    const std::size_t before = m_bytes.size();
    m_bytes.resize(before + piece);
    const std::ptrdiff_t got = receive_some(fd, m_bytes.data() + before, piece, wait);
    m_bytes.resize(before + static_cast<std::size_t>(std::max<std::ptrdiff_t>(got, 0)));
    if (got > 0) settle(fd);
    return got;
}

std::ptrdiff_t urgent_input::receive(int fd, char *to, std::size_t room, bool wait) {
    while (!has_ready()) {
        const std::ptrdiff_t got = fill(fd, wait);
        if (got > 0) continue;
        // After the end no message comes any more.
        if (got != byte_channel::nothing_yet && m_held > 0)
            m_held = 0;
        else
            return got;
    }
    const std::size_t count = std::min(room, m_bytes.size() - m_begin - m_held);
    std::memcpy(to, m_bytes.data() + m_begin, count);
    m_begin += count;
    forget_taken();
    return static_cast<std::ptrdiff_t>(count);
}

void urgent_input::seek_message(int fd) {
    while (!has_message() && (m_at_mark || is_announced(fd))) {
        const std::ptrdiff_t got = fill(fd, false);
        if (got == byte_channel::nothing_yet) {
            // All of it was sent at once: what is missing is on its way, or the peer is gone.
            pollfd request{fd, static_cast<short>(m_at_mark ? POLLPRI | POLLRDHUP : POLLIN), 0};
            const std::int64_t nanos = to_nanos(patience);
            if (poll_until(&request, 1, nanos, deadline_in(nanos)) <= 0) return;
        } else if (got <= 0) {
            return;
        }
    }
}

bool urgent_input::take_message(char *to) noexcept {
    if (!has_message()) return false;
    std::memcpy(to, m_messages.data(), message_size);
    m_messages.erase(0, message_size);
    return true;
}

bool urgent_input::has_input(int fd) {
    if (is_idle() && !is_announced(fd)) return true;
    while (!has_ready()) {
        const std::ptrdiff_t got = fill(fd, false);
        if (got <= 0) return got != byte_channel::nothing_yet;
    }
    return true;
}

}  // namespace kel::detail
