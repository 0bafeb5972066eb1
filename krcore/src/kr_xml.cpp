// kr_xml.cpp — the tag reader.
#include "kr_xml.h"

#include <string.h>

#include <type_traits>

#include "kr_filecursor.h"
#include "kr_report.h"
#include "kr_strbase.h"
#include "kr_strcore.h"
#include "kr_textbuffer.h"

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

// Reads the next tag of the kind, checked against match, into out when it is given (the
// closing tag of an entry is only checked). Outputs are set with assignPtr, which does not look
// at the initialised flag: a string that is not initialised (the KR_NULL_PTR block behind a
// failed accessor) is refused first, so that nothing is ever written into the shared null block.
KR_RET_STATUS readTag(KR_String* out, KR_FileAscii& file, TagKind kind, const TagMatch& match) {
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
    size_t n = 0;
    while (n < count && static_cast<unsigned char>(data[n]) < 0x80 && data[n] != '<')
        ++n;
    return n;
}

// Bytes that read as characters of their own value, in Char's width.
template <class Char>
void widenBytes(Char* out, const char* data, size_t count) {
    for (size_t i = 0; i < count; ++i)
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

template <class Char, class Str>
KR_RET_STATUS readEntry(Str& content,
                        KR_String* foundTag,
                        KR_FileAscii& file,
                        const char* startTag,
                        const char* endTag) {
    if (!content.objIsEnabled() || (foundTag != nullptr && !foundTag->objIsEnabled())) {
        return KRI_FAIL(KR_RET_ERR_POBJ);
    }
    content.assignPtr(nullptr);
    KR_RET_STATUS status = readTag(foundTag, file, kOpeningTag, TagMatch{startTag, nullptr});
    TagMatch closing{endTag, nullptr};
    if (status == KR_RET_TRUE && foundTag != nullptr && endTag == nullptr) {
        closing.closing = static_cast<const char*>(*foundTag);
    }
    if (status == KR_RET_TRUE) status = readContent<Char>(content, file);
    if (status == KR_RET_TRUE) status = readTag(nullptr, file, kClosingTag, closing);
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
    return readEntry<char>(content, nullptr, file, startTag, endTag);
}

KR_RET_STATUS KR_xmlReadTagEntryW(KR_StringW& content,
                                  KR_FileAscii& file,
                                  const char* startTag,
                                  const char* endTag) {
    KR_setUserError(0);
    return readEntry<wchar_t>(content, nullptr, file, startTag, endTag);
}

KR_RET_STATUS KR_xmlReadTagEntry(KR_String& content, KR_String& tag, KR_FileAscii& file) {
    KR_setUserError(0);
    return readEntry<char>(content, &tag, file, nullptr, nullptr);
}

KR_RET_STATUS KR_xmlReadTagEntryW(KR_StringW& content, KR_String& tag, KR_FileAscii& file) {
    KR_setUserError(0);
    return readEntry<wchar_t>(content, &tag, file, nullptr, nullptr);
}
