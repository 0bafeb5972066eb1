// kr_container.h — the interfaces that every container of the library implements.
// KR_Container fixes the set operations, KR_OrdContainer the indexed sequence with default
// bodies for bulk add and remove, search, reverse and swap, and KR_IndContainer joins a sequence
// with the built-in cursor of KR_I_Iterator (kr_iterator_impl.h). Containers hold their
// elements by value: an element type needs a default constructor, assignment and operator==.
#ifndef KRCORE_KR_CONTAINER_H
#define KRCORE_KR_CONTAINER_H

#include <stdint.h>
#include <string.h>

#include <type_traits>
#include <utility>

#include "kr_alloc.h"
#include "kr_base.h"
#include "kr_globals.h"
#include "kr_iterator_impl.h"
#include "kr_reporter.h"

// KRI_ macros for this header only, taken back by kr_macros_end.h at its end.
#include "kr_macros_begin.h"

// Element types that the library instantiates its containers for (kr_instances.cpp) before
// they are defined.
class KR_Command;

// Where an insertion goes relative to the given index. Operations test only for zero, except
// KR_Array::insElems with grow zero, which takes exactly KR_INS_AFTER as "after".
enum KR_INS_METHOD { KR_INS_BEFORE = 0, KR_INS_AFTER = 1 };

// KR_ElemCopy — how the containers copy an element, and whether the copy arrived. The primary
// template assigns and trusts the result. An element type that owns memory, and that answers a
// failed copy with its state instead of an exception, specialises it; the containers then answer
// KR_RET_ERR_MEM and keep their old elements instead of holding a half copy. Such a type must also
// move (move construction and move assignment) without allocating, and assigning it a
// default-constructed value must never fail: the containers move and clear elements in place.
//
//   template <>
//   struct KR_ElemCopy<MyText> {
//       static constexpr bool kMayFail = true;
//       static bool copy(MyText& dst, const MyText& src) {
//           dst = src;
//           return dst.size() == src.size();
//       }
//   };
template <class T>
struct KR_ElemCopy {
    // True when copy can answer false.
    static constexpr bool kMayFail = false;

    // Assigns src to dst; false when the copy did not arrive (dst may then hold anything that
    // its own assignment leaves after a failure).
    static bool copy(T& dst, const T& src) {
        dst = src;
        return true;
    }
};

namespace krInternal {

// True when r is the KR_NULL_PTR block that failed accessors return; nothing may be written
// through such a reference.
template <class T>
inline bool isNullRef(const T& r) {
    return static_cast<const void*>(&r) == static_cast<const void*>(&KR_NULL_PTR);
}

// The rules that KR_Array and KR_VCArray share. Their cursor is null exactly when its element
// pointer is, and it keeps its index across a change of length.

// The index the cursor keeps across a change to length n: its own (0 when null), clamped.
template <class T>
KRI_INLINE unsigned int keptIndex(const KR_IteratorElem<T>& cur, unsigned int n) {
    unsigned int index = cur.elem != nullptr ? cur.index : 0;
    if (n <= index) index = n == 0 ? 0 : n - 1;
    return index;
}

// Byte copies and zero-filling apply only to element types that survive them.
template <class T>
constexpr bool kPlainElem = std::is_trivially_copyable<T>::value;

// True when copying a T can fail: such elements are moved, never copied, wherever a container
// only rearranges its own elements.
template <class T>
constexpr bool kFallibleElem = KR_ElemCopy<T>::kMayFail;

// Exchanges two elements. Element types whose copy may fail move without failing.
template <class T>
KRI_INLINE void exchangeElems(T& a, T& b) {
    using std::swap;
    swap(a, b);
}

// Gives a slot the value of an argument that the operation received by value (its own copy):
// an element whose copy may fail hands its contents over, so nothing can fail here.
template <class T>
KRI_INLINE void takeElem(T& slot, T& value) {
    if constexpr (kFallibleElem<T>) {
        exchangeElems(slot, value);
    } else {
        slot = value;
    }
}

// n copies of src into dst (blocks that do not overlap); raw copies bytes of plain elements.
// False when an element copy did not arrive.
template <class T>
KRI_INLINE bool copyElems(T* dst, const T* src, size_t n, bool raw) {
    if constexpr (kPlainElem<T>) {
        if (raw) {
            if (n > 0) {
                memcpy(static_cast<void*>(dst), static_cast<const void*>(src), n * sizeof(T));
            }
            return true;
        }
    }
    for (size_t k = 0; k < n; ++k) {
        if (!KR_ElemCopy<T>::copy(dst[k], src[k])) return false;
    }
    return true;
}

// Carries n elements from an old block that is about to be released into a new one: bytes for
// plain elements in raw mode, moves for elements whose copy may fail (so nothing can fail),
// assignment otherwise.
template <class T>
KRI_INLINE void relocateElems(T* dst, T* src, size_t n, bool raw) {
    if constexpr (kPlainElem<T>) {
        if (raw) {
            if (n > 0) {
                memcpy(static_cast<void*>(dst), static_cast<const void*>(src), n * sizeof(T));
            }
            return;
        }
    }
    for (size_t k = 0; k < n; ++k) {
        if constexpr (kFallibleElem<T>) {
            exchangeElems(dst[k], src[k]);
        } else {
            dst[k] = src[k];
        }
    }
}

// The cursor operations of the arrays (KR_Array and KR_VCArray), written once. C is the
// container: a friend that gives placeCursor(i), nullCursor() and kUnit, its report name. Its
// cursor is null exactly when the element pointer is. A container that is not initialised is
// reported under C's name and answers KR_RET_ERR_POBJ (6, read as true, where the answer is an
// unsigned char).
template <class C, class T>
struct ArrayCursor {
    static KRI_INLINE KR_RET_STATUS notReady() {
        return failAt(KR_RET_ERR_POBJ, C::kUnit, __LINE__);
    }

    static KRI_INLINE unsigned char isNull(const C& c) {
        return !c.initialised_ || c.cur_.elem == nullptr;
    }

    // Whether the cursor stands on element i.
    static KRI_INLINE unsigned char isAt(C& c, unsigned int i) {
        clearUserError();
        if (!c.initialised_) return static_cast<unsigned char>(notReady());
        return c.cur_.elem != nullptr && c.numElems_ > 0 && c.cur_.index == i;
    }

    static KRI_INLINE KR_RET_STATUS setIndex(C& c, unsigned int i) {
        clearUserError();
        if (!c.initialised_) return notReady();
        if (i >= c.numElems_) {
            c.nullCursor();
            return KR_RET_FALSE;
        }
        c.placeCursor(i);
        return KR_RET_TRUE;
    }

    // Steps by one (step is +1 or -1 as an unsigned); off either end to an index that does not
    // exist, which nulls the cursor and answers KR_RET_FALSE.
    static KRI_INLINE KR_RET_STATUS step(C& c, unsigned int step) {
        clearUserError();
        if (!c.initialised_) return notReady();
        return c.cur_.elem == nullptr ? KR_RET_FALSE : setIndex(c, c.cur_.index + step);
    }

    static KRI_INLINE KR_RET_STATUS getIndex(C& c, unsigned int& index) {
        clearUserError();
        if (!c.initialised_) return notReady();
        index = c.cur_.elem != nullptr ? c.cur_.index : 0;
        return c.cur_.elem != nullptr ? KR_RET_TRUE : KR_RET_FALSE;
    }

    static KRI_INLINE KR_RET_STATUS getElem(C& c, T** elem) {
        clearUserError();
        if (!c.initialised_) return notReady();
        if (elem == nullptr) return failAt(KR_RET_ERR_ARG, C::kUnit, __LINE__);
        *elem = c.cur_.elem;
        return *elem == nullptr ? KR_RET_FALSE : KR_RET_TRUE;
    }

    // Gives the current element the value of a by-value argument.
    static KRI_INLINE KR_RET_STATUS setElem(C& c, T& elem) {
        clearUserError();
        if (!c.initialised_) return notReady();
        if (c.cur_.elem == nullptr) return KR_RET_FALSE;
        takeElem(*c.cur_.elem, elem);
        return KR_RET_TRUE;
    }

    static KRI_INLINE KR_RET_STATUS find(C& c, const T& elem) {
        clearUserError();
        if (!c.initialised_) return notReady();
        return c.walkToElem(elem);
    }
};

// Clears n slots fresh from array-new: zeros in raw mode and for types whose default
// construction leaves them undetermined; other types keep their default value.
template <class T>
KRI_INLINE void clearFresh(T* slots, size_t n, unsigned char rawCopy) {
    if (n == 0) return;
    if constexpr (kPlainElem<T>) {
        if (rawCopy || std::is_trivially_default_constructible<T>::value) {
            memset(static_cast<void*>(slots), 0, n * sizeof(T));
        }
    } else if constexpr (std::is_trivially_default_constructible<T>::value) {
        for (size_t k = 0; k < n; ++k)
            slots[k] = T();
    }
}

// Clears n slots that held elements: zeros in raw mode, the default value otherwise.
template <class T>
KRI_INLINE void clearUsed(T* slots, size_t n, unsigned char rawCopy) {
    if (n == 0) return;
    if constexpr (kPlainElem<T>) {
        if (rawCopy) {
            memset(static_cast<void*>(slots), 0, n * sizeof(T));
            return;
        }
    }
    for (size_t k = 0; k < n; ++k)
        slots[k] = T();
}

}  // namespace krInternal

// KR_Container — an unordered collection. numElems() is the count of elements held.
template <class T>
class KR_Container : public KR_KorvaneClass {
public:
    KRI_INLINE KR_Container() : numElems_(0) {}

    KRI_INLINE KR_Container(const KR_Container<T>& other)
        : KR_KorvaneClass(other), numElems_(other.numElems_) {}

    KRI_INLINE ~KR_Container() override { numElems_ = 0; }

    KRI_INLINE KR_Container<T>& operator=(const KR_Container<T>& other) {
        numElems_ = other.numElems_;
        return *this;
    }

    // 1 when an element equal to elem is held.
    virtual unsigned char hasElem(T elem) = 0;
    virtual KR_RET_STATUS addElem(T elem) = 0;
    // Removes one element equal to elem; KR_RET_FALSE when there is none.
    virtual KR_RET_STATUS delElem(T elem) = 0;
    virtual KR_RET_STATUS delAll() = 0;

    KRI_INLINE unsigned int numElems() const { return numElems_; }

protected:
    unsigned int numElems_;
};

// KR_OrdContainer — a sequence addressed by a zero-based index. The default bodies use only the
// other virtual operations, so they serve every concrete sequence (and walk a linked list from
// its head for every index they touch).
template <class T>
class KR_OrdContainer : public KR_Container<T> {
public:
    KRI_INLINE KR_OrdContainer() {}

    KRI_INLINE KR_OrdContainer(const KR_OrdContainer<T>& other) : KR_Container<T>(other) {}

    KRI_INLINE KR_OrdContainer<T>& operator=(const KR_OrdContainer<T>& other) {
        KR_Container<T>::operator=(other);
        return *this;
    }

    // Inserts one slot with insElems and writes elem into slot index (method zero) or index + 1.
    // The slot is taken from the caller's index, not from where insElems placed the new slot:
    // pass an index inside the container. KR_RET_FALSE when insElems inserted nothing;
    // KR_RET_ERR_ARG (after the element-access report) when the target slot does not exist.
    virtual KR_RET_STATUS insElem(KR_INS_METHOD method, unsigned int index, T elem);
    // Appends other's elements (with allowDuplicates zero only those not held yet, each value
    // once; a slot counted for a repeated value keeps its default value). Inserts all new slots
    // with one insElems call. KR_RET_FALSE when other is this container.
    virtual KR_RET_STATUS addElems(KR_OrdContainer<T>& other, unsigned char allowDuplicates);
    // delElem for each of other's elements; absent values are skipped. KR_RET_FALSE when other
    // is this container.
    virtual KR_RET_STATUS removeElems(KR_OrdContainer<T>& other);
    // index of the first element equal to elem and KR_RET_TRUE; on a miss KR_RET_FALSE with
    // index set to numElems().
    virtual KR_RET_STATUS findElemIndex(T elem, unsigned int& index);
    virtual KR_RET_STATUS reverse();
    // KR_RET_ERR_ARG when either index is not below numElems().
    virtual KR_RET_STATUS swap(unsigned int i, unsigned int j);
    // The element at i; out of range or not initialised: reported, KR_NULL_PTR reference.
    virtual T& operator[](unsigned int i) = 0;
    virtual KR_RET_STATUS insElems(KR_INS_METHOD method,
                                   unsigned int index,
                                   unsigned int count) = 0;
    virtual KR_RET_STATUS delElems(unsigned int index, unsigned int count) = 0;
    virtual KR_RET_STATUS appendElem(T elem) = 0;
    virtual KR_RET_STATUS preappendElem(T elem) = 0;

private:
    // held = hasElem(value), asked with a copy made through KR_ElemCopy; false when that copy
    // did not arrive.
    bool holds(const T& value, bool& held);
    // Exchanges two elements through a temporary copy; elements whose copy may fail are moved.
    static void exchange(T& a, T& b);
    // A new block holding copies of other's elements; false (nothing kept) when the block or a
    // copy did not arrive.
    static bool stage(KR_OrdContainer<T>& other, T*& block);
};

// KR_IndContainer — a sequence with a built-in cursor (the second base). The concrete class
// gives operator[] one body that serves both bases. Every cursor walk that searches (setCur)
// holds the iterator lock, so a walk re-entered from inside itself is reported.
template <class T>
class KR_IndContainer : public KR_OrdContainer<T>, public KR_I_Iterator<T> {
public:
    KRI_INLINE KR_IndContainer() {}

    // The copy starts with a null cursor: a cursor points into its own container's storage.
    KRI_INLINE KR_IndContainer(const KR_IndContainer<T>& other)
        : KR_OrdContainer<T>(other), KR_I_Iterator<T>() {}

    KRI_INLINE KR_IndContainer<T>& operator=(const KR_IndContainer<T>& other) {
        KR_OrdContainer<T>::operator=(other);
        KR_I_Iterator<T>::operator=(other);
        return *this;
    }

    using KR_OrdContainer<T>::operator[];

    // Linear search from index 0; 0 (after a KR_RET_ERR_POBJ report) when not enabled.
    unsigned char hasElem(T elem) override;
    // appendElem; KR_RET_ERR_POBJ when not enabled.
    KR_RET_STATUS addElem(T elem) override;
    // Moves the cursor to the first equal element (setCur) and deletes it with delCurElem(0);
    // KR_RET_FALSE, with a null cursor, when there is none.
    KR_RET_STATUS delElem(T elem) override;
    virtual unsigned char objIsEnabled() = 0;
    // insElem at the cursor's index; a null cursor inserts at index 0.
    virtual KR_RET_STATUS insertElemAtCur(KR_INS_METHOD method, T elem);
    // Deletes the current element; KR_RET_FALSE for a null cursor. Where the cursor goes after
    // the deletion is the concrete class's rule.
    virtual KR_RET_STATUS delCurElem(unsigned char moveNext) = 0;
};

// ---------------------------------------------------------------------------------------------

#pragma push_macro("KRI_UNIT")
#undef KRI_UNIT
#define KRI_UNIT "krcore/include/kr_container"

// --- KR_OrdContainer ---

template <class T>
KR_RET_STATUS KR_OrdContainer<T>::insElem(KR_INS_METHOD method, unsigned int index, T elem) {
    krInternal::clearUserError();
    KR_RET_STATUS st = insElems(method, index, 1);
    if (KRI_FAILED(st)) return st;
    if (st == KR_RET_FALSE) return KR_RET_FALSE;
    T& slot = (*this)[method != KR_INS_BEFORE ? index + 1 : index];
    // The access has reported the bad index; the shared null block must stay zero.
    if (krInternal::isNullRef(slot)) return KR_RET_ERR_ARG;
    krInternal::takeElem(slot, elem);
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_OrdContainer<T>::addElems(KR_OrdContainer<T>& other,
                                           unsigned char allowDuplicates) {
    krInternal::clearUserError();
    if (&other == this) return KR_RET_FALSE;
    unsigned int otherCount = other.numElems();
    unsigned int count = 0;
    bool held = false;
    for (unsigned int i = 0; i < otherCount; ++i) {
        if (!allowDuplicates && !holds(other[i], held)) return KRI_FAIL(KR_RET_ERR_MEM);
        if (allowDuplicates || !held) ++count;
    }
    // Elements whose copy may fail are copied before the container changes (with the copies
    // that the second pass asks hasElem with), so that a copy that does not arrive leaves the
    // container as it was; the new slots then take them over.
    T* values = nullptr;
    T* probes = nullptr;
    if constexpr (krInternal::kFallibleElem<T>) {
        bool arrived = otherCount == 0 || stage(other, values);
        if (arrived && !allowDuplicates && otherCount > 0) arrived = stage(other, probes);
        if (!arrived) {
            delete[] values;
            return KRI_FAIL(KR_RET_ERR_MEM);
        }
    }
    unsigned int first = this->numElems_;
    // After the last element; the linked list, unlike the arrays, does not move an index past
    // its end to the end. A count of 0 answers KR_RET_FALSE, which is not a failure.
    KR_RET_STATUS st = insElems(KR_INS_AFTER, first == 0 ? 0 : first - 1, count);
    unsigned int next = first;
    if (!KRI_FAILED(st) && this->numElems_ >= first + count) {
        for (unsigned int i = 0; i < otherCount && next < first + count; ++i) {
            if constexpr (krInternal::kFallibleElem<T>) {
                if (!allowDuplicates && this->hasElem(static_cast<T&&>(probes[i]))) continue;
                krInternal::takeElem((*this)[next++], values[i]);
            } else {
                if (!allowDuplicates && this->hasElem(other[i])) continue;
                (*this)[next++] = other[i];
            }
        }
    }
    delete[] values;
    delete[] probes;
    if (KRI_FAILED(st)) return st;
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_OrdContainer<T>::removeElems(KR_OrdContainer<T>& other) {
    krInternal::clearUserError();
    if (&other == this) return KR_RET_FALSE;
    for (unsigned int i = 0; i < other.numElems(); ++i) {
        T value;
        if (!KR_ElemCopy<T>::copy(value, other[i])) return KRI_FAIL(KR_RET_ERR_MEM);
        KR_RET_STATUS st = this->delElem(static_cast<T&&>(value));
        if (KRI_FAILED(st)) return st;
    }
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_OrdContainer<T>::findElemIndex(T elem, unsigned int& index) {
    krInternal::clearUserError();
    index = this->numElems_;
    for (unsigned int i = 0; i < this->numElems_; ++i) {
        if ((*this)[i] == elem) {
            index = i;
            return KR_RET_TRUE;
        }
    }
    return KR_RET_FALSE;
}

template <class T>
KR_RET_STATUS KR_OrdContainer<T>::reverse() {
    krInternal::clearUserError();
    unsigned int n = this->numElems_;
    if (n < 2) return KR_RET_TRUE;
    // The middle element of an odd count is exchanged with itself.
    for (unsigned int i = 0; i <= n - 1 - i; ++i)
        exchange((*this)[i], (*this)[n - 1 - i]);
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_OrdContainer<T>::swap(unsigned int i, unsigned int j) {
    krInternal::clearUserError();
    if (i >= this->numElems_ || j >= this->numElems_) return KRI_FAIL(KR_RET_ERR_ARG);
    if (i == j) return KR_RET_TRUE;
    exchange((*this)[i], (*this)[j]);
    return KR_RET_TRUE;
}

template <class T>
bool KR_OrdContainer<T>::holds(const T& value, bool& held) {
    T probe;
    if (!KR_ElemCopy<T>::copy(probe, value)) return false;
    held = this->hasElem(static_cast<T&&>(probe)) != 0;
    return true;
}

template <class T>
bool KR_OrdContainer<T>::stage(KR_OrdContainer<T>& other, T*& block) {
    unsigned int n = other.numElems();
    block = krInternal::newArray<T>(n);
    bool arrived = block != nullptr;
    for (unsigned int i = 0; arrived && i < n; ++i)
        arrived = KR_ElemCopy<T>::copy(block[i], other[i]);
    if (arrived) return true;
    delete[] block;
    block = nullptr;
    return false;
}

template <class T>
void KR_OrdContainer<T>::exchange(T& a, T& b) {
    if constexpr (krInternal::kFallibleElem<T>) {
        krInternal::exchangeElems(a, b);
    } else {
        T tmp = a;
        a = b;
        b = tmp;
    }
}

// The defaults of the cursor side report under the iterator's name.
#undef KRI_UNIT
#define KRI_UNIT "krcore/include/kr_iterator_impl"

// --- KR_IndContainer ---

template <class T>
unsigned char KR_IndContainer<T>::hasElem(T elem) {
    krInternal::clearUserError();
    if (!objIsEnabled()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    for (unsigned int i = 0; i < this->numElems_; ++i) {
        if ((*this)[i] == elem) return 1;
    }
    return 0;
}

template <class T>
KR_RET_STATUS KR_IndContainer<T>::addElem(T elem) {
    krInternal::clearUserError();
    if (!objIsEnabled()) return KRI_FAIL(KR_RET_ERR_POBJ);
    KR_RET_STATUS st = this->appendElem(static_cast<T&&>(elem));
    if (KRI_FAILED(st)) return st;
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_IndContainer<T>::delElem(T elem) {
    krInternal::clearUserError();
    if (!objIsEnabled()) return KRI_FAIL(KR_RET_ERR_POBJ);
    KR_RET_STATUS st = this->setCur(static_cast<T&&>(elem));
    if (KRI_FAILED(st)) return st;
    if (st == KR_RET_FALSE) return KR_RET_FALSE;
    st = delCurElem(0);
    if (KRI_FAILED(st)) return st;
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_IndContainer<T>::insertElemAtCur(KR_INS_METHOD method, T elem) {
    krInternal::clearUserError();
    unsigned int index = 0;
    KR_RET_STATUS st = this->getCurIndex(index);
    if (KRI_FAILED(st)) return st;
    st = this->insElem(method, index, static_cast<T&&>(elem));
    if (KRI_FAILED(st)) return st;
    return st == KR_RET_FALSE ? KR_RET_FALSE : KR_RET_TRUE;
}

#pragma pop_macro("KRI_UNIT")

extern template class KR_API KR_Container<unsigned int>;
extern template class KR_API KR_OrdContainer<unsigned int>;
extern template class KR_API KR_IndContainer<unsigned int>;
extern template class KR_API KR_Container<KR_Command*>;
extern template class KR_API KR_OrdContainer<KR_Command*>;
extern template class KR_API KR_IndContainer<KR_Command*>;

#include "kr_macros_end.h"

#endif  // KRCORE_KR_CONTAINER_H
