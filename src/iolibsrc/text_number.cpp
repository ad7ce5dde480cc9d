// The parts of numbers as text that do not depend on where the characters come from.
#include "iolibsrc/text_number.h"

#include <cfloat>
#include <charconv>

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
    return static_cast<std::size_t>(std::to_chars(to, to + longest_int, value).ptr - to);
}

std::size_t encode_real(double value, char *to) {
    constexpr int significant = 6;
    char *end = std::to_chars(to, to + longest_real, value, std::chars_format::general, significant).ptr;
    return static_cast<std::size_t>(end - to);
}

}  // namespace kel::detail
