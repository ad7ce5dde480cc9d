// Where characters begin, against the C library's mbrlen: every combination of bytes that matters to UTF-8,
// long texts in which sequences lie across the words that are read at once, and an encoding of two bytes.
#include "strlibsrc/text_model.h"

namespace {

class characters : public testing::Test {
protected:
    void TearDown() override { std::setlocale(LC_ALL, "C"); }

    // The beginnings of characters and the end. Four bytes at most are a character.
    static std::vector<std::size_t> starts(const char *text, std::size_t size) {
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

    // Every position of a text that lies on the heap without a byte behind its terminator.
    static void expect_same(const std::string &text) {
        const auto copy = text_model::exact(text);
        const auto at = starts(copy.get(), text.size());
        ASSERT_EQ(Strlen(copy.get()), at.size() - 1) << testing::PrintToString(text);
        for (std::size_t n = 0; n <= at.size(); ++n)
            ASSERT_EQ(stringAfterCHars(copy.get(), static_cast<unsigned>(n)) - copy.get(),
                      static_cast<std::ptrdiff_t>(n < at.size() ? at[n] : text.size()))
                << "character " << n << " of " << testing::PrintToString(text);
    }

    static std::string random_text(std::mt19937 &random, const std::vector<std::string> &pieces) {
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
};

TEST_F(characters, EverySequenceOfBytes) {
    ASSERT_TRUE(std::setlocale(LC_ALL, "C.UTF-8"));
    // Both sides of every border that a byte behind the second may have, and the beginning of another one.
    const unsigned char later[] = {0x01, 0x7F, 0x80, 0xBF, 0xC0, 0xE2, 0xF8};
    char text[6] = {};
    for (unsigned first = 1; first < 256; ++first)
        for (unsigned second = 1; second < 256; ++second)
            for (unsigned char third : later)
                for (unsigned char fourth : later) {
                    if (first < 0x80 && (third != 0x80 || fourth != 0x80)) continue;
                    const unsigned char bytes[] = {static_cast<unsigned char>(first),
                                                   static_cast<unsigned char>(second), third, fourth, 0x80};
                    std::memcpy(text, bytes, sizeof bytes);
                    for (std::size_t size = 5; size > 0; text[--size] = 0) {
                        if (size < 5 && fourth != 0x80) break;  // the cut ones are the same
                        const auto at = starts(text, size);
                        ASSERT_EQ(Strlen(text), at.size() - 1)
                            << testing::PrintToString(std::string(text, size));
                        ASSERT_EQ(stringAfterCHars(text, 1) - text, static_cast<std::ptrdiff_t>(at[1]))
                            << testing::PrintToString(std::string(text, size));
                    }
                }
}

TEST_F(characters, LongTexts) {
    std::mt19937 random(2026);
    for (const char *name : {"C", "C.UTF-8"}) {
        ASSERT_TRUE(std::setlocale(LC_ALL, name));
        for (int round = 0; round < 3000; ++round)
            expect_same(
                random_text(random, {"plain", "\xC3\xA9", "\xE2\x82\xAC", "\xED\x9F\xBF", "\xEE\x80\x80",
                                     "\xE0\xA0\x80", "\xF0\x90\x80\x80", "\xF0\x9F\x98\x80"}));
    }
}

TEST_F(characters, AnEncodingThatOnlyTheLibraryKnows) {
    const other_locale locale(testing::TempDir());
    if (!locale) GTEST_SKIP() << "no localedef, or it cannot make this locale";
    EXPECT_EQ(Strlen("a\xA4\xA2\x8F\xB0\xA1\xFFz"), 5U)
        << "characters of two and three bytes, and a stray one";
    std::mt19937 random(2026);
    for (int round = 0; round < 1000; ++round)
        expect_same(random_text(random, {"plain", "\xA4\xA2", "\x8F\xB0\xA1", "\x8E\xB1"}));
}

}  // namespace
