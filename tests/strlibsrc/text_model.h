// What the tests of the string library share: a model that holds a text as a list of its characters, random
// texts, and copies that end where the sanitizers see a look beyond.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <cwchar>
#include <memory>
#include <vector>

#include <kelstdmt/strlib.h>

#include "../../fuzz/regexp_machines.h"
#include "other_locale.h"

namespace text_model {

using characters = std::vector<std::string>;

struct locale_scope {
    explicit locale_scope(const char *name) { EXPECT_TRUE(std::setlocale(LC_ALL, name)) << name; }
    ~locale_scope() { std::setlocale(LC_ALL, "C"); }
};

inline std::unique_ptr<char[]> exact(const std::string &text) {
    auto copy = std::make_unique<char[]>(text.size() + 1);
    std::memcpy(copy.get(), text.c_str(), text.size() + 1);
    return copy;
}

// Valid characters after mbrlen, single bytes otherwise.
inline characters decode(const std::string &text) {
    characters result;
    for (std::size_t at = 0; at < text.size(); at += result.back().size()) {
        std::mbstate_t state{};
        std::size_t bytes = MB_CUR_MAX == 1 ? 1 : std::mbrlen(text.c_str() + at, text.size() - at, &state);
        result.push_back(text.substr(at, bytes == 0 || bytes > 4 ? 1 : bytes));
    }
    return result;
}

inline std::string join(const characters &list, std::size_t from = 0, std::size_t to = std::string::npos) {
    std::string text;
    for (std::size_t i = from; i < std::min(to, list.size()); ++i)
        text += list[i];
    return text;
}

// A string with quotes, or "null".
inline std::string shown(const char *text) {
    return kel::is_text(text) ? "\"" + std::string(text) + "\"" : "null";
}
inline std::string shown(const std::string &text) {
    return shown(text.c_str());
}

inline std::string upper(std::string text) {
    for (char &byte : text)
        byte = static_cast<char>(std::toupper(static_cast<unsigned char>(byte)));
    return text;
}

struct chance {
    std::mt19937 engine;

    std::size_t below(std::size_t n) { return engine() % n; }
    // Few different characters, so that texts meet; valid ones of all lengths, broken and stray bytes.
    std::string text(std::size_t longest) {
        static const auto pieces =
            characters({"a", "b", "A", " ", " ", "\t", "\xC3\xA9", "\xC3\xA8", "\xE2\x82\xAC",
                        "\xF0\x9F\x98\x80", "\xC3", "\xE2\x82", "\x82", "\xAC", "\xFF"});
        // The library has its own ways with many bytes.
        return of(pieces, below(8) == 0 ? longest * 20 : longest);
    }
    std::string of(const characters &letters, std::size_t longest) {
        std::string result;
        for (std::size_t n = below(longest + 1); n > 0; --n)
            result += letters[below(letters.size())];
        return result;
    }
    // Within a text and beyond its ends, or unset.
    int position(std::size_t count) {
        return below(6) == 0 ? strUnsetPos : static_cast<int>(below(count + 4)) - 2;
    }
};

inline std::size_t clip(int given, std::size_t unset, std::size_t count) {
    if (given == strUnsetPos) return unset;
    return std::min(count, static_cast<std::size_t>(std::max(given, 0)));
}

// An encoding that only the C library knows, or null where there is none. Made once, because that takes time.
inline locale_t other_encoding() {
    static const locale_t made = [] {
        const other_locale set(testing::TempDir());
        return set ? duplocale(LC_GLOBAL_LOCALE) : locale_t();
    }();
    return made;
}

// Runs rounds with random texts in single bytes, in UTF-8 and in the other encoding.
template <class Round>
void in_all_encodings(int rounds, Round round) {
    const auto run = [&](const char *name) {
        chance random{std::mt19937(20)};
        for (int i = 0; i < rounds && !testing::Test::HasFailure(); ++i) {
            SCOPED_TRACE(std::string(name) + ", round " + std::to_string(i));
            round(random);
        }
    };
    run("single bytes");
    {
        locale_scope locale("C.UTF-8");
        run("UTF-8");
    }
    if (const locale_t other = other_encoding()) {
        uselocale(other);
        run("EUC");
        uselocale(LC_GLOBAL_LOCALE);
    }
}

}  // namespace text_model
