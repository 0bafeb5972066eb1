// kr_varobj.cpp — the public-object operations of a variant, until the object model exists.
// No public object can be made yet, so a variant holds an object pointer only as given: it is
// neither deleted nor copied, two pointers are equal when they are the same, and a set object
// cannot be written or read.
// TODO(krcore): route these through KR_PubObjVar once the object model lands.
#include "kr_varobj.h"

#include "kr_report.h"

#define KRI_UNIT "src/kr_var"

namespace krInternal {

void releasePubObj(KR_PubObjVar*) {}

KR_PubObjVar* copyPubObj(KR_PubObjVar* object) {
    return object;
}

int comparePubObj(KR_PubObjVar* left, KR_PubObjVar* right) {
    return left == right ? 0 : 1;
}

KR_RET_STATUS persistPubObj(KR_Version&, KR_FileAscii&, KR_PubObjVar*) {
    return KRI_FAIL(KR_RET_ERR_NSUP);
}

KR_RET_STATUS restorePubObj(KR_Version&, KR_FileAscii&, const char*, KR_PubObjVar*& object) {
    object = nullptr;
    return KRI_FAIL(KR_RET_ERR_NSUP);
}

}  // namespace krInternal
