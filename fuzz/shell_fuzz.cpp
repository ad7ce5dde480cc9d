// Literal and shell matching: what is found must match as a whole, and the first of all matches is the match.
// The first bytes choose locale, mode and range, then comes the pattern up to a NUL, then the text up to the
// next one.
#include <kelstdmt/strlib.h>

#include <clocale>
#include <memory>

#include "fuzzing.h"

using fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    constexpr std::size_t head = 3, longest = 200;
    if (size < head || size > longest) return 0;
    std::setlocale(LC_ALL, bytes[0] & 1 ? "C.UTF-8" : "C");
    const auto mode = static_cast<strMatchMode>(bytes[0] / 2 % 4);
    const auto position = [](std::uint8_t byte) { return byte >= 0x80 ? strUnsetPos : byte; };
    const int from = position(bytes[1]), to = position(bytes[2]);
    fuzz::Input input(bytes + head, size - head);
    const std::string pattern = input.text(), text = input.text();

    int start = 0, end = 0;
    const bool found = strMatch(text.c_str(), pattern.c_str(), start, end, mode, from, to);
    const std::unique_ptr<strSegments> all(strMatchAll(text.c_str(), pattern.c_str(), mode, from, to));
    require(found == (all->getarraysize() > 0), "found:", found);
    require(found || !strExactMatch(text.c_str(), pattern.c_str(), mode, from, to), "the whole matches");
    for (int i = 0, last = std::max(from, 0); i < all->getarraysize(); ++i) {
        const int begin = all->get(i)->getFrom(), after = all->get(i)->getTo();
        require(i > 0 || (begin == start && after == end), "another first match:", begin, after);
        require(begin >= last && after >= begin, "out of order:", begin, after);
        // A literal text may be found in the middle of a character.
        require(mode < strShell || strExactMatch(text.c_str(), pattern.c_str(), mode, begin, after),
                "does not match:", begin, after);
        last = after + 1;
    }
    all->delallsegs();
    return 0;
}
