// How a request to a name server that failed is told, the same for the plain functions and the client module.
#pragma once

#include <string>

namespace kel::system {

// One line without its end. The origin is 1 when the name server reported it, 0 when the client found it.
std::string name_status_text(int code, int origin, const char *host, bool local, int port);

}  // namespace kel::system
