// kr_mem.h — an owned heap byte block.
// KR_Memory holds one block from the C allocator with its size and an error flag. Binary record
// files read into and write from it, and the matrix classes keep their numbers in it. A copy of
// an unchanged size reuses the block.
#ifndef KRCORE_KR_MEM_H
#define KRCORE_KR_MEM_H

#include "kr_base.h"
#include "kr_reporter.h"

// KR_Memory — a heap byte block that the object owns (C allocator, released with free).
// memSet adopts the caller's block, which must come from the C allocator too, and does not free
// the previous one. After a failed construction every operation answers KR_RET_ERR_POBJ, and the
// destructor reports that status once more.
class KR_API KR_Memory : public KR_KorvaneClass {
public:
    // A zero-filled block of size bytes (none for 0); not initialised if the allocation fails.
    explicit KR_Memory(unsigned int size = 0);
    // A copy of other's bytes; not initialised (and reported) if other is not, or on failure.
    KR_Memory(const KR_Memory& other);
    ~KR_Memory() override;
    // Copies other's bytes into this block (memCopy, whose status is dropped). Either side not
    // initialised: reported, nothing changes. Returns a copy of the target, by value.
    KR_Memory operator=(const KR_Memory& other);

    // Frees the block, then allocates size zero-filled bytes. On failure: error flag set, object
    // empty, KR_RET_ERR_MEM after the "KR_Memory allocation" report.
    KR_RET_STATUS memGet(unsigned int size);
    // Grows the block to size bytes keeping its contents (reallocates also for an equal size);
    // a smaller size changes nothing. The added bytes are not cleared. On failure the old block
    // stays valid and the error flag is set.
    KR_RET_STATUS memExpand(unsigned int size);
    // Makes the block a copy of size bytes at src, reusing the block when the size is unchanged.
    // A null src empties the object and answers KR_RET_TRUE.
    KR_RET_STATUS memCopy(const void* src, unsigned int size);
    // Adopts ptr (from the C allocator) and size without copying or freeing the old block.
    KR_RET_STATUS memSet(void* ptr, unsigned int size);
    KR_RET_STATUS memFree();

    // The block (null when empty or not initialised); the object keeps ownership.
    void* memPtr();
    // The size; 0 when not initialised.
    unsigned int memSize();

    // Whether the last allocation or reallocation failed.
    unsigned char memErr() { return error_; }

    unsigned char objIsEnabled() { return initialised_; }

    // Byte-wise equality; false (after a report) when either side is not initialised.
    unsigned char operator==(const KR_Memory& other) const;

protected:
    // memPtr() and memSize() for the hot paths of derived classes: the same answers, without
    // clearing the user error (nothing here can fail, so there is nothing to report).
    unsigned char* blockPtr() const { return initialised_ ? data_ : nullptr; }

    unsigned int blockSize() const { return initialised_ ? size_ : 0; }

private:
    KR_RET_STATUS initDataMembers(unsigned int size);
    KR_RET_STATUS cleanupDataMembers();

    unsigned char initialised_;
    unsigned int size_;  // 0 exactly when data_ is null, except after memSet(ptr, 0)
    unsigned char* data_;
    unsigned char error_;  // the last allocation or reallocation failed
};

#endif  // KRCORE_KR_MEM_H
