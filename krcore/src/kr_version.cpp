// kr_version.cpp — the three-part version.
#include "kr_version.h"

#include <stdio.h>
#include <string.h>

#include "kr_alloc.h"
#include "kr_endian.h"
#include "kr_file.h"
#include "kr_report.h"
#include "kr_str.h"
#include "kr_xml.h"

#define KRI_UNIT "src/kr_version"

namespace {

#define KRI_TEXT(x) #x
#define KRI_VERSION_TEXT(a, b, c) KRI_TEXT(a) "." KRI_TEXT(b) "." KRI_TEXT(c)
// The headers' version numbers, as text.
const char kKorvaneVersion[] = KRI_VERSION_TEXT(
        KR_KORVANE_VERSION_MAJOR, KR_KORVANE_VERSION_MINOR, KR_KORVANE_VERSION_PATCH);

// Scans one piece with %d; a piece that does not scan leaves the number as it was.
void scanPiece(const char* piece, unsigned int& number) {
    int value = 0;
    if (sscanf(piece, "%d", &value) == 1) number = static_cast<unsigned int>(value);
}

int compare(const KR_Version& a, const KR_Version& b) {
    if (&a == &b) return 0;
    if (a.getMajor() != b.getMajor()) return a.getMajor() < b.getMajor() ? -1 : 1;
    if (a.getMinor() != b.getMinor()) return a.getMinor() < b.getMinor() ? -1 : 1;
    if (a.getPatch() != b.getPatch()) return a.getPatch() < b.getPatch() ? -1 : 1;
    return 0;
}

// Parses text into a fresh 0.0.0; false when the parse fails for lack of memory.
bool parse(const char* text, KR_Version& version) {
    return !KRI_FAILED(version.str2Version(text));
}

}  // namespace

// --- KR_Version ---

KR_Version::KR_Version() : major_(0), minor_(0), patch_(0) {}

KR_Version::KR_Version(unsigned int major, unsigned int minor, unsigned int patch)
    : major_(major), minor_(minor), patch_(patch) {}

KR_Version::KR_Version(const char* text) : major_(0), minor_(0), patch_(0) {
    str2Version(text);
}

KR_Version::KR_Version(const KR_Version& other)
    : KR_Persistable(other), major_(other.major_), minor_(other.minor_), patch_(other.patch_) {}

KR_Version::~KR_Version() {}

KR_Version& KR_Version::operator=(const KR_Version& other) {
    major_ = other.major_;
    minor_ = other.minor_;
    patch_ = other.patch_;
    return *this;
}

KR_Version& KR_Version::operator=(const char* text) {
    str2Version(text);
    return *this;
}

KR_RET_STATUS KR_Version::str2Version(const char* text) {
    KR_setUserError(0);
    if (text == nullptr) {
        major_ = minor_ = patch_ = 0;
        return KR_RET_TRUE;
    }
    char* copy = krInternal::dupText(text);
    if (copy == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    char* second = strchr(copy, '.');
    char* third = nullptr;
    if (second != nullptr) {
        *second++ = '\0';
        third = strchr(second, '.');
        if (third != nullptr) *third++ = '\0';
    }
    scanPiece(copy, major_);
    if (second != nullptr) scanPiece(second, minor_);
    if (third != nullptr) scanPiece(third, patch_);
    krInternal::freeBlock(copy);
    return KR_RET_TRUE;
}

char* KR_Version::version2Str() {
    KR_setUserError(0);
    char text[48];
    snprintf(text, sizeof text, "%d.%d.%d", static_cast<int>(major_), static_cast<int>(minor_),
             static_cast<int>(patch_));
    char* copy = krInternal::dupText(text);
    if (copy == nullptr) KRI_FAIL(KR_RET_ERR_MEM);
    return copy;
}

bool KR_Version::operator==(const KR_Version& other) const {
    return compare(*this, other) == 0;
}

bool KR_Version::operator<(const KR_Version& other) const {
    return compare(*this, other) < 0;
}

bool KR_Version::operator>(const KR_Version& other) const {
    return compare(*this, other) > 0;
}

bool KR_Version::operator<=(const KR_Version& other) const {
    return compare(*this, other) <= 0;
}

bool KR_Version::operator>=(const KR_Version& other) const {
    return compare(*this, other) >= 0;
}

bool KR_Version::operator==(const char* text) const {
    KR_Version other;
    return parse(text, other) && *this == other;
}

bool KR_Version::operator<(const char* text) const {
    KR_Version other;
    return parse(text, other) && *this < other;
}

bool KR_Version::operator>(const char* text) const {
    KR_Version other;
    return parse(text, other) && *this > other;
}

bool KR_Version::operator<=(const char* text) const {
    KR_Version other;
    return parse(text, other) && *this <= other;
}

bool KR_Version::operator>=(const char* text) const {
    KR_Version other;
    return parse(text, other) && *this >= other;
}

KR_RET_STATUS KR_Version::pack(KR_Version&, char* buffer, unsigned int& used, KR_STORAGE_TYPE) {
    KR_setUserError(0);
    used = 0;
    if (buffer == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    krInternal::storeLe(buffer, major_);
    krInternal::storeLe(buffer + 4, minor_);
    krInternal::storeLe(buffer + 8, patch_);
    used = 12;
    return KR_RET_TRUE;
}

unsigned int KR_Version::getPackedSize(KR_Version&, KR_STORAGE_TYPE) {
    KR_setUserError(0);
    return 12;
}

KR_RET_STATUS KR_Version::unpack(KR_Version&, char* buffer, unsigned int& used, KR_STORAGE_TYPE) {
    KR_setUserError(0);
    used = 0;
    if (buffer == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    major_ = krInternal::loadLe<unsigned int>(buffer);
    minor_ = krInternal::loadLe<unsigned int>(buffer + 4);
    patch_ = krInternal::loadLe<unsigned int>(buffer + 8);
    used = 12;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Version::persist(KR_Version&, KR_FileAscii& file) {
    KR_setUserError(0);
    KR_RET_STATUS status = file.print("<version>%u %u %u</version>\n", major_, minor_, patch_);
    return KRI_FAILED(status) ? status : KR_RET_TRUE;
}

KR_RET_STATUS KR_Version::persist(KR_Version&, KR_FileBinary& file, unsigned int& written) {
    KR_setUserError(0);
    written = 0;
    if (!file.isOpen()) return KRI_FAIL(KR_RET_ERR_ARG);
    KR_RET_STATUS status = file.persistVal(major_, written);
    if (!KRI_FAILED(status)) status = file.persistVal(minor_, written);
    if (!KRI_FAILED(status)) status = file.persistVal(patch_, written);
    return KRI_FAILED(status) ? status : KR_RET_TRUE;
}

KR_RET_STATUS KR_Version::restore(KR_Version&, KR_FileAscii& file) {
    KR_setUserError(0);
    KR_String text;
    KR_RET_STATUS status = KR_xmlReadTagEntry(text, file, "<version>", "</version>");
    if (status != KR_RET_TRUE) return status;
    // Numbers that do not scan keep their values; an empty entry changes nothing.
    const char* numbers = text;
    if (numbers != nullptr) sscanf(numbers, "%u %u %u", &major_, &minor_, &patch_);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Version::restore(KR_Version&, KR_FileBinary& file, unsigned int& read) {
    KR_setUserError(0);
    read = 0;
    if (!file.isOpen()) return KRI_FAIL(KR_RET_ERR_ARG);
    // The numbers change only when all three were read.
    unsigned int numbers[3] = {0, 0, 0};
    KR_RET_STATUS status = KR_RET_TRUE;
    for (unsigned int i = 0; i < 3 && !KRI_FAILED(status); ++i) {
        status = file.restoreVal(numbers[i], read);
    }
    if (KRI_FAILED(status)) return status;
    major_ = numbers[0];
    minor_ = numbers[1];
    patch_ = numbers[2];
    return KR_RET_TRUE;
}

const char* KR_getKorvaneVersion() {
    return kKorvaneVersion;
}
