#include "strlibsrc/regexp_attempt.h"

#include <algorithm>

namespace kel::detail {

bool regexp_attempt::serves(const regexp_program &program) noexcept {
    // The steps back of a repetition need an encoding whose characters can be found from behind.
    return program.alphabet().size() <= end_of_text && program.alphabet().form() != encoding::other;
}

regexp_attempt::regexp_attempt(const regexp_program &program, const regexp_start &start)
    : m_program(program),
      m_start(start),
      m_taken(program.masks()),
      m_first(program.masks()),
      m_repeats(program.code().size()) {
    const std::vector<instruction> &code = program.code();
    for (const std::uint32_t number : program.passers()) {
        const instruction &each = code[number];
        switch (each.what) {
            case instruction::success:
                m_first[number] = ~symbols{0};
                break;
            case instruction::line_end:
                m_first[number] = symbols{1} << end_of_text;
                break;
            case instruction::none:
                break;
            case instruction::split:
                m_first[number] = m_first[each.next] | m_first[each.value];
                m_repeats[number] = code[each.next].takes_character() && code[each.next].next == number;
                break;
            default:
                m_first[number] = m_first[each.next];
        }
    }
}

regexp_attempt::place regexp_attempt::look(const char *at) const noexcept {
    if (at == m_text.end) return {at, at, end_of_text};
    const char *next = at;
    const unsigned character = m_program.alphabet().read(next, m_text.end);
    return {at, next, character};
}

// The beginning of the character that ends at `at`: a valid one, wherever it ends, or else a byte.
const char *regexp_attempt::before(const char *at, const char *least) const noexcept {
    const encoding form = m_program.alphabet().form();
    if (form == encoding::single || static_cast<unsigned char>(at[-1]) < 0x80) return at - 1;
    for (const char *begin = at - 1; begin >= least && at - begin <= std::ptrdiff_t{longest_character};
         --begin) {
        const auto byte = static_cast<unsigned char>(*begin);
        if (byte < 0x80) break;
        if (byte >= 0xC0) return multibyte_bytes(form, begin, at) == std::size_t(at - begin) ? begin : at - 1;
    }
    return at - 1;
}

bool regexp_attempt::spend(std::size_t steps) noexcept {
    const bool enough = steps < m_steps_left;
    m_steps_left = enough ? m_steps_left - steps : 0;
    return enough;
}

void regexp_attempt::push(attempt_frame::kind what, std::uint32_t number, const char *at, const char *least) {
    if (m_frames->size() == most_frames) m_steps_left = 0;
    m_frames->push_back({what, number, at, least});
}

// Takes as many as there are; false when the steps are used up.
bool regexp_attempt::repeat(std::uint32_t split, place &here) {
    const instruction &loop = m_program.code()[split];
    const symbols taken = m_taken[loop.next];
    const char *least = here.at;
    std::size_t count = 0;
    for (; taken >> here.character & 1; ++count)
        here = look(here.next);
    if (count > 0 && (taken & m_first[loop.value]) != 0)
        push(attempt_frame::shorten, loop.value, here.at, least);
    return spend(count);
}

// To the last choice that is left, false when there is none.
bool regexp_attempt::go_back(std::uint32_t &number, place &here, match_slots &slots) {
    while (!m_frames->empty()) {
        attempt_frame &last = m_frames->back();
        if (last.what == attempt_frame::slot) {
            slots[last.number] = last.at;
            m_frames->pop_back();
            continue;
        }
        number = last.number;
        if (last.what == attempt_frame::choice) {
            here = look(last.at);
            m_frames->pop_back();
            return true;
        }
        while (last.at != last.least) {
            last.at = before(last.at, last.least);
            here = look(last.at);
            if (!spend(1)) return false;
            if (may_go_on(number, here.character)) return true;
        }
        m_frames->pop_back();
    }
    return false;
}

bool regexp_attempt::match(const char *from, match_slots &slots) {
    const std::vector<instruction> &code = m_program.code();
    m_frames->clear();
    std::uint32_t number = regexp_program::start;
    place here = look(from);
    while (spend(1)) {
        const instruction &each = code[number];
        bool fails = false;
        number = each.next;
        switch (each.what) {
            case instruction::success:
                slots[1] = here.at;
                return true;
            case instruction::line_begin:
                fails = here.at != m_text.begin;
                break;
            case instruction::line_end:
                fails = here.at != m_text.end;
                break;
            case instruction::jump:
                break;
            case instruction::save:
                if (!m_frames->empty()) push(attempt_frame::slot, each.value, slots[each.value]);
                slots[each.value] = here.at;
                break;
            case instruction::split: {
                const auto split = static_cast<std::uint32_t>(&each - code.data());
                if (m_repeats[split]) {
                    if (!repeat(split, here)) return false;
                    number = each.value;
                } else if (!may_go_on(each.next, here.character)) {
                    number = each.value;
                } else if (may_go_on(each.value, here.character)) {
                    push(attempt_frame::choice, each.value, here.at);
                }
                fails = !may_go_on(number, here.character);
                break;
            }
            default:
                fails = !(m_taken[static_cast<std::size_t>(&each - code.data())] >> here.character & 1);
                if (!fails) here = look(here.next);
        }
        if (fails && !go_back(number, here, slots)) return false;
    }
    return false;
}

regexp_attempt::result regexp_attempt::search(subject text, const char *from,
                                              std::vector<attempt_frame> &frames, match_slots &slots) {
    m_text = text;
    m_frames = &frames;
    m_steps_left = 16 * static_cast<std::size_t>(text.end - from) + 64;
    match_slots trial{};
    for (place here = look(from);;) {
        if (may_go_on(regexp_program::start, here.character)) {
            if (match(here.at, trial)) {
                trial[0] = here.at;
                std::copy(std::begin(trial), std::end(trial), slots);
                return result::found;
            }
            if (m_steps_left == 0) return result::gave_up;
            std::fill(std::begin(trial), std::end(trial), nullptr);
        }
        if (here.at == text.end || m_program.anchored()) return result::nothing;
        here = look(m_start.find(here.next, text.end));
    }
}

}  // namespace kel::detail
