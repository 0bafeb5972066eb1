// kr_strbase.cpp — utilities on raw texts; each narrow function and its W twin share a template.
#include "kr_strbase.h"

#include <string.h>
#include <wchar.h>

#include <limits>

#include "kr_alloc.h"
#include "kr_report.h"
#include "kr_strcore.h"

#define KRI_UNIT "src/kr_strbase"

namespace {

using krInternal::CharOps;
using krInternal::hexDigit;
using krInternal::SearchTexts;
using krInternal::UnsignedChar;

// --- comparison ---

// KR_strcmp's rule on at most limit characters, optionally with both sides upper-cased.
template <class C>
int compareTexts(const C* a, const C* b, size_t limit, bool fold) {
    bool aEmpty = a == nullptr || *a == 0;
    bool bEmpty = b == nullptr || *b == 0;
    if (aEmpty && bEmpty) return 0;
    if (a == nullptr) return -1;
    if (b == nullptr) return 1;
    for (size_t i = 0; i < limit; ++i) {
        C ca = fold ? CharOps<C>::upper(a[i]) : a[i];
        C cb = fold ? CharOps<C>::upper(b[i]) : b[i];
        UnsignedChar<C> ua = static_cast<UnsignedChar<C>>(ca);
        UnsignedChar<C> ub = static_cast<UnsignedChar<C>>(cb);
        if (ua != ub) return ua < ub ? -1 : 1;
        if (ua == 0) return 0;
    }
    return 0;
}

template <class C>
bool sameCharacters(const C* a, const C* b, size_t count, bool fold) {
    for (size_t i = 0; i < count; ++i) {
        if (fold ? CharOps<C>::upper(a[i]) != CharOps<C>::upper(b[i]) : a[i] != b[i]) return false;
    }
    return true;
}

template <class C>
unsigned char startsWith(const C* text, const C* prefix, unsigned char caseSensitive) {
    size_t prefixLength = krInternal::textLength(prefix);
    if (prefixLength == 0) return 1;
    if (krInternal::textLength(text) < prefixLength) return 0;
    return sameCharacters(text, prefix, prefixLength, caseSensitive == 0) ? 1 : 0;
}

template <class C>
unsigned char endsWith(const C* text, const C* suffix, unsigned char caseSensitive) {
    size_t suffixLength = krInternal::textLength(suffix);
    if (suffixLength == 0) return 1;
    size_t textLength = krInternal::textLength(text);
    if (textLength < suffixLength) return 0;
    const C* tail = text + textLength - suffixLength;
    return sameCharacters(tail, suffix, suffixLength, caseSensitive == 0) ? 1 : 0;
}

template <class C>
unsigned char isEmptyText(const C* text, unsigned char whiteIsEmpty) {
    if (text == nullptr || *text == 0) return 1;
    if (whiteIsEmpty == 0) return 0;
    for (; *text != 0; ++text) {
        if (!krInternal::isWhite(*text)) return 0;
    }
    return 1;
}

// --- search ---

template <class C>
C* searchText(C* text, const C* pattern, unsigned char caseSensitive) {
    if (text == nullptr || pattern == nullptr) return nullptr;
    SearchTexts<C> search(text, pattern, caseSensitive);
    if (!search.ok()) {
        // The working copies are missing: answer as if found at the start, as callers of the
        // case-insensitive search have always been told.
        KRI_FAIL(KR_RET_ERR_MEM);
        return text;
    }
    long long at = search.find(0);
    return at < 0 ? nullptr : text + at;
}

template <class C>
unsigned int patternFrequency(const C* text, const C* pattern, unsigned char caseSensitive) {
    if (text == nullptr || pattern == nullptr || *pattern == 0) return 0;
    SearchTexts<C> search(text, pattern, caseSensitive);
    if (!search.ok()) {
        KRI_FAIL(KR_RET_ERR_MEM);
        return 0;
    }
    krInternal::PatternFinder<C> finder(search.haystack(), search.needle());
    return static_cast<unsigned int>(krInternal::countOccurrences(finder));
}

template <class C>
C* firstOfList(C* text, const C* list) {
    if (text == nullptr || list == nullptr) return nullptr;
    for (C* p = text; *p != 0; ++p) {
        if (CharOps<C>::findChar(list, *p) != nullptr) return p;
    }
    return nullptr;
}

// --- substitution ---

template <class C>
KR_RET_STATUS substitute(C** out,
                         const C* text,
                         const C* replacement,
                         const C* pattern,
                         unsigned char caseSensitive) {
    if (out == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    KR_RET_STATUS status =
            krInternal::substituteText(out, text, replacement, pattern, caseSensitive);
    if (status == KR_RET_ERR_MEM) return KRI_FAIL(status);
    return status;
}

// --- in-place changes ---

template <class C>
C* toLower(C* text) {
    if (text == nullptr) return nullptr;
    for (C* p = text; *p != 0; ++p)
        *p = CharOps<C>::lower(*p);
    return text;
}

template <class C>
C* toUpper(C* text) {
    if (text == nullptr) return nullptr;
    krInternal::upperInPlace(text, CharOps<C>::length(text));
    return text;
}

template <class C>
C* reverseText(C* text) {
    if (text == nullptr) return nullptr;
    size_t length = CharOps<C>::length(text);
    for (size_t i = 0, j = length; i + 1 < j; ++i, --j) {
        C c = text[i];
        text[i] = text[j - 1];
        text[j - 1] = c;
    }
    return text;
}

// Membership in a strip set; a null set stands for white space.
template <class C>
bool inStripSet(C c, const C* set) {
    if (set == nullptr) return krInternal::isWhite(c);
    return c != 0 && CharOps<C>::findChar(set, c) != nullptr;
}

template <class C>
unsigned int stripLeading(C* text, const C* chars) {
    if (text == nullptr) return 0;
    size_t skip = 0;
    while (text[skip] != 0 && inStripSet(text[skip], chars))
        ++skip;
    if (skip > 0) memmove(text, text + skip, (CharOps<C>::length(text + skip) + 1) * sizeof(C));
    return static_cast<unsigned int>(skip);
}

template <class C>
unsigned int stripTrailing(C* text, const C* chars) {
    if (text == nullptr) return 0;
    size_t length = CharOps<C>::length(text);
    size_t end = length;
    while (end > 0 && inStripSet(text[end - 1], chars))
        --end;
    text[end] = 0;
    return static_cast<unsigned int>(length - end);
}

// Keeps the characters for which keep(c) holds, in order; answers the number removed.
template <class C, class Keep>
unsigned int compact(C* text, Keep keep) {
    if (text == nullptr) return 0;
    C* write = text;
    const C* read = text;
    for (; *read != 0; ++read) {
        if (keep(*read)) *write++ = *read;
    }
    *write = 0;
    return static_cast<unsigned int>(read - write);
}

template <class C>
unsigned int deleteSubString(C* text, unsigned int start, unsigned int count) {
    if (text == nullptr || count == 0) return 0;
    size_t length = CharOps<C>::length(text);
    if (start >= length) return 0;
    size_t removed = count < length - start ? count : length - start;
    memmove(text + start, text + start + removed, (length - start - removed + 1) * sizeof(C));
    return static_cast<unsigned int>(removed);
}

// Decodes the escape that starts at the backslash `at`. Answers the characters used (0 when the
// escape is unknown or its value is zero or too large for C) and stores the value.
template <class C>
size_t decodeEscape(const C* at, C& value) {
    static const char kSimple[] = "n\nt\tr\rv\vf\fa\ab\b\\\\''\"\"??";
    const unsigned long long kMax = std::numeric_limits<UnsignedChar<C>>::max();
    C kind = at[1];
    for (size_t i = 0; kSimple[i] != 0; i += 2) {
        if (kind == C(kSimple[i])) {
            value = C(kSimple[i + 1]);
            return 2;
        }
    }
    unsigned long long code = 0;
    size_t used = 0;
    if (kind == C('x')) {
        size_t i = 2;
        for (; hexDigit(at[i]) >= 0; ++i) {
            code = code * 16 + static_cast<unsigned long long>(hexDigit(at[i]));
            if (code > kMax) return 0;
        }
        if (i == 2) return 0;
        used = i;
    } else if (kind >= C('0') && kind <= C('7')) {
        size_t i = 1;
        for (; i < 4 && at[i] >= C('0') && at[i] <= C('7'); ++i) {
            code = code * 8 + static_cast<unsigned long long>(at[i] - C('0'));
        }
        used = i;
    } else {
        return 0;
    }
    if (code == 0 || code > kMax) return 0;
    value = static_cast<C>(static_cast<UnsignedChar<C>>(code));
    return used;
}

template <class C>
KR_RET_STATUS unescapeBuffer(C* buffer) {
    if (buffer == nullptr) return KR_RET_FALSE;
    C* write = buffer;
    const C* read = buffer;
    bool changed = false;
    while (*read != 0) {
        C value = 0;
        size_t used = (*read == C('\\') && read[1] != 0) ? decodeEscape(read, value) : 0;
        if (used == 0) {
            *write++ = *read++;
            continue;
        }
        *write++ = value;
        read += used;
        changed = true;
    }
    *write = 0;
    return changed ? KR_RET_TRUE : KR_RET_FALSE;
}

// --- numbers ---

template <class C>
bool isDigit(C c) {
    return c >= C('0') && c <= C('9');
}

template <class C>
bool allDigits(const C* text) {
    for (; *text != 0; ++text) {
        if (!isDigit(*text)) return false;
    }
    return true;
}

template <class C>
unsigned char isNumericText(const C* text, char allowDecimal) {
    if (text == nullptr) return 0;
    const C* p = text;
    if (*p == C('-')) ++p;
    if (p[0] == C('0') && p[1] == 0) return 1;
    if (p[0] == C('.')) return allowDecimal != 0 && allDigits(p + 1);
    if (p[0] == C('0')) return allowDecimal != 0 && p[1] == C('.') && allDigits(p + 2);
    if (p[0] < C('1') || p[0] > C('9')) return 0;
    bool seenPoint = false;
    for (++p; *p != 0; ++p) {
        if (isDigit(*p)) continue;
        if (allowDecimal != 0 && *p == C('.') && !seenPoint) {
            seenPoint = true;
            continue;
        }
        return 0;
    }
    return 1;
}

}  // namespace

// --- Comparison ---

int KR_strcmp(const char* a, const char* b) {
    KR_setUserError(0);
    return compareTexts(a, b, static_cast<size_t>(-1), false);
}

int KR_strcmpW(const wchar_t* a, const wchar_t* b) {
    KR_setUserError(0);
    return compareTexts(a, b, static_cast<size_t>(-1), false);
}

int KR_strcmpNoCase(const char* a, const char* b) {
    KR_setUserError(0);
    return compareTexts(a, b, static_cast<size_t>(-1), true);
}

int KR_strcmpNoCaseW(const wchar_t* a, const wchar_t* b) {
    KR_setUserError(0);
    return compareTexts(a, b, static_cast<size_t>(-1), true);
}

int KR_strncmp(const char* a, const char* b, unsigned int count) {
    KR_setUserError(0);
    return count == 0 ? 0 : compareTexts(a, b, count, false);
}

int KR_strncmpW(const wchar_t* a, const wchar_t* b, unsigned int count) {
    KR_setUserError(0);
    return count == 0 ? 0 : compareTexts(a, b, count, false);
}

unsigned char KR_strsEqual(const char* a, const char* b, unsigned char caseSensitive) {
    KR_setUserError(0);
    return compareTexts(a, b, static_cast<size_t>(-1), caseSensitive == 0) == 0 ? 1 : 0;
}

unsigned char KR_strsEqualW(const wchar_t* a, const wchar_t* b, unsigned char caseSensitive) {
    KR_setUserError(0);
    return compareTexts(a, b, static_cast<size_t>(-1), caseSensitive == 0) == 0 ? 1 : 0;
}

unsigned char KR_strStartsWith(const char* text, const char* prefix, unsigned char caseSensitive) {
    KR_setUserError(0);
    return startsWith(text, prefix, caseSensitive);
}

unsigned char KR_strStartsWithW(const wchar_t* text,
                                const wchar_t* prefix,
                                unsigned char caseSensitive) {
    KR_setUserError(0);
    return startsWith(text, prefix, caseSensitive);
}

unsigned char KR_strEndsWith(const char* text, const char* suffix, unsigned char caseSensitive) {
    KR_setUserError(0);
    return endsWith(text, suffix, caseSensitive);
}

unsigned char KR_strEndsWithW(const wchar_t* text,
                              const wchar_t* suffix,
                              unsigned char caseSensitive) {
    KR_setUserError(0);
    return endsWith(text, suffix, caseSensitive);
}

unsigned char KR_isEmptyStr(const char* text, unsigned char whiteIsEmpty) {
    KR_setUserError(0);
    return isEmptyText(text, whiteIsEmpty);
}

unsigned char KR_isEmptyStrW(const wchar_t* text, unsigned char whiteIsEmpty) {
    KR_setUserError(0);
    return isEmptyText(text, whiteIsEmpty);
}

// --- Search ---

char* KR_strstr(char* text, const char* pattern, unsigned char caseSensitive) {
    KR_setUserError(0);
    return searchText(text, pattern, caseSensitive);
}

const char* KR_strstr(const char* text, const char* pattern, unsigned char caseSensitive) {
    KR_setUserError(0);
    // The search only reads the text; the non-const form serves both.
    return searchText(const_cast<char*>(text), pattern, caseSensitive);
}

wchar_t* KR_strstrW(wchar_t* text, const wchar_t* pattern, unsigned char caseSensitive) {
    KR_setUserError(0);
    return searchText(text, pattern, caseSensitive);
}

const wchar_t* KR_strstrW(const wchar_t* text,
                          const wchar_t* pattern,
                          unsigned char caseSensitive) {
    KR_setUserError(0);
    return searchText(const_cast<wchar_t*>(text), pattern, caseSensitive);
}

unsigned int KR_strPatternFrequency(const char* text,
                                    const char* pattern,
                                    unsigned char caseSensitive) {
    KR_setUserError(0);
    return patternFrequency(text, pattern, caseSensitive);
}

unsigned int KR_strPatternFrequencyW(const wchar_t* text,
                                     const wchar_t* pattern,
                                     unsigned char caseSensitive) {
    KR_setUserError(0);
    return patternFrequency(text, pattern, caseSensitive);
}

char* KR_strchlist(char* text, const char* list) {
    KR_setUserError(0);
    return firstOfList(text, list);
}

const char* KR_strchlist(const char* text, const char* list) {
    KR_setUserError(0);
    return firstOfList(const_cast<char*>(text), list);
}

wchar_t* KR_strchlistW(wchar_t* text, const wchar_t* list) {
    KR_setUserError(0);
    return firstOfList(text, list);
}

const wchar_t* KR_strchlistW(const wchar_t* text, const wchar_t* list) {
    KR_setUserError(0);
    return firstOfList(const_cast<wchar_t*>(text), list);
}

wchar_t* KR_wcschr(wchar_t* text, wchar_t c) {
    KR_setUserError(0);
    return text == nullptr ? nullptr : wcschr(text, c);
}

const wchar_t* KR_wcschr(const wchar_t* text, wchar_t c) {
    KR_setUserError(0);
    return text == nullptr ? nullptr : wcschr(text, c);
}

wchar_t* KR_wcsrchr(wchar_t* text, wchar_t c) {
    KR_setUserError(0);
    return text == nullptr ? nullptr : wcsrchr(text, c);
}

const wchar_t* KR_wcsrchr(const wchar_t* text, wchar_t c) {
    KR_setUserError(0);
    return text == nullptr ? nullptr : wcsrchr(text, c);
}

// --- Substitution ---

KR_RET_STATUS KR_strSubstitute(char** out,
                               const char* text,
                               const char* replacement,
                               const char* pattern,
                               unsigned char caseSensitive) {
    KR_setUserError(0);
    return substitute(out, text, replacement, pattern, caseSensitive);
}

KR_RET_STATUS KR_strSubstituteW(wchar_t** out,
                                const wchar_t* text,
                                const wchar_t* replacement,
                                const wchar_t* pattern,
                                unsigned char caseSensitive) {
    KR_setUserError(0);
    return substitute(out, text, replacement, pattern, caseSensitive);
}

// --- In-place changes ---

char* KR_strToLower(char* text) {
    KR_setUserError(0);
    return toLower(text);
}

wchar_t* KR_strToLowerW(wchar_t* text) {
    KR_setUserError(0);
    return toLower(text);
}

char* KR_strToUpper(char* text) {
    KR_setUserError(0);
    return toUpper(text);
}

wchar_t* KR_strToUpperW(wchar_t* text) {
    KR_setUserError(0);
    return toUpper(text);
}

char* KR_strReverse(char* text) {
    KR_setUserError(0);
    return reverseText(text);
}

wchar_t* KR_strReverseW(wchar_t* text) {
    KR_setUserError(0);
    return reverseText(text);
}

unsigned int KR_stripLeadingChars(char* text, const char* chars) {
    KR_setUserError(0);
    return stripLeading(text, chars);
}

unsigned int KR_stripLeadingCharsW(wchar_t* text, const wchar_t* chars) {
    KR_setUserError(0);
    return stripLeading(text, chars);
}

unsigned int KR_stripTrailingChars(char* text, const char* chars) {
    KR_setUserError(0);
    return stripTrailing(text, chars);
}

unsigned int KR_stripTrailingCharsW(wchar_t* text, const wchar_t* chars) {
    KR_setUserError(0);
    return stripTrailing(text, chars);
}

unsigned int KR_stripPaddedChars(char* text, const char* chars) {
    KR_setUserError(0);
    unsigned int removed = stripTrailing(text, chars);
    return removed + stripLeading(text, chars);
}

unsigned int KR_stripPaddedCharsW(wchar_t* text, const wchar_t* chars) {
    KR_setUserError(0);
    unsigned int removed = stripTrailing(text, chars);
    return removed + stripLeading(text, chars);
}

unsigned int KR_stripChars(char* text, const char* chars) {
    KR_setUserError(0);
    return compact(text, [chars](char c) { return !inStripSet(c, chars); });
}

unsigned int KR_stripCharsW(wchar_t* text, const wchar_t* chars) {
    KR_setUserError(0);
    return compact(text, [chars](wchar_t c) { return !inStripSet(c, chars); });
}

unsigned int KR_strFilterChars(char* text, const char* keep) {
    KR_setUserError(0);
    return compact(text, [keep](char c) { return keep != nullptr && inStripSet(c, keep); });
}

unsigned int KR_strFilterCharsW(wchar_t* text, const wchar_t* keep) {
    KR_setUserError(0);
    return compact(text, [keep](wchar_t c) { return keep != nullptr && inStripSet(c, keep); });
}

unsigned int KR_deleteSubString(char* text, unsigned int start, unsigned int count) {
    KR_setUserError(0);
    return deleteSubString(text, start, count);
}

unsigned int KR_deleteSubStringW(wchar_t* text, unsigned int start, unsigned int count) {
    KR_setUserError(0);
    return deleteSubString(text, start, count);
}

KR_RET_STATUS KR_escanBuffer(char* buffer) {
    KR_setUserError(0);
    return unescapeBuffer(buffer);
}

KR_RET_STATUS KR_escanBufferW(wchar_t* buffer) {
    KR_setUserError(0);
    return unescapeBuffer(buffer);
}

// --- Numbers ---

unsigned char KR_isNumeric(const char* text, char allowDecimal) {
    KR_setUserError(0);
    return isNumericText(text, allowDecimal);
}

unsigned char KR_isNumericW(const wchar_t* text, char allowDecimal) {
    KR_setUserError(0);
    return isNumericText(text, allowDecimal);
}
