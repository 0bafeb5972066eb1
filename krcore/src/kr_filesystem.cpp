// kr_filesystem.cpp — the path and directory functions of either width.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "kr_alloc.h"
#include "kr_file.h"
#include "kr_fileshared.h"
#include "kr_platform.h"
#include "kr_report.h"
#include "kr_str.h"
#include "kr_textbuffer.h"

#define KRI_UNIT "src/kr_file"

namespace {

using krInternal::takeText;

const unsigned int kMaxTempAttempts = 100;

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

// value := an environment variable as a heap text (free()), or null when it is not set. False
// when memory ran out: the variable may well be set.
bool getEnvOf(const char* name, char*& value) {
    const char* text = getenv(name);
    value = krInternal::dupText(text);
    return text == nullptr || value != nullptr;
}

bool getEnvOf(const wchar_t* name, wchar_t*& value) {
    return krPlatform::getEnvW(name, value) != ENOMEM;
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
        Char* value = nullptr;
        if (!getEnvOf(variable, value)) return KRI_FAIL(KR_RET_ERR_MEM);
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
        if (error == ENOMEM) return KRI_FAIL(KR_RET_ERR_MEM);
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
    if (kind < 0) return KRI_FAIL(KR_RET_ERR_MEM);
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
    // root and a drive name ("C:") are never created (or even looked at) when a parent exists.
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
        if (here < 0) status = KRI_FAIL(KR_RET_ERR_MEM);
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
        if (error == EEXIST) {
            // Made meanwhile by someone else: fine when it is a directory.
            int here = pathKindOf(text);
            error = here == 2 ? 0 : here < 0 ? ENOMEM : EEXIST;
        }
        KR_RET_STATUS status = KR_RET_TRUE;
        if (error == ENOMEM) {
            status = KRI_FAIL(KR_RET_ERR_MEM);
        } else if (error != 0) {
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
    Char* list = nullptr;
    if (!getEnvOf(envVar, list)) return KRI_FAIL(KR_RET_ERR_MEM);
    if (list == nullptr) return KR_RET_FALSE;
    const Char separator = Char(krPlatform::pathListSeparator());
    KR_RET_STATUS status = KR_RET_FALSE;
    for (const Char* entry = list; *entry != Char(0) && status == KR_RET_FALSE;) {
        const Char* end = entry;
        while (*end != Char(0) && *end != separator)
            ++end;
        if (end > entry) {
            krInternal::TextBuffer<Char> candidate;
            bool joined = joinPath(candidate, entry, static_cast<size_t>(end - entry), fileName);
            int kind = joined ? pathKindOf(candidate.text()) : -1;
            if (kind < 0) {
                status = KRI_FAIL(KR_RET_ERR_MEM);
            } else if (kind == 1) {
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

// 1 when path names something that exists (a directory when asked for one). A test that ran
// out of memory answers 0 and reports KR_RET_ERR_MEM, the last status code callers can look at.
template <class Char>
unsigned char pathIs(const Char* path, bool directory) {
    KR_setUserError(0);
    if (path == nullptr || path[0] == Char(0)) return 0;
    int kind = pathKindOf(path);
    if (kind < 0) {
        KRI_FAIL(KR_RET_ERR_MEM);
        return 0;
    }
    return directory ? kind == 2 : kind != 0;
}

template <class Char>
KR_RET_STATUS removeImpl(const Char* path) {
    KR_setUserError(0);
    if (path == nullptr || path[0] == Char(0)) return KRI_FAIL(KR_RET_ERR_ARG);
    int kind = pathKindOf(path);
    if (kind < 0) return KRI_FAIL(KR_RET_ERR_MEM);
    if (kind == 0) return KR_RET_FALSE;
    int error = removePathOf(path);
    if (error == ENOMEM) return KRI_FAIL(KR_RET_ERR_MEM);
    if (error != 0) return KRI_FAIL_PATH(KR_RET_ERR_FILE, "KR_fileRemove: cannot remove", path);
    return KR_RET_TRUE;
}

}  // namespace

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
