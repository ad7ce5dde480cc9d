// Building the states of the way back, noting them for one piece at a time, and walking forwards over the
// notes. What the walk does behind an instruction depends on the state alone, so it is remembered in its row.
#include "strlibsrc/regexp_path.h"

#include <algorithm>
#include <bit>

namespace kel::detail {

namespace {

std::vector<std::uint32_t> takers_of(const regexp_program &program) {
    std::vector<std::uint32_t> result;
    for (std::uint32_t number = 0; number < program.code().size(); ++number)
        if (program.code()[number].takes_character()) result.push_back(number);
    return result;
}

bool has(const regexp_program &program, instruction::kind kind) {
    return std::any_of(program.code().begin(), program.code().end(),
                       [kind](const instruction &each) { return each.what == kind; });
}

}  // namespace

regexp_path::regexp_path(const regexp_program &program)
    : m_program(program),
      m_takers(takers_of(program)),
      m_place(program.code().size()),
      m_symbols(program.alphabet().size()),
      m_columns(has(program, instruction::line_begin) ? 2 * m_symbols : m_symbols),
      m_words((program.code().size() + 31) / 32),
      m_moves(program.has_groups() && m_takers.size() <= most_remembered ? m_takers.size() + 1 : 0),
      m_table(m_columns + m_words + m_moves),
      m_list(m_words) {
    for (std::uint32_t place = 0; place < m_takers.size(); ++place)
        m_place[m_takers[place]] = place;
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
    for (; at != one.end; ++at, ++count) {
        notes.symbols[count] = alphabet.of_byte(*at);
        if (notes.symbols[count] == regexp_alphabet::indirect) break;
    }
    m_bytewise = at == one.end;
    if (!m_bytewise) {
        for (std::uint32_t i = 0; i < count; ++i)
            notes.offsets[i] = i;
        for (; at != one.end; ++count) {
            notes.offsets[count] = static_cast<std::uint32_t>(at - one.begin);
            notes.symbols[count] = alphabet.read(at, one.end);
        }
        notes.offsets[count] = static_cast<std::uint32_t>(at - one.begin);
    }
    m_characters = count;
}

// Notes the states of a piece, from its end to its beginning or to where no way leads on; false there.
bool regexp_path::go_back(subject text, std::size_t number, path_notes &notes) {
    const piece &one = m_pieces[number];
    m_noted = number;
    read(one, notes);
    constexpr std::size_t none = path_notes::capacity + 1;
    std::size_t first = one.row & begins ? m_characters : none;
    const std::size_t begin_column = m_columns != m_symbols && one.begin == text.begin ? m_symbols : 0;
    std::uint32_t *steps = m_table.steps();
    std::uint32_t row = one.row & row_bits;
    notes.rows[m_characters] = row;
    std::size_t at = m_characters;
    while (at > 0) {
        --at;
        const std::size_t column = notes.symbols[at] + (at == 0 ? begin_column : 0);
        std::uint32_t to = steps[row + column];
        if (to >= dead) {
            if (to == unknown) to = step(row, column);
            if (to == dead) {
                at = none;
                break;
            }
            steps = m_table.steps();
        }
        if (to & begins) first = at;
        row = to & row_bits;
        notes.rows[at] = row;
    }
    if (first != none) {
        m_found = true;
        m_first_piece = number;
        m_first_character = first;
    }
    if (at == none) return false;
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

// From an instruction to the next one that takes a character, by the first choices that are alive.
regexp_path::move regexp_path::find_move(const std::uint32_t *content, std::uint32_t number) const noexcept {
    const std::vector<instruction> &code = m_program.code();
    move result{0, arrived};
    while (code[number].what != instruction::success) {
        const instruction &each = code[number];
        if (each.takes_character()) {
            result.taker = m_place[number];
            break;
        }
        if (each.what == instruction::save) result.saves |= 1u << each.value;
        number = each.next;
        if (each.what == instruction::split && !(content[number / 32] >> (number % 32) & 1))
            number = each.value;
    }
    return result;
}

// The move behind a taker, or at first, for m_takers.size().
regexp_path::move regexp_path::move_from(std::uint32_t row, std::uint32_t taker) noexcept {
    const bool at_first = taker == m_takers.size();
    const std::uint32_t number = at_first ? regexp_program::start : m_program.code()[m_takers[taker]].next;
    std::uint32_t *content = m_table.steps() + row + m_columns;
    if (m_moves == 0) return find_move(content, number);
    std::uint32_t &known = content[m_words + taker];
    if (known == unknown) {
        const move found = find_move(content, number);
        known = found.saves << 12 | found.taker;
    }
    return {known >> 12, known & 0xFFF};
}

void regexp_path::walk(subject text, path_notes &notes, match_slots &slots) {
    auto taker = static_cast<std::uint32_t>(m_takers.size());
    std::size_t at = m_first_character;
    for (std::size_t number = m_first_piece; number < m_pieces.size(); ++number, at = 0) {
        if (m_noted != number) go_back(text, number, notes);
        const piece &one = m_pieces[number];
        const std::size_t end = number + 1 == m_pieces.size() ? m_characters + 1 : m_characters;
        for (; at < end; ++at) {
            const move next = move_from(notes.rows[at], taker);
            for (std::uint32_t saves = next.saves; saves != 0; saves &= saves - 1)
                slots[std::countr_zero(saves)] = position(notes, one, at);
            taker = next.taker;
        }
    }
}

bool regexp_path::trace(subject text, const char *from, const char *end, path_notes &notes,
                        match_slots &slots) {
    cut(from, end);
    if (!find_beginning(text, notes)) return false;
    const piece &one = m_pieces[m_first_piece];
    if (m_noted != m_first_piece) read(one, notes);
    slots[0] = position(notes, one, m_first_character);
    slots[1] = end;
    if (m_program.has_groups()) walk(text, notes, slots);
    return true;
}

}  // namespace kel::detail
