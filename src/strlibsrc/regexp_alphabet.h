// The characters of a program sorted into symbols: characters that no part of the program tells apart share
// one. So the machines that search step by small numbers, whatever the encoding is, and their tables are
// narrow. Symbol 0 stands for every character that the program does not name, and for an invalid byte, which
// behaves the same: only `.` and a negated set take it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "runtime/characters.h"

namespace kel::detail {

using symbol = std::uint16_t;

class regexp_alphabet {
public:
    static constexpr symbol other = 0;

    encoding form() const noexcept { return m_form; }
    // Symbols are below this.
    std::size_t size() const noexcept { return m_size; }
    std::size_t memory() const noexcept {
        return m_multibyte.capacity() * sizeof(entry) + m_keys.capacity() * sizeof(std::uint32_t) +
               m_symbols.capacity() * sizeof(symbol);
    }

    // The symbol of the character at `at`, which lies before `end`; moves `at` behind the character.
    symbol read(const char *&at, const char *end) const noexcept {
        const symbol direct = m_bytes[static_cast<unsigned char>(*at)];
        if (direct == indirect) return read_multibyte(at, end);
        ++at;
        return direct;
    }

    // Of a byte that is a character by itself, else `indirect`.
    static constexpr symbol indirect = 0xFFFF;
    symbol of_byte(char byte) const noexcept { return m_bytes[static_cast<unsigned char>(byte)]; }
    symbol read_multibyte(const char *&at, const char *end) const noexcept;

    // The characters that were named, as numbers from 0: their bytes and their symbols.
    std::size_t named() const noexcept { return m_keys.size(); }
    std::uint32_t key(std::size_t character) const noexcept { return m_keys[character]; }
    symbol of_named(std::size_t character) const noexcept { return m_symbols[character]; }

private:
    friend class alphabet_builder;
    struct entry {
        std::uint32_t key = 0;  // 0: free
        std::uint32_t value = 0;
    };

    entry &place(std::uint32_t key) noexcept;

    encoding m_form = encoding::single;
    std::size_t m_size = 1;
    std::array<symbol, 256> m_bytes{};
    std::vector<entry> m_multibyte;  // hashed, a power of two, at most half full; the value is a symbol
    std::vector<std::uint32_t> m_keys;
    std::vector<symbol> m_symbols;
};

// Collects the characters that a program names, then the sets that it tells apart, then gives the alphabet.
class alphabet_builder {
public:
    static constexpr std::uint32_t invalid = 0xFFFFFFFF;

    explicit alphabet_builder(encoding form);
    // The number of the character at `at`, and moves behind it; `invalid` for bytes that are no character.
    std::uint32_t name(const char *&at, const char *end);
    // From now on the characters of the set, numbers without repetition, are told from all others. Linear.
    void separate(const std::uint32_t *characters, std::size_t count);
    regexp_alphabet finish() &&;

private:
    struct part {
        std::uint32_t size = 0;
        std::uint32_t met = 0;     // its characters in the set at hand
        std::uint32_t target = 0;  // where these go
    };

    std::uint32_t number(std::uint32_t key);
    void grow();

    regexp_alphabet m_result;
    std::array<std::uint32_t, 256> m_single;
    std::vector<std::uint32_t> m_part;  // of a character
    std::vector<part> m_parts;
    std::vector<std::uint32_t> m_met;  // parts with characters in the set at hand
};

}  // namespace kel::detail
