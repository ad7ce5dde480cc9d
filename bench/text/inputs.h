// What is searched, split and replaced: the same for every library, made from fixed seeds.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace bench {

inline constexpr std::size_t million = 1'000'000;

// Where something lies in a text; in bytes unless a library counts otherwise. -1: nowhere.
struct Span {
    std::ptrdiff_t begin = -1, end = -1;
    bool operator==(const Span &) const = default;
};

enum class Letters { Ascii, Utf8 };

// 10 MB of words of lower-case letters, single blanks between them and a line end about every 70 bytes. Utf8:
// more than half of the words have letters of two and three bytes.
const std::string &prose(Letters letters);
// The same on one line.
const std::string &words(Letters letters);
std::size_t word_count(Letters letters);

// Prose with something at its end that occurs nowhere else in it.
struct Planted {
    std::string text;
    Span place;
};
Planted plant(Letters letters, const std::string &what);

// 20,000 lines of a server's log, in ASCII.
const std::vector<std::string> &log_lines();
// 100,000 names of files, a tenth of them with letters of two bytes.
const std::vector<std::string> &file_names();
// 50 MB of a and b.
const std::string &two_letters();

// Bytes that begin a character.
std::size_t characters(const std::string &text, std::size_t bytes);

}  // namespace bench
