// The machine that can search with every program in every text: it keeps all ways through the program that
// are open at a position, in the order of backtracking, each with the groups that it has met. It takes one
// step of all ways for each character, so its time is program times text, and its memory is of the program's
// size only. The faster machines fall back on it.
#pragma once

#include <cstdint>
#include <vector>

#include "strlibsrc/regexp_program.h"

namespace kel::detail {

// What is searched; ^ and $ are its ends.
struct subject {
    const char *begin;
    const char *end;
};

// Beginning and end of the match and of groups 1 to 9, null where there is none.
using match_slots = const char *[20];

class regexp_simulation {
public:
    // The first match that begins at `from`, a character's beginning, or later. No match leaves the slots.
    bool search(const regexp_program &program, subject text, const char *from, match_slots &slots);

    std::size_t memory() const noexcept;

private:
    // Ways in their order: the instruction that each waits at, and the slots that it has filled.
    struct ways {
        std::vector<std::uint32_t> waiting;
        std::vector<const char *> slots;
        void clear() noexcept {
            waiting.clear();
            slots.clear();
        }
    };
    // Still to be followed, or a slot to be put back when what came behind it has been followed.
    struct task {
        std::uint32_t number;
        bool restores;
        const char *position;
    };

    void prepare(const regexp_program &program);
    void add(ways &to, std::uint32_t number, const char *at);
    void follow(ways &to, std::uint32_t number, const char *at);
    void begin_step() noexcept;
    bool may_begin(const char *at) const noexcept;

    const regexp_program *m_program = nullptr;
    subject m_text{};
    std::size_t m_slot_count = 0;
    ways m_now, m_then;
    std::vector<std::uint32_t> m_met;  // of an instruction: the number of the last step that met it
    std::uint32_t m_step = 0;
    std::vector<task> m_tasks;
    std::vector<const char *> m_slots;  // of the way being followed
};

}  // namespace kel::detail
