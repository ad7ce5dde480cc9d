// Templates: regsub and kel::expand side by side, over groups that a hostile caller may have set, and the
// compiler beside check_pattern over whatever the input holds as a pattern.
//
// The input is six bytes that place the groups, a pattern up to a NUL, a text up to a NUL, the template.
#include <clocale>
#include <vector>

#include <kelstdmt/xstring.h>

#include "fuzzing.h"
#include "regexp_machines.h"

using fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    constexpr std::size_t places = 6;
    if (size < places) return 0;
    setErrReport(true);
    std::setlocale(LC_ALL, bytes[0] & 1 ? "C.UTF-8" : "C");
    fuzz::Input input(bytes + places, size - places);
    const std::string pattern = input.text(), text = input.text(), format = input.text();
    setErrSeen("Success");
    kel::owned_regexp program(regcomp(pattern.c_str()));
    const kel::pattern_error error = kel::check_pattern(pattern.c_str());
    require((error.code == stSuccess) == (program != nullptr), "another verdict on:", pattern);
    require(std::strcmp(error.message, getErrSeen()) == 0, "another message:", error.message);
    require(error.position >= 0 && static_cast<std::size_t>(error.position) <= pattern.size(),
            "a position outside of:", pattern);
    if (!program) program.reset(regcomp(""));
    int start = -1, end = -1;
    if (regexec(program.get(), text.c_str(), start, end) == 1)
        require(!kel::expand(*program, format.c_str()).IsNull(), "the groups of a match are damaged");
    // Bytes that begin and end the groups 0 to 2; the terminator of the text is among them.
    for (std::size_t i = 0; i < places; i++) {
        const std::size_t at = bytes[i] % (text.size() + 2);
        auto &side = i % 2 ? program->groupEnd : program->groupStart;
        side[i / 2] = at > text.size() ? nullptr : text.c_str() + at;
    }
    const xstring expanded = kel::expand(*program, format.c_str());
    // Exactly the room that is needed, or what is written before a damaged group.
    const std::size_t most = format.size() * (text.size() + 1) + 1;
    std::vector<char> out(expanded.IsNull() ? most : expanded.GetSize());
    regsub(program.get(), format.c_str(), out.data());
    require(expanded.IsNull() || expanded == out.data(), "differs from regsub:", expanded);
    return 0;
}
