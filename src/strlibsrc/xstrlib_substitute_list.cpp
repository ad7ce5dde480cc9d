// Replacing lists of segments, from the last to the first, each in the text as those before have left it.
//
// The text is a list of pieces of the texts that it is made of, and its bytes are copied once, at the end. So
// sorted segments cost no more than the text and the result, and segments that overlap or lie out of order
// still mean what replacing them one by one means. Only where invalid bytes meet that might make a character
// together are the characters counted anew.
#include <kelstdmt/strlib.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "strlibsrc/xstrlib_index.h"
#include "strlibsrc/xstrlib_text.h"

using namespace kel::detail;
using kel::is_text;

namespace {

struct piece {
    const indexed_text *source;
    std::size_t from, to;  // characters of the source

    std::size_t characters() const { return to - from; }
    std::string_view bytes() const { return between(source->at(from), source->at(to)); }
};

// Two stacks hold the pieces before and behind a cursor, those next to it on top; a change costs the pieces
// between it and the change before.
class changing_text {
public:
    changing_text(const indexed_text &text, encoding form) : m_form(form), m_total(text.characters()) {
        put_behind(text);
    }

    // The characters before `from`, the replacement, the characters from `to` on.
    void replace(std::size_t from, std::size_t to, const indexed_text &replacement) {
        from = std::min(from, m_total);
        to = std::min(to, m_total);
        if (to < from) {
            repeat_behind(from, to);
        } else {
            seek(from);
            drop(to - from);
        }
        put_behind(replacement);
        m_total = add_sizes(m_total, replacement.characters());
        if (m_total > std::numeric_limits<std::uint32_t>::max()) throw std::bad_alloc();
        if (may_join_at_cursor(replacement)) count_anew();
    }

    xstring text() {
        seek(0);
        std::vector<std::string_view> parts;
        parts.reserve(m_behind.size());
        std::size_t bytes = 0;
        for (auto part = m_behind.rbegin(); part != m_behind.rend(); ++part) {
            parts.push_back(part->bytes());
            bytes = add_sizes(bytes, parts.back().size());
        }
        string_writer writer(bytes);
        for (std::string_view part : parts)
            writer << part;
        return std::move(writer).take();
    }

private:
    void put_behind(const indexed_text &text) {
        if (text.characters() > 0) m_behind.push_back({&text, 0, text.characters()});
    }

    // Whether the last byte of one is no character of its own for sure when the first of the other follows.
    bool may_join(const piece &left, const piece &right) const {
        const char first = *right.source->at(right.from);
        if (m_form == encoding::utf8 && (static_cast<unsigned char>(first) & 0xC0) != 0x80) return false;
        const char *last = left.source->at(left.to - 1);
        return static_cast<unsigned char>(*last) >= 0x80 && left.source->at(left.to) - last == 1;
    }
    bool may_join_at_cursor(const indexed_text &inserted) const {
        if (m_form == encoding::single || m_behind.empty()) return false;
        if (!m_before.empty() && may_join(m_before.back(), m_behind.back())) return true;
        const std::size_t behind = m_behind.size();
        return inserted.characters() > 0 && behind > 1 && may_join(m_behind.back(), m_behind[behind - 2]);
    }
    void count_anew() {
        m_joined = text();
        m_index.emplace(std::string_view(m_joined), m_form);
        m_before.clear();
        m_behind.clear();
        m_cursor = 0;
        m_total = m_index->characters();
        put_behind(*m_index);
    }

    void seek(std::size_t target) {
        while (m_cursor > target) {
            piece &last = m_before.back();
            const std::size_t moved = std::min(last.characters(), m_cursor - target);
            last.to -= moved;
            m_behind.push_back({last.source, last.to, last.to + moved});
            if (last.characters() == 0) m_before.pop_back();
            m_cursor -= moved;
        }
        while (m_cursor < target) {
            piece &next = m_behind.back();
            const std::size_t moved = std::min(next.characters(), target - m_cursor);
            m_before.push_back({next.source, next.from, next.from + moved});
            next.from += moved;
            if (next.characters() == 0) m_behind.pop_back();
            m_cursor += moved;
        }
    }

    // Behind the cursor.
    void drop(std::size_t characters) {
        m_total -= characters;
        while (characters > 0) {
            piece &next = m_behind.back();
            const std::size_t dropped = std::min(next.characters(), characters);
            next.from += dropped;
            if (next.characters() == 0) m_behind.pop_back();
            characters -= dropped;
        }
    }

    // The cursor at `from`, and behind it everything from the lower `to` on.
    void repeat_behind(std::size_t from, std::size_t to) {
        seek(to);
        const std::size_t kept = m_before.size();
        seek(from);
        for (std::size_t i = m_before.size(); i > kept; --i)
            m_behind.push_back(m_before[i - 1]);
        m_total = add_sizes(m_total, from - to);
    }

    encoding m_form;
    std::vector<piece> m_before;
    std::vector<piece> m_behind;
    xstring m_joined;  // what pieces may lie in beside the texts of the caller
    std::optional<indexed_text> m_index;
    std::size_t m_cursor = 0;  // characters before it
    std::size_t m_total;
};

}  // namespace

xstring strSubstitute(const char *text, strSegments *segments, const char *replacement) {
    if (!is_text(text)) return xstring();
    const encoding form = locale_encoding();
    const indexed_text whole(text, form), inserted(any_view(replacement), form);
    changing_text changing(whole, form);
    for (int i = segments ? segments->getarraysize() : 0; i-- > 0;) {
        strSegment *segment = segments->get(i);
        changing.replace(position(from_of(segment), 0), position(to_of(segment), text_end), inserted);
    }
    return changing.text();
}

xstring strSubstitute(const char *text, strSegments *segments, xstringsequence *replacements) {
    if (!is_text(text)) return xstring();
    const int count = segments ? segments->getarraysize() : 0;
    const int given = replacements ? replacements->getarraysize() : 0;
    if (count != given) stHandleKnownError(stReplMatch, "strSubstitute");
    if (segments) segments->checkConsistency();

    const encoding form = locale_encoding();
    const indexed_text whole(text, form);
    std::vector<indexed_text> inserted;
    inserted.reserve(static_cast<std::size_t>(given));
    for (int i = 0; i < std::min(count, given); ++i)
        inserted.emplace_back(std::string_view((*replacements)[i]), form);
    changing_text changing(whole, form);
    for (int i = std::min(count, given); i-- > 0;) {
        strSegment *segment = segments->get(i);
        changing.replace(position(from_of(segment), 0), position(to_of(segment), text_end),
                         inserted[static_cast<std::size_t>(i)]);
    }
    return changing.text();
}
