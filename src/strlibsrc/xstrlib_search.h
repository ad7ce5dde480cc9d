// Successive occurrences of a plain text: the search is prepared once, because a call of the C library's for
// each occurrence costs more than the way from one to the next.
#pragma once

#include <cstddef>
#include <string_view>

namespace kel::detail {

class occurrence_search {
public:
    // Refers to the pattern, which has at least one byte.
    explicit occurrence_search(std::string_view pattern) noexcept : m_pattern(pattern) {}

    // The first occurrence in [at, end), else null.
    const char *next(const char *at, const char *end) noexcept;

private:
    std::string_view m_pattern;
};

}  // namespace kel::detail
