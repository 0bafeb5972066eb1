// kr_version.h — the three-part version that tags persisted data and the library itself.
// Versions parse from "major.minor.patch" texts (missing pieces keep their old numbers), compare
// numerically, pack into 12 bytes and persist as text ("<version>1 0 0</version>") and binary.
#ifndef KRCORE_KR_VERSION_H
#define KRCORE_KR_VERSION_H

#include "kr_persist.h"

// KR_Version — major, minor and patch as unsigned 32-bit numbers. The data-format version passed
// to the persistable operations is ignored by the version itself.
class KR_API KR_Version : public KR_Persistable {
public:
    KR_Version();
    KR_Version(unsigned int major, unsigned int minor, unsigned int patch);
    // 0.0.0, then str2Version(text).
    KR_Version(const char* text);
    KR_Version(const KR_Version& other);
    ~KR_Version() override;
    KR_Version& operator=(const KR_Version& other);
    KR_Version& operator=(const char* text);

    // Parses "M.m.p": each piece is scanned with %d; a missing or unreadable piece leaves its
    // number as it was ("5" into 1.2.3 gives 5.2.3); negative numbers keep their unsigned image.
    // A null text gives 0.0.0. KR_RET_ERR_MEM when the working copy cannot be made.
    KR_RET_STATUS str2Version(const char* text);
    // A new heap text "M.m.p" that the caller frees with free(); null after a KR_RET_ERR_MEM
    // report.
    char* version2Str();

    unsigned int getMajor() const { return major_; }

    unsigned int getMinor() const { return minor_; }

    unsigned int getPatch() const { return patch_; }

    // Numeric order on (major, minor, patch). Against a text, the text is parsed into 0.0.0
    // first; a parse that fails for lack of memory answers false.
    bool operator==(const KR_Version& other) const;
    bool operator<(const KR_Version& other) const;
    bool operator>(const KR_Version& other) const;
    bool operator<=(const KR_Version& other) const;
    bool operator>=(const KR_Version& other) const;
    bool operator==(const char* text) const;
    bool operator<(const char* text) const;
    bool operator>(const char* text) const;
    bool operator<=(const char* text) const;
    bool operator>=(const char* text) const;

    // Three little-endian 32-bit words; 12 whatever the storage type.
    KR_RET_STATUS pack(KR_Version& version,
                       char* buffer,
                       unsigned int& used,
                       KR_STORAGE_TYPE storage) override;
    unsigned int getPackedSize(KR_Version& version, KR_STORAGE_TYPE storage) override;
    KR_RET_STATUS unpack(KR_Version& version,
                         char* buffer,
                         unsigned int& used,
                         KR_STORAGE_TYPE storage) override;
    KR_RET_STATUS persist(KR_Version& version, KR_FileAscii& file) override;
    KR_RET_STATUS persist(KR_Version& version, KR_FileBinary& file, unsigned int& written) override;
    KR_RET_STATUS restore(KR_Version& version, KR_FileAscii& file) override;
    KR_RET_STATUS restore(KR_Version& version, KR_FileBinary& file, unsigned int& read) override;

private:
    unsigned int major_;
    unsigned int minor_;
    unsigned int patch_;
};

// The version of these headers. A module compares the major number it was built with against the
// library it runs with (KR_getKorvaneVersion) and refuses another major version: its interface
// may differ.
#define KR_KORVANE_VERSION_MAJOR 1
#define KR_KORVANE_VERSION_MINOR 0
#define KR_KORVANE_VERSION_PATCH 0

// The library's own version, "1.0.0" (a constant text, not a copy).
extern "C" KR_API const char* KR_getKorvaneVersion();

#endif  // KRCORE_KR_VERSION_H
