// kr_str.h — owned narrow and wide strings, and the utilities that fill them.
// KR_String (char) and KR_StringW (wchar_t) own a zero-terminated heap copy of their text (null
// for the empty string), convert between widths on construction and assignment, compare with each
// other and with raw texts of either width, pack, persist and print. KR_StringArr is a small fixed
// array of narrow strings. The free functions below are the C-string utilities whose result is a
// string object; those on raw texts are in kr_strbase.h.
#ifndef KRCORE_KR_STR_H
#define KRCORE_KR_STR_H

#include <wchar.h>

#include "kr_array_impl.h"
#include "kr_iostream.h"
#include "kr_persist.h"
#include "kr_reporter.h"
#include "kr_strbase.h"

class KR_StringW;

namespace krInternal {
// The one body behind the members of KR_String and KR_StringW (kr_str.cpp).
template <class S>
struct StringBody;
}  // namespace krInternal

// KR_String — an owned narrow text. The text comes from the C allocator and is freed with free();
// null stands for the empty string and behaves like "" for length, comparison and printing (it
// differs only in the packed form). A failed copy (memory, or a failed wide conversion) is
// reported and leaves the string null but usable, so constructors and assignments never fail
// visibly: callers who care test the last status code.
class KR_API KR_String : public KR_Persistable {
public:
    KR_String();
    // Null text gives a null string; otherwise a copy.
    KR_String(const char* text);
    // Converted with the locale's multibyte conversion (KR_wStrToStr).
    KR_String(const wchar_t* text);
    // A source that is not initialised is reported (KR_RET_ERR_POBJ); the copy is then null.
    KR_String(const KR_String& other);

    // Takes other's text without copying, so it never fails; other is left empty.
    KR_String(KR_String&& other) noexcept : KR_String() { *this = static_cast<KR_String&&>(other); }

    ~KR_String() override;

    // On a string that is not initialised: KR_RET_ERR_POBJ reported, the KR_NULL_PTR reference
    // returned; a source string that is not initialised is reported and changes nothing.
    // Otherwise the old text is replaced; a failed copy leaves a null string.
    KR_String& operator=(const KR_String& other);

    // Exchanges the texts of two initialised strings without copying (other is left with the old
    // text); otherwise as the copy assignment.
    KR_String& operator=(KR_String&& other) noexcept {
        if (!initialised_ || !other.initialised_)
            return *this = static_cast<const KR_String&>(other);
        char* text = text_;
        text_ = other.text_;
        other.text_ = text;
        return *this;
    }

    KR_String& operator=(const char* text);
    KR_String& operator=(const wchar_t* text);

    // Frees the old text and adopts text, which must come from the C allocator (malloc, calloc,
    // KR_strdup, KR_wStrToStr). Works also on a string that is not initialised. KR_RET_TRUE.
    KR_RET_STATUS assignPtr(char* text);
    // Frees the old text and makes room for length characters: an empty, non-null, zero-filled
    // text. KR_RET_ERR_MEM (reported) leaves the string null.
    KR_RET_STATUS allocate(unsigned int length);

    // Characters before the terminating zero. Not initialised: reports and answers 6 (the
    // KR_RET_ERR_POBJ number), so test objIsEnabled() first.
    unsigned int strLeng() const;
    // The character at 0 <= index < strLeng(); otherwise reported, and the KR_NULL_PTR
    // reference is returned, which must not be written.
    char& operator[](int index);

    // The text; null for the empty string. The string keeps ownership.
    operator char*() { return text_; }

    operator const char*() const { return text_; }

    unsigned char objIsEnabled() const { return initialised_; }

    // Ordering and equality follow KR_strcmp (null and "" are equal). A string that is not
    // initialised answers false to <, == and > and true to !=. Raw texts of the other width are
    // converted first; a failed conversion compares as null.
    bool operator<(const KR_String& other) const;
    bool operator<(const char* text) const;
    bool operator<(const wchar_t* text) const;
    bool operator<(const KR_StringW& other) const;
    bool operator==(const KR_String& other) const;
    bool operator==(const char* text) const;
    bool operator==(const wchar_t* text) const;
    bool operator==(const KR_StringW& other) const;
    bool operator!=(const KR_String& other) const;
    bool operator!=(const char* text) const;
    bool operator!=(const wchar_t* text) const;
    bool operator!=(const KR_StringW& other) const;
    bool operator>(const KR_String& other) const;
    bool operator>(const char* text) const;
    bool operator>(const wchar_t* text) const;
    bool operator>(const KR_StringW& other) const;

    // A new string: this text followed by the operand. A null operand, or this string not
    // initialised, gives a copy of this string unchanged.
    KR_String operator+(const KR_String& other) const;
    KR_String operator+(const char* text) const;
    KR_String operator+(const wchar_t* text) const;
    KR_String operator+(const KR_StringW& other) const;
    // Appends the operand. On a memory failure the old text stays as it was.
    KR_String& operator+=(const KR_String& other);
    KR_String& operator+=(const char* text);
    KR_String& operator+=(const wchar_t* text);

    // Inserts text before position pos; a position at or beyond the end appends. Null text
    // changes nothing. KR_RET_ERR_POBJ, KR_RET_ERR_MEM (text unchanged), otherwise KR_RET_TRUE.
    KR_RET_STATUS strIns(unsigned int pos, const char* text);
    KR_RET_STATUS strIns(unsigned int pos, const wchar_t* text);
    KR_RET_STATUS strIns(unsigned int pos, const KR_String& text);

    // Packed form: a little-endian 32-bit count n (0 for a null text, else length + 1), then the
    // n bytes of the text with its terminating zero. Only KR_STORAGE_BINARY is accepted
    // (KR_RET_ERR_ARG, and a size of 0, otherwise). The caller's buffer must hold
    // getPackedSize() bytes.
    KR_RET_STATUS pack(KR_Version& version,
                       char* buffer,
                       unsigned int& used,
                       KR_STORAGE_TYPE storage) override;
    unsigned int getPackedSize(KR_Version& version, KR_STORAGE_TYPE storage) override;
    KR_RET_STATUS unpack(KR_Version& version,
                         char* buffer,
                         unsigned int& used,
                         KR_STORAGE_TYPE storage) override;
    // One line "<STRING>text</STRING>\n", read back with the tag reader.
    KR_RET_STATUS persist(KR_Version& version, KR_FileAscii& file) override;
    KR_RET_STATUS persist(KR_Version& version, KR_FileBinary& file, unsigned int& written) override;
    // Empties the string, then reads the next <STRING> entry; the reader's status is returned
    // (KR_RET_FALSE when no entry is found). A string that is not initialised is reported
    // (KR_RET_ERR_POBJ) and stays as it is, but the entry is still read past.
    KR_RET_STATUS restore(KR_Version& version, KR_FileAscii& file) override;
    KR_RET_STATUS restore(KR_Version& version, KR_FileBinary& file, unsigned int& read) override;

private:
    friend struct krInternal::StringBody<KR_String>;
    KR_RET_STATUS initDataMembers(const char* text);
    KR_RET_STATUS cleanupDataMembers();

    unsigned char initialised_;
    char* text_;  // owned, from the C allocator; null for the empty string
};

// KR_StringW — the wide mirror of KR_String. Packed and binary-persisted text is UTF-16LE on
// every platform: the packed count is the number of UTF-16 code units plus 1, followed by that
// many 16-bit units (so a file written on Windows reads back on Linux and the reverse). The text
// persistence is deliberately asymmetric: persist writes "<STRINGW>text</STRINGW>\n" (the text
// in the locale's multibyte encoding), but restore reads a narrow "<STRING>" entry, so a wide
// string written this way is not found again, while a narrow string's entry reads into it.
class KR_API KR_StringW : public KR_Persistable {
public:
    KR_StringW();
    KR_StringW(const wchar_t* text);
    // Converted with the locale's multibyte conversion (KR_strToWStr).
    KR_StringW(const char* text);
    KR_StringW(const KR_StringW& other);

    // Takes other's text without copying, so it never fails; other is left empty.
    KR_StringW(KR_StringW&& other) noexcept : KR_StringW() {
        *this = static_cast<KR_StringW&&>(other);
    }

    ~KR_StringW() override;

    KR_StringW& operator=(const KR_StringW& other);

    // Exchanges the texts of two initialised strings without copying (other is left with the old
    // text); otherwise as the copy assignment.
    KR_StringW& operator=(KR_StringW&& other) noexcept {
        if (!initialised_ || !other.initialised_)
            return *this = static_cast<const KR_StringW&>(other);
        wchar_t* text = text_;
        text_ = other.text_;
        other.text_ = text;
        return *this;
    }

    KR_StringW& operator=(const wchar_t* text);
    KR_StringW& operator=(const char* text);

    // Adopts text, which must come from the C allocator (KR_strdupW, KR_strToWStr, calloc).
    KR_RET_STATUS assignPtr(wchar_t* text);
    // Room for length wide characters, zero-filled.
    KR_RET_STATUS allocate(unsigned int length);

    // Counts wchar_t units (not UTF-16 units: on Linux one per character).
    unsigned int strLeng() const;
    wchar_t& operator[](int index);

    operator wchar_t*() { return text_; }

    operator const wchar_t*() const { return text_; }

    unsigned char objIsEnabled() const { return initialised_; }

    bool operator<(const KR_StringW& other) const;
    bool operator<(const wchar_t* text) const;
    bool operator<(const char* text) const;
    bool operator<(const KR_String& other) const;
    bool operator==(const KR_StringW& other) const;
    bool operator==(const wchar_t* text) const;
    bool operator==(const char* text) const;
    bool operator==(const KR_String& other) const;
    bool operator!=(const KR_StringW& other) const;
    bool operator!=(const wchar_t* text) const;
    bool operator!=(const char* text) const;
    bool operator!=(const KR_String& other) const;
    bool operator>(const KR_StringW& other) const;
    bool operator>(const wchar_t* text) const;
    bool operator>(const char* text) const;
    bool operator>(const KR_String& other) const;

    KR_StringW operator+(const KR_StringW& other) const;
    KR_StringW operator+(const wchar_t* text) const;
    KR_StringW operator+(const char* text) const;
    KR_StringW operator+(const KR_String& other) const;
    KR_StringW& operator+=(const KR_StringW& other);
    KR_StringW& operator+=(const wchar_t* text);
    KR_StringW& operator+=(const char* text);

    KR_RET_STATUS strIns(unsigned int pos, const wchar_t* text);
    KR_RET_STATUS strIns(unsigned int pos, const char* text);
    KR_RET_STATUS strIns(unsigned int pos, const KR_StringW& text);

    KR_RET_STATUS pack(KR_Version& version,
                       char* buffer,
                       unsigned int& used,
                       KR_STORAGE_TYPE storage) override;
    unsigned int getPackedSize(KR_Version& version, KR_STORAGE_TYPE storage) override;
    KR_RET_STATUS unpack(KR_Version& version,
                         char* buffer,
                         unsigned int& used,
                         KR_STORAGE_TYPE storage) override;
    KR_RET_STATUS persist(KR_Version& version, KR_FileAscii& file) override;
    KR_RET_STATUS persist(KR_Version& version, KR_FileBinary& file, unsigned int& written) override;
    KR_RET_STATUS restore(KR_Version& version, KR_FileAscii& file) override;
    KR_RET_STATUS restore(KR_Version& version, KR_FileBinary& file, unsigned int& read) override;

private:
    friend struct krInternal::StringBody<KR_StringW>;
    KR_RET_STATUS initDataMembers(const wchar_t* text);
    KR_RET_STATUS cleanupDataMembers();

    unsigned char initialised_;
    wchar_t* text_;  // owned, from the C allocator; null for the empty string
};

// Raw text on the left; the same rules as the members.
KR_API bool operator<(const char* text, const KR_String& string);
KR_API bool operator<(const wchar_t* text, const KR_String& string);
KR_API bool operator==(const char* text, const KR_String& string);
KR_API bool operator==(const wchar_t* text, const KR_String& string);
KR_API bool operator!=(const char* text, const KR_String& string);
KR_API bool operator!=(const wchar_t* text, const KR_String& string);
KR_API bool operator>(const char* text, const KR_String& string);
KR_API bool operator>(const wchar_t* text, const KR_String& string);
KR_API bool operator<(const wchar_t* text, const KR_StringW& string);
KR_API bool operator<(const char* text, const KR_StringW& string);
KR_API bool operator==(const wchar_t* text, const KR_StringW& string);
KR_API bool operator==(const char* text, const KR_StringW& string);
KR_API bool operator!=(const wchar_t* text, const KR_StringW& string);
KR_API bool operator!=(const char* text, const KR_StringW& string);
KR_API bool operator>(const wchar_t* text, const KR_StringW& string);
KR_API bool operator>(const char* text, const KR_StringW& string);
// text followed by the string, in the string's width. A null text gives a copy of the string.
KR_API KR_String operator+(const char* text, const KR_String& string);
KR_API KR_String operator+(const wchar_t* text, const KR_String& string);
KR_API KR_StringW operator+(const wchar_t* text, const KR_StringW& string);
KR_API KR_StringW operator+(const char* text, const KR_StringW& string);

// Through the stream's narrow (wide) text overload; a string that is not initialised prints
// nothing.
KR_API KR_OStream& operator<<(KR_OStream& stream, const KR_String& string);
KR_API KR_OStream& operator<<(KR_OStream& stream, const KR_StringW& string);

// KR_StringArr — a fixed number of narrow strings in one owned block. A failed construction or
// change sets the error flag (strArrErr) and is reported with the "KR_StringArr ..." texts of the
// message catalogue; the array is then empty. Indices run from 0 to strArrNum() - 1.
class KR_API KR_StringArr : public KR_KorvaneClass {
public:
    // One string holding text (a null text gives an empty array).
    explicit KR_StringArr(const char* text);
    // count null strings.
    explicit KR_StringArr(unsigned int count = 0);
    KR_StringArr(const KR_StringArr& other);
    ~KR_StringArr() override;
    // Copies other's strings. On failure this array is left empty with its error flag set.
    KR_StringArr& operator=(const KR_StringArr& other);

    // Appends copies of other's strings (itself allowed). KR_RET_ERR_MEM leaves this unchanged.
    KR_RET_STATUS strArrCat(const KR_StringArr& other);
    // Inserts a copy of text before index (at or beyond the end appends).
    KR_RET_STATUS strArrIns(unsigned int index, const char* text);
    // Removes the string at index; KR_RET_ERR_ARG (reported) when there is none.
    KR_RET_STATUS strArrDel(unsigned int index);

    // The string at index; otherwise reported, and the KR_NULL_PTR reference is returned.
    KR_String& operator[](unsigned int index);

    unsigned int strArrNum() const { return count_; }

    // Non-zero after a failed construction, copy or change.
    unsigned char strArrErr() const { return error_; }

    unsigned char objIsEnabled() const { return initialised_; }

private:
    KR_RET_STATUS initDataMembers(unsigned int count);
    KR_RET_STATUS cleanupDataMembers();
    // Releases the strings. A non-zero what is the catalogue entry (group 1) of a failure to
    // report: the error flag is set and the report names that operation with "Memory error".
    KR_RET_STATUS strArrFree(int what);
    // A block of count null strings (null for 0 and on failure; the caller reports).
    static KR_String* makeBlock(unsigned int count);

    unsigned char initialised_;
    unsigned char error_;
    unsigned int count_;
    KR_String* strings_;  // null exactly when count_ is 0; allocated with array-new
};

// One string per line, each followed by a newline.
KR_API KR_OStream& operator<<(KR_OStream& stream, const KR_StringArr& array);

// --- Utilities whose result is a string object (report name "src/kr_str") ---

// Replaces every non-overlapping occurrence of pattern in text by replacement, scanning from the
// left (replaced text is never searched again). KR_RET_TRUE when something was replaced and out
// holds the result; KR_RET_FALSE when nothing was (null text, replacement or pattern, empty
// pattern, or no occurrence): out is then emptied. KR_RET_ERR_MEM empties out.
KR_API KR_RET_STATUS KR_strSubstitute(KR_String& out,
                                      const char* text,
                                      const char* replacement,
                                      const char* pattern,
                                      unsigned char caseSensitive);
KR_API KR_RET_STATUS KR_strSubstituteW(KR_StringW& out,
                                       const wchar_t* text,
                                       const wchar_t* replacement,
                                       const wchar_t* pattern,
                                       unsigned char caseSensitive);

// Makes text safe for line-oriented files: every control character (codes 0 to 31 except TAB,
// LF and CR, and 127) becomes its "$CHR(name)" form, and an existing "$CHR(" is first escaped as
// "$$CHR(". Bytes 128 to 255 (wide characters above 127) are copied unchanged. Decoding gives the
// text back, except for a "$" directly before a control character: "$" + BEL encodes as
// "$$CHR(BEL)", which decodes as the escaped text "$CHR(BEL)". A null text gives an empty out and
// KR_RET_TRUE. An out that is not initialised is reported (KR_RET_ERR_POBJ) and left alone, but
// the text is still encoded and that status answered. KR_RET_ERR_MEM empties out.
KR_API KR_RET_STATUS KR_addControlChars(KR_String& out, const char* text);
KR_API KR_RET_STATUS KR_addControlCharsW(KR_StringW& out, const wchar_t* text);
// The inverse of KR_addControlChars: each "$CHR(name)" not preceded by "$" becomes its control
// character (an unknown name is copied as it stands), then "$$CHR(" becomes "$CHR(".
KR_API KR_RET_STATUS KR_removeControlChars(KR_String& out, const char* text);
KR_API KR_RET_STATUS KR_removeControlCharsW(KR_StringW& out, const wchar_t* text);

// Splits text into the maximal runs of characters that are not in delimiters. Runs of delimiters
// separate, and delimiters at either end give no empty token. Null text: out empty; null
// delimiters: out holds the whole text. KR_RET_ERR_MEM (reported) or the array's failure status
// leaves out empty.
KR_API KR_RET_STATUS KR_splitString(const char* text,
                                    const char* delimiters,
                                    KR_Array<KR_String>& out);
KR_API KR_RET_STATUS KR_splitStringW(const wchar_t* text,
                                     const wchar_t* delimiters,
                                     KR_Array<KR_StringW>& out);
// The general split. quote (0: none) opens and closes a quoted section in which delimiters and
// white space are ordinary characters; the quotes themselves are dropped. escape (0: none) makes
// the next character ordinary and is dropped itself (a final lone escape is kept). keepEmpty
// non-zero: every single delimiter separates, so adjacent delimiters and delimiters at the ends
// give empty tokens (as in CSV); zero: as the three-argument form, except that a quoted "" is a
// token. trimWhite non-zero: white space (space, TAB, CR, LF, VT, FF) that is neither quoted nor
// escaped is removed from both ends of each token. Null text: out empty. Null delimiters: one
// token (still unquoted, unescaped and trimmed). An unclosed quote runs to the end of the text.
KR_API KR_RET_STATUS KR_splitString(const char* text,
                                    const char* delimiters,
                                    KR_Array<KR_String>& out,
                                    char quote,
                                    char escape,
                                    unsigned char keepEmpty,
                                    unsigned char trimWhite);
KR_API KR_RET_STATUS KR_splitStringW(const wchar_t* text,
                                     const wchar_t* delimiters,
                                     KR_Array<KR_StringW>& out,
                                     wchar_t quote,
                                     wchar_t escape,
                                     unsigned char keepEmpty,
                                     unsigned char trimWhite);
// Joins the strings of array into out with separator between them (null: nothing between). An
// empty array gives an empty out. KR_RET_ERR_POBJ for an array or out that is not initialised,
// KR_RET_ERR_MEM (out emptied).
KR_API KR_RET_STATUS KR_stringArrToString(KR_String& out,
                                          KR_Array<KR_String>& array,
                                          const char* separator);
KR_API KR_RET_STATUS KR_stringArrToStringW(KR_StringW& out,
                                           KR_Array<KR_StringW>& array,
                                           const wchar_t* separator);

// out := at most count characters of text from position start (fewer at the end of the text).
// KR_RET_TRUE when out holds at least one character; KR_RET_FALSE when the piece is empty (null
// text, start at or beyond the end, count 0): out is then emptied. KR_RET_ERR_MEM empties out.
KR_API KR_RET_STATUS KR_getSubString(KR_String& out,
                                     const char* text,
                                     unsigned int start,
                                     unsigned int count);
KR_API KR_RET_STATUS KR_getSubStringW(KR_StringW& out,
                                      const wchar_t* text,
                                      unsigned int start,
                                      unsigned int count);

// Width conversions into a string object with the locale's multibyte conversion. A null text
// gives an empty out and KR_RET_TRUE; a failed conversion (a character or byte sequence the
// locale cannot convert) empties out and reports KR_RET_ERR_GEN; KR_RET_ERR_MEM empties out.
KR_API KR_RET_STATUS KR_strToKorvaneStrW(KR_StringW& out, const char* text);
KR_API KR_RET_STATUS KR_wStrToKorvaneStr(KR_String& out, const wchar_t* text);

// Containers of strings copy through these: a copy that leaves the target null while the source
// has text did not arrive (the string's assignment has reported KR_RET_ERR_MEM).
template <>
struct KR_ElemCopy<KR_String> {
    static constexpr bool kMayFail = true;

    static bool copy(KR_String& dst, const KR_String& src) {
        dst = src;
        return static_cast<const char*>(dst) != nullptr || static_cast<const char*>(src) == nullptr;
    }
};

template <>
struct KR_ElemCopy<KR_StringW> {
    static constexpr bool kMayFail = true;

    static bool copy(KR_StringW& dst, const KR_StringW& src) {
        dst = src;
        return static_cast<const wchar_t*>(dst) != nullptr ||
               static_cast<const wchar_t*>(src) == nullptr;
    }
};

// The string arrays are provided by the library (kr_instances.cpp).
extern template class KR_API KR_Container<KR_String>;
extern template class KR_API KR_OrdContainer<KR_String>;
extern template class KR_API KR_I_Iterator<KR_String>;
extern template class KR_API KR_IndContainer<KR_String>;
extern template class KR_API KR_Array<KR_String>;
extern template class KR_API KR_Container<KR_StringW>;
extern template class KR_API KR_OrdContainer<KR_StringW>;
extern template class KR_API KR_I_Iterator<KR_StringW>;
extern template class KR_API KR_IndContainer<KR_StringW>;
extern template class KR_API KR_Array<KR_StringW>;

#endif  // KRCORE_KR_STR_H
