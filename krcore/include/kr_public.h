// kr_public.h — public classes and the class factory.
#ifndef KRCORE_KR_PUBLIC_H
#define KRCORE_KR_PUBLIC_H

#include "kr_globals.h"

#endif  // KRCORE_KR_PUBLIC_H
