// The beginning of every kind of server.
#pragma once

#include <memory>

#include <kelstdmt/netlib_server.h>

namespace kel::detail {

// Listens and, with a name and unless the options say otherwise, registers. Null when the port cannot be
// listened on; throws netXException when the name cannot be registered.
std::unique_ptr<btkAcceptSocket> open_server(const char *server_name, int port,
                                             const server_options &options = {});

}  // namespace kel::detail
