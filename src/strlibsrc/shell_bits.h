// The slow and steady search for a piece of a shell pattern.
#pragma once

#include <string_view>

#include "strlibsrc/xstrlib_shell.h"

namespace kel::detail {

// The first place in the text of a piece in which ? is any one character: in any encoding, in work of text
// times piece divided by the bits of a word, in memory proportional to the piece.
text_range find_by_bits(encoding form, std::string_view text, std::string_view piece);

}  // namespace kel::detail
