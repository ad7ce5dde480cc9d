#include "runtime/calendar.h"

#include <time.h>

static_assert(sizeof(time_t) == 8, "the calendar reaches beyond 2038 on every platform");

namespace kel::system {

bool local_fields(std::int64_t seconds, std::tm &fields) noexcept {
    const time_t time = seconds;
    ::tzset();  // localtime_r need not see a changed zone
    return ::localtime_r(&time, &fields) != nullptr;
}

bool local_seconds(std::tm &fields, std::int64_t &seconds) noexcept {
    fields.tm_wday = -1;
    const time_t time = ::mktime(&fields);
    if (fields.tm_wday < 0) return false;  // -1 alone may be the last second of 1969
    seconds = time;
    return true;
}

}  // namespace kel::system
