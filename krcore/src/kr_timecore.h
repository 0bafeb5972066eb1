// kr_timecore.h — the civil calendar arithmetic that kr_time.cpp and kr_timetext.cpp share; not
// installed. Day numbers count from 1970-01-01; the calendar is the proleptic Gregorian one with
// astronomical years. The algorithms are Howard Hinnant's days_from_civil and civil_from_days,
// shifted by 25 eras of 400 years so that every quotient in the range is non-negative and the
// divisions are unsigned.
#ifndef KRCORE_SRC_KR_TIMECORE_H
#define KRCORE_SRC_KR_TIMECORE_H

#include "kr_time.h"

namespace krInternal {

const int kTimeMinYear = -9999;
const int kTimeMaxYear = 9999;
const long long kTimeMinDays = -4371587;  // -9999-01-01
const long long kTimeMaxDays = 2932896;   // 9999-12-31
const long long kSecondsPerDay = 86400;
const long long kMsPerDay = 86400000;
const long long kTimeMinSeconds = kTimeMinDays * kSecondsPerDay;
const long long kTimeMaxSeconds = kTimeMaxDays * kSecondsPerDay + kSecondsPerDay - 1;
const long long kTimeMinMs = kTimeMinSeconds * 1000;
const long long kTimeMaxMs = kTimeMaxSeconds * 1000 + 999;

// 25 eras of 146097 days, 10000 years: added to the day count of the algorithms (which count
// from 0000-03-01) so that -9999-01-01 lands above zero.
const unsigned int kEraShiftDays = 25u * 146097u;
const int kEraShiftYears = 25 * 400;
const unsigned int kCivilEpoch = 719468u;  // days from 0000-03-01 to 1970-01-01

inline bool timeIsLeap(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

inline unsigned int timeDaysInMonth(int year, unsigned int month) {
    static const unsigned char kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month - 1u >= 12u) return 0;
    return month == 2 && timeIsLeap(year) ? 29u : kDays[month - 1];
}

inline bool timeValid(const KR_DateTime& t) {
    return t.year >= kTimeMinYear && t.year <= kTimeMaxYear && t.month - 1u < 12u &&
           t.day - 1u < timeDaysInMonth(t.year, t.month) && t.hour < 24u && t.minute < 60u &&
           t.second < 60u && t.millisecond < 1000u;
}

// Days since 1970-01-01 of a valid date.
inline long long daysFromCivil(int year, unsigned int month, unsigned int day) {
    const unsigned int y = static_cast<unsigned int>(year + kEraShiftYears) - (month <= 2);
    const unsigned int era = y / 400u;
    const unsigned int yoe = y - era * 400u;
    const unsigned int doy = (153u * (month > 2 ? month - 3 : month + 9) + 2u) / 5u + day - 1u;
    const unsigned int doe = yoe * 365u + yoe / 4u - yoe / 100u + doy;
    return static_cast<long long>(era * 146097u + doe) - kEraShiftDays - kCivilEpoch;
}

// The date of a day number within kTimeMinDays..kTimeMaxDays.
inline void civilFromDays(long long days, KR_DateTime& t) {
    const unsigned int z = static_cast<unsigned int>(days + kCivilEpoch + kEraShiftDays);
    const unsigned int era = z / 146097u;
    const unsigned int doe = z - era * 146097u;
    const unsigned int yoe = (doe - doe / 1460u + doe / 36524u - doe / 146096u) / 365u;
    const unsigned int doy = doe - (365u * yoe + yoe / 4u - yoe / 100u);
    const unsigned int mp = (5u * doy + 2u) / 153u;
    t.day = doy - (153u * mp + 2u) / 5u + 1u;
    t.month = mp < 10u ? mp + 3u : mp - 9u;
    t.year = static_cast<int>(yoe + era * 400u) - kEraShiftYears + (t.month <= 2);
}

// t := the instant of Unix milliseconds within kTimeMinMs..kTimeMaxMs.
inline void civilFromUnixMs(long long ms, KR_DateTime& t) {
    const unsigned long long shifted = static_cast<unsigned long long>(ms - kTimeMinMs);
    const unsigned long long days = shifted / static_cast<unsigned long long>(kMsPerDay);
    unsigned int rest = static_cast<unsigned int>(shifted - days * kMsPerDay);
    civilFromDays(static_cast<long long>(days) + kTimeMinDays, t);
    t.millisecond = rest % 1000u;
    rest /= 1000u;
    t.second = rest % 60u;
    rest /= 60u;
    t.minute = rest % 60u;
    t.hour = rest / 60u;
}

inline long long unixMsFromCivil(const KR_DateTime& t) {
    return daysFromCivil(t.year, t.month, t.day) * kMsPerDay +
           ((t.hour * 60u + t.minute) * 60u + t.second) * 1000ll + t.millisecond;
}

// Reports t as an invalid date under "src/kr_time" at line and answers KR_RET_ERR_ARG.
KR_RET_STATUS timeInvalid(const KR_DateTime& t, unsigned int line);

}  // namespace krInternal

#endif  // KRCORE_SRC_KR_TIMECORE_H
