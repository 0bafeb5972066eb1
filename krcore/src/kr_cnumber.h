// kr_cnumber.h — floating numbers as text in the C locale, whatever locale the host has set.
// Everything the library persists or hashes writes "%f" with a "." and reads it back the same way,
// so a file written under a decimal-comma locale reads back under any other and hashes do not
// change with the locale. Internal to the library.
#ifndef KRCORE_KR_CNUMBER_H
#define KRCORE_KR_CNUMBER_H

#include <stddef.h>
#include <wchar.h>

#include <charconv>

namespace krInternal {

// Room for "%f" of any double: 309 integer digits, sign, point, 6 decimals and the terminator.
constexpr size_t kFixedTextMax = 330;

// value as "%f" in the C locale writes it ("-0.000000", "inf", "nan" included) at buffer, which
// holds kFixedTextMax characters; answers the length, the text is terminated.
inline size_t formatFixed(double value, char* buffer) {
    std::to_chars_result r =
            std::to_chars(buffer, buffer + kFixedTextMax - 1, value, std::chars_format::fixed, 6);
    *r.ptr = '\0';
    return static_cast<size_t>(r.ptr - buffer);
}

inline bool isScanSpace(int c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// The number at the start of text as sscanf's "%lf" reads it in the C locale: leading white
// space skipped, an optional sign, decimal or "inf"/"nan" forms, the longest prefix that is a
// number. False (value unchanged) when no number starts there.
inline bool scanDouble(const char* text, double& value) {
    if (text == nullptr) return false;
    while (isScanSpace(static_cast<unsigned char>(*text)))
        ++text;
    bool negative = false;
    if (*text == '+' || *text == '-') {
        negative = *text == '-';
        ++text;
        if (*text == '+' || *text == '-') return false;
    }
    const char* end = text;
    while (*end != '\0' && end - text < 1100)
        ++end;
    double parsed = 0.0;
    std::from_chars_result r = std::from_chars(text, end, parsed, std::chars_format::general);
    if (r.ec == std::errc::invalid_argument) return false;
    // Out of range: what strtod answers, a signed infinity or zero.
    if (r.ec == std::errc::result_out_of_range) {
        bool tiny = false;
        for (const char* p = text; p < r.ptr; ++p) {
            if (*p == 'e' || *p == 'E') {
                tiny = p[1] == '-';
                break;
            }
        }
        parsed = tiny ? 0.0 : __builtin_huge_val();
    }
    value = negative ? -parsed : parsed;
    return true;
}

// The same for wide text: the characters of a number are all ASCII.
inline bool scanDouble(const wchar_t* text, double& value) {
    if (text == nullptr) return false;
    char narrow[1100];
    size_t n = 0;
    while (n < sizeof narrow - 1 && text[n] != L'\0' && text[n] < 0x80) {
        narrow[n] = static_cast<char>(text[n]);
        ++n;
    }
    narrow[n] = '\0';
    return scanDouble(narrow, value);
}

}  // namespace krInternal

#endif  // KRCORE_KR_CNUMBER_H
