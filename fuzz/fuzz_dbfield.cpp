// fuzz_dbfield.cpp — database field types from any declared type name, in both widths.
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    krfuzz::start();
    const std::string text = krfuzz::text(data, size);
    std::wstring wide;
    for (unsigned char c : text)
        wide += static_cast<wchar_t>(c);
    KR_DB_FIELD_TYPE type = KR_DB_FIELD_COUNT, typeW = KR_DB_FIELD_COUNT;
    const KR_RET_STATUS st = KR_dbFieldTypeFromName(text.c_str(), type);
    if (st > 1 || KR_dbFieldTypeFromNameW(wide.c_str(), typeW) != st || type != typeW) abort();
    // A known name gives a type whose descriptor exists; an unknown one gives UNKNOWN.
    const KR_DbFieldDesc* desc = nullptr;
    if (KR_dbFieldTypeDesc(type, desc) != KR_RET_TRUE || desc->type != type) abort();
    if (st == KR_RET_FALSE && type != KR_DB_FIELD_UNKNOWN) abort();
    if (KR_dbFieldTypeFromNameW(krfuzz::wideText(data, size).c_str(), typeW) > 1) abort();
    return 0;
}
