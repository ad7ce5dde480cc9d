// The look ahead is prepared for every instruction, from those that lead nowhere back to those that lead to
// them; then trying is a loop over prepared steps and a stack of what to come back to.
#include "strlibsrc/regexp_attempt.h"

#include <algorithm>
#include <numeric>

namespace kel::detail {

bool regexp_attempt::serves(const regexp_program &program) noexcept {
    // The steps back of a repetition need an encoding whose characters can be found from behind.
    return program.alphabet().size() <= end_of_text && program.alphabet().form() != encoding::other;
}

regexp_attempt::regexp_attempt(const regexp_program &program, const regexp_start &start)
    : m_program(program), m_start(start) {
    const std::vector<instruction> &code = program.code();
    std::vector<symbols> first = program.masks();
    std::vector<std::uint32_t> without_jumps(code.size());
    std::iota(without_jumps.begin(), without_jumps.end(), 0);
    for (const std::uint32_t number : program.passers()) {
        const instruction &each = code[number];
        switch (each.what) {
            case instruction::success:
                first[number] = ~symbols{0};
                break;
            case instruction::line_end:
                first[number] = symbols{1} << end_of_text;
                break;
            case instruction::none:
                break;
            case instruction::split:
                first[number] = first[each.next] | first[each.value];
                break;
            case instruction::jump:
                without_jumps[number] = without_jumps[each.next];
                [[fallthrough]];
            default:
                first[number] = first[each.next];
        }
    }
    m_first = first[regexp_program::start];
    m_trials.reserve(code.size());
    for (std::uint32_t number = 0; number < code.size(); ++number) {
        trial one = make(number, first);
        one.next = without_jumps[one.next];
        if (one.what == trial::choose) one.value = without_jumps[one.value];
        m_trials.push_back(one);
    }
    m_begin = without_jumps[regexp_program::start];
}

regexp_attempt::trial regexp_attempt::make(std::uint32_t number, const std::vector<symbols> &first) const {
    const std::vector<instruction> &code = m_program.code();
    const instruction &each = code[number];
    trial result{trial::fail, each.next, each.value, 0, 0, 0};
    switch (each.what) {
        case instruction::success:
            result.what = trial::success;
            break;
        case instruction::line_begin:
            result.what = trial::line_begin;
            break;
        case instruction::line_end:
            result.what = trial::line_end;
            break;
        case instruction::save:
            result.what = trial::save;
            break;
        case instruction::none:
        case instruction::jump:
            break;
        case instruction::split:
            result.first = first[each.next];
            result.second = first[each.value];
            result.what = trial::choose;
            if (!code[each.next].takes_character() || code[each.next].next != number) break;
            result.what = trial::repeat;
            result.taken = first[each.next];
            result.next = each.value;
            break;
        default:
            result.what = trial::take;
            result.taken = first[number];
    }
    return result;
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

void regexp_attempt::push(const attempt_frame &frame) {
    if (m_frames->size() == most_frames) m_steps_left = 0;
    m_frames->push_back(frame);
}

// Takes as many as there are.
void regexp_attempt::repeat(const trial &each, place &here) {
    const char *least = here.at;
    std::size_t count = 0;
    for (; each.taken >> here.character & 1; ++count)
        here = look(here.next);
    if (count == 0) return;
    if (each.taken & each.second) push({attempt_frame::shorten, each.next, here.at, least, each.second});
    spend(count);
}

// To the last choice that is left, false when there is none.
bool regexp_attempt::go_back(std::uint32_t &number, place &here, match_slots &slots) {
    while (!m_frames->empty()) {
        attempt_frame &last = m_frames->back();
        number = last.number;
        if (last.what == attempt_frame::slot) {
            slots[number] = last.at;
        } else if (last.what == attempt_frame::choice) {
            here = look(last.at);
            m_frames->pop_back();
            return true;
        } else {
            while (last.at != last.least) {
                last.at = before(last.at, last.least);
                here = look(last.at);
                if (!spend(1)) return false;
                if (last.first >> here.character & 1) return true;
            }
        }
        m_frames->pop_back();
    }
    return false;
}

// Whether a match begins here; not answered when no steps are left.
bool regexp_attempt::match(place here, match_slots &slots) {
    m_frames->clear();
    std::uint32_t number = m_begin;
    while (spend(1)) {
        const trial &each = m_trials[number];
        bool succeeds = true;
        number = each.next;
        switch (each.what) {
            case trial::success:
                slots[1] = here.at;
                return true;
            case trial::fail:
                succeeds = false;
                break;
            case trial::line_begin:
                succeeds = here.at == m_text.begin;
                break;
            case trial::line_end:
                succeeds = here.at == m_text.end;
                break;
            case trial::save:
                if (!m_frames->empty())
                    push({attempt_frame::slot, each.value, slots[each.value], nullptr, 0});
                slots[each.value] = here.at;
                break;
            case trial::choose:
                succeeds = each.second >> here.character & 1;
                if (!(each.first >> here.character & 1)) {
                    number = each.value;
                } else if (succeeds) {
                    push({attempt_frame::choice, each.value, here.at, nullptr, 0});
                } else {
                    succeeds = true;
                }
                break;
            case trial::repeat:
                repeat(each, here);
                succeeds = each.second >> here.character & 1;
                break;
            case trial::take:
                succeeds = each.taken >> here.character & 1;
                if (succeeds) here = look(here.next);
        }
        if (!succeeds && !go_back(number, here, slots)) return false;
    }
    return false;
}

regexp_attempt::verdict regexp_attempt::search(subject text, const char *from, std::ptrdiff_t span,
                                               std::vector<attempt_frame> &frames, match_slots &slots) {
    m_failures = 0;
    if (m_program.anchored() && from != text.begin) return verdict::nothing;
    m_text = text;
    m_frames = &frames;
    m_steps_left = 16 * static_cast<std::size_t>(span) + 64;
    for (place here = look(from);;) {
        if (m_first >> here.character & 1) {
            if (match(here, slots)) {
                slots[0] = here.at;
                return verdict::found;
            }
            std::fill_n(slots, m_program.slots(), nullptr);
            if (m_steps_left == 0) return verdict::gave_up;
            ++m_failures;
        }
        if (here.at == text.end || m_program.anchored()) return verdict::nothing;
        here = look(m_start.find(here.next, text.end));
    }
}

}  // namespace kel::detail
