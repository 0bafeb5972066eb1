// kr_btreewalk.cpp — the B-tree's cursor, walks, consistency check and node accessors.
#include <string.h>

#include "kr_alloc.h"
#include "kr_btree.h"
#include "kr_btreecore.h"
#include "kr_report.h"

#define KRI_UNIT "src/kr_btree"

using krInternal::BtreeNode;
using krInternal::kMaxHeight;

namespace {

const unsigned int kMaxProblemReports = 100;

void problem(unsigned int& problems, unsigned int id, const char* reason) {
    if (problems < kMaxProblemReports) {
        KR_reportWarningMsg(KRI_UNIT, __LINE__, "KR_Btree consistency", "node %u: %s", id, reason);
    }
    ++problems;
}

// Holds the tree's walk lock for one walk.
class WalkLock {
public:
    explicit WalkLock(unsigned char& flag) : flag_(flag) { flag_ = 1; }

    ~WalkLock() { flag_ = 0; }

    WalkLock(const WalkLock&) = delete;
    WalkLock& operator=(const WalkLock&) = delete;

private:
    unsigned char& flag_;
};

}  // namespace

// --- KR_Btree: cursor ---

KR_RET_STATUS KR_Btree::setCurFirst() {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    return edge(false, curNodes_, curSlots_, curDepth_) ? KR_RET_TRUE : KR_RET_FALSE;
}

KR_RET_STATUS KR_Btree::setCurLast() {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    return edge(true, curNodes_, curSlots_, curDepth_) ? KR_RET_TRUE : KR_RET_FALSE;
}

KR_RET_STATUS KR_Btree::setCurNext() {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    if (curDepth_ == 0) return KR_RET_FALSE;
    return stepNext(curNodes_, curSlots_, curDepth_) ? KR_RET_TRUE : KR_RET_FALSE;
}

KR_RET_STATUS KR_Btree::setCurPrev() {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    if (curDepth_ == 0) return KR_RET_FALSE;
    return stepPrev(curNodes_, curSlots_, curDepth_) ? KR_RET_TRUE : KR_RET_FALSE;
}

KR_RET_STATUS KR_Btree::seek(KR_VarArr& key) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    KR_RET_STATUS st = encodeProbe(key);
    if (KRI_FAILED(st)) return st;
    if (!locate(0, unique_ == 0, curNodes_, curSlots_, curDepth_)) return KR_RET_FALSE;
    const BtreeNode* x = node(curNodes_[curDepth_ - 1]);
    return compareAt(x, curSlots_[curDepth_ - 1], 0, false) == 0 ? KR_RET_TRUE : KR_RET_FALSE;
}

unsigned char KR_Btree::curIsNull() {
    return curDepth_ == 0 ? 1 : 0;
}

KR_RET_STATUS KR_Btree::getCur(KR_VarArr& key, unsigned long long& ref) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    if (curDepth_ == 0) return KR_RET_FALSE;
    const BtreeNode* x = node(curNodes_[curDepth_ - 1]);
    unsigned int i = curSlots_[curDepth_ - 1];
    KR_RET_STATUS st = decodeAt(x, i, key);
    if (KRI_FAILED(st)) return st;
    ref = x->refs[i];
    return KR_RET_TRUE;
}

// --- KR_Btree: walks ---

KR_RET_STATUS KR_Btree::traverse(KR_BTREE_ENTRY_FN fn, void* user) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    if (fn == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    if (locked_) return KRI_FAIL_MSG(KR_RET_ERR_ILOCK, "KR_Btree: changed during a walk", "%s", "");
    WalkLock lock(locked_);
    unsigned int nodes[kMaxHeight];
    unsigned int slots[kMaxHeight];
    unsigned int depth;
    bool more = edge(false, nodes, slots, depth);
    while (more) {
        const BtreeNode* x = node(nodes[depth - 1]);
        unsigned int i = slots[depth - 1];
        KR_RET_STATUS st = decodeAt(x, i, walkKey_);
        if (KRI_FAILED(st)) return st;
        st = fn(user, walkKey_, x->refs[i]);
        if (st == KR_RET_FALSE) break;
        if (KRI_FAILED(st)) return st;
        more = stepNext(nodes, slots, depth);
    }
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::traverseBreadthFirst(KR_BTREE_NODE_FN fn, void* user) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    if (fn == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    if (locked_) return KRI_FAIL_MSG(KR_RET_ERR_ILOCK, "KR_Btree: changed during a walk", "%s", "");
    if (root_ == 0) return KR_RET_TRUE;
    WalkLock lock(locked_);
    KR_Queue<KR_BtreeLink> queue(64, 64, 64, 1);
    if (!queue.objIsEnabled()) return KR_RET_ERR_MEM;
    unsigned char* visited = static_cast<unsigned char*>(krInternal::allocZeroed(tableSize_, 1));
    if (visited == nullptr)
        return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Btree allocation", KR_msg(0, 1));
    KR_RET_STATUS st = queue.put(KR_BtreeLink(root_, 0, 0, 0));
    while (!KRI_FAILED(st) && !queue.isEmpty()) {
        // Copied out: the next put may reuse the slot.
        KR_BtreeLink link = queue.get();
        if (visited[link.node]) {
            st = KRI_FAIL_MSG(KR_RET_ERR_FILE, "KR_Btree: corrupt node", "node %u: %s", link.node,
                              "node reached twice");
            break;
        }
        visited[link.node] = 1;
        const BtreeNode* x = node(link.node);
        st = fn(user, link, x->n, x->height);
        if (st == KR_RET_FALSE || KRI_FAILED(st)) break;
        for (unsigned int i = 0; x->height > 1 && i <= x->n && !KRI_FAILED(st); ++i) {
            st = queue.put(KR_BtreeLink(x->children[i], link.node, i, link.level + 1));
        }
    }
    krInternal::freeBlock(visited);
    return KRI_FAILED(st) ? st : KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::checkConsistency(unsigned int& problems) {
    KR_setUserError(0);
    problems = 0;
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    // 0 not seen, 1 reachable, 2 reserved.
    unsigned char* visited = static_cast<unsigned char*>(krInternal::allocZeroed(tableSize_, 1));
    if (visited == nullptr)
        return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Btree allocation", KR_msg(0, 1));
    KR_RET_STATUS st = checkNodes(visited, problems);
    if (KRI_FAILED(st)) {
        krInternal::freeBlock(visited);
        return st;
    }

    // The reserved list: reserved nodes only, ending within its count.
    unsigned int steps = 0;
    unsigned int id = reservedHead_;
    while (id != 0 && steps <= reservedCount_) {
        if (id >= tableSize_ || nodes_[id] == nullptr || !nodes_[id]->reserved) break;
        if (visited[id] == 1) problem(problems, id, "reserved node is reachable");
        visited[id] = 2;
        ++steps;
        id = nodes_[id]->nextReserved;
    }
    if (id != 0 || steps != reservedCount_)
        problem(problems, reservedHead_, "reserved list broken");
    for (id = 1; id < tableSize_; ++id) {
        if (nodes_[id] != nullptr && visited[id] == 0) {
            problem(problems, id, "node neither reachable nor reserved");
        }
    }
    krInternal::freeBlock(visited);
    return problems == 0 ? KR_RET_TRUE : KR_RET_FALSE;
}

KR_RET_STATUS KR_Btree::getNodeInfo(unsigned int id, unsigned int& numKeys, unsigned int& height) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    if (id == 0 || id >= tableSize_ || nodes_[id] == nullptr || nodes_[id]->reserved) {
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Btree: no such node", "node %u", id);
    }
    numKeys = nodes_[id]->n;
    height = nodes_[id]->height;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::getNodeEntry(unsigned int id,
                                     unsigned int index,
                                     KR_VarArr& key,
                                     unsigned long long& ref) {
    unsigned int n;
    unsigned int height;
    KR_RET_STATUS st = getNodeInfo(id, n, height);
    if (KRI_FAILED(st)) return st;
    if (index >= n) return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Btree: no such entry", "node %u", id);
    st = decodeAt(nodes_[id], index, key);
    if (KRI_FAILED(st)) return st;
    ref = nodes_[id]->refs[index];
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::getNodeChild(unsigned int id, unsigned int index, unsigned int& child) {
    unsigned int n;
    unsigned int height;
    KR_RET_STATUS st = getNodeInfo(id, n, height);
    if (KRI_FAILED(st)) return st;
    if (height <= 1 || index > n) {
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Btree: no such child", "node %u", id);
    }
    child = nodes_[id]->children[index];
    return KR_RET_TRUE;
}

// --- KR_Btree: internal steps ---

KR_RET_STATUS KR_Btree::decodeAt(const BtreeNode* x, unsigned int i, KR_VarArr& key) {
    unsigned int len;
    const unsigned char* bytes = krInternal::slotKey(x, i, keyFixed_, len);
    if (!key.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_OBJ);
    KR_RET_STATUS st = krInternal::btreeDecodeKey(bytes, len, types_, keyTypes_.numElems(), key);
    if (KRI_FAILED(st)) return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Btree allocation", KR_msg(0, 1));
    return KR_RET_TRUE;
}

bool KR_Btree::stepNext(unsigned int* pathNodes,
                        unsigned int* pathSlots,
                        unsigned int& depth) const {
    unsigned int d = depth - 1;
    const BtreeNode* x = node(pathNodes[d]);
    unsigned int i = pathSlots[d];
    if (x->height > 1) {
        // The first entry of the leftmost leaf below child i + 1.
        pathSlots[d] = i + 1;
        unsigned int id = x->children[i + 1];
        while (d + 1 < kMaxHeight) {
            const BtreeNode* y = node(id);
            pathNodes[++d] = id;
            pathSlots[d] = 0;
            if (y->height <= 1) break;
            id = y->children[0];
        }
        depth = d + 1;
        return true;
    }
    if (i + 1 < x->n) {
        pathSlots[d] = i + 1;
        return true;
    }
    // Climb to the first ancestor entered from a child left of its end.
    while (d > 0) {
        --d;
        if (pathSlots[d] < node(pathNodes[d])->n) {
            depth = d + 1;
            return true;
        }
    }
    depth = 0;
    return false;
}

bool KR_Btree::stepPrev(unsigned int* pathNodes,
                        unsigned int* pathSlots,
                        unsigned int& depth) const {
    unsigned int d = depth - 1;
    const BtreeNode* x = node(pathNodes[d]);
    unsigned int i = pathSlots[d];
    if (x->height > 1) {
        // The last entry of the rightmost leaf below child i.
        unsigned int id = x->children[i];
        while (d + 1 < kMaxHeight) {
            const BtreeNode* y = node(id);
            pathNodes[++d] = id;
            if (y->height <= 1) {
                pathSlots[d] = y->n - 1;
                break;
            }
            pathSlots[d] = y->n;
            id = y->children[y->n];
        }
        depth = d + 1;
        return true;
    }
    if (i > 0) {
        pathSlots[d] = i - 1;
        return true;
    }
    while (d > 0) {
        --d;
        if (pathSlots[d] > 0) {
            --pathSlots[d];
            depth = d + 1;
            return true;
        }
    }
    depth = 0;
    return false;
}

bool KR_Btree::edge(bool last,
                    unsigned int* pathNodes,
                    unsigned int* pathSlots,
                    unsigned int& depth) const {
    depth = 0;
    for (unsigned int id = root_; id != 0 && depth < kMaxHeight;) {
        const BtreeNode* x = node(id);
        pathNodes[depth] = id;
        if (x->height <= 1) {
            pathSlots[depth++] = last ? x->n - 1 : 0;
            return true;
        }
        pathSlots[depth++] = last ? x->n : 0;
        id = x->children[pathSlots[depth - 1]];
    }
    depth = 0;
    return false;
}

int KR_Btree::compareEntries(const BtreeNode* x,
                             unsigned int i,
                             const BtreeNode* y,
                             unsigned int j) const {
    unsigned int lenX;
    unsigned int lenY;
    const unsigned char* a = krInternal::slotKey(x, i, keyFixed_, lenX);
    const unsigned char* b = krInternal::slotKey(y, j, keyFixed_, lenY);
    int c = memcmp(a, b, lenX < lenY ? lenX : lenY);
    if (c == 0) c = lenX < lenY ? -1 : (lenX > lenY ? 1 : 0);
    if (c != 0) return c < 0 ? -1 : 1;
    if (unique_) return 0;
    return x->refs[i] < y->refs[j] ? -1 : (x->refs[i] > y->refs[j] ? 1 : 0);
}

KR_RET_STATUS KR_Btree::checkNodes(unsigned char* visited, unsigned int& problems) {
    unsigned int minKeys = (order_ + 1) / 2 - 1;
    unsigned int reached = 0;
    if (root_ != 0) {
        KR_Queue<KR_BtreeLink> queue(64, 64, 64, 1);
        if (!queue.objIsEnabled()) return KR_RET_ERR_MEM;
        KR_RET_STATUS st = queue.put(KR_BtreeLink(root_, 0, 0, 0));
        while (!KRI_FAILED(st) && !queue.isEmpty()) {
            KR_BtreeLink link = queue.get();
            unsigned int id = link.node;
            if (id == 0 || id >= tableSize_ || nodes_[id] == nullptr || nodes_[id]->reserved) {
                problem(problems, link.parent, "bad child id");
                continue;
            }
            if (visited[id]) {
                problem(problems, id, "node reached twice");
                continue;
            }
            visited[id] = 1;
            ++reached;
            const BtreeNode* x = nodes_[id];
            if (x->height != height_ - link.level) {
                problem(problems, id, "wrong height");
                continue;
            }
            unsigned int lowest = link.level == 0 ? 1 : minKeys;
            if (x->n < lowest || x->n > order_ - 1) {
                problem(problems, id, "key count outside its bounds");
                if (x->n > order_ - 1) continue;
            }
            for (unsigned int i = 1; i < x->n; ++i) {
                if (compareEntries(x, i - 1, x, i) >= 0) problem(problems, id, "keys out of order");
            }
            if (link.level > 0 && x->n > 0) {
                const BtreeNode* p = nodes_[link.parent];
                unsigned int s = link.slot;
                if ((s > 0 && compareEntries(p, s - 1, x, 0) >= 0) ||
                    (s < p->n && compareEntries(x, x->n - 1, p, s) >= 0)) {
                    problem(problems, id, "key outside its separators");
                }
            }
            for (unsigned int i = 0; x->height > 1 && i <= x->n && !KRI_FAILED(st); ++i) {
                st = queue.put(KR_BtreeLink(x->children[i], id, i, link.level + 1));
            }
        }
        if (KRI_FAILED(st)) return st;
    }
    if (reached != nodeCount_) problem(problems, root_, "node count wrong");
    if (problems != 0) return KR_RET_TRUE;

    // In order, across node boundaries, bounded by the entry count.
    unsigned int nodes[kMaxHeight];
    unsigned int slots[kMaxHeight];
    unsigned int depth;
    unsigned long long counted = 0;
    const BtreeNode* prev = nullptr;
    unsigned int prevIndex = 0;
    bool more = edge(false, nodes, slots, depth);
    while (more && counted <= entryCount_) {
        const BtreeNode* x = node(nodes[depth - 1]);
        unsigned int i = slots[depth - 1];
        if (prev != nullptr && compareEntries(prev, prevIndex, x, i) >= 0) {
            problem(problems, x->id, "keys out of order");
        }
        prev = x;
        prevIndex = i;
        ++counted;
        more = stepNext(nodes, slots, depth);
    }
    if (counted != entryCount_) problem(problems, root_, "entry count wrong");
    return KR_RET_TRUE;
}
