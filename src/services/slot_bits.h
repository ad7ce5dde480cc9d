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

    bool has(unsigned slot) const noexcept { return word(0, slot >> 6) >> (slot & 63) & 1; }

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
        unsigned found = ahead(slot);
        return found != none ? found : ahead(0);
    }

    // The size of the largest aligned block around a slot that is wholly in the set: a power of 64, or 0.
    unsigned full_block(unsigned slot) const noexcept {
        if (!has(slot)) return 0;
        unsigned level = 1;
        for (; level < m_levels; ++level)
            if (!(word(level, slot >> 6 * (level + 1)) >> (slot >> 6 * level & 63) & 1)) break;
        return 1U << 6 * (level - 1);
    }

private:
    static constexpr unsigned none = ~0U;

    static unsigned words_for(unsigned bits) noexcept { return (bits + 63) / 64; }
    std::uint64_t &word(unsigned level, unsigned number) const noexcept {
        return m_words[m_begin[level] + number];
    }

    unsigned ahead(unsigned slot) const noexcept {
        std::uint64_t rest = ~word(0, slot >> 6) >> (slot & 63);
        if (rest != 0) return slot + static_cast<unsigned>(std::countr_zero(rest));
        // Up to the level where something is missing behind this word, and down to it.
        unsigned level = 0, at = slot;
        for (;;) {
            at >>= 6;
            if (++level == m_levels) return none;
            if ((at & 63) == 63) continue;
            rest = ~word(level, at >> 6) >> (at & 63) >> 1;
            if (rest != 0) break;
        }
        at += 1 + static_cast<unsigned>(std::countr_zero(rest));
        while (level-- > 0)
            at = (at << 6) + static_cast<unsigned>(std::countr_zero(~word(level, at)));
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
