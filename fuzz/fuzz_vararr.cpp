// fuzz_vararr.cpp — the variant array's text reader over a file of any bytes. A restore that
// fails leaves the array (or variant) as it was; one that succeeds gives an array whose text
// reads back to an array with the same text.
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "fuzz_support.h"

namespace {

KR_Version version;

// The text of array as written to the file at path.
std::string textOf(KR_VarArr& array, const char* path) {
    {
        KR_FileAscii out(path, KR_FILE_MODE_WRITE);
        if (array.persist(version, out) != KR_RET_TRUE) abort();
    }
    std::string bytes;
    FILE* in = fopen(path, "rb");
    if (in == nullptr) abort();
    for (int c = fgetc(in); c != EOF; c = fgetc(in))
        bytes += static_cast<char>(c);
    fclose(in);
    return bytes;
}

bool untouched(KR_Var& v) {
    return v.varType() == KR_VAR_INT && v.i() == 7 && v.getLockVarType() == 1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    krfuzz::start();
    krfuzz::ScratchFile scratch(data, size);
    krfuzz::ScratchFile written(nullptr, 0);
    {
        KR_FileAscii file(scratch.name(), KR_FILE_MODE_READ);
        // Every restore that succeeds reads at least one tag: the loop ends with the file.
        for (size_t i = 0; i <= size; ++i) {
            KR_VarArr array(1, KR_VAR_INT, 1);
            array[0] = 7;
            KR_RET_STATUS st = array.restore(version, file);
            if (st != KR_RET_TRUE) {
                if (array.numElems() != 1 || !untouched(array[0])) abort();
                break;
            }
            std::string first = textOf(array, written.name());
            KR_VarArr again;
            KR_FileAscii in(written.name(), KR_FILE_MODE_READ);
            if (again.restore(version, in) != KR_RET_TRUE) abort();
            in.close();
            if (textOf(again, written.name()) != first) abort();
        }
    }
    {
        KR_FileAscii file(scratch.name(), KR_FILE_MODE_READ);
        for (size_t i = 0; i <= size; ++i) {
            KR_Var v(7, 1);
            KR_RET_STATUS st = v.restore(version, file);
            if (st != KR_RET_TRUE) {
                if (!untouched(v)) abort();
                break;
            }
        }
    }
    return 0;
}
