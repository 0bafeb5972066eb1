// test_stack.cpp — KR_Stack and KR_Queue in fixed and growable mode, beside std::deque.
#include <stdint.h>

#include <deque>
#include <memory>
#include <random>

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

TEST(Stack, GrowableCommandStackGrowsByItsStep) {
    for (unsigned int initial : {0u, 128u}) {
        SCOPED_TRACE("initial " + std::to_string(initial));
        KR_Stack<KR_Command*> s(initial, 128, 128, 0);
        EXPECT_EQ(initial, s.getSize());
        for (uintptr_t i = 1; i <= 1000; ++i)
            ASSERT_KR_OK(s.push(command(i)));
        EXPECT_EQ(1024u, s.getSize());
        EXPECT_EQ(command(1), s.peek(0));
        KR_Stack<KR_Command*> copy(s);
        for (uintptr_t i = 1000; i >= 1; --i)
            ASSERT_EQ(command(i), s.pop());
        EXPECT_TRUE(s.isEmpty());
        EXPECT_EQ(1000u, copy.getNum());
        EXPECT_EQ(command(1000), copy.pop());
    }
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
