// What the tests and fuzz targets of the encoders share: encoders whose operations may be called, sources
// that hand out their bytes in pieces of any size, an istream as the judge of what a text holds, and chance.
#pragma once

#include <algorithm>
#include <bit>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <istream>
#include <iterator>
#include <memory>
#include <random>
#include <sstream>
#include <streambuf>
#include <string>

#include <kelstdmt/iolib_serializer.h>
#include <kelstdmt/xstring.h>

namespace encoders {

template <class Encoder>
struct Open : Encoder {
    using Encoder::RdBool, Encoder::RdByte, Encoder::RdBytes, Encoder::RdInt, Encoder::RdReal,
        Encoder::RdString;
    using Encoder::SzBool, Encoder::SzByte, Encoder::SzInt, Encoder::SzReal, Encoder::SzString;
    using Encoder::WrBool, Encoder::WrByte, Encoder::WrBytes, Encoder::WrInt, Encoder::WrReal,
        Encoder::WrString;
};
using Ascii = Open<ioAsciiSerializer>;
using Binary = Open<ioBinarySerializer>;
using XDR = Open<ioXDRSerializer>;

// Bytes in pieces of `piece` bytes, each of its own on the heap, so that a step beyond one is noticed. With
// 0 there is no get area at all. From `broken_at` on every access throws.
class Source : public std::streambuf {
public:
    static constexpr std::size_t never = std::string::npos;

    explicit Source(std::string bytes, std::size_t piece = never, std::size_t broken_at = never)
        : m_bytes(std::move(bytes)), m_piece(piece), m_broken_at(broken_at) {}

    std::size_t position() const { return m_next - static_cast<std::size_t>(egptr() - gptr()); }
    // The most that was asked for at once beyond what had been handed out before.
    std::size_t largest_demand() const { return m_largest_demand; }

protected:
    int_type underflow() override {
        if (m_next >= m_broken_at) throw std::string("broken source");
        if (m_next == m_bytes.size()) return traits_type::eof();
        if (m_piece == 0) return traits_type::to_int_type(m_bytes[m_next]);
        std::size_t count = std::min({m_piece, m_bytes.size() - m_next, m_broken_at - m_next});
        m_area = std::make_unique<char[]>(count);
        std::memcpy(m_area.get(), m_bytes.data() + m_next, count);
        setg(m_area.get(), m_area.get(), m_area.get() + count);
        m_next += count;
        return traits_type::to_int_type(*gptr());
    }
    int_type uflow() override {
        int_type character = underflow();
        if (traits_type::eq_int_type(character, traits_type::eof())) return character;
        m_piece == 0 ? void(++m_next) : gbump(1);
        return character;
    }
    std::streamsize xsgetn(char *to, std::streamsize count) override {
        std::size_t asked = static_cast<std::size_t>(count);
        m_largest_demand = std::max(m_largest_demand, asked - std::min(asked, position()));
        return std::streambuf::xsgetn(to, count);
    }

private:
    std::string m_bytes;
    std::size_t m_piece;
    std::size_t m_broken_at;
    std::size_t m_next = 0;  // behind what has been handed out
    std::size_t m_largest_demand = 0;
    std::unique_ptr<char[]> m_area;
};

// The judge ------------------------------------------------------------------------------------------

inline ioTryCode code_of(const std::ios &stream) {
    if (stream.eof()) return ioEndOfFile;
    return stream.rdstate() & std::ios::failbit ? ioFormatError : stream.bad() ? ioIOError : ioSuccess;
}

template <class Value>
ioTryCode judge(Value &value, std::streambuf &from) {
    std::istream in(&from);
    in.imbue(std::locale::classic());
    in >> value;
    return code_of(in);
}
inline ioTryCode judge(unsigned char &value, std::streambuf &from) {
    char character = 0;
    ioTryCode code = judge(character, from);
    if (code != ioSuccess) return code;
    if (character != 'T' && character != 'F') return ioFormatError;
    value = character == 'T';
    return ioSuccess;
}
inline ioTryCode judge(std::string &value, std::streambuf &from, char delimiter) {
    std::istream in(&from);
    in.imbue(std::locale::classic());
    if (std::istream::sentry prefix(in); !prefix) return code_of(in);
    std::stringbuf field;
    in.get(field, delimiter);
    ioTryCode code = code_of(in);
    if (code == ioEndOfFile && in.gcount() > 0) code = ioSuccess;
    if (code == ioSuccess) value = field.str().c_str();
    return code;
}

// Random values --------------------------------------------------------------------------------------

struct Random : std::mt19937_64 {
    explicit Random(unsigned first) : std::mt19937_64(first) {}
    std::size_t below(std::size_t limit) { return static_cast<std::size_t>((*this)() % limit); }
    bool one_in(std::size_t n) { return below(n) == 0; }

    int integer() {
        static constexpr int special[] = {0, -1, 9, 10, INT_MAX, INT_MIN, 99999999, 100000000};
        if (one_in(4)) return special[below(std::size(special))];
        return static_cast<int>(static_cast<std::uint32_t>((*this)()) >> below(32));
    }
    // Of few digits, often in the middle between two of six; of any bits.
    double real() {
        static constexpr double special[] = {0.0, -0.0, 0.1, DBL_MAX, -DBL_MIN, 5e-324, 999999.5, 1e6, 1e-5};
        if (one_in(4)) return special[below(std::size(special))];
        if (one_in(2))
            return static_cast<double>(below(20000000)) / std::pow(10, static_cast<double>(below(16)));
        return std::bit_cast<double>((*this)());
    }
    std::string bytes(std::size_t limit, const std::string &alphabet) {
        std::string text;
        for (std::size_t n = below(limit + 1); n > 0; --n)
            text += alphabet[below(alphabet.size())];
        return text;
    }
};

}  // namespace encoders
