// Which characters an instruction takes: asked of its set, or of a mask for each, where symbols are few.
#include "strlibsrc/regexp_program.h"

#include <algorithm>

namespace kel::detail {

bool regexp_program::takes_by_search(const instruction &at, symbol character) const noexcept {
    switch (at.what) {
        case instruction::character:
            return at.value == character;
        case instruction::any:
            return true;
        case instruction::set:
        case instruction::inverse_set: {
            const symbol *begin = m_set_symbols.data() + m_set_begin[at.value];
            const symbol *end = m_set_symbols.data() + m_set_begin[at.value + 1];
            return std::binary_search(begin, end, character) == (at.what == instruction::set);
        }
        default:
            return false;
    }
}

std::size_t regexp_program::memory() const noexcept {
    return m_code.capacity() * sizeof(instruction) + m_masks.capacity() * sizeof(std::uint64_t) +
           (m_passers.capacity() + m_set_begin.capacity()) * sizeof(std::uint32_t) +
           m_set_symbols.capacity() * sizeof(symbol) + m_alphabet.memory();
}

void regexp_program::make_masks() {
    if (m_alphabet.size() > 64) return;
    const auto bit = [](std::uint32_t character) { return std::uint64_t{1} << character; };
    const std::uint64_t all = ~std::uint64_t{0} >> (64 - m_alphabet.size());
    m_masks.reserve(m_code.size());
    for (const instruction &each : m_code) {
        std::uint64_t mask = each.what == instruction::any ? all : 0;
        if (each.what == instruction::character) mask = bit(each.value);
        if (each.what == instruction::set || each.what == instruction::inverse_set) {
            for (std::uint32_t i = m_set_begin[each.value]; i < m_set_begin[each.value + 1]; ++i)
                mask |= bit(m_set_symbols[i]);
            if (each.what == instruction::inverse_set) mask = all & ~mask;
        }
        m_masks.push_back(mask);
    }
}

}  // namespace kel::detail
