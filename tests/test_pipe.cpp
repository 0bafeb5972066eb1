// test_pipe.cpp — the pipe manager: copies in and out, callbacks that refresh, fill or fail,
// notification, the closed manager and memory failures.
#include <wchar.h>

#include <functional>
#include <string>

#include "container_model.h"
#include "test_support.h"

namespace {

using Texts = KR_Array<KR_StringW>;

wchar_t kClock[] = L"clock";
wchar_t kKeep[] = L"keep";
int calls = 0;

Texts texts(std::initializer_list<const wchar_t*> items) {
    Texts out;
    for (const wchar_t* item : items)
        out.appendElem(KR_StringW(item));
    return out;
}

std::wstring dump(Texts& a) {
    std::wstring out;
    for (unsigned int i = 0; i < a.numElems(); ++i)
        out += std::wstring(static_cast<const wchar_t*>(a[i])) + L";";
    return out;
}

std::wstring read(wchar_t* name) {
    Texts out;
    KR_RET_STATUS status = KR_pipeGetData(name, out);
    return status == KR_RET_TRUE ? dump(out) : L"status " + std::to_wstring(status);
}

KR_RET_STATUS refresh(wchar_t* name, Texts&) {
    ++calls;
    Texts fresh = texts({L"fresh", name});
    return KR_pipeAddData(name, fresh);
}

KR_RET_STATUS fillReader(wchar_t*, Texts& data) {
    ++calls;
    return data.appendElem(KR_StringW(L"junk"));
}

KR_RET_STATUS fail(wchar_t*, Texts& data) {
    ++calls;
    data.appendElem(KR_StringW(L"partial"));
    return KR_RET_ERR_GEN;
}

KR_RET_STATUS answerFalse(wchar_t*, Texts&) {
    ++calls;
    return KR_RET_FALSE;
}

// Adds enough pipes to move the registry to new blocks while the read waits for it.
KR_RET_STATUS growRegistry(wchar_t* name, Texts&) {
    ++calls;
    for (int i = 0; i < 40; ++i) {
        wchar_t other[16];
        swprintf(other, 16, L"other%d", i);
        Texts some = texts({other});
        KR_pipeAddData(other, some);
    }
    Texts grown = texts({L"grown"});
    return KR_pipeAddData(name, grown);
}

class Pipe : public ::testing::Test {
protected:
    void SetUp() override {
        calls = 0;
        KR_pipeSetNotify(1);
        ASSERT_KR_OK(KR_initPipeManager());
    }

    void TearDown() override {
        KR_closePipeManager();
        KR_pipeSetNotify(1);
    }
};

}  // namespace

TEST_F(Pipe, CallbackRunsBeforeTheDataIsCopiedOut) {
    struct Row {
        const char* name;
        KR_PipeCallback callback;
        KR_RET_STATUS status;
        const wchar_t* out;     // what the read hands out
        const wchar_t* stored;  // what a read without notification finds afterwards
    };

    const Row rows[] = {{"refreshes", refresh, KR_RET_TRUE, L"fresh;clock;", L"fresh;clock;"},
                        {"fills the reader", fillReader, KR_RET_TRUE, L"old;", L"old;"},
                        {"fails", fail, KR_RET_ERR_GEN, L"partial;", L"old;"},
                        {"answers false", answerFalse, KR_RET_TRUE, L"old;", L"old;"},
                        {"grows the registry", growRegistry, KR_RET_TRUE, L"grown;", L"grown;"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        calls = 0;
        ASSERT_KR_OK(KR_initPipeManager());
        Texts old = texts({L"old"});
        ASSERT_KR_OK(KR_pipeAddData(kClock, old));
        ASSERT_KR_OK(KR_pipeAddCallback(kClock, row.callback));
        Texts out = texts({L"stale"});
        EXPECT_KR_STATUS(row.status, KR_pipeGetData(kClock, out));
        EXPECT_EQ(row.out, dump(out));
        EXPECT_EQ(1, calls);
        KR_pipeSetNotify(0);
        EXPECT_EQ(row.stored, read(kClock));
        EXPECT_KR_STATUS(KR_RET_FALSE, KR_pipeIssueCallback(kClock, out));
        KR_pipeSetNotify(1);
        EXPECT_KR_STATUS(row.status, KR_pipeIssueCallback(kClock, out));
        EXPECT_EQ(2, calls);
    }
}

TEST_F(Pipe, DataIsCopiedInAndOutAndNamesAreExact) {
    Texts out = texts({L"stale"});
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_pipeGetData(kClock, out));
    EXPECT_EQ(0u, out.numElems());
    // A callback first and data later make one pipe with both.
    ASSERT_KR_OK(KR_pipeAddCallback(kClock, fillReader));
    Texts data = texts({L"a", L"b"});
    ASSERT_KR_OK(KR_pipeAddData(kClock, data));
    data[0] = L"changed";
    ASSERT_KR_OK(KR_pipeGetData(kClock, out));
    EXPECT_EQ(L"a;b;", dump(out));
    EXPECT_EQ(1, calls);
    out[1] = L"changed";
    EXPECT_EQ(L"a;b;", read(kClock));
    wchar_t upper[] = L"Clock";
    EXPECT_EQ(L"status 0", read(upper));
    // A null callback removes the callback, not the pipe.
    ASSERT_KR_OK(KR_pipeAddCallback(kClock, nullptr));
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_pipeIssueCallback(kClock, out));
    EXPECT_EQ(L"a;b;", read(kClock));
    EXPECT_EQ(2, calls);
    // Init on an open manager drops every pipe.
    ASSERT_KR_OK(KR_initPipeManager());
    EXPECT_EQ(L"status 0", read(kClock));
}

TEST_F(Pipe, ClosedManagerAndNullNamesAreReported) {
    Texts data;

    struct Row {
        const char* name;
        std::function<KR_RET_STATUS()> op;
        KR_RET_STATUS expected;
        const char* report;
    };

    const char* const arg = "Error on function input arguments";
    const char* const obj = "Required object or variable not initialized";
    const Row rows[] = {
            {"add null", [&] { return KR_pipeAddData(nullptr, data); }, KR_RET_ERR_ARG, arg},
            {"callback null", [] { return KR_pipeAddCallback(nullptr, fail); }, KR_RET_ERR_ARG,
             arg},
            {"get null", [&] { return KR_pipeGetData(nullptr, data); }, KR_RET_ERR_ARG, arg},
            {"issue null", [&] { return KR_pipeIssueCallback(nullptr, data); }, KR_RET_ERR_ARG,
             arg},
            {"close", [] { return KR_closePipeManager(); }, KR_RET_TRUE, nullptr},
            {"close again", [] { return KR_closePipeManager(); }, KR_RET_FALSE, nullptr},
            {"add closed", [&] { return KR_pipeAddData(kClock, data); }, KR_RET_ERR_OBJ, obj},
            {"callback closed", [] { return KR_pipeAddCallback(kClock, fail); }, KR_RET_ERR_OBJ,
             obj},
            {"get closed", [&] { return KR_pipeGetData(kClock, data); }, KR_RET_ERR_OBJ, obj},
            {"issue closed", [&] { return KR_pipeIssueCallback(kClock, data); }, KR_RET_ERR_OBJ,
             obj}};
    krtest::ReportCapture capture;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        capture.clear();
        EXPECT_KR_STATUS(row.expected, row.op());
        EXPECT_EQ(row.report ? krtest::statusReport("src/kr_pipe", row.report) : "",
                  capture.located());
    }
}

TEST_F(Pipe, MemoryFailuresKeepEveryPipe) {
    KR_REQUIRE_FAULT_INJECTION();
    auto setup = [] {
        KR_initPipeManager();
        Texts keep = texts({L"a", L"b"}), old = texts({L"old"});
        KR_pipeAddData(kKeep, keep);
        KR_pipeAddData(kClock, old);
        return 0;
    };
    wchar_t fresh[] = L"fresh";
    Texts two = texts({L"x", L"y"});
    krtest::ReportCapture capture;
    for (wchar_t* name : {fresh, kClock}) {
        krtest::forEachAllocationFailure(
                setup, [&](int) { return KR_pipeAddData(name, two); },
                [&](int, KR_RET_STATUS status, unsigned long) {
                    EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                    EXPECT_EQ(L"status 0", read(fresh));
                    EXPECT_EQ(L"a;b;", read(kKeep));
                    EXPECT_EQ(L"old;", read(kClock));
                });
        EXPECT_EQ(L"x;y;", read(name));
    }
    Texts out;
    krtest::forEachAllocationFailure(
            setup, [&](int) { return KR_pipeGetData(kKeep, out); },
            [&](int, KR_RET_STATUS status, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                EXPECT_EQ(0u, out.numElems());
            });
    EXPECT_NE(std::string::npos, capture.located().find("Memory error"));
}
