// kr_filebinrecdisk.cpp — the record file on disk: reading the last commit, checking extents,
// and committing by chunks and shadow header slots.
#include <string.h>

#include <algorithm>

#include "kr_alloc.h"
#include "kr_file.h"
#include "kr_filebinrecfmt.h"
#include "kr_fileshared.h"
#include "kr_report.h"

#define KRI_UNIT "src/kr_file"
// "this format, but damaged": the part and the reason.
#define KRI_CORRUPT(what, reason) \
    KRI_FAIL_MSG(KR_RET_ERR_FILE, "KR_FileBinaryRec: corrupt " what, "%s\n", (reason))

using namespace krRecFile;

// --- KR_FileBinaryRec ---

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

KR_RET_STATUS KR_FileBinaryRec::loadTable(const unsigned char* slot, long long fileSize) {
    if (loadLe<unsigned int>(slot + 8) != 1) return KRI_FAIL(KR_RET_ERR_NSUP);
    formatMinor_ = loadLe<unsigned int>(slot + 12);
    formatPatch_ = loadLe<unsigned int>(slot + 16);
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
