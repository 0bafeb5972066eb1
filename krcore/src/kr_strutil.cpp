// kr_strutil.cpp — the utilities whose result is a string object: substitution, control-character
// coding, substrings, width conversion, split and join.
#include <limits.h>
#include <string.h>
#include <wchar.h>

#include "kr_alloc.h"
#include "kr_array_impl.h"
#include "kr_report.h"
#include "kr_str.h"
#include "kr_strcore.h"

#define KRI_UNIT "src/kr_str"

namespace {

using krInternal::allocText;
using krInternal::CharOps;
using krInternal::textLength;

// --- control characters ---

struct ControlForm {
    unsigned char code;
    const char* form;
    const wchar_t* formW;
};

// Row c holds code c for c < 32; row 32 holds 127.
const ControlForm kControlForms[33] = {
        {0, "$CHR(NUL)", L"$CHR(NUL)"},  {1, "$CHR(SOH)", L"$CHR(SOH)"},
        {2, "$CHR(STX)", L"$CHR(STX)"},  {3, "$CHR(ETX)", L"$CHR(ETX)"},
        {4, "$CHR(EOT)", L"$CHR(EOT)"},  {5, "$CHR(ENQ)", L"$CHR(ENQ)"},
        {6, "$CHR(ACK)", L"$CHR(ACK)"},  {7, "$CHR(BEL)", L"$CHR(BEL)"},
        {8, "$CHR(BS)", L"$CHR(BS)"},    {9, "$CHR(TAB)", L"$CHR(TAB)"},
        {10, "$CHR(LF)", L"$CHR(LF)"},   {11, "$CHR(VT)", L"$CHR(VT)"},
        {12, "$CHR(FF)", L"$CHR(FF)"},   {13, "$CHR(CR)", L"$CHR(CR)"},
        {14, "$CHR(SO)", L"$CHR(SO)"},   {15, "$CHR(SI)", L"$CHR(SI)"},
        {16, "$CHR(DLE)", L"$CHR(DLE)"}, {17, "$CHR(DC1)", L"$CHR(DC1)"},
        {18, "$CHR(DC2)", L"$CHR(DC2)"}, {19, "$CHR(DC3)", L"$CHR(DC3)"},
        {20, "$CHR(DC4)", L"$CHR(DC4)"}, {21, "$CHR(NAK)", L"$CHR(NAK)"},
        {22, "$CHR(SYN)", L"$CHR(SYN)"}, {23, "$CHR(ETB)", L"$CHR(ETB)"},
        {24, "$CHR(CAN)", L"$CHR(CAN)"}, {25, "$CHR(EM)", L"$CHR(EM)"},
        {26, "$CHR(SUB)", L"$CHR(SUB)"}, {27, "$CHR(ESC)", L"$CHR(ESC)"},
        {28, "$CHR(FS)", L"$CHR(FS)"},   {29, "$CHR(GS)", L"$CHR(GS)"},
        {30, "$CHR(RS)", L"$CHR(RS)"},   {31, "$CHR(US)", L"$CHR(US)"},
        {127, "$CHR(DEL)", L"$CHR(DEL)"}};

const char* formOf(const ControlForm& row, char) {
    return row.form;
}

const wchar_t* formOf(const ControlForm& row, wchar_t) {
    return row.formW;
}

template <class C>
const C* marker() {
    return formOf(ControlForm{0, "$CHR(", L"$CHR("}, C());
}

template <class C>
const C* escapedMarker() {
    return formOf(ControlForm{0, "$$CHR(", L"$$CHR("}, C());
}

// The table row of a character that is written in its $CHR form, or -1. TAB, LF and CR stay,
// and so do bytes 128 to 255 (and wide characters above 127): they have no row, and copying them
// keeps decoding the inverse of encoding.
template <class C>
int controlRow(C c) {
    auto code = static_cast<krInternal::UnsignedChar<C>>(c);
    if (code == 127) return 32;
    if (code >= 32 || code == 9 || code == 10 || code == 13) return -1;
    return static_cast<int>(code);
}

template <class C>
bool startsWithText(const C* text, const C* prefix) {
    for (; *prefix != 0; ++text, ++prefix) {
        if (*text != *prefix) return false;
    }
    return true;
}

// result := text with the control characters encoded (null for a null text). Unreported
// KR_RET_ERR_MEM on failure.
template <class C>
KR_RET_STATUS encodeControls(C*& result, const C* text) {
    result = nullptr;
    if (text == nullptr) return KR_RET_TRUE;
    C* escaped = nullptr;
    if (CharOps<C>::find(text, marker<C>()) != nullptr) {
        KR_RET_STATUS st =
                krInternal::substituteText(&escaped, text, escapedMarker<C>(), marker<C>(), 1);
        if (KRI_FAILED(st)) return st;
        text = escaped;
    }
    size_t length = CharOps<C>::length(text);
    size_t encodedLength = 0;
    for (const C* p = text; *p != 0; ++p) {
        int row = controlRow(*p);
        encodedLength += row < 0 ? 1 : CharOps<C>::length(formOf(kControlForms[row], C()));
    }
    if (encodedLength == length) {
        result = escaped != nullptr ? escaped : CharOps<C>::duplicate(text);
        return result == nullptr ? KR_RET_ERR_MEM : KR_RET_TRUE;
    }
    result = allocText<C>(encodedLength + 1);
    if (result == nullptr) {
        krInternal::freeBlock(escaped);
        return KR_RET_ERR_MEM;
    }
    C* write = result;
    for (const C* p = text; *p != 0; ++p) {
        int row = controlRow(*p);
        if (row < 0) {
            *write++ = *p;
            continue;
        }
        const C* form = formOf(kControlForms[row], C());
        size_t formLength = CharOps<C>::length(form);
        memcpy(write, form, formLength * sizeof(C));
        write += formLength;
    }
    krInternal::freeBlock(escaped);
    return KR_RET_TRUE;
}

template <class C>
KR_RET_STATUS decodeControls(C*& result, const C* text) {
    result = nullptr;
    if (text == nullptr) return KR_RET_TRUE;
    C* decoded = allocText<C>(CharOps<C>::length(text) + 1);
    if (decoded == nullptr) return KR_RET_ERR_MEM;
    C* write = decoded;
    for (const C* p = text; *p != 0;) {
        bool atForm =
                *p == C('$') && startsWithText(p, marker<C>()) && (p == text || p[-1] != C('$'));
        if (atForm) {
            bool found = false;
            for (const ControlForm& row : kControlForms) {
                const C* form = formOf(row, C());
                if (startsWithText(p, form)) {
                    *write++ = static_cast<C>(row.code);
                    p += CharOps<C>::length(form);
                    found = true;
                    break;
                }
            }
            if (found) continue;
        }
        *write++ = *p++;
    }
    if (CharOps<C>::find(decoded, escapedMarker<C>()) == nullptr) {
        result = decoded;
        return KR_RET_TRUE;
    }
    C* unescaped = nullptr;
    KR_RET_STATUS st =
            krInternal::substituteText(&unescaped, decoded, marker<C>(), escapedMarker<C>(), 1);
    krInternal::freeBlock(decoded);
    if (KRI_FAILED(st)) return st;
    result = unescaped;
    return KR_RET_TRUE;
}

// Shared body of the string-object utilities: out must be usable, and gets the block produced
// (or is emptied on failure). S is KR_String or KR_StringW.
template <class S, class C, class Make>
KR_RET_STATUS fillString(S& out, Make make, int line) {
    if (!out.objIsEnabled()) return krInternal::failAt(KR_RET_ERR_POBJ, KRI_UNIT, line);
    C* result = nullptr;
    KR_RET_STATUS st = make(result);
    if (KRI_FAILED(st)) {
        out.assignPtr(nullptr);
        return krInternal::failAt(st, KRI_UNIT, line);
    }
    out.assignPtr(result);
    return st;
}

// The control-character codecs differ from fillString in one point: an out that is not
// initialised is reported, and the work still runs and gives the answer; its result has nowhere
// to go and is dropped.
template <class S, class C, class Make>
KR_RET_STATUS fillStringGoingOn(S& out, Make make, int line) {
    if (out.objIsEnabled()) return fillString<S, C>(out, make, line);
    krInternal::failAt(KR_RET_ERR_POBJ, KRI_UNIT, static_cast<unsigned int>(line));
    C* result = nullptr;
    KR_RET_STATUS st = make(result);
    krInternal::freeBlock(result);
    return KRI_FAILED(st) ? krInternal::failAt(st, KRI_UNIT, static_cast<unsigned int>(line)) : st;
}

}  // namespace

// --- Utilities whose result is a string object ---

KR_RET_STATUS KR_strSubstitute(KR_String& out,
                               const char* text,
                               const char* replacement,
                               const char* pattern,
                               unsigned char caseSensitive) {
    KR_setUserError(0);
    return fillString<KR_String, char>(
            out,
            [&](char*& result) {
                return krInternal::substituteText(&result, text, replacement, pattern,
                                                  caseSensitive);
            },
            __LINE__);
}

KR_RET_STATUS KR_strSubstituteW(KR_StringW& out,
                                const wchar_t* text,
                                const wchar_t* replacement,
                                const wchar_t* pattern,
                                unsigned char caseSensitive) {
    KR_setUserError(0);
    return fillString<KR_StringW, wchar_t>(
            out,
            [&](wchar_t*& result) {
                return krInternal::substituteText(&result, text, replacement, pattern,
                                                  caseSensitive);
            },
            __LINE__);
}

KR_RET_STATUS KR_addControlChars(KR_String& out, const char* text) {
    KR_setUserError(0);
    return fillStringGoingOn<KR_String, char>(
            out, [&](char*& result) { return encodeControls(result, text); }, __LINE__);
}

KR_RET_STATUS KR_addControlCharsW(KR_StringW& out, const wchar_t* text) {
    KR_setUserError(0);
    return fillStringGoingOn<KR_StringW, wchar_t>(
            out, [&](wchar_t*& result) { return encodeControls(result, text); }, __LINE__);
}

KR_RET_STATUS KR_removeControlChars(KR_String& out, const char* text) {
    KR_setUserError(0);
    return fillStringGoingOn<KR_String, char>(
            out, [&](char*& result) { return decodeControls(result, text); }, __LINE__);
}

KR_RET_STATUS KR_removeControlCharsW(KR_StringW& out, const wchar_t* text) {
    KR_setUserError(0);
    return fillStringGoingOn<KR_StringW, wchar_t>(
            out, [&](wchar_t*& result) { return decodeControls(result, text); }, __LINE__);
}

namespace {

template <class C>
KR_RET_STATUS subText(C*& result, const C* text, unsigned int start, unsigned int count) {
    result = nullptr;
    size_t length = textLength(text);
    if (start >= length || count == 0) return KR_RET_FALSE;
    size_t taken = count < length - start ? count : length - start;
    result = allocText<C>(taken + 1);
    if (result == nullptr) return KR_RET_ERR_MEM;
    memcpy(result, text + start, taken * sizeof(C));
    return KR_RET_TRUE;
}

}  // namespace

KR_RET_STATUS KR_getSubString(KR_String& out,
                              const char* text,
                              unsigned int start,
                              unsigned int count) {
    KR_setUserError(0);
    return fillString<KR_String, char>(
            out, [&](char*& result) { return subText(result, text, start, count); }, __LINE__);
}

KR_RET_STATUS KR_getSubStringW(KR_StringW& out,
                               const wchar_t* text,
                               unsigned int start,
                               unsigned int count) {
    KR_setUserError(0);
    return fillString<KR_StringW, wchar_t>(
            out, [&](wchar_t*& result) { return subText(result, text, start, count); }, __LINE__);
}

KR_RET_STATUS KR_strToKorvaneStrW(KR_StringW& out, const char* text) {
    KR_setUserError(0);
    return fillString<KR_StringW, wchar_t>(
            out,
            [&](wchar_t*& result) {
                KR_RET_STATUS st;
                result = krInternal::toWide(text, st);
                return st;
            },
            __LINE__);
}

KR_RET_STATUS KR_wStrToKorvaneStr(KR_String& out, const wchar_t* text) {
    KR_setUserError(0);
    return fillString<KR_String, char>(
            out,
            [&](char*& result) {
                KR_RET_STATUS st;
                result = krInternal::toNarrow(text, st);
                return st;
            },
            __LINE__);
}

namespace {

// Membership in a delimiter list: a table for the first 256 codes, the list itself above them.
// A null list holds nothing.
template <class C>
class DelimiterSet {
public:
    explicit DelimiterSet(const C* list) : list_(list) {
        memset(low_, 0, sizeof low_);
        if (list == nullptr) return;
        for (const C* p = list; *p != 0; ++p) {
            auto code = static_cast<krInternal::UnsignedChar<C>>(*p);
            if (code < 256) low_[code] = true;
        }
    }

    bool has(C c) const {
        auto code = static_cast<krInternal::UnsignedChar<C>>(c);
        if (code < 256) return low_[code];
        return list_ != nullptr && CharOps<C>::findChar(list_, c) != nullptr;
    }

private:
    const C* list_;
    bool low_[256];
};

template <class C>
struct SplitRule {
    C quote;         // 0: none
    C escape;        // 0: none
    bool keepEmpty;  // every single delimiter separates
    bool trimWhite;  // unprotected white space leaves both ends of a token
};

// One token from p up to the next delimiter outside quotes (or the end of the text). The
// characters go to out when it is not null (it must hold end - p characters). length := the
// characters produced, quoted := a quote was met. Answers the token's end: its delimiter or the
// terminating zero.
template <class C>
const C* scanToken(const C* p,
                   const DelimiterSet<C>& delimiters,
                   const SplitRule<C>& rule,
                   C* out,
                   size_t& length,
                   bool& quoted) {
    bool inQuote = false;
    size_t trailingWhite = 0;  // unprotected white space at the end of what was produced
    length = 0;
    quoted = false;
    for (; *p != 0; ++p) {
        C c = *p;
        bool isProtected = inQuote;
        if (rule.escape != 0 && c == rule.escape && p[1] != 0) {
            c = *++p;
            isProtected = true;
        } else if (rule.quote != 0 && c == rule.quote) {
            inQuote = !inQuote;
            quoted = true;
            continue;
        } else if (!inQuote && delimiters.has(c)) {
            break;
        }
        if (rule.trimWhite && !isProtected && krInternal::isWhite(c)) {
            if (length == 0) continue;
            ++trailingWhite;
        } else {
            trailingWhite = 0;
        }
        if (out != nullptr) out[length] = c;
        ++length;
    }
    length -= trailingWhite;
    return p;
}

// The tokens of the plain rule: the maximal runs of characters that are not delimiters. The
// counting pass keeps no branch on where a token ends, which would be mispredicted once per token.
template <class C>
size_t countPlainTokens(const C* text, const DelimiterSet<C>& delimiters) {
    size_t count = 0;
    bool afterDelimiter = true;
    for (const C* p = text; *p != 0; ++p) {
        bool isDelimiter = delimiters.has(*p);
        count += static_cast<size_t>(afterDelimiter & !isDelimiter);
        afterDelimiter = isDelimiter;
    }
    return count;
}

// The tokens of text into out (emptied first). A null delimiter list gives exactly one token.
template <class C, class S>
KR_RET_STATUS splitText(
        const C* text, const C* delimiters, KR_Array<S>& out, const SplitRule<C>& rule, int line) {
    KR_RET_STATUS st = out.delAll();
    if (KRI_FAILED(st)) return st;
    if (text == nullptr) return KR_RET_TRUE;
    DelimiterSet<C> set(delimiters);
    bool single = delimiters == nullptr;
    // Without quotes, escapes or trimming a token is exactly the run up to its delimiter.
    bool plain = rule.quote == 0 && rule.escape == 0 && !rule.trimWhite;
    size_t length;
    bool quoted;
    auto next = [&](const C* p) {
        if (!plain) return scanToken(p, set, rule, static_cast<C*>(nullptr), length, quoted);
        const C* q = p;
        while (*q != 0 && !set.has(*q))
            ++q;
        length = static_cast<size_t>(q - p);
        quoted = false;
        return q;
    };
    auto kept = [&] { return single || rule.keepEmpty || length > 0 || quoted; };
    // An empty text has no token, except the one a null delimiter list always gives.
    if (*text == 0 && !single) return KR_RET_TRUE;
    // Count first, so that the array is sized once.
    size_t count = 0;
    if (plain && !single && !rule.keepEmpty) {
        count = countPlainTokens(text, set);
    } else {
        for (const C* p = text;;) {
            const C* end = next(p);
            if (kept()) ++count;
            if (*end == 0) break;
            p = end + 1;
        }
    }
    if (count == 0) return KR_RET_TRUE;
    if (count > UINT_MAX) return krInternal::failAt(KR_RET_ERR_MEM, KRI_UNIT, line);
    st = out.insElems(KR_INS_BEFORE, 0, static_cast<unsigned int>(count));
    if (KRI_FAILED(st)) return st;
    // The slots are contiguous and fresh: filled through the element pointer.
    S* slots = &out[0];
    size_t index = 0;
    for (const C* p = text; index < count;) {
        const C* end = next(p);
        if (kept()) {
            C* token = krInternal::allocTextUncleared<C>(static_cast<size_t>(end - p) + 1);
            if (token == nullptr) {
                out.delAll();
                return krInternal::failAt(KR_RET_ERR_MEM, KRI_UNIT,
                                          static_cast<unsigned int>(line));
            }
            if (plain) {
                memcpy(token, p, length * sizeof(C));
            } else {
                scanToken(p, set, rule, token, length, quoted);
            }
            token[length] = 0;
            krInternal::adoptIntoEmpty(slots[index++], token);
        }
        if (*end == 0) break;
        p = end + 1;
    }
    return KR_RET_TRUE;
}

template <class C, class S>
KR_RET_STATUS joinStrings(C*& result, KR_Array<S>& array, const C* separator) {
    result = nullptr;
    unsigned int count = array.numElems();
    if (count == 0) return KR_RET_TRUE;
    size_t separatorLength = textLength(separator);
    size_t total = separatorLength * (count - 1);
    for (unsigned int i = 0; i < count; ++i)
        total += textLength(static_cast<const C*>(array[i]));
    result = allocText<C>(total + 1);
    if (result == nullptr) return KR_RET_ERR_MEM;
    C* write = result;
    for (unsigned int i = 0; i < count; ++i) {
        if (i > 0 && separatorLength > 0) {
            memcpy(write, separator, separatorLength * sizeof(C));
            write += separatorLength;
        }
        const C* piece = array[i];
        size_t pieceLength = textLength(piece);
        if (pieceLength > 0) memcpy(write, piece, pieceLength * sizeof(C));
        write += pieceLength;
    }
    return KR_RET_TRUE;
}

}  // namespace

KR_RET_STATUS KR_splitString(const char* text, const char* delimiters, KR_Array<KR_String>& out) {
    KR_setUserError(0);
    return splitText(text, delimiters, out, SplitRule<char>{0, 0, false, false}, __LINE__);
}

KR_RET_STATUS KR_splitStringW(const wchar_t* text,
                              const wchar_t* delimiters,
                              KR_Array<KR_StringW>& out) {
    KR_setUserError(0);
    return splitText(text, delimiters, out, SplitRule<wchar_t>{0, 0, false, false}, __LINE__);
}

KR_RET_STATUS KR_splitString(const char* text,
                             const char* delimiters,
                             KR_Array<KR_String>& out,
                             char quote,
                             char escape,
                             unsigned char keepEmpty,
                             unsigned char trimWhite) {
    KR_setUserError(0);
    SplitRule<char> rule{quote, escape, keepEmpty != 0, trimWhite != 0};
    return splitText(text, delimiters, out, rule, __LINE__);
}

KR_RET_STATUS KR_splitStringW(const wchar_t* text,
                              const wchar_t* delimiters,
                              KR_Array<KR_StringW>& out,
                              wchar_t quote,
                              wchar_t escape,
                              unsigned char keepEmpty,
                              unsigned char trimWhite) {
    KR_setUserError(0);
    SplitRule<wchar_t> rule{quote, escape, keepEmpty != 0, trimWhite != 0};
    return splitText(text, delimiters, out, rule, __LINE__);
}

KR_RET_STATUS KR_stringArrToString(KR_String& out,
                                   KR_Array<KR_String>& array,
                                   const char* separator) {
    KR_setUserError(0);
    if (!array.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_POBJ);
    return fillString<KR_String, char>(
            out, [&](char*& result) { return joinStrings(result, array, separator); }, __LINE__);
}

KR_RET_STATUS KR_stringArrToStringW(KR_StringW& out,
                                    KR_Array<KR_StringW>& array,
                                    const wchar_t* separator) {
    KR_setUserError(0);
    if (!array.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_POBJ);
    return fillString<KR_StringW, wchar_t>(
            out, [&](wchar_t*& result) { return joinStrings(result, array, separator); }, __LINE__);
}
