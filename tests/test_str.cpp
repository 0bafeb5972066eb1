// test_str.cpp — KR_String, KR_StringArr and the utilities that fill them; KR_StringW runs the
// same code on wide units, so its tests cover what differs.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "kr_array_impl.h"
#include "kr_file.h"

#include "test_support.h"

namespace {

const char kNotInitialised[] = "src/kr_str: line N: \nKorvane object not initialized\n\n";
const char kArgError[] = "src/kr_str: line N: \nError on function input arguments\n\n";

// The text unit by unit as bytes (the tables are ASCII or Latin-1), "(null)" for null.
template <class C>
std::string shown(const C* t) {
    std::string result = t == nullptr ? "(null)" : "";
    for (; t != nullptr && *t != 0; ++t)
        result.push_back(static_cast<char>(*t));
    return result;
}

std::string text(const KR_String& s) {
    return shown(static_cast<const char*>(s));
}

std::string text(const KR_StringW& s) {
    return shown(static_cast<const wchar_t*>(s));
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

}  // namespace

TEST(String, NullEmptyCopyAssignAllocateAdopt) {
    KR_String null(static_cast<const char*>(nullptr)), empty(""), byDefault, other(L"other");
    EXPECT_EQ("(null)|", text(null) + "|" + text(empty));
    EXPECT_TRUE(null == empty && byDefault == "" && null == static_cast<const wchar_t*>(nullptr));
    EXPECT_FALSE(null != empty || null < empty || null > empty);
    KR_String copy(other);
    EXPECT_EQ("other", text(copy));
    EXPECT_NE(static_cast<const char*>(other), static_cast<const char*>(copy));
    copy = L"wide";
    copy = static_cast<KR_String&>(copy);
    EXPECT_EQ("wide", text(copy));
    copy = static_cast<const char*>(nullptr);
    EXPECT_EQ("(null)", text(copy));
    EXPECT_KR_OK(copy.allocate(3));
    EXPECT_EQ("", text(copy));
    char* block = KR_strdup("o");
    EXPECT_KR_STATUS(KR_RET_TRUE, copy.assignPtr(block));
    EXPECT_KR_STATUS(KR_RET_TRUE, copy.assignPtr(block));  // adopting its own text frees nothing
    EXPECT_EQ("o", text(copy));
}

TEST(String, OutOfRangeAccessAndObjectsNotInitialisedAreReported) {
    KR_String s("abc"), empty("");
    KR_StringW wide(L"ab");
    s[1] = 'X';
    EXPECT_EQ("aXc", text(s));
    krtest::ReportCapture capture;
    EXPECT_EQ(&krInternal::nullRef<char>(), &s[-1]);
    EXPECT_EQ(&krInternal::nullRef<char>(), &s[3]);
    EXPECT_EQ(&krInternal::nullRef<char>(), &empty[0]);
    EXPECT_EQ(&krInternal::nullRef<wchar_t>(), &wide[2]);
    const std::string head = "ERROR: src/kr_str: line N: KR_String: character access\nIndex ";
    EXPECT_EQ(
            head + "-1 not in [0,2]" + head + "3 not in [0,2]" + head + "0 not in [0,-1]" +
                    "ERROR: src/kr_str: line N: KR_StringW: character access\nIndex 2 not in [0,1]",
            capture.located());

    // The shared null block reads as a string whose flag is clear.
    KR_String& dead = krInternal::nullRef<KR_String>();
    KR_String live("x");
    capture.clear();
    EXPECT_EQ(6u, dead.strLeng());
    EXPECT_EQ(&dead, &(dead = "text"));
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, dead.strIns(0, "a"));
    EXPECT_FALSE(dead == live || live == dead || dead < live || dead > live);
    EXPECT_TRUE(dead != live && live != dead && dead != "x");
    live += dead;
    EXPECT_EQ("x x", text(live + dead) + " " + text(live));
    KR_String copy(dead);
    EXPECT_TRUE(copy.objIsEnabled() && text(copy) == "(null)");
    EXPECT_EQ(std::string(kNotInitialised) + kNotInitialised + kNotInitialised + kNotInitialised,
              capture.located());
    EXPECT_EQ(nullptr, static_cast<const char*>(dead));
}

TEST(String, ComparisonsAcrossWidthsAndSides) {
    const char* rows[][2] = {{"abc", "abd"}, {"b", "abc"}, {"same", "same"}, {"\xe9", "z"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row[0]) + " / " + row[1]);
        int order = (strcmp(row[0], row[1]) > 0) - (strcmp(row[0], row[1]) < 0);
        KR_String a(row[0]), b(row[1]);
        EXPECT_EQ(order, (a > b) - (a < b));
        EXPECT_EQ(order == 0, a == b && !(a != b));
        EXPECT_EQ(order, (a > row[1]) - (a < row[1]));
        EXPECT_EQ(order, (row[1] < a) - (row[1] > a));
        EXPECT_EQ(order == 0, row[1] == a && !(row[1] != a));
        // Mixed widths convert through the locale; keep to ASCII there.
        if (static_cast<unsigned char>(row[0][0]) >= 0x80) continue;
        std::wstring wide(row[1], row[1] + strlen(row[1]));
        KR_StringW object(wide.c_str());
        EXPECT_EQ(order, (a > object) - (a < object));
        EXPECT_EQ(order == 0, a == object && wide.c_str() == a);
        EXPECT_EQ(order, (a > wide.c_str()) - (wide.c_str() > a));
    }
}

TEST(String, ConcatenationAndInsertion) {
    KR_String a("ab"), null;
    EXPECT_EQ("abcd abcd xyab xyab abW ab", text(a + "cd") + " " + text(a + L"cd") + " " +
                                                    text("xy" + a) + " " + text(L"xy" + a) + " " +
                                                    text(a + KR_StringW(L"W")) + " " +
                                                    text(static_cast<const wchar_t*>(nullptr) + a));
    a += a;
    a += L"!";
    a += static_cast<const char*>(nullptr);
    EXPECT_EQ("abab!", text(a));
    null += "x";

    std::string inserted;
    for (unsigned int position : {100u, 0u, 1u}) {
        KR_String s("ab"), t(s);
        EXPECT_KR_OK(s.strIns(position, "X"));
        EXPECT_KR_OK(t.strIns(position, L"X"));
        inserted += text(s) + text(t) + " ";
    }
    EXPECT_EQ("abXabX XabXab aXbaXb ", inserted);
    a = "ab";
    EXPECT_KR_STATUS(KR_RET_TRUE, a.strIns(1, static_cast<const char*>(nullptr)));
    EXPECT_KR_STATUS(KR_RET_TRUE, a.strIns(1, a));
    EXPECT_EQ("aabb", text(a));
    EXPECT_KR_STATUS(KR_RET_TRUE, null.strIns(5, L"y"));
    EXPECT_EQ("xy", text(null));
}

TEST(String, PackedFormRoundTripsInBothWidthsAndRejectsOtherStorage) {
    KR_Version version;
    for (const char* row : {static_cast<const char*>(nullptr), "", "a b\t\xff"}) {
        SCOPED_TRACE(shown(row));
        KR_String s(row), back("previous");
        unsigned int n = row ? static_cast<unsigned int>(strlen(row)) + 1 : 0, used = 99;
        ASSERT_EQ(4 + n, s.getPackedSize(version, KR_STORAGE_BINARY));
        std::vector<char> buffer(4 + n + 8, '\x55');
        ASSERT_KR_STATUS(KR_RET_TRUE, s.pack(version, buffer.data(), used, KR_STORAGE_BINARY));
        ASSERT_EQ(4 + n, used);
        EXPECT_EQ(std::string({char(n), 0, 0, 0}) + std::string(row ? row : "", n),
                  std::string(buffer.data(), used));
        EXPECT_EQ('\x55', buffer[used]) << "wrote past the packed size";
        used = 99;
        ASSERT_KR_STATUS(KR_RET_TRUE, back.unpack(version, buffer.data(), used, KR_STORAGE_BINARY));
        EXPECT_EQ(4 + n, used);
        EXPECT_EQ(text(s), text(back));
    }
    // U+1F600 is one wchar_t on Linux and a surrogate pair on Windows: the same bytes either way.
    KR_StringW wide(L"A\U0001F600\u00e9"), back;
    const std::string utf16("\x05\0\0\0A\0\x3d\xd8\0\xde\xe9\0\0\0", 14);
    ASSERT_EQ(utf16.size(), wide.getPackedSize(version, KR_STORAGE_BINARY));
    char buffer[32];
    unsigned int used = 0, usedBack = 0;
    ASSERT_KR_STATUS(KR_RET_TRUE, wide.pack(version, buffer, used, KR_STORAGE_BINARY));
    EXPECT_EQ(utf16, std::string(buffer, used));
    ASSERT_KR_STATUS(KR_RET_TRUE, back.unpack(version, buffer, usedBack, KR_STORAGE_BINARY));
    EXPECT_EQ(utf16.size(), usedBack);
    EXPECT_EQ(std::wstring(L"A\U0001F600\u00e9"), static_cast<const wchar_t*>(back));

    krtest::ReportCapture capture;
    EXPECT_EQ(0u, wide.getPackedSize(version, KR_STORAGE_UNDEF));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, wide.pack(version, buffer, used, KR_STORAGE_UNDEF));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, back.unpack(version, buffer, usedBack, KR_STORAGE_UNDEF));
    EXPECT_EQ(0u, used + usedBack);
    EXPECT_EQ(std::string(kArgError) + kArgError + kArgError, capture.located());
}

TEST(String, TextAndBinaryPersistence) {
    KR_Version version;
    KR_String s("stale");
    KR_StringW w(L"stale");
    std::string path = ::testing::TempDir() + "kr_str_persist.txt";
    {
        KR_FileAscii file(path.c_str(), KR_FILE_MODE_WRITE);
        for (const char* t : {"a b", static_cast<const char*>(nullptr), "c"})
            EXPECT_KR_STATUS(KR_RET_TRUE, KR_String(t).persist(version, file));
        EXPECT_KR_STATUS(KR_RET_TRUE, KR_StringW(L"w").persist(version, file));
    }
    EXPECT_EQ("<STRING>a b</STRING>\n<STRING></STRING>\n<STRING>c</STRING>\n<STRINGW>w</STRINGW>\n",
              fileText(path));
    {
        // Not initialised: reported, yet reads past its entry. Wide: reads narrow entries only.
        KR_FileAscii file(path.c_str(), KR_FILE_MODE_READ);
        krtest::ReportCapture capture;
        KR_String& dead = krInternal::nullRef<KR_String>();
        EXPECT_KR_STATUS(KR_RET_TRUE, dead.KR_String::restore(version, file));  // no vtable
        EXPECT_EQ(kNotInitialised, capture.located());
        EXPECT_KR_STATUS(KR_RET_TRUE, s.restore(version, file));
        EXPECT_EQ(0u, s.strLeng());
        EXPECT_KR_STATUS(KR_RET_TRUE, w.restore(version, file));
        EXPECT_EQ("c", text(w));
        EXPECT_KR_STATUS(KR_RET_FALSE, w.restore(version, file));
    }
    path = ::testing::TempDir() + "kr_str_persist.bin";
    unsigned int written[2], read = 0;
    {
        KR_FileBinary file(path.c_str(), KR_FILE_MODE_WRITE);
        ASSERT_KR_OK(KR_String("abc").persist(version, file, written[0]));
        ASSERT_KR_OK(KR_StringW(L"x\U0001F600").persist(version, file, written[1]));
    }
    EXPECT_EQ(8u + 12u, written[0] + written[1]);
    EXPECT_EQ(8u + 12u, fileText(path).size());
    KR_FileBinary file(path.c_str(), KR_FILE_MODE_READ);
    ASSERT_KR_OK(s.restore(version, file, read));
    EXPECT_EQ("abc", text(s));
    EXPECT_EQ(8u, read);
    ASSERT_KR_OK(w.restore(version, file, read));
    EXPECT_EQ(std::wstring(L"x\U0001F600"), static_cast<const wchar_t*>(w));
}

TEST(String, PrintsThroughTheStreamHandlers) {
    static std::string printed;
    KR_OStream stream;
    stream.setConsoleHandler([](char* t) { return printed += shown(t), KR_RET_TRUE; });
    stream.setConsoleHandlerW([](wchar_t* t) { return printed += shown(t), KR_RET_TRUE; });
    KR_StringArr array(2u);
    array[0] = "one";
    stream << KR_String("n") << KR_String() << KR_StringW(L"w") << KR_StringW()
           << krInternal::nullRef<KR_String>() << array;
    EXPECT_EQ("nwone\n\n", printed);
}

TEST(StringArr, GrowsShrinksAndReports) {
    KR_StringArr fromText("first"), array(2u);
    EXPECT_EQ("first", text(fromText[0]));
    EXPECT_EQ(0u, KR_StringArr(static_cast<const char*>(nullptr)).strArrNum());
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
    EXPECT_KR_OK(array.strArrCat(array));
    EXPECT_EQ("first first", text(array[0]) + " " + text(array[1]));
    EXPECT_FALSE(array.strArrErr());

    krtest::ReportCapture capture;
    EXPECT_EQ(&krInternal::nullRef<KR_String>(), &array[2]);
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, array.strArrDel(2));
    const std::string head = "ERROR: src/kr_str: line N: KR_StringArr ";
    EXPECT_EQ(head + "array reference\nIndex 2 not in [0,1]" + head +
                      "delete\nIndex 2 not in [0,1]" + kArgError,
              capture.located());
}

TEST(StringUtilities, SubstituteAndSubStringFillOrEmptyTheString) {
    KR_String out("old");
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_strSubstitute(out, "AbA", "-", "a", 0));
    EXPECT_EQ("-b-", text(out));
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_strSubstitute(out, "AbA", "-", "", 0));
    EXPECT_EQ("(null)", text(out));
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ,
                     KR_strSubstitute(krInternal::nullRef<KR_String>(), "AbA", "-", "a", 0));

    const std::tuple<const char*, unsigned int, unsigned int, KR_RET_STATUS, const char*> rows[] = {
            {"abcdef", 2, 3, KR_RET_TRUE, "cde"},
            {"abcdef", 4, 100, KR_RET_TRUE, "ef"},
            {"abc", 3, 1, KR_RET_FALSE, "(null)"},
            {"abc", 0, 0, KR_RET_FALSE, "(null)"},
            {nullptr, 0, 1, KR_RET_FALSE, "(null)"}};
    for (auto [whole, start, count, status, piece] : rows) {
        SCOPED_TRACE(shown(whole) + " " + std::to_string(start));
        out = "stale";
        EXPECT_KR_STATUS(status, KR_getSubString(out, whole, start, count));
        EXPECT_EQ(piece, text(out));
    }
}

TEST(StringUtilities, ControlCharacterEncoding) {
    const char* rows[][2] = {{"a\tb\x07\r\n", "a\tb$CHR(BEL)\r\n"},  // TAB, CR and LF stay
                             {"\x7f\x1f", "$CHR(DEL)$CHR(US)"},
                             {"$CHR(NUL)", "$$CHR(NUL)"},  // a written form stays text
                             {"\xe9\x80\xff", "\xe9\x80\xff"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row[1]);
        KR_String encoded("stale"), decoded(encoded);
        EXPECT_KR_STATUS(KR_RET_TRUE, KR_addControlChars(encoded, row[0]));
        EXPECT_EQ(row[1], text(encoded));
        EXPECT_KR_STATUS(KR_RET_TRUE, KR_removeControlChars(decoded, encoded));
        EXPECT_EQ(row[0], text(decoded));
    }
    KR_String out;
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_removeControlChars(out, "$CHR(NUL)x$CHR(LF)$CHR(XYZ)"));
    EXPECT_EQ(std::string("\0x\n$CHR(XYZ)", 12), std::string(static_cast<const char*>(out), 12));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_addControlChars(out, nullptr));
    EXPECT_EQ("(null)", text(out));
    // An out that is not initialised is reported, yet the work runs and answers.
    krtest::ReportCapture capture;
    KR_String& dead = krInternal::nullRef<KR_String>();
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_addControlChars(dead, "\x07"));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_removeControlChars(dead, "$CHR(BEL)"));

    // Random texts round-trip; no "$" stands right before a control character, which the encoding
    // could not tell from an escaped form.
    const char* pieces[] = {"a", "$a", "$CHR(", "$CHR(NUL)", "$$CHR(", ")", "\x01", "\x7f", "\t"};
    std::mt19937 rng(5);
    for (int i = 0; i < 2000; ++i) {
        std::string plain;
        for (int n = rng() % 8; n > 0; --n)
            plain += pieces[rng() % (sizeof pieces / sizeof *pieces)];
        SCOPED_TRACE(plain);
        KR_String encoded, decoded;
        ASSERT_KR_OK(KR_addControlChars(encoded, plain.c_str()));
        ASSERT_KR_OK(KR_removeControlChars(decoded, encoded));
        ASSERT_EQ(plain, text(decoded));
    }
}

TEST(StringUtilities, SplitAndJoin) {
    const std::tuple<const char*, const char*, char, char, unsigned char, unsigned char,
                     std::vector<std::string>>
            rows[] = {{",a,,b,", ",", 0, 0, 0, 0, {"a", "b"}},
                      {"a b;\xe9", " ;", 0, 0, 0, 0, {"a", "b", "\xe9"}},
                      {"a,b", nullptr, 0, 0, 0, 0, {"a,b"}},
                      {"", nullptr, 0, 0, 0, 0, {""}},
                      {nullptr, ",", 0, 0, 0, 0, {}},
                      {",a,,b,", ",", 0, 0, 1, 0, {"", "a", "", "b", ""}},
                      {"\"a,b\",c", ",", '"', 0, 0, 0, {"a,b", "c"}},
                      {"a,\"\",b", ",", '"', 0, 0, 0, {"a", "", "b"}},
                      {"a\\,b,c\\", ",", 0, '\\', 0, 0, {"a,b", "c\\"}},
                      {" a , b ,  ,", ",", 0, 0, 0, 1, {"a", "b"}},
                      {" \" a \" ,b", ",", '"', 0, 0, 1, {" a ", "b"}},
                      {"a\\ , b", ",", 0, '\\', 1, 1, {"a ", "b"}},
                      {"a,\"b,c", ",", '"', 0, 0, 0, {"a", "b,c"}}};
    for (const auto& [input, delimiters, quote, escape, keepEmpty, trim, tokens] : rows) {
        SCOPED_TRACE(shown(input));
        KR_Array<KR_String> out(3);
        ASSERT_KR_STATUS(KR_RET_TRUE,
                         KR_splitString(input, delimiters, out, quote, escape, keepEmpty, trim));
        EXPECT_EQ(tokens, texts(out));
        KR_String joined;
        EXPECT_KR_OK(KR_stringArrToString(joined, out, "|"));
        std::string expected = tokens.empty() ? "(null)" : "";
        for (size_t i = 0; i < tokens.size(); ++i)
            expected += (i ? "|" : "") + tokens[i];
        EXPECT_EQ(expected, text(joined));
    }
}

// The wide twins share the narrow code but convert narrow input and have their own entry points.
TEST(StringW, TakesNarrowInputAndRunsTheWideUtilities) {
    KR_StringW w("ab"), out;
    w += "c";
    EXPECT_KR_OK(w.strIns(0, "x"));
    EXPECT_EQ("xabcd yxabc", text(w + "d") + " " + text("y" + w));
    EXPECT_TRUE(w == "xabc" && "xabc" == w && w > "a" && "z" > w && KR_String("a") < w);
    KR_Array<KR_StringW> parts;
    KR_StringW joined, encoded, decoded, replaced, piece;
    ASSERT_KR_OK(KR_splitStringW(L"a;'b c';d", L";", parts, L'\'', L'\\', 0, 1));
    ASSERT_KR_OK(KR_stringArrToStringW(joined, parts, L"+"));
    ASSERT_KR_OK(KR_addControlCharsW(encoded, L"\x07x"));
    ASSERT_KR_OK(KR_removeControlCharsW(decoded, L"$CHR(LF)"));
    ASSERT_KR_OK(KR_strSubstituteW(replaced, L"AbA", L"-", L"a", 0));
    ASSERT_KR_OK(KR_getSubStringW(piece, L"abcdef", 4, 100));
    EXPECT_EQ("a+b c+d $CHR(BEL)x \n -b- ef", text(joined) + " " + text(encoded) + " " +
                                                      text(decoded) + " " + text(replaced) + " " +
                                                      text(piece));
    KR_String narrow("stale"), fromNull("stale");
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_strToKorvaneStrW(out, "conv"));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_wStrToKorvaneStr(narrow, L"back"));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_wStrToKorvaneStr(fromNull, nullptr));
    EXPECT_EQ("conv back (null)", text(out) + " " + text(narrow) + " " + text(fromNull));

    krtest::Utf8Locale locale;
    if (!locale.ok) GTEST_SKIP() << "no UTF-8 locale";
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_GEN, KR_strToKorvaneStrW(out, "bad \xff"));
    EXPECT_EQ("(null) (null)", text(out) + " " + text(KR_StringW(KR_String("\xc3"))));
    EXPECT_EQ("src/kr_str: line N: \nInternal error\n\nsrc/kr_str: line N: \nInternal error\n\n",
              capture.located());
}

namespace {

const std::string kFaultPath = ::testing::TempDir() + "kr_str_faults.txt";

// What the string fault walk works on, rebuilt before every run (its allocations do not count).
struct Strs {
    KR_String s{"start"}, t;
    KR_StringW w{L"start"}, tw;
    KR_Array<KR_String> arr;
    KR_StringArr sa{"x"}, other{"z"};
    KR_FileAscii in{kFaultPath.c_str(), KR_FILE_MODE_READ};

    Strs() {
        KR_splitString("p,q", ",", arr);
        sa.strArrIns(1, "y");
    }

    // "s|w|t|tw|arr,|sa"
    std::string summary() {
        std::string result = text(s) + "|" + text(w) + "|" + text(t) + "|" + text(tw) + "|";
        for (const std::string& piece : texts(arr))
            result += piece + ",";
        for (unsigned int i = 0; i < sa.strArrNum(); ++i)
            result += "|" + text(sa[i]);
        return result;
    }
};

}  // namespace

// Every allocation site (a wide twin shares its narrow one but for converting narrow input): a
// failure answers KR_RET_ERR_MEM (constructors and operators through the status code), is reported,
// leaks nothing and leaves a failed copy or output null and an append or insertion unchanged.
TEST(StringFaults, EveryAllocationFailureLeavesTheDocumentedState) {
    KR_REQUIRE_FAULT_INJECTION();
    krtest::ReportCapture capture;
    KR_Version version;
    std::ofstream(kFaultPath) << "<STRING>read</STRING>\n";
    char packed[] = "\x07\0\0\0packed";
    // The summaries after a failure: as at the start, or with one string or array emptied.
    const std::string kKept = "start|start|(null)|(null)|p,q,|x|y",
                      kNullS = "(null)" + kKept.substr(5),
                      kNullW = "start|(null)" + kKept.substr(11),
                      kNoArr = "start|start|(null)|(null)||x|y";
    auto code = [] { return KR_getStatusCode(); };

    Strs* x = nullptr;  // the state of the current run

    const struct {
        const char* name;
        std::string after;  // the summary after a failure; "*" for any
        std::function<KR_RET_STATUS()> op;
    } rows[] = {
            {"copy assignment", kNullS, [&] { return (x->s = KR_String("copy"), code()); }},
            {"copy constructor", kKept, [&] { return (x->t = KR_String(x->s), code()); }},
            {"from wide text", kKept, [&] { return (x->t = KR_String(L"wide"), code()); }},
            {"wide from text", kKept, [&] { return (x->tw = KR_StringW("narrow"), code()); }},
            {"operator+", kKept, [&] { return (x->t = x->s + L"+", code()); }},
            {"append", kKept, [&] { return (x->s += L"tail", code()); }},
            {"wide append", kKept, [&] { return (x->w += "tail", code()); }},
            {"insert", kKept, [&] { return x->s.strIns(1, L"ins"); }},
            {"allocate", kNullS, [&] { return x->s.allocate(8); }},
            {"unpack", kNullS,
             [&] {
                 unsigned int got = 1;
                 KR_RET_STATUS st = x->s.unpack(version, packed, got, KR_STORAGE_BINARY);
                 return krtest::failed(st) && got != 0 ? KR_RET_ERR_GEN : st;
             }},
            {"text restore", kKept, [&] { return x->t.restore(version, x->in); }},
            {"wide text restore", kKept, [&] { return x->tw.restore(version, x->in); }},
            {"substitute", kNullS, [&] { return KR_strSubstitute(x->s, "aXa", "b", "x", 0); }},
            {"encode", kNullS, [&] { return KR_addControlChars(x->s, "$CHR(\x01"); }},
            {"decode", kNullS, [&] { return KR_removeControlChars(x->s, "$$CHR($CHR(LF)"); }},
            {"substring", kNullS, [&] { return KR_getSubString(x->s, "abc", 1, 1); }},
            {"to narrow string", kNullS, [&] { return KR_wStrToKorvaneStr(x->s, L"w"); }},
            {"to wide string", kNullW, [&] { return KR_strToKorvaneStrW(x->w, "n"); }},
            {"split", kNoArr,
             [&] { return KR_splitString("a,\"b c\",,d", ",", x->arr, '"', 0, 0, 1); }},
            {"join", kNullS, [&] { return KR_stringArrToString(x->s, x->arr, "+"); }},
            {"array copy", kKept,
             [&] {
                 KR_StringArr copy(x->sa);
                 return copy.strArrErr() && copy.strArrNum() == 0 ? code() : KR_RET_TRUE;
             }},
            {"array assignment", "start|start|(null)|(null)|p,q,",
             [&] { return (x->sa = x->other).strArrErr() ? code() : KR_RET_TRUE; }},
            {"array insert", kKept, [&] { return x->sa.strArrIns(0, "z"); }},
            {"array append", kKept, [&] { return x->sa.strArrCat(x->sa); }},
            {"array delete", kKept, [&] { return x->sa.strArrDel(0); }},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        int failures = 0;
        krtest::forEachAllocationFailure(
                [] { return std::make_unique<Strs>(); },
                [&](std::unique_ptr<Strs>& state) {
                    x = state.get();
                    capture.clear();
                    KR_clearStatusCode();
                    return row.op();
                },
                [&](std::unique_ptr<Strs>&, KR_RET_STATUS status, unsigned long) {
                    ++failures;
                    EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                    EXPECT_NE(std::string::npos, capture.located().find("\nMemory error\n\n"));
                    EXPECT_EQ(row.after == "*" ? x->summary() : row.after, x->summary());
                });
        EXPECT_LT(0, failures);
    }
    remove(kFaultPath.c_str());
}
