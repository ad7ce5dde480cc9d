// Our expressions and shell patterns.
#include <kelstdmt/strlib.h>

#include <stdexcept>

#include "engines.h"

namespace bench {
namespace {

class Ours {
public:
    using Subject = const char *;
    // The texts outlive the measurements, or the text is kept.
    static Subject subject(const std::string &text) { return text.c_str(); }
    static constexpr Unit unit = Unit::Characters;

    Ours(const std::string &pattern, bool) : m_program(regcomp(pattern.c_str())) {
        if (!m_program) throw std::runtime_error("regcomp");
    }
    Answer find(const char *text, Span *spans, int count) {
        int start = 0, end = 0;
        if (!regexec(m_program.get(), text, start, end)) return Answer::None;
        spans[0] = {start, end};
        for (int i = 1; i < count; ++i)
            if (m_program->groupStart[i])
                spans[i] = {m_program->groupStart[i] - text, m_program->groupEnd[i] - text};
        return Answer::Found;
    }
    void expand(const char *format, char *out) { regsub(m_program.get(), format, out); }

private:
    kel::owned_regexp m_program;
};

void find_any_case(benchmark::State &state, Letters letters) {
    const Planted planted = plant(letters, any_case_planted);
    const Span expected = in_unit(planted.text, planted.place, Unit::Characters);
    run_once(state, [&]() -> const char * {
        int start = 0, end = 0;
        const bool found = strMatch(planted.text.c_str(), any_case_pattern, start, end, strLitIC);
        return found && Span{start, end} == expected ? nullptr : "does not find what was planted";
    });
}

}  // namespace

void add_ours_expressions(Suite &suite) {
    const auto ours = Library::Ours;
    add_engine<Ours>(suite, ours, "regexec");
    for (Letters letters : {Letters::Ascii, Letters::Utf8})
        suite.add(letters == Letters::Ascii ? "end/ascii/case" : "end/utf8/case", ours, "strMatch",
                  [letters](benchmark::State &state) { find_any_case(state, letters); });
    find_given<Ours>(suite, ours, "strMatch", [](const char *line, Span &found) {
        int start = 0, end = 0;
        const bool matches = strMatch(line, line_class, start, end, strRegExp);
        found = {start, end};
        return matches;
    });
    add_template<Ours>(suite, ours, "regsub", [] {
        return [engine = std::make_shared<Ours>(line_groups, false),
                out = std::array<char, 400>()](const char *line) mutable {
            Span found;
            out[0] = '\0';
            if (engine->find(line, &found, 1) == Answer::Found) engine->expand(line_template, out.data());
            return std::string_view(out.data());
        };
    });
    add_all<Ours>(
        suite, ours, "strMatchAll",
        [](const char *text, const char *pattern) {
            const auto deleter = [](strSegments *segments) {
                segments->delallsegs();
                delete segments;
            };
            return std::unique_ptr<strSegments, decltype(deleter)>(strMatchAll(text, pattern, strRegExp),
                                                                   deleter);
        },
        [](Digest &digest, const auto &segments) {
            for (int i = 0; i < segments->getarraysize(); ++i)
                digest.add(Span{segments->get(i)->getFrom(), segments->get(i)->getTo()});
        });

    for (const ShellRow &row : shell_rows)
        suite.add(row.name, ours, "strExactMatch", [&row](benchmark::State &state) {
            match_names<const char *>(state, row, Ours::subject, [](const ShellRow &shown) {
                return [&shown](const char *name) {
                    return strExactMatch(name, shown.pattern, shown.ignore_case ? strShellIC : strShell);
                };
            });
        });
    suite.add("shell/search", ours, "strMatch", [](benchmark::State &state) {
        search_names<Ours>(state, [](const char *name, Span &found) {
            int start = 0, end = 0;
            const bool matches = strMatch(name, shell_search, start, end, strShell);
            found = {start, end};
            return matches;
        });
    });
    suite.add("shell/explode", ours, "strExactMatch", [](benchmark::State &state) {
        explode_shell(state, [](const std::string &text) {
            return strExactMatch(text.c_str(), shell_exploding, strShell);
        });
    });
}

}  // namespace bench
