// Measuring and comparing texts, and taking pieces out of them.
#include <kelstdmt/strlib.h>

#include <algorithm>
#include <memory>

#include "strlibsrc/character_set.h"
#include "strlibsrc/xstrlib_text.h"

using namespace kel::detail;
using kel::is_text;

// Comparison and measurement -------------------------------------------------------------------

int strLen(const char *text) {
    return position_of(Strlen(text));
}

int strCmp(const char *a, const char *b, unsigned char ignorecase) {
    if (!ignorecase || !is_text(a) || !is_text(b)) return borrowed_text(a) - borrowed_text(b);
    const byte_case lower = byte_case::lower();
    return std::strcoll(cased_text(a, lower).begin(), cased_text(b, lower).begin());
}

xstring strLower(const char *text) {
    return borrowed_text(text).ToLower();
}

xstring strUpper(const char *text) {
    return borrowed_text(text).ToUpper();
}

namespace {

// The last place at or before `at` at which a character surely begins.
const char *character_start(encoding form, const char *begin, const char *at) {
    if (form == encoding::single) return at;
    if (form == encoding::other) return begin;
    // In UTF-8 only bytes that continue a character can lie inside one.
    while (at > begin && continues(*at))
        --at;
    return at;
}

// Equal bytes at the beginning, or the end.
std::size_t same_bytes(std::string_view a, std::string_view b, bool backwards) {
    constexpr std::size_t block = 64;
    const std::size_t most = std::min(a.size(), b.size());
    const auto from_a = [&](std::size_t at, std::size_t n) {
        return a.data() + (backwards ? a.size() - at - n : at);
    };
    const auto from_b = [&](std::size_t at, std::size_t n) {
        return b.data() + (backwards ? b.size() - at - n : at);
    };
    std::size_t same = 0;
    while (most - same >= block && std::memcmp(from_a(same, block), from_b(same, block), block) == 0)
        same += block;
    while (same < most && *from_a(same, 1) == *from_b(same, 1))
        ++same;
    return same;
}

int common_prefix(std::string_view a, std::string_view b) {
    const encoding form = locale_encoding();
    const char *const a_end = a.data() + a.size(), *const b_end = b.data() + b.size();
    const char *differs = a.data() + same_bytes(a, b, false);
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
    const auto same = static_cast<std::ptrdiff_t>(same_bytes(a, b, true));
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

character_set separator_set(const char *separators) {
    constexpr const char *blanks = " \t\v\b";
    return {is_text(separators) ? separators : blanks, character_set::rule::whole};
}

// A piece of the text up to `text_stop`. Short ones are copied with what is behind them, which spares guesses
// about their length; in memory they take no less.
xstring make_word(const char *begin, const char *end, const char *text_stop) {
    constexpr std::size_t brief = 11;
    const std::string_view word = between(begin, end);
    if (word.size() > brief || static_cast<std::size_t>(text_stop - begin) <= brief) return make_string(word);
    char *text = buffer_create(brief);
    head(text).size = buffer_head::measured(word.size());
    std::memcpy(text, begin, brief);
    text[word.size()] = 0;
    return xstring::Adopt(text);
}

}  // namespace

xstring strWord(const char *text, int n, const char *separators) {
    if (!is_text(text) || n < 0) return xstring();
    xstring word;
    separator_set(separators).split(text, text + std::strlen(text), [&](const char *begin, const char *end) {
        if (n == 0) word = make_string(between(begin, end));
        return n-- > 0;
    });
    return word;
}

xstringsequence *strExplode(const char *text, const char *separators) {
    std::unique_ptr<xstringsequence> words(xstringsequence::create());
    if (!is_text(text)) return words.release();
    const character_set set = separator_set(separators);
    const char *stop = text + std::strlen(text);
    words->reserve(position_of(set.count_pieces(text, stop)));
    set.split(text, stop, [&](const char *begin, const char *end) {
        words->append(make_word(begin, end, stop));
        return true;
    });
    return words.release();
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
    const character_set set(chars, character_set::rule::occurring);
    const char *found = backward ? set.find_last(first, last) : set.find(first, last);
    if (!found || found == last) return strUnsetPos;
    return position_of(low + count_characters(form, first, found));
}

int strChar(const char *text, const char *chars, strScanDir direction, strSegment *range,
            unsigned char ignorecase) {
    return strChar(text, chars, direction, from_of(range), to_of(range), ignorecase);
}
