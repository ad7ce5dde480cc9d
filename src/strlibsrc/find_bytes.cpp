// Eight places are looked at together: a place is worth a comparison when both the first and the last of the
// wanted bytes are where they would have to be. Few places are, in texts that people write; where many are,
// the C library's search goes on, which prepares itself and knows no bad texts.
#include "strlibsrc/find_bytes.h"

#include <bit>
#include <cstring>

#include "runtime/words.h"

namespace kel::detail {

namespace {

const char *library_find(const char *at, const char *end, std::string_view wanted) noexcept {
    return static_cast<const char *>(
        memmem(at, static_cast<std::size_t>(end - at), wanted.data(), wanted.size()));
}

}  // namespace

const char *find_bytes(const char *at, const char *end, std::string_view wanted) noexcept {
    if (wanted.empty()) return at;
    const auto size = static_cast<std::size_t>(end - at);
    if (wanted.size() > size) return nullptr;
    if (wanted.size() == 1) return static_cast<const char *>(std::memchr(at, wanted[0], size));

    const std::size_t to_last = wanted.size() - 1;
    const char *const stop = end - to_last;  // behind the last place
    const word first = repeated(wanted.front()), last = repeated(wanted.back());
    std::size_t compared = 0;  // bytes at most, in vain
    const char *const begin = at;
    // The top bit of each byte where both are right, and maybe of some above one.
    auto candidates = [&](std::size_t offset) {
        const word different = (load_word(at + offset) ^ first) | (load_word(at + offset + to_last) ^ last);
        return (different - ones) & ~different & (ones << 7);
    };
    for (; static_cast<std::size_t>(stop - at) >= in_word; at += in_word) {
        while (static_cast<std::size_t>(stop - at) >= 4 * in_word &&
               !(candidates(0) | candidates(in_word) | candidates(2 * in_word) | candidates(3 * in_word)))
            at += 4 * in_word;
        if (static_cast<std::size_t>(stop - at) < in_word) break;
        word places = candidates(0);
        for (; places; places &= places - 1) {
            const char *place = at + std::countr_zero(places) / 8;
            if (std::memcmp(place, wanted.data(), wanted.size()) == 0) return place;
            compared += wanted.size();
        }
        if (compared > 1024 + 2 * static_cast<std::size_t>(at - begin))
            return library_find(at + in_word, end, wanted);
    }
    for (; at < stop; ++at)
        if (*at == wanted.front() && std::memcmp(at, wanted.data(), wanted.size()) == 0) return at;
    return nullptr;
}

}  // namespace kel::detail
