// test_file.cpp — the file classes, the file-system functions and version persistence.
#include <limits.h>
#include <locale.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include <filesystem>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

const char kNotOpen[] =
        "ERROR: src/kr_file: line N: KR_File: no file open\n"
        "src/kr_file: line N: \nFile error\n\n";

std::wstring widen(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

// A fresh directory under the temporary directory, removed with everything in it at the end.
class TempDir {
public:
    TempDir() {
        EXPECT_KR_STATUS(KR_RET_TRUE, KR_fileMakeTempDir(path_, nullptr, "krtest"));
        // Windows builds join with "\\": the tests follow whatever the library chose.
        separator_ = strchr(static_cast<const char*>(path_), '\\') != nullptr ? "\\" : "/";
    }

    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(std::filesystem::u8path(static_cast<const char*>(path_)),
                                    ignored);
    }

    std::string file(const std::string& name) const {
        return std::string(static_cast<const char*>(path_)) + separator_ + name;
    }

    std::wstring fileW(const std::wstring& name) const { return widen(file("")) + name; }

    bool windowsStyle() const { return separator_[0] == '\\'; }

private:
    KR_String path_;
    const char* separator_;
};

// Switches LC_CTYPE to a UTF-8 locale for the test's lifetime when the platform has one.
class Utf8Locale {
public:
    Utf8Locale() {
        const char* old = setlocale(LC_CTYPE, nullptr);
        saved_ = old != nullptr ? old : "C";
        for (const char* name : {"C.UTF-8", "C.utf8", "en_US.UTF-8", ".UTF-8"}) {
            if (setlocale(LC_CTYPE, name) != nullptr) {
                ok_ = true;
                break;
            }
        }
    }

    ~Utf8Locale() { setlocale(LC_CTYPE, saved_.c_str()); }

    bool ok() const { return ok_; }

private:
    std::string saved_;
    bool ok_ = false;
};

std::string readBytes(const std::string& path) {
    std::string text;
    FILE* file = fopen(path.c_str(), "rb");
    if (file == nullptr) return "<missing>";
    char chunk[4096];
    size_t n;
    while ((n = fread(chunk, 1, sizeof chunk, file)) > 0)
        text.append(chunk, n);
    fclose(file);
    return text;
}

void writeBytes(const std::string& path, const std::string& bytes) {
    FILE* file = fopen(path.c_str(), "wb");
    ASSERT_NE(nullptr, file);
    fwrite(bytes.data(), 1, bytes.size(), file);
    fclose(file);
}

}  // namespace

// --- KR_File ---

TEST(File, ClosedFileRefusesEveryOperation) {
    KR_FileAscii text;
    KR_FileBinary binary;
    long long pos = 0;
    char c = 0;
    wchar_t w = 0;
    unsigned int count = 0;
    int value = 0;
    char* restored = nullptr;
    KR_String line;
    const std::vector<std::pair<const char*, std::function<KR_RET_STATUS()>>> operations = {
            {"isEof", [&] { return text.isEof(); }},
            {"getPos", [&] { return text.getPos(pos); }},
            {"setPos", [&] { return text.setPos(0); }},
            {"getSize", [&] { return text.getSize(pos); }},
            {"flush", [&] { return text.flush(); }},
            {"print", [&] { return text.print("%d", 1); }},
            {"printW", [&] { return text.printW(L"%d", 1); }},
            {"scanChar", [&] { return text.scanChar(c); }},
            {"scanCharW", [&] { return text.scanCharW(w); }},
            {"seekBack", [&] { return text.seekBack(1); }},
            {"readLine", [&] { return text.readLine(line); }},
            {"persistVal", [&] { return binary.persistVal(value, count); }},
            {"restoreVal", [&] { return binary.restoreVal(value, count); }},
            {"persistText", [&] { return binary.persistVal("x", KR_STORAGE_BINARY, count); }},
            {"restoreText", [&] { return binary.restoreVal(restored, KR_STORAGE_BINARY, count); }},
            {"restoreBlock", [&] { return binary.restoreBlock(&value, 4, count); }},
    };
    for (const auto& operation : operations) {
        SCOPED_TRACE(operation.first);
        krtest::ReportCapture capture;
        EXPECT_KR_STATUS(KR_RET_ERR_FILE, operation.second());
        EXPECT_EQ(kNotOpen, capture.located());
    }
    EXPECT_EQ(0u, count);
    EXPECT_EQ(nullptr, restored);
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_FALSE, text.close());
    EXPECT_FALSE(text.isOpen());
    EXPECT_EQ(nullptr, text.getFileName());
    EXPECT_EQ("", capture.text());
}

TEST(File, FailedOpensReportTheName) {
    TempDir dir;
    const std::string missing = dir.file("no/such/dir/file.txt");

    const struct {
        const char* name;
        std::string path;
        KR_FILE_MODE mode;
    } rows[] = {
            {"write into a missing directory", missing, KR_FILE_MODE_WRITE},
            {"read a missing file", dir.file("missing.txt"), KR_FILE_MODE_READ},
            {"update a missing file", dir.file("missing.txt"), KR_FILE_MODE_UPDATE},
            {"write onto a directory", dir.file(""), KR_FILE_MODE_WRITE},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        krtest::ReportCapture capture;
        KR_FileBinary file;
        EXPECT_KR_STATUS(KR_RET_ERR_FILE, file.open(row.path.c_str(), row.mode));
        EXPECT_FALSE(file.isOpen());
        EXPECT_EQ("ERROR: src/kr_file: line N: KR_File: cannot open\n" + row.path +
                          "\nsrc/kr_file: line N: \nFile error\n\n",
                  capture.located());
    }
    krtest::ReportCapture capture;
    KR_FileAscii file;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG,
                     file.open(static_cast<const char*>(nullptr), KR_FILE_MODE_READ));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.open("", KR_FILE_MODE_READ));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG,
                     file.open(dir.file("x").c_str(), static_cast<KR_FILE_MODE>(0)));
    EXPECT_FALSE(file.isOpen());
    // A constructor that cannot open leaves a usable, closed file.
    KR_FileAscii constructed(missing.c_str(), KR_FILE_MODE_WRITE);
    EXPECT_FALSE(constructed.isOpen());
    EXPECT_TRUE(constructed.objIsEnabled());
}

TEST(File, ModesAndWritingToAReadOnlyFile) {
    TempDir dir;
    const std::string path = dir.file("modes.txt");
    {
        KR_FileAscii file(path.c_str(), KR_FILE_MODE_APPEND);  // creates it
        ASSERT_TRUE(file.isOpen());
        EXPECT_KR_OK(file.print("one"));
    }
    {
        KR_FileAscii file(path.c_str(), KR_FILE_MODE_APPEND);  // continues at the end
        EXPECT_KR_OK(file.print(" two"));
    }
    EXPECT_EQ("one two", readBytes(path));
    {
        KR_FileAscii file(path.c_str(), KR_FILE_MODE_UPDATE);  // overwrites in place
        EXPECT_KR_OK(file.print("ONE"));
    }
    EXPECT_EQ("ONE two", readBytes(path));
    KR_FileAscii file(path.c_str(), KR_FILE_MODE_READ);
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, file.print("x"));
    EXPECT_EQ("ERROR: src/kr_file: line N: KR_File: opened for reading only\n" + path +
                      "\nsrc/kr_file: line N: \nFile error\n\n",
              capture.located());
    KR_FileAscii emptied(path.c_str(), KR_FILE_MODE_WRITE);
    long long size = -1;
    EXPECT_KR_OK(emptied.getSize(size));
    EXPECT_EQ(0, size);
}

TEST(File, CopiesAreRefused) {
    TempDir dir;
    KR_FileAscii file(dir.file("copy.txt").c_str(), KR_FILE_MODE_WRITE);
    krtest::ReportCapture capture;
    KR_FileAscii copy(file);
    EXPECT_FALSE(copy.isOpen());
    KR_FileAscii target;
    target = file;
    EXPECT_FALSE(target.isOpen());
    EXPECT_TRUE(file.isOpen());
    const std::string nsup = "src/kr_file: line N: \nOperation/function/feature not supported\n\n";
    EXPECT_EQ(nsup + nsup, capture.located());
}

// Reads a file larger than several buffers character by character with the position taken
// before each character, stepping back now and then (also across a buffer boundary).
TEST(FileAscii, BufferedScanWithSeekBackAcrossBoundaries) {
    TempDir dir;
    const std::string path = dir.file("big.txt");
    std::string content;
    for (int i = 0; content.size() < 3 * 65536 + 17; ++i)
        content += static_cast<char>('a' + i % 23);
    writeBytes(path, content);
    KR_FileAscii file(path.c_str(), KR_FILE_MODE_READ);
    ASSERT_TRUE(file.isOpen());
    long long size = 0;
    EXPECT_KR_OK(file.getSize(size));
    EXPECT_EQ(static_cast<long long>(content.size()), size);
    size_t lastStep = 0;
    char c = 0;
    for (size_t i = 0; i < content.size(); ++i) {
        long long pos = -1;
        ASSERT_KR_OK(file.getPos(pos));
        ASSERT_EQ(static_cast<long long>(i), pos);
        ASSERT_KR_STATUS(KR_RET_TRUE, file.scanChar(c));
        ASSERT_EQ(content[i], c) << "at " << i;
        if (i != lastStep && (i % 9973 == 7 || i == 65536 + 2)) {
            lastStep = i;
            ASSERT_KR_OK(file.seekBack(5));
            i -= 5;  // the loop reads them again
        }
    }
    EXPECT_KR_STATUS(KR_RET_TRUE, file.isEof());
    EXPECT_KR_STATUS(KR_RET_FALSE, file.scanChar(c));
    EXPECT_EQ('\0', c);
    // Far jumps, then a step back before the start.
    for (long long target : {70000LL, 5LL, 196000LL, 0LL}) {
        ASSERT_KR_OK(file.setPos(target));
        ASSERT_KR_STATUS(KR_RET_TRUE, file.scanChar(c));
        EXPECT_EQ(content[static_cast<size_t>(target)], c);
    }
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.seekBack(2));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.setPos(-1));
    long long pos = -1;
    EXPECT_KR_OK(file.getPos(pos));
    EXPECT_EQ(1, pos);
}

TEST(FileAscii, PrintAndReadLines) {
    TempDir dir;
    const std::string path = dir.file("lines.txt");
    const std::string longText(5000, 'x');  // beyond the formatter's stack buffer
    {
        KR_FileAscii file(path.c_str(), KR_FILE_MODE_WRITE);
        EXPECT_KR_OK(file.print("%d %s %lld\r\n", -7, "word", LLONG_MAX));
        EXPECT_KR_OK(file.print("\n%s\n", longText.c_str()));
        EXPECT_KR_OK(file.printW(L"%ls=%d\n", L"wide", 42));
        EXPECT_KR_OK(file.print("last"));
        krtest::ReportCapture capture;
        EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.print(nullptr));
        EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.printW(nullptr));
    }
    EXPECT_EQ("-7 word " + std::to_string(LLONG_MAX) + "\r\n\n" + longText + "\nwide=42\nlast",
              readBytes(path));
    KR_FileAscii file(path.c_str(), KR_FILE_MODE_READ);
    KR_String line("stale");
    const char* expected[] = {nullptr, "", nullptr, "wide=42", "last"};
    const std::string first = "-7 word " + std::to_string(LLONG_MAX);
    expected[0] = first.c_str();
    expected[2] = longText.c_str();
    for (const char* text : expected) {
        SCOPED_TRACE(text);
        ASSERT_KR_STATUS(KR_RET_TRUE, file.readLine(line));
        EXPECT_TRUE(line == text);
    }
    EXPECT_KR_STATUS(KR_RET_FALSE, file.readLine(line));
    EXPECT_EQ(0u, line.strLeng());
    KR_FileAscii wide(path.c_str(), KR_FILE_MODE_READ);
    KR_StringW lineW;
    EXPECT_KR_STATUS(KR_RET_TRUE, wide.readLineW(lineW));
    EXPECT_TRUE(lineW == widen(first).c_str());
}

TEST(FileAscii, WideTextIsLocaleMultibyte) {
    Utf8Locale locale;
    if (!locale.ok()) GTEST_SKIP() << "no UTF-8 locale";
    TempDir dir;
    const std::string path = dir.file("wide.txt");
    // U+1F600 is one wchar_t on Linux and a surrogate pair on Windows.
    const wchar_t* text = L"a\u00e9\u20ac\U0001F600z";
    {
        KR_FileAscii file(path.c_str(), KR_FILE_MODE_WRITE);
        ASSERT_KR_OK(file.printW(L"%ls\n", text));
        EXPECT_KR_OK(file.print("\xff!"));  // not UTF-8: read back byte for character
    }
    if (sizeof(wchar_t) == 4) {
        EXPECT_EQ("a\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80z\n\xff!", readBytes(path));
        KR_FileAscii file(path.c_str(), KR_FILE_MODE_READ);
        std::wstring got;
        std::vector<long long> positions;
        wchar_t c = 0;
        long long pos = 0;
        while (file.getPos(pos) == KR_RET_TRUE && file.scanCharW(c) == KR_RET_TRUE) {
            got += c;
            positions.push_back(pos);
        }
        EXPECT_EQ(std::wstring(text) + L"\n\xff!", got);
        EXPECT_EQ((std::vector<long long>{0, 1, 3, 6, 10, 11, 12, 13}), positions);
    }
    KR_FileAscii file(path.c_str(), KR_FILE_MODE_READ);
    KR_StringW line;
    EXPECT_KR_STATUS(KR_RET_TRUE, file.readLineW(line));
    EXPECT_EQ(0, wcscmp(text, line));
}

TEST(File, WideFileNames) {
    Utf8Locale locale;
    TempDir dir;
    const std::wstring name = dir.fileW(L"kr_\u00e9\u4e2d.bin");
    KR_FileBinary file(name.c_str(), KR_FILE_MODE_WRITE);
    if (!file.isOpen() && !locale.ok()) GTEST_SKIP() << "names do not convert without UTF-8";
    ASSERT_TRUE(file.isOpen());
    EXPECT_EQ(0, wcscmp(name.c_str(), file.getFileNameW()));
    unsigned int count = 0;
    EXPECT_KR_OK(file.persistVal(12345, count));
    EXPECT_KR_OK(file.close());
    EXPECT_TRUE(KR_filePathExistsW(name.c_str()));
    KR_FileBinary again;
    ASSERT_KR_OK(again.open(name.c_str(), KR_FILE_MODE_READ));
    int value = 0;
    EXPECT_KR_OK(again.restoreVal(value, count));
    EXPECT_EQ(12345, value);
    // The narrow form of the name (where the locale converts it) names the same file.
    if (again.getFileName() != nullptr) {
        KR_FileBinary narrow(again.getFileName(), KR_FILE_MODE_READ);
        EXPECT_TRUE(narrow.isOpen());
    }
    again.close();  // Windows removes no open file
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_fileRemoveW(name.c_str()));
    EXPECT_FALSE(KR_filePathExistsW(name.c_str()));
}

// --- KR_FileBinary ---

template <class T>
class FileBinaryValue : public ::testing::Test {};

template <class T>
struct DiskWidth {
    static constexpr unsigned int value = sizeof(T);
};

template <>
struct DiskWidth<long> {
    static constexpr unsigned int value = 8;
};

template <>
struct DiskWidth<unsigned long> {
    static constexpr unsigned int value = 8;
};

using ValueTypes = ::testing::Types<char,
                                    signed char,
                                    unsigned char,
                                    short,
                                    unsigned short,
                                    int,
                                    unsigned int,
                                    long,
                                    unsigned long,
                                    long long,
                                    unsigned long long,
                                    float,
                                    double>;
TYPED_TEST_SUITE(FileBinaryValue, ValueTypes);

TYPED_TEST(FileBinaryValue, RoundTripsAtItsDiskWidth) {
    using T = TypeParam;
    TempDir dir;
    const std::string path = dir.file("values.bin");
    const T values[] = {std::numeric_limits<T>::lowest(), T(0), T(1), std::numeric_limits<T>::max(),
                        std::numeric_limits<T>::min()};
    const unsigned int width = DiskWidth<T>::value;
    {
        KR_FileBinary file(path.c_str(), KR_FILE_MODE_WRITE);
        unsigned int count = 3;  // counts are added to
        for (T value : values)
            ASSERT_KR_OK(file.persistVal(value, count));
        EXPECT_EQ(3 + 5 * width, count);
    }
    EXPECT_EQ(5 * width, readBytes(path).size());
    KR_FileBinary file(path.c_str(), KR_FILE_MODE_READ);
    unsigned int count = 0;
    for (T expected : values) {
        T value = T(7);
        ASSERT_KR_OK(file.restoreVal(value, count));
        EXPECT_EQ(expected, value);
    }
    EXPECT_EQ(5 * width, count);
    EXPECT_KR_STATUS(KR_RET_TRUE, file.isEof());
    krtest::ReportCapture capture;
    T value = T(7);
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, file.restoreVal(value, count));
    EXPECT_EQ(T(7), value);
    EXPECT_EQ(5 * width, count);
    EXPECT_EQ("ERROR: src/kr_file: line N: KR_FileBinary: unexpected end of file\n" + path +
                      "\nsrc/kr_file: line N: \nFile error\n\n",
              capture.located());
}

TEST(FileBinary, LittleEndianLayoutOfValuesAndTexts) {
    TempDir dir;
    const std::string path = dir.file("layout.bin");
    unsigned int count = 0;
    {
        KR_FileBinary file(path.c_str(), KR_FILE_MODE_WRITE);
        EXPECT_KR_OK(file.persistVal(0x01020304, count));
        EXPECT_KR_OK(file.persistVal(static_cast<short>(-2), count));
        EXPECT_KR_OK(file.persistVal("ab", KR_STORAGE_BINARY, count));
        EXPECT_KR_OK(file.persistVal(static_cast<const char*>(nullptr), KR_STORAGE_BINARY, count));
        EXPECT_KR_OK(file.persistVal(L"a\U0001F600", KR_STORAGE_BINARY, count));
        EXPECT_KR_OK(file.persistBlock("raw", 3, count));
    }
    const std::string expected(
            "\x04\x03\x02\x01"
            "\xfe\xff"
            "\x03\x00\x00\x00"
            "ab\x00"
            "\x00\x00\x00\x00"
            "\x04\x00\x00\x00"
            "a\x00\x3d\xd8\x00\xde\x00\x00"
            "raw",
            4 + 2 + 4 + 3 + 4 + 4 + 8 + 3);
    EXPECT_EQ(expected, readBytes(path));
    EXPECT_EQ(expected.size(), count);
}

TEST(FileBinary, TextsRoundTrip) {
    TempDir dir;
    const std::string path = dir.file("texts.bin");
    const std::string longText(100000, 'q');
    const char* narrow[] = {nullptr, "", "abc", longText.c_str()};
    const wchar_t* wide[] = {nullptr, L"", L"\u00e9t\u00e9", L"x\U0001F600y\U0010FFFF"};
    {
        KR_FileBinary file(path.c_str(), KR_FILE_MODE_WRITE);
        unsigned int count = 0;
        for (const char* text : narrow)
            ASSERT_KR_OK(file.persistVal(text, KR_STORAGE_BINARY, count));
        for (const wchar_t* text : wide)
            ASSERT_KR_OK(file.persistVal(text, KR_STORAGE_BINARY, count));
        krtest::ReportCapture capture;
        EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.persistVal("x", KR_STORAGE_UNDEF, count));
        EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.persistBlock(nullptr, 2, count));
    }
    KR_FileBinary file(path.c_str(), KR_FILE_MODE_READ);
    unsigned int count = 0;
    for (const char* expected : narrow) {
        char* text = reinterpret_cast<char*>(&count);  // overwritten, never freed
        ASSERT_KR_OK(file.restoreVal(text, KR_STORAGE_BINARY, count));
        if (expected == nullptr) {
            EXPECT_EQ(nullptr, text);
        } else {
            ASSERT_NE(nullptr, text);
            EXPECT_STREQ(expected, text);
        }
        free(text);
    }
    for (const wchar_t* expected : wide) {
        wchar_t* text = nullptr;
        ASSERT_KR_OK(file.restoreVal(text, KR_STORAGE_BINARY, count));
        if (expected == nullptr) {
            EXPECT_EQ(nullptr, text);
        } else {
            ASSERT_NE(nullptr, text);
            EXPECT_EQ(0, wcscmp(expected, text));
        }
        free(text);
    }
    EXPECT_KR_STATUS(KR_RET_TRUE, file.isEof());
    long long size = 0;
    EXPECT_KR_OK(file.getSize(size));
    EXPECT_EQ(size, static_cast<long long>(count));
}

TEST(FileBinary, DamagedDataIsAFileError) {
    TempDir dir;
    const std::string path = dir.file("damaged.bin");

    const struct {
        const char* name;
        std::string bytes;
        const char* report;
    } rows[] = {
            {"count beyond the file",
             std::string("\xff\xff\xff\x7f"
                         "abc",
                         7),
             "text longer than the file"},
            {"no terminating zero",
             std::string("\x03\x00\x00\x00"
                         "abc",
                         7),
             "text not terminated"},
            {"count cut short", std::string("\x03\x00", 2), "unexpected end of file"},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        writeBytes(path, row.bytes);
        for (bool wide : {false, true}) {
            KR_FileBinary file(path.c_str(), KR_FILE_MODE_READ);
            krtest::ReportCapture capture;
            unsigned int count = 0;
            KR_RET_STATUS status;
            if (wide) {
                wchar_t* text = nullptr;
                status = file.restoreVal(text, KR_STORAGE_BINARY, count);
                EXPECT_EQ(nullptr, text);
            } else {
                char* text = nullptr;
                status = file.restoreVal(text, KR_STORAGE_BINARY, count);
                EXPECT_EQ(nullptr, text);
            }
            // Three wide units of "abc" need 6 bytes: more than the file has left.
            const std::string report = wide && row.bytes.size() == 7 && row.bytes[0] == 3
                                               ? "text longer than the file"
                                               : row.report;
            EXPECT_KR_STATUS(KR_RET_ERR_FILE, status);
            EXPECT_EQ(0u, count);
            EXPECT_EQ("ERROR: src/kr_file: line N: KR_FileBinary: " + report + "\n" + path +
                              "\nsrc/kr_file: line N: \nFile error\n\n",
                      capture.located());
        }
    }
}

TEST(FileBinary, LongBeyondThePlatformIsRefused) {
    TempDir dir;
    const std::string path = dir.file("long.bin");
    unsigned int count = 0;
    {
        KR_FileBinary file(path.c_str(), KR_FILE_MODE_WRITE);
        EXPECT_KR_OK(file.persistVal(LLONG_MAX, count));
    }
    KR_FileBinary file(path.c_str(), KR_FILE_MODE_READ);
    long value = 5;
    count = 0;
    krtest::ReportCapture capture;
    if (LONG_MAX == LLONG_MAX) {
        EXPECT_KR_OK(file.restoreVal(value, count));
        EXPECT_EQ(LONG_MAX, value);
        EXPECT_EQ(8u, count);
    } else {
        EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.restoreVal(value, count));
        EXPECT_EQ(5, value);
        EXPECT_EQ(0u, count);
    }
}

TEST(FileBinary, AllocationFailuresLeaveNoTextBehind) {
    KR_REQUIRE_FAULT_INJECTION();
    TempDir dir;
    const std::string path = dir.file("fault.bin");
    {
        KR_FileBinary file(path.c_str(), KR_FILE_MODE_WRITE);
        unsigned int count = 0;
        ASSERT_KR_OK(file.persistVal("narrow", KR_STORAGE_BINARY, count));
        ASSERT_KR_OK(file.persistVal(L"wide", KR_STORAGE_BINARY, count));
    }
    krtest::ReportCapture capture;
    krtest::forEachAllocationFailure(
            [&] {
                KR_FileBinary file;
                KR_RET_STATUS status = file.open(path.c_str(), KR_FILE_MODE_READ);
                unsigned int count = 0;
                char* text = nullptr;
                wchar_t* textW = nullptr;
                if (!KRI_FAILED(status)) status = file.restoreVal(text, KR_STORAGE_BINARY, count);
                if (!KRI_FAILED(status)) status = file.restoreVal(textW, KR_STORAGE_BINARY, count);
                bool complete = text != nullptr && textW != nullptr;
                free(text);
                free(textW);
                if (!KRI_FAILED(status) && !complete) return KR_RET_ERR_GEN;
                return status;
            },
            [&](KR_RET_STATUS status, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                EXPECT_NE(std::string::npos, capture.located().find("Memory error"));
                capture.clear();
            });
}

// --- KR_FileBinaryRec ---

TEST(FileBinaryRec, RecordsSurviveReopeningAndRewriting) {
    TempDir dir;
    const std::string path = dir.file("records.rec");
    auto record = [](unsigned int size, unsigned char first) {
        KR_Memory memory(size);
        unsigned char* bytes = static_cast<unsigned char*>(memory.memPtr());
        for (unsigned int i = 0; i < size; ++i)
            bytes[i] = static_cast<unsigned char>(first + i);
        return memory;
    };
    std::vector<std::pair<unsigned int, unsigned char>> model = {{0, 0}, {5, 10}, {100000, 3}};
    {
        KR_FileBinaryRec file(path.c_str(), KR_FILE_MODE_WRITE);
        ASSERT_TRUE(file.isOpen());
        for (const auto& r : model) {
            KR_Memory memory = record(r.first, r.second);
            unsigned int index = 99;
            ASSERT_KR_OK(file.recAppend(memory, index));
            EXPECT_EQ(file.recNum() - 1, index);
        }
    }
    EXPECT_EQ(std::string("KRBR\x01\x00\x00\x00\x03\x00\x00\x00", 12),
              readBytes(path).substr(0, 12));
    {
        KR_FileBinaryRec file(path.c_str(), KR_FILE_MODE_UPDATE);
        ASSERT_EQ(3u, file.recNum());
        KR_Memory same = record(5, 200);
        KR_Memory longer = record(7, 50);
        KR_Memory extra = record(1, 9);
        unsigned int index = 0;
        EXPECT_KR_OK(file.recWrite(1, same));    // in place
        EXPECT_KR_OK(file.recWrite(0, longer));  // new body
        EXPECT_KR_OK(file.recAppend(extra, index));
        model[1] = {5, 200};
        model[0] = {7, 50};
        model.push_back({1, 9});
    }
    KR_FileBinaryRec file(path.c_str(), KR_FILE_MODE_READ);
    ASSERT_EQ(model.size(), file.recNum());
    for (unsigned int i = 0; i < model.size(); ++i) {
        SCOPED_TRACE(i);
        KR_Memory memory(3);
        ASSERT_KR_OK(file.recRead(i, memory));
        KR_Memory expected = record(model[i].first, model[i].second);
        EXPECT_EQ(model[i].first, memory.memSize());
        EXPECT_TRUE(memory == expected);
    }
    krtest::ReportCapture capture;
    KR_Memory memory;
    unsigned int index = 0;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.recRead(4, memory));
    EXPECT_EQ(
            "ERROR: src/kr_file: line N: KR_FileBinaryRec: record\nIndex 4 not in [0,3]"
            "src/kr_file: line N: \nError on function input arguments\n\n",
            capture.located());
    capture.clear();
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, file.recAppend(memory, index));
    EXPECT_EQ(4u, file.recNum());
}

TEST(FileBinaryRec, DamagedFilesDoNotOpen) {
    TempDir dir;
    const std::string path = dir.file("damaged.rec");

    const struct {
        const char* name;
        std::string bytes;
        const char* report;
    } rows[] = {
            {"too short", "KRBR", "not a record file"},
            {"wrong magic", std::string(32, 'x'), "not a record file"},
            {"unknown format", std::string("KRBR\x02", 5) + std::string(27, '\0'),
             "unknown format"},
            {"table beyond the end",
             std::string("KRBR\x01\0\0\0\x01\0\0\0\0\0\0\0\x20", 17) + std::string(15, '\0'),
             "damaged table"},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        writeBytes(path, row.bytes);
        krtest::ReportCapture capture;
        KR_FileBinaryRec file;
        EXPECT_KR_STATUS(KR_RET_ERR_FILE, file.open(path.c_str(), KR_FILE_MODE_READ));
        EXPECT_FALSE(file.isOpen());
        EXPECT_EQ(0u, file.recNum());
        EXPECT_EQ(std::string("ERROR: src/kr_file: line N: KR_FileBinaryRec: ") + row.report +
                          "\n" + path + "\nsrc/kr_file: line N: \nFile error\n\n",
                  capture.located());
        EXPECT_EQ(row.bytes, readBytes(path));  // left as it was
    }
    // Append on a missing file starts an empty record file.
    KR_FileBinaryRec created(dir.file("new.rec").c_str(), KR_FILE_MODE_APPEND);
    EXPECT_TRUE(created.isOpen());
    EXPECT_EQ(0u, created.recNum());
}

// --- file-system functions ---

TEST(FileSystem, MakeDirCreatesMissingParents) {
    TempDir dir;
    const std::string deep = dir.file("a/b/c");
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_fileMakeDir(deep.c_str()));
    EXPECT_TRUE(KR_fileIsDir(deep.c_str()));
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_fileMakeDir(deep.c_str()));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_fileMakeDir(dir.file("a/d//e/").c_str()));
    EXPECT_TRUE(KR_fileIsDir(dir.file("a/d/e").c_str()));
    const std::wstring wide = dir.fileW(L"w1/w2");
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_fileMakeDirW(wide.c_str()));
    EXPECT_TRUE(KR_fileIsDirW(wide.c_str()));
    const std::string file = dir.file("plain");
    writeBytes(file, "x");
    EXPECT_TRUE(KR_filePathExists(file.c_str()));
    EXPECT_FALSE(KR_fileIsDir(file.c_str()));
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_fileMakeDir((file + "/sub").c_str()));
    EXPECT_EQ("ERROR: src/kr_file: line N: KR_fileMakeDir: not a directory\n" + file +
                      "\nsrc/kr_file: line N: \nFile error\n\n",
              capture.located());
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_fileMakeDir(file.c_str()));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_fileMakeDir(nullptr));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_fileMakeDirW(L""));
    EXPECT_FALSE(KR_filePathExists(nullptr));
    EXPECT_FALSE(KR_filePathExists(dir.file("nothing").c_str()));
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_fileRemove(dir.file("a").c_str()));  // not empty
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_fileRemove(dir.file("nothing").c_str()));
}

TEST(FileSystem, PathComponents) {
    struct PathRow {
        const char* path;
        const char* dir;  // null: the component is missing (KR_RET_FALSE)
        const char* name;
        const char* base;
        const char* ext;
    };

    const PathRow rows[] = {
            {"a/b/c.txt", "a/b", "c.txt", "c", "txt"},
            {"c.tar.gz", nullptr, "c.tar.gz", "c.tar", "gz"},
            {"/c.txt", "/", "c.txt", "c", "txt"},
            {"dir/", "dir", nullptr, nullptr, nullptr},
            {"a\\b\\c", "a\\b", "c", "c", nullptr},
            {"C:\\x\\y.h", "C:\\x", "y.h", "y", "h"},
            {"x//.profile", "x", ".profile", ".profile", nullptr},
            {"name.", nullptr, "name.", "name.", nullptr},
            {"a.b/c", "a.b", "c", "c", nullptr},
            {"", nullptr, nullptr, nullptr, nullptr},
    };

    using Narrow = KR_RET_STATUS (*)(KR_String&, const char*);
    using Wide = KR_RET_STATUS (*)(KR_StringW&, const wchar_t*);

    const struct {
        const char* name;
        Narrow narrow;
        Wide wide;
        const char* (*pick)(const PathRow&);
    } parts[] = {
            {"dir", KR_fileGetDir, KR_fileGetDirW, [](const PathRow& r) { return r.dir; }},
            {"name", KR_fileGetName, KR_fileGetNameW, [](const PathRow& r) { return r.name; }},
            {"base", KR_fileGetBaseName, KR_fileGetBaseNameW,
             [](const PathRow& r) { return r.base; }},
            {"ext", KR_fileGetExt, KR_fileGetExtW, [](const PathRow& r) { return r.ext; }},
    };

    for (const auto& row : rows) {
        for (const auto& part : parts) {
            SCOPED_TRACE(std::string(row.path) + " " + part.name);
            const char* expected = part.pick(row);
            KR_String out("stale");
            KR_StringW outW(L"stale");
            const std::wstring pathW = widen(row.path);
            KR_RET_STATUS answer = expected != nullptr ? KR_RET_TRUE : KR_RET_FALSE;
            EXPECT_KR_STATUS(answer, part.narrow(out, row.path));
            EXPECT_KR_STATUS(answer, part.wide(outW, pathW.c_str()));
            EXPECT_TRUE(out == (expected != nullptr ? expected : ""));
            EXPECT_TRUE(outW == widen(expected != nullptr ? expected : "").c_str());
        }
    }
    krtest::ReportCapture capture;
    KR_String out;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_fileGetExt(out, nullptr));
}

TEST(FileSystem, TempNamesAreNewFiles) {
    TempDir dir;
    const std::string base = dir.file("");
    KR_String first;
    KR_String second;
    ASSERT_KR_OK(KR_fileGetTempName(first, base.c_str(), "pre"));
    ASSERT_KR_OK(KR_fileGetTempName(second, base.c_str(), "pre"));
    EXPECT_TRUE(first != second);
    EXPECT_TRUE(KR_filePathExists(first));
    EXPECT_FALSE(KR_fileIsDir(first));
    KR_String name;
    EXPECT_KR_OK(KR_fileGetName(name, first));
    EXPECT_EQ(0, strncmp("pre", name, 3));
    KR_String parent;
    EXPECT_KR_OK(KR_fileGetDir(parent, first));
    EXPECT_TRUE(KR_fileIsDir(parent));
    EXPECT_EQ(base.substr(0, base.size() - 1), std::string(static_cast<const char*>(parent)));
    KR_StringW wide;
    ASSERT_KR_OK(KR_fileGetTempNameW(wide, nullptr, nullptr));
    EXPECT_TRUE(KR_filePathExistsW(wide));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_fileRemoveW(wide));
    KR_String temp;
    EXPECT_KR_OK(KR_fileGetTempDir(temp));
    EXPECT_TRUE(KR_fileIsDir(temp));
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_fileGetTempName(name, dir.file("missing").c_str(), "pre"));
}

TEST(FileSystem, FindInEnvPath) {
    TempDir dir;
    const std::string a = dir.file("a");
    const std::string b = dir.file("b");
    ASSERT_KR_OK(KR_fileMakeDir(a.c_str()));
    ASSERT_KR_OK(KR_fileMakeDir(b.c_str()));
    writeBytes(b + (dir.windowsStyle() ? "\\" : "/") + "tool.cfg", "x");
    ASSERT_KR_OK(KR_fileMakeDir((a + "/tool.cfg.d").c_str()));
    const char listSeparator = dir.windowsStyle() ? ';' : ':';
    // putenv keeps the text: it must live as long as the variable.
    static std::string assignment;
    assignment = "KR_TEST_FIND_PATH=" + std::string(1, listSeparator) + a + listSeparator + b;
    ASSERT_EQ(0, putenv(const_cast<char*>(assignment.c_str())));
    KR_String found;
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_fileFindInEnvPath(found, "tool.cfg", "KR_TEST_FIND_PATH"));
    EXPECT_TRUE(found == (b + (dir.windowsStyle() ? "\\" : "/") + "tool.cfg").c_str());
    KR_StringW foundW;
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_fileFindInEnvPathW(foundW, L"tool.cfg", L"KR_TEST_FIND_PATH"));
    EXPECT_TRUE(foundW == found);
    // A directory of that name does not count.
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_fileFindInEnvPath(found, "tool.cfg.d", "KR_TEST_FIND_PATH"));
    EXPECT_EQ(0u, found.strLeng());
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_fileFindInEnvPath(found, "tool.cfg", "KR_TEST_UNSET_VAR"));
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_fileFindInEnvPath(found, nullptr, "PATH"));
}

// --- KR_Version persistence ---

TEST(VersionPersistence, TextRoundTrip) {
    TempDir dir;
    const std::string path = dir.file("version.txt");
    KR_Version format;
    {
        KR_FileAscii file(path.c_str(), KR_FILE_MODE_WRITE);
        KR_Version one(1, 0, 0);
        KR_Version big(UINT_MAX, 2, 30);
        EXPECT_KR_STATUS(KR_RET_TRUE, one.persist(format, file));
        EXPECT_KR_STATUS(KR_RET_TRUE, big.persist(format, file));
        EXPECT_KR_OK(file.print("<other>1 2 3</other>\n<version></version>"));
    }
    EXPECT_EQ(
            "<version>1 0 0</version>\n<version>4294967295 2 30</version>\n"
            "<other>1 2 3</other>\n<version></version>",
            readBytes(path));
    KR_FileAscii file(path.c_str(), KR_FILE_MODE_READ);
    KR_Version version(9, 9, 9);
    EXPECT_KR_STATUS(KR_RET_TRUE, version.restore(format, file));
    EXPECT_TRUE(version == KR_Version(1, 0, 0));
    EXPECT_KR_STATUS(KR_RET_TRUE, version.restore(format, file));
    EXPECT_TRUE(version == KR_Version(UINT_MAX, 2, 30));
    EXPECT_KR_STATUS(KR_RET_FALSE, version.restore(format, file));  // <other>
    EXPECT_KR_STATUS(KR_RET_FALSE, version.restore(format, file));  // </other>
    EXPECT_TRUE(version == KR_Version(UINT_MAX, 2, 30));
    EXPECT_KR_STATUS(KR_RET_TRUE, version.restore(format, file));  // empty: unchanged
    EXPECT_TRUE(version == KR_Version(UINT_MAX, 2, 30));
    EXPECT_KR_STATUS(KR_RET_FALSE, version.restore(format, file));  // end of file
    KR_FileAscii closed;
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, version.persist(format, closed));
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, version.restore(format, closed));
}

TEST(VersionPersistence, BinaryRoundTrip) {
    TempDir dir;
    const std::string path = dir.file("version.bin");
    KR_Version format;
    unsigned int written = 99;
    {
        KR_FileBinary file(path.c_str(), KR_FILE_MODE_WRITE);
        KR_Version version(1, 2, UINT_MAX);
        EXPECT_KR_STATUS(KR_RET_TRUE, version.persist(format, file, written));
        EXPECT_EQ(12u, written);
        EXPECT_KR_OK(file.persistBlock("\x07\x00", 2, written));  // a cut-off version
    }
    EXPECT_EQ(std::string("\x01\0\0\0\x02\0\0\0\xff\xff\xff\xff\x07\0", 14), readBytes(path));
    KR_FileBinary file(path.c_str(), KR_FILE_MODE_READ);
    KR_Version version;
    unsigned int read = 99;
    EXPECT_KR_STATUS(KR_RET_TRUE, version.restore(format, file, read));
    EXPECT_EQ(12u, read);
    EXPECT_TRUE(version == KR_Version(1, 2, UINT_MAX));
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, version.restore(format, file, read));
    EXPECT_TRUE(version == KR_Version(1, 2, UINT_MAX));
    KR_FileBinary closed;
    capture.clear();
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, version.persist(format, closed, written));
    EXPECT_EQ(0u, written);
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, version.restore(format, closed, read));
    EXPECT_EQ(0u, read);
    EXPECT_EQ(
            "src/kr_version: line N: \nError on function input arguments\n\n"
            "src/kr_version: line N: \nError on function input arguments\n\n",
            capture.located());
}
