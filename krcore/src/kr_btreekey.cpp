// kr_btreekey.cpp — the order of B-tree keys and their order-preserving byte form.
#include <math.h>
#include <stdint.h>
#include <string.h>

#include "kr_alloc.h"
#include "kr_btreecore.h"
#include "kr_report.h"
#include "kr_strbase.h"

#define KRI_UNIT "src/kr_btree"

namespace {

template <class T>
int threeWay(T a, T b) {
    return a < b ? -1 : (b < a ? 1 : 0);
}

// NaN above everything and equal to itself; otherwise the exact value, -0 equal to +0.
template <class F>
int compareFloating(F a, F b) {
    bool aNan = isnan(a);
    bool bNan = isnan(b);
    if (aNan || bNan) return aNan == bNan ? 0 : (aNan ? 1 : -1);
    return threeWay(a, b);
}

// The first UTF-16 unit of a character: itself, or the high surrogate of a pair.
unsigned long leadUnit(unsigned long c) {
    return c < 0x10000 ? c : 0xD800 + ((c - 0x10000) >> 10);
}

// UTF-16 code-unit order, null equal to empty. With 16-bit wchar_t the units are the text's
// own; with 32-bit wchar_t a character above U+FFFF sorts by its high surrogate first.
int compareWide(const wchar_t* a, const wchar_t* b) {
    static const wchar_t kEmpty[1] = {0};
    if (a == nullptr) a = kEmpty;
    if (b == nullptr) b = kEmpty;
    for (;; ++a, ++b) {
        unsigned long ca = static_cast<unsigned long>(*a) & (sizeof(wchar_t) == 2 ? 0xFFFF : ~0ul);
        unsigned long cb = static_cast<unsigned long>(*b) & (sizeof(wchar_t) == 2 ? 0xFFFF : ~0ul);
        if (ca != cb) {
            unsigned long la = leadUnit(ca);
            unsigned long lb = leadUnit(cb);
            return la != lb ? threeWay(la, lb) : threeWay(ca, cb);
        }
        if (ca == 0) return 0;
    }
}

int compareElements(const KR_Var& a, const KR_Var& b) {
    if (a.varType() != b.varType()) return threeWay(a.varType(), b.varType());
    switch (a.varType()) {
        case KR_VAR_UCHAR:
            return threeWay(static_cast<unsigned char>(a), static_cast<unsigned char>(b));
        case KR_VAR_CHAR:
            return threeWay(static_cast<signed char>(static_cast<char>(a)),
                            static_cast<signed char>(static_cast<char>(b)));
        case KR_VAR_USHORT:
            return threeWay(static_cast<unsigned short>(a), static_cast<unsigned short>(b));
        case KR_VAR_SHORT:
            return threeWay(static_cast<short>(a), static_cast<short>(b));
        case KR_VAR_UINT:
            return threeWay(static_cast<unsigned int>(a), static_cast<unsigned int>(b));
        case KR_VAR_INT:
            return threeWay(static_cast<int>(a), static_cast<int>(b));
        case KR_VAR_ULONG:
            return threeWay(static_cast<unsigned long>(a), static_cast<unsigned long>(b));
        case KR_VAR_LONG:
            return threeWay(static_cast<long>(a), static_cast<long>(b));
        case KR_VAR_FLOAT:
            return compareFloating(static_cast<float>(a), static_cast<float>(b));
        case KR_VAR_DOUBLE:
            return compareFloating(static_cast<double>(a), static_cast<double>(b));
        case KR_VAR_STRING: {
            int c = KR_strcmp(static_cast<const char*>(a), static_cast<const char*>(b));
            return c < 0 ? -1 : (c > 0 ? 1 : 0);
        }
        case KR_VAR_STRINGW:
            return compareWide(static_cast<const wchar_t*>(a), static_cast<const wchar_t*>(b));
        case KR_VAR_PTR:
            return threeWay(reinterpret_cast<uintptr_t>(static_cast<void*>(a)),
                            reinterpret_cast<uintptr_t>(static_cast<void*>(b)));
        case KR_VAR_PUBOBJ:
            return threeWay(reinterpret_cast<uintptr_t>(static_cast<KR_PubObjVar*>(a)),
                            reinterpret_cast<uintptr_t>(static_cast<KR_PubObjVar*>(b)));
        default:
            return 0;
    }
}

// Big-endian bytes of the low width bytes of value.
void putBig(unsigned char* out, unsigned long long value, unsigned int width) {
    for (unsigned int i = 0; i < width; ++i) {
        out[i] = static_cast<unsigned char>(value >> (8 * (width - 1 - i)));
    }
}

unsigned long long getBig(const unsigned char* in, unsigned int width) {
    unsigned long long value = 0;
    for (unsigned int i = 0; i < width; ++i)
        value = (value << 8) | in[i];
    return value;
}

unsigned int intWidth(KR_VAR_TYPE type) {
    switch (type) {
        case KR_VAR_UCHAR:
        case KR_VAR_CHAR:
            return 1;
        case KR_VAR_USHORT:
        case KR_VAR_SHORT:
            return 2;
        case KR_VAR_UINT:
        case KR_VAR_INT:
        case KR_VAR_FLOAT:
            return 4;
        default:
            return 8;
    }
}

// The UTF-16 units of text into out (may be null), with the terminating zero unit; false when
// the text holds a lone surrogate or a code point above U+10FFFF.
bool encodeWide(const wchar_t* text, unsigned char* out, unsigned int& units) {
    units = 0;
    for (const wchar_t* p = text; p != nullptr && *p != 0; ++p) {
        unsigned long c = static_cast<unsigned long>(*p) & (sizeof(wchar_t) == 2 ? 0xFFFF : ~0ul);
        if (sizeof(wchar_t) == 2) {
            if (c >= 0xDC00 && c <= 0xDFFF) return false;
            if (c >= 0xD800 && c <= 0xDBFF) {
                unsigned long low = static_cast<unsigned long>(p[1]) & 0xFFFF;
                if (low < 0xDC00 || low > 0xDFFF) return false;
                if (out != nullptr) putBig(out + 2 * units, c, 2);
                ++units;
                ++p;
                c = low;
            }
        } else {
            if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF) return false;
            if (c >= 0x10000) {
                if (out != nullptr) putBig(out + 2 * units, 0xD800 + ((c - 0x10000) >> 10), 2);
                ++units;
                c = 0xDC00 + ((c - 0x10000) & 0x3FF);
            }
        }
        if (out != nullptr) putBig(out + 2 * units, c, 2);
        ++units;
    }
    if (out != nullptr) putBig(out + 2 * units, 0, 2);
    ++units;
    return true;
}

// The wide text of the units at in (ending with a zero unit) in a new block for wchar_t.
wchar_t* decodeWide(const unsigned char* in, unsigned int& used) {
    unsigned int units = 0;
    while (getBig(in + 2 * units, 2) != 0)
        ++units;
    used = 2 * (units + 1);
    wchar_t* text = static_cast<wchar_t*>(krInternal::allocBlock((units + 1) * sizeof(wchar_t)));
    if (text == nullptr) return nullptr;
    unsigned int k = 0;
    for (unsigned int i = 0; i < units; ++i) {
        unsigned long c = static_cast<unsigned long>(getBig(in + 2 * i, 2));
        if (sizeof(wchar_t) != 2 && c >= 0xD800 && c <= 0xDBFF && i + 1 < units) {
            unsigned long low = static_cast<unsigned long>(getBig(in + 2 * (i + 1), 2));
            c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
            ++i;
        }
        text[k++] = static_cast<wchar_t>(c);
    }
    text[k] = 0;
    return text;
}

}  // namespace

// --- the key order ---

int KR_btreeKeyComp(KR_VarArr& left, KR_VarArr& right) {
    unsigned int n = left.numElems();
    unsigned int m = right.numElems();
    if (n != m) return n < m ? -1 : 1;
    for (unsigned int i = 0; i < n; ++i) {
        int c = compareElements(left.KR_Array<KR_Var>::operator[](i),
                                right.KR_Array<KR_Var>::operator[](i));
        if (c != 0) return c;
    }
    return 0;
}

bool KR_BtreeKeyLess::operator()(const KR_VarArr& left, const KR_VarArr& right) const {
    return KR_btreeKeyComp(const_cast<KR_VarArr&>(left), const_cast<KR_VarArr&>(right)) < 0;
}

// --- the byte form ---

namespace krInternal {

unsigned int btreeFixedKeySize(const KR_VAR_TYPE* types, unsigned int count) {
    unsigned int size = 0;
    for (unsigned int i = 0; i < count; ++i) {
        if (types[i] == KR_VAR_STRING || types[i] == KR_VAR_STRINGW) return 0;
        size += intWidth(types[i]);
    }
    return size;
}

KR_RET_STATUS btreeEncodeKey(KR_VarArr& key,
                             const KR_VAR_TYPE* types,
                             unsigned int count,
                             unsigned char* out,
                             unsigned int& size) {
    size = 0;
    for (unsigned int i = 0; i < count; ++i) {
        KR_Var& v = key.KR_Array<KR_Var>::operator[](i);
        KR_VAR_TYPE type = types[i];
        if (v.varType() != type) return KR_RET_ERR_ARG;
        unsigned char* at = out != nullptr ? out + size : nullptr;
        unsigned long long bits = 0;
        unsigned long long sign = 0;
        switch (type) {
            case KR_VAR_UCHAR:
                bits = static_cast<unsigned char>(v);
                break;
            case KR_VAR_CHAR:
                bits = static_cast<unsigned char>(static_cast<char>(v));
                sign = 0x80;
                break;
            case KR_VAR_USHORT:
                bits = static_cast<unsigned short>(v);
                break;
            case KR_VAR_SHORT:
                bits = static_cast<unsigned short>(static_cast<short>(v));
                sign = 0x8000;
                break;
            case KR_VAR_UINT:
                bits = static_cast<unsigned int>(v);
                break;
            case KR_VAR_INT:
                bits = static_cast<unsigned int>(static_cast<int>(v));
                sign = 0x80000000u;
                break;
            case KR_VAR_ULONG:
                bits = static_cast<unsigned long>(v);
                break;
            case KR_VAR_LONG:
                bits = static_cast<unsigned long long>(
                        static_cast<long long>(static_cast<long>(v)));
                sign = 1ull << 63;
                break;
            case KR_VAR_PTR:
                bits = reinterpret_cast<uintptr_t>(static_cast<void*>(v));
                break;
            case KR_VAR_FLOAT: {
                float f = static_cast<float>(v);
                if (!isfinite(f)) return KR_RET_ERR_ARG;
                if (f == 0.0f) f = 0.0f;
                unsigned int u;
                memcpy(&u, &f, sizeof(u));
                bits = (u & 0x80000000u) != 0 ? ~u : (u | 0x80000000u);
                break;
            }
            case KR_VAR_DOUBLE: {
                double d = static_cast<double>(v);
                if (!isfinite(d)) return KR_RET_ERR_ARG;
                if (d == 0.0) d = 0.0;
                unsigned long long u;
                memcpy(&u, &d, sizeof(u));
                bits = (u >> 63) != 0 ? ~u : (u | (1ull << 63));
                break;
            }
            case KR_VAR_STRING: {
                const char* text = static_cast<const char*>(v);
                size_t len = text != nullptr ? strlen(text) : 0;
                if (len > 0x7FFFFFF0u - size) return KR_RET_ERR_ARG;
                if (at != nullptr) {
                    if (len != 0) memcpy(at, text, len);
                    at[len] = 0;
                }
                size += static_cast<unsigned int>(len) + 1;
                continue;
            }
            case KR_VAR_STRINGW: {
                unsigned int units;
                if (!encodeWide(static_cast<const wchar_t*>(v), at, units)) return KR_RET_ERR_ARG;
                if (units > (0x7FFFFFF0u - size) / 2) return KR_RET_ERR_ARG;
                size += 2 * units;
                continue;
            }
            default:
                return KR_RET_ERR_ARG;
        }
        unsigned int width = intWidth(type);
        if (at != nullptr) putBig(at, bits ^ sign, width);
        size += width;
    }
    return KR_RET_TRUE;
}

bool btreeKeyBytesValid(const unsigned char* bytes,
                        unsigned int len,
                        const KR_VAR_TYPE* types,
                        unsigned int count) {
    unsigned int at = 0;
    for (unsigned int i = 0; i < count; ++i) {
        if (types[i] == KR_VAR_STRING) {
            const void* end = memchr(bytes + at, 0, len - at);
            if (end == nullptr) return false;
            at = static_cast<unsigned int>(static_cast<const unsigned char*>(end) - bytes) + 1;
            continue;
        }
        if (types[i] == KR_VAR_STRINGW) {
            for (;;) {
                if (len - at < 2) return false;
                at += 2;
                if (bytes[at - 2] == 0 && bytes[at - 1] == 0) break;
            }
            continue;
        }
        unsigned int width = intWidth(types[i]);
        if (len - at < width) return false;
        if (sizeof(long) < 8 && (types[i] == KR_VAR_ULONG || types[i] == KR_VAR_LONG)) {
            // The high half must be the sign (or zero) extension of the low half.
            unsigned long long bits = getBig(bytes + at, 8);
            if (types[i] == KR_VAR_LONG) bits ^= 1ull << 63;
            long long wide = static_cast<long long>(bits);
            bool fits = types[i] == KR_VAR_ULONG
                                ? (bits >> 32) == 0
                                : wide >= -2147483647ll - 1 && wide <= 2147483647ll;
            if (!fits) return false;
        }
        at += width;
    }
    return at == len;
}

KR_RET_STATUS btreeDecodeKey(const unsigned char* bytes,
                             unsigned int len,
                             const KR_VAR_TYPE* types,
                             unsigned int count,
                             KR_VarArr& key) {
    (void)len;
    KR_VarArr staged(count, KR_VAR_WILD, static_cast<unsigned char>(0));
    if (!staged.objIsEnabled()) return KR_RET_ERR_MEM;
    unsigned int at = 0;
    for (unsigned int i = 0; i < count; ++i) {
        KR_Var& v = staged.KR_Array<KR_Var>::operator[](i);
        KR_VAR_TYPE type = types[i];
        if (type == KR_VAR_STRING) {
            const char* text = reinterpret_cast<const char*>(bytes + at);
            size_t n = strlen(text);
            v = text;
            if (v.varType() != KR_VAR_STRING) return KR_RET_ERR_MEM;
            if (n != 0 && static_cast<const char*>(v) == nullptr) return KR_RET_ERR_MEM;
            at += static_cast<unsigned int>(n) + 1;
            continue;
        }
        if (type == KR_VAR_STRINGW) {
            unsigned int used;
            wchar_t* text = decodeWide(bytes + at, used);
            if (text == nullptr) return KR_RET_ERR_MEM;
            v = static_cast<const wchar_t*>(text);
            bool ok = v.varType() == KR_VAR_STRINGW &&
                      (text[0] == 0 || static_cast<const wchar_t*>(v) != nullptr);
            freeBlock(text);
            if (!ok) return KR_RET_ERR_MEM;
            at += used;
            continue;
        }
        unsigned int width = intWidth(type);
        unsigned long long bits = getBig(bytes + at, width);
        at += width;
        switch (type) {
            case KR_VAR_UCHAR:
                v = static_cast<unsigned char>(bits);
                break;
            case KR_VAR_CHAR:
                v = static_cast<char>(static_cast<unsigned char>(bits ^ 0x80));
                break;
            case KR_VAR_USHORT:
                v = static_cast<unsigned short>(bits);
                break;
            case KR_VAR_SHORT:
                v = static_cast<short>(static_cast<unsigned short>(bits ^ 0x8000));
                break;
            case KR_VAR_UINT:
                v = static_cast<unsigned int>(bits);
                break;
            case KR_VAR_INT:
                v = static_cast<int>(static_cast<unsigned int>(bits ^ 0x80000000u));
                break;
            case KR_VAR_ULONG:
                v = static_cast<unsigned long>(bits);
                break;
            case KR_VAR_LONG:
                v = static_cast<long>(static_cast<long long>(bits ^ (1ull << 63)));
                break;
            case KR_VAR_PTR:
                v = reinterpret_cast<void*>(static_cast<uintptr_t>(bits));
                break;
            case KR_VAR_FLOAT: {
                unsigned int u = static_cast<unsigned int>(bits);
                u = (u & 0x80000000u) != 0 ? (u & 0x7FFFFFFFu) : ~u;
                float f;
                memcpy(&f, &u, sizeof(f));
                v = f;
                break;
            }
            default: {
                unsigned long long u = (bits >> 63) != 0 ? (bits & ~(1ull << 63)) : ~bits;
                double d;
                memcpy(&d, &u, sizeof(d));
                v = d;
                break;
            }
        }
    }
    KR_setUserError(0);
    key = staged;
    if (KR_getUserError() == KR_RET_ERR_MEM || key.numElems() != count) return KR_RET_ERR_MEM;
    return KR_RET_TRUE;
}

}  // namespace krInternal
