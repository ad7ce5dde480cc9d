// The work on plain texts, written once for all libraries. A library brings functions; a text is whatever it
// works on, made of a std::string outside the measured time.
#pragma once

#include <benchmark/benchmark.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "agree.h"
#include "cases.h"
#include "harness/attempt.h"
#include "harness/stopwatch.h"
#include "inputs.h"

namespace bench {

inline constexpr const char *planted_literal = "needle in a haystack";
inline constexpr const char *common_word = "the", *new_word = "THAT", *common_place = " the ";
inline constexpr const char *name_part = "port-";

// find(text) answers where the literal begins: in bytes, or in characters.
template <class Text, class Find>
void find_literal(benchmark::State &state, Letters letters, bool in_bytes, Text text_of(const std::string &),
                  Find find) {
    const Planted planted = plant(letters, planted_literal);
    const Text text = text_of(planted.text);
    const auto begin = static_cast<std::size_t>(planted.place.begin);
    const std::size_t expected = in_bytes ? begin : characters(planted.text, begin);
    run_once(state, [&]() -> const char * {
        return static_cast<std::size_t>(find(text)) == expected ? nullptr : "does not find what was planted";
    });
}

template <class Text, class Find>
void add_find_literal(Suite &suite, Library library, const char *way, bool in_bytes,
                      Text text_of(const std::string &), Find find) {
    suite.add("find/ascii", library, way,
              [=](benchmark::State &state) { find_literal(state, Letters::Ascii, in_bytes, text_of, find); });
    suite.add("find/utf8", library, way,
              [=](benchmark::State &state) { find_literal(state, Letters::Utf8, in_bytes, text_of, find); });
}

// has(name) answers whether name_part is in it.
template <class Text, class Has>
void add_find_in_names(Suite &suite, Library library, const char *way, Text text_of(const std::string &),
                       Has has) {
    suite.add("find/names", library, way, [=](benchmark::State &state) {
        std::vector<Text> names;
        for (const std::string &name : file_names())
            names.push_back(text_of(name));
        run_once(state, [&]() -> const char * {
            Digest digest;
            std::size_t place = 0;
            time_phase(state, "a name", names.size(), [&] {
                for (const Text &name : names) {
                    ++place;
                    if (has(name)) digest.add(place);
                }
            });
            return agree("find/names", digest);
        });
    });
}

// A name, and the same with its ASCII letters in the other case; every second time with another end.
inline const std::vector<std::pair<std::string, std::string>> &name_pairs() {
    static const auto pairs = [] {
        std::vector<std::pair<std::string, std::string>> made;
        for (const std::string &name : file_names()) {
            std::string other = name;
            for (char &c : other)
                if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')) c = static_cast<char>(c ^ 0x20);
            if (made.size() % 2) other.back() = '!';
            made.emplace_back(name, other);
        }
        return made;
    }();
    return pairs;
}

// same(a, b) answers whether the two are equal in any case.
template <class Text, class Same>
void add_same(Suite &suite, Library library, const char *way, Text text_of(const std::string &), Same same) {
    suite.add("same/case", library, way, [=](benchmark::State &state) {
        std::vector<std::pair<Text, Text>> pairs;
        for (const auto &[one, other] : name_pairs())
            pairs.emplace_back(text_of(one), text_of(other));
        run_once(state, [&]() -> const char * {
            Digest digest;
            std::size_t place = 0;
            time_phase(state, "a name", pairs.size(), [&] {
                for (const auto &[one, other] : pairs) {
                    ++place;
                    if (same(one, other)) digest.add(place);
                }
            });
            return agree("same/case", digest);
        });
    });
}

// split(text) gives the words, count(words) how many, word(words, index) one as UTF-8.
template <class Text, class Split, class Count, class Word>
void add_split(Suite &suite, Library library, const char *way, Text text_of(const std::string &), Split split,
               Count count, Word word) {
    for (Letters letters : {Letters::Ascii, Letters::Utf8}) {
        const char *row = letters == Letters::Ascii ? "split/words" : "split/utf8";
        suite.add(row, library, way, [=](benchmark::State &state) {
            const Text text = text_of(words(letters));
            make_result(
                state, row, [&] { return split(text); },
                [&](Digest &digest, const auto &result) {
                    const std::size_t size = count(result);
                    digest.add(size);
                    for (std::size_t i = 0; i < size; i += 997)
                        digest.add(std::string_view(word(result, i)));
                });
        });
    }
}

// nth(text, index) gives one word, utf8(word) its bytes.
template <class Text, class Nth, class Utf8>
void add_nth_word(Suite &suite, Library library, const char *way, Text text_of(const std::string &), Nth nth,
                  Utf8 utf8) {
    suite.add("split/nth", library, way, [=](benchmark::State &state) {
        std::vector<Text> lines;
        for (const std::string &line : log_lines())
            lines.push_back(text_of(line));
        run_once(state, [&]() -> const char * {
            Digest digest;
            for (const Text &line : lines)
                digest.add(std::string_view(utf8(nth(line, 5))));
            time_phase(state, "a line", million, [&] {
                for (std::size_t done = 0; done < million; done += lines.size())
                    for (const Text &line : lines)
                        benchmark::DoNotOptimize(nth(line, 5));
            });
            return agree("split/nth", digest);
        });
    });
    suite.add("split/last", library, way, [=](benchmark::State &state) {
        const Text text = text_of(words(Letters::Ascii));
        const int last = static_cast<int>(word_count(Letters::Ascii)) - 1;
        make_result(
            state, "split/last", [&] { return nth(text, last); },
            [&](Digest &digest, const auto &word) { digest.add(std::string_view(utf8(word))); });
    });
}

// all(text) gives the places of common_place, put(digest, places) their bytes or characters.
template <class Text, class All, class Put>
void add_all_places(Suite &suite, Library library, const char *way, Text text_of(const std::string &),
                    All all, Put put) {
    suite.add("all/literal", library, way, [=](benchmark::State &state) {
        const Text text = text_of(words(Letters::Ascii));
        make_result(
            state, "all/literal", [&] { return all(text); }, put);
    });
}

inline void put_spans(Digest &digest, const std::vector<Span> &spans) {
    for (const Span &span : spans)
        digest.add(span);
}

// The row is one of those of replacing; replace(text) gives the text with new_word for each common_word.
// `risky`: it may take for ever.
template <class Text, class Replace, class Utf8>
void add_replace(Suite &suite, const char *row, Letters letters, Library library, const char *way,
                 Text text_of(const std::string &), Replace replace, Utf8 utf8, bool risky = false) {
    suite.add(row, library, way, [=](benchmark::State &state) {
        const Text text = text_of(prose(letters));
        if (risky)
            if (const char *reason = attempt(2, [&] { return !utf8(replace(text)).empty(); })) {
                state.SkipWithError(reason);
                return;
            }
        make_result(
            state, row, [&] { return replace(text); },
            [&](Digest &digest, const auto &result) { digest.add(std::string_view(utf8(result))); });
    });
}

template <class Text, class Replace, class Utf8>
void add_replaces(Suite &suite, Library library, const char *way, Text text_of(const std::string &),
                  Replace replace, Utf8 utf8, bool risky = false) {
    add_replace(suite, "replace/ascii", Letters::Ascii, library, way, text_of, replace, utf8, risky);
    add_replace(suite, "replace/utf8", Letters::Utf8, library, way, text_of, replace, utf8, risky);
    add_replace(suite, "replace/all", Letters::Ascii, library, way, text_of, replace, utf8, risky);
}

// 10,000 pieces of seven characters, and what stands for each of them.
inline constexpr int piece_count = 10'000, piece_distance = 1'000, piece_length = 7;
inline constexpr const char *piece_text = "[redacted]";

// About the middle third of 10 MB of UTF-8, in characters.
inline constexpr int cut_from = 2'000'000, cut_to = 4'000'000;

// Any other row that makes a text of a text.
template <class Text, class Work, class Utf8>
void add_made_text(Suite &suite, const char *row, Letters letters, Library library, const char *way,
                   Text text_of(const std::string &), Work work, Utf8 utf8) {
    suite.add(row, library, way, [=](benchmark::State &state) {
        const Text text = text_of(words(letters));
        make_result(
            state, row, [&] { return work(text); },
            [&](Digest &digest, const auto &result) { digest.add(std::string_view(utf8(result))); });
    });
}

// length(text) in characters.
template <class Text, class Length>
void add_length(Suite &suite, Library library, const char *way, Text text_of(const std::string &),
                Length length) {
    for (Letters letters : {Letters::Ascii, Letters::Utf8})
        suite.add(letters == Letters::Ascii ? "length/ascii" : "length/utf8", library, way,
                  [=](benchmark::State &state) {
                      const Text text = text_of(prose(letters));
                      const std::size_t expected = characters(prose(letters), prose(letters).size());
                      run_once(state, [&]() -> const char * {
                          return static_cast<std::size_t>(length(text)) == expected ? nullptr
                                                                                    : "counts otherwise";
                      });
                  });
}

// The texts of libraries that read a std::string where it lies.
inline const char *pointer_of(const std::string &text) {
    return text.c_str();
}
inline std::string_view view_of(const std::string &text) {
    return text;
}

}  // namespace bench
