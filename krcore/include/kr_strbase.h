// kr_strbase.h — utilities on raw zero-terminated texts, each with a wide twin (suffix W).
// Comparison treats a null text like "". Searches answer null for a null text or pattern.
// Functions that change a text in place say so; functions that return a new heap block leave it
// to the caller to free() it. Case rules use the C library's toupper/towupper of the current
// locale. Failures are reported under "src/kr_strbase" (the number-base conversions under
// "src/kr_base").
#ifndef KRCORE_KR_STRBASE_H
#define KRCORE_KR_STRBASE_H

#include <wchar.h>

#include "kr_globals.h"
#include "kr_reporter.h"

// --- Comparison ---

// Both null-or-empty: 0; else a null a: -1, a null b: 1; else the first differing character,
// compared unsigned, gives -1 or 1, and equal texts 0.
KR_API int KR_strcmp(const char* a, const char* b);
KR_API int KR_strcmpW(const wchar_t* a, const wchar_t* b);
// As KR_strcmp with both characters upper-cased before each comparison.
KR_API int KR_strcmpNoCase(const char* a, const char* b);
KR_API int KR_strcmpNoCaseW(const wchar_t* a, const wchar_t* b);
// As KR_strcmp on at most the first count characters of each text (0 for a count of 0).
KR_API int KR_strncmp(const char* a, const char* b, unsigned int count);
KR_API int KR_strncmpW(const wchar_t* a, const wchar_t* b, unsigned int count);
// 1 when the texts are equal by KR_strcmp (caseSensitive non-zero) or KR_strcmpNoCase.
KR_API unsigned char KR_strsEqual(const char* a, const char* b, unsigned char caseSensitive);
KR_API unsigned char KR_strsEqualW(const wchar_t* a, const wchar_t* b, unsigned char caseSensitive);
// 1 when text begins (ends) with affix. A null or empty affix is found in every text; a null
// text counts as "".
KR_API unsigned char KR_strStartsWith(const char* text,
                                      const char* prefix,
                                      unsigned char caseSensitive);
KR_API unsigned char KR_strStartsWithW(const wchar_t* text,
                                       const wchar_t* prefix,
                                       unsigned char caseSensitive);
KR_API unsigned char KR_strEndsWith(const char* text,
                                    const char* suffix,
                                    unsigned char caseSensitive);
KR_API unsigned char KR_strEndsWithW(const wchar_t* text,
                                     const wchar_t* suffix,
                                     unsigned char caseSensitive);
// 1 for a null or "" text. With whiteIsEmpty non-zero, a text made only of white space (space,
// TAB, LF, VT, FF, CR) is empty too.
KR_API unsigned char KR_isEmptyStr(const char* text, unsigned char whiteIsEmpty);
KR_API unsigned char KR_isEmptyStrW(const wchar_t* text, unsigned char whiteIsEmpty);

// --- Search ---

// The first occurrence of pattern in text (an empty pattern is found at the start); null when
// either is null or there is none. With caseSensitive zero both are compared upper-cased, and the
// position is still one in text itself. If the working copies cannot be made, KR_RET_ERR_MEM is
// reported and text itself is returned.
KR_API char* KR_strstr(char* text, const char* pattern, unsigned char caseSensitive);
KR_API const char* KR_strstr(const char* text, const char* pattern, unsigned char caseSensitive);
KR_API wchar_t* KR_strstrW(wchar_t* text, const wchar_t* pattern, unsigned char caseSensitive);
KR_API const wchar_t* KR_strstrW(const wchar_t* text,
                                 const wchar_t* pattern,
                                 unsigned char caseSensitive);
// Number of non-overlapping occurrences, counted from the left; 0 when either is null or the
// pattern is empty. A memory failure in the case-insensitive path is reported (KR_RET_ERR_MEM)
// and gives 0: test KR_getStatusCode() when that matters.
KR_API unsigned int KR_strPatternFrequency(const char* text,
                                           const char* pattern,
                                           unsigned char caseSensitive);
KR_API unsigned int KR_strPatternFrequencyW(const wchar_t* text,
                                            const wchar_t* pattern,
                                            unsigned char caseSensitive);
// The first character of text that is in list (as strpbrk); null when either is null or none is.
KR_API char* KR_strchlist(char* text, const char* list);
KR_API const char* KR_strchlist(const char* text, const char* list);
KR_API wchar_t* KR_strchlistW(wchar_t* text, const wchar_t* list);
KR_API const wchar_t* KR_strchlistW(const wchar_t* text, const wchar_t* list);
// wcschr and wcsrchr that accept a null text (null result). As in C, a c of 0 finds the
// terminating zero.
KR_API wchar_t* KR_wcschr(wchar_t* text, wchar_t c);
KR_API const wchar_t* KR_wcschr(const wchar_t* text, wchar_t c);
KR_API wchar_t* KR_wcsrchr(wchar_t* text, wchar_t c);
KR_API const wchar_t* KR_wcsrchr(const wchar_t* text, wchar_t c);

// --- Substitution ---

// *out := a new heap text (free() it) with every non-overlapping occurrence of pattern replaced,
// scanning from the left; replaced text is never searched again. KR_RET_TRUE when something was
// replaced. KR_RET_FALSE with *out null when nothing was: a null text, replacement or pattern, an
// empty pattern, or no occurrence (callers then use text as it is). A null out: KR_RET_ERR_ARG.
// KR_RET_ERR_MEM leaves *out null.
KR_API KR_RET_STATUS KR_strSubstitute(char** out,
                                      const char* text,
                                      const char* replacement,
                                      const char* pattern,
                                      unsigned char caseSensitive);
KR_API KR_RET_STATUS KR_strSubstituteW(wchar_t** out,
                                       const wchar_t* text,
                                       const wchar_t* replacement,
                                       const wchar_t* pattern,
                                       unsigned char caseSensitive);

// --- In-place changes (each returns its text, or the number of characters removed) ---

KR_API char* KR_strToLower(char* text);
KR_API wchar_t* KR_strToLowerW(wchar_t* text);
KR_API char* KR_strToUpper(char* text);
KR_API wchar_t* KR_strToUpperW(wchar_t* text);
// Reverses the characters (for narrow text: the bytes, so multibyte characters do not survive).
KR_API char* KR_strReverse(char* text);
KR_API wchar_t* KR_strReverseW(wchar_t* text);
// Remove the characters listed in chars (null chars: white space) from the start, the end, both
// ends, or everywhere in text. Answer the number of characters removed (0 for a null text).
KR_API unsigned int KR_stripLeadingChars(char* text, const char* chars);
KR_API unsigned int KR_stripLeadingCharsW(wchar_t* text, const wchar_t* chars);
KR_API unsigned int KR_stripTrailingChars(char* text, const char* chars);
KR_API unsigned int KR_stripTrailingCharsW(wchar_t* text, const wchar_t* chars);
KR_API unsigned int KR_stripPaddedChars(char* text, const char* chars);
KR_API unsigned int KR_stripPaddedCharsW(wchar_t* text, const wchar_t* chars);
KR_API unsigned int KR_stripChars(char* text, const char* chars);
KR_API unsigned int KR_stripCharsW(wchar_t* text, const wchar_t* chars);
// Keeps only the characters listed in keep (a null keep removes everything); answers the number
// removed.
KR_API unsigned int KR_strFilterChars(char* text, const char* keep);
KR_API unsigned int KR_strFilterCharsW(wchar_t* text, const wchar_t* keep);
// Removes at most count characters from position start (fewer at the end of the text); answers
// the number removed (0 when start is at or beyond the end).
KR_API unsigned int KR_deleteSubString(char* text, unsigned int start, unsigned int count);
KR_API unsigned int KR_deleteSubStringW(wchar_t* text, unsigned int start, unsigned int count);
// Decodes the C escapes of buffer in place: \n \t \r \v \f \a \b \\ \' \" \? \xHH... (hex digits,
// as many as follow) and \ooo (one to three octal digits). A sequence whose value does not fit a
// character of the text's width, or that would give a zero character, and an unknown escape, stay
// as they stand. KR_RET_TRUE when something was decoded, KR_RET_FALSE when nothing was (null
// buffer included).
KR_API KR_RET_STATUS KR_escanBuffer(char* buffer);
KR_API KR_RET_STATUS KR_escanBufferW(wchar_t* buffer);

// --- Numbers ---

// Plain decimal notation: optional "-", then "0", or digits without leading zeros; with
// allowDecimal non-zero also one ".", as in "12.5", "0.5", ".5", "0." and even "." alone. No
// exponent, no "+", no spaces. Null: 0.
KR_API unsigned char KR_isNumeric(const char* text, char allowDecimal);
KR_API unsigned char KR_isNumericW(const wchar_t* text, char allowDecimal);

// Digits of value into out, which must hold 33 characters (binary), 12 (octal) or 9 (hex) and the
// terminating zero. A null out: KR_RET_ERR_ARG. KR_decToBin writes no leading zeros ("0" for 0);
// for a negative value it writes the single character '0' + the value's low byte (a kept quirk:
// pass non-negative values). Octal and hex are "%o" and "%x" (lower-case digits).
KR_API KR_RET_STATUS KR_decToBin(char* out, int value);
KR_API KR_RET_STATUS KR_decToBinW(wchar_t* out, int value);
KR_API KR_RET_STATUS KR_decToOct(char* out, unsigned int value);
KR_API KR_RET_STATUS KR_decToOctW(wchar_t* out, unsigned int value);
KR_API KR_RET_STATUS KR_decToHex(char* out, unsigned int value);
KR_API KR_RET_STATUS KR_decToHexW(wchar_t* out, unsigned int value);
// The value of the digits of text, read from the last character towards the first; the scan
// stops at the first character (from the right) that is not a digit, keeping the value to its
// right. Each character is upper-cased in place in the caller's text first. Kept tolerances:
// binary accepts 0 to 2 and octal 0 to 8 (one digit beyond the base, weighted as it reads).
// Overflow wraps. 0 for a null or empty text.
KR_API unsigned int KR_binToDec(char* text);
KR_API unsigned int KR_binToDecW(wchar_t* text);
KR_API unsigned int KR_octToDec(char* text);
KR_API unsigned int KR_octToDecW(wchar_t* text);
KR_API unsigned int KR_hexToDec(char* text);
KR_API unsigned int KR_hexToDecW(wchar_t* text);

// --- New heap texts (free() them) and width conversion ---

// A copy of text; null for a null text, and after a KR_RET_ERR_MEM report.
KR_API char* KR_strdup(const char* text);
KR_API wchar_t* KR_strdupW(const wchar_t* text);
// The locale's multibyte conversion. Null for null input. A text the locale cannot convert (an
// invalid multibyte sequence, a wide character without a multibyte form) gives null after a
// KR_RET_ERR_GEN report; a memory failure gives null after KR_RET_ERR_MEM.
KR_API wchar_t* KR_strToWStr(const char* text);
KR_API char* KR_wStrToStr(const wchar_t* text);

// --- Processes ---

// Runs command through the system's command processor and answers its result as system() does
// (the command's exit status in the platform's encoding; -1 when the processor could not run).
// A null command asks whether a processor exists (non-zero when it does). KR_systemW converts to
// multibyte where the platform has no wide call; a failed conversion answers -1 after a
// KR_RET_ERR_GEN report.
KR_API int KR_system(const char* command);
KR_API int KR_systemW(const wchar_t* command);

#endif  // KRCORE_KR_STRBASE_H
