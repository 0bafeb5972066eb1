// kr_dllmanager.cpp — the module manager and the process environment.
#include "kr_dllmanager.h"
