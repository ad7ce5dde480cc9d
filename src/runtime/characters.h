// Where the bytes of a text make characters of the current locale.
//
// The rule of the whole system: a byte that begins no valid character (it is malformed, or its character is
// cut off by the end) counts as one character of one byte. So every walk ends, and none looks beyond the end.
// ASCII bytes at the beginning of a character are characters in every encoding.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace kel::detail {

enum class encoding : std::uint8_t {
    single,  // one byte a character
    utf8,
    other,  // asked of the C library, character by character
};

inline constexpr std::size_t longest_character = 4;  // bytes; a longer one is invalid

constexpr bool is_ascii(char byte) noexcept {
    return static_cast<unsigned char>(byte) < 0x80;
}
// In UTF-8: it can only lie inside a character.
constexpr bool continues(char byte) noexcept {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// Of the current locale, which may change between any two calls: ask once for an operation.
encoding locale_encoding() noexcept;

// The same, asked when it is needed first: many an answer about a short text does not depend on it.
class lazy_encoding {
public:
    lazy_encoding() = default;
    explicit lazy_encoding(encoding known) noexcept : m_form(known), m_known(true) {}

    encoding get() noexcept {
        if (!m_known) m_form = locale_encoding(), m_known = true;
        return m_form;
    }

private:
    encoding m_form = encoding::single;
    bool m_known = false;
};

// Of the character at `at`, which lies before `end`; for a byte from 0x80 on and an encoding that is not
// single. 1 for an invalid one; valid tells which.
std::size_t multibyte_bytes(encoding form, const char *at, const char *end, bool *valid = nullptr) noexcept;

inline std::size_t character_bytes(encoding form, const char *at, const char *end) noexcept {
    if (form == encoding::single || is_ascii(*at)) return 1;
    return multibyte_bytes(form, at, end);
}

std::size_t count_characters(encoding form, const char *begin, const char *end) noexcept;
// The position behind n characters, `end` when there are fewer.
const char *skip_characters(encoding form, const char *begin, const char *end, std::size_t n) noexcept;
// Positions that come back to callers are ints.
inline int position_of(std::size_t characters) noexcept {
    return static_cast<int>(std::min<std::size_t>(characters, std::numeric_limits<int>::max()));
}

// What each byte is in upper or in lower case, as std::toupper and std::tolower have it, without a call for
// each. Of the current locale: ask once for an operation.
class byte_case {
public:
    static byte_case upper() noexcept;
    static byte_case lower() noexcept;

    char operator()(char byte) const noexcept {
        return static_cast<char>(m_table[static_cast<unsigned char>(byte)]);
    }

private:
    explicit byte_case(const std::int32_t *table) noexcept : m_table(table) {}

    const std::int32_t *m_table;
};

}  // namespace kel::detail
