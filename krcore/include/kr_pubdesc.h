// kr_pubdesc.h — the description tables through which a plug-in module publishes its services.
// A module describes, per version, a group of services (functions) and, per service, its input
// and output arguments and process ports, in static tables of the plain records below. This unit
// finds services in those tables, counts their ports, picks the most recent version, copies port
// names and descriptions into the caller's containers and prints the tables. The records borrow
// every text; nothing here owns or frees table data. Failures are reported under "src/kr_public".
//
//   static const wchar_t* const kModes[] = {L"fast", L"exact", nullptr};
//   // Fields left out take their defaults: null texts and maps, 0, KR_PUBARG_BROWSER_NONE.
//   static const KR_PubArgMap kInArgs[] = {
//           {KR_VAR_ID_INT, L"count", L"How many", 1, nullptr, 0, KR_PUBARG_BROWSER_NONE,
//            nullptr, 0, 0, L"3", 0, 0},
//           {KR_VAR_ID_CHOICE, L"mode", L"How", 0, kModes, 1, KR_PUBARG_BROWSER_CHOICE,
//            nullptr, 0, 0, L"fast", 0, 0},
//           {}};
//   static const KR_PubService kServices[] = {
//           {"1.0.0", 0, L"run", L"Runs it", kInArgs, nullptr, nullptr, nullptr},
//           {}};
//   KR_findPublicService(kServices, L"run")  ->  &kServices[0]
#ifndef KRCORE_KR_PUBDESC_H
#define KRCORE_KR_PUBDESC_H

#include <stdint.h>
#include <wchar.h>

#include "kr_container.h"
#include "kr_globals.h"
#include "kr_iostream.h"
#include "kr_reporter.h"
#include "kr_str.h"
#include "kr_var.h"
#include "kr_version.h"

// The kind of editor a host offers for an argument. The library only copies the value from the
// argument map into the argument (KR_PubArg); hosts decide what each kind looks like.
enum KR_PUBARG_BROWSER : int {
    KR_PUBARG_BROWSER_NONE = -1,      // typed in as text
    KR_PUBARG_BROWSER_FILE_OPEN = 0,  // pick an existing file (the filter type narrows it)
    KR_PUBARG_BROWSER_FILE_SAVE = 1,  // name a file to write
    KR_PUBARG_BROWSER_DIRECTORY = 2,
    KR_PUBARG_BROWSER_COLOUR = 3,
    KR_PUBARG_BROWSER_CHOICE = 4  // one of the argument's value list
};

// KR_PubArgMap — one published argument. An argument map is an array of these that ends with an
// entry of type KR_VAR_ID_NONE; the port counts below stop at the first null name instead, so a
// terminator should have a null name as well.
struct KR_PubArgMap {
    KR_VAR_TYPE_ID type = KR_VAR_ID_NONE;
    const wchar_t* name = nullptr;
    const wchar_t* desc = nullptr;
    // The argument casts incoming values to its own type (else it takes theirs).
    unsigned char castAllowed = 0;
    // Allowed value texts up to a null entry; may be null.
    const wchar_t* const* valueList = nullptr;
    unsigned char valueListFixed = 0;
    KR_PUBARG_BROWSER browser = KR_PUBARG_BROWSER_NONE;
    const wchar_t* browserFilterType = nullptr;
    unsigned char fixedType = 0;
    unsigned char readOnly = 0;
    const wchar_t* defaultValue = nullptr;  // parsed into the argument's value
    int option = 0;
    int reserved = 0;  // the module's own word; never read here
};

// KR_PubProcPortMap — one process port. A port map ends with an entry whose name is null.
struct KR_PubProcPortMap {
    const wchar_t* name = nullptr;
    const wchar_t* desc = nullptr;
};

// KR_PubService — one published function. A service array ends with an entry whose version is
// null. Any of the four maps may be null: the service then has no such arguments or ports.
struct KR_PubService {
    const char* version = nullptr;  // "major.minor.patch" of the module version that offers it
    int function = 0;
    const wchar_t* functionName = nullptr;
    const wchar_t* desc = nullptr;
    const KR_PubArgMap* inArgs = nullptr;
    const KR_PubArgMap* outArgs = nullptr;
    const KR_PubProcPortMap* inPorts = nullptr;
    const KR_PubProcPortMap* outPorts = nullptr;
};

// KR_PubServGrpList — the service group of one version. A group is an array of service pointers
// that ends with a pointer to a terminator entry (version null); a null pointer inside a group
// is skipped, never taken as its end. A list of groups ends with an entry whose version or
// services pointer is null.
struct KR_PubServGrpList {
    const char* version = nullptr;
    const KR_PubService* const* services = nullptr;
};

// KR_PubDescTable — a module's description table: thirteen pointer-sized words. Only the ninth,
// versions, is read here; the meaning of the other twelve is the module's own.
struct KR_PubDescTable {
    uintptr_t word1 = 0;
    uintptr_t word2 = 0;
    uintptr_t word3 = 0;
    uintptr_t word4 = 0;
    uintptr_t word5 = 0;
    uintptr_t word6 = 0;
    uintptr_t word7 = 0;
    uintptr_t word8 = 0;
    const char* const* versions = nullptr;  // version texts up to a null entry; may be null
    uintptr_t word10 = 0;
    uintptr_t word11 = 0;
    uintptr_t word12 = 0;
    uintptr_t word13 = 0;
};

static_assert(sizeof(KR_PubDescTable) == 13 * sizeof(uintptr_t),
              "a description table is thirteen pointer-sized words");

// --- Lookups ---
// Every walk stops at the terminator of its table and never reorders it. The lookups return
// pointers into the caller's tables, as plain pointers whatever the tables' constness.

// Entries before the first null version; 0 for a null array.
KR_API unsigned int KR_getNumPublicServices(const KR_PubService* services);
// The entry whose version text equals version exactly and whose function number is function.
// A null array or version, or a negative function: KR_RET_ERR_ARG reported, null.
KR_API KR_PubService* KR_findPublicService(const KR_PubService* services,
                                           const char* version,
                                           int function);
// The first entry with that function name; null when none. A null array is reported
// (KR_RET_ERR_ARG); a null name gives null without a report.
KR_API KR_PubService* KR_findPublicService(const KR_PubService* services, const wchar_t* name);
// The service pointer held in group whose service has that function name, as above.
KR_API KR_PubService* KR_findPublicService(const KR_PubService* const* group, const wchar_t* name);
// The number of entries of the service's input (output) argument map, counted up to the first
// null name; 0 for a null map. A null service: KR_RET_ERR_ARG reported, 0.
KR_API unsigned int KR_numDataInPortsFromPubService(const KR_PubService* service);
KR_API unsigned int KR_numDataOutPortsFromPubService(const KR_PubService* service);
// The largest such count over the group's services.
KR_API unsigned int KR_numDataInPortsFromPubServGrp(const KR_PubService* const* group);
KR_API unsigned int KR_numDataOutPortsFromPubServGrp(const KR_PubService* const* group);
// The group count of the list's first entry only, whatever later groups hold.
KR_API unsigned int KR_numDataInPortsFromPubServGrpList(const KR_PubServGrpList* list);
KR_API unsigned int KR_numDataOutPortsFromPubServGrpList(const KR_PubServGrpList* list);
// The first entry whose version text reads as version; null when none. A null list is reported
// (KR_RET_ERR_ARG).
KR_API KR_PubServGrpList* KR_findVersionPubServGrpList(const KR_PubServGrpList* list,
                                                       KR_Version& version);
// The entry with the highest version; among equal versions the earliest. Null for an empty list;
// a null list is reported (KR_RET_ERR_ARG).
KR_API KR_PubServGrpList* KR_mostRecentVersionPubServGrpList(const KR_PubServGrpList* list);
// The highest version of the table's version list; 0.0.0 when the list is null or empty. A null
// table is reported (KR_RET_ERR_ARG).
KR_API KR_Version KR_mostRecentPubDescTableVersion(const KR_PubDescTable* table);

// --- Port descriptions ---

// Empties both containers and numPorts, then gives them one element per port of map: names[i]
// and descs[i] are copies of port i's texts. KR_RET_TRUE; KR_RET_FALSE for a null or empty map.
// A container or text copy that fails is passed back (KR_RET_ERR_MEM) with numPorts 0 and both
// containers empty.
KR_API KR_RET_STATUS KR_buildProcPortDescsFromPubProcPortMap(const KR_PubProcPortMap* map,
                                                             unsigned int& numPorts,
                                                             KR_OrdContainer<KR_StringW>& names,
                                                             KR_OrdContainer<KR_StringW>& descs);
// The same for the input (output) port map of the first service of the array that matches
// version exactly and function; KR_RET_TRUE with empty outputs when that map is null. A null
// array is reported (KR_RET_ERR_ARG); no matching service answers KR_RET_ERR_ARG without a
// report.
KR_API KR_RET_STATUS KR_constructInProcPortDescsFromPubService(const KR_PubService* services,
                                                               const char* version,
                                                               int function,
                                                               unsigned int& numPorts,
                                                               KR_OrdContainer<KR_StringW>& names,
                                                               KR_OrdContainer<KR_StringW>& descs);
KR_API KR_RET_STATUS KR_constructOutProcPortDescsFromPubService(const KR_PubService* services,
                                                                const char* version,
                                                                int function,
                                                                unsigned int& numPorts,
                                                                KR_OrdContainer<KR_StringW>& names,
                                                                KR_OrdContainer<KR_StringW>& descs);

// --- Printing ---
// Through the stream's own overloads, so a console handler receives every piece. A null list,
// array or group prints nothing; a null argument map prints "No arguments" and a null port map
// "No process ports", each on a line of its own. A service array prints its entries up to the
// first whose function name or description is null (the lookups walk on to the null version).
// The const forms print the same.

KR_API KR_OStream& operator<<(KR_OStream& stream, KR_PubServGrpList* list);
KR_API KR_OStream& operator<<(KR_OStream& stream, const KR_PubServGrpList* list);
KR_API KR_OStream& operator<<(KR_OStream& stream, KR_PubService& service);
KR_API KR_OStream& operator<<(KR_OStream& stream, const KR_PubService& service);
KR_API KR_OStream& operator<<(KR_OStream& stream, KR_PubService* services);
KR_API KR_OStream& operator<<(KR_OStream& stream, const KR_PubService* services);
KR_API KR_OStream& operator<<(KR_OStream& stream, KR_PubService** group);
KR_API KR_OStream& operator<<(KR_OStream& stream, const KR_PubService* const* group);
KR_API KR_OStream& operator<<(KR_OStream& stream, KR_PubArgMap* map);
KR_API KR_OStream& operator<<(KR_OStream& stream, const KR_PubArgMap* map);
KR_API KR_OStream& operator<<(KR_OStream& stream, KR_PubProcPortMap* map);
KR_API KR_OStream& operator<<(KR_OStream& stream, const KR_PubProcPortMap* map);

#endif  // KRCORE_KR_PUBDESC_H
