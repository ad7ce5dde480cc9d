#include "netlibsrc/rshlib_wire.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "netlibsrc/socket_access.h"
#include "runtime/relay.h"

namespace kel::detail {

namespace {

constexpr std::size_t kept_capacity = std::size_t{1} << 20;
constexpr std::size_t least_capacity = 4096;
constexpr std::size_t largest_in = 262144;
constexpr int none_waits = 997;

class hangup_event : public btkBaseEvent {
public:
    explicit hangup_event(int fd) noexcept : m_fd(fd) {}
    btkPollRequest GetPollRequest() override { return {m_fd, btkPollHangup}; }

private:
    int m_fd;
};

}  // namespace

// Bytes ----------------------------------------------------------------------------------------

char *byte_queue::reserve(std::size_t room) {
    if (m_capacity - m_end < room) {
        const std::size_t count = size();
        // Moved only when a quarter has gone since the last time, so that no byte is moved often.
        if (m_capacity - count >= room && m_begin >= m_capacity / 4) {
            if (count > 0) std::memmove(m_bytes.get(), m_bytes.get() + m_begin, count);
        } else {
            const std::size_t larger = std::max({2 * m_capacity, count + room, least_capacity});
            auto grown = std::make_unique_for_overwrite<char[]>(larger);
            if (count > 0) std::memcpy(grown.get(), m_bytes.get() + m_begin, count);
            m_bytes = std::move(grown);
            m_capacity = larger;
        }
        m_begin = 0;
        m_end = count;
    }
    return m_bytes.get() + m_end;
}

void byte_queue::append(std::string_view bytes) {
    if (bytes.empty()) return;
    std::memcpy(reserve(bytes.size()), bytes.data(), bytes.size());
    m_end += bytes.size();
}

void byte_queue::drop(std::size_t count) noexcept {
    m_begin += count;
    if (m_begin < m_end) return;
    m_begin = m_end = 0;
    if (m_capacity <= kept_capacity) return;
    m_bytes.reset();
    m_capacity = 0;
}

// The connection -------------------------------------------------------------------------------

relay_wire::relay_wire(netSocketStream &connection, bool takes_urgent)
    : m_socket(socket_stream_access::socket(connection)),
      m_read_ahead(*socket_stream_access::buffer(connection).GetStreamBuf()),
      m_takes_urgent(takes_urgent),
      m_coding(connection.getSerializer() == ioSerializer::getBinary()),
      m_urgent(socket_stream_access::buffer(connection).GetOutOfBandEvent()),
      m_gone(new hangup_event(m_socket.GetHandle())) {
    m_read_ahead.pubsync();
    kel::system::prepare_relayed_connection(m_socket.GetHandle());
}

bool relay_wire::receive() {
    if (!m_unread.empty() || m_over) return false;
    if (m_in_size < m_in_wanted) m_in = std::make_unique_for_overwrite<char[]>(m_in_size = m_in_wanted);
    std::ptrdiff_t got = m_read_ahead.in_avail();
    if (got > 0) {
        got = m_read_ahead.sgetn(m_in.get(), std::min(got, static_cast<std::ptrdiff_t>(m_in_size)));
    } else if (!m_takes_urgent) {
        got = kel::system::receive_now(m_socket.GetHandle(), m_in.get(), m_in_size);
    } else {
        got = m_socket.RecvNow(m_in.get(), static_cast<unsigned>(m_in_size));
        if (got < 0 && Error_GetLast() == none_waits) got = kel::system::io_would_wait;
    }
    if (got <= 0) {
        m_over = got != kel::system::io_would_wait;
        return false;
    }
    m_unread = {m_in.get(), static_cast<std::size_t>(got)};
    // A read that filled all the room has probably left some.
    if (m_unread.size() == m_in_size) m_in_wanted = std::min(4 * m_in_size, largest_in);
    return true;
}

void relay_wire::give_up() noexcept {
    m_over = true;
    kel::system::shut_down_connection(m_socket.GetHandle());
}

void relay_wire::put(int value) {
    m_coding.put(m_out.reserve(int_coding::size), value);
    m_out.added(int_coding::size);
}

void relay_wire::put(std::string_view text) {
    put(static_cast<int>(text.size()));
    m_out.append(text);
}

void relay_wire::put_counted(int tag, std::size_t count) {
    char *head = m_out.reserve(0);
    m_coding.put(head, tag);
    m_coding.put(head + int_coding::size, static_cast<int>(count));
    m_out.added(2 * int_coding::size + count);
}

void relay_wire::send() {
    while (!m_out.is_empty()) {
        const std::string_view bytes = m_out.bytes();
        const int sent = m_cut ? -1 : m_socket.SendNow(bytes.data(), static_cast<unsigned>(bytes.size()));
        if (sent == 0) return;
        m_cut = sent < 0;
        m_out.drop(m_cut ? bytes.size() : static_cast<std::size_t>(sent));
    }
}

bool relay_wire::exchange(const deadline &until, btkEvent *stop) {
    for (;;) {
        send();
        receive();
        if (!m_unread.empty()) return true;
        if (m_over) return false;
        btkEvent::List events;
        events.Append(stop);
        events.Append(&m_input);
        if (unsent() > 0) events.Append(&m_room);
        if (btkEvent::Wait(events, until.left(), {}) <= 1) return false;
    }
}

}  // namespace kel::detail
