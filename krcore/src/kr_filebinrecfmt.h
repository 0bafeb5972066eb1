// kr_filebinrecfmt.h — the record file's layout on disk and the helpers of its two sources
// (kr_filebinrec.cpp: the operations; kr_filebinrecdisk.cpp: open, check and commit).
// Internal to the library.
#ifndef KRCORE_KR_FILEBINRECFMT_H
#define KRCORE_KR_FILEBINRECFMT_H

#include <stddef.h>

#include "kr_endian.h"
#include "kr_file.h"
#include "kr_reporter.h"

// On disk, little-endian. Two header slots of kSlotSize bytes, at 0 and at kSlotStride (each in
// a sector of its own, so that tearing one cannot touch the other); extents from kDataStart.
// Slot: magic @0, version major/minor/patch @8, slot size @20, kind @24, flags @28, fixed size
// @32, entry count E @36, used count @40, directory capacity @44, sequence u64 @48, data end
// u64 @56, directory region u64 @64, directory copy @72, directory CRC @76, CRC of bytes
// 0..123 @124. The directory region holds two copies of capacity x 16 bytes; a directory entry
// is a chunk's pair offset u64, the CRC of its entries and the copy in use. A chunk pair holds
// two copies of kChunkEntries entries of 32 bytes: offset u64 @0, size @8, capacity @12, kind
// @16, state @20, crc @24, 0 @28.
struct KR_FileBinaryRec::Chunk {
    long long offset;  // the pair; 0 until the chunk is first committed
    unsigned int crc;
    unsigned int copy;
    unsigned char dirty;
};

namespace krRecFile {

using krInternal::loadLe;
using krInternal::storeLe;

const unsigned char kMagic[8] = {0x89, 'K', 'R', 'R', 'E', 'C', '\r', '\n'};
const unsigned int kSlotSize = 128;
const long long kSlotStride = 512;
const long long kDataStart = 1024;
const unsigned int kEntrySize = 32;
const unsigned int kChunkEntries = 512;
const unsigned int kChunkBytes = kChunkEntries * kEntrySize;
const unsigned int kDirEntrySize = 16;
const unsigned int kMaxCount = 0x7FFFFFFFu;
const unsigned int kMaxRecord = 0x7FFFFFFFu;
const long long kMaxOffset = 1LL << 60;  // far above any file, far below wrapping
const unsigned int kKnownFlags = KR_BINREC_FLAG_CRC | KR_BINREC_FLAG_FIXED;
// In memory only, above the state's value: the extent is not reachable from the last commit
// (it may be written in place), and the reserved entry waits for the next commit.
const unsigned int kFresh = 0x100;
const unsigned int kPending = 0x200;
const unsigned int kStateMask = 0xFF;
const unsigned int kClasses = 33;
// Reserved entries of a size class looked at for the closest fit.
const unsigned int kFitScan = 32;

// CRC-32 of zlib and PNG (reflected 0xEDB88320) of size bytes, continuing from crc (0 to
// start); kr_crc.cpp.
unsigned int crcUpdate(unsigned int crc, const void* data, size_t size);

inline long long align8(long long value) {
    return (value + 7) & ~7LL;
}

inline unsigned int sizeClass(unsigned int capacity) {
    unsigned int bits = 0;
    while (capacity != 0) {
        ++bits;
        capacity >>= 1;
    }
    return bits;
}

// The smallest power of two not below n (n <= 2^31).
inline unsigned int roundUp(unsigned int n) {
    unsigned int p = 1;
    while (p < n)
        p <<= 1;
    return p;
}

inline void storeEntry(unsigned char* bytes, const KR_FileBinrecTblEntry& entry) {
    storeLe(bytes, static_cast<unsigned long long>(entry.offset));
    storeLe(bytes + 8, entry.size);
    storeLe(bytes + 12, entry.capacity);
    storeLe(bytes + 16, entry.kind);
    storeLe(bytes + 20, entry.state & kStateMask);
    storeLe(bytes + 24, entry.crc);
    storeLe(bytes + 28, 0u);
}

struct Extent {
    long long begin;
    long long end;
    unsigned int index;  // the entry, or KR_BINREC_NONE for the table's own space

    bool operator<(const Extent& other) const { return begin < other.begin; }
};

// Problems found by the check, reported as warnings up to a limit and counted beyond it.
struct Problems {
    bool report;
    unsigned int count = 0;

    void add(unsigned int index, const char* reason) {
        if (report && count < 100) {
            KR_reportWarningMsg("src/kr_file", __LINE__, "KR_FileBinaryRec consistency",
                                "record %u: %s\n", index, reason);
        }
        ++count;
    }
};

}  // namespace krRecFile

#endif  // KRCORE_KR_FILEBINRECFMT_H
