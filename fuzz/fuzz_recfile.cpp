// fuzz_recfile.cpp — a record file from any bytes: open, check, read every record; then add a
// record and commit, and every record that read before reads the same afterwards.
#include <map>
#include <string>

#include "fuzz_support.h"

namespace {

std::map<unsigned int, std::string> readAll(KR_FileBinaryRec& file) {
    std::map<unsigned int, std::string> records;
    unsigned int at = 0;
    for (KR_RET_STATUS s = file.recFirst(at); s == KR_RET_TRUE; s = file.recNext(at)) {
        KR_Memory memory;
        if (file.recRead(at, memory) == KR_RET_TRUE) {
            records[at] = std::string(static_cast<const char*>(memory.memPtr()), memory.memSize());
        }
    }
    return records;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    krfuzz::start();
    krfuzz::ScratchFile scratch(data, size);
    std::map<unsigned int, std::string> before;
    {
        KR_FileBinaryRec file;
        KR_RET_STATUS opened = file.open(scratch.name(), KR_FILE_MODE_READ);
        if (opened != KR_RET_TRUE) {
            if (file.isOpen() || opened == KR_RET_TRUE) abort();
            return 0;
        }
        unsigned int problems = 0;
        if (file.recCheck(problems) > 2) abort();
        before = readAll(file);
        if (before.size() > file.recUsed()) abort();
    }
    KR_FileBinaryRec file;
    if (file.open(scratch.name(), KR_FILE_MODE_UPDATE) != KR_RET_TRUE) return 0;
    unsigned int at = 0;
    if (file.recAppend("fuzz", file.recFixedSize() == 0 ? 4 : 0, at) > 2) return 0;
    if (file.close() != KR_RET_TRUE) return 0;
    if (file.open(scratch.name(), KR_FILE_MODE_READ) != KR_RET_TRUE) abort();
    std::map<unsigned int, std::string> after = readAll(file);
    for (const auto& record : before) {
        auto found = after.find(record.first);
        if (found == after.end() || found->second != record.second) abort();
    }
    return 0;
}
