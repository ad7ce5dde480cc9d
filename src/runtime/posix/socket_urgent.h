// The input of a connection, with the out-of-band messages taken out of it.
//
// A message is four bytes sent as urgent data. TCP marks only the place of the last one, and the system keeps
// that byte apart; the three before it stand among the ordinary ones. A read never crosses the mark, and the
// mark is known as soon as the first byte of a message is there, because all of them are sent behind the
// announcement. So while a mark is announced and not reached, the last three bytes read are held back: once
// a read stops at the mark, they are the message's.
#pragma once

#include <cstddef>
#include <string>

#include <kelstdmt/vumrt_socket.h>

namespace kel::detail {

class urgent_input {
public:
    static constexpr std::size_t message_size = btkStreamSocket::OutOfBandSize;
    static constexpr std::size_t held_size = message_size - 1;

    // Whether a mark is announced; asked after every read.
    static bool is_announced(int fd);

    // Nothing of the ordinary bytes is here, and they may be read past this.
    bool is_idle() const noexcept { return m_bytes.empty() && !m_at_mark; }
    bool has_ready() const noexcept { return m_bytes.size() - m_begin > m_held; }
    bool has_message() const noexcept { return !m_messages.empty(); }

    // The last bytes of a read after which a mark was announced.
    void hold(int fd, const char *bytes, std::size_t count);
    // As byte_channel.
    std::ptrdiff_t receive(int fd, char *to, std::size_t room, bool wait);
    // Reads up to the mark, if one is announced and not out of all proportion.
    void seek_message(int fd);
    bool take_message(char *to) noexcept;
    // Whether a read would find something, where the system says that there is input.
    bool has_input(int fd);

private:
    std::ptrdiff_t fill(int fd, bool wait);
    std::ptrdiff_t take_last_byte(int fd, bool wait);
    void settle(int fd);
    void forget_taken() noexcept;

    std::string m_bytes;  // read and not handed on yet, from m_begin on
    std::size_t m_begin = 0;
    std::size_t m_held = 0;  // of them, at the end: may belong to a message
    bool m_at_mark = false;  // and the urgent byte has not come yet
    std::string m_messages;
};

// One read of the system, as byte_channel.
std::ptrdiff_t receive_some(int fd, char *to, std::size_t room, bool wait);

}  // namespace kel::detail
