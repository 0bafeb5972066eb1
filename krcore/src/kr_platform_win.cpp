// kr_platform_win.cpp — the platform calls on Windows, and the module's load entry.
#include <direct.h>
#include <errno.h>
#include <fcntl.h>
#include <io.h>
#include <process.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <windows.h>

#include <iostream>

#include "kr_alloc.h"
#include "kr_platform.h"

namespace {

// Widens an ASCII fopen mode ("rb", "r+b", ...).
void wideMode(const char* mode, wchar_t* out, size_t size) {
    size_t i = 0;
    for (; mode[i] != '\0' && i + 1 < size; ++i)
        out[i] = static_cast<wchar_t>(mode[i]);
    out[i] = L'\0';
}

}  // namespace

namespace krPlatform {

void writeWide(FILE* stream, const wchar_t* text) {
    if (stream == nullptr || text == nullptr) return;
    fputws(text, stream);
}

int printWide(FILE* stream, const wchar_t* format, va_list args) {
    if (stream == nullptr || format == nullptr) return -1;
    return vfwprintf(stream, format, args);
}

void coutWide(const wchar_t* text) {
    if (text != nullptr) std::wcout << text;
}

void coutWide(wchar_t c) {
    std::wcout << c;
}

// --- Files and paths (kr_file) ---

FILE* openFile(const char* name, const char* mode) {
    FILE* file = fopen(name, mode);
    if (file != nullptr) setvbuf(file, nullptr, _IONBF, 0);
    return file;
}

FILE* openFileW(const wchar_t* name, const char* mode) {
    wchar_t wmode[8];
    wideMode(mode, wmode, 8);
    FILE* file = _wfopen(name, wmode);
    if (file != nullptr) setvbuf(file, nullptr, _IONBF, 0);
    return file;
}

int seekFile(FILE* file, long long pos) {
    return _fseeki64(file, pos, SEEK_SET);
}

long long fileSize(FILE* file) {
    return _filelengthi64(_fileno(file));
}

int pathKind(const char* path) {
    struct _stat64 info;
    if (_stat64(path, &info) != 0) return errno == ENOMEM ? -1 : 0;
    return (info.st_mode & _S_IFDIR) != 0 ? 2 : 1;
}

int pathKindW(const wchar_t* path) {
    struct _stat64 info;
    if (_wstat64(path, &info) != 0) return errno == ENOMEM ? -1 : 0;
    return (info.st_mode & _S_IFDIR) != 0 ? 2 : 1;
}

int makeDir(const char* path) {
    return _mkdir(path) == 0 ? 0 : errno;
}

int makeDirW(const wchar_t* path) {
    return _wmkdir(path) == 0 ? 0 : errno;
}

int createNewFile(const char* path) {
    int fd = _open(path, _O_CREAT | _O_EXCL | _O_WRONLY | _O_BINARY, _S_IREAD | _S_IWRITE);
    if (fd < 0) return errno;
    _close(fd);
    return 0;
}

int createNewFileW(const wchar_t* path) {
    int fd = _wopen(path, _O_CREAT | _O_EXCL | _O_WRONLY | _O_BINARY, _S_IREAD | _S_IWRITE);
    if (fd < 0) return errno;
    _close(fd);
    return 0;
}

int removePath(const char* path) {
    if (pathKind(path) == 2) return _rmdir(path) == 0 ? 0 : errno;
    return remove(path) == 0 ? 0 : errno;
}

int removePathW(const wchar_t* path) {
    if (pathKindW(path) == 2) return _wrmdir(path) == 0 ? 0 : errno;
    return _wremove(path) == 0 ? 0 : errno;
}

int syncFileW(const wchar_t* path) {
    HANDLE file = CreateFileW(path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return EACCES;
    int synced = FlushFileBuffers(file) ? 0 : EIO;
    CloseHandle(file);
    return synced;
}

int syncFile(FILE* file) {
    if (fflush(file) != 0) return EIO;
    HANDLE handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(file)));
    if (handle == INVALID_HANDLE_VALUE) return EACCES;
    return FlushFileBuffers(handle) ? 0 : EIO;
}

int replaceFileW(const wchar_t* from, const wchar_t* to) {
    if (MoveFileExW(from, to, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) return 0;
    switch (GetLastError()) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
            return ENOENT;
        case ERROR_NOT_ENOUGH_MEMORY:
        case ERROR_OUTOFMEMORY:
            return ENOMEM;
        default:
            return EACCES;
    }
}

int getEnvW(const wchar_t* name, wchar_t*& value) {
    const wchar_t* text = _wgetenv(name);
    value = krInternal::dupTextW(text);
    return text != nullptr && value == nullptr ? ENOMEM : 0;
}

bool defaultTempDir(char* buffer, size_t size) {
    DWORD n = GetTempPathA(static_cast<DWORD>(size), buffer);
    if (n == 0 || n >= size) return false;
    while (n > 1 && (buffer[n - 1] == '\\' || buffer[n - 1] == '/'))
        buffer[--n] = '\0';
    return true;
}

bool defaultTempDirW(wchar_t* buffer, size_t size) {
    DWORD n = GetTempPathW(static_cast<DWORD>(size), buffer);
    if (n == 0 || n >= size) return false;
    while (n > 1 && (buffer[n - 1] == L'\\' || buffer[n - 1] == L'/'))
        buffer[--n] = L'\0';
    return true;
}

char pathListSeparator() {
    return ';';
}

char pathSeparator() {
    return '\\';
}

unsigned long processId() {
    return static_cast<unsigned long>(_getpid());
}

bool systemTakesWide() {
    return true;
}

int systemWide(const wchar_t* command) {
    return _wsystem(command);
}

// --- Large blocks (kr_image) ---

void adviseLargeBlock(void*, size_t) {
    // Large pages need a privilege that processes do not hold by default: nothing to ask.
}

// --- Modules and the environment (kr_dllmanager) ---

int loadModule(const char* path, HMODULE& module) {
    module = nullptr;
    // LoadLibraryA looks a name without a directory up on the loader's search path and adds
    // ".dll" to a name without extension: ".\\" before a bare name and a trailing "." (which
    // the loader drops again) keep it to the file itself.
    size_t length = strlen(path);
    char local[MAX_PATH + 4];
    if (length > MAX_PATH) return ENAMETOOLONG;
    const char* base = path;
    for (const char* p = path; *p != '\0'; ++p) {
        if (*p == '/' || *p == '\\' || *p == ':') base = p + 1;
    }
    size_t at = 0;
    if (base == path) {
        memcpy(local, ".\\", 2);
        at = 2;
    }
    memcpy(local + at, path, length);
    at += length;
    if (strchr(base, '.') == nullptr) local[at++] = '.';
    local[at] = '\0';
    module = LoadLibraryA(local);
    return module != nullptr ? 0 : ENOEXEC;
}

bool freeModule(HMODULE module) {
    return FreeLibrary(module) != 0;
}

FARPROC resolveProc(HMODULE module, const char* name) {
    return GetProcAddress(module, name);
}

bool visitEnvironment(bool (*visit)(const char* entry, void* context), void* context) {
    char* block = GetEnvironmentStringsA();
    if (block == nullptr) return false;
    for (const char* entry = block; *entry != '\0'; entry += strlen(entry) + 1) {
        if (!visit(entry, context)) break;
    }
    FreeEnvironmentStringsA(block);
    return true;
}

int putEnv(const char* assignment) {
    return _putenv(assignment) == 0 ? 0 : errno;
}

int putEnvW(const wchar_t* assignment) {
    return _wputenv(assignment) == 0 ? 0 : errno;
}

}  // namespace krPlatform

// The module's load entry does nothing of the library's: start-up is explicit through KR_init.
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) DisableThreadLibraryCalls(instance);
    return TRUE;
}

// --- Local time (kr_time) ---
namespace krPlatform {

namespace {

// FILETIME ticks of 1970-01-01 00:00 UTC.
const long long kUnixEpochTicks = 116444736000000000LL;

// The host zone's rules for one year. GetTimeZoneInformation gives this year's rules, and a
// conversion with them would move Berlin in 1975 by two hours instead of one; the dynamic zone
// gives each year its own. This is what the ...Ex conversions do, which not every Windows layer
// provides (Wine 8 has none).
bool zoneOfYear(unsigned int year, TIME_ZONE_INFORMATION& zone) {
    DYNAMIC_TIME_ZONE_INFORMATION dynamic;
    if (GetDynamicTimeZoneInformation(&dynamic) == TIME_ZONE_ID_INVALID) return false;
    return GetTimeZoneInformationForYear(static_cast<USHORT>(year), &dynamic, &zone) != 0;
}

}  // namespace

bool utcToLocal(long long utcSeconds, WallClock& local) {
    if (utcSeconds < -kUnixEpochTicks / 10000000) return false;
    const unsigned long long ticks =
            static_cast<unsigned long long>(utcSeconds * 10000000LL + kUnixEpochTicks);
    FILETIME fileTime;
    fileTime.dwLowDateTime = static_cast<DWORD>(ticks);
    fileTime.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    SYSTEMTIME utc, wall;
    TIME_ZONE_INFORMATION zone;
    if (!FileTimeToSystemTime(&fileTime, &utc) || !zoneOfYear(utc.wYear, zone)) return false;
    if (!SystemTimeToTzSpecificLocalTime(&zone, &utc, &wall)) return false;
    local.year = wall.wYear;
    local.month = wall.wMonth;
    local.day = wall.wDay;
    local.hour = wall.wHour;
    local.minute = wall.wMinute;
    local.second = wall.wSecond;
    return true;
}

bool localToUtc(const WallClock& local, long long& utcSeconds) {
    if (local.year < 1601 || local.year > 30827) return false;
    SYSTEMTIME wall = {};
    wall.wYear = static_cast<WORD>(local.year);
    wall.wMonth = static_cast<WORD>(local.month);
    wall.wDay = static_cast<WORD>(local.day);
    wall.wHour = static_cast<WORD>(local.hour);
    wall.wMinute = static_cast<WORD>(local.minute);
    wall.wSecond = static_cast<WORD>(local.second);
    TIME_ZONE_INFORMATION zone;
    SYSTEMTIME utc;
    FILETIME fileTime;
    if (!zoneOfYear(wall.wYear, zone) || !TzSpecificLocalTimeToSystemTime(&zone, &wall, &utc) ||
        !SystemTimeToFileTime(&utc, &fileTime)) {
        return false;
    }
    const unsigned long long ticks =
            (static_cast<unsigned long long>(fileTime.dwHighDateTime) << 32) |
            fileTime.dwLowDateTime;
    utcSeconds = (static_cast<long long>(ticks) - kUnixEpochTicks) / 10000000;
    return true;
}

long long nowUnixMs() {
    FILETIME fileTime;
    GetSystemTimeAsFileTime(&fileTime);
    const unsigned long long ticks =
            (static_cast<unsigned long long>(fileTime.dwHighDateTime) << 32) |
            fileTime.dwLowDateTime;
    return (static_cast<long long>(ticks) - kUnixEpochTicks) / 10000;
}

}  // namespace krPlatform
