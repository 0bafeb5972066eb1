// kr_btreecore.h — the B-tree's in-memory node and its key bytes; internal to the library.
// A key is held in an order-preserving byte form: two keys of one schema compare as their bytes
// do under memcmp (the shorter first when one is a prefix of the other, which a schema's
// encoding never produces for two different keys). The form of each element type:
// - unsigned integers big-endian in 1, 2, 4 or 8 bytes (long types always 8), pointers in 8;
// - signed integers the same with the sign bit flipped;
// - float and double their IEEE bits big-endian, all bits flipped for negative values and the
//   sign bit set for the others (-0 is stored as +0);
// - narrow text its bytes and a zero byte (null and empty are both one zero byte);
// - wide text its UTF-16 code units big-endian and a zero unit.
#ifndef KRCORE_SRC_KR_BTREECORE_H
#define KRCORE_SRC_KR_BTREECORE_H

#include <string.h>

#include "kr_btree.h"

namespace krInternal {

// A node: n entries (refs and key slots) and, above the leaves, n + 1 children. Each array has
// room for one entry more than the order allows, so that a node can overflow before it splits.
// A slot holds an entry's key and, after it, the entry's value bytes when the tree has values.
// The key part is the key bytes themselves when every key has one length; otherwise it is
// kSlotVar bytes: the length at 0 and, at 8, the bytes when they fit kInlineKey or else a
// pointer to a block of their own.
struct BtreeNode {
    unsigned int id;
    unsigned int n;
    unsigned int height;        // 1 for a leaf
    unsigned int nextReserved;  // next id of the reserved list while the node is on it
    unsigned char reserved;     // on the reserved list
    unsigned char dirty;        // changed since it was last written (file trees)
    unsigned char referenced;   // the cache's CLOCK bit
    unsigned int stamp;         // the operation that last fetched it
    unsigned int pins;          // walks that hold it
    unsigned long long* refs;
    unsigned int* children;
    unsigned char* slots;
};

const unsigned int kSlotVar = 32;
const unsigned int kInlineKey = kSlotVar - 8;
const unsigned int kMaxHeight = 64;
// The largest value an entry can carry, and the most value bytes a full node may hold (order x
// value size), so that no header can make a node block larger than a few tens of MiB.
const unsigned int kMaxValueSize = 65535;
const unsigned long long kMaxNodeValueBytes = 1ULL << 24;

inline bool valueSizeFits(unsigned int order, unsigned int valueSize) {
    return valueSize <= kMaxValueSize &&
           static_cast<unsigned long long>(order) * valueSize <= kMaxNodeValueBytes;
}

inline unsigned int loadBig32(const unsigned char* p) {
    return (static_cast<unsigned int>(p[0]) << 24) | (static_cast<unsigned int>(p[1]) << 16) |
           (static_cast<unsigned int>(p[2]) << 8) | p[3];
}

// The key bytes of slot i and their length; stride is the slot size.
inline const unsigned char* slotKey(const BtreeNode* x,
                                    unsigned int i,
                                    unsigned int fixed,
                                    unsigned int stride,
                                    unsigned int& len) {
    const unsigned char* slot = x->slots + static_cast<size_t>(i) * stride;
    if (fixed != 0) {
        len = fixed;
        return slot;
    }
    memcpy(&len, slot, sizeof(len));
    if (len <= kInlineKey) return slot + 8;
    const unsigned char* block;
    memcpy(&block, slot + 8, sizeof(block));
    return block;
}

// Entry moves inside and between nodes: a slot moves with its value and the key block it may
// own.
inline unsigned char* slotAt(BtreeNode* x, unsigned int i, unsigned int slotSize) {
    return x->slots + static_cast<size_t>(i) * slotSize;
}

inline void moveEntries(BtreeNode* to,
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

inline void moveChildren(BtreeNode* to,
                         unsigned int toIndex,
                         BtreeNode* from,
                         unsigned int fromIndex,
                         unsigned int count) {
    if (count == 0) return;
    memmove(to->children + toIndex, from->children + fromIndex, count * sizeof(unsigned int));
}

// The schema's key length when it holds no text, else 0.
unsigned int btreeFixedKeySize(const KR_VAR_TYPE* types, unsigned int count);
// Encodes key (already checked to have count elements) into out, which may be null to learn the
// size. KR_RET_ERR_ARG (not reported) when an element's type differs from the schema, a
// floating value is not finite, or wide text is not valid UTF-16.
KR_RET_STATUS btreeEncodeKey(KR_VarArr& key,
                             const KR_VAR_TYPE* types,
                             unsigned int count,
                             unsigned char* out,
                             unsigned int& size);
// Rebuilds the key from its bytes into key (count elements of the schema's types).
// KR_RET_ERR_MEM when a text could not be copied, key then unchanged.
KR_RET_STATUS btreeDecodeKey(const unsigned char* bytes,
                             unsigned int len,
                             const KR_VAR_TYPE* types,
                             unsigned int count,
                             KR_VarArr& key);

// True when bytes hold one well-formed key of the schema in exactly len bytes (file trees,
// before a stored key is trusted): text terminated in place, long values that fit this
// platform's long.
bool btreeKeyBytesValid(const unsigned char* bytes,
                        unsigned int len,
                        const KR_VAR_TYPE* types,
                        unsigned int count);

}  // namespace krInternal

#endif  // KRCORE_SRC_KR_BTREECORE_H
