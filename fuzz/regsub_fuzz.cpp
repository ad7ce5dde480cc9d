// Templates: regsub and kel::expand against a model that goes byte by byte, over groups that a hostile caller
// may have set, and the compiler over whatever the input holds as a pattern.
//
// The input is six bytes that place the groups, a pattern up to a NUL, a text up to a NUL, the template.
#include <clocale>
#include <vector>

#include <kelstdmt/xstring.h>

#include "fuzzing.h"
#include "regexp_model.h"

namespace {

using fuzz::require, regexp_model::program_holder;

// What the template gives, up to a group that cannot be, which ends it. ASCII bytes are characters of their
// own in the locales that the fuzzer uses, so bytes will do.
std::string model(const regexp &program, std::string_view format, bool &is_whole) {
    std::string result;
    for (std::size_t i = 0; i < format.size(); i++) {
        int group = format[i] == '&' ? 0 : -1;
        if (format[i] == '\\' && i + 1 < format.size()) {
            const char next = format[i + 1];
            if (next == '\\' || next == '&') i++;
            if (next >= '0' && next <= '9') i++, group = next - '0';
        }
        if (group < 0) {
            result += format[i];
            continue;
        }
        const char *begin = program.groupStart[group], *end = program.groupEnd[group];
        if (begin == end) continue;
        is_whole = begin && end > begin && *begin != '\0';
        if (!is_whole) break;
        result.append(begin, end);
    }
    return result;
}

void compare(const regexp &program, const std::string &format) {
    bool is_whole = true;
    const std::string expected = model(program, format, is_whole);
    std::vector<char> out(expected.size() + 1, 'x');  // exactly the room that is needed
    setErrSeen(nullptr);
    regsub(&program, format.c_str(), out.data());
    require(std::memcmp(out.data(), expected.c_str(), out.size()) == 0, "expected:", expected, out.data());
    require((getErrSeen() == nullptr) == is_whole, "whole:", is_whole);
    const xstring safe = kel::expand(program, format.c_str());
    require(safe.IsNull() != is_whole && (!is_whole || std::string_view(safe) == expected),
            "expected of expand:", expected);
}

program_holder compile(const std::string &pattern) {
    setErrSeen(nullptr);
    program_holder program(regcomp(pattern.c_str()));
    const kel::pattern_error error = kel::check_pattern(pattern.c_str());
    require((error.code == stSuccess) == (program != nullptr), "another verdict on:", pattern);
    require(program || std::strcmp(error.message, getErrSeen()) == 0, "another message:", error.message);
    require(error.position >= 0 && static_cast<std::size_t>(error.position) <= pattern.size(),
            "a position outside of:", pattern);
    return program;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    constexpr std::size_t places = 6;
    if (size < places) return 0;
    setErrReport(true);
    std::setlocale(LC_ALL, bytes[0] & 1 ? "C.UTF-8" : "C");
    fuzz::Input input(bytes + places, size - places);
    program_holder program = compile(input.text());
    if (!program) program.reset(regcomp(""));
    const std::string text = input.text(), format = input.text();
    int start = -1, end = -1;
    if (regexec(program.get(), text.c_str(), start, end) == 1) {
        require(start >= 0 && start <= end && static_cast<std::size_t>(end) <= text.size(), start, end);
        compare(*program, format);
    }
    // Bytes that begin and end the groups 0 to 2; the terminator of the text is among them.
    for (std::size_t i = 0; i < places; i++) {
        const std::size_t at = bytes[i] % (text.size() + 2);
        auto &side = i % 2 ? program->groupEnd : program->groupStart;
        side[i / 2] = at > text.size() ? nullptr : text.c_str() + at;
    }
    compare(*program, format);
    return 0;
}
