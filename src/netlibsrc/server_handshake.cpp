// The server's side of the handshake. It neither waits to read, since the loop has seen that there is
// something, nor to write, since an answer finds room in a new connection.
#include "netlibsrc/server_handshake.h"

#include <string>

#include <kelstdmt/netlib_server.h>

#include "netlibsrc/permission.h"
#include "netlibsrc/server_open.h"
#include "runtime/trace.h"

using kel::detail::grant;
using kel::detail::handshake;
using kel::system::trace, kel::system::trace_area;

namespace {

bool answer(btkStreamSocket &peer, grant told, const std::string &more = {}) {
    const std::string bytes = static_cast<char>(told) + more;
    const auto count = static_cast<unsigned>(bytes.size());
    return peer.SendNow(bytes.data(), count) == static_cast<int>(count);
}

}  // namespace

netServer *netServer::Create(const char *server_name, int port) {
    return Create(server_name, port, {});
}

netServer *netServer::Create(const char *server_name, int port, const kel::server_options &options) {
    auto socket = kel::detail::open_server(server_name, port, options);
    if (!socket) return nullptr;
    return kel::construct_with<netServer>(
        [&](void *at) { return ::new (at) netServer(std::move(socket), server_name, options); });
}

netServer::netServer(std::unique_ptr<btkAcceptSocket> socket, const char *server_name,
                     const kel::server_options &options)
    : netBaseServer(std::move(socket), server_name, options.is_registered, true),
      m_version("KEL netServer Version 0.99"),
      m_needs_list(options.needs_list),
      m_refused(options.refused) {}

netServer::~netServer() {
    Stop();
}

netServerLoopAction netServer::PreprocessRequest(btkStreamSocket *socket) {
    unsigned char byte = 0;
    const int handle = socket->GetHandle(), got = socket->RecvNow(&byte, 1);
    trace(trace_area::handshake, "connection ", handle, got == 1 ? " asks with byte " : " asks nothing, ",
          got == 1 ? byte : got);
    const handshake asked{byte};
    if (got != 1 || asked > handshake::shutdown) return netServerContinue;
    if (asked != handshake::alive && !kel::detail::is_peer_allowed(*socket, getServerName(), m_needs_list)) {
        trace(trace_area::handshake, "connection ", handle, " is refused");
        answer(*socket, grant::refused);
        if (m_refused) m_refused(socket->GetPeerAddrStr());
        return netServerContinue;
    }
    std::string more;
    if (asked == handshake::version) {
        more += static_cast<char>(m_version.GetSize());
        more.append(m_version.Str(), m_version.GetSize());
    }
    const bool sent = answer(*socket, grant::granted, more);
    trace(trace_area::handshake, "connection ", handle, sent ? " is granted" : " is gone before the answer");
    if (asked == handshake::shutdown) return netServerTerminate;
    return asked == handshake::connect && sent ? netServerDefault : netServerContinue;
}
