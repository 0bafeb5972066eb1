// test_xmlsettings.cpp — settings files: save, read back, the list lookups, and what failures
// leave behind.
#include <locale.h>
#include <string.h>
#include <wchar.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>

#include "test_support.h"

namespace {

using Settings = KR_Array<KR_XmlSetting>;
using Row = std::pair<const char*, const wchar_t*>;

// A fresh temporary directory, removed with its contents.
struct TempDir {
    TempDir() { EXPECT_KR_OK(KR_fileMakeTempDirW(path, nullptr, L"krset")); }

    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(root(), ignored);
    }

    std::filesystem::path root() const { return static_cast<const wchar_t*>(path); }

    std::wstring file(const wchar_t* name) const { return (root() / name).wstring(); }

    size_t entries() const {
        auto all = std::filesystem::directory_iterator(root());
        return static_cast<size_t>(std::distance(begin(all), end(all)));
    }

    KR_StringW path;
};

std::string readBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeBytes(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

void fill(Settings& list, std::initializer_list<Row> rows) {
    for (const Row& row : rows) {
        KR_XmlSetting setting;
        setting.tag = row.first;
        setting.value = row.second;
        ASSERT_KR_OK(list.appendElem(setting));
    }
}

// "<a>=1;<b>=x y;": the list as one text, to compare and to print.
std::wstring dump(Settings& list) {
    std::wstring out;
    for (unsigned int i = 0; i < list.numElems(); ++i) {
        const char* tag = list[i].tag;
        const wchar_t* value = list[i].value;
        out += std::wstring(tag, tag + strlen(tag)) + L"=" + (value ? value : L"") + L";";
    }
    return out;
}

const char* const kStart = "<settings>";
const char* const kEnd = "</settings>";

}  // namespace

TEST(XmlSettings, SaveWritesTheExactLayout) {
    krtest::Utf8Locale locale;
    TempDir dir;
    Settings list;
    fill(list, {{"<width>", L"10"}, {"<name>", nullptr}});
    if (locale.ok) fill(list, {{"<t>", L"\u00e9 \u20ac"}});
    {
        KR_FileAscii file(dir.file(L"s.xml").c_str(), KR_FILE_MODE_WRITE);
        ASSERT_KR_STATUS(KR_RET_TRUE, KR_xmlSaveSettingsFile(file, "<s>", "</s>", list));
    }
    EXPECT_EQ(std::string("<s>\n\n<width>10</width>\n\n<name></name>\n\n") +
                      (locale.ok ? "<t>\xc3\xa9 \xe2\x82\xac</t>\n\n" : "") + "</s>\n",
              readBytes(dir.file(L"s.xml")));
}

// A file that the Windows build wrote in the locale of code page 1252. In the "C" locale both
// runtimes read a byte outside ASCII as the character of its own value, which for these
// characters is what code page 1252 means.
TEST(XmlSettings, ReadsAFileWrittenOnWindows) {
    ASSERT_STREQ("C", setlocale(LC_CTYPE, nullptr));
    const std::filesystem::path path = KR_TEST_DATA_DIR "/settings_win1252.xml";
    Settings list;
    ASSERT_KR_OK(KR_xmlReadSettingsFile(path.wstring().c_str(), kStart, kEnd, list));
    EXPECT_EQ(
            L"<version>=3.1;<title>=Gr\u00fc\u00dfe aus Z\u00fcrich;"
            L"<path>=C:\\Users\\J\u00fcrgen\\Documents;"
            L"<greeting>=\u00a1Hola, se\u00f1or! \u00c7a va? \u00d8re \u00e6\u00f8\u00e5;"
            L"<empty>=;<lines>=first line\r\n\tsecond line;",
            dump(list));
}

TEST(XmlSettings, RoundTripOfWideValuesByName) {
    krtest::Utf8Locale locale;
    if (!locale.ok) GTEST_SKIP() << "no UTF-8 locale";
    TempDir dir;
    Settings saved, read;
    fill(saved, {{"<version>", L"1.2"},
                 {"<empty>", L""},
                 {"<title>", L"Gr\u00fc\u00dfe \u65e5\u672c \u20ac"},
                 {"<lines>", L"  two  words\r\n\tand a line\n"},
                 {"<version>", L"again"}});
    if (sizeof(wchar_t) == 4) fill(saved, {{"<astral>", L"\U0001F600"}});
    fill(read, {{"<stale>", L"gone"}});
    ASSERT_KR_STATUS(KR_RET_TRUE,
                     KR_xmlSaveSettingsFile(dir.file(L"a.xml").c_str(), kStart, kEnd, saved));
    ASSERT_KR_STATUS(KR_RET_TRUE,
                     KR_xmlReadSettingsFile(dir.file(L"a.xml").c_str(), kStart, kEnd, read));
    EXPECT_EQ(dump(saved), dump(read));
    // Saving again over the file gives the same bytes, and no temporary file stays behind.
    ASSERT_KR_OK(KR_xmlSaveSettingsFile(dir.file(L"b.xml").c_str(), kStart, kEnd, read));
    ASSERT_KR_OK(KR_xmlSaveSettingsFile(dir.file(L"b.xml").c_str(), kStart, kEnd, read));
    EXPECT_EQ(readBytes(dir.file(L"a.xml")), readBytes(dir.file(L"b.xml")));
    EXPECT_EQ(2u, dir.entries());
}

// Every kind of file, read into a list that held one setting before.
TEST(XmlSettings, ReadAnswersForEachKindOfFile) {
    krtest::Utf8Locale locale;

    const struct {
        const char *name, *bytes;
        KR_RET_STATUS status;
        const wchar_t* list;
    } rows[] = {
            {"empty file", "", KR_RET_FALSE, L""},
            {"another kind of file", "<other>\n<a>1</a>\n</other>\n", KR_RET_FALSE, L""},
            {"text around", "x\n<settings> <a>1</a>\nskip <b>x y</b></settings>tail", KR_RET_TRUE,
             L"<a>=1;<b>=x y;"},
            {"no settings", "<settings>\n\n</settings>\n", KR_RET_TRUE, L""},
            // A byte that starts no character, also one cut by the "<", stands for itself.
            {"not UTF-8", "<settings><a>\xff\xc3\xa9-\xc3</a></settings>", KR_RET_TRUE,
             L"<a>=\u00ff\u00e9-\u00c3;"},
            {"no end tag", "<settings><a>1</a>", KR_RET_ERR_GEN, L"<old>=keep;"},
            {"cut in an entry", "<settings><a>1</a><b>2", KR_RET_ERR_GEN, L"<old>=keep;"},
            {"wrong closing tag", "<settings><a>1</b></settings>", KR_RET_ERR_GEN, L"<old>=keep;"},
            {"nested", "<settings><a><b>1</b></a></settings>", KR_RET_ERR_GEN, L"<old>=keep;"},
            {"stray closing tag", "<settings></a></settings>", KR_RET_ERR_GEN, L"<old>=keep;"},
            {"wrong end tag", "<settings><a>1</a></other>", KR_RET_ERR_GEN, L"<old>=keep;"},
    };

    TempDir dir;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        if (!locale.ok && strstr(row.name, "UTF-8") != nullptr) continue;
        writeBytes(dir.file(L"r.xml"), row.bytes);
        Settings list;
        fill(list, {{"<old>", L"keep"}});
        krtest::ReportCapture capture;
        EXPECT_KR_STATUS(row.status,
                         KR_xmlReadSettingsFile(dir.file(L"r.xml").c_str(), kStart, kEnd, list));
        EXPECT_EQ(row.list, dump(list));
        const bool reported = capture.text().find("malformed entry") != std::string::npos;
        EXPECT_EQ(row.status == KR_RET_ERR_GEN, reported) << capture.text();
    }
    Settings list;
    KR_FileAscii closed;
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_xmlReadSettingsFile(closed, kStart, kEnd, list));
    EXPECT_KR_STATUS(KR_RET_ERR_FILE,
                     KR_xmlReadSettingsFile(dir.file(L"missing").c_str(), kStart, kEnd, list));
}

// Settings that could not be read back are refused before anything is written.
TEST(XmlSettings, SaveRefusesWhatCouldNotBeReadBack) {
    const Row rows[] = {{nullptr, L"1"}, {"", L"1"},      {"abc", L"1"},  {"<>", L"1"},
                        {"</a>", L"1"},  {"<a<b>", L"1"}, {"<a>>", L"1"}, {"<a>", L"x<y"}};
    TempDir dir;
    krtest::ReportCapture capture;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.first ? row.first : "null tag");
        Settings list;
        fill(list, {{"<fine>", L"1"}, row});
        KR_FileAscii file(dir.file(L"s.xml").c_str(), KR_FILE_MODE_WRITE);
        EXPECT_KR_STATUS(KR_RET_ERR_GEN, KR_xmlSaveSettingsFile(file, kStart, kEnd, list));
        long long size = -1;
        EXPECT_TRUE(file.getSize(size) == KR_RET_TRUE && size == 0);
    }
    Settings list;
    KR_FileAscii closed;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_xmlSaveSettingsFile(closed, kStart, kEnd, list));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG,
                     KR_xmlSaveSettingsFile(dir.file(L"s.xml").c_str(), nullptr, kEnd, list));
    // The "C" locale has no euro sign: nothing is written either.
    ASSERT_STREQ("C", setlocale(LC_CTYPE, nullptr));
    fill(list, {{"<euro>", L"\u20ac"}});
    EXPECT_KR_STATUS(KR_RET_ERR_ARG,
                     KR_xmlSaveSettingsFile(dir.file(L"s.xml").c_str(), kStart, kEnd, list));
    EXPECT_EQ("", readBytes(dir.file(L"s.xml")));
}

TEST(XmlSettings, GetAndSetInTheList) {
    Settings list;
    fill(list, {{"<a>", L"1"}, {"<b>", L"2"}, {"<a>", L"3"}});
    unsigned int index = 99;
    KR_StringW value(L"stale");
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlGetSettingInList("<a>", list, index));
    EXPECT_EQ(0u, index);
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlGetSettingInList("<b>", list, value));
    EXPECT_TRUE(value == L"2");
    // A missing tag (comparison is exact) leaves index past the end and value empty.
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_xmlGetSettingInList("<A>", list, index));
    EXPECT_EQ(3u, index);
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_xmlGetSettingInList("<c>", list, value));
    EXPECT_EQ(nullptr, static_cast<const wchar_t*>(value));
    // Setting changes the first match and appends a missing tag.
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlSetSettingInList("<a>", list, L"one"));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlSetSettingInList("<c>", list, nullptr));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlSetSettingInList("<d>", list, L"4"));
    EXPECT_EQ(L"<a>=one;<b>=2;<a>=3;<c>=;<d>=4;", dump(list));
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_xmlSetSettingInList("d", list, L"5"));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_xmlGetSettingInList(nullptr, list, index));
    EXPECT_EQ(5u, list.numElems());
}

TEST(XmlSettings, FailedSaveByNameLeavesTheOldFile) {
    TempDir dir;
    const std::wstring path = dir.file(L"s.xml");
    const std::string old = "<settings>\n\n<old>kept</old>\n\n</settings>\n";
    Settings list;
    fill(list, {{"<a>", L"1"}});
    // The temporary file can be written, but a directory stands where it would go.
    std::filesystem::create_directory(path);
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_xmlSaveSettingsFile(path.c_str(), kStart, kEnd, list));
    EXPECT_NE(std::string::npos, capture.text().find("KR_xmlSaveSettingsFile: cannot replace"));
    EXPECT_TRUE(std::filesystem::is_directory(path));
    EXPECT_EQ(1u, dir.entries());
    // A directory that does not exist gets nothing.
    EXPECT_KR_STATUS(KR_RET_ERR_FILE,
                     KR_xmlSaveSettingsFile(dir.file(L"no/s.xml").c_str(), kStart, kEnd, list));
    std::filesystem::remove(path);
    writeBytes(path, old);
    fill(list, {{"<a>", L"x<y"}});
    EXPECT_KR_STATUS(KR_RET_ERR_GEN, KR_xmlSaveSettingsFile(path.c_str(), kStart, kEnd, list));
    EXPECT_EQ(old, readBytes(path));
    EXPECT_EQ(1u, dir.entries());
}

TEST(XmlSettings, FailedAllocationsLeaveListAndFileAsTheyWere) {
    KR_REQUIRE_FAULT_INJECTION();
    TempDir dir;
    const std::wstring path = dir.file(L"s.xml");
    const std::string old = "<settings>\n\n<a>1</a>\n\n<b>two</b>\n\n<c></c>\n\n</settings>\n";
    auto setup = [&] {
        writeBytes(path, old);
        auto list = std::make_unique<Settings>();
        fill(*list, {{"<old>", L"keep"}, {"<b>", L"2"}});
        return list;
    };
    auto unchanged = [&](std::unique_ptr<Settings>& list, KR_RET_STATUS status, unsigned long) {
        EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
        EXPECT_EQ(L"<old>=keep;<b>=2;", dump(*list));
        EXPECT_EQ(old, readBytes(path));
        EXPECT_EQ(1u, dir.entries());
    };
    krtest::ReportCapture capture;
    krtest::forEachAllocationFailure(
            setup,
            [&](auto& list) { return KR_xmlReadSettingsFile(path.c_str(), kStart, kEnd, *list); },
            unchanged);
    krtest::forEachAllocationFailure(
            setup,
            [&](auto& list) { return KR_xmlSaveSettingsFile(path.c_str(), kStart, kEnd, *list); },
            unchanged);
    krtest::forEachAllocationFailure(
            setup, [&](auto& list) { return KR_xmlSetSettingInList("<new>", *list, L"v"); },
            unchanged);
    krtest::forEachAllocationFailure(
            setup, [&](auto& list) { return KR_xmlSetSettingInList("<b>", *list, L"v"); },
            unchanged);
}

TEST(XmlSettings, SavedBytesDoNotDependOnTheNumericLocale) {
    TempDir dir;
    Settings list, read;
    fill(list, {{"<scale>", L"1.5"}, {"<size>", L"1,024.5"}});
    ASSERT_KR_OK(KR_xmlSaveSettingsFile(dir.file(L"c.xml").c_str(), kStart, kEnd, list));
    const std::string saved = setlocale(LC_NUMERIC, nullptr);
    if (!setlocale(LC_NUMERIC, "de_DE.UTF-8") && !setlocale(LC_NUMERIC, "German_Germany.1252")) {
        GTEST_SKIP() << "no decimal-comma locale";
    }
    EXPECT_KR_OK(KR_xmlSaveSettingsFile(dir.file(L"de.xml").c_str(), kStart, kEnd, list));
    EXPECT_KR_OK(KR_xmlReadSettingsFile(dir.file(L"de.xml").c_str(), kStart, kEnd, read));
    setlocale(LC_NUMERIC, saved.c_str());
    EXPECT_EQ(readBytes(dir.file(L"c.xml")), readBytes(dir.file(L"de.xml")));
    EXPECT_EQ(dump(list), dump(read));
}
