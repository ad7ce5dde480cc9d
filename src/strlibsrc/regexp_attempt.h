// Backtracking, for as long as it is cheap: most matches need no more than a look at the next character to
// choose, and then nothing is faster. It keeps count of its steps and gives up when they exceed a small
// multiple of the text, so that the machines whose work is bounded take over.
//
// It looks ahead: for every instruction it knows the symbols with which the way on from there can begin. A
// choice that cannot begin with the next character is not tried, and a repetition whose characters cannot
// begin what follows it is never shortened.
#pragma once

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
};

class regexp_attempt {
public:
    enum class result { found, nothing, gave_up };

    // The program and its start outlive this.
    regexp_attempt(const regexp_program &program, const regexp_start &start);

    // Some programs have too many symbols for the look ahead.
    static bool serves(const regexp_program &program) noexcept;

    // The first match that begins at `from` or later. Only a match that is found changes the slots.
    result search(subject text, const char *from, std::vector<attempt_frame> &frames, match_slots &slots);

private:
    using symbols = std::uint64_t;               // a set, a bit for each
    static constexpr unsigned end_of_text = 63;  // where no character follows
    static constexpr std::size_t most_frames = 1 << 14;

    // A position, and what follows there.
    struct place {
        const char *at;
        const char *next;
        unsigned character;
    };

    place look(const char *at) const noexcept;
    const char *before(const char *at, const char *least) const noexcept;
    bool may_go_on(std::uint32_t number, unsigned character) const noexcept {
        return m_first[number] >> character & 1;
    }
    bool match(const char *from, match_slots &slots);
    bool repeat(std::uint32_t split, place &here);
    bool go_back(std::uint32_t &number, place &here, match_slots &slots);
    void push(attempt_frame::kind what, std::uint32_t number, const char *at, const char *least = nullptr);
    bool spend(std::size_t steps) noexcept;

    const regexp_program &m_program;
    const regexp_start &m_start;
    std::vector<symbols> m_taken;  // of an instruction that takes a character
    std::vector<symbols> m_first;  // of an instruction: what the way on can begin with
    std::vector<bool> m_repeats;   // whether a split does nothing but repeat one that takes a character

    // Of the search at hand.
    subject m_text{};
    std::vector<attempt_frame> *m_frames = nullptr;
    std::size_t m_steps_left = 0;
};

}  // namespace kel::detail
