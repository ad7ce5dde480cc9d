// GLib: GRegex (with its optimization, which is PCRE2's JIT) and GPatternSpec.
#ifdef KELSTDMT_PEER_GLIB
#include <glib.h>

#include <memory>
#include <stdexcept>

#include "engines.h"

namespace bench {
namespace {

template <auto release>
struct Release {
    template <class T>
    void operator()(T *object) const {
        release(object);
    }
};
using Info = std::unique_ptr<GMatchInfo, Release<g_match_info_free>>;
using Bytes = std::unique_ptr<char, Release<g_free>>;

class Glib {
public:
    using Subject = std::string_view;
    static Subject subject(const std::string &text) { return text; }
    static constexpr Unit unit = Unit::Bytes;

    Glib(const std::string &pattern, bool ignore_case)
        : m_expression(g_regex_new(
              pattern.c_str(),
              static_cast<GRegexCompileFlags>(G_REGEX_OPTIMIZE | (ignore_case ? G_REGEX_CASELESS : 0)),
              GRegexMatchFlags(), nullptr)) {
        if (!m_expression) throw std::runtime_error("g_regex_new");
    }
    Answer find(Subject text, Span *spans, int count) {
        GError *error = nullptr;
        const Info info = match(text, &error);
        if (error) {
            g_error_free(error);
            return Answer::GaveUp;
        }
        if (!g_match_info_matches(info.get())) return Answer::None;
        for (int i = 0; i < count; ++i) {
            int begin = -1, end = -1;
            g_match_info_fetch_pos(info.get(), i, &begin, &end);
            spans[i] = {begin, end};
        }
        return Answer::Found;
    }
    Info match(Subject text, GError **error) {
        GMatchInfo *info = nullptr;
        g_regex_match_full(m_expression.get(), text.data(), static_cast<gssize>(text.size()), 0,
                           GRegexMatchFlags(), &info, error);
        return Info(info);
    }
    std::string_view expand(Subject line, Bytes &out) {
        const Info info = match(line, nullptr);
        out.reset(g_match_info_matches(info.get())
                      ? g_match_info_expand_references(info.get(), line_template, nullptr)
                      : nullptr);
        return out ? out.get() : "";
    }

private:
    std::unique_ptr<GRegex, Release<g_regex_unref>> m_expression;
};

void add_patterns(Suite &suite) {
    const auto library = Library::Glib;
    using Pattern = std::unique_ptr<GPatternSpec, Release<g_pattern_spec_free>>;
    for (const ShellRow &row : shell_rows) {
        if (row.ignore_case) continue;
        suite.add(row.name, library, "GPatternSpec", [&row](benchmark::State &state) {
            match_names<const char *>(
                state, row, [](const std::string &name) { return name.c_str(); },
                [](const ShellRow &shown) {
                    return [pattern = Pattern(g_pattern_spec_new(shown.pattern))](const char *name) {
                        return g_pattern_spec_match_string(pattern.get(), name) != FALSE;
                    };
                });
        });
    }
    suite.add("shell/explode", library, "GPatternSpec", [](benchmark::State &state) {
        const Pattern pattern(g_pattern_spec_new(shell_exploding));
        explode_shell(state, [&](const std::string &text) {
            return g_pattern_spec_match_string(pattern.get(), text.c_str()) != FALSE;
        });
    });
}

}  // namespace

void add_glib_expressions(Suite &suite) {
    const auto library = Library::Glib;
    add_engine<Glib>(suite, library, "GRegex");
    add_any_case<Glib>(suite, library, "GRegex");
    add_given_by_compiling<Glib>(suite, library, "GRegex");
    add_template<Glib>(suite, library, "g_match_info_expand_references", [] {
        return [engine = std::make_shared<Glib>(line_groups, false), out = std::make_shared<Bytes>()](
                   std::string_view line) { return engine->expand(line, *out); };
    });
    add_all<Glib>(
        suite, library, "g_match_info_next",
        [](std::string_view text, const char *pattern) {
            Glib engine(pattern, false);
            const Info info = engine.match(text, nullptr);
            std::vector<Span> all;
            while (g_match_info_matches(info.get())) {
                int begin = -1, end = -1;
                g_match_info_fetch_pos(info.get(), 0, &begin, &end);
                all.push_back({begin, end});
                g_match_info_next(info.get(), nullptr);
            }
            return all;
        },
        [](Digest &digest, const std::vector<Span> &all) {
            for (const Span &span : all)
                digest.add(span);
        });
    add_shell_by_expressions<Glib>(suite, library, "GRegex");
    add_patterns(suite);
}

}  // namespace bench
#endif
