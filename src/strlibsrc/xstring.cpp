// Strings and their counted buffers.
//
// A new buffer is always filled before the old one is dropped, so a text may come from the very string that
// it is assigned to.
#include <kelstdmt/xstring.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <istream>
#include <memory>
#include <ostream>
#include <string>

#include <kelstdmt/vumtext.h>

#include "runtime/characters.h"
#include "runtime/sizes.h"

using kel::is_text;

namespace {

constexpr char null_assigned[] = "xstring: assignment of 0 is not supported any more.";

using kel::detail::any_view;
using kel::detail::buffer_head;

// A new buffer whose text is known to have so many bytes, and room for more.
char *create(std::size_t size, std::size_t room) {
    char *text = kel::detail::buffer_create(room);
    kel::detail::head(text).size = buffer_head::measured(size);
    text[size] = 0;
    return text;
}

char *buffer_of(std::string_view a, std::string_view b = "", std::size_t spare = 0) {
    const std::size_t size = kel::detail::add_sizes(a.size(), b.size());
    char *text = create(size, kel::detail::add_sizes(size, spare));
    std::memcpy(text, a.data(), a.size());
    std::memcpy(text + a.size(), b.data(), b.size());
    return text;
}

char *report_null() {
    _Abort(null_assigned, "strlibsrc/xstrlib", __LINE__);
    return buffer_of("");
}

}  // namespace

// Buffers --------------------------------------------------------------------------------------

// The memory of the default manager is the plain operator new's.
char *kel::detail::buffer_create(std::size_t bytes) {
    std::size_t block = sizeof(buffer_head) + bytes + 1;
    if (block < bytes) throw std::bad_alloc();
    char *text = static_cast<char *>(::operator new(block)) + sizeof(buffer_head);
    ::new (text - sizeof(buffer_head)) buffer_head{buffer_head::measured(bytes), buffer_head::unmeasured, 1};
    text[bytes] = 0;
    return text;
}

void kel::detail::buffer_free(char *text) noexcept {
    ::operator delete(text - sizeof(buffer_head));
}

char *kel::detail::buffer_copy(const char *text) {
    if (!is_text(text)) return const_cast<char *>(text);
    char *copy = buffer_of(text);
    head(copy).size = buffer_head::unmeasured;
    return copy;
}

// Any text -------------------------------------------------------------------------------------

const char *xstrbase::GiveString() const {
    _Abort(nullptr, "strlibsrc/xstring", __LINE__);
    return nullptr;
}

unsigned xstrbase::GetSize() const {
    return static_cast<unsigned>(any_view(Str()).size() + 1);
}
int xstrbase::ToInt() const {
    const char *text = Str();
    return is_text(text) ? std::atoi(text) : 0;
}
long xstrbase::ToLong() const {
    const char *text = Str();
    return is_text(text) ? std::atol(text) : 0;
}
double xstrbase::ToDouble() const {
    const char *text = Str();
    return is_text(text) ? std::atof(text) : 0;
}

namespace {

xstring each_byte(const char *text, kel::detail::byte_case change) {
    if (!is_text(text)) return xstring();
    std::size_t count = std::strlen(text);
    char *result = create(count, count);
    std::transform(text, text + count, result, change);
    return xstring::Adopt(result);
}

// -1, 0 or 1: the null string, no text, texts.
int compare(const char *a, const char *b) {
    if (is_text(a) && is_text(b)) {
        int order = a == b ? 0 : std::strcmp(a, b);
        return (order > 0) - (order < 0);
    }
    auto rank = [](const char *text) { return is_text(text) ? 2 : text ? 0 : 1; };
    return (rank(a) > rank(b)) - (rank(a) < rank(b));
}

}  // namespace

xstring xstrbase::ToLower() const {
    return each_byte(Str(), kel::detail::byte_case::lower());
}
xstring xstrbase::ToUpper() const {
    return each_byte(Str(), kel::detail::byte_case::upper());
}

xstring xstrbase::operator()(unsigned from, unsigned to) const {
    constexpr auto unset = static_cast<unsigned>(strUnsetPos);
    const char *text = Str();
    if (!is_text(text)) return xstring("");
    if (from == unset) from = 0;
    const char *first = stringAfterCHars(text, from);
    if (to == unset) return xstring(first);
    return xstring(first, to > from ? to - from : 0);
}

int operator-(const xstrbase &a, const char *b) {
    return compare(a.Str(), b);
}
int operator-(const xstrbase &a, const xstrbase &b) {
    return compare(a.Str(), b.Str());
}
int operator-(const char *a, const xstrbase &b) {
    return compare(a, b.Str());
}

xstring operator+(const char *a, const xstrbase &b) {
    return xstring(a, b.Str());
}
xstring operator+(const xstrbase &a, const char *b) {
    return xstring(a.Str(), b);
}
xstring operator+(const xstrbase &a, const xstrbase &b) {
    return xstring(a.Str(), b.Str());
}

std::ostream &operator<<(std::ostream &out, const xstrbase &text) {
    return out << kel::view(text);
}

// Texts that can be set ------------------------------------------------------------------------

void xncstr::OnSet(const char *) {
    _Abort(nullptr, "strlibsrc/xstring", __LINE__);
}

void xncstr::Set(const unsigned short *wide) {
    if (!wide) return OnSet(nullptr);
    char *text = StrneW(wide);
    std::unique_ptr<char, void (*)(char *)> owner(is_text(text) ? text : nullptr,
                                                  [](char *block) { ::operator delete(block); });
    OnSet(text);
}

void xncstr::Set(std::istream &from) {
    std::string text;
    std::getline(from, text, '\0');
    OnSet(text.c_str());
}

void xncstr::Get(std::istream &from, char delimiter) {
    std::string read;
    std::getline(from, read, delimiter);
    std::string_view present = kel::view(*this);
    OnSet(present.empty() ? read.c_str() : std::string(present).append(read).c_str());
}

namespace {

constexpr std::size_t brief_text = 1000;

// The formatted text, in the array when it is short, else in the string.
const char *formatted(char (&array)[brief_text], std::string &heap, const char *format,
                      std::va_list arguments) {
    std::va_list again;
    va_copy(again, arguments);
    int count = std::vsnprintf(array, sizeof array, format, arguments);
    const char *result = array;
    if (count < 0) {
        _Abort("xncstr::Sprintf: the text cannot be formatted", "strlibsrc/xstring", __LINE__);
        array[0] = 0;
    } else if (static_cast<std::size_t>(count) >= sizeof array) {
        bool cut = static_cast<std::size_t>(count) > xncstr::FormatLimit;
        if (cut) _Abort("xncstr::Sprintf: the text is too long and is cut", "strlibsrc/xstring", __LINE__);
        heap.resize(std::min(static_cast<std::size_t>(count), xncstr::FormatLimit));
        std::vsnprintf(heap.data(), heap.size() + 1, format, again);
        result = heap.c_str();
    }
    va_end(again);
    return result;
}

}  // namespace

void xncstr::Format(const char *format, std::va_list arguments) {
    char array[brief_text];
    std::string heap;
    OnSet(formatted(array, heap, format, arguments));
}

void xncstr::Sprintf(const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    Format(format, arguments);
    va_end(arguments);
}

// The string -----------------------------------------------------------------------------------

const char *xstring::GiveString() const {
    return Str();
}

void xstring::OnSet(const char *text) {
    Replace(Copy(text));
}

char *xstring::Copy(const char *text) {
    if (is_text(text)) return buffer_of(text);
    return text ? nullptr : report_null();
}

xstring::xstring(const char *first, const char *second)
    : m_text(buffer_of(any_view(first), any_view(second))) {}

xstring::xstring(const char *text, unsigned n)
    : m_text(buffer_of(is_text(text) ? std::string_view(text, stringAfterCHars(text, n)) : "")) {}

xstring xstring::FromBytes(const char *bytes, std::size_t count) {
    return Adopt(buffer_of({bytes, strnlen(bytes, count)}));
}

xstring xstring::Join(std::string_view a, std::string_view b) {
    return Adopt(buffer_of(a, b));
}

xstring &xstring::AssignMark(const char *mark) {
    Replace(Copy(mark));
    return *this;
}

xstring &xstring::AssignNew(std::string_view text) {
    Replace(buffer_of(text));
    return *this;
}

xstring &xstring::AssignOther(std::string_view text) {
    return m_text && std::string_view(*this) == text ? *this : AssignNew(text);
}

xstring &xstring::AppendNew(std::string_view text) {
    // Who appends once is likely to append again; but what is spare never fills an address space.
    constexpr std::size_t least_spare = 32, most_room = PTRDIFF_MAX / 2;
    const std::string_view present = *this;
    const std::size_t size = kel::detail::add_sizes(present.size(), text.size());
    const std::size_t spare =
        m_text ? std::min(std::max(size, least_spare), most_room - std::min(size, most_room)) : 0;
    Replace(buffer_of(present, text, spare));
    return *this;
}

xstring &xstring::MkSprintf(const char *format, ...) {
    // Never destroyed: it may be asked for while static objects die.
    static xstring &result = *new xstring;
    char array[brief_text];
    std::string heap;
    std::va_list arguments;
    va_start(arguments, format);
    // The old result may be among the arguments, so it lives until the new text is made.
    const char *text = formatted(array, heap, format, arguments);
    va_end(arguments);
    result.OnSet(text);
    return result;
}
