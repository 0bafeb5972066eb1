// test_public.cpp — public classes, the class factory, and public objects held in variants.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "../examples/sample_module.h"
#include "container_model.h"
#include "test_support.h"

using krtest::statusReport;

namespace {

const char* const kUnit = "src/kr_public";
const char* const kCounterGuid = "6B1D7E2A-3C4F-4A5B-9C8D-0E1F2A3B4C5D";
const char* const kOtherGuid = "6B1D7E2A-3C4F-4A5B-9C8D-0E1F2A3B4C5E";

int live = 0;  // objects made and not yet destroyed
uintptr_t executed[7];

// A public object with one number, made from its argument count.
class Counter : public KR_PublicClass {
public:
    explicit Counter(int n = 0) : n(n) { ++live; }

    ~Counter() override { --live; }

    char* classGUID() override { return const_cast<char*>(kCounterGuid); }

    char* className() override { return const_cast<char*>("Counter"); }

    int n;
};

// Of another class, and not a variant's object.
class Plain : public KR_PublicClass {
public:
    char* classGUID() override { return const_cast<char*>(kOtherGuid); }

    char* className() override { return const_cast<char*>("Plain"); }
};

KR_PublicClass* createCounter(KR_Array<KR_PubArg>& args) {
    return new Counter(static_cast<int>(args.numElems()));
}

KR_RET_STATUS deleteCounter(KR_PublicClass* obj) {
    delete obj;
    return KR_RET_TRUE;
}

KR_RET_STATUS executeCounter(KR_PublicClass* obj,
                             uintptr_t a1,
                             uintptr_t,
                             uintptr_t,
                             uintptr_t,
                             uintptr_t,
                             uintptr_t,
                             uintptr_t a7) {
    executed[0] = a1;
    executed[6] = a7;
    return static_cast<Counter*>(obj)->n == 0 ? KR_RET_TRUE : KR_RET_FALSE;
}

KR_RET_STATUS counterInterface(KR_PubInterface* out) {
    out->createObj = createCounter;
    out->deleteObj = deleteCounter;
    out->objExecute = executeCounter;
    return KR_RET_TRUE;
}

KR_RET_STATUS refusingInterface(KR_PubInterface*) {
    return KR_RET_ERR_GEN;
}

// Every test starts with exactly the Counter class registered.
class Factory : public ::testing::Test {
protected:
    void SetUp() override {
        KR_classFactoryClose();
        ASSERT_KR_STATUS(KR_RET_TRUE, KR_classFactoryRegister(guid, (void*)&counterInterface));
    }

    void TearDown() override {
        KR_classFactoryClose();
        KR_classFactoryInit();
        EXPECT_EQ(0, live);
    }

    KR_Var guid{kCounterGuid};
};

TEST_F(Factory, Registry) {
    KR_Var other(kOtherGuid);
    // First registration wins.
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_classFactoryRegister(guid, (void*)&refusingInterface));
    KR_PublicClass* obj = KR_classFactoryCreateObj(kCounterGuid);
    ASSERT_NE(nullptr, obj);
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_classFactoryDelObj(obj));
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_classFactoryInit());
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_classFactoryUnregister(other));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_classFactoryRegister(other, (void*)&refusingInterface));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_classFactoryUnregister(guid));
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_classFactoryUnregister(guid));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_classFactoryUnregisterAll());
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_classFactoryUnregister(other));
    // Without a registry: refused and reported; a registration makes one.
    krtest::ReportCapture capture;
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_classFactoryClose());
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_classFactoryClose());
    EXPECT_KR_STATUS(KR_RET_ERR_OBJ, KR_classFactoryUnregister(guid));
    EXPECT_KR_STATUS(KR_RET_ERR_OBJ, KR_classFactoryUnregisterAll());
    const std::string obj2 = statusReport(kUnit, "Required object or variable not initialized");
    EXPECT_EQ(obj2 + obj2, capture.located());
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_classFactoryRegister(guid, (void*)&counterInterface));
}

TEST_F(Factory, CreateExecuteDelete) {
    KR_Array<KR_PubArg> args(3);
    KR_PublicClass* obj = KR_classFactoryCreateObj(kCounterGuid, args);
    ASSERT_NE(nullptr, obj);
    EXPECT_EQ(3, static_cast<Counter*>(obj)->n);
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_classFactoryObjExecute(obj, 1, 2, 3, 4, 5, 6, UINTPTR_MAX));
    EXPECT_EQ(UINTPTR_MAX, executed[6]);
    EXPECT_EQ(1u, executed[0]);
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_classFactoryDelObj(obj));

    krtest::ReportCapture capture;
    EXPECT_EQ(nullptr, KR_classFactoryCreateObj("no-such-class"));
    EXPECT_EQ("ERROR: " + std::string(kUnit) +
                      ": line N: KR_classFactoryCreateObj()\nNot a public class GUID: "
                      "<no-such-class>",
              capture.located());
    capture.clear();
    EXPECT_EQ(nullptr, KR_classFactoryCreateObj(nullptr));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_classFactoryObjExecute(nullptr));
    const std::string arg = statusReport(kUnit, "Error on function input arguments");
    EXPECT_EQ(arg + arg, capture.located());
    capture.clear();
    EXPECT_KR_STATUS(KR_RET_FALSE, KR_classFactoryDelObj(nullptr));
    EXPECT_EQ("", capture.located());

    // A class that is not registered, and a module that refuses.
    Plain plain;
    EXPECT_KR_STATUS(KR_RET_ERR_CALL, KR_classFactoryObjExecute(&plain));
    EXPECT_KR_STATUS(KR_RET_ERR_CALL, KR_classFactoryDelObj(&plain));
    KR_Var other(kOtherGuid);
    ASSERT_KR_OK(KR_classFactoryRegister(other, (void*)&refusingInterface));
    EXPECT_EQ(nullptr, KR_classFactoryCreateObj(kOtherGuid));
    EXPECT_KR_STATUS(KR_RET_ERR_GEN, KR_classFactoryDelObj(&plain));

    // No registry: reported, and nothing is registered.
    KR_classFactoryClose();
    capture.clear();
    EXPECT_EQ(nullptr, KR_classFactoryCreateObj(kCounterGuid));
    EXPECT_KR_STATUS(KR_RET_ERR_CALL, KR_classFactoryDelObj(&plain));
    const std::string pobj = statusReport(kUnit, "Korvane object not initialized");
    EXPECT_EQ(pobj + pobj + statusReport(kUnit, "Bad usage"), capture.located());
}

TEST_F(Factory, ClassCheckAndInterfaces) {
    Counter a(1), b(2);
    Plain plain;
    krtest::ReportCapture capture;
    EXPECT_TRUE(a.sameClassGUID(b));
    EXPECT_FALSE(a.sameClassGUID(plain));
    EXPECT_KR_STATUS(KR_RET_TRUE, a.copyObj(&b));  // the base checks the class, copies nothing
    EXPECT_EQ(1, a.n);
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, a.copyObj(&plain));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, a.copyObj(nullptr));
    EXPECT_FALSE(a.compObj(&plain));
    EXPECT_TRUE(a.compObj(&b));
    const std::string arg = statusReport(kUnit, "Error on function input arguments");
    EXPECT_EQ(arg + arg + arg, capture.located());
    EXPECT_KR_STATUS(KR_RET_FALSE, a.copyData(&b));
    KR_PublicObjMesg mesg("refresh"), copy(mesg);
    EXPECT_KR_STATUS(KR_RET_FALSE, a.publicMesg(mesg));
    EXPECT_TRUE(copy == mesg);
    mesg.inVals.appendElem(KR_Var(7));
    EXPECT_FALSE(copy == mesg);

    void* out = &a;
    char lower[] = "af4a6a55-80f5-43b8-9734-09a552a23498";
    char other[] = "AF4A6A55-80F5-43b8-9734-09A552A23499";
    EXPECT_KR_STATUS(KR_RET_TRUE, a.getCompInterface(lower, &out));
    EXPECT_EQ(static_cast<KR_PublicClass*>(&a), out);
    EXPECT_KR_STATUS(KR_RET_FALSE, plain.getCompInterface(other, &out));
    EXPECT_EQ(nullptr, out);
    out = &a;
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, a.getCompInterface(nullptr, &out));
    EXPECT_EQ(nullptr, out);
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, plain.getCompInterface(lower, nullptr));
}

TEST_F(Factory, AllocationFailures) {
    KR_REQUIRE_FAULT_INJECTION();
    KR_classFactoryClose();
    krtest::forEachAllocationFailure(
            [&] { return KR_classFactoryRegister(guid, (void*)&counterInterface); },
            [&](KR_RET_STATUS status, unsigned long) {
                EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                KR_classFactoryClose();
            });
    ASSERT_KR_OK(KR_classFactoryRegister(guid, (void*)&counterInterface));
}

// The sample module, as a host uses it: registered, described, run, unregistered, unloaded.
TEST_F(Factory, SampleModule) {
    const char* path = KR_TEST_SAMPLE_MODULE;
    ASSERT_KR_STATUS(KR_RET_TRUE, KR_dllLoad(path));
    FARPROC reg = nullptr, unreg = nullptr, accepts = nullptr;
    ASSERT_KR_OK(KR_dllGetProcAddress(path, KRSAMPLE_REGISTER, &reg));
    ASSERT_KR_OK(KR_dllGetProcAddress(path, KRSAMPLE_UNREGISTER, &unreg));
    ASSERT_KR_OK(KR_dllGetProcAddress(path, KRSAMPLE_ACCEPTS_LIBRARY, &accepts));
    auto acceptsLibrary = krsampleEntry<KRSAMPLE_ACCEPTS_LIBRARY_FUNC>(accepts);
    EXPECT_TRUE(acceptsLibrary("1.9.3"));
    EXPECT_FALSE(acceptsLibrary("2.0.0"));
    KR_PubServGrpList* services = nullptr;
    ASSERT_KR_STATUS(KR_RET_TRUE, krsampleEntry<KRSAMPLE_REGISTER_FUNC>(reg)(&services));
    ASSERT_NE(nullptr, services);

    KR_PubService* scale = KR_findPublicService(services->services, L"Scale");
    ASSERT_NE(nullptr, scale);
    KR_Array<KR_PubArg> inputs, outputs;
    ASSERT_KR_OK(KR_constructInArgsFromPubService(scale, "1.0.0", 1, inputs));
    ASSERT_KR_OK(KR_constructOutArgsFromPubService(scale, "1.0.0", 1, outputs));
    KR_PubArg typed;
    typed[0] = L"7";
    inputs[0] = typed;  // cast to the argument's double
    typed[0] = L"nearest";
    inputs[2] = typed;
    KR_PublicClass* scaler = KR_classFactoryCreateObj(KRSAMPLE_SCALER_GUID, inputs);
    ASSERT_NE(nullptr, scaler);
    EXPECT_STREQ("Scaler", scaler->className());
    EXPECT_KR_STATUS(KR_RET_TRUE,
                     KR_classFactoryObjExecute(scaler, reinterpret_cast<uintptr_t>(&outputs)));
    EXPECT_EQ(14.0, outputs[0][0].d());
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, KR_classFactoryObjExecute(scaler));
    {
        // In a variant, which owns it: copied through the factory, compared through compObj, and
        // written as text with its class GUID, by which the reader makes it again.
        KR_Var held(static_cast<KR_PubObjVar*>(scaler)), none(static_cast<KR_PubObjVar*>(nullptr));
        KR_Var copy(held),
                other(static_cast<KR_PubObjVar*>(KR_classFactoryCreateObj(KRSAMPLE_SCALER_GUID)));
        EXPECT_NE(held.objptr(), copy.objptr());
        EXPECT_TRUE(copy == held);
        EXPECT_FALSE(other == held);
        EXPECT_TRUE(none < held);
        KR_Version version;
        KR_String textPath;
        ASSERT_KR_OK(KR_fileGetTempName(textPath, nullptr, "krpub"));
        {
            KR_FileAscii file(static_cast<const char*>(textPath), KR_FILE_MODE_WRITE);
            ASSERT_KR_OK(held.persist(version, file));
            ASSERT_KR_OK(none.persist(version, file));
        }
        std::string text;
        FILE* raw = fopen(static_cast<const char*>(textPath), "rb");
        for (int c; raw != nullptr && (c = fgetc(raw)) != EOF;)
            text += static_cast<char>(c);
        if (raw != nullptr) fclose(raw);
        EXPECT_EQ(0u, text.find("<var>\n<type>PUBOBJ</type>\n<value>\n<null>FALSE</"
                                "null>\n<guid>" KRSAMPLE_SCALER_GUID "</guid>\n<vararr>\n"));
        EXPECT_NE(std::string::npos,
                  text.find("</vararr>\n</value>\n</var>\n<var>\n<type>PUBOBJ</type>\n<value>\n"
                            "<null>TRUE</null>\n</value>\n</var>\n"));
        {
            KR_FileAscii file(static_cast<const char*>(textPath), KR_FILE_MODE_READ);
            KR_Var back, backNone(7);
            ASSERT_KR_OK(back.restore(version, file));
            ASSERT_KR_OK(backNone.restore(version, file));
            EXPECT_TRUE(back == held);
            EXPECT_EQ(nullptr, backNone.objptr());
        }
        KR_Array<KR_StringW> stats;
        EXPECT_KR_STATUS(KR_RET_TRUE,
                         KR_pipeGetData(const_cast<wchar_t*>(KRSAMPLE_STATS_PIPE), stats));
        ASSERT_EQ(2u, stats.numElems());
        EXPECT_STREQ(L"Scaler objects alive: 3", static_cast<const wchar_t*>(stats[0]));

        // A failed copy keeps the target as it was.
        if (krTesting::faultInjectionAvailable()) {
            krtest::forEachAllocationFailure(
                    [&] {
                        KR_Var target(1);
                        target = held;
                        return target.varType() == KR_VAR_PUBOBJ ? KR_RET_TRUE : KR_RET_ERR_MEM;
                    },
                    [&](KR_RET_STATUS status, unsigned long) {
                        EXPECT_KR_STATUS(KR_RET_ERR_MEM, status);
                    });
        }

        // Once the class is gone, neither a copy nor a read can make its objects.
        EXPECT_KR_STATUS(KR_RET_TRUE, krsampleEntry<KRSAMPLE_UNREGISTER_FUNC>(unreg)());
        {
            krtest::ReportCapture capture;
            KR_Var target(7);
            target = held;
            EXPECT_EQ(KR_VAR_INT, target.varType());
            KR_FileAscii file(static_cast<const char*>(textPath), KR_FILE_MODE_READ);
            KR_Var back;
            EXPECT_TRUE(krtest::failed(back.restore(version, file)));
            EXPECT_NE(std::string::npos, capture.located().find("Not a public class GUID"));
        }
        KR_fileRemove(textPath);
    }  // the variants delete their objects while the module is still loaded
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_dllUnload(path));
}

}  // namespace
