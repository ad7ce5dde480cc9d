// A compiled program made ready for searching: the byte program is walked once, checked, and turned into
// instructions over symbols. What is reachable in it is then known to be whole: every machine may follow it
// without looking for damage. No path through it comes back to an instruction without taking a character.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <kelstdmt/regexp.h>

#include "strlibsrc/regexp_alphabet.h"

namespace kel::detail {

struct instruction {
    enum kind : std::uint8_t {
        success,
        character,    // takes one with the symbol `value`
        set,          // takes one of the set `value`
        inverse_set,  // takes one outside the set `value`
        any,
        none,  // fails
        line_begin,
        line_end,
        split,  // goes on at next, or else at `value`
        jump,
        save,  // the position into the slot `value`: of group n, 2n its beginning and 2n+1 its end
    };
    kind what = none;
    std::uint32_t next = 0;
    std::uint32_t value = 0;

    bool takes_character() const noexcept { return what >= character && what <= any; }
};

class regexp_program {
public:
    // stSuccess, or the error for which the program cannot be searched with.
    stErrorCode load(const regexp &from, encoding form);

    const regexp_alphabet &alphabet() const noexcept { return m_alphabet; }
    const std::vector<instruction> &code() const noexcept { return m_code; }
    static constexpr std::uint32_t start = 0;
    // The instructions that take no character, each behind those that it leads to without taking one.
    const std::vector<std::uint32_t> &passers() const noexcept { return m_passers; }
    // Of the groups that the program has and of the whole match.
    std::size_t slots() const noexcept { return m_slots; }
    bool has_groups() const noexcept { return m_slots > 2; }
    // Every match begins at the beginning of the text.
    bool anchored() const noexcept { return m_anchored; }
    // Bytes that a match has to begin with though the program itself does not ask for them, else empty.
    const std::string &extra_first() const noexcept { return m_extra_first; }

    // Of each instruction the symbols that it takes, a bit for each; empty when there are more than 64.
    const std::vector<std::uint64_t> &masks() const noexcept { return m_masks; }
    std::size_t memory() const noexcept;

    // Whether an instruction that takes a character takes this one; false for the others.
    bool takes(std::uint32_t at, symbol character) const noexcept {
        if (!m_masks.empty()) return m_masks[at] >> character & 1;
        return takes_by_search(m_code[at], character);
    }

private:
    friend class program_loader;
    bool takes_by_search(const instruction &at, symbol character) const noexcept;
    void make_masks();

    regexp_alphabet m_alphabet;
    std::vector<instruction> m_code;
    std::vector<std::uint32_t> m_passers;
    // The symbols of a set, in their order: those from m_set_begin[n] to m_set_begin[n + 1].
    std::vector<symbol> m_set_symbols;
    std::vector<std::uint32_t> m_set_begin;
    std::vector<std::uint64_t> m_masks;
    std::string m_extra_first;
    std::size_t m_slots = 2;
    bool m_anchored = false;
};

}  // namespace kel::detail
