// kr_str.cpp — the string classes and the utilities that fill string objects.
#include "kr_str.h"

#include <limits.h>
#include <string.h>
#include <wchar.h>

#include "kr_alloc.h"
#include "kr_array_impl.h"
#include "kr_file.h"
#include "kr_strcore.h"
#include "kr_utf16.h"
#include "kr_xml.h"

#define KRI_UNIT "src/kr_str"

namespace {

using krInternal::allocText;
using krInternal::CharOps;
using krInternal::SameWidth;
using krInternal::textLength;

// Answer of an ordering when the comparison cannot be made (a side is not initialised).
constexpr int kNoOrder = -2;

int compareSameWidth(const char* a, const char* b) {
    return KR_strcmp(a, b);
}

int compareSameWidth(const wchar_t* a, const wchar_t* b) {
    return KR_strcmpW(a, b);
}

// own with text inserted before position pos (clamped to the end): a new heap text, or null
// when it cannot be allocated.
template <class C>
C* insertText(const C* own, size_t pos, const C* text) {
    size_t ownLength = textLength(own);
    size_t textLen = textLength(text);
    if (pos > ownLength) pos = ownLength;
    C* result = allocText<C>(ownLength + textLen + 1);
    if (result == nullptr) return nullptr;
    if (pos > 0) memcpy(result, own, pos * sizeof(C));
    if (textLen > 0) memcpy(result + pos, text, textLen * sizeof(C));
    if (ownLength > pos) memcpy(result + pos + textLen, own + pos, (ownLength - pos) * sizeof(C));
    return result;
}

void putCount(char* buffer, unsigned int n) {
    for (int i = 0; i < 4; ++i)
        buffer[i] = static_cast<char>((n >> (8 * i)) & 0xFF);
}

unsigned int getCount(const char* buffer) {
    unsigned int n = 0;
    for (int i = 0; i < 4; ++i)
        n |= static_cast<unsigned int>(static_cast<unsigned char>(buffer[i])) << (8 * i);
    return n;
}

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

// --- KR_StringArr reporting ---

// Reports a failed KR_StringArr operation with its catalogue text (group 1) and "Memory error".
KR_RET_STATUS reportArrayFailure(int what, int line) {
    KR_reportErrorMsg(KRI_UNIT, static_cast<unsigned int>(line),
                      KR_msg(1, static_cast<unsigned int>(what)), "%s", KR_msg(0, 1));
    return krInternal::failAt(KR_RET_ERR_MEM, KRI_UNIT, static_cast<unsigned int>(line));
}

// to := from; false when the text could not be copied.
bool copyString(KR_String& to, const KR_String& from) {
    to = from;
    return static_cast<const char*>(from) == nullptr || static_cast<const char*>(to) != nullptr;
}

}  // namespace

// --- The shared body of KR_String and KR_StringW ---

namespace {

KR_RET_STATUS printEntry(KR_FileAscii& file, const char* text) {
    return file.print("<STRING>%s</STRING>\n", text);
}

KR_RET_STATUS printEntry(KR_FileAscii& file, const wchar_t* text) {
    return file.printW(L"<STRINGW>%ls</STRINGW>\n", text);
}

KR_RET_STATUS readEntry(KR_String& string, KR_FileAscii& file) {
    return KR_xmlReadTagEntry(string, file, "<STRING>", "</STRING>");
}

// The narrow tags, not the "<STRINGW>" that printEntry writes: kept so, see the class comment.
KR_RET_STATUS readEntry(KR_StringW& string, KR_FileAscii& file) {
    return KR_xmlReadTagEntryW(string, file, "<STRING>", "</STRING>");
}

// The packed count: the units of the text with its terminator, 0 for a null text. A unit is a
// byte of a narrow text and a UTF-16 unit of a wide one, whatever the width of wchar_t.
constexpr unsigned int unitBytes(char) {
    return 1;
}

constexpr unsigned int unitBytes(wchar_t) {
    return 2;
}

unsigned int packedCount(const char* text) {
    return text == nullptr ? 0 : static_cast<unsigned int>(strlen(text)) + 1;
}

unsigned int packedCount(const wchar_t* text) {
    if (text == nullptr) return 0;
    return static_cast<unsigned int>(krInternal::utf16Length(text, wcslen(text))) + 1;
}

// The units of a non-null text and its terminator.
void writeUnits(unsigned char* out, const char* text) {
    memcpy(out, text, strlen(text) + 1);
}

void writeUnits(unsigned char* out, const wchar_t* text) {
    size_t bytes = krInternal::writeUtf16LE(text, wcslen(text), out);
    out[bytes] = 0;
    out[bytes + 1] = 0;
}

// count units into out, which is zero-filled and has room for count + 1 characters (count units
// never give more characters than that).
void readUnits(const unsigned char* in, unsigned int count, char* out) {
    memcpy(out, in, count);
}

void readUnits(const unsigned char* in, unsigned int count, wchar_t* out) {
    krInternal::readUtf16LE(in, count, out);
}

// An operand of a comparison or a concatenation: a raw text (always usable) or a string object.
template <class C>
struct Operand {
    bool ready;
    const C* text;
};

}  // namespace

namespace krInternal {

template <class S>
struct StringKind;

template <>
struct StringKind<KR_String> {
    using Char = char;
    using Other = KR_StringW;
    static constexpr const char* kAccess = "KR_String: character access";
};

template <>
struct StringKind<KR_StringW> {
    using Char = wchar_t;
    using Other = KR_String;
    static constexpr const char* kAccess = "KR_StringW: character access";
};

// Every member of the two string classes forwards here; S is the class, C its character type and
// D the other width. Operands of the other width are converted to C's first.
template <class S>
struct StringBody {
    using C = typename StringKind<S>::Char;
    using Other = typename StringKind<S>::Other;
    using D = typename StringKind<Other>::Char;

    static KR_RET_STATUS init(S& s, const C* text) {
        s.initialised_ = 1;
        s.text_ = nullptr;
        // Arrays default-construct strings by the thousand: keep the empty case free of calls.
        if (text == nullptr) return KR_RET_TRUE;
        return copyText(s, text);
    }

    static KR_RET_STATUS cleanup(S& s) {
        if (!s.initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
        freeBlock(s.text_);
        s.text_ = nullptr;
        s.initialised_ = 0;
        return KR_RET_TRUE;
    }

    // Replaces the text by a copy of text (null allowed) in C's width; reports a failure, which
    // leaves the string null.
    template <class T>
    static KR_RET_STATUS copyText(S& s, const T* text) {
        KR_RET_STATUS st = KR_RET_TRUE;
        C* copy;
        if constexpr (std::is_same<T, C>::value) {
            // Copy first: text may be this string's own text.
            copy = CharOps<C>::duplicate(text);
            if (copy == nullptr && text != nullptr) st = KR_RET_ERR_MEM;
        } else {
            copy = convertText(text, st);
        }
        freeBlock(s.text_);
        s.text_ = copy;
        return KRI_FAILED(st) ? KRI_FAIL(st) : KR_RET_TRUE;
    }

    template <class T>
    static void construct(S& s, const T* text) {
        KR_setUserError(0);
        init(s, nullptr);
        if (text != nullptr) copyText(s, text);
    }

    static void construct(S& s, const S& other) {
        KR_setUserError(0);
        init(s, nullptr);
        if (!other.initialised_) {
            KRI_FAIL(KR_RET_ERR_POBJ);
            return;
        }
        copyText(s, other.text_);
    }

    static S& assign(S& s, const S& other) {
        KR_setUserError(0);
        if (&s == &other) return s;
        if (!s.initialised_ || !other.initialised_) {
            KRI_FAIL(KR_RET_ERR_POBJ);
            return s.initialised_ ? s : nullRef<S>();
        }
        copyText(s, other.text_);
        return s;
    }

    template <class T>
    static S& assign(S& s, const T* text) {
        KR_setUserError(0);
        if (!s.initialised_) {
            KRI_FAIL(KR_RET_ERR_POBJ);
            return nullRef<S>();
        }
        copyText(s, text);
        return s;
    }

    static KR_RET_STATUS assignPtr(S& s, C* text) {
        KR_setUserError(0);
        if (text != s.text_) freeBlock(s.text_);
        s.text_ = text;
        return KR_RET_TRUE;
    }

    // Gives text to s, which holds none: a slot that an array has just default-constructed.
    static void adoptIntoEmpty(S& s, C* text) { s.text_ = text; }

    static KR_RET_STATUS allocate(S& s, unsigned int length) {
        KR_setUserError(0);
        freeBlock(s.text_);
        s.text_ = allocText<C>(size_t{length} + 1);
        if (s.text_ == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
        return KR_RET_TRUE;
    }

    static unsigned int length(const S& s) {
        KR_setUserError(0);
        if (!s.initialised_) return static_cast<unsigned int>(KRI_FAIL(KR_RET_ERR_POBJ));
        return static_cast<unsigned int>(textLength(s.text_));
    }

    static C& at(S& s, int index) {
        KR_setUserError(0);
        if (!s.initialised_) {
            KRI_FAIL(KR_RET_ERR_POBJ);
            return nullRef<C>();
        }
        int length = static_cast<int>(textLength(s.text_));
        if (index < 0 || index >= length) {
            KRI_MSG(StringKind<S>::kAccess, KR_msg(0, 3), index, 0, length - 1);
            return nullRef<C>();
        }
        return s.text_[index];
    }

    static Operand<C> operand(const S& other) { return {other.initialised_ != 0, other.text_}; }

    static Operand<D> operand(const Other& other) {
        return {other.objIsEnabled() != 0, static_cast<const D*>(other)};
    }

    static Operand<C> operand(const C* text) { return {true, text}; }

    static Operand<D> operand(const D* text) { return {true, text}; }

    // KR_strcmp's answer for the string against value, or kNoOrder when a side is not
    // initialised.
    template <class T>
    static int order(const S& s, const T& value) {
        auto other = operand(value);
        if (!s.initialised_ || !other.ready) return kNoOrder;
        SameWidth<C> same(other.text);
        return compareSameWidth(s.text_, same.get());
    }

    template <class T>
    static S concat(const S& s, const T& value) {
        S result(s);
        auto other = operand(value);
        if (s.initialised_ && other.ready) result += other.text;
        return result;
    }

    // text followed by the string.
    template <class T>
    static S prepend(const T* text, const S& s) {
        if (text == nullptr) return s;
        S result(text);
        result += s;
        return result;
    }

    static S& append(S& s, const S& other) {
        KR_setUserError(0);
        if (!s.initialised_) {
            KRI_FAIL(KR_RET_ERR_POBJ);
            return s;
        }
        if (!other.initialised_) return s;
        return append(s, other.text_);
    }

    // On failure the old text stays.
    template <class T>
    static S& append(S& s, const T* text) {
        KR_setUserError(0);
        if (!s.initialised_) {
            KRI_FAIL(KR_RET_ERR_POBJ);
            return s;
        }
        SameWidth<C> same(text);
        if (KRI_FAILED(same.status())) {
            KRI_FAIL(same.status());
            return s;
        }
        if (same.get() == nullptr) return s;
        C* joined = concatText(s.text_, textLength(s.text_), same.get(), textLength(same.get()));
        if (joined == nullptr) {
            KRI_FAIL(KR_RET_ERR_MEM);
            return s;
        }
        freeBlock(s.text_);
        s.text_ = joined;
        return s;
    }

    static KR_RET_STATUS insert(S& s, unsigned int pos, const S& text) {
        KR_setUserError(0);
        if (!s.initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
        if (!text.initialised_) return KR_RET_TRUE;
        return insert(s, pos, text.text_);
    }

    template <class T>
    static KR_RET_STATUS insert(S& s, unsigned int pos, const T* text) {
        KR_setUserError(0);
        if (!s.initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
        SameWidth<C> same(text);
        if (KRI_FAILED(same.status())) return KRI_FAIL(same.status());
        if (same.get() == nullptr) return KR_RET_TRUE;
        C* joined = insertText(s.text_, pos, same.get());
        if (joined == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
        freeBlock(s.text_);
        s.text_ = joined;
        return KR_RET_TRUE;
    }

    static KR_RET_STATUS pack(S& s, char* buffer, unsigned int& used, KR_STORAGE_TYPE storage) {
        KR_setUserError(0);
        used = 0;
        if (!s.initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
        if (storage != KR_STORAGE_BINARY || buffer == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
        unsigned int n = packedCount(s.text_);
        putCount(buffer, n);
        if (n > 0) writeUnits(reinterpret_cast<unsigned char*>(buffer + 4), s.text_);
        used = 4 + unitBytes(C()) * n;
        return KR_RET_TRUE;
    }

    static unsigned int packedSize(const S& s, KR_STORAGE_TYPE storage) {
        KR_setUserError(0);
        if (!s.initialised_) {
            KRI_FAIL(KR_RET_ERR_POBJ);
            return 0;
        }
        if (storage != KR_STORAGE_BINARY) {
            KRI_FAIL(KR_RET_ERR_ARG);
            return 0;
        }
        return 4 + unitBytes(C()) * packedCount(s.text_);
    }

    static KR_RET_STATUS unpack(S& s, char* buffer, unsigned int& used, KR_STORAGE_TYPE storage) {
        KR_setUserError(0);
        used = 0;
        if (!s.initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
        if (storage != KR_STORAGE_BINARY || buffer == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
        unsigned int n = getCount(buffer);
        freeBlock(s.text_);
        s.text_ = nullptr;
        if (n > 0) {
            // The stored terminator is not trusted: the copy ends after n - 1 units.
            s.text_ = allocText<C>(n);
            if (s.text_ == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
            readUnits(reinterpret_cast<const unsigned char*>(buffer + 4), n - 1, s.text_);
        }
        used = 4 + unitBytes(C()) * n;
        return KR_RET_TRUE;
    }

    static KR_RET_STATUS persist(S& s, KR_FileAscii& file) {
        KR_setUserError(0);
        if (!s.initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
        static constexpr C kEmpty[1] = {0};
        KR_RET_STATUS st = printEntry(file, s.text_ == nullptr ? kEmpty : s.text_);
        return KRI_FAILED(st) ? st : KR_RET_TRUE;
    }

    static KR_RET_STATUS persist(S& s, KR_FileBinary& file, unsigned int& written) {
        KR_setUserError(0);
        written = 0;
        if (!s.initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
        KR_RET_STATUS st =
                file.persistVal(static_cast<const C*>(s.text_), KR_STORAGE_BINARY, written);
        return KRI_FAILED(st) ? st : KR_RET_TRUE;
    }

    static KR_RET_STATUS restore(S& s, KR_FileAscii& file) {
        KR_setUserError(0);
        if (!s.initialised_) {
            // Reported, but the entry is still read (and dropped), so the file moves on as it
            // would for a usable string; the reader's status is the answer.
            KRI_FAIL(KR_RET_ERR_POBJ);
            S dropped;
            return readEntry(dropped, file);
        }
        copyText(s, static_cast<const C*>(nullptr));
        return readEntry(s, file);
    }

    static KR_RET_STATUS restore(S& s, KR_FileBinary& file, unsigned int& read) {
        KR_setUserError(0);
        read = 0;
        if (!s.initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
        C* text = nullptr;
        KR_RET_STATUS st = file.restoreVal(text, KR_STORAGE_BINARY, read);
        if (KRI_FAILED(st)) return st;
        assignPtr(s, text);
        return KR_RET_TRUE;
    }

    static KR_OStream& print(KR_OStream& stream, const S& s) {
        if (!s.initialised_) return stream;
        static constexpr C kEmpty[1] = {0};
        return stream << (s.text_ == nullptr ? kEmpty : static_cast<const C*>(s.text_));
    }
};

}  // namespace krInternal

namespace {

using NarrowBody = krInternal::StringBody<KR_String>;
using WideBody = krInternal::StringBody<KR_StringW>;

}  // namespace

// --- KR_String ---

KR_String::KR_String() {
    initDataMembers(nullptr);
}

KR_String::KR_String(const char* text) {
    NarrowBody::construct(*this, text);
}

KR_String::KR_String(const wchar_t* text) {
    NarrowBody::construct(*this, text);
}

KR_String::KR_String(const KR_String& other) : KR_Persistable(other) {
    NarrowBody::construct(*this, other);
}

KR_String::~KR_String() {
    cleanupDataMembers();
}

KR_String& KR_String::operator=(const KR_String& other) {
    return NarrowBody::assign(*this, other);
}

KR_String& KR_String::operator=(const char* text) {
    return NarrowBody::assign(*this, text);
}

KR_String& KR_String::operator=(const wchar_t* text) {
    return NarrowBody::assign(*this, text);
}

KR_RET_STATUS KR_String::assignPtr(char* text) {
    return NarrowBody::assignPtr(*this, text);
}

KR_RET_STATUS KR_String::allocate(unsigned int length) {
    return NarrowBody::allocate(*this, length);
}

unsigned int KR_String::strLeng() const {
    return NarrowBody::length(*this);
}

char& KR_String::operator[](int index) {
    return NarrowBody::at(*this, index);
}

bool KR_String::operator<(const KR_String& other) const {
    return NarrowBody::order(*this, other) == -1;
}

bool KR_String::operator<(const char* text) const {
    return NarrowBody::order(*this, text) == -1;
}

bool KR_String::operator<(const wchar_t* text) const {
    return NarrowBody::order(*this, text) == -1;
}

bool KR_String::operator<(const KR_StringW& other) const {
    return NarrowBody::order(*this, other) == -1;
}

bool KR_String::operator==(const KR_String& other) const {
    return NarrowBody::order(*this, other) == 0;
}

bool KR_String::operator==(const char* text) const {
    return NarrowBody::order(*this, text) == 0;
}

bool KR_String::operator==(const wchar_t* text) const {
    return NarrowBody::order(*this, text) == 0;
}

bool KR_String::operator==(const KR_StringW& other) const {
    return NarrowBody::order(*this, other) == 0;
}

bool KR_String::operator!=(const KR_String& other) const {
    return !(*this == other);
}

bool KR_String::operator!=(const char* text) const {
    return !(*this == text);
}

bool KR_String::operator!=(const wchar_t* text) const {
    return !(*this == text);
}

bool KR_String::operator!=(const KR_StringW& other) const {
    return !(*this == other);
}

bool KR_String::operator>(const KR_String& other) const {
    return NarrowBody::order(*this, other) == 1;
}

bool KR_String::operator>(const char* text) const {
    return NarrowBody::order(*this, text) == 1;
}

bool KR_String::operator>(const wchar_t* text) const {
    return NarrowBody::order(*this, text) == 1;
}

bool KR_String::operator>(const KR_StringW& other) const {
    return NarrowBody::order(*this, other) == 1;
}

KR_String KR_String::operator+(const KR_String& other) const {
    return NarrowBody::concat(*this, other);
}

KR_String KR_String::operator+(const char* text) const {
    return NarrowBody::concat(*this, text);
}

KR_String KR_String::operator+(const wchar_t* text) const {
    return NarrowBody::concat(*this, text);
}

KR_String KR_String::operator+(const KR_StringW& other) const {
    return NarrowBody::concat(*this, other);
}

KR_String& KR_String::operator+=(const KR_String& other) {
    return NarrowBody::append(*this, other);
}

KR_String& KR_String::operator+=(const char* text) {
    return NarrowBody::append(*this, text);
}

KR_String& KR_String::operator+=(const wchar_t* text) {
    return NarrowBody::append(*this, text);
}

KR_RET_STATUS KR_String::strIns(unsigned int pos, const char* text) {
    return NarrowBody::insert(*this, pos, text);
}

KR_RET_STATUS KR_String::strIns(unsigned int pos, const wchar_t* text) {
    return NarrowBody::insert(*this, pos, text);
}

KR_RET_STATUS KR_String::strIns(unsigned int pos, const KR_String& text) {
    return NarrowBody::insert(*this, pos, text);
}

KR_RET_STATUS KR_String::pack(KR_Version&,
                              char* buffer,
                              unsigned int& used,
                              KR_STORAGE_TYPE storage) {
    return NarrowBody::pack(*this, buffer, used, storage);
}

unsigned int KR_String::getPackedSize(KR_Version&, KR_STORAGE_TYPE storage) {
    return NarrowBody::packedSize(*this, storage);
}

KR_RET_STATUS KR_String::unpack(KR_Version&,
                                char* buffer,
                                unsigned int& used,
                                KR_STORAGE_TYPE storage) {
    return NarrowBody::unpack(*this, buffer, used, storage);
}

KR_RET_STATUS KR_String::persist(KR_Version&, KR_FileAscii& file) {
    return NarrowBody::persist(*this, file);
}

KR_RET_STATUS KR_String::persist(KR_Version&, KR_FileBinary& file, unsigned int& written) {
    return NarrowBody::persist(*this, file, written);
}

KR_RET_STATUS KR_String::restore(KR_Version&, KR_FileAscii& file) {
    return NarrowBody::restore(*this, file);
}

KR_RET_STATUS KR_String::restore(KR_Version&, KR_FileBinary& file, unsigned int& read) {
    return NarrowBody::restore(*this, file, read);
}

KR_RET_STATUS KR_String::initDataMembers(const char* text) {
    return NarrowBody::init(*this, text);
}

KR_RET_STATUS KR_String::cleanupDataMembers() {
    return NarrowBody::cleanup(*this);
}

// --- KR_StringW ---

KR_StringW::KR_StringW() {
    initDataMembers(nullptr);
}

KR_StringW::KR_StringW(const wchar_t* text) {
    WideBody::construct(*this, text);
}

KR_StringW::KR_StringW(const char* text) {
    WideBody::construct(*this, text);
}

KR_StringW::KR_StringW(const KR_StringW& other) : KR_Persistable(other) {
    WideBody::construct(*this, other);
}

KR_StringW::~KR_StringW() {
    cleanupDataMembers();
}

KR_StringW& KR_StringW::operator=(const KR_StringW& other) {
    return WideBody::assign(*this, other);
}

KR_StringW& KR_StringW::operator=(const wchar_t* text) {
    return WideBody::assign(*this, text);
}

KR_StringW& KR_StringW::operator=(const char* text) {
    return WideBody::assign(*this, text);
}

KR_RET_STATUS KR_StringW::assignPtr(wchar_t* text) {
    return WideBody::assignPtr(*this, text);
}

KR_RET_STATUS KR_StringW::allocate(unsigned int length) {
    return WideBody::allocate(*this, length);
}

unsigned int KR_StringW::strLeng() const {
    return WideBody::length(*this);
}

wchar_t& KR_StringW::operator[](int index) {
    return WideBody::at(*this, index);
}

bool KR_StringW::operator<(const KR_StringW& other) const {
    return WideBody::order(*this, other) == -1;
}

bool KR_StringW::operator<(const wchar_t* text) const {
    return WideBody::order(*this, text) == -1;
}

bool KR_StringW::operator<(const char* text) const {
    return WideBody::order(*this, text) == -1;
}

bool KR_StringW::operator<(const KR_String& other) const {
    return WideBody::order(*this, other) == -1;
}

bool KR_StringW::operator==(const KR_StringW& other) const {
    return WideBody::order(*this, other) == 0;
}

bool KR_StringW::operator==(const wchar_t* text) const {
    return WideBody::order(*this, text) == 0;
}

bool KR_StringW::operator==(const char* text) const {
    return WideBody::order(*this, text) == 0;
}

bool KR_StringW::operator==(const KR_String& other) const {
    return WideBody::order(*this, other) == 0;
}

bool KR_StringW::operator!=(const KR_StringW& other) const {
    return !(*this == other);
}

bool KR_StringW::operator!=(const wchar_t* text) const {
    return !(*this == text);
}

bool KR_StringW::operator!=(const char* text) const {
    return !(*this == text);
}

bool KR_StringW::operator!=(const KR_String& other) const {
    return !(*this == other);
}

bool KR_StringW::operator>(const KR_StringW& other) const {
    return WideBody::order(*this, other) == 1;
}

bool KR_StringW::operator>(const wchar_t* text) const {
    return WideBody::order(*this, text) == 1;
}

bool KR_StringW::operator>(const char* text) const {
    return WideBody::order(*this, text) == 1;
}

bool KR_StringW::operator>(const KR_String& other) const {
    return WideBody::order(*this, other) == 1;
}

KR_StringW KR_StringW::operator+(const KR_StringW& other) const {
    return WideBody::concat(*this, other);
}

KR_StringW KR_StringW::operator+(const wchar_t* text) const {
    return WideBody::concat(*this, text);
}

KR_StringW KR_StringW::operator+(const char* text) const {
    return WideBody::concat(*this, text);
}

KR_StringW KR_StringW::operator+(const KR_String& other) const {
    return WideBody::concat(*this, other);
}

KR_StringW& KR_StringW::operator+=(const KR_StringW& other) {
    return WideBody::append(*this, other);
}

KR_StringW& KR_StringW::operator+=(const wchar_t* text) {
    return WideBody::append(*this, text);
}

KR_StringW& KR_StringW::operator+=(const char* text) {
    return WideBody::append(*this, text);
}

KR_RET_STATUS KR_StringW::strIns(unsigned int pos, const wchar_t* text) {
    return WideBody::insert(*this, pos, text);
}

KR_RET_STATUS KR_StringW::strIns(unsigned int pos, const char* text) {
    return WideBody::insert(*this, pos, text);
}

KR_RET_STATUS KR_StringW::strIns(unsigned int pos, const KR_StringW& text) {
    return WideBody::insert(*this, pos, text);
}

KR_RET_STATUS KR_StringW::pack(KR_Version&,
                               char* buffer,
                               unsigned int& used,
                               KR_STORAGE_TYPE storage) {
    return WideBody::pack(*this, buffer, used, storage);
}

unsigned int KR_StringW::getPackedSize(KR_Version&, KR_STORAGE_TYPE storage) {
    return WideBody::packedSize(*this, storage);
}

KR_RET_STATUS KR_StringW::unpack(KR_Version&,
                                 char* buffer,
                                 unsigned int& used,
                                 KR_STORAGE_TYPE storage) {
    return WideBody::unpack(*this, buffer, used, storage);
}

KR_RET_STATUS KR_StringW::persist(KR_Version&, KR_FileAscii& file) {
    return WideBody::persist(*this, file);
}

KR_RET_STATUS KR_StringW::persist(KR_Version&, KR_FileBinary& file, unsigned int& written) {
    return WideBody::persist(*this, file, written);
}

KR_RET_STATUS KR_StringW::restore(KR_Version&, KR_FileAscii& file) {
    return WideBody::restore(*this, file);
}

KR_RET_STATUS KR_StringW::restore(KR_Version&, KR_FileBinary& file, unsigned int& read) {
    return WideBody::restore(*this, file, read);
}

KR_RET_STATUS KR_StringW::initDataMembers(const wchar_t* text) {
    return WideBody::init(*this, text);
}

KR_RET_STATUS KR_StringW::cleanupDataMembers() {
    return WideBody::cleanup(*this);
}

// --- Free operators ---

bool operator<(const char* text, const KR_String& string) {
    return string > text;
}

bool operator<(const wchar_t* text, const KR_String& string) {
    return string > text;
}

bool operator==(const char* text, const KR_String& string) {
    return string == text;
}

bool operator==(const wchar_t* text, const KR_String& string) {
    return string == text;
}

bool operator!=(const char* text, const KR_String& string) {
    return string != text;
}

bool operator!=(const wchar_t* text, const KR_String& string) {
    return string != text;
}

bool operator>(const char* text, const KR_String& string) {
    return string < text;
}

bool operator>(const wchar_t* text, const KR_String& string) {
    return string < text;
}

bool operator<(const wchar_t* text, const KR_StringW& string) {
    return string > text;
}

bool operator<(const char* text, const KR_StringW& string) {
    return string > text;
}

bool operator==(const wchar_t* text, const KR_StringW& string) {
    return string == text;
}

bool operator==(const char* text, const KR_StringW& string) {
    return string == text;
}

bool operator!=(const wchar_t* text, const KR_StringW& string) {
    return string != text;
}

bool operator!=(const char* text, const KR_StringW& string) {
    return string != text;
}

bool operator>(const wchar_t* text, const KR_StringW& string) {
    return string < text;
}

bool operator>(const char* text, const KR_StringW& string) {
    return string < text;
}

KR_String operator+(const char* text, const KR_String& string) {
    return NarrowBody::prepend(text, string);
}

KR_String operator+(const wchar_t* text, const KR_String& string) {
    return NarrowBody::prepend(text, string);
}

KR_StringW operator+(const wchar_t* text, const KR_StringW& string) {
    return WideBody::prepend(text, string);
}

KR_StringW operator+(const char* text, const KR_StringW& string) {
    return WideBody::prepend(text, string);
}

KR_OStream& operator<<(KR_OStream& stream, const KR_String& string) {
    return NarrowBody::print(stream, string);
}

KR_OStream& operator<<(KR_OStream& stream, const KR_StringW& string) {
    return WideBody::print(stream, string);
}

// --- KR_StringArr ---

KR_StringArr::KR_StringArr(const char* text) {
    KR_setUserError(0);
    if (KRI_FAILED(initDataMembers(text == nullptr ? 0 : 1)) || text == nullptr) return;
    strings_[0] = text;
    if (static_cast<const char*>(strings_[0]) == nullptr) strArrFree(1);
}

KR_StringArr::KR_StringArr(unsigned int count) {
    KR_setUserError(0);
    initDataMembers(count);
}

KR_StringArr::KR_StringArr(const KR_StringArr& other) : KR_KorvaneClass(other) {
    KR_setUserError(0);
    if (KRI_FAILED(initDataMembers(other.count_))) return;
    for (unsigned int i = 0; i < count_; ++i) {
        if (!copyString(strings_[i], other.strings_[i])) {
            strArrFree(2);
            return;
        }
    }
}

KR_StringArr::~KR_StringArr() {
    cleanupDataMembers();
}

KR_StringArr& KR_StringArr::operator=(const KR_StringArr& other) {
    KR_setUserError(0);
    if (this == &other) return *this;
    KR_String* block = makeBlock(other.count_);
    bool ok = other.count_ == 0 || block != nullptr;
    for (unsigned int i = 0; ok && i < other.count_; ++i)
        ok = copyString(block[i], other.strings_[i]);
    if (!ok) {
        delete[] block;
        strArrFree(3);
        return *this;
    }
    delete[] strings_;
    strings_ = block;
    count_ = other.count_;
    error_ = 0;
    return *this;
}

KR_RET_STATUS KR_StringArr::strArrCat(const KR_StringArr& other) {
    KR_setUserError(0);
    if (other.count_ == 0) return KR_RET_TRUE;
    unsigned int count = count_ + other.count_;
    KR_String* block = makeBlock(count);
    bool ok = block != nullptr;
    for (unsigned int i = 0; ok && i < count_; ++i)
        ok = copyString(block[i], strings_[i]);
    for (unsigned int i = 0; ok && i < other.count_; ++i) {
        ok = copyString(block[count_ + i], other.strings_[i]);
    }
    if (!ok) {
        delete[] block;
        error_ = 1;
        return reportArrayFailure(4, __LINE__);
    }
    delete[] strings_;
    strings_ = block;
    count_ = count;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_StringArr::strArrIns(unsigned int index, const char* text) {
    KR_setUserError(0);
    if (index > count_) index = count_;
    KR_String* block = makeBlock(count_ + 1);
    bool ok = block != nullptr;
    for (unsigned int i = 0; ok && i < count_; ++i) {
        ok = copyString(block[i < index ? i : i + 1], strings_[i]);
    }
    if (ok) {
        block[index] = text;
        ok = text == nullptr || static_cast<const char*>(block[index]) != nullptr;
    }
    if (!ok) {
        delete[] block;
        error_ = 1;
        return reportArrayFailure(5, __LINE__);
    }
    delete[] strings_;
    strings_ = block;
    ++count_;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_StringArr::strArrDel(unsigned int index) {
    KR_setUserError(0);
    if (index >= count_) {
        KRI_MSG(KR_msg(1, 6), KR_msg(0, 3), static_cast<int>(index), 0,
                static_cast<int>(count_) - 1);
        return KRI_FAIL(KR_RET_ERR_ARG);
    }
    KR_String* block = makeBlock(count_ - 1);
    bool ok = count_ == 1 || block != nullptr;
    for (unsigned int i = 0; ok && i < count_; ++i) {
        if (i != index) ok = copyString(block[i < index ? i : i - 1], strings_[i]);
    }
    if (!ok) {
        delete[] block;
        error_ = 1;
        return reportArrayFailure(6, __LINE__);
    }
    delete[] strings_;
    strings_ = block;
    --count_;
    return KR_RET_TRUE;
}

KR_String& KR_StringArr::operator[](unsigned int index) {
    KR_setUserError(0);
    if (index >= count_) {
        KRI_MSG(KR_msg(1, 7), KR_msg(0, 3), static_cast<int>(index), 0,
                static_cast<int>(count_) - 1);
        return krInternal::nullRef<KR_String>();
    }
    return strings_[index];
}

KR_RET_STATUS KR_StringArr::initDataMembers(unsigned int count) {
    initialised_ = 1;
    error_ = 0;
    count_ = 0;
    strings_ = nullptr;
    if (count == 0) return KR_RET_TRUE;
    strings_ = makeBlock(count);
    if (strings_ == nullptr) return strArrFree(1);
    count_ = count;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_StringArr::cleanupDataMembers() {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    strArrFree(0);
    initialised_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_StringArr::strArrFree(int what) {
    delete[] strings_;
    strings_ = nullptr;
    count_ = 0;
    if (what == 0) return KR_RET_TRUE;
    error_ = 1;
    return reportArrayFailure(what, __LINE__);
}

KR_String* KR_StringArr::makeBlock(unsigned int count) {
    if (count == 0) return nullptr;
    return krInternal::newArray<KR_String>(count);
}

KR_OStream& operator<<(KR_OStream& stream, const KR_StringArr& array) {
    for (unsigned int i = 0; i < array.strArrNum(); ++i) {
        stream << const_cast<KR_StringArr&>(array)[i] << "\n";
    }
    return stream;
}

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
            krInternal::StringBody<S>::adoptIntoEmpty(slots[index++], token);
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
