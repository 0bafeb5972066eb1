// test_support.h — what every suite shares: status assertions, report capture, output capture
// and the fault-injection walk. The library is started once per test program (KR_init) and
// closed at its end.
#ifndef KRCORE_TEST_SUPPORT_H
#define KRCORE_TEST_SUPPORT_H

#include <locale.h>
#include <stdio.h>

#include <string>

#include "gtest/gtest.h"

#include "kr_testing.h"
#include "krcore.h"

namespace krtest {

// A failure status: 0..2 are the answers of a success.
inline bool failed(KR_RET_STATUS status) {
    return status > 2;
}

// "KR_RET_ERR_MEM" and so on; "Undefined(n)" for other values.
std::string statusName(KR_RET_STATUS status);

::testing::AssertionResult statusIs(const char* expectedExpr,
                                    const char* actualExpr,
                                    KR_RET_STATUS expected,
                                    KR_RET_STATUS actual);
::testing::AssertionResult statusOk(const char* expr, KR_RET_STATUS actual);

// Registers a KR_Reporter that writes to a temporary file for its lifetime, and restores the
// previously registered reporter afterwards.
class ReportCapture {
public:
    ReportCapture();
    ~ReportCapture();
    ReportCapture(const ReportCapture&) = delete;
    ReportCapture& operator=(const ReportCapture&) = delete;

    // Everything reported so far.
    std::string text();
    // As text(), with every ": line <digits>: " turned into ": line N: ", so that expectations
    // do not depend on source lines. Fails the test if a line number is not positive.
    std::string located();
    // Forgets what was reported so far.
    void clear();

    KR_Reporter& reporter();

private:
    struct Impl;
    Impl* impl_;
};

// Redirects a standard descriptor (1 or 2) into a temporary file for its lifetime.
class DescriptorCapture {
public:
    explicit DescriptorCapture(int descriptor);
    ~DescriptorCapture();
    DescriptorCapture(const DescriptorCapture&) = delete;
    DescriptorCapture& operator=(const DescriptorCapture&) = delete;

    // Flushes the C and C++ standard streams and returns what reached the descriptor so far.
    std::string text();

private:
    int descriptor_;
    int saved_;
    FILE* file_;
};

// Switches LC_CTYPE to a UTF-8 locale (ok) for the object's lifetime where the platform has one.
struct Utf8Locale {
    std::string saved = setlocale(LC_CTYPE, nullptr);
    bool ok = setlocale(LC_CTYPE, "C.UTF-8") || setlocale(LC_CTYPE, "C.utf8") ||
              setlocale(LC_CTYPE, "en_US.UTF-8") || setlocale(LC_CTYPE, ".UTF-8");

    ~Utf8Locale() { setlocale(LC_CTYPE, saved.c_str()); }
};

// Fault injection: runs op(state) on a fresh state from setup() with the n-th allocation made
// to fail (setup's own allocations are not counted), for n = 1, 2, ... until op completes
// without reaching the n-th allocation; after each failing run check(state, status, n) asserts
// status, report and state.
template <class Setup, class Op, class Check>
void forEachAllocationFailure(Setup setup, Op op, Check check) {
    for (unsigned long n = 1; n < 100000; ++n) {
        auto state = setup();
        krTesting::failAllocation(n);
        KR_RET_STATUS status = op(state);
        bool fired = krTesting::allocationFailureFired();
        krTesting::failAllocation(0);
        if (!fired) return;
        SCOPED_TRACE("allocation " + std::to_string(n) + " failed");
        check(state, status, n);
        if (::testing::Test::HasFatalFailure()) return;
    }
}

// The same without a separate state: op() builds its own (its allocations count too), and
// check(status, n) asserts what it left.
template <class Op, class Check>
void forEachAllocationFailure(Op op, Check check) {
    forEachAllocationFailure([] { return 0; }, [&](int) { return op(); },
                             [&](int, KR_RET_STATUS status, unsigned long n) { check(status, n); });
}

}  // namespace krtest

#define EXPECT_KR_STATUS(expected, expr) EXPECT_PRED_FORMAT2(krtest::statusIs, expected, expr)
#define ASSERT_KR_STATUS(expected, expr) ASSERT_PRED_FORMAT2(krtest::statusIs, expected, expr)
#define EXPECT_KR_OK(expr) EXPECT_PRED_FORMAT1(krtest::statusOk, expr)
#define ASSERT_KR_OK(expr) ASSERT_PRED_FORMAT1(krtest::statusOk, expr)
// Skips the test in builds without fault injection.
#define KR_REQUIRE_FAULT_INJECTION() \
    if (!krTesting::faultInjectionAvailable()) GTEST_SKIP() << "built without KR_FAULT_INJECTION"

#endif  // KRCORE_TEST_SUPPORT_H
