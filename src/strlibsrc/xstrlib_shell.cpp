// A pattern is cut at its stars into pieces, each of a fixed number of characters. Every piece goes to the
// first place behind the piece before it: if any choice leads to a match, this one does, because it leaves
// the most room. So nothing is ever tried twice, and the same rule gives the leftmost and shortest match.
//
// In UTF-8 a piece is sought as bytes, and a place counts when both its ends are between characters; one look
// at the bytes around tells that. In other encodings the text is walked;
// but bytes that are not there are no characters in any of them.
#include "strlibsrc/xstrlib_shell.h"

#include <algorithm>
#include <cstring>

#include "strlibsrc/find_bytes.h"
#include "strlibsrc/shell_bits.h"

namespace kel::detail {

namespace {

constexpr char any_run = '*';
constexpr char any_one = '?';
constexpr std::ptrdiff_t most_bytes = longest_character;

// What lies between two stars.
struct piece {
    std::string_view text;
    bool plain = true;  // without a ?
};

// From `at` up to the next star or the end.
piece read_piece(const char *at, const char *end) noexcept {
    piece result;
    const char *stop = at;
    for (; stop < end && *stop != any_run; ++stop)
        result.plain &= *stop != any_one;
    result.text = std::string_view(at, stop);
    return result;
}

// A text, or what is left of one, that begins and ends between characters.
class subject {
public:
    subject(lazy_encoding form, std::string_view text) noexcept
        : m_form(form), m_begin(text.data()), m_end(text.data() + text.size()) {}

    bool empty() const noexcept { return m_begin == m_end; }
    void set_begin(const char *begin) noexcept { m_begin = begin; }

    // Takes from both, as long as they agree, up to a star or the end of the pattern, which it tells.
    bool take_front(const char *&pattern, const char *end) noexcept;
    // The same from the end of the pattern, which has a star, down to behind its last one.
    bool take_back(const char *&end) noexcept;
    // The first place of the piece.
    text_range find(const piece &wanted);

private:
    // Where the text ends that lies at `at`; null when another one does.
    const char *match(const char *at, std::string_view wanted) noexcept;
    bool between_characters(const char *at) noexcept;
    // n characters back from `at`, which lies between characters; null when there are fewer.
    const char *back(const char *at, std::size_t n) noexcept;
    text_range find_plain(std::string_view wanted);
    text_range find_around(std::string_view wanted);
    text_range find_steadily(std::string_view wanted) {
        return find_by_bits(m_form.get(), std::string_view(m_begin, m_end), wanted);
    }

    lazy_encoding m_form;
    const char *m_begin;
    const char *m_end;
};

bool subject::take_front(const char *&pattern, const char *end) noexcept {
    const char *at = m_begin;
    for (; pattern < end && *pattern != any_run; ++pattern) {
        if (at == m_end) return false;
        if (is_ascii(*pattern) && *pattern != any_one) {
            if (*at++ != *pattern) return false;
            continue;
        }
        const std::size_t bytes = is_ascii(*at) ? 1 : character_bytes(m_form.get(), at, m_end);
        if (*pattern != any_one) {
            if (character_bytes(m_form.get(), pattern, end) != bytes || std::memcmp(at, pattern, bytes) != 0)
                return false;
            pattern += bytes - 1;
        }
        at += bytes;
    }
    m_begin = at;
    return true;
}

const char *subject::match(const char *at, std::string_view wanted) noexcept {
    subject rest = *this;
    rest.m_begin = at;
    const char *pattern = wanted.data();
    return rest.take_front(pattern, pattern + wanted.size()) ? rest.m_begin : nullptr;
}

bool subject::take_back(const char *&end) noexcept {
    const char *const text_end = m_end, *const pattern_end = end;
    for (; end[-1] != any_run && is_ascii(end[-1]); --end) {
        if (empty()) return false;
        if (end[-1] != any_one) {
            if (*--m_end != end[-1]) return false;
        } else {
            if (m_form.get() == encoding::other) break;
            m_end = back(m_end, 1);
        }
    }
    if (end[-1] == any_run && (end == pattern_end || m_form.get() != encoding::other)) return true;
    // The characters of the pattern, or those of the text, are not known from behind.
    m_end = text_end;
    while (end[-1] != any_run)
        --end;
    const char *const begin = back(m_end, count_characters(m_form.get(), end, pattern_end));
    if (!begin || !match(begin, std::string_view(end, pattern_end))) return false;
    m_end = begin;
    return true;
}

bool subject::between_characters(const char *at) noexcept {
    if (at == m_end || !continues(*at) || m_form.get() != encoding::utf8) return true;
    // Only a byte that continues nothing begins a character, and the nearest one decides.
    for (const char *lead = at - 1; lead >= m_begin && at - lead < most_bytes; --lead)
        if (!continues(*lead)) return lead + character_bytes(encoding::utf8, lead, m_end) <= at;
    return true;
}

const char *subject::back(const char *at, std::size_t n) noexcept {
    const encoding form = m_form.get();
    if (form == encoding::single) return static_cast<std::size_t>(at - m_begin) >= n ? at - n : nullptr;
    if (form == encoding::other) {
        const std::size_t count = count_characters(form, m_begin, at);
        return count >= n ? skip_characters(form, m_begin, at, count - n) : nullptr;
    }
    for (; n > 0; --n) {
        if (at == m_begin) return nullptr;
        const char *lead = at - 1;
        while (lead > m_begin && at - lead < most_bytes && continues(*lead))
            --lead;
        at = lead + character_bytes(form, lead, at) == at ? lead : at - 1;
    }
    return at;
}

text_range subject::find(const piece &wanted) {
    if (wanted.text.empty()) return {m_begin, m_begin};
    if (wanted.text.size() == 1 && wanted.plain && is_ascii(wanted.text[0])) {
        const void *found = std::memchr(m_begin, wanted.text[0], static_cast<std::size_t>(m_end - m_begin));
        if (!found) return {};
        // In UTF-8 such a byte is never part of another character.
        const char *at = static_cast<const char *>(found);
        if (m_form.get() != encoding::other) return {at, at + 1};
    }
    return wanted.plain ? find_plain(wanted.text) : find_around(wanted.text);
}

// Pieces that are found at many wrong places are left to a search that does not mind: what one such place
// costs is the work of its preparation.
class patience {
public:
    patience(std::string_view piece, const char *begin) noexcept
        : m_cost(16 + piece.size()), m_begin(begin), m_allowed(4096 + 16 * piece.size()) {}

    bool ends_at(const char *at) noexcept {
        m_spent += m_cost;
        return m_spent > m_allowed + 4 * static_cast<std::size_t>(at - m_begin);
    }

private:
    std::size_t m_spent = 0;
    std::size_t m_cost;
    const char *m_begin;
    std::size_t m_allowed;
};

text_range subject::find_plain(std::string_view wanted) {
    const char *at = find_bytes(m_begin, m_end, wanted);
    if (!at) return {};
    if (m_form.get() == encoding::other) return find_steadily(wanted);
    for (patience limit(wanted, m_begin); at; at = find_bytes(at + 1, m_end, wanted)) {
        if (between_characters(at) && between_characters(at + wanted.size())) return {at, at + wanted.size()};
        if (limit.ends_at(at)) return find_steadily(wanted);
    }
    return {};
}

// By the longest run of the piece without a ?.
text_range subject::find_around(std::string_view wanted) {
    std::string_view longest = wanted.substr(0, 0);
    for (std::size_t at = 0; at < wanted.size(); ++at) {
        const std::size_t size = std::min(wanted.find(any_one, at), wanted.size()) - at;
        if (size > longest.size()) longest = wanted.substr(at, size);
        at += size;
    }
    if (longest.empty()) {
        const char *end = match(m_begin, wanted);
        return end ? text_range{m_begin, end} : text_range{};
    }
    const encoding form = m_form.get();
    if (form == encoding::other) return find_steadily(wanted);
    const std::size_t before = count_characters(form, wanted.data(), longest.data());
    const char *at = skip_characters(form, m_begin, m_end, before);
    for (patience limit(wanted, m_begin); (at = find_bytes(at, m_end, longest)); ++at) {
        if (between_characters(at)) {
            const char *begin = back(at, before);
            if (const char *end = begin ? match(begin, wanted) : nullptr) return {begin, end};
        }
        if (limit.ends_at(at)) return find_steadily(wanted);
    }
    return {};
}

}  // namespace

bool shell_exact(lazy_encoding form, std::string_view text, std::string_view pattern) {
    subject left(form, text);
    const char *at = pattern.data(), *end = at + pattern.size();
    if (!left.take_front(at, end)) return false;
    if (at == end) return left.empty();
    if (!left.take_back(end)) return false;
    // Stars at both ends now, maybe the same one.
    while (++at < end) {
        const piece wanted = read_piece(at, end);
        const text_range found = left.find(wanted);
        if (!found) return false;
        left.set_begin(found.end);
        at += wanted.text.size();
    }
    return true;
}

text_range shell_search(lazy_encoding form, std::string_view text, std::string_view pattern) {
    subject left(form, text);
    const char *at = pattern.data(), *const end = at + pattern.size();
    text_range result;
    for (bool first = true; first || at < end; first = false) {
        if (!first) ++at;
        const piece wanted = read_piece(at, end);
        const text_range found = left.find(wanted);
        if (!found) return {};
        if (first) result.begin = found.begin;
        result.end = found.end;
        left.set_begin(found.end);
        at += wanted.text.size();
    }
    return result;
}

}  // namespace kel::detail
