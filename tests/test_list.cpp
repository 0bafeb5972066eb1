// test_list.cpp — KR_LList: its own cursor rules beside std::list, reports, failures.
#include <vector>

#include "container_model.h"
#include "test_support.h"

namespace {

using krtest::contents;
using krtest::cursorIndex;
using UIntList = KR_LList<unsigned int>;

const char* const kUnit = "krcore/include/kr_list_impl";

UIntList* makeList(std::vector<unsigned int> values) {
    UIntList* l = new UIntList;
    for (unsigned int v : values)
        l->appendElem(v);
    return l;
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

TEST(LinkedList, CursorRulesThatDifferFromTheArrays) {
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
    // Stepping off the tail answers KR_RET_TRUE with a null cursor.
    EXPECT_KR_OK(l->setCurNext());
    EXPECT_TRUE(l->curIsNull());
    EXPECT_KR_STATUS(KR_RET_FALSE, l->setCurNext());
    // A missing index is refused, not moved to the end; an empty list takes one element first.
    EXPECT_KR_STATUS(KR_RET_FALSE, l->insElems(KR_INS_AFTER, 5, 1));
    EXPECT_KR_OK(l->delElems(1, 10));
    EXPECT_EQ(std::vector<unsigned int>{1}, contents(*l));
    EXPECT_TRUE(l->curIsNull());
    l.reset(makeList({}));
    EXPECT_KR_STATUS(KR_RET_FALSE, l->insElems(KR_INS_AFTER, 5, 3));
    EXPECT_EQ(std::vector<unsigned int>{0}, contents(*l));
}

TEST(LinkedList, AllocationFailureLeavesListUnchanged) {
    KR_REQUIRE_FAULT_INJECTION();
    std::unique_ptr<UIntList> other(makeList({8, 9}));
    unsigned int x = 9;
    // One node per element.
    krtest::expectFailuresKeepContainer<UIntList>(
            [] {
                std::unique_ptr<UIntList> l(makeList({1, 2, 3, 4}));
                l->setCurIndex(1);
                return l;
            },
            {{"appendElem", 1, [](UIntList& l) { return l.appendElem(9); }},
             {"preappendElem", 1, [](UIntList& l) { return l.preappendElem(9); }},
             {"insElems", 3, [](UIntList& l) { return l.insElems(KR_INS_BEFORE, 3, 3); }},
             {"insElemAtCur", 1, [&x](UIntList& l) { return l.insElemAtCur(KR_INS_AFTER, x); }},
             {"assign", 2,
              [&other](UIntList& l) {
                  l = *other;
                  return KR_getStatusCode();
              }}},
            {krtest::statusReport(kUnit, "Memory error")});
}

}  // namespace
