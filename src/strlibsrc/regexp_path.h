// Finds the way of a match whose end is known: where it begins, and what its groups are.
//
// Going backwards from the end, a second automaton notes for each position the instructions from which the
// end can be reached. The match begins at the first position from which it can. From there the way is walked
// forwards without ever going back: at a split, the first choice from which the end can be reached is the one
// that backtracking would have come to. Long matches are done piece by piece: the way backwards keeps only
// the state at each piece's end, and a piece is noted in full when the walk comes to it.
#pragma once

#include <cstdint>
#include <vector>

#include "strlibsrc/regexp_simulation.h"
#include "strlibsrc/regexp_states.h"

namespace kel::detail {

// Room for one piece, shared by all programs of a thread.
struct path_notes {
    static constexpr std::size_t capacity = 4096;  // characters
    symbol symbols[capacity];
    std::uint32_t offsets[capacity + 1];  // bytes from the beginning of the piece
    std::uint32_t rows[capacity + 1];     // of the states
};

class regexp_path {
public:
    explicit regexp_path(const regexp_program &program);

    // Fills the slots of the match that ends at `end` and begins at `from` or later. False when the text
    // drives the automaton into too many states. The slots are null before, and then still are.
    bool trace(subject text, const char *from, const char *end, path_notes &notes, match_slots &slots);

    std::size_t memory() const noexcept {
        const std::size_t numbers = m_takers.capacity() + m_place.capacity() + m_list.capacity();
        return m_table.memory() + numbers * sizeof(std::uint32_t) + m_pieces.capacity() * sizeof(piece);
    }

private:
    // A step leads to the row of the state before, with the high bit when the match may begin there.
    static constexpr std::uint32_t begins = 0x80000000;
    static constexpr std::uint32_t row_bits = begins - 1;
    static constexpr std::uint32_t dead = 0xFFFFFFFE;
    static constexpr std::uint32_t unknown = state_table::unknown;
    struct piece {
        const char *begin, *end;
        std::uint32_t row;  // of the state at its end
    };

    // What the walk does at a position: it fills the slots of `saves`, a bit for each, on its way to the
    // instruction that takes the next character, a place in m_takers.
    struct move {
        std::uint32_t saves;
        std::uint32_t taker;
    };
    static constexpr std::uint32_t arrived = 0xFFF;      // no taker: the match ends
    static constexpr std::size_t most_remembered = 255;  // takers of a program whose moves are remembered

    bool alive(std::uint32_t number) const noexcept { return m_list[number / 32] >> (number % 32) & 1; }
    void set_alive(std::uint32_t number) noexcept { m_list[number / 32] |= 1u << (number % 32); }
    void pass_on(bool at_begin, bool at_end, bool succeeds);
    std::uint32_t interned();
    std::uint32_t last(bool at_begin, bool at_end);
    std::uint32_t step(std::uint32_t row, std::size_t column);
    move find_move(const std::uint32_t *content, std::uint32_t number) const noexcept;
    move move_from(std::uint32_t row, std::uint32_t taker) noexcept;

    void cut(const char *from, const char *end);
    void read(const piece &one, path_notes &notes);
    bool go_back(subject text, std::size_t number, path_notes &notes);
    bool find_beginning(subject text, path_notes &notes);
    void walk(subject text, path_notes &notes, match_slots &slots);
    const char *position(const path_notes &notes, const piece &one, std::size_t character) const noexcept {
        return one.begin + (m_bytewise ? character : notes.offsets[character]);
    }

    const regexp_program &m_program;
    std::vector<std::uint32_t> m_takers;  // instructions that take a character
    std::vector<std::uint32_t> m_place;   // of an instruction in m_takers
    // A row has the steps for all symbols, and for them once more at the beginning of the text if that makes
    // a difference, then the state's content, then the moves that are known, behind each taker and at first.
    const std::size_t m_symbols;
    const std::size_t m_columns;
    const std::size_t m_words;
    const std::size_t m_moves;
    state_table m_table;
    std::vector<std::uint32_t> m_list;  // the content of a state in the making: a bit for each instruction
    std::uint32_t m_last[4];            // where the way back begins
    bool m_overflowed = false;

    // Of the match at hand.
    std::vector<piece> m_pieces;
    std::size_t m_noted = 0;       // the piece in the notes
    std::size_t m_characters = 0;  // of that piece
    bool m_bytewise = false;       // these are single bytes, and the offsets are not noted
    std::size_t m_first_piece = 0, m_first_character = 0;
    bool m_found = false;
};

}  // namespace kel::detail
