// What goes into the measurements: the same for every library, from a fixed seed.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace bench {

inline constexpr std::size_t million = 1'000'000;

enum class Shape { Paths, Random, Numbers };

// The same keys in two orders. Held for one shape at a time.
struct Keys {
    std::vector<std::string> given;     // as they are set
    std::vector<std::string> shuffled;  // as they are looked for
    std::vector<int> positions;         // shuffled[i] is given[positions[i]]
};
const Keys &keys(Shape shape);

const std::vector<int> &ints();                     // of all lengths, both signs
const std::vector<double> &reals();                 // from 1e-6 to 1e6, both signs
const std::vector<double> &reals_of_six_digits();   // what a text with six digits gives back
const std::vector<std::string> &texts();            // of 4 to 15 letters and digits
const std::vector<std::string> &different_texts();  // 1,000 of 12 bytes

// A text of exactly this many bytes; another variant is another text.
std::string text_of(std::size_t bytes, int variant = 0);

// A path of this process's own. What is there is removed when the process ends.
const std::string &scratch_path();

// The tree that is printed: groups of items of ten fields.
namespace tree {
inline constexpr int groups = 100, items = 100, fields = 10;
inline constexpr const char *names[fields] = {"Serial", "Count", "Stock", "Shelf",  "Weight",
                                              "Price",  "Rate",  "Title", "Colour", "Maker"};
// Rows 0 to 3 are ints, 4 to 6 reals, 7 to 9 texts.
int integer(int group, int item, int field);
double real(int group, int item, int field);
std::string text(int group, int item, int field);
// Whether a printed tree holds each field's name and last text once an item.
bool complete(const std::string &printed);
}  // namespace tree

}  // namespace bench
