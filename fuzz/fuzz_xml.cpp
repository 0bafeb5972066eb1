// fuzz_xml.cpp — the tag reader over a file of any bytes: entries with a given tag, entries with
// whatever tag, the tags alone and the content, narrow and wide.
#include <string.h>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    krfuzz::start();
    krfuzz::ScratchFile scratch(data, size);
    const bool hasZero = memchr(data, 0, size) != nullptr;

    // Every reader ends at the end of the file: the loops are bounded by the file's length.
    {
        KR_FileAscii file(scratch.name(), KR_FILE_MODE_READ);
        KR_String content;
        KR_String tag;
        for (size_t i = 0; i <= size; ++i) {
            KR_RET_STATUS st = KR_xmlReadTagEntry(content, tag, file);
            if (st > 2) break;
            // The reader's promises: a found entry names a valid tag (as text, so only for input
            // without zero bytes), a miss leaves both empty.
            const char* found = tag;
            if (st == KR_RET_TRUE && !hasZero && (tag.strLeng() < 3 || found[0] != '<')) abort();
            if (st != KR_RET_TRUE && (content.strLeng() != 0 || tag.strLeng() != 0)) abort();
            if (file.isEof() != KR_RET_FALSE) break;
        }
    }
    {
        KR_FileAscii file(scratch.name(), KR_FILE_MODE_READ);
        KR_StringW content;
        for (size_t i = 0; i <= size; ++i) {
            KR_RET_STATUS st = KR_xmlReadTagEntryW(content, file, "<STRING>", "</STRING>");
            if (st > 2 || file.isEof() != KR_RET_FALSE) break;
        }
    }
    {
        KR_FileAscii file(scratch.name(), KR_FILE_MODE_READ);
        KR_String tag;
        KR_String content;
        KR_StringW wide;
        for (size_t i = 0; i <= size; ++i) {
            if (KR_xmlReadTag(tag, file, nullptr) > 2) break;
            if (KR_xmlReadTagContent(content, file) > 2) break;
            if (KR_xmlReadTagContentW(wide, file) > 2) break;
            if (KR_xmlReadEndTag(tag, file, nullptr) > 2) break;
            if (file.isEof() != KR_RET_FALSE) break;
        }
    }
    return 0;
}
