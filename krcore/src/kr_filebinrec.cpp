// kr_filebinrec.cpp — the record file: records behind a chunked table, committed by shadow slots.
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "kr_alloc.h"
#include "kr_file.h"
#include "kr_filebinrecfmt.h"
#include "kr_fileshared.h"
#include "kr_mem.h"
#include "kr_report.h"
#include "kr_version.h"

#define KRI_UNIT "src/kr_file"

using namespace krRecFile;

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
    // Writes still buffered go out first: their failure is a failed write, which drops every
    // change since the last commit, as it does where the write was asked for.
    status = flush();
    if (KRI_FAILED(status)) return rollBack(status);
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
        // extent goes to a reserved entry (a swapped one, or a new one at the end). A record
        // that outgrows space it was given since the last commit gets room to grow further; a
        // committed one gets what it needs, since its next rewrite after a commit moves it
        // again anyway.
        unsigned int wanted =
                !fresh || size <= capacity
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

namespace {

// object's binary packing into packed; used is its length.
KR_RET_STATUS packObject(KR_Persistable& object,
                         KR_Version& version,
                         KR_Memory& packed,
                         unsigned int& used) {
    KR_RET_STATUS status = packed.memGet(object.getPackedSize(version, KR_STORAGE_BINARY));
    if (KRI_FAILED(status)) return status;
    return object.pack(version, static_cast<char*>(packed.memPtr()), used, KR_STORAGE_BINARY);
}

}  // namespace

KR_RET_STATUS KR_FileBinaryRec::recAppendObj(KR_Persistable& object,
                                             KR_Version& version,
                                             unsigned int& index,
                                             unsigned int kind) {
    KR_setUserError(0);
    KR_Memory packed;
    unsigned int used = 0;
    KR_RET_STATUS status = packObject(object, version, packed, used);
    if (KRI_FAILED(status)) return status;
    return recAppend(packed.memPtr(), used, index, kind, 0);
}

KR_RET_STATUS KR_FileBinaryRec::recWriteObj(unsigned int index,
                                            KR_Persistable& object,
                                            KR_Version& version) {
    KR_setUserError(0);
    KR_Memory packed;
    unsigned int used = 0;
    KR_RET_STATUS status = packObject(object, version, packed, used);
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
    status = flush();  // as in recRead
    if (KRI_FAILED(status)) return rollBack(status);
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
unsigned int KR_FileBinaryRec::takeReserved(unsigned int size) {
    unsigned int first = sizeClass(size);
    // In size's own class the closest fit among the first few entries; above it any entry fits.
    unsigned int best = KR_BINREC_NONE;
    unsigned int bestPrev = KR_BINREC_NONE;
    unsigned int prev = KR_BINREC_NONE;
    unsigned int looked = 0;
    for (unsigned int at = reservedHeads_[first]; at != KR_BINREC_NONE && looked < kFitScan;
         prev = at, at = table_[at].nextReserved, ++looked) {
        unsigned int capacity = table_[at].capacity;
        if (capacity >= size && (best == KR_BINREC_NONE || capacity < table_[best].capacity)) {
            best = at;
            bestPrev = prev;
            if (capacity == size) break;
        }
    }
    if (best != KR_BINREC_NONE) {
        unsigned int next = table_[best].nextReserved;
        if (bestPrev == KR_BINREC_NONE) {
            reservedHeads_[first] = next;
        } else {
            table_[bestPrev].nextReserved = next;
        }
        table_[best].nextReserved = KR_BINREC_NONE;
        return best;
    }
    for (unsigned int c = first + 1; c < kClasses; ++c) {
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
    formatMinor_ = 0;
    formatPatch_ = 0;
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

KR_RET_STATUS KR_FileBinaryRec::recFormatVersion(KR_Version& version) const {
    KR_setUserError(0);
    if (!isOpen()) {
        version = KR_Version(0, 0, 0);
        return KR_RET_FALSE;
    }
    version = KR_Version(1, formatMinor_, formatPatch_);
    return KR_RET_TRUE;
}
