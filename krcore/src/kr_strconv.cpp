// kr_strconv.cpp — new heap texts, their width conversion through the locale, and the command
// processor, for raw texts of either width.
#include <stdlib.h>

#include "kr_alloc.h"
#include "kr_locale.h"
#include "kr_platform.h"
#include "kr_report.h"
#include "kr_strbase.h"
#include "kr_strcore.h"

#define KRI_UNIT "src/kr_strbase"

namespace {

using krInternal::CharOps;

// --- heap texts ---

template <class C>
C* duplicate(const C* text) {
    if (text == nullptr) return nullptr;
    C* copy = CharOps<C>::duplicate(text);
    if (copy == nullptr) KRI_FAIL(KR_RET_ERR_MEM);
    return copy;
}

// text in To's width: measured first, then converted into a block of the exact size.
template <class To, class From>
To* convertWidth(const From* text, KR_RET_STATUS& status) {
    status = KR_RET_TRUE;
    if (text == nullptr) return nullptr;
    size_t count = krInternal::localeLength<To>(text);
    if (count == krInternal::kNoLocaleForm || (count == 0 && *text != 0)) {
        status = KR_RET_ERR_GEN;
        return nullptr;
    }
    To* result = krInternal::localeCopy<To>(text, count);
    if (result == nullptr) status = KR_RET_ERR_MEM;
    return result;
}

// A conversion whose failure is reported.
template <class To, class From>
To* reportedConversion(const From* text) {
    KR_RET_STATUS status;
    To* result = convertWidth<To>(text, status);
    if (KRI_FAILED(status)) KRI_FAIL(status);
    return result;
}

}  // namespace

namespace krInternal {

wchar_t* toWide(const char* text, KR_RET_STATUS& status) {
    return convertWidth<wchar_t>(text, status);
}

char* toNarrow(const wchar_t* text, KR_RET_STATUS& status) {
    return convertWidth<char>(text, status);
}

}  // namespace krInternal

// --- New heap texts and width conversion ---

char* KR_strdup(const char* text) {
    KR_setUserError(0);
    return duplicate(text);
}

wchar_t* KR_strdupW(const wchar_t* text) {
    KR_setUserError(0);
    return duplicate(text);
}

wchar_t* KR_strToWStr(const char* text) {
    KR_setUserError(0);
    return reportedConversion<wchar_t>(text);
}

char* KR_wStrToStr(const wchar_t* text) {
    KR_setUserError(0);
    return reportedConversion<char>(text);
}

// --- Processes ---

int KR_system(const char* command) {
    KR_setUserError(0);
    return system(command);
}

int KR_systemW(const wchar_t* command) {
    KR_setUserError(0);
    if (krPlatform::systemTakesWide()) return krPlatform::systemWide(command);
    if (command == nullptr) return system(nullptr);
    KR_RET_STATUS status;
    char* narrow = krInternal::toNarrow(command, status);
    if (narrow == nullptr) {
        KRI_FAIL(status);
        return -1;
    }
    int result = system(narrow);
    krInternal::freeBlock(narrow);
    return result;
}
