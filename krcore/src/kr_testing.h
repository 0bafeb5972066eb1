// kr_testing.h — the test programs' control of the allocation countdown; not installed.
// The functions are exported by the library, so that the test programs that link against it
// can drive them, but no host header declares them. Effective only in a build with
// KR_FAULT_INJECTION; elsewhere the countdown never fires.
#ifndef KRCORE_SRC_KR_TESTING_H
#define KRCORE_SRC_KR_TESTING_H

#include <stddef.h>

#include "kr_globals.h"

namespace krTesting {

// True in a build with fault injection.
KR_API bool faultInjectionAvailable();
// Makes the n-th allocation from now fail (n >= 1), and only that one; 0 switches it off.
KR_API void failAllocation(unsigned long n);
// True when the armed failure has fired since failAllocation was called.
KR_API bool allocationFailureFired();
// Allocations counted since load (fault-injection builds only; 0 otherwise).
KR_API unsigned long allocationCount();

// One write or sync of a file class, as the write hook sees it. For a sync, data is null and
// pos and size are 0.
struct FileWriteEvent {
    bool sync;
    long long pos;
    const void* data;
    size_t size;
};

// Answers how many of the event's bytes reach the file: size lets the write through, fewer
// tears it (only that prefix is written and the write fails), 0 fails it with nothing written.
// For a sync, 0 fails it and anything else lets it happen. Works in every build.
typedef size_t (*FileWriteHook)(void* context, const FileWriteEvent& event);
// Installs hook (null removes it); one hook for the process, not synchronised.
KR_API void setFileWriteHook(FileWriteHook hook, void* context);

}  // namespace krTesting

#endif  // KRCORE_SRC_KR_TESTING_H
