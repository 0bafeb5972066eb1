// test_init.cpp — KR_init and KR_close: the cells they set and their allocation failures.
#include <string>

#include "test_support.h"

namespace {

// Puts the library back into the started state of the test program after a test.
void restart() {
    KR_msgReporter = nullptr;
    ASSERT_EQ(KR_RET_TRUE, KR_init());
}

}  // namespace

TEST(Init, StartSetsTheCellsAndCloseClearsTheStream) {
    ASSERT_NE(nullptr, KR_defReporter);
    EXPECT_EQ(KR_msgReporter, static_cast<KR_BaseReporter*>(KR_defReporter));
    ASSERT_NE(nullptr, KR_coutPtr);
    EXPECT_EQ(nullptr, KR_coutPtr->getConsoleHandler());
    EXPECT_TRUE(KR_systemVersionRead == "1.0.0");
    EXPECT_TRUE(KR_systemVersionWrite == KR_Version(1, 0, 0));
    EXPECT_FALSE(KR_useUnicodeSystemFunctions);

    KR_Reporter* reporter = KR_defReporter;
    EXPECT_EQ(KR_RET_TRUE, KR_close());
    EXPECT_EQ(nullptr, KR_coutPtr);
    // The reporter pointers keep their value; the object is gone.
    EXPECT_EQ(reporter, KR_defReporter);
    EXPECT_EQ(static_cast<KR_BaseReporter*>(reporter), KR_msgReporter);
    restart();
}

TEST(Init, AllocationFailuresAreReturned) {
    KR_REQUIRE_FAULT_INJECTION();
    KR_close();
    krtest::ReportCapture capture;
    int failures = 0;
    std::string standardError;
    krtest::forEachAllocationFailure(
            [&] {
                // A capture reporter stands in until KR_init registers its own, which writes
                // to standard error.
                KR_registerReporter(&capture.reporter());
                krtest::DescriptorCapture err(2);
                KR_RET_STATUS status = KR_init();
                standardError = err.text();
                return status;
            },
            [&](KR_RET_STATUS status, unsigned long n) {
                ++failures;
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                if (n == 1) {
                    EXPECT_EQ(nullptr, KR_defReporter);
                    EXPECT_EQ(&capture.reporter(), KR_msgReporter);
                } else {
                    // The stream (n == 2), then the managers' registries, each reported where
                    // its allocation failed.
                    EXPECT_EQ(n == 2, KR_coutPtr == nullptr);
                    EXPECT_EQ(KR_msgReporter, static_cast<KR_BaseReporter*>(KR_defReporter));
                }
                std::string report = n == 1 ? capture.text() : standardError;
                if (n <= 2) {
                    EXPECT_NE(std::string::npos, report.find("src/kr_init: line "));
                }
                EXPECT_NE(std::string::npos, report.find(": \nMemory error\n\n"));
                capture.clear();
                KR_close();
            });
    EXPECT_LE(5, failures);  // reporter, stream, and one registry per manager at least
    KR_close();
    restart();
}
