// The search by all its machines, for whatever pattern and text the input holds, then for the program damaged
// where the input says.
//
// The input is a byte for the locale, a byte for how often the text is repeated, four pairs of bytes for the
// damage (where, what), a pattern up to a NUL, and the text.
#include <clocale>

#include "fuzzing.h"
#include "regexp_machines.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    constexpr std::size_t damages = 4, head = 2 + 2 * damages;
    if (size < head) return 0;
    setErrReport(true);
    std::setlocale(LC_ALL, bytes[0] & 1 ? "C.UTF-8" : "C");
    fuzz::Input input(bytes + head, size - head);
    const kel::owned_regexp compiled(regcomp(input.text().c_str()));
    if (!compiled) return 0;
    const std::string once = input.text();
    std::string text = once;
    // Long texts are searched in other ways than short ones.
    for (unsigned n = bytes[1] % 32; n > 0 && text.size() < 2000; --n)
        text += once;
    const auto copy = std::make_unique<char[]>(text.size());
    text.copy(copy.get(), text.size());
    const char *const first = copy.get(), *const last = first + text.size();
    const auto program = regexp_machines::exact_copy(*compiled);
    for (std::size_t i = 0; i < head; i += 2) {
        const std::size_t where = 1 + bytes[i];
        if (i > 0 && where < program->programSize) program->program[where] = static_cast<char>(bytes[i + 1]);
        const std::string difference = regexp_machines::disagreement(*program, {first, last}, 0);
        fuzz::require(difference.empty(), difference);
        for (int group = 0; group < 10; ++group) {
            const char *begin = program->groupStart[group], *end = program->groupEnd[group];
            fuzz::require((!begin || begin >= first) && (!end || end <= last), "outside: group", group);
        }
    }
    return 0;
}
