// Bytes in and out of any std::streambuf without a virtual call where its get or put area suffices.
//
// The areas are protected members of std::streambuf. A class derived from it may name them, and a pointer
// to such a member works on every streambuf: this is how they are reached here, without a cast.
#pragma once

#include <cxxabi.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <streambuf>

#include <kelstdmt/xtypes.h>

namespace kel::detail {

class stream_area : private std::streambuf {
public:
    static const char *unread(const std::streambuf &from) { return (from.*(&stream_area::gptr))(); }
    static const char *unread_end(const std::streambuf &from) { return (from.*(&stream_area::egptr))(); }
    static std::size_t unread_count(const std::streambuf &from) {
        const char *begin = unread(from), *end = unread_end(from);
        return begin < end ? static_cast<std::size_t>(end - begin) : 0;
    }
    // `to` lies in the get area; everything before it has been read.
    static void read_up_to(std::streambuf &from, const char *to) {
        if (const std::ptrdiff_t count = to - unread(from); count <= INT_MAX)
            (from.*(&stream_area::gbump))(static_cast<int>(count));
        else
            (from.*(&stream_area::setg))((from.*(&stream_area::eback))(), const_cast<char *>(to),
                                         (from.*(&stream_area::egptr))());
    }

    static char *unwritten(const std::streambuf &to) { return (to.*(&stream_area::pptr))(); }
    static std::size_t room(const std::streambuf &to) {
        const char *begin = unwritten(to), *end = (to.*(&stream_area::epptr))();
        return begin < end ? static_cast<std::size_t>(end - begin) : 0;
    }
    static void wrote(std::streambuf &to, int count) { (to.*(&stream_area::pbump))(count); }
};

// What the action answers, or what `failed` then is for whatever it throws. Only the end of a thread passes,
// which is no object: the reference to it is null, and sanitizers are not to mind.
template <class Action, class Result>
__attribute__((no_sanitize("null"))) Result guarded(const Result &failed, Action action) {
    try {
        return action();
    } catch (abi::__forced_unwind &) {
        throw;
    } catch (...) {
        return failed;
    }
}

// The bytes that sgetn gave, fewer than asked only at the end of the data; -1 when the buffer threw.
std::ptrdiff_t take_slowly(std::streambuf &from, char *bytes, std::size_t count);
// Whether sputn took all of them.
bool put_slowly(std::streambuf &to, const char *bytes, std::size_t count);

inline std::ptrdiff_t take(std::streambuf &from, char *bytes, std::size_t count) {
    if (count > stream_area::unread_count(from)) return take_slowly(from, bytes, count);
    const char *unread = stream_area::unread(from);
    if (count > 0) std::memcpy(bytes, unread, count);
    stream_area::read_up_to(from, unread + count);
    return static_cast<std::ptrdiff_t>(count);
}

inline bool put(std::streambuf &to, const char *bytes, std::size_t count) {
    if (count > stream_area::room(to) || count > INT_MAX) return put_slowly(to, bytes, count);
    if (count > 0) std::memcpy(stream_area::unwritten(to), bytes, count);
    stream_area::wrote(to, static_cast<int>(count));
    return true;
}

// At most so many characters, in a place of so many.
inline constexpr std::size_t short_text = 16;

// From `count` on, a selection of all bits for as many bytes as a short text has, then of none.
inline constexpr auto short_text_masks = [] {
    std::array<unsigned char, 2 * short_text> masks{};
    std::fill_n(masks.begin(), short_text, 0xFF);
    return masks;
}();

// Texts whose lengths change from one to the next mislead the processor's guesses at a copy of so many bytes.
// Where there is room, the whole place is copied, and what lay behind the text is stored again: it may be
// data that was read ahead.
inline bool put_short(std::streambuf &to, const char (&text)[short_text], std::size_t count) {
    if (stream_area::room(to) < short_text) return put_slowly(to, text, count);
    struct words {
        std::uint64_t low, high;
    };
    static_assert(sizeof(words) == short_text);
    words fresh, old, mask;
    char *place = stream_area::unwritten(to);
    std::memcpy(&fresh, text, short_text);
    std::memcpy(&old, place, short_text);
    std::memcpy(&mask, short_text_masks.data() + (short_text - count), short_text);
    old.low ^= (old.low ^ fresh.low) & mask.low;
    old.high ^= (old.high ^ fresh.high) & mask.high;
    std::memcpy(place, &old, short_text);
    stream_area::wrote(to, static_cast<int>(count));
    return true;
}

// Bytes of a text; a null pointer and the markers have none.
inline std::size_t text_length(const char *text) {
    return is_text(text) ? std::strlen(text) : 0;
}

}  // namespace kel::detail
