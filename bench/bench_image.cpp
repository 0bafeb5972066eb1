// bench_image.cpp — KR_Bitmap::loadMem against stb_image's stbi_load_from_memory on the same
// 4096 x 4096 BMP bytes (24 bits, 32 bits with an alpha mask, 8 bits with a palette), into a
// new bitmap each time as stb_image allocates each time, and into the same bitmap again; saving
// 24 bits to memory against stbi_write_bmp_to_func, and the colour conversions to and from RGBA.
#include <stdlib.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "benchmark/benchmark.h"

#include "krcore.h"

#include "stb_image.h"
#include "stb_image_write.h"

namespace {

constexpr unsigned int kSide = 4096;

// A noisy picture with smooth parts, fixed seed; the bytes of its BMP at each bit count.
KR_Bitmap& picture() {
    static KR_Bitmap bmp = [] {
        KR_Bitmap b(kSide, kSide);
        std::mt19937 rng(7);
        unsigned char* p = b.getPixels();
        for (size_t i = 0; i < static_cast<size_t>(kSide) * kSide * 4; ++i)
            p[i] = static_cast<unsigned char>((i >> 6) + (rng() & 15));
        return b;
    }();
    return bmp;
}

// An 8-bit file: the 40-byte header, 256 grey-blue palette entries, then indices.
std::string paletted() {
    std::string f(14 + 40 + 1024 + static_cast<size_t>(kSide) * kSide, '\0');
    auto put = [&f](size_t at, unsigned int v, int n) {
        for (int k = 0; k < n; ++k)
            f[at + k] = static_cast<char>(v >> (8 * k));
    };
    f[0] = 'B';
    f[1] = 'M';
    put(2, static_cast<unsigned int>(f.size()), 4);
    put(10, 14 + 40 + 1024, 4);
    put(14, 40, 4);
    put(18, kSide, 4);
    put(22, kSide, 4);
    put(26, 1, 2);
    put(28, 8, 2);
    for (unsigned int k = 0; k < 256; ++k)
        put(54 + 4 * k, k * 0x010101u ^ 0x40u, 4);
    std::mt19937 rng(11);
    for (size_t i = 14 + 40 + 1024; i < f.size(); ++i)
        f[i] = static_cast<char>(rng());
    return f;
}

const std::string& fileBytes(int bits) {
    static std::string files[33];
    std::string& f = files[bits];
    if (f.empty()) {
        if (bits == 8) {
            f = paletted();
        } else {
            KR_Memory mem;
            picture().saveMem(mem, bits);
            f.assign(static_cast<const char*>(mem.memPtr()), mem.memSize());
        }
    }
    return f;
}

struct Kr {
    static void load(const std::string& f) {
        KR_Bitmap bmp;
        if (bmp.loadMem(f.data(), static_cast<unsigned int>(f.size())) != KR_RET_TRUE) abort();
        benchmark::DoNotOptimize(bmp.getPixels());
    }

    static size_t save() {
        KR_Memory mem;
        if (picture().saveMem(mem, 24) != KR_RET_TRUE) abort();
        return mem.memSize();
    }
};

// Loading into the same bitmap again: its block is overwritten in place.
struct KrReuse {
    static void load(const std::string& f) {
        static KR_Bitmap bmp;
        if (bmp.loadMem(f.data(), static_cast<unsigned int>(f.size())) != KR_RET_TRUE) abort();
        benchmark::DoNotOptimize(bmp.getPixels());
    }
};

struct Stb {
    static void load(const std::string& f) {
        int w, h, n;
        unsigned char* p = stbi_load_from_memory(reinterpret_cast<const stbi_uc*>(f.data()),
                                                 static_cast<int>(f.size()), &w, &h, &n, 4);
        if (p == nullptr) abort();
        benchmark::DoNotOptimize(p);
        stbi_image_free(p);
    }

    // Into a growing buffer, as KR_Bitmap::saveMem gives one block.
    static size_t save() {
        std::string out;
        stbi_write_bmp_to_func(
                [](void* ctx, void* data, int size) {
                    static_cast<std::string*>(ctx)->append(static_cast<const char*>(data),
                                                           static_cast<size_t>(size));
                },
                &out, kSide, kSide, 4, picture().getPixels());
        return out.size();
    }
};

template <class Impl>
void BM_Load(benchmark::State& state) {
    const std::string& f = fileBytes(static_cast<int>(state.range(0)));
    for (auto _ : state)
        Impl::load(f);
    state.SetBytesProcessed(state.iterations() * int64_t{kSide} * kSide * 4);
}

template <class Impl>
void BM_Save24(benchmark::State& state) {
    picture();
    for (auto _ : state)
        benchmark::DoNotOptimize(Impl::save());
    state.SetBytesProcessed(state.iterations() * int64_t{kSide} * kSide * 4);
}

// A million colours in [0, 1) per run, converted from RGBA and back.
const std::vector<KR_RGBA>& colours() {
    static const std::vector<KR_RGBA> all = [] {
        std::mt19937 rng(3);
        std::uniform_real_distribution<double> u(0.0, 1.0);
        std::vector<KR_RGBA> v(1 << 20);
        for (KR_RGBA& c : v)
            c = KR_RGBA(u(rng), u(rng), u(rng), u(rng));
        return v;
    }();
    return all;
}

template <class Model>
void BM_FromRgba(benchmark::State& state) {
    const std::vector<KR_RGBA>& in = colours();
    std::vector<Model> out(in.size());
    for (auto _ : state) {
        for (size_t i = 0; i < in.size(); ++i)
            KR_colorConvert(in[i], out[i]);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(in.size()));
}

template <class Model>
void BM_ToRgba(benchmark::State& state) {
    const std::vector<KR_RGBA>& rgb = colours();
    std::vector<Model> in(rgb.size());
    for (size_t i = 0; i < rgb.size(); ++i)
        KR_colorConvert(rgb[i], in[i]);
    std::vector<KR_RGBA> out(in.size());
    for (auto _ : state) {
        for (size_t i = 0; i < in.size(); ++i)
            KR_colorConvert(in[i], out[i]);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(in.size()));
}

}  // namespace

BENCHMARK_TEMPLATE(BM_Load, Kr)->Arg(24)->Arg(32)->Arg(8)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Load, KrReuse)->Arg(24)->Arg(32)->Arg(8)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Load, Stb)->Arg(24)->Arg(32)->Arg(8)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Save24, Kr)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Save24, Stb)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_FromRgba, KR_CMYA);
BENCHMARK_TEMPLATE(BM_FromRgba, KR_YIQA);
BENCHMARK_TEMPLATE(BM_FromRgba, KR_HSVA);
BENCHMARK_TEMPLATE(BM_FromRgba, KR_HLSA);
BENCHMARK_TEMPLATE(BM_ToRgba, KR_CMYA);
BENCHMARK_TEMPLATE(BM_ToRgba, KR_YIQA);
BENCHMARK_TEMPLATE(BM_ToRgba, KR_HSVA);
BENCHMARK_TEMPLATE(BM_ToRgba, KR_HLSA);

BENCHMARK_MAIN();
