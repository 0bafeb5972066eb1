// kr_init.cpp — library start-up and shut-down.
#include "kr_init.h"

#include "kr_alloc.h"
#include "kr_dllmanager.h"
#include "kr_iostream.h"
#include "kr_pipe.h"
#include "kr_public.h"
#include "kr_report.h"
#include "kr_version.h"

#define KRI_UNIT "src/kr_init"

KR_RET_STATUS KR_init() {
    KR_setUserError(0);
    // Before the reporter exists this report prints nothing; it still sets the status code.
    KR_defReporter = krInternal::newObject<KR_Reporter>();
    if (KR_defReporter == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    KR_RET_STATUS status = KR_registerReporter(KR_defReporter);
    if (KRI_FAILED(status)) return status;
    KR_systemVersionRead = KR_Version(1, 0, 0);
    KR_systemVersionWrite = KR_Version(1, 0, 0);
    KR_coutPtr = krInternal::newObject<KR_OStream>();
    if (KR_coutPtr == nullptr) return KRI_FAIL(KR_RET_ERR_MEM);
    // A manager that is already running (a second KR_init) answers KR_RET_FALSE and carries on.
    status = KR_classFactoryInit();
    if (KRI_FAILED(status)) return status;
    status = KR_dllEntryManagerInit();
    if (KRI_FAILED(status)) return status;
    status = KR_initPipeManager();
    if (KRI_FAILED(status)) return status;
    return KR_msgInit();
}

KR_RET_STATUS KR_close() {
    KR_setUserError(0);
    // In the reverse order of KR_init; each close answers for itself and cannot stop this one.
    KR_closePipeManager();
    KR_dllEntryManagerClose();
    KR_classFactoryClose();
    delete KR_coutPtr;
    KR_coutPtr = nullptr;
    // The reporter pointers keep their value: a host that reports after KR_close registers a
    // reporter of its own first.
    delete KR_defReporter;
    return KR_RET_TRUE;
}
