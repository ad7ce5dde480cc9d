#include "strlibsrc/character_set.h"

namespace kel::detail {

character_set::character_set(std::string_view characters, rule members) : m_form(locale_encoding()) {
    bool ascii = true;
    const char *at = characters.data(), *end = at + characters.size();
    for (std::size_t bytes; at < end; at += bytes) {
        bytes = character_bytes(m_form, at, end);
        if (bytes > 1) m_long.emplace_back(at, bytes);
        // An invalid byte of a text may occur inside a character of the set.
        for (std::size_t i = 0; i < bytes && (bytes == 1 || members == rule::occurring); ++i)
            m_single.add(at[i]);
        ascii = ascii && static_cast<unsigned char>(*at) < 0x80;
    }
    std::sort(m_long.begin(), m_long.end());
    // In UTF-8 a character can only occur as one.
    if (members == rule::occurring && m_form == encoding::other) m_within = characters;
    m_by_bytes = m_form == encoding::single || (m_form == encoding::utf8 && ascii);
}

std::size_t character_set::count_pieces(const char *begin, const char *end) const noexcept {
    std::size_t count = 1;
    if (!m_by_bytes) return count;
    blocks(begin, end, [&](const char *, std::uint64_t members, std::uint64_t before) {
        count += static_cast<std::size_t>(std::popcount(members & ~(members << 1 | before)));
        return true;
    });
    return count;
}

const char *character_set::find(const char *at, const char *end) const noexcept {
    if (!m_by_bytes) {
        for (std::size_t bytes; at < end; at += bytes) {
            bytes = character_bytes(m_form, at, end);
            if (holds(at, bytes)) break;
        }
        return at;
    }
    for (; static_cast<std::size_t>(end - at) >= byte_set::block; at += byte_set::block)
        if (const std::uint64_t members = m_single.members(at)) return at + std::countr_zero(members);
    while (at < end && !m_single.holds(*at))
        ++at;
    return at;
}

const char *character_set::pass(const char *at, const char *end) const noexcept {
    for (std::size_t bytes; at < end; at += bytes) {
        bytes = character_bytes(m_form, at, end);
        if (!holds(at, bytes)) break;
    }
    return at;
}

const char *character_set::find_last(const char *begin, const char *end) const noexcept {
    const char *last = nullptr;
    if (!m_by_bytes) {
        for (std::size_t bytes; begin < end; begin += bytes) {
            bytes = character_bytes(m_form, begin, end);
            if (holds(begin, bytes)) last = begin;
        }
        return last;
    }
    for (; static_cast<std::size_t>(end - begin) >= byte_set::block; end -= byte_set::block)
        if (const std::uint64_t members = m_single.members(end - byte_set::block))
            return end - 1 - std::countl_zero(members);
    while (end > begin)
        if (m_single.holds(*--end)) return end;
    return nullptr;
}

}  // namespace kel::detail
