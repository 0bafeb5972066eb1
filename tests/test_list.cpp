// test_list.cpp — KR_LList: its reports and its allocation failures.
#include <vector>

#include "container_model.h"
#include "test_support.h"

namespace {

using krtest::contents;
using krtest::cursorIndex;
using UIntList = KR_LList<unsigned int>;

const char* const kUnit = "krcore/include/kr_list_impl";

std::unique_ptr<UIntList> makeList(std::vector<unsigned int> values) {
    auto l = std::make_unique<UIntList>();
    for (unsigned int v : values)
        l->appendElem(v);
    return l;
}

// The list's own cursor rules are checked step by step against its model by the random driver
// in test_container.cpp; here are the reports and the failures.
TEST(LinkedList, AccessReports) {
    const std::string head =
            "ERROR: krcore/include/kr_list_impl: line N: KR_LList: element access\n";
    krtest::ReportCapture capture;
    EXPECT_EQ(static_cast<void*>(&(*makeList({}))[0]), static_cast<void*>(&KR_NULL_PTR));
    EXPECT_EQ(head + "Linked list is empty", capture.located());
    capture.clear();
    auto l = makeList({1, 2, 3});
    EXPECT_EQ(static_cast<void*>(&(*l)[3]), static_cast<void*>(&KR_NULL_PTR));
    EXPECT_EQ(head + "Index 3 not in [0,2]", capture.located());
    capture.clear();
    unsigned int x = 5;
    EXPECT_KR_STATUS(KR_RET_ERR_CALL, l->insElemAtCur(KR_INS_AFTER, x));
    EXPECT_EQ(krtest::statusReport(kUnit, "Bad usage"), capture.located());
}

TEST(LinkedList, AllocationFailureLeavesListUnchanged) {
    KR_REQUIRE_FAULT_INJECTION();
    auto other = makeList({8, 9});
    unsigned int x = 9;
    // One node per element.
    krtest::expectFailuresKeepContainer<UIntList>(
            [] {
                auto l = makeList({1, 2, 3, 4});
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
