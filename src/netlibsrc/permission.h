// Which peers may use a server.
#pragma once

#include <kelstdmt/vumrt_socket.h>
#include <kelstdmt/xstring.h>

namespace kel::detail {

// Whether the lists of the registry let the peer in. Read anew each time. Where there is no list, needs_list
// refuses.
bool is_peer_allowed(const btkStreamSocket &peer, const xstring &server_name, bool needs_list);

}  // namespace kel::detail
