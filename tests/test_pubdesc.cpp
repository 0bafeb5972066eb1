// test_pubdesc.cpp — service description tables: lookups, port counts, versions, port
// descriptions and the printed form.
#include <functional>
#include <string>

#include "container_model.h"
#include "test_support.h"

namespace {

const char kUnit[] = "src/kr_public";

const wchar_t* const kModes[] = {L"fast", L"exact", nullptr};
const KR_PubArgMap kInArgs[] = {{KR_VAR_ID_DOUBLE, L"count", L"How many", 1, nullptr, 0,
                                 KR_PUBARG_BROWSER_NONE, nullptr, 0, 0, L"3", 0, 0},
                                {KR_VAR_ID_CHOICE, L"mode", nullptr, 0, kModes, 1,
                                 KR_PUBARG_BROWSER_CHOICE, L"*.txt", 1, 1, L"fast", 7, 0},
                                {}};
const KR_PubArgMap kOutArgs[] = {{KR_VAR_ID_BOOL, L"ok"}, {}};
const KR_PubArgMap kThreeArgs[] = {
        {KR_VAR_ID_INT, L"a"}, {KR_VAR_ID_INT, L"b"}, {KR_VAR_ID_INT, L"c"}, {}};
const KR_PubProcPortMap kInPorts[] = {{L"in", L"Input"}, {L"aux", nullptr}, {}};

// Version 1: a service with every map, one with none, and one without a description (printing
// stops there, the lookups walk on).
const KR_PubService kV1[] = {
        {"1.0.0", 0, L"add", L"Adds", kInArgs, nullptr, kInPorts, nullptr},
        {"1.0.0", 1, L"noop", L"Does nothing", nullptr, nullptr, nullptr, nullptr},
        {"1.0.0", 2, L"hidden", nullptr, kOutArgs, kThreeArgs, nullptr, nullptr},
        {}};
const KR_PubService kV2[] = {{"2.1.0", 0, L"add", L"Adds more", kThreeArgs, kOutArgs}, {}};
const KR_PubService* const kGroup1[] = {&kV1[0], nullptr, &kV1[1], &kV1[2], &kV1[3]};
const KR_PubService* const kGroup2[] = {&kV2[0], &kV2[1]};
// The later groups are larger, newer, and the newest version comes twice.
const KR_PubServGrpList kList[] = {
        {"1.0.0", kGroup1}, {"2.1.0", kGroup2}, {"2.1.0", kGroup1}, {"1.5.0", kGroup2}, {}};
const KR_PubServGrpList kEmptyList[] = {{"9.0.0", nullptr}, {"9.9.9", kGroup1}};
const char* const kVersions[] = {"1.0.0", "2.1.0", "1.5", nullptr};
const KR_PubDescTable kTable = {1, 2, 3, 4, 5, 6, 7, 8, kVersions, 10, 11, 12, 13};
const KR_PubDescTable kNoVersions = {};

std::string reportsOf(int count) {
    std::string text;
    for (int i = 0; i < count; ++i)
        text += krtest::statusReport(kUnit, "Error on function input arguments");
    return text;
}

std::string text(const KR_StringW& s) {
    const wchar_t* w = s;
    return w == nullptr ? "" : std::string(w, w + wcslen(w));
}

std::string texts(KR_Array<KR_StringW>& a) {
    std::string out;
    for (unsigned int i = 0; i < a.numElems(); ++i)
        out += (i ? "|" : "") + text(a[i]);
    return out;
}

std::string printed;

}  // namespace

// Every row's lookup runs before the loop; only the null arguments are reported.
TEST(PubDesc, LookupsStopAtTheirTerminators) {
    krtest::ReportCapture capture;
    KR_Version listed(1, 5, 0), unlisted(1, 5, 1);
    const void* const none = nullptr;
    const wchar_t* const noName = nullptr;
    const KR_PubService* const noArray = nullptr;

    const struct {
        const char* name;
        const void *found, *expected;
    } rows[] = {
            {"by number", KR_findPublicService(kV1, "1.0.0", 1), &kV1[1]},
            {"version text exact", KR_findPublicService(kV1, "1.0", 1), none},
            {"null array", KR_findPublicService(nullptr, "1.0.0", 0), none},
            {"null version", KR_findPublicService(kV1, nullptr, 0), none},
            {"negative number", KR_findPublicService(kV1, "1.0.0", -1), none},
            {"name past a null description", KR_findPublicService(kV1, L"hidden"), &kV1[2]},
            {"null name", KR_findPublicService(kV1, noName), none},
            {"name in a null array", KR_findPublicService(noArray, L"x"), none},
            {"group past a null pointer", KR_findPublicService(kGroup1, L"hidden"), &kV1[2]},
            {"group without the name", KR_findPublicService(kGroup2, L"noop"), none},
            {"null group", KR_findPublicService(static_cast<KR_PubService**>(nullptr), L"a"), none},
            {"version", KR_findVersionPubServGrpList(kList, listed), &kList[3]},
            {"version not listed", KR_findVersionPubServGrpList(kList, unlisted), none},
            {"version in a null list", KR_findVersionPubServGrpList(nullptr, listed), none},
            {"most recent: first of equals", KR_mostRecentVersionPubServGrpList(kList), &kList[1]},
            {"most recent of no entry", KR_mostRecentVersionPubServGrpList(kEmptyList), none},
            {"most recent of a null list", KR_mostRecentVersionPubServGrpList(nullptr), none},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.expected, row.found);
    }
    EXPECT_EQ(reportsOf(7), capture.located());
}

TEST(PubDesc, CountsAndVersions) {
    krtest::ReportCapture capture;

    const struct {
        const char* name;
        unsigned int count, expected;
    } rows[] = {
            {"services", KR_getNumPublicServices(kV1), 3},
            {"services of a null array", KR_getNumPublicServices(nullptr), 0},
            {"in ports", KR_numDataInPortsFromPubService(&kV1[0]), 2},
            {"null map", KR_numDataOutPortsFromPubService(&kV1[0]), 0},
            {"null service", KR_numDataOutPortsFromPubService(nullptr), 0},
            {"group: largest, past a null pointer", KR_numDataOutPortsFromPubServGrp(kGroup1), 3},
            {"null group", KR_numDataInPortsFromPubServGrp(nullptr), 0},
            {"list: first group only", KR_numDataInPortsFromPubServGrpList(kList), 2},
            {"null list", KR_numDataInPortsFromPubServGrpList(nullptr), 0},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.expected, row.count);
    }
    // The null arguments, and the null pointer of kGroup1 on each of the two group walks.
    EXPECT_EQ(reportsOf(5), capture.located());
    EXPECT_TRUE(KR_mostRecentPubDescTableVersion(&kTable) == KR_Version(2, 1, 0));
    EXPECT_TRUE(KR_mostRecentPubDescTableVersion(&kNoVersions) == KR_Version());
    EXPECT_TRUE(KR_mostRecentPubDescTableVersion(nullptr) == KR_Version());
    EXPECT_EQ(reportsOf(6), capture.located());
}

TEST(PubDesc, PortDescriptionsFromServices) {
    KR_Array<KR_StringW> names(1), descs(3);
    auto& a = names;
    auto& d = descs;
    unsigned int n = 99;
    auto build = KR_buildProcPortDescsFromPubProcPortMap;
    auto in = KR_constructInProcPortDescsFromPubService;
    auto out = KR_constructOutProcPortDescsFromPubService;

    const struct {
        const char* name;
        std::function<KR_RET_STATUS()> build;
        KR_RET_STATUS status;
        unsigned int ports;
        const char *names, *descs;
    } rows[] = {
            {"null map", [&] { return build(nullptr, n, a, d); }, KR_RET_FALSE, 0, "", ""},
            {"service", [&] { return in(kV1, "1.0.0", 0, n, a, d); }, KR_RET_TRUE, 2, "in|aux",
             "Input|"},
            {"null port map", [&] { return out(kV1, "1.0.0", 0, n, a, d); }, KR_RET_TRUE, 0, "",
             ""},
            {"no such service", [&] { return in(kV1, "2.1.0", 0, n, a, d); }, KR_RET_ERR_ARG, 0, "",
             ""},
            {"null array (reported)", [&] { return out(nullptr, "1.0.0", 0, n, a, d); },
             KR_RET_ERR_ARG, 0, "", ""},
    };

    krtest::ReportCapture capture;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        names.reallocate(1);
        names[0] = L"stale";
        EXPECT_KR_STATUS(row.status, row.build());
        EXPECT_EQ(row.ports, n);
        EXPECT_EQ(row.names, texts(names));
        EXPECT_EQ(row.descs, texts(descs));
    }
    EXPECT_EQ(reportsOf(1), capture.located());
}

// A block or text that does not arrive leaves no port behind.
TEST(PubDesc, PortDescriptionsFailWhole) {
    KR_REQUIRE_FAULT_INJECTION();
    KR_Array<KR_StringW> names, descs;
    unsigned int ports = 99;
    krtest::ReportCapture capture;
    krtest::forEachAllocationFailure(
            [&] { return KR_buildProcPortDescsFromPubProcPortMap(kInPorts, ports, names, descs); },
            [&](KR_RET_STATUS status, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                EXPECT_EQ(0u, ports);
                EXPECT_EQ(0u, names.numElems() + descs.numElems());
            });
}

TEST(PubDesc, PrintedForm) {
    KR_OStream stream;
    stream.setConsoleHandler([](char* t) { return printed += t != nullptr ? t : "", KR_RET_TRUE; });
    stream.setConsoleHandlerW([](wchar_t* t) { return printed += text(t), KR_RET_TRUE; });
    const std::string noop =
            "Version:             1.0.0\n"
            "Function:            1\n"
            "Function name:       noop\n"
            "Description:         Does nothing\n"
            "Input argument map:  No arguments\n"
            "Output argument map: No arguments\n"
            "Input process port map:  No process ports\n"
            "Output process port map: No process ports\n";
    printed.clear();
    stream << kV1;
    EXPECT_EQ(
            "Version:             1.0.0\n"
            "Function:            0\n"
            "Function name:       add\n"
            "Description:         Adds\n"
            "Input argument map:  Arg 0: Type: Double\n"
            "                            Name: count\n"
            "                            Desc: How many\n"
            "                            Cast: Yes\n"
            "                            Arg Value List Fixed: No\n"
            "                            Browser: -1\n"
            "                            Browser Filter Type: \n"
            "                            Fixed Type: No\n"
            "                            Read Only: No\n"
            "                            Default Value: 3\n"
            "                            Option: 0\n"
            "                     Arg 1: Type: Choice\n"
            "                            Name: mode\n"
            "                            Desc: \n"
            "                            Cast: No\n"
            "                            Arg Value List: \n"
            "                                  fast\n"
            "                                  exact\n"
            "                            Arg Value List Fixed: Yes\n"
            "                            Browser: 4\n"
            "                            Browser Filter Type: *.txt\n"
            "                            Fixed Type: Yes\n"
            "                            Read Only: Yes\n"
            "                            Default Value: fast\n"
            "                            Option: 7\n"
            "Output argument map: No arguments\n"
            "Input process port map:  Port 0\n"
            "                            Name: in\n"
            "                            Desc: Input\n"
            "                     Port 1\n"
            "                            Name: aux\n"
            "                            Desc: \n"
            "Output process port map: No process ports\n"
            "\n" + noop +
                    "\n",
            printed);

    const KR_PubService* const group[] = {nullptr, &kV1[1], &kV1[3]};
    const KR_PubServGrpList list[] = {{"3.0.0", group}, {nullptr, group}};
    printed.clear();
    stream << list;
    EXPECT_EQ(
            "************************************************\n"
            "\n"
            "Public Service Group List:\n"
            "\n"
            "---------------------------------------\n"
            "Group 0: Version 3.0.0:\n"
            "\n" + noop +
                    "\n\n"
                    "---------------------------------------\n"
                    "\n"
                    "************************************************\n",
            printed);

    printed.clear();
    stream << static_cast<KR_PubServGrpList*>(nullptr) << static_cast<KR_PubService*>(nullptr)
           << static_cast<KR_PubService**>(nullptr) << static_cast<KR_PubArgMap*>(nullptr)
           << static_cast<const KR_PubProcPortMap*>(nullptr);
    EXPECT_EQ("No arguments\nNo process ports\n", printed);
}
