// test_hash.cpp — (placeholder)
#include "test_support.h"
