// The search: regexec and kel::search against the model that goes back, for whatever pattern and text the
// input holds, then for the program damaged where the input says.
//
// The input is a byte for the locale, a byte for how often the text is repeated, four pairs of bytes for the
// damage (where, what), a pattern up to a NUL, and the text.
#include <clocale>

#include "fuzzing.h"
#include "regexp_model.h"

namespace {

using fuzz::require, regexp_model::program_holder;

// In a block exactly as long as its program, so that the sanitizers see a look beyond it.
program_holder exact_copy(const regexp &program) {
    const auto header = static_cast<std::size_t>(program.program - reinterpret_cast<const char *>(&program));
    program_holder copy(static_cast<regexp *>(std::malloc(header + program.programSize)));
    std::memcpy(static_cast<void *>(copy.get()), &program, header + program.programSize);
    if (program.mustText) copy->mustText = copy->program + (program.mustText - program.program);
    return copy;
}

void compare(regexp &program, const std::string &text) {
    const auto copy = std::make_unique<char[]>(text.size() + 1);
    std::memcpy(copy.get(), text.c_str(), text.size() + 1);
    const char *begin = copy.get(), *end = begin + text.size();
    setErrSeen(nullptr);
    int from = -1, to = -1;
    const bool found = regexec(&program, begin, from, to) != 0;
    if (const char *seen = getErrSeen()) {
        const std::string error = seen;
        return require(!found && !program.groupStart[0] &&
                           (error == "Corrupted regular expression" || error == "Corrupted pointers"),
                       error);
    }
    const auto expected = regexp_model::matcher(program, begin, end).search();
    const auto check = [&](bool is_found, const std::optional<regexp_model::answer> &model) {
        const std::string difference =
            model ? regexp_model::difference(program, is_found, *model, begin) : "";
        require(difference.empty(), difference, text);
    };
    check(found, expected);
    require(found ? from >= 0 && from <= to && to <= program.groupEnd[0] - begin : from == -1 && to == -1,
            "positions", from, to);
    if (!found) return;
    // All further matches, each from the end of the one before.
    for (int rounds = 0; rounds < 8 && program.groupEnd[0] != end; ++rounds) {
        const char *next = program.groupEnd[0];
        if (next == program.groupStart[0]) return;
        const bool again = kel::search(program, {begin, text.size()}, static_cast<std::size_t>(next - begin));
        check(again, regexp_model::matcher(program, begin, end).search(next));
        if (!again) return;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    constexpr std::size_t damages = 4, head = 2 + 2 * damages;
    if (size < head) return 0;
    setErrReport(true);
    std::setlocale(LC_ALL, bytes[0] & 1 ? "C.UTF-8" : "C");
    fuzz::Input input(bytes + head, size - head);
    const program_holder compiled(regcomp(input.text().c_str()));
    if (!compiled) return 0;
    const std::string once = input.text();
    std::string text = once;
    // Long texts are searched in other ways than short ones.
    for (unsigned n = bytes[1] % 32; n > 0 && text.size() < 2000; --n)
        text += once;
    const program_holder program = exact_copy(*compiled);
    compare(*program, text);
    for (std::size_t i = 2; i < head; i += 2) {
        const std::size_t where = 1 + bytes[i];
        if (where >= program->programSize) continue;
        program->program[where] = static_cast<char>(bytes[i + 1]);
        compare(*program, text);
    }
    return 0;
}
