// GLib on texts.
#ifdef KELSTDMT_PEER_GLIB
#include <glib.h>

#include <cstring>
#include <memory>

#include "texts.h"

namespace bench {
namespace {

template <auto release>
struct Release {
    template <class T>
    void operator()(T *object) const {
        release(object);
    }
};
using Text = std::unique_ptr<char, Release<g_free>>;
using List = std::unique_ptr<char *, Release<g_strfreev>>;

std::string_view utf8(const Text &text) {
    return text.get();
}

Text nth_word(const char *text, int n) {
    const List all(g_strsplit(text, " ", n + 2));
    return Text(g_strdup(all.get()[n]));
}

std::vector<Span> places(std::string_view text) {
    std::vector<Span> all;
    const auto length = static_cast<std::ptrdiff_t>(std::strlen(common_place));
    const char *end = text.data() + text.size();
    for (const char *at = text.data(); (at = g_strstr_len(at, end - at, common_place)); at += length)
        all.push_back({at - text.data(), at - text.data() + length});
    return all;
}

Text replace_by_splitting(const char *text) {
    const List all(g_strsplit(text, common_word, -1));
    return Text(g_strjoinv(new_word, all.get()));
}

Text replace(const char *text) {
    GString *made = g_string_new(text);
    g_string_replace(made, common_word, new_word, 0);
    return Text(g_string_free(made, FALSE));
}

Text replace_pieces(std::string_view text) {
    GString *made = g_string_sized_new(text.size());
    std::size_t begin = 0;
    for (std::size_t i = 0; i < piece_count; ++i) {
        g_string_append_len(made, text.data() + begin, static_cast<gssize>(i * piece_distance - begin));
        g_string_append(made, piece_text);
        begin = i * piece_distance + piece_length;
    }
    g_string_append_len(made, text.data() + begin, static_cast<gssize>(text.size() - begin));
    return Text(g_string_free(made, FALSE));
}

bool same(const char *one, const char *other) {
    const Text first(g_utf8_casefold(one, -1)), second(g_utf8_casefold(other, -1));
    return std::strcmp(first.get(), second.get()) == 0;
}

}  // namespace

void add_glib_texts(Suite &suite) {
    const auto library = Library::Glib;
    add_find_literal(suite, library, "g_strstr_len", true, view_of, [](std::string_view text) {
        return g_strstr_len(text.data(), static_cast<gssize>(text.size()), planted_literal) - text.data();
    });
    add_find_in_names(suite, library, "g_strstr_len", pointer_of,
                      [](const char *name) { return g_strstr_len(name, -1, name_part) != nullptr; });
    add_same(suite, library, "g_ascii_strcasecmp", pointer_of,
             [](const char *one, const char *other) { return g_ascii_strcasecmp(one, other) == 0; });
    add_same(suite, library, "g_utf8_casefold", pointer_of, same);
    add_split(
        suite, library, "g_strsplit", pointer_of,
        [](const char *text) { return List(g_strsplit(text, " ", -1)); },
        [](const List &all) { return std::size_t{g_strv_length(all.get())}; },
        [](const List &all, std::size_t i) { return std::string_view(all.get()[i]); });
    add_nth_word(suite, library, "g_strsplit", pointer_of, nth_word, utf8);
    add_all_places(suite, library, "a loop with g_strstr_len", view_of, places, put_spans);
    add_replaces(suite, library, "g_strsplit and g_strjoinv", pointer_of, replace_by_splitting, utf8);
    add_replaces(suite, library, "g_string_replace", pointer_of, replace, utf8, true);
    add_made_text(suite, "replace/segments", Letters::Ascii, library, "a loop with GString", view_of,
                  replace_pieces, utf8);
    add_made_text(
        suite, "cut/utf8", Letters::Utf8, library, "g_utf8_substring", pointer_of,
        [](const char *text) { return Text(g_utf8_substring(text, cut_from, cut_to)); }, utf8);
    add_length(suite, library, "g_utf8_strlen", view_of, [](std::string_view text) {
        return g_utf8_strlen(text.data(), static_cast<gssize>(text.size()));
    });
    add_made_text(
        suite, "upper/ascii", Letters::Ascii, library, "g_ascii_strup", pointer_of,
        [](const char *text) { return Text(g_ascii_strup(text, -1)); }, utf8);
    add_made_text(
        suite, "upper/ascii", Letters::Ascii, library, "g_utf8_strup", pointer_of,
        [](const char *text) { return Text(g_utf8_strup(text, -1)); }, utf8);
}

}  // namespace bench
#endif
