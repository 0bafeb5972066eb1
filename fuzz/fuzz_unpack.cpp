// fuzz_unpack.cpp — narrow and wide strings unpacked from any bytes. unpack trusts its buffer to
// hold what the packed count announces, so the count is cut down to the bytes that follow it.
#include <string.h>

#include <vector>

#include "fuzz_support.h"

namespace {

// The input with its first four bytes as a little-endian count of units of unitSize bytes, no
// more than the bytes after it hold.
std::vector<char> packed(const uint8_t* data, size_t size, size_t unitSize) {
    std::vector<char> buffer(data, data + size);
    buffer.resize(size < 4 ? 4 : size);
    uint32_t count = 0;
    memcpy(&count, buffer.data(), 4);  // the fuzz targets run on little-endian machines only
    uint32_t fits = static_cast<uint32_t>((buffer.size() - 4) / unitSize);
    if (count > fits) count = fits;
    memcpy(buffer.data(), &count, 4);
    return buffer;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    krfuzz::start();
    KR_Version format(1, 0, 0);
    {
        std::vector<char> buffer = packed(data, size, 1);
        KR_String text("old");
        unsigned int used = 0;
        KR_RET_STATUS st = text.unpack(format, buffer.data(), used, KR_STORAGE_BINARY);
        if (st <= 2 && used > buffer.size()) abort();
    }
    {
        std::vector<char> buffer = packed(data, size, 2);
        KR_StringW text(L"old");
        unsigned int used = 0;
        KR_RET_STATUS st = text.unpack(format, buffer.data(), used, KR_STORAGE_BINARY);
        if (st <= 2 && used > buffer.size()) abort();
    }
    return 0;
}
