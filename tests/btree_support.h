// btree_support.h — helpers of the B-tree suites: keys and schemas, dumps of a tree, and the
// seeded model run that drives a memory or file tree beside std::multimap.
#ifndef KRCORE_TESTS_BTREE_SUPPORT_H
#define KRCORE_TESTS_BTREE_SUPPORT_H

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "record_support.h"
#include "test_support.h"

namespace krtest {

inline KR_VarArr key1() {
    return KR_VarArr(1, KR_VAR_WILD, static_cast<unsigned char>(0));
}

template <class V>
inline KR_VarArr keyOf(V value) {
    KR_VarArr k = key1();
    k[0] = value;
    return k;
}

inline KR_Array<KR_VAR_TYPE> schema(std::initializer_list<KR_VAR_TYPE> types) {
    KR_Array<KR_VAR_TYPE> a(0, 1);
    for (KR_VAR_TYPE t : types)
        a.appendElem(t);
    return a;
}

// "id[k,k] / id[k] id[k]": the breadth-first walk, levels apart, UINT keys.
inline std::string shape(KR_Btree& t) {
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
inline std::vector<std::pair<KR_VarArr, unsigned long long>> entries(KR_Btree& t) {
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
inline void expectSame(KR_Btree& t, Model& model) {
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

inline unsigned int problemsOf(KR_Btree& t) {
    unsigned int problems = 99;
    EXPECT_KR_OK(t.checkConsistency(problems));
    return problems;
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
inline std::string valueOf(KR_VarArr& key,
                           KR_VAR_TYPE type,
                           unsigned long long ref,
                           unsigned int size) {
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
inline void expectValues(KR_Btree& t, Model& model, KR_VAR_TYPE type) {
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
inline void runModel(unsigned int order,
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

}  // namespace krtest

#endif  // KRCORE_TESTS_BTREE_SUPPORT_H
