// test_strbase.cpp — the raw-text utilities, narrow and wide from the same tables, with random
// comparisons against the C library and plain std::string algorithms.
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <functional>
#include <memory>
#include <random>
#include <string>
#include <type_traits>

#include "test_support.h"

namespace {

// An ASCII table text in the width under test; a null row stays null.
template <class C>
struct Text {
    explicit Text(const char* ascii) : null(ascii == nullptr) {
        for (const char* p = ascii; p != nullptr && *p != 0; ++p) {
            value.push_back(static_cast<C>(static_cast<unsigned char>(*p)));
        }
    }

    const C* get() const { return null ? nullptr : value.c_str(); }

    C* data() { return null ? nullptr : &value[0]; }

    std::basic_string<C> value;
    bool null;
};

template <class C>
std::basic_string<C> widen(const std::string& ascii) {
    return Text<C>(ascii.c_str()).value;
}

std::string shown(const char* text) {
    return text == nullptr ? "(null)" : text;
}

template <class C>
class StrBase : public ::testing::Test {};

using Widths = ::testing::Types<char, wchar_t>;
TYPED_TEST_SUITE(StrBase, Widths);

// The plain replace that KR_strSubstitute must agree with: left to right, no overlap, no rescan.
std::string plainReplace(const std::string& text,
                         const std::string& pattern,
                         const std::string& by) {
    std::string result;
    size_t done = 0;
    for (size_t at = text.find(pattern); at != std::string::npos; at = text.find(pattern, done)) {
        result.append(text, done, at - done).append(by);
        done = at + pattern.size();
    }
    return result.append(text, done, std::string::npos);
}

std::string randomText(std::mt19937& rng, const char* alphabet, size_t maxLength) {
    size_t letters = strlen(alphabet);
    std::string text(rng() % (maxLength + 1), ' ');
    for (char& c : text)
        c = alphabet[rng() % letters];
    return text;
}

}  // namespace

// The narrow function f or its W twin, by the width C of the typed test that uses it.
#define KR_W(f)                                       \
    [](auto... args) {                                \
        if constexpr (std::is_same<C, char>::value) { \
            return f(args...);                        \
        } else {                                      \
            return f##W(args...);                     \
        }                                             \
    }

TYPED_TEST(StrBase, ComparisonsTreatNullAsEmptyAndCompareUnsigned) {
    using C = TypeParam;

    struct Row {
        const char* a;
        const char* b;
        int cmp, noCase, ncmp2;
    };

    const Row rows[] = {
            {nullptr, nullptr, 0, 0, 0}, {nullptr, "", 0, 0, 0},     {"", nullptr, 0, 0, 0},
            {nullptr, "a", -1, -1, -1},  {"a", nullptr, 1, 1, 1},    {"", "a", -1, -1, -1},
            {"abc", "abc", 0, 0, 0},     {"abc", "abd", -1, -1, 0},  {"abd", "abc", 1, 1, 0},
            {"ab", "abc", -1, -1, 0},    {"abc", "ab", 1, 1, 0},     {"ABC", "abc", -1, 0, -1},
            {"\x80", "a", 1, 1, 1},      {"a\xff", "a\x01", 1, 1, 1}};
    for (const Row& row : rows) {
        SCOPED_TRACE(shown(row.a) + " / " + shown(row.b));
        Text<C> a(row.a), b(row.b);
        EXPECT_EQ(row.cmp, KR_W(KR_strcmp)(a.get(), b.get()));
        EXPECT_EQ(row.noCase, KR_W(KR_strcmpNoCase)(a.get(), b.get()));
        EXPECT_EQ(row.ncmp2, KR_W(KR_strncmp)(a.get(), b.get(), 2u));
        EXPECT_EQ(0, KR_W(KR_strncmp)(a.get(), b.get(), 0u));
        EXPECT_EQ(row.cmp == 0, KR_W(KR_strsEqual)(a.get(), b.get(), 1) != 0);
        EXPECT_EQ(row.noCase == 0, KR_W(KR_strsEqual)(a.get(), b.get(), 0) != 0);
    }
}

TYPED_TEST(StrBase, AffixesAndEmptiness) {
    using C = TypeParam;

    struct Row {
        const char* text;
        const char* affix;
        bool starts, startsNoCase, ends;
    };

    const Row rows[] = {{"abc", "ab", true, true, false},    {"abc", "bc", false, false, true},
                        {"abc", "", true, true, true},       {"abc", nullptr, true, true, true},
                        {nullptr, "a", false, false, false}, {"ab", "abc", false, false, false},
                        {"Abc", "aB", false, true, false},   {"abc", "abc", true, true, true}};
    for (const Row& row : rows) {
        SCOPED_TRACE(shown(row.text) + " / " + shown(row.affix));
        Text<C> text(row.text), affix(row.affix);
        EXPECT_EQ(row.starts, KR_W(KR_strStartsWith)(text.get(), affix.get(), 1) != 0);
        EXPECT_EQ(row.startsNoCase, KR_W(KR_strStartsWith)(text.get(), affix.get(), 0) != 0);
        EXPECT_EQ(row.ends, KR_W(KR_strEndsWith)(text.get(), affix.get(), 1) != 0);
    }
    auto isEmpty = KR_W(KR_isEmptyStr);
    EXPECT_EQ(1, isEmpty(static_cast<const C*>(nullptr), 0));
    EXPECT_EQ(1, isEmpty(Text<C>("").get(), 0));
    EXPECT_EQ(0, isEmpty(Text<C>(" \t\r\n").get(), 0));
    EXPECT_EQ(1, isEmpty(Text<C>(" \t\r\n\v\f").get(), 1));
    EXPECT_EQ(0, isEmpty(Text<C>(" x ").get(), 1));
}

TYPED_TEST(StrBase, SearchAndPatternFrequency) {
    using C = TypeParam;
    Text<C> text("xxHELLOhello"), lower("hello");
    auto search = [](C* t, const C* p, unsigned char cs) { return KR_W(KR_strstr)(t, p, cs); };
    EXPECT_EQ(text.data() + 7, search(text.data(), lower.get(), 1));
    EXPECT_EQ(text.data() + 2, search(text.data(), lower.get(), 0));
    EXPECT_EQ(widen<C>("xxHELLOhello"), text.value) << "the searched text must stay as it was";
    EXPECT_EQ(nullptr, search(text.data(), Text<C>("world").get(), 0));
    EXPECT_EQ(nullptr, search(nullptr, lower.get(), 1));
    EXPECT_EQ(nullptr, search(text.data(), nullptr, 0));
    EXPECT_EQ(text.data(), search(text.data(), Text<C>("").get(), 1));
    auto chlist = [](const C* t, const C* l) { return KR_W(KR_strchlist)(t, l); };
    EXPECT_EQ(text.get() + 2, chlist(text.get(), Text<C>("EH").get()));
    EXPECT_EQ(nullptr, chlist(text.get(), Text<C>("q").get()));
    EXPECT_EQ(nullptr, chlist(text.get(), nullptr));

    struct Row {
        const char* text;
        const char* pattern;
        unsigned int cs, ci;
    };

    const Row rows[] = {{"aaaa", "aa", 2, 2},  {"aaa", "aa", 1, 1},  {"abAB", "ab", 1, 2},
                        {"abc", "", 0, 0},     {nullptr, "a", 0, 0}, {"abc", nullptr, 0, 0},
                        {"abcabc", "c", 2, 2}, {"x", "xy", 0, 0}};
    for (const Row& row : rows) {
        SCOPED_TRACE(shown(row.text) + " / " + shown(row.pattern));
        Text<C> t(row.text), pattern(row.pattern);
        EXPECT_EQ(row.cs, KR_W(KR_strPatternFrequency)(t.get(), pattern.get(), 1));
        EXPECT_EQ(row.ci, KR_W(KR_strPatternFrequency)(t.get(), pattern.get(), 0));
    }
}

TYPED_TEST(StrBase, SubstituteTable) {
    using C = TypeParam;

    struct Row {
        const char* name;
        const char* text;
        const char* replacement;
        const char* pattern;
        unsigned char caseSensitive;
        KR_RET_STATUS status;
        const char* result;  // null: *out stays null
    };

    const Row rows[] = {{"empty pattern", "abc", "x", "", 1, KR_RET_FALSE, nullptr},
                        {"pattern absent", "abc", "x", "q", 1, KR_RET_FALSE, nullptr},
                        {"null text", nullptr, "x", "a", 1, KR_RET_FALSE, nullptr},
                        {"null replacement", "abc", nullptr, "a", 1, KR_RET_FALSE, nullptr},
                        {"doubling is not rescanned", "aaa", "aa", "a", 1, KR_RET_TRUE, "aaaaaa"},
                        {"whole text", "abc", "", "abc", 1, KR_RET_TRUE, ""},
                        {"no overlap", "aaaa", "b", "aa", 1, KR_RET_TRUE, "bb"},
                        {"case kept outside matches", "AbCb", "q", "B", 0, KR_RET_TRUE, "AqCq"},
                        {"case-sensitive miss", "aXb", "-", "x", 1, KR_RET_FALSE, nullptr}};
    auto substitute = KR_W(KR_strSubstitute);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Text<C> text(row.text), replacement(row.replacement), pattern(row.pattern);
        C* out = reinterpret_cast<C*>(&out);  // must be overwritten
        EXPECT_KR_STATUS(row.status, substitute(&out, text.get(), replacement.get(), pattern.get(),
                                                row.caseSensitive));
        EXPECT_EQ(row.result ? widen<C>(row.result) : widen<C>("(null)"),
                  out ? std::basic_string<C>(out) : widen<C>("(null)"));
        free(out);
    }
    krtest::ReportCapture capture;
    Text<C> a("a");
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, substitute(static_cast<C**>(nullptr), a.get(), a.get(),
                                                a.get(), static_cast<unsigned char>(1)));
    EXPECT_EQ("src/kr_strbase: line N: \nError on function input arguments\n\n", capture.located());
}

TEST(StrBaseOracle, SubstituteAgreesWithPlainReplace) {
    std::mt19937 rng(20261122);
    for (int i = 0; i < 3004; ++i) {
        std::string text = randomText(rng, "aab", 40);
        std::string pattern = randomText(rng, "ab", 3);
        std::string by = randomText(rng, "abc", 4);
        if (pattern.empty()) pattern = "a";
        if (i >= 3000) {
            // Long runs of the pattern's first letter wear out the quick search, which hands
            // over to the C library's in mid-text, with matches on both sides.
            text.clear();
            for (int run = 0; run < 200; ++run)
                text.append(rng() % 300, 'a').append(i % 2 ? "b" : "ab");
            pattern = i % 2 ? "aaab" : "aab";
        }
        SCOPED_TRACE("text '" + text + "' pattern '" + pattern + "' by '" + by + "'");
        bool found = text.find(pattern) != std::string::npos;
        std::string expected = plainReplace(text, pattern, by);
        ASSERT_EQ((text.size() - plainReplace(text, pattern, "").size()) / pattern.size(),
                  KR_strPatternFrequency(text.c_str(), pattern.c_str(), 1));
        char* out = nullptr;
        ASSERT_KR_STATUS(found ? KR_RET_TRUE : KR_RET_FALSE,
                         KR_strSubstitute(&out, text.c_str(), by.c_str(), pattern.c_str(), 1));
        ASSERT_EQ(found ? expected : "(null)", shown(out));
        free(out);
        wchar_t* outW = nullptr;
        KR_RET_STATUS st =
                KR_strSubstituteW(&outW, widen<wchar_t>(text).c_str(), widen<wchar_t>(by).c_str(),
                                  widen<wchar_t>(pattern).c_str(), 1);
        ASSERT_EQ(expected, st == KR_RET_TRUE ? std::string(outW, outW + wcslen(outW)) : text);
        free(outW);
    }
}

TEST(StrBaseOracle, CaseInsensitiveSearchAgreesWithStrcasestr) {
#if defined(_WIN32)
    GTEST_SKIP() << "strcasestr is a POSIX function";
#else
    std::mt19937 rng(7);
    for (int i = 0; i < 5000; ++i) {
        std::string text = randomText(rng, "aAbBc", 30);
        std::string pattern = randomText(rng, "aAbB", 3);
        SCOPED_TRACE("text '" + text + "' pattern '" + pattern + "'");
        ASSERT_EQ(strcasestr(&text[0], pattern.c_str()), KR_strstr(&text[0], pattern.c_str(), 0));
    }
#endif
}

TEST(StrBaseOracle, OctalAndHexAgreeWithPrintf) {
    std::mt19937 rng(99);
    char out[16], expected[16];
    wchar_t outW[16];
    for (int i = 0; i < 4000; ++i) {
        unsigned int value = i < 4 ? (i < 2 ? 0u : UINT_MAX) : static_cast<unsigned int>(rng());
        value >>= rng() % 32;
        bool hex = i % 2 != 0;
        snprintf(expected, sizeof expected, hex ? "%x" : "%o", value);
        ASSERT_KR_OK(hex ? KR_decToHex(out, value) : KR_decToOct(out, value));
        ASSERT_STREQ(expected, out);
        ASSERT_KR_OK(hex ? KR_decToHexW(outW, value) : KR_decToOctW(outW, value));
        ASSERT_EQ(widen<wchar_t>(expected), std::wstring(outW));
    }
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_decToOct(nullptr, 1));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_decToHexW(nullptr, 1));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_decToBin(nullptr, 1));
    const std::string argReport = "src/kr_base: line N: \nError on function input arguments\n\n";
    EXPECT_EQ(argReport + argReport + argReport, capture.located());
}

TYPED_TEST(StrBase, BaseConversionsKeepTheirQuirks) {
    using C = TypeParam;
    C out[40];
    const int binary[] = {0, 1, 2, 5, INT_MAX};
    const char* digits[] = {"0", "1", "10", "101", nullptr};
    for (int i = 0; i < 5; ++i) {
        SCOPED_TRACE(binary[i]);
        ASSERT_KR_OK(KR_W(KR_decToBin)(out, binary[i]));
        std::string expected = digits[i] ? digits[i] : std::string(sizeof(int) * CHAR_BIT - 1, '1');
        EXPECT_EQ(widen<C>(expected), std::basic_string<C>(out));
    }
    // A negative value is written as the one character '0' + its low byte: 48 + 255 = 303,
    // which a narrow text keeps as its low byte 47 ('/').
    ASSERT_KR_OK(KR_W(KR_decToBin)(out, -1));
    EXPECT_EQ(static_cast<C>(sizeof(C) == 1 ? 47 : 303), out[0]);
    EXPECT_EQ(C(0), out[1]);

    struct Row {
        const char* text;
        unsigned int (*convert)(C*);
        unsigned int value;
        const char* after;
    };

    const Row rows[] = {{"12", KR_W(KR_binToDec), 4, "12"},
                        {"101", KR_W(KR_binToDec), 5, "101"},
                        {"18", KR_W(KR_octToDec), 16, "18"},
                        {"777", KR_W(KR_octToDec), 511, "777"},
                        {"1g", KR_W(KR_hexToDec), 0, "1G"},
                        {"x1a", KR_W(KR_hexToDec), 26, "X1A"},
                        {"", KR_W(KR_hexToDec), 0, ""},
                        {nullptr, KR_W(KR_hexToDec), 0, nullptr},
                        {"ffffffff", KR_W(KR_hexToDec), UINT_MAX, "FFFFFFFF"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(shown(row.text));
        Text<C> text(row.text);
        EXPECT_EQ(row.value, row.convert(text.data()));
        EXPECT_EQ(Text<C>(row.after).value, text.value);
    }
}

TYPED_TEST(StrBase, IsNumericFollowsPlainDecimalNotation) {
    using C = TypeParam;

    struct Row {
        const char* text;
        bool whole, decimal;
    };

    const Row rows[] = {{"0", true, true},      {"-0", true, true},     {"123", true, true},
                        {"-45", true, true},    {"012", false, false},  {"12.5", false, true},
                        {"0.5", false, true},   {"0.", false, true},    {".5", false, true},
                        {".", false, true},     {"-.", false, true},    {"1.2.3", false, false},
                        {"", false, false},     {"-", false, false},    {"+1", false, false},
                        {"1e5", false, false},  {" 1", false, false},   {"00.5", false, false},
                        {"0.5.", false, false}, {nullptr, false, false}};
    for (const Row& row : rows) {
        SCOPED_TRACE(shown(row.text));
        Text<C> text(row.text);
        EXPECT_EQ(row.whole, KR_W(KR_isNumeric)(text.get(), char(0)) != 0);
        EXPECT_EQ(row.decimal, KR_W(KR_isNumeric)(text.get(), char(1)) != 0);
    }
}

TYPED_TEST(StrBase, InPlaceEdits) {
    using C = TypeParam;

    struct Row {
        const char* name;
        std::function<unsigned int(C*, const C*)> edit;
        const char* text;
        const char* chars;
        unsigned int removed;
        const char* after;
    };

    auto cut = [](unsigned int start, unsigned int count) {
        return [=](C* t, const C*) { return KR_W(KR_deleteSubString)(t, start, count); };
    };
    const Row rows[] = {
            {"leading", KR_W(KR_stripLeadingChars), "xxaxbx", "x", 2, "axbx"},
            {"leading white", KR_W(KR_stripLeadingChars), " \t a ", nullptr, 3, "a "},
            {"trailing", KR_W(KR_stripTrailingChars), "xxaxbxx", "x", 2, "xxaxb"},
            {"padded", KR_W(KR_stripPaddedChars), "-+a-b+-", "+-", 4, "a-b"},
            {"everywhere", KR_W(KR_stripChars), "a b\tc ", nullptr, 3, "abc"},
            {"all stripped", KR_W(KR_stripPaddedChars), "xxx", "x", 3, ""},
            {"strip null text", KR_W(KR_stripChars), nullptr, nullptr, 0, nullptr},
            {"filter", KR_W(KR_strFilterChars), "a1b2c3", "0123456789", 3, "123"},
            {"filter null keeps nothing", KR_W(KR_strFilterChars), "abc", nullptr, 3, ""},
            {"nothing to do", KR_W(KR_stripChars), "abc", "xyz", 0, "abc"},
            {"delete inside", cut(1, 2), "abcdef", nullptr, 2, "adef"},
            {"delete clamps at the end", cut(1, 100), "abcdef", nullptr, 5, "a"},
            {"delete past the end", cut(1, 1), "a", nullptr, 0, "a"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Text<C> text(row.text), chars(row.chars);
        EXPECT_EQ(row.removed, row.edit(text.data(), chars.get()));
        EXPECT_EQ(Text<C>(row.after).value, text.value.substr(0, text.value.find(C(0))));
    }
    Text<C> mixed("MiXeD 1");
    EXPECT_EQ(widen<C>("1 DeXiM"), KR_W(KR_strReverse)(mixed.data()));
    EXPECT_EQ(widen<C>("1 dexim"), KR_W(KR_strToLower)(mixed.data()));
    EXPECT_EQ(widen<C>("1 DEXIM"), KR_W(KR_strToUpper)(mixed.data()));
    EXPECT_EQ(nullptr, KR_W(KR_strReverse)(static_cast<C*>(nullptr)));
    EXPECT_EQ(nullptr, KR_W(KR_strToUpper)(static_cast<C*>(nullptr)));
}

TYPED_TEST(StrBase, EscanBufferDecodesCEscapes) {
    using C = TypeParam;

    struct Row {
        const char* text;
        KR_RET_STATUS status;
        const char* after;
    };

    const Row rows[] = {{"a\\tb\\n", KR_RET_TRUE, "a\tb\n"}, {"\\\\x", KR_RET_TRUE, "\\x"},
                        {"\\x41\\102", KR_RET_TRUE, "AB"},   {"\\1011", KR_RET_TRUE, "A1"},
                        {"\\q\\", KR_RET_FALSE, "\\q\\"},    {"\\x\\0", KR_RET_FALSE, "\\x\\0"},
                        {"\\\"\\'", KR_RET_TRUE, "\"'"},     {nullptr, KR_RET_FALSE, nullptr},
                        {"plain", KR_RET_FALSE, "plain"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(shown(row.text));
        Text<C> text(row.text);
        EXPECT_KR_STATUS(row.status, KR_W(KR_escanBuffer)(text.data()));
        EXPECT_EQ(Text<C>(row.after).value, text.value.substr(0, text.value.find(C(0))));
    }
    char tooBig[] = "\\x141";
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_escanBuffer(tooBig));
}

TEST(StrBase, WideCharacterSearchAndCopiesAcceptNull) {
    const wchar_t text[] = L"abcabc";
    EXPECT_EQ(text + 1, KR_wcschr(text, L'b'));
    EXPECT_EQ(text + 4, KR_wcsrchr(text, L'b'));
    EXPECT_EQ(text + 6, KR_wcschr(text, L'\0'));
    EXPECT_EQ(nullptr, KR_wcschr(static_cast<const wchar_t*>(nullptr), L'a'));
    EXPECT_EQ(nullptr, KR_wcsrchr(text, L'z'));
    char* copy = KR_strdup("copy");
    wchar_t* copyW = KR_strdupW(L"copy");
    EXPECT_STREQ("copy", copy);
    EXPECT_STREQ(L"copy", copyW);
    free(copy);
    free(copyW);
    EXPECT_EQ(nullptr, KR_strdup(nullptr));
}

TEST(StrBase, WidthConversionRoundTripsAndRejectsInvalidText) {
    std::unique_ptr<wchar_t, decltype(&free)> wide(KR_strToWStr("plain"), free);
    std::unique_ptr<char, decltype(&free)> narrow(KR_wStrToStr(wide.get()), free);
    EXPECT_STREQ("plain", narrow.get());
    wide.reset(KR_strToWStr(""));
    EXPECT_STREQ(L"", wide.get());
    EXPECT_EQ(nullptr, KR_strToWStr(nullptr));
    EXPECT_EQ(nullptr, KR_wStrToStr(nullptr));

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
    EXPECT_EQ(
            "src/kr_strbase: line N: \nInternal error\n\nsrc/kr_strbase: line N: \nInternal "
            "error\n\n",
            capture.located());
}

namespace {

char text[] = "abcABC";
wchar_t textW[] = L"abcABC";
// More matches than the substitution keeps in place: their offsets take a heap block.
const std::string manyMatches(100, 'b');
const std::wstring manyMatchesW(100, L'b');

// The substitution's status, or KR_RET_ERR_GEN when a failure left *out other than null.
template <class C>
KR_RET_STATUS substituteFailing(const C* in, const C* by, const C* pattern, unsigned char cs) {
    C* out = reinterpret_cast<C*>(&out);
    KR_RET_STATUS st = KR_W(KR_strSubstitute)(&out, in, by, pattern, cs);
    free(st == KR_RET_TRUE ? out : nullptr);
    return st != KR_RET_TRUE && out != nullptr ? KR_RET_ERR_GEN : st;
}

// KR_RET_TRUE for the documented answer, KR_RET_ERR_MEM for any other.
KR_RET_STATUS answered(bool documented) {
    return documented ? KR_RET_TRUE : KR_RET_ERR_MEM;
}

// KR_RET_ERR_MEM when a new heap text did not arrive; frees it.
template <class T>
KR_RET_STATUS arrived(T* block) {
    free(block);
    return block != nullptr ? KR_RET_TRUE : KR_RET_ERR_MEM;
}

}  // namespace

// Every allocating raw-text utility, narrow and wide: after each failed allocation the
// function gives its documented answer (KR_RET_ERR_MEM, null, the text itself for a search),
// reports it once and leaks nothing.
#if defined(_WIN32)
constexpr bool kWideCommandRunsAsItIs = true;
#else
constexpr bool kWideCommandRunsAsItIs = false;
#endif

TEST(StrBaseFaults, EveryAllocationFailureIsReportedAndLeaksNothing) {
    KR_REQUIRE_FAULT_INJECTION();

    const struct {
        const char* name;
        std::function<KR_RET_STATUS()> op;  // KR_RET_ERR_MEM exactly when an allocation failed
        bool mayNotAllocate = false;        // the platform's call takes the text as it is
    } rows[] = {
            {"strstr", [] { return answered(KR_strstr(text, "c", 0) == text + 2); }},
            {"strstrW", [] { return answered(KR_strstrW(textW, L"c", 0) == textW + 2); }},
            {"strPatternFrequency",
             [] { return answered(KR_strPatternFrequency(text, "C", 0) == 2); }},
            {"strPatternFrequencyW",
             [] { return answered(KR_strPatternFrequencyW(textW, L"C", 0) == 2); }},
            {"strSubstitute", [] { return substituteFailing<char>(text, "--", "b", 0); }},
            {"strSubstitute case-sensitive",
             [] { return substituteFailing<char>(text, "--", "b", 1); }},
            {"strSubstituteW", [] { return substituteFailing<wchar_t>(textW, L"--", L"b", 0); }},
            {"strSubstituteW case-sensitive",
             [] { return substituteFailing<wchar_t>(textW, L"--", L"b", 1); }},
            {"strSubstitute, many matches",
             [] { return substituteFailing<char>(manyMatches.c_str(), "--", "b", 1); }},
            {"strSubstituteW, many matches",
             [] { return substituteFailing<wchar_t>(manyMatchesW.c_str(), L"--", L"b", 1); }},
            {"strdup", [] { return arrived(KR_strdup("x")); }},
            {"strdupW", [] { return arrived(KR_strdupW(L"x")); }},
            {"strToWStr", [] { return arrived(KR_strToWStr("x")); }},
            {"wStrToStr", [] { return arrived(KR_wStrToStr(L"x")); }},
            // Windows runs a wide command as it is; elsewhere it is converted to multibyte first.
            {"systemW", [] { return answered(KR_systemW(L"exit 0") != -1); },
             kWideCommandRunsAsItIs},
    };

    krtest::ReportCapture capture;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        int runs = 0;
        krtest::forEachAllocationFailure(
                [&] {
                    capture.clear();
                    return row.op();
                },
                [&](KR_RET_STATUS status, unsigned long) {
                    ++runs;
                    EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                    EXPECT_EQ("src/kr_strbase: line N: \nMemory error\n\n", capture.located());
                });
        if (!row.mayNotAllocate) {
            EXPECT_LT(0, runs);
        }
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
