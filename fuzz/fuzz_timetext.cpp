// fuzz_timetext.cpp — ISO 8601 text and month and day names from any text, in both widths.
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    krfuzz::start();
    const std::string text = krfuzz::text(data, size);
    std::wstring wide;
    for (unsigned char c : text)
        wide += static_cast<wchar_t>(c);
    KR_DateTime t, w;
    const KR_RET_STATUS st = KR_timeFromText(text.c_str(), t);
    // Both widths read the same characters alike.
    if (st > 1 || KR_timeFromTextW(wide.c_str(), w) != st || !(t == w)) abort();
    if (st == KR_RET_TRUE) {
        // What was read is valid and its written form reads back to the same instant.
        KR_String out;
        KR_DateTime back;
        if (!KR_timeIsValid(t) || KR_timeToText(t, out, 1) != KR_RET_TRUE) abort();
        if (KR_timeFromText(out.strLeng() ? static_cast<const char*>(out) : "", back) !=
                    KR_RET_TRUE ||
            !(back == t)) {
            abort();
        }
    } else if (!(t == KR_DateTime())) {
        abort();
    }
    unsigned int month = 0, dow = 0;
    if (KR_timeMonthFromName(text.c_str(), month) > 1 || month > 12) abort();
    if (KR_timeDayFromNameW(krfuzz::wideText(data, size).c_str(), dow) > 1 || dow > 6) abort();
    return 0;
}
