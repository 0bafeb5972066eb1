// kr_platform.cpp — the Windows and POSIX forms of the platform calls.
#include "kr_platform.h"

#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <iostream>

#if defined(_WIN32)
#include <windows.h>
#endif

namespace {

#if !defined(_WIN32)
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
#endif

}  // namespace

namespace krPlatform {

#if defined(_WIN32)

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

#else

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

#endif

}  // namespace krPlatform

#if defined(_WIN32)
// The module's load entry does nothing of the library's: start-up is explicit through KR_init.
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) DisableThreadLibraryCalls(instance);
    return TRUE;
}
#endif
