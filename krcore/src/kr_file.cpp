// kr_file.cpp — the buffered file that the text, binary and record files build on.
#include "kr_file.h"

#include <errno.h>
#include <string.h>

#include "kr_alloc.h"
#include "kr_fileseam.h"
#include "kr_fileshared.h"
#include "kr_locale.h"
#include "kr_platform.h"
#include "kr_report.h"
#include "kr_testing.h"

#define KRI_UNIT "src/kr_file"

namespace {

const size_t kBufferSize = 64 * 1024;

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

krTesting::FileWriteHook writeHook = nullptr;
void* writeHookContext = nullptr;

}  // namespace

// --- the write seam ---

bool krInternal::fileWrite(FILE* file, long long pos, const void* data, size_t size) {
    size_t allowed = size;
    if (writeHook != nullptr) {
        allowed = writeHook(writeHookContext, krTesting::FileWriteEvent{false, pos, data, size});
        if (allowed > size) allowed = size;
    }
    if (allowed > 0 && fwrite(data, 1, allowed, file) != allowed) return false;
    return allowed == size && fflush(file) == 0;
}

bool krInternal::fileSync(FILE* file) {
    if (writeHook != nullptr &&
        writeHook(writeHookContext, krTesting::FileWriteEvent{true, 0, nullptr, 0}) == 0) {
        return false;
    }
    return krPlatform::syncFile(file) == 0;
}

void krTesting::setFileWriteHook(FileWriteHook hook, void* context) {
    writeHook = hook;
    writeHookContext = context;
}

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
    if (mode < KR_FILE_MODE_READ || mode > KR_FILE_MODE_UPDATE) return KRI_FAIL(KR_RET_ERR_ARG);
    // Past the argument checks every outcome, a failed allocation included, leaves the file
    // that was open closed.
    if (file_ != nullptr) close();
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

// Takes over the two heap names on success; on failure the caller frees them. No file is open.
KR_RET_STATUS KR_File::openPlatform(const char* name, const wchar_t* nameW, KR_FILE_MODE mode) {
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
    bool outOfMemory = file == nullptr && errno == ENOMEM;
    name_ = const_cast<char*>(name);
    nameW_ = const_cast<wchar_t*>(nameW);
    if (file == nullptr) {
        KR_RET_STATUS status = outOfMemory
                                       ? KRI_FAIL(KR_RET_ERR_MEM)
                                       : KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_File: cannot open");
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
            if (!krInternal::fileWrite(file_, bufferPos_, in, size)) {
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

KR_RET_STATUS KR_File::readAt(long long pos, void* data, size_t size, size_t& got) {
    got = 0;
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    if (pos < 0) return KRI_FAIL(KR_RET_ERR_ARG);
    long long end = bufferPos_ + static_cast<long long>(filled_);
    if (readMode_ && pos >= bufferPos_ && pos <= end &&
        static_cast<unsigned long long>(end - pos) >= size) {
        memcpy(data, buffer_ + (pos - bufferPos_), size);
        next_ = static_cast<size_t>(pos - bufferPos_) + size;
        got = size;
        return KR_RET_TRUE;
    }
    // Straight from the C file into data: a small read far from the buffer should not cost a
    // whole buffer of copying.
    status = readMode_ ? KR_RET_TRUE : dropBuffer();
    if (KRI_FAILED(status)) return status;
    if (krPlatform::seekFile(file_, pos) != 0) {
        filled_ = next_ = 0;
        return KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_File: seek failed");
    }
    got = fread(data, 1, size, file_);
    bool failed = got < size && ferror(file_) != 0;
    clearerr(file_);
    bufferPos_ = pos + static_cast<long long>(got);
    filled_ = next_ = 0;
    if (failed) return KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_File: read failed");
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_File::syncToDisk() {
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    status = flushWrites();
    if (KRI_FAILED(status)) return status;
    if (!krInternal::fileSync(file_))
        return KRI_FAIL_NAMED(KR_RET_ERR_FILE, "KR_File: sync failed");
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
    if (!krInternal::fileWrite(file_, bufferPos_, buffer_, pending)) {
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
