// The errors of the expressions and of the string library: one table, and what happens when one is met.
#include <kelstdmt/regexp.h>

#include <atomic>
#include <cstdlib>
#include <iostream>

#include <kelstdmt/strlib_exceptions.h>

namespace {

std::atomic<bool> reports{false};
std::atomic<const char *> seen{nullptr};

using maker = strXException *(const char *description, kelXFunc *func);

// The codes without a class of their own take the base.
template <class T>
strXException *make(const char *description, kelXFunc *func) {
    return kel::construct<T>(description, func);
}

struct known_error {
    const char *message;
    maker *create;
};

constexpr known_error known_errors[] = {
    {"Success", make<strXException>},
    {"The number of replacements does not match the number of segments", make<strXReplMatch>},
    {"From is greater than To", make<strXFromTo>},
    {"Overlapping segments are found", make<strXIntersectSegm>},
    {"NULL argument", make<strXNullArgRegExp>},
    {"Corrupted regular expression", make<strXCorruptedRegExp>},
    {"Corrupted pointers", make<strXCorruptedPointers>},
    {"Regular Expression is too big", make<strXRegExpTooBig>},
    {"Out of space", make<strXOutofSpace>},
    {"Too many ()", make<strXTooManyBrackets>},
    {"Unterminated ()", make<strXUnterminatedBrackets>},
    {"Unmatched ()", make<strXUnmatchedBrackets>},
    {"Internal error: junk on end", make<strXJunkOnEnd>},
    {"*+ operand could be empty", make<strXOperEmpty>},
    {"Nested *?+", make<strXNested>},
    {"Invalid [] range", make<strXInvalidRange>},
    {"Unmatched []", make<strXUnmatchedSqBrackets>},
    {"Internal error: \\0|) unexpected", make<strXUnexpectedSymbol>},
    {"?+* follows nothing", make<strXFollowsNothing>},
    {"Trailing \\", make<strXTrailingSymbol>},
    {"Internal error: strcspn 0", make<strXStringZeroLen>},
    {"Damaged match string", make<strXDamagedMatchStr>},
    {"Internal Error", make<strXOther>},
};

constexpr known_error unknown_error = {"No description", make<strXException>};

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
    {
        const xrchandle<kelXFunc> func(kel::construct<kelXFunc>(function));
        const xrchandle<strXException> exception(error.create(error.message, func.get()));
        exception->Print(std::cerr);
        std::cerr.flush();
    }
    std::exit(1);
}
