// Literal and shell matching beside a table of all prefixes of pattern and text: a cell says whether one
// matches the other. The first bytes choose locale, mode and range, then comes the pattern up to a NUL, then
// the text up to the next one.
#include <kelstdmt/strlib.h>

#include <algorithm>
#include <cctype>
#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <cwchar>
#include <memory>
#include <string>
#include <vector>

namespace {

using chars = std::vector<std::string>;

void check(bool good) {
    if (!good) std::abort();
}

chars split(const std::string &text) {
    chars result;
    for (std::size_t at = 0; at < text.size(); at += result.back().size()) {
        std::mbstate_t state{};
        const std::size_t left = std::min<std::size_t>(text.size() - at, 4);
        const std::size_t bytes = MB_CUR_MAX == 1 ? 1 : std::mbrlen(text.data() + at, left, &state);
        result.push_back(text.substr(at, bytes == 0 || bytes > left ? 1 : bytes));
    }
    return result;
}

std::string joined(const chars &text, std::size_t from) {
    std::string result;
    for (; from < text.size(); ++from)
        result += text[from];
    return result;
}

std::string upper(std::string text) {
    for (char &byte : text)
        byte = static_cast<char>(std::toupper(static_cast<unsigned char>(byte)));
    return text;
}

struct model {
    chars text, pattern;
    bool shell;
    std::string bytes;  // of the pattern

    // Which ends a match from `start` may have.
    std::vector<bool> ends(std::size_t start) const {
        std::vector<bool> now(text.size() + 1);
        now[start] = true;
        for (const std::string &wanted : pattern) {
            std::vector<bool> next(text.size() + 1);
            bool before = false;
            for (std::size_t at = start; at <= text.size(); ++at) {
                if (shell && wanted == "*")
                    next[at] = before = before || now[at];
                else if (at > start)
                    next[at] = now[at - 1] && ((shell && wanted == "?") || wanted == text[at - 1]);
            }
            now.swap(next);
        }
        return now;
    }
    bool exact() const { return ends(0).back(); }
    bool find(std::size_t from, std::size_t &start, std::size_t &end) const {
        if (!shell) {
            const std::string rest = joined(text, from);
            const std::size_t at = rest.find(bytes);
            if (at == rest.npos) return false;
            start = from + split(rest.substr(0, at)).size();
            end = start + pattern.size();
            return true;
        }
        for (start = from; start <= text.size(); ++start) {
            const std::vector<bool> now = ends(start);
            const auto found = std::find(now.begin(), now.end(), true);
            end = static_cast<std::size_t>(found - now.begin());
            if (found != now.end()) return true;
        }
        return false;
    }
};

void compare(const std::string &text, const std::string &pattern, strMatchMode mode, int from, int to) {
    const bool ignore_case = mode % 2 != 0;
    chars all = split(text);
    const auto length = static_cast<int>(all.size());
    all.resize(static_cast<std::size_t>(to == strUnsetPos ? length : std::min(to, length)));
    const auto first = static_cast<std::size_t>(from == strUnsetPos ? 0 : from);
    const std::string cut = joined(all, first), wanted = ignore_case ? upper(pattern) : pattern;
    const model expected{split(ignore_case ? upper(cut) : cut), split(wanted), mode / 2 == 1, wanted};

    check(strExactMatch(text.c_str(), pattern.c_str(), mode, from, to) == expected.exact());
    std::size_t start = 0, end = 0;
    int found_start = 0, found_end = 0;
    const bool found = expected.find(0, start, end);
    check(strMatch(text.c_str(), pattern.c_str(), found_start, found_end, mode, from, to) == found);
    check(!found ||
          (found_start == static_cast<int>(first + start) && found_end == static_cast<int>(first + end)));

    const std::unique_ptr<strSegments> every(strMatchAll(text.c_str(), pattern.c_str(), mode, from, to));
    int index = 0;
    for (std::size_t at = 0; at <= expected.text.size() && expected.find(at, start, end); at = end + 1) {
        check(index < every->getarraysize());
        check(every->get(index)->getFrom() == static_cast<int>(first + start));
        check(every->get(index++)->getTo() == static_cast<int>(first + end));
    }
    check(index == every->getarraysize());
    every->delallsegs();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    constexpr std::size_t head = 3, longest = 200;
    if (size < head || size > longest) return 0;
    static const char *const locales[] = {"C", "C.UTF-8"};
    std::setlocale(LC_ALL, locales[bytes[0] & 1]);
    const auto mode = static_cast<strMatchMode>(bytes[0] / 2 % 4);
    const auto position = [](std::uint8_t byte) { return byte >= 0x80 ? strUnsetPos : byte; };
    const std::string rest(reinterpret_cast<const char *>(bytes) + head, size - head);
    const std::string pattern = rest.substr(0, rest.find('\0'));
    const std::string text = rest.substr(std::min(rest.size(), pattern.size() + 1)).c_str();
    compare(text, pattern, mode, position(bytes[1]), position(bytes[2]));
    return 0;
}
