// kr_vararr.cpp — the array of variants: construction, its order, packing and binary files.
// The tagged text form of the array lives with the variant's in kr_vartext.cpp.
#include <limits.h>
#include <stdarg.h>
#include <string.h>
#include <wchar.h>

#include "kr_alloc.h"
#include "kr_endian.h"
#include "kr_file.h"
#include "kr_report.h"
#include "kr_var.h"
#include "kr_varcore.h"

#define KRI_UNIT "src/kr_var"

namespace {

// Every variant packs at least its 32-bit type word.
constexpr unsigned int kMinPackedVar = 4;
// A staging array starts with room for this many elements and doubles from there.
constexpr unsigned int kFirstStage = 16;

// Characters of a wide text: where wchar_t is 16-bit a surrogate pair counts once, so that a
// text counts the same on every platform.
size_t wideChars(const wchar_t* text) {
    size_t length = wcslen(text);
    size_t count = length;
    if constexpr (sizeof(wchar_t) == 2) {
        for (size_t i = 0; i + 1 < length; ++i) {
            unsigned int c = static_cast<unsigned int>(text[i]) & 0xFFFF;
            unsigned int next = static_cast<unsigned int>(text[i + 1]) & 0xFFFF;
            if (c >= 0xD800 && c <= 0xDBFF && next >= 0xDC00 && next <= 0xDFFF) {
                --count;
                ++i;
            }
        }
    }
    return count;
}

// The comparison as -1, 0 or 1.
int sign(int value) {
    return value < 0 ? -1 : (value > 0 ? 1 : 0);
}

}  // namespace

// --- KR_VarArr ---

KR_VarArr::KR_VarArr(unsigned int n, KR_VAR_TYPE type, unsigned char lockType)
    : KR_Array<KR_Var>(krInternal::validType(type) ? n : 0), initialised_(0) {
    KR_setUserError(0);
    if (!krInternal::validType(type)) {
        KRI_FAIL(KR_RET_ERR_ARG);
        return;
    }
    // A refused block has been reported by the array.
    if (!KR_Array<KR_Var>::objIsEnabled()) return;
    for (unsigned int i = 0; i < n; ++i) {
        KR_Var fresh(type, lockType);
        KR_Array<KR_Var>::operator[](i) = static_cast<KR_Var&&>(fresh);
    }
    initialised_ = 1;
}

KR_VarArr::KR_VarArr(unsigned int n, KR_VAR_TYPE type, ...)
    : KR_Array<KR_Var>(krInternal::validType(type) ? n : 0), initialised_(0) {
    KR_setUserError(0);
    if (!krInternal::validType(type)) {
        KRI_FAIL(KR_RET_ERR_ARG);
        return;
    }
    if (!KR_Array<KR_Var>::objIsEnabled()) return;
    va_list args;
    // The type arrives as the int its enumeration is, which clang flags as a promoted type.
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wvarargs"
#endif
    va_start(args, type);
#if defined(__clang__)
#pragma clang diagnostic pop
#endif
    bool arrived = true;
    for (unsigned int i = 0; i < n; ++i) {
        KR_Var& element = KR_Array<KR_Var>::operator[](i);
        switch (type) {
            case KR_VAR_UCHAR:
                element = static_cast<unsigned char>(va_arg(args, int));
                break;
            case KR_VAR_CHAR:
                element = static_cast<char>(va_arg(args, int));
                break;
            case KR_VAR_USHORT:
                element = static_cast<unsigned short>(va_arg(args, int));
                break;
            case KR_VAR_SHORT:
                element = static_cast<short>(va_arg(args, int));
                break;
            case KR_VAR_UINT:
                element = va_arg(args, unsigned int);
                break;
            case KR_VAR_INT:
                element = va_arg(args, int);
                break;
            case KR_VAR_ULONG:
                element = va_arg(args, unsigned long);
                break;
            case KR_VAR_LONG:
                element = va_arg(args, long);
                break;
            case KR_VAR_FLOAT:
                element = static_cast<float>(va_arg(args, double));
                break;
            case KR_VAR_DOUBLE:
                element = va_arg(args, double);
                break;
            case KR_VAR_STRING: {
                const char* text = va_arg(args, const char*);
                element = text;
                arrived = arrived && (text == nullptr || element.str() != nullptr);
                break;
            }
            case KR_VAR_STRINGW: {
                const wchar_t* text = va_arg(args, const wchar_t*);
                element = text;
                arrived = arrived && (text == nullptr || element.wstr() != nullptr);
                break;
            }
            case KR_VAR_PTR:
                element = va_arg(args, void*);
                break;
            case KR_VAR_PUBOBJ:
                element = va_arg(args, KR_PubObjVar*);
                break;
            default:  // Wild takes no value
                break;
        }
    }
    va_end(args);
    // A text that could not be copied has been reported by the variant.
    initialised_ = arrived ? 1 : 0;
}

KR_VarArr::KR_VarArr(const KR_VarArr& other)
    : KR_Array<KR_Var>(other), KR_Persistable(other), initialised_(0) {
    // The array's copy reports a copy that did not arrive and stays empty.
    initialised_ = other.initialised_ && numElems_ == other.numElems_ ? 1 : 0;
}

KR_VarArr::~KR_VarArr() {
    initialised_ = 0;
}

KR_VarArr& KR_VarArr::operator=(const KR_VarArr& other) {
    KR_setUserError(0);
    if (&other == this) return *this;
    if (!initialised_ || !other.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return *this;
    }
    KR_Array<KR_Var>::operator=(other);
    return *this;
}

KR_Var& KR_VarArr::operator[](unsigned int i) {
    krInternal::clearUserError();
    if (i < numElems_ && initialised_) return KR_Array<KR_Var>::operator[](i);
    if (!initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return krInternal::nullRef<KR_Var>();
    }
    KRI_MSG("KR_VAR_ARRAY: element access", KR_msg(0, 3), static_cast<int>(i), 0,
            static_cast<int>(numElems_ - 1));
    return krInternal::nullRef<KR_Var>();
}

KR_RET_STATUS KR_VarArr::insArr(KR_INS_METHOD method, unsigned int index, KR_VarArr& other) {
    KR_setUserError(0);
    if (!initialised_ || !other.initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    unsigned int count = other.numElems_;
    if (count == 0) return KR_RET_FALSE;
    unsigned int n = numElems_;
    if (count > UINT_MAX - n) return KRI_FAIL(KR_RET_ERR_MEM);
    // Copies first (other may be this array), so that a copy that fails changes nothing; the
    // new slots then take them over without copying again.
    KR_Var* copies = krInternal::newArray<KR_Var>(count);
    if (copies == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    for (unsigned int k = 0; k < count; ++k) {
        if (!KR_ElemCopy<KR_Var>::copy(copies[k], other.KR_Array<KR_Var>::operator[](k))) {
            delete[] copies;
            return KRI_FAIL(KR_RET_ERR_MEM);
        }
    }
    // Where insElems opens the gap: at 0 in an empty array, after the last element for an
    // index past the end.
    unsigned int at = n == 0 ? 0 : (index >= n ? n : (method != KR_INS_BEFORE ? index + 1 : index));
    KR_RET_STATUS status = insElems(method, index, count);
    if (KRI_FAILED(status)) {
        delete[] copies;
        return status;
    }
    for (unsigned int k = 0; k < count; ++k) {
        krInternal::exchangeElems(KR_Array<KR_Var>::operator[](at + k), copies[k]);
    }
    delete[] copies;
    return KR_RET_TRUE;
}

unsigned char KR_VarArr::operator<(KR_VarArr& other) {
    return arrComp(other) < 0;
}

unsigned char KR_VarArr::operator<=(KR_VarArr& other) {
    return arrComp(other) <= 0;
}

unsigned char KR_VarArr::operator==(KR_VarArr& other) {
    // An array is equal to itself, even when it holds variants that never compare equal (Wild).
    if (&other == this && initialised_) return 1;
    return arrComp(other) == 0;
}

unsigned char KR_VarArr::operator!=(KR_VarArr& other) {
    if (&other == this && initialised_) return 0;
    return arrComp(other) != 0;
}

unsigned char KR_VarArr::operator>(KR_VarArr& other) {
    return arrComp(other) > 0;
}

unsigned char KR_VarArr::operator>=(KR_VarArr& other) {
    return arrComp(other) >= 0;
}

int KR_VarArr::operator-(KR_VarArr& other) {
    return arrComp(other);
}

unsigned int KR_VarArr::longestStrLeng() {
    KR_setUserError(0);
    if (!initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    size_t longest = 0;
    for (unsigned int i = 0; i < numElems_; ++i) {
        const KR_Var& v = KR_Array<KR_Var>::operator[](i);
        size_t length = 0;
        if (v.varType() == KR_VAR_STRING && v.str() != nullptr) length = strlen(v.str());
        if (v.varType() == KR_VAR_STRINGW && v.wstr() != nullptr) length = wideChars(v.wstr());
        if (length > longest) longest = length;
    }
    return longest > UINT_MAX ? UINT_MAX : static_cast<unsigned int>(longest);
}

unsigned int KR_VarArr::numVarType(KR_VAR_TYPE type) {
    KR_setUserError(0);
    if (!initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    unsigned int count = 0;
    for (unsigned int i = 0; i < numElems_; ++i) {
        if (KR_Array<KR_Var>::operator[](i).varType() == type) ++count;
    }
    return count;
}

KR_RET_STATUS KR_VarArr::pack(KR_Version& version,
                              char* buffer,
                              unsigned int& used,
                              KR_STORAGE_TYPE storage) {
    KR_setUserError(0);
    used = 0;
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (buffer == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    krInternal::storeLe(buffer, numElems_);
    unsigned int total = 4;
    for (unsigned int i = 0; i < numElems_; ++i) {
        unsigned int n = 0;
        KR_RET_STATUS status =
                KR_Array<KR_Var>::operator[](i).pack(version, buffer + total, n, storage);
        if (KRI_FAILED(status)) return status;
        total += n;
    }
    used = total;
    return KR_RET_TRUE;
}

unsigned int KR_VarArr::getPackedSize(KR_Version& version, KR_STORAGE_TYPE storage) {
    KR_setUserError(0);
    if (!initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    unsigned int total = 4;
    for (unsigned int i = 0; i < numElems_; ++i) {
        total += KR_Array<KR_Var>::operator[](i).getPackedSize(version, storage);
    }
    return total;
}

KR_RET_STATUS KR_VarArr::unpack(KR_Version& version,
                                char* buffer,
                                unsigned int& used,
                                KR_STORAGE_TYPE storage) {
    KR_setUserError(0);
    used = 0;
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (buffer == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    unsigned int count = krInternal::loadLe<unsigned int>(buffer);
    unsigned int offset = 4;
    KR_Array<KR_Var> staged;
    for (unsigned int i = 0; i < count; ++i) {
        KR_RET_STATUS status = growStaged(staged, i, count);
        if (KRI_FAILED(status)) return status;
        unsigned int n = 0;
        status = staged[i].unpack(version, buffer + offset, n, storage);
        if (KRI_FAILED(status)) return status;
        offset += n;
    }
    KR_RET_STATUS status = adoptStaged(staged, count);
    if (KRI_FAILED(status)) return status;
    used = offset;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_VarArr::persist(KR_Version& version, KR_FileBinary& file, unsigned int& written) {
    KR_setUserError(0);
    written = 0;
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    unsigned int total = 0;
    KR_RET_STATUS status = file.persistVal(numElems_, total);
    for (unsigned int i = 0; i < numElems_ && !KRI_FAILED(status); ++i) {
        unsigned int n = 0;
        status = KR_Array<KR_Var>::operator[](i).persist(version, file, n);
        total += n;
    }
    written = total;
    return KRI_FAILED(status) ? status : KR_RET_TRUE;
}

KR_RET_STATUS KR_VarArr::restore(KR_Version& version, KR_FileBinary& file, unsigned int& read) {
    KR_setUserError(0);
    read = 0;
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    unsigned int total = 0;
    unsigned int count = 0;
    KR_RET_STATUS status = file.restoreVal(count, total);
    if (KRI_FAILED(status)) return status;
    long long size = 0;
    long long position = 0;
    status = file.getSize(size);
    if (!KRI_FAILED(status)) status = file.getPos(position);
    if (KRI_FAILED(status)) return status;
    // Every element takes at least its type word: a count that the rest of the file cannot hold
    // is damage, found before anything is allocated for it.
    if (count > (size - position) / kMinPackedVar) {
        const char* name = file.getFileName();
        return KRI_FAIL_MSG(KR_RET_ERR_FILE, "KR_VarArr: element count beyond the end of the file",
                            "%s\n", name != nullptr ? name : "");
    }
    KR_Array<KR_Var> staged;
    for (unsigned int i = 0; i < count; ++i) {
        status = growStaged(staged, i, count);
        if (KRI_FAILED(status)) return status;
        unsigned int n = 0;
        status = staged[i].restore(version, file, n);
        if (KRI_FAILED(status)) return status;
        total += n;
    }
    status = adoptStaged(staged, count);
    if (KRI_FAILED(status)) return status;
    read = total;
    return KR_RET_TRUE;
}

int KR_VarArr::arrComp(KR_VarArr& other) {
    KR_setUserError(0);
    if (!initialised_ || !other.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    // The length decides before any element is looked at.
    if (numElems_ != other.numElems_) return numElems_ < other.numElems_ ? -1 : 1;
    for (unsigned int i = 0; i < numElems_; ++i) {
        KR_Var& mine = KR_Array<KR_Var>::operator[](i);
        int order = sign(mine.varComp(other.KR_Array<KR_Var>::operator[](i)));
        if (order != 0) return order;
    }
    return 0;
}

KR_RET_STATUS KR_VarArr::growStaged(KR_Array<KR_Var>& staged,
                                    unsigned int count,
                                    unsigned int limit) {
    unsigned int room = staged.numElems();
    if (count < room) return KR_RET_TRUE;
    unsigned int grown =
            room < kFirstStage ? kFirstStage : (room > UINT_MAX / 2 ? UINT_MAX : 2 * room);
    if (grown > limit) grown = limit;
    if (grown <= count) grown = count + 1;
    return staged.reallocate(grown);
}

KR_RET_STATUS KR_VarArr::adoptStaged(KR_Array<KR_Var>& staged, unsigned int count) {
    KR_RET_STATUS status = reallocate(count);
    if (KRI_FAILED(status)) return status;
    for (unsigned int i = 0; i < count; ++i) {
        krInternal::exchangeElems(KR_Array<KR_Var>::operator[](i), staged[i]);
    }
    return KR_RET_TRUE;
}

KR_OStream& operator<<(KR_OStream& stream, KR_VarArr& array) {
    stream << "[";
    for (unsigned int i = 0; i < array.numElems(); ++i) {
        if (i > 0) stream << ", ";
        stream << array.KR_Array<KR_Var>::operator[](i);
    }
    stream << "]";
    return stream;
}
