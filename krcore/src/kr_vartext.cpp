// kr_vartext.cpp — the tagged text form of a variant (not yet written: refused).
#include "kr_report.h"
#include "kr_var.h"

#define KRI_UNIT "src/kr_var"

KR_RET_STATUS KR_Var::persist(KR_Version&, KR_FileAscii&) {
    return KRI_FAIL(KR_RET_ERR_NSUP);
}

KR_RET_STATUS KR_Var::restore(KR_Version&, KR_FileAscii&) {
    return KRI_FAIL(KR_RET_ERR_NSUP);
}
