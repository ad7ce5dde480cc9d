// The two binary encodings: the machine's own form, and XDR, which is the same with the bytes of every
// number in network order and with bools as wide as ints. Bytes on the stream are never aligned, so they
// are copied and not looked at in place.
#include <bit>
#include <cstdint>
#include <limits>

#include <kelstdmt/iolib_serializer.h>

#include "iolibsrc/stream_area.h"

static_assert(sizeof(int) == 4 && sizeof(double) == 8 && std::numeric_limits<double>::is_iec559);

namespace {

// The unsigned integer that holds the bits of a T.
template <class T>
struct bits_of;
template <>
struct bits_of<int> {
    using type = std::uint32_t;
};
template <>
struct bits_of<double> {
    using type = std::uint64_t;
};

std::uint32_t swapped(std::uint32_t bits) {
    return __builtin_bswap32(bits);
}
std::uint64_t swapped(std::uint64_t bits) {
    return __builtin_bswap64(bits);
}

template <class T>
ioTryCode read(T &value, std::streambuf *from, bool swap) {
    char bytes[sizeof(T)];
    std::ptrdiff_t got = kel::detail::take(*from, bytes, sizeof bytes);
    if (got != sizeof bytes) return got < 0 ? ioIOError : ioEndOfFile;
    typename bits_of<T>::type bits;
    std::memcpy(&bits, bytes, sizeof bits);
    value = std::bit_cast<T>(swap ? swapped(bits) : bits);
    return ioSuccess;
}

template <class T>
ioTryCode write(T value, std::streambuf *to, bool swap) {
    auto bits = std::bit_cast<typename bits_of<T>::type>(value);
    if (swap) bits = swapped(bits);
    char bytes[sizeof(T)];
    std::memcpy(bytes, &bits, sizeof bits);
    return kel::detail::put(*to, bytes, sizeof bytes) ? ioSuccess : ioIOError;
}

}  // namespace

// The machine's form ---------------------------------------------------------------------------------

ioBinarySerializer::ioBinarySerializer() noexcept : ioByteSerializer(true) {}
ioBinarySerializer::~ioBinarySerializer() = default;

ioTryCode ioBinarySerializer::RdInt(int &value, std::streambuf *from) {
    return read(value, from, false);
}
ioTryCode ioBinarySerializer::WrInt(int value, std::streambuf *to) {
    return write(value, to, false);
}
unsigned ioBinarySerializer::SzInt(int) {
    return sizeof(int);
}

ioTryCode ioBinarySerializer::RdBool(unsigned char &value, std::streambuf *from) {
    char byte = 0;
    ioTryCode code = RdByte(byte, from);
    if (code == ioSuccess) value = static_cast<unsigned char>(byte);
    return code;
}
ioTryCode ioBinarySerializer::WrBool(unsigned char value, std::streambuf *to) {
    return WrByte(static_cast<char>(value), to);
}
unsigned ioBinarySerializer::SzBool(unsigned char value) {
    return SzByte(static_cast<char>(value));
}

ioTryCode ioBinarySerializer::RdReal(double &value, std::streambuf *from) {
    return read(value, from, false);
}
ioTryCode ioBinarySerializer::WrReal(double value, std::streambuf *to) {
    return write(value, to, false);
}
unsigned ioBinarySerializer::SzReal(double) {
    return sizeof(double);
}

// XDR ------------------------------------------------------------------------------------------------

ioXDRSerializer::ioXDRSerializer() noexcept : ioByteSerializer(true) {}
ioXDRSerializer::~ioXDRSerializer() = default;

ioTryCode ioXDRSerializer::RdInt(int &value, std::streambuf *from) {
    return read(value, from, true);
}
ioTryCode ioXDRSerializer::WrInt(int value, std::streambuf *to) {
    return write(value, to, true);
}
unsigned ioXDRSerializer::SzInt(int) {
    return sizeof(int);
}

ioTryCode ioXDRSerializer::RdBool(unsigned char &value, std::streambuf *from) {
    int wide = 0;
    ioTryCode code = RdInt(wide, from);
    if (code == ioSuccess) value = static_cast<unsigned char>(wide & 0xFF);
    return code;
}
ioTryCode ioXDRSerializer::WrBool(unsigned char value, std::streambuf *to) {
    return WrInt(value, to);
}
unsigned ioXDRSerializer::SzBool(unsigned char value) {
    return SzInt(value);
}

ioTryCode ioXDRSerializer::RdReal(double &value, std::streambuf *from) {
    return read(value, from, true);
}
ioTryCode ioXDRSerializer::WrReal(double value, std::streambuf *to) {
    return write(value, to, true);
}
unsigned ioXDRSerializer::SzReal(double) {
    return sizeof(double);
}
