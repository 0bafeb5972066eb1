// kr_platform_posix.cpp — the platform calls on POSIX systems (Linux).
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <iostream>

#include "kr_alloc.h"
#include "kr_locale.h"
#include "kr_platform.h"

namespace {

// Converts text to multibyte in stack-sized chunks and hands each chunk to sink.
template <class Sink>
void toMultibyte(const wchar_t* text, size_t count, Sink sink) {
    char chunk[256];
    size_t used = 0;
    mbstate_t state;
    memset(&state, 0, sizeof state);
    for (size_t i = 0; i < count; ++i) {
        if (used + MB_LEN_MAX + 1 > sizeof chunk) {
            sink(chunk, used);
            used = 0;
        }
        size_t n = wcrtomb(chunk + used, text[i], &state);
        if (n == static_cast<size_t>(-1)) {
            memset(&state, 0, sizeof state);
            chunk[used++] = '?';
        } else {
            used += n;
        }
    }
    if (used > 0) sink(chunk, used);
}

// A wide name in the locale's multibyte encoding, on the heap (free()); null with errno set
// when it does not convert or memory runs out.
char* narrowName(const wchar_t* name) {
    size_t length = krInternal::localeLength<char>(name);
    if (length == krInternal::kNoLocaleForm) {
        errno = EILSEQ;
        return nullptr;
    }
    char* out = krInternal::localeCopy<char>(name, length);
    if (out == nullptr) errno = ENOMEM;
    return out;
}

// Runs op on the multibyte form of name; failed (errno set) when the name does not convert.
template <class Result, class Op>
Result withNarrowName(const wchar_t* name, Result failed, Op op) {
    char* narrow = narrowName(name);
    if (narrow == nullptr) return failed;
    auto result = op(narrow);
    int saved = errno;
    krInternal::freeBlock(narrow);
    errno = saved;
    return result;
}

}  // namespace

namespace krPlatform {

void writeWide(FILE* stream, const wchar_t* text) {
    if (stream == nullptr || text == nullptr) return;
    toMultibyte(text, wcslen(text),
                [stream](const char* bytes, size_t n) { fwrite(bytes, 1, n, stream); });
}

int printWide(FILE* stream, const wchar_t* format, va_list args) {
    if (stream == nullptr || format == nullptr) return -1;
    wchar_t local[2048];
    va_list copy;
    va_copy(copy, args);
    int n = vswprintf(local, sizeof local / sizeof local[0], format, copy);
    va_end(copy);
    if (n >= 0) {
        toMultibyte(local, static_cast<size_t>(n),
                    [stream](const char* bytes, size_t count) { fwrite(bytes, 1, count, stream); });
        return n;
    }
    // vswprintf gives no length on overflow: grow a heap buffer until the text fits.
    for (size_t size = 8192; size <= (size_t{1} << 24); size *= 4) {
        wchar_t* buffer = static_cast<wchar_t*>(malloc(size * sizeof(wchar_t)));
        if (buffer == nullptr) return -1;
        va_copy(copy, args);
        n = vswprintf(buffer, size, format, copy);
        va_end(copy);
        if (n >= 0) {
            toMultibyte(buffer, static_cast<size_t>(n),
                        [stream](const char* bytes, size_t c) { fwrite(bytes, 1, c, stream); });
        }
        free(buffer);
        if (n >= 0) return n;
    }
    return -1;
}

void coutWide(const wchar_t* text) {
    if (text == nullptr) return;
    toMultibyte(text, wcslen(text), [](const char* bytes, size_t n) {
        std::cout.write(bytes, static_cast<std::streamsize>(n));
    });
}

void coutWide(wchar_t c) {
    toMultibyte(&c, 1, [](const char* bytes, size_t n) {
        std::cout.write(bytes, static_cast<std::streamsize>(n));
    });
}

// --- Files and paths (kr_file) ---

FILE* openFile(const char* name, const char* mode) {
    FILE* file = fopen(name, mode);
    if (file != nullptr) setvbuf(file, nullptr, _IONBF, 0);
    return file;
}

FILE* openFileW(const wchar_t* name, const char* mode) {
    return withNarrowName(name, static_cast<FILE*>(nullptr),
                          [mode](const char* narrow) { return openFile(narrow, mode); });
}

int seekFile(FILE* file, long long pos) {
    return fseeko(file, static_cast<off_t>(pos), SEEK_SET);
}

long long fileSize(FILE* file) {
    struct stat info;
    if (fstat(fileno(file), &info) != 0) return -1;
    return static_cast<long long>(info.st_size);
}

int pathKind(const char* path) {
    struct stat info;
    if (stat(path, &info) != 0) return 0;
    return S_ISDIR(info.st_mode) ? 2 : 1;
}

int pathKindW(const wchar_t* path) {
    return withNarrowName(path, 0, [](const char* narrow) { return pathKind(narrow); });
}

int makeDir(const char* path) {
    return mkdir(path, 0777) == 0 ? 0 : errno;
}

int makeDirW(const wchar_t* path) {
    int result = withNarrowName(path, -1, [](const char* narrow) { return makeDir(narrow); });
    return result < 0 ? errno : result;
}

int createNewFile(const char* path) {
    int fd = open(path, O_CREAT | O_EXCL | O_WRONLY, 0666);
    if (fd < 0) return errno;
    close(fd);
    return 0;
}

int createNewFileW(const wchar_t* path) {
    int result = withNarrowName(path, -1, [](const char* narrow) { return createNewFile(narrow); });
    return result < 0 ? errno : result;
}

int removePath(const char* path) {
    return remove(path) == 0 ? 0 : errno;
}

int removePathW(const wchar_t* path) {
    int result = withNarrowName(path, -1, [](const char* narrow) { return removePath(narrow); });
    return result < 0 ? errno : result;
}

wchar_t* getEnvW(const wchar_t* name) {
    char* narrow = narrowName(name);
    if (narrow == nullptr) return nullptr;
    const char* value = getenv(narrow);
    krInternal::freeBlock(narrow);
    if (value == nullptr) return nullptr;
    size_t length = krInternal::localeLength<wchar_t>(value);
    if (length == krInternal::kNoLocaleForm) return nullptr;
    return krInternal::localeCopy<wchar_t>(value, length);
}

bool defaultTempDir(char* buffer, size_t size) {
    if (size < 5) return false;
    memcpy(buffer, "/tmp", 5);
    return true;
}

bool defaultTempDirW(wchar_t* buffer, size_t size) {
    if (size < 5) return false;
    wmemcpy(buffer, L"/tmp", 5);
    return true;
}

char pathListSeparator() {
    return ':';
}

char pathSeparator() {
    return '/';
}

unsigned long processId() {
    return static_cast<unsigned long>(getpid());
}

bool systemTakesWide() {
    return false;
}

int systemWide(const wchar_t*) {
    return -1;
}

}  // namespace krPlatform
