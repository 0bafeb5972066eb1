// kr_public.h — public classes and the class factory.
// A plug-in module publishes objects through two things: the abstract base KR_PublicClass (every
// published object derives from it, names its class by a GUID text and answers interface queries)
// and the process-wide class factory, which maps class GUID texts to the module's interface
// function. Objects are created, run and destroyed through the factory, so that the module that
// made an object also frees it:
//   KR_classFactoryRegister(guid, (void*)&myInterface)       (the module, at load)
//   KR_PublicClass* obj = KR_classFactoryCreateObj("C2A1...", args);
//   KR_classFactoryObjExecute(obj);
//   KR_classFactoryDelObj(obj);
// Everything here reports under "src/kr_public". The registry is one object for one thread.
#ifndef KRCORE_KR_PUBLIC_H
#define KRCORE_KR_PUBLIC_H

#include <stdint.h>

#include "kr_array_impl.h"
#include "kr_base.h"
#include "kr_persist.h"
#include "kr_reporter.h"
#include "kr_str.h"
#include "kr_var.h"

class KR_PubArg;
class KR_PublicObjMesg;

// The interface ID of KR_PublicClass itself, answered by getCompInterface (compared ignoring
// case). Derived classes answer further IDs and defer to the base for this one.
#define KR_PUBLIC_CLASS_INTERFACE_ID "AF4A6A55-80F5-43b8-9734-09A552A23498"

// KR_PublicClass — abstract base of every published object. It holds no data. Its virtual
// operations, in this order after the destructor: publicMesg, copyObj, compObj, classGUID,
// className, getCompInterface, copyData. Copy construction is not supported (reported
// KR_RET_ERR_NSUP); assignment does nothing and any two objects compare equal: concrete classes
// copy and compare through copyObj/compObj.
class KR_API KR_PublicClass : public KR_KorvaneClass {
public:
    KR_PublicClass() {}

    ~KR_PublicClass() override;

    // A message to the object. The base handles none: KR_RET_FALSE.
    virtual KR_RET_STATUS publicMesg(KR_PublicObjMesg& mesg);
    // Checks only that src is of this class (the same object always is): null or another class
    // is reported KR_RET_ERR_ARG. The base copies nothing and answers KR_RET_TRUE.
    virtual KR_RET_STATUS copyObj(KR_PublicClass* src);
    // 1 when other is of this class; null or another class is reported KR_RET_ERR_ARG and 0.
    virtual unsigned char compObj(KR_PublicClass* other);
    // The class GUID text of the concrete class ("8-4-4-4-12" hexadecimal digits).
    virtual char* classGUID() = 0;
    // The class's readable name, for people and printouts; the GUID identifies the class.
    virtual char* className() = 0;
    // *out = this for KR_PUBLIC_CLASS_INTERFACE_ID (any case): KR_RET_TRUE; another ID: *out =
    // null, KR_RET_FALSE. A null out or interfaceId is reported KR_RET_ERR_ARG.
    virtual KR_RET_STATUS getCompInterface(char* interfaceId, void** out);
    // Copies the data only. The base has none: KR_RET_FALSE.
    virtual KR_RET_STATUS copyData(KR_PublicClass* src);

    // 1 when other is this object or its classGUID() equals this one's (case-sensitive).
    unsigned char sameClassGUID(KR_PublicClass& other);

    KR_PublicClass& operator=(const KR_PublicClass&) { return *this; }

    unsigned char operator==(const KR_PublicClass&) const { return 1; }

private:
    KR_PublicClass(const KR_PublicClass& other);
};

// KR_PubObjVar — a public object that a variant can hold (KR_Var::assignPubObj; the variant then
// owns it). The variant copies such an object by creating a new one of its class through the
// factory and calling copyObj, compares through compObj, and writes and reads its class GUID and
// its own text (persist/restore): concrete classes supply classGUID, className and every
// persistable operation, and override copyObj/compObj to copy and compare their data after the
// base's class check.
class KR_API KR_PubObjVar : public KR_PublicClass, public KR_Persistable {
public:
    KR_PubObjVar() {}

    ~KR_PubObjVar() override;

    KR_RET_STATUS copyObj(KR_PublicClass* src) override;
    unsigned char compObj(KR_PublicClass* other) override;
    KR_RET_STATUS getCompInterface(char* interfaceId, void** out) override;

    KR_PubObjVar& operator=(const KR_PubObjVar&) { return *this; }

    unsigned char operator==(const KR_PubObjVar&) const { return 1; }

private:
    KR_PubObjVar(const KR_PubObjVar& other);
};

// KR_PublicObjMesg — a message for publicMesg: its name and its input and output values (both
// arrays start empty, Wild and type-locked). Copies that do not arrive are reported by the
// string or array that failed (KR_RET_ERR_MEM).
class KR_API KR_PublicObjMesg : public KR_KorvaneClass {
public:
    KR_PublicObjMesg();
    explicit KR_PublicObjMesg(const char* name);
    KR_PublicObjMesg(const KR_PublicObjMesg& other);
    ~KR_PublicObjMesg() override;
    KR_PublicObjMesg& operator=(const KR_PublicObjMesg& other);
    // 1 for the same message or when name, inputs and outputs all compare equal.
    unsigned char operator==(const KR_PublicObjMesg& other) const;

    KR_String name;
    KR_VarArr inVals;
    KR_VarArr outVals;
};

// KR_PubInterface — what a module hands to the factory for one class; every pointer is null
// after construction. The seven argument words of objExecute are pointer-sized and passed
// through unchanged from KR_classFactoryObjExecute.
struct KR_PubInterface {
    typedef KR_PublicClass* (*CreateFunc)(KR_Array<KR_PubArg>& args);
    typedef KR_RET_STATUS (*DeleteFunc)(KR_PublicClass* obj);
    typedef KR_RET_STATUS (*ExecuteFunc)(KR_PublicClass* obj,
                                         uintptr_t a1,
                                         uintptr_t a2,
                                         uintptr_t a3,
                                         uintptr_t a4,
                                         uintptr_t a5,
                                         uintptr_t a6,
                                         uintptr_t a7);

    KR_PubInterface() : createObj(nullptr), deleteObj(nullptr), objExecute(nullptr) {}

    CreateFunc createObj;
    DeleteFunc deleteObj;
    ExecuteFunc objExecute;
};

// The function a module registers per class GUID: fills out; a result above KR_RET_TRUE is a
// failure.
typedef KR_RET_STATUS (*KR_PubInterfaceFunc)(KR_PubInterface* out);

// The class factory. Every function clears the user error first.

// Creates the registry (1024 buckets): KR_RET_TRUE; KR_RET_FALSE when it exists already;
// KR_RET_ERR_MEM (reported) when it cannot be made.
KR_API KR_RET_STATUS KR_classFactoryInit();
// Registers interfaceFunc (a KR_PubInterfaceFunc) under the GUID text held by guid, creating the
// registry when there is none. The first registration wins: a GUID already registered answers
// KR_RET_FALSE and keeps its function.
KR_API KR_RET_STATUS KR_classFactoryRegister(KR_Var& guid, void* interfaceFunc);
// KR_RET_TRUE, or KR_RET_FALSE when the GUID was not registered; KR_RET_ERR_OBJ (reported)
// without a registry.
KR_API KR_RET_STATUS KR_classFactoryUnregister(KR_Var& guid);
// Drops every registration and leaves an empty registry; KR_RET_ERR_OBJ (reported) without one.
KR_API KR_RET_STATUS KR_classFactoryUnregisterAll();
// Deletes the registry. Always KR_RET_TRUE.
KR_API KR_RET_STATUS KR_classFactoryClose();
// A new object of the class, made by its module from args; null when guid is null or unknown
// ("Not a public class GUID: <...>"), when there is no registry (KR_RET_ERR_POBJ) or when the
// module refuses. The caller owns the object and frees it with KR_classFactoryDelObj.
KR_API KR_PublicClass* KR_classFactoryCreateObj(const char* guid, KR_Array<KR_PubArg>& args);
// The same with no arguments.
KR_API KR_PublicClass* KR_classFactoryCreateObj(const char* guid);
// Runs obj through its class's module. A null obj is KR_RET_ERR_ARG; a class that is not
// registered (or no registry at all: KR_RET_ERR_POBJ is reported first) is KR_RET_ERR_CALL; a
// failure of the interface function or of the run is returned as it is.
KR_API KR_RET_STATUS KR_classFactoryObjExecute(KR_PublicClass* obj,
                                               uintptr_t a1 = 0,
                                               uintptr_t a2 = 0,
                                               uintptr_t a3 = 0,
                                               uintptr_t a4 = 0,
                                               uintptr_t a5 = 0,
                                               uintptr_t a6 = 0,
                                               uintptr_t a7 = 0);
// Frees obj through its class's module: as KR_classFactoryObjExecute, except that a null obj is
// KR_RET_FALSE without a report.
KR_API KR_RET_STATUS KR_classFactoryDelObj(KR_PublicClass* obj);

#endif  // KRCORE_KR_PUBLIC_H
