// test_hash.cpp — KR_HashTable against a std::map, its edge cases, walks and allocation
// failures, and the exact values of the default hash functions.
#include <float.h>
#include <limits.h>
#include <locale.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "container_model.h"
#include "test_support.h"

namespace {

using krtest::statusReport;
using krtest::valueOf;
using StrTable = KR_HashTable<KR_String, KR_String>;
const char* const kUnit = "krcore/include/kr_hash_impl";

// What the callbacks saw.
int releases = 0;
std::vector<std::string> visited;
StrTable* current = nullptr;

template <class K, class V>
KR_RET_STATUS countRelease(K&, V&) {
    ++releases;
    return KR_RET_TRUE;
}

KR_RET_STATUS record(KR_String& key, KR_String&) {
    visited.push_back(valueOf(key));
    return KR_RET_TRUE;
}

// 'a' to bucket 0, 'b' to bucket 1, ...
unsigned int firstLetter(KR_String& key, unsigned int size) {
    return static_cast<unsigned int>(static_cast<const char*>(key)[0] - 'a') % size;
}

// The keys in order, each with the value "v" + key.
std::unique_ptr<StrTable> makeTable(unsigned int size,
                                    StrTable::HashFunc hash,
                                    std::vector<std::string> keys) {
    auto t = std::make_unique<StrTable>(size, hash, countRelease<KR_String, KR_String>);
    for (const std::string& k : keys) {
        KR_String key(k.c_str()), value(("v" + k).c_str());
        EXPECT_KR_OK(t->addEntry(key, value));
    }
    return t;
}

std::string lookup(StrTable& t, const char* k) {
    KR_String key(k), out;
    return t.getEntryData(key, out) == KR_RET_TRUE ? valueOf(out) : "absent";
}

// Variant keys of one letter become unsigned ints, longer ones narrow strings: two types.
template <class T>
T keyOf(const std::string& s) {
    if constexpr (std::is_same<T, KR_Var>::value) {
        if (s.size() == 1) return KR_Var(static_cast<unsigned int>(s[0]));
    }
    return T(s.c_str());
}

unsigned int defaultHash(KR_String& key, unsigned int size) {
    return KR_defHashFuncStringKey(key, size);
}

unsigned int defaultHash(KR_Var& key, unsigned int size) {
    return KR_defHashFuncVarKey(key, size);
}

std::string valueOf(const KR_Var& v) {
    return v.str() == nullptr ? "(null)" : v.str();
}

template <class T>
class HashModel : public ::testing::Test {};

using KeyTypes = ::testing::Types<KR_String, KR_Var>;
TYPED_TEST_SUITE(HashModel, KeyTypes);

// Keys of one to three letters out of three in seven buckets: many collisions and anagrams.
TYPED_TEST(HashModel, RandomOperationsMatchStdMap) {
    using T = TypeParam;
    std::mt19937 rng(20240611);
    std::map<std::string, std::string> model;
    int deletions = 0;
    releases = 0;
    {
        KR_HashTable<T, T> table(7, defaultHash, countRelease);
        for (int step = 0; step < 3000; ++step) {
            std::string k(1 + rng() % 3, 'a');
            for (char& c : k)
                c = static_cast<char>('a' + rng() % 3);
            std::string v = std::to_string(rng() % 1000);
            T key = keyOf<T>(k), value(v.c_str()), out("x");
            KR_RET_STATUS held = model.count(k) != 0 ? KR_RET_TRUE : KR_RET_FALSE;
            SCOPED_TRACE("step " + std::to_string(step) + " key " + k);
            switch (rng() % 5) {
                case 0:
                    EXPECT_KR_STATUS(held ? KR_RET_FALSE : KR_RET_TRUE, table.addEntry(key, value));
                    model.emplace(k, v);
                    break;
                case 1:
                    EXPECT_KR_STATUS(held, table.deleteEntry(key));
                    deletions += static_cast<int>(model.erase(k));
                    ASSERT_EQ(deletions, releases);
                    break;
                case 2:
                    EXPECT_KR_STATUS(held, table.setEntryData(key, value));
                    if (held) model[k] = v;
                    break;
                case 3:
                    EXPECT_KR_STATUS(held, table.hasEntry(key));
                    break;
                default:
                    EXPECT_KR_STATUS(held, table.getEntryData(key, out));
                    EXPECT_EQ(held ? model[k] : "x", valueOf(out));
            }
            ASSERT_EQ(model.size(), table.numEntries());
        }
    }
    EXPECT_EQ(deletions + static_cast<int>(model.size()), releases);
}

TEST(HashTable, EdgeCases) {
    const std::string gen = statusReport(kUnit, "Internal error");
    auto t = makeTable(7, KR_defHashFuncStringKey, {"ab"});
    KR_String ab("ab"), ba("ba"), empty, v("new");
    releases = 0;
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_FALSE, t->addEntry(ab, v));
    EXPECT_EQ("vab", lookup(*t, "ab"));
    EXPECT_KR_STATUS(KR_RET_FALSE, t->deleteEntry(ba));  // absent, in the bucket of "ab"
    EXPECT_EQ("", capture.located());
    // The empty string hashes to the bucket count.
    EXPECT_KR_STATUS(KR_RET_ERR_GEN, t->addEntry(empty, v));
    EXPECT_KR_STATUS(KR_RET_FALSE, t->hasEntry(empty));
    EXPECT_KR_STATUS(KR_RET_ERR_GEN, t->deleteEntry(empty));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, t->iterate(nullptr));
    EXPECT_EQ(gen + gen + gen + statusReport(kUnit, "Error on function input arguments"),
              capture.located());
    EXPECT_EQ(1u, t->numEntries());
    EXPECT_EQ(0, releases);
    // Without a hash function everything goes to bucket 0; without buckets nothing goes in.
    auto single = makeTable(4, nullptr, {"x", "y"});
    visited.clear();
    EXPECT_KR_OK(single->iterate(record));
    EXPECT_EQ((std::vector<std::string>{"y", "x"}), visited);
    auto none = makeTable(0, KR_defHashFuncStringKey, {});
    capture.clear();
    EXPECT_KR_STATUS(KR_RET_ERR_GEN, none->addEntry(ab, v));
    EXPECT_KR_OK(none->iterate(record));
    EXPECT_EQ(gen, capture.located());
    // An entry compared with the null reference that a failed list access gives.
    KR_LList<KR_HashEntry<KR_String, KR_String>> list;
    KR_HashEntry<KR_String, KR_String> entry;
    EXPECT_EQ(1, entry == entry);
    capture.clear();
    EXPECT_EQ(0, entry == list[0]);
    EXPECT_EQ(KR_RET_ERR_POBJ, KR_getStatusCode());
}

TEST(HashTable, IterateAndItsCallbacks) {
    // Bucket by bucket, newest first; the first failing answer ends the walk.
    auto t = makeTable(2, firstLetter, {"a1", "b1", "a2", "b2", "a3"});
    visited.clear();
    EXPECT_KR_STATUS(KR_RET_ERR_USER, t->iterate([](KR_String& key, KR_String& value) {
        record(key, value);
        return visited.size() == 4 ? KR_RET_ERR_USER : KR_RET_FALSE;
    }));
    EXPECT_EQ((std::vector<std::string>{"a3", "a2", "a1", "b2"}), visited);
    current = t.get();
    visited.clear();
    krtest::ReportCapture capture;
    // Adding into the walked bucket is refused, into another it is not (and that entry is
    // visited later); a lookup in the walked bucket leaves the walk in place.
    EXPECT_KR_OK(t->iterate([](KR_String& key, KR_String& value) {
        record(key, value);
        if (valueOf(key) != "a2") return KR_RET_TRUE;
        KR_String same("a9"), other("b9"), probe("a3"), v("v");
        EXPECT_KR_STATUS(KR_RET_ERR_ILOCK, current->addEntry(same, v));
        EXPECT_KR_OK(current->addEntry(other, v));
        EXPECT_KR_OK(current->hasEntry(probe));
        return KR_RET_TRUE;
    }));
    const char* const ilock = "An iterator was accessed recursively";
    const std::string walk = statusReport("krcore/include/kr_iterator_impl", ilock);
    EXPECT_EQ(walk + statusReport(kUnit, ilock) + walk, capture.located());
    const std::vector<std::string> all = {"a3", "a2", "a1", "b9", "b2", "b1"};
    EXPECT_EQ(all, visited);
    // A callback that deletes its own entry still visits every entry once.
    visited.clear();
    releases = 0;
    EXPECT_KR_OK(t->iterate([](KR_String& key, KR_String& value) {
        record(key, value);
        return current->deleteEntry(key);
    }));
    EXPECT_EQ(all, visited);
    EXPECT_EQ(6, releases);
    EXPECT_EQ(0u, t->numEntries());
}

TEST(HashTable, AllocationFailureLeavesTableUnchanged) {
    KR_REQUIRE_FAULT_INJECTION();
    krtest::ReportCapture capture;
    auto t = makeTable(7, KR_defHashFuncStringKey, {"ab", "ba"});
    KR_String key("cd"), value("vcd"), other("other");
    unsigned long runs = 0;
    // The key's copy, the value's copy and the list node.
    krtest::forEachAllocationFailure([&] { return t->addEntry(key, value); },
                                     [&](KR_RET_STATUS st, unsigned long n) {
                                         runs = n;
                                         EXPECT_KR_STATUS(KR_RET_ERR_MEM, st);
                                         EXPECT_EQ(KR_RET_ERR_MEM, KR_getStatusCode());
                                         EXPECT_EQ(2u, t->numEntries());
                                         EXPECT_EQ("absent", lookup(*t, "cd"));
                                     });
    EXPECT_EQ(3u, runs);
    krtest::forEachAllocationFailure([&] { return t->setEntryData(key, other); },
                                     [&](KR_RET_STATUS st, unsigned long) {
                                         EXPECT_KR_STATUS(KR_RET_ERR_MEM, st);
                                         EXPECT_EQ("vcd", lookup(*t, "cd"));
                                     });
    EXPECT_EQ("other", lookup(*t, "cd"));
    // The bucket array and its block: reported under the table's name, which stays unusable.
    krtest::forEachAllocationFailure(
            [] { return std::unique_ptr<StrTable>(); },
            [](std::unique_ptr<StrTable>& table) {
                table = std::make_unique<StrTable>(7, KR_defHashFuncStringKey, nullptr);
                return table->objIsEnabled() ? KR_RET_TRUE : KR_getStatusCode();
            },
            [&](std::unique_ptr<StrTable>& table, KR_RET_STATUS st, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, st);
                EXPECT_NE(std::string::npos, capture.located().rfind(kUnit));
                EXPECT_KR_STATUS(KR_RET_ERR_POBJ, table->addEntry(key, value));
            });
}

// The signed sum of a text's characters.
unsigned int sumOf(const std::string& text) {
    unsigned int sum = 0;
    for (char c : text)
        sum += static_cast<unsigned int>(static_cast<signed char>(c));
    return sum;
}

struct GuidKey {
    const char* guid;
    unsigned int version;
};

TEST(HashFunctions, ExactValues) {
    krtest::ReportCapture capture;

    // The narrow sums, through a string, a GUID record and a string variant.
    struct TextRow {
        const char* text;
        unsigned int size, expected;
    };

    const TextRow narrow[] = {{"ab", 7, 6},
                              {"a\xE9", 1000, 74},  // bytes above 127 subtract
                              {"\xFF", 1000, 295},  // the sum wraps at 2^32
                              {nullptr, 7, 7},
                              {"ab", 0, 0}};
    for (const TextRow& row : narrow) {
        SCOPED_TRACE(row.text == nullptr ? "null" : row.text);
        KR_String key(row.text);
        GuidKey guid{row.text, 1};
        KR_Var var(row.text);
        EXPECT_EQ(row.expected, KR_defHashFuncStringKey(key, row.size));
        EXPECT_EQ(row.expected, KR_defHashFuncGUIDKey(guid, row.size));
        EXPECT_EQ(row.expected, KR_defHashFuncVarKey(var, row.size));
    }

    struct WideRow {
        const wchar_t* text;
        unsigned int size, expected;
    };

    const WideRow wide[] = {{L"ab", 7, 6},
                            {L"\u00E9", 1000, 233},  // units are unsigned
                            {L"\U0001F600", 1000, (0xD83D + 0xDE00) % 1000},
                            {nullptr, 7, 7}};
    for (const WideRow& row : wide) {
        SCOPED_TRACE(row.expected);
        KR_StringW key(row.text);
        EXPECT_EQ(row.expected, KR_defHashFuncStringWKey(key, row.size));
    }
    EXPECT_EQ("", capture.located());

    // The variants' text forms, in UINT_MAX buckets; a key that is refused answers that size
    // and is reported.
    struct VarRow {
        const char* name;
        KR_Var key;
        unsigned int expected;
    };

    VarRow vars[] = {
            {"uint", KR_Var(12u), '1' + '2'},
            {"char 0 is the empty text", KR_Var(static_cast<char>(0)), 0},
            {"uchar as a signed char", KR_Var(static_cast<unsigned char>(200)), 0u - 56u},
            {"short", KR_Var(static_cast<short>(-5)), '-' + '5'},
            {"ushort", KR_Var(static_cast<unsigned short>(65535)), sumOf("65535")},
            {"int", KR_Var(INT_MIN), sumOf("-2147483648")},
            {"uint above INT_MAX", KR_Var(UINT_MAX), sumOf("4294967295")},
            {"ulong reads as long", KR_Var(ULONG_MAX), '-' + '1'},
            {"long", KR_Var(LONG_MIN), sumOf(std::to_string(LONG_MIN))},
            {"float", KR_Var(2.5f), sumOf("2.500000")},
            {"largest double", KR_Var(-DBL_MAX), sumOf(std::to_string(-DBL_MAX))},
            {"wild", KR_Var(), UINT_MAX},
            {"wide string", KR_Var(L"ab"), UINT_MAX},
    };
    for (VarRow& row : vars) {
        SCOPED_TRACE(row.name);
        capture.clear();
        EXPECT_EQ(row.expected, KR_defHashFuncVarKey(row.key, UINT_MAX));
        EXPECT_EQ(row.expected == UINT_MAX
                          ? statusReport("src/kr_hash", "Error on function input arguments")
                          : "",
                  capture.located());
    }
    const std::string arg = statusReport("src/kr_hash", "Error on function input arguments");
    capture.clear();
    EXPECT_EQ(7u, KR_defHashFuncGUIDKey(nullptr, 7));
    EXPECT_EQ(arg, capture.located());
    // An array sums the texts of all its elements, and keys a table of its own.
    KR_VarArr none, pair(2), wild(2);
    pair[0] = 12u;
    pair[1] = "ab";
    EXPECT_EQ(0u, KR_defHashFuncVarArrKey(none, 7));
    EXPECT_EQ(('1' + '2' + 'a' + 'b') % 1000u, KR_defHashFuncVarArrKey(pair, 1000));
    capture.clear();
    EXPECT_EQ(7u, KR_defHashFuncVarArrKey(wild, 7));
    EXPECT_EQ(arg, capture.located());
    KR_HashTable<KR_VarArr, KR_Var> byArray(16, KR_defHashFuncVarArrKey, nullptr);
    KR_Var one(1);
    EXPECT_KR_OK(byArray.addEntry(pair, one));
    EXPECT_KR_OK(byArray.hasEntry(pair));
    EXPECT_KR_STATUS(KR_RET_FALSE, byArray.hasEntry(none));
    // A pointer is hashed through its "%p" text, which the C runtimes write differently; a
    // floating text keeps the C locale's point whatever the host sets.
    KR_Var pointer(static_cast<void*>(&releases));
    EXPECT_LT(KR_defHashFuncVarKey(pointer, 1000), 1000u);
    std::string saved = setlocale(LC_NUMERIC, nullptr);
    if (setlocale(LC_NUMERIC, "de_DE.UTF-8") || setlocale(LC_NUMERIC, "de_DE.utf8") ||
        setlocale(LC_NUMERIC, "German_Germany.1252")) {
        KR_Var k(2.5);
        EXPECT_EQ(sumOf("2.500000"), KR_defHashFuncVarKey(k, UINT_MAX));
    }
    setlocale(LC_NUMERIC, saved.c_str());
}

}  // namespace
