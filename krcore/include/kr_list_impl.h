// kr_list_impl.h — the doubly linked list.
// KR_LList keeps each element in its own heap node and implements the indexed container with a
// cursor that holds the current node, so traversal with setCurFirst/setCurNext is linear while
// access by index walks from the head every time. The hash table's buckets and the list array's
// block list are such lists.
#ifndef KRCORE_KR_LIST_IMPL_H
#define KRCORE_KR_LIST_IMPL_H

#include <stdint.h>

#include "kr_alloc.h"
#include "kr_base.h"
#include "kr_container.h"
#include "kr_reporter.h"

// KRI_ macros for this header only, taken back by kr_macros_end.h at its end.
#include "kr_macros_begin.h"

// KR_LNode — one heap node of a KR_LList, holding its element by value. The list links and
// deletes its nodes; a copy of a node copies the element, never the links.
template <class T>
class KR_LNode : public KR_KorvaneClass {
public:
    KRI_INLINE KR_LNode()
        : KR_KorvaneClass(), initialised_(1), elem(), next(nullptr), prev(nullptr) {}

    KRI_INLINE explicit KR_LNode(const T& value)
        : KR_KorvaneClass(), initialised_(1), elem(value), next(nullptr), prev(nullptr) {}

    KRI_INLINE KR_LNode(const KR_LNode<T>& other)
        : KR_KorvaneClass(other), initialised_(1), elem(other.elem), next(nullptr), prev(nullptr) {}

    KRI_INLINE ~KR_LNode() override { initialised_ = 0; }

    KRI_INLINE KR_LNode<T>& operator=(const KR_LNode<T>& other) {
        elem = other.elem;
        return *this;
    }

    KRI_INLINE unsigned char objIsEnabled() { return initialised_; }

private:
    unsigned char initialised_;

public:
    T elem;
    KR_LNode<T>* next;  // null at the tail
    KR_LNode<T>* prev;  // null at the head
};

// KR_LList — a doubly linked list that owns its nodes. The cursor's node word holds the current
// node; the cursor is null exactly when that word is. Two rules differ from the arrays on
// purpose: setCurNext from the tail (and setCurPrev from the head) answers KR_RET_TRUE with a
// null cursor, and an index past the end is refused (KR_RET_FALSE) instead of being moved to the
// end. A failed node allocation, or an element copy that did not arrive (KR_ElemCopy), is
// answered with KR_RET_ERR_MEM and leaves the list as it was.
template <class T>
class KR_LList : public KR_IndContainer<T> {
public:
    KR_LList();
    // Starts empty and assigns from other.
    KR_LList(const KR_LList<T>& other);
    ~KR_LList() override;
    // Copies of src's elements in order, replacing this list's nodes; the cursor becomes null.
    // Either side not initialised, or a failed allocation or element copy: reported, nothing
    // changes.
    KR_LList<T>& operator=(const KR_LList<T>& src);
    // Equal length and pairwise equal elements; the cursors are not moved.
    unsigned char operator==(const KR_LList<T>& other) const;

    // Walks from the head. An empty (or uninitialised) list reports "Linked list is empty", an
    // index past the end "Index i not in [0,n-1]"; both give the KR_NULL_PTR reference.
    T& operator[](unsigned int i) override;

    // Inserts a copy of elem before or after the current node. Before: the cursor moves to the
    // new node and its index grows by one, so it then reads one more than the new node's
    // position. An empty list appends instead; a null cursor on a non-empty list is
    // KR_RET_ERR_CALL.
    KR_RET_STATUS insElemAtCur(KR_INS_METHOD method, T& elem);
    // Links a copy of elem at the tail; the cursor is untouched.
    KR_RET_STATUS appendElem(T elem) override;
    // Links a copy of elem at the head; a cursor keeps designating the same node.
    KR_RET_STATUS preappendElem(T elem) override;
    // Moves the cursor to index and inserts count default elements there with insElemAtCur's
    // rule. An empty list first gets one element whatever the index; KR_RET_FALSE (nothing more
    // inserted, null cursor) when the index does not exist.
    KR_RET_STATUS insElems(KR_INS_METHOD method, unsigned int index, unsigned int count) override;
    // Deletes up to count elements from index; a run that reaches the tail leaves a null cursor.
    KR_RET_STATUS delElems(unsigned int index, unsigned int count) override;
    // KR_RET_FALSE for an empty list.
    KR_RET_STATUS delAll() override;
    // Removes the first node equal to elem. A cursor on that node moves to the following node
    // (same index) or, at the tail, to the preceding one (index - 1); a cursor on a later node
    // keeps its node and its index drops by one.
    KR_RET_STATUS delElem(T elem) override;
    // The cursor goes to the following node with the same index; from the tail to the new tail
    // with index - 1. moveNext then advances once more, or makes the cursor null at the tail.
    KR_RET_STATUS delCurElem(unsigned char moveNext) override;

    KRI_INLINE unsigned char objIsEnabled() override { return initialised_; }

    unsigned char curIsNull() override;
    unsigned char curAtFirst() override;
    unsigned char curAtLast() override;
    // KR_RET_FALSE with a null cursor on an empty list.
    KR_RET_STATUS setCurFirst() override;
    KR_RET_STATUS setCurLast() override;
    KR_RET_STATUS setCurPrev() override;
    // Inlined, with curIsNull and getCurElem, into the caller's walk.
    KR_RET_STATUS setCurNext() override;
    KR_RET_STATUS getCurIndex(unsigned int& index) override;
    // Walks index steps from the head; past the end: null cursor, KR_RET_FALSE.
    KR_RET_STATUS setCurIndex(unsigned int index) override;
    KR_RET_STATUS getCurElem(T** elem) override;
    KR_RET_STATUS setCurElem(T elem) override;
    KR_RET_STATUS setCur(T elem) override;

private:
    typedef KR_LNode<T> Node;

    KR_RET_STATUS initDataMembers();
    KR_RET_STATUS cleanupDataMembers();

    // Links node at the tail; KR_RET_ERR_ARG for a null node.
    KR_RET_STATUS appendNode(Node* node);
    // Links node next to the current node. On an empty list a copy of its element is appended
    // instead and node stays the caller's.
    KR_RET_STATUS insNodeAtCur(KR_INS_METHOD method, Node* node);
    // count default nodes chained through next, or null (after freeing them) on failure.
    static Node* newChain(unsigned int count);
    static void deleteChain(Node* chain);

    KRI_INLINE Node* curNode() const { return reinterpret_cast<Node*>(this->cur_.node); }

    KRI_INLINE void placeCursor(Node* node, unsigned int index) {
        this->cur_.node = reinterpret_cast<uintptr_t>(node);
        this->cur_.set(index, &node->elem);
    }

    KRI_INLINE void nullCursor() { this->cur_.clear(); }

    unsigned char initialised_;
    Node* first_;  // null exactly when numElems_ is 0
    Node* last_;   // null exactly when numElems_ is 0
};

// ---------------------------------------------------------------------------------------------

#pragma push_macro("KRI_UNIT")
#undef KRI_UNIT
#define KRI_UNIT "krcore/include/kr_list_impl"

// --- KR_LList ---

template <class T>
KR_LList<T>::KR_LList() : initialised_(0), first_(nullptr), last_(nullptr) {
    initDataMembers();
}

template <class T>
KR_LList<T>::KR_LList(const KR_LList<T>& other)
    : KR_IndContainer<T>(), initialised_(0), first_(nullptr), last_(nullptr) {
    initDataMembers();
    *this = other;
}

template <class T>
KR_LList<T>::~KR_LList() {
    cleanupDataMembers();
}

template <class T>
KR_LList<T>& KR_LList<T>::operator=(const KR_LList<T>& src) {
    krInternal::clearUserError();
    if (&src == this) return *this;
    if (!initialised_ || !src.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return *this;
    }
    // The copies are made before anything is released, so a failure changes nothing.
    Node* chain = newChain(src.numElems_);
    if (chain == nullptr && src.numElems_ > 0) {
        KRI_FAIL(KR_RET_ERR_MEM);
        return *this;
    }
    Node* node = chain;
    for (const Node* from = src.first_; from != nullptr; from = from->next, node = node->next) {
        if (!KR_ElemCopy<T>::copy(node->elem, from->elem)) {
            deleteChain(chain);
            KRI_FAIL(KR_RET_ERR_MEM);
            return *this;
        }
    }
    deleteChain(first_);
    first_ = nullptr;
    last_ = nullptr;
    this->numElems_ = 0;
    nullCursor();
    while (chain != nullptr) {
        node = chain;
        chain = chain->next;
        appendNode(node);
    }
    return *this;
}

template <class T>
unsigned char KR_LList<T>::operator==(const KR_LList<T>& other) const {
    krInternal::clearUserError();
    if (!initialised_ || !other.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    if (this->numElems_ != other.numElems_) return 0;
    const Node* b = other.first_;
    for (const Node* a = first_; a != nullptr; a = a->next, b = b->next) {
        if (!(a->elem == b->elem)) return 0;
    }
    return 1;
}

template <class T>
T& KR_LList<T>::operator[](unsigned int i) {
    krInternal::clearUserError();
    if (!initialised_ || this->numElems_ == 0) {
        KRI_MSG("KR_LList: element access", "Linked list is empty");
        return krInternal::nullRef<T>();
    }
    if (i >= this->numElems_) {
        KRI_MSG("KR_LList: element access", KR_msg(0, 3), static_cast<int>(i), 0,
                static_cast<int>(this->numElems_ - 1));
        return krInternal::nullRef<T>();
    }
    Node* node = first_;
    for (unsigned int k = 0; k < i; ++k)
        node = node->next;
    return node->elem;
}

template <class T>
KR_RET_STATUS KR_LList<T>::insElemAtCur(KR_INS_METHOD method, T& elem) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (this->numElems_ == 0) {
        T value;
        if (!KR_ElemCopy<T>::copy(value, elem)) return KRI_FAIL(KR_RET_ERR_MEM);
        return appendElem(static_cast<T&&>(value));
    }
    if (curNode() == nullptr) return KRI_FAIL(KR_RET_ERR_CALL);
    Node* node = krInternal::newObject<Node>();
    if (node == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    if (!KR_ElemCopy<T>::copy(node->elem, elem)) {
        delete node;
        return KRI_FAIL(KR_RET_ERR_MEM);
    }
    return insNodeAtCur(method, node);
}

template <class T>
KR_RET_STATUS KR_LList<T>::appendElem(T elem) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    Node* node = krInternal::newObject<Node>();
    if (node == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    krInternal::takeElem(node->elem, elem);
    return appendNode(node);
}

template <class T>
KR_RET_STATUS KR_LList<T>::preappendElem(T elem) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    Node* node = krInternal::newObject<Node>();
    if (node == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    krInternal::takeElem(node->elem, elem);
    node->next = first_;
    if (first_ != nullptr) {
        first_->prev = node;
    } else {
        last_ = node;
    }
    first_ = node;
    ++this->numElems_;
    if (curNode() != nullptr) ++this->cur_.index;
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_LList<T>::insElems(KR_INS_METHOD method, unsigned int index, unsigned int count) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (count == 0) return KR_RET_FALSE;
    bool wasEmpty = this->numElems_ == 0;
    KR_IteratorElem<T> saved = this->cur_;
    if (!wasEmpty && setCurIndex(index) != KR_RET_TRUE) return KR_RET_FALSE;
    // All nodes are made before the first is linked, so a failed allocation changes nothing (the
    // cursor goes back to where it was). An empty list takes more than its first node only for
    // index 0, since any other index does not exist once that node is in.
    unsigned int needed = wasEmpty && index != 0 ? 1 : count;
    Node* chain = newChain(needed);
    if (chain == nullptr) {
        this->cur_ = saved;
        return KRI_FAIL(KR_RET_ERR_MEM);
    }
    if (wasEmpty) {
        Node* node = chain;
        chain = chain->next;
        appendNode(node);
        if (--count == 0) return KR_RET_TRUE;
        if (setCurIndex(index) != KR_RET_TRUE) {
            deleteChain(chain);
            return KR_RET_FALSE;
        }
    }
    while (chain != nullptr) {
        Node* node = chain;
        chain = chain->next;
        node->next = nullptr;
        insNodeAtCur(method, node);
    }
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_LList<T>::delElems(unsigned int index, unsigned int count) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (setCurIndex(index) != KR_RET_TRUE) return KR_RET_FALSE;
    // The flag is set exactly for the tail, which leaves the cursor null and ends the run.
    for (unsigned int k = 0; k < count && curNode() != nullptr; ++k) {
        KR_RET_STATUS st = delCurElem(curAtLast());
        if (KRI_FAILED(st)) return st;
    }
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_LList<T>::delAll() {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (this->numElems_ == 0) return KR_RET_FALSE;
    setCurFirst();
    while (curNode() != nullptr) {
        KR_RET_STATUS st = delCurElem(0);
        if (KRI_FAILED(st)) return st;
    }
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_LList<T>::delElem(T elem) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    Node* current = curNode();
    bool passedCursor = false;
    for (Node* node = first_; node != nullptr; node = node->next) {
        if (!(node->elem == elem)) {
            if (node == current) passedCursor = true;
            continue;
        }
        Node* before = node->prev;
        Node* after = node->next;
        if (before != nullptr) {
            before->next = after;
        } else {
            first_ = after;
        }
        if (after != nullptr) {
            after->prev = before;
        } else {
            last_ = before;
        }
        if (node == current) {
            if (after != nullptr) {
                placeCursor(after, this->cur_.index);
            } else if (before != nullptr) {
                placeCursor(before, this->cur_.index - 1);
            } else {
                nullCursor();
            }
        } else if (current != nullptr && !passedCursor) {
            --this->cur_.index;
        }
        delete node;
        --this->numElems_;
        return KR_RET_TRUE;
    }
    return KR_RET_FALSE;
}

template <class T>
KR_RET_STATUS KR_LList<T>::delCurElem(unsigned char moveNext) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    Node* node = curNode();
    if (node == nullptr) return KR_RET_FALSE;
    unsigned int index = this->cur_.index;
    if (node == first_) {
        first_ = node->next;
        if (first_ != nullptr) {
            first_->prev = nullptr;
            placeCursor(first_, index);
        } else {
            nullCursor();
        }
    } else if (node == last_) {
        last_ = node->prev;
        last_->next = nullptr;
        placeCursor(last_, index - 1);
    } else {
        node->prev->next = node->next;
        node->next->prev = node->prev;
        placeCursor(node->next, index);
    }
    delete node;
    if (--this->numElems_ == 0) {
        first_ = nullptr;
        last_ = nullptr;
        nullCursor();
        return KR_RET_TRUE;
    }
    if (moveNext) {
        Node* now = curNode();
        if (now == last_) {
            nullCursor();
        } else {
            placeCursor(now->next, this->cur_.index + 1);
        }
    }
    return KR_RET_TRUE;
}

template <class T>
KRI_INLINE unsigned char KR_LList<T>::curIsNull() {
    return !initialised_ || curNode() == nullptr;
}

template <class T>
unsigned char KR_LList<T>::curAtFirst() {
    krInternal::clearUserError();
    if (!initialised_) return static_cast<unsigned char>(KRI_FAIL(KR_RET_ERR_POBJ));
    return curNode() != nullptr && curNode() == first_;
}

template <class T>
unsigned char KR_LList<T>::curAtLast() {
    krInternal::clearUserError();
    if (!initialised_) return static_cast<unsigned char>(KRI_FAIL(KR_RET_ERR_POBJ));
    return curNode() != nullptr && curNode() == last_;
}

template <class T>
KR_RET_STATUS KR_LList<T>::setCurFirst() {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (first_ == nullptr) {
        nullCursor();
        return KR_RET_FALSE;
    }
    placeCursor(first_, 0);
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_LList<T>::setCurLast() {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (last_ == nullptr) {
        nullCursor();
        return KR_RET_FALSE;
    }
    placeCursor(last_, this->numElems_ - 1);
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_LList<T>::setCurPrev() {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    Node* node = curNode();
    if (node == nullptr) return KR_RET_FALSE;
    if (node->prev == nullptr) {
        nullCursor();
    } else {
        placeCursor(node->prev, this->cur_.index - 1);
    }
    return KR_RET_TRUE;
}

template <class T>
KRI_INLINE KR_RET_STATUS KR_LList<T>::setCurNext() {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    Node* node = curNode();
    if (node == nullptr) return KR_RET_FALSE;
    if (node->next == nullptr) {
        nullCursor();
    } else {
        placeCursor(node->next, this->cur_.index + 1);
    }
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_LList<T>::getCurIndex(unsigned int& index) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (curNode() == nullptr) {
        index = 0;
        return KR_RET_FALSE;
    }
    index = this->cur_.index;
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_LList<T>::setCurIndex(unsigned int index) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    Node* node = first_;
    for (unsigned int k = 0; k < index && node != nullptr; ++k)
        node = node->next;
    if (node == nullptr) {
        nullCursor();
        return KR_RET_FALSE;
    }
    placeCursor(node, index);
    return KR_RET_TRUE;
}

template <class T>
KRI_INLINE KR_RET_STATUS KR_LList<T>::getCurElem(T** elem) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (elem == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    *elem = nullptr;
    Node* node = curNode();
    if (node == nullptr) return KR_RET_FALSE;
    *elem = &node->elem;
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_LList<T>::setCurElem(T elem) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    Node* node = curNode();
    if (node == nullptr) return KR_RET_FALSE;
    krInternal::takeElem(node->elem, elem);
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_LList<T>::setCur(T elem) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    return this->walkToElem(elem);
}

template <class T>
KR_RET_STATUS KR_LList<T>::initDataMembers() {
    first_ = nullptr;
    last_ = nullptr;
    this->numElems_ = 0;
    nullCursor();
    initialised_ = 1;
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_LList<T>::cleanupDataMembers() {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    deleteChain(first_);
    first_ = nullptr;
    last_ = nullptr;
    this->numElems_ = 0;
    nullCursor();
    initialised_ = 0;
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_LList<T>::appendNode(Node* node) {
    if (node == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    node->next = nullptr;
    node->prev = last_;
    if (last_ != nullptr) {
        last_->next = node;
    } else {
        first_ = node;
    }
    last_ = node;
    ++this->numElems_;
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_LList<T>::insNodeAtCur(KR_INS_METHOD method, Node* node) {
    if (node == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    if (this->numElems_ == 0) {
        T value;
        if (!KR_ElemCopy<T>::copy(value, node->elem)) return KRI_FAIL(KR_RET_ERR_MEM);
        return appendElem(static_cast<T&&>(value));
    }
    Node* current = curNode();
    if (current == nullptr) return KRI_FAIL(KR_RET_ERR_CALL);
    if (method == KR_INS_BEFORE) {
        node->prev = current->prev;
        node->next = current;
        if (current->prev != nullptr) {
            current->prev->next = node;
        } else {
            first_ = node;
        }
        current->prev = node;
        // The index is raised although the new node took the current position: callers rely on
        // reading one more than the new node's position here.
        placeCursor(node, this->cur_.index + 1);
    } else {
        node->prev = current;
        node->next = current->next;
        if (current->next != nullptr) {
            current->next->prev = node;
        } else {
            last_ = node;
        }
        current->next = node;
    }
    ++this->numElems_;
    return KR_RET_TRUE;
}

template <class T>
typename KR_LList<T>::Node* KR_LList<T>::newChain(unsigned int count) {
    Node* chain = nullptr;
    for (unsigned int k = 0; k < count; ++k) {
        Node* node = krInternal::newObject<Node>();
        if (node == nullptr) {
            deleteChain(chain);
            return nullptr;
        }
        node->next = chain;
        chain = node;
    }
    return chain;
}

template <class T>
void KR_LList<T>::deleteChain(Node* chain) {
    while (chain != nullptr) {
        Node* next = chain->next;
        delete chain;
        chain = next;
    }
}

#pragma pop_macro("KRI_UNIT")

#include "kr_macros_end.h"

#endif  // KRCORE_KR_LIST_IMPL_H
