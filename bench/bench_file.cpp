// bench_file.cpp — reading a 10 MiB tag file entry by entry: the tag reader (through the text
// file's 64 KiB buffer) beside fread of the whole file + memchr.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <random>
#include <string>

#include "benchmark/benchmark.h"

#include "krcore.h"

namespace {

const size_t kFileSize = 10u << 20;

// The test file: lines "<kNNN>words ...</kNNN>\n" with 1 to 12 random words, fixed seed.
class TagFileFixture {
public:
    static TagFileFixture& get() {
        static TagFileFixture fixture;
        return fixture;
    }

    const char* path() const { return path_; }

    long long size() const { return size_; }

private:
    TagFileFixture() {
        KR_init();
        KR_fileGetTempName(path_, nullptr, "krbench");
        std::mt19937 random(20261122);
        std::string text;
        text.reserve(kFileSize + 256);
        while (text.size() < kFileSize) {
            std::string key = "k" + std::to_string(random() % 1000);
            text += "<" + key + ">";
            for (unsigned int w = 1 + random() % 12; w > 0; --w) {
                for (unsigned int n = 3 + random() % 8; n > 0; --n) {
                    text += static_cast<char>('a' + random() % 26);
                }
                text += ' ';
            }
            text += "</" + key + ">\n";
        }
        FILE* out = fopen(path_, "wb");
        fwrite(text.data(), 1, text.size(), out);
        fclose(out);
        size_ = static_cast<long long>(text.size());
    }

    ~TagFileFixture() {
        KR_fileRemove(path_);
        KR_close();
    }

    KR_String path_;
    long long size_ = 0;
};

// Every entry through KR_xmlReadTagEntry, which gives back the tag it found.
struct KrTagReader {
    static size_t readAll(const char* path, size_t& contentBytes) {
        KR_FileAscii file(path, KR_FILE_MODE_READ);
        KR_String content;
        KR_String tag;
        size_t entries = 0;
        while (KR_xmlReadTagEntry(content, tag, file) == KR_RET_TRUE) {
            contentBytes += content.strLeng();
            ++entries;
        }
        return entries;
    }
};

// The peer: the whole file with fread, tags found with memchr, each content copied out.
struct FreadMemchrPeer {
    static size_t readAll(const char* path, size_t& contentBytes) {
        FILE* in = fopen(path, "rb");
        if (in == nullptr) return 0;
        std::string data(static_cast<size_t>(TagFileFixture::get().size()), '\0');
        size_t length = fread(&data[0], 1, data.size(), in);
        fclose(in);
        const char* p = data.data();
        const char* end = p + length;
        size_t entries = 0;
        std::string tag;
        std::string content;
        while (p < end) {
            const char* open =
                    static_cast<const char*>(memchr(p, '<', static_cast<size_t>(end - p)));
            if (open == nullptr) break;
            const char* close =
                    static_cast<const char*>(memchr(open, '>', static_cast<size_t>(end - open)));
            if (close == nullptr) break;
            tag.assign(open, static_cast<size_t>(close + 1 - open));
            const char* next = static_cast<const char*>(
                    memchr(close + 1, '<', static_cast<size_t>(end - close - 1)));
            if (next == nullptr) break;
            content.assign(close + 1, static_cast<size_t>(next - close - 1));
            const char* endClose =
                    static_cast<const char*>(memchr(next, '>', static_cast<size_t>(end - next)));
            if (endClose == nullptr || next[1] != '/' ||
                tag.compare(1, std::string::npos, next + 2,
                            static_cast<size_t>(endClose + 1 - next - 2)) != 0) {
                break;
            }
            contentBytes += content.size();
            ++entries;
            p = endClose + 1;
        }
        return entries;
    }
};

template <class Reader>
void BM_ReadTagEntries(benchmark::State& state) {
    TagFileFixture& fixture = TagFileFixture::get();
    size_t entries = 0;
    for (auto _ : state) {
        size_t contentBytes = 0;
        entries = Reader::readAll(fixture.path(), contentBytes);
        benchmark::DoNotOptimize(contentBytes);
    }
    state.counters["entries"] = static_cast<double>(entries);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * fixture.size());
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * entries));
}

BENCHMARK_TEMPLATE(BM_ReadTagEntries, KrTagReader)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_ReadTagEntries, FreadMemchrPeer)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
