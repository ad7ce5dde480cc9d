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

bool continues(char byte) noexcept {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// The pieces of a pattern from the left.
class piece_reader {
public:
    explicit piece_reader(std::string_view pattern) noexcept : m_left(pattern) {}

    std::string_view next() noexcept {
        const std::size_t size = std::min(m_left.find(any_run), m_left.size());
        const std::string_view piece = m_left.substr(0, size);
        m_last = size == m_left.size();
        m_left.remove_prefix(m_last ? size : size + 1);
        return piece;
    }
    bool at_last() const noexcept { return m_last; }

private:
    std::string_view m_left;
    bool m_last = false;
};

// A text, or the rest of one, that begins and ends between characters.
class subject {
public:
    subject(encoding form, std::string_view text) noexcept
        : m_form(form), m_begin(text.data()), m_end(text.data() + text.size()) {}

    const char *begin() const noexcept { return m_begin; }
    const char *end() const noexcept { return m_end; }
    void set_begin(const char *begin) noexcept { m_begin = begin; }
    void set_end(const char *end) noexcept { m_end = end; }

    // Where the piece ends that lies at `at`; null when another text does.
    const char *match(const char *at, std::string_view piece) const noexcept;
    // The first place of the piece.
    text_range find(std::string_view piece) const;
    // The place of the piece at the end.
    const char *match_end(std::string_view piece) const noexcept;

private:
    bool between_characters(const char *at) const noexcept;
    // n characters back from `at`, which lies between characters; null when there are fewer.
    const char *back(const char *at, std::size_t n) const noexcept;
    text_range find_plain(std::string_view piece) const;
    text_range find_around(std::string_view piece) const;

    encoding m_form;
    const char *m_begin;
    const char *m_end;
};

const char *subject::match(const char *at, std::string_view piece) const noexcept {
    const char *wanted = piece.data();
    const char *const wanted_end = wanted + piece.size();
    while (wanted < wanted_end) {
        if (at == m_end) return nullptr;
        if (static_cast<unsigned char>(*wanted) < 0x80 && *wanted != any_one) {
            if (*at++ != *wanted++) return nullptr;
            continue;
        }
        const std::size_t bytes = character_bytes(m_form, at, m_end);
        if (*wanted == any_one) {
            ++wanted;
        } else {
            if (character_bytes(m_form, wanted, wanted_end) != bytes || std::memcmp(at, wanted, bytes) != 0)
                return nullptr;
            wanted += bytes;
        }
        at += bytes;
    }
    return at;
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

text_range subject::find(std::string_view piece) const {
    if (piece.empty()) return {m_begin, m_begin};
    if (m_form == encoding::other) return find_by_bits(m_form, between(m_begin, m_end), piece);
    return piece.find(any_one) == piece.npos ? find_plain(piece) : find_around(piece);
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

const char *subject::match_end(std::string_view piece) const noexcept {
    const char *begin = nullptr;
    if (m_form != encoding::other && piece.find(any_one) == piece.npos) {
        if (static_cast<std::size_t>(m_end - m_begin) < piece.size()) return nullptr;
        begin = m_end - piece.size();
        return std::memcmp(begin, piece.data(), piece.size()) == 0 && between_characters(begin) ? begin
                                                                                                : nullptr;
    }
    begin = back(m_end, count_characters(m_form, piece.data(), piece.data() + piece.size()));
    return begin && match(begin, piece) ? begin : nullptr;
}

}  // namespace

bool shell_exact(encoding form, std::string_view text, std::string_view pattern) {
    subject left(form, text);
    const std::size_t last_star = pattern.rfind(any_run);
    if (last_star == pattern.npos) return left.match(left.begin(), pattern) == left.end();

    piece_reader pieces(pattern.substr(0, last_star));
    const char *at = left.match(left.begin(), pieces.next());
    if (!at) return false;
    left.set_begin(at);
    const char *const end = left.match_end(pattern.substr(last_star + 1));
    if (!end) return false;
    left.set_end(end);
    while (!pieces.at_last()) {
        const text_range found = left.find(pieces.next());
        if (!found) return false;
        left.set_begin(found.end);
    }
    return true;
}

text_range shell_search(encoding form, std::string_view text, std::string_view pattern) {
    subject left(form, text);
    piece_reader pieces(pattern);
    text_range result = left.find(pieces.next());
    while (result && !pieces.at_last()) {
        left.set_begin(result.end);
        const text_range found = left.find(pieces.next());
        if (!found) return {};
        result.end = found.end;
    }
    return result;
}

}  // namespace kel::detail
