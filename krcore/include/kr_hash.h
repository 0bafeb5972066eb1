// kr_hash.h — the default hash functions of the hash table (kr_hash_impl.h).
// Each takes a key and the table's bucket count and answers a bucket index below size, or size
// itself when the key cannot be hashed, which the table refuses with KR_RET_ERR_GEN (so does a
// size of 0, which every function answers with 0). All of them add up the characters of a text
// form of the key: cheap, and blind to order, so anagrams share a bucket. Wide text is summed as
// UTF-16 code units whatever the width of wchar_t, and floating numbers are written as the C
// locale writes them, so neither the platform's wchar_t nor the host's locale moves a key.
//   KR_String key("ab");  KR_defHashFuncStringKey(key, 7)  ->  (97 + 98) % 7 == 6
#ifndef KRCORE_KR_HASH_H
#define KRCORE_KR_HASH_H

#include <type_traits>

#include "kr_globals.h"
#include "kr_str.h"
#include "kr_var.h"

// The characters of the text, each as a signed 8-bit value (so bytes above 127 subtract), summed
// modulo 2^32, then modulo size. A null text answers size: the empty string is held as a null
// text, so it answers size too.
KR_API unsigned int KR_defHashFuncStringKey(KR_String& key, unsigned int size);
// The UTF-16 code units of the text (unsigned), summed, modulo size; a character beyond U+FFFF
// counts as its surrogate pair where wchar_t is 32-bit, as it is held where wchar_t is 16-bit.
// A null text answers size.
KR_API unsigned int KR_defHashFuncStringWKey(KR_StringW& key, unsigned int size);

// For a key record whose first member is its identifier's text (char* or const char*), such as
// the class GUID record of the public object model; only that member is read, and its characters
// are summed as KR_defHashFuncStringKey sums them. The template form is the one a table takes:
//   struct ClassKey { const char* guid; unsigned int version; };
//   KR_HashTable<ClassKey, KR_Var> table(64, KR_defHashFuncGUIDKey<ClassKey>, nullptr);
// The record must be standard-layout, so that its first member sits at its address. The record
// is given by its address here; a null address is reported (KR_RET_ERR_ARG) and, like a null
// text, answers size.
KR_API unsigned int KR_defHashFuncGUIDKey(const void* key, unsigned int size);

template <class K>
inline unsigned int KR_defHashFuncGUIDKey(K& key, unsigned int size) {
    static_assert(std::is_standard_layout<K>::value && !std::is_pointer<K>::value,
                  "a GUID key is a standard-layout record whose first member is its text");
    return KR_defHashFuncGUIDKey(static_cast<const void*>(&key), size);
}

// The value written as text, its characters summed as KR_defHashFuncStringKey sums them. The
// text by type: the character types the character itself ("%c"; the character 0 gives the
// empty text, so it hashes to 0), unsigned short and unsigned int "%u", short and int "%d", both
// long types "%ld" (an unsigned long above LONG_MAX reads as negative), float and double "%f" in
// the C locale, a narrow string as it stands (null: answers size), a pointer "%p" (which the C
// runtimes of the platforms write differently). Wild, wide strings, public objects and a variant
// that is not initialised are reported (KR_RET_ERR_ARG, "src/kr_hash") and answer size.
//   KR_Var key(12u);  KR_defHashFuncVarKey(key, 7)  ->  ('1' + '2') % 7 == 1
KR_API unsigned int KR_defHashFuncVarKey(KR_Var& key, unsigned int size);
// The texts of the elements, in order, as KR_defHashFuncVarKey writes them, summed into one
// sum, modulo size; an empty array answers 0. An element that cannot be hashed, or an array that
// is not initialised, answers size (reported as KR_defHashFuncVarKey reports).
KR_API unsigned int KR_defHashFuncVarArrKey(KR_VarArr& key, unsigned int size);

#endif  // KRCORE_KR_HASH_H
