// kr_pipe.cpp — named pipes between modules.
#include "kr_pipe.h"

#include <utility>

#include "kr_alloc.h"
#include "kr_report.h"

#define KRI_UNIT "src/kr_pipe"

namespace {

using Texts = KR_Array<KR_StringW>;
using Registry = KR_Array<KR_PipeEntry>;

// The process's pipes; null while the manager is closed.
Registry* pipes = nullptr;
// Whether reads and KR_pipeIssueCallback call the pipes' callbacks.
unsigned char notify = 1;

// The index of the pipe called name, or pipes->numElems() when there is none.
unsigned int findPipe(const wchar_t* name) {
    unsigned int count = pipes->numElems();
    for (unsigned int i = 0; i < count; ++i) {
        if ((*pipes)[i].name == name) return i;
    }
    return count;
}

// to := a copy of from, made in an array of its own first, so that a copy that runs out of
// memory (reported by the array) leaves to as it was and answers false.
bool copyTexts(Texts& to, const Texts& from) {
    Texts copy(from);
    if (copy.numElems() != from.numElems()) return false;
    to = std::move(copy);
    return true;
}

// Appends the pipe name with callback and data (taken over). KR_RET_ERR_MEM (reported where it
// ran out) leaves the registry as it was.
KR_RET_STATUS appendPipe(wchar_t* name, KR_PipeCallback callback, Texts& data) {
    KR_PipeEntry entry;
    entry.name = name;
    if (static_cast<const wchar_t*>(entry.name) == nullptr) return KR_RET_ERR_MEM;
    entry.callback = callback;
    entry.data = std::move(data);
    return pipes->appendElem(std::move(entry));
}

}  // namespace

// --- KR_PipeEntry ---

KR_PipeEntry::KR_PipeEntry() : callback(nullptr) {}

KR_PipeEntry::KR_PipeEntry(const KR_PipeEntry& other)
    : name(other.name), callback(other.callback), data(other.data) {}

KR_PipeEntry::KR_PipeEntry(KR_PipeEntry&& other) noexcept
    : name(std::move(other.name)), callback(other.callback), data(std::move(other.data)) {}

KR_PipeEntry::~KR_PipeEntry() {}

KR_PipeEntry& KR_PipeEntry::operator=(const KR_PipeEntry& other) {
    name = other.name;
    callback = other.callback;
    data = other.data;
    return *this;
}

KR_PipeEntry& KR_PipeEntry::operator=(KR_PipeEntry&& other) noexcept {
    name = std::move(other.name);
    callback = other.callback;
    data = std::move(other.data);
    return *this;
}

bool KR_PipeEntry::operator==(const KR_PipeEntry& other) const {
    if (&other == this) return true;
    // The arrays compare by walking their cursors, which changes nothing else.
    return name == other.name && callback == other.callback &&
           const_cast<Texts&>(data) == const_cast<Texts&>(other.data);
}

// --- The pipe manager ---

KR_RET_STATUS KR_initPipeManager() {
    KR_setUserError(0);
    if (pipes != nullptr) {
        pipes->delAll();
        return KR_RET_TRUE;
    }
    pipes = krInternal::newObject<Registry>(0, 0);
    if (pipes == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_closePipeManager() {
    KR_setUserError(0);
    if (pipes == nullptr) return KR_RET_FALSE;
    delete pipes;
    pipes = nullptr;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_pipeAddData(wchar_t* name, KR_Array<KR_StringW>& data) {
    KR_setUserError(0);
    if (name == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    if (pipes == nullptr) return KRI_FAIL(KR_RET_ERR_OBJ);
    if (!data.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_POBJ);
    Texts copy;
    if (!copyTexts(copy, data)) return KR_RET_ERR_MEM;
    unsigned int i = findPipe(name);
    if (i == pipes->numElems()) return appendPipe(name, nullptr, copy);
    (*pipes)[i].data = std::move(copy);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_pipeGetData(wchar_t* name, KR_Array<KR_StringW>& out) {
    KR_setUserError(0);
    KR_RET_STATUS st = out.delAll();
    if (KRI_FAILED(st)) return st;
    if (pipes == nullptr) return KRI_FAIL(KR_RET_ERR_OBJ);
    if (name == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    unsigned int i = findPipe(name);
    if (i == pipes->numElems()) return KR_RET_FALSE;
    KR_PipeCallback callback = (*pipes)[i].callback;
    if (notify && callback != nullptr) {
        // The callback may add pipes, which moves the registry's entries to a new block: nothing
        // of the registry is held across the call, and the pipe is looked up again afterwards.
        st = callback(name, out);
        if (KRI_FAILED(st)) return st;
        if (pipes == nullptr) return KRI_FAIL(KR_RET_ERR_OBJ);
        i = findPipe(name);
        if (i == pipes->numElems()) {
            out.delAll();
            return KR_RET_FALSE;
        }
    }
    if (!copyTexts(out, (*pipes)[i].data)) {
        out.delAll();
        return KR_RET_ERR_MEM;
    }
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_pipeAddCallback(wchar_t* name, KR_PipeCallback callback) {
    KR_setUserError(0);
    if (name == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    if (pipes == nullptr) return KRI_FAIL(KR_RET_ERR_OBJ);
    unsigned int i = findPipe(name);
    if (i < pipes->numElems()) {
        (*pipes)[i].callback = callback;
        return KR_RET_TRUE;
    }
    Texts none;
    return appendPipe(name, callback, none);
}

KR_RET_STATUS KR_pipeIssueCallback(wchar_t* name, KR_Array<KR_StringW>& data) {
    KR_setUserError(0);
    if (pipes == nullptr) return KRI_FAIL(KR_RET_ERR_OBJ);
    if (name == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    if (!notify) return KR_RET_FALSE;
    unsigned int i = findPipe(name);
    if (i == pipes->numElems() || (*pipes)[i].callback == nullptr) return KR_RET_FALSE;
    KR_RET_STATUS st = (*pipes)[i].callback(name, data);
    return KRI_FAILED(st) ? st : KR_RET_TRUE;
}

void KR_pipeSetNotify(unsigned char on) {
    KR_setUserError(0);
    notify = on;
}
