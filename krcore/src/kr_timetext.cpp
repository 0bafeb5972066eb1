// kr_timetext.cpp — month and day names, and the ISO 8601 text of a date and time.
#include <wchar.h>

#include "kr_report.h"
#include "kr_time.h"
#include "kr_timecore.h"

#define KRI_UNIT "src/kr_time"

namespace {

const char* const kMonths[12] = {"January",   "February", "March",    "April",
                                 "May",       "June",     "July",     "August",
                                 "September", "October",  "November", "December"};
const wchar_t* const kMonthsW[12] = {L"January",   L"February", L"March",    L"April",
                                     L"May",       L"June",     L"July",     L"August",
                                     L"September", L"October",  L"November", L"December"};
const char* const kMonthsShort[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
const wchar_t* const kMonthsShortW[12] = {L"Jan", L"Feb", L"Mar", L"Apr", L"May", L"Jun",
                                          L"Jul", L"Aug", L"Sep", L"Oct", L"Nov", L"Dec"};
const char* const kDays[7] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                              "Thursday", "Friday", "Saturday"};
const wchar_t* const kDaysW[7] = {L"Sunday",   L"Monday", L"Tuesday", L"Wednesday",
                                  L"Thursday", L"Friday", L"Saturday"};
const char* const kDaysShort[7] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const wchar_t* const kDaysShortW[7] = {L"Sun", L"Mon", L"Tue", L"Wed", L"Thu", L"Fri", L"Sat"};

template <class C>
bool isBlank(C c) {
    return c == ' ' || c == '\t';
}

template <class C>
unsigned int digit(C c) {
    return static_cast<unsigned int>(c) - '0';
}

// True when text, without surrounding blanks, is name in any ASCII case.
template <class C>
bool sameName(const C* text, const char* name) {
    while (isBlank(*text))
        ++text;
    for (; *name != '\0'; ++text, ++name) {
        C c = *text;
        if (c >= 'a' && c <= 'z') c = static_cast<C>(c - 'a' + 'A');
        C n = static_cast<C>(*name >= 'a' && *name <= 'z' ? *name - 'a' + 'A' : *name);
        if (c != n) return false;
    }
    while (isBlank(*text))
        ++text;
    return *text == 0;
}

template <class C>
KR_RET_STATUS fromName(const C* name,
                       const char* const* full,
                       const char* const* abbreviated,
                       unsigned int count,
                       unsigned int first,
                       unsigned int& out,
                       unsigned int line) {
    krInternal::clearUserError();
    if (name == nullptr) return krInternal::failAt(KR_RET_ERR_ARG, KRI_UNIT, line);
    for (unsigned int i = 0; i < count; ++i) {
        if (sameName(name, full[i]) || sameName(name, abbreviated[i])) {
            out = i + first;
            return KR_RET_TRUE;
        }
    }
    return KR_RET_FALSE;
}

// The number of the two decimal digits at p, or 100 when they are not both digits. p[1] is read
// only when p[0] is a digit, so never past the text's end.
template <class C>
inline unsigned int twoDigits(const C* p) {
    const unsigned int a = digit(p[0]);
    if (a > 9u) return 100u;
    const unsigned int b = digit(p[1]);
    if (b > 9u) return 100u;
    return a * 10u + b;
}

// Moves a valid t by less than a day of minutes either way, day by day through the calendar;
// false when that leaves the range.
inline bool shiftMinutes(KR_DateTime& t, int minutes) {
    int m = static_cast<int>(t.hour * 60u + t.minute) + minutes;
    if (m < 0) {
        m += 1440;
        if (--t.day == 0) {
            if (--t.month == 0) {
                t.month = 12;
                if (--t.year < krInternal::kTimeMinYear) return false;
            }
            t.day = krInternal::timeDaysInMonth(t.year, t.month);
        }
    } else if (m >= 1440) {
        m -= 1440;
        if (++t.day > krInternal::timeDaysInMonth(t.year, t.month)) {
            t.day = 1;
            if (++t.month > 12) {
                t.month = 1;
                if (++t.year > krInternal::kTimeMaxYear) return false;
            }
        }
    }
    t.hour = static_cast<unsigned int>(m) / 60u;
    t.minute = static_cast<unsigned int>(m) % 60u;
    return true;
}

// The fields are read into locals and the record is built once at the end: a record filled
// field by field through references stays in memory, and copying it out then waits on its
// stores.
template <class C>
bool parseText(const C* p, KR_DateTime& out) {
    bool negative = false;
    if (*p == '+' || *p == '-') negative = *p++ == '-';
    const unsigned int high = twoDigits(p);
    if (high > 99u) return false;
    const unsigned int low = twoDigits(p + 2);
    if (low > 99u || p[4] != '-') return false;
    const unsigned int month = twoDigits(p + 5);
    if (month > 99u || p[7] != '-') return false;
    const unsigned int day = twoDigits(p + 8);
    if (day > 99u) return false;
    p += 10;
    unsigned int hour = 0, minute = 0, second = 0, ms = 0;
    int offsetMinutes = 0;
    if (*p == 'T' || *p == 't' || *p == ' ') {
        hour = twoDigits(p + 1);
        if (hour > 99u || p[3] != ':') return false;
        minute = twoDigits(p + 4);
        if (minute > 99u) return false;
        p += 6;
        if (*p == ':') {
            second = twoDigits(p + 1);
            if (second > 99u) return false;
            p += 3;
            if (*p == '.' || *p == ',') {
                ++p;
                unsigned int n = 0;
                for (; digit(*p) <= 9u; ++p, ++n) {
                    if (n < 3) ms = ms * 10u + digit(*p);
                }
                if (n == 0) return false;
                for (; n < 3; ++n)
                    ms *= 10u;
            }
        }
        if (*p == 'Z' || *p == 'z') {
            ++p;
        } else if (*p == '+' || *p == '-') {
            const bool west = *p == '-';
            const unsigned int oh = twoDigits(p + 1);
            if (oh > 23u || p[3] != ':') return false;
            const unsigned int om = twoDigits(p + 4);
            if (om > 59u) return false;
            p += 6;
            offsetMinutes = static_cast<int>(oh * 60u + om);
            if (west) offsetMinutes = -offsetMinutes;
        }
    }
    if (*p != 0) return false;
    KR_DateTime t;
    const int year = static_cast<int>(high * 100u + low);
    t.year = negative ? -year : year;
    t.month = month;
    t.day = day;
    t.hour = hour;
    t.minute = minute;
    t.second = second;
    t.millisecond = ms;
    if (!krInternal::timeValid(t)) return false;
    // Local time minus its offset is UTC.
    if (offsetMinutes != 0 && !shiftMinutes(t, -offsetMinutes)) return false;
    out = t;
    return true;
}

// Writes the text of a valid t into buffer (at least 32 characters) and answers its end.
template <class C>
C* formatText(const KR_DateTime& t, bool withMs, C* buffer) {
    C* p = buffer;
    unsigned int year = static_cast<unsigned int>(t.year);
    if (t.year < 0) {
        *p++ = '-';
        year = static_cast<unsigned int>(-t.year);
    }
    const auto put = [&p](unsigned int value, unsigned int width) {
        for (unsigned int i = width; i-- > 0; value /= 10u)
            p[i] = static_cast<C>('0' + value % 10u);
        p += width;
    };
    put(year, 4);
    *p++ = '-';
    put(t.month, 2);
    *p++ = '-';
    put(t.day, 2);
    *p++ = 'T';
    put(t.hour, 2);
    *p++ = ':';
    put(t.minute, 2);
    *p++ = ':';
    put(t.second, 2);
    if (withMs) {
        *p++ = '.';
        put(t.millisecond, 3);
    }
    *p = 0;
    return p;
}

template <class C, class S>
KR_RET_STATUS toText(const KR_DateTime& t, S& out, unsigned char withMs, unsigned int line) {
    krInternal::clearUserError();
    if (!krInternal::timeValid(t)) return krInternal::timeInvalid(t, line);
    C buffer[32];
    const C* end = formatText(t, withMs != 0, buffer);
    out = buffer;
    // The string reported its failed copy itself and holds nothing.
    if (out.strLeng() != static_cast<unsigned int>(end - buffer)) return KR_RET_ERR_MEM;
    return KR_RET_TRUE;
}

template <class C>
KR_RET_STATUS fromText(const C* text, KR_DateTime& out, unsigned int line) {
    krInternal::clearUserError();
    if (text == nullptr) return krInternal::failAt(KR_RET_ERR_ARG, KRI_UNIT, line);
    return parseText(text, out) ? KR_RET_TRUE : KR_RET_FALSE;
}

}  // namespace

const char* KR_timeMonthName(unsigned int month, unsigned char abbreviated) {
    if (month - 1u >= 12u) return nullptr;
    return abbreviated ? kMonthsShort[month - 1] : kMonths[month - 1];
}

const wchar_t* KR_timeMonthNameW(unsigned int month, unsigned char abbreviated) {
    if (month - 1u >= 12u) return nullptr;
    return abbreviated ? kMonthsShortW[month - 1] : kMonthsW[month - 1];
}

const char* KR_timeDayName(unsigned int dow, unsigned char abbreviated) {
    if (dow >= 7u) return nullptr;
    return abbreviated ? kDaysShort[dow] : kDays[dow];
}

const wchar_t* KR_timeDayNameW(unsigned int dow, unsigned char abbreviated) {
    if (dow >= 7u) return nullptr;
    return abbreviated ? kDaysShortW[dow] : kDaysW[dow];
}

KR_RET_STATUS KR_timeMonthFromName(const char* name, unsigned int& month) {
    return fromName(name, kMonths, kMonthsShort, 12, 1, month, __LINE__);
}

KR_RET_STATUS KR_timeMonthFromNameW(const wchar_t* name, unsigned int& month) {
    return fromName(name, kMonths, kMonthsShort, 12, 1, month, __LINE__);
}

KR_RET_STATUS KR_timeDayFromName(const char* name, unsigned int& dow) {
    return fromName(name, kDays, kDaysShort, 7, 0, dow, __LINE__);
}

KR_RET_STATUS KR_timeDayFromNameW(const wchar_t* name, unsigned int& dow) {
    return fromName(name, kDays, kDaysShort, 7, 0, dow, __LINE__);
}

KR_RET_STATUS KR_timeToText(const KR_DateTime& t, KR_String& out, unsigned char withMs) {
    return toText<char>(t, out, withMs, __LINE__);
}

KR_RET_STATUS KR_timeToTextW(const KR_DateTime& t, KR_StringW& out, unsigned char withMs) {
    return toText<wchar_t>(t, out, withMs, __LINE__);
}

KR_RET_STATUS KR_timeFromText(const char* text, KR_DateTime& out) {
    return fromText(text, out, __LINE__);
}

KR_RET_STATUS KR_timeFromTextW(const wchar_t* text, KR_DateTime& out) {
    return fromText(text, out, __LINE__);
}
