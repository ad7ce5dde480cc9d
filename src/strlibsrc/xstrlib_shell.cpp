// A pattern is cut at its stars into pieces, each of a fixed number of characters. Every piece goes to the
// first place behind the piece before it: if any choice leads to a match, this one does, because it leaves
// the most room. So nothing is ever tried twice, and the same rule gives the leftmost and shortest match.
//
// In UTF-8 a piece is sought as bytes, and a place counts when both its ends are between characters; one look
// at the bytes around tells that. In other encodings the text is walked.
#include "strlibsrc/xstrlib_shell.h"

#include <algorithm>
#include <cstring>

#include "strlibsrc/find_bytes.h"
#include "strlibsrc/shell_bits.h"

namespace kel::detail {

namespace {

constexpr char any_run = '*';
constexpr char any_one = '?';

std::string_view between(const char *begin, const char *end) noexcept {
    return {begin, static_cast<std::size_t>(end - begin)};
}

bool is_ascii(char byte) noexcept {
    return static_cast<unsigned char>(byte) < 0x80;
}
bool continues(char byte) noexcept {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

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
    result.text = between(at, stop);
    return result;
}

// A text, or what is left of one, that begins and ends between characters.
class subject {
public:
    subject(encoding form, std::string_view text) noexcept
        : m_form(form), m_begin(text.data()), m_end(text.data() + text.size()) {}

    bool empty() const noexcept { return m_begin == m_end; }
    void set_begin(const char *begin) noexcept { m_begin = begin; }

    // Takes from both, as long as they agree, up to a star or the end of the pattern, which it tells.
    bool take_front(const char *&pattern, const char *end) noexcept;
    // The same from the end of the pattern, which has a star, down to behind its last one.
    bool take_back(const char *&end) noexcept;
    // The first place of the piece.
    text_range find(const piece &wanted) const;

private:
    // Where the text ends that lies at `at`; null when another one does.
    const char *match(const char *at, std::string_view wanted) const noexcept;
    bool between_characters(const char *at) const noexcept;
    // n characters back from `at`, which lies between characters; null when there are fewer.
    const char *back(const char *at, std::size_t n) const noexcept;
    text_range find_plain(std::string_view wanted) const;
    text_range find_around(std::string_view wanted) const;

    encoding m_form;
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
        const std::size_t bytes = character_bytes(m_form, at, m_end);
        if (*pattern != any_one) {
            if (character_bytes(m_form, pattern, end) != bytes || std::memcmp(at, pattern, bytes) != 0)
                return false;
            pattern += bytes - 1;
        }
        at += bytes;
    }
    m_begin = at;
    return true;
}

const char *subject::match(const char *at, std::string_view wanted) const noexcept {
    subject rest = *this;
    rest.m_begin = at;
    const char *pattern = wanted.data();
    return rest.take_front(pattern, pattern + wanted.size()) ? rest.m_begin : nullptr;
}

bool subject::take_back(const char *&end) noexcept {
    for (; end[-1] != any_run && is_ascii(end[-1]) && m_form != encoding::other; --end) {
        if (empty()) return false;
        if (end[-1] == any_one) {
            m_end = back(m_end, 1);
        } else if (*--m_end != end[-1]) {
            return false;
        }
    }
    if (end[-1] == any_run) return true;
    // The characters of the pattern are not known from behind.
    const char *last = end;
    while (last[-1] != any_run)
        --last;
    const char *begin = back(m_end, count_characters(m_form, last, end));
    if (!begin || !match(begin, between(last, end))) return false;
    m_end = begin;
    end = last;
    return true;
}

bool subject::between_characters(const char *at) const noexcept {
    if (m_form != encoding::utf8 || at == m_end || !continues(*at)) return true;
    // Only a byte that continues nothing begins a character, and the nearest one decides.
    for (std::size_t bytes = 1; bytes < longest_character && bytes <= std::size_t(at - m_begin); ++bytes)
        if (!continues(at[-static_cast<std::ptrdiff_t>(bytes)]))
            return character_bytes(m_form, at - bytes, m_end) <= bytes;
    return true;
}

const char *subject::back(const char *at, std::size_t n) const noexcept {
    if (m_form == encoding::single) return static_cast<std::size_t>(at - m_begin) >= n ? at - n : nullptr;
    if (m_form == encoding::other) {
        const std::size_t count = count_characters(m_form, m_begin, at);
        return count >= n ? skip_characters(m_form, m_begin, at, count - n) : nullptr;
    }
    for (; n > 0; --n) {
        if (at == m_begin) return nullptr;
        const char *lead = at - 1;
        while (lead > m_begin && at - lead < std::ptrdiff_t(longest_character) && continues(*lead))
            --lead;
        at = character_bytes(m_form, lead, at) == static_cast<std::size_t>(at - lead) ? lead : at - 1;
    }
    return at;
}

text_range subject::find(const piece &wanted) const {
    if (wanted.text.empty()) return {m_begin, m_begin};
    if (m_form == encoding::other) return find_by_bits(m_form, between(m_begin, m_end), wanted.text);
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

text_range subject::find_plain(std::string_view piece) const {
    patience limit(piece, m_begin);
    for (const char *at = m_begin; (at = find_bytes(at, m_end, piece)); ++at) {
        if (between_characters(at) && between_characters(at + piece.size())) return {at, at + piece.size()};
        if (limit.ends_at(at)) return find_by_bits(m_form, between(m_begin, m_end), piece);
    }
    return {};
}

// By the longest run of the piece without a ?.
text_range subject::find_around(std::string_view piece) const {
    std::string_view longest = piece.substr(0, 0);
    for (std::size_t at = 0; at < piece.size(); ++at) {
        const std::size_t size = std::min(piece.find(any_one, at), piece.size()) - at;
        if (size > longest.size()) longest = piece.substr(at, size);
        at += size;
    }
    if (longest.empty()) {
        const char *end = match(m_begin, piece);
        return end ? text_range{m_begin, end} : text_range{};
    }
    const std::size_t before = count_characters(m_form, piece.data(), longest.data());
    patience limit(piece, m_begin);
    const char *at = skip_characters(m_form, m_begin, m_end, before);
    for (; (at = find_bytes(at, m_end, longest)); ++at) {
        if (between_characters(at)) {
            const char *begin = back(at, before);
            if (const char *end = begin ? match(begin, piece) : nullptr) return {begin, end};
        }
        if (limit.ends_at(at)) return find_by_bits(m_form, between(m_begin, m_end), piece);
    }
    return {};
}

}  // namespace

bool shell_exact(encoding form, std::string_view text, std::string_view pattern) {
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

text_range shell_search(encoding form, std::string_view text, std::string_view pattern) {
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
