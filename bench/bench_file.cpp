// bench_file.cpp — reading a 10 MiB tag file entry by entry: the tag reader (through the text
// file's 64 KiB buffer) beside fread of the whole file + memchr. The record file beside SQLite
// (built with it only where it is found) and beside fseeko + fread of the same extents: 10^6
// records of 100 bytes appended with a commit every 1,000, read at random, and opened.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <random>
#include <string>
#include <type_traits>
#include <vector>

#if defined(KR_BENCH_SQLITE)
#include <sqlite3.h>
#endif

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

// --- record file ---

const unsigned int kRecords = 1000000;
const unsigned int kRecordSize = 100;
const unsigned int kPerCommit = 1000;

std::string tempName(const char* prefix) {
    KR_String name;
    KR_fileGetTempName(name, nullptr, prefix);
    return static_cast<const char*>(name);
}

// The 100 bytes of record i (the same for every store).
void recordBytes(unsigned int i, unsigned char* out) {
    for (unsigned int k = 0; k < kRecordSize; ++k)
        out[k] = static_cast<unsigned char>(i * 31 + k);
}

struct KrRecordFile {
    static const char* name() { return "rec"; }

    // Appends kRecords records, committing every kPerCommit (to the device with toDisk).
    static void fill(const std::string& path, unsigned int count, unsigned char toDisk) {
        KR_FileBinaryRec file;
        file.create(path.c_str(), 0, 0, 1);
        unsigned char bytes[kRecordSize];
        unsigned int at = 0;
        for (unsigned int i = 0; i < count; ++i) {
            recordBytes(i, bytes);
            file.recAppend(bytes, kRecordSize, at);
            if ((i + 1) % kPerCommit == 0) file.recFlush(toDisk);
        }
        file.close();
    }

    explicit KrRecordFile(const std::string& path) : file(path.c_str(), KR_FILE_MODE_READ) {}

    size_t read(unsigned int i) {
        file.recRead(i, memory);
        return memory.memSize();
    }

    KR_FileBinaryRec file;
    KR_Memory memory;
};

// The same extents of the record file read with fseeko + fread on a buffered FILE*.
struct FreadExtents {
    static const char* name() { return "fread"; }

    explicit FreadExtents(const std::string& path) {
        KR_FileBinaryRec rec(path.c_str(), KR_FILE_MODE_READ);
        for (unsigned int i = 0; i < rec.recNum(); ++i) {
            KR_FileBinrecTblEntry entry;
            rec.recGetEntry(i, entry);
            offsets.push_back(entry.offset);
        }
        in = fopen(path.c_str(), "rb");
    }

    ~FreadExtents() { fclose(in); }

    size_t read(unsigned int i) {
        fseeko(in, static_cast<off_t>(offsets[i]), SEEK_SET);
        return fread(buffer, 1, kRecordSize, in);
    }

    std::vector<long long> offsets;
    FILE* in = nullptr;
    unsigned char buffer[kRecordSize];
};

#if defined(KR_BENCH_SQLITE)
// Blobs by integer key in a rowid table, kPerCommit per transaction.
struct SqliteStore {
    static const char* name() { return "sqlite"; }

    static void fill(const std::string& path, unsigned int count, unsigned char toDisk) {
        remove(path.c_str());
        sqlite3* db = nullptr;
        sqlite3_open(path.c_str(), &db);
        sqlite3_exec(db, toDisk ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=OFF", nullptr,
                     nullptr, nullptr);
        sqlite3_exec(db, "CREATE TABLE r(k INTEGER PRIMARY KEY, v BLOB)", nullptr, nullptr,
                     nullptr);
        sqlite3_stmt* insert = nullptr;
        sqlite3_prepare_v2(db, "INSERT INTO r VALUES(?, ?)", -1, &insert, nullptr);
        unsigned char bytes[kRecordSize];
        sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
        for (unsigned int i = 0; i < count; ++i) {
            recordBytes(i, bytes);
            sqlite3_bind_int64(insert, 1, i);
            sqlite3_bind_blob(insert, 2, bytes, kRecordSize, SQLITE_STATIC);
            sqlite3_step(insert);
            sqlite3_reset(insert);
            if ((i + 1) % kPerCommit == 0) {
                sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
                sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
            }
        }
        sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
        sqlite3_finalize(insert);
        sqlite3_close(db);
    }

    explicit SqliteStore(const std::string& path) {
        sqlite3_open(path.c_str(), &db);
        sqlite3_prepare_v2(db, "SELECT v FROM r WHERE k = ?", -1, &select, nullptr);
    }

    ~SqliteStore() {
        sqlite3_finalize(select);
        sqlite3_close(db);
    }

    size_t read(unsigned int i) {
        sqlite3_bind_int64(select, 1, i);
        size_t size = 0;
        if (sqlite3_step(select) == SQLITE_ROW) {
            memcpy(buffer, sqlite3_column_blob(select, 0), kRecordSize);
            size = static_cast<size_t>(sqlite3_column_bytes(select, 0));
        }
        sqlite3_reset(select);
        return size;
    }

    sqlite3* db = nullptr;
    sqlite3_stmt* select = nullptr;
    unsigned char buffer[kRecordSize];
};
#endif

// A filled store per kind, made once and removed at exit.
template <class Store>
const std::string& filledStore() {
    static struct Filled {
        Filled() {
            KR_init();
            path = tempName(Store::name());
            Store::fill(path, kRecords, 0);
        }

        ~Filled() { remove(path.c_str()); }

        std::string path;
    } filled;

    return filled.path;
}

template <class Store>
void BM_AppendCommitEvery1000(benchmark::State& state) {
    KR_init();
    const std::string path = tempName(Store::name());
    const unsigned int count = static_cast<unsigned int>(state.range(0));
    for (auto _ : state)
        Store::fill(path, count, static_cast<unsigned char>(state.range(1)));
    remove(path.c_str());
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * count);
}

template <class Store>
void BM_RandomRead(benchmark::State& state) {
    const std::string& path = filledStore<KrRecordFile>();
#if defined(KR_BENCH_SQLITE)
    const std::string& source =
            std::is_same<Store, SqliteStore>::value ? filledStore<SqliteStore>() : path;
#else
    const std::string& source = path;
#endif
    Store store(source);
    std::mt19937 random(7);
    size_t bytes = 0;
    for (auto _ : state)
        bytes += store.read(random() % kRecords);
    benchmark::DoNotOptimize(bytes);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

void BM_OpenMillionRecords(benchmark::State& state) {
    const std::string& path = filledStore<KrRecordFile>();
    unsigned int count = 0;
    for (auto _ : state) {
        KR_FileBinaryRec file(path.c_str(), KR_FILE_MODE_READ);
        count = file.recNum();
    }
    state.counters["records"] = static_cast<double>(count);
}

BENCHMARK_TEMPLATE(BM_AppendCommitEvery1000, KrRecordFile)
        ->Args({kRecords, 0})
        ->Args({100000, 1})
        ->Unit(benchmark::kMillisecond)
        ->Iterations(1);
#if defined(KR_BENCH_SQLITE)
BENCHMARK_TEMPLATE(BM_AppendCommitEvery1000, SqliteStore)
        ->Args({kRecords, 0})
        ->Args({100000, 1})
        ->Unit(benchmark::kMillisecond)
        ->Iterations(1);
#endif
BENCHMARK_TEMPLATE(BM_RandomRead, KrRecordFile);
BENCHMARK_TEMPLATE(BM_RandomRead, FreadExtents);
#if defined(KR_BENCH_SQLITE)
BENCHMARK_TEMPLATE(BM_RandomRead, SqliteStore);
#endif
BENCHMARK(BM_OpenMillionRecords)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
