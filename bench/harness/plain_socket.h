// A connection with nothing around it, over the loopback address.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace bench {

inline void put_int(char *bytes, int value) {
    const std::uint32_t swapped = __builtin_bswap32(static_cast<std::uint32_t>(value));
    std::memcpy(bytes, &swapped, 4);
}
inline int int_of(const char *bytes) {
    std::uint32_t swapped;
    std::memcpy(&swapped, bytes, 4);
    return static_cast<int>(__builtin_bswap32(swapped));
}

struct Gone : std::runtime_error {
    Gone() : std::runtime_error("the peer is gone") {}
};

// A listening socket on a port that the system chooses, on all addresses of IPv4.
int listen_plainly(int &port);
int accept_plainly(int listener);  // -1 for a connection that is gone
int connect_plainly(int port);     // throws Gone
// Both of all the bytes; false when the peer is gone.
bool read_plainly(int descriptor, char *bytes, std::size_t count);
bool write_plainly(int descriptor, const char *bytes, std::size_t count);

}  // namespace bench
