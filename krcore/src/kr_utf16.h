// kr_utf16.h — wide text as UTF-16LE code units, for everything that leaves the process.
// Packed strings, binary files and hashes see wide text as UTF-16 code units whatever the width
// of wchar_t, so data written on Windows (16-bit wchar_t) reads back on Linux (32-bit) and the
// reverse. Where wchar_t is 32-bit, characters beyond U+FFFF become surrogate pairs on the way out
// and pairs are joined again on the way in. Internal to the library.
#ifndef KRCORE_KR_UTF16_H
#define KRCORE_KR_UTF16_H

#include <stddef.h>
#include <wchar.h>

#include "kr_endian.h"

namespace krInternal {

// The character written for a wide value that is no Unicode code point (above U+10FFFF).
constexpr unsigned long kUtf16Replacement = 0xFFFD;

// UTF-16 code units needed for the first count characters of text (no terminator counted).
inline size_t utf16Length(const wchar_t* text, size_t count) {
    if constexpr (sizeof(wchar_t) == 2) {
        return count;
    } else {
        size_t units = 0;
        for (size_t i = 0; i < count; ++i) {
            unsigned long c = static_cast<unsigned long>(static_cast<unsigned int>(text[i]));
            units += (c > 0xFFFF && c <= 0x10FFFF) ? 2 : 1;
        }
        return units;
    }
}

// Writes one UTF-16 unit, little-endian.
inline unsigned char* putUtf16Unit(unsigned char* out, unsigned long unit) {
    storeLe(out, static_cast<unsigned short>(unit & 0xFFFF));
    return out + 2;
}

// Writes the first count characters of text as UTF-16LE at out (2 * utf16Length bytes) and
// answers the number of bytes written. Lone surrogates pass through unchanged.
inline size_t writeUtf16LE(const wchar_t* text, size_t count, unsigned char* out) {
    unsigned char* start = out;
    for (size_t i = 0; i < count; ++i) {
        unsigned long c = static_cast<unsigned long>(text[i]);
        if constexpr (sizeof(wchar_t) == 2) {
            c &= 0xFFFF;
        } else {
            c &= 0xFFFFFFFFUL;
            if (c > 0x10FFFF) c = kUtf16Replacement;
            if (c > 0xFFFF) {
                c -= 0x10000;
                out = putUtf16Unit(out, 0xD800 + (c >> 10));
                c = 0xDC00 + (c & 0x3FF);
            }
        }
        out = putUtf16Unit(out, c);
    }
    return static_cast<size_t>(out - start);
}

// Reads units UTF-16LE code units at in into out, which must hold units characters; answers
// the number of characters stored (fewer than units when surrogate pairs were joined). A
// surrogate without its partner is stored as it stands.
inline size_t readUtf16LE(const unsigned char* in, size_t units, wchar_t* out) {
    size_t stored = 0;
    for (size_t i = 0; i < units; ++i) {
        unsigned long c = loadLe<unsigned short>(in + 2 * i);
        if constexpr (sizeof(wchar_t) > 2) {
            if (c >= 0xD800 && c <= 0xDBFF && i + 1 < units) {
                unsigned long low = loadLe<unsigned short>(in + 2 * i + 2);
                if (low >= 0xDC00 && low <= 0xDFFF) {
                    c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
                    ++i;
                }
            }
        }
        out[stored++] = static_cast<wchar_t>(c);
    }
    return stored;
}

}  // namespace krInternal

#endif  // KRCORE_KR_UTF16_H
