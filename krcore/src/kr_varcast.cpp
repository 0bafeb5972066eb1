// kr_varcast.cpp — the variant's conversions between types and its arithmetic.
#include <limits.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include <type_traits>

#include "kr_alloc.h"
#include "kr_cnumber.h"
#include "kr_report.h"
#include "kr_strcore.h"
#include "kr_var.h"
#include "kr_varcore.h"

#define KRI_UNIT "src/kr_var"

namespace {

using krInternal::copyText;
using krInternal::isInteger;
using krInternal::isSignedInteger;
using krInternal::isText;
using krInternal::validType;

// The stored integer widened as C widens it: signed types sign-extend, unsigned ones do not.
// The result's bits are what a conversion to any integer type takes its low-order bytes from.
unsigned long long integerBits(KR_VAR_TYPE type, const void* value) {
    switch (type) {
        case KR_VAR_UCHAR:
            return *static_cast<const unsigned char*>(value);
        case KR_VAR_CHAR:
            return static_cast<unsigned long long>(
                    static_cast<long long>(*static_cast<const char*>(value)));
        case KR_VAR_USHORT:
            return *static_cast<const unsigned short*>(value);
        case KR_VAR_SHORT:
            return static_cast<unsigned long long>(
                    static_cast<long long>(*static_cast<const short*>(value)));
        case KR_VAR_UINT:
            return *static_cast<const unsigned int*>(value);
        case KR_VAR_INT:
            return static_cast<unsigned long long>(
                    static_cast<long long>(*static_cast<const int*>(value)));
        case KR_VAR_ULONG:
            return *static_cast<const unsigned long*>(value);
        case KR_VAR_LONG:
            return static_cast<unsigned long long>(
                    static_cast<long long>(*static_cast<const long*>(value)));
        default:
            return 0;
    }
}

// A floating value truncated toward zero into 64 bits. Values beyond the 64-bit range and NaN
// give the bits the processor's own conversion gives them (the lowest long long).
unsigned long long truncatedBits(double value) {
    if (value != value) return static_cast<unsigned long long>(LLONG_MIN);
    if (value > -9223372036854775808.0 && value < 9223372036854775808.0)
        return static_cast<unsigned long long>(static_cast<long long>(value));
    if (value >= 0.0 && value < 18446744073709551616.0)
        return static_cast<unsigned long long>(value);
    return static_cast<unsigned long long>(LLONG_MIN);
}

// The first number of a text as the integer scans read it ("%hu", "%d", "%ld", ...): leading
// white space, a sign, decimal digits; unsigned targets take a negative number's two's
// complement, as strtoul does. 0 when no number starts the text.
template <class C>
unsigned long long scanIntegerBits(const C* text, bool isSigned) {
    if (text == nullptr) return 0;
    while (krInternal::isWhite(*text))
        ++text;
    bool negative = false;
    if (*text == C('+') || *text == C('-')) {
        negative = *text == C('-');
        ++text;
    }
    unsigned long long value = 0;
    bool overflow = false;
    for (; *text >= C('0') && *text <= C('9'); ++text) {
        unsigned long long digit = static_cast<unsigned long long>(*text - C('0'));
        if (value > (ULLONG_MAX - digit) / 10) overflow = true;
        value = value * 10 + digit;
    }
    // Out of range: what strtoll and strtoull answer.
    if (isSigned) {
        unsigned long long limit = negative ? 0x8000000000000000ULL : 0x7FFFFFFFFFFFFFFFULL;
        if (overflow || value > limit) value = limit;
    } else if (overflow) {
        return ULLONG_MAX;
    }
    return negative ? 0 - value : value;
}

// The hexadecimal digits of a pointer as "%p" writes it on any platform: "0x1f", "0000001F",
// "(nil)".
template <class C>
uintptr_t scanPointer(const C* text) {
    if (text == nullptr) return 0;
    while (krInternal::isWhite(*text))
        ++text;
    if (text[0] == C('0') && (text[1] == C('x') || text[1] == C('X'))) text += 2;
    uintptr_t value = 0;
    for (int digit = krInternal::hexDigit(*text); digit >= 0; digit = krInternal::hexDigit(*++text))
        value = value * 16 + static_cast<uintptr_t>(digit);
    return value;
}

}  // namespace

// --- KR_Var: conversions ---

namespace {

// The text a number becomes when cast to a string (the variant is initialised and numeric).
// Answers the length written at buffer (kFixedTextMax characters).
size_t numberText(KR_VAR_TYPE type, const void* value, char* buffer) {
    unsigned long long bits = integerBits(type, value);
    switch (type) {
        case KR_VAR_UCHAR:
        case KR_VAR_CHAR:
            buffer[0] = static_cast<char>(bits);
            buffer[1] = '\0';
            return buffer[0] == '\0' ? 0 : 1;
        case KR_VAR_USHORT:
        case KR_VAR_SHORT:
        case KR_VAR_UINT:
        case KR_VAR_INT:
            return static_cast<size_t>(snprintf(buffer, 32, "%d", static_cast<int>(bits)));
        case KR_VAR_ULONG:
        case KR_VAR_LONG:
            return static_cast<size_t>(snprintf(buffer, 32, "%ld", static_cast<long>(bits)));
        case KR_VAR_FLOAT:
            return krInternal::formatFixed(*static_cast<const float*>(value), buffer);
        case KR_VAR_DOUBLE:
            return krInternal::formatFixed(*static_cast<const double*>(value), buffer);
        default:
            buffer[0] = '\0';
            return 0;
    }
}

}  // namespace

KR_RET_STATUS KR_Var::cast(KR_VAR_TYPE to) {
    KR_setUserError(0);
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (!validType(to)) return KRI_FAIL(KR_RET_ERR_ARG);
    if (to == type_) return KR_RET_TRUE;
    if (to == KR_VAR_WILD) {
        releaseValue();
        type_ = KR_VAR_WILD;
        return KR_RET_TRUE;
    }
    // Objects and pointers become no number and no text.
    if (type_ == KR_VAR_PUBOBJ || (type_ == KR_VAR_PTR && to != KR_VAR_PUBOBJ))
        return KRI_FAIL(KR_RET_ERR_CALL);
    if (to == KR_VAR_PUBOBJ) {
        if (type_ != KR_VAR_WILD) return KRI_FAIL(KR_RET_ERR_CALL);
        value_.bits = 0;
        type_ = KR_VAR_PUBOBJ;
        return KR_RET_TRUE;
    }
    Value result;
    result.bits = 0;
    if (isText(to)) {
        char local[krInternal::kFixedTextMax];
        KR_RET_STATUS status = KR_RET_TRUE;
        void* text = nullptr;
        if (type_ == KR_VAR_STRING) {
            // The other width, converted by the locale.
            text = krInternal::toWide(value_.str, status);
        } else if (type_ == KR_VAR_STRINGW) {
            text = krInternal::toNarrow(value_.wstr, status);
        } else {
            size_t length = numberText(type_, &value_, local);
            if (to == KR_VAR_STRING) {
                text = copyText(local, length);
            } else {
                wchar_t* wide = krInternal::allocTextUncleared<wchar_t>(length + 1);
                if (wide != nullptr) {
                    for (size_t k = 0; k <= length; ++k)
                        wide[k] = static_cast<wchar_t>(static_cast<unsigned char>(local[k]));
                }
                text = wide;
            }
            if (text == nullptr) status = KR_RET_ERR_MEM;
        }
        if (KRI_FAILED(status)) return KRI_FAIL(status);
        result.ptr = text;
    } else if (to == KR_VAR_PTR) {
        if (type_ == KR_VAR_FLOAT || type_ == KR_VAR_DOUBLE) return KRI_FAIL(KR_RET_ERR_CALL);
        if (type_ == KR_VAR_STRING) {
            result.ptr = reinterpret_cast<void*>(scanPointer(value_.str));
        } else if (type_ == KR_VAR_STRINGW) {
            result.ptr = reinterpret_cast<void*>(scanPointer(value_.wstr));
        } else {
            result.ptr =
                    reinterpret_cast<void*>(static_cast<uintptr_t>(integerBits(type_, &value_)));
        }
    } else if (to == KR_VAR_FLOAT || to == KR_VAR_DOUBLE) {
        double number = 0.0;
        if (type_ == KR_VAR_FLOAT) {
            number = value_.f;
        } else if (type_ == KR_VAR_DOUBLE) {
            number = value_.d;
        } else if (type_ == KR_VAR_STRING) {
            krInternal::scanDouble(value_.str, number);
        } else if (type_ == KR_VAR_STRINGW) {
            krInternal::scanDouble(value_.wstr, number);
        } else if (isSignedInteger(type_)) {
            number = static_cast<double>(static_cast<long long>(integerBits(type_, &value_)));
        } else if (isInteger(type_)) {
            number = static_cast<double>(integerBits(type_, &value_));
        }
        // A float from an integer converts directly, not through double, as C converts it.
        if (to == KR_VAR_FLOAT) {
            if (isSignedInteger(type_)) {
                result.f = static_cast<float>(static_cast<long long>(integerBits(type_, &value_)));
            } else if (isInteger(type_)) {
                result.f = static_cast<float>(integerBits(type_, &value_));
            } else {
                result.f = static_cast<float>(number);
            }
        } else {
            result.d = number;
        }
    } else {
        // An integer target: C conversion keeps the low-order bytes of the widened bits.
        unsigned long long bits = 0;
        bool characterTarget = to == KR_VAR_UCHAR || to == KR_VAR_CHAR;
        if (type_ == KR_VAR_FLOAT) {
            bits = truncatedBits(value_.f);
        } else if (type_ == KR_VAR_DOUBLE) {
            bits = truncatedBits(value_.d);
        } else if (type_ == KR_VAR_STRING) {
            if (characterTarget) {
                bits = value_.str != nullptr ? static_cast<unsigned char>(value_.str[0]) : 0;
            } else {
                bits = scanIntegerBits(value_.str, isSignedInteger(to));
            }
        } else if (type_ == KR_VAR_STRINGW) {
            if (characterTarget) {
                bits = value_.wstr != nullptr ? static_cast<unsigned long long>(value_.wstr[0]) : 0;
            } else {
                bits = scanIntegerBits(value_.wstr, isSignedInteger(to));
            }
        } else {
            bits = integerBits(type_, &value_);
        }
        switch (to) {
            case KR_VAR_UCHAR:
                result.uc = static_cast<unsigned char>(bits);
                break;
            case KR_VAR_CHAR:
                result.c = static_cast<char>(bits);
                break;
            case KR_VAR_USHORT:
                result.us = static_cast<unsigned short>(bits);
                break;
            case KR_VAR_SHORT:
                result.s = static_cast<short>(bits);
                break;
            case KR_VAR_UINT:
                result.ui = static_cast<unsigned int>(bits);
                break;
            case KR_VAR_INT:
                result.i = static_cast<int>(bits);
                break;
            case KR_VAR_ULONG:
                result.ul = static_cast<unsigned long>(bits);
                break;
            default:
                result.l = static_cast<long>(bits);
                break;
        }
    }
    releaseValue();
    value_ = result;
    type_ = to;
    cutToLimit();
    return KR_RET_TRUE;
}

unsigned char KR_Var::compatibleMathArgs(KR_Var& a, KR_Var& b) {
    int ta = a.type_;
    int tb = b.type_;
    if (!a.initialised_ || !b.initialised_) return 0;
    if (ta == KR_VAR_WILD || tb == KR_VAR_WILD) return 0;
    if (isText(ta) && isText(tb)) return 1;
    if (isText(ta) || isText(tb) || ta == KR_VAR_PUBOBJ || tb == KR_VAR_PUBOBJ) return 0;
    if (!validType(ta) || !validType(tb)) return 0;
    return 1;
}

namespace {

// a op b in the unsigned type U of the operands' width, which wraps instead of overflowing;
// signed operands go through U and come back with C's conversion. False for a division by zero.
constexpr int kMathAdd = 0;
constexpr int kMathSub = 1;
constexpr int kMathMul = 2;
constexpr int kMathDiv = 3;

template <class T>
bool integerMath(T a, T b, int op, T& result) {
    using U = std::make_unsigned_t<T>;
    U ua = static_cast<U>(a);
    U ub = static_cast<U>(b);
    switch (op) {
        case kMathAdd:
            result = static_cast<T>(static_cast<U>(ua + ub));
            return true;
        case kMathSub:
            result = static_cast<T>(static_cast<U>(ua - ub));
            return true;
        case kMathMul:
            result = static_cast<T>(static_cast<U>(ua * ub));
            return true;
        default:
            if (b == 0) return false;
            // The lowest value divided by -1 overflows (and traps on x86): it wraps to itself.
            if (std::is_signed<T>::value && b == static_cast<T>(-1)) {
                result = static_cast<T>(static_cast<U>(0 - ua));
            } else {
                result = static_cast<T>(a / b);
            }
            return true;
    }
}

template <class T>
T floatingMath(T a, T b, int op) {
    switch (op) {
        case kMathAdd:
            return a + b;
        case kMathSub:
            return a - b;
        case kMathMul:
            return a * b;
        default:
            return a / b;
    }
}

}  // namespace

KR_RET_STATUS KR_Var::makeCompatibleMathArgs(KR_Var& a, KR_Var& b, KR_VAR_TYPE& type) {
    if (!a.initialised_ || !b.initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    int result = KR_resultArgType(a.type_, b.type_);
    if (!compatibleMathArgs(a, b) || result == 0)
        return KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Var: operands cannot be combined", "%d %d\n",
                            static_cast<int>(a.type_), static_cast<int>(b.type_));
    type = static_cast<KR_VAR_TYPE>(result);
    KR_RET_STATUS status = a.cast(type);
    if (!KRI_FAILED(status)) status = b.cast(type);
    return status;
}

KR_Var KR_Var::operator+(KR_Var& other) {
    return compute(*this, other, kMathAdd);
}

KR_Var KR_Var::operator-(KR_Var& other) {
    return compute(*this, other, kMathSub);
}

KR_Var KR_Var::operator*(KR_Var& other) {
    return compute(*this, other, kMathMul);
}

KR_Var KR_Var::operator/(KR_Var& other) {
    return compute(*this, other, kMathDiv);
}

KR_Var KR_Var::compute(KR_Var& left, KR_Var& right, int op) {
    KR_setUserError(0);
    KR_Var wild;
    KR_Var a;
    KR_Var b;
    // A copy that lost its string fails the operation rather than computing with a null.
    if (KRI_FAILED(a.copyFrom(left, true)) || KRI_FAILED(b.copyFrom(right, true))) return wild;
    KR_VAR_TYPE type = KR_VAR_WILD;
    if (KRI_FAILED(makeCompatibleMathArgs(a, b, type))) return wild;
    KR_Var result(type);
    bool divided = true;
    switch (type) {
        case KR_VAR_UCHAR:
            divided = integerMath(a.value_.uc, b.value_.uc, op, result.value_.uc);
            break;
        case KR_VAR_CHAR:
            divided = integerMath(a.value_.c, b.value_.c, op, result.value_.c);
            break;
        case KR_VAR_USHORT:
            divided = integerMath(a.value_.us, b.value_.us, op, result.value_.us);
            break;
        case KR_VAR_SHORT:
            divided = integerMath(a.value_.s, b.value_.s, op, result.value_.s);
            break;
        case KR_VAR_UINT:
            divided = integerMath(a.value_.ui, b.value_.ui, op, result.value_.ui);
            break;
        case KR_VAR_INT:
            divided = integerMath(a.value_.i, b.value_.i, op, result.value_.i);
            break;
        case KR_VAR_ULONG:
            divided = integerMath(a.value_.ul, b.value_.ul, op, result.value_.ul);
            break;
        case KR_VAR_LONG:
            divided = integerMath(a.value_.l, b.value_.l, op, result.value_.l);
            break;
        case KR_VAR_FLOAT:
            result.value_.f = floatingMath(a.value_.f, b.value_.f, op);
            break;
        case KR_VAR_DOUBLE:
            result.value_.d = floatingMath(a.value_.d, b.value_.d, op);
            break;
        case KR_VAR_PTR: {
            uintptr_t sum = 0;
            divided = integerMath(reinterpret_cast<uintptr_t>(a.value_.ptr),
                                  reinterpret_cast<uintptr_t>(b.value_.ptr), op, sum);
            result.value_.ptr = reinterpret_cast<void*>(sum);
            break;
        }
        default: {
            // Two texts of one width: only addition, which joins them.
            if (op != kMathAdd) {
                KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Var: texts only add", nullptr);
                return wild;
            }
            void* joined = nullptr;
            if (type == KR_VAR_STRING) {
                joined = krInternal::concatText(a.value_.str, krInternal::textLength(a.value_.str),
                                                b.value_.str, krInternal::textLength(b.value_.str));
            } else {
                joined = krInternal::concatText(
                        a.value_.wstr, krInternal::textLength(a.value_.wstr), b.value_.wstr,
                        krInternal::textLength(b.value_.wstr));
            }
            if (joined == nullptr) {
                KRI_FAIL(KR_RET_ERR_MEM);
                return wild;
            }
            result.value_.ptr = joined;
            break;
        }
    }
    if (!divided) {
        KRI_FAIL_MSG(KR_RET_ERR_ARG, "KR_Var: division by zero", nullptr);
        return wild;
    }
    return result;
}

KR_VAR_TYPE KR_resultArgType(KR_VAR_TYPE a, KR_VAR_TYPE b) {
    if (a == KR_VAR_PUBOBJ && b == KR_VAR_PUBOBJ) return KR_VAR_PUBOBJ;
    KR_VAR_TYPE none = static_cast<KR_VAR_TYPE>(0);
    if (a == KR_VAR_PUBOBJ || b == KR_VAR_PUBOBJ || !validType(a) || !validType(b)) return none;
    KR_VAR_TYPE larger = a > b ? a : b;
    return larger == KR_VAR_WILD ? none : larger;
}
