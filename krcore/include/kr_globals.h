// kr_globals.h — the export marker and the process-wide cells of the library.
// Every public header includes this one. The cells are plain globals for one thread at a time:
// the registered and default reporters, the last status code, the stream, the system versions,
// the wide-call switch and KR_NULL_PTR, the zero block that failed reference accessors return.
#ifndef KRCORE_KR_GLOBALS_H
#define KRCORE_KR_GLOBALS_H

#include <stddef.h>

#if defined(_WIN32)
#if defined(KR_BUILDING_LIBRARY)
#define KR_API __declspec(dllexport)
#else
#define KR_API __declspec(dllimport)
#endif
#else
#define KR_API __attribute__((visibility("default")))
#endif

class KR_BaseReporter;
class KR_Reporter;
class KR_OStream;
class KR_Version;

// Size of KR_NULL_PTR in bytes. Every element type that the library instantiates its containers
// for fits into it (each such instantiation checks this at compile time).
#define KR_NULL_PTR_SIZE 512

// KR_NULL_PTR — a zero-filled, maximally aligned block. An accessor that must return a reference
// but fails (object not initialised, index out of range) returns this block reinterpreted as the
// requested type. Callers must never write through such a reference.
struct alignas(16) KR_NullBlock {
    unsigned char bytes[KR_NULL_PTR_SIZE];
};

extern "C" {
extern KR_API KR_NullBlock KR_NULL_PTR;
}

// The registered reporter that every reporting function writes through; null before KR_init.
extern KR_API KR_BaseReporter* KR_msgReporter;
// The reporter made by KR_init. KR_close deletes it and leaves this pointer (and KR_msgReporter)
// dangling: register a reporter of your own before reporting after KR_close.
extern KR_API KR_Reporter* KR_defReporter;
// The library's output stream, made by KR_init; null before KR_init and after KR_close.
extern KR_API KR_OStream* KR_coutPtr;
// Data-format versions the library reads and writes; 1.0.0 after KR_init, 0.0.0 before.
extern KR_API KR_Version KR_systemVersionRead;
extern KR_API KR_Version KR_systemVersionWrite;
// Switch between the wide and the narrow platform calls of the file classes; false from load.
extern KR_API unsigned char KR_useUnicodeSystemFunctions;

namespace krInternal {

// KR_NULL_PTR reinterpreted as a T, for the failure paths of reference accessors.
template <class T>
inline T& nullRef() {
    static_assert(sizeof(T) <= KR_NULL_PTR_SIZE, "element type larger than KR_NULL_PTR");
    return *reinterpret_cast<T*>(&KR_NULL_PTR);
}

}  // namespace krInternal

#endif  // KRCORE_KR_GLOBALS_H
