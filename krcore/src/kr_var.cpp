// kr_var.cpp — the variant: construction, assignment, conversion, arithmetic and order.
#include "kr_var.h"

#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include "kr_alloc.h"
#include "kr_cnumber.h"
#include "kr_report.h"
#include "kr_strcore.h"
#include "kr_varcore.h"
#include "kr_varobj.h"

#define KRI_UNIT "src/kr_var"

namespace {

using krInternal::copyText;
using krInternal::freeBlock;
using krInternal::isText;
using krInternal::validType;

// Display names by type number, 0 standing for every number outside 1..15. Each unsigned/signed
// pair shows the other's name: these are the names that hosts have always shown.
const char* const kDisplayNames[16] = {
        "Undefined", KR_VAR_NAME_WILD, "Char",    "Unsigned char",
        "Short",     "Unsigned short", "Integer", "Unsigned integer",
        "Long",      "Unsigned long",  "Float",   "Double",
        "String",    "Unicode string", "Pointer", "Class Object Pointer"};
const wchar_t* const kDisplayNamesW[16] = {
        L"Undefined", KR_VAR_NAME_WILDW, L"Char",    L"Unsigned char",
        L"Short",     L"Unsigned short", L"Integer", L"Unsigned integer",
        L"Long",      L"Unsigned long",  L"Float",   L"Double",
        L"String",    L"Unicode string", L"Pointer", L"Class Object Pointer"};

// The names of the argument-map aliases, from KR_VAR_ID_BOOL on, and the types they stand for.
const char* const kAliasNames[] = {"Boolean",  "File name", "Directory",
                                   "Password", "Colour",    "Choice"};
const KR_VAR_TYPE kAliasTypes[] = {KR_VAR_INT,     KR_VAR_STRINGW, KR_VAR_STRINGW,
                                   KR_VAR_STRINGW, KR_VAR_UINT,    KR_VAR_STRINGW};
constexpr int kFirstAlias = KR_VAR_ID_BOOL;
constexpr int kLastAlias = KR_VAR_ID_CHOICE;

int nameIndex(int type) {
    return krInternal::validType(type) ? type : 0;
}

// The string copies of both widths: the new text is made before anything is released, so a
// failed copy leaves the variant as it was.
template <class C>
KR_RET_STATUS prepareText(const C* text, int strLengMax, C*& copy) {
    copy = nullptr;
    if (text == nullptr) return KR_RET_TRUE;
    size_t length = krInternal::textLength(text);
    if (strLengMax >= 0 && length > static_cast<size_t>(strLengMax))
        length = static_cast<size_t>(strLengMax);
    copy = copyText(text, length);
    return copy == nullptr ? KR_RET_ERR_MEM : KR_RET_TRUE;
}

}  // namespace

// --- KR_Var ---

KR_Var::KR_Var(KR_VAR_TYPE type, unsigned char lockType) {
    KR_setUserError(0);
    initDataMembers(type, lockType);
}

#define KRI_VAR_NUMBER_CTOR(CType, member, typeNumber)    \
    KR_Var::KR_Var(CType value, unsigned char lockType) { \
        KR_setUserError(0);                               \
        initDataMembers(typeNumber, lockType);            \
        value_.member = value;                            \
    }

KRI_VAR_NUMBER_CTOR(char, c, KR_VAR_CHAR)
KRI_VAR_NUMBER_CTOR(unsigned char, uc, KR_VAR_UCHAR)
KRI_VAR_NUMBER_CTOR(short, s, KR_VAR_SHORT)
KRI_VAR_NUMBER_CTOR(unsigned short, us, KR_VAR_USHORT)
KRI_VAR_NUMBER_CTOR(int, i, KR_VAR_INT)
KRI_VAR_NUMBER_CTOR(unsigned int, ui, KR_VAR_UINT)
KRI_VAR_NUMBER_CTOR(long, l, KR_VAR_LONG)
KRI_VAR_NUMBER_CTOR(unsigned long, ul, KR_VAR_ULONG)
KRI_VAR_NUMBER_CTOR(float, f, KR_VAR_FLOAT)
KRI_VAR_NUMBER_CTOR(double, d, KR_VAR_DOUBLE)
KRI_VAR_NUMBER_CTOR(void*, ptr, KR_VAR_PTR)
KRI_VAR_NUMBER_CTOR(KR_PubObjVar*, obj, KR_VAR_PUBOBJ)
#undef KRI_VAR_NUMBER_CTOR

KR_Var::KR_Var(char* text, unsigned char lockType) : KR_Var(KR_VAR_STRING, lockType) {
    copyStr(text);
}

KR_Var::KR_Var(const char* text, unsigned char lockType) : KR_Var(KR_VAR_STRING, lockType) {
    copyStr(text);
}

KR_Var::KR_Var(const KR_String& text, unsigned char lockType) : KR_Var(KR_VAR_STRING, lockType) {
    copyStr(text);
}

KR_Var::KR_Var(wchar_t* text, unsigned char lockType) : KR_Var(KR_VAR_STRINGW, lockType) {
    copyStrW(text);
}

KR_Var::KR_Var(const wchar_t* text, unsigned char lockType) : KR_Var(KR_VAR_STRINGW, lockType) {
    copyStrW(text);
}

KR_Var::KR_Var(const KR_StringW& text, unsigned char lockType) : KR_Var(KR_VAR_STRINGW, lockType) {
    copyStrW(text);
}

KR_Var::KR_Var(const KR_Var& other) : KR_Persistable(other) {
    KR_setUserError(0);
    initDataMembers(KR_VAR_WILD, 0);
    if (!other.initialised_) {
        initialised_ = 0;
        KRI_FAIL(KR_RET_ERR_POBJ);
        return;
    }
    if (KRI_FAILED(copyFrom(other, true))) {
        // The copy keeps the source's type with a null value.
        type_ = other.type_;
        lockType_ = other.lockType_;
        strLengMax_ = other.strLengMax_;
    }
}

KR_Var::KR_Var(KR_Var&& other) noexcept
    : KR_Persistable(other),
      initialised_(other.initialised_),
      value_(other.value_),
      type_(other.type_),
      lockType_(other.lockType_),
      reserved_(other.reserved_),
      strLengMax_(other.strLengMax_) {
    other.value_.bits = 0;
    other.type_ = KR_VAR_WILD;
    other.lockType_ = 0;
    other.reserved_ = 0;
    other.strLengMax_ = -1;
}

KR_Var::~KR_Var() {
    if (initialised_) cleanupDataMembers();
}

KR_Var& KR_Var::operator=(const KR_Var& other) {
    KR_setUserError(0);
    copyFrom(other, false);
    return *this;
}

KR_Var& KR_Var::operator=(KR_Var&& other) noexcept {
    if (!initialised_ || !other.initialised_) return *this = static_cast<const KR_Var&>(other);
    Value value = value_;
    value_ = other.value_;
    other.value_ = value;
    KR_VAR_TYPE type = type_;
    type_ = other.type_;
    other.type_ = type;
    unsigned char lockType = lockType_;
    lockType_ = other.lockType_;
    other.lockType_ = lockType;
    unsigned int reserved = reserved_;
    reserved_ = other.reserved_;
    other.reserved_ = reserved;
    int strLengMax = strLengMax_;
    strLengMax_ = other.strLengMax_;
    other.strLengMax_ = strLengMax;
    return *this;
}

#define KRI_VAR_NUMBER_ASSIGN(CType, member, typeNumber) \
    KR_Var& KR_Var::operator=(CType value) {             \
        KR_setUserError(0);                              \
        Value stored;                                    \
        stored.bits = 0;                                 \
        stored.member = value;                           \
        storeValue(typeNumber, stored);                  \
        return *this;                                    \
    }

KRI_VAR_NUMBER_ASSIGN(char, c, KR_VAR_CHAR)
KRI_VAR_NUMBER_ASSIGN(unsigned char, uc, KR_VAR_UCHAR)
KRI_VAR_NUMBER_ASSIGN(short, s, KR_VAR_SHORT)
KRI_VAR_NUMBER_ASSIGN(unsigned short, us, KR_VAR_USHORT)
KRI_VAR_NUMBER_ASSIGN(int, i, KR_VAR_INT)
KRI_VAR_NUMBER_ASSIGN(unsigned int, ui, KR_VAR_UINT)
KRI_VAR_NUMBER_ASSIGN(long, l, KR_VAR_LONG)
KRI_VAR_NUMBER_ASSIGN(unsigned long, ul, KR_VAR_ULONG)
KRI_VAR_NUMBER_ASSIGN(float, f, KR_VAR_FLOAT)
KRI_VAR_NUMBER_ASSIGN(double, d, KR_VAR_DOUBLE)
KRI_VAR_NUMBER_ASSIGN(void*, ptr, KR_VAR_PTR)
#undef KRI_VAR_NUMBER_ASSIGN

KR_Var& KR_Var::operator=(char* text) {
    KR_setUserError(0);
    copyStr(text);
    return *this;
}

KR_Var& KR_Var::operator=(const char* text) {
    KR_setUserError(0);
    copyStr(text);
    return *this;
}

KR_Var& KR_Var::operator=(const KR_String& text) {
    KR_setUserError(0);
    copyStr(text);
    return *this;
}

KR_Var& KR_Var::operator=(wchar_t* text) {
    KR_setUserError(0);
    copyStrW(text);
    return *this;
}

KR_Var& KR_Var::operator=(const wchar_t* text) {
    KR_setUserError(0);
    copyStrW(text);
    return *this;
}

KR_Var& KR_Var::operator=(const KR_StringW& text) {
    KR_setUserError(0);
    copyStrW(text);
    return *this;
}

KR_Var& KR_Var::operator=(KR_PubObjVar* object) {
    KR_setUserError(0);
    if (!initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return *this;
    }
    if (lockType_ && type_ != KR_VAR_PUBOBJ) {
        KRI_FAIL(KR_RET_ERR_ARG);
        return *this;
    }
    assignPubObj(object);
    return *this;
}

KR_RET_STATUS KR_Var::get(void* place) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (place == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    size_t size = 0;
    switch (type_) {
        case KR_VAR_WILD:
            break;
        case KR_VAR_UCHAR:
        case KR_VAR_CHAR:
            size = 1;
            break;
        case KR_VAR_USHORT:
        case KR_VAR_SHORT:
            size = sizeof(short);
            break;
        case KR_VAR_UINT:
        case KR_VAR_INT:
            size = sizeof(int);
            break;
        case KR_VAR_ULONG:
        case KR_VAR_LONG:
            size = sizeof(long);
            break;
        case KR_VAR_FLOAT:
            size = sizeof(float);
            break;
        case KR_VAR_DOUBLE:
            size = sizeof(double);
            break;
        default:
            size = sizeof(void*);
            break;
    }
    memcpy(place, &value_, size);
    return KR_RET_TRUE;
}

namespace {

// The pointer-valued get forms: the variant must hold that kind of value.
template <class P>
KR_RET_STATUS getPointer(
        unsigned char initialised, bool kindMatches, P value, P* place, int lineOfCaller) {
    if (!initialised) return krInternal::failAt(KR_RET_ERR_POBJ, KRI_UNIT, lineOfCaller);
    if (place == nullptr || !kindMatches)
        return krInternal::failAt(KR_RET_ERR_ARG, KRI_UNIT, lineOfCaller);
    *place = value;
    return KR_RET_TRUE;
}

}  // namespace

KR_RET_STATUS KR_Var::get(char** place) {
    KR_setUserError(0);
    return getPointer(initialised_, type_ == KR_VAR_STRING, value_.str, place, __LINE__);
}

KR_RET_STATUS KR_Var::get(wchar_t** place) {
    KR_setUserError(0);
    return getPointer(initialised_, type_ == KR_VAR_STRINGW, value_.wstr, place, __LINE__);
}

KR_RET_STATUS KR_Var::get(void** place) {
    KR_setUserError(0);
    return getPointer(initialised_, type_ == KR_VAR_PTR, value_.ptr, place, __LINE__);
}

KR_RET_STATUS KR_Var::get(KR_PubObjVar** place) {
    KR_setUserError(0);
    return getPointer(initialised_, type_ == KR_VAR_PUBOBJ, value_.obj, place, __LINE__);
}

KR_RET_STATUS KR_Var::set(void* p) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    return set(type_, p);
}

KR_RET_STATUS KR_Var::set(KR_VAR_TYPE type, void* p) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (!validType(type)) return KRI_FAIL(KR_RET_ERR_ARG);
    if (type == KR_VAR_PUBOBJ) {
        KR_PubObjVar* object = static_cast<KR_PubObjVar*>(p);
        if (type_ != KR_VAR_PUBOBJ || value_.obj != object) {
            releaseValue();
            value_.obj = object;
        }
        type_ = type;
        return KR_RET_TRUE;
    }
    Value value;
    value.bits = 0;
    if (type == KR_VAR_STRING || type == KR_VAR_STRINGW) {
        // The text may be the variant's own: copy it before the old one is released.
        KR_RET_STATUS status =
                type == KR_VAR_STRING
                        ? prepareText(static_cast<const char*>(p), strLengMax_, value.str)
                        : prepareText(static_cast<const wchar_t*>(p), strLengMax_, value.wstr);
        if (KRI_FAILED(status)) return KRI_FAIL(status);
    } else if (p != nullptr) {
        switch (type) {
            case KR_VAR_UCHAR:
            case KR_VAR_CHAR:
                memcpy(&value, p, 1);
                break;
            case KR_VAR_USHORT:
            case KR_VAR_SHORT:
                memcpy(&value, p, sizeof(short));
                break;
            case KR_VAR_UINT:
            case KR_VAR_INT:
                memcpy(&value, p, sizeof(int));
                break;
            case KR_VAR_ULONG:
            case KR_VAR_LONG:
                memcpy(&value, p, sizeof(long));
                break;
            case KR_VAR_FLOAT:
                memcpy(&value, p, sizeof(float));
                break;
            case KR_VAR_DOUBLE:
                memcpy(&value, p, sizeof(double));
                break;
            case KR_VAR_PTR:
                memcpy(&value, p, sizeof(void*));
                break;
            default:
                break;
        }
    }
    releaseValue();
    value_ = value;
    type_ = type;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Var::setLockVarType(unsigned char lockType) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    lockType_ = lockType;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Var::setStrLengMax(int max) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (!isText(type_)) return KR_RET_FALSE;
    if (max < 0) {
        strLengMax_ = -1;
        return KR_RET_TRUE;
    }
    strLengMax_ = max;
    cutToLimit();
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Var::clear() {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    value_.bits = 0;
    reserved_ = 0;
    strLengMax_ = -1;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Var::assignPubObj(KR_PubObjVar* object) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (type_ != KR_VAR_PUBOBJ || value_.obj != object) {
        releaseValue();
        value_.obj = object;
    }
    type_ = KR_VAR_PUBOBJ;
    return KR_RET_TRUE;
}

unsigned char KR_Var::operator<(const KR_Var& other) const {
    return varComp(other) < 0;
}

unsigned char KR_Var::operator<=(const KR_Var& other) const {
    return varComp(other) <= 0;
}

unsigned char KR_Var::operator==(const KR_Var& other) const {
    if (&other == this) return 1;
    return varComp(other) == 0;
}

unsigned char KR_Var::operator!=(const KR_Var& other) const {
    return varComp(other) != 0;
}

unsigned char KR_Var::operator>(const KR_Var& other) const {
    return varComp(other) > 0;
}

unsigned char KR_Var::operator>=(const KR_Var& other) const {
    return varComp(other) >= 0;
}

KR_RET_STATUS KR_Var::initDataMembers(KR_VAR_TYPE type, unsigned char lockType) {
    value_.bits = 0;
    reserved_ = 0;
    strLengMax_ = -1;
    lockType_ = 1;
    if (!validType(type)) {
        initialised_ = 0;
        type_ = static_cast<KR_VAR_TYPE>(0);
        return KRI_FAIL(KR_RET_ERR_ARG);
    }
    type_ = type;
    lockType_ = lockType;
    initialised_ = 1;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Var::cleanupDataMembers() {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    releaseValue();
    initialised_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Var::copyStr(const char* text) {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (lockType_ && type_ != KR_VAR_STRING) return KRI_FAIL(KR_RET_ERR_ARG);
    char* copy = nullptr;
    if (KRI_FAILED(prepareText(text, strLengMax_, copy))) return KRI_FAIL(KR_RET_ERR_MEM);
    releaseValue();
    value_.str = copy;
    type_ = KR_VAR_STRING;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Var::copyStrW(const wchar_t* text) {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (lockType_ && type_ != KR_VAR_STRINGW) return KRI_FAIL(KR_RET_ERR_ARG);
    wchar_t* copy = nullptr;
    if (KRI_FAILED(prepareText(text, strLengMax_, copy))) return KRI_FAIL(KR_RET_ERR_MEM);
    releaseValue();
    value_.wstr = copy;
    type_ = KR_VAR_STRINGW;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Var::storeValue(KR_VAR_TYPE type, Value value) {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (lockType_ && type_ != type) return KRI_FAIL(KR_RET_ERR_ARG);
    releaseValue();
    value_ = value;
    type_ = type;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Var::copyFrom(const KR_Var& other, bool force) {
    if (!initialised_ || !other.initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (&other == this) return KR_RET_TRUE;
    if (!force && lockType_ && type_ != other.type_) return KRI_FAIL(KR_RET_ERR_ARG);
    int limit = force ? other.strLengMax_ : strLengMax_;
    Value value = other.value_;
    if (other.type_ == KR_VAR_STRING) {
        if (KRI_FAILED(prepareText(other.value_.str, limit, value.str)))
            return KRI_FAIL(KR_RET_ERR_MEM);
    } else if (other.type_ == KR_VAR_STRINGW) {
        if (KRI_FAILED(prepareText(other.value_.wstr, limit, value.wstr)))
            return KRI_FAIL(KR_RET_ERR_MEM);
    } else if (other.type_ == KR_VAR_PUBOBJ && other.value_.obj != nullptr) {
        KR_RET_STATUS status = krInternal::copyPubObj(other.value_.obj, value.obj);
        if (KRI_FAILED(status)) return status;
    }
    releaseValue();
    value_ = value;
    type_ = other.type_;
    if (force) {
        lockType_ = other.lockType_;
        strLengMax_ = other.strLengMax_;
        reserved_ = other.reserved_;
    }
    return KR_RET_TRUE;
}

namespace {

// text cut to max characters in place; a null text or a negative max leaves it as it is. Only
// the first max characters are looked at.
template <class C>
void cutText(C* text, int max) {
    if (text == nullptr || max < 0) return;
    for (int k = 0; k < max; ++k) {
        if (text[k] == C(0)) return;
    }
    text[max] = C(0);
}

}  // namespace

void KR_Var::cutToLimit() {
    if (type_ == KR_VAR_STRING) cutText(value_.str, strLengMax_);
    if (type_ == KR_VAR_STRINGW) cutText(value_.wstr, strLengMax_);
}

void KR_Var::releaseValue() {
    if (type_ == KR_VAR_STRING) {
        freeBlock(value_.str);
    } else if (type_ == KR_VAR_STRINGW) {
        freeBlock(value_.wstr);
    } else if (type_ == KR_VAR_PUBOBJ) {
        krInternal::releasePubObj(value_.obj);
    }
    value_.bits = 0;
}

int KR_Var::varComp(const KR_Var& other) const {
    KR_setUserError(0);
    if (!initialised_ || !other.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    if (type_ != other.type_) return 1;
    const Value& a = value_;
    const Value& b = other.value_;
    switch (type_) {
        case KR_VAR_UCHAR:
            return a.uc == b.uc ? 0 : (a.uc < b.uc ? -1 : 1);
        case KR_VAR_USHORT:
            return a.us == b.us ? 0 : (a.us < b.us ? -1 : 1);
        case KR_VAR_UINT:
            return a.ui == b.ui ? 0 : (a.ui < b.ui ? -1 : 1);
        case KR_VAR_ULONG:
            return a.ul == b.ul ? 0 : (a.ul < b.ul ? -1 : 1);
        case KR_VAR_PTR: {
            uintptr_t pa = reinterpret_cast<uintptr_t>(a.ptr);
            uintptr_t pb = reinterpret_cast<uintptr_t>(b.ptr);
            return pa == pb ? 0 : (pa < pb ? -1 : 1);
        }
        case KR_VAR_CHAR:
            return static_cast<int>(a.c) - static_cast<int>(b.c);
        case KR_VAR_SHORT:
            return static_cast<int>(a.s) - static_cast<int>(b.s);
        case KR_VAR_INT:
            // The 32-bit difference, wrapping for operands far apart.
            return static_cast<int>(static_cast<unsigned int>(a.i) -
                                    static_cast<unsigned int>(b.i));
        case KR_VAR_LONG:
            return a.l == b.l ? 0 : (a.l < b.l ? -1 : 1);
        case KR_VAR_FLOAT: {
            float diff = a.f - b.f;
            if (diff > -0.001f && diff < 0.001f) return 0;
            return diff < 0.0f ? -1 : 1;
        }
        case KR_VAR_DOUBLE: {
            // The tolerance is the single-precision 0.001 for doubles too.
            double diff = a.d - b.d;
            if (diff > -static_cast<double>(0.001f) && diff < static_cast<double>(0.001f)) return 0;
            return diff < 0.0 ? -1 : 1;
        }
        case KR_VAR_STRING:
            return KR_strcmp(a.str, b.str);
        case KR_VAR_STRINGW:
            return KR_strcmpW(a.wstr, b.wstr);
        case KR_VAR_PUBOBJ:
            if (a.obj == nullptr) return b.obj == nullptr ? 0 : -1;
            if (b.obj == nullptr) return 1;
            return krInternal::comparePubObj(a.obj, b.obj);
        default:
            return 1;
    }
}

// --- names and printers ---

namespace {

template <class C>
KR_RET_STATUS typeName(C** out, KR_Var& v, const C* const* names, int line) {
    KR_setUserError(0);
    if (out == nullptr) return krInternal::failAt(KR_RET_ERR_ARG, KRI_UNIT, line);
    *out = nullptr;
    if (!v.objIsEnabled()) return krInternal::failAt(KR_RET_ERR_ARG, KRI_UNIT, line);
    const C* name = names[nameIndex(v.varType())];
    *out = copyText(name, krInternal::textLength(name));
    if (*out == nullptr) return krInternal::failAt(KR_RET_ERR_MEM, KRI_UNIT, line);
    return KR_RET_TRUE;
}

// Whether text equals the ASCII name, character by character in C's width.
template <class C>
bool sameName(const C* text, const char* name) {
    for (; *name != '\0'; ++text, ++name) {
        if (*text != static_cast<C>(static_cast<unsigned char>(*name))) return false;
    }
    return *text == C(0);
}

template <class C>
KR_RET_STATUS parseTypeName(const C* text, KR_VAR_TYPE& type, int line) {
    KR_setUserError(0);
    if (text == nullptr) return krInternal::failAt(KR_RET_ERR_ARG, KRI_UNIT, line);
    // Wild has no tag name in the text form; "WILD" names it here.
    if (sameName(text, "WILD")) {
        type = KR_VAR_WILD;
        return KR_RET_TRUE;
    }
    for (int t = KR_VAR_UCHAR; t <= KR_VAR_PUBOBJ; ++t) {
        if (sameName(text, krInternal::kVarTagNames[t])) {
            type = static_cast<KR_VAR_TYPE>(t);
            return KR_RET_TRUE;
        }
    }
    for (int t = KR_VAR_WILD; t <= KR_VAR_PUBOBJ; ++t) {
        if (sameName(text, kDisplayNames[t])) {
            type = static_cast<KR_VAR_TYPE>(t);
            return KR_RET_TRUE;
        }
    }
    return KR_RET_FALSE;
}

}  // namespace

KR_RET_STATUS KR_type2Str(char** out, KR_Var& v) {
    return typeName(out, v, kDisplayNames, __LINE__);
}

KR_RET_STATUS KR_type2StrW(wchar_t** out, KR_Var& v) {
    return typeName(out, v, kDisplayNamesW, __LINE__);
}

KR_RET_STATUS KR_str2Type(const char* text, KR_VAR_TYPE& type) {
    return parseTypeName(text, type, __LINE__);
}

KR_RET_STATUS KR_str2TypeW(const wchar_t* text, KR_VAR_TYPE& type) {
    return parseTypeName(text, type, __LINE__);
}

KR_VAR_TYPE KR_varAlias2Type(KR_VAR_TYPE_ID id) {
    if (validType(id)) return static_cast<KR_VAR_TYPE>(id);
    if (id >= kFirstAlias && id <= kLastAlias) return kAliasTypes[id - kFirstAlias];
    return static_cast<KR_VAR_TYPE>(0);
}

KR_OStream& operator<<(KR_OStream& stream, KR_Var& v) {
    KR_setUserError(0);
    if (!v.objIsEnabled()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return stream;
    }
    switch (v.varType()) {
        case KR_VAR_UCHAR:
            return stream << static_cast<char>(v.uc());
        case KR_VAR_CHAR:
            return stream << v.c();
        case KR_VAR_USHORT:
            return stream << v.us();
        case KR_VAR_SHORT:
            return stream << v.s();
        case KR_VAR_UINT:
            return stream << v.ui();
        case KR_VAR_INT:
            return stream << v.i();
        case KR_VAR_ULONG:
            return stream << v.ul();
        case KR_VAR_LONG:
            return stream << v.l();
        case KR_VAR_FLOAT:
            return stream << v.f();
        case KR_VAR_DOUBLE:
            return stream << v.d();
        case KR_VAR_STRING:
            return v.str() != nullptr ? stream << v.str() : stream;
        case KR_VAR_STRINGW:
            return v.wstr() != nullptr ? stream << v.wstr() : stream;
        case KR_VAR_PTR:
            return stream << static_cast<const void*>(v.ptr());
        case KR_VAR_PUBOBJ:
            return stream << (v.objptr() != nullptr ? "<Class Object Pointer>" : "<null>");
        default:
            return stream;
    }
}

KR_OStream& operator<<(KR_OStream& stream, KR_VAR_TYPE type) {
    return stream << kDisplayNames[nameIndex(type)];
}

KR_OStream& operator<<(KR_OStream& stream, KR_VAR_TYPE_ID id) {
    if (id >= kFirstAlias && id <= kLastAlias) return stream << kAliasNames[id - kFirstAlias];
    return stream << kDisplayNames[nameIndex(id)];
}
