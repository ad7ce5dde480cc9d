// Our functions on texts.
#include <kelstdmt/strlib.h>

#include <memory>

#include "texts.h"

namespace bench {
namespace {

struct DeleteSegments {
    void operator()(strSegments *segments) const {
        segments->delallsegs();
        delete segments;
    }
};
using Segments = std::unique_ptr<strSegments, DeleteSegments>;

std::string_view utf8(const xstring &text) {
    return text.Str();
}

void add_segments(Suite &suite) {
    suite.add("replace/segments", Library::Ours, "strSubstitute", [](benchmark::State &state) {
        Segments segments(new strSegments);
        for (int i = 0; i < piece_count; ++i)
            segments->append(new strSegment(i * piece_distance, i * piece_distance + piece_length));
        const char *text = words(Letters::Ascii).c_str();
        make_result(
            state, "replace/segments", [&] { return strSubstitute(text, segments.get(), piece_text); },
            [&](Digest &digest, const xstring &result) { digest.add(utf8(result)); });
    });
}

}  // namespace

void add_ours_texts(Suite &suite) {
    const auto ours = Library::Ours;
    add_find_literal(suite, ours, "strMatchLit", false, pointer_of, [](const char *text) {
        int start = -1, end = -1;
        strMatchLit(text, planted_literal, start, end);
        return start;
    });
    add_find_in_names(suite, ours, "strMatchLit", pointer_of, [](const char *name) {
        int start = 0, end = 0;
        return strMatchLit(name, name_part, start, end);
    });
    add_same(suite, ours, "strExactMatch", pointer_of,
             [](const char *one, const char *other) { return strExactMatch(one, other, strLitIC); });
    add_same(suite, ours, "strCmp", pointer_of,
             [](const char *one, const char *other) { return strCmp(one, other, 1) == 0; });
    add_split(
        suite, ours, "strExplode", pointer_of,
        [](const char *text) { return xrchandle<xstringsequence>(strExplode(text, " ")); },
        [](const auto &all) { return static_cast<std::size_t>(all->getarraysize()); },
        [](const auto &all, std::size_t i) { return all->get(static_cast<int>(i)).Str(); });
    add_nth_word(
        suite, ours, "strWord", pointer_of, [](const char *line, int n) { return strWord(line, n, " "); },
        utf8);
    add_all_places(
        suite, ours, "strMatchAll", pointer_of,
        [](const char *text) { return Segments(strMatchAll(text, common_place, strLit)); },
        [](Digest &digest, const Segments &segments) {
            for (int i = 0; i < segments->getarraysize(); ++i)
                digest.add(Span{segments->get(i)->getFrom(), segments->get(i)->getTo()});
        });
    const auto replace = [](const char *text) { return strSubstitute(text, common_word, new_word, 0); };
    add_replace(suite, "replace/ascii", Letters::Ascii, ours, "strSubstitute", pointer_of, replace, utf8);
    add_replace(suite, "replace/utf8", Letters::Utf8, ours, "strSubstitute", pointer_of, replace, utf8);
    add_replace(
        suite, "replace/all", Letters::Ascii, ours, "strSubstituteAll", pointer_of,
        [](const char *text) { return strSubstituteAll(text, common_word, new_word, strLit); }, utf8);
    add_segments(suite);
    add_made_text(
        suite, "cut/utf8", Letters::Utf8, ours, "strSubstring", pointer_of,
        [](const char *text) { return strSubstring(text, cut_from, cut_to); }, utf8);
    add_length(suite, ours, "strLen", pointer_of, strLen);
    add_made_text(suite, "upper/ascii", Letters::Ascii, ours, "strUpper", pointer_of, strUpper, utf8);
}

}  // namespace bench
