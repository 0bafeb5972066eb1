// kr_time.h — a calendar record and the time scales that hosts and databases use.
// KR_DateTime is a proleptic Gregorian date and time of day to the millisecond, without a zone.
// The free functions convert it to and from day numbers, Unix seconds and milliseconds, Windows
// FILETIME ticks and OLE Automation dates, between UTC and the host's local time, to and from
// ISO 8601 text, and name months and week days in English. All report under "src/kr_time".
//
// Range: years -9999..9999 (astronomical numbering: year 0 is 1 BC, -1 is 2 BC), that is the days
// -4371587..2932896 from 1970-01-01. Every conversion refuses a result outside it with
// KR_RET_ERR_ARG, reported as an invalid date, and leaves its output unchanged. Local time is
// narrower, the same on every platform: 1601-01-01 00:00:00 to 9999-12-31 23:59:59 on both sides
// of the conversion (Windows converts nothing earlier). There are no leap seconds: every day has
// 86400 seconds, as in Unix time.
//
//   KR_DateTime t;  KR_timeFromText("2024-03-10T12:00:00+01:30", t)  ->  t is 2024-03-10 10:30 UTC
//   KR_timeToUnix(t, s)  ->  s == 1710066600;  KR_timeDayOfWeek(t, d)  ->  d == 0 (Sunday)
#ifndef KRCORE_KR_TIME_H
#define KRCORE_KR_TIME_H

#include <wchar.h>

#include "kr_globals.h"
#include "kr_reporter.h"
#include "kr_str.h"

// KR_DateTime — a date and a time of day, a plain record. It holds no zone: the functions say
// whether they read it as UTC or as local time. A record is valid (KR_timeIsValid) when every
// field is in its range; the conversions refuse an invalid one. operator== and operator< compare
// the fields in their order, which for valid records is the order of time.
struct KR_DateTime {
    int year = 1970;               // -9999..9999, year 0 is 1 BC
    unsigned int month = 1;        // 1..12
    unsigned int day = 1;          // 1..KR_timeDaysInMonth(year, month)
    unsigned int hour = 0;         // 0..23
    unsigned int minute = 0;       // 0..59
    unsigned int second = 0;       // 0..59, no leap second
    unsigned int millisecond = 0;  // 0..999

    bool operator==(const KR_DateTime& o) const {
        return year == o.year && month == o.month && day == o.day && hour == o.hour &&
               minute == o.minute && second == o.second && millisecond == o.millisecond;
    }

    bool operator!=(const KR_DateTime& o) const { return !(*this == o); }

    bool operator<(const KR_DateTime& o) const {
        if (year != o.year) return year < o.year;
        if (month != o.month) return month < o.month;
        if (day != o.day) return day < o.day;
        if (hour != o.hour) return hour < o.hour;
        if (minute != o.minute) return minute < o.minute;
        if (second != o.second) return second < o.second;
        return millisecond < o.millisecond;
    }
};

// Calendar answers. They neither clear the user error nor report: they cannot fail.
// KR_timeDaysInMonth answers 0 for a month outside 1..12; the year may be any int.
KR_API unsigned char KR_timeIsLeapYear(int year);
KR_API unsigned int KR_timeDaysInMonth(int year, unsigned int month);
KR_API unsigned char KR_timeIsValid(const KR_DateTime& t);

// Every function below clears the user error first. An invalid record, or a scale value whose
// date lies outside the range, gives KR_RET_ERR_ARG with the report "KR_DateTime: invalid date"
// (then the fields "%d-%u-%u %u:%u:%u.%u", or the scale and its value) and leaves the output
// unchanged.
// dow := 0 (Sunday) .. 6 (Saturday), as C's tm_wday; 1970-01-01 is a Thursday (4).
KR_API KR_RET_STATUS KR_timeDayOfWeek(const KR_DateTime& t, unsigned int& dow);
// doy := 1..366.
KR_API KR_RET_STATUS KR_timeDayOfYear(const KR_DateTime& t, unsigned int& doy);

// Days since 1970-01-01. The time of day is ignored on the way in and zero on the way out.
KR_API KR_RET_STATUS KR_timeToDays(const KR_DateTime& t, long long& days);
KR_API KR_RET_STATUS KR_timeFromDays(long long days, KR_DateTime& t);
// Unix seconds (the record read as UTC): milliseconds are dropped on the way in and zero on the
// way out. Negative seconds are before 1970 and convert as any other.
inline KR_RET_STATUS KR_timeToUnix(const KR_DateTime& t, long long& seconds);
KR_API KR_RET_STATUS KR_timeFromUnix(long long seconds, KR_DateTime& t);
KR_API KR_RET_STATUS KR_timeToUnixMs(const KR_DateTime& t, long long& ms);
KR_API KR_RET_STATUS KR_timeFromUnixMs(long long ms, KR_DateTime& t);
// Windows FILETIME: 100-ns ticks since 1601-01-01 00:00 UTC. A date before 1601 has no ticks
// (KR_RET_ERR_ARG, reported as an invalid date). On the way back the ticks below a millisecond
// are truncated; ticks beyond 9999-12-31 are refused.
//   116444736000000000  <->  1970-01-01 00:00:00.000
KR_API KR_RET_STATUS KR_timeToFileTime(const KR_DateTime& t, unsigned long long& ticks);
KR_API KR_RET_STATUS KR_timeFromFileTime(unsigned long long ticks, KR_DateTime& t);
// OLE Automation date: whole days since 1899-12-30 with the time as a fraction of a day. Before
// 1899-12-30 the fraction is subtracted: 1899-12-29 06:00 is -1.25 (not -0.75), so -0.5 and 0.5
// are the same instant. On the way back the value is checked (finite, and a day within the
// range) before it is truncated, and the time is rounded to the nearest millisecond; a time that
// rounds to a whole day moves to the next day at 00:00.
//   25569.0  <->  1970-01-01 00:00;  -1.25  <->  1899-12-29 06:00
KR_API KR_RET_STATUS KR_timeToOleDate(const KR_DateTime& t, double& value);
KR_API KR_RET_STATUS KR_timeFromOleDate(double value, KR_DateTime& t);

// The current time to the millisecond, UTC when local is 0, else the host's local time.
KR_API KR_RET_STATUS KR_timeNow(KR_DateTime& t, unsigned char local);
// Between UTC and the host's local time with the zone rules of the year in question (POSIX:
// localtime_r and mktime with the TZ variable and the zone database; Windows: the dynamic zone's
// rules for the year converted, as the ...Ex conversions apply them). A local time that a clock
// change skips or repeats is resolved as the platform resolves it: a skipped time comes out
// moved by the change, a repeated one as either of its two instants. Outside
// 1601-01-01..9999-12-31, in or out, KR_RET_ERR_ARG as an invalid date. Milliseconds pass
// unchanged.
KR_API KR_RET_STATUS KR_timeUtcToLocal(const KR_DateTime& utc, KR_DateTime& local);
KR_API KR_RET_STATUS KR_timeLocalToUtc(const KR_DateTime& local, KR_DateTime& utc);

// Arithmetic in whole seconds or days; the milliseconds stay as they are.
KR_API KR_RET_STATUS KR_timeAddSeconds(KR_DateTime& t, long long seconds);
KR_API KR_RET_STATUS KR_timeAddDays(KR_DateTime& t, long long days);
// seconds := a - b, as difftime(a, b): positive when a is the later. The difference is taken in
// milliseconds and truncated towards zero, so 00:00:01.000 - 00:00:00.999 is 0.
KR_API KR_RET_STATUS KR_timeDiffSeconds(const KR_DateTime& a,
                                        const KR_DateTime& b,
                                        long long& seconds);

// English names: "January" .. "December" (abbreviated "Jan" .. "Dec"), "Sunday" .. "Saturday"
// ("Sun" .. "Sat"), static texts; null for a month outside 1..12 or a day above 6. They neither
// clear the user error nor report.
KR_API const char* KR_timeMonthName(unsigned int month, unsigned char abbreviated);
KR_API const wchar_t* KR_timeMonthNameW(unsigned int month, unsigned char abbreviated);
KR_API const char* KR_timeDayName(unsigned int dow, unsigned char abbreviated);
KR_API const wchar_t* KR_timeDayNameW(unsigned int dow, unsigned char abbreviated);
// The month (1..12) or week day (0..6) of a full or three-letter English name, in any case and
// without surrounding blanks. KR_RET_FALSE (output unchanged, no report) for anything else;
// KR_RET_ERR_ARG for a null name.
//   KR_timeMonthFromName("sEpT", m)  ->  m == 9;  KR_timeMonthFromName("Sept", m)  ->  KR_RET_FALSE
KR_API KR_RET_STATUS KR_timeMonthFromName(const char* name, unsigned int& month);
KR_API KR_RET_STATUS KR_timeMonthFromNameW(const wchar_t* name, unsigned int& month);
KR_API KR_RET_STATUS KR_timeDayFromName(const char* name, unsigned int& dow);
KR_API KR_RET_STATUS KR_timeDayFromNameW(const wchar_t* name, unsigned int& dow);

// ISO 8601 text: "YYYY-MM-DDTHH:MM:SS", with ".mmm" when withMs is set. A year outside 0..9999
// (here: a negative one) gets a sign and four digits: "-0001-12-31T00:00:00" is 2 BC's last day.
// An invalid record: KR_RET_ERR_ARG, out unchanged. When the string's copy fails, out is left
// empty and the answer is KR_RET_ERR_MEM (reported by the string).
KR_API KR_RET_STATUS KR_timeToText(const KR_DateTime& t, KR_String& out, unsigned char withMs);
KR_API KR_RET_STATUS KR_timeToTextW(const KR_DateTime& t, KR_StringW& out, unsigned char withMs);
// Reads "[+|-]YYYY-MM-DD", optionally followed by 'T', 't' or one blank and "HH:MM", then
// optionally ":SS", then (only after seconds) optionally '.' or ',' and one or more digits, which
// are truncated to milliseconds (so a fraction never rounds into the next second), then
// optionally 'Z', 'z' or "+HH:MM" / "-HH:MM" (offset hours 00..23, minutes 00..59), which
// converts the time to UTC. The year has exactly four digits ("-0000" is year 0). Hours run
// 00..23 ("24:00" is refused) and seconds 00..59 (a leap second ":60" is refused). Nothing may
// follow. Malformed text, an invalid date, or an offset that moves the time out of the range:
// KR_RET_FALSE with no report and out unchanged. A null text: KR_RET_ERR_ARG.
//   "2024-03-10 12:00"  ->  2024-03-10 12:00:00.000;  "2024-02-30"  ->  KR_RET_FALSE
KR_API KR_RET_STATUS KR_timeFromText(const char* text, KR_DateTime& out);
KR_API KR_RET_STATUS KR_timeFromTextW(const wchar_t* text, KR_DateTime& out);

// --- The calendar arithmetic behind the conversions (not for host code) ---
// Inline where a host's loop calls it through KR_timeToUnix. Day numbers count from 1970-01-01;
// the calendar is the proleptic Gregorian one with astronomical years.
namespace krInternal {

const int kTimeMinYear = -9999;
const int kTimeMaxYear = 9999;
const long long kSecondsPerDay = 86400;

// The conversions between dates and day numbers are Neri and Schneider's Euclidean affine
// forms of the civil calendar: a year starts on 1 March, so the leap day is the year's last,
// and multiplications and shifts replace most divisions. Years are shifted by 25 eras of 400
// years (146097 days each) so that every quantity in the range is unsigned.
const unsigned int kEraShiftYears = 25u * 400u;
const unsigned int kCivilEpoch = 719468u + 25u * 146097u;  // shifted 0000-03-01 to 1970-01-01

inline bool timeIsLeap(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

inline unsigned int timeDaysInMonth(int year, unsigned int month) {
    static const unsigned char kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month - 1u >= 12u) return 0;
    return month == 2 && timeIsLeap(year) ? 29u : kDays[month - 1];
}

inline bool timeValid(const KR_DateTime& t) {
    static const unsigned char kDays[13] = {0, 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (t.month - 1u >= 12u) return false;
    // One branch for the other fields: the comparisons are combined without short circuit.
    const unsigned int span = static_cast<unsigned int>(kTimeMaxYear - kTimeMinYear);
    if ((static_cast<unsigned int>(t.year - kTimeMinYear) > span) | (t.hour >= 24u) |
        (t.minute >= 60u) | (t.second >= 60u) | (t.millisecond >= 1000u)) {
        return false;
    }
    // Day 0 wraps above every month's length; the leap rule's divisions run only for 29 February.
    if (t.day - 1u < kDays[t.month]) return true;
    return t.day == 29 && t.month == 2 && timeIsLeap(t.year);
}

// Days since 1970-01-01 of a valid date.
inline long long daysFromCivil(int year, unsigned int month, unsigned int day) {
    const unsigned int j = month <= 2;
    const unsigned int y = static_cast<unsigned int>(year) + kEraShiftYears - j;
    const unsigned int m = j ? month + 12 : month;
    const unsigned int c = y / 100u;
    const unsigned int yearDays = 1461u * y / 4u - c + c / 4u;
    const unsigned int monthDays = (979u * m - 2919u) / 32u;
    return static_cast<long long>(yearDays + monthDays + day - 1u) - kCivilEpoch;
}

// Reports t as an invalid date under "src/kr_time" and answers KR_RET_ERR_ARG.
KR_API KR_RET_STATUS timeRefused(const KR_DateTime& t);

}  // namespace krInternal

inline KR_RET_STATUS KR_timeToUnix(const KR_DateTime& t, long long& seconds) {
    krInternal::clearUserError();
    if (!krInternal::timeValid(t)) return krInternal::timeRefused(t);
    const unsigned int ofDay = (t.hour * 60u + t.minute) * 60u + t.second;
    seconds =
            krInternal::daysFromCivil(t.year, t.month, t.day) * krInternal::kSecondsPerDay + ofDay;
    return KR_RET_TRUE;
}

#endif  // KRCORE_KR_TIME_H
