// kr_public.cpp — public classes, the object message and the class factory.
#include "kr_public.h"

#include "kr_alloc.h"
#include "kr_hash.h"
#include "kr_hash_impl.h"
#include "kr_pubarg.h"
#include "kr_report.h"
#include "kr_strbase.h"

#define KRI_UNIT "src/kr_public"

namespace {

typedef KR_HashTable<KR_Var, KR_Var> Registry;

// The class registry: GUID text -> interface function. Null when there is none.
Registry* registry = nullptr;

const unsigned int kRegistryBuckets = 1024;

// The class check shared by copyObj, compObj and sameClassGUID: the same object, or the same
// class GUID text.
bool sameClass(KR_PublicClass* self, KR_PublicClass* other) {
    return other == self || KR_strcmp(self->classGUID(), other->classGUID()) == 0;
}

// The interface of obj's class, looked up by its class GUID. Reports what it refuses.
KR_RET_STATUS interfaceOf(KR_PublicClass* obj, KR_PubInterface& iface) {
    KR_Var found;
    if (registry == nullptr) {
        // Without a registry nothing is registered: the missing function below says so.
        KRI_FAIL(KR_RET_ERR_POBJ);
    } else {
        KR_Var key(obj->classGUID());
        if (obj->classGUID() != nullptr && key.str() == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
        if (KRI_FAILED(registry->getEntryData(key, found))) return KRI_FAIL(KR_RET_ERR_ARG);
    }
    KR_PubInterfaceFunc func = reinterpret_cast<KR_PubInterfaceFunc>(found.ptr());
    if (found.varType() != KR_VAR_PTR || func == nullptr) return KRI_FAIL(KR_RET_ERR_CALL);
    KR_RET_STATUS status = func(&iface);
    if (KRI_FAILED(status)) return status;
    return KR_RET_TRUE;
}

}  // namespace

// --- KR_PublicClass ---

KR_PublicClass::~KR_PublicClass() {}

KR_PublicClass::KR_PublicClass(const KR_PublicClass& other) : KR_KorvaneClass() {
    KR_setUserError(0);
    if (&other != this) KRI_FAIL(KR_RET_ERR_NSUP);
}

KR_RET_STATUS KR_PublicClass::publicMesg(KR_PublicObjMesg&) {
    KR_setUserError(0);
    return KR_RET_FALSE;
}

KR_RET_STATUS KR_PublicClass::copyObj(KR_PublicClass* src) {
    KR_setUserError(0);
    if (src == nullptr || !sameClass(this, src)) return KRI_FAIL(KR_RET_ERR_ARG);
    return KR_RET_TRUE;
}

unsigned char KR_PublicClass::compObj(KR_PublicClass* other) {
    KR_setUserError(0);
    if (other == nullptr || !sameClass(this, other)) {
        KRI_FAIL(KR_RET_ERR_ARG);
        return 0;
    }
    return 1;
}

KR_RET_STATUS KR_PublicClass::getCompInterface(char* interfaceId, void** out) {
    KR_setUserError(0);
    if (out == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    *out = nullptr;
    if (interfaceId == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    if (KR_strsEqual(interfaceId, KR_PUBLIC_CLASS_INTERFACE_ID, 0)) {
        *out = this;
        return KR_RET_TRUE;
    }
    return KR_RET_FALSE;
}

KR_RET_STATUS KR_PublicClass::copyData(KR_PublicClass*) {
    KR_setUserError(0);
    return KR_RET_FALSE;
}

unsigned char KR_PublicClass::sameClassGUID(KR_PublicClass& other) {
    KR_setUserError(0);
    return sameClass(this, &other) ? 1 : 0;
}

// --- KR_PubObjVar ---

KR_PubObjVar::~KR_PubObjVar() {}

KR_PubObjVar::KR_PubObjVar(const KR_PubObjVar& other) : KR_PublicClass(), KR_Persistable() {
    KR_setUserError(0);
    if (&other != this) KRI_FAIL(KR_RET_ERR_NSUP);
}

// The same class check as the base's: concrete classes override these to copy and compare their
// data after it.
KR_RET_STATUS KR_PubObjVar::copyObj(KR_PublicClass* src) {
    return KR_PublicClass::copyObj(src);
}

unsigned char KR_PubObjVar::compObj(KR_PublicClass* other) {
    return KR_PublicClass::compObj(other);
}

KR_RET_STATUS KR_PubObjVar::getCompInterface(char* interfaceId, void** out) {
    KR_setUserError(0);
    if (out == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    *out = nullptr;
    if (interfaceId == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    return KR_PublicClass::getCompInterface(interfaceId, out);
}

// --- KR_PublicObjMesg ---

KR_PublicObjMesg::KR_PublicObjMesg()
    : name(), inVals(0, KR_VAR_WILD, 1), outVals(0, KR_VAR_WILD, 1) {}

KR_PublicObjMesg::KR_PublicObjMesg(const char* text)
    : name(text), inVals(0, KR_VAR_WILD, 1), outVals(0, KR_VAR_WILD, 1) {}

KR_PublicObjMesg::KR_PublicObjMesg(const KR_PublicObjMesg& other)
    : KR_KorvaneClass(), name(other.name), inVals(other.inVals), outVals(other.outVals) {}

KR_PublicObjMesg::~KR_PublicObjMesg() {}

KR_PublicObjMesg& KR_PublicObjMesg::operator=(const KR_PublicObjMesg& other) {
    KR_setUserError(0);
    if (&other == this) return *this;
    name = other.name;
    inVals = other.inVals;
    outVals = other.outVals;
    return *this;
}

unsigned char KR_PublicObjMesg::operator==(const KR_PublicObjMesg& other) const {
    KR_setUserError(0);
    if (&other == this) return 1;
    KR_PublicObjMesg& self = const_cast<KR_PublicObjMesg&>(*this);
    KR_PublicObjMesg& that = const_cast<KR_PublicObjMesg&>(other);
    return self.name == that.name && self.inVals == that.inVals && self.outVals == that.outVals;
}

// --- the class factory ---

KR_RET_STATUS KR_classFactoryInit() {
    KR_setUserError(0);
    if (registry != nullptr) return KR_RET_FALSE;
    Registry* made =
            krInternal::newObject<Registry>(kRegistryBuckets, KR_defHashFuncVarKey, nullptr);
    if (made == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    if (!made->objIsEnabled()) {  // its buckets did not arrive: reported by the table
        delete made;
        return KR_RET_ERR_MEM;
    }
    registry = made;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_classFactoryRegister(KR_Var& guid, void* interfaceFunc) {
    KR_setUserError(0);
    if (registry == nullptr) {
        KR_RET_STATUS status = KR_classFactoryInit();
        if (KRI_FAILED(status)) return status;
    }
    if (!registry->objIsEnabled()) return KRI_FAIL(KR_RET_ERR_POBJ);
    KR_RET_STATUS status = registry->hasEntry(guid);
    if (status != KR_RET_FALSE) return KRI_FAILED(status) ? status : KR_RET_FALSE;
    KR_Var func(interfaceFunc, 1);
    return registry->addEntry(guid, func);
}

KR_RET_STATUS KR_classFactoryUnregister(KR_Var& guid) {
    KR_setUserError(0);
    if (registry == nullptr) return KRI_FAIL(KR_RET_ERR_OBJ);
    return registry->deleteEntry(guid);
}

KR_RET_STATUS KR_classFactoryUnregisterAll() {
    KR_setUserError(0);
    if (registry == nullptr) return KRI_FAIL(KR_RET_ERR_OBJ);
    delete registry;
    registry = nullptr;
    KR_RET_STATUS status = KR_classFactoryInit();
    return KRI_FAILED(status) ? status : KR_RET_TRUE;
}

KR_RET_STATUS KR_classFactoryClose() {
    KR_setUserError(0);
    delete registry;
    registry = nullptr;
    return KR_RET_TRUE;
}

KR_PublicClass* KR_classFactoryCreateObj(const char* guid, KR_Array<KR_PubArg>& args) {
    KR_setUserError(0);
    if (guid == nullptr) {
        KRI_FAIL(KR_RET_ERR_ARG);
        return nullptr;
    }
    if (registry == nullptr) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return nullptr;
    }
    KR_Var key(guid);
    if (key.str() == nullptr) {
        KRI_FAIL(KR_RET_ERR_MEM);
        return nullptr;
    }
    KR_Var found;
    if (registry->getEntryData(key, found) != KR_RET_TRUE) {
        KRI_MSG("KR_classFactoryCreateObj()", "Not a public class GUID: <%s>", guid);
        return nullptr;
    }
    KR_PubInterfaceFunc func = reinterpret_cast<KR_PubInterfaceFunc>(found.ptr());
    if (found.varType() != KR_VAR_PTR || func == nullptr) return nullptr;
    KR_PubInterface iface;
    if (KRI_FAILED(func(&iface)) || iface.createObj == nullptr) return nullptr;
    return iface.createObj(args);
}

KR_PublicClass* KR_classFactoryCreateObj(const char* guid) {
    KR_Array<KR_PubArg> args;
    return KR_classFactoryCreateObj(guid, args);
}

KR_RET_STATUS KR_classFactoryObjExecute(KR_PublicClass* obj,
                                        uintptr_t a1,
                                        uintptr_t a2,
                                        uintptr_t a3,
                                        uintptr_t a4,
                                        uintptr_t a5,
                                        uintptr_t a6,
                                        uintptr_t a7) {
    KR_setUserError(0);
    if (obj == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    KR_PubInterface iface;
    KR_RET_STATUS status = interfaceOf(obj, iface);
    if (KRI_FAILED(status)) return status;
    if (iface.objExecute == nullptr) return KRI_FAIL(KR_RET_ERR_CALL);
    return iface.objExecute(obj, a1, a2, a3, a4, a5, a6, a7);
}

KR_RET_STATUS KR_classFactoryDelObj(KR_PublicClass* obj) {
    KR_setUserError(0);
    if (obj == nullptr) return KR_RET_FALSE;
    KR_PubInterface iface;
    KR_RET_STATUS status = interfaceOf(obj, iface);
    if (KRI_FAILED(status)) return status;
    if (iface.deleteObj == nullptr) return KRI_FAIL(KR_RET_ERR_CALL);
    return iface.deleteObj(obj);
}
