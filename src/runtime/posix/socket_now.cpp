// Sockets that are not waited on: what a server of many connections sends and receives on one thread.
#include <sys/socket.h>

#include <cerrno>

#include <kelstdmt/vumrt_socket.h>

#include "runtime/posix/through_signals.h"

namespace {

constexpr int nothing_yet = 997;

bool would_wait() noexcept {
    return errno == EAGAIN || errno == EWOULDBLOCK;
}

}  // namespace

int btkStreamSocket::SendNow(const void *bytes, unsigned count) {
    const ssize_t sent =
        kel::system::through_signals([&] { return ::send(m_fd, bytes, count, MSG_DONTWAIT | MSG_NOSIGNAL); });
    if (sent >= 0) return static_cast<int>(sent);
    if (would_wait()) return 0;
    Error_SetLastFromSystem(errno);
    return -1;
}

int btkStreamSocket::RecvNow(void *bytes, unsigned room) {
    const ssize_t got = kel::system::through_signals([&] { return ::recv(m_fd, bytes, room, MSG_DONTWAIT); });
    if (got >= 0) return static_cast<int>(got);
    if (would_wait())
        Error_SetLast(nothing_yet);
    else
        Error_SetLastFromSystem(errno);
    return -1;
}
