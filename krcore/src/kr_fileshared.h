// kr_fileshared.h — what the source files of the file unit share: their report forms and the
// hand-over of collected text to a string object. Everything here reports as "src/kr_file",
// the unit of every file class and file-system function. Internal to the library.
#ifndef KRCORE_KR_FILESHARED_H
#define KRCORE_KR_FILESHARED_H

#include <stddef.h>
#include <wchar.h>

#include "kr_report.h"
#include "kr_reporter.h"
#include "kr_str.h"
#include "kr_textbuffer.h"

#pragma push_macro("KRI_UNIT")
#undef KRI_UNIT
#define KRI_UNIT "src/kr_file"

namespace krInternal {

inline KR_RET_STATUS failPath(KR_RET_STATUS status, int line, const char* text, const char* path) {
    KR_reportErrorMsg(KRI_UNIT, line, text, "%s\n", path != nullptr ? path : "");
    return krInternal::failAt(status, KRI_UNIT, line);
}

inline KR_RET_STATUS failPath(KR_RET_STATUS status,
                              int line,
                              const char* text,
                              const wchar_t* path) {
    // The texts are ASCII, so widening them byte by byte is exact.
    wchar_t wide[128];
    size_t i = 0;
    for (; text[i] != '\0' && i + 1 < sizeof wide / sizeof wide[0]; ++i) {
        wide[i] = static_cast<wchar_t>(static_cast<unsigned char>(text[i]));
    }
    wide[i] = L'\0';
    KR_reportErrorMsgW(KRI_UNIT, line, wide, L"%ls\n", path != nullptr ? path : L"");
    return krInternal::failAt(status, KRI_UNIT, line);
}

// A file opened from a wide name whose narrow form did not convert reports the wide name.
inline KR_RET_STATUS failNamed(
        KR_RET_STATUS status, int line, const char* text, const char* name, const wchar_t* nameW) {
    if (name == nullptr && nameW != nullptr) return failPath(status, line, text, nameW);
    return failPath(status, line, text, name);
}

// Hands a finished buffer to the string (an empty buffer leaves a null string). assignPtr does
// not look at the initialised flag, so a string that is not initialised (the KR_NULL_PTR block
// behind a failed accessor) is refused here and never receives text.
inline KR_RET_STATUS takeText(KR_String& out, krInternal::TextBuffer<char>& text) {
    if (!out.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_POBJ);
    return out.assignPtr(text.release());
}

inline KR_RET_STATUS takeText(KR_StringW& out, krInternal::TextBuffer<wchar_t>& text) {
    if (!out.objIsEnabled()) return KRI_FAIL(KR_RET_ERR_POBJ);
    return out.assignPtr(text.release());
}

}  // namespace krInternal

#pragma pop_macro("KRI_UNIT")

// Reports text with the file's name as the message, then the status (file operations).
#define KRI_FAIL_NAMED(st, text) \
    krInternal::failNamed((st), __LINE__, (text), getFileName(), getFileNameW())
// The same for a path of either width (file-system functions).
#define KRI_FAIL_PATH(st, text, path) krInternal::failPath((st), __LINE__, (text), (path))
// Reports text with the narrow name (or nothing) as the message (damaged binary data).
#define KRI_FAIL_DATA(st, text) \
    KRI_FAIL_MSG((st), (text), "%s\n", getFileName() != nullptr ? getFileName() : "")

#endif  // KRCORE_KR_FILESHARED_H
