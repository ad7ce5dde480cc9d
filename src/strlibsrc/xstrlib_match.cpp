// Matching by the six modes. Every function here cuts its range out of the text as two pointers, brings text
// and pattern to upper case where the mode says so, and hands them to the search of its mode; positions are
// counted only when a match is there. Repeated searches go on from the place where they stand, so that their
// work is in proportion to the text, unless an expression looks far ahead in vain at each of its matches.
#include <kelstdmt/strlib.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "runtime/characters.h"
#include "strlibsrc/find_bytes.h"
#include "strlibsrc/regexp_search.h"
#include "strlibsrc/xstrlib_shell.h"
#include "strlibsrc/xstrlib_text.h"

using kel::is_text;
using namespace kel::detail;

namespace {

enum class kind : unsigned char { literal, shell, expression };

struct match_mode {
    kind how;
    bool ignore_case;
};

// One that is none of the six is the first.
match_mode mode_of(strMatchMode mode) noexcept {
    const bool known = mode >= strLit && mode <= strRegExpIC;
    return {known ? static_cast<kind>(mode / 2) : kind::literal, known && mode % 2 != 0};
}

// The part of a text that a match is about. It ends with the text or before it.
struct range {
    range(const char *text, int given_from, int given_to) noexcept
        : from(position(given_from, 0)), begin(text) {
        const std::size_t to = position(given_to, text_end);
        // A range near the beginning of a long text does not look for the end of that.
        end = text + strnlen(text, std::min(to, text_end / longest_character) * longest_character);
        if (from > 0) begin = place(form.get(), begin, end, from);
        if (to != text_end) end = place(form.get(), begin, end, to > from ? to - from : 0);
    }

    lazy_encoding form;
    std::size_t from;  // characters before it, as the caller says
    const char *begin;
    const char *end;
};

// Null after the errors of a search that has no program.
kel::owned_regexp compile(const char *pattern, const char *function) {
    kel::owned_regexp program(regcomp(pattern));
    if (!program) {
        stHandleKnownError(stCorruptedRegExp, function);
        stHandleKnownError(stNullArgRegExp, "regexec");
    }
    return program;
}

// A pattern, prepared for one or many searches.
class pattern_search {
public:
    // The pattern, which has to stay, in the case of the texts.
    pattern_search(lazy_encoding form, kind how, const char *pattern) : m_form(form), m_how(how) {
        if (how == kind::expression)
            m_program = compile(pattern, "strMatchRegExp");
        else if (is_text(pattern))
            m_pattern = pattern;
        else
            m_nothing = true;
    }

    text_range find(const char *begin, const char *end) {
        if (m_how == kind::expression) {
            if (!m_program || !regexp_search(*m_program, begin, end)) return {};
            return {m_program->groupStart[0], m_program->groupEnd[0]};
        }
        if (m_nothing) return {};
        if (m_how == kind::shell) return shell_search(m_form, between(begin, end), m_pattern);
        const char *found = find_bytes(begin, end, m_pattern);
        return {found, found ? found + m_pattern.size() : nullptr};
    }

    // Whether matches begin and end between characters.
    bool whole_characters() const noexcept { return m_how != kind::literal; }

private:
    lazy_encoding m_form;
    kind m_how;
    bool m_nothing = false;
    std::string_view m_pattern;
    kel::owned_regexp m_program;
};

struct positions {
    std::size_t start;
    std::size_t end;
};

// A literal text is found among bytes, maybe in the middle of a character; its length is its own.
positions count(encoding form, std::size_t before, const char *begin, text_range found) noexcept {
    const std::size_t start = before + count_characters(form, begin, found.begin);
    return {start, start + count_characters(form, found.begin, found.end)};
}

// The result of action(begin, end, pattern) for the range and the pattern in upper case.
template <class Action>
auto in_upper_case(const range &cut, const char *pattern, Action action) {
    const byte_case upper = byte_case::upper();
    const cased_text text(between(cut.begin, cut.end), upper);
    if (!is_text(pattern)) return action(text.begin(), text.end(), pattern);
    return action(text.begin(), text.end(), cased_text(pattern, upper).begin());
}
template <class Action>
auto in_case(const range &cut, const char *pattern, bool ignore_case, Action action) {
    return ignore_case ? in_upper_case(cut, pattern, action) : action(cut.begin, cut.end, pattern);
}

// The first place of a literal text in any case. The text is brought to upper case a piece at a time, each
// one longer than the last, so that a match near the beginning of a long text costs no copy of the whole.
text_range find_in_any_case(const char *begin, const char *end, const char *pattern) {
    const byte_case upper = byte_case::upper();
    const cased_text wanted_text(pattern, upper);
    const std::string_view wanted = between(wanted_text.begin(), wanted_text.end());
    const std::size_t overlap = wanted.empty() ? 0 : wanted.size() - 1;
    const std::size_t longest = std::max<std::size_t>(16384, 4 * wanted.size());
    std::size_t piece = 128;
    for (;;) {
        const std::string_view cut = between(begin, end).substr(0, piece + overlap);
        const cased_text cased(cut, upper);
        if (const char *found = find_bytes(cased.begin(), cased.end(), wanted)) {
            begin += found - cased.begin();
            return {begin, begin + wanted.size()};
        }
        if (cut.end() == end) return {};
        begin += cut.size() - overlap;
        piece = std::min(4 * piece, longest);
    }
}

bool find_first(const char *text, const char *pattern, match_mode mode, int from, int to, positions &result) {
    if (!is_text(text)) return false;
    range cut(text, from, to);
    const auto tell = [&](const char *begin, text_range found) {
        if (found) result = count(cut.form.get(), cut.from, begin, found);
        return static_cast<bool>(found);
    };
    if (mode.ignore_case && mode.how == kind::literal && is_text(pattern))
        return tell(cut.begin, find_in_any_case(cut.begin, cut.end, pattern));
    return in_case(cut, pattern, mode.ignore_case,
                   [&](const char *begin, const char *end, const char *wanted) {
                       return tell(begin, pattern_search(cut.form, mode.how, wanted).find(begin, end));
                   });
}

bool find_whole(const char *text, const char *pattern, kind how, int &start, int &end) {
    positions found{};
    if (!find_first(text, pattern, {how, false}, strUnsetPos, strUnsetPos, found)) return false;
    start = position_of(found.start);
    end = position_of(found.end);
    return true;
}

bool exact(lazy_encoding form, const char *begin, const char *end, const char *pattern, kind how) {
    if (how == kind::expression) {
        const kel::owned_regexp program = compile(pattern, "strExactMatchRegExp");
        return program && regexp_search(*program, begin, end) && program->groupStart[0] == begin &&
               program->groupEnd[0] == end;
    }
    if (!is_text(pattern)) return false;
    // Equal bytes are equal characters.
    if (how == kind::literal) return between(begin, end) == pattern;
    return shell_exact(form, between(begin, end), pattern);
}

bool equal_in_upper_case(std::string_view text, std::string_view pattern) noexcept {
    const byte_case upper = byte_case::upper();
    return text.size() == pattern.size() &&
           std::equal(text.begin(), text.end(), pattern.begin(),
                      [upper](char one, char other) { return upper(one) == upper(other); });
}

bool exact_whole(const char *text, const char *pattern, kind how) {
    if (!is_text(text)) return false;
    const range all(text, strUnsetPos, strUnsetPos);
    return exact(all.form, all.begin, all.end, pattern, how);
}

struct delete_segments {
    void operator()(strSegments *segments) const {
        segments->delallsegs();
        delete segments;
    }
};
using segments_holder = std::unique_ptr<strSegments, delete_segments>;

// Whether the place lies between characters, as far as its bytes tell.
bool between_characters(encoding form, const char *at, const char *end) noexcept {
    if (form == encoding::utf8) return at == end || !continues(*at);
    return form == encoding::single;
}

void find_all(encoding form, std::size_t before, const char *begin, const char *end, pattern_search search,
              strSegments &result) {
    while (const text_range found = search.find(begin, end)) {
        const positions at = count(form, before, begin, found);
        auto segment = std::make_unique<strSegment>(position_of(at.start), position_of(at.end));
        result.append(segment.get());
        segment.release();
        // A literal text may have been found in the middle of a character: then only counting tells.
        const bool whole = search.whole_characters() || (between_characters(form, found.begin, end) &&
                                                         between_characters(form, found.end, end));
        begin = whole ? found.end : skip_characters(form, begin, end, at.end - before);
        if (begin == end) return;
        begin += character_bytes(form, begin, end);
        before = at.end + 1;
    }
}

}  // namespace

// Any mode ----------------------------------------------------------------------------------------------

bool strMatch(const char *text, const char *pattern, int &start, int &end, strMatchMode mode, int from,
              int to) {
    positions found{};
    if (!find_first(text, pattern, mode_of(mode), from, to, found)) return false;
    start = position_of(found.start);
    end = position_of(found.end);
    return true;
}
bool strMatch(const char *text, const char *pattern, int &start, int &end, strMatchMode mode,
              strSegment *range) {
    return strMatch(text, pattern, start, end, mode, from_of(range), to_of(range));
}

strSegment *strMatch(const char *text, const char *pattern, strMatchMode mode, int from, int to) {
    int start = 0, end = 0;
    return strMatch(text, pattern, start, end, mode, from, to) ? new strSegment(start, end) : nullptr;
}
strSegment *strMatch(const char *text, const char *pattern, strMatchMode mode, strSegment *range) {
    return strMatch(text, pattern, mode, from_of(range), to_of(range));
}

strSegments *strMatchAll(const char *text, const char *pattern, strMatchMode mode, int from, int to) {
    segments_holder result(new strSegments);
    if (is_text(text)) {
        range cut(text, from, to);
        const match_mode how = mode_of(mode);
        in_case(cut, pattern, how.ignore_case, [&](const char *begin, const char *end, const char *wanted) {
            const encoding form = cut.form.get();  // once, for all searches
            find_all(form, cut.from, begin, end, pattern_search(cut.form, how.how, wanted), *result);
        });
    }
    return result.release();
}
strSegments *strMatchAll(const char *text, const char *pattern, strMatchMode mode, strSegment *range) {
    return strMatchAll(text, pattern, mode, from_of(range), to_of(range));
}

bool strExactMatch(const char *text, const char *pattern, strMatchMode mode, int from, int to) {
    if (!is_text(text)) return false;
    const range cut(text, from, to);
    const match_mode how = mode_of(mode);
    if (!how.ignore_case) return exact(cut.form, cut.begin, cut.end, pattern, how.how);
    if (how.how == kind::literal)
        return is_text(pattern) && equal_in_upper_case(between(cut.begin, cut.end), pattern);
    return in_upper_case(cut, pattern, [&](const char *begin, const char *end, const char *wanted) {
        return exact(cut.form, begin, end, wanted, how.how);
    });
}
bool strExactMatch(const char *text, const char *pattern, strMatchMode mode, strSegment *range) {
    return strExactMatch(text, pattern, mode, from_of(range), to_of(range));
}

// One mode ------------------------------------------------------------------------------------------------

bool strMatchLit(const char *text, const char *pattern, int &start, int &end) {
    return find_whole(text, pattern, kind::literal, start, end);
}
bool strMatchShell(const char *text, const char *pattern, int &start, int &end) {
    return find_whole(text, pattern, kind::shell, start, end);
}
bool strMatchRegExp(const char *text, const char *pattern, int &start, int &end) {
    return find_whole(text, pattern, kind::expression, start, end);
}

bool strExactMatchLitShell(const char *text, const char *pattern, strMatchMode mode) {
    return exact_whole(text, pattern, mode_of(mode).how == kind::shell ? kind::shell : kind::literal);
}
bool strExactMatchRegExp(const char *text, const char *pattern) {
    return exact_whole(text, pattern, kind::expression);
}
