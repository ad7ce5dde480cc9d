// Bytes in and out of a connection, for the socket and for the buffer over it.
#pragma once

#include <string_view>

#include "runtime/posix/descriptor.h"
#include "runtime/posix/socket_urgent.h"

namespace kel::detail {

struct socket_access {
    static std::unique_ptr<urgent_input> &urgent(btkStreamSocket &socket) noexcept { return socket.m_urgent; }
};

// As byte_channel.
std::ptrdiff_t receive(btkStreamSocket &socket, char *to, std::size_t room, bool wait);
bool has_input(btkStreamSocket &socket);
std::size_t send_all(int fd, std::string_view first, std::string_view second);

}  // namespace kel::detail
