// kr_btree.cpp — the B-tree's life cycle, node pool, insert, find and remove.
#include "kr_btree.h"

#include <string.h>

#include "kr_alloc.h"
#include "kr_btreecore.h"
#include "kr_report.h"

#define KRI_UNIT "src/kr_btree"

using krInternal::BtreeNode;
using krInternal::kInlineKey;
using krInternal::kMaxHeight;
using krInternal::kSlotVar;
using krInternal::moveChildren;
using krInternal::moveEntries;
using krInternal::slotAt;

namespace {

const unsigned int kMinOrder = 3;
const unsigned int kMaxOrder = 4096;
const unsigned int kMaxKeyElems = 255;

size_t roundUp8(size_t n) {
    return (n + 7) & ~static_cast<size_t>(7);
}

}  // namespace

// --- KR_Btree ---

KR_Btree::KR_Btree() : keyTypes_(0, 1) {
    KR_setUserError(0);
    initDataMembers();
    initialised_ = keyTypes_.objIsEnabled() && walkKey_.objIsEnabled();
}

KR_Btree::KR_Btree(const KR_Btree& other) : KR_KorvaneClass(other), keyTypes_(0, 1) {
    KR_setUserError(0);
    initDataMembers();
    initialised_ = keyTypes_.objIsEnabled() && walkKey_.objIsEnabled();
    KRI_FAIL(KR_RET_ERR_NSUP);
}

KR_Btree::~KR_Btree() {
    // A failing flush has been reported; its status has nowhere to go.
    if (mode_ == 3) flush(0);
    cleanupDataMembers();
}

KR_Btree& KR_Btree::operator=(const KR_Btree& other) {
    KR_setUserError(0);
    if (&other != this) KRI_FAIL(KR_RET_ERR_NSUP);
    return *this;
}

KR_RET_STATUS KR_Btree::create(KR_Array<KR_VAR_TYPE>& keyTypes,
                               unsigned int order,
                               unsigned char unique,
                               unsigned int valueSize) {
    KR_setUserError(0);
    KR_RET_STATUS st = checkTypes(keyTypes, order, valueSize, false);
    if (KRI_FAILED(st)) return st;
    st = adoptTypes(keyTypes, order, unique, valueSize);
    if (KRI_FAILED(st)) return st;
    mode_ = 1;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::close() {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    if (locked_) return KRI_FAIL_MSG(KR_RET_ERR_ILOCK, "KR_Btree: changed during a walk", "%s", "");
    KR_RET_STATUS st = mode_ == 3 ? flush(0) : KR_RET_TRUE;
    cleanupDataMembers();
    initDataMembers();
    return KRI_FAILED(st) ? st : KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::insert(KR_VarArr& key, unsigned long long ref, const void* value) {
    KR_setUserError(0);
    KR_RET_STATUS st = checkChange();
    if (KRI_FAILED(st)) return st;
    st = encodeProbe(key);
    if (KRI_FAILED(st)) return st;
    bool withRef = unique_ == 0;
    ++opStamp_;
    touchedCount_ = 0;

    // Descend, recording the path; an equal entry answers before anything changes.
    unsigned int depth = 0;
    for (unsigned int id = root_, height = height_; id != 0; --height) {
        BtreeNode* x;
        st = fetch(id, height, x);
        if (KRI_FAILED(st)) return st;
        unsigned int i = lowerBound(x, ref, withRef);
        if (i < x->n && compareAt(x, i, ref, withRef) == 0) return KR_RET_FALSE;
        pathNodes_[depth] = id;
        pathSlots_[depth] = i;
        touch(x);
        ++depth;
        if (x->height == 1) break;
        id = x->children[i];
    }

    // Prepare: every block the insert needs, before any change.
    unsigned int need = 1;
    if (depth != 0) {
        unsigned int full = 0;
        while (full < depth && node(pathNodes_[depth - 1 - full])->n == order_ - 1)
            ++full;
        need = full + (full == depth ? 1 : 0);
    }
    unsigned char* block = nullptr;
    if (keyFixed_ == 0 && probeLen_ > kInlineKey) {
        block = static_cast<unsigned char*>(krInternal::allocBlock(probeLen_));
        if (block == nullptr) {
            return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Btree allocation", KR_msg(0, 1));
        }
        memcpy(block, probe_, probeLen_);
    }
    unsigned int fromReserved = need < reservedCount_ ? need : reservedCount_;
    unsigned int fresh = need - fromReserved;
    BtreeNode* acquired[kMaxHeight + 1];
    for (unsigned int k = 0, id = reservedHead_; k < fromReserved && !KRI_FAILED(st); ++k) {
        st = fetch(id, 0, acquired[k]);
        if (!KRI_FAILED(st) && !acquired[k]->reserved) {
            st = KRI_FAIL_MSG(KR_RET_ERR_FILE, "KR_Btree: corrupt node", "node %u: %s", id,
                              "reserved list broken");
        }
        if (!KRI_FAILED(st)) id = acquired[k]->nextReserved;
    }
    BtreeNode** made = acquired + fromReserved;
    unsigned int madeCount = 0;
    if (!KRI_FAILED(st) && fresh != 0) st = growTable(fresh);
    while (!KRI_FAILED(st) && madeCount < fresh) {
        st = newNodeBlock(made[madeCount]);
        if (!KRI_FAILED(st)) ++madeCount;
    }
    if (KRI_FAILED(st)) {
        for (unsigned int k = 0; k < madeCount; ++k)
            krInternal::freeBlock(made[k]);
        krInternal::freeBlock(block);
        return st;
    }
    // appendNodes takes the blocks over, also when it fails.
    if (file_ != nullptr) st = appendNodes(made, fresh);
    if (KRI_FAILED(st)) {
        krInternal::freeBlock(block);
        return st;
    }

    // Acquire: the reserved list first (LIFO), then new ids (a file tree has numbered them).
    for (unsigned int k = 0; k < need; ++k) {
        BtreeNode* x = acquired[k];
        if (k < fromReserved) {
            reservedHead_ = x->nextReserved;
            --reservedCount_;
            x->reserved = 0;
            x->nextReserved = 0;
            x->n = 0;
        } else if (file_ == nullptr) {
            x->id = tableSize_;
            nodes_[tableSize_++] = x;
        }
        touch(x);
    }

    // The new entry goes into the leaf at its lower bound (or into a new root leaf).
    BtreeNode* x;
    unsigned int i;
    unsigned int level;
    if (depth == 0) {
        x = acquired[0];
        x->height = 1;
        root_ = x->id;
        height_ = 1;
        nodeCount_ = 1;
        i = 0;
        level = 0;
    } else {
        level = depth - 1;
        x = node(pathNodes_[level]);
        i = pathSlots_[level];
        moveEntries(x, i + 1, x, i, x->n - i, slotSize_);
    }
    unsigned char* slot = slotAt(x, i, slotSize_);
    if (keyFixed_ != 0) {
        memcpy(slot, probe_, keyFixed_);
    } else {
        memcpy(slot, &probeLen_, sizeof(probeLen_));
        if (block == nullptr) {
            memcpy(slot + 8, probe_, probeLen_);
        } else {
            memcpy(slot + 8, &block, sizeof(block));
        }
    }
    if (valueSize_ != 0) {
        if (value != nullptr) {
            memcpy(slot + keySlot_, value, valueSize_);
        } else {
            memset(slot + keySlot_, 0, valueSize_);
        }
    }
    x->refs[i] = ref;
    ++x->n;

    // Split upward while a node overflows: keys 0..h-1 stay, key h moves up, the rest go to the
    // next acquired node.
    unsigned int next = depth == 0 ? 1 : 0;
    while (x->n == order_) {
        unsigned int h = order_ / 2;
        unsigned int moved = order_ - 1 - h;
        BtreeNode* y = acquired[next++];
        y->height = x->height;
        moveEntries(y, 0, x, h + 1, moved, slotSize_);
        if (x->height > 1) moveChildren(y, 0, x, h + 1, moved + 1);
        y->n = moved;
        x->n = h;
        ++nodeCount_;
        if (level == 0) {
            BtreeNode* r = acquired[next++];
            r->height = x->height + 1;
            moveEntries(r, 0, x, h, 1, slotSize_);
            r->children[0] = x->id;
            r->children[1] = y->id;
            r->n = 1;
            root_ = r->id;
            ++height_;
            ++nodeCount_;
            break;
        }
        --level;
        BtreeNode* p = node(pathNodes_[level]);
        unsigned int s = pathSlots_[level];
        moveEntries(p, s + 1, p, s, p->n - s, slotSize_);
        moveChildren(p, s + 2, p, s + 1, p->n - s);
        moveEntries(p, s, x, h, 1, slotSize_);
        p->children[s + 1] = y->id;
        ++p->n;
        x = p;
    }
    ++entryCount_;
    curDepth_ = 0;
    markTouched();
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::find(KR_VarArr& key, unsigned long long& ref, void* value) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    KR_RET_STATUS st = encodeProbe(key);
    if (KRI_FAILED(st)) return st;
    unsigned int nodes[kMaxHeight];
    unsigned int slots[kMaxHeight];
    unsigned int depth;
    ++opStamp_;
    st = locate(0, unique_ == 0, nodes, slots, depth);
    if (st != KR_RET_TRUE) return st;
    BtreeNode* x = node(nodes[depth - 1]);
    unsigned int i = slots[depth - 1];
    if (compareAt(x, i, 0, false) != 0) return KR_RET_FALSE;
    ref = x->refs[i];
    if (value != nullptr && valueSize_ != 0) {
        memcpy(value, slotAt(x, i, slotSize_) + keySlot_, valueSize_);
    }
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::update(KR_VarArr& key, unsigned long long ref, const void* value) {
    KR_setUserError(0);
    KR_RET_STATUS st = checkChange();
    if (KRI_FAILED(st)) return st;
    if (!unique_) return KRI_FAIL(KR_RET_ERR_NSUP);
    st = encodeProbe(key);
    if (KRI_FAILED(st)) return st;
    unsigned int depth;
    ++opStamp_;
    st = locate(0, false, pathNodes_, pathSlots_, depth);
    if (st != KR_RET_TRUE) return st;
    BtreeNode* x = node(pathNodes_[depth - 1]);
    unsigned int i = pathSlots_[depth - 1];
    if (compareAt(x, i, 0, false) != 0) return KR_RET_FALSE;
    x->refs[i] = ref;
    if (value != nullptr && valueSize_ != 0) {
        memcpy(slotAt(x, i, slotSize_) + keySlot_, value, valueSize_);
    }
    x->dirty = 1;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::remove(KR_VarArr& key) {
    KR_setUserError(0);
    KR_RET_STATUS st = checkChange();
    if (KRI_FAILED(st)) return st;
    st = encodeProbe(key);
    if (KRI_FAILED(st)) return st;
    unsigned int depth;
    ++opStamp_;
    st = locate(0, unique_ == 0, pathNodes_, pathSlots_, depth);
    if (st != KR_RET_TRUE) return st;
    BtreeNode* x = node(pathNodes_[depth - 1]);
    if (compareAt(x, pathSlots_[depth - 1], 0, false) != 0) return KR_RET_FALSE;
    st = prepareRemove(depth);
    if (KRI_FAILED(st)) return st;
    removeAt(depth);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::removeEntry(KR_VarArr& key, unsigned long long ref) {
    KR_setUserError(0);
    KR_RET_STATUS st = checkChange();
    if (KRI_FAILED(st)) return st;
    st = encodeProbe(key);
    if (KRI_FAILED(st)) return st;
    unsigned int depth;
    ++opStamp_;
    st = locate(ref, unique_ == 0, pathNodes_, pathSlots_, depth);
    if (st != KR_RET_TRUE) return st;
    BtreeNode* x = node(pathNodes_[depth - 1]);
    unsigned int i = pathSlots_[depth - 1];
    if (compareAt(x, i, ref, unique_ == 0) != 0 || x->refs[i] != ref) return KR_RET_FALSE;
    st = prepareRemove(depth);
    if (KRI_FAILED(st)) return st;
    removeAt(depth);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::clear() {
    KR_setUserError(0);
    KR_RET_STATUS st = checkChange();
    if (KRI_FAILED(st)) return st;
    for (unsigned int id = 1; id < tableSize_; ++id) {
        ++opStamp_;
        BtreeNode* x = nodes_[id];
        if (x == nullptr && file_ != nullptr && file_->recHas(id) == KR_RET_TRUE) {
            st = fetch(id, 0, x);
            if (KRI_FAILED(st)) return st;
        }
        if (x == nullptr || x->reserved) continue;
        for (unsigned int i = 0; i < x->n; ++i)
            freeSlot(x, i);
        pushReserved(x);
    }
    headerDirty_ = 1;
    root_ = 0;
    height_ = 0;
    nodeCount_ = 0;
    entryCount_ = 0;
    curDepth_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::reserveNodes(unsigned int count) {
    KR_setUserError(0);
    KR_RET_STATUS st = checkChange();
    if (KRI_FAILED(st)) return st;
    if (count == 0) return KR_RET_TRUE;
    if (file_ == nullptr) st = growTable(count);
    if (KRI_FAILED(st)) return st;
    BtreeNode** made = static_cast<BtreeNode**>(krInternal::allocBlock(count * sizeof(BtreeNode*)));
    if (made == nullptr) return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Btree allocation", KR_msg(0, 1));
    unsigned int madeCount = 0;
    while (!KRI_FAILED(st) && madeCount < count) {
        st = newNodeBlock(made[madeCount]);
        if (!KRI_FAILED(st)) ++madeCount;
    }
    ++opStamp_;
    if (KRI_FAILED(st)) {
        for (unsigned int k = 0; k < madeCount; ++k)
            krInternal::freeBlock(made[k]);
        krInternal::freeBlock(made);
        return st;
    }
    if (file_ != nullptr) st = appendNodes(made, count);
    if (KRI_FAILED(st)) {
        krInternal::freeBlock(made);
        return st;
    }
    for (unsigned int k = 0; k < count; ++k) {
        if (file_ == nullptr) {
            made[k]->id = tableSize_;
            nodes_[tableSize_++] = made[k];
        }
        pushReserved(made[k]);
    }
    krInternal::freeBlock(made);
    headerDirty_ = 1;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::releaseReserved() {
    KR_setUserError(0);
    KR_RET_STATUS st = checkChange();
    if (KRI_FAILED(st)) return st;
    if (file_ != nullptr) return releaseReservedFile();
    while (reservedHead_ != 0) {
        ++opStamp_;
        BtreeNode* x;
        st = fetch(reservedHead_, 0, x);
        if (KRI_FAILED(st)) return st;
        unsigned int id = reservedHead_;
        reservedHead_ = x->nextReserved;
        --reservedCount_;
        dropNode(id);
    }
    reservedCount_ = 0;
    while (tableSize_ > 1 && nodes_[tableSize_ - 1] == nullptr)
        --tableSize_;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::releaseReservedFile() {
    // A record delete cannot be taken back once a later read fails and the tree falls back to
    // its last flush, so the release is a commit of its own: the tree is flushed first, the
    // reserved list is read whole before any record goes, and the deletes are committed at once.
    // A failure on the way leaves the file and the tree at the flush before.
    KR_RET_STATUS st = flush(0);
    if (KRI_FAILED(st) || reservedCount_ == 0) return st;
    unsigned int* ids = static_cast<unsigned int*>(
            krInternal::allocBlock(reservedCount_ * sizeof(unsigned int)));
    if (ids == nullptr) return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Btree allocation", KR_msg(0, 1));
    unsigned int count = 0;
    for (unsigned int id = reservedHead_; id != 0 && count < reservedCount_; ++count) {
        ++opStamp_;
        BtreeNode* x;
        st = fetch(id, 0, x);
        if (KRI_FAILED(st)) break;
        ids[count] = id;
        id = x->nextReserved;
    }
    for (unsigned int k = 0; k < count && !KRI_FAILED(st); ++k) {
        st = file_->recDelete(ids[k]);
        if (KRI_FAILED(st)) st = fileFailed(st, false);
    }
    if (!KRI_FAILED(st)) {
        for (unsigned int k = 0; k < count; ++k)
            dropNode(ids[k]);
        reservedHead_ = 0;
        reservedCount_ = 0;
        headerDirty_ = 1;
        st = flush(0);
    }
    krInternal::freeBlock(ids);
    return st;
}

KR_RET_STATUS KR_Btree::getEntryCount(unsigned long long& count) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    count = entryCount_;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::getKeyTypes(KR_Array<KR_VAR_TYPE>& keyTypes) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    KR_setUserError(0);
    keyTypes = keyTypes_;
    if (KR_getUserError() == KR_RET_ERR_MEM) return KR_RET_ERR_MEM;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::initDataMembers() {
    mode_ = 0;
    unique_ = 1;
    locked_ = 0;
    order_ = 0;
    types_ = nullptr;
    root_ = 0;
    height_ = 0;
    nodeCount_ = 0;
    entryCount_ = 0;
    reservedHead_ = 0;
    reservedCount_ = 0;
    nodes_ = nullptr;
    tableSize_ = 1;
    tableCapacity_ = 0;
    keyFixed_ = 0;
    keySlot_ = 0;
    valueSize_ = 0;
    slotSize_ = 0;
    probe_ = nullptr;
    probeLen_ = 0;
    probeCapacity_ = 0;
    curDepth_ = 0;
    file_ = nullptr;
    cacheLimit_ = 0;
    cacheByteLimit_ = 0;
    cacheCount_ = 0;
    cacheBytes_ = 0;
    clockHand_ = 1;
    opStamp_ = 0;
    cacheEpoch_ = 0;
    headerDirty_ = 0;
    nodeBytes_ = 0;
    io_ = nullptr;
    ioCapacity_ = 0;
    touchedCount_ = 0;
    removeLeafLevel_ = 0;
    appended_ = nullptr;
    appendedCount_ = 0;
    appendedCapacity_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::cleanupDataMembers() {
    dropCache();
    krInternal::freeBlock(nodes_);
    krInternal::freeBlock(probe_);
    krInternal::freeBlock(io_);
    krInternal::freeBlock(appended_);
    if (file_ != nullptr) {
        if (file_->isOpen()) file_->close();
        delete file_;
    }
    keyTypes_.delAll();
    nodes_ = nullptr;
    probe_ = nullptr;
    io_ = nullptr;
    appended_ = nullptr;
    file_ = nullptr;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::checkChange() {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0 || mode_ == 2) return KRI_FAIL(KR_RET_ERR_CALL);
    if (locked_) return KRI_FAIL_MSG(KR_RET_ERR_ILOCK, "KR_Btree: changed during a walk", "%s", "");
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::checkTypes(KR_Array<KR_VAR_TYPE>& keyTypes,
                                   unsigned int order,
                                   unsigned int valueSize,
                                   bool inFile) {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ != 0) return KRI_FAIL(KR_RET_ERR_CALL);
    if (!keyTypes.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_OBJ);
    unsigned int count = keyTypes.numElems();
    if (order < kMinOrder || order > kMaxOrder || count == 0 || count > kMaxKeyElems) {
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Btree: bad order or key types", "%u, %u", order,
                            count);
    }
    if (!krInternal::valueSizeFits(order, valueSize)) {
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Btree: bad value size", "%u", valueSize);
    }
    for (unsigned int i = 0; i < count; ++i) {
        KR_VAR_TYPE type = keyTypes[i];
        if (type < KR_VAR_UCHAR || type > KR_VAR_PTR) {
            return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Btree: bad order or key types", "%u, %u", order,
                                count);
        }
        if (type == KR_VAR_PTR && inFile) return KRI_FAIL(KR_RET_ERR_NSUP);
    }
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::adoptTypes(KR_Array<KR_VAR_TYPE>& keyTypes,
                                   unsigned int order,
                                   unsigned char unique,
                                   unsigned int valueSize) {
    unsigned int count = keyTypes.numElems();
    KR_setUserError(0);
    keyTypes_ = keyTypes;
    if (KR_getUserError() == KR_RET_ERR_MEM || keyTypes_.numElems() != count) {
        keyTypes_.delAll();
        return KR_RET_ERR_MEM;
    }
    types_ = &keyTypes_[0];
    order_ = order;
    unique_ = unique != 0 ? 1 : 0;
    keyFixed_ = krInternal::btreeFixedKeySize(types_, count);
    keySlot_ = keyFixed_ != 0 ? keyFixed_ : kSlotVar;
    valueSize_ = valueSize;
    slotSize_ = keySlot_ + valueSize_;
    size_t childrenAt = roundUp8(sizeof(BtreeNode)) + static_cast<size_t>(order_) * 8;
    nodeBytes_ = roundUp8(childrenAt + (static_cast<size_t>(order_) + 1) * 4) +
                 static_cast<size_t>(order_) * slotSize_;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::encodeProbe(KR_VarArr& key) {
    if (!key.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_OBJ);
    unsigned int count = keyTypes_.numElems();
    unsigned int size = 0;
    KR_RET_STATUS st = key.numElems() == count
                               ? krInternal::btreeEncodeKey(key, types_, count, nullptr, size)
                               : KR_RET_ERR_ARG;
    if (KRI_FAILED(st)) {
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Btree: key does not match the key types", "%s", "");
    }
    if (size > probeCapacity_) {
        unsigned int capacity = probeCapacity_ < 64 ? 64 : probeCapacity_;
        while (capacity < size)
            capacity = capacity > 0x40000000u ? size : capacity * 2;
        void* grown = krInternal::reallocBlock(probe_, capacity);
        if (grown == nullptr) {
            return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Btree allocation", KR_msg(0, 1));
        }
        probe_ = static_cast<unsigned char*>(grown);
        probeCapacity_ = capacity;
    }
    krInternal::btreeEncodeKey(key, types_, count, probe_, size);
    probeLen_ = size;
    return KR_RET_TRUE;
}

int KR_Btree::compareAt(const BtreeNode* x,
                        unsigned int i,
                        unsigned long long ref,
                        bool withRef) const {
    unsigned int len;
    const unsigned char* k = krInternal::slotKey(x, i, keyFixed_, slotSize_, len);
    int c;
    if (keyFixed_ == 4) {
        unsigned int a = krInternal::loadBig32(probe_);
        unsigned int b = krInternal::loadBig32(k);
        c = a < b ? -1 : (a > b ? 1 : 0);
    } else {
        c = memcmp(probe_, k, probeLen_ < len ? probeLen_ : len);
        if (c == 0) c = probeLen_ < len ? -1 : (probeLen_ > len ? 1 : 0);
    }
    if (c == 0 && withRef) return ref < x->refs[i] ? -1 : (ref > x->refs[i] ? 1 : 0);
    return c;
}

unsigned int KR_Btree::lowerBound(const BtreeNode* x, unsigned long long ref, bool withRef) const {
    unsigned int lo = 0;
    unsigned int hi = x->n;
    while (lo < hi) {
        unsigned int mid = (lo + hi) / 2;
        if (compareAt(x, mid, ref, withRef) > 0) {
            lo = mid + 1;
        } else {
            hi = mid;
        }
    }
    return lo;
}

KR_RET_STATUS KR_Btree::locate(unsigned long long ref,
                               bool withRef,
                               unsigned int* pathNodes,
                               unsigned int* pathSlots,
                               unsigned int& depth) {
    depth = 0;
    unsigned int best = 0;
    for (unsigned int id = root_, height = height_; id != 0; --height) {
        BtreeNode* x;
        KR_RET_STATUS st = fetch(id, height, x);
        if (KRI_FAILED(st)) {
            depth = 0;
            return st;
        }
        unsigned int i = lowerBound(x, ref, withRef);
        pathNodes[depth] = id;
        pathSlots[depth] = i;
        ++depth;
        if (i < x->n) {
            best = depth;
            // Entries are distinct in the order searched, so an equal one is the first >= it.
            if (compareAt(x, i, ref, withRef) == 0) break;
        }
        if (x->height <= 1) break;
        id = x->children[i];
    }
    depth = best;
    return best != 0 ? KR_RET_TRUE : KR_RET_FALSE;
}

void KR_Btree::freeSlot(BtreeNode* x, unsigned int i) {
    if (keyFixed_ != 0) return;
    unsigned char* slot = slotAt(x, i, slotSize_);
    unsigned int len;
    memcpy(&len, slot, sizeof(len));
    if (len <= kInlineKey) return;
    void* block;
    memcpy(&block, slot + 8, sizeof(block));
    krInternal::freeBlock(block);
}

void KR_Btree::pushReserved(BtreeNode* x) {
    x->n = 0;
    x->dirty = 1;
    x->reserved = 1;
    x->nextReserved = reservedHead_;
    reservedHead_ = x->id;
    ++reservedCount_;
}

KR_RET_STATUS KR_Btree::newNodeBlock(BtreeNode*& x) {
    size_t refsAt = roundUp8(sizeof(BtreeNode));
    size_t childrenAt = refsAt + static_cast<size_t>(order_) * sizeof(unsigned long long);
    size_t slotsAt =
            roundUp8(childrenAt + (static_cast<size_t>(order_) + 1) * sizeof(unsigned int));
    size_t total = slotsAt + static_cast<size_t>(order_) * slotSize_;
    unsigned char* block = static_cast<unsigned char*>(krInternal::allocBlock(total));
    if (block == nullptr) return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Btree allocation", KR_msg(0, 1));
    x = reinterpret_cast<BtreeNode*>(block);
    memset(x, 0, sizeof(BtreeNode));
    x->refs = reinterpret_cast<unsigned long long*>(block + refsAt);
    x->children = reinterpret_cast<unsigned int*>(block + childrenAt);
    x->slots = block + slotsAt;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::growTable(unsigned int extra) {
    if (extra > 0xFFFFFFF0u - tableSize_) {
        return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Btree allocation", KR_msg(0, 1));
    }
    unsigned int want = tableSize_ + extra;
    if (want <= tableCapacity_) return KR_RET_TRUE;
    unsigned int capacity = tableCapacity_ < 16 ? 16 : tableCapacity_;
    while (capacity < want)
        capacity = capacity > 0x7FFFFFFFu ? want : capacity * 2;
    void* grown =
            krInternal::reallocBlock(nodes_, static_cast<size_t>(capacity) * sizeof(BtreeNode*));
    if (grown == nullptr) return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Btree allocation", KR_msg(0, 1));
    nodes_ = static_cast<BtreeNode**>(grown);
    memset(nodes_ + tableCapacity_, 0, (capacity - tableCapacity_) * sizeof(BtreeNode*));
    tableCapacity_ = capacity;
    return KR_RET_TRUE;
}
