// The search: regexec and kel::search against the model that goes back, for whatever pattern and text the
// input holds, then for the program damaged where the input says.
//
// The input is a byte for the locale, a byte for how often the text is repeated, four pairs of bytes for the
// damage (where, what), a pattern up to a NUL, and the text.
#include <kelstdmt/regexp.h>

#include <algorithm>
#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "regexp_model.h"

namespace {

struct release {
    void operator()(regexp *program) const { std::free(program); }
};
using program_holder = std::unique_ptr<regexp, release>;

void require(bool holds) {
    if (!holds) std::abort();
}

// In a block exactly as long as its program, so that the sanitizers see a look beyond it.
program_holder exact_copy(const regexp &program) {
    const auto header = static_cast<std::size_t>(program.program - reinterpret_cast<const char *>(&program));
    program_holder copy(static_cast<regexp *>(std::malloc(header + program.programSize)));
    std::memcpy(static_cast<void *>(copy.get()), &program, header + program.programSize);
    if (program.mustText) copy->mustText = copy->program + (program.mustText - program.program);
    return copy;
}

void require_known_error(const regexp &program) {
    const std::string seen = getErrSeen();
    require(seen == "Corrupted regular expression" || seen == "Corrupted pointers");
    require(!program.groupStart[0]);
}

void compare(regexp &program, const std::string &text) {
    const auto copy = std::make_unique<char[]>(text.size() + 1);
    std::memcpy(copy.get(), text.c_str(), text.size() + 1);
    const char *begin = copy.get(), *end = begin + text.size();
    setErrSeen(nullptr);
    int from = -1, to = -1;
    const bool found = regexec(&program, begin, from, to) != 0;
    if (getErrSeen()) return require(!found), require_known_error(program);
    const auto expected = regexp_model::matcher(program, begin, end).search();
    if (expected) require(regexp_model::difference(program, found, *expected, begin).empty());
    if (!found) return require(from == -1 && to == -1);
    require(from >= 0 && from <= to && to <= program.groupEnd[0] - begin);
    // All further matches, each from the end of the one before.
    for (int rounds = 0; rounds < 8 && program.groupEnd[0] != end; ++rounds) {
        const char *next = program.groupEnd[0];
        if (next == program.groupStart[0]) return;
        const bool again = kel::search(program, {begin, text.size()}, static_cast<std::size_t>(next - begin));
        const auto later = regexp_model::matcher(program, begin, end).search(next);
        if (later) require(regexp_model::difference(program, again, *later, begin).empty());
        if (!again) return;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    constexpr std::size_t damages = 4, head = 2 + 2 * damages;
    if (size < head) return 0;
    setErrReport(true);
    std::setlocale(LC_ALL, bytes[0] & 1 ? "C.UTF-8" : "C");
    std::string_view rest(reinterpret_cast<const char *>(bytes) + head, size - head);
    const std::size_t split = std::min(rest.find('\0'), rest.size());
    const std::string pattern(rest.substr(0, split));
    const std::string_view tail = rest.substr(std::min(split + 1, rest.size()));
    const std::string once(tail.substr(0, tail.find('\0')));
    std::string text = once;
    // Long texts are searched in other ways than short ones.
    for (unsigned n = bytes[1] % 32; n > 0 && text.size() < 2000; --n)
        text += once;
    const program_holder compiled(regcomp(pattern.c_str()));
    if (!compiled) return 0;
    const program_holder program = exact_copy(*compiled);
    compare(*program, text);
    for (std::size_t i = 0; i < damages; ++i) {
        const std::size_t where = 1 + bytes[2 + 2 * i];
        if (where >= program->programSize) continue;
        program->program[where] = static_cast<char>(bytes[3 + 2 * i]);
        compare(*program, text);
    }
    return 0;
}
