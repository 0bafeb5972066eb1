// test_strbase.cpp — the raw-text utilities: tables on the narrow functions, random comparisons
// against std::string and printf, and what the W twins (same code, wide units) do differently.
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <tuple>

#include "test_support.h"

namespace {

std::string shown(const char* text) {
    return text == nullptr ? "(null)" : text;
}

using Owned = std::unique_ptr<char, decltype(&free)>;

// A writable copy of a table text; null stays null.
Owned copyOf(const char* text) {
    return Owned(text ? KR_strdup(text) : nullptr, free);
}

// Left to right, no overlap, no rescan: what KR_strSubstitute must agree with.
std::string plainReplace(const std::string& text, const std::string& p, const std::string& by) {
    std::string result;
    size_t done = 0;
    for (size_t at = text.find(p); at != std::string::npos; at = text.find(p, done)) {
        result.append(text, done, at - done).append(by);
        done = at + p.size();
    }
    return result.append(text, done, std::string::npos);
}

unsigned int matches(const std::string& text, const std::string& pattern) {
    return static_cast<unsigned int>((text.size() - plainReplace(text, pattern, "").size()) /
                                     pattern.size());
}

std::string lower(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](char c) { return c | 0x20; });
    return s;
}

std::string randomText(std::mt19937& rng, const char* alphabet, size_t maxLength) {
    std::string text(rng() % (maxLength + 1), ' ');
    for (char& c : text)
        c = alphabet[rng() % strlen(alphabet)];
    return text;
}

}  // namespace

TEST(StrBase, ComparisonsAndAffixesTreatNullAsEmpty) {
    // strcmp, strcmpNoCase, strncmp on 2; b starts a, ignoring case; b ends a
    const std::tuple<const char*, const char*, int, int, int, bool, bool, bool> rows[] = {
            {nullptr, nullptr, 0, 0, 0, 1, 1, 1}, {nullptr, "", 0, 0, 0, 1, 1, 1},
            {nullptr, "a", -1, -1, -1, 0, 0, 0},  {"a", nullptr, 1, 1, 1, 1, 1, 1},
            {"abc", "abc", 0, 0, 0, 1, 1, 1},     {"abc", "abd", -1, -1, 0, 0, 0, 0},
            {"abc", "ab", 1, 1, 0, 1, 1, 0},      {"ABC", "abc", -1, 0, -1, 0, 1, 0},
            {"\x80", "a", 1, 1, 1, 0, 0, 0},      {"abc", "bc", -1, -1, -1, 0, 0, 1},
            {"ab", "abc", -1, -1, 0, 0, 0, 0},    {"Abc", "aB", -1, 1, -1, 0, 1, 0}};
    for (auto [a, b, cmp, noCase, ncmp2, starts, startsNoCase, ends] : rows) {
        SCOPED_TRACE(shown(a) + " / " + shown(b));
        EXPECT_EQ(cmp, KR_strcmp(a, b));
        EXPECT_EQ(noCase, KR_strcmpNoCase(a, b));
        EXPECT_EQ(ncmp2, KR_strncmp(a, b, 2u));
        EXPECT_EQ(0, KR_strncmp(a, b, 0u));
        EXPECT_EQ(cmp == 0, KR_strsEqual(a, b, 1) != 0);
        EXPECT_EQ(noCase == 0, KR_strsEqual(a, b, 0) != 0);
        EXPECT_EQ(starts, KR_strStartsWith(a, b, 1) != 0);
        EXPECT_EQ(startsNoCase, KR_strStartsWith(a, b, 0) != 0);
        EXPECT_EQ(ends, KR_strEndsWith(a, b, 1) != 0);
    }
    EXPECT_EQ(1, KR_isEmptyStr(nullptr, 0));
    EXPECT_EQ(0, KR_isEmptyStr(" \t\r\n", 0));
    EXPECT_EQ(1, KR_isEmptyStr(" \t\r\n\v\f", 1));
    EXPECT_EQ(0, KR_isEmptyStr(" x ", 1));
}

TEST(StrBase, SearchEdgesAndPatternFrequency) {
    char text[] = "xxHELLOhello";
    EXPECT_EQ(text + 7, KR_strstr(text, "hello", 1));
    EXPECT_STREQ("xxHELLOhello", text) << "the searched text must stay as it was";
    EXPECT_EQ(nullptr, KR_strstr(static_cast<char*>(nullptr), "a", 1));
    EXPECT_EQ(nullptr, KR_strstr(text, nullptr, 0));
    EXPECT_EQ(text, KR_strstr(text, "", 1));
    EXPECT_EQ(text + 2, KR_strchlist(text, "EH"));
    EXPECT_EQ(nullptr, KR_strchlist(text, "q"));
    EXPECT_EQ(nullptr, KR_strchlist(text, nullptr));
    const std::tuple<const char*, const char*, unsigned int, unsigned int> rows[] = {
            {"abAB", "ab", 1, 2}, {"abc", "", 0, 0}, {nullptr, "a", 0, 0}, {"x", "xy", 0, 0}};
    for (auto [text, pattern, cs, ci] : rows) {
        SCOPED_TRACE(shown(text) + " / " + shown(pattern));
        EXPECT_EQ(cs, KR_strPatternFrequency(text, pattern, 1));
        EXPECT_EQ(ci, KR_strPatternFrequency(text, pattern, 0));
    }
}

TEST(StrBase, SubstituteFailuresAndCase) {
    const std::tuple<const char*, const char*, const char*, unsigned char, KR_RET_STATUS,
                     const char*>
            rows[] = {{"abc", "x", "", 1, KR_RET_FALSE, nullptr},
                      {nullptr, "x", "a", 1, KR_RET_FALSE, nullptr},
                      {"abc", nullptr, "a", 1, KR_RET_FALSE, nullptr},
                      {"AbCb", "q", "B", 0, KR_RET_TRUE, "AqCq"},
                      {"aXb", "-", "x", 1, KR_RET_FALSE, nullptr}};
    for (auto [text, by, pattern, cs, status, result] : rows) {
        SCOPED_TRACE(shown(text) + " / " + shown(pattern));
        char* out = reinterpret_cast<char*>(&out);  // must be overwritten
        EXPECT_KR_STATUS(status, KR_strSubstitute(&out, text, by, pattern, cs));
        EXPECT_EQ(shown(result), shown(out));
        free(out);
    }
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_strSubstitute(nullptr, "a", "a", "a", 1));
    EXPECT_EQ("src/kr_strbase: line N: \nError on function input arguments\n\n", capture.located());
}

TEST(StrBaseOracle, SearchCountAndSubstituteAgreeWithStdString) {
    std::mt19937 rng(20261122);
    for (int i = 0; i < 5004; ++i) {
        std::string text = randomText(rng, "aaAb", 40), pattern = randomText(rng, "aAb", 3);
        std::string by = randomText(rng, "abc", 4);
        if (pattern.empty()) pattern = "a";
        if (i >= 5000) {
            // Long runs of the pattern's first letter wear out the quick search, which hands
            // over to the C library's in mid-text, with matches on both sides.
            text.clear();
            for (int run = 0; run < 200; ++run)
                text.append(rng() % 300, 'a').append(i % 2 ? "b" : "ab");
            pattern = i % 2 ? "aaab" : "aab";
        }
        SCOPED_TRACE("text '" + text + "' pattern '" + pattern + "' by '" + by + "'");
        size_t at = lower(text).find(lower(pattern));
        ASSERT_EQ(at == std::string::npos ? nullptr : &text[at],
                  KR_strstr(&text[0], pattern.c_str(), 0));
        ASSERT_EQ(matches(text, pattern), KR_strPatternFrequency(text.c_str(), pattern.c_str(), 1));
        ASSERT_EQ(matches(lower(text), lower(pattern)),
                  KR_strPatternFrequency(text.c_str(), pattern.c_str(), 0));
        bool found = text.find(pattern) != std::string::npos;
        char* out = nullptr;
        ASSERT_KR_STATUS(found ? KR_RET_TRUE : KR_RET_FALSE,
                         KR_strSubstitute(&out, text.c_str(), by.c_str(), pattern.c_str(), 1));
        ASSERT_EQ(found ? plainReplace(text, pattern, by) : "(null)", shown(out));
        free(out);
    }
}

TEST(StrBase, BaseConversionsAgreeWithPrintfAndKeepTheirQuirks) {
    std::mt19937 rng(99);
    char out[40], expected[16];
    for (int i = 0; i < 4000; ++i) {
        unsigned int value = i < 4 ? (i < 2 ? 0u : UINT_MAX) : static_cast<unsigned int>(rng());
        value >>= rng() % 32;
        bool hex = i % 2 != 0;
        snprintf(expected, sizeof expected, hex ? "%x" : "%o", value);
        ASSERT_KR_OK(hex ? KR_decToHex(out, value) : KR_decToOct(out, value));
        ASSERT_STREQ(expected, out);
    }
    ASSERT_KR_OK(KR_decToBin(out, 0));
    EXPECT_STREQ("0", out);
    ASSERT_KR_OK(KR_decToBin(out, 5));
    EXPECT_STREQ("101", out);
    ASSERT_KR_OK(KR_decToBin(out, INT_MAX));
    EXPECT_EQ(std::string(sizeof(int) * CHAR_BIT - 1, '1'), out);
    ASSERT_KR_OK(KR_decToBin(out, -1));  // '0' + 255 = 303, kept as 47
    EXPECT_STREQ("/", out);
    const std::tuple<const char*, unsigned int (*)(char*), unsigned int, const char*> rows[] = {
            {"12", KR_binToDec, 4, "12"},       {"18", KR_octToDec, 16, "18"},
            {"1g", KR_hexToDec, 0, "1G"},       {"x1a", KR_hexToDec, 26, "X1A"},
            {nullptr, KR_hexToDec, 0, nullptr}, {"ffffffff", KR_hexToDec, UINT_MAX, "FFFFFFFF"}};
    for (auto [text, convert, value, after] : rows) {
        SCOPED_TRACE(shown(text));
        Owned copy = copyOf(text);
        EXPECT_EQ(value, convert(copy.get()));
        EXPECT_EQ(shown(after), shown(copy.get()));
    }
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_decToOct(nullptr, 1));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_decToBin(nullptr, 1));
    const std::string argReport = "src/kr_base: line N: \nError on function input arguments\n\n";
    EXPECT_EQ(argReport + argReport, capture.located());
}

TEST(StrBase, IsNumericFollowsPlainDecimalNotation) {
    const std::tuple<const char*, bool, bool> rows[] = {
            {"0", true, true},     {"-45", true, true},     {"012", false, false},
            {"12.5", false, true}, {"0.", false, true},     {".5", false, true},
            {"-.", false, true},   {"1.2.3", false, false}, {"", false, false},
            {"-", false, false},   {"+1", false, false},    {nullptr, false, false}};
    for (auto [text, whole, decimal] : rows) {
        SCOPED_TRACE(shown(text));
        EXPECT_EQ(whole, KR_isNumeric(text, 0) != 0);
        EXPECT_EQ(decimal, KR_isNumeric(text, 1) != 0);
    }
}

TEST(StrBase, InPlaceEdits) {
    auto cut = [](unsigned int start, unsigned int count) {
        return [=](char* t, const char*) { return KR_deleteSubString(t, start, count); };
    };
    const std::tuple<std::function<unsigned int(char*, const char*)>, const char*, const char*,
                     unsigned int, const char*>
            rows[] = {{KR_stripLeadingChars, "xxaxbx", "x", 2, "axbx"},
                      {KR_stripTrailingChars, "xxaxbxx", "x", 2, "xxaxb"},
                      {KR_stripPaddedChars, "-+a-b+-", "+-", 4, "a-b"},
                      {KR_stripChars, "a b\tc ", nullptr, 3, "abc"},
                      {KR_stripPaddedChars, "xxx", "x", 3, ""},
                      {KR_stripChars, nullptr, nullptr, 0, nullptr},
                      {KR_strFilterChars, "a1b2c3", "0123456789", 3, "123"},
                      {KR_strFilterChars, "abc", nullptr, 3, ""},
                      {cut(1, 2), "abcdef", nullptr, 2, "adef"},
                      {cut(1, 100), "abcdef", nullptr, 5, "a"},
                      {cut(1, 1), "a", nullptr, 0, "a"}};
    for (auto [edit, text, chars, removed, after] : rows) {
        SCOPED_TRACE(shown(text) + " / " + shown(chars));
        Owned copy = copyOf(text);
        EXPECT_EQ(removed, edit(copy.get(), chars));
        EXPECT_EQ(shown(after), shown(copy.get()));
    }
    char mixed[] = "MiXeD 1";
    EXPECT_STREQ("1 DeXiM", KR_strReverse(mixed));
    EXPECT_STREQ("1 dexim", KR_strToLower(mixed));
    EXPECT_STREQ("1 DEXIM", KR_strToUpper(mixed));
    EXPECT_EQ(nullptr, KR_strToUpper(nullptr));
}

TEST(StrBase, EscanBufferDecodesCEscapes) {
    const std::tuple<const char*, KR_RET_STATUS, const char*> rows[] = {
            {"a\\tb\\n", KR_RET_TRUE, "a\tb\n"}, {"\\\\x", KR_RET_TRUE, "\\x"},
            {"\\x41\\102", KR_RET_TRUE, "AB"},   {"\\1011", KR_RET_TRUE, "A1"},
            {"\\q\\", KR_RET_FALSE, "\\q\\"},    {"\\x\\0", KR_RET_FALSE, "\\x\\0"},
            {nullptr, KR_RET_FALSE, nullptr},    {"\\x141", KR_RET_FALSE, "\\x141"}};
    for (auto [text, status, after] : rows) {
        SCOPED_TRACE(shown(text));
        Owned copy = copyOf(text);
        EXPECT_KR_STATUS(status, KR_escanBuffer(copy.get()));
        EXPECT_EQ(shown(after), shown(copy.get()));
    }
}

// The W twins run the narrow code on wide units: what differs is the case and class of a wide
// character, the unit's width and the wide-only helpers.
TEST(StrBase, WideTwinsAndWidthConversion) {
    EXPECT_EQ(0, KR_strcmpNoCaseW(L"ABC", L"abc"));
    EXPECT_EQ(2u, KR_strPatternFrequencyW(L"abAB", L"ab", 0));
    wchar_t text[] = L"xxHELLOhello", mixed[] = L"MiXeD 1", white[] = L" \t a b ", hex[] = L"x1a";
    EXPECT_EQ(text + 2, KR_strstrW(text, L"hello", 0));
    EXPECT_STREQ(L"1 dexim", KR_strToLowerW(KR_strReverseW(mixed)));
    EXPECT_STREQ(L"1 DEXIM", KR_strToUpperW(mixed));
    EXPECT_EQ(5u, KR_stripCharsW(white, nullptr));
    EXPECT_STREQ(L"ab", white);
    EXPECT_EQ(26u, KR_hexToDecW(hex));
    EXPECT_STREQ(L"X1A", hex);
    // A negative value is the one character '0' + its low byte, 303, in full in a wide unit.
    wchar_t out[40];
    ASSERT_KR_OK(KR_decToBinW(out, -1));
    EXPECT_EQ(std::wstring(1, wchar_t(303)), out);
    EXPECT_EQ(text + 3, KR_wcschr(text, L'E'));
    EXPECT_EQ(text + 10, KR_wcsrchr(text, L'l'));
    EXPECT_EQ(text + 12, KR_wcschr(text, L'\0'));
    EXPECT_EQ(nullptr, KR_wcschr(static_cast<const wchar_t*>(nullptr), L'a'));
    EXPECT_EQ(nullptr, KR_wcsrchr(text, L'z'));
    std::unique_ptr<wchar_t, decltype(&free)> wide(KR_strToWStr("plain"), free);
    Owned back(KR_wStrToStr(wide.get()), free);
    EXPECT_STREQ("plain", back.get());
    EXPECT_EQ(nullptr, KR_strToWStr(nullptr));
    EXPECT_EQ(nullptr, KR_wStrToStr(nullptr));
    back.reset(KR_strdup("copy"));
    EXPECT_STREQ("copy", back.get());
    EXPECT_EQ(nullptr, KR_strdup(nullptr));

    // The library never sets the locale; the test picks one with strict multibyte rules.
    krtest::Utf8Locale locale;
    if (!locale.ok) GTEST_SKIP() << "no UTF-8 locale";
    wide.reset(KR_strToWStr("\xc3\xa9t\xc3\xa9"));
    EXPECT_STREQ(L"\u00e9t\u00e9", wide.get());
    krtest::ReportCapture capture;
    EXPECT_EQ(nullptr, KR_strToWStr("ok \xff\xfe"));
    EXPECT_EQ(KR_RET_ERR_GEN, KR_getStatusCode());
    const wchar_t lone[] = {L'a', static_cast<wchar_t>(0xD800), L'b', 0};
    EXPECT_EQ(nullptr, KR_wStrToStr(lone));
    const std::string internal = "src/kr_strbase: line N: \nInternal error\n\n";
    EXPECT_EQ(internal + internal, capture.located());
}

namespace {

char text[] = "abcABC";

// False only for the documented failure: KR_RET_ERR_MEM with *out null.
bool substituted(const char* in, unsigned char cs) {
    char* out = reinterpret_cast<char*>(&out);
    KR_RET_STATUS st = KR_strSubstitute(&out, in, "--", "b", cs);
    free(st == KR_RET_TRUE ? out : nullptr);
    return st != KR_RET_ERR_MEM || out != nullptr;
}

template <class T>
bool arrived(T* block) {
    free(block);
    return block != nullptr;
}

}  // namespace

// Every allocation site of the raw-text utilities (a W twin shares its narrow one): after each
// failed allocation the function gives its documented answer (KR_RET_ERR_MEM, null, the text
// itself for a search), reports it once and leaks nothing.
TEST(StrBaseFaults, EveryAllocationFailureIsReportedAndLeaksNothing) {
    KR_REQUIRE_FAULT_INJECTION();
    // More matches than the substitution keeps in place: their offsets take a heap block.
    static const std::string manyMatches(100, 'b');
    // Windows runs a wide command as it is; elsewhere it is converted to multibyte first.
#if defined(_WIN32)
    const bool wideCommandMayNotAllocate = true;
#else
    const bool wideCommandMayNotAllocate = false;
#endif

    const struct {
        const char* name;
        std::function<bool()> op;     // false exactly when it gave the documented failure
        bool mayNotAllocate = false;  // the platform's call takes the text as it is
    } rows[] = {
            {"strstr", [] { return KR_strstr(text, "c", 0) == text + 2; }},
            {"strPatternFrequency", [] { return KR_strPatternFrequency(text, "C", 0) == 2; }},
            {"strSubstitute", [] { return substituted(text, 0); }},
            {"strSubstitute case-sensitive", [] { return substituted(text, 1); }},
            {"strSubstitute, many matches", [] { return substituted(manyMatches.c_str(), 1); }},
            {"strdup", [] { return arrived(KR_strdup("x")); }},
            {"strToWStr", [] { return arrived(KR_strToWStr("x")); }},
            {"wStrToStr", [] { return arrived(KR_wStrToStr(L"x")); }},
            {"systemW", [] { return KR_systemW(L"exit 0") != -1; }, wideCommandMayNotAllocate},
    };

    krtest::ReportCapture capture;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        int runs = 0;
        krtest::forEachAllocationFailure(
                [&] {
                    capture.clear();
                    return row.op() ? KR_RET_TRUE : KR_RET_ERR_MEM;
                },
                [&](KR_RET_STATUS status, unsigned long) {
                    ++runs;
                    EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                    EXPECT_EQ("src/kr_strbase: line N: \nMemory error\n\n", capture.located());
                });
        EXPECT_TRUE(row.mayNotAllocate || runs > 0);
    }
}

TEST(StrBase, SystemRunsTheCommandProcessorInBothWidths) {
    ASSERT_NE(0, KR_system(nullptr)) << "no command processor";
    EXPECT_NE(0, KR_systemW(nullptr));
    int narrow = KR_system("exit 3");
    EXPECT_NE(0, narrow);
    EXPECT_EQ(narrow, KR_systemW(L"exit 3"));
    EXPECT_EQ(KR_system("exit 0"), KR_systemW(L"exit 0"));
}
