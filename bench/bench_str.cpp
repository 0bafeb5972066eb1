// bench_str.cpp — KR_strSubstitute against a hand-written std::string replace, and
// KR_splitString against strtok into a std::vector<std::string>, on the same 1 MiB text.
#include <stdlib.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "benchmark/benchmark.h"

#include "krcore.h"

namespace {

constexpr size_t kTextSize = 1u << 20;
const char kPattern[] = "NEEDLE";
const char kReplacement[] = "replacement!";
const char kDelimiters[] = " ,";

// Lower-case words of 3 to 10 letters between single spaces or commas, with the upper-case
// pattern before every 35th word (about 4,000 matches in 1 MiB). Fixed seed.
const std::string& benchText() {
    static const std::string text = [] {
        std::mt19937 rng(42);
        std::string result;
        result.reserve(kTextSize + 32);
        for (unsigned int word = 1; result.size() < kTextSize; ++word) {
            if (word % 35 == 0) result += kPattern;
            for (unsigned int n = 3 + rng() % 8; n > 0; --n)
                result += static_cast<char>('a' + rng() % 26);
            result += word % 7 == 0 ? ',' : ' ';
        }
        result.resize(kTextSize);
        return result;
    }();
    return text;
}

struct KrSubstitute {
    static size_t run(const std::string& text) {
        // The result's first byte stands for it: its length would cost a pass that the
        // peer's std::string does not pay.
        char* out = nullptr;
        KR_strSubstitute(&out, text.c_str(), kReplacement, kPattern, 1);
        size_t first = out == nullptr ? 0 : static_cast<unsigned char>(out[0]);
        free(out);
        return first;
    }
};

// What a user would write: std::string::find and append into an output reserved for the
// text and a quarter more, so that it never grows on this data.
struct StdReplace {
    static size_t run(const std::string& text) {
        const size_t patternLength = sizeof kPattern - 1;
        std::string out;
        out.reserve(text.size() + text.size() / 4);
        size_t done = 0;
        for (size_t at = text.find(kPattern, 0, patternLength); at != std::string::npos;
             at = text.find(kPattern, done, patternLength)) {
            out.append(text, done, at - done).append(kReplacement);
            done = at + patternLength;
        }
        out.append(text, done, std::string::npos);
        return out.size();
    }
};

template <class Adapter>
void BM_Substitute(benchmark::State& state) {
    const std::string& text = benchText();
    for (auto _ : state)
        benchmark::DoNotOptimize(Adapter::run(text));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kTextSize);
}

BENCHMARK_TEMPLATE(BM_Substitute, KrSubstitute)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Substitute, StdReplace)->Unit(benchmark::kMicrosecond);

struct KrSplit {
    KR_Array<KR_String> tokens;

    size_t run(const std::string& text) {
        KR_splitString(text.c_str(), kDelimiters, tokens);
        return tokens.numElems();
    }
};

// strtok writes into its text, so the copy is part of the peer's work.
struct StrtokVector {
    size_t run(const std::string& text) {
        std::string work(text);
        std::vector<std::string> tokens;
        for (char* t = strtok(&work[0], kDelimiters); t != nullptr;
             t = strtok(nullptr, kDelimiters)) {
            tokens.emplace_back(t);
        }
        return tokens.size();
    }
};

template <class Adapter>
void BM_Split(benchmark::State& state) {
    const std::string& text = benchText();
    Adapter adapter;
    size_t count = 0;
    for (auto _ : state) {
        count = adapter.run(text);
        benchmark::DoNotOptimize(count);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * count));
}

BENCHMARK_TEMPLATE(BM_Split, KrSplit)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Split, StrtokVector)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
    KR_init();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    KR_close();
    return 0;
}
