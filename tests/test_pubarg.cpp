// test_pubarg.cpp — service arguments: building from maps, assignment by method, copies and
// comparisons, arrays of arguments, and allocation failures.
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "container_model.h"
#include "test_support.h"

namespace {

const wchar_t* const kModes[] = {L"fast", L"exact", nullptr};
const KR_PubArgMap kMap[] = {
        {KR_VAR_ID_BOOL, L"flag", L"On or off", 1, nullptr, 0, KR_PUBARG_BROWSER_NONE, nullptr, 0,
         0, L"1", 5},
        {KR_VAR_ID_CHOICE, L"mode", L"How", 0, kModes, 1, KR_PUBARG_BROWSER_CHOICE, L"*.txt", 1, 1,
         L"exact"},
        {KR_VAR_ID_WILD, nullptr, nullptr, 0, nullptr, 0, KR_PUBARG_BROWSER_FILE_OPEN},
        {}};
const KR_PubArgMap kTwo[] = {kMap[0], kMap[1], {}};  // without the Wild value
const KR_PubService kServices[] = {{"1.0.0", 3, L"f", L"F", kMap}, {}};

std::string narrow(const wchar_t* w) {
    return w == nullptr ? "" : std::string(w, w + wcslen(w));
}

// The values as "type=text" (with "L" for a locked type), comma-separated.
std::string values(KR_PubArg& a) {
    std::string out;
    for (unsigned int i = 0; i < a.numElems(); ++i) {
        KR_String text;
        KR_val2Str(text, a[i]);
        const char* t = text;
        out += std::string(i ? "," : "") + std::to_string(a[i].varType()) + "=" + (t ? t : "") +
               (a[i].getLockVarType() ? "L" : "");
    }
    return out;
}

// Values and every property, in the order of the argument's fields.
std::string describe(KR_PubArg& a) {
    std::string list;
    for (unsigned int i = 0; i < a.getValueList().numElems(); ++i)
        list += (i ? "," : "") + narrow(a.getValueList()[i]);
    return values(a) + "|" + narrow(a.getName()) + "|" + narrow(a.getDesc()) + "|" +
           std::to_string(a.assignMethod()) + "|" + list + "|" +
           std::to_string(a.valueListIsFixed()) + "|" + std::to_string(a.getBrowser()) + "|" +
           narrow(a.getBrowserFilterType()) + "|" + std::to_string(a.isFixedType()) + "|" +
           std::to_string(a.isReadOnly()) + "|" + std::to_string(a.getArgOption());
}

std::string describe(KR_Array<KR_PubArg>& args) {
    std::string out;
    for (unsigned int i = 0; i < args.numElems(); ++i)
        out += describe(args[i]) + "\n";
    return out;
}

const char kFlag[] = "7=1L|flag|On or off|1||0|-1||0|0|5\n";
const char kMode[] = "13=exactL|mode|How|2|fast,exact|1|4|*.txt|1|1|0\n";
const char kWild[] = "1=|||2||0|0||0|0|0\n";

// An argument of the given values, each an unlocked variant.
KR_PubArg argOf(std::vector<KR_Var> vars) {
    KR_PubArg a;
    a.reallocate(static_cast<unsigned int>(vars.size()));
    for (unsigned int i = 0; i < vars.size(); ++i)
        a[i] = vars[i];
    return a;
}

}  // namespace

TEST(PubArg, BuildsFromMapsAndServices) {
    KR_PubArg fresh;
    EXPECT_EQ("1=|||1||1|-1||0|0|0", describe(fresh));
    KR_Array<KR_PubArg> args;
    KR_buildArgsFromPubArgMap(args, kTwo);
    krtest::ReportCapture capture;
    // Each check leaves two arguments behind for the next build to empty.
    auto check = [&](const char* name, KR_RET_STATUS expected, KR_RET_STATUS status,
                     const std::string& built, bool reported) {
        SCOPED_TRACE(name);
        EXPECT_KR_STATUS(expected, status);
        EXPECT_EQ(built, describe(args));
        EXPECT_EQ(reported ? krtest::statusReport("src/kr_pubarg",
                                                  "Error on function input arguments")
                           : "",
                  capture.located());
        capture.clear();
        KR_buildArgsFromPubArgMap(args, kTwo);
    };
    auto in = KR_constructInArgsFromPubService;
    auto out = KR_constructOutArgsFromPubService;
    const std::string all = std::string(kFlag) + kMode + kWild;
    check("map", KR_RET_TRUE, KR_buildArgsFromPubArgMap(args, kMap), all, false);
    check("null map", KR_RET_FALSE, KR_buildArgsFromPubArgMap(args, nullptr), "", false);
    check("service inputs", KR_RET_TRUE, in(kServices, "1.0.0", 3, args), all, false);
    check("no outputs", KR_RET_TRUE, out(kServices, "1.0.0", 3, args), "", false);
    check("no such service", KR_RET_ERR_ARG, in(kServices, "1.0", 3, args), "", false);
    check("null services", KR_RET_ERR_ARG, out(nullptr, "1.0.0", 3, args), "", true);
}

// Each row assigns source into an argument of type target (locked unless Wild), named "keep".
TEST(PubArg, AssignsByMethod) {
    const struct {
        const char* name;
        int method;
        KR_VAR_TYPE target;
        std::vector<KR_Var> source;
        const char* after;
    } rows[] = {
            {"cast: wide TRUE/FALSE", 1, KR_VAR_INT, {L"TRUE", L"FALSE", L"7"}, "7=1,7=0,7=7"},
            {"cast: narrow TRUE into double", 1, KR_VAR_DOUBLE, {"TRUE"}, "11=1.000000"},
            {"cast: lower case left to the cast", 1, KR_VAR_INT, {"true"}, "7=0"},
            {"cast: char types are not substituted", 1, KR_VAR_CHAR, {"TRUE"}, "3=T"},
            {"cast: numbers convert", 1, KR_VAR_SHORT, {2.75}, "5=2"},
            {"cast: same type as it is", 1, KR_VAR_INT, {7}, "7=7"},
            {"cast: Wild target takes the type", 1, KR_VAR_WILD, {2.5}, "11=2.500000"},
            {"take type", 2, KR_VAR_INT, {L"x", 3}, "13=x,7=3"},
            {"plain", 0, KR_VAR_INT, {2.5}, "11=2.500000"},
            {"unknown method", 7, KR_VAR_INT, {2.5}, "7=0L"},
    };

    krtest::ReportCapture capture;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        capture.clear();
        KR_PubArg target;
        target.set(row.target, nullptr);
        if (row.target != KR_VAR_WILD) target.setLockVarType(1);
        target.setAssignMethod(static_cast<KR_PUBARG_ASSIGN_METHOD>(row.method));
        target.setName(L"keep");
        KR_PubArg source = argOf(row.source);
        source.setName(L"other");
        target = source;
        EXPECT_EQ(row.after, values(target));
        EXPECT_EQ("keep", narrow(target.getName()));
        EXPECT_EQ(row.method == 7 ? krtest::statusReport("src/kr_pubarg",
                                                         "Error on function input arguments")
                                  : "",
                  capture.located());
    }
}

TEST(PubArg, CopyCompareAndEquality) {
    KR_Array<KR_PubArg> built;
    ASSERT_KR_OK(KR_buildArgsFromPubArgMap(built, kTwo));
    KR_PubArg& flag = built[0];

    const struct {
        const char* name;
        void (*change)(KR_PubArg&);
        unsigned char equal;
    } rows[] = {
            {"nothing", [](KR_PubArg&) {}, 1},
            {"name", [](KR_PubArg& a) { a.setName(L"x"); }, 1},
            {"description", [](KR_PubArg& a) { a.setDesc(nullptr); }, 1},
            {"method", [](KR_PubArg& a) { a.setAssignMethod(KR_PUBARG_ASSIGN_PLAIN); }, 1},
            {"value list", [](KR_PubArg& a) { a.getValueList().reallocate(1); }, 1},
            {"value list fixed", [](KR_PubArg& a) { a.setValueListFixed(1); }, 1},
            {"browser", [](KR_PubArg& a) { a.setBrowser(KR_PUBARG_BROWSER_COLOUR); }, 1},
            {"filter", [](KR_PubArg& a) { a.setBrowserFilterType(L"*"); }, 1},
            {"fixed type", [](KR_PubArg& a) { a.setFixedType(1); }, 1},
            {"read only", [](KR_PubArg& a) { a.setReadOnly(1); }, 1},
            {"option", [](KR_PubArg& a) { a.setArgOption(6); }, 1},
            {"value", [](KR_PubArg& a) { a[0] = 2; }, 0},
            {"second value", [](KR_PubArg& a) { a.reallocate(2); }, 0},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        KR_PubArg copy(flag);
        EXPECT_EQ(kFlag, describe(copy) + "\n");
        row.change(copy);
        EXPECT_EQ(row.equal, copy == flag);
        EXPECT_EQ(&row == &rows[0], copy.compare(flag) != 0);
    }
    // copy takes the type and every property; an argument is equal to itself even when Wild.
    KR_PubArg other, wild;
    EXPECT_KR_OK(other.copy(built[1]));
    EXPECT_EQ(kMode, describe(other) + "\n");
    EXPECT_TRUE(wild == wild && wild.compare(wild));
    EXPECT_FALSE(wild == KR_PubArg());
}

TEST(PubArg, ArraysCopyCompareAndMove) {
    KR_Array<KR_PubArg> src, dst(3);
    ASSERT_KR_OK(KR_buildArgsFromPubArgMap(src, kTwo));
    const std::string both = std::string(kFlag) + kMode;
    EXPECT_KR_OK(KR_copyPubArgArr(dst, src));
    EXPECT_EQ(both, describe(dst));
    EXPECT_TRUE(KR_comparePubArgArr(dst, src));
    EXPECT_KR_OK(KR_copyPubArgArr(dst, dst));
    EXPECT_EQ(both, describe(dst));
    dst[1].setArgOption(9);
    EXPECT_FALSE(KR_comparePubArgArr(dst, src));
    dst.delElems(1, 1);
    EXPECT_FALSE(KR_comparePubArgArr(src, dst));
    // The containers move arguments when they make room or close a gap, and copy them whole.
    ASSERT_KR_OK(src.insElems(KR_INS_BEFORE, 1, 2));
    EXPECT_EQ(std::string(kFlag) + "1=|||1||1|-1||0|0|0\n1=|||1||1|-1||0|0|0\n" + kMode,
              describe(src));
    ASSERT_KR_OK(src.delElems(1, 2));
    dst = src;
    EXPECT_EQ(both, describe(dst));
    KR_PubArg moved(static_cast<KR_PubArg&&>(dst[0]));
    EXPECT_EQ(kFlag, describe(moved) + "\n");
}

// Every allocation of building, copying and assigning, made to fail in turn: the operation
// answers KR_RET_ERR_MEM (an assignment reports it) and loses nothing it was given.
TEST(PubArg, AllocationFailuresLoseNothing) {
    KR_REQUIRE_FAULT_INJECTION();

    struct State {
        KR_Array<KR_PubArg> src, dst;
        KR_PubArg target, source = argOf({L"TRUE", L"FALSE"});
    };

    auto setup = [] {
        auto s = std::make_unique<State>();
        KR_buildArgsFromPubArgMap(s->src, kMap);
        KR_buildArgsFromPubArgMap(s->dst, kTwo);
        s->target.set(KR_VAR_INT, nullptr);
        s->target.setName(L"target");
        return s;
    };
    krtest::ReportCapture capture;
    // The status of an assignment operator: KR_RET_ERR_MEM when it reported a memory failure.
    auto reported = [&capture] {
        return capture.text().find("Memory error") != std::string::npos ? KR_RET_ERR_MEM
                                                                        : KR_RET_TRUE;
    };
    const std::string two = std::string(kFlag) + kMode;

    const struct {
        const char* name;
        std::function<KR_RET_STATUS(State&)> op;
        std::string dst;
    } rows[] = {
            {"build", [](State& s) { return KR_buildArgsFromPubArgMap(s.dst, kMap); }, ""},
            {"copy array", [](State& s) { return KR_copyPubArgArr(s.dst, s.src); }, ""},
            {"copy one", [](State& s) { return s.target.copy(s.src[1]); }, two},
            {"container assignment", [&](State& s) { return s.dst = s.src, reported(); }, two},
            {"substitution", [&](State& s) { return s.target = s.source, reported(); }, two},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        krtest::forEachAllocationFailure(
                setup,
                [&](auto& s) {
                    capture.clear();
                    return row.op(*s);
                },
                [&](auto& s, KR_RET_STATUS status, unsigned long) {
                    EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                    EXPECT_EQ(row.dst, describe(s->dst));
                    EXPECT_EQ("7=0|target||1||1|-1||0|0|0", describe(s->target));
                    EXPECT_EQ(two + kWild, describe(s->src));
                });
    }
}
