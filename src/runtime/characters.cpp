#include "runtime/characters.h"

#include <cstdlib>
#include <cwchar>

namespace kel::detail {

encoding locale_encoding() noexcept {
    if (MB_CUR_MAX == 1) return encoding::single;
    // Four bytes that only UTF-8 reads as this character.
    static constexpr char probe[] = "\xF0\x9F\x98\x80";
    std::mbstate_t state{};
    wchar_t value = 0;
    return std::mbrtowc(&value, probe, 4, &state) == 4 && value == 0x1F600 ? encoding::utf8 : encoding::other;
}

std::size_t multibyte_bytes(encoding, const char *at, const char *end, bool *valid) noexcept {
    std::mbstate_t state{};
    const auto left = static_cast<std::size_t>(end - at);
    const std::size_t used = std::mbrlen(at, left, &state);
    const bool good = used > 0 && used <= left;
    if (valid) *valid = good;
    return good ? used : 1;
}

std::size_t count_characters(encoding form, const char *begin, const char *end) noexcept {
    std::size_t count = 0;
    for (; begin < end; ++count)
        begin += character_bytes(form, begin, end);
    return count;
}

const char *skip_characters(encoding form, const char *begin, const char *end, std::size_t n) noexcept {
    for (; begin < end && n > 0; --n)
        begin += character_bytes(form, begin, end);
    return begin;
}

}  // namespace kel::detail
