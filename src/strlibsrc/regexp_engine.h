// All that is needed to search with one program: the program made ready, and the machines that search with
// it. A plain text is left to the C library. A short text is tried with backtracking. In a long one the
// automaton finds the end of the match; its beginning and its groups are then found with backtracking, or
// else by the path. Where that meets too many states, the simulation goes on.
#pragma once

#include <optional>
#include <string>

#include "strlibsrc/regexp_attempt.h"
#include "strlibsrc/regexp_automaton.h"
#include "strlibsrc/regexp_path.h"

namespace kel::detail {

// What searches in a thread share.
struct search_room {
    regexp_simulation simulation;
    path_notes notes;
    std::vector<attempt_frame> frames;
};

class regexp_engine {
public:
    regexp_engine(const regexp &from, encoding form);
    regexp_engine(const regexp_engine &) = delete;
    regexp_engine &operator=(const regexp_engine &) = delete;

    // Other than stSuccess: the program cannot be searched with.
    stErrorCode error() const noexcept { return m_error; }
    // Whether this was made from the same program.
    bool is_of(const regexp &program, encoding form) const noexcept;

    std::size_t slots() const noexcept { return m_program.slots(); }

    // For a match that begins at `from` or later. The slots are null before, and stay so without a match.
    bool search(subject text, const char *from, search_room &room, match_slots &slots);

    std::size_t memory() const noexcept;

private:
    // Whether attempts are advisable: not after several in vain, and then again once in a while.
    class habit {
    public:
        bool advisable() noexcept;
        void note(bool good) noexcept { m_in_vain = good ? 0 : m_in_vain + 1; }

    private:
        unsigned m_in_vain = 0;
    };

    bool search_text(const char *from, const char *end, match_slots &slots) const;
    bool search_long(subject text, const char *from, search_room &room, match_slots &slots);

    std::string m_bytes;  // of the program it was made from
    char m_first[sizeof regexp::firstChar];
    char m_anchored;
    encoding m_form;

    regexp_program m_program;
    stErrorCode m_error;
    std::optional<regexp_start> m_start;
    std::optional<regexp_attempt> m_attempt;
    habit m_attempts_at_once;   // in short texts
    habit m_attempts_at_match;  // where the automaton has found one
    std::optional<regexp_automaton> m_automaton;
    std::optional<regexp_path> m_path;
};

// The engine for a program, kept for the thread: those of the last programs are found again by the program's
// bytes. The references hold as long as this does, one at a time in a thread.
struct kept_engine {
    regexp_engine &engine;
    search_room &room;
    ~kept_engine();
};
kept_engine engine_for(const regexp &program, encoding form);
// After an exception the engines may be incomplete.
void forget_engines() noexcept;

}  // namespace kel::detail
