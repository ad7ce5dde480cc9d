// std::regex.
#include <memory>
#include <regex>

#include "engines.h"

namespace bench {
namespace {

class Std {
public:
    using Subject = std::string_view;
    static Subject subject(const std::string &text) { return text; }
    static constexpr Unit unit = Unit::Bytes;

    Std(const std::string &pattern, bool ignore_case)
        : m_expression(pattern, std::regex::ECMAScript | std::regex::optimize |
                                    (ignore_case ? std::regex::icase : std::regex::flag_type())) {}
    Answer find(Subject text, Span *spans, int count) {
        if (!std::regex_search(text.begin(), text.end(), m_match, m_expression)) return Answer::None;
        for (int i = 0; i < count; ++i) {
            const auto &group = m_match[static_cast<std::size_t>(i)];
            if (group.matched) spans[i] = {group.first - text.begin(), group.second - text.begin()};
        }
        return Answer::Found;
    }
    std::string_view expand(Subject line, std::string &out) {
        static const std::string format = "$3 $4: $5";
        out.clear();
        if (std::regex_search(line.begin(), line.end(), m_match, m_expression))
            m_match.format(std::back_inserter(out), format);
        return out;
    }
    const std::regex &expression() const { return m_expression; }

private:
    std::regex m_expression;
    std::match_results<std::string_view::const_iterator> m_match;
};

}  // namespace

void add_std_expressions(Suite &suite) {
    const auto library = Library::Std;
    add_engine<Std>(suite, library, "std::regex");
    add_any_case<Std>(suite, library, "std::regex");
    add_given_by_compiling<Std>(suite, library, "std::regex");
    add_template<Std>(suite, library, "std::match_results::format", [] {
        return [engine = std::make_shared<Std>(line_groups, false),
                out = std::string()](std::string_view line) mutable { return engine->expand(line, out); };
    });
    add_all<Std>(
        suite, library, "std::regex_iterator",
        [](std::string_view text, const char *pattern) {
            using Walk = std::regex_iterator<std::string_view::const_iterator>;
            Std engine(pattern, false);
            std::vector<Span> all;
            for (Walk walk(text.begin(), text.end(), engine.expression()), end; walk != end; ++walk)
                all.push_back({walk->position(), walk->position() + walk->length()});
            return all;
        },
        [](Digest &digest, const std::vector<Span> &all) {
            for (const Span &span : all)
                digest.add(span);
        });
}

}  // namespace bench
