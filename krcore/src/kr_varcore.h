// kr_varcore.h — what the variant's source files share: type classes and text copies.
// Internal to the library.
#ifndef KRCORE_KR_VARCORE_H
#define KRCORE_KR_VARCORE_H

#include <string.h>

#include "kr_strcore.h"
#include "kr_var.h"

namespace krInternal {

inline bool validType(int type) {
    return type >= KR_VAR_WILD && type <= KR_VAR_PUBOBJ;
}

inline bool isText(int type) {
    return type == KR_VAR_STRING || type == KR_VAR_STRINGW;
}

inline bool isInteger(int type) {
    return type >= KR_VAR_UCHAR && type <= KR_VAR_LONG;
}

inline bool isSignedInteger(int type) {
    return type == KR_VAR_CHAR || type == KR_VAR_SHORT || type == KR_VAR_INT || type == KR_VAR_LONG;
}

// A new heap copy of the first length characters of text; null when memory ran out.
template <class C>
inline C* copyText(const C* text, size_t length) {
    C* copy = allocTextUncleared<C>(length + 1);
    if (copy == nullptr) return nullptr;
    memcpy(copy, text, length * sizeof(C));
    copy[length] = C(0);
    return copy;
}

}  // namespace krInternal

#endif  // KRCORE_KR_VARCORE_H
