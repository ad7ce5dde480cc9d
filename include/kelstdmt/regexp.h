// Regular expressions over the multibyte texts of the current locale: compile a pattern into a byte program,
// search a text for the leftmost match, expand a template from that match.
//
// A match is what ordered backtracking finds: alternatives in their order, repetitions as long as possible.
// The work is bounded all the same: it grows no faster than program size times length of the text, and
// nothing recurses over the text. An invalid byte of a text counts as one character, which only `.` and a
// negated set match. doc/text.md has the syntax of patterns and templates.
//
// Different programs may be used in different threads; one program belongs to one thread at a time, because
// a search stores the groups in it. The error mode below is one for the whole process.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string_view>

#include <kelstdmt/export.h>

class xstring;

// A compiled program, one block of memory: release it with std::free, or let kel::owned_regexp do it.
struct regexp {
    // Where the whole match (0) and the groups 1 to 9 of the last search begin and end, in the text that was
    // searched; null for a group that took no part.
    const char *groupStart[10];
    const char *groupEnd[10];
    char firstChar[5];     // the character that every match begins with; empty: not known
    char anchored;         // 1: matches at the start of the text only
    const char *mustText;  // within program: a text that every match contains; null: not known
    int mustLength;        // bytes of mustText
    unsigned programSize;  // bytes of program
    char program[1];       // the nodes, behind the byte regexpMagic
};

inline constexpr unsigned char regexpMagic = 0x9C;

// A node is its opcode, the distance to the next node in two bytes, high byte first (0: there is none), and
// its operand. EXACTLY, ANYOF and ANYBUT have a text up to a NUL, STAR and PLUS the node that they repeat.
// The distance counts backwards from a BACK and forwards from any other node, and is at most 32767.
enum regexpOpcode : unsigned char {
    REOP_END = 0,
    REOP_BOL = 1,
    REOP_EOL = 2,
    REOP_ANY = 3,
    REOP_ANYOF = 4,
    REOP_ANYBUT = 5,
    REOP_BRANCH = 6,
    REOP_BACK = 7,
    REOP_EXACTLY = 8,
    REOP_NOTHING = 9,
    REOP_STAR = 10,
    REOP_PLUS = 11,
    REOP_OPEN = 20,   // REOP_OPEN + n: group n begins, n from 1 to 9
    REOP_CLOSE = 30,  // REOP_CLOSE + n: group n ends
};

// A new program, to be released with std::free; null after a reported error. null: error 4.
KELSTDMT_API regexp *regcomp(const char *pattern);

// 1 when the pattern matches somewhere in the text, else 0. start and end are characters from the
// beginning of the text; without a match they stay as they are.
KELSTDMT_API int regexec(regexp *program, const char *text, int &start, int &end);

// The template into `out`, which must have room: & and \0 stand for the whole of the last match, \1 to \9
// for its groups, \\ and \& for these characters. The text that was searched must still be there.
KELSTDMT_API void regsub(const regexp *program, const char *format, char *out);

// Errors of the expressions and of the string library ---------------------------------------------------

enum stErrorCode : int {
    stSuccess = 0,
    stReplMatch = 1,
    stFromTo = 2,
    stIntersectSegm = 3,
    stNullArgRegExp = 4,
    stCorruptedRegExp = 5,
    stCorruptedPointers = 6,
    stRegExpTooBig = 7,
    stOutofSpace = 8,
    stTooManyBrackets = 9,
    stUnterminatedBrackets = 10,
    stUnmatchedBrackets = 11,
    stJunkOnEnd = 12,
    stOperEmpty = 13,
    stNested = 14,
    stInvalidRange = 15,
    stUnmatchedSqBrackets = 16,
    stUnexpectedSymbol = 17,
    stFollowsNothing = 18,
    stTrailingSymbol = 19,
    stStringZeroLen = 20,
    stDamagedMatchStr = 21,
    stOther = 22,
};

// With the report mode on, records the code's message (getErrSeen) and returns: the function that met the
// error then answers its failure value. With the mode off, prints the exception of the code on standard error
// and ends the process with status 1.
KELSTDMT_API void stHandleKnownError(stErrorCode code, const char *function);

// Off at the start.
KELSTDMT_API bool getErrReport();
KELSTDMT_API void setErrReport(bool report);
// The message of the last error that was recorded, null at the start. The text is not copied.
KELSTDMT_API const char *getErrSeen();
KELSTDMT_API void setErrSeen(const char *message);

namespace kel {

struct regexp_release {
    void operator()(regexp *program) const noexcept { std::free(program); }
};
using owned_regexp = std::unique_ptr<regexp, regexp_release>;

// What stHandleKnownError calls the code; "No description" for an unknown one.
KELSTDMT_API const char *error_message(stErrorCode code) noexcept;

// What is wrong with a pattern, and where, in characters from its beginning: at the opening bracket that has
// no end, the range that runs backwards, the multiplier that is one too many.
struct pattern_error {
    stErrorCode code;  // stSuccess: nothing is wrong
    int position;
    const char *message;
};

// The error that regcomp would report; reports nothing itself. Any thread may call it.
KELSTDMT_API pattern_error check_pattern(const char *pattern);

// As regexec for a text whose end is known, for the first match that begins at byte `from`, the beginning of
// a character, or later: ^ is the beginning of the text all the same. So all matches of a text are found
// without going over it again and again, unless the pattern looks far ahead in vain at each of them, as
// `a.*b|a` does. Where a match is, groupStart and groupEnd tell. The text holds no NUL.
KELSTDMT_API bool search(regexp &program, std::string_view text, std::size_t from = 0);

// What regsub writes, as a string; null after a reported error.
KELSTDMT_API xstring expand(const regexp &program, const char *format);

}  // namespace kel
