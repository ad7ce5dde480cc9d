// Walking to the first free slot, and the memories of crowded steps.
#include "services/slot_chains.h"

#include <new>

namespace kel::detail {

namespace {

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

// Steps over live slots, some at a time, and answers how often: 0 at a free slot. What is within a long full
// run is one stride.
unsigned slot_chains::walk(unsigned slot, unsigned step) const noexcept {
    constexpr unsigned together = 4, most = 64, worth_a_division = 8;
    const bool up = static_cast<int>(step) > 0;
    const unsigned length = up ? step : 0 - step, run = m_live.full_run(slot, up);
    if (run > worth_a_division * length) return (run + length - 1) / length;
    unsigned steps = 0;
    // Without a branch for each, the words of several slots are fetched side by side.
    auto live = [&](unsigned ahead) {
        return static_cast<unsigned>(m_live.has((slot + ahead * step) & m_mask));
    };
    for (; steps < most && (live(0) & live(1) & live(2) & live(3)) != 0; steps += together)
        slot += together * step;
    for (; steps < most && m_live.has(slot & m_mask); ++steps)
        slot += step;
    return steps;
}

unsigned slot_chains::take(probe_chain way) noexcept {
    unsigned slot = way.first() & m_mask;
    if (m_live.has(slot)) {
        crowded_step *memory = m_crowded[way.direction()].get();
        slot = memory ? first_free(*memory, slot, way.step()) : first_free(slot, way.direction());
    }
    m_live.add(slot);
    return slot;
}

unsigned slot_chains::first_free(unsigned slot, unsigned char direction) noexcept {
    const unsigned step = probe_chain::step(direction);
    unsigned &walked = m_walked[direction];
    while (const unsigned steps = walk(slot, step)) {
        slot = (slot + steps * step) & m_mask;
        walked += std::min(steps, 64U);
    }
    if (walked > m_mask) {
        walked = 0;
        remember(direction);
    }
    return slot;
}

unsigned slot_chains::first_free(crowded_step &memory, unsigned slot, unsigned step) noexcept {
    tell(memory);
    for (unsigned at = slot * memory.inverse & m_mask;;) {
        at = memory.met.next_missing(at);
        slot = at * step & m_mask;
        if (!m_live.has(slot)) {
            memory.met.add(at);
            return slot;
        }
        const unsigned steps = walk(slot, step);
        memory.met.add_run(at, steps);
        at = (at + steps) & m_mask;
    }
}

// A memory costs a bit a slot, and a look into it may cost as much as a hundred steps: it is made when the
// steps walked in vain are as many as the slots.
void slot_chains::remember(unsigned char direction) noexcept {
    std::unique_ptr<crowded_step> memory(new (std::nothrow) crowded_step{
        slot_bits(m_mask + 1), inverse_of(probe_chain::step(direction)), m_freed.size()});
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
