// kr_persist.h — the persistable base: packing into memory and persisting into files.
// Every persistable class (versions, strings, variants, ...) packs itself into a caller's buffer
// and writes and reads itself as text (tag notation) and as little-endian binary. The first
// KR_Version argument of each operation is the version of the data format.
#ifndef KRCORE_KR_PERSIST_H
#define KRCORE_KR_PERSIST_H

#include "kr_base.h"
#include "kr_reporter.h"

class KR_Version;
class KR_FileAscii;
class KR_FileBinary;

enum KR_STORAGE_TYPE { KR_STORAGE_UNDEF = 0, KR_STORAGE_BINARY = 1 };

// KR_Persistable — abstract: the virtual operations below in this order after the destructor.
// pack/unpack set `used` to the bytes written or read (0 on failure); the file forms add the
// bytes moved to their counter.
class KR_API KR_Persistable : public KR_KorvaneClass {
public:
    KR_Persistable() {}

    ~KR_Persistable() override;

    KR_Persistable& operator=(const KR_Persistable&) { return *this; }

    virtual KR_RET_STATUS pack(KR_Version& version,
                               char* buffer,
                               unsigned int& used,
                               KR_STORAGE_TYPE storage) = 0;
    virtual unsigned int getPackedSize(KR_Version& version, KR_STORAGE_TYPE storage) = 0;
    virtual KR_RET_STATUS unpack(KR_Version& version,
                                 char* buffer,
                                 unsigned int& used,
                                 KR_STORAGE_TYPE storage) = 0;
    virtual KR_RET_STATUS persist(KR_Version& version, KR_FileAscii& file) = 0;
    virtual KR_RET_STATUS persist(KR_Version& version,
                                  KR_FileBinary& file,
                                  unsigned int& written) = 0;
    virtual KR_RET_STATUS restore(KR_Version& version, KR_FileAscii& file) = 0;
    virtual KR_RET_STATUS restore(KR_Version& version, KR_FileBinary& file, unsigned int& read) = 0;

protected:
    KR_Persistable(const KR_Persistable& other) : KR_KorvaneClass(other) {}
};

#endif  // KRCORE_KR_PERSIST_H
