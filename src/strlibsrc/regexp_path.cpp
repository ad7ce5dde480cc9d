#include "strlibsrc/regexp_path.h"

#include <algorithm>

namespace kel::detail {

namespace {

std::size_t words(std::size_t bits) {
    return (bits + 31) / 32;
}

bool has(const regexp_program &program, instruction::kind kind) {
    return std::any_of(program.code().begin(), program.code().end(),
                       [kind](const instruction &each) { return each.what == kind; });
}

}  // namespace

regexp_path::regexp_path(const regexp_program &program)
    : m_program(program),
      m_symbols(program.alphabet().size()),
      m_columns(has(program, instruction::line_begin) ? 2 * m_symbols : m_symbols),
      m_table(m_columns + words(program.code().size())),
      m_list(words(program.code().size())) {
    for (std::uint32_t number = 0; number < program.code().size(); ++number)
        if (program.code()[number].takes_character()) m_takers.push_back(number);
    std::fill(std::begin(m_last), std::end(m_last), unknown);
}

// Completes the list: an instruction that takes no character is alive when one that it leads to is.
void regexp_path::pass_on(bool at_begin, bool at_end, bool succeeds) {
    for (const std::uint32_t number : m_program.passers()) {
        const instruction &each = m_program.code()[number];
        bool result = false;
        switch (each.what) {
            case instruction::success:
                result = succeeds;
                break;
            case instruction::line_begin:
                result = at_begin && alive(each.next);
                break;
            case instruction::line_end:
                result = at_end && alive(each.next);
                break;
            case instruction::split:
                result = alive(each.next) || alive(each.value);
                break;
            case instruction::jump:
            case instruction::save:
                result = alive(each.next);
                break;
            default:
                break;
        }
        if (result) set_alive(number);
    }
}

// The target for the list that is complete.
std::uint32_t regexp_path::interned() {
    if (std::all_of(m_list.begin(), m_list.end(), [](std::uint32_t word) { return word == 0; })) return dead;
    const state_table::number state = m_table.intern(m_list);
    if (state == state_table::full) {
        m_overflowed = true;
        m_table.clear();
        std::fill(std::begin(m_last), std::end(m_last), unknown);
        return dead;
    }
    const std::uint32_t row = m_table.row(state);
    std::copy(m_list.begin(), m_list.end(), m_table.steps() + row + m_columns);
    return row | (alive(regexp_program::start) ? begins : 0);
}

std::uint32_t regexp_path::last(bool at_begin, bool at_end) {
    std::uint32_t &known = m_last[(at_begin ? 1 : 0) + (at_end ? 2 : 0)];
    if (known == unknown) {
        std::fill(m_list.begin(), m_list.end(), 0);
        pass_on(at_begin, at_end, true);
        known = interned();
    }
    return known;
}

std::uint32_t regexp_path::step(std::uint32_t row, std::size_t column) {
    const bool at_begin = column >= m_symbols;
    const auto character = static_cast<symbol>(at_begin ? column - m_symbols : column);
    const std::uint32_t *after = m_table.steps() + row + m_columns;
    std::fill(m_list.begin(), m_list.end(), 0);
    for (const std::uint32_t number : m_takers) {
        const std::uint32_t next = m_program.code()[number].next;
        if ((after[next / 32] >> (next % 32) & 1) && m_program.takes(number, character)) set_alive(number);
    }
    pass_on(at_begin, false, false);
    const std::uint32_t result = interned();
    if (!m_overflowed) m_table.steps()[row + column] = result;
    return result;
}

void regexp_path::cut(const char *from, const char *end) {
    m_pieces.clear();
    do {
        const char *next =
            static_cast<std::size_t>(end - from) <= path_notes::capacity
                ? end
                : skip_characters(m_program.alphabet().form(), from, end, path_notes::capacity);
        m_pieces.push_back({from, next, unknown});
        from = next;
    } while (from != end);
}

void regexp_path::read(const piece &one, path_notes &notes) {
    const regexp_alphabet &alphabet = m_program.alphabet();
    const char *at = one.begin;
    std::size_t count = 0;
    for (; at != one.end; ++count) {
        notes.offsets[count] = static_cast<std::uint32_t>(at - one.begin);
        notes.symbols[count] = alphabet.read(at, one.end);
    }
    notes.offsets[count] = static_cast<std::uint32_t>(at - one.begin);
    m_characters = count;
}

void regexp_path::begin_at(std::size_t number, std::size_t character) noexcept {
    m_first_piece = number;
    m_first_character = character;
    m_found = true;
}

// Notes the states of a piece, from its end to its beginning or to where no way leads on; false there.
bool regexp_path::go_back(subject text, std::size_t number, path_notes &notes) {
    const piece &one = m_pieces[number];
    m_noted = number;
    read(one, notes);
    const bool to_begin = m_columns != m_symbols && one.begin == text.begin;
    std::uint32_t *steps = m_table.steps();
    std::uint32_t row = one.row & row_bits;
    if (one.row & begins) begin_at(number, m_characters);
    notes.rows[m_characters] = row;
    for (std::size_t at = m_characters; at-- > 0;) {
        const std::size_t column = notes.symbols[at] + (to_begin && at == 0 ? m_symbols : 0);
        std::uint32_t to = steps[row + column];
        if (to == unknown) {
            to = step(row, column);
            steps = m_table.steps();
        }
        if (to == dead) return false;
        if (to & begins) begin_at(number, at);
        row = to & row_bits;
        notes.rows[at] = row;
    }
    if (number > 0) m_pieces[number - 1].row = row;
    return true;
}

bool regexp_path::find_beginning(subject text, path_notes &notes) {
    m_overflowed = false;
    m_found = false;
    const char *end = m_pieces.back().end;
    const std::uint32_t to = last(end == text.begin, end == text.end);
    if (to == dead) return false;
    m_pieces.back().row = to;
    std::size_t number = m_pieces.size() - 1;
    while (go_back(text, number, notes) && number > 0)
        --number;
    if (m_program.anchored()) m_first_piece = m_first_character = 0;
    return m_found && !m_overflowed;
}

bool regexp_path::walk(subject text, path_notes &notes, match_slots &slots) {
    const std::vector<instruction> &code = m_program.code();
    std::uint32_t number = regexp_program::start;
    std::size_t at = m_first_character;
    for (std::size_t piece_number = m_first_piece; piece_number < m_pieces.size(); ++piece_number, at = 0) {
        const piece &one = m_pieces[piece_number];
        if (m_noted != piece_number) go_back(text, piece_number, notes);
        if (m_overflowed) return false;
        const std::uint32_t *steps = m_table.steps();
        const bool is_last = piece_number + 1 == m_pieces.size();
        while (true) {
            const instruction &each = code[number];
            if (each.what == instruction::success) return true;
            number = each.next;
            if (each.what == instruction::split) {
                const std::uint32_t word = steps[notes.rows[at] + m_columns + number / 32];
                if (!(word >> (number % 32) & 1)) number = each.value;
            } else if (each.what == instruction::save) {
                slots[each.value] = one.begin + notes.offsets[at];
            } else if (each.takes_character() && ++at == m_characters && !is_last) {
                break;
            }
        }
    }
    return false;
}

bool regexp_path::trace(subject text, const char *from, const char *end, path_notes &notes,
                        match_slots &slots) {
    cut(from, end);
    if (!find_beginning(text, notes)) return false;
    const std::size_t first = m_first_character;
    const piece one = m_pieces[m_first_piece];
    std::fill(std::begin(slots), std::end(slots), nullptr);
    slots[0] = m_noted == m_first_piece
                   ? one.begin + notes.offsets[first]
                   : skip_characters(m_program.alphabet().form(), one.begin, one.end, first);
    slots[1] = end;
    return !m_program.has_groups() || walk(text, notes, slots);
}

}  // namespace kel::detail
