// kr_fileascii.cpp — the text file: formatted output, characters of either width, lines.
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include "kr_alloc.h"
#include "kr_file.h"
#include "kr_fileshared.h"
#include "kr_locale.h"
#include "kr_report.h"
#include "kr_str.h"
#include "kr_textbuffer.h"

#define KRI_UNIT "src/kr_file"

namespace {

using krInternal::takeText;

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

}  // namespace

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
    // On overflow vswprintf answers -1 with glibc, so the buffer grows until the text fits; the
    // MinGW runtime answers the full length of the text it cut off, which then sizes the buffer.
    wchar_t local[256];
    wchar_t* text = local;
    size_t size = sizeof local / sizeof local[0];
    int n = -1;
    for (;;) {
        va_list args;
        va_start(args, format);
        n = vswprintf(text, size, format, args);
        va_end(args);
        if (n >= 0 && static_cast<size_t>(n) < size) break;
        if (n < 0 && size >= (size_t{1} << 24)) break;
        if (text != local) krInternal::freeBlock(text);
        size = n >= 0 ? static_cast<size_t>(n) + 1 : size * 4;
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
