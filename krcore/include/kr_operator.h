// kr_operator.h — the operator base.
// KR_Operator is the abstract base of a host's operators: objects that compute a variant from a
// list of variant operands (a formula's function, a filter, a conversion). Reports under
// "src/kr_operator".
#ifndef KRCORE_KR_OPERATOR_H
#define KRCORE_KR_OPERATOR_H

#include "kr_array_impl.h"
#include "kr_base.h"
#include "kr_globals.h"
#include "kr_reporter.h"
#include "kr_var.h"

// KR_Operator — an operation on variants, implemented by a derived class. Operators are not
// copied. The library calls no operator itself; hosts call evaluate.
class KR_API KR_Operator : public KR_KorvaneClass {
public:
    KR_Operator();
    ~KR_Operator() override;

    // Computes result from operands. KR_RET_TRUE with result set; KR_RET_FALSE when the operator
    // has no value for these operands (result unchanged); a failure status (above 2), reported by
    // the implementation, for operands it refuses (KR_RET_ERR_ARG) or a failed allocation. An
    // implementation answers KR_RET_ERR_POBJ when objIsEnabled() is false.
    virtual KR_RET_STATUS evaluate(KR_Array<KR_Var>& operands, KR_Var& result) = 0;

    unsigned char objIsEnabled() const { return initialised_; }

private:
    // Reports KR_RET_ERR_NSUP (KR_RET_ERR_POBJ for a source that is not enabled) and leaves an
    // enabled operator.
    KR_Operator(const KR_Operator& other);

    unsigned char initialised_;
};

#endif  // KRCORE_KR_OPERATOR_H
