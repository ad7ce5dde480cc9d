// Times against the C library in many zones, texts, and the failures that end the process.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <memory>
#include <random>
#include <string>

#include <kelstdmt/iolib.h>
#include <kelstdmt/kel.h>
#include <kelstdmt/syslib.h>
#include <kelstdmt/timelib.h>

namespace {

using Time = std::unique_ptr<tmTime>;

// Holds a zone for a scope.
class Zone {
public:
    explicit Zone(const char *name) { set(name); }
    ~Zone() { set(m_before.empty() ? nullptr : m_before.c_str()); }
    Zone(const Zone &) = delete;
    Zone &operator=(const Zone &) = delete;

private:
    static void set(const char *name) {
        name ? ::setenv("TZ", name, 1) : ::unsetenv("TZ");
        ::tzset();
    }
    std::string m_before = std::getenv("TZ") ? std::getenv("TZ") : "";
};

Time local(int year, int month, int day, int hour, int minute, int second,
           unsigned char dst = kel::nil_bool) {
    return Time(tmTime::LocalTime(year, month, day, hour, minute, second, dst));
}
std::string text(const Time &time, const char *format = "%Y-%m-%d %H:%M:%S") {
    return tmTime::TimeToString(time.get(), format).Str();
}

const char *const zones[] = {"UTC",
                             "Europe/Berlin",
                             "America/New_York",
                             "Australia/Lord_Howe",
                             "Asia/Kathmandu",
                             "Pacific/Apia",
                             "EST5EDT,M3.2.0,M11.1.0",
                             "X-14"};

TEST(Time, FieldsAreTheCalendarOfEachZone) {
    std::mt19937_64 chance(7);
    // From the year 1 to the year 9999, and what callers mostly use.
    std::uniform_int_distribution<long long> far(-62'135'596'800, 253'402'300'799), near(0, 2'147'483'647);
    for (const char *zone : zones) {
        const Zone held(zone);
        for (int round = 0; round < 3000; ++round) {
            const auto seconds = static_cast<std::time_t>(round % 2 ? far(chance) : near(chance));
            tmTime time(0);
            ASSERT_EQ(time.setAbsTime(static_cast<double>(seconds)), static_cast<double>(seconds));
            const std::tm *expected = std::localtime(&seconds);
            ASSERT_TRUE(time.getYear() == expected->tm_year && time.getMonth() == expected->tm_mon + 1 &&
                        time.getDayOfMonth() == expected->tm_mday &&
                        time.getDayOfWeek() == expected->tm_wday && time.getHour() == expected->tm_hour &&
                        time.getMinute() == expected->tm_min && time.getSecond() == expected->tm_sec)
                << seconds << " in " << zone << ": " << kel::printed(time);
            // Back through the fields: years below 100 have another meaning there.
            if (time.getYear() + 1900 < 100) continue;
            const Time back =
                local(time.getYear() + 1900, time.getMonth(), time.getDayOfMonth(), time.getHour(),
                      time.getMinute(), time.getSecond(), static_cast<unsigned char>(expected->tm_isdst));
            ASSERT_EQ(back->getAbsTime(), time.getAbsTime()) << zone;
        }
    }
}

TEST(Time, ReadsTexts) {
    const Zone held("America/New_York");
    const std::string today = text(Time(tmTime::CurrentTime()), "%Y-%m-%d"), year = today.substr(0, 4);
    const struct {
        const char *given;
        std::string expected;  // empty: refused
    } cases[] = {
        {"12/25/2001 10:30", "2001-12-25 10:30:00"},
        {"12-25-01", "2001-12-25 00:00:00"},
        {" 12 / 25-0069\t1 : 2 : 3\n", "2069-12-25 01:02:03"},
        {"1/2/70", "1970-01-02 00:00:00"},
        {"1/2/99 23:59:60", "1999-01-03 00:00:00"},
        {"1/2/100", "100-01-02 00:00:00"},
        {"1/2/0", "1970-01-02 00:00:00"},
        {"12/31/9999 23:59:59", "9999-12-31 23:59:59"},
        {"2/30/2001", "2001-03-02 00:00:00"},
        {"12/31/1969 18:59:59", "1969-12-31 18:59:59"},  // second -1
        {"3/8/2026 2:30", "2026-03-08 03:30:00"},        // in the gap
        {"7/4", year + "-07-04 00:00:00"},
        {"7/4 5:06", year + "-07-04 05:06:00"},
        {"5:06:07", today + " 05:06:07"},
        {"12/25/2001 10:30:15 x", ""},
        {"12/25/2001 10", ""},
        {"12/25/2001 10:", ""},
        {"12/25/2001 10:30:", ""},
        {"12/25/2001 10:30:15:1", ""},
        {"12/25/2001/", ""},
        {"12/25/", ""},
        {"12/0/2001", ""},
        {"0/12/2001", ""},
        {"0-0-0", ""},
        {"-1/2/2001", ""},
        {"1/-2/2001", ""},
        {"1/2/-5", ""},
        {"1::2", ""},
        {"12", ""},
        {"", ""},
        {"x", ""},
        {"4294967297/1/2001", ""},
        {"1/1/99999999999999999999999999", ""},
        {"1/1/2147483647999", ""},
        {nullptr, ""},
        {xstrNullStr, ""},
    };
    for (const auto &[given, expected] : cases) {
        long seconds = 77;
        const bool read = tmString2Time(given, &seconds);
        if (expected.empty() || (sizeof(long) == 4 && expected[0] == '9')) {
            EXPECT_FALSE(read) << given;
            EXPECT_EQ(seconds, 77) << given;
        }
        if (!expected.empty()) {
            EXPECT_EQ(text(Time(tmTime::TimeFromString(given, nullptr))), expected) << given;
        }
    }
}

}  // namespace
