// The text encoding. The outcome of a read is that of an istream built on the buffer for this one value:
// the end of the data wins over a failure to convert, and that over an error of the buffer.
//
// A value is first looked for in the get area alone. When it ends there, as nearly all do, the area is
// moved past it and no virtual call was made. A value that reaches the end of the area may go on behind
// it: it is decoded again from its start, this time character by character through the buffer.
#include <string>

#include <kelstdmt/iolib_serializer.h>

#include "iolibsrc/stream_area.h"
#include "iolibsrc/text_number.h"

using kel::detail::guarded;
using kel::detail::is_space;
using kel::detail::put;
using kel::detail::put_short;
using kel::detail::short_text;
using kel::detail::stream_area;
using kel::detail::text_end;

namespace {

// Cursors --------------------------------------------------------------------------------------------

class area_cursor {
public:
    explicit area_cursor(const std::streambuf &from)
        : m_at(stream_area::unread(from)), m_end(m_at + stream_area::unread_count(from)) {}

    int peek() {
        if (m_at != m_end) return static_cast<unsigned char>(*m_at);
        m_end_met = true;
        return text_end;
    }
    int next() {
        ++m_at;
        return peek();
    }
    void skip() { ++m_at; }

    bool end_met() const { return m_end_met; }
    const char *position() const { return m_at; }
    std::size_t size() const { return static_cast<std::size_t>(m_end - m_at); }

private:
    const char *m_at;
    const char *m_end;
    bool m_end_met = false;
};

class stream_cursor {
public:
    explicit stream_cursor(std::streambuf &from) : m_from(from), m_character(from.sgetc()) {}

    int peek() const { return m_character; }
    int next() { return m_character = m_from.snextc(); }
    void skip() { m_from.sbumpc(); }  // does not ask for the next, which may have to be waited for

    bool end_met() const { return m_character == text_end; }

private:
    std::streambuf &m_from;
    int m_character;
};

static_assert(std::char_traits<char>::eof() == text_end);

template <class Cursor>
bool skip_space(Cursor &at) {
    int character = at.peek();
    while (is_space(character))
        character = at.next();
    return character != text_end;
}

// Reading one value ----------------------------------------------------------------------------------

// The target is set also when the text does not convert, as the decoder left it, but not when the buffer
// threw.
template <class Value, class Decode>
ioTryCode read_through(Value &target, std::streambuf &from, Decode decode) {
    ioTryCode thrown = ioFormatError;  // to an istream, an error ahead of the value is a failure to convert
    return guarded(thrown, [&] {
        stream_cursor at(from);
        if (!skip_space(at)) return ioEndOfFile;
        thrown = ioIOError;
        Value value = target;
        const bool good = decode(at, value);
        target = value;
        return at.end_met() ? ioEndOfFile : good ? ioSuccess : ioFormatError;
    });
}

template <class Value, class Decode>
ioTryCode read(Value &target, std::streambuf &from, Decode decode) {
    area_cursor at(from);
    if (skip_space(at)) {
        Value value = target;
        const bool good = decode(at, value);
        if (!at.end_met()) {
            stream_area::read_up_to(from, at.position());
            target = value;
            return good ? ioSuccess : ioFormatError;
        }
    }
    return read_through(target, from, decode);
}

// Strings --------------------------------------------------------------------------------------------

// The end of the field in these bytes; null when it is not among them.
const char *find(char delimiter, const char *bytes, std::size_t count) {
    return count > 0 ? static_cast<const char *>(std::memchr(bytes, delimiter, count)) : nullptr;
}

// Appends what comes ahead of the delimiter or the end of the data.
void append_field(std::string &field, std::streambuf &from, char delimiter) {
    for (int character; (character = from.sgetc()) != text_end;) {
        const char *bytes = stream_area::unread(from);
        std::size_t count = stream_area::unread_count(from);
        if (count == 0) {  // a buffer without an area
            if (static_cast<char>(character) == delimiter) return;
            field += static_cast<char>(character);
            from.sbumpc();
            continue;
        }
        const char *end = find(delimiter, bytes, count);
        const char *stop = end ? end : bytes + count;
        field.append(bytes, stop);
        stream_area::read_up_to(from, stop);
        if (end) return;
    }
}

ioTryCode read_field_through(xstring &target, std::streambuf &from, char delimiter) {
    ioTryCode thrown = ioFormatError;
    return guarded(thrown, [&] {
        stream_cursor at(from);
        if (!skip_space(at)) return ioEndOfFile;
        thrown = ioIOError;
        std::string field;
        append_field(field, from, delimiter);
        if (field.empty()) return ioFormatError;
        target = xstring::FromBytes(field.data(), field.size());
        return ioSuccess;
    });
}

ioTryCode read_field(xstring &target, std::streambuf &from, char delimiter) {
    area_cursor at(from);
    if (skip_space(at)) {
        const char *begin = at.position();
        if (const char *end = find(delimiter, begin, at.size())) {
            if (end != begin) target = xstring::FromBytes(begin, static_cast<std::size_t>(end - begin));
            stream_area::read_up_to(from, end);
            return end != begin ? ioSuccess : ioFormatError;
        }
    }
    return read_field_through(target, from, delimiter);
}

// Writing a number -----------------------------------------------------------------------------------

static_assert(kel::detail::longest_int <= short_text && kel::detail::longest_real <= short_text);

template <class Value>
ioTryCode write(Value value, std::streambuf &to, std::size_t (*encode)(Value, char *)) {
    char text[short_text];
    return put_short(to, text, encode(value, text)) ? ioSuccess : ioIOError;
}

}  // namespace

ioAsciiSerializer::ioAsciiSerializer() noexcept : ioByteSerializer(false) {}
ioAsciiSerializer::~ioAsciiSerializer() = default;

ioTryCode ioAsciiSerializer::RdByte(char &value, std::streambuf *from) {
    return read(value, *from, [](auto &at, char &character) {
        character = static_cast<char>(at.peek());
        at.skip();
        return true;
    });
}
ioTryCode ioAsciiSerializer::WrByte(char value, std::streambuf *to) {
    return put(*to, &value, 1) ? ioSuccess : ioIOError;
}
unsigned ioAsciiSerializer::SzByte(char) {
    return 1;
}

ioTryCode ioAsciiSerializer::RdInt(int &value, std::streambuf *from) {
    return read(value, *from, [](auto &at, int &number) { return kel::detail::decode_int(at, number); });
}
ioTryCode ioAsciiSerializer::WrInt(int value, std::streambuf *to) {
    return write(value, *to, &kel::detail::encode_int);
}
unsigned ioAsciiSerializer::SzInt(int value) {
    char text[kel::detail::longest_int];
    return static_cast<unsigned>(kel::detail::encode_int(value, text));
}

ioTryCode ioAsciiSerializer::RdBool(unsigned char &value, std::streambuf *from) {
    return read(value, *from, [](auto &at, unsigned char &truth) {
        const int character = at.peek();
        at.skip();
        if (character != 'T' && character != 'F') return false;
        truth = character == 'T';
        return true;
    });
}
ioTryCode ioAsciiSerializer::WrBool(unsigned char value, std::streambuf *to) {
    return WrByte(value ? 'T' : 'F', to);
}
unsigned ioAsciiSerializer::SzBool(unsigned char) {
    return 1;
}

ioTryCode ioAsciiSerializer::RdReal(double &value, std::streambuf *from) {
    return read(value, *from, [](auto &at, double &number) { return kel::detail::decode_real(at, number); });
}
ioTryCode ioAsciiSerializer::WrReal(double value, std::streambuf *to) {
    return write(value, *to, &kel::detail::encode_real);
}
unsigned ioAsciiSerializer::SzReal(double value) {
    char text[kel::detail::longest_real];
    return static_cast<unsigned>(kel::detail::encode_real(value, text));
}

ioTryCode ioAsciiSerializer::RdString(xstring &value, std::streambuf *from, const char *delimiters) {
    const char delimiter = kel::is_text(delimiters) && *delimiters ? *delimiters : '\n';
    return guarded(ioIOError, [&] { return read_field(value, *from, delimiter); });
}
ioTryCode ioAsciiSerializer::WrString(const char *text, std::streambuf *to) {
    return put(*to, text, kel::detail::text_length(text)) ? ioSuccess : ioIOError;
}
unsigned ioAsciiSerializer::SzString(const char *text) {
    return static_cast<unsigned>(std::min<std::size_t>(kel::detail::text_length(text), UINT_MAX));
}
