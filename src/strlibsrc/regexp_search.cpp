// regexec, and the order of its checks: the arguments, the magic byte, the text that must occur, the program
// itself. Then the search proper.
#include "strlibsrc/regexp_search.h"

#include <cstddef>
#include <cstring>
#include <new>

#include <kelstdmt/xtypes.h>

#include "strlibsrc/regexp_engine.h"

namespace kel::detail {

namespace {

constexpr char searcher[] = "regexec";
constexpr char walker[] = "regmatch";

bool fail(stErrorCode code, const char *function) {
    stHandleKnownError(code, function);
    return false;
}

// The record around the nodes; its pointers and texts are whole when this says success.
stErrorCode check_record(const regexp &program) {
    constexpr unsigned program_limit = 65535;
    if (program.programSize == 0 || static_cast<unsigned char>(program.program[0]) != regexpMagic)
        return stCorruptedRegExp;
    if (program.programSize >= program_limit) return stCorruptedRegExp;
    if (std::memchr(program.firstChar, 0, sizeof program.firstChar) == nullptr) return stCorruptedRegExp;
    if (program.mustText == nullptr) return stSuccess;
    // Compared as numbers: a damaged pointer belongs to no object.
    const auto begin = reinterpret_cast<std::uintptr_t>(program.program);
    const auto must = reinterpret_cast<std::uintptr_t>(program.mustText);
    const bool whole = must >= begin && must - begin < program.programSize && program.mustLength >= 0 &&
                       static_cast<unsigned>(program.mustLength) <= program.programSize - (must - begin);
    return whole ? stSuccess : stCorruptedPointers;
}

bool must_text_occurs(const regexp &program, const char *from, const char *end) {
    if (program.mustText == nullptr) return true;
    return memmem(from, static_cast<std::size_t>(end - from), program.mustText,
                  static_cast<std::size_t>(program.mustLength)) != nullptr;
}

}  // namespace

bool regexp_search(regexp &program, const char *begin, const char *end, const char *from) {
    for (int group = 0; group < 10; ++group)
        program.groupStart[group] = program.groupEnd[group] = nullptr;
    if (const stErrorCode error = check_record(program); error != stSuccess) return fail(error, searcher);
    const subject text{begin, end};
    if (!must_text_occurs(program, from, end)) return false;
    stErrorCode error = stSuccess;
    match_slots slots{};
    bool found = false;
    try {
        const kept_engine kept = engine_for(program, locale_encoding());
        error = kept.engine.error();
        if (error == stSuccess) found = kept.engine.search(text, from, kept.room, slots);
    } catch (const std::bad_alloc &) {
        forget_engines();
        return fail(stOutofSpace, searcher);
    }
    if (error != stSuccess) return fail(error, walker);
    if (!found) return false;
    for (int group = 0; group < 10; ++group) {
        program.groupStart[group] = slots[2 * group];
        program.groupEnd[group] = slots[2 * group + 1];
    }
    return true;
}

}  // namespace kel::detail

bool kel::search(regexp &program, std::string_view text, std::size_t from) {
    const char *begin = text.data() ? text.data() : "";
    return from <= text.size() && detail::regexp_search(program, begin, begin + text.size(), begin + from);
}

int regexec(regexp *program, const char *text, int &start, int &end) {
    using namespace kel::detail;
    if (program == nullptr || !kel::is_text(text)) {
        if (program != nullptr)
            for (int group = 0; group < 10; ++group)
                program->groupStart[group] = program->groupEnd[group] = nullptr;
        return fail(stNullArgRegExp, searcher);
    }
    if (!regexp_search(*program, text, text + std::strlen(text))) return 0;
    const encoding form = locale_encoding();
    const std::size_t before = count_characters(form, text, program->groupStart[0]);
    start = static_cast<int>(before);
    end = static_cast<int>(before + count_characters(form, program->groupStart[0], program->groupEnd[0]));
    return 1;
}
