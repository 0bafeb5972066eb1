// kr_command.h — commands and the undo stack.
#ifndef KRCORE_KR_COMMAND_H
#define KRCORE_KR_COMMAND_H

#include "kr_globals.h"

#endif  // KRCORE_KR_COMMAND_H
