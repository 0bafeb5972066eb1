// kr_vcarray_impl.h — the list array: a growable indexed container made of fixed-size blocks.
// KR_VCArray keeps its elements in blocks of blockSize elements that never move once allocated:
// the blocks are recorded in a KR_LList and indexed through a directory beside it, so growing
// at the end adds blocks without copying what is stored, and access by index is O(1). It backs
// the growable stacks and queues (kr_stack_impl.h, kr_queue_impl.h).
#ifndef KRCORE_KR_VCARRAY_IMPL_H
#define KRCORE_KR_VCARRAY_IMPL_H

#include <limits.h>
#include <string.h>

#include <type_traits>

#include "kr_alloc.h"
#include "kr_array_impl.h"
#include "kr_container.h"
#include "kr_list_impl.h"
#include "kr_reporter.h"

// KRI_ macros for this header only, taken back by kr_macros_end.h at its end.
#include "kr_macros_begin.h"

// KR_VCARR_LLIST_REC — the list record of one block of a KR_VCArray: the block's first element
// and the index that element has in the list array. The list array owns the block; records
// are plain handles, copied freely by the list.
template <class T>
struct KR_VCARR_LLIST_REC {
    KRI_INLINE bool operator==(const KR_VCARR_LLIST_REC<T>& other) const {
        return elems == other.elems && firstIndex == other.firstIndex;
    }

    T* elems = nullptr;
    unsigned int firstIndex = 0;
};

// KR_VCArray — an indexed container of numElems() elements in blocks of a fixed size. Only the
// last block may be partly used, and a block is released as soon as no element lives in it.
// Inserting or deleting elsewhere than at the end moves the elements behind the position one by
// one; appending never moves any. Indices, clamping, rawCopy and the cursor follow KR_Array's
// rules, so the two serve interchangeably behind KR_IndContainer. Every failed allocation, and
// every element copy that did not arrive (KR_ElemCopy), is answered with KR_RET_ERR_MEM and
// leaves the list array as it was; elements whose copy may fail are moved, never copied, when
// the list array only rearranges them. After a failed construction every operation answers
// KR_RET_ERR_POBJ.
template <class T>
class KR_VCArray : public KR_IndContainer<T> {
public:
    // n elements in blocks of blockSize (0 is taken as 1).
    explicit KR_VCArray(unsigned int n = 0, unsigned int blockSize = 64, unsigned char rawCopy = 0);
    // Same block size as other; starts empty and assigns from other.
    KR_VCArray(const KR_VCArray<T>& other);
    ~KR_VCArray() override;
    // Copies src's elements and rawCopy; keeps this block size. A failed allocation or element
    // copy is reported (KR_RET_ERR_MEM) and changes nothing. The cursor rule is KR_Array's.
    KR_VCArray<T>& operator=(const KR_VCArray<T>& src);
    // Equal lengths and pairwise equal elements; the cursors are not moved.
    unsigned char operator==(const KR_VCArray<T>& other) const;

    T& operator[](unsigned int i) override;

    // The element at i without checks or reports, for hot loops that keep i below numElems().
    KRI_INLINE T& at(unsigned int i) {
        return pow2_ ? directory_[i >> shift_][i & (blockSize_ - 1)]
                     : directory_[i / blockSize_][i % blockSize_];
    }

    // The block holding slot i (below numElems()): its first slot's index and how many of its
    // slots exist. Blocks never move while the array grows at its end, so a caller that only
    // appends may keep using the block until it deletes elements.
    KRI_INLINE T* blockOf(unsigned int i, unsigned int& first, unsigned int& span) {
        unsigned int b = pow2_ ? i >> shift_ : i / blockSize_;
        first = b * blockSize_;
        unsigned int left = this->numElems_ - first;
        span = left < blockSize_ ? left : blockSize_;
        return directory_[b];
    }

    // Index past the end: after the last element. KR_INS_AFTER at the last index grows by
    // exactly count and moves nothing.
    KR_RET_STATUS insElems(KR_INS_METHOD method, unsigned int index, unsigned int count) override;
    KR_RET_STATUS delElems(unsigned int index, unsigned int count) override;
    KR_RET_STATUS appendElem(T elem) override;
    KR_RET_STATUS preappendElem(T elem) override;
    KR_RET_STATUS delAll() override;
    KR_RET_STATUS delCurElem(unsigned char moveNext) override;

    KRI_INLINE unsigned char objIsEnabled() override { return initialised_; }

    KRI_INLINE unsigned int getBlockSize() { return blockSize_; }

    KRI_INLINE unsigned char getRawCopy() { return rawCopy_; }

    // Cursor operations. Not initialised: reported, KR_RET_ERR_POBJ (6, read as true, from the
    // operations answering unsigned char); curIsNull then answers true without a report.
    KRI_INLINE unsigned char curIsNull() override { return Cursor::isNull(*this); }

    KRI_INLINE unsigned char curAtFirst() override { return Cursor::isAt(*this, 0); }

    KRI_INLINE unsigned char curAtLast() override {
        return Cursor::isAt(*this, this->numElems_ - 1);
    }

    KRI_INLINE KR_RET_STATUS setCurFirst() override { return Cursor::setIndex(*this, 0); }

    KRI_INLINE KR_RET_STATUS setCurLast() override {
        return Cursor::setIndex(*this, this->numElems_ == 0 ? 0 : this->numElems_ - 1);
    }

    // From element 0 (setCurPrev) or the last element (setCurNext) the cursor becomes null and the
    // answer is KR_RET_FALSE.
    KRI_INLINE KR_RET_STATUS setCurPrev() override { return Cursor::step(*this, ~0u); }

    KR_RET_STATUS setCurNext() override;

    KRI_INLINE KR_RET_STATUS getCurIndex(unsigned int& index) override {
        return Cursor::getIndex(*this, index);
    }

    KRI_INLINE KR_RET_STATUS setCurIndex(unsigned int index) override {
        return Cursor::setIndex(*this, index);
    }

    KRI_INLINE KR_RET_STATUS getCurElem(T** elem) override { return Cursor::getElem(*this, elem); }

    KRI_INLINE KR_RET_STATUS setCurElem(T elem) override { return Cursor::setElem(*this, elem); }

    KRI_INLINE KR_RET_STATUS setCur(T elem) override { return Cursor::find(*this, elem); }

private:
    friend struct krInternal::ArrayCursor<KR_VCArray<T>, T>;
    typedef krInternal::ArrayCursor<KR_VCArray<T>, T> Cursor;
    static constexpr const char* kUnit = "krcore/include/kr_vcarray_impl";

    typedef KR_VCARR_LLIST_REC<T> Record;
    KR_RET_STATUS initDataMembers(unsigned int n, unsigned int blockSize, unsigned char rawCopy);
    KR_RET_STATUS cleanupDataMembers();

    // Adds count cleared slots at the end (allocating blocks as needed); all or nothing.
    KR_RET_STATUS growAtEnd(unsigned int count);
    // Releases the blocks beyond keep.
    void releaseBlocks(unsigned int keep);

    // Blocks needed for n elements.
    KRI_INLINE unsigned int blocksFor(unsigned int n) const {
        return static_cast<unsigned int>((static_cast<unsigned long long>(n) + blockSize_ - 1) /
                                         blockSize_);
    }

    // Clears the slots from .. to - 1, which held elements.
    void clearUsed(unsigned int from, unsigned int to);

    // Moves element src to slot dst; an element whose copy may fail is exchanged, so slot src
    // then holds dst's old value, which the caller overwrites or clears.
    KRI_INLINE void moveElem(unsigned int dst, unsigned int src) {
        if constexpr (krInternal::kFallibleElem<T>) {
            krInternal::exchangeElems(at(dst), at(src));
        } else {
            at(dst) = at(src);
        }
    }

    KRI_INLINE void placeCursor(unsigned int i) { this->cur_.set(i, &at(i)); }

    KRI_INLINE void nullCursor() { this->cur_.clear(); }

    // Places the cursor at index, or nulls it when the list array is empty.
    void placeKept(unsigned int index);

    unsigned char initialised_;
    KR_LList<Record> blocks_;  // one record per block, in index order
    T** directory_;            // directory_[b] is block b; dirCapacity_ entries allocated
    unsigned int dirCapacity_;
    unsigned int numBlocks_;  // always blocksFor(numElems_)
    unsigned int blockSize_;
    unsigned int shift_;  // log2 of blockSize_ when pow2_ is set
    unsigned char pow2_;
    unsigned char rawCopy_;
};

// ---------------------------------------------------------------------------------------------

#pragma push_macro("KRI_UNIT")
#undef KRI_UNIT
#define KRI_UNIT "krcore/include/kr_vcarray_impl"

// --- KR_VCArray ---

template <class T>
KR_VCArray<T>::KR_VCArray(unsigned int n, unsigned int blockSize, unsigned char rawCopy)
    : initialised_(0),
      directory_(nullptr),
      dirCapacity_(0),
      numBlocks_(0),
      blockSize_(1),
      shift_(0),
      pow2_(1),
      rawCopy_(0) {
    krInternal::clearUserError();
    initDataMembers(n, blockSize, rawCopy);
}

template <class T>
KR_VCArray<T>::KR_VCArray(const KR_VCArray<T>& other) : KR_VCArray(0, other.blockSize_, 0) {
    if (initialised_) *this = other;
}

template <class T>
KR_VCArray<T>::~KR_VCArray() {
    cleanupDataMembers();
}

template <class T>
KR_VCArray<T>& KR_VCArray<T>::operator=(const KR_VCArray<T>& src) {
    krInternal::clearUserError();
    if (&src == this) return *this;
    if (!initialised_ || !src.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return *this;
    }
    unsigned int n = src.numElems_;
    unsigned int old = this->numElems_;
    KR_VCArray<T>& from = const_cast<KR_VCArray<T>&>(src);
    // Copies that may fail are made into a side block before anything changes.
    T* copies = nullptr;
    if (krInternal::kFallibleElem<T> && n > 0) {
        copies = krInternal::newArray<T>(n);
        bool arrived = copies != nullptr;
        for (unsigned int i = 0; arrived && i < n; ++i)
            arrived = KR_ElemCopy<T>::copy(copies[i], from.at(i));
        if (!arrived) {
            delete[] copies;
            KRI_FAIL(KR_RET_ERR_MEM);
            return *this;
        }
    }
    if (n > old && KRI_FAILED(growAtEnd(n - old))) {
        delete[] copies;
        return *this;
    }
    rawCopy_ = src.rawCopy_;
    for (unsigned int i = 0; i < n; ++i) {
        if (copies != nullptr) {
            krInternal::exchangeElems(at(i), copies[i]);
        } else {
            at(i) = from.at(i);
        }
    }
    delete[] copies;
    if (n < old) {
        clearUsed(n, old);
        this->numElems_ = n;
        releaseBlocks(blocksFor(n));
    }
    if (n != old) {
        placeKept(this->cur_.elem != nullptr && this->cur_.index < n ? this->cur_.index : 0);
    }
    return *this;
}

template <class T>
unsigned char KR_VCArray<T>::operator==(const KR_VCArray<T>& other) const {
    krInternal::clearUserError();
    if (!initialised_ || !other.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    if (this->numElems_ != other.numElems_) return 0;
    KR_VCArray<T>& self = const_cast<KR_VCArray<T>&>(*this);
    KR_VCArray<T>& them = const_cast<KR_VCArray<T>&>(other);
    for (unsigned int i = 0; i < this->numElems_; ++i) {
        if (!(self.at(i) == them.at(i))) return 0;
    }
    return 1;
}

template <class T>
T& KR_VCArray<T>::operator[](unsigned int i) {
    krInternal::clearUserError();
    if (initialised_ && i < this->numElems_) return at(i);
    if (!initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return krInternal::nullRef<T>();
    }
    KRI_MSG("KR_VCArray: element access", KR_msg(0, 3), static_cast<int>(i), 0,
            static_cast<int>(this->numElems_ - 1));
    return krInternal::nullRef<T>();
}

template <class T>
KR_RET_STATUS KR_VCArray<T>::insElems(KR_INS_METHOD method,
                                      unsigned int index,
                                      unsigned int count) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (count == 0) return KR_RET_FALSE;
    unsigned int old = this->numElems_;
    unsigned int cursorIndex = this->cur_.elem != nullptr ? this->cur_.index : 0;
    if (old == 0) {
        KR_RET_STATUS st = growAtEnd(count);
        if (KRI_FAILED(st)) return st;
        placeKept(0);
        return KR_RET_TRUE;
    }
    if (index >= old) {
        index = old - 1;
        method = KR_INS_AFTER;
    }
    unsigned int split = method != KR_INS_BEFORE ? index + 1 : index;
    KR_RET_STATUS st = growAtEnd(count);
    if (KRI_FAILED(st)) return st;
    if (split < old) {
        for (unsigned int k = old; k > split; --k)
            moveElem(k - 1 + count, k - 1);
        clearUsed(split, old - split < count ? old : split + count);
    }
    placeKept(cursorIndex);
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_VCArray<T>::delElems(unsigned int index, unsigned int count) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    unsigned int n = this->numElems_;
    if (count == 0 || index >= n) return KR_RET_FALSE;
    if (count > n - index) count = n - index;
    for (unsigned int k = index; k + count < n; ++k)
        moveElem(k, k + count);
    // Slots past the end are kept clear, so that growing into them needs no work.
    clearUsed(n - count, n);
    unsigned int kept = krInternal::keptIndex(this->cur_, n - count);
    this->numElems_ = n - count;
    releaseBlocks(blocksFor(this->numElems_));
    placeKept(kept);
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_VCArray<T>::appendElem(T elem) {
    krInternal::clearUserError();
    unsigned int n = this->numElems_;
    KR_RET_STATUS st = insElems(KR_INS_AFTER, n == 0 ? 0 : n - 1, 1);
    if (KRI_FAILED(st)) return st;
    krInternal::takeElem(at(this->numElems_ - 1), elem);
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_VCArray<T>::preappendElem(T elem) {
    krInternal::clearUserError();
    KR_RET_STATUS st = insElems(KR_INS_BEFORE, 0, 1);
    if (KRI_FAILED(st)) return st;
    krInternal::takeElem(at(0), elem);
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_VCArray<T>::delAll() {
    return delElems(0, this->numElems_);
}

template <class T>
KR_RET_STATUS KR_VCArray<T>::delCurElem(unsigned char moveNext) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (this->cur_.elem == nullptr) return KR_RET_FALSE;
    KR_RET_STATUS st = delElems(this->cur_.index, 1);
    if (KRI_FAILED(st)) return st;
    if (moveNext) setCurNext();
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_VCArray<T>::setCurNext() {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (this->cur_.elem == nullptr) return KR_RET_FALSE;
    unsigned int next = this->cur_.index + 1;
    if (next >= this->numElems_) {
        nullCursor();
        return KR_RET_FALSE;
    }
    // Within a block the next element is the neighbour in memory.
    if ((next % blockSize_) != 0) {
        this->cur_.set(next, this->cur_.elem + 1);
    } else {
        placeCursor(next);
    }
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_VCArray<T>::initDataMembers(unsigned int n,
                                             unsigned int blockSize,
                                             unsigned char rawCopy) {
    initialised_ = 0;
    directory_ = nullptr;
    dirCapacity_ = 0;
    numBlocks_ = 0;
    this->numElems_ = 0;
    nullCursor();
    blockSize_ = blockSize == 0 ? 1 : blockSize;
    pow2_ = (blockSize_ & (blockSize_ - 1)) == 0;
    shift_ = 0;
    while ((1u << shift_) < blockSize_ && shift_ < 31)
        ++shift_;
    // rawCopy decides how the first blocks are cleared; it is kept only on success.
    rawCopy_ = rawCopy;
    if (n > 0 && KRI_FAILED(growAtEnd(n))) {
        rawCopy_ = 0;
        krInternal::freeBlock(directory_);
        directory_ = nullptr;
        dirCapacity_ = 0;
        return KR_RET_ERR_MEM;
    }
    initialised_ = 1;
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_VCArray<T>::cleanupDataMembers() {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    releaseBlocks(0);
    krInternal::freeBlock(directory_);
    directory_ = nullptr;
    dirCapacity_ = 0;
    this->numElems_ = 0;
    nullCursor();
    rawCopy_ = 0;
    initialised_ = 0;
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_VCArray<T>::growAtEnd(unsigned int count) {
    unsigned int old = this->numElems_;
    if (count > UINT_MAX - old) return KRI_FAIL(KR_RET_ERR_MEM);
    unsigned int needed = blocksFor(old + count);
    unsigned int had = numBlocks_;
    if (needed > dirCapacity_) {
        // The directory doubles, so that block-by-block growth stays linear overall.
        unsigned int capacity = dirCapacity_ < 4 ? 4 : dirCapacity_;
        while (capacity < needed)
            capacity = capacity > UINT_MAX / 2 ? needed : capacity * 2;
        void* grown =
                krInternal::reallocBlock(directory_, static_cast<size_t>(capacity) * sizeof(T*));
        if (grown == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
        directory_ = static_cast<T**>(grown);
        dirCapacity_ = capacity;
    }
    for (unsigned int b = had; b < needed; ++b) {
        T* block = krInternal::newArray<T>(blockSize_);
        if (block == nullptr) {
            releaseBlocks(had);
            return KRI_FAIL(KR_RET_ERR_MEM);
        }
        krInternal::clearFresh(block, blockSize_, rawCopy_);
        Record record;
        record.elems = block;
        record.firstIndex = b * blockSize_;
        KR_RET_STATUS st = blocks_.appendElem(record);
        if (KRI_FAILED(st)) {
            delete[] block;
            releaseBlocks(had);
            return st;
        }
        directory_[b] = block;
        numBlocks_ = b + 1;
    }
    this->numElems_ = old + count;
    return KR_RET_TRUE;
}

template <class T>
void KR_VCArray<T>::releaseBlocks(unsigned int keep) {
    while (numBlocks_ > keep) {
        --numBlocks_;
        delete[] directory_[numBlocks_];
        directory_[numBlocks_] = nullptr;
        blocks_.setCurLast();
        blocks_.delCurElem(0);
    }
}

template <class T>
void KR_VCArray<T>::clearUsed(unsigned int from, unsigned int to) {
    for (unsigned int i = from; i < to; ++i)
        krInternal::clearUsed(&at(i), 1, rawCopy_);
}

template <class T>
void KR_VCArray<T>::placeKept(unsigned int index) {
    if (this->numElems_ == 0) {
        nullCursor();
    } else {
        placeCursor(index);
    }
}

#pragma pop_macro("KRI_UNIT")

namespace krInternal {

// The storage of the stack and queue adapters: a fixed-capacity KR_Array or a growable
// KR_VCArray, chosen for life by the constructor. The adapter owns the storage object and
// releases it with release(). The holder reports nothing itself, so that the adapter reports
// under its own name.
template <class T>
struct AdapterStorage {
    // KR_RET_ERR_MEM when the storage object could not be allocated (for the adapter to
    // report); KR_RET_ERR_POBJ when its own construction failed (it has reported).
    KRI_INLINE KR_RET_STATUS makeFixed(unsigned int n, unsigned char rawCopy) {
        growable = 0;
        return make(array, n, rawCopy);
    }

    KRI_INLINE KR_RET_STATUS makeGrowable(unsigned int a, unsigned int b, unsigned char rawCopy) {
        growable = 1;
        return make(vcArray, a, b, rawCopy);
    }

    // A copy of other's storage object, with make's statuses; a copy that failed inside has
    // reported and is not kept.
    KRI_INLINE KR_RET_STATUS copyOf(const AdapterStorage<T>& other) {
        growable = other.growable;
        KR_RET_STATUS st = growable ? make(vcArray, *other.vcArray) : make(array, *other.array);
        // A copy that came out short lost an allocation or an element copy, and has reported.
        if (st == KR_RET_TRUE && capacity() != other.capacity()) {
            release();
            return KR_RET_ERR_POBJ;
        }
        return st;
    }

    KRI_INLINE void release() {
        delete array;
        delete vcArray;
        array = nullptr;
        vcArray = nullptr;
    }

    // The storage of the current mode exists.
    KRI_INLINE bool exists() const { return growable ? vcArray != nullptr : array != nullptr; }

    KRI_INLINE unsigned int capacity() const {
        return growable ? vcArray->numElems() : array->numElems();
    }

    KRI_INLINE T& slot(unsigned int i) { return growable ? vcArray->at(i) : (*array)[i]; }

    template <class S, class... Args>
    KRI_INLINE static KR_RET_STATUS make(S*& storage, const Args&... args) {
        storage = newObject<S>(args...);
        if (storage == nullptr) return KR_RET_ERR_MEM;
        if (storage->objIsEnabled()) return KR_RET_TRUE;
        delete storage;
        storage = nullptr;
        return KR_RET_ERR_POBJ;
    }

    KR_Array<T>* array = nullptr;      // storage in fixed mode, else null
    KR_VCArray<T>* vcArray = nullptr;  // storage in growable mode, else null
    unsigned char growable = 0;
};

}  // namespace krInternal

extern template struct KR_VCARR_LLIST_REC<KR_Command*>;
extern template class KR_API KR_Container<KR_VCARR_LLIST_REC<KR_Command*>>;
extern template class KR_API KR_OrdContainer<KR_VCARR_LLIST_REC<KR_Command*>>;
extern template class KR_API KR_I_Iterator<KR_VCARR_LLIST_REC<KR_Command*>>;
extern template class KR_API KR_IndContainer<KR_VCARR_LLIST_REC<KR_Command*>>;
extern template class KR_API KR_LNode<KR_VCARR_LLIST_REC<KR_Command*>>;
extern template class KR_API KR_LList<KR_VCARR_LLIST_REC<KR_Command*>>;
extern template class KR_API KR_VCArray<KR_Command*>;

#include "kr_macros_end.h"

#endif  // KRCORE_KR_VCARRAY_IMPL_H
