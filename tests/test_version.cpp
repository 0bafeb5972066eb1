// test_version.cpp — KR_Version: parsing, ordering, text form and packing.
#include <stdlib.h>

#include <algorithm>
#include <string>

#include "test_support.h"

namespace {

::testing::AssertionResult isVersion(const KR_Version& v,
                                     unsigned int major,
                                     unsigned int minor,
                                     unsigned int patch) {
    if (v.getMajor() == major && v.getMinor() == minor && v.getPatch() == patch) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure()
           << v.getMajor() << "." << v.getMinor() << "." << v.getPatch();
}

// Every operator of a against b (a version or a text) agrees with order: -1, 0 or 1.
template <class B>
::testing::AssertionResult ordered(const KR_Version& a, const B& b, int order) {
    bool answers[] = {a == b, a<b, a> b, a <= b, a >= b};
    bool expected[] = {order == 0, order<0, order> 0, order <= 0, order >= 0};
    if (std::equal(answers, answers + 5, expected)) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "== < > <= >= answered " << answers[0] << answers[1]
                                         << answers[2] << answers[3] << answers[4];
}

}  // namespace

TEST(Version, ParsesPartialAndMalformedTexts) {
    struct Row {
        const char* text;
        unsigned int major, minor, patch;
    };

    const Row rows[] = {{"1.2.3", 1, 2, 3},   {"2", 2, 0, 0},     {"4.5", 4, 5, 0},
                        {"1..3", 1, 0, 3},    {"a.b.c", 0, 0, 0}, {"x.7", 0, 7, 0},
                        {"1.2.3.4", 1, 2, 3}, {" 7. 8", 7, 8, 0}, {"-1.0.0", 4294967295u, 0, 0},
                        {"", 0, 0, 0},        {nullptr, 0, 0, 0}, {"10.20.30trailing", 10, 20, 30}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text ? row.text : "(null)");
        KR_Version version(row.text);
        EXPECT_TRUE(isVersion(version, row.major, row.minor, row.patch));
    }
    // Missing or unreadable pieces keep the numbers that were there.
    KR_Version version(2, 3, 4);
    version = "7";
    EXPECT_TRUE(isVersion(version, 7, 3, 4));
    EXPECT_KR_STATUS(KR_RET_TRUE, version.str2Version("8.x"));
    EXPECT_TRUE(isVersion(version, 8, 3, 4));
    EXPECT_KR_STATUS(KR_RET_TRUE, version.str2Version(nullptr));
    EXPECT_TRUE(isVersion(version, 0, 0, 0));
}

TEST(Version, NumericOrder) {
    const KR_Version a(1, 2, 3), b(1, 10, 0);
    EXPECT_TRUE(ordered(a, b, -1));
    EXPECT_TRUE(ordered(b, a, 1));
    EXPECT_TRUE(ordered(a, KR_Version(1, 2, 3), 0));
    EXPECT_TRUE(ordered(a, a, 0));
    EXPECT_TRUE(ordered(KR_Version(2, 0, 0), b, 1));
    // Numbers compare unsigned.
    EXPECT_TRUE(ordered(KR_Version(0, 0, 4294967295u), KR_Version(0, 0, 1), 1));
    // Against texts: the numbers that parsed; a null text is 0.0.0.
    EXPECT_TRUE(ordered(a, "1.2.3", 0));
    EXPECT_TRUE(ordered(a, "1.10", -1));
    EXPECT_TRUE(ordered(a, "1.2.x", 1));
    EXPECT_TRUE(ordered(a, "1", 1));
    EXPECT_TRUE(ordered(KR_Version(), static_cast<const char*>(nullptr), 0));
}

TEST(Version, TextCopiesAndLibraryVersion) {
    EXPECT_STREQ("1.0.0", KR_getKorvaneVersion());
    EXPECT_EQ(KR_getKorvaneVersion(), KR_getKorvaneVersion());  // a constant, not a copy
    KR_Version version(1, 10, 0), assigned;
    char* text = version.version2Str();
    ASSERT_NE(nullptr, text);
    EXPECT_STREQ("1.10.0", text);
    free(text);
    assigned = version;
    EXPECT_TRUE(isVersion(KR_Version(version), 1, 10, 0));
    EXPECT_TRUE(isVersion(assigned, 1, 10, 0));
}

TEST(Version, PackAndUnpack) {
    krtest::ReportCapture capture;
    KR_Version format, version(0x01020304u, 5, 4294967295u), back;
    EXPECT_EQ(12u, version.getPackedSize(format, KR_STORAGE_UNDEF));
    EXPECT_EQ(12u, version.getPackedSize(format, KR_STORAGE_BINARY));
    char buffer[12];
    unsigned int used = 99;
    ASSERT_KR_STATUS(KR_RET_TRUE, version.pack(format, buffer, used, KR_STORAGE_BINARY));
    EXPECT_EQ(12u, used);
    EXPECT_EQ(std::string("\4\3\2\1\5\0\0\0\xff\xff\xff\xff", 12), std::string(buffer, 12));
    used = 0;
    ASSERT_KR_STATUS(KR_RET_TRUE, back.unpack(format, buffer, used, KR_STORAGE_UNDEF));
    EXPECT_EQ(12u, used);
    EXPECT_TRUE(back == version);
    EXPECT_EQ("", capture.text());
    used = 5;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, version.pack(format, nullptr, used, KR_STORAGE_BINARY));
    EXPECT_EQ(0u, used);
    used = 5;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, back.unpack(format, nullptr, used, KR_STORAGE_BINARY));
    EXPECT_EQ(0u, used);
    EXPECT_TRUE(back == version);
    const std::string arg = "src/kr_version: line N: \nError on function input arguments\n\n";
    EXPECT_EQ(arg + arg, capture.located());
}

TEST(Version, AllocationFailures) {
    KR_REQUIRE_FAULT_INJECTION();
    krtest::ReportCapture capture;
    const std::string memReport = "src/kr_version: line N: \nMemory error\n\n";
    KR_Version version(3, 4, 5);
    krtest::forEachAllocationFailure([&] { return version.str2Version("9.9.9"); },
                                     [&](KR_RET_STATUS status, unsigned long) {
                                         EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                                         EXPECT_TRUE(isVersion(version, 3, 4, 5));
                                         EXPECT_EQ(memReport, capture.located());
                                         capture.clear();
                                     });
    krtest::forEachAllocationFailure(
            [&] {
                char* text = version.version2Str();
                KR_RET_STATUS status = text ? KR_RET_TRUE : KR_RET_ERR_MEM;
                free(text);
                return status;
            },
            [&](KR_RET_STATUS status, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                EXPECT_EQ(memReport, capture.located());
                capture.clear();
            });
    // A comparison whose parse runs out of memory answers false, whichever operator.
    krtest::forEachAllocationFailure(
            [&] { return (version == "3.4.5" || version <= "9") ? KR_RET_TRUE : KR_RET_FALSE; },
            [&](KR_RET_STATUS status, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_FALSE, status);
                capture.clear();
            });
}
