// time_golden.cpp — golden tables for the time tests, computed with Howard Hinnant's date
// library and its time-zone part over the system's zone database. Built and run by
// tools/time_golden.sh, which writes tests/data/time_golden.txt. Rows are "<table> <numbers>":
//   civil  <days since 1970> <year> <month> <day> <weekday 0=Sunday>
//   unix   <seconds> <year> <month> <day> <hour> <minute> <second>
//   berlin <UTC seconds> <local year> <month> <day> <hour> <minute> <second> <repeated 0/1>
// civil and unix hold a seeded sample plus the ends of the years -9999..9999 (the tests walk the
// whole range themselves); berlin holds a sample of 2000..2030 in Europe/Berlin plus both sides
// of every clock change, and marks the local times that occur twice.
#include <date/date.h>
#include <date/tz.h>
#include <stdio.h>

#include <chrono>
#include <random>

namespace {

using namespace std::chrono;

const long long kMinDays = -4371587;
const long long kMaxDays = 2932896;

void civil(long long n) {
    const date::sys_days d{date::days{n}};
    const date::year_month_day ymd{d};
    printf("civil %lld %d %u %u %u\n", n, static_cast<int>(ymd.year()),
           static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
           date::weekday{d}.c_encoding());
}

void unix(long long s) {
    const date::sys_seconds t{seconds{s}};
    const auto day = date::floor<date::days>(t);
    const date::year_month_day ymd{day};
    const date::hh_mm_ss<seconds> hms{t - day};
    printf("unix %lld %d %u %u %d %d %d\n", s, static_cast<int>(ymd.year()),
           static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
           static_cast<int>(hms.hours().count()), static_cast<int>(hms.minutes().count()),
           static_cast<int>(hms.seconds().count()));
}

void berlin(const date::time_zone* zone, long long s) {
    const date::sys_seconds t{seconds{s}};
    const auto local = zone->to_local(t);
    const auto day = date::floor<date::days>(local);
    const date::year_month_day ymd{day};
    const date::hh_mm_ss<seconds> hms{local - day};
    const bool repeated = zone->get_info(local).result == date::local_info::ambiguous;
    printf("berlin %lld %d %u %u %d %d %d %d\n", s, static_cast<int>(ymd.year()),
           static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
           static_cast<int>(hms.hours().count()), static_cast<int>(hms.minutes().count()),
           static_cast<int>(hms.seconds().count()), repeated ? 1 : 0);
}

}  // namespace

int main() {
    std::mt19937_64 rng(20261124);
    printf("# tests/data/time_golden.txt: made by tools/time_golden.sh with the date library\n");
    for (long long n : {kMinDays, kMinDays + 1, -719528LL, -1LL, 0LL, 1LL, kMaxDays - 1, kMaxDays})
        civil(n);
    std::uniform_int_distribution<long long> days(kMinDays, kMaxDays);
    for (int i = 0; i < 400; ++i)
        civil(days(rng));
    for (long long s : {kMinDays * 86400, -1LL, 0LL, 86399LL, kMaxDays * 86400 + 86399})
        unix(s);
    std::uniform_int_distribution<long long> secs(kMinDays * 86400, kMaxDays * 86400 + 86399);
    for (int i = 0; i < 200; ++i)
        unix(secs(rng));
    const date::time_zone* zone = date::locate_zone("Europe/Berlin");
    const long long from = 946684800;  // 2000-01-01
    const long long to = 1924991999;   // 2030-12-31 23:59:59
    std::uniform_int_distribution<long long> span(from, to);
    for (int i = 0; i < 200; ++i)
        berlin(zone, span(rng));
    for (auto info = zone->get_info(date::sys_seconds{seconds{from}});
         info.end.time_since_epoch().count() <= to; info = zone->get_info(info.end)) {
        const long long change = info.end.time_since_epoch().count();
        for (long long s : {change - 3601, change - 1, change, change + 1800})
            berlin(zone, s);
    }
    return 0;
}
