// From keys to slots, beside a large table.
//
// Seven places make a group, whose word in memory tells a byte of the hash of each key in them, and how many
// keys found the group full and went on. A search that meets no equal byte and nobody who went on is over,
// and the words of a million keys fit into the processor's cache. A place holds the slot's number and, in the
// bits that this leaves, more of the hash.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace kel::detail {

// 32 bits of a hash of the whole key that nobody outside the process can foresee.
std::uint32_t key_hash(const char *key, std::size_t length) noexcept;

class key_index {
public:
    // An empty index for as many keys as the table has slots, a power of two.
    explicit key_index(unsigned slots);

    // The slot among those entered for the hash for which `is_it` says yes, or `none`.
    template <class Match>
    unsigned find(std::uint32_t hash, Match is_it) const noexcept {
        std::uint32_t group = home(hash);
        for (std::uint32_t left = m_count; left != 0; --left, group = next(group)) {
            const std::uint64_t word = m_groups[group];
            for (std::uint64_t equal = matches(word, tag(hash)); equal != 0; equal &= equal - 1) {
                const std::uint32_t there = place(group, equal);
                if (((there ^ more(hash)) & ~m_mask) == 0 && is_it(there & m_mask)) return there & m_mask;
            }
            if (passed(word) == 0) break;
        }
        return none;
    }
    // The key must be new.
    void add(std::uint32_t hash, unsigned slot) noexcept;
    void remove(std::uint32_t hash, unsigned slot) noexcept;

    void prefetch(std::uint32_t hash) const noexcept {
        __builtin_prefetch(&m_groups[home(hash)], 1);
        __builtin_prefetch(&m_places[std::size_t{home(hash)} * group_size], 1);
    }

    static constexpr unsigned none = ~0U;

private:
    static constexpr unsigned group_size = 7;
    static constexpr int passed_shift = 56;
    static constexpr std::uint64_t passed_one = std::uint64_t{1} << passed_shift;
    static constexpr std::uint64_t low_bits = 0x0001010101010101, high_bits = low_bits << 7;

    std::uint32_t home(std::uint32_t hash) const noexcept {
        return static_cast<std::uint32_t>(std::uint64_t{hash} * m_count >> 32);
    }
    std::uint32_t next(std::uint32_t group) const noexcept { return group + 1 == m_count ? 0 : group + 1; }
    // Never 0, which marks a free place. The home is made of the upper bits of the hash, this of the lower
    // ones.
    static std::uint64_t tag(std::uint32_t hash) noexcept { return (hash & 0x7F) | 0x80; }
    // Bits of the hash that neither tells, foremost.
    static std::uint32_t more(std::uint32_t hash) noexcept { return hash << 14; }
    static std::uint64_t passed(std::uint64_t word) noexcept { return word >> passed_shift; }
    // The upper bit of each of the seven bytes that is equal, and now and then of the byte above one that is.
    static std::uint64_t matches(std::uint64_t word, std::uint64_t tag) noexcept {
        const std::uint64_t difference = word ^ tag * low_bits;
        return (difference - low_bits) & ~difference & high_bits;
    }
    static unsigned first_byte(std::uint64_t bits) noexcept {
        return static_cast<unsigned>(std::countr_zero(bits)) / 8;
    }
    std::uint32_t &place(std::uint32_t group, std::uint64_t bits) const noexcept {
        return m_places[std::size_t{group} * group_size + first_byte(bits)];
    }

    std::uint32_t m_mask;   // the bits of a slot's number
    std::uint32_t m_count;  // of groups
    std::unique_ptr<std::uint64_t[]> m_groups;
    std::unique_ptr<std::uint32_t[]> m_places;
};

}  // namespace kel::detail
