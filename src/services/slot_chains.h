// Where a new entry goes: the first free slot on the way of its key.
//
// A way is a first slot and an odd step, and steps are small: all keys together know 256 of them. Two things
// make long ways short. The live slots are known as a set with its full blocks, so a way strides across a
// full region at once. And each step on which much was walked gets a memory of its own: the table seen in the
// order of that step, where every way is a straight run, with the slots that were met live. Met slots are
// stepped over together from then on. A memory need not hear of new entries, only of freed slots; those are
// written down and told to it when it is next asked.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "services/slot_bits.h"

namespace kel::detail {

// The way of a key through a table: a first slot and, as a signed byte, the direction; the step is twice that
// and one. Bytes of keys count as signed, so both fit into a word.
class probe_chain {
public:
    probe_chain() = default;
    probe_chain(const char *key, std::size_t length) noexcept {
        if (length == 0) return;
        auto byte = [&](std::size_t at) { return static_cast<int>(static_cast<signed char>(key[at])); };
        const int direction = length < 3 ? byte(0) : byte(length / 2 + 1) ^ byte(length - 2) ^ byte(1);
        m_packed = byte(length / 2) * byte(length - 1) * byte(0) * 256 + (direction & 0xFF);
    }
    unsigned first() const noexcept { return static_cast<unsigned>(m_packed >> 8); }
    unsigned char direction() const noexcept { return static_cast<unsigned char>(m_packed & 0xFF); }
    unsigned step() const noexcept { return step(direction()); }
    static unsigned step(unsigned char direction) noexcept {
        return static_cast<unsigned>(static_cast<signed char>(direction)) * 2 + 1;
    }

private:
    std::int32_t m_packed = 0;
};

class slot_chains {
public:
    // For a table of empty slots, a power of two from 64 up. std::bad_alloc when there is no memory.
    explicit slot_chains(unsigned slots);

    // Finds the first free slot, which there must be, and counts it as live.
    unsigned take(probe_chain way) noexcept;
    void freed(unsigned slot) noexcept;

private:
    struct crowded_step {
        slot_bits met;
        unsigned inverse;       // of the step, modulo the slots
        std::size_t heard = 0;  // how many of the freed slots it was told of
    };

    unsigned walk(unsigned slot, unsigned step) const noexcept;
    unsigned first_free(crowded_step &memory, unsigned slot, unsigned step) noexcept;
    unsigned first_free(unsigned slot, unsigned char direction) noexcept;
    void remember(unsigned char direction) noexcept;
    void tell(crowded_step &memory) noexcept;
    void settle() noexcept;
    void forget() noexcept;

    unsigned m_mask;
    slot_bits m_live;
    std::array<unsigned, 256> m_walked{};  // on each step without a memory
    std::array<std::unique_ptr<crowded_step>, 256> m_crowded;
    bool m_any_crowded = false;
    std::vector<unsigned> m_freed;  // since the last settlement
};

}  // namespace kel::detail
