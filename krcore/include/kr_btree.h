// kr_btree.h — the B-tree index: compound variant keys mapped to 64-bit references.
// KR_Btree is an ordered index of KR_VarArr keys of one fixed schema, each with a 64-bit
// reference (a record number, an offset, a pointer-sized value) and, when the tree is made with
// a value size, a value of that many bytes beside it; kept in memory or in a file. It offers
// insert, find, remove, ordered cursors both ways, a pool of reserved nodes, an in-order and a
// breadth-first walk, and a consistency check. KR_btreeKeyComp is the order it keeps. Reports
// go under "src/kr_btree".
#ifndef KRCORE_KR_BTREE_H
#define KRCORE_KR_BTREE_H

#include "kr_array_impl.h"
#include "kr_base.h"
#include "kr_container.h"
#include "kr_file.h"
#include "kr_queue_impl.h"
#include "kr_var.h"
#include "kr_vcarray_impl.h"

// KR_BtreeLink — where a node sits in its tree: its id, its parent's id (0 for the root), its
// position among the parent's children and its distance from the root. A plain record, held by
// value in the containers (raw copies are fine).
struct KR_BtreeLink {
    unsigned int node;    // node id; 0 means no node
    unsigned int parent;  // parent's id; 0 for the root
    unsigned int slot;    // position among the parent's children; 0 for the root
    unsigned int level;   // the root is level 0

    KR_BtreeLink() : node(0), parent(0), slot(0), level(0) {}

    KR_BtreeLink(unsigned int nodeId,
                 unsigned int parentId,
                 unsigned int slotIndex,
                 unsigned int levelIndex)
        : node(nodeId), parent(parentId), slot(slotIndex), level(levelIndex) {}

    bool operator==(const KR_BtreeLink& other) const {
        return node == other.node && parent == other.parent && slot == other.slot &&
               level == other.level;
    }
};

// The link containers are provided by the library (kr_instances.cpp); the breadth-first walk
// queues links in a growable KR_Queue over KR_VCArray.
extern template class KR_API KR_Container<KR_BtreeLink>;
extern template class KR_API KR_OrdContainer<KR_BtreeLink>;
extern template class KR_API KR_I_Iterator<KR_BtreeLink>;
extern template class KR_API KR_IndContainer<KR_BtreeLink>;
extern template class KR_API KR_Array<KR_BtreeLink>;
extern template struct KR_VCARR_LLIST_REC<KR_BtreeLink>;
extern template class KR_API KR_Container<KR_VCARR_LLIST_REC<KR_BtreeLink>>;
extern template class KR_API KR_OrdContainer<KR_VCARR_LLIST_REC<KR_BtreeLink>>;
extern template class KR_API KR_I_Iterator<KR_VCARR_LLIST_REC<KR_BtreeLink>>;
extern template class KR_API KR_IndContainer<KR_VCARR_LLIST_REC<KR_BtreeLink>>;
extern template class KR_API KR_LNode<KR_VCARR_LLIST_REC<KR_BtreeLink>>;
extern template class KR_API KR_LList<KR_VCARR_LLIST_REC<KR_BtreeLink>>;
extern template class KR_API KR_VCArray<KR_BtreeLink>;
extern template class KR_API KR_Queue<KR_BtreeLink>;

// The order of B-tree keys: -1, 0 or 1. A shorter array sorts first; arrays of one length
// compare element by element, the first difference deciding; elements of different types sort
// by type number. Where it differs from KR_VarArr's own comparison:
// - int: by signed value (the variant takes a 32-bit difference, which wraps, so INT_MAX would
//   sort below -1);
// - float and double: by exact IEEE value, -0 equal to +0 (the variant treats values less than
//   0.001 apart as equal, which is not transitive); a NaN sorts above everything and equals
//   another NaN, but a tree refuses NaN and infinite keys;
// - wide text: by UTF-16 code units on every platform (on Linux the variant compares code
//   points, which sorts characters above U+FFFF after U+E000..U+FFFF the other way round).
// Narrow text, the other integers and pointers agree with the variant: unsigned bytes, null
// equal to empty. An in-order walk of a tree is sorted by this function, and a std::map keyed
// by KR_VarArr reproduces a tree's order with KR_BtreeKeyLess.
KR_API int KR_btreeKeyComp(KR_VarArr& left, KR_VarArr& right);

struct KR_API KR_BtreeKeyLess {
    bool operator()(const KR_VarArr& left, const KR_VarArr& right) const;
};

class KR_Btree;

// Walk callbacks. A callback answering KR_RET_FALSE ends the walk, which then answers
// KR_RET_TRUE; a failure ends it and is returned. The key handed to an entry callback belongs to
// the tree: read it, do not change it.
typedef KR_RET_STATUS (*KR_BTREE_ENTRY_FN)(void* user, KR_VarArr& key, unsigned long long ref);
typedef KR_RET_STATUS (*KR_BTREE_NODE_FN)(void* user,
                                          const KR_BtreeLink& link,
                                          unsigned int numKeys,
                                          unsigned int height);

namespace krInternal {
struct BtreeNode;
}

// KR_Btree — a B-tree of Knuth order m (3..4096) over a fixed key schema: every key must have
// the schema's element types, position by position. A unique tree holds one entry per key; a
// duplicate tree holds entries ordered by (key, ref). Keys are held in an order-preserving byte
// form, so the tree compares them with memcmp and no key is a heap object of its own.
// A tree made with valueSize > 0 keeps that many bytes with every entry, in its node: small
// records (a row, a counter, a file position with its length) need no store of their own, and
// finding or walking them reads no more than the nodes.
//
//   KR_Btree t;  t.create(types /* one KR_VAR_UINT */, 64, 1);
//   t.insert(k /* 7 */, 70);  t.insert(k /* 3 */, 30);
//   t.seek(k /* 5 */)  ->  KR_RET_FALSE, the cursor on 7;  t.setCurPrev()  ->  the cursor on 3
//
// Failures leave the tree as it was: an insert prepares every node and block it needs before
// changing anything, and a remove allocates nothing. In a file tree a failed read or write of
// the record file takes the tree back to its last flush, as it takes the file. Any change makes the
// cursor null. Inside a walk the tree is locked: the changes answer KR_RET_ERR_ILOCK, find, seek,
// the cursor and the getters stay allowed. Not copyable: the copy constructor and operator= report
// KR_RET_ERR_NSUP.
class KR_API KR_Btree : public KR_KorvaneClass {
public:
    KR_Btree();
    // Reports KR_RET_ERR_NSUP and gives a closed tree.
    KR_Btree(const KR_Btree& other);
    ~KR_Btree() override;
    // Reports KR_RET_ERR_NSUP and leaves this tree unchanged.
    KR_Btree& operator=(const KR_Btree& other);

    // A new empty memory tree. keyTypes holds 1..255 types of 2..14; order 3..4096; valueSize
    // 0..65535 bytes of value with every entry (0: none), with order x valueSize at most 16 MiB.
    // Otherwise KR_RET_ERR_ARG; KR_RET_ERR_CALL when the tree is open.
    KR_RET_STATUS create(KR_Array<KR_VAR_TYPE>& keyTypes,
                         unsigned int order,
                         unsigned char unique,
                         unsigned int valueSize = 0);
    // A new empty tree in a record file of kind "KRBT" (created or emptied), header in record 0;
    // pointer keys are KR_RET_ERR_NSUP there.
    KR_RET_STATUS createFile(const char* name,
                             KR_Array<KR_VAR_TYPE>& keyTypes,
                             unsigned int order,
                             unsigned char unique,
                             unsigned int valueSize = 0);
    KR_RET_STATUS createFile(const wchar_t* name,
                             KR_Array<KR_VAR_TYPE>& keyTypes,
                             unsigned int order,
                             unsigned char unique,
                             unsigned int valueSize = 0);
    // KR_FILE_MODE_READ or KR_FILE_MODE_UPDATE (others KR_RET_ERR_ARG). A record file of another
    // kind, or not a record file, answers KR_RET_FALSE without a report; a damaged header or
    // node KR_RET_ERR_FILE ("KR_Btree: corrupt header" / "KR_Btree: corrupt node").
    KR_RET_STATUS openFile(const char* name, KR_FILE_MODE mode);
    KR_RET_STATUS openFile(const wchar_t* name, KR_FILE_MODE mode);
    // File trees: writes the changed nodes (ascending id) and the header, then commits the
    // record file (toDisk 1 forces it to the device). Only what a flush committed survives a
    // crash: the file then opens as exactly the tree of the last flush. A write that fails
    // drops every change since the last flush, in the file and in the tree. Memory trees:
    // nothing to do.
    KR_RET_STATUS flush(unsigned char toDisk = 0);
    // Flushes a file tree, then frees everything; the tree is closed.
    KR_RET_STATUS close();
    // File trees: the node cache holds at most nodes nodes (0: no limit; below 16 counts as 16)
    // and at most bytes bytes of node blocks (0: no limit). The limits are soft: the root and
    // the nodes that the current operation or a walk holds stay. A node changed since the last
    // flush is written to the record file when it leaves, uncommitted until the next flush.
    KR_RET_STATUS setCacheSize(unsigned int nodes, unsigned long long bytes = 0);

    // KR_RET_FALSE with nothing changed when the key (unique tree) or the pair (duplicate tree)
    // is there already. A key that does not match the schema, or holds a NaN, an infinity, a
    // lone surrogate or a code point above U+10FFFF, is KR_RET_ERR_ARG. value: the entry's
    // getValueSize() bytes (null: zeros; not read when the tree has no values).
    KR_RET_STATUS insert(KR_VarArr& key, unsigned long long ref, const void* value = nullptr);
    // The ref of the first entry with that key, and its value into value (getValueSize() bytes)
    // when value is not null; KR_RET_FALSE when there is none.
    KR_RET_STATUS find(KR_VarArr& key, unsigned long long& ref, void* value = nullptr);
    // Unique trees: replaces the ref and, when value is not null, the value (KR_RET_FALSE when
    // absent). Duplicate trees: KR_RET_ERR_NSUP.
    KR_RET_STATUS update(KR_VarArr& key, unsigned long long ref, const void* value = nullptr);
    // Removes the first entry with that key / exactly that pair; KR_RET_FALSE when absent.
    KR_RET_STATUS remove(KR_VarArr& key);
    KR_RET_STATUS removeEntry(KR_VarArr& key, unsigned long long ref);
    // Every node goes to the reserved list (ascending id, the highest on top); the tree is empty.
    KR_RET_STATUS clear();
    // count new nodes onto the reserved list, in ascending id; releaseReserved frees them all.
    // In a file tree releaseReserved commits: it flushes, deletes the reserved nodes' records
    // and flushes again; a failure after the first flush leaves the tree and the file there.
    KR_RET_STATUS reserveNodes(unsigned int count);
    KR_RET_STATUS releaseReserved();

    // The cursor: KR_RET_FALSE, with the cursor null, past either end or on an empty tree.
    KR_RET_STATUS setCurFirst();
    KR_RET_STATUS setCurLast();
    KR_RET_STATUS setCurNext();
    KR_RET_STATUS setCurPrev();
    // The cursor on the first entry whose key is >= key: KR_RET_TRUE when its key equals key,
    // KR_RET_FALSE when it is greater or there is none (then the cursor is null).
    KR_RET_STATUS seek(KR_VarArr& key);
    // The tolerant lookup. The schema's last element must be FLOAT or DOUBLE (else
    // KR_RET_ERR_NSUP); tol is finite and >= 0 (else KR_RET_ERR_ARG), key a valid key. The
    // elements before the last must equal key's exactly; the last one x may differ from key's k
    // by |x - k| <= tol, computed in double. The cursor goes to the entry nearest to k, the first
    // in key order on a tie: KR_RET_TRUE. KR_RET_FALSE, with the cursor null, when no entry is
    // within tol. It seeks to k - tol and scans up to k + tol, so it costs the entries in that
    // window.
    //   keys 1.0, 1.0005, 2.0:  seekNear(1.0004, 0.001)  ->  the cursor on 1.0005
    KR_RET_STATUS seekNear(KR_VarArr& key, double tol);
    unsigned char curIsNull();
    // key gets a copy of the current key, value (when not null) its value; KR_RET_FALSE on a
    // null cursor.
    KR_RET_STATUS getCur(KR_VarArr& key, unsigned long long& ref, void* value = nullptr);
    // The current entry where the tree holds it, without a copy: key and keyLen its key in the
    // order-preserving byte form (two keys of the tree order as their bytes do under memcmp, a
    // prefix first), value its getValueSize() bytes (null when the tree has none). The pointers
    // stay valid until the next call on the tree. KR_RET_FALSE on a null cursor.
    //   for (st = t.setCurFirst(); st == KR_RET_TRUE; st = t.setCurNext())
    //       t.getCurBytes(k, kLen, ref, v);   // a scan that copies nothing it does not use
    KR_RET_STATUS getCurBytes(const unsigned char*& key,
                              unsigned int& keyLen,
                              unsigned long long& ref,
                              const unsigned char*& value);

    // Every entry in key order / every node level by level, left to right.
    KR_RET_STATUS traverse(KR_BTREE_ENTRY_FN fn, void* user);
    KR_RET_STATUS traverseBreadthFirst(KR_BTREE_NODE_FN fn, void* user);
    // Counts the tree's structural problems, reporting each as a warning ("KR_Btree consistency",
    // "node %u: <reason>", at most 100 reports): KR_RET_TRUE when there are none, KR_RET_FALSE
    // when there are some, KR_RET_ERR_MEM when the check could not run.
    KR_RET_STATUS checkConsistency(unsigned int& problems);

    unsigned int getOrder() { return order_; }

    unsigned char isUnique() { return unique_; }

    unsigned int getValueSize() { return valueSize_; }

    unsigned int getHeight() { return height_; }

    unsigned int getNodeCount() { return nodeCount_; }

    unsigned int getReservedCount() { return reservedCount_; }

    unsigned int getRootId() { return root_; }

    // File trees: the bytes of node blocks in the cache now; 0 for memory trees.
    unsigned long long getCacheBytes() { return file_ != nullptr ? cacheBytes_ : 0; }

    KR_RET_STATUS getEntryCount(unsigned long long& count);
    KR_RET_STATUS getKeyTypes(KR_Array<KR_VAR_TYPE>& keyTypes);

    unsigned char isOpen() { return mode_ != 0; }

    unsigned char isFileTree() { return mode_ >= 2 ? 1 : 0; }

    unsigned char objIsEnabled() { return initialised_; }

    // One node, for dumps and structural tests: a node id that is not live is KR_RET_ERR_ARG.
    KR_RET_STATUS getNodeInfo(unsigned int node, unsigned int& numKeys, unsigned int& height);
    KR_RET_STATUS getNodeEntry(unsigned int node,
                               unsigned int index,
                               KR_VarArr& key,
                               unsigned long long& ref);
    KR_RET_STATUS getNodeChild(unsigned int node, unsigned int index, unsigned int& child);

private:
    KR_RET_STATUS initDataMembers();
    KR_RET_STATUS cleanupDataMembers();

    // Internal steps (kr_btree.cpp, kr_btreewalk.cpp, kr_btreefile.cpp).
    KR_RET_STATUS checkChange();
    KR_RET_STATUS releaseReservedFile();
    KR_RET_STATUS checkTypes(KR_Array<KR_VAR_TYPE>& keyTypes,
                             unsigned int order,
                             unsigned int valueSize,
                             bool inFile);
    KR_RET_STATUS adoptTypes(KR_Array<KR_VAR_TYPE>& keyTypes,
                             unsigned int order,
                             unsigned char unique,
                             unsigned int valueSize);
    KR_RET_STATUS encodeProbe(KR_VarArr& key);
    int compareAt(const krInternal::BtreeNode* x,
                  unsigned int i,
                  unsigned long long ref,
                  bool withRef) const;
    unsigned int lowerBound(const krInternal::BtreeNode* x,
                            unsigned long long ref,
                            bool withRef) const;
    KR_RET_STATUS locate(unsigned long long ref,
                         bool withRef,
                         unsigned int* pathNodes,
                         unsigned int* pathSlots,
                         unsigned int& depth);

    krInternal::BtreeNode* node(unsigned int id) const { return nodes_[id]; }

    KR_RET_STATUS fetch(unsigned int id, unsigned int height, krInternal::BtreeNode*& x);
    KR_RET_STATUS prepareRemove(unsigned int depth);
    void removeAt(unsigned int depth);
    void freeSlot(krInternal::BtreeNode* x, unsigned int i);
    void pushReserved(krInternal::BtreeNode* x);
    void touch(krInternal::BtreeNode* x);
    void markTouched();
    KR_RET_STATUS newNodeBlock(krInternal::BtreeNode*& x);
    void dropNode(unsigned int id);
    KR_RET_STATUS growTable(unsigned int extra);
    KR_RET_STATUS decodeAt(const krInternal::BtreeNode* x, unsigned int i, KR_VarArr& key);
    KR_RET_STATUS stepNext(unsigned int* pathNodes, unsigned int* pathSlots, unsigned int& depth);
    KR_RET_STATUS stepPrev(unsigned int* pathNodes, unsigned int* pathSlots, unsigned int& depth);
    KR_RET_STATUS edge(bool last,
                       unsigned int* pathNodes,
                       unsigned int* pathSlots,
                       unsigned int& depth);
    int compareEntries(const krInternal::BtreeNode* x,
                       unsigned int i,
                       const krInternal::BtreeNode* y,
                       unsigned int j) const;
    KR_RET_STATUS checkNodes(unsigned char* visited, unsigned int& problems);
    template <class Char>
    KR_RET_STATUS createFileT(const Char* name,
                              KR_Array<KR_VAR_TYPE>& keyTypes,
                              unsigned int order,
                              unsigned char unique,
                              unsigned int valueSize);
    template <class Char>
    KR_RET_STATUS openFileT(const Char* name, KR_FILE_MODE mode);
    KR_RET_STATUS readHeader();
    KR_RET_STATUS writeHeader();
    KR_RET_STATUS loadNode(unsigned int id, krInternal::BtreeNode*& x);
    KR_RET_STATUS makeRoom();
    KR_RET_STATUS writeNode(krInternal::BtreeNode* x);
    KR_RET_STATUS appendNodes(krInternal::BtreeNode** made, unsigned int count);
    KR_RET_STATUS fileFailed(KR_RET_STATUS st, bool onRead);
    KR_RET_STATUS ioRoom(unsigned int size);
    void dropCache();

    unsigned char initialised_;
    unsigned char mode_;    // 0 closed, 1 memory, 2 file read-only, 3 file read-write
    unsigned char unique_;  // 1: one entry per key
    unsigned char locked_;  // set during a walk
    unsigned int order_;    // m, 3..4096
    KR_Array<KR_VAR_TYPE> keyTypes_;
    const KR_VAR_TYPE* types_;  // keyTypes_'s elements
    unsigned int root_;         // 0 exactly when the tree is empty
    unsigned int height_;       // 0 empty, 1 when the root is a leaf
    unsigned int nodeCount_;    // live nodes (reachable from the root)
    unsigned long long entryCount_;
    unsigned int reservedHead_;  // LIFO list chained through the nodes; 0 ends it
    unsigned int reservedCount_;
    krInternal::BtreeNode** nodes_;  // id -> node, null for a released id; index 0 unused
    unsigned int tableSize_;         // ids below this have been handed out
    unsigned int tableCapacity_;     // slots of nodes_; grows by doubling
    unsigned int keyFixed_;          // byte length of every key when the schema has no text, else 0
    unsigned int keySlot_;           // bytes of a slot's key part; the value follows
    unsigned int valueSize_;         // bytes of value with every entry
    unsigned int slotSize_;          // bytes per slot in a node: key part and value
    unsigned char* probe_;           // the encoded key of the current operation
    unsigned int probeLen_;
    unsigned int probeCapacity_;
    // The cursor: the path from the root, node ids and the child slot taken below each; in the
    // last node the slot is the entry's index. Null when curDepth_ is 0.
    unsigned int curNodes_[64];
    unsigned int curSlots_[64];
    unsigned int curDepth_;
    // The descent path of insert and remove, preallocated so that a remove never allocates.
    unsigned int pathNodes_[64];
    unsigned int pathSlots_[64];
    KR_VarArr walkKey_;        // the key handed to entry callbacks
    KR_FileBinaryRec* file_;   // file trees only; owned
    unsigned int cacheLimit_;  // nodes; 0: no limit
    unsigned long long cacheByteLimit_;
    unsigned int cacheCount_;  // nodes in memory
    unsigned long long cacheBytes_;
    unsigned int clockHand_;
    // Nodes fetched by the current operation carry its stamp and are not evicted before it ends.
    unsigned int opStamp_;
    unsigned int cacheEpoch_;  // counts the times the cache was dropped
    unsigned char headerDirty_;
    size_t nodeBytes_;   // bytes of one node block
    unsigned char* io_;  // node and header records on their way to and from the file
    unsigned int ioCapacity_;
    // The nodes an insert or remove may change, marked dirty when it is done.
    unsigned int touched_[4 * 64 + 8];
    unsigned int touchedCount_;
    unsigned int removeLeafLevel_;  // where the entry that a remove takes out sits
    // Records added for new nodes since the last flush: a failure that the record file does not
    // roll back itself deletes them, so that the file holds no node the tree does not know.
    unsigned int* appended_;
    unsigned int appendedCount_;
    unsigned int appendedCapacity_;
};

#endif  // KRCORE_KR_BTREE_H
