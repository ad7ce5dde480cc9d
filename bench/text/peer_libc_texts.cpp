// The C library on texts.
#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "texts.h"

namespace bench {
namespace {

struct Free {
    void operator()(char *text) const { std::free(text); }
};
using Text = std::unique_ptr<char, Free>;

std::string_view utf8(const Text &text) {
    return text.get();
}

Text nth_word(const char *text, int n) {
    for (; n > 0 && (text = std::strchr(text, ' ')); --n)
        ++text;
    const char *end = text ? std::strchr(text, ' ') : nullptr;
    return Text(!text ? nullptr : end ? strndup(text, static_cast<std::size_t>(end - text)) : strdup(text));
}

std::vector<Span> places(const char *text) {
    std::vector<Span> all;
    const auto length = static_cast<std::ptrdiff_t>(std::strlen(common_place));
    for (const char *at = text; (at = std::strstr(at, common_place)); at += length)
        all.push_back({at - text, at - text + length});
    return all;
}

}  // namespace

void add_libc_texts(Suite &suite) {
    const auto library = Library::Libc;
    add_find_literal(suite, library, "strstr", true, pointer_of,
                     [](const char *text) { return std::strstr(text, planted_literal) - text; });
    add_find_literal(suite, library, "memmem", true, view_of, [](std::string_view text) {
        const std::string_view wanted = planted_literal;
        const void *at = memmem(text.data(), text.size(), wanted.data(), wanted.size());
        return static_cast<const char *>(at) - text.data();
    });
    add_find_in_names(suite, library, "strstr", pointer_of,
                      [](const char *name) { return std::strstr(name, name_part) != nullptr; });
    add_same(suite, library, "strcasecmp", pointer_of,
             [](const char *one, const char *other) { return strcasecmp(one, other) == 0; });
    add_nth_word(suite, library, "a loop with strchr", pointer_of, nth_word, utf8);
    add_all_places(suite, library, "a loop with strstr", pointer_of, places, put_spans);
    add_length(suite, library, "mbstowcs", pointer_of,
               [](const char *text) { return std::mbstowcs(nullptr, text, 0); });
}

}  // namespace bench
