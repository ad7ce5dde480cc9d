// The search behind regexec, for callers that know where their text ends and keep positions as pointers.
#pragma once

#include <kelstdmt/regexp.h>

namespace kel::detail {

// Whether the program matches somewhere in [begin, end), whose ends are ^ and $, from `from` on. The bytes
// there hold no NUL and need no terminator. Fills groupStart and groupEnd; without a match they are null.
// Errors are reported under "regexec" or "regmatch" and are no match. The tables that a program needs to be
// searched with are kept for the thread, by the program's content, so a pattern that is compiled anew finds
// them again.
bool regexp_search(regexp &program, const char *begin, const char *end, const char *from);
inline bool regexp_search(regexp &program, const char *begin, const char *end) {
    return regexp_search(program, begin, end, begin);
}

}  // namespace kel::detail
