// kr_locale.h — narrow and wide text through the current locale's multibyte conversion.
// A conversion measures the text first and then converts it into a zero-filled block of exactly
// that length, from the library's allocator (fault injection reaches it; free() the block). The
// library never calls setlocale: the host's locale decides what converts. Internal to the library.
#ifndef KRCORE_KR_LOCALE_H
#define KRCORE_KR_LOCALE_H

#include <string.h>
#include <wchar.h>

#include "kr_alloc.h"

namespace krInternal {

// The C library's conversion into the width of out: mbsrtowcs or wcsrtombs.
inline size_t localeConvert(wchar_t* out, const char** source, size_t count, mbstate_t* state) {
    return mbsrtowcs(out, source, count, state);
}

inline size_t localeConvert(char* out, const wchar_t** source, size_t count, mbstate_t* state) {
    return wcsrtombs(out, source, count, state);
}

// What localeLength answers for a text with a character that the locale cannot convert.
constexpr size_t kNoLocaleForm = static_cast<size_t>(-1);

// The characters of text (not null) in To's width, without the terminator; kNoLocaleForm when
// it does not convert.
template <class To, class From>
inline size_t localeLength(const From* text) {
    mbstate_t state;
    memset(&state, 0, sizeof state);
    const From* source = text;
    return localeConvert(static_cast<To*>(nullptr), &source, 0, &state);
}

// text in To's width in a new zero-filled block of length + 1 characters, where length is what
// localeLength measured for it; null when memory runs out.
template <class To, class From>
inline To* localeCopy(const From* text, size_t length) {
    To* out = static_cast<To*>(allocZeroed(length + 1, sizeof(To)));
    if (out == nullptr) return nullptr;
    mbstate_t state;
    memset(&state, 0, sizeof state);
    const From* source = text;
    localeConvert(out, &source, length + 1, &state);
    return out;
}

}  // namespace krInternal

#endif  // KRCORE_KR_LOCALE_H
