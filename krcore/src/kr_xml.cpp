// kr_xml.cpp — the tag reader.
#include "kr_xml.h"

#include "kr_filecursor.h"
#include "kr_report.h"
#include "kr_strbase.h"
#include "kr_textbuffer.h"

#define KRI_UNIT "src/kr_xml"

namespace {

enum TagKind { kOpeningTag, kClosingTag };

bool validTag(const char* text, size_t length, TagKind kind) {
    if (kind == kOpeningTag) return length >= 3 && text[0] == '<' && text[length - 1] == '>';
    return length >= 4 && text[0] == '<' && text[1] == '/' && text[length - 1] == '>';
}

// Outputs are set with assignPtr, which does not look at the initialised flag: a string that is
// not initialised (the KR_NULL_PTR block behind a failed accessor) is refused first, so that
// nothing is ever written into the shared null block.
KR_RET_STATUS readTag(KR_String& tag, KR_FileAscii& file, const char* expected, TagKind kind) {
    if (!tag.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_POBJ);
    tag.assignPtr(nullptr);
    char c = '\0';
    KR_RET_STATUS status;
    do {
        status = krInternal::FileCursor::scanChar(file, c);
        if (status != KR_RET_TRUE) return status;
    } while (c != '<');
    krInternal::TextBuffer<char> text;
    if (!text.append('<')) return KRI_FAIL(KR_RET_ERR_MEM);
    for (;;) {
        status = krInternal::FileCursor::scanChar(file, c);
        if (KRI_FAILED(status)) return status;
        if (status != KR_RET_TRUE) break;
        if (!text.append(c)) return KRI_FAIL(KR_RET_ERR_MEM);
        if (c == '>') break;
    }
    if (!validTag(text.text(), text.length(), kind)) return KR_RET_FALSE;
    if (expected != nullptr && KR_strcmp(text.text(), expected) != 0) return KR_RET_FALSE;
    tag.assignPtr(text.release());
    return KR_RET_TRUE;
}

KR_RET_STATUS scanOne(KR_FileAscii& file, char& c) {
    return krInternal::FileCursor::scanChar(file, c);
}

KR_RET_STATUS scanOne(KR_FileAscii& file, wchar_t& c) {
    return file.scanCharW(c);
}

template <class Char, class Str>
KR_RET_STATUS readContent(Str& content, KR_FileAscii& file) {
    if (!content.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_POBJ);
    content.assignPtr(nullptr);
    KR_RET_STATUS status = file.isEof();
    if (KRI_FAILED(status)) return status;
    if (status == KR_RET_TRUE) return KR_RET_TRUE;
    krInternal::TextBuffer<Char> text;
    for (;;) {
        // The position before every character, so that the "<" can be given back exactly, also
        // after a multibyte character.
        long long pos = 0;
        status = krInternal::FileCursor::getPos(file, pos);
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

// The closing tag of an opening tag: "<a>" gives "</a>".
KR_RET_STATUS closingTagOf(const char* tag, krInternal::TextBuffer<char>& out) {
    if (!out.append("</", 2) || !out.appendText(tag + 1)) return KRI_FAIL(KR_RET_ERR_MEM);
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
    KR_String localTag;
    KR_String& tag = foundTag != nullptr ? *foundTag : localTag;
    KR_RET_STATUS status = readTag(tag, file, startTag, kOpeningTag);
    krInternal::TextBuffer<char> expectedEnd;
    if (status == KR_RET_TRUE && foundTag != nullptr && endTag == nullptr) {
        status = closingTagOf(static_cast<const char*>(tag), expectedEnd);
        endTag = expectedEnd.text();
    }
    if (status == KR_RET_TRUE) status = readContent<Char>(content, file);
    if (status == KR_RET_TRUE) {
        KR_String end;
        status = readTag(end, file, endTag, kClosingTag);
    }
    if (status == KR_RET_TRUE) return KR_RET_TRUE;
    content.assignPtr(nullptr);
    tag.assignPtr(nullptr);
    return status;
}

}  // namespace

KR_RET_STATUS KR_xmlReadTag(KR_String& tag, KR_FileAscii& file, const char* expected) {
    KR_setUserError(0);
    return readTag(tag, file, expected, kOpeningTag);
}

KR_RET_STATUS KR_xmlReadEndTag(KR_String& tag, KR_FileAscii& file, const char* expected) {
    KR_setUserError(0);
    return readTag(tag, file, expected, kClosingTag);
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
