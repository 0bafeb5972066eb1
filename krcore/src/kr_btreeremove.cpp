// kr_btreeremove.cpp — the B-tree's removal: the nodes it may touch first, then the fix-up.
#include "kr_btree.h"
#include "kr_btreecore.h"
#include "kr_report.h"

#define KRI_UNIT "src/kr_btree"

using krInternal::BtreeNode;
using krInternal::moveChildren;
using krInternal::moveEntries;

// --- KR_Btree: removal ---

KR_RET_STATUS KR_Btree::prepareRemove(unsigned int depth) {
    touchedCount_ = 0;
    unsigned int level = depth - 1;
    for (unsigned int l = 0; l < depth; ++l)
        touch(node(pathNodes_[l]));
    BtreeNode* x = node(pathNodes_[level]);
    if (x->height > 1) {
        unsigned int id = x->children[pathSlots_[level]];
        for (unsigned int height = x->height - 1;; --height) {
            BtreeNode* y;
            KR_RET_STATUS st = fetch(id, height, y);
            if (KRI_FAILED(st)) return st;
            touch(y);
            pathNodes_[++level] = id;
            if (height == 1) {
                pathSlots_[level] = y->n - 1;
                break;
            }
            pathSlots_[level] = y->n;
            id = y->children[y->n];
        }
    }
    removeLeafLevel_ = level;
    // Both siblings of every node below the root: a rotation or merge may reach them.
    for (unsigned int l = 1; l <= level; ++l) {
        BtreeNode* p = node(pathNodes_[l - 1]);
        unsigned int s = pathSlots_[l - 1];
        for (unsigned int c = s > 0 ? s - 1 : s + 1; c <= s + 1 && c <= p->n; c += 2) {
            BtreeNode* sibling;
            KR_RET_STATUS st = fetch(p->children[c], p->height - 1, sibling);
            if (KRI_FAILED(st)) return st;
            touch(sibling);
        }
    }
    return KR_RET_TRUE;
}

void KR_Btree::removeAt(unsigned int depth) {
    unsigned int level = depth - 1;
    BtreeNode* x = node(pathNodes_[level]);
    unsigned int i = pathSlots_[level];
    freeSlot(x, i);
    if (x->height > 1) {
        // The predecessor, the last entry of the rightmost leaf below child i (the path that
        // prepareRemove extended), takes its place.
        level = removeLeafLevel_;
        BtreeNode* leaf = node(pathNodes_[level]);
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
    markTouched();
}
