// kr_mem.cpp — the owned heap byte block.
#include "kr_mem.h"

#include <string.h>

#include "kr_alloc.h"
#include "kr_report.h"

#define KRI_UNIT "src/kr_mem"

// --- KR_Memory ---

KR_Memory::KR_Memory(unsigned int size) {
    initDataMembers(size);
}

KR_Memory::KR_Memory(const KR_Memory& other) : KR_KorvaneClass(other) {
    KR_setUserError(0);
    if (&other == this) return;
    size_ = 0;
    data_ = nullptr;
    error_ = 0;
    initialised_ = 0;
    if (!other.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return;
    }
    if (KRI_FAILED(initDataMembers(other.size_))) return;
    if (size_ > 0) memcpy(data_, other.data_, size_);
}

// Destroying an object whose construction failed reports KR_RET_ERR_POBJ once more.
KR_Memory::~KR_Memory() {
    KR_setUserError(0);
    cleanupDataMembers();
}

KR_Memory KR_Memory::operator=(const KR_Memory& other) {
    KR_setUserError(0);
    if (!initialised_ || !other.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
    } else if (&other != this) {
        memCopy(other.data_, other.size_);
    }
    return *this;
}

KR_RET_STATUS KR_Memory::memGet(unsigned int size) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    KR_RET_STATUS status = memFree();
    if (KRI_FAILED(status)) return status;
    if (size == 0) return KR_RET_TRUE;
    void* block = krInternal::allocZeroed(size, 1);
    if (block == nullptr) {
        error_ = 1;
        return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Memory allocation", KR_msg(0, 1));
    }
    data_ = static_cast<unsigned char*>(block);
    size_ = size;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Memory::memExpand(unsigned int size) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (size < size_) return KR_RET_TRUE;
    if (size == 0) {
        // Both sizes are 0: there is no block, and realloc of 0 bytes has no portable answer.
        error_ = 0;
        return KR_RET_TRUE;
    }
    void* block = krInternal::reallocBlock(data_, size);
    if (block == nullptr) {
        error_ = 1;
        return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Memory reallocation", KR_msg(0, 1));
    }
    data_ = static_cast<unsigned char*>(block);
    size_ = size;
    error_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Memory::memCopy(const void* src, unsigned int size) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    KR_RET_STATUS status = KR_RET_TRUE;
    if (src == nullptr || size_ != size) {
        status = memFree();
        if (KRI_FAILED(status)) return status;
    }
    if (src == nullptr) return KR_RET_TRUE;
    if (size_ != size) {
        status = memGet(size);
        if (KRI_FAILED(status)) return status;
    }
    // A copy of the same size lands in the block we already have; the source may not overlap it.
    if (size > 0) memcpy(data_, src, size);
    error_ = 0;
    return status;
}

KR_RET_STATUS KR_Memory::memSet(void* ptr, unsigned int size) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    data_ = static_cast<unsigned char*>(ptr);
    size_ = size;
    error_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Memory::memFree() {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    krInternal::freeBlock(data_);
    data_ = nullptr;
    size_ = 0;
    error_ = 0;
    return KR_RET_TRUE;
}

void* KR_Memory::memPtr() {
    KR_setUserError(0);
    return initialised_ ? data_ : nullptr;
}

unsigned int KR_Memory::memSize() {
    KR_setUserError(0);
    return initialised_ ? size_ : 0;
}

unsigned char KR_Memory::operator==(const KR_Memory& other) const {
    KR_setUserError(0);
    if (!initialised_ || !other.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    if (&other == this) return 1;
    if (size_ != other.size_) return 0;
    if (size_ == 0) return 1;
    return memcmp(data_, other.data_, size_) == 0 ? 1 : 0;
}

KR_RET_STATUS KR_Memory::initDataMembers(unsigned int size) {
    size_ = 0;
    data_ = nullptr;
    error_ = 0;
    initialised_ = 1;
    KR_RET_STATUS status = memGet(size);
    if (KRI_FAILED(status)) {
        initialised_ = 0;
        return status;
    }
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Memory::cleanupDataMembers() {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    memFree();
    initialised_ = 0;
    return KR_RET_TRUE;
}
