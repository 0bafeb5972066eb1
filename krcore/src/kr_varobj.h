// kr_varobj.h — what a variant asks of the public object it owns.
// A variant of type KR_VAR_PUBOBJ releases, copies, compares and persists its object through
// these functions, so the variant unit needs no more of the object model than its name.
// Internal to the library.
#ifndef KRCORE_KR_VAROBJ_H
#define KRCORE_KR_VAROBJ_H

#include "kr_file.h"
#include "kr_reporter.h"
#include "kr_version.h"

class KR_PubObjVar;

namespace krInternal {

// Deletes object (null does nothing).
void releasePubObj(KR_PubObjVar* object);
// copy = a new object of object's class, made through the class factory and given object's
// data with copyObj; the caller owns it. A failure is reported and leaves copy null.
KR_RET_STATUS copyPubObj(KR_PubObjVar* object, KR_PubObjVar*& copy);
// 0 when the two set objects are equal, otherwise 1.
int comparePubObj(KR_PubObjVar* left, KR_PubObjVar* right);
// The lines of a set object inside its "<value>": "<guid>...</guid>" and the object's own text.
KR_RET_STATUS persistPubObj(KR_Version& version, KR_FileAscii& file, KR_PubObjVar* object);
// Makes the object of class guid and restores its text; object is set only on success.
KR_RET_STATUS restorePubObj(KR_Version& version,
                            KR_FileAscii& file,
                            const char* guid,
                            KR_PubObjVar*& object);

}  // namespace krInternal

#endif  // KRCORE_KR_VAROBJ_H
