// kr_pubdesc.cpp — service description tables.
#include "kr_pubdesc.h"
