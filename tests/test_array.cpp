// test_array.cpp — KR_Array: clamping, cursor rules, in-place moves, copying, failures.
#include <string>
#include <vector>

#include "container_model.h"
#include "test_support.h"

namespace {

using krtest::contents;
using krtest::cursorIndex;
using krtest::Tracked;
using UIntArray = KR_Array<unsigned int>;

const char* const kUnit = "krcore/include/kr_array_impl";

template <class T>
T elem(unsigned int v) {
    return T(v);
}

// Strings are moved by exchange and copied through the element contract; 0 stands for null.
template <>
KR_String elem<KR_String>(unsigned int v) {
    return KR_String(v == 0 ? nullptr : std::to_string(v).c_str());
}

template <class T = unsigned int>
void fill(KR_Array<T>& a, std::vector<unsigned int> values) {
    a.delAll();
    a.insElems(KR_INS_AFTER, 0, static_cast<unsigned int>(values.size()));
    for (unsigned int i = 0; i < values.size(); ++i)
        a[i] = elem<T>(values[i]);
}

std::vector<unsigned int> numbers(KR_Array<Tracked>& a) {
    return contents(a);
}

std::vector<unsigned int> numbers(KR_Array<KR_String>& a) {
    std::vector<unsigned int> out;
    for (const std::string& s : contents(a))
        out.push_back(s == "(null)" ? 0 : static_cast<unsigned int>(std::stoul(s)));
    return out;
}

TEST(Array, OutOfRangeAccessReportsAndAnswersTheNullBlock) {
    UIntArray a(3, 1);
    EXPECT_TRUE(a.objIsEnabled() && a.curIsNull());
    krtest::ReportCapture capture;
    unsigned int& r = a[5];
    EXPECT_EQ(static_cast<void*>(&r), static_cast<void*>(&KR_NULL_PTR));
    EXPECT_EQ(
            "ERROR: krcore/include/kr_array_impl: line N: KR_Array: element access\n"
            "Index 5 not in [0,2]",
            capture.located());
    capture.clear();
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, a.getCurElem(nullptr));
    EXPECT_EQ(krtest::statusReport(kUnit, "Error on function input arguments"), capture.located());
    // An insertion that the caller addresses past the end must not write into the null block.
    capture.clear();
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, a.insElem(KR_INS_AFTER, 7, 42));
    EXPECT_EQ(0u, r);
    EXPECT_EQ(4u, a.numElems());
}

TEST(Array, AssignmentKeepsCursorIndexAndEqualityWalksCursors) {
    struct Row {
        const char* name;
        unsigned int cursor;
        unsigned int expected;
    };

    const Row rows[] = {{"inside", 2, 2}, {"outside", 4, 0}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        UIntArray source(0, 1), target(0, 0);
        fill(source, {7, 8, 9});
        fill(target, {1, 2, 3, 4, 5});
        target.setCurIndex(row.cursor);
        target = source;
        EXPECT_EQ((std::vector<unsigned int>{7, 8, 9}), contents(target));
        EXPECT_EQ(1, target.getRawCopy());
        EXPECT_EQ(row.expected, cursorIndex(target));
        // Equality walks both cursors: off the end when equal, else to the first difference.
        EXPECT_TRUE(source == target && source.curIsNull() && target.curIsNull());
        target[1] = 5;
        EXPECT_FALSE(source == target);
        EXPECT_EQ(1u, cursorIndex(source));
        EXPECT_FALSE(source.isLocked() || target.isLocked());
    }
}

TEST(Array, InsertWithoutGrowing) {
    struct Row {
        const char* name;
        int method;
        unsigned int index, count;
        std::vector<unsigned int> expected;
    };

    const Row rows[] = {
            {"before", 0, 1, 2, {1, 0, 0, 2, 3}},
            {"after", 1, 1, 2, {1, 2, 0, 0, 3}},
            {"method 2 counts as before", 2, 1, 2, {1, 0, 0, 2, 3}},
            {"after the last element", 1, 4, 2, {1, 2, 3, 4, 5}},
            {"count not below the length", 0, 0, 5, {1, 2, 3, 4, 5}},
            {"wide gap", 1, 0, 3, {1, 0, 0, 0, 2}},
    };
    for (unsigned char raw = 0; raw < 2; ++raw) {
        for (const Row& row : rows) {
            SCOPED_TRACE(std::string(row.name) + (raw ? " raw" : " assigned"));
            KR_Array<Tracked> a(0, raw);
            fill(a, {1, 2, 3, 4, 5});
            EXPECT_KR_OK(
                    a.insElems(static_cast<KR_INS_METHOD>(row.method), row.index, row.count, 0));
            EXPECT_EQ(row.expected, contents(a));
        }
    }
}

TEST(Array, MemMoveAndSubCopyClampAndClear) {
    struct Row {
        const char* name;
        bool sub;
        unsigned int dst, src, n;
        unsigned char clear;
        KR_RET_STATUS status;
        std::vector<unsigned int> expected;
    };

    const Row rows[] = {
            {"right overlap", false, 2, 0, 3, 1, KR_RET_TRUE, {0, 0, 1, 2, 3, 6}},
            {"left overlap", false, 0, 2, 3, 1, KR_RET_TRUE, {3, 4, 5, 0, 0, 6}},
            {"apart", false, 0, 3, 2, 1, KR_RET_TRUE, {4, 5, 3, 0, 0, 6}},
            {"destination clamped", false, 4, 0, 5, 0, KR_RET_TRUE, {1, 2, 3, 4, 1, 2}},
            // Clearing tests the clamped ends, not the shorter run actually moved.
            {"destination in clamped source", false, 4, 0, 6, 1, KR_RET_TRUE, {0, 0, 0, 0, 1, 2}},
            {"destination end last", false, 0, 3, 6, 1, KR_RET_TRUE, {4, 5, 6, 4, 5, 6}},
            {"source longer than destination", false, 5, 0, 3, 1, KR_RET_TRUE, {0, 0, 0, 4, 5, 1}},
            {"zero count", false, 0, 1, 0, 1, KR_RET_FALSE, {1, 2, 3, 4, 5, 6}},
            {"source out", false, 0, 6, 1, 1, KR_RET_FALSE, {1, 2, 3, 4, 5, 6}},
            // subCopy from {10..19}: the source end is clamped against this array's length.
            {"source end clamped", true, 0, 3, 5, 0, KR_RET_TRUE, {13, 14, 15, 4, 5, 6}},
            {"destination end clamped", true, 3, 0, 5, 0, KR_RET_TRUE, {1, 2, 3, 10, 11, 12}},
            {"source past this length", true, 0, 7, 2, 0, KR_RET_FALSE, {1, 2, 3, 4, 5, 6}},
            {"source index out", true, 0, 10, 1, 0, KR_RET_FALSE, {1, 2, 3, 4, 5, 6}},
            {"destination index out", true, 6, 0, 1, 0, KR_RET_FALSE, {1, 2, 3, 4, 5, 6}},
    };
    auto walk = [&](auto element, unsigned char raw, const char* kind) {
        using T = decltype(element);
        for (const Row& row : rows) {
            SCOPED_TRACE(std::string(row.name) + kind);
            KR_Array<T> a(0, raw), src(0, raw);
            fill(a, {1, 2, 3, 4, 5, 6});
            fill(src, {10, 11, 12, 13, 14, 15, 16, 17, 18, 19});
            EXPECT_KR_STATUS(row.status, row.sub ? a.subCopy(src, row.src, row.dst, row.n)
                                                 : a.memMove(row.dst, row.src, row.n, row.clear));
            EXPECT_EQ(row.expected, numbers(a));
        }
    };
    walk(Tracked(), 0, " assigned");
    walk(Tracked(), 1, " raw");
    walk(KR_String(), 0, " strings");
}

TEST(Array, AllocationFailureLeavesArrayUnchanged) {
    KR_REQUIRE_FAULT_INJECTION();
    UIntArray other(2, 1);
    krtest::expectFailuresKeepContainer<UIntArray>(
            [] {
                auto a = std::make_unique<UIntArray>(0, 1);
                fill(*a, {1, 2, 3, 4, 5});
                a->setCurIndex(2);
                return a;
            },
            {{"insElems", 1, [](UIntArray& a) { return a.insElems(KR_INS_BEFORE, 1, 3); }},
             {"delElems", 1, [](UIntArray& a) { return a.delElems(1, 2); }},
             {"reallocate", 1, [](UIntArray& a) { return a.reallocate(9); }},
             {"appendElem", 1, [](UIntArray& a) { return a.appendElem(9); }},
             {"preappendElem", 1, [](UIntArray& a) { return a.preappendElem(9); }},
             {"delCurElem", 1, [](UIntArray& a) { return a.delCurElem(1); }},
             {"assign", 1,
              [&other](UIntArray& a) {
                  a = other;
                  return KR_getStatusCode();
              }}},
            {krtest::statusReport(kUnit, "Memory error")});
}

TEST(Array, MoveHandsBlocksOverWithoutAllocating) {
    using Strings = KR_Array<KR_String>;
    Strings a, b;
    fill(a, {1, 2, 3});
    fill(b, {4, 5});
    a.setCurIndex(2);
    b.setCurIndex(1);
    const char* text = a[0];
    unsigned long before = krTesting::allocationCount();
    a = static_cast<Strings&&>(b);
    // a's index 2 is outside its new length and goes to 0; b's index 1 is kept.
    EXPECT_EQ((std::vector<unsigned int>{4, 5}), numbers(a));
    EXPECT_EQ(0u, cursorIndex(a));
    EXPECT_EQ((std::vector<unsigned int>{1, 2, 3}), numbers(b));
    EXPECT_EQ(1u, cursorIndex(b));
    Strings c(static_cast<Strings&&>(b));
    EXPECT_EQ(before, krTesting::allocationCount());
    EXPECT_EQ(text, static_cast<const char*>(c[0]));
    EXPECT_EQ(0u, cursorIndex(c));
    EXPECT_EQ(0u, b.numElems());
    EXPECT_EQ(999u, cursorIndex(b));
}

TEST(Array, FailedConstructionLeavesUnusableArray) {
    KR_REQUIRE_FAULT_INJECTION();
    krtest::ReportCapture capture;
    krTesting::failAllocation(1);
    UIntArray a(4, 1);
    krTesting::failAllocation(0);
    EXPECT_FALSE(a.objIsEnabled());
    EXPECT_EQ(0, a.getRawCopy());
    EXPECT_EQ(krtest::statusReport(kUnit, "Memory error"), capture.located());
    capture.clear();
    EXPECT_EQ(KR_RET_ERR_POBJ, a.curAtFirst());
    EXPECT_TRUE(a.curIsNull());
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, a.appendElem(1));
    EXPECT_EQ(0, a.hasElem(1));
    EXPECT_EQ(static_cast<void*>(&a[0]), static_cast<void*>(&KR_NULL_PTR));
    const std::string pobj = krtest::statusReport(kUnit, "Korvane object not initialized");
    EXPECT_EQ(pobj + pobj +
                      krtest::statusReport("krcore/include/kr_iterator_impl",
                                           "Korvane object not initialized") +
                      pobj,
              capture.located());
}

}  // namespace
