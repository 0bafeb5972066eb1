// kr_operator.h — the operator base.
#ifndef KRCORE_KR_OPERATOR_H
#define KRCORE_KR_OPERATOR_H

#include "kr_globals.h"

#endif  // KRCORE_KR_OPERATOR_H
