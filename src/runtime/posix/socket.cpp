// Connections and listening sockets.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <linux/sock_diag.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "runtime/owned_descriptor.h"
#include "runtime/posix/socket_address.h"
#include "runtime/posix/socket_bytes.h"
#include "runtime/posix/socket_urgent.h"
#include "runtime/posix/through_signals.h"
#include "runtime/posix/waiting.h"

using namespace kel::system;
using kel::detail::urgent_input;

namespace {

constexpr int wrong_argument = 87, none_waits = 997;

}  // namespace

btkSocket::~btkSocket() {
    btkSocket::Close();
}

void btkSocket::Close() noexcept {
    owned_descriptor(std::exchange(m_fd, -1));
}

int btkSocket::Wait(const btkTimeval &timeout, int what) {
    const int interest = (what & ForInput ? int{btkPollIn} : 0) | (what & ForOutput ? int{btkPollOut} : 0);
    pollfd request = to_system({m_fd, static_cast<short>(interest)});
    const std::int64_t nanos = to_nanos(timeout);
    const int told = m_fd < 0 ? 1 : poll_until(&request, 1, nanos, deadline_in(nanos));
    if (told == 0) return -1;
    if (m_fd < 0 || told < 0 || request.revents & POLLNVAL) {
        Error_SetLastFromSystem(told < 0 ? errno : EBADF);
        return 0;
    }
    const unsigned got = from_system(request.revents);
    if (got & (btkPollError | btkPollHangup)) return what & (ForInput | ForOutput);
    return (got & btkPollIn ? int{ForInput} : 0) | (got & btkPollOut ? int{ForOutput} : 0);
}

// Connections ----------------------------------------------------------------------------------

btkStreamSocket::btkStreamSocket() = default;

btkStreamSocket::~btkStreamSocket() {
    btkStreamSocket::Close();
}

void btkStreamSocket::Take(int fd, const kel::detail::peer_address &peer) noexcept {
    Close();
    m_fd = fd;
    m_peer = peer;
}

void btkStreamSocket::Close() noexcept {
    if (m_fd < 0) return;
    // Bytes that were not read make the system cut the connection, and what was sent last may be lost with
    // it: those that are here are thrown away first. The plain call, because sanitizers take the wrapper for
    // one that writes somewhere.
    const int before = errno;
    constexpr std::size_t all = std::size_t{8} << 20;
    ::syscall(SYS_recvfrom, m_fd, nullptr, all, MSG_TRUNC | MSG_DONTWAIT, nullptr, nullptr);
    errno = before;
    btkSocket::Close();
    m_urgent.reset();
    m_peer = {};
    m_peer_text[0] = 0;
}

namespace {

// Whether a few bytes fit into what the system keeps for the peer, so that they are not torn.
bool has_room(int fd) noexcept {
    constexpr unsigned enough = 4096;
    unsigned info[SK_MEMINFO_VARS] = {};
    socklen_t size = sizeof info;
    return ::getsockopt(fd, SOL_SOCKET, SO_MEMINFO, info, &size) == 0 &&
           info[SK_MEMINFO_WMEM_QUEUED] + enough < info[SK_MEMINFO_SNDBUF];
}

}  // namespace

int btkStreamSocket::Send(const void *bytes, unsigned count) {
    const auto most = std::min<std::size_t>(count, INT_MAX);
    return static_cast<int>(kel::detail::send_all(m_fd, {static_cast<const char *>(bytes), most}, {}));
}

int btkStreamSocket::Recv(void *bytes, unsigned room) {
    const auto most = std::min<std::size_t>(room, INT_MAX);
    if (most == 0) return 0;
    return static_cast<int>(kel::detail::receive(*this, static_cast<char *>(bytes), most, true));
}

int btkStreamSocket::SendNow(const void *bytes, unsigned count) {
    const auto most = std::min<std::size_t>(count, INT_MAX);
    const ssize_t sent =
        through_signals([&] { return ::send(m_fd, bytes, most, MSG_NOSIGNAL | MSG_DONTWAIT); });
    if (sent >= 0) return static_cast<int>(sent);
    if (errno == EAGAIN || errno == EWOULDBLOCK) return 0;
    Error_SetLastFromSystem(errno);
    return -1;
}

int btkStreamSocket::RecvNow(void *bytes, unsigned room) {
    const auto most = std::min<std::size_t>(room, INT_MAX);
    if (most == 0) return 0;
    const auto got = kel::detail::receive(*this, static_cast<char *>(bytes), most, false);
    if (got == kel::detail::byte_channel::nothing_yet) Error_SetLast(none_waits);
    return static_cast<int>(std::max(got, kel::detail::byte_channel::failed));
}

int btkStreamSocket::SendOutOfBand(const void *bytes, unsigned count) {
    if (count != OutOfBandSize) {
        Error_SetLast(wrong_argument);
        return 0;
    }
    if (m_fd >= 0 && !has_room(m_fd)) {
        pollfd request{m_fd, POLLOUT, 0};
        poll_until(&request, 1, unlimited, never);
    }
    const ssize_t sent = through_signals([&] { return ::send(m_fd, bytes, count, MSG_OOB | MSG_NOSIGNAL); });
    if (sent < 0) Error_SetLastFromSystem(errno);
    return static_cast<int>(std::max<ssize_t>(sent, 0));
}

int btkStreamSocket::RecvOutOfBand(void *bytes, unsigned room) {
    if (room < OutOfBandSize) {
        Error_SetLast(wrong_argument);
        return 0;
    }
    if (!m_urgent) {
        if (!urgent_input::is_announced(m_fd)) return 0;
        m_urgent = std::make_unique<urgent_input>();
    }
    m_urgent->seek_message(m_fd);
    return m_urgent->take_message(static_cast<char *>(bytes)) ? int{OutOfBandSize} : 0;
}

bool btkStreamSocket::IsPeerOnTheSameMachine() const {
    return is_address_of_this_machine(m_peer, m_fd);
}

const char *btkStreamSocket::GetPeerAddrStr() const {
    if (!*m_peer_text && m_peer.family != 0)
        ::inet_ntop(m_peer.family == 4 ? AF_INET : AF_INET6, m_peer.bytes, m_peer_text, sizeof m_peer_text);
    return m_peer_text;
}

// Listening ------------------------------------------------------------------------------------

namespace {

// A listening socket, or none with errno set.
owned_descriptor listen_on(const socket_address &address) {
    owned_descriptor fd(::socket(address.family(), SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd) return {};
    const int on = 1, off = 0;
    ::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    // The connections inherit it.
    ::setsockopt(fd.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (address.family() == AF_INET6) ::setsockopt(fd.get(), IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
    if (::bind(fd.get(), address.get(), address.size) != 0 || ::listen(fd.get(), SOMAXCONN) != 0) return {};
    return fd;
}

// What else accept may tell is the matter of one connection that has gone wrong already.
bool is_of_one_connection(int error) {
    constexpr int list[] = {EINTR,  ECONNABORTED, EPROTO,     ENETDOWN,    ENOPROTOOPT, EHOSTDOWN,
                            ENONET, EHOSTUNREACH, EOPNOTSUPP, ENETUNREACH, ETIMEDOUT};
    return std::find(std::begin(list), std::end(list), error) != std::end(list);
}

}  // namespace

btkAcceptSocket::~btkAcceptSocket() {
    btkAcceptSocket::Close();
}

void btkAcceptSocket::Close() noexcept {
    btkSocket::Close();
    m_port = 0;
}

bool btkAcceptSocket::Listen(int port, const char *address) {
    Close();
    const bool everywhere = !kel::is_text(address) || !*address;
    const auto addresses = numeric_address(everywhere ? "::" : address, port);
    if (port < 0 || port > 65535 || addresses.empty()) {
        Error_SetLast(wrong_argument);
        return false;
    }
    owned_descriptor fd = listen_on(addresses[0]);
    // A machine without IPv6.
    if (!fd && everywhere && (errno == EAFNOSUPPORT || errno == EADDRNOTAVAIL))
        fd = listen_on(numeric_address("0.0.0.0", port)[0]);
    socket_address own;
    if (!fd || ::getsockname(fd.get(), own.room(), &own.size) != 0) {
        Error_SetLastFromSystem(errno);
        return false;
    }
    m_fd = fd.release();
    m_port = plain(own).port;
    return true;
}

bool btkAcceptSocket::Accept(btkStreamSocket &connection) {
    for (;;) {
        socket_address peer;
        const int fd = ::accept4(m_fd, peer.room(), &peer.size, SOCK_CLOEXEC);
        if (fd >= 0) {
            connection.Take(fd, plain(peer));
            return true;
        }
        if (is_of_one_connection(errno)) continue;
        Error_SetLastFromSystem(errno);
        if (errno == EAGAIN || errno == EWOULDBLOCK) Error_SetLast(none_waits);
        return false;
    }
}

void btkAcceptSocket::SetTakeSilent(bool on) noexcept {
    const int seconds = on ? 0 : 1;
    ::setsockopt(m_fd, IPPROTO_TCP, TCP_DEFER_ACCEPT, &seconds, sizeof seconds);
}
