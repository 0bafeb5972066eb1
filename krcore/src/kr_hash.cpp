// kr_hash.cpp — the default hash functions of the hash table.
#include "kr_hash.h"

#include <stdio.h>
#include <string.h>

#include "kr_cnumber.h"
#include "kr_endian.h"
#include "kr_report.h"
#include "kr_utf16.h"

#define KRI_UNIT "src/kr_hash"

namespace {

// Adds the characters of text to sum, each as a signed 8-bit value; the sum wraps at 2^32. The
// length comes first (the C library measures it word by word), and four partial sums then run
// side by side instead of waiting on one another.
unsigned int addChars(unsigned int sum, const char* text) {
    size_t n = strlen(text);
    const signed char* chars = reinterpret_cast<const signed char*>(text);
    unsigned int s0 = sum, s1 = 0, s2 = 0, s3 = 0;
    size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        s0 += static_cast<unsigned int>(static_cast<int>(chars[i]));
        s1 += static_cast<unsigned int>(static_cast<int>(chars[i + 1]));
        s2 += static_cast<unsigned int>(static_cast<int>(chars[i + 2]));
        s3 += static_cast<unsigned int>(static_cast<int>(chars[i + 3]));
    }
    for (; i < n; ++i)
        s0 += static_cast<unsigned int>(static_cast<int>(chars[i]));
    return s0 + s1 + s2 + s3;
}

// Adds the characters of the text form of v to sum. False when v has no text form: a null
// string, or a type that cannot be hashed (reported).
bool addVarText(unsigned int& sum, KR_Var& v) {
    // Wide enough for the fixed form of any double, the longest of the forms.
    char buffer[krInternal::kFixedTextMax];
    const char* text = buffer;
    buffer[0] = '\0';
    buffer[1] = '\0';
    KR_VAR_TYPE type = v.objIsEnabled() ? v.varType() : KR_VAR_WILD;
    switch (type) {
        case KR_VAR_UCHAR:
            buffer[0] = static_cast<char>(v.uc());
            break;
        case KR_VAR_CHAR:
            buffer[0] = v.c();
            break;
        case KR_VAR_USHORT:
            snprintf(buffer, sizeof buffer, "%u", static_cast<unsigned int>(v.us()));
            break;
        case KR_VAR_SHORT:
            snprintf(buffer, sizeof buffer, "%d", static_cast<int>(v.s()));
            break;
        case KR_VAR_UINT:
            snprintf(buffer, sizeof buffer, "%u", v.ui());
            break;
        case KR_VAR_INT:
            snprintf(buffer, sizeof buffer, "%d", v.i());
            break;
        case KR_VAR_ULONG:
            snprintf(buffer, sizeof buffer, "%ld", static_cast<long>(v.ul()));
            break;
        case KR_VAR_LONG:
            snprintf(buffer, sizeof buffer, "%ld", v.l());
            break;
        case KR_VAR_FLOAT:
            krInternal::formatFixed(static_cast<double>(v.f()), buffer);
            break;
        case KR_VAR_DOUBLE:
            krInternal::formatFixed(v.d(), buffer);
            break;
        case KR_VAR_STRING:
            text = v.str();
            if (text == nullptr) return false;
            break;
        case KR_VAR_PTR:
            snprintf(buffer, sizeof buffer, "%p", v.ptr());
            break;
        default:
            KRI_FAIL(KR_RET_ERR_ARG);
            return false;
    }
    sum = addChars(sum, text);
    return true;
}

}  // namespace

unsigned int KR_defHashFuncStringKey(KR_String& key, unsigned int size) {
    KR_setUserError(0);
    const char* text = key;
    if (text == nullptr || size == 0) return size;
    return addChars(0, text) % size;
}

unsigned int KR_defHashFuncStringWKey(KR_StringW& key, unsigned int size) {
    KR_setUserError(0);
    const wchar_t* text = key;
    if (text == nullptr || size == 0) return size;
    unsigned int sum = 0;
    unsigned char units[4];
    for (; *text != L'\0'; ++text) {
        size_t bytes = krInternal::writeUtf16LE(text, 1, units);
        for (size_t i = 0; i < bytes; i += 2)
            sum += krInternal::loadLe<unsigned short>(units + i);
    }
    return sum % size;
}

unsigned int KR_defHashFuncGUIDKey(const void* key, unsigned int size) {
    KR_setUserError(0);
    if (key == nullptr) {
        KRI_FAIL(KR_RET_ERR_ARG);
        return size;
    }
    const char* text = *static_cast<const char* const*>(key);
    if (text == nullptr || size == 0) return size;
    return addChars(0, text) % size;
}

unsigned int KR_defHashFuncVarKey(KR_Var& key, unsigned int size) {
    KR_setUserError(0);
    unsigned int sum = 0;
    if (!addVarText(sum, key) || size == 0) return size;
    return sum % size;
}

unsigned int KR_defHashFuncVarArrKey(KR_VarArr& key, unsigned int size) {
    KR_setUserError(0);
    if (!key.objIsEnabled()) {
        KRI_FAIL(KR_RET_ERR_ARG);
        return size;
    }
    unsigned int sum = 0;
    for (unsigned int i = 0; i < key.numElems(); ++i) {
        if (!addVarText(sum, key[i])) return size;
    }
    return size == 0 ? 0 : sum % size;
}
