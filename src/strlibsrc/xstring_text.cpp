// Characters of the current locale, and texts in their wide and neutral form.
//
// Every step looks at a whole text only as far as its terminator, and an invalid byte counts as one
// character, so that every walk ends whatever the text holds.
#include <kelstdmt/xstring.h>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <limits>
#include <vector>

#include <kelstdmt/vumtext.h>

#include "runtime/characters.h"

using kel::is_text;
using namespace kel::detail;

namespace {

constexpr std::size_t longest_text = 16 * 1024 * 1024;  // bytes of a converted wide text
constexpr auto not_convertible = static_cast<std::size_t>(-1);

// What a character, or a text of n characters, may extend to. No byte behind the terminator is looked at.
const char *reach(const char *text, std::size_t characters) {
    constexpr std::size_t most = std::numeric_limits<std::size_t>::max() / longest_character;
    return text + strnlen(text, std::min(characters, most) * longest_character);
}

// Bytes to the next character: 0 at the terminator.
std::size_t step(const char *at) {
    if (is_ascii(*at)) return *at ? 1 : 0;
    return character_bytes(locale_encoding(), at, reach(at, 1));
}

}  // namespace

const char *stringAfterCHars(const char *text, unsigned n) {
    if (!is_text(text)) return text;
    const encoding form = locale_encoding();
    if (form == encoding::single) return text + strnlen(text, n);
    return skip_characters(form, text, reach(text, n), n);
}

// The cursor -----------------------------------------------------------------------------------

void xmbchar::Next() {
    position += step(position);
    ++count;
}

int xmbchar::CopyMbChar(const char *from) {
    std::size_t bytes = 0;
    if (is_text(from) && *from) {
        const encoding form = locale_encoding();
        bool valid = true;
        bytes = 1;
        if (form != encoding::single && !is_ascii(*from))
            bytes = multibyte_bytes(form, from, reach(from, 1), &valid);
        if (!valid) return -1;
        std::memmove(position, from, bytes);
    }
    position += bytes;
    *position = 0;
    ++count;
    return static_cast<int>(bytes);
}

int xmbchar::CopyMbChars(const char *from, int n) {
    int done = 0;
    for (; n > 0 && is_text(from) && from[done]; --n) {
        int bytes = CopyMbChar(from + done);
        if (bytes < 0) break;
        done += bytes;
    }
    if (done == 0) *position = 0;
    return done;
}

int xmbchar::CopyMbString(const char *from) {
    return CopyMbChars(from, static_cast<int>(Strlen(from)));
}

int xmbchar::Compare(xmbchar other) const {
    // The wide characters decide: an encoding may have several forms of one.
    auto convert = [](const char *at, wchar_t &value) {
        std::mbstate_t state{};
        value = static_cast<unsigned char>(*at);
        if (is_ascii(*at) || isLocaleSingle()) return true;
        return std::mbrtowc(&value, at, strnlen(at, longest_character), &state) <= longest_character;
    };
    wchar_t mine = 0, others = 0;
    return convert(position, mine) && convert(other.position, others) && mine == others ? 0 : -1;
}

// Wide and neutral texts -----------------------------------------------------------------------

namespace {

bool is_wide(const unsigned short *wide) {
    return reinterpret_cast<std::uintptr_t>(wide) > 2;
}

// The rule of assignment, in characters.
bool fits(const char *text, std::size_t units) {
    constexpr std::size_t slack = 10;
    if (!text || kel::detail::count_load(kel::detail::holders(text)) > 1) return false;
    // One more than may be there.
    const std::size_t most = units + slack + 1;
    return count_characters(locale_encoding(), text, reach(text, most)) - units <= slack;
}

}  // namespace

char *StrneW(const unsigned short *wide) {
    char *none = const_cast<char *>(xstrNullStr);
    if (!is_wide(wide)) return none;
    std::size_t bytes = btkWideToNative(wide, nullptr, 0);
    if (bytes == not_convertible) return none;
    bytes = std::min(bytes, longest_text);
    char *text = static_cast<char *>(operator new(bytes + 1, pDefMemMgr));
    text[btkWideToNative(wide, text, bytes)] = 0;
    return text;
}

void WStrtoStr(const unsigned short *wide, char *out) {
    if (!is_wide(wide)) return;
    std::size_t bytes = btkWideToNative(wide, out, longest_text);
    out[bytes == not_convertible ? 0 : bytes] = 0;
}

xstring &xstring::operator=(const unsigned short *wide) {
    if (!is_wide(wide)) return AssignMark(wide ? xstrNullStr : nullptr);
    std::size_t units = Strlen(wide);
    // The characters may need more bytes than those before, so the room counts too.
    if (fits(m_text, units)) {
        std::size_t bytes = btkWideToNative(wide, nullptr, 0);
        if (bytes <= kel::detail::head(m_text).room && bytes <= longest_text) {
            btkWideToNative(wide, m_text, bytes);
            return SetSize(bytes);
        }
    }
    xstring fresh = Adopt(
        kel::detail::buffer_create(std::min(units, longest_text / longest_character) * longest_character));
    std::size_t bytes = btkWideToNative(wide, fresh.m_text, kel::detail::head(fresh.m_text).room);
    if (bytes == not_convertible) return AssignMark(xstrNullStr);
    fresh.SetSize(bytes);
    return *this = std::move(fresh);
}

xstring strNeutralToNative(const char *neutral) {
    if (!is_text(neutral)) return xstring();
    std::vector<unsigned short> wide(std::strlen(neutral) + 1);
    mbxNeutToWide(neutral, wide.data());
    const std::size_t bytes = btkWideToNative(wide.data(), nullptr, 0);
    if (bytes == not_convertible) return xstring();
    char *native = buffer_create(bytes);
    btkWideToNative(wide.data(), native, bytes);
    head(native).size = buffer_head::measured(bytes);
    return xstring::Adopt(native);
}

xstring strNativeToNeutral(const char *native) {
    if (!is_text(native)) return xstring();
    std::vector<unsigned short> wide(std::strlen(native) + 1);
    std::size_t units = btkNativeToWide(native, wide.data(), wide.size());
    if (units == not_convertible) return xstring();
    std::vector<char> neutral(4 * units + 1);
    return xstring::FromBytes(neutral.data(), mbxWideToNeut(neutral.data(), wide.data()));
}
