// Walking to the first free slot, and the memories of crowded steps.
#include "services/slot_chains.h"

#include <new>

namespace kel::detail {

namespace {

// A memory costs a bit a slot, so it is made when about as much has been walked in vain.
constexpr unsigned slots_per_walked = 64, least_walked = 64;
// How many freed slots are written down before everybody is told.
constexpr unsigned slots_per_freed = 32, least_freed = 64;

// Of an odd number modulo 2^32: every round doubles the bits that are right, and three are to begin with.
unsigned inverse_of(unsigned odd) noexcept {
    unsigned inverse = odd;
    for (int round = 0; round < 4; ++round)
        inverse *= 2 - odd * inverse;
    return inverse;
}

}  // namespace

slot_chains::slot_chains(unsigned slots) : m_mask(slots - 1), m_live(slots) {
    if (!m_live.usable()) throw std::bad_alloc();
}

// How often the step is taken from a slot until it leaves the aligned block around it.
unsigned slot_chains::strides_within(unsigned block, unsigned slot, unsigned step) noexcept {
    if (block == 1) return 1;
    const unsigned inside = slot & (block - 1);
    const bool up = static_cast<int>(step) > 0;
    const unsigned distance = up ? block - inside : inside + 1, length = up ? step : 0 - step;
    return (distance + length - 1) / length;
}

// Steps over live slots, at most so many at a time, and answers how often. What is within a large full block
// is one stride.
unsigned slot_chains::walk(unsigned slot, unsigned step) const noexcept {
    const unsigned block = m_live.full_block(slot);
    if (block > 64) return strides_within(block, slot, step);
    unsigned steps = 0;
    for (; steps < 64 && m_live.has(slot); ++steps)
        slot = (slot + step) & m_mask;
    return steps;
}

unsigned slot_chains::take(probe_chain way) noexcept {
    const unsigned slot = first_free(way);
    m_live.add(slot);
    return slot;
}

unsigned slot_chains::first_free(probe_chain way) noexcept {
    constexpr int glance = 8;
    const unsigned step = way.step();
    unsigned slot = way.first & m_mask;
    for (int i = 0; i < glance; ++i, slot = (slot + step) & m_mask)
        if (!m_live.has(slot)) return slot;
    const auto direction = static_cast<unsigned char>(way.direction);
    if (m_crowded[direction]) return first_free(*m_crowded[direction], slot, step);
    while (const unsigned steps = walk(slot, step)) {
        slot = (slot + steps * step) & m_mask;
        m_walked[direction] += std::min(steps, 64U);
    }
    if (m_walked[direction] > std::max(least_walked, m_mask / slots_per_walked)) remember(direction);
    return slot;
}

unsigned slot_chains::first_free(crowded_step &memory, unsigned slot, unsigned step) noexcept {
    tell(memory);
    for (unsigned at = slot * memory.inverse & m_mask;;) {
        at = memory.met.next_missing(at);
        const unsigned steps = walk(at * step & m_mask, step);
        memory.met.add_run(at, std::max(steps, 1U));
        if (steps == 0) return at * step & m_mask;
        at = (at + steps) & m_mask;
    }
}

void slot_chains::remember(unsigned char direction) noexcept {
    m_walked[direction] = 0;
    const unsigned step = static_cast<unsigned>(static_cast<signed char>(direction)) * 2 + 1;
    std::unique_ptr<crowded_step> memory(
        new (std::nothrow) crowded_step{slot_bits(m_mask + 1), inverse_of(step), m_freed.size()});
    if (!memory || !memory->met.usable()) return;
    m_crowded[direction] = std::move(memory);
    m_any_crowded = true;
}

void slot_chains::tell(crowded_step &memory) noexcept {
    for (; memory.heard < m_freed.size(); ++memory.heard)
        memory.met.remove(m_freed[memory.heard] * memory.inverse & m_mask);
}

void slot_chains::freed(unsigned slot) noexcept {
    m_live.remove(slot);
    if (!m_any_crowded) return;
    try {
        m_freed.push_back(slot);
    } catch (const std::bad_alloc &) {
        return forget();
    }
    if (m_freed.size() > std::max(least_freed, m_mask / slots_per_freed)) settle();
}

// Memories that were not asked meanwhile are given up.
void slot_chains::settle() noexcept {
    m_any_crowded = false;
    for (auto &memory : m_crowded) {
        if (!memory) continue;
        if (memory->heard == 0) {
            memory.reset();
            continue;
        }
        tell(*memory);
        memory->heard = 0;
        m_any_crowded = true;
    }
    m_freed.clear();
}

void slot_chains::forget() noexcept {
    for (auto &memory : m_crowded)
        memory.reset();
    m_any_crowded = false;
    m_freed.clear();
}

}  // namespace kel::detail
