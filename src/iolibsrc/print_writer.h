// Where the printer's text goes. On the library's text encoding, what is written gathers in a small buffer,
// and is handed to the stream at the end of a line and before any code that might write to the stream
// itself. Any other serializer is given every piece as a typed value.
#pragma once

#include <cstddef>

#include <kelstdmt/iolib_stream.h>

namespace kel::detail {

class print_writer {
public:
    print_writer() = default;
    print_writer(const print_writer &) = delete;
    print_writer &operator=(const print_writer &) = delete;

    ioStream *target() const noexcept { return m_stream; }
    // Another stream, or none. Answers the one before, which has been given all its text.
    ioStream *redirect(ioStream *stream) noexcept;

    // Throws if the stream does not take typed values.
    void begin();

    void text(const char *text);  // a marker is the empty text
    void text(const xstring &text);
    void mark(char character);  // a text of one character
    void byte(char character);
    void spaces(int count);
    void number(int value);
    void number(double value);

    void hand_over();
    void flush();
    void line_end();  // a line end, and a flush

private:
    void write(const char *bytes, std::size_t count);
    void write_long(const char *bytes, std::size_t count);
    char *room(std::size_t count);

    ioStream *m_stream = nullptr;
    bool m_gathers = false;
    std::size_t m_used = 0;
    char m_text[1000];
};

}  // namespace kel::detail
