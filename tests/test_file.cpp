// test_file.cpp — the file classes, the file-system functions and version persistence.
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include <algorithm>
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

// The report of a file error: the text, then the name of the file or path if there is one.
std::string fileError(const std::string& text, const std::string& name = "") {
    return "ERROR: src/kr_file: line N: " + text + "\n" + name + (name.empty() ? "" : "\n") +
           "src/kr_file: line N: \nFile error\n\n";
}

// A fresh temporary directory, removed with its contents; paths use the library's separator.
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

    std::wstring fileW(const std::wstring& name) const {
        const std::string narrow = file("");
        return std::wstring(narrow.begin(), narrow.end()) + name;
    }

    char sep() const { return strchr(static_cast<const char*>(path), '\\') ? '\\' : '/'; }

    KR_String path;
};

std::string readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

class File : public ::testing::Test {
protected:
    TempDir dir;
    const std::string path = dir.file("test.dat");
};

}  // namespace

TEST_F(File, ModesCopiesFailedOpensAndClosedFiles) {
    EXPECT_KR_OK(KR_FileAscii(path.c_str(), KR_FILE_MODE_APPEND).print("one"));  // creates
    EXPECT_KR_OK(KR_FileAscii(path.c_str(), KR_FILE_MODE_APPEND).print(" two"));
    EXPECT_KR_OK(KR_FileAscii(path.c_str(), KR_FILE_MODE_UPDATE).print("ONE"));  // in place
    EXPECT_EQ("ONE two", readBytes(path));
    KR_FileAscii file(path.c_str(), KR_FILE_MODE_READ);
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, file.print("x"));
    EXPECT_EQ(fileError("KR_File: opened for reading only", path), capture.located());
    capture.clear();
    // Copies are refused: neither the copy nor the target shares the open file.
    KR_FileAscii copy(file), target;
    target = file;
    EXPECT_FALSE(copy.isOpen() || target.isOpen() || !file.isOpen());
    const std::string nsup = "src/kr_file: line N: \nOperation/function/feature not supported\n\n";
    EXPECT_EQ(nsup + nsup, capture.located());
    long long size = -1;  // writing empties the file
    EXPECT_TRUE(KR_FileAscii(path.c_str(), KR_FILE_MODE_WRITE).getSize(size) == KR_RET_TRUE &&
                !size);
    // A missing directory, a missing file to read, a directory: the file is closed after each.
    for (const std::string& name : {dir.file("no/dir/f"), dir.file("none"), dir.file("")}) {
        capture.clear();
        KR_FILE_MODE mode = name == dir.file("none") ? KR_FILE_MODE_READ : KR_FILE_MODE_WRITE;
        EXPECT_KR_STATUS(KR_RET_ERR_FILE, file.open(name.c_str(), mode));
        EXPECT_EQ(fileError("KR_File: cannot open", name), capture.located());
    }
    // Closed after a failed open, it refuses every operation.
    KR_FileBinary binary;
    char c = 0;
    unsigned int count = 0;
    char* restored = nullptr;
    KR_String line;
    KR_Version format;
    const std::function<KR_RET_STATUS()> operations[] = {
            [&] { return file.isEof(); },
            [&] { return file.setPos(0); },
            [&] { return file.print("x"); },
            [&] { return file.seekBack(1); },
            [&] { return file.readLine(line); },
            [&] { return binary.persistVal(1, count); },
            [&] { return binary.restoreVal(restored, KR_STORAGE_BINARY, count); },
            [&] { return binary.restoreBlock(&c, 1, count); },
            [&] { return KR_Version().restore(format, file); }};
    for (const auto& operation : operations) {
        capture.clear();
        EXPECT_KR_STATUS(KR_RET_ERR_FILE, operation());
        EXPECT_EQ(fileError("KR_File: no file open"), capture.located()) << &operation - operations;
    }
    EXPECT_TRUE(count == 0 && restored == nullptr && file.getFileName() == nullptr);
    capture.clear();
    EXPECT_KR_STATUS(KR_RET_FALSE, file.close());
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.open(static_cast<char*>(nullptr), KR_FILE_MODE_READ));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.open(path.c_str(), static_cast<KR_FILE_MODE>(0)));
    const std::string arg = "src/kr_file: line N: \nError on function input arguments\n\n";
    EXPECT_EQ(arg + arg, capture.located());  // closing a closed file reports nothing
}

// Scans a file of several buffers, checking each position, stepping back now and then.
TEST_F(File, BufferedScanWithSeekBackAcrossBoundaries) {
    std::string content;
    for (int i = 0; content.size() < 3 * 65536 + 17; ++i)
        content += static_cast<char>('a' + i % 23);
    writeBytes(path, content);
    KR_FileAscii file(path.c_str(), KR_FILE_MODE_READ);
    long long pos = 0;
    char c = 0;
    for (size_t i = 0, lastStep = 0; i < content.size(); ++i) {
        ASSERT_TRUE(file.getPos(pos) == KR_RET_TRUE && pos == static_cast<long long>(i));
        ASSERT_KR_STATUS(KR_RET_TRUE, file.scanChar(c));
        ASSERT_EQ(content[i], c) << "at " << i;
        if (i != lastStep && (i % 9973 == 7 || i == 65536 + 2)) {
            lastStep = i;
            ASSERT_KR_OK(file.seekBack(5));
            i -= 5;  // the loop reads them again
        }
    }
    EXPECT_TRUE(file.isEof() == KR_RET_TRUE && file.scanChar(c) == KR_RET_FALSE && c == '\0');
    ASSERT_KR_OK(file.setPos(0));
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.seekBack(2));  // before the start
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.setPos(-1));
    EXPECT_TRUE(file.scanChar(c) == KR_RET_TRUE && c == content[0]);
}

TEST_F(File, PrintAndReadLines) {
    const std::string longText(5000, 'x');  // beyond the formatter's stack buffer
    const std::string first = "-7 word " + std::to_string(LLONG_MAX);
    KR_FileAscii file(path.c_str(), KR_FILE_MODE_WRITE);
    EXPECT_KR_OK(file.print("%d %s %lld\r\n\n%s\n", -7, "word", LLONG_MAX, longText.c_str()));
    EXPECT_KR_OK(file.printW(L"%ls=%d\nlast", std::wstring(5000, L'x').c_str(), 42));
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.print(nullptr));
    ASSERT_KR_OK(file.open(path.c_str(), KR_FILE_MODE_READ));
    EXPECT_EQ(first + "\r\n\n" + longText + "\n" + longText + "=42\nlast", readBytes(path));
    KR_String line("stale");
    for (const std::string& expected :
         {first, std::string(), longText, longText + "=42", std::string("last")}) {
        ASSERT_KR_STATUS(KR_RET_TRUE, file.readLine(line));
        EXPECT_TRUE(line == expected.c_str()) << expected;
    }
    EXPECT_TRUE(file.readLine(line) == KR_RET_FALSE && line.strLeng() == 0);
}

TEST_F(File, WideTextAndNamesFollowTheLocale) {
    krtest::Utf8Locale locale;
    if (!locale.ok) GTEST_SKIP() << "no UTF-8 locale";
    const std::wstring name = dir.fileW(L"kr_\u00e9\u4e2d.txt");
    const wchar_t* text = L"a\u00e9\u20ac\U0001F600z";  // U+1F600: a surrogate pair on Windows
    KR_FileAscii file(name.c_str(), KR_FILE_MODE_WRITE);
    ASSERT_KR_OK(file.printW(L"%ls\n", text));
    EXPECT_KR_OK(file.print("\xff!"));  // not UTF-8: read back byte for character
    ASSERT_KR_OK(file.open(name.c_str(), KR_FILE_MODE_READ));
    KR_StringW line;
    EXPECT_KR_STATUS(KR_RET_TRUE, file.readLineW(line));
    EXPECT_EQ(0, wcscmp(text, line));
    EXPECT_KR_STATUS(KR_RET_TRUE, file.readLineW(line));
    EXPECT_TRUE(line == L"\xff!");
    EXPECT_TRUE(sizeof(wchar_t) < 4 || readBytes(dir.file("kr_\xc3\xa9\xe4\xb8\xad.txt")) ==
                                               "a\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80z\n\xff!");
    file.close();  // Windows removes no open file
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_fileRemoveW(name.c_str()));
    EXPECT_FALSE(KR_filePathExistsW(name.c_str()));
}

template <class T>
class FileBinaryValue : public File {};

// clang-format off
using ValueTypes = ::testing::Types<char, signed char, unsigned char, short, unsigned short, int,
        unsigned int, long, unsigned long, long long, unsigned long long, float, double>;
// clang-format on
TYPED_TEST_SUITE(FileBinaryValue, ValueTypes);

TYPED_TEST(FileBinaryValue, RoundTripsAtItsDiskWidth) {
    using T = TypeParam;
    const T values[] = {std::numeric_limits<T>::lowest(), T(1), std::numeric_limits<T>::max()};
    const unsigned int width =  // long takes 8 bytes on every platform

            std::is_same<T, long>::value || std::is_same<T, unsigned long>::value ? 8 : sizeof(T);
    unsigned int count = 3;  // counts are added to
    KR_FileBinary file(this->path.c_str(), KR_FILE_MODE_WRITE);
    for (T value : values)
        ASSERT_KR_OK(file.persistVal(value, count));
    ASSERT_TRUE(file.close() == KR_RET_TRUE && readBytes(this->path).size() == 3 * width);
    ASSERT_KR_OK(file.open(this->path.c_str(), KR_FILE_MODE_READ));
    T value = T(7);
    for (T expected : values) {
        ASSERT_KR_OK(file.restoreVal(value, count));
        EXPECT_EQ(expected, value);
    }
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, file.restoreVal(value, count));
    EXPECT_TRUE(value == values[2] && count == 3 + 6 * width);
    EXPECT_EQ(fileError("KR_FileBinary: unexpected end of file", this->path), capture.located());
}

TEST_F(File, BinaryLayoutAndRoundTripOfValuesAndTexts) {
    const std::string longText(100000, 'q');  // longer than the file's buffer
    const char* narrow[] = {"ab", nullptr, "", longText.c_str()};
    const wchar_t* wide[] = {L"a\U0001F600", L"\u00e9\U0010FFFF"};
    unsigned int count = 0, read = 0;
    KR_FileBinary file(path.c_str(), KR_FILE_MODE_WRITE);
    EXPECT_KR_OK(file.persistVal(0x01020304, count));
    EXPECT_KR_OK(file.persistVal(LLONG_MAX, count));
    for (const char* text : narrow)
        EXPECT_KR_OK(file.persistVal(text, KR_STORAGE_BINARY, count));
    for (const wchar_t* text : wide)
        EXPECT_KR_OK(file.persistVal(text, KR_STORAGE_BINARY, count));
    EXPECT_KR_OK(file.persistBlock("raw", 3, count));
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.persistVal("x", KR_STORAGE_UNDEF, count));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, file.persistBlock(nullptr, 2, count));
    ASSERT_KR_OK(file.open(path.c_str(), KR_FILE_MODE_READ));
    // int, long long, "ab", a null text, "", then (past the long text) L"a" and U+1F600 in UTF-16.
    const std::string bytes = readBytes(path);
    EXPECT_EQ(std::string("\x04\x03\x02\x01\xff\xff\xff\xff\xff\xff\xff\x7f\x03\0\0\0ab\0\0\0\0\0"
                          "\x01\0\0\0\0\xa1\x86\x01\0",
                          32),
              bytes.substr(0, 32));
    EXPECT_EQ(std::string("\x04\0\0\0a\0\x3d\xd8\0\xde\0\0", 12), bytes.substr(32 + 100001, 12));
    EXPECT_EQ(bytes.size(), count);
    // A long beyond the platform's own long (32 bits on Windows) is refused and left unchanged.
    long value = 5;
    const bool fits = LONG_MAX == LLONG_MAX;
    ASSERT_KR_OK(file.setPos(4));
    EXPECT_KR_STATUS(fits ? KR_RET_TRUE : KR_RET_ERR_ARG, file.restoreVal(value, read));
    EXPECT_TRUE(value == (fits ? LONG_MAX : 5) && read == (fits ? 8u : 0u));
    ASSERT_KR_OK(file.setPos(12));
    auto restore = [&](auto* expected) {
        using Char = std::remove_const_t<std::remove_pointer_t<decltype(expected)>>;
        Char* text = reinterpret_cast<Char*>(&read);  // overwritten
        ASSERT_KR_OK(file.restoreVal(text, KR_STORAGE_BINARY, read));
        EXPECT_STREQ(expected, text);  // a null text only for a null text
        free(text);
    };
    for (const char* expected : narrow)
        restore(expected);
    for (const wchar_t* expected : wide)
        restore(expected);
    char block[4] = {};
    EXPECT_KR_OK(file.restoreBlock(block, 3, read));
    EXPECT_TRUE(file.isEof() == KR_RET_TRUE && read == count - (fits ? 4 : 12));
    EXPECT_STREQ("raw", block);
}

TEST_F(File, BinaryDamagedTextsAreAFileError) {
    const std::string longer = "text longer than the file", cut = "text not terminated";

    const std::string rows[][3] = {
            {std::string("\xff\xff\xff\x7f", 4) + "abc", longer, longer},
            {std::string("\x03\0\0\0", 4) + "abc", cut, longer},
            {std::string("\x02\0\0\0", 4) + "abcd", cut, cut},
    };

    for (const auto& row : rows) {
        writeBytes(path, row[0]);
        KR_FileBinary file(path.c_str(), KR_FILE_MODE_READ);
        krtest::ReportCapture capture;
        unsigned int count = 0;
        char* text = nullptr;
        wchar_t* textW = nullptr;
        EXPECT_KR_STATUS(KR_RET_ERR_FILE, file.restoreVal(text, KR_STORAGE_BINARY, count));
        ASSERT_KR_OK(file.setPos(0));
        EXPECT_KR_STATUS(KR_RET_ERR_FILE, file.restoreVal(textW, KR_STORAGE_BINARY, count));
        EXPECT_TRUE(text == nullptr && textW == nullptr && count == 0) << row[0];
        EXPECT_EQ(fileError("KR_FileBinary: " + row[1], path) +
                          fileError("KR_FileBinary: " + row[2], path),
                  capture.located());
    }
}

TEST_F(File, DirectoriesSearchPathsAndTempNames) {
    // The search gives the directory joined to the name with the platform separator.
    const std::string deep = dir.file("a/b/c"), file = dir.file("a") + dir.sep() + "tool.cfg";
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_fileMakeDir(deep.c_str()));
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_fileMakeDir(deep.c_str()));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_fileMakeDirW(dir.fileW(L"d//tool.cfg/").c_str()));
    EXPECT_TRUE(KR_fileIsDir(deep.c_str()) && KR_fileIsDirW(dir.fileW(L"d/tool.cfg").c_str()));
    writeBytes(file, "x");
    EXPECT_TRUE(KR_filePathExists(file.c_str()) && !KR_fileIsDir(file.c_str()));
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_fileMakeDir((file + "/sub").c_str()));
    EXPECT_EQ(fileError("KR_fileMakeDir: not a directory", file), capture.located());
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_fileMakeDir(""));
    EXPECT_FALSE(KR_filePathExists(nullptr) || KR_filePathExists(dir.file("none").c_str()));
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_fileRemove(dir.file("a").c_str()));  // not empty
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_fileRemove(dir.file("none").c_str()));
    // A search path passes over an empty entry and a directory of the name ("d/tool.cfg").
    const char list = dir.sep() == '/' ? ':' : ';';
    static std::string assignment;  // putenv keeps the text
    assignment = "KR_TEST_FIND_PATH=" + std::string(1, list) + dir.file("d") + list + dir.file("a");
    ASSERT_EQ(0, putenv(const_cast<char*>(assignment.c_str())));
    KR_String found, second;
    KR_StringW foundW;
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_fileFindInEnvPath(found, "tool.cfg", "KR_TEST_FIND_PATH"));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_fileFindInEnvPathW(foundW, L"tool.cfg", L"KR_TEST_FIND_PATH"));
    EXPECT_TRUE(found == file.c_str() && foundW == found);
    EXPECT_TRUE(KR_fileFindInEnvPath(found, "b", "KR_TEST_FIND_PATH") == KR_RET_FALSE &&
                !found.strLeng());
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_fileFindInEnvPath(found, "tool.cfg", "KR_TEST_UNSET_VAR"));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_fileFindInEnvPath(found, nullptr, "PATH"));
    ASSERT_KR_OK(KR_fileGetTempName(found, dir.path, "pre"));
    ASSERT_KR_OK(KR_fileGetTempName(second, dir.path, "pre"));
    EXPECT_TRUE(found != second && KR_filePathExists(second) && !KR_fileIsDir(second));
    EXPECT_EQ(0, strncmp(dir.file("pre").c_str(), second, dir.file("pre").size()));
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_fileGetTempName(second, (file + "/no").c_str(), "pre"));
}

TEST_F(File, PathComponents) {
    // The path, then its directory, name, base name and extension; null: none.
    const char* const rows[][5] = {
            {"c.tar.gz", nullptr, "c.tar.gz", "c.tar", "gz"},
            {"/c.txt", "/", "c.txt", "c", "txt"},
            {"dir/", "dir", nullptr, nullptr, nullptr},
            {"a\\b\\c", "a\\b", "c", "c", nullptr},
            {"x//.profile", "x", ".profile", ".profile", nullptr},
            {"name.", nullptr, "name.", "name.", nullptr},
            {"a.b/c", "a.b", "c", "c", nullptr},
            {"", nullptr, nullptr, nullptr, nullptr},
    };
    KR_RET_STATUS(*const parts[])
    (KR_String&, const char*) = {KR_fileGetDir, KR_fileGetName, KR_fileGetBaseName, KR_fileGetExt};
    for (const auto& row : rows) {
        for (int part = 0; part < 4; ++part) {
            SCOPED_TRACE(std::string(row[0]) + " part " + std::to_string(part));
            KR_String out("stale");
            EXPECT_KR_STATUS(row[part + 1] ? KR_RET_TRUE : KR_RET_FALSE, parts[part](out, row[0]));
            EXPECT_TRUE(out == (row[part + 1] ? row[part + 1] : ""));
        }
    }
    krtest::ReportCapture capture;
    KR_String out;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_fileGetExt(out, nullptr));
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, KR_fileGetDir(krInternal::nullRef<KR_String>(), "a/b"));
}

namespace {

// What one walk step works on; made afresh before each step, outside the countdown.
struct Walk {
    TempDir dir;
    const std::string f = dir.file("f");
    const std::wstring fW = dir.fileW(L"f");
    KR_String out{"stale"};
    KR_StringW outW{L"stale"};
    KR_FileAscii text;
    KR_FileBinary bin;
    KR_FileBinaryRec rec;
    KR_Memory memory{3};
    unsigned int count = 0;
    wchar_t* textW = nullptr;
    const unsigned char unicode = KR_useUnicodeSystemFunctions;

    ~Walk() {
        KR_useUnicodeSystemFunctions = unicode;
        free(textW);
    }
};

const std::string kLong(5000, 'x');  // longer than any buffer on the stack
const std::wstring kLongW(5000, L'x');

void writeRecord(Walk& w) {  // and open it for reading
    KR_FileBinaryRec(w.f.c_str(), KR_FILE_MODE_WRITE).recAppend(w.memory, w.count);
    w.rec.open(w.f.c_str(), KR_FILE_MODE_READ);
}

struct WalkRow {
    const char* name;
    void (*setup)(Walk&);  // optional
    KR_RET_STATUS (*op)(Walk&);
    KR_RET_STATUS (*opW)(Walk&) = nullptr;  // the wide twin, walked as name + "W"; optional
    bool (*kept)(Walk&) = nullptr;          // the state a failed step leaves; optional
    bool convertsName = false;              // allocates only where a wide name is converted (POSIX)
    const char* report = "src/kr_file: line N: \nMemory error\n\n";
};

// One row per allocation site; a wide twin only where it allocates elsewhere.
const WalkRow kWalkRows[] = {
        {"reopen by wide name",
         [](Walk& w) { w.text.open(w.dir.file("g").c_str(), KR_FILE_MODE_WRITE); },
         [](Walk& w) { return w.text.open(w.fW.c_str(), KR_FILE_MODE_WRITE); }, nullptr,
         [](Walk& w) { return !w.text.isOpen() && !KR_filePathExists(w.f.c_str()); }},
        {"open through the wide calls", [](Walk&) { KR_useUnicodeSystemFunctions = 1; },
         [](Walk& w) { return w.text.open(w.f.c_str(), KR_FILE_MODE_APPEND); }, nullptr,
         [](Walk& w) { return !w.text.isOpen() && !KR_filePathExists(w.f.c_str()); }},
        {"print", [](Walk& w) { w.text.open(w.f.c_str(), KR_FILE_MODE_WRITE); },
         [](Walk& w) { return w.text.print("%s", kLong.c_str()); },
         [](Walk& w) { return w.text.printW(L"%ls", kLongW.c_str()); },
         [](Walk& w) { return w.text.close() == KR_RET_TRUE && readBytes(w.f).empty(); }},
        {"readLine",
         [](Walk& w) {
             writeBytes(w.f, kLong + "\n");
             w.text.open(w.f.c_str(), KR_FILE_MODE_READ);
         },
         [](Walk& w) { return w.text.readLine(w.out); }},
        {"restore a wide text",
         [](Walk& w) {  // 5000 times U+2020, then the terminator
             writeBytes(w.f,
                        std::string("\x89\x13\0\0", 4) + std::string(10000, ' ') + '\0' + '\0');
             w.bin.open(w.f.c_str(), KR_FILE_MODE_READ);
         },
         [](Walk& w) { return w.bin.restoreVal(w.textW, KR_STORAGE_BINARY, w.count); }, nullptr,
         [](Walk& w) { return w.count == 0 && w.textW == nullptr; }},
        {"recAppend", [](Walk& w) { w.rec.open(w.f.c_str(), KR_FILE_MODE_WRITE); },
         [](Walk& w) { return w.rec.recAppend(w.memory, w.count); }, nullptr,
         [](Walk& w) { return w.rec.recNum() == 0; }},
        {"recRead", writeRecord, [](Walk& w) { return w.rec.recRead(0, w.memory); }, nullptr,
         [](Walk& w) { return w.memory.memSize() == 0 && w.rec.recNum() == 1; }, false,
         "ERROR: src/kr_mem: line N: KR_Memory allocation\nMemory error"
         "src/kr_mem: line N: \nMemory error\n\n"},
        {"record file reopened", writeRecord,
         [](Walk& w) { return w.rec.open(w.fW.c_str(), KR_FILE_MODE_UPDATE); }, nullptr,
         [](Walk& w) { return !w.rec.isOpen() && w.rec.recNum() == 0; }},
        {"KR_fileMakeDir", nullptr,
         [](Walk& w) { return KR_fileMakeDir(w.dir.file("a/b").c_str()); },
         [](Walk& w) { return KR_fileMakeDirW(w.dir.fileW(L"a/b").c_str()); },
         [](Walk& w) { return !KR_fileIsDir(w.dir.file("a/b").c_str()); }},
        {"KR_filePathExistsW", [](Walk& w) { writeBytes(w.f, "a"); },
         [](Walk& w) {
             return KR_filePathExistsW(w.fW.c_str()) ? KR_RET_TRUE : KR_getStatusCode();
         },
         nullptr, nullptr, true},
        {"KR_fileRemoveW", [](Walk& w) { writeBytes(w.f, "a"); },
         [](Walk& w) { return KR_fileRemoveW(w.fW.c_str()); }, nullptr,
         [](Walk& w) { return KR_filePathExists(w.f.c_str()) != 0; }, true},
        {"KR_fileGetTempDir", nullptr, [](Walk& w) { return KR_fileGetTempDir(w.out); }},
        {"KR_fileGetTempName", nullptr,
         [](Walk& w) { return KR_fileGetTempName(w.out, w.dir.path, "pre"); },
         [](Walk& w) { return KR_fileGetTempNameW(w.outW, w.dir.fileW(L"").c_str(), L"pre"); },
         [](Walk& w) { return KR_fileRemove(w.dir.path) == KR_RET_TRUE; }},
        {"KR_fileFindInEnvPath", nullptr,
         [](Walk& w) { return KR_fileFindInEnvPath(w.out, "f", "KR_TEST_WALK_PATH"); },
         [](Walk& w) { return KR_fileFindInEnvPathW(w.outW, L"f", L"KR_TEST_WALK_PATH"); }},
};

}  // namespace

// Every allocation site of the file unit, with each of its allocations failing in turn:
// KR_RET_ERR_MEM with one report, outputs emptied or kept, nothing created; no leak (ASan).
TEST(FileAllocation, EveryFailureIsAMemoryError) {
    KR_REQUIRE_FAULT_INJECTION();
    TempDir listed;  // the variable lists a missing directory, then one with "f" in it
    writeBytes(listed.file("f"), "a");
    static std::string assignment;
    assignment = "KR_TEST_WALK_PATH=" + listed.file("none") + (listed.sep() == '/' ? ":" : ";") +
                 static_cast<const char*>(listed.path);
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
                        EXPECT_EQ(row.report, capture.located());
                        // An output is emptied or left as it was, never half filled.
                        EXPECT_TRUE((w->out == "stale" || w->out.strLeng() == 0) &&
                                    (w->outW == L"stale" || w->outW.strLeng() == 0));
                        EXPECT_TRUE(row.kept == nullptr || row.kept(*w));
                    });
            EXPECT_TRUE(failures > 0 ||
                        (row.convertsName && std::filesystem::path::preferred_separator == '\\'));
        }
    }
}

TEST_F(File, VersionPersistsAsTextAndBinary) {
    KR_Version format, version(9, 9, 9);
    KR_FileAscii file(path.c_str(), KR_FILE_MODE_WRITE);
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_Version(1, 0, 0).persist(format, file));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_Version(UINT_MAX, 2, 30).persist(format, file));
    EXPECT_KR_OK(file.print("<other>1 2 3</other>\n<version></version>"));
    ASSERT_KR_OK(file.open(path.c_str(), KR_FILE_MODE_READ));
    EXPECT_EQ(
            "<version>1 0 0</version>\n<version>4294967295 2 30</version>\n"
            "<other>1 2 3</other>\n<version></version>",
            readBytes(path));
    EXPECT_KR_STATUS(KR_RET_TRUE, version.restore(format, file));
    EXPECT_TRUE(version == KR_Version(1, 0, 0));
    // Then <other>, </other>, an empty version (changing nothing) and the end of the file.
    for (KR_RET_STATUS expected :
         {KR_RET_TRUE, KR_RET_FALSE, KR_RET_FALSE, KR_RET_TRUE, KR_RET_FALSE}) {
        EXPECT_KR_STATUS(expected, version.restore(format, file));
        EXPECT_TRUE(version == KR_Version(UINT_MAX, 2, 30));
    }
    unsigned int written = 99, read = 99;
    KR_FileBinary binary(path.c_str(), KR_FILE_MODE_WRITE), closed;
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_Version(1, 2, UINT_MAX).persist(format, binary, written));
    EXPECT_KR_OK(binary.persistBlock("\x07\x00", 2, written));  // a cut-off version
    EXPECT_EQ(14u, written);
    ASSERT_KR_OK(binary.open(path.c_str(), KR_FILE_MODE_READ));
    EXPECT_EQ(std::string("\x01\0\0\0\x02\0\0\0\xff\xff\xff\xff\x07\0", 14), readBytes(path));
    EXPECT_KR_STATUS(KR_RET_TRUE, version.restore(format, binary, read));
    EXPECT_EQ(12u, read);
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, version.restore(format, binary, read));
    EXPECT_TRUE(version == KR_Version(1, 2, UINT_MAX));
    capture.clear();
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, version.persist(format, closed, written));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, version.restore(format, closed, read));
    EXPECT_EQ(0u, written + read);
    const std::string arg = "src/kr_version: line N: \nError on function input arguments\n\n";
    EXPECT_EQ(arg + arg, capture.located());
}

namespace {

// What the write hook saw, and how much of the next write it lets through.
struct SeamLog {
    std::vector<std::pair<long long, std::string>> writes;  // pos, bytes; "" for a sync
    size_t allow = static_cast<size_t>(-1);

    static size_t hook(void* context, const krTesting::FileWriteEvent& event) {
        SeamLog& log = *static_cast<SeamLog*>(context);
        log.writes.emplace_back(event.pos,
                                std::string(static_cast<const char*>(event.data), event.size));
        return event.sync ? 1 : std::min(log.allow, event.size);
    }
};

struct SeamHook {
    explicit SeamHook(SeamLog& log) { krTesting::setFileWriteHook(SeamLog::hook, &log); }

    ~SeamHook() { krTesting::setFileWriteHook(nullptr, nullptr); }
};

}  // namespace

TEST_F(File, WriteSeamSeesFailsAndTearsEveryWrite) {
    SeamLog log;
    SeamHook hook(log);
    unsigned int count = 0;
    KR_FileBinary file(path.c_str(), KR_FILE_MODE_WRITE);
    const std::string big(70000, 'b');  // past the buffer: written straight through
    ASSERT_KR_OK(file.persistBlock("abc", 3, count));
    ASSERT_KR_OK(file.persistBlock(big.data(), static_cast<unsigned int>(big.size()), count));
    ASSERT_KR_OK(file.setPos(1));
    ASSERT_KR_OK(file.persistBlock("X", 1, count));
    ASSERT_KR_OK(file.flush());
    const std::vector<std::pair<long long, std::string>> expected = {
            {0, "abc"}, {3, big}, {1, "X"}};
    EXPECT_EQ(expected, log.writes);
    krtest::ReportCapture capture;
    for (size_t allow : {size_t(0), size_t(2)}) {  // failed, then torn after two bytes
        log.allow = allow;
        ASSERT_KR_OK(file.setPos(0));
        ASSERT_KR_OK(file.persistBlock("zzzz", 4, count));
        EXPECT_KR_STATUS(KR_RET_ERR_FILE, file.flush());
        EXPECT_EQ(allow == 0 ? "aXc" : "zzc", readBytes(path).substr(0, 3));
    }
    EXPECT_EQ(fileError("KR_File: write failed", path) + fileError("KR_File: write failed", path),
              capture.located());
}
