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
#include <vector>

#include "container_model.h"
#include "test_support.h"

namespace {

const char* const kUnit = "krcore/include/kr_hash_impl";
using StrTable = KR_HashTable<KR_String, KR_String>;

std::string textOf(const KR_String& s) {
    const char* text = s;
    return text == nullptr ? "(null)" : text;
}

// What the callbacks below saw.
int releases = 0;
std::vector<std::string> visited;
StrTable* current = nullptr;

template <class K, class V>
KR_RET_STATUS countRelease(K&, V&) {
    ++releases;
    return KR_RET_TRUE;
}

KR_RET_STATUS record(KR_String& key, KR_String&) {
    visited.push_back(textOf(key));
    return KR_RET_TRUE;
}

// Bucket by the first letter: 'a' to bucket 0, 'b' to 1, ...
unsigned int firstLetter(KR_String& key, unsigned int size) {
    const char* text = key;
    return size == 0 ? 0 : static_cast<unsigned int>(text[0] - 'a') % size;
}

// A table of the given keys, each with the value "v" + key, added in order.
std::unique_ptr<StrTable> makeTable(unsigned int size,
                                    StrTable::HashFunc hash,
                                    std::vector<std::string> keys) {
    auto t = std::make_unique<StrTable>(size, hash, countRelease<KR_String, KR_String>);
    for (const std::string& k : keys) {
        KR_String key(k.c_str());
        KR_String value(("v" + k).c_str());
        EXPECT_KR_OK(t->addEntry(key, value));
    }
    return t;
}

std::string lookup(StrTable& t, const char* k) {
    KR_String key(k), out;
    KR_RET_STATUS st = t.getEntryData(key, out);
    return st == KR_RET_TRUE ? textOf(out) : "absent";
}

// The key and value types a random run drives, with their std:: image.
struct StringKeys {
    using Key = KR_String;
    using Table = StrTable;
    static constexpr Table::HashFunc kHash = KR_defHashFuncStringKey;

    static Key key(const std::string& s) { return Key(s.c_str()); }

    static KR_String value(const std::string& s) { return KR_String(s.c_str()); }

    static std::string text(KR_String& v) { return textOf(v); }
};

// One-letter keys become unsigned ints, longer ones narrow strings: variants of two types.
struct VarKeys {
    using Key = KR_Var;
    using Table = KR_HashTable<KR_Var, KR_Var>;
    static constexpr Table::HashFunc kHash = KR_defHashFuncVarKey;

    static Key key(const std::string& s) {
        return s.size() == 1 ? KR_Var(static_cast<unsigned int>(s[0])) : KR_Var(s.c_str());
    }

    static KR_Var value(const std::string& s) { return KR_Var(s.c_str()); }

    static std::string text(KR_Var& v) { return v.str() == nullptr ? "(null)" : v.str(); }
};

template <class Keys>
class HashModel : public ::testing::Test {};

using KeyTypes = ::testing::Types<StringKeys, VarKeys>;
TYPED_TEST_SUITE(HashModel, KeyTypes);

// Short keys over three letters in seven buckets: many collisions and anagrams.
TYPED_TEST(HashModel, RandomOperationsMatchStdMap) {
    using Keys = TypeParam;
    std::mt19937 rng(20240611);
    std::vector<std::string> pool;
    for (int i = 0; i < 30; ++i) {
        std::string s;
        for (unsigned int n = 1 + rng() % 3; n > 0; --n)
            s += static_cast<char>('a' + rng() % 3);
        pool.push_back(s);
    }
    std::map<std::string, std::string> model;
    int deletions = 0;
    releases = 0;
    {
        typename Keys::Table table(7, Keys::kHash, countRelease);
        for (int step = 0; step < 3000; ++step) {
            const std::string& k = pool[rng() % pool.size()];
            std::string v = std::to_string(rng() % 1000);
            auto key = Keys::key(k);
            auto value = Keys::value(v);
            bool held = model.count(k) != 0;
            SCOPED_TRACE("step " + std::to_string(step) + " key " + k);
            switch (rng() % 5) {
                case 0:
                    EXPECT_KR_STATUS(held ? KR_RET_FALSE : KR_RET_TRUE, table.addEntry(key, value));
                    model.emplace(k, v);
                    break;
                case 1:
                    EXPECT_KR_STATUS(held ? KR_RET_TRUE : KR_RET_FALSE, table.deleteEntry(key));
                    deletions += model.erase(k);
                    ASSERT_EQ(deletions, releases);
                    break;
                case 2:
                    EXPECT_KR_STATUS(held ? KR_RET_TRUE : KR_RET_FALSE,
                                     table.setEntryData(key, value));
                    if (held) model[k] = v;
                    break;
                case 3:
                    EXPECT_KR_STATUS(held ? KR_RET_TRUE : KR_RET_FALSE, table.hasEntry(key));
                    break;
                default: {
                    auto out = Keys::value("x");
                    EXPECT_KR_STATUS(held ? KR_RET_TRUE : KR_RET_FALSE,
                                     table.getEntryData(key, out));
                    EXPECT_EQ(held ? model[k] : "x", Keys::text(out));
                }
            }
            ASSERT_EQ(model.size(), table.numEntries());
        }
        EXPECT_FALSE(model.empty());
    }
    EXPECT_EQ(deletions + static_cast<int>(model.size()), releases);
}

TEST(HashTable, EdgeCases) {
    struct Row {
        const char* name;
        unsigned int size;
        StrTable::HashFunc hash;
        KR_RET_STATUS (*op)(StrTable& t);
        KR_RET_STATUS expected;
        std::string report;
        unsigned int entries;  // afterwards
    };

    const std::string gen = krtest::statusReport(kUnit, "Internal error");
    const Row rows[] = {
            {"an existing key keeps its value", 7, KR_defHashFuncStringKey,
             [](StrTable& t) {
                 KR_String key("ab"), value("new");
                 KR_RET_STATUS st = t.addEntry(key, value);
                 EXPECT_EQ("vab", lookup(t, "ab"));
                 return st;
             },
             KR_RET_FALSE, "", 1},
            {"a hash of size (the empty key) is refused", 7, KR_defHashFuncStringKey,
             [](StrTable& t) {
                 KR_String key, value("v");
                 EXPECT_KR_STATUS(KR_RET_FALSE, t.hasEntry(key));
                 EXPECT_KR_STATUS(KR_RET_ERR_GEN, t.deleteEntry(key));
                 return t.addEntry(key, value);
             },
             KR_RET_ERR_GEN, gen + gen + gen, 1},
            {"no hash function keeps one bucket", 4, nullptr,
             [](StrTable& t) {
                 KR_String key("zz"), value("vzz");
                 EXPECT_KR_OK(t.addEntry(key, value));
                 EXPECT_EQ("vab", lookup(t, "ab"));
                 return t.hasEntry(key);
             },
             KR_RET_TRUE, "", 2},
            {"iterate without a function", 7, KR_defHashFuncStringKey,
             [](StrTable& t) { return t.iterate(nullptr); }, KR_RET_ERR_ARG,
             krtest::statusReport(kUnit, "Error on function input arguments"), 1},
            {"deleting an absent key releases nothing", 7, KR_defHashFuncStringKey,
             [](StrTable& t) {
                 KR_String key("ba");  // the same bucket as "ab"
                 return t.deleteEntry(key);
             },
             KR_RET_FALSE, "", 1},
            {"no buckets", 0, KR_defHashFuncStringKey,
             [](StrTable& t) {
                 KR_String key("ab"), value("v");
                 EXPECT_KR_STATUS(KR_RET_ERR_GEN, t.addEntry(key, value));
                 return t.iterate(record);
             },
             KR_RET_TRUE, gen, 0},
            {"an entry compared with the null reference", 7, KR_defHashFuncStringKey,
             [](StrTable&) {
                 KR_LList<KR_HashEntry<KR_String, KR_String>> empty;
                 KR_HashEntry<KR_String, KR_String> entry;
                 EXPECT_EQ(1, entry == entry);
                 EXPECT_EQ(0, entry == empty[0]);
                 return KR_getStatusCode();
             },
             KR_RET_ERR_POBJ,
             "ERROR: krcore/include/kr_list_impl: line N: KR_LList: element access\n"
             "Linked list is empty" +
                     krtest::statusReport(kUnit, "Korvane object not initialized"),
             1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto t = makeTable(
                row.size, row.hash,
                row.size > 0 ? std::vector<std::string>{"ab"} : std::vector<std::string>{});
        releases = 0;
        krtest::ReportCapture capture;
        EXPECT_KR_STATUS(row.expected, row.op(*t));
        EXPECT_EQ(row.report, capture.located());
        EXPECT_EQ(row.entries, t->numEntries());
        EXPECT_EQ(0, releases);
    }
}

TEST(HashTable, IterateVisitsBucketsInOrderNewestFirst) {
    auto t = makeTable(3, firstLetter, {"a1", "b1", "a2", "c1", "b2", "a3"});
    visited.clear();
    EXPECT_KR_OK(t->iterate(record));
    EXPECT_EQ((std::vector<std::string>{"a3", "a2", "a1", "b2", "b1", "c1"}), visited);
    // The first failing answer ends the walk and is returned.
    visited.clear();
    EXPECT_KR_STATUS(KR_RET_ERR_USER, t->iterate([](KR_String& key, KR_String& value) {
        record(key, value);
        return visited.size() == 4 ? KR_RET_ERR_USER : KR_RET_FALSE;
    }));
    EXPECT_EQ((std::vector<std::string>{"a3", "a2", "a1", "b2"}), visited);
}

TEST(HashTable, CallbacksInsideIterate) {
    auto t = makeTable(2, firstLetter, {"a1", "a2", "a3"});
    current = t.get();
    visited.clear();
    {
        // Adding into the bucket being walked is refused; into another it is not, and the walk
        // reaches that entry later. Looking up in the walked bucket leaves the walk in place.
        krtest::ReportCapture capture;
        EXPECT_KR_OK(t->iterate([](KR_String& key, KR_String& value) {
            record(key, value);
            if (textOf(key) != "a2") return KR_RET_TRUE;
            KR_String same("a9"), other("b9"), probe("a3"), v("v");
            EXPECT_KR_STATUS(KR_RET_ERR_ILOCK, current->addEntry(same, v));
            EXPECT_KR_OK(current->addEntry(other, v));
            EXPECT_KR_OK(current->hasEntry(probe));
            return KR_RET_TRUE;
        }));
        const std::string ilock = "An iterator was accessed recursively";
        const std::string iter =
                krtest::statusReport("krcore/include/kr_iterator_impl", ilock.c_str());
        EXPECT_EQ(iter + krtest::statusReport(kUnit, ilock.c_str()) + iter, capture.located());
    }
    EXPECT_EQ((std::vector<std::string>{"a3", "a2", "a1", "b9"}), visited);
    // A callback that deletes its own entry still visits every entry once.
    visited.clear();
    releases = 0;
    {
        krtest::ReportCapture capture;
        EXPECT_KR_OK(t->iterate([](KR_String& key, KR_String& value) {
            record(key, value);
            return current->deleteEntry(key);
        }));
    }
    EXPECT_EQ((std::vector<std::string>{"a3", "a2", "a1", "b9"}), visited);
    EXPECT_EQ(4, releases);
    EXPECT_EQ(0u, t->numEntries());
    current = nullptr;
}

TEST(HashTable, AllocationFailureLeavesTableUnchanged) {
    KR_REQUIRE_FAULT_INJECTION();
    krtest::ReportCapture capture;
    const std::string mem = krtest::statusReport(kUnit, "Memory error");
    auto t = makeTable(7, KR_defHashFuncStringKey, {"ab", "ba"});
    KR_String key("cd"), value("vcd"), other("other");
    unsigned long runs = 0;
    // The key's copy, the value's copy and the list node.
    krtest::forEachAllocationFailure([&] { return t->addEntry(key, value); },
                                     [&](KR_RET_STATUS st, unsigned long) {
                                         ++runs;
                                         EXPECT_KR_STATUS(KR_RET_ERR_MEM, st);
                                         EXPECT_EQ(KR_RET_ERR_MEM, KR_getStatusCode());
                                         EXPECT_EQ(2u, t->numEntries());
                                         EXPECT_EQ("absent", lookup(*t, "cd"));
                                     });
    EXPECT_EQ(3u, runs);
    EXPECT_EQ("vcd", lookup(*t, "cd"));
    krtest::forEachAllocationFailure([&] { return t->setEntryData(key, other); },
                                     [&](KR_RET_STATUS st, unsigned long) {
                                         EXPECT_KR_STATUS(KR_RET_ERR_MEM, st);
                                         EXPECT_EQ("vcd", lookup(*t, "cd"));
                                     });
    EXPECT_EQ("other", lookup(*t, "cd"));
    // The bucket array and its block; the table is then not initialised.
    krtest::forEachAllocationFailure(
            [] { return std::unique_ptr<StrTable>(); },
            [&](std::unique_ptr<StrTable>& table) {
                capture.clear();
                table = std::make_unique<StrTable>(7, KR_defHashFuncStringKey, nullptr);
                return table->objIsEnabled() ? KR_RET_TRUE : KR_getStatusCode();
            },
            [&](std::unique_ptr<StrTable>& table, KR_RET_STATUS st, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, st);
                std::string text = capture.located();
                EXPECT_EQ(mem, text.substr(text.size() - std::min(text.size(), mem.size())));
                KR_String k("ab"), v("v");
                EXPECT_KR_STATUS(KR_RET_ERR_POBJ, table->addEntry(k, v));
            });
}

// The signed sum of a text, for the expected values of long texts.
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
    struct Row {
        const char* name;
        unsigned int (*hash)();
        unsigned int expected;
        bool reported;  // KR_RET_ERR_ARG under "src/kr_hash"
    };

    const Row rows[] = {
            {"string",
             [] {
                 KR_String k("ab");
                 return KR_defHashFuncStringKey(k, 7);
             },
             6, false},
            {"string bytes above 127 subtract",
             [] {
                 KR_String k("a\xE9");
                 return KR_defHashFuncStringKey(k, 1000);
             },
             74, false},
            {"string sum wraps at 2^32",
             [] {
                 KR_String k("\xFF");
                 return KR_defHashFuncStringKey(k, 1000);
             },
             295, false},
            {"null string",
             [] {
                 KR_String k;
                 return KR_defHashFuncStringKey(k, 7);
             },
             7, false},
            {"no buckets",
             [] {
                 KR_String k("ab");
                 return KR_defHashFuncStringKey(k, 0);
             },
             0, false},
            {"wide",
             [] {
                 KR_StringW k(L"ab");
                 return KR_defHashFuncStringWKey(k, 7);
             },
             6, false},
            {"wide units are unsigned",
             [] {
                 KR_StringW k(L"\u00E9");
                 return KR_defHashFuncStringWKey(k, 1000);
             },
             233, false},
            {"wide beyond U+FFFF sums its surrogate pair",
             [] {
                 KR_StringW k(L"\U0001F600");
                 return KR_defHashFuncStringWKey(k, 1000);
             },
             (0xD83D + 0xDE00) % 1000, false},
            {"GUID record",
             [] {
                 GuidKey k{"ab", 3};
                 return KR_defHashFuncGUIDKey(k, 7);
             },
             6, false},
            {"GUID record with a null text",
             [] {
                 GuidKey k{nullptr, 3};
                 return KR_defHashFuncGUIDKey(k, 7);
             },
             7, false},
            {"no GUID record", [] { return KR_defHashFuncGUIDKey(nullptr, 7); }, 7, true},
            {"uint",
             [] {
                 KR_Var k(12u);
                 return KR_defHashFuncVarKey(k, 7);
             },
             (49 + 50) % 7, false},
            {"char 0 is the empty text",
             [] {
                 KR_Var k(static_cast<char>(0));
                 return KR_defHashFuncVarKey(k, 7);
             },
             0, false},
            {"uchar as a signed character",
             [] {
                 KR_Var k(static_cast<unsigned char>(200));
                 return KR_defHashFuncVarKey(k, 1000);
             },
             (0u - 56u) % 1000, false},
            {"short",
             [] {
                 KR_Var k(static_cast<short>(-5));
                 return KR_defHashFuncVarKey(k, 1000);
             },
             45 + 53, false},
            {"ushort",
             [] {
                 KR_Var k(static_cast<unsigned short>(65535));
                 return KR_defHashFuncVarKey(k, 1000);
             },
             sumOf("65535"), false},
            {"int",
             [] {
                 KR_Var k(INT_MIN);
                 return KR_defHashFuncVarKey(k, 100000);
             },
             sumOf("-2147483648"), false},
            {"uint",
             [] {
                 KR_Var k(UINT_MAX);
                 return KR_defHashFuncVarKey(k, 100000);
             },
             sumOf("4294967295"), false},
            {"ulong reads as long",
             [] {
                 KR_Var k(ULONG_MAX);
                 return KR_defHashFuncVarKey(k, 1000);
             },
             sumOf("-1"), false},
            {"long",
             [] {
                 KR_Var k(LONG_MIN);
                 return KR_defHashFuncVarKey(k, 100000);
             },
             sumOf(std::to_string(LONG_MIN)), false},
            {"float",
             [] {
                 KR_Var k(2.5f);
                 return KR_defHashFuncVarKey(k, 1000);
             },
             sumOf("2.500000"), false},
            {"double",
             [] {
                 KR_Var k(-1e20);
                 return KR_defHashFuncVarKey(k, 100000);
             },
             sumOf("-100000000000000000000.000000"), false},
            {"largest double",
             [] {
                 KR_Var k(DBL_MAX);
                 return KR_defHashFuncVarKey(k, 100000);
             },
             sumOf(std::to_string(DBL_MAX)), false},
            {"narrow string",
             [] {
                 KR_Var k("ab");
                 return KR_defHashFuncVarKey(k, 7);
             },
             6, false},
            {"null string",
             [] {
                 KR_Var k(static_cast<const char*>(nullptr));
                 return KR_defHashFuncVarKey(k, 7);
             },
             7, false},
            {"wild",
             [] {
                 KR_Var k;
                 return KR_defHashFuncVarKey(k, 7);
             },
             7, true},
            {"wide string",
             [] {
                 KR_Var k(L"ab");
                 return KR_defHashFuncVarKey(k, 7);
             },
             7, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        krtest::ReportCapture capture;
        EXPECT_EQ(row.expected, row.hash());
        EXPECT_EQ(row.reported
                          ? krtest::statusReport("src/kr_hash", "Error on function input arguments")
                          : "",
                  capture.located());
    }
    // A pointer is hashed through its "%p" text, which the C runtimes write differently; the
    // floating texts keep the C locale's point whatever the host sets.
    KR_Var pointer(static_cast<void*>(&releases));
    EXPECT_LT(KR_defHashFuncVarKey(pointer, 1000), 1000u);
    const char* const commaLocales[] = {"de_DE.UTF-8", "de_DE.utf8", "German_Germany.1252"};
    std::string saved = setlocale(LC_NUMERIC, nullptr);
    for (const char* name : commaLocales) {
        if (setlocale(LC_NUMERIC, name) == nullptr) continue;
        KR_Var k(2.5);
        EXPECT_EQ(sumOf("2.500000") % 1000, KR_defHashFuncVarKey(k, 1000)) << name;
        break;
    }
    setlocale(LC_NUMERIC, saved.c_str());
}

}  // namespace
