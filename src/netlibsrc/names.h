// What servers and their clients ask the name server beside the public helpers.
#pragma once

#include <memory>

#include <kelstdmt/netlib_stream.h>
#include <kelstdmt/vumrt_names.h>
#include <kelstdmt/xstring.h>

namespace kel::detail {

struct name_server_release {
    void operator()(nmsServ *connection) const noexcept { nmsServDelete(connection); }
};
using name_server_connection = std::unique_ptr<nmsServ, name_server_release>;

// Throws netXException when there is no local name server, or the name is taken or cannot be registered.
void register_server(const xstring &name, int port);
void unregister_server(const xstring &name);

// The port of the address; one that the name server told is stored in it. Throws netXException when there is
// none.
int port_of(netAddress *address);

}  // namespace kel::detail
