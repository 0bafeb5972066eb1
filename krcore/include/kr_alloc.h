// kr_alloc.h — the library's allocation functions, not for host code.
// Every allocation of the library and of its templates goes through these, so that a test build
// (KR_FAULT_INJECTION) can make the n-th allocation fail and walk every allocation site of an
// operation. In a release build the countdown never fires; its controls are not installed.
#ifndef KRCORE_KR_ALLOC_H
#define KRCORE_KR_ALLOC_H

#include <stddef.h>
#include <wchar.h>

#include <new>

#include "kr_globals.h"

namespace krInternal {

// True when the fault-injection countdown says that this allocation must fail. Counts every call.
KR_API bool allocationFails();

// malloc, calloc, realloc and free of the C runtime; blocks from these may be handed to free().
KR_API void* allocBlock(size_t size);
KR_API void* allocZeroed(size_t count, size_t size);
KR_API void* reallocBlock(void* block, size_t size);
KR_API void freeBlock(void* block);
// strdup / wcsdup; null text gives null without counting as a failure.
KR_API char* dupText(const char* text);
KR_API wchar_t* dupTextW(const wchar_t* text);

// Array-new without exceptions, for element blocks; release with delete[].
template <class T>
inline T* newArray(size_t count) {
    if (allocationFails()) return nullptr;
    return new (std::nothrow) T[count];
}

// Single object without exceptions; release with delete.
template <class T, class... Args>
inline T* newObject(Args&&... args) {
    if (allocationFails()) return nullptr;
    return new (std::nothrow) T(static_cast<Args&&>(args)...);
}

}  // namespace krInternal

#endif  // KRCORE_KR_ALLOC_H
