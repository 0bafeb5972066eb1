// kr_xml.cpp — the tag reader.
#include "kr_xml.h"

#include <stdint.h>
#include <string.h>
#include <wchar.h>

#include <type_traits>

#include "kr_filecursor.h"
#include "kr_report.h"
#include "kr_strbase.h"
#include "kr_strcore.h"
#include "kr_textbuffer.h"
#include "kr_xmlentry.h"

#define KRI_UNIT "src/kr_xml"

namespace {

using krInternal::FileCursor;
using krInternal::TextBuffer;

enum TagKind { kOpeningTag, kClosingTag };

// A tag as read, "<" followed by the rest; rest is as long as read, through the ">" when there
// was one. The tag's string ends at the first zero byte, as a string made of it would.
struct TagText {
    const char* rest;
    size_t length;      // bytes of rest
    size_t textLength;  // bytes of rest before the first zero byte
};

bool validTag(const TagText& tag, TagKind kind) {
    if (tag.length == 0 || tag.rest[tag.length - 1] != '>') return false;
    if (kind == kOpeningTag) return tag.length + 1 >= 3;
    return tag.length + 1 >= 4 && tag.rest[0] == '/';
}

// What a tag read must match: any tag (both null), the given tag, or the closing tag of the
// given opening tag ("<a>" is closed by "</a>"). Exact, case-sensitive comparison.
struct TagMatch {
    const char* tag;
    const char* closing;

    bool accepts(const TagText& text) const {
        if (tag != nullptr) {
            return tag[0] == '<' && strncmp(tag + 1, text.rest, text.textLength) == 0 &&
                   tag[text.textLength + 1] == '\0';
        }
        if (closing == nullptr) return true;
        // "</" + the opening tag after its "<".
        return text.textLength >= 1 && text.rest[0] == '/' &&
               strncmp(closing + 1, text.rest + 1, text.textLength - 1) == 0 &&
               closing[text.textLength] == '\0';
    }
};

// Moves past the next "<". KR_RET_FALSE when the file ends first.
KR_RET_STATUS skipToTag(KR_FileAscii& file) {
    for (;;) {
        size_t count = 0;
        const char* data = FileCursor::buffered(file, count);
        const void* open = count == 0 ? nullptr : memchr(data, '<', count);
        if (open != nullptr) {
            FileCursor::skip(file, static_cast<size_t>(static_cast<const char*>(open) - data) + 1);
            return KR_RET_TRUE;
        }
        FileCursor::skip(file, count);
        // Nothing buffered: one character through the file, which refills its buffer.
        char c = '\0';
        KR_RET_STATUS status = FileCursor::scanChar(file, c);
        if (status != KR_RET_TRUE) return status;
        if (c == '<') return KR_RET_TRUE;
    }
}

// Reads the rest of a tag after its "<": through the next ">", or to the end of the file. A tag
// that lies in the file's buffer is used in place (until the next read); one that runs past the
// buffered bytes is collected in spill.
KR_RET_STATUS readTagRest(KR_FileAscii& file, TextBuffer<char>& spill, TagText& tag) {
    for (;;) {
        size_t count = 0;
        const char* data = FileCursor::buffered(file, count);
        const void* close = count == 0 ? nullptr : memchr(data, '>', count);
        size_t take = close == nullptr
                              ? count
                              : static_cast<size_t>(static_cast<const char*>(close) - data) + 1;
        if (close != nullptr && spill.length() == 0) {
            FileCursor::skip(file, take);
            tag.rest = data;
            tag.length = take;
            break;
        }
        if (!spill.append(data, take)) return KRI_FAIL(KR_RET_ERR_MEM);
        FileCursor::skip(file, take);
        if (close == nullptr) {
            char c = '\0';
            KR_RET_STATUS status = FileCursor::scanChar(file, c);
            if (KRI_FAILED(status)) return status;
            if (status == KR_RET_TRUE && !spill.append(c)) return KRI_FAIL(KR_RET_ERR_MEM);
            if (status == KR_RET_TRUE && c != '>') continue;
        }
        tag.rest = spill.text();
        tag.length = spill.length();
        break;
    }
    const void* zero = tag.length == 0 ? nullptr : memchr(tag.rest, '\0', tag.length);
    tag.textLength = zero == nullptr
                             ? tag.length
                             : static_cast<size_t>(static_cast<const char*>(zero) - tag.rest);
    return KR_RET_TRUE;
}

// A block handed out as it is, with the members of the string classes that the readers use:
// the library's own readers of many entries keep the blocks without copying them.
template <class Char>
struct RawText {
    Char* text = nullptr;

    unsigned char objIsEnabled() const { return 1; }

    KR_RET_STATUS assignPtr(Char* block) {
        krInternal::freeBlock(text);
        text = block;
        return KR_RET_TRUE;
    }

    operator const Char*() const { return text; }
};

// Reads the next tag of the kind, checked against match, into out when it is given (the
// closing tag of an entry is only checked). Outputs are set with assignPtr, which does not look
// at the initialised flag: a string that is not initialised (the KR_NULL_PTR block behind a
// failed accessor) is refused first, so that nothing is ever written into the shared null block.
template <class Tag>
KR_RET_STATUS readTag(Tag* out, KR_FileAscii& file, TagKind kind, const TagMatch& match) {
    if (out != nullptr) {
        if (!out->objIsEnabled()) return KRI_FAIL(KR_RET_ERR_POBJ);
        out->assignPtr(nullptr);
    }
    KR_RET_STATUS status = skipToTag(file);
    if (status != KR_RET_TRUE) return status;
    TextBuffer<char> spill;
    TagText tag = {nullptr, 0, 0};
    status = readTagRest(file, spill, tag);
    if (KRI_FAILED(status)) return status;
    if (!validTag(tag, kind) || !match.accepts(tag)) return KR_RET_FALSE;
    if (out == nullptr) return KR_RET_TRUE;
    char* text = krInternal::allocTextUncleared<char>(tag.textLength + 2);
    if (text == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    text[0] = '<';
    memcpy(text + 1, tag.rest, tag.textLength);
    text[tag.textLength + 1] = '\0';
    out->assignPtr(text);
    return KR_RET_TRUE;
}

// The leading bytes of data (count of them) that read as content characters of their own
// value: up to the first "<", and for wide content also up to the first byte outside ASCII,
// which only the locale's conversion can read.
template <class Char>
size_t plainContent(const char* data, size_t count) {
    if (count == 0) return 0;
    if (std::is_same<Char, char>::value) {
        const void* open = memchr(data, '<', count);
        return open == nullptr ? count : static_cast<size_t>(static_cast<const char*>(open) - data);
    }
    // Eight bytes at a time (the targets are little-endian, so the first byte is the lowest): a
    // byte equal to "<" leaves a zero in word ^ kOpens, and (x - kOnes) & ~x & kHighs marks the
    // lowest zero byte exactly (marks above it may be false); a byte outside ASCII marks itself.
    const uint64_t kOnes = 0x0101010101010101u;
    const uint64_t kHighs = 0x8080808080808080u;
    const uint64_t kOpens = kOnes * static_cast<unsigned char>('<');
    size_t n = 0;
    for (; n + 8 <= count; n += 8) {
        uint64_t word;
        memcpy(&word, data + n, 8);
        uint64_t opens = word ^ kOpens;
        uint64_t stops = (((opens - kOnes) & ~opens) | word) & kHighs;
        if (stops != 0) return n + static_cast<size_t>(__builtin_ctzll(stops)) / 8;
    }
    while (n < count && static_cast<unsigned char>(data[n]) < 0x80 && data[n] != '<')
        ++n;
    return n;
}

// Bytes that read as characters of their own value, in Char's width. Eight at a time from a
// local copy, which frees the compiler from reloading bytes that a store might have changed, so
// that it widens them with vector moves.
template <class Char>
void widenBytes(Char* out, const char* data, size_t count) {
    size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        unsigned char bytes[8];
        memcpy(bytes, data + i, 8);
        for (int k = 0; k < 8; ++k)
            out[i + k] = static_cast<Char>(bytes[k]);
    }
    for (; i < count; ++i)
        out[i] = static_cast<Char>(static_cast<unsigned char>(data[i]));
}

template <>
void widenBytes(char* out, const char* data, size_t count) {
    memcpy(out, data, count);
}

template <class Char>
bool appendBytes(TextBuffer<Char>& text, const char* data, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        if (!text.append(static_cast<Char>(static_cast<unsigned char>(data[i])))) return false;
    }
    return true;
}

template <>
bool appendBytes(TextBuffer<char>& text, const char* data, size_t count) {
    return text.append(data, count);
}

KR_RET_STATUS scanOne(KR_FileAscii& file, char& c) {
    return FileCursor::scanChar(file, c);
}

KR_RET_STATUS scanOne(KR_FileAscii& file, wchar_t& c) {
    return file.scanCharW(c);
}

// The content up to the next "<", which is left to be read again, or to the end of the file.
// The bytes in the file's buffer are scanned in place; content found whole there is copied
// once into a block of its size. At the end of the buffered bytes (and for wide content at a
// byte outside ASCII) one character is read through the file, with the position taken before
// it, so that a "<" can be given back exactly, also after a multibyte character.
template <class Char, class Str>
KR_RET_STATUS readContent(Str& content, KR_FileAscii& file) {
    if (!content.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_POBJ);
    content.assignPtr(nullptr);
    KR_RET_STATUS status = file.isEof();
    if (KRI_FAILED(status)) return status;
    if (status == KR_RET_TRUE) return KR_RET_TRUE;
    TextBuffer<Char> text;
    for (;;) {
        size_t count = 0;
        const char* data = FileCursor::buffered(file, count);
        size_t take = plainContent<Char>(data, count);
        bool atTag = take < count && data[take] == '<';
        if (atTag && text.length() == 0) {
            FileCursor::skip(file, take);
            if (take == 0) return KR_RET_TRUE;
            Char* whole = krInternal::allocTextUncleared<Char>(take + 1);
            if (whole == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
            widenBytes(whole, data, take);
            whole[take] = Char(0);
            content.assignPtr(whole);
            return KR_RET_TRUE;
        }
        if (!appendBytes(text, data, take)) return KRI_FAIL(KR_RET_ERR_MEM);
        FileCursor::skip(file, take);
        if (atTag) {
            status = KR_RET_TRUE;
            break;
        }
        long long pos = 0;
        status = FileCursor::getPos(file, pos);
        if (KRI_FAILED(status)) return status;
        Char c = Char(0);
        status = scanOne(file, c);
        if (status != KR_RET_TRUE) break;
        if (c == Char('<')) {
            status = file.setPos(pos);
            break;
        }
        if (!text.append(c)) return KRI_FAIL(KR_RET_ERR_MEM);
    }
    // Running into the end of the file ends the content; only a failure discards it.
    if (KRI_FAILED(status)) return status;
    content.assignPtr(text.release());
    return KR_RET_TRUE;
}

// True when none of the count bytes at data lies outside ASCII; eight at a time, the last
// eight read again where count is no multiple of eight.
bool allAscii(const char* data, size_t count) {
    const uint64_t kHighs = 0x8080808080808080u;
    uint64_t seen = 0;
    if (count < 8) {
        for (size_t i = 0; i < count; ++i)
            seen |= static_cast<unsigned char>(data[i]);
        return (seen & 0x80) == 0;
    }
    uint64_t word;
    for (size_t i = 0; i + 8 <= count; i += 8) {
        memcpy(&word, data + i, 8);
        seen |= word;
    }
    memcpy(&word, data + count - 8, 8);
    return ((seen | word) & kHighs) == 0;
}

// One character of wide content outside ASCII at p, decoded in place as KR_FileAscii::scanCharW
// decodes it from the file (a byte that starts no valid sequence stands for itself): c := the
// character, answers the bytes it takes. 0 where only the file can tell: a sequence cut by the
// end of the buffered bytes, and where wchar_t is 16-bit (characters beyond U+FFFF read as the
// runtime gives them a byte at a time).
template <class Char>
size_t decodeInPlace(const char* p, const char* end, Char& c) {
    if (sizeof(Char) < 4) return 0;
    mbstate_t state;
    memset(&state, 0, sizeof state);
    wchar_t wide = L'\0';
    size_t used = mbrtowc(&wide, p, static_cast<size_t>(end - p), &state);
    if (used == static_cast<size_t>(-2)) return 0;
    if (used == static_cast<size_t>(-1) || used == 0) {
        wide = static_cast<wchar_t>(static_cast<unsigned char>(*p));
        used = 1;
    }
    c = static_cast<Char>(wide);
    return used;
}

// Wide content [text, closing) with bytes outside ASCII, in an entry in the buffer [.., end),
// into a new block: value := the block, length := its characters. False (nothing kept) where
// decodeInPlace leaves a character to the file or a character takes the "<" at closing;
// KR_RET_ERR_MEM in status (reported) when the block cannot be had.
template <class Char>
bool decodeContent(const char* text,
                   const char* closing,
                   const char* end,
                   Char*& value,
                   size_t& length,
                   KR_RET_STATUS& status) {
    krInternal::TextBuffer<Char> decoded;
    Char local[256];
    const size_t kLocal = sizeof local / sizeof local[0];
    size_t used = 0;  // characters in local, not yet appended to decoded
    for (const char* p = text; p < closing;) {
        if (used + 1 == kLocal) {
            if (!decoded.append(local, used)) {
                status = KRI_FAIL(KR_RET_ERR_MEM);
                return true;
            }
            used = 0;
        }
        if (static_cast<unsigned char>(*p) < 0x80) {
            local[used++] = static_cast<Char>(*p++);
            continue;
        }
        size_t taken = decodeInPlace(p, end, local[used]);
        if (taken == 0 || taken > static_cast<size_t>(closing - p)) return false;
        ++used;
        p += taken;
    }
    if (!decoded.append(local, used)) {
        status = KRI_FAIL(KR_RET_ERR_MEM);
        return true;
    }
    length = decoded.length();
    value = decoded.release();
    return true;
}

// Reads an entry whatever its tag that lies whole in the file's buffer in one pass: the usual
// entry of a file of entries. Answers false, with nothing consumed and nothing allocated, for
// anything out of the ordinary (the entry runs past the buffered bytes, its tag holds a zero byte
// or is "<>", decodeContent declines, a closing tag that is not the entry's own), which the caller
// then reads the general way for its exact answer. Otherwise true with status: the entry read
// (KR_RET_TRUE), or KR_RET_ERR_MEM with the file where the general way leaves it.
template <class Char, class Str, class Tag>
bool readBufferedEntry(Str& content, Tag& foundTag, KR_FileAscii& file, KR_RET_STATUS& status) {
    size_t count = 0;
    const char* data = FileCursor::buffered(file, count);
    const char* end = data + count;
    // Between entries and inside tags there are a few bytes only: a plain loop beats memchr.
    const char* open = data;
    while (open < end && *open != '<')
        ++open;
    if (open == end) return false;
    const char* close = open + 1;
    while (close < end && *close != '>' && *close != '\0')
        ++close;
    if (close >= end || *close != '>' || close == open + 1) return false;
    const char* text = close + 1;
    const char* closing =
            static_cast<const char*>(memchr(text, '<', static_cast<size_t>(end - text)));
    size_t nameLength = static_cast<size_t>(close - open);  // "name>" after the "<"
    if (closing == nullptr || static_cast<size_t>(end - closing) < nameLength + 2 ||
        closing[1] != '/') {
        return false;
    }
    for (size_t i = 0; i < nameLength; ++i) {
        if (closing[2 + i] != open[1 + i]) return false;
    }
    // The general way reads the tag first, and then the content up to the "<": a failure leaves
    // the file where it leaves it.
    char* tag = krInternal::allocTextUncleared<char>(nameLength + 2);
    if (tag == nullptr) {
        FileCursor::skip(file, static_cast<size_t>(text - data));
        status = KRI_FAIL(KR_RET_ERR_MEM);
        return true;
    }
    memcpy(tag, open, nameLength + 1);
    tag[nameLength + 1] = '\0';
    size_t length = static_cast<size_t>(closing - text);
    Char* value = nullptr;
    status = KR_RET_TRUE;
    if (sizeof(Char) > 1 && !allAscii(text, length)) {
        if (!decodeContent(text, closing, end, value, length, status)) {
            krInternal::freeBlock(tag);
            return false;
        }
    } else if (length > 0) {
        value = krInternal::allocTextUncleared<Char>(length + 1);
        if (value == nullptr) {
            status = KRI_FAIL(KR_RET_ERR_MEM);
        } else {
            widenBytes(value, text, length);
            value[length] = Char(0);
        }
    }
    if (KRI_FAILED(status)) {
        krInternal::freeBlock(tag);
        FileCursor::skip(file, static_cast<size_t>(closing - data));
        return true;
    }
    FileCursor::skip(file, static_cast<size_t>(closing + 2 + nameLength - data));
    foundTag.assignPtr(tag);
    content.assignPtr(value);
    return true;
}

template <class Char, class Str, class Tag>
KR_RET_STATUS readEntry(
        Str& content, Tag* foundTag, KR_FileAscii& file, const char* startTag, const char* endTag) {
    if (!content.objIsEnabled() || (foundTag != nullptr && !foundTag->objIsEnabled())) {
        return KRI_FAIL(KR_RET_ERR_POBJ);
    }
    content.assignPtr(nullptr);
    KR_RET_STATUS status = KR_RET_TRUE;
    if (foundTag != nullptr && startTag == nullptr && endTag == nullptr) {
        foundTag->assignPtr(nullptr);
        if (readBufferedEntry<Char>(content, *foundTag, file, status)) return status;
    }
    status = readTag(foundTag, file, kOpeningTag, TagMatch{startTag, nullptr});
    TagMatch closing{endTag, nullptr};
    if (status == KR_RET_TRUE && foundTag != nullptr && endTag == nullptr) {
        closing.closing = static_cast<const char*>(*foundTag);
    }
    if (status == KR_RET_TRUE) status = readContent<Char>(content, file);
    if (status == KR_RET_TRUE) status = readTag<Tag>(nullptr, file, kClosingTag, closing);
    if (status == KR_RET_TRUE) return KR_RET_TRUE;
    content.assignPtr(nullptr);
    if (foundTag != nullptr) foundTag->assignPtr(nullptr);
    return status;
}

}  // namespace

KR_RET_STATUS KR_xmlReadTag(KR_String& tag, KR_FileAscii& file, const char* expected) {
    KR_setUserError(0);
    return readTag(&tag, file, kOpeningTag, TagMatch{expected, nullptr});
}

KR_RET_STATUS KR_xmlReadEndTag(KR_String& tag, KR_FileAscii& file, const char* expected) {
    KR_setUserError(0);
    return readTag(&tag, file, kClosingTag, TagMatch{expected, nullptr});
}

KR_RET_STATUS KR_xmlReadTagContent(KR_String& content, KR_FileAscii& file) {
    KR_setUserError(0);
    return readContent<char>(content, file);
}

KR_RET_STATUS KR_xmlReadTagContentW(KR_StringW& content, KR_FileAscii& file) {
    KR_setUserError(0);
    return readContent<wchar_t>(content, file);
}

KR_RET_STATUS KR_xmlReadTagEntry(KR_String& content,
                                 KR_FileAscii& file,
                                 const char* startTag,
                                 const char* endTag) {
    KR_setUserError(0);
    return readEntry<char>(content, static_cast<KR_String*>(nullptr), file, startTag, endTag);
}

KR_RET_STATUS KR_xmlReadTagEntryW(KR_StringW& content,
                                  KR_FileAscii& file,
                                  const char* startTag,
                                  const char* endTag) {
    KR_setUserError(0);
    return readEntry<wchar_t>(content, static_cast<KR_String*>(nullptr), file, startTag, endTag);
}

KR_RET_STATUS KR_xmlReadTagEntry(KR_String& content, KR_String& tag, KR_FileAscii& file) {
    KR_setUserError(0);
    return readEntry<char>(content, &tag, file, nullptr, nullptr);
}

KR_RET_STATUS KR_xmlReadTagEntryW(KR_StringW& content, KR_String& tag, KR_FileAscii& file) {
    KR_setUserError(0);
    return readEntry<wchar_t>(content, &tag, file, nullptr, nullptr);
}

KR_RET_STATUS krInternal::xmlReadEntryW(KR_FileAscii& file, char*& tag, wchar_t*& content) {
    RawText<char> rawTag;
    RawText<wchar_t> rawContent;
    KR_RET_STATUS status = readEntry<wchar_t>(rawContent, &rawTag, file, nullptr, nullptr);
    tag = rawTag.text;
    content = rawContent.text;
    return status;
}
