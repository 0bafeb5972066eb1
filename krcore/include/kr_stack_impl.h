// kr_stack_impl.h — the stack, an adapter over an indexed container.
// KR_Stack stores its elements bottom-up in a fixed-capacity KR_Array, which refuses to take
// more once full, or in a growable KR_VCArray, which gains growBy slots whenever it is full. The
// command undo stack is a KR_Stack<KR_Command*>.
#ifndef KRCORE_KR_STACK_IMPL_H
#define KRCORE_KR_STACK_IMPL_H

#include "kr_array_impl.h"
#include "kr_base.h"
#include "kr_reporter.h"
#include "kr_vcarray_impl.h"

// KRI_ macros for this header only, taken back by kr_macros_end.h at its end.
#include "kr_macros_begin.h"

// KR_Stack — a last-in first-out stack of elements held by value. The stack owns its storage.
// Every slot of the storage exists from construction on (getSize() is the capacity); popped
// slots keep their values until pushed over. pop and peek hand out references into the
// storage, valid until the next push. An empty stack answers pop and peek with the KR_NULL_PTR
// reference without a report: test isEmpty() first. A stack whose storage could not be made
// is not initialised and reports KR_RET_ERR_POBJ from every operation.
template <class T>
class KR_Stack : public KR_KorvaneClass {
public:
    // Fixed mode: capacity n, over KR_Array<T>(n, rawCopy).
    KR_Stack(unsigned int n, unsigned char rawCopy);
    // Growable mode over KR_VCArray<T>(a, b, rawCopy): a initial slots in blocks of b; a full
    // stack gains growBy slots (0 is taken as 1).
    KR_Stack(unsigned int a, unsigned int b, unsigned int growBy, unsigned char rawCopy);
    // A copy of other's storage, elements and mode.
    KR_Stack(const KR_Stack<T>& other);
    ~KR_Stack() override;
    // Replaces this stack by a copy of other; a failed copy is reported and changes nothing.
    KR_Stack<T>& operator=(const KR_Stack<T>& other);

    // KR_RET_FALSE (nothing stored) when a fixed stack is full; a growable one grows, and a
    // failed growth is returned with nothing stored.
    KR_RET_STATUS push(T elem);
    // The top element, removed from the stack.
    T& pop();
    // Element i counted from the bottom (0 = the first pushed), not from the top.
    T& peek(unsigned int i);
    unsigned char isEmpty();
    unsigned char isFull();
    unsigned int getNum();
    // The capacity: the storage's element count.
    unsigned int getSize();

    KRI_INLINE unsigned char objIsEnabled() { return initialised_; }

private:
    KR_RET_STATUS initDataMembers();
    KR_RET_STATUS cleanupDataMembers();

    // Takes the storage made by a constructor: the stack is initialised when it exists.
    void adoptStorage(KR_RET_STATUS made);

    // Initialised with the storage of its mode.
    KRI_INLINE bool usable() const { return initialised_ && storage_.exists(); }

    // The number of elements: num_, or while a hot block is set, what its top says.
    KRI_INLINE unsigned int count() const {
        return hot_ != nullptr ? static_cast<unsigned int>(hotFirst_ + (hotTop_ - hot_)) : num_;
    }

    // Writes the count back into num_ and drops the hot block; every path but the hot one
    // starts here.
    KRI_INLINE void settle() {
        num_ = count();
        cool();
    }

    // Makes the storage block of slot i the hot block, with its top at num_ (growable mode, i
    // below capacity; num_ inside or just past that block).
    KRI_INLINE void warm(unsigned int i) {
        if (!storage_.growable || i >= storage_.capacity()) return;
        unsigned int first = 0;
        unsigned int span = 0;
        hot_ = storage_.vcArray->blockOf(i, first, span);
        hotFirst_ = first;
        hotTop_ = hot_ + (num_ - first);
        hotEnd_ = hot_ + span;
    }

    KRI_INLINE void cool() {
        hot_ = nullptr;
        hotTop_ = nullptr;
        hotEnd_ = nullptr;
        hotFirst_ = 0;
    }

    unsigned char initialised_;
    krInternal::AdapterStorage<T> storage_;
    // Elements on the stack; element i is storage slot i. Exact while there is no hot block;
    // count() gives it at any time.
    unsigned int num_;
    unsigned int growBy_;
    // The growable storage's block around the top of the stack: slot hotFirst_ is hot_[0], the
    // block's slots end at hotEnd_, and hotTop_ is the slot the next push takes. Pushes and pops
    // inside the block move only hotTop_, a pointer that no element written can alias, so a run
    // of them needs no lookup and no write of the count. All null when there is no hot block.
    T* hot_;
    T* hotTop_;
    T* hotEnd_;
    uintptr_t hotFirst_;
};

// ---------------------------------------------------------------------------------------------

#pragma push_macro("KRI_UNIT")
#undef KRI_UNIT
#define KRI_UNIT "krcore/include/kr_stack_impl"

// --- KR_Stack ---

template <class T>
KR_Stack<T>::KR_Stack(unsigned int n, unsigned char rawCopy) {
    krInternal::clearUserError();
    initDataMembers();
    adoptStorage(storage_.makeFixed(n, rawCopy));
}

template <class T>
KR_Stack<T>::KR_Stack(unsigned int a, unsigned int b, unsigned int growBy, unsigned char rawCopy) {
    krInternal::clearUserError();
    initDataMembers();
    growBy_ = growBy == 0 ? 1 : growBy;
    adoptStorage(storage_.makeGrowable(a, b, rawCopy));
}

template <class T>
KR_Stack<T>::KR_Stack(const KR_Stack<T>& other) : KR_KorvaneClass(other) {
    krInternal::clearUserError();
    initDataMembers();
    *this = other;
}

template <class T>
KR_Stack<T>::~KR_Stack() {
    cleanupDataMembers();
}

template <class T>
KR_Stack<T>& KR_Stack<T>::operator=(const KR_Stack<T>& other) {
    krInternal::clearUserError();
    if (&other == this) return *this;
    if (!other.usable()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return *this;
    }
    krInternal::AdapterStorage<T> copy;
    KR_RET_STATUS st = copy.copyOf(other.storage_);
    if (st == KR_RET_ERR_MEM) KRI_FAIL(st);
    if (KRI_FAILED(st)) return *this;
    storage_.release();
    storage_ = copy;
    num_ = other.count();
    cool();
    growBy_ = other.growBy_;
    initialised_ = 1;
    return *this;
}

template <class T>
KRI_INLINE KR_RET_STATUS KR_Stack<T>::push(T elem) {
    krInternal::clearUserError();
    // The common case of the undo stack first: a free slot in the hot block.
    if (hotTop_ != hotEnd_) {
        krInternal::takeElem(*hotTop_, elem);
        ++hotTop_;
        return KR_RET_TRUE;
    }
    settle();
    if (!usable()) return KRI_FAIL(KR_RET_ERR_POBJ);
    KR_RET_STATUS st = KR_RET_TRUE;
    if (num_ == storage_.capacity()) {
        if (!storage_.growable) return KR_RET_FALSE;
        st = storage_.vcArray->insElems(KR_INS_AFTER, num_ == 0 ? 0 : num_ - 1, growBy_);
        if (KRI_FAILED(st)) return st;
    }
    krInternal::takeElem(storage_.slot(num_), elem);
    ++num_;
    warm(num_ - 1);
    return st;
}

template <class T>
KRI_INLINE T& KR_Stack<T>::pop() {
    krInternal::clearUserError();
    if (hotTop_ != hot_) return *--hotTop_;
    settle();
    if (!usable()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return krInternal::nullRef<T>();
    }
    if (num_ == 0) return krInternal::nullRef<T>();
    --num_;
    warm(num_);
    return storage_.slot(num_);
}

template <class T>
T& KR_Stack<T>::peek(unsigned int i) {
    krInternal::clearUserError();
    if (!usable()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return krInternal::nullRef<T>();
    }
    if (i >= count()) return krInternal::nullRef<T>();
    return storage_.slot(i);
}

template <class T>
unsigned char KR_Stack<T>::isEmpty() {
    krInternal::clearUserError();
    if (!usable()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 1;
    }
    return count() == 0;
}

template <class T>
unsigned char KR_Stack<T>::isFull() {
    krInternal::clearUserError();
    if (!usable()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    return count() == storage_.capacity();
}

template <class T>
unsigned int KR_Stack<T>::getNum() {
    krInternal::clearUserError();
    if (!usable()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    return count();
}

template <class T>
unsigned int KR_Stack<T>::getSize() {
    krInternal::clearUserError();
    if (!usable()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    return storage_.capacity();
}

template <class T>
KR_RET_STATUS KR_Stack<T>::initDataMembers() {
    initialised_ = 0;
    storage_ = krInternal::AdapterStorage<T>();
    num_ = 0;
    growBy_ = 0;
    cool();
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_Stack<T>::cleanupDataMembers() {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    storage_.release();
    num_ = 0;
    cool();
    initialised_ = 0;
    return KR_RET_TRUE;
}

template <class T>
void KR_Stack<T>::adoptStorage(KR_RET_STATUS made) {
    // A storage object that failed to construct has reported its own failure.
    if (made == KR_RET_ERR_MEM) KRI_FAIL(made);
    initialised_ = made == KR_RET_TRUE;
}

#pragma pop_macro("KRI_UNIT")

extern template class KR_API KR_Stack<KR_Command*>;

#include "kr_macros_end.h"

#endif  // KRCORE_KR_STACK_IMPL_H
