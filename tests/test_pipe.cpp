// test_pipe.cpp — the pipe manager: copies in and out, callbacks that refresh, fill or fail,
// notification, the closed manager and memory failures.
#include <wchar.h>

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

// Writes into the reader's array, which the pipe's data then replaces; answers false, which a
// read and an issued callback take as success.
KR_RET_STATUS fillReader(wchar_t*, Texts& data) {
    ++calls;
    data.appendElem(KR_StringW(L"junk"));
    return KR_RET_FALSE;
}

KR_RET_STATUS fail(wchar_t*, Texts& data) {
    ++calls;
    data.appendElem(KR_StringW(L"partial"));
    return KR_RET_ERR_GEN;
}

// Refreshes its own pipe after adding enough pipes to move the registry to new blocks while the
// read waits for it.
KR_RET_STATUS refresh(wchar_t* name, Texts&) {
    ++calls;
    for (int i = 0; i < 40; ++i) {
        wchar_t other[16];
        swprintf(other, 16, L"other%d", i);
        Texts some = texts({other});
        KR_pipeAddData(other, some);
    }
    Texts fresh = texts({L"fresh", name});
    return KR_pipeAddData(name, fresh);
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
                        {"fails", fail, KR_RET_ERR_GEN, L"partial;", L"old;"}};
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
    const std::string arg =
            krtest::statusReport("src/kr_pipe", "Error on function input arguments");
    const std::string obj =
            krtest::statusReport("src/kr_pipe", "Required object or variable not initialized");
    krtest::ReportCapture capture;
    auto expect = [&](const char* name, KR_RET_STATUS expected, KR_RET_STATUS status,
                      const std::string& report) {
        SCOPED_TRACE(name);
        EXPECT_KR_STATUS(expected, status);
        EXPECT_EQ(report, capture.located());
        capture.clear();
    };
    expect("add null", KR_RET_ERR_ARG, KR_pipeAddData(nullptr, data), arg);
    expect("callback null", KR_RET_ERR_ARG, KR_pipeAddCallback(nullptr, fail), arg);
    expect("get null", KR_RET_ERR_ARG, KR_pipeGetData(nullptr, data), arg);
    expect("issue null", KR_RET_ERR_ARG, KR_pipeIssueCallback(nullptr, data), arg);
    expect("close", KR_RET_TRUE, KR_closePipeManager(), "");
    expect("close again", KR_RET_FALSE, KR_closePipeManager(), "");
    expect("add closed", KR_RET_ERR_OBJ, KR_pipeAddData(kClock, data), obj);
    expect("callback closed", KR_RET_ERR_OBJ, KR_pipeAddCallback(kClock, fail), obj);
    expect("get closed", KR_RET_ERR_OBJ, KR_pipeGetData(kClock, data), obj);
    expect("issue closed", KR_RET_ERR_OBJ, KR_pipeIssueCallback(kClock, data), obj);
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
