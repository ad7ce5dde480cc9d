// RE2.
#ifdef KELSTDMT_PEER_RE2
#include <re2/re2.h>

#include <memory>
#include <stdexcept>

#include "engines.h"

namespace bench {
namespace {

using re2::StringPiece;

class Re2 {
public:
    using Subject = StringPiece;
    static Subject subject(const std::string &text) { return StringPiece(text.data(), text.size()); }
    static constexpr Unit unit = Unit::Bytes;

    Re2(const std::string &pattern, bool ignore_case) {
        RE2::Options options(RE2::Quiet);
        options.set_case_sensitive(!ignore_case);
        m_expression = std::make_unique<RE2>(pattern, options);
        if (!m_expression->ok()) throw std::runtime_error(m_expression->error());
    }
    Answer find(const StringPiece &text, Span *spans, int count) { return find(text, 0, spans, count); }
    Answer find(const StringPiece &text, std::size_t from, Span *spans, int count) {
        std::array<StringPiece, 10> groups;
        if (!m_expression->Match(text, from, text.size(), RE2::UNANCHORED, groups.data(), count))
            return Answer::None;
        for (int i = 0; i < count; ++i) {
            const StringPiece &group = groups[static_cast<std::size_t>(i)];
            if (group.data())
                spans[i] = {group.data() - text.data(), group.data() + group.size() - text.data()};
        }
        return Answer::Found;
    }
    // The text of a line by line_template.
    std::string_view expand(const StringPiece &line, std::string &out) {
        std::array<StringPiece, 6> groups;
        out.clear();
        if (m_expression->Match(line, 0, line.size(), RE2::UNANCHORED, groups.data(), 6))
            m_expression->Rewrite(&out, line_template, groups.data(), 6);
        return out;
    }

private:
    std::unique_ptr<RE2> m_expression;
};

std::vector<Span> find_all(const StringPiece &text, const char *pattern) {
    Re2 engine(pattern, false);
    std::vector<Span> all;
    Span found;
    for (std::size_t from = 0; engine.find(text, from, &found, 1) == Answer::Found;) {
        all.push_back(found);
        from = static_cast<std::size_t>(found.end);
    }
    return all;
}

}  // namespace

void add_re2(Suite &suite) {
    const auto re2 = Library::Re2;
    add_engine<Re2>(suite, re2, "RE2");
    add_any_case<Re2>(suite, re2, "RE2");
    add_given_by_compiling<Re2>(suite, re2, "RE2");
    add_template<Re2>(suite, re2, "RE2::Rewrite", [] {
        return [engine = std::make_shared<Re2>(line_groups, false),
                out = std::string()](const StringPiece &line) mutable { return engine->expand(line, out); };
    });
    add_all<Re2>(suite, re2, "RE2", find_all, [](Digest &digest, const std::vector<Span> &all) {
        for (const Span &span : all)
            digest.add(span);
    });
    add_shell_by_expressions<Re2>(suite, re2, "RE2");
    suite.add("shell/explode", re2, "RE2", [](benchmark::State &state) {
        Re2 engine("^.*a.*a.*a.*a.*a.*a.*a.*a.*b$", false);
        Span found;
        explode_shell(state, [&](const std::string &text) {
            return engine.find(Re2::subject(text), &found, 1) == Answer::Found;
        });
    });
}

}  // namespace bench
#endif
