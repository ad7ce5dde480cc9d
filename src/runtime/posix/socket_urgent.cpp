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
// More than a receive buffer holds: a mark that is not met by then is moved on by a peer that sends one
// message after the other.
constexpr std::size_t farthest_mark = std::size_t{16} << 20;

bool is_at_mark(int fd) noexcept {
    int at_mark = 0;
    return ::ioctl(fd, SIOCATMARK, &at_mark) == 0 && at_mark;
}

bool would_wait() noexcept {
    return errno == EAGAIN || errno == EWOULDBLOCK;
}

// False when the time ran out.
bool wait_for_input(int fd, std::int64_t deadline) {
    pollfd request{fd, POLLIN, 0};
    return poll_until(&request, 1, left_until(deadline), deadline) > 0;
}

void keep_in_place(int fd, bool on) noexcept {
    const int value = on;
    ::setsockopt(fd, SOL_SOCKET, SO_OOBINLINE, &value, sizeof value);
}

}  // namespace

std::ptrdiff_t receive_some(int fd, char *to, std::size_t room, bool wait) {
    for (;;) {
        const ssize_t got = through_signals([&] { return ::recv(fd, to, room, wait ? 0 : MSG_DONTWAIT); });
        if (got >= 0) return got;
        if (!would_wait()) {
            Error_SetLastFromSystem(errno);
            return byte_channel::failed;
        }
        if (!wait) return byte_channel::nothing_yet;
        wait_for_input(fd, never);
    }
}

bool urgent_input::is_announced(int fd) {
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

// Positive when the mark is passed. The system's own copy of the urgent byte may be here before the byte is
// in its place, after a loss, and whoever answers then has the peer overtake it. So the byte is read in its
// place.
std::ptrdiff_t urgent_input::take_last_byte(int fd, bool wait) {
    keep_in_place(fd, true);
    char byte;
    const std::ptrdiff_t got = receive_some(fd, &byte, 1, wait);
    if (got == byte_channel::nothing_yet) return got;
    keep_in_place(fd, false);
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
    const std::int64_t deadline = deadline_in(to_nanos(patience));
    while (!has_message() && (m_at_mark || is_announced(fd)) && m_bytes.size() - m_begin < farthest_mark) {
        const std::ptrdiff_t got = fill(fd, false);
        if (got == byte_channel::nothing_yet) {
            // All of it was sent at once: what is missing is on its way, or the peer is gone.
            if (!wait_for_input(fd, deadline)) return;
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
