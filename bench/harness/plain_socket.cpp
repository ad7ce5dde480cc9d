#include "plain_socket.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {
namespace {

sockaddr_in place_of(in_addr_t address, int port) {
    sockaddr_in place = {};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(address);
    place.sin_port = htons(static_cast<in_port_t>(port));
    return place;
}

}  // namespace

int listen_plainly(int &port) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in place = place_of(INADDR_ANY, 0);
    socklen_t size = sizeof place;
    auto *generic = reinterpret_cast<sockaddr *>(&place);
    if (bind(descriptor, generic, size) != 0 || listen(descriptor, SOMAXCONN) != 0 ||
        getsockname(descriptor, generic, &size) != 0)
        throw Gone();
    port = ntohs(place.sin_port);
    return descriptor;
}

int accept_plainly(int listener) {
    const int descriptor = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC), on = 1;
    if (descriptor >= 0) setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return descriptor;
}

int connect_plainly(int port) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), on = 1;
    const sockaddr_in place = place_of(INADDR_LOOPBACK, port);
    if (descriptor >= 0 &&
        connect(descriptor, reinterpret_cast<const sockaddr *>(&place), sizeof place) == 0) {
        setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        return descriptor;
    }
    if (descriptor >= 0) close(descriptor);
    throw Gone();
}

bool read_plainly(int descriptor, char *bytes, std::size_t count) {
    while (count) {
        const ssize_t came = recv(descriptor, bytes, count, 0);
        if (came <= 0) return false;
        bytes += came;
        count -= static_cast<std::size_t>(came);
    }
    return true;
}

bool write_plainly(int descriptor, const char *bytes, std::size_t count) {
    while (count) {
        const ssize_t gone = send(descriptor, bytes, count, MSG_NOSIGNAL);
        if (gone <= 0) return false;
        bytes += gone;
        count -= static_cast<std::size_t>(gone);
    }
    return true;
}

}  // namespace bench
