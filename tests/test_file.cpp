// test_file.cpp — the file classes, the file-system functions and version persistence.
#include <limits.h>
#include <locale.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "test_support.h"

namespace {

const char kNotOpen[] =
        "ERROR: src/kr_file: line N: KR_File: no file open\n"
        "src/kr_file: line N: \nFile error\n\n";

// The report of a file error: the text, then the name of the file or path.
std::string fileError(const std::string& text, const std::string& name) {
    return "ERROR: src/kr_file: line N: " + text + "\n" + name +
           "\nsrc/kr_file: line N: \nFile error\n\n";
}

std::wstring widen(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

// A fresh directory under the temporary directory, removed with everything in it at the end.
// Windows builds join with "\\": the tests follow whatever separator the library chose.
struct TempDir {
    TempDir() { EXPECT_KR_STATUS(KR_RET_TRUE, KR_fileMakeTempDir(path, nullptr, "krtest")); }

    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(std::filesystem::u8path(static_cast<const char*>(path)),
                                    ignored);
    }

    std::string file(const std::string& name) const {
        return static_cast<const char*>(path) + std::string(1, sep()) + name;
    }

    std::wstring fileW(const std::wstring& name) const { return widen(file("")) + name; }

    char sep() const {
        return strchr(static_cast<const char*>(path), '\\') != nullptr ? '\\' : '/';
    }

    KR_String path;
};

std::string readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return "<missing>";
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// Each test gets a fresh directory and a file name in it.
class FileTest : public ::testing::Test {
protected:
    TempDir dir;
    const std::string path = dir.file("test.dat");
};

}  // namespace

using File = FileTest;
using FileAscii = FileTest;
using FileBinary = FileTest;
using FileBinaryRec = FileTest;
using FileSystem = FileTest;
using VersionPersistence = FileTest;

// --- KR_File ---

TEST_F(File, ClosedFileRefusesEveryOperation) {
    KR_FileAscii text;
    KR_FileBinary binary;
    long long pos = 0;
    char c = 0;
    wchar_t w = 0;
    unsigned int count = 0;
    int value = 0;
    char* restored = nullptr;
    KR_String line;
    KR_Version version, format;
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
            {"version persist", [&] { return version.persist(format, text); }},
            {"version restore", [&] { return version.restore(format, text); }},
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
    EXPECT_EQ(nullptr, text.getFileName());
    EXPECT_EQ("", capture.text());
}

TEST_F(File, FailedOpensReportTheName) {
    const std::string missing = dir.file("no/such/dir/file.txt");
    const std::pair<std::string, KR_FILE_MODE> rows[] = {
            {missing, KR_FILE_MODE_WRITE},  // a missing directory
            {dir.file("missing.txt"), KR_FILE_MODE_READ},
            {dir.file("missing.txt"), KR_FILE_MODE_UPDATE},
            {dir.file(""), KR_FILE_MODE_WRITE},  // a directory
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.first + " mode " + std::to_string(row.second));
        krtest::ReportCapture capture;
        KR_FileBinary file(row.first.c_str(), row.second);
        EXPECT_FALSE(file.isOpen());  // and usable: the argument checks below still run
        EXPECT_EQ(fileError("KR_File: cannot open", row.first), capture.located());
        EXPECT_KR_STATUS(KR_RET_ERR_ARG,
                         file.open(static_cast<const char*>(nullptr), KR_FILE_MODE_READ));
        EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.open(L"", KR_FILE_MODE_READ));
        EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.open(missing.c_str(), static_cast<KR_FILE_MODE>(0)));
    }
}

TEST_F(File, ModesCopiesAndWritingToAReadOnlyFile) {
    const std::pair<KR_FILE_MODE, const char*> steps[] = {
            {KR_FILE_MODE_APPEND, "one"},   // creates the file
            {KR_FILE_MODE_APPEND, " two"},  // continues at the end
            {KR_FILE_MODE_UPDATE, "ONE"},   // overwrites in place
    };
    for (const auto& step : steps)
        EXPECT_KR_OK(KR_FileAscii(path.c_str(), step.first).print("%s", step.second));
    EXPECT_EQ("ONE two", readBytes(path));
    KR_FileAscii file(path.c_str(), KR_FILE_MODE_READ);
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, file.print("x"));
    EXPECT_EQ(fileError("KR_File: opened for reading only", path), capture.located());
    capture.clear();
    // Copies are refused: neither the copy nor the target shares the open file.
    KR_FileAscii copy(file);
    KR_FileAscii target;
    target = file;
    EXPECT_FALSE(copy.isOpen() || target.isOpen());
    EXPECT_TRUE(file.isOpen());
    const std::string nsup = "src/kr_file: line N: \nOperation/function/feature not supported\n\n";
    EXPECT_EQ(nsup + nsup, capture.located());
    long long size = -1;
    EXPECT_KR_OK(KR_FileAscii(path.c_str(), KR_FILE_MODE_WRITE).getSize(size));
    EXPECT_EQ(0, size);
}

// Reads a file larger than several buffers character by character with the position taken
// before each character, stepping back now and then (also across a buffer boundary).
TEST_F(FileAscii, BufferedScanWithSeekBackAcrossBoundaries) {
    std::string content;
    for (int i = 0; content.size() < 3 * 65536 + 17; ++i)
        content += static_cast<char>('a' + i % 23);
    writeBytes(path, content);
    KR_FileAscii file(path.c_str(), KR_FILE_MODE_READ);
    long long pos = 0;
    EXPECT_KR_OK(file.getSize(pos));
    EXPECT_EQ(static_cast<long long>(content.size()), pos);
    size_t lastStep = 0;
    char c = 0;
    for (size_t i = 0; i < content.size(); ++i) {
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
    EXPECT_KR_OK(file.getPos(pos));
    EXPECT_EQ(1, pos);
}

TEST_F(FileAscii, PrintAndReadLines) {
    const std::string longText(5000, 'x');  // beyond the formatter's stack buffer
    const std::string first = "-7 word " + std::to_string(LLONG_MAX);
    {
        KR_FileAscii file(path.c_str(), KR_FILE_MODE_WRITE);
        EXPECT_KR_OK(file.print("%d %s %lld\r\n", -7, "word", LLONG_MAX));
        EXPECT_KR_OK(file.print("\n%s\n", longText.c_str()));
        EXPECT_KR_OK(file.printW(L"%ls=%d\n", widen(longText).c_str(), 42));
        EXPECT_KR_OK(file.print("last"));
        krtest::ReportCapture capture;
        EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.print(nullptr));
        EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.printW(nullptr));
    }
    EXPECT_EQ(first + "\r\n\n" + longText + "\n" + longText + "=42\nlast", readBytes(path));
    KR_FileAscii file(path.c_str(), KR_FILE_MODE_READ);
    KR_String line("stale");
    for (const std::string& expected :
         {first, std::string(), longText, longText + "=42", std::string("last")}) {
        ASSERT_KR_STATUS(KR_RET_TRUE, file.readLine(line));
        EXPECT_TRUE(line == expected.c_str()) << expected;
    }
    EXPECT_KR_STATUS(KR_RET_FALSE, file.readLine(line));
    EXPECT_EQ(0u, line.strLeng());
    KR_StringW lineW;
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_FileAscii(path.c_str(), KR_FILE_MODE_READ).readLineW(lineW));
    EXPECT_TRUE(lineW == widen(first).c_str());
}

TEST_F(FileAscii, WideTextIsLocaleMultibyte) {
    krtest::Utf8Locale locale;
    if (!locale.ok) GTEST_SKIP() << "no UTF-8 locale";
    // U+1F600 is one wchar_t on Linux and a surrogate pair on Windows.
    const wchar_t* text = L"a\u00e9\u20ac\U0001F600z";
    {
        KR_FileAscii file(path.c_str(), KR_FILE_MODE_WRITE);
        ASSERT_KR_OK(file.printW(L"%ls\n", text));
        EXPECT_KR_OK(file.print("\xff!"));  // not UTF-8: read back byte for character
    }
    KR_StringW line;
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_FileAscii(path.c_str(), KR_FILE_MODE_READ).readLineW(line));
    EXPECT_EQ(0, wcscmp(text, line));
    if (sizeof(wchar_t) < 4) return;
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

TEST_F(File, WideFileNames) {
    krtest::Utf8Locale locale;
    const std::wstring name = dir.fileW(L"kr_\u00e9\u4e2d.bin");
    KR_FileBinary file(name.c_str(), KR_FILE_MODE_WRITE);
    if (!file.isOpen() && !locale.ok) GTEST_SKIP() << "names do not convert without UTF-8";
    ASSERT_TRUE(file.isOpen());
    EXPECT_EQ(0, wcscmp(name.c_str(), file.getFileNameW()));
    unsigned int count = 0;
    EXPECT_KR_OK(file.persistVal(12345, count));
    EXPECT_KR_OK(file.close());
    EXPECT_TRUE(KR_filePathExistsW(name.c_str()));
    KR_FileBinary again(name.c_str(), KR_FILE_MODE_READ);
    int value = 0;
    EXPECT_KR_OK(again.restoreVal(value, count));
    EXPECT_EQ(12345, value);
    // The narrow form of the name (where the locale converts it) names the same file.
    EXPECT_TRUE(again.getFileName() == nullptr ||
                KR_FileBinary(again.getFileName(), KR_FILE_MODE_READ).isOpen());
    again.close();  // Windows removes no open file
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_fileRemoveW(name.c_str()));
    EXPECT_FALSE(KR_filePathExistsW(name.c_str()));
}

// --- KR_FileBinary ---

template <class T>
class FileBinaryValue : public FileTest {};

// clang-format off
using ValueTypes = ::testing::Types<char, signed char, unsigned char, short, unsigned short, int,
        unsigned int, long, unsigned long, long long, unsigned long long, float, double>;
// clang-format on
TYPED_TEST_SUITE(FileBinaryValue, ValueTypes);

TYPED_TEST(FileBinaryValue, RoundTripsAtItsDiskWidth) {
    using T = TypeParam;
    const T values[] = {std::numeric_limits<T>::lowest(), T(0), T(1), std::numeric_limits<T>::max(),
                        std::numeric_limits<T>::min()};
    // long takes 8 bytes on every platform.
    const unsigned int width =
            std::is_same<T, long>::value || std::is_same<T, unsigned long>::value ? 8 : sizeof(T);
    unsigned int count = 3;  // counts are added to
    {
        KR_FileBinary file(this->path.c_str(), KR_FILE_MODE_WRITE);
        for (T value : values)
            ASSERT_KR_OK(file.persistVal(value, count));
    }
    EXPECT_EQ(3 + 5 * width, count);
    EXPECT_EQ(5 * width, readBytes(this->path).size());
    KR_FileBinary file(this->path.c_str(), KR_FILE_MODE_READ);
    count = 0;
    for (T expected : values) {
        T value = T(7);
        ASSERT_KR_OK(file.restoreVal(value, count));
        EXPECT_EQ(expected, value);
    }
    EXPECT_KR_STATUS(KR_RET_TRUE, file.isEof());
    krtest::ReportCapture capture;
    T value = T(7);
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, file.restoreVal(value, count));
    EXPECT_EQ(T(7), value);
    EXPECT_EQ(5 * width, count);
    EXPECT_EQ(fileError("KR_FileBinary: unexpected end of file", this->path), capture.located());
}

TEST_F(FileBinary, LittleEndianLayoutOfValuesAndTexts) {
    unsigned int count = 0;
    {
        KR_FileBinary file(path.c_str(), KR_FILE_MODE_WRITE);
        EXPECT_KR_OK(file.persistVal(0x01020304, count));
        EXPECT_KR_OK(file.persistVal(static_cast<short>(-2), count));
        EXPECT_KR_OK(file.persistVal(-2L, count));
        EXPECT_KR_OK(file.persistVal("ab", KR_STORAGE_BINARY, count));
        EXPECT_KR_OK(file.persistVal(static_cast<const char*>(nullptr), KR_STORAGE_BINARY, count));
        EXPECT_KR_OK(file.persistVal(L"a\U0001F600", KR_STORAGE_BINARY, count));
        EXPECT_KR_OK(file.persistBlock("raw", 3, count));
        EXPECT_KR_OK(file.persistVal(LLONG_MAX, count));
    }
    const std::string expected(
            "\x04\x03\x02\x01"
            "\xfe\xff"
            "\xfe\xff\xff\xff\xff\xff\xff\xff"
            "\x03\x00\x00\x00"
            "ab\x00"
            "\x00\x00\x00\x00"
            "\x04\x00\x00\x00"
            "a\x00\x3d\xd8\x00\xde\x00\x00"
            "raw"
            "\xff\xff\xff\xff\xff\xff\xff\x7f",
            4 + 2 + 8 + 4 + 3 + 4 + 4 + 8 + 3 + 8);
    EXPECT_EQ(expected, readBytes(path));
    EXPECT_EQ(expected.size(), count);
    // A long beyond the platform's own long (32 bits on Windows) is refused and left unchanged.
    KR_FileBinary file(path.c_str(), KR_FILE_MODE_READ);
    long value = 5;
    count = 0;
    krtest::ReportCapture capture;
    const bool fits = LONG_MAX == LLONG_MAX;
    ASSERT_KR_OK(file.setPos(static_cast<long long>(expected.size() - 8)));
    EXPECT_KR_STATUS(fits ? KR_RET_TRUE : KR_RET_ERR_ARG, file.restoreVal(value, count));
    EXPECT_EQ(fits ? LONG_MAX : 5, value);
    EXPECT_EQ(fits ? 8u : 0u, count);
}

TEST_F(FileBinary, TextsRoundTrip) {
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
        EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.persistVal(L"x", KR_STORAGE_UNDEF, count));
        EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.persistBlock(nullptr, 2, count));
    }
    KR_FileBinary file(path.c_str(), KR_FILE_MODE_READ);
    unsigned int count = 0;
    auto restoreAll = [&](const auto& texts) {
        for (const auto* expected : texts) {
            using Char = std::remove_const_t<std::remove_pointer_t<decltype(expected)>>;
            Char* text = reinterpret_cast<Char*>(&count);  // overwritten, never freed
            ASSERT_KR_OK(file.restoreVal(text, KR_STORAGE_BINARY, count));
            EXPECT_STREQ(expected, text);  // a null text only for a null text
            free(text);
        }
    };
    restoreAll(narrow);
    restoreAll(wide);
    EXPECT_KR_STATUS(KR_RET_TRUE, file.isEof());
    long long size = 0;
    EXPECT_KR_OK(file.getSize(size));
    EXPECT_EQ(size, static_cast<long long>(count));
}

TEST_F(FileBinary, DamagedDataIsAFileError) {
    const char* const kLonger = "text longer than the file";
    const char* const kUnterminated = "text not terminated";

    const struct {
        std::string bytes;
        const char* narrowReport;
        const char* wideReport;  // wide units take two bytes each
    } rows[] = {
            {std::string("\xff\xff\xff\x7f", 4) + "abc", kLonger, kLonger},
            {std::string("\x03\0\0\0", 4) + "abc", kUnterminated, kLonger},
            {std::string("\x02\0\0\0", 4) + "abcd", kUnterminated, kUnterminated},
            {std::string("\x03\x00", 2), "unexpected end of file", "unexpected end of file"},
    };

    for (const auto& row : rows) {
        writeBytes(path, row.bytes);
        for (bool wide : {false, true}) {
            SCOPED_TRACE(row.bytes + (wide ? " wide" : ""));
            KR_FileBinary file(path.c_str(), KR_FILE_MODE_READ);
            krtest::ReportCapture capture;
            unsigned int count = 0;
            char* text = nullptr;
            wchar_t* textW = nullptr;
            EXPECT_KR_STATUS(KR_RET_ERR_FILE,
                             wide ? file.restoreVal(textW, KR_STORAGE_BINARY, count)
                                  : file.restoreVal(text, KR_STORAGE_BINARY, count));
            EXPECT_TRUE(text == nullptr && textW == nullptr && count == 0);
            const std::string report = wide ? row.wideReport : row.narrowReport;
            EXPECT_EQ(fileError("KR_FileBinary: " + report, path), capture.located());
        }
    }
}

// --- KR_FileBinaryRec ---

TEST_F(FileBinaryRec, RecordsSurviveReopeningAndRewriting) {
    // A record of size bytes counting up from first.
    auto record = [](unsigned int size, unsigned char first) {
        KR_Memory memory(size);
        for (unsigned int i = 0; i < size; ++i)
            static_cast<unsigned char*>(memory.memPtr())[i] = static_cast<unsigned char>(first + i);
        return memory;
    };
    std::vector<KR_Memory> model = {record(0, 0), record(5, 10), record(100000, 3)};
    unsigned int index = 99;
    {
        KR_FileBinaryRec file(path.c_str(), KR_FILE_MODE_WRITE);
        for (KR_Memory& memory : model) {
            ASSERT_KR_OK(file.recAppend(memory, index));
            EXPECT_EQ(file.recNum() - 1, index);
        }
    }
    EXPECT_EQ(std::string("KRBR\x01\0\0\0\x03\0\0\0", 12), readBytes(path).substr(0, 12));
    model[1] = record(5, 200);  // the same size: rewritten in place
    model[0] = record(7, 50);   // another size: a new body
    model.push_back(record(1, 9));
    {
        KR_FileBinaryRec file(path.c_str(), KR_FILE_MODE_UPDATE);
        ASSERT_EQ(3u, file.recNum());
        EXPECT_KR_OK(file.recWrite(1, model[1]));
        EXPECT_KR_OK(file.recWrite(0, model[0]));
        EXPECT_KR_OK(file.recAppend(model[3], index));
    }
    KR_FileBinaryRec file(path.c_str(), KR_FILE_MODE_READ);
    ASSERT_EQ(model.size(), file.recNum());
    for (unsigned int i = 0; i < model.size(); ++i) {
        KR_Memory memory(3);
        ASSERT_KR_OK(file.recRead(i, memory));
        EXPECT_EQ(model[i].memSize(), memory.memSize()) << i;
        EXPECT_TRUE(memory == model[i]) << i;
    }
    krtest::ReportCapture capture;
    KR_Memory memory;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.recRead(4, memory));
    EXPECT_EQ(
            "ERROR: src/kr_file: line N: KR_FileBinaryRec: record\nIndex 4 not in [0,3]"
            "src/kr_file: line N: \nError on function input arguments\n\n",
            capture.located());
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, file.recAppend(memory, index));
    EXPECT_EQ(4u, file.recNum());
}

TEST_F(FileBinaryRec, DamagedFilesDoNotOpen) {
    const std::pair<std::string, const char*> rows[] = {
            {"KRBR", "not a record file"},
            {std::string(32, 'x'), "not a record file"},
            {std::string("KRBR\x02", 5) + std::string(27, '\0'), "unknown format"},
            {std::string("KRBR\x01\0\0\0\x01\0\0\0\0\0\0\0\x20", 17) + std::string(15, '\0'),
             "damaged table"},  // the table lies beyond the end
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.second);
        writeBytes(path, row.first);
        krtest::ReportCapture capture;
        KR_FileBinaryRec file(path.c_str(), KR_FILE_MODE_READ);
        EXPECT_FALSE(file.isOpen());
        EXPECT_EQ(0u, file.recNum());
        EXPECT_EQ(fileError(std::string("KR_FileBinaryRec: ") + row.second, path),
                  capture.located());
        EXPECT_EQ(row.first, readBytes(path));  // left as it was
    }
    // Append on a missing file starts an empty record file.
    KR_FileBinaryRec created(dir.file("new.rec").c_str(), KR_FILE_MODE_APPEND);
    EXPECT_TRUE(created.isOpen());
    EXPECT_EQ(0u, created.recNum());
}

// --- file-system functions ---

TEST_F(FileSystem, MakeDirCreatesMissingParents) {
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
    EXPECT_EQ(fileError("KR_fileMakeDir: not a directory", file), capture.located());
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_fileMakeDir(file.c_str()));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_fileMakeDir(nullptr));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_fileMakeDirW(L""));
    EXPECT_FALSE(KR_filePathExists(nullptr));
    EXPECT_FALSE(KR_filePathExists(dir.file("nothing").c_str()));
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_fileRemove(dir.file("a").c_str()));  // not empty
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_fileRemove(dir.file("nothing").c_str()));
}

TEST_F(FileSystem, PathComponents) {
    // The path, then its directory, name, base name and extension; null: none.
    const char* const rows[][5] = {
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
    KR_RET_STATUS(*const narrow[])
    (KR_String&, const char*) = {KR_fileGetDir, KR_fileGetName, KR_fileGetBaseName, KR_fileGetExt};
    KR_RET_STATUS(*const wide[])
    (KR_StringW&, const wchar_t*) = {KR_fileGetDirW, KR_fileGetNameW, KR_fileGetBaseNameW,
                                     KR_fileGetExtW};
    for (const auto& row : rows) {
        for (int part = 0; part < 4; ++part) {
            SCOPED_TRACE(std::string(row[0]) + " part " + std::to_string(part));
            const char* expected = row[part + 1] != nullptr ? row[part + 1] : "";
            KR_String out("stale");
            KR_StringW outW(L"stale");
            KR_RET_STATUS answer = row[part + 1] != nullptr ? KR_RET_TRUE : KR_RET_FALSE;
            EXPECT_KR_STATUS(answer, narrow[part](out, row[0]));
            EXPECT_KR_STATUS(answer, wide[part](outW, widen(row[0]).c_str()));
            EXPECT_TRUE(out == expected);
            EXPECT_TRUE(outW == widen(expected).c_str());
        }
    }
    krtest::ReportCapture capture;
    KR_String out;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_fileGetExt(out, nullptr));
    // A failed accessor's KR_NULL_PTR reference is refused and never receives text.
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, KR_fileGetDir(krInternal::nullRef<KR_String>(), "a/b"));
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, KR_fileGetExtW(krInternal::nullRef<KR_StringW>(), L"c.h"));
    for (unsigned char byte : KR_NULL_PTR.bytes)
        ASSERT_EQ(0, byte);
}

TEST_F(FileSystem, TempNamesAreNewFiles) {
    KR_String first, second;
    ASSERT_KR_OK(KR_fileGetTempName(first, dir.path, "pre"));
    ASSERT_KR_OK(KR_fileGetTempName(second, dir.path, "pre"));
    EXPECT_TRUE(first != second);
    EXPECT_TRUE(KR_filePathExists(first) && !KR_fileIsDir(first));
    EXPECT_EQ(0, strncmp(dir.file("pre").c_str(), first, dir.file("pre").size()));
    KR_StringW wide;
    ASSERT_KR_OK(KR_fileGetTempNameW(wide, nullptr, nullptr));
    EXPECT_TRUE(KR_filePathExistsW(wide));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_fileRemoveW(wide));
    EXPECT_KR_OK(KR_fileGetTempDir(first));
    EXPECT_TRUE(KR_fileIsDir(first));
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_fileGetTempName(first, dir.file("no").c_str(), "pre"));
}

TEST_F(FileSystem, FindInEnvPath) {
    const std::string a = dir.file("a");
    const std::string b = dir.file("b");
    ASSERT_KR_OK(KR_fileMakeDir(a.c_str()));
    ASSERT_KR_OK(KR_fileMakeDir((b + dir.sep() + "tool.cfg.d").c_str()));
    writeBytes(a + dir.sep() + "tool.cfg", "x");
    const char list = dir.sep() == '\\' ? ';' : ':';
    // putenv keeps the text: it must live as long as the variable.
    static std::string assignment;
    assignment = "KR_TEST_FIND_PATH=" + std::string(1, list) + b + list + a;
    ASSERT_EQ(0, putenv(const_cast<char*>(assignment.c_str())));
    KR_String found;
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_fileFindInEnvPath(found, "tool.cfg", "KR_TEST_FIND_PATH"));
    EXPECT_TRUE(found == (a + dir.sep() + "tool.cfg").c_str());
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

// --- allocation failures ---

namespace {

// What one walk step works on; made afresh before each step, outside the countdown.
struct Walk {
    TempDir dir;
    const std::string f = dir.file("f");
    const std::wstring fW = dir.fileW(L"f");
    KR_String out{"stale"};
    KR_StringW outW{L"stale"};
    KR_FileAscii text;
    KR_FileBinaryRec rec;
    KR_Memory memory{3};
    char* restored = nullptr;
    wchar_t* restoredW = nullptr;
    unsigned int count = 0;

    ~Walk() {
        free(restored);
        free(restoredW);
    }

    // An output is emptied or left as it was, never half filled.
    bool outputsKept() const {
        return (out == "stale" || out.strLeng() == 0) && (outW == L"stale" || outW.strLeng() == 0);
    }

    bool dirEmpty() const {
        return std::filesystem::is_empty(
                std::filesystem::u8path(static_cast<const char*>(dir.path)));
    }
};

// A constructor or a yes/no function answers through the last status code.
KR_RET_STATUS answer(bool yes) {
    return yes ? KR_RET_TRUE : KR_getStatusCode();
}

template <class File>
KR_RET_STATUS openByConstructor(Walk& w) {
    return answer(File(w.fW.c_str(), KR_FILE_MODE_WRITE).isOpen());
}

const std::string kLong(5000, 'x');  // longer than any buffer on the stack
const std::wstring kLongW(5000, L'x');
const char kEnvVar[] = "KR_TEST_WALK_PATH";

void openLines(Walk& w) {
    writeBytes(w.f, kLong + "\n\xff");
    w.text.open(w.f.c_str(), KR_FILE_MODE_READ);
}

void openForWriting(Walk& w) {
    w.text.open(w.f.c_str(), KR_FILE_MODE_WRITE);
}

bool nothingWritten(Walk& w) {
    return w.text.close() == KR_RET_TRUE && readBytes(w.f).empty();
}

bool noFile(Walk& w) {
    return !KR_filePathExists(w.f.c_str());
}

struct WalkRow {
    const char* name;
    void (*setup)(Walk&);  // optional
    KR_RET_STATUS (*op)(Walk&);
    KR_RET_STATUS (*opW)(Walk&);    // the wide twin, walked as name + "W"; optional
    bool (*kept)(Walk&) = nullptr;  // the state a failed step leaves
    const char* report = nullptr;   // null: the file unit's own memory report
    bool convertsName = false;      // allocates only where a wide name is converted (POSIX)
};

const WalkRow kWalkRows[] = {
        {"reopen by wide name, scanCharW", openLines,
         [](Walk& w) {
             wchar_t c = L'?';
             KR_RET_STATUS status = w.text.open(w.fW.c_str(), KR_FILE_MODE_READ);
             return krtest::failed(status) ? status : w.text.scanCharW(c);
         },
         nullptr, [](Walk& w) { return !w.text.isOpen() && w.text.getFileName() == nullptr; }},
        {"open through the wide calls", [](Walk& w) { writeBytes(w.f, "a"); },
         [](Walk& w) {
             unsigned char saved = KR_useUnicodeSystemFunctions;
             KR_useUnicodeSystemFunctions = 1;
             KR_RET_STATUS status = w.text.open(w.f.c_str(), KR_FILE_MODE_UPDATE);
             KR_useUnicodeSystemFunctions = saved;
             return status;
         },
         nullptr, [](Walk& w) { return !w.text.isOpen() && readBytes(w.f) == "a"; }},
        {"FileAscii(wide)", nullptr, openByConstructor<KR_FileAscii>, nullptr, noFile},
        {"FileBinary(wide)", nullptr, openByConstructor<KR_FileBinary>, nullptr, noFile},
        {"FileBinaryRec(wide)", nullptr, openByConstructor<KR_FileBinaryRec>, nullptr, noFile},
        {"print", openForWriting, [](Walk& w) { return w.text.print("%s", kLong.c_str()); },
         [](Walk& w) { return w.text.printW(L"%ls", kLongW.c_str()); }, nothingWritten},
        {"readLine", openLines, [](Walk& w) { return w.text.readLine(w.out); },
         [](Walk& w) { return w.text.readLineW(w.outW); },
         // The output read into is emptied; the other one keeps its five characters.
         [](Walk& w) { return w.out.strLeng() == 0 || w.outW.strLeng() == 0; }},
        {"texts persisted and restored", nullptr,
         [](Walk& w) {
             KR_FileBinary file;
             unsigned int written = 0;
             const std::function<KR_RET_STATUS()> steps[] = {
                     [&] { return file.open(w.fW.c_str(), KR_FILE_MODE_WRITE); },
                     [&] { return file.persistVal(kLong.c_str(), KR_STORAGE_BINARY, written); },
                     [&] { return file.persistVal(kLongW.c_str(), KR_STORAGE_BINARY, written); },
                     [&] { return file.setPos(0); },
                     [&] { return file.restoreVal(w.restored, KR_STORAGE_BINARY, w.count); },
                     [&] { return file.restoreVal(w.restoredW, KR_STORAGE_BINARY, w.count); }};
             KR_RET_STATUS status = KR_RET_TRUE;
             for (size_t i = 0; i < 6 && !krtest::failed(status); ++i)
                 status = steps[i]();
             return status;
         },
         nullptr,
         [](Walk& w) { return w.restoredW == nullptr && w.count == (w.restored ? 5005u : 0u); }},
        {"recAppend", [](Walk& w) { w.rec.open(w.f.c_str(), KR_FILE_MODE_WRITE); },
         [](Walk& w) { return w.rec.recAppend(w.memory, w.count); }, nullptr,
         [](Walk& w) { return w.rec.recNum() == 0; }},
        {"recRead",
         [](Walk& w) {
             w.rec.open(w.f.c_str(), KR_FILE_MODE_WRITE);
             w.rec.recAppend(w.memory, w.count);
         },
         [](Walk& w) { return w.rec.recRead(0, w.memory); }, nullptr,
         [](Walk& w) { return w.memory.memSize() == 0 && w.rec.recNum() == 1; },
         "ERROR: src/kr_mem: line N: KR_Memory allocation\nMemory error"
         "src/kr_mem: line N: \nMemory error\n\n"},
        {"record file reopened",
         [](Walk& w) {
             KR_FileBinaryRec(w.f.c_str(), KR_FILE_MODE_WRITE).recAppend(w.memory, w.count);
         },
         [](Walk& w) { return w.rec.open(w.fW.c_str(), KR_FILE_MODE_UPDATE); }, nullptr,
         [](Walk& w) { return !w.rec.isOpen() && w.rec.recNum() == 0; }},
        {"KR_fileMakeDir", nullptr,
         [](Walk& w) { return KR_fileMakeDir(w.dir.file("a/b").c_str()); },
         [](Walk& w) { return KR_fileMakeDirW(w.dir.fileW(L"a/b").c_str()); },
         [](Walk& w) { return !KR_fileIsDir(w.dir.file("a/b").c_str()); }},
        {"KR_filePathExistsW", [](Walk& w) { writeBytes(w.f, "a"); },
         [](Walk& w) { return answer(KR_filePathExistsW(w.fW.c_str())); }, nullptr, nullptr,
         nullptr, true},
        {"KR_fileIsDirW", nullptr,
         [](Walk& w) { return answer(KR_fileIsDirW(w.dir.fileW(L"").c_str())); }, nullptr, nullptr,
         nullptr, true},
        {"KR_fileRemoveW", [](Walk& w) { writeBytes(w.f, "a"); },
         [](Walk& w) { return KR_fileRemoveW(w.fW.c_str()); }, nullptr,
         [](Walk& w) { return KR_filePathExists(w.f.c_str()) != 0; }, nullptr, true},
        {"KR_fileGetTempDir", nullptr, [](Walk& w) { return KR_fileGetTempDir(w.out); },
         [](Walk& w) { return KR_fileGetTempDirW(w.outW); }},
        {"KR_fileGetTempName", nullptr,
         [](Walk& w) { return KR_fileGetTempName(w.out, w.dir.path, "pre"); },
         [](Walk& w) { return KR_fileGetTempNameW(w.outW, w.dir.fileW(L"").c_str(), L"pre"); },
         [](Walk& w) { return w.dirEmpty(); }},
        {"KR_fileMakeTempDir", nullptr,
         [](Walk& w) { return KR_fileMakeTempDir(w.out, w.dir.path, nullptr); },
         [](Walk& w) { return KR_fileMakeTempDirW(w.outW, w.dir.fileW(L"").c_str(), nullptr); },
         [](Walk& w) { return w.dirEmpty(); }},
        {"KR_fileFindInEnvPath", nullptr,
         [](Walk& w) { return KR_fileFindInEnvPath(w.out, "f", kEnvVar); },
         [](Walk& w) { return KR_fileFindInEnvPathW(w.outW, L"f", L"KR_TEST_WALK_PATH"); }},
        {"KR_fileGetDir", nullptr, [](Walk& w) { return KR_fileGetDir(w.out, "a/b.c"); },
         [](Walk& w) { return KR_fileGetDirW(w.outW, L"a/b.c"); }},
        {"KR_fileGetName", nullptr, [](Walk& w) { return KR_fileGetName(w.out, "a/b.c"); },
         [](Walk& w) { return KR_fileGetNameW(w.outW, L"a/b.c"); }},
        {"KR_fileGetBaseName", nullptr, [](Walk& w) { return KR_fileGetBaseName(w.out, "a/b.c"); },
         [](Walk& w) { return KR_fileGetBaseNameW(w.outW, L"a/b.c"); }},
        {"KR_fileGetExt", nullptr, [](Walk& w) { return KR_fileGetExt(w.out, "a/b.c"); },
         [](Walk& w) { return KR_fileGetExtW(w.outW, L"a/b.c"); }},
};

}  // namespace

// Every allocating operation of the file unit, with each of its allocations failing in turn:
// KR_RET_ERR_MEM with one report, outputs emptied or kept, nothing created; no leak (ASan).
TEST(FileAllocation, EveryFailureIsAMemoryError) {
    KR_REQUIRE_FAULT_INJECTION();
    TempDir listed;  // the variable lists a missing directory, then one with "f" in it
    writeBytes(listed.file("f"), "a");
    static std::string assignment;
    assignment = std::string(kEnvVar) + "=" + listed.file("none") +
                 (listed.sep() == '\\' ? ";" : ":") + static_cast<const char*>(listed.path);
    ASSERT_EQ(0, putenv(const_cast<char*>(assignment.c_str())));
    krtest::ReportCapture capture;
    for (const WalkRow& row : kWalkRows) {
        for (auto op : {row.op, row.opW}) {
            if (op == nullptr) continue;
            SCOPED_TRACE(row.name + std::string(op == row.opW ? "W" : ""));
            unsigned long failures = 0;
            krtest::forEachAllocationFailure(
                    [&] {
                        auto w = std::make_unique<Walk>();
                        if (row.setup != nullptr) row.setup(*w);
                        capture.clear();
                        KR_clearStatusCode();
                        return w;
                    },
                    [&](std::unique_ptr<Walk>& w) { return op(*w); },
                    [&](std::unique_ptr<Walk>& w, KR_RET_STATUS status, unsigned long) {
                        ++failures;
                        EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                        EXPECT_EQ(row.report != nullptr ? row.report
                                                        : "src/kr_file: line N: \nMemory error\n\n",
                                  capture.located());
                        EXPECT_TRUE(w->outputsKept());
                        EXPECT_TRUE(row.kept == nullptr || row.kept(*w));
                    });
            EXPECT_TRUE(failures > 0 ||
                        (row.convertsName && std::filesystem::path::preferred_separator == '\\'));
        }
    }
}

// --- KR_Version persistence ---

TEST_F(VersionPersistence, TextRoundTrip) {
    KR_Version format;
    {
        KR_FileAscii file(path.c_str(), KR_FILE_MODE_WRITE);
        EXPECT_KR_STATUS(KR_RET_TRUE, KR_Version(1, 0, 0).persist(format, file));
        EXPECT_KR_STATUS(KR_RET_TRUE, KR_Version(UINT_MAX, 2, 30).persist(format, file));
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
    // Then <other>, </other>, an empty version (changing nothing) and the end of the file.
    for (KR_RET_STATUS expected :
         {KR_RET_TRUE, KR_RET_FALSE, KR_RET_FALSE, KR_RET_TRUE, KR_RET_FALSE}) {
        EXPECT_KR_STATUS(expected, version.restore(format, file));
        EXPECT_TRUE(version == KR_Version(UINT_MAX, 2, 30));
    }
}

TEST_F(VersionPersistence, BinaryRoundTrip) {
    KR_Version format;
    unsigned int written = 99;
    {
        KR_FileBinary file(path.c_str(), KR_FILE_MODE_WRITE);
        EXPECT_KR_STATUS(KR_RET_TRUE, KR_Version(1, 2, UINT_MAX).persist(format, file, written));
        EXPECT_EQ(12u, written);
        EXPECT_KR_OK(file.persistBlock("\x07\x00", 2, written));  // a cut-off version
    }
    EXPECT_EQ(std::string("\x01\0\0\0\x02\0\0\0\xff\xff\xff\xff\x07\0", 14), readBytes(path));
    KR_FileBinary file(path.c_str(), KR_FILE_MODE_READ);
    KR_Version version;
    unsigned int read = 99;
    EXPECT_KR_STATUS(KR_RET_TRUE, version.restore(format, file, read));
    EXPECT_EQ(12u, read);
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, version.restore(format, file, read));
    EXPECT_TRUE(version == KR_Version(1, 2, UINT_MAX));
    KR_FileBinary closed;
    capture.clear();
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, version.persist(format, closed, written));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, version.restore(format, closed, read));
    EXPECT_EQ(0u, written + read);
    const std::string arg = "src/kr_version: line N: \nError on function input arguments\n\n";
    EXPECT_EQ(arg + arg, capture.located());
}
