// sample_module.h — what a host knows of the sample module: its exported entry points, the
// class it publishes and the pipe it feeds. The module itself is sample_module.cpp.
//   KR_dllLoad(path);
//   KR_dllGetProcAddress(path, KRSAMPLE_REGISTER, &proc);
//   krsampleEntry<KRSAMPLE_REGISTER_FUNC>(proc)(&services);   registers, gives the services
#ifndef KRCORE_EXAMPLES_SAMPLE_MODULE_H
#define KRCORE_EXAMPLES_SAMPLE_MODULE_H

#include "krcore.h"

// KR_RET_STATUS krsample_register(KR_PubServGrpList** services): checks that the library has the
// major version the module was built for (another one is refused with KR_RET_ERR_NSUP and a
// report), registers the module's classes with the class factory and its pipe callback, and
// gives the module's service table.
#define KRSAMPLE_REGISTER "krsample_register"
typedef KR_RET_STATUS (*KRSAMPLE_REGISTER_FUNC)(KR_PubServGrpList** services);
// KR_RET_STATUS krsample_unregister(): undoes the registration; call it before unloading.
#define KRSAMPLE_UNREGISTER "krsample_unregister"
typedef KR_RET_STATUS (*KRSAMPLE_UNREGISTER_FUNC)();
// unsigned char krsample_acceptsLibrary(const char* version): the registration's version check
// on its own, 1 when the module runs with a library of that version.
#define KRSAMPLE_ACCEPTS_LIBRARY "krsample_acceptsLibrary"
typedef unsigned char (*KRSAMPLE_ACCEPTS_LIBRARY_FUNC)(const char* version);

// proc, resolved by KR_dllGetProcAddress, as the entry function type F. The cast goes through
// the generic function pointer type, which compilers accept between any two function types.
template <class F>
inline F krsampleEntry(FARPROC proc) {
    return reinterpret_cast<F>(reinterpret_cast<void (*)()>(proc));
}

// The Scaler: service "Scale" (version "1.0.0", function 1) multiplies a value by a factor. Its
// objects run with one argument word, the address of the KR_Array<KR_PubArg> of its output
// arguments as KR_constructOutArgsFromPubService builds it.
#define KRSAMPLE_SCALER_GUID "3F9A2C61-7B4E-4D0A-A5C8-1E6F0B9D2C47"
// Read it and the module refreshes it first: how many Scaler objects live and how many runs.
#define KRSAMPLE_STATS_PIPE L"krsample.stats"

#endif  // KRCORE_EXAMPLES_SAMPLE_MODULE_H
