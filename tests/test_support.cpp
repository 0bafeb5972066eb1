// test_support.cpp — shared helpers of the suites, and the library's start and close around
// each test program.
#include "test_support.h"

#include <stdlib.h>
#include <string.h>

#include <iostream>
#include <regex>
#include <utility>

#if defined(_WIN32)
#include <io.h>
#define KRT_DUP _dup
#define KRT_DUP2 _dup2
#define KRT_CLOSE _close
#define KRT_FILENO _fileno
#else
#include <unistd.h>
#define KRT_DUP dup
#define KRT_DUP2 dup2
#define KRT_CLOSE close
#define KRT_FILENO fileno
#endif

namespace {

// Starts the library before the first test and closes it after the last.
class LibraryEnvironment : public ::testing::Environment {
public:
    void SetUp() override { ASSERT_EQ(KR_RET_TRUE, KR_init()); }

    void TearDown() override { KR_close(); }
};

const ::testing::Environment* const kEnvironment =
        ::testing::AddGlobalTestEnvironment(new LibraryEnvironment);

// A reporter that writes to a file of the test's choosing.
class FileReporter : public KR_Reporter {
public:
    explicit FileReporter(FILE* file) { stream_ = file; }
};

std::string readAll(FILE* file) {
    fflush(file);
    long end = ftell(file);
    std::string text;
    rewind(file);
    char chunk[4096];
    size_t n;
    while ((n = fread(chunk, 1, sizeof chunk, file)) > 0)
        text.append(chunk, n);
    fseek(file, end < 0 ? 0 : end, SEEK_SET);
    // Text-mode files on Windows end lines with "\r\n"; the suites compare "\n".
    std::string::size_type at;
    while ((at = text.find("\r\n")) != std::string::npos)
        text.erase(at, 1);
    return text;
}

// A temporary file opened for update; in text mode on Windows, like the standard streams.
FILE* openScratch() {
#if defined(_WIN32)
    char name[L_tmpnam];
    if (tmpnam(name) == nullptr) return nullptr;
    return fopen(name, "w+TD");
#else
    return tmpfile();
#endif
}

}  // namespace

namespace krtest {

std::string statusName(KR_RET_STATUS status) {
#define KRT_NAME(s) \
    { s, #s }
    static const std::pair<KR_RET_STATUS, const char*> kNames[] = {
            KRT_NAME(KR_RET_FALSE),   KRT_NAME(KR_RET_TRUE),     KRT_NAME(KR_RET_ERR_ARG),
            KRT_NAME(KR_RET_ERR_MEM), KRT_NAME(KR_RET_ERR_FILE), KRT_NAME(KR_RET_ERR_POBJ),
            KRT_NAME(KR_RET_ERR_OBJ), KRT_NAME(KR_RET_ERR_NSUP), KRT_NAME(KR_RET_ERR_NIMP),
            KRT_NAME(KR_RET_ERR_GEN), KRT_NAME(KR_RET_ERR_CALL), KRT_NAME(KR_RET_ERR_ILOCK),
            KRT_NAME(KR_RET_ERR_USER)};
#undef KRT_NAME
    for (const auto& name : kNames)
        if (name.first == status) return name.second;
    return "Undefined(" + std::to_string(static_cast<int>(status)) + ")";
}

::testing::AssertionResult statusIs(const char* expectedExpr,
                                    const char* actualExpr,
                                    KR_RET_STATUS expected,
                                    KR_RET_STATUS actual) {
    if (expected == actual) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << actualExpr << " is " << statusName(actual) << ", expected " << statusName(expected)
           << " (" << expectedExpr << ")";
}

::testing::AssertionResult statusOk(const char* expr, KR_RET_STATUS actual) {
    if (static_cast<int>(actual) <= 2) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << expr << " failed with " << statusName(actual);
}

struct ReportCapture::Impl {
    FILE* file = nullptr;
    FileReporter* reporter = nullptr;
    KR_BaseReporter* previous = nullptr;
};

ReportCapture::ReportCapture() : impl_(new Impl) {
    impl_->file = openScratch();
    if (impl_->file == nullptr) ADD_FAILURE() << "cannot open a scratch file";
    impl_->reporter = new FileReporter(impl_->file);
    impl_->previous = KR_msgReporter;
    KR_registerReporter(impl_->reporter);
}

ReportCapture::~ReportCapture() {
    KR_msgReporter = impl_->previous;
    delete impl_->reporter;
    if (impl_->file != nullptr) fclose(impl_->file);
    delete impl_;
}

std::string ReportCapture::text() {
    return impl_->file ? readAll(impl_->file) : std::string();
}

std::string ReportCapture::located() {
    std::string raw = text();
    static const std::regex kLine(": line (-?[0-9]+): ");
    std::string out;
    auto begin = std::sregex_iterator(raw.begin(), raw.end(), kLine);
    size_t last = 0;
    for (auto it = begin; it != std::sregex_iterator(); ++it) {
        if (std::stol((*it)[1].str()) <= 0) ADD_FAILURE() << "report with line " << (*it)[1];
        out += raw.substr(last, static_cast<size_t>(it->position()) - last) + ": line N: ";
        last = static_cast<size_t>(it->position() + it->length());
    }
    return out + raw.substr(last);
}

void ReportCapture::clear() {
    if (impl_->file == nullptr) return;
    fclose(impl_->file);
    impl_->file = openScratch();
    delete impl_->reporter;
    impl_->reporter = new FileReporter(impl_->file);
    KR_registerReporter(impl_->reporter);
}

KR_Reporter& ReportCapture::reporter() {
    return *impl_->reporter;
}

DescriptorCapture::DescriptorCapture(int descriptor)
    : descriptor_(descriptor), saved_(-1), file_(openScratch()) {
    fflush(nullptr);
    std::cout.flush();
    std::wcout.flush();
    if (file_ == nullptr) {
        ADD_FAILURE() << "cannot open a scratch file";
        return;
    }
    saved_ = KRT_DUP(descriptor_);
    KRT_DUP2(KRT_FILENO(file_), descriptor_);
}

DescriptorCapture::~DescriptorCapture() {
    fflush(nullptr);
    std::cout.flush();
    std::wcout.flush();
    if (saved_ >= 0) {
        KRT_DUP2(saved_, descriptor_);
        KRT_CLOSE(saved_);
    }
    if (file_ != nullptr) fclose(file_);
}

std::string DescriptorCapture::text() {
    fflush(nullptr);
    std::cout.flush();
    std::wcout.flush();
    return file_ ? readAll(file_) : std::string();
}

}  // namespace krtest
