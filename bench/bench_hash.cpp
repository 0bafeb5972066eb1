// bench_hash.cpp — lookups in KR_HashTable<KR_Var, KR_Var> with 1,024 buckets and the default
// variant hash, as the class registry makes them, against std::unordered_map<std::string, void*>
// on the same 1,000 GUID texts.
#include <stdint.h>

#include <random>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "benchmark/benchmark.h"

#include "krcore.h"

namespace {

constexpr unsigned int kKeys = 1000;
constexpr unsigned int kBuckets = 1024;

// "{8-4-4-4-12}" upper-case hexadecimal digits, as class GUID texts are written. Fixed seed.
const std::vector<std::string>& guidTexts() {
    static const std::vector<std::string> texts = [] {
        std::mt19937 rng(1024);
        const char digits[] = "0123456789ABCDEF";
        std::vector<std::string> result;
        while (result.size() < kKeys) {
            std::string text = "{";
            for (int group : {8, 4, 4, 4, 12}) {
                if (text.size() > 1) text += '-';
                for (int i = 0; i < group; ++i)
                    text += digits[rng() % 16];
            }
            result.push_back(text + "}");
        }
        return result;
    }();
    return texts;
}

// Each key's value is a pointer, as the registry stores its interface functions.
void* valueOf(unsigned int i) {
    return reinterpret_cast<void*>(static_cast<uintptr_t>(i + 1) * 16);
}

struct KrVarTable {
    KR_HashTable<KR_Var, KR_Var> table{kBuckets, KR_defHashFuncVarKey, nullptr};
    std::vector<KR_Var> keys;
    KR_Var out;

    KrVarTable() {
        for (unsigned int i = 0; i < kKeys; ++i) {
            keys.emplace_back(guidTexts()[i].c_str());
            KR_Var value(valueOf(i));
            table.addEntry(keys.back(), value);
        }
    }

    void* find(unsigned int i) {
        table.getEntryData(keys[i], out);
        return out.ptr();
    }

    // Buckets that hold at least one key.
    unsigned int bucketsUsed() {
        std::set<unsigned int> used;
        for (KR_Var& key : keys)
            used.insert(KR_defHashFuncVarKey(key, kBuckets));
        return static_cast<unsigned int>(used.size());
    }
};

struct StdUnorderedMap {
    std::unordered_map<std::string, void*> map;
    std::vector<std::string> keys = guidTexts();

    StdUnorderedMap() {
        map.reserve(kBuckets);
        for (unsigned int i = 0; i < kKeys; ++i)
            map.emplace(keys[i], valueOf(i));
    }

    void* find(unsigned int i) { return map.find(keys[i])->second; }

    unsigned int bucketsUsed() {
        unsigned int used = 0;
        for (size_t b = 0; b < map.bucket_count(); ++b)
            used += map.bucket_size(b) > 0 ? 1 : 0;
        return used;
    }
};

// Every key once per iteration, in the order they were added.
template <class Adapter>
void BM_Lookup(benchmark::State& state) {
    Adapter adapter;
    for (unsigned int i = 0; i < kKeys; ++i) {
        if (adapter.find(i) != valueOf(i)) {
            state.SkipWithError("a lookup missed");
            return;
        }
    }
    for (auto _ : state) {
        for (unsigned int i = 0; i < kKeys; ++i)
            benchmark::DoNotOptimize(adapter.find(i));
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kKeys);
    state.counters["buckets_used"] = adapter.bucketsUsed();
}

BENCHMARK_TEMPLATE(BM_Lookup, KrVarTable)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Lookup, StdUnorderedMap)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
    KR_init();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    KR_close();
    return 0;
}
