// Replacing lists of segments, from the last to the first, each in the text as those before have left it.
//
// The text is a list of pieces of the texts that it is made of, and its bytes are copied once, at the end. So
// sorted segments cost no more than the text and the result, and segments that overlap or lie out of order
// still mean what replacing them one by one means. Only where invalid bytes meet that make a character
// together are characters counted anew.
#include <kelstdmt/strlib.h>

#include <cstdint>
#include <deque>
#include <utility>
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
    // Puts the bytes from 0x80 on that are characters by themselves at its end before `begin`, down to
    // `least`; whether there are no other characters.
    bool add_stray_bytes(const char *least, char *&begin) const {
        for (std::size_t n = to; n > from && begin != least; --n) {
            const char *at = source->at(n - 1);
            if (is_ascii(*at) || source->at(n) - at != 1) return false;
            *--begin = *at;
        }
        return true;
    }
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
        if (m_form == encoding::single) return;
        seek(from + replacement.characters());
        join_at_cursor();
        // Else the first seam is gone, too.
        if (m_cursor < from) return;
        seek(from);
        join_at_cursor();
    }

    xstring text() {
        seek(0);
        return text_behind(m_total);
    }

private:
    void put_behind(const indexed_text &text) {
        if (text.characters() > 0) m_behind.push_back({&text, 0, text.characters()});
    }

    // Where bytes on both sides of the cursor make a character together, they become one; the cursor is
    // before it then. What is a character keeps its bytes, so the left side gives such as were alone.
    void join_at_cursor() {
        constexpr std::size_t most = longest_character - 1;
        char window[2 * most];
        char *const seam = window + most;
        char *begin = seam, *end = seam;
        for (auto part = m_before.rbegin(); part != m_before.rend() && begin != window; ++part)
            if (!part->add_stray_bytes(window, begin)) break;
        if (begin == seam) return;
        for (auto part = m_behind.rbegin(); part != m_behind.rend() && end != seam + most; ++part)
            end += part->bytes().copy(end, static_cast<std::size_t>(seam + most - end));
        for (; begin != seam; ++begin) {
            const auto before = static_cast<std::size_t>(seam - begin);
            const std::size_t bytes = character_bytes(m_form, begin, end);
            if (bytes <= before) continue;
            // In UTF-8 each byte of it was alone. Other encodings may read all that follows otherwise now.
            if (m_form == encoding::utf8) return count_anew(before, bytes - before);
            return count_anew(m_cursor, m_total - m_cursor);
        }
    }
    // The characters before and behind the cursor become a text of their own, behind it.
    void count_anew(std::size_t before, std::size_t behind) {
        seek(m_cursor - before);
        xstring bytes = text_behind(before + behind);
        drop(before + behind);
        if (m_before.empty() && m_behind.empty()) m_joined.clear();
        const indexed_text &joined = m_joined.emplace_back(std::move(bytes), m_form).index;
        put_behind(joined);
        m_total += joined.characters();
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

    xstring text_behind(std::size_t characters) const {
        std::vector<std::string_view> parts;
        std::size_t bytes = 0;
        for (auto part = m_behind.rbegin(); characters > 0; ++part) {
            const std::size_t taken = std::min(part->characters(), characters);
            parts.push_back(piece{part->source, part->from, part->from + taken}.bytes());
            bytes = add_sizes(bytes, parts.back().size());
            characters -= taken;
        }
        string_writer writer(bytes);
        for (std::string_view part : parts)
            writer << part;
        return std::move(writer).take();
    }
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
    struct joined_text {
        joined_text(xstring given, encoding form)
            : bytes(std::move(given)), index(std::string_view(bytes), form) {}

        xstring bytes;
        indexed_text index;
    };
    std::deque<joined_text> m_joined;  // what pieces may lie in beside the texts of the caller
    std::size_t m_cursor = 0;          // characters before it
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
