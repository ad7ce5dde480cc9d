// The stream buffer over a connection.
#include "runtime/posix/socket_bytes.h"

using namespace kel::detail;

namespace {

class socket_channel : public byte_channel {
public:
    explicit socket_channel(btkStreamSocket &socket) noexcept : m_socket(socket) {}

    std::ptrdiff_t receive(char *to, std::size_t room, bool wait) override {
        return kel::detail::receive(m_socket, to, room, wait);
    }
    std::size_t send(std::string_view first, std::string_view second) override {
        return send_all(m_socket.GetHandle(), first, second);
    }
    bool has_input() override { return kel::detail::has_input(m_socket); }
    bool has_input_taken_in() const noexcept override { return urgent() && urgent()->has_ready(); }
    bool has_message() const noexcept { return urgent() && urgent()->has_message(); }

private:
    const urgent_input *urgent() const noexcept { return socket_access::urgent(m_socket).get(); }

    btkStreamSocket &m_socket;
};

class out_of_band_event : public buffer_event {
public:
    explicit out_of_band_event(const descriptor_buffer &buffer) : buffer_event(buffer, btkPollUrgent) {}
    // A message that was met on the way to ordinary bytes has left the system.
    bool IsReady() override {
        return !buffer() || static_cast<socket_channel &>(buffer()->channel()).has_message();
    }
};

}  // namespace

xsocketbuf::xsocketbuf(btkStreamSocket &socket)
    : xdescriptorbuf(socket.GetHandle(), std::make_unique<socket_channel>(socket)) {}

xsocketbuf::~xsocketbuf() = default;

btkBaseEvent *xsocketbuf::GetOutOfBandEvent() {
    return new out_of_band_event(Buffer());
}
