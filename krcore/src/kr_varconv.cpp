// kr_varconv.cpp — a variant's value as text and back, and its binary form.
#include <limits.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include "kr_alloc.h"
#include "kr_endian.h"
#include "kr_file.h"
#include "kr_report.h"
#include "kr_strcore.h"
#include "kr_var.h"
#include "kr_varobj.h"

#define KRI_UNIT "src/kr_var"

struct krInternal::VarAccess {
    static void adoptValue(KR_Var& v, KR_Var& value) { v.adoptValue(value); }
};

namespace {

// The string utilities report under their own unit.
constexpr const char* kStrUnit = "src/kr_str";

KR_RET_STATUS failStr(KR_RET_STATUS status, int line) {
    return krInternal::failAt(status, kStrUnit, static_cast<unsigned int>(line));
}

// Whether a copy of v arrived: its text is there when v's is.
bool copyArrived(const KR_Var& copy, const KR_Var& v) {
    if (v.varType() == KR_VAR_STRING) return v.str() == nullptr || copy.str() != nullptr;
    if (v.varType() == KR_VAR_STRINGW) return v.wstr() == nullptr || copy.wstr() != nullptr;
    return true;
}

template <class C>
struct Width;

template <>
struct Width<char> {
    static constexpr KR_VAR_TYPE kText = KR_VAR_STRING;

    static const char* text(const KR_Var& v) { return v.str(); }
};

template <>
struct Width<wchar_t> {
    static constexpr KR_VAR_TYPE kText = KR_VAR_STRINGW;

    static const wchar_t* text(const KR_Var& v) { return v.wstr(); }
};

template <class C, class S>
KR_RET_STATUS valueToText(S& out, KR_Var& v, int line) {
    KR_setUserError(0);
    out = static_cast<const C*>(nullptr);
    if (!v.objIsEnabled()) return failStr(KR_RET_ERR_POBJ, line);
    KR_VAR_TYPE type = v.varType();
    if (type == KR_VAR_PUBOBJ) return failStr(KR_RET_ERR_CALL, line);
    if (type == KR_VAR_PTR) {
        char local[40];
        snprintf(local, sizeof local, "%p", v.ptr());
        out = local;
        return static_cast<const C*>(out) == nullptr ? KR_RET_ERR_MEM : KR_RET_TRUE;
    }
    // A copy converted by cast makes exactly the text that a cast makes.
    KR_Var copy(v);
    if (!copyArrived(copy, v)) return KR_RET_ERR_MEM;
    copy.setStrLengMax(-1);
    KR_RET_STATUS status = copy.cast(Width<C>::kText);
    if (KRI_FAILED(status)) return status;
    const C* text = Width<C>::text(copy);
    out = text;
    if (text != nullptr && static_cast<const C*>(out) == nullptr) return KR_RET_ERR_MEM;
    return KR_RET_TRUE;
}

template <class C>
KR_RET_STATUS textToValue(KR_Var& v, const C* text, int line) {
    KR_setUserError(0);
    if (!v.objIsEnabled()) return failStr(KR_RET_ERR_POBJ, line);
    if (text == nullptr) return failStr(KR_RET_ERR_ARG, line);
    KR_VAR_TYPE type = v.varType();
    if (type == KR_VAR_PUBOBJ) return failStr(KR_RET_ERR_CALL, line);
    // The text as a variant of its own width, converted by cast to v's type.
    KR_Var parsed(text);
    if (parsed.varType() != Width<C>::kText || Width<C>::text(parsed) == nullptr)
        return KR_RET_ERR_MEM;
    if (type != KR_VAR_WILD) {
        KR_RET_STATUS status = parsed.cast(type);
        if (KRI_FAILED(status)) return status;
    }
    // The value moves in; v keeps its lock flag and length limit.
    krInternal::VarAccess::adoptValue(v, parsed);
    return KR_RET_TRUE;
}

}  // namespace

KR_RET_STATUS KR_val2Str(KR_String& out, KR_Var& v) {
    return valueToText<char>(out, v, __LINE__);
}

KR_RET_STATUS KR_val2StrW(KR_StringW& out, KR_Var& v) {
    return valueToText<wchar_t>(out, v, __LINE__);
}

KR_RET_STATUS KR_str2Val(KR_Var& v, const char* text) {
    return textToValue(v, text, __LINE__);
}

KR_RET_STATUS KR_str2ValW(KR_Var& v, const wchar_t* text) {
    return textToValue(v, text, __LINE__);
}

// --- KR_Var: binary form ---

namespace {

// The fixed-width value as its little-endian bits (sign-extended for signed types).
unsigned long long valueBits(const KR_Var& v) {
    switch (v.varType()) {
        case KR_VAR_UCHAR:
            return v.uc();
        case KR_VAR_CHAR:
            return static_cast<unsigned char>(v.c());
        case KR_VAR_USHORT:
            return v.us();
        case KR_VAR_SHORT:
            return static_cast<unsigned short>(v.s());
        case KR_VAR_UINT:
            return v.ui();
        case KR_VAR_INT:
            return static_cast<unsigned int>(v.i());
        case KR_VAR_ULONG:
            return v.ul();
        case KR_VAR_LONG:
            return static_cast<unsigned long long>(static_cast<long long>(v.l()));
        case KR_VAR_FLOAT: {
            float f = v.f();
            unsigned int bits = 0;
            memcpy(&bits, &f, 4);
            return bits;
        }
        case KR_VAR_DOUBLE: {
            double d = v.d();
            unsigned long long bits = 0;
            memcpy(&bits, &d, 8);
            return bits;
        }
        case KR_VAR_PTR:
            return reinterpret_cast<uintptr_t>(v.ptr());
        default:
            return 0;
    }
}

void storeBits(unsigned char* out, unsigned long long bits, unsigned int size) {
    for (unsigned int k = 0; k < size; ++k)
        out[k] = static_cast<unsigned char>(bits >> (8 * k));
}

unsigned long long loadBits(const unsigned char* in, unsigned int size) {
    unsigned long long bits = 0;
    for (unsigned int k = 0; k < size; ++k)
        bits |= static_cast<unsigned long long>(in[k]) << (8 * k);
    return bits;
}

// Width of the fixed value of a type read from outside; 0 for texts and Wild, -1 for a number
// that is no type.
int fixedSize(unsigned int type) {
    switch (type) {
        case KR_VAR_WILD:
        case KR_VAR_STRING:
        case KR_VAR_STRINGW:
            return 0;
        case KR_VAR_UCHAR:
        case KR_VAR_CHAR:
            return 1;
        case KR_VAR_USHORT:
        case KR_VAR_SHORT:
            return 2;
        case KR_VAR_UINT:
        case KR_VAR_INT:
        case KR_VAR_FLOAT:
        case KR_VAR_PUBOBJ:
            return 4;
        case KR_VAR_ULONG:
        case KR_VAR_LONG:
        case KR_VAR_DOUBLE:
        case KR_VAR_PTR:
            return 8;
        default:
            return -1;
    }
}

// Bytes of the value after the type word; texts count their own count word.
unsigned int valueSize(const KR_Var& v) {
    if (v.varType() == KR_VAR_STRING) return 4 + krInternal::packedCount(v.str());
    if (v.varType() == KR_VAR_STRINGW) return 4 + 2 * krInternal::packedCount(v.wstr());
    int size = fixedSize(v.varType());
    return size > 0 ? static_cast<unsigned int>(size) : 0;
}

// The value of type from its bits, in value; false when it does not fit this platform (a long
// or a pointer beyond 32 bits where those are 32-bit, a set public object).
bool valueFromBits(unsigned int type, unsigned long long bits, KR_Var& value) {
    switch (type) {
        case KR_VAR_UCHAR:
            value = KR_Var(static_cast<unsigned char>(bits));
            return true;
        case KR_VAR_CHAR:
            value = KR_Var(static_cast<char>(static_cast<unsigned char>(bits)));
            return true;
        case KR_VAR_USHORT:
            value = KR_Var(static_cast<unsigned short>(bits));
            return true;
        case KR_VAR_SHORT:
            value = KR_Var(static_cast<short>(static_cast<unsigned short>(bits)));
            return true;
        case KR_VAR_UINT:
            value = KR_Var(static_cast<unsigned int>(bits));
            return true;
        case KR_VAR_INT:
            value = KR_Var(static_cast<int>(static_cast<unsigned int>(bits)));
            return true;
        case KR_VAR_ULONG:
            if (bits > static_cast<unsigned long long>(ULONG_MAX)) return false;
            value = KR_Var(static_cast<unsigned long>(bits));
            return true;
        case KR_VAR_LONG: {
            long long n = static_cast<long long>(bits);
            if (n < LONG_MIN || n > LONG_MAX) return false;
            value = KR_Var(static_cast<long>(n));
            return true;
        }
        case KR_VAR_FLOAT: {
            unsigned int word = static_cast<unsigned int>(bits);
            float f = 0.0f;
            memcpy(&f, &word, 4);
            value = KR_Var(f);
            return true;
        }
        case KR_VAR_DOUBLE: {
            double d = 0.0;
            memcpy(&d, &bits, 8);
            value = KR_Var(d);
            return true;
        }
        case KR_VAR_PTR:
            if (bits > static_cast<unsigned long long>(UINTPTR_MAX)) return false;
            value = KR_Var(reinterpret_cast<void*>(static_cast<uintptr_t>(bits)));
            return true;
        case KR_VAR_PUBOBJ:
            if (bits != 0) return false;
            value = KR_Var(static_cast<KR_PubObjVar*>(nullptr));
            return true;
        default:
            value = KR_Var(KR_VAR_WILD);
            return true;
    }
}

}  // namespace

KR_RET_STATUS KR_Var::pack(KR_Version&, char* buffer, unsigned int& used, KR_STORAGE_TYPE storage) {
    KR_setUserError(0);
    used = 0;
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (storage != KR_STORAGE_BINARY || buffer == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    if (type_ == KR_VAR_PUBOBJ && value_.obj != nullptr) return KRI_FAIL(KR_RET_ERR_NSUP);
    unsigned char* out = reinterpret_cast<unsigned char*>(buffer);
    krInternal::storeLe(out, static_cast<unsigned int>(type_));
    unsigned int size = valueSize(*this);
    if (type_ == KR_VAR_STRING || type_ == KR_VAR_STRINGW) {
        unsigned int count = type_ == KR_VAR_STRING ? krInternal::packedCount(value_.str)
                                                    : krInternal::packedCount(value_.wstr);
        krInternal::storeLe(out + 4, count);
        if (count > 0 && type_ == KR_VAR_STRING) krInternal::writeUnits(out + 8, value_.str);
        if (count > 0 && type_ == KR_VAR_STRINGW) krInternal::writeUnits(out + 8, value_.wstr);
    } else {
        storeBits(out + 4, valueBits(*this), size);
    }
    used = 4 + size;
    return KR_RET_TRUE;
}

unsigned int KR_Var::getPackedSize(KR_Version&, KR_STORAGE_TYPE storage) {
    KR_setUserError(0);
    if (!initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    if (storage != KR_STORAGE_BINARY) {
        KRI_FAIL(KR_RET_ERR_ARG);
        return 0;
    }
    return 4 + valueSize(*this);
}

KR_RET_STATUS KR_Var::unpack(KR_Version&,
                             char* buffer,
                             unsigned int& used,
                             KR_STORAGE_TYPE storage) {
    KR_setUserError(0);
    used = 0;
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (storage != KR_STORAGE_BINARY || buffer == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    const unsigned char* in = reinterpret_cast<const unsigned char*>(buffer);
    unsigned int type = krInternal::loadLe<unsigned int>(in);
    int size = fixedSize(type);
    if (size < 0) return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Var::unpack: no such type", "%u\n", type);
    KR_Var value;
    unsigned int length = 4;
    if (type == KR_VAR_STRING || type == KR_VAR_STRINGW) {
        unsigned int count = krInternal::loadLe<unsigned int>(in + 4);
        length = 8;
        if (type == KR_VAR_STRING) {
            value = KR_Var(static_cast<const char*>(nullptr));
            if (count > 0) {
                // The stored terminator is not trusted: the text ends after count - 1 units.
                char* text = krInternal::allocText<char>(count);
                if (text == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
                krInternal::readUnits(in + 8, count - 1, text);
                value.value_.str = text;
            }
            length += count;
        } else {
            value = KR_Var(static_cast<const wchar_t*>(nullptr));
            if (count > 0) {
                wchar_t* text = krInternal::allocText<wchar_t>(count);
                if (text == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
                krInternal::readUnits(in + 8, count - 1, text);
                value.value_.wstr = text;
            }
            length += 2 * count;
        }
    } else {
        if (!valueFromBits(type, loadBits(in + 4, static_cast<unsigned int>(size)), value))
            return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Var::unpack: value does not fit", "%u\n", type);
        length += static_cast<unsigned int>(size);
    }
    adoptValue(value);
    used = length;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Var::persist(KR_Version&, KR_FileBinary& file, unsigned int& written) {
    KR_setUserError(0);
    written = 0;
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (!file.isOpen()) return KRI_FAIL(KR_RET_ERR_ARG);
    if (type_ == KR_VAR_PUBOBJ && value_.obj != nullptr) return KRI_FAIL(KR_RET_ERR_NSUP);
    // One block, so a failed write leaves no half variant in the file's buffer.
    unsigned char local[16];
    unsigned int moved = 0;
    KR_RET_STATUS status = KR_RET_TRUE;
    if (type_ == KR_VAR_STRING || type_ == KR_VAR_STRINGW) {
        status = file.persistVal(static_cast<unsigned int>(type_), moved);
        if (!KRI_FAILED(status)) {
            status = type_ == KR_VAR_STRING
                             ? file.persistVal(static_cast<const char*>(value_.str),
                                               KR_STORAGE_BINARY, moved)
                             : file.persistVal(static_cast<const wchar_t*>(value_.wstr),
                                               KR_STORAGE_BINARY, moved);
        }
    } else {
        krInternal::storeLe(local, static_cast<unsigned int>(type_));
        unsigned int size = valueSize(*this);
        storeBits(local + 4, valueBits(*this), size);
        status = file.persistBlock(local, 4 + size, moved);
    }
    if (KRI_FAILED(status)) return status;
    written = moved;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Var::restore(KR_Version&, KR_FileBinary& file, unsigned int& read) {
    KR_setUserError(0);
    read = 0;
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (!file.isOpen()) return KRI_FAIL(KR_RET_ERR_ARG);
    unsigned int moved = 0;
    unsigned int type = 0;
    KR_RET_STATUS status = file.restoreVal(type, moved);
    if (KRI_FAILED(status)) return status;
    int size = fixedSize(type);
    if (size < 0)
        return KRI_FAIL_MSG(KR_RET_ERR_FILE, "KR_Var::restore: no such type", "%u\n", type);
    KR_Var value;
    if (type == KR_VAR_STRING) {
        char* text = nullptr;
        status = file.restoreVal(text, KR_STORAGE_BINARY, moved);
        if (KRI_FAILED(status)) return status;
        value = KR_Var(static_cast<const char*>(nullptr));
        value.value_.str = text;
    } else if (type == KR_VAR_STRINGW) {
        wchar_t* text = nullptr;
        status = file.restoreVal(text, KR_STORAGE_BINARY, moved);
        if (KRI_FAILED(status)) return status;
        value = KR_Var(static_cast<const wchar_t*>(nullptr));
        value.value_.wstr = text;
    } else {
        unsigned char bytes[8];
        status = file.restoreBlock(bytes, static_cast<unsigned int>(size), moved);
        if (KRI_FAILED(status)) return status;
        if (!valueFromBits(type, loadBits(bytes, static_cast<unsigned int>(size)), value))
            return KRI_FAIL_MSG(KR_RET_ERR_FILE, "KR_Var::restore: value does not fit", "%u\n",
                                type);
    }
    adoptValue(value);
    read = moved;
    return KR_RET_TRUE;
}

void KR_Var::adoptValue(KR_Var& value) {
    releaseValue();
    value_ = value.value_;
    type_ = value.type_;
    value.value_.bits = 0;
    value.type_ = KR_VAR_WILD;
    cutToLimit();
}
