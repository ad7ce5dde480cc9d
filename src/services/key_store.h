// The texts of a dictionary's keys, packed one behind the other into blocks that grow. Ahead of each text
// stands what a rebuilt table needs to know of it. A text that is given up leaves a gap; when gaps prevail,
// the dictionary moves what lives into a fresh store.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include <kelstdmt/vumrt.h>

#include "services/slot_chains.h"

namespace kel::detail {

struct key_digest {
    probe_chain way;
    std::uint32_t hash;  // 0 until a table is large enough to need it
};

class key_store {
public:
    key_store() = default;
    // With room for texts of so many bytes, as `live_bytes` counts them; adding these does not throw.
    explicit key_store(std::size_t room) : m_next(take_block(room)), m_left(room) {}
    key_store(key_store &&other) noexcept { swap(other); }
    key_store &operator=(key_store &&other) noexcept {
        key_store taken(std::move(other));
        swap(taken);
        return *this;
    }
    ~key_store();

    // A copy that stays in its place as long as the store lives.
    char *add(const char *text, std::size_t length, const key_digest &digest) {
        const std::size_t bytes = bytes_for(length);
        char *place;
        if (bytes <= m_left) [[likely]] {
            place = std::exchange(m_next, m_next + bytes);
            m_left -= bytes;
        } else {
            place = add_block(bytes);
        }
        m_used += bytes;
        std::memcpy(place, &digest, sizeof digest);
        return static_cast<char *>(std::memcpy(place + sizeof digest, text, length + 1));
    }
    static key_digest digest(const char *text) noexcept {
        key_digest digest;
        std::memcpy(&digest, text - sizeof digest, sizeof digest);
        return digest;
    }
    static void set_digest(char *text, const key_digest &digest) noexcept {
        std::memcpy(text - sizeof digest, &digest, sizeof digest);
    }

    // A text of this length is needed no more.
    void drop(std::size_t length) noexcept { m_gaps += bytes_for(length); }
    std::size_t live_bytes() const noexcept { return m_used - m_gaps; }
    // Whether the gaps are larger than all else, and large enough to matter.
    bool wasteful() const noexcept { return m_gaps > m_used / 2 && m_gaps > tolerable; }

private:
    struct block {
        block *next;
    };

    static constexpr std::size_t smallest_block = 256, largest_block = 4 << 20, tolerable = 1024;

    static std::size_t bytes_for(std::size_t length) noexcept { return sizeof(key_digest) + length + 1; }
    char *take_block(std::size_t bytes);
    // Room for a text in a block of its own, or at the front of a new block for more.
    char *add_block(std::size_t bytes);
    void swap(key_store &other) noexcept {
        std::swap(m_blocks, other.m_blocks);
        std::swap(m_next, other.m_next);
        std::swap(m_left, other.m_left);
        std::swap(m_size, other.m_size);
        std::swap(m_used, other.m_used);
        std::swap(m_gaps, other.m_gaps);
    }

    block *m_blocks = nullptr;
    char *m_next = nullptr;  // where the next text goes
    std::size_t m_left = 0;  // bytes from there
    std::size_t m_size = smallest_block;
    std::size_t m_used = 0, m_gaps = 0;
};

}  // namespace kel::detail
