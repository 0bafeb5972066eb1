// kr_fileseam.h — the one way the file classes write and sync; not for host code.
// Every write and every sync of a file class goes through these two functions, as every
// allocation goes through kr_alloc.h, so that a test can fail, tear or log the n-th one
// (krTesting::setFileWriteHook) and prove what a crash at that point would leave on disk.
#ifndef KRCORE_KR_FILESEAM_H
#define KRCORE_KR_FILESEAM_H

#include <stddef.h>
#include <stdio.h>

namespace krInternal {

// Writes size bytes at the stream's position, which the caller knows to be pos. True when all
// of them arrived; false leaves an unknown part of them written.
bool fileWrite(FILE* file, long long pos, const void* data, size_t size);
// Makes what was written durable (fsync / FlushFileBuffers). True on success.
bool fileSync(FILE* file);

}  // namespace krInternal

#endif  // KRCORE_KR_FILESEAM_H
