// kr_platform.h — every call that differs between Windows and POSIX, behind one interface.
// No other unit of the library tests the platform; it calls these instead. kr_platform_posix.cpp
// and kr_platform_win.cpp implement it, and the build compiles the one for its target.
#ifndef KRCORE_KR_PLATFORM_H
#define KRCORE_KR_PLATFORM_H

#include <stdarg.h>
#include <stdio.h>
#include <wchar.h>

#include <atomic>

#include "kr_dllmanager.h"
#include "kr_serialport.h"

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

// --- Large blocks (kr_image) ---
// Asks the system to back the whole 2 MiB pages inside [p, p + bytes) with huge pages, so that
// first writes into a fresh block of many megabytes take one fault per 2 MiB instead of per
// 4 KiB. Only advice: nothing happens where the system offers no such thing.
void adviseLargeBlock(void* p, size_t bytes);

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

// --- Serial ports (kr_serialport) ---
// One open port: the device, its saved settings and the event thread's state. The answers are
// 0, a system error (errno or GetLastError), or one of the negative kinds below. Every wait has
// a deadline: timeoutMs 0 takes what is there, KR_SERIAL_TIMEOUT_INFINITE waits without end.
namespace krPlatform {

struct SerialPort;

// The device is no serial port.
const int kSerialNotSerial = -1;
// The platform or the driver lacks the rate, mode or line asked for.
const int kSerialUnsupported = -2;
const int kSerialNoMemory = -3;

struct SerialSettings {
    unsigned int baudRate;
    unsigned char dataBits;
    unsigned char parity;
    unsigned char stopBits;
    unsigned char flow;
};

// How the event thread reaches its owner. event is called for every event in the mask; ended is
// the thread's last call (osError: what ended it, 0 for a stop), unless the port was orphaned.
// The thread reads stopRequested and nothing else of its owner.
struct SerialEventSink {
    void (*event)(void* context, const KR_SerialEvent& event);
    void (*ended)(void* context, int osError);
    void* context;
    const std::atomic<unsigned char>* stopRequested;
};

// port := the device opened for exclusive use with its settings saved; wide picks nameW (Windows
// only; POSIX opens the narrow name, which must then be there).
int serialOpen(const char* name, const wchar_t* nameW, bool wide, SerialPort*& port);
// Joins an event thread left, restores the saved settings, closes and frees.
void serialClose(SerialPort* port);
int serialApply(SerialPort* port, const SerialSettings& settings);
// got/written: the bytes moved before the deadline or the failure.
int serialRead(SerialPort* port,
               void* buffer,
               unsigned int size,
               unsigned int& got,
               unsigned int timeoutMs);
int serialWrite(SerialPort* port,
                const void* buffer,
                unsigned int size,
                unsigned int& written,
                unsigned int timeoutMs);
int serialQueued(SerialPort* port, unsigned int& count);
int serialDrain(SerialPort* port);
int serialPurge(SerialPort* port, bool rx, bool tx);
// line: 0 DTR, 1 RTS.
int serialSetLine(SerialPort* port, int line, bool on);
int serialModemLines(SerialPort* port, unsigned int& lines);
int serialBreak(SerialPort* port, unsigned int ms);
// Starts the event thread for the KR_SERIAL_EV_ bits of mask; pollMs paces the line events that
// can only be polled. kSerialNoMemory when the thread or its state cannot be made.
int serialStartEvents(SerialPort* port,
                      unsigned int mask,
                      unsigned int pollMs,
                      const SerialEventSink& sink);
// Wakes the event thread so that it sees stopRequested; never blocks.
void serialWakeEvents(SerialPort* port);
// Joins the event thread if one was started; false when there was none.
bool serialJoinEvents(SerialPort* port);
// True on the port's own event thread.
bool serialOnEventThread(const SerialPort* port);
// From the callback: the thread takes the port over and closes it when the callback returns; the
// owner forgets it. The sink is never called again.
void serialOrphan(SerialPort* port);
// names := count heap texts (krInternal allocator) naming the system's serial ports, in no
// order; the caller frees each and the block. 0, kSerialNoMemory or a system error.
int serialListPorts(char**& names, unsigned int& count);
// Appends a copy of device to the list of count names in a block of capacity, growing the block
// as needed: 0, or kSerialNoMemory with the list as it was.
int serialAddName(char**& names, unsigned int& count, unsigned int& capacity, const char* device);

}  // namespace krPlatform

#endif  // KRCORE_KR_PLATFORM_H
