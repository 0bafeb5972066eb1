// test_time.cpp — the calendar against the date library's golden tables and a day-by-day walk of
// the whole range, the time scales and their ends, ISO 8601 text, arithmetic, names, and local
// time in the zone the test runs under (TZ=UTC or TZ=Europe/Berlin, set by ctest).
#include <ctype.h>
#include <limits.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <string>
#include <vector>

#include "test_support.h"

namespace {

// dt(2024, 3, 10, 12) is 2024-03-10 12:00:00.000.
template <class... Fields>
KR_DateTime dt(int year, Fields... rest) {
    return KR_DateTime{year, static_cast<unsigned int>(rest)...};
}

std::string show(const KR_DateTime& t) {
    char text[64];
    snprintf(text, sizeof text, "%d-%u-%u %u:%u:%u.%u", t.year, t.month, t.day, t.hour, t.minute,
             t.second, t.millisecond);
    return text;
}

const KR_DateTime kSentinel = dt(1234, 5, 6, 7, 8, 9, 10);

// The rows of one table of tests/data/time_golden.txt (tools/time_golden.sh).
std::vector<std::vector<long long>> golden(const char* table) {
    std::vector<std::vector<long long>> rows;
    FILE* f = fopen(KR_TEST_DATA_DIR "/time_golden.txt", "r");
    EXPECT_NE(nullptr, f);
    if (f == nullptr) return rows;
    char line[256];
    const size_t n = strlen(table);
    while (fgets(line, sizeof line, f)) {
        if (strncmp(line, table, n) != 0 || line[n] != ' ') continue;
        std::vector<long long> row;
        char* end = line + n;
        for (char* p = end;; p = end) {
            const long long v = strtoll(p, &end, 10);
            if (end == p) break;
            row.push_back(v);
        }
        rows.push_back(row);
    }
    fclose(f);
    EXPECT_FALSE(rows.empty()) << table;
    return rows;
}

// The date and time in the six columns from at.
KR_DateTime fromRow(const std::vector<long long>& r, size_t at) {
    return dt(static_cast<int>(r[at]), r[at + 1], r[at + 2], r[at + 3], r[at + 4], r[at + 5]);
}

}  // namespace

TEST(TimeGolden, CivilAndUnixMatchTheDateLibrary) {
    for (const auto& r : golden("civil")) {
        KR_DateTime t = kSentinel;
        long long back = 0;
        unsigned int dow = 9;
        ASSERT_KR_OK(KR_timeFromDays(r[0], t)) << r[0];
        EXPECT_EQ(show(dt(static_cast<int>(r[1]), r[2], r[3])), show(t)) << r[0];
        EXPECT_KR_OK(KR_timeToDays(t, back));
        EXPECT_EQ(r[0], back);
        EXPECT_KR_OK(KR_timeDayOfWeek(t, dow));
        EXPECT_EQ(r[4], dow) << r[0];
    }
    for (const auto& r : golden("unix")) {
        KR_DateTime t = kSentinel;
        long long back = 0;
        ASSERT_KR_OK(KR_timeFromUnix(r[0], t)) << r[0];
        EXPECT_EQ(show(fromRow(r, 1)), show(t)) << r[0];
        EXPECT_KR_OK(KR_timeToUnix(t, back));
        EXPECT_EQ(r[0], back);
    }
}

// Every day of the range against a successor walk, and, where the host's time_t and gmtime_r
// reach, against the C library.
TEST(TimeCalendar, WholeRangeWalksDayByDay) {
    KR_DateTime expected = dt(-9999, 1, 1);
    unsigned int mismatches = 0;
    for (long long day = -4371587; day <= 2932896; ++day) {
        KR_DateTime t;
        long long back = 0;
        if (KR_timeFromDays(day, t) != KR_RET_TRUE || !(t == expected) ||
            KR_timeToDays(t, back) != KR_RET_TRUE || back != day) {
            if (++mismatches < 5) ADD_FAILURE() << day << " " << show(t) << " " << show(expected);
        }
#ifndef _WIN32
        if (sizeof(time_t) == 8 && day % 97 == 0) {
            const time_t s = static_cast<time_t>(day * 86400 + 45296);
            struct tm tm;
            ASSERT_NE(nullptr, gmtime_r(&s, &tm));
            KR_DateTime u;
            EXPECT_KR_OK(KR_timeFromUnix(s, u));
            EXPECT_EQ(show(dt(tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, 12, 34, 56)), show(u));
            EXPECT_EQ(static_cast<long long>(timegm(&tm)), static_cast<long long>(s));
        }
#endif
        if (++expected.day > KR_timeDaysInMonth(expected.year, expected.month)) {
            expected.day = 1;
            if (++expected.month > 12) expected.month = 1, ++expected.year;
        }
    }
    EXPECT_EQ(0u, mismatches);
    EXPECT_EQ(10000, expected.year);
}

TEST(TimeCalendar, ValidityAndCalendarAnswers) {
    const KR_DateTime invalid[] = {dt(1900, 2, 29),
                                   dt(10000, 1, 1),
                                   dt(2024, 1, 0),
                                   dt(2024, 1, 1, 24),
                                   dt(2024, 1, 1, 0, 60),
                                   dt(2024, 1, 1, 0, 0, 60),
                                   dt(2024, 1, 1, 0, 0, 0, 1000)};
    for (const KR_DateTime& t : invalid)
        EXPECT_FALSE(KR_timeIsValid(t)) << show(t);
    EXPECT_TRUE(KR_timeIsValid(dt(2000, 2, 29)) && KR_timeIsValid(dt(-4, 2, 29)));
    EXPECT_EQ(0u, KR_timeDaysInMonth(2024, 0) + KR_timeDaysInMonth(2024, 13));
    unsigned int n = 0;
    EXPECT_KR_OK(KR_timeDayOfYear(dt(2024, 12, 31), n));
    EXPECT_EQ(366u, n);
}

TEST(TimeScales, EpochsEndsAndRefusals) {
    KR_DateTime t = kSentinel;
    unsigned long long ticks = 0;
    double ole = 0;
    long long ms = 0;
    EXPECT_KR_OK(KR_timeToFileTime(dt(1970, 1, 1), ticks));
    EXPECT_EQ(116444736000000000ULL, ticks);
    EXPECT_KR_OK(KR_timeFromFileTime(116444736000009999ULL, t));
    EXPECT_EQ(show(dt(1970, 1, 1, 0, 0, 0, 0)), show(t));
    EXPECT_KR_OK(KR_timeFromFileTime(0, t));
    EXPECT_EQ(show(dt(1601, 1, 1)), show(t));
    EXPECT_KR_OK(KR_timeToOleDate(dt(1970, 1, 1), ole));
    EXPECT_EQ(25569.0, ole);
    EXPECT_KR_OK(KR_timeToOleDate(dt(1899, 12, 29, 6), ole));
    EXPECT_EQ(-1.25, ole);
    EXPECT_KR_OK(KR_timeFromOleDate(-1.25, t));
    EXPECT_EQ(show(dt(1899, 12, 29, 6)), show(t));
    KR_DateTime u;
    EXPECT_KR_OK(KR_timeFromOleDate(-0.5, t));
    EXPECT_KR_OK(KR_timeFromOleDate(0.5, u));
    EXPECT_TRUE(t == u);
    EXPECT_KR_OK(KR_timeFromOleDate(1.9999999999, t));  // rounds to the next midnight
    EXPECT_EQ(show(dt(1900, 1, 1)), show(t));
    EXPECT_KR_OK(KR_timeFromUnixMs(-1, t));
    EXPECT_EQ(show(dt(1969, 12, 31, 23, 59, 59, 999)), show(t));
    EXPECT_KR_OK(KR_timeToUnixMs(dt(9999, 12, 31, 23, 59, 59, 999), ms));
    EXPECT_EQ(253402300799999LL, ms);

    krtest::ReportCapture capture;
    const double badOle[] = {NAN, INFINITY, -INFINITY, 1e300, -4346019.0, 2958466.0};
    for (double v : badOle) {
        t = kSentinel;
        EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_timeFromOleDate(v, t)) << v;
        EXPECT_TRUE(t == kSentinel);
    }
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_timeToFileTime(dt(1600, 12, 31, 23, 59, 59), ticks));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_timeFromFileTime(~0ULL, t));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_timeFromDays(-4371588, t));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_timeFromDays(2932897, t));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_timeFromUnix(253402300800LL, t));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_timeFromUnixMs(LLONG_MIN, t));
    EXPECT_TRUE(t == kSentinel);
    capture.clear();
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_timeToUnix(dt(2023, 2, 29), ms));
    EXPECT_NE(std::string::npos,
              capture.located().find("src/kr_time: line N: KR_DateTime: invalid date\n"
                                     "2023-2-29 0:0:0.0"))
            << capture.located();
}

TEST(TimeText, ReadsEveryFormAndRefusesTheRest) {
    const struct {
        const char* text;
        KR_RET_STATUS status;
        KR_DateTime want;
    } rows[] = {
            {"2024-03-10", KR_RET_TRUE, dt(2024, 3, 10)},
            {"2024-03-10T12:00:00+01:30", KR_RET_TRUE, dt(2024, 3, 10, 10, 30)},
            {"2024-03-10 12:00", KR_RET_TRUE, dt(2024, 3, 10, 12)},
            {"2024-03-10t12:00:01z", KR_RET_TRUE, dt(2024, 3, 10, 12, 0, 1)},
            {"2024-03-10T12:00:01,5", KR_RET_TRUE, dt(2024, 3, 10, 12, 0, 1, 500)},
            {"2024-03-10T23:59:59.99999-00:30", KR_RET_TRUE, dt(2024, 3, 11, 0, 29, 59, 999)},
            {"2024-03-10T00:15-01:00", KR_RET_TRUE, dt(2024, 3, 10, 1, 15)},
            {"2024-03-01T00:15+01:00", KR_RET_TRUE, dt(2024, 2, 29, 23, 15)},
            {"-0001-12-31", KR_RET_TRUE, dt(-1, 12, 31)},
            {"+0000-01-01", KR_RET_TRUE, dt(0, 1, 1)},
            {"2000-02-29", KR_RET_TRUE, dt(2000, 2, 29)},
            {"1900-02-29", KR_RET_FALSE, kSentinel},
            {"2024-13-01", KR_RET_FALSE, kSentinel},
            {"2024-03-10T24:00", KR_RET_FALSE, kSentinel},
            {"2024-03-10T23:59:60", KR_RET_FALSE, kSentinel},
            {"2024-03-10T12:00.5", KR_RET_FALSE, kSentinel},
            {"2024-03-10T12:00:00.", KR_RET_FALSE, kSentinel},
            {"2024-03-10Z", KR_RET_FALSE, kSentinel},
            {"2024-03-10T12", KR_RET_FALSE, kSentinel},
            {"2024-03-10T12:00+24:00", KR_RET_FALSE, kSentinel},
            {"2024-03-10T12:00 ", KR_RET_FALSE, kSentinel},
            {"24-03-10", KR_RET_FALSE, kSentinel},
            {"9999-12-31T23:30-01:00", KR_RET_FALSE, kSentinel},
            {"-9999-01-01T00:30+01:00", KR_RET_FALSE, kSentinel},
            {"", KR_RET_FALSE, kSentinel},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        KR_DateTime t = kSentinel, w = kSentinel;
        const std::wstring wide(row.text, row.text + strlen(row.text));
        EXPECT_KR_STATUS(row.status, KR_timeFromText(row.text, t));
        EXPECT_KR_STATUS(row.status, KR_timeFromTextW(wide.c_str(), w));
        EXPECT_EQ(show(row.want), show(t));
        EXPECT_EQ(show(row.want), show(w));
    }
    KR_DateTime t = kSentinel;
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_timeFromText(nullptr, t));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_timeFromTextW(nullptr, t));
    EXPECT_TRUE(t == kSentinel);
}

TEST(TimeText, WritesAndReadsBack) {
    const struct {
        KR_DateTime t;
        unsigned char withMs;
        const char* text;
    } rows[] = {
            {dt(2024, 3, 10, 9, 5, 7, 42), 0, "2024-03-10T09:05:07"},
            {dt(2024, 3, 10, 9, 5, 7, 42), 1, "2024-03-10T09:05:07.042"},
            {dt(0, 1, 1), 0, "0000-01-01T00:00:00"},
            {dt(-1, 12, 31), 0, "-0001-12-31T00:00:00"},
            {dt(-9999, 1, 1, 0, 0, 0, 1), 1, "-9999-01-01T00:00:00.001"},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        KR_String s;
        KR_StringW w;
        KR_DateTime back = kSentinel;
        EXPECT_KR_OK(KR_timeToText(row.t, s, row.withMs));
        EXPECT_KR_OK(KR_timeToTextW(row.t, w, row.withMs));
        EXPECT_TRUE(s == row.text);
        EXPECT_TRUE(w == row.text);
        EXPECT_KR_OK(KR_timeFromText(row.text, back));
        if (row.withMs) {
            EXPECT_TRUE(back == row.t);
        }
    }
    KR_String s("kept");
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_timeToText(dt(2024, 2, 30), s, 0));
    EXPECT_TRUE(s == "kept");
}

TEST(TimeText, FailedCopyLeavesTheStringEmpty) {
    KR_REQUIRE_FAULT_INJECTION();
    krtest::ReportCapture capture;
    krtest::forEachAllocationFailure(
            [] { return KR_String("old"); },
            [](KR_String& s) { return KR_timeToText(dt(2024, 1, 1), s, 1); },
            [](KR_String& s, KR_RET_STATUS st, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, st);
                EXPECT_EQ(0u, s.strLeng());
            });
}

TEST(TimeArithmetic, AddsAndDiffsWithinTheRange) {
    KR_DateTime t = dt(2024, 2, 28, 23, 59, 59, 500);
    EXPECT_KR_OK(KR_timeAddSeconds(t, 1));
    EXPECT_EQ(show(dt(2024, 2, 29, 0, 0, 0, 500)), show(t));
    EXPECT_KR_OK(KR_timeAddDays(t, -365));
    EXPECT_EQ(show(dt(2023, 3, 1, 0, 0, 0, 500)), show(t));
    long long d = 0;
    EXPECT_KR_OK(KR_timeDiffSeconds(dt(2024, 1, 1, 0, 0, 1), dt(2024, 1, 1), d));
    EXPECT_EQ(1, d);  // a - b
    EXPECT_KR_OK(KR_timeDiffSeconds(dt(2024, 1, 1, 0, 0, 1), dt(2024, 1, 1, 0, 0, 0, 1), d));
    EXPECT_EQ(0, d);  // 999 ms, truncated
    EXPECT_KR_OK(KR_timeDiffSeconds(dt(2024, 1, 1), dt(2024, 1, 1, 0, 0, 1, 1), d));
    EXPECT_EQ(-1, d);
    krtest::ReportCapture capture;
    const KR_DateTime end = dt(9999, 12, 31, 23, 59, 59);
    t = end;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_timeAddSeconds(t, 1));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_timeAddSeconds(t, LLONG_MIN));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_timeAddDays(t, LLONG_MAX));
    EXPECT_TRUE(t == end);
}

TEST(TimeNames, BothWaysInBothWidths) {
    for (unsigned int m = 1; m <= 24; ++m) {
        std::string name = KR_timeMonthName((m - 1) % 12 + 1, m > 12);
        EXPECT_EQ(std::wstring(name.begin(), name.end()),
                  KR_timeMonthNameW((m - 1) % 12 + 1, m > 12));
        for (char& c : name)
            c = static_cast<char>(m % 2 ? toupper(c) : tolower(c));
        unsigned int back = 0;
        EXPECT_KR_OK(KR_timeMonthFromNameW(std::wstring(name.begin(), name.end()).c_str(), back));
        EXPECT_EQ((m - 1) % 12 + 1, back) << name;
    }
    for (unsigned int d = 0; d < 14; ++d) {
        unsigned int back = 9;
        EXPECT_KR_OK(KR_timeDayFromName(KR_timeDayName(d % 7, d > 6), back));
        EXPECT_EQ(d % 7, back);
    }
    EXPECT_STREQ("Sep", KR_timeMonthName(9, 1));
    EXPECT_TRUE(KR_timeMonthName(0, 0) == nullptr && KR_timeMonthNameW(13, 1) == nullptr &&
                KR_timeDayName(7, 0) == nullptr && KR_timeDayNameW(7, 1) == nullptr);
    unsigned int m = 77;
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_timeMonthFromName("Sept", m));
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_timeDayFromName("", m));
    EXPECT_EQ(77u, m);
    EXPECT_KR_OK(KR_timeMonthFromName(" may ", m));
    EXPECT_EQ(5u, m);
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_timeDayFromNameW(nullptr, m));
}

// UTC to local and back for 2000..2030 in the zone of the run. Under Berlin the date library's
// table is the oracle; a local time that occurs twice maps back to either instant.
TEST(TimeLocal, FollowsTheZoneOfTheRun) {
    const char* zone = getenv("TZ");
    const std::string tz = zone != nullptr ? zone : "";
    if (tz != "UTC" && tz != "Europe/Berlin") GTEST_SKIP() << "TZ is neither UTC nor Europe/Berlin";
    for (const auto& r : golden("berlin")) {
        KR_DateTime utc, local = kSentinel, back = kSentinel;
        ASSERT_KR_OK(KR_timeFromUnix(r[0], utc));
        utc.millisecond = 250;
        ASSERT_KR_OK(KR_timeUtcToLocal(utc, local)) << r[0];
        KR_DateTime want = tz == "UTC" ? utc : fromRow(r, 1);
        want.millisecond = 250;
        EXPECT_EQ(show(want), show(local)) << r[0];
        ASSERT_KR_OK(KR_timeLocalToUtc(local, back)) << r[0];
        long long apart = 0;
        EXPECT_KR_OK(KR_timeDiffSeconds(back, utc, apart));
        const bool repeated = tz != "UTC" && r[7] != 0;
        EXPECT_TRUE(apart == 0 || (repeated && (apart == 3600 || apart == -3600))) << r[0];
    }
    KR_DateTime out = kSentinel;
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_timeUtcToLocal(dt(1600, 12, 31, 23), out));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_timeLocalToUtc(dt(1600, 12, 31, 23), out));
    EXPECT_TRUE(out == kSentinel);
    KR_DateTime now, nowLocal;
    EXPECT_KR_OK(KR_timeNow(now, 0));
    EXPECT_KR_OK(KR_timeNow(nowLocal, 1));
    EXPECT_GE(now.year, 2024);
}
