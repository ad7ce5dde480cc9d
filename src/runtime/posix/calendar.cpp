// mktime answers an hour that comes twice by what it was asked before, so without a daylight-saving flag the
// second is sought here: what the clock shows is a second plus the zone's offset, and the offsets that can be
// meant are those a good day before and after.
#include "runtime/calendar.h"

#include <time.h>

#include <optional>

static_assert(sizeof(time_t) == 8, "the calendar reaches beyond 2038 on every platform");

namespace kel::system {

namespace {

// What the clock shows, counted as if it were UTC.
std::optional<std::int64_t> clock_count(std::tm &fields) {
    fields.tm_wday = -1;
    const time_t count = ::timegm(&fields);
    if (fields.tm_wday < 0) return std::nullopt;  // -1 alone may be the last second of 1969
    return count;
}

std::optional<std::int64_t> offset_at(std::int64_t seconds) {
    std::tm fields{};
    const time_t time = seconds;
    if (!::localtime_r(&time, &fields)) return std::nullopt;
    const auto count = clock_count(fields);
    return count ? std::optional(*count - seconds) : std::nullopt;
}

bool counts_leap_seconds() {
    std::tm new_year{};
    new_year.tm_year = 2020 - 1900;
    new_year.tm_mday = 1;
    return ::timegm(&new_year) != 1'577'836'800;
}

std::optional<std::int64_t> from_rules_of_zone(std::tm fields) {
    if (counts_leap_seconds()) return std::nullopt;  // what the clock shows is no count there
    constexpr std::int64_t good_day = 26 * 3600;     // no zone is further from UTC
    const auto count = clock_count(fields);
    if (!count) return std::nullopt;
    const auto before = offset_at(*count - good_day), after = offset_at(*count + good_day);
    if (!before || !after) return std::nullopt;
    if (offset_at(*count - *before) == before) return *count - *before;
    if (offset_at(*count - *after) == after) return *count - *after;
    // In a gap; or between two changes of one day, which is left to mktime.
    return before != after ? std::optional(*count - *before) : std::nullopt;
}

}  // namespace

bool local_fields(std::int64_t seconds, std::tm &fields) noexcept {
    const time_t time = seconds;
    ::tzset();  // localtime_r need not see a changed zone
    return ::localtime_r(&time, &fields) != nullptr;
}

bool local_seconds(std::tm fields, std::int64_t &seconds) noexcept {
    if (fields.tm_isdst < 0) {
        ::tzset();
        if (const auto found = from_rules_of_zone(fields)) {
            seconds = *found;
            return true;
        }
    }
    fields.tm_wday = -1;
    const time_t time = ::mktime(&fields);
    if (fields.tm_wday < 0) return false;
    seconds = time;
    return true;
}

}  // namespace kel::system
