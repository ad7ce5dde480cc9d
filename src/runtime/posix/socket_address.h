// Addresses of the network: what a host name leads to, and which addresses are this machine's.
#pragma once

#include <sys/socket.h>

#include <vector>

#include <kelstdmt/vumrt_socket.h>

namespace kel::system {

struct socket_address {
    sockaddr_storage storage{};
    socklen_t size = 0;

    const sockaddr *get() const noexcept { return reinterpret_cast<const sockaddr *>(&storage); }
    sockaddr *room() noexcept {
        size = sizeof storage;
        return reinterpret_cast<sockaddr *>(&storage);
    }
    int family() const noexcept { return storage.ss_family; }
};

// A mapped address of IPv4 is one of IPv4.
detail::peer_address plain(const socket_address &address) noexcept;

std::vector<socket_address> numeric_address(const char *text, int port);  // none or one
std::vector<socket_address> loopback_addresses(int port);
// Asks the system, which may take its time. None, with the last error set, when there are none.
std::vector<socket_address> resolve(const char *host, int port);

bool is_name_of_this_machine(const char *host) noexcept;
bool is_address_of_this_machine(const detail::peer_address &address, int connection) noexcept;

}  // namespace kel::system
