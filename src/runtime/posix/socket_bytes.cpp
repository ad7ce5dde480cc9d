#include "runtime/posix/socket_bytes.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "runtime/posix/waiting.h"

using namespace kel::system;

namespace kel::detail {

std::ptrdiff_t receive(btkStreamSocket &socket, char *to, std::size_t room, bool wait) {
    const int fd = socket.GetHandle();
    std::unique_ptr<urgent_input> &urgent = socket_access::urgent(socket);
    if (urgent && !urgent->is_idle()) return urgent->receive(fd, to, room, wait);
    const std::ptrdiff_t got = receive_some(fd, to, room, wait);
    if (got <= 0 || !urgent_input::is_announced(fd)) return got;
    if (!urgent) urgent = std::make_unique<urgent_input>();
    const std::ptrdiff_t held = std::min<std::ptrdiff_t>(got, urgent_input::held_size);
    urgent->hold(fd, to + (got - held), static_cast<std::size_t>(held));
    return got > held ? got - held : urgent->receive(fd, to, room, wait);
}

// Input can be all of a message, which is no input of the stream.
bool has_input(btkStreamSocket &socket) {
    std::unique_ptr<urgent_input> &urgent = socket_access::urgent(socket);
    if (!urgent) {
        if (!urgent_input::is_announced(socket.GetHandle())) return true;
        urgent = std::make_unique<urgent_input>();
    }
    return urgent->has_input(socket.GetHandle());
}

std::size_t send_all(int fd, std::string_view first, std::string_view second) {
    const std::size_t count = first.size() + second.size();
    std::size_t done = 0;
    while (done < count) {
        two_parts parts(first, second, done);
        msghdr message{};
        message.msg_iov = parts.parts;
        message.msg_iovlen = static_cast<std::size_t>(parts.count);
        const ssize_t sent = parts.count == 1
                                 ? ::send(fd, parts.parts[0].iov_base, parts.parts[0].iov_len, MSG_NOSIGNAL)
                                 : ::sendmsg(fd, &message, MSG_NOSIGNAL);
        if (sent >= 0) {
            done += static_cast<std::size_t>(sent);
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            pollfd request{fd, POLLOUT, 0};
            poll_until(&request, 1, unlimited, never);
        } else if (errno != EINTR) {
            Error_SetLastFromSystem(errno);
            break;
        }
    }
    return done;
}

}  // namespace kel::detail
