// From keys to slots: open addressing over a hash that nobody outside the process can foresee.
//
// Keys of one home stand together, each as near to its home as those before it allow, so that a search ends
// early for keys that are not there; a removal moves the followers up and leaves no trace.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace kel::detail {

// 32 bits of a keyed hash of the whole key.
std::uint32_t key_hash(const char *key, std::size_t length) noexcept;

class key_index {
public:
    // For at most as many keys as the table has slots, a power of two.
    explicit key_index(unsigned slots);

    // The slot among those entered for the hash for which `is_it` says yes, or `none`.
    template <class Match>
    unsigned find(std::uint32_t hash, Match is_it) const noexcept {
        std::uint32_t at = home(hash);
        for (std::uint32_t distance = 0;; ++distance, at = (at + 1) & m_mask) {
            const entry there = m_entries[at];
            if (there.slot == none || ((at - home(there.hash)) & m_mask) < distance) return none;
            if (there.hash == hash && is_it(there.slot)) return there.slot;
        }
    }
    void add(std::uint32_t hash, unsigned slot) noexcept;
    void remove(std::uint32_t hash, unsigned slot) noexcept;
    void prefetch(std::uint32_t hash) const noexcept { __builtin_prefetch(&m_entries[home(hash)], 1); }

    static constexpr unsigned none = ~0U;

private:
    struct entry {
        std::uint32_t hash;
        unsigned slot;
    };

    std::uint32_t home(std::uint32_t hash) const noexcept { return hash >> m_shift; }

    std::uint32_t m_mask;
    int m_shift;
    std::unique_ptr<entry[]> m_entries;
};

}  // namespace kel::detail
