// kr_pubdesc.cpp — lookups over the service description tables, and their printed form.
#include "kr_pubdesc.h"

#include "kr_pubcore.h"
#include "kr_report.h"

#define KRI_UNIT "src/kr_public"

namespace {

// The printed form's indents: the width of the service labels ("Input argument map:  "), where
// every argument or port after the first starts, and the indents of an entry's lines and of the
// values of a value list.
const char kIndentEntry[] = "                     ";               // 21
const char kIndentLine[] = "                            ";         // 28
const char kIndentValue[] = "                                  ";  // 34
const char kStars[] = "************************************************";
const char kDashes[] = "---------------------------------------";
static_assert(sizeof(kIndentEntry) == 22 && sizeof(kIndentLine) == 29 &&
                      sizeof(kIndentValue) == 35 && sizeof(kStars) == 49 && sizeof(kDashes) == 40,
              "the printed form's widths");

const char* yesNo(unsigned char flag) {
    return flag ? "Yes" : "No";
}

// A null text prints as the empty one.
const wchar_t* shown(const wchar_t* text) {
    return text != nullptr ? text : L"";
}

// Entries of an argument map up to the first null name.
unsigned int countNamedArgs(const KR_PubArgMap* map) {
    if (map == nullptr) return 0;
    unsigned int count = 0;
    while (map[count].name != nullptr)
        ++count;
    return count;
}

// The largest count of the group's services; a null service pointer is reported and skipped.
unsigned int largestGroupCount(const KR_PubService* const* group,
                               unsigned int (*count)(const KR_PubService*)) {
    if (group == nullptr) {
        KRI_FAIL(KR_RET_ERR_ARG);
        return 0;
    }
    unsigned int largest = 0;
    for (unsigned int i = 0;; ++i) {
        const KR_PubService* service = group[i];
        if (service == nullptr) {
            KRI_FAIL(KR_RET_ERR_ARG);
            continue;
        }
        if (service->version == nullptr) break;
        unsigned int n = count(service);
        if (n > largest) largest = n;
    }
    return largest;
}

KR_RET_STATUS clearPortDescs(unsigned int& numPorts,
                             KR_OrdContainer<KR_StringW>& names,
                             KR_OrdContainer<KR_StringW>& descs) {
    numPorts = 0;
    KR_RET_STATUS status = names.delAll();
    if (KRI_FAILED(status)) return status;
    status = descs.delAll();
    if (KRI_FAILED(status)) return status;
    return KR_RET_TRUE;
}

KR_RET_STATUS constructPortDescs(const KR_PubService* services,
                                 const char* version,
                                 int function,
                                 bool input,
                                 unsigned int& numPorts,
                                 KR_OrdContainer<KR_StringW>& names,
                                 KR_OrdContainer<KR_StringW>& descs) {
    KR_RET_STATUS status = clearPortDescs(numPorts, names, descs);
    if (KRI_FAILED(status)) return status;
    if (services == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    const KR_PubService* service = krInternal::matchService(services, version, function);
    if (service == nullptr) return KR_RET_ERR_ARG;
    const KR_PubProcPortMap* map = input ? service->inPorts : service->outPorts;
    if (map == nullptr) return KR_RET_TRUE;
    status = KR_buildProcPortDescsFromPubProcPortMap(map, numPorts, names, descs);
    if (KRI_FAILED(status)) return status;
    return KR_RET_TRUE;
}

}  // namespace

// --- Lookups ---

unsigned int KR_getNumPublicServices(const KR_PubService* services) {
    KR_setUserError(0);
    if (services == nullptr) return 0;
    unsigned int count = 0;
    while (services[count].version != nullptr)
        ++count;
    return count;
}

KR_PubService* KR_findPublicService(const KR_PubService* services,
                                    const char* version,
                                    int function) {
    KR_setUserError(0);
    if (services == nullptr || version == nullptr || function < 0) {
        KRI_FAIL(KR_RET_ERR_ARG);
        return nullptr;
    }
    return const_cast<KR_PubService*>(krInternal::matchService(services, version, function));
}

KR_PubService* KR_findPublicService(const KR_PubService* services, const wchar_t* name) {
    KR_setUserError(0);
    if (services == nullptr) {
        KRI_FAIL(KR_RET_ERR_ARG);
        return nullptr;
    }
    if (name == nullptr) return nullptr;
    for (const KR_PubService* s = services; s->version != nullptr; ++s) {
        if (KR_strcmpW(s->functionName, name) == 0) return const_cast<KR_PubService*>(s);
    }
    return nullptr;
}

KR_PubService* KR_findPublicService(const KR_PubService* const* group, const wchar_t* name) {
    KR_setUserError(0);
    if (group == nullptr) {
        KRI_FAIL(KR_RET_ERR_ARG);
        return nullptr;
    }
    if (name == nullptr) return nullptr;
    // A group ends with a pointer to a terminator entry; null pointers before it are skipped.
    for (const KR_PubService* const* s = group; *s == nullptr || (*s)->version != nullptr; ++s) {
        if (*s != nullptr && KR_strcmpW((*s)->functionName, name) == 0)
            return const_cast<KR_PubService*>(*s);
    }
    return nullptr;
}

unsigned int KR_numDataInPortsFromPubService(const KR_PubService* service) {
    KR_setUserError(0);
    if (service == nullptr) {
        KRI_FAIL(KR_RET_ERR_ARG);
        return 0;
    }
    return countNamedArgs(service->inArgs);
}

unsigned int KR_numDataOutPortsFromPubService(const KR_PubService* service) {
    KR_setUserError(0);
    if (service == nullptr) {
        KRI_FAIL(KR_RET_ERR_ARG);
        return 0;
    }
    return countNamedArgs(service->outArgs);
}

unsigned int KR_numDataInPortsFromPubServGrp(const KR_PubService* const* group) {
    KR_setUserError(0);
    return largestGroupCount(group, KR_numDataInPortsFromPubService);
}

unsigned int KR_numDataOutPortsFromPubServGrp(const KR_PubService* const* group) {
    KR_setUserError(0);
    return largestGroupCount(group, KR_numDataOutPortsFromPubService);
}

unsigned int KR_numDataInPortsFromPubServGrpList(const KR_PubServGrpList* list) {
    KR_setUserError(0);
    if (list == nullptr) {
        KRI_FAIL(KR_RET_ERR_ARG);
        return 0;
    }
    return KR_numDataInPortsFromPubServGrp(list->services);
}

unsigned int KR_numDataOutPortsFromPubServGrpList(const KR_PubServGrpList* list) {
    KR_setUserError(0);
    if (list == nullptr) {
        KRI_FAIL(KR_RET_ERR_ARG);
        return 0;
    }
    return KR_numDataOutPortsFromPubServGrp(list->services);
}

KR_PubServGrpList* KR_findVersionPubServGrpList(const KR_PubServGrpList* list,
                                                KR_Version& version) {
    KR_setUserError(0);
    if (list == nullptr) {
        KRI_FAIL(KR_RET_ERR_ARG);
        return nullptr;
    }
    for (const KR_PubServGrpList* e = list; e->version != nullptr && e->services != nullptr; ++e) {
        if (version == e->version) return const_cast<KR_PubServGrpList*>(e);
    }
    return nullptr;
}

KR_PubServGrpList* KR_mostRecentVersionPubServGrpList(const KR_PubServGrpList* list) {
    KR_setUserError(0);
    if (list == nullptr) {
        KRI_FAIL(KR_RET_ERR_ARG);
        return nullptr;
    }
    const KR_PubServGrpList* best = nullptr;
    KR_Version bestVersion;
    for (const KR_PubServGrpList* e = list; e->version != nullptr && e->services != nullptr; ++e) {
        // Only a strictly higher version replaces the best, so the earliest of equals stays.
        if (best == nullptr || bestVersion < e->version) {
            best = e;
            bestVersion = KR_Version(e->version);
        }
    }
    return const_cast<KR_PubServGrpList*>(best);
}

KR_Version KR_mostRecentPubDescTableVersion(const KR_PubDescTable* table) {
    KR_setUserError(0);
    KR_Version best;
    if (table == nullptr) {
        KRI_FAIL(KR_RET_ERR_ARG);
        return best;
    }
    if (table->versions == nullptr) return best;
    for (const char* const* text = table->versions; *text != nullptr; ++text) {
        KR_Version version;
        // A text that could not be parsed has been reported and takes no part.
        if (KRI_FAILED(version.str2Version(*text))) continue;
        if (version > best) best = version;
    }
    return best;
}

// --- Port descriptions ---

KR_RET_STATUS KR_buildProcPortDescsFromPubProcPortMap(const KR_PubProcPortMap* map,
                                                      unsigned int& numPorts,
                                                      KR_OrdContainer<KR_StringW>& names,
                                                      KR_OrdContainer<KR_StringW>& descs) {
    KR_setUserError(0);
    KR_RET_STATUS status = clearPortDescs(numPorts, names, descs);
    if (KRI_FAILED(status)) return status;
    if (map == nullptr) return KR_RET_FALSE;
    unsigned int count = 0;
    while (map[count].name != nullptr)
        ++count;
    numPorts = count;
    status = names.insElems(KR_INS_BEFORE, 0, count);
    KR_RET_STATUS descStatus =
            KRI_FAILED(status) ? status : descs.insElems(KR_INS_BEFORE, 0, count);
    if (KRI_FAILED(descStatus)) {
        clearPortDescs(numPorts, names, descs);
        return descStatus;
    }
    for (unsigned int i = 0; i < count; ++i) {
        KR_RET_STATUS copied = krInternal::copyTextInto(names[i], map[i].name);
        if (!KRI_FAILED(copied)) copied = krInternal::copyTextInto(descs[i], map[i].desc);
        if (KRI_FAILED(copied)) {
            clearPortDescs(numPorts, names, descs);
            return copied;
        }
    }
    return status;
}

KR_RET_STATUS KR_constructInProcPortDescsFromPubService(const KR_PubService* services,
                                                        const char* version,
                                                        int function,
                                                        unsigned int& numPorts,
                                                        KR_OrdContainer<KR_StringW>& names,
                                                        KR_OrdContainer<KR_StringW>& descs) {
    KR_setUserError(0);
    return constructPortDescs(services, version, function, true, numPorts, names, descs);
}

KR_RET_STATUS KR_constructOutProcPortDescsFromPubService(const KR_PubService* services,
                                                         const char* version,
                                                         int function,
                                                         unsigned int& numPorts,
                                                         KR_OrdContainer<KR_StringW>& names,
                                                         KR_OrdContainer<KR_StringW>& descs) {
    KR_setUserError(0);
    return constructPortDescs(services, version, function, false, numPorts, names, descs);
}

// --- Printing ---

KR_OStream& operator<<(KR_OStream& stream, KR_PubServGrpList* list) {
    if (list == nullptr) return stream;
    stream << kStars << "\n"
           << "\n"
           << "Public Service Group List:"
           << "\n"
           << "\n";
    for (unsigned int i = 0; list[i].version != nullptr && list[i].services != nullptr; ++i) {
        stream << kDashes << "\n";
        stream << "Group " << i << ": "
               << "Version " << list[i].version << ":"
               << "\n"
               << "\n";
        stream << list[i].services;
        stream << kDashes << "\n";
        stream << "\n";
    }
    stream << kStars << "\n";
    return stream;
}

KR_OStream& operator<<(KR_OStream& stream, const KR_PubServGrpList* list) {
    return stream << const_cast<KR_PubServGrpList*>(list);
}

KR_OStream& operator<<(KR_OStream& stream, KR_PubService& service) {
    stream << "Version:             " << service.version << "\n";
    stream << "Function:            " << service.function << "\n";
    stream << "Function name:       " << service.functionName << "\n";
    stream << "Description:         " << service.desc << "\n";
    stream << "Input argument map:  " << service.inArgs;
    stream << "Output argument map: " << service.outArgs;
    stream << "Input process port map:  " << service.inPorts;
    stream << "Output process port map: " << service.outPorts;
    return stream;
}

KR_OStream& operator<<(KR_OStream& stream, const KR_PubService& service) {
    return stream << const_cast<KR_PubService&>(service);
}

KR_OStream& operator<<(KR_OStream& stream, KR_PubService* services) {
    if (services == nullptr) return stream;
    for (KR_PubService* s = services; s->functionName != nullptr && s->desc != nullptr; ++s)
        stream << *s << "\n";
    return stream;
}

KR_OStream& operator<<(KR_OStream& stream, const KR_PubService* services) {
    return stream << const_cast<KR_PubService*>(services);
}

KR_OStream& operator<<(KR_OStream& stream, KR_PubService** group) {
    if (group == nullptr) return stream;
    for (KR_PubService** s = group; *s == nullptr || (*s)->version != nullptr; ++s) {
        if (*s != nullptr) stream << **s << "\n\n";
    }
    return stream;
}

KR_OStream& operator<<(KR_OStream& stream, const KR_PubService* const* group) {
    return stream << const_cast<KR_PubService**>(group);
}

KR_OStream& operator<<(KR_OStream& stream, KR_PubArgMap* map) {
    if (map == nullptr)
        return stream << "No arguments"
                      << "\n";
    for (unsigned int i = 0; map[i].type != KR_VAR_ID_NONE; ++i) {
        const KR_PubArgMap& arg = map[i];
        if (i > 0) stream << kIndentEntry;
        stream << "Arg " << i << ": "
               << "Type: " << arg.type << "\n";
        stream << kIndentLine << "Name: " << shown(arg.name) << "\n";
        stream << kIndentLine << "Desc: " << shown(arg.desc) << "\n";
        stream << kIndentLine << "Cast: " << yesNo(arg.castAllowed) << "\n";
        if (arg.valueList != nullptr) {
            stream << kIndentLine << "Arg Value List: "
                   << "\n";
            for (const wchar_t* const* value = arg.valueList; *value != nullptr; ++value)
                stream << kIndentValue << *value << "\n";
        }
        stream << kIndentLine << "Arg Value List Fixed: " << yesNo(arg.valueListFixed) << "\n";
        stream << kIndentLine << "Browser: " << static_cast<int>(arg.browser) << "\n";
        stream << kIndentLine << "Browser Filter Type: " << arg.browserFilterType << "\n";
        stream << kIndentLine << "Fixed Type: " << yesNo(arg.fixedType) << "\n";
        stream << kIndentLine << "Read Only: " << yesNo(arg.readOnly) << "\n";
        stream << kIndentLine << "Default Value: " << arg.defaultValue << "\n";
        stream << kIndentLine << "Option: " << arg.option << "\n";
    }
    return stream;
}

KR_OStream& operator<<(KR_OStream& stream, const KR_PubArgMap* map) {
    return stream << const_cast<KR_PubArgMap*>(map);
}

KR_OStream& operator<<(KR_OStream& stream, KR_PubProcPortMap* map) {
    if (map == nullptr)
        return stream << "No process ports"
                      << "\n";
    for (unsigned int i = 0; map[i].name != nullptr; ++i) {
        if (i > 0) stream << kIndentEntry;
        stream << "Port " << i << "\n";
        stream << kIndentLine << "Name: " << shown(map[i].name) << "\n";
        stream << kIndentLine << "Desc: " << shown(map[i].desc) << "\n";
    }
    return stream;
}

KR_OStream& operator<<(KR_OStream& stream, const KR_PubProcPortMap* map) {
    return stream << const_cast<KR_PubProcPortMap*>(map);
}
