// test_xml.cpp — the tag reader: tags, content and entries, and where they stop.
#include <locale.h>
#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "test_support.h"

namespace {

// A text file with the given bytes, open for reading for the object's lifetime.
class TagFile {
public:
    explicit TagFile(const std::string& bytes) {
        EXPECT_KR_OK(KR_fileGetTempName(path_, nullptr, "krxml"));
        FILE* out = fopen(path_, "wb");
        if (out != nullptr) {
            fwrite(bytes.data(), 1, bytes.size(), out);
            fclose(out);
        }
        EXPECT_KR_OK(file_.open(static_cast<const char*>(path_), KR_FILE_MODE_READ));
    }

    ~TagFile() {
        file_.close();
        KR_fileRemove(path_);
    }

    KR_FileAscii& file() { return file_; }

    // What a plain character scan finds next ("" at the end of the file).
    std::string next() {
        char c = 0;
        return file_.scanChar(c) == KR_RET_TRUE ? std::string(1, c) : std::string();
    }

private:
    KR_String path_;
    KR_FileAscii file_;
};

std::string text(const KR_String& string) {
    const char* chars = string;
    return chars != nullptr ? chars : "";
}

using Reader = std::function<KR_RET_STATUS(KR_String&, KR_FileAscii&)>;

struct Row {
    const char* name;
    const char* bytes;
    Reader read;
    KR_RET_STATUS status;
    const char* output;
    const char* next;  // the character that a scan finds afterwards
};

Reader tag(const char* expected) {
    return [expected](KR_String& out, KR_FileAscii& file) {
        return KR_xmlReadTag(out, file, expected);
    };
}

Reader endTag(const char* expected) {
    return [expected](KR_String& out, KR_FileAscii& file) {
        return KR_xmlReadEndTag(out, file, expected);
    };
}

Reader content() {
    return [](KR_String& out, KR_FileAscii& file) { return KR_xmlReadTagContent(out, file); };
}

Reader entry(const char* start, const char* end) {
    return [start, end](KR_String& out, KR_FileAscii& file) {
        return KR_xmlReadTagEntry(out, file, start, end);
    };
}

void runRows(const Row* rows, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        const Row& row = rows[i];
        SCOPED_TRACE(row.name);
        TagFile file(row.bytes);
        KR_String out("stale");
        EXPECT_KR_STATUS(row.status, row.read(out, file.file()));
        EXPECT_EQ(row.output, text(out));
        EXPECT_EQ(row.next, file.next());
    }
}

}  // namespace

TEST(XmlTag, OpeningAndClosingTags) {
    const Row rows[] = {
            {"text before the tag is skipped", "junk <a>rest", tag(nullptr), KR_RET_TRUE, "<a>",
             "r"},
            {"expected tag", "<version>1", tag("<version>"), KR_RET_TRUE, "<version>", "1"},
            {"other tag than expected", "<versions>1", tag("<version>"), KR_RET_FALSE, "", "1"},
            {"comparison is case-sensitive", "<A>", tag("<a>"), KR_RET_FALSE, "", ""},
            {"only the brackets", "<>x", tag(nullptr), KR_RET_FALSE, "", "x"},
            {"file ends inside the tag", "<abc", tag(nullptr), KR_RET_FALSE, "", ""},
            {"no tag at all", "plain text", tag(nullptr), KR_RET_FALSE, "", ""},
            {"empty file", "", tag(nullptr), KR_RET_FALSE, "", ""},
            {"a closing tag is a valid opening tag", "</a>", tag(nullptr), KR_RET_TRUE, "</a>", ""},
            {"closing tag", "x</a>y", endTag("</a>"), KR_RET_TRUE, "</a>", "y"},
            {"closing tag without its name", "</>", endTag(nullptr), KR_RET_FALSE, "", ""},
            {"closing tag without the slash", "<a>", endTag(nullptr), KR_RET_FALSE, "", ""},
            {"closing tag of another name", "</b>", endTag("</a>"), KR_RET_FALSE, "", ""},
            {"closing tag cut by the end", "</a", endTag(nullptr), KR_RET_FALSE, "", ""},
    };
    runRows(rows, sizeof rows / sizeof rows[0]);
}

TEST(XmlTag, ContentStopsBeforeTheNextTag) {
    const Row rows[] = {
            {"up to the next tag", "abc <def>", content(), KR_RET_TRUE, "abc ", "<"},
            {"line ends and blanks stay", " one\r\n two \n<x>", content(), KR_RET_TRUE,
             " one\r\n two \n", "<"},
            {"content at the end of the file", "tail at end", content(), KR_RET_TRUE, "tail at end",
             ""},
            {"file already at its end", "", content(), KR_RET_TRUE, "", ""},
            {"a tag right away", "<a>", content(), KR_RET_TRUE, "", "<"},
            {"a lone > is content", "a>b<", content(), KR_RET_TRUE, "a>b", "<"},
    };
    runRows(rows, sizeof rows / sizeof rows[0]);
}

TEST(XmlTag, EntriesNeedBothTags) {
    const Row rows[] = {
            {"whole entry", "pre <a>x y\n</a>post", entry("<a>", "</a>"), KR_RET_TRUE, "x y\n",
             "p"},
            {"any tags", "<a>1</b>", entry(nullptr, nullptr), KR_RET_TRUE, "1", ""},
            {"empty content", "<a></a>", entry("<a>", "</a>"), KR_RET_TRUE, "", ""},
            {"closing tag of another name", "<a>x</b>", entry("<a>", "</a>"), KR_RET_FALSE, "", ""},
            {"other opening tag", "<b>x</b>", entry("<a>", "</a>"), KR_RET_FALSE, "", "x"},
            {"content at the end, no closing tag", "<a>unterminated", entry("<a>", "</a>"),
             KR_RET_FALSE, "", ""},
            {"file ends inside the closing tag", "<a>x</a", entry("<a>", "</a>"), KR_RET_FALSE, "",
             ""},
            {"file ends inside the opening tag", "<a", entry("<a>", "</a>"), KR_RET_FALSE, "", ""},
            {"closing tag expected, opening found", "<a>x<a>", entry("<a>", "</a>"), KR_RET_FALSE,
             "", ""},
    };
    runRows(rows, sizeof rows / sizeof rows[0]);
}

TEST(XmlTag, EntriesInSequenceAndTheTagFound) {
    TagFile file("<a>1</a>\n<bb>two words</bb>\n<c>3</d>\n<e>5</e>");
    KR_String content;
    KR_String found;
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlReadTagEntry(content, file.file(), "<a>", "</a>"));
    EXPECT_EQ("1", text(content));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlReadTagEntry(content, found, file.file()));
    EXPECT_EQ("two words", text(content));
    EXPECT_EQ("<bb>", text(found));
    // The closing tag must belong to the opening tag that was found.
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_xmlReadTagEntry(content, found, file.file()));
    EXPECT_EQ("", text(content));
    EXPECT_EQ("", text(found));
    KR_StringW wide(L"stale");
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlReadTagEntryW(wide, found, file.file()));
    EXPECT_TRUE(wide == L"5");
    EXPECT_EQ("<e>", text(found));
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_xmlReadTagEntry(content, file.file(), nullptr, nullptr));
}

TEST(XmlTag, WideContentIsDecodedFromTheLocale) {
    const char* old = setlocale(LC_CTYPE, nullptr);
    const std::string saved = old != nullptr ? old : "C";
    bool utf8 = false;
    for (const char* name : {"C.UTF-8", "C.utf8", "en_US.UTF-8", ".UTF-8"}) {
        if (setlocale(LC_CTYPE, name) != nullptr) {
            utf8 = true;
            break;
        }
    }
    if (!utf8) GTEST_SKIP() << "no UTF-8 locale";
    {
        TagFile file("<s>\xc3\xa9t\xc3\xa9 \xe2\x82\xac</s><t>\xf0\x9f\x98\x80\xe2\x82\xac");
        KR_StringW content;
        EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlReadTagEntryW(content, file.file(), "<s>", "</s>"));
        EXPECT_EQ(0, wcscmp(L"\u00e9t\u00e9 \u20ac", content));
        KR_String tagRead;
        EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlReadTag(tagRead, file.file(), "<t>"));
        EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlReadTagContentW(content, file.file()));
        if (sizeof(wchar_t) == 4) {
            EXPECT_EQ(0, wcscmp(L"\U0001F600\u20ac", content));
        }
    }
    setlocale(LC_CTYPE, saved.c_str());
}

TEST(XmlTag, ClosedFileFailsAndEmptiesTheOutputs) {
    KR_FileAscii closed;
    krtest::ReportCapture capture;
    KR_String out("stale");
    KR_String found("stale");
    KR_StringW wide(L"stale");
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_xmlReadTag(out, closed, nullptr));
    EXPECT_EQ("", text(out));
    out = "stale";
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_xmlReadTagContent(out, closed));
    EXPECT_EQ("", text(out));
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_xmlReadTagContentW(wide, closed));
    EXPECT_EQ(0u, wide.strLeng());
    out = "stale";
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_xmlReadTagEntry(out, found, closed));
    EXPECT_EQ("", text(out));
    EXPECT_EQ("", text(found));
    EXPECT_NE(std::string::npos, capture.located().find("KR_File: no file open"));
}

TEST(XmlTag, AllocationFailuresEmptyTheContent) {
    KR_REQUIRE_FAULT_INJECTION();
    const std::string longContent(3000, 'v');  // several reallocations
    krtest::ReportCapture capture;
    krtest::forEachAllocationFailure(
            [&] { return std::make_shared<TagFile>("<a>" + longContent + "</a>"); },
            [&](std::shared_ptr<TagFile>& file) {
                KR_String out;  // no allocation of its own
                KR_RET_STATUS status = KR_xmlReadTagEntry(out, file->file(), "<a>", "</a>");
                if (status == KR_RET_TRUE && text(out) != longContent) return KR_RET_ERR_GEN;
                if (KRI_FAILED(status) && text(out) != "") return KR_RET_ERR_GEN;
                return status;
            },
            [&](std::shared_ptr<TagFile>&, KR_RET_STATUS status, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                EXPECT_NE(std::string::npos, capture.located().find("\nMemory error\n"));
                capture.clear();
            });
}
