// fuzz_strings.cpp — control-character coding and the split with quotes over any text. The first
// bytes choose the split's delimiters, quote, escape and flags; the rest is the text.
#include "fuzz_support.h"

namespace {

// The split's promise: a failure leaves out empty.
template <class Str>
void checkSplit(KR_RET_STATUS st, KR_Array<Str>& out) {
    if (st > 2 && out.numElems() != 0) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    krfuzz::start();
    std::string text = krfuzz::text(data, size);

    // Encoding then decoding gives the text back; only a "$" can be read otherwise.
    KR_String encoded;
    KR_String decoded;
    if (KR_addControlChars(encoded, text.c_str()) > 2) abort();
    if (KR_removeControlChars(decoded, encoded) > 2) abort();
    const char* back = decoded;
    if (text.find('$') == std::string::npos && text != (back == nullptr ? "" : back)) abort();
    KR_removeControlChars(decoded, text.c_str());
    std::wstring wide = krfuzz::wideText(data, size);
    KR_StringW wideCoded;
    KR_addControlCharsW(wideCoded, wide.c_str());
    KR_removeControlCharsW(wideCoded, wide.c_str());

    if (size < 4) return 0;
    const char delimiters[3] = {static_cast<char>(data[0]), static_cast<char>(data[1]), 0};
    const wchar_t wideDelimiters[3] = {data[0], data[1], 0};
    std::string rest = krfuzz::text(data + 4, size - 4);
    const char quote = static_cast<char>(data[2]);
    const unsigned char keepEmpty = data[3] & 1;
    const unsigned char trimWhite = data[3] & 2;
    KR_Array<KR_String> out;
    checkSplit(KR_splitString(rest.c_str(), delimiters, out, quote, '\\', keepEmpty, trimWhite),
               out);
    checkSplit(KR_splitString(rest.c_str(), nullptr, out, '"', quote, keepEmpty, trimWhite), out);
    checkSplit(KR_splitString(rest.c_str(), delimiters, out), out);
    std::wstring wideRest = krfuzz::wideText(data + 4, size - 4);
    KR_Array<KR_StringW> wideOut;
    checkSplit(KR_splitStringW(wideRest.c_str(), wideDelimiters, wideOut, data[2], L'\\', keepEmpty,
                               trimWhite),
               wideOut);
    checkSplit(KR_splitStringW(wideRest.c_str(), wideDelimiters, wideOut), wideOut);
    return 0;
}
