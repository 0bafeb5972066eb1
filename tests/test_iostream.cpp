// test_iostream.cpp — KR_OStream: what handlers receive, the standard-output fallback, and
// number output without heap allocation.
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "test_support.h"

namespace {

// What the handlers received, each piece followed by "|".
std::string narrow;
std::wstring wide;

KR_RET_STATUS narrowHandler(char* text) {
    narrow += std::string(text ? text : "(null)") + "|";
    return KR_RET_ERR_GEN;  // the stream ignores what a handler answers
}

KR_RET_STATUS wideHandler(wchar_t* text) {
    wide += std::wstring(text ? text : L"(null)") + L"|";
    return KR_RET_TRUE;
}

std::string printed(const char* format, ...) {
    char text[256];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

}  // namespace

// Counting allocator: on glibc, outside the sanitizer build, every malloc of the process
// (operator new included) goes through these.
#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__)
#define KRT_COUNT_ALLOCATIONS 1
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
}

namespace {
unsigned long heapAllocations = 0;
}

extern "C" void* malloc(size_t size) {
    ++heapAllocations;
    return __libc_malloc(size);
}

extern "C" void* calloc(size_t count, size_t size) {
    ++heapAllocations;
    return __libc_calloc(count, size);
}

extern "C" void* realloc(void* block, size_t size) {
    ++heapAllocations;
    return __libc_realloc(block, size);
}
#endif

TEST(OStream, HandlerReceivesPrintfTexts) {
    KR_OStream stream;
    ASSERT_KR_STATUS(KR_RET_TRUE, stream.setConsoleHandler(narrowHandler));
    EXPECT_EQ(&narrowHandler, stream.getConsoleHandler());
    narrow.clear();
    const char* text = "text";
    char mutableText[] = "mutable";
    const unsigned char utext[] = "unsigned";
    const signed char stext[] = "signed";
    int marker = 0;
    stream << text << mutableText << utext << stext << 'c' << static_cast<unsigned char>('u')
           << static_cast<signed char>('s') << static_cast<short>(SHRT_MIN)
           << static_cast<unsigned short>(USHRT_MAX) << INT_MIN << UINT_MAX << LONG_MAX << LONG_MIN
           << ULONG_MAX << static_cast<unsigned long>(LONG_MAX) << 1.5f << -2.25
           << static_cast<long double>(0.125) << static_cast<const void*>(&marker);
    // ULONG_MAX goes through the signed conversion and comes out as -1.
    EXPECT_EQ(
            "text|mutable|unsigned|signed|c|u|s|" +
                    printed("%d|65535|%d|4294967295|%ld|%ld|-1|%ld|1.500000|-2.250000|0.125000|%p|",
                            SHRT_MIN, INT_MIN, LONG_MAX, LONG_MIN, LONG_MAX,
                            static_cast<void*>(&marker)),
            narrow);
    // Wide text still goes to the wide side, which has no handler here.
    narrow.clear();
    krtest::DescriptorCapture out(1);
    stream << L"wide" << L'!';
    EXPECT_EQ("wide!", out.text());
    EXPECT_TRUE(narrow.empty());
}

// The wide handler gets wide text, narrow text falls back to standard output, a null text reaches
// a handler and is skipped without one, and assignment copies both handlers.
TEST(OStream, WideHandlerFallbackNullTextAndAssignment) {
    KR_OStream stream, copy;
    stream.setConsoleHandlerW(wideHandler);
    EXPECT_EQ(&wideHandler, stream.getConsoleHandlerW());
    wide.clear();
    wchar_t mutableText[] = L"mutable";
    stream << L"const" << mutableText << L'w' << static_cast<const wchar_t*>(nullptr);
    EXPECT_EQ(L"const|mutable|w|(null)|", wide);
    {
        krtest::DescriptorCapture out(1);
        stream << "narrow " << 42 << ' ' << 1.5 << ' ' << static_cast<const char*>(nullptr)
               << "end";
        EXPECT_EQ("narrow 42 1.5 end", out.text());
    }
    stream.setConsoleHandler(narrowHandler);
    narrow.clear();
    stream << static_cast<const char*>(nullptr);
    EXPECT_EQ("(null)|", narrow);
    copy = stream;
    EXPECT_EQ(&narrowHandler, copy.getConsoleHandler());
    EXPECT_EQ(&wideHandler, copy.getConsoleHandlerW());
    EXPECT_TRUE(copy.objIsEnabled());
    stream.setConsoleHandler(nullptr);
    stream.setConsoleHandlerW(nullptr);
    krtest::DescriptorCapture out(1);
    stream << static_cast<const char*>(nullptr) << static_cast<const wchar_t*>(nullptr) << "still "
           << L"here";
    EXPECT_EQ("still here", out.text());
    EXPECT_EQ(L"const|mutable|w|(null)|", wide);
    ASSERT_NE(nullptr, KR_coutPtr);
    EXPECT_TRUE(KR_coutPtr->objIsEnabled());
    EXPECT_EQ(nullptr, KR_coutPtr->getConsoleHandler());
}

TEST(OStream, NumberOutputThroughHandlerAllocatesNothing) {
#if defined(KRT_COUNT_ALLOCATIONS)
    KR_OStream stream;
    stream.setConsoleHandler(+[](char*) { return KR_RET_TRUE; });
    unsigned long before = heapAllocations;
    for (int i = 0; i < 1000; ++i) {
        stream << i << static_cast<unsigned int>(i) << LONG_MAX - i << ULONG_MAX
               << static_cast<short>(i) << i * 0.5f << i * 1e30 << 'x'
               << static_cast<const void*>(&stream) << KR_RET_ERR_MEM;
    }
    EXPECT_EQ(before, heapAllocations);
    // The counter does count: a plain allocation moves it.
    void* probe = malloc(16);
    EXPECT_EQ(before + 1, heapAllocations);
    free(probe);
#else
    GTEST_SKIP() << "the counting allocator needs glibc without the sanitizers";
#endif
}
