// A set of slots that answers "the next slot from here that is not in it" in a few steps: a bitmap, above it
// a bitmap of its full words, and so on up to a single word.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace kel::detail {

class slot_bits {
public:
    // An empty set of slots below the count, a power of two from 64 up. Without memory it stays unusable.
    explicit slot_bits(unsigned slots) noexcept : m_slots(slots) {
        std::size_t words = 0;
        for (unsigned bits = slots; bits > 1; bits = words_for(bits)) {
            m_begin[m_levels++] = words;
            words += words_for(bits);
        }
        // The C library hands large blocks out untouched, so parts that stay empty cost nothing.
        m_words.reset(static_cast<std::uint64_t *>(std::calloc(words, sizeof(std::uint64_t))));
        if (!m_words) return;
        unsigned bits = slots;
        for (unsigned level = 0; level < m_levels; ++level, bits = words_for(bits))
            if (bits % 64 != 0) m_words[m_begin[level] + bits / 64] = ~std::uint64_t{0} << (bits % 64);
    }

    bool usable() const noexcept { return m_words != nullptr; }

    bool has(unsigned slot) const noexcept { return m_words[slot >> 6] >> (slot & 63) & 1; }

    void add(unsigned slot) noexcept {
        for (unsigned level = 0; level < m_levels; ++level, slot >>= 6) {
            std::uint64_t &there = word(level, slot >> 6);
            there |= std::uint64_t{1} << (slot & 63);
            if (~there != 0) return;
        }
    }

    void remove(unsigned slot) noexcept {
        for (unsigned level = 0; level < m_levels; ++level, slot >>= 6) {
            std::uint64_t &there = word(level, slot >> 6);
            const bool full = ~there == 0;
            there &= ~(std::uint64_t{1} << (slot & 63));
            if (!full) return;
        }
    }

    // A run that may go around the end.
    void add_run(unsigned slot, unsigned count) noexcept {
        const unsigned ahead = std::min(count, m_slots - slot);
        add_straight_run(slot, ahead);
        if (count > ahead) add_straight_run(0, count - ahead);
    }

    // The first slot from here, around the end, that is not in the set; there must be one.
    unsigned next_missing(unsigned slot) const noexcept {
        const unsigned found = ahead(0, slot);
        return found != none ? found : ahead(0, 0);
    }

    // How many slots from here on, itself counted, lie in whole words of the set, upwards or downwards to the
    // end of the table. 0 when its own word is not whole.
    unsigned full_run(unsigned slot, bool up) const noexcept {
        if (~m_words[slot >> 6] != 0 || m_levels == 1) return 0;
        if (up) {
            const unsigned end = ahead(1, slot >> 6);
            return (end == none ? m_slots : end << 6) - slot;
        }
        const unsigned end = behind(1, slot >> 6);
        return slot + 1 - (end == none ? 0 : (end + 1) << 6);
    }

private:
    static constexpr unsigned none = ~0U;

    static unsigned words_for(unsigned bits) noexcept { return (bits + 63) / 64; }
    std::uint64_t &word(unsigned level, unsigned number) const noexcept {
        return m_words[m_begin[level] + number];
    }

    // The first bit of a level from this one on that is not set, or `none`.
    unsigned ahead(unsigned level, unsigned at) const noexcept {
        const unsigned bottom = level;
        std::uint64_t rest = ~word(level, at >> 6) >> (at & 63);
        if (rest != 0) return at + static_cast<unsigned>(std::countr_zero(rest));
        // Up to the level where something is missing behind this word, and down to it.
        for (;;) {
            at >>= 6;
            if (++level == m_levels) return none;
            rest = ~word(level, at >> 6) >> (at & 63) >> 1;
            if (rest != 0) break;
        }
        at += 1 + static_cast<unsigned>(std::countr_zero(rest));
        while (level-- > bottom)
            at = (at << 6) + static_cast<unsigned>(std::countr_zero(~word(level, at)));
        return at;
    }
    // The last bit up to this one.
    unsigned behind(unsigned level, unsigned at) const noexcept {
        const unsigned bottom = level;
        std::uint64_t rest = ~word(level, at >> 6) << (63 - (at & 63));
        if (rest != 0) return at - static_cast<unsigned>(std::countl_zero(rest));
        for (;;) {
            at >>= 6;
            if (++level == m_levels) return none;
            rest = ~word(level, at >> 6) << (63 - (at & 63)) << 1;
            if (rest != 0) break;
        }
        at -= 1 + static_cast<unsigned>(std::countl_zero(rest));
        while (level-- > bottom)
            at = (at << 6) + 63 - static_cast<unsigned>(std::countl_zero(~word(level, at)));
        return at;
    }

    void add_straight_run(unsigned slot, unsigned count) noexcept {
        while (count != 0) {
            const unsigned bits = std::min(count, 64 - (slot & 63));
            std::uint64_t &there = word(0, slot >> 6);
            there |= ~std::uint64_t{0} >> (64 - bits) << (slot & 63);
            if (~there == 0) add_full_word(slot >> 6);
            slot += bits;
            count -= bits;
        }
    }
    void add_full_word(unsigned number) noexcept {
        for (unsigned level = 1; level < m_levels; ++level, number >>= 6) {
            std::uint64_t &there = word(level, number >> 6);
            there |= std::uint64_t{1} << (number & 63);
            if (~there != 0) return;
        }
    }

    struct release {
        void operator()(std::uint64_t *words) const noexcept { std::free(words); }
    };

    unsigned m_slots, m_levels = 0;
    std::size_t m_begin[6] = {};  // where the words of each level begin
    std::unique_ptr<std::uint64_t[], release> m_words;
};

}  // namespace kel::detail
