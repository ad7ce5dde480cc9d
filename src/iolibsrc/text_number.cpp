// The parts of numbers as text that do not depend on where the characters come from.
#include "iolibsrc/text_number.h"

#include <bit>
#include <cfloat>
#include <charconv>
#include <climits>
#include <cstring>

namespace kel::detail {

namespace {

constexpr double powers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                             1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr std::int64_t largest_power = 22;
constexpr std::uint64_t largest_exact = std::uint64_t{1} << 53;

// Both doubles are exact, so the one operation rounds as the number itself would. Arithmetic with more
// precision than that of a double would round twice.
bool convert_exactly(std::uint64_t mantissa, std::int64_t power, double &value) {
    if (FLT_EVAL_METHOD != 0 || mantissa > largest_exact || power > largest_power || power < -largest_power)
        return false;
    const auto digits = static_cast<double>(mantissa);
    value = power < 0 ? digits / powers[-power] : digits * powers[power];
    return true;
}

// Beyond these scales every number is too large, or nearest to 0.
constexpr std::int64_t largest_scale = DBL_MAX_10_EXP + 1;
constexpr std::int64_t smallest_scale = -330;

// Digits are made eight at a time, as the bytes of one word: no step depends on how many there are.
constexpr std::uint32_t hundred_million = 100'000'000;
constexpr std::size_t eight = 8;
constexpr std::uint64_t ascii_zeros = 0x3030303030303030, last_digit = std::uint64_t{1} << 56;
static_assert(std::endian::native == std::endian::little, "the first digit is the lowest byte");

// The digits 0 to 9 of a number below 100,000,000, with leading zeros. Each step splits all lanes of the
// word in two; dividing a small number is multiplying and shifting.
std::uint64_t eight_digits(std::uint32_t number) {
    const std::uint64_t fours = number / 10000 | std::uint64_t{number % 10000} << 32;
    const std::uint64_t hundreds = (fours * 10486 >> 20) & 0x0000007F0000007F;
    const std::uint64_t twos = hundreds | (fours - hundreds * 100) << 16;
    const std::uint64_t tens = (twos * 103 >> 10) & 0x000F000F000F000F;
    return tens | (twos - tens * 10) << 8;
}

}  // namespace

bool decimal::convert(double &value) {
    bool fits = true;
    double magnitude = 0;
    const std::int64_t power = scale - static_cast<std::int64_t>(count);
    if (count == 0 || scale < smallest_scale) {
        // Nearest to 0.
    } else if (scale > largest_scale) {
        fits = false;
    } else if (count > most_in_mantissa || !convert_exactly(mantissa, power, magnitude)) {
        char *end = digits + count;
        if (more) *end++ = '1';
        *end++ = 'e';
        end = std::to_chars(end, digits + sizeof digits, power - more).ptr;
        const auto [stop, error] = std::from_chars(digits, end, magnitude);
        if (error != std::errc() || magnitude > DBL_MAX) {
            fits = scale <= 0;
            magnitude = 0;
        }
    }
    if (!fits) magnitude = DBL_MAX;
    value = negative ? -magnitude : magnitude;
    return fits;
}

std::size_t encode_int(int value, char *to) {
    const bool negative = value < 0;
    const std::uint32_t magnitude =
        negative ? -static_cast<std::uint32_t>(value) : static_cast<std::uint32_t>(value);
    char *at = to;
    *at = '-';
    at += negative;
    const std::uint32_t high = magnitude / hundred_million;
    const std::uint64_t digits = eight_digits(magnitude % hundred_million);
    std::uint64_t text = digits | ascii_zeros;
    std::size_t length = eight;
    if (high == 0) {
        const int zeros = std::countr_zero(digits | last_digit) / CHAR_BIT;
        text >>= zeros * CHAR_BIT;
        length -= static_cast<std::size_t>(zeros);
    } else {
        if (high >= 10) *at++ = static_cast<char>('0' + high / 10);
        *at++ = static_cast<char>('0' + high % 10);
    }
    std::memcpy(at, &text, eight);
    return static_cast<std::size_t>(at - to) + length;
}

std::size_t encode_real(double value, char *to) {
    constexpr int significant = 6;
    char *end = std::to_chars(to, to + longest_real, value, std::chars_format::general, significant).ptr;
    return static_cast<std::size_t>(end - to);
}

}  // namespace kel::detail
