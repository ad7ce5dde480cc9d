// Locale and neutral text, the plain string and the environment.
#include <kelstdmt/vumtext.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwchar>

bool isLocaleSingle() {
    return MB_CUR_MAX == 1;
}

// Units and characters -------------------------------------------------------------------------

namespace {

constexpr std::size_t not_convertible = static_cast<std::size_t>(-1);
constexpr char32_t replacement = 0xFFFD;

constexpr bool is_high(char32_t unit) {
    return unit >= 0xD800 && unit < 0xDC00;
}
constexpr bool is_low(char32_t unit) {
    return unit >= 0xDC00 && unit < 0xE000;
}

// The next character: a pair as one, a lone surrogate as itself.
char32_t take_wide(const unsigned short *&at) {
    char32_t unit = *at++;
    if (!is_high(unit) || !is_low(*at)) return unit;
    return 0x10000 + ((unit - 0xD800) << 10) + (char32_t{*at++} - 0xDC00);
}

// Writes one character as one or two units and answers how many.
std::size_t put_wide(char32_t character, unsigned short *out) {
    if (character < 0x10000) {
        out[0] = static_cast<unsigned short>(character);
        return 1;
    }
    out[0] = static_cast<unsigned short>(0xD800 + ((character - 0x10000) >> 10));
    out[1] = static_cast<unsigned short>(0xDC00 + ((character - 0x10000) & 0x3FF));
    return 2;
}

// The next character of a neutral text. What is cut short, longer than needed or beyond the last
// character is malformed; its first byte alone is passed.
char32_t take_neutral(const unsigned char *&at) {
    char32_t first = *at++;
    if (first < 0x80) return first;
    int more = first >= 0xF0 && first < 0xF8 ? 3 : first >= 0xE0 ? 2 : 1;
    if (first < 0xC2 || first >= 0xF5) return replacement;
    char32_t character = first & (0x3FU >> more);
    for (int i = 0; i < more; ++i) {
        // The terminator is no continuation, so this never looks beyond it.
        if ((at[i] & 0xC0) != 0x80) return replacement;
        character = character << 6 | (at[i] & 0x3FU);
    }
    constexpr char32_t least[] = {0, 0x80, 0x800, 0x10000};
    if (character < least[more] || character > 0x10FFFF) return replacement;
    at += more;
    return character;
}

}  // namespace

std::size_t mbxWideToNeut(char *neutral, const unsigned short *wide) {
    char *out = neutral;
    auto put = [&out](char32_t byte) { *out++ = static_cast<char>(static_cast<unsigned char>(byte)); };
    while (*wide) {
        char32_t character = take_wide(wide);
        if (character < 0x80) {
            put(character);
            continue;
        }
        int more = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
        put((0xFF00U >> (more + 1) & 0xFFU) | character >> (6 * more));
        while (more-- > 0)
            put(0x80U | (character >> (6 * more) & 0x3FU));
    }
    *out = 0;
    return static_cast<std::size_t>(out - neutral);
}

std::size_t mbxNeutToWide(const char *neutral, unsigned short *wide) {
    auto at = reinterpret_cast<const unsigned char *>(neutral);
    unsigned short *out = wide;
    while (*at)
        out += put_wide(take_neutral(at), out);
    *out = 0;
    return static_cast<std::size_t>(out - wide);
}

// The locale -----------------------------------------------------------------------------------

std::size_t btkWideToNative(const unsigned short *wide, char *out, std::size_t max) {
    std::mbstate_t state{};
    char bytes[MB_LEN_MAX];
    std::size_t done = 0;
    for (bool last = false; !last;) {
        last = *wide == 0;
        // The terminator too: some encodings return to their first state in front of it.
        std::size_t count =
            std::wcrtomb(bytes, static_cast<wchar_t>(last ? char32_t{0} : take_wide(wide)), &state);
        if (count == not_convertible) return not_convertible;
        if (out) {
            if (count > max - done) return done;
            std::memcpy(out + done, bytes, count);
        }
        done += count;
    }
    return done - 1;
}

std::size_t btkNativeToWide(const char *native, unsigned short *out, std::size_t max) {
    std::mbstate_t state{};
    std::size_t left = std::strlen(native), done = 0;
    while (left > 0) {
        wchar_t character = 0;
        std::size_t used = std::mbrtowc(&character, native, left, &state);
        if (used == 0 || used > left) return not_convertible;  // also one that is cut short
        native += used;
        left -= used;
        unsigned short units[2];
        std::size_t count = put_wide(static_cast<char32_t>(character), units);
        if (out) {
            if (count > max - done) return done;
            std::memcpy(out + done, units, count * sizeof *units);
        }
        done += count;
    }
    if (out && done < max) out[done] = 0;
    return done;
}

// Texts ----------------------------------------------------------------------------------------

void dsString::StrNew(const char *text) {
    if (kel::is_text(text)) {
        m_text = text;
    } else {
        Cleanup();
    }
}

void dsString::Cleanup() noexcept {
    std::string().swap(m_text);
}

bool Getenv(const char *name, dsString &value) {
    const char *found = kel::is_text(name) ? std::getenv(name) : nullptr;
    value.StrNew(found);
    return found != nullptr;
}
