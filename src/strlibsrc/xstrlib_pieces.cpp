// Measuring and comparing texts, and taking pieces out of them.
//
// Words and sets of characters are sought byte by byte through a table where a byte cannot lie inside a
// longer character: in a locale of single bytes, and in UTF-8 when all that is sought is ASCII. Otherwise the
// walk goes from character to character.
#include <kelstdmt/strlib.h>

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

#include "strlibsrc/xstrlib_text.h"

using namespace kel::detail;
using kel::is_text;

// Comparison and measurement -------------------------------------------------------------------

int strLen(const char *text) {
    return position_of(Strlen(text));
}

int strCmp(const char *a, const char *b, unsigned char ignorecase) {
    if (!ignorecase || !is_text(a) || !is_text(b)) return borrowed_text(a) - borrowed_text(b);
    return std::strcoll(strLower(a).Str(), strLower(b).Str());
}

xstring strLower(const char *text) {
    return borrowed_text(text).ToLower();
}

xstring strUpper(const char *text) {
    return borrowed_text(text).ToUpper();
}

namespace {

constexpr bool continues(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// The last place at or before `at` at which a character surely begins.
const char *character_start(encoding form, const char *begin, const char *at) {
    if (form == encoding::single) return at;
    if (form == encoding::other) return begin;
    // In UTF-8 only bytes that continue a character can lie inside one.
    while (at > begin && continues(*at))
        --at;
    return at;
}

int common_prefix(std::string_view a, std::string_view b) {
    const encoding form = locale_encoding();
    const std::size_t shorter = std::min(a.size(), b.size());
    const char *const a_end = a.data() + a.size(), *const b_end = b.data() + b.size();
    const char *differs = std::mismatch(a.data(), a.data() + shorter, b.data()).first;
    if (form == encoding::single) return position_of(static_cast<std::size_t>(differs - a.data()));
    // Up to a start of characters that both texts have, their characters are the same.
    const char *at = differs > a.data() ? character_start(form, a.data(), differs - 1) : a.data();
    std::size_t count = count_characters(form, a.data(), at);
    const char *other = b.data() + (at - a.data());
    while (at < differs) {
        const std::size_t bytes = character_bytes(form, at, a_end);
        if (bytes != character_bytes(form, other, b_end) || bytes > static_cast<std::size_t>(differs - at))
            break;
        at += bytes;
        other += bytes;
        ++count;
    }
    return position_of(count);
}

int common_suffix(std::string_view a, std::string_view b) {
    const encoding form = locale_encoding();
    const auto same = static_cast<std::ptrdiff_t>(
        std::mismatch(a.rbegin(), a.rbegin() + static_cast<std::ptrdiff_t>(std::min(a.size(), b.size())),
                      b.rbegin())
            .first -
        a.rbegin());
    const char *const a_end = a.data() + a.size(), *const b_end = b.data() + b.size();
    const char *at = character_start(form, a.data(), a_end - same);
    const char *other = character_start(form, b.data(), b_end - same);
    // From the first place in the common bytes where both have a boundary, the characters are the same.
    while (a_end - at != b_end - other || a_end - at > same) {
        if (a_end - at >= b_end - other)
            at += character_bytes(form, at, a_end);
        else
            other += character_bytes(form, other, b_end);
    }
    return position_of(count_characters(form, at, a_end));
}

int common_length(int (*measure)(std::string_view, std::string_view), const char *a, const char *b,
                  unsigned char ignorecase) {
    if (!is_text(a) || !is_text(b)) return 0;
    return ignorecase ? measure(strUpper(a), strUpper(b)) : measure(a, b);
}

}  // namespace

int strCmnPfxLen(const char *a, const char *b, unsigned char ignorecase) {
    return common_length(common_prefix, a, b, ignorecase);
}

int strCmnSfxLen(const char *a, const char *b, unsigned char ignorecase) {
    return common_length(common_suffix, a, b, ignorecase);
}

// Pieces ---------------------------------------------------------------------------------------

xstring strSubstring(const char *text, int from, int to) {
    const std::string_view all = any_view(text);
    if (all.empty()) return xstring();
    const encoding form = locale_encoding();
    const char *end = all.data() + all.size();
    const std::size_t first = position(from, 0), last = position(to, text_end);
    const char *begin = place(form, all.data(), end, first);
    if (last != text_end) end = place(form, begin, end, last > first ? last - first : 0);
    return make_string(between(begin, end));
}

xstring strSubstring(const char *text, strSegment *segment) {
    return strSubstring(text, from_of(segment), to_of(segment));
}

xstringsequence *strAllSubstrings(const char *text, strSegments *segments) {
    std::unique_ptr<xstringsequence> result(xstringsequence::create());
    const int count = segments ? segments->getarraysize() : 0;
    for (int i = 0; i < count; ++i)
        result->append(strSubstring(text, segments->get(i)));
    return result.release();
}

xstring strConcat(xstringsequence *texts) {
    if (!texts || texts->getarraysize() == 0) return xstring();
    std::size_t bytes = 0;
    for (const xstring &text : *texts)
        bytes = add_sizes(bytes, std::string_view(text).size());
    string_writer writer(bytes);
    for (const xstring &text : *texts)
        writer << text;
    return std::move(writer).take();
}

// Sets of characters ---------------------------------------------------------------------------

namespace {

class character_set {
public:
    enum class member { whole, occurring };  // a character of the set, or bytes that occur in it

    character_set(std::string_view characters, member rule) : m_form(locale_encoding()) {
        const char *at = characters.data(), *end = at + characters.size();
        while (at < end) {
            const std::size_t bytes = character_bytes(m_form, at, end);
            for (std::size_t i = 0; bytes > 1 && rule == member::occurring && i < bytes; ++i)
                m_single[byte(at[i])] = true;
            if (bytes == 1) m_single[byte(*at)] = true;
            if (bytes > 1) m_long.emplace_back(at, bytes);
            m_ascii = m_ascii && byte(*at) < 0x80;
            at += bytes;
        }
        std::sort(m_long.begin(), m_long.end());
    }

    // Whether the members are found without regard to where characters begin.
    bool by_bytes() const { return m_form == encoding::single || (m_form == encoding::utf8 && m_ascii); }
    bool holds(char single) const { return m_single[byte(single)]; }
    bool holds(const char *at, std::size_t bytes) const {
        if (bytes == 1) return holds(*at);
        return std::binary_search(m_long.begin(), m_long.end(), std::string_view(at, bytes));
    }

    // The first member, or the first that is none; `end` without one.
    template <bool Member>
    const char *find(const char *at, const char *end) const {
        if (by_bytes()) {
            while (at < end && holds(*at) != Member)
                ++at;
            return at;
        }
        while (at < end) {
            const std::size_t bytes = character_bytes(m_form, at, end);
            if (holds(at, bytes) == Member) break;
            at += bytes;
        }
        return at;
    }
    // The last member; null without one.
    const char *find_last(const char *begin, const char *end) const {
        if (by_bytes()) {
            while (end > begin && !holds(end[-1]))
                --end;
            return end > begin ? end - 1 : nullptr;
        }
        const char *last = nullptr;
        for (std::size_t bytes; begin < end; begin += bytes) {
            bytes = character_bytes(m_form, begin, end);
            if (holds(begin, bytes)) last = begin;
        }
        return last;
    }

private:
    static std::size_t byte(char value) { return static_cast<unsigned char>(value); }

    encoding m_form;
    bool m_ascii = true;
    std::array<bool, 256> m_single{};
    std::vector<std::string_view> m_long;  // members of several bytes
};

character_set separator_set(const char *separators) {
    constexpr const char *blanks = " \t\v\b";
    return {is_text(separators) ? separators : blanks, character_set::member::whole};
}

}  // namespace

xstring strWord(const char *text, int n, const char *separators) {
    if (!is_text(text) || n < 0) return xstring();
    const character_set set = separator_set(separators);
    const char *at = text, *end = text + std::strlen(text);
    while (true) {
        const char *stop = set.find<true>(at, end);
        if (n == 0) return make_string(between(at, stop));
        if (stop == end) return xstring();
        at = set.find<false>(stop, end);
        --n;
    }
}

xstringsequence *strExplode(const char *text, const char *separators) {
    std::unique_ptr<xstringsequence> words(xstringsequence::create());
    if (!is_text(text)) return words.release();
    const character_set set = separator_set(separators);
    const char *at = text, *end = text + std::strlen(text);
    while (true) {
        const char *stop = set.find<true>(at, end);
        words->append(make_string(between(at, stop)));
        if (stop == end) return words.release();
        at = set.find<false>(stop, end);
    }
}

int strChar(const char *text, const char *chars, strScanDir direction, int from, int to,
            unsigned char ignorecase) {
    if (!is_text(text) || !is_text(chars)) return strUnsetPos;
    if (ignorecase) return strChar(strUpper(text), strUpper(chars), direction, from, to);
    const bool backward = direction == strBackward;
    const auto [low, high] =
        std::minmax({position(from, backward ? text_end : 0), position(to, backward ? 0 : text_end)});
    const encoding form = locale_encoding();
    const char *end = text + std::strlen(text);
    const char *first = place(form, text, end, low);
    const char *last = high == text_end ? end : place(form, first, end, high - low);
    const character_set set(chars, character_set::member::occurring);
    const char *found = backward ? set.find_last(first, last) : set.find<true>(first, last);
    if (!found || found == last) return strUnsetPos;
    return position_of(low + count_characters(form, first, found));
}

int strChar(const char *text, const char *chars, strScanDir direction, strSegment *range,
            unsigned char ignorecase) {
    return strChar(text, chars, direction, from_of(range), to_of(range), ignorecase);
}
