// Eight bytes of a text as one number, so that a comparison happens in all of them at once.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kel::detail {

using word = std::uint64_t;

inline constexpr std::size_t in_word = sizeof(word);
inline constexpr word ones = 0x0101010101010101;

// The first byte of the text is the lowest one of the word.
inline word load_word(const char *at) noexcept {
    static_assert(std::endian::native == std::endian::little);
    word bytes;
    std::memcpy(&bytes, at, in_word);
    return bytes;
}
constexpr word repeated(char byte) noexcept {
    return ones * static_cast<unsigned char>(byte);
}

}  // namespace kel::detail
