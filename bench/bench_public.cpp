// bench_public.cpp — one object's life through the class factory with 1,000 registered classes:
// KR_classFactoryCreateObj + KR_classFactoryObjExecute + KR_classFactoryDelObj, against the same
// three steps done directly: a std::unordered_map<std::string, interface function> lookup by the
// class GUID text for each, then the call through the function pointer it gives.
#include <stdint.h>
#include <stdio.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "benchmark/benchmark.h"

#include "krcore.h"

namespace {

constexpr unsigned int kClasses = 1000;

// "8-4-4-4-12" upper-case hexadecimal digits, as class GUID texts are written; fixed.
const std::vector<std::string>& guidTexts() {
    static const std::vector<std::string> texts = [] {
        std::vector<std::string> result;
        char text[40];
        for (unsigned int i = 0; i < kClasses; ++i) {
            snprintf(text, sizeof text, "%08X-4B1D-4C2E-9F30-%012X", 0x5A17C0DEu + i * 7919u,
                     i * 104729u);
            result.push_back(text);
        }
        return result;
    }();
    return texts;
}

// One class per GUID text: the object keeps the text of its class.
class Probe : public KR_PublicClass {
public:
    explicit Probe(const char* guid) : guid_(guid) {}

    char* classGUID() override { return const_cast<char*>(guid_); }

    char* className() override { return const_cast<char*>("Probe"); }

    uintptr_t runs = 0;

private:
    const char* guid_;
};

const char* pendingGuid = nullptr;  // the class the next create makes

KR_PublicClass* createProbe(KR_Array<KR_PubArg>&) {
    return new Probe(pendingGuid);
}

KR_RET_STATUS deleteProbe(KR_PublicClass* obj) {
    delete obj;
    return KR_RET_TRUE;
}

KR_RET_STATUS runProbe(KR_PublicClass* obj,
                       uintptr_t a1,
                       uintptr_t,
                       uintptr_t,
                       uintptr_t,
                       uintptr_t,
                       uintptr_t,
                       uintptr_t) {
    static_cast<Probe*>(obj)->runs += a1;
    return KR_RET_TRUE;
}

KR_RET_STATUS probeInterface(KR_PubInterface* out) {
    out->createObj = createProbe;
    out->deleteObj = deleteProbe;
    out->objExecute = runProbe;
    return KR_RET_TRUE;
}

void BM_Factory_krcore(benchmark::State& state) {
    KR_classFactoryClose();
    for (const std::string& guid : guidTexts()) {
        KR_Var key(guid.c_str());
        KR_classFactoryRegister(key, reinterpret_cast<void*>(&probeInterface));
    }
    size_t next = 0;
    for (auto _ : state) {
        pendingGuid = guidTexts()[next].c_str();
        next = (next + 1) % kClasses;
        KR_PublicClass* obj = KR_classFactoryCreateObj(pendingGuid);
        KR_classFactoryObjExecute(obj, 1);
        benchmark::DoNotOptimize(KR_classFactoryDelObj(obj));
    }
    KR_classFactoryClose();
    KR_classFactoryInit();
}

BENCHMARK(BM_Factory_krcore);

void BM_Factory_unordered_map(benchmark::State& state) {
    std::unordered_map<std::string, KR_PubInterfaceFunc> classes;
    for (const std::string& guid : guidTexts())
        classes.emplace(guid, &probeInterface);
    KR_Array<KR_PubArg> args;
    size_t next = 0;
    for (auto _ : state) {
        pendingGuid = guidTexts()[next].c_str();
        next = (next + 1) % kClasses;
        KR_PubInterface iface;
        classes.find(pendingGuid)->second(&iface);
        KR_PublicClass* obj = iface.createObj(args);
        classes.find(obj->classGUID())->second(&iface);
        iface.objExecute(obj, 1, 0, 0, 0, 0, 0, 0);
        classes.find(obj->classGUID())->second(&iface);
        benchmark::DoNotOptimize(iface.deleteObj(obj));
    }
}

BENCHMARK(BM_Factory_unordered_map);

}  // namespace

int main(int argc, char** argv) {
    KR_init();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    KR_close();
    return 0;
}
