// bench_btree.cpp — the B-tree in memory beside std::map ordered by the same comparator
// (KR_BtreeKeyLess), 10^6 keys of one UINT and of one 16-character STRING, order 64: random
// find and insert. The file tree on key-value workloads (16-byte keys, 100-byte values held in
// the tree's nodes, a commit every 1,000 writes) beside SQLite (WITHOUT ROWID, 4 MiB
// cache, WAL, synchronous OFF) and LMDB (MDB_NOSYNC, 1,000 puts per transaction), each built
// only where it is found.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#if defined(KR_BENCH_SQLITE)
#include <sqlite3.h>
#endif
#if defined(KR_BENCH_LMDB)
#include <lmdb.h>
#endif

#include "benchmark/benchmark.h"

#include "krcore.h"

namespace {

const unsigned int kCount = 1000000;

// The file workloads' key count: 10^6, or KR_BENCH_FILE_KEYS for a quicker run.
unsigned int fileCount() {
    const char* text = getenv("KR_BENCH_FILE_KEYS");
    unsigned long n = text != nullptr ? strtoul(text, nullptr, 10) : 0;
    return n >= 1000 && n <= 100000000 ? static_cast<unsigned int>(n) : 1000000;
}

const unsigned int kFileCount = fileCount();
const unsigned int kValueSize = 100;
const unsigned int kCommitEvery = 1000;
const unsigned int kFileOrder = 64;

KR_VarArr keyOf(unsigned int value, bool text) {
    KR_VarArr key(1, KR_VAR_WILD, static_cast<unsigned char>(0));
    if (text) {
        char buffer[17];
        snprintf(buffer, sizeof buffer, "%016u", value);
        key[0] = static_cast<const char*>(buffer);
    } else {
        key[0] = value;
    }
    return key;
}

// The keys of one run: kCount distinct values in random order, fixed seed.
std::vector<unsigned int> shuffled(unsigned int count, unsigned int seed) {
    std::vector<unsigned int> values(count);
    for (unsigned int i = 0; i < count; ++i)
        values[i] = i * 2654435761u;
    std::shuffle(values.begin(), values.end(), std::mt19937(seed));
    return values;
}

struct KrTree {
    KR_Btree tree;

    explicit KrTree(bool text) {
        KR_Array<KR_VAR_TYPE> types(0, 1);
        types.appendElem(text ? KR_VAR_STRING : KR_VAR_UINT);
        tree.create(types, 64, 1);
    }

    void insert(KR_VarArr& key, unsigned long long ref) { tree.insert(key, ref); }

    bool find(KR_VarArr& key, unsigned long long& ref) {
        return tree.find(key, ref) == KR_RET_TRUE;
    }
};

struct StdMap {
    std::map<KR_VarArr, unsigned long long, KR_BtreeKeyLess> map;

    explicit StdMap(bool) {}

    void insert(KR_VarArr& key, unsigned long long ref) { map.emplace(key, ref); }

    bool find(KR_VarArr& key, unsigned long long& ref) {
        auto at = map.find(key);
        if (at == map.end()) return false;
        ref = at->second;
        return true;
    }
};

struct Keys {
    std::vector<KR_VarArr> keys;

    explicit Keys(bool text) {
        KR_init();
        for (unsigned int v : shuffled(kCount, 7))
            keys.push_back(keyOf(v, text));
    }

    static Keys& get(bool text) {
        static Keys numbers(false), texts(true);
        return text ? texts : numbers;
    }
};

template <class Index>
void BM_Insert(benchmark::State& state) {
    bool text = state.range(0) != 0;
    Keys& keys = Keys::get(text);
    for (auto _ : state) {
        Index index(text);
        for (unsigned int i = 0; i < kCount; ++i)
            index.insert(keys.keys[i], i);
        benchmark::DoNotOptimize(index);
    }
    state.SetItemsProcessed(state.iterations() * kCount);
}

template <class Index>
void BM_Find(benchmark::State& state) {
    bool text = state.range(0) != 0;
    Keys& keys = Keys::get(text);
    static Index* built[2] = {nullptr, nullptr};
    if (built[text] == nullptr) {
        built[text] = new Index(text);
        for (unsigned int i = 0; i < kCount; ++i)
            built[text]->insert(keys.keys[i], i);
    }
    std::vector<unsigned int> order = shuffled(kCount, 9);
    unsigned long long found = 0;
    for (auto _ : state) {
        for (unsigned int i = 0; i < kCount; ++i) {
            unsigned long long ref = 0;
            if (built[text]->find(keys.keys[order[i] % kCount], ref)) found += ref;
        }
    }
    benchmark::DoNotOptimize(found);
    state.SetItemsProcessed(state.iterations() * kCount);
}

BENCHMARK_TEMPLATE(BM_Insert, KrTree)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_TEMPLATE(BM_Insert, StdMap)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_TEMPLATE(BM_Find, KrTree)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK_TEMPLATE(BM_Find, StdMap)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(2);

// --- file trees ---

// Files go to /dev/shm, or to the directory KR_BENCH_DIR names (a disk, for the toDisk run).
std::string tmpPath(const char* name) {
    static const std::string base = [] {
        const char* dir = getenv("KR_BENCH_DIR");
        return std::string(dir != nullptr && dir[0] != 0 ? dir : "/dev/shm") + "/krbench-";
    }();
    return base + name;
}

// fillrandom, then readrandom and readseq on the same store; the cache in nodes (0: all) or
// 4 MiB of node blocks. The values are held in the tree's record file, beside their keys.
struct KrFileStore {
    KR_Btree tree;
    unsigned long long cacheBytes;
    unsigned char copy[kValueSize];

    explicit KrFileStore(unsigned long long bytes) : cacheBytes(bytes) {
        remove(tmpPath("t.kbt").c_str());
        KR_Array<KR_VAR_TYPE> types(0, 1);
        types.appendElem(KR_VAR_STRING);
        tree.createFile(tmpPath("t.kbt").c_str(), types, kFileOrder, 1, kValueSize);
        tree.setCacheSize(0, cacheBytes);
    }

    void put(KR_VarArr& key, const char* value) { tree.insert(key, 0, value); }

    void overwrite(KR_VarArr& key, const char* value) {
        if (tree.update(key, 0, value) != KR_RET_TRUE) put(key, value);
    }

    void commit(unsigned char toDisk = 0) { tree.flush(toDisk); }

    bool get(KR_VarArr& key) {
        unsigned long long ref = 0;
        return tree.find(key, ref, copy) == KR_RET_TRUE;
    }

    unsigned long long scan(bool reverse) {
        unsigned long long n = 0;
        const unsigned char* key;
        const unsigned char* value;
        unsigned int keyLen;
        unsigned long long ref;
        for (KR_RET_STATUS st = reverse ? tree.setCurLast() : tree.setCurFirst(); st == KR_RET_TRUE;
             st = reverse ? tree.setCurPrev() : tree.setCurNext()) {
            tree.getCurBytes(key, keyLen, ref, value);
            n += keyLen == 17 && value != nullptr;
        }
        return n;
    }

    long long size() {
        FILE* f = fopen(tmpPath("t.kbt").c_str(), "rb");
        fseek(f, 0, SEEK_END);
        long long total = ftell(f);
        fclose(f);
        return total;
    }
};

#if defined(KR_BENCH_SQLITE)
struct SqliteStore {
    sqlite3* db = nullptr;
    sqlite3_stmt* insert = nullptr;
    sqlite3_stmt* select = nullptr;

    explicit SqliteStore(unsigned long long) {
        std::string path = tmpPath("s.db");
        remove(path.c_str());
        remove((path + "-wal").c_str());
        remove((path + "-shm").c_str());
        sqlite3_open(path.c_str(), &db);
        sqlite3_exec(db,
                     "PRAGMA page_size=4096; PRAGMA cache_size=-4096; PRAGMA journal_mode=WAL; "
                     "PRAGMA synchronous=OFF; CREATE TABLE t(k BLOB PRIMARY KEY, v BLOB) "
                     "WITHOUT ROWID; BEGIN",
                     nullptr, nullptr, nullptr);
        sqlite3_prepare_v2(db, "INSERT OR REPLACE INTO t VALUES(?, ?)", -1, &insert, nullptr);
        sqlite3_prepare_v2(db, "SELECT v FROM t WHERE k = ?", -1, &select, nullptr);
    }

    ~SqliteStore() {
        sqlite3_finalize(insert);
        sqlite3_finalize(select);
        sqlite3_close(db);
    }

    void put(KR_VarArr& key, const char* value) {
        const char* text = key[0];
        sqlite3_bind_blob(insert, 1, text, 16, SQLITE_STATIC);
        sqlite3_bind_blob(insert, 2, value, kValueSize, SQLITE_STATIC);
        sqlite3_step(insert);
        sqlite3_reset(insert);
    }

    void overwrite(KR_VarArr& key, const char* value) { put(key, value); }

    void commit(unsigned char toDisk = 0) {
        if (toDisk && !synced) {
            sqlite3_exec(db, "COMMIT; PRAGMA synchronous=FULL; BEGIN", nullptr, nullptr, nullptr);
            synced = true;
        }
        sqlite3_exec(db, "COMMIT; BEGIN", nullptr, nullptr, nullptr);
    }

    bool synced = false;

    bool get(KR_VarArr& key) {
        const char* text = key[0];
        sqlite3_bind_blob(select, 1, text, 16, SQLITE_STATIC);
        bool found = sqlite3_step(select) == SQLITE_ROW && sqlite3_column_bytes(select, 0) > 0;
        sqlite3_reset(select);
        return found;
    }

    unsigned long long scan(bool reverse) {
        sqlite3_stmt* all = nullptr;
        sqlite3_prepare_v2(
                db,
                reverse ? "SELECT k, v FROM t ORDER BY k DESC" : "SELECT k, v FROM t ORDER BY k",
                -1, &all, nullptr);
        unsigned long long n = 0;
        while (sqlite3_step(all) == SQLITE_ROW)
            n += sqlite3_column_bytes(all, 1) > 0;
        sqlite3_finalize(all);
        return n;
    }

    long long size() {
        sqlite3_exec(db, "COMMIT; PRAGMA wal_checkpoint(TRUNCATE); BEGIN", nullptr, nullptr,
                     nullptr);
        FILE* f = fopen(tmpPath("s.db").c_str(), "rb");
        fseek(f, 0, SEEK_END);
        long long total = ftell(f);
        fclose(f);
        return total;
    }
};
#endif

#if defined(KR_BENCH_LMDB)
struct LmdbStore {
    MDB_env* env = nullptr;
    MDB_dbi dbi = 0;
    MDB_txn* txn = nullptr;

    explicit LmdbStore(unsigned long long) {
        std::string dir = tmpPath("lmdb");
        std::string data = dir + "/data.mdb", lock = dir + "/lock.mdb";
        remove(data.c_str());
        remove(lock.c_str());
        mkdir(dir.c_str(), 0700);
        mdb_env_create(&env);
        mdb_env_set_mapsize(env, 1ull << 30);
        mdb_env_open(env, dir.c_str(), MDB_NOSYNC, 0600);
        mdb_txn_begin(env, nullptr, 0, &txn);
        mdb_dbi_open(txn, nullptr, 0, &dbi);
    }

    void put(KR_VarArr& key, const char* value) {
        const char* text = key[0];
        MDB_val k{16, const_cast<char*>(text)}, v{kValueSize, const_cast<char*>(value)};
        mdb_put(txn, dbi, &k, &v, 0);
    }

    void overwrite(KR_VarArr& key, const char* value) { put(key, value); }

    void commit(unsigned char = 0) {
        mdb_txn_commit(txn);
        mdb_txn_begin(env, nullptr, 0, &txn);
    }

    bool get(KR_VarArr& key) {
        const char* text = key[0];
        MDB_val k{16, const_cast<char*>(text)}, v{0, nullptr};
        return mdb_get(txn, dbi, &k, &v) == 0 && v.mv_size == kValueSize;
    }

    unsigned long long scan(bool reverse) {
        MDB_cursor* cursor = nullptr;
        mdb_cursor_open(txn, dbi, &cursor);
        MDB_val k, v;
        unsigned long long n = 0;
        for (int rc = mdb_cursor_get(cursor, &k, &v, reverse ? MDB_LAST : MDB_FIRST); rc == 0;
             rc = mdb_cursor_get(cursor, &k, &v, reverse ? MDB_PREV : MDB_NEXT)) {
            n += v.mv_size == kValueSize;
        }
        mdb_cursor_close(cursor);
        return n;
    }

    long long size() {
        MDB_envinfo info;
        MDB_stat stat;
        mdb_env_info(env, &info);
        mdb_env_stat(env, &stat);
        return static_cast<long long>(info.me_last_pgno + 1) * stat.ms_psize;
    }
};
#endif

// One benchmark per phase of one store: fillrandom builds it, the others read it.
template <class Store>
Store& store(unsigned long long cacheBytes) {
    static Store* built[2] = {nullptr, nullptr};
    Store*& s = built[cacheBytes != 0];
    if (s == nullptr) s = new Store(cacheBytes);
    return *s;
}

template <class Store>
void BM_FillRandom(benchmark::State& state) {
    Keys& keys = Keys::get(true);
    char value[kValueSize];
    memset(value, 'v', sizeof value);
    for (auto _ : state) {
        Store& s = store<Store>(static_cast<unsigned long long>(state.range(0)));
        for (unsigned int i = 0; i < kFileCount; ++i) {
            s.put(keys.keys[i], value);
            if ((i + 1) % kCommitEvery == 0) s.commit();
        }
        s.commit();
        state.counters["bytes"] = static_cast<double>(s.size());
    }
    state.SetItemsProcessed(state.iterations() * kFileCount);
}

template <class Store>
void BM_ReadRandom(benchmark::State& state) {
    Keys& keys = Keys::get(true);
    Store& s = store<Store>(static_cast<unsigned long long>(state.range(0)));
    std::vector<unsigned int> order = shuffled(kFileCount, 3);
    unsigned long long found = 0;
    for (auto _ : state) {
        for (unsigned int i = 0; i < kFileCount; ++i) {
            found += s.get(keys.keys[order[i] % kFileCount]);
        }
    }
    if (found != static_cast<unsigned long long>(state.iterations()) * kFileCount) {
        state.SkipWithError("a key was not found");
    }
    state.SetItemsProcessed(state.iterations() * kFileCount);
}

template <class Store>
void BM_Overwrite(benchmark::State& state) {
    Keys& keys = Keys::get(true);
    Store& s = store<Store>(static_cast<unsigned long long>(state.range(0)));
    std::vector<unsigned int> order = shuffled(kFileCount, 5);
    char value[kValueSize];
    memset(value, 'w', sizeof value);
    for (auto _ : state) {
        for (unsigned int i = 0; i < kFileCount; ++i) {
            s.overwrite(keys.keys[order[i] % kFileCount], value);
            if ((i + 1) % kCommitEvery == 0) s.commit();
        }
        s.commit();
    }
    state.SetItemsProcessed(state.iterations() * kFileCount);
}

// readseq, or readreverse with kReverse.
template <class Store, bool kReverse>
void BM_ReadSeq(benchmark::State& state) {
    Store& s = store<Store>(static_cast<unsigned long long>(state.range(0)));
    unsigned long long n = 0;
    for (auto _ : state) {
        n += s.scan(kReverse);
    }
    if (n != static_cast<unsigned long long>(state.iterations()) * kFileCount) {
        state.SkipWithError("the scan missed entries");
    }
    state.SetItemsProcessed(state.iterations() * kFileCount);
}

// 2 x 10^4 puts with every commit forced to the device (SQLite: synchronous=FULL), on a store of
// its own.
template <class Store>
void BM_FillToDisk(benchmark::State& state) {
    Keys& keys = Keys::get(true);
    char value[kValueSize];
    memset(value, 'd', sizeof value);
    const unsigned int count = 20000;
    for (auto _ : state) {
        state.PauseTiming();
        Store* s = new Store(0);
        state.ResumeTiming();
        for (unsigned int i = 0; i < count; ++i) {
            s->put(keys.keys[i], value);
            if ((i + 1) % kCommitEvery == 0) s->commit(1);
        }
        state.PauseTiming();
        delete s;
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * count);
}

// fillseq: the keys in ascending order into a store of its own, which is gone before the stores
// of the other phases are made at the same paths.
template <class Store>
void BM_FillSeq(benchmark::State& state) {
    static std::vector<KR_VarArr> ascending = [] {
        std::vector<KR_VarArr> keys;
        keys.reserve(kFileCount);
        for (unsigned int i = 0; i < kFileCount; ++i)
            keys.push_back(keyOf(i, true));
        return keys;
    }();
    char value[kValueSize];
    memset(value, 's', sizeof value);
    for (auto _ : state) {
        state.PauseTiming();
        Store* s = new Store(static_cast<unsigned long long>(state.range(0)));
        state.ResumeTiming();
        for (unsigned int i = 0; i < kFileCount; ++i) {
            s->put(ascending[i], value);
            if ((i + 1) % kCommitEvery == 0) s->commit();
        }
        s->commit();
        state.PauseTiming();
        state.counters["bytes"] = static_cast<double>(s->size());
        delete s;
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kFileCount);
}

// Wall time: the wait for the device is the cost.
BENCHMARK_TEMPLATE(BM_FillToDisk, KrFileStore)
        ->Iterations(1)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
#if defined(KR_BENCH_SQLITE)
BENCHMARK_TEMPLATE(BM_FillToDisk, SqliteStore)
        ->Iterations(1)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
#endif

const long long kCache4MiB = 4 << 20;

BENCHMARK_TEMPLATE(BM_FillSeq, KrFileStore)
        ->Arg(0)
        ->Arg(kCache4MiB)
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
#if defined(KR_BENCH_SQLITE)
BENCHMARK_TEMPLATE(BM_FillSeq, SqliteStore)
        ->Arg(kCache4MiB)
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
#endif
#if defined(KR_BENCH_LMDB)
BENCHMARK_TEMPLATE(BM_FillSeq, LmdbStore)->Arg(0)->Iterations(1)->Unit(benchmark::kMillisecond);
#endif

#define KR_BENCH_STORE(Store, ...)                             \
    BENCHMARK_TEMPLATE(BM_FillRandom, Store)                   \
    __VA_ARGS__->Iterations(1)->Unit(benchmark::kMillisecond); \
    BENCHMARK_TEMPLATE(BM_Overwrite, Store)                    \
    __VA_ARGS__->Iterations(1)->Unit(benchmark::kMillisecond); \
    BENCHMARK_TEMPLATE(BM_ReadRandom, Store)                   \
    __VA_ARGS__->Iterations(1)->Unit(benchmark::kMillisecond); \
    BENCHMARK_TEMPLATE(BM_ReadSeq, Store, false)               \
    __VA_ARGS__->Iterations(1)->Unit(benchmark::kMillisecond); \
    BENCHMARK_TEMPLATE(BM_ReadSeq, Store, true)                \
    __VA_ARGS__->Iterations(1)->Unit(benchmark::kMillisecond)

KR_BENCH_STORE(KrFileStore, ->Arg(0)->Arg(kCache4MiB));
#if defined(KR_BENCH_SQLITE)
KR_BENCH_STORE(SqliteStore, ->Arg(kCache4MiB));
#endif
#if defined(KR_BENCH_LMDB)
KR_BENCH_STORE(LmdbStore, ->Arg(0));
#endif

}  // namespace

BENCHMARK_MAIN();
