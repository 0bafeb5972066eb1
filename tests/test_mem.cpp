// test_mem.cpp — KR_Memory: block ownership, the flag rules and every allocation failure.
#include <stdlib.h>
#include <string.h>

#include <functional>
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

// The block's bytes; "" for an empty block, whose pointer must then be null.
std::string bytesOf(KR_Memory& block) {
    const char* bytes = static_cast<const char*>(block.memPtr());
    EXPECT_EQ(block.memSize() == 0, bytes == nullptr);
    return bytes ? std::string(bytes, block.memSize()) : "";
}

// A block whose construction failed, made under the fault-injection countdown.
std::unique_ptr<KR_Memory> failedBlock() {
    krTesting::failAllocation(1);
    std::unique_ptr<KR_Memory> block(new KR_Memory(32));
    krTesting::failAllocation(0);
    return block;
}

}  // namespace

TEST(Memory, GetExpandCopySetAndFree) {
    KR_Memory empty, block(64);
    EXPECT_TRUE(empty.objIsEnabled() && !empty.memErr());
    EXPECT_EQ("", bytesOf(empty));
    EXPECT_EQ(std::string(64, '\0'), bytesOf(block));
    EXPECT_KR_STATUS(KR_RET_TRUE, block.memGet(0));
    EXPECT_EQ("", bytesOf(block));

    // memExpand never shrinks and keeps the contents.
    EXPECT_KR_STATUS(KR_RET_TRUE, block.memGet(8));
    fill(block, 'a');
    EXPECT_KR_STATUS(KR_RET_TRUE, block.memExpand(4));
    EXPECT_EQ("abcdefgh", bytesOf(block));
    EXPECT_KR_STATUS(KR_RET_TRUE, block.memExpand(8));
    EXPECT_KR_STATUS(KR_RET_TRUE, block.memExpand(4096));
    EXPECT_EQ(4096u, block.memSize());
    EXPECT_EQ("abcdefgh", bytesOf(block).substr(0, 8));
    EXPECT_KR_STATUS(KR_RET_TRUE, empty.memExpand(0));
    EXPECT_KR_STATUS(KR_RET_TRUE, empty.memExpand(3));
    EXPECT_EQ(3u, empty.memSize());

    // memCopy reuses a block of the same size; a null source empties the block whatever the size.
    const char source[] = "0123456789abcdef";
    EXPECT_KR_STATUS(KR_RET_TRUE, block.memCopy(source, 16));
    void* before = block.memPtr();
    EXPECT_KR_STATUS(KR_RET_TRUE, block.memCopy(source, 16));
    EXPECT_EQ(before, block.memPtr());
    EXPECT_EQ("0123456789abcdef", bytesOf(block));
    EXPECT_KR_STATUS(KR_RET_TRUE, block.memCopy(source + 3, 7));  // an odd tail
    EXPECT_EQ("3456789", bytesOf(block));
    EXPECT_KR_STATUS(KR_RET_TRUE, block.memCopy(nullptr, 7));
    EXPECT_EQ("", bytesOf(block));

    // memSet adopts the caller's block; memFree releases it, twice without harm.
    void* adopted = malloc(5);
    memcpy(adopted, "abcd", 5);
    EXPECT_KR_STATUS(KR_RET_TRUE, block.memSet(adopted, 5));
    EXPECT_EQ(adopted, block.memPtr());
    EXPECT_EQ(std::string("abcd", 5), bytesOf(block));
    EXPECT_KR_STATUS(KR_RET_TRUE, block.memFree());
    EXPECT_EQ("", bytesOf(block));
    EXPECT_KR_STATUS(KR_RET_TRUE, block.memFree());
}

TEST(Memory, EqualityAndCopies) {
    KR_Memory a(4), b(4), empty1, empty2;
    EXPECT_TRUE(empty1 == empty2 && a == a && a == b);
    static_cast<unsigned char*>(b.memPtr())[3] = 1;
    EXPECT_FALSE(a == b || a == empty1);
    KR_Memory copy(b);
    EXPECT_TRUE(copy == b);
    EXPECT_NE(copy.memPtr(), b.memPtr());
    KR_Memory result = a = b;
    EXPECT_TRUE(a == b && result == a);
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

    // On a block of bytes 1..8: memGet empties it, memExpand keeps the old block, memCopy of a
    // new size empties it, a failed copy is not initialised, and an assignment whose copy failed
    // leaves the target empty (its result, a copy of the target, may fail on its own after).
    const char source[3] = {1, 2, 3};
    KR_Memory three(3);
    memcpy(three.memPtr(), source, 3);
    const std::string kReallocReport =
            "ERROR: src/kr_mem: line N: KR_Memory reallocation\nMemory error"
            "src/kr_mem: line N: \nMemory error\n\n";

    const struct {
        const char* name;
        std::function<KR_RET_STATUS(KR_Memory&)> op;
        std::string report;
        std::string bytes, otherBytes;  // the block afterwards: one of the two
    } rows[] = {
            {"memGet", [](KR_Memory& m) { return m.memGet(16); }, kAllocationReport, "", ""},
            {"memExpand", [](KR_Memory& m) { return m.memExpand(1 << 20); }, kReallocReport,
             "\1\2\3\4\5\6\7\10", "\1\2\3\4\5\6\7\10"},
            {"memCopy", [&](KR_Memory& m) { return m.memCopy(source, 3); }, kAllocationReport, "",
             ""},
            {"copy constructor",
             [](KR_Memory& m) {
                 KR_Memory copy(m);
                 return copy.objIsEnabled() ? KR_RET_TRUE : KR_RET_ERR_MEM;
             },
             std::string(kAllocationReport) + kNotInitialised, "\1\2\3\4\5\6\7\10",
             "\1\2\3\4\5\6\7\10"},
            {"operator=",
             [&](KR_Memory& m) {
                 KR_clearStatusCode();
                 KR_Memory result = (m = three);
                 if (!result.objIsEnabled()) return m == three ? KR_RET_ERR_MEM : KR_RET_ERR_GEN;
                 return KR_getStatusCode() == KR_RET_ERR_MEM && m.memErr() ? KR_RET_ERR_MEM
                                                                           : KR_RET_TRUE;
             },
             "*", "", "\1\2\3"},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        int failures = 0;
        krtest::forEachAllocationFailure(
                [] {
                    auto block = std::make_unique<KR_Memory>(8);
                    fill(*block, 1);
                    return block;
                },
                [&](std::unique_ptr<KR_Memory>& block) {
                    capture.clear();
                    return row.op(*block);
                },
                [&](std::unique_ptr<KR_Memory>& block, KR_RET_STATUS status, unsigned long) {
                    ++failures;
                    EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                    EXPECT_TRUE(block->objIsEnabled());
                    std::string located = capture.located();
                    EXPECT_TRUE(row.report == "*" ? located.find(kAllocationReport) == 0
                                                  : located == row.report)
                            << located;
                    std::string bytes = bytesOf(*block);
                    EXPECT_TRUE(bytes == row.bytes || bytes == row.otherBytes) << bytes.size();
                    EXPECT_TRUE(!bytes.empty() || block->memErr());
                });
        EXPECT_LT(0, failures);
    }
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
