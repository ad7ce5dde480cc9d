// Which machine searches, and the engines that a thread keeps: the one used last is compared first, so that a
// program that is used again costs no more than a comparison of its bytes.
#include "strlibsrc/regexp_engine.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "strlibsrc/find_bytes.h"

namespace kel::detail {

regexp_engine::regexp_engine(const regexp &from, encoding form)
    : m_bytes(from.program, from.programSize), m_anchored(from.anchored), m_form(form) {
    std::memcpy(m_first, from.firstChar, sizeof m_first);
    m_error = m_program.load(from, form);
    if (m_error != stSuccess) return;
    m_start.emplace(m_program);
    if (regexp_attempt::serves(m_program)) m_attempt.emplace(m_program, *m_start);
}

bool regexp_engine::is_of(const regexp &program, encoding form) const noexcept {
    // What the bytes of a character are in other encodings depends on the locale.
    return m_bytes.size() == program.programSize && m_form == form && form != encoding::other &&
           m_anchored == program.anchored && std::memcmp(m_first, program.firstChar, sizeof m_first) == 0 &&
           std::memcmp(m_bytes.data(), program.program, m_bytes.size()) == 0;
}

bool regexp_engine::search_text(const char *from, const char *end, match_slots &slots) const {
    const std::string &wanted = m_start->text();
    const char *found = find_bytes(from, end, wanted);
    if (found == nullptr) return false;
    slots[0] = found;
    slots[1] = found + wanted.size();
    return true;
}

bool regexp_engine::habit::advisable() noexcept {
    constexpr unsigned too_many = 4, forgotten = 64;
    if (m_in_vain >= too_many && ++m_in_vain > too_many + forgotten) m_in_vain = too_many - 1;
    return m_in_vain < too_many;
}

bool regexp_engine::search(subject text, const char *from, search_room &room, match_slots &slots) {
    using verdict = regexp_attempt::verdict;
    constexpr std::ptrdiff_t short_text = 256;
    constexpr std::size_t few_failures = 2;
    if (!m_program.extra_first().empty()) return room.simulation.search(m_program, text, from, slots);
    if (m_start->is_text() && !m_program.anchored()) return search_text(from, text.end, slots);
    if (const std::ptrdiff_t span = text.end - from;
        span <= short_text && m_attempt && m_attempts_at_once.advisable()) {
        const verdict result = m_attempt->search(text, from, span, room.frames, slots);
        m_attempts_at_once.note(result != verdict::gave_up && m_attempt->failures() <= few_failures);
        if (result != verdict::gave_up) return result == verdict::found;
    }
    return search_long(text, from, room, slots);
}

bool regexp_engine::search_long(subject text, const char *from, search_room &room, match_slots &slots) {
    if (!m_automaton) m_automaton.emplace(m_program, *m_start);
    const regexp_automaton::outcome outcome = m_automaton->run(text, from);
    if (!outcome.found) return false;
    if (m_attempt && m_attempts_at_match.advisable()) {
        using verdict = regexp_attempt::verdict;
        const std::ptrdiff_t span = outcome.end - outcome.from;
        const bool found = m_attempt->search(text, outcome.from, span, room.frames, slots) == verdict::found;
        m_attempts_at_match.note(found);
        if (found) return true;
    }
    if (!m_path) m_path.emplace(m_program);
    if (m_path->trace(text, outcome.from, outcome.end, room.notes, slots)) return true;
    return room.simulation.search(m_program, text, outcome.from, slots);
}

std::size_t regexp_engine::memory() const noexcept {
    return sizeof *this + m_bytes.capacity() + m_program.memory() + (m_attempt ? m_attempt->memory() : 0) +
           (m_automaton ? m_automaton->memory() : 0) + (m_path ? m_path->memory() : 0);
}

namespace {

class engine_shelf {
public:
    kept_engine find(const regexp &program, encoding form) {
        if (m_engines.empty() || !m_engines.front()->is_of(program, form)) bring_to_front(program, form);
        return {*m_engines.front(), m_room};
    }

private:
    static constexpr std::size_t most_engines = 16;
    static constexpr std::size_t most_memory = 16 << 20;

    void bring_to_front(const regexp &program, encoding form) {
        auto place = std::find_if(m_engines.begin(), m_engines.end(),
                                  [&](const auto &each) { return each->is_of(program, form); });
        if (place == m_engines.end()) {
            auto engine = std::make_unique<regexp_engine>(program, form);
            make_room();
            m_engines.push_back(std::move(engine));
            place = m_engines.end() - 1;
        }
        std::rotate(m_engines.begin(), place, place + 1);
    }

    void make_room() {
        std::size_t memory = 0, keep = 0;
        while (keep < m_engines.size() && keep < most_engines - 1 && memory < most_memory)
            memory += m_engines[keep++]->memory();
        m_engines.resize(keep);
        if (m_room.simulation.memory() > most_memory / 16) m_room.simulation = {};
    }

    std::vector<std::unique_ptr<regexp_engine>> m_engines;  // the last one used comes first
    search_room m_room;
};

// A plain pointer beside its owner: the owner is looked at once for a thread, and code that still searches
// when the thread's objects are gone can tell.
constinit thread_local engine_shelf *shelf = nullptr;
constinit thread_local bool shelf_gone = false;

struct shelf_owner {
    ~shelf_owner() {
        if (!shelf_gone) forget_engines();
        shelf_gone = true;
    }
};

}  // namespace

kept_engine engine_for(const regexp &program, encoding form) {
    if (shelf == nullptr) {
        if (!shelf_gone) static thread_local const shelf_owner owner;
        shelf = new engine_shelf;
    }
    return shelf->find(program, form);
}

// Nobody would come for what a search leaves that late in its thread.
kept_engine::~kept_engine() {
    if (shelf_gone) forget_engines();
}

void forget_engines() noexcept {
    delete shelf;
    shelf = nullptr;
}

}  // namespace kel::detail
