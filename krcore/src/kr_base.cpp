// kr_base.cpp — the root class and the number-base conversions.
#include "kr_base.h"

#include <limits.h>
#include <stdio.h>

#include "kr_report.h"
#include "kr_strbase.h"
#include "kr_strcore.h"

#define KRI_UNIT "src/kr_base"

namespace {

using krInternal::CharOps;
using krInternal::hexDigit;

// The kept digit tolerance: a base accepts digits up to maxDigit, which may be the base itself.
template <class C>
unsigned int digitsValue(C* text, unsigned int base, unsigned int maxDigit) {
    if (text == nullptr) return 0;
    unsigned int value = 0;
    unsigned int weight = 1;
    for (size_t i = CharOps<C>::length(text); i-- > 0;) {
        text[i] = CharOps<C>::upper(text[i]);
        int digit = hexDigit(text[i]);
        if (digit < 0 || static_cast<unsigned int>(digit) > maxDigit) break;
        value += static_cast<unsigned int>(digit) * weight;
        weight *= base;
    }
    return value;
}

template <class C>
KR_RET_STATUS decimalToBinary(C* out, int value) {
    if (out == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    if (value < 0) {
        // Kept as it always was: a negative value is not divided, and the '0' + low byte
        // character stands for it.
        out[0] = static_cast<C>('0' + (static_cast<unsigned int>(value) & 0xFF));
        out[1] = 0;
        return KR_RET_TRUE;
    }
    C digits[CHAR_BIT * sizeof(int) + 1];
    size_t count = 0;
    unsigned int rest = static_cast<unsigned int>(value);
    while (rest >= 2) {
        digits[count++] = static_cast<C>('0' + rest % 2);
        rest /= 2;
    }
    digits[count++] = static_cast<C>('0' + rest);
    for (size_t i = 0; i < count; ++i)
        out[i] = digits[count - 1 - i];
    out[count] = 0;
    return KR_RET_TRUE;
}

// printf's digits of value, widened character by character (they are all ASCII).
template <class C>
KR_RET_STATUS formatUnsigned(C* out, unsigned int value, const char* format) {
    if (out == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    char digits[32];
    int count = snprintf(digits, sizeof digits, format, value);
    for (int i = 0; i <= count; ++i)
        out[i] = static_cast<C>(digits[i]);
    return KR_RET_TRUE;
}

}  // namespace

// --- KR_KorvaneClass ---

// The root class's destructor lives here so that its type information is emitted once, in the
// library, and shared by every module.
KR_KorvaneClass::~KR_KorvaneClass() {}

// --- Number bases (declared in kr_strbase.h) ---

KR_RET_STATUS KR_decToBin(char* out, int value) {
    KR_setUserError(0);
    return decimalToBinary(out, value);
}

KR_RET_STATUS KR_decToBinW(wchar_t* out, int value) {
    KR_setUserError(0);
    return decimalToBinary(out, value);
}

KR_RET_STATUS KR_decToOct(char* out, unsigned int value) {
    KR_setUserError(0);
    return formatUnsigned(out, value, "%o");
}

KR_RET_STATUS KR_decToOctW(wchar_t* out, unsigned int value) {
    KR_setUserError(0);
    return formatUnsigned(out, value, "%o");
}

KR_RET_STATUS KR_decToHex(char* out, unsigned int value) {
    KR_setUserError(0);
    return formatUnsigned(out, value, "%x");
}

KR_RET_STATUS KR_decToHexW(wchar_t* out, unsigned int value) {
    KR_setUserError(0);
    return formatUnsigned(out, value, "%x");
}

unsigned int KR_binToDec(char* text) {
    KR_setUserError(0);
    return digitsValue(text, 2, 2);
}

unsigned int KR_binToDecW(wchar_t* text) {
    KR_setUserError(0);
    return digitsValue(text, 2, 2);
}

unsigned int KR_octToDec(char* text) {
    KR_setUserError(0);
    return digitsValue(text, 8, 8);
}

unsigned int KR_octToDecW(wchar_t* text) {
    KR_setUserError(0);
    return digitsValue(text, 8, 8);
}

unsigned int KR_hexToDec(char* text) {
    KR_setUserError(0);
    return digitsValue(text, 16, 15);
}

unsigned int KR_hexToDecW(wchar_t* text) {
    KR_setUserError(0);
    return digitsValue(text, 16, 15);
}
