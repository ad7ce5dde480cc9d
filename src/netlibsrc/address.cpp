// Addresses of servers, and the exception of the network module.
#include <utility>

#include <kelstdmt/netlib_stream.h>
#include <kelstdmt/syslib.h>

netAddress *netAddress::Create(xstring host, int port, xstring server_name) {
    return kel::construct_with<netAddress>(
        [&](void *at) { return ::new (at) netAddress(std::move(host), port, std::move(server_name)); });
}

namespace {

xstring host_of(const char *host) {
    return kel::is_text(host) ? xstring(host) : sysGetCurHostName();
}

}  // namespace

netAddress *netAddress::Create(int port, const char *host) {
    return Create(host_of(host), port == kel::nil_int ? 0 : port, xstring(xstrNullStr));
}

netAddress *netAddress::Create(const char *server_name, const char *host) {
    return Create(host_of(host), 0, xstring(kel::is_text(server_name) ? server_name : xstrNullStr));
}

netXException *netXException::Create(netError error, const char *message) {
    return kel::construct_with<netXException>(
        [&](void *at) { return ::new (at) netXException(error, message); });
}

void netXException::Throw(netError error, const char *message) {
    xthrow(Create(error, message));
}
