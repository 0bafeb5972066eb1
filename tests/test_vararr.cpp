// test_vararr.cpp — (placeholder)
#include "test_support.h"
