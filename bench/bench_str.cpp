// bench_str.cpp — KR_strSubstitute against a hand-written std::string replace, and
// KR_splitString against strtok into a std::vector<std::string>, on the same 1 MiB text; the
// W twins against the same peers on std::wstring and wcstok.
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

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
// pattern before every 35th word (about 4,000 matches in 1 MiB characters). Fixed seed.
const std::string& narrowText() {
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

// An ASCII text in C's width.
template <class C>
std::basic_string<C> widened(const std::string& text) {
    return std::basic_string<C>(text.begin(), text.end());
}

template <class C>
const std::basic_string<C>& benchText() {
    static const std::basic_string<C> text = widened<C>(narrowText());
    return text;
}

KR_RET_STATUS substitute(char** out, const char* text, const char* by, const char* pattern) {
    return KR_strSubstitute(out, text, by, pattern, 1);
}

KR_RET_STATUS substitute(wchar_t** out,
                         const wchar_t* text,
                         const wchar_t* by,
                         const wchar_t* pattern) {
    return KR_strSubstituteW(out, text, by, pattern, 1);
}

template <class C>
struct KrSubstitute {
    using Char = C;
    const std::basic_string<C> pattern = widened<C>(kPattern);
    const std::basic_string<C> replacement = widened<C>(kReplacement);

    // The result's first character stands for it: its length would cost a pass that the
    // peer's std::string does not pay.
    size_t run(const std::basic_string<C>& text) {
        C* out = nullptr;
        substitute(&out, text.c_str(), replacement.c_str(), pattern.c_str());
        size_t first = out == nullptr ? 0 : static_cast<size_t>(out[0]);
        free(out);
        return first;
    }
};

// What a user would write: std::string::find and append into an output reserved for the
// text and a quarter more, so that it never grows on this data.
template <class C>
struct StdReplace {
    using Char = C;
    const std::basic_string<C> pattern = widened<C>(kPattern);
    const std::basic_string<C> replacement = widened<C>(kReplacement);

    size_t run(const std::basic_string<C>& text) {
        std::basic_string<C> out;
        out.reserve(text.size() + text.size() / 4);
        size_t done = 0;
        for (size_t at = text.find(pattern); at != std::basic_string<C>::npos;
             at = text.find(pattern, done)) {
            out.append(text, done, at - done).append(replacement);
            done = at + pattern.size();
        }
        out.append(text, done, std::basic_string<C>::npos);
        return out.size();
    }
};

template <class Adapter>
void BM_Substitute(benchmark::State& state) {
    const auto& text = benchText<typename Adapter::Char>();
    Adapter adapter;
    for (auto _ : state)
        benchmark::DoNotOptimize(adapter.run(text));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kTextSize);
}

BENCHMARK_TEMPLATE(BM_Substitute, KrSubstitute<char>)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Substitute, StdReplace<char>)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Substitute, KrSubstitute<wchar_t>)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Substitute, StdReplace<wchar_t>)->Unit(benchmark::kMicrosecond);

struct KrSplit {
    using Char = char;
    KR_Array<KR_String> tokens;

    size_t run(const std::string& text) {
        KR_splitString(text.c_str(), kDelimiters, tokens);
        return tokens.numElems();
    }
};

struct KrSplitW {
    using Char = wchar_t;
    const std::wstring delimiters = widened<wchar_t>(kDelimiters);
    KR_Array<KR_StringW> tokens;

    size_t run(const std::wstring& text) {
        KR_splitStringW(text.c_str(), delimiters.c_str(), tokens);
        return tokens.numElems();
    }
};

// strtok writes into its text, so the copy is part of the peer's work.
struct StrtokVector {
    using Char = char;

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

struct WcstokVector {
    using Char = wchar_t;
    const std::wstring delimiters = widened<wchar_t>(kDelimiters);

    size_t run(const std::wstring& text) {
        std::wstring work(text);
        std::vector<std::wstring> tokens;
        wchar_t* state = nullptr;
        for (wchar_t* t = wcstok(&work[0], delimiters.c_str(), &state); t != nullptr;
             t = wcstok(nullptr, delimiters.c_str(), &state)) {
            tokens.emplace_back(t);
        }
        return tokens.size();
    }
};

template <class Adapter>
void BM_Split(benchmark::State& state) {
    const auto& text = benchText<typename Adapter::Char>();
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
BENCHMARK_TEMPLATE(BM_Split, KrSplitW)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Split, WcstokVector)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
    KR_init();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    KR_close();
    return 0;
}
