// kr_pipe.h — named pipes between modules.
#ifndef KRCORE_KR_PIPE_H
#define KRCORE_KR_PIPE_H

#include "kr_globals.h"

#endif  // KRCORE_KR_PIPE_H
