// What the parts of the string library share: positions in a text, and results of a known size.
//
// A position is a number of characters; places in the text are pointers. A walk that ends where the text
// ends needs no walk, so "the end" is kept apart from "the number of all characters".
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>

#include <kelstdmt/strlib.h>

#include "runtime/characters.h"
#include "runtime/sizes.h"

namespace kel::detail {

inline constexpr auto text_end = std::numeric_limits<std::size_t>::max();

// An unset position is the default, any other negative one the beginning.
inline std::size_t position(int given, std::size_t unset) noexcept {
    if (given == strUnsetPos) return unset;
    return given < 0 ? 0 : static_cast<std::size_t>(given);
}

inline int from_of(strSegment *segment) {
    return segment ? segment->getFrom() : strUnsetPos;
}
inline int to_of(strSegment *segment) {
    return segment ? segment->getTo() : strUnsetPos;
}

// The place n characters behind `begin`, at most `end`.
inline const char *place(encoding form, const char *begin, const char *end, std::size_t n) noexcept {
    const auto bytes = static_cast<std::size_t>(end - begin);
    if (n >= bytes) return end;
    return form == encoding::single ? begin + n : skip_characters(form, begin, end, n);
}

inline std::string_view between(const char *begin, const char *end) noexcept {
    return {begin, static_cast<std::size_t>(end - begin)};
}

// As memcpy, without its call for few bytes: two overlapping words take them.
inline void copy_bytes(char *to, const char *from, std::size_t bytes) noexcept {
    const auto copy_two = [&]<class Word>(Word) {
        Word first, last;
        std::memcpy(&first, from, sizeof first);
        std::memcpy(&last, from + bytes - sizeof last, sizeof last);
        std::memcpy(to, &first, sizeof first);
        std::memcpy(to + bytes - sizeof last, &last, sizeof last);
    };
    if (bytes > 16) {
        std::memcpy(to, from, bytes);
    } else if (bytes >= 8) {
        copy_two(std::uint64_t{});
    } else if (bytes >= 4) {
        copy_two(std::uint32_t{});
    } else if (bytes > 0) {
        to[0] = from[0];
        to[bytes / 2] = from[bytes / 2];
        to[bytes - 1] = from[bytes - 1];
    }
}

// A string written from the left into a buffer of the right size.
class string_writer {
public:
    explicit string_writer(std::size_t bytes)
        : m_text(xstring::Adopt(buffer_create(bytes))), m_begin(const_cast<char *>(m_text.Str())) {
        head(m_begin).size = buffer_head::measured(bytes);
        m_at = m_begin;
    }

    string_writer &operator<<(std::string_view bytes) noexcept {
        copy_bytes(m_at, bytes.data(), bytes.size());
        m_at += bytes.size();
        return *this;
    }
    xstring take() &&noexcept { return std::move(m_text); }

private:
    xstring m_text;
    char *m_begin;
    char *m_at;
};

inline xstring make_string(std::string_view bytes) {
    char *text = buffer_create(bytes.size());
    head(text).size = buffer_head::measured(bytes.size());
    copy_bytes(text, bytes.data(), bytes.size());
    return xstring::Adopt(text);
}

// A text in another case, byte by byte as the strings have it, with a terminator. Short ones need no memory.
class cased_text {
public:
    cased_text(std::string_view text, byte_case change) : m_size(text.size()) {
        if (m_size >= sizeof m_short) m_long = std::make_unique_for_overwrite<char[]>(m_size + 1);
        char *out = m_long ? m_long.get() : m_short;
        std::transform(text.begin(), text.end(), out, change);
        out[m_size] = 0;
    }

    const char *begin() const noexcept { return m_long ? m_long.get() : m_short; }
    const char *end() const noexcept { return begin() + m_size; }

private:
    std::size_t m_size;
    std::unique_ptr<char[]> m_long;
    char m_short[256];
};

// A text pointer as a string, for the operations that strings have.
class borrowed_text final : public xstrbase {
public:
    explicit borrowed_text(const char *text) noexcept : m_text(text) {}

private:
    const char *GiveString() const override { return m_text; }

    const char *m_text;
};

}  // namespace kel::detail
