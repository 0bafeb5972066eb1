// kr_varobj.cpp — what a variant asks of the public object it owns.
// The variant deletes its object, copies it by making a new object of the same class through the
// class factory, compares through the object's compObj and writes the class GUID before the
// object's own text, by which the reader makes the object again.
#include "kr_varobj.h"

#include "kr_file.h"
#include "kr_public.h"
#include "kr_report.h"

#define KRI_UNIT "src/kr_var"

namespace krInternal {

namespace {

// A new object of the class guid names, as a variant can hold it. Reported when the factory
// cannot make one or makes an object that a variant cannot hold (freed again).
KR_RET_STATUS makePubObj(const char* guid, KR_PubObjVar*& object) {
    object = nullptr;
    KR_PublicClass* made = KR_classFactoryCreateObj(guid);
    if (made == nullptr) return KRI_FAIL(KR_RET_ERR_OBJ);
    object = dynamic_cast<KR_PubObjVar*>(made);
    if (object == nullptr) {
        KR_classFactoryDelObj(made);
        return KRI_FAIL(KR_RET_ERR_ARG);
    }
    return KR_RET_TRUE;
}

}  // namespace

void releasePubObj(KR_PubObjVar* object) {
    delete object;
}

KR_RET_STATUS copyPubObj(KR_PubObjVar* object, KR_PubObjVar*& copy) {
    copy = nullptr;
    if (object == nullptr) return KR_RET_TRUE;
    KR_PubObjVar* made = nullptr;
    KR_RET_STATUS status = makePubObj(object->classGUID(), made);
    if (KRI_FAILED(status)) return status;
    status = made->copyObj(object);
    if (KRI_FAILED(status)) {
        delete made;
        return status;
    }
    copy = made;
    return KR_RET_TRUE;
}

int comparePubObj(KR_PubObjVar* left, KR_PubObjVar* right) {
    return left->compObj(right) ? 0 : 1;
}

KR_RET_STATUS persistPubObj(KR_Version& version, KR_FileAscii& file, KR_PubObjVar* object) {
    KR_RET_STATUS status = file.print("<guid>%s</guid>\n", object->classGUID());
    if (KRI_FAILED(status)) return status;
    return object->persist(version, file);
}

KR_RET_STATUS restorePubObj(KR_Version& version,
                            KR_FileAscii& file,
                            const char* guid,
                            KR_PubObjVar*& object) {
    KR_PubObjVar* made = nullptr;
    object = nullptr;
    KR_RET_STATUS status = makePubObj(guid, made);
    if (KRI_FAILED(status)) return status;
    status = made->restore(version, file);
    if (KRI_FAILED(status)) {
        delete made;
        return status;
    }
    object = made;
    return KR_RET_TRUE;
}

}  // namespace krInternal
