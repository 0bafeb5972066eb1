// kr_platform.h — every call that differs between Windows and POSIX, behind one interface.
// No other unit of the library tests the platform; it calls these instead. kr_platform_posix.cpp
// and kr_platform_win.cpp implement it, and the build compiles the one for its target.
#ifndef KRCORE_KR_PLATFORM_H
#define KRCORE_KR_PLATFORM_H

#include <stdarg.h>
#include <stdio.h>
#include <wchar.h>

#include "kr_dllmanager.h"

namespace krPlatform {

// Writes wide text to a C stream so that it interleaves with narrow text on that stream: on
// POSIX converted to the locale's multibyte text (unconvertible characters as '?') and written
// narrow, on Windows with the runtime's wide output. Allocates nothing.
void writeWide(FILE* stream, const wchar_t* text);
// Wide formatted output to a C stream, as writeWide writes. Negative on a formatting failure.
// Allocates nothing: on POSIX a message longer than the stack buffer is formatted and converted
// in pieces, with the same bytes as in one piece.
int printWide(FILE* stream, const wchar_t* format, va_list args);
// Wide text and a wide character to the process's standard output: std::wcout on Windows, the
// multibyte conversion through std::cout on POSIX.
void coutWide(const wchar_t* text);
void coutWide(wchar_t c);

// --- Files and paths (kr_file) ---
// fopen with a narrow or a wide name; mode is a narrow fopen mode. On POSIX a wide name goes
// through the locale's multibyte conversion (a name that does not convert fails, errno EILSEQ);
// Windows uses _wfopen. The stream is switched to unbuffered: the file classes buffer themselves.
// A failure leaves errno set, ENOMEM when memory ran out (on POSIX also converting the name).
FILE* openFile(const char* name, const char* mode);
FILE* openFileW(const wchar_t* name, const char* mode);
// Absolute seek with 64-bit offsets; 0 on success.
int seekFile(FILE* file, long long pos);
// Size of the open file as the file system has it; -1 on failure.
long long fileSize(FILE* file);
// 0: nothing there, 1: a file or anything else that is not a directory, 2: a directory;
// -1 when memory ran out (on POSIX also while converting a wide name), so nothing is known.
int pathKind(const char* path);
int pathKindW(const wchar_t* path);
// The functions below that answer an errno value answer ENOMEM when memory ran out, also while
// converting a wide name on POSIX; the callers tell that apart from a refusal of the file system.
// Creates one directory (its parent must exist); 0, or the errno value.
int makeDir(const char* path);
int makeDirW(const wchar_t* path);
// Creates a new empty file and fails with EEXIST when anything is there; 0, or the errno value.
int createNewFile(const char* path);
int createNewFileW(const wchar_t* path);
// Removes a file or an empty directory; 0, or the errno value.
int removePath(const char* path);
int removePathW(const wchar_t* path);
// Makes the file's contents durable: they reach the disk before this returns (fsync on POSIX,
// FlushFileBuffers on Windows). 0, or the errno value (on Windows EACCES or EIO).
int syncFileW(const wchar_t* path);
// The same for a file open as a C stream: what the stream holds is written first. 0, or the errno
// value.
int syncFile(FILE* file);
// Renames the file from to the name to in one step, replacing a file of that name: a reader
// finds either the old file or the new one, never a part. Both names must be on one volume.
// POSIX rename; Windows MoveFileExW with MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH.
// 0, or the errno value (on Windows EACCES for every refusal other than a missing file).
int replaceFileW(const wchar_t* from, const wchar_t* to);
// value := a wide environment variable as a new heap text (krInternal allocator, free()), or null
// when it is not set or does not convert. 0, or ENOMEM (value null) when memory ran out.
int getEnvW(const wchar_t* name, wchar_t*& value);
// The platform's directory for temporary files when no variable names one, without a trailing
// separator ("/tmp" on POSIX, GetTempPath on Windows). False when it does not fit into size.
bool defaultTempDir(char* buffer, size_t size);
bool defaultTempDirW(wchar_t* buffer, size_t size);
// ':' on POSIX, ';' on Windows: separates the directories of a PATH-like variable.
char pathListSeparator();
// '/' on POSIX, '\\' on Windows: what the library puts between a directory and a name.
char pathSeparator();
unsigned long processId();

// True where the runtime runs a wide command line itself (_wsystem on Windows); elsewhere the
// caller converts the command to multibyte text and uses system().
bool systemTakesWide();
// _wsystem where systemTakesWide(); -1 elsewhere.
int systemWide(const wchar_t* command);

// --- Modules and the environment (kr_dllmanager) ---
// module := the module file at path, loaded, and nothing else: a bare name is taken from the
// current directory, never from the loader's search path, and on Windows no ".dll" is added to a
// name without extension. 0; ENOMEM when memory ran out; another errno value when the module
// cannot be loaded. module is null unless the answer is 0.
int loadModule(const char* path, HMODULE& module);
// Undoes one loadModule; false when the platform refuses. A handle whose loads are all undone
// already is refused harmlessly on every platform (FreeLibrary's behaviour; on POSIX the layer
// keeps count itself, since dlclose on such a handle is undefined).
bool freeModule(HMODULE module);
// The function name exported by module; null when there is none or the module's loads are all
// undone.
FARPROC resolveProc(HMODULE module, const char* name);
// Calls visit(entry, context) for every "name=value" entry of the process's narrow environment,
// in the order of its block, until visit answers false. False when there is no block to visit.
bool visitEnvironment(bool (*visit)(const char* entry, void* context), void* context);
// Sets or, for "name=" with nothing after the '=', removes a variable, as the runtime's _putenv
// and _wputenv do. 0, or an errno value (EINVAL for a text that is no assignment).
int putEnv(const char* assignment);
int putEnvW(const wchar_t* assignment);

}  // namespace krPlatform

// --- Local time (kr_time) ---
namespace krPlatform {

// A civil date and time of day as the platform's zone conversions take and give it.
struct WallClock {
    int year;
    unsigned int month;  // 1..12
    unsigned int day;
    unsigned int hour;
    unsigned int minute;
    unsigned int second;
};

// local := the host zone's wall clock at utcSeconds (Unix seconds), with the zone rules of that
// year: localtime_r on POSIX (64-bit time_t on every target), SystemTimeToTzSpecificLocalTime
// with the dynamic zone's rules for that year (GetTimeZoneInformationForYear) on Windows. False
// when the platform cannot convert it; the caller keeps the range to 1601..9999, which every
// platform converts.
bool utcToLocal(long long utcSeconds, WallClock& local);
// utcSeconds := the UTC instant of the host zone's wall clock local: mktime with tm_isdst -1 on
// POSIX, TzSpecificLocalTimeToSystemTime with the year's rules on Windows, each resolving a skipped
// or repeated local time its own way. False when the platform cannot convert it.
bool localToUtc(const WallClock& local, long long& utcSeconds);
// Milliseconds since 1970-01-01 00:00 UTC by the system's real-time clock.
long long nowUnixMs();

}  // namespace krPlatform

#endif  // KRCORE_KR_PLATFORM_H
