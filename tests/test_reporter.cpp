// test_reporter.cpp — status cells, the reporting functions, KR_Reporter's lines and the
// message catalogue.
#include <limits.h>

#include <functional>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

// A reporter copy has no stream; only a derived class may make one.
class CopiedReporter : public KR_Reporter {};

std::string pieces;

KR_RET_STATUS collect(char* text) {
    pieces += text ? text : "(null)";
    pieces += '|';
    return KR_RET_TRUE;
}

}  // namespace

TEST(Reporter, RegisterNullKeepsReporterAndReports) {
    krtest::ReportCapture capture;
    KR_BaseReporter* before = KR_msgReporter;
    KR_setUserError(9);
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_registerReporter(nullptr));
    EXPECT_EQ(before, KR_msgReporter);
    EXPECT_EQ(0, KR_getUserError());
    EXPECT_EQ(KR_RET_ERR_ARG, KR_getStatusCode());
    EXPECT_EQ("src/kr_globals: line N: \nError on function input arguments\n\n", capture.located());
}

TEST(Reporter, StatusCodeCells) {
    krtest::ReportCapture capture;
    KR_clearStatusCode();
    EXPECT_EQ(KR_RET_TRUE, KR_getStatusCode());
    EXPECT_EQ(KR_RET_TRUE, KR_reportStatus(KR_RET_ERR_FILE, "f", 1));
    EXPECT_EQ(KR_RET_ERR_FILE, KR_getStatusCode());
    // An error message always leaves KR_RET_ERR_GEN, whatever failure it tells of.
    KR_reportErrorMsg("f", 2, "allocation", "%s", KR_msg(0, 1));
    EXPECT_EQ(KR_RET_ERR_GEN, KR_getStatusCode());
    KR_reportStatus(KR_RET_ERR_MEM, "f", 3);
    KR_reportWarningMsg("f", 4, "note", nullptr);
    KR_reportWarningMsgW("f", 5, L"note", nullptr);
    EXPECT_EQ(KR_RET_ERR_MEM, KR_getStatusCode());
    KR_reportErrorMsgW("f", 6, L"wide", nullptr);
    EXPECT_EQ(KR_RET_ERR_GEN, KR_getStatusCode());
    KR_clearStatusCode();
    EXPECT_EQ(KR_RET_TRUE, KR_getStatusCode());
    KR_setUserError(-42);
    EXPECT_EQ(-42, KR_getUserError());
    KR_setUserError(0);
}

TEST(Reporter, WithoutReporterEverythingAnswersGenSilently) {
    krtest::DescriptorCapture err(2);
    KR_BaseReporter* saved = KR_msgReporter;
    KR_msgReporter = nullptr;
    EXPECT_EQ(KR_RET_ERR_GEN, KR_reportStatus(KR_RET_ERR_NSUP, "f", 1));
    EXPECT_EQ(KR_RET_ERR_NSUP, KR_getStatusCode());
    EXPECT_EQ(KR_RET_ERR_GEN, KR_reportWarningMsg("f", 1, "t", "%d", 1));
    EXPECT_EQ(KR_RET_ERR_NSUP, KR_getStatusCode());
    EXPECT_EQ(KR_RET_ERR_GEN, KR_reportErrorMsg("f", 1, "t", "%d", 1));
    EXPECT_EQ(KR_RET_ERR_GEN, KR_getStatusCode());
    EXPECT_EQ(KR_RET_ERR_GEN, KR_reportErrorMsgW("f", 1, L"t", L"%d", 1));
    EXPECT_EQ(KR_RET_ERR_GEN, KR_reportWarningMsgW("f", 1, L"t", L"%d", 1));
    EXPECT_EQ(KR_RET_ERR_GEN, KR_mesg("title", "%s", "never formatted"));
    EXPECT_EQ(KR_RET_ERR_GEN, KR_mesgW(L"title", L"%ls", L"never formatted"));
    KR_msgReporter = saved;
    KR_clearStatusCode();
    EXPECT_EQ("", err.text());
}

TEST(Reporter, LocationLineAndPrefixes) {
    struct Row {
        const char* name;
        const char* file;
        const char* text;
        const char* format;
        const char* expected;
    };

    const Row rows[] = {
            {"file and text", "src/kr_x", "title", "%d items\n",
             "ERROR: src/kr_x: line 12: title\n3 items\n"},
            {"file only", "src/kr_x", nullptr, nullptr, "ERROR: src/kr_x: line 12: \n"},
            {"text only", nullptr, "title", "%d", "ERROR: title\n3"},
            {"nothing", nullptr, nullptr, nullptr, "ERROR: "},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        krtest::ReportCapture capture;
        EXPECT_EQ(KR_RET_TRUE, KR_reportErrorMsg(row.file, 12, row.text, row.format, 3));
        EXPECT_EQ(row.expected, capture.text());
    }
}

// Every kind of line, narrow and wide in one stream. No newline is added after a message: the
// next report continues the line.
TEST(Reporter, NarrowAndWideLinesInterleave) {
    krtest::ReportCapture capture;
    KR_Reporter& reporter = capture.reporter();
    reporter.warning("a", 1, "t", "no end");
    reporter.message("b", 2, "u", "%c|", 'x');
    reporter.messageW("c", 3, L"v", L"%ls|", L"y");
    reporter.warningW(nullptr, 4, L"w", nullptr);
    KR_reportErrorMsg("src/kr_str", 10, "narrow", "%s\n", "one");
    KR_reportErrorMsgW("src/kr_str", 11, L"wide", L"%ls %d\n", L"two", 2);
    reporter.reportStatW("src/kr_str", 12, KR_RET_ERR_FILE, L"text");
    reporter.reportStat("src/kr_str", 13, KR_RET_ERR_ILOCK, nullptr);
    EXPECT_EQ(
            "WARNING: a: line 1: t\nno endb: line 2: u\nx|c: line 3: v\ny|WARNING: w\n"
            "ERROR: src/kr_str: line 10: narrow\none\n"
            "ERROR: src/kr_str: line 11: wide\ntwo 2\n"
            "src/kr_str: line 12: text\nFile error\n\n"
            "src/kr_str: line 13: \nAn iterator was accessed recursively\n\n",
            capture.text());
}

// Wide reports longer than any stack buffer of the reporter come out as the bytes of the same
// text in one piece: every kind of conversion, characters beyond U+FFFF, and nothing at all for
// a text that cannot be formatted. No report allocates, narrow or wide, short or long.
TEST(Reporter, LongReportsKeepTheirBytesAndAllocateNothing) {
    krtest::Utf8Locale locale;
    if (!locale.ok) GTEST_SKIP() << "no UTF-8 locale";
    auto repeat = [](const std::string& piece, size_t n) {
        std::string out;
        for (size_t i = 0; i < n; ++i)
            out += piece;
        return out;
    };
    std::wstring accents(3000, L'\u00e9'), astral = L"x";
    for (int i = 0; i < 2100; ++i)
        astral += L"\U0001F600";
    std::string euros = repeat("\xe2\x82\xac", 3000), narrow(5000, 'n');
    std::wstring unconvertible(sizeof(wchar_t) == 4 ? 2500 : 0, static_cast<wchar_t>(0xDC00));

    struct Row {
        const char* name;
        std::function<KR_RET_STATUS()> report;
        KR_RET_STATUS status;
        std::string expected;
    };

    const Row rows[] = {
            {"long wide argument",
             [&] { return KR_reportErrorMsgW("src/kr_x", 7, L"t", L"<%ls>\n", accents.c_str()); },
             KR_RET_TRUE, "ERROR: src/kr_x: line 7: t\n<" + repeat("\xc3\xa9", 3000) + ">\n"},
            {"long format beyond U+FFFF",
             [&] { return KR_mesgW(nullptr, (astral + L"%d|%%").c_str(), 42); }, KR_RET_TRUE,
             "x" + repeat("\xf0\x9f\x98\x80", 2100) + "42|%"},
            {"long narrow argument", [&] { return KR_mesgW(nullptr, L"%s.", euros.c_str()); },
             KR_RET_TRUE, euros + "."},
            {"widths and precisions",
             [&] {
                 return KR_mesgW(nullptr, L"%-3000ls|%3000d|%.3s|%-2600c|%lld|%.2500f", L"w", 7,
                                 "\xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9", 'z', LLONG_MAX, 0.5);
             },
             KR_RET_TRUE,
             "w" + std::string(2999, ' ') + "|" + std::string(2999, ' ') + "7|" +
                     repeat("\xc3\xa9", 3) + "|z" + std::string(2599, ' ') + "|" +
                     std::to_string(LLONG_MAX) + "|0.5" + std::string(2499, '0')},
            {"unconvertible characters",
             [&] { return KR_mesgW(nullptr, L"%ls", unconvertible.c_str()); }, KR_RET_TRUE,
             std::string(unconvertible.size(), '?')},
            {"text that does not convert",
             [&] { return KR_mesgW(nullptr, L"%ls%s", accents.c_str(), "\xff"); }, KR_RET_ERR_GEN,
             ""},
            {"long narrow reports",
             [&] {
                 KR_reportWarningMsg("f", 1, narrow.c_str(), "%s", narrow.c_str());
                 KR_reportStatus(KR_RET_ERR_MEM, narrow.c_str(), 2);
                 return KR_mesg(nullptr, "%s", narrow.c_str());
             },
             KR_RET_TRUE,
             "WARNING: f: line 1: " + narrow + "\n" + narrow + narrow +
                     ": line 2: \nMemory error\n\n" + narrow},
    };
    unsigned long allocations = krTesting::allocationCount();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        krtest::ReportCapture capture;
        EXPECT_KR_STATUS(row.status, row.report());
        EXPECT_EQ(row.expected, capture.text());
    }
    EXPECT_EQ(allocations, krTesting::allocationCount());
}

TEST(Reporter, StatusTexts) {
    struct Row {
        int value;
        const char* text;
    };

    const Row rows[] = {{0, ""},
                        {1, ""},
                        {2, ""},
                        {3, "Error on function input arguments\n\n"},
                        {4, "Memory error\n\n"},
                        {5, "File error\n\n"},
                        {6, "Korvane object not initialized\n\n"},
                        {7, "Required object or variable not initialized\n\n"},
                        {8, "Operation/function/feature not supported\n\n"},
                        {9, "Operation/function/feature not implemented\n\n"},
                        {10, ""},
                        {11, "Internal error\n\n"},
                        {12, "Bad usage\n\n"},
                        {13, "An iterator was accessed recursively\n\n"},
                        {14, ""},
                        {15, "User defined error\n\n"},
                        {16, ""},
                        {-1, ""}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.value);
        krtest::ReportCapture capture;
        KR_RET_STATUS status = static_cast<KR_RET_STATUS>(row.value);
        EXPECT_EQ(KR_RET_TRUE, KR_reportStatus(status, "src/kr_mem", 40));
        EXPECT_EQ(std::string("src/kr_mem: line 40: \n") + row.text, capture.text());
        EXPECT_EQ(status, KR_getStatusCode());
    }
    KR_clearStatusCode();
    krtest::ReportCapture capture;
    EXPECT_EQ(KR_RET_TRUE, capture.reporter().reportStat(nullptr, 1, KR_RET_TRUE, nullptr));
    EXPECT_EQ(KR_RET_TRUE, capture.reporter().reportStatW(nullptr, 1, KR_RET_TRUE, nullptr));
    EXPECT_EQ("", capture.text());
}

TEST(Reporter, PrintFormatsAndRejectsNullFormat) {
    krtest::ReportCapture capture;
    KR_Reporter& reporter = capture.reporter();
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, reporter.print("t", nullptr));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, reporter.printW(L"t", nullptr));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_mesg(nullptr, "%d-%s;", 7, "x"));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_mesgW(nullptr, L"%d-%ls;", 8, L"y"));
    // The list form reached from KR_mesg has no null check in its contract; it must not crash.
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_mesg("t", nullptr));
    EXPECT_EQ("7-x;8-y;", capture.text());
}

TEST(Reporter, CopyWithoutStreamAnswersGenWithDiagnostic) {
    CopiedReporter original;
    CopiedReporter copy(original);
    krtest::DescriptorCapture err(2);
    EXPECT_KR_STATUS(KR_RET_ERR_GEN, copy.error("f", 1, "t", nullptr));
    EXPECT_KR_STATUS(KR_RET_ERR_GEN, copy.reportStat("f", 1, KR_RET_ERR_MEM, nullptr));
    EXPECT_KR_STATUS(KR_RET_ERR_GEN, copy.printW(L"t", L"x"));
    std::string text = err.text();
    EXPECT_NE(std::string::npos,
              text.find("KR_Reporter::error(): object not initialized : (src/kr_reporter,"));
    EXPECT_NE(std::string::npos,
              text.find("KR_Reporter::reportStat(): object not initialized : (src/kr_reporter,"));
    EXPECT_NE(std::string::npos,
              text.find("KR_Reporter::print(): object not initialized : (src/kr_reporter,"));
    // Assignment copies the stream pointer, which makes the copy usable again.
    copy = original;
    krtest::DescriptorCapture err2(2);
    EXPECT_KR_STATUS(KR_RET_TRUE, copy.reportStat("f", 2, KR_RET_ERR_USER, nullptr));
    EXPECT_EQ("f: line 2: \nUser defined error\n\n", err2.text());
}

TEST(Reporter, MessageCatalogue) {
    struct Row {
        unsigned int group;
        unsigned int id;
        const char* text;
    };

    const Row rows[] = {{0, 0, "KR_logErrorGen() : Unknown error code"},
                        {0, 1, "Memory error"},
                        {0, 3, "Index %d not in [%d,%d]"},
                        {0, 4, "Division by zero"},
                        {0, 5, nullptr},
                        {1, 8, "KR_StringArr free"},
                        {1, 9, nullptr},
                        {2, 9, "Arg %d has %d vertices"},
                        {2, 11, "KR_VectorArr divide vector by real"},
                        {2, 12, nullptr},
                        {3, 10, "Matrix not invertible"},
                        {3, 11, nullptr},
                        {4, 0, nullptr},
                        {~0u, 0, nullptr}};
    EXPECT_EQ(KR_RET_TRUE, KR_msgInit());  // a second sort leaves the table as it is
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.group) + "," + std::to_string(row.id));
        const char* text = KR_msg(row.group, row.id);
        if (row.text == nullptr) {
            EXPECT_EQ(nullptr, text);
        } else {
            ASSERT_NE(nullptr, text);
            EXPECT_STREQ(row.text, text);
        }
    }
}

TEST(Reporter, StatusPrinterThroughHandler) {
    KR_OStream stream;
    stream.setConsoleHandler(collect);
    for (KR_RET_STATUS status :
         {KR_RET_FALSE, KR_RET_TRUE, KR_RET_ERR_ARG, KR_RET_ERR_MEM, KR_RET_ERR_FILE,
          KR_RET_ERR_POBJ, KR_RET_ERR_OBJ, KR_RET_ERR_NSUP, KR_RET_ERR_NIMP, KR_RET_ERR_GEN,
          KR_RET_ERR_CALL, KR_RET_ERR_ILOCK, KR_RET_ERR_USER}) {
        std::string name = krtest::statusName(status);
        SCOPED_TRACE(name);
        pieces.clear();
        EXPECT_EQ(&stream, &(stream << status));
        EXPECT_EQ("Korvane return code: |" + name + "(|" +
                          std::to_string(static_cast<int>(status)) + "|)|",
                  pieces);
    }
}
