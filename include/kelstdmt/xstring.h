// Strings: a small handle on a shared, counted, zero-terminated buffer of bytes in the locale's encoding.
//
// A string without a text is null, which is distinct from the empty text. The text pointer of a null
// string is the marker xstrNullStr, and wherever a text is asked for that marker means the null string.
//
// Copying a string shares its buffer; assigning one never does. A buffer is written in place only by its
// sole holder, so a shared text never changes. One string belongs to one thread at a time, but strings
// that share a buffer may live in different threads.
#pragma once

#include <compare>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string_view>
#include <utility>

#include <kelstdmt/export.h>
#include <kelstdmt/vumrt.h>
#include <kelstdmt/xtypes.h>

class xstring;

// A read-only view of a text, whoever holds it.
class KELSTDMT_API xstrbase {
public:
    virtual ~xstrbase() = default;

    // The text; xstrNullStr for a null string. Valid until the string is changed.
    const char *Str() const { return GiveString(); }
    operator const char *() const { return GiveString(); }

    // Bytes of the text with its terminator; a null string counts as empty here and in the numbers.
    unsigned GetSize() const;
    int ToInt() const;
    long ToLong() const;
    double ToDouble() const;

    // Every byte through tolower or toupper of the locale. A null string gives a null string.
    xstring ToLower() const;
    xstring ToUpper() const;

    // The characters from index `from` up to, not including, `to`; strUnsetPos stands for the beginning
    // and the end. Clipped to the text; `to` below `from` gives the empty text, as does a null string.
    xstring operator()(unsigned from, unsigned to) const;

private:
    virtual const char *GiveString() const;
};

// A text that can be set, formatted and read from streams.
class KELSTDMT_API xncstr : public xstrbase {
public:
    ~xncstr() override = default;

    // From wide text (16-bit units) in the locale's encoding; a null pointer gives OnSet(0).
    void Set(const unsigned short *wide);
    // The characters of the stream up to its end or a NUL.
    void Set(std::istream &from);
    // Appends the characters up to the delimiter, which is consumed, or the end of the stream.
    void Get(std::istream &from, char delimiter = '\n');

    // As vsprintf. A text beyond FormatLimit characters is reported and cut there.
    void Sprintf(const char *format, ...) __attribute__((format(printf, 2, 3)));
    void Sprintf(const char *format, std::va_list arguments) __attribute__((format(printf, 2, 0)));
    static constexpr std::size_t FormatLimit = 65536;

private:
    virtual void OnSet(const char *text);
};

// The text pointers of counted buffers, for C callers: a copy (count 1), one holder more, one less. The
// pointers 0, 1 and 2 are no buffers: they are returned unchanged and ignored. Any thread.
extern "C" {
KELSTDMT_API char *xstrcreate_c(const char *text);
KELSTDMT_API char *xstrlock_c(const char *text);
KELSTDMT_API void xstrunlock_c(const char *text);
}

namespace kel::detail {

// A counted buffer is known by its text; the holder count lies in the four bytes before it.
inline std::uint32_t &holders(const char *text) noexcept {
    return reinterpret_cast<std::uint32_t *>(const_cast<char *>(text))[-1];
}
// A new buffer for a text of `bytes` bytes, count 1, terminated, its text not set.
KELSTDMT_API char *buffer_create(std::size_t bytes);
KELSTDMT_API void buffer_free(char *text) noexcept;

inline char *buffer_share(char *text) noexcept {
    if (text) count_add(holders(text), std::uint32_t{1});
    return text;
}
inline void buffer_drop(char *text) noexcept {
    if (text && count_add(holders(text), std::uint32_t(-1)) <= 1) buffer_free(text);
}

}  // namespace kel::detail

class KELSTDMT_API xstring : public xncstr {
public:
    xstring() noexcept = default;  // null
    // A copy. A null pointer is an internal error and gives the empty text, here and in assignments.
    xstring(const char *text) : m_text(Copy(text)) {}
    xstring(const xstring &other) noexcept : m_text(kel::detail::buffer_share(other.m_text)) {}
    xstring(xstring &&other) noexcept : m_text(std::exchange(other.m_text, nullptr)) {}
    // Both texts, one behind the other; a null string or pointer counts as empty, and the result is real.
    xstring(const char *first, const char *second);
    // The first n characters (not bytes), at most all; a null string or pointer gives the empty text.
    xstring(const char *text, unsigned n);
    ~xstring() override { kel::detail::buffer_drop(m_text); }

    // Assignment copies. The buffer is kept when this string is its sole holder and the new text is of
    // the same length or at most 10 bytes shorter; assigning an equal string changes nothing.
    xstring &operator=(const char *text);
    xstring &operator=(const xstring &other);
    xstring &operator=(xstring &&other) noexcept {
        char *old = std::exchange(m_text, std::exchange(other.m_text, nullptr));
        kel::detail::buffer_drop(old);
        return *this;
    }
    xstring &operator=(const unsigned short *wide);
    // A null pointer and the marker add nothing.
    xstring &operator+=(const char *text);

    // Formats into one string that the whole process shares: not for concurrent callers.
    static xstring &MkSprintf(const char *format, ...) __attribute__((format(printf, 1, 2)));

    const char *Str() const noexcept { return m_text ? m_text : xstrNullStr; }
    operator const char *() const noexcept { return Str(); }
    // A null string gives an empty view.
    operator std::string_view() const noexcept {
        return m_text ? std::string_view(m_text) : std::string_view();
    }
    bool IsNull() const noexcept { return m_text == nullptr; }

    // Takes over one hold on a counted buffer (of xstrcreate_c); the markers give the null string.
    static xstring Adopt(char *text) noexcept {
        xstring result;
        if (kel::is_text(text)) result.m_text = text;
        return result;
    }
    // A string of exactly these bytes.
    static xstring FromBytes(const char *bytes, std::size_t count);

private:
    const char *GiveString() const override;
    void OnSet(const char *text) override;

    static char *Copy(const char *text);
    bool Fits(std::size_t bytes) const noexcept;
    void Replace(char *text) noexcept;

    char *m_text = nullptr;  // of a counted buffer
};

static_assert(sizeof(xstring) == 2 * sizeof(void *));

// -1, 0 or 1. The null string is less than all else, a null pointer less than every text; texts compare
// byte by byte as unsigned bytes.
KELSTDMT_API int operator-(const xstrbase &a, const char *b);
KELSTDMT_API int operator-(const xstrbase &a, const xstrbase &b);
KELSTDMT_API int operator-(const char *a, const xstrbase &b);

inline bool operator==(const xstrbase &a, const xstrbase &b) {
    return a - b == 0;
}
inline bool operator==(const xstrbase &a, const char *b) {
    return a - b == 0;
}
inline std::strong_ordering operator<=>(const xstrbase &a, const xstrbase &b) {
    return (a - b) <=> 0;
}
inline std::strong_ordering operator<=>(const xstrbase &a, const char *b) {
    return (a - b) <=> 0;
}

// A null string or pointer counts as empty.
KELSTDMT_API xstring operator+(const char *a, const xstrbase &b);
KELSTDMT_API xstring operator+(const xstrbase &a, const char *b);
KELSTDMT_API xstring operator+(const xstrbase &a, const xstrbase &b);

// The text; nothing for a null string.
KELSTDMT_API std::ostream &operator<<(std::ostream &out, const xstrbase &text);

// A cursor over multibyte characters, for reading and for writing at the position.
class KELSTDMT_API xmbchar {
public:
    char *position;
    int count;  // characters stepped so far

    explicit xmbchar(const char *text) noexcept : position(const_cast<char *>(text)), count(0) {}

    // To the next character. Stays at the terminator. An invalid byte counts as one character, so that a
    // walk always ends.
    void Next();
    // Copies the character at `from` to the position, terminates there, and answers its bytes; -1, and
    // nothing copied, for an invalid one. 0 at the terminator.
    int CopyMbChar(const char *from);
    // At most n characters, or all, up to an invalid one; answers the bytes consumed.
    int CopyMbChars(const char *from, int n);
    int CopyMbString(const char *from);
    // 0 when the characters at both positions are equal, else -1.
    int Compare(xmbchar other) const;
};

// The character with index n; the terminator when the text is shorter.
KELSTDMT_API const char *stringAfterCHars(const char *text, unsigned n);
// A new copy in the locale's encoding, to be freed with operator delete; xstrNullStr for a null pointer
// or the marker, and for a text that the locale cannot show. At most 16,777,216 bytes.
KELSTDMT_API char *StrneW(const unsigned short *wide);
// The same into the caller's buffer (four bytes a unit and the terminator suffice); nothing for a null
// pointer or the marker.
KELSTDMT_API void WStrtoStr(const unsigned short *wide, char *out);
// To and from the neutral encoding. The null string gives the null string, and so does a text that
// cannot be converted.
KELSTDMT_API xstring strNeutralToNative(const char *neutral);
KELSTDMT_API xstring strNativeToNeutral(const char *native);

namespace kel {
inline std::string_view view(const xstrbase &text) {
    const char *chars = text.Str();
    return is_text(chars) ? std::string_view(chars) : std::string_view();
}
}  // namespace kel

template <>
struct std::hash<xstring> {
    std::size_t operator()(const xstring &text) const noexcept {
        return text.IsNull() ? 1 : std::hash<std::string_view>()(text);
    }
};
