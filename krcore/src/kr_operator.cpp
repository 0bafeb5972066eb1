// kr_operator.cpp — the operator base.
#include "kr_operator.h"

#include "kr_report.h"

#define KRI_UNIT "src/kr_operator"

// --- KR_Operator ---

KR_Operator::KR_Operator() : initialised_(1) {
    krInternal::clearUserError();
}

KR_Operator::KR_Operator(const KR_Operator& other) : KR_KorvaneClass(other), initialised_(1) {
    krInternal::clearUserError();
    KRI_FAIL(other.initialised_ ? KR_RET_ERR_NSUP : KR_RET_ERR_POBJ);
}

KR_Operator::~KR_Operator() {
    initialised_ = 0;
}
