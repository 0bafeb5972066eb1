// kr_command.cpp — commands and the undo stack.
#include "kr_command.h"
