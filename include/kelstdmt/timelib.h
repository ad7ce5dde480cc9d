// A point in time: seconds since 1 January 1970 UTC, read in local time.
//
// A failure of LocalTime, TimeFromString and TimeToString does not return: the program's output is flushed,
// the exception printed to standard error, and the process ended with status 1.
#pragma once

#include <iosfwd>

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
    virtual double setAbsTime(double seconds);  // whole seconds are kept; answers what is kept
    virtual int getYear();                      // since 1900
    virtual int getMonth();                     // 1 to 12
    virtual int getDayOfMonth();                // 1 to 31
    virtual int getDayOfWeek();                 // 0 to 6, Sunday is 0
    virtual int getHour();
    virtual int getMinute();
    virtual int getSecond();

    // New times belong to the caller. In LocalTime years below 70 are 20.., from 70 to 99 they are 19..; the
    // daylight-saving flag is 0, 1, or the nil of xbool to let the zone's rules decide.
    static tmTime *LocalTime(int year, int month, int day, int hour, int minute, int second,
                             unsigned char daylight_saving);
    static tmTime *CurrentTime();
    static double RealTime();  // now, in seconds with microseconds
    static tmTime *TimeFromString(const char *text, const char *format);
    // format is strftime's; xstrNullStr is the library-wide one. At most 999 bytes.
    static xstring TimeToString(tmTime *time, const char *format);
    // The library-wide format; it has no lock.
    static xstring getTimeFormat();
    static xstring setTimeFormat(const char *format);

private:
    double m_abs_time;
};

// M/D/Y or M-D-Y, maybe with H:MIN or H:MIN:S behind it, in local time. False leaves the result alone.
KELSTDMT_API bool tmString2Time(const char *text, long *result);

KEL_DECLARE_STRUCT(tmXException)
class KELSTDMT_API tmXException : public kelXExternFunc {
    KEL_CLASS(tmXException, kelXExternFunc)
public:
    using kelXExternFunc::kelXExternFunc;
};

KEL_DECLARE_STRUCT(tmXInvalTimeString)
class KELSTDMT_API tmXInvalTimeString : public tmXException {
    KEL_CLASS(tmXInvalTimeString, tmXException)
public:
    tmXInvalTimeString(const char *text, const char *format, const char *description, kelXFunc *func);
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
    // Keeps a copy of the time.
    tmXCantMakeTimeString(tmTime *time, const char *format, const char *description, kelXFunc *func);
    tmTime *getTime() { return &m_time; }
    xstring getFormat() const { return m_format; }
    void Print(std::ostream &out) const override;

private:
    xauto<tmTime> m_time;
    xstring m_format;
};
