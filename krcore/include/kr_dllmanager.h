// kr_dllmanager.h — the module manager and the process environment.
#ifndef KRCORE_KR_DLLMANAGER_H
#define KRCORE_KR_DLLMANAGER_H

#include "kr_globals.h"

#endif  // KRCORE_KR_DLLMANAGER_H
