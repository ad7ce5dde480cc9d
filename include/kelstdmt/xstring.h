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
#include <concepts>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iosfwd>
#include <string_view>
#include <utility>

#include <kelstdmt/export.h>
#include <kelstdmt/vumrt.h>
#include <kelstdmt/xtypes.h>

class xstring;

// Of the string library (strlib.h), to which the members below hand their text.
enum strMatchMode : int;
enum strSplitMode : int;
enum strScanDir : int;

// A read-only view of a text, whoever holds it.
class KELSTDMT_API xstrbase {
public:
    virtual ~xstrbase() = default;

    // The text; xstrNullStr for a null string. Valid until the string is changed.
    const char *Str() const { return GiveString(); }
    operator const char *() const { return GiveString(); }

    // Bytes of the text with its terminator; a null string counts as empty here and in the numbers.
    unsigned GetSize() const;
    // As atoi, atol and atof have them.
    int ToInt() const;
    long ToLong() const;
    double ToDouble() const;

    // Every byte through tolower or toupper of the locale. A null string gives a null string.
    xstring ToLower() const;
    xstring ToUpper() const;

    // The characters from index `from` up to, not including, `to`; strUnsetPos stands for the beginning
    // and the end. Clipped to the text; `to` below `from` gives the empty text, as does a null string.
    xstring operator()(unsigned from, unsigned to) const;

    // The functions of strlib.h with this text as the first argument.
    xstring Word(int n, const char *separators) const;
    xstring Substring(int from, int to) const;
    xstring Split(const char *pattern, strSplitMode split, strMatchMode mode) const;
    xstring Substitute(int from, int to, const char *replacement) const;
    xstring Substitute(const char *pattern, const char *replacement, strMatchMode mode, int from,
                       int to) const;
    xstring SubstituteAll(const char *pattern, const char *replacement, strMatchMode mode, int from,
                          int to) const;
    int Schar(const char *chars, strScanDir direction, int from, int to, unsigned char ignorecase) const;
    bool Match(const char *pattern, int &start, int &end, strMatchMode mode, int from, int to) const;
    bool ExactMatch(const char *pattern, strMatchMode mode, int from, int to) const;
    int Cmp(const char *other, unsigned char ignorecase) const;
    int CmnPfxLen(const char *other, unsigned char ignorecase) const;
    int CmnSfxLen(const char *other, unsigned char ignorecase) const;

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
#if defined(__i386__)
    // Here a std::va_list is a plain char *, so a variable of that type is taken for one; an array, a
    // literal and a const char * are not.
    template <std::same_as<char *> List>
    void Sprintf(const char *format, List &arguments) {
        Format(format, arguments);
    }
#else
    void Sprintf(const char *format, std::va_list arguments) __attribute__((format(printf, 2, 0))) {
        Format(format, arguments);
    }
#endif
    static constexpr std::size_t FormatLimit = 65536;

private:
    virtual void OnSet(const char *text);
    void Format(const char *format, std::va_list arguments) __attribute__((format(printf, 2, 0)));
};

// The text pointers of counted buffers, for C callers: a copy (count 1), one holder more, one less. The
// pointers 0, 1 and 2 are no buffers: they are returned unchanged and ignored. Any thread. Without memory for
// a copy: the uninit text, and an exception in the slot (kelstdmt_c.h).
extern "C" {
KELSTDMT_API char *xstrcreate_c(const char *text);
KELSTDMT_API char *xstrlock_c(const char *text);
KELSTDMT_API void xstrunlock_c(const char *text);
}

namespace kel::detail {

// A counted buffer is known by its text; the holder count lies in the four bytes before it, and two
// numbers that spare a walk to the terminator lie in front of that.
struct buffer_head {
    std::uint32_t room;  // bytes for a text, without the terminator
    std::uint32_t size;  // bytes of the text, or unmeasured
    std::uint32_t holders;

    // Whoever asked for the buffer writes the text, and may write it again as long as he is alone; or it
    // is 4 GB or more.
    static constexpr std::uint32_t unmeasured = 0xFFFFFFFF;
    static constexpr std::uint32_t measured(std::size_t bytes) noexcept {
        return bytes < unmeasured ? static_cast<std::uint32_t>(bytes) : unmeasured;
    }
};

inline buffer_head &head(const char *text) noexcept {
    return reinterpret_cast<buffer_head *>(const_cast<char *>(text))[-1];
}
inline std::uint32_t &holders(const char *text) noexcept {
    return head(text).holders;
}
// A new buffer for a text of `bytes` bytes, count 1, terminated, its text not set.
KELSTDMT_API char *buffer_create(std::size_t bytes);
KELSTDMT_API void buffer_free(char *text) noexcept;
// A new buffer with a copy of the text that its holder may write to; 0 and the markers as they are.
char *buffer_copy(const char *text);

inline char *buffer_share(char *text) noexcept {
    if (text) count_add(holders(text), std::uint32_t{1});
    return text;
}
// A sole holder need not count: nobody else can become one.
inline void buffer_drop(char *text) noexcept {
    if (text && (count_load(holders(text)) <= 1 || count_add(holders(text), std::uint32_t(-1)) <= 1))
        buffer_free(text);
}
// The text of a buffer.
inline std::string_view buffer_view(const char *text) noexcept {
    std::uint32_t size = head(text).size;
    return {text, size == buffer_head::unmeasured ? std::strlen(text) : size};
}
inline bool buffer_equal(const char *a, const char *b) noexcept {
    std::uint32_t size = head(a).size, other = head(b).size;
    if (size == other && size != buffer_head::unmeasured) return std::memcmp(a, b, size) == 0;
    return (size == buffer_head::unmeasured || other == buffer_head::unmeasured) && std::strcmp(a, b) == 0;
}
// Whether a text of so many bytes may be written over a buffer: it has one holder, and a text that is not
// shorter and at most 10 bytes longer.
inline bool buffer_fits(const char *text, std::size_t bytes) noexcept {
    constexpr std::size_t slack = 10;
    return text && count_load(holders(text)) <= 1 && buffer_view(text).size() - bytes <= slack;
}

inline std::string_view any_view(const char *text) noexcept {
    return is_text(text) ? std::string_view(text) : std::string_view("", 0);
}
std::string_view any_view(const xstring &text) noexcept;

// What can stand beside a string in an operation that knows the string's length.
template <class T>
concept text_pointer = std::convertible_to<const T &, const char *> && !std::derived_from<T, xstrbase>;
template <class T>
concept text_operand = std::same_as<T, xstring> || text_pointer<T>;

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
    // So that a literal 0 is a number.
    template <std::same_as<int> Int>
    xstring(const char *text, Int n) : xstring(text, static_cast<unsigned>(n)) {}
    ~xstring() override { kel::detail::buffer_drop(m_text); }

    // Assignment copies. The buffer is kept when this string is its sole holder and the new text is of
    // the same length or at most 10 bytes shorter; assigning an equal string changes nothing.
    xstring &operator=(const char *text) {
        if (!kel::is_text(text)) [[unlikely]]
            return AssignMark(text);
        std::string_view view(text);
        return kel::detail::buffer_fits(m_text, view.size()) ? Overwrite(view) : AssignNew(view);
    }
    xstring &operator=(const xstring &other) {
        if (m_text == other.m_text) return *this;
        if (!other.m_text) return AssignMark(xstrNullStr);
        std::string_view view = kel::detail::buffer_view(other.m_text);
        return kel::detail::buffer_fits(m_text, view.size()) ? Overwrite(view) : AssignOther(view);
    }
    xstring &operator=(xstring &&other) noexcept {
        char *old = std::exchange(m_text, std::exchange(other.m_text, nullptr));
        kel::detail::buffer_drop(old);
        return *this;
    }
    // The lengths of the rule above are characters here. A text that the locale cannot show gives the null
    // string, one of more than 16,777,216 bytes as many of them.
    xstring &operator=(const unsigned short *wide);

    // A null pointer, the marker and a null string add nothing. Room for more is taken in growing portions.
    xstring &operator+=(const char *text) {
        return kel::is_text(text) ? Append(std::string_view(text)) : *this;
    }
    xstring &operator+=(const xstring &other) {
        return other.m_text ? Append(kel::detail::buffer_view(other.m_text)) : *this;
    }
    // A null string or pointer counts as empty. A temporary string is extended.
    template <kel::detail::text_operand B>
    friend xstring operator+(const xstring &a, const B &b) {
        return Join(a, kel::detail::any_view(b));
    }
    template <kel::detail::text_operand B>
    friend xstring operator+(xstring &&a, const B &b) {
        return std::move(a.Append(kel::detail::any_view(b)));
    }
    template <kel::detail::text_pointer A>
    friend xstring operator+(const A &a, const xstring &b) {
        return Join(kel::detail::any_view(a), b);
    }

    // Formats into one string that the whole process shares: not for concurrent callers.
    static xstring &MkSprintf(const char *format, ...) __attribute__((format(printf, 1, 2)));

    const char *Str() const noexcept { return m_text ? m_text : kel::nil_text(); }
    operator const char *() const noexcept { return Str(); }
    // A null string gives an empty view.
    operator std::string_view() const noexcept {
        return m_text ? kel::detail::buffer_view(m_text) : std::string_view("", 0);
    }
    unsigned GetSize() const noexcept { return static_cast<unsigned>(std::string_view(*this).size() + 1); }
    bool IsNull() const noexcept { return m_text == nullptr; }

    // Takes over one hold on a counted buffer (of xstrcreate_c); the markers give the null string.
    static xstring Adopt(char *text) noexcept {
        xstring result;
        if (kel::is_text(text)) result.m_text = text;
        return result;
    }
    // A string of these bytes, up to a NUL among them.
    static xstring FromBytes(const char *bytes, std::size_t count);

    // What the order of all strings, below, gives, without asking for the text twice.
    template <std::same_as<xstring> S>
    friend bool operator==(const S &a, const S &b) noexcept {
        if (a.m_text == b.m_text) return true;
        return a.m_text && b.m_text && kel::detail::buffer_equal(a.m_text, b.m_text);
    }
    template <std::same_as<xstring> S>
    friend std::strong_ordering operator<=>(const S &a, const S &b) noexcept {
        if (!a.m_text || !b.m_text) return (a.m_text != nullptr) <=> (b.m_text != nullptr);
        return std::string_view(a) <=> std::string_view(b);
    }

private:
    const char *GiveString() const override;
    void OnSet(const char *text) override;

    static char *Copy(const char *text);
    static xstring Join(std::string_view a, std::string_view b);
    void Replace(char *text) noexcept { kel::detail::buffer_drop(std::exchange(m_text, text)); }

    xstring &AssignMark(const char *mark);  // null or a marker
    xstring &AssignNew(std::string_view text);
    xstring &AssignOther(std::string_view text);
    xstring &AppendNew(std::string_view text);

    xstring &Overwrite(std::string_view text) noexcept {
        const bool resized = kel::detail::head(m_text).size != text.size();
        std::memmove(m_text, text.data(), text.size());
        return resized ? SetSize(text.size()) : *this;
    }
    xstring &Append(std::string_view text) {
        if (m_text && kel::detail::count_load(kel::detail::holders(m_text)) <= 1) {
            auto &head = kel::detail::head(m_text);
            if (head.size != head.unmeasured && text.size() <= head.room - head.size) {
                std::memmove(m_text + head.size, text.data(), text.size());
                return SetSize(head.size + text.size());
            }
        }
        return AppendNew(text);
    }
    xstring &SetSize(std::size_t size) noexcept {
        m_text[size] = 0;
        kel::detail::head(m_text).size = kel::detail::buffer_head::measured(size);
        return *this;
    }

    char *m_text = nullptr;  // of a counted buffer
};

static_assert(sizeof(xstring) == 2 * sizeof(void *));

namespace kel::detail {
inline std::string_view any_view(const xstring &text) noexcept {
    return text;
}
}  // namespace kel::detail

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
    return detail::any_view(text.Str());
}
inline std::string_view view(const xstring &text) noexcept {
    return text;
}
}  // namespace kel

template <>
struct std::hash<xstring> {
    std::size_t operator()(const xstring &text) const noexcept {
        return text.IsNull() ? 1 : std::hash<std::string_view>()(text);
    }
};
