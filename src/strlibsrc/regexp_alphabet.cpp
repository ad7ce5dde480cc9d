// Characters are told apart by partition refinement: all named characters begin in one part, and each set
// splits every part that it holds some but not all characters of. The parts that remain are the symbols.
#include "strlibsrc/regexp_alphabet.h"

#include <utility>

namespace kel::detail {

namespace {

// A character's bytes as a number, 0 when they do not fit; no character that a pattern names is that long.
std::uint32_t packed(const char *at, std::size_t bytes) noexcept {
    if (bytes > 4) return 0;
    std::uint32_t key = 0;
    for (std::size_t i = 0; i < bytes; ++i)
        key = key << 8 | static_cast<unsigned char>(at[i]);
    return key;
}

}  // namespace

regexp_alphabet::entry &regexp_alphabet::place(std::uint32_t key) noexcept {
    const std::size_t mask = m_multibyte.size() - 1;
    std::size_t at = (key * 0x9E3779B1u >> 12) & mask;
    while (m_multibyte[at].key != 0 && m_multibyte[at].key != key)
        at = (at + 1) & mask;
    return m_multibyte[at];
}

symbol regexp_alphabet::read_multibyte(const char *&at, const char *end) const noexcept {
    bool valid = false;
    const char *character = at;
    const std::size_t bytes = multibyte_bytes(m_form, at, end, &valid);
    at += bytes;
    if (!valid || m_multibyte.empty()) return other;
    const std::uint32_t key = packed(character, bytes);
    return key == 0 ? other : static_cast<symbol>(const_cast<regexp_alphabet *>(this)->place(key).value);
}

alphabet_builder::alphabet_builder(encoding form) : m_parts(1) {
    m_result.m_form = form;
    m_single.fill(invalid);
    constexpr std::size_t usual = 64;  // characters
    m_part.reserve(usual);
    m_parts.reserve(usual);
    m_result.m_keys.reserve(usual);
}

std::uint32_t alphabet_builder::name(const char *&at, const char *end) {
    const char *character = at;
    const auto byte = static_cast<unsigned char>(*at);
    if (m_result.m_form == encoding::single || byte < 0x80) {
        ++at;
        if (m_single[byte] == invalid) m_single[byte] = number(byte);
        return m_single[byte];
    }
    bool valid = false;
    const std::size_t bytes = multibyte_bytes(m_result.m_form, at, end, &valid);
    at += bytes;
    const std::uint32_t key = valid ? packed(character, bytes) : 0;
    if (key == 0) return invalid;
    grow();
    regexp_alphabet::entry &place = m_result.place(key);
    if (place.key == 0) place = {key, number(key)};
    return place.value;
}

std::uint32_t alphabet_builder::number(std::uint32_t key) {
    const auto result = static_cast<std::uint32_t>(m_part.size());
    m_part.push_back(0);
    ++m_parts[0].size;
    m_result.m_keys.push_back(key);
    return result;
}

void alphabet_builder::grow() {
    std::vector<regexp_alphabet::entry> &table = m_result.m_multibyte;
    if (table.size() >= 2 * (m_part.size() + 1)) return;
    std::vector<regexp_alphabet::entry> old(table.empty() ? 16 : 2 * table.size());
    old.swap(table);
    for (const regexp_alphabet::entry &each : old)
        if (each.key != 0) m_result.place(each.key) = each;
}

void alphabet_builder::separate(const std::uint32_t *characters, std::size_t count) {
    m_met.clear();
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t number = m_part[characters[i]];
        if (m_parts[number].met++ == 0) m_met.push_back(number);
    }
    for (const std::uint32_t number : m_met) {
        part &each = m_parts[number];
        each.target = number;
        if (each.met < each.size) {
            each.target = static_cast<std::uint32_t>(m_parts.size());
            each.size -= each.met;
            const part split_off{.size = each.met, .met = 0, .target = 0};
            m_parts.push_back(split_off);
        }
    }
    for (std::size_t i = 0; i < count; ++i)
        m_part[characters[i]] = m_parts[m_part[characters[i]]].target;
    for (const std::uint32_t number : m_met)
        m_parts[number].met = 0;
}

regexp_alphabet alphabet_builder::finish() && {
    // The part of the beginning may have lost all its characters.
    const std::uint32_t shift = m_parts[0].size == 0 ? 0 : 1;
    m_result.m_size = m_parts.size() + shift;
    m_result.m_symbols.reserve(m_part.size());
    for (const std::uint32_t part_number : m_part)
        m_result.m_symbols.push_back(static_cast<symbol>(part_number + shift));
    for (std::size_t byte = 0; byte < 256; ++byte) {
        symbol &of_byte = m_result.m_bytes[byte];
        if (m_single[byte] != invalid)
            of_byte = m_result.m_symbols[m_single[byte]];
        else if (byte >= 0x80 && m_result.m_form != encoding::single)
            of_byte = regexp_alphabet::indirect;
    }
    for (regexp_alphabet::entry &each : m_result.m_multibyte)
        if (each.key != 0) each.value = m_result.m_symbols[each.value];
    return std::move(m_result);
}

}  // namespace kel::detail
