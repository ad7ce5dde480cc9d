// The byte that begins a connection to a netServer, and the byte that answers it.
#pragma once

namespace kel::detail {

enum class handshake : unsigned char { connect, alive, version, shutdown };
enum class grant : unsigned char { refused, granted };

}  // namespace kel::detail
