// Splitting around a match, and replacing.
//
// A result is built in one buffer of its size: occurrences are found first and replaced when they are
// counted. Lists of segments are in xstrlib_substitute_list.cpp.
#include <kelstdmt/strlib.h>

#include <vector>

#include "strlibsrc/find_bytes.h"
#include "strlibsrc/xstrlib_text.h"

using namespace kel::detail;
using kel::is_text;

namespace {

constexpr std::size_t default_limit = 1'000'000;
constexpr std::size_t most_remembered = 500'000;

struct places {
    const char *begin, *first, *last, *end;  // of the text, of a range in it
};

places places_of(const char *text, int from, int to) {
    const encoding form = locale_encoding();
    const char *end = text + std::strlen(text);
    const std::size_t last = position(to, text_end);
    return {text, place(form, text, end, position(from, 0)),
            last == text_end ? end : place(form, text, end, last), end};
}

// The occurrences of a text in another, from left to right. The empty text occurs before each character and
// at the end.
class occurrences {
public:
    occurrences(std::string_view text, std::string_view pattern)
        : m_at(text.data()), m_end(m_at + text.size()), m_pattern(pattern) {}

    // null behind the last one
    const char *next() {
        if (!m_at) return nullptr;
        if (m_pattern.empty()) {
            const char *found = m_at;
            m_at = found < m_end ? found + character_bytes(m_form, found, m_end) : nullptr;
            return found;
        }
        const char *found = find_bytes(m_at, m_end, m_pattern);
        m_at = found ? found + m_pattern.size() : nullptr;
        return found;
    }

private:
    const char *m_at;
    const char *m_end;
    std::string_view m_pattern;
    encoding m_form = locale_encoding();
};

// The text with the occurrences in its range replaced.
xstring replace_occurrences(const places &at, std::string_view pattern, std::string_view replacement,
                            std::size_t limit) {
    const std::string_view range = between(at.first, std::max(at.first, at.last));
    // Most occurrences are remembered, the others found again.
    std::vector<const char *> remembered;
    occurrences found(range, pattern), others = found;
    std::size_t count = 0;
    for (const char *next; count < limit && (next = found.next()); ++count) {
        if (count >= most_remembered) continue;
        remembered.push_back(next);
        if (count + 1 == most_remembered) others = found;
    }
    const std::string_view before = between(at.begin, at.first), after = between(at.last, at.end);
    std::size_t kept = add_sizes(before.size(), range.size() - count * pattern.size());
    kept = add_sizes(kept, after.size());
    string_writer writer(add_sizes(kept, multiply_sizes(count, replacement.size())));
    writer << before;
    const char *done = range.data();
    for (std::size_t i = 0; i < count; ++i) {
        const char *occurrence = i < remembered.size() ? remembered[i] : others.next();
        writer << between(done, occurrence) << replacement;
        done = occurrence + pattern.size();
    }
    writer << between(done, range.data() + range.size()) << after;
    return std::move(writer).take();
}

}  // namespace

xstring strSplit(const char *text, const char *pattern, strSplitMode split, strMatchMode mode) {
    int start = 0, end = 0;
    if (!strMatch(text, pattern, start, end, mode)) return xstring();
    const places at = places_of(text, start, end);
    const std::string_view before = between(at.begin, at.first), after = between(at.last, at.end);
    if (split == strExclMatch)
        return std::move(string_writer(before.size() + after.size()) << before << after).take();
    if (at.begin == at.end) return xstring();  // as strSubstring of an empty text
    switch (split) {
        case strBeforeAndIncl:
            return make_string(between(at.begin, at.last));
        case strAfter:
            return make_string(after);
        case strInclAndAfter:
            return make_string(between(at.first, at.end));
        case strMatchOnly:
            return make_string(between(at.first, at.last));
        default:
            return make_string(before);
    }
}

// A range, and the first match ------------------------------------------------------------------

xstring strSubstitute(const char *text, int from, int to, const char *replacement) {
    if (!is_text(text)) return xstring();
    const places at = places_of(text, from, to);
    const std::string_view before = between(at.begin, at.first), after = between(at.last, at.end);
    const std::string_view between_them = any_view(replacement);
    string_writer writer(add_sizes(add_sizes(before.size(), after.size()), between_them.size()));
    return std::move(writer << before << between_them << after).take();
}

xstring strSubstitute(const char *text, strSegment *range, const char *replacement) {
    return strSubstitute(text, from_of(range), to_of(range), replacement);
}

xstring strSubstitute(const char *text, const char *pattern, const char *replacement, strMatchMode mode,
                      int from, int to) {
    if (!is_text(text)) return xstring();
    int start = 0, end = 0;
    if (!strMatch(text, pattern, start, end, mode, from, to)) return xstring(text);
    return strSubstitute(text, start, end, replacement);
}

xstring strSubstitute(const char *text, const char *pattern, const char *replacement, strMatchMode mode,
                      strSegment *range) {
    return strSubstitute(text, pattern, replacement, mode, from_of(range), to_of(range));
}

// Every occurrence -----------------------------------------------------------------------------

xstring strSubstituteAll(const char *text, const char *pattern, const char *replacement, strMatchMode mode,
                         int from, int to) {
    if (!is_text(text)) return xstring();
    const places at = places_of(text, from, to);
    int start = 0, end = 0;
    // A literal match is an occurrence, so the replacing itself finds out, unless `to` is below `from`: what
    // lies between them is there twice after a match only.
    const bool must_match = mode != strLit || at.last < at.first;
    if (must_match && !strMatch(text, pattern, start, end, mode, from, to)) return xstring(text);
    if (!is_text(pattern)) return xstring(text);
    return replace_occurrences(at, pattern, any_view(replacement), default_limit);
}

xstring strSubstituteAll(const char *text, const char *pattern, const char *replacement, strMatchMode mode,
                         strSegment *range) {
    return strSubstituteAll(text, pattern, replacement, mode, from_of(range), to_of(range));
}

xstring strSubstitute(const char *text, const char *pattern, const char *replacement, int count) {
    if (!is_text(text)) return xstring();
    if (!is_text(pattern)) return xstring(text);
    const char *end = text + std::strlen(text);
    return replace_occurrences({text, text, end, end}, pattern, any_view(replacement),
                               count > 0 ? static_cast<std::size_t>(count) : default_limit);
}
