// kr_btreewalk.cpp — the B-tree's cursor, walks, consistency check and node accessors.
#include <float.h>
#include <math.h>
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
    ++opStamp_;
    return edge(false, curNodes_, curSlots_, curDepth_);
}

KR_RET_STATUS KR_Btree::setCurLast() {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    ++opStamp_;
    return edge(true, curNodes_, curSlots_, curDepth_);
}

KR_RET_STATUS KR_Btree::setCurNext() {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    if (curDepth_ == 0) return KR_RET_FALSE;
    ++opStamp_;
    return stepNext(curNodes_, curSlots_, curDepth_);
}

KR_RET_STATUS KR_Btree::setCurPrev() {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    if (curDepth_ == 0) return KR_RET_FALSE;
    ++opStamp_;
    return stepPrev(curNodes_, curSlots_, curDepth_);
}

KR_RET_STATUS KR_Btree::seek(KR_VarArr& key) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    KR_RET_STATUS st = encodeProbe(key);
    if (KRI_FAILED(st)) return st;
    ++opStamp_;
    st = locate(0, unique_ == 0, curNodes_, curSlots_, curDepth_);
    if (st != KR_RET_TRUE) return st;
    const BtreeNode* x = node(curNodes_[curDepth_ - 1]);
    return compareAt(x, curSlots_[curDepth_ - 1], 0, false) == 0 ? KR_RET_TRUE : KR_RET_FALSE;
}

namespace {

// The last element of a valid key as a double.
double lastValue(KR_VarArr& key, bool isFloat) {
    KR_Var& v = key[key.numElems() - 1];
    return isFloat ? static_cast<double>(static_cast<float>(v)) : static_cast<double>(v);
}

// A finite bound one step outside value, so that no x with |x - k| <= tol falls beyond it.
void setBound(KR_VarArr& key, bool isFloat, double value, bool upper) {
    KR_Var& v = key[key.numElems() - 1];
    const double inf = upper ? HUGE_VAL : -HUGE_VAL;
    if (isFloat) {
        float f = static_cast<float>(value);
        f = nextafterf(f, static_cast<float>(inf));
        if (isinf(f)) f = upper ? FLT_MAX : -FLT_MAX;
        v = f;
    } else {
        double d = nextafter(value, inf);
        if (isinf(d)) d = upper ? DBL_MAX : -DBL_MAX;
        v = d;
    }
}

}  // namespace

KR_RET_STATUS KR_Btree::seekNear(KR_VarArr& key, double tol) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    KR_VAR_TYPE lastType = types_[keyTypes_.numElems() - 1];
    if (lastType != KR_VAR_FLOAT && lastType != KR_VAR_DOUBLE) {
        return KRI_FAIL_MSG(KR_RET_ERR_NSUP, "KR_Btree: tolerant lookup", "%s",
                            "the last key element is not floating");
    }
    if (!(tol >= 0) || isinf(tol)) return KRI_FAIL(KR_RET_ERR_ARG);
    KR_RET_STATUS st = encodeProbe(key);
    if (KRI_FAILED(st)) return st;
    curDepth_ = 0;
    bool isFloat = lastType == KR_VAR_FLOAT;
    double k = lastValue(key, isFloat);
    KR_VarArr low(key), high(key), entry(key);
    if (!low.objIsEnabled() || !high.objIsEnabled() || !entry.objIsEnabled()) return KR_RET_ERR_MEM;
    setBound(low, isFloat, k - tol, false);
    setBound(high, isFloat, k + tol, true);
    st = encodeProbe(low);
    if (KRI_FAILED(st)) return st;
    ++opStamp_;
    unsigned int nodes[kMaxHeight];
    unsigned int slots[kMaxHeight];
    unsigned int depth;
    st = locate(0, unique_ == 0, nodes, slots, depth);
    if (st != KR_RET_TRUE) return st;
    st = encodeProbe(high);
    if (KRI_FAILED(st)) return st;
    // Entries between (prefix, low) and (prefix, high) share the prefix: only the last element
    // decides. The scan is bounded by the entry count, whatever the file holds.
    double best = HUGE_VAL;
    unsigned long long limit = entryCount_;
    while (st == KR_RET_TRUE && limit-- > 0) {
        BtreeNode* x;
        st = fetch(nodes[depth - 1], 0, x);
        if (KRI_FAILED(st)) break;
        unsigned int i = slots[depth - 1];
        if (compareAt(x, i, 0, false) < 0) break;  // past high
        st = decodeAt(x, i, entry);
        if (KRI_FAILED(st)) break;
        double gap = fabs(lastValue(entry, isFloat) - k);
        if (gap <= tol && gap < best) {
            best = gap;
            memcpy(curNodes_, nodes, depth * sizeof(nodes[0]));
            memcpy(curSlots_, slots, depth * sizeof(slots[0]));
            curDepth_ = depth;
        }
        st = stepNext(nodes, slots, depth);
    }
    if (KRI_FAILED(st)) {
        curDepth_ = 0;
        return st;
    }
    return curDepth_ != 0 ? KR_RET_TRUE : KR_RET_FALSE;
}

unsigned char KR_Btree::curIsNull() {
    return curDepth_ == 0 ? 1 : 0;
}

KR_RET_STATUS KR_Btree::getCur(KR_VarArr& key, unsigned long long& ref, void* value) {
    const unsigned char* bytes = nullptr;
    const unsigned char* stored = nullptr;
    unsigned int len = 0;
    unsigned long long found = 0;
    KR_RET_STATUS st = getCurBytes(bytes, len, found, stored);
    if (st != KR_RET_TRUE) return st;
    // getCurBytes has the node in memory.
    st = decodeAt(node(curNodes_[curDepth_ - 1]), curSlots_[curDepth_ - 1], key);
    if (KRI_FAILED(st)) return st;
    ref = found;
    if (value != nullptr && stored != nullptr) memcpy(value, stored, valueSize_);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::getCurBytes(const unsigned char*& key,
                                    unsigned int& keyLen,
                                    unsigned long long& ref,
                                    const unsigned char*& value) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    if (curDepth_ == 0) return KR_RET_FALSE;
    ++opStamp_;
    BtreeNode* x;
    KR_RET_STATUS st = fetch(curNodes_[curDepth_ - 1], 0, x);
    if (KRI_FAILED(st)) return st;
    unsigned int i = curSlots_[curDepth_ - 1];
    key = krInternal::slotKey(x, i, keyFixed_, slotSize_, keyLen);
    ref = x->refs[i];
    value = valueSize_ != 0 ? krInternal::slotAt(x, i, slotSize_) + keySlot_ : nullptr;
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
    ++opStamp_;
    KR_RET_STATUS more = edge(false, nodes, slots, depth);
    unsigned int epoch = cacheEpoch_;
    // A damaged file can share a child between parents, which multiplies the walk: no valid tree
    // has more entries than its count, or than its nodes can hold.
    unsigned long long limit = static_cast<unsigned long long>(tableSize_) * (order_ - 1);
    if (entryCount_ < limit) limit = entryCount_;
    unsigned long long walked = 0;
    while (more == KR_RET_TRUE) {
        if (++walked > limit) {
            return KRI_FAIL_MSG(KR_RET_ERR_FILE, "KR_Btree: corrupt node", "node %u: %s",
                                nodes[depth - 1], "more entries than the tree holds");
        }
        BtreeNode* x = node(nodes[depth - 1]);
        unsigned int i = slots[depth - 1];
        KR_RET_STATUS st = decodeAt(x, i, walkKey_);
        if (KRI_FAILED(st)) return st;
        // Held while the callback runs: its own lookups may not evict it.
        ++x->pins;
        st = fn(user, walkKey_, x->refs[i]);
        if (epoch != cacheEpoch_) return KRI_FAIL(KR_RET_ERR_FILE);
        --x->pins;
        if (st == KR_RET_FALSE) break;
        if (KRI_FAILED(st)) return st;
        ++opStamp_;
        more = stepNext(nodes, slots, depth);
    }
    return KRI_FAILED(more) ? more : KR_RET_TRUE;
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
        if (link.node >= tableSize_ || visited[link.node]) {
            st = KRI_FAIL_MSG(KR_RET_ERR_FILE, "KR_Btree: corrupt node", "node %u: %s", link.node,
                              "node reached twice");
            break;
        }
        visited[link.node] = 1;
        ++opStamp_;
        BtreeNode* x;
        st = fetch(link.node, height_ - link.level, x);
        if (KRI_FAILED(st)) break;
        unsigned int epoch = cacheEpoch_;
        ++x->pins;
        st = fn(user, link, x->n, x->height);
        if (epoch != cacheEpoch_) {
            st = KRI_FAIL(KR_RET_ERR_FILE);
            break;
        }
        --x->pins;
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
    if (file_ != nullptr) {
        KR_RET_STATUS st = file_->recCheck(problems);
        if (KRI_FAILED(st)) return st;
    }
    // 0 not seen, 1 reachable, 2 reserved.
    unsigned char* visited = static_cast<unsigned char*>(krInternal::allocZeroed(tableSize_, 1));
    if (visited == nullptr)
        return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Btree allocation", KR_msg(0, 1));
    KR_RET_STATUS st = checkNodes(visited, problems);

    // The reserved list: reserved nodes only, ending within its count.
    unsigned int steps = 0;
    unsigned int id = reservedHead_;
    while (!KRI_FAILED(st) && id != 0 && steps <= reservedCount_) {
        BtreeNode* x = nullptr;
        ++opStamp_;
        if (id >= tableSize_ || visited[id] == 2 ||
            (nodes_[id] == nullptr && (file_ == nullptr || file_->recHas(id) != KR_RET_TRUE))) {
            break;
        }
        KR_RET_STATUS got = fetch(id, 0, x);
        if (got == KR_RET_ERR_MEM) st = got;
        if (KRI_FAILED(got) || !x->reserved) break;
        if (visited[id] == 1) problem(problems, id, "reserved node is reachable");
        visited[id] = 2;
        ++steps;
        id = x->nextReserved;
    }
    if (!KRI_FAILED(st) && (id != 0 || steps != reservedCount_)) {
        problem(problems, reservedHead_, "reserved list broken");
    }
    for (id = 1; !KRI_FAILED(st) && id < tableSize_; ++id) {
        bool stored = file_ != nullptr ? file_->recHas(id) == KR_RET_TRUE : nodes_[id] != nullptr;
        if (stored && visited[id] == 0)
            problem(problems, id, "node neither reachable nor reserved");
    }
    krInternal::freeBlock(visited);
    if (KRI_FAILED(st)) return st;
    return problems == 0 ? KR_RET_TRUE : KR_RET_FALSE;
}

KR_RET_STATUS KR_Btree::getNodeInfo(unsigned int id, unsigned int& numKeys, unsigned int& height) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (mode_ == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    bool stored = id != 0 && id < tableSize_ &&
                  (nodes_[id] != nullptr || (file_ != nullptr && file_->recHas(id) == KR_RET_TRUE));
    if (!stored) return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Btree: no such node", "node %u", id);
    ++opStamp_;
    BtreeNode* x;
    KR_RET_STATUS st = fetch(id, 0, x);
    if (KRI_FAILED(st)) return st;
    if (x->reserved) return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Btree: no such node", "node %u", id);
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
    const unsigned char* bytes = krInternal::slotKey(x, i, keyFixed_, slotSize_, len);
    if (!key.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_OBJ);
    KR_RET_STATUS st = krInternal::btreeDecodeKey(bytes, len, types_, keyTypes_.numElems(), key);
    if (KRI_FAILED(st)) return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Btree allocation", KR_msg(0, 1));
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Btree::stepNext(unsigned int* pathNodes,
                                 unsigned int* pathSlots,
                                 unsigned int& depth) {
    unsigned int d = depth - 1;
    BtreeNode* x;
    KR_RET_STATUS st = fetch(pathNodes[d], 0, x);
    if (KRI_FAILED(st)) return st;
    unsigned int i = pathSlots[d];
    if (x->height > 1) {
        // The first entry of the leftmost leaf below child i + 1.
        pathSlots[d] = i + 1;
        unsigned int id = x->children[i + 1];
        for (unsigned int height = x->height - 1; d + 1 < kMaxHeight; --height) {
            BtreeNode* y;
            st = fetch(id, height, y);
            if (KRI_FAILED(st)) return st;
            pathNodes[++d] = id;
            pathSlots[d] = 0;
            if (height == 1) break;
            id = y->children[0];
        }
        depth = d + 1;
        return KR_RET_TRUE;
    }
    if (i + 1 < x->n) {
        pathSlots[d] = i + 1;
        return KR_RET_TRUE;
    }
    // Climb to the first ancestor entered from a child left of its end.
    while (d > 0) {
        --d;
        st = fetch(pathNodes[d], 0, x);
        if (KRI_FAILED(st)) return st;
        if (pathSlots[d] < x->n) {
            depth = d + 1;
            return KR_RET_TRUE;
        }
    }
    depth = 0;
    return KR_RET_FALSE;
}

KR_RET_STATUS KR_Btree::stepPrev(unsigned int* pathNodes,
                                 unsigned int* pathSlots,
                                 unsigned int& depth) {
    unsigned int d = depth - 1;
    BtreeNode* x;
    KR_RET_STATUS st = fetch(pathNodes[d], 0, x);
    if (KRI_FAILED(st)) return st;
    unsigned int i = pathSlots[d];
    if (x->height > 1) {
        // The last entry of the rightmost leaf below child i.
        unsigned int id = x->children[i];
        for (unsigned int height = x->height - 1; d + 1 < kMaxHeight; --height) {
            BtreeNode* y;
            st = fetch(id, height, y);
            if (KRI_FAILED(st)) return st;
            pathNodes[++d] = id;
            if (height == 1) {
                pathSlots[d] = y->n - 1;
                break;
            }
            pathSlots[d] = y->n;
            id = y->children[y->n];
        }
        depth = d + 1;
        return KR_RET_TRUE;
    }
    if (i > 0) {
        pathSlots[d] = i - 1;
        return KR_RET_TRUE;
    }
    while (d > 0) {
        --d;
        if (pathSlots[d] > 0) {
            --pathSlots[d];
            depth = d + 1;
            return KR_RET_TRUE;
        }
    }
    depth = 0;
    return KR_RET_FALSE;
}

KR_RET_STATUS KR_Btree::edge(bool last,
                             unsigned int* pathNodes,
                             unsigned int* pathSlots,
                             unsigned int& depth) {
    depth = 0;
    for (unsigned int id = root_, height = height_; id != 0; --height) {
        BtreeNode* x;
        KR_RET_STATUS st = fetch(id, height, x);
        if (KRI_FAILED(st)) return st;
        pathNodes[depth] = id;
        if (x->n == 0) break;
        if (height == 1) {
            pathSlots[depth++] = last ? x->n - 1 : 0;
            return KR_RET_TRUE;
        }
        pathSlots[depth++] = last ? x->n : 0;
        id = x->children[pathSlots[depth - 1]];
    }
    depth = 0;
    return KR_RET_FALSE;
}

int KR_Btree::compareEntries(const BtreeNode* x,
                             unsigned int i,
                             const BtreeNode* y,
                             unsigned int j) const {
    unsigned int lenX;
    unsigned int lenY;
    const unsigned char* a = krInternal::slotKey(x, i, keyFixed_, slotSize_, lenX);
    const unsigned char* b = krInternal::slotKey(y, j, keyFixed_, slotSize_, lenY);
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
            if (id == 0 || id >= tableSize_) {
                problem(problems, link.parent, "bad child id");
                continue;
            }
            if (visited[id]) {
                problem(problems, id, "node reached twice");
                continue;
            }
            visited[id] = 1;
            ++reached;
            // The parent and this node stay in memory for the comparisons below.
            ++opStamp_;
            BtreeNode* p = nullptr;
            if (link.level > 0) {
                st = fetch(link.parent, 0, p);
                if (KRI_FAILED(st)) return st;
            }
            BtreeNode* x;
            KR_RET_STATUS got = fetch(id, 0, x);
            if (got == KR_RET_ERR_MEM) return got;
            if (KRI_FAILED(got) || x->reserved) {
                problem(problems, id, KRI_FAILED(got) ? "corrupt node record" : "bad child id");
                continue;
            }
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
            if (p != nullptr && x->n > 0) {
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

    // In order, across node boundaries, bounded by the entry count. Each step keeps the
    // previous entry's node in memory with its stamp.
    unsigned int nodes[kMaxHeight];
    unsigned int slots[kMaxHeight];
    unsigned int depth;
    unsigned long long counted = 0;
    unsigned int prevId = 0;
    unsigned int prevIndex = 0;
    ++opStamp_;
    KR_RET_STATUS more = edge(false, nodes, slots, depth);
    while (more == KR_RET_TRUE && counted <= entryCount_) {
        const BtreeNode* x = node(nodes[depth - 1]);
        unsigned int i = slots[depth - 1];
        if (prevId != 0 && compareEntries(node(prevId), prevIndex, x, i) >= 0) {
            problem(problems, x->id, "keys out of order");
        }
        prevId = x->id;
        prevIndex = i;
        ++counted;
        ++opStamp_;
        node(prevId)->stamp = opStamp_;
        more = stepNext(nodes, slots, depth);
    }
    if (more == KR_RET_ERR_MEM) return more;
    if (counted != entryCount_) problem(problems, root_, "entry count wrong");
    return KR_RET_TRUE;
}
