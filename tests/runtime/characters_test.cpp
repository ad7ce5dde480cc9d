// Where characters begin, against the C library's mbrlen: long texts in which sequences lie across the words
// that are read at once, every mixture of the bytes at a border of what UTF-8 allows, and an encoding of two
// bytes.
#include "strlibsrc/text_model.h"

namespace {

using Pieces = std::vector<std::string>;

// The beginnings of characters and the end. Four bytes at most are a character.
std::vector<std::size_t> starts(const char *text, std::size_t size) {
    std::vector<std::size_t> result{0};
    for (std::size_t at = 0; at < size;) {
        std::mbstate_t state{};
        const std::size_t left = std::min<std::size_t>(size - at, 4);
        const std::size_t used = std::mbrlen(text + at, left, &state);
        at += used == 0 || used > left ? 1 : used;
        result.push_back(at);
    }
    return result;
}

std::string random_text(std::mt19937 &random, const Pieces &pieces) {
    std::string text;
    const std::size_t size = random() % 200;
    while (text.size() < size) {
        const std::string &piece = pieces[random() % pieces.size()];
        for (std::size_t n = random() % 4 ? 1 : random() % 24; n > 0; --n)
            text += piece;
    }
    for (std::size_t n = random() % 3; n > 0 && !text.empty(); --n)
        text[random() % text.size()] = static_cast<char>(random() % 255 + 1);
    return text;
}

// Every position of texts that lie on the heap without a byte behind their terminators.
void expect_same(const Pieces &pieces) {
    std::mt19937 random(2026);
    for (int round = 0; round < 3000; ++round) {
        const std::string text = random_text(random, pieces);
        const auto copy = text_model::exact(text);
        const auto at = starts(copy.get(), text.size());
        ASSERT_EQ(Strlen(copy.get()), at.size() - 1) << testing::PrintToString(text);
        for (std::size_t n = 0; n <= at.size(); ++n)
            ASSERT_EQ(stringAfterCHars(copy.get(), static_cast<unsigned>(n)) - copy.get(),
                      static_cast<std::ptrdiff_t>(n < at.size() ? at[n] : text.size()))
                << "character " << n << " of " << testing::PrintToString(text);
    }
}

TEST(Characters, BeginWhereTheLibrarySays) {
    Pieces borders;
    for (const char byte :
         std::string_view("\x01\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xC1\xC2\xDF\xE0\xE1\xEC\xED\xEE"
                          "\xEF\xF0\xF1\xF3\xF4\xF5\xF7\xF8\xFF"))
        borders.emplace_back(1, byte);
    for (const char *name : {"C", "C.UTF-8"}) {
        const text_model::locale_scope locale(name);
        expect_same({"plain", "\xC3\xA9", "\xE2\x82\xAC", "\xED\x9F\xBF", "\xEE\x80\x80", "\xE0\xA0\x80",
                     "\xF0\x90\x80\x80", "\xF0\x9F\x98\x80", "\xED\xA0\x80", "\xE0\x9F\xBF",
                     "\xF0\x8F\xBF\xBF"});
        expect_same(borders);
    }
    const other_locale locale(testing::TempDir());
    if (!locale) GTEST_SKIP() << "no localedef, or it cannot make this locale";
    expect_same({"plain", "\xA4\xA2", "\x8F\xB0\xA1", "\x8E\xB1"});
}

}  // namespace
