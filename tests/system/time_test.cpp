// Times against the C library in many zones, texts, and the failures that end the process.
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <random>
#include <sstream>

#include <kelstdmt/iolib.h>
#include <kelstdmt/kel.h>
#include <kelstdmt/timelib.h>

namespace {

using Time = std::unique_ptr<tmTime>;

void set_zone(const char *name) {
    ::setenv("TZ", name, 1);
}
Time local(int year, int month, int day, int hour, int minute, int second,
           unsigned char dst = kel::nil_bool) {
    return Time(tmTime::LocalTime(year, month, day, hour, minute, second, dst));
}
std::string text(const Time &time, const char *format = "%Y-%m-%d %H:%M:%S") {
    return tmTime::TimeToString(time.get(), format).Str();
}

TEST(Time, FieldsAreTheCalendarOfEachZone) {
    std::mt19937_64 chance(7);
    // From the year 1 to the year 9999, and what callers mostly use.
    std::uniform_int_distribution<long long> far(-62'135'596'800, 253'402'300'799), near(0, 2'147'483'647);
    for (const char *zone : {"UTC", "America/New_York", "Australia/Lord_Howe", "Pacific/Apia",
                             "EST5EDT,M3.2.0,M11.1.0", "<+14>-14", "right/Asia/Shanghai"}) {
        set_zone(zone);
        for (int round = 0; round < 3000; ++round) {
            // The first ones lie around a leap second.
            const auto seconds = static_cast<std::time_t>(round < 40  ? 1'483'228'806 + round
                                                          : round % 2 ? far(chance)
                                                                      : near(chance));
            tmTime time(0);
            ASSERT_EQ(time.setAbsTime(static_cast<double>(seconds)), static_cast<double>(seconds));
            const std::tm expected = *std::localtime(&seconds);
            ASSERT_TRUE(time.getYear() == expected.tm_year && time.getMonth() == expected.tm_mon + 1 &&
                        time.getDayOfMonth() == expected.tm_mday && time.getDayOfWeek() == expected.tm_wday &&
                        time.getHour() == expected.tm_hour && time.getMinute() == expected.tm_min &&
                        time.getSecond() == expected.tm_sec)
                << seconds << " in " << zone << ": " << kel::printed(time);
            // Back through the fields: years below 100 have another meaning there, and an hour that comes
            // twice is the first of the two.
            if (time.getYear() + 1900 < 100) continue;
            const auto back = [&](unsigned char dst) {
                return local(time.getYear() + 1900, time.getMonth(), time.getDayOfMonth(), time.getHour(),
                             time.getMinute(), time.getSecond(), dst);
            };
            ASSERT_EQ(back(static_cast<unsigned char>(expected.tm_isdst))->getAbsTime(), time.getAbsTime());
            const Time first = back(kel::nil_bool);
            ASSERT_EQ(text(first), text(Time(new tmTime(time)))) << zone;
            ASSERT_LE(first->getAbsTime(), time.getAbsTime()) << zone;
        }
    }
}

TEST(Time, ReadsTexts) {
    set_zone("EST5EDT,M3.2.0,M11.1.0");
    const std::string today = text(Time(tmTime::CurrentTime()), "%Y-%m-%d"), year = today.substr(0, 4);
    const std::pair<const char *, std::string> read[] = {
        {" 12 / 25-0069\t1 : 2 : 3\n", "2069-12-25 01:02:03"},
        {"1/2/99 23:59:60", "1999-01-03 00:00:00"},
        {"1/2/100", "100-01-02 00:00:00"},
        {"12/31/9999 23:59:59", "9999-12-31 23:59:59"},
        {"2/30/2001", "2001-03-02 00:00:00"},
        {"7/4 5:06", year + "-07-04 05:06:00"},
        {"5:06:07", today + " 05:06:07"}};
    for (const auto &[given, expected] : read)
        EXPECT_EQ(text(Time(tmTime::TimeFromString(given, nullptr))), expected) << given;
    long seconds = 77;
    std::istringstream refused(
        "1/2/01 1:2:3 x|1/2/01 1|1/2/01 1:|1/2/01 "
        "1:2:3:4|1/2/01/|1/2/|1/0/01|0/1/01|-1/2/01|1/2/-5|1::2|12||x|"
        "4294967297/1/01|1/1/99999999999999999999999999|1/1/2147483647999");
    for (std::string one; std::getline(refused, one, '|');)
        EXPECT_FALSE(tmString2Time(one.c_str(), &seconds)) << one;
    EXPECT_FALSE(tmString2Time(nullptr, &seconds));
    EXPECT_EQ(seconds, 77);
}

TEST(Time, LocalTimeCarriesAndTakesDaylightSaving) {
    set_zone("EST5EDT,M3.2.0,M11.1.0");
    EXPECT_EQ(text(local(2001, 13, 32, -1, 5, 6)), "2002-01-31 23:05:06");
    EXPECT_EQ(text(local(2026, 7, 1, 0, 5, 6, 0)), "2026-07-01 01:05:06");
    EXPECT_EQ(text(local(2026, 3, 8, 2, 30, 0)), "2026-03-08 03:30:00") << "an hour that is left out";
    const double first = local(2026, 11, 1, 1, 30, 0, 1)->getAbsTime();
    EXPECT_EQ(local(2026, 11, 1, 1, 30, 0, 0)->getAbsTime(), first + 3600) << "the hour that comes twice";
    EXPECT_EQ(local(2026, 11, 1, 1, 30, 0)->getAbsTime(), first);
    EXPECT_EQ(local(1969, 12, 31, 18, 59, 59)->getAbsTime(), -1);
}

TEST(Time, AnyRealCanBeSet) {
    for (const auto &[given, kept] : {std::pair(1.9, 1.0),
                                      {-1.9, -1},
                                      {-0.5, 0},
                                      {NAN, 0},
                                      {1e300, 0x1p63},
                                      {-1e17, -1e17},
                                      {-HUGE_VAL, -0x1p63}}) {
        tmTime time(5);
        const double set = time.setAbsTime(given);
        EXPECT_DOUBLE_EQ(set, kept) << given;
        EXPECT_TRUE(time.getAbsTime() == set && (set != 0 || !std::signbit(set))) << given;
        EXPECT_EQ(time.getYear() > 1000000, kept > 1e16) << kel::printed(time);
    }
    const Time now(tmTime::CurrentTime());
    EXPECT_NEAR(now->getAbsTime(), tmTime::RealTime(), 2);
}

TEST(Time, FormatsWithTheLibrarysOwnOrAnother) {
    set_zone("CET-1CEST,M3.5.0,M10.5.0/3");
    const Time time = local(2001, 8, 14, 10, 30, 0);
    EXPECT_EQ(text(time, nullptr), "Tue Aug 14 10:30:00 01");
    EXPECT_STREQ(tmTime::setTimeFormat("%j"), "%j");
    tmTime::setTimeFormat(tmTime::getTimeFormat());
    EXPECT_EQ(text(time, nullptr) + text(time, "%Z"), "226CEST");
    tmTime::setTimeFormat(xstrNullStr);
    EXPECT_EXIT(text(time, nullptr), testing::ExitedWithCode(1),
                testing::Eq("Exception: \"Cannot make valid time string object from giventime object\"\n"
                            "\tin function \"tmTime::TimeToString\"\n\t( Can't make string from time object: "
                            "\"2001-08-14 10:30:00\" given the format string: \"\" )\n"));
    EXPECT_EQ(text(time, std::string(999, 'x').c_str()).size(), 999U);
}

TEST(Time, FailuresEndTheProcessBehindItsOutput) {
    const auto failed = testing::ExitedWithCode(1);
    EXPECT_EXIT(local(INT_MAX, INT_MAX, -2, 3, 4, 5), failed,
                testing::MatchesRegex(
                    "Exception: \"Cannot make valid time object\"\n\tin function \"tmTime::LocalTime\"\n"
                    "\t\\( Year: \"2147483647\" \\)\n.*\t\\( Second: \"5\" \\)\n"));
    tmTime far(0);
    far.setAbsTime(-HUGE_VAL);
    EXPECT_EXIT(tmTime::TimeToString(&far, "%Y"), failed, testing::ContainsRegex("\"-9223372036854775808\""));
    // All that was written before, in its order, whichever way it went.
    EXPECT_EXIT(
        {
            ::dup2(STDERR_FILENO, STDOUT_FILENO);
            std::setvbuf(stdout, nullptr, _IOFBF, 100);
            std::printf("from C ");
            std::ios::sync_with_stdio(false);
            std::cout << "from C++ ";
            ioStream::getStdout()->WriteString("from a stream ");
            Time(tmTime::TimeFromString("x", "y"));
        },
        failed,
        testing::MatchesRegex("from C from C\\+\\+ from a stream ?\"?Exception: \"Invalid time string\"\n.*"
                              "\\( Invalid time string: \"x\" given the format \"y\" \\)\n"));
}

}  // namespace
