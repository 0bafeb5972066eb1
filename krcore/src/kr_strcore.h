// kr_strcore.h — the character-width-generic text routines behind the string units.
// One template per job serves the narrow function and its W twin, and the string classes. None of
// these report: they answer a status (KR_RET_ERR_MEM, KR_RET_ERR_GEN) and the public function
// that called them reports it under its own unit name and line. Internal to the library.
#ifndef KRCORE_KR_STRCORE_H
#define KRCORE_KR_STRCORE_H

#include <ctype.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>
#include <wctype.h>

#include <type_traits>

#include "kr_alloc.h"
#include "kr_reporter.h"
#include "kr_utf16.h"

class KR_String;
class KR_StringW;

namespace krInternal {

template <class C>
struct CharOps;

template <>
struct CharOps<char> {
    static size_t length(const char* text) { return strlen(text); }

    static char upper(char c) { return static_cast<char>(toupper(static_cast<unsigned char>(c))); }

    static char lower(char c) { return static_cast<char>(tolower(static_cast<unsigned char>(c))); }

    static const char* find(const char* text, const char* pattern) { return strstr(text, pattern); }

    static const char* findChar(const char* text, char c) { return strchr(text, c); }

    static char* duplicate(const char* text) { return dupText(text); }
};

template <>
struct CharOps<wchar_t> {
    static size_t length(const wchar_t* text) { return wcslen(text); }

    static wchar_t upper(wchar_t c) {
        return static_cast<wchar_t>(towupper(static_cast<wint_t>(c)));
    }

    static wchar_t lower(wchar_t c) {
        return static_cast<wchar_t>(towlower(static_cast<wint_t>(c)));
    }

    static const wchar_t* find(const wchar_t* text, const wchar_t* pattern) {
        return wcsstr(text, pattern);
    }

    static const wchar_t* findChar(const wchar_t* text, wchar_t c) { return wcschr(text, c); }

    static wchar_t* duplicate(const wchar_t* text) { return dupTextW(text); }
};

// Characters compare as unsigned values of their own width.
template <class C>
using UnsignedChar = std::make_unsigned_t<C>;

template <class C>
inline size_t textLength(const C* text) {
    return text == nullptr ? 0 : CharOps<C>::length(text);
}

template <class C>
inline bool isWhite(C c) {
    return c == C(' ') || c == C('\t') || c == C('\n') || c == C('\v') || c == C('\f') ||
           c == C('\r');
}

// The value of a hexadecimal digit of either case; -1 for any other character.
template <class C>
inline int hexDigit(C c) {
    if (c >= C('0') && c <= C('9')) return static_cast<int>(c - C('0'));
    if (c >= C('a') && c <= C('f')) return static_cast<int>(c - C('a')) + 10;
    if (c >= C('A') && c <= C('F')) return static_cast<int>(c - C('A')) + 10;
    return -1;
}

// A zero-filled block of count characters from the C allocator; null on failure.
template <class C>
inline C* allocText(size_t count) {
    return static_cast<C*>(allocZeroed(count, sizeof(C)));
}

// A block of count characters from the C allocator, not cleared, for a text that is written in
// full, terminator included; null on failure. Clearing a block of a megabyte costs about as much
// as writing it.
template <class C>
inline C* allocTextUncleared(size_t count) {
    if (count > SIZE_MAX / sizeof(C)) return nullptr;
    return static_cast<C*>(allocBlock(count * sizeof(C)));
}

// Upper-cases text in place.
template <class C>
inline void upperInPlace(C* text, size_t length) {
    for (size_t i = 0; i < length; ++i)
        text[i] = CharOps<C>::upper(text[i]);
}

// An upper-cased heap copy of text (non-null); null on failure.
template <class C>
inline C* upperCopy(const C* text) {
    C* copy = CharOps<C>::duplicate(text);
    if (copy != nullptr) upperInPlace(copy, CharOps<C>::length(copy));
    return copy;
}

// The case rule of the searches: the texts are searched as they are, or upper-cased copies of
// them, whose positions map one to one back into the originals. Releases its copies.
template <class C>
class SearchTexts {
public:
    SearchTexts(const C* text, const C* pattern, unsigned char caseSensitive)
        : text_(text), pattern_(pattern), textCopy_(nullptr), patternCopy_(nullptr) {
        if (caseSensitive != 0) return;
        textCopy_ = upperCopy(text);
        patternCopy_ = textCopy_ == nullptr ? nullptr : upperCopy(pattern);
        ok_ = patternCopy_ != nullptr;
    }

    SearchTexts(const SearchTexts&) = delete;
    SearchTexts& operator=(const SearchTexts&) = delete;

    ~SearchTexts() {
        freeBlock(textCopy_);
        freeBlock(patternCopy_);
    }

    // False when a working copy could not be made.
    bool ok() const { return ok_; }

    // The texts searched: the originals, or their upper-cased copies.
    const C* haystack() const { return textCopy_ != nullptr ? textCopy_ : text_; }

    const C* needle() const { return patternCopy_ != nullptr ? patternCopy_ : pattern_; }

    // The first occurrence at or after offset from, as an offset into the text; -1 for none.
    long long find(size_t from) const {
        const C* hit = CharOps<C>::find(haystack() + from, needle());
        return hit == nullptr ? -1 : static_cast<long long>(hit - haystack());
    }

private:
    const C* text_;
    const C* pattern_;
    C* textCopy_;
    C* patternCopy_;
    bool ok_ = true;
};

// The occurrences of a non-empty pattern in a text, leftmost first, as the C library's search
// finds them. The pattern's first character is sought with strchr and the rest compared, which
// costs less per match than a call of the general search and needs no pass to measure the text.
// False starts (the first character without the rest, as in long runs of one letter) may cost
// as many comparisons as the text passed so far has characters; beyond that the C library's
// search takes over, so a text made to defeat the quick scan costs little more than it would.
template <class C>
class PatternFinder {
public:
    PatternFinder(const C* text, const C* pattern)
        : text_(text), pattern_(pattern), patternLength_(CharOps<C>::length(pattern)), spent_(0) {}

    size_t patternLength() const { return patternLength_; }

    // The first occurrence at or after offset from (at most the text's length); -1 for none.
    long long find(size_t from) {
        const C* p = text_ + from;
        while (spent_ <= static_cast<size_t>(p - text_) + kAllowance) {
            p = CharOps<C>::findChar(p, pattern_[0]);
            if (p == nullptr) return -1;
            // The text's terminating zero differs from every pattern character: no over-read.
            size_t same = 1;
            while (same < patternLength_ && p[same] == pattern_[same])
                ++same;
            if (same == patternLength_) return static_cast<long long>(p - text_);
            spent_ += same;
            ++p;
        }
        const C* hit = CharOps<C>::find(p, pattern_);
        return hit == nullptr ? -1 : static_cast<long long>(hit - text_);
    }

private:
    static constexpr size_t kAllowance = 4096;

    const C* text_;
    const C* pattern_;
    size_t patternLength_;  // at least 1
    size_t spent_;          // characters compared in false starts
};

// Non-overlapping occurrences, counted from the left.
template <class C>
inline size_t countOccurrences(PatternFinder<C>& finder) {
    size_t count = 0;
    for (long long at = finder.find(0); at >= 0;
         at = finder.find(static_cast<size_t>(at) + finder.patternLength())) {
        ++count;
    }
    return count;
}

// Offsets kept by one pass over a text for the next one: the first kInPlace in the object, the
// rest in a heap block that doubles. A failed push changes nothing and answers false.
class OffsetList {
public:
    OffsetList() : count_(0), heap_(nullptr), heapCapacity_(0) {}

    OffsetList(const OffsetList&) = delete;
    OffsetList& operator=(const OffsetList&) = delete;

    ~OffsetList() { freeBlock(heap_); }

    bool push(size_t offset) {
        if (count_ < kInPlace) {
            inPlace_[count_++] = offset;
            return true;
        }
        size_t slot = count_ - kInPlace;
        if (slot == heapCapacity_) {
            size_t capacity = heapCapacity_ == 0 ? kInPlace : heapCapacity_ * 2;
            if (capacity > SIZE_MAX / sizeof(size_t)) return false;
            void* grown = reallocBlock(heap_, capacity * sizeof(size_t));
            if (grown == nullptr) return false;
            heap_ = static_cast<size_t*>(grown);
            heapCapacity_ = capacity;
        }
        heap_[slot] = offset;
        ++count_;
        return true;
    }

    size_t size() const { return count_; }

    size_t operator[](size_t i) const { return i < kInPlace ? inPlace_[i] : heap_[i - kInPlace]; }

private:
    static constexpr size_t kInPlace = 64;

    size_t count_;
    size_t inPlace_[kInPlace];
    size_t* heap_;  // heapCapacity_ offsets; null until more than kInPlace were pushed
    size_t heapCapacity_;
};

// The substitution shared by the raw and the string-object forms. *out is null unless the
// answer is KR_RET_TRUE. KR_RET_ERR_MEM is not reported here. The text is searched once: the
// counting pass keeps the offsets of the matches for the copying pass.
template <class C>
KR_RET_STATUS substituteText(C** out,
                             const C* text,
                             const C* replacement,
                             const C* pattern,
                             unsigned char caseSensitive) {
    *out = nullptr;
    if (text == nullptr || replacement == nullptr || pattern == nullptr || *pattern == 0) {
        return KR_RET_FALSE;
    }
    SearchTexts<C> search(text, pattern, caseSensitive);
    if (!search.ok()) return KR_RET_ERR_MEM;
    PatternFinder<C> finder(search.haystack(), search.needle());
    size_t patternLength = finder.patternLength();
    long long first = finder.find(0);
    if (first < 0) return KR_RET_FALSE;
    OffsetList matches;
    for (long long at = first; at >= 0; at = finder.find(static_cast<size_t>(at) + patternLength)) {
        if (!matches.push(static_cast<size_t>(at))) return KR_RET_ERR_MEM;
    }
    size_t count = matches.size();
    // Only the tail after the last match is left to measure.
    size_t lastEnd = matches[count - 1] + patternLength;
    size_t textLength = lastEnd + CharOps<C>::length(text + lastEnd);
    size_t replacementLength = CharOps<C>::length(replacement);
    size_t resultLength = textLength - count * patternLength + count * replacementLength;
    C* result = allocTextUncleared<C>(resultLength + 1);
    if (result == nullptr) return KR_RET_ERR_MEM;
    C* write = result;
    size_t done = 0;
    for (size_t i = 0; i < count; ++i) {
        size_t piece = matches[i] - done;
        memcpy(write, text + done, piece * sizeof(C));
        write += piece;
        memcpy(write, replacement, replacementLength * sizeof(C));
        write += replacementLength;
        done = matches[i] + patternLength;
    }
    memcpy(write, text + done, (textLength - done + 1) * sizeof(C));
    *out = result;
    return KR_RET_TRUE;
}

// a followed by b in a new heap text (null texts count as empty); null on failure.
template <class C>
inline C* concatText(const C* a, size_t aLength, const C* b, size_t bLength) {
    C* result = allocText<C>(aLength + bLength + 1);
    if (result == nullptr) return nullptr;
    if (aLength > 0) memcpy(result, a, aLength * sizeof(C));
    if (bLength > 0) memcpy(result + aLength, b, bLength * sizeof(C));
    return result;
}

// Packed texts (the string classes and the variant): a 32-bit count, then the units.
// The packed count: the units of the text with its terminator, 0 for a null text. A unit is a
// byte of a narrow text and a UTF-16 unit of a wide one, whatever the width of wchar_t.
constexpr unsigned int unitBytes(char) {
    return 1;
}

constexpr unsigned int unitBytes(wchar_t) {
    return 2;
}

inline unsigned int packedCount(const char* text) {
    return text == nullptr ? 0 : static_cast<unsigned int>(strlen(text)) + 1;
}

inline unsigned int packedCount(const wchar_t* text) {
    if (text == nullptr) return 0;
    return static_cast<unsigned int>(krInternal::utf16Length(text, wcslen(text))) + 1;
}

// The units of a non-null text and its terminator.
inline void writeUnits(unsigned char* out, const char* text) {
    memcpy(out, text, strlen(text) + 1);
}

inline void writeUnits(unsigned char* out, const wchar_t* text) {
    size_t bytes = krInternal::writeUtf16LE(text, wcslen(text), out);
    out[bytes] = 0;
    out[bytes + 1] = 0;
}

// count units into out, which is zero-filled and has room for count + 1 characters (count units
// never give more characters than that).
inline void readUnits(const unsigned char* in, unsigned int count, char* out) {
    memcpy(out, in, count);
}

inline void readUnits(const unsigned char* in, unsigned int count, wchar_t* out) {
    krInternal::readUtf16LE(in, count, out);
}

// The locale's multibyte conversions. Null input gives null and KR_RET_TRUE; otherwise a new
// heap text, or null with KR_RET_ERR_GEN (not convertible) or KR_RET_ERR_MEM. Nothing reported.
wchar_t* toWide(const char* text, KR_RET_STATUS& status);
char* toNarrow(const wchar_t* text, KR_RET_STATUS& status);

// text in the other width: toWide or toNarrow by the argument's type.
inline wchar_t* convertText(const char* text, KR_RET_STATUS& status) {
    return toWide(text, status);
}

inline char* convertText(const wchar_t* text, KR_RET_STATUS& status) {
    return toNarrow(text, status);
}

// The other width's text converted into C's width (or the text itself when it already is), so
// that mixed-width operations can share one body. status as toWide/toNarrow.
template <class C>
class SameWidth {
public:
    explicit SameWidth(const C* text) : text_(text), owned_(nullptr), status_(KR_RET_TRUE) {}

    template <class D, std::enable_if_t<!std::is_same<C, D>::value, int> = 0>
    explicit SameWidth(const D* text) : text_(nullptr), owned_(nullptr), status_(KR_RET_TRUE) {
        owned_ = convertText(text, status_);
        text_ = owned_;
    }

    SameWidth(const SameWidth&) = delete;
    SameWidth& operator=(const SameWidth&) = delete;

    ~SameWidth() { freeBlock(owned_); }

    const C* get() const { return text_; }

    KR_RET_STATUS status() const { return status_; }

private:
    const C* text_;
    C* owned_;
    KR_RET_STATUS status_;
};

// Gives a heap text (from the C allocator) to a string that holds none, such as an array slot
// that was just default-constructed; nothing is freed and nothing can fail (kr_str.cpp).
void adoptIntoEmpty(KR_String& s, char* text);
void adoptIntoEmpty(KR_StringW& s, wchar_t* text);

}  // namespace krInternal

#endif  // KRCORE_KR_STRCORE_H
