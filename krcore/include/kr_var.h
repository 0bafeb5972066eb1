// kr_var.h — the typed variant and the array of variants.
// KR_Var holds one value of any of the library's fifteen types together with that type; it
// converts between them, computes, compares and orders, and packs and persists itself in binary
// and as tagged text. KR_VarArr is an array of variants ordered first by length and then element
// by element, the library's compound key. Both report under "src/kr_var". Persisted numbers are
// written and read as the C locale has them, whatever locale the host has set.
#ifndef KRCORE_KR_VAR_H
#define KRCORE_KR_VAR_H

#include <wchar.h>

#include "kr_array_impl.h"
#include "kr_container.h"
#include "kr_iostream.h"
#include "kr_persist.h"
#include "kr_reporter.h"
#include "kr_str.h"

class KR_PubObjVar;
class KR_Var;
class KR_VarArr;

template <>
struct KR_ElemCopy<KR_Var>;

namespace krInternal {
// The library's own free functions that need a variant's private steps (kr_varconv.cpp).
struct VarAccess;
}  // namespace krInternal

// The type of a variant's value. Numbers are fixed: they are packed and persisted. In each
// unsigned/signed pair the unsigned type has the lower number.
enum KR_VAR_TYPE {
    KR_VAR_WILD = 1,  // no value yet: the type is not fixed
    KR_VAR_UCHAR = 2,
    KR_VAR_CHAR = 3,
    KR_VAR_USHORT = 4,
    KR_VAR_SHORT = 5,
    KR_VAR_UINT = 6,
    KR_VAR_INT = 7,
    KR_VAR_ULONG = 8,
    KR_VAR_LONG = 9,
    KR_VAR_FLOAT = 10,
    KR_VAR_DOUBLE = 11,
    KR_VAR_STRING = 12,   // owned narrow text
    KR_VAR_STRINGW = 13,  // owned wide text
    KR_VAR_PTR = 14,      // untyped pointer, not owned
    KR_VAR_PUBOBJ = 15    // public object, owned: the variant deletes it
};

// The types that service argument maps declare. 1 to 15 are the variant types themselves; the
// aliases above them name what the value means to a user interface and map onto a variant type
// (KR_varAlias2Type). 0 ends an argument map.
enum KR_VAR_TYPE_ID {
    KR_VAR_ID_NONE = 0,
    KR_VAR_ID_WILD = 1,
    KR_VAR_ID_UCHAR = 2,
    KR_VAR_ID_CHAR = 3,
    KR_VAR_ID_USHORT = 4,
    KR_VAR_ID_SHORT = 5,
    KR_VAR_ID_UINT = 6,
    KR_VAR_ID_INT = 7,
    KR_VAR_ID_ULONG = 8,
    KR_VAR_ID_LONG = 9,
    KR_VAR_ID_FLOAT = 10,
    KR_VAR_ID_DOUBLE = 11,
    KR_VAR_ID_STRING = 12,
    KR_VAR_ID_STRINGW = 13,
    KR_VAR_ID_PTR = 14,
    KR_VAR_ID_PUBOBJ = 15,
    KR_VAR_ID_BOOL = 16,       // "Boolean": an int, 0 or 1 ("FALSE"/"TRUE" in texts)
    KR_VAR_ID_FILENAME = 17,   // "File name": wide text
    KR_VAR_ID_DIRECTORY = 18,  // "Directory": wide text
    KR_VAR_ID_PASSWORD = 19,   // "Password": wide text
    KR_VAR_ID_COLOUR = 20,     // "Colour": an unsigned int 0xRRGGBB
    KR_VAR_ID_CHOICE = 21      // "Choice": wide text, one of the argument's value list
};

// The display name of the wildcard type, as the type printers show it.
#define KR_VAR_NAME_WILD "Wild"
#define KR_VAR_NAME_WILDW L"Wild"

// KR_Var — one value and its type. Strings are heap copies that the variant owns; a pointer is
// held and not owned; a public object is owned and deleted when the variant lets it go (a new
// string or object is stored, the type changes, or the variant is destroyed).
//
// Type lock. While the lock flag (the last argument of every constructor) is set, the type is
// fixed for the value setters: the string copies, the typed assignments (operator= of a C value)
// and the assignment of another variant refuse a value of another type with KR_RET_ERR_ARG
// (reported) and leave the variant unchanged. cast, set(type, p) and assignPubObj are explicit
// type changes and pass the lock; restores pass it too.
//
// Copies. The copy constructor copies type, value, lock flag and maximum string length;
// operator= copies type and value and keeps the target's lock flag and length limit (a copied
// text is cut to that limit). Strings are duplicated, a public object is copied through the
// object itself. A string or object that cannot be copied is reported (KR_RET_ERR_MEM): the copy
// constructor then leaves a null value of the source's type, an assignment leaves the target as
// it was. The same holds for every value setter: a failed string copy changes nothing.
//
// Failures of the operations that answer a variant or a reference (operators) are reported and
// leave the last status code set; the operations that answer a status return it as well.
class KR_API KR_Var : public KR_Persistable {
public:
    // A variant of the given type with a zero value. A type outside 1..15 is reported with
    // KR_RET_ERR_ARG and leaves the variant uninitialised: every operation on it then answers
    // KR_RET_ERR_POBJ.
    explicit KR_Var(KR_VAR_TYPE type = KR_VAR_WILD, unsigned char lockType = 0);
    KR_Var(char value, unsigned char lockType = 0);
    KR_Var(unsigned char value, unsigned char lockType = 0);
    KR_Var(short value, unsigned char lockType = 0);
    KR_Var(unsigned short value, unsigned char lockType = 0);
    KR_Var(int value, unsigned char lockType = 0);
    KR_Var(unsigned int value, unsigned char lockType = 0);
    KR_Var(long value, unsigned char lockType = 0);
    KR_Var(unsigned long value, unsigned char lockType = 0);
    KR_Var(float value, unsigned char lockType = 0);
    KR_Var(double value, unsigned char lockType = 0);
    // The string forms copy the text (a null text gives a null string of that type).
    KR_Var(char* text, unsigned char lockType = 0);
    KR_Var(const char* text, unsigned char lockType = 0);
    KR_Var(const KR_String& text, unsigned char lockType = 0);
    KR_Var(wchar_t* text, unsigned char lockType = 0);
    KR_Var(const wchar_t* text, unsigned char lockType = 0);
    KR_Var(const KR_StringW& text, unsigned char lockType = 0);
    KR_Var(void* pointer, unsigned char lockType = 0);
    // Takes ownership of object.
    KR_Var(KR_PubObjVar* object, unsigned char lockType = 0);
    KR_Var(const KR_Var& other);

    // Takes other's value without copying, so it never fails; other is left Wild and unlocked.
    KR_Var(KR_Var&& other) noexcept;

    ~KR_Var() override;

    KR_Var& operator=(const KR_Var& other);
    // Exchanges the contents of two initialised variants without copying (other keeps the old
    // contents, which it then releases); the lock of this variant is not consulted.
    KR_Var& operator=(KR_Var&& other) noexcept;
    KR_Var& operator=(char value);
    KR_Var& operator=(unsigned char value);
    KR_Var& operator=(short value);
    KR_Var& operator=(unsigned short value);
    KR_Var& operator=(int value);
    KR_Var& operator=(unsigned int value);
    KR_Var& operator=(long value);
    KR_Var& operator=(unsigned long value);
    KR_Var& operator=(float value);
    KR_Var& operator=(double value);
    KR_Var& operator=(char* text);
    KR_Var& operator=(const char* text);
    KR_Var& operator=(const KR_String& text);
    KR_Var& operator=(wchar_t* text);
    KR_Var& operator=(const wchar_t* text);
    KR_Var& operator=(const KR_StringW& text);
    KR_Var& operator=(void* pointer);
    // Takes ownership of object.
    KR_Var& operator=(KR_PubObjVar* object);

    // The value as stored, without conversion (reading a member of another type gives the
    // stored bytes seen through that type). The string accessors give the variant's own text
    // (null for a null string).
    char c() const { return value_.c; }

    unsigned char uc() const { return value_.uc; }

    short s() const { return value_.s; }

    unsigned short us() const { return value_.us; }

    int i() const { return value_.i; }

    unsigned int ui() const { return value_.ui; }

    long l() const { return value_.l; }

    unsigned long ul() const { return value_.ul; }

    float f() const { return value_.f; }

    double d() const { return value_.d; }

    const char* str() const { return value_.str; }

    const wchar_t* wstr() const { return value_.wstr; }

    void* ptr() const { return value_.ptr; }

    KR_PubObjVar* objptr() const { return value_.obj; }

    operator char() const { return value_.c; }

    operator unsigned char() const { return value_.uc; }

    operator short() const { return value_.s; }

    operator unsigned short() const { return value_.us; }

    operator int() const { return value_.i; }

    operator unsigned int() const { return value_.ui; }

    operator long() const { return value_.l; }

    operator unsigned long() const { return value_.ul; }

    operator float() const { return value_.f; }

    operator double() const { return value_.d; }

    operator char*() const { return value_.str; }

    operator const char*() const { return value_.str; }

    operator wchar_t*() const { return value_.wstr; }

    operator const wchar_t*() const { return value_.wstr; }

    operator void*() const { return value_.ptr; }

    operator KR_PubObjVar*() const { return value_.obj; }

    // Copy the value out. get(void*) writes the value's own bytes (1, 2, 4, 8 or pointer width
    // by type; a string's pointer) to the place given. The pointer forms hand out the variant's
    // own pointer: the variant keeps ownership. Null place: KR_RET_ERR_ARG.
    KR_RET_STATUS get(void* place);
    KR_RET_STATUS get(char** place);
    KR_RET_STATUS get(wchar_t** place);
    KR_RET_STATUS get(void** place);
    KR_RET_STATUS get(KR_PubObjVar** place);
    // Stores the value at the address p, read as a value of the current type (set(void*)) or of
    // the given type (set(type, p)), which becomes the variant's type whatever its lock: p points
    // at a number, at the characters of a text (which are copied), at a void* (type 14), or is
    // the public object itself (type 15, taken over). A null p stores the zero value of the type
    // (a null string, a null pointer). A type outside 1..15: KR_RET_ERR_ARG, unchanged.
    //   int n = 5;  v.set(KR_VAR_INT, &n);  v.set(KR_VAR_STRING, (void*)"abc");
    KR_RET_STATUS set(void* p);
    KR_RET_STATUS set(KR_VAR_TYPE type, void* p);

    KR_VAR_TYPE varType() const { return type_; }

    unsigned char objIsEnabled() const { return initialised_; }

    unsigned char getLockVarType() const { return lockType_; }

    KR_RET_STATUS setLockVarType(unsigned char lockType);

    int getStrLengMax() const { return strLengMax_; }

    // Strings only (KR_RET_FALSE for other types): cuts the held text to max characters and
    // keeps every later string to that length; a negative max means unlimited.
    KR_RET_STATUS setStrLengMax(int max);
    // Zeroes the value, the reserved word and the length limit. The type stays, and a held
    // string or object is not released: a caller clears a variant whose value it has taken.
    KR_RET_STATUS clear();
    // Stores object (type 15) and takes ownership of it, whatever the lock.
    KR_RET_STATUS assignPubObj(KR_PubObjVar* object);
    // Converts the value in place to the type to. Numbers convert as C converts them
    // (truncation toward zero from floating types, low-order bytes kept when narrowing, sign or
    // zero extension when widening, out-of-range numbers wrapping). A text is scanned with the
    // target's C format in the C locale ("%c" for the character types takes the first
    // character; text that does not scan gives 0). Numbers become text with "%c", "%d", "%ld",
    // "%f" and "%lf" (an unsigned int above INT_MAX gives a negative number); a text of the
    // other width converts through the locale. A pointer is made from an integer or from text
    // ("%p"), never from a floating type. A pointer or public object converted to a number or a
    // text: KR_RET_ERR_CALL, unchanged. To Wild: the value is released and zeroed. A public
    // object converts only to Wild; Wild converts to the zero value of any type.
    KR_RET_STATUS cast(KR_VAR_TYPE to);

    // Whether a and b can take part in one arithmetic operation: numbers with numbers, strings
    // with strings.
    static unsigned char compatibleMathArgs(KR_Var& a, KR_Var& b);

    // Three-way order: the same type compares by value; different types are never equal and the
    // left operand counts as the greater. Floating values closer than 0.001 are equal.
    unsigned char operator<(const KR_Var& other) const;
    unsigned char operator<=(const KR_Var& other) const;
    unsigned char operator==(const KR_Var& other) const;
    unsigned char operator!=(const KR_Var& other) const;
    unsigned char operator>(const KR_Var& other) const;
    unsigned char operator>=(const KR_Var& other) const;

    // Arithmetic. Both operands are first converted (on copies) to the result type of
    // KR_resultArgType, then computed in that C type: integers wrap, an integer division by zero
    // is refused, floating division follows IEEE. Strings only add (concatenation, wide when
    // either is wide). Operands that cannot be combined, and -, * and / on strings, are
    // reported with KR_RET_ERR_ARG and give a Wild variant.
    KR_Var operator+(KR_Var& other);
    KR_Var operator-(KR_Var& other);
    KR_Var operator*(KR_Var& other);
    KR_Var operator/(KR_Var& other);

    // Binary form: the type number as a little-endian 32-bit word, then the value: 1, 2, 4 or 8
    // bytes for the numbers by their C width (unsigned long and long always 8, so files move
    // between platforms), a text as the string classes pack it (a 32-bit count of units with the
    // terminator, 0 for a null text, then the units; wide text as UTF-16LE), a pointer as 8
    // bytes, a public object as a 32-bit 0 when null (a set object cannot be packed:
    // KR_RET_ERR_NSUP). Wild has no value bytes. Restores read into a temporary first and change
    // the variant only when the whole value arrived; an unknown type number, a value too wide for
    // this platform's long, and a truncated value are reported with KR_RET_ERR_FILE (files) or
    // KR_RET_ERR_ARG (buffers).
    KR_RET_STATUS pack(KR_Version& version,
                       char* buffer,
                       unsigned int& used,
                       KR_STORAGE_TYPE storage) override;
    unsigned int getPackedSize(KR_Version& version, KR_STORAGE_TYPE storage) override;
    KR_RET_STATUS unpack(KR_Version& version,
                         char* buffer,
                         unsigned int& used,
                         KR_STORAGE_TYPE storage) override;
    // Tagged text: "<var>", "<type>NAME</type>", the value lines, "</var>". The reader skips
    // white space between tags and around numbers; a STRING value is everything between
    // "<value>" and the next "</value>" as it stands (a text that holds "</value>" does not read
    // back whole; an empty one reads as the null string), a CHAR value exactly one byte, a
    // pointer the hexadecimal digits "%p" writes ("0x" optional, "(nil)" null). KR_RET_FALSE (no
    // report, nothing changed) when only white space comes before the end of the file; anything
    // else than "<var>" there, and an entry that is malformed (unknown type name, a missing tag,
    // a number beyond its type, such as a long beyond this platform's long, an odd or
    // non-numeric STRINGW), is reported with KR_RET_ERR_FILE and leaves the variant unchanged.
    // A restore sets the type it read whatever the lock, keeps lock flag and length limit, and
    // cuts a text to that limit.
    KR_RET_STATUS persist(KR_Version& version, KR_FileAscii& file) override;
    KR_RET_STATUS persist(KR_Version& version, KR_FileBinary& file, unsigned int& written) override;
    KR_RET_STATUS restore(KR_Version& version, KR_FileAscii& file) override;
    KR_RET_STATUS restore(KR_Version& version, KR_FileBinary& file, unsigned int& read) override;

private:
    friend struct KR_ElemCopy<KR_Var>;
    friend class KR_VarArr;
    friend struct krInternal::VarAccess;

    union Value {
        char c;
        unsigned char uc;
        short s;
        unsigned short us;
        int i;
        unsigned int ui;
        long l;
        unsigned long ul;
        float f;
        double d;
        char* str;
        wchar_t* wstr;
        void* ptr;
        KR_PubObjVar* obj;
        unsigned long long bits;
    };

    KR_RET_STATUS initDataMembers(KR_VAR_TYPE type, unsigned char lockType);
    KR_RET_STATUS cleanupDataMembers();
    // The string copies: refuse under a lock of another type, release what is held, then
    // duplicate text (cut to the length limit).
    KR_RET_STATUS copyStr(const char* text);
    KR_RET_STATUS copyStrW(const wchar_t* text);
    // Stores a number of type type, refusing under a lock of another type.
    KR_RET_STATUS storeValue(KR_VAR_TYPE type, Value value);
    // Replaces this variant by a copy of other; force passes the lock. KR_RET_ERR_MEM when a
    // string or object did not arrive (this variant then holds a null one of that type).
    KR_RET_STATUS copyFrom(const KR_Var& other, bool force);
    // Releases an owned string or object and zeroes the value; the type stays.
    void releaseValue();
    // Cuts a held text to the length limit, in place (nothing can fail).
    void cutToLimit();
    // Takes type and value from value (which is left Wild), keeping this variant's lock flag
    // and length limit; a text is cut to the limit. Nothing can fail.
    void adoptValue(KR_Var& value);
    int varComp(const KR_Var& other) const;
    // Converts both operands to the common type, or answers KR_RET_ERR_ARG (reported).
    static KR_RET_STATUS makeCompatibleMathArgs(KR_Var& a, KR_Var& b, KR_VAR_TYPE& type);
    // left op right for the four operators (op 0 to 3: +, -, *, /).
    static KR_Var compute(KR_Var& left, KR_Var& right, int op);

    unsigned char initialised_;
    Value value_;
    KR_VAR_TYPE type_;
    unsigned char lockType_;
    unsigned int reserved_;  // set to 0 by construction and clear; no operation reads it
    int strLengMax_;         // -1: unlimited
};

// A variant copy in a container arrives when its string (or object) arrived; the containers
// copy variants whatever their type locks.
template <>
struct KR_ElemCopy<KR_Var> {
    static constexpr bool kMayFail = true;

    static bool copy(KR_Var& dst, const KR_Var& src) { return dst.copyFrom(src, true) <= 2; }
};

extern template class KR_API KR_Container<KR_Var>;
extern template class KR_API KR_OrdContainer<KR_Var>;
extern template class KR_API KR_I_Iterator<KR_Var>;
extern template class KR_API KR_IndContainer<KR_Var>;
extern template class KR_API KR_Array<KR_Var>;
extern template class KR_API KR_Container<KR_VAR_TYPE>;
extern template class KR_API KR_OrdContainer<KR_VAR_TYPE>;
extern template class KR_API KR_I_Iterator<KR_VAR_TYPE>;
extern template class KR_API KR_IndContainer<KR_VAR_TYPE>;
extern template class KR_API KR_Array<KR_VAR_TYPE>;

// The display name of v's type as a new heap text (C allocator, the caller frees it):
// "Wild", "Char", "Unsigned char", ... "Class Object Pointer", "Undefined" outside 1..15.
// Null out or an uninitialised v: KR_RET_ERR_ARG (*out null when out is given).
KR_API KR_RET_STATUS KR_type2Str(char** out, KR_Var& v);
KR_API KR_RET_STATUS KR_type2StrW(wchar_t** out, KR_Var& v);
// The type of a name: the tag names of the text encoding ("UCHAR", "CHAR", ... "PUBOBJ", and
// "WILD"), then the display names ("Char", ... "Wild"); exact and case-sensitive.
// KR_RET_FALSE (type unchanged) for an unknown name, KR_RET_ERR_ARG for a null one.
//   KR_str2Type("ULONG", t)  ->  t == KR_VAR_ULONG;  KR_str2Type("Char", t)  ->  t == KR_VAR_UCHAR
KR_API KR_RET_STATUS KR_str2Type(const char* text, KR_VAR_TYPE& type);
KR_API KR_RET_STATUS KR_str2TypeW(const wchar_t* text, KR_VAR_TYPE& type);
// The result type of an arithmetic operation on a and b: the larger number (so a signed type
// wins over its unsigned twin and a string over a number), 15 for two public objects; 0 when
// there is none (Wild with Wild, one public object, a number outside 1..15).
//   KR_resultArgType(KR_VAR_UINT, KR_VAR_INT)  ->  KR_VAR_INT
KR_API KR_VAR_TYPE KR_resultArgType(KR_VAR_TYPE a, KR_VAR_TYPE b);
// The variant type that an argument-map type stands for: 1..15 themselves, the aliases their
// value type; 0 for KR_VAR_ID_NONE and unknown numbers.
KR_API KR_VAR_TYPE KR_varAlias2Type(KR_VAR_TYPE_ID id);

// A variant's value as text and back (string utilities: reports under "src/kr_str"). The text
// is the one a cast to a string makes: "%c" for the character types (the character itself),
// "%d" for the short and int types (an unsigned int above INT_MAX reads as a negative number),
// "%ld" for both long types, "%f" for float and "%lf" for double, always with the C locale's
// "."; a string as it stands (converted to the other width by the locale where needed); a
// pointer with "%p"; Wild gives the empty text. A public object has no text: KR_RET_ERR_CALL.
//   KR_Var v(2.5);  KR_val2Str(out, v)  ->  out == "2.500000"
KR_API KR_RET_STATUS KR_val2Str(KR_String& out, KR_Var& v);
KR_API KR_RET_STATUS KR_val2StrW(KR_StringW& out, KR_Var& v);
// Parses text into v as a value of v's current type, with the scan of cast (so "-1" reads
// into an unsigned int as 4294967295, text that does not scan as 0, "%c" takes the first
// character), in the C locale; a pointer from the hexadecimal digits "%p" writes. A Wild
// variant takes the text itself and becomes a string of the text's width. The type is kept
// whatever the lock. A public object: KR_RET_ERR_CALL; a null text: KR_RET_ERR_ARG; both leave
// v unchanged.
KR_API KR_RET_STATUS KR_str2Val(KR_Var& v, const char* text);
KR_API KR_RET_STATUS KR_str2ValW(KR_Var& v, const wchar_t* text);

// The value as the stream prints its C type (the character types as characters), strings as
// they stand, "<Class Object Pointer>" or "<null>" for an object, nothing for Wild.
KR_API KR_OStream& operator<<(KR_OStream& stream, KR_Var& v);
// The display name ("Undefined" outside 1..15).
KR_API KR_OStream& operator<<(KR_OStream& stream, KR_VAR_TYPE type);
// The display name of a variant type, or of an alias ("Boolean", "File name", "Directory",
// "Password", "Colour", "Choice"); "Undefined" otherwise.
KR_API KR_OStream& operator<<(KR_OStream& stream, KR_VAR_TYPE_ID id);

// KR_VarArr — an array of variants with an order of its own: a shorter array is less than a
// longer one whatever they hold, and arrays of one length compare element by element with the
// variant order. All container operations of KR_Array<KR_Var> apply. Packed and persisted as its
// element count followed by the elements. A construction or copy whose text or block did not
// arrive is reported (KR_RET_ERR_MEM) and leaves an array that is not initialised.
class KR_API KR_VarArr : public KR_Array<KR_Var>, public KR_Persistable {
public:
    // n variants of the given type and lock flag. A type outside 1..15 is reported and leaves
    // the array uninitialised.
    explicit KR_VarArr(unsigned int n = 0,
                       KR_VAR_TYPE type = KR_VAR_WILD,
                       unsigned char lockType = 0);
    // n variants of type type, unlocked, whose values follow in the argument list, one per
    // element, as C passes them to a variadic function: the char, short and float types are
    // read promoted (int, int, double) and converted back; the strings are read as char* or
    // wchar_t* and copied; a pointer as void*, an object as KR_PubObjVar* (taken over). Wild
    // reads nothing.
    //   KR_VarArr a(3, KR_VAR_SHORT, 1, -2, 3)  ->  three shorts 1, -2, 3
    // With a single value that converts to unsigned char, C++ prefers the constructor above and
    // takes the value as the lock flag: build one-element arrays with that form and assign.
    KR_VarArr(unsigned int n, KR_VAR_TYPE type, ...);
    KR_VarArr(const KR_VarArr& other);
    ~KR_VarArr() override;
    KR_VarArr& operator=(const KR_VarArr& other);

    // Out of range: reported with "KR_VAR_ARRAY: element access" and the KR_NULL_PTR reference.
    KR_Var& operator[](unsigned int i) override;
    // Inserts copies of all of other's elements before or after index (an empty array takes
    // them at 0). Nothing changes when a copy fails.
    KR_RET_STATUS insArr(KR_INS_METHOD method, unsigned int index, KR_VarArr& other);

    unsigned char operator<(KR_VarArr& other);
    unsigned char operator<=(KR_VarArr& other);
    unsigned char operator==(KR_VarArr& other);
    unsigned char operator!=(KR_VarArr& other);
    unsigned char operator>(KR_VarArr& other);
    unsigned char operator>=(KR_VarArr& other);
    // The three-way comparison itself: -1, 0 or 1.
    int operator-(KR_VarArr& other);

    // The greatest length in characters of the elements' texts (narrow or wide); 0 when none.
    unsigned int longestStrLeng();
    unsigned int numVarType(KR_VAR_TYPE type);

    // The array's own flag: the container operations that check it see this one too.
    unsigned char objIsEnabled() override { return initialised_; }

    KR_RET_STATUS pack(KR_Version& version,
                       char* buffer,
                       unsigned int& used,
                       KR_STORAGE_TYPE storage) override;
    unsigned int getPackedSize(KR_Version& version, KR_STORAGE_TYPE storage) override;
    KR_RET_STATUS unpack(KR_Version& version,
                         char* buffer,
                         unsigned int& used,
                         KR_STORAGE_TYPE storage) override;
    // "<vararr>", the elements' encodings, "</vararr>". The reader takes the elements until
    // "</vararr>"; anything else where an element should start is reported with KR_RET_ERR_FILE.
    // Every restore leaves the array unchanged unless the whole array arrived.
    KR_RET_STATUS persist(KR_Version& version, KR_FileAscii& file) override;
    KR_RET_STATUS persist(KR_Version& version, KR_FileBinary& file, unsigned int& written) override;
    KR_RET_STATUS restore(KR_Version& version, KR_FileAscii& file) override;
    KR_RET_STATUS restore(KR_Version& version, KR_FileBinary& file, unsigned int& read) override;

private:
    int arrComp(KR_VarArr& other);
    // Restores collect their elements in a staging array first. growStaged makes room for
    // element index count, growing the array geometrically but never past limit elements, so
    // that no claimed count is allocated before its elements arrive.
    static KR_RET_STATUS growStaged(KR_Array<KR_Var>& staged,
                                    unsigned int count,
                                    unsigned int limit);
    // Makes the first count staged elements this array's elements; the one allocation it needs
    // leaves the array as it was when it fails.
    KR_RET_STATUS adoptStaged(KR_Array<KR_Var>& staged, unsigned int count);

    unsigned char initialised_;
};

KR_API KR_OStream& operator<<(KR_OStream& stream, KR_VarArr& array);

// --- Database field types ---
// One vocabulary of column types for the database plug-ins: a fixed number and a name for each
// type, a descriptor (binary width, flags, the variant type that carries a value) and lookup
// from names with the common SQL spellings. It only describes: no database code lives here.
// Values travel in variants as follows. INT64, UINT64 and DECIMAL travel as exact decimal text
// (KR_VAR_STRING): no variant type holds 64 bits on the targets with a 32-bit long, and a double
// loses integers above 2^53. DATE, TIME and TIMESTAMP travel as the ISO 8601 text of
// KR_timeToText ("YYYY-MM-DD", "HH:MM:SS[.mmm]", "YYYY-MM-DDTHH:MM:SS[.mmm]"). GUID travels as
// the 36-character text of 8-4-4-4-12 hexadecimal digits that the class factory's GUIDs have,
// compared without regard to case. BLOB has no variant type (KR_VAR_WILD): a blob travels as a
// KR_Memory.

// The numbers are fixed: plug-ins store them.
enum KR_DB_FIELD_TYPE {
    KR_DB_FIELD_UNKNOWN = 0,
    KR_DB_FIELD_BOOL = 1,
    KR_DB_FIELD_INT8 = 2,
    KR_DB_FIELD_UINT8 = 3,
    KR_DB_FIELD_INT16 = 4,
    KR_DB_FIELD_UINT16 = 5,
    KR_DB_FIELD_INT32 = 6,
    KR_DB_FIELD_UINT32 = 7,
    KR_DB_FIELD_INT64 = 8,
    KR_DB_FIELD_UINT64 = 9,
    KR_DB_FIELD_FLOAT = 10,
    KR_DB_FIELD_DOUBLE = 11,
    KR_DB_FIELD_DECIMAL = 12,
    KR_DB_FIELD_CHAR = 13,      // fixed-length narrow text
    KR_DB_FIELD_VARCHAR = 14,   // narrow text up to a length
    KR_DB_FIELD_WCHAR = 15,     // fixed-length wide text
    KR_DB_FIELD_WVARCHAR = 16,  // wide text up to a length, or long wide text
    KR_DB_FIELD_TEXT = 17,      // long narrow text
    KR_DB_FIELD_BLOB = 18,
    KR_DB_FIELD_DATE = 19,
    KR_DB_FIELD_TIME = 20,
    KR_DB_FIELD_TIMESTAMP = 21,
    KR_DB_FIELD_GUID = 22,
    KR_DB_FIELD_COUNT = 23
};

// The flags of a descriptor.
enum KR_DB_FIELD_FLAG {
    KR_DB_FLAG_FIXED = 0x1,       // every value of a column has one binary width
    KR_DB_FLAG_SIGNED = 0x2,      // takes negative numbers
    KR_DB_FLAG_TEXT = 0x4,        // characters
    KR_DB_FLAG_NUMERIC = 0x8,     // a number (BOOL is not one)
    KR_DB_FLAG_TEMPORAL = 0x10,   // a date, a time of day or both
    KR_DB_FLAG_LENGTH = 0x20,     // the declaration takes "(n)"
    KR_DB_FLAG_PRECISION = 0x40,  // the declaration takes "(p,s)"
    KR_DB_FLAG_WIDE = 0x80        // wide characters
};

// KR_DbFieldDesc — the description of one type, a plain record in a static table ordered by type
// number. size is the binary width in bytes of one value, 0 where it varies or is the column's
// declared length. DATE, TIME and TIMESTAMP have the widths of the library's own scales: a day
// number (4), the millisecond of the day (4) and Unix milliseconds (8).
//
//   type       name       sqlName            size  flags                        varType
//   0          UNKNOWN    -                  0     -                            WILD
//   1          BOOL       BOOLEAN            1     FIXED                        UCHAR
//   2          INT8       -                  1     FIXED SIGNED NUMERIC         CHAR
//   3          UINT8      -                  1     FIXED NUMERIC                UCHAR
//   4          INT16      SMALLINT           2     FIXED SIGNED NUMERIC         SHORT
//   5          UINT16     -                  2     FIXED NUMERIC                USHORT
//   6          INT32      INTEGER            4     FIXED SIGNED NUMERIC         INT
//   7          UINT32     -                  4     FIXED NUMERIC                UINT
//   8          INT64      BIGINT             8     FIXED SIGNED NUMERIC         STRING
//   9          UINT64     -                  8     FIXED NUMERIC                STRING
//   10         FLOAT      REAL               4     FIXED SIGNED NUMERIC         FLOAT
//   11         DOUBLE     DOUBLE PRECISION   8     FIXED SIGNED NUMERIC         DOUBLE
//   12         DECIMAL    DECIMAL            0     SIGNED NUMERIC PRECISION     STRING
//   13         CHAR       CHAR               0     FIXED TEXT LENGTH            STRING
//   14         VARCHAR    VARCHAR            0     TEXT LENGTH                  STRING
//   15         WCHAR      NCHAR              0     FIXED TEXT LENGTH WIDE       STRINGW
//   16         WVARCHAR   NVARCHAR           0     TEXT LENGTH WIDE             STRINGW
//   17         TEXT       CLOB               0     TEXT                         STRING
//   18         BLOB       BLOB               0     -                            WILD
//   19         DATE       DATE               4     FIXED TEMPORAL               STRING
//   20         TIME       TIME               4     FIXED TEMPORAL               STRING
//   21         TIMESTAMP  TIMESTAMP          8     FIXED TEMPORAL               STRING
//   22         GUID       UUID               16    FIXED                        STRING
//
// "REAL" is FLOAT, the standard's single precision, although some engines store it in 8 bytes.
struct KR_DbFieldDesc {
    KR_DB_FIELD_TYPE type;
    const char* name;      // the enumerator's suffix: "INT32"
    const wchar_t* nameW;  // the same, wide
    const char* sqlName;   // the usual SQL spelling; null where the standard has none
    unsigned int size;
    KR_VAR_TYPE varType;
    unsigned int flags;  // KR_DB_FIELD_FLAG bits
};

// "INT32" and so on; null outside 0..22. They neither clear the user error nor report.
KR_API const char* KR_dbFieldTypeName(KR_DB_FIELD_TYPE type);
KR_API const wchar_t* KR_dbFieldTypeNameW(KR_DB_FIELD_TYPE type);
// desc := the static descriptor of type. KR_RET_ERR_ARG (reported, desc unchanged) outside 0..22.
KR_API KR_RET_STATUS KR_dbFieldTypeDesc(KR_DB_FIELD_TYPE type, const KR_DbFieldDesc*& desc);
// The type of a declared column type. Blanks around the name and everything from the first "("
// on are dropped ("varchar(255)" is VARCHAR); the rest is compared without regard to case, and
// any run of blanks between words matches one ("double   precision"). The names of the table
// come first, then the SQL spellings, then the synonyms: INT -> INT32, INT2 -> INT16, INT4 ->
// INT32, TINYINT -> UINT8 (SQL Server's unsigned byte), BIT and BOOL -> BOOL, FLOAT4 -> FLOAT,
// FLOAT8 and DOUBLE -> DOUBLE, NUMERIC and DEC -> DECIMAL, CHARACTER -> CHAR, CHARACTER VARYING
// and CHAR VARYING -> VARCHAR, NATIONAL CHAR and NATIONAL CHARACTER -> WCHAR, NATIONAL CHARACTER
// VARYING, NATIONAL CHAR VARYING, NCHAR VARYING, NTEXT and NCLOB -> WVARCHAR (long wide text keeps
// its width), BYTEA, BINARY and VARBINARY -> BLOB, DATETIME and DATETIME2 -> TIMESTAMP,
// UNIQUEIDENTIFIER -> GUID. Since the table's names come first, "INT8" is this vocabulary's
// 1-byte integer, not PostgreSQL's 8-byte alias (spell that BIGINT).
// An unknown name: KR_RET_FALSE with type UNKNOWN and no report; a null name: KR_RET_ERR_ARG.
//   KR_dbFieldTypeFromName(" Integer ", t)  ->  t == KR_DB_FIELD_INT32
KR_API KR_RET_STATUS KR_dbFieldTypeFromName(const char* name, KR_DB_FIELD_TYPE& type);
KR_API KR_RET_STATUS KR_dbFieldTypeFromNameW(const wchar_t* name, KR_DB_FIELD_TYPE& type);
// The variant type that carries a value of type; KR_VAR_WILD outside 0..22.
KR_API KR_VAR_TYPE KR_dbFieldTypeToVarType(KR_DB_FIELD_TYPE type);

#endif  // KRCORE_KR_VAR_H
