// Names against a pattern: `*` is any run of bytes, `?` is one byte, all else is itself, with case.
#pragma once

#include <string_view>

#include "strlibsrc/xstrlib_shell.h"

namespace kel::detail {

inline bool matches_wildcard(std::string_view name, std::string_view pattern) {
    return shell_exact(lazy_encoding(encoding::single), name, pattern);
}

}  // namespace kel::detail
