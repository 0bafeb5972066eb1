// kr_pubarg.h — the arguments passed to and returned from a published service.
// A KR_PubArg is a variant array (normally one value) with the properties a host shows for it
// (name, description, allowed values, browser kind, read-only and fixed-type flags, an option
// word) and a rule for how values are assigned into it. Hosts build the arguments of a service
// from the module's argument map (kr_pubdesc.h) and hand them to the class factory as a
// KR_Array<KR_PubArg>. Failures are reported under "src/kr_pubarg".
//
//   KR_Array<KR_PubArg> in;
//   KR_constructInArgsFromPubService(kServices, "1.0.0", 0, in)  ->  in[0] holds the int 3 of
//   the map's default text L"3", named "count", locked to int and casting what it is given.
#ifndef KRCORE_KR_PUBARG_H
#define KRCORE_KR_PUBARG_H

#include <wchar.h>

#include "kr_array_impl.h"
#include "kr_container.h"
#include "kr_pubdesc.h"
#include "kr_reporter.h"
#include "kr_str.h"
#include "kr_var.h"

class KR_PubArg;

template <>
struct KR_ElemCopy<KR_PubArg>;

// How another argument's values are assigned into an argument (operator=). Any other number
// makes the assignment fail with KR_RET_ERR_ARG.
enum KR_PUBARG_ASSIGN_METHOD : int {
    KR_PUBARG_ASSIGN_PLAIN = 0,      // take the incoming value array as it is
    KR_PUBARG_ASSIGN_KEEP_TYPE = 1,  // cast incoming values to this argument's type
    KR_PUBARG_ASSIGN_TAKE_TYPE = 2   // retype to the incoming type, then take the values
};

// KR_PubArg — one service argument: its values are its variant elements, its texts are its own
// copies (nothing is borrowed from the map it was built from). A new argument holds one Wild
// value with its type lock off, assignment method KR_PUBARG_ASSIGN_KEEP_TYPE, a fixed value list
// (empty), browser KR_PUBARG_BROWSER_NONE and every flag and the option 0.
//
// Assignment is not copying: operator= changes only the values, by the assignment method, and
// keeps name, description and the other properties; copy() and the copy constructor take
// everything. operator== compares the values only, compare() the properties as well. Moving
// (what the containers do when they make room) exchanges everything and never allocates, so
// assigning a temporary replaces the properties as well: arg = KR_PubArg(other) is a copy,
// arg = other an assignment of values.
//
// Every operation that copies texts or values makes all its copies before it changes anything:
// a copy that does not arrive is answered with KR_RET_ERR_MEM (reported where it failed) and
// leaves the argument as it was. A construction whose value block or texts did not arrive leaves
// an argument that is not enabled; assignment, copy, comparison and varType then answer
// KR_RET_ERR_POBJ, and destroying it reports so once more.
class KR_API KR_PubArg : public KR_VarArr {
public:
    KR_PubArg();
    KR_PubArg(const KR_PubArg& other);
    KR_PubArg(KR_PubArg&& other) noexcept;
    ~KR_PubArg() override;
    // Assigns src's values by this argument's assignment method (the status is lost here; the
    // last status code holds a failure). Plain: src's value array as it is. Keep type: the same
    // when the types agree or this argument is Wild; otherwise a copy of src's values whose
    // "TRUE"/"FALSE" texts become "1"/"0" when this argument is numeric (short to double) is cast
    // to this argument's type, and taken only when that worked. Take type: src's values with
    // their type.
    KR_PubArg& operator=(const KR_PubArg& src);
    // Exchanges values and properties with other.
    KR_PubArg& operator=(KR_PubArg&& other) noexcept;
    // The values only (variant-array order: Wild values never compare equal).
    unsigned char operator==(const KR_PubArg& other) const;

    unsigned char objIsEnabled() override { return initialised_; }

    // The text getters give the argument's own buffer (null for an empty text). The text setters
    // copy (a null text empties) and answer KR_RET_TRUE, or KR_RET_ERR_MEM with the old text kept.
    const wchar_t* getName() const { return name_; }

    KR_RET_STATUS setName(const wchar_t* name);

    const wchar_t* getDesc() const { return desc_; }

    KR_RET_STATUS setDesc(const wchar_t* desc);

    KR_PUBARG_ASSIGN_METHOD assignMethod() const { return assignMethod_; }

    KR_RET_STATUS setAssignMethod(KR_PUBARG_ASSIGN_METHOD method);

    KR_Array<KR_StringW>& getValueList() { return valueList_; }

    // Copies list; KR_RET_ERR_MEM keeps the old list.
    KR_RET_STATUS setValueList(KR_Array<KR_StringW>& list);

    unsigned char valueListIsFixed() const { return valueListFixed_; }

    KR_RET_STATUS setValueListFixed(unsigned char fixed);

    KR_PUBARG_BROWSER getBrowser() const { return browser_; }

    KR_RET_STATUS setBrowser(KR_PUBARG_BROWSER browser);

    const wchar_t* getBrowserFilterType() const { return browserFilterType_; }

    KR_RET_STATUS setBrowserFilterType(const wchar_t* filterType);

    unsigned char isFixedType() const { return fixedType_; }

    KR_RET_STATUS setFixedType(unsigned char fixed);

    unsigned char isReadOnly() const { return readOnly_; }

    KR_RET_STATUS setReadOnly(unsigned char readOnly);

    int getArgOption() const { return option_; }

    KR_RET_STATUS setArgOption(int option);

    // The type of value 0; 0 for an argument without values.
    KR_VAR_TYPE varType();
    // Element by element; the elements' own refusals are not passed on (a type outside 1..15 is
    // reported by each value and answered KR_RET_TRUE here), except a text that did not arrive:
    // KR_RET_ERR_MEM, that value keeping its old one.
    KR_RET_STATUS setLockVarType(unsigned char lockType);
    KR_RET_STATUS set(KR_VAR_TYPE type, void* p);
    KR_RET_STATUS cast(KR_VAR_TYPE type);

    // Equal values (operator==) and equal properties: name, description, assignment method,
    // value list, value list fixed, browser, browser filter type, fixed type, read only, option.
    unsigned char compare(const KR_PubArg& other) const;
    // Takes src's values with their types and all of src's properties. KR_RET_TRUE.
    KR_RET_STATUS copy(const KR_PubArg& src);

private:
    enum EmptyTag { kEmpty };

    // Enabled, without values, with the default properties; allocates nothing.
    explicit KR_PubArg(EmptyTag);

    KR_RET_STATUS initDataMembers();
    KR_RET_STATUS cleanupDataMembers();
    // The assignment behind operator=, with its status.
    KR_RET_STATUS assign(const KR_PubArg& src);
    // In src's text values, "TRUE" becomes "1" and "FALSE" "0" when value 0 is a text and target
    // is numeric from KR_VAR_USHORT to KR_VAR_DOUBLE: KR_RET_TRUE. KR_RET_FALSE, nothing changed,
    // when that does not apply.
    static KR_RET_STATUS substituteBooleanValue(KR_PubArg& src, KR_VAR_TYPE target);
    // Makes the values of staged this argument's (no copy, cannot fail).
    void adoptValues(KR_Array<KR_Var>& staged);
    // Exchanges everything with other (no copy, cannot fail).
    void exchange(KR_PubArg& other) noexcept;

    unsigned char initialised_;
    KR_StringW name_;
    KR_StringW desc_;
    KR_PUBARG_ASSIGN_METHOD assignMethod_;
    KR_Array<KR_StringW> valueList_;
    unsigned char valueListFixed_;
    KR_PUBARG_BROWSER browser_;
    KR_StringW browserFilterType_;
    unsigned char fixedType_;
    unsigned char readOnly_;
    int option_;
};

// A copy in a container arrives when the values and every text arrived (copy()).
template <>
struct KR_ElemCopy<KR_PubArg> {
    static constexpr bool kMayFail = true;

    static bool copy(KR_PubArg& dst, const KR_PubArg& src) { return dst.copy(src) <= 2; }
};

extern template class KR_API KR_Container<KR_PubArg>;
extern template class KR_API KR_OrdContainer<KR_PubArg>;
extern template class KR_API KR_I_Iterator<KR_PubArg>;
extern template class KR_API KR_IndContainer<KR_PubArg>;
extern template class KR_API KR_Array<KR_PubArg>;

// Replaces args by one argument per entry of map (up to the entry of type KR_VAR_ID_NONE): the
// entry's type (an alias gives its variant type), locked unless Wild; name and description;
// KR_PUBARG_ASSIGN_KEEP_TYPE when the entry allows casting, else KR_PUBARG_ASSIGN_TAKE_TYPE; the
// value list and flags; the default text parsed into value 0 (KR_str2ValW); the option.
// KR_RET_TRUE; KR_RET_FALSE with args empty for a null map. A failure is passed back with args
// empty.
KR_API KR_RET_STATUS KR_buildArgsFromPubArgMap(KR_Array<KR_PubArg>& args, const KR_PubArgMap* map);
// Builds args from the input (output) argument map of the first service of the array that
// matches version exactly and function; args stays empty when that map is null. A null array is
// reported (KR_RET_ERR_ARG); no matching service answers KR_RET_ERR_ARG without a report.
KR_API KR_RET_STATUS KR_constructInArgsFromPubService(const KR_PubService* services,
                                                      const char* version,
                                                      int function,
                                                      KR_Array<KR_PubArg>& args);
KR_API KR_RET_STATUS KR_constructOutArgsFromPubService(const KR_PubService* services,
                                                       const char* version,
                                                       int function,
                                                       KR_Array<KR_PubArg>& args);
// dst becomes a copy (KR_PubArg::copy) of every argument of src. A failure is passed back with
// dst empty.
KR_API KR_RET_STATUS KR_copyPubArgArr(KR_Array<KR_PubArg>& dst, KR_Array<KR_PubArg>& src);
// Equal counts and each pair equal by KR_PubArg::compare.
KR_API unsigned char KR_comparePubArgArr(KR_Array<KR_PubArg>& a, KR_Array<KR_PubArg>& b);

#endif  // KRCORE_KR_PUBARG_H
