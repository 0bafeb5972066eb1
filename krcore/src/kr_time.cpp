// kr_time.cpp — the calendar, the time scales, local time and date arithmetic.
#include "kr_time.h"

#include <math.h>
#include <stdio.h>

#include "kr_platform.h"
#include "kr_report.h"
#include "kr_timecore.h"

#define KRI_UNIT "src/kr_time"

using krInternal::kMsPerDay;
using krInternal::kSecondsPerDay;
using krInternal::kTimeMaxDays;
using krInternal::kTimeMaxMs;
using krInternal::kTimeMaxSeconds;
using krInternal::kTimeMinDays;
using krInternal::kTimeMinMs;
using krInternal::kTimeMinSeconds;
using krInternal::timeInvalid;
using krInternal::timeValid;

namespace {

// Milliseconds from 1601-01-01, the FILETIME epoch, to 1970-01-01, and FILETIME ticks per
// millisecond.
const long long kFileTimeEpochMs = 11644473600000LL;
const unsigned long long kTicksPerMs = 10000;
// Days from 1899-12-30, the OLE epoch, to 1970-01-01.
const long long kOleEpochDays = 25569;
// Local time is converted from 1601-01-01 (Windows has nothing earlier) to the end of the range.
const long long kLocalMinSeconds = -11644473600LL;

// A scale value whose date lies outside the range: reported as an invalid date, with the value.
KR_RET_STATUS scaleRefused(const char* what, const char* value, unsigned int line) {
    KR_reportErrorMsg(KRI_UNIT, line, "KR_DateTime: invalid date", "%s %s", what, value);
    return krInternal::failAt(KR_RET_ERR_ARG, KRI_UNIT, line);
}

KR_RET_STATUS integerRefused(const char* what, long long value, unsigned int line) {
    char text[32];
    snprintf(text, sizeof text, "%lld", value);
    return scaleRefused(what, text, line);
}

void wallFromTime(const KR_DateTime& t, krPlatform::WallClock& w) {
    w.year = t.year;
    w.month = t.month;
    w.day = t.day;
    w.hour = t.hour;
    w.minute = t.minute;
    w.second = t.second;
}

bool timeFromWall(const krPlatform::WallClock& w, unsigned int ms, KR_DateTime& t) {
    KR_DateTime r;
    r.year = w.year;
    r.month = w.month;
    r.day = w.day;
    r.hour = w.hour;
    r.minute = w.minute;
    r.second = w.second;
    r.millisecond = ms;
    if (!timeValid(r)) return false;
    t = r;
    return true;
}

}  // namespace

KR_RET_STATUS krInternal::timeInvalid(const KR_DateTime& t, unsigned int line) {
    KR_reportErrorMsg(KRI_UNIT, line, "KR_DateTime: invalid date", "%d-%u-%u %u:%u:%u.%u", t.year,
                      t.month, t.day, t.hour, t.minute, t.second, t.millisecond);
    return krInternal::failAt(KR_RET_ERR_ARG, KRI_UNIT, line);
}

KR_RET_STATUS krInternal::timeRefused(const KR_DateTime& t) {
    return timeInvalid(t, __LINE__);
}

unsigned char KR_timeIsLeapYear(int year) {
    return krInternal::timeIsLeap(year) ? 1 : 0;
}

unsigned int KR_timeDaysInMonth(int year, unsigned int month) {
    return krInternal::timeDaysInMonth(year, month);
}

unsigned char KR_timeIsValid(const KR_DateTime& t) {
    return timeValid(t) ? 1 : 0;
}

KR_RET_STATUS KR_timeDayOfWeek(const KR_DateTime& t, unsigned int& dow) {
    krInternal::clearUserError();
    if (!timeValid(t)) return timeInvalid(t, __LINE__);
    // Shifted by a multiple of 7 days so that the remainder is taken of a positive number.
    const long long days = krInternal::daysFromCivil(t.year, t.month, t.day);
    dow = static_cast<unsigned int>((days + 4 + 7 * 700000) % 7);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_timeDayOfYear(const KR_DateTime& t, unsigned int& doy) {
    krInternal::clearUserError();
    if (!timeValid(t)) return timeInvalid(t, __LINE__);
    doy = static_cast<unsigned int>(krInternal::daysFromCivil(t.year, t.month, t.day) -
                                    krInternal::daysFromCivil(t.year, 1, 1)) +
          1u;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_timeToDays(const KR_DateTime& t, long long& days) {
    krInternal::clearUserError();
    if (!timeValid(t)) return timeInvalid(t, __LINE__);
    days = krInternal::daysFromCivil(t.year, t.month, t.day);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_timeFromDays(long long days, KR_DateTime& t) {
    krInternal::clearUserError();
    if (days < kTimeMinDays || days > kTimeMaxDays) return integerRefused("days", days, __LINE__);
    KR_DateTime r;
    krInternal::civilFromDays(days, r);
    t = r;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_timeFromUnix(long long seconds, KR_DateTime& t) {
    krInternal::clearUserError();
    if (seconds < kTimeMinSeconds || seconds > kTimeMaxSeconds) {
        return integerRefused("Unix seconds", seconds, __LINE__);
    }
    const unsigned long long shifted = static_cast<unsigned long long>(seconds - kTimeMinSeconds);
    const unsigned long long days = shifted / kSecondsPerDay;
    unsigned int rest = static_cast<unsigned int>(shifted - days * kSecondsPerDay);
    krInternal::civilFromDays(static_cast<long long>(days) + kTimeMinDays, t);
    t.second = rest % 60u;
    rest /= 60u;
    t.minute = rest % 60u;
    t.hour = rest / 60u;
    t.millisecond = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_timeToUnixMs(const KR_DateTime& t, long long& ms) {
    krInternal::clearUserError();
    if (!timeValid(t)) return timeInvalid(t, __LINE__);
    ms = krInternal::unixMsFromCivil(t);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_timeFromUnixMs(long long ms, KR_DateTime& t) {
    krInternal::clearUserError();
    if (ms < kTimeMinMs || ms > kTimeMaxMs)
        return integerRefused("Unix milliseconds", ms, __LINE__);
    krInternal::civilFromUnixMs(ms, t);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_timeToFileTime(const KR_DateTime& t, unsigned long long& ticks) {
    krInternal::clearUserError();
    if (!timeValid(t) || t.year < 1601) return timeInvalid(t, __LINE__);
    const long long ms = krInternal::unixMsFromCivil(t);
    ticks = static_cast<unsigned long long>(ms + kFileTimeEpochMs) * kTicksPerMs;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_timeFromFileTime(unsigned long long ticks, KR_DateTime& t) {
    krInternal::clearUserError();
    const unsigned long long maxTicks =
            static_cast<unsigned long long>(kTimeMaxMs + kFileTimeEpochMs) * kTicksPerMs +
            (kTicksPerMs - 1);
    if (ticks > maxTicks) {
        char text[32];
        snprintf(text, sizeof text, "%llu", ticks);
        return scaleRefused("FILETIME", text, __LINE__);
    }
    const long long ms = static_cast<long long>(ticks / kTicksPerMs) - kFileTimeEpochMs;
    krInternal::civilFromUnixMs(ms, t);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_timeToOleDate(const KR_DateTime& t, double& value) {
    krInternal::clearUserError();
    if (!timeValid(t)) return timeInvalid(t, __LINE__);
    const double d =
            static_cast<double>(krInternal::daysFromCivil(t.year, t.month, t.day) + kOleEpochDays);
    const double f = static_cast<double>(((t.hour * 60u + t.minute) * 60u + t.second) * 1000u +
                                         t.millisecond) /
                     static_cast<double>(kMsPerDay);
    value = d >= 0 ? d + f : d - f;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_timeFromOleDate(double value, KR_DateTime& t) {
    krInternal::clearUserError();
    // The whole days must lie in the range before anything is truncated: a NaN, an infinity or
    // a huge value never reaches a conversion to an integer.
    const double minValue = static_cast<double>(kTimeMinDays + kOleEpochDays - 1);
    const double maxValue = static_cast<double>(kTimeMaxDays + kOleEpochDays + 1);
    char text[40];
    if (!(value > minValue && value < maxValue)) {
        snprintf(text, sizeof text, "%.17g", value);
        return scaleRefused("OLE date", text, __LINE__);
    }
    const double whole = trunc(value);
    const long long d = static_cast<long long>(whole);
    const long long ms = llround(fabs(value - whole) * static_cast<double>(kMsPerDay));
    // A time that rounds to a whole day is the next day's midnight, both sides of the epoch.
    const long long unixMs = (d - kOleEpochDays) * kMsPerDay + ms;
    if (unixMs < kTimeMinMs || unixMs > kTimeMaxMs) {
        snprintf(text, sizeof text, "%.17g", value);
        return scaleRefused("OLE date", text, __LINE__);
    }
    krInternal::civilFromUnixMs(unixMs, t);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_timeNow(KR_DateTime& t, unsigned char local) {
    krInternal::clearUserError();
    const long long ms = krPlatform::nowUnixMs();
    KR_DateTime utc;
    krInternal::civilFromUnixMs(ms, utc);
    if (local == 0) {
        t = utc;
        return KR_RET_TRUE;
    }
    return KR_timeUtcToLocal(utc, t);
}

KR_RET_STATUS KR_timeUtcToLocal(const KR_DateTime& utc, KR_DateTime& local) {
    krInternal::clearUserError();
    if (!timeValid(utc) || utc.year < 1601) return timeInvalid(utc, __LINE__);
    const long long seconds = krInternal::unixMsFromCivil(utc) / 1000;
    krPlatform::WallClock wall;
    if (!krPlatform::utcToLocal(seconds, wall) || wall.year < 1601 ||
        !timeFromWall(wall, utc.millisecond, local)) {
        return timeInvalid(utc, __LINE__);
    }
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_timeLocalToUtc(const KR_DateTime& local, KR_DateTime& utc) {
    krInternal::clearUserError();
    if (!timeValid(local) || local.year < 1601) return timeInvalid(local, __LINE__);
    krPlatform::WallClock wall;
    wallFromTime(local, wall);
    long long seconds = 0;
    if (!krPlatform::localToUtc(wall, seconds) || seconds < kLocalMinSeconds ||
        seconds > kTimeMaxSeconds) {
        return timeInvalid(local, __LINE__);
    }
    krInternal::civilFromUnixMs(seconds * 1000 + local.millisecond, utc);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_timeAddSeconds(KR_DateTime& t, long long seconds) {
    krInternal::clearUserError();
    if (!timeValid(t)) return timeInvalid(t, __LINE__);
    // Bounded first, so that the sum in milliseconds cannot overflow.
    const long long span = kTimeMaxSeconds - kTimeMinSeconds;
    const long long ms = krInternal::unixMsFromCivil(t);
    if (seconds > span || seconds < -span || ms + seconds * 1000 < kTimeMinMs ||
        ms + seconds * 1000 > kTimeMaxMs) {
        return integerRefused("seconds added", seconds, __LINE__);
    }
    krInternal::civilFromUnixMs(ms + seconds * 1000, t);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_timeAddDays(KR_DateTime& t, long long days) {
    krInternal::clearUserError();
    if (!timeValid(t)) return timeInvalid(t, __LINE__);
    const long long span = kTimeMaxDays - kTimeMinDays;
    const long long from = krInternal::daysFromCivil(t.year, t.month, t.day);
    if (days > span || days < -span || from + days < kTimeMinDays || from + days > kTimeMaxDays) {
        return integerRefused("days added", days, __LINE__);
    }
    KR_DateTime r = t;
    krInternal::civilFromDays(from + days, r);
    t = r;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_timeDiffSeconds(const KR_DateTime& a, const KR_DateTime& b, long long& seconds) {
    krInternal::clearUserError();
    if (!timeValid(a)) return timeInvalid(a, __LINE__);
    if (!timeValid(b)) return timeInvalid(b, __LINE__);
    seconds = (krInternal::unixMsFromCivil(a) - krInternal::unixMsFromCivil(b)) / 1000;
    return KR_RET_TRUE;
}
