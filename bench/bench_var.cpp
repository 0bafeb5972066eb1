// bench_var.cpp — the tagged text of 100,000 mixed variants written and read by KR_VarArr's
// persist and restore on a text file, beside GLib's g_variant_print and g_variant_parse of the
// same values as an array of variants ("av") written to and read from a file.
#include <glib.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "benchmark/benchmark.h"

#include "krcore.h"

namespace {

constexpr unsigned int kCount = 100000;

// One value of every type but pointers and objects; both sides are built from the same list.
struct Value {
    KR_VAR_TYPE type;
    long long number;
    double real;
    std::string text;  // a wide text's UTF-8 form for GLib
    std::wstring wide;
};

const std::vector<Value>& values() {
    static const std::vector<Value> list = [] {
        const struct {
            const char* narrow;
            const wchar_t* wide;
        } words[] = {{"alpha", L"alpha"},
                     {"beta", L"beta"},
                     {"gamma ray", L"gamma ray"},
                     {"caf\xc3\xa9", L"caf\u00e9"},
                     {"\xe2\x82\xac"
                      "100",
                      L"\u20ac100"},
                     {"\xe6\x97\xa5\xe6\x9c\xac", L"\u65e5\u672c"}};
        std::mt19937_64 rng(2026);
        std::vector<Value> result(kCount);
        for (Value& v : result) {
            v.type = static_cast<KR_VAR_TYPE>(1 + rng() % 13);  // Wild to the wide text
            v.number = static_cast<long long>(rng());
            v.real = static_cast<double>(static_cast<long long>(rng() % 200000000) - 100000000) /
                     1024.0;
            for (unsigned int n = 1 + rng() % 3; n > 0; --n) {
                const auto& word = words[rng() % 6];
                v.text += std::string(v.text.empty() ? "" : " ") + word.narrow;
                v.wide += std::wstring(v.wide.empty() ? L"" : L" ") + word.wide;
            }
        }
        return result;
    }();
    return list;
}

// A scratch file in the temporary directory, removed at exit.
std::string scratchPath(const char* prefix) {
    KR_String name;
    if (KR_fileGetTempName(name, nullptr, prefix) != KR_RET_TRUE) abort();
    return static_cast<const char*>(name);
}

long long fileSize(const std::string& path) {
    KR_File file(path.c_str(), KR_FILE_MODE_READ);
    long long size = 0;
    file.getSize(size);
    return size;
}

struct KrVarArr {
    KrVarArr() : array(kCount, KR_VAR_WILD, 0), path(scratchPath("krbenchvar")) {
        for (unsigned int i = 0; i < kCount; ++i) {
            const Value& v = values()[i];
            KR_Var& e = array[i];
            switch (v.type) {
                case KR_VAR_UCHAR:
                    e = static_cast<unsigned char>(v.number);
                    break;
                case KR_VAR_CHAR:
                    e = static_cast<char>(v.number);
                    break;
                case KR_VAR_USHORT:
                    e = static_cast<unsigned short>(v.number);
                    break;
                case KR_VAR_SHORT:
                    e = static_cast<short>(v.number);
                    break;
                case KR_VAR_UINT:
                    e = static_cast<unsigned int>(v.number);
                    break;
                case KR_VAR_INT:
                    e = static_cast<int>(v.number);
                    break;
                case KR_VAR_ULONG:
                    e = static_cast<unsigned long>(v.number);
                    break;
                case KR_VAR_LONG:
                    e = static_cast<long>(v.number);
                    break;
                case KR_VAR_FLOAT:
                    e = static_cast<float>(v.real);
                    break;
                case KR_VAR_DOUBLE:
                    e = v.real;
                    break;
                case KR_VAR_STRING:
                    e = v.text.c_str();
                    break;
                case KR_VAR_STRINGW:
                    e = v.wide.c_str();
                    break;
                default:
                    break;
            }
        }
        write();
        if (read() != kCount) abort();
    }

    ~KrVarArr() { KR_fileRemove(path.c_str()); }

    long long write() {
        KR_FileAscii file(path.c_str(), KR_FILE_MODE_WRITE);
        if (array.persist(version, file) != KR_RET_TRUE) abort();
        file.close();
        return fileSize(path);
    }

    unsigned int read() {
        KR_FileAscii file(path.c_str(), KR_FILE_MODE_READ);
        KR_VarArr back;
        if (back.restore(version, file) != KR_RET_TRUE) abort();
        return back.numElems();
    }

    KR_Version version;
    KR_VarArr array;
    std::string path;
};

GVariant* glibValue(const Value& v) {
    switch (v.type) {
        case KR_VAR_UCHAR:
        case KR_VAR_CHAR:
            return g_variant_new_byte(static_cast<guchar>(v.number));
        case KR_VAR_USHORT:
            return g_variant_new_uint16(static_cast<guint16>(v.number));
        case KR_VAR_SHORT:
            return g_variant_new_int16(static_cast<gint16>(v.number));
        case KR_VAR_UINT:
            return g_variant_new_uint32(static_cast<guint32>(v.number));
        case KR_VAR_INT:
            return g_variant_new_int32(static_cast<gint32>(v.number));
        case KR_VAR_ULONG:
            return g_variant_new_uint64(static_cast<guint64>(v.number));
        case KR_VAR_LONG:
            return g_variant_new_int64(static_cast<gint64>(v.number));
        case KR_VAR_FLOAT:
            return g_variant_new_double(static_cast<float>(v.real));
        case KR_VAR_DOUBLE:
            return g_variant_new_double(v.real);
        case KR_VAR_STRING:
        case KR_VAR_STRINGW:
            return g_variant_new_string(v.text.c_str());
        default:
            return g_variant_new_tuple(nullptr, 0);  // Wild: the unit "()"
    }
}

struct GlibVariants {
    GlibVariants() : path(scratchPath("krbenchgvar")) {
        GVariantBuilder builder;
        g_variant_builder_init(&builder, G_VARIANT_TYPE("av"));
        for (const Value& v : values())
            g_variant_builder_add(&builder, "v", glibValue(v));
        array = g_variant_ref_sink(g_variant_builder_end(&builder));
        write();
        if (read() != kCount) abort();
    }

    ~GlibVariants() {
        g_variant_unref(array);
        KR_fileRemove(path.c_str());
    }

    long long write() {
        gchar* text = g_variant_print(array, FALSE);
        FILE* file = fopen(path.c_str(), "wb");
        size_t length = strlen(text);
        if (file == nullptr || fwrite(text, 1, length, file) != length) abort();
        fclose(file);
        g_free(text);
        return static_cast<long long>(length);
    }

    unsigned int read() {
        gchar* text = nullptr;
        if (!g_file_get_contents(path.c_str(), &text, nullptr, nullptr)) abort();
        GVariant* back = g_variant_parse(G_VARIANT_TYPE("av"), text, nullptr, nullptr, nullptr);
        g_free(text);
        if (back == nullptr) abort();
        unsigned int n = static_cast<unsigned int>(g_variant_n_children(back));
        g_variant_unref(back);
        return n;
    }

    GVariant* array;
    std::string path;
};

template <class Side>
Side& side() {
    static Side instance;
    return instance;
}

template <class Side>
void BM_WriteText(benchmark::State& state) {
    Side& s = side<Side>();
    long long bytes = 0;
    for (auto _ : state) {
        bytes = s.write();
        benchmark::DoNotOptimize(bytes);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * bytes);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kCount);
    state.counters["text_bytes"] = static_cast<double>(bytes);
}

template <class Side>
void BM_ReadText(benchmark::State& state) {
    Side& s = side<Side>();
    long long bytes = fileSize(s.path);
    for (auto _ : state) {
        unsigned int n = s.read();
        benchmark::DoNotOptimize(n);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * bytes);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kCount);
    state.counters["text_bytes"] = static_cast<double>(bytes);
}

BENCHMARK_TEMPLATE(BM_WriteText, KrVarArr)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_WriteText, GlibVariants)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_ReadText, KrVarArr)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_ReadText, GlibVariants)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    if (KR_init() != KR_RET_TRUE) return 1;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    KR_close();
    return 0;
}
