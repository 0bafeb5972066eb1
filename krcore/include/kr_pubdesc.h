// kr_pubdesc.h — service description tables.
#ifndef KRCORE_KR_PUBDESC_H
#define KRCORE_KR_PUBDESC_H

#include "kr_globals.h"

#endif  // KRCORE_KR_PUBDESC_H
