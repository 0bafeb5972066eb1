// test_xml.cpp — the tag reader: tags, content and entries, and where they stop.
#include <locale.h>
#include <wchar.h>

#include <fstream>
#include <memory>
#include <string>

#include "test_support.h"

namespace {

// A text file with the given bytes, open for reading for the object's lifetime.
class TagFile {
public:
    explicit TagFile(const std::string& bytes) {
        EXPECT_KR_OK(KR_fileGetTempName(path_, nullptr, "krxml"));
        std::ofstream(static_cast<const char*>(path_), std::ios::binary) << bytes;
        EXPECT_KR_OK(file.open(static_cast<const char*>(path_), KR_FILE_MODE_READ));
    }

    ~TagFile() {
        file.close();
        KR_fileRemove(path_);
    }

    // What a plain character scan finds next ("" at the end of the file).
    std::string next() {
        char c = 0;
        return file.scanChar(c) == KR_RET_TRUE ? std::string(1, c) : std::string();
    }

    KR_FileAscii file;

private:
    KR_String path_;
};

std::string text(const KR_String& string) {
    const char* chars = string;
    return chars != nullptr ? chars : "";
}

std::string text(const KR_StringW& string) {
    std::wstring wide = string.strLeng() ? static_cast<const wchar_t*>(string) : L"";
    return std::string(wide.begin(), wide.end());
}

using Reader = KR_RET_STATUS (*)(KR_String&, KR_FileAscii&, const char*, const char*);

const Reader kTag = [](auto& out, auto& file, auto start, auto) {
    return KR_xmlReadTag(out, file, start);
};
const Reader kEndTag = [](auto& out, auto& file, auto start, auto) {
    return KR_xmlReadEndTag(out, file, start);
};
const Reader kContent = [](auto& out, auto& file, auto, auto) {
    return KR_xmlReadTagContent(out, file);
};
const Reader kEntry = KR_xmlReadTagEntry;

}  // namespace

// One read from a file of the given bytes; start and end are the tags asked for, next is the
// character that a scan finds afterwards.
TEST(XmlTag, ReadsStopWhereTheyShould) {
    const struct {
        Reader read;
        const char* bytes;
        const char* start;
        const char* end;
        KR_RET_STATUS status;
        const char* output;
        const char* next;
    } rows[] = {
            {kTag, "junk <a>rest", nullptr, nullptr, KR_RET_TRUE, "<a>", "r"},  // text skipped
            {kTag, "<version>1", "<version>", nullptr, KR_RET_TRUE, "<version>", "1"},
            {kTag, "<versions>1", "<version>", nullptr, KR_RET_FALSE, "", "1"},
            {kTag, "<A>", "<a>", nullptr, KR_RET_FALSE, "", ""},  // case-sensitive
            {kTag, "<>x", nullptr, nullptr, KR_RET_FALSE, "", "x"},
            {kTag, "<abc", nullptr, nullptr, KR_RET_FALSE, "", ""},  // the file ends inside
            {kTag, "plain text", nullptr, nullptr, KR_RET_FALSE, "", ""},
            {kTag, "", nullptr, nullptr, KR_RET_FALSE, "", ""},
            {kTag, "</a>", nullptr, nullptr, KR_RET_TRUE, "</a>", ""},  // also an opening tag
            {kEndTag, "x</a>y", "</a>", nullptr, KR_RET_TRUE, "</a>", "y"},
            {kEndTag, "</>", nullptr, nullptr, KR_RET_FALSE, "", ""},
            {kEndTag, "<a>", nullptr, nullptr, KR_RET_FALSE, "", ""},
            {kEndTag, "</b>", "</a>", nullptr, KR_RET_FALSE, "", ""},
            {kEndTag, "</a", nullptr, nullptr, KR_RET_FALSE, "", ""},  // cut by the end
            // Content stops before the next tag and gives its "<" back.
            {kContent, "abc <def>", nullptr, nullptr, KR_RET_TRUE, "abc ", "<"},
            {kContent, " one\r\n two \n<x>", nullptr, nullptr, KR_RET_TRUE, " one\r\n two \n", "<"},
            {kContent, "tail at end", nullptr, nullptr, KR_RET_TRUE, "tail at end", ""},
            {kContent, "", nullptr, nullptr, KR_RET_TRUE, "", ""},
            {kContent, "<a>", nullptr, nullptr, KR_RET_TRUE, "", "<"},
            {kContent, "a>b<", nullptr, nullptr, KR_RET_TRUE, "a>b", "<"},  // a lone > is content
            // An entry needs both tags.
            {kEntry, "pre <a>x y\n</a>post", "<a>", "</a>", KR_RET_TRUE, "x y\n", "p"},
            {kEntry, "<a>1</b>", nullptr, nullptr, KR_RET_TRUE, "1", ""},  // any tags
            {kEntry, "<a></a>", "<a>", "</a>", KR_RET_TRUE, "", ""},
            {kEntry, "<a>x</b>", "<a>", "</a>", KR_RET_FALSE, "", ""},
            {kEntry, "<b>x</b>", "<a>", "</a>", KR_RET_FALSE, "", "x"},
            {kEntry, "<a>unterminated", "<a>", "</a>", KR_RET_FALSE, "", ""},
            {kEntry, "<a>x</a", "<a>", "</a>", KR_RET_FALSE, "", ""},
            {kEntry, "<a", "<a>", "</a>", KR_RET_FALSE, "", ""},
            {kEntry, "<a>x<a>", "<a>", "</a>", KR_RET_FALSE, "", ""},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.bytes);
        TagFile file(row.bytes);
        KR_String out("stale");
        EXPECT_KR_STATUS(row.status, row.read(out, file.file, row.start, row.end));
        EXPECT_EQ(row.output, text(out));
        EXPECT_EQ(row.next, file.next());
    }
}

TEST(XmlTag, EntriesInSequenceAndTheTagFound) {
    TagFile file("<a>1</a>\n<bb>two words</bb>\n<c>3</d>\n<e>5</e>");
    KR_String content, found;
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlReadTagEntry(content, file.file, "<a>", "</a>"));
    EXPECT_EQ("1", text(content));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlReadTagEntry(content, found, file.file));
    EXPECT_EQ("two words", text(content));
    EXPECT_EQ("<bb>", text(found));
    // The closing tag must belong to the opening tag that was found.
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_xmlReadTagEntry(content, found, file.file));
    EXPECT_EQ("", text(content) + text(found));
    KR_StringW wide(L"stale");
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlReadTagEntryW(wide, found, file.file));
    EXPECT_TRUE(wide == L"5");
    EXPECT_EQ("<e>", text(found));
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_xmlReadTagEntry(content, file.file, nullptr, nullptr));
}

TEST(XmlTag, EntriesAcrossTheFileBuffer) {
    // The file reads through a 64 KiB buffer. Each shift puts the buffer's end at another place:
    // before or inside a tag, inside the content, on the "<" that the content read gives back.
    const size_t kFileBuffer = 64 * 1024;
    for (size_t shift = 0; shift <= 12; ++shift) {
        SCOPED_TRACE(shift);
        TagFile file(std::string(kFileBuffer - shift, ' ') + "<ab>xy</ab><c>1</c><d>tail");
        for (bool wide : {false, true}) {
            ASSERT_KR_OK(file.file.setPos(0));
            for (const char* expected : {"<ab>xy", "<c>1"}) {
                KR_String content, found;
                KR_StringW contentW;
                EXPECT_KR_STATUS(KR_RET_TRUE, wide ? KR_xmlReadTagEntryW(contentW, found, file.file)
                                                   : KR_xmlReadTagEntry(content, found, file.file));
                EXPECT_EQ(expected, text(found) + text(content) + text(contentW));
            }
            KR_String tag, content;
            EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlReadTag(tag, file.file, "<d>"));
            EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlReadTagContent(content, file.file));
            EXPECT_EQ("tail", text(content));
        }
    }
}

TEST(XmlTag, WideContentIsDecodedFromTheLocale) {
    krtest::Utf8Locale locale;
    if (!locale.ok) GTEST_SKIP() << "no UTF-8 locale";
    TagFile file("<s>\xc3\xa9t\xc3\xa9 \xe2\x82\xac</s><t>\xf0\x9f\x98\x80\xe2\x82\xac");
    KR_StringW content;
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlReadTagEntryW(content, file.file, "<s>", "</s>"));
    EXPECT_EQ(0, wcscmp(L"\u00e9t\u00e9 \u20ac", content));
    KR_String tagRead;
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlReadTag(tagRead, file.file, "<t>"));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_xmlReadTagContentW(content, file.file));
    EXPECT_TRUE(sizeof(wchar_t) < 4 || wcscmp(L"\U0001F600\u20ac", content) == 0);
}

TEST(XmlTag, ClosedFileFailsAndEmptiesTheOutputs) {
    KR_FileAscii closed;
    krtest::ReportCapture capture;
    KR_String out("stale"), found("stale");
    KR_StringW wide(L"stale");
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_xmlReadTag(out, closed, nullptr));
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_xmlReadTagContentW(wide, closed));
    EXPECT_EQ("|stale|", text(out) + "|" + text(found) + "|" + text(wide));
    out = "stale";
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_xmlReadTagEntry(out, found, closed));
    EXPECT_EQ("", text(out) + text(found));
    EXPECT_NE(std::string::npos, capture.located().find("KR_File: no file open"));
}

TEST(XmlTag, OutputsThatAreNotInitialisedAreRefused) {
    // A failed accessor's KR_NULL_PTR reference must never receive the text that was read.
    TagFile tags("<a>text</a>");
    KR_String& dead = krInternal::nullRef<KR_String>();
    KR_String content("stale");
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, KR_xmlReadTag(dead, tags.file, nullptr));
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, KR_xmlReadTagContent(dead, tags.file));
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, KR_xmlReadTagEntry(dead, tags.file, nullptr, nullptr));
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, KR_xmlReadTagEntry(content, dead, tags.file));
    for (unsigned char byte : KR_NULL_PTR.bytes)
        ASSERT_EQ(0, byte);
    EXPECT_EQ("<stale", tags.next() + text(content));  // nothing was read
    const std::string report = "src/kr_xml: line N: \nKorvane object not initialized\n\n";
    EXPECT_EQ(report + report + report + report, capture.located());
}

// Every tag-reader call, narrow and wide, on a long tag and content (several reallocations
// each): after each failed allocation it answers KR_RET_ERR_MEM, reports "Memory error", leaks
// nothing, empties the outputs it fills and leaves the others alone.
TEST(XmlTag, AllocationFailuresEmptyTheOutputs) {
    KR_REQUIRE_FAULT_INJECTION();
    static const std::string tag = "<" + std::string(300, 't') + ">";

    struct State : TagFile {
        using TagFile::TagFile;
        KR_String content{"stale"}, tag{"stale"};
        KR_StringW contentW{L"stale"};
    };

    const struct {
        const char* name;
        int skip;  // read before the walk: 1 the opening tag, 2 also the content
        KR_RET_STATUS (*op)(State&);
        const char* after;  // content, tag and wide content afterwards
    } rows[] = {
            {"tag", 0, [](State& x) { return KR_xmlReadTag(x.tag, x.file, nullptr); },
             "stale||stale"},
            {"end tag", 2, [](State& x) { return KR_xmlReadEndTag(x.tag, x.file, nullptr); },
             "stale||stale"},
            {"content", 1, [](State& x) { return KR_xmlReadTagContent(x.content, x.file); },
             "|stale|stale"},
            {"wide content", 1, [](State& x) { return KR_xmlReadTagContentW(x.contentW, x.file); },
             "stale|stale|"},
            {"entry", 0,
             [](State& x) { return KR_xmlReadTagEntry(x.content, x.file, tag.c_str(), nullptr); },
             "|stale|stale"},
            {"wide entry", 0,
             [](State& x) { return KR_xmlReadTagEntryW(x.contentW, x.file, nullptr, nullptr); },
             "stale|stale|"},
            {"entry and its tag", 0,
             [](State& x) { return KR_xmlReadTagEntry(x.content, x.tag, x.file); }, "||stale"},
            {"wide entry and its tag", 0,
             [](State& x) { return KR_xmlReadTagEntryW(x.contentW, x.tag, x.file); }, "stale||"},
    };

    // Content inside the file's buffer (one block), and content past it (collected, with several
    // reallocations).
    krtest::ReportCapture capture;
    for (const auto& row : rows) {
        for (size_t length : {3000, 70000}) {
            SCOPED_TRACE(std::string(row.name) + ", content of " + std::to_string(length));
            const std::string bytes = tag + std::string(length, 'v') + "</" + tag.substr(1);
            int failures = 0;
            krtest::forEachAllocationFailure(
                    [&] {
                        auto x = std::make_unique<State>(bytes);
                        KR_String skipped;
                        if (row.skip > 0) KR_xmlReadTag(skipped, x->file, nullptr);
                        if (row.skip > 1) KR_xmlReadTagContent(skipped, x->file);
                        capture.clear();
                        return x;
                    },
                    [&](std::unique_ptr<State>& x) { return row.op(*x); },
                    [&](std::unique_ptr<State>& x, KR_RET_STATUS status, unsigned long) {
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
