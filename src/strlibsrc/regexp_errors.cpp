// The errors of the expressions and of the string library: one table, and what happens when one is met.
#include <kelstdmt/regexp.h>

#include <atomic>
#include <cstdlib>

#include <kelstdmt/strlib_exceptions.h>

#include "services/print_exception.h"

namespace {

std::atomic<bool> reports{false};
std::atomic<const char *> seen{nullptr};

using printer = void (*)(const char *function, const char *description);

struct known_error {
    const char *message;
    printer print;
};

// The codes without a class of their own take the base.
template <class Exception>
constexpr printer print_as = kel::detail::print_exception<Exception, const char *>;

constexpr known_error known_errors[] = {
    {"Success", print_as<strXException>},
    {"The number of replacements does not match the number of segments", print_as<strXReplMatch>},
    {"From is greater than To", print_as<strXFromTo>},
    {"Overlapping segments are found", print_as<strXIntersectSegm>},
    {"NULL argument", print_as<strXNullArgRegExp>},
    {"Corrupted regular expression", print_as<strXCorruptedRegExp>},
    {"Corrupted pointers", print_as<strXCorruptedPointers>},
    {"Regular Expression is too big", print_as<strXRegExpTooBig>},
    {"Out of space", print_as<strXOutofSpace>},
    {"Too many ()", print_as<strXTooManyBrackets>},
    {"Unterminated ()", print_as<strXUnterminatedBrackets>},
    {"Unmatched ()", print_as<strXUnmatchedBrackets>},
    {"Internal error: junk on end", print_as<strXJunkOnEnd>},
    {"*+ operand could be empty", print_as<strXOperEmpty>},
    {"Nested *?+", print_as<strXNested>},
    {"Invalid [] range", print_as<strXInvalidRange>},
    {"Unmatched []", print_as<strXUnmatchedSqBrackets>},
    {"Internal error: \\0|) unexpected", print_as<strXUnexpectedSymbol>},
    {"?+* follows nothing", print_as<strXFollowsNothing>},
    {"Trailing \\", print_as<strXTrailingSymbol>},
    {"Internal error: strcspn 0", print_as<strXStringZeroLen>},
    {"Damaged match string", print_as<strXDamagedMatchStr>},
    {"Internal Error", print_as<strXOther>},
};

constexpr known_error unknown_error = {"No description", print_as<strXException>};

const known_error &find(stErrorCode code) {
    const auto number = static_cast<unsigned>(code);
    return number < std::size(known_errors) ? known_errors[number] : unknown_error;
}

}  // namespace

const char *kel::error_message(stErrorCode code) noexcept {
    return find(code).message;
}

bool getErrReport() {
    return reports;
}
void setErrReport(bool report) {
    reports = report;
}
const char *getErrSeen() {
    return seen;
}
void setErrSeen(const char *message) {
    seen = message;
}

void stHandleKnownError(stErrorCode code, const char *function) {
    const known_error &error = find(code);
    if (reports) {
        seen = error.message;
        return;
    }
    error.print(function, error.message);
    std::exit(1);
}
