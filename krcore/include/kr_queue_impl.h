// kr_queue_impl.h — the queue, a ring over an indexed container.
// KR_Queue keeps its elements in a ring of slots: a fixed-capacity KR_Array, which refuses to
// take more once full, or a growable KR_VCArray, which gains growBy slots at the ring position
// just after the newest element whenever it is full, so that the order of the queue is kept.
#ifndef KRCORE_KR_QUEUE_IMPL_H
#define KRCORE_KR_QUEUE_IMPL_H

#include "kr_array_impl.h"
#include "kr_base.h"
#include "kr_reporter.h"
#include "kr_vcarray_impl.h"

// KRI_ macros for this header only, taken back by kr_macros_end.h at its end.
#include "kr_macros_begin.h"

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

    // Takes the storage made by a constructor: the queue is initialised when it exists.
    void adoptStorage(KR_RET_STATUS made);

    unsigned char initialised_;
    krInternal::AdapterStorage<T> storage_;
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
    adoptStorage(storage_.makeFixed(n, rawCopy));
}

template <class T>
KR_Queue<T>::KR_Queue(unsigned int a, unsigned int b, unsigned int growBy, unsigned char rawCopy) {
    krInternal::clearUserError();
    initDataMembers();
    growBy_ = growBy == 0 ? 1 : growBy;
    adoptStorage(storage_.makeGrowable(a, b, rawCopy));
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
    if (!other.initialised_ || !other.storage_.exists()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return *this;
    }
    krInternal::AdapterStorage<T> copy;
    KR_RET_STATUS st = copy.copyOf(other.storage_);
    if (st == KR_RET_ERR_MEM) KRI_FAIL(st);
    if (KRI_FAILED(st)) return *this;
    storage_.release();
    storage_ = copy;
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
    if (!storage_.exists()) return KRI_FAIL(KR_RET_ERR_GEN);
    KR_RET_STATUS st = KR_RET_TRUE;
    if (count_ == storage_.capacity()) {
        if (!storage_.growable) return KR_RET_FALSE;
        // The new slots go just after the newest element: slot tail - 1, or the last slot when
        // tail has wrapped to 0. Slots from there on move up by growBy, the oldest among them.
        unsigned int position = tail_ != 0 ? tail_ : storage_.capacity();
        st = storage_.vcArray->insElems(KR_INS_AFTER, position - 1, growBy_);
        if (KRI_FAILED(st)) return st;
        if (position - 1 < head_) {
            head_ += growBy_;
            if (head_ >= storage_.capacity()) head_ -= storage_.capacity();
        }
        tail_ = position;
        grown_ = 1;
    }
    if (count_ == 0) {
        head_ = 0;
        tail_ = 0;
    }
    krInternal::takeElem(storage_.slot(tail_), elem);
    if (++tail_ >= storage_.capacity()) tail_ = 0;
    ++count_;
    return st;
}

template <class T>
T& KR_Queue<T>::get() {
    krInternal::clearUserError();
    if (!initialised_ || !storage_.exists() || count_ == 0) return krInternal::nullRef<T>();
    T& taken = storage_.slot(head_);
    if (++head_ >= storage_.capacity()) head_ = 0;
    --count_;
    return taken;
}

template <class T>
unsigned char KR_Queue<T>::isEmpty() {
    krInternal::clearUserError();
    return !initialised_ || !storage_.exists() || count_ == 0;
}

template <class T>
unsigned char KR_Queue<T>::isFull() {
    krInternal::clearUserError();
    if (!initialised_ || !storage_.exists()) return 0;
    return count_ == storage_.capacity();
}

template <class T>
unsigned int KR_Queue<T>::getSize() {
    krInternal::clearUserError();
    if (!initialised_ || !storage_.exists()) return 0;
    return storage_.capacity();
}

template <class T>
unsigned int KR_Queue<T>::getNum() {
    krInternal::clearUserError();
    if (!initialised_ || !storage_.exists()) return 0;
    return count_;
}

template <class T>
KR_RET_STATUS KR_Queue<T>::initDataMembers() {
    initialised_ = 0;
    storage_ = krInternal::AdapterStorage<T>();
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
    storage_.release();
    count_ = 0;
    head_ = 0;
    tail_ = 0;
    initialised_ = 0;
    return KR_RET_TRUE;
}

template <class T>
void KR_Queue<T>::adoptStorage(KR_RET_STATUS made) {
    // A storage object that failed to construct has reported its own failure.
    if (made == KR_RET_ERR_MEM) KRI_FAIL(made);
    initialised_ = made == KR_RET_TRUE;
}

#pragma pop_macro("KRI_UNIT")

#include "kr_macros_end.h"

#endif  // KRCORE_KR_QUEUE_IMPL_H
