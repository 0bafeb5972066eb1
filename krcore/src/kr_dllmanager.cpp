// kr_dllmanager.cpp — the module manager and the process environment.
#include "kr_dllmanager.h"

#include <errno.h>
#include <string.h>
#include <wchar.h>

#include "kr_alloc.h"
#include "kr_file.h"
#include "kr_hash.h"
#include "kr_locale.h"
#include "kr_platform.h"
#include "kr_report.h"
#include "kr_strbase.h"

#define KRI_UNIT "src/kr_dllmanager"

namespace {

using Registry = KR_HashTable<KR_String, KR_DllEntry>;

constexpr unsigned int kRegistryBuckets = 64;

// The process's module registry; null while the manager is closed.
Registry* registry = nullptr;

// key := the registry's key for path. KR_RET_ERR_MEM (reported by the string) when the copy did
// not arrive; no registry: reported, KR_RET_ERR_OBJ. Otherwise the lookup's answer, with entry
// filled when it is KR_RET_TRUE.
KR_RET_STATUS lookUp(const char* path, KR_String& key, KR_DllEntry& entry) {
    if (registry == nullptr) return KRI_FAIL(KR_RET_ERR_OBJ);
    key = path;
    if (static_cast<const char*>(key) == nullptr) return KR_RET_ERR_MEM;
    return registry->getEntryData(key, entry);
}

// The visit of KR_dllUnloadAll: one release per entry, whatever its count.
KR_RET_STATUS releaseEntry(KR_String&, KR_DllEntry& entry) {
    if (entry.handle == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    krPlatform::freeModule(entry.handle);
    return KR_RET_TRUE;
}

// --- The environment, written once for both widths ---

template <class Char>
struct EnvChars;

template <>
struct EnvChars<char> {
    using String = KR_String;
    static constexpr const char* kLineEnd = "\r\n";

    static size_t length(const char* text) { return strlen(text); }

    // The characters an environment entry takes in this width.
    static size_t entryLength(const char* entry) { return strlen(entry); }

    static void copyEntry(char* to, const char* entry, size_t length) { memcpy(to, entry, length); }

    static unsigned char isEmpty(const char* text) { return KR_isEmptyStr(text, 1); }

    static KR_RET_STATUS split(const char* text, const char* separator, KR_Array<String>& out) {
        return KR_splitString(text, separator, out);
    }

    static void put(const char* assignment) { krPlatform::putEnv(assignment); }
};

template <>
struct EnvChars<wchar_t> {
    using String = KR_StringW;
    static constexpr const wchar_t* kLineEnd = L"\r\n";

    static size_t length(const wchar_t* text) { return wcslen(text); }

    // kNoLocaleForm when the locale cannot widen the entry.
    static size_t entryLength(const char* entry) {
        return krInternal::localeLength<wchar_t>(entry);
    }

    static void copyEntry(wchar_t* to, const char* entry, size_t length) {
        mbstate_t state;
        memset(&state, 0, sizeof state);
        krInternal::localeConvert(to, &entry, length, &state);
    }

    static unsigned char isEmpty(const wchar_t* text) { return KR_isEmptyStrW(text, 1); }

    static KR_RET_STATUS split(const wchar_t* text,
                               const wchar_t* separator,
                               KR_Array<String>& out) {
        return KR_splitStringW(text, separator, out);
    }

    static void put(const wchar_t* assignment) { krPlatform::putEnvW(assignment); }
};

// The environment as one text: a first visit measures it, a second copies it into one block.
template <class Char>
struct EnvGather {
    const Char* separator;
    size_t separatorLength;
    Char* out;        // null while measuring
    size_t length;    // characters measured, or written so far
    size_t capacity;  // characters out takes, without its terminator
};

template <class Char>
bool gatherEntry(const char* entry, void* context) {
    EnvGather<Char>& gather = *static_cast<EnvGather<Char>*>(context);
    size_t length = EnvChars<Char>::entryLength(entry);
    if (length == krInternal::kNoLocaleForm) return true;
    size_t needed = length + gather.separatorLength;
    if (gather.out == nullptr) {
        gather.length += needed;
        return true;
    }
    // The platform hands out the same block twice; the check only keeps a changed one in bounds.
    if (needed > gather.capacity - gather.length) return false;
    Char* at = gather.out + gather.length;
    EnvChars<Char>::copyEntry(at, entry, length);
    memcpy(at + length, gather.separator, gather.separatorLength * sizeof(Char));
    gather.length += needed;
    return true;
}

template <class Char>
KR_RET_STATUS getEnvImpl(typename EnvChars<Char>::String& out, const Char* separator) {
    KR_setUserError(0);
    out.assignPtr(nullptr);
    if (separator == nullptr) separator = EnvChars<Char>::kLineEnd;
    EnvGather<Char> gather = {separator, EnvChars<Char>::length(separator), nullptr, 0, 0};
    if (!krPlatform::visitEnvironment(gatherEntry<Char>, &gather) || gather.length == 0) {
        return KR_RET_TRUE;
    }
    Char* text = static_cast<Char*>(krInternal::allocZeroed(gather.length + 1, sizeof(Char)));
    if (text == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    gather.out = text;
    gather.capacity = gather.length;
    gather.length = 0;
    krPlatform::visitEnvironment(gatherEntry<Char>, &gather);
    out.assignPtr(text);
    return KR_RET_TRUE;
}

template <class Char>
KR_RET_STATUS putEnvImpl(const Char* text, const Char* separator) {
    KR_setUserError(0);
    if (EnvChars<Char>::isEmpty(text)) return KR_RET_FALSE;
    if (separator == nullptr) separator = EnvChars<Char>::kLineEnd;
    KR_Array<typename EnvChars<Char>::String> pieces;
    KR_RET_STATUS st = EnvChars<Char>::split(text, separator, pieces);
    if (KRI_FAILED(st)) return st;
    for (unsigned int i = 0; i < pieces.numElems(); ++i)
        EnvChars<Char>::put(pieces[i]);
    return KR_RET_TRUE;
}

}  // namespace

// --- The module manager ---

KR_RET_STATUS KR_dllEntryManagerInit() {
    KR_setUserError(0);
    if (registry != nullptr) return KR_RET_FALSE;
    Registry* table =
            krInternal::newObject<Registry>(kRegistryBuckets, KR_defHashFuncStringKey, nullptr);
    if (table == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    if (!table->objIsEnabled()) {
        // The table has reported its failed buckets.
        delete table;
        return KR_RET_ERR_MEM;
    }
    registry = table;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_dllEntryManagerClose() {
    KR_setUserError(0);
    KR_dllUnloadAll();
    delete registry;
    registry = nullptr;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_dllLoad(const char* path) {
    KR_setUserError(0);
    if (path == nullptr) return KR_RET_ERR_ARG;
    // A directory exists too, but it is no module.
    if (!KR_filePathExists(path) || KR_fileIsDir(path)) return KR_RET_FALSE;
    if (registry == nullptr) {
        KR_RET_STATUS st = KR_dllEntryManagerInit();
        if (KRI_FAILED(st)) return st;
    }
    KR_String key;
    KR_DllEntry entry;
    KR_RET_STATUS st = lookUp(path, key, entry);
    if (KRI_FAILED(st)) return st;
    if (st == KR_RET_TRUE) {
        ++entry.count;
        st = registry->setEntryData(key, entry);
        return KRI_FAILED(st) ? st : KR_RET_TRUE;
    }
    HMODULE handle = nullptr;
    int error = krPlatform::loadModule(path, handle);
    if (error == ENOMEM) return KRI_FAIL(KR_RET_ERR_MEM);
    if (error != 0) return KR_RET_FALSE;
    entry = KR_DllEntry(handle, 1);
    st = registry->addEntry(key, entry);
    if (KRI_FAILED(st)) {
        // A module the registry does not hold could never be released.
        krPlatform::freeModule(handle);
        return st;
    }
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_dllUnload(const char* path) {
    KR_setUserError(0);
    if (path == nullptr) return KR_RET_ERR_ARG;
    KR_String key;
    KR_DllEntry entry;
    KR_RET_STATUS st = lookUp(path, key, entry);
    if (st != KR_RET_TRUE) return st;
    if (entry.count == 0) return KRI_FAIL(KR_RET_ERR_CALL);
    if (--entry.count > 0) {
        st = registry->setEntryData(key, entry);
        return KRI_FAILED(st) ? st : KR_RET_TRUE;
    }
    if (entry.handle == nullptr) return KRI_FAIL(KR_RET_ERR_CALL);
    bool released = krPlatform::freeModule(entry.handle);
    st = registry->deleteEntry(key);
    if (KRI_FAILED(st)) return st;
    return released ? KR_RET_TRUE : KR_RET_FALSE;
}

KR_RET_STATUS KR_dllUnloadAll() {
    KR_setUserError(0);
    if (registry == nullptr) return KRI_FAIL(KR_RET_ERR_OBJ);
    KR_RET_STATUS st = registry->iterate(releaseEntry);
    return KRI_FAILED(st) ? st : KR_RET_TRUE;
}

KR_RET_STATUS KR_dllGetHandle(const char* path, HMODULE* out) {
    KR_setUserError(0);
    if (out == nullptr) return KR_RET_ERR_ARG;
    *out = nullptr;
    if (path == nullptr) return KR_RET_ERR_ARG;
    KR_String key;
    KR_DllEntry entry;
    KR_RET_STATUS st = lookUp(path, key, entry);
    if (st != KR_RET_TRUE) return st;
    *out = entry.handle;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_dllGetProcAddress(const char* path, const char* procName, FARPROC* out) {
    KR_setUserError(0);
    if (out == nullptr) return KR_RET_ERR_ARG;
    *out = nullptr;
    if (path == nullptr || procName == nullptr) return KR_RET_ERR_ARG;
    KR_String key;
    KR_DllEntry entry;
    KR_RET_STATUS st = lookUp(path, key, entry);
    if (st != KR_RET_TRUE) return st;
    // A null handle would name the program itself on Windows.
    if (entry.handle != nullptr) *out = krPlatform::resolveProc(entry.handle, procName);
    return *out != nullptr ? KR_RET_TRUE : KR_RET_FALSE;
}

// --- The process environment ---

KR_RET_STATUS KR_getEnv(KR_String& out, const char* separator) {
    return getEnvImpl<char>(out, separator);
}

KR_RET_STATUS KR_getEnvW(KR_StringW& out, const wchar_t* separator) {
    return getEnvImpl<wchar_t>(out, separator);
}

KR_RET_STATUS KR_putEnv(const char* text, const char* separator) {
    return putEnvImpl<char>(text, separator);
}

KR_RET_STATUS KR_putEnvW(const wchar_t* text, const wchar_t* separator) {
    return putEnvImpl<wchar_t>(text, separator);
}

KR_RET_STATUS KR_putEnvW(const wchar_t* assignment) {
    KR_setUserError(0);
    if (KR_isEmptyStrW(assignment, 0)) return KR_RET_FALSE;
    if (KR_useUnicodeSystemFunctions) {
        krPlatform::putEnvW(assignment);
        return KR_RET_TRUE;
    }
    size_t length = krInternal::localeLength<char>(assignment);
    if (length == krInternal::kNoLocaleForm) return KRI_FAIL(KR_RET_ERR_GEN);
    char* narrow = krInternal::localeCopy<char>(assignment, length);
    if (narrow == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    krPlatform::putEnv(narrow);
    krInternal::freeBlock(narrow);
    return KR_RET_TRUE;
}
