// Building states, and the loop that runs over them. The way that could begin at every position is one mark
// in a state, not the list of all that it waits at: programs with thousands of alternatives have small
// states.
#include "strlibsrc/regexp_automaton.h"

namespace kel::detail {

namespace {

// Whether looking for the next beginning crosses enough of this text to be worth the interruption.
class start_yield {
public:
    bool good() const noexcept { return m_good; }
    void count(std::size_t bytes) noexcept {
        m_bytes += bytes;
        if (++m_times < period) return;
        m_good = m_bytes >= enough * period;
        m_times = m_bytes = 0;
    }

private:
    static constexpr std::size_t period = 32, enough = 8;
    std::size_t m_bytes = 0, m_times = 0;
    bool m_good = true;
};

}  // namespace

regexp_automaton::regexp_automaton(const regexp_program &program, const regexp_start &start)
    : m_program(program), m_start(start), m_table(program.alphabet().size()), m_met(program.code().size()) {
    begin_list();
    add(regexp_program::start, false);
    m_starters.assign(m_list.begin() + 1, m_list.end());
    m_starts_succeed = m_cut;
    m_restarts = !program.anchored() && !m_starters.empty();
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

// A way that may begin here, behind all others. What it waits at is looked up when it takes its first step.
void regexp_automaton::add_restart() {
    if (m_starts_succeed)
        add(regexp_program::start, false);
    else
        m_list.push_back(restart);
}

std::uint32_t regexp_automaton::first() {
    if (m_first != unknown) return m_first;
    begin_list();
    add(regexp_program::start, true);
    if (!m_cut && m_restarts) {
        // Only a way through ^ makes this state differ from those where a search goes on.
        if (!m_crossed_begin) begin_list();
        add_restart();
    }
    return m_first = interned();
}

std::uint32_t regexp_automaton::first_within() {
    if (!m_restarts) return dead;
    if (m_first_within != unknown) return m_first_within;
    begin_list();
    add_restart();
    return m_first_within = interned();
}

void regexp_automaton::take(std::uint32_t number, symbol character) {
    if (!m_cut && m_program.takes(number, character)) add(m_program.code()[number].next, false);
}

std::uint32_t regexp_automaton::step(std::uint32_t row, symbol character) {
    const state_table::number state = m_table.state_of_row(row);
    begin_list();
    // The content may move only when the list is complete.
    const std::uint32_t *content = m_table.content(state);
    const std::size_t size = m_table.content_size(state);
    for (std::size_t i = 1; i < size; ++i) {
        if (content[i] != restart) {
            take(content[i], character);
            continue;
        }
        for (const std::uint32_t number : m_starters)
            take(number, character);
        if (!m_cut) add_restart();
    }
    m_emptied = false;
    const std::uint32_t result = interned();
    if (!m_emptied) m_table.steps()[row + character] = result;
    return result;
}

// The target for the list that is complete.
std::uint32_t regexp_automaton::interned() {
    if (m_list.size() == 1) return dead;
    if (m_cut) m_list[0] = notable;
    state_table::number state = m_table.intern(m_list);
    if (state == state_table::full) {
        m_emptied = true;
        m_table.clear();
        m_first = m_first_within = m_fresh = unknown;
        state = m_table.intern(m_list);
    }
    const std::uint32_t row = m_table.row(state);
    if (m_list.size() == 2 && m_list[1] == restart) m_fresh = row;
    return row | m_list[0];
}

bool regexp_automaton::succeeds_at_end(std::uint32_t row, bool at_begin) {
    const state_table::number state = m_table.state_of_row(row);
    const std::uint32_t *content = m_table.content(state);
    const std::size_t size = m_table.content_size(state);
    begin_list();
    for (std::size_t i = 1; i < size; ++i) {
        m_open.push_back(content[i] == restart ? regexp_program::start : content[i]);
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

// Steps until something is to be done, and gives the target that tells, or until the end, and gives the row
// there. Where stopping at fresh states is not worth while, they are only remembered.
template <bool stops_at_fresh>
std::uint32_t regexp_automaton::advance(std::uint32_t row, const char *&at, const char *end,
                                        const char *&from, symbol &character) noexcept {
    const regexp_alphabet &alphabet = m_program.alphabet();
    const std::uint32_t *steps = m_table.steps();
    const std::uint32_t fresh = m_fresh;
    const char *last_fresh = from;
    const char *position = at;
    std::uint32_t to = row;
    while (position != end) {
        row = to;
        character = alphabet.read(position, end);
        to = steps[row + character];
        if (to & notable) break;
        if (stops_at_fresh && to == fresh) break;
        if (!stops_at_fresh) last_fresh = to == fresh ? position : last_fresh;
    }
    at = position;
    from = last_fresh;
    // The step that is still unknown is one from this row.
    if (to == unknown) m_source = row;
    return to;
}

regexp_automaton::outcome regexp_automaton::run(subject text, const char *from) {
    outcome result{false, from, nullptr};
    const char *at = from;
    start_yield yield;
    std::uint32_t to = from == text.begin ? first() : first_within();
    while (to != dead) {
        if (to == m_fresh) {
            result.from = at;
            if (yield.good()) {
                at = m_start.find(at, text.end);
                yield.count(static_cast<std::size_t>(at - result.from));
                result.from = at;
            }
        } else if (to & notable) {
            result.found = true;
            result.end = at;
        }
        to &= row_bits;
        if (at == text.end) {
            if (!succeeds_at_end(to, text.begin == text.end)) break;
            result.found = true;
            result.end = at;
            break;
        }
        symbol character = 0;
        to = yield.good() ? advance<true>(to, at, text.end, result.from, character)
                          : advance<false>(to, at, text.end, result.from, character);
        if (to == unknown) to = step(m_source, character);
    }
    return result;
}

}  // namespace kel::detail
