// Qt 5: QRegularExpression, which is PCRE2 with its JIT on texts of 16-bit units.
#ifdef KELSTDMT_PEER_QT
#include <QRegularExpression>
#include <QString>
#include <memory>
#include <stdexcept>

#include "engines.h"

namespace bench {
namespace {

QString wide(const std::string &text) {
    return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

class QtExpression {
public:
    using Subject = QString;
    static Subject subject(const std::string &text) { return wide(text); }
    static constexpr Unit unit = Unit::Utf16;

    QtExpression(const std::string &pattern, bool ignore_case)
        : m_expression(wide(pattern), ignore_case ? QRegularExpression::CaseInsensitiveOption
                                                  : QRegularExpression::NoPatternOption) {
        m_expression.optimize();
        if (!m_expression.isValid()) throw std::runtime_error("QRegularExpression");
    }
    Answer find(const QString &text, Span *spans, int count) {
        const QRegularExpressionMatch match = m_expression.match(text);
        if (!match.isValid()) return Answer::GaveUp;
        if (!match.hasMatch()) return Answer::None;
        for (int i = 0; i < count; ++i)
            spans[i] = {match.capturedStart(i), match.capturedEnd(i)};
        return Answer::Found;
    }
    const QRegularExpression &expression() const { return m_expression; }

private:
    QRegularExpression m_expression;
};

void add_wildcards(Suite &suite) {
    for (const ShellRow &row : shell_rows)
        suite.add(row.name, Library::Qt, "wildcardToRegularExpression", [&row](benchmark::State &state) {
            match_names<QString>(state, row, wide, [](const ShellRow &shown) {
                const QString pattern = QRegularExpression::wildcardToRegularExpression(shown.pattern);
                return [engine = QtExpression(pattern.toStdString(), shown.ignore_case)](
                           const QString &name) mutable {
                    Span found;
                    return engine.find(name, &found, 1) == Answer::Found;
                };
            });
        });
}

}  // namespace

void add_qt_expressions(Suite &suite) {
    const auto library = Library::Qt;
    add_engine<QtExpression>(suite, library, "QRegularExpression");
    add_any_case<QtExpression>(suite, library, "QRegularExpression");
    find_given<QtExpression>(suite, library, "QRegularExpression", [](const QString &line, Span &found) {
        const QRegularExpressionMatch match = QRegularExpression(line_class).match(line);
        found = {match.capturedStart(), match.capturedEnd()};
        return match.hasMatch();
    });
    add_all<QtExpression>(
        suite, library, "QRegularExpression::globalMatch",
        [](const QString &text, const char *pattern) {
            QtExpression engine(pattern, false);
            std::vector<Span> all;
            for (QRegularExpressionMatchIterator walk = engine.expression().globalMatch(text);
                 walk.hasNext();) {
                const QRegularExpressionMatch match = walk.next();
                all.push_back({match.capturedStart(), match.capturedEnd()});
            }
            return all;
        },
        [](Digest &digest, const std::vector<Span> &all) {
            for (const Span &span : all)
                digest.add(span);
        });
    add_wildcards(suite);
    suite.add("shell/search", library, "QRegularExpression", [](benchmark::State &state) {
        QtExpression engine(expression_search, false);
        search_names<QtExpression>(state, [&](const QString &name, Span &found) {
            return engine.find(name, &found, 1) == Answer::Found;
        });
    });
}

}  // namespace bench
#endif
