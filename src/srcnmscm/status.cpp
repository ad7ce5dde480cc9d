// The status of a request, and the line that it prints.
#include <ostream>

#include <kelstdmt/nmsclib.h>

#include "runtime/names_status.h"

nmsClientStatus::nmsClientStatus(nmscReturnCode code, const char *host, int port, bool local,
                                 StatusOrigin origin)
    : m_code(code), m_host(host), m_port(port), m_local(local), m_origin(origin) {}

std::ostream &operator<<(std::ostream &out, const nmsClientStatus &status) {
    if (!out) return out;
    return out << kel::system::name_status_text(status.GetCode(), status.GetOrigin(), status.GetHost(),
                                                status.IsLocal(), status.GetPort())
               << std::endl;
}
