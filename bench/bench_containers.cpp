// bench_containers.cpp — the container templates against their std peers: bulk insertion and
// in-place moves of the array, cursor traversal of the list, the growable command stack, and
// one-at-a-time appends to the array (quadratic by design).
#include <stdint.h>
#include <string.h>

#include <list>
#include <type_traits>
#include <vector>

#include "benchmark/benchmark.h"

#include "krcore.h"

namespace {

constexpr unsigned int kMillion = 1000000;

// --- bulk insertion of a million elements (zero-filled), then writing a value into each ---
// Fill 0: the insertion alone (both fill with zeros). Fill 1: then a value through the checked
// element access. Fill 2: then a value through the element pointer (the block is contiguous).

struct KrArrayBulk {
    static unsigned int run(unsigned int n, int fill) {
        KR_Array<unsigned int> a(0, 1);
        a.insElems(KR_INS_AFTER, 0, n);
        if (fill == 1) {
            for (unsigned int i = 0; i < n; ++i)
                a[i] = i;
        } else if (fill == 2) {
            unsigned int* p = &a[0];
            for (unsigned int i = 0; i < n; ++i)
                p[i] = i;
        }
        return a[n / 2];
    }
};

struct StdVectorBulk {
    static unsigned int run(unsigned int n, int fill) {
        std::vector<unsigned int> v;
        v.insert(v.end(), n, 0u);
        if (fill != 0) {
            for (unsigned int i = 0; i < n; ++i)
                v[i] = i;
        }
        return v[n / 2];
    }
};

template <class Adapter>
void BM_BulkInsertFill(benchmark::State& state) {
    int fill = static_cast<int>(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(Adapter::run(kMillion, fill));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kMillion);
}

BENCHMARK_TEMPLATE(BM_BulkInsertFill, KrArrayBulk)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_BulkInsertFill, StdVectorBulk)
        ->DenseRange(0, 2)
        ->Unit(benchmark::kMicrosecond);

// --- moving 1 MiB one slot to the right inside the block ---

constexpr unsigned int kMoved = (1u << 20) / sizeof(unsigned int);

struct KrArrayMove {
    KR_Array<unsigned int> a{kMoved + 1, 1};

    void move() { a.memMove(1, 0, kMoved, 0); }

    void* data() { return &a[0]; }
};

struct Memmove {
    std::vector<unsigned int> v = std::vector<unsigned int>(kMoved + 1);

    void move() { memmove(v.data() + 1, v.data(), kMoved * sizeof(unsigned int)); }

    void* data() { return v.data(); }
};

template <class Adapter>
void BM_MemMove1MiB(benchmark::State& state) {
    Adapter block;
    for (auto _ : state) {
        block.move();
        benchmark::DoNotOptimize(block.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * (1 << 20));
}

BENCHMARK_TEMPLATE(BM_MemMove1MiB, KrArrayMove);
BENCHMARK_TEMPLATE(BM_MemMove1MiB, Memmove);

// --- full traversal of a list of 1,000,000 elements ---

constexpr unsigned int kListLength = kMillion;

struct KrListWalk {
    KR_LList<unsigned int> list;

    KrListWalk() {
        for (unsigned int i = 0; i < kListLength; ++i)
            list.appendElem(i);
    }

    unsigned long long sum() {
        unsigned long long total = 0;
        unsigned int* elem = nullptr;
        for (list.setCurFirst(); !list.curIsNull(); list.setCurNext()) {
            list.getCurElem(&elem);
            total += *elem;
        }
        return total;
    }
};

struct StdListWalk {
    std::list<unsigned int> list;

    StdListWalk() {
        for (unsigned int i = 0; i < kListLength; ++i)
            list.push_back(i);
    }

    unsigned long long sum() {
        unsigned long long total = 0;
        for (unsigned int v : list)
            total += v;
        return total;
    }
};

template <class Adapter>
void BM_ListTraversal(benchmark::State& state) {
    Adapter walk;
    for (auto _ : state)
        benchmark::DoNotOptimize(walk.sum());
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kListLength);
}

BENCHMARK_TEMPLATE(BM_ListTraversal, KrListWalk);
BENCHMARK_TEMPLATE(BM_ListTraversal, StdListWalk);

// --- the growable command stack: n pushes, then n pops ---

KR_Command* command(uintptr_t i) {
    return reinterpret_cast<KR_Command*>(i * 16);
}

uintptr_t asWord(KR_Command* c) {
    return reinterpret_cast<uintptr_t>(c);
}

uintptr_t asWord(unsigned int v) {
    return v;
}

struct KrCommandStack {
    static uintptr_t run(unsigned int n) {
        // The undo stack's own construction arguments.
        KR_Stack<KR_Command*> stack(128, 128, 128, 0);
        for (unsigned int i = 0; i < n; ++i)
            stack.push(command(i));
        uintptr_t total = 0;
        for (unsigned int i = 0; i < n; ++i)
            total += reinterpret_cast<uintptr_t>(stack.pop());
        return total;
    }
};

struct KrUIntStack {
    static uintptr_t run(unsigned int n) {
        KR_Stack<unsigned int> stack(0, 1024, 1024, 1);
        for (unsigned int i = 0; i < n; ++i)
            stack.push(i);
        uintptr_t total = 0;
        for (unsigned int i = 0; i < n; ++i)
            total += stack.pop();
        return total;
    }
};

template <class T>
struct StdVectorStack {
    static uintptr_t run(unsigned int n) {
        std::vector<T> stack;
        for (unsigned int i = 0; i < n; ++i)
            stack.push_back(value(i));
        uintptr_t total = 0;
        for (unsigned int i = 0; i < n; ++i) {
            total += asWord(stack.back());
            stack.pop_back();
        }
        return total;
    }

    static T value(unsigned int i) {
        if constexpr (std::is_pointer<T>::value) {
            return command(i);
        } else {
            return i;
        }
    }
};

template <class Adapter>
void BM_PushPop(benchmark::State& state) {
    unsigned int n = static_cast<unsigned int>(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(Adapter::run(n));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * n);
}

BENCHMARK_TEMPLATE(BM_PushPop, KrCommandStack)->RangeMultiplier(10)->Range(1000, kMillion);
BENCHMARK_TEMPLATE(BM_PushPop, StdVectorStack<KR_Command*>)
        ->RangeMultiplier(10)
        ->Range(1000, kMillion);
BENCHMARK_TEMPLATE(BM_PushPop, KrUIntStack)->Arg(kMillion);
BENCHMARK_TEMPLATE(BM_PushPop, StdVectorStack<unsigned int>)->Arg(kMillion);

// --- appending one element at a time: the array copies itself every time ---

struct KrArrayAppend {
    static unsigned int run(unsigned int n) {
        KR_Array<unsigned int> a(0, 1);
        for (unsigned int i = 0; i < n; ++i)
            a.appendElem(i);
        return a[n - 1];
    }
};

struct StdVectorAppend {
    static unsigned int run(unsigned int n) {
        std::vector<unsigned int> v;
        for (unsigned int i = 0; i < n; ++i)
            v.push_back(i);
        return v[n - 1];
    }
};

template <class Adapter>
void BM_AppendOneAtATime(benchmark::State& state) {
    unsigned int n = static_cast<unsigned int>(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(Adapter::run(n));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * n);
}

BENCHMARK_TEMPLATE(BM_AppendOneAtATime, KrArrayAppend)
        ->Arg(1000)
        ->Arg(4000)
        ->Arg(16000)
        ->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_AppendOneAtATime, StdVectorAppend)
        ->Arg(1000)
        ->Arg(4000)
        ->Arg(16000)
        ->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
    KR_init();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    KR_close();
    return 0;
}
