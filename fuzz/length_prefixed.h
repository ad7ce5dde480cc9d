// The binary encodings: a model of a few lines says what stands in the data and how far it reaches, and what
// was decoded is encoded again and compared with the bytes that it came from.
#pragma once

#include <kelstdmt/vumrt_stream.h>

#include "encoded_input.h"

// One value as the model and the encoder see it: numbers by their bits.
struct Decoded {
    ioTryCode code = ioSuccess;
    std::uint64_t bits = 77;
    std::string text = "unchanged";

    bool operator==(const Decoded &) const = default;
};

class Model {
public:
    Model(std::string data, bool big_endian, std::size_t bool_size)
        : m_data(std::move(data)), m_big(big_endian), m_bool_size(bool_size) {}

    Decoded next(EncodedInput::Type type) {
        if (type == EncodedInput::String) return text();
        const std::size_t sizes[] = {1, 4, m_bool_size, 8};
        Decoded result = number(sizes[type]);
        if (type == EncodedInput::Bool) result.bits &= 0xFF;
        return result;
    }
    std::size_t position() const { return m_at; }

private:
    Decoded number(std::size_t size) {
        const std::string bytes = take(size);
        if (bytes.size() < size) return {ioEndOfFile};
        std::uint64_t bits = 0;
        for (std::size_t i = 0; i < size; ++i)
            bits = bits << 8 | static_cast<unsigned char>(bytes[m_big ? i : size - 1 - i]);
        return {ioSuccess, bits};
    }
    Decoded text() {
        const Decoded length = number(4);
        if (length.code != ioSuccess) return {length.code};
        if (length.bits >> 31) return {ioFormatError};
        const std::string bytes = take(static_cast<std::size_t>(length.bits));
        if (bytes.size() < length.bits) return {ioEndOfFile};
        return {ioSuccess, 77, bytes.c_str()};
    }
    std::string take(std::size_t size) {
        const std::string bytes = m_data.substr(m_at, size);
        m_at += bytes.size();
        return bytes;
    }

    std::string m_data;
    bool m_big;
    std::size_t m_bool_size;
    std::size_t m_at = 0;
};

template <class Encoder>
Decoded decode(Encoder &encoder, EncodedInput::Type type, std::streambuf &from, std::streambuf &again) {
    Decoded result;
    const auto both = [&](auto value, auto read, auto write) {
        result.code = (encoder.*read)(value, &from);
        fuzz::require((encoder.*write)(value, &again) == ioSuccess, "not written");
        result.bits = 0;
        std::memcpy(&result.bits, &value, sizeof value);
    };
    switch (type) {
        case EncodedInput::Byte:
            both(char{77}, &Encoder::RdByte, &Encoder::WrByte);
            break;
        case EncodedInput::Int:
            both(77, &Encoder::RdInt, &Encoder::WrInt);
            break;
        case EncodedInput::Bool:
            both(static_cast<unsigned char>(77), &Encoder::RdBool, &Encoder::WrBool);
            break;
        case EncodedInput::Real:
            both(std::bit_cast<double>(std::uint64_t{77}), &Encoder::RdReal, &Encoder::WrReal);
            break;
        default: {
            xstring text("unchanged");
            result.code = encoder.RdString(text, &from, xstrNullStr);
            result.text = text.Str();
            fuzz::require(encoder.WrString(text, &again) == ioSuccess, "not written");
        }
    }
    return result;
}

// Values up to the first that fails, through a source in pieces and, as trials do it, through a view.
template <class Encoder>
void fuzz_encoding(Encoder &encoder, const EncodedInput &input, bool big_endian, std::size_t bool_size) {
    Model model(input.data, big_endian, bool_size);
    encoders::Source from(input.data, input.piece);
    xtrystreambuf view(input.data.data(), input.data.size());
    for (std::size_t i = 0;; ++i) {
        const auto require = [&](bool holds, const char *what) {
            fuzz::require(holds, what, "in value, read up to:", i, model.position());
        };
        const std::size_t begin = model.position();
        const EncodedInput::Type type = input.type(i);
        const Decoded expected = model.next(type);
        std::stringbuf again, ignored;
        require(decode(encoder, type, from, again) == expected, "another value or code");
        require(decode(encoder, type, view, ignored) == expected, "another value or code of a view");
        require(from.position() == model.position(), "another position");
        require(input.data.size() - view.GetAvail() == model.position(), "another position of a view");
        if (expected.code != ioSuccess) return;
        // A text that holds a NUL, and a wide bool with other bytes set, are not what would be written.
        const std::string consumed = input.data.substr(begin, model.position() - begin);
        const bool canonical = type == EncodedInput::String ? consumed.size() == 4 + expected.text.size()
                                                            : type != EncodedInput::Bool || bool_size == 1 ||
                                                                  consumed.starts_with(std::string(3, '\0'));
        require(!canonical || again.str() == consumed, "encoded again to other bytes");
    }
}
