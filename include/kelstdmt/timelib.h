// A point in time: whole seconds since 1 January 1970 UTC in a double, which counts them for 285 million
// years, read in local time. The zone is that of the environment variable TZ, else of the system.
//
// A failure of LocalTime, TimeFromString and TimeToString does not return: the program's output is flushed,
// the exception printed to standard error, and the process ended with status 1.
//
// A time is for one thread at a time; different times may be used from several. None of this while another
// thread changes the environment.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>

#include <kelstdmt/declare.h>
#include <kelstdmt/export.h>
#include <kelstdmt/xexception.h>
#include <kelstdmt/xstring.h>

KEL_DECLARE_STRUCT(tmTime)
class KELSTDMT_API tmTime : public xobject {
    KEL_CLASS(tmTime, xobject)
public:
    explicit tmTime(long seconds) noexcept : m_abs_time(static_cast<double>(seconds)) {}

    virtual double getAbsTime();
    // Cuts off the fraction, keeps the rest and answers it. What is beyond 64 bits becomes the nearest that
    // is not; not-a-number becomes 0.
    virtual double setAbsTime(double seconds);
    // The calendar in local time. A time whose year no int can hold reads as the nearest that has one.
    virtual int getYear();        // since 1900: 101 is 2001
    virtual int getMonth();       // 1 to 12
    virtual int getDayOfMonth();  // 1 to 31
    virtual int getDayOfWeek();   // 0 to 6, Sunday is 0
    virtual int getHour();        // 0 to 23
    virtual int getMinute();      // 0 to 59
    virtual int getSecond();      // 0 to 59; 60 is a leap second, in a zone that counts them

    // New times belong to the caller, who deletes them.

    // Years below 70 are counted from 2000, from 70 to 99 from 1900, others stand as they are; month and day
    // begin at 1. Values beyond their ranges carry over: 31 June is 1 July. The daylight-saving flag is 0, 1,
    // or kel::nil_bool to let the zone's rules decide: then an hour that comes twice is the first of the two,
    // and one that the zone leaves out counts on from before the gap. (A zone that counts leap seconds may
    // take either of the two, or either side of the gap.)
    static tmTime *LocalTime(int year, int month, int day, int hour, int minute, int second,
                             unsigned char daylight_saving);
    static tmTime *CurrentTime();
    static double RealTime();  // now, in seconds with microseconds
    // The forms of tmString2Time; format only appears in the report of a failure.
    static tmTime *TimeFromString(const char *text, const char *format);
    // format is strftime's; the null string is the library-wide one. The result has 1 to 999 bytes.
    static xstring TimeToString(tmTime *time, const char *format);
    // The library-wide format, at first "%a %b %d %H:%M:%S %y"; the null string when it was set to none. Not
    // while another thread sets it.
    static xstring getTimeFormat();
    static xstring setTimeFormat(const char *format);  // answers the format given

private:
    static tmTime *FromSeconds(std::int64_t seconds);

    double m_abs_time;
};

// Reads local time from M/D/Y or M/D (this year), - in place of either /, maybe with H:MIN or H:MIN:S behind
// it, or from a time alone (today); blanks may stand everywhere but inside numbers. Years below 100 are those
// of LocalTime but for 0, which is 1970, and values carry over as there. False, with the result as it was,
// for anything else and for a time that no long can hold.
KELSTDMT_API bool tmString2Time(const char *text, long *result);

// Create gives an object that the caller deletes; one that is thrown is deleted by who catches it, with
// xdelete.
KEL_DECLARE_STRUCT(tmXException)
class KELSTDMT_API tmXException : public kelXExternFunc {
    KEL_CLASS(tmXException, kelXExternFunc)
public:
    using kelXExternFunc::kelXExternFunc;
    static tmXException *Create(const char *description, kelXFunc *func) {
        return kel::construct<tmXException>(description, func);
    }
    [[noreturn]] static void Throw(const char *description, kelXFunc *func) {
        xthrow(Create(description, func));
    }
};

KEL_DECLARE_STRUCT(tmXInvalTimeString)
class KELSTDMT_API tmXInvalTimeString : public tmXException {
    KEL_CLASS(tmXInvalTimeString, tmXException)
public:
    tmXInvalTimeString(const char *text, const char *format, const char *description, kelXFunc *func);
    static tmXInvalTimeString *Create(const char *text, const char *format, const char *description,
                                      kelXFunc *func) {
        return kel::construct<tmXInvalTimeString>(text, format, description, func);
    }
    [[noreturn]] static void Throw(const char *text, const char *format, const char *description,
                                   kelXFunc *func) {
        xthrow(Create(text, format, description, func));
    }
    xstring getInvalString() const { return m_text; }
    xstring getFormat() const { return m_format; }
    void Print(std::ostream &out) const override;

private:
    xstring m_text;
    xstring m_format;
};

KEL_DECLARE_STRUCT(tmXCantMakeTime)
class KELSTDMT_API tmXCantMakeTime : public tmXException {
    KEL_CLASS(tmXCantMakeTime, tmXException)
public:
    tmXCantMakeTime(int year, int month, int day, int hour, int minute, int second, const char *description,
                    kelXFunc *func);
    static tmXCantMakeTime *Create(int year, int month, int day, int hour, int minute, int second,
                                   const char *description, kelXFunc *func) {
        return kel::construct<tmXCantMakeTime>(year, month, day, hour, minute, second, description, func);
    }
    [[noreturn]] static void Throw(int year, int month, int day, int hour, int minute, int second,
                                   const char *description, kelXFunc *func) {
        xthrow(Create(year, month, day, hour, minute, second, description, func));
    }
    int getYear() const { return m_year; }
    int getMonth() const { return m_month; }
    int getDayOfMonth() const { return m_day; }
    int getHour() const { return m_hour; }
    int getMinute() const { return m_minute; }
    int getSecond() const { return m_second; }
    void Print(std::ostream &out) const override;

private:
    int m_year, m_month, m_day, m_hour, m_minute, m_second;
};

KEL_DECLARE_STRUCT(tmXCantMakeTimeString)
class KELSTDMT_API tmXCantMakeTimeString : public tmXException {
    KEL_CLASS(tmXCantMakeTimeString, tmXException)
public:
    // Keeps a copy of the time, which may be null.
    tmXCantMakeTimeString(tmTime *time, const char *format, const char *description, kelXFunc *func);
    static tmXCantMakeTimeString *Create(tmTime *time, const char *format, const char *description,
                                         kelXFunc *func) {
        return kel::construct<tmXCantMakeTimeString>(time, format, description, func);
    }
    [[noreturn]] static void Throw(tmTime *time, const char *format, const char *description,
                                   kelXFunc *func) {
        xthrow(Create(time, format, description, func));
    }
    tmTime *getTime() { return m_time ? &*m_time : nullptr; }
    xstring getFormat() const { return m_format; }
    void Print(std::ostream &out) const override;

private:
    std::optional<xauto<tmTime>> m_time;
    xstring m_format;
};
