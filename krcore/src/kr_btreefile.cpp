// kr_btreefile.cpp — the B-tree in a record file: its header, its node records and node cache.
// Record 0 holds the header; every other used record of kind 2 is a node, numbered by its
// record number. All numbers are little-endian; keys are stored in their order-preserving form.
//   header: "KRBTREE\0", version 1.0.0 (3 x u32), order, flags (bit 0 unique), root, height,
//           node count, entry count (u64), reserved count, reserved head, key length L, value
//           size V (0: none), then L element types (u32 each)
//   node:   "KRBN", flags (u16, bit 0 on the reserved list), height (u16, 1 = leaf), n (u32,
//           the next reserved id for a reserved node), n + 1 child ids above the leaves, then
//           n entries: ref (u64), key length (u32, only for schemas with text), key bytes, V
//           value bytes
#include <string.h>

#include "kr_alloc.h"
#include "kr_btree.h"
#include "kr_btreecore.h"
#include "kr_endian.h"
#include "kr_mem.h"
#include "kr_report.h"

#define KRI_UNIT "src/kr_btree"

using krInternal::BtreeNode;
using krInternal::kInlineKey;
using krInternal::kMaxHeight;
using krInternal::loadLe;
using krInternal::storeLe;

namespace {

const unsigned int kFileKind = 0x5442524Bu;  // the bytes "KRBT"
const unsigned int kNodeKind = 2;
const unsigned int kHeaderKind = 1;
const unsigned int kHeaderSize = 64;
const unsigned int kNodeHead = 12;
const unsigned int kMinCache = 16;
const char kHeaderMagic[8] = {'K', 'R', 'B', 'T', 'R', 'E', 'E', 0};
const char kNodeMagic[4] = {'K', 'R', 'B', 'N'};

}  // namespace

// --- KR_Btree: file trees ---

KR_RET_STATUS KR_Btree::createFile(const char* name,
                                   KR_Array<KR_VAR_TYPE>& keyTypes,
                                   unsigned int order,
                                   unsigned char unique,
                                   unsigned int valueSize) {
    return createFileT(name, keyTypes, order, unique, valueSize);
}

KR_RET_STATUS KR_Btree::createFile(const wchar_t* name,
                                   KR_Array<KR_VAR_TYPE>& keyTypes,
                                   unsigned int order,
                                   unsigned char unique,
                                   unsigned int valueSize) {
    return createFileT(name, keyTypes, order, unique, valueSize);
}

KR_RET_STATUS KR_Btree::openFile(const char* name, KR_FILE_MODE mode) {
    return openFileT(name, mode);
}

KR_RET_STATUS KR_Btree::openFile(const wchar_t* name, KR_FILE_MODE mode) {
    return openFileT(name, mode);
}

KR_RET_STATUS KR_Btree::flush(unsigned char toDisk) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    if (mode_ != 3) return KR_RET_TRUE;
    for (unsigned int id = 1; id < tableSize_; ++id) {
        BtreeNode* x = nodes_[id];
        if (x == nullptr || !x->dirty) continue;
        KR_RET_STATUS st = writeNode(x);
        if (KRI_FAILED(st)) return st;
    }
    if (headerDirty_) {
        KR_RET_STATUS st = writeHeader();
        if (KRI_FAILED(st)) return st;
    }
    KR_RET_STATUS st = file_->recFlush(toDisk);
    if (KRI_FAILED(st)) return fileFailed(st, false);
    appendedCount_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::setCacheSize(unsigned int nodes, unsigned long long bytes) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    cacheLimit_ = nodes != 0 && nodes < kMinCache ? kMinCache : nodes;
    cacheByteLimit_ = bytes;
    ++opStamp_;
    return file_ != nullptr ? makeRoom() : KR_RET_TRUE;
}

template <class Char>
KR_RET_STATUS KR_Btree::createFileT(const Char* name,
                                    KR_Array<KR_VAR_TYPE>& keyTypes,
                                    unsigned int order,
                                    unsigned char unique,
                                    unsigned int valueSize) {
    KR_setUserError(0);
    KR_RET_STATUS st = checkTypes(keyTypes, order, valueSize, true);
    if (KRI_FAILED(st)) return st;
    if (name == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    file_ = krInternal::newObject<KR_FileBinaryRec>();
    if (file_ == nullptr) return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Btree allocation", KR_msg(0, 1));
    st = adoptTypes(keyTypes, order, unique, valueSize);
    if (!KRI_FAILED(st)) st = file_->create(name, kFileKind, 0, 1);
    if (!KRI_FAILED(st)) {
        unsigned int index = 0;
        st = ioRoom(kHeaderSize + 4 * keyTypes_.numElems());
        mode_ = 3;
        if (!KRI_FAILED(st)) {
            // An empty header record first, so that record 0 exists; writeHeader fills it.
            st = file_->recAppend(io_, 0, index, kHeaderKind);
        }
        if (!KRI_FAILED(st)) st = writeHeader();
        if (!KRI_FAILED(st)) st = file_->recFlush(0);
    }
    if (KRI_FAILED(st)) {
        cleanupDataMembers();
        initDataMembers();
        return st;
    }
    tableSize_ = 1;
    return KR_RET_TRUE;
}

template <class Char>
KR_RET_STATUS KR_Btree::openFileT(const Char* name, KR_FILE_MODE mode) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ != 0) return KRI_FAIL(KR_RET_ERR_CALL);
    if (name == nullptr || (mode != KR_FILE_MODE_READ && mode != KR_FILE_MODE_UPDATE)) {
        return KRI_FAIL(KR_RET_ERR_ARG);
    }
    file_ = krInternal::newObject<KR_FileBinaryRec>();
    if (file_ == nullptr) return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Btree allocation", KR_msg(0, 1));
    KR_RET_STATUS st = file_->open(name, mode);
    if (st == KR_RET_TRUE && file_->recKind() != kFileKind) st = KR_RET_FALSE;
    if (st == KR_RET_TRUE) {
        mode_ = mode == KR_FILE_MODE_READ ? 2 : 3;
        st = readHeader();
    }
    if (st != KR_RET_TRUE) {
        if (file_->isOpen()) file_->close();
        cleanupDataMembers();
        initDataMembers();
    }
    return st;
}

KR_RET_STATUS KR_Btree::readHeader() {
    KR_Memory record;
    KR_RET_STATUS st = file_->recRead(0, record);
    if (KRI_FAILED(st)) return st;
    const unsigned char* h = static_cast<const unsigned char*>(record.memPtr());
    unsigned int size = record.memSize();
    const char* reason = nullptr;
    KR_FileBinrecTblEntry entry;
    if (st != KR_RET_TRUE || size < kHeaderSize || file_->recGetEntry(0, entry) != KR_RET_TRUE ||
        entry.kind != kHeaderKind || memcmp(h, kHeaderMagic, 8) != 0) {
        reason = "no header record";
    } else if (loadLe<unsigned int>(h + 8) != 1) {
        return KRI_FAIL_MSG(KR_RET_ERR_NSUP, "KR_Btree: corrupt header", "%s",
                            "newer major version");
    }
    unsigned int count = reason == nullptr ? loadLe<unsigned int>(h + 56) : 0;
    if (reason == nullptr && (count == 0 || count > 255 || size != kHeaderSize + 4 * count)) {
        reason = "bad key length";
    }
    KR_Array<KR_VAR_TYPE> types(count, 1);
    if (!types.objIsEnabled()) return KR_RET_ERR_MEM;
    for (unsigned int i = 0; reason == nullptr && i < count; ++i) {
        unsigned int type = loadLe<unsigned int>(h + kHeaderSize + 4 * i);
        if (type < KR_VAR_UCHAR || type >= KR_VAR_PTR) reason = "bad key type";
        types[i] = static_cast<KR_VAR_TYPE>(type);
    }
    unsigned int order = reason == nullptr ? loadLe<unsigned int>(h + 20) : 0;
    if (reason == nullptr && (order < 3 || order > 4096)) reason = "bad order";
    unsigned int valueSize = reason == nullptr ? loadLe<unsigned int>(h + 60) : 0;
    if (reason == nullptr && !krInternal::valueSizeFits(order, valueSize)) {
        reason = "bad value size";
    }
    if (reason != nullptr) {
        return KRI_FAIL_MSG(KR_RET_ERR_FILE, "KR_Btree: corrupt header", "%s", reason);
    }
    unsigned int root = loadLe<unsigned int>(h + 28);
    unsigned int height = loadLe<unsigned int>(h + 32);
    unsigned long long entries = loadLe<unsigned long long>(h + 40);
    unsigned int reservedHead = loadLe<unsigned int>(h + 52);
    unsigned int records = file_->recNum();
    if ((root == 0) != (height == 0) || (root == 0) != (entries == 0) || height > kMaxHeight ||
        root >= records || reservedHead >= records) {
        return KRI_FAIL_MSG(KR_RET_ERR_FILE, "KR_Btree: corrupt header", "%s", "bad root");
    }
    st = adoptTypes(types, order, loadLe<unsigned int>(h + 24) & 1, valueSize);
    if (KRI_FAILED(st)) return st;
    st = growTable(records > tableSize_ ? records - tableSize_ : 0);
    if (KRI_FAILED(st)) return st;
    tableSize_ = records;
    root_ = root;
    height_ = height;
    nodeCount_ = loadLe<unsigned int>(h + 36);
    entryCount_ = entries;
    reservedCount_ = loadLe<unsigned int>(h + 48);
    reservedHead_ = reservedHead;
    headerDirty_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::writeHeader() {
    unsigned int count = keyTypes_.numElems();
    unsigned int size = kHeaderSize + 4 * count;
    KR_RET_STATUS st = ioRoom(size);
    if (KRI_FAILED(st)) return st;
    memset(io_, 0, size);
    memcpy(io_, kHeaderMagic, 8);
    storeLe<unsigned int>(io_ + 8, 1);
    storeLe<unsigned int>(io_ + 20, order_);
    storeLe<unsigned int>(io_ + 24, unique_);
    storeLe<unsigned int>(io_ + 28, root_);
    storeLe<unsigned int>(io_ + 32, height_);
    storeLe<unsigned int>(io_ + 36, nodeCount_);
    storeLe<unsigned long long>(io_ + 40, entryCount_);
    storeLe<unsigned int>(io_ + 48, reservedCount_);
    storeLe<unsigned int>(io_ + 52, reservedHead_);
    storeLe<unsigned int>(io_ + 56, count);
    storeLe<unsigned int>(io_ + 60, valueSize_);
    for (unsigned int i = 0; i < count; ++i) {
        storeLe<unsigned int>(io_ + kHeaderSize + 4 * i, static_cast<unsigned int>(types_[i]));
    }
    st = file_->recWrite(0, io_, size);
    if (KRI_FAILED(st)) return fileFailed(st, false);
    headerDirty_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::fetch(unsigned int id, unsigned int height, BtreeNode*& x) {
    if (id == 0 || id >= tableSize_) {
        return KRI_FAIL_MSG(KR_RET_ERR_FILE, "KR_Btree: corrupt node", "node %u: %s", id,
                            "bad child id");
    }
    x = nodes_[id];
    if (x == nullptr) {
        if (file_ == nullptr) {
            return KRI_FAIL_MSG(KR_RET_ERR_FILE, "KR_Btree: corrupt node", "node %u: %s", id,
                                "bad child id");
        }
        KR_RET_STATUS st = loadNode(id, x);
        if (KRI_FAILED(st)) return st;
    }
    if (height != 0 && (x->reserved || x->height != height)) {
        return KRI_FAIL_MSG(KR_RET_ERR_FILE, "KR_Btree: corrupt node", "node %u: %s", id,
                            "wrong height");
    }
    x->stamp = opStamp_;
    x->referenced = 1;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::loadNode(unsigned int id, BtreeNode*& x) {
    KR_RET_STATUS st = makeRoom();
    if (KRI_FAILED(st)) return st;
    KR_FileBinrecTblEntry entry;
    if (file_->recGetEntry(id, entry) != KR_RET_TRUE || entry.kind != kNodeKind) {
        return KRI_FAIL_MSG(KR_RET_ERR_FILE, "KR_Btree: corrupt node", "node %u: %s", id,
                            "not a node record");
    }
    st = ioRoom(entry.size);
    if (KRI_FAILED(st)) return st;
    KR_Memory record;
    st = file_->recRead(id, record);
    // A read may be where a buffered write of the record file fails.
    if (st == KR_RET_ERR_FILE) return fileFailed(st, true);
    if (KRI_FAILED(st)) return st;
    const unsigned char* b = static_cast<const unsigned char*>(record.memPtr());
    unsigned int size = record.memSize();
    st = newNodeBlock(x);
    if (KRI_FAILED(st)) return st;
    x->id = id;
    const char* reason = nullptr;
    unsigned int n = size >= kNodeHead ? loadLe<unsigned int>(b + 8) : 0;
    unsigned int flags = size >= kNodeHead ? loadLe<unsigned short>(b + 4) : 0;
    x->height = size >= kNodeHead ? loadLe<unsigned short>(b + 6) : 0;
    x->reserved = flags & 1;
    if (size < kNodeHead || memcmp(b, kNodeMagic, 4) != 0 || (flags & ~1u) != 0) {
        reason = "bad node head";
    } else if (x->reserved) {
        x->nextReserved = n;
        if (n >= tableSize_ || size != kNodeHead) reason = "bad reserved node";
        n = 0;
    } else if (x->height == 0 || x->height > kMaxHeight || n == 0 || n > order_ - 1) {
        reason = "key count outside its bounds";
    }
    unsigned int at = kNodeHead;
    if (reason == nullptr && x->height > 1 && !x->reserved) {
        if ((size - at) / 4 < n + 1) reason = "truncated";
        for (unsigned int i = 0; reason == nullptr && i <= n; ++i, at += 4) {
            x->children[i] = loadLe<unsigned int>(b + at);
            if (x->children[i] == 0 || x->children[i] >= tableSize_ || x->children[i] == id) {
                reason = "bad child id";
            }
        }
    }
    unsigned int kept = 0;  // entries whose key blocks the node owns
    for (unsigned int i = 0; reason == nullptr && i < n; ++i) {
        unsigned int len = keyFixed_;
        if (size - at < 8 + (keyFixed_ != 0 ? 0 : 4)) {
            reason = "truncated";
            break;
        }
        x->refs[i] = loadLe<unsigned long long>(b + at);
        at += 8;
        if (keyFixed_ == 0) {
            len = loadLe<unsigned int>(b + at);
            at += 4;
        }
        if (size - at < len ||
            !krInternal::btreeKeyBytesValid(b + at, len, types_, keyTypes_.numElems())) {
            reason = "bad key";
            break;
        }
        if (size - at - len < valueSize_) {
            reason = "truncated";
            break;
        }
        unsigned char* slot = krInternal::slotAt(x, i, slotSize_);
        if (keyFixed_ != 0) {
            memcpy(slot, b + at, len);
        } else {
            memcpy(slot, &len, sizeof(len));
            if (len <= kInlineKey) {
                memcpy(slot + 8, b + at, len);
            } else {
                void* block = krInternal::allocBlock(len);
                if (block == nullptr) {
                    st = KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Btree allocation", KR_msg(0, 1));
                    break;
                }
                memcpy(block, b + at, len);
                memcpy(slot + 8, &block, sizeof(block));
            }
        }
        at += len;
        memcpy(slot + keySlot_, b + at, valueSize_);
        at += valueSize_;
        kept = i + 1;
    }
    if (reason == nullptr && !KRI_FAILED(st) && at != size) reason = "trailing bytes";
    if (reason != nullptr || KRI_FAILED(st)) {
        for (unsigned int i = 0; i < kept; ++i)
            freeSlot(x, i);
        krInternal::freeBlock(x);
        x = nullptr;
        if (reason == nullptr) return st;
        return KRI_FAIL_MSG(KR_RET_ERR_FILE, "KR_Btree: corrupt node", "node %u: %s", id, reason);
    }
    x->n = n;
    nodes_[id] = x;
    ++cacheCount_;
    cacheBytes_ += nodeBytes_;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::makeRoom() {
    if (file_ == nullptr) return KR_RET_TRUE;
    // CLOCK in id order: a referenced node gets a second chance; nodes of the running
    // operation, pinned nodes and the root stay. A changed node is written before it goes:
    // the record file holds it uncommitted until the next flush commits it with the rest, and
    // a crash before that flush still opens at the last one.
    unsigned int steps = 2 * tableSize_;
    while ((cacheLimit_ != 0 && cacheCount_ >= cacheLimit_) ||
           (cacheByteLimit_ != 0 && cacheBytes_ + nodeBytes_ > cacheByteLimit_)) {
        BtreeNode* victim = nullptr;
        for (; steps != 0 && victim == nullptr; --steps) {
            if (++clockHand_ >= tableSize_) clockHand_ = 1;
            BtreeNode* x = nodes_[clockHand_];
            if (x == nullptr || x->id == root_ || x->pins != 0 || x->stamp == opStamp_) continue;
            if (x->referenced) {
                x->referenced = 0;
                continue;
            }
            victim = x;
        }
        if (victim == nullptr) return KR_RET_TRUE;  // the limit is soft
        if (victim->dirty) {
            // A failed write has taken the tree back to its last flush.
            KR_RET_STATUS st = writeNode(victim);
            if (KRI_FAILED(st)) return st;
        }
        dropNode(victim->id);
    }
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::writeNode(BtreeNode* x) {
    unsigned int n = x->reserved ? 0 : x->n;
    size_t size = kNodeHead + (x->height > 1 && !x->reserved ? 4 * (n + 1) : 0);
    for (unsigned int i = 0; i < n; ++i) {
        unsigned int len;
        krInternal::slotKey(x, i, keyFixed_, slotSize_, len);
        size += 8 + (keyFixed_ != 0 ? 0 : 4) + len + valueSize_;
    }
    if (size > 0x7FFFFFF0u) return KRI_FAIL(KR_RET_ERR_ARG);
    KR_RET_STATUS st = ioRoom(static_cast<unsigned int>(size));
    if (KRI_FAILED(st)) return st;
    memcpy(io_, kNodeMagic, 4);
    storeLe<unsigned short>(io_ + 4, x->reserved);
    storeLe<unsigned short>(io_ + 6, static_cast<unsigned short>(x->height));
    storeLe<unsigned int>(io_ + 8, x->reserved ? x->nextReserved : n);
    unsigned char* at = io_ + kNodeHead;
    if (x->height > 1 && !x->reserved) {
        for (unsigned int i = 0; i <= n; ++i, at += 4)
            storeLe<unsigned int>(at, x->children[i]);
    }
    for (unsigned int i = 0; i < n; ++i) {
        unsigned int len;
        const unsigned char* key = krInternal::slotKey(x, i, keyFixed_, slotSize_, len);
        storeLe<unsigned long long>(at, x->refs[i]);
        at += 8;
        if (keyFixed_ == 0) {
            storeLe<unsigned int>(at, len);
            at += 4;
        }
        memcpy(at, key, len);
        at += len;
        memcpy(at, krInternal::slotAt(x, i, slotSize_) + keySlot_, valueSize_);
        at += valueSize_;
    }
    st = file_->recWrite(x->id, io_, static_cast<unsigned int>(size));
    if (KRI_FAILED(st)) return fileFailed(st, false);
    x->dirty = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::appendNodes(BtreeNode** made, unsigned int count) {
    // Each new node gets its number from an empty leaf record now; its bytes follow on flush.
    unsigned char empty[kNodeHead] = {'K', 'R', 'B', 'N', 0, 0, 1, 0, 0, 0, 0, 0};
    unsigned int done = 0;
    // Room in the cache for them first, from the nodes that this operation does not hold.
    KR_RET_STATUS st = makeRoom();
    if (KRI_FAILED(st)) {
        for (unsigned int k = 0; k < count; ++k)
            krInternal::freeBlock(made[k]);
        return st;
    }
    if (count > appendedCapacity_ - appendedCount_) {
        unsigned int capacity = appendedCapacity_ < 64 ? 64 : appendedCapacity_;
        while (capacity - appendedCount_ < count)
            capacity *= 2;
        void* grown = krInternal::reallocBlock(appended_, capacity * sizeof(unsigned int));
        if (grown == nullptr) {
            for (unsigned int k = 0; k < count; ++k)
                krInternal::freeBlock(made[k]);
            return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Btree allocation", KR_msg(0, 1));
        }
        appended_ = static_cast<unsigned int*>(grown);
        appendedCapacity_ = capacity;
    }
    for (; done < count; ++done) {
        unsigned int id = 0;
        st = file_->recAppend(empty, kNodeHead, id, kNodeKind);
        if (KRI_FAILED(st)) break;
        if (id >= tableSize_) {
            st = growTable(id + 1 - tableSize_);
            if (KRI_FAILED(st)) break;
            tableSize_ = id + 1;
        }
        appended_[appendedCount_++] = id;
        made[done]->id = id;
        made[done]->height = 1;
        made[done]->stamp = opStamp_;
        nodes_[id] = made[done];
        ++cacheCount_;
        cacheBytes_ += nodeBytes_;
    }
    if (!KRI_FAILED(st)) return KR_RET_TRUE;
    // The numbers taken so far go back; the blocks not yet numbered are freed.
    for (unsigned int k = done; k < count; ++k)
        krInternal::freeBlock(made[k]);
    if (st == KR_RET_ERR_FILE) return fileFailed(st, false);
    for (unsigned int k = 0; k < done; ++k) {
        unsigned int id = made[k]->id;
        dropNode(id);
        file_->recDelete(id);
    }
    appendedCount_ -= done;
    return st;
}

KR_RET_STATUS KR_Btree::fileFailed(KR_RET_STATUS st, bool onRead) {
    // A failed write takes the record file back to its last commit (or closes it): the tree
    // follows. A failed read may leave the records added since then in place: they go too.
    dropCache();
    curDepth_ = 0;
    for (unsigned int k = 0; onRead && k < appendedCount_ && file_->isOpen(); ++k) {
        if (file_->recHas(appended_[k]) == KR_RET_TRUE) file_->recDelete(appended_[k]);
    }
    appendedCount_ = 0;
    if (file_->isOpen() && !KRI_FAILED(readHeader())) return st;
    unsigned char keep = initialised_;
    cleanupDataMembers();
    initDataMembers();
    initialised_ = keep;
    return st;
}

KR_RET_STATUS KR_Btree::ioRoom(unsigned int size) {
    if (size <= ioCapacity_) return KR_RET_TRUE;
    unsigned int capacity = ioCapacity_ < 256 ? 256 : ioCapacity_;
    while (capacity < size)
        capacity = capacity > 0x40000000u ? size : capacity * 2;
    void* grown = krInternal::reallocBlock(io_, capacity);
    if (grown == nullptr) return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Btree allocation", KR_msg(0, 1));
    io_ = static_cast<unsigned char*>(grown);
    ioCapacity_ = capacity;
    return KR_RET_TRUE;
}

void KR_Btree::touch(BtreeNode* x) {
    if (touchedCount_ < sizeof(touched_) / sizeof(touched_[0])) touched_[touchedCount_++] = x->id;
}

void KR_Btree::markTouched() {
    for (unsigned int k = 0; k < touchedCount_; ++k) {
        BtreeNode* x = nodes_[touched_[k]];
        if (x != nullptr) x->dirty = 1;
    }
    touchedCount_ = 0;
    headerDirty_ = 1;
}

void KR_Btree::dropNode(unsigned int id) {
    BtreeNode* x = nodes_[id];
    if (x == nullptr) return;
    if (!x->reserved) {
        for (unsigned int i = 0; i < x->n; ++i)
            freeSlot(x, i);
    }
    krInternal::freeBlock(x);
    nodes_[id] = nullptr;
    if (file_ != nullptr) {
        --cacheCount_;
        cacheBytes_ -= nodeBytes_;
    }
}

void KR_Btree::dropCache() {
    ++cacheEpoch_;
    for (unsigned int id = 1; id < tableSize_ && nodes_ != nullptr; ++id)
        dropNode(id);
}
