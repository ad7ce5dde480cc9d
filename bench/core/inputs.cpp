#include "inputs.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <numeric>
#include <optional>
#include <random>
#include <string_view>

namespace bench {
namespace {

std::mt19937_64 &chance() {
    static std::mt19937_64 engine(20'240'229);
    return engine;
}
std::size_t below(std::size_t limit) {
    return static_cast<std::size_t>(chance()() % limit);
}

std::string letters(std::size_t count) {
    static constexpr std::string_view set = "abcdefghijklmnopqrstuvwxyz0123456789";
    std::string text(count, ' ');
    for (char &c : text)
        c = set[below(set.size())];
    return text;
}

std::string key(Shape shape, std::size_t number) {
    if (shape == Shape::Random) return letters(16);
    if (shape == Shape::Numbers) return std::to_string(number);
    char text[40];
    std::snprintf(text, sizeof text, "/srv/data/file%06zu.txt", number);
    return text;
}

Keys make_keys(Shape shape) {
    Keys made;
    made.given.reserve(million);
    for (std::size_t i = 0; i < million; ++i)
        made.given.push_back(key(shape, i));
    made.positions.resize(million);
    std::iota(made.positions.begin(), made.positions.end(), 0);
    std::shuffle(made.positions.begin(), made.positions.end(), chance());
    made.shuffled.reserve(million);
    for (int position : made.positions)
        made.shuffled.push_back(made.given[static_cast<std::size_t>(position)]);
    return made;
}

template <class Value, class Make>
std::vector<Value> make(std::size_t count, Make one) {
    std::vector<Value> values;
    values.reserve(count);
    for (std::size_t i = 0; i < count; ++i)
        values.push_back(one());
    return values;
}

}  // namespace

const Keys &keys(Shape shape) {
    static std::optional<Keys> held;
    static Shape held_shape;
    if (!held || held_shape != shape) {
        held.reset();
        held = make_keys(shape);
        held_shape = shape;
    }
    return *held;
}

const std::vector<int> &ints() {
    static const auto values = make<int>(million, [] {
        int magnitude = static_cast<int>(chance()() & 0x7FFFFFFF) >> below(31);
        return below(2) ? magnitude : -magnitude;
    });
    return values;
}

const std::vector<double> &reals() {
    static const auto values = make<double>(million, [] {
        double value = 1e-6 * static_cast<double>(1 + below(1'000'000));
        for (std::size_t tens = below(7); tens > 0; --tens)
            value *= 10;
        return below(2) ? value : -value;
    });
    return values;
}

const std::vector<double> &reals_of_six_digits() {
    static const auto values = [] {
        std::vector<double> rounded;
        rounded.reserve(million);
        for (double value : reals()) {
            char text[40];
            std::snprintf(text, sizeof text, "%g", value);
            rounded.push_back(std::strtod(text, nullptr));
        }
        return rounded;
    }();
    return values;
}

const std::vector<std::string> &texts() {
    static const auto values = make<std::string>(million, [] { return letters(4 + below(12)); });
    return values;
}

const std::vector<std::string> &different_texts() {
    static const auto values = make<std::string>(1'000, [] { return letters(12); });
    return values;
}

std::string text_of(std::size_t bytes, int variant) {
    std::string text;
    for (std::size_t i = 0; i < bytes; ++i)
        text += static_cast<char>('a' + (i + static_cast<std::size_t>(variant)) % 26);
    return text;
}

const std::string &scratch_path() {
    struct Scratch {
        std::string path =
            (std::filesystem::temp_directory_path() / ("kelstdmt-core-bench-" + std::to_string(getpid())))
                .string();
        ~Scratch() {
            std::error_code ignored;
            std::filesystem::remove(path, ignored);
        }
    };
    static const Scratch scratch;
    return scratch.path;
}

namespace tree {

int integer(int group, int item, int field) {
    return (group * items + item) * (field + 1);
}
double real(int group, int item, int field) {
    return (group * items + item) * 0.25 + field;
}
std::string text(int group, int item, int field) {
    return std::string(field == 9 ? "Maker-" : "text-") + std::to_string(group * items + item);
}

bool complete(const std::string &printed) {
    for (std::string_view wanted :
         {std::string_view("Serial"), std::string_view("Colour"), std::string_view("Maker-")}) {
        int found = 0;
        for (std::size_t at = 0; (at = printed.find(wanted, at)) != std::string::npos; at += wanted.size())
            ++found;
        if (found != groups * items) return false;
    }
    return true;
}

}  // namespace tree
}  // namespace bench
