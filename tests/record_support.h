// record_support.h — helpers of the tests that write files: whole-file reads and writes, a
// temporary directory, and a log of every write and sync that can fail or tear one of them.
#ifndef KRCORE_TESTS_RECORD_SUPPORT_H
#define KRCORE_TESTS_RECORD_SUPPORT_H

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "kr_testing.h"

#include "test_support.h"

namespace krtest {

inline std::string readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

struct TempDir {
    TempDir() { EXPECT_KR_OK(KR_fileMakeTempDir(path, nullptr, "krrec")); }

    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(static_cast<const char*>(path), ignored);
    }

    std::string file(const std::string& name) const {
        return static_cast<const char*>(path) + std::string("/") + name;
    }

    KR_String path;
};

// Every write and sync while it is installed: (pos, bytes), and (-1, "") for a sync. fail > 0
// fails (or, with tear, tears to half) the fail-th event.
struct WriteLog {
    std::vector<std::pair<long long, std::string>> events;
    size_t fail = 0;
    bool tear = false;

    static size_t hook(void* context, const krTesting::FileWriteEvent& event) {
        WriteLog& log = *static_cast<WriteLog*>(context);
        log.events.emplace_back(event.sync ? -1 : event.pos,
                                std::string(static_cast<const char*>(event.data), event.size));
        if (log.events.size() != log.fail) return event.sync ? 1 : event.size;
        return log.tear ? event.size / 2 : 0;
    }

    WriteLog() { krTesting::setFileWriteHook(hook, this); }

    ~WriteLog() { krTesting::setFileWriteHook(nullptr, nullptr); }
};

inline void apply(std::string& image,
                  const std::pair<long long, std::string>& event,
                  size_t bytes) {
    if (event.first < 0) return;
    size_t at = static_cast<size_t>(event.first);
    if (image.size() < at + bytes) image.resize(at + bytes);
    image.replace(at, bytes, event.second, 0, bytes);
}

}  // namespace krtest

#endif  // KRCORE_TESTS_RECORD_SUPPORT_H
