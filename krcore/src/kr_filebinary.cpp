// kr_filebinary.cpp — the binary file: little-endian values, texts and blocks.
#include <limits.h>
#include <string.h>

#include <string>
#include <type_traits>

#include "kr_alloc.h"
#include "kr_endian.h"
#include "kr_file.h"
#include "kr_fileshared.h"
#include "kr_report.h"
#include "kr_utf16.h"

#define KRI_UNIT "src/kr_file"

namespace {

using krInternal::loadLe;
using krInternal::storeLe;

// The unsigned type of a value's width on disk: long takes 8 bytes on every platform.
template <class T>
using DiskBits = std::conditional_t<
        sizeof(T) == 1,
        unsigned char,
        std::conditional_t<sizeof(T) == 2,
                           unsigned short,
                           std::conditional_t<sizeof(T) == 4 && !std::is_same<T, long>::value &&
                                                      !std::is_same<T, unsigned long>::value,
                                              unsigned int,
                                              unsigned long long>>>;

static_assert(sizeof(float) == 4 && sizeof(double) == 8, "float and double must be IEEE");

}  // namespace

// --- KR_FileBinary ---

KR_FileBinary::KR_FileBinary() : KR_File() {}

KR_FileBinary::KR_FileBinary(const char* name, KR_FILE_MODE mode) : KR_File(name, mode) {}

KR_FileBinary::KR_FileBinary(const wchar_t* name, KR_FILE_MODE mode) : KR_File(name, mode) {}

KR_FileBinary::KR_FileBinary(const KR_FileBinary& other) : KR_File(other) {}

KR_FileBinary::~KR_FileBinary() {}

KR_FileBinary& KR_FileBinary::operator=(const KR_FileBinary& other) {
    KR_File::operator=(other);
    return *this;
}

template <class Unsigned>
KR_RET_STATUS KR_FileBinary::writeLe(Unsigned value, unsigned int& count) {
    unsigned char bytes[sizeof(Unsigned)];
    storeLe(bytes, value);
    KR_RET_STATUS status = writeBytes(bytes, sizeof bytes);
    if (KRI_FAILED(status)) return status;
    count += static_cast<unsigned int>(sizeof bytes);
    return KR_RET_TRUE;
}

template <class Unsigned>
KR_RET_STATUS KR_FileBinary::readLe(Unsigned& value, unsigned int& count) {
    unsigned char bytes[sizeof(Unsigned)];
    size_t got = 0;
    KR_RET_STATUS status = readBytes(bytes, sizeof bytes, got);
    if (KRI_FAILED(status)) return status;
    if (got < sizeof bytes)
        return KRI_FAIL_DATA(KR_RET_ERR_FILE, "KR_FileBinary: unexpected end of file");
    value = loadLe<Unsigned>(bytes);
    count += static_cast<unsigned int>(sizeof bytes);
    return KR_RET_TRUE;
}

template <class T>
KR_RET_STATUS KR_FileBinary::persistNumber(T value, unsigned int& count) {
    KR_setUserError(0);
    DiskBits<T> bits = 0;
    if constexpr (std::is_floating_point<T>::value) {
        memcpy(&bits, &value, sizeof bits);
    } else {
        bits = static_cast<DiskBits<T>>(value);  // negative values extend their sign
    }
    return writeLe(bits, count);
}

template <class T>
KR_RET_STATUS KR_FileBinary::restoreNumber(T& value, unsigned int& count) {
    KR_setUserError(0);
    DiskBits<T> bits = 0;
    unsigned int moved = 0;
    KR_RET_STATUS status = readLe(bits, moved);
    if (KRI_FAILED(status)) return status;
    if constexpr (std::is_floating_point<T>::value) {
        memcpy(&value, &bits, sizeof value);
    } else {
        if constexpr (sizeof(T) < sizeof bits && std::is_signed<T>::value) {  // 32-bit long
            long long wide = static_cast<long long>(bits);
            if (wide < LONG_MIN || wide > LONG_MAX) {
                return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_FileBinary: value out of range for long",
                                    "%lld\n", wide);
            }
        } else if constexpr (sizeof(T) < sizeof bits) {
            if (bits > ULONG_MAX) {
                return KRI_FAIL_MSG(KR_RET_ERR_ARG,
                                    "KR_FileBinary: value out of range for unsigned long", "%llu\n",
                                    bits);
            }
        }
        value = static_cast<T>(bits);
    }
    count += moved;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileBinary::persistVal(char value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(signed char value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(unsigned char value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(short value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(unsigned short value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(int value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(unsigned int value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(long value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(unsigned long value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(long long value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(unsigned long long value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(float value, unsigned int& count) {
    return persistNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(double value, unsigned int& count) {
    return persistNumber(value, count);
}

// Texts of either width: narrow texts are stored byte for byte, wide ones as UTF-16LE.
template <class Char>
KR_RET_STATUS KR_FileBinary::persistText(const Char* text,
                                         KR_STORAGE_TYPE storage,
                                         unsigned int& count) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    if (storage != KR_STORAGE_BINARY) return KRI_FAIL(KR_RET_ERR_ARG);
    const size_t unitSize = sizeof(Char) == 1 ? 1 : 2;
    size_t length = text == nullptr ? 0 : std::char_traits<Char>::length(text);
    size_t units = text == nullptr ? 0 : length + 1;
    if constexpr (sizeof(Char) > 1) {
        if (text != nullptr) units = krInternal::utf16Length(text, length) + 1;
    }
    // The count and the bytes must fit the 32-bit counters.
    if (units > (0xFFFFFFFFul - 4) / unitSize) return KRI_FAIL(KR_RET_ERR_ARG);
    unsigned int moved = 0;
    status = writeLe(static_cast<unsigned int>(units), moved);
    if (KRI_FAILED(status)) return status;
    if constexpr (sizeof(Char) == 1) {
        if (units > 0) status = writeBytes(text, units);
        if (KRI_FAILED(status)) return status;
    } else {
        // In pieces through a stack buffer: a character takes at most 4 bytes, and the
        // terminator (length + 1 characters) goes with the last piece.
        unsigned char chunk[512];
        const size_t kPiece = sizeof chunk / 4;
        for (size_t done = 0; text != nullptr && done <= length;) {
            size_t take = length + 1 - done;
            if (take > kPiece) take = kPiece;
            size_t bytes = krInternal::writeUtf16LE(text + done, take, chunk);
            status = writeBytes(chunk, bytes);
            if (KRI_FAILED(status)) return status;
            done += take;
        }
    }
    count += moved + static_cast<unsigned int>(units * unitSize);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileBinary::persistVal(const char* text,
                                        KR_STORAGE_TYPE storage,
                                        unsigned int& count) {
    return persistText(text, storage, count);
}

KR_RET_STATUS KR_FileBinary::persistVal(const wchar_t* text,
                                        KR_STORAGE_TYPE storage,
                                        unsigned int& count) {
    return persistText(text, storage, count);
}

KR_RET_STATUS KR_FileBinary::persistBlock(const void* data,
                                          unsigned int size,
                                          unsigned int& count) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    if (data == nullptr && size > 0) return KRI_FAIL(KR_RET_ERR_ARG);
    if (size == 0) return KR_RET_TRUE;
    status = writeBytes(data, size);
    if (KRI_FAILED(status)) return status;
    count += size;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileBinary::restoreVal(char& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(signed char& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(unsigned char& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(short& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(unsigned short& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(int& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(unsigned int& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(long& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(unsigned long& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(long long& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(unsigned long long& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(float& value, unsigned int& count) {
    return restoreNumber(value, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(double& value, unsigned int& count) {
    return restoreNumber(value, count);
}

template <class Char>
KR_RET_STATUS KR_FileBinary::restoreText(Char*& text,
                                         KR_STORAGE_TYPE storage,
                                         unsigned int& count) {
    KR_setUserError(0);
    text = nullptr;
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    if (storage != KR_STORAGE_BINARY) return KRI_FAIL(KR_RET_ERR_ARG);
    const size_t unitSize = sizeof(Char) == 1 ? 1 : 2;
    unsigned int moved = 0;
    unsigned int units = 0;
    status = readLe(units, moved);
    if (KRI_FAILED(status)) return status;
    if (units > 0) {
        // A damaged count must not make us allocate more than the file can hold.
        size_t bytes = unitSize * units;
        long long pos = 0;
        long long size = 0;
        getPos(pos);
        status = getSize(size);
        if (KRI_FAILED(status)) return status;
        if (static_cast<long long>(bytes) > size - pos) {
            return KRI_FAIL_DATA(KR_RET_ERR_FILE, "KR_FileBinary: text longer than the file");
        }
        // Joining pairs only shortens the text, so units characters always suffice. Narrow
        // texts are read in place.
        Char* block = static_cast<Char*>(krInternal::allocZeroed(units, sizeof(Char)));
        unsigned char* raw =
                sizeof(Char) == 1 ? reinterpret_cast<unsigned char*>(block)
                                  : static_cast<unsigned char*>(krInternal::allocZeroed(units, 2));
        if (raw == nullptr || block == nullptr) {
            if (raw != reinterpret_cast<unsigned char*>(block)) krInternal::freeBlock(raw);
            krInternal::freeBlock(block);
            return KRI_FAIL(KR_RET_ERR_MEM);
        }
        size_t got = 0;
        status = readBytes(raw, bytes, got);
        size_t stored = units;
        if (!KRI_FAILED(status) && got < bytes) {
            status = KRI_FAIL_DATA(KR_RET_ERR_FILE,
                                   sizeof(Char) == 1 ? "KR_FileBinary: text not terminated"
                                                     : "KR_FileBinary: unexpected end of file");
        }
        if constexpr (sizeof(Char) > 1) {
            if (!KRI_FAILED(status)) stored = krInternal::readUtf16LE(raw, units, block);
            krInternal::freeBlock(raw);
        }
        if (!KRI_FAILED(status) && block[stored - 1] != Char(0)) {
            status = KRI_FAIL_DATA(KR_RET_ERR_FILE, "KR_FileBinary: text not terminated");
        }
        if (KRI_FAILED(status)) {
            krInternal::freeBlock(block);
            return status;
        }
        text = block;
    }
    count += moved + static_cast<unsigned int>(unitSize * units);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_FileBinary::restoreVal(char*& text, KR_STORAGE_TYPE storage, unsigned int& count) {
    return restoreText(text, storage, count);
}

KR_RET_STATUS KR_FileBinary::restoreVal(wchar_t*& text,
                                        KR_STORAGE_TYPE storage,
                                        unsigned int& count) {
    return restoreText(text, storage, count);
}

KR_RET_STATUS KR_FileBinary::restoreBlock(void* data, unsigned int size, unsigned int& count) {
    KR_setUserError(0);
    KR_RET_STATUS status = checkOpen(__LINE__);
    if (KRI_FAILED(status)) return status;
    if (data == nullptr && size > 0) return KRI_FAIL(KR_RET_ERR_ARG);
    if (size == 0) return KR_RET_TRUE;
    size_t got = 0;
    status = readBytes(data, size, got);
    if (KRI_FAILED(status)) return status;
    if (got < size) return KRI_FAIL_DATA(KR_RET_ERR_FILE, "KR_FileBinary: unexpected end of file");
    count += size;
    return KR_RET_TRUE;
}
