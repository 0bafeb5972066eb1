// kr_globals.cpp — the process-wide cells and reporter registration.
#include "kr_globals.h"

#include "kr_iostream.h"
#include "kr_persist.h"
#include "kr_report.h"
#include "kr_reporter.h"
#include "kr_version.h"

#define KRI_UNIT "src/kr_globals"

KR_NullBlock KR_NULL_PTR;
KR_BaseReporter* KR_msgReporter = nullptr;
KR_Reporter* KR_defReporter = nullptr;
KR_OStream* KR_coutPtr = nullptr;
KR_Version KR_systemVersionRead;
KR_Version KR_systemVersionWrite;
unsigned char KR_useUnicodeSystemFunctions = 0;
KR_RET_STATUS KR_statusCode = KR_RET_TRUE;

KR_RET_STATUS KR_registerReporter(KR_BaseReporter* reporter) {
    KR_setUserError(0);
    if (reporter == nullptr) return KRI_FAIL(KR_RET_ERR_ARG);
    KR_msgReporter = reporter;
    return KR_RET_TRUE;
}

// The persistable root's destructor lives here so that its type information is emitted once, in
// the library, and shared by every module.
KR_Persistable::~KR_Persistable() {}
