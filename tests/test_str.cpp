// test_str.cpp — KR_String, KR_StringW, KR_StringArr and the utilities that fill them: null and
// empty texts, width conversion, packing, persistence, splitting against strtok, and every
// allocation failure.
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "kr_array_impl.h"
#include "kr_file.h"

#include "test_support.h"

namespace {

const char kNotInitialised[] = "src/kr_str: line N: \nKorvane object not initialized\n\n";
const char kMemory[] = "src/kr_str: line N: \nMemory error\n\n";

std::string text(const KR_String& s) {
    const char* t = s;
    return t == nullptr ? std::string("(null)") : std::string(t);
}

std::wstring text(const KR_StringW& s) {
    const wchar_t* t = s;
    return t == nullptr ? std::wstring(L"(null)") : std::wstring(t);
}

std::vector<std::string> texts(KR_Array<KR_String>& array) {
    std::vector<std::string> result;
    for (unsigned int i = 0; i < array.numElems(); ++i)
        result.push_back(text(array[i]));
    return result;
}

std::string fileText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

std::string tempPath(const char* name) {
    return ::testing::TempDir() + name;
}

std::string printed;

KR_RET_STATUS collect(char* t) {
    printed += t == nullptr ? "(null)" : t;
    return KR_RET_TRUE;
}

KR_RET_STATUS collectW(wchar_t* t) {
    for (; t != nullptr && *t != 0; ++t)
        printed += static_cast<char>(*t);
    return KR_RET_TRUE;
}

}  // namespace

TEST(String, NullAndEmptyTextsBehaveAlike) {
    KR_String null(static_cast<const char*>(nullptr));
    KR_String empty("");
    KR_String byDefault;
    EXPECT_TRUE(null.objIsEnabled());
    EXPECT_EQ(0u, null.strLeng());
    EXPECT_EQ(nullptr, static_cast<const char*>(null));
    EXPECT_NE(nullptr, static_cast<const char*>(empty));
    EXPECT_TRUE(null == empty);
    EXPECT_FALSE(null != empty);
    EXPECT_FALSE(null < empty || null > empty);
    EXPECT_TRUE(byDefault == "");
    EXPECT_TRUE(null == static_cast<const wchar_t*>(nullptr));

    KR_String wide(L"wide");
    EXPECT_EQ("wide", text(wide));
    KR_StringW narrow("narrow");
    EXPECT_EQ(L"narrow", text(narrow));
    KR_String copy(wide);
    EXPECT_EQ("wide", text(copy));
    EXPECT_NE(static_cast<const char*>(wide), static_cast<const char*>(copy));
}

TEST(String, AssignmentAllocateAndAdoption) {
    KR_String s("old");
    s = "new";
    EXPECT_EQ("new", text(s));
    s = L"wide";
    EXPECT_EQ("wide", text(s));
    KR_String& alias = s;
    s = alias;
    EXPECT_EQ("wide", text(s));
    s = static_cast<const char*>(nullptr);
    EXPECT_EQ(nullptr, static_cast<const char*>(s));

    KR_Version version;
    EXPECT_KR_OK(s.allocate(0));
    ASSERT_NE(nullptr, static_cast<const char*>(s));
    EXPECT_EQ(0u, s.strLeng());
    EXPECT_EQ(5u, s.getPackedSize(version, KR_STORAGE_BINARY));
    EXPECT_KR_OK(s.allocate(10));
    strcpy(static_cast<char*>(s), "0123456789");
    EXPECT_EQ(10u, s.strLeng());

    char* block = static_cast<char*>(malloc(4));
    strcpy(block, "own");
    EXPECT_KR_STATUS(KR_RET_TRUE, s.assignPtr(block));
    EXPECT_EQ(block, static_cast<char*>(s));
    EXPECT_KR_STATUS(KR_RET_TRUE, s.assignPtr(block));  // adopting its own text frees nothing
    EXPECT_EQ("own", text(s));
}

TEST(String, CharacterAccessReportsOutOfRange) {
    KR_String s("abc");
    s[1] = 'X';
    EXPECT_EQ("aXc", text(s));
    krtest::ReportCapture capture;
    EXPECT_EQ(&krInternal::nullRef<char>(), &s[-1]);
    EXPECT_EQ(&krInternal::nullRef<char>(), &s[3]);
    EXPECT_EQ(
            "ERROR: src/kr_str: line N: KR_String: character access\nIndex -1 not in [0,2]"
            "ERROR: src/kr_str: line N: KR_String: character access\nIndex 3 not in [0,2]",
            capture.located());
    KR_StringW w(L"");
    capture.clear();
    EXPECT_EQ(&krInternal::nullRef<wchar_t>(), &w[0]);
    EXPECT_EQ("ERROR: src/kr_str: line N: KR_StringW: character access\nIndex 0 not in [0,-1]",
              capture.located());
    EXPECT_EQ('\0', krInternal::nullRef<char>());
}

TEST(String, ObjectNotInitialisedIsReportedAndNeverWritten) {
    // The shared null block reads as a string whose flag is clear.
    KR_String& dead = krInternal::nullRef<KR_String>();
    KR_String live("x");
    krtest::ReportCapture capture;
    EXPECT_EQ(6u, dead.strLeng());
    EXPECT_EQ(&dead, &(dead = "text"));
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, dead.strIns(0, "a"));
    EXPECT_FALSE(dead == live || live == dead || dead < live || dead > live);
    EXPECT_TRUE(dead != live && live != dead && dead != "x");
    live += dead;
    EXPECT_EQ("x", text(live));
    KR_String copy(dead);
    EXPECT_TRUE(copy.objIsEnabled());
    EXPECT_EQ(nullptr, static_cast<const char*>(copy));
    EXPECT_EQ(std::string(kNotInitialised) + kNotInitialised + kNotInitialised + kNotInitialised,
              capture.located());
    EXPECT_EQ(nullptr, static_cast<const char*>(dead));
}

TEST(String, ComparisonsAcrossWidthsAndSides) {
    struct Row {
        const char* a;
        const char* b;
        int order;
    };

    const Row rows[] = {{"abc", "abd", -1},
                        {"b", "abc", 1},
                        {"same", "same", 0},
                        {"", "a", -1},
                        {"\xe9", "z", 1}};
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.a) + " / " + row.b);
        KR_String a(row.a), b(row.b);
        std::wstring bw(row.b, row.b + strlen(row.b));
        for (size_t i = 0; i < bw.size(); ++i)
            bw[i] = static_cast<unsigned char>(row.b[i]);
        KR_StringW aw(std::wstring(row.a, row.a + strlen(row.a)).c_str()), bW(bw.c_str());
        for (int i = 0; row.a[i] != 0; ++i)
            aw[i] = static_cast<unsigned char>(row.a[i]);
        EXPECT_EQ(row.order < 0, a < b);
        EXPECT_EQ(row.order == 0, a == b);
        EXPECT_EQ(row.order != 0, a != b);
        EXPECT_EQ(row.order > 0, a > b);
        EXPECT_EQ(row.order < 0, a < row.b);
        EXPECT_EQ(row.order > 0, row.b < a);
        EXPECT_EQ(row.order == 0, row.b == a);
        EXPECT_EQ(row.order < 0, aw < bW);
        EXPECT_EQ(row.order > 0, aw > bw.c_str());
        EXPECT_EQ(row.order<0, bw.c_str()> aw);
        EXPECT_EQ(row.order == 0, aw == bW);
        if (static_cast<unsigned char>(row.a[0]) < 0x80) {
            // Mixed widths convert through the locale; keep to ASCII there.
            EXPECT_EQ(row.order < 0, a < bW);
            EXPECT_EQ(row.order == 0, aw == b);
            EXPECT_EQ(row.order > 0, a > bw.c_str());
            EXPECT_EQ(row.order == 0, bw.c_str() == a);
            EXPECT_EQ(row.order < 0, aw < row.b);
        }
    }
}

TEST(String, ConcatenationAndInsertion) {
    KR_String a("ab");
    EXPECT_EQ("abcd", text(a + "cd"));
    EXPECT_EQ("abcd", text(a + L"cd"));
    EXPECT_EQ("xyab", text("xy" + a));
    EXPECT_EQ("xyab", text(L"xy" + a));
    EXPECT_EQ("abab", text(a + a));
    EXPECT_EQ("ab", text(a + static_cast<const char*>(nullptr)));
    EXPECT_EQ("ab", text(static_cast<const char*>(nullptr) + a));
    KR_StringW w(L"W");
    EXPECT_EQ("abW", text(a + w));
    EXPECT_EQ(L"Wab", text(w + a));
    EXPECT_EQ(L"xW", text("x" + w));
    a += a;
    EXPECT_EQ("abab", text(a));
    a += L"!";
    EXPECT_EQ("abab!", text(a));
    KR_String null;
    null += "x";
    EXPECT_EQ("x", text(null));

    struct Row {
        unsigned int pos;
        const char* result;
    };

    const Row rows[] = {{100, "abX"}, {2, "abX"}, {0, "Xab"}, {1, "aXb"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.pos);
        KR_String s("ab");
        EXPECT_KR_STATUS(KR_RET_TRUE, s.strIns(row.pos, "X"));
        EXPECT_EQ(row.result, text(s));
        KR_StringW sw(L"ab");
        EXPECT_KR_STATUS(KR_RET_TRUE, sw.strIns(row.pos, "X"));
        EXPECT_EQ(std::wstring(row.result, row.result + 3), text(sw));
    }
    KR_String s("ab");
    EXPECT_KR_STATUS(KR_RET_TRUE, s.strIns(1, static_cast<const char*>(nullptr)));
    EXPECT_KR_STATUS(KR_RET_TRUE, s.strIns(1, s));
    EXPECT_EQ("aabb", text(s));
    KR_String fromNull;
    EXPECT_KR_STATUS(KR_RET_TRUE, fromNull.strIns(5, L"x"));
    EXPECT_EQ("x", text(fromNull));
}

TEST(String, PackedFormAndRoundTrips) {
    KR_Version version;

    struct Row {
        const char* text;
        unsigned int size;
    };

    const Row rows[] = {{nullptr, 4}, {"", 5}, {"abc", 8}, {"a b\t\xff", 10}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text ? row.text : "(null)");
        KR_String s(row.text);
        ASSERT_EQ(row.size, s.getPackedSize(version, KR_STORAGE_BINARY));
        std::vector<char> buffer(row.size + 8, '\x55');
        unsigned int used = 99;
        ASSERT_KR_STATUS(KR_RET_TRUE, s.pack(version, buffer.data(), used, KR_STORAGE_BINARY));
        EXPECT_EQ(row.size, used);
        unsigned int n = row.text ? static_cast<unsigned int>(strlen(row.text)) + 1 : 0;
        EXPECT_EQ(std::string({char(n), 0, 0, 0}), std::string(buffer.data(), 4));
        EXPECT_EQ('\x55', buffer[row.size]) << "wrote past the packed size";
        KR_String back("previous");
        used = 99;
        ASSERT_KR_STATUS(KR_RET_TRUE, back.unpack(version, buffer.data(), used, KR_STORAGE_BINARY));
        EXPECT_EQ(row.size, used);
        EXPECT_EQ(text(s), text(back));
    }
    KR_String s("abc");
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
    const char expected[] =
            "\x05\x00\x00\x00"
            "A\x00\x3d\xd8\x00\xde\xe9\x00\x00\x00";
    ASSERT_EQ(sizeof expected - 1, s.getPackedSize(version, KR_STORAGE_BINARY));
    char buffer[32];
    unsigned int used = 0;
    ASSERT_KR_STATUS(KR_RET_TRUE, s.pack(version, buffer, used, KR_STORAGE_BINARY));
    EXPECT_EQ(std::string(expected, sizeof expected - 1), std::string(buffer, used));
    KR_StringW back;
    ASSERT_KR_STATUS(KR_RET_TRUE, back.unpack(version, buffer, used, KR_STORAGE_BINARY));
    EXPECT_EQ(sizeof expected - 1, used);
    EXPECT_EQ(text(s), text(back));

    KR_StringW null, empty(L"");
    EXPECT_EQ(4u, null.getPackedSize(version, KR_STORAGE_BINARY));
    EXPECT_EQ(6u, empty.getPackedSize(version, KR_STORAGE_BINARY));
    ASSERT_KR_STATUS(KR_RET_TRUE, empty.pack(version, buffer, used, KR_STORAGE_BINARY));
    ASSERT_KR_STATUS(KR_RET_TRUE, back.unpack(version, buffer, used, KR_STORAGE_BINARY));
    EXPECT_EQ(6u, used);
    EXPECT_NE(nullptr, static_cast<const wchar_t*>(back));
    ASSERT_KR_STATUS(KR_RET_TRUE, null.pack(version, buffer, used, KR_STORAGE_BINARY));
    ASSERT_KR_STATUS(KR_RET_TRUE, back.unpack(version, buffer, used, KR_STORAGE_BINARY));
    EXPECT_EQ(nullptr, static_cast<const wchar_t*>(back));
}

TEST(String, TextAndBinaryPersistence) {
    KR_Version version;
    std::string path = tempPath("kr_str_persist.txt");
    {
        KR_FileAscii file(path.c_str(), KR_FILE_MODE_WRITE);
        ASSERT_TRUE(file.isOpen());
        EXPECT_KR_STATUS(KR_RET_TRUE, KR_String("a b").persist(version, file));
        EXPECT_KR_STATUS(KR_RET_TRUE, KR_String().persist(version, file));
        EXPECT_KR_STATUS(KR_RET_TRUE, KR_StringW(L"w x").persist(version, file));
        EXPECT_KR_STATUS(KR_RET_TRUE, KR_String("last").persist(version, file));
    }
    EXPECT_EQ(
            "<STRING>a b</STRING>\n<STRING></STRING>\n<STRINGW>w x</STRINGW>\n"
            "<STRING>last</STRING>\n",
            fileText(path));
    {
        // The wide restore reads narrow entries and passes over its own wide ones.
        KR_FileAscii file(path.c_str(), KR_FILE_MODE_READ);
        KR_String s("stale");
        EXPECT_KR_STATUS(KR_RET_TRUE, s.restore(version, file));
        EXPECT_EQ("a b", text(s));
        KR_StringW w(L"stale");
        EXPECT_KR_STATUS(KR_RET_TRUE, w.restore(version, file));
        EXPECT_EQ(0u, w.strLeng());
        EXPECT_KR_STATUS(KR_RET_FALSE, w.restore(version, file));
        EXPECT_EQ(0u, w.strLeng());
    }
    remove(path.c_str());

    path = tempPath("kr_str_persist.bin");
    unsigned int written = 0, total = 0;
    {
        KR_FileBinary file(path.c_str(), KR_FILE_MODE_WRITE);
        ASSERT_KR_STATUS(KR_RET_TRUE, KR_String("abc").persist(version, file, written));
        EXPECT_EQ(8u, written);
        total += written;
        ASSERT_KR_STATUS(KR_RET_TRUE, KR_String().persist(version, file, written));
        EXPECT_EQ(4u, written);
        total += written;
        ASSERT_KR_STATUS(KR_RET_TRUE, KR_StringW(L"x\U0001F600").persist(version, file, written));
        EXPECT_EQ(12u, written);
        total += written;
    }
    EXPECT_EQ(total, fileText(path).size());
    {
        KR_FileBinary file(path.c_str(), KR_FILE_MODE_READ);
        unsigned int read = 0;
        KR_String s("stale");
        ASSERT_KR_STATUS(KR_RET_TRUE, s.restore(version, file, read));
        EXPECT_EQ("abc", text(s));
        EXPECT_EQ(8u, read);
        ASSERT_KR_STATUS(KR_RET_TRUE, s.restore(version, file, read));
        EXPECT_EQ(nullptr, static_cast<const char*>(s));
        KR_StringW w;
        ASSERT_KR_STATUS(KR_RET_TRUE, w.restore(version, file, read));
        EXPECT_EQ(std::wstring(L"x\U0001F600"), text(w));
    }
    remove(path.c_str());
}

TEST(String, PrintsThroughTheStreamHandlers) {
    KR_OStream stream;
    stream.setConsoleHandler(collect);
    stream.setConsoleHandlerW(collectW);
    printed.clear();
    stream << KR_String("n") << KR_String() << KR_StringW(L"w") << KR_StringW();
    EXPECT_EQ("nw", printed);
    printed.clear();
    KR_StringArr array(2u);
    array[0] = "one";
    stream << array;
    EXPECT_EQ("one\n\n", printed);
    printed.clear();
    stream << krInternal::nullRef<KR_String>();
    EXPECT_EQ("", printed);
}

TEST(StringArr, GrowsShrinksAndReports) {
    KR_StringArr fromText("first");
    ASSERT_EQ(1u, fromText.strArrNum());
    EXPECT_EQ("first", text(fromText[0]));
    EXPECT_EQ(0u, KR_StringArr(static_cast<const char*>(nullptr)).strArrNum());
    KR_StringArr array(2u);
    EXPECT_EQ(2u, array.strArrNum());
    array[1] = "b";
    EXPECT_KR_OK(array.strArrIns(0, "a"));
    EXPECT_KR_OK(array.strArrIns(99, "z"));
    EXPECT_KR_OK(array.strArrCat(fromText));
    EXPECT_KR_OK(array.strArrDel(1));
    std::vector<std::string> got;
    for (unsigned int i = 0; i < array.strArrNum(); ++i)
        got.push_back(text(array[i]));
    EXPECT_EQ((std::vector<std::string>{"a", "b", "z", "first"}), got);
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

TEST(StringUtilities, SubstituteIntoAString) {
    KR_String out("old");
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_strSubstitute(out, "a.b.c", "::", ".", 1));
    EXPECT_EQ("a::b::c", text(out));
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_strSubstitute(out, "abc", "x", "", 1));
    EXPECT_EQ(nullptr, static_cast<const char*>(out));
    KR_StringW outW(L"old");
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_strSubstituteW(outW, L"AbA", L"-", L"a", 0));
    EXPECT_EQ(L"-b-", text(outW));
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_strSubstituteW(outW, L"abc", L"x", L"q", 0));
    EXPECT_EQ(nullptr, static_cast<const wchar_t*>(outW));
}

TEST(StringUtilities, ControlCharacterEncoding) {
    struct Row {
        const char* name;
        std::string plain;
        std::string encoded;
    };

    const Row rows[] = {{"tab stays, bell encoded", "a\tb\x07", "a\tb$CHR(BEL)"},
                        {"line ends stay", "x\r\ny", "x\r\ny"},
                        {"DEL and US", "\x7f\x1f", "$CHR(DEL)$CHR(US)"},
                        {"escape, then code 1", "\x1b\x01", "$CHR(ESC)$CHR(SOH)"},
                        {"a written form stays text", "$CHR(NUL)", "$$CHR(NUL)"},
                        {"high bytes are copied", "\xe9\x80\xff", "\xe9\x80\xff"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        KR_String encoded("stale"), decoded("stale");
        EXPECT_KR_STATUS(KR_RET_TRUE, KR_addControlChars(encoded, row.plain.c_str()));
        EXPECT_EQ(row.encoded, text(encoded));
        EXPECT_KR_STATUS(KR_RET_TRUE, KR_removeControlChars(decoded, encoded));
        EXPECT_EQ(row.plain, text(decoded));
        KR_StringW encodedW, decodedW;
        std::wstring plainW(row.plain.begin(), row.plain.end());
        EXPECT_KR_STATUS(KR_RET_TRUE, KR_addControlCharsW(encodedW, plainW.c_str()));
        EXPECT_EQ(std::wstring(row.encoded.begin(), row.encoded.end()), text(encodedW));
        EXPECT_KR_STATUS(KR_RET_TRUE, KR_removeControlCharsW(decodedW, encodedW));
        EXPECT_EQ(plainW, text(decodedW));
    }
    KR_String out;
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_removeControlChars(out, "$$CHR(\n)"));
    EXPECT_EQ("$CHR(\n)", text(out));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_removeControlChars(out, "$CHR(NUL)x$CHR(LF)$CHR(XYZ)"));
    ASSERT_EQ(std::string("\0x\n$CHR(XYZ)", 12), std::string(static_cast<const char*>(out), 12));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_addControlChars(out, nullptr));
    EXPECT_EQ(nullptr, static_cast<const char*>(out));

    // Random texts round-trip, except for a "$" right before a control character, which the
    // encoding cannot tell from an escaped form.
    const char* pieces[] = {"a", "$",    "$CHR(", "$CHR(NUL)", "$$CHR(",
                            ")", "\x01", "\x7f",  "\t",        "\xe9"};
    std::mt19937 rng(5);
    for (int i = 0; i < 2000; ++i) {
        std::string plain;
        for (int n = rng() % 8; n > 0; --n)
            plain += pieces[rng() % (sizeof pieces / sizeof *pieces)];
        bool ambiguous = false;
        for (size_t k = 0; k + 1 < plain.size(); ++k) {
            unsigned char next = static_cast<unsigned char>(plain[k + 1]);
            ambiguous |= plain[k] == '$' && (next == 1 || next == 0x7f);
        }
        if (ambiguous) continue;
        SCOPED_TRACE(plain);
        KR_String encoded, decoded;
        ASSERT_KR_OK(KR_addControlChars(encoded, plain.c_str()));
        ASSERT_KR_OK(KR_removeControlChars(decoded, encoded));
        ASSERT_EQ(plain, plain.empty() ? "" : text(decoded));
    }
}

TEST(StringUtilities, SplitEdgeCases) {
    struct Row {
        const char* name;
        const char* text;
        const char* delimiters;
        std::vector<std::string> tokens;
    };

    const Row rows[] = {{"separator runs and ends", ",a,,b,", ",", {"a", "b"}},
                        {"no delimiters", "a,b", nullptr, {"a,b"}},
                        {"no delimiters, empty text", "", nullptr, {""}},
                        {"only separators", ",;,", ",;", {}},
                        {"empty text", "", ",", {}},
                        {"null text", nullptr, ",", {}},
                        {"several delimiters", "a b;c", " ;", {"a", "b", "c"}}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        KR_Array<KR_String> out(3);
        ASSERT_KR_STATUS(KR_RET_TRUE, KR_splitString(row.text, row.delimiters, out));
        EXPECT_EQ(row.tokens, texts(out));
    }
    KR_Array<KR_StringW> wide;
    ASSERT_KR_STATUS(KR_RET_TRUE, KR_splitStringW(L"\u00e9t\u00e9,,x", L",", wide));
    ASSERT_EQ(2u, wide.numElems());
    EXPECT_EQ(L"\u00e9t\u00e9", text(wide[0]));
    KR_StringW joinedW;
    EXPECT_KR_OK(KR_stringArrToStringW(joinedW, wide, L"+"));
    EXPECT_EQ(L"\u00e9t\u00e9+x", text(joinedW));
}

TEST(StringUtilities, GeneralSplitQuotesEscapesEmptiesAndTrims) {
    struct Row {
        const char* name;
        const char* text;
        char quote, escape;
        unsigned char keepEmpty, trim;
        std::vector<std::string> tokens;
    };

    const Row rows[] = {{"plain", ",a,,b,", 0, 0, 0, 0, {"a", "b"}},
                        {"keep empty", ",a,,b,", 0, 0, 1, 0, {"", "a", "", "b", ""}},
                        {"quoted delimiter", "\"a,b\",c", '"', 0, 0, 0, {"a,b", "c"}},
                        {"quoted empty is a token", "a,\"\",b", '"', 0, 0, 0, {"a", "", "b"}},
                        {"escaped delimiter", "a\\,b,c\\", 0, '\\', 0, 0, {"a,b", "c\\"}},
                        {"trim", " a , b ,  ,", 0, 0, 0, 1, {"a", "b"}},
                        {"trim keeps quoted space", " \" a \" ,b", '"', 0, 0, 1, {" a ", "b"}},
                        {"trim keeps escaped space", "a\\ , b", 0, '\\', 1, 1, {"a ", "b"}},
                        {"unclosed quote", "a,\"b,c", '"', 0, 0, 0, {"a", "b,c"}}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        KR_Array<KR_String> out;
        ASSERT_KR_STATUS(KR_RET_TRUE, KR_splitString(row.text, ",", out, row.quote, row.escape,
                                                     row.keepEmpty, row.trim));
        EXPECT_EQ(row.tokens, texts(out));
        KR_String joined;
        EXPECT_KR_OK(KR_stringArrToString(joined, out, "|"));
        std::string expected;
        for (size_t i = 0; i < row.tokens.size(); ++i)
            expected += (i ? "|" : "") + row.tokens[i];
        EXPECT_EQ(row.tokens.empty() ? "(null)" : expected, text(joined));
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

TEST(StringUtilities, SubStringsAndConversions) {
    KR_String out("stale");
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_getSubString(out, "abcdef", 2, 3));
    EXPECT_EQ("cde", text(out));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_getSubString(out, "abcdef", 4, 100));
    EXPECT_EQ("ef", text(out));
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_getSubString(out, "abc", 3, 1));
    EXPECT_EQ(nullptr, static_cast<const char*>(out));
    KR_StringW outW;
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_getSubStringW(outW, L"abc", 0, 1));
    EXPECT_EQ(L"a", text(outW));

    EXPECT_KR_STATUS(KR_RET_TRUE, KR_strToKorvaneStrW(outW, "conv"));
    EXPECT_EQ(L"conv", text(outW));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_wStrToKorvaneStr(out, L"back"));
    EXPECT_EQ("back", text(out));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_wStrToKorvaneStr(out, nullptr));
    EXPECT_EQ(nullptr, static_cast<const char*>(out));

    std::string saved = setlocale(LC_CTYPE, nullptr);
    if (setlocale(LC_CTYPE, "C.UTF-8") == nullptr) GTEST_SKIP() << "no C.UTF-8 locale";
    krtest::ReportCapture capture;
    outW = L"stale";
    EXPECT_KR_STATUS(KR_RET_ERR_GEN, KR_strToKorvaneStrW(outW, "bad \xff"));
    EXPECT_EQ(nullptr, static_cast<const wchar_t*>(outW));
    KR_String fromBad("\xc3");
    KR_StringW wideFromBad(fromBad);
    EXPECT_TRUE(wideFromBad.objIsEnabled());
    EXPECT_EQ(nullptr, static_cast<const wchar_t*>(wideFromBad));
    EXPECT_EQ("src/kr_str: line N: \nInternal error\n\nsrc/kr_str: line N: \nInternal error\n\n",
              capture.located());
    setlocale(LC_CTYPE, saved.c_str());
}

TEST(StringFaults, EveryAllocationFailureLeavesAUsableString) {
    KR_REQUIRE_FAULT_INJECTION();
    krtest::ReportCapture capture;
    KR_Version version;

    struct Case {
        const char* name;
        KR_RET_STATUS (*op)(KR_String& s);
        const char* unchanged;  // text after a failure; null: the string is emptied
    };

    const Case cases[] = {
            {"construct",
             [](KR_String& s) {
                 KR_String t("copy");
                 s = t;
                 return KR_getStatusCode();
             },
             nullptr},
            {"assign",
             [](KR_String& s) {
                 s = "other";
                 return KR_getStatusCode();
             },
             nullptr},
            {"append",
             [](KR_String& s) {
                 s += "tail";
                 return KR_getStatusCode();
             },
             "start"},
            {"insert", [](KR_String& s) { return s.strIns(1, L"ins"); }, "start"},
            {"substitute", [](KR_String& s) { return KR_strSubstitute(s, "aXa", "b", "x", 0); },
             nullptr},
            {"encode", [](KR_String& s) { return KR_addControlChars(s, "$CHR(\x01"); }, nullptr},
            {"decode", [](KR_String& s) { return KR_removeControlChars(s, "$$CHR($CHR(LF)"); },
             nullptr},
            {"sub string", [](KR_String& s) { return KR_getSubString(s, "abc", 1, 1); }, nullptr},
            {"convert", [](KR_String& s) { return KR_wStrToKorvaneStr(s, L"w"); }, nullptr}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        int failures = 0;
        krtest::forEachAllocationFailure(
                [] { return std::make_unique<KR_String>("start"); },
                [&](std::unique_ptr<KR_String>& s) {
                    capture.clear();
                    KR_clearStatusCode();
                    return c.op(*s);
                },
                [&](std::unique_ptr<KR_String>& s, KR_RET_STATUS status, unsigned long) {
                    ++failures;
                    EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                    EXPECT_TRUE(s->objIsEnabled());
                    EXPECT_EQ(c.unchanged ? c.unchanged : "(null)", text(*s));
                    EXPECT_NE(std::string::npos, capture.located().find("\nMemory error\n\n"));
                });
        EXPECT_LT(0, failures);
    }
    char narrow[32], wide[32];
    unsigned int used = 0;
    KR_String("packed").pack(version, narrow, used, KR_STORAGE_BINARY);
    KR_StringW(L"packed").pack(version, wide, used, KR_STORAGE_BINARY);
    krtest::forEachAllocationFailure(
            [] {
                return std::make_pair(std::make_unique<KR_String>("old"),
                                      std::make_unique<KR_StringW>(L"old"));
            },
            [&](auto& strings) {
                capture.clear();
                unsigned int got = 1;
                KR_RET_STATUS st = strings.first->unpack(version, narrow, got, KR_STORAGE_BINARY);
                EXPECT_EQ(KRI_FAILED(st) ? 0u : 11u, got);
                if (KRI_FAILED(st)) return st;
                return strings.second->unpack(version, wide, got, KR_STORAGE_BINARY);
            },
            [&](auto& strings, KR_RET_STATUS status, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                EXPECT_EQ(kMemory, capture.located());
                EXPECT_TRUE(static_cast<const char*>(*strings.first) == nullptr ||
                            static_cast<const wchar_t*>(*strings.second) == nullptr);
            });
}

TEST(StringFaults, SplitAndArrayFailuresLeaveNoHalfResult) {
    KR_REQUIRE_FAULT_INJECTION();
    krtest::ReportCapture capture;
    KR_Array<KR_String> out;
    int failures = 0;
    krtest::forEachAllocationFailure(
            [&] {
                capture.clear();
                KR_RET_STATUS st = KR_splitString("stale", nullptr, out);
                if (KRI_FAILED(st)) return st;
                return KR_splitString("a,\"b c\",d", ",", out, '"', 0, 0, 1);
            },
            [&](KR_RET_STATUS status, unsigned long) {
                ++failures;
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                EXPECT_EQ(0u, out.numElems());
            });
    EXPECT_LE(4, failures);  // the array block and three tokens, at least
    EXPECT_EQ((std::vector<std::string>{"a", "b c", "d"}), texts(out));

    krtest::forEachAllocationFailure(
            [] {
                auto array = std::make_unique<KR_StringArr>(1u);
                (*array)[0] = "x";
                return array;
            },
            [&](std::unique_ptr<KR_StringArr>& array) {
                capture.clear();
                KR_StringArr other("y");
                KR_RET_STATUS st = other.strArrErr() ? KR_RET_ERR_MEM : array->strArrIns(0, "z");
                if (KRI_FAILED(st)) return st;
                return array->strArrCat(other);
            },
            [&](std::unique_ptr<KR_StringArr>& array, KR_RET_STATUS status, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                EXPECT_NE(std::string::npos, capture.located().find("KR_StringArr"));
                EXPECT_LE(1u, array->strArrNum());
                EXPECT_EQ("x", text((*array)[array->strArrNum() - 1]));
            });
}
