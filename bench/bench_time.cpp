// bench_time.cpp — the calendar hot paths beside glibc (gmtime_r, timegm, strptime) and Howard
// Hinnant's date library (civil_from_days and days_from_civil through year_month_day), on the
// same seeded instants of the years 1600..2400.
#include <date/date.h>
#include <stdlib.h>
#include <time.h>

#include <chrono>
#include <random>
#include <string>
#include <vector>

#include "benchmark/benchmark.h"

#include "krcore.h"

namespace {

constexpr size_t kBatch = 1024;

const std::vector<long long>& instants() {
    static std::vector<long long> v = [] {
        std::mt19937_64 rng(14);
        std::uniform_int_distribution<long long> d(-11676096000LL, 13569465599LL);
        std::vector<long long> out(kBatch);
        for (auto& s : out)
            s = d(rng);
        return out;
    }();
    return v;
}

const std::vector<std::string>& texts() {
    static std::vector<std::string> v = [] {
        std::vector<std::string> out;
        for (long long s : instants()) {
            KR_DateTime t;
            KR_timeFromUnix(s, t);
            char text[64];
            snprintf(text, sizeof text, "%04d-%02u-%02uT%02u:%02u:%02u+01:30", t.year, t.month,
                     t.day, t.hour, t.minute, t.second);
            out.push_back(text);
        }
        return out;
    }();
    return v;
}

// --- adapters: seconds to a civil record and back, and the text's full form ---

struct Kr {
    using Civil = KR_DateTime;

    static void fromUnix(long long s, Civil& c) { KR_timeFromUnix(s, c); }

    static long long toUnix(const Civil& c) {
        long long s = 0;
        KR_timeToUnix(c, s);
        return s;
    }

    static bool fromText(const char* text, Civil& c) { return KR_timeFromText(text, c) == 1; }
};

struct Libc {
    using Civil = struct tm;

    static void fromUnix(long long s, Civil& c) {
        const time_t t = static_cast<time_t>(s);
        gmtime_r(&t, &c);
    }

    static long long toUnix(const Civil& c) {
        Civil copy = c;
        return static_cast<long long>(timegm(&copy));
    }

    static bool fromText(const char* text, Civil& c) {
        return strptime(text, "%Y-%m-%dT%H:%M:%S%z", &c) != nullptr;
    }
};

struct DateLib {
    struct Civil {
        date::year_month_day ymd;
        date::hh_mm_ss<std::chrono::seconds> hms;
    };

    static void fromUnix(long long s, Civil& c) {
        const date::sys_seconds t{std::chrono::seconds{s}};
        const auto day = date::floor<date::days>(t);
        c.ymd = date::year_month_day{day};
        c.hms = date::hh_mm_ss<std::chrono::seconds>{t - day};
    }

    static long long toUnix(const Civil& c) {
        return (date::sys_days{c.ymd} + c.hms.to_duration()).time_since_epoch().count();
    }
};

template <class A>
void BM_FromUnix(benchmark::State& state) {
    const auto& in = instants();
    typename A::Civil c{};
    for (auto _ : state) {
        for (long long s : in) {
            A::fromUnix(s, c);
            benchmark::DoNotOptimize(c);
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * in.size()));
}

template <class A>
void BM_ToUnix(benchmark::State& state) {
    std::vector<typename A::Civil> in(kBatch);
    for (size_t i = 0; i < kBatch; ++i)
        A::fromUnix(instants()[i], in[i]);
    for (auto _ : state) {
        long long sum = 0;
        for (const auto& c : in)
            sum += A::toUnix(c);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * in.size()));
}

template <class A>
void BM_FromText(benchmark::State& state) {
    const auto& in = texts();
    typename A::Civil c{};
    for (auto _ : state) {
        for (const auto& text : in) {
            benchmark::DoNotOptimize(A::fromText(text.c_str(), c));
            benchmark::DoNotOptimize(c);
        }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * in.size()));
}

}  // namespace

BENCHMARK_TEMPLATE(BM_FromUnix, Kr);
BENCHMARK_TEMPLATE(BM_FromUnix, Libc);
BENCHMARK_TEMPLATE(BM_FromUnix, DateLib);
BENCHMARK_TEMPLATE(BM_ToUnix, Kr);
BENCHMARK_TEMPLATE(BM_ToUnix, Libc);
BENCHMARK_TEMPLATE(BM_ToUnix, DateLib);
BENCHMARK_TEMPLATE(BM_FromText, Kr);
BENCHMARK_TEMPLATE(BM_FromText, Libc);

int main(int argc, char** argv) {
    if (KR_init() > 2) return 1;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    KR_close();
    return 0;
}
