// Shell patterns: * is any run of characters, ? any one character, all else is itself. Nothing is allocated
// and nothing is copied for ordinary patterns, and no pattern makes the work grow without bounds: text times
// pattern, divided by the bits of a word, is the worst.
#pragma once

#include <string_view>

#include "runtime/characters.h"

namespace kel::detail {

// Whether the whole text matches.
bool shell_exact(lazy_encoding form, std::string_view text, std::string_view pattern);

// Of the places that match the leftmost, and of those there the shortest. Null pointers for none.
struct text_range {
    const char *begin = nullptr;
    const char *end = nullptr;
    explicit operator bool() const noexcept { return begin; }
};
text_range shell_search(lazy_encoding form, std::string_view text, std::string_view pattern);

}  // namespace kel::detail
