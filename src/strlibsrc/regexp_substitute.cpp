// The expansion of a template from the groups of the last match: one walk for both kinds of output.
//
// `&` and `\` are ASCII, but in some encodings they also end a longer character, so the walk goes by
// characters.
#include <kelstdmt/regexp.h>

#include <cstring>
#include <string>
#include <string_view>

#include <kelstdmt/xstring.h>

#include "runtime/characters.h"

namespace {

using kel::detail::encoding;

constexpr int no_group = -1;

// A step of a template: a group, or text that goes to the output as it is.
struct piece {
    int group;  // no_group: text
    std::string_view text;
    const char *next;
};

piece next_piece(const char *at, const char *end, encoding form) {
    if (*at == '&') return {0, {}, at + 1};
    const char *after = at + 1;
    if (*at == '\\') {
        const char escaped = *after;  // the terminator at most
        if (escaped >= '0' && escaped <= '9') return {escaped - '0', {}, after + 1};
        if (escaped == '\\' || escaped == '&') return {no_group, {after, 1}, after + 1};
    } else {
        after = at;
    }
    while (after < end && *after != '&' && *after != '\\')
        after += kel::detail::character_bytes(form, after, end);
    return {no_group, {at, static_cast<std::size_t>(after - at)}, after};
}

// False when the pointers of the group, or the text there, are none that a search leaves behind.
bool group_text(const regexp &program, int group, std::string_view &text) {
    const char *begin = program.groupStart[group];
    const char *end = program.groupEnd[group];
    if (!begin && !end) return true;
    if (!begin || !end || end < begin) return false;
    text = {begin, static_cast<std::size_t>(end - begin)};
    return text.empty() || text[0] != '\0';
}

// False after a reported error.
bool acceptable(const regexp *program, const char *format) {
    const bool given = program && kel::is_text(format);
    if (given && static_cast<unsigned char>(program->program[0]) == regexpMagic) return true;
    stHandleKnownError(given ? stCorruptedRegExp : stNullArgRegExp, "regsub");
    return false;
}

// Gives append the pieces of the expansion one after the other. False after a reported error.
template <class Append>
bool expand_into(const regexp &program, const char *format, Append append) {
    const encoding form = kel::detail::locale_encoding();
    const char *end = format + std::strlen(format);
    for (const char *at = format; at < end;) {
        piece step = next_piece(at, end, form);
        if (step.group != no_group && !group_text(program, step.group, step.text)) {
            stHandleKnownError(stDamagedMatchStr, "regsub");
            return false;
        }
        append(step.text);
        at = step.next;
    }
    return true;
}

}  // namespace

void regsub(const regexp *program, const char *format, char *out) {
    if (!acceptable(kel::is_text(out) ? program : nullptr, format)) return;
    expand_into(*program, format, [&out](std::string_view text) {
        if (!text.empty()) std::memcpy(out, text.data(), text.size());
        out += text.size();
    });
    *out = '\0';
}

xstring kel::expand(const regexp &program, const char *format) {
    if (!acceptable(&program, format)) return {};
    std::string result;
    const bool whole =
        expand_into(program, format, [&result](std::string_view text) { result.append(text); });
    return whole ? xstring::FromBytes(result.data(), result.size()) : xstring();
}
