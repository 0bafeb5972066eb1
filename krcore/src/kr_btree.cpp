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

namespace {

const unsigned int kMinOrder = 3;
const unsigned int kMaxOrder = 4096;
const unsigned int kMaxKeyElems = 255;

size_t roundUp8(size_t n) {
    return (n + 7) & ~static_cast<size_t>(7);
}

// Entry moves inside and between nodes: a slot moves with the key block it may own.
inline unsigned char* slotAt(BtreeNode* x, unsigned int i, unsigned int slotSize) {
    return x->slots + static_cast<size_t>(i) * slotSize;
}

void moveEntries(BtreeNode* to,
                 unsigned int toIndex,
                 BtreeNode* from,
                 unsigned int fromIndex,
                 unsigned int count,
                 unsigned int slotSize) {
    if (count == 0) return;
    memmove(slotAt(to, toIndex, slotSize), slotAt(from, fromIndex, slotSize),
            static_cast<size_t>(count) * slotSize);
    memmove(to->refs + toIndex, from->refs + fromIndex, count * sizeof(unsigned long long));
}

void moveChildren(BtreeNode* to,
                  unsigned int toIndex,
                  BtreeNode* from,
                  unsigned int fromIndex,
                  unsigned int count) {
    if (count == 0) return;
    memmove(to->children + toIndex, from->children + fromIndex, count * sizeof(unsigned int));
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
    cleanupDataMembers();
}

KR_Btree& KR_Btree::operator=(const KR_Btree& other) {
    KR_setUserError(0);
    if (&other != this) KRI_FAIL(KR_RET_ERR_NSUP);
    return *this;
}

KR_RET_STATUS KR_Btree::create(KR_Array<KR_VAR_TYPE>& keyTypes,
                               unsigned int order,
                               unsigned char unique) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ != 0) return KRI_FAIL(KR_RET_ERR_CALL);
    if (!keyTypes.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_OBJ);
    unsigned int count = keyTypes.numElems();
    if (order < kMinOrder || order > kMaxOrder || count == 0 || count > kMaxKeyElems) {
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Btree: bad order or key types", "%u, %u", order,
                            count);
    }
    for (unsigned int i = 0; i < count; ++i) {
        KR_VAR_TYPE type = keyTypes[i];
        if (type < KR_VAR_UCHAR || type > KR_VAR_PTR) {
            return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Btree: bad order or key types", "%u, %u", order,
                                count);
        }
    }
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
    slotSize_ = keyFixed_ != 0 ? keyFixed_ : kSlotVar;
    mode_ = 1;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::close() {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    if (locked_) return KRI_FAIL_MSG(KR_RET_ERR_ILOCK, "KR_Btree: changed during a walk", "%s", "");
    cleanupDataMembers();
    initDataMembers();
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::insert(KR_VarArr& key, unsigned long long ref) {
    KR_setUserError(0);
    KR_RET_STATUS st = checkChange();
    if (KRI_FAILED(st)) return st;
    st = encodeProbe(key);
    if (KRI_FAILED(st)) return st;
    bool withRef = unique_ == 0;

    // Descend, recording the path; an equal entry answers before anything changes.
    unsigned int depth = 0;
    for (unsigned int id = root_; id != 0;) {
        BtreeNode* x = node(id);
        unsigned int i = lowerBound(x, ref, withRef);
        if (i < x->n && compareAt(x, i, ref, withRef) == 0) return KR_RET_FALSE;
        pathNodes_[depth] = id;
        pathSlots_[depth] = i;
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
    BtreeNode* made[kMaxHeight + 1];
    unsigned int madeCount = 0;
    st = fresh != 0 ? growTable(fresh) : KR_RET_TRUE;
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

    // Acquire: the reserved list first (LIFO), then new ids.
    BtreeNode* acquired[kMaxHeight + 1];
    for (unsigned int k = 0; k < need; ++k) {
        BtreeNode* x;
        if (k < fromReserved) {
            x = nodes_[reservedHead_];
            reservedHead_ = x->nextReserved;
            --reservedCount_;
            x->reserved = 0;
            x->nextReserved = 0;
            x->n = 0;
        } else {
            x = made[k - fromReserved];
            x->id = tableSize_;
            nodes_[tableSize_++] = x;
        }
        acquired[k] = x;
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
    x->refs[i] = ref;
    ++x->n;

    // Split upward while a node overflows: keys 0..h-1 stay, key h moves up, the rest go to the
    // next acquired node.
    unsigned int next = depth == 0 ? 1 : 0;
    unsigned char up[krInternal::kMaxKeyBytes];
    while (x->n == order_) {
        unsigned int h = order_ / 2;
        unsigned int moved = order_ - 1 - h;
        BtreeNode* y = acquired[next++];
        y->height = x->height;
        moveEntries(y, 0, x, h + 1, moved, slotSize_);
        if (x->height > 1) moveChildren(y, 0, x, h + 1, moved + 1);
        y->n = moved;
        memcpy(up, slotAt(x, h, slotSize_), slotSize_);
        unsigned long long upRef = x->refs[h];
        x->n = h;
        ++nodeCount_;
        if (level == 0) {
            BtreeNode* r = acquired[next++];
            r->height = x->height + 1;
            memcpy(slotAt(r, 0, slotSize_), up, slotSize_);
            r->refs[0] = upRef;
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
        memcpy(slotAt(p, s, slotSize_), up, slotSize_);
        p->refs[s] = upRef;
        p->children[s + 1] = y->id;
        ++p->n;
        x = p;
    }
    ++entryCount_;
    curDepth_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::find(KR_VarArr& key, unsigned long long& ref) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    KR_RET_STATUS st = encodeProbe(key);
    if (KRI_FAILED(st)) return st;
    unsigned int nodes[kMaxHeight];
    unsigned int slots[kMaxHeight];
    unsigned int depth;
    if (!locate(0, unique_ == 0, nodes, slots, depth)) return KR_RET_FALSE;
    BtreeNode* x = node(nodes[depth - 1]);
    unsigned int i = slots[depth - 1];
    if (compareAt(x, i, 0, false) != 0) return KR_RET_FALSE;
    ref = x->refs[i];
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::update(KR_VarArr& key, unsigned long long ref) {
    KR_setUserError(0);
    KR_RET_STATUS st = checkChange();
    if (KRI_FAILED(st)) return st;
    if (!unique_) return KRI_FAIL(KR_RET_ERR_NSUP);
    st = encodeProbe(key);
    if (KRI_FAILED(st)) return st;
    unsigned int depth;
    if (!locate(0, false, pathNodes_, pathSlots_, depth)) return KR_RET_FALSE;
    BtreeNode* x = node(pathNodes_[depth - 1]);
    unsigned int i = pathSlots_[depth - 1];
    if (compareAt(x, i, 0, false) != 0) return KR_RET_FALSE;
    x->refs[i] = ref;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::remove(KR_VarArr& key) {
    KR_setUserError(0);
    KR_RET_STATUS st = checkChange();
    if (KRI_FAILED(st)) return st;
    st = encodeProbe(key);
    if (KRI_FAILED(st)) return st;
    unsigned int depth;
    if (!locate(0, unique_ == 0, pathNodes_, pathSlots_, depth)) return KR_RET_FALSE;
    BtreeNode* x = node(pathNodes_[depth - 1]);
    if (compareAt(x, pathSlots_[depth - 1], 0, false) != 0) return KR_RET_FALSE;
    return removeAt(depth);
}

KR_RET_STATUS KR_Btree::removeEntry(KR_VarArr& key, unsigned long long ref) {
    KR_setUserError(0);
    KR_RET_STATUS st = checkChange();
    if (KRI_FAILED(st)) return st;
    st = encodeProbe(key);
    if (KRI_FAILED(st)) return st;
    unsigned int depth;
    if (!locate(ref, unique_ == 0, pathNodes_, pathSlots_, depth)) return KR_RET_FALSE;
    BtreeNode* x = node(pathNodes_[depth - 1]);
    unsigned int i = pathSlots_[depth - 1];
    if (compareAt(x, i, ref, unique_ == 0) != 0 || x->refs[i] != ref) return KR_RET_FALSE;
    return removeAt(depth);
}

KR_RET_STATUS KR_Btree::clear() {
    KR_setUserError(0);
    KR_RET_STATUS st = checkChange();
    if (KRI_FAILED(st)) return st;
    for (unsigned int id = 1; id < tableSize_; ++id) {
        BtreeNode* x = nodes_[id];
        if (x == nullptr || x->reserved) continue;
        for (unsigned int i = 0; i < x->n; ++i)
            freeSlot(x, i);
        pushReserved(x);
    }
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
    st = growTable(count);
    if (KRI_FAILED(st)) return st;
    unsigned int first = tableSize_;
    for (unsigned int k = 0; k < count; ++k) {
        BtreeNode* x = nullptr;
        st = newNodeBlock(x);
        if (KRI_FAILED(st)) {
            while (tableSize_ > first)
                krInternal::freeBlock(nodes_[--tableSize_]);
            return st;
        }
        nodes_[tableSize_++] = x;
    }
    for (unsigned int id = first; id < tableSize_; ++id) {
        nodes_[id]->id = id;
        pushReserved(nodes_[id]);
    }
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::releaseReserved() {
    KR_setUserError(0);
    KR_RET_STATUS st = checkChange();
    if (KRI_FAILED(st)) return st;
    while (reservedHead_ != 0) {
        BtreeNode* x = nodes_[reservedHead_];
        nodes_[reservedHead_] = nullptr;
        reservedHead_ = x->nextReserved;
        krInternal::freeBlock(x);
    }
    reservedCount_ = 0;
    while (tableSize_ > 1 && nodes_[tableSize_ - 1] == nullptr)
        --tableSize_;
    return KR_RET_TRUE;
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
    slotSize_ = 0;
    probe_ = nullptr;
    probeLen_ = 0;
    probeCapacity_ = 0;
    curDepth_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::cleanupDataMembers() {
    for (unsigned int id = 1; id < tableSize_ && nodes_ != nullptr; ++id) {
        BtreeNode* x = nodes_[id];
        if (x == nullptr) continue;
        if (!x->reserved) {
            for (unsigned int i = 0; i < x->n; ++i)
                freeSlot(x, i);
        }
        krInternal::freeBlock(x);
    }
    krInternal::freeBlock(nodes_);
    krInternal::freeBlock(probe_);
    keyTypes_.delAll();
    nodes_ = nullptr;
    probe_ = nullptr;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::checkChange() {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    if (locked_) return KRI_FAIL_MSG(KR_RET_ERR_ILOCK, "KR_Btree: changed during a walk", "%s", "");
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
    const unsigned char* k = krInternal::slotKey(x, i, keyFixed_, len);
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

bool KR_Btree::locate(unsigned long long ref,
                      bool withRef,
                      unsigned int* pathNodes,
                      unsigned int* pathSlots,
                      unsigned int& depth) const {
    depth = 0;
    unsigned int best = 0;
    for (unsigned int id = root_; id != 0 && depth < kMaxHeight;) {
        const BtreeNode* x = node(id);
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
    return best != 0;
}

BtreeNode* KR_Btree::node(unsigned int id) const {
    return nodes_[id];
}

KR_RET_STATUS KR_Btree::removeAt(unsigned int depth) {
    unsigned int level = depth - 1;
    BtreeNode* x = node(pathNodes_[level]);
    unsigned int i = pathSlots_[level];
    freeSlot(x, i);
    if (x->height > 1) {
        // The predecessor, the last entry of the rightmost leaf below child i, takes its place.
        unsigned int id = x->children[i];
        BtreeNode* leaf;
        for (;;) {
            leaf = node(id);
            pathNodes_[++level] = id;
            if (leaf->height == 1) break;
            pathSlots_[level] = leaf->n;
            id = leaf->children[leaf->n];
        }
        pathSlots_[level] = leaf->n - 1;
        moveEntries(x, i, leaf, leaf->n - 1, 1, slotSize_);
        --leaf->n;
        x = leaf;
    } else {
        moveEntries(x, i, x, i + 1, x->n - i - 1, slotSize_);
        --x->n;
    }

    // Rebalance upward: borrow from a sibling with keys to spare, else merge with one.
    unsigned int minKeys = (order_ + 1) / 2 - 1;
    while (level > 0 && x->n < minKeys) {
        BtreeNode* p = node(pathNodes_[level - 1]);
        unsigned int s = pathSlots_[level - 1];
        bool internal = x->height > 1;
        BtreeNode* left = s > 0 ? node(p->children[s - 1]) : nullptr;
        BtreeNode* right = s < p->n ? node(p->children[s + 1]) : nullptr;
        if (left != nullptr && left->n > minKeys) {
            moveEntries(x, 1, x, 0, x->n, slotSize_);
            moveEntries(x, 0, p, s - 1, 1, slotSize_);
            moveEntries(p, s - 1, left, left->n - 1, 1, slotSize_);
            if (internal) {
                moveChildren(x, 1, x, 0, x->n + 1);
                x->children[0] = left->children[left->n];
            }
            --left->n;
            ++x->n;
            break;
        }
        if (right != nullptr && right->n > minKeys) {
            moveEntries(x, x->n, p, s, 1, slotSize_);
            moveEntries(p, s, right, 0, 1, slotSize_);
            if (internal) {
                x->children[x->n + 1] = right->children[0];
                moveChildren(right, 0, right, 1, right->n);
            }
            moveEntries(right, 0, right, 1, right->n - 1, slotSize_);
            --right->n;
            ++x->n;
            break;
        }
        // Merge the right one of the pair into the left one, with the separator between them.
        unsigned int sep = left != nullptr ? s - 1 : s;
        BtreeNode* into = left != nullptr ? left : x;
        BtreeNode* gone = left != nullptr ? x : right;
        moveEntries(into, into->n, p, sep, 1, slotSize_);
        moveEntries(into, into->n + 1, gone, 0, gone->n, slotSize_);
        if (internal) moveChildren(into, into->n + 1, gone, 0, gone->n + 1);
        into->n += 1 + gone->n;
        moveEntries(p, sep, p, sep + 1, p->n - sep - 1, slotSize_);
        moveChildren(p, sep + 1, p, sep + 2, p->n - sep - 1);
        --p->n;
        gone->n = 0;
        pushReserved(gone);
        --nodeCount_;
        x = p;
        --level;
    }
    BtreeNode* r = node(root_);
    if (r->n == 0) {
        root_ = r->height > 1 ? r->children[0] : 0;
        height_ = root_ != 0 ? height_ - 1 : 0;
        pushReserved(r);
        --nodeCount_;
    }
    --entryCount_;
    curDepth_ = 0;
    return KR_RET_TRUE;
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
