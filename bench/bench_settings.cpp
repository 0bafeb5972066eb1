// bench_settings.cpp — reading and saving a settings file of 10,000 entries, beside pugixml
// parsing and saving the same content as an XML document.
#include <locale.h>
#include <stdio.h>

#include <random>
#include <string>

#include "benchmark/benchmark.h"

#include "krcore.h"

#include "pugixml.hpp"

namespace {

const unsigned int kEntries = 10000;
const char* const kStart = "<settings>";
const char* const kEnd = "</settings>";

// The settings: tags "<keyN>", values of 1 to 6 random words; every eighth value has a word
// with characters outside ASCII. The file is saved once by the library; the XML document holds
// the same elements.
class SettingsFixture {
public:
    static SettingsFixture& get() {
        static SettingsFixture fixture;
        return fixture;
    }

    const wchar_t* path() const { return path_; }

    const char* narrowPath() const { return narrowPath_; }

    KR_Array<KR_XmlSetting>& settings() { return settings_; }

    pugi::xml_document& document() { return document_; }

    long long size() const { return size_; }

private:
    SettingsFixture() {
        KR_init();
        if (!setlocale(LC_CTYPE, "C.UTF-8")) setlocale(LC_CTYPE, "C.utf8");
        KR_fileGetTempName(narrowPath_, nullptr, "krbench");
        path_ = static_cast<const char*>(narrowPath_);
        std::mt19937 random(20261123);
        settings_.reallocate(kEntries);
        pugi::xml_node root = document_.append_child("settings");
        for (unsigned int i = 0; i < kEntries; ++i) {
            std::wstring value;
            for (unsigned int w = 1 + random() % 6; w > 0; --w) {
                for (unsigned int n = 3 + random() % 8; n > 0; --n)
                    value += static_cast<wchar_t>(L'a' + random() % 26);
                if (i % 8 == 0 && w == 1) value += L"\u00e9t\u00e9 \u20ac";
                value += w > 1 ? L" " : L"";
            }
            std::string tag = "key" + std::to_string(i);
            settings_[i].tag = ("<" + tag + ">").c_str();
            settings_[i].value = value.c_str();
            KR_String utf8(value.c_str());
            root.append_child(tag.c_str()).append_child(pugi::node_pcdata).set_value(utf8);
        }
        KR_xmlSaveSettingsFile(path_, kStart, kEnd, settings_);
        FILE* in = fopen(narrowPath_, "rb");
        fseek(in, 0, SEEK_END);
        size_ = ftell(in);
        fclose(in);
    }

    ~SettingsFixture() {
        KR_fileRemove(narrowPath_);
        KR_close();
    }

    KR_String narrowPath_;
    KR_StringW path_;
    KR_Array<KR_XmlSetting> settings_;
    pugi::xml_document document_;
    long long size_ = 0;
};

struct KrSettings {
    static size_t read(SettingsFixture& fixture) {
        KR_Array<KR_XmlSetting> list;
        KR_xmlReadSettingsFile(fixture.path(), kStart, kEnd, list);
        return list.numElems();
    }

    static bool save(SettingsFixture& fixture, const char* path) {
        KR_StringW wide(path);
        return KR_xmlSaveSettingsFile(wide, kStart, kEnd, fixture.settings()) == KR_RET_TRUE;
    }
};

struct PugiXml {
    static size_t read(SettingsFixture& fixture) {
        pugi::xml_document document;
        if (!document.load_file(fixture.narrowPath())) return 0;
        size_t n = 0;
        for (pugi::xml_node node = document.first_child().first_child(); node;
             node = node.next_sibling())
            ++n;
        return n;
    }

    static bool save(SettingsFixture& fixture, const char* path) {
        return fixture.document().save_file(path);
    }
};

template <class Peer>
void BM_ReadSettings(benchmark::State& state) {
    SettingsFixture& fixture = SettingsFixture::get();
    size_t entries = 0;
    for (auto _ : state) {
        entries = Peer::read(fixture);
        benchmark::DoNotOptimize(entries);
    }
    if (entries != kEntries) state.SkipWithError("not every entry was read");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * fixture.size());
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kEntries);
}

template <class Peer>
void BM_SaveSettings(benchmark::State& state) {
    SettingsFixture& fixture = SettingsFixture::get();
    KR_String path;
    KR_fileGetTempName(path, nullptr, "krbench");
    for (auto _ : state) {
        if (!Peer::save(fixture, path)) state.SkipWithError("save failed");
    }
    KR_fileRemove(path);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * fixture.size());
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kEntries);
}

BENCHMARK_TEMPLATE(BM_ReadSettings, KrSettings)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_ReadSettings, PugiXml)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_SaveSettings, KrSettings)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_SaveSettings, PugiXml)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
