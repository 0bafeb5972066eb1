// kr_reporter.cpp — the reporting functions, the reporters and the message catalogue.
#include "kr_reporter.h"

#include <stdlib.h>
#include <string.h>

#include "kr_iostream.h"
#include "kr_platform.h"
#include "kr_report.h"

#define KRI_UNIT "src/kr_reporter"

namespace {

// Texts that reportStat writes after the location line, by status value 0..15.
const char* const kStatusTexts[16] = {
        nullptr,
        nullptr,
        nullptr,
        "Error on function input arguments\n\n",
        "Memory error\n\n",
        "File error\n\n",
        "Korvane object not initialized\n\n",
        "Required object or variable not initialized\n\n",
        "Operation/function/feature not supported\n\n",
        "Operation/function/feature not implemented\n\n",
        nullptr,
        "Internal error\n\n",
        "Bad usage\n\n",
        "An iterator was accessed recursively\n\n",
        nullptr,
        "User defined error\n\n",
};

struct CatalogueEntry {
    unsigned int id;
    const char* text;
};

struct CatalogueGroup {
    unsigned int key;
    unsigned int count;
    CatalogueEntry* entries;
};

CatalogueEntry kGeneralMessages[] = {
        {0, "KR_logErrorGen() : Unknown error code"},
        {1, "Memory error"},
        {2, "Array index out of bounds"},
        {3, "Index %d not in [%d,%d]"},
        {4, "Division by zero"},
};

CatalogueEntry kStringArrMessages[] = {
        {0, "KR_logErrorStrArr() : Unknown error code"},
        {1, "KR_StringArr constructor"},
        {2, "KR_StringArr copy constructor"},
        {3, "KR_StringArr copy"},
        {4, "KR_StringArr concatenate"},
        {5, "KR_StringArr insert"},
        {6, "KR_StringArr delete"},
        {7, "KR_StringArr array reference"},
        {8, "KR_StringArr free"},
};

CatalogueEntry kVectorArrMessages[] = {
        {0, "KR_logErrorVecArr() : Unknown error code"},
        {1, "KR_VectorArr constructor"},
        {2, "KR_VectorArr copy constructor"},
        {3, "KR_VectorArr assignment"},
        {4, "KR_VectorArr assign sum"},
        {5, "KR_VectorArr assign difference"},
        {6, "KR_VectorArr add"},
        {7, "KR_VectorArr subtract"},
        {8, "Array args have different number of vertices"},
        {9, "Arg %d has %d vertices"},
        {10, "KR_VectorArr array reference"},
        {11, "KR_VectorArr divide vector by real"},
};

CatalogueEntry kMatrixMessages[] = {
        {0, "KR_logErrorMatrix() : Unknown error code"},
        {1, "KR_Matrix set to identity matrix"},
        {2, "Matrix not N x N"},
        {3, "Matrix is %d x %d"},
        {4, "KR_VectorArr matrix multiplication: "},
        {5, "incompatible matrices: %d x %d and %d x %d"},
        {6, "KR_Matrix row reference: "},
        {7, "KR_Matrix transpose: "},
        {8, "KR_Matrix determinant: "},
        {9, "KR_Matrix inverse: "},
        {10, "Matrix not invertible"},
};

template <size_t N>
constexpr unsigned int countOf(const CatalogueEntry (&)[N]) {
    return static_cast<unsigned int>(N);
}

// KR_msg indexes this table directly: after sorting, key and identifier equal the position.
CatalogueGroup kCatalogue[] = {
        {0, countOf(kGeneralMessages), kGeneralMessages},
        {1, countOf(kStringArrMessages), kStringArrMessages},
        {2, countOf(kVectorArrMessages), kVectorArrMessages},
        {3, countOf(kMatrixMessages), kMatrixMessages},
};

int compareUnsigned(const unsigned int* a, const unsigned int* b) {
    if (a == nullptr || b == nullptr) return 0;
    if (*a < *b) return -1;
    return *a > *b ? 1 : 0;
}

int compareGroups(const void* a, const void* b) {
    return compareUnsigned(a ? &static_cast<const CatalogueGroup*>(a)->key : nullptr,
                           b ? &static_cast<const CatalogueGroup*>(b)->key : nullptr);
}

int compareEntries(const void* a, const void* b) {
    return compareUnsigned(a ? &static_cast<const CatalogueEntry*>(a)->id : nullptr,
                           b ? &static_cast<const CatalogueEntry*>(b)->id : nullptr);
}

// The diagnostic of an operation on a reporter that has no stream (a copy).
KR_RET_STATUS noStream(const char* operation, unsigned int line) {
    fprintf(stderr, "KR_Reporter::%s(): object not initialized : (%s,%d)\n\n", operation, KRI_UNIT,
            static_cast<int>(line));
    return KR_RET_ERR_GEN;
}

KR_RET_STATUS noStreamW(const wchar_t* operation, unsigned int line) {
    wchar_t text[160];
    swprintf(text, sizeof text / sizeof text[0],
             L"KR_Reporter::%ls(): object not initialized : (%s,%d)\n\n", operation, KRI_UNIT,
             static_cast<int>(line));
    krPlatform::writeWide(stderr, text);
    return KR_RET_ERR_GEN;
}

void writeLocation(FILE* stream, const char* file, unsigned int line, const char* text) {
    if (file != nullptr) {
        fprintf(stream, "%s: line %d: %s\n", file, static_cast<int>(line), text ? text : "");
    } else if (text != nullptr) {
        fprintf(stream, "%s\n", text);
    }
}

// Writes narrow text (a file name) in the stream's wide form, converted character by character
// so that non-ASCII names come out right in the wide output too.
void writeWidened(FILE* stream, const char* text) {
    wchar_t chunk[128];
    size_t used = 0;
    mbstate_t state;
    memset(&state, 0, sizeof state);
    size_t left = strlen(text);
    while (left > 0) {
        wchar_t c;
        size_t n = mbrtowc(&c, text, left, &state);
        if (n == static_cast<size_t>(-1) || n == static_cast<size_t>(-2) || n == 0) {
            memset(&state, 0, sizeof state);
            c = L'?';
            n = 1;
        }
        text += n;
        left -= n;
        chunk[used++] = c;
        if (used == sizeof chunk / sizeof chunk[0] - 1 || left == 0) {
            chunk[used] = L'\0';
            krPlatform::writeWide(stream, chunk);
            used = 0;
        }
    }
}

void writeLocationW(FILE* stream, const char* file, unsigned int line, const wchar_t* text) {
    if (file != nullptr) {
        writeWidened(stream, file);
        wchar_t number[32];
        swprintf(number, sizeof number / sizeof number[0], L": line %d: ", static_cast<int>(line));
        krPlatform::writeWide(stream, number);
        if (text != nullptr) krPlatform::writeWide(stream, text);
        krPlatform::writeWide(stream, L"\n");
    } else if (text != nullptr) {
        krPlatform::writeWide(stream, text);
        krPlatform::writeWide(stream, L"\n");
    }
}

KR_RET_STATUS report(FILE* stream,
                     const char* prefix,
                     const char* file,
                     unsigned int line,
                     const char* text,
                     const char* format,
                     va_list args) {
    if (prefix != nullptr) fputs(prefix, stream);
    writeLocation(stream, file, line, text);
    if (format != nullptr) vfprintf(stream, format, args);
    return KR_RET_TRUE;
}

KR_RET_STATUS reportW(FILE* stream,
                      const wchar_t* prefix,
                      const char* file,
                      unsigned int line,
                      const wchar_t* text,
                      const wchar_t* format,
                      va_list args) {
    if (prefix != nullptr) krPlatform::writeWide(stream, prefix);
    writeLocationW(stream, file, line, text);
    if (format != nullptr) krPlatform::printWide(stream, format, args);
    return KR_RET_TRUE;
}

}  // namespace

// --- KR_BaseReporter ---

KR_BaseReporter::~KR_BaseReporter() {}

// Each variadic form hands its arguments to the va_list form in the next slot.

KR_RET_STATUS KR_BaseReporter::warning(
        const char* file, unsigned int line, const char* text, const char* format, ...) {
    va_list args;
    va_start(args, format);
    KR_RET_STATUS result = warning(file, line, text, format, args);
    va_end(args);
    return result;
}

KR_RET_STATUS KR_BaseReporter::warningW(
        const char* file, unsigned int line, const wchar_t* text, const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    KR_RET_STATUS result = warningW(file, line, text, format, args);
    va_end(args);
    return result;
}

KR_RET_STATUS KR_BaseReporter::error(
        const char* file, unsigned int line, const char* text, const char* format, ...) {
    va_list args;
    va_start(args, format);
    KR_RET_STATUS result = error(file, line, text, format, args);
    va_end(args);
    return result;
}

KR_RET_STATUS KR_BaseReporter::errorW(
        const char* file, unsigned int line, const wchar_t* text, const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    KR_RET_STATUS result = errorW(file, line, text, format, args);
    va_end(args);
    return result;
}

KR_RET_STATUS KR_BaseReporter::message(
        const char* file, unsigned int line, const char* text, const char* format, ...) {
    va_list args;
    va_start(args, format);
    KR_RET_STATUS result = message(file, line, text, format, args);
    va_end(args);
    return result;
}

KR_RET_STATUS KR_BaseReporter::messageW(
        const char* file, unsigned int line, const wchar_t* text, const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    KR_RET_STATUS result = messageW(file, line, text, format, args);
    va_end(args);
    return result;
}

KR_RET_STATUS KR_BaseReporter::print(const char* title, const char* format, ...) {
    if (format == nullptr) return KR_RET_ERR_ARG;
    va_list args;
    va_start(args, format);
    KR_RET_STATUS result = print(title, format, args);
    va_end(args);
    return result;
}

KR_RET_STATUS KR_BaseReporter::printW(const wchar_t* title, const wchar_t* format, ...) {
    if (format == nullptr) return KR_RET_ERR_ARG;
    va_list args;
    va_start(args, format);
    KR_RET_STATUS result = printW(title, format, args);
    va_end(args);
    return result;
}

// --- KR_Reporter ---

KR_Reporter::KR_Reporter() {
    initDataMembers();
    stream_ = stderr;
}

KR_Reporter::KR_Reporter(const KR_Reporter& other) : KR_BaseReporter(other) {
    initDataMembers();
}

KR_Reporter::~KR_Reporter() {
    cleanupDataMembers();
}

KR_Reporter& KR_Reporter::operator=(const KR_Reporter& other) {
    stream_ = other.stream_;
    return *this;
}

KR_RET_STATUS KR_Reporter::warning(
        const char* file, unsigned int line, const char* text, const char* format, va_list args) {
    if (stream_ == nullptr) return noStream("warning", __LINE__);
    return report(stream_, "WARNING: ", file, line, text, format, args);
}

KR_RET_STATUS KR_Reporter::warningW(const char* file,
                                    unsigned int line,
                                    const wchar_t* text,
                                    const wchar_t* format,
                                    va_list args) {
    if (stream_ == nullptr) return noStreamW(L"warning", __LINE__);
    return reportW(stream_, L"WARNING: ", file, line, text, format, args);
}

KR_RET_STATUS KR_Reporter::error(
        const char* file, unsigned int line, const char* text, const char* format, va_list args) {
    if (stream_ == nullptr) return noStream("error", __LINE__);
    return report(stream_, "ERROR: ", file, line, text, format, args);
}

KR_RET_STATUS KR_Reporter::errorW(const char* file,
                                  unsigned int line,
                                  const wchar_t* text,
                                  const wchar_t* format,
                                  va_list args) {
    if (stream_ == nullptr) return noStreamW(L"error", __LINE__);
    return reportW(stream_, L"ERROR: ", file, line, text, format, args);
}

KR_RET_STATUS KR_Reporter::message(
        const char* file, unsigned int line, const char* text, const char* format, va_list args) {
    if (stream_ == nullptr) return noStream("message", __LINE__);
    return report(stream_, nullptr, file, line, text, format, args);
}

KR_RET_STATUS KR_Reporter::messageW(const char* file,
                                    unsigned int line,
                                    const wchar_t* text,
                                    const wchar_t* format,
                                    va_list args) {
    if (stream_ == nullptr) return noStreamW(L"message", __LINE__);
    return reportW(stream_, nullptr, file, line, text, format, args);
}

KR_RET_STATUS KR_Reporter::print(const char*, const char* format, va_list args) {
    if (stream_ == nullptr) return noStream("print", __LINE__);
    // KR_mesg reaches this form without the variadic form's check of the format.
    if (format == nullptr) return KR_RET_ERR_ARG;
    return vfprintf(stream_, format, args) < 0 ? KR_RET_ERR_GEN : KR_RET_TRUE;
}

KR_RET_STATUS KR_Reporter::printW(const wchar_t*, const wchar_t* format, va_list args) {
    if (stream_ == nullptr) return noStreamW(L"print", __LINE__);
    if (format == nullptr) return KR_RET_ERR_ARG;
    return krPlatform::printWide(stream_, format, args) < 0 ? KR_RET_ERR_GEN : KR_RET_TRUE;
}

KR_RET_STATUS KR_Reporter::reportStat(const char* file,
                                      unsigned int line,
                                      KR_RET_STATUS status,
                                      const char* text) {
    if (stream_ == nullptr) return noStream("reportStat", __LINE__);
    writeLocation(stream_, file, line, text);
    unsigned int value = static_cast<unsigned int>(status);
    if (value < 16 && kStatusTexts[value] != nullptr) fputs(kStatusTexts[value], stream_);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Reporter::reportStatW(const char* file,
                                       unsigned int line,
                                       KR_RET_STATUS status,
                                       const wchar_t* text) {
    if (stream_ == nullptr) return noStreamW(L"reportStat", __LINE__);
    writeLocationW(stream_, file, line, text);
    unsigned int value = static_cast<unsigned int>(status);
    if (value < 16 && kStatusTexts[value] != nullptr) fputs(kStatusTexts[value], stream_);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Reporter::initDataMembers() {
    stream_ = nullptr;
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_Reporter::cleanupDataMembers() {
    return KR_RET_TRUE;
}

// --- free functions ---

KR_RET_STATUS KR_reportStatus(KR_RET_STATUS status, const char* file, unsigned int line) {
    KR_statusCode = status;
    if (KR_msgReporter == nullptr) return KR_RET_ERR_GEN;
    KR_msgReporter->reportStat(file, line, status, nullptr);
    return KR_RET_TRUE;
}

KR_RET_STATUS KR_reportErrorMsg(
        const char* file, unsigned int line, const char* text, const char* format, ...) {
    KR_statusCode = KR_RET_ERR_GEN;
    if (KR_msgReporter == nullptr) return KR_RET_ERR_GEN;
    va_list args;
    va_start(args, format);
    KR_RET_STATUS result = KR_msgReporter->error(file, line, text, format, args);
    va_end(args);
    return result;
}

KR_RET_STATUS KR_reportErrorMsgW(
        const char* file, unsigned int line, const wchar_t* text, const wchar_t* format, ...) {
    KR_statusCode = KR_RET_ERR_GEN;
    if (KR_msgReporter == nullptr) return KR_RET_ERR_GEN;
    va_list args;
    va_start(args, format);
    KR_RET_STATUS result = KR_msgReporter->errorW(file, line, text, format, args);
    va_end(args);
    return result;
}

KR_RET_STATUS KR_reportWarningMsg(
        const char* file, unsigned int line, const char* text, const char* format, ...) {
    if (KR_msgReporter == nullptr) return KR_RET_ERR_GEN;
    va_list args;
    va_start(args, format);
    KR_RET_STATUS result = KR_msgReporter->warning(file, line, text, format, args);
    va_end(args);
    return result;
}

KR_RET_STATUS KR_reportWarningMsgW(
        const char* file, unsigned int line, const wchar_t* text, const wchar_t* format, ...) {
    if (KR_msgReporter == nullptr) return KR_RET_ERR_GEN;
    va_list args;
    va_start(args, format);
    KR_RET_STATUS result = KR_msgReporter->warningW(file, line, text, format, args);
    va_end(args);
    return result;
}

KR_RET_STATUS KR_mesg(const char* title, const char* format, ...) {
    if (KR_msgReporter == nullptr) return KR_RET_ERR_GEN;
    va_list args;
    va_start(args, format);
    KR_RET_STATUS result = KR_msgReporter->print(title, format, args);
    va_end(args);
    return result;
}

KR_RET_STATUS KR_mesgW(const wchar_t* title, const wchar_t* format, ...) {
    if (KR_msgReporter == nullptr) return KR_RET_ERR_GEN;
    va_list args;
    va_start(args, format);
    KR_RET_STATUS result = KR_msgReporter->printW(title, format, args);
    va_end(args);
    return result;
}

KR_RET_STATUS KR_getStatusCode() {
    return KR_statusCode;
}

void KR_clearStatusCode() {
    KR_statusCode = KR_RET_TRUE;
}

void KR_setUserError(int error) {
    krInternal::userError = error;
}

int KR_getUserError() {
    return static_cast<int>(krInternal::userError);
}

const char* KR_msg(unsigned int group, unsigned int id) {
    KR_setUserError(0);
    if (group >= sizeof kCatalogue / sizeof kCatalogue[0]) return nullptr;
    if (id >= kCatalogue[group].count) return nullptr;
    return kCatalogue[group].entries[id].text;
}

KR_RET_STATUS KR_msgInit() {
    qsort(kCatalogue, sizeof kCatalogue / sizeof kCatalogue[0], sizeof kCatalogue[0],
          compareGroups);
    for (CatalogueGroup& group : kCatalogue) {
        qsort(group.entries, group.count, sizeof group.entries[0], compareEntries);
    }
    return KR_RET_TRUE;
}

KR_OStream& operator<<(KR_OStream& stream, KR_RET_STATUS status) {
    stream << "Korvane return code: ";
    const char* name = nullptr;
    switch (status) {
        case KR_RET_FALSE:
            name = "KR_RET_FALSE(";
            break;
        case KR_RET_TRUE:
            name = "KR_RET_TRUE(";
            break;
        case KR_RET_ERR_ARG:
            name = "KR_RET_ERR_ARG(";
            break;
        case KR_RET_ERR_MEM:
            name = "KR_RET_ERR_MEM(";
            break;
        case KR_RET_ERR_FILE:
            name = "KR_RET_ERR_FILE(";
            break;
        case KR_RET_ERR_POBJ:
            name = "KR_RET_ERR_POBJ(";
            break;
        case KR_RET_ERR_OBJ:
            name = "KR_RET_ERR_OBJ(";
            break;
        case KR_RET_ERR_NSUP:
            name = "KR_RET_ERR_NSUP(";
            break;
        case KR_RET_ERR_NIMP:
            name = "KR_RET_ERR_NIMP(";
            break;
        case KR_RET_ERR_GEN:
            name = "KR_RET_ERR_GEN(";
            break;
        case KR_RET_ERR_CALL:
            name = "KR_RET_ERR_CALL(";
            break;
        case KR_RET_ERR_ILOCK:
            name = "KR_RET_ERR_ILOCK(";
            break;
        case KR_RET_ERR_USER:
            name = "KR_RET_ERR_USER(";
            break;
    }
    if (name == nullptr) {
        // A value outside the enumeration goes back into this printer, which never returns:
        // callers print only enumerated statuses.
        stream << "Undefined(";
        stream << status;
    } else {
        stream << name;
        stream << static_cast<unsigned int>(status);
    }
    stream << ")";
    return stream;
}

namespace krInternal {

long long userError = 0;

KR_RET_STATUS failAt(KR_RET_STATUS status, const char* file, unsigned int line) {
    KR_reportStatus(status, file, line);
    return status;
}

}  // namespace krInternal
