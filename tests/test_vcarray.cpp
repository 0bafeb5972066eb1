// test_vcarray.cpp — KR_VCArray: the array's rules over blocks, growth without copying, failures.
#include <vector>

#include "container_model.h"
#include "test_support.h"

namespace {

using krtest::contents;
using krtest::Tracked;
using UIntVC = KR_VCArray<unsigned int>;

TEST(VCArray, GrowingAtTheEndNeverMovesElements) {
    for (unsigned int blockSize : {0u, 5u, 8u}) {
        SCOPED_TRACE("block size " + std::to_string(blockSize));
        UIntVC a(3, blockSize, 1);
        EXPECT_EQ(blockSize == 0 ? 1u : blockSize, a.getBlockSize());
        EXPECT_EQ((std::vector<unsigned int>{0, 0, 0}), contents(a));
        a[0] = 11;
        a[2] = 13;
        unsigned int* first = &a[0];
        unsigned int* third = &a[2];
        for (unsigned int k = 1; k <= 20; ++k) {
            unsigned int n = a.numElems();
            ASSERT_KR_OK(a.insElems(KR_INS_AFTER, n - 1, k));
            ASSERT_EQ(n + k, a.numElems());
            EXPECT_EQ(0u, a[n + k - 1]);
            a[n + k - 1] = k;
        }
        EXPECT_EQ(first, &a[0]);
        EXPECT_EQ(third, &a[2]);
        EXPECT_EQ(13u, a[2]);
        // Slots freed at the end come back cleared.
        EXPECT_KR_OK(a.delElems(5, 1000));
        EXPECT_KR_OK(a.insElems(KR_INS_AFTER, 4, 30));
        for (unsigned int i = 5; i < 35; ++i)
            ASSERT_EQ(0u, a[i]) << i;
        krtest::ReportCapture capture;
        EXPECT_EQ(static_cast<void*>(&a[35]), static_cast<void*>(&KR_NULL_PTR));
        EXPECT_EQ(
                "ERROR: krcore/include/kr_vcarray_impl: line N: KR_VCArray: element access\n"
                "Index 35 not in [0,34]",
                capture.located());
    }
}

TEST(VCArray, AllocationFailureLeavesListArrayUnchanged) {
    KR_REQUIRE_FAULT_INJECTION();
    UIntVC source(40, 4, 1);
    // Growth reallocates the directory when it is full, then takes a block and a list node per
    // block; seven elements fill two blocks of four.
    krtest::expectFailuresKeepContainer<UIntVC>(
            [] {
                auto a = std::make_unique<UIntVC>(7, 4, 1);
                for (unsigned int i = 0; i < 7; ++i)
                    (*a)[i] = i + 1;
                a->setCurIndex(3);
                return a;
            },
            {{"append blocks", 21, [](UIntVC& a) { return a.insElems(KR_INS_AFTER, 6, 40); }},
             {"insert in the middle", 4, [](UIntVC& a) { return a.insElems(KR_INS_BEFORE, 2, 9); }},
             {"assign a longer one", 17,
              [&source](UIntVC& a) {
                  a = source;
                  return KR_getStatusCode();
              }}},
            {krtest::statusReport("krcore/include/kr_vcarray_impl", "Memory error"),
             krtest::statusReport("krcore/include/kr_list_impl", "Memory error")});
    // A construction that fails leaves an unusable list array.
    krtest::ReportCapture capture;
    krTesting::failAllocation(2);
    UIntVC broken(10, 4, 1);
    krTesting::failAllocation(0);
    EXPECT_FALSE(broken.objIsEnabled());
    EXPECT_EQ(0, broken.getRawCopy());
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, broken.appendElem(1));
}

// Block records are compared by hosts as well as inside the library (a Debug build calls the
// comparison out of line).
TEST(VCArray, BlockRecordsCompareByBlockAndFirstIndex) {
    KR_Command* block[2] = {};
    KR_VCARR_LLIST_REC<KR_Command*> a{block, 4}, same{block, 4}, otherIndex{block, 8},
            otherBlock{block + 1, 4};
    EXPECT_TRUE(a == same);
    EXPECT_FALSE(a == otherIndex || a == otherBlock);
}

}  // namespace
