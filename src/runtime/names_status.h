// The words for requests to a name server, the same for the plain functions and the client module.
#pragma once

#include <string>

#include <kelstdmt/vumrt_names.h>

namespace kel::system {

const char *name_request_text(name_request request) noexcept;
// For a failure: one line without its end. The origin is 1 when the name server reported it, 0 when the
// client found it.
std::string name_status_text(int code, int origin, const char *host, bool local, int port);

}  // namespace kel::system
