// demo_plugin.cpp — the demonstration host's tour of the public object model: a plug-in module
// loaded by path, its classes registered and its services described, an object created from the
// arguments of a service, run and deleted through the class factory, a pipe between module and
// host, settings saved and read back, and commands undone and redone.
#include <stdio.h>
#include <stdlib.h>
#include <wchar.h>

#include <string>

#include "krcore.h"

#include "demo.h"
#include "sample_module.h"

namespace {

const char* answer(KR_RET_STATUS status) {
    switch (status) {
        case KR_RET_FALSE:
            return "KR_RET_FALSE";
        case KR_RET_TRUE:
            return "KR_RET_TRUE";
        default:
            return "a failure";
    }
}

// One argument as a line: its name, its type and its value.
void printArgs(const char* title, KR_Array<KR_PubArg>& args) {
    printf("%s:\n", title);
    for (unsigned int i = 0; i < args.numElems(); ++i) {
        KR_PubArg& arg = args[i];
        KR_StringW text;
        KR_val2StrW(text, arg[0]);
        char* type = nullptr;
        KR_type2Str(&type, arg[0]);
        printf("  %ls (%s) = %ls\n", arg.getName(), type, static_cast<const wchar_t*>(text));
        free(type);
    }
}

// The host's document: a line of words. Each command appends one word and takes it away again.
std::string document;

class AppendWord : public KR_Command {
public:
    explicit AppendWord(const char* word) : word_(word) {}

    KR_RET_STATUS execute(unsigned char) override {
        document += (document.empty() ? "" : " ") + word_;
        return KR_RET_TRUE;
    }

    KR_RET_STATUS undo() override {
        size_t cut = document.size() - word_.size();
        document.erase(cut > 0 ? cut - 1 : 0);
        return KR_RET_TRUE;
    }

private:
    std::string word_;
};

void showDocument(KR_CmdStack& stack, const char* step) {
    printf("%-24s \"%s\"  (%u commands, %d to undo, %s)\n", step, document.c_str(),
           stack.getNumCmds(), stack.nextUndoCmdIndex() + 1,
           stack.isClean() ? "saved" : "modified");
}

void onCleanChanged(unsigned char clean, void*) {
    printf("  [the document is now %s]\n", clean ? "saved" : "modified");
}

}  // namespace

int pluginTour(const char* modulePath) {
    KR_OStream& out = *KR_coutPtr;
    const char* path = modulePath;

    heading("a plug-in module");
    printf("module file: %s\n", modulePath);
    KR_RET_STATUS status = KR_dllLoad(path);
    printf("KR_dllLoad answered %s\n", answer(status));
    if (status != KR_RET_TRUE) return 1;
    status = KR_dllLoad(path);
    printf("a second KR_dllLoad answered %s: the module is loaded once and counted twice\n",
           answer(status));
    FARPROC proc = nullptr;
    status = KR_dllGetProcAddress(path, KRSAMPLE_REGISTER, &proc);
    printf("KR_dllGetProcAddress(\"%s\") answered %s\n", KRSAMPLE_REGISTER, answer(status));
    if (proc == nullptr) return 1;
    KR_PubServGrpList* services = nullptr;
    status = krsampleEntry<KRSAMPLE_REGISTER_FUNC>(proc)(&services);
    printf("the module registered its classes: %s\n", answer(status));

    heading("the module's service table");
    out << services;
    std::cout.flush();

    heading("building the arguments of a service");
    KR_PubServGrpList* newest = KR_mostRecentVersionPubServGrpList(services);
    KR_PubService* scale = KR_findPublicService(newest->services, const_cast<wchar_t*>(L"Scale"));
    printf("newest version %s, service \"%ls\", function %d\n", newest->version,
           scale->functionName, scale->function);
    KR_Array<KR_PubArg> inputs, outputs;
    KR_constructInArgsFromPubService(scale, newest->version, scale->function, inputs);
    KR_constructOutArgsFromPubService(scale, newest->version, scale->function, outputs);
    printArgs("input arguments, as the map's defaults give them", inputs);
    // A user types "21" and picks "nearest": texts, which the arguments cast to their own types.
    KR_PubArg typed;
    typed[0] = L"21";
    inputs[0] = typed;
    typed[0] = L"1.25";
    inputs[1] = typed;
    typed[0] = L"nearest";
    inputs[2] = typed;
    printArgs("after the user's entries", inputs);

    heading("an object through the class factory");
    KR_PublicClass* scaler = KR_classFactoryCreateObj(KRSAMPLE_SCALER_GUID, inputs);
    if (scaler == nullptr) return 1;
    printf("KR_classFactoryCreateObj made a \"%s\" (class %s)\n", scaler->className(),
           scaler->classGUID());
    status = KR_classFactoryObjExecute(scaler, reinterpret_cast<uintptr_t>(&outputs));
    printf("KR_classFactoryObjExecute answered %s\n", answer(status));
    printArgs("output arguments", outputs);
    status = KR_classFactoryDelObj(scaler);
    printf("KR_classFactoryDelObj answered %s\n", answer(status));
    KR_PublicClass* unknown = KR_classFactoryCreateObj("00000000-0000-0000-0000-000000000000");
    fflush(stderr);
    printf("\nan unknown class GUID gives %s, reported as above\n",
           unknown == nullptr ? "no object" : "an object");

    heading("a pipe from the module to the host");
    KR_Array<KR_StringW> lines;
    status = KR_pipeGetData(const_cast<wchar_t*>(KRSAMPLE_STATS_PIPE), lines);
    printf("KR_pipeGetData(\"%ls\") answered %s; the module refreshed it first:\n",
           KRSAMPLE_STATS_PIPE, answer(status));
    for (unsigned int i = 0; i < lines.numElems(); ++i)
        printf("  %ls\n", static_cast<const wchar_t*>(lines[i]));

    heading("settings saved and read back");
    KR_StringW settingsPath;
    KR_fileGetTempNameW(settingsPath, nullptr, L"krdemo");
    KR_Array<KR_XmlSetting> settings, back;
    KR_xmlSetSettingInList("<module>", settings, L"krsample");
    KR_xmlSetSettingInList("<factor>", settings, L"1.25");
    status = KR_xmlSaveSettingsFile(settingsPath, "<settings>", "</settings>", settings);
    printf("saved 2 settings: %s\n", answer(status));
    status = KR_xmlReadSettingsFile(settingsPath, "<settings>", "</settings>", back);
    printf("read back: %s\n", answer(status));
    for (unsigned int i = 0; i < back.numElems(); ++i)
        printf("  %s = %ls\n", static_cast<const char*>(back[i].tag),
               static_cast<const wchar_t*>(back[i].value));
    KR_fileRemoveW(settingsPath);

    heading("commands with undo and redo");
    {
        KR_CmdStack stack;
        stack.setCleanChangedCallback(onCleanChanged, nullptr);
        const char* words[] = {"undo", "keeps", "history"};
        for (const char* word : words) {
            AppendWord* command = new AppendWord(word);
            command->execute(0);
            stack.addCmd(command);
            if (word == words[0]) {
                stack.setClean();
                showDocument(stack, "added, then saved:");
            } else {
                showDocument(stack, "added:");
            }
        }
        stack.undo();
        showDocument(stack, "undo:");
        stack.undo();
        showDocument(stack, "undo:");
        stack.redo();
        showDocument(stack, "redo:");
        AppendWord* command = new AppendWord("everything");
        command->execute(0);
        stack.addCmd(command);
        showDocument(stack, "added (redo side gone):");
    }

    heading("unloading");
    proc = nullptr;
    KR_dllGetProcAddress(path, KRSAMPLE_UNREGISTER, &proc);
    auto unregister = krsampleEntry<KRSAMPLE_UNREGISTER_FUNC>(proc);
    if (unregister != nullptr) printf("the module unregistered: %s\n", answer(unregister()));
    status = KR_dllUnload(path);
    printf("KR_dllUnload answered %s: still loaded, once\n", answer(status));
    status = KR_dllUnload(path);
    printf("KR_dllUnload answered %s: the module is gone\n", answer(status));
    HMODULE handle = nullptr;
    status = KR_dllGetHandle(path, &handle);
    printf("KR_dllGetHandle now answers %s\n", answer(status));
    return 0;
}
