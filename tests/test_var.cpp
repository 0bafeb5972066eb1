// test_var.cpp — (placeholder)
#include "test_support.h"
