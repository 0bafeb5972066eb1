// kr_pubarg.cpp — public arguments.
#include "kr_pubarg.h"
