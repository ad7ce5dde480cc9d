// Templates: regsub and kel::expand against a model that goes byte by byte, over groups that a hostile caller
// may have set, and the compiler over whatever the input holds as a pattern.
//
// The input is six bytes that place the groups, a pattern up to a NUL, a text up to a NUL, the template.
#include <kelstdmt/regexp.h>

#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <kelstdmt/xstring.h>

namespace {

struct release {
    void operator()(regexp *program) const { std::free(program); }
};
using program_holder = std::unique_ptr<regexp, release>;

void require(bool holds) {
    if (!holds) std::abort();
}

struct expansion {
    std::string text;
    bool whole = true;
};

// ASCII bytes are characters of their own in the locales that the fuzzer uses, so bytes will do.
expansion model(const regexp &program, std::string_view format) {
    expansion result;
    for (std::size_t i = 0; i < format.size(); i++) {
        int group = format[i] == '&' ? 0 : -1;
        if (format[i] == '\\' && i + 1 < format.size()) {
            const char next = format[i + 1];
            if (next == '\\' || next == '&') i++;
            if (next >= '0' && next <= '9') i++, group = next - '0';
        }
        if (group < 0) {
            result.text += format[i];
            continue;
        }
        const char *begin = program.groupStart[group], *end = program.groupEnd[group];
        if (begin == end) continue;
        if (!begin || end < begin || *begin == '\0') {
            result.whole = false;
            return result;
        }
        result.text.append(begin, end);
    }
    return result;
}

void compare(const regexp &program, const std::string &format) {
    const expansion expected = model(program, format);
    std::vector<char> out(expected.text.size() + 1, 'x');  // exactly the room that is needed
    setErrSeen(nullptr);
    regsub(&program, format.c_str(), out.data());
    require(std::memcmp(out.data(), expected.text.c_str(), out.size()) == 0);
    require((getErrSeen() == nullptr) == expected.whole);
    const xstring safe = kel::expand(program, format.c_str());
    require(safe.IsNull() != expected.whole);
    require(!expected.whole || std::string_view(safe) == expected.text);
}

program_holder compile(const std::string &pattern) {
    setErrSeen(nullptr);
    program_holder program(regcomp(pattern.c_str()));
    const kel::pattern_error error = kel::check_pattern(pattern.c_str());
    require((error.code == stSuccess) == (program != nullptr));
    require(program || std::strcmp(error.message, getErrSeen()) == 0);
    require(error.position >= 0 && static_cast<std::size_t>(error.position) <= pattern.size());
    return program;
}

std::string take_text(std::string_view &rest) {
    const std::size_t end = std::min(rest.find('\0'), rest.size());
    std::string text(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    constexpr std::size_t places = 6;
    if (size < places) return 0;
    setErrReport(true);
    std::setlocale(LC_ALL, bytes[0] & 1 ? "C.UTF-8" : "C");
    std::string_view rest(reinterpret_cast<const char *>(bytes) + places, size - places);
    const std::string pattern = take_text(rest), text = take_text(rest), format = take_text(rest);
    program_holder program = compile(pattern);
    if (!program) program.reset(regcomp(""));
    int start = -1, end = -1;
    if (regexec(program.get(), text.c_str(), start, end) == 1) {
        require(start >= 0 && start <= end && static_cast<std::size_t>(end) <= text.size());
        compare(*program, format);
    }
    // Bytes that begin and end the groups 0 to 2; the terminator of the text is among them.
    const auto place = [&](std::size_t i) -> const char * {
        const std::size_t at = bytes[i] % (text.size() + 2);
        return at > text.size() ? nullptr : text.c_str() + at;
    };
    for (std::size_t group = 0; group < 3; group++) {
        program->groupStart[group] = place(2 * group);
        program->groupEnd[group] = place(2 * group + 1);
    }
    compare(*program, format);
    return 0;
}
