// fuzz_settings.cpp — a file of any bytes read as a settings file; what was read is saved and
// must read back the same. Also the entry read that the settings reader rests on, against the
// same entry read piece by piece.
#include <locale.h>
#include <string.h>
#include <wchar.h>

#include <string>

#include "fuzz_support.h"

namespace {

const char* const kStart = "<settings>";
const char* const kEnd = "</settings>";

std::wstring wide(const KR_StringW& text) {
    return text.strLeng() ? static_cast<const wchar_t*>(text) : L"";
}

std::string narrow(const KR_String& text) {
    return text.strLeng() ? static_cast<const char*>(text) : "";
}

// Entry by entry: the whole-entry read (which reads entries lying in the file's buffer in place)
// must answer as its three steps do, and leave the file at the same place.
void compareEntryReads(const char* name, size_t size) {
    KR_FileAscii whole(name, KR_FILE_MODE_READ);
    KR_FileAscii steps(name, KR_FILE_MODE_READ);
    KR_StringW content, stepContent;
    KR_String tag, stepTag, endTag;
    for (size_t i = 0; i <= size; ++i) {
        KR_RET_STATUS st = KR_xmlReadTagEntryW(content, tag, whole);
        KR_RET_STATUS expected = KR_xmlReadTag(stepTag, steps, nullptr);
        if (expected == KR_RET_TRUE) expected = KR_xmlReadTagContentW(stepContent, steps);
        if (expected == KR_RET_TRUE) {
            std::string closing = "</" + narrow(stepTag).substr(1);
            expected = KR_xmlReadEndTag(endTag, steps, closing.c_str());
        }
        if (st != expected) abort();
        if (st == KR_RET_TRUE &&
            (narrow(tag) != narrow(stepTag) || wide(content) != wide(stepContent))) {
            abort();
        }
        long long at = -1, stepAt = -2;
        if (whole.getPos(at) != KR_RET_TRUE || steps.getPos(stepAt) != KR_RET_TRUE) abort();
        if (at != stepAt) abort();
        if (st > 2 || whole.isEof() != KR_RET_FALSE) break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    krfuzz::start();
    // Bytes that are not UTF-8 read as the characters of their own value, which UTF-8 encodes.
    static const bool utf8 = setlocale(LC_CTYPE, "C.UTF-8") != nullptr;
    krfuzz::ScratchFile scratch(data, size);
    compareEntryReads(scratch.name(), size);

    KR_StringW name(scratch.name());
    KR_Array<KR_XmlSetting> list;
    if (KR_xmlSetSettingInList("<stale>", list, L"x") != KR_RET_TRUE) abort();
    KR_RET_STATUS st = KR_xmlReadSettingsFile(name, kStart, kEnd, list);
    // A failed read leaves the list as it was; a file of another kind empties it.
    if (st > 2 && list.numElems() != 1) abort();
    if (st == KR_RET_FALSE && list.numElems() != 0) abort();
    if (st != KR_RET_TRUE) return 0;
    for (unsigned int i = 0; i < list.numElems(); ++i) {
        unsigned int index = ~0u;
        if (KR_xmlGetSettingInList(list[i].tag, list, index) != KR_RET_TRUE || index > i) abort();
    }
    // A text ends at its first zero byte, so only input without one reads back the same. The
    // save refuses (KR_RET_ERR_GEN) tags that it could not read back, such as "<a<b>".
    if (!utf8 || memchr(data, 0, size) != nullptr) return 0;
    KR_StringW copy(name + L".copy");
    st = KR_xmlSaveSettingsFile(copy, kStart, kEnd, list);
    if (st != KR_RET_TRUE && st != KR_RET_ERR_GEN) abort();
    if (st == KR_RET_TRUE) {
        KR_Array<KR_XmlSetting> again;
        if (KR_xmlReadSettingsFile(copy, kStart, kEnd, again) != KR_RET_TRUE) abort();
        if (!(again == list)) abort();
        KR_fileRemoveW(copy);
    }
    return 0;
}
