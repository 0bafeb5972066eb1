// kr_pipe.cpp — named pipes between modules.
#include "kr_pipe.h"
