// kr_file.h — files: text, binary and binary record files, and the file-system functions.
// KR_File owns one open file with its own read/write buffer, so that reading a character at a
// time (with a position taken before each) costs no system call per character. KR_FileAscii
// prints and scans locale multibyte text, KR_FileBinary writes and reads little-endian values
// and texts for the persistable classes, KR_FileBinaryRec keeps numbered records behind a
// table. The free functions test, create and take apart paths, narrow and wide (W).
#ifndef KRCORE_KR_FILE_H
#define KRCORE_KR_FILE_H

#include <stddef.h>
#include <stdio.h>
#include <wchar.h>

#include "kr_base.h"
#include "kr_persist.h"
#include "kr_reporter.h"

class KR_Memory;
class KR_String;
class KR_StringW;

namespace krInternal {
class FileCursor;
}

// How a file is opened. READ: an existing file, reads only. WRITE: created or emptied, reads and
// writes. APPEND: created if missing, positioned at its end, reads and writes. UPDATE: an
// existing file, positioned at its start, reads and writes anywhere; nothing is emptied.
enum KR_FILE_MODE {
    KR_FILE_MODE_READ = 1,
    KR_FILE_MODE_WRITE = 2,
    KR_FILE_MODE_APPEND = 3,
    KR_FILE_MODE_UPDATE = 4
};

// KR_File — one open file (or none) with a buffer of its own over the C runtime's file.
// Every file is opened in binary mode: what is written reaches the disk byte for byte on every
// platform ("\n" stays "\n" on Windows too). Positions are byte offsets from the start.
// Failures of the file system (open, read, write, seek) report KR_RET_ERR_FILE under
// "src/kr_file" with a message naming the file; every operation on a file that is not open
// reports and returns KR_RET_ERR_FILE and changes nothing. Files cannot be copied: the copy
// constructor reports KR_RET_ERR_NSUP and leaves a file that is not open, and operator= reports
// KR_RET_ERR_NSUP and changes neither side. The destructor flushes and closes.
// KR_useUnicodeSystemFunctions set: narrow names are converted to wide text (locale) and opened
// through the wide platform call.
class KR_API KR_File : public KR_KorvaneClass {
public:
    KR_File();
    // Opens as open() does; a failed open is reported and leaves a file that is not open.
    KR_File(const char* name, KR_FILE_MODE mode);
    KR_File(const wchar_t* name, KR_FILE_MODE mode);
    KR_File(const KR_File& other);
    ~KR_File() override;
    KR_File& operator=(const KR_File& other);

    // Opens name, closing a file already open first. KR_RET_ERR_ARG for a null or empty name or
    // an unknown mode (an open file stays open); KR_RET_ERR_FILE (with the name in the report) when
    // the file system refuses, KR_RET_ERR_MEM when memory runs out (both leave no file open). Wide
    // names open the named file on every platform (on POSIX through the locale's multibyte
    // conversion).
    virtual KR_RET_STATUS open(const char* name, KR_FILE_MODE mode);
    virtual KR_RET_STATUS open(const wchar_t* name, KR_FILE_MODE mode);
    // Writes what is buffered and closes. KR_RET_FALSE (no report) when no file is open; a
    // failed final write reports KR_RET_ERR_FILE, and the file is closed all the same.
    virtual KR_RET_STATUS close();
    // Writes what is buffered to the file system.
    KR_RET_STATUS flush();

    unsigned char isOpen() const { return file_ != nullptr; }

    // KR_RET_TRUE when the next read would find no byte, KR_RET_FALSE when it finds one (may
    // fill the buffer); a failure status for a file that is not open or unreadable.
    KR_RET_STATUS isEof();
    // The position of the next byte read or written. Costs no system call.
    KR_RET_STATUS getPos(long long& pos);
    // Moves to pos (0 <= pos; beyond the end is allowed for writing). A position inside the
    // buffered bytes moves no data. Negative pos: KR_RET_ERR_ARG, position unchanged.
    KR_RET_STATUS setPos(long long pos);
    // The size in bytes, including what is buffered but not yet written.
    KR_RET_STATUS getSize(long long& size);

    // The name as given to open (a wide name converted to the locale's multibyte text), or
    // null when no file is open or the conversion failed. The file keeps ownership.
    const char* getFileName() const { return name_; }

    // The name as given to open (a narrow name converted to wide), or null.
    const wchar_t* getFileNameW() const { return nameW_; }

    KR_FILE_MODE getMode() const { return mode_; }

    unsigned char objIsEnabled() const { return initialised_; }

protected:
    // Reads up to size bytes; got is the number read, less than size only at the end of file.
    KR_RET_STATUS readBytes(void* data, size_t size, size_t& got);
    // Writes size bytes at the position (all of them, or a failure status).
    KR_RET_STATUS writeBytes(const void* data, size_t size);
    // Reads up to size bytes at pos, as readBytes does there; bytes that are not buffered are
    // read straight into data without filling the buffer (one system call for a small record).
    KR_RET_STATUS readAt(long long pos, void* data, size_t size, size_t& got);
    // Writes what is buffered and makes the file's contents durable (fsync / FlushFileBuffers).
    KR_RET_STATUS syncToDisk();

    // One byte: KR_RET_TRUE with it, KR_RET_FALSE at the end of the file.
    KR_RET_STATUS readByte(unsigned char& byte) {
        if (readMode_ && next_ < filled_) {
            byte = buffer_[next_++];
            return KR_RET_TRUE;
        }
        return readByteSlow(byte);
    }

    // Moves back count bytes; within the buffered bytes this moves no data. Moving before the
    // start: KR_RET_ERR_ARG, position unchanged.
    KR_RET_STATUS moveBack(unsigned int count);
    // Fails with KR_RET_ERR_FILE (reported) when no file is open.
    KR_RET_STATUS checkOpen(int line) const;

private:
    // The library's own scanners read the buffer inline (kr_filecursor.h).
    friend class krInternal::FileCursor;

    KR_RET_STATUS initDataMembers();
    KR_RET_STATUS cleanupDataMembers();
    template <class Char>
    KR_RET_STATUS openNamed(const Char* name, KR_FILE_MODE mode);
    KR_RET_STATUS openPlatform(const char* name, const wchar_t* nameW, KR_FILE_MODE mode);
    KR_RET_STATUS readByteSlow(unsigned char& byte);
    KR_RET_STATUS fill();
    KR_RET_STATUS flushWrites();
    KR_RET_STATUS dropBuffer();

    unsigned char initialised_;
    FILE* file_;  // null exactly when no file is open
    KR_FILE_MODE mode_;
    char* name_;  // heap copies of the name; both null when no file is open
    wchar_t* nameW_;
    unsigned char* buffer_;   // kBufferSize bytes while a file is open
    long long bufferPos_;     // file offset of buffer_[0]
    size_t filled_;           // read mode: valid bytes; write mode: bytes waiting to be written
    size_t next_;             // read mode: index of the next byte; filled_ in write mode
    unsigned char readMode_;  // the buffer holds bytes read (1) or bytes to write (0)
};

// KR_FileAscii — a text file of locale multibyte text (never raw UTF-16). printW and
// scanCharW convert between wide text and the current locale's multibyte encoding; the library
// never sets the locale itself. Line ends are written as "\n"; readLine accepts "\r\n" too.
class KR_API KR_FileAscii : public KR_File {
public:
    KR_FileAscii();
    KR_FileAscii(const char* name, KR_FILE_MODE mode);
    KR_FileAscii(const wchar_t* name, KR_FILE_MODE mode);
    KR_FileAscii(const KR_FileAscii& other);
    ~KR_FileAscii() override;
    KR_FileAscii& operator=(const KR_FileAscii& other);

    // printf-style output (C99 conversions on every platform: "%ls" for wide text, "%lld").
    // KR_RET_ERR_ARG for a null format or a format that does not format; KR_RET_ERR_FILE when
    // the write fails.
    KR_RET_STATUS print(const char* format, ...);
    // Wide printf-style output, written as the locale's multibyte text. A character that the
    // locale cannot encode: KR_RET_ERR_ARG, nothing written.
    KR_RET_STATUS printW(const wchar_t* format, ...);
    // One byte: KR_RET_TRUE with it, KR_RET_FALSE (c := 0) at the end of the file.
    KR_RET_STATUS scanChar(char& c);
    // One multibyte character of the locale. A byte that starts no valid sequence (or an
    // incomplete sequence at the end of the file) is taken as the character of the same value,
    // so foreign text reads without failing. Where wchar_t is 16-bit, a character beyond U+FFFF
    // reads as the runtime's conversion gives it. KR_RET_FALSE (c := 0) at the end of the file.
    KR_RET_STATUS scanCharW(wchar_t& c);
    // Moves the position back count bytes (not characters). Within the buffered bytes this
    // moves no data. Before the start of the file: KR_RET_ERR_ARG, position unchanged.
    KR_RET_STATUS seekBack(unsigned int count);
    // The next line without its "\n" (and a "\r" before it). KR_RET_TRUE with a line (possibly
    // empty), KR_RET_FALSE with an empty line at the end of the file; a failure empties line.
    KR_RET_STATUS readLine(KR_String& line);
    KR_RET_STATUS readLineW(KR_StringW& line);
};

// KR_FileBinary — little-endian values for the persistable classes, the same bytes on every
// platform. Each operation adds the bytes it moved to count (nothing on failure). Widths on
// disk: char types 1, short 2, int 4, long and long long 8 (a long read on a platform with
// 32-bit long that does not fit reports KR_RET_ERR_ARG), float 4, double 8.
// Texts are packed: a 32-bit count n (0 for a null text, otherwise the characters plus the
// terminating zero) and then n characters; wide texts count and store UTF-16LE code units, so
// characters beyond U+FFFF take two. The storage type must be KR_STORAGE_BINARY (else
// KR_RET_ERR_ARG). A read that meets the end of the file, or a text that is not terminated,
// reports KR_RET_ERR_FILE; test isEof() first to find the end.
class KR_API KR_FileBinary : public KR_File {
public:
    KR_FileBinary();
    KR_FileBinary(const char* name, KR_FILE_MODE mode);
    KR_FileBinary(const wchar_t* name, KR_FILE_MODE mode);
    KR_FileBinary(const KR_FileBinary& other);
    ~KR_FileBinary() override;
    KR_FileBinary& operator=(const KR_FileBinary& other);

    KR_RET_STATUS persistVal(char value, unsigned int& count);
    KR_RET_STATUS persistVal(signed char value, unsigned int& count);
    KR_RET_STATUS persistVal(unsigned char value, unsigned int& count);
    KR_RET_STATUS persistVal(short value, unsigned int& count);
    KR_RET_STATUS persistVal(unsigned short value, unsigned int& count);
    KR_RET_STATUS persistVal(int value, unsigned int& count);
    KR_RET_STATUS persistVal(unsigned int value, unsigned int& count);
    KR_RET_STATUS persistVal(long value, unsigned int& count);
    KR_RET_STATUS persistVal(unsigned long value, unsigned int& count);
    KR_RET_STATUS persistVal(long long value, unsigned int& count);
    KR_RET_STATUS persistVal(unsigned long long value, unsigned int& count);
    KR_RET_STATUS persistVal(float value, unsigned int& count);
    KR_RET_STATUS persistVal(double value, unsigned int& count);
    // A wide character beyond U+10FFFF (possible on POSIX) is written as U+FFFD.
    KR_RET_STATUS persistVal(const char* text, KR_STORAGE_TYPE storage, unsigned int& count);
    KR_RET_STATUS persistVal(const wchar_t* text, KR_STORAGE_TYPE storage, unsigned int& count);
    // size raw bytes, no count before them. Null data with a size: KR_RET_ERR_ARG.
    KR_RET_STATUS persistBlock(const void* data, unsigned int size, unsigned int& count);

    // The value is changed only on success.
    KR_RET_STATUS restoreVal(char& value, unsigned int& count);
    KR_RET_STATUS restoreVal(signed char& value, unsigned int& count);
    KR_RET_STATUS restoreVal(unsigned char& value, unsigned int& count);
    KR_RET_STATUS restoreVal(short& value, unsigned int& count);
    KR_RET_STATUS restoreVal(unsigned short& value, unsigned int& count);
    KR_RET_STATUS restoreVal(int& value, unsigned int& count);
    KR_RET_STATUS restoreVal(unsigned int& value, unsigned int& count);
    KR_RET_STATUS restoreVal(long& value, unsigned int& count);
    KR_RET_STATUS restoreVal(unsigned long& value, unsigned int& count);
    KR_RET_STATUS restoreVal(long long& value, unsigned int& count);
    KR_RET_STATUS restoreVal(unsigned long long& value, unsigned int& count);
    KR_RET_STATUS restoreVal(float& value, unsigned int& count);
    KR_RET_STATUS restoreVal(double& value, unsigned int& count);
    // text := a new heap text (C allocator; the caller frees it with free()), or null for a
    // packed null text. text is overwritten, never freed: pass a pointer that owns nothing.
    // On failure text is null. Surrogate pairs are joined where wchar_t is 32-bit.
    KR_RET_STATUS restoreVal(char*& text, KR_STORAGE_TYPE storage, unsigned int& count);
    KR_RET_STATUS restoreVal(wchar_t*& text, KR_STORAGE_TYPE storage, unsigned int& count);
    // Exactly size raw bytes into data (which must hold them).
    KR_RET_STATUS restoreBlock(void* data, unsigned int size, unsigned int& count);

private:
    template <class Unsigned>
    KR_RET_STATUS writeLe(Unsigned value, unsigned int& count);
    template <class Unsigned>
    KR_RET_STATUS readLe(Unsigned& value, unsigned int& count);
    template <class T>
    KR_RET_STATUS persistNumber(T value, unsigned int& count);
    template <class T>
    KR_RET_STATUS restoreNumber(T& value, unsigned int& count);
    template <class Char>
    KR_RET_STATUS persistText(const Char* text, KR_STORAGE_TYPE storage, unsigned int& count);
    template <class Char>
    KR_RET_STATUS restoreText(Char*& text, KR_STORAGE_TYPE storage, unsigned int& count);
};

// The state of a record-table entry: a reserved entry keeps its extent for reuse.
enum KR_BINREC_STATE { KR_BINREC_RESERVED = 0, KR_BINREC_USED = 1 };

// File flags: records carry a CRC-32 (CRC), every record has the file's fixed size (FIXED).
enum KR_BINREC_FLAG { KR_BINREC_FLAG_CRC = 0x2, KR_BINREC_FLAG_FIXED = 0x4 };

// Ends a list of reserved entries.
const unsigned int KR_BINREC_NONE = 0xFFFFFFFFu;

// KR_FileBinrecTblEntry — where one record lies and what it holds; 32 bytes on every target.
// Default construction zeroes everything but nextReserved (KR_BINREC_NONE).
struct KR_FileBinrecTblEntry {
    long long offset;           // first byte of the record's extent
    unsigned int size;          // bytes in use (0 for a reserved entry)
    unsigned int capacity;      // bytes of the extent, at least size
    unsigned int kind;          // the caller's tag for the record
    unsigned int state;         // KR_BINREC_STATE
    unsigned int nextReserved;  // next entry of its reserved list, or KR_BINREC_NONE
    unsigned int crc;           // CRC-32 of the size bytes (0 without checksums or when reserved)

    KR_FileBinrecTblEntry()
        : offset(0),
          size(0),
          capacity(0),
          kind(0),
          state(0),
          nextReserved(KR_BINREC_NONE),
          crc(0) {}

    bool operator==(const KR_FileBinrecTblEntry& other) const {
        return offset == other.offset && size == other.size && capacity == other.capacity &&
               kind == other.kind && state == other.state && nextReserved == other.nextReserved &&
               crc == other.crc;
    }
};

static_assert(sizeof(KR_FileBinrecTblEntry) == 32, "record-table entry must be 32 bytes");

// KR_FileBinaryRec — numbered records of bytes behind a record table, safe against crashes.
// A record keeps its number for its whole life, also when it grows and moves; a deleted record
// leaves a reserved entry whose extent (and number) a later recAppend reuses.
//
// Guarantee: changes become part of the file only at a commit (recFlush, and close). After the
// process is killed at any point, or after power is lost once a commit with toDisk has returned,
// open gives exactly the state of the last completed commit. Nothing a commit can reach is ever
// written again before the next commit: a rewrite goes to other space (copy on write), and space
// freed since the last commit is reused only after the next one. A commit writes the changed
// records, the changed 512-entry chunks of the table (each with its CRC-32, into the copy the
// last commit does not use), a directory of the chunks, then the header slot that the last commit
// does not use, with a higher sequence number; with toDisk the data is forced to the device
// before and after that slot. open takes the valid slot with the higher sequence number.
// A write or commit that fails drops every change since the last commit: the object shows the
// committed state again (or is closed, when that cannot be read back), and the failure is
// answered. Space is never given back to the file system (no compaction).
//
// Modes: READ reads an existing file; UPDATE also changes it; APPEND does the same and creates a
// missing file; WRITE creates or empties it (variable size, checksums on, kind 0). create picks
// the kind, a fixed record size (0: variable) and the checksums. A file that is not this format
// (also the older "KRBR" layout) answers KR_RET_FALSE without a report; a damaged one
// KR_RET_ERR_FILE with a report; a newer major version KR_RET_ERR_NSUP. Every count and offset
// read is checked against the bytes present before anything is allocated. A record whose
// checksum fails answers KR_RET_ERR_FILE and leaves the others readable. Records hold at most
// 0x7FFFFFFF bytes and a file fewer than 2^31 entries. Use only the record operations: the
// value writers inherited from KR_FileBinary would bypass the table.
//
//   file.create("a.rec", 0, 0, 1); file.recAppend(ten, n);   // n == 0
//   file.recAppend(twenty, n); file.recDelete(0);            // n == 1; entry 0 reserved
//   file.recAppend(eight, n); file.recFlush(1);              // n == 0 again: the space is
//                                                             // fresh, so it is reused at once
class KR_API KR_FileBinaryRec : public KR_FileBinary {
public:
    KR_FileBinaryRec();
    KR_FileBinaryRec(const char* name, KR_FILE_MODE mode);
    KR_FileBinaryRec(const wchar_t* name, KR_FILE_MODE mode);
    KR_FileBinaryRec(const KR_FileBinaryRec& other);
    ~KR_FileBinaryRec() override;
    KR_FileBinaryRec& operator=(const KR_FileBinaryRec& other);

    KR_RET_STATUS open(const char* name, KR_FILE_MODE mode) override;
    KR_RET_STATUS open(const wchar_t* name, KR_FILE_MODE mode) override;
    // Creates or empties name with the file's kind tag, fixed record size (0: any size) and
    // checksums (withCrc 1) or none.
    KR_RET_STATUS create(const char* name,
                         unsigned int kind,
                         unsigned int fixedSize,
                         unsigned char withCrc);
    KR_RET_STATUS create(const wchar_t* name,
                         unsigned int kind,
                         unsigned int fixedSize,
                         unsigned char withCrc);
    // Commits what changed, then closes; a failed commit is answered, and the file is closed
    // with its last committed state.
    KR_RET_STATUS close() override;

    // Entries in the table (used and reserved); numbers run from 0 to recNum() - 1.
    unsigned int recNum() const { return count_; }

    unsigned int recUsed() const { return usedCount_; }

    unsigned int recKind() const { return kind_; }

    unsigned int recFixedSize() const { return fixedSize_; }

    unsigned int recFlags() const { return flags_; }

    // Entries the table holds room for (at least recNum()); 0 when the file is not open.
    unsigned int recTableSize() const { return isOpen() ? capacity_ : 0; }

    // The format version in the file's header (1.0.0 for a file made here): KR_RET_TRUE; 0.0.0
    // and KR_RET_FALSE when the file is not open. A file of another major version does not open.
    KR_RET_STATUS recFormatVersion(KR_Version& version) const;

    // Number not below recNum(): KR_RET_ERR_ARG with the index report. A reserved entry is
    // copied too, with the answer KR_RET_FALSE.
    KR_RET_STATUS recGetEntry(unsigned int index, KR_FileBinrecTblEntry& entry);
    // KR_RET_TRUE when index names a used record, KR_RET_FALSE otherwise (no report).
    KR_RET_STATUS recHas(unsigned int index);
    // The first used record, and the next after index: KR_RET_FALSE when there is none.
    KR_RET_STATUS recFirst(unsigned int& index);
    KR_RET_STATUS recNext(unsigned int& index);
    // record := the record's bytes, checksum verified. KR_RET_FALSE (no report) for a reserved
    // entry; KR_RET_ERR_FILE with record emptied when the checksum fails.
    KR_RET_STATUS recRead(unsigned int index, KR_Memory& record);
    // Stores a new record and index := its number: a reserved entry whose extent holds it, or a
    // new entry at the end (its extent holds at least capacity bytes). A fixed-size file
    // refuses another size with KR_RET_ERR_ARG.
    KR_RET_STATUS recAppend(KR_Memory& record, unsigned int& index);
    KR_RET_STATUS recAppend(const void* data,
                            unsigned int size,
                            unsigned int& index,
                            unsigned int kind = 0,
                            unsigned int capacity = 0);
    // Replaces a used record's bytes; the number stays. KR_RET_FALSE for a reserved entry.
    KR_RET_STATUS recWrite(unsigned int index, KR_Memory& record);
    KR_RET_STATUS recWrite(unsigned int index, const void* data, unsigned int size);
    // The record's entry becomes reserved; KR_RET_FALSE when it was reserved already.
    KR_RET_STATUS recDelete(unsigned int index);
    // Appends count reserved entries with zero-filled extents of capacity bytes; the last one
    // is reused first.
    KR_RET_STATUS recReserve(unsigned int count, unsigned int capacity);
    // Commits the changes (see the guarantee above); toDisk 1 forces them to the device.
    KR_RET_STATUS recFlush(unsigned char toDisk = 0);

    // An object as a record: getPackedSize, pack, recAppend / recWrite; recRead, unpack, which
    // must use exactly the record's bytes (else KR_RET_ERR_FILE).
    KR_RET_STATUS recAppendObj(KR_Persistable& object,
                               KR_Version& version,
                               unsigned int& index,
                               unsigned int kind = 0);
    KR_RET_STATUS recWriteObj(unsigned int index, KR_Persistable& object, KR_Version& version);
    KR_RET_STATUS recReadObj(unsigned int index, KR_Persistable& object, KR_Version& version);

    // Checks the table (extents inside the data area and apart, sizes, reserved lists, used
    // count) and every record's checksum. Each problem is a warning under "KR_FileBinaryRec
    // consistency" (the first 100 reported, all counted in problems). KR_RET_TRUE: none;
    // KR_RET_FALSE: some; KR_RET_ERR_FILE: a read failed.
    KR_RET_STATUS recCheck(unsigned int& problems);

private:
    struct Chunk;

    KR_RET_STATUS initDataMembers();
    KR_RET_STATUS cleanupDataMembers();
    template <class Char>
    KR_RET_STATUS openRec(const Char* name,
                          KR_FILE_MODE mode,
                          unsigned int kind,
                          unsigned int fixedSize,
                          unsigned char withCrc);
    KR_RET_STATUS load();
    KR_RET_STATUS loadTable(const unsigned char* slot, long long fileSize);
    KR_RET_STATUS checkExtents(bool report, unsigned int& problems);
    KR_RET_STATUS startEmpty(unsigned int kind, unsigned int fixedSize, unsigned char withCrc);
    KR_RET_STATUS commit(unsigned char toDisk);
    KR_RET_STATUS writeHeader(unsigned int slot, unsigned long long sequence, unsigned int dirCrc);
    KR_RET_STATUS rollBack(KR_RET_STATUS failure);
    KR_RET_STATUS checkIndex(unsigned int index, int line);
    KR_RET_STATUS checkChange(unsigned int size, int line);
    KR_RET_STATUS grow(unsigned int entries);
    KR_RET_STATUS newExtent(unsigned int capacity, long long& offset);
    KR_RET_STATUS writeRecord(long long offset, const void* data, unsigned int size);
    unsigned int takeReserved(unsigned int size);
    void pushReserved(unsigned int index, bool reachable);
    void touch(unsigned int index);
    void freeTable();
    void forget();

    unsigned char initialised_;
    unsigned char writable_;
    unsigned char changed_;  // something changed since the last commit
    unsigned char synced_;   // the last commit reached the device
    unsigned int kind_;
    unsigned int flags_;
    unsigned int fixedSize_;
    unsigned int formatMinor_;  // the header's format version is 1.formatMinor_.formatPatch_
    unsigned int formatPatch_;
    KR_FileBinrecTblEntry* table_;  // capacity_ entries (C allocator), count_ in use
    unsigned int count_;
    unsigned int capacity_;
    unsigned int usedCount_;
    unsigned int reservedHeads_[33];  // reserved lists by the bit length of the capacity
    unsigned int pendingHead_;        // reserved since the last commit, still reachable from it
    Chunk* chunks_;                   // one per 512 entries; chunkCapacity_ of them allocated
    unsigned int chunkCapacity_;
    long long dataEnd_;  // end of everything allocated: where the next extent goes
    unsigned long long sequence_;
    unsigned int slot_;  // the header slot of the last commit
    long long dirOffset_;
    unsigned int dirCapacity_;  // chunks that each copy of the directory region holds
    unsigned int dirCopy_;      // the copy of the region that the last commit uses
};

// --- File-system functions ---
// Paths: "/" separates on every platform and "\\" as well (so that Windows paths take apart
// the same way everywhere); drive letters get no special treatment. The W twins take and give
// wide text. Null arguments: KR_RET_ERR_ARG (reported). When memory runs out a function reports
// and answers KR_RET_ERR_MEM and leaves its output empty or as it was.

// 1 when path names an existing file or directory; 0 otherwise (also for null, and when memory
// ran out, which is reported: KR_getStatusCode() tells it from a missing path).
extern "C" KR_API unsigned char KR_filePathExists(const char* path);
extern "C" KR_API unsigned char KR_filePathExistsW(const wchar_t* path);
// 1 when path names an existing directory.
extern "C" KR_API unsigned char KR_fileIsDir(const char* path);
extern "C" KR_API unsigned char KR_fileIsDirW(const wchar_t* path);
// Creates the directory path and every missing parent. KR_RET_TRUE when it was created,
// KR_RET_FALSE when it existed already as a directory, KR_RET_ERR_FILE when something in the
// way is not a directory or the file system refuses (directories made before stay).
KR_API KR_RET_STATUS KR_fileMakeDir(const char* path);
KR_API KR_RET_STATUS KR_fileMakeDirW(const wchar_t* path);
// Removes a file or an empty directory. KR_RET_FALSE when path does not exist.
KR_API KR_RET_STATUS KR_fileRemove(const char* path);
KR_API KR_RET_STATUS KR_fileRemoveW(const wchar_t* path);
// dir := the directory for temporary files (TMPDIR, TMP or TEMP, else the platform's default),
// without a trailing separator.
KR_API KR_RET_STATUS KR_fileGetTempDir(KR_String& dir);
KR_API KR_RET_STATUS KR_fileGetTempDirW(KR_StringW& dir);
// name := a new, empty file "<dir>/<prefix><unique>" that did not exist before this call (the
// file is created so that no other caller gets the same name; the caller removes it). A null
// dir takes KR_fileGetTempDir, a null prefix "kr". KR_RET_ERR_FILE when no file can be made.
KR_API KR_RET_STATUS KR_fileGetTempName(KR_String& name, const char* dir, const char* prefix);
KR_API KR_RET_STATUS KR_fileGetTempNameW(KR_StringW& name,
                                         const wchar_t* dir,
                                         const wchar_t* prefix);
// As KR_fileGetTempName, but makes a new empty directory.
KR_API KR_RET_STATUS KR_fileMakeTempDir(KR_String& path, const char* dir, const char* prefix);
KR_API KR_RET_STATUS KR_fileMakeTempDirW(KR_StringW& path,
                                         const wchar_t* dir,
                                         const wchar_t* prefix);
// Looks for fileName in each directory listed in the environment variable envVar (separated by
// ";" on Windows and ":" on POSIX; empty entries are skipped) and sets path to the first
// "<directory>/<fileName>" that names an existing file. KR_RET_FALSE with an empty path when none
// exists or the variable is not set.
KR_API KR_RET_STATUS KR_fileFindInEnvPath(KR_String& path,
                                          const char* fileName,
                                          const char* envVar);
KR_API KR_RET_STATUS KR_fileFindInEnvPathW(KR_StringW& path,
                                           const wchar_t* fileName,
                                           const wchar_t* envVar);
// Path components. Each sets its output and answers KR_RET_TRUE, or KR_RET_FALSE with an empty
// output when the path has no such component.
// Directory: everything before the last separator, without it ("a/b/c.txt" gives "a/b"); a root
// keeps its separator ("/c.txt" gives "/").
KR_API KR_RET_STATUS KR_fileGetDir(KR_String& dir, const char* path);
KR_API KR_RET_STATUS KR_fileGetDirW(KR_StringW& dir, const wchar_t* path);
// File name: everything after the last separator ("a/b/c.txt" gives "c.txt").
KR_API KR_RET_STATUS KR_fileGetName(KR_String& name, const char* path);
KR_API KR_RET_STATUS KR_fileGetNameW(KR_StringW& name, const wchar_t* path);
// Base name: the file name without its extension ("a/b/c.tar.gz" gives "c.tar").
KR_API KR_RET_STATUS KR_fileGetBaseName(KR_String& name, const char* path);
KR_API KR_RET_STATUS KR_fileGetBaseNameW(KR_StringW& name, const wchar_t* path);
// Extension: what follows the last "." of the file name, without the dot ("c.tar.gz" gives
// "gz"). A name that only starts with a dot (".profile") or ends in one has none.
KR_API KR_RET_STATUS KR_fileGetExt(KR_String& ext, const char* path);
KR_API KR_RET_STATUS KR_fileGetExtW(KR_StringW& ext, const wchar_t* path);

#endif  // KRCORE_KR_FILE_H
