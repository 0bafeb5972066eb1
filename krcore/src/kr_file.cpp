// kr_file.cpp — text, binary and binary record files, and the file-system functions.
#include "kr_file.h"

#include <errno.h>
#include <limits.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <string>
#include <type_traits>

#include "kr_alloc.h"
#include "kr_endian.h"
#include "kr_fileshared.h"
#include "kr_locale.h"
#include "kr_mem.h"
#include "kr_platform.h"
#include "kr_str.h"
#include "kr_textbuffer.h"
#include "kr_utf16.h"

#define KRI_UNIT "src/kr_file"

namespace {

using krInternal::loadLe;
using krInternal::storeLe;
using krInternal::takeText;

const size_t kBufferSize = 64 * 1024;
const unsigned int kMaxTempAttempts = 100;

// --- width conversion of names (locale) ---

// out := text converted to the other width on the heap, or null when it does not convert (not
// an error for a name: the name is then known in one width only). KR_RET_ERR_MEM when memory
// runs out.
template <class From, class To>
KR_RET_STATUS convertName(const From* text, To*& out) {
    out = nullptr;
    size_t length = krInternal::localeLength<To>(text);
    if (length == krInternal::kNoLocaleForm) return KR_RET_TRUE;
    out = krInternal::localeCopy<To>(text, length);
    if (out == nullptr) return KR_RET_ERR_MEM;
    return KR_RET_TRUE;
}

// narrow and wide := heap copies of name in both widths (the one not given is null when the
// name does not convert). False when memory runs out; whatever was made is left to free.
bool copyName(const char* name, char*& narrow, wchar_t*& wide) {
    narrow = krInternal::dupText(name);
    return narrow != nullptr && convertName(name, wide) != KR_RET_ERR_MEM;
}

bool copyName(const wchar_t* name, char*& narrow, wchar_t*& wide) {
    wide = krInternal::dupTextW(name);
    return wide != nullptr && convertName(name, narrow) != KR_RET_ERR_MEM;
}

// The unsigned type of a value's width on disk: long takes 8 bytes on every platform.
template <class T>
using DiskBits = std::conditional_t<
        sizeof(T) == 1,
        unsigned char,
        std::conditional_t<sizeof(T) == 2,
                           unsigned short,
                           std::conditional_t<sizeof(T) == 4 && !std::is_same<T, long>::value &&
                                                      !std::is_same<T, unsigned long>::value,
                                              unsigned int,
                                              unsigned long long>>>;

static_assert(sizeof(float) == 4 && sizeof(double) == 8, "float and double must be IEEE");

// --- string objects of either width ---

// out := count characters at text.
template <class Str, class Char>
KR_RET_STATUS setText(Str& out, const Char* text, size_t count) {
    krInternal::TextBuffer<Char> buffer;
    if (!buffer.append(text, count)) return KRI_FAIL(KR_RET_ERR_MEM);
    return takeText(out, buffer);
}

// --- file-system primitives of either width ---

int pathKindOf(const char* path) {
    return krPlatform::pathKind(path);
}

int pathKindOf(const wchar_t* path) {
    return krPlatform::pathKindW(path);
}

int makeDirOf(const char* path) {
    return krPlatform::makeDir(path);
}

int makeDirOf(const wchar_t* path) {
    return krPlatform::makeDirW(path);
}

int createNewFileOf(const char* path) {
    return krPlatform::createNewFile(path);
}

int createNewFileOf(const wchar_t* path) {
    return krPlatform::createNewFileW(path);
}

int removePathOf(const char* path) {
    return krPlatform::removePath(path);
}

int removePathOf(const wchar_t* path) {
    return krPlatform::removePathW(path);
}

// An environment variable as a heap text (free()), or null when it is not set.
char* getEnvOf(const char* name) {
    return krInternal::dupText(getenv(name));
}

wchar_t* getEnvOf(const wchar_t* name) {
    return krPlatform::getEnvW(name);
}

bool defaultTempDirOf(char* buffer, size_t size) {
    return krPlatform::defaultTempDir(buffer, size);
}

bool defaultTempDirOf(wchar_t* buffer, size_t size) {
    return krPlatform::defaultTempDirW(buffer, size);
}

template <class Char>
bool isSeparator(Char c) {
    return c == Char('/') || c == Char('\\');
}

template <class Char>
size_t textLength(const Char* text) {
    size_t n = 0;
    while (text[n] != Char(0))
        ++n;
    return n;
}

// Index one past the last separator of path (0 when it has none).
template <class Char>
size_t nameStart(const Char* path, size_t length) {
    size_t start = length;
    while (start > 0 && !isSeparator(path[start - 1]))
        --start;
    return start;
}

// Index of the dot that starts the extension of the name at path[start, length), or length.
template <class Char>
size_t extensionDot(const Char* path, size_t start, size_t length) {
    for (size_t i = length; i > start + 1; --i) {
        if (path[i - 1] == Char('.')) return i == length ? length : i - 1;
    }
    return length;
}

// Appends name to dir with one separator between them.
template <class Char>
bool joinPath(krInternal::TextBuffer<Char>& out,
              const Char* dir,
              size_t dirLength,
              const Char* name) {
    if (!out.append(dir, dirLength)) return false;
    if (dirLength > 0 && !isSeparator(dir[dirLength - 1])) {
        if (!out.append(Char(krPlatform::pathSeparator()))) return false;
    }
    return out.appendText(name);
}

// Appends value in hexadecimal digits.
template <class Char>
bool appendHex(krInternal::TextBuffer<Char>& out, unsigned long value) {
    Char digits[2 * sizeof(unsigned long)];
    size_t n = 0;
    do {
        digits[n++] = Char("0123456789abcdef"[value & 0xF]);
        value >>= 4;
    } while (value != 0);
    while (n > 0) {
        if (!out.append(digits[--n])) return false;
    }
    return true;
}

template <class Str, class Char>
KR_RET_STATUS getTempDirImpl(Str& dir) {
    KR_setUserError(0);
    static const Char kVariables[3][7] = {
            {'T', 'M', 'P', 'D', 'I', 'R', 0}, {'T', 'M', 'P', 0}, {'T', 'E', 'M', 'P', 0}};
    for (const Char* variable : kVariables) {
        Char* value = getEnvOf(variable);
        if (value == nullptr) continue;
        size_t length = textLength(value);
        while (length > 1 && isSeparator(value[length - 1]))
            --length;
        KR_RET_STATUS status = length == 0 ? KR_RET_FALSE : setText(dir, value, length);
        krInternal::freeBlock(value);
        if (status != KR_RET_FALSE) return status;
    }
    Char fallback[1024];
    if (!defaultTempDirOf(fallback, sizeof fallback / sizeof fallback[0])) {
        return KRI_FAIL_MSG(KR_RET_ERR_FILE, "KR_fileGetTempDir: no directory for temporary files",
                            nullptr);
    }
    return setText(dir, fallback, textLength(fallback));
}

// Makes "<dir>/<prefix><pid>-<n>" as a new file (asDir false) or directory (asDir true).
template <class Str, class Char>
KR_RET_STATUS makeTempImpl(Str& out, const Char* dir, const Char* prefix, bool asDir) {
    KR_setUserError(0);
    static unsigned long counter = static_cast<unsigned long>(time(nullptr));
    Str tempDir;
    if (dir == nullptr) {
        KR_RET_STATUS status = getTempDirImpl<Str, Char>(tempDir);
        if (KRI_FAILED(status)) return status;
        dir = static_cast<const Char*>(tempDir);
    }
    static const Char kDefaultPrefix[] = {'k', 'r', 0};
    if (prefix == nullptr) prefix = kDefaultPrefix;
    for (unsigned int attempt = 0; attempt < kMaxTempAttempts; ++attempt) {
        krInternal::TextBuffer<Char> path;
        unsigned long unique = ++counter;
        if (!joinPath(path, dir, textLength(dir), prefix) ||
            !appendHex(path, krPlatform::processId()) || !path.append(Char('-')) ||
            !appendHex(path, unique)) {
            return KRI_FAIL(KR_RET_ERR_MEM);
        }
        int error = asDir ? makeDirOf(path.text()) : createNewFileOf(path.text());
        if (error == EEXIST) continue;
        if (error != 0)
            return KRI_FAIL_PATH(KR_RET_ERR_FILE, "KR_file: cannot create", path.text());
        return takeText(out, path);
    }
    return KRI_FAIL_PATH(KR_RET_ERR_FILE, "KR_file: no unused temporary name in", dir);
}

template <class Char>
KR_RET_STATUS makeDirImpl(const Char* path) {
    KR_setUserError(0);
    if (path == nullptr || path[0] == Char(0)) return KRI_FAIL(KR_RET_ERR_ARG);
    int kind = pathKindOf(path);
    if (kind == 2) return KR_RET_FALSE;
    if (kind == 1) return KRI_FAIL_PATH(KR_RET_ERR_FILE, "KR_fileMakeDir: not a directory", path);
    krInternal::TextBuffer<Char> work;
    size_t length = textLength(path);
    while (length > 1 && isSeparator(path[length - 1]))
        --length;
    if (!work.append(path, length)) return KRI_FAIL(KR_RET_ERR_MEM);
    Char* text = const_cast<Char*>(work.text());
    // A prefix that ends before a separator names a parent; leading separators (the root) and
    // repeated ones name no new directory. The longest existing prefix is found first, so the
    // root and drive specifications are never created (or even looked at) when a parent exists.
    auto endsPrefix = [text, length](size_t i) {
        return i == length || (isSeparator(text[i]) && !isSeparator(text[i - 1]));
    };
    size_t existing = 0;
    for (size_t i = length; i >= 1 && existing == 0; --i) {
        if (!endsPrefix(i)) continue;
        Char saved = text[i];
        text[i] = Char(0);
        int here = pathKindOf(text);
        KR_RET_STATUS status = KR_RET_TRUE;
        if (here == 1)
            status = KRI_FAIL_PATH(KR_RET_ERR_FILE, "KR_fileMakeDir: not a directory", text);
        text[i] = saved;
        if (KRI_FAILED(status)) return status;
        if (here == 2) existing = i;
    }
    for (size_t i = existing + 1; i <= length; ++i) {
        if (!endsPrefix(i)) continue;
        Char saved = text[i];
        text[i] = Char(0);
        int error = makeDirOf(text);
        KR_RET_STATUS status = KR_RET_TRUE;
        if (error != 0 && !(error == EEXIST && pathKindOf(text) == 2)) {
            status = KRI_FAIL_PATH(KR_RET_ERR_FILE, "KR_fileMakeDir: cannot create", text);
        }
        text[i] = saved;
        if (KRI_FAILED(status)) return status;
    }
    return KR_RET_TRUE;
}

template <class Str, class Char>
KR_RET_STATUS findInEnvPathImpl(Str& path, const Char* fileName, const Char* envVar) {
    KR_setUserError(0);
    path.assignPtr(nullptr);
    if (fileName == nullptr || envVar == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    Char* list = getEnvOf(envVar);
    if (list == nullptr) return KR_RET_FALSE;
    const Char separator = Char(krPlatform::pathListSeparator());
    KR_RET_STATUS status = KR_RET_FALSE;
    for (const Char* entry = list; *entry != Char(0) && status == KR_RET_FALSE;) {
        const Char* end = entry;
        while (*end != Char(0) && *end != separator)
            ++end;
        if (end > entry) {
            krInternal::TextBuffer<Char> candidate;
            if (!joinPath(candidate, entry, static_cast<size_t>(end - entry), fileName)) {
                status = KRI_FAIL(KR_RET_ERR_MEM);
            } else if (pathKindOf(candidate.text()) == 1) {
                status = takeText(path, candidate);
                if (!KRI_FAILED(status)) status = KR_RET_TRUE;
            }
        }
        entry = *end == Char(0) ? end : end + 1;
    }
    krInternal::freeBlock(list);
    return status;
}

enum PathPart { kPartDir, kPartName, kPartBase, kPartExt };

template <class Str, class Char>
KR_RET_STATUS pathPartImpl(Str& out, const Char* path, PathPart part) {
    KR_setUserError(0);
    out.assignPtr(nullptr);
    if (path == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    size_t length = textLength(path);
    size_t start = nameStart(path, length);
    size_t from = start;
    size_t to = length;
    switch (part) {
        case kPartDir:
            if (start == 0) return KR_RET_FALSE;
            from = 0;
            to = start - 1;
            while (to > 0 && isSeparator(path[to - 1]))
                --to;
            if (to == 0) to = 1;  // the root keeps its separator
            break;
        case kPartName:
            break;
        case kPartBase:
            to = extensionDot(path, start, length);
            break;
        case kPartExt:
            from = extensionDot(path, start, length);
            if (from == length) return KR_RET_FALSE;
            ++from;
            break;
    }
    if (to <= from) return KR_RET_FALSE;
    KR_RET_STATUS status = setText(out, path + from, to - from);
    return KRI_FAILED(status) ? status : KR_RET_TRUE;
}

KR_RET_STATUS scanOne(KR_FileAscii& file, char& c) {
    return file.scanChar(c);
}

KR_RET_STATUS scanOne(KR_FileAscii& file, wchar_t& c) {
    return file.scanCharW(c);
}

template <class Char, class Str>
KR_RET_STATUS readLineImpl(KR_FileAscii& file, Str& line) {
    KR_setUserError(0);
    line.assignPtr(nullptr);
    krInternal::TextBuffer<Char> text;
    KR_RET_STATUS status = KR_RET_FALSE;
    bool any = false;
    for (;;) {
        Char c = Char(0);
        status = scanOne(file, c);
        if (KRI_FAILED(status)) return status;
        if (status == KR_RET_FALSE) break;
        any = true;
        if (c == Char('\n')) break;
        if (!text.append(c)) return KRI_FAIL(KR_RET_ERR_MEM);
    }
    if (!any) return KR_RET_FALSE;
    if (text.length() > 0 && text.text()[text.length() - 1] == Char('\r')) {
        text.truncate(text.length() - 1);
    }
    takeText(line, text);
    return KR_RET_TRUE;
}

const unsigned int kRecHeaderSize = 32;
const unsigned int kRecEntrySize = 16;
const unsigned int kRecFormat = 1;
const unsigned char kRecMagic[4] = {'K', 'R', 'B', 'R'};

// 1 when path names something that exists (a directory when asked for one).
template <class Char>
unsigned char pathIs(const Char* path, bool directory) {
    KR_setUserError(0);
    if (path == nullptr || path[0] == Char(0)) return 0;
    int kind = pathKindOf(path);
    return directory ? kind == 2 : kind != 0;
}

template <class Char>
KR_RET_STATUS removeImpl(const Char* path) {
    KR_setUserError(0);
    if (path == nullptr || path[0] == Char(0)) return KRI_FAIL(KR_RET_ERR_ARG);
    if (pathKindOf(path) == 0) return KR_RET_FALSE;
    if (removePathOf(path) != 0)
        return KRI_FAIL_PATH(KR_RET_ERR_FILE, "KR_fileRemove: cannot remove", path);
    return KR_RET_TRUE;
}

}  // namespace

// --- KR_File ---

KR_File::KR_File() : KR_KorvaneClass() {
    initDataMembers();
}

KR_File::KR_File(const char* name, KR_FILE_MODE mode) : KR_KorvaneClass() {
    initDataMembers();
    open(name, mode);
}

KR_File::KR_File(const wchar_t* name, KR_FILE_MODE mode) : KR_KorvaneClass() {
    initDataMembers();
    open(name, mode);
}

KR_File::KR_File(const KR_File& other) : KR_KorvaneClass(other) {
    initDataMembers();
    KRI_FAIL(KR_RET_ERR_NSUP);
}

KR_File::~KR_File() {
    cleanupDataMembers();
}

KR_File& KR_File::operator=(const KR_File& other) {
    KR_setUserError(0);
    if (&other != this) KRI_FAIL(KR_RET_ERR_NSUP);
    return *this;
}

KR_RET_STATUS KR_File::open(const char* name, KR_FILE_MODE mode) {
    return openNamed(name, mode);
}

KR_RET_STATUS KR_File::open(const wchar_t* name, KR_FILE_MODE mode) {
    return openNamed(name, mode);
}

template <class Char>
KR_RET_STATUS KR_File::openNamed(const Char* name, KR_FILE_MODE mode) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (name == nullptr || name[0] == Char(0)) return KRI_FAIL(KR_RET_ERR_ARG);
    char* narrow = nullptr;
    wchar_t* wide = nullptr;
    KR_RET_STATUS status = copyName(name, narrow, wide) ? openPlatform(narrow, wide, mode)
                                                        : KRI_FAIL(KR_RET_ERR_MEM);
    if (KRI_FAILED(status)) {
        krInternal::freeBlock(narrow);
        krInternal::freeBlock(wide);
    }
    return status;
}

// Takes over the two heap names on success; on failure the caller frees them.
KR_RET_STATUS KR_File::openPlatform(const char* name, const wchar_t* nameW, KR_FILE_MODE mode) {
    if (mode < KR_FILE_MODE_READ || mode > KR_FILE_MODE_UPDATE) return KRI_FAIL(KR_RET_ERR_ARG);
    if (file_ != nullptr) close();
    unsigned char* buffer = static_cast<unsigned char*>(krInternal::allocZeroed(kBufferSize, 1));
    if (buffer == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    // A wide name, or any name when the wide calls are asked for, opens through the wide call;
    // a narrow name that did not widen can only open narrow.
    bool wide = nameW != nullptr && (name == nullptr || KR_useUnicodeSystemFunctions != 0);
    auto openAs = [&](const char* how) {
        return wide ? krPlatform::openFileW(nameW, how) : krPlatform::openFile(name, how);
    };
    static const char* const kModes[] = {"", "rb", "w+b", "r+b", "r+b"};
    FILE* file = openAs(kModes[mode]);
    // Append creates a missing file; "a" itself would force every write to the end.
    if (file == nullptr && mode == KR_FILE_MODE_APPEND && errno == ENOENT) file = openAs("w+b");
    name_ = const_cast<char*>(name);
    nameW_ = const_cast<wchar_t*>(nameW);
    if (file == nullptr) {
        KR_RET_STATUS status = KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_File: cannot open");
        name_ = nullptr;
        nameW_ = nullptr;
        krInternal::freeBlock(buffer);
        return status;
    }
    file_ = file;
    mode_ = mode;
    buffer_ = buffer;
    bufferPos_ = 0;
    filled_ = next_ = 0;
    readMode_ = 1;
    if (mode == KR_FILE_MODE_APPEND) {
        long long size = krPlatform::fileSize(file_);
        if (size < 0 || krPlatform::seekFile(file_, size) != 0) {
            KR_RET_STATUS status = KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_File: seek failed");
            close();
            return status;
        }
        bufferPos_ = size;
    }
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_File::close() {
    KR_setUserError(0);
    if (file_ == nullptr) return KR_RET_FALSE;
    KR_RET_STATUS status = flushWrites();
    if (fclose(file_) != 0 && !KRI_FAILED(status)) {
        status = KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_File: close failed");
    }
    file_ = nullptr;
    krInternal::freeBlock(buffer_);
    krInternal::freeBlock(name_);
    krInternal::freeBlock(nameW_);
    buffer_ = nullptr;
    name_ = nullptr;
    nameW_ = nullptr;
    bufferPos_ = 0;
    filled_ = next_ = 0;
    readMode_ = 1;
    return KRI_FAILED(status) ? status : KR_RET_TRUE;
}

KR_RET_STATUS KR_File::flush() {
    KR_setUserError(0);
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    return flushWrites();
}

KR_RET_STATUS KR_File::isEof() {
    KR_setUserError(0);
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    if (readMode_) {
        if (next_ < filled_) return KR_RET_FALSE;
        status = fill();
        if (KRI_FAILED(status)) return status;
        return filled_ == 0 ? KR_RET_TRUE : KR_RET_FALSE;
    }
    long long size = 0;
    status = getSize(size);
    if (KRI_FAILED(status)) return status;
    return bufferPos_ + static_cast<long long>(filled_) >= size ? KR_RET_TRUE : KR_RET_FALSE;
}

KR_RET_STATUS KR_File::getPos(long long& pos) {
    KR_setUserError(0);
    if (file_ == nullptr) return checkOpen(__LINE__);
    pos = bufferPos_ + static_cast<long long>(readMode_ ? next_ : filled_);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_File::setPos(long long pos) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    if (pos < 0) return KRI_FAIL(KR_RET_ERR_ARG);
    if (readMode_ && pos >= bufferPos_ && pos <= bufferPos_ + static_cast<long long>(filled_)) {
        next_ = static_cast<size_t>(pos - bufferPos_);
        return KR_RET_TRUE;
    }
    if (!readMode_ && pos == bufferPos_ + static_cast<long long>(filled_)) return KR_RET_TRUE;
    status = flushWrites();
    if (KRI_FAILED(status)) return status;
    if (krPlatform::seekFile(file_, pos) != 0) {
        return KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_File: seek failed");
    }
    bufferPos_ = pos;
    filled_ = next_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_File::getSize(long long& size) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    long long onDisk = krPlatform::fileSize(file_);
    if (onDisk < 0) return KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_File: size unknown");
    long long pending = readMode_ ? 0 : bufferPos_ + static_cast<long long>(filled_);
    size = onDisk > pending ? onDisk : pending;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_File::readBytes(void* data, size_t size, size_t& got) {
    got = 0;
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    if (!readMode_) {
        status = dropBuffer();
        if (KRI_FAILED(status)) return status;
    }
    unsigned char* out = static_cast<unsigned char*>(data);
    while (got < size) {
        if (next_ == filled_) {
            status = fill();
            if (KRI_FAILED(status)) return status;
            if (filled_ == 0) break;
        }
        size_t take = filled_ - next_;
        if (take > size - got) take = size - got;
        memcpy(out + got, buffer_ + next_, take);
        next_ += take;
        got += take;
    }
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_File::writeBytes(const void* data, size_t size) {
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    if (mode_ == KR_FILE_MODE_READ) {
        return KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_File: opened for reading only");
    }
    if (readMode_) {
        // The C file sits after the buffered bytes; writing starts at the logical position, and
        // C streams need a seek between reading and writing anyway.
        long long pos = bufferPos_ + static_cast<long long>(next_);
        if (krPlatform::seekFile(file_, pos) != 0) {
            return KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_File: seek failed");
        }
        bufferPos_ = pos;
        filled_ = next_ = 0;
        readMode_ = 0;
    }
    const unsigned char* in = static_cast<const unsigned char*>(data);
    if (filled_ + size > kBufferSize) {
        status = flushWrites();
        if (KRI_FAILED(status)) return status;
        if (size >= kBufferSize) {
            if (fwrite(in, 1, size, file_) != size) {
                clearerr(file_);
                return KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_File: write failed");
            }
            bufferPos_ += static_cast<long long>(size);
            return KR_RET_TRUE;
        }
    }
    memcpy(buffer_ + filled_, in, size);
    filled_ += size;
    next_ = filled_;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_File::moveBack(unsigned int count) {
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    if (readMode_ && count <= next_) {
        next_ -= count;
        return KR_RET_TRUE;
    }
    long long pos = 0;
    getPos(pos);
    if (pos < static_cast<long long>(count)) return KRI_FAIL(KR_RET_ERR_ARG);
    return setPos(pos - static_cast<long long>(count));
}

KR_RET_STATUS KR_File::checkOpen(int line) const {
    if (!initialised_) return krInternal::failAt(KR_RET_ERR_POBJ, KRI_UNIT, line);
    if (file_ != nullptr) return KR_RET_TRUE;
    KR_reportErrorMsg(KRI_UNIT, line, "KR_File: no file open", nullptr);
    return krInternal::failAt(KR_RET_ERR_FILE, KRI_UNIT, line);
}

KR_RET_STATUS KR_File::initDataMembers() {
    initialised_ = 1;
    file_ = nullptr;
    mode_ = KR_FILE_MODE_READ;
    name_ = nullptr;
    nameW_ = nullptr;
    buffer_ = nullptr;
    bufferPos_ = 0;
    filled_ = 0;
    next_ = 0;
    readMode_ = 1;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_File::cleanupDataMembers() {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    close();
    initialised_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_File::readByteSlow(unsigned char& byte) {
    size_t got = 0;
    KR_RET_STATUS status = readBytes(&byte, 1, got);
    if (KRI_FAILED(status)) return status;
    return got == 1 ? KR_RET_TRUE : KR_RET_FALSE;
}

// Refills the read buffer from the C file, which sits after the buffered bytes.
KR_RET_STATUS KR_File::fill() {
    bufferPos_ += static_cast<long long>(filled_);
    filled_ = next_ = 0;
    size_t got = fread(buffer_, 1, kBufferSize, file_);
    if (got < kBufferSize) {
        bool failed = ferror(file_) != 0;
        clearerr(file_);
        if (failed) return KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_File: read failed");
    }
    filled_ = got;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_File::flushWrites() {
    if (readMode_ || filled_ == 0) return KR_RET_TRUE;
    size_t pending = filled_;
    filled_ = next_ = 0;
    if (fwrite(buffer_, 1, pending, file_) != pending || fflush(file_) != 0) {
        // What reached the file is unknown: the bytes are dropped and the position taken from
        // the C file.
        clearerr(file_);
        long long pos = static_cast<long long>(ftell(file_));
        if (pos >= 0) bufferPos_ = pos;
        return KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_File: write failed");
    }
    bufferPos_ += static_cast<long long>(pending);
    return KR_RET_TRUE;
}

// Leaves write mode: writes what is pending and starts an empty read buffer there.
KR_RET_STATUS KR_File::dropBuffer() {
    KR_RET_STATUS status = flushWrites();
    if (KRI_FAILED(status)) return status;
    if (krPlatform::seekFile(file_, bufferPos_) != 0) {
        return KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_File: seek failed");
    }
    filled_ = next_ = 0;
    readMode_ = 1;
    return KR_RET_TRUE;
}

// --- KR_FileAscii ---

KR_FileAscii::KR_FileAscii() : KR_File() {}

KR_FileAscii::KR_FileAscii(const char* name, KR_FILE_MODE mode) : KR_File(name, mode) {}

KR_FileAscii::KR_FileAscii(const wchar_t* name, KR_FILE_MODE mode) : KR_File(name, mode) {}

KR_FileAscii::KR_FileAscii(const KR_FileAscii& other) : KR_File(other) {}

KR_FileAscii::~KR_FileAscii() {}

KR_FileAscii& KR_FileAscii::operator=(const KR_FileAscii& other) {
    KR_File::operator=(other);
    return *this;
}

KR_RET_STATUS KR_FileAscii::print(const char* format, ...) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    if (format == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    char local[512];
    va_list args;
    va_start(args, format);
    int n = vsnprintf(local, sizeof local, format, args);
    va_end(args);
    if (n < 0)
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_FileAscii::print: bad format", "%s\n", format);
    if (static_cast<size_t>(n) < sizeof local) return writeBytes(local, static_cast<size_t>(n));
    char* text = static_cast<char*>(krInternal::allocZeroed(static_cast<size_t>(n) + 1, 1));
    if (text == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    va_start(args, format);
    vsnprintf(text, static_cast<size_t>(n) + 1, format, args);
    va_end(args);
    status = writeBytes(text, static_cast<size_t>(n));
    krInternal::freeBlock(text);
    return status;
}

KR_RET_STATUS KR_FileAscii::printW(const wchar_t* format, ...) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    if (format == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    // vswprintf tells no length on overflow: grow the buffer until the text fits.
    wchar_t local[256];
    wchar_t* text = local;
    size_t size = sizeof local / sizeof local[0];
    int n = -1;
    for (;;) {
        va_list args;
        va_start(args, format);
        n = vswprintf(text, size, format, args);
        va_end(args);
        if (n >= 0 || size >= (size_t{1} << 24)) break;
        if (text != local) krInternal::freeBlock(text);
        size *= 4;
        text = static_cast<wchar_t*>(krInternal::allocZeroed(size, sizeof(wchar_t)));
        if (text == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    }
    if (n < 0) {
        if (text != local) krInternal::freeBlock(text);
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_FileAscii::printW: bad format", "%ls\n", format);
    }
    // Convert everything before writing anything, so a character the locale cannot encode
    // leaves the file as it was.
    char chunk[512];
    size_t bytes = 0;
    if (krInternal::localeLength<char>(static_cast<const wchar_t*>(text)) ==
        krInternal::kNoLocaleForm) {
        if (text != local) krInternal::freeBlock(text);
        return KRI_FAIL_MSG(KR_RET_ERR_ARG,
                            "KR_FileAscii::printW: text not representable in the locale", nullptr);
    }
    mbstate_t state;
    memset(&state, 0, sizeof state);
    for (int i = 0; i < n && !KRI_FAILED(status); ++i) {
        if (bytes + MB_LEN_MAX > sizeof chunk) {
            status = writeBytes(chunk, bytes);
            bytes = 0;
        }
        size_t k = wcrtomb(chunk + bytes, text[i], &state);
        if (k != static_cast<size_t>(-1)) bytes += k;
    }
    if (!KRI_FAILED(status) && bytes > 0) status = writeBytes(chunk, bytes);
    if (text != local) krInternal::freeBlock(text);
    return KRI_FAILED(status) ? status : KR_RET_TRUE;
}

KR_RET_STATUS KR_FileAscii::scanChar(char& c) {
    KR_setUserError(0);
    unsigned char byte = 0;
    KR_RET_STATUS status = readByte(byte);
    c = static_cast<char>(byte);
    return status;
}

KR_RET_STATUS KR_FileAscii::scanCharW(wchar_t& c) {
    KR_setUserError(0);
    c = L'\0';
    unsigned char byte = 0;
    KR_RET_STATUS status = readByte(byte);
    if (status != KR_RET_TRUE) return status;
    // ASCII is itself in every multibyte encoding the library meets, and it is most of the text.
    if (byte < 0x80) {
        c = static_cast<wchar_t>(byte);
        return KR_RET_TRUE;
    }
    mbstate_t state;
    memset(&state, 0, sizeof state);
    unsigned char first = byte;
    unsigned int used = 1;
    for (;;) {
        char in = static_cast<char>(byte);
        wchar_t wide = L'\0';
        size_t r = mbrtowc(&wide, &in, 1, &state);
        if (r != static_cast<size_t>(-2) && r != static_cast<size_t>(-1)) {
            c = wide;
            return KR_RET_TRUE;
        }
        if (r == static_cast<size_t>(-2) && used < MB_LEN_MAX) {
            status = readByte(byte);
            if (KRI_FAILED(status)) return status;
            if (status == KR_RET_TRUE) {
                ++used;
                continue;
            }
        }
        break;
    }
    // Not a valid sequence (or cut by the end of the file): the first byte stands for the
    // character of its own value, and the bytes after it are read again.
    c = static_cast<wchar_t>(first);
    if (used > 1) {
        status = moveBack(used - 1);
        if (KRI_FAILED(status)) return status;
    }
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileAscii::seekBack(unsigned int count) {
    KR_setUserError(0);
    return moveBack(count);
}

KR_RET_STATUS KR_FileAscii::readLine(KR_String& line) {
    return readLineImpl<char>(*this, line);
}

KR_RET_STATUS KR_FileAscii::readLineW(KR_StringW& line) {
    return readLineImpl<wchar_t>(*this, line);
}

// --- KR_FileBinary ---

KR_FileBinary::KR_FileBinary() : KR_File() {}

KR_FileBinary::KR_FileBinary(const char* name, KR_FILE_MODE mode) : KR_File(name, mode) {}

KR_FileBinary::KR_FileBinary(const wchar_t* name, KR_FILE_MODE mode) : KR_File(name, mode) {}

KR_FileBinary::KR_FileBinary(const KR_FileBinary& other) : KR_File(other) {}

KR_FileBinary::~KR_FileBinary() {}

KR_FileBinary& KR_FileBinary::operator=(const KR_FileBinary& other) {
    KR_File::operator=(other);
    return *this;
}

template <class Unsigned>
KR_RET_STATUS KR_FileBinary::writeLe(Unsigned value, unsigned int& count) {
    unsigned char bytes[sizeof(Unsigned)];
    storeLe(bytes, value);
    KR_RET_STATUS status = writeBytes(bytes, sizeof bytes);
    if (KRI_FAILED(status)) return status;
    count += static_cast<unsigned int>(sizeof bytes);
    return KR_RET_TRUE;
}

template <class Unsigned>
KR_RET_STATUS KR_FileBinary::readLe(Unsigned& value, unsigned int& count) {
    unsigned char bytes[sizeof(Unsigned)];
    size_t got = 0;
    KR_RET_STATUS status = readBytes(bytes, sizeof bytes, got);
    if (KRI_FAILED(status)) return status;
    if (got < sizeof bytes)
        return KRI_FAIL_DATA(KR_RET_ERR_FILE, "KR_FileBinary: unexpected end of file");
    value = loadLe<Unsigned>(bytes);
    count += static_cast<unsigned int>(sizeof bytes);
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_FileBinary::persistNumber(T value, unsigned int& count) {
    KR_setUserError(0);
    DiskBits<T> bits = 0;
    if constexpr (std::is_floating_point<T>::value) {
        memcpy(&bits, &value, sizeof bits);
    } else {
        bits = static_cast<DiskBits<T>>(value);  // negative values extend their sign
    }
    return writeLe(bits, count);
}

template <class T>
KR_RET_STATUS KR_FileBinary::restoreNumber(T& value, unsigned int& count) {
    KR_setUserError(0);
    DiskBits<T> bits = 0;
    unsigned int moved = 0;
    KR_RET_STATUS status = readLe(bits, moved);
    if (KRI_FAILED(status)) return status;
    if constexpr (std::is_floating_point<T>::value) {
        memcpy(&value, &bits, sizeof value);
    } else {
        if constexpr (sizeof(T) < sizeof bits && std::is_signed<T>::value) {  // 32-bit long
            long long wide = static_cast<long long>(bits);
            if (wide < LONG_MIN || wide > LONG_MAX) {
                return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_FileBinary: value out of range for long",
                                    "%lld\n", wide);
            }
        } else if constexpr (sizeof(T) < sizeof bits) {
            if (bits > ULONG_MAX) {
                return KRI_FAIL_MSG(KR_RET_ERR_ARG,
                                    "KR_FileBinary: value out of range for unsigned long", "%llu\n",
                                    bits);
            }
        }
        value = static_cast<T>(bits);
    }
    count += moved;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileBinary::persistVal(char value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(signed char value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(unsigned char value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(short value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(unsigned short value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(int value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(unsigned int value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(long value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(unsigned long value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(long long value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(unsigned long long value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(float value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(double value, unsigned int& count) {
    return persistNumber(value, count);
}

// Texts of either width: narrow texts are stored byte for byte, wide ones as UTF-16LE.
template <class Char>
KR_RET_STATUS KR_FileBinary::persistText(const Char* text,
                                         KR_STORAGE_TYPE storage,
                                         unsigned int& count) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    if (storage != KR_STORAGE_BINARY) return KRI_FAIL(KR_RET_ERR_ARG);
    const size_t unitSize = sizeof(Char) == 1 ? 1 : 2;
    size_t length = text == nullptr ? 0 : std::char_traits<Char>::length(text);
    size_t units = text == nullptr ? 0 : length + 1;
    if constexpr (sizeof(Char) > 1) {
        if (text != nullptr) units = krInternal::utf16Length(text, length) + 1;
    }
    // The count and the bytes must fit the 32-bit counters.
    if (units > (0xFFFFFFFFul - 4) / unitSize) return KRI_FAIL(KR_RET_ERR_ARG);
    unsigned int moved = 0;
    status = writeLe(static_cast<unsigned int>(units), moved);
    if (KRI_FAILED(status)) return status;
    if constexpr (sizeof(Char) == 1) {
        if (units > 0) status = writeBytes(text, units);
        if (KRI_FAILED(status)) return status;
    } else {
        // In pieces through a stack buffer: a character takes at most 4 bytes, and the
        // terminator (length + 1 characters) goes with the last piece.
        unsigned char chunk[512];
        const size_t kPiece = sizeof chunk / 4;
        for (size_t done = 0; text != nullptr && done <= length;) {
            size_t take = length + 1 - done;
            if (take > kPiece) take = kPiece;
            size_t bytes = krInternal::writeUtf16LE(text + done, take, chunk);
            status = writeBytes(chunk, bytes);
            if (KRI_FAILED(status)) return status;
            done += take;
        }
    }
    count += moved + static_cast<unsigned int>(units * unitSize);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileBinary::persistVal(const char* text,
                                        KR_STORAGE_TYPE storage,
                                        unsigned int& count) {
    return persistText(text, storage, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(const wchar_t* text,
                                        KR_STORAGE_TYPE storage,
                                        unsigned int& count) {
    return persistText(text, storage, count);
}

KR_RET_STATUS KR_FileBinary::persistBlock(const void* data,
                                          unsigned int size,
                                          unsigned int& count) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    if (data == nullptr && size > 0) return KRI_FAIL(KR_RET_ERR_ARG);
    if (size == 0) return KR_RET_TRUE;
    status = writeBytes(data, size);
    if (KRI_FAILED(status)) return status;
    count += size;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileBinary::restoreVal(char& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(signed char& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(unsigned char& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(short& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(unsigned short& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(int& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(unsigned int& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(long& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(unsigned long& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(long long& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(unsigned long long& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(float& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(double& value, unsigned int& count) {
    return restoreNumber(value, count);
}

template <class Char>
KR_RET_STATUS KR_FileBinary::restoreText(Char*& text,
                                         KR_STORAGE_TYPE storage,
                                         unsigned int& count) {
    KR_setUserError(0);
    text = nullptr;
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    if (storage != KR_STORAGE_BINARY) return KRI_FAIL(KR_RET_ERR_ARG);
    const size_t unitSize = sizeof(Char) == 1 ? 1 : 2;
    unsigned int moved = 0;
    unsigned int units = 0;
    status = readLe(units, moved);
    if (KRI_FAILED(status)) return status;
    if (units > 0) {
        // A damaged count must not make us allocate more than the file can hold.
        size_t bytes = unitSize * units;
        long long pos = 0;
        long long size = 0;
        getPos(pos);
        status = getSize(size);
        if (KRI_FAILED(status)) return status;
        if (static_cast<long long>(bytes) > size - pos) {
            return KRI_FAIL_DATA(KR_RET_ERR_FILE, "KR_FileBinary: text longer than the file");
        }
        // Joining pairs only shortens the text, so units characters always suffice. Narrow
        // texts are read in place.
        Char* block = static_cast<Char*>(krInternal::allocZeroed(units, sizeof(Char)));
        unsigned char* raw =
                sizeof(Char) == 1 ? reinterpret_cast<unsigned char*>(block)
                                  : static_cast<unsigned char*>(krInternal::allocZeroed(units, 2));
        if (raw == nullptr || block == nullptr) {
            if (raw != reinterpret_cast<unsigned char*>(block)) krInternal::freeBlock(raw);
            krInternal::freeBlock(block);
            return KRI_FAIL(KR_RET_ERR_MEM);
        }
        size_t got = 0;
        status = readBytes(raw, bytes, got);
        size_t stored = units;
        if (!KRI_FAILED(status) && got < bytes) {
            status = KRI_FAIL_DATA(KR_RET_ERR_FILE,
                                   sizeof(Char) == 1 ? "KR_FileBinary: text not terminated"
                                                     : "KR_FileBinary: unexpected end of file");
        }
        if constexpr (sizeof(Char) > 1) {
            if (!KRI_FAILED(status)) stored = krInternal::readUtf16LE(raw, units, block);
            krInternal::freeBlock(raw);
        }
        if (!KRI_FAILED(status) && block[stored - 1] != Char(0)) {
            status = KRI_FAIL_DATA(KR_RET_ERR_FILE, "KR_FileBinary: text not terminated");
        }
        if (KRI_FAILED(status)) {
            krInternal::freeBlock(block);
            return status;
        }
        text = block;
    }
    count += moved + static_cast<unsigned int>(unitSize * units);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileBinary::restoreVal(char*& text, KR_STORAGE_TYPE storage, unsigned int& count) {
    return restoreText(text, storage, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(wchar_t*& text,
                                        KR_STORAGE_TYPE storage,
                                        unsigned int& count) {
    return restoreText(text, storage, count);
}

KR_RET_STATUS KR_FileBinary::restoreBlock(void* data, unsigned int size, unsigned int& count) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    if (data == nullptr && size > 0) return KRI_FAIL(KR_RET_ERR_ARG);
    if (size == 0) return KR_RET_TRUE;
    size_t got = 0;
    status = readBytes(data, size, got);
    if (KRI_FAILED(status)) return status;
    if (got < size) return KRI_FAIL_DATA(KR_RET_ERR_FILE, "KR_FileBinary: unexpected end of file");
    count += size;
    return KR_RET_TRUE;
}

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

// --- File-system functions ---

unsigned char KR_filePathExists(const char* path) {
    return pathIs(path, false);
}

unsigned char KR_filePathExistsW(const wchar_t* path) {
    return pathIs(path, false);
}

unsigned char KR_fileIsDir(const char* path) {
    return pathIs(path, true);
}

unsigned char KR_fileIsDirW(const wchar_t* path) {
    return pathIs(path, true);
}

KR_RET_STATUS KR_fileMakeDir(const char* path) {
    return makeDirImpl(path);
}

KR_RET_STATUS KR_fileMakeDirW(const wchar_t* path) {
    return makeDirImpl(path);
}

KR_RET_STATUS KR_fileRemove(const char* path) {
    return removeImpl(path);
}

KR_RET_STATUS KR_fileRemoveW(const wchar_t* path) {
    return removeImpl(path);
}

KR_RET_STATUS KR_fileGetTempDir(KR_String& dir) {
    return getTempDirImpl<KR_String, char>(dir);
}

KR_RET_STATUS KR_fileGetTempDirW(KR_StringW& dir) {
    return getTempDirImpl<KR_StringW, wchar_t>(dir);
}

KR_RET_STATUS KR_fileGetTempName(KR_String& name, const char* dir, const char* prefix) {
    return makeTempImpl(name, dir, prefix, false);
}

KR_RET_STATUS KR_fileGetTempNameW(KR_StringW& name, const wchar_t* dir, const wchar_t* prefix) {
    return makeTempImpl(name, dir, prefix, false);
}

KR_RET_STATUS KR_fileMakeTempDir(KR_String& path, const char* dir, const char* prefix) {
    return makeTempImpl(path, dir, prefix, true);
}

KR_RET_STATUS KR_fileMakeTempDirW(KR_StringW& path, const wchar_t* dir, const wchar_t* prefix) {
    return makeTempImpl(path, dir, prefix, true);
}

KR_RET_STATUS KR_fileFindInEnvPath(KR_String& path, const char* fileName, const char* envVar) {
    return findInEnvPathImpl(path, fileName, envVar);
}

KR_RET_STATUS KR_fileFindInEnvPathW(KR_StringW& path,
                                    const wchar_t* fileName,
                                    const wchar_t* envVar) {
    return findInEnvPathImpl(path, fileName, envVar);
}

KR_RET_STATUS KR_fileGetDir(KR_String& dir, const char* path) {
    return pathPartImpl(dir, path, kPartDir);
}

KR_RET_STATUS KR_fileGetDirW(KR_StringW& dir, const wchar_t* path) {
    return pathPartImpl(dir, path, kPartDir);
}

KR_RET_STATUS KR_fileGetName(KR_String& name, const char* path) {
    return pathPartImpl(name, path, kPartName);
}

KR_RET_STATUS KR_fileGetNameW(KR_StringW& name, const wchar_t* path) {
    return pathPartImpl(name, path, kPartName);
}

KR_RET_STATUS KR_fileGetBaseName(KR_String& name, const char* path) {
    return pathPartImpl(name, path, kPartBase);
}

KR_RET_STATUS KR_fileGetBaseNameW(KR_StringW& name, const wchar_t* path) {
    return pathPartImpl(name, path, kPartBase);
}

KR_RET_STATUS KR_fileGetExt(KR_String& ext, const char* path) {
    return pathPartImpl(ext, path, kPartExt);
}

KR_RET_STATUS KR_fileGetExtW(KR_StringW& ext, const wchar_t* path) {
    return pathPartImpl(ext, path, kPartExt);
}
