// test_btree.cpp — the B-tree index in memory: its shape by hand, its key order, a seeded oracle
// against std::map and std::multimap ordered by the same comparator, and allocation failures.
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

#include "btree_support.h"

using krtest::entries;
using krtest::expectSame;
using krtest::key1;
using krtest::keyOf;
using krtest::problemsOf;
using krtest::runModel;
using krtest::schema;
using krtest::shape;

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
            {"16 MiB of values in a node", schema({KR_VAR_UINT}), 4096, KR_RET_TRUE, 4096},
            {"more in a node", schema({KR_VAR_UINT}), 4096, KR_RET_ERR_ARG, 4097},
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
