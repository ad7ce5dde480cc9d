#include "runtime/posix/socket_address.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <limits.h>
#include <netdb.h>
#include <netinet/in.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace kel::system {

namespace {

constexpr int no_such_host = 11001, no_memory = 8;

// The system's records, read as what they are without a cast between them.
template <class Record>
Record record_of(const void *bytes) noexcept {
    Record record;
    std::memcpy(&record, bytes, sizeof record);
    return record;
}

template <class Record>
socket_address address_of(const Record &record) noexcept {
    socket_address address;
    std::memcpy(&address.storage, &record, sizeof record);
    address.size = sizeof record;
    return address;
}

detail::peer_address plain(const sockaddr *address) noexcept {
    detail::peer_address peer;
    if (address->sa_family == AF_INET) {
        const auto record = record_of<sockaddr_in>(address);
        peer.family = 4;
        peer.port = ntohs(record.sin_port);
        std::memcpy(peer.bytes, &record.sin_addr, sizeof record.sin_addr);
    } else if (address->sa_family == AF_INET6) {
        const auto record = record_of<sockaddr_in6>(address);
        const bool mapped = IN6_IS_ADDR_V4MAPPED(&record.sin6_addr);
        peer.family = mapped ? 4 : 6;
        peer.port = ntohs(record.sin6_port);
        if (mapped)
            std::memcpy(peer.bytes, record.sin6_addr.s6_addr + 12, 4);
        else
            std::memcpy(peer.bytes, &record.sin6_addr, sizeof record.sin6_addr);
    }
    return peer;
}

std::vector<socket_address> look_up(const char *host, int port, int flags, int &error) {
    char service[16];
    std::snprintf(service, sizeof service, "%d", port);
    addrinfo hints{}, *found = nullptr;
    hints.ai_flags = flags | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    error = ::getaddrinfo(host, service, &hints, &found);
    if (error != 0) return {};
    std::unique_ptr<addrinfo, void (*)(addrinfo *)> owner(found, ::freeaddrinfo);
    std::vector<socket_address> addresses;
    for (const addrinfo *entry = found; entry; entry = entry->ai_next) {
        if (entry->ai_family != AF_INET && entry->ai_family != AF_INET6) continue;
        socket_address &address = addresses.emplace_back();
        std::memcpy(&address.storage, entry->ai_addr, entry->ai_addrlen);
        address.size = entry->ai_addrlen;
    }
    return addresses;
}

}  // namespace

detail::peer_address plain(const socket_address &address) noexcept {
    return plain(address.get());
}

std::vector<socket_address> numeric_address(const char *text, int port) {
    int error = 0;
    return look_up(text, port, AI_NUMERICHOST, error);
}

std::vector<socket_address> loopback_addresses(int port) {
    sockaddr_in four{};
    four.sin_family = AF_INET;
    four.sin_port = htons(static_cast<in_port_t>(port));
    four.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    sockaddr_in6 six{};
    six.sin6_family = AF_INET6;
    six.sin6_port = four.sin_port;
    six.sin6_addr = in6addr_loopback;
    return {address_of(four), address_of(six)};
}

std::vector<socket_address> resolve(const char *host, int port) {
    int error = 0;
    std::vector<socket_address> addresses = look_up(host, port, AI_ADDRCONFIG, error);
    if (error == EAI_SYSTEM)
        Error_SetLastFromSystem(errno);
    else if (addresses.empty())
        Error_SetLast(error == EAI_MEMORY ? no_memory : no_such_host);
    return addresses;
}

bool is_name_of_this_machine(const char *host) noexcept {
    char own[HOST_NAME_MAX + 1] = "";
    return ::strcasecmp(host, "localhost") == 0 ||
           (::gethostname(own, sizeof own) == 0 && ::strcasecmp(host, own) == 0);
}

// The list of the machine's addresses is the dear question, so it comes last.
bool is_address_of_this_machine(const detail::peer_address &address, int connection) noexcept {
    auto same = [&](const detail::peer_address &other) {
        return other.family == address.family &&
               std::equal(std::begin(other.bytes), std::end(other.bytes), std::begin(address.bytes));
    };
    if (address.family == 0) return false;
    if (address.family == 4 && address.bytes[0] == IN_LOOPBACKNET) return true;
    if (address.family == 6 && same(plain(loopback_addresses(0)[1]))) return true;
    socket_address own;
    if (::getsockname(connection, own.room(), &own.size) == 0 && same(plain(own))) return true;
    ifaddrs *list = nullptr;
    if (::getifaddrs(&list) != 0) return false;
    std::unique_ptr<ifaddrs, void (*)(ifaddrs *)> owner(list, ::freeifaddrs);
    for (const ifaddrs *entry = list; entry; entry = entry->ifa_next)
        if (entry->ifa_addr && same(plain(entry->ifa_addr))) return true;
    return false;
}

}  // namespace kel::system
