// The connection of a relay: it is read and written without waiting, past its stream, whose buffer may hold
// the first bytes.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include <kelstdmt/netlib_stream.h>

#include "netlibsrc/deadline.h"
#include "netlibsrc/rshlib_parse.h"

namespace kel::detail {

// Bytes in the order in which they came.
class byte_queue {
public:
    std::size_t size() const noexcept { return m_end - m_begin; }
    bool is_empty() const noexcept { return m_begin == m_end; }
    std::string_view bytes() const noexcept { return {m_bytes.get() + m_begin, size()}; }

    char *reserve(std::size_t room);  // behind the bytes
    void added(std::size_t count) noexcept { m_end += count; }
    void append(std::string_view bytes);
    void drop(std::size_t count) noexcept;  // off the front

private:
    std::unique_ptr<char[]> m_bytes;
    std::size_t m_capacity = 0, m_begin = 0, m_end = 0;
};

class relay_wire {
public:
    // The connection is open, and stays the caller's. Messages out of band are told apart only where they are
    // taken, since that costs a question with each read.
    relay_wire(netSocketStream &connection, bool takes_urgent);

    int_coding coding() const noexcept { return m_coding; }

    // What has come and was not used yet. Readers take it off the front.
    std::string_view &unread() noexcept { return m_unread; }
    // Takes in what there is, once all before it has been used. Whether there was something.
    bool receive();
    // The peer has ended the connection or is gone, or it was given up.
    bool is_over() const noexcept { return m_over; }
    void give_up() noexcept;

    void put(int value);
    void put(std::string_view text);  // with its length
    // A place for so many bytes of a counted message, of which put_counted then tells how many there are.
    char *reserve(std::size_t room) {
        return m_out.reserve(2 * int_coding::size + room) + 2 * int_coding::size;
    }
    void put_counted(int tag, std::size_t count);
    // Sends what the connection takes now.
    void send();
    std::size_t unsent() const noexcept { return m_out.size(); }

    btkEvent *input() noexcept { return &m_input; }
    btkEvent *room() noexcept { return &m_room; }
    btkEvent *urgent() noexcept { return &m_urgent; }
    // The peer has gone, for a relay that has no room for what was sent before.
    btkEvent *gone() noexcept { return &m_gone; }
    // Sends, and waits for something to read. False when the connection or the time is over, or the event,
    // which may be null, is signalled.
    bool exchange(const deadline &until, btkEvent *stop);

private:
    btkStreamSocket &m_socket;
    std::streambuf &m_read_ahead;
    bool m_takes_urgent;
    int_coding m_coding;
    btkEvent m_input{new btkSelectEvent(m_socket.GetHandle(), 0)};
    btkEvent m_room{new btkSelectEvent(m_socket.GetHandle(), 1)};
    btkEvent m_urgent;
    btkEvent m_gone;
    std::unique_ptr<char[]> m_in;
    std::size_t m_in_size = 0, m_in_wanted = 16384;
    std::string_view m_unread;
    byte_queue m_out;
    // What is sent is lost. What the peer has sent before can still be read, so that alone ends nothing.
    bool m_cut = false;
    bool m_over = false;
};

}  // namespace kel::detail
