// The hash and the entries of the key index.
#include "services/key_index.h"

#include <cstring>

#include <kelstdmt/vumrt.h>

#include "runtime/large_memory.h"

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

// A sixth more places than slots: three quarters are taken when a table is about to grow.
key_index::key_index(unsigned slots)
    : m_mask(slots - 1),
      m_count(slots / (group_size - 1) + 1),
      m_groups(new std::uint64_t[m_count]()),
      m_places(new std::uint32_t[std::size_t{m_count} * group_size]) {
    kel::system::prefer_large_pages(m_places.get(), m_count * group_size * sizeof(std::uint32_t));
}

void key_index::add(std::uint32_t hash, unsigned slot) noexcept {
    for (std::uint32_t group = home(hash);; group = next(group)) {
        std::uint64_t &word = m_groups[group];
        const std::uint64_t free = ~word & high_bits;
        if (free != 0) {
            word |= tag(hash) << 8 * first_byte(free);
            place(group, free) = (more(hash) & ~m_mask) | slot;
            return;
        }
        // A count that has reached its end stays there, and searches go on for good.
        if (passed(word) != 0xFF) word += passed_one;
    }
}

void key_index::remove(std::uint32_t hash, unsigned slot) noexcept {
    for (std::uint32_t group = home(hash);; group = next(group)) {
        std::uint64_t &word = m_groups[group];
        for (std::uint64_t equal = matches(word, tag(hash)); equal != 0; equal &= equal - 1) {
            if ((place(group, equal) & m_mask) != slot) continue;
            word &= ~(std::uint64_t{0xFF} << 8 * first_byte(equal));
            return;
        }
        if (passed(word) != 0xFF) word -= passed_one;
    }
}

}  // namespace kel::detail
