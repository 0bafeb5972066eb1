// kr_alloc.cpp — the allocation functions and the fault-injection countdown.
#include "kr_alloc.h"

#include <stdlib.h>
#include <string.h>

#include "kr_testing.h"

namespace {

#if defined(KR_FAULT_INJECTION)
unsigned long allocations = 0;  // every allocation counted since load
unsigned long failAt = 0;       // countdown: the allocation that fails; 0 when disarmed
bool fired = false;
#endif

}  // namespace

namespace krInternal {

bool allocationFails() {
#if defined(KR_FAULT_INJECTION)
    ++allocations;
    if (failAt == 0) return false;
    if (--failAt != 0) return false;
    fired = true;
    return true;
#else
    return false;
#endif
}

void* allocBlock(size_t size) {
    if (allocationFails()) return nullptr;
    return malloc(size);
}

void* allocZeroed(size_t count, size_t size) {
    if (allocationFails()) return nullptr;
    return calloc(count, size);
}

void* reallocBlock(void* block, size_t size) {
    if (allocationFails()) return nullptr;
    return realloc(block, size);
}

void freeBlock(void* block) {
    free(block);
}

char* dupText(const char* text) {
    if (text == nullptr) return nullptr;
    size_t size = strlen(text) + 1;
    char* copy = static_cast<char*>(allocZeroed(size, 1));
    if (copy != nullptr) memcpy(copy, text, size);
    return copy;
}

wchar_t* dupTextW(const wchar_t* text) {
    if (text == nullptr) return nullptr;
    size_t count = wcslen(text) + 1;
    wchar_t* copy = static_cast<wchar_t*>(allocZeroed(count, sizeof(wchar_t)));
    if (copy != nullptr) wmemcpy(copy, text, count);
    return copy;
}

}  // namespace krInternal

namespace krTesting {

bool faultInjectionAvailable() {
#if defined(KR_FAULT_INJECTION)
    return true;
#else
    return false;
#endif
}

void failAllocation(unsigned long n) {
#if defined(KR_FAULT_INJECTION)
    failAt = n;
    fired = false;
#else
    (void)n;
#endif
}

bool allocationFailureFired() {
#if defined(KR_FAULT_INJECTION)
    return fired;
#else
    return false;
#endif
}

unsigned long allocationCount() {
#if defined(KR_FAULT_INJECTION)
    return allocations;
#else
    return 0;
#endif
}

}  // namespace krTesting
