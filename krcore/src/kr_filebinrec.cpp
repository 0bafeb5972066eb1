// kr_filebinrec.cpp — the record file: records behind a chunked table, committed by shadow slots.
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "kr_alloc.h"
#include "kr_endian.h"
#include "kr_file.h"
#include "kr_fileshared.h"
#include "kr_mem.h"
#include "kr_report.h"
#include "kr_version.h"

#define KRI_UNIT "src/kr_file"

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

namespace {

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

// CRC-32 of zlib and PNG (reflected 0xEDB88320), sliced by 8: eight 256-entry tables made on
// first use, eight bytes per step. Bytes are taken one by one, so the result does not depend
// on the target's byte order.
struct CrcTables {
    unsigned int t[8][256];

    CrcTables() {
        for (unsigned int i = 0; i < 256; ++i) {
            unsigned int c = i;
            for (int k = 0; k < 8; ++k)
                c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            t[0][i] = c;
        }
        for (unsigned int i = 0; i < 256; ++i) {
            for (int k = 1; k < 8; ++k)
                t[k][i] = (t[k - 1][i] >> 8) ^ t[0][t[k - 1][i] & 0xFF];
        }
    }
};

unsigned int crcUpdate(unsigned int crc, const void* data, size_t size) {
    static const CrcTables tables;
    const unsigned int(*t)[256] = tables.t;
    const unsigned char* p = static_cast<const unsigned char*>(data);
    crc = ~crc;
    for (; size >= 8; size -= 8, p += 8) {
        crc ^= p[0] | static_cast<unsigned int>(p[1]) << 8 | static_cast<unsigned int>(p[2]) << 16 |
               static_cast<unsigned int>(p[3]) << 24;
        crc = t[7][crc & 0xFF] ^ t[6][(crc >> 8) & 0xFF] ^ t[5][(crc >> 16) & 0xFF] ^
              t[4][crc >> 24] ^ t[3][p[4]] ^ t[2][p[5]] ^ t[1][p[6]] ^ t[0][p[7]];
    }
    for (; size > 0; --size, ++p)
        crc = t[0][(crc ^ *p) & 0xFF] ^ (crc >> 8);
    return ~crc;
}

long long align8(long long value) {
    return (value + 7) & ~7LL;
}

unsigned int sizeClass(unsigned int capacity) {
    unsigned int bits = 0;
    while (capacity != 0) {
        ++bits;
        capacity >>= 1;
    }
    return bits;
}

// The smallest power of two not below n (n <= 2^31).
unsigned int roundUp(unsigned int n) {
    unsigned int p = 1;
    while (p < n)
        p <<= 1;
    return p;
}

void storeEntry(unsigned char* bytes, const KR_FileBinrecTblEntry& entry) {
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
            KR_reportWarningMsg(KRI_UNIT, __LINE__, "KR_FileBinaryRec consistency",
                                "record %u: %s\n", index, reason);
        }
        ++count;
    }
};

}  // namespace

// --- KR_FileBinaryRec ---

KR_FileBinaryRec::KR_FileBinaryRec() : KR_FileBinary() {
    initDataMembers();
}

KR_FileBinaryRec::KR_FileBinaryRec(const char* name, KR_FILE_MODE mode) : KR_FileBinary() {
    initDataMembers();
    open(name, mode);
}

KR_FileBinaryRec::KR_FileBinaryRec(const wchar_t* name, KR_FILE_MODE mode) : KR_FileBinary() {
    initDataMembers();
    open(name, mode);
}

KR_FileBinaryRec::KR_FileBinaryRec(const KR_FileBinaryRec& other) : KR_FileBinary(other) {
    initDataMembers();
}

KR_FileBinaryRec::~KR_FileBinaryRec() {
    cleanupDataMembers();
}

KR_FileBinaryRec& KR_FileBinaryRec::operator=(const KR_FileBinaryRec& other) {
    KR_FileBinary::operator=(other);
    return *this;
}

KR_RET_STATUS KR_FileBinaryRec::open(const char* name, KR_FILE_MODE mode) {
    return openRec(name, mode, 0, 0, 1);
}

KR_RET_STATUS KR_FileBinaryRec::open(const wchar_t* name, KR_FILE_MODE mode) {
    return openRec(name, mode, 0, 0, 1);
}

KR_RET_STATUS KR_FileBinaryRec::create(const char* name,
                                       unsigned int kind,
                                       unsigned int fixedSize,
                                       unsigned char withCrc) {
    return openRec(name, KR_FILE_MODE_WRITE, kind, fixedSize, withCrc);
}

KR_RET_STATUS KR_FileBinaryRec::create(const wchar_t* name,
                                       unsigned int kind,
                                       unsigned int fixedSize,
                                       unsigned char withCrc) {
    return openRec(name, KR_FILE_MODE_WRITE, kind, fixedSize, withCrc);
}

KR_RET_STATUS KR_FileBinaryRec::close() {
    KR_setUserError(0);
    if (!isOpen()) return KR_RET_FALSE;
    KR_RET_STATUS status = changed_ ? commit(0) : KR_RET_TRUE;
    KR_RET_STATUS closed = isOpen() ? KR_File::close() : KR_RET_TRUE;
    forget();
    if (KRI_FAILED(status)) return status;
    return closed;
}

KR_RET_STATUS KR_FileBinaryRec::recGetEntry(unsigned int index, KR_FileBinrecTblEntry& entry) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkIndex(index, __LINE__);
    if (KRI_FAILED(status)) return status;
    entry = table_[index];
    entry.state &= kStateMask;
    return entry.state == KR_BINREC_USED ? KR_RET_TRUE : KR_RET_FALSE;
}

KR_RET_STATUS KR_FileBinaryRec::recHas(unsigned int index) {
    KR_setUserError(0);
    if (!isOpen() || index >= count_) return KR_RET_FALSE;
    return (table_[index].state & KR_BINREC_USED) ? KR_RET_TRUE : KR_RET_FALSE;
}

KR_RET_STATUS KR_FileBinaryRec::recFirst(unsigned int& index) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    for (unsigned int i = 0; i < count_; ++i) {
        if (table_[i].state & KR_BINREC_USED) {
            index = i;
            return KR_RET_TRUE;
        }
    }
    return KR_RET_FALSE;
}

KR_RET_STATUS KR_FileBinaryRec::recNext(unsigned int& index) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    for (unsigned int i = index + 1; index < count_ && i < count_; ++i) {
        if (table_[i].state & KR_BINREC_USED) {
            index = i;
            return KR_RET_TRUE;
        }
    }
    return KR_RET_FALSE;
}

KR_RET_STATUS KR_FileBinaryRec::recRead(unsigned int index, KR_Memory& record) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkIndex(index, __LINE__);
    if (KRI_FAILED(status)) return status;
    if (!record.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_OBJ);
    const KR_FileBinrecTblEntry& entry = table_[index];
    if (!(entry.state & KR_BINREC_USED)) return KR_RET_FALSE;
    status = record.memGet(entry.size);
    if (KRI_FAILED(status)) return status;
    size_t got = 0;
    status = readAt(entry.offset, record.memPtr(), entry.size, got);
    if (!KRI_FAILED(status) && got != entry.size) {
        status = KRI_FAIL_DATA(KR_RET_ERR_FILE, "KR_FileBinaryRec: record cut off");
    }
    if (!KRI_FAILED(status) && (flags_ & KR_BINREC_FLAG_CRC) &&
        crcUpdate(0, record.memPtr(), entry.size) != entry.crc) {
        status = KRI_FAIL_MSG(KR_RET_ERR_FILE, "KR_FileBinaryRec: corrupt record",
                              "record %u: checksum mismatch\n", index);
    }
    if (KRI_FAILED(status)) record.memFree();
    return status;
}

KR_RET_STATUS KR_FileBinaryRec::recAppend(KR_Memory& record, unsigned int& index) {
    KR_setUserError(0);
    if (!record.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_OBJ);
    return recAppend(record.memPtr(), record.memSize(), index, 0, 0);
}

KR_RET_STATUS KR_FileBinaryRec::recAppend(const void* data,
                                          unsigned int size,
                                          unsigned int& index,
                                          unsigned int kind,
                                          unsigned int capacity) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkChange(size, __LINE__);
    if (KRI_FAILED(status)) return status;
    if (data == nullptr && size > 0) return KRI_FAIL(KR_RET_ERR_ARG);
    unsigned int wanted = fixedSize_ != 0 ? fixedSize_ : std::max(size, capacity);
    unsigned int taken = takeReserved(wanted);
    if (taken == KR_BINREC_NONE) {
        wanted = fixedSize_ != 0 ? fixedSize_
                                 : static_cast<unsigned int>(
                                           std::min<long long>(align8(wanted), kMaxRecord + 1LL));
        status = grow(count_ + 1);
        long long offset = 0;
        if (!KRI_FAILED(status)) status = newExtent(wanted, offset);
        if (!KRI_FAILED(status)) status = writeRecord(offset, data, size);
        if (KRI_FAILED(status)) return rollBack(status);
        taken = count_++;
        KR_FileBinrecTblEntry& entry = table_[taken];
        entry = KR_FileBinrecTblEntry();
        entry.offset = offset;
        entry.capacity = wanted;
    } else {
        status = writeRecord(table_[taken].offset, data, size);
        if (KRI_FAILED(status)) return rollBack(status);
    }
    KR_FileBinrecTblEntry& entry = table_[taken];
    entry.size = size;
    entry.kind = kind;
    entry.state = KR_BINREC_USED | kFresh;
    entry.nextReserved = KR_BINREC_NONE;
    entry.crc = (flags_ & KR_BINREC_FLAG_CRC) ? crcUpdate(0, data, size) : 0;
    ++usedCount_;
    touch(taken);
    index = taken;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileBinaryRec::recWrite(unsigned int index, KR_Memory& record) {
    KR_setUserError(0);
    if (!record.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_OBJ);
    return recWrite(index, record.memPtr(), record.memSize());
}

KR_RET_STATUS KR_FileBinaryRec::recWrite(unsigned int index, const void* data, unsigned int size) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkIndex(index, __LINE__);
    if (!KRI_FAILED(status)) status = checkChange(size, __LINE__);
    if (KRI_FAILED(status)) return status;
    if (data == nullptr && size > 0) return KRI_FAIL(KR_RET_ERR_ARG);
    if (!(table_[index].state & KR_BINREC_USED)) return KR_RET_FALSE;
    unsigned int capacity = table_[index].capacity;
    bool fresh = (table_[index].state & kFresh) != 0;
    if (!fresh || size > capacity) {
        // Copy on write: the bytes go to other space, which the record takes over; its old
        // extent goes to a reserved entry (a swapped one, or a new one at the end).
        unsigned int wanted =
                size <= capacity
                        ? size
                        : static_cast<unsigned int>(std::min<long long>(
                                  align8(std::max<long long>(size, capacity + capacity / 2LL)),
                                  kMaxRecord + 1LL));
        unsigned int swap = takeReserved(wanted);
        long long offset = 0;
        if (swap == KR_BINREC_NONE) {
            status = grow(count_ + 1);
            if (!KRI_FAILED(status)) status = newExtent(wanted, offset);
        } else {
            offset = table_[swap].offset;
            wanted = table_[swap].capacity;
        }
        if (!KRI_FAILED(status)) status = writeRecord(offset, data, size);
        if (KRI_FAILED(status)) return rollBack(status);
        if (swap == KR_BINREC_NONE) {
            swap = count_++;
            table_[swap] = KR_FileBinrecTblEntry();
        }
        KR_FileBinrecTblEntry& old = table_[swap];
        old.offset = table_[index].offset;
        old.capacity = capacity;
        old.state = KR_BINREC_RESERVED | (fresh ? kFresh : 0);
        pushReserved(swap, !fresh);
        touch(swap);
        table_[index].offset = offset;
        table_[index].capacity = wanted;
    } else {
        status = writeRecord(table_[index].offset, data, size);
        if (KRI_FAILED(status)) return rollBack(status);
    }
    KR_FileBinrecTblEntry& entry = table_[index];
    entry.size = size;
    entry.state = KR_BINREC_USED | kFresh;
    entry.crc = (flags_ & KR_BINREC_FLAG_CRC) ? crcUpdate(0, data, size) : 0;
    touch(index);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileBinaryRec::recDelete(unsigned int index) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkIndex(index, __LINE__);
    if (!KRI_FAILED(status)) status = checkChange(fixedSize_, __LINE__);
    if (KRI_FAILED(status)) return status;
    KR_FileBinrecTblEntry& entry = table_[index];
    if (!(entry.state & KR_BINREC_USED)) return KR_RET_FALSE;
    entry.size = 0;
    entry.kind = 0;
    entry.crc = 0;
    bool fresh = (entry.state & kFresh) != 0;
    entry.state = KR_BINREC_RESERVED | (fresh ? kFresh : 0);
    pushReserved(index, !fresh);
    touch(index);
    --usedCount_;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileBinaryRec::recReserve(unsigned int count, unsigned int capacity) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkChange(fixedSize_ != 0 ? fixedSize_ : 0, __LINE__);
    if (KRI_FAILED(status)) return status;
    if (fixedSize_ != 0) capacity = fixedSize_;
    if (capacity > kMaxRecord || count > kMaxCount - count_) return KRI_FAIL(KR_RET_ERR_ARG);
    if (count == 0) return KR_RET_TRUE;
    status = grow(count_ + count);
    if (KRI_FAILED(status)) return status;
    unsigned int extent =
            fixedSize_ != 0 ? fixedSize_ : static_cast<unsigned int>(align8(capacity));
    static const unsigned char kZeros[4096] = {0};
    unsigned int first = count_;
    for (unsigned int i = 0; i < count; ++i) {
        long long offset = 0;
        status = newExtent(extent, offset);
        for (unsigned int done = 0; done < extent && !KRI_FAILED(status);) {
            unsigned int piece = std::min<unsigned int>(extent - done, sizeof kZeros);
            status = writeRecord(offset + done, kZeros, piece);
            done += piece;
        }
        if (KRI_FAILED(status)) {
            count_ = first;
            return rollBack(status);
        }
        KR_FileBinrecTblEntry& entry = table_[count_];
        entry = KR_FileBinrecTblEntry();
        entry.offset = offset;
        entry.capacity = extent;
        entry.state = KR_BINREC_RESERVED | kFresh;
        pushReserved(count_, false);
        touch(count_++);
    }
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileBinaryRec::recFlush(unsigned char toDisk) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    if (!writable_) return KR_RET_TRUE;
    return commit(toDisk);
}

KR_RET_STATUS KR_FileBinaryRec::recAppendObj(KR_Persistable& object,
                                             KR_Version& version,
                                             unsigned int& index,
                                             unsigned int kind) {
    KR_setUserError(0);
    KR_Memory packed;
    unsigned int used = 0;
    KR_RET_STATUS status = packed.memGet(object.getPackedSize(version, KR_STORAGE_BINARY));
    if (!KRI_FAILED(status)) {
        status = object.pack(version, static_cast<char*>(packed.memPtr()), used, KR_STORAGE_BINARY);
    }
    if (KRI_FAILED(status)) return status;
    return recAppend(packed.memPtr(), used, index, kind, 0);
}

KR_RET_STATUS KR_FileBinaryRec::recWriteObj(unsigned int index,
                                            KR_Persistable& object,
                                            KR_Version& version) {
    KR_setUserError(0);
    KR_Memory packed;
    unsigned int used = 0;
    KR_RET_STATUS status = packed.memGet(object.getPackedSize(version, KR_STORAGE_BINARY));
    if (!KRI_FAILED(status)) {
        status = object.pack(version, static_cast<char*>(packed.memPtr()), used, KR_STORAGE_BINARY);
    }
    if (KRI_FAILED(status)) return status;
    return recWrite(index, packed.memPtr(), used);
}

KR_RET_STATUS KR_FileBinaryRec::recReadObj(unsigned int index,
                                           KR_Persistable& object,
                                           KR_Version& version) {
    KR_Memory packed;
    KR_RET_STATUS status = recRead(index, packed);
    if (status != KR_RET_TRUE) return status;
    unsigned int used = 0;
    status = object.unpack(version, static_cast<char*>(packed.memPtr()), used, KR_STORAGE_BINARY);
    if (KRI_FAILED(status)) return status;
    if (used != packed.memSize()) {
        return KRI_FAIL_MSG(KR_RET_ERR_FILE, "KR_FileBinaryRec: corrupt record",
                            "record %u: object does not fill the record\n", index);
    }
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileBinaryRec::recCheck(unsigned int& problems) {
    KR_setUserError(0);
    problems = 0;
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    status = checkExtents(true, problems);
    if (KRI_FAILED(status)) return status;
    Problems found{true, problems};
    // Every reserved entry must be on exactly one list, and the lists must end.
    unsigned int onLists = 0, reserved = 0, used = 0;
    for (unsigned int i = 0; i < count_; ++i)
        (table_[i].state & KR_BINREC_USED) ? ++used : ++reserved;
    for (unsigned int list = 0; list <= kClasses; ++list) {
        unsigned int at = list < kClasses ? reservedHeads_[list] : pendingHead_;
        for (unsigned int steps = 0; at != KR_BINREC_NONE; ++steps, at = table_[at].nextReserved) {
            if (at >= count_ || (table_[at].state & KR_BINREC_USED) || steps > count_) {
                found.add(at, "reserved list broken");
                break;
            }
            ++onLists;
        }
    }
    if (onLists != reserved) found.add(KR_BINREC_NONE, "reserved entry not on the list");
    if (used != usedCount_) found.add(KR_BINREC_NONE, "used count wrong");
    KR_Memory record;
    for (unsigned int i = 0; i < count_; ++i) {
        if (!(table_[i].state & KR_BINREC_USED) || !(flags_ & KR_BINREC_FLAG_CRC)) continue;
        status = record.memGet(table_[i].size);
        size_t got = 0;
        if (!KRI_FAILED(status))
            status = readAt(table_[i].offset, record.memPtr(), table_[i].size, got);
        if (KRI_FAILED(status)) return status;
        if (got != table_[i].size || crcUpdate(0, record.memPtr(), got) != table_[i].crc) {
            found.add(i, "checksum mismatch");
        }
    }
    problems = found.count;
    return problems == 0 ? KR_RET_TRUE : KR_RET_FALSE;
}

KR_RET_STATUS KR_FileBinaryRec::initDataMembers() {
    initialised_ = 1;
    table_ = nullptr;
    capacity_ = 0;
    chunks_ = nullptr;
    chunkCapacity_ = 0;
    forget();
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileBinaryRec::cleanupDataMembers() {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    close();
    freeTable();
    initialised_ = 0;
    return KR_RET_TRUE;
}

template <class Char>
KR_RET_STATUS KR_FileBinaryRec::openRec(const Char* name,
                                        KR_FILE_MODE mode,
                                        unsigned int kind,
                                        unsigned int fixedSize,
                                        unsigned char withCrc) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (fixedSize > kMaxRecord) return KRI_FAIL(KR_RET_ERR_ARG);
    close();
    KR_RET_STATUS status = KR_FileBinary::open(name, mode);
    if (KRI_FAILED(status)) return status;
    writable_ = mode != KR_FILE_MODE_READ;
    long long size = 0;
    status = getSize(size);
    if (!KRI_FAILED(status)) {
        bool empty = mode == KR_FILE_MODE_WRITE || (mode == KR_FILE_MODE_APPEND && size == 0);
        status = empty ? startEmpty(kind, fixedSize, withCrc) : load();
    }
    if (status != KR_RET_TRUE) {
        if (isOpen()) KR_File::close();
        forget();
    }
    return status;
}

// Reads the last commit: the newer valid header slot, the directory and every chunk, each
// checked before it is believed. Called by open and after a failed change.
KR_RET_STATUS KR_FileBinaryRec::load() {
    forget();
    long long fileSize = 0;
    KR_RET_STATUS status = getSize(fileSize);
    if (KRI_FAILED(status)) return status;
    if (fileSize < kSlotSize) return KR_RET_FALSE;
    unsigned char slots[2][kSlotSize];
    bool magic[2] = {false, false}, valid[2] = {false, false};
    for (int i = 0; i < 2; ++i) {
        if (fileSize < i * kSlotStride + kSlotSize) break;
        size_t got = 0;
        status = readAt(i * kSlotStride, slots[i], kSlotSize, got);
        if (KRI_FAILED(status)) return status;
        magic[i] = got == kSlotSize && memcmp(slots[i], kMagic, sizeof kMagic) == 0;
        valid[i] = magic[i] && crcUpdate(0, slots[i], 124) == loadLe<unsigned int>(slots[i] + 124);
    }
    if (!magic[0] && !magic[1]) return KR_RET_FALSE;
    if (!valid[0] && !valid[1]) {
        return KRI_FAIL_MSG(KR_RET_ERR_FILE, "KR_FileBinaryRec: corrupt header", "%s\n",
                            "no header slot has a valid checksum");
    }
    int best = !valid[0] || (valid[1] && loadLe<unsigned long long>(slots[1] + 48) >
                                                 loadLe<unsigned long long>(slots[0] + 48))
                       ? 1
                       : 0;
    status = loadTable(slots[best], fileSize);
    if (status != KR_RET_TRUE) {
        forget();
        return status;
    }
    slot_ = static_cast<unsigned int>(best);
    return KR_RET_TRUE;
}

#define KRI_CORRUPT(what, reason) \
    KRI_FAIL_MSG(KR_RET_ERR_FILE, "KR_FileBinaryRec: corrupt " what, "%s\n", (reason))

KR_RET_STATUS KR_FileBinaryRec::loadTable(const unsigned char* slot, long long fileSize) {
    if (loadLe<unsigned int>(slot + 8) != 1) return KRI_FAIL(KR_RET_ERR_NSUP);
    unsigned int slotSize = loadLe<unsigned int>(slot + 20);
    unsigned int flags = loadLe<unsigned int>(slot + 28);
    unsigned int fixedSize = loadLe<unsigned int>(slot + 32);
    unsigned int count = loadLe<unsigned int>(slot + 36);
    unsigned int used = loadLe<unsigned int>(slot + 40);
    unsigned int dirCapacity = loadLe<unsigned int>(slot + 44);
    unsigned long long dataEnd = loadLe<unsigned long long>(slot + 56);
    unsigned long long dirOffset = loadLe<unsigned long long>(slot + 64);
    unsigned int dirCopy = loadLe<unsigned int>(slot + 72);
    if (slotSize < kSlotSize || slotSize > kSlotStride) return KRI_CORRUPT("header", "slot size");
    if ((flags & ~kKnownFlags) != 0 && writable_) return KRI_FAIL(KR_RET_ERR_NSUP);
    if (((flags & KR_BINREC_FLAG_FIXED) != 0) != (fixedSize != 0) || fixedSize > kMaxRecord) {
        return KRI_CORRUPT("header", "fixed size");
    }
    // Each entry takes 32 bytes of the file, so the count is bounded by the bytes present
    // before anything is allocated for it.
    unsigned long long present = static_cast<unsigned long long>(fileSize);
    if (count > kMaxCount || used > count || count > present / kEntrySize) {
        return KRI_CORRUPT("header", "entry count");
    }
    if (dataEnd < static_cast<unsigned long long>(kDataStart) ||
        dataEnd > static_cast<unsigned long long>(kMaxOffset)) {
        return KRI_CORRUPT("header", "data end");
    }
    unsigned int chunkCount = (count + kChunkEntries - 1) / kChunkEntries;
    if (dirCapacity < chunkCount || dirCapacity > kMaxCount / kChunkEntries + 1 || dirCopy > 1 ||
        (dirCapacity > 0 &&
         (dirOffset < static_cast<unsigned long long>(kDataStart) || dirOffset > dataEnd ||
          2ULL * dirCapacity * kDirEntrySize > dataEnd - dirOffset ||
          dirOffset + (dirCopy + 0ULL) * dirCapacity * kDirEntrySize + 0ULL +
                          chunkCount * kDirEntrySize >
                  present))) {
        return KRI_CORRUPT("header", "directory outside the file");
    }
    flags_ = flags;
    fixedSize_ = fixedSize;
    kind_ = loadLe<unsigned int>(slot + 24);
    sequence_ = loadLe<unsigned long long>(slot + 48);
    dataEnd_ = static_cast<long long>(dataEnd);
    dirOffset_ = static_cast<long long>(dirOffset);
    dirCapacity_ = dirCapacity;
    dirCopy_ = dirCopy;
    KR_RET_STATUS status = grow(count);
    if (KRI_FAILED(status)) return status;
    // The directory, then each chunk it names, checksums first.
    unsigned char bytes[kChunkBytes];
    size_t got = 0;
    long long dirAt = dirOffset_ + static_cast<long long>(dirCopy) * dirCapacity * kDirEntrySize;
    unsigned int dirCrc = 0;
    const unsigned int perRead = kChunkBytes / kDirEntrySize;
    for (unsigned int c = 0; c < chunkCount; c += perRead) {
        unsigned int n = std::min(perRead, chunkCount - c);
        status = readAt(dirAt + static_cast<long long>(c) * kDirEntrySize, bytes, n * kDirEntrySize,
                        got);
        if (KRI_FAILED(status)) return status;
        if (got != n * kDirEntrySize) return KRI_CORRUPT("table", "directory cut off");
        dirCrc = crcUpdate(dirCrc, bytes, got);
        for (unsigned int i = 0; i < n; ++i) {
            const unsigned char* entry = bytes + i * kDirEntrySize;
            chunks_[c + i].offset = static_cast<long long>(loadLe<unsigned long long>(entry));
            chunks_[c + i].crc = loadLe<unsigned int>(entry + 8);
            chunks_[c + i].copy = loadLe<unsigned int>(entry + 12);
            chunks_[c + i].dirty = 0;
        }
    }
    if (dirCrc != loadLe<unsigned int>(slot + 76))
        return KRI_CORRUPT("table", "directory checksum");
    for (unsigned int c = 0; c < chunkCount; ++c) {
        const Chunk& chunk = chunks_[c];
        unsigned int n = std::min(kChunkEntries, count - c * kChunkEntries);
        unsigned long long at = static_cast<unsigned long long>(chunk.offset);
        if (at < static_cast<unsigned long long>(kDataStart) || at > dataEnd ||
            2ULL * kChunkBytes > dataEnd - at || chunk.copy > 1 ||
            at + chunk.copy * kChunkBytes + n * kEntrySize > present) {
            return KRI_CORRUPT("table", "chunk outside the file");
        }
        status = readAt(static_cast<long long>(at + chunk.copy * kChunkBytes), bytes,
                        n * kEntrySize, got);
        if (KRI_FAILED(status)) return status;
        if (got != n * kEntrySize || crcUpdate(0, bytes, got) != chunk.crc) {
            return KRI_CORRUPT("table", "chunk checksum");
        }
        for (unsigned int i = 0; i < n; ++i) {
            const unsigned char* b = bytes + i * kEntrySize;
            KR_FileBinrecTblEntry& entry = table_[c * kChunkEntries + i];
            entry.offset = static_cast<long long>(loadLe<unsigned long long>(b));
            entry.size = loadLe<unsigned int>(b + 8);
            entry.capacity = loadLe<unsigned int>(b + 12);
            entry.kind = loadLe<unsigned int>(b + 16);
            entry.state = loadLe<unsigned int>(b + 20);
            entry.crc = loadLe<unsigned int>(b + 24);
            entry.nextReserved = KR_BINREC_NONE;
            unsigned long long offset = loadLe<unsigned long long>(b);
            if (entry.state > KR_BINREC_USED ||
                offset < static_cast<unsigned long long>(kDataStart) || offset > dataEnd ||
                entry.capacity > dataEnd - offset || entry.size > entry.capacity ||
                offset + entry.size > present ||
                (entry.state == KR_BINREC_RESERVED && (entry.size != 0 || entry.crc != 0)) ||
                (fixedSize != 0 && (entry.capacity != fixedSize ||
                                    (entry.state == KR_BINREC_USED && entry.size != fixedSize)))) {
                return KRI_CORRUPT("table", "entry outside the data area or inconsistent");
            }
        }
    }
    count_ = count;
    for (unsigned int i = 0; i < count; ++i) {
        if (table_[i].state == KR_BINREC_USED) {
            ++usedCount_;
        } else {
            pushReserved(i, false);
        }
    }
    if (usedCount_ != used) {
        forget();
        return KRI_CORRUPT("table", "used count wrong");
    }
    unsigned int problems = 0;
    status = checkExtents(false, problems);
    if (KRI_FAILED(status)) return status;
    if (problems != 0) {
        forget();
        return KRI_CORRUPT("table", "extents overlap");
    }
    return KR_RET_TRUE;
}

// Every extent (records, chunk pairs, the directory region) inside the data area and apart from
// the others; problems counts what is wrong, reported as warnings when asked.
KR_RET_STATUS KR_FileBinaryRec::checkExtents(bool report, unsigned int& problems) {
    Problems found{report, 0};
    unsigned int chunkCount = (count_ + kChunkEntries - 1) / kChunkEntries;
    size_t total = static_cast<size_t>(count_) + chunkCount + 1;
    if (total > static_cast<size_t>(-1) / sizeof(Extent)) return KRI_FAIL(KR_RET_ERR_MEM);
    Extent* extents = static_cast<Extent*>(krInternal::allocBlock(total * sizeof(Extent)));
    if (extents == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    size_t n = 0;
    for (unsigned int i = 0; i < count_; ++i) {
        const KR_FileBinrecTblEntry& entry = table_[i];
        if (entry.offset < kDataStart || entry.offset > dataEnd_ ||
            entry.capacity > dataEnd_ - entry.offset) {
            found.add(i, "extent outside the data area");
        } else if (entry.size > entry.capacity) {
            found.add(i, "size above capacity");
        }
        if (entry.capacity > 0)
            extents[n++] = Extent{entry.offset, entry.offset + entry.capacity, i};
    }
    for (unsigned int c = 0; c < chunkCount; ++c) {
        if (chunks_[c].offset != 0) {
            extents[n++] = Extent{chunks_[c].offset, chunks_[c].offset + 2LL * kChunkBytes,
                                  KR_BINREC_NONE};
        }
    }
    if (dirCapacity_ > 0) {
        extents[n++] =
                Extent{dirOffset_, dirOffset_ + 2LL * dirCapacity_ * kDirEntrySize, KR_BINREC_NONE};
    }
    // Writers mostly allocate upwards, so the extents are often in order already.
    bool sorted = true;
    for (size_t i = 1; i < n && sorted; ++i)
        sorted = !(extents[i] < extents[i - 1]);
    if (!sorted) std::sort(extents, extents + n);
    for (size_t i = 1; i < n; ++i) {
        if (extents[i].begin < extents[i - 1].end) found.add(extents[i].index, "extents overlap");
    }
    krInternal::freeBlock(extents);
    problems += found.count;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileBinaryRec::startEmpty(unsigned int kind,
                                           unsigned int fixedSize,
                                           unsigned char withCrc) {
    forget();
    kind_ = kind;
    fixedSize_ = fixedSize;
    flags_ = (withCrc ? static_cast<unsigned int>(KR_BINREC_FLAG_CRC) : 0u) |
             (fixedSize != 0 ? static_cast<unsigned int>(KR_BINREC_FLAG_FIXED) : 0u);
    dataEnd_ = kDataStart;
    // The header area in one write: slot 0 holds the first commit, slot 1 nothing valid.
    unsigned char zeros[kDataStart] = {0};
    KR_RET_STATUS status = setPos(0);
    if (!KRI_FAILED(status)) status = writeBytes(zeros, sizeof zeros);
    slot_ = 1;
    sequence_ = 0;
    if (!KRI_FAILED(status)) status = writeHeader(0, 1, 0);
    if (!KRI_FAILED(status)) status = KR_File::flush();
    if (KRI_FAILED(status)) return status;
    slot_ = 0;
    sequence_ = 1;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileBinaryRec::commit(unsigned char toDisk) {
    if (!changed_) {
        if (!toDisk || synced_) return KR_RET_TRUE;
        KR_RET_STATUS status = syncToDisk();
        if (KRI_FAILED(status)) return rollBack(status);
        synced_ = 1;
        return KR_RET_TRUE;
    }
    unsigned int chunkCount = (count_ + kChunkEntries - 1) / kChunkEntries;
    long long dirOffset = dirOffset_;
    unsigned int dirCapacity = dirCapacity_, dirCopy = 1 - dirCopy_;
    KR_RET_STATUS status = KR_RET_TRUE;
    if (chunkCount > dirCapacity) {
        // A larger region; the old one stays unused (the directory is tiny beside the table).
        dirCapacity = roundUp(chunkCount < 8 ? 8 : chunkCount);
        status = newExtent(2 * dirCapacity * kDirEntrySize, dirOffset);
        dirCopy = 0;
    }
    unsigned char bytes[kChunkBytes];
    for (unsigned int c = 0; c < chunkCount && !KRI_FAILED(status); ++c) {
        Chunk& chunk = chunks_[c];
        if (!chunk.dirty) continue;
        if (chunk.offset == 0) {
            status = newExtent(2 * kChunkBytes, chunk.offset);
            chunk.copy = 1;
        }
        unsigned int n = std::min(kChunkEntries, count_ - c * kChunkEntries);
        for (unsigned int i = 0; i < n; ++i)
            storeEntry(bytes + i * kEntrySize, table_[c * kChunkEntries + i]);
        chunk.copy = 1 - chunk.copy;
        chunk.crc = crcUpdate(0, bytes, n * kEntrySize);
        if (!KRI_FAILED(status)) status = setPos(chunk.offset + chunk.copy * kChunkBytes);
        if (!KRI_FAILED(status)) status = writeBytes(bytes, n * kEntrySize);
    }
    unsigned int dirCrc = 0;
    if (chunkCount > 0 && !KRI_FAILED(status)) {
        status = setPos(dirOffset + static_cast<long long>(dirCopy) * dirCapacity * kDirEntrySize);
    }
    for (unsigned int c = 0; c < chunkCount && !KRI_FAILED(status); ++c) {
        unsigned char entry[kDirEntrySize];
        storeLe(entry, static_cast<unsigned long long>(chunks_[c].offset));
        storeLe(entry + 8, chunks_[c].crc);
        storeLe(entry + 12, chunks_[c].copy);
        dirCrc = crcUpdate(dirCrc, entry, kDirEntrySize);
        status = writeBytes(entry, kDirEntrySize);
    }
    // Everything the new slot names is written (and, with toDisk, on the device) before the
    // slot; the slot is on the device before the commit is answered.
    if (!KRI_FAILED(status)) status = toDisk ? syncToDisk() : KR_File::flush();
    if (!KRI_FAILED(status)) {
        dirOffset_ = dirOffset;
        dirCapacity_ = dirCapacity;
        dirCopy_ = dirCopy;
        status = writeHeader(1 - slot_, sequence_ + 1, dirCrc);
    }
    if (!KRI_FAILED(status)) status = toDisk ? syncToDisk() : KR_File::flush();
    if (KRI_FAILED(status)) return rollBack(status);
    slot_ = 1 - slot_;
    ++sequence_;
    synced_ = toDisk;
    changed_ = 0;
    for (unsigned int c = 0; c < chunkCount; ++c) {
        if (!chunks_[c].dirty) continue;
        chunks_[c].dirty = 0;
        unsigned int n = std::min(kChunkEntries, count_ - c * kChunkEntries);
        for (unsigned int i = 0; i < n; ++i)
            table_[c * kChunkEntries + i].state &= ~kFresh;
    }
    // What was freed since the last commit is unreachable now, and may be reused.
    while (pendingHead_ != KR_BINREC_NONE) {
        unsigned int at = pendingHead_;
        pendingHead_ = table_[at].nextReserved;
        table_[at].state &= ~kPending;
        pushReserved(at, false);
    }
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileBinaryRec::writeHeader(unsigned int slot,
                                            unsigned long long sequence,
                                            unsigned int dirCrc) {
    unsigned char bytes[kSlotSize] = {0};
    memcpy(bytes, kMagic, sizeof kMagic);
    storeLe(bytes + 8, 1u);
    storeLe(bytes + 12, 0u);
    storeLe(bytes + 16, 0u);
    storeLe(bytes + 20, kSlotSize);
    storeLe(bytes + 24, kind_);
    storeLe(bytes + 28, flags_);
    storeLe(bytes + 32, fixedSize_);
    storeLe(bytes + 36, count_);
    storeLe(bytes + 40, usedCount_);
    storeLe(bytes + 44, dirCapacity_);
    storeLe(bytes + 48, sequence);
    storeLe(bytes + 56, static_cast<unsigned long long>(dataEnd_));
    storeLe(bytes + 64, static_cast<unsigned long long>(dirOffset_));
    storeLe(bytes + 72, dirCopy_);
    storeLe(bytes + 76, dirCrc);
    storeLe(bytes + 124, crcUpdate(0, bytes, 124));
    KR_RET_STATUS status = setPos(slot * kSlotStride);
    if (!KRI_FAILED(status)) status = writeBytes(bytes, kSlotSize);
    return status;
}

// A failed write leaves bytes of unknown content past the last commit, and the table in
// memory describes them: both are dropped, and the committed state is read back.
KR_RET_STATUS KR_FileBinaryRec::rollBack(KR_RET_STATUS failure) {
    if (failure == KR_RET_ERR_MEM || failure == KR_RET_ERR_ARG || !isOpen()) return failure;
    if (load() != KR_RET_TRUE && isOpen()) {
        KR_File::close();
        forget();
    }
    return failure;
}

KR_RET_STATUS KR_FileBinaryRec::checkIndex(unsigned int index, int line) {
    KR_RET_STATUS status = checkOpen(line);
    if (KRI_FAILED(status)) return status;
    if (index < count_) return KR_RET_TRUE;
    KR_reportErrorMsg(KRI_UNIT, line, "KR_FileBinaryRec: record access", KR_msg(0, 3),
                      static_cast<int>(index), 0, static_cast<int>(count_) - 1);
    return krInternal::failAt(KR_RET_ERR_ARG, KRI_UNIT, line);
}

// Open, writable, and size right for the file; changed_ is set for the change that follows.
KR_RET_STATUS KR_FileBinaryRec::checkChange(unsigned int size, int line) {
    KR_RET_STATUS status = checkOpen(line);
    if (KRI_FAILED(status)) return status;
    if (!writable_) return KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_File: opened for reading only");
    if (size > kMaxRecord || (fixedSize_ != 0 && size != fixedSize_)) {
        return krInternal::failAt(KR_RET_ERR_ARG, KRI_UNIT, line);
    }
    changed_ = 1;
    return KR_RET_TRUE;
}

// Room for entries entries and their chunks; nothing changes when memory runs out. Capacities
// double, and stay powers of two below 2^31 entries.
KR_RET_STATUS KR_FileBinaryRec::grow(unsigned int entries) {
    if (entries > kMaxCount) return KRI_FAIL(KR_RET_ERR_ARG);
    if (entries > capacity_) {
        unsigned int capacity = roundUp(entries < 64 ? 64 : entries);
        // 2^31 entries of 32 bytes do not fit a 32-bit size_t.
        unsigned long long bytes = static_cast<unsigned long long>(capacity) * sizeof(*table_);
        if (bytes != static_cast<size_t>(bytes)) return KRI_FAIL(KR_RET_ERR_MEM);
        void* grown = krInternal::reallocBlock(table_, static_cast<size_t>(bytes));
        if (grown == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
        table_ = static_cast<KR_FileBinrecTblEntry*>(grown);
        capacity_ = capacity;
    }
    unsigned int chunks = (entries + kChunkEntries - 1) / kChunkEntries;
    if (chunks > chunkCapacity_) {
        unsigned int capacity = roundUp(chunks);
        void* grown = krInternal::reallocBlock(chunks_, capacity * sizeof(Chunk));
        if (grown == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
        chunks_ = static_cast<Chunk*>(grown);
        memset(chunks_ + chunkCapacity_, 0, (capacity - chunkCapacity_) * sizeof(Chunk));
        chunkCapacity_ = capacity;
    }
    return KR_RET_TRUE;
}

// offset := where a new extent of capacity bytes starts (a multiple of 8); dataEnd_ moves on.
KR_RET_STATUS KR_FileBinaryRec::newExtent(unsigned int capacity, long long& offset) {
    long long at = align8(dataEnd_);
    if (at > kMaxOffset - capacity)
        return KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_FileBinaryRec: file full");
    offset = at;
    dataEnd_ = at + capacity;
    return KR_RET_TRUE;
}

// The record's bytes, then zeros to the next multiple of 8, so that records added one after
// the other stay one run in the write buffer. The zeros stay inside the extent or in the gap
// before the next one, which every extent starts on a multiple of 8.
KR_RET_STATUS KR_FileBinaryRec::writeRecord(long long offset, const void* data, unsigned int size) {
    static const unsigned char kPad[8] = {0};
    KR_RET_STATUS status = setPos(offset);
    if (!KRI_FAILED(status) && size > 0) status = writeBytes(data, size);
    unsigned int pad = static_cast<unsigned int>(align8(size) - size);
    if (!KRI_FAILED(status) && pad > 0) status = writeBytes(kPad, pad);
    return status;
}

// A reserved entry whose extent holds size bytes, taken off its list; KR_BINREC_NONE when none.
// The list of size's own class is tried at its head only, larger classes always fit.
unsigned int KR_FileBinaryRec::takeReserved(unsigned int size) {
    unsigned int first = sizeClass(size);
    for (unsigned int c = first; c < kClasses; ++c) {
        unsigned int at = reservedHeads_[c];
        if (at == KR_BINREC_NONE || table_[at].capacity < size) continue;
        reservedHeads_[c] = table_[at].nextReserved;
        table_[at].nextReserved = KR_BINREC_NONE;
        return at;
    }
    return KR_BINREC_NONE;
}

// A reserved entry to its list: the pending list while its extent is reachable from the last
// commit, else the list of its size class.
void KR_FileBinaryRec::pushReserved(unsigned int index, bool reachable) {
    KR_FileBinrecTblEntry& entry = table_[index];
    if (reachable && entry.capacity > 0) {
        entry.state |= kPending;
        entry.nextReserved = pendingHead_;
        pendingHead_ = index;
        return;
    }
    unsigned int c = sizeClass(entry.capacity);
    entry.nextReserved = reservedHeads_[c];
    reservedHeads_[c] = index;
}

void KR_FileBinaryRec::touch(unsigned int index) {
    chunks_[index / kChunkEntries].dirty = 1;
}

void KR_FileBinaryRec::freeTable() {
    krInternal::freeBlock(table_);
    krInternal::freeBlock(chunks_);
    table_ = nullptr;
    chunks_ = nullptr;
    capacity_ = 0;
    chunkCapacity_ = 0;
}

// Back to the state of no file (the table's storage is kept for the next one).
void KR_FileBinaryRec::forget() {
    writable_ = isOpen() && getMode() != KR_FILE_MODE_READ;
    changed_ = 0;
    synced_ = 0;
    kind_ = 0;
    flags_ = 0;
    fixedSize_ = 0;
    count_ = 0;
    usedCount_ = 0;
    for (unsigned int& head : reservedHeads_)
        head = KR_BINREC_NONE;
    pendingHead_ = KR_BINREC_NONE;
    if (chunks_ != nullptr) memset(chunks_, 0, chunkCapacity_ * sizeof(Chunk));
    dataEnd_ = 0;
    sequence_ = 0;
    slot_ = 0;
    dirOffset_ = 0;
    dirCapacity_ = 0;
    dirCopy_ = 0;
}
