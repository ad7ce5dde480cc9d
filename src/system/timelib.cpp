// Times: the calendar of a second, and text in the form of strftime. What fails ends the process, so each
// failure is one call that does not return.
#include <kelstdmt/timelib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <string>

#include <kelstdmt/iolib_stream.h>
#include <kelstdmt/kel.h>

#include "runtime/calendar.h"
#include "services/print_exception.h"
#include "system/timelib_text.h"

namespace {

// Failures ---------------------------------------------------------------------------------------

enum error_code : int { invalid_text, no_such_time, no_text };

constexpr const char *messages[] = {
    "Invalid time string",
    "Cannot make valid time object",
    "Cannot make valid time string object from giventime object",
};

// The report comes behind all that the program has written so far, whichever way it writes.
void flush_output() {
    std::fflush(nullptr);
    std::cout.flush();
    std::clog.flush();
    for (ioStream *stream : {ioStream::getStdout(), ioStream::getStderr()}) {
        try {
            stream->Flush();
        } catch (xthrowable *thrown) {
            const kel::caught unheard(thrown);  // the program ends anyway
        }
    }
}

template <class Exception, class... Fields>
[[noreturn]] void end_process(error_code code, const char *operation, Fields... fields) {
    flush_output();
    kel::detail::print_exception<Exception>(operation, fields..., messages[code]);
    std::exit(1);
}

// Seconds and the calendar -----------------------------------------------------------------------

// Doubles within 64 bits; the largest below 2^63.
constexpr double earliest = -9223372036854775808.0, latest = 9223372036854774784.0;

std::int64_t whole_seconds(double seconds) {
    return std::isnan(seconds) ? 0 : static_cast<std::int64_t>(std::clamp(seconds, earliest, latest));
}

// Two days inside what std::tm can hold, for the zones.
constexpr std::int64_t farthest = 67'768'036'191'500'000;

std::tm calendar(double seconds) {
    std::tm fields{};
    const std::int64_t time = whole_seconds(seconds);
    if (!kel::system::local_fields(time, fields))
        kel::system::local_fields(std::clamp(time, -farthest, farthest), fields);
    return fields;
}

// Text -------------------------------------------------------------------------------------------

// Freed with the library, but made ahead of the static objects of a program that this is linked into.
[[gnu::init_priority(101)]] xstring library_format("%a %b %d %H:%M:%S %y");

// An empty text when there is none.
xstring format_time(tmTime &time, const char *format) {
    std::tm fields{};
    if (!kel::system::local_fields(whole_seconds(time.getAbsTime()), fields)) return xstring("");
    char text[1000];
    return xstring::FromBytes(text, std::strftime(text, sizeof text, format, &fields));
}

bool is_written(const char *text) {
    return kel::is_text(text) && *text;
}

}  // namespace

double tmTime::getAbsTime() {
    return m_abs_time;
}
double tmTime::setAbsTime(double seconds) {
    return m_abs_time = static_cast<double>(whole_seconds(seconds));
}
int tmTime::getYear() {
    return calendar(m_abs_time).tm_year;
}
int tmTime::getMonth() {
    return calendar(m_abs_time).tm_mon + 1;
}
int tmTime::getDayOfMonth() {
    return calendar(m_abs_time).tm_mday;
}
int tmTime::getDayOfWeek() {
    return calendar(m_abs_time).tm_wday;
}
int tmTime::getHour() {
    return calendar(m_abs_time).tm_hour;
}
int tmTime::getMinute() {
    return calendar(m_abs_time).tm_min;
}
int tmTime::getSecond() {
    return calendar(m_abs_time).tm_sec;
}

tmTime *tmTime::FromSeconds(std::int64_t seconds) {
    tmTime *time = kel::construct<tmTime>(0);
    time->m_abs_time = static_cast<double>(seconds);
    return time;
}

tmTime *tmTime::LocalTime(int year, int month, int day, int hour, int minute, int second,
                          unsigned char daylight_saving) {
    std::tm fields{};
    fields.tm_sec = second;
    fields.tm_min = minute;
    fields.tm_hour = hour;
    fields.tm_mday = day;
    fields.tm_mon = static_cast<int>(static_cast<unsigned>(month) - 1U);
    fields.tm_year = (year < 70 ? year + 2000 : year < 100 ? year + 1900 : year) - 1900;
    fields.tm_isdst = kel::is_nil(daylight_saving) ? -1 : daylight_saving;
    std::int64_t seconds = 0;
    if (fields.tm_mon > month || !kel::system::local_seconds(fields, seconds))
        end_process<tmXCantMakeTime>(no_such_time, "tmTime::LocalTime", year, month, day, hour, minute,
                                     second);
    return FromSeconds(seconds);
}

tmTime *tmTime::CurrentTime() {
    return FromSeconds(btkTimeval::GetTimeOfDay().GetSec());
}
double tmTime::RealTime() {
    return btkTimeval::GetTimeOfDay().ToSeconds();
}

tmTime *tmTime::TimeFromString(const char *text, const char *format) {
    std::int64_t seconds = 0;
    if (!kel::detail::read_time(text, seconds))
        end_process<tmXInvalTimeString>(invalid_text, "tmTime::TimeFromString", text,
                                        kel::is_text(format) ? format : library_format.Str());
    return FromSeconds(seconds);
}

xstring tmTime::TimeToString(tmTime *time, const char *format) {
    const xstring wanted = kel::is_text(format) ? xstring(format) : library_format;
    if (kel::is_object(time) && is_written(wanted)) {
        xstring text = format_time(*time, wanted);
        if (is_written(text)) return text;
    }
    end_process<tmXCantMakeTimeString>(no_text, "tmTime::TimeToString", time, wanted.Str());
}

xstring tmTime::getTimeFormat() {
    return is_written(library_format) ? library_format : xstring();
}
xstring tmTime::setTimeFormat(const char *format) {
    xstring given(kel::is_text(format) ? format : xstrNullStr);  // it may be the library's own
    library_format = kel::is_text(format) ? given : xstring("");
    return given;
}

// Exceptions -------------------------------------------------------------------------------------

tmXInvalTimeString::tmXInvalTimeString(const char *text, const char *format, const char *description,
                                       kelXFunc *func)
    : tmXException(description, func),
      m_text(kel::detail::stored(text)),
      m_format(kel::detail::stored(format)) {}

void tmXInvalTimeString::Print(std::ostream &out) const {
    tmXException::Print(out);
    out << "\t( Invalid time string: \"" << kel::view(m_text) << "\" given the format \""
        << kel::view(m_format) << "\" )\n";
}

tmXCantMakeTime::tmXCantMakeTime(int year, int month, int day, int hour, int minute, int second,
                                 const char *description, kelXFunc *func)
    : tmXException(description, func),
      m_year(year),
      m_month(month),
      m_day(day),
      m_hour(hour),
      m_minute(minute),
      m_second(second) {}

void tmXCantMakeTime::Print(std::ostream &out) const {
    tmXException::Print(out);
    const struct {
        const char *name;
        int value;
    } fields[] = {{"Year", m_year}, {"Month", m_month},   {"DayOfMonth", m_day},
                  {"Hour", m_hour}, {"Minute", m_minute}, {"Second", m_second}};
    for (const auto &field : fields)
        out << "\t( " << field.name << ": \"" << std::to_string(field.value) << "\" )\n";
}

tmXCantMakeTimeString::tmXCantMakeTimeString(tmTime *time, const char *format, const char *description,
                                             kelXFunc *func)
    : tmXException(description, func), m_format(kel::detail::stored(format)) {
    if (kel::is_object(time)) m_time.emplace(*time);
}

void tmXCantMakeTimeString::Print(std::ostream &out) const {
    tmXException::Print(out);
    xstring text("");
    if (m_time) {
        tmTime time(*m_time);
        text = format_time(time, "%Y-%m-%d %H:%M:%S");
        if (!is_written(text)) text = std::to_string(whole_seconds(time.getAbsTime())).c_str();
    }
    out << "\t( Can't make string from time object: \"" << text << "\" given the format string: \""
        << kel::view(m_format) << "\" )\n";
}
