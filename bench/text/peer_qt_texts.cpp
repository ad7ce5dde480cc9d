// Qt 5: QString, whose texts are 16-bit units.
#ifdef KELSTDMT_PEER_QT
#include <QString>
#include <QStringList>

#include "texts.h"

namespace bench {
namespace {

QString wide(const std::string &text) {
    return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}
std::string utf8(const QString &text) {
    return text.toStdString();
}

std::vector<Span> places(const QString &text) {
    static const QString wanted = common_place;
    std::vector<Span> all;
    for (int at = 0; (at = text.indexOf(wanted, at)) >= 0; at += wanted.size())
        all.push_back({at, at + wanted.size()});
    return all;
}

QString replace(const QString &text) {
    return QString(text).replace(QString(common_word), QString(new_word));
}

QString replace_pieces(const QString &text) {
    const QString piece = piece_text;
    QString made;
    made.reserve(text.size());
    int begin = 0;
    for (int i = 0; i < piece_count; ++i) {
        made.append(text.midRef(begin, i * piece_distance - begin)).append(piece);
        begin = i * piece_distance + piece_length;
    }
    return made.append(text.midRef(begin));
}

}  // namespace

void add_qt_texts(Suite &suite) {
    const auto library = Library::Qt;
    add_find_literal(
        suite, library, "QString::indexOf", false, wide,
        [wanted = QString(planted_literal)](const QString &text) { return text.indexOf(wanted); });
    add_find_in_names(suite, library, "QString::contains", wide,
                      [wanted = QString(name_part)](const QString &name) { return name.contains(wanted); });
    add_same(suite, library, "QString::compare", wide, [](const QString &one, const QString &other) {
        return one.compare(other, Qt::CaseInsensitive) == 0;
    });
    add_split(
        suite, library, "QString::split", wide, [](const QString &text) { return text.split(' '); },
        [](const QStringList &all) { return static_cast<std::size_t>(all.size()); },
        [](const QStringList &all, std::size_t i) { return utf8(all[static_cast<int>(i)]); });
    add_nth_word(
        suite, library, "QString::section", wide,
        [](const QString &text, int n) { return text.section(' ', n, n); }, utf8);
    add_all_places(suite, library, "a loop with indexOf", wide, places, put_spans);
    add_replaces(suite, library, "QString::replace", wide, replace, utf8);
    add_made_text(suite, "replace/segments", Letters::Ascii, library, "a loop with QString", wide,
                  replace_pieces, utf8);
    add_made_text(
        suite, "cut/utf8", Letters::Utf8, library, "QString::mid", wide,
        [](const QString &text) { return text.mid(cut_from, cut_to - cut_from); }, utf8);
    add_made_text(
        suite, "upper/ascii", Letters::Ascii, library, "QString::toUpper", wide,
        [](const QString &text) { return text.toUpper(); }, utf8);
}

}  // namespace bench
#endif
