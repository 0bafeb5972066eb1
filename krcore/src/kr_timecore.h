// kr_timecore.h — the civil calendar arithmetic that kr_time.cpp and kr_timetext.cpp share; not
// installed. Day numbers count from 1970-01-01; the calendar is the proleptic Gregorian one with
// astronomical years.
#ifndef KRCORE_SRC_KR_TIMECORE_H
#define KRCORE_SRC_KR_TIMECORE_H

#include "kr_time.h"

namespace krInternal {

const long long kTimeMinDays = -4371587;  // -9999-01-01
const long long kTimeMaxDays = 2932896;   // 9999-12-31
const long long kMsPerDay = 86400000;
const long long kTimeMinSeconds = kTimeMinDays * kSecondsPerDay;
const long long kTimeMaxSeconds = kTimeMaxDays * kSecondsPerDay + kSecondsPerDay - 1;
const long long kTimeMinMs = kTimeMinSeconds * 1000;
const long long kTimeMaxMs = kTimeMaxSeconds * 1000 + 999;

// The day numbers of dates are daysFromCivil, in kr_time.h.

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
