#include "plain.h"

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

PlainClient::PlainClient(int port, Later) : m_descriptor(connect_plainly(port)) {
    const char hello = 0;
    put(&hello, 1);
}

PlainClient::~PlainClient() {
    if (m_descriptor >= 0) close(m_descriptor);
}

void PlainClient::await_grant() {
    char grant = 0;
    if (!read_plainly(m_descriptor, &grant, 1) || grant != 1) throw Gone();
}

void PlainClient::ask_later(int value) {
    char bytes[4];
    put_int(bytes, value);
    put(bytes, 4);
}

void PlainClient::put(const char *bytes, std::size_t count) {
    if (!write_plainly(m_descriptor, bytes, count)) throw Gone();
}

int PlainClient::answer() {
    char bytes[4];
    if (!read_plainly(m_descriptor, bytes, 4)) throw Gone();
    return int_of(bytes);
}

}  // namespace bench
