// test_container.cpp — every sequence beside its model under seeded random operations, and the
// shared default bodies and the iterator lock.
#include <string.h>

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

// The random driver covers delElem and the cursor moves; insertElemAtCur and addElem it does not.
TYPED_TEST(Container, InsertAtANullCursorAndAdd) {
    TypeParam c = this->make({1, 2, 3});
    c.setCurIndex(3);
    // A null cursor inserts at index 0.
    EXPECT_KR_OK(c.insertElemAtCur(KR_INS_BEFORE, 7));
    EXPECT_KR_OK(c.addElem(8));
    EXPECT_EQ((std::vector<unsigned int>{7, 1, 2, 3, 8}), krtest::contents(c));
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

// A string whose text comes from the C library rather than through the library's allocation
// functions, so that building an argument is not one of the allocations a walk fails.
KR_String outside(const char* text) {
    KR_String s;
    s.assignPtr(strdup(text));
    return s;
}

template <class C>
std::unique_ptr<C> texts(std::unique_ptr<C> c, std::initializer_list<const char*> values) {
    for (const char* v : values)
        c->appendElem(outside(v));
    return c;
}

// Every copying path of every sequence of strings, with the n-th allocation failing: an element
// copy that does not arrive is a memory failure of the container operation, which leaves the
// container holding exactly its old texts. The counts prove that the walks reach the element
// copies (the text copies allocate too); moves of the container's own elements allocate nothing.
TEST(ElementCopy, FailedCopiesLeaveTheOldTexts) {
    KR_REQUIRE_FAULT_INJECTION();
    using Array = KR_Array<KR_String>;
    using List = KR_LList<KR_String>;
    using VC = KR_VCArray<KR_String>;
    auto other = texts(std::make_unique<Array>(0, 0), {"x", "y", "z"});
    auto sameLength = texts(std::make_unique<Array>(), {"a", "b", "c", "d"});
    auto otherList = texts(std::make_unique<List>(), {"x", "y"});
    auto otherVC = texts(std::make_unique<VC>(0, 2, 0), {"x", "y", "z", "w", "v"});
    auto assigned = [](auto& target, const auto& source) {
        target = source;
        return KR_getStatusCode();
    };
    // A copy is complete or, after its report, empty.
    auto copied = [](const auto& source) {
        std::remove_const_t<std::remove_reference_t<decltype(source)>> copy(source);
        bool whole = copy.numElems() == source.numElems();
        return copy.numElems() != 0 && !whole ? KR_RET_ERR_GEN : KR_getStatusCode();
    };
    const std::string arrayMem =
                              krtest::statusReport("krcore/include/kr_array_impl", "Memory error"),
                      strMem = krtest::statusReport("src/kr_str", "Memory error"),
                      containerMem =
                              krtest::statusReport("krcore/include/kr_container", "Memory error");
    krtest::expectFailuresKeepContainer<Array>(
            [] {
                auto a = texts(std::make_unique<Array>(0, 1), {"one", "two", "three", "four"});
                a->setCurIndex(2);
                return a;
            },
            {{"insElems", 1, [](Array& a) { return a.insElems(KR_INS_AFTER, 1, 2); }},
             {"delElems", 1, [](Array& a) { return a.delElems(1, 2); }},
             {"reallocate", 1, [](Array& a) { return a.reallocate(6); }},
             {"appendElem", 1, [](Array& a) { return a.appendElem(outside("new")); }},
             {"insElem", 1, [](Array& a) { return a.insElem(KR_INS_BEFORE, 1, outside("new")); }},
             {"addElems", 12, [&](Array& a) { return a.addElems(*other, 0); }},
             {"subCopy", 3, [&](Array& a) { return a.subCopy(*other, 0, 1, 2); }},
             {"memMove keeping the source", 3, [](Array& a) { return a.memMove(0, 2, 2, 0); }},
             {"memMove clearing part of the source", 3,
              [](Array& a) { return a.memMove(0, 2, 3, 1); }},
             {"assign a shorter one", 4, [&](Array& a) { return assigned(a, *other); }},
             {"assign one as long", 5, [&](Array& a) { return assigned(a, *sameLength); }},
             {"copy construction", 4, [&](Array&) { return copied(*other); }}},
            {arrayMem, strMem + arrayMem, containerMem, strMem + containerMem});
    krtest::expectFailuresKeepContainer<List>(
            [] {
                auto l = texts(std::make_unique<List>(), {"one", "two", "three"});
                l->setCurIndex(1);
                return l;
            },
            {{"appendElem", 1, [](List& l) { return l.appendElem(outside("new")); }},
             {"insElemAtCur", 2,
              [&](List& l) { return l.insElemAtCur(KR_INS_AFTER, (*otherList)[0]); }},

             {"addElems", 5, [&](List& l) { return l.addElems(*otherList, 1); }},
             {"assign", 4, [&](List& l) { return assigned(l, *otherList); }},
             {"copy construction", 4, [&](List&) { return copied(*otherList); }}},
            {krtest::statusReport("krcore/include/kr_list_impl", "Memory error"),
             strMem + krtest::statusReport("krcore/include/kr_list_impl", "Memory error"),
             containerMem, strMem + containerMem});
    // An empty list appends a copy of the element instead: a lost copy adds nothing.
    krtest::ReportCapture capture;
    krtest::forEachAllocationFailure([] { return std::make_unique<List>(); },
                                     [&](std::unique_ptr<List>& l) {
                                         return l->insElemAtCur(KR_INS_AFTER, (*otherList)[0]);
                                     },
                                     [](std::unique_ptr<List>& l, KR_RET_STATUS st, unsigned long) {
                                         EXPECT_KR_STATUS(KR_RET_ERR_MEM, st);
                                         EXPECT_EQ(0u, l->numElems());
                                     });
    krtest::expectFailuresKeepContainer<VC>(
            [] {
                auto v = texts(std::make_unique<VC>(0, 2, 0), {"one", "two", "three"});
                v->setCurIndex(1);
                return v;
            },
            {{"insert in the middle", 2, [](VC& v) { return v.insElems(KR_INS_BEFORE, 1, 2); }},
             {"delElems", 0, [](VC& v) { return v.delElems(0, 2); }},
             {"assign a longer one", 8, [&](VC& v) { return assigned(v, *otherVC); }},
             {"copy construction", 13, [&](VC&) { return copied(*otherVC); }}},
            {krtest::statusReport("krcore/include/kr_vcarray_impl", "Memory error"),
             krtest::statusReport("krcore/include/kr_list_impl", "Memory error"),
             strMem + krtest::statusReport("krcore/include/kr_vcarray_impl", "Memory error")});
}

// The adapters: how an element goes in, and the texts held, oldest first.
struct StackOfTexts {
    using Type = KR_Stack<KR_String>;

    static KR_RET_STATUS add(Type& s, const char* text) { return s.push(outside(text)); }

    static std::string texts(Type& s) {
        std::string all;
        for (unsigned int i = 0; i < s.getNum(); ++i)
            all += krtest::valueOf(s.peek(i)) + ",";
        return all;
    }
};

struct QueueOfTexts {
    using Type = KR_Queue<KR_String>;

    static KR_RET_STATUS add(Type& q, const char* text) { return q.put(outside(text)); }

    static std::string texts(Type q) {
        std::string all;
        while (!q.isEmpty())
            all += krtest::valueOf(q.get()) + ",";
        return all;
    }
};

template <class K>
class AdapterCopy : public ::testing::Test {};

using Adapters = ::testing::Types<StackOfTexts, QueueOfTexts>;
TYPED_TEST_SUITE(AdapterCopy, Adapters);

// A failed copy leaves the target with its old texts; a push or put hands its argument over
// without copying it, so only a growth can fail there.
TYPED_TEST(AdapterCopy, FailedCopiesLeaveTheOldTexts) {
    KR_REQUIRE_FAULT_INJECTION();
    using A = typename TypeParam::Type;
    krtest::ReportCapture capture;
    A source(0, 2, 2, 0);
    for (const char* text : {"a", "b", "c"})
        TypeParam::add(source, text);
    unsigned long failures = 0;
    krtest::forEachAllocationFailure(
            [] {
                auto a = std::make_unique<A>(2, 0);
                TypeParam::add(*a, "old");
                return a;
            },
            [&](std::unique_ptr<A>& a) {
                *a = source;
                return KR_getStatusCode();
            },
            [&](std::unique_ptr<A>& a, KR_RET_STATUS st, unsigned long) {
                ++failures;
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, st);
                EXPECT_EQ("old,", TypeParam::texts(*a));
            });
    // The storage object, a side block for the copies, three texts, the directory, two blocks
    // and their list nodes.
    EXPECT_EQ(10u, failures);
    A grown(1, 1, 1, 0);
    EXPECT_KR_OK(TypeParam::add(grown, "p"));
    krTesting::failAllocation(1);
    EXPECT_KR_STATUS(KR_RET_ERR_MEM, TypeParam::add(grown, "q"));
    krTesting::failAllocation(0);
    EXPECT_EQ("p,", TypeParam::texts(grown));
    EXPECT_EQ("a,b,c,", TypeParam::texts(source));
}

}  // namespace
