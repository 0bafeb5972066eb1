// test_xml.cpp — the tag reader: tags, content and entries, and where they stop.
#include <locale.h>
#include <wchar.h>

#include <fstream>
#include <memory>
#include <string>

#include "test_support.h"

namespace {

// A text file with the given bytes, open for reading for the object's lifetime.
struct TagFile {
    explicit TagFile(const std::string& bytes) {
        EXPECT_KR_OK(KR_fileGetTempName(path, nullptr, "krxml"));
        std::ofstream(static_cast<const char*>(path), std::ios::binary) << bytes;
        EXPECT_KR_OK(file.open(static_cast<const char*>(path), KR_FILE_MODE_READ));
    }

    ~TagFile() {
        file.close();
        KR_fileRemove(path);
    }

    std::string next() {  // what a plain character scan finds next ("" at the end of the file)
        char c = 0;
        return file.scanChar(c) == KR_RET_TRUE ? std::string(1, c) : std::string();
    }

    KR_String path;
    KR_FileAscii file;
    KR_String content{"stale"}, tag{"stale"};  // outputs for the allocation walk
    KR_StringW contentW{L"stale"};
};

std::string text(const KR_String& string) {
    return string.strLeng() ? static_cast<const char*>(string) : "";
}

std::string text(const KR_StringW& string) {
    std::wstring wide = string.strLeng() ? static_cast<const wchar_t*>(string) : L"";
    return std::string(wide.begin(), wide.end());
}

using Reader = KR_RET_STATUS (*)(KR_String&, KR_FileAscii&, const char*, const char*);

const Reader kTag = [](auto& o, auto& f, auto s, auto) { return KR_xmlReadTag(o, f, s); };
const Reader kEndTag = [](auto& o, auto& f, auto s, auto) { return KR_xmlReadEndTag(o, f, s); };
const Reader kContent = [](auto& o, auto& f, auto, auto) { return KR_xmlReadTagContent(o, f); };
const Reader kEntry = KR_xmlReadTagEntry;

}  // namespace

// One read from a file of the given bytes; start and end are the tags asked for, next is the
// character that a scan finds afterwards.
TEST(XmlTag, ReadsStopWhereTheyShould) {
    const struct {
        Reader read;
        const char *bytes, *start, *end;
        KR_RET_STATUS status;
        const char *output, *next;
    } rows[] = {
            {kTag, "junk <a>rest", nullptr, nullptr, KR_RET_TRUE, "<a>", "r"},  // text skipped
            {kTag, "<version>1", "<version>", nullptr, KR_RET_TRUE, "<version>", "1"},
            {kTag, "<versions>1", "<version>", nullptr, KR_RET_FALSE, "", "1"},
            {kTag, "<>x", nullptr, nullptr, KR_RET_FALSE, "", "x"},
            {kTag, "<abc", nullptr, nullptr, KR_RET_FALSE, "", ""},  // the file ends inside
            {kTag, "plain text", nullptr, nullptr, KR_RET_FALSE, "", ""},
            {kTag, "</a>", nullptr, nullptr, KR_RET_TRUE, "</a>", ""},  // also an opening tag
            {kEndTag, "x</a>y", "</a>", nullptr, KR_RET_TRUE, "</a>", "y"},
            {kEndTag, "<a>", nullptr, nullptr, KR_RET_FALSE, "", ""},
            {kEndTag, "</a", nullptr, nullptr, KR_RET_FALSE, "", ""},  // cut by the end
            // Content stops before the next tag and gives its "<" back.
            {kContent, " a\r\n b <def>", nullptr, nullptr, KR_RET_TRUE, " a\r\n b ", "<"},
            {kContent, "<a>", nullptr, nullptr, KR_RET_TRUE, "", "<"},
            {kContent, "a>b<", nullptr, nullptr, KR_RET_TRUE, "a>b", "<"},  // a lone > is content
            {kEntry, "pre <a>x y\n</a>post", "<a>", "</a>", KR_RET_TRUE, "x y\n", "p"},
            {kEntry, "<a>1</b>", nullptr, nullptr, KR_RET_TRUE, "1", ""},  // any tags
            {kEntry, "<a></a>", "<a>", "</a>", KR_RET_TRUE, "", ""},
            {kEntry, "<a>x</b>", "<a>", "</a>", KR_RET_FALSE, "", ""},
            {kEntry, "<b>x</b>", "<a>", "</a>", KR_RET_FALSE, "", "x"},
            {kEntry, "<a>unterminated", "<a>", "</a>", KR_RET_FALSE, "", ""},
            {kEntry, "<a>x<a>", "<a>", "</a>", KR_RET_FALSE, "", ""},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.bytes);
        TagFile file(row.bytes);
        EXPECT_KR_STATUS(row.status, row.read(file.content, file.file, row.start, row.end));
        EXPECT_EQ(row.output, text(file.content));
        EXPECT_EQ(row.next, file.next());
    }
}

TEST(XmlTag, EntriesInSequenceAndTheTagFound) {
    TagFile x("<a>1</a>\n<bb>two words</bb>\n<c>3</d>\n<e>5</e>");
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlReadTagEntry(x.content, x.file, "<a>", "</a>"));
    EXPECT_EQ("1", text(x.content));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlReadTagEntry(x.content, x.tag, x.file));
    EXPECT_EQ("<bb>two words", text(x.tag) + text(x.content));
    // The closing tag must belong to the opening tag that was found.
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_xmlReadTagEntry(x.content, x.tag, x.file));
    EXPECT_EQ("", text(x.content) + text(x.tag));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlReadTagEntryW(x.contentW, x.tag, x.file));
    EXPECT_EQ("<e>5", text(x.tag) + text(x.contentW));
}

TEST(XmlTag, EntriesAcrossTheFileBuffer) {
    // The file reads through a 64 KiB buffer. Each shift puts the buffer's end at another place:
    // before or inside a tag, inside the content, on the "<" that the content read gives back.
    for (size_t shift = 0; shift <= 12; ++shift) {
        SCOPED_TRACE(shift);
        TagFile x(std::string(64 * 1024 - shift, ' ') + "<ab>xy</ab><c>1</c><d>tail");
        for (bool wide : {false, true}) {
            ASSERT_KR_OK(x.file.setPos(0));
            for (const char* expected : {"<ab>xy", "<c>1"}) {
                EXPECT_KR_STATUS(KR_RET_TRUE, wide ? KR_xmlReadTagEntryW(x.contentW, x.tag, x.file)
                                                   : KR_xmlReadTagEntry(x.content, x.tag, x.file));
                EXPECT_EQ(expected, text(x.tag) + (wide ? text(x.contentW) : text(x.content)));
            }
            EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlReadTag(x.tag, x.file, "<d>"));
            EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlReadTagContent(x.content, x.file));
            EXPECT_EQ("tail", text(x.content));
        }
    }
}

TEST(XmlTag, WideContentIsDecodedFromTheLocale) {
    krtest::Utf8Locale locale;
    if (!locale.ok) GTEST_SKIP() << "no UTF-8 locale";
    TagFile x("<s>\xc3\xa9t\xc3\xa9 \xe2\x82\xac</s><t>\xf0\x9f\x98\x80\xe2\x82\xac</t>");
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlReadTagEntryW(x.contentW, x.file, "<s>", "</s>"));
    EXPECT_EQ(0, wcscmp(L"\u00e9t\u00e9 \u20ac", x.contentW));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlReadTagEntryW(x.contentW, x.tag, x.file));
    EXPECT_TRUE(sizeof(wchar_t) < 4 || wcscmp(L"\U0001F600\u20ac", x.contentW) == 0);
}

TEST(XmlTag, ClosedFilesAndDeadOutputsAreRefused) {
    TagFile x("<a>text</a>");
    KR_FileAscii closed;
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_xmlReadTagContentW(x.contentW, closed));
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_xmlReadTagEntry(x.content, x.tag, closed));
    EXPECT_EQ("", text(x.content) + text(x.tag) + text(x.contentW));
    EXPECT_NE(std::string::npos, capture.located().find("KR_File: no file open"));
    // A failed accessor's KR_NULL_PTR reference must never receive the text that was read.
    KR_String& dead = krInternal::nullRef<KR_String>();
    capture.clear();
    x.content = "stale";
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, KR_xmlReadTag(dead, x.file, nullptr));
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, KR_xmlReadTagContent(dead, x.file));
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, KR_xmlReadTagEntry(x.content, dead, x.file));
    for (unsigned char byte : KR_NULL_PTR.bytes)
        ASSERT_EQ(0, byte);
    EXPECT_EQ("<stale", x.next() + text(x.content));  // nothing was read
    const std::string report = "src/kr_xml: line N: \nKorvane object not initialized\n\n";
    EXPECT_EQ(report + report + report, capture.located());
}

// Each allocation site of the tag reader on a long tag and content: after each failed allocation
// the call answers KR_RET_ERR_MEM, reports it, leaks nothing, empties its outputs only.
TEST(XmlTag, AllocationFailuresEmptyTheOutputs) {
    KR_REQUIRE_FAULT_INJECTION();

    const struct {
        const char* name;
        bool skipTag;  // the opening tag is read before the walk
        KR_RET_STATUS (*op)(TagFile&);
        const char* after;  // content, tag and wide content afterwards
    } rows[] = {
            {"tag", false, [](TagFile& x) { return KR_xmlReadTag(x.tag, x.file, nullptr); },
             "stale||stale"},
            {"content", true, [](TagFile& x) { return KR_xmlReadTagContent(x.content, x.file); },
             "|stale|stale"},
            {"wide content", true,
             [](TagFile& x) { return KR_xmlReadTagContentW(x.contentW, x.file); }, "stale|stale|"},
            {"entry", false,
             [](TagFile& x) { return KR_xmlReadTagEntry(x.content, x.file, nullptr, nullptr); },
             "|stale|stale"},
            {"entry and its tag", false,
             [](TagFile& x) { return KR_xmlReadTagEntry(x.content, x.tag, x.file); }, "||stale"},
    };

    const std::string tag = "<" + std::string(300, 't') + ">";
    krtest::ReportCapture capture;
    for (const auto& row : rows) {
        for (size_t length : {3000, 70000}) {  // inside the file's buffer, and collected past it
            SCOPED_TRACE(std::string(row.name) + ", content of " + std::to_string(length));
            const std::string bytes = tag + std::string(length, 'v') + "</" + tag.substr(1);
            int failures = 0;
            krtest::forEachAllocationFailure(
                    [&] {
                        auto x = std::make_unique<TagFile>(bytes);
                        KR_String skipped;
                        if (row.skipTag) KR_xmlReadTag(skipped, x->file, nullptr);
                        capture.clear();
                        return x;
                    },
                    [&](std::unique_ptr<TagFile>& x) { return row.op(*x); },
                    [&](std::unique_ptr<TagFile>& x, KR_RET_STATUS status, unsigned long) {
                        ++failures;
                        EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                        EXPECT_NE(std::string::npos, capture.located().find("\nMemory error\n"));
                        EXPECT_EQ(row.after,
                                  text(x->content) + "|" + text(x->tag) + "|" + text(x->contentW));
                    });
            EXPECT_LT(0, failures);
        }
    }
}
