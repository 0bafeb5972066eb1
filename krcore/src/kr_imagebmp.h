// kr_imagebmp.h — the BMP decoder behind KR_Bitmap's loaders, apart from the class so that the
// header checks and the pixel loops read on their own. Internal to the library.
#ifndef KRCORE_KR_IMAGEBMP_H
#define KRCORE_KR_IMAGEBMP_H

#include <stddef.h>

#include "kr_reporter.h"

namespace krInternal {

// A decoded image: width * height * 4 bytes R, G, B, A, rows top-down, from the allocation seam
// (the caller owns them).
struct BmpImage {
    unsigned char* pixels;
    unsigned int width;
    unsigned int height;
    unsigned int bitCount;
    int xPelsPerMeter;
    int yPelsPerMeter;
};

// Decodes size bytes at data with the statuses and reports of KR_Bitmap::loadMem. On success
// image holds the pixels: in reuse when the image takes exactly reuseSize bytes (nothing can
// fail once the headers are checked, so the caller's old pixels are overwritten only then),
// else in a new block. On any other answer nothing is allocated or written.
KR_RET_STATUS readBmp(const unsigned char* data,
                      size_t size,
                      unsigned char* reuse,
                      size_t reuseSize,
                      BmpImage& image);

// The bytes a BMP file of width x height pixels at bitCount (24 or 32) takes, header included.
unsigned long long bmpFileSize(unsigned int width, unsigned int height, unsigned int bitCount);
// Writes that file to out (bmpFileSize bytes, zero-filled beforehand: the padding is not
// written) from top-down R, G, B, A pixels.
void writeBmp(const unsigned char* pixels,
              unsigned int width,
              unsigned int height,
              unsigned int bitCount,
              int xPelsPerMeter,
              int yPelsPerMeter,
              unsigned char* out);

}  // namespace krInternal

#endif  // KRCORE_KR_IMAGEBMP_H
