// kr_hash_impl.h — the hash table: unique keys mapped to values with separate chaining.
// KR_HashTable keeps a fixed number of buckets, each a linked list of KR_HashEntry records; it
// never grows or rehashes, so the owner chooses the bucket count. The owner gives the hash
// function (kr_hash.h has defaults for the library's key types) and an optional release callback
// that sees every entry before the table lets it go.
//   KR_HashTable<KR_Var, KR_Var> table(1024, KR_defHashFuncVarKey, nullptr);
//   KR_Var key("guid"), value(42), out;
//   table.addEntry(key, value)     ->  KR_RET_TRUE
//   table.addEntry(key, out)       ->  KR_RET_FALSE (the key is held; 42 stays)
//   table.getEntryData(key, out)   ->  KR_RET_TRUE, out == 42
#ifndef KRCORE_KR_HASH_IMPL_H
#define KRCORE_KR_HASH_IMPL_H

#include <limits.h>
#include <string.h>

#include "kr_alloc.h"
#include "kr_array_impl.h"
#include "kr_base.h"
#include "kr_container.h"
#include "kr_list_impl.h"
#include "kr_reporter.h"
#include "kr_var.h"

// KRI_ macros for this header only, taken back by kr_macros_end.h at its end.
#include "kr_macros_begin.h"

// KR_HashEntry — one key and its value as a bucket holds them. The copy constructor and the
// assignment copy both through their own copies; KR_ElemCopy (below) tells the containers
// whether such a copy arrived, and the move forms hand the contents over without copying.
// Entries compare equal when their keys and their values do; comparing with an entry that is not
// initialised (such as the KR_NULL_PTR reference of a failed list access) is reported
// (KR_RET_ERR_POBJ) and answers 0.
template <class K, class V>
class KR_HashEntry : public KR_KorvaneClass {
public:
    KRI_INLINE KR_HashEntry() : initialised_(0), key(), data() { initDataMembers(); }

    KRI_INLINE KR_HashEntry(const KR_HashEntry<K, V>& other)
        : KR_KorvaneClass(other), initialised_(0), key(other.key), data(other.data) {
        initDataMembers();
    }

    KRI_INLINE KR_HashEntry(KR_HashEntry<K, V>&& other) noexcept
        : KR_KorvaneClass(other),
          initialised_(0),
          key(static_cast<K&&>(other.key)),
          data(static_cast<V&&>(other.data)) {
        initDataMembers();
    }

    KRI_INLINE ~KR_HashEntry() override { cleanupDataMembers(); }

    // Either side not initialised: reported (KR_RET_ERR_POBJ), nothing changes.
    KR_HashEntry<K, V>& operator=(const KR_HashEntry<K, V>& other);
    // Hands key and value over with their own move assignments.
    KR_HashEntry<K, V>& operator=(KR_HashEntry<K, V>&& other) noexcept;
    unsigned char operator==(const KR_HashEntry<K, V>& other) const;

    KRI_INLINE unsigned char objIsEnabled() const { return initialised_; }

private:
    KR_RET_STATUS initDataMembers();
    KR_RET_STATUS cleanupDataMembers();

    unsigned char initialised_;

public:
    K key;
    V data;
};

// An entry owns memory when its key or its value does: its copy arrived when both copies did.
template <class K, class V>
struct KR_ElemCopy<KR_HashEntry<K, V>> {
    static constexpr bool kMayFail = KR_ElemCopy<K>::kMayFail || KR_ElemCopy<V>::kMayFail;

    static bool copy(KR_HashEntry<K, V>& dst, const KR_HashEntry<K, V>& src) {
        bool keyArrived = KR_ElemCopy<K>::copy(dst.key, src.key);
        bool dataArrived = KR_ElemCopy<V>::copy(dst.data, src.data);
        return keyArrived && dataArrived;
    }
};

namespace krInternal {

// Key equality of the hash table: K::operator==. Two narrow-string variants, the keys of the
// class registry, compare with strcmp instead: the variant's own comparison gives the same answer
// for them (equal exactly when the bytes are), through a chain of calls that costs a lookup more
// than its hash and its walk together.
template <class K>
KRI_INLINE bool sameHashKey(K& a, K& b) {
    return a == b;
}

KRI_INLINE bool sameHashKey(KR_Var& a, KR_Var& b) {
    const char* x = a.objIsEnabled() && a.varType() == KR_VAR_STRING ? a.str() : nullptr;
    const char* y = b.objIsEnabled() && b.varType() == KR_VAR_STRING ? b.str() : nullptr;
    if (x != nullptr && y != nullptr) return strcmp(x, y) == 0;
    return a == b;
}

}  // namespace krInternal

// KR_HashTable — keys of type K, unique, each with a value of type V. The table owns copies of
// both (made through KR_ElemCopy, so a copy that does not arrive is KR_RET_ERR_MEM and changes
// nothing). A key goes into bucket hashFunc(key, size), or bucket 0 when there is no hash
// function; a hash of size or more is refused with KR_RET_ERR_GEN (reported). A lookup is one
// hash and a walk of one bucket, under that bucket's iterator lock.
//
// Walks and callbacks. iterate visits bucket by bucket and, inside a bucket, from the newest
// entry to the oldest. Its callback may look keys up, change values and delete entries, its own
// included; a key added from it into the bucket being walked is refused with KR_RET_ERR_ILOCK
// (reported), and a lookup or deletion in that bucket is reported by the iterator
// (KR_RET_ERR_ILOCK) but done, and leaves the walk where it was. The release callback runs for an
// entry when deleteEntry removes it, and for every entry when the table is destroyed; its result
// is not consulted. After a failed construction every operation answers KR_RET_ERR_POBJ.
template <class K, class V>
class KR_HashTable : public KR_KorvaneClass {
public:
    typedef unsigned int (*HashFunc)(K& key, unsigned int size);
    typedef KR_RET_STATUS (*EntryFunc)(K& key, V& data);

    // size buckets; a failed allocation is reported (KR_RET_ERR_MEM) and leaves the table
    // uninitialised. Either function may be null.
    KR_HashTable(unsigned int size, HashFunc hashFunc, EntryFunc releaseFunc);
    // Runs the release callback over every entry, then frees the buckets.
    ~KR_HashTable() override;
    KR_HashTable(const KR_HashTable<K, V>&) = delete;
    KR_HashTable<K, V>& operator=(const KR_HashTable<K, V>&) = delete;

    // Adds copies of key and data: KR_RET_TRUE, or KR_RET_FALSE when the key is held already (the
    // held value stays). KR_RET_ERR_GEN (bad hash), KR_RET_ERR_ILOCK (the bucket is being
    // walked) and KR_RET_ERR_MEM leave the table unchanged.
    KR_RET_STATUS addEntry(K& key, V& data);
    // KR_RET_TRUE when the key is held, else KR_RET_FALSE.
    KR_RET_STATUS hasEntry(K& key);
    // Copies the held value into data: KR_RET_TRUE; KR_RET_FALSE when the key is not held. The
    // copy is made as the containers make theirs, so it passes a type lock on data.
    KR_RET_STATUS getEntryData(K& key, V& data);
    // Replaces the held value with a copy of data: KR_RET_TRUE; KR_RET_FALSE when the key is not
    // held. A copy that does not arrive is KR_RET_ERR_MEM and keeps the held value.
    KR_RET_STATUS setEntryData(K& key, V& data);
    // Runs the release callback on the entry, then removes it: KR_RET_TRUE; KR_RET_FALSE (no
    // callback) when the key is not held.
    KR_RET_STATUS deleteEntry(K& key);
    // Calls func for every entry until func answers a failure (above 2), which is returned;
    // otherwise KR_RET_TRUE. A null func is KR_RET_ERR_ARG.
    KR_RET_STATUS iterate(EntryFunc func);

    KRI_INLINE unsigned char objIsEnabled() const { return initialised_; }

    KRI_INLINE unsigned int numBuckets() const { return size_; }

    KRI_INLINE unsigned int numEntries() const { return numEntries_; }

private:
    typedef KR_HashEntry<K, V> Entry;
    typedef KR_LList<Entry> Bucket;

    // Where a bucket walk found its bucket. A walk takes the bucket's lock; one that finds the
    // lock held runs inside another walk of the same bucket (a callback's lookup), leaves the
    // lock to that walk and puts its cursor back afterwards.
    struct WalkMark {
        bool ownsLock;
        bool hadCursor;
        unsigned int index;  // the outer walk's cursor, when it had one
    };

    static constexpr unsigned int kNoEntry = UINT_MAX;

    // The entry with that key, or null (also after a reported bad hash).
    Entry* getEntryPtr(K& key);

    KR_RET_STATUS initDataMembers(unsigned int size);
    KR_RET_STATUS cleanupDataMembers();

    // The bucket of key, or null after reporting KR_RET_ERR_GEN.
    Bucket* bucketOf(K& key);
    // The entry of key in list, found under the list's lock.
    static Entry* findIn(Bucket& list, K& key);
    static WalkMark beginWalk(Bucket& list);
    // Ends a walk; removed is the index of the entry it deleted, or kNoEntry.
    static void endWalk(Bucket& list, const WalkMark& mark, unsigned int removed);
    // Calls func for every entry; stopOnFailure ends the walk at the first failing answer.
    KR_RET_STATUS visitAll(EntryFunc func, bool stopOnFailure);

    KRI_INLINE Bucket& bucketAt(unsigned int index) {
        return buckets_->KR_Array<Bucket>::operator[](index);
    }

    unsigned char initialised_;
    unsigned int size_;
    unsigned int numEntries_;  // successful additions minus deletions
    HashFunc hashFunc_;
    EntryFunc releaseFunc_;
    KR_Array<Bucket>* buckets_;  // size_ lists; null exactly when not initialised
};

// ---------------------------------------------------------------------------------------------

#pragma push_macro("KRI_UNIT")
#undef KRI_UNIT
#define KRI_UNIT "krcore/include/kr_hash_impl"

// --- KR_HashEntry ---

template <class K, class V>
KR_HashEntry<K, V>& KR_HashEntry<K, V>::operator=(const KR_HashEntry<K, V>& other) {
    krInternal::clearUserError();
    if (&other == this) return *this;
    if (!initialised_ || !other.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return *this;
    }
    key = other.key;
    data = other.data;
    return *this;
}

template <class K, class V>
KR_HashEntry<K, V>& KR_HashEntry<K, V>::operator=(KR_HashEntry<K, V>&& other) noexcept {
    if (&other == this) return *this;
    key = static_cast<K&&>(other.key);
    data = static_cast<V&&>(other.data);
    return *this;
}

template <class K, class V>
unsigned char KR_HashEntry<K, V>::operator==(const KR_HashEntry<K, V>& other) const {
    krInternal::clearUserError();
    if (!initialised_ || !other.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    if (&other == this) return 1;
    // Some key types (the variant array) compare through non-const operands, although the
    // comparison changes nothing.
    K& mine = const_cast<K&>(key);
    V& mineData = const_cast<V&>(data);
    return (mine == const_cast<K&>(other.key)) && (mineData == const_cast<V&>(other.data)) ? 1 : 0;
}

template <class K, class V>
KRI_INLINE KR_RET_STATUS KR_HashEntry<K, V>::initDataMembers() {
    initialised_ = 1;
    return KR_RET_TRUE;
}

template <class K, class V>
KRI_INLINE KR_RET_STATUS KR_HashEntry<K, V>::cleanupDataMembers() {
    initialised_ = 0;
    return KR_RET_TRUE;
}

// --- KR_HashTable ---

template <class K, class V>
KR_HashTable<K, V>::KR_HashTable(unsigned int size, HashFunc hashFunc, EntryFunc releaseFunc)
    : initialised_(0),
      size_(0),
      numEntries_(0),
      hashFunc_(nullptr),
      releaseFunc_(nullptr),
      buckets_(nullptr) {
    krInternal::clearUserError();
    if (KRI_FAILED(initDataMembers(size))) return;
    hashFunc_ = hashFunc;
    releaseFunc_ = releaseFunc;
}

template <class K, class V>
KR_HashTable<K, V>::~KR_HashTable() {
    cleanupDataMembers();
}

template <class K, class V>
KR_RET_STATUS KR_HashTable<K, V>::addEntry(K& key, V& data) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    Bucket* list = bucketOf(key);
    if (list == nullptr) return KR_RET_ERR_GEN;
    if (findIn(*list, key) != nullptr) return KR_RET_FALSE;
    if (list->isLocked()) return KRI_FAIL(KR_RET_ERR_ILOCK);
    // Both copies are made before the list changes; the list then takes the entry over by moving
    // it, so its node is the only allocation left that can fail.
    Entry entry;
    if (!KR_ElemCopy<K>::copy(entry.key, key) || !KR_ElemCopy<V>::copy(entry.data, data)) {
        return KRI_FAIL(KR_RET_ERR_MEM);
    }
    KR_RET_STATUS st = list->preappendElem(static_cast<Entry&&>(entry));
    if (KRI_FAILED(st)) return st;
    ++numEntries_;
    return KR_RET_TRUE;
}

template <class K, class V>
typename KR_HashTable<K, V>::Entry* KR_HashTable<K, V>::getEntryPtr(K& key) {
    Bucket* list = bucketOf(key);
    return list == nullptr ? nullptr : findIn(*list, key);
}

template <class K, class V>
KR_RET_STATUS KR_HashTable<K, V>::hasEntry(K& key) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    return getEntryPtr(key) != nullptr ? KR_RET_TRUE : KR_RET_FALSE;
}

template <class K, class V>
KR_RET_STATUS KR_HashTable<K, V>::getEntryData(K& key, V& data) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    Entry* entry = getEntryPtr(key);
    if (entry == nullptr) return KR_RET_FALSE;
    if (&data != &entry->data && !KR_ElemCopy<V>::copy(data, entry->data)) {
        return KRI_FAIL(KR_RET_ERR_MEM);
    }
    return KR_RET_TRUE;
}

template <class K, class V>
KR_RET_STATUS KR_HashTable<K, V>::setEntryData(K& key, V& data) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    Entry* entry = getEntryPtr(key);
    if (entry == nullptr) return KR_RET_FALSE;
    if (&data == &entry->data) return KR_RET_TRUE;
    if constexpr (krInternal::kFallibleElem<V>) {
        V value;
        if (!KR_ElemCopy<V>::copy(value, data)) return KRI_FAIL(KR_RET_ERR_MEM);
        entry->data = static_cast<V&&>(value);
    } else {
        entry->data = data;
    }
    return KR_RET_TRUE;
}

template <class K, class V>
KR_RET_STATUS KR_HashTable<K, V>::deleteEntry(K& key) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    Bucket* list = bucketOf(key);
    if (list == nullptr) return KR_RET_ERR_GEN;
    WalkMark mark = beginWalk(*list);
    list->setCurFirst();
    while (!list->curIsNull()) {
        Entry* entry = nullptr;
        KR_RET_STATUS st = list->getCurElem(&entry);
        if (KRI_FAILED(st)) {
            endWalk(*list, mark, kNoEntry);
            return st;
        }
        if (krInternal::sameHashKey(entry->key, key)) {
            // key may be the entry's own key (a callback of iterate deleting its entry): it is
            // not read once the entry is gone.
            if (releaseFunc_ != nullptr) releaseFunc_(entry->key, entry->data);
            unsigned int removed = kNoEntry;
            list->getCurIndex(removed);
            st = list->delCurElem(0);
            if (!KRI_FAILED(st)) --numEntries_;
            endWalk(*list, mark, removed);
            return KRI_FAILED(st) ? st : KR_RET_TRUE;
        }
        list->setCurNext();
    }
    endWalk(*list, mark, kNoEntry);
    return KR_RET_FALSE;
}

template <class K, class V>
KR_RET_STATUS KR_HashTable<K, V>::iterate(EntryFunc func) {
    krInternal::clearUserError();
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (func == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    return visitAll(func, true);
}

template <class K, class V>
KR_RET_STATUS KR_HashTable<K, V>::initDataMembers(unsigned int size) {
    initialised_ = 0;
    size_ = 0;
    numEntries_ = 0;
    hashFunc_ = nullptr;
    releaseFunc_ = nullptr;
    buckets_ = nullptr;
    KR_Array<Bucket>* buckets = krInternal::newObject<KR_Array<Bucket>>(size, 0);
    if (buckets == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    if (!buckets->objIsEnabled()) {
        // The array has reported its failed block; the status it leaves is the table's.
        delete buckets;
        return KRI_FAIL(KR_RET_ERR_MEM);
    }
    buckets_ = buckets;
    size_ = size;
    initialised_ = 1;
    return KR_RET_TRUE;
}

template <class K, class V>
KR_RET_STATUS KR_HashTable<K, V>::cleanupDataMembers() {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    // Every entry is released, whatever an earlier release answered: what the callback frees
    // would otherwise be lost with the buckets.
    if (releaseFunc_ != nullptr) visitAll(releaseFunc_, false);
    delete buckets_;
    buckets_ = nullptr;
    size_ = 0;
    numEntries_ = 0;
    initialised_ = 0;
    return KR_RET_TRUE;
}

template <class K, class V>
typename KR_HashTable<K, V>::Bucket* KR_HashTable<K, V>::bucketOf(K& key) {
    unsigned int index = hashFunc_ != nullptr ? hashFunc_(key, size_) : 0;
    if (index >= size_) {
        KRI_FAIL(KR_RET_ERR_GEN);
        return nullptr;
    }
    return &bucketAt(index);
}

template <class K, class V>
typename KR_HashTable<K, V>::Entry* KR_HashTable<K, V>::findIn(Bucket& list, K& key) {
    if (list.numElems() == 0) return nullptr;
    WalkMark mark = beginWalk(list);
    Entry* found = nullptr;
    list.setCurFirst();
    while (!list.curIsNull()) {
        Entry* entry = nullptr;
        if (KRI_FAILED(list.getCurElem(&entry))) break;
        if (krInternal::sameHashKey(entry->key, key)) {
            found = entry;
            break;
        }
        list.setCurNext();
    }
    endWalk(list, mark, kNoEntry);
    return found;
}

template <class K, class V>
typename KR_HashTable<K, V>::WalkMark KR_HashTable<K, V>::beginWalk(Bucket& list) {
    WalkMark mark = {true, false, 0};
    if (!KRI_FAILED(list.lock())) return mark;
    mark.ownsLock = false;
    mark.hadCursor = !list.curIsNull();
    if (mark.hadCursor) list.getCurIndex(mark.index);
    return mark;
}

template <class K, class V>
void KR_HashTable<K, V>::endWalk(Bucket& list, const WalkMark& mark, unsigned int removed) {
    if (mark.ownsLock) {
        list.unlock();
        return;
    }
    // An index past the end nulls the cursor. Removing an entry before the outer walk's cursor
    // moves that cursor's entry one place up; iterate steps past the entry it visits before it
    // calls out, so a callback that deletes its own entry is such a case.
    unsigned int index = list.numElems();
    if (mark.hadCursor) index = removed < mark.index ? mark.index - 1 : mark.index;
    list.setCurIndex(index);
}

template <class K, class V>
KR_RET_STATUS KR_HashTable<K, V>::visitAll(EntryFunc func, bool stopOnFailure) {
    for (unsigned int b = 0; b < size_; ++b) {
        Bucket& list = bucketAt(b);
        if (list.numElems() == 0) continue;
        WalkMark mark = beginWalk(list);
        list.setCurFirst();
        while (!list.curIsNull()) {
            Entry* entry = nullptr;
            KR_RET_STATUS st = list.getCurElem(&entry);
            if (KRI_FAILED(st)) {
                endWalk(list, mark, kNoEntry);
                return st;
            }
            // The cursor moves on before the call, so that func may delete its own entry.
            list.setCurNext();
            st = func(entry->key, entry->data);
            if (KRI_FAILED(st) && stopOnFailure) {
                endWalk(list, mark, kNoEntry);
                return st;
            }
        }
        endWalk(list, mark, kNoEntry);
    }
    return KR_RET_TRUE;
}

#pragma pop_macro("KRI_UNIT")

// The variant-keyed table, its buckets and its bucket array are provided by the library
// (kr_instances.cpp).
extern template class KR_API KR_HashEntry<KR_Var, KR_Var>;
extern template class KR_API KR_Container<KR_HashEntry<KR_Var, KR_Var>>;
extern template class KR_API KR_OrdContainer<KR_HashEntry<KR_Var, KR_Var>>;
extern template class KR_API KR_I_Iterator<KR_HashEntry<KR_Var, KR_Var>>;
extern template class KR_API KR_IndContainer<KR_HashEntry<KR_Var, KR_Var>>;
extern template class KR_API KR_LNode<KR_HashEntry<KR_Var, KR_Var>>;
extern template class KR_API KR_LList<KR_HashEntry<KR_Var, KR_Var>>;
extern template class KR_API KR_Container<KR_LList<KR_HashEntry<KR_Var, KR_Var>>>;
extern template class KR_API KR_OrdContainer<KR_LList<KR_HashEntry<KR_Var, KR_Var>>>;
extern template class KR_API KR_I_Iterator<KR_LList<KR_HashEntry<KR_Var, KR_Var>>>;
extern template class KR_API KR_IndContainer<KR_LList<KR_HashEntry<KR_Var, KR_Var>>>;
extern template class KR_API KR_Array<KR_LList<KR_HashEntry<KR_Var, KR_Var>>>;
extern template class KR_API KR_HashTable<KR_Var, KR_Var>;

#include "kr_macros_end.h"

#endif  // KRCORE_KR_HASH_IMPL_H
