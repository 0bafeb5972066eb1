// kr_pubarg.cpp — service arguments: assignment by method, copies, comparison, and arrays of
// arguments built from argument maps.
#include "kr_pubarg.h"

#include <string.h>
#include <wchar.h>

#include <utility>

#include "kr_pubcore.h"
#include "kr_report.h"

#define KRI_UNIT "src/kr_pubarg"

namespace {

// Fills the empty array staged with copies of the count texts that text(i) gives.
template <class Text>
KR_RET_STATUS copyTexts(KR_Array<KR_StringW>& staged, unsigned int count, Text text) {
    if (count == 0) return KR_RET_TRUE;
    KR_RET_STATUS status = staged.reallocate(count);
    if (KRI_FAILED(status)) return status;
    for (unsigned int i = 0; i < count; ++i) {
        status = krInternal::copyTextInto(staged[i], text(i));
        if (KRI_FAILED(status)) return status;
    }
    return KR_RET_TRUE;
}

KR_RET_STATUS copyTextList(KR_Array<KR_StringW>& staged, const KR_Array<KR_StringW>& list) {
    KR_Array<KR_StringW>& source = const_cast<KR_Array<KR_StringW>&>(list);
    return copyTexts(staged, source.numElems(),
                     [&](unsigned int i) { return static_cast<const wchar_t*>(source[i]); });
}

// Fills the empty array staged with copies of values' elements, their types and locks included.
KR_RET_STATUS copyValues(KR_Array<KR_Var>& staged, const KR_VarArr& values) {
    KR_VarArr& source = const_cast<KR_VarArr&>(values);
    unsigned int count = source.numElems();
    if (count == 0) return KR_RET_TRUE;
    KR_RET_STATUS status = staged.reallocate(count);
    if (KRI_FAILED(status)) return status;
    for (unsigned int i = 0; i < count; ++i) {
        // The variant has reported a text that did not arrive.
        if (!KR_ElemCopy<KR_Var>::copy(staged[i], source.KR_Array<KR_Var>::operator[](i)))
            return KR_RET_ERR_MEM;
    }
    return KR_RET_TRUE;
}

bool sameTexts(const KR_Array<KR_StringW>& a, const KR_Array<KR_StringW>& b) {
    KR_Array<KR_StringW>& x = const_cast<KR_Array<KR_StringW>&>(a);
    KR_Array<KR_StringW>& y = const_cast<KR_Array<KR_StringW>&>(b);
    if (x.numElems() != y.numElems()) return false;
    for (unsigned int i = 0; i < x.numElems(); ++i) {
        if (!(x[i] == y[i])) return false;
    }
    return true;
}

// The digit that replaces a text that is exactly "TRUE" or "FALSE"; null for any other text.
const char* booleanDigit(const char* text) {
    if (strcmp(text, "TRUE") == 0) return "1";
    return strcmp(text, "FALSE") == 0 ? "0" : nullptr;
}

const wchar_t* booleanDigit(const wchar_t* text) {
    if (wcscmp(text, L"TRUE") == 0) return L"1";
    return wcscmp(text, L"FALSE") == 0 ? L"0" : nullptr;
}

// Replaces a text value of type type that reads "TRUE" or "FALSE" by its digit.
template <class C>
KR_RET_STATUS substituteText(KR_Var& value, KR_VAR_TYPE type, const C* text) {
    const C* digit = text != nullptr ? booleanDigit(text) : nullptr;
    if (digit == nullptr) return KR_RET_TRUE;
    return value.set(type, const_cast<C*>(digit));
}

// Inserts count default arguments into the empty array args. A default argument whose value
// did not arrive (reported where it failed) empties args again: KR_RET_ERR_MEM.
KR_RET_STATUS insertDefaults(KR_Array<KR_PubArg>& args, unsigned int count) {
    if (count == 0) return KR_RET_TRUE;
    KR_RET_STATUS status = args.insElems(KR_INS_BEFORE, 0, count);
    if (KRI_FAILED(status)) return status;
    for (unsigned int i = 0; i < count; ++i) {
        if (!args[i].objIsEnabled()) {
            args.delAll();
            return KR_RET_ERR_MEM;
        }
    }
    return KR_RET_TRUE;
}

KR_RET_STATUS buildArg(KR_PubArg& arg, const KR_PubArgMap& entry) {
    KR_VAR_TYPE type = KR_varAlias2Type(entry.type);
    KR_RET_STATUS status = arg.set(type, nullptr);
    if (KRI_FAILED(status)) return status;
    if (type != KR_VAR_WILD) arg.setLockVarType(1);
    if (entry.name != nullptr) {
        status = arg.setName(entry.name);
        if (KRI_FAILED(status)) return status;
    }
    if (entry.desc != nullptr) {
        status = arg.setDesc(entry.desc);
        if (KRI_FAILED(status)) return status;
    }
    arg.setAssignMethod(entry.castAllowed ? KR_PUBARG_ASSIGN_KEEP_TYPE
                                          : KR_PUBARG_ASSIGN_TAKE_TYPE);
    if (entry.valueList != nullptr) {
        unsigned int count = 0;
        while (entry.valueList[count] != nullptr)
            ++count;
        KR_Array<KR_StringW> list;
        status = copyTexts(list, count, [&](unsigned int i) { return entry.valueList[i]; });
        if (KRI_FAILED(status)) return status;
        // The copies are the argument's own already: they are handed over, not copied again.
        arg.getValueList() = static_cast<KR_Array<KR_StringW>&&>(list);
    }
    arg.setValueListFixed(entry.valueListFixed);
    arg.setBrowser(entry.browser);
    status = arg.setBrowserFilterType(entry.browserFilterType);
    if (KRI_FAILED(status)) return status;
    arg.setFixedType(entry.fixedType);
    arg.setReadOnly(entry.readOnly);
    if (entry.defaultValue != nullptr) {
        status = KR_str2ValW(arg[0], entry.defaultValue);
        if (KRI_FAILED(status)) return status;
    }
    arg.setArgOption(entry.option);
    return KR_RET_TRUE;
}

KR_RET_STATUS constructArgs(const KR_PubService* services,
                            const char* version,
                            int function,
                            bool input,
                            KR_Array<KR_PubArg>& args) {
    KR_RET_STATUS status = args.delAll();
    if (KRI_FAILED(status)) return status;
    if (services == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    const KR_PubService* service = krInternal::matchService(services, version, function);
    if (service == nullptr) return KR_RET_ERR_ARG;
    const KR_PubArgMap* map = input ? service->inArgs : service->outArgs;
    if (map == nullptr) return KR_RET_TRUE;
    status = KR_buildArgsFromPubArgMap(args, map);
    if (KRI_FAILED(status)) return status;
    return KR_RET_TRUE;
}

}  // namespace

// --- KR_PubArg ---

KR_PubArg::KR_PubArg(EmptyTag) : KR_VarArr() {
    initDataMembers();
}

KR_PubArg::KR_PubArg() : KR_PubArg(kEmpty) {
    KR_setUserError(0);
    // A refused value block has been reported by the array.
    if (KRI_FAILED(reallocate(1))) initialised_ = 0;
}

KR_PubArg::KR_PubArg(const KR_PubArg& other) : KR_PubArg(kEmpty) {
    KR_setUserError(0);
    if (KRI_FAILED(copy(other))) initialised_ = 0;
}

KR_PubArg::KR_PubArg(KR_PubArg&& other) noexcept : KR_PubArg(kEmpty) {
    exchange(other);
}

KR_PubArg::~KR_PubArg() {
    cleanupDataMembers();
}

KR_PubArg& KR_PubArg::operator=(const KR_PubArg& src) {
    KR_setUserError(0);
    assign(src);
    return *this;
}

KR_PubArg& KR_PubArg::operator=(KR_PubArg&& other) noexcept {
    exchange(other);
    return *this;
}

unsigned char KR_PubArg::operator==(const KR_PubArg& other) const {
    KR_setUserError(0);
    if (!initialised_ || !other.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    if (&other == this) return 1;
    // The variant array's order only reads both arrays.
    KR_VarArr& mine = const_cast<KR_PubArg&>(*this);
    return mine == const_cast<KR_PubArg&>(other);
}

KR_RET_STATUS KR_PubArg::setName(const wchar_t* name) {
    KR_setUserError(0);
    KR_StringW staged;
    KR_RET_STATUS status = krInternal::copyTextInto(staged, name);
    if (KRI_FAILED(status)) return status;
    name_ = static_cast<KR_StringW&&>(staged);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_PubArg::setDesc(const wchar_t* desc) {
    KR_setUserError(0);
    KR_StringW staged;
    KR_RET_STATUS status = krInternal::copyTextInto(staged, desc);
    if (KRI_FAILED(status)) return status;
    desc_ = static_cast<KR_StringW&&>(staged);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_PubArg::setAssignMethod(KR_PUBARG_ASSIGN_METHOD method) {
    KR_setUserError(0);
    assignMethod_ = method;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_PubArg::setValueList(KR_Array<KR_StringW>& list) {
    KR_setUserError(0);
    if (&list == &valueList_) return KR_RET_TRUE;
    KR_Array<KR_StringW> staged;
    KR_RET_STATUS status = copyTextList(staged, list);
    if (KRI_FAILED(status)) return status;
    valueList_ = static_cast<KR_Array<KR_StringW>&&>(staged);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_PubArg::setValueListFixed(unsigned char fixed) {
    KR_setUserError(0);
    valueListFixed_ = fixed;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_PubArg::setBrowser(KR_PUBARG_BROWSER browser) {
    KR_setUserError(0);
    browser_ = browser;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_PubArg::setBrowserFilterType(const wchar_t* filterType) {
    KR_setUserError(0);
    KR_StringW staged;
    KR_RET_STATUS status = krInternal::copyTextInto(staged, filterType);
    if (KRI_FAILED(status)) return status;
    browserFilterType_ = static_cast<KR_StringW&&>(staged);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_PubArg::setFixedType(unsigned char fixed) {
    KR_setUserError(0);
    fixedType_ = fixed;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_PubArg::setReadOnly(unsigned char readOnly) {
    KR_setUserError(0);
    readOnly_ = readOnly;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_PubArg::setArgOption(int option) {
    KR_setUserError(0);
    option_ = option;
    return KR_RET_TRUE;
}

KR_VAR_TYPE KR_PubArg::varType() {
    KR_setUserError(0);
    if (!initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return static_cast<KR_VAR_TYPE>(0);
    }
    if (numElems() == 0) return static_cast<KR_VAR_TYPE>(0);
    KR_Var& first = KR_Array<KR_Var>::operator[](0);
    if (!first.objIsEnabled()) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return static_cast<KR_VAR_TYPE>(0);
    }
    return first.varType();
}

KR_RET_STATUS KR_PubArg::setLockVarType(unsigned char lockType) {
    KR_setUserError(0);
    for (unsigned int i = 0; i < numElems(); ++i)
        KR_Array<KR_Var>::operator[](i).setLockVarType(lockType);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_PubArg::set(KR_VAR_TYPE type, void* p) {
    KR_setUserError(0);
    KR_RET_STATUS result = KR_RET_TRUE;
    for (unsigned int i = 0; i < numElems(); ++i) {
        KR_RET_STATUS status = KR_Array<KR_Var>::operator[](i).set(type, p);
        if (status == KR_RET_ERR_MEM) result = status;
    }
    return result;
}

KR_RET_STATUS KR_PubArg::cast(KR_VAR_TYPE type) {
    KR_setUserError(0);
    KR_RET_STATUS result = KR_RET_TRUE;
    for (unsigned int i = 0; i < numElems(); ++i) {
        KR_RET_STATUS status = KR_Array<KR_Var>::operator[](i).cast(type);
        if (status == KR_RET_ERR_MEM) result = status;
    }
    return result;
}

unsigned char KR_PubArg::compare(const KR_PubArg& other) const {
    KR_setUserError(0);
    if (!initialised_ || !other.initialised_) {
        KRI_FAIL(KR_RET_ERR_POBJ);
        return 0;
    }
    if (&other == this) return 1;
    return *this == other && name_ == other.name_ && desc_ == other.desc_ &&
           assignMethod_ == other.assignMethod_ && sameTexts(valueList_, other.valueList_) &&
           valueListFixed_ == other.valueListFixed_ && browser_ == other.browser_ &&
           browserFilterType_ == other.browserFilterType_ && fixedType_ == other.fixedType_ &&
           readOnly_ == other.readOnly_ && option_ == other.option_;
}

KR_RET_STATUS KR_PubArg::copy(const KR_PubArg& src) {
    KR_setUserError(0);
    if (!initialised_ || !src.initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (&src == this) return KR_RET_TRUE;
    // Everything is copied into a staging argument first and taken over only when all arrived.
    KR_PubArg staged(kEmpty);
    KR_RET_STATUS status = copyValues(staged, src);
    if (!KRI_FAILED(status)) status = krInternal::copyTextInto(staged.name_, src.name_);
    if (!KRI_FAILED(status)) status = krInternal::copyTextInto(staged.desc_, src.desc_);
    if (!KRI_FAILED(status)) status = copyTextList(staged.valueList_, src.valueList_);
    if (!KRI_FAILED(status))
        status = krInternal::copyTextInto(staged.browserFilterType_, src.browserFilterType_);
    if (KRI_FAILED(status)) return status;
    staged.assignMethod_ = src.assignMethod_;
    staged.valueListFixed_ = src.valueListFixed_;
    staged.browser_ = src.browser_;
    staged.fixedType_ = src.fixedType_;
    staged.readOnly_ = src.readOnly_;
    staged.option_ = src.option_;
    exchange(staged);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_PubArg::initDataMembers() {
    assignMethod_ = KR_PUBARG_ASSIGN_KEEP_TYPE;
    valueListFixed_ = 1;
    browser_ = KR_PUBARG_BROWSER_NONE;
    fixedType_ = 0;
    readOnly_ = 0;
    option_ = 0;
    initialised_ = 1;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_PubArg::cleanupDataMembers() {
    if (!initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    initialised_ = 0;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_PubArg::assign(const KR_PubArg& src) {
    if (!initialised_ || !src.initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (&src == this) return KR_RET_TRUE;
    KR_PUBARG_ASSIGN_METHOD method = assignMethod_;
    if (method != KR_PUBARG_ASSIGN_PLAIN && method != KR_PUBARG_ASSIGN_KEEP_TYPE &&
        method != KR_PUBARG_ASSIGN_TAKE_TYPE)
        return KRI_FAIL(KR_RET_ERR_ARG);
    KR_VAR_TYPE mine = varType();
    KR_VAR_TYPE theirs = const_cast<KR_PubArg&>(src).varType();
    // The incoming values are copied first; every step works on the copy, and this argument
    // takes it over only when all of them worked.
    KR_PubArg staged(kEmpty);
    KR_RET_STATUS status = copyValues(staged, src);
    if (KRI_FAILED(status)) return status;
    if (method == KR_PUBARG_ASSIGN_KEEP_TYPE && theirs != mine && mine != KR_VAR_WILD) {
        status = substituteBooleanValue(staged, mine);
        if (status > KR_RET_TRUE) return status;
        status = staged.cast(mine);
        if (status > KR_RET_TRUE) return status;
    }
    if (method == KR_PUBARG_ASSIGN_TAKE_TYPE && theirs != KR_VAR_WILD) set(theirs, nullptr);
    adoptValues(staged);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_PubArg::substituteBooleanValue(KR_PubArg& src, KR_VAR_TYPE target) {
    KR_setUserError(0);
    if (!src.initialised_) return KRI_FAIL(KR_RET_ERR_POBJ);
    if (src.numElems() == 0) return KR_RET_FALSE;
    KR_VAR_TYPE first = src.KR_Array<KR_Var>::operator[](0).varType();
    if (first != KR_VAR_STRING && first != KR_VAR_STRINGW) return KR_RET_FALSE;
    // The character types take a text's first character, so they are left to the cast.
    if (target < KR_VAR_USHORT || target > KR_VAR_DOUBLE) return KR_RET_FALSE;
    for (unsigned int i = 0; i < src.numElems(); ++i) {
        KR_Var& value = src.KR_Array<KR_Var>::operator[](i);
        KR_RET_STATUS status = KR_RET_TRUE;
        if (value.varType() == KR_VAR_STRING) {
            status = substituteText(value, KR_VAR_STRING, value.str());
        } else if (value.varType() == KR_VAR_STRINGW) {
            status = substituteText(value, KR_VAR_STRINGW, value.wstr());
        }
        if (KRI_FAILED(status)) return status;
    }
    return KR_RET_TRUE;
}

void KR_PubArg::adoptValues(KR_Array<KR_Var>& staged) {
    KR_Array<KR_Var>::operator=(static_cast<KR_Array<KR_Var>&&>(staged));
}

void KR_PubArg::exchange(KR_PubArg& other) noexcept {
    if (&other == this) return;
    // The arrays exchange their blocks and the strings their texts: every array and string of an
    // argument is initialised (none of them allocates when it is made empty).
    KR_Array<KR_Var>::operator=(static_cast<KR_Array<KR_Var>&&>(other));
    std::swap(initialised_, other.initialised_);
    name_ = static_cast<KR_StringW&&>(other.name_);
    desc_ = static_cast<KR_StringW&&>(other.desc_);
    std::swap(assignMethod_, other.assignMethod_);
    valueList_ = static_cast<KR_Array<KR_StringW>&&>(other.valueList_);
    std::swap(valueListFixed_, other.valueListFixed_);
    std::swap(browser_, other.browser_);
    browserFilterType_ = static_cast<KR_StringW&&>(other.browserFilterType_);
    std::swap(fixedType_, other.fixedType_);
    std::swap(readOnly_, other.readOnly_);
    std::swap(option_, other.option_);
}

// --- Arrays of arguments ---

KR_RET_STATUS KR_buildArgsFromPubArgMap(KR_Array<KR_PubArg>& args, const KR_PubArgMap* map) {
    KR_setUserError(0);
    KR_RET_STATUS status = args.delAll();
    if (KRI_FAILED(status)) return status;
    if (map == nullptr) return KR_RET_FALSE;
    unsigned int count = 0;
    while (map[count].type != KR_VAR_ID_NONE)
        ++count;
    status = insertDefaults(args, count);
    if (KRI_FAILED(status)) return status;
    for (unsigned int i = 0; i < count; ++i) {
        status = buildArg(args[i], map[i]);
        if (KRI_FAILED(status)) {
            args.delAll();
            return status;
        }
    }
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_constructInArgsFromPubService(const KR_PubService* services,
                                               const char* version,
                                               int function,
                                               KR_Array<KR_PubArg>& args) {
    KR_setUserError(0);
    return constructArgs(services, version, function, true, args);
}

KR_RET_STATUS KR_constructOutArgsFromPubService(const KR_PubService* services,
                                                const char* version,
                                                int function,
                                                KR_Array<KR_PubArg>& args) {
    KR_setUserError(0);
    return constructArgs(services, version, function, false, args);
}

KR_RET_STATUS KR_copyPubArgArr(KR_Array<KR_PubArg>& dst, KR_Array<KR_PubArg>& src) {
    KR_setUserError(0);
    if (&dst == &src) return KR_RET_TRUE;
    KR_RET_STATUS status = dst.delAll();
    if (KRI_FAILED(status)) return status;
    status = insertDefaults(dst, src.numElems());
    if (KRI_FAILED(status)) return status;
    for (unsigned int i = 0; i < src.numElems(); ++i) {
        status = dst[i].copy(src[i]);
        if (KRI_FAILED(status)) {
            dst.delAll();
            return status;
        }
    }
    return KR_RET_TRUE;
}

unsigned char KR_comparePubArgArr(KR_Array<KR_PubArg>& a, KR_Array<KR_PubArg>& b) {
    KR_setUserError(0);
    if (a.numElems() != b.numElems()) return 0;
    for (unsigned int i = 0; i < a.numElems(); ++i) {
        if (!a[i].compare(b[i])) return 0;
    }
    return 1;
}
