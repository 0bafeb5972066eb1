// test_list.cpp — KR_LList: its own cursor rules beside std::list, reports, failures.
#include <functional>
#include <memory>
#include <vector>

#include "container_model.h"
#include "test_support.h"

namespace {

using krtest::contents;
using krtest::ListModel;
using krtest::Tracked;
using krtest::valueOf;
using UIntList = KR_LList<unsigned int>;

const char* const kUnit = "krcore/include/kr_list_impl";

UIntList* makeList(std::vector<unsigned int> values) {
    UIntList* l = new UIntList;
    for (unsigned int v : values)
        l->appendElem(v);
    return l;
}

// Cursor index, or 999 for a null cursor.
template <class T>
unsigned int cursorIndex(KR_LList<T>& l) {
    unsigned int index = 0;
    return l.getCurIndex(index) == KR_RET_TRUE ? index : 999;
}

TEST(LinkedList, AccessReports) {
    std::unique_ptr<UIntList> l(makeList({}));
    krtest::ReportCapture capture;
    EXPECT_EQ(static_cast<void*>(&(*l)[0]), static_cast<void*>(&KR_NULL_PTR));
    EXPECT_EQ(
            "ERROR: krcore/include/kr_list_impl: line N: KR_LList: element access\n"
            "Linked list is empty",
            capture.located());
    capture.clear();
    l.reset(makeList({1, 2, 3}));
    EXPECT_EQ(static_cast<void*>(&(*l)[3]), static_cast<void*>(&KR_NULL_PTR));
    EXPECT_EQ(
            "ERROR: krcore/include/kr_list_impl: line N: KR_LList: element access\n"
            "Index 3 not in [0,2]",
            capture.located());
    capture.clear();
    unsigned int x = 5;
    EXPECT_KR_STATUS(KR_RET_ERR_CALL, l->insElemAtCur(KR_INS_AFTER, x));
    EXPECT_EQ(krtest::statusReport(kUnit, "Bad usage"), capture.located());
}

TEST(LinkedList, InsertionRefusesMissingIndex) {
    std::unique_ptr<UIntList> l(makeList({1, 2, 3}));
    EXPECT_KR_STATUS(KR_RET_FALSE, l->insElems(KR_INS_AFTER, 5, 1));
    EXPECT_EQ((std::vector<unsigned int>{1, 2, 3}), contents(*l));
    EXPECT_TRUE(l->curIsNull());
    l.reset(makeList({}));
    EXPECT_KR_OK(l->insElems(KR_INS_AFTER, 5, 1));
    EXPECT_EQ(1u, l->numElems());
    l.reset(makeList({}));
    EXPECT_KR_STATUS(KR_RET_FALSE, l->insElems(KR_INS_AFTER, 5, 3));
    EXPECT_EQ(1u, l->numElems());
}

TEST(LinkedList, CursorAfterInsertAndDelete) {
    std::unique_ptr<UIntList> l(makeList({1, 2, 3, 4}));
    // Inserting before the node at index 2 leaves the cursor on the new node, reading index 3.
    l->setCurIndex(2);
    unsigned int x = 9;
    EXPECT_KR_OK(l->insElemAtCur(KR_INS_BEFORE, x));
    EXPECT_EQ(3u, cursorIndex(*l));
    EXPECT_EQ((std::vector<unsigned int>{1, 2, 9, 3, 4}), contents(*l));
    // Deleting at the tail moves the cursor to the new tail with the index reduced by one.
    l->setCurLast();
    EXPECT_KR_OK(l->delCurElem(0));
    EXPECT_EQ(3u, cursorIndex(*l));
    EXPECT_TRUE(l->curAtLast());
    // Stepping off the tail answers KR_RET_TRUE with a null cursor, unlike the arrays.
    EXPECT_KR_OK(l->setCurNext());
    EXPECT_TRUE(l->curIsNull());
    EXPECT_KR_STATUS(KR_RET_FALSE, l->setCurNext());
    EXPECT_KR_OK(l->delElems(1, 10));
    EXPECT_EQ(std::vector<unsigned int>{1}, contents(*l));
    EXPECT_TRUE(l->curIsNull());
}

// Drives a list and the model with the same seeded random operations; compares status,
// contents, cursor node and recorded cursor index after every step.
template <class T>
void driveList(unsigned int seed, int steps) {
    KR_LList<T> c;
    ListModel m;
    std::mt19937 rng(seed);
    auto pick = [&rng](unsigned int hi) {
        return std::uniform_int_distribution<unsigned int>(0, hi)(rng);
    };
    for (int step = 0; step < steps; ++step) {
        unsigned int n = static_cast<unsigned int>(m.l.size());
        unsigned int op = pick(11), a = pick(n + 1), b = pick(3), x = pick(1000) + 1;
        if (n > 0 && (x & 1)) x = *std::next(m.l.begin(), a % n);
        SCOPED_TRACE("step " + std::to_string(step) + ", operation " + std::to_string(op));
        KR_RET_STATUS want = KR_RET_TRUE, got = KR_RET_TRUE;
        T value(x);
        switch (op) {
            case 0:
                want = m.insElems(b & 1, a, b);
                got = c.insElems(static_cast<KR_INS_METHOD>(b & 1), a, b);
                break;
            case 1:
                want = m.delElems(a, b + 1);
                got = c.delElems(a, b + 1);
                break;
            case 2:
                m.l.push_back(x);
                got = c.appendElem(value);
                break;
            case 3:
                m.preappend(x);
                got = c.preappendElem(value);
                break;
            case 4:
                want = m.delCurElem(b & 1);
                got = c.delCurElem(b & 1);
                break;
            case 5:
                want = m.setCurIndex(a);
                got = c.setCurIndex(a);
                break;
            case 6:
                want = m.setCurNext();
                got = c.setCurNext();
                break;
            case 7:
                want = m.setCurPrev();
                got = c.setCurPrev();
                break;
            case 8:
                if (m.null()) {
                    want = KR_RET_FALSE;
                } else {
                    *m.cur = x;
                }
                got = c.setCurElem(value);
                break;
            case 9:
                want = m.l.empty() || !m.null() ? m.insAtCur(b & 1, x) : KR_RET_ERR_CALL;
                got = c.insElemAtCur(static_cast<KR_INS_METHOD>(b & 1), value);
                break;
            case 10:
                want = m.delElem(x);
                got = c.delElem(value);
                break;
            default:
                want = m.setCurIndex(b && n > 0 ? n - 1 : 0);
                got = b ? c.setCurLast() : c.setCurFirst();
        }
        EXPECT_KR_STATUS(want, got);
        ASSERT_EQ(std::vector<unsigned int>(m.l.begin(), m.l.end()), contents(c));
        T* elem = nullptr;
        c.getCurElem(&elem);
        if (m.null()) {
            EXPECT_EQ(nullptr, elem);
        } else {
            EXPECT_EQ(&c[static_cast<unsigned int>(m.pos())], elem);
            EXPECT_EQ(m.idx, cursorIndex(c));
        }
        if (::testing::Test::HasFailure()) return;
    }
    KR_LList<T> copy(c);
    EXPECT_TRUE(copy == c && copy.curIsNull());
    copy.appendElem(T(1));
    EXPECT_FALSE(copy == c);
}

TEST(LinkedList, RandomOperationsMatchStdList) {
    long before = Tracked::live;
    krtest::ReportCapture capture;  // null-cursor insertions report KR_RET_ERR_CALL
    for (unsigned int seed = 1; seed <= 4; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        driveList<unsigned int>(seed, 500);
        driveList<Tracked>(seed + 100, 500);
    }
    EXPECT_EQ(before, Tracked::live);
}

TEST(LinkedList, AllocationFailureLeavesListUnchanged) {
    KR_REQUIRE_FAULT_INJECTION();
    std::unique_ptr<UIntList> other(makeList({8, 9}));

    struct Row {
        const char* name;
        std::function<KR_RET_STATUS(UIntList&)> op;
    };

    const Row rows[] = {
            {"appendElem", [](UIntList& l) { return l.appendElem(9); }},
            {"preappendElem", [](UIntList& l) { return l.preappendElem(9); }},
            {"insElems", [](UIntList& l) { return l.insElems(KR_INS_BEFORE, 3, 3); }},
            {"insElemAtCur",
             [](UIntList& l) {
                 unsigned int x = 9;
                 return l.insElemAtCur(KR_INS_AFTER, x);
             }},
            {"assign",
             [&other](UIntList& l) {
                 l = *other;
                 return KR_getStatusCode();
             }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        krtest::ReportCapture capture;
        krtest::forEachAllocationFailure(
                [&] {
                    std::unique_ptr<UIntList> l(makeList({1, 2, 3, 4}));
                    l->setCurIndex(1);
                    capture.clear();
                    KR_clearStatusCode();
                    return l;
                },
                [&](std::unique_ptr<UIntList>& l) { return row.op(*l); },
                [&](std::unique_ptr<UIntList>& l, KR_RET_STATUS st, unsigned long) {
                    EXPECT_KR_STATUS(KR_RET_ERR_MEM, st);
                    EXPECT_EQ(krtest::statusReport(kUnit, "Memory error"), capture.located());
                    EXPECT_EQ((std::vector<unsigned int>{1, 2, 3, 4}), contents(*l));
                    EXPECT_EQ(1u, cursorIndex(*l));
                });
    }
}

}  // namespace
