// test_var.cpp — the variant: names, conversions, order, arithmetic, locks, text and binary forms.
#include <limits.h>
#include <locale.h>
#include <stdint.h>
#include <wchar.h>

#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

size_t countOf(const std::string& text, const std::string& needle) {
    size_t n = 0;
    for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1))
        ++n;
    return n;
}

std::string text(const KR_String& s) {
    return s.strLeng() ? static_cast<const char*>(s) : "";
}

// The variant's value as KR_val2Str writes it, for comparing values of any type.
std::string valueText(KR_Var& v) {
    KR_String out;
    if (v.varType() == KR_VAR_STRINGW) {
        KR_StringW wide;
        EXPECT_KR_OK(KR_val2StrW(wide, v));
        out = wide;
    } else {
        EXPECT_KR_OK(KR_val2Str(out, v));
    }
    return text(out);
}

// Equal values of one type; Wild variants never compare equal, so their type is all there is.
bool same(KR_Var& a, KR_Var& b) {
    return a.varType() == b.varType() && (a.varType() == KR_VAR_WILD || a == b);
}

// A random variant of every type but the public object.
KR_Var randomVar(std::mt19937& rng) {
    std::uniform_int_distribution<int> pick(KR_VAR_WILD, KR_VAR_PTR);
    std::uniform_int_distribution<long long> n(LLONG_MIN, LLONG_MAX);
    long long x = n(rng);
    switch (pick(rng)) {
        case KR_VAR_UCHAR:
            return KR_Var(static_cast<unsigned char>(x));
        case KR_VAR_CHAR:
            return KR_Var(static_cast<char>(x));
        case KR_VAR_USHORT:
            return KR_Var(static_cast<unsigned short>(x));
        case KR_VAR_SHORT:
            return KR_Var(static_cast<short>(x));
        case KR_VAR_UINT:
            return KR_Var(static_cast<unsigned int>(x));
        case KR_VAR_INT:
            return KR_Var(static_cast<int>(x));
        case KR_VAR_ULONG:
            return KR_Var(static_cast<unsigned long>(x));
        case KR_VAR_LONG:
            return KR_Var(static_cast<long>(x));
        case KR_VAR_FLOAT:
            return KR_Var(static_cast<float>(x % 100000) / 64.0f);
        case KR_VAR_DOUBLE:
            return KR_Var(static_cast<double>(x % 10000000) / 1024.0);
        case KR_VAR_STRING:
            return KR_Var(("t" + std::to_string(x)).c_str());
        case KR_VAR_STRINGW:
            return KR_Var(x % 3 == 0 ? L"\u00e9t\u00e9 \U0001F600" : L"wide");
        case KR_VAR_PTR:
            return KR_Var(reinterpret_cast<void*>(static_cast<uintptr_t>(x) & 0x7FFFFFF0u));
        default:
            return KR_Var(KR_VAR_WILD);
    }
}

}  // namespace

TEST(Var, NamesAndTypeParsing) {
    // Display names cross over within each unsigned/signed pair; tag names do not.
    struct {
        KR_Var v;
        const char* display;
        const char* tag;
    } rows[] = {{KR_Var(static_cast<unsigned char>(65)), "Char", "UCHAR"},
                {KR_Var('A'), "Unsigned char", "CHAR"},
                {KR_Var(static_cast<unsigned short>(1)), "Short", "USHORT"},
                {KR_Var(1), "Unsigned integer", "INT"},
                {KR_Var(1L), "Unsigned long", "LONG"},
                {KR_Var(1UL), "Long", "ULONG"},
                {KR_Var(L"w"), "Unicode string", "STRINGW"},
                {KR_Var(static_cast<KR_PubObjVar*>(nullptr)), "Class Object Pointer", "PUBOBJ"},
                {KR_Var(KR_VAR_WILD), "Wild", "WILD"}};

    for (auto& row : rows) {
        SCOPED_TRACE(row.display);
        char* name = nullptr;
        ASSERT_KR_OK(KR_type2Str(&name, row.v));
        EXPECT_STREQ(row.display, name);
        free(name);
        KR_VAR_TYPE parsed = KR_VAR_WILD;
        EXPECT_KR_OK(KR_str2Type(row.tag, parsed));
        EXPECT_EQ(row.v.varType(), parsed);
        EXPECT_KR_OK(KR_str2TypeW(L"Char", parsed));
        EXPECT_EQ(KR_VAR_UCHAR, parsed);
    }
    KR_VAR_TYPE kept = KR_VAR_INT;
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_str2Type("char", kept));
    EXPECT_EQ(KR_VAR_INT, kept);
    krtest::ReportCapture capture;
    KR_Var bad(static_cast<KR_VAR_TYPE>(16));
    EXPECT_FALSE(bad.objIsEnabled());
    char* name = reinterpret_cast<char*>(&kept);
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_type2Str(&name, bad));
    EXPECT_EQ(nullptr, name);
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, bad.cast(KR_VAR_INT));
    EXPECT_EQ(KR_VAR_INT, KR_varAlias2Type(KR_VAR_ID_BOOL));
    EXPECT_EQ(KR_VAR_STRINGW, KR_varAlias2Type(KR_VAR_ID_FILENAME));
    EXPECT_EQ(0, KR_varAlias2Type(static_cast<KR_VAR_TYPE_ID>(99)));
}

TEST(Var, CastTable) {
    krtest::Utf8Locale utf8;

    struct Row {
        const char* name;
        KR_Var from;
        KR_VAR_TYPE to;
        KR_RET_STATUS status;
        KR_VAR_TYPE typeAfter;
        std::string textAfter;
    };

    Row rows[] = {
            {"text to uchar takes the first char", KR_Var("xyz"), KR_VAR_UCHAR, KR_RET_TRUE,
             KR_VAR_UCHAR, "x"},
            {"null text to uchar", KR_Var(static_cast<const char*>(nullptr)), KR_VAR_UCHAR,
             KR_RET_TRUE, KR_VAR_UCHAR, ""},
            {"int 300 narrows to 44", KR_Var(300), KR_VAR_UCHAR, KR_RET_TRUE, KR_VAR_UCHAR, ","},
            {"pointer refuses", KR_Var(reinterpret_cast<void*>(8)), KR_VAR_INT, KR_RET_ERR_CALL,
             KR_VAR_PTR, "0x8"},
            {"uint max prints -1", KR_Var(4294967295u), KR_VAR_STRING, KR_RET_TRUE, KR_VAR_STRING,
             "-1"},
            {"char to text", KR_Var('A'), KR_VAR_STRING, KR_RET_TRUE, KR_VAR_STRING, "A"},
            {"double truncates", KR_Var(-3.7), KR_VAR_INT, KR_RET_TRUE, KR_VAR_INT, "-3"},
            {"-1 scans into uint", KR_Var("-1"), KR_VAR_UINT, KR_RET_TRUE, KR_VAR_UINT, "-1"},
            {"text to double", KR_Var(" 2.5e0x"), KR_VAR_DOUBLE, KR_RET_TRUE, KR_VAR_DOUBLE,
             "2.500000"},
            {"short -1 widens to ulong", KR_Var(static_cast<short>(-1)), KR_VAR_ULONG, KR_RET_TRUE,
             KR_VAR_ULONG, "-1"},
            {"wild to int", KR_Var(KR_VAR_WILD), KR_VAR_INT, KR_RET_TRUE, KR_VAR_INT, "0"},
            {"wide text to int", KR_Var(L" 42z"), KR_VAR_INT, KR_RET_TRUE, KR_VAR_INT, "42"},
            {"text widens", KR_Var("\xc3\xa9t\xc3\xa9"), KR_VAR_STRINGW, KR_RET_TRUE,
             KR_VAR_STRINGW, "\xc3\xa9t\xc3\xa9"},
            {"float to text", KR_Var(1.5f), KR_VAR_STRING, KR_RET_TRUE, KR_VAR_STRING, "1.500000"},
            {"unreadable text gives 0", KR_Var("abc"), KR_VAR_LONG, KR_RET_TRUE, KR_VAR_LONG, "0"},
            {"int to pointer", KR_Var(16), KR_VAR_PTR, KR_RET_TRUE, KR_VAR_PTR, "0x10"},
            {"double to pointer refuses", KR_Var(1.0), KR_VAR_PTR, KR_RET_ERR_CALL, KR_VAR_DOUBLE,
             "1.000000"},
            {"int to object refuses", KR_Var(1), KR_VAR_PUBOBJ, KR_RET_ERR_CALL, KR_VAR_INT, "1"},
            {"text to wild", KR_Var("gone"), KR_VAR_WILD, KR_RET_TRUE, KR_VAR_WILD, ""},
            {"no such type", KR_Var(1), static_cast<KR_VAR_TYPE>(0), KR_RET_ERR_ARG, KR_VAR_INT,
             "1"},
    };
    krtest::ReportCapture capture;
    for (Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_KR_STATUS(row.status, row.from.cast(row.to));
        EXPECT_EQ(row.typeAfter, row.from.varType());
        if (row.typeAfter == KR_VAR_PTR) {
            EXPECT_EQ(reinterpret_cast<void*>(std::stoul(row.textAfter, nullptr, 16)),
                      row.from.ptr());
        } else {
            EXPECT_EQ(row.textAfter, valueText(row.from));
        }
    }
}

TEST(Var, OrderAndTolerance) {
    struct Row {
        const char* name;
        KR_Var a, b;
        int sign;  // of the three-way comparison a against b
    };

    Row rows[] = {
            {"floats within 0.001", KR_Var(1.0f), KR_Var(1.0005f), 0},
            {"floats apart", KR_Var(1.0f), KR_Var(1.002f), -1},
            {"doubles within the float tolerance", KR_Var(2.0), KR_Var(2.00100000004), 0},
            {"int against long: left is greater", KR_Var(5), KR_Var(5L), 1},
            {"long against int: left is greater", KR_Var(5L), KR_Var(5), 1},
            {"unsigned order", KR_Var(4000000000u), KR_Var(1u), 1},
            {"int difference wraps", KR_Var(INT_MAX), KR_Var(-2), -1},
            {"chars", KR_Var('a'), KR_Var('c'), -1},
            {"null text equals empty", KR_Var(static_cast<const char*>(nullptr)), KR_Var(""), 0},
            {"wide texts", KR_Var(L"b"), KR_Var(L"a"), 1},
            {"null object below set", KR_Var(static_cast<KR_PubObjVar*>(nullptr)),
             KR_Var(reinterpret_cast<KR_PubObjVar*>(&rows)), -1},
            {"wild never equal", KR_Var(KR_VAR_WILD), KR_Var(KR_VAR_WILD), 1},
    };
    for (Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.sign < 0, row.a < row.b);
        EXPECT_EQ(row.sign == 0, row.a == row.b);
        EXPECT_EQ(row.sign > 0, row.a > row.b);
        EXPECT_EQ(row.sign <= 0, row.a <= row.b);
    }
    KR_Var wild(KR_VAR_WILD);
    EXPECT_TRUE(wild == wild);  // the same object
    rows[10].b.clear();         // the fake object must not be released
}

TEST(Var, ArithmeticPromotesAndRefuses) {
    EXPECT_EQ(KR_VAR_INT, KR_resultArgType(KR_VAR_UINT, KR_VAR_INT));
    EXPECT_EQ(0, static_cast<int>(KR_resultArgType(KR_VAR_WILD, KR_VAR_WILD)));
    EXPECT_EQ(0, static_cast<int>(KR_resultArgType(KR_VAR_PUBOBJ, KR_VAR_INT)));
    EXPECT_EQ(KR_VAR_ULONG, KR_resultArgType(KR_VAR_INT, KR_VAR_ULONG));
    KR_Var s("ab"), w(L"cd"), i(7), u(2u), d(0.5), zero(0), low(INT_MIN), minus(-1);
    EXPECT_TRUE(KR_Var::compatibleMathArgs(s, w));
    EXPECT_FALSE(KR_Var::compatibleMathArgs(s, i));

    struct Row {
        const char* name;
        KR_Var result;
        KR_VAR_TYPE type;
        std::string text;
    };

    krtest::ReportCapture capture;
    Row rows[] = {{"uint + int is int", u - i, KR_VAR_INT, "-5"},
                  {"int * double", i * d, KR_VAR_DOUBLE, "3.500000"},
                  {"int / int truncates", i / u, KR_VAR_INT, "3"},
                  {"text + wide text joins wide", s + w, KR_VAR_STRINGW, "abcd"},
                  {"lowest / -1 wraps", low / minus, KR_VAR_INT, std::to_string(INT_MIN)},
                  {"division by zero", i / zero, KR_VAR_WILD, ""},
                  {"text minus text", s - w, KR_VAR_WILD, ""},
                  {"text plus number", s + i, KR_VAR_WILD, ""}};
    for (Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.type, row.result.varType());
        EXPECT_EQ(row.text, valueText(row.result));
    }
    std::string reports = capture.located();
    EXPECT_EQ(1u, countOf(reports, "KR_Var: division by zero"));
    EXPECT_EQ(1u, countOf(reports, "KR_Var: texts only add"));
    EXPECT_EQ(1u, countOf(reports, "KR_Var: operands cannot be combined"));
}

TEST(Var, LockRefusesOtherTypesAndLimitCuts) {
    krtest::ReportCapture capture;
    KR_Var locked(42, 1);
    locked = 2.5;
    locked = "text";
    KR_Var other(1.0);
    locked = other;
    EXPECT_EQ(KR_VAR_INT, locked.varType());
    EXPECT_EQ(42, locked.i());
    EXPECT_EQ(3u, countOf(capture.located(), "src/kr_var: line N:"));
    locked = 7;  // the same type passes
    EXPECT_EQ(7, locked.i());
    EXPECT_KR_OK(locked.cast(KR_VAR_STRING));  // explicit changes pass the lock
    EXPECT_EQ("7", valueText(locked));
    KR_Var s("abcdef");
    EXPECT_KR_OK(s.setStrLengMax(3));
    EXPECT_STREQ("abc", s.str());
    s = "uvwxyz";
    EXPECT_STREQ("uvw", s.str());
    EXPECT_KR_STATUS(KR_RET_FALSE, other.setStrLengMax(3));
    int n = 9;
    EXPECT_KR_OK(s.set(KR_VAR_INT, &n));
    EXPECT_EQ(9, s.i());
}

// Every type through text (val2Str/str2Val), pack/unpack and a binary file, from a fixed seed,
// under a decimal-comma locale when the machine has one: the bytes never depend on it.
TEST(Var, RoundTripsThroughTextPackAndFile) {
    krtest::Utf8Locale utf8;
    std::string savedNumeric = setlocale(LC_NUMERIC, nullptr);
    bool comma = setlocale(LC_NUMERIC, "de_DE.UTF-8") || setlocale(LC_NUMERIC, "de-DE");
    if (comma) {
        KR_Var half(0.98);
        EXPECT_EQ("0.980000", valueText(half));
    }
    std::mt19937 rng(20261124);
    KR_Version version;
    KR_String path;
    ASSERT_KR_OK(KR_fileGetTempName(path, nullptr, "krvar"));
    std::vector<KR_Var> values;
    for (int k = 0; k < 300; ++k)
        values.push_back(randomVar(rng));
    KR_FileBinary out(static_cast<const char*>(path), KR_FILE_MODE_WRITE);
    for (KR_Var& v : values) {
        SCOPED_TRACE(valueText(v));
        KR_Var back(v.varType());
        if (v.varType() != KR_VAR_PTR && v.varType() != KR_VAR_WILD) {
            EXPECT_KR_OK(KR_str2Val(back, valueText(v).c_str()));
            EXPECT_EQ(valueText(v), valueText(back));
        }
        std::vector<char> buffer(v.getPackedSize(version, KR_STORAGE_BINARY));
        unsigned int used = 0;
        ASSERT_KR_OK(v.pack(version, buffer.data(), used, KR_STORAGE_BINARY));
        EXPECT_EQ(buffer.size(), used);
        KR_Var unpacked(KR_VAR_INT, 1);
        ASSERT_KR_OK(unpacked.unpack(version, buffer.data(), used, KR_STORAGE_BINARY));
        EXPECT_TRUE(same(unpacked, v));
        EXPECT_EQ(1, unpacked.getLockVarType());
        unsigned int written = 0;
        ASSERT_KR_OK(v.persist(version, out, written));
        EXPECT_EQ(used, written);
    }
    out.close();
    KR_FileBinary in(static_cast<const char*>(path), KR_FILE_MODE_READ);
    for (KR_Var& v : values) {
        KR_Var back;
        unsigned int read = 0;
        ASSERT_KR_OK(back.restore(version, in, read));
        EXPECT_TRUE(same(back, v)) << valueText(v);
    }
    in.close();
    KR_fileRemove(path);
    setlocale(LC_NUMERIC, savedNumeric.c_str());
    if (!comma) GTEST_SKIP() << "no decimal-comma locale on this machine";
}

TEST(Var, BadBinaryInputLeavesVariantUnchanged) {
    KR_Version version;
    krtest::ReportCapture capture;
    KR_Var v("keep");
    unsigned int used = 0;
    char badType[8] = {16, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, v.unpack(version, badType, used, KR_STORAGE_BINARY));
    // A long beyond 32 bits where long is 32-bit.
    char wideLong[12] = {9, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0};
    KR_RET_STATUS status = v.unpack(version, wideLong, used, KR_STORAGE_BINARY);
    EXPECT_EQ(sizeof(long) == 4 ? KR_RET_ERR_ARG : KR_RET_TRUE, status);
    if (sizeof(long) == 4) {
        EXPECT_STREQ("keep", v.str());
    }
    EXPECT_NE(std::string::npos, capture.located().find("KR_Var::unpack: no such type"));
}

// Copies that cannot allocate: the variant setters change nothing, and a container of variants
// keeps its elements.
TEST(Var, FailedCopiesChangeNothing) {
    KR_REQUIRE_FAULT_INJECTION();
    krtest::ReportCapture capture;
    KR_Version version;
    KR_Var packedText(L"packed \u00e9");
    std::vector<char> packed(packedText.getPackedSize(version, KR_STORAGE_BINARY));
    unsigned int used = 0;
    ASSERT_KR_OK(packedText.pack(version, packed.data(), used, KR_STORAGE_BINARY));
    KR_Var source("new text");

    // Each operation on a variant holding "old": every failed allocation answers
    // KR_RET_ERR_MEM and leaves "old" in place.
    const struct {
        const char* name;
        std::function<KR_RET_STATUS(KR_Var&)> op;
    } rows[] = {
            {"assign a variant", [&](KR_Var& v) { return (v = source, KR_RET_TRUE); }},
            {"assign a text", [](KR_Var& v) { return (v = "abc", KR_RET_TRUE); }},
            {"set a text", [](KR_Var& v) { return v.set(KR_VAR_STRING, (void*)"abc"); }},
            {"widen", [](KR_Var& v) { return v.cast(KR_VAR_STRINGW); }},
            {"parse into", [](KR_Var& v) { return KR_str2ValW(v, L"parsed"); }},
            {"unpack",
             [&](KR_Var& v) { return v.unpack(version, packed.data(), used, KR_STORAGE_BINARY); }},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        krtest::forEachAllocationFailure(
                [] { return std::make_unique<KR_Var>("old"); },
                [&](std::unique_ptr<KR_Var>& v) {
                    KR_clearStatusCode();
                    KR_RET_STATUS status = row.op(*v);
                    return KR_getStatusCode() == KR_RET_ERR_MEM ? KR_RET_ERR_MEM : status;
                },
                [](std::unique_ptr<KR_Var>& v, KR_RET_STATUS status, unsigned long) {
                    EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                    EXPECT_EQ(KR_VAR_STRING, v->varType());
                    EXPECT_STREQ("old", v->str());
                });
    }
    KR_Array<KR_Var> array(2);
    array[0] = "a";
    array[1] = L"b";
    krtest::forEachAllocationFailure(
            [] {
                auto copy = std::make_unique<KR_Array<KR_Var>>(1);
                (*copy)[0] = 5;
                return copy;
            },
            [&](std::unique_ptr<KR_Array<KR_Var>>& copy) {
                *copy = array;
                return copy->numElems() == 2 ? KR_RET_TRUE : KR_RET_ERR_MEM;
            },
            [](std::unique_ptr<KR_Array<KR_Var>>& copy, KR_RET_STATUS status, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                ASSERT_EQ(1u, copy->numElems());
                EXPECT_EQ(5, (*copy)[0].i());
            });
    KR_Var left("x");
    KR_Var sum;
    krtest::forEachAllocationFailure(
            [&] {
                sum = left + source;
                return sum.varType() == KR_VAR_STRING ? KR_RET_TRUE : KR_RET_ERR_MEM;
            },
            [&](KR_RET_STATUS status, unsigned long) { EXPECT_KR_STATUS(KR_RET_ERR_MEM, status); });
}
