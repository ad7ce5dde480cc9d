// A connection as a stream.
#include <cstdint>
#include <utility>

#include "netlibsrc/socket_access.h"

// The buffer goes first and flushes.
struct netSocketStream::connection {
    explicit connection(std::unique_ptr<btkStreamSocket> from) : socket(std::move(from)), buffer(*socket) {}
    std::unique_ptr<btkStreamSocket> socket;
    xsocketbuf buffer;
};

btkStreamSocket &kel::detail::socket_stream_access::socket(netSocketStream &stream) noexcept {
    return *stream.m_connection->socket;
}
xsocketbuf &kel::detail::socket_stream_access::buffer(netSocketStream &stream) noexcept {
    return stream.m_connection->buffer;
}

netSocketStream::netSocketStream(std::unique_ptr<btkStreamSocket> socket)
    : netSocketStream(std::make_unique<connection>(std::move(socket))) {}

netSocketStream::netSocketStream(std::unique_ptr<connection> owned)
    : ioStream(ioSerializer::getXDR(), &owned->buffer, true, true), m_connection(std::move(owned)) {}

netSocketStream::~netSocketStream() {
    Close();
}

void netSocketStream::OnClose() {
    Flush();
    m_connection.reset();
}

int netSocketStream::GetInheritHandle() {
    return m_connection ? m_connection->socket->GetHandle() : -1;
}

xstring netSocketStream::getPeer() const {
    return m_connection ? m_connection->socket->GetPeerAddrStr() : "";
}

bool netSocketStream::IsPeerOnTheSameMachine() const {
    return m_connection && m_connection->socket->IsPeerOnTheSameMachine();
}

// Out-of-band ints: XDR, the most significant byte first -----------------------------------------------

ioEvent *netSocketStream::OutOfBandEvent() {
    CheckOpen();
    return CreateEvent(m_connection->buffer.GetOutOfBandEvent(), static_cast<ioEventType>(2));
}

unsigned char netSocketStream::WriteOutOfBand(int value) {
    CheckOpen();
    unsigned char bytes[btkStreamSocket::OutOfBandSize];
    auto rest = static_cast<std::uint32_t>(value);
    for (unsigned at = sizeof bytes; at-- > 0; rest >>= 8)
        bytes[at] = static_cast<unsigned char>(rest);
    return m_connection->socket->SendOutOfBand(bytes, sizeof bytes) == sizeof bytes;
}

int netSocketStream::ReadOutOfBand() {
    unsigned char bytes[btkStreamSocket::OutOfBandSize];
    if (!m_connection || m_connection->socket->RecvOutOfBand(bytes, sizeof bytes) != sizeof bytes)
        return kel::nil_int;
    std::uint32_t value = 0;
    for (unsigned char byte : bytes)
        value = value << 8 | byte;
    return static_cast<int>(value);
}
