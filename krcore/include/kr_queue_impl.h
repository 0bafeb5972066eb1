// kr_queue_impl.h — the queue, a ring over an indexed container.
// KR_Queue keeps its elements in a ring of slots: a fixed-capacity KR_Array, which refuses to
// take more once full, or a growable KR_VCArray, which gains growBy slots at the ring position
// just after the newest element whenever it is full, so that the order of the queue is kept.
#ifndef KRCORE_KR_QUEUE_IMPL_H
#define KRCORE_KR_QUEUE_IMPL_H

#include "kr_alloc.h"
#include "kr_array_impl.h"
#include "kr_base.h"
#include "kr_reporter.h"
#include "kr_vcarray_impl.h"

// KR_Queue — a first-in first-out queue of elements held by value. The queue owns its storage.
// get hands out a reference into the storage, valid until the next put; an empty queue answers
// with the KR_NULL_PTR reference without a report: test isEmpty() first. A queue emptied by get
// starts again at slot 0 with its next put.
template <class T>
class KR_Queue : public KR_KorvaneClass {
public:
    // Fixed mode: capacity n, over KR_Array<T>(n, rawCopy).
    KR_Queue(unsigned int n, unsigned char rawCopy);
    // Growable mode over KR_VCArray<T>(a, b, rawCopy): a initial slots in blocks of b; a full
    // queue gains growBy slots (0 is taken as 1).
    KR_Queue(unsigned int a, unsigned int b, unsigned int growBy, unsigned char rawCopy);
    // A copy of other's storage, ring and mode.
    KR_Queue(const KR_Queue<T>& other);
    ~KR_Queue() override;
    // Replaces this queue by a copy of other; a failed copy is reported and changes nothing.
    KR_Queue<T>& operator=(const KR_Queue<T>& other);

    // KR_RET_FALSE (nothing stored) when a fixed queue is full; KR_RET_ERR_GEN when the storage
    // is missing. A failed growth is returned with nothing stored.
    KR_RET_STATUS put(T elem);
    // The oldest element, removed from the queue.
    T& get();
    // These three make no reports; a queue that is not usable is empty and not full.
    unsigned char isEmpty();
    unsigned char isFull();
    unsigned int getSize();
    unsigned int getNum();

    // Set once a growable queue has grown; for callers tuning growBy. No queue operation reads it.
    KRI_INLINE unsigned char hasGrown() { return grown_; }

    KRI_INLINE unsigned char objIsEnabled() { return initialised_; }

private:
    KR_RET_STATUS initDataMembers();
    KR_RET_STATUS cleanupDataMembers();

    KRI_INLINE bool hasStorage() const {
        return growable_ ? vcArray_ != nullptr : array_ != nullptr;
    }

    KRI_INLINE unsigned int capacity() const {
        return growable_ ? vcArray_->numElems() : array_->numElems();
    }

    KRI_INLINE T& slot(unsigned int i) { return growable_ ? vcArray_->at(i) : (*array_)[i]; }

    unsigned char initialised_;
    KR_Array<T>* array_;      // storage in fixed mode, else null
    KR_VCArray<T>* vcArray_;  // storage in growable mode, else null
    unsigned char growable_;
    unsigned int count_;  // queued elements
    unsigned int head_;   // slot of the next element to take
    unsigned int tail_;   // slot where the next element goes
    unsigned int growBy_;
    unsigned char grown_;
};

// ---------------------------------------------------------------------------------------------

#pragma push_macro("KRI_UNIT")
#undef KRI_UNIT
#define KRI_UNIT "krcore/include/kr_queue_impl"

// --- KR_Queue ---

template <class T>
KR_Queue<T>::KR_Queue(unsigned int n, unsigned char rawCopy) {
    krInternal::clearUserError();
    initDataMembers();
    array_ = krInternal::newObject<KR_Array<T>>(n, rawCopy);
    if (array_ == nullptr) {
        KRI_FAIL(KR_RET_ERR_MEM);
        return;
    }
    // The array has reported its own failure.
    if (!array_->objIsEnabled()) {
        delete array_;
        array_ = nullptr;
        return;
    }
    initialised_ = 1;
}

template <class T>
KR_Queue<T>::KR_Queue(unsigned int a, unsigned int b, unsigned int growBy, unsigned char rawCopy) {
    krInternal::clearUserError();
    initDataMembers();
    growable_ = 1;
    growBy_ = growBy == 0 ? 1 : growBy;
    vcArray_ = krInternal::newObject<KR_VCArray<T>>(a, b, rawCopy);
    if (vcArray_ == nullptr) {
        KRI_FAIL(KR_RET_ERR_MEM);
        return;
    }
    if (!vcArray_->objIsEnabled()) {
        delete vcArray_;
        vcArray_ = nullptr;
        return;
    }
    initialised_ = 1;
}

template <class T>
KR_Queue<T>::KR_Queue(const KR_Queue<T>& other) : KR_KorvaneClass(other) {
    krInternal::clearUserError();
    initDataMembers();
    *this = other;
}

template <class T>
KR_Queue<T>::~KR_Queue() {
    cleanupDataMembers();
}

template <class T>
KR_Queue<T>& KR_Queue<T>::operator=(const KR_Queue<T>& other) {
    krInternal::clearUserError();
    if (&other == this) return *this;
    if (!other.initialised_ || !other.hasStorage()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return *this;
    }
    // A storage copy that failed inside has reported and is left with fewer elements.
    KR_Array<T>* array = nullptr;
    KR_VCArray<T>* vcArray = nullptr;
    if (other.growable_) {
        vcArray = krInternal::newObject<KR_VCArray<T>>(*other.vcArray_);
        if (vcArray == nullptr) {
            KRI_FAIL(KR_RET_ERR_MEM);
            return *this;
        }
        if (vcArray->numElems() != other.vcArray_->numElems()) {
            delete vcArray;
            return *this;
        }
    } else {
        array = krInternal::newObject<KR_Array<T>>(*other.array_);
        if (array == nullptr) {
            KRI_FAIL(KR_RET_ERR_MEM);
            return *this;
        }
        if (array->numElems() != other.array_->numElems()) {
            delete array;
            return *this;
        }
    }
    delete array_;
    delete vcArray_;
    array_ = array;
    vcArray_ = vcArray;
    growable_ = other.growable_;
    count_ = other.count_;
    head_ = other.head_;
    tail_ = other.tail_;
    growBy_ = other.growBy_;
    grown_ = other.grown_;
    initialised_ = 1;
    return *this;
}

template <class T>
KR_RET_STATUS KR_Queue<T>::put(T elem) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (!hasStorage()) return KRI_FAIL(KR_RET_ERR_GEN);
    KR_RET_STATUS st = KR_RET_TRUE;
    if (count_ == capacity()) {
        if (!growable_) return KR_RET_FALSE;
        // The new slots go just after the newest element: slot tail - 1, or the last slot when
        // tail has wrapped to 0. Slots from there on move up by growBy, the oldest among them.
        unsigned int position = tail_ != 0 ? tail_ : capacity();
        st = vcArray_->insElems(KR_INS_AFTER, position - 1, growBy_);
        if (KRI_FAILED(st)) return st;
        if (position - 1 < head_) {
            head_ += growBy_;
            if (head_ >= capacity()) head_ -= capacity();
        }
        tail_ = position;
        grown_ = 1;
    }
    if (count_ == 0) {
        head_ = 0;
        tail_ = 0;
    }
    slot(tail_) = elem;
    if (++tail_ >= capacity()) tail_ = 0;
    ++count_;
    return st;
}

template <class T>
T& KR_Queue<T>::get() {
    krInternal::clearUserError();
    if (!initialised_ || !hasStorage() || count_ == 0) return krInternal::nullRef<T>();
    T& taken = slot(head_);
    if (++head_ >= capacity()) head_ = 0;
    --count_;
    return taken;
}

template <class T>
unsigned char KR_Queue<T>::isEmpty() {
    krInternal::clearUserError();
    return !initialised_ || !hasStorage() || count_ == 0;
}

template <class T>
unsigned char KR_Queue<T>::isFull() {
    krInternal::clearUserError();
    if (!initialised_ || !hasStorage()) return 0;
    return count_ == capacity();
}

template <class T>
unsigned int KR_Queue<T>::getSize() {
    krInternal::clearUserError();
    if (!initialised_ || !hasStorage()) return 0;
    return capacity();
}

template <class T>
unsigned int KR_Queue<T>::getNum() {
    krInternal::clearUserError();
    if (!initialised_ || !hasStorage()) return 0;
    return count_;
}

template <class T>
KR_RET_STATUS KR_Queue<T>::initDataMembers() {
    initialised_ = 0;
    array_ = nullptr;
    vcArray_ = nullptr;
    growable_ = 0;
    count_ = 0;
    head_ = 0;
    tail_ = 0;
    growBy_ = 0;
    grown_ = 0;
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_Queue<T>::cleanupDataMembers() {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    delete array_;
    delete vcArray_;
    array_ = nullptr;
    vcArray_ = nullptr;
    count_ = 0;
    head_ = 0;
    tail_ = 0;
    initialised_ = 0;
    return KR_RET_TRUE;
}

#pragma pop_macro("KRI_UNIT")

#endif  // KRCORE_KR_QUEUE_IMPL_H
