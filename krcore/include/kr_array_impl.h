// kr_array_impl.h — the dynamic array, the library's basic sequence.
// KR_Array keeps exactly numElems() elements in one heap block and never holds spare capacity:
// every change of length allocates a block of the new length and copies into it. Appending one
// element at a time therefore copies the whole array each time (quadratic over many appends);
// to add many elements, insert all slots with one insElems call and fill them afterwards.
#ifndef KRCORE_KR_ARRAY_IMPL_H
#define KRCORE_KR_ARRAY_IMPL_H

#include <limits.h>
#include <string.h>

#include <type_traits>

#include "kr_alloc.h"
#include "kr_container.h"
#include "kr_reporter.h"

// KRI_ macros for this header only, taken back by kr_macros_end.h at its end.
#include "kr_macros_begin.h"

// KR_Array — a contiguous block of exactly numElems() elements with a cursor. The array owns
// its block (array-new). With rawCopy set the elements are treated as plain data: moved with raw
// memory copies, and new or vacated slots are zero-filled; with rawCopy zero they are moved by
// assignment and new slots keep their default value. An element type that is not trivially
// copyable is always moved by assignment (and cleared with its default value), whatever rawCopy
// says, so that no element is duplicated or lost by a byte copy. Elements are copied through
// KR_ElemCopy: a failed allocation or an element copy that did not arrive is answered with
// KR_RET_ERR_MEM and leaves the array as it was, and operations that only rearrange elements
// (resizes, insertion, deletion) move elements whose copy may fail instead of copying them.
// After a failed construction every operation answers KR_RET_ERR_POBJ.
template <class T>
class KR_Array : public KR_IndContainer<T> {
public:
    // n default elements (n is a length, not a capacity); rawCopy is kept only when the block
    // could be allocated.
    explicit KR_Array(unsigned int n = 0, unsigned char rawCopy = 0);
    // Starts empty with rawCopy zero and assigns from other.
    KR_Array(const KR_Array<T>& other);
    ~KR_Array() override;
    // Copies src's elements and rawCopy. When the lengths differ the block is replaced and the
    // cursor keeps its index if that index is still inside the new length, else it goes to
    // element 0. The cursor is never copied. A failed allocation or element copy is reported
    // (KR_RET_ERR_MEM) and changes nothing.
    KR_Array<T>& operator=(const KR_Array<T>& src);

    // Takes other's block without allocating, so it never fails; other is left empty. The cursor
    // starts on element 0 (null when empty), as a copy's does.
    KRI_INLINE KR_Array(KR_Array<T>&& other) noexcept : KR_Array(0, 0) {
        *this = static_cast<KR_Array<T>&&>(other);
    }

    // Exchanges the blocks (elements, lengths and rawCopy) of two initialised arrays without
    // allocating: other is left with this array's old elements. Each cursor keeps its index when
    // that index is still inside its new length, else goes to element 0, as after a copy. Either
    // side not initialised: as the copy assignment.
    KR_Array<T>& operator=(KR_Array<T>&& other) noexcept;

    T& operator[](unsigned int i) override;
    // Copies up to count elements of src from srcIndex into this array from dstIndex, never
    // growing this array. Both range ends are clamped to this array's last element: the source end
    // as well, so keep the source range inside src (a range running past src's end stops there).
    // KR_RET_FALSE when count is 0, an index is out of range or nothing is left to copy.
    KR_RET_STATUS subCopy(const KR_Array<T>& src,
                          unsigned int srcIndex,
                          unsigned int dstIndex,
                          unsigned int count);
    // Equal lengths and pairwise equal elements. Walks both cursors under their locks, so both
    // cursors are moved (to null when the arrays are equal).
    unsigned char operator==(KR_Array<T>& other);

    // Inserts count slots before or after index (grow set). An index at or past the end inserts
    // after the last element. The cursor keeps its index (a null cursor goes to element 0), so it
    // may now designate a different element.
    KR_RET_STATUS insElems(KR_INS_METHOD method, unsigned int index, unsigned int count) override;
    // grow zero: shifts the elements from the insertion point count places right within the
    // current length, dropping the tail, and clears the opened gap. Only KR_INS_AFTER itself
    // means "after" here; other non-zero methods insert before.
    KR_RET_STATUS insElems(KR_INS_METHOD method,
                           unsigned int index,
                           unsigned int count,
                           unsigned char grow);
    // Deletes up to count elements from index (shrink set). The cursor keeps its index, clamped to
    // the new last element; a null cursor goes to element 0; an emptied array has a null cursor.
    KR_RET_STATUS delElems(unsigned int index, unsigned int count) override;
    // shrink zero: closes the gap and clears the freed tail; the length stays.
    KR_RET_STATUS delElems(unsigned int index, unsigned int count, unsigned char shrink);
    // Reallocates the whole block for one more element; see the banner for bulk insertion.
    KR_RET_STATUS appendElem(T elem) override;
    KR_RET_STATUS preappendElem(T elem) override;
    // KR_RET_FALSE for an array that is already empty.
    KR_RET_STATUS delAll() override;
    // Afterwards the cursor stands on the element that followed the deleted one (or on the new
    // last element); moveNext advances once more from there.
    KR_RET_STATUS delCurElem(unsigned char moveNext) override;
    // Resizes to exactly n elements, keeping the first min(n, numElems()). The cursor keeps its
    // index clamped to n - 1; a null cursor goes to element 0 (null when n is 0).
    KR_RET_STATUS reallocate(unsigned int n);
    // Moves n elements from src to dst inside the array (overlap-safe); both ranges are clamped
    // to the array. With clear set, the clamped source range is cleared where the clamped
    // destination range does not cover it (nothing when the destination ends on the last slot).
    KR_RET_STATUS memMove(unsigned int dst, unsigned int src, unsigned int n, unsigned char clear);

    KRI_INLINE unsigned char objIsEnabled() override { return initialised_; }

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

    KRI_INLINE KR_RET_STATUS setCurNext() override { return Cursor::step(*this, 1); }

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
    friend struct krInternal::ArrayCursor<KR_Array<T>, T>;
    typedef krInternal::ArrayCursor<KR_Array<T>, T> Cursor;
    static constexpr const char* kUnit = "krcore/include/kr_array_impl";

    static constexpr bool kPlain = krInternal::kPlainElem<T>;

    KR_RET_STATUS initDataMembers(unsigned int n);
    KR_RET_STATUS cleanupDataMembers();

    KRI_INLINE bool rawMode() const { return kPlain && rawCopy_ != 0; }

    // Moves the run of n elements at src to dst inside the block, backwards when backwards is
    // set. Elements whose copy may fail are exchanged, so the slots the run leaves hold the
    // values it overwrote: callers clear them.
    void shiftElems(unsigned int dst, unsigned int src, unsigned int n, bool backwards);
    // Copies the n elements at from over the n slots at to (which may overlap, in this array or
    // another) through KR_ElemCopy; all copies are made before a slot changes.
    KR_RET_STATUS copyOver(T* to, const T* from, unsigned int n);

    KRI_INLINE void clearUsed(T* slots, size_t n) { krInternal::clearUsed(slots, n, rawCopy_); }

    KRI_INLINE void placeCursor(unsigned int i) { this->cur_.set(i, data_ + i); }

    // The reports of operator[] for an index it cannot serve; kept out of line so that a loop of
    // element accesses stays small.
    T& badAccess(unsigned int i);

    KRI_INLINE void nullCursor() { this->cur_.clear(); }

    KRI_INLINE unsigned int keptIndex(unsigned int n) const {
        return krInternal::keptIndex(this->cur_, n);
    }

    // Makes block (n elements, or null for 0) the array's storage and places the cursor at index.
    void adoptBlock(T* block, unsigned int n, unsigned int index);
    // Makes block (n elements, or null for 0) and rawCopy the array's storage without releasing
    // the old block; the cursor follows the rule of operator=.
    void takeBlock(T* block, unsigned int n, unsigned char rawCopy);

    unsigned char initialised_;
    T* data_;  // exactly numElems_ elements; null exactly when numElems_ is 0
    unsigned char rawCopy_;
};

// ---------------------------------------------------------------------------------------------

#pragma push_macro("KRI_UNIT")
#undef KRI_UNIT
#define KRI_UNIT "krcore/include/kr_array_impl"

// --- KR_Array ---

template <class T>
KR_Array<T>::KR_Array(unsigned int n, unsigned char rawCopy)
    : initialised_(0), data_(nullptr), rawCopy_(0) {
    krInternal::clearUserError();
    if (initDataMembers(n) != KR_RET_TRUE) return;
    rawCopy_ = rawCopy;
    krInternal::clearFresh(data_, n, rawCopy_);
}

template <class T>
KR_Array<T>::KR_Array(const KR_Array<T>& other) : KR_Array(0, 0) {
    if (initialised_) *this = other;
}

template <class T>
KR_Array<T>::~KR_Array() {
    cleanupDataMembers();
}

template <class T>
KR_Array<T>& KR_Array<T>::operator=(const KR_Array<T>& src) {
    krInternal::clearUserError();
    if (&src == this) return *this;
    if (!initialised_ || !src.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return *this;
    }
    unsigned int n = src.numElems_;
    bool raw = src.rawCopy_ != 0;
    if (n == this->numElems_ && !krInternal::kFallibleElem<T>) {
        rawCopy_ = src.rawCopy_;
        krInternal::copyElems(data_, src.data_, n, raw);
        return *this;
    }
    // Copies that may fail go to a new block first, so that a failure changes nothing.
    T* block = nullptr;
    if (n > 0) {
        block = krInternal::newArray<T>(n);
        if (block == nullptr) {
            KRI_FAIL(KR_RET_ERR_MEM);
            return *this;
        }
        if (!krInternal::copyElems(block, src.data_, n, raw)) {
            delete[] block;
            KRI_FAIL(KR_RET_ERR_MEM);
            return *this;
        }
    }
    bool keepNull = n == this->numElems_ && this->cur_.elem == nullptr;
    adoptBlock(block, n, this->cur_.elem != nullptr && this->cur_.index < n ? this->cur_.index : 0);
    if (keepNull) nullCursor();
    rawCopy_ = src.rawCopy_;
    return *this;
}

template <class T>
KR_Array<T>& KR_Array<T>::operator=(KR_Array<T>&& other) noexcept {
    krInternal::clearUserError();
    if (&other == this) return *this;
    if (!initialised_ || !other.initialised_) return *this = static_cast<const KR_Array<T>&>(other);
    T* block = data_;
    unsigned int n = this->numElems_;
    unsigned char rawCopy = rawCopy_;
    takeBlock(other.data_, other.numElems_, other.rawCopy_);
    other.takeBlock(block, n, rawCopy);
    return *this;
}

template <class T>
KRI_INLINE T& KR_Array<T>::operator[](unsigned int i) {
    krInternal::clearUserError();
    // An array that is not initialised holds no elements, so one comparison decides.
    if (i < this->numElems_) return data_[i];
    return badAccess(i);
}

template <class T>
T& KR_Array<T>::badAccess(unsigned int i) {
    if (!initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return krInternal::nullRef<T>();
    }
    KRI_MSG("KR_Array: element access", KR_msg(0, 3), static_cast<int>(i), 0,
            static_cast<int>(this->numElems_ - 1));
    return krInternal::nullRef<T>();
}

template <class T>
KR_RET_STATUS KR_Array<T>::subCopy(const KR_Array<T>& src,
                                   unsigned int srcIndex,
                                   unsigned int dstIndex,
                                   unsigned int count) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    unsigned int n = this->numElems_;
    if (count == 0 || srcIndex >= src.numElems_ || dstIndex >= n) return KR_RET_FALSE;
    // Both ends against this array's length; the source end also against src's, since elements
    // past src's end do not exist.
    unsigned long long srcEnd = static_cast<unsigned long long>(srcIndex) + count - 1;
    if (srcEnd > n - 1) srcEnd = n - 1;
    if (srcEnd > src.numElems_ - 1) srcEnd = src.numElems_ - 1;
    unsigned long long dstEnd = static_cast<unsigned long long>(dstIndex) + count - 1;
    if (dstEnd > n - 1) dstEnd = n - 1;
    if (srcEnd < srcIndex) return KR_RET_FALSE;
    unsigned long long moved = srcEnd - srcIndex + 1;
    if (dstEnd - dstIndex + 1 < moved) moved = dstEnd - dstIndex + 1;
    return copyOver(data_ + dstIndex, src.data_ + srcIndex, static_cast<unsigned int>(moved));
}

template <class T>
unsigned char KR_Array<T>::operator==(KR_Array<T>& other) {
    krInternal::clearUserError();
    if (!initialised_ || !other.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    if (&other == this) return 1;
    if (this->numElems_ != other.numElems_) return 0;
    if (this->numElems_ == 0) return 1;
    this->lock();
    other.lock();
    setCurFirst();
    other.setCurFirst();
    unsigned char equal = 1;
    for (;;) {
        T* mine = nullptr;
        T* theirs = nullptr;
        KR_RET_STATUS stMine = getCurElem(&mine);
        KR_RET_STATUS stTheirs = other.getCurElem(&theirs);
        if (KRI_FAILED(stMine) || KRI_FAILED(stTheirs)) {
            equal = 0;
            break;
        }
        if (stMine == KR_RET_FALSE || stTheirs == KR_RET_FALSE) break;
        if (!(*mine == *theirs)) {
            equal = 0;
            break;
        }
        setCurNext();
        other.setCurNext();
    }
    this->unlock();
    other.unlock();
    return equal;
}

template <class T>
KR_RET_STATUS KR_Array<T>::insElems(KR_INS_METHOD method, unsigned int index, unsigned int count) {
    return insElems(method, index, count, 1);
}

template <class T>
KR_RET_STATUS KR_Array<T>::insElems(KR_INS_METHOD method,
                                    unsigned int index,
                                    unsigned int count,
                                    unsigned char grow) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (count == 0) return KR_RET_FALSE;
    unsigned int n = this->numElems_;
    if (n == 0) return grow ? reallocate(count) : KR_RET_FALSE;
    if (index >= n) {
        index = n - 1;
        method = KR_INS_AFTER;
    }
    if (grow) {
        if (count > UINT_MAX - n) return KRI_FAIL(KR_RET_ERR_MEM);
        T* block = krInternal::newArray<T>(static_cast<size_t>(n) + count);
        if (block == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
        unsigned int split = method != KR_INS_BEFORE ? index + 1 : index;
        krInternal::relocateElems(block, data_, split, rawCopy_);
        krInternal::relocateElems(block + split + count, data_ + split, n - split, rawCopy_);
        krInternal::clearFresh(block + split, count, rawCopy_);
        adoptBlock(block, n + count, this->cur_.elem != nullptr ? this->cur_.index : 0);
        return KR_RET_TRUE;
    }
    unsigned int at = index;
    if (method == KR_INS_AFTER) ++at;
    if (count < n && at <= n - count - 1) {
        // The whole opened gap is cleared: a gap wider than the moved run also held elements
        // that fell off the end.
        shiftElems(at + count, at, n - count - at, true);
        clearUsed(data_ + at, count);
    }
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_Array<T>::delElems(unsigned int index, unsigned int count) {
    KR_RET_STATUS st = delElems(index, count, 1);
    if (KRI_FAILED(st)) return st;
    return st == KR_RET_FALSE ? KR_RET_FALSE : KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_Array<T>::delElems(unsigned int index, unsigned int count, unsigned char shrink) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    unsigned int n = this->numElems_;
    if (count == 0 || index >= n) return KR_RET_FALSE;
    if (count > n - index) count = n - index;
    unsigned int rest = n - index - count;
    if (!shrink) {
        if (rest > 0) shiftElems(index, index + count, rest, false);
        clearUsed(data_ + (n - count), count);
        return KR_RET_TRUE;
    }
    // The new block is filled straight from the old one, so a failed allocation leaves the
    // array untouched.
    unsigned int newLength = n - count;
    T* block = nullptr;
    if (newLength > 0) {
        block = krInternal::newArray<T>(newLength);
        if (block == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
        krInternal::relocateElems(block, data_, index, rawCopy_);
        krInternal::relocateElems(block + index, data_ + index + count, rest, rawCopy_);
    }
    adoptBlock(block, newLength, keptIndex(newLength));
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_Array<T>::appendElem(T elem) {
    krInternal::clearUserError();
    unsigned int n = this->numElems_;
    KR_RET_STATUS st = insElems(KR_INS_AFTER, n == 0 ? 0 : n - 1, 1, 1);
    if (KRI_FAILED(st)) return st;
    krInternal::takeElem(data_[this->numElems_ - 1], elem);
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_Array<T>::preappendElem(T elem) {
    krInternal::clearUserError();
    KR_RET_STATUS st = insElems(KR_INS_BEFORE, 0, 1, 1);
    if (KRI_FAILED(st)) return st;
    krInternal::takeElem(data_[0], elem);
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_Array<T>::delAll() {
    return delElems(0, this->numElems_);
}

template <class T>
KR_RET_STATUS KR_Array<T>::delCurElem(unsigned char moveNext) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (this->cur_.elem == nullptr) return KR_RET_FALSE;
    KR_RET_STATUS st = delElems(this->cur_.index, 1, 1);
    if (KRI_FAILED(st)) return st;
    if (moveNext) setCurNext();
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_Array<T>::reallocate(unsigned int n) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (n == this->numElems_) return KR_RET_TRUE;
    T* block = nullptr;
    if (n > 0) {
        block = krInternal::newArray<T>(n);
        if (block == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    }
    unsigned int kept = n < this->numElems_ ? n : this->numElems_;
    krInternal::relocateElems(block, data_, kept, rawCopy_);
    krInternal::clearFresh(block + kept, n - kept, rawCopy_);
    adoptBlock(block, n, keptIndex(n));
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_Array<T>::memMove(unsigned int dst,
                                   unsigned int src,
                                   unsigned int n,
                                   unsigned char clear) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    unsigned int length = this->numElems_;
    if (n == 0) return KR_RET_FALSE;
    if (src >= length || dst >= length) return KR_RET_FALSE;
    unsigned int last = length - 1;
    unsigned int srcEnd = n - 1 > last - src ? last : src + n - 1;
    unsigned int dstEnd = n - 1 > last - dst ? last : dst + n - 1;
    unsigned int moved = srcEnd - src + 1;
    if (dstEnd - dst + 1 < moved) moved = dstEnd - dst + 1;
    // The direction and the slots cleared are decided on the clamped ranges, which may be longer
    // than the run moved: a destination ending on the last element clears nothing.
    bool dstInSource = dst >= src && dst <= srcEnd;
    unsigned int clearFrom = src;
    unsigned int clearCount = 0;
    if (clear) {
        if (dstInSource) {
            clearCount = dst - src;
        } else if (dstEnd >= src && dstEnd <= srcEnd) {
            clearFrom = dstEnd + 1;
            clearCount = srcEnd - dstEnd;
        } else {
            clearCount = srcEnd - src + 1;
        }
    }
    if constexpr (krInternal::kFallibleElem<T>) {
        // Exchanging leaves the overwritten values in the source slots that the run does not
        // land on. Where the clearing does not reach all of them, those slots must keep their
        // own elements, so the run is copied instead, all copies made before a slot changes.
        unsigned int keptFrom = dst > src ? src : (dst + moved > src ? dst + moved : src);
        unsigned int keptEnd = dst > src ? (dst < src + moved ? dst : src + moved) : src + moved;
        bool cleared =
                keptFrom >= keptEnd || (keptFrom >= clearFrom && keptEnd <= clearFrom + clearCount);
        if (!cleared && !rawMode()) {
            KR_RET_STATUS st = copyOver(data_ + dst, data_ + src, moved);
            if (KRI_FAILED(st)) return st;
            clearUsed(data_ + clearFrom, clearCount);
            return KR_RET_TRUE;
        }
    }
    shiftElems(dst, src, moved, dstInSource);
    clearUsed(data_ + clearFrom, clearCount);
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_Array<T>::initDataMembers(unsigned int n) {
    initialised_ = 0;
    data_ = nullptr;
    rawCopy_ = 0;
    this->numElems_ = 0;
    nullCursor();
    if (n > 0) {
        data_ = krInternal::newArray<T>(n);
        if (data_ == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    }
    this->numElems_ = n;
    initialised_ = 1;
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_Array<T>::cleanupDataMembers() {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    delete[] data_;
    data_ = nullptr;
    this->numElems_ = 0;
    nullCursor();
    rawCopy_ = 0;
    initialised_ = 0;
    return KR_RET_TRUE;
}

template <class T>
void KR_Array<T>::shiftElems(unsigned int dst, unsigned int src, unsigned int n, bool backwards) {
    if (rawMode()) {
        memmove(static_cast<void*>(data_ + dst), static_cast<const void*>(data_ + src),
                static_cast<size_t>(n) * sizeof(T));
        return;
    }
    for (unsigned int k = 0; k < n; ++k) {
        unsigned int i = backwards ? n - 1 - k : k;
        if constexpr (krInternal::kFallibleElem<T>) {
            krInternal::exchangeElems(data_[dst + i], data_[src + i]);
        } else {
            data_[dst + i] = data_[src + i];
        }
    }
}

template <class T>
KR_RET_STATUS KR_Array<T>::copyOver(T* to, const T* from, unsigned int n) {
    if (to == from || n == 0) return KR_RET_TRUE;
    if (rawMode()) {
        memmove(static_cast<void*>(to), static_cast<const void*>(from), n * sizeof(T));
        return KR_RET_TRUE;
    }
    if constexpr (krInternal::kFallibleElem<T>) {
        T* copies = krInternal::newArray<T>(n);
        if (copies == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
        if (!krInternal::copyElems(copies, from, n, false)) {
            delete[] copies;
            return KRI_FAIL(KR_RET_ERR_MEM);
        }
        for (unsigned int k = 0; k < n; ++k)
            krInternal::exchangeElems(to[k], copies[k]);
        delete[] copies;
    } else if (from < to) {
        // Overlapping runs within one array: copy backwards when moving right.
        for (unsigned int k = n; k > 0; --k)
            to[k - 1] = from[k - 1];
    } else {
        for (unsigned int k = 0; k < n; ++k)
            to[k] = from[k];
    }
    return KR_RET_TRUE;
}

template <class T>
void KR_Array<T>::adoptBlock(T* block, unsigned int n, unsigned int index) {
    delete[] data_;
    data_ = block;
    this->numElems_ = n;
    if (n > 0) {
        placeCursor(index);
    } else {
        nullCursor();
    }
}

template <class T>
void KR_Array<T>::takeBlock(T* block, unsigned int n, unsigned char rawCopy) {
    bool keepNull = n == this->numElems_ && this->cur_.elem == nullptr;
    unsigned int index = this->cur_.elem != nullptr && this->cur_.index < n ? this->cur_.index : 0;
    data_ = block;
    this->numElems_ = n;
    rawCopy_ = rawCopy;
    if (n > 0 && !keepNull) {
        placeCursor(index);
    } else {
        nullCursor();
    }
}

#pragma pop_macro("KRI_UNIT")

extern template class KR_API KR_Array<unsigned int>;
extern template class KR_API KR_Array<KR_Command*>;

#include "kr_macros_end.h"

#endif  // KRCORE_KR_ARRAY_IMPL_H
