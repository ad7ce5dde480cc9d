#include "inputs.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <random>
#include <string_view>

namespace bench {
namespace {

constexpr std::size_t prose_bytes = 10'000'000;

class Chance {
public:
    explicit Chance(unsigned seed) : m_engine(seed) {}
    std::size_t below(std::size_t limit) { return static_cast<std::size_t>(m_engine() % limit); }
    template <class List>
    auto one_of(const List &list) {
        return list[below(std::size(list))];
    }

private:
    std::mt19937_64 m_engine;
};

// Words of one to four syllables. Words at the front of the list come up most, as in a language.
std::vector<std::string> vocabulary(Letters letters, Chance &chance) {
    static constexpr std::string_view ascii[] = {
        "the", "re", "con", "ti", "on",  "ing", "ed",  "ly", "ver", "ma", "lo", "ne", "pa",  "sur", "en",
        "ha",  "st", "ack", "o",  "dle", "wi",  "qui", "jo", "bra", "xe", "ny", "gu", "far", "kel", "zo"};
    static constexpr std::string_view wide[] = {"é",  "ü",  "ß",  "ñ",  "да", "не", "ко", "мы", "λό", "γος",
                                                "文", "字", "検", "索", "ch", "le", "är", "ol", "ти", "за"};
    std::vector<std::string> made = {"the"};
    while (made.size() < 3'000) {
        std::string word;
        for (std::size_t i = chance.below(4) + 1; i > 0; --i)
            word +=
                letters == Letters::Utf8 && chance.below(10) < 4 ? chance.one_of(wide) : chance.one_of(ascii);
        made.push_back(word);
    }
    return made;
}

std::string make_prose(Letters letters) {
    Chance chance(letters == Letters::Ascii ? 1 : 2);
    const std::vector<std::string> known = vocabulary(letters, chance);
    std::string text;
    text.reserve(prose_bytes + 100);
    std::size_t line = 0;
    while (text.size() < prose_bytes) {
        const std::size_t rank = chance.below(known.size());
        text += known[rank * rank / known.size() * chance.below(known.size()) / known.size()];
        const bool ends = text.size() - line > 70;
        if (ends) line = text.size();
        text += ends ? '\n' : ' ';
    }
    text.pop_back();
    return text;
}

std::string make_line(Chance &chance) {
    static constexpr const char *levels[] = {"INFO", "INFO", "INFO", "DEBUG", "DEBUG", "WARN", "ERROR"};
    static constexpr const char *parts[] = {"net.http", "store", "store.index", "auth", "queue.worker"};
    static constexpr const char *verbs[] = {"GET", "GET", "GET", "PUT", "POST", "DELETE"};
    static constexpr const char *things[] = {"items", "users", "orders", "files", "sessions"};
    static constexpr const char *ends[] = {"done",   "done", "done", "done", "retried", "connection refused",
                                           "timeout"};
    std::array<char, 200> line;
    const auto number = [&](std::size_t limit) { return static_cast<int>(chance.below(limit)); };
    std::snprintf(line.data(), line.size(),
                  "2026-%02d-%02d %02d:%02d:%02d.%03d %s [%s] request %d from 10.%d.%d.%d took %d ms: %s "
                  "/api/v1/%s/%d %d %s",
                  number(12) + 1, number(28) + 1, number(24), number(60), number(60), number(1'000),
                  chance.one_of(levels), chance.one_of(parts), number(1'000'000), number(256), number(256),
                  number(256), number(5'000), chance.one_of(verbs), chance.one_of(things), number(100'000),
                  number(5) * 100 + 200, chance.one_of(ends));
    return line.data();
}

std::string make_name(Chance &chance) {
    static constexpr std::string_view stems[] = {"report", "libcore", "invoice", "IMG",    "readme", "résumé",
                                                 "backup", "notes",   "main",    "libnet", "record", "über"};
    static constexpr std::string_view joints[] = {"-", "_", ".", ""};
    static constexpr std::string_view middles[] = {"final", "draft", "export", "2026",
                                                   "old",   "part",  "short",  "a"};
    static constexpr std::string_view endings[] = {".txt", ".cpp", ".so.1",   ".so",
                                                   ".TXT", ".jpg", ".tar.gz", ".h"};
    std::string name(chance.one_of(stems));
    for (std::size_t i = chance.below(3); i > 0; --i) {
        name += chance.one_of(joints);
        name += chance.one_of(middles);
    }
    name += chance.one_of(joints);
    name += std::to_string(chance.below(1'000));
    name += chance.one_of(endings);
    return name;
}

template <class Make>
std::vector<std::string> many(std::size_t count, unsigned seed, Make make) {
    Chance chance(seed);
    std::vector<std::string> made;
    made.reserve(count);
    while (made.size() < count)
        made.push_back(make(chance));
    return made;
}

}  // namespace

const std::string &prose(Letters letters) {
    static const std::string texts[] = {make_prose(Letters::Ascii), make_prose(Letters::Utf8)};
    return texts[static_cast<std::size_t>(letters)];
}

const std::string &words(Letters letters) {
    const auto flat = [](std::string text) {
        std::replace(text.begin(), text.end(), '\n', ' ');
        return text;
    };
    static const std::string texts[] = {flat(prose(Letters::Ascii)), flat(prose(Letters::Utf8))};
    return texts[static_cast<std::size_t>(letters)];
}

std::size_t word_count(Letters letters) {
    const std::string &text = words(letters);
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), ' ')) + 1;
}

Planted plant(Letters letters, const std::string &what) {
    std::string text = prose(letters) + " ";
    const auto begin = static_cast<std::ptrdiff_t>(text.size());
    text += what;
    return {std::move(text), {begin, begin + static_cast<std::ptrdiff_t>(what.size())}};
}

const std::vector<std::string> &log_lines() {
    static const std::vector<std::string> lines = many(20'000, 3, make_line);
    return lines;
}

const std::vector<std::string> &file_names() {
    static const std::vector<std::string> names = many(100'000, 4, make_name);
    return names;
}

const std::string &two_letters() {
    static const std::string text = [] {
        Chance chance(5);
        std::string made(50'000'000, 'a');
        for (std::size_t i = 0; i < made.size(); i += 1 + chance.below(4))
            made[i] = 'b';
        return made;
    }();
    return text;
}

std::size_t characters(const std::string &text, std::size_t bytes) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(bytes),
                      [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

}  // namespace bench
