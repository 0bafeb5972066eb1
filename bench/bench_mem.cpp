// bench_mem.cpp — KR_Memory::memCopy of an unchanged size against memcpy, and the stream's
// number output through a handler against snprintf.
#include <stdio.h>
#include <string.h>

#include <vector>

#include "benchmark/benchmark.h"

#include "krcore.h"

namespace {

constexpr unsigned int kBlock = 1u << 20;

struct KrMemoryCopy {
    KR_Memory block{kBlock};

    void copy(const void* src) { block.memCopy(src, kBlock); }

    const void* data() { return block.memPtr(); }
};

struct Memcpy {
    std::vector<unsigned char> block = std::vector<unsigned char>(kBlock);

    void copy(const void* src) { memcpy(block.data(), src, kBlock); }

    const void* data() { return block.data(); }
};

template <class Adapter>
void BM_CopySameSize(benchmark::State& state) {
    std::vector<unsigned char> source(kBlock);
    for (unsigned int i = 0; i < kBlock; ++i)
        source[i] = static_cast<unsigned char>(i * 31u);
    Adapter target;
    for (auto _ : state) {
        target.copy(source.data());
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kBlock);
}

BENCHMARK_TEMPLATE(BM_CopySameSize, KrMemoryCopy);
BENCHMARK_TEMPLATE(BM_CopySameSize, Memcpy);

KR_RET_STATUS sink(char* text) {
    benchmark::DoNotOptimize(text);
    return KR_RET_TRUE;
}

struct KrStreamNumbers {
    KR_OStream stream;

    KrStreamNumbers() { stream.setConsoleHandler(sink); }

    void put(long value, double real) { stream << value << real; }
};

struct SnprintfNumbers {
    void put(long value, double real) {
        char text[64];
        snprintf(text, sizeof text, "%ld", value);
        sink(text);
        snprintf(text, sizeof text, "%lf", real);
        sink(text);
    }
};

template <class Adapter>
void BM_NumbersThroughHandler(benchmark::State& state) {
    Adapter out;
    long value = 123456789;
    for (auto _ : state) {
        out.put(value, static_cast<double>(value) * 0.25);
        ++value;
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 2);
}

BENCHMARK_TEMPLATE(BM_NumbersThroughHandler, KrStreamNumbers);
BENCHMARK_TEMPLATE(BM_NumbersThroughHandler, SnprintfNumbers);

}  // namespace

int main(int argc, char** argv) {
    KR_init();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    KR_close();
    return 0;
}
