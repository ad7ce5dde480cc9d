// Bytes in and out of any std::streambuf without a virtual call where its get or put area suffices.
//
// The areas are protected members of std::streambuf. A class derived from it may name them, and a pointer
// to such a member works on every streambuf: this is how they are reached here, without a cast.
#pragma once

#include <cxxabi.h>

#include <climits>
#include <cstddef>
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

// What the action answers, or what `failed` then is for whatever it throws. Only the end of a thread passes.
template <class Action, class Result>
Result guarded(const Result &failed, Action action) {
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

// Bytes of a text; a null pointer and the markers have none.
inline std::size_t text_length(const char *text) {
    return is_text(text) ? std::strlen(text) : 0;
}

}  // namespace kel::detail
