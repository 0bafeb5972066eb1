// kr_filebinrec.cpp — the record file: records behind a header and a record table.
#include <string.h>

#include "kr_alloc.h"
#include "kr_endian.h"
#include "kr_file.h"
#include "kr_fileshared.h"
#include "kr_mem.h"
#include "kr_report.h"

#define KRI_UNIT "src/kr_file"

namespace {

using krInternal::loadLe;
using krInternal::storeLe;

const unsigned int kRecHeaderSize = 32;
const unsigned int kRecEntrySize = 16;
const unsigned int kRecFormat = 1;
const unsigned char kRecMagic[4] = {'K', 'R', 'B', 'R'};

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
    return openRec(name, mode);
}

KR_RET_STATUS KR_FileBinaryRec::open(const wchar_t* name, KR_FILE_MODE mode) {
    return openRec(name, mode);
}

KR_RET_STATUS KR_FileBinaryRec::close() {
    KR_setUserError(0);
    if (!isOpen()) return KR_RET_FALSE;
    KR_RET_STATUS status = changed_ ? recFlush() : KR_RET_TRUE;
    KR_RET_STATUS closed = KR_File::close();
    numRecs_ = 0;
    dataEnd_ = 0;
    changed_ = 0;
    if (KRI_FAILED(status)) return status;
    return closed;
}

KR_RET_STATUS KR_FileBinaryRec::recGetEntry(unsigned int index, KR_FileBinrecTblEntry& entry) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    if (index >= numRecs_) {
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_FileBinaryRec: record", KR_msg(0, 3),
                            static_cast<int>(index), 0, static_cast<int>(numRecs_) - 1);
    }
    entry = table_[index];
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileBinaryRec::recRead(unsigned int index, KR_Memory& record) {
    KR_FileBinrecTblEntry entry = {0, 0, 0};
    KR_RET_STATUS status = recGetEntry(index, entry);
    if (KRI_FAILED(status)) return status;
    status = setPos(static_cast<long long>(entry.offset));
    if (KRI_FAILED(status)) return status;
    status = record.memGet(entry.size);
    if (KRI_FAILED(status)) return status;
    unsigned int moved = 0;
    return restoreBlock(record.memPtr(), entry.size, moved);
}

KR_RET_STATUS KR_FileBinaryRec::recAppend(KR_Memory& record, unsigned int& index) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    if (!record.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_OBJ);
    status = reserve(numRecs_ + 1);
    if (KRI_FAILED(status)) return status;
    KR_FileBinrecTblEntry entry = {0, 0, 0};
    status = writeBody(record, entry);
    if (KRI_FAILED(status)) return status;
    table_[numRecs_] = entry;
    index = numRecs_++;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileBinaryRec::recWrite(unsigned int index, KR_Memory& record) {
    KR_FileBinrecTblEntry entry = {0, 0, 0};
    KR_RET_STATUS status = recGetEntry(index, entry);
    if (KRI_FAILED(status)) return status;
    if (!record.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_OBJ);
    if (record.memSize() != entry.size || getMode() == KR_FILE_MODE_READ) {
        status = writeBody(record, entry);
        if (KRI_FAILED(status)) return status;
        table_[index] = entry;
        return KR_RET_TRUE;
    }
    status = setPos(static_cast<long long>(entry.offset));
    if (KRI_FAILED(status)) return status;
    unsigned int moved = 0;
    return persistBlock(record.memPtr(), record.memSize(), moved);
}

KR_RET_STATUS KR_FileBinaryRec::recFlush() {
    KR_setUserError(0);
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    // The table goes behind the last body first and the header that points at it last, so a
    // failure in between leaves the previous table valid.
    status = setPos(static_cast<long long>(dataEnd_));
    unsigned int moved = 0;
    for (unsigned int i = 0; i < numRecs_ && !KRI_FAILED(status); ++i) {
        unsigned char bytes[kRecEntrySize];
        storeLe(bytes, table_[i].offset);
        storeLe(bytes + 8, table_[i].size);
        storeLe(bytes + 12, table_[i].flags);
        status = persistBlock(bytes, kRecEntrySize, moved);
    }
    if (!KRI_FAILED(status)) status = flush();
    if (!KRI_FAILED(status)) status = setPos(0);
    if (!KRI_FAILED(status)) {
        unsigned char header[kRecHeaderSize] = {0};
        memcpy(header, kRecMagic, sizeof kRecMagic);
        storeLe(header + 4, kRecFormat);
        storeLe(header + 8, numRecs_);
        storeLe(header + 16, dataEnd_);
        status = persistBlock(header, kRecHeaderSize, moved);
    }
    if (!KRI_FAILED(status)) status = flush();
    if (KRI_FAILED(status)) return status;
    changed_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileBinaryRec::initDataMembers() {
    initialised_ = 1;
    table_ = nullptr;
    numRecs_ = 0;
    capacity_ = 0;
    dataEnd_ = 0;
    changed_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileBinaryRec::cleanupDataMembers() {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    close();
    krInternal::freeBlock(table_);
    table_ = nullptr;
    capacity_ = 0;
    initialised_ = 0;
    return KR_RET_TRUE;
}

template <class Char>
KR_RET_STATUS KR_FileBinaryRec::openRec(const Char* name, KR_FILE_MODE mode) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    close();
    KR_RET_STATUS status = KR_FileBinary::open(name, mode);
    if (KRI_FAILED(status)) return status;
    long long size = 0;
    status = getSize(size);
    if (!KRI_FAILED(status)) {
        bool empty = mode == KR_FILE_MODE_WRITE || (mode == KR_FILE_MODE_APPEND && size == 0);
        status = empty ? startEmpty() : loadTable();
    }
    if (KRI_FAILED(status)) {
        changed_ = 0;
        KR_File::close();
        numRecs_ = 0;
        dataEnd_ = 0;
    }
    return status;
}

KR_RET_STATUS KR_FileBinaryRec::loadTable() {
    unsigned char header[kRecHeaderSize];
    unsigned int moved = 0;
    long long size = 0;
    KR_RET_STATUS status = getSize(size);
    if (KRI_FAILED(status)) return status;
    if (size < kRecHeaderSize) {
        return KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_FileBinaryRec: not a record file");
    }
    status = setPos(0);
    if (!KRI_FAILED(status)) status = restoreBlock(header, kRecHeaderSize, moved);
    if (KRI_FAILED(status)) return status;
    if (memcmp(header, kRecMagic, sizeof kRecMagic) != 0) {
        return KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_FileBinaryRec: not a record file");
    }
    if (loadLe<unsigned int>(header + 4) != kRecFormat) {
        return KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_FileBinaryRec: unknown format");
    }
    unsigned int count = loadLe<unsigned int>(header + 8);
    unsigned long long tableAt = loadLe<unsigned long long>(header + 16);
    unsigned long long tableEnd = tableAt + static_cast<unsigned long long>(count) * kRecEntrySize;
    if (tableAt < kRecHeaderSize || tableAt > static_cast<unsigned long long>(size) ||
        tableEnd > static_cast<unsigned long long>(size)) {
        return KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_FileBinaryRec: damaged table");
    }
    status = reserve(count);
    if (!KRI_FAILED(status)) status = setPos(static_cast<long long>(tableAt));
    if (KRI_FAILED(status)) return status;
    for (unsigned int i = 0; i < count; ++i) {
        unsigned char bytes[kRecEntrySize];
        status = restoreBlock(bytes, kRecEntrySize, moved);
        if (KRI_FAILED(status)) return status;
        KR_FileBinrecTblEntry& entry = table_[i];
        entry.offset = loadLe<unsigned long long>(bytes);
        entry.size = loadLe<unsigned int>(bytes + 8);
        entry.flags = loadLe<unsigned int>(bytes + 12);
        if (entry.offset < kRecHeaderSize || entry.offset + entry.size > tableAt) {
            return KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_FileBinaryRec: damaged table");
        }
    }
    numRecs_ = count;
    // New bodies go behind the old table, which stays valid until the next flush replaces it.
    dataEnd_ = tableEnd;
    changed_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileBinaryRec::startEmpty() {
    numRecs_ = 0;
    dataEnd_ = kRecHeaderSize;
    changed_ = 1;
    return recFlush();
}

KR_RET_STATUS KR_FileBinaryRec::reserve(unsigned int count) {
    if (count <= capacity_) return KR_RET_TRUE;
    unsigned int capacity = capacity_ < 16 ? 16 : capacity_;
    while (capacity < count)
        capacity = capacity > 0x7FFFFFFFu ? count : capacity * 2;
    void* grown = krInternal::reallocBlock(
            table_, static_cast<size_t>(capacity) * sizeof(KR_FileBinrecTblEntry));
    if (grown == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    table_ = static_cast<KR_FileBinrecTblEntry*>(grown);
    capacity_ = capacity;
    return KR_RET_TRUE;
}

// Writes the record's bytes behind the last body and describes them in entry.
KR_RET_STATUS KR_FileBinaryRec::writeBody(KR_Memory& record, KR_FileBinrecTblEntry& entry) {
    if (getMode() == KR_FILE_MODE_READ) {
        return KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_File: opened for reading only");
    }
    KR_RET_STATUS status = setPos(static_cast<long long>(dataEnd_));
    unsigned int moved = 0;
    if (!KRI_FAILED(status)) status = persistBlock(record.memPtr(), record.memSize(), moved);
    if (KRI_FAILED(status)) return status;
    entry.offset = dataEnd_;
    entry.size = record.memSize();
    entry.flags = 0;
    dataEnd_ += record.memSize();
    changed_ = 1;
    return KR_RET_TRUE;
}
