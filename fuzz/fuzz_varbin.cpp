// fuzz_varbin.cpp — variants restored from any binary file, and any text parsed into each type.
// Whatever a restore accepts must pack and unpack to the same variant.
#include <vector>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    krfuzz::start();
    KR_Version format(1, 0, 0);
    krfuzz::ScratchFile scratch(data, size);
    KR_FileBinary file(scratch.name(), KR_FILE_MODE_READ);
    size_t total = 0;
    for (int k = 0; k < 64; ++k) {
        KR_Var v("old", 1);
        unsigned int read = 0;
        if (v.restore(format, file, read) > 2) break;
        total += read;
        if (total > size) abort();
        std::vector<char> buffer(v.getPackedSize(format, KR_STORAGE_BINARY));
        unsigned int used = 0;
        if (v.pack(format, buffer.data(), used, KR_STORAGE_BINARY) > 2) abort();
        if (used != buffer.size()) abort();
        KR_Var back;
        if (back.unpack(format, buffer.data(), used, KR_STORAGE_BINARY) > 2) abort();
        if (back.varType() != v.varType()) abort();
        if (v.varType() != KR_VAR_WILD && v.varType() != KR_VAR_FLOAT &&
            v.varType() != KR_VAR_DOUBLE && !(back == v))
            abort();
    }
    std::string text = krfuzz::text(data, size);
    for (int type = KR_VAR_WILD; type <= KR_VAR_PUBOBJ; ++type) {
        KR_Var v(static_cast<KR_VAR_TYPE>(type), 1);
        KR_str2Val(v, text.c_str());
        KR_String out;
        KR_val2Str(out, v);
    }
    return 0;
}
