// The work of the regular expressions, written once for all engines. An engine is a type with
//
//     Engine(const std::string &pattern, bool ignore_case)   compiles, or throws a std::exception
//     Subject, subject(const std::string &)                  what it searches, made outside the measured time
//     Answer find(const Subject &, Span *spans, int count)   the first match and count - 1 groups
//     unit                                                   what its positions count
//     way                                                    its name in filters
//
// and, where it has them, expand(subject, out) and all(subject), in add_template and add_all.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "agree.h"
#include "cases.h"
#include "harness/attempt.h"
#include "harness/stopwatch.h"
#include "inputs.h"

namespace bench {

enum class Answer { Found, None, GaveUp };
enum class Unit { Bytes, Characters, Utf16 };

// The same place of a text, as an engine counts. Our texts have no characters beyond 16 bits.
inline Span in_unit(const std::string &text, Span bytes, Unit unit) {
    if (unit == Unit::Bytes) return bytes;
    const auto place = [&](std::ptrdiff_t at) {
        return static_cast<std::ptrdiff_t>(characters(text, static_cast<std::size_t>(at)));
    };
    return {place(bytes.begin), place(bytes.end)};
}

inline constexpr const char *line_words = "timeout|refused|retried";
inline constexpr const char *line_class = "took [0-9]+ ms";
inline constexpr const char *line_groups = "^([0-9-]+) ([0-9:.]+) ([A-Z]+) \\[([a-z.]+)\\] (.*)$";

// 150 words from `red0` on, then an address.
inline std::string large_pattern() {
    static constexpr const char *stems[] = {"red", "green", "blue", "grey", "white", "black"};
    std::string pattern = "(";
    for (int i = 0; i < 150; ++i)
        pattern += (i ? "|" : "") + std::string(stems[i % 6]) + std::to_string(i);
    return pattern + ") +[a-zA-Z0-9_.-]+@([a-z]+\\.)+(com|org|net)";
}

template <class Engine>
void compile(benchmark::State &state, const std::string &pattern) {
    for (auto _ : state) {
        Engine engine(pattern, false);
        benchmark::DoNotOptimize(engine);
    }
}

template <class Engine>
void find_planted(benchmark::State &state, const std::string &pattern, bool ignore_case, Letters letters,
                  const std::string &what) {
    const Planted planted = plant(letters, what);
    const auto subject = Engine::subject(planted.text);
    const Span expected = in_unit(planted.text, planted.place, Engine::unit);
    Engine engine(pattern, ignore_case);
    run_once(state, [&]() -> const char * {
        Span found;
        const Answer answer = engine.find(subject, &found, 1);
        if (answer == Answer::GaveUp) return "cannot: gives up";
        return answer == Answer::Found && found == expected ? nullptr : "does not find what was planted";
    });
}

// Patterns that a search by trial takes for ever over, or that recurse over the text. Compiling is part of
// the time.
template <class Engine>
void explode(benchmark::State &state, const std::string &pattern, const std::string &text, Span expected) {
    const auto subject = Engine::subject(text);
    Span found;
    bool found_all = true;
    const auto search = [&] {
        Engine engine(pattern, false);
        return engine.find(subject, &found, 1) == Answer::Found;
    };
    static std::vector<std::string> tried;
    const std::string name = pattern + std::to_string(text.size());
    if (std::find(tried.begin(), tried.end(), name) == tried.end()) {
        tried.push_back(name);
        if (const char *reason = attempt(2, search)) {
            state.SkipWithError(reason);
            return;
        }
    }
    run_once(state, [&]() -> const char * {
        const double seconds = seconds_of_repeated([&] { found_all &= search(); });
        state.counters[whole] = seconds * 1e9;
        if (!found_all) return "cannot: gives up";
        return found == expected ? nullptr : "finds another place";
    });
}

// Every line in turn until there were `count` searches.
template <class Engine, class Search>
void search_lines(benchmark::State &state, const std::string &row, std::size_t count, Search search) {
    std::vector<typename Engine::Subject> subjects;
    for (const std::string &line : log_lines())
        subjects.push_back(Engine::subject(line));
    run_once(state, [&]() -> const char * {
        Digest digest;
        time_phase(state, "a line", count, [&] {
            for (std::size_t done = 0; done < count; done += subjects.size())
                for (const auto &subject : subjects)
                    search(subject, digest);
        });
        return agree(row, digest);
    });
}

template <class Engine, int spans>
void find_in_lines(benchmark::State &state, const std::string &row, const std::string &pattern) {
    Engine engine(pattern, false);
    search_lines<Engine>(state, row, million, [&](const auto &subject, Digest &digest) {
        std::array<Span, spans> found;
        if (engine.find(subject, found.data(), spans) == Answer::Found)
            for (const Span &span : found)
                digest.add(span);
    });
}

// once(subject, span): a search with a pattern that is given as text and not kept.
template <class Engine, class Once>
void find_given(Suite &suite, Library library, const char *way, Once once) {
    suite.add("lines/given", library, way, [once](benchmark::State &state) {
        search_lines<Engine>(state, "lines/given", million / 10, [&](const auto &subject, Digest &digest) {
            Span found;
            if (once(subject, found)) digest.add(found);
        });
    });
}

// expand(subject, out): the text that line_template makes of a line by line_groups, as bytes of `out`.
inline constexpr const char *line_template = "\\3 \\4: \\5";
template <class Engine, class MakeExpand>
void add_template(Suite &suite, Library library, const char *way, MakeExpand make_expand) {
    suite.add("lines/template", library, way, [make_expand](benchmark::State &state) {
        auto expand = make_expand();
        search_lines<Engine>(state, "lines/template", million / 10,
                             [&](const auto &subject, Digest &digest) { digest.add(expand(subject)); });
    });
}

// all(subject, pattern): a list of all matches; span(element) is its Span.
template <class Engine, class All, class Put>
void add_all(Suite &suite, Library library, const char *way, All all, Put put) {
    suite.add("all/expression", library, way, [all, put](benchmark::State &state) {
        const auto subject = Engine::subject(words(Letters::Ascii));
        make_result(
            state, "all/expression", [&] { return all(subject, "[a-z]+ing"); }, put);
    });
}

template <class Engine>
void add_ends(Suite &suite, Library library, const char *way) {
    struct End {
        const char *name, *pattern, *planted;
    };
    static constexpr End ends[] = {{"literal", "needle in a haystack", "needle in a haystack"},
                                   {"class", "[0-9]+", "20461"},
                                   {"word", "[a-z]+[0-9]", "haystack7"},
                                   {"alternation", "Zanzibar|Quixote|Wyvern", "Quixote"},
                                   {"required", "[a-z]+@[a-z]+", "needle@haystack"}};
    for (Letters letters : {Letters::Ascii, Letters::Utf8})
        for (const End &end : ends)
            suite.add(std::string("end/") + (letters == Letters::Ascii ? "ascii/" : "utf8/") + end.name,
                      library, way, [letters, end](benchmark::State &state) {
                          find_planted<Engine>(state, end.pattern, false, letters, end.planted);
                      });
}

// By an engine that ignores case.
inline constexpr const char *any_case_pattern = "Needle In A Haystack",
                            *any_case_planted = "nEEdle iN a haystacK";
template <class Engine>
void add_any_case(Suite &suite, Library library, const char *way) {
    for (Letters letters : {Letters::Ascii, Letters::Utf8})
        suite.add(letters == Letters::Ascii ? "end/ascii/case" : "end/utf8/case", library, way,
                  [letters](benchmark::State &state) {
                      find_planted<Engine>(state, any_case_pattern, true, letters, any_case_planted);
                  });
}

template <class Engine>
void add_explosions(Suite &suite, Library library, const char *way) {
    for (std::ptrdiff_t length : {25, 1'000'000}) {
        const std::string size = length == 25 ? "" : "-long";
        const auto many = static_cast<std::size_t>(length);
        // What is found stands behind a run that leads nowhere.
        suite.add("explode/choice" + size, library, way, [=](benchmark::State &state) {
            explode<Engine>(state, "(a|a)*b", std::string(many, 'a') + "cab", {length + 1, length + 3});
        });
        suite.add("explode/nested" + size, library, way, [=](benchmark::State &state) {
            explode<Engine>(state, "(x+x+)+y", std::string(many, 'x') + "zxxy", {length + 1, length + 4});
        });
    }
    suite.add("explode/loop", library, way, [](benchmark::State &state) {
        const std::string &text = two_letters();
        explode<Engine>(state, "(a|b)*", text, {0, static_cast<std::ptrdiff_t>(text.size())});
    });
}

template <class Engine>
void add_lines(Suite &suite, Library library, const char *way) {
    suite.add("lines/words", library, way,
              [](benchmark::State &state) { find_in_lines<Engine, 1>(state, "lines/words", line_words); });
    suite.add("lines/class", library, way,
              [](benchmark::State &state) { find_in_lines<Engine, 1>(state, "lines/class", line_class); });
    suite.add("lines/groups", library, way,
              [](benchmark::State &state) { find_in_lines<Engine, 6>(state, "lines/groups", line_groups); });
}

// The rows that every engine has.
template <class Engine>
void add_engine(Suite &suite, Library library, const char *way) {
    suite.add("compile/simple", library, way,
              [](benchmark::State &state) { compile<Engine>(state, "error: [0-9]+"); });
    suite.add("compile/medium", library, way, [](benchmark::State &state) {
        compile<Engine>(state, "([a-z]+)://([^/:]+)(:[0-9]+)?(/[^ ]*)?");
    });
    suite.add("compile/large", library, way,
              [](benchmark::State &state) { compile<Engine>(state, large_pattern()); });
    add_ends<Engine>(suite, library, way);
    add_explosions<Engine>(suite, library, way);
    add_lines<Engine>(suite, library, way);
}

// For an engine whose users compile a pattern that they have as text, search and forget it.
template <class Engine>
void add_given_by_compiling(Suite &suite, Library library, const char *way) {
    find_given<Engine>(suite, library, way, [](const auto &subject, Span &found) {
        return Engine(line_class, false).find(subject, &found, 1) == Answer::Found;
    });
}

// Shell patterns -------------------------------------------------------------------------------------

struct ShellRow {
    const char *name, *pattern;
    bool ignore_case;
    const char *expression;  // the same for an engine that can do no shell patterns
};
inline constexpr ShellRow shell_rows[] = {
    {"shell/suffix", "*.txt", false, "^.*\\.txt$"},
    {"shell/middle", "lib*-?*.so*", false, "^lib.*-..*\\.so.*$"},
    {"shell/stars", "*a*e*o*", false, "^.*a.*e.*o.*$"},
    {"shell/case", "*.TXT", true, "^.*\\.TXT$"},
};
inline constexpr const char *shell_search = "re*o?t", *expression_search = "re.*?o.t";
inline constexpr const char *shell_exploding = "*a*a*a*a*a*a*a*a*b";

// match(subject) is made of a row and answers whether a name matches.
template <class Subject, class MakeSubject, class MakeMatch>
void match_names(benchmark::State &state, const ShellRow &row, MakeSubject make_subject,
                 MakeMatch make_match) {
    std::vector<Subject> subjects;
    for (const std::string &name : file_names())
        subjects.push_back(make_subject(name));
    auto match = make_match(row);
    run_once(state, [&]() -> const char * {
        Digest digest;
        std::size_t place = 0;
        time_phase(state, "a name", subjects.size(), [&] {
            for (const Subject &subject : subjects) {
                ++place;
                if (match(subject)) digest.add(place);
            }
        });
        return agree(row.name, digest);
    });
}

// match(subject) answers whether it matches the exploding pattern, which it does not.
template <class Match>
void explode_shell(benchmark::State &state, Match match) {
    const std::string text(60, 'a');
    const auto work = [&] { return !match(text); };
    if (const char *reason = attempt(2, work)) {
        state.SkipWithError(reason);
        return;
    }
    run_once(state, [&]() -> const char * {
        bool right = true;
        const double seconds = seconds_of_repeated([&] { right &= work(); });
        state.counters[whole] = seconds * 1e9;
        return right ? nullptr : "finds what is not there";
    });
}

// search(subject, span) answers whether and where the pattern is in a name.
template <class Engine, class Search>
void search_names(benchmark::State &state, Search search) {
    std::vector<typename Engine::Subject> subjects;
    for (const std::string &name : file_names())
        subjects.push_back(Engine::subject(name));
    run_once(state, [&]() -> const char * {
        std::vector<Span> found(subjects.size());
        time_phase(state, "a name", subjects.size(), [&] {
            for (std::size_t i = 0; i < subjects.size(); ++i)
                if (!search(subjects[i], found[i])) found[i] = {};
        });
        Digest digest;
        for (std::size_t i = 0; i < subjects.size(); ++i)
            digest.add(Engine::unit == Unit::Bytes && found[i].begin >= 0
                           ? in_unit(file_names()[i], found[i], Unit::Characters)
                           : found[i]);
        return agree("shell/search", digest);
    });
}

// The rows of shell patterns for an engine of expressions. Its compiled pattern is kept.
template <class Engine>
void add_shell_by_expressions(Suite &suite, Library library, const char *way) {
    for (const ShellRow &row : shell_rows)
        suite.add(row.name, library, way, [&row](benchmark::State &state) {
            match_names<typename Engine::Subject>(state, row, Engine::subject, [](const ShellRow &shown) {
                return [engine = Engine(shown.expression, shown.ignore_case)](const auto &subject) mutable {
                    Span found;
                    return engine.find(subject, &found, 1) == Answer::Found;
                };
            });
        });
    suite.add("shell/search", library, way, [](benchmark::State &state) {
        Engine engine(expression_search, false);
        search_names<Engine>(state, [&](const auto &subject, Span &found) {
            return engine.find(subject, &found, 1) == Answer::Found;
        });
    });
}

}  // namespace bench
