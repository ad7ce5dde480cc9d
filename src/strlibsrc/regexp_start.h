// Where a match may begin, told from the first bytes alone: most of a long text is crossed by looking for a
// text or for one of some bytes, without the automaton.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "strlibsrc/regexp_program.h"

namespace kel::detail {

class regexp_start {
public:
    // For a search that may begin anywhere.
    explicit regexp_start(const regexp_program &program);

    // The program is nothing but this text, and has no groups.
    bool is_text() const noexcept { return m_is_text; }
    // What every match begins with, as far as it is one text.
    const std::string &text() const noexcept { return m_text; }
    // The first position from `at` on, a character's beginning, where a match may begin; else `end`. A match
    // at the end of the text is not considered.
    const char *find(const char *at, const char *end) const noexcept { return m_useful ? look(at, end) : at; }

private:
    void find_text_of(const regexp_program &program);
    void find_bytes_of(const regexp_program &program);
    void find_ranges();
    const char *look(const char *at, const char *end) const noexcept;
    const char *pass_blocks(const char *at, const char *end) const noexcept;

    std::string m_text;
    bool m_is_text = false;
    bool m_useful = false;
    bool m_one_byte = false;
    char m_byte = 0;
    std::array<bool, 256> m_first{};
    // The same bytes as ranges, when they make few; what is left over repeats the first one.
    struct byte_range {
        std::uint8_t first, width;  // width: of the last one, counted from the first
    };
    static constexpr std::size_t most_ranges = 3;
    bool m_few_ranges = false;
    std::array<byte_range, most_ranges> m_ranges{};
};

}  // namespace kel::detail
