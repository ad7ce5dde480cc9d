// The printer's text on its way to the stream.
#include "iolibsrc/print_writer.h"

#include <algorithm>
#include <cstring>

#include <kelstdmt/kel.h>

#include "iolibsrc/text_number.h"

namespace kel::detail {

namespace {

// More than one call of WriteBytes can say.
constexpr std::size_t longest_write = 1U << 30;

}  // namespace

ioStream *print_writer::redirect(ioStream *stream) noexcept {
    if (stream == m_stream) return stream;
    try {
        hand_over();
    } catch (xthrowable *thrown) {
        caught refused(thrown);  // so it will be with the next text, and there somebody is told
    } catch (...) {
    }
    m_gathers = stream && stream->getSerializer() == ioSerializer::getAscii();
    return std::exchange(m_stream, stream);
}

void print_writer::begin() {
    hand_over();
    if (m_gathers) m_stream->WriteString("");
}

void print_writer::text(const char *text) {
    if (!m_gathers)
        m_stream->WriteString(text);
    else if (is_text(text))
        write(text, std::strlen(text));
}
void print_writer::text(const xstring &text) {
    if (!m_gathers)
        m_stream->WriteString(text);
    else
        write(std::string_view(text).data(), std::string_view(text).size());
}
void print_writer::mark(char character) {
    const char text[] = {character, 0};
    if (!m_gathers)
        m_stream->WriteString(text);
    else
        write(text, 1);
}
void print_writer::byte(char character) {
    if (!m_gathers)
        m_stream->WriteByte(character);
    else
        write(&character, 1);
}
void print_writer::spaces(int count) {
    if (!m_gathers) {
        for (; count > 0; --count)
            m_stream->WriteByte(' ');
        return;
    }
    static constexpr char few[] = "                ";
    if (count < static_cast<int>(sizeof few) && sizeof few <= sizeof m_text - m_used) {
        std::memcpy(m_text + m_used, few, sizeof few);
        m_used += static_cast<std::size_t>(std::max(count, 0));
        return;
    }
    while (count > 0) {
        int some = std::min(count, static_cast<int>(sizeof m_text));
        std::memset(room(static_cast<std::size_t>(some)), ' ', static_cast<std::size_t>(some));
        m_used += static_cast<std::size_t>(some);
        count -= some;
    }
}
void print_writer::number(int value) {
    if (!m_gathers)
        m_stream->WriteInt(value);
    else
        m_used += encode_int(value, room(longest_int));
}
void print_writer::number(double value) {
    if (!m_gathers)
        m_stream->WriteReal(value);
    else
        m_used += encode_real(value, room(longest_real));
}

void print_writer::hand_over() {
    if (m_used > 0) m_stream->WriteBytes(m_text, static_cast<unsigned>(std::exchange(m_used, 0U)));
}
void print_writer::flush() {
    hand_over();
    m_stream->Flush();
}
void print_writer::line_end() {
    byte('\n');
    flush();
}

// Room for so many bytes, at most a buffer full of them.
inline char *print_writer::room(std::size_t count) {
    if (count > sizeof m_text - m_used) hand_over();
    return m_text + m_used;
}
inline void print_writer::write(const char *bytes, std::size_t count) {
    if (count > sizeof m_text - m_used) return write_long(bytes, count);
    if (count > 0) std::memcpy(m_text + m_used, bytes, count);
    m_used += count;
}
void print_writer::write_long(const char *bytes, std::size_t count) {
    hand_over();
    if (count <= sizeof m_text) return write(bytes, count);
    while (count > 0) {
        std::size_t some = std::min(count, longest_write);
        m_stream->WriteBytes(bytes, static_cast<unsigned>(some));
        bytes += some;
        count -= some;
    }
}

}  // namespace kel::detail
