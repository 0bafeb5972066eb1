// fuzz_version.cpp — a version from any text, from a text file and from a binary file.
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    krfuzz::start();
    std::string text = krfuzz::text(data, size);
    KR_Version parsed(1, 2, 3);
    if (parsed.str2Version(text.c_str()) > 2) abort();
    // The printed form parses back to the same version.
    char* printed = parsed.version2Str();
    if (printed == nullptr) abort();
    if (!(KR_Version(printed) == parsed)) abort();
    free(printed);
    KR_Version fromZero;
    if (fromZero.str2Version(text.c_str()) > 2 || !(fromZero == text.c_str())) abort();

    krfuzz::ScratchFile scratch(data, size);
    KR_Version version;
    {
        KR_FileAscii file(scratch.name(), KR_FILE_MODE_READ);
        version.restore(version, file);
    }
    {
        KR_FileBinary file(scratch.name(), KR_FILE_MODE_READ);
        unsigned int read = 0;
        version.restore(version, file, read);
        if (read > size) abort();
    }
    return 0;
}
