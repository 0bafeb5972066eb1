// fuzz_btree.cpp — a B-tree file from any bytes: open, check, walk every entry both ways (the
// backward walk reading each key's bytes and value) and every node, with a small cache so that
// nodes are evicted and loaded again. Every walk must end; an in-order walk of a tree that passed
// its check must be strictly ordered.
#include "fuzz_support.h"

namespace {

struct Walk {
    KR_VarArr last;
    bool any = false;
    bool ordered = true;
    unsigned long long count = 0;
};

KR_RET_STATUS visit(void* user, KR_VarArr& key, unsigned long long) {
    Walk& walk = *static_cast<Walk*>(user);
    if (walk.any && KR_btreeKeyComp(walk.last, key) > 0) walk.ordered = false;
    walk.last = key;
    walk.any = true;
    ++walk.count;
    return KR_RET_TRUE;
}

KR_RET_STATUS node(void*, const KR_BtreeLink&, unsigned int, unsigned int) {
    return KR_RET_TRUE;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    krfuzz::start();
    krfuzz::ScratchFile scratch(data, size);
    KR_Btree tree;
    if (tree.openFile(scratch.name(), KR_FILE_MODE_READ) != KR_RET_TRUE) {
        if (tree.isOpen()) abort();
        return 0;
    }
    tree.setCacheSize(16);
    unsigned int problems = 0;
    KR_RET_STATUS checked = tree.checkConsistency(problems);
    if (checked == KR_RET_TRUE && problems != 0) abort();
    Walk walk;
    KR_RET_STATUS walked = tree.traverse(visit, &walk);
    unsigned long long entries = 0;
    tree.getEntryCount(entries);
    if (checked == KR_RET_TRUE && walked == KR_RET_TRUE) {
        if (!walk.ordered || walk.count != entries) abort();
    }
    tree.traverseBreadthFirst(node, nullptr);
    // A damaged tree may walk some entries more than once: the cursor walk stops at the count.
    unsigned long long back = 0;
    unsigned int valueSize = tree.getValueSize();
    for (KR_RET_STATUS st = tree.setCurLast(); st == KR_RET_TRUE; st = tree.setCurPrev()) {
        if (++back > walk.count && checked == KR_RET_TRUE && walked == KR_RET_TRUE) abort();
        if (back > entries) break;
        // Every byte of the key and the value handed out must be readable.
        const unsigned char* key;
        const unsigned char* value;
        unsigned int keyLen;
        unsigned long long ref;
        if (tree.getCurBytes(key, keyLen, ref, value) != KR_RET_TRUE) abort();
        unsigned int sum = 0;
        for (unsigned int i = 0; i < keyLen; ++i)
            sum += key[i];
        for (unsigned int i = 0; i < valueSize; ++i)
            sum += value[i];
        if (sum == 0xFFFFFFFFu) abort();
    }
    return 0;
}
