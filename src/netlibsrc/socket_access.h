// What stands underneath a socket stream, for those who read and write the connection without the stream.
#pragma once

#include <kelstdmt/netlib_stream.h>

namespace kel::detail {

// For an open stream.
struct socket_stream_access {
    static btkStreamSocket &socket(netSocketStream &stream) noexcept;
    static xsocketbuf &buffer(netSocketStream &stream) noexcept;
};

}  // namespace kel::detail
