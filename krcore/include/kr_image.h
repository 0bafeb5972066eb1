// kr_image.h — colour records with their conversions, and device-independent bitmaps.
// Five colour models (RGBA, CMYA, YIQA, HSVA, HLSA) are plain records of doubles; KR_colorConvert
// turns any one into any other through RGBA and carries alpha unchanged. KR_Bitmap loads Windows
// BMP files (or their bytes in memory) into a top-down RGBA image and saves 24- or 32-bit BMPs.
//   KR_HSVA hsv(0.75, 1, 1);  KR_RGBA rgb;  KR_colorConvert(hsv, rgb)  ->  rgb = (0.5, 0, 1, 1)
#ifndef KRCORE_KR_IMAGE_H
#define KRCORE_KR_IMAGE_H

#include "kr_base.h"
#include "kr_mem.h"
#include "kr_reporter.h"

// Colour conversions are pure value operations: they neither report nor clear the user error,
// and they follow IEEE double arithmetic. Every component's nominal range is [0, 1]; hue is a
// fraction of a turn, read modulo 1 (h = -0.25 is h = 0.75, h = 1 is h = 0), and I and Q reach
// about +-0.6. The formulas are those of Python's colorsys and the results agree with it within
// a rounding (1e-12); the only difference is that a hue outside [0, 1) is wrapped first.
// Defined edges:
// - CMY is 1 - RGB per channel, without clamping.
// - YIQ to RGB clamps each channel to [0, 1]; a NaN channel stays NaN.
// - From HSV or HLS: a NaN or infinite h, s or v (l) gives NaN in r, g and b.
// - To HSV or HLS: a NaN or infinite r, g or b gives NaN in h, s and v (l); a grey (max = min)
//   gives h = 0 and s = 0.
// - Alpha is copied as it is, whatever its value.

// KR_RGBA — red, green, blue and alpha. Default: opaque black (0, 0, 0, 1).
struct KR_API KR_RGBA {
    double r, g, b, a;

    KR_RGBA() : r(0.0), g(0.0), b(0.0), a(1.0) {}

    KR_RGBA(double rv, double gv, double bv, double av = 1.0) : r(rv), g(gv), b(bv), a(av) {}

    // Each byte / 255.
    static KR_RGBA fromBytes(unsigned char rb,
                             unsigned char gb,
                             unsigned char bb,
                             unsigned char ab);
    // out = r, g, b, a as floor(v * 255 + 0.5) after clamping to [0, 1]; NaN gives 0, +inf 255.
    void toBytes(unsigned char out[4]) const;

    // Exact per component (NaN never equals anything).
    bool operator==(const KR_RGBA& o) const { return r == o.r && g == o.g && b == o.b && a == o.a; }

    bool operator!=(const KR_RGBA& o) const { return !(*this == o); }

    // Every component within tol (false when a component is NaN).
    bool isNear(const KR_RGBA& o, double tol) const;
};

// KR_CMYA — cyan, magenta, yellow (1 - RGB) and alpha. Default: opaque black (1, 1, 1, 1).
struct KR_API KR_CMYA {
    double c, m, y, a;

    KR_CMYA() : c(1.0), m(1.0), y(1.0), a(1.0) {}

    KR_CMYA(double cv, double mv, double yv, double av = 1.0) : c(cv), m(mv), y(yv), a(av) {}

    bool operator==(const KR_CMYA& o) const { return c == o.c && m == o.m && y == o.y && a == o.a; }

    bool operator!=(const KR_CMYA& o) const { return !(*this == o); }

    bool isNear(const KR_CMYA& o, double tol) const;
};

// KR_YIQA — luma, the two chroma axes of NTSC, and alpha. Default: opaque black (0, 0, 0, 1).
struct KR_API KR_YIQA {
    double y, i, q, a;

    KR_YIQA() : y(0.0), i(0.0), q(0.0), a(1.0) {}

    KR_YIQA(double yv, double iv, double qv, double av = 1.0) : y(yv), i(iv), q(qv), a(av) {}

    bool operator==(const KR_YIQA& o) const { return y == o.y && i == o.i && q == o.q && a == o.a; }

    bool operator!=(const KR_YIQA& o) const { return !(*this == o); }

    bool isNear(const KR_YIQA& o, double tol) const;
};

// KR_HSVA — hue, saturation, value and alpha. Default: opaque black (0, 0, 0, 1).
struct KR_API KR_HSVA {
    double h, s, v, a;

    KR_HSVA() : h(0.0), s(0.0), v(0.0), a(1.0) {}

    KR_HSVA(double hv, double sv, double vv, double av = 1.0) : h(hv), s(sv), v(vv), a(av) {}

    bool operator==(const KR_HSVA& o) const { return h == o.h && s == o.s && v == o.v && a == o.a; }

    bool operator!=(const KR_HSVA& o) const { return !(*this == o); }

    // Component-wise, hue included (0.999 and 0.001 are not near).
    bool isNear(const KR_HSVA& o, double tol) const;
};

// KR_HLSA — hue, lightness, saturation and alpha. Default: opaque black (0, 0, 0, 1).
struct KR_API KR_HLSA {
    double h, l, s, a;

    KR_HLSA() : h(0.0), l(0.0), s(0.0), a(1.0) {}

    KR_HLSA(double hv, double lv, double sv, double av = 1.0) : h(hv), l(lv), s(sv), a(av) {}

    bool operator==(const KR_HLSA& o) const { return h == o.h && l == o.l && s == o.s && a == o.a; }

    bool operator!=(const KR_HLSA& o) const { return !(*this == o); }

    bool isNear(const KR_HLSA& o, double tol) const;
};

// Every ordered pair of models, the identity included; pairs without RGBA pass through it.
KR_API void KR_colorConvert(const KR_RGBA& in, KR_RGBA& out);
KR_API void KR_colorConvert(const KR_RGBA& in, KR_CMYA& out);
KR_API void KR_colorConvert(const KR_RGBA& in, KR_YIQA& out);
KR_API void KR_colorConvert(const KR_RGBA& in, KR_HSVA& out);
KR_API void KR_colorConvert(const KR_RGBA& in, KR_HLSA& out);
KR_API void KR_colorConvert(const KR_CMYA& in, KR_RGBA& out);
KR_API void KR_colorConvert(const KR_CMYA& in, KR_CMYA& out);
KR_API void KR_colorConvert(const KR_CMYA& in, KR_YIQA& out);
KR_API void KR_colorConvert(const KR_CMYA& in, KR_HSVA& out);
KR_API void KR_colorConvert(const KR_CMYA& in, KR_HLSA& out);
KR_API void KR_colorConvert(const KR_YIQA& in, KR_RGBA& out);
KR_API void KR_colorConvert(const KR_YIQA& in, KR_CMYA& out);
KR_API void KR_colorConvert(const KR_YIQA& in, KR_YIQA& out);
KR_API void KR_colorConvert(const KR_YIQA& in, KR_HSVA& out);
KR_API void KR_colorConvert(const KR_YIQA& in, KR_HLSA& out);
KR_API void KR_colorConvert(const KR_HSVA& in, KR_RGBA& out);
KR_API void KR_colorConvert(const KR_HSVA& in, KR_CMYA& out);
KR_API void KR_colorConvert(const KR_HSVA& in, KR_YIQA& out);
KR_API void KR_colorConvert(const KR_HSVA& in, KR_HSVA& out);
KR_API void KR_colorConvert(const KR_HSVA& in, KR_HLSA& out);
KR_API void KR_colorConvert(const KR_HLSA& in, KR_RGBA& out);
KR_API void KR_colorConvert(const KR_HLSA& in, KR_CMYA& out);
KR_API void KR_colorConvert(const KR_HLSA& in, KR_YIQA& out);
KR_API void KR_colorConvert(const KR_HLSA& in, KR_HSVA& out);
KR_API void KR_colorConvert(const KR_HLSA& in, KR_HLSA& out);

// KR_Bitmap — a width x height image of 8-bit RGBA pixels, rows top-down without padding
// (stride = width * 4), owned by the bitmap and copied deeply.
//
// Reading accepts BMP files with a 40-, 52-, 56-, 108- (V4) or 124-byte (V5) info header at 1,
// 4, 8, 16, 24 and 32 bits per pixel, bottom-up or top-down, uncompressed or with bit masks.
// Every size and offset is checked against the bytes present before anything is allocated.
// Statuses: not a BMP (no "BM", or fewer than 18 bytes) KR_RET_FALSE without a report; a damaged
// file KR_RET_ERR_FILE ("KR_Bitmap: corrupt BMP" with the reason); a variant not read (RLE,
// embedded JPEG or PNG, the 12-byte OS/2 header, beyond 32768 pixels a side or 2^28 pixels)
// KR_RET_ERR_NSUP ("KR_Bitmap: unsupported BMP"); memory KR_RET_ERR_MEM. A failed load leaves
// the bitmap as it was. How the format's loose ends are read:
// - 32 bits without masks are B, G, R and an unused byte: the image is opaque.
// - 16 bits without masks are 5-5-5; with masks (5-6-5 and any other) as for 32 bits.
// - Masks for R, G and B must be non-zero, contiguous, disjoint and inside the pixel's bits.
//   An alpha mask that is none of these, or overlaps them, is ignored (opaque). A channel of
//   w bits is scaled to 8 as round(v * 255 / (2^w - 1)) below 8 bits, v >> (w - 8) above.
// - An alpha channel that is zero in every pixel was not filled in: the image loads opaque.
// - The palette holds clrUsed entries (2^bpp when 0, at most 2^bpp), and never reaches into
//   the pixel data: only the entries before bfOffBits count. Palette colours are opaque; an
//   index past the palette gives opaque black.
// - Pixel data that starts inside the headers is damage; bfSize and sizeImage are ignored.
//
// Saving is always bottom-up with rows padded to 4 bytes: 24 bits (BITMAPINFOHEADER, alpha
// dropped) or 32 bits (a V4 header with B, G, R, A masks, so alpha survives). The bytes written
// are the same on every platform.
class KR_API KR_Bitmap : public KR_KorvaneClass {
public:
    KR_Bitmap();
    // create(width, height); not initialised when that fails.
    KR_Bitmap(unsigned int width, unsigned int height);
    KR_Bitmap(const KR_Bitmap& other);
    ~KR_Bitmap() override;
    // A deep copy; on failure (reported) this bitmap is unchanged.
    KR_Bitmap& operator=(const KR_Bitmap& other);

    // A transparent black image. Both sizes 0 give the empty bitmap; a single 0, a side beyond
    // 32768 or more than 2^28 pixels: KR_RET_ERR_ARG. On failure the bitmap is unchanged.
    KR_RET_STATUS create(unsigned int width, unsigned int height);

    // Reads the whole file and loads it as loadMem does; files over 1 GiB: KR_RET_ERR_NSUP.
    KR_RET_STATUS load(const char* name);
    KR_RET_STATUS load(const wchar_t* name);
    // Null data with a size: KR_RET_ERR_ARG.
    KR_RET_STATUS loadMem(const void* data, unsigned int size);

    // bitCount 24 or 32, else KR_RET_ERR_ARG; an empty bitmap: KR_RET_ERR_CALL. A failed saveMem
    // leaves out empty (for a refused argument or call, unchanged).
    KR_RET_STATUS save(const char* name, unsigned int bitCount);
    KR_RET_STATUS save(const wchar_t* name, unsigned int bitCount);
    KR_RET_STATUS saveMem(KR_Memory& out, unsigned int bitCount);

    unsigned int getWidth() const { return width_; }

    unsigned int getHeight() const { return height_; }

    unsigned int getStride() const { return width_ * 4; }

    // R, G, B, A bytes, rows top-down; null when empty. The bitmap keeps ownership.
    unsigned char* getPixels();

    // The bits per pixel of the last file loaded; 32 after create, 0 when never set.
    unsigned int getSourceBitCount() const { return sourceBitCount_; }

    // Pixels per metre; 2835 (72 dpi) unless a loaded file said otherwise.
    KR_RET_STATUS getResolution(int& xPelsPerMeter, int& yPelsPerMeter) const;
    KR_RET_STATUS setResolution(int xPelsPerMeter, int yPelsPerMeter);

    // x, y outside the image: KR_RET_ERR_ARG, reported with the coordinate. setPixel stores the
    // colour as toBytes rounds it.
    KR_RET_STATUS getPixel(unsigned int x, unsigned int y, KR_RGBA& colour);
    KR_RET_STATUS setPixel(unsigned int x, unsigned int y, const KR_RGBA& colour);

    unsigned char objIsEnabled() const { return initialised_; }

private:
    KR_RET_STATUS initDataMembers();
    KR_RET_STATUS cleanupDataMembers();
    // Takes block (width * height * 4 bytes from the allocation seam) as the new pixels.
    void adopt(unsigned char* block, unsigned int width, unsigned int height);
    KR_RET_STATUS copyFrom(const KR_Bitmap& other);
    KR_RET_STATUS checkPixel(unsigned int x, unsigned int y, int line) const;
    template <class Char>
    KR_RET_STATUS loadNamed(const Char* name);
    template <class Char>
    KR_RET_STATUS saveNamed(const Char* name, unsigned int bitCount);

    unsigned char initialised_;
    unsigned int width_;   // 0 exactly when height_ is 0
    unsigned int height_;  //
    KR_Memory pixels_;     // width_ * height_ * 4 bytes
    unsigned int sourceBitCount_;
    int xPelsPerMeter_;
    int yPelsPerMeter_;
};

#endif  // KRCORE_KR_IMAGE_H
