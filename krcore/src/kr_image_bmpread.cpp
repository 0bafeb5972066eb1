// kr_image_bmpread.cpp — decoding BMP bytes: the header checks, then one pixel loop per layout.
#include <limits.h>
#include <string.h>

#include "kr_alloc.h"
#include "kr_endian.h"
#include "kr_imagebmp.h"
#include "kr_platform.h"
#include "kr_report.h"

#define KRI_UNIT "src/kr_image"

namespace {

using krInternal::loadLe;

const unsigned int kFileHeaderSize = 14;
const unsigned int kMaxSide = 32768;
const unsigned long long kMaxPixels = 1ull << 28;

enum Compression {
    kRgb = 0,
    kRle8 = 1,
    kRle4 = 2,
    kBitfields = 3,
    kJpeg = 4,
    kPng = 5,
    kAlphaBitfields = 6
};

KR_RET_STATUS corrupt(const char* reason, unsigned int line) {
    KR_reportErrorMsg(KRI_UNIT, line, "KR_Bitmap: corrupt BMP: ", "%s\n", reason);
    return krInternal::failAt(KR_RET_ERR_FILE, KRI_UNIT, line);
}

KR_RET_STATUS unsupported(const char* reason, unsigned int line) {
    KR_reportErrorMsg(KRI_UNIT, line, "KR_Bitmap: unsupported BMP: ", "%s\n", reason);
    return krInternal::failAt(KR_RET_ERR_NSUP, KRI_UNIT, line);
}

// One channel of a masked pixel: table[(pixel >> shift) & mask]. Wider than 8 bits, the shift
// also drops the low bits and the table is the identity.
struct Channel {
    unsigned int shift;
    unsigned int mask;
    unsigned char table[256];
};

inline unsigned int lowestBit(unsigned int m) {
    unsigned int n = 0;
    while ((m & 1u) == 0) {
        m >>= 1;
        ++n;
    }
    return n;
}

// A non-zero mask whose bits are one run.
inline bool contiguous(unsigned int m) {
    if (m == 0) return false;
    unsigned long long run = m >> lowestBit(m);
    return (run & (run + 1)) == 0;
}

void makeChannel(unsigned int m, Channel& c) {
    unsigned int shift = lowestBit(m);
    unsigned int width = 0;
    for (unsigned long long run = m >> shift; run != 0; run >>= 1)
        ++width;
    if (width >= 8) {
        c.shift = shift + (width - 8);
        c.mask = 0xFF;
        for (unsigned int v = 0; v < 256; ++v)
            c.table[v] = static_cast<unsigned char>(v);
        return;
    }
    c.shift = shift;
    c.mask = (1u << width) - 1;
    for (unsigned int v = 0; v <= c.mask; ++v) {
        c.table[v] = static_cast<unsigned char>((v * 510u + c.mask) / (2u * c.mask));
    }
}

inline unsigned char channelOf(const Channel& c, unsigned int pixel) {
    return c.table[(pixel >> c.shift) & c.mask];
}

// What the header checks found: everything the pixel loops need.
struct Layout {
    long long width;
    long long height;  // rows, positive
    bool topDown;
    unsigned int bitCount;
    unsigned int compression;
    unsigned long long stride;
    unsigned long long offBits;
    unsigned int masks[4];  // R, G, B, A; A may be 0
    unsigned char palette[256][4];
};

// Pixel loops: one file row into one image row of width R, G, B, A pixels.
void rowIndexed(const unsigned char* in, const Layout& l, unsigned char* out) {
    const unsigned int bits = l.bitCount;
    const unsigned int perByte = 8 / bits;
    const unsigned int mask = (1u << bits) - 1;
    long long x = 0;
    if (bits == 8) {
        for (; x < l.width; ++x, out += 4)
            memcpy(out, l.palette[in[x]], 4);
        return;
    }
    for (long long byte = 0; x < l.width; ++byte) {
        unsigned int v = in[byte];
        for (unsigned int k = 0; k < perByte && x < l.width; ++k, ++x, out += 4) {
            unsigned int index = (v >> (8 - bits * (k + 1))) & mask;
            memcpy(out, l.palette[index], 4);
        }
    }
}

void row24(const unsigned char* in, long long width, unsigned char* out) {
    for (long long x = 0; x < width; ++x, in += 3, out += 4) {
        out[0] = in[2];
        out[1] = in[1];
        out[2] = in[0];
        out[3] = 255;
    }
}

// 32 bits as B, G, R and either alpha or an unused byte; answers the OR of the alphas.
unsigned int row32(const unsigned char* in, long long width, bool alpha, unsigned char* out) {
    unsigned int any = 0;
    const unsigned char keep = alpha ? 0xFF : 0, set = alpha ? 0 : 0xFF;
    for (long long x = 0; x < width; ++x, in += 4, out += 4) {
        out[0] = in[2];
        out[1] = in[1];
        out[2] = in[0];
        unsigned char a = static_cast<unsigned char>((in[3] & keep) | set);
        out[3] = a;
        any |= a;
    }
    return any & keep;
}

unsigned int rowMasked(const unsigned char* in,
                       long long width,
                       unsigned int bytes,
                       const Channel* ch,
                       bool alpha,
                       unsigned char* out) {
    unsigned int any = 0;
    for (long long x = 0; x < width; ++x, in += bytes, out += 4) {
        unsigned int p = bytes == 2 ? loadLe<unsigned short>(in) : loadLe<unsigned int>(in);
        out[0] = channelOf(ch[0], p);
        out[1] = channelOf(ch[1], p);
        out[2] = channelOf(ch[2], p);
        unsigned char a = alpha ? channelOf(ch[3], p) : 255;
        out[3] = a;
        any |= a;
    }
    return any;
}

// Reads and checks the headers; on success l describes the pixels and the palette, and every
// byte they take lies inside size.
KR_RET_STATUS readLayout(const unsigned char* p, size_t size, Layout& l, int& xPels, int& yPels) {
    const unsigned long long infoSize = loadLe<unsigned int>(p + 14);
    if (infoSize == 12) return unsupported("OS/2 core header", __LINE__);
    if (infoSize != 40 && infoSize != 52 && infoSize != 56 && infoSize != 108 && infoSize != 124)
        return corrupt("unknown info header size", __LINE__);
    if (kFileHeaderSize + infoSize > size) return corrupt("truncated header", __LINE__);
    const unsigned char* info = p + kFileHeaderSize;
    const long long width = static_cast<int>(loadLe<unsigned int>(info + 4));
    const long long height = static_cast<int>(loadLe<unsigned int>(info + 8));
    const unsigned int planes = loadLe<unsigned short>(info + 12);
    l.bitCount = loadLe<unsigned short>(info + 14);
    l.compression = loadLe<unsigned int>(info + 16);
    xPels = static_cast<int>(loadLe<unsigned int>(info + 24));
    yPels = static_cast<int>(loadLe<unsigned int>(info + 28));
    unsigned long long clrUsed = loadLe<unsigned int>(info + 32);

    if (planes != 1) return corrupt("planes not 1", __LINE__);
    if (width < 1) return corrupt("width not positive", __LINE__);
    if (height == 0 || height == INT_MIN) return corrupt("height 0 or out of range", __LINE__);
    const unsigned int bpp = l.bitCount;
    if (bpp != 1 && bpp != 4 && bpp != 8 && bpp != 16 && bpp != 24 && bpp != 32)
        return corrupt("bit count", __LINE__);
    l.topDown = height < 0;
    l.width = width;
    l.height = l.topDown ? -height : height;
    const unsigned int comp = l.compression;
    const bool masked = comp == kBitfields || comp == kAlphaBitfields;
    if (l.topDown && comp != kRgb && !masked) return corrupt("compressed top-down", __LINE__);
    if (comp == kRle8 || comp == kRle4) return unsupported("RLE compression", __LINE__);
    if (comp == kJpeg || comp == kPng) return unsupported("embedded JPEG or PNG", __LINE__);
    if (comp != kRgb && !masked) return corrupt("unknown compression", __LINE__);
    if (masked && bpp != 16 && bpp != 32) return corrupt("bit masks at this bit count", __LINE__);
    if (l.width > kMaxSide || l.height > kMaxSide ||
        static_cast<unsigned long long>(l.width * l.height) > kMaxPixels)
        return unsupported("image too large", __LINE__);

    // The masks follow a 40-byte header; the longer headers carry them at the same place.
    unsigned long long headerEnd = kFileHeaderSize + infoSize;
    memset(l.masks, 0, sizeof l.masks);
    if (masked) {
        unsigned int count = comp == kAlphaBitfields ? 4 : 3;
        if (infoSize >= 56) count = 4;
        if (infoSize == 52) count = 3;
        if (infoSize == 40) headerEnd += 4ull * count;
        if (headerEnd > size) return corrupt("truncated bit masks", __LINE__);
        for (unsigned int k = 0; k < count; ++k)
            l.masks[k] = loadLe<unsigned int>(info + 40 + 4 * k);
    } else if (bpp == 16) {
        l.masks[0] = 0x7C00;
        l.masks[1] = 0x03E0;
        l.masks[2] = 0x001F;
    }

    l.offBits = loadLe<unsigned int>(p + 10);
    if (l.offBits < headerEnd) return corrupt("pixel data inside the headers", __LINE__);

    if (bpp <= 8) {
        // A palette never reaches into the pixel data, whatever clrUsed says.
        const unsigned long long most = 1ull << bpp;
        unsigned long long count = clrUsed == 0 || clrUsed > most ? most : clrUsed;
        if (count > (l.offBits - headerEnd) / 4) count = (l.offBits - headerEnd) / 4;
        if (count == 0) return corrupt("no palette", __LINE__);
        if (headerEnd + 4 * count > size) return corrupt("palette past the end", __LINE__);
        const unsigned char* entry = p + headerEnd;
        for (unsigned int k = 0; k < 256; ++k, entry += 4) {
            bool present = k < count;
            l.palette[k][0] = present ? entry[2] : 0;
            l.palette[k][1] = present ? entry[1] : 0;
            l.palette[k][2] = present ? entry[0] : 0;
            l.palette[k][3] = 255;
        }
    }

    l.stride = (static_cast<unsigned long long>(l.width) * bpp + 31) / 32 * 4;
    if (l.offBits + l.stride * static_cast<unsigned long long>(l.height) > size)
        return corrupt("truncated pixel data", __LINE__);

    if (bpp == 16 || (bpp == 32 && masked)) {
        const unsigned long long inside = bpp == 16 ? 0xFFFFull : 0xFFFFFFFFull;
        const unsigned int* m = l.masks;
        for (int k = 0; k < 3; ++k) {
            if (!contiguous(m[k]) || (m[k] & ~inside) != 0)
                return corrupt("colour bit masks", __LINE__);
        }
        if ((m[0] & m[1]) != 0 || (m[0] & m[2]) != 0 || (m[1] & m[2]) != 0)
            return corrupt("overlapping colour bit masks", __LINE__);
        // An alpha mask that cannot be one is ignored rather than refused: the colours are sound.
        if (!contiguous(m[3]) || (m[3] & ~inside) != 0 || (m[3] & (m[0] | m[1] | m[2])) != 0)
            l.masks[3] = 0;
    }
    return KR_RET_TRUE;
}

void decode(const unsigned char* p, const Layout& l, unsigned char* pixels) {
    const unsigned long long outStride = static_cast<unsigned long long>(l.width) * 4;
    const unsigned int* m = l.masks;
    const bool alpha = m[3] != 0;
    const bool masked = l.bitCount == 16 || (l.bitCount == 32 && l.compression != kRgb);
    const bool plain32 =
            l.bitCount == 32 && (!masked || (m[0] == 0xFF0000 && m[1] == 0xFF00 && m[2] == 0xFF &&
                                             (m[3] == 0 || m[3] == 0xFF000000u)));
    Channel channels[4];
    if (masked && !plain32) {
        for (int k = 0; k < (alpha ? 4 : 3); ++k)
            makeChannel(m[k], channels[k]);
    }
    unsigned int anyAlpha = 0;
    for (long long k = 0; k < l.height; ++k) {
        const unsigned char* in = p + l.offBits + static_cast<unsigned long long>(k) * l.stride;
        long long row = l.topDown ? k : l.height - 1 - k;
        unsigned char* out = pixels + static_cast<unsigned long long>(row) * outStride;
        if (l.bitCount <= 8) {
            rowIndexed(in, l, out);
        } else if (l.bitCount == 24) {
            row24(in, l.width, out);
        } else if (plain32) {
            anyAlpha |= row32(in, l.width, alpha, out);
        } else {
            anyAlpha |= rowMasked(in, l.width, l.bitCount / 8, channels, alpha, out);
        }
    }
    // A writer that declared alpha but left it zero everywhere meant an opaque image.
    if (alpha && anyAlpha == 0) {
        const unsigned long long count = static_cast<unsigned long long>(l.width) * l.height;
        for (unsigned long long i = 0; i < count; ++i)
            pixels[4 * i + 3] = 255;
    }
}

}  // namespace

namespace krInternal {

KR_RET_STATUS readBmp(const unsigned char* data,
                      size_t size,
                      unsigned char* reuse,
                      size_t reuseSize,
                      BmpImage& image) {
    if (size < 18 || data[0] != 'B' || data[1] != 'M') return KR_RET_FALSE;
    Layout layout;
    int xPels = 0, yPels = 0;
    KR_RET_STATUS status = readLayout(data, size, layout, xPels, yPels);
    if (KRI_FAILED(status)) return status;
    const size_t bytes = static_cast<size_t>(layout.width) * static_cast<size_t>(layout.height) * 4;
    // A block of the right size is overwritten in place: no allocation, and none of the page
    // faults of first touching a fresh one, which cost a large image as much as its decoding.
    unsigned char* pixels = reuse != nullptr && bytes == reuseSize
                                    ? reuse
                                    : static_cast<unsigned char*>(allocBlock(bytes));
    if (pixels == nullptr)
        return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Bitmap allocation", KR_msg(0, 1));
    if (pixels != reuse) krPlatform::adviseLargeBlock(pixels, bytes);
    decode(data, layout, pixels);
    image.pixels = pixels;
    image.width = static_cast<unsigned int>(layout.width);
    image.height = static_cast<unsigned int>(layout.height);
    image.bitCount = layout.bitCount;
    image.xPelsPerMeter = xPels;
    image.yPelsPerMeter = yPels;
    return KR_RET_TRUE;
}

}  // namespace krInternal
