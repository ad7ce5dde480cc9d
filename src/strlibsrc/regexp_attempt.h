// Backtracking, for as long as it is cheap: most matches need no more than a look at the next character to
// choose, and then nothing is faster. It keeps count of its steps and gives up when they exceed a small
// multiple of the text, so that the machines whose work is bounded take over.
//
// It looks ahead: for every instruction it knows the symbols with which the way on from there can begin. A
// choice that cannot begin with the next character is not tried, and a repetition whose characters cannot
// begin what follows it is never shortened.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "strlibsrc/regexp_simulation.h"
#include "strlibsrc/regexp_start.h"

namespace kel::detail {

// What a way has to come back to.
struct attempt_frame {
    enum kind : std::uint32_t { choice, slot, shorten };
    kind what;
    std::uint32_t number;  // of the instruction to go on at, or of the slot to be put back
    const char *at;        // the position there, or the slot's value
    const char *least;     // of a repetition: the position that it does not fall short of
    std::uint64_t first;   // of a repetition: the symbols that what follows it can begin with
};

class regexp_attempt {
public:
    enum class verdict { found, nothing, gave_up };

    // The program and its start outlive this.
    regexp_attempt(const regexp_program &program, const regexp_start &start);

    // Some programs have too many symbols for the look ahead.
    static bool serves(const regexp_program &program) noexcept;

    std::size_t memory() const noexcept { return m_trials.capacity() * sizeof(trial); }

    // The first match that begins at `from` or later, in a number of steps that goes with the `span` bytes
    // that it may be found in. The slots are null before, and after unless it is found.
    verdict search(subject text, const char *from, std::ptrdiff_t span, std::vector<attempt_frame> &frames,
                   match_slots &slots);
    // Beginnings that the last search tried in vain.
    std::size_t failures() const noexcept { return m_failures; }

private:
    using symbols = std::uint64_t;               // a set, a bit for each
    static constexpr unsigned end_of_text = 63;  // where no character follows
    static constexpr std::size_t most_frames = 1 << 14;

    // An instruction of the program as it is tried; jumps are left out.
    struct trial {
        enum kind : std::uint8_t { success, take, line_begin, line_end, choose, repeat, save, fail };
        kind what;
        std::uint32_t next;
        std::uint32_t value;  // the second choice, or the slot
        symbols taken;        // by `take`, or by what is repeated
        symbols first;        // with which the way on at next can begin
        symbols second;       // and at value
    };
    // A position, and what follows there.
    struct place {
        const char *at;
        const char *next;
        unsigned character;
    };

    trial make(std::uint32_t number, const std::vector<symbols> &first) const;
    place look(const char *at) const noexcept;
    const char *before(const char *at, const char *least) const noexcept;
    bool match(place here, match_slots &slots);
    void repeat(const trial &each, place &here);
    bool go_back(std::uint32_t &number, place &here, match_slots &slots);
    void push(const attempt_frame &frame);
    bool spend(std::size_t steps) noexcept;

    const regexp_program &m_program;
    const regexp_start &m_start;
    std::vector<trial> m_trials;
    std::uint32_t m_begin;
    symbols m_first;  // with which a match can begin

    // Of the search at hand.
    subject m_text{};
    std::vector<attempt_frame> *m_frames = nullptr;
    std::size_t m_steps_left = 0;
    std::size_t m_failures = 0;
};

}  // namespace kel::detail
