// The hash and the entries of the key index.
#include "services/key_index.h"

#include <bit>
#include <cstring>
#include <utility>

#include <kelstdmt/vumrt.h>

namespace kel::detail {

namespace {

struct hash_secret {
    std::uint64_t start = btkRandomSeed(), first = btkRandomSeed(), last = btkRandomSeed();
};

// The product of two words, its halves folded together.
std::uint64_t fold(std::uint64_t a, std::uint64_t b) noexcept {
#ifdef __SIZEOF_INT128__
    __extension__ const auto product = static_cast<unsigned __int128>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
#else
    const std::uint64_t low = 0xFFFFFFFF;
    const std::uint64_t ll = (a & low) * (b & low), lh = (a & low) * (b >> 32), hl = (a >> 32) * (b & low);
    const std::uint64_t middle = (ll >> 32) + (lh & low) + (hl & low);
    return ((middle << 32) | (ll & low)) ^ ((a >> 32) * (b >> 32) + (lh >> 32) + (hl >> 32) + (middle >> 32));
#endif
}

template <class Word>
std::uint64_t load(const char *from) noexcept {
    Word word;
    std::memcpy(&word, from, sizeof(word));
    return word;
}

}  // namespace

std::uint32_t key_hash(const char *key, std::size_t length) noexcept {
    static const hash_secret secret;
    std::uint64_t hash = secret.start ^ length, a = 0, b = 0;
    std::size_t rest = length;
    for (; rest > 16; key += 16, rest -= 16)
        hash = fold(load<std::uint64_t>(key) ^ secret.first, load<std::uint64_t>(key + 8) ^ hash);
    if (rest >= 8) {
        a = load<std::uint64_t>(key);
        b = load<std::uint64_t>(key + rest - 8);
    } else if (rest >= 4) {
        a = load<std::uint32_t>(key);
        b = load<std::uint32_t>(key + rest - 4);
    } else if (rest != 0) {
        a = load<std::uint8_t>(key) | load<std::uint8_t>(key + rest / 2) << 8 |
            load<std::uint8_t>(key + rest - 1) << 16;
    }
    hash = fold(a ^ secret.first, b ^ hash);
    hash = fold(hash ^ secret.last, secret.start);
    return static_cast<std::uint32_t>(hash ^ hash >> 32);
}

key_index::key_index(unsigned slots)
    : m_mask(slots - 1), m_shift(32 - std::countr_zero(slots)), m_entries(new entry[slots]) {
    std::memset(m_entries.get(), 0xFF, slots * sizeof(entry));
}

void key_index::add(std::uint32_t hash, unsigned slot) noexcept {
    entry carried{hash, slot};
    std::uint32_t at = home(hash);
    for (std::uint32_t distance = 0;; ++distance, at = (at + 1) & m_mask) {
        entry &there = m_entries[at];
        if (there.slot == none) {
            there = carried;
            return;
        }
        const std::uint32_t theirs = (at - home(there.hash)) & m_mask;
        if (theirs < distance) {
            std::swap(there, carried);
            distance = theirs;
        }
    }
}

void key_index::remove(std::uint32_t hash, unsigned slot) noexcept {
    std::uint32_t at = home(hash);
    while (m_entries[at].slot != slot)
        at = (at + 1) & m_mask;
    for (;;) {
        const std::uint32_t next = (at + 1) & m_mask;
        const entry follower = m_entries[next];
        if (follower.slot == none || home(follower.hash) == next) break;
        m_entries[at] = follower;
        at = next;
    }
    m_entries[at].slot = none;
}

}  // namespace kel::detail
