// Times from text. A number and the separator behind it tell whether a date or a time begins, so one look
// ahead is enough. What is left out comes from today.
#include "system/timelib_text.h"

#include <cctype>
#include <charconv>
#include <cstring>
#include <ctime>
#include <limits>

#include <kelstdmt/timelib.h>

#include "runtime/calendar.h"

namespace {

class reader {
public:
    explicit reader(const char *text) : m_at(text), m_end(text + std::strlen(text)) { skip_blanks(); }

    bool at_end() const { return m_at == m_end; }

    // A number that an int can hold.
    bool number(int &value) {
        const auto [stop, error] = std::from_chars(m_at, m_end, value);
        if (error != std::errc() || *m_at == '-') return false;
        m_at = stop;
        skip_blanks();
        return true;
    }

    bool separator(const char *choices) {
        if (at_end() || !std::strchr(choices, *m_at)) return false;
        ++m_at;
        skip_blanks();
        return true;
    }

private:
    void skip_blanks() {
        while (std::isspace(static_cast<unsigned char>(*m_at)))
            ++m_at;
    }

    const char *m_at;
    const char *m_end;
};

int full_year(int year) {
    if (year == 0) return 1970;
    return year < 70 ? year + 2000 : year < 100 ? year + 1900 : year;
}

// Behind the hour and its colon.
bool read_minutes(reader &text, std::tm &fields) {
    if (!text.number(fields.tm_min)) return false;
    return !text.separator(":") || text.number(fields.tm_sec);
}

// Behind the month and its separator, to the end.
bool read_day(reader &text, std::tm &fields) {
    if (!text.number(fields.tm_mday) || fields.tm_mon == 0 || fields.tm_mday == 0) return false;
    --fields.tm_mon;
    if (text.separator("-/")) {
        if (!text.number(fields.tm_year)) return false;
        fields.tm_year = full_year(fields.tm_year) - 1900;
    }
    if (text.at_end()) return true;
    return text.number(fields.tm_hour) && text.separator(":") && read_minutes(text, fields);
}

}  // namespace

bool kel::detail::read_time(const char *text, std::int64_t &seconds) {
    std::tm fields{};
    if (!kel::is_text(text) || !kel::system::local_fields(btkTimeval::GetTimeOfDay().GetSec(), fields))
        return false;
    fields.tm_hour = fields.tm_min = fields.tm_sec = 0;
    fields.tm_isdst = -1;
    reader rest(text);
    int first = 0;
    if (!rest.number(first)) return false;
    if (rest.separator(":")) {
        fields.tm_hour = first;
        if (!read_minutes(rest, fields)) return false;
    } else {
        fields.tm_mon = first;
        if (!rest.separator("-/") || !read_day(rest, fields)) return false;
    }
    return rest.at_end() && kel::system::local_seconds(fields, seconds);
}

bool tmString2Time(const char *text, long *result) {
    std::int64_t seconds = 0;
    if (!kel::detail::read_time(text, seconds) || seconds < std::numeric_limits<long>::min() ||
        seconds > std::numeric_limits<long>::max())
        return false;
    if (result) *result = static_cast<long>(seconds);
    return true;
}
