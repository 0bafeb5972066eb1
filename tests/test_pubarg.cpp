// test_pubarg.cpp
#include <gtest/gtest.h>
