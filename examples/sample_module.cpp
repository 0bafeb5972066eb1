// sample_module.cpp — a plug-in module written as the framework's modules are: it publishes one
// class, the Scaler, with a service table that describes its arguments and ports, registers the
// class with the class factory when the host asks it to, and feeds a pipe that the host reads.
// Hosts load it by its path (KR_dllLoad) and resolve its entry functions by name
// (KR_dllGetProcAddress); the entry functions are plain C names, exported from the module.
#include "sample_module.h"

#include <wchar.h>

namespace {

// The description tables: static data of the module, handed to hosts by krsample_register.
#define KRSAMPLE_NO_BROWSER KR_PUBARG_BROWSER_NONE

const wchar_t* const roundingChoices[] = {L"none", L"nearest", nullptr};

KR_PubArgMap scaleInputs[] = {
        {KR_VAR_ID_DOUBLE, L"Value", L"The number to scale", 1, nullptr, 0, KRSAMPLE_NO_BROWSER,
         nullptr, 1, 0, L"0", 0, 0},
        {KR_VAR_ID_DOUBLE, L"Factor", L"What the value is multiplied by", 1, nullptr, 0,
         KRSAMPLE_NO_BROWSER, nullptr, 1, 0, L"2", 0, 0},
        {KR_VAR_ID_CHOICE, L"Rounding", L"Round the result to a whole number", 0, roundingChoices,
         1, KRSAMPLE_NO_BROWSER, nullptr, 0, 0, L"none", 0, 0},
        {KR_VAR_ID_NONE, nullptr, nullptr, 0, nullptr, 0, KRSAMPLE_NO_BROWSER, nullptr, 0, 0,
         nullptr, 0, 0}};

KR_PubArgMap scaleOutputs[] = {{KR_VAR_ID_DOUBLE, L"Result", L"The scaled value", 0, nullptr, 0,
                                KRSAMPLE_NO_BROWSER, nullptr, 1, 1, nullptr, 0, 0},
                               {KR_VAR_ID_NONE, nullptr, nullptr, 0, nullptr, 0,
                                KRSAMPLE_NO_BROWSER, nullptr, 0, 0, nullptr, 0, 0}};

KR_PubProcPortMap scaleInPorts[] = {{L"samples", L"Values to scale, one per run"},
                                    {nullptr, nullptr}};
KR_PubProcPortMap scaleOutPorts[] = {{L"scaled", L"The results"}, {nullptr, nullptr}};

KR_PubService services[] = {{"1.0.0", 1, L"Scale", L"Multiplies a value by a factor", scaleInputs,
                             scaleOutputs, scaleInPorts, scaleOutPorts},
                            {nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr}};
KR_PubService* group[] = {&services[0], &services[1]};
KR_PubServGrpList serviceTable[] = {{"1.0.0", group}, {nullptr, nullptr}};

int liveObjects = 0;
int runs = 0;

// The Scaler keeps its input arguments' values; a run writes value * factor to its output.
class Scaler : public KR_PubObjVar {
public:
    Scaler(double value, double factor, bool round)
        : value_(value), factor_(factor), round_(round) {
        ++liveObjects;
    }

    ~Scaler() override { --liveObjects; }

    char* classGUID() override { return const_cast<char*>(KRSAMPLE_SCALER_GUID); }

    char* className() override { return const_cast<char*>("Scaler"); }

    KR_RET_STATUS copyObj(KR_PublicClass* src) override {
        KR_RET_STATUS status = KR_PubObjVar::copyObj(src);
        if (status != KR_RET_TRUE) return status;
        Scaler* from = static_cast<Scaler*>(src);
        value_ = from->value_;
        factor_ = from->factor_;
        round_ = from->round_;
        return KR_RET_TRUE;
    }

    unsigned char compObj(KR_PublicClass* other) override {
        if (!KR_PubObjVar::compObj(other)) return 0;
        Scaler* that = static_cast<Scaler*>(other);
        return value_ == that->value_ && factor_ == that->factor_ && round_ == that->round_;
    }

    KR_RET_STATUS run(KR_Array<KR_PubArg>* outputs) {
        if (outputs == nullptr || outputs->numElems() < 1) return KR_RET_ERR_ARG;
        double result = value_ * factor_;
        if (round_)
            result = result < 0 ? -static_cast<double>(static_cast<long long>(0.5 - result))
                                : static_cast<double>(static_cast<long long>(result + 0.5));
        ++runs;
        (*outputs)[0][0] = result;
        return KR_RET_TRUE;
    }

    // Persisted as its three values; only text files are supported.
    KR_RET_STATUS pack(KR_Version&, char*, unsigned int& used, KR_STORAGE_TYPE) override {
        used = 0;
        return KR_RET_ERR_NSUP;
    }

    unsigned int getPackedSize(KR_Version&, KR_STORAGE_TYPE) override { return 0; }

    KR_RET_STATUS unpack(KR_Version&, char*, unsigned int& used, KR_STORAGE_TYPE) override {
        used = 0;
        return KR_RET_ERR_NSUP;
    }

    KR_RET_STATUS persist(KR_Version& version, KR_FileAscii& file) override {
        KR_VarArr values(3, KR_VAR_DOUBLE, value_, factor_, round_ ? 1.0 : 0.0);
        return values.persist(version, file);
    }

    KR_RET_STATUS persist(KR_Version&, KR_FileBinary&, unsigned int&) override {
        return KR_RET_ERR_NSUP;
    }

    KR_RET_STATUS restore(KR_Version& version, KR_FileAscii& file) override {
        KR_VarArr values;
        KR_RET_STATUS status = values.restore(version, file);
        if (status != KR_RET_TRUE) return status > 2 ? status : KR_RET_ERR_FILE;
        if (values.numElems() != 3) return KR_RET_ERR_FILE;
        value_ = values[0].d();
        factor_ = values[1].d();
        round_ = values[2].d() != 0.0;
        return KR_RET_TRUE;
    }

    KR_RET_STATUS restore(KR_Version&, KR_FileBinary&, unsigned int&) override {
        return KR_RET_ERR_NSUP;
    }

private:
    double value_;
    double factor_;
    bool round_;
};

// The class's three functions, handed to the factory by scalerInterface. A Scaler is made from
// the arguments of the "Scale" input map, in its order; anything else is refused.
KR_PublicClass* createScaler(KR_Array<KR_PubArg>& args) {
    if (args.numElems() == 0) return new Scaler(0.0, 2.0, false);  // as the defaults say
    if (args.numElems() != 3 || args[0].varType() != KR_VAR_DOUBLE ||
        args[1].varType() != KR_VAR_DOUBLE || args[2].varType() != KR_VAR_STRINGW) {
        return nullptr;
    }
    const wchar_t* rounding = args[2][0].wstr();
    return new Scaler(args[0][0].d(), args[1][0].d(),
                      rounding != nullptr && wcscmp(rounding, L"nearest") == 0);
}

KR_RET_STATUS deleteScaler(KR_PublicClass* obj) {
    delete obj;
    return KR_RET_TRUE;
}

KR_RET_STATUS executeScaler(KR_PublicClass* obj,
                            uintptr_t outputs,
                            uintptr_t,
                            uintptr_t,
                            uintptr_t,
                            uintptr_t,
                            uintptr_t,
                            uintptr_t) {
    return static_cast<Scaler*>(obj)->run(reinterpret_cast<KR_Array<KR_PubArg>*>(outputs));
}

KR_RET_STATUS scalerInterface(KR_PubInterface* out) {
    out->createObj = createScaler;
    out->deleteObj = deleteScaler;
    out->objExecute = executeScaler;
    return KR_RET_TRUE;
}

// Refreshes the statistics pipe just before a reader copies it out.
KR_RET_STATUS refreshStats(wchar_t* name, KR_Array<KR_StringW>&) {
    wchar_t line[64];
    KR_Array<KR_StringW> stats;
    swprintf(line, 64, L"Scaler objects alive: %d", liveObjects);
    stats.appendElem(KR_StringW(line));
    swprintf(line, 64, L"runs so far: %d", runs);
    stats.appendElem(KR_StringW(line));
    return KR_pipeAddData(name, stats);
}

}  // namespace

extern "C" KR_MODULE_EXPORT unsigned char krsample_acceptsLibrary(const char* version) {
    KR_Version running(version);
    return running.getMajor() == KR_KORVANE_VERSION_MAJOR;
}

extern "C" KR_MODULE_EXPORT KR_RET_STATUS krsample_register(KR_PubServGrpList** table) {
    if (!krsample_acceptsLibrary(KR_getKorvaneVersion())) {
        KR_reportErrorMsg("krsample", __LINE__, "krsample_register()",
                          "built for krcore %d.x, refusing krcore %s\n", KR_KORVANE_VERSION_MAJOR,
                          KR_getKorvaneVersion());
        return KR_RET_ERR_NSUP;
    }
    KR_Var guid(KRSAMPLE_SCALER_GUID);
    KR_RET_STATUS status = KR_classFactoryRegister(guid, reinterpret_cast<void*>(&scalerInterface));
    if (status > 2) return status;
    status = KR_pipeAddCallback(const_cast<wchar_t*>(KRSAMPLE_STATS_PIPE), refreshStats);
    if (status > 2) return status;
    if (table != nullptr) *table = serviceTable;
    return KR_RET_TRUE;
}

extern "C" KR_MODULE_EXPORT KR_RET_STATUS krsample_unregister() {
    KR_Var guid(KRSAMPLE_SCALER_GUID);
    KR_classFactoryUnregister(guid);
    KR_pipeAddCallback(const_cast<wchar_t*>(KRSAMPLE_STATS_PIPE), nullptr);
    return KR_RET_TRUE;
}

// The module's name, for hosts that list what they loaded.
extern "C" KR_MODULE_EXPORT const char* krsample_moduleName() {
    return "krsample";
}

// How often this function was called since the module was loaded: a module that was really
// released and loaded again starts at 1 again.
extern "C" KR_MODULE_EXPORT unsigned int krsample_callCount() {
    static unsigned int calls = 0;
    return ++calls;
}
