// The get area of any stream buffer: the bytes that it holds unread are counted and handed on in place.
#pragma once

#include <cstddef>
#include <streambuf>

namespace kel::detail {

// The pointers are protected, but may be named by who derives.
struct get_area : private std::streambuf {
    static bool exists(const std::streambuf &buffer) noexcept {
        return (buffer.*&get_area::eback)() != nullptr;
    }
    static const char *unread(const std::streambuf &buffer) noexcept { return (buffer.*&get_area::gptr)(); }
    static std::size_t size(const std::streambuf &buffer) noexcept {
        const char *from = unread(buffer), *to = (buffer.*&get_area::egptr)();
        return from < to ? static_cast<std::size_t>(to - from) : 0;
    }
    static void consume(std::streambuf &buffer, std::streamsize count) noexcept {
        char *begin = (buffer.*&get_area::eback)(), *end = (buffer.*&get_area::egptr)();
        (buffer.*&get_area::setg)(begin, (buffer.*&get_area::gptr)() + count, end);
    }
};

}  // namespace kel::detail
