// The pattern, made ready once for many lines, in any of the six modes.
//
// Modes that ignore case search in upper-cased text with an upper-cased pattern, as the library does: bytes
// are upper-cased one by one, so that a place in the one text is the same place in the other.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <kelstdmt/strlib.h>

// A line without its end. `searched` is as long as the text, upper-cased where the mode ignores case, and
// ends with a NUL; it may be the text itself.
struct Line {
    const char *begin, *end;
    char *searched;
    bool ended;  // the file has a line end behind it

    std::size_t size() const { return static_cast<std::size_t>(end - begin); }
    std::string_view text() const { return {begin, size()}; }
};

// Ends a text with a NUL for as long as it lives.
class EndedText {
public:
    explicit EndedText(char *place) : m_place(place), m_kept(std::exchange(*place, '\0')) {}
    ~EndedText() { *m_place = m_kept; }
    EndedText(const EndedText &) = delete;
    EndedText &operator=(const EndedText &) = delete;

private:
    char *m_place, m_kept;
};

// A match in a line, as offsets in bytes.
struct Span {
    std::size_t begin, end;
};

// What is wrong with a pattern.
struct BadPattern {
    std::string pattern;
    std::string message;
    int position;  // characters
};

class Pattern {
public:
    // Throws a BadPattern.
    Pattern(const std::string &pattern, strMatchMode mode, bool whole_line);

    // The table that upper-cases; null for modes with case.
    const char *Folding() const { return m_mode & 1 ? m_folding : nullptr; }
    // Within a line that may match: the first such place of a searched text, which ends with a NUL. Null: no
    // line there matches.
    const char *Candidate(const char *at, const char *end);

    bool Matches(const Line &line) { return First(line).has_value(); }
    // Calls visit(Span) for each match from left to right until it gives false. A match without characters
    // right behind another one does not count.
    template <class Visit>
    void EachMatch(const Line &line, Visit visit) {
        std::optional<Span> match = First(line);
        for (std::size_t last = line.size() + 1; match; match = Next(line, *match)) {
            if (match->begin == match->end && match->begin == last) continue;
            last = match->end;
            if (!visit(*match)) return;
        }
    }
    // Appends the replacement for the match that is being visited.
    void Expand(const std::string &replacement, const Line &line, std::string &out);

private:
    std::optional<Span> First(const Line &line);
    std::optional<Span> Next(const Line &line, const Span &last);
    std::optional<Span> Search(const Line &line, std::size_t from);
    std::optional<Span> SearchProgram(const Line &line, std::size_t from);
    std::optional<Span> SearchShell(const Line &line, std::size_t from);
    std::optional<Span> Whole(const Line &line);

    strMatchMode m_mode;  // as asked for
    bool m_whole_line;
    char m_folding[256];
    xstring m_pattern;            // upper-cased where the mode ignores case
    std::string m_required;       // part of every match
    kel::owned_regexp m_program;  // of a regular expression
    bool m_stays_in_line = false;
};
