// The C++ library: std::string, and the loops around it that its users write.
#include <algorithm>
#include <cctype>
#include <functional>

#include "texts.h"

namespace bench {
namespace {

std::vector<std::string> split(std::string_view text) {
    std::vector<std::string> all;
    std::size_t begin = 0;
    for (std::size_t end; (end = text.find(' ', begin)) != text.npos; begin = end + 1)
        all.emplace_back(text.substr(begin, end - begin));
    all.emplace_back(text.substr(begin));
    return all;
}

std::string nth_word(std::string_view text, int n) {
    std::size_t begin = 0;
    for (; n > 0; --n) {
        const std::size_t blank = text.find(' ', begin);
        if (blank == text.npos) return {};
        begin = blank + 1;
    }
    return std::string(text.substr(begin, text.find(' ', begin) - begin));
}

std::vector<Span> places(std::string_view text) {
    const std::string_view wanted = common_place;
    std::vector<Span> all;
    for (std::size_t at = 0; (at = text.find(wanted, at)) != text.npos; at += wanted.size())
        all.push_back({static_cast<std::ptrdiff_t>(at), static_cast<std::ptrdiff_t>(at + wanted.size())});
    return all;
}

std::string replace(std::string_view text) {
    const std::string_view wanted = common_word;
    std::string made;
    made.reserve(text.size());
    std::size_t begin = 0;
    for (std::size_t at; (at = text.find(wanted, begin)) != text.npos; begin = at + wanted.size())
        made.append(text, begin, at - begin).append(new_word);
    return made.append(text, begin);
}

std::string replace_pieces(std::string_view text) {
    std::string made;
    made.reserve(text.size());
    std::size_t begin = 0;
    for (std::size_t i = 0; i < piece_count; ++i) {
        made.append(text, begin, i * piece_distance - begin).append(piece_text);
        begin = i * piece_distance + piece_length;
    }
    return made.append(text, begin);
}

bool same(std::string_view one, std::string_view other) {
    return std::equal(
        one.begin(), one.end(), other.begin(), other.end(),
        [](unsigned char a, unsigned char b) { return a == b || std::toupper(a) == std::toupper(b); });
}

std::string upper(std::string_view text) {
    std::string made(text);
    std::transform(made.begin(), made.end(), made.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return made;
}

template <class Search>
void add_search(Suite &suite, const char *way, Search search) {
    add_find_literal(suite, Library::Std, way, true, view_of, [search](std::string_view text) {
        const std::string_view wanted = planted_literal;
        return search(text, wanted);
    });
}

}  // namespace

void add_std_texts(Suite &suite) {
    const auto library = Library::Std;
    const auto utf8 = [](const std::string &text) { return std::string_view(text); };
    add_search(suite, "std::string::find",
               [](std::string_view text, std::string_view wanted) { return text.find(wanted); });
    add_search(suite, "std::boyer_moore_searcher", [](std::string_view text, std::string_view wanted) {
        return std::search(text.begin(), text.end(),
                           std::boyer_moore_searcher(wanted.begin(), wanted.end())) -
               text.begin();
    });
    add_find_in_names(suite, library, "std::string::find", view_of,
                      [](std::string_view name) { return name.find(name_part) != name.npos; });
    add_same(suite, library, "std::equal", view_of, same);
    add_split(
        suite, library, "a loop with std::string", view_of, split,
        [](const std::vector<std::string> &all) { return all.size(); },
        [](const std::vector<std::string> &all, std::size_t i) { return std::string_view(all[i]); });
    add_nth_word(suite, library, "a loop with std::string", view_of, nth_word, utf8);
    add_all_places(suite, library, "a loop with std::string", view_of, places, put_spans);
    add_replaces(suite, library, "a loop with std::string", view_of, replace, utf8);
    add_made_text(suite, "replace/segments", Letters::Ascii, library, "a loop with std::string", view_of,
                  replace_pieces, utf8);
    add_length(suite, library, "std::count_if", view_of, [](std::string_view text) {
        return std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; });
    });
    add_made_text(suite, "upper/ascii", Letters::Ascii, library, "std::transform", view_of, upper, utf8);
}

}  // namespace bench
