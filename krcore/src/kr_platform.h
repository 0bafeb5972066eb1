// kr_platform.h — every call that differs between Windows and POSIX, behind one interface.
// No other unit of the library tests the platform; it calls these instead.
#ifndef KRCORE_KR_PLATFORM_H
#define KRCORE_KR_PLATFORM_H

#include <stdarg.h>
#include <stdio.h>
#include <wchar.h>

namespace krPlatform {

// Writes wide text to a C stream so that it interleaves with narrow text on that stream: on
// POSIX converted to the locale's multibyte text (unconvertible characters as '?') and written
// narrow, on Windows with the runtime's wide output. Allocates nothing.
void writeWide(FILE* stream, const wchar_t* text);
// Wide formatted output to a C stream, as writeWide writes. Negative on a formatting failure.
// Messages longer than a few thousand characters take a heap buffer on POSIX.
int printWide(FILE* stream, const wchar_t* format, va_list args);
// Wide text and a wide character to the process's standard output: std::wcout on Windows, the
// multibyte conversion through std::cout on POSIX.
void coutWide(const wchar_t* text);
void coutWide(wchar_t c);

}  // namespace krPlatform

#endif  // KRCORE_KR_PLATFORM_H
