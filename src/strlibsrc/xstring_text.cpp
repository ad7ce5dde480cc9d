// Characters of the current locale, and texts in their wide and neutral form.
//
// Every step looks at a whole text only as far as its terminator, and an invalid byte counts as one
// character, so that every walk ends whatever the text holds.
#include <kelstdmt/xstring.h>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <memory>
#include <vector>

#include <kelstdmt/vumtext.h>

using kel::is_text;

namespace {

constexpr std::size_t longest_character = 4;            // bytes
constexpr std::size_t longest_text = 16 * 1024 * 1024;  // bytes of a converted wide text
constexpr auto not_convertible = static_cast<std::size_t>(-1);

struct character {
    int bytes;  // 0 at the terminator, -1 when invalid
    wchar_t value;
};

// An ASCII byte that opens a character is one in every encoding that a locale may have.
bool is_ascii(char byte) {
    return static_cast<unsigned char>(byte) < 0x80;
}

character look(const char *at) {
    if (!*at) return {0, 0};
    if (is_ascii(*at) || isLocaleSingle()) return {1, static_cast<unsigned char>(*at)};
    std::mbstate_t state{};
    wchar_t value = 0;
    std::size_t used = std::mbrtowc(&value, at, strnlen(at, longest_character), &state);
    if (used == 0 || used > longest_character) return {-1, 0};
    return {static_cast<int>(used), value};
}

// Bytes to the next character.
int step(const char *at) {
    int bytes = look(at).bytes;
    return bytes < 0 ? 1 : bytes;
}

}  // namespace

const char *stringAfterCHars(const char *text, unsigned n) {
    if (!is_text(text)) return text;
    if (isLocaleSingle()) return text + strnlen(text, n);
    using word = std::uint64_t;
    constexpr unsigned in_word = sizeof(word);
    constexpr word high_bits = 0x8080808080808080;
    std::size_t left = n >= in_word ? strnlen(text, n) : 0;  // bytes that are surely there
    while (n > 0 && *text) {
        word bytes = high_bits;
        if (n >= in_word && left >= in_word) std::memcpy(&bytes, text, in_word);
        unsigned characters = bytes & high_bits ? 1 : in_word;
        std::size_t used = characters > 1 ? in_word : static_cast<std::size_t>(step(text));
        text += used;
        left -= std::min(left, used);
        n -= characters;
    }
    return text;
}

// The cursor -----------------------------------------------------------------------------------

void xmbchar::Next() {
    position += step(position);
    ++count;
}

int xmbchar::CopyMbChar(const char *from) {
    int bytes = is_text(from) ? look(from).bytes : 0;
    if (bytes < 0) return bytes;
    if (bytes > 0) std::memmove(position, from, static_cast<std::size_t>(bytes));
    position += bytes;
    *position = 0;
    ++count;
    return bytes;
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
    character mine = look(position), others = look(other.position);
    return mine.bytes >= 0 && others.bytes >= 0 && mine.value == others.value ? 0 : -1;
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
    std::size_t present = 0;
    for (; *text && present <= units + slack; ++present)
        text += step(text);
    return present - units <= slack;
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
    xstring result;
    if (!is_text(neutral)) return result;
    std::vector<unsigned short> wide(std::strlen(neutral) + 1);
    mbxNeutToWide(neutral, wide.data());
    result = wide.data();
    return result;
}

xstring strNativeToNeutral(const char *native) {
    if (!is_text(native)) return xstring();
    std::vector<unsigned short> wide(std::strlen(native) + 1);
    std::size_t units = btkNativeToWide(native, wide.data(), wide.size());
    if (units == not_convertible) return xstring();
    std::vector<char> neutral(4 * units + 1);
    return xstring::FromBytes(neutral.data(), mbxWideToNeut(neutral.data(), wide.data()));
}
