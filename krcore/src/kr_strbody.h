// kr_strbody.h — the shared body of KR_String and KR_StringW, for kr_str.cpp alone.
// Every member of the two string classes forwards to StringBody, one template on the class, so
// the narrow and the wide string cannot drift apart. It reports as "src/kr_str", the unit of the
// classes it serves. Internal to the library: its helpers stay local to the one file that
// includes it.
#ifndef KRCORE_KR_STRBODY_H
#define KRCORE_KR_STRBODY_H

#include <string.h>
#include <wchar.h>

#include "kr_alloc.h"
#include "kr_endian.h"
#include "kr_file.h"
#include "kr_report.h"
#include "kr_str.h"
#include "kr_strcore.h"
#include "kr_utf16.h"
#include "kr_xml.h"

#pragma push_macro("KRI_UNIT")
#undef KRI_UNIT
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

using krInternal::packedCount;
using krInternal::readUnits;
using krInternal::unitBytes;
using krInternal::writeUnits;

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

    // result := left followed by right, both in C's width; a failure is reported and leaves
    // result null, never holding one side alone.
    template <class T>
    static void join(S& result, const C* left, const T* right) {
        SameWidth<C> same(right);
        if (KRI_FAILED(same.status())) {
            KRI_FAIL(same.status());
            return;
        }
        C* joined = concatText(left, textLength(left), same.get(), textLength(same.get()));
        if (joined == nullptr) {
            KRI_FAIL(KR_RET_ERR_MEM);
            return;
        }
        freeBlock(result.text_);
        result.text_ = joined;
    }

    template <class T>
    static S concat(const S& s, const T& value) {
        auto other = operand(value);
        if (!s.initialised_ || !other.ready || other.text == nullptr) return S(s);
        S result;
        join(result, s.text_, other.text);
        return result;
    }

    // text followed by the string.
    template <class T>
    static S prepend(const T* text, const S& s) {
        if (text == nullptr) return s;
        S result;
        SameWidth<C> same(text);
        if (KRI_FAILED(same.status())) {
            KRI_FAIL(same.status());
            return result;
        }
        join(result, same.get(), s.initialised_ ? s.text_ : nullptr);
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
        krInternal::storeLe(buffer, n);
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
        unsigned int n = krInternal::loadLe<unsigned int>(buffer);
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

#pragma pop_macro("KRI_UNIT")

#endif  // KRCORE_KR_STRBODY_H
