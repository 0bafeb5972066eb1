// fuzz_image.cpp — the BMP loader over any bytes: a load either succeeds with a consistent image
// that saves and loads back the same, or fails and leaves the previous image untouched.
#include <string.h>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    krfuzz::start();
    if (size > (1u << 20)) return 0;
    KR_Bitmap bmp(1, 1);
    KR_RET_STATUS st = bmp.loadMem(data, static_cast<unsigned int>(size));
    if (st != KR_RET_TRUE) {
        // Refused: the 1 x 1 transparent black image is still there.
        const unsigned char* p = bmp.getPixels();
        if (bmp.getWidth() != 1 || bmp.getHeight() != 1 || p == nullptr || p[3] != 0) abort();
        return 0;
    }
    const unsigned int w = bmp.getWidth(), h = bmp.getHeight();
    if (w == 0 || h == 0 || bmp.getPixels() == nullptr) abort();
    // A loaded image saves as 32 bits and loads back byte for byte.
    KR_Memory saved;
    if (bmp.saveMem(saved, 32) != KR_RET_TRUE) return 0;  // memory may run out for a big image
    KR_Bitmap back;
    if (back.loadMem(saved.memPtr(), saved.memSize()) != KR_RET_TRUE) abort();
    if (back.getWidth() != w || back.getHeight() != h) abort();
    const unsigned char* a = bmp.getPixels();
    const unsigned char* b = back.getPixels();
    // An image whose alpha is zero everywhere loads back opaque; compare the colours then.
    bool anyAlpha = false;
    for (size_t i = 3; i < static_cast<size_t>(w) * h * 4; i += 4)
        anyAlpha |= a[i] != 0;
    for (size_t i = 0; i < static_cast<size_t>(w) * h * 4; ++i) {
        if (a[i] != b[i] && (anyAlpha || i % 4 != 3)) abort();
    }
    return 0;
}
