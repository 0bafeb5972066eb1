// kr_pubcore.h — what the description and argument units share; internal to the library.
#ifndef KRCORE_KR_PUBCORE_H
#define KRCORE_KR_PUBCORE_H

#include "kr_pubdesc.h"
#include "kr_str.h"
#include "kr_strbase.h"

namespace krInternal {

// Gives slot a copy of text (a null text empties it). The string answers a failed copy with a
// null text, which reads like a copy of a null one: this tells them apart and answers
// KR_RET_ERR_MEM (reported by the string) when a text that is not empty did not arrive.
inline KR_RET_STATUS copyTextInto(KR_StringW& slot, const wchar_t* text) {
    slot = text;
    const wchar_t* copied = slot;
    bool lost = copied == nullptr && text != nullptr && text[0] != L'\0';
    return lost ? KR_RET_ERR_MEM : KR_RET_TRUE;
}

// The first service of the array whose version text equals version exactly and whose function
// is function; null when there is none. services must not be null. Reports nothing.
inline const KR_PubService* matchService(const KR_PubService* services,
                                         const char* version,
                                         int function) {
    for (const KR_PubService* s = services; s->version != nullptr; ++s) {
        if (KR_strcmp(s->version, version) == 0 && s->function == function) return s;
    }
    return nullptr;
}

}  // namespace krInternal

#endif  // KRCORE_KR_PUBCORE_H
