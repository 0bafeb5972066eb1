// test_vcarray.cpp — KR_VCArray: the array's rules over blocks, growth without copying, failures.
#include <functional>
#include <memory>
#include <vector>

#include "container_model.h"
#include "test_support.h"

namespace {

using krtest::contents;
using krtest::Tracked;
using krtest::valueOf;
using UIntVC = KR_VCArray<unsigned int>;

template <class Element, unsigned int BlockSize, unsigned char Raw>
struct Kind {
    using Type = Element;
    static constexpr unsigned int blockSize = BlockSize;
    static constexpr unsigned char raw = Raw;
};

template <class K>
class VCArrayOracle : public ::testing::Test {};

using VCArrayKinds = ::testing::Types<Kind<unsigned int, 1, 1>,
                                      Kind<unsigned int, 3, 0>,
                                      Kind<unsigned int, 4, 1>,
                                      Kind<Tracked, 3, 0>,
                                      Kind<Tracked, 2, 1>>;
TYPED_TEST_SUITE(VCArrayOracle, VCArrayKinds);

// The list array answers every sequence exactly as the array does.
TYPED_TEST(VCArrayOracle, RandomOperationsMatchTheArrayModel) {
    long before = Tracked::live;
    for (unsigned int seed = 1; seed <= 4; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        KR_VCArray<typename TypeParam::Type> a(0, TypeParam::blockSize, TypeParam::raw);
        krtest::driveLikeArray(a, seed, 400);
        KR_VCArray<typename TypeParam::Type> copy(a);
        EXPECT_TRUE(copy == a);
        copy.delAll();
        copy = a;
        EXPECT_TRUE(copy == a);
    }
    EXPECT_EQ(before, Tracked::live);
}

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
    }
}

TEST(VCArray, OutOfRangeAccessReports) {
    UIntVC a(2, 4, 1);
    krtest::ReportCapture capture;
    EXPECT_EQ(static_cast<void*>(&a[2]), static_cast<void*>(&KR_NULL_PTR));
    EXPECT_EQ(
            "ERROR: krcore/include/kr_vcarray_impl: line N: KR_VCArray: element access\n"
            "Index 2 not in [0,1]",
            capture.located());
}

TEST(VCArray, AllocationFailureLeavesListArrayUnchanged) {
    KR_REQUIRE_FAULT_INJECTION();
    const std::string vcMem =
            krtest::statusReport("krcore/include/kr_vcarray_impl", "Memory error");
    const std::string listMem = krtest::statusReport("krcore/include/kr_list_impl", "Memory error");

    UIntVC source(40, 4, 1);

    struct Row {
        const char* name;
        std::function<KR_RET_STATUS(UIntVC&)> op;
    };

    // Each growth needs the directory, a block and a list node per block.
    const Row rows[] = {
            {"append blocks", [](UIntVC& a) { return a.insElems(KR_INS_AFTER, 6, 40); }},
            {"insert in the middle", [](UIntVC& a) { return a.insElems(KR_INS_BEFORE, 2, 9); }},
            {"assign a longer one",
             [&source](UIntVC& a) {
                 KR_clearStatusCode();
                 a = source;
                 return KR_getStatusCode();
             }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        krtest::ReportCapture capture;
        unsigned long failures = 0;
        krtest::forEachAllocationFailure(
                [&] {
                    auto a = std::make_unique<UIntVC>(7, 4, 1);
                    for (unsigned int i = 0; i < 7; ++i)
                        (*a)[i] = i + 1;
                    a->setCurIndex(3);
                    capture.clear();
                    return a;
                },
                [&](std::unique_ptr<UIntVC>& a) { return row.op(*a); },
                [&](std::unique_ptr<UIntVC>& a, KR_RET_STATUS st, unsigned long) {
                    ++failures;
                    EXPECT_KR_STATUS(KR_RET_ERR_MEM, st);
                    std::string report = capture.located();
                    EXPECT_TRUE(report == vcMem || report == listMem) << report;
                    EXPECT_EQ((std::vector<unsigned int>{1, 2, 3, 4, 5, 6, 7}), contents(*a));
                    unsigned int index = 0;
                    EXPECT_KR_OK(a->getCurIndex(index));
                    EXPECT_EQ(3u, index);
                });
        EXPECT_GE(failures, 3u);
    }
    // A construction that fails leaves an unusable list array.
    krtest::ReportCapture capture;
    krTesting::failAllocation(2);
    UIntVC broken(10, 4, 1);
    krTesting::failAllocation(0);
    EXPECT_FALSE(broken.objIsEnabled());
    EXPECT_EQ(0, broken.getRawCopy());
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, broken.appendElem(1));
}

}  // namespace
