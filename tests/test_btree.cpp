// test_btree.cpp — the B-tree index: its shape by hand, its key order, a seeded oracle against
// std::map and std::multimap ordered by the same comparator, and allocation failures.
#include <float.h>
#include <limits.h>
#include <math.h>
#include <stdlib.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "record_support.h"
#include "test_support.h"

namespace {

KR_VarArr key1() {
    return KR_VarArr(1, KR_VAR_WILD, static_cast<unsigned char>(0));
}

template <class V>
KR_VarArr keyOf(V value) {
    KR_VarArr k = key1();
    k[0] = value;
    return k;
}

KR_Array<KR_VAR_TYPE> schema(std::initializer_list<KR_VAR_TYPE> types) {
    KR_Array<KR_VAR_TYPE> a(0, 1);
    for (KR_VAR_TYPE t : types)
        a.appendElem(t);
    return a;
}

// "id[k,k] / id[k] id[k]": the breadth-first walk, levels apart, UINT keys.
std::string shape(KR_Btree& t) {
    struct Dump {
        KR_Btree* tree;
        std::string text;
        unsigned int level = 0;
    } d{&t, ""};

    t.traverseBreadthFirst(
            [](void* user, const KR_BtreeLink& link, unsigned int n, unsigned int) {
                Dump& d = *static_cast<Dump*>(user);
                if (!d.text.empty()) d.text += link.level != d.level ? " / " : " ";
                d.level = link.level;
                d.text += std::to_string(link.node) + "[";
                for (unsigned int i = 0; i < n; ++i) {
                    KR_VarArr k = key1();
                    unsigned long long ref;
                    d.tree->getNodeEntry(link.node, i, k, ref);
                    d.text += (i ? "," : "") + std::to_string(static_cast<unsigned int>(k[0]));
                }
                d.text += "]";
                return KR_RET_TRUE;
            },
            &d);
    return d.text;
}

// Every entry in key order, through the entry walk.
std::vector<std::pair<KR_VarArr, unsigned long long>> entries(KR_Btree& t) {
    std::vector<std::pair<KR_VarArr, unsigned long long>> out;
    t.traverse(
            [](void* user, KR_VarArr& key, unsigned long long ref) {
                static_cast<decltype(out)*>(user)->emplace_back(key, ref);
                return KR_RET_TRUE;
            },
            &out);
    return out;
}

template <class Model>
void expectSame(KR_Btree& t, Model& model) {
    auto got = entries(t);
    ASSERT_EQ(model.size(), got.size());
    size_t i = 0;
    for (auto& entry : model) {
        ASSERT_EQ(0, KR_btreeKeyComp(const_cast<KR_VarArr&>(entry.first), got[i].first)) << i;
        ASSERT_EQ(entry.second, got[i].second) << i;
        ++i;
    }
    unsigned long long count;
    t.getEntryCount(count);
    EXPECT_EQ(model.size(), count);
}

unsigned int problemsOf(KR_Btree& t) {
    unsigned int problems = 99;
    EXPECT_KR_OK(t.checkConsistency(problems));
    return problems;
}

}  // namespace

TEST(Btree, CreateRefusesBadOrdersAndSchemas) {
    struct Row {
        const char* name;
        KR_Array<KR_VAR_TYPE> types;
        unsigned int order;
        KR_RET_STATUS expected;
        unsigned int valueSize = 0;
    } rows[] = {
            {"order 2", schema({KR_VAR_UINT}), 2, KR_RET_ERR_ARG},
            {"order 4097", schema({KR_VAR_UINT}), 4097, KR_RET_ERR_ARG},
            {"empty schema", schema({}), 3, KR_RET_ERR_ARG},
            {"wild", schema({KR_VAR_UINT, KR_VAR_WILD}), 3, KR_RET_ERR_ARG},
            {"public object", schema({KR_VAR_PUBOBJ}), 3, KR_RET_ERR_ARG},
            {"order 3", schema({KR_VAR_UINT}), 3, KR_RET_TRUE},
            {"order 4096", schema({KR_VAR_STRINGW, KR_VAR_PTR}), 4096, KR_RET_TRUE},
            {"values of 65535 bytes", schema({KR_VAR_UINT}), 3, KR_RET_TRUE, 65535},
            {"values of 65536 bytes", schema({KR_VAR_UINT}), 3, KR_RET_ERR_ARG, 65536},
    };

    krtest::ReportCapture capture;
    for (auto& row : rows) {
        SCOPED_TRACE(row.name);
        KR_Btree t;
        EXPECT_KR_STATUS(row.expected, t.create(row.types, row.order, 1, row.valueSize));
        EXPECT_EQ(row.expected == KR_RET_TRUE, t.isOpen() != 0);
        EXPECT_EQ(row.expected == KR_RET_TRUE ? row.valueSize : 0, t.getValueSize());
    }
    KR_Btree t;
    KR_Array<KR_VAR_TYPE> types = schema({KR_VAR_UINT});
    EXPECT_KR_OK(t.create(types, 3, 1));
    EXPECT_KR_STATUS(KR_RET_ERR_CALL, t.create(types, 3, 1));
    KR_VarArr wrong = keyOf(1);  // an int where the schema has an unsigned int
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, t.insert(wrong, 1));
    EXPECT_NE(std::string::npos, capture.text().find("KR_Btree: key does not match the key types"));
}

TEST(Btree, OrderThreeBuildsAndCollapsesAsByHand) {
    KR_Btree t;
    KR_Array<KR_VAR_TYPE> types = schema({KR_VAR_UINT});
    ASSERT_KR_OK(t.create(types, 3, 1));
    for (unsigned int k = 1; k <= 7; ++k) {
        KR_VarArr key = keyOf(k);
        ASSERT_KR_OK(t.insert(key, k * 10));
    }
    EXPECT_EQ("7[4] / 3[2] 6[6] / 1[1] 2[3] 4[5] 5[7]", shape(t));
    EXPECT_EQ(3u, t.getHeight());
    EXPECT_EQ(7u, t.getNodeCount());

    KR_VarArr four = keyOf(4u);
    ASSERT_KR_OK(t.remove(four));
    EXPECT_EQ("3[3,6] / 1[1,2] 4[5] 5[7]", shape(t));
    EXPECT_EQ(2u, t.getHeight());
    EXPECT_EQ(4u, t.getNodeCount());
    EXPECT_EQ(3u, t.getReservedCount());
    EXPECT_EQ(0u, problemsOf(t));
    // The reserved list is 7, 6, 2: the next two splits take them in that order.
    for (unsigned int k = 8; k <= 9; ++k) {
        KR_VarArr key = keyOf(k);
        ASSERT_KR_OK(t.insert(key, k));
    }
    EXPECT_EQ("2[6] / 3[3] 6[8] / 1[1,2] 4[5] 5[7] 7[9]", shape(t));
    EXPECT_EQ(0u, problemsOf(t));
}

TEST(Btree, KeyOrderIsExactAndTotal) {
    KR_Btree ints;
    KR_Array<KR_VAR_TYPE> intType = schema({KR_VAR_INT});
    ASSERT_KR_OK(ints.create(intType, 3, 1));
    for (int v : {1, INT_MAX, -1, INT_MIN, 0}) {
        KR_VarArr k = keyOf(v);
        ASSERT_KR_OK(ints.insert(k, 0));
    }
    std::string order;
    for (auto& e : entries(ints))
        order += std::to_string(static_cast<int>(e.first[0])) + " ";
    EXPECT_EQ(std::to_string(INT_MIN) + " -1 0 1 " + std::to_string(INT_MAX) + " ", order);

    KR_Btree floats;
    KR_Array<KR_VAR_TYPE> doubleType = schema({KR_VAR_DOUBLE});
    ASSERT_KR_OK(floats.create(doubleType, 3, 1));
    KR_VarArr a = keyOf(1.0), b = keyOf(1.0005), zero = keyOf(0.0), minusZero = keyOf(-0.0);
    EXPECT_KR_OK(floats.insert(a, 1));
    EXPECT_KR_OK(floats.insert(b, 2));  // within the variant's tolerance, yet another key
    EXPECT_KR_OK(floats.insert(zero, 3));
    EXPECT_KR_STATUS(KR_RET_FALSE, floats.insert(minusZero, 4));
    krtest::ReportCapture capture;
    unsigned long long ref;
    for (double bad : {NAN, INFINITY, -INFINITY}) {
        KR_VarArr k = keyOf(bad);
        EXPECT_KR_STATUS(KR_RET_ERR_ARG, floats.insert(k, 5));
        EXPECT_KR_STATUS(KR_RET_ERR_ARG, floats.find(k, ref));
    }

    KR_Btree texts;
    KR_Array<KR_VAR_TYPE> textType = schema({KR_VAR_STRING});
    ASSERT_KR_OK(texts.create(textType, 3, 1));
    KR_VarArr empty = keyOf(""), null = keyOf(static_cast<const char*>(nullptr));
    EXPECT_KR_OK(texts.insert(empty, 1));
    EXPECT_KR_STATUS(KR_RET_FALSE, texts.insert(null, 2));

    // UTF-16 order on every platform: U+10000 (a surrogate pair) sorts below U+E000.
    KR_Btree wide;
    KR_Array<KR_VAR_TYPE> wideType = schema({KR_VAR_STRINGW});
    ASSERT_KR_OK(wide.create(wideType, 3, 1));
    const wchar_t high[] = {sizeof(wchar_t) == 2 ? 0xD800 : 0x10000,
                            sizeof(wchar_t) == 2 ? 0xDC00 : 0, 0};
    KR_VarArr e000 = keyOf(L"\xE000"), pair = keyOf(static_cast<const wchar_t*>(high));
    EXPECT_KR_OK(wide.insert(e000, 1));
    EXPECT_KR_OK(wide.insert(pair, 2));
    auto got = entries(wide);
    ASSERT_EQ(2u, got.size());
    EXPECT_EQ(2u, got[0].second);
    EXPECT_EQ(1, KR_btreeKeyComp(e000, pair));
    const wchar_t lone[] = {0xDC00, 0};
    KR_VarArr loneKey = keyOf(static_cast<const wchar_t*>(lone));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, wide.insert(loneKey, 3));
}

TEST(Btree, InOrderWalkEqualsVariantSortForUintAndString) {
    std::mt19937 rng(11);
    for (KR_VAR_TYPE type : {KR_VAR_UINT, KR_VAR_STRING}) {
        SCOPED_TRACE(type);
        KR_Btree t;
        KR_Array<KR_VAR_TYPE> types = schema({type});
        ASSERT_KR_OK(t.create(types, 5, 0));
        std::vector<KR_VarArr> keys;
        for (int i = 0; i < 300; ++i) {
            unsigned int v = rng() % 1000;
            keys.push_back(type == KR_VAR_UINT ? keyOf(v) : keyOf(std::to_string(v).c_str()));
            ASSERT_KR_OK(t.insert(keys.back(), i));
        }
        std::stable_sort(keys.begin(), keys.end(), [](const KR_VarArr& x, const KR_VarArr& y) {
            return const_cast<KR_VarArr&>(x) < const_cast<KR_VarArr&>(y);
        });
        auto got = entries(t);
        ASSERT_EQ(keys.size(), got.size());
        for (size_t i = 0; i < keys.size(); ++i)
            ASSERT_TRUE(keys[i] == got[i].first) << i;
    }
}

// The tolerant lookup against a brute-force search: exact prefix, nearest last element within
// tol, the first in key order on a tie.
TEST(Btree, SeekNearFindsTheNearestWithinTolerance) {
    for (KR_VAR_TYPE last : {KR_VAR_DOUBLE, KR_VAR_FLOAT}) {
        SCOPED_TRACE(last);
        KR_Btree t;
        KR_Array<KR_VAR_TYPE> types = schema({KR_VAR_UINT, last});
        ASSERT_KR_OK(t.create(types, 5, 0));
        std::mt19937 rng(7);
        std::vector<std::pair<unsigned int, double>> model;
        auto keyFor = [last](unsigned int a, double x) {
            KR_VarArr k(2, KR_VAR_WILD, static_cast<unsigned char>(0));
            k[0] = a;
            if (last == KR_VAR_FLOAT)
                k[1] = static_cast<float>(x);
            else
                k[1] = x;
            return k;
        };
        for (int i = 0; i < 400; ++i) {
            unsigned int a = rng() % 3;
            double x = static_cast<int>(rng() % 2001 - 1000) / 100.0;
            if (last == KR_VAR_FLOAT) x = static_cast<float>(x);
            KR_VarArr k = keyFor(a, x);
            ASSERT_KR_OK(t.insert(k, i));
            model.emplace_back(a, x);
        }
        for (int q = 0; q < 300; ++q) {
            unsigned int a = rng() % 4;
            double k = static_cast<int>(rng() % 2401 - 1200) / 100.0 + 0.004;
            if (last == KR_VAR_FLOAT) k = static_cast<float>(k);
            double tol = (rng() % 4) * 0.02;
            const std::pair<unsigned int, double>* want = nullptr;
            for (auto& m : model) {
                double gap = fabs(m.second - k);
                if (m.first != a || gap > tol) continue;
                double bestGap = want ? fabs(want->second - k) : HUGE_VAL;
                if (gap < bestGap || (gap == bestGap && m.second < want->second)) want = &m;
            }
            KR_VarArr probe = keyFor(a, k);
            ASSERT_KR_STATUS(want ? KR_RET_TRUE : KR_RET_FALSE, t.seekNear(probe, tol));
            ASSERT_EQ(want == nullptr, t.curIsNull() != 0);
            if (want == nullptr) continue;
            KR_VarArr got = keyFor(0, 0);
            unsigned long long ref;
            ASSERT_KR_OK(t.getCur(got, ref));
            EXPECT_EQ(want->first, static_cast<unsigned int>(got[0]));
            double x =
                    last == KR_VAR_FLOAT ? static_cast<float>(got[1]) : static_cast<double>(got[1]);
            EXPECT_EQ(want->second, x);
        }
        // Bounds far out stay finite keys.
        KR_VarArr edge = keyFor(0, last == KR_VAR_FLOAT ? -FLT_MAX : -DBL_MAX);
        EXPECT_KR_OK(t.seekNear(edge, last == KR_VAR_FLOAT ? FLT_MAX : DBL_MAX));
        krtest::ReportCapture capture;
        for (double bad : {-0.5, double(NAN), double(INFINITY)})
            EXPECT_KR_STATUS(KR_RET_ERR_ARG, t.seekNear(edge, bad));
    }
    KR_Btree ints;
    KR_Array<KR_VAR_TYPE> intType = schema({KR_VAR_INT});
    ASSERT_KR_OK(ints.create(intType, 3, 1));
    KR_VarArr k = keyOf(1);
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_NSUP, ints.seekNear(k, 1.0));
}

TEST(Btree, DuplicatesCursorsAndLock) {
    KR_Btree t;
    KR_Array<KR_VAR_TYPE> types = schema({KR_VAR_UINT});
    ASSERT_KR_OK(t.create(types, 4, 0));
    KR_VarArr k = keyOf(7u), low = keyOf(5u), mid = keyOf(6u), high = keyOf(8u);
    for (unsigned long long ref : {9, 3, 5})
        ASSERT_KR_OK(t.insert(k, ref));
    EXPECT_KR_STATUS(KR_RET_FALSE, t.insert(k, 3));
    ASSERT_KR_OK(t.insert(low, 1));
    unsigned long long ref = 0;
    EXPECT_KR_OK(t.find(k, ref));
    EXPECT_EQ(3u, ref);
    EXPECT_KR_OK(t.removeEntry(k, 5));
    EXPECT_KR_STATUS(KR_RET_FALSE, t.removeEntry(k, 5));
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_NSUP, t.update(k, 1));

    EXPECT_KR_STATUS(KR_RET_FALSE, t.seek(mid));  // lands on the greater key
    KR_VarArr got = key1();
    EXPECT_KR_OK(t.getCur(got, ref));
    EXPECT_EQ(7u, static_cast<unsigned int>(got[0]));
    EXPECT_EQ(3u, ref);
    EXPECT_KR_OK(t.setCurNext());
    EXPECT_KR_OK(t.getCur(got, ref));
    EXPECT_EQ(9u, ref);
    EXPECT_KR_STATUS(KR_RET_FALSE, t.setCurNext());
    EXPECT_TRUE(t.curIsNull());
    EXPECT_KR_STATUS(KR_RET_FALSE, t.seek(high));
    EXPECT_TRUE(t.curIsNull());
    EXPECT_KR_OK(t.setCurLast());
    EXPECT_KR_OK(t.insert(high, 2));
    EXPECT_TRUE(t.curIsNull());  // any change

    // A change from inside a walk is refused and the walk carries on.
    struct Probe {
        KR_Btree* tree;
        int calls = 0;
        int locked = 0;
    } probe{&t};

    EXPECT_KR_OK(t.traverse(
            [](void* user, KR_VarArr& key, unsigned long long) {
                Probe& p = *static_cast<Probe*>(user);
                ++p.calls;
                unsigned long long found;
                if (p.tree->insert(key, 100) == KR_RET_ERR_ILOCK) ++p.locked;
                return p.tree->find(key, found) == KR_RET_TRUE ? KR_RET_TRUE : KR_RET_ERR_GEN;
            },
            &probe));
    EXPECT_EQ(4, probe.calls);
    EXPECT_EQ(4, probe.locked);
    EXPECT_EQ(0u, problemsOf(t));
}

using Model = std::multimap<KR_VarArr, unsigned long long, KR_BtreeKeyLess>;

// Where a seeded run keeps its tree: in memory, or in a file with a node cache (0: all).
struct Place {
    const char* name;
    bool file;
    unsigned int cacheNodes;
    unsigned long long cacheBytes;
};

// The value a seeded run stores with an entry: size bytes made from its key and ref, so that a
// value that strays to another entry, or is cut, shows.
std::string valueOf(KR_VarArr& key, KR_VAR_TYPE type, unsigned long long ref, unsigned int size) {
    std::string seed = (type == KR_VAR_UINT ? std::to_string(static_cast<unsigned int>(key[0]))
                                            : std::string(static_cast<const char*>(key[0]))) +
                       "/" + std::to_string(ref) + ";";
    std::string value;
    while (value.size() < size)
        value += seed;
    value.resize(size);
    return value;
}

// The whole tree by the cursor without copies: key bytes strictly ascending, each value the
// one its entry was given.
void expectValues(KR_Btree& t, Model& model, KR_VAR_TYPE type) {
    unsigned int size = t.getValueSize();
    std::string previous;
    auto at = model.begin();
    for (KR_RET_STATUS st = t.setCurFirst(); st == KR_RET_TRUE; st = t.setCurNext(), ++at) {
        ASSERT_TRUE(at != model.end());
        const unsigned char* key;
        const unsigned char* value;
        unsigned int keyLen;
        unsigned long long ref;
        ASSERT_KR_OK(t.getCurBytes(key, keyLen, ref, value));
        std::string bytes(reinterpret_cast<const char*>(key), keyLen);
        ASSERT_TRUE(previous.empty() || previous < bytes || (!t.isUnique() && previous == bytes));
        previous = bytes;
        ASSERT_EQ(at->second, ref);
        ASSERT_EQ(size == 0, value == nullptr);
        ASSERT_EQ(valueOf(const_cast<KR_VarArr&>(at->first), type, ref, size),
                  std::string(reinterpret_cast<const char*>(value), size));
    }
    ASSERT_TRUE(at == model.end());
}

// Seeded inserts, updates, removes and cursor steps beside the model, with values of valueSize
// bytes; a file tree is flushed every 500 steps and closed and reopened halfway.
void runModel(unsigned int order,
              KR_VAR_TYPE type,
              unsigned char unique,
              const Place& place,
              unsigned int valueSize = 0) {
    SCOPED_TRACE(std::string(place.name) + " order " + std::to_string(order) + " type " +
                 std::to_string(type) + " unique " + std::to_string(unique) + " values " +
                 std::to_string(valueSize));
    std::mt19937 rng(order * 31 + type + unique);
    krtest::TempDir dir;
    const std::string path = dir.file("m.kbt");
    KR_Btree t;
    KR_Array<KR_VAR_TYPE> types = schema({type});
    if (place.file) {
        ASSERT_KR_OK(t.createFile(path.c_str(), types, order, unique, valueSize));
        ASSERT_KR_OK(t.setCacheSize(place.cacheNodes, place.cacheBytes));
    } else {
        ASSERT_KR_OK(t.create(types, order, unique, valueSize));
    }
    std::string buffer(valueSize, '\0');
    Model model;
    auto makeKey = [&]() {
        unsigned int v = rng() % 600;
        // Long texts live outside the node's slots.
        return type == KR_VAR_UINT
                       ? keyOf(v)
                       : keyOf((std::to_string(v) + std::string(v % 3 == 0 ? 30 : 0, 'x')).c_str());
    };
    const int steps = place.file ? 3000 : 6000;
    for (int step = 1; step <= steps; ++step) {
        KR_VarArr k = makeKey();
        unsigned long long ref = rng() % 4;
        auto range = model.equal_range(k);
        int op = rng() % 10;
        if (op < 5) {
            bool present = unique ? range.first != range.second
                                  : std::any_of(range.first, range.second,
                                                [&](auto& e) { return e.second == ref; });
            std::string value = valueOf(k, type, ref, valueSize);
            if (present && unique && valueSize != 0) {
                // A present key takes the new ref and value.
                ASSERT_KR_OK(t.update(k, ref, value.data()));
                range.first->second = ref;
                continue;
            }
            ASSERT_KR_STATUS(present ? KR_RET_FALSE : KR_RET_TRUE, t.insert(k, ref, value.data()));
            if (!present) {
                auto at = range.first;
                while (at != range.second && at->second < ref)
                    ++at;
                model.emplace_hint(at, k, ref);
            }
        } else if (op < 8) {
            ASSERT_KR_STATUS(range.first != range.second ? KR_RET_TRUE : KR_RET_FALSE, t.remove(k));
            if (range.first != range.second) model.erase(range.first);
        } else {
            // seek, then a step either way, against the model's bounds
            auto at = model.lower_bound(k);
            ASSERT_KR_STATUS(range.first != range.second ? KR_RET_TRUE : KR_RET_FALSE, t.seek(k));
            ASSERT_EQ(at == model.end(), t.curIsNull() != 0);
            if (at == model.end()) continue;
            bool forward = op == 8;
            KR_RET_STATUS moved = forward ? t.setCurNext() : t.setCurPrev();
            auto expect = forward ? std::next(at) : at;
            bool none = forward ? expect == model.end() : at == model.begin();
            ASSERT_KR_STATUS(none ? KR_RET_FALSE : KR_RET_TRUE, moved);
            if (none) continue;
            if (!forward) --expect;
            KR_VarArr got = key1();
            unsigned long long gotRef;
            ASSERT_KR_OK(t.getCur(got, gotRef, &buffer[0]));
            ASSERT_EQ(0, KR_btreeKeyComp(const_cast<KR_VarArr&>(expect->first), got));
            ASSERT_EQ(expect->second, gotRef);
            ASSERT_EQ(valueOf(got, type, gotRef, valueSize), buffer);
            unsigned long long found;
            ASSERT_KR_OK(t.find(got, found, &buffer[0]));
            ASSERT_EQ(valueOf(got, type, found, valueSize), buffer);
        }
        if (place.file && step % 500 == 0) {
            ASSERT_KR_OK(t.flush(0));
        }
        if (place.file && step == steps / 2) {
            ASSERT_KR_OK(t.close());
            ASSERT_KR_OK(t.openFile(path.c_str(), KR_FILE_MODE_UPDATE));
            ASSERT_KR_OK(t.setCacheSize(place.cacheNodes, place.cacheBytes));
        }
        if (step % 1000 == 0) {
            ASSERT_EQ(0u, problemsOf(t));
            expectSame(t, model);
            expectValues(t, model, type);
        }
    }
    // Walked both ways by the cursor.
    size_t n = 0;
    for (KR_RET_STATUS st = t.setCurLast(); st == KR_RET_TRUE; st = t.setCurPrev())
        ++n;
    EXPECT_EQ(model.size(), n);
    EXPECT_KR_OK(t.clear());
    model.clear();
    EXPECT_EQ(0u, problemsOf(t));
    EXPECT_KR_OK(t.releaseReserved());
    EXPECT_EQ(0u, t.getReservedCount());
    EXPECT_EQ(0u, problemsOf(t));
}

TEST(Btree, SeededModelAcrossOrdersAndKinds) {
    for (unsigned int order : {3u, 4u, 5u, 64u}) {
        for (KR_VAR_TYPE type : {KR_VAR_UINT, KR_VAR_STRING}) {
            for (unsigned char unique : {1, 0})
                runModel(order, type, unique, {"memory", false, 0, 0});
        }
    }
    // Values move with their entries through splits, rotations and merges.
    runModel(5, KR_VAR_STRING, 1, {"memory", false, 0, 0}, 13);
    runModel(64, KR_VAR_UINT, 0, {"memory", false, 0, 0}, 1);
}

TEST(BtreeFile, SeededModelWithCachesAndReopen) {
    const Place places[] = {{"file, cache all", true, 0, 0},
                            {"file, 16 nodes", true, 16, 0},
                            {"file, 8 KiB", true, 0, 8192}};
    for (const Place& place : places) {
        for (unsigned int order : {3u, 64u}) {
            runModel(order, KR_VAR_STRING, 0, place);
            runModel(order, KR_VAR_UINT, 1, place);
        }
    }
    runModel(4, KR_VAR_STRING, 1, {"file, 16 nodes, values", true, 16, 0}, 100);
}

TEST(Btree, FailedAllocationsLeaveTheTreeAsItWas) {
    KR_REQUIRE_FAULT_INJECTION();
    KR_Array<KR_VAR_TYPE> types = schema({KR_VAR_STRING});
    krtest::ReportCapture capture;
    std::map<KR_VarArr, unsigned long long, KR_BtreeKeyLess> model;
    auto longKey = [](int i) { return keyOf((std::to_string(i) + std::string(40, 'k')).c_str()); };
    // Ascending keys 10..19 in order 3: key 20 splits the rightmost leaf and its full parent,
    // so the insert needs its key block and two nodes.
    for (int i = 10; i < 20; ++i)
        model.emplace(longKey(i), i);
    KR_VarArr fresh = longKey(20);
    int failures = 0;
    krtest::forEachAllocationFailure(
            [&] {
                auto t = std::make_shared<KR_Btree>();
                t->create(types, 3, 1);
                for (auto& e : model)
                    t->insert(const_cast<KR_VarArr&>(e.first), e.second);
                return t;
            },
            [&](std::shared_ptr<KR_Btree> t) { return t->insert(fresh, 1); },
            [&](std::shared_ptr<KR_Btree> t, KR_RET_STATUS st, unsigned long) {
                ++failures;
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, st);
                expectSame(*t, model);
                EXPECT_EQ(0u, problemsOf(*t));
            });
    EXPECT_EQ(3, failures);

    // Removing never allocates, whatever the rebalancing.
    KR_Btree t;
    t.create(types, 3, 1);
    for (auto& e : model)
        t.insert(const_cast<KR_VarArr&>(e.first), e.second);
    krTesting::failAllocation(1);
    for (auto& e : model)
        EXPECT_KR_OK(t.remove(const_cast<KR_VarArr&>(e.first)));
    EXPECT_FALSE(krTesting::allocationFailureFired());
    krTesting::failAllocation(0);
    EXPECT_EQ(0u, t.getNodeCount());
}

namespace {

using krtest::readBytes;
using State = std::vector<std::pair<unsigned int, unsigned long long>>;

State stateOf(KR_Btree& t) {
    State state;
    for (auto& e : entries(t))
        state.emplace_back(static_cast<unsigned int>(e.first[0]), e.second);
    return state;
}

// The state of the file at path as a fresh reader sees it; false when it does not open.
bool openState(const std::string& path, State& state) {
    KR_Btree t;
    if (t.openFile(path.c_str(), KR_FILE_MODE_READ) != KR_RET_TRUE) return false;
    unsigned int problems = 0;
    EXPECT_KR_OK(t.checkConsistency(problems));
    state = stateOf(t);
    return true;
}

void fillUint(KR_Btree& t, const std::string& path, unsigned int order, unsigned int count) {
    KR_Array<KR_VAR_TYPE> types = schema({KR_VAR_UINT});
    ASSERT_KR_OK(t.createFile(path.c_str(), types, order, 1));
    for (unsigned int k = 1; k <= count; ++k) {
        KR_VarArr key = keyOf(k * 7 % 101);
        ASSERT_KR_OK(t.insert(key, k));
    }
}

}  // namespace

TEST(BtreeFile, GoldenBytesAreTheSameEverywhere) {
    krtest::TempDir dir;
    const std::string path = dir.file("small.kbt");
    {
        // Wide text above U+FFFF and in U+E000..U+FFFF, and long values of either sign.
        KR_Btree t;
        KR_Array<KR_VAR_TYPE> types = schema({KR_VAR_STRINGW, KR_VAR_LONG});
        ASSERT_KR_OK(t.createFile(path.c_str(), types, 3, 1));
        // U+10400 then "A": a surrogate pair with 16-bit wchar_t, one unit with 32-bit.
        const wchar_t deseret[] = {sizeof(wchar_t) == 2 ? 0xD801 : 0x10400,
                                   sizeof(wchar_t) == 2 ? 0xDC00 : 0x41,
                                   sizeof(wchar_t) == 2 ? 0x41 : 0, 0};
        const wchar_t* texts[] = {L"a", L"\xE000z", deseret, L"", L"zz", L"b", L"\xFFFD"};
        for (int i = 0; i < 7; ++i) {
            KR_VarArr key(2, KR_VAR_WILD, static_cast<unsigned char>(0));
            key[0] = texts[i];
            key[1] = static_cast<long>(i * 1000 - 3000);
            ASSERT_KR_OK(t.insert(key, 100u * i));
            if (i == 4) {
                ASSERT_KR_OK(t.remove(key));
            }
        }
        ASSERT_KR_OK(t.close());
    }
    const std::string bytes = readBytes(path);
    const std::string golden = std::string(KR_TEST_DATA_DIR) + "/btree_small.kbt";
    if (getenv("KR_WRITE_GOLDEN") != nullptr) krtest::writeBytes(golden, bytes);
    EXPECT_EQ(readBytes(golden), bytes);
    KR_Btree t;
    ASSERT_KR_OK(t.openFile(golden.c_str(), KR_FILE_MODE_READ));
    EXPECT_EQ(0u, problemsOf(t));
    auto got = entries(t);
    ASSERT_EQ(6u, got.size());
    // UTF-16 order: "", "a", "b", the pair (D801), U+E000, U+FFFD.
    std::string refs;
    for (auto& e : got)
        refs += std::to_string(e.second) + " ";
    EXPECT_EQ("300 0 500 200 100 600 ", refs);
    KR_VarArr key = key1();
    EXPECT_KR_STATUS(KR_RET_ERR_CALL, t.insert(key, 1));  // read-only
}

TEST(BtreeFile, GoldenBytesOfValuesAreTheSameEverywhere) {
    krtest::TempDir dir;
    const std::string path = dir.file("values.kbt");
    {
        // Three-byte values after each key, and the value size in the header.
        KR_Btree t;
        KR_Array<KR_VAR_TYPE> types = schema({KR_VAR_STRING});
        ASSERT_KR_OK(t.createFile(path.c_str(), types, 3, 1, 3));
        const char* texts[] = {"m", "c", "x", "a", "q"};
        for (const char* text : texts) {
            KR_VarArr key = keyOf(text);
            ASSERT_KR_OK(t.insert(key, text[0], (std::string(text) + "!?").c_str()));
        }
        KR_VarArr key = keyOf("c");
        ASSERT_KR_OK(t.update(key, 7, "C.."));
        ASSERT_KR_OK(t.close());
    }
    const std::string bytes = readBytes(path);
    const std::string golden = std::string(KR_TEST_DATA_DIR) + "/btree_values.kbt";
    if (getenv("KR_WRITE_GOLDEN") != nullptr) krtest::writeBytes(golden, bytes);
    EXPECT_EQ(readBytes(golden), bytes);
    KR_Btree t;
    ASSERT_KR_OK(t.openFile(golden.c_str(), KR_FILE_MODE_READ));
    EXPECT_EQ(3u, t.getValueSize());
    EXPECT_EQ(0u, problemsOf(t));
    std::string walked;
    for (KR_RET_STATUS st = t.setCurFirst(); st == KR_RET_TRUE; st = t.setCurNext()) {
        KR_VarArr key = key1();
        unsigned long long ref;
        char value[3];
        ASSERT_KR_OK(t.getCur(key, ref, value));
        walked += std::to_string(ref) + ":" + std::string(value, 3) + " ";
    }
    EXPECT_EQ("97:a!? 7:C.. 109:m!? 113:q!? 120:x!? ", walked);
}

TEST(BtreeFile, FailedWritesFallBackToTheLastFlush) {
    krtest::TempDir dir;
    const std::string path = dir.file("w.kbt");
    State committed, changed;
    auto setup = [&]() {
        KR_Btree t;
        fillUint(t, path, 3, 60);
        EXPECT_KR_OK(t.close());
    };
    auto change = [](KR_Btree& t) {
        KR_RET_STATUS st = t.setCacheSize(16);
        for (unsigned int k = 1; k <= 40 && st == KR_RET_TRUE; ++k) {
            KR_VarArr add = keyOf(200 + k), gone = keyOf(k * 7 % 101);
            st = t.insert(add, k);
            if (st == KR_RET_TRUE) st = t.remove(gone);
        }
        // The removes left reserved nodes: their release is a commit of its own, which no
        // later fallback may leave half undone.
        if (st == KR_RET_TRUE && t.getReservedCount() == 0) return KR_RET_ERR_CALL;
        if (st == KR_RET_TRUE) st = t.releaseReserved();
        return st == KR_RET_TRUE ? t.flush(1) : st;
    };
    setup();
    ASSERT_TRUE(openState(path, committed));
    {
        KR_Btree t;
        ASSERT_KR_OK(t.openFile(path.c_str(), KR_FILE_MODE_UPDATE));
        ASSERT_KR_OK(change(t));
        EXPECT_EQ(0u, t.getReservedCount());
        EXPECT_EQ(0u, problemsOf(t));
        changed = stateOf(t);
    }
    krtest::ReportCapture capture;
    for (bool tear : {false, true}) {
        for (size_t n = 1;; ++n) {
            SCOPED_TRACE(std::string(tear ? "torn" : "failed") + " event " + std::to_string(n));
            setup();
            KR_Btree t;
            ASSERT_KR_OK(t.openFile(path.c_str(), KR_FILE_MODE_UPDATE));
            krtest::WriteLog log;
            log.fail = n;
            log.tear = tear;
            KR_RET_STATUS status = change(t);
            if (log.events.size() < n) {
                EXPECT_KR_OK(status);
                break;
            }
            EXPECT_KR_STATUS(KR_RET_ERR_FILE, status);
            State shown, reopened;
            if (t.isOpen()) {
                shown = stateOf(t);
                EXPECT_TRUE(shown == committed || shown == changed);
                EXPECT_EQ(0u, problemsOf(t));
                t.close();
            }
            EXPECT_TRUE(openState(path, reopened));
            EXPECT_TRUE(reopened == committed || reopened == changed);
            if (::testing::Test::HasFailure()) return;
            capture.clear();
        }
    }
}

// A seeded run with commits to the device, its write log replayed onto an empty file: every
// prefix (a kill at that point) opens as the tree of the last flush it completed.
// A read that fails after releaseReserved takes the tree back to its last flush: the release
// must be part of it, not a set of deleted records the restored reserved list still names.
TEST(BtreeFile, ReleasedNodesStayReleasedAfterAFailedRead) {
    krtest::TempDir dir;
    const std::string path = dir.file("r.kbt");
    std::string leafBytes;
    {
        KR_Btree t;
        fillUint(t, path, 3, 100);
        for (unsigned int k = 1; k <= 60; ++k) {
            KR_VarArr gone = keyOf(k * 7 % 101);
            ASSERT_KR_OK(t.remove(gone));
        }
        ASSERT_KR_OK(t.close());
    }
    unsigned int leaf = 0;
    {
        KR_Btree t;
        ASSERT_KR_OK(t.openFile(path.c_str(), KR_FILE_MODE_READ));
        for (unsigned int id = t.getRootId(), n, h; t.getNodeInfo(id, n, h) == KR_RET_TRUE;) {
            leaf = id;
            if (h == 1 || t.getNodeChild(id, n, id) != KR_RET_TRUE) break;
        }
        ASSERT_GT(t.getReservedCount(), 0u);
        KR_FileBinaryRec file;
        ASSERT_KR_OK(file.open(path.c_str(), KR_FILE_MODE_READ));
        KR_Memory memory;
        ASSERT_KR_OK(file.recRead(leaf, memory));
        leafBytes.assign(static_cast<const char*>(memory.memPtr()), memory.memSize());
    }
    // Damage every stored copy of the last leaf, so that reading it fails its checksum.
    std::string bytes = krtest::readBytes(path);
    size_t copies = 0;
    for (size_t at = bytes.find(leafBytes); at != std::string::npos;
         at = bytes.find(leafBytes, at + 1), ++copies)
        bytes[at + leafBytes.size() - 1] ^= 0x5A;
    ASSERT_GT(copies, 0u);
    krtest::writeBytes(path, bytes);

    KR_Btree t;
    ASSERT_KR_OK(t.openFile(path.c_str(), KR_FILE_MODE_UPDATE));
    ASSERT_KR_OK(t.setCacheSize(16));
    ASSERT_KR_OK(t.releaseReserved());
    EXPECT_KR_OK(t.setCurFirst());  // the nodes not in the cache are still there
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, t.setCurLast());
    ASSERT_TRUE(t.isOpen());
    EXPECT_EQ(0u, t.getReservedCount());
    unsigned long long count = 0;
    EXPECT_KR_OK(t.getEntryCount(count));
    EXPECT_EQ(40u, count);
    EXPECT_KR_OK(t.reserveNodes(2));
    EXPECT_KR_OK(t.close());
}

TEST(BtreeFileCrash, EveryReplayedPrefixOpensAtALastFlush) {
    krtest::TempDir dir;
    const std::string path = dir.file("c.kbt"), copy = dir.file("copy.kbt");
    std::vector<State> commits;
    std::vector<size_t> done;
    std::vector<std::pair<long long, std::string>> events;
    {
        krtest::WriteLog log;
        KR_Btree t;
        auto commit = [&]() {
            size_t end = log.events.size();
            while (end > 0 && log.events[end - 1].first < 0)
                --end;
            commits.push_back(stateOf(t));
            done.push_back(end);
        };
        KR_Array<KR_VAR_TYPE> types = schema({KR_VAR_UINT});
        ASSERT_KR_OK(t.createFile(path.c_str(), types, 4, 1));
        ASSERT_KR_OK(t.setCacheSize(16));
        commit();
        std::mt19937 rng(21);
        for (int step = 1; step <= 600; ++step) {
            KR_VarArr k = keyOf(static_cast<unsigned int>(rng() % 300));
            if (rng() % 3 != 0) {
                t.insert(k, step);
            } else {
                t.remove(k);
            }
            if (step % 40 == 0) {
                ASSERT_KR_OK(t.flush(1));
                commit();
            }
        }
        events = log.events;
    }
    krtest::ReportCapture capture;  // the images that do not open report
    std::string image;
    for (size_t k = 0; k <= events.size(); ++k) {
        SCOPED_TRACE("prefix " + std::to_string(k));
        krtest::writeBytes(copy, image);
        int expected = -1;
        for (size_t c = 0; c < done.size() && done[c] <= k; ++c)
            expected = static_cast<int>(c);
        State state;
        ASSERT_EQ(expected >= 0, openState(copy, state));
        if (expected >= 0) {
            ASSERT_EQ(commits[static_cast<size_t>(expected)], state);
        }
        if (k < events.size()) krtest::apply(image, events[k], events[k].second.size());
    }
}

TEST(BtreeFile, DamageIsFoundNotBelieved) {
    krtest::TempDir dir;
    const std::string path = dir.file("d.kbt");
    unsigned int root = 0, child0 = 0, child1 = 0, leaf = 0;
    {
        KR_Btree t;
        fillUint(t, path, 3, 30);
        root = t.getRootId();
        t.getNodeChild(root, 0, child0);
        t.getNodeChild(root, 1, child1);
        for (unsigned int id = child0, n, h; t.getNodeInfo(id, n, h) == KR_RET_TRUE && h > 1;) {
            t.getNodeChild(id, 0, id);
            leaf = id;
        }
        ASSERT_KR_OK(t.close());
    }

    // Each row changes one record's bytes through the record file itself.
    struct Row {
        const char* name;
        unsigned int record;
        std::function<void(std::string&)> damage;
    } rows[] = {
            {"child points at the header", root, [](std::string& b) { b[12] = b[13] = 0; }},
            {"child points at its parent", child0, [&](std::string& b) { b[12] = char(root); }},
            {"two parents share a child", root,
             [&](std::string& b) { b.replace(12, 4, b, 16, 4); }},
            {"more keys than the order", leaf, [](std::string& b) { b[8] = 9; }},
            {"truncated", leaf, [](std::string& b) { b.pop_back(); }},
            {"bad order in the header", 0, [](std::string& b) { b[20] = 2; }},
            {"root beyond the file", 0, [](std::string& b) { b[31] = 1; }},
    };

    krtest::ReportCapture capture;
    for (auto& row : rows) {
        SCOPED_TRACE(row.name);
        KR_Btree pristine;
        fillUint(pristine, path, 3, 30);
        pristine.close();
        {
            KR_FileBinaryRec file;
            ASSERT_KR_OK(file.open(path.c_str(), KR_FILE_MODE_UPDATE));
            KR_Memory memory;
            ASSERT_KR_OK(file.recRead(row.record, memory));
            std::string bytes(static_cast<const char*>(memory.memPtr()), memory.memSize());
            row.damage(bytes);
            ASSERT_KR_OK(file.recWrite(row.record, bytes.data(), (unsigned int)bytes.size()));
            ASSERT_KR_OK(file.close());
        }
        KR_Btree t;
        KR_RET_STATUS opened = t.openFile(path.c_str(), KR_FILE_MODE_READ);
        if (opened != KR_RET_TRUE) {
            EXPECT_KR_STATUS(KR_RET_ERR_FILE, opened);
            continue;
        }
        unsigned int problems = 0;
        KR_RET_STATUS checked = t.checkConsistency(problems);
        EXPECT_TRUE(checked == KR_RET_FALSE || checked == KR_RET_ERR_FILE);
        EXPECT_TRUE(checked == KR_RET_ERR_FILE || problems > 0);
        entries(t);  // bounded, whatever it finds
        t.setCacheSize(16);
        for (KR_RET_STATUS st = t.setCurLast(); st == KR_RET_TRUE; st = t.setCurPrev()) {
        }
    }
}
