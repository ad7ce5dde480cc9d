// Ways are followed with a stack of tasks: a slot that a way fills is put back by a task below what comes
// behind it, so that all ways of a position share one set of slots until they wait at a character.
#include "strlibsrc/regexp_simulation.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace kel::detail {

std::size_t regexp_simulation::memory() const noexcept {
    return (m_now.waiting.capacity() + m_then.waiting.capacity() + m_met.capacity()) * sizeof(std::uint32_t) +
           (m_now.slots.capacity() + m_then.slots.capacity()) * sizeof(const char *) +
           m_tasks.capacity() * sizeof(task);
}

void regexp_simulation::prepare(const regexp_program &program) {
    m_program = &program;
    m_slot_count = program.slots();
    m_now.clear();
    m_then.clear();
    m_met.assign(program.code().size(), 0);
    m_step = 0;
    m_slots.assign(m_slot_count, nullptr);
}

// What is met from here on stands at the next position.
void regexp_simulation::begin_step() noexcept {
    if (++m_step != 0) return;
    std::fill(m_met.begin(), m_met.end(), 0);
    m_step = 1;
}

bool regexp_simulation::may_begin(const char *at) const noexcept {
    const std::string &first = m_program->extra_first();
    return static_cast<std::size_t>(m_text.end - at) >= first.size() &&
           std::memcmp(at, first.data(), first.size()) == 0;
}

void regexp_simulation::add(ways &to, std::uint32_t number, const char *at) {
    m_tasks.push_back({number, false, nullptr});
    while (!m_tasks.empty()) {
        const task one = m_tasks.back();
        m_tasks.pop_back();
        if (one.restores)
            m_slots[one.number] = one.position;
        else
            follow(to, one.number, at);
    }
}

// From one instruction to those that take a character; the second choices of splits are left as tasks.
void regexp_simulation::follow(ways &to, std::uint32_t number, const char *at) {
    while (m_met[number] != m_step) {
        m_met[number] = m_step;
        const instruction &each = m_program->code()[number];
        switch (each.what) {
            case instruction::none:
                return;
            case instruction::line_begin:
                if (at != m_text.begin) return;
                break;
            case instruction::line_end:
                if (at != m_text.end) return;
                break;
            case instruction::split:
                m_tasks.push_back({each.value, false, nullptr});
                break;
            case instruction::jump:
                break;
            case instruction::save:
                m_tasks.push_back({each.value, true, m_slots[each.value]});
                m_slots[each.value] = at;
                break;
            default:
                to.waiting.push_back(number);
                to.slots.insert(to.slots.end(), m_slots.begin(), m_slots.end());
                return;
        }
        number = each.next;
    }
}

bool regexp_simulation::search(const regexp_program &program, subject text, const char *from,
                               match_slots &slots) {
    prepare(program);
    m_text = text;
    bool found = false;
    begin_step();
    for (const char *at = from;;) {
        if (!found && (!program.anchored() || at == text.begin) && may_begin(at)) {
            m_slots.assign(m_slot_count, nullptr);
            m_slots[0] = at;
            add(m_now, regexp_program::start, at);
        }
        if (m_now.waiting.empty() && (found || program.anchored())) break;
        const char *next = at;
        const symbol character = at == text.end ? symbol{} : program.alphabet().read(next, text.end);
        begin_step();
        for (std::size_t i = 0; i < m_now.waiting.size(); ++i) {
            const std::uint32_t number = m_now.waiting[i];
            const char *const *filled = m_now.slots.data() + i * m_slot_count;
            if (program.code()[number].what == instruction::success) {
                std::copy_n(filled, m_slot_count, slots);
                slots[1] = at;
                found = true;
                break;
            }
            if (at == text.end || !program.takes(number, character)) continue;
            m_slots.assign(filled, filled + m_slot_count);
            add(m_then, program.code()[number].next, next);
        }
        if (at == text.end) break;
        at = next;
        std::swap(m_now, m_then);
        m_then.clear();
    }
    return found;
}

}  // namespace kel::detail
