// kr_image.cpp — KR_Bitmap: its pixels, copying, pixel access, loading files and saving BMPs.
#include "kr_image.h"

#include <string.h>

#include "kr_alloc.h"
#include "kr_endian.h"
#include "kr_file.h"
#include "kr_imagebmp.h"
#include "kr_report.h"

#define KRI_UNIT "src/kr_image"

namespace {

using krInternal::storeLe;

const unsigned int kMaxSide = 32768;
const unsigned long long kMaxPixels = 1ull << 28;
const long long kMaxFileSize = 1ll << 30;
const int kDefaultPelsPerMeter = 2835;  // 72 dpi
const unsigned int kInfoHeader = 40;
const unsigned int kV4Header = 108;

inline unsigned long long rowBytes(unsigned int width, unsigned int bitCount) {
    return (static_cast<unsigned long long>(width) * bitCount + 31) / 32 * 4;
}

inline unsigned int headerBytes(unsigned int bitCount) {
    return 14 + (bitCount == 32 ? kV4Header : kInfoHeader);
}

}  // namespace

// --- the writer ---

namespace krInternal {

unsigned long long bmpFileSize(unsigned int width, unsigned int height, unsigned int bitCount) {
    return headerBytes(bitCount) + rowBytes(width, bitCount) * height;
}

void writeBmp(const unsigned char* pixels,
              unsigned int width,
              unsigned int height,
              unsigned int bitCount,
              int xPelsPerMeter,
              int yPelsPerMeter,
              unsigned char* out) {
    const unsigned int offBits = headerBytes(bitCount);
    const unsigned long long stride = rowBytes(width, bitCount);
    out[0] = 'B';
    out[1] = 'M';
    storeLe(out + 2, static_cast<unsigned int>(offBits + stride * height));
    storeLe(out + 10, offBits);
    unsigned char* info = out + 14;
    storeLe(info, bitCount == 32 ? kV4Header : kInfoHeader);
    storeLe(info + 4, width);
    storeLe(info + 8, height);
    storeLe(info + 12, static_cast<unsigned short>(1));
    storeLe(info + 14, static_cast<unsigned short>(bitCount));
    storeLe(info + 16, bitCount == 32 ? 3u : 0u);
    storeLe(info + 20, static_cast<unsigned int>(stride * height));
    storeLe(info + 24, static_cast<unsigned int>(xPelsPerMeter));
    storeLe(info + 28, static_cast<unsigned int>(yPelsPerMeter));
    if (bitCount == 32) {
        storeLe(info + 40, 0x00FF0000u);
        storeLe(info + 44, 0x0000FF00u);
        storeLe(info + 48, 0x000000FFu);
        storeLe(info + 52, 0xFF000000u);
        storeLe(info + 56, 0x73524742u);  // LCS_sRGB; the end points and gammas stay 0
    }
    const size_t inStride = static_cast<size_t>(width) * 4;
    for (unsigned int k = 0; k < height; ++k) {
        const unsigned char* in = pixels + static_cast<size_t>(height - 1 - k) * inStride;
        unsigned char* row = out + offBits + static_cast<size_t>(k) * stride;
        if (bitCount == 32) {
            for (unsigned int x = 0; x < width; ++x, in += 4, row += 4) {
                row[0] = in[2];
                row[1] = in[1];
                row[2] = in[0];
                row[3] = in[3];
            }
        } else {
            for (unsigned int x = 0; x < width; ++x, in += 4, row += 3) {
                row[0] = in[2];
                row[1] = in[1];
                row[2] = in[0];
            }
        }
    }
}

}  // namespace krInternal

// --- KR_Bitmap ---

KR_Bitmap::KR_Bitmap() {
    KR_setUserError(0);
    initDataMembers();
}

KR_Bitmap::KR_Bitmap(unsigned int width, unsigned int height) {
    KR_setUserError(0);
    if (KRI_FAILED(initDataMembers())) return;
    if (KRI_FAILED(create(width, height))) initialised_ = 0;
}

KR_Bitmap::KR_Bitmap(const KR_Bitmap& other) : KR_KorvaneClass(other) {
    KR_setUserError(0);
    if (KRI_FAILED(initDataMembers())) return;
    if (!other.initialised_) {
        initialised_ = 0;
        KRI_FAIL(KR_RET_ERR_POBJ);
        return;
    }
    if (KRI_FAILED(copyFrom(other))) initialised_ = 0;
}

KR_Bitmap::~KR_Bitmap() {
    KR_setUserError(0);
    cleanupDataMembers();
}

KR_Bitmap& KR_Bitmap::operator=(const KR_Bitmap& other) {
    KR_setUserError(0);
    if (!initialised_ || !other.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return *this;
    }
    if (&other != this) copyFrom(other);
    return *this;
}

KR_RET_STATUS KR_Bitmap::copyFrom(const KR_Bitmap& other) {
    unsigned char* block = nullptr;
    // The source's block is read only; KR_Memory offers its pointer through a non-const member.
    KR_Memory& source = const_cast<KR_Memory&>(other.pixels_);
    const size_t bytes = static_cast<size_t>(other.width_) * other.height_ * 4;
    if (bytes > 0) {
        block = static_cast<unsigned char*>(krInternal::allocBlock(bytes));
        if (block == nullptr)
            return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Bitmap allocation", KR_msg(0, 1));
        memcpy(block, source.memPtr(), bytes);
    }
    adopt(block, other.width_, other.height_);
    sourceBitCount_ = other.sourceBitCount_;
    xPelsPerMeter_ = other.xPelsPerMeter_;
    yPelsPerMeter_ = other.yPelsPerMeter_;
    return KR_RET_TRUE;
}

void KR_Bitmap::adopt(unsigned char* block, unsigned int width, unsigned int height) {
    pixels_.memFree();
    pixels_.memSet(block, width * height * 4);
    width_ = width;
    height_ = height;
}

KR_RET_STATUS KR_Bitmap::create(unsigned int width, unsigned int height) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if ((width == 0) != (height == 0) || width > kMaxSide || height > kMaxSide ||
        static_cast<unsigned long long>(width) * height > kMaxPixels)
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Bitmap size: ", "%u x %u\n", width, height);
    unsigned char* block = nullptr;
    if (width != 0) {
        block = static_cast<unsigned char*>(
                krInternal::allocZeroed(static_cast<size_t>(width) * height, 4));
        if (block == nullptr)
            return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Bitmap allocation", KR_msg(0, 1));
    }
    adopt(block, width, height);
    sourceBitCount_ = 32;
    return KR_RET_TRUE;
}

template <class Char>
KR_RET_STATUS KR_Bitmap::loadNamed(const Char* name) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    KR_FileBinary file;
    KR_RET_STATUS status = file.open(name, KR_FILE_MODE_READ);
    if (KRI_FAILED(status)) return status;
    long long size = 0;
    status = file.getSize(size);
    if (KRI_FAILED(status)) return status;
    if (size > kMaxFileSize)
        return KRI_FAIL_MSG(KR_RET_ERR_NSUP, "KR_Bitmap: unsupported BMP: ", "%s\n",
                            "file over 1 GiB");
    void* data = krInternal::allocBlock(size > 0 ? static_cast<size_t>(size) : 1);
    if (data == nullptr) return KRI_FAIL_MSG(KR_RET_ERR_MEM, "KR_Bitmap allocation", KR_msg(0, 1));
    unsigned int count = 0;
    status = file.restoreBlock(data, static_cast<unsigned int>(size), count);
    if (!KRI_FAILED(status)) status = loadMem(data, static_cast<unsigned int>(size));
    krInternal::freeBlock(data);
    return status;
}

KR_RET_STATUS KR_Bitmap::load(const char* name) {
    return loadNamed(name);
}

KR_RET_STATUS KR_Bitmap::load(const wchar_t* name) {
    return loadNamed(name);
}

KR_RET_STATUS KR_Bitmap::loadMem(const void* data, unsigned int size) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (data == nullptr && size > 0)
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Bitmap load: ", "null data\n");
    if (data == nullptr) return KR_RET_FALSE;
    krInternal::BmpImage image;
    unsigned char* current = static_cast<unsigned char*>(pixels_.memPtr());
    KR_RET_STATUS status = krInternal::readBmp(static_cast<const unsigned char*>(data), size,
                                               current, pixels_.memSize(), image);
    if (status != KR_RET_TRUE) return status;
    if (image.pixels != current) {
        adopt(image.pixels, image.width, image.height);
    } else {
        width_ = image.width;
        height_ = image.height;
    }
    sourceBitCount_ = image.bitCount;
    xPelsPerMeter_ = image.xPelsPerMeter;
    yPelsPerMeter_ = image.yPelsPerMeter;
    return KR_RET_TRUE;
}

template <class Char>
KR_RET_STATUS KR_Bitmap::saveNamed(const Char* name, unsigned int bitCount) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    KR_Memory bytes;
    KR_RET_STATUS status = saveMem(bytes, bitCount);
    if (KRI_FAILED(status)) return status;
    KR_FileBinary file;
    status = file.open(name, KR_FILE_MODE_WRITE);
    if (KRI_FAILED(status)) return status;
    unsigned int count = 0;
    status = file.persistBlock(bytes.memPtr(), bytes.memSize(), count);
    KR_RET_STATUS closed = file.close();
    if (KRI_FAILED(status)) return status;
    return KRI_FAILED(closed) ? closed : KR_RET_TRUE;
}

KR_RET_STATUS KR_Bitmap::save(const char* name, unsigned int bitCount) {
    return saveNamed(name, bitCount);
}

KR_RET_STATUS KR_Bitmap::save(const wchar_t* name, unsigned int bitCount) {
    return saveNamed(name, bitCount);
}

KR_RET_STATUS KR_Bitmap::saveMem(KR_Memory& out, unsigned int bitCount) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (bitCount != 24 && bitCount != 32)
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Bitmap save: ", "bit count %u\n", bitCount);
    if (width_ == 0) return KRI_FAIL_MSG(KR_RET_ERR_CALL, "KR_Bitmap save: ", "empty bitmap\n");
    // At most 2^28 pixels of 4 bytes and a header: the size fits 32 bits.
    unsigned long long size = krInternal::bmpFileSize(width_, height_, bitCount);
    KR_RET_STATUS status = out.memGet(static_cast<unsigned int>(size));
    if (KRI_FAILED(status)) return status;
    krInternal::writeBmp(static_cast<const unsigned char*>(pixels_.memPtr()), width_, height_,
                         bitCount, xPelsPerMeter_, yPelsPerMeter_,
                         static_cast<unsigned char*>(out.memPtr()));
    return KR_RET_TRUE;
}

unsigned char* KR_Bitmap::getPixels() {
    KR_setUserError(0);
    return initialised_ ? static_cast<unsigned char*>(pixels_.memPtr()) : nullptr;
}

KR_RET_STATUS KR_Bitmap::getResolution(int& xPelsPerMeter, int& yPelsPerMeter) const {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    xPelsPerMeter = xPelsPerMeter_;
    yPelsPerMeter = yPelsPerMeter_;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Bitmap::setResolution(int xPelsPerMeter, int yPelsPerMeter) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    xPelsPerMeter_ = xPelsPerMeter;
    yPelsPerMeter_ = yPelsPerMeter;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Bitmap::checkPixel(unsigned int x, unsigned int y, int line) const {
    if (!initialised_) return krInternal::failAt(KR_RET_ERR_POBJ, KRI_UNIT, line);
    const bool xBad = x >= width_;
    if (!xBad && y < height_) return KR_RET_TRUE;
    unsigned int limit = xBad ? width_ : height_;
    KR_reportErrorMsg(KRI_UNIT, line, "KR_Bitmap: pixel access", KR_msg(0, 3),
                      static_cast<int>(xBad ? x : y), 0, static_cast<int>(limit) - 1);
    return krInternal::failAt(KR_RET_ERR_ARG, KRI_UNIT, line);
}

KR_RET_STATUS KR_Bitmap::getPixel(unsigned int x, unsigned int y, KR_RGBA& colour) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkPixel(x, y, __LINE__);
    if (KRI_FAILED(status)) return status;
    const unsigned char* p = static_cast<unsigned char*>(pixels_.memPtr()) +
                             (static_cast<size_t>(y) * width_ + x) * 4;
    colour = KR_RGBA::fromBytes(p[0], p[1], p[2], p[3]);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Bitmap::setPixel(unsigned int x, unsigned int y, const KR_RGBA& colour) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkPixel(x, y, __LINE__);
    if (KRI_FAILED(status)) return status;
    colour.toBytes(static_cast<unsigned char*>(pixels_.memPtr()) +
                   (static_cast<size_t>(y) * width_ + x) * 4);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Bitmap::initDataMembers() {
    initialised_ = 0;
    width_ = 0;
    height_ = 0;
    sourceBitCount_ = 0;
    xPelsPerMeter_ = kDefaultPelsPerMeter;
    yPelsPerMeter_ = kDefaultPelsPerMeter;
    if (!pixels_.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_POBJ);
    initialised_ = 1;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Bitmap::cleanupDataMembers() {
    if (!initialised_) return KR_RET_FALSE;
    pixels_.memFree();
    width_ = 0;
    height_ = 0;
    initialised_ = 0;
    return KR_RET_TRUE;
}
