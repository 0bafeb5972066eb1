// fuzz_support.h — what the fuzz targets share: the library started once with a reporter that
// swallows its lines, and the fuzz input as a file or as text.
#ifndef KRCORE_FUZZ_SUPPORT_H
#define KRCORE_FUZZ_SUPPORT_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "krcore.h"

namespace krfuzz {

// Every failure is reported; the fuzzer's own output would drown in the lines, so they go to
// /dev/null, formatted all the same.
class QuietReporter : public KR_Reporter {
public:
    QuietReporter() { stream_ = fopen("/dev/null", "w"); }
};

// Starts the library on the first call. The reporter lives for the whole process.
inline void start() {
    static bool started = false;
    if (started) return;
    started = true;
    if (KR_init() > 2) abort();
    static QuietReporter reporter;
    KR_registerReporter(&reporter);
}

// The input as a file for the readers; removed again at the end of the run.
class ScratchFile {
public:
    ScratchFile(const uint8_t* data, size_t size) {
        char name[] = "/tmp/krfuzz-XXXXXX";
        int fd = mkstemp(name);
        if (fd < 0) abort();
        name_ = name;
        size_t done = 0;
        while (done < size) {
            ssize_t n = write(fd, data + done, size - done);
            if (n <= 0) abort();
            done += static_cast<size_t>(n);
        }
        close(fd);
    }

    ~ScratchFile() { unlink(name_.c_str()); }

    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    const char* name() const { return name_.c_str(); }

private:
    std::string name_;
};

// The input as narrow text (cut at its first zero byte, as any C text is).
inline std::string text(const uint8_t* data, size_t size) {
    return std::string(reinterpret_cast<const char*>(data), size).c_str();
}

// The input as wide text: every two bytes one character below 0x10000, cut at the first zero.
inline std::wstring wideText(const uint8_t* data, size_t size) {
    std::wstring wide;
    for (size_t i = 0; i + 1 < size; i += 2) {
        wchar_t c = static_cast<wchar_t>(data[i] | (data[i + 1] << 8));
        if (c == 0) break;
        wide += c;
    }
    return wide;
}

}  // namespace krfuzz

#endif  // KRCORE_FUZZ_SUPPORT_H
