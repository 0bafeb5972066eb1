// test_container.cpp — every sequence beside its model under seeded random operations, and the
// shared default bodies and the iterator lock.
#include <memory>
#include <type_traits>
#include <vector>

#include "container_model.h"
#include "test_support.h"

namespace {

using krtest::ArrayModel;
using krtest::ListModel;
using krtest::Tracked;

// A sequence under the random driver: its type, its model and its constructor's arguments.
template <class C, class M, unsigned char Raw = 0, unsigned int BlockSize = 0>
struct Kind {
    using Type = C;
    using Model = M;

    static std::unique_ptr<C> make() {
        if constexpr (BlockSize > 0) {
            return std::make_unique<C>(0, BlockSize, Raw);
        } else if constexpr (M::kList) {
            return std::make_unique<C>();
        } else {
            return std::make_unique<C>(0, Raw);
        }
    }
};

template <class K>
class RandomOracle : public ::testing::Test {};

using Kinds = ::testing::Types<Kind<KR_Array<unsigned int>, ArrayModel, 1>,
                               Kind<KR_Array<unsigned int>, ArrayModel, 0>,
                               Kind<KR_Array<Tracked>, ArrayModel, 0>,
                               Kind<KR_Array<Tracked>, ArrayModel, 1>,
                               Kind<KR_VCArray<unsigned int>, ArrayModel, 1, 1>,
                               Kind<KR_VCArray<unsigned int>, ArrayModel, 0, 3>,
                               Kind<KR_VCArray<unsigned int>, ArrayModel, 1, 4>,
                               Kind<KR_VCArray<Tracked>, ArrayModel, 0, 3>,
                               Kind<KR_VCArray<Tracked>, ArrayModel, 1, 2>,
                               Kind<KR_LList<unsigned int>, ListModel>,
                               Kind<KR_LList<Tracked>, ListModel>>;
TYPED_TEST_SUITE(RandomOracle, Kinds);

// The list array follows the array's model exactly; the list has its own.
TYPED_TEST(RandomOracle, OperationsMatchTheModel) {
    using C = typename TypeParam::Type;
    long before = Tracked::live;
    krtest::ReportCapture capture;  // the list's null-cursor insertions report KR_RET_ERR_CALL
    for (unsigned int seed = 1; seed <= 4; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::unique_ptr<C> c = TypeParam::make();
        krtest::driveLikeModel<typename TypeParam::Model>(*c, seed, 500);
        C copy(*c);
        EXPECT_TRUE(copy == *c);
        copy.delAll();
        copy = *c;
        EXPECT_TRUE(copy == *c);
        copy.appendElem(1);
        EXPECT_FALSE(copy == *c);
    }
    EXPECT_EQ(before, Tracked::live);
}

template <class C>
class Container : public ::testing::Test {
protected:
    // A container of the kind under test holding values.
    static C make(std::vector<unsigned int> values) {
        C c;
        for (unsigned int v : values)
            c.appendElem(v);
        return c;
    }
};

using Sequences =
        ::testing::Types<KR_Array<unsigned int>, KR_LList<unsigned int>, KR_VCArray<unsigned int>>;
TYPED_TEST_SUITE(Container, Sequences);

TYPED_TEST(Container, BulkAddAndRemove) {
    TypeParam c = this->make({1, 2}), empty = this->make({}), more = this->make({2, 3, 3});
    EXPECT_KR_STATUS(KR_RET_FALSE, c.addElems(c, 1));
    EXPECT_KR_STATUS(KR_RET_FALSE, c.removeElems(c));
    EXPECT_KR_STATUS(KR_RET_FALSE, empty.delAll());
    EXPECT_KR_OK(c.addElems(empty, 0));
    EXPECT_EQ((std::vector<unsigned int>{1, 2}), krtest::contents(c));
    TypeParam all = this->make({1, 2});
    EXPECT_KR_OK(all.addElems(more, 1));
    EXPECT_EQ((std::vector<unsigned int>{1, 2, 2, 3, 3}), krtest::contents(all));
    // The repeated 3 was counted twice but is copied once; its spare slot keeps the default.
    EXPECT_KR_OK(c.addElems(more, 0));
    EXPECT_EQ((std::vector<unsigned int>{1, 2, 3, 0}), krtest::contents(c));
    TypeParam gone = this->make({2, 5});
    EXPECT_KR_OK(all.removeElems(gone));
    EXPECT_EQ((std::vector<unsigned int>{1, 2, 3, 3}), krtest::contents(all));
}

TYPED_TEST(Container, SearchReverseAndSwap) {
    TypeParam c = this->make({4, 5, 6, 5});
    unsigned int index = 99;
    EXPECT_KR_OK(c.findElemIndex(5, index));
    EXPECT_EQ(1u, index);
    EXPECT_KR_STATUS(KR_RET_FALSE, c.findElemIndex(7, index));
    EXPECT_EQ(4u, index);
    EXPECT_TRUE(c.hasElem(6));
    EXPECT_FALSE(c.hasElem(7));
    const std::vector<std::vector<unsigned int>> rows = {{}, {1}, {1, 2}, {1, 2, 3, 4, 5}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.size());
        TypeParam r = this->make(row);
        EXPECT_KR_OK(r.reverse());
        EXPECT_EQ(std::vector<unsigned int>(row.rbegin(), row.rend()), krtest::contents(r));
    }
    EXPECT_KR_OK(c.swap(2, 2));
    EXPECT_KR_OK(c.swap(0, 2));
    EXPECT_EQ((std::vector<unsigned int>{6, 5, 4, 5}), krtest::contents(c));
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, c.swap(0, 4));
    EXPECT_EQ(krtest::statusReport("krcore/include/kr_container",
                                   "Error on function input arguments"),
              capture.located());
}

TYPED_TEST(Container, DeleteAndInsertAtTheCursor) {
    TypeParam c = this->make({1, 2, 3});
    c.setCurIndex(1);
    EXPECT_KR_STATUS(KR_RET_FALSE, c.delElem(9));
    // The default search leaves a null cursor; the list's own delElem does not use the cursor.
    const bool isList = std::is_same<TypeParam, KR_LList<unsigned int>>::value;
    EXPECT_EQ(!isList, c.curIsNull() != 0);
    c.setCurIndex(3);
    // A null cursor inserts at index 0.
    EXPECT_KR_OK(c.insertElemAtCur(KR_INS_BEFORE, 7));
    EXPECT_EQ((std::vector<unsigned int>{7, 1, 2, 3}), krtest::contents(c));
    EXPECT_KR_OK(c.delElem(2));
    EXPECT_EQ((std::vector<unsigned int>{7, 1, 3}), krtest::contents(c));
    EXPECT_KR_OK(c.addElem(8));
    EXPECT_EQ(8u, c[3]);
}

TYPED_TEST(Container, LockDetectsReentry) {
    const std::string ilock = krtest::statusReport("krcore/include/kr_iterator_impl",
                                                   "An iterator was accessed recursively");
    TypeParam c = this->make({1, 2, 3});
    krtest::ReportCapture capture;
    EXPECT_KR_OK(c.lock());
    EXPECT_KR_STATUS(KR_RET_ERR_ILOCK, c.lock());
    EXPECT_EQ(ilock, capture.located());
    // A search started under a held lock reports, still walks, and releases the lock.
    capture.clear();
    EXPECT_KR_OK(c.setCur(3));
    EXPECT_EQ(ilock, capture.located());
    EXPECT_FALSE(c.isLocked());
    unsigned int index = 0;
    c.getCurIndex(index);
    EXPECT_EQ(2u, index);
    EXPECT_KR_STATUS(KR_RET_FALSE, c.unlock());
    EXPECT_KR_STATUS(KR_RET_FALSE, c.setCur(9));
    EXPECT_TRUE(c.curIsNull());
}

}  // namespace
