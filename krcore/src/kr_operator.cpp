// kr_operator.cpp — the operator base.
#include "kr_operator.h"
