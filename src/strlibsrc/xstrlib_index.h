// A text in which characters are found by their number without a walk from the beginning.
#pragma once

#include <string_view>
#include <vector>

#include "runtime/characters.h"

namespace kel::detail {

// The places of every 64th character are kept; nothing is where each byte is one. Refers to the text.
class indexed_text {
public:
    indexed_text(std::string_view text, encoding form)
        : m_begin(text.data()), m_end(m_begin + text.size()), m_form(form) {
        m_characters = form == encoding::single ? text.size() : count_characters(form, m_begin, m_end);
        if (m_characters == text.size()) m_form = encoding::single;
        if (m_form == encoding::single) return;
        m_marks.reserve(m_characters / stride + 1);
        for (const char *at = m_begin; at < m_end; at = skip_characters(form, at, m_end, stride))
            m_marks.push_back(at);
    }

    std::size_t characters() const noexcept { return m_characters; }
    // Of character n, or the end.
    const char *at(std::size_t n) const noexcept {
        if (n >= m_characters) return m_end;
        if (m_form == encoding::single) return m_begin + n;
        return skip_characters(m_form, m_marks[n / stride], m_end, n % stride);
    }

private:
    static constexpr std::size_t stride = 64;

    const char *m_begin;
    const char *m_end;
    encoding m_form;
    std::size_t m_characters;
    std::vector<const char *> m_marks;
};

}  // namespace kel::detail
