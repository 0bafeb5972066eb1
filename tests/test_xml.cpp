// test_xml.cpp — the tag reader: tags, content and entries, and where they stop.
#include <locale.h>
#include <wchar.h>

#include <fstream>
#include <functional>
#include <initializer_list>
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

// One read from a file of the given bytes; start and end are the tags asked for.
struct Row {
    const char* bytes;
    const char* start;
    const char* end;
    KR_RET_STATUS status;
    const char* output;
    const char* next;  // the character that a scan finds afterwards
};

using Reader = KR_RET_STATUS (*)(KR_String&, KR_FileAscii&, const char*, const char*);

void runRows(Reader read, std::initializer_list<Row> rows) {
    for (const Row& row : rows) {
        SCOPED_TRACE(row.bytes);
        TagFile file(row.bytes);
        KR_String out("stale");
        EXPECT_KR_STATUS(row.status, read(out, file.file, row.start, row.end));
        EXPECT_EQ(row.output, text(out));
        EXPECT_EQ(row.next, file.next());
    }
}

}  // namespace

TEST(XmlTag, OpeningTags) {
    runRows([](KR_String& out, KR_FileAscii& file, const char* start,
               const char*) { return KR_xmlReadTag(out, file, start); },
            {
                    {"junk <a>rest", nullptr, nullptr, KR_RET_TRUE, "<a>", "r"},  // text skipped
                    {"<version>1", "<version>", nullptr, KR_RET_TRUE, "<version>", "1"},
                    {"<versions>1", "<version>", nullptr, KR_RET_FALSE, "", "1"},
                    {"<A>", "<a>", nullptr, KR_RET_FALSE, "", ""},  // case-sensitive
                    {"<>x", nullptr, nullptr, KR_RET_FALSE, "", "x"},
                    {"<abc", nullptr, nullptr, KR_RET_FALSE, "", ""},  // the file ends inside
                    {"plain text", nullptr, nullptr, KR_RET_FALSE, "", ""},
                    {"", nullptr, nullptr, KR_RET_FALSE, "", ""},
                    {"</a>", nullptr, nullptr, KR_RET_TRUE, "</a>", ""},  // also an opening tag
            });
}

TEST(XmlTag, ClosingTags) {
    runRows([](KR_String& out, KR_FileAscii& file, const char* start,
               const char*) { return KR_xmlReadEndTag(out, file, start); },
            {
                    {"x</a>y", "</a>", nullptr, KR_RET_TRUE, "</a>", "y"},
                    {"</>", nullptr, nullptr, KR_RET_FALSE, "", ""},
                    {"<a>", nullptr, nullptr, KR_RET_FALSE, "", ""},
                    {"</b>", "</a>", nullptr, KR_RET_FALSE, "", ""},
                    {"</a", nullptr, nullptr, KR_RET_FALSE, "", ""},  // cut by the end
            });
}

TEST(XmlTag, ContentStopsBeforeTheNextTag) {
    runRows([](KR_String& out, KR_FileAscii& file, const char*,
               const char*) { return KR_xmlReadTagContent(out, file); },
            {
                    {"abc <def>", nullptr, nullptr, KR_RET_TRUE, "abc ", "<"},
                    {" one\r\n two \n<x>", nullptr, nullptr, KR_RET_TRUE, " one\r\n two \n", "<"},
                    {"tail at end", nullptr, nullptr, KR_RET_TRUE, "tail at end", ""},
                    {"", nullptr, nullptr, KR_RET_TRUE, "", ""},
                    {"<a>", nullptr, nullptr, KR_RET_TRUE, "", "<"},
                    {"a>b<", nullptr, nullptr, KR_RET_TRUE, "a>b", "<"},  // a lone > is content
            });
}

TEST(XmlTag, EntriesNeedBothTags) {
    runRows(KR_xmlReadTagEntry,
            {
                    {"pre <a>x y\n</a>post", "<a>", "</a>", KR_RET_TRUE, "x y\n", "p"},
                    {"<a>1</b>", nullptr, nullptr, KR_RET_TRUE, "1", ""},  // any tags
                    {"<a></a>", "<a>", "</a>", KR_RET_TRUE, "", ""},
                    {"<a>x</b>", "<a>", "</a>", KR_RET_FALSE, "", ""},
                    {"<b>x</b>", "<a>", "</a>", KR_RET_FALSE, "", "x"},
                    {"<a>unterminated", "<a>", "</a>", KR_RET_FALSE, "", ""},
                    {"<a>x</a", "<a>", "</a>", KR_RET_FALSE, "", ""},
                    {"<a", "<a>", "</a>", KR_RET_FALSE, "", ""},
                    {"<a>x<a>", "<a>", "</a>", KR_RET_FALSE, "", ""},
            });
}

TEST(XmlTag, EntriesInSequenceAndTheTagFound) {
    TagFile file("<a>1</a>\n<bb>two words</bb>\n<c>3</d>\n<e>5</e>");
    KR_String content;
    KR_String found;
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
                std::wstring w = contentW.strLeng() ? static_cast<const wchar_t*>(contentW) : L"";
                EXPECT_EQ(expected, text(found) + text(content) + std::string(w.begin(), w.end()));
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
    KR_String out("stale");
    KR_String found("stale");
    KR_StringW wide(L"stale");
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_xmlReadTag(out, closed, nullptr));
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_xmlReadTagContentW(wide, closed));
    EXPECT_EQ("", text(out));
    EXPECT_EQ(0u, wide.strLeng());
    out = "stale";
    EXPECT_KR_STATUS(KR_RET_ERR_FILE, KR_xmlReadTagEntry(out, found, closed));
    EXPECT_EQ("", text(out) + text(found));
    EXPECT_NE(std::string::npos, capture.located().find("KR_File: no file open"));
}

TEST(XmlTag, OutputsThatAreNotInitialisedAreRefused) {
    // A failed accessor's KR_NULL_PTR reference must never receive the text that was read.
    TagFile tags("<a>text</a>");
    KR_String& dead = krInternal::nullRef<KR_String>();
    KR_String content;
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, KR_xmlReadTag(dead, tags.file, nullptr));
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, KR_xmlReadTagContent(dead, tags.file));
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, KR_xmlReadTagEntry(dead, tags.file, nullptr, nullptr));
    EXPECT_KR_STATUS(KR_RET_ERR_POBJ, KR_xmlReadTagEntry(content, dead, tags.file));
    for (unsigned char byte : KR_NULL_PTR.bytes)
        ASSERT_EQ(0, byte);
    EXPECT_EQ("<", tags.next());  // nothing was read
    const std::string report = "src/kr_xml: line N: \nKorvane object not initialized\n\n";
    EXPECT_EQ(report + report + report + report, capture.located());
}

// Every tag-reader call, narrow and wide, on a long tag and content (several reallocations
// each): after each failed allocation it answers KR_RET_ERR_MEM, reports "Memory error", leaks
// nothing, empties the outputs it fills and leaves the others alone.
TEST(XmlTag, AllocationFailuresEmptyTheOutputs) {
    KR_REQUIRE_FAULT_INJECTION();
    const std::string tag = "<" + std::string(300, 't') + ">";
    krtest::ReportCapture capture;

    struct State {
        std::shared_ptr<TagFile> file;
        KR_String content{"stale"}, tag{"stale"};
        KR_StringW contentW{L"stale"};
    };

    using Op = std::function<KR_RET_STATUS(State&)>;

    const struct {
        const char* name;
        int skip;  // read before the walk: 1 the opening tag, 2 also the content
        Op op;
        std::string after;  // content, tag and wide content afterwards
    } rows[] = {
            {"tag", 0, [](State& x) { return KR_xmlReadTag(x.tag, x.file->file, nullptr); },
             "stale||stale"},
            {"end tag", 2, [](State& x) { return KR_xmlReadEndTag(x.tag, x.file->file, nullptr); },
             "stale||stale"},
            {"content", 1, [](State& x) { return KR_xmlReadTagContent(x.content, x.file->file); },
             "|stale|stale"},
            {"wide content", 1,
             [](State& x) { return KR_xmlReadTagContentW(x.contentW, x.file->file); },
             "stale|stale|"},
            {"entry", 0,
             [&](State& x) {
                 return KR_xmlReadTagEntry(x.content, x.file->file, tag.c_str(), nullptr);
             },
             "|stale|stale"},
            {"wide entry", 0,
             [](State& x) {
                 return KR_xmlReadTagEntryW(x.contentW, x.file->file, nullptr, nullptr);
             },
             "stale|stale|"},
            {"entry and its tag", 0,
             [](State& x) { return KR_xmlReadTagEntry(x.content, x.tag, x.file->file); },
             "||stale"},
            {"wide entry and its tag", 0,
             [](State& x) { return KR_xmlReadTagEntryW(x.contentW, x.tag, x.file->file); },
             "stale||"},
    };

    // Content inside the file's buffer (one block), and content past it (collected, with several
    // reallocations).
    for (const auto& row : rows) {
        for (size_t length : {3000, 70000}) {
            SCOPED_TRACE(std::string(row.name) + ", content of " + std::to_string(length));
            const std::string bytes = tag + std::string(length, 'v') + "</" + tag.substr(1);
            int failures = 0;
            krtest::forEachAllocationFailure(
                    [&] {
                        auto x = std::make_shared<State>();
                        x->file = std::make_shared<TagFile>(bytes);
                        KR_String skipped;
                        if (row.skip > 0) KR_xmlReadTag(skipped, x->file->file, nullptr);
                        if (row.skip > 1) KR_xmlReadTagContent(skipped, x->file->file);
                        capture.clear();
                        return x;
                    },
                    [&](std::shared_ptr<State>& x) { return row.op(*x); },
                    [&](std::shared_ptr<State>& x, KR_RET_STATUS status, unsigned long) {
                        ++failures;
                        EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                        EXPECT_NE(std::string::npos, capture.located().find("\nMemory error\n"));
                        std::string wide = x->contentW.strLeng() == 5 ? "stale" : "";
                        EXPECT_EQ(0u, x->contentW.strLeng() % 5);
                        EXPECT_EQ(row.after, text(x->content) + "|" + text(x->tag) + "|" + wide);
                    });
            EXPECT_LT(0, failures);
        }
    }
}
