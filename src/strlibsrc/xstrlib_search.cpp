#include "strlibsrc/xstrlib_search.h"

#include <cstring>

namespace kel::detail {

const char *occurrence_search::next(const char *at, const char *end) noexcept {
    const auto left = static_cast<std::size_t>(end - at);
    const void *found = m_pattern.size() == 1 ? std::memchr(at, m_pattern[0], left)
                                              : memmem(at, left, m_pattern.data(), m_pattern.size());
    return static_cast<const char *>(found);
}

}  // namespace kel::detail
