// test_mem.cpp — KR_Memory: block ownership, the flag rules and every allocation failure.
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>

#include "test_support.h"

namespace {

const char kAllocationReport[] =
        "ERROR: src/kr_mem: line N: KR_Memory allocation\nMemory error"
        "src/kr_mem: line N: \nMemory error\n\n";
const char kNotInitialised[] = "src/kr_mem: line N: \nKorvane object not initialized\n\n";

void fill(KR_Memory& block, unsigned char first) {
    unsigned char* bytes = static_cast<unsigned char*>(block.memPtr());
    for (unsigned int i = 0; i < block.memSize(); ++i)
        bytes[i] = static_cast<unsigned char>(first + i);
}

// A block whose construction failed, made under the fault-injection countdown.
std::unique_ptr<KR_Memory> failedBlock() {
    krTesting::failAllocation(1);
    std::unique_ptr<KR_Memory> block(new KR_Memory(32));
    krTesting::failAllocation(0);
    return block;
}

}  // namespace

TEST(Memory, ConstructionAndEmptyBlocks) {
    KR_Memory empty;
    EXPECT_TRUE(empty.objIsEnabled());
    EXPECT_EQ(0u, empty.memSize());
    EXPECT_EQ(nullptr, empty.memPtr());
    EXPECT_FALSE(empty.memErr());

    KR_Memory block(64);
    ASSERT_EQ(64u, block.memSize());
    const unsigned char* bytes = static_cast<unsigned char*>(block.memPtr());
    for (int i = 0; i < 64; ++i)
        ASSERT_EQ(0, bytes[i]) << i;

    EXPECT_KR_STATUS(KR_RET_TRUE, block.memGet(0));
    EXPECT_EQ(nullptr, block.memPtr());
    EXPECT_EQ(0u, block.memSize());
}

TEST(Memory, ExpandNeverShrinksAndKeepsContents) {
    KR_Memory block(8);
    fill(block, 10);
    EXPECT_KR_STATUS(KR_RET_TRUE, block.memExpand(4));
    EXPECT_EQ(8u, block.memSize());
    EXPECT_KR_STATUS(KR_RET_TRUE, block.memExpand(8));
    EXPECT_KR_STATUS(KR_RET_TRUE, block.memExpand(4096));
    ASSERT_EQ(4096u, block.memSize());
    const unsigned char* bytes = static_cast<unsigned char*>(block.memPtr());
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(10 + i, bytes[i]);
    KR_Memory empty;
    EXPECT_KR_STATUS(KR_RET_TRUE, empty.memExpand(0));
    EXPECT_KR_STATUS(KR_RET_TRUE, empty.memExpand(3));
    EXPECT_EQ(3u, empty.memSize());
}

TEST(Memory, CopyReusesBlockOfSameSize) {
    unsigned char source[16];
    for (int i = 0; i < 16; ++i)
        source[i] = static_cast<unsigned char>(100 + i);
    KR_Memory block(16);
    void* before = block.memPtr();
    EXPECT_KR_STATUS(KR_RET_TRUE, block.memCopy(source, 16));
    EXPECT_EQ(before, block.memPtr());
    EXPECT_EQ(0, memcmp(source, block.memPtr(), 16));
    // A copy of 7 bytes (an odd tail) into a fresh block.
    EXPECT_KR_STATUS(KR_RET_TRUE, block.memCopy(source + 3, 7));
    EXPECT_EQ(7u, block.memSize());
    EXPECT_EQ(0, memcmp(source + 3, block.memPtr(), 7));
    // A null source empties the block whatever the size says.
    EXPECT_KR_STATUS(KR_RET_TRUE, block.memCopy(nullptr, 7));
    EXPECT_EQ(0u, block.memSize());
    EXPECT_EQ(nullptr, block.memPtr());
}

TEST(Memory, SetAdoptsAndFreeReleases) {
    KR_Memory block;
    void* adopted = malloc(5);
    memcpy(adopted, "abcd", 5);
    EXPECT_KR_STATUS(KR_RET_TRUE, block.memSet(adopted, 5));
    EXPECT_EQ(adopted, block.memPtr());
    EXPECT_STREQ("abcd", static_cast<char*>(block.memPtr()));
    EXPECT_KR_STATUS(KR_RET_TRUE, block.memFree());
    EXPECT_EQ(nullptr, block.memPtr());
    EXPECT_EQ(0u, block.memSize());
    EXPECT_KR_STATUS(KR_RET_TRUE, block.memFree());
}

TEST(Memory, EqualityAndCopies) {
    KR_Memory a(4), b(4), empty1, empty2;
    EXPECT_TRUE(empty1 == empty2);
    EXPECT_TRUE(a == a);
    EXPECT_TRUE(a == b);
    static_cast<unsigned char*>(b.memPtr())[3] = 1;
    EXPECT_FALSE(a == b);
    EXPECT_FALSE(a == empty1);

    KR_Memory copy(b);
    EXPECT_TRUE(copy == b);
    EXPECT_NE(copy.memPtr(), b.memPtr());
    KR_Memory result = a = b;
    EXPECT_TRUE(a == b);
    EXPECT_TRUE(result == a);
    EXPECT_NE(result.memPtr(), a.memPtr());
    KR_Memory& self = a;
    a = self;
    EXPECT_TRUE(a == b);
}

TEST(Memory, AllocationFailuresAreReportedAndLeaveStateDefined) {
    KR_REQUIRE_FAULT_INJECTION();
    krtest::ReportCapture capture;

    {  // construction
        std::unique_ptr<KR_Memory> block = failedBlock();
        EXPECT_FALSE(block->objIsEnabled());
        EXPECT_TRUE(block->memErr());
        EXPECT_EQ(kAllocationReport, capture.located());
        capture.clear();
        EXPECT_EQ(nullptr, block->memPtr());
        EXPECT_EQ(0u, block->memSize());
        EXPECT_EQ("", capture.text());  // the accessors answer without a report
    }
    EXPECT_EQ(kNotInitialised, capture.located());  // and destroying it reports
    capture.clear();

    // memGet empties the object; memExpand keeps the old block; memCopy of a new size empties.
    krtest::forEachAllocationFailure(
            [] { return std::make_unique<KR_Memory>(8); },
            [](std::unique_ptr<KR_Memory>& block) { return block->memGet(16); },
            [&](std::unique_ptr<KR_Memory>& block, KR_RET_STATUS status, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                EXPECT_EQ(0u, block->memSize());
                EXPECT_EQ(nullptr, block->memPtr());
                EXPECT_TRUE(block->memErr());
                EXPECT_TRUE(block->objIsEnabled());
                EXPECT_EQ(kAllocationReport, capture.located());
                EXPECT_EQ(KR_RET_ERR_MEM, KR_getStatusCode());
                capture.clear();
            });
    krtest::forEachAllocationFailure(
            [] {
                auto block = std::make_unique<KR_Memory>(8);
                fill(*block, 1);
                return block;
            },
            [](std::unique_ptr<KR_Memory>& block) { return block->memExpand(1 << 20); },
            [&](std::unique_ptr<KR_Memory>& block, KR_RET_STATUS status, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                ASSERT_EQ(8u, block->memSize());
                EXPECT_EQ(8, static_cast<unsigned char*>(block->memPtr())[7]);
                EXPECT_TRUE(block->memErr());
                EXPECT_EQ(
                        "ERROR: src/kr_mem: line N: KR_Memory reallocation\nMemory error"
                        "src/kr_mem: line N: \nMemory error\n\n",
                        capture.located());
                capture.clear();
                // A later success clears the flag.
                EXPECT_KR_STATUS(KR_RET_TRUE, block->memExpand(9));
                EXPECT_FALSE(block->memErr());
            });
    const char source[3] = {1, 2, 3};
    krtest::forEachAllocationFailure(
            [] { return std::make_unique<KR_Memory>(8); },
            [&](std::unique_ptr<KR_Memory>& block) { return block->memCopy(source, 3); },
            [&](std::unique_ptr<KR_Memory>& block, KR_RET_STATUS status, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                EXPECT_EQ(0u, block->memSize());
                EXPECT_EQ(kAllocationReport, capture.located());
                capture.clear();
            });
    // The copy constructor of a 4-byte block fails into a not initialised object.
    krtest::forEachAllocationFailure(
            [] { return std::make_unique<KR_Memory>(4); },
            [](std::unique_ptr<KR_Memory>& block) {
                KR_Memory copy(*block);
                return copy.objIsEnabled() ? KR_RET_TRUE : KR_RET_ERR_MEM;
            },
            [&](std::unique_ptr<KR_Memory>&, KR_RET_STATUS status, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                // The allocation report, then the destructor's report of the failed copy.
                EXPECT_EQ(std::string(kAllocationReport) + kNotInitialised, capture.located());
                capture.clear();
            });
}

TEST(Memory, FailedObjectRefusesEveryOperation) {
    KR_REQUIRE_FAULT_INJECTION();
    krtest::ReportCapture capture;
    std::unique_ptr<KR_Memory> failed = failedBlock();
    capture.clear();
    KR_Memory good(2);
    char byte = 0;
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, failed->memGet(4));
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, failed->memExpand(4));
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, failed->memCopy(&byte, 1));
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, failed->memSet(nullptr, 0));
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, failed->memFree());
    EXPECT_FALSE(*failed == good);
    EXPECT_FALSE(good == *failed);
    good = *failed;  // reported, nothing changes; the returned copy of good is fine
    EXPECT_EQ(2u, good.memSize());
    KR_Memory copyOfFailed(*failed);
    EXPECT_FALSE(copyOfFailed.objIsEnabled());
    std::string expected;
    for (int i = 0; i < 9; ++i)
        expected += kNotInitialised;
    EXPECT_EQ(expected, capture.located());
    capture.clear();
    failed.reset();  // destroying it reports once more
    EXPECT_EQ(kNotInitialised, capture.located());
}
