// kr_iterator_impl.h — the built-in cursor of the indexed containers and its lock.
// KR_I_Iterator holds the cursor (KR_IteratorElem) and a locked flag that detects a cursor walk
// re-entered from inside itself on the same thread; it is not a mutex. The containers'
// interfaces (kr_container.h) build on it.
#ifndef KRCORE_KR_ITERATOR_IMPL_H
#define KRCORE_KR_ITERATOR_IMPL_H

#include <stdint.h>

#include "kr_base.h"
#include "kr_reporter.h"

// KRI_ macros for this header only, taken back by kr_macros_end.h at its end.
#include "kr_macros_begin.h"

// KR_IteratorElem — the cursor of an indexed container: the index of the current element and a
// pointer to it. node is the linked list's current node (pointer-sized); the other containers
// keep it zero. Assignment copies all three words.
template <class T>
struct KR_IteratorElem {
    void set(unsigned int newIndex, T* newElem) {
        index = newIndex;
        elem = newElem;
    }

    void clear() {
        index = 0;
        elem = nullptr;
        node = 0;
    }

    unsigned int index = 0;
    T* elem = nullptr;  // null when there is no current element (array and list array)
    uintptr_t node = 0;
};

// KR_I_Iterator — the cursor side of an indexed container. Every operation but the lock is
// given by the concrete container. Copying copies the flags and the cursor words as they are;
// a container that copies re-points the cursor into its own storage.
template <class T>
class KR_I_Iterator : public KR_KorvaneClass {
public:
    KRI_INLINE KR_I_Iterator() { initDataMembers(); }

    KRI_INLINE KR_I_Iterator(const KR_I_Iterator<T>& other)
        : KR_KorvaneClass(other),
          initialised_(other.initialised_),
          locked_(other.locked_),
          cur_(other.cur_) {}

    KRI_INLINE ~KR_I_Iterator() override { cleanupDataMembers(); }

    KRI_INLINE KR_I_Iterator<T>& operator=(const KR_I_Iterator<T>& other) {
        initialised_ = other.initialised_;
        locked_ = other.locked_;
        cur_ = other.cur_;
        return *this;
    }

    virtual T& operator[](unsigned int i) = 0;
    // True also for a container that is not initialised.
    virtual unsigned char curIsNull() = 0;
    virtual unsigned char curAtFirst() = 0;
    virtual unsigned char curAtLast() = 0;
    virtual KR_RET_STATUS setCurFirst() = 0;
    virtual KR_RET_STATUS setCurLast() = 0;
    virtual KR_RET_STATUS setCurPrev() = 0;
    virtual KR_RET_STATUS setCurNext() = 0;
    // A null cursor gives index 0 and KR_RET_FALSE.
    virtual KR_RET_STATUS getCurIndex(unsigned int& index) = 0;
    virtual KR_RET_STATUS setCurIndex(unsigned int index) = 0;
    // *elem is the current element (owned by the container), or null with KR_RET_FALSE.
    virtual KR_RET_STATUS getCurElem(T** elem) = 0;
    // Assigns a new value to the current element.
    virtual KR_RET_STATUS setCurElem(T elem) = 0;
    // Moves the cursor to the first element equal to elem (a locked walk).
    virtual KR_RET_STATUS setCur(T elem) = 0;

    // KR_RET_ERR_ILOCK (reported) when the lock is already held.
    KR_RET_STATUS lock();
    // KR_RET_FALSE when the lock was not held.
    KR_RET_STATUS unlock();

    KRI_INLINE unsigned char isLocked() { return locked_; }

protected:
    KR_RET_STATUS initDataMembers();
    KR_RET_STATUS cleanupDataMembers();
    // The search walk behind every setCur: takes the lock, walks from the first element with
    // setCurNext and releases the lock at its end. A lock that is already held is reported
    // (KR_RET_ERR_ILOCK) but the walk still runs, and it still releases the lock at the end.
    KR_RET_STATUS walkToElem(const T& elem);

    unsigned char initialised_;
    unsigned char locked_;
    KR_IteratorElem<T> cur_;
};

// ---------------------------------------------------------------------------------------------

#pragma push_macro("KRI_UNIT")
#undef KRI_UNIT
#define KRI_UNIT "krcore/include/kr_iterator_impl"

// --- KR_I_Iterator ---

template <class T>
KR_RET_STATUS KR_I_Iterator<T>::lock() {
    krInternal::clearUserError();
    if (locked_) return KRI_FAIL(KR_RET_ERR_ILOCK);
    locked_ = 1;
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_I_Iterator<T>::unlock() {
    krInternal::clearUserError();
    if (!locked_) return KR_RET_FALSE;
    locked_ = 0;
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_I_Iterator<T>::initDataMembers() {
    cur_.clear();
    locked_ = 0;
    initialised_ = 1;
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_I_Iterator<T>::cleanupDataMembers() {
    cur_.clear();
    locked_ = 0;
    initialised_ = 0;
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_I_Iterator<T>::walkToElem(const T& elem) {
    lock();
    setCurFirst();
    for (;;) {
        if (curIsNull()) {
            locked_ = 0;
            return KR_RET_FALSE;
        }
        T* current = nullptr;
        KR_RET_STATUS st = getCurElem(&current);
        if (KRI_FAILED(st)) {
            cur_.clear();
            locked_ = 0;
            return st;
        }
        if (*current == elem) {
            locked_ = 0;
            return KR_RET_TRUE;
        }
        setCurNext();
    }
}

#pragma pop_macro("KRI_UNIT")

class KR_Command;

extern template class KR_API KR_I_Iterator<unsigned int>;
extern template class KR_API KR_I_Iterator<KR_Command*>;

#include "kr_macros_end.h"

#endif  // KRCORE_KR_ITERATOR_IMPL_H
