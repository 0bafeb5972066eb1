// test_stack.cpp — KR_Stack and KR_Queue in fixed and growable mode, beside std::deque.
#include <stdint.h>

#include <deque>
#include <random>
#include <type_traits>
#include <vector>

#include "container_model.h"
#include "test_support.h"

namespace {

KR_Command* command(uintptr_t n) {
    return reinterpret_cast<KR_Command*>(n * 16);
}

bool isNull(const void* p) {
    return p == static_cast<const void*>(&KR_NULL_PTR);
}

TEST(Stack, FixedStackRefusesWhenFull) {
    KR_Stack<unsigned int> s(2, 1);
    EXPECT_TRUE(s.isEmpty());
    EXPECT_KR_OK(s.push(10));
    EXPECT_KR_OK(s.push(20));
    EXPECT_KR_STATUS(KR_RET_FALSE, s.push(30));
    EXPECT_EQ(2u, s.getNum());
    EXPECT_TRUE(s.isFull());
    // peek counts from the bottom, pop takes the top.
    EXPECT_EQ(10u, s.peek(0));
    EXPECT_TRUE(isNull(&s.peek(2)));
    EXPECT_EQ(20u, s.pop());
    EXPECT_EQ(10u, s.pop());
    krtest::ReportCapture capture;
    EXPECT_TRUE(isNull(&s.pop()));
    EXPECT_TRUE(isNull(&s.peek(0)));
    EXPECT_EQ("", capture.text());
    EXPECT_EQ(2u, s.getSize());
}

// A stack beside a vector and its expected capacity, driven in runs of pushes and pops long
// enough to cross the storage blocks, so that every move of the stack's cached top block is
// checked against the model.
template <class T>
struct StackRun {
    KR_Stack<T> stack;
    std::vector<unsigned int> model;
    unsigned int capacity, growBy;

    StackRun(unsigned int initial, unsigned int step)
        : stack(initial, 4, step, std::is_same<T, unsigned int>::value),
          capacity(initial),
          growBy(step) {}

    void push(unsigned int v) {
        if (model.size() == capacity) capacity += growBy;
        ASSERT_KR_OK(stack.push(T(v)));
        model.push_back(v);
    }

    void pop() {
        if (model.empty()) {
            ASSERT_TRUE(isNull(&stack.pop()));
            return;
        }
        ASSERT_EQ(model.back(), krtest::valueOf(stack.pop()));
        model.pop_back();
    }

    void run(std::mt19937& rng, int runs) {
        for (int r = 0; r < runs; ++r) {
            bool pushing = rng() % 5 < 3;
            for (unsigned int k = rng() % 9; k > 0; --k) {
                pushing ? push(rng() % 1000) : pop();
                ASSERT_EQ(model.size(), stack.getNum());
                ASSERT_EQ(capacity, stack.getSize());
            }
            for (unsigned int i = 0; i < model.size(); ++i)
                ASSERT_EQ(model[i], krtest::valueOf(stack.peek(i))) << "peek " << i;
        }
    }
};

template <class T>
void runStacksAcrossBlocks() {
    for (unsigned int growBy : {1u, 3u, 4u, 6u}) {
        SCOPED_TRACE("growBy " + std::to_string(growBy));
        std::mt19937 rng(growBy);
        StackRun<T> a(2, growBy), b(5, 1), c(0, 1);
        a.run(rng, 40);
        // b's cached block covers a's top slots when a's copy replaces b's storage; the copy
        // must drop it, and a keeps its own.
        while (b.model.size() <= a.model.size())
            b.push(rng() % 1000 + 1000);
        b.pop();
        b = a;
        b.pop();
        b.push(rng() % 1000);
        for (int round = 0; round < 4; ++round) {
            a.run(rng, 10);
            b.run(rng, 10);
        }
        c = b;
        while (!b.model.empty())
            b.pop();
        c.run(rng, 20);
    }
}

TEST(Stack, GrowableStackMatchesVectorAcrossBlocks) {
    long before = krtest::Tracked::live;
    runStacksAcrossBlocks<unsigned int>();
    runStacksAcrossBlocks<krtest::Tracked>();
    EXPECT_EQ(before, krtest::Tracked::live);
}

TEST(Stack, FailuresLeaveTheStackAsItWas) {
    KR_REQUIRE_FAULT_INJECTION();
    const char* unit = "krcore/include/kr_stack_impl";
    const std::string pobj = "Korvane object not initialized";
    krtest::ReportCapture capture;
    // The storage object itself, then the array's block.
    krTesting::failAllocation(1);
    KR_Stack<unsigned int> noStorage(4, 1);
    krTesting::failAllocation(2);
    KR_Stack<unsigned int> noBlock(4, 1);
    krTesting::failAllocation(0);
    EXPECT_EQ(krtest::statusReport(unit, "Memory error") +
                      krtest::statusReport("krcore/include/kr_array_impl", "Memory error") +
                      krtest::statusReport("krcore/include/kr_array_impl", pobj.c_str()),
              capture.located());
    for (KR_Stack<unsigned int>* s : {&noStorage, &noBlock}) {
        capture.clear();
        EXPECT_FALSE(s->objIsEnabled());
        EXPECT_KR_STATUS(KR_RET_ERR_POBJ, s->push(1));
        EXPECT_TRUE(isNull(&s->pop()));
        EXPECT_TRUE(s->isEmpty());
        EXPECT_FALSE(s->isFull());
        EXPECT_EQ(0u, s->getNum() + s->getSize());
        std::string once = krtest::statusReport(unit, pobj.c_str());
        EXPECT_EQ(once + once + once + once + once + once, capture.located());
    }
    // A growth that fails stores nothing.
    krtest::forEachAllocationFailure(
            [] {
                auto s = std::make_unique<KR_Stack<KR_Command*>>(2, 2, 3, 0);
                s->push(command(1));
                s->push(command(2));
                return s;
            },
            [](std::unique_ptr<KR_Stack<KR_Command*>>& s) { return s->push(command(3)); },
            [](std::unique_ptr<KR_Stack<KR_Command*>>& s, KR_RET_STATUS st, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, st);
                EXPECT_EQ(2u, s->getNum());
                EXPECT_EQ(2u, s->getSize());
                EXPECT_EQ(command(2), s->peek(1));
            });
    // Copies that fail are walked for both adapters by AdapterCopy in test_container.cpp.
}

TEST(Queue, FixedQueueWrapsAround) {
    KR_Queue<unsigned int> q(3, 1);
    EXPECT_KR_OK(q.put(1));
    EXPECT_KR_OK(q.put(2));
    EXPECT_KR_OK(q.put(3));
    EXPECT_KR_STATUS(KR_RET_FALSE, q.put(9));
    unsigned int& first = q.get();
    EXPECT_EQ(1u, first);
    EXPECT_KR_OK(q.put(4));
    EXPECT_EQ(4u, first);  // slot 0 took the fourth element
    EXPECT_EQ(2u, q.get());
    EXPECT_EQ(3u, q.get());
    EXPECT_EQ(4u, q.get());
    EXPECT_TRUE(q.isEmpty());
    EXPECT_TRUE(isNull(&q.get()));
    EXPECT_EQ(0u, q.getNum());
    // An emptied queue restarts at slot 0.
    EXPECT_KR_OK(q.put(5));
    EXPECT_EQ(&first, &q.get());
}

// Growth happens at the ring position after the newest element, wherever the oldest one is.
TEST(Queue, GrowableQueueKeepsOrderLikeDeque) {
    for (unsigned int growBy : {1u, 2u, 5u}) {
        for (unsigned int seed = 1; seed <= 3; ++seed) {
            SCOPED_TRACE("growBy " + std::to_string(growBy) + ", seed " + std::to_string(seed));
            KR_Queue<unsigned int> q(seed - 1, 3, growBy, 1);
            std::deque<unsigned int> model;
            std::mt19937 rng(seed);
            unsigned int size = seed - 1;
            for (unsigned int step = 0; step < 600; ++step) {
                if (rng() % 5 < 3) {
                    if (model.size() == size) size += growBy;
                    model.push_back(step);
                    ASSERT_KR_OK(q.put(step));
                } else if (!model.empty()) {
                    ASSERT_EQ(model.front(), q.get()) << "step " << step;
                    model.pop_front();
                }
                ASSERT_EQ(size, q.getSize());
                ASSERT_EQ(model.size(), q.getNum());
            }
            EXPECT_TRUE(q.hasGrown());
            KR_Queue<unsigned int> copy(q);
            while (!model.empty()) {
                ASSERT_EQ(model.front(), q.get());
                ASSERT_EQ(model.front(), copy.get());
                model.pop_front();
            }
            EXPECT_TRUE(q.isEmpty() && copy.isEmpty());
        }
    }
}

TEST(Queue, FailedGrowthKeepsTheQueue) {
    KR_REQUIRE_FAULT_INJECTION();
    krtest::ReportCapture capture;
    krtest::forEachAllocationFailure(
            [] {
                // Full, with the oldest element in the middle of the storage.
                auto q = std::make_unique<KR_Queue<unsigned int>>(4, 2, 3, 1);
                for (unsigned int v = 1; v <= 4; ++v)
                    q->put(v);
                q->get();
                q->get();
                q->put(5);
                q->put(6);
                return q;
            },
            [](std::unique_ptr<KR_Queue<unsigned int>>& q) { return q->put(7); },
            [](std::unique_ptr<KR_Queue<unsigned int>>& q, KR_RET_STATUS st, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, st);
                EXPECT_TRUE(q->isFull());
                for (unsigned int v = 3; v <= 6; ++v)
                    EXPECT_EQ(v, q->get());
            });
    krTesting::failAllocation(1);
    KR_Queue<unsigned int> broken(3, 1);
    krTesting::failAllocation(0);
    capture.clear();
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, broken.put(1));
    EXPECT_TRUE(broken.isEmpty());
    EXPECT_FALSE(broken.isFull());
    EXPECT_EQ(0u, broken.getSize());
    EXPECT_EQ(
            krtest::statusReport("krcore/include/kr_queue_impl", "Korvane object not initialized"),
            capture.located());
}

}  // namespace
