// The binary encodings: a model of a few lines says what stands in the data and how far it reaches, and what
// was decoded is encoded again and compared with the bytes that it came from.
#pragma once

#include <kelstdmt/vumrt_stream.h>

#include <bit>

#include "encoded_input.h"

// One value as the model and the encoder see it: numbers by their bits.
struct Decoded {
    ioTryCode code = ioSuccess;
    std::uint64_t bits = 77;
    std::string text = "unchanged";
};

class Model {
public:
    Model(std::string data, bool big_endian, std::size_t bool_size)
        : m_data(std::move(data)), m_big(big_endian), m_bool_size(bool_size) {}

    Decoded next(EncodedInput::Type type) {
        switch (type) {
            case EncodedInput::Byte:
                return number(1, 0xFF);
            case EncodedInput::Int:
                return number(4, 0xFFFFFFFF);
            case EncodedInput::Bool:
                return number(m_bool_size, 0xFF);
            case EncodedInput::Real:
                return number(8, UINT64_MAX);
            default:
                return text();
        }
    }
    std::size_t position() const { return m_at; }

private:
    Decoded number(std::size_t size, std::uint64_t kept) {
        const std::string bytes = m_data.substr(m_at, size);
        m_at += bytes.size();
        if (bytes.size() < size) return {ioEndOfFile};
        std::uint64_t bits = 0;
        for (std::size_t i = 0; i < size; ++i)
            bits = bits << 8 | static_cast<unsigned char>(bytes[m_big ? i : size - 1 - i]);
        return {ioSuccess, bits & kept};
    }
    Decoded text() {
        const Decoded length = number(4, 0xFFFFFFFF);
        if (length.code != ioSuccess) return {length.code};
        if (length.bits >> 31) return {ioFormatError};
        const std::string bytes = m_data.substr(m_at, static_cast<std::size_t>(length.bits));
        m_at += bytes.size();
        if (bytes.size() < length.bits) return {ioEndOfFile};
        return {ioSuccess, 77, bytes.c_str()};
    }

    std::string m_data;
    bool m_big;
    std::size_t m_bool_size;
    std::size_t m_at = 0;
};

template <class Encoder>
Decoded decode(Encoder &encoder, EncodedInput::Type type, std::streambuf &from, std::streambuf &again) {
    Decoded result;
    char byte = 77;
    unsigned char truth = 77;
    int integer = 77;
    double real = std::bit_cast<double>(std::uint64_t{77});
    xstring text("unchanged");
    ioTryCode written = ioSuccess;
    switch (type) {
        case EncodedInput::Byte:
            result.code = encoder.RdByte(byte, &from);
            result.bits = static_cast<unsigned char>(byte);
            written = encoder.WrByte(byte, &again);
            break;
        case EncodedInput::Int:
            result.code = encoder.RdInt(integer, &from);
            result.bits = static_cast<unsigned>(integer);
            written = encoder.WrInt(integer, &again);
            break;
        case EncodedInput::Bool:
            result.code = encoder.RdBool(truth, &from);
            result.bits = truth;
            written = encoder.WrBool(truth, &again);
            break;
        case EncodedInput::Real:
            result.code = encoder.RdReal(real, &from);
            result.bits = std::bit_cast<std::uint64_t>(real);
            written = encoder.WrReal(real, &again);
            break;
        default:
            result.code = encoder.RdString(text, &from, xstrNullStr);
            result.text = text.Str();
            written = encoder.WrString(text, &again);
    }
    require(written == ioSuccess, "not written", 0, 0);
    return result;
}

// Values up to the first that fails, through a source in pieces and, as trials do it, through a view.
template <class Encoder>
void fuzz_encoding(Encoder &encoder, const EncodedInput &input, bool big_endian, std::size_t bool_size) {
    Model model(input.data, big_endian, bool_size);
    encoders::Source from(input.data, input.piece);
    xtrystreambuf view(input.data.data(), input.data.size());
    for (std::size_t i = 0;; ++i) {
        const std::size_t begin = model.position();
        const EncodedInput::Type type = input.type(i);
        const Decoded expected = model.next(type);
        std::stringbuf again, ignored;
        const Decoded seen = decode(encoder, type, from, again),
                      viewed = decode(encoder, type, view, ignored);
        require(seen.code == expected.code && viewed.code == expected.code, "another code", i, begin);
        require(from.position() == model.position(), "another position", i, begin);
        require(input.data.size() - view.GetAvail() == model.position(), "another position", i, begin);
        require(seen.text == expected.text && viewed.text == expected.text, "another text", i, begin);
        require(type == EncodedInput::String || (seen.bits == expected.bits && viewed.bits == expected.bits),
                "another value", i, begin);
        if (expected.code != ioSuccess) return;
        // A text that holds a NUL, and a wide bool with other bytes set, are not what would be written.
        const std::string consumed = input.data.substr(begin, model.position() - begin);
        const bool canonical = type == EncodedInput::String ? consumed.size() == 4 + expected.text.size()
                               : type == EncodedInput::Bool
                                   ? bool_size == 1 || consumed.compare(0, 3, std::string(3, '\0')) == 0
                                   : true;
        require(!canonical || again.str() == consumed, "encoded again to other bytes", i, begin);
    }
}
