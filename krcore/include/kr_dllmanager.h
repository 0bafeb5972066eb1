// kr_dllmanager.h — the module manager and the process environment.
// The module manager loads plug-in modules by path with reference counting, so that several users
// of one module share a single load, and resolves their exported functions. Two functions read
// the whole environment as one text and set several variables from one text.
//   KR_dllLoad("/opt/app/plugins/krsample.so")                      ->  KR_RET_TRUE
//   KR_dllGetProcAddress("/opt/app/plugins/krsample.so", "f", &p)   ->  KR_RET_TRUE, p != null
//   KR_putEnv("A=1\r\nB=", nullptr)  ->  A is set to "1", B is removed
#ifndef KRCORE_KR_DLLMANAGER_H
#define KRCORE_KR_DLLMANAGER_H

#include <stdint.h>

#include "kr_globals.h"
#include "kr_hash_impl.h"
#include "kr_str.h"

// The platform's module handle and exported-function types. On Windows these are exactly the
// types that <windows.h> declares (so the two may be included in either order) without pulling
// that header in; elsewhere a handle is the loader's opaque pointer.
#if defined(_WIN32)
#if defined(NO_STRICT)
typedef void* HMODULE;
#else
struct HINSTANCE__;
typedef HINSTANCE__* HMODULE;
#endif
typedef intptr_t(__stdcall* FARPROC)();
#else
typedef void* HMODULE;
typedef void (*FARPROC)();
#endif

// Marks a plug-in module's entry functions, which hosts resolve by name with
// KR_dllGetProcAddress; use it with extern "C", so that the name is not decorated:
//   extern "C" KR_MODULE_EXPORT const char* myModuleName();
#if defined(_WIN32)
#define KR_MODULE_EXPORT __declspec(dllexport)
#else
#define KR_MODULE_EXPORT __attribute__((visibility("default")))
#endif

// KR_DllEntry — one loaded module as the registry holds it: the platform's handle and the number
// of loads not yet undone.
struct KR_DllEntry {
    KR_DllEntry() : handle(nullptr), count(0) {}

    KR_DllEntry(HMODULE module, unsigned int loads) : handle(module), count(loads) {}

    bool operator==(const KR_DllEntry& other) const {
        return handle == other.handle && count == other.count;
    }

    HMODULE handle;
    unsigned int count;
};

// The registry's table is provided by the library (kr_instances.cpp).
extern template class KR_API KR_HashEntry<KR_String, KR_DllEntry>;
extern template class KR_API KR_Container<KR_HashEntry<KR_String, KR_DllEntry>>;
extern template class KR_API KR_OrdContainer<KR_HashEntry<KR_String, KR_DllEntry>>;
extern template class KR_API KR_I_Iterator<KR_HashEntry<KR_String, KR_DllEntry>>;
extern template class KR_API KR_IndContainer<KR_HashEntry<KR_String, KR_DllEntry>>;
extern template class KR_API KR_LNode<KR_HashEntry<KR_String, KR_DllEntry>>;
extern template class KR_API KR_LList<KR_HashEntry<KR_String, KR_DllEntry>>;
extern template class KR_API KR_Container<KR_LList<KR_HashEntry<KR_String, KR_DllEntry>>>;
extern template class KR_API KR_OrdContainer<KR_LList<KR_HashEntry<KR_String, KR_DllEntry>>>;
extern template class KR_API KR_I_Iterator<KR_LList<KR_HashEntry<KR_String, KR_DllEntry>>>;
extern template class KR_API KR_IndContainer<KR_LList<KR_HashEntry<KR_String, KR_DllEntry>>>;
extern template class KR_API KR_Array<KR_LList<KR_HashEntry<KR_String, KR_DllEntry>>>;
extern template class KR_API KR_HashTable<KR_String, KR_DllEntry>;

// --- The module manager (report name "src/kr_dllmanager") ---
// One registry per process, a hash table of 64 buckets keyed by the path text exactly as the
// caller gave it: no case folding, no normalisation, no extension added, so two texts that name
// one file are two entries. Only a path that names an existing file is loaded; the platform's
// search path is never consulted, so a bare module name loads only from the current directory. A
// path that names a directory, a missing file and a file the platform cannot load all answer
// KR_RET_FALSE without a report. A null argument answers KR_RET_ERR_ARG without a report; a missing
// registry is reported as KR_RET_ERR_OBJ. For one thread: the host's start-up and shutdown.

// Creates the registry: KR_RET_TRUE; KR_RET_FALSE when it exists already; KR_RET_ERR_MEM.
KR_API KR_RET_STATUS KR_dllEntryManagerInit();
// Releases every module once (as KR_dllUnloadAll, reported KR_RET_ERR_OBJ when there is no
// registry), then deletes the registry. Always KR_RET_TRUE.
KR_API KR_RET_STATUS KR_dllEntryManagerClose();
// Loads the module at path, or counts one more load of a path loaded already. Creates the
// registry when there is none. KR_RET_ERR_MEM (nothing loaded) when memory runs out.
KR_API KR_RET_STATUS KR_dllLoad(const char* path);
// Undoes one load; the last one releases the module and removes its entry (KR_RET_FALSE when
// the platform refused the release). KR_RET_FALSE for a path that is not loaded.
KR_API KR_RET_STATUS KR_dllUnload(const char* path);
// Releases every module once, whatever its count. The entries stay, with their counts and their
// now stale handles: a later KR_dllLoad of such a path only counts and does not load again, so
// close the manager after this instead of going on with it. A module released here is not
// released a second time by KR_dllUnload or KR_dllEntryManagerClose, and resolves nothing.
KR_API KR_RET_STATUS KR_dllUnloadAll();
// out := the handle of a loaded path (KR_RET_TRUE), or null (KR_RET_FALSE when not loaded, and
// for every failure). The count does not change.
KR_API KR_RET_STATUS KR_dllGetHandle(const char* path, HMODULE* out);
// out := the function procName exported by the module loaded from path: KR_RET_TRUE; null with
// KR_RET_FALSE when the path is not loaded or the module has no such export.
KR_API KR_RET_STATUS KR_dllGetProcAddress(const char* path, const char* procName, FARPROC* out);

// --- The process environment ---

// out := every "name=value" entry of the process's environment in the order of its block, each
// followed by separator (null: "\r\n"; "" runs the entries together). KR_RET_TRUE, also with an
// empty out when the platform gives no environment; KR_RET_ERR_MEM leaves out empty. The wide
// form widens each entry through the locale; an entry the locale cannot widen is left out.
KR_API KR_RET_STATUS KR_getEnv(KR_String& out, const char* separator);
KR_API KR_RET_STATUS KR_getEnvW(KR_StringW& out, const wchar_t* separator);
// Splits text at the characters of separator (null: "\r\n") as KR_splitString does and sets
// each piece "name=value" in order; "name=" removes the variable. What the platform answers for
// a piece is not checked. KR_RET_FALSE for a null text or one of white space only; a failure of
// the split is returned. The wide form passes each piece to the wide environment call.
KR_API KR_RET_STATUS KR_putEnv(const char* text, const char* separator);
KR_API KR_RET_STATUS KR_putEnvW(const wchar_t* text, const wchar_t* separator);
// Sets one "name=value" assignment: through the wide environment call when
// KR_useUnicodeSystemFunctions is set, otherwise narrowed through the locale. KR_RET_FALSE for a
// null or empty text; a text the locale cannot narrow is reported (KR_RET_ERR_GEN), as is a
// memory failure (KR_RET_ERR_MEM).
KR_API KR_RET_STATUS KR_putEnvW(const wchar_t* assignment);

#endif  // KRCORE_KR_DLLMANAGER_H
