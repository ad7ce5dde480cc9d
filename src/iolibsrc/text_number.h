// Numbers as text, by hand: the results, the characters consumed and the flags are those of an istream and
// an ostream in the classic locale, value by value, at a fraction of their cost.
//
// A decoder reads characters through a cursor. `peek` gives the present character or text_end, `next`
// consumes it and gives the following one. The same decoder thus serves a run of bytes in memory and a
// stream that delivers one character at a time.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace kel::detail {

inline constexpr int text_end = -1;

// White space of the classic locale.
constexpr bool is_space(int character) {
    return character == ' ' || (character >= '\t' && character <= '\r');
}
// 0 to 9, or more for a character that is no digit.
constexpr unsigned digit_of(int character) {
    return static_cast<unsigned>(character) - '0';
}

// Optional sign, digits. Answers false, with 0 in `value`, without a digit, and false with the nearest
// limit when the number is too large; it is consumed all the same.
template <class Cursor>
bool decode_int(Cursor &at, int &value) {
    int character = at.peek();
    const bool negative = character == '-';
    if (negative || character == '+') character = at.next();
    const std::uint64_t limit = std::uint64_t{std::numeric_limits<int>::max()} + negative;
    std::uint64_t magnitude = 0;
    bool found = false;
    for (; digit_of(character) <= 9; character = at.next()) {
        found = true;
        magnitude = std::min(magnitude * 10 + digit_of(character), limit + 1);
    }
    const auto nearest = static_cast<std::int64_t>(std::min(magnitude, limit));
    value = static_cast<int>(negative ? -nearest : nearest);
    return found && magnitude <= limit;
}

// A decimal number in parts: its value is 0.DIGITS times ten to the power of `scale`. Of leading zeros only
// the scale tells, and of digits behind the last that is kept only whether one of them was not 0: no double
// and no middle between two doubles has more than 768 digits. The memory is the same however long the
// number is.
struct decimal {
    static constexpr std::size_t most_digits = 800;
    static constexpr int most_in_mantissa = 19;
    static constexpr std::int64_t most_exponent = 100'000'000'000'000'000;

    bool negative = false;
    bool more = false;           // a digit that is not kept is not 0
    std::size_t count = 0;       // digits kept
    std::uint64_t mantissa = 0;  // the first of them, as a number
    std::int64_t scale = 0;
    char digits[most_digits + 32];  // with room for the end of its text; not initialised

    void add(unsigned digit, bool fraction) {
        if (count == 0 && digit == 0) {
            scale -= fraction;
            return;
        }
        scale += !fraction;
        if (count < most_in_mantissa) mantissa = mantissa * 10 + digit;
        if (count < most_digits)
            digits[count++] = static_cast<char>('0' + digit);
        else
            more |= digit != 0;
    }

    // The nearest double. False with the nearest limit when it is too large.
    bool convert(double &value);
};

// Optional sign, digits with at most one point among or around them, and an optional exponent. There are no
// infinities, no hexadecimals and no separators. False with 0 for what is no such number; characters up to
// the first that cannot belong to one are consumed all the same.
template <class Cursor>
bool decode_real(Cursor &at, double &value) {
    decimal number;
    int character = at.peek();
    number.negative = character == '-';
    if (number.negative || character == '+') character = at.next();
    bool found = false, fraction = false, whole = true;
    for (;; character = at.next()) {
        if (unsigned digit = digit_of(character); digit <= 9) {
            found = true;
            number.add(digit, fraction);
        } else if (character == '.' && !fraction) {
            fraction = true;
        } else {
            break;
        }
    }
    if (found && (character == 'e' || character == 'E')) {
        character = at.next();
        const bool negative = character == '-';
        if (negative || character == '+') character = at.next();
        std::int64_t exponent = 0;
        whole = digit_of(character) <= 9;
        for (; digit_of(character) <= 9; character = at.next())
            exponent = std::min(exponent * 10 + digit_of(character), decimal::most_exponent);
        number.scale += negative ? -exponent : exponent;
    }
    value = 0;
    return found && whole && number.convert(value);
}

// What an ostream writes for a number: characters put at `to`, which has room for the longest, and how many.
// Reals have 6 significant digits.
inline constexpr std::size_t longest_int = 11;
inline constexpr std::size_t longest_real = 13;
std::size_t encode_int(int value, char *to);
std::size_t encode_real(double value, char *to);

}  // namespace kel::detail
