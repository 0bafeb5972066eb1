// test_str.cpp — KR_String, KR_StringW, KR_StringArr and the utilities that fill them: null and
// empty texts, width conversion, packing, persistence, splitting against strtok, and every
// allocation failure.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "kr_array_impl.h"
#include "kr_file.h"

#include "test_support.h"

namespace {

const char kNotInitialised[] = "src/kr_str: line N: \nKorvane object not initialized\n\n";

// The character type of a string class, the other width, and the other class.
template <class S>
using CharOf = std::remove_reference_t<decltype(std::declval<S&>()[0])>;
template <class S>
using OtherChar = std::conditional_t<std::is_same<CharOf<S>, char>::value, wchar_t, char>;
template <class S>
using OtherString = std::conditional_t<std::is_same<S, KR_String>::value, KR_StringW, KR_String>;

template <class S>
class Strings : public ::testing::Test {};

using StringTypes = ::testing::Types<KR_String, KR_StringW>;
TYPED_TEST_SUITE(Strings, StringTypes);

// A table text (its bytes taken as code points) in width C.
template <class C>
std::basic_string<C> widen(const std::string& bytes) {
    std::basic_string<C> result;
    for (char c : bytes)
        result.push_back(static_cast<C>(static_cast<unsigned char>(c)));
    return result;
}

// The text unit by unit as bytes (the tables are ASCII or Latin-1), "(null)" for null.
template <class C>
std::string shown(const C* t) {
    std::string result = t == nullptr ? "(null)" : "";
    for (; t != nullptr && *t != 0; ++t)
        result.push_back(static_cast<char>(*t));
    return result;
}

template <class S>
std::string text(const S& s) {
    return shown(static_cast<const CharOf<S>*>(s));
}

template <class S>
std::vector<std::string> texts(KR_Array<S>& array) {
    std::vector<std::string> result;
    for (unsigned int i = 0; i < array.numElems(); ++i)
        result.push_back(text(array[i]));
    return result;
}

std::string fileText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

std::string printed;

template <class C>
KR_RET_STATUS collect(C* t) {
    printed += shown(t);
    return KR_RET_TRUE;
}

}  // namespace

// The class under test, its character type and the other width, in a typed test.
#define KR_STRING_TYPES                   \
    using S = TypeParam;                  \
    using C [[maybe_unused]] = CharOf<S>; \
    using D [[maybe_unused]] = OtherChar<S>

// The narrow function f or its W twin, by the character type C of the test that uses it.
#define KR_W(f)                                       \
    [](auto&&... args) {                              \
        if constexpr (std::is_same<C, char>::value) { \
            return f(args...);                        \
        } else {                                      \
            return f##W(args...);                     \
        }                                             \
    }

TYPED_TEST(Strings, NullEmptyCopyAssignAllocateAdopt) {
    KR_STRING_TYPES;
    S null(static_cast<const C*>(nullptr)), empty(widen<C>("").c_str()), byDefault;
    EXPECT_EQ(0u, null.strLeng());
    EXPECT_EQ("(null)", text(null));
    EXPECT_EQ("", text(empty));
    EXPECT_TRUE(null == empty && byDefault == widen<C>("").c_str());
    EXPECT_FALSE(null != empty || null < empty || null > empty);
    EXPECT_TRUE(null == static_cast<const D*>(nullptr));

    S other(widen<D>("other").c_str());
    S copy(other);
    EXPECT_EQ("other", text(copy));
    EXPECT_NE(static_cast<const C*>(other), static_cast<const C*>(copy));
    copy = widen<C>("new").c_str();
    EXPECT_EQ("new", text(copy));
    copy = widen<D>("wide").c_str();
    copy = static_cast<S&>(copy);
    EXPECT_EQ("wide", text(copy));
    copy = static_cast<const C*>(nullptr);
    EXPECT_EQ("(null)", text(copy));

    EXPECT_KR_OK(copy.allocate(3));
    EXPECT_EQ("", text(copy));
    C* block = static_cast<C*>(calloc(2, sizeof(C)));
    block[0] = C('o');
    EXPECT_KR_STATUS(KR_RET_TRUE, copy.assignPtr(block));
    EXPECT_KR_STATUS(KR_RET_TRUE, copy.assignPtr(block));  // adopting its own text frees nothing
    EXPECT_EQ("o", text(copy));
}

TYPED_TEST(Strings, CharacterAccessReportsOutOfRange) {
    KR_STRING_TYPES;
    S s(widen<C>("abc").c_str());
    s[1] = C('X');
    EXPECT_EQ("aXc", text(s));
    krtest::ReportCapture capture;
    EXPECT_EQ(&krInternal::nullRef<C>(), &s[-1]);
    EXPECT_EQ(&krInternal::nullRef<C>(), &s[3]);
    S empty(widen<C>("").c_str());
    EXPECT_EQ(&krInternal::nullRef<C>(), &empty[0]);
    const std::string head = std::string("ERROR: src/kr_str: line N: KR_String") +
                             (sizeof(C) > 1 ? "W" : "") + ": character access\nIndex ";
    EXPECT_EQ(head + "-1 not in [0,2]" + head + "3 not in [0,2]" + head + "0 not in [0,-1]",
              capture.located());
    EXPECT_EQ(C(0), krInternal::nullRef<C>());
}

TYPED_TEST(Strings, ObjectNotInitialisedIsReportedAndNeverWritten) {
    KR_STRING_TYPES;
    // The shared null block reads as a string whose flag is clear.
    S& dead = krInternal::nullRef<S>();
    S live(widen<C>("x").c_str());
    krtest::ReportCapture capture;
    EXPECT_EQ(6u, dead.strLeng());
    EXPECT_EQ(&dead, &(dead = widen<C>("text").c_str()));
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, dead.strIns(0, "a"));
    EXPECT_FALSE(dead == live || live == dead || dead < live || dead > live);
    EXPECT_TRUE(dead != live && live != dead && dead != widen<C>("x").c_str());
    live += dead;
    EXPECT_EQ("x", text(live + dead));
    EXPECT_EQ("x", text(live));
    S copy(dead);
    EXPECT_TRUE(copy.objIsEnabled());
    EXPECT_EQ("(null)", text(copy));
    EXPECT_EQ(std::string(kNotInitialised) + kNotInitialised + kNotInitialised + kNotInitialised,
              capture.located());
    EXPECT_EQ(nullptr, static_cast<const C*>(dead));
}

TYPED_TEST(Strings, ComparisonsAcrossWidthsAndSides) {
    KR_STRING_TYPES;
    const char* rows[][2] = {
            {"abc", "abd"}, {"b", "abc"}, {"same", "same"}, {"", "a"}, {"\xe9", "z"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row[0]) + " / " + row[1]);
        int order = (strcmp(row[0], row[1]) > 0) - (strcmp(row[0], row[1]) < 0);
        std::basic_string<C> bText = widen<C>(row[1]);
        std::basic_string<D> bOther = widen<D>(row[1]);
        S a(widen<C>(row[0]).c_str()), b(bText.c_str());
        const C* bRaw = bText.c_str();
        EXPECT_EQ(order, (a > b) - (a < b));
        EXPECT_EQ(order == 0, a == b && !(a != b));
        EXPECT_EQ(order, (a > bRaw) - (a < bRaw));
        EXPECT_EQ(order, (bRaw < a) - (bRaw > a));
        EXPECT_EQ(order == 0, bRaw == a && !(bRaw != a));
        // Mixed widths convert through the locale; keep to ASCII there.
        if (static_cast<unsigned char>(row[0][0]) >= 0x80) continue;
        OtherString<S> bObject(bOther.c_str());
        EXPECT_EQ(order, (a > bObject) - (a < bObject));
        EXPECT_EQ(order == 0, a == bObject && bOther.c_str() == a);
        EXPECT_EQ(order, (a > bOther.c_str()) - (bOther.c_str() > a));
    }
}

TYPED_TEST(Strings, ConcatenationAndInsertion) {
    KR_STRING_TYPES;
    S a(widen<C>("ab").c_str());
    OtherString<S> other(widen<D>("W").c_str());
    EXPECT_EQ("abcd", text(a + widen<C>("cd").c_str()));
    EXPECT_EQ("abcd", text(a + widen<D>("cd").c_str()));
    EXPECT_EQ("xyab", text(widen<C>("xy").c_str() + a));
    EXPECT_EQ("xyab", text(widen<D>("xy").c_str() + a));
    EXPECT_EQ("abW", text(a + other));
    EXPECT_EQ("ab", text(a + static_cast<const C*>(nullptr)));
    EXPECT_EQ("ab", text(static_cast<const D*>(nullptr) + a));
    a += a;
    a += widen<D>("!").c_str();
    a += static_cast<const C*>(nullptr);
    EXPECT_EQ("abab!", text(a));
    S null;
    null += widen<C>("x").c_str();
    EXPECT_EQ("x", text(null));

    const unsigned int positions[] = {100, 2, 0, 1};
    const char* results[] = {"abX", "abX", "Xab", "aXb"};
    for (int i = 0; i < 4; ++i) {
        SCOPED_TRACE(positions[i]);
        S s(widen<C>("ab").c_str()), t(s);
        EXPECT_KR_STATUS(KR_RET_TRUE, s.strIns(positions[i], widen<C>("X").c_str()));
        EXPECT_KR_STATUS(KR_RET_TRUE, t.strIns(positions[i], widen<D>("X").c_str()));
        EXPECT_EQ(results[i], text(s));
        EXPECT_EQ(results[i], text(t));
    }
    S s(widen<C>("ab").c_str());
    EXPECT_KR_STATUS(KR_RET_TRUE, s.strIns(1, static_cast<const C*>(nullptr)));
    EXPECT_KR_STATUS(KR_RET_TRUE, s.strIns(1, s));
    EXPECT_EQ("aabb", text(s));
    EXPECT_KR_STATUS(KR_RET_TRUE, null.strIns(5, widen<D>("y").c_str()));
    EXPECT_EQ("xy", text(null));
}

TYPED_TEST(Strings, PackedFormRoundTripsAndRejectsOtherStorage) {
    KR_STRING_TYPES;
    KR_Version version;
    const unsigned int unit = sizeof(C) == 1 ? 1 : 2;
    const char* rows[] = {nullptr, "", "abc", "a b\t\xff"};
    for (const char* row : rows) {
        SCOPED_TRACE(shown(row));
        S s(row ? widen<C>(row).c_str() : nullptr);
        unsigned int n = row ? static_cast<unsigned int>(strlen(row)) + 1 : 0;
        ASSERT_EQ(4 + unit * n, s.getPackedSize(version, KR_STORAGE_BINARY));
        std::vector<char> buffer(4 + unit * n + 8, '\x55');
        unsigned int used = 99;
        ASSERT_KR_STATUS(KR_RET_TRUE, s.pack(version, buffer.data(), used, KR_STORAGE_BINARY));
        EXPECT_EQ(4 + unit * n, used);
        EXPECT_EQ(std::string({char(n), 0, 0, 0}), std::string(buffer.data(), 4));
        EXPECT_EQ('\x55', buffer[used]) << "wrote past the packed size";
        S back(widen<C>("previous").c_str());
        used = 99;
        ASSERT_KR_STATUS(KR_RET_TRUE, back.unpack(version, buffer.data(), used, KR_STORAGE_BINARY));
        EXPECT_EQ(4 + unit * n, used);
        EXPECT_EQ(text(s), text(back));
    }
    S s(widen<C>("abc").c_str());
    char buffer[16];
    unsigned int used = 7;
    krtest::ReportCapture capture;
    EXPECT_EQ(0u, s.getPackedSize(version, KR_STORAGE_UNDEF));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, s.pack(version, buffer, used, KR_STORAGE_UNDEF));
    EXPECT_EQ(0u, used);
    used = 7;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, s.unpack(version, buffer, used, KR_STORAGE_UNDEF));
    EXPECT_EQ(0u, used);
    const std::string arg = "src/kr_str: line N: \nError on function input arguments\n\n";
    EXPECT_EQ(arg + arg + arg, capture.located());
}

TEST(StringW, PacksUtf16LittleEndianOnEveryPlatform) {
    KR_Version version;
    // U+1F600 is one wchar_t on Linux and a surrogate pair on Windows: the same bytes either way.
    KR_StringW s(L"A\U0001F600\u00e9");
    const std::string expected(
            "\x05\x00\x00\x00"
            "A\x00\x3d\xd8\x00\xde\xe9\x00\x00\x00",
            14);
    ASSERT_EQ(expected.size(), s.getPackedSize(version, KR_STORAGE_BINARY));
    char buffer[32];
    unsigned int used = 0;
    ASSERT_KR_STATUS(KR_RET_TRUE, s.pack(version, buffer, used, KR_STORAGE_BINARY));
    EXPECT_EQ(expected, std::string(buffer, used));
    KR_StringW back;
    ASSERT_KR_STATUS(KR_RET_TRUE, back.unpack(version, buffer, used, KR_STORAGE_BINARY));
    EXPECT_EQ(expected.size(), used);
    EXPECT_EQ(std::wstring(L"A\U0001F600\u00e9"), static_cast<const wchar_t*>(back));
}

TEST(String, TextAndBinaryPersistence) {
    KR_Version version;
    std::string path = ::testing::TempDir() + "kr_str_persist.txt";
    {
        KR_FileAscii file(path.c_str(), KR_FILE_MODE_WRITE);
        ASSERT_TRUE(file.isOpen());
        EXPECT_KR_STATUS(KR_RET_TRUE, KR_String("a b").persist(version, file));
        EXPECT_KR_STATUS(KR_RET_TRUE, KR_String().persist(version, file));
        EXPECT_KR_STATUS(KR_RET_TRUE, KR_StringW(L"w x").persist(version, file));
    }
    EXPECT_EQ("<STRING>a b</STRING>\n<STRING></STRING>\n<STRINGW>w x</STRINGW>\n", fileText(path));
    {
        // The wide restore reads narrow entries and passes over its own wide ones.
        KR_FileAscii file(path.c_str(), KR_FILE_MODE_READ);
        KR_String s("stale");
        KR_StringW w(L"stale");
        EXPECT_KR_STATUS(KR_RET_TRUE, s.restore(version, file));
        EXPECT_EQ("a b", text(s));
        EXPECT_KR_STATUS(KR_RET_TRUE, w.restore(version, file));
        EXPECT_EQ(0u, w.strLeng());
        EXPECT_KR_STATUS(KR_RET_FALSE, w.restore(version, file));
    }
    {
        // A string that is not initialised is reported but still reads past its entry.
        KR_FileAscii file(path.c_str(), KR_FILE_MODE_READ);
        krtest::ReportCapture capture;
        KR_String& dead = krInternal::nullRef<KR_String>();
        EXPECT_KR_STATUS(KR_RET_TRUE, dead.KR_String::restore(version, file));  // no vtable
        EXPECT_EQ(kNotInitialised, capture.located());
        EXPECT_EQ(nullptr, static_cast<const char*>(dead));
        KR_String s("stale");
        EXPECT_KR_STATUS(KR_RET_TRUE, s.restore(version, file));
        EXPECT_EQ(0u, s.strLeng());
    }
    path = ::testing::TempDir() + "kr_str_persist.bin";
    unsigned int written[3], read = 0;
    {
        KR_FileBinary file(path.c_str(), KR_FILE_MODE_WRITE);
        ASSERT_KR_OK(KR_String("abc").persist(version, file, written[0]));
        ASSERT_KR_OK(KR_String().persist(version, file, written[1]));
        ASSERT_KR_OK(KR_StringW(L"x\U0001F600").persist(version, file, written[2]));
    }
    EXPECT_EQ(8u + 4u + 12u, written[0] + written[1] + written[2]);
    EXPECT_EQ(8u + 4u + 12u, fileText(path).size());
    KR_FileBinary file(path.c_str(), KR_FILE_MODE_READ);
    KR_String s("stale");
    KR_StringW w;
    ASSERT_KR_OK(s.restore(version, file, read));
    EXPECT_EQ("abc", text(s));
    EXPECT_EQ(8u, read);
    ASSERT_KR_OK(s.restore(version, file, read));
    EXPECT_EQ("(null)", text(s));
    ASSERT_KR_OK(w.restore(version, file, read));
    EXPECT_EQ(std::wstring(L"x\U0001F600"), static_cast<const wchar_t*>(w));
}

TEST(String, PrintsThroughTheStreamHandlers) {
    KR_OStream stream;
    stream.setConsoleHandler(collect<char>);
    stream.setConsoleHandlerW(collect<wchar_t>);
    printed.clear();
    stream << KR_String("n") << KR_String() << KR_StringW(L"w") << KR_StringW()
           << krInternal::nullRef<KR_String>();
    EXPECT_EQ("nw", printed);
    printed.clear();
    KR_StringArr array(2u);
    array[0] = "one";
    stream << array;
    EXPECT_EQ("one\n\n", printed);
}

TEST(StringArr, GrowsShrinksAndReports) {
    KR_StringArr fromText("first");
    ASSERT_EQ(1u, fromText.strArrNum());
    EXPECT_EQ("first", text(fromText[0]));
    EXPECT_EQ(0u, KR_StringArr(static_cast<const char*>(nullptr)).strArrNum());
    KR_StringArr array(2u);
    array[1] = "b";
    EXPECT_KR_OK(array.strArrIns(0, "a"));
    EXPECT_KR_OK(array.strArrIns(99, "z"));
    EXPECT_KR_OK(array.strArrCat(fromText));
    EXPECT_KR_OK(array.strArrDel(1));
    EXPECT_EQ("a b z first",
              text(array[0]) + " " + text(array[1]) + " " + text(array[2]) + " " + text(array[3]));
    KR_StringArr copy(array);
    array = fromText;
    EXPECT_EQ(4u, copy.strArrNum());
    EXPECT_EQ(1u, array.strArrNum());
    EXPECT_KR_OK(array.strArrCat(array));
    EXPECT_EQ(2u, array.strArrNum());
    EXPECT_FALSE(array.strArrErr());

    krtest::ReportCapture capture;
    EXPECT_EQ(&krInternal::nullRef<KR_String>(), &array[2]);
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, array.strArrDel(2));
    EXPECT_EQ(
            "ERROR: src/kr_str: line N: KR_StringArr array reference\nIndex 2 not in [0,1]"
            "ERROR: src/kr_str: line N: KR_StringArr delete\nIndex 2 not in [0,1]"
            "src/kr_str: line N: \nError on function input arguments\n\n",
            capture.located());
}

TYPED_TEST(Strings, UtilitiesFillOrEmptyTheString) {
    KR_STRING_TYPES;
    auto w = [](const char* t) { return widen<C>(t); };
    auto substitute = [&](S& out, const char* pattern) {
        return KR_W(KR_strSubstitute)(out, w("AbA").c_str(), w("-").c_str(), w(pattern).c_str(),
                                      static_cast<unsigned char>(0));
    };
    S out(w("old").c_str());
    EXPECT_KR_STATUS(KR_RET_TRUE, substitute(out, "a"));
    EXPECT_EQ("-b-", text(out));
    EXPECT_KR_STATUS(KR_RET_FALSE, substitute(out, ""));
    EXPECT_EQ("(null)", text(out));
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, substitute(krInternal::nullRef<S>(), "a"));
    EXPECT_EQ(kNotInitialised, capture.located());

    struct Row {
        const char* text;
        unsigned int start, count;
        KR_RET_STATUS status;
        const char* piece;
    };

    const Row rows[] = {{"abcdef", 2, 3, KR_RET_TRUE, "cde"},
                        {"abcdef", 4, 100, KR_RET_TRUE, "ef"},
                        {"abc", 3, 1, KR_RET_FALSE, "(null)"},
                        {"abc", 0, 0, KR_RET_FALSE, "(null)"},
                        {nullptr, 0, 1, KR_RET_FALSE, "(null)"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(shown(row.text) + " " + std::to_string(row.start));
        out = w("stale").c_str();
        std::basic_string<C> t = w(row.text ? row.text : "");
        EXPECT_KR_STATUS(row.status, KR_W(KR_getSubString)(out, row.text ? t.c_str() : nullptr,
                                                           row.start, row.count));
        EXPECT_EQ(row.piece, text(out));
    }
}

TEST(StringUtilities, WidthConversionsIntoStrings) {
    KR_String out("stale");
    KR_StringW outW;
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_strToKorvaneStrW(outW, "conv"));
    EXPECT_EQ("conv", text(outW));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_wStrToKorvaneStr(out, L"back"));
    EXPECT_EQ("back", text(out));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_wStrToKorvaneStr(out, nullptr));
    EXPECT_EQ("(null)", text(out));

    krtest::Utf8Locale locale;
    if (!locale.ok) GTEST_SKIP() << "no UTF-8 locale";
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_GEN, KR_strToKorvaneStrW(outW, "bad \xff"));
    EXPECT_EQ("(null)", text(outW));
    KR_StringW wideFromBad(KR_String("\xc3"));
    EXPECT_EQ("(null)", text(wideFromBad));
    EXPECT_EQ("src/kr_str: line N: \nInternal error\n\nsrc/kr_str: line N: \nInternal error\n\n",
              capture.located());
}

TYPED_TEST(Strings, ControlCharacterEncoding) {
    KR_STRING_TYPES;
    auto encode = KR_W(KR_addControlChars);
    auto decode = KR_W(KR_removeControlChars);
    const char* rows[][2] = {{"a\tb\x07", "a\tb$CHR(BEL)"},  // TAB stays
                             {"x\r\ny", "x\r\ny"},
                             {"\x7f\x1f", "$CHR(DEL)$CHR(US)"},
                             {"\x1b\x01", "$CHR(ESC)$CHR(SOH)"},
                             {"$CHR(NUL)", "$$CHR(NUL)"},  // a written form stays text
                             {"\xe9\x80\xff", "\xe9\x80\xff"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row[1]);
        S encoded(widen<C>("stale").c_str()), decoded(encoded);
        EXPECT_KR_STATUS(KR_RET_TRUE, encode(encoded, widen<C>(row[0]).c_str()));
        EXPECT_EQ(row[1], text(encoded));
        EXPECT_KR_STATUS(KR_RET_TRUE, decode(decoded, static_cast<const C*>(encoded)));
        EXPECT_EQ(row[0], text(decoded));
    }
    S out;
    EXPECT_KR_STATUS(KR_RET_TRUE, decode(out, widen<C>("$$CHR(\n)").c_str()));
    EXPECT_EQ("$CHR(\n)", text(out));
    EXPECT_KR_STATUS(KR_RET_TRUE, decode(out, widen<C>("$CHR(NUL)x$CHR(LF)$CHR(XYZ)").c_str()));
    EXPECT_EQ(widen<C>(std::string("\0x\n$CHR(XYZ)", 12)),
              std::basic_string<C>(static_cast<const C*>(out), 12));
    EXPECT_KR_STATUS(KR_RET_TRUE, encode(out, static_cast<const C*>(nullptr)));
    EXPECT_EQ("(null)", text(out));
    {
        // An out that is not initialised is reported, yet the work runs and answers.
        krtest::ReportCapture capture;
        S& dead = krInternal::nullRef<S>();
        EXPECT_KR_STATUS(KR_RET_TRUE, encode(dead, widen<C>("\x07").c_str()));
        EXPECT_KR_STATUS(KR_RET_TRUE, decode(dead, widen<C>("$CHR(BEL)").c_str()));
        EXPECT_EQ(std::string(kNotInitialised) + kNotInitialised, capture.located());
        EXPECT_EQ(nullptr, static_cast<const C*>(dead));
    }

    // Random texts round-trip, except for a "$" right before a control character, which the
    // encoding cannot tell from an escaped form.
    const char* pieces[] = {"a", "$",    "$CHR(", "$CHR(NUL)", "$$CHR(",
                            ")", "\x01", "\x7f",  "\t",        "\xe9"};
    std::mt19937 rng(5);
    for (int i = 0; i < 2000; ++i) {
        std::string plain;
        for (int n = rng() % 8; n > 0; --n)
            plain += pieces[rng() % (sizeof pieces / sizeof *pieces)];
        if (plain.find("$\x01") != std::string::npos || plain.find("$\x7f") != std::string::npos) {
            continue;
        }
        SCOPED_TRACE(plain);
        S encoded, decoded;
        ASSERT_KR_OK(encode(encoded, widen<C>(plain).c_str()));
        ASSERT_KR_OK(decode(decoded, static_cast<const C*>(encoded)));
        ASSERT_EQ(plain, text(decoded));
    }
}

TYPED_TEST(Strings, SplitAndJoin) {
    using C = CharOf<TypeParam>;

    struct Row {
        const char* name;
        const char* text;
        const char* delimiters;
        char quote, escape;
        unsigned char keepEmpty, trim;
        std::vector<std::string> tokens;
    };

    const Row rows[] = {{"separator runs and ends", ",a,,b,", ",", 0, 0, 0, 0, {"a", "b"}},
                        {"no delimiters", "a,b", nullptr, 0, 0, 0, 0, {"a,b"}},
                        {"no delimiters, empty text", "", nullptr, 0, 0, 0, 0, {""}},
                        {"only separators", ",;,", ",;", 0, 0, 0, 0, {}},
                        {"empty text", "", ",", 0, 0, 0, 0, {}},
                        {"null text", nullptr, ",", 0, 0, 0, 0, {}},
                        {"several delimiters", "a b;\xe9", " ;", 0, 0, 0, 0, {"a", "b", "\xe9"}},
                        {"keep empty", ",a,,b,", ",", 0, 0, 1, 0, {"", "a", "", "b", ""}},
                        {"quoted delimiter", "\"a,b\",c", ",", '"', 0, 0, 0, {"a,b", "c"}},
                        {"quoted empty is a token", "a,\"\",b", ",", '"', 0, 0, 0, {"a", "", "b"}},
                        {"escaped delimiter", "a\\,b,c\\", ",", 0, '\\', 0, 0, {"a,b", "c\\"}},
                        {"trim", " a , b ,  ,", ",", 0, 0, 0, 1, {"a", "b"}},
                        {"trim keeps quoted space", " \" a \" ,b", ",", '"', 0, 0, 1, {" a ", "b"}},
                        {"trim keeps escaped space", "a\\ , b", ",", 0, '\\', 1, 1, {"a ", "b"}},
                        {"unclosed quote", "a,\"b,c", ",", '"', 0, 0, 0, {"a", "b,c"}}};
    auto raw = [](const std::basic_string<C>& t, const char* source) {
        return source == nullptr ? nullptr : t.c_str();
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::basic_string<C> t = widen<C>(row.text ? row.text : "");
        std::basic_string<C> d = widen<C>(row.delimiters ? row.delimiters : "");
        KR_Array<TypeParam> out(3);
        bool plain = row.quote == 0 && row.escape == 0 && row.keepEmpty == 0 && row.trim == 0;
        if (plain) {
            ASSERT_KR_STATUS(KR_RET_TRUE,
                             KR_W(KR_splitString)(raw(t, row.text), raw(d, row.delimiters), out));
            EXPECT_EQ(row.tokens, texts(out));
        }
        ASSERT_KR_STATUS(KR_RET_TRUE, KR_W(KR_splitString)(raw(t, row.text), raw(d, row.delimiters),
                                                           out, C(row.quote), C(row.escape),
                                                           row.keepEmpty, row.trim));
        EXPECT_EQ(row.tokens, texts(out));
        TypeParam joined;
        EXPECT_KR_OK(KR_W(KR_stringArrToString)(joined, out, widen<C>("|").c_str()));
        std::string expected = row.tokens.empty() ? "(null)" : "";
        for (size_t i = 0; i < row.tokens.size(); ++i)
            expected += (i ? "|" : "") + row.tokens[i];
        EXPECT_EQ(expected, text(joined));
    }
}

TEST(StringUtilities, SplitAgreesWithStrtok) {
    std::mt19937 rng(1234);
    const char alphabet[] = "ab, ;";
    for (int i = 0; i < 2000; ++i) {
        std::string input(rng() % 30, ' ');
        for (char& c : input)
            c = alphabet[rng() % 5];
        const char* delimiters = i % 2 ? ", " : ",; ";
        SCOPED_TRACE("'" + input + "' at '" + delimiters + "'");
        std::vector<std::string> expected;
        std::string work = input;
        for (char* t = strtok(&work[0], delimiters); t != nullptr;
             t = strtok(nullptr, delimiters)) {
            expected.push_back(t);
        }
        KR_Array<KR_String> out;
        ASSERT_KR_STATUS(KR_RET_TRUE, KR_splitString(input.c_str(), delimiters, out));
        ASSERT_EQ(expected, texts(out));
    }
}

namespace {

// What the string fault walk works on, rebuilt before every run.
struct Strs {
    KR_String s{"start"}, t;
    KR_StringW w{L"start"}, tw;
    KR_Array<KR_String> arr;
    KR_Array<KR_StringW> arrW;
    KR_StringArr sa{"x"}, other{"z"};
    KR_FileAscii file;

    Strs() {
        KR_splitString("p,q", ",", arr);
        KR_splitStringW(L"p,q", L",", arrW);
        sa.strArrIns(1, "y");
    }

    // "s|w|t|tw|arr|arrW|sa", arrays joined with ",".
    std::string summary() {
        std::string out = text(s) + "|" + text(w) + "|" + text(t) + "|" + text(tw) + "|";
        for (auto& piece : {texts(arr), texts(arrW)}) {
            for (size_t i = 0; i < piece.size(); ++i)
                out += (i ? "," : "") + piece[i];
            out += "|";
        }
        for (unsigned int i = 0; i < sa.strArrNum(); ++i)
            out += (i ? "," : "") + text(sa[i]);
        return out;
    }
};

}  // namespace

// Every allocating operation of the strings, the string array and the utilities that fill
// them: after each failed allocation the operation answers KR_RET_ERR_MEM (constructors and
// operators through the last status code), reports "Memory error", leaks nothing, and leaves the
// state as documented: a failed copy leaves a null string, an append or insertion keeps the old
// text, an output that failed holds no half result.
TEST(StringFaults, EveryAllocationFailureLeavesTheDocumentedState) {
    KR_REQUIRE_FAULT_INJECTION();
    krtest::ReportCapture capture;
    KR_Version version;
    const std::string path = ::testing::TempDir() + "kr_str_faults.txt";
    {
        KR_FileAscii file(path.c_str(), KR_FILE_MODE_WRITE);
        file.print("<STRING>read</STRING>\n");
    }
    char packed[32], packedW[32];
    unsigned int used = 0;
    KR_String("packed").pack(version, packed, used, KR_STORAGE_BINARY);
    KR_StringW(L"packed").pack(version, packedW, used, KR_STORAGE_BINARY);
    // The summaries after a failure: as at the start, or with one string or array emptied.
    const std::string kStart = "start|start|(null)|(null)|p,q|p,q|", kKept = kStart + "x,y",
                      kNullS = "(null)|start|(null)|(null)|p,q|p,q|x,y",
                      kNullW = "start|(null)|(null)|(null)|p,q|p,q|x,y",
                      kNoArr = "start|start|(null)|(null)||p,q|x,y",
                      kNoArrW = "start|start|(null)|(null)|p,q||x,y";
    auto code = [] { return KR_getStatusCode(); };

    const struct {
        const char* name;
        std::string after;  // the summary after a failure; "*" for any
        std::function<KR_RET_STATUS(Strs&)> op;
    } rows[] = {
            {"copy assignment", kNullS, [&](Strs& x) { return (x.s = KR_String("copy"), code()); }},
            {"text assignment", kNullS, [&](Strs& x) { return (x.s = "other", code()); }},
            {"from wide text", kKept, [&](Strs& x) { return (x.t = KR_String(L"wide"), code()); }},
            {"wide from narrow text", kKept,
             [&](Strs& x) { return (x.tw = KR_StringW("narrow"), code()); }},
            {"copy constructor", kKept,
             [&](Strs& x) {
                 KR_String copy(x.s);
                 return (x.t = copy, code());
             }},
            {"wide copy constructor", kKept,
             [&](Strs& x) {
                 KR_StringW copy(x.w);
                 return (x.tw = copy, code());
             }},
            {"operator+", kKept, [&](Strs& x) { return (x.t = x.s + L"+", code()); }},
            {"operator+ with text on the left", kKept,
             [&](Strs& x) { return (x.t = "+" + x.s, code()); }},
            {"wide operator+", kKept, [&](Strs& x) { return (x.tw = x.w + "+", code()); }},
            {"wide operator+ with text on the left", kKept,
             [&](Strs& x) { return (x.tw = L"+" + x.w, code()); }},
            {"append", kKept, [&](Strs& x) { return (x.s += L"tail", code()); }},
            {"wide append", kKept, [&](Strs& x) { return (x.w += "tail", code()); }},
            {"insert", kKept, [&](Strs& x) { return x.s.strIns(1, L"ins"); }},
            {"wide insert", kKept, [&](Strs& x) { return x.w.strIns(1, "ins"); }},
            {"allocate", kNullS, [&](Strs& x) { return x.s.allocate(8); }},
            {"wide allocate", kNullW, [&](Strs& x) { return x.w.allocate(8); }},
            {"unpack", kNullS,
             [&](Strs& x) {
                 unsigned int got = 1;
                 KR_RET_STATUS st = x.s.unpack(version, packed, got, KR_STORAGE_BINARY);
                 return krtest::failed(st) && got != 0 ? KR_RET_ERR_GEN : st;
             }},
            {"wide unpack", kNullW,
             [&](Strs& x) { return x.w.unpack(version, packedW, used, KR_STORAGE_BINARY); }},
            {"text persist", kKept,
             [&](Strs& x) {
                 KR_RET_STATUS st = x.file.open((path + ".out").c_str(), KR_FILE_MODE_WRITE);
                 if (krtest::failed(st)) return st;
                 st = x.s.persist(version, x.file);
                 return krtest::failed(st) ? st : x.w.persist(version, x.file);
             }},
            {"text restore", kKept,
             [&](Strs& x) {
                 KR_RET_STATUS st = x.file.open(path.c_str(), KR_FILE_MODE_READ);
                 return krtest::failed(st) ? st : x.t.restore(version, x.file);
             }},
            {"wide text restore", kKept,
             [&](Strs& x) {
                 KR_RET_STATUS st = x.file.open(path.c_str(), KR_FILE_MODE_READ);
                 return krtest::failed(st) ? st : x.tw.restore(version, x.file);
             }},
            {"substitute", kNullS,
             [&](Strs& x) { return KR_strSubstitute(x.s, "aXa", "b", "x", 0); }},
            {"wide substitute", kNullW,
             [&](Strs& x) { return KR_strSubstituteW(x.w, L"aXa", L"b", L"x", 0); }},
            {"add control characters", kNullS,
             [&](Strs& x) { return KR_addControlChars(x.s, "$CHR(\x01"); }},
            {"wide add control characters", kNullW,
             [&](Strs& x) { return KR_addControlCharsW(x.w, L"$CHR(\x01"); }},
            {"remove control characters", kNullS,
             [&](Strs& x) { return KR_removeControlChars(x.s, "$$CHR($CHR(LF)"); }},
            {"wide remove control characters", kNullW,
             [&](Strs& x) { return KR_removeControlCharsW(x.w, L"$$CHR($CHR(LF)"); }},
            {"substring", kNullS, [&](Strs& x) { return KR_getSubString(x.s, "abc", 1, 1); }},
            {"wide substring", kNullW,
             [&](Strs& x) { return KR_getSubStringW(x.w, L"abc", 1, 1); }},
            {"to narrow string", kNullS, [&](Strs& x) { return KR_wStrToKorvaneStr(x.s, L"w"); }},
            {"to wide string", kNullW, [&](Strs& x) { return KR_strToKorvaneStrW(x.w, "n"); }},
            {"split", kNoArr, [&](Strs& x) { return KR_splitString("a,,b", ",", x.arr); }},
            {"general split", kNoArr,
             [&](Strs& x) { return KR_splitString("a,\"b c\",d", ",", x.arr, '"', 0, 0, 1); }},
            {"wide split", kNoArrW,
             [&](Strs& x) { return KR_splitStringW(L"a,,b", L",", x.arrW); }},
            {"wide general split", kNoArrW,
             [&](Strs& x) {
                 return KR_splitStringW(L"a;'b c';d", L";", x.arrW, L'\'', L'\\', 1, 1);
             }},
            {"join", kNullS, [&](Strs& x) { return KR_stringArrToString(x.s, x.arr, "+"); }},
            {"wide join", kNullW,
             [&](Strs& x) { return KR_stringArrToStringW(x.w, x.arrW, L"+"); }},
            {"string array copy", kKept,
             [&](Strs& x) {
                 KR_StringArr copy(x.sa);
                 return copy.strArrErr() && copy.strArrNum() == 0 ? code() : KR_RET_TRUE;
             }},
            {"string array assignment", kStart,
             [&](Strs& x) { return (x.sa = x.other).strArrErr() ? code() : KR_RET_TRUE; }},
            {"string array insert and append", "*",
             [&](Strs& x) {
                 KR_RET_STATUS st = x.sa.strArrIns(0, "z");
                 return krtest::failed(st) ? st : x.sa.strArrCat(x.sa);
             }},
            {"string array delete", kKept, [&](Strs& x) { return x.sa.strArrDel(0); }},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        int failures = 0;
        krtest::forEachAllocationFailure(
                [] { return std::make_unique<Strs>(); },
                [&](std::unique_ptr<Strs>& x) {
                    capture.clear();
                    KR_clearStatusCode();
                    return row.op(*x);
                },
                [&](std::unique_ptr<Strs>& x, KR_RET_STATUS status, unsigned long) {
                    ++failures;
                    EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                    EXPECT_NE(std::string::npos, capture.located().find("\nMemory error\n\n"));
                    if (row.after != "*") {
                        EXPECT_EQ(row.after, x->summary());
                    }
                });
        EXPECT_LT(0, failures);
    }
    remove(path.c_str());
    remove((path + ".out").c_str());
}
