#include "strlibsrc/regexp_automaton.h"

namespace kel::detail {

regexp_automaton::regexp_automaton(const regexp_program &program, const regexp_start &start)
    : m_program(program), m_start(start), m_table(program.alphabet().size()), m_met(program.code().size()) {
    begin_list();
    add(regexp_program::start, false);
    m_restarts = !program.anchored() && m_list.size() > 1;
}

void regexp_automaton::begin_list() {
    m_list.assign(1, 0);
    m_cut = false;
    m_crossed_begin = false;
    if (++m_lists == 0) {
        m_met.assign(m_met.size(), 0);
        m_lists = 1;
    }
}

// The instructions at which the way waits that goes on at `number`: those that take a character, those that
// want the end of the text, and success, with which the list is complete.
void regexp_automaton::add(std::uint32_t number, bool at_begin) {
    m_open.push_back(number);
    while (!m_open.empty()) {
        std::uint32_t at = m_open.back();
        m_open.pop_back();
        for (; m_met[at] != m_lists; at = m_program.code()[at].next) {
            m_met[at] = m_lists;
            const instruction &each = m_program.code()[at];
            if (each.what == instruction::none || (each.what == instruction::line_begin && !at_begin)) break;
            if (each.what == instruction::line_begin) m_crossed_begin = true;
            if (each.what == instruction::split) m_open.push_back(each.value);
            if (each.what > instruction::line_end || each.what == instruction::line_begin) continue;
            m_list.push_back(at);
            if (each.what != instruction::success) break;
            m_cut = true;
            m_open.clear();
            return;
        }
    }
}

void regexp_automaton::add_restart() {
    add(regexp_program::start, false);
    if (!m_cut) m_list.push_back(restart);
}

std::uint32_t regexp_automaton::first() {
    if (m_first != unknown) return m_first;
    begin_list();
    add(regexp_program::start, true);
    // Only a way through ^ makes this state differ from those where a search goes on.
    if (!m_cut && m_restarts) {
        add_restart();
        if (!m_crossed_begin) m_list[0] = notable;
    }
    return m_first = interned();
}

std::uint32_t regexp_automaton::first_within() {
    if (!m_restarts) return dead;
    if (m_first_within != unknown) return m_first_within;
    begin_list();
    add_restart();
    if (!m_cut) m_list[0] = notable;
    return m_first_within = interned();
}

std::uint32_t regexp_automaton::step(std::uint32_t row, symbol character) {
    const state_table::number state = m_table.state_of_row(row);
    begin_list();
    // The content may move only when the list is complete.
    const std::uint32_t *content = m_table.content(state);
    const std::size_t size = m_table.content_size(state);
    for (std::size_t i = 1; i < size && !m_cut; ++i) {
        if (content[i] == restart) {
            const bool fresh = m_list.size() == 1;
            add_restart();
            if (fresh && !m_cut) m_list[0] = notable;
        } else if (m_program.takes(content[i], character)) {
            add(m_program.code()[content[i]].next, false);
        }
    }
    m_lost_states = 0;
    const std::uint32_t result = interned();
    if (m_lost_states == 0) m_table.steps()[row + character] = result;
    return result;
}

// The target for the list that is complete.
std::uint32_t regexp_automaton::interned() {
    if (m_list.size() == 1) return dead;
    if (m_cut) m_list[0] = notable | succeeds;
    state_table::number state = m_table.intern(m_list);
    if (state == state_table::full) {
        m_lost_states = m_table.size();
        m_table.clear();
        m_first = m_first_within = unknown;
        state = m_table.intern(m_list);
    }
    return m_table.row(state) | m_list[0];
}

bool regexp_automaton::succeeds_at_end(std::uint32_t row, bool at_begin) {
    const state_table::number state = m_table.state_of_row(row);
    const std::uint32_t *content = m_table.content(state);
    const std::size_t size = m_table.content_size(state);
    begin_list();
    for (std::size_t i = 1; i < size; ++i) {
        if (content[i] == restart) break;
        m_open.push_back(content[i]);
    }
    while (!m_open.empty()) {
        const std::uint32_t at = m_open.back();
        m_open.pop_back();
        const instruction &each = m_program.code()[at];
        if (m_met[at] == m_lists || each.takes_character() || each.what == instruction::none) continue;
        m_met[at] = m_lists;
        if (each.what == instruction::success) return m_open.clear(), true;
        if (each.what == instruction::line_begin && !at_begin) continue;
        m_open.push_back(each.next);
        if (each.what == instruction::split) m_open.push_back(each.value);
    }
    return false;
}

// Whether the states that were lost have served for long enough.
bool regexp_automaton::makes_progress(std::size_t bytes) noexcept {
    const bool result = bytes >= 8 * m_lost_states;
    m_lost_states = 0;
    return result;
}

regexp_automaton::outcome regexp_automaton::run(subject text, const char *from) {
    outcome result{outcome::nothing, from, nullptr};
    const regexp_alphabet &alphabet = m_program.alphabet();
    const char *at = from, *emptied = from;
    std::uint32_t row = 0;
    std::uint32_t to = from == text.begin ? first() : first_within();
    while (to != dead) {
        row = to & row_bits;
        if ((to & (notable | succeeds)) == (notable | succeeds)) {
            result.what = outcome::found;
            result.end = at;
        } else if (to & notable) {
            result.from = at = m_start.find(at, text.end);
        }
        const std::uint32_t *steps = m_table.steps();
        symbol character = 0;
        for (to = 0; at != text.end; row = to) {
            character = alphabet.read(at, text.end);
            to = steps[row + character];
            if (to & notable) break;
        }
        if (!(to & notable)) {
            if (succeeds_at_end(row, text.begin == text.end)) {
                result.what = outcome::found;
                result.end = text.end;
            }
            break;
        }
        if (to != unknown) continue;
        to = step(row, character);
        if (m_lost_states == 0) continue;
        if (!makes_progress(static_cast<std::size_t>(at - emptied))) {
            result.what = outcome::gave_up;
            return result;
        }
        emptied = at;
    }
    return result;
}

}  // namespace kel::detail
