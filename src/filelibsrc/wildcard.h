// Names against a pattern: `*` is any run of bytes, `?` is one byte, all else is itself, with case.
//
// What stands before the first star and behind the last has only one place in a name; each piece between
// takes the first place that it fits behind the piece before, since a later one could only leave less for the
// rest. So nothing is tried twice, and the work is bounded by pattern times name.
#pragma once

#include <cstddef>
#include <string_view>

namespace kel::detail {

// A piece without stars, at the beginning of a text that is at least as long.
constexpr bool begins_with(std::string_view text, std::string_view piece) noexcept {
    for (std::size_t i = 0; i < piece.size(); ++i)
        if (piece[i] != text[i] && piece[i] != '?') return false;
    return true;
}

constexpr bool matches_wildcard(std::string_view name, std::string_view pattern) noexcept {
    const std::size_t first = pattern.find('*');
    if (first == pattern.npos) return name.size() == pattern.size() && begins_with(name, pattern);
    const std::size_t last = pattern.rfind('*'), tail = pattern.size() - last - 1;
    if (name.size() < first + tail || !begins_with(name, pattern.substr(0, first)) ||
        !begins_with(name.substr(name.size() - tail), pattern.substr(last + 1)))
        return false;
    name = name.substr(first, name.size() - first - tail);
    for (std::size_t at = first; at < last;) {
        const std::size_t star = pattern.find('*', at + 1);
        const std::string_view piece = pattern.substr(at + 1, star - at - 1);
        while (name.size() >= piece.size() && !begins_with(name, piece))
            name.remove_prefix(1);
        if (name.size() < piece.size()) return false;
        name.remove_prefix(piece.size());
        at = star;
    }
    return true;
}

}  // namespace kel::detail
