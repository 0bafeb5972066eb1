// test_dllmanager.cpp — the module manager with the sample plug-in module, and the process
// environment as one text.
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "container_model.h"
#include "test_support.h"

namespace {

const char* const kUnit = "src/kr_dllmanager";
const char* const kModule = KR_TEST_SAMPLE_MODULE;

// Every test starts and ends without a registry; closing a missing one reports, unseen here.
class DllManager : public ::testing::Test {
protected:
    void SetUp() override { closeQuietly(); }

    void TearDown() override { closeQuietly(); }

    static void closeQuietly() {
        krtest::ReportCapture quiet;
        KR_dllEntryManagerClose();
    }
};

HMODULE handleOf(const char* path) {
    HMODULE handle = nullptr;
    KR_dllGetHandle(path, &handle);
    return handle;
}

// Resolves and calls one of the sample module's entry functions.
template <class Result>
Result callSample(const char* name) {
    FARPROC proc = nullptr;
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_dllGetProcAddress(kModule, name, &proc));
    if (proc == nullptr) return Result();
    return reinterpret_cast<Result (*)()>(reinterpret_cast<void (*)()>(proc))();
}

std::string text(KR_String& s) {
    const char* t = s;
    return t != nullptr ? t : "";
}

}  // namespace

TEST_F(DllManager, CountsLoadsOfOnePathAndReleasesWithTheLast) {
    krtest::ReportCapture capture;
    ASSERT_KR_STATUS(KR_RET_TRUE, KR_dllLoad(kModule));
    HMODULE first = handleOf(kModule);
    ASSERT_NE(nullptr, first);
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_dllLoad(kModule));
    EXPECT_EQ(first, handleOf(kModule));
    EXPECT_STREQ("krsample", callSample<const char*>("krsample_moduleName"));
    EXPECT_EQ(1u, callSample<unsigned int>("krsample_callCount"));
    FARPROC proc = nullptr;
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_dllGetProcAddress(kModule, "krsample_none", &proc));
    EXPECT_EQ(nullptr, proc);

    EXPECT_KR_STATUS(KR_RET_TRUE, KR_dllUnload(kModule));
    EXPECT_EQ(2u, callSample<unsigned int>("krsample_callCount"));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_dllUnload(kModule));
    HMODULE handle = first;
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_dllGetHandle(kModule, &handle));
    EXPECT_EQ(nullptr, handle);
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_dllUnload(kModule));
    // Released for real: a new load starts the module afresh.
    ASSERT_KR_STATUS(KR_RET_TRUE, KR_dllLoad(kModule));
    EXPECT_EQ(1u, callSample<unsigned int>("krsample_callCount"));
    EXPECT_EQ("", capture.text());
}

TEST_F(DllManager, LoadsOnlyExistingFilesThatAreModules) {
    std::filesystem::path dir = std::filesystem::path(kModule).parent_path();
    std::filesystem::path text = std::filesystem::temp_directory_path() / "krdll_text.so";
    std::ofstream(text) << "not a module\n";
    // The file that is no module comes first and makes the registry, which the others never
    // reach. A bare name is looked for in the current directory only, never on the loader's
    // search path (where these two are found on Linux and on Windows).
    const std::string paths[] = {text.string(), (dir / "krsample_missing.so").string(),
                                 "libc.so.6",   "kernel32.dll",
                                 dir.string(),  ""};
    krtest::ReportCapture capture;
    for (const std::string& path : paths) {
        SCOPED_TRACE(path);
        EXPECT_KR_STATUS(KR_RET_FALSE, KR_dllLoad(path.c_str()));
        EXPECT_EQ(nullptr, handleOf(path.c_str()));
    }
    std::filesystem::remove(text);
    EXPECT_EQ("", capture.text());
}

TEST_F(DllManager, MissingRegistryIsReportedAndNullArgumentsAreNot) {
    HMODULE h = nullptr;
    FARPROC p = nullptr;
    const std::string missing =
            krtest::statusReport(kUnit, "Required object or variable not initialized");
    krtest::ReportCapture capture;
    auto expect = [&](const char* name, KR_RET_STATUS expected, KR_RET_STATUS status,
                      const std::string& report) {
        SCOPED_TRACE(name);
        EXPECT_KR_STATUS(expected, status);
        EXPECT_EQ(report, capture.located());
        capture.clear();
    };
    expect("unload", KR_RET_ERR_OBJ, KR_dllUnload(kModule), missing);
    expect("unload all", KR_RET_ERR_OBJ, KR_dllUnloadAll(), missing);
    expect("handle", KR_RET_ERR_OBJ, KR_dllGetHandle(kModule, &h), missing);
    expect("proc", KR_RET_ERR_OBJ, KR_dllGetProcAddress(kModule, "f", &p), missing);
    expect("close", KR_RET_TRUE, KR_dllEntryManagerClose(), missing);
    expect("load null", KR_RET_ERR_ARG, KR_dllLoad(nullptr), "");
    expect("unload null", KR_RET_ERR_ARG, KR_dllUnload(nullptr), "");
    expect("handle null", KR_RET_ERR_ARG, KR_dllGetHandle(nullptr, &h), "");
    expect("handle to null", KR_RET_ERR_ARG, KR_dllGetHandle("x", nullptr), "");
    expect("proc null", KR_RET_ERR_ARG, KR_dllGetProcAddress("x", nullptr, &p), "");
    expect("proc to null", KR_RET_ERR_ARG, KR_dllGetProcAddress("x", "f", nullptr), "");
    expect("init", KR_RET_TRUE, KR_dllEntryManagerInit(), "");
    expect("init again", KR_RET_FALSE, KR_dllEntryManagerInit(), "");
}

TEST_F(DllManager, UnloadAllReleasesOnceAndKeepsTheEntries) {
    krtest::ReportCapture capture;
    ASSERT_KR_STATUS(KR_RET_TRUE, KR_dllLoad(kModule));
    ASSERT_KR_STATUS(KR_RET_TRUE, KR_dllLoad(kModule));
    HMODULE handle = handleOf(kModule);
    EXPECT_EQ(1u, callSample<unsigned int>("krsample_callCount"));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_dllUnloadAll());
    // The entry keeps its stale handle and its count; the released module resolves nothing, and
    // a new load only counts.
    EXPECT_EQ(handle, handleOf(kModule));
    FARPROC proc = nullptr;
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_dllGetProcAddress(kModule, "krsample_callCount", &proc));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_dllLoad(kModule));
    EXPECT_EQ(handle, handleOf(kModule));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_dllUnload(kModule));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_dllUnload(kModule));
    // The last unload finds the module released already and does not release it again.
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_dllUnload(kModule));
    EXPECT_EQ(nullptr, handleOf(kModule));

    ASSERT_KR_STATUS(KR_RET_TRUE, KR_dllLoad(kModule));
    EXPECT_EQ(1u, callSample<unsigned int>("krsample_callCount"));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_dllUnloadAll());
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_dllEntryManagerClose());
    EXPECT_EQ("", capture.text());
}

TEST_F(DllManager, LoadThatRunsOutOfMemoryLeavesNothingLoaded) {
    KR_REQUIRE_FAULT_INJECTION();
    krtest::ReportCapture capture;
    int failures = 0;
    // Each run starts without a registry, so the walk fails its creation, the key and the entry.
    krtest::forEachAllocationFailure(
            [] {
                closeQuietly();
                return 0;
            },
            [](int) { return KR_dllLoad(kModule); },
            [&](int, KR_RET_STATUS status, unsigned long) {
                ++failures;
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                EXPECT_NE(std::string::npos, capture.located().find("Memory error"));
                EXPECT_EQ(nullptr, handleOf(kModule));
                capture.clear();
            });
    EXPECT_GE(failures, 4);
    // A module that a failed load had kept loaded would stay through the unload below and go on
    // counting its calls.
    closeQuietly();
    ASSERT_KR_STATUS(KR_RET_TRUE, KR_dllLoad(kModule));
    callSample<unsigned int>("krsample_callCount");
    ASSERT_KR_STATUS(KR_RET_TRUE, KR_dllUnload(kModule));
    ASSERT_KR_STATUS(KR_RET_TRUE, KR_dllLoad(kModule));
    EXPECT_EQ(1u, callSample<unsigned int>("krsample_callCount"));
}

TEST(Environment, GetEnvEndsEveryEntryWithTheSeparator) {
    ASSERT_KR_OK(KR_putEnv("KRTEST_ENV_A=alpha", nullptr));
    KR_String probe;
    ASSERT_KR_OK(KR_getEnv(probe, "\x01"));
    std::string all = text(probe);
    ASSERT_EQ('\x01', all.back());
    EXPECT_NE(std::string::npos, ("\x01" + all).find("\x01KRTEST_ENV_A=alpha\x01"));
    const char* const rows[][2] = {{nullptr, "\r\n"}, {"", ""}, {"%;", "%;"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row[1]);
        std::string expected = all;
        for (size_t at = 0; (at = expected.find('\x01', at)) != std::string::npos;)
            expected.replace(at, 1, row[1]);
        KR_String out("stale");
        EXPECT_KR_OK(KR_getEnv(out, row[0]));
        EXPECT_EQ(expected, text(out));
    }
}

TEST(Environment, PutEnvSetsAndRemovesVariables) {
    EXPECT_KR_OK(KR_putEnv("KRTEST_ENV_B=1\r\nKRTEST_ENV_C=two", nullptr));
    EXPECT_STREQ("1", getenv("KRTEST_ENV_B"));
    EXPECT_STREQ("two", getenv("KRTEST_ENV_C"));
    EXPECT_KR_OK(KR_putEnv(";KRTEST_ENV_B=;;KRTEST_ENV_C=3=4;", ";"));
    EXPECT_EQ(nullptr, getenv("KRTEST_ENV_B"));
    EXPECT_STREQ("3=4", getenv("KRTEST_ENV_C"));

    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_putEnv(nullptr, nullptr));
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_putEnv(" \t\r\n", nullptr));
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_putEnvW(L""));
    EXPECT_EQ("", capture.text());
}

TEST(Environment, PutEnvWSetsOneAssignmentThroughEitherCall) {
    // The C locale has no narrow form for the euro sign.
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_GEN, KR_putEnvW(L"KRTEST_ENV_W=\u20ac"));
    EXPECT_EQ(krtest::statusReport(kUnit, "Internal error"), capture.located());
    krtest::Utf8Locale locale;
    for (unsigned char unicode : {0, 1}) {
        SCOPED_TRACE(unicode ? "wide call" : "narrowed");
        KR_useUnicodeSystemFunctions = unicode;
        EXPECT_KR_OK(KR_putEnvW(unicode ? L"KRTEST_ENV_W=on" : L"KRTEST_ENV_W=off"));
        EXPECT_STREQ(unicode ? "on" : "off", getenv("KRTEST_ENV_W"));
        if (locale.ok) {
            EXPECT_KR_OK(KR_putEnvW(L"KRTEST_ENV_U=\u00e9t\u00e9"));
            KR_StringW all;
            EXPECT_KR_OK(KR_getEnvW(all, L"|"));
            std::wstring found = L"|" + std::wstring(static_cast<const wchar_t*>(all));
            EXPECT_NE(std::wstring::npos, found.find(L"|KRTEST_ENV_U=\u00e9t\u00e9|"));
        }
        EXPECT_KR_OK(KR_putEnvW(L"KRTEST_ENV_W="));
        EXPECT_EQ(nullptr, getenv("KRTEST_ENV_W"));
    }
    KR_useUnicodeSystemFunctions = 0;
}

TEST(Environment, MemoryFailuresLeaveNothingHalfDone) {
    KR_REQUIRE_FAULT_INJECTION();
    krtest::ReportCapture capture;
    KR_String out;
    krtest::forEachAllocationFailure([&] { return KR_getEnv(out, nullptr); },
                                     [&](KR_RET_STATUS status, unsigned long) {
                                         EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                                         EXPECT_EQ(nullptr, static_cast<const char*>(out));
                                     });
    krtest::forEachAllocationFailure([] { return KR_putEnv("KRTEST_ENV_D=1;KRTEST_ENV_E=2", ";"); },
                                     [](KR_RET_STATUS status, unsigned long) {
                                         EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                                         EXPECT_EQ(nullptr, getenv("KRTEST_ENV_D"));
                                     });
    EXPECT_NE(std::string::npos, capture.located().find("Memory error"));
}
