// regexec, and the order of its checks: the arguments, the magic byte, the text that must occur, the program
// itself. Then the search proper.
#include "strlibsrc/regexp_search.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <new>

#include <kelstdmt/xtypes.h>

#include "strlibsrc/find_bytes.h"
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
    if (std::find(std::begin(program.firstChar), std::end(program.firstChar), '\0') ==
        std::end(program.firstChar))
        return stCorruptedRegExp;
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
    const std::string_view wanted(program.mustText, static_cast<std::size_t>(program.mustLength));
    return find_bytes(from, end, wanted) != nullptr;
}

void clear_groups(regexp &program) {
    std::fill(std::begin(program.groupStart), std::end(program.groupStart), nullptr);
    std::fill(std::begin(program.groupEnd), std::end(program.groupEnd), nullptr);
}

bool search(regexp &program, subject text, const char *from, encoding form) {
    clear_groups(program);
    if (const stErrorCode error = check_record(program); error != stSuccess) return fail(error, searcher);
    if (!must_text_occurs(program, from, text.end)) return false;
    try {
        const kept_engine kept = engine_for(program, form);
        const stErrorCode error = kept.engine.error();
        if (error != stSuccess) return fail(error, walker);
        match_slots slots{};
        if (!kept.engine.search(text, from, kept.room, slots)) return false;
        for (std::size_t group = 0; 2 * group < kept.engine.slots(); ++group) {
            program.groupStart[group] = slots[2 * group];
            program.groupEnd[group] = slots[2 * group + 1];
        }
        return true;
    } catch (const std::bad_alloc &) {
        forget_engines();
    }
    return fail(stOutofSpace, searcher);
}

}  // namespace

bool regexp_search(regexp &program, const char *begin, const char *end, const char *from) {
    return search(program, {begin, end}, from, locale_encoding());
}

}  // namespace kel::detail

bool kel::search(regexp &program, std::string_view text, std::size_t from) {
    const char *begin = text.data() ? text.data() : "";
    return from <= text.size() && detail::regexp_search(program, begin, begin + text.size(), begin + from);
}

int regexec(regexp *program, const char *text, int &start, int &end) {
    using namespace kel::detail;
    if (program == nullptr || !kel::is_text(text)) {
        if (program != nullptr) clear_groups(*program);
        return fail(stNullArgRegExp, searcher);
    }
    const encoding form = locale_encoding();
    if (!kel::detail::search(*program, {text, text + std::strlen(text)}, text, form)) return 0;
    const char *match = program->groupStart[0];
    const std::size_t before = count_characters(form, text, match);
    start = position_of(before);
    end = position_of(before + count_characters(form, match, program->groupEnd[0]));
    return 1;
}
