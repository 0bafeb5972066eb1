// kr_pubarg.h — public arguments.
#ifndef KRCORE_KR_PUBARG_H
#define KRCORE_KR_PUBARG_H

#include "kr_globals.h"

#endif  // KRCORE_KR_PUBARG_H
