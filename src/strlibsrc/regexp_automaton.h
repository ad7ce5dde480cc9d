// Finds whether a program matches and where the match ends, in one pass with one look-up for each character.
//
// A state is the list of instructions that the ways through the program wait at, in the order of
// backtracking: the ways that began earlier first, and behind them all the way that begins at the next
// position. Where a way succeeds the list ends, because what comes later in the order has lost. So the last
// success before the list runs empty is the end of the match that backtracking finds. The list does not tell
// where that match began, only the last position at which no way was open but the one that began there.
#pragma once

#include <cstdint>
#include <vector>

#include "strlibsrc/regexp_simulation.h"
#include "strlibsrc/regexp_start.h"
#include "strlibsrc/regexp_states.h"

namespace kel::detail {

class regexp_automaton {
public:
    struct outcome {
        bool found;
        const char *from;  // the match begins here or later
        const char *end;   // of the match
    };

    // The program and its start outlive the automaton.
    regexp_automaton(const regexp_program &program, const regexp_start &start);

    // For a match that begins at `from` or later. A text that drives it into ever new states costs
    // no more than a simulation would.
    outcome run(subject text, const char *from);

    std::size_t memory() const noexcept {
        const std::size_t numbers =
            m_starters.capacity() + m_list.capacity() + m_met.capacity() + m_open.capacity();
        return m_table.memory() + numbers * sizeof(std::uint32_t);
    }

private:
    // A step leads to the row of the next state, with the high bit when a way succeeds there. The two largest
    // numbers are no rows.
    static constexpr std::uint32_t notable = 0x80000000;
    static constexpr std::uint32_t row_bits = notable - 1;
    static constexpr std::uint32_t dead = 0xFFFFFFFE;
    static constexpr std::uint32_t unknown = state_table::unknown;
    // The last number in a state's content when new ways may begin. The first is the bit of its target.
    static constexpr std::uint32_t restart = 0xFFFFFFFF;

    void begin_list();
    void add(std::uint32_t number, bool at_begin);
    void add_restart();
    void take(std::uint32_t number, symbol character);
    std::uint32_t first();
    std::uint32_t first_within();
    std::uint32_t step(std::uint32_t row, symbol character);
    std::uint32_t interned();
    bool succeeds_at_end(std::uint32_t row, bool at_begin);
    template <bool stops_at_fresh>
    std::uint32_t advance(std::uint32_t row, const char *&at, const char *end, const char *&from,
                          symbol &character) noexcept;

    const regexp_program &m_program;
    const regexp_start &m_start;
    state_table m_table;
    std::uint32_t m_first = unknown;         // where a text begins
    std::uint32_t m_first_within = unknown;  // where a search begins behind that
    std::uint32_t m_fresh = unknown;         // where no way is open but the one that begins there
    std::vector<std::uint32_t> m_starters;   // what a way that begins behind the beginning waits at
    bool m_starts_succeed = false;           // and it succeeds at once
    bool m_restarts = true;                  // ways may begin behind the beginning
    std::uint32_t m_source = 0;              // the row of an unknown step
    bool m_emptied = false;                  // the table, in the last step

    std::vector<std::uint32_t> m_list;  // the content of a state in the making
    std::vector<std::uint32_t> m_met;   // of an instruction: the number of the last list that it was met for
    std::uint32_t m_lists = 0;
    std::vector<std::uint32_t> m_open;
    bool m_cut = false;            // a way has succeeded
    bool m_crossed_begin = false;  // a way went through ^
};

}  // namespace kel::detail
