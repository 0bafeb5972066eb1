// kr_platform_posix.cpp — the platform calls on POSIX systems (Linux).
// The local-time functions take 64-bit times on every target: glibc's 32-bit targets switch to a
// 64-bit time_t with these, which require 64-bit file offsets too.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64
#endif
#ifndef _TIME_BITS
#define _TIME_BITS 64
#endif

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <iostream>

#include "kr_alloc.h"
#include "kr_locale.h"
#include "kr_platform.h"

namespace {

// Wide characters to the locale's multibyte encoding through a stack chunk and one conversion
// state, so that text handed over in pieces comes out byte for byte as if converted in one go.
// An unconvertible character becomes '?'. A character is converted whole into the chunk, so a
// flush never splits a multibyte character. The sink receives each full chunk; none when dry.
template <class Sink>
class MultibyteWriter {
public:
    explicit MultibyteWriter(Sink sink, bool dry = false) : sink_(sink), used_(0), dry_(dry) {
        memset(&state_, 0, sizeof state_);
    }

    MultibyteWriter(const MultibyteWriter&) = delete;
    MultibyteWriter& operator=(const MultibyteWriter&) = delete;

    ~MultibyteWriter() { flush(); }

    void put(const wchar_t* text, size_t count) {
        for (size_t i = 0; i < count && !dry_; ++i)
            put(text[i]);
    }

    void put(wchar_t c) {
        if (dry_) return;
        if (used_ + MB_LEN_MAX + 1 > sizeof chunk_) flush();
        size_t n = wcrtomb(chunk_ + used_, c, &state_);
        if (n == static_cast<size_t>(-1)) {
            memset(&state_, 0, sizeof state_);
            chunk_[used_++] = '?';
        } else {
            used_ += n;
        }
    }

    void flush() {
        if (used_ > 0) sink_(chunk_, used_);
        used_ = 0;
    }

    bool dry() const { return dry_; }

private:
    Sink sink_;
    char chunk_[256];
    size_t used_;
    bool dry_;
    mbstate_t state_;
};

template <class Sink>
void toMultibyte(const wchar_t* text, size_t count, Sink sink) {
    MultibyteWriter<Sink> writer(sink);
    writer.put(text, count);
}

// --- Wide formatted output in pieces, for texts longer than the stack buffer ---

constexpr size_t kFormatBuffer = 2048;  // wide characters formatted on the stack at once

// One conversion of a wide format: flags, width and precision (-1: none; '*' already taken from
// the arguments), length modifier and conversion character.
struct Conversion {
    wchar_t flags[8];
    size_t flagCount;
    int width;
    int precision;
    wchar_t length[3];
    wchar_t type;
    bool left;
};

// Reads an optional number or '*' at p; '*' takes an int argument.
int readCount(const wchar_t*& p, va_list* args, int none) {
    if (*p == L'*') {
        ++p;
        return va_arg(*args, int);
    }
    if (*p < L'0' || *p > L'9') return none;
    long value = 0;
    for (; *p >= L'0' && *p <= L'9'; ++p)
        value = value < INT_MAX / 10 ? value * 10 + (*p - L'0') : INT_MAX;
    return static_cast<int>(value);
}

// Parses the conversion after a '%' at p and takes its '*' arguments; null for what the piecewise
// path does not take (positional arguments, an unknown or overlong conversion).
const wchar_t* parseConversion(const wchar_t* p, Conversion& c, va_list* args) {
    c.flagCount = 0;
    c.left = false;
    for (; wcschr(L"-+ #0'I", *p) != nullptr && *p != L'\0'; ++p) {
        if (c.flagCount == sizeof c.flags / sizeof c.flags[0] - 1) return nullptr;
        if (*p == L'-') c.left = true;
        c.flags[c.flagCount++] = *p;
    }
    c.flags[c.flagCount] = L'\0';
    c.width = readCount(p, args, -1);
    if (*p == L'$') return nullptr;
    if (c.width < 0 && c.width != -1) {
        // A negative '*' width means left alignment.
        c.left = true;
        c.width = c.width == INT_MIN ? INT_MAX : -c.width;
    }
    c.precision = -1;
    if (*p == L'.') {
        ++p;
        c.precision = readCount(p, args, 0);
        if (c.precision < 0) c.precision = -1;
    }
    size_t n = 0;
    while (n < 2 && wcschr(L"hlLqjzZt", *p) != nullptr && *p != L'\0')
        c.length[n++] = *p++;
    c.length[n] = L'\0';
    if (*p == L'\0' || wcschr(L"diouxXfFeEgGaAcCsSpnm%", *p) == nullptr) return nullptr;
    c.type = *p;
    return p + 1;
}

bool isNumeric(const Conversion& c) {
    return wcschr(L"diouxXfFeEgGaAp", c.type) != nullptr;
}

template <class Char>
Char* putNumber(Char* out, int value) {
    Char digits[12];
    int n = 0;
    do {
        digits[n++] = static_cast<Char>('0' + value % 10);
        value /= 10;
    } while (value > 0);
    while (n > 0)
        *out++ = digits[--n];
    return out;
}

// The single-conversion format of c ("%-12.3ld"), in the narrow or the wide width, with or
// without its width.
template <class Char>
void directiveOf(const Conversion& c, bool withWidth, Char* out) {
    *out++ = Char('%');
    for (size_t i = 0; i < c.flagCount; ++i)
        if (withWidth || c.flags[i] != L'-') *out++ = static_cast<Char>(c.flags[i]);
    if (c.left && withWidth) *out++ = Char('-');
    if (withWidth && c.width >= 0) out = putNumber(out, c.width);
    if (c.precision >= 0) {
        *out++ = Char('.');
        out = putNumber(out, c.precision);
    }
    for (const wchar_t* l = c.length; *l != L'\0'; ++l)
        *out++ = static_cast<Char>(*l);
    *out++ = static_cast<Char>(c.type);
    *out = Char(0);
}

struct NoArgument {};

int formatOne(wchar_t* buffer, const wchar_t* directive, NoArgument) {
    return swprintf(buffer, kFormatBuffer, directive);
}

template <class T>
int formatOne(wchar_t* buffer, const wchar_t* directive, T value) {
    return swprintf(buffer, kFormatBuffer, directive, value);
}

// Reads the argument of c with its type and answers visit(argument). Not for %n and %%.
template <class Visit>
long long withArgument(const Conversion& c, va_list* args, Visit visit) {
    wchar_t l0 = c.length[0];
    bool ll = l0 == L'q' || l0 == L'L' || (l0 == L'l' && c.length[1] == L'l');
    switch (c.type) {
        case L'd':
        case L'i':
            if (ll) return visit(va_arg(*args, long long));
            if (l0 == L'l') return visit(va_arg(*args, long));
            if (l0 == L'j') return visit(va_arg(*args, intmax_t));
            if (l0 == L'z' || l0 == L'Z') return visit(va_arg(*args, ssize_t));
            if (l0 == L't') return visit(va_arg(*args, ptrdiff_t));
            return visit(va_arg(*args, int));
        case L'o':
        case L'u':
        case L'x':
        case L'X':
            if (ll) return visit(va_arg(*args, unsigned long long));
            if (l0 == L'l') return visit(va_arg(*args, unsigned long));
            if (l0 == L'j') return visit(va_arg(*args, uintmax_t));
            if (l0 == L'z' || l0 == L'Z') return visit(va_arg(*args, size_t));
            if (l0 == L't') return visit(va_arg(*args, ptrdiff_t));
            return visit(va_arg(*args, unsigned int));
        case L'c':
            if (l0 == L'l') return visit(va_arg(*args, wint_t));
            return visit(va_arg(*args, int));
        case L'C':
            return visit(va_arg(*args, wint_t));
        case L's':
            if (l0 == L'l') return visit(va_arg(*args, const wchar_t*));
            return visit(va_arg(*args, const char*));
        case L'S':
            return visit(va_arg(*args, const wchar_t*));
        case L'p':
            return visit(va_arg(*args, void*));
        case L'm':
            return visit(NoArgument());
        default:  // the floating conversions
            if (l0 == L'L') return visit(va_arg(*args, long double));
            return visit(va_arg(*args, double));
    }
}

// Stores the count of characters written so far through %n's pointer.
void storeCount(const Conversion& c, va_list* args, int count) {
    wchar_t l0 = c.length[0];
    if (l0 == L'h' && c.length[1] == L'h') {
        *va_arg(*args, signed char*) = static_cast<signed char>(count);
    } else if (l0 == L'h') {
        *va_arg(*args, short*) = static_cast<short>(count);
    } else if (l0 == L'l' && c.length[1] == L'l') {
        *va_arg(*args, long long*) = count;
    } else if (l0 == L'l') {
        *va_arg(*args, long*) = count;
    } else if (l0 == L'j') {
        *va_arg(*args, intmax_t*) = count;
    } else if (l0 == L'z' || l0 == L'Z') {
        *va_arg(*args, size_t*) = static_cast<size_t>(count);
    } else if (l0 == L't') {
        *va_arg(*args, ptrdiff_t*) = count;
    } else {
        *va_arg(*args, int*) = count;
    }
}

template <class Writer>
void putRepeated(Writer& out, wchar_t c, size_t count) {
    for (size_t i = 0; i < count && !out.dry(); ++i)
        out.put(c);
}

// A string conversion whose text is longer than the stack buffer, with its precision (the most
// characters taken) and width applied by hand. A narrow text is converted as vswprintf converts
// it, character by character with one state; -1 when it does not convert.
template <class Writer>
long long putLongString(Writer& out, const Conversion& c, const wchar_t* text) {
    size_t limit = c.precision < 0 ? SIZE_MAX : static_cast<size_t>(c.precision);
    size_t count = 0;
    while (count < limit && text[count] != L'\0')
        ++count;
    size_t pad = c.width > 0 && static_cast<size_t>(c.width) > count ? c.width - count : 0;
    if (!c.left) putRepeated(out, L' ', pad);
    out.put(text, count);
    if (c.left) putRepeated(out, L' ', pad);
    return static_cast<long long>(count + pad);
}

template <class Writer>
long long putLongString(Writer& out, const Conversion& c, const char* text) {
    size_t limit = c.precision < 0 ? SIZE_MAX : static_cast<size_t>(c.precision);
    // First count (and check) the characters, then write them: padding on the left needs the
    // count, and a text that does not convert must write nothing.
    size_t count = 0;
    mbstate_t state;
    memset(&state, 0, sizeof state);
    for (const char* p = text; count < limit; ++count) {
        wchar_t w;
        size_t n = mbrtowc(&w, p, MB_LEN_MAX, &state);
        if (n == 0) break;
        if (n == static_cast<size_t>(-1) || n == static_cast<size_t>(-2)) return -1;
        p += n;
    }
    size_t pad = c.width > 0 && static_cast<size_t>(c.width) > count ? c.width - count : 0;
    if (!c.left) putRepeated(out, L' ', pad);
    memset(&state, 0, sizeof state);
    const char* p = text;
    for (size_t i = 0; i < count && !out.dry(); ++i) {
        wchar_t w;
        p += mbrtowc(&w, p, MB_LEN_MAX, &state);
        out.put(w);
    }
    if (c.left) putRepeated(out, L' ', pad);
    return static_cast<long long>(count + pad);
}

// One conversion onto out: formatted into the stack buffer when it fits; otherwise a number is
// printed narrow straight to the stream (its text is the same in both widths), a string longer
// than the buffer is written piece by piece, and a wide width is padded by hand. stream is null
// in the dry run. Answers the wide characters produced, or -1 where vswprintf would fail.
template <class Writer, class T>
long long putConversion(Writer& out, FILE* stream, const Conversion& c, T value, wchar_t* buffer) {
    wchar_t directive[48];
    directiveOf(c, true, directive);
    int n = formatOne(buffer, directive, value);
    if (n >= 0) {
        out.put(buffer, static_cast<size_t>(n));
        return n;
    }
    if constexpr (std::is_arithmetic<T>::value || std::is_pointer<T>::value) {
        if (isNumeric(c)) {
            char narrow[48];
            directiveOf(c, true, narrow);
            out.flush();
            if (stream == nullptr) return snprintf(nullptr, 0, narrow, value);
            return fprintf(stream, narrow, value);
        }
    }
    if (c.width > 0) {
        directiveOf(c, false, directive);
        n = formatOne(buffer, directive, value);
    }
    if constexpr (std::is_same<T, const char*>::value || std::is_same<T, const wchar_t*>::value) {
        if (n < 0 && value != nullptr) return putLongString(out, c, value);
    }
    if (n < 0) return -1;
    size_t pad = c.width > n ? static_cast<size_t>(c.width - n) : 0;
    if (!c.left) putRepeated(out, L' ', pad);
    out.put(buffer, static_cast<size_t>(n));
    if (c.left) putRepeated(out, L' ', pad);
    return static_cast<long long>(n + pad);
}

// Formats format with args onto stream without a heap buffer: the text between conversions goes
// out as it stands and each conversion on its own (putConversion). A null stream makes a dry run
// that writes nothing. Answers the wide characters produced, or -1 for what vswprintf refuses
// (an invalid conversion, a narrow text that does not convert) and for positional arguments,
// which this path does not take.
int formatInPieces(FILE* stream, const wchar_t* format, va_list source) {
    auto sink = [stream](const char* bytes, size_t n) { fwrite(bytes, 1, n, stream); };
    MultibyteWriter<decltype(sink)> out(sink, stream == nullptr);
    wchar_t buffer[kFormatBuffer];
    int savedErrno = errno;
    long long total = 0;
    bool ok = true;
    va_list args;
    va_copy(args, source);
    for (const wchar_t* p = format; ok && *p != L'\0';) {
        const wchar_t* run = p;
        while (*p != L'\0' && *p != L'%')
            ++p;
        out.put(run, static_cast<size_t>(p - run));
        total += p - run;
        if (*p == L'\0') break;
        Conversion c;
        p = parseConversion(p + 1, c, &args);
        if (p == nullptr) {
            ok = false;
        } else if (c.type == L'%') {
            out.put(L'%');
            ++total;
        } else if (c.type == L'n') {
            storeCount(c, &args, static_cast<int>(total < INT_MAX ? total : INT_MAX));
        } else {
            errno = savedErrno;  // for %m
            long long n = withArgument(c, &args, [&](auto value) {
                return putConversion(out, stream, c, value, buffer);
            });
            ok = n >= 0;
            total += n;
        }
    }
    va_end(args);
    errno = savedErrno;
    return ok && total <= INT_MAX ? static_cast<int>(total) : -1;
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

// --- Modules ---

// A handle that loadModule gave out, with its loads not yet undone.
struct ModuleLoads {
    void* handle;
    unsigned int loads;
};

// Every handle with loads outstanding. dlclose and dlsym on a handle whose loads are all undone
// are undefined (the loader may have freed what the handle points to), so the layer refuses such
// a handle itself, as Windows refuses a module that is no longer loaded. The block goes with the
// last handle.
ModuleLoads* moduleBook = nullptr;
unsigned int moduleBookUsed = 0;
unsigned int moduleBookSize = 0;

ModuleLoads* findModule(void* handle) {
    for (unsigned int i = 0; i < moduleBookUsed; ++i) {
        if (moduleBook[i].handle == handle) return &moduleBook[i];
    }
    return nullptr;
}

// Room for one more handle, made before a load so that recording it cannot fail.
bool reserveModuleSlot() {
    if (moduleBookUsed < moduleBookSize) return true;
    unsigned int size = moduleBookSize == 0 ? 8 : moduleBookSize * 2;
    void* block = krInternal::reallocBlock(moduleBook, size * sizeof(ModuleLoads));
    if (block == nullptr) return false;
    moduleBook = static_cast<ModuleLoads*>(block);
    moduleBookSize = size;
    return true;
}

void releaseEmptyModuleBook() {
    if (moduleBookUsed > 0) return;
    krInternal::freeBlock(moduleBook);
    moduleBook = nullptr;
    moduleBookSize = 0;
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
    wchar_t local[kFormatBuffer];
    va_list copy;
    va_copy(copy, args);
    int n = vswprintf(local, kFormatBuffer, format, copy);
    va_end(copy);
    if (n >= 0) {
        toMultibyte(local, static_cast<size_t>(n),
                    [stream](const char* bytes, size_t count) { fwrite(bytes, 1, count, stream); });
        return n;
    }
    // vswprintf gives no length on overflow, and a text that cannot be formatted fails the same
    // way: a dry run tells the two apart, so that a failing text still writes nothing at all.
    if (formatInPieces(nullptr, format, args) < 0) return -1;
    return formatInPieces(stream, format, args);
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
    if (stat(path, &info) != 0) return errno == ENOMEM ? -1 : 0;
    return S_ISDIR(info.st_mode) ? 2 : 1;
}

int pathKindW(const wchar_t* path) {
    // A name that does not convert names nothing; one that ran out of memory says nothing.
    int kind = withNarrowName(path, -1, [](const char* narrow) { return pathKind(narrow); });
    return kind < 0 && errno != ENOMEM ? 0 : kind;
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

int syncFileW(const wchar_t* path) {
    int result = withNarrowName(path, -1, [](const char* narrow) {
        int fd = open(narrow, O_WRONLY);
        if (fd < 0) return errno;
        int synced = fsync(fd) == 0 ? 0 : errno;
        close(fd);
        return synced;
    });
    return result < 0 ? errno : result;
}

int syncFile(FILE* file) {
    if (fflush(file) != 0) return errno;
    return fsync(fileno(file)) == 0 ? 0 : errno;
}

int replaceFileW(const wchar_t* from, const wchar_t* to) {
    char* narrowFrom = narrowName(from);
    if (narrowFrom == nullptr) return errno;
    int result = withNarrowName(to, -1, [narrowFrom](const char* narrowTo) {
        return rename(narrowFrom, narrowTo) == 0 ? 0 : errno;
    });
    if (result < 0) result = errno;
    krInternal::freeBlock(narrowFrom);
    return result;
}

int getEnvW(const wchar_t* name, wchar_t*& value) {
    value = nullptr;
    char* narrow = narrowName(name);
    if (narrow == nullptr) return errno == ENOMEM ? ENOMEM : 0;
    const char* text = getenv(narrow);
    krInternal::freeBlock(narrow);
    if (text == nullptr) return 0;
    size_t length = krInternal::localeLength<wchar_t>(text);
    if (length == krInternal::kNoLocaleForm) return 0;
    value = krInternal::localeCopy<wchar_t>(text, length);
    return value == nullptr ? ENOMEM : 0;
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

// --- Large blocks (kr_image) ---

void adviseLargeBlock(void* p, size_t bytes) {
#if defined(MADV_HUGEPAGE)
    const uintptr_t huge = uintptr_t(1) << 21;
    const uintptr_t start = (reinterpret_cast<uintptr_t>(p) + huge - 1) & ~(huge - 1);
    const uintptr_t end = (reinterpret_cast<uintptr_t>(p) + bytes) & ~(huge - 1);
    if (start < end) madvise(reinterpret_cast<void*>(start), end - start, MADV_HUGEPAGE);
#else
    (void)p;
    (void)bytes;
#endif
}

// --- Modules and the environment (kr_dllmanager) ---

int loadModule(const char* path, HMODULE& module) {
    module = nullptr;
    // dlopen looks a name without '/' up on the loader's search path; "./" keeps it here.
    char local[NAME_MAX + 3];
    const char* name = path;
    if (strchr(path, '/') == nullptr) {
        size_t length = strlen(path);
        if (length > NAME_MAX) return ENAMETOOLONG;
        memcpy(local, "./", 2);
        memcpy(local + 2, path, length + 1);
        name = local;
    }
    if (!reserveModuleSlot()) return ENOMEM;
    void* handle = dlopen(name, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        releaseEmptyModuleBook();
        return ENOEXEC;
    }
    ModuleLoads* known = findModule(handle);
    if (known != nullptr) {
        ++known->loads;
    } else {
        moduleBook[moduleBookUsed++] = ModuleLoads{handle, 1};
    }
    module = handle;
    return 0;
}

bool freeModule(HMODULE module) {
    ModuleLoads* known = findModule(module);
    if (known == nullptr || dlclose(module) != 0) return false;
    if (--known->loads == 0) {
        *known = moduleBook[--moduleBookUsed];
        releaseEmptyModuleBook();
    }
    return true;
}

FARPROC resolveProc(HMODULE module, const char* name) {
    if (findModule(module) == nullptr) return nullptr;
    return reinterpret_cast<FARPROC>(dlsym(module, name));
}

bool visitEnvironment(bool (*visit)(const char* entry, void* context), void* context) {
    if (environ == nullptr) return false;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (!visit(*entry, context)) break;
    }
    return true;
}

int putEnv(const char* assignment) {
    const char* equals = strchr(assignment, '=');
    if (equals == nullptr || equals == assignment) return EINVAL;
    // setenv wants the name as a text of its own; names are short, so the stack serves them.
    size_t length = static_cast<size_t>(equals - assignment);
    char local[256];
    char* name = local;
    if (length >= sizeof local) {
        name = static_cast<char*>(krInternal::allocBlock(length + 1));
        if (name == nullptr) return ENOMEM;
    }
    memcpy(name, assignment, length);
    name[length] = '\0';
    int result = equals[1] == '\0' ? unsetenv(name) : setenv(name, equals + 1, 1);
    int error = result == 0 ? 0 : errno;
    if (name != local) krInternal::freeBlock(name);
    return error;
}

int putEnvW(const wchar_t* assignment) {
    int result = withNarrowName(assignment, -1, [](const char* narrow) { return putEnv(narrow); });
    return result < 0 ? errno : result;
}

}  // namespace krPlatform

// --- Local time (kr_time) ---
namespace krPlatform {

bool utcToLocal(long long utcSeconds, WallClock& local) {
    const time_t t = static_cast<time_t>(utcSeconds);
    if (static_cast<long long>(t) != utcSeconds) return false;
    struct tm fields;
    if (localtime_r(&t, &fields) == nullptr) return false;
    local.year = fields.tm_year + 1900;
    local.month = static_cast<unsigned int>(fields.tm_mon + 1);
    local.day = static_cast<unsigned int>(fields.tm_mday);
    local.hour = static_cast<unsigned int>(fields.tm_hour);
    local.minute = static_cast<unsigned int>(fields.tm_min);
    local.second = static_cast<unsigned int>(fields.tm_sec);
    return true;
}

bool localToUtc(const WallClock& local, long long& utcSeconds) {
    struct tm fields = {};
    fields.tm_year = local.year - 1900;
    fields.tm_mon = static_cast<int>(local.month) - 1;
    fields.tm_mday = static_cast<int>(local.day);
    fields.tm_hour = static_cast<int>(local.hour);
    fields.tm_min = static_cast<int>(local.minute);
    fields.tm_sec = static_cast<int>(local.second);
    fields.tm_isdst = -1;
    // -1 is also the answer for 1969-12-31 23:59:59 UTC: mktime fills tm_wday only on success.
    fields.tm_wday = -1;
    const time_t t = mktime(&fields);
    if (t == static_cast<time_t>(-1) && fields.tm_wday < 0) return false;
    utcSeconds = static_cast<long long>(t);
    return true;
}

long long nowUnixMs() {
    struct timespec now;
    if (clock_gettime(CLOCK_REALTIME, &now) != 0) return 0;
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

}  // namespace krPlatform
