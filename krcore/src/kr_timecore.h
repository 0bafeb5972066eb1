// kr_timecore.h — the civil calendar arithmetic that kr_time.cpp and kr_timetext.cpp share; not
// installed. Day numbers count from 1970-01-01; the calendar is the proleptic Gregorian one with
// astronomical years.
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

// The date of a day number within kTimeMinDays..kTimeMaxDays.
inline void civilFromDays(long long days, KR_DateTime& t) {
    const unsigned int n = static_cast<unsigned int>(days + kCivilEpoch);
    const unsigned int n1 = 4u * n + 3u;
    const unsigned int century = n1 / 146097u;
    const unsigned int n2 = (n1 % 146097u) | 3u;
    const unsigned long long p2 = 2939745ull * n2;
    const unsigned int z = static_cast<unsigned int>(p2 >> 32);
    const unsigned int dayOfYear = static_cast<unsigned int>(p2) / 2939745u / 4u;
    const unsigned int n3 = 2141u * dayOfYear + 197913u;
    const unsigned int j = dayOfYear >= 306u;
    t.year = static_cast<int>(100u * century + z + j) - static_cast<int>(kEraShiftYears);
    t.month = (n3 >> 16) - (j ? 12u : 0u);
    t.day = (n3 & 0xFFFFu) / 2141u + 1u;
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
