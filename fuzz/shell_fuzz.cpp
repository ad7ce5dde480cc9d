// Literal and shell matching beside a table of all prefixes of pattern and text: a cell says whether one
// matches the other. The first bytes choose locale, mode and range, then comes the pattern up to a NUL, then
// the text up to the next one.
#include <kelstdmt/strlib.h>

#include <cctype>
#include <clocale>
#include <cwchar>
#include <memory>
#include <numeric>
#include <vector>

#include "fuzzing.h"

namespace {

using fuzz::require, std::string;

using chars = std::vector<string>;

chars split(const string &text) {
    chars result;
    for (std::size_t at = 0; at < text.size(); at += result.back().size()) {
        std::mbstate_t state{};
        const std::size_t left = std::min<std::size_t>(text.size() - at, 4);
        const std::size_t bytes = MB_CUR_MAX == 1 ? 1 : std::mbrlen(text.data() + at, left, &state);
        result.push_back(text.substr(at, bytes == 0 || bytes > left ? 1 : bytes));
    }
    return result;
}

string joined(const chars &text, std::size_t from) {
    return std::accumulate(text.begin() + static_cast<long>(std::min(from, text.size())), text.end(),
                           string());
}

string upper(string text) {
    for (char &byte : text)
        byte = static_cast<char>(std::toupper(static_cast<unsigned char>(byte)));
    return text;
}

struct model {
    chars text, pattern;
    bool shell;
    string bytes;  // of the pattern

    // Which ends a match from `start` may have.
    std::vector<bool> ends(std::size_t start) const {
        std::vector<bool> now(text.size() + 1);
        now[start] = true;
        for (const string &wanted : pattern) {
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
    bool find(std::size_t &start, std::size_t &end) const {
        if (!shell) {
            const string rest = joined(text, start);
            const std::size_t at = rest.find(bytes);
            if (at == rest.npos) return false;
            start += split(rest.substr(0, at)).size();
            end = start + pattern.size();
            return true;
        }
        for (; start <= text.size(); ++start) {
            const std::vector<bool> now = ends(start);
            const auto found = std::find(now.begin(), now.end(), true);
            end = static_cast<std::size_t>(found - now.begin());
            if (found != now.end()) return true;
        }
        return false;
    }
};

void compare(const string &text, const string &pattern, strMatchMode mode, int from, int to) {
    const bool ignore_case = mode % 2 != 0;
    chars all = split(text);
    if (to != strUnsetPos) all.resize(std::min(static_cast<std::size_t>(to), all.size()));
    const int first = from == strUnsetPos ? 0 : from;
    const string cut = joined(all, static_cast<std::size_t>(first)),
                 wanted = ignore_case ? upper(pattern) : pattern;
    const model expected{split(ignore_case ? upper(cut) : cut), split(wanted), mode / 2 == 1, wanted};

    const bool is_exact = expected.ends(0).back();
    require(strExactMatch(text.c_str(), pattern.c_str(), mode, from, to) == is_exact, "exact:", is_exact);
    std::vector<std::pair<int, int>> matches;
    for (std::size_t at = 0, end = 0; at <= expected.text.size() && expected.find(at, end); at = end + 1)
        matches.emplace_back(first + static_cast<int>(at), first + static_cast<int>(end));

    std::pair<int, int> found;
    const bool is_found = strMatch(text.c_str(), pattern.c_str(), found.first, found.second, mode, from, to);
    require(is_found == !matches.empty() && (!is_found || found == matches[0]), "found:", is_found);

    const std::unique_ptr<strSegments> every(strMatchAll(text.c_str(), pattern.c_str(), mode, from, to));
    std::vector<std::pair<int, int>> seen;
    for (int at = 0; at < every->getarraysize(); ++at)
        seen.emplace_back(every->get(at)->getFrom(), every->get(at)->getTo());
    every->delallsegs();
    require(seen == matches, "matches expected and seen:", matches.size(), seen.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    constexpr std::size_t head = 3, longest = 200;
    if (size < head || size > longest) return 0;
    std::setlocale(LC_ALL, bytes[0] & 1 ? "C.UTF-8" : "C");
    const auto mode = static_cast<strMatchMode>(bytes[0] / 2 % 4);
    const auto position = [](std::uint8_t byte) { return byte >= 0x80 ? strUnsetPos : byte; };
    fuzz::Input input(bytes + head, size - head);
    const string pattern = input.text();
    compare(input.text(), pattern, mode, position(bytes[1]), position(bytes[2]));
    return 0;
}
