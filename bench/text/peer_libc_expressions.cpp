// The C library's expressions and fnmatch. Its functions have the names of ours, but with C linkage and other
// parameters; no unit sees both.
#include <fnmatch.h>
#include <regex.h>

#include <memory>
#include <stdexcept>

#include "engines.h"

namespace bench {
namespace {

class Posix {
public:
    using Subject = const char *;
    static Subject subject(const std::string &text) { return text.c_str(); }
    static constexpr Unit unit = Unit::Bytes;

    Posix(const std::string &pattern, bool ignore_case) {
        if (::regcomp(&m_expression, pattern.c_str(), REG_EXTENDED | (ignore_case ? REG_ICASE : 0)) != 0)
            throw std::runtime_error("regcomp");
    }
    ~Posix() { regfree(&m_expression); }
    Posix(const Posix &) = delete;
    Posix &operator=(const Posix &) = delete;

    Answer find(const char *text, Span *spans, int count) {
        std::array<regmatch_t, 10> groups;
        const int answer = ::regexec(&m_expression, text, static_cast<std::size_t>(count), groups.data(), 0);
        if (answer != 0) return answer == REG_NOMATCH ? Answer::None : Answer::GaveUp;
        for (int i = 0; i < count; ++i)
            spans[i] = {groups[static_cast<std::size_t>(i)].rm_so, groups[static_cast<std::size_t>(i)].rm_eo};
        return Answer::Found;
    }

private:
    regex_t m_expression;
};

}  // namespace

void add_libc_expressions(Suite &suite) {
    const auto library = Library::Libc;
    add_engine<Posix>(suite, library, "POSIX regexec");
    add_any_case<Posix>(suite, library, "POSIX regexec");
    add_given_by_compiling<Posix>(suite, library, "POSIX regexec");
    for (const ShellRow &row : shell_rows)
        suite.add(row.name, library, "fnmatch", [&row](benchmark::State &state) {
            match_names<const char *>(state, row, Posix::subject, [](const ShellRow &shown) {
                return [&shown](const char *name) {
                    return fnmatch(shown.pattern, name, shown.ignore_case ? FNM_CASEFOLD : 0) == 0;
                };
            });
        });
    suite.add("shell/explode", library, "fnmatch", [](benchmark::State &state) {
        explode_shell(state,
                      [](const std::string &text) { return fnmatch(shell_exploding, text.c_str(), 0) == 0; });
    });
}

}  // namespace bench
