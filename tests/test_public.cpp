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

// A public object with one number: copied, compared and persisted through it.
class Counter : public KR_PubObjVar {
public:
    explicit Counter(int n = 0) : n(n) { ++live; }

    ~Counter() override { --live; }

    char* classGUID() override { return const_cast<char*>(kCounterGuid); }

    char* className() override { return const_cast<char*>("Counter"); }

    KR_RET_STATUS copyObj(KR_PublicClass* src) override {
        KR_RET_STATUS status = KR_PubObjVar::copyObj(src);
        Counter* from = dynamic_cast<Counter*>(src);
        if (status == KR_RET_TRUE && from != nullptr) n = from->n;
        return status;
    }

    unsigned char compObj(KR_PublicClass* other) override {
        Counter* that = dynamic_cast<Counter*>(other);
        return KR_PubObjVar::compObj(other) && that != nullptr && that->n == n;
    }

    KR_RET_STATUS pack(KR_Version&, char*, unsigned int&, KR_STORAGE_TYPE) override {
        return KR_RET_ERR_NSUP;
    }

    unsigned int getPackedSize(KR_Version&, KR_STORAGE_TYPE) override { return 0; }

    KR_RET_STATUS unpack(KR_Version&, char*, unsigned int&, KR_STORAGE_TYPE) override {
        return KR_RET_ERR_NSUP;
    }

    KR_RET_STATUS persist(KR_Version&, KR_FileAscii& file) override {
        return file.print("<n>%d</n>\n", n);
    }

    KR_RET_STATUS persist(KR_Version&, KR_FileBinary&, unsigned int&) override {
        return KR_RET_ERR_NSUP;
    }

    KR_RET_STATUS restore(KR_Version&, KR_FileAscii& file) override {
        KR_String text;
        KR_RET_STATUS status = KR_xmlReadTagEntry(text, file, "<n>", "</n>");
        if (status != KR_RET_TRUE) return KR_RET_ERR_FILE;
        n = atoi(text);
        return KR_RET_TRUE;
    }

    KR_RET_STATUS restore(KR_Version&, KR_FileBinary&, unsigned int&) override {
        return KR_RET_ERR_NSUP;
    }

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
                             uintptr_t a2,
                             uintptr_t a3,
                             uintptr_t a4,
                             uintptr_t a5,
                             uintptr_t a6,
                             uintptr_t a7) {
    uintptr_t words[7] = {a1, a2, a3, a4, a5, a6, a7};
    for (int i = 0; i < 7; ++i)
        executed[i] = words[i];
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
    KR_PublicClass& base = a;
    krtest::ReportCapture capture;
    EXPECT_TRUE(a.sameClassGUID(b));
    EXPECT_FALSE(a.sameClassGUID(plain));
    EXPECT_KR_STATUS(KR_RET_TRUE, a.copyObj(&b));
    EXPECT_EQ(2, a.n);
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, a.copyObj(&plain));
    EXPECT_KR_STATUS(KR_RET_ERR_ARG, base.KR_PublicClass::copyObj(nullptr));
    EXPECT_FALSE(base.KR_PublicClass::compObj(&plain));
    EXPECT_TRUE(base.KR_PublicClass::compObj(&b));  // the base compares the class only
    const std::string arg = statusReport(kUnit, "Error on function input arguments");
    EXPECT_EQ(arg + arg + arg, capture.located());
    EXPECT_KR_STATUS(KR_RET_FALSE, base.copyData(&b));
    KR_PublicObjMesg mesg("refresh");
    EXPECT_KR_STATUS(KR_RET_FALSE, base.publicMesg(mesg));

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

TEST_F(Factory, Messages) {
    KR_PublicObjMesg empty, named("open");
    EXPECT_EQ(0u, empty.inVals.numElems());
    EXPECT_TRUE(empty.inVals.numElems() == 0 && empty.outVals.numElems() == 0);
    named.inVals.appendElem(KR_Var(7));
    KR_PublicObjMesg copy(named), assigned;
    assigned = named;
    EXPECT_TRUE(copy == named);
    EXPECT_TRUE(assigned == named);
    EXPECT_STREQ("open", static_cast<const char*>(assigned.name));
    assigned.outVals.appendElem(KR_Var(1));
    EXPECT_FALSE(assigned == named);
    EXPECT_FALSE(empty == named);
}

// A variant owns its object: copies are new objects of the class, made by the factory.
TEST_F(Factory, ObjectsInVariants) {
    {
        KR_Var a(static_cast<KR_PubObjVar*>(new Counter(5)));
        KR_Var b(a), c(static_cast<KR_PubObjVar*>(new Counter(6))),
                none(static_cast<KR_PubObjVar*>(nullptr));
        EXPECT_EQ(3, live);
        EXPECT_NE(a.objptr(), b.objptr());
        EXPECT_TRUE(a == b);
        EXPECT_FALSE(a == c);
        EXPECT_TRUE(none < a);
        c = a;  // releases the 6
        EXPECT_EQ(3, live);
        EXPECT_EQ(5, static_cast<Counter*>(c.objptr())->n);

        KR_Version version;
        KR_String path;
        ASSERT_KR_OK(KR_fileGetTempName(path, nullptr, "krpub"));
        {
            KR_FileAscii file(static_cast<const char*>(path), KR_FILE_MODE_WRITE);
            ASSERT_KR_OK(a.persist(version, file));
            ASSERT_KR_OK(none.persist(version, file));
        }
        std::string text;
        FILE* raw = fopen(static_cast<const char*>(path), "rb");
        ASSERT_NE(nullptr, raw);
        for (int c; (c = fgetc(raw)) != EOF;)
            text += static_cast<char>(c);
        fclose(raw);
        EXPECT_EQ("<var>\n<type>PUBOBJ</type>\n<value>\n<null>FALSE</null>\n<guid>" +
                          std::string(kCounterGuid) +
                          "</guid>\n<n>5</n>\n</value>\n</var>\n<var>\n<type>PUBOBJ</type>\n"
                          "<value>\n<null>TRUE</null>\n</value>\n</var>\n",
                  text);
        {
            KR_FileAscii file(static_cast<const char*>(path), KR_FILE_MODE_READ);
            KR_Var back, backNone(7);
            ASSERT_KR_OK(back.restore(version, file));
            ASSERT_KR_OK(backNone.restore(version, file));
            EXPECT_TRUE(back == a);
            EXPECT_EQ(nullptr, backNone.objptr());
        }
        // A class that is no longer registered cannot be made again.
        KR_classFactoryUnregister(guid);
        {
            krtest::ReportCapture capture;
            KR_FileAscii file(static_cast<const char*>(path), KR_FILE_MODE_READ);
            KR_Var back;
            EXPECT_TRUE(krtest::failed(back.restore(version, file)));
            KR_Var copy(7);
            copy = a;
            EXPECT_EQ(KR_VAR_INT, copy.varType());
            EXPECT_EQ(3, live);
        }
        KR_fileRemove(path);
    }
    EXPECT_EQ(0, live);
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
    KR_Var a(static_cast<KR_PubObjVar*>(new Counter(5)));
    krtest::forEachAllocationFailure(
            [&] {
                KR_Var copy(1);
                copy = a;
                return copy.varType() == KR_VAR_PUBOBJ ? KR_RET_TRUE : KR_getStatusCode();
            },
            [&](KR_RET_STATUS status, unsigned long) {
                EXPECT_TRUE(krtest::failed(status));
                EXPECT_EQ(1, live);
            });
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
    EXPECT_FALSE(acceptsLibrary("0.9"));
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
        // In a variant: copied through the factory and compared through the object.
        KR_Var held(static_cast<KR_PubObjVar*>(KR_classFactoryCreateObj(KRSAMPLE_SCALER_GUID)));
        KR_Var copy(held);
        ASSERT_NE(nullptr, copy.objptr());
        EXPECT_TRUE(copy == held);
    }
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_classFactoryDelObj(scaler));
    KR_Array<KR_StringW> stats;
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_pipeGetData(const_cast<wchar_t*>(KRSAMPLE_STATS_PIPE), stats));
    ASSERT_EQ(2u, stats.numElems());
    EXPECT_STREQ(L"Scaler objects alive: 0", static_cast<const wchar_t*>(stats[0]));

    EXPECT_KR_STATUS(KR_RET_TRUE, krsampleEntry<KRSAMPLE_UNREGISTER_FUNC>(unreg)());
    krtest::ReportCapture capture;
    EXPECT_EQ(nullptr, KR_classFactoryCreateObj(KRSAMPLE_SCALER_GUID));
    EXPECT_NE(std::string::npos, capture.located().find("Not a public class GUID"));
    EXPECT_KR_STATUS(KR_RET_TRUE, KR_dllUnload(path));
}

}  // namespace
