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

// KR_FileBinrecTblEntry — where one record of a binary record file lies.
struct KR_FileBinrecTblEntry {
    unsigned long long offset;  // byte offset of the record's first byte in the file
    unsigned int size;          // record size in bytes
    unsigned int flags;         // reserved, 0
};

// KR_FileBinaryRec — numbered records of any size, read into and written from KR_Memory.
// The format, little-endian throughout:
//   header, 32 bytes: "KRBR", u32 format 1, u32 record count, u32 0, u64 table offset, u64 0;
//   the record bodies, each where its table entry says;
//   the record table at the table offset: per record u64 offset, u32 size, u32 flags.
// The table is kept in memory and written back (behind the last record body) by recFlush and
// close; a file that was not closed or flushed after a change keeps its previous table. A
// record rewritten with another size gets a new body at the end (the old bytes stay unused).
// Modes: READ reads an existing file; WRITE starts an empty file; UPDATE opens an existing file
// for reading and writing; APPEND does the same and creates the file when it is missing.
// A file whose header or table is damaged fails to open with KR_RET_ERR_FILE. Use only the
// record operations on it: the value writers inherited from KR_FileBinary would bypass the table.
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
    // Writes table and header when they changed, then closes.
    KR_RET_STATUS close() override;

    // Number of records; 0 when no file is open.
    unsigned int recNum() const { return numRecs_; }

    // Index not below recNum(): KR_RET_ERR_ARG with the index report.
    KR_RET_STATUS recGetEntry(unsigned int index, KR_FileBinrecTblEntry& entry);
    // record := the record's bytes (its previous block is replaced).
    KR_RET_STATUS recRead(unsigned int index, KR_Memory& record);
    // Adds record's bytes as the last record; index := its number.
    KR_RET_STATUS recAppend(KR_Memory& record, unsigned int& index);
    // Replaces record index (in place when the size is unchanged).
    KR_RET_STATUS recWrite(unsigned int index, KR_Memory& record);
    // Writes the table and the header now.
    KR_RET_STATUS recFlush();

private:
    KR_RET_STATUS initDataMembers();
    KR_RET_STATUS cleanupDataMembers();
    template <class Char>
    KR_RET_STATUS openRec(const Char* name, KR_FILE_MODE mode);
    KR_RET_STATUS loadTable();
    KR_RET_STATUS startEmpty();
    KR_RET_STATUS reserve(unsigned int count);
    KR_RET_STATUS writeBody(KR_Memory& record, KR_FileBinrecTblEntry& entry);

    unsigned char initialised_;
    KR_FileBinrecTblEntry* table_;  // capacity_ entries (C allocator); numRecs_ in use
    unsigned int numRecs_;
    unsigned int capacity_;
    unsigned long long dataEnd_;  // first byte after the last record body: the table goes here
    unsigned char changed_;       // table or header differ from the file
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
