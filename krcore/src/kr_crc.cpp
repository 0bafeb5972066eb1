// kr_crc.cpp — CRC-32 of zlib and PNG (reflected polynomial 0xEDB88320) for the record file.
// Two ways, one result: eight 256-entry tables, eight bytes per step, on any target; and, on x86
// processors with carry-less multiplication, folding 64 bytes per step with PCLMULQDQ (chosen
// once, at the first call). Bytes are taken one by one or as little-endian lanes, so the result
// does not depend on the target's byte order.
#include <stddef.h>

#include "kr_filebinrecfmt.h"

#if (defined(__x86_64__) || defined(__i386__)) && (defined(__GNUC__) || defined(__clang__))
#define KRI_CRC_FOLD 1
#include <emmintrin.h>
#include <wmmintrin.h>
#endif

namespace {

struct CrcTables {
    unsigned int t[8][256];

    CrcTables() {
        for (unsigned int i = 0; i < 256; ++i) {
            unsigned int c = i;
            for (int k = 0; k < 8; ++k)
                c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            t[0][i] = c;
        }
        for (unsigned int i = 0; i < 256; ++i) {
            for (int k = 1; k < 8; ++k)
                t[k][i] = (t[k - 1][i] >> 8) ^ t[0][t[k - 1][i] & 0xFF];
        }
    }
};

// The register form: crc is the running value without the final inversion.
unsigned int tableUpdate(unsigned int crc, const unsigned char* p, size_t size) {
    static const CrcTables tables;
    const unsigned int(*t)[256] = tables.t;
    for (; size >= 8; size -= 8, p += 8) {
        crc ^= p[0] | static_cast<unsigned int>(p[1]) << 8 | static_cast<unsigned int>(p[2]) << 16 |
               static_cast<unsigned int>(p[3]) << 24;
        crc = t[7][crc & 0xFF] ^ t[6][(crc >> 8) & 0xFF] ^ t[5][(crc >> 16) & 0xFF] ^
              t[4][crc >> 24] ^ t[3][p[4]] ^ t[2][p[5]] ^ t[1][p[6]] ^ t[0][p[7]];
    }
    for (; size > 0; --size, ++p)
        crc = t[0][(crc ^ *p) & 0xFF] ^ (crc >> 8);
    return crc;
}

#if defined(KRI_CRC_FOLD)

// Folding in the bit-reflected domain: x^(512+-32) and x^(512+32) mod P fold 64 bytes at once,
// x^(128-32) and x^(128+32) one 16-byte lane into the next, x^64 takes 96 bits to 64, and
// Barrett's reduction (P and floor(x^64 / P), both reflected) ends at 32. Needs size >= 64;
// folds size rounded down to 16 and answers how many bytes it took.
__attribute__((target("sse2,pclmul"))) size_t foldUpdate(unsigned int& crc,
                                                         const unsigned char* p,
                                                         size_t size) {
    const __m128i k1k2 = _mm_set_epi64x(0x01c6e41596LL, 0x0154442bd4LL);
    const __m128i k3k4 = _mm_set_epi64x(0x00ccaa009eLL, 0x01751997d0LL);
    const __m128i k5 = _mm_set_epi64x(0, 0x0163cd6124LL);
    const __m128i poly = _mm_set_epi64x(0x01f7011641LL, 0x01db710641LL);
    const __m128i low32 = _mm_setr_epi32(-1, 0, -1, 0);
    const unsigned char* start = p;

    __m128i x1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    __m128i x2 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16));
    __m128i x3 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 32));
    __m128i x4 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 48));
    x1 = _mm_xor_si128(x1, _mm_cvtsi32_si128(static_cast<int>(crc)));
    p += 64;
    size -= 64;
    for (; size >= 64; p += 64, size -= 64) {
        __m128i y1 = _mm_clmulepi64_si128(x1, k1k2, 0x00);
        __m128i y2 = _mm_clmulepi64_si128(x2, k1k2, 0x00);
        __m128i y3 = _mm_clmulepi64_si128(x3, k1k2, 0x00);
        __m128i y4 = _mm_clmulepi64_si128(x4, k1k2, 0x00);
        x1 = _mm_clmulepi64_si128(x1, k1k2, 0x11);
        x2 = _mm_clmulepi64_si128(x2, k1k2, 0x11);
        x3 = _mm_clmulepi64_si128(x3, k1k2, 0x11);
        x4 = _mm_clmulepi64_si128(x4, k1k2, 0x11);
        x1 = _mm_xor_si128(_mm_xor_si128(x1, y1),
                           _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
        x2 = _mm_xor_si128(_mm_xor_si128(x2, y2),
                           _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16)));
        x3 = _mm_xor_si128(_mm_xor_si128(x3, y3),
                           _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 32)));
        x4 = _mm_xor_si128(_mm_xor_si128(x4, y4),
                           _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 48)));
    }
    // Four lanes into one, then the remaining 16-byte lanes.
    const __m128i lanes[3] = {x2, x3, x4};
    for (const __m128i& next : lanes) {
        __m128i y = _mm_clmulepi64_si128(x1, k3k4, 0x00);
        x1 = _mm_xor_si128(_mm_xor_si128(_mm_clmulepi64_si128(x1, k3k4, 0x11), y), next);
    }
    for (; size >= 16; p += 16, size -= 16) {
        __m128i y = _mm_clmulepi64_si128(x1, k3k4, 0x00);
        x1 = _mm_xor_si128(_mm_xor_si128(_mm_clmulepi64_si128(x1, k3k4, 0x11), y),
                           _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
    }
    // 128 bits to 64, then Barrett to 32.
    __m128i y = _mm_clmulepi64_si128(x1, k3k4, 0x10);
    x1 = _mm_xor_si128(_mm_srli_si128(x1, 8), y);
    y = _mm_srli_si128(x1, 4);
    x1 = _mm_xor_si128(_mm_clmulepi64_si128(_mm_and_si128(x1, low32), k5, 0x00), y);
    y = _mm_clmulepi64_si128(_mm_and_si128(x1, low32), poly, 0x10);
    y = _mm_clmulepi64_si128(_mm_and_si128(y, low32), poly, 0x00);
    x1 = _mm_xor_si128(x1, y);
    crc = static_cast<unsigned int>(_mm_cvtsi128_si32(_mm_srli_si128(x1, 4)));
    return static_cast<size_t>(p - start);
}

bool canFold() {
    static const bool supported = __builtin_cpu_supports("pclmul") != 0;
    return supported;
}

#endif

}  // namespace

unsigned int krRecFile::crcUpdate(unsigned int crc, const void* data, size_t size) {
    const unsigned char* p = static_cast<const unsigned char*>(data);
    crc = ~crc;
#if defined(KRI_CRC_FOLD)
    if (size >= 64 && canFold()) {
        size_t used = foldUpdate(crc, p, size);
        p += used;
        size -= used;
    }
#endif
    return ~tableUpdate(crc, p, size);
}
