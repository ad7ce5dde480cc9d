// Small helpers for the lines of settings: single bytes, whatever the locale.
#include <kelstdmt/strlib.h>

#include <algorithm>
#include <cstring>

#include "strlibsrc/xstrlib_text.h"

using namespace kel::detail;
using kel::is_text;

namespace {

bool is_blank(char byte) {
    return byte == ' ' || byte == '\t';
}

std::size_t blanks_in(std::string_view text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), is_blank));
}

// The first separator; null without one.
const char *separator_in(std::string_view text, char separator) {
    return static_cast<const char *>(std::memchr(text.data(), separator, text.size()));
}

xstring piece_or_null(std::string_view piece) {
    return piece.empty() ? xstring() : make_string(piece);
}

}  // namespace

bool StrPress(char *text, char c) {
    if (!is_text(text)) return false;
    char *end = text + std::strlen(text);
    char *kept = std::remove(text, end, c);
    if (kept == end) return false;
    *kept = 0;
    return true;
}

char *StrPress(const char *text) {
    const std::string_view all = any_view(text);
    const std::size_t blanks = blanks_in(all);
    if (blanks == 0) return nullptr;
    char *pressed = static_cast<char *>(operator new(all.size() - blanks + 1, pDefMemMgr));
    *std::remove_copy_if(all.begin(), all.end(), pressed, is_blank) = 0;
    return pressed;
}

void StrPress(xstring &text) {
    const std::string_view all = text;
    const std::size_t blanks = blanks_in(all);
    if (blanks == 0) return;
    string_writer writer(all.size() - blanks);
    for (const char *at = all.data(), *end = at + all.size(); at < end;) {
        const char *stop = std::find_if(at, end, is_blank);
        writer << between(at, stop);
        at = std::find_if_not(stop, end, is_blank);
    }
    text = std::move(writer).take();
}

bool StrSplit(const char *text, char separator, xstring &before, xstring &after) {
    const std::string_view all = any_view(text);
    const char *found = separator_in(all, separator);
    if (!found) return false;
    // The text may be that of an output.
    xstring first = piece_or_null(between(all.data(), found));
    xstring second = piece_or_null(between(found + 1, all.data() + all.size()));
    before = std::move(first);
    after = std::move(second);
    return true;
}

xstring StrSplitBefore(const char *text, char separator) {
    const std::string_view all = any_view(text);
    const char *found = separator_in(all, separator);
    return found ? piece_or_null(between(all.data(), found)) : xstring();
}

xstring StrSplitAfter(const char *text, char separator) {
    const std::string_view all = any_view(text);
    const char *found = separator_in(all, separator);
    return found ? piece_or_null(between(found + 1, all.data() + all.size())) : xstring();
}
