// The clients' side: connections to a server, and the handshake that netServer begins them with. It speaks
// over the socket itself, so nothing is read ahead of the stream that follows.
#include <kelstdmt/netlib_server.h>

#include "netlibsrc/deadline.h"
#include "netlibsrc/names.h"
#include "netlibsrc/server_handshake.h"
#include "runtime/trace.h"

using kel::detail::deadline;
using kel::detail::grant;
using kel::detail::handshake;
using kel::system::trace, kel::system::trace_area;

namespace {

constexpr int time_ran_out = 1460;
constexpr const char *refused = "Connection refused",
                     *lack_of_rights = "Connection refused due to lack of rights";

class conversation {
public:
    // The time begins when the port is known.
    conversation(netAddress *address, double timeout)
        : m_port(kel::detail::port_of(address)),
          m_until(timeout),
          m_socket(std::make_unique<btkStreamSocket>()) {
        const xstring host = address->getHostName();
        if (m_socket->Connect(host, m_port, m_until.left())) {
            trace(trace_area::handshake, "connected to ", host.Str(), " port ", m_port);
        } else {
            trace(trace_area::handshake, "no connection to ", host.Str(), " port ", m_port, ": error ",
                  Error_GetLast());
            m_socket.reset();
        }
    }

    bool IsConnected() const noexcept { return m_socket != nullptr; }
    // Whether there was an answer.
    bool Ask(handshake asked, grant &told) {
        const bool is_answered = m_socket->Send(&asked, 1) == 1 && Read(&told, 1);
        trace(trace_area::handshake, "asked with byte ", static_cast<int>(asked), ", answered ",
              is_answered ? "with byte " : "nothing, error ",
              is_answered ? static_cast<int>(told) : Error_GetLast());
        return is_answered;
    }
    // All of the bytes.
    bool Read(void *bytes, unsigned count) {
        for (auto *to = static_cast<char *>(bytes); count > 0;) {
            const int told = m_socket->Wait(m_until.left(), btkSocket::ForInput);
            if (told < 0) Error_SetLast(time_ran_out);
            const int got = told > 0 ? m_socket->Recv(to, count) : 0;
            if (got <= 0) return false;
            to += got;
            count -= static_cast<unsigned>(got);
        }
        return true;
    }
    netSocketStream *Stream() {
        return m_socket ? kel::construct<netSocketStream>(std::move(m_socket)) : nullptr;
    }

private:
    int m_port;
    deadline m_until;
    std::unique_ptr<btkStreamSocket> m_socket;
};

void require(bool is_granted, const char *otherwise = lack_of_rights) {
    if (!is_granted) netXException::Throw(netConnectionRefused, otherwise);
}

}  // namespace

netSocketStream *netBaseServer::Connect(netAddress *address, double timeout) {
    return conversation(address, timeout).Stream();
}

netSocketStream *netServer::Connect(netAddress *address, double timeout) {
    conversation server(address, timeout);
    grant told{};
    if (!server.IsConnected() || !server.Ask(handshake::connect, told)) return nullptr;
    require(told == grant::granted);
    return server.Stream();
}

unsigned char netServer::IsAlive(netAddress *address, double timeout) {
    conversation server(address, timeout);
    grant told{};
    return server.IsConnected() && server.Ask(handshake::alive, told) && told == grant::granted;
}

xstring netServer::GetVersion(netAddress *address, double timeout) {
    conversation server(address, timeout);
    require(server.IsConnected(), refused);
    grant told{};
    require(server.Ask(handshake::version, told) && told == grant::granted);
    unsigned char size = 0;
    char text[256] = "";
    require(server.Read(&size, 1) && server.Read(text, size), refused);
    return text;
}

void netServer::Shutdown(netAddress *address, double timeout) {
    conversation server(address, timeout);
    if (!server.IsConnected()) return;
    grant told{};
    require(server.Ask(handshake::shutdown, told) && told == grant::granted);
}
